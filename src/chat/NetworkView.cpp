#include "NetworkView.h"

#include "CertificateDialog.h"
#include "ChannelListModel.h"
#include "ChannelListPage.h"
#include "ChatPage.h"
#include "ChatView.h"
#include "HighlightTabBar.h"
#include "IrcText.h"
#include "MainWindow.h"
#include "MemberList.h"
#include "MemberListView.h"
#include "MyTabWidget.h"
#include "ServerStore.h"
#include "Session.h"
#include "ThemeManager.h"

#include <QDateTime>
#include <QDebug>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QSettings>
#include <QTimer>

#include <functional>

namespace {

const QString ServerTab = QStringLiteral("Server");
const QString ListTab = QStringLiteral("List");
const QString OpenNetworksKey = QStringLiteral("openNetworks");

// Notification bodies longer than this are cut.
constexpr int MaxNotificationLength = 255;
constexpr int NotificationCut = 252;

QString notificationBody(const QString& message)
{
    if (message.size() <= MaxNotificationLength)
        return message;
    return message.left(NotificationCut) + QStringLiteral("...");
}

// The tab bar keeps its blink marks by index: the marks from `from` on are
// taken off before tabs are inserted or removed there, and set again on the
// tabs that carry a mention afterwards.
void changeTabsAt(MainWindow* window, int from, const std::function<void()>& change)
{
    for (int i = from; i < window->tabWidget->count(); ++i)
        window->tabBar->unhighlightTab(i);
    change();
    for (int i = from; i < window->tabWidget->count(); ++i) {
        const NetworkView* network = NetworkView::of(window->tabWidget->widget(i));
        if (network && network->tabs.value(window->tabKey(i)).highlighted)
            window->tabBar->highlightTab(i);
    }
}

} // namespace

NetworkView::NetworkView(MainWindow* window)
    : QObject(window)
    , m_window(window)
{
    m_session = new Session(this);
    connectSession();
    // A tab opened later reads in the same font as the ones already open.
    registerTab(ServerTab, ChatPage::create(false, false, m_window->currentChatFont(), m_window->inputLine));
}

// The session goes with this object; nobody listens to it by then.
NetworkView::~NetworkView()
{
    m_session->disconnect(this);
    m_session->connection()->disconnect(this);
}

NetworkView* NetworkView::of(const QWidget* page)
{
    return page ? qobject_cast<NetworkView*>(page->property("network").value<QObject*>()) : nullptr;
}

QString NetworkView::name() const
{
    const QString name = m_session->networkName();
    return name.isEmpty() ? ServerTab : name;
}

bool NetworkView::isCurrent() const
{
    return m_window->network() == this;
}

bool NetworkView::isShown(const QString& channel) const
{
    return isCurrent() && channel == m_window->currentTabName;
}

bool NetworkView::isChannelTab(const QString& key) const
{
    return m_session->typeOf(key) == Session::BufferType::Channel;
}

bool NetworkView::isPrivateTab(const QString& key) const
{
    return !isChannelTab(key) && key != ServerTab && key != ListTab;
}

void NetworkView::connectSession()
{
    Session* s = m_session;
    connect(s, &Session::bufferOpened, this, &NetworkView::onBufferOpened);
    connect(s, &Session::bufferClosed, this, &NetworkView::onBufferClosed);
    connect(s, &Session::bufferRenamed, this, &NetworkView::onBufferRenamed);
    connect(s, &Session::lineAdded, this, &NetworkView::onLineAdded);
    connect(s, &Session::membersReset, this, &NetworkView::onMembersReset);
    connect(s, &Session::memberAdded, this, [this](const QString& channel, const QString& name) {
        if (isShown(channel))
            m_window->userList->addMember(name);
    });
    connect(s, &Session::memberRemoved, this, [this](const QString& channel, const QString& name) {
        if (isShown(channel))
            m_window->userList->removeMember(name);
    });
    connect(s, &Session::memberRenamed, this, &NetworkView::onMemberRenamed);
    connect(s, &Session::kickedFrom, this, [this](const QString& channel) {
        if (isShown(channel))
            m_window->userList->clear();
    });
    connect(s, &Session::membersChanged, this, [this](const QString& channel) {
        if (isShown(channel))
            m_window->updateNickCompletionModel();
        updateTopicEditButton(channel);
    });
    connect(s, &Session::topicChanged, this, &NetworkView::updateTopicLabel);
    connect(s, &Session::certificateDecisionNeeded, this, [this](const IRCConnection::CertificateInfo& info) {
        // The network may be closed while the question is open.
        const QPointer<Session> session(m_session);
        CertificateDialog::ask(info, m_window->currentTheme, m_window, [session, info](int answer) {
            if (session)
                session->trustCertificate(info.fingerprint, answer == CertificateDialog::AlwaysTrust);
        });
    });
    connect(s, &Session::joinedChanged, this, [this](const QString& channel, bool joined) {
        const auto it = tabs.constFind(channel);
        if (it != tabs.cend())
            m_window->tabBar->setTabDimmed(m_window->tabWidget->indexOf(it->widget), !joined);
        updateTopicEditButton(channel);
    });
    connect(s, &Session::stateChanged, this, [this] {
        if (isCurrent())
            m_window->updateStatusBar();
        m_window->updateTabLabels();
    });
    // The network's name comes with the server's ISUPPORT lines.
    connect(s->connection(), &IRCConnection::serverSupportChanged, this, [this] {
        if (isCurrent())
            m_window->updateStatusBar();
        m_window->updateTabLabels();
    });
    connect(s, &Session::ownNickChanged, this, [this] {
        if (isCurrent())
            m_window->updateOwnUserAppearance();
    });
    connect(s, &Session::disconnected, this, [this] {
        if (isCurrent())
            m_window->userList->clear();
    });
    connect(s, &Session::awayChanged, this, [this] {
        if (isCurrent())
            m_window->showNetworkState();
    });
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

// --- Tabs -------------------------------------------------------------------------

void NetworkView::registerTab(const QString& name, QWidget* page)
{
    TabInfo info;
    info.widget = page;
    info.chatView = page->findChild<ChatView*>();
    if (isChannelTab(name)) {
        info.topicBar = page->findChild<QWidget*>(QStringLiteral("topicBar"));
        info.topicLabel = page->findChild<QLabel*>(QStringLiteral("topicLabel"));
        info.editTopicBtn = page->findChild<QPushButton*>(QStringLiteral("editTopicBtn"));
        if (info.editTopicBtn)
            connect(info.editTopicBtn, &QPushButton::clicked, this, [this, name] { m_window->editTopic(name); });
    }
    if (isPrivateTab(name))
        info.peerNick = name;
    tabs.insert(name, info);
    if (info.chatView) {
        ChatPage::applyBackground(info.chatView, m_window->prefs, m_window->currentTheme);
        info.chatView->setEmojiSize(m_window->prefs.emojiSize);
    }

    // After the network's last tab; a new network's server tab goes last.
    page->setProperty("network", QVariant::fromValue<QObject*>(this));
    MyTabWidget* tabWidget = m_window->tabWidget;
    int index = -1;
    for (int i = 0; i < tabWidget->count(); ++i) {
        if (of(tabWidget->widget(i)) == this)
            index = i + 1;
    }
    if (index < 0)
        index = tabWidget->count();
    changeTabsAt(m_window, index, [&] { m_window->addTabPage(page, name, index); });
    m_window->updateTabLabels();
}

QString NetworkView::findPrivateChatTab(const QString& nick) const
{
    for (auto it = tabs.cbegin(); it != tabs.cend(); ++it) {
        if (!isPrivateTab(it.key()))
            continue;
        const QString peer = it->peerNick.isEmpty() ? it.key() : it->peerNick;
        if (peer.compare(nick, Qt::CaseInsensitive) == 0)
            return it.key();
    }
    return QString();
}

void NetworkView::showTab(const QString& name)
{
    const auto it = tabs.constFind(name);
    if (it != tabs.cend())
        m_window->tabWidget->setCurrentWidget(it->widget);
}

void NetworkView::highlightTab(const QString& tabName)
{
    // Only a tab the user is not looking at is marked; switching to it clears the mark.
    auto it = tabs.find(tabName);
    if (it == tabs.end() || it->highlighted || isShown(tabName))
        return;
    const int index = m_window->tabWidget->indexOf(it->widget);
    if (index < 0)
        return;
    it->highlighted = true;
    m_window->tabBar->highlightTab(index);
}

void NetworkView::closeTab(const QString& name)
{
    if (name == ListTab)
        forgetListPage();
    m_session->closeBuffer(name);
}

void NetworkView::forgetListPage()
{
    channelListPage = nullptr;
    channelListWidget = nullptr;
    channelListModel = nullptr;
    listInfoLabel = nullptr;
}

void NetworkView::removePage(QWidget* page)
{
    const int index = m_window->tabWidget->indexOf(page);
    if (index >= 0)
        changeTabsAt(m_window, index, [&] { m_window->tabWidget->removeTab(index); });
    if (page)
        page->deleteLater();
}

void NetworkView::close()
{
    m_session->disconnect(this);
    m_session->connection()->disconnect(this);
    const QList<TabInfo> open = tabs.values();
    tabs.clear();
    for (const TabInfo& info : open)
        removePage(info.widget);
    forgetListPage();
    if (!m_session->isConnected()) {
        m_session->disconnectFromServer();
        deleteLater();
        return;
    }
    // The QUIT goes out before the connection does.
    connect(m_session, &Session::disconnected, this, &QObject::deleteLater);
    QTimer::singleShot(5000, this, &QObject::deleteLater);
    m_session->disconnectFromServer();
}

void NetworkView::openPrivateChat(const QString& nick)
{
    m_session->openBuffer(nick);
    showTab(nick);
}

void NetworkView::onBufferOpened(const QString& buffer)
{
    if (tabs.contains(buffer))
        return;
    const bool isChannel = isChannelTab(buffer);
    QWidget* page = ChatPage::create(isChannel, true, m_window->currentChatFont(), m_window->inputLine);
    registerTab(buffer, page);
    if (isChannel) {
        updateTopicLabel(buffer);
        updateTopicEditButton(buffer);
    }
    // While the user looks at the server tab, a new conversation comes to the front.
    if (isShown(ServerTab))
        m_window->tabWidget->setCurrentWidget(page);
}

void NetworkView::onBufferClosed(const QString& name)
{
    const auto found = tabs.constFind(name);
    if (found == tabs.cend())
        return;
    removePage(found->widget);
    tabs.remove(name);
    tabInputHistory.remove(name);
    m_window->updateTabLabels();
}

void NetworkView::onBufferRenamed(const QString& oldName, const QString& newName)
{
    if (!tabs.contains(oldName) || tabs.contains(newName))
        return;
    TabInfo info = tabs.take(oldName);
    info.peerNick = newName;
    tabs.insert(newName, info);
    if (tabInputHistory.contains(oldName))
        tabInputHistory.insert(newName, tabInputHistory.take(oldName));
    if (isShown(oldName)) {
        m_window->currentTabName = newName;
        m_window->updateNickCompletionModel();
    }
    info.widget->setProperty("tabKey", newName);
    m_window->updateTabLabels();
}

// --- Rows -------------------------------------------------------------------------

QString NetworkView::timestampText(qint64 msecs)
{
    // Rows arrive in bursts; the text changes at most once a second (the
    // format cannot show anything finer than milliseconds, which are kept).
    const QString& format = m_window->prefs.timestampFormat;
    const qint64 key = format.contains(QLatin1Char('z')) ? msecs : msecs / 1000;
    if (key != m_timestampKey || format != m_timestampCacheFormat) {
        m_timestampKey = key;
        m_timestampCacheFormat = format;
        m_timestampText = QDateTime::fromMSecsSinceEpoch(msecs).toString(format);
    }
    return m_timestampText;
}

void NetworkView::onLineAdded(const QString& buffer, const BufferLine& line)
{
    const auto it = tabs.constFind(buffer);
    if (it == tabs.cend())
        return;
    ChatView* view = it->chatView;
    if (!view) {
        qWarning() << "onLineAdded: chatView is null for tab" << buffer;
        return;
    }
    if (m_appendBatchDepth > 0 && !m_batchViews.contains(view)) {
        view->beginBatch();
        m_batchViews.append(view);
    }
    const ChatPreferences& prefs = m_window->prefs;
    view->setTimestampFormat(prefs.timestampFormat);
    view->appendLine(timestampText(line.time), line);
    if (prefs.scrollbackLines > 0) {
        view->trimTo(prefs.scrollbackLines);
        m_session->trimBuffer(buffer, prefs.scrollbackLines);
    }

    if (!line.is(BufferLine::Mention))
        return;
    highlightTab(buffer);
    if (isShown(buffer))
        return;
    // Titled as the tab is, with its network when another one has the same name.
    const QString title = m_window->tabWidget->tabToolTip(m_window->tabWidget->indexOf(it->widget));
    if (isChannelTab(buffer))
        m_window->showNotification(title, QStringLiteral("%1: %2").arg(line.sender, notificationBody(line.text)));
    else
        m_window->showNotification(line.sender, notificationBody(line.text));
}

void NetworkView::beginAppendBatch()
{
    ++m_appendBatchDepth;
}

void NetworkView::endAppendBatch()
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

// --- Members ----------------------------------------------------------------

void NetworkView::onMembersReset(const QString& channel)
{
    if (!isShown(channel))
        return;
    m_window->userList->fill(m_session->members(channel));
    m_window->updateNickCompletionModel();
    m_window->updateOwnUserAppearance();
}

void NetworkView::onMemberRenamed(const QString& channel, const QString& oldName, const QString& newName)
{
    if (!isShown(channel))
        return;
    m_window->userList->renameMember(oldName, newName);
    if (m_session->isOwnNick(MemberList::stripModePrefix(newName)))
        m_window->updateOwnUserAppearance();
}


// --- Topic strip ------------------------------------------------------------------

void NetworkView::updateTopicLabel(const QString& channel)
{
    const auto it = tabs.constFind(channel);
    if (it == tabs.cend() || !it->topicLabel || !it->topicBar)
        return;
    const QString topic = m_session->topic(channel);
    if (topic.isEmpty())
        it->topicLabel->clear();
    else // on the topic strip, in the theme's window colour
        it->topicLabel->setText(
            IrcText::ircTopicToHtml(topic, QColor(ThemeManager::palette(m_window->currentTheme).windowBg)));
}

void NetworkView::updateTopicEditButton(const QString& channel)
{
    const auto it = tabs.constFind(channel);
    if (it == tabs.cend() || !it->editTopicBtn)
        return;
    it->editTopicBtn->setVisible(m_session->isOperator(channel));
}

// --- Channel list -----------------------------------------------------------------

void NetworkView::createListTab()
{
    if (tabs.contains(ListTab))
        return;
    channelListPage = new ChannelListPage(m_window->currentTheme, m_window->channelSearchEdit->text());
    channelListWidget = channelListPage->view();
    channelListModel = channelListPage->model();
    listInfoLabel = channelListPage->infoLabel();
    channelListPage->setAutojoinQuery(
        [this](const QString& channel) { return m_session->autojoinChannels().contains(channel); });
    connect(channelListPage, &ChannelListPage::autojoinToggled, m_session, &Session::setAutojoin);
    connect(channelListPage, &ChannelListPage::joinRequested, this, [this](const QString& name, bool openTab) {
        if (!m_session->isConnected())
            return;
        if (openTab) {
            m_session->openBuffer(name);
            showTab(name);
        }
        m_session->join(name);
    });
    registerTab(ListTab, channelListPage);
}

void NetworkView::requestChannelList()
{
    if (!m_session->isRegistered())
        return;
    createListTab();
    channelListPage->clear();
    m_window->tabWidget->setCurrentWidget(channelListPage);
    m_session->requestChannelList();
}

// --- Networks open at exit --------------------------------------------------------

void NetworkView::storeOpenNetworks(const QList<NetworkView*>& networks)
{
    QStringList ids;
    for (const NetworkView* network : networks) {
        const Session* session = network->session();
        if (!session->serverId().isEmpty() && (session->isConnected() || session->pendingReconnectAttempt() > 0))
            ids.append(session->serverId());
    }
    QSettings settings;
    if (ids.isEmpty())
        settings.remove(OpenNetworksKey);
    else
        settings.setValue(OpenNetworksKey, ids);
    settings.sync();
}

QStringList NetworkView::storedOpenNetworks()
{
    QStringList usable;
    for (const QString& id : QSettings().value(OpenNetworksKey).toStringList()) {
        QString host;
        int port = 0;
        if (ServerStore::splitAddress(ServerStore::displayAddress(id), &host, &port) && !host.isEmpty() && port > 0
            && port <= 0xFFFF)
            usable.append(id);
    }
    return usable;
}

void NetworkView::connectStored(const QString& id)
{
    QString host;
    int port = 0;
    ServerStore::splitAddress(ServerStore::displayAddress(id), &host, &port);
    m_session->connectTo(host, quint16(port), ServerStore::loadServerConfig(id));
}
