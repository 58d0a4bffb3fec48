#pragma once

class ChatView;
class QFont;
class QString;
class QWidget;
struct ChatPreferences;

namespace ChatPage {

// The page of a conversation tab: for a channel, a topic strip (objects
// "topicBar", "topicLabel" and "editTopicBtn") above the message view; the
// message view, with or without its nick column, in font; under it the
// hidden find bar (a FindBar), which gives the keyboard to focusAfterFind
// when it closes. The caller owns the page.
QWidget* create(bool isChannel, bool nickColumn, const QFont& font, QWidget* focusAfterFind = nullptr);

// Gives view the chat background of the preferences (image, colour or the
// theme's) with its border and thin scroll bars.
void applyBackground(ChatView* view, const ChatPreferences& prefs, const QString& theme);

} // namespace ChatPage
