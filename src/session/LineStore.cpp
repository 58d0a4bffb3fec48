#include "LineStore.h"

#include "Session.h"

void LineStore::append(const BufferLine& line)
{
    if (m_blocks.isEmpty() || m_blocks.last().rows.size() == RowsPerBlock) {
        // The finished block gives back what its text grew by in advance.
        if (!m_blocks.isEmpty())
            m_blocks.last().text.squeeze();
        m_blocks.append(Block());
        m_blocks.last().rows.reserve(RowsPerBlock);
    }
    auto id = m_senderIds.constFind(line.sender);
    if (id == m_senderIds.cend()) {
        id = m_senderIds.insert(line.sender, quint32(m_senders.size()));
        m_senders.append(line.sender);
    }
    Block& block = m_blocks.last();
    const QByteArray text = line.text.toUtf8();
    block.rows.append(Row { line.time, *id, quint32(block.text.size()), quint32(text.size()), line.flags });
    block.text.append(text);
    ++m_count;
}

void LineStore::removeFirst(qsizetype rows)
{
    m_dropped += qBound<qsizetype>(0, rows, size());
    while (m_dropped >= RowsPerBlock && m_blocks.size() > 1) {
        m_blocks.removeFirst();
        m_dropped -= RowsPerBlock;
        m_count -= RowsPerBlock;
    }
}

void LineStore::clear()
{
    *this = LineStore();
}

BufferLine LineStore::at(qsizetype index) const
{
    BufferLine line;
    if (index < 0 || index >= size())
        return line;
    index += m_dropped;
    const Block& block = m_blocks.at(index / RowsPerBlock);
    const Row& row = block.rows.at(index % RowsPerBlock);
    line.time = row.time;
    line.sender = m_senders.at(row.sender);
    line.text = QString::fromUtf8(block.text.constData() + row.offset, row.length);
    line.flags = row.flags;
    return line;
}
