// MainWindow: the member list of the current channel.

#include "MainWindow.h"

#include "ChannelListModel.h"
#include "IRCConnection.h"
#include "MemberList.h"
#include "MyTabWidget.h"

#include <QApplication>
#include <QClipboard>
#include <QHeaderView>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QMenu>
#include <QTreeView>
#include <QVBoxLayout>

#include <algorithm>

namespace {

const QString ServerTab = QStringLiteral("Server");
const QString ListTab = QStringLiteral("List");

const QColor AwayRowColor(0xAA, 0xAA, 0xAA);

} // namespace

void MainWindow::onNames(const QString& channel, const QStringList& names)
{
    pendingNames[channel] += names;
}

void MainWindow::onNamesFinished(const QString& channel)
{
    QStringList users = pendingNames.take(channel);
    MemberList::sortNames(users);
    channelUsers.insert(channel, users);
    // Rank order again: the next join sorts the whole list once.
    m_joinOrdered.remove(channel);
    m_memberIndex.remove(channel);
    if (channel == currentTabName) {
        fillUserList(users);
        updateNickCompletionModel();
        updateOwnUserAppearance();
    }
    updateTopicEditButton(channel);
}

void MainWindow::fillUserList(const QStringList& names)
{
    userList->setUpdatesEnabled(false);
    userList->clear();
    userList->addItems(names);
    userList->setUpdatesEnabled(true);
    // Indexed on the first lookup.
    m_userItemsValid = false;
    m_userItems.clear();
}

void MainWindow::addUserToList(const QString& tabName, const QString& user)
{
    if (tabName != currentTabName)
        return;
    auto* item = new QListWidgetItem(user);
    m_editingUserList = true;
    userList->addItem(item);
    m_editingUserList = false;
    if (m_userItemsValid)
        m_userItems.insert(user, item);
}

void MainWindow::removeUserFromList(const QString& tabName, const QString& user)
{
    if (tabName != currentTabName)
        return;
    QListWidgetItem* item = findUserItem(user);
    if (!item)
        return;
    m_userItems.remove(user, item);
    m_editingUserList = true;
    delete item;
    m_editingUserList = false;
}

void MainWindow::trackUserListChanges()
{
    const auto dropIndex = [this] {
        if (!m_editingUserList) {
            m_userItemsValid = false;
            m_userItems.clear();
        }
    };
    QAbstractItemModel* model = userList->model();
    connect(model, &QAbstractItemModel::rowsInserted, this, dropIndex);
    connect(model, &QAbstractItemModel::rowsRemoved, this, dropIndex);
    connect(model, &QAbstractItemModel::rowsMoved, this, dropIndex);
    connect(model, &QAbstractItemModel::modelReset, this, dropIndex);
    connect(model, &QAbstractItemModel::layoutChanged, this, dropIndex);
    connect(model, &QAbstractItemModel::dataChanged, this,
        [dropIndex](const QModelIndex&, const QModelIndex&, const QList<int>& roles) {
            if (roles.isEmpty() || roles.contains(Qt::DisplayRole) || roles.contains(Qt::EditRole))
                dropIndex();
        });
}

QListWidgetItem* MainWindow::findUserItem(const QString& text)
{
    if (!m_userItemsValid) {
        m_userItems.clear();
        m_userItems.reserve(userList->count());
        for (int row = 0; row < userList->count(); ++row) {
            QListWidgetItem* item = userList->item(row);
            m_userItems.insert(item->text(), item);
        }
        m_userItemsValid = true;
    }
    // The first row with that text; only duplicates need the row order.
    if (m_userItems.count(text) > 1) {
        const QList<QListWidgetItem*> found = userList->findItems(text, Qt::MatchExactly | Qt::MatchCaseSensitive);
        return found.isEmpty() ? nullptr : found.first();
    }
    return m_userItems.value(text);
}

void MainWindow::renameUserItem(const QString& text, const QString& newText)
{
    QListWidgetItem* item = findUserItem(text);
    if (!item)
        return;
    m_userItems.remove(text, item);
    m_editingUserList = true;
    item->setText(newText);
    m_editingUserList = false;
    if (m_userItemsValid)
        m_userItems.insert(newText, item);
}

MainWindow::MemberIndex& MainWindow::memberIndex(const QString& channel) const
{
    MemberIndex& index = m_memberIndex[channel];
    const QStringList users = channelUsers.value(channel);
    if (index.size != users.size()) {
        index.counts.clear();
        index.counts.reserve(users.size());
        for (const QString& name : users)
            ++index.counts[MemberList::stripModePrefix(QStringView(name)).toString().toCaseFolded()];
        index.size = users.size();
    }
    return index;
}

void MainWindow::indexMember(const QString& channel, const QString& storedName, int delta)
{
    // Called right after the change to the channel's list.
    MemberIndex& index = m_memberIndex[channel];
    if (index.size < 0)
        return;
    const QString key = MemberList::stripModePrefix(QStringView(storedName)).toString().toCaseFolded();
    int& count = index.counts[key];
    count += delta;
    if (count <= 0)
        index.counts.remove(key);
    index.size += delta;
}

bool MainWindow::hasMember(const QString& channel, const QString& nick) const
{
    if (!channelUsers.contains(channel))
        return false;
    return memberIndex(channel).counts.value(nick.toCaseFolded()) > 0;
}

QList<qsizetype> MainWindow::memberPositions(const QString& channel, const QString& nick) const
{
    QList<qsizetype> positions;
    if (!hasMember(channel, nick))
        return positions;
    const QStringList& users = *channelUsers.constFind(channel);
    const auto ordered = m_joinOrdered.constFind(channel);
    if (ordered != m_joinOrdered.cend() && ordered->isEmpty()) {
        // In join order: the entries of nick sit under each of the symbols.
        const auto less = [](const QString& a, const QString& b) { return MemberList::lessCaseInsensitive(a, b); };
        static const QStringList symbols { QString(), QStringLiteral("~"), QStringLiteral("&"), QStringLiteral("@"),
            QStringLiteral("%"), QStringLiteral("+") };
        for (const QString& symbol : symbols) {
            const QString key = symbol + nick;
            const auto range = std::equal_range(users.cbegin(), users.cend(), key, less);
            for (auto it = range.first; it != range.second; ++it) {
                if (MemberList::stripModePrefix(QStringView(*it)).compare(nick, Qt::CaseInsensitive) == 0)
                    positions.append(it - users.cbegin());
            }
        }
        std::sort(positions.begin(), positions.end());
        positions.erase(std::unique(positions.begin(), positions.end()), positions.end());
        return positions;
    }
    for (qsizetype i = 0; i < users.size(); ++i) {
        const QStringView bare = MemberList::stripModePrefix(QStringView(users.at(i)));
        if (bare.size() == nick.size() && bare.compare(nick, Qt::CaseInsensitive) == 0)
            positions.append(i);
    }
    return positions;
}

void MainWindow::clearUserList(const QString& tabName)
{
    if (tabName == currentTabName)
        userList->clear();
}

QString MainWindow::stripModePrefix(const QString& nick) const
{
    return MemberList::stripModePrefix(nick);
}

bool MainWindow::isUserOperator(const QString& channel) const
{
    if (!connection || !connection->isConnected())
        return false;
    const auto users = channelUsers.constFind(channel);
    if (users == channelUsers.cend())
        return false;
    // The first entry of the own nick decides (compared case-sensitively);
    // the index finds the candidates without walking the list.
    const QString ownNick = connection->currentNick();
    for (const qsizetype position : memberPositions(channel, ownNick)) {
        const QString& name = users->at(position);
        if (MemberList::stripModePrefix(QStringView(name)) == ownNick)
            return MemberList::isOperatorEntry(name);
    }
    return false;
}

void MainWindow::updateOwnUserAppearance()
{
    if (!userListShouldBeVisible)
        return;
    const QString ownNick = connection->currentNick();
    for (int row = 0; row < userList->count(); ++row) {
        QListWidgetItem* item = userList->item(row);
        if (MemberList::memberNick(item->text()).compare(ownNick, Qt::CaseInsensitive) != 0)
            continue;
        QFont font = item->font();
        font.setItalic(awayActive);
        item->setFont(font);
        // Not away: no colour of its own, so the row takes the list's colour
        // again (a brush of an invalid colour would paint it black).
        if (awayActive)
            item->setForeground(AwayRowColor);
        else
            item->setData(Qt::ForegroundRole, QVariant());
        return;
    }
}

void MainWindow::onUserDoubleClicked(QListWidgetItem* item)
{
    if (!item || !connection || !connection->isConnected())
        return;
    const QString name = MemberList::memberNick(item->text());
    if (name.isEmpty() || isOwnNick(name))
        return;
    openPrivateChat(name);
}

void MainWindow::openPrivateChat(const QString& nick)
{
    auto it = tabs.find(nick);
    if (it == tabs.end()) {
        registerTab(nick, createChannelTab(nick, false));
        applyChatBackground();
        addCloseButtonToAllTabs();
        it = tabs.find(nick);
    }
    tabWidget->setCurrentWidget(it->widget);
}

void MainWindow::showUserContextMenu(const QPoint& pos)
{
    QListWidgetItem* item = userList->itemAt(pos);
    if (!item)
        return;
    const QString nick = MemberList::memberNick(item->text());
    if (nick.isEmpty())
        return;

    QMenu menu(this);
    if (isOwnNick(nick)) {
        // The away and nick actions come with the window's menu bar; offer them
        // here once they exist.
        if (awayAction)
            menu.addAction(awayActive ? QStringLiteral("Unmark Away") : QStringLiteral("Marked Away..."),
                awayAction, &QAction::trigger);
        if (changeNickAction)
            menu.addAction(QStringLiteral("Change Nick..."), changeNickAction, &QAction::trigger);
        if (!menu.isEmpty())
            menu.exec(userList->mapToGlobal(pos));
        return;
    }

    const QString channel = currentTabName;
    menu.addAction(QStringLiteral("Open Private Chat"), this, [this, nick] {
        if (connection->isConnected())
            openPrivateChat(nick);
    });
    menu.addAction(QStringLiteral("Whois"), this, [this, nick, channel] {
        whoisTargetTab = channel;
        connection->sendWhois(nick);
    });
    menu.addSeparator();
    if (channel.startsWith(QLatin1Char('#'))) {
        menu.addAction(QStringLiteral("Kick"), this, [this, nick, channel] {
            connection->sendRaw(QStringLiteral("KICK %1 %2 :Requested").arg(channel, nick));
        });
        menu.addAction(QStringLiteral("Ban"), this, [this, nick, channel] {
            connection->sendRaw(QStringLiteral("MODE %1 +b %2!*@*").arg(channel, nick));
        });
        menu.addAction(QStringLiteral("Kick/Ban"), this, [this, nick, channel] {
            connection->sendRaw(QStringLiteral("MODE %1 +b %2!*@*").arg(channel, nick));
            connection->sendRaw(QStringLiteral("KICK %1 %2 :Banned").arg(channel, nick));
        });
        menu.addSeparator();
    } else {
        menu.addAction(QStringLiteral("Copy Nickname"), this,
            [nick] { QApplication::clipboard()->setText(nick); });
    }
    menu.exec(userList->mapToGlobal(pos));
}

// --- Channel list browser -------------------------------------------------------

void MainWindow::createListTab()
{
    if (tabs.contains(ListTab))
        return;

    auto* page = new QWidget;
    auto* layout = new QVBoxLayout(page);
    layout->setContentsMargins(0, 0, 0, 0);

    listInfoLabel = new QLabel(QStringLiteral("Server: loading..."), page);
    listInfoLabel->setStyleSheet(QStringLiteral("font-weight: bold; padding: 4px;"));
    layout->addWidget(listInfoLabel);

    channelListModel = new ChannelListModel(page);
    channelListModel->setFilterText(channelSearchEdit->text());
    channelListWidget = new QTreeView;
    channelListWidget->setObjectName(QStringLiteral("channelList"));
    channelListWidget->setModel(channelListModel);
    channelListWidget->setRootIsDecorated(false);
    channelListWidget->setAlternatingRowColors(true);
    channelListWidget->setSortingEnabled(false);
    // Every row is one line: one height for all keeps big listings fast.
    channelListWidget->setUniformRowHeights(true);
    channelListWidget->setEditTriggers(QAbstractItemView::NoEditTriggers);
    channelListWidget->header()->setMinimumHeight(30);
    channelListWidget->header()->setStyleSheet(
        QStringLiteral("QHeaderView::section { padding: 4px; font-weight: bold; }"));
    if (currentTheme == QLatin1String("dark")) {
        channelListWidget->setStyleSheet(QStringLiteral(
            "QTreeView { background-color: #1E1E1E; color: #DDDDDD; alternate-background-color: #252525; }"
            "QTreeView::item:hover { background-color: #3A3A3A; }"
            "QTreeView::item:selected { background-color: #505050; }"));
    } else {
        channelListWidget->setStyleSheet(QString());
    }
    channelListWidget->header()->setSectionResizeMode(0, QHeaderView::Interactive);
    channelListWidget->header()->setMinimumSectionSize(120);
    channelListWidget->setColumnWidth(0, 200);
    channelListWidget->setContextMenuPolicy(Qt::CustomContextMenu);
    connect(channelListWidget, &QWidget::customContextMenuRequested, this,
        &MainWindow::showChannelListContextMenu);
    connect(channelListWidget, &QTreeView::doubleClicked, this, &MainWindow::onChannelListDoubleClicked);
    layout->addWidget(channelListWidget);

    TabInfo info;
    info.widget = page;
    tabs.insert(ListTab, info);
    const int index = tabWidget->addTab(page, ListTab);
    tabWidget->setTabToolTip(index, ListTab);
    addCloseButtonToAllTabs();
}

void MainWindow::requestChannelList()
{
    if (!connection->isRegistered())
        return;
    createListTab();
    if (channelListModel)
        channelListModel->clear();
    if (listInfoLabel)
        listInfoLabel->setText(QStringLiteral("Server: loading..."));
    const auto it = tabs.constFind(ListTab);
    if (it != tabs.cend())
        tabWidget->setCurrentWidget(it->widget);
    connection->sendRaw(QStringLiteral("LIST"));
}

void MainWindow::onListStart()
{
    inList = true;
    appendMessageToTab(ServerTab, QStringLiteral("*** Receiving channel list..."), QString(), false);
    if (channelListWidget) {
        // Thousands of rows follow: no repaints, and no sorting until the
        // end sorts them once.
        channelListWidget->setUpdatesEnabled(false);
        channelListWidget->setSortingEnabled(false);
    }
}

void MainWindow::onListChannel(const QString& channel, const QString& users, const QString& topic)
{
    if (channelListModel)
        channelListModel->appendChannel(channel, users, topic);
}

void MainWindow::onListEnd()
{
    if (channelListWidget) {
        channelListWidget->setUpdatesEnabled(true);
        // Largest channels first; enabling sorting sorts by the indicator.
        channelListWidget->header()->setSortIndicator(1, Qt::DescendingOrder);
        channelListWidget->setSortingEnabled(true);
    }
    inList = false;
    appendMessageToTab(ServerTab, QStringLiteral("*** Channel list complete."), QString(), false);
}

void MainWindow::onListInfo(const QString& server, int channels, int users)
{
    if (listInfoLabel)
        listInfoLabel->setText(
            QStringLiteral("%1: %2 channels, %3 users").arg(server, QString::number(channels), QString::number(users)));
}

void MainWindow::filterChannelList(const QString& text)
{
    if (channelListModel)
        channelListModel->setFilterText(text);
}

void MainWindow::onChannelListDoubleClicked(const QModelIndex& index)
{
    if (!index.isValid() || !channelListModel || !connection->isConnected())
        return;
    const QString name = channelListModel->channelAt(index.row()).name;
    if (name.isEmpty())
        return;
    auto it = tabs.find(name);
    if (it == tabs.end()) {
        registerTab(name, createChannelTab(name, true));
        applyChatBackground();
        addCloseButtonToAllTabs();
        it = tabs.find(name);
    }
    tabWidget->setCurrentWidget(it->widget);
    connection->joinChannel(name);
}

void MainWindow::showChannelListContextMenu(const QPoint& pos)
{
    if (!channelListWidget || !channelListModel)
        return;
    const QModelIndex index = channelListWidget->indexAt(pos);
    if (!index.isValid())
        return;
    const QString name = channelListModel->channelAt(index.row()).name;
    const bool contained = favoriteChannels.contains(name);

    QMenu menu(this);
    QAction* joinAction = menu.addAction(QStringLiteral("Join ") + name);
    QAction* autojoinAction = menu.addAction(QStringLiteral("Autojoin on connect"));
    autojoinAction->setCheckable(true);
    autojoinAction->setChecked(contained);

    QAction* chosen = menu.exec(channelListWidget->mapToGlobal(pos));
    if (chosen == joinAction)
        connection->joinChannel(name);
    else if (chosen == autojoinAction)
        setChannelAutojoin(name, !contained);
}
