// MainWindow: the member list's menus and the channel list page.

#include "MainWindow.h"

#include "ChannelListModel.h"
#include "MemberList.h"
#include "MemberListModel.h"
#include "MemberListView.h"
#include "MyTabWidget.h"
#include "Session.h"

#include <QApplication>
#include <QClipboard>
#include <QHeaderView>
#include <QLabel>
#include <QLineEdit>
#include <QMenu>
#include <QTreeView>
#include <QVBoxLayout>

#include <algorithm>

namespace {

const QString ListTab = QStringLiteral("List");

const QColor AwayRowColor(0xAA, 0xAA, 0xAA);

} // namespace

void MainWindow::updateOwnUserAppearance()
{
    if (!userListShouldBeVisible)
        return;
    const int row = userList->members()->rowOfNick(m_session->nick());
    if (row < 0)
        return;
    const bool away = m_session->isAway();
    QAbstractItemModel* members = userList->model();
    const QModelIndex index = members->index(row, 0);
    QFont font = qvariant_cast<QFont>(index.data(Qt::FontRole));
    font.setItalic(away);
    members->setData(index, font, Qt::FontRole);
    // Not away: no colour of its own, so the row takes the list's colour
    // again (a brush of an invalid colour would paint it black).
    members->setData(index, away ? QVariant(QBrush(AwayRowColor)) : QVariant(), Qt::ForegroundRole);
}

void MainWindow::onUserDoubleClicked(const QString& member)
{
    if (!m_session->isConnected())
        return;
    const QString name = MemberList::memberNick(member);
    if (name.isEmpty() || m_session->isOwnNick(name))
        return;
    openPrivateChat(name);
}

void MainWindow::openPrivateChat(const QString& nick)
{
    m_session->openBuffer(nick);
    const auto it = tabs.constFind(nick);
    if (it != tabs.cend())
        tabWidget->setCurrentWidget(it->widget);
}

void MainWindow::showUserContextMenu(const QPoint& pos)
{
    const QString nick = MemberList::memberNick(userList->memberAt(pos));
    if (nick.isEmpty())
        return;

    QMenu menu(this);
    if (m_session->isOwnNick(nick)) {
        // The away and nick actions come with the window's menu bar; offer them
        // here once they exist.
        if (awayAction)
            menu.addAction(m_session->isAway() ? QStringLiteral("Unmark Away") : QStringLiteral("Marked Away..."),
                awayAction, &QAction::trigger);
        if (changeNickAction)
            menu.addAction(QStringLiteral("Change Nick..."), changeNickAction, &QAction::trigger);
        if (!menu.isEmpty())
            menu.exec(userList->mapToGlobal(pos));
        return;
    }

    const QString channel = currentTabName;
    menu.addAction(QStringLiteral("Open Private Chat"), this, [this, nick] {
        if (m_session->isConnected())
            openPrivateChat(nick);
    });
    menu.addAction(QStringLiteral("Whois"), this, [this, nick, channel] {
        m_session->whois(nick, channel);
    });
    menu.addSeparator();
    if (isChannelTab(channel)) {
        menu.addAction(QStringLiteral("Kick"), this, [this, nick, channel] {
            m_session->kick(channel, nick, QStringLiteral("Requested"));
        });
        menu.addAction(QStringLiteral("Ban"), this, [this, nick, channel] { m_session->ban(channel, nick); });
        menu.addAction(QStringLiteral("Kick/Ban"), this, [this, nick, channel] {
            m_session->ban(channel, nick);
            m_session->kick(channel, nick, QStringLiteral("Banned"));
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
    listInfoLabel->setTextFormat(Qt::PlainText); // shows the server's name
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
    addTabPage(page, ListTab);
}

void MainWindow::requestChannelList()
{
    if (!m_session->isRegistered())
        return;
    createListTab();
    if (channelListModel)
        channelListModel->clear();
    if (listInfoLabel)
        listInfoLabel->setText(QStringLiteral("Server: loading..."));
    const auto it = tabs.constFind(ListTab);
    if (it != tabs.cend())
        tabWidget->setCurrentWidget(it->widget);
    m_session->requestChannelList();
}

void MainWindow::filterChannelList(const QString& text)
{
    if (channelListModel)
        channelListModel->setFilterText(text);
}

void MainWindow::onChannelListDoubleClicked(const QModelIndex& index)
{
    if (!index.isValid() || !channelListModel || !m_session->isConnected())
        return;
    const QString name = channelListModel->channelAt(index.row()).name;
    if (name.isEmpty())
        return;
    m_session->openBuffer(name);
    const auto it = tabs.constFind(name);
    if (it != tabs.cend())
        tabWidget->setCurrentWidget(it->widget);
    m_session->join(name);
}

void MainWindow::showChannelListContextMenu(const QPoint& pos)
{
    if (!channelListWidget || !channelListModel)
        return;
    const QModelIndex index = channelListWidget->indexAt(pos);
    if (!index.isValid())
        return;
    const QString name = channelListModel->channelAt(index.row()).name;
    const bool contained = m_session->autojoinChannels().contains(name);

    QMenu menu(this);
    QAction* joinAction = menu.addAction(QStringLiteral("Join ") + name);
    QAction* autojoinAction = menu.addAction(QStringLiteral("Autojoin on connect"));
    autojoinAction->setCheckable(true);
    autojoinAction->setChecked(contained);

    QAction* chosen = menu.exec(channelListWidget->mapToGlobal(pos));
    if (chosen == joinAction)
        m_session->join(name);
    else if (chosen == autojoinAction)
        m_session->setAutojoin(name, !contained);
}
