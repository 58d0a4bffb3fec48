#pragma once

class QFont;
class QWidget;

namespace ChatPage {

// The page of a conversation tab: for a channel, a topic strip (objects
// "topicBar", "topicLabel" and "editTopicBtn") above the message view; the
// message view, with or without its nick column, in font. The caller owns it.
QWidget* create(bool isChannel, bool nickColumn, const QFont& font);

} // namespace ChatPage
