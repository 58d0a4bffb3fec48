#include "ChatView.h"

#include "IrcText.h"
#include "Session.h"

#include <QAbstractTextDocumentLayout>
#include <QPaintEvent>
#include <QPainter>
#include <QScrollBar>
#include <QTextBlock>
#include <QHash>
#include <QPair>
#include <QTextBlockFormat>
#include <QTextCharFormat>
#include <QTextDocument>
#include <QTimer>

namespace {

const QColor RuleColor(136, 136, 136);
const QColor GreyText(136, 136, 136);
const QColor AwayNickColor(0xAA, 0xAA, 0xAA);

// Longest sender shown in full; longer ones keep MaxNickPrefix characters
// followed by an ellipsis.
constexpr int MaxNickLength = 16;
constexpr int MaxNickPrefix = 15;

QString displayNickFor(const QString& sender)
{
    if (sender.size() <= MaxNickLength)
        return sender;
    int keep = MaxNickPrefix;
    // Never split a surrogate pair.
    if (sender.at(keep - 1).isHighSurrogate())
        --keep;
    return sender.left(keep) + QChar(0x2026);
}

// Character formats of the columns, built once. Latin text is laid out
// without the full shaper (scripts that need it still get it).
QTextCharFormat plainFormat()
{
    QTextCharFormat format;
    format.setFontStyleStrategy(QFont::PreferNoShaping);
    return format;
}

const QTextCharFormat& greyFormat()
{
    static const QTextCharFormat format = [] {
        QTextCharFormat f = plainFormat();
        f.setForeground(GreyText);
        return f;
    }();
    return format;
}

const QTextCharFormat& defaultFormat()
{
    static const QTextCharFormat format = plainFormat();
    return format;
}

const QTextCharFormat& nickFormat(const QColor& colour, bool italic)
{
    static QHash<QPair<QRgb, bool>, QTextCharFormat> formats;
    const QPair<QRgb, bool> key(colour.isValid() ? colour.rgba() : 0, italic);
    auto it = formats.find(key);
    if (it == formats.end()) {
        QTextCharFormat format = plainFormat();
        format.setFontWeight(700);
        if (colour.isValid())
            format.setForeground(colour);
        format.setFontItalic(italic);
        it = formats.insert(key, format);
    }
    return *it;
}

} // namespace

void ChatView::appendLine(const QString& timestamp, const BufferLine& line)
{
    const bool ownAway = line.is(BufferLine::OwnAway);
    QTextCursor cursor = appendRow();

    // Each column is one format run, its tab included.
    cursor.insertText(IrcText::singleBlockText(timestamp) + QLatin1Char('\t'), greyFormat());

    if (m_nickColumn) {
        const QString displayNick = displayNickFor(IrcText::singleBlockText(line.sender));
        QColor colour;
        if (!displayNick.isEmpty())
            colour = ownAway ? AwayNickColor : IrcText::nickColor(displayNick);
        cursor.insertText(displayNick + QStringLiteral("  \t"), nickFormat(colour, ownAway && !displayNick.isEmpty()));
    }

    const bool grey = line.is(BufferLine::Status) || ownAway;
    // A message written while away starts with its away note, right at the
    // column start.
    const bool noted = ownAway && !line.is(BufferLine::Status);
    const QString text = m_nickColumn && !noted ? QLatin1Char(' ') + line.text : line.text;
    IrcText::insertMessageWithLinks(cursor, text, grey ? greyFormat() : defaultFormat());
}

ChatView::ChatView(QWidget* parent)
    : QTextBrowser(parent)
    , m_cursor(document())
{
    // Undo history would keep a copy of every row.
    document()->setUndoRedoEnabled(false);
    updateRowFormat();
    m_flushTimer = new QTimer(this);
    m_flushTimer->setSingleShot(true);
    connect(m_flushTimer, &QTimer::timeout, this, &ChatView::flushBatch);

    // A view showing its last row keeps showing it when the rows are laid out
    // again (a resize, a font or theme change); one scrolled back stays put.
    QScrollBar* bar = verticalScrollBar();
    connect(bar, &QScrollBar::valueChanged, this,
        [this, bar](int value) { m_followsEnd = value >= bar->maximum(); });
    connect(bar, &QScrollBar::rangeChanged, this, [this, bar](int, int maximum) {
        if (m_followsEnd)
            bar->setValue(maximum);
    });
}

ChatView::~ChatView()
{
    // Balance the document's edit block; no scrolling on the way out.
    if (m_editBlockOpen) {
        m_editBlockOpen = false;
        m_cursor.endEditBlock();
    }
}

void ChatView::setNickColumnVisible(bool visible)
{
    m_nickColumn = visible;
    updateRowFormat();
    viewport()->update();
}

qreal ChatView::ruleX() const
{
    return document()->documentMargin() + TimestampColumnWidth + NickColumnWidth;
}

QTextCursor ChatView::appendRow()
{
    openEditBlock();
    if (m_batchDepth == 0)
        requestFlush();
    m_cursor.movePosition(QTextCursor::End);
    m_cursor.insertBlock(m_rowFormat, QTextCharFormat());
    return m_cursor;
}

void ChatView::updateRowFormat()
{
    // Columns: the timestamp from the left edge; the nick right-aligned to
    // the end of the nick column; the message from the start of the last
    // column, where wrapped lines continue (hanging indent).
    QList<QTextOption::Tab> stops;
    qreal messageStart;
    if (m_nickColumn) {
        const qreal nickEnd = TimestampColumnWidth + NickColumnWidth;
        stops << QTextOption::Tab(nickEnd - ColumnPadding, QTextOption::RightTab);
        messageStart = nickEnd + ColumnPadding;
    } else {
        messageStart = TimestampColumnWidth + ColumnPadding;
    }
    stops << QTextOption::Tab(messageStart, QTextOption::LeftTab);
    m_rowFormat = QTextBlockFormat();
    m_rowFormat.setTabPositions(stops);
    m_rowFormat.setLeftMargin(messageStart);
    m_rowFormat.setTextIndent(-messageStart);
    m_rowFormat.setAlignment(Qt::AlignLeft);
}

void ChatView::beginBatch()
{
    ++m_batchDepth;
    openEditBlock();
}

void ChatView::endBatch()
{
    if (m_batchDepth == 0)
        return;
    if (--m_batchDepth == 0)
        requestFlush();
}

void ChatView::requestFlush()
{
    if (m_flushTimer->isActive())
        return;
    // At most one layout and repaint per frame: a flood of lines is shown in
    // frames, a single line at once.
    qint64 delay = 0;
    if (m_sinceFlush.isValid())
        delay = qMax<qint64>(0, FrameIntervalMs - m_sinceFlush.elapsed());
    m_flushTimer->start(int(delay));
}

void ChatView::flushBatch()
{
    if (m_batchDepth > 0)
        return;
    m_flushTimer->stop();
    if (!m_editBlockOpen)
        return;
    closeEditBlock();
    m_sinceFlush.start();
}

void ChatView::clearMessages()
{
    const bool reopen = m_editBlockOpen;
    if (reopen) {
        m_cursor.endEditBlock();
        m_editBlockOpen = false;
    }
    document()->clear();
    m_cursor = QTextCursor(document());
    if (reopen)
        openEditBlock();
    viewport()->update();
}

int ChatView::rowCount() const
{
    return document()->blockCount() - 1;
}

void ChatView::openEditBlock()
{
    if (m_editBlockOpen)
        return;
    m_cursor.beginEditBlock();
    m_editBlockOpen = true;
}

void ChatView::closeEditBlock()
{
    if (!m_editBlockOpen)
        return;
    m_editBlockOpen = false;
    // Lays the rows of the batch out in one go.
    m_cursor.endEditBlock();
    scrollToEnd();
}

void ChatView::scrollToEnd()
{
    QTextCursor end(document());
    end.movePosition(QTextCursor::End);
    setTextCursor(end);
    ensureCursorVisible();
}

void ChatView::paintEvent(QPaintEvent* event)
{
    QTextBrowser::paintEvent(event);
    // While an edit block is open the layout lags behind the document; the
    // rule is drawn again once the batch is laid out.
    if (!m_nickColumn || m_editBlockOpen)
        return;
    const QTextBlock firstRow = document()->firstBlock().next();
    if (!firstRow.isValid())
        return;
    QAbstractTextDocumentLayout* layout = document()->documentLayout();
    const qreal top = layout->blockBoundingRect(firstRow).top();
    const qreal bottom = layout->blockBoundingRect(document()->lastBlock()).bottom();
    const int dx = horizontalScrollBar()->value();
    const int dy = verticalScrollBar()->value();
    const int x = qRound(ruleX()) - dx;
    const int y1 = qMax(qRound(top) - dy, event->rect().top());
    const int y2 = qMin(qRound(bottom) - dy, event->rect().bottom());
    if (y2 < y1)
        return;
    QPainter painter(viewport());
    painter.setPen(QPen(RuleColor, 1));
    painter.drawLine(x, y1, x, y2);
}
