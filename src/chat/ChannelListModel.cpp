#include "ChannelListModel.h"

#include "IrcText.h"

#include <algorithm>

namespace {

const QString Headers[] = { QStringLiteral("Channel"), QStringLiteral("Users"), QStringLiteral("Topic") };

} // namespace

ChannelListModel::ChannelListModel(QObject* parent)
    : QAbstractTableModel(parent)
{
}

int ChannelListModel::rowCount(const QModelIndex& parent) const
{
    return parent.isValid() ? 0 : int(m_shown.size());
}

int ChannelListModel::columnCount(const QModelIndex& parent) const
{
    return parent.isValid() ? 0 : 3;
}

QVariant ChannelListModel::data(const QModelIndex& index, int role) const
{
    if (!index.isValid() || index.row() >= m_shown.size())
        return QVariant();
    const Channel& channel = m_channels.at(m_shown.at(index.row()));
    switch (role) {
    case Qt::DisplayRole:
        switch (index.column()) {
        case 0:
            return channel.name;
        case 1:
            return channel.users;
        case 2:
            return channel.shownTopic;
        }
        break;
    case Qt::ToolTipRole:
        // Long topics are cut by the column; the tip shows them whole, with
        // their formatting (escaped: a topic is never markup).
        if (index.column() == 2 && !channel.topic.isEmpty())
            return QStringLiteral("<qt>") + IrcText::ircToHtml(channel.topic) + QStringLiteral("</qt>");
        break;
    case Qt::UserRole:
        if (index.column() == 1)
            return channel.userCount;
        break;
    }
    return QVariant();
}

QVariant ChannelListModel::headerData(int section, Qt::Orientation orientation, int role) const
{
    if (orientation == Qt::Horizontal && role == Qt::DisplayRole && section >= 0 && section < 3)
        return Headers[section];
    return QAbstractTableModel::headerData(section, orientation, role);
}

bool ChannelListModel::lessThan(const Channel& a, const Channel& b, int column)
{
    switch (column) {
    case 1:
        return a.userCount < b.userCount;
    case 2:
        return a.shownTopic.compare(b.shownTopic, Qt::CaseInsensitive) < 0;
    default:
        return a.name.compare(b.name, Qt::CaseInsensitive) < 0;
    }
}

void ChannelListModel::sort(int column, Qt::SortOrder order)
{
    if (column < 0 || column > 2)
        return;
    emit layoutAboutToBeChanged({}, QAbstractItemModel::VerticalSortHint);
    const QModelIndexList before = persistentIndexList();
    QVector<int> channelOf;
    channelOf.reserve(before.size());
    for (const QModelIndex& index : before)
        channelOf.append(m_shown.at(index.row()));

    // Case-insensitive comparisons are the expensive part: compare folded
    // copies once made.
    if (column == 1) {
        const auto less = [this](int a, int b) { return m_channels.at(a).userCount < m_channels.at(b).userCount; };
        if (order == Qt::AscendingOrder)
            std::stable_sort(m_order.begin(), m_order.end(), less);
        else
            std::stable_sort(m_order.begin(), m_order.end(), [&less](int a, int b) { return less(b, a); });
    } else {
        QVector<QString> keys(m_channels.size());
        for (int i = 0; i < m_channels.size(); ++i)
            keys[i] = (column == 0 ? m_channels.at(i).name : m_channels.at(i).shownTopic).toCaseFolded();
        const auto less = [&keys](int a, int b) { return keys.at(a) < keys.at(b); };
        if (order == Qt::AscendingOrder)
            std::stable_sort(m_order.begin(), m_order.end(), less);
        else
            std::stable_sort(m_order.begin(), m_order.end(), [&less](int a, int b) { return less(b, a); });
    }
    rebuildShown();

    // Persistent indexes (the view's current row, selection) follow their
    // channels.
    QVector<int> rowOf(m_channels.size(), -1);
    for (int row = 0; row < m_shown.size(); ++row)
        rowOf[m_shown.at(row)] = row;
    QModelIndexList after;
    after.reserve(before.size());
    for (int i = 0; i < before.size(); ++i)
        after.append(index(rowOf.at(channelOf.at(i)), before.at(i).column()));
    changePersistentIndexList(before, after);
    emit layoutChanged({}, QAbstractItemModel::VerticalSortHint);
}

void ChannelListModel::clear()
{
    beginResetModel();
    m_channels.clear();
    m_order.clear();
    m_visible.clear();
    m_shown.clear();
    endResetModel();
}

void ChannelListModel::appendChannel(const QString& name, const QString& users, const QString& topic)
{
    bool isNumber = false;
    const int count = users.toInt(&isNumber, 10);
    const int row = int(m_shown.size());
    beginInsertRows(QModelIndex(), row, row);
    const int id = int(m_channels.size());
    m_channels.append({ name, users, isNumber ? count : 0, topic, IrcText::stripFormatting(topic) });
    m_order.append(id);
    // Shown until the filter text changes again.
    m_visible.append(true);
    m_shown.append(id);
    endInsertRows();
}

bool ChannelListModel::matches(const Channel& channel) const
{
    return m_filter.isEmpty() || channel.name.contains(m_filter, Qt::CaseInsensitive)
        || channel.shownTopic.contains(m_filter, Qt::CaseInsensitive);
}

void ChannelListModel::setFilterText(const QString& text)
{
    beginResetModel();
    m_filter = text;
    for (int i = 0; i < m_channels.size(); ++i)
        m_visible[i] = matches(m_channels.at(i));
    rebuildShown();
    endResetModel();
}

void ChannelListModel::rebuildShown()
{
    m_shown.clear();
    m_shown.reserve(m_order.size());
    for (const int id : std::as_const(m_order)) {
        if (m_visible.at(id))
            m_shown.append(id);
    }
}

const ChannelListModel::Channel& ChannelListModel::channelAt(int row) const
{
    return m_channels.at(m_shown.at(row));
}
