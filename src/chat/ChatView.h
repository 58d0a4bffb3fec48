#pragma once

#include "ChatRowLayout.h"
#include "LineStore.h"

#include <QAbstractScrollArea>
#include <QCache>
#include <QTextLayout>

class QMenu;
class QTimer;
struct BufferLine;

// The message view of one tab, virtualised: the rows live in a compact store
// and only the rows on screen are laid out (one cached QTextLayout each).
//
// A row has three columns:
//   timestamp | right-aligned nick ending the nick column | message
// with a grey 1 px rule right of the nick column; wrapped message lines stay
// in the message column. The server tab has no nick column. The first row of
// the view stays empty.
//
// The view sticks to the last row while it shows it and stays put while the
// user reads older rows. Rows can be selected with the mouse across rows and
// copied (Ctrl+C, or "Copy" in the context menu) as plain text; links open
// on click.
class ChatView : public QAbstractScrollArea
{
    Q_OBJECT

public:
    // Width of the nick column in pixels; the timestamp column is as wide as
    // the timestamp format needs (timestampColumnWidth()).
    static constexpr int NickColumnWidth = 140;
    // Space kept between a column's text and the column border.
    static constexpr int ColumnPadding = 2;
    // Space around the rows.
    static constexpr int Margin = 4;
    // At most one update of the scroll range and repaint per this many
    // milliseconds while rows pour in.
    static constexpr int FrameIntervalMs = 16;

    explicit ChatView(QWidget* parent = nullptr);
    ~ChatView() override;

    // With the nick column the rows have three columns, without it two.
    void setNickColumnVisible(bool visible);
    bool isNickColumnVisible() const { return m_nickColumn; }

    // The format the timestamps are written in (QDateTime::toString); the
    // timestamp column fits its widest time in the view's font.
    void setTimestampFormat(const QString& format);
    QString timestampFormat() const { return m_timestampFormat; }
    int timestampColumnWidth() const;

    // Appends one row of a buffer: the timestamp, the sender in its colour
    // (grey and italic for the user's own rows while away) and the text with
    // its IRC formatting and links; grey for status rows. Without the nick
    // column the sender is not shown. An action shows "*" in the nick column
    // and "nick text" in italics in the nick's colour; a notice's "-nick-"
    // is bold in that nick's colour.
    //
    // The nick and the message are each laid out as a bidi isolate, so
    // right-to-left text or direction overrides in one cannot reorder the
    // other columns. Control characters that are no formatting codes show as
    // their control pictures (U+2400 + code).
    void appendLine(const QString& timestamp, const BufferLine& line);
    // The size in pixels emoji are drawn at in the rows, in the colour emoji font.
    void setEmojiSize(int pixels);
    // Removes the oldest rows until at most `rows` remain (0: no limit).
    void trimTo(qsizetype rows);
    // Removes every row.
    void clearMessages();
    // Number of message rows (the empty first row is not counted).
    int rowCount() const { return int(m_lines.size()); }

    // What a row shows (see ChatRowContent).
    using RowContent = ChatRowContent;
    RowContent row(int index) const;
    // The row as plain text: "[time] <nick> text" ("[time] text" without a
    // nick, "[time] * nick text" for an action).
    QString rowPlainText(int index) const;
    // The row as laid out: timestamp, tab, nick, two spaces and a tab, message
    // (without a nick column: timestamp, tab, message), and the format its
    // character at position is drawn with. Positions leave out the bidi
    // isolates around the nick and the message.
    QString rowText(int index) const;
    QTextCharFormat formatAt(int index, int position) const;
    // Where the character at position of rowText(index) starts (its leading
    // edge), in viewport coordinates from the left edge.
    qreal characterX(int index, int position) const;

    // Explicit batches; they nest. No update of the view happens between the
    // outermost begin and end; the end schedules one.
    void beginBatch();
    void endBatch();
    // Whether appended rows wait for the next update of the view.
    bool inBatch() const { return m_pending; }
    // Updates the scroll range and follows the last row now (unless an
    // explicit batch is open).
    void flushBatch();

    // X coordinate (in viewport coordinates) of the rule right of the nick column.
    qreal ruleX() const;

    // Selection, in rows and positions of their laid-out text.
    bool hasSelection() const;
    QString selectedText() const;
    void selectAll();
    void clearSelection();
    void copy() const;

    // Scrolling.
    bool isAtEnd() const { return m_follow; }
    void scrollToEnd();
    void scrollToRow(int index);
    // The first message row (partly) visible; -1 when none.
    int firstVisibleRow() const;
    // The link under a point of the viewport, or an empty string.
    QString linkAt(const QPoint& point) const;

    // Find: the rows whose sender or text holds text (case ignored) are
    // matches, their occurrences highlighted; rows appended later are
    // searched as they come. The current match starts at the newest one and
    // is scrolled to. An empty text ends the search. Returns the number of
    // matching rows.
    int find(const QString& text);
    // Moves the current match to the next older (or newer) matching row,
    // wrapping around, and scrolls to it.
    void findNext(bool older);
    int matchCount() const { return int(m_matches.size()); }
    // The current match's place among the matches, counted from the oldest
    // (1-based; 0: none), and its row.
    int currentMatchNumber() const { return m_currentMatch + 1; }
    int currentMatchRow() const { return m_currentMatch < 0 ? -1 : m_matches.at(m_currentMatch); }

signals:
    // The matches changed (rows matching were appended or trimmed).
    void matchesChanged();

protected:
    void paintEvent(QPaintEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;
    void changeEvent(QEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;
    void mouseDoubleClickEvent(QMouseEvent* event) override;
    void keyPressEvent(QKeyEvent* event) override;
    void contextMenuEvent(QContextMenuEvent* event) override;
    void scrollContentsBy(int dx, int dy) override;

private:
    // A laid-out row. View rows: 0 is the empty first row, row i + 1 shows
    // message row i.
    using Layout = ChatRowLayout;
    // A place in the view: a view row and a position in its laid-out text.
    struct Position
    {
        int row = -1;
        int pos = 0;
        bool operator<(const Position& other) const
        {
            return row < other.row || (row == other.row && pos < other.pos);
        }
        bool operator==(const Position& other) const { return row == other.row && pos == other.pos; }
    };
    // A view row as painted: its layout and its top on the viewport.
    struct Placed
    {
        int row;
        qreal top;
        const Layout* layout;
    };

    int viewRows() const { return rowCount() + 1; }
    const Layout* layoutOf(int viewRow) const;
    qreal rowHeight(int viewRow) const;
    qreal textWidth() const;
    // The columns rows are laid out in.
    ChatRowColumns columns() const;
    void invalidateLayouts();
    // The rows on screen, top to bottom.
    QList<Placed> placedRows() const;
    // The top row of the view scrolled to the end.
    int lastTopRow() const;
    void updateScrollRange();
    void requestUpdate();
    Position positionAt(const QPoint& point) const;
    QString plainText(int viewRow) const;
    bool rowMatches(int index) const;
    void showCurrentMatch();
    // The highlighted occurrences of the search text in a laid-out row.
    QList<QTextLayout::FormatRange> findHighlights(const Layout* layout, bool current) const;
    void showContextMenu(const QPoint& globalPos);

    LineStore m_lines;
    // The timestamp text of each row, as an index into m_stamps (rows of the
    // same second share one text).
    QList<quint32> m_stampOf;
    QStringList m_stamps;

    mutable QCache<int, Layout> m_layouts;
    // The rows' colours, made readable on the background (palette Base).
    Contrast::ReadableOn m_readable;
    mutable qreal m_layoutWidth = -1;
    bool m_nickColumn = true;
    QString m_timestampFormat = QStringLiteral("[HH:mm:ss]");
    int m_emojiSize = 20;
    // Find: the text, the matching rows ascending, the current one's index in them.
    QString m_findText;
    QList<int> m_matches;
    int m_currentMatch = -1;
    mutable int m_timestampWidth = -1; // -1: measured when next needed

    // Scrolling: the view shows the last row (and keeps doing so), or shows
    // m_topRow at its top.
    bool m_follow = true;
    int m_topRow = 0;
    bool m_settingScroll = false;

    // Updates: rows appended since the last one, explicit batches open.
    bool m_pending = false;
    int m_batchDepth = 0;
    QTimer* m_updateTimer = nullptr;
    qint64 m_lastUpdateMs = -1;

    // Selection from anchor to cursor (either order); none while anchor.row < 0.
    Position m_anchor;
    Position m_cursor;
    bool m_selecting = false;
    QString m_pressedLink;
};
