#pragma once

#include <QWidget>

#include <functional>

class ChannelListModel;
class QLabel;
class QModelIndex;
class QTreeView;

// The List tab: the server's channel list in a sortable table over its own
// model, a summary line above it, a context menu to join a channel or put it
// on the autojoin list, and a double click to join.
class ChannelListPage : public QWidget
{
    Q_OBJECT

public:
    ChannelListPage(const QString& theme, const QString& filter, QWidget* parent = nullptr);

    QTreeView* view() const { return m_view; }
    ChannelListModel* model() const { return m_model; }
    QLabel* infoLabel() const { return m_info; }

    // Whether a channel is on the autojoin list (for the context menu's check).
    void setAutojoinQuery(std::function<bool(const QString&)> query) { m_isAutojoined = std::move(query); }

    // A new listing: empty table, "loading" summary.
    void clear();
    // Thousands of rows follow: no repaints and no sorting until endListing()
    // sorts them once, largest channels first.
    void beginListing();
    void endListing();

    // What a double click on index and the context menu at pos do.
    void onDoubleClicked(const QModelIndex& index);
    void showContextMenu(const QPoint& pos);

signals:
    // The user asked to join channel; openTab: by a double click, which also
    // brings its tab to the front.
    void joinRequested(const QString& channel, bool openTab);
    void autojoinToggled(const QString& channel, bool enable);

private:
    QLabel* m_info = nullptr;
    ChannelListModel* m_model = nullptr;
    QTreeView* m_view = nullptr;
    std::function<bool(const QString&)> m_isAutojoined;
};
