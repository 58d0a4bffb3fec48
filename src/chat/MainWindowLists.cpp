// MainWindow: the member list's menus and the channel list page.

#include "MainWindow.h"

#include "ChannelListModel.h"
#include "ChannelListPage.h"
#include "Contrast.h"
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
    const QColor grey = Contrast::readable(AwayRowColor, userList->palette().color(QPalette::Base));
    members->setData(index, away ? QVariant(QBrush(grey)) : QVariant(), Qt::ForegroundRole);
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
    channelListPage = new ChannelListPage(currentTheme, channelSearchEdit->text());
    channelListWidget = channelListPage->view();
    channelListModel = channelListPage->model();
    listInfoLabel = channelListPage->infoLabel();
    channelListPage->setAutojoinQuery([this](const QString& channel) { return m_session->autojoinChannels().contains(channel); });
    connect(channelListPage, &ChannelListPage::autojoinToggled, m_session, &Session::setAutojoin);
    connect(channelListPage, &ChannelListPage::joinRequested, this, [this](const QString& name, bool openTab) {
        if (!m_session->isConnected())
            return;
        if (openTab) {
            m_session->openBuffer(name);
            const auto it = tabs.constFind(name);
            if (it != tabs.cend())
                tabWidget->setCurrentWidget(it->widget);
        }
        m_session->join(name);
    });
    TabInfo info;
    info.widget = channelListPage;
    tabs.insert(ListTab, info);
    addTabPage(channelListPage, ListTab);
}

void MainWindow::requestChannelList()
{
    if (!m_session->isRegistered())
        return;
    createListTab();
    channelListPage->clear();
    tabWidget->setCurrentWidget(channelListPage);
    m_session->requestChannelList();
}
