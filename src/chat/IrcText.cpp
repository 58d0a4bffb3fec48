#include "IrcText.h"

#include "Contrast.h"

#include <QRegularExpression>
#include <QTextCursor>

#include <algorithm>

namespace IrcText {

namespace {

QRegularExpression buildPattern(const QString& pattern)
{
    QRegularExpression re(pattern);
    re.optimize();
    return re;
}

QString webPatternText() { return QStringLiteral("https?://\\S+"); }

QString emailPatternText()
{
    return QStringLiteral("\\b[A-Za-z0-9._%+-]+@[A-Za-z0-9.-]+\\.[A-Za-z]{2,}\\b");
}

// Patterns for chat rows.
const QRegularExpression& chatWebPattern()
{
    static const QRegularExpression re = buildPattern(webPatternText());
    return re;
}

const QRegularExpression& chatEmailPattern()
{
    static const QRegularExpression re = buildPattern(emailPatternText());
    return re;
}

// The topic converter keeps its own copies.
const QRegularExpression& topicWebPattern()
{
    static const QRegularExpression re = buildPattern(webPatternText());
    return re;
}

const QRegularExpression& topicEmailPattern()
{
    static const QRegularExpression re = buildPattern(emailPatternText());
    return re;
}

// Cheap tests that rule a pattern out before any regular expression runs:
// a web address needs "://", an e-mail address needs "@".
bool mayHoldWebAddress(const QString& text)
{
    return text.contains(QLatin1String("://"));
}

bool mayHoldEmailAddress(const QString& text)
{
    return text.contains(QLatin1Char('@'));
}

// The regular expression engine refuses text that is not valid UTF-16 and
// then finds nothing at all. Lone surrogate halves are replaced one for one
// by U+FFFD so that indexes stay the same; valid text is returned as it is.
QString matchableText(const QString& text)
{
    const qsizetype n = text.size();
    QString repaired;
    for (qsizetype i = 0; i < n; ++i) {
        const QChar c = text.at(i);
        if (!c.isSurrogate())
            continue;
        if (c.isHighSurrogate() && i + 1 < n && text.at(i + 1).isLowSurrogate()) {
            ++i;
            continue;
        }
        if (repaired.isNull())
            repaired = text;
        repaired[i] = QChar::ReplacementCharacter;
    }
    return repaired.isNull() ? text : repaired;
}

// Whether text[pos] == '&' starts a character reference (&name; &#123; &#x1F;).
bool startsEntity(QStringView text, int pos)
{
    int i = pos + 1;
    const int n = text.size();
    if (i >= n)
        return false;
    auto isAlpha = [](QChar c) {
        const char16_t u = c.unicode();
        return (u >= 'a' && u <= 'z') || (u >= 'A' && u <= 'Z');
    };
    auto isDigit = [](QChar c) { return c.unicode() >= '0' && c.unicode() <= '9'; };
    auto isHex = [](QChar c) {
        const char16_t u = c.unicode();
        return (u >= '0' && u <= '9') || (u >= 'a' && u <= 'f') || (u >= 'A' && u <= 'F');
    };
    int digits = 0;
    if (text.at(i) == QLatin1Char('#')) {
        ++i;
        const bool hex = i < n && (text.at(i) == QLatin1Char('x') || text.at(i) == QLatin1Char('X'));
        if (hex)
            ++i;
        while (i < n && (hex ? isHex(text.at(i)) : isDigit(text.at(i))) && digits < 8) {
            ++i;
            ++digits;
        }
    } else {
        if (!isAlpha(text.at(i)))
            return false;
        while (i < n && (isAlpha(text.at(i)) || isDigit(text.at(i))) && digits < 32) {
            ++i;
            ++digits;
        }
    }
    return digits > 0 && i < n && text.at(i) == QLatin1Char(';');
}

// Escapes a piece of HTML text for use as text or inside a quoted
// attribute. Character references that are already there are kept, so text
// that was escaped before is not escaped twice.
QString escapeHtmlPiece(QStringView text)
{
    QString out;
    out.reserve(text.size() + 16);
    for (int i = 0; i < text.size(); ++i) {
        const QChar c = text.at(i);
        switch (c.unicode()) {
        case '<':
            out += QLatin1String("&lt;");
            break;
        case '>':
            out += QLatin1String("&gt;");
            break;
        case '"':
            out += QLatin1String("&quot;");
            break;
        case '&':
            if (startsEntity(text, i))
                out += c;
            else
                out += QLatin1String("&amp;");
            break;
        default:
            out += c;
        }
    }
    return out;
}

bool splitsRow(char16_t u)
{
    switch (u) {
    case u'\n':
    case u'\r':
    case u'\t':
    case 0x2028: // line separator
    case 0x2029: // paragraph separator
    case 0xFDD0: // frame start marker of QTextDocument
    case 0xFDD1: // frame end marker
    case 0xFFFC: // object replacement character
        return true;
    default:
        return false;
    }
}

struct HtmlMatch
{
    int start;
    int end;
};

} // namespace

QColor emptyNickColor()
{
    return QColor(102, 102, 102);
}

const QList<QColor>& nickPalette()
{
    static const QList<QColor> palette = {
        QColor(0x9E, 0x9E, 0x9E), QColor(0x42, 0x42, 0x42), QColor(0x15, 0x65, 0xC0),
        QColor(0x2E, 0x7D, 0x32), QColor(0xC6, 0x28, 0x28), QColor(0xAD, 0x14, 0x57),
        QColor(0x6A, 0x1B, 0x9A), QColor(0xE6, 0x51, 0x00), QColor(0xF9, 0xA8, 0x25),
        QColor(0x55, 0x8B, 0x2F), QColor(0x00, 0x89, 0x7B), QColor(0x00, 0xB0, 0xFF),
        QColor(0x29, 0x79, 0xFF), QColor(0xD5, 0x00, 0xF9), QColor(0x78, 0x90, 0x9C),
        QColor(0xBC, 0xAA, 0xA4),
    };
    return palette;
}

QColor nickColor(const QString& nick)
{
    if (nick.isEmpty())
        return emptyNickColor();
    quint32 hash = 0;
    for (const QChar c : nick)
        hash = hash * 31u + c.unicode();
    return nickPalette().at(static_cast<int>(hash & 15u));
}


QColor linkColor()
{
    return QColor(0x00, 0x7A, 0xFF);
}

QTextCharFormat linkFormat(const QTextCharFormat& baseFmt, const QString& href)
{
    QTextCharFormat fmt = baseFmt;
    fmt.setAnchor(true);
    fmt.setAnchorHref(href);
    fmt.setForeground(linkColor());
    fmt.setUnderlineStyle(QTextCharFormat::SingleUnderline);
    return fmt;
}

QList<LinkSegment> linkSegments(const QString& message)
{
    QList<LinkSegment> segments;
    const bool web = mayHoldWebAddress(message);
    const bool email = mayHoldEmailAddress(message);
    if (!web && !email)
        return segments;
    const QString text = matchableText(message);

    if (web) {
        QRegularExpressionMatchIterator it = chatWebPattern().globalMatch(text);
        while (it.hasNext()) {
            const QRegularExpressionMatch m = it.next();
            const QString address = m.captured(0);
            segments.append({static_cast<int>(m.capturedStart(0)),
                             static_cast<int>(m.capturedEnd(0)), address, address});
        }
    }
    const qsizetype webCount = segments.size();

    if (email) {
        QRegularExpressionMatchIterator it = chatEmailPattern().globalMatch(text);
        while (it.hasNext()) {
            const QRegularExpressionMatch m = it.next();
            const int start = static_cast<int>(m.capturedStart(0));
            const int end = static_cast<int>(m.capturedEnd(0));
            bool overlaps = false;
            for (qsizetype i = 0; i < webCount && !overlaps; ++i)
                overlaps = start < segments.at(i).end && end > segments.at(i).start;
            if (overlaps)
                continue;
            const QString address = m.captured(0);
            segments.append({start, end, QStringLiteral("mailto:") + address, address});
        }
    }

    if (webCount > 0 && segments.size() > webCount) {
        std::stable_sort(segments.begin(), segments.end(),
                         [](const LinkSegment& a, const LinkSegment& b) { return a.start < b.start; });
    }
    return segments;
}

QString singleBlockText(const QString& text)
{
    const auto first = std::find_if(text.cbegin(), text.cend(),
                                    [](QChar c) { return splitsRow(c.unicode()); });
    if (first == text.cend())
        return text;
    QString out = text;
    for (QChar& c : out) {
        if (splitsRow(c.unicode()))
            c = QLatin1Char(' ');
    }
    return out;
}

void insertMessageWithLinks(QTextCursor& cursor, const QString& text,
                            const QTextCharFormat& baseFmt)
{
    // Links are found in the text as received; what is inserted has the
    // row-splitting characters replaced one for one, so indexes still fit.
    const QList<LinkSegment> segments = linkSegments(text);
    const QString safe = singleBlockText(text);
    if (segments.isEmpty()) {
        cursor.insertText(safe, baseFmt);
        return;
    }

    // One edit for the whole row: outside an edit block every insertText lays
    // the growing row out again, quadratic in the number of links.
    cursor.beginEditBlock();
    int pos = 0;
    for (const LinkSegment& segment : segments) {
        if (segment.start < pos)
            continue;
        if (segment.start > pos)
            cursor.insertText(safe.mid(pos, segment.start - pos), baseFmt);
        cursor.insertText(safe.mid(segment.start, segment.end - segment.start),
                          linkFormat(baseFmt, segment.href));
        pos = segment.end;
    }
    if (pos < safe.size())
        cursor.insertText(safe.mid(pos), baseFmt);
    cursor.endEditBlock();
}


QString linkifyHtml(const QString& input, const QColor& linkColour)
{
    const bool web = mayHoldWebAddress(input);
    const bool email = mayHoldEmailAddress(input);
    if (!web && !email)
        return input;
    const QString html = matchableText(input);

    QList<HtmlMatch> matches;
    if (web) {
        // A web address ends at white space, and also where a tag begins:
        // in HTML a raw "<" is always markup, never part of the address.
        const QRegularExpression& re = topicWebPattern();
        qsizetype offset = 0;
        while (offset < html.size()) {
            // html is valid UTF-16 (matchableText): checking the whole of it
            // again on every call would be quadratic in the number of matches.
            const QRegularExpressionMatch m = re.match(html, offset, QRegularExpression::NormalMatch,
                QRegularExpression::DontCheckSubjectStringMatchOption);
            if (!m.hasMatch())
                break;
            const int start = static_cast<int>(m.capturedStart(0));
            int end = static_cast<int>(m.capturedEnd(0));
            // Only the match is searched: searching on to the end of the text
            // for every address would be quadratic in the number of addresses.
            const qsizetype lt = QStringView(html).mid(start, end - start).indexOf(QLatin1Char('<'));
            if (lt >= 0)
                end = start + static_cast<int>(lt);
            const int schemeEnd =
                static_cast<int>(html.indexOf(QLatin1String("://"), start)) + 3;
            if (end > schemeEnd)
                matches.append({start, end});
            offset = std::max(end, start + 1);
        }
    }
    if (email) {
        QRegularExpressionMatchIterator it = topicEmailPattern().globalMatch(html);
        while (it.hasNext()) {
            const QRegularExpressionMatch m = it.next();
            matches.append({static_cast<int>(m.capturedStart(0)),
                            static_cast<int>(m.capturedEnd(0))});
        }
    }
    if (matches.isEmpty())
        return input;
    std::stable_sort(matches.begin(), matches.end(),
                     [](const HtmlMatch& a, const HtmlMatch& b) { return a.start < b.start; });

    QString out;
    out.reserve(html.size() + matches.size() * 32);
    int pos = 0;
    // Whether the text from pos up to scanned holds a "<" without a ">"
    // after it, i.e. whether scanned lies inside a tag; and whether it lies
    // inside an anchor's text.
    int scanned = 0;
    bool insideTag = false;
    bool insideAnchor = false;
    const auto startsTag = [&html](int at, QLatin1String name) {
        const int end = at + 1 + int(name.size());
        return QStringView(html).mid(at + 1).startsWith(name, Qt::CaseInsensitive) && end < html.size()
            && (html.at(end) == QLatin1Char('>') || html.at(end).isSpace());
    };
    for (const HtmlMatch& match : matches) {
        if (match.start < pos)
            continue; // overlaps a link made already
        for (; scanned < match.start; ++scanned) {
            const QChar c = html.at(scanned);
            if (c == QLatin1Char('<')) {
                insideTag = true;
                if (startsTag(scanned, QLatin1String("a")))
                    insideAnchor = true;
                else if (startsTag(scanned, QLatin1String("/a")))
                    insideAnchor = false;
            } else if (c == QLatin1Char('>'))
                insideTag = false;
        }
        if (insideTag || insideAnchor)
            continue;

        const QStringView text = QStringView(html).mid(match.start, match.end - match.start);
        const QString escaped = escapeHtmlPiece(text);
        out += QStringView(html).mid(pos, match.start - pos);
        out += QLatin1String("<a ");
        if (linkColour.isValid())
            out += QLatin1String("style=\"color:") + linkColour.name() + QLatin1String("\" ");
        out += QLatin1String("href=\"");
        out += escaped;
        out += QLatin1String("\">");
        out += escaped;
        out += QLatin1String("</a>");
        pos = match.end;
        scanned = pos;
        insideTag = false;
    }
    out += QStringView(html).mid(pos);
    return out;
}

QString ircTopicToHtml(const QString& ircText, const QColor& background)
{
    return linkifyHtml(ircToHtml(ircText, background),
        background.isValid() ? Contrast::readable(linkColor(), background) : QColor());
}

namespace {

// Characters of the Basic Multilingual Plane drawn as emoji without a
// variation selector.
bool isBmpEmoji(char32_t c)
{
    static const char32_t singles[] = { 0x231A, 0x231B, 0x23E9, 0x23EA, 0x23EB, 0x23EC, 0x23F0, 0x23F3, 0x25FD,
        0x25FE, 0x2614, 0x2615, 0x267F, 0x2693, 0x26A1, 0x26AA, 0x26AB, 0x26BD, 0x26BE, 0x26C4, 0x26C5, 0x26CE,
        0x26D4, 0x26EA, 0x26F2, 0x26F3, 0x26F5, 0x26FA, 0x26FD, 0x2705, 0x270A, 0x270B, 0x2728, 0x274C, 0x274E,
        0x2753, 0x2754, 0x2755, 0x2757, 0x2795, 0x2796, 0x2797, 0x27B0, 0x27BF, 0x2B1B, 0x2B1C, 0x2B50, 0x2B55 };
    return (c >= 0x2648 && c <= 0x2653) || std::find(std::begin(singles), std::end(singles), c) != std::end(singles);
}

bool isPictograph(char32_t c)
{
    return (c >= 0x1F000 && c <= 0x1FAFF) || isBmpEmoji(c);
}

// Symbols that become emoji when U+FE0F follows them.
bool isSymbol(char32_t c)
{
    return (c >= 0x2190 && c <= 0x2BFF) || c == 0x00A9 || c == 0x00AE || c == 0x203C || c == 0x2049 || c == 0x2122
        || c == 0x2139 || c == 0x3030 || c == 0x303D || c == 0x3297 || c == 0x3299;
}

// Whether c continues the emoji before it.
bool continuesEmoji(char32_t c)
{
    return c == 0xFE0F || c == 0x20E3 || (c >= 0x1F3FB && c <= 0x1F3FF) || (c >= 0xE0020 && c <= 0xE007F);
}

} // namespace

QList<QPair<int, int>> emojiRanges(const QString& text)
{
    QList<QPair<int, int>> ranges;
    const auto codeAt = [&text](int i) {
        return QChar::isHighSurrogate(text.at(i).unicode()) && i + 1 < text.size()
                && QChar::isLowSurrogate(text.at(i + 1).unicode())
            ? QChar::surrogateToUcs4(text.at(i), text.at(i + 1))
            : char32_t(text.at(i).unicode());
    };
    const auto width = [](char32_t c) { return c > 0xFFFF ? 2 : 1; };
    const int size = int(text.size());
    for (int i = 0; i < size;) {
        const char32_t c = codeAt(i);
        const int next = i + width(c);
        const bool keycap = (c == '#' || c == '*' || (c >= '0' && c <= '9')) && next < size
            && ((codeAt(next) == 0xFE0F && next + 1 < size && codeAt(next + 1) == 0x20E3) || codeAt(next) == 0x20E3);
        const bool emoji = isPictograph(c) || keycap || (isSymbol(c) && next < size && codeAt(next) == 0xFE0F);
        if (!emoji) {
            i = next;
            continue;
        }
        int end = next;
        while (end < size) {
            const char32_t d = codeAt(end);
            if (continuesEmoji(d)) {
                end += width(d);
            } else if (d == 0x200D && end + 1 < size && (isPictograph(codeAt(end + 1)) || isSymbol(codeAt(end + 1)))) {
                end += 1 + width(codeAt(end + 1));
            } else {
                break;
            }
        }
        if (!ranges.isEmpty() && ranges.last().second == i)
            ranges.last().second = end;
        else
            ranges.append({ i, end });
        i = end;
    }
    return ranges;
}

} // namespace IrcText
