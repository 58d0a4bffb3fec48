// MainWindow: what the session reports (buffers, rows, members, topics, the
// connection's state, the channel list) shown in tabs and lists, and the
// connect actions of the menu.

#include "MainWindow.h"

#include "ChatPage.h"

#include "CertificateDialog.h"
#include "ChannelListModel.h"
#include "ChannelListPage.h"
#include "ChatView.h"
#include "ConnectDialog.h"
#include "HighlightTabBar.h"
#include "IrcText.h"
#include "MemberList.h"
#include "MemberListView.h"
#include "MyTabWidget.h"
#include "Session.h"
#include "ThemeManager.h"

#include <QAction>
#include <QDateTime>
#include <QDebug>
#include <QHeaderView>
#include <QLabel>
#include <QPushButton>
#include <QTreeView>

namespace {

const QString ServerTab = QStringLiteral("Server");

// Notification bodies longer than this are cut.
constexpr int MaxNotificationLength = 255;
constexpr int NotificationCut = 252;

QString notificationBody(const QString& message)
{
    if (message.size() <= MaxNotificationLength)
        return message;
    return message.left(NotificationCut) + QStringLiteral("...");
}

} // namespace

void MainWindow::connectSession()
{
    Session* s = m_session;
    connect(s, &Session::bufferOpened, this, &MainWindow::onBufferOpened);
    connect(s, &Session::bufferClosed, this, &MainWindow::onBufferClosed);
    connect(s, &Session::bufferRenamed, this, &MainWindow::onBufferRenamed);
    connect(s, &Session::lineAdded, this, &MainWindow::onLineAdded);
    connect(s, &Session::membersReset, this, &MainWindow::onMembersReset);
    connect(s, &Session::memberAdded, this, [this](const QString& channel, const QString& name) {
        if (channel == currentTabName)
            userList->addMember(name);
    });
    connect(s, &Session::memberRemoved, this, [this](const QString& channel, const QString& name) {
        if (channel == currentTabName)
            userList->removeMember(name);
    });
    connect(s, &Session::memberRenamed, this, &MainWindow::onMemberRenamed);
    connect(s, &Session::kickedFrom, this, [this](const QString& channel) {
        if (channel == currentTabName)
            userList->clear();
    });
    connect(s, &Session::membersChanged, this, [this](const QString& channel) {
        if (channel == currentTabName)
            updateNickCompletionModel();
        updateTopicEditButton(channel);
    });
    connect(s, &Session::topicChanged, this, &MainWindow::updateTopicLabel);
    connect(s, &Session::certificateDecisionNeeded, this, [this](const IRCConnection::CertificateInfo& info) {
        CertificateDialog::ask(info, currentTheme, this, [this, info](int answer) {
            m_session->trustCertificate(info.fingerprint, answer == CertificateDialog::AlwaysTrust);
        });
    });
    connect(s, &Session::joinedChanged, this, [this](const QString& channel, bool joined) {
        const auto it = tabs.constFind(channel);
        if (it != tabs.cend())
            tabBar->setTabDimmed(tabWidget->indexOf(it->widget), !joined);
        updateTopicEditButton(channel);
    });
    connect(s, &Session::stateChanged, this, &MainWindow::updateStatusBar);
    connect(s, &Session::ownNickChanged, this, &MainWindow::updateOwnUserAppearance);
    connect(s, &Session::disconnected, this, [this] { userList->clear(); });
    connect(s, &Session::awayChanged, this, &MainWindow::onAwayChanged);
    connect(s, &Session::channelListStarted, this, [this] {
        if (channelListPage)
            channelListPage->beginListing();
    });
    connect(s, &Session::channelListEntry, this,
        [this](const QString& channel, const QString& users, const QString& topic) {
            if (channelListModel)
                channelListModel->appendChannel(channel, users, topic);
        });
    connect(s, &Session::channelListEnded, this, [this] {
        if (channelListPage)
            channelListPage->endListing();
    });
    connect(s, &Session::channelListInfo, this, [this](const QString& server, int channels, int users) {
        if (listInfoLabel)
            listInfoLabel->setText(QStringLiteral("%1: %2 channels, %3 users")
                                       .arg(server, QString::number(channels), QString::number(users)));
    });
}

// --- Connect, disconnect, reconnect ---------------------------------------------

void MainWindow::showConnectDialog()
{
    m_session->rememberServerRecord();
    auto* dialog = new ConnectDialog(this);
    dialog->setAttribute(Qt::WA_DeleteOnClose);
    dialog->setCurrentTheme(currentTheme);
    connect(dialog, &QDialog::accepted, this, [this, dialog] {
        m_session->connectTo(dialog->server(), quint16(dialog->port()), dialog->activeServerConfig());
    });
    dialog->show();
}

void MainWindow::onDisconnectTriggered()
{
    m_session->disconnectFromServer();
}

void MainWindow::onReconnectTriggered()
{
    m_session->reconnect();
}

// --- Buffers and rows -------------------------------------------------------------

void MainWindow::onBufferOpened(const QString& buffer)
{
    if (tabs.contains(buffer))
        return;
    const bool isChannel = isChannelTab(buffer);
    QWidget* page = createChannelTab(buffer, isChannel);
    const TabInfo& info = registerTab(buffer, page);
    if (info.chatView) {
        ChatPage::applyBackground(info.chatView, prefs, currentTheme);
        info.chatView->setEmojiSize(prefs.emojiSize);
    }
    if (isChannel) {
        updateTopicLabel(buffer);
        updateTopicEditButton(buffer);
    }
    // While the user looks at the server tab, a new conversation comes to the front.
    if (currentTabName == ServerTab)
        tabWidget->setCurrentWidget(page);
}

void MainWindow::onBufferRenamed(const QString& oldName, const QString& newName)
{
    if (!tabs.contains(oldName) || tabs.contains(newName))
        return;
    TabInfo info = tabs.take(oldName);
    info.peerNick = newName;
    const int index = tabWidget->indexOf(info.widget);
    tabs.insert(newName, info);
    if (tabInputHistory.contains(oldName))
        tabInputHistory.insert(newName, tabInputHistory.take(oldName));
    if (currentTabName == oldName) {
        currentTabName = newName;
        updateNickCompletionModel();
    }
    if (index >= 0) {
        info.widget->setProperty("tabKey", newName);
        tabWidget->setTabText(index, tabTitle(newName));
        tabWidget->setTabToolTip(index, newName);
    }
}

QString MainWindow::timestampText(qint64 msecs)
{
    // Rows arrive in bursts; the text changes at most once a second (the
    // format cannot show anything finer than milliseconds, which are kept).
    const QString& format = prefs.timestampFormat;
    const qint64 key = format.contains(QLatin1Char('z')) ? msecs : msecs / 1000;
    if (key != m_timestampKey || format != m_timestampCacheFormat) {
        m_timestampKey = key;
        m_timestampCacheFormat = format;
        m_timestampText = QDateTime::fromMSecsSinceEpoch(msecs).toString(format);
    }
    return m_timestampText;
}

void MainWindow::appendMessageToTab(
    const QString& tabName, const QString& message, const QString& sender, bool isService)
{
    m_session->addLine(tabName, message, sender, isService);
}

void MainWindow::onLineAdded(const QString& buffer, const BufferLine& line)
{
    const auto it = tabs.constFind(buffer);
    if (it == tabs.cend())
        return;
    ChatView* view = it->chatView;
    if (!view) {
        qWarning() << "appendMessageToTab: chatView is null for tab" << buffer;
        return;
    }
    if (m_appendBatchDepth > 0 && !m_batchViews.contains(view)) {
        view->beginBatch();
        m_batchViews.append(view);
    }
    view->setTimestampFormat(prefs.timestampFormat);
    view->appendLine(timestampText(line.time), line);
    if (prefs.scrollbackLines > 0) {
        view->trimTo(prefs.scrollbackLines);
        m_session->trimBuffer(buffer, prefs.scrollbackLines);
    }

    if (!line.is(BufferLine::Mention))
        return;
    highlightTab(buffer);
    if (currentTabName == buffer)
        return;
    if (isChannelTab(buffer))
        showNotification(buffer, QStringLiteral("%1: %2").arg(line.sender, notificationBody(line.text)));
    else
        showNotification(line.sender, notificationBody(line.text));
}

void MainWindow::beginAppendBatch()
{
    ++m_appendBatchDepth;
}

void MainWindow::endAppendBatch()
{
    if (m_appendBatchDepth == 0 || --m_appendBatchDepth > 0)
        return;
    const QList<QPointer<ChatView>> views = m_batchViews;
    m_batchViews.clear();
    for (const QPointer<ChatView>& view : views) {
        if (view)
            view->endBatch();
    }
}

// --- Members ----------------------------------------------------------------------

void MainWindow::onMembersReset(const QString& channel)
{
    if (channel != currentTabName)
        return;
    userList->fill(m_session->members(channel));
    updateNickCompletionModel();
    updateOwnUserAppearance();
}

void MainWindow::onMemberRenamed(const QString& channel, const QString& oldName, const QString& newName)
{
    if (channel != currentTabName)
        return;
    userList->renameMember(oldName, newName);
    if (m_session->isOwnNick(MemberList::stripModePrefix(newName)))
        updateOwnUserAppearance();
}

void MainWindow::onAwayChanged(bool away)
{
    if (awayAction)
        awayAction->setText(away ? QStringLiteral("Unmark Away") : QStringLiteral("Marked Away..."));
    updateStatusBar();
    updateOwnUserAppearance();
}

// --- Topic strip ------------------------------------------------------------------

void MainWindow::updateTopicLabel(const QString& channel)
{
    const auto it = tabs.constFind(channel);
    if (it == tabs.cend() || !it->topicLabel || !it->topicBar)
        return;
    const QString topic = m_session->topic(channel);
    if (topic.isEmpty())
        it->topicLabel->clear();
    else // on the topic strip, in the theme's window colour
        it->topicLabel->setText(
            IrcText::ircTopicToHtml(topic, QColor(ThemeManager::palette(currentTheme).windowBg)));
}

void MainWindow::updateTopicEditButton(const QString& channel)
{
    const auto it = tabs.constFind(channel);
    if (it == tabs.cend() || !it->editTopicBtn)
        return;
    it->editTopicBtn->setVisible(m_session->isOperator(channel));
}

// --- Channel list -----------------------------------------------------------------
