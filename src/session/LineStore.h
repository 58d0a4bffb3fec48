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
// plus the text's own). Rows are only ever appended.
class LineStore
{
public:
    void append(const BufferLine& line);
    qsizetype size() const { return m_count; }
    BufferLine at(qsizetype index) const;

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
    qsizetype m_count = 0;
};
