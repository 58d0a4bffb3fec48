#pragma once

#include <QElapsedTimer>
#include <QTextBlockFormat>
#include <QTextBrowser>
#include <QTextCursor>

class QPaintEvent;
class QTimer;
struct BufferLine;

// The message view of one tab.
//
// Every message is one text block of the document, laid out as columns by
// block formatting rather than by a table (a table re-lays-out as a whole on
// every appended row, which makes long scrollbacks quadratic):
//   timestamp | right-aligned nick ending the nick column | message
// A right-aligned tab stop ends the nick column, a left tab stop starts the
// message column, and a hanging indent keeps wrapped message lines in the
// message column. The grey rule right of the nick column is painted over the
// viewport. The server tab has no nick column.
//
// The document's first block stays empty, so the first message is the second
// row. Rows appended within one batch share one edit block of the document,
// so the layout runs once per batch instead of once per row (see appendRow).
class ChatView : public QTextBrowser
{
    Q_OBJECT

public:
    // Column widths in pixels.
    static constexpr int TimestampColumnWidth = 85;
    static constexpr int NickColumnWidth = 120;
    // Space kept between a column's text and the column border.
    static constexpr int ColumnPadding = 2;

    explicit ChatView(QWidget* parent = nullptr);
    ~ChatView() override;

    // With the nick column the rows have three columns, without it two.
    void setNickColumnVisible(bool visible);
    bool isNickColumnVisible() const { return m_nickColumn; }

    // At most one layout and repaint of new rows per this many milliseconds.
    static constexpr int FrameIntervalMs = 16;

    // Starts a new row at the end of the document and returns a cursor in it,
    // positioned at the start of the row. The first call on an empty document
    // leaves the document's first block empty.
    //
    // New rows are not laid out one by one: they collect in one edit block of
    // the document, which is closed (the rows laid out, the view scrolled to
    // the last one) once control is back in the event loop, and no sooner
    // than FrameIntervalMs after the previous close. A single row therefore
    // shows at once, and a flood of rows shows frame by frame.
    QTextCursor appendRow();

    // Appends one row of a buffer: the timestamp, the sender in its colour
    // (grey and italic for the user's own rows while away) and the text with
    // its links; grey for status rows. Without the nick column the sender is
    // not shown.
    void appendLine(const QString& timestamp, const BufferLine& line);

    // Explicit batches; they nest. No flush happens between the outermost
    // begin and end; the end schedules one.
    void beginBatch();
    void endBatch();
    // Whether rows are waiting to be laid out.
    bool inBatch() const { return m_editBlockOpen; }

    // Lays out the waiting rows and scrolls to the last one now (unless an
    // explicit batch is open).
    void flushBatch();

    // Removes every row (the first, empty block stays).
    void clearMessages();

    // Number of message rows (the empty first block is not counted).
    int rowCount() const;

    // X coordinate (in document coordinates) of the rule right of the nick column.
    qreal ruleX() const;

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    void requestFlush();
    void openEditBlock();
    void closeEditBlock();
    void scrollToEnd();
    void updateRowFormat();

    QTextCursor m_cursor;
    QTextBlockFormat m_rowFormat;
    int m_batchDepth = 0;
    QTimer* m_flushTimer = nullptr;
    QElapsedTimer m_sinceFlush;
    bool m_editBlockOpen = false;
    bool m_nickColumn = true;
    // The view shows the end of the document (and keeps doing so).
    bool m_followsEnd = true;
};
