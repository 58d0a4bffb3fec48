// MainWindow: the connection — connect, disconnect and reconnect, and the
// reaction to every protocol event (tabs, member lists, WHOIS, WATCH).

#include "MainWindow.h"

#include "ConnectDialog.h"
#include "IRCConnection.h"
#include "MemberList.h"
#include "MyTabWidget.h"

#include <QAction>
#include <QLabel>
#include <QListWidget>
#include <QSettings>
#include <QTimer>

#include <algorithm>

namespace {

const QString ServerTab = QStringLiteral("Server");
const QString ListTab = QStringLiteral("List");

// The port "Reconnect" uses when no connection was made through the dialog.
constexpr quint16 FallbackPort = 6667;

bool isChannelKey(const QString& key)
{
    return key.startsWith(QLatin1Char('#'));
}

// A numeric reply: ":" and a non-space, and three digits right after the
// first space (":irc.test 001 nick :Welcome").
bool isNumericLine(const QString& line)
{
    if (line.size() <= 4 || !line.startsWith(QLatin1Char(':')) || line.at(1) == QLatin1Char(' '))
        return false;
    const qsizetype space = line.indexOf(QLatin1Char(' '));
    if (space < 0)
        return false;
    const QStringView code = QStringView(line).mid(space + 1, 3);
    if (code.size() != 3)
        return false;
    for (const QChar c : code) {
        if (c < QLatin1Char('0') || c > QLatin1Char('9'))
            return false;
    }
    return true;
}

} // namespace

void MainWindow::connectEngineSignals()
{
    connect(connection, &IRCConnection::connected, this, &MainWindow::onConnected);
    connect(connection, &IRCConnection::registered, this, &MainWindow::onRegistered);
    connect(connection, &IRCConnection::disconnected, this, &MainWindow::onDisconnected);
    connect(connection, &IRCConnection::errorOccurred, this, &MainWindow::onError);
    connect(connection, &IRCConnection::rawMessageReceived, this, &MainWindow::onRawMessage);
    connect(connection, &IRCConnection::serverMessage, this, &MainWindow::onServerMessage);
    connect(connection, &IRCConnection::privmsgReceived, this, &MainWindow::onPrivmsg);
    connect(connection, &IRCConnection::joinReceived, this, &MainWindow::onJoin);
    connect(connection, &IRCConnection::partReceived, this, &MainWindow::onPart);
    connect(connection, &IRCConnection::nickChanged, this, &MainWindow::onNick);
    connect(connection, &IRCConnection::namesList, this, &MainWindow::onNames);
    connect(connection, &IRCConnection::namesListFinished, this, &MainWindow::onNamesFinished);
    connect(connection, &IRCConnection::topicReceived, this, &MainWindow::onTopic);
    connect(connection, &IRCConnection::quitReceived, this, &MainWindow::onQuit);
    connect(connection, &IRCConnection::kickReceived, this, &MainWindow::onKick);
    connect(connection, &IRCConnection::listStartReceived, this, &MainWindow::onListStart);
    connect(connection, &IRCConnection::listChannelReceived, this, &MainWindow::onListChannel);
    connect(connection, &IRCConnection::listEndReceived, this, &MainWindow::onListEnd);
    connect(connection, &IRCConnection::listInfoReceived, this, &MainWindow::onListInfo);
    connect(connection, &IRCConnection::whoisUserReceived, this, &MainWindow::onWhoisUser);
    connect(connection, &IRCConnection::whoisServerReceived, this, &MainWindow::onWhoisServer);
    connect(connection, &IRCConnection::whoisOperatorReceived, this, &MainWindow::onWhoisOperator);
    connect(connection, &IRCConnection::whoisIdleReceived, this, &MainWindow::onWhoisIdle);
    connect(connection, &IRCConnection::whoisChannelsReceived, this, &MainWindow::onWhoisChannels);
    connect(connection, &IRCConnection::whoisEndReceived, this, &MainWindow::onWhoisEnd);
    connect(connection, &IRCConnection::whoisAwayReceived, this, &MainWindow::onWhoisAway);
    connect(connection, &IRCConnection::watchStatus, this, &MainWindow::onWatchStatus);
    connect(connection, &IRCConnection::ownNickChanged, this, &MainWindow::onOwnNickChanged);
}

// --- Connect, disconnect, reconnect ---------------------------------------------

void MainWindow::showConnectDialog()
{
    if (connection->isConnected() && !currentServerId.isEmpty()) {
        ServerConfig config = connection->serverConfig();
        config.autojoinChannels = favoriteChannels;
        connection->setServerConfig(config);
        saveCurrentServerConfig();
    }

    auto* dialog = new ConnectDialog(this);
    dialog->setAttribute(Qt::WA_DeleteOnClose);
    dialog->setCurrentTheme(currentTheme);
    connect(dialog, &QDialog::accepted, this, [this, dialog] {
        const ServerConfig config = dialog->activeServerConfig();
        const QString host = dialog->server();
        const int port = dialog->port();
        favoriteChannels = config.autojoinChannels;
        connection->setServerConfig(config);
        m_currentPort = quint16(port);
        connection->connectToServer(host, quint16(port), config.nickname, config.realName, config.useSsl);
        currentServerId = QStringLiteral("%1_%2").arg(host, QString::number(port));
        saveCurrentServerConfig();
    });
    dialog->show();
}

void MainWindow::onConnectTriggered()
{
    showConnectDialog();
}

void MainWindow::onDisconnectTriggered()
{
    if (connection->isConnected())
        saveCurrentServerConfig();
    connection->disconnectFromServer();
}

void MainWindow::onReconnectTriggered()
{
    if (!connection->isConnected())
        return;
    saveCurrentServerConfig();
    connection->disconnectFromServer();
    // Back to the port that was used (the default IRC port when the
    // connection was not made through the dialog).
    const quint16 port = m_currentPort ? m_currentPort : FallbackPort;
    QTimer::singleShot(1000, this, [this, port] {
        const ServerConfig config = connection->serverConfig();
        connection->connectToServer(connection->getHost(), port, config.nickname, config.realName, config.useSsl);
    });
}

// --- Connection state -------------------------------------------------------------

void MainWindow::onConnected()
{
    appendMessageToTab(ServerTab, QStringLiteral("*** Connected to server."), QString(), false);
    updateStatusBar();
}

void MainWindow::onRegistered()
{
    if (!currentServerId.isEmpty()) {
        QSettings settings;
        const QStringList stored
            = settings.value(QStringLiteral("servers/") + currentServerId + QStringLiteral("/autojoin")).toStringList();
        if (!stored.isEmpty()) {
            favoriteChannels = stored;
            ServerConfig config = connection->serverConfig();
            config.autojoinChannels = stored;
            connection->setServerConfig(config);
        }
    }
    // The list may change below (a join never touches it, but stay safe).
    const QStringList channels = favoriteChannels;
    for (const QString& channel : channels) {
        if (channel.isEmpty() || !isChannelKey(channel))
            continue;
        connection->joinChannel(channel);
        appendMessageToTab(ServerTab, QStringLiteral("*** Autojoining %1").arg(channel), QString(), false);
    }
    updateStatusBar();
}

void MainWindow::onDisconnected()
{
    appendMessageToTab(ServerTab, QStringLiteral("*** Disconnected."), QString(), false);
    updateStatusBar();
    userList->clear();
    awayActive = false;
    awayMessage.clear();
    if (awayAction)
        awayAction->setText(QStringLiteral("Marked Away..."));
    pendingNewNick.clear();
    watchedNicks.clear();
}

void MainWindow::onError(const QString& error)
{
    appendMessageToTab(ServerTab, QStringLiteral("*** Error: ") + error, QString(), false);
}

void MainWindow::onRawMessage(const QString& line)
{
    // User traffic (":nick!user@host ...") is shown by its own handlers.
    if (line.startsWith(QLatin1Char(':')) && line.contains(QLatin1Char('!')))
        return;
    // Numerics are shown by onServerMessage.
    if (isNumericLine(line))
        return;
    if (inList)
        return;
    appendMessageToTab(ServerTab, QStringLiteral("<< ") + line, QString(), false);
}

void MainWindow::onServerMessage(const QString& message)
{
    if (!inList)
        appendMessageToTab(ServerTab, message, QString(), false);
}

void MainWindow::onOwnNickChanged(const QString&)
{
    updateStatusBar();
    updateOwnUserAppearance();
    pendingNewNick.clear();
}

// --- Messages and membership ------------------------------------------------------

void MainWindow::onPrivmsg(const QString& from, const QString& target, const QString& text)
{
    const bool toMe = target.compare(connection->currentNick(), Qt::CaseInsensitive) == 0;
    appendMessageToTab(toMe ? from : target, text, from, false);
}

void MainWindow::onJoin(const QString& nick, const QString& channel)
{
    appendMessageToTab(channel, QStringLiteral("joined %1").arg(nick), nick, true);

    if (isOwnNick(nick)) {
        if (!tabs.contains(channel)) {
            QWidget* page = createChannelTab(channel, true);
            registerTab(channel, page);
            tabWidget->setCurrentWidget(page);
            applyChatBackground();
            addCloseButtonToAllTabs();
        }
        updateTopicEditButton(channel);
        return;
    }

    if (tabs.contains(channel)) {
        QStringList& users = channelUsers[channel];
        bool added;
        auto ordered = m_joinOrdered.find(channel);
        if (ordered != m_joinOrdered.end()) {
            // Already in join order: renamed entries move to their places, then
            // a binary search finds both an equal entry and the insertion place.
            MemberList::restoreJoinOrder(users, *ordered);
            ordered->clear();
            added = MemberList::insertIntoJoinOrder(users, nick);
        } else {
            // Still in the rank order of a NAMES reply: sorted once here (even
            // when the nick is there already).
            added = MemberList::addJoinedMember(users, nick);
            if (!added)
                std::stable_sort(users.begin(), users.end(),
                    [](const QString& a, const QString& b) { return MemberList::lessCaseInsensitive(a, b); });
            m_joinOrdered.insert(channel, QStringList());
        }
        if (added) {
            indexMember(channel, nick, +1);
            if (channel == currentTabName) {
                addUserToList(channel, nick);
                updateNickCompletionModel();
            }
        }
        updateTopicEditButton(channel);
    }

    const QString privateTab = findPrivateChatTab(nick);
    if (!privateTab.isEmpty())
        appendMessageToTab(privateTab, QStringLiteral("is back online"), privateTab, true);
}

void MainWindow::removeMemberFromChannel(const QString& channel, const QString& nick)
{
    const QList<qsizetype> positions = memberPositions(channel, nick);
    if (positions.isEmpty())
        return;
    QStringList& users = channelUsers[channel];
    // The visible list holds the names with their symbols: remove exactly the
    // stored entries that go.
    QStringList removed;
    for (auto it = positions.crbegin(); it != positions.crend(); ++it) {
        removed.append(users.takeAt(*it));
        indexMember(channel, removed.last(), -1);
    }
    if (channel == currentTabName) {
        for (const QString& name : std::as_const(removed))
            removeUserFromList(channel, name);
    }
}

void MainWindow::onPart(const QString& nick, const QString& channel, const QString& reason)
{
    // The user's own leaving is reported where it was started (the /part
    // command, closing the tab). After the tab was closed the server's echo
    // must not open it again: only the channel's member list goes.
    if (isOwnNick(nick)) {
        if (!tabs.contains(channel)) {
            channelUsers.remove(channel);
            m_joinOrdered.remove(channel);
            m_memberIndex.remove(channel);
        }
        return;
    }
    appendMessageToTab(channel, QStringLiteral("left %1 (%2)").arg(channel, reason), nick, true);
    removeMemberFromChannel(channel, nick);
    if (channel == currentTabName) {
        updateNickCompletionModel();
        updateTopicEditButton(channel);
    }
}

void MainWindow::onNick(const QString& oldNick, const QString& newNick)
{
    const QString line = QStringLiteral("is now known as %1").arg(newNick);
    bool currentAffected = false;
    const QStringList channels = channelUsers.keys();
    for (const QString& channel : channels) {
        const QList<qsizetype> positions = memberPositions(channel, oldNick);
        if (positions.isEmpty())
            continue;
        if (tabs.contains(channel))
            appendMessageToTab(channel, line, oldNick, true);
        const bool current = channel == currentTabName;
        currentAffected = currentAffected || current;
        QStringList& users = channelUsers[channel];
        auto ordered = m_joinOrdered.find(channel);
        for (const qsizetype position : positions) {
            const QString name = users.at(position);
            const QStringView bare = MemberList::stripModePrefix(QStringView(name));
            // In place, the symbol kept.
            const QString renamed = name.left(name.size() - bare.size()) + newNick;
            users[position] = renamed;
            indexMember(channel, name, -1);
            indexMember(channel, renamed, +1);
            if (current)
                renameUserItem(name, renamed);
            // The renamed entry may sit out of join order now.
            if (ordered != m_joinOrdered.end()) {
                ordered->removeAll(name);
                ordered->append(renamed);
            }
        }
        updateTopicEditButton(channel);
    }

    const QString privateTab = findPrivateChatTab(oldNick);
    if (!privateTab.isEmpty()) {
        appendMessageToTab(privateTab, line, oldNick, true);
        if (privateTab == currentTabName)
            currentAffected = true;
        renamePrivateTab(privateTab, newNick);
    }

    if (currentAffected) {
        updateNickCompletionModel();
        if (isOwnNick(oldNick) || isOwnNick(newNick))
            updateOwnUserAppearance();
    }
}

void MainWindow::renamePrivateTab(const QString& oldKey, const QString& newKey)
{
    if (oldKey == newKey || tabs.contains(newKey))
        return;
    TabInfo info = tabs.take(oldKey);
    info.peerNick = newKey;
    const int index = tabWidget->indexOf(info.widget);
    tabs.insert(newKey, info);
    if (tabInputHistory.contains(oldKey))
        tabInputHistory.insert(newKey, tabInputHistory.take(oldKey));
    if (currentTabName == oldKey)
        currentTabName = newKey;
    if (index >= 0) {
        tabWidget->setTabText(index, newKey);
        tabWidget->setTabToolTip(index, newKey);
    }
}

void MainWindow::onTopic(const QString& channel, const QString& topic)
{
    channelTopics.insert(channel, topic);
    updateTopicLabel(channel);
}

void MainWindow::onQuit(const QString& nick, const QString& reason)
{
    const QString line = QStringLiteral("quit (%1)").arg(reason);
    // Collect first: writing may create tabs, never channel entries.
    QStringList channels;
    for (auto it = channelUsers.cbegin(); it != channelUsers.cend(); ++it) {
        if (hasMember(it.key(), nick))
            channels.append(it.key());
    }
    for (const QString& channel : std::as_const(channels)) {
        if (tabs.contains(channel))
            appendMessageToTab(channel, line, nick, true);
        removeMemberFromChannel(channel, nick);
        if (channel == currentTabName)
            updateNickCompletionModel();
        updateTopicEditButton(channel);
    }
    const QString privateTab = findPrivateChatTab(nick);
    if (!privateTab.isEmpty())
        appendMessageToTab(privateTab, line, nick, true);
}

void MainWindow::onKick(const QString& channel, const QString& kicked, const QString& kicker, const QString& reason)
{
    appendMessageToTab(channel, QStringLiteral("was kicked by %1 (%2)").arg(kicker, reason), kicked, true);
    removeMemberFromChannel(channel, kicked);
    if (isOwnNick(kicked)) {
        clearUserList(channel);
    } else if (channel == currentTabName) {
        updateNickCompletionModel();
    }
    updateTopicEditButton(channel);
}

void MainWindow::onWatchStatus(const QString& nick, bool online)
{
    const QString privateTab = findPrivateChatTab(nick);
    if (privateTab.isEmpty())
        return;
    appendMessageToTab(privateTab, online ? QStringLiteral("is back online") : QStringLiteral("quit (WATCH)"),
        privateTab, true);
}

// --- WHOIS ------------------------------------------------------------------------

void MainWindow::onWhoisUser(const QString& nick, const QString& user, const QString& host, const QString& real)
{
    WhoInfo info;
    info.user = user;
    info.host = host;
    info.realname = real;
    whoisCache.insert(nick, info);
}

void MainWindow::onWhoisServer(const QString& nick, const QString& server, const QString& serverInfo)
{
    WhoInfo& info = whoisCache[nick];
    info.server = server;
    info.serverInfo = serverInfo;
}

void MainWindow::onWhoisOperator(const QString& nick)
{
    whoisCache[nick].isOperator = true;
}

void MainWindow::onWhoisIdle(const QString& nick, int idle, const QString& signon)
{
    WhoInfo& info = whoisCache[nick];
    info.idle = idle;
    info.signon = signon;
}

void MainWindow::onWhoisChannels(const QString& nick, const QString& channels)
{
    whoisCache[nick].channels = channels;
}

void MainWindow::onWhoisAway(const QString& nick, const QString& message)
{
    whoisCache[nick].awayMsg = message;
}

void MainWindow::onWhoisEnd(const QString&, const QString& nick)
{
    const WhoInfo info = whoisCache.value(nick);
    const QString tab = whoisTargetTab;
    appendMessageToTab(tab,
        QStringLiteral("*** WHOIS %1: %2@%3 (%4)").arg(nick, info.user, info.host, info.realname), QString(),
        false);
    if (info.isOperator)
        appendMessageToTab(tab, QStringLiteral("*** %1 is an IRC operator").arg(nick), QString(), false);
    appendMessageToTab(tab, QStringLiteral("*** %1 is using %2 (%3)").arg(nick, info.server, info.serverInfo),
        QString(), false);
    if (info.idle >= 0)
        appendMessageToTab(tab,
            QStringLiteral("*** %1 idle %2s, signed on %3").arg(nick, QString::number(info.idle), info.signon),
            QString(), false);
    if (!info.channels.isEmpty())
        appendMessageToTab(tab, QStringLiteral("*** %1 on channels: %2").arg(nick, info.channels), QString(), false);
    if (!info.awayMsg.isEmpty())
        appendMessageToTab(tab, QStringLiteral("*** %1 is away: %2").arg(nick, info.awayMsg), QString(), false);
    whoisCache.remove(nick);
}
