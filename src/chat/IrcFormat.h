#pragma once

// IRC formatting codes, free of widgets: the colour codes, a message as a
// chat row shows it (its text and the formats of its runs) and a topic as
// HTML. Input is untrusted: text never becomes markup.

#include <QColor>
#include <QList>
#include <QString>
#include <QTextLayout>

namespace IrcText {

// A chat message with its IRC formatting codes read: the text as shown and
// the formats of its runs (indexes into text).
struct FormattedText
{
    QString text;
    QList<QTextLayout::FormatRange> formats;
};

// The 16 IRC colour codes 0..15 (white, black, "#000080", ...).
const QList<QColor>& ircColorTable();
// Table colour for a code; codes outside 0..15 are clamped into the table.
QColor ircColor(int code);
// Colour of a colour code as sent: 0..15 from the table above, 16..98 the
// extended colours; invalid for 99 (the default colour) and anything else.
QColor ircCodeColor(int code);

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
// text is HTML-escaped. Given the background the HTML is shown on, colours of
// the text's own are made to read on it.
QString ircToHtml(const QString& ircText, const QColor& background = QColor());

} // namespace IrcText
