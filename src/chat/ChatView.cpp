#include "ChatView.h"

#include "EmojiPicker.h"
#include "IrcFormat.h"
#include "Session.h"

#include <QApplication>
#include <QClipboard>
#include <QContextMenuEvent>
#include <QDateTime>
#include <QDesktopServices>
#include <QHash>
#include <QMenu>
#include <QPainter>
#include <QScrollBar>
#include <QTimer>
#include <QUrl>

#include <QtMath>

#include <algorithm>

namespace {

const QColor RuleColor(136, 136, 136);
// Found text: every occurrence, and those of the current match.
const QColor FoundColor(0xFF, 0xE0, 0x66);
const QColor CurrentFoundColor(0xFF, 0x96, 0x32);

// Laid-out rows kept for scrolling back and forth.
constexpr int LayoutCacheRows = 600;

// Space between the widest timestamp and the nick column.
constexpr int TimestampGap = 6;

} // namespace

ChatView::ChatView(QWidget* parent)
    : QAbstractScrollArea(parent)
    , m_layouts(LayoutCacheRows)
{
    setFocusPolicy(Qt::StrongFocus);
    viewport()->setMouseTracking(true);
    viewport()->setCursor(Qt::ArrowCursor);
    setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    verticalScrollBar()->setSingleStep(1);
    m_updateTimer = new QTimer(this);
    m_updateTimer->setSingleShot(true);
    connect(m_updateTimer, &QTimer::timeout, this, &ChatView::flushBatch);
    m_readable = Contrast::ReadableOn(palette().color(QPalette::Base));
}

ChatView::~ChatView() = default;

void ChatView::setNickColumnVisible(bool visible)
{
    m_nickColumn = visible;
    invalidateLayouts();
}

qreal ChatView::ruleX() const
{
    return Margin + timestampColumnWidth() + NickColumnWidth;
}

void ChatView::setTimestampFormat(const QString& format)
{
    if (format == m_timestampFormat)
        return;
    m_timestampFormat = format;
    m_timestampWidth = -1;
    invalidateLayouts();
    updateScrollRange();
}

int ChatView::timestampColumnWidth() const
{
    if (m_timestampWidth < 0) {
        // The widest the format gets over a day: every hour (AM and PM, one
        // or two digits) with minutes and seconds of every digit width.
        const QFontMetricsF metrics(font());
        const QDate day(2024, 12, 28);
        qreal widest = 0;
        for (int hour = 0; hour < 24; ++hour) {
            for (int minute : { 0, 11, 22, 33, 44, 55, 59 }) {
                const QString text
                    = QDateTime(day, QTime(hour, minute, minute, 888)).toString(m_timestampFormat);
                widest = qMax(widest, metrics.horizontalAdvance(text));
            }
        }
        m_timestampWidth = qCeil(widest) + ColumnPadding + TimestampGap;
    }
    return m_timestampWidth;
}

void ChatView::setEmojiSize(int pixels)
{
    if (pixels == m_emojiSize)
        return;
    m_emojiSize = pixels;
    invalidateLayouts();
    updateScrollRange();
}

// --- Rows -------------------------------------------------------------------------

void ChatView::appendLine(const QString& timestamp, const BufferLine& line)
{
    if (m_stamps.isEmpty() || m_stamps.last() != timestamp)
        m_stamps.append(timestamp);
    m_stampOf.append(quint32(m_stamps.size() - 1));
    m_lines.append(line);
    if (!m_findText.isEmpty() && rowMatches(rowCount() - 1)) {
        m_matches.append(rowCount() - 1);
        emit matchesChanged();
    }
    requestUpdate();
}

void ChatView::trimTo(qsizetype rows)
{
    const qsizetype extra = rowCount() - rows;
    if (rows <= 0 || extra <= 0)
        return;
    m_lines.removeFirst(extra);
    m_stampOf.remove(0, extra);
    if (!m_matches.isEmpty()) {
        // Matches move up with their rows; those of the rows gone go.
        const qsizetype gone = std::lower_bound(m_matches.cbegin(), m_matches.cend(), int(extra)) - m_matches.cbegin();
        m_matches.remove(0, gone);
        for (int& row : m_matches)
            row -= int(extra);
        m_currentMatch = m_matches.isEmpty() ? -1 : int(qMax<qsizetype>(0, m_currentMatch - gone));
        emit matchesChanged();
    }
    // View rows moved up by `extra`: forget their layouts and the selection.
    invalidateLayouts();
    clearSelection();
    m_topRow = qMax(0, m_topRow - int(extra));
    requestUpdate();
}

void ChatView::clearMessages()
{
    m_matches.clear();
    m_currentMatch = -1;
    m_lines.clear();
    m_stampOf.clear();
    m_stamps.clear();
    invalidateLayouts();
    clearSelection();
    m_topRow = 0;
    m_follow = true;
    requestUpdate();
}

ChatView::RowContent ChatView::row(int index) const
{
    RowContent content;
    if (index < 0 || index >= rowCount())
        return content;
    const BufferLine line = m_lines.at(index);
    // The rule after a backlog is a rule only.
    if (!line.is(BufferLine::Separator))
        content.timestamp = IrcText::singleBlockText(m_stamps.at(m_stampOf.at(index)));
    const bool action = line.is(BufferLine::Action);
    const QString sender = ChatRowLayout::shownName(line.sender);
    content.sender = sender;
    if (m_nickColumn)
        content.nick = action ? QStringLiteral("*") : ChatRowLayout::displayNick(sender);
    // A message written while away starts with its away note, right at the
    // column start; other messages keep a space from the nick column. An
    // action reads "nick text" ("* nick text" without a nick column).
    const bool noted = line.is(BufferLine::OwnAway) && !line.is(BufferLine::Status);
    QString prefix = m_nickColumn && !noted ? QStringLiteral(" ") : QString();
    if (action)
        prefix = (m_nickColumn ? QStringLiteral(" ") : QStringLiteral("* ")) + sender + QLatin1Char(' ');
    const IrcText::FormattedText formatted
        = IrcText::formatMessage(line.text, palette().color(QPalette::Text), palette().color(QPalette::Base));
    content.message = prefix + formatted.text;
    content.formats = formatted.formats;
    for (QTextLayout::FormatRange& r : content.formats)
        r.start += int(prefix.size());
    content.links = IrcText::linkSegments(content.message);
    content.flags = line.flags;
    // Emoji in the colour font at the chosen size.
    const QList<QPair<int, int>> emoji = IrcText::emojiRanges(content.message);
    if (!emoji.isEmpty()) {
        QTextCharFormat format;
        format.setFontFamilies(EmojiPicker::colourEmojiFont(font()).families());
        format.setProperty(QTextFormat::FontPixelSize, m_emojiSize);
        for (const auto& [from, to] : emoji)
            content.formats.append({ from, to - from, format });
    }
    return content;
}

QString ChatView::rowPlainText(int index) const
{
    const RowContent content = row(index);
    const QString message = content.message.trimmed();
    if (content.flags & BufferLine::Action)
        return QStringLiteral("%1 * %2").arg(content.timestamp, m_nickColumn ? message : message.mid(2));
    if (content.nick.isEmpty())
        return QStringLiteral("%1 %2").arg(content.timestamp, message);
    return QStringLiteral("%1 <%2> %3").arg(content.timestamp, content.nick, message);
}

QString ChatView::rowText(int index) const
{
    if (index < 0 || index >= rowCount())
        return QString();
    const Layout* layout = layoutOf(index + 1);
    return layout->shownText(0, int(layout->text.size()));
}

QTextCharFormat ChatView::formatAt(int index, int position) const
{
    QTextCharFormat format;
    if (index < 0 || index >= rowCount())
        return format;
    const Layout* layout = layoutOf(index + 1);
    position = layout->toLayoutPosition(position);
    const QList<QTextLayout::FormatRange> ranges = layout->layout.formats();
    for (const QTextLayout::FormatRange& r : ranges) {
        if (position >= r.start && position < r.start + r.length)
            format.merge(r.format);
    }
    return format;
}

qreal ChatView::characterX(int index, int position) const
{
    if (index < 0 || index >= rowCount())
        return 0;
    const Layout* layout = layoutOf(index + 1);
    const int at = layout->toLayoutPosition(position);
    const QTextLine line = layout->layout.lineForTextPosition(at);
    return line.isValid() ? Margin + line.cursorToX(at) : 0;
}

// --- Layout -----------------------------------------------------------------------

qreal ChatView::textWidth() const
{
    return qMax<qreal>(ruleX() + 40, viewport()->width() - 2 * Margin);
}

ChatRowColumns ChatView::columns() const
{
    ChatRowColumns columns;
    columns.nickColumn = m_nickColumn;
    columns.timestampWidth = timestampColumnWidth();
    columns.timestampRoom = columns.timestampWidth - TimestampGap;
    columns.nickWidth = NickColumnWidth;
    columns.padding = ColumnPadding;
    return columns;
}

void ChatView::invalidateLayouts()
{
    m_layouts.clear();
    m_layoutWidth = -1;
    viewport()->update();
}

const ChatView::Layout* ChatView::layoutOf(int viewRow) const
{
    const qreal width = textWidth();
    if (width != m_layoutWidth) {
        m_layouts.clear();
        m_layoutWidth = width;
    }
    if (const Layout* cached = m_layouts.object(viewRow))
        return cached;

    auto* layout = new Layout;
    if (viewRow > 0) {
        const RowContent content = row(viewRow - 1);
        layout->build(&content, columns(), font(), width, m_readable);
    } else {
        layout->build(nullptr, columns(), font(), width, m_readable);
    }
    const Layout* result = layout;
    m_layouts.insert(viewRow, layout);
    return result;
}

qreal ChatView::rowHeight(int viewRow) const
{
    return layoutOf(viewRow)->height;
}

int ChatView::lastTopRow() const
{
    // From the last row up, as many rows as fit whole (at least the last).
    const qreal space = viewport()->height() - 2 * Margin;
    qreal used = 0;
    int top = viewRows();
    while (top > 0 && used + rowHeight(top - 1) <= space)
        used += rowHeight(--top);
    return qMin(top, viewRows() - 1);
}

QList<ChatView::Placed> ChatView::placedRows() const
{
    QList<Placed> placed;
    const qreal bottom = viewport()->height() - Margin;
    if (m_follow) {
        // The last row ends at the bottom; rows above it up to the top.
        qreal y = bottom;
        for (int r = viewRows() - 1; r >= 0 && y > 0; --r) {
            const Layout* layout = layoutOf(r);
            y -= layout->height;
            placed.prepend({ r, y, layout });
        }
        // Fewer rows than the view holds: they start at the top.
        if (!placed.isEmpty() && placed.first().row == 0 && placed.first().top > Margin) {
            const qreal shift = placed.first().top - Margin;
            for (Placed& p : placed)
                p.top -= shift;
        }
        return placed;
    }
    qreal y = Margin;
    for (int r = qBound(0, m_topRow, viewRows() - 1); r < viewRows() && y < bottom; ++r) {
        const Layout* layout = layoutOf(r);
        placed.append({ r, y, layout });
        y += layout->height;
    }
    return placed;
}

int ChatView::firstVisibleRow() const
{
    for (const Placed& p : placedRows()) {
        if (p.row > 0 && p.top + p.layout->height > 0)
            return p.row - 1;
    }
    return -1;
}

// --- Updates and scrolling --------------------------------------------------------

void ChatView::requestUpdate()
{
    m_pending = true;
    if (m_batchDepth > 0 || m_updateTimer->isActive())
        return;
    // At most one update per frame: a flood of rows is shown frame by frame,
    // a single row at once.
    const qint64 now = QDateTime::currentMSecsSinceEpoch();
    const qint64 delay = m_lastUpdateMs < 0 ? 0 : qBound<qint64>(0, FrameIntervalMs - (now - m_lastUpdateMs), qint64(FrameIntervalMs));
    m_updateTimer->start(int(delay));
}

void ChatView::beginBatch()
{
    ++m_batchDepth;
}

void ChatView::endBatch()
{
    if (m_batchDepth == 0)
        return;
    if (--m_batchDepth == 0 && m_pending)
        requestUpdate();
}

void ChatView::flushBatch()
{
    if (m_batchDepth > 0)
        return;
    m_updateTimer->stop();
    m_lastUpdateMs = QDateTime::currentMSecsSinceEpoch();
    m_pending = false;
    updateScrollRange();
    viewport()->update();
}

void ChatView::updateScrollRange()
{
    QScrollBar* bar = verticalScrollBar();
    m_settingScroll = true;
    const int last = lastTopRow();
    bar->setRange(0, last);
    bar->setPageStep(qMax(1, int(placedRows().size()) - 1));
    bar->setValue(m_follow ? last : qMin(m_topRow, last));
    m_settingScroll = false;
}

void ChatView::scrollContentsBy(int, int)
{
    if (m_settingScroll)
        return;
    QScrollBar* bar = verticalScrollBar();
    m_topRow = bar->value();
    m_follow = bar->value() >= bar->maximum();
    viewport()->update();
}

void ChatView::scrollToEnd()
{
    m_follow = true;
    updateScrollRange();
    viewport()->update();
}

void ChatView::scrollToRow(int index)
{
    m_topRow = qBound(0, index + 1, viewRows() - 1);
    m_follow = m_topRow >= lastTopRow();
    updateScrollRange();
    viewport()->update();
}

void ChatView::resizeEvent(QResizeEvent* event)
{
    QAbstractScrollArea::resizeEvent(event);
    // Rows wrap anew at the new width; the view keeps following the last row
    // or keeps its top row.
    updateScrollRange();
}

void ChatView::changeEvent(QEvent* event)
{
    QAbstractScrollArea::changeEvent(event);
    if (event->type() == QEvent::FontChange || event->type() == QEvent::StyleChange
        || event->type() == QEvent::PaletteChange) {
        if (palette().color(QPalette::Base) != m_readable.background())
            m_readable = Contrast::ReadableOn(palette().color(QPalette::Base));
        m_timestampWidth = -1;
        invalidateLayouts();
        updateScrollRange();
    }
}

// --- Painting ---------------------------------------------------------------------

void ChatView::paintEvent(QPaintEvent*)
{
    QPainter painter(viewport());
    const QList<Placed> placed = placedRows();
    const Position from = qMin(m_anchor, m_cursor);
    const Position to = qMax(m_anchor, m_cursor);
    const bool selection = hasSelection();
    QTextCharFormat selected;
    selected.setBackground(palette().brush(QPalette::Highlight));
    selected.setForeground(palette().brush(QPalette::HighlightedText));

    painter.setPen(m_readable(palette().color(QPalette::Text)));
    qreal rulesTop = -1;
    qreal rulesBottom = -1;
    for (const Placed& p : placed) {
        int start = 0;
        int end = 0;
        if (selection && p.row >= from.row && p.row <= to.row) {
            start = p.row == from.row ? from.pos : 0;
            end = p.row == to.row ? to.pos : int(p.layout->text.size());
        }
        const bool found = !m_findText.isEmpty() && p.row > 0
            && std::binary_search(m_matches.cbegin(), m_matches.cend(), p.row - 1);
        p.layout->draw(&painter, QPointF(Margin, p.top), start, end, selected,
            found ? findHighlights(p.layout, p.row - 1 == currentMatchRow()) : QList<QTextLayout::FormatRange>());
        if (p.layout->separator) {
            painter.save();
            painter.setPen(QPen(RuleColor, 1, Qt::DashLine));
            const int y = qRound(p.top + p.layout->height / 2);
            painter.drawLine(qRound(ruleX()) + ColumnPadding, y, viewport()->width() - Margin, y);
            painter.restore();
        }
        if (p.row > 0) {
            if (rulesTop < 0)
                rulesTop = p.top;
            rulesBottom = p.top + p.layout->height;
        }
    }
    if (m_nickColumn && rulesTop >= 0) {
        painter.setPen(QPen(RuleColor, 1));
        const int x = qRound(ruleX());
        painter.drawLine(x, qMax(0, qRound(rulesTop)), x, qMin(viewport()->height(), qRound(rulesBottom)));
    }
}

// --- Mouse, keys, selection -------------------------------------------------------

ChatView::Position ChatView::positionAt(const QPoint& point) const
{
    const QList<Placed> placed = placedRows();
    if (placed.isEmpty())
        return Position();
    const Placed* hit = &placed.first();
    if (point.y() >= placed.last().top)
        hit = &placed.last();
    for (const Placed& p : placed) {
        if (point.y() >= p.top && point.y() < p.top + p.layout->height) {
            hit = &p;
            break;
        }
    }
    const QTextLayout& layout = hit->layout->layout;
    const qreal y = point.y() - hit->top;
    const qreal x = point.x() - Margin;
    for (int i = 0; i < layout.lineCount(); ++i) {
        const QTextLine line = layout.lineAt(i);
        if (y < line.y() + line.height() || i == layout.lineCount() - 1)
            return { hit->row, line.xToCursor(x) };
    }
    return { hit->row, 0 };
}

QString ChatView::linkAt(const QPoint& point) const
{
    const QList<Placed> placed = placedRows();
    for (const Placed& p : placed) {
        if (point.y() < p.top || point.y() >= p.top + p.layout->height)
            continue;
        const QTextLayout& layout = p.layout->layout;
        for (int i = 0; i < layout.lineCount(); ++i) {
            const QTextLine line = layout.lineAt(i);
            const qreal y = point.y() - p.top;
            const qreal x = point.x() - Margin;
            if (y < line.y() || y >= line.y() + line.height() || x < line.x() || x > line.x() + line.naturalTextWidth())
                continue;
            return p.layout->linkAt(line.xToCursor(x, QTextLine::CursorOnCharacter));
        }
    }
    return QString();
}

bool ChatView::hasSelection() const
{
    return m_anchor.row >= 0 && !(m_anchor == m_cursor);
}

void ChatView::clearSelection()
{
    m_anchor = Position();
    m_cursor = Position();
    viewport()->update();
}

void ChatView::selectAll()
{
    if (rowCount() == 0)
        return;
    m_anchor = { 1, 0 };
    m_cursor = { viewRows() - 1, int(layoutOf(viewRows() - 1)->text.size()) };
    viewport()->update();
}

QString ChatView::plainText(int viewRow) const
{
    return viewRow > 0 ? rowPlainText(viewRow - 1) : QString();
}

QString ChatView::selectedText() const
{
    if (!hasSelection())
        return QString();
    const Position from = qMin(m_anchor, m_cursor);
    const Position to = qMax(m_anchor, m_cursor);
    // Within one message: the selected part of it.
    if (from.row == to.row && from.row > 0) {
        const Layout* layout = layoutOf(from.row);
        if (from.pos >= layout->messageStart)
            return layout->shownText(from.pos, to.pos);
    }
    QStringList rows;
    for (int r = qMax(1, from.row); r <= to.row; ++r)
        rows << plainText(r);
    return rows.join(QLatin1Char('\n'));
}

void ChatView::copy() const
{
    if (hasSelection())
        QApplication::clipboard()->setText(selectedText());
}

void ChatView::mousePressEvent(QMouseEvent* event)
{
    if (event->button() != Qt::LeftButton) {
        QAbstractScrollArea::mousePressEvent(event);
        return;
    }
    m_pressedLink = linkAt(event->position().toPoint());
    m_anchor = positionAt(event->position().toPoint());
    m_cursor = m_anchor;
    m_selecting = true;
    viewport()->update();
}

void ChatView::mouseMoveEvent(QMouseEvent* event)
{
    const QPoint point = event->position().toPoint();
    if (m_selecting && (event->buttons() & Qt::LeftButton)) {
        m_cursor = positionAt(point);
        if (!(m_cursor == m_anchor))
            m_pressedLink.clear();
        viewport()->update();
        return;
    }
    viewport()->setCursor(linkAt(point).isEmpty() ? Qt::ArrowCursor : Qt::PointingHandCursor);
}

void ChatView::mouseReleaseEvent(QMouseEvent* event)
{
    if (event->button() != Qt::LeftButton) {
        QAbstractScrollArea::mouseReleaseEvent(event);
        return;
    }
    m_selecting = false;
    const QString link = m_pressedLink;
    m_pressedLink.clear();
    if (!link.isEmpty() && link == linkAt(event->position().toPoint()) && !hasSelection())
        QDesktopServices::openUrl(QUrl(link));
}

void ChatView::mouseDoubleClickEvent(QMouseEvent* event)
{
    // A double click selects the word under the pointer.
    const Position at = positionAt(event->position().toPoint());
    if (at.row <= 0)
        return;
    const QString& text = layoutOf(at.row)->text;
    int start = qBound(0, at.pos, int(text.size()));
    int end = start;
    while (start > 0 && !text.at(start - 1).isSpace())
        --start;
    while (end < text.size() && !text.at(end).isSpace())
        ++end;
    m_anchor = { at.row, start };
    m_cursor = { at.row, end };
    m_selecting = false;
    viewport()->update();
}

void ChatView::keyPressEvent(QKeyEvent* event)
{
    QScrollBar* bar = verticalScrollBar();
    if (event->matches(QKeySequence::Copy)) {
        copy();
    } else if (event->matches(QKeySequence::SelectAll)) {
        selectAll();
    } else if (event->key() == Qt::Key_PageUp) {
        bar->setValue(bar->value() - bar->pageStep());
    } else if (event->key() == Qt::Key_PageDown) {
        bar->setValue(bar->value() + bar->pageStep());
    } else if (event->key() == Qt::Key_Home && (event->modifiers() & Qt::ControlModifier)) {
        bar->setValue(0);
    } else if (event->key() == Qt::Key_End && (event->modifiers() & Qt::ControlModifier)) {
        scrollToEnd();
    } else {
        QAbstractScrollArea::keyPressEvent(event);
    }
}

void ChatView::contextMenuEvent(QContextMenuEvent* event)
{
    showContextMenu(event->globalPos());
}

void ChatView::showContextMenu(const QPoint& globalPos)
{
    QMenu menu(this);
    QAction* copyAction = menu.addAction(QStringLiteral("Copy"), this, &ChatView::copy);
    copyAction->setEnabled(hasSelection());
    copyAction->setShortcut(QKeySequence::Copy);
    QAction* all = menu.addAction(QStringLiteral("Select All"), this, &ChatView::selectAll);
    all->setShortcut(QKeySequence::SelectAll);
    menu.exec(globalPos);
}

// --- Find -------------------------------------------------------------------------

bool ChatView::rowMatches(int index) const
{
    const BufferLine line = m_lines.at(index);
    if (line.sender.contains(m_findText, Qt::CaseInsensitive))
        return true;
    // Formatting codes are not what the row shows.
    const bool plain = std::none_of(line.text.cbegin(), line.text.cend(), [](QChar c) { return c.unicode() < 0x20; });
    return (plain ? line.text : IrcText::stripFormatting(line.text)).contains(m_findText, Qt::CaseInsensitive);
}

int ChatView::find(const QString& text)
{
    m_findText = text;
    m_matches.clear();
    m_currentMatch = -1;
    if (!text.isEmpty()) {
        for (int i = 0; i < rowCount(); ++i) {
            if (rowMatches(i))
                m_matches.append(i);
        }
        m_currentMatch = int(m_matches.size()) - 1;
    }
    showCurrentMatch();
    return matchCount();
}

void ChatView::findNext(bool older)
{
    if (m_matches.isEmpty())
        return;
    const int count = matchCount();
    m_currentMatch = (m_currentMatch + (older ? count - 1 : 1)) % count;
    showCurrentMatch();
}

void ChatView::showCurrentMatch()
{
    if (m_currentMatch >= 0) {
        // The match a few rows below the top, with what led to it above.
        scrollToRow(qMax(0, m_matches.at(m_currentMatch) - 3));
    }
    viewport()->update();
}

QList<QTextLayout::FormatRange> ChatView::findHighlights(const Layout* layout, bool current) const
{
    QList<QTextLayout::FormatRange> marks;
    QTextCharFormat format;
    format.setBackground(current ? CurrentFoundColor : FoundColor);
    format.setForeground(Qt::black);
    // Past the timestamp: the nick and the message.
    qsizetype at = layout->text.indexOf(QLatin1Char('\t'));
    while ((at = layout->text.indexOf(m_findText, at + 1, Qt::CaseInsensitive)) >= 0)
        marks.append({ int(at), int(m_findText.size()), format });
    return marks;
}
