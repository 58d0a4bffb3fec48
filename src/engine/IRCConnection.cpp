#include "IRCConnection.h"

#include "IRCParser.h"

#include <QCryptographicHash>
#include <QDateTime>
#include <QPointer>
#include <QSslCertificate>
#include <QSslError>
#include <QSslSocket>
#include <QStringDecoder>
#include <QTcpSocket>
#include <QTimer>

#include <limits>
#include <utility>

namespace {

const QString NotConnectedError = QStringLiteral("Socket is not connected");
const QString NicksExhaustedError
    = QStringLiteral("All nicknames are in use. Please choose a different nick.");
const QString OversizeLineError
    = QStringLiteral("Received a line longer than 64 KiB without a line end; it was discarded.");
const QString SleepReason = QStringLiteral("An IRC connection is open");
constexpr int MaxNickLength = 30;
constexpr int GeneratedNickCount = 100;

// How many UTF-16 units of text fit in maxBytes of UTF-8 without cutting a character.
qsizetype utf8Fit(QStringView text, int maxBytes)
{
    int bytes = 0;
    qsizetype i = 0;
    while (i < text.size()) {
        const char16_t c = text.at(i).unicode();
        const bool pair
            = QChar::isHighSurrogate(c) && i + 1 < text.size() && text.at(i + 1).isLowSurrogate();
        const int cost = pair ? 4 : c < 0x80 ? 1 : c < 0x800 ? 2 : 3;
        if (bytes + cost > maxBytes)
            break;
        bytes += cost;
        i += pair ? 2 : 1;
    }
    return i;
}

// One received line, decoded: UTF-8 when it is valid UTF-8, ISO-8859-1
// otherwise, so no byte is ever dropped or replaced.
QString decodeLine(const char* data, qsizetype size)
{
    bool ascii = true;
    for (qsizetype i = 0; i < size; ++i) {
        if (static_cast<unsigned char>(data[i]) >= 0x80) {
            ascii = false;
            break;
        }
    }
    if (ascii)
        return QString::fromLatin1(data, size);
    QStringDecoder decoder(QStringConverter::Utf8,
        QStringConverter::Flag::Stateless | QStringConverter::Flag::ConvertInitialBom);
    QString text = decoder.decode(QByteArrayView(data, size));
    if (decoder.hasError())
        return QString::fromLatin1(data, size);
    return text;
}

} // namespace

IRCConnection::IRCConnection(QObject* parent)
    : QObject(parent)
{
    m_steadyClock.start();
    keepAliveTimer = new QTimer(this);
    connect(keepAliveTimer, &QTimer::timeout, this, &IRCConnection::checkKeepAlive);
    m_sendTimer = new QTimer(this);
    m_sendTimer->setSingleShot(true);
    connect(m_sendTimer, &QTimer::timeout, this, &IRCConnection::flushQueue);
    connect(this, &IRCConnection::nickChanged, this, &IRCConnection::onOwnNickChanged);
}

IRCConnection::~IRCConnection()
{
    // Nobody should hear from a connection that is going away.
    if (socket)
        socket->disconnect(this);
    disconnectFromServer();
}

void IRCConnection::connectToServer(
    const QString& host, quint16 port, const QString& nick, const QString& realName, bool useSsl)
{
    m_userHost.clear();
    this->host = host;
    this->port = port;
    this->realName = realName;
    this->useSsl = useSsl;
    away = false;
    m_registered = false;

    generateNickAlternatives(nick, m_serverConfig.altNickname);
    if (pendingNicks.isEmpty()) {
        nickName = nick;
    } else {
        nickName = pendingNicks.constFirst();
        nickAttemptIndex = 0;
    }

    if (socket) {
        // The old socket is left to go on its own; it no longer speaks for us.
        socket->disconnect(this);
        socket->deleteLater();
        socket = nullptr;
    }
    buffer.clear();
    m_discardingLine = false;

    QSslSocket* sslSocket = useSsl ? new QSslSocket(this) : nullptr;
    socket = sslSocket ? sslSocket : new QTcpSocket(this);
    m_linkUp = false;
    // Wired before connecting, so that an error found at once is not lost.
    // A TLS link is up once its handshake succeeded, not when TCP connects.
    if (sslSocket) {
        connect(sslSocket, &QSslSocket::encrypted, this, [this] {
            if (!pinnedCertificateDiffers())
                onConnected();
        });
        connect(sslSocket, &QSslSocket::sslErrors, this, &IRCConnection::onSslErrors);
    }
    else
        connect(socket, &QTcpSocket::connected, this, &IRCConnection::onConnected);
    connect(socket, &QTcpSocket::disconnected, this, &IRCConnection::onDisconnected);
    connect(socket, &QTcpSocket::readyRead, this, &IRCConnection::onReadyRead);
    connect(socket, &QTcpSocket::errorOccurred, this, &IRCConnection::onError);
    if (sslSocket)
        sslSocket->connectToHostEncrypted(host, port, QIODevice::ReadWrite, QAbstractSocket::AnyIPProtocol);
    else
        socket->connectToHost(host, port, QIODevice::ReadWrite, QAbstractSocket::AnyIPProtocol);
    socket->setSocketOption(QAbstractSocket::KeepAliveOption, 1);
    socket->setSocketOption(QAbstractSocket::LowDelayOption, 1);
}

void IRCConnection::disconnectFromServer(const QString& reason)
{
    m_sendQueue.clear();
    m_sendTimer->stop();
    if (isConnected()) {
        // Past the queue: the link goes right after it.
        socket->write(wireLine(QStringLiteral("QUIT :") + reason).toUtf8() + "\r\n");
        socket->flush();
        socket->disconnectFromHost();
    } else if (socket && socket->state() != QAbstractSocket::UnconnectedState) {
        // Still looking up, connecting or in the TLS handshake: give up
        // rather than register later.
        socket->disconnect(this);
        socket->abort();
    }
    keepAliveTimer->stop();
    enableSleep();
}

void IRCConnection::sendRaw(const QString& line)
{
    if (!m_sendObserver && !isConnected()) {
        emit errorOccurred(NotConnectedError);
        return;
    }
    if (!m_registered) {
        // Registration is not paced: the server waits for it.
        writeLine(line);
        return;
    }
    m_sendQueue.append(line);
    flushQueue();
}

void IRCConnection::flushQueue()
{
    const qint64 current = m_steadyClock.elapsed();
    const int interval = qMax(1, m_pacing.intervalMs);
    m_sendTokens = qMin<double>(qMax(1, m_pacing.burst), m_sendTokens + double(current - m_tokensAt) / interval);
    m_tokensAt = current;
    while (!m_sendQueue.isEmpty() && m_sendTokens >= 1) {
        m_sendTokens -= 1;
        writeLine(m_sendQueue.takeFirst());
        // A receiver of errorOccurred may have dropped the link meanwhile.
        if (!m_sendObserver && !isConnected()) {
            m_sendQueue.clear();
            return;
        }
    }
    if (!m_sendQueue.isEmpty() && !m_sendTimer->isActive())
        m_sendTimer->start(int((1 - m_sendTokens) * interval) + 1);
}

QString IRCConnection::wireLine(const QString& line) const
{
    // One line goes out as one line: whatever follows an embedded line break
    // (or a NUL, which no IRC line may hold) is dropped, so text taken from the
    // server can never smuggle in a command. A longer line than the server
    // takes is cut, between characters.
    qsizetype end = line.size();
    for (qsizetype i = 0; i < line.size(); ++i) {
        const char16_t c = line.at(i).unicode();
        if (c == u'\r' || c == u'\n' || c == u'\0') {
            end = i;
            break;
        }
    }
    const QStringView kept = QStringView(line).left(end);
    return kept.left(utf8Fit(kept, m_support.lineLen - 2)).toString();
}

void IRCConnection::writeLine(const QString& line)
{
    const QString cut = wireLine(line);
    if (m_sendObserver) {
        m_sendObserver(cut);
        return;
    }
    if (!isConnected()) {
        emit errorOccurred(NotConnectedError);
        return;
    }
    QByteArray bytes = cut.toUtf8();
    bytes.append("\r\n", 2);
    if (socket->write(bytes) == -1) {
        emit errorOccurred(socket->errorString());
        return;
    }
    lastActivity = now();
}

void IRCConnection::joinChannel(const QString& channel)
{
    sendRaw(QStringLiteral("JOIN ") + channel);
}

void IRCConnection::partChannel(const QString& channel)
{
    sendRaw(QStringLiteral("PART ") + channel + QStringLiteral(" :Leaving"));
}

QStringList IRCConnection::sendPrivmsg(const QString& target, const QString& text)
{
    return sendSplit(QStringLiteral("PRIVMSG"), target, text);
}

QStringList IRCConnection::sendNotice(const QString& target, const QString& text)
{
    return sendSplit(QStringLiteral("NOTICE"), target, text);
}

QStringList IRCConnection::sendSplit(const QString& command, const QString& target, const QString& text)
{
    const QStringList pieces = splitText(text, messageBudget(target));
    for (const QString& piece : pieces)
        sendRaw(command + QLatin1Char(' ') + target + QStringLiteral(" :") + piece);
    return pieces;
}

int IRCConnection::messageBudget(const QString& target) const
{
    // user (up to 10) "@" host (up to 63) while the server has not shown it.
    constexpr int UnknownUserHost = 74;
    const int prefix = 1 + int(currentNick().toUtf8().size()) + 1
        + (m_userHost.isEmpty() ? UnknownUserHost : int(m_userHost.toUtf8().size())) + 1;
    const int command = int(QStringLiteral("PRIVMSG ").size() + target.toUtf8().size() + 2);
    return qMax(32, m_support.lineLen - 2 - prefix - command);
}

QStringList IRCConnection::splitText(const QString& text, int maxBytes)
{
    QStringList pieces;
    QString lines = text;
    lines.replace(QLatin1String("\r\n"), QLatin1String("\n"));
    lines.replace(QLatin1Char('\r'), QLatin1Char('\n'));
    const QList<QStringView> parts = QStringView(lines).split(u'\n', Qt::SkipEmptyParts);
    for (QStringView rest : parts) {
        while (!rest.isEmpty()) {
            qsizetype fit = utf8Fit(rest, maxBytes);
            if (fit == rest.size()) {
                pieces.append(rest.toString());
                break;
            }
            const qsizetype space = rest.left(fit + 1).lastIndexOf(u' ');
            if (space > 0) {
                pieces.append(rest.left(space).toString());
                rest = rest.mid(space + 1);
            } else {
                fit = qMax<qsizetype>(fit, 1);
                pieces.append(rest.left(fit).toString());
                rest = rest.mid(fit);
            }
        }
    }
    return pieces;
}

void IRCConnection::changeNick(const QString& nick)
{
    sendRaw(QStringLiteral("NICK ") + nick);
}

void IRCConnection::sendWhois(const QString& nick)
{
    sendRaw(QStringLiteral("WHOIS ") + nick);
}

bool IRCConnection::sendWatch(const QString& nick, bool add)
{
    if (!isConnected() && !m_sendObserver)
        return false;
    const QString sign = add ? QStringLiteral("+") : QStringLiteral("-");
    if (m_support.watch)
        sendRaw(QStringLiteral("WATCH %1%2").arg(sign, nick));
    else if (m_support.monitor)
        sendRaw(QStringLiteral("MONITOR %1 %2").arg(sign, nick));
    else
        return false;
    return true;
}

bool IRCConnection::isChannelName(const QString& name) const
{
    return !name.isEmpty() && m_support.chanTypes.contains(name.front());
}

QString IRCConnection::foldCase(const QString& name) const
{
    // ASCII letters always; rfc1459 also folds []\~ to {}|^ (strict-rfc1459
    // all but ~). Anything else is compared as it is.
    const bool rfc = m_support.caseMapping.startsWith(QLatin1String("rfc1459"))
        || m_support.caseMapping == QLatin1String("strict-rfc1459");
    const bool tilde = m_support.caseMapping != QLatin1String("strict-rfc1459");
    QString folded = name;
    for (QChar& ch : folded) {
        const char16_t c = ch.unicode();
        if (c >= u'A' && c <= u'Z')
            ch = QChar(c + 32);
        else if (rfc && (c == u'[' || c == u']' || c == u'\\'))
            ch = QChar(c + 32);
        else if (rfc && tilde && c == u'~')
            ch = QChar(u'^');
    }
    return folded;
}

// A message to "@#chan" (STATUSMSG) belongs to #chan.
QString IRCConnection::messageTarget(const QString& target) const
{
    if (target.size() > 1 && m_support.statusMsg.contains(target.front()) && isChannelName(target.mid(1)))
        return target.mid(1);
    return target;
}

QString IRCConnection::loginAccount() const
{
    return m_serverConfig.account.isEmpty() ? m_serverConfig.nickname : m_serverConfig.account;
}

bool IRCConnection::isConnected() const
{
    return socket && socket->state() == QAbstractSocket::ConnectedState && m_linkUp;
}

bool IRCConnection::isRegistered() const
{
    return m_registered;
}

void IRCConnection::setRegistered(bool registered)
{
    m_registered = registered;
}

QString IRCConnection::currentNick() const
{
    return nickName;
}

QString IRCConnection::getHost() const
{
    return host;
}

bool IRCConnection::isAway() const
{
    return away;
}

void IRCConnection::setAway(bool away)
{
    this->away = away;
}

void IRCConnection::resetListCounters()
{
    totalListChannels = 0;
    totalListUsers = 0;
    listServerName.clear();
}

void IRCConnection::addListChannel(int userCount)
{
    // Counts come from the server; saturate rather than overflow.
    constexpr qint64 max = std::numeric_limits<int>::max();
    constexpr qint64 min = std::numeric_limits<int>::min();
    totalListChannels = static_cast<int>(qMin<qint64>(qint64(totalListChannels) + 1, max));
    totalListUsers = static_cast<int>(qBound(min, qint64(totalListUsers) + userCount, max));
}

void IRCConnection::setListServerName(const QString& name)
{
    listServerName = name;
}

QString IRCConnection::getListServerName() const
{
    return listServerName;
}

int IRCConnection::getTotalListChannels() const
{
    return totalListChannels;
}

int IRCConnection::getTotalListUsers() const
{
    return totalListUsers;
}

void IRCConnection::setServerConfig(const ServerConfig& config)
{
    m_serverConfig = config;
}

ServerConfig IRCConnection::serverConfig() const
{
    return m_serverConfig;
}

void IRCConnection::tryNextNick()
{
    ++nickAttemptIndex;
    if (nickAttemptIndex < pendingNicks.size()) {
        const QString candidate = pendingNicks.at(nickAttemptIndex);
        const QString oldNick = nickName;
        nickName = candidate;
        sendRaw(QStringLiteral("NICK ") + candidate);
        emit nickChanged(oldNick, candidate);
    } else {
        // Stay at the end so that further rejections keep reporting exhaustion.
        nickAttemptIndex = pendingNicks.size();
        emit errorOccurred(NicksExhaustedError);
    }
}

QStringList IRCConnection::nickCandidates() const
{
    return pendingNicks;
}

void IRCConnection::setKeepAliveClock(Clock clock)
{
    m_clock = std::move(clock);
}

void IRCConnection::setKeepAliveTiming(const KeepAliveTiming& timing)
{
    m_timing = timing;
    if (keepAliveTimer->isActive())
        keepAliveTimer->start(m_timing.checkIntervalMs);
}

IRCConnection::KeepAliveTiming IRCConnection::keepAliveTiming() const
{
    return m_timing;
}

bool IRCConnection::isKeepAliveRunning() const
{
    return keepAliveTimer->isActive();
}

bool IRCConnection::isPingPending() const
{
    return pingPending;
}

bool IRCConnection::isSleepInhibited() const
{
    return sleepInhibited;
}

const PlatformPower& IRCConnection::platformPower() const
{
    return m_power;
}

void IRCConnection::checkKeepAlive()
{
    if (!isConnected())
        return;
    const qint64 current = now();
    if (pingPending && current - pingSentTimer > m_timing.pingTimeoutMs) {
        emit errorOccurred(QStringLiteral("Ping timeout: no response to PING for %1s")
                               .arg(QString::number(m_timing.pingTimeoutMs / 1000)));
        if (socket)
            socket->disconnectFromHost();
        return;
    }
    if (!pingPending && current - lastActivity > m_timing.idleBeforePingMs) {
        // Past any paced lines: the answer must not wait behind a paste.
        writeLine(QStringLiteral("PING :") + QDateTime::currentDateTime().toString(Qt::ISODate));
        pingSentTimer = now();
        pingPending = true;
    }
}

void IRCConnection::onConnected()
{
    m_linkUp = true;
    configureSocketKeepAlive();
    lastActivity = now();
    pingPending = false;
    keepAliveTimer->start(m_timing.checkIntervalMs);
    disableSleep();
    m_support = ServerSupport();
    m_enabledCaps.clear();
    m_offeredCaps.clear();
    m_saslMechanisms.clear();
    m_saslRunning = false;
    m_capNegotiating = true;
    m_sendTokens = m_pacing.burst;
    m_tokensAt = m_steadyClock.elapsed();
    if (m_serverConfig.authMethod == QLatin1String("Server Password (PASS)") && !m_serverConfig.password.isEmpty())
        writeLine(QStringLiteral("PASS :") + m_serverConfig.password);
    // Servers without capabilities answer 421 and register all the same.
    writeLine(QStringLiteral("CAP LS 302"));
    writeLine(QStringLiteral("NICK ") + nickName);
    // An empty real name is refused by servers (461): the nick stands in.
    writeLine(QStringLiteral("USER ") + nickName + QStringLiteral(" 0 * :") + (realName.isEmpty() ? nickName : realName));
    emit connected();
}

QString IRCConnection::fingerprintOf(const QSslCertificate& certificate)
{
    return QString::fromLatin1(certificate.digest(QCryptographicHash::Sha256).toHex(':').toUpper());
}

// A certificate the system trusts, but not the one pinned for this server.
bool IRCConnection::pinnedCertificateDiffers()
{
    auto* ssl = qobject_cast<QSslSocket*>(socket);
    const QString pinned = m_serverConfig.certFingerprint;
    if (!ssl || pinned.isEmpty())
        return false;
    const QString presented = fingerprintOf(ssl->peerCertificate());
    if (presented.compare(pinned, Qt::CaseInsensitive) == 0)
        return false;
    emit certificateChanged(pinned, presented);
    ssl->abort();
    return true;
}

void IRCConnection::onSslErrors(const QList<QSslError>& errors)
{
    auto* ssl = qobject_cast<QSslSocket*>(sender());
    if (!ssl || ssl != socket)
        return;
    const QSslCertificate certificate = ssl->peerCertificate();
    const QString presented = fingerprintOf(certificate);
    const QString pinned = m_serverConfig.certFingerprint;
    QStringList reasons;
    for (const QSslError& error : errors)
        reasons.append(error.errorString());
    if (!pinned.isEmpty()) {
        // The user's own decision for this server stands, either way.
        if (presented.compare(pinned, Qt::CaseInsensitive) == 0)
            ssl->ignoreSslErrors();
        else
            emit certificateChanged(pinned, presented);
        return;
    }
    const QString once = std::exchange(m_acceptOnce, QString());
    if (!once.isEmpty() && presented.compare(once, Qt::CaseInsensitive) == 0) {
        ssl->ignoreSslErrors();
        return;
    }
    if (m_acceptInvalidCertificates) {
        ssl->ignoreSslErrors();
        emit certificateAcceptedDespite(reasons);
        return;
    }
    CertificateInfo info;
    info.host = host;
    info.port = port;
    info.errors = reasons;
    info.subject = certificate.subjectDisplayName();
    info.issuer = certificate.issuerDisplayName();
    info.validFrom = certificate.effectiveDate().toString(Qt::ISODate);
    info.validUntil = certificate.expiryDate().toString(Qt::ISODate);
    info.fingerprint = presented;
    emit certificateUntrusted(info);
}

void IRCConnection::onDisconnected()
{
    m_sendQueue.clear();
    m_sendTimer->stop();
    keepAliveTimer->stop();
    enableSleep();
    if (!m_linkUp) {
        // TCP came up but the TLS handshake did not: the link never was.
        emit connectFailed();
        return;
    }
    m_linkUp = false;
    emit disconnected();
}

void IRCConnection::onReadyRead()
{
    if (!socket)
        return;
    lastActivity = now();
    pingPending = false;
    receiveBytes(socket->readAll());
}

void IRCConnection::receiveBytes(const QByteArray& bytes)
{
    buffer.append(bytes);
    processBuffer();
}

void IRCConnection::setSendObserver(SendObserver observer)
{
    m_sendObserver = std::move(observer);
}

void IRCConnection::onError(QAbstractSocket::SocketError socketError)
{
    auto* source = qobject_cast<QAbstractSocket*>(sender());
    if (!source)
        source = socket;
    if (!source)
        return;
    // A connection that never came up gets no disconnected signal; do not
    // keep the system awake for it.
    const bool neverUp = source == socket && source->state() == QAbstractSocket::UnconnectedState && !m_linkUp;
    if (source == socket && source->state() == QAbstractSocket::UnconnectedState) {
        keepAliveTimer->stop();
        enableSleep();
    }
    emit errorOccurred(source->errorString());
    if (neverUp && socketError != QAbstractSocket::SslHandshakeFailedError)
        emit connectFailed();
}

void IRCConnection::configureSocketKeepAlive()
{
    if (socket && socket->socketDescriptor() >= 0)
        PlatformPower::configureTcpKeepAlive(socket->socketDescriptor());
}

void IRCConnection::disableSleep()
{
    if (sleepInhibited)
        return;
    m_power.inhibitSleep(SleepReason);
    sleepInhibited = true;
}

void IRCConnection::enableSleep()
{
    if (!sleepInhibited)
        return;
    m_power.releaseSleep();
    sleepInhibited = false;
}

void IRCConnection::generateNickAlternatives(const QString& primary, const QString& alt)
{
    pendingNicks.clear();
    nickAttemptIndex = 0;
    pendingNicks.append(primary);
    if (!alt.isEmpty() && alt != primary)
        pendingNicks.append(alt);
    for (int i = 0; i < GeneratedNickCount; ++i) {
        QString suffix;
        if (i == 0)
            suffix = QStringLiteral("_");
        else if (i < 10)
            suffix = QStringLiteral("_%1").arg(i);
        else
            suffix = QStringLiteral("__%1").arg(i);
        const QString candidate = primary.left(MaxNickLength - suffix.size()) + suffix;
        if (!pendingNicks.contains(candidate))
            pendingNicks.append(candidate);
    }
}

void IRCConnection::onOwnNickChanged(const QString& oldNick, const QString& newNick)
{
    if (oldNick != nickName)
        return;
    nickName = newNick;
    emit ownNickChanged(newNick);
}

void IRCConnection::processBuffer()
{
    // A receiver that runs a nested event loop (a modal dialog, say) lets
    // more bytes arrive while a line is being delivered. They are only
    // appended here; the delivery already under way reaches them in order.
    if (m_processingBuffer)
        return;
    m_processingBuffer = true;
    const QPointer<IRCConnection> guard(this);
    QTcpSocket* const readingSocket = socket;
    // A receiver may replace the socket or delete us while we deliver; then
    // the rest of what was read is no longer ours. Bytes of the new socket
    // that arrived meanwhile are delivered from the event loop.
    auto abandoned = [&]() {
        if (!guard)
            return true;
        if (socket == readingSocket)
            return false;
        m_processingBuffer = false;
        if (buffer.contains('\n'))
            QMetaObject::invokeMethod(this, &IRCConnection::processBuffer, Qt::QueuedConnection);
        return true;
    };
    qsizetype start = 0;
    while (true) {
        const qsizetype lf = buffer.indexOf('\n', start);
        if (lf < 0)
            break;
        const qsizetype lineStart = start;
        qsizetype lineEnd = lf;
        start = lf + 1;
        if (m_discardingLine) {
            // The tail of a line already reported as too long.
            m_discardingLine = false;
            continue;
        }
        if (lineEnd > lineStart && buffer.at(lineEnd - 1) == '\r')
            --lineEnd;
        const qsizetype size = lineEnd - lineStart;
        if (size == 0)
            continue;
        if (size > MaxLineLength) {
            emit errorOccurred(OversizeLineError);
        } else {
            const QString line = decodeLine(buffer.constData() + lineStart, size);
            emit rawMessageReceived(line);
            if (abandoned())
                return;
            const IrcMessage message = IRCParser::parse(line);
            m_messageTime = message.time;
            handleMessage(message);
            if (guard)
                m_messageTime = 0;
            if (guard && message.kind == IrcMessage::Kind::Ignored)
                emit unhandledLine(line.startsWith(QLatin1Char('@')) ? line.section(QLatin1Char(' '), 1) : line);
        }
        if (abandoned())
            return;
    }
    m_processingBuffer = false;
    if (m_discardingLine) {
        buffer.clear();
        return;
    }
    buffer.remove(0, start);
    // Room for a full-length line and the CR of its terminator.
    if (buffer.size() > MaxLineLength + 1) {
        buffer.clear();
        m_discardingLine = true;
        emit errorOccurred(OversizeLineError);
    }
}

qint64 IRCConnection::now() const
{
    return m_clock ? m_clock() : m_steadyClock.elapsed();
}
