#pragma once

#include <QAbstractTableModel>
#include <QList>
#include <QString>
#include <QVector>

// The rows of the channel list: columns "Channel", "Users" and "Topic", one
// row per channel of a LIST reply, kept in arrival order.
//
// Filtering and sorting are done here on plain arrays (a listing can hold
// hundreds of thousands of channels, and per-item widgets or a generic proxy
// are far too slow for a filter that runs on every keystroke):
// - setFilterText() shows exactly the channels whose name or topic contains
//   the text, case ignored (an empty text shows all). Topics are shown,
//   filtered and sorted without their formatting codes. Channels that arrive
//   afterwards are shown whatever the text says, until the text changes.
// - sort() orders the rows: by "Users" numerically (9 before 10), by any
//   other column by text with case ignored. Rows arriving while the list is
//   sorted are added at the end; the next sort() places them.
class ChannelListModel : public QAbstractTableModel
{
    Q_OBJECT

public:
    struct Channel
    {
        QString name;
        QString users; // the user count as received
        int userCount = 0; // as a number, 0 when the text is not one
        QString topic; // as received, formatting codes included
        QString shownTopic; // without formatting codes: shown, filtered and sorted by
    };

    explicit ChannelListModel(QObject* parent = nullptr);

    int rowCount(const QModelIndex& parent = QModelIndex()) const override;
    int columnCount(const QModelIndex& parent = QModelIndex()) const override;
    QVariant data(const QModelIndex& index, int role = Qt::DisplayRole) const override;
    QVariant headerData(int section, Qt::Orientation orientation, int role = Qt::DisplayRole) const override;
    void sort(int column, Qt::SortOrder order = Qt::AscendingOrder) override;

    // Removes every channel; the filter text stays.
    void clear();
    void appendChannel(const QString& name, const QString& users, const QString& topic);

    void setFilterText(const QString& text);
    QString filterText() const { return m_filter; }

    // The channel shown in row `row`.
    const Channel& channelAt(int row) const;
    // Every channel received, shown or not.
    int channelCount() const { return int(m_channels.size()); }

    // The row order of a sort by `column`: whether a goes before b ascending.
    static bool lessThan(const Channel& a, const Channel& b, int column);

private:
    bool matches(const Channel& channel) const;
    void rebuildShown();

    QVector<Channel> m_channels; // arrival order
    QVector<int> m_order; // every channel, in display order
    QVector<bool> m_visible; // per channel: passes the filter (or arrived after it)
    QVector<int> m_shown; // the shown channels, in display order: the rows
    QString m_filter;
};
