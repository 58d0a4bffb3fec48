#include "ChatRowLayout.h"

#include "Session.h"

#include <QFontMetricsF>
#include <QPainter>

namespace {

const QColor GreyText(136, 136, 136);
const QColor AwayNickColor(0xAA, 0xAA, 0xAA);

// Longest sender shown in full; longer ones keep MaxNickPrefix characters
// followed by an ellipsis.
constexpr int MaxNickLength = 16;
constexpr int MaxNickPrefix = 15;

// The bidi isolate around the nick and the message.
constexpr char16_t FirstStrongIsolate = 0x2068;
constexpr char16_t PopDirectionalIsolate = 0x2069;

// The length of the "-nick-" a notice row starts with, 0 when it has none.
int noticePrefixLength(const QString& text)
{
    if (!text.startsWith(QLatin1Char('-')))
        return 0;
    const qsizetype end = text.indexOf(QLatin1String("- "), 1);
    if (end < 2 || text.left(end).contains(QLatin1Char(' ')))
        return 0;
    return int(end) + 1;
}

QTextLayout::FormatRange range(int start, int length, const QTextCharFormat& format)
{
    QTextLayout::FormatRange r;
    r.start = start;
    r.length = length;
    r.format = format;
    return r;
}

QTextOption textOption(const ChatRowColumns& columns)
{
    // Columns: the timestamp from the left edge; the nick right-aligned to
    // the end of the nick column; the message from the start of the last
    // column, where wrapped lines continue.
    // The columns run left to right whatever the text's direction.
    QTextOption option;
    option.setWrapMode(QTextOption::WrapAtWordBoundaryOrAnywhere);
    option.setTextDirection(Qt::LeftToRight);
    const int stamps = columns.timestampWidth;
    QList<QTextOption::Tab> tabs;
    if (columns.nickColumn) {
        tabs << QTextOption::Tab(stamps + columns.nickWidth - columns.padding, QTextOption::RightTab);
        tabs << QTextOption::Tab(stamps + columns.nickWidth + columns.padding, QTextOption::LeftTab);
    } else {
        tabs << QTextOption::Tab(stamps + columns.padding, QTextOption::LeftTab);
    }
    option.setTabs(tabs);
    return option;
}

} // namespace

QString ChatRowLayout::shownName(const QString& name)
{
    QString shown = IrcText::singleBlockText(IrcText::visibleControls(name));
    if (!shown.contains(QChar(PopDirectionalIsolate)))
        return shown;
    int depth = 0;
    for (QChar& c : shown) {
        const char16_t u = c.unicode();
        if (u >= 0x2066 && u <= 0x2068)
            ++depth;
        else if (u == PopDirectionalIsolate && depth > 0)
            --depth;
        else if (u == PopDirectionalIsolate)
            c = QChar(0x2060);
    }
    return shown;
}

QString ChatRowLayout::displayNick(const QString& sender)
{
    if (sender.size() <= MaxNickLength)
        return sender;
    int keep = MaxNickPrefix;
    // Never split a surrogate pair.
    if (sender.at(keep - 1).isHighSurrogate())
        --keep;
    return sender.left(keep) + QChar(0x2026);
}

void ChatRowLayout::build(const ChatRowContent* row, const ChatRowColumns& columns, QFont font, qreal width,
    const Contrast::ReadableOn& readable)
{
    font.setStyleStrategy(QFont::PreferNoShaping);
    QList<QTextLayout::FormatRange> formats;
    if (row) {
        const ChatRowContent& content = *row;
        const bool ownAway = content.flags & BufferLine::OwnAway;
        const bool backlog = content.flags & BufferLine::Backlog;
        const bool grey = (content.flags & BufferLine::Status) || ownAway || backlog;
        separator = content.flags & BufferLine::Separator;
        const auto isolate = [this](const QChar mark) {
            isolates[isolateCount++] = int(text.size());
            text += mark;
        };

        QTextCharFormat greyFormat;
        greyFormat.setForeground(readable(GreyText));
        // A timestamp written in an earlier, wider format is cut to the column.
        const QFontMetricsF metrics(font);
        text = metrics.horizontalAdvance(content.timestamp) > columns.timestampRoom
            ? metrics.elidedText(content.timestamp, Qt::ElideRight, columns.timestampRoom)
            : content.timestamp;
        text += QLatin1Char('\t');
        formats << range(0, int(text.size()), greyFormat);
        // The sender's colour is the one of the nick as its column shows it.
        const QColor senderColor = backlog
            ? greyFormat.foreground().color()
            : readable(ownAway ? AwayNickColor : IrcText::nickColor(displayNick(content.sender)));
        if (columns.nickColumn) {
            QTextCharFormat nickFormat;
            nickFormat.setFontWeight(QFont::Bold);
            QString nick = content.nick;
            if (!nick.isEmpty()) {
                nickFormat.setForeground(senderColor);
                nickFormat.setFontItalic(ownAway);
                // Nicks of wide characters are cut to the column as well.
                QFont bold = font;
                bold.setBold(true);
                const QFontMetricsF nickMetrics(bold);
                const qreal room = columns.nickWidth - 2 * columns.padding
                    - nickMetrics.horizontalAdvance(QStringLiteral("  "));
                if (nickMetrics.horizontalAdvance(nick) > room)
                    nick = nickMetrics.elidedText(nick, Qt::ElideRight, room);
            }
            const int nickStart = int(text.size());
            isolate(QChar(FirstStrongIsolate));
            text += nick;
            isolate(QChar(PopDirectionalIsolate));
            text += QStringLiteral("  \t");
            formats << range(nickStart, int(text.size()) - nickStart, nickFormat);
        }
        messageStart = int(text.size());
        isolate(QChar(FirstStrongIsolate));
        // The message itself, after its FSI.
        const int messageFrom = int(text.size());
        text += content.message;
        isolate(QChar(PopDirectionalIsolate));
        const int messageLength = int(content.message.size());
        if (grey)
            formats << range(messageFrom, messageLength, greyFormat);
        if (content.flags & BufferLine::Action) {
            QTextCharFormat actionFormat;
            actionFormat.setFontItalic(true);
            actionFormat.setForeground(senderColor);
            formats << range(messageFrom, messageLength, actionFormat);
        } else if ((content.flags & BufferLine::Notice) && !grey) {
            const int leading = content.message.startsWith(QLatin1Char(' ')) ? 1 : 0;
            const QString notice = content.message.mid(leading);
            if (const int length = noticePrefixLength(notice)) {
                QTextCharFormat noticeFormat;
                noticeFormat.setFontWeight(QFont::Bold);
                noticeFormat.setForeground(readable(IrcText::nickColor(notice.mid(1, length - 2))));
                formats << range(messageFrom + leading, length, noticeFormat);
            }
        }
        for (QTextLayout::FormatRange r : content.formats) {
            r.start += messageFrom;
            // A colour of the sender's own, on the view's background.
            if (r.format.hasProperty(QTextFormat::ForegroundBrush)
                && !r.format.hasProperty(QTextFormat::BackgroundBrush))
                r.format.setForeground(readable(r.format.foreground().color()));
            formats << r;
        }
        for (IrcText::LinkSegment link : content.links) {
            link.start += messageFrom;
            link.end += messageFrom;
            QTextCharFormat linkFormat = IrcText::linkFormat(QTextCharFormat(), link.href);
            linkFormat.setForeground(readable(linkFormat.foreground().color()));
            formats << range(link.start, link.end - link.start, linkFormat);
            links << link;
        }
    }
    layout.setText(text);
    layout.setFont(font);
    layout.setTextOption(textOption(columns));
    layout.setFormats(formats);

    // The first line starts at the left edge; wrapped lines continue in the
    // message column.
    const qreal messageX = columns.nickColumn ? columns.timestampWidth + columns.nickWidth + columns.padding
                                              : columns.timestampWidth + columns.padding;
    const qreal leading = QFontMetricsF(font).leading();
    qreal y = 0;
    layout.beginLayout();
    for (int n = 0;; ++n) {
        QTextLine line = layout.createLine();
        if (!line.isValid())
            break;
        const qreal x = n == 0 ? 0 : messageX;
        line.setLineWidth(width - x);
        line.setPosition(QPointF(x, y));
        y += line.height() + qMax<qreal>(0, leading);
    }
    layout.endLayout();
    height = qMax<qreal>(y, QFontMetricsF(font).lineSpacing());
}

int ChatRowLayout::toLayoutPosition(int shown) const
{
    int at = shown;
    for (int i = 0; i < isolateCount; ++i) {
        if (isolates[i] <= at)
            ++at;
    }
    return at;
}

QString ChatRowLayout::shownText(int from, int to) const
{
    QString shown;
    int pos = from;
    for (int i = 0; i < isolateCount && pos < to; ++i) {
        if (isolates[i] < pos)
            continue;
        shown += QStringView(text).mid(pos, qMin(isolates[i], to) - pos);
        pos = isolates[i] + 1;
    }
    if (pos < to)
        shown += QStringView(text).mid(pos, to - pos);
    return shown;
}

QString ChatRowLayout::linkAt(int pos) const
{
    for (const IrcText::LinkSegment& link : links) {
        if (pos >= link.start && pos < link.end)
            return link.href;
    }
    return QString();
}

void ChatRowLayout::draw(QPainter* painter, const QPointF& position, int selectionStart, int selectionEnd,
    const QTextCharFormat& selected, const QList<QTextLayout::FormatRange>& marks) const
{
    QList<QTextLayout::FormatRange> selections = marks;
    if (selectionEnd > selectionStart)
        selections << range(selectionStart, selectionEnd - selectionStart, selected);
    layout.draw(painter, position, selections);
}
