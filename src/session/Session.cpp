#include "Session.h"

#include "IRCConnection.h"
#include "MemberList.h"
#include "ServerStore.h"
#include "SessionLog.h"

#include <QDateTime>
#include <QRandomGenerator>
#include <QDebug>
#include <QSettings>
#include <QTimer>

const QString Session::ServerBuffer = QStringLiteral("Server");
const QString Session::ListPage = QStringLiteral("List");

namespace {

// The port a reconnect uses when no connection was made through connectTo.
constexpr quint16 FallbackPort = 6667;

} // namespace

Session::BufferType Session::typeOf(const QString& name) const
{
    if (m_connection->isChannelName(name))
        return BufferType::Channel;
    if (name == ServerBuffer)
        return BufferType::Server;
    if (name == ListPage)
        return BufferType::Other;
    return BufferType::Query;
}

Session::Session(QObject* parent)
    : QObject(parent)
    , m_connection(new IRCConnection(this))
{
    m_buffers.insert(ServerBuffer, Buffer());
    m_clock.start();

    m_log = new SessionLog(this);
    m_log->setNameFolding([this](const QString& name) { return m_connection->foldCase(name); });
    // A file that cannot be written is said once; logging to it stops.
    connect(m_log, &SessionLog::writeFailed, this, [this](const QString& path, const QString& reason) {
        addLine(ServerBuffer, QStringLiteral("*** Logging to %1 stopped: %2").arg(path, reason));
    });
    m_reconnectTimer = new QTimer(this);
    m_reconnectTimer->setSingleShot(true);
    connect(m_reconnectTimer, &QTimer::timeout, this, &Session::reconnectNow);

    IRCConnection* c = m_connection;
    connect(c, &IRCConnection::connected, this, &Session::onConnected);
    connect(c, &IRCConnection::connectFailed, this, [this] {
        if (m_rejoinOnRegistration && !m_userDisconnected && !m_awaitingCertificateDecision)
            scheduleReconnect();
    });
    watchCertificates();
    connect(c, &IRCConnection::registered, this, &Session::onRegistered);
    connect(c, &IRCConnection::disconnected, this, &Session::onDisconnected);
    connect(c, &IRCConnection::errorOccurred, this,
        [this](const QString& error) { addLine(ServerBuffer, QStringLiteral("*** Error: ") + error); });
    connect(c, &IRCConnection::serverMessage, this, &Session::onServerText);
    connect(c, &IRCConnection::unhandledLine, this, &Session::onUnhandledLine);
    connect(c, &IRCConnection::privmsgReceived, this, &Session::onPrivmsg);
    connect(c, &IRCConnection::joinReceived, this, &Session::onJoin);
    connect(c, &IRCConnection::partReceived, this, &Session::onPart);
    connect(c, &IRCConnection::nickChanged, this, &Session::onNick);
    connect(c, &IRCConnection::namesList, this, &Session::onNames);
    connect(c, &IRCConnection::namesListFinished, this, &Session::onNamesFinished);
    connect(c, &IRCConnection::topicReceived, this, [this](const QString& channel, const QString& topic) {
        m_topics.insert(channel, topic);
        emit topicChanged(channel);
    });
    connect(c, &IRCConnection::quitReceived, this, &Session::onQuit);
    connect(c, &IRCConnection::kickReceived, this, &Session::onKick);
    connect(c, &IRCConnection::listStartReceived, this, &Session::onListStart);
    connect(c, &IRCConnection::listChannelReceived, this, &Session::channelListEntry);
    connect(c, &IRCConnection::listEndReceived, this, &Session::onListEnd);
    connect(c, &IRCConnection::listInfoReceived, this,
        [this](const QString& server, int channels, int users) { emit channelListInfo(server, channels, users); });
    connect(c, &IRCConnection::whoisUserReceived, this,
        [this](const QString& nick, const QString& user, const QString& host, const QString& real) {
            WhoisReply reply;
            reply.user = user;
            reply.host = host;
            reply.realname = real;
            m_whois.insert(nick, reply);
        });
    connect(c, &IRCConnection::whoisServerReceived, this,
        [this](const QString& nick, const QString& server, const QString& info) {
            WhoisReply& reply = whoisOf(nick);
            reply.server = server;
            reply.serverInfo = info;
        });
    connect(c, &IRCConnection::whoisOperatorReceived, this,
        [this](const QString& nick) { whoisOf(nick).isOperator = true; });
    connect(c, &IRCConnection::whoisIdleReceived, this, [this](const QString& nick, int idle, const QString& signon) {
        WhoisReply& reply = whoisOf(nick);
        reply.idle = idle;
        reply.signon = signon;
    });
    connect(c, &IRCConnection::whoisChannelsReceived, this,
        [this](const QString& nick, const QString& channels) { whoisOf(nick).channels = channels; });
    connect(c, &IRCConnection::whoisAwayReceived, this, [this](const QString& nick, const QString& message) {
        if (m_whois.contains(nick)) {
            whoisOf(nick).awayMsg = message;
            return;
        }
        // The answer to a message sent to someone who is away.
        const QString query = findQuery(nick);
        addLine(query.isEmpty() ? ServerBuffer : query, QStringLiteral("is away: %1").arg(message), nick, true);
    });
    connect(c, &IRCConnection::whoisEndReceived, this,
        [this](const QString&, const QString& nick) { onWhoisEnd(nick); });
    connect(c, &IRCConnection::watchStatus, this, &Session::onWatchStatus);
    connect(c, &IRCConnection::noticeReceived, this, &Session::onNotice);
    connect(c, &IRCConnection::actionReceived, this, [this](const QString& from, const QString& target, const QString& text) {
        if (typeOf(target) == BufferType::Query && !m_buffers.contains(target) && !findQuery(target).isEmpty())
            addLine(findQuery(target), text, from, false, BufferLine::Action);
        else
            addLine(target, text, from, false, BufferLine::Action);
    });
    connect(c, &IRCConnection::ctcpRequestReceived, this,
        [this](const QString& from, const QString&, const QString& command, const QString& args) {
            addLine(ServerBuffer,
                args.isEmpty() ? QStringLiteral("*** CTCP %1 from %2").arg(command, from)
                               : QStringLiteral("*** CTCP %1 from %2: %3").arg(command, from, args));
        });
    connect(c, &IRCConnection::ctcpReplyReceived, this, [this](const QString& from, const QString& command, const QString& text) {
        addLine(ServerBuffer, QStringLiteral("*** CTCP %1 reply from %2: %3").arg(command, from, text));
    });
    connect(c, &IRCConnection::topicChanged, this, [this](const QString& nick, const QString& channel, const QString& topic) {
        m_topics.insert(channel, topic);
        if (m_buffers.contains(channel))
            addLine(channel,
                topic.isEmpty() ? QStringLiteral("cleared the topic") : QStringLiteral("changed the topic to %1").arg(topic),
                nick, true);
        emit topicChanged(channel);
    });
    connect(c, &IRCConnection::modeReceived, this, &Session::onMode);
    connect(c, &IRCConnection::inviteReceived, this, [this](const QString& from, const QString& nick, const QString& channel) {
        if (!isOwnNick(nick)) // invite-notify: someone else was invited
            return;
        addLine(ServerBuffer, QStringLiteral("*** %1 invites you to %2").arg(from, channel));
        emit invited(from, channel);
    });
    connect(c, &IRCConnection::userAwayChanged, this, [this](const QString& nick, const QString& message) {
        const QString query = findQuery(nick);
        if (!query.isEmpty())
            addLine(query, message.isNull() ? QStringLiteral("is back") : QStringLiteral("is away (%1)").arg(message),
                nick, true);
        emit userAway(nick, message);
    });
    connect(c, &IRCConnection::accountChanged, this, &Session::accountChanged);
    connect(c, &IRCConnection::saslFinished, this, [this](bool success, const QString& reason) {
        addLine(ServerBuffer,
            success ? QStringLiteral("*** Logged in with SASL.")
                    : QStringLiteral("*** SASL login failed (%1); connecting without it.").arg(reason));
        emit loginFinished(success, reason);
    });
    connect(c, &IRCConnection::serverSupportChanged, this, &Session::onServerSupport);
    connect(c, &IRCConnection::errorReplyReceived, this, &Session::onErrorReply);
    connect(c, &IRCConnection::nickRejected, this, [this](const QString& nick, int numeric, const QString&) {
        m_pendingNick.clear();
        addLine(ServerBuffer,
            numeric == 432 ? QStringLiteral("Nickname %1 is not allowed on this server.").arg(nick)
                           : QStringLiteral("Nickname %1 is already in use.").arg(nick));
    });
    connect(c, &IRCConnection::ownNickChanged, this, [this](const QString& nick) {
        m_pendingNick.clear();
        emit ownNickChanged(nick);
        emit stateChanged();
    });
}

// The connection may report its end while it is destroyed with this object's
// children; by then nobody listens.
Session::~Session()
{
    m_connection->disconnect(this);
}

// --- State ------------------------------------------------------------------------

bool Session::isConnected() const
{
    return m_connection->isConnected();
}

bool Session::isRegistered() const
{
    return m_connection->isRegistered();
}

QString Session::host() const
{
    return m_connection->getHost();
}

QString Session::nick() const
{
    return m_connection->currentNick();
}

bool Session::isOwnNick(const QString& nick) const
{
    // An empty sender marks a line of the buffer itself, never the user.
    if (nick.isEmpty())
        return false;
    if (m_connection->sameName(nick, m_connection->currentNick()))
        return true;
    return !m_pendingNick.isEmpty() && m_connection->sameName(nick, m_pendingNick);
}

QString Session::networkName() const
{
    const QString network = m_connection->serverSupport().network;
    return network.isEmpty() ? host() : network;
}

QString Session::prefixSymbols() const
{
    return m_connection->serverSupport().prefixSymbols;
}

// --- Buffers ----------------------------------------------------------------------

qsizetype Session::lineCount(const QString& name) const
{
    const auto it = m_buffers.constFind(name);
    return it == m_buffers.cend() ? 0 : it->lines.size();
}

BufferLine Session::line(const QString& name, qsizetype index) const
{
    const auto it = m_buffers.constFind(name);
    return it == m_buffers.cend() ? BufferLine() : it->lines.at(index);
}

QList<BufferLine> Session::lines(const QString& name) const
{
    QList<BufferLine> result;
    const auto it = m_buffers.constFind(name);
    if (it == m_buffers.cend())
        return result;
    result.reserve(it->lines.size());
    for (qsizetype i = 0; i < it->lines.size(); ++i)
        result.append(it->lines.at(i));
    return result;
}

int Session::unreadCount(const QString& name) const
{
    return m_buffers.value(name).unread;
}

bool Session::hasUnreadMention(const QString& name) const
{
    return m_buffers.value(name).mentioned;
}

void Session::markRead(const QString& name)
{
    const auto it = m_buffers.find(name);
    if (it == m_buffers.end())
        return;
    it->unread = 0;
    it->mentioned = false;
}

void Session::trimBuffer(const QString& name, qsizetype rows)
{
    const auto it = m_buffers.find(name);
    if (it != m_buffers.end() && rows > 0 && it->lines.size() > rows)
        it->lines.removeFirst(it->lines.size() - rows);
}

QString Session::findQuery(const QString& nick) const
{
    return m_queries.value(m_connection->foldCase(nick));
}

QString Session::findBuffer(const QString& name) const
{
    if (m_buffers.contains(name))
        return name;
    const QString folded = m_connection->foldCase(name);
    for (auto it = m_buffers.cbegin(); it != m_buffers.cend(); ++it) {
        if (m_connection->foldCase(it.key()) == folded)
            return it.key();
    }
    return QString();
}

void Session::watchQuery(const QString& nick)
{
    // Follow the peer to tell when they come and go.
    const QString folded = m_connection->foldCase(nick);
    if (!m_watched.contains(folded) && m_connection->sendWatch(nick, true))
        m_watched.insert(folded);
}

bool Session::openBuffer(const QString& name)
{
    if (m_buffers.contains(name))
        return false;
    m_buffers.insert(name, Buffer());
    if (typeOf(name) == BufferType::Query) {
        m_queries.insert(m_connection->foldCase(name), name);
        m_queryOpenings.append(m_clock.elapsed());
        watchQuery(name);
    }
    emit bufferOpened(name);
    showBacklog(name);
    return true;
}

void Session::closeBuffer(const QString& name)
{
    if (name == ServerBuffer)
        return;
    const BufferType type = typeOf(name);
    if (type == BufferType::Query && m_watched.remove(m_connection->foldCase(name)))
        m_connection->sendWatch(name, false);
    if (type == BufferType::Channel && isConnected()) {
        m_leaving.insert(m_connection->foldCase(name));
        m_connection->partChannel(name);
        addLine(ServerBuffer, QStringLiteral("*** You left %1").arg(name));
    }
    m_buffers.remove(name);
    if (type == BufferType::Query)
        m_queries.remove(m_connection->foldCase(name));
    m_topics.remove(name);
    emit bufferClosed(name);
}

bool Session::mentions(const QString& text)
{
    const QString own = nick();
    if (own.isEmpty())
        return false;
    if (own != m_mentionNick || !m_mentionPattern.isValid()) {
        m_mentionNick = own;
        // The nick as a word of its own; nicks may hold [ ] { } \\ ^ | ` - _,
        // which \\b does not count as word characters.
        const QString edge = QStringLiteral("[\\w\\[\\]{}\\\\^|`-]");
        m_mentionPattern = QRegularExpression(QStringLiteral("(?<!%1)%2(?!%1)").arg(edge, QRegularExpression::escape(own)),
            QRegularExpression::CaseInsensitiveOption | QRegularExpression::UseUnicodePropertiesOption);
        m_mentionPattern.optimize();
    }
    return m_mentionPattern.match(text).hasMatch();
}

void Session::addLine(
    const QString& buffer, const QString& text, const QString& sender, bool status, quint8 extraFlags, qint64 time)
{
    BufferLine line;
    // The server's time of the message when it gives one (server-time).
    if (!time)
        time = m_connection->messageTime();
    line.time = time ? time : QDateTime::currentMSecsSinceEpoch();
    line.flags = extraFlags;
    line.sender = sender;
    const bool own = isOwnNick(sender);
    const bool ownAway = own && m_away;
    if (status)
        line.flags |= BufferLine::Status;
    if (own)
        line.flags |= BufferLine::Own;
    if (ownAway)
        line.flags |= BufferLine::OwnAway;
    line.text = ownAway && !status ? QStringLiteral("[Away: %1] %2").arg(m_awayMessage, text) : text;
    // Only what other users write mentions the user: not status rows, not
    // the server's lines.
    if (!own && !status && !sender.isEmpty()) {
        const BufferType type = typeOf(buffer);
        if ((type == BufferType::Channel && mentions(text)) || type == BufferType::Query)
            line.flags |= BufferLine::Mention;
    }

    // Rows still in flight for a channel the user closed do not open it again.
    if (!m_buffers.contains(buffer) && typeOf(buffer) == BufferType::Channel && isLeaving(buffer))
        return;
    openBuffer(buffer);
    // A receiver of bufferOpened may have closed it again.
    const auto it = m_buffers.find(buffer);
    if (it != m_buffers.end()) {
        it->lines.append(line);
        ++it->unread;
        if (line.is(BufferLine::Mention))
            it->mentioned = true;
    }
    if (m_log->isActive())
        m_log->append(networkName(), buffer, line);
    emit lineAdded(buffer, line);
}

// --- Channels ---------------------------------------------------------------------

QStringList Session::members(const QString& channel) const
{
    const auto it = m_members.constFind(channel);
    return it == m_members.cend() ? QStringList() : it->names();
}

bool Session::isOperator(const QString& channel) const
{
    if (!isConnected())
        return false;
    const auto it = m_members.constFind(channel);
    return it != m_members.cend() && it->isOperator(nick());
}

void Session::removeMember(const QString& channel, const QString& nick)
{
    const auto it = m_members.find(channel);
    if (it == m_members.end())
        return;
    const QStringList removed = it->remove(nick);
    for (const QString& name : removed)
        emit memberRemoved(channel, name);
}

// --- Connection events ------------------------------------------------------------

void Session::connectTo(const QString& host, quint16 port, const ServerConfig& config)
{
    m_awaitingCertificateDecision = false;
    cancelReconnect();
    m_userDisconnected = false;
    m_rejoinOnRegistration = false;
    // How fast lines go out; tests shorten it.
    const QSettings settings;
    IRCConnection::SendPacing pacing;
    pacing.burst = qBound(1, settings.value(QStringLiteral("sendBurst"), pacing.burst).toInt(), 100);
    pacing.intervalMs = qBound(0, settings.value(QStringLiteral("sendInterval"), pacing.intervalMs).toInt(), 60000);
    m_connection->setSendPacing(pacing);
    m_autojoin = config.autojoinChannels;
    m_connection->setServerConfig(config);
    m_port = port;
    m_connection->connectToServer(host, port, config.nickname, config.realName, config.useSsl);
    m_serverId = QStringLiteral("%1_%2").arg(host, QString::number(port));
    saveServerRecord();
}

void Session::rememberServerRecord()
{
    if (!isConnected() || m_serverId.isEmpty())
        return;
    ServerConfig config = m_connection->serverConfig();
    config.autojoinChannels = m_autojoin;
    m_connection->setServerConfig(config);
    saveServerRecord();
}

void Session::disconnectFromServer()
{
    m_userDisconnected = true;
    cancelReconnect();
    if (isConnected())
        saveServerRecord();
    m_connection->disconnectFromServer();
}

void Session::setKeepAlive(int intervalSec, int timeoutSec)
{
    IRCConnection::KeepAliveTiming timing = m_connection->keepAliveTiming();
    timing.idleBeforePingMs = qint64(qBound(1, intervalSec, 3600)) * 1000;
    timing.pingTimeoutMs = qint64(qBound(1, timeoutSec, 3600)) * 1000;
    // Checked often enough to notice a short timeout in time.
    timing.checkIntervalMs = int(qMin<qint64>(10000, qMin(timing.idleBeforePingMs, timing.pingTimeoutMs) / 2));
    m_connection->setKeepAliveTiming(timing);
}

void Session::scheduleReconnect()
{
    if (!m_reconnectPolicy.enabled || host().isEmpty()) {
        m_reconnectAttempt = 0;
        return;
    }
    ++m_reconnectAttempt;
    if (m_reconnectPolicy.maxAttempts > 0 && m_reconnectAttempt > m_reconnectPolicy.maxAttempts) {
        addLine(ServerBuffer,
            QStringLiteral("*** Gave up reconnecting after %1 attempts.").arg(m_reconnectPolicy.maxAttempts));
        m_reconnectAttempt = 0;
        m_rejoinOnRegistration = false;
        return;
    }
    // delay, 2x, 4x ... up to five minutes, and up to a tenth more or less so
    // that many clients dropped at once do not come back at once.
    const int doublings = qMin(m_reconnectAttempt - 1, 16);
    const qint64 base = qMin<qint64>(qint64(qMax(1, m_reconnectPolicy.delaySec)) << doublings, MaxReconnectDelaySec);
    const double jitter = 0.9 + 0.2 * QRandomGenerator::global()->generateDouble();
    const qint64 delayMs = qMin<qint64>(qint64(double(base) * 1000 * jitter), qint64(MaxReconnectDelaySec) * 1000);
    m_rejoinOnRegistration = true;
    addLine(ServerBuffer,
        QStringLiteral("*** Reconnecting in %1 s (attempt %2)...")
            .arg(QString::number(qMax<qint64>(1, (delayMs + 500) / 1000)), QString::number(m_reconnectAttempt)));
    m_reconnectTimer->start(int(delayMs));
}

int Session::pendingReconnectAttempt() const
{
    return m_reconnectTimer->isActive() ? m_reconnectAttempt : 0;
}

void Session::cancelReconnect()
{
    m_reconnectTimer->stop();
    m_reconnectAttempt = 0;
}

void Session::reconnectNow()
{
    m_reconnectTimer->stop();
    m_userDisconnected = false;
    m_rejoinOnRegistration = true;
    // Back to the port that was used (the default IRC port when the
    // connection was not made through connectTo).
    const quint16 port = m_port ? m_port : FallbackPort;
    addLine(ServerBuffer, QStringLiteral("*** Connecting to %1:%2...").arg(host(), QString::number(port)));
    const ServerConfig config = m_connection->serverConfig();
    m_connection->connectToServer(host(), port, config.nickname, config.realName, config.useSsl);
}

void Session::trustCertificate(const QString& fingerprint, bool always)
{
    m_awaitingCertificateDecision = false;
    if (always) {
        ServerConfig config = m_connection->serverConfig();
        config.certFingerprint = fingerprint;
        m_connection->setServerConfig(config);
        if (!m_serverId.isEmpty())
            saveServerRecord();
    } else {
        m_connection->acceptCertificateOnce(fingerprint);
    }
    // A first connection stays a first connection: nothing to rejoin.
    const bool continuing = m_rejoinOnRegistration;
    reconnectNow();
    m_rejoinOnRegistration = continuing;
}

void Session::reconnect()
{
    if (host().isEmpty()) {
        addLine(ServerBuffer, QStringLiteral("*** No server to reconnect to: connect first."));
        return;
    }
    if (!isConnected()) {
        m_reconnectAttempt = 0;
        reconnectNow();
        return;
    }
    saveServerRecord();
    m_userDisconnected = true;
    m_connection->disconnectFromServer();
    m_reconnectTimer->start(1000);
}

void Session::sendMessage(const QString& target, const QString& text)
{
    // Shown as it went out: one row per line and per piece of a long line.
    const QStringList pieces = m_connection->sendPrivmsg(target, text);
    for (const QString& piece : pieces)
        addLine(target, piece, nick());
}

void Session::sendNotice(const QString& target, const QString& text)
{
    const QStringList pieces = m_connection->sendNotice(target, text);
    // Shown in the target's buffer when one is open; a notice opens no conversation.
    QString buffer = findBuffer(target);
    if (buffer.isEmpty())
        buffer = m_buffers.contains(m_currentBuffer) ? m_currentBuffer : ServerBuffer;
    for (const QString& piece : pieces)
        addLine(buffer, QStringLiteral("-> -%1- %2").arg(target, piece), QString(), false, BufferLine::Notice);
}

void Session::sendAction(const QString& target, const QString& text)
{
    // The \x01 wrapping and "ACTION " take their bytes from the budget.
    const int budget = m_connection->messageBudget(target) - 9;
    const QStringList pieces = IRCConnection::splitText(text, budget);
    for (const QString& piece : pieces) {
        m_connection->sendRaw(QStringLiteral("PRIVMSG %1 :\x01" "ACTION %2\x01").arg(target, piece));
        addLine(target, piece, nick(), false, BufferLine::Action);
    }
}

void Session::sendRaw(const QString& line)
{
    m_connection->sendRaw(line);
}

void Session::part(const QString& channel)
{
    m_connection->partChannel(channel);
}

void Session::changeNick(const QString& nick)
{
    if (m_away)
        setBack(false);
    m_pendingNick = nick;
    m_connection->changeNick(nick);
}

// The line goes to every channel and query once the current event is
// handled, as it reads now: going away and coming back at once still gives
// "is away (reason)" then "is back", and a buffer closed meanwhile stays closed.
void Session::announce(const QString& text)
{
    const QString own = nick();
    for (auto it = m_buffers.cbegin(); it != m_buffers.cend(); ++it) {
        const QString buffer = it.key();
        const BufferType type = typeOf(buffer);
        if (type == BufferType::Server || type == BufferType::Other)
            continue;
        QTimer::singleShot(0, this, [this, buffer, text, own] {
            if (m_buffers.contains(buffer))
                addLine(buffer, text, own, true);
        });
    }
}

void Session::setAway(const QString& message)
{
    m_away = true;
    m_awayMessage = message;
    m_connection->sendRaw(QStringLiteral("AWAY :") + message);
    addLine(ServerBuffer, QStringLiteral("*** You are marked as away (") + message + QLatin1Char(')'));
    announce(QStringLiteral("is away (%1)").arg(message));
    emit awayChanged(true);
}

void Session::setBack(bool announceInBuffers)
{
    m_connection->sendRaw(QStringLiteral("AWAY"));
    m_away = false;
    m_awayMessage.clear();
    addLine(ServerBuffer, QStringLiteral("*** You are back"));
    if (announceInBuffers)
        announce(QStringLiteral("is back"));
    emit awayChanged(false);
}

void Session::whois(const QString& nick, const QString& replyBuffer)
{
    m_whoisBuffer = replyBuffer;
    m_connection->sendWhois(nick);
}

bool Session::requestChannelList()
{
    if (!isRegistered())
        return false;
    m_connection->sendRaw(QStringLiteral("LIST"));
    return true;
}

void Session::setTopic(const QString& channel, const QString& text)
{
    // A topic is one line: its line breaks become spaces.
    QString topic = text;
    topic.replace(QLatin1String("\r\n"), QLatin1String(" ")).replace(QLatin1Char('\n'), QLatin1Char(' ')).replace(QLatin1Char('\r'), QLatin1Char(' '));
    m_connection->sendRaw(QStringLiteral("TOPIC %1 :%2").arg(channel, topic));
    m_topics.insert(channel, topic);
    emit topicChanged(channel);
}

void Session::kick(const QString& channel, const QString& nick, const QString& reason)
{
    m_connection->sendRaw(QStringLiteral("KICK %1 %2 :%3").arg(channel, nick, reason));
}

void Session::ban(const QString& channel, const QString& nick)
{
    m_connection->sendRaw(QStringLiteral("MODE %1 +b %2!*@*").arg(channel, nick));
}

void Session::setAutojoin(const QString& channel, bool enable)
{
    const QString name = channel.startsWith(QLatin1Char('#')) ? channel : QLatin1Char('#') + channel;
    if (enable) {
        if (!m_autojoin.contains(name))
            m_autojoin.append(name);
    } else {
        m_autojoin.removeAll(name);
    }
    ServerConfig config = m_connection->serverConfig();
    config.autojoinChannels = m_autojoin;
    m_connection->setServerConfig(config);
    saveServerRecord();
    addLine(ServerBuffer,
        enable ? QStringLiteral("*** Added %1 to autojoin list").arg(name)
               : QStringLiteral("*** Removed %1 from autojoin list").arg(name));
}

void Session::saveServerRecord()
{
    if (m_serverId.isEmpty()) {
        qWarning() << "saveServerRecord: no current server";
        return;
    }
    ServerStore::saveServerConfig(m_serverId, m_connection->serverConfig(), ServerStore::OddAddress::Skip);
    if (ServerStore::passwordsKeptInSettingsFile() && !m_toldAboutPasswordFile) {
        m_toldAboutPasswordFile = true;
        addLine(ServerBuffer,
            QStringLiteral("*** No system keyring answered: the server password is kept in the settings file, "
                           "which only you can read."));
    }
}

void Session::loadServerRecord()
{
    if (m_serverId.isEmpty())
        return;
    // Keys missing from the store keep what the connection has.
    const ServerConfig config = ServerStore::loadServerConfig(m_serverId, m_connection->serverConfig());
    m_connection->setServerConfig(config);
    m_autojoin = config.autojoinChannels;
}

void Session::part(const QString& channel, const QString& reason)
{
    m_connection->sendRaw(QStringLiteral("PART %1 :%2").arg(channel, reason));
}

void Session::join(const QString& channels, const QString& keys)
{
    // Keys go with the channels in their order; kept for joining again after a drop.
    const QStringList names = channels.split(QLatin1Char(','), Qt::SkipEmptyParts);
    const QStringList given = keys.split(QLatin1Char(','));
    for (qsizetype i = 0; i < names.size(); ++i) {
        const QString folded = m_connection->foldCase(names.at(i));
        m_leaving.remove(folded);
        if (i < given.size() && !given.at(i).isEmpty())
            m_channelKeys.insert(folded, given.at(i));
    }
    if (keys.isEmpty())
        m_connection->joinChannel(channels);
    else
        m_connection->sendRaw(QStringLiteral("JOIN %1 %2").arg(channels, keys));
}

void Session::quit(const QString& reason)
{
    m_userDisconnected = true;
    cancelReconnect();
    if (isConnected() && !m_serverId.isEmpty())
        saveServerRecord();
    m_connection->disconnectFromServer(reason);
}

void Session::mode(const QString& target, const QString& modes)
{
    if (modes.isEmpty())
        m_connection->sendRaw(QStringLiteral("MODE ") + target);
    else
        m_connection->sendRaw(QStringLiteral("MODE %1 %2").arg(target, modes));
}

void Session::invite(const QString& nick, const QString& channel)
{
    m_connection->sendRaw(QStringLiteral("INVITE %1 %2").arg(nick, channel));
}

void Session::who(const QString& mask)
{
    m_connection->sendRaw(QStringLiteral("WHO ") + mask);
}

void Session::ctcp(const QString& target, const QString& request)
{
    m_connection->sendRaw(QStringLiteral("PRIVMSG %1 :\x01%2\x01").arg(target, request));
}

void Session::clearBuffer(const QString& name)
{
    const auto it = m_buffers.find(name);
    if (it == m_buffers.end())
        return;
    it->lines.clear();
    it->unread = 0;
    it->mentioned = false;
}
