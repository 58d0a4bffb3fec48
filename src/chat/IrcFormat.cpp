#include "IrcFormat.h"

#include "Contrast.h"
#include "IrcText.h"

#include <algorithm>

namespace IrcText {

namespace {

bool isAsciiDigit(QChar c)
{
    return c.unicode() >= '0' && c.unicode() <= '9';
}

int clampColorCode(int code)
{
    return std::clamp(code, 0, 15);
}

// The formatting in effect at some point of a text.
struct Style
{
    bool bold = false;
    bool italic = false;
    bool underline = false;
    bool strike = false;
    bool mono = false;
    bool reverse = false;
    QColor fg; // invalid: the default colour
    QColor bg;

    bool operator==(const Style& o) const
    {
        return bold == o.bold && italic == o.italic && underline == o.underline && strike == o.strike
            && mono == o.mono && reverse == o.reverse && fg == o.fg && bg == o.bg;
    }
    bool operator!=(const Style& o) const { return !(*this == o); }
    bool isPlain() const { return *this == Style(); }
};

// Reads a colour number of one or two digits at pos, moving pos past it;
// -1 when there is no digit.
int readColorNumber(const QString& text, int& pos)
{
    if (pos >= text.size() || !isAsciiDigit(text.at(pos)))
        return -1;
    int value = text.at(pos++).unicode() - '0';
    if (pos < text.size() && isAsciiDigit(text.at(pos)))
        value = value * 10 + (text.at(pos++).unicode() - '0');
    return value;
}

bool isHexDigit(QChar c)
{
    const char16_t u = c.unicode();
    return (u >= '0' && u <= '9') || (u >= 'a' && u <= 'f') || (u >= 'A' && u <= 'F');
}

// Reads RRGGBB at pos, moving pos past it; invalid (pos unchanged) when
// there are not six hex digits.
QColor readHexColor(const QString& text, int& pos)
{
    if (pos + 6 > text.size())
        return QColor();
    for (int i = pos; i < pos + 6; ++i) {
        if (!isHexDigit(text.at(i)))
            return QColor();
    }
    const QColor color(QLatin1Char('#') + text.mid(pos, 6));
    pos += 6;
    return color;
}

// If text[pos] is a formatting code: applies it to style, moves pos past it
// and its arguments and returns true.
bool readCode(const QString& text, int& pos, Style& style)
{
    switch (text.at(pos).unicode()) {
    case 0x02:
        style.bold = !style.bold;
        break;
    case 0x1D:
        style.italic = !style.italic;
        break;
    case 0x1F:
        style.underline = !style.underline;
        break;
    case 0x1E:
        style.strike = !style.strike;
        break;
    case 0x11:
        style.mono = !style.mono;
        break;
    case 0x16:
        style.reverse = !style.reverse;
        break;
    case 0x0F:
        style = Style();
        break;
    case 0x03: {
        ++pos;
        const int fg = readColorNumber(text, pos);
        if (fg < 0) {
            // A bare code ends the colours.
            style.fg = style.bg = QColor();
            return true;
        }
        style.fg = ircCodeColor(fg);
        // A comma after the foreground belongs to the code.
        if (pos < text.size() && text.at(pos) == QLatin1Char(',')) {
            ++pos;
            const int bg = readColorNumber(text, pos);
            if (bg >= 0)
                style.bg = ircCodeColor(bg);
        }
        return true;
    }
    case 0x04: {
        ++pos;
        const QColor fg = readHexColor(text, pos);
        if (!fg.isValid()) {
            style.fg = style.bg = QColor();
            return true;
        }
        style.fg = fg;
        if (pos + 1 < text.size() && text.at(pos) == QLatin1Char(',')) {
            int at = pos + 1;
            const QColor bg = readHexColor(text, at);
            if (bg.isValid()) {
                style.bg = bg;
                pos = at;
            }
        }
        return true;
    }
    default:
        return false;
    }
    ++pos;
    return true;
}

bool isControl(char16_t u)
{
    return u < 0x20 || u == 0x7F;
}

// What a control character that is no formatting code shows as.
QChar controlPicture(char16_t u)
{
    return QChar(u == 0x7F ? char16_t(0x2421) : char16_t(0x2400 + u));
}

// The colours a run is drawn with: reverse swaps them (the defaults standing
// in for missing ones), and text on a background of its own colour is made
// black or white, whichever reads.
void runColors(const Style& style, const QColor& text, const QColor& base, QColor& fg, QColor& bg)
{
    fg = style.fg;
    bg = style.bg;
    if (style.reverse) {
        fg = style.bg.isValid() ? style.bg : base;
        bg = style.fg.isValid() ? style.fg : text;
    }
    if (fg.isValid() && fg == bg) {
        // 0.299 R + 0.587 G + 0.114 B, truncated; in integers so that a
        // grey of 128 really is 128 and not 127.999...
        const int brightness = (299 * bg.red() + 587 * bg.green() + 114 * bg.blue()) / 1000;
        fg = brightness > 127 ? QColor(Qt::black) : QColor(Qt::white);
    }
}

QTextCharFormat charFormat(const Style& style, const QColor& text, const QColor& base)
{
    QTextCharFormat format;
    if (style.bold)
        format.setFontWeight(QFont::Bold);
    if (style.italic)
        format.setFontItalic(true);
    if (style.underline)
        format.setFontUnderline(true);
    if (style.strike)
        format.setFontStrikeOut(true);
    if (style.mono) {
        format.setFontFamilies(QStringList { QStringLiteral("monospace") });
        format.setFontStyleHint(QFont::Monospace);
    }
    QColor fg;
    QColor bg;
    runColors(style, text, base, fg, bg);
    if (fg.isValid())
        format.setForeground(fg);
    if (bg.isValid())
        format.setBackground(bg);
    return format;
}

// One element of the HTML written for a style, in the order they nest.
enum class Tag
{
    Bold,
    Italic,
    Underline,
    Strike,
    Mono,
    Color,
};

struct OpenTag
{
    Tag tag;
    QString color; // the style attribute of a colour span
    bool operator==(const OpenTag& o) const { return tag == o.tag && color == o.color; }
};

// background, when valid, is what the HTML is shown on: a colour of the
// text's own without a background of its own is made to read on it.
QList<OpenTag> tagsFor(const Style& style, const QColor& background)
{
    QList<OpenTag> tags;
    if (style.bold)
        tags.append({ Tag::Bold, QString() });
    if (style.italic)
        tags.append({ Tag::Italic, QString() });
    if (style.underline)
        tags.append({ Tag::Underline, QString() });
    if (style.strike)
        tags.append({ Tag::Strike, QString() });
    if (style.mono)
        tags.append({ Tag::Mono, QString() });
    QColor fg;
    QColor bg;
    runColors(style, Qt::black, Qt::white, fg, bg);
    if (fg.isValid() && !bg.isValid() && background.isValid())
        fg = Contrast::readable(fg, background);
    if (fg.isValid() || bg.isValid()) {
        QString css;
        if (fg.isValid())
            css += QLatin1String("color:") + fg.name() + QLatin1Char(';');
        if (bg.isValid())
            css += QLatin1String("background-color:") + bg.name() + QLatin1Char(';');
        tags.append({ Tag::Color, css });
    }
    return tags;
}

void writeTag(QString& out, const OpenTag& tag, bool open)
{
    static const char* const names[] = { "b", "i", "u", "s", "tt", "span" };
    out += open ? QLatin1String("<") : QLatin1String("</");
    out += QLatin1String(names[int(tag.tag)]);
    if (open && tag.tag == Tag::Color)
        out += QLatin1String(" style=\"") + tag.color + QLatin1Char('"');
    out += QLatin1Char('>');
}

// Closes open tags down to where they differ from the wanted ones and opens
// the missing ones, so that tags always nest.
void syncTags(QString& out, QList<OpenTag>& open, const QList<OpenTag>& wanted)
{
    qsizetype keep = 0;
    while (keep < open.size() && keep < wanted.size() && open.at(keep) == wanted.at(keep))
        ++keep;
    while (open.size() > keep) {
        writeTag(out, open.last(), false);
        open.removeLast();
    }
    for (qsizetype i = keep; i < wanted.size(); ++i) {
        writeTag(out, wanted.at(i), true);
        open.append(wanted.at(i));
    }
}

} // namespace

const QList<QColor>& ircColorTable()
{
    static const QList<QColor> table = {
        QColor(0xFF, 0xFF, 0xFF),
        QColor(0x00, 0x00, 0x00),
        QColor(0x00, 0x00, 0x80),
        QColor(0x00, 0x80, 0x00),
        QColor(0xFF, 0x00, 0x00),
        QColor(0x80, 0x00, 0x00),
        QColor(0x80, 0x00, 0x80),
        QColor(0xFF, 0xA5, 0x00),
        QColor(0xFF, 0xFF, 0x00),
        QColor(0x00, 0xFF, 0x00),
        QColor(0x00, 0x80, 0x80),
        QColor(0x00, 0xFF, 0xFF),
        QColor(0x00, 0x00, 0xFF),
        QColor(0xFF, 0x00, 0xFF),
        QColor(0x80, 0x80, 0x80),
        QColor(0xC0, 0xC0, 0xC0),
    };
    return table;
}

QColor ircColor(int code)
{
    return ircColorTable().at(clampColorCode(code));
}

QColor ircCodeColor(int code)
{
    // 16..98: twelve hues in six shades, then a grey ramp.
    static const QRgb extended[] = { 0x470000, 0x472100, 0x474700, 0x324700, 0x004700, 0x00472c, 0x004747,
        0x002747, 0x000047, 0x2e0047, 0x470047, 0x47002a, 0x740000, 0x743a00, 0x747400, 0x517400, 0x007400,
        0x007449, 0x007474, 0x004074, 0x000074, 0x4b0074, 0x740074, 0x740045, 0xb50000, 0xb56300, 0xb5b500,
        0x7db500, 0x00b500, 0x00b571, 0x00b5b5, 0x0063b5, 0x0000b5, 0x7500b5, 0xb500b5, 0xb5006b, 0xff0000,
        0xff8c00, 0xffff00, 0xb2ff00, 0x00ff00, 0x00ffa0, 0x00ffff, 0x008cff, 0x0000ff, 0xa500ff, 0xff00ff,
        0xff0098, 0xff5959, 0xffb459, 0xffff71, 0xcfff60, 0x6fff6f, 0x65ffc9, 0x6dffff, 0x59b4ff, 0x5959ff,
        0xc459ff, 0xff66ff, 0xff59bc, 0xff9c9c, 0xffd39c, 0xffff9c, 0xe2ff9c, 0x9cff9c, 0x9cffdb, 0x9cffff,
        0x9cd3ff, 0x9c9cff, 0xdc9cff, 0xff9cff, 0xff94d3, 0x000000, 0x131313, 0x282828, 0x363636, 0x4d4d4d,
        0x656565, 0x818181, 0x9f9f9f, 0xbcbcbc, 0xe2e2e2, 0xffffff };
    static_assert(sizeof(extended) / sizeof(extended[0]) == 83, "codes 16..98");
    if (code >= 0 && code < 16)
        return ircColorTable().at(code);
    if (code >= 16 && code <= 98)
        return QColor(extended[code - 16]);
    return QColor();
}

FormattedText formatMessage(const QString& ircText, const QColor& text, const QColor& base)
{
    const auto first
        = std::find_if(ircText.cbegin(), ircText.cend(), [](QChar c) { return isControl(c.unicode()); });
    if (first == ircText.cend())
        return { singleBlockText(ircText), {} };

    FormattedText result;
    result.text.reserve(ircText.size());
    Style style;
    Style runStyle;
    int runStart = 0;
    const auto endRun = [&] {
        const int end = int(result.text.size());
        if (end > runStart && !runStyle.isPlain()) {
            QTextLayout::FormatRange range;
            range.start = runStart;
            range.length = end - runStart;
            range.format = charFormat(runStyle, text, base);
            result.formats.append(range);
        }
        runStart = end;
    };
    const int n = int(ircText.size());
    for (int pos = 0; pos < n;) {
        if (readCode(ircText, pos, style))
            continue;
        if (style != runStyle) {
            endRun();
            runStyle = style;
        }
        const char16_t u = ircText.at(pos++).unicode();
        if (u == u'\t' || u == u'\n' || u == u'\r')
            result.text += QLatin1Char(' ');
        else if (isControl(u))
            result.text += controlPicture(u);
        else
            result.text += QChar(u);
    }
    endRun();
    result.text = singleBlockText(result.text);
    return result;
}

QString stripFormatting(const QString& ircText)
{
    return formatMessage(ircText).text;
}

QString visibleControls(const QString& text)
{
    const auto first
        = std::find_if(text.cbegin(), text.cend(), [](QChar c) { return isControl(c.unicode()); });
    if (first == text.cend())
        return text;
    QString out = text;
    for (QChar& c : out) {
        if (isControl(c.unicode()))
            c = controlPicture(c.unicode());
    }
    return out;
}

QString ircToHtml(const QString& ircText, const QColor& background)
{
    QString out;
    out.reserve(ircText.size() + ircText.size() / 4 + 16);
    Style style;
    Style written;
    QList<OpenTag> open;

    const int n = static_cast<int>(ircText.size());
    for (int pos = 0; pos < n;) {
        if (readCode(ircText, pos, style))
            continue;
        // Tags are written where text follows: a code that changes nothing
        // before the next one leaves no empty tags behind.
        if (style != written) {
            syncTags(out, open, tagsFor(style, background));
            written = style;
        }
        const QChar c = ircText.at(pos++);
        switch (c.unicode()) {
        case '<':
            out += QLatin1String("&lt;");
            break;
        case '>':
            out += QLatin1String("&gt;");
            break;
        case '&':
            out += QLatin1String("&amp;");
            break;
        case '"':
            out += QLatin1String("&quot;");
            break;
        case '\t':
        case '\n':
        case '\r':
            out += QLatin1Char(' ');
            break;
        default:
            out += isControl(c.unicode()) ? controlPicture(c.unicode()) : c;
        }
    }
    syncTags(out, open, {});
    return out;
}

} // namespace IrcText
