#pragma once

// Text rendering for the chat window, free of widgets:
//  - nick colours,
//  - chat rows: plain text with clickable web and e-mail addresses inserted
//    into a QTextCursor,
//  - topics: IRC formatting codes to HTML, then addresses wrapped in anchors.
//
// All regular expressions and colour tables are built once per process.
// Every function treats its input as untrusted: text never becomes markup,
// and the only link targets that can result are "http://", "https://",
// "mailto:" (chat rows) and bare e-mail addresses (topics).

#include <QColor>
#include <QList>
#include <QString>
#include <QTextCharFormat>
#include <QTextLayout>

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

// A chat message with its IRC formatting codes read: the text as shown and
// the formats of its runs (indexes into text).
struct FormattedText
{
    QString text;
    QList<QTextLayout::FormatRange> formats;
};

// Colour of the nick column for an empty sender.
QColor emptyNickColor();           // (102, 102, 102)
// The 16 nick colours, indexed by the low four bits of the nick hash.
const QList<QColor>& nickPalette();
// Stable colour for a nickname (hashed exactly as given).
QColor nickColor(const QString& nick);

// The 16 IRC colour codes 0..15 (white, black, "#000080", ...).
const QList<QColor>& ircColorTable();
// Table colour for a code; codes outside 0..15 are clamped into the table.
QColor ircColor(int code);
// Colour of a colour code as sent: 0..15 from the table above, 16..98 the
// extended colours; invalid for 99 (the default colour) and anything else.
QColor ircCodeColor(int code);

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

// The formatting codes: bold 0x02, colour 0x03 (foreground and background,
// one or two digits each), hex colour 0x04 (RRGGBB[,RRGGBB]), reset 0x0F,
// monospace 0x11, reverse 0x16, italic 0x1D, strikethrough 0x1E and
// underline 0x1F. Other control characters (C0 and DEL) are shown as their
// control pictures (U+2400 + code, DEL as U+2421); tabs and line breaks
// become spaces.

// A message as a chat row shows it. Reverse video without colours swaps
// text and base. Returns the text itself (no copy, no formats) when it holds
// no control character.
FormattedText formatMessage(
    const QString& ircText, const QColor& text = Qt::black, const QColor& base = Qt::white);
// The text without formatting codes (formatMessage(ircText).text).
QString stripFormatting(const QString& ircText);
// Every control character (C0, DEL) as its control picture, tabs and line
// breaks included: for names, which have no formatting.
QString visibleControls(const QString& text);

// HTML for a text with IRC formatting codes, tags properly nested; all other
// text is HTML-escaped.
QString ircToHtml(const QString& ircText);

// The HTML with web and e-mail addresses wrapped in anchors. Addresses
// inside tags or inside an anchor's text are left alone; an e-mail address gets
// itself as href (no "mailto:").
QString linkifyHtml(const QString& html);

// linkifyHtml(ircToHtml(ircText)): the topic bar's rich text.
QString ircTopicToHtml(const QString& ircText);

} // namespace IrcText
