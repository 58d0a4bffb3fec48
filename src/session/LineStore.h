#pragma once

#include <QByteArray>
#include <QHash>
#include <QList>
#include <QString>
#include <QStringList>

struct BufferLine;

// The rows of one buffer, kept compact for long scrollbacks: per row its
// time, flags, the index of its sender in a table of the buffer's senders and
// its text as UTF-8 in a block shared with the rows around it (about 24 bytes
// plus the text's own). Rows are appended at the end and forgotten from
// the start.
class LineStore
{
public:
    void append(const BufferLine& line);
    qsizetype size() const { return m_count - m_dropped; }
    BufferLine at(qsizetype index) const;
    // Forgets the oldest rows (their memory goes a block at a time).
    void removeFirst(qsizetype rows);
    void clear();

private:
    struct Row
    {
        qint64 time;
        quint32 sender;
        quint32 offset;
        quint32 length;
        quint8 flags;
    };
    struct Block
    {
        QByteArray text;
        QList<Row> rows;
    };
    static constexpr qsizetype RowsPerBlock = 1024;

    QList<Block> m_blocks;
    QStringList m_senders;
    QHash<QString, quint32> m_senderIds;
    qsizetype m_count = 0; // rows appended, the forgotten ones included
    qsizetype m_dropped = 0; // oldest rows forgotten, counted from the first kept block
};
