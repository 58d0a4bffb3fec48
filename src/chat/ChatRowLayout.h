#pragma once

#include "Contrast.h"
#include "IrcText.h"

#include <QTextLayout>

class QPainter;

// What a row of the chat view shows: the timestamp, the nick as shown in the
// nick column, the message column's text (formatting codes read) and the
// row's flags (BufferLine::Flag).
struct ChatRowContent
{
    QString timestamp;
    QString nick;
    QString message;
    QString sender; // in full, control characters visible
    quint8 flags = 0;
    QList<IrcText::LinkSegment> links; // indexes into message
    QList<QTextLayout::FormatRange> formats; // of the message, indexes into message
};

// Where the columns of a row are, from the row's left edge.
struct ChatRowColumns
{
    bool nickColumn = true;
    int timestampWidth = 0; // the timestamp column, up to the nick column
    qreal timestampRoom = 0; // how much of it a timestamp may take
    int nickWidth = 0;
    int padding = 0; // kept between a column's text and the column border
};

// One row of the chat view laid out: the timestamp, tab, the nick, two
// spaces, tab, the message; the nick and the message each laid out as a
// bidi isolate (between FSI and PDI). Without a nick column: the timestamp,
// tab, the message.
struct ChatRowLayout
{
    QTextLayout layout;
    QString text; // what is laid out
    int messageStart = 0; // index of the message column (its FSI) in text
    QList<IrcText::LinkSegment> links; // indexes into text
    qreal height = 0;
    bool separator = false; // the rule after a backlog
    // Indexes of the isolate marks in text, ascending.
    int isolates[4] = {};
    int isolateCount = 0;

    // Lays out content (nothing: the empty first row of the view) in font,
    // wrapped at width, its colours made readable on the view's background.
    void build(const ChatRowContent* content, const ChatRowColumns& columns, QFont font, qreal width,
        const Contrast::ReadableOn& readable);

    // An index of the text without the isolate marks, as one into text.
    int toLayoutPosition(int shown) const;
    // text[from, to) without the isolate marks.
    QString shownText(int from, int to) const;
    // The target of the link at pos of text, or an empty string.
    QString linkAt(int pos) const;
    // Draws the row with its top left corner at position, the ranges of
    // marks (found text) in their formats and text[selectionStart,
    // selectionEnd) in the format selected.
    void draw(QPainter* painter, const QPointF& position, int selectionStart, int selectionEnd,
        const QTextCharFormat& selected, const QList<QTextLayout::FormatRange>& marks = {}) const;

    // A name as a row shows it: control characters visible, nothing that
    // would split the row, and no PDI without its own isolate before it (one
    // would end the isolate the nick is laid out in); such a PDI becomes a
    // word joiner, invisible as it was.
    static QString shownName(const QString& name);
    // A sender as the nick column shows it: long ones are cut, with an
    // ellipsis.
    static QString displayNick(const QString& sender);
};
