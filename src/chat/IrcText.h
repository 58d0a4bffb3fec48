#pragma once

// Text rendering for the chat window, free of widgets:
//  - nick colours,
//  - chat rows: plain text with clickable web and e-mail addresses inserted
//    into a QTextCursor,
//  - topics: addresses wrapped in anchors in the HTML of a topic.
//
// Reading IRC formatting codes (for chat rows and topics) is in IrcFormat.h,
// included here.
//
// All regular expressions and colour tables are built once per process.
// Every function treats its input as untrusted: text never becomes markup,
// and the only link targets that can result are "http://", "https://",
// "mailto:" (chat rows) and bare e-mail addresses (topics).

#include "IrcFormat.h"

#include <QColor>
#include <QList>
#include <QString>
#include <QTextCharFormat>

class QTextCursor;

namespace IrcText {

// One link inside a chat message: [start, end) indexes into the message.
struct LinkSegment
{
    int start = 0;
    int end = 0;
    QString href;
    QString displayText;

    bool operator==(const LinkSegment& other) const
    {
        return start == other.start && end == other.end && href == other.href
            && displayText == other.displayText;
    }
    bool operator!=(const LinkSegment& other) const { return !(*this == other); }
};

// Colour of the nick column for an empty sender.
QColor emptyNickColor();           // (102, 102, 102)
// The 16 nick colours, indexed by the low four bits of the nick hash.
const QList<QColor>& nickPalette();
// Stable colour for a nickname (hashed exactly as given).
QColor nickColor(const QString& nick);

// Link colour in chat rows ("#007AFF").
QColor linkColor();
// baseFmt plus anchor, link colour, single underline and href as target.
QTextCharFormat linkFormat(const QTextCharFormat& baseFmt, const QString& href);

// The links of a chat message, sorted by start: every web address
// ("http://" / "https://" up to the next white space), then every e-mail
// address that overlaps no web address, with "mailto:" as its target.
QList<LinkSegment> linkSegments(const QString& text);

// Characters that would split a text block ("\n", "\r", U+2029, ...) and
// tabs are replaced by spaces, so one message always stays one row.
// Returns the text itself (no copy) when there is nothing to replace.
QString singleBlockText(const QString& text);

// Inserts text at cursor with baseFmt, its links (linkSegments) with
// linkFormat. The text is inserted as plain text: never parsed as HTML;
// block separators are neutralised (singleBlockText).
void insertMessageWithLinks(QTextCursor& cursor, const QString& text,
                            const QTextCharFormat& baseFmt);

// The HTML with web and e-mail addresses wrapped in anchors (in linkColour,
// when valid). Addresses inside tags or inside an anchor's text are left
// alone; an e-mail address gets itself as href (no "mailto:").
QString linkifyHtml(const QString& html, const QColor& linkColour = QColor());

// linkifyHtml(ircToHtml(ircText)): the topic bar's rich text. Given the
// background it is shown on, its colours and links are made to read there.
QString ircTopicToHtml(const QString& ircText, const QColor& background = QColor());

// The emoji of a text as [start, end) ranges of it: pictographs with what
// joins or modifies them (ZWJ sequences, skin tones, variation selectors,
// flags, keycaps), and symbols shown as emoji (those drawn as emoji by
// default, or followed by U+FE0F).
QList<QPair<int, int>> emojiRanges(const QString& text);

} // namespace IrcText
