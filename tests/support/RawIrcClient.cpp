#include "RawIrcClient.h"

#include <QHostAddress>
#include <QTcpSocket>
#include <QTest>

RawIrcClient::RawIrcClient(const QString& nick, QObject* parent)
    : QObject(parent)
    , m_nick(nick)
{ }

RawIrcClient::~RawIrcClient()
{
    abort();
}

void RawIrcClient::connectToServer(const QString& host, quint16 port)
{
    abort();
    m_buffer.clear();
    m_lines.clear();
    m_readPosition = 0;
    m_registered = false;
    m_rejected = false;
    m_socket = new QTcpSocket(this);
    connect(m_socket, &QTcpSocket::readyRead, this, &RawIrcClient::onReadyRead);
    m_socket->connectToHost(host, port);
    m_socket->setSocketOption(QAbstractSocket::LowDelayOption, 1);
    // Written once the connection is up.
    sendLine(QStringLiteral("NICK ") + m_nick);
    sendLine(QStringLiteral("USER %1 0 * :%2").arg(m_nick.left(10), m_nick));
}

bool RawIrcClient::waitForRegistered(int timeoutMs)
{
    return QTest::qWaitFor([this] { return m_registered || m_rejected || !isConnected(); }, timeoutMs)
        && m_registered;
}

bool RawIrcClient::registerAll(
    const QList<RawIrcClient*>& clients, const QString& host, quint16 port, int timeoutMs)
{
    for (RawIrcClient* client : clients)
        client->connectToServer(host, port);
    bool ok = true;
    for (RawIrcClient* client : clients)
        ok = client->waitForRegistered(timeoutMs) && ok;
    return ok;
}

bool RawIrcClient::isConnected() const
{
    return m_socket
        && (m_socket->state() == QAbstractSocket::ConnectedState
            || m_socket->state() == QAbstractSocket::ConnectingState
            || m_socket->state() == QAbstractSocket::HostLookupState);
}

void RawIrcClient::sendLine(const QString& line)
{
    sendBytes(line.toUtf8() + "\r\n");
}

void RawIrcClient::sendBytes(const QByteArray& bytes)
{
    if (m_socket)
        m_socket->write(bytes);
}

QString RawIrcClient::waitForLine(const QRegularExpression& pattern, int timeoutMs)
{
    QString found;
    const auto scan = [&] {
        while (found.isEmpty() && m_readPosition < m_lines.size()) {
            if (pattern.match(m_lines.at(m_readPosition++)).hasMatch())
                found = m_lines.at(m_readPosition - 1);
        }
        return !found.isEmpty();
    };
    return scan() || QTest::qWaitFor(scan, timeoutMs) ? found : QString();
}

bool RawIrcClient::sync(int timeoutMs)
{
    const QString token = QStringLiteral("sync-%1").arg(++m_syncCounter);
    sendLine(QStringLiteral("PING :") + token);
    return !waitForLine(
        QRegularExpression(QStringLiteral("^:\\S+ PONG \\S+ :") + token + QLatin1Char('$')), timeoutMs)
                .isEmpty();
}

bool RawIrcClient::join(const QString& channel, int timeoutMs)
{
    sendLine(QStringLiteral("JOIN ") + channel);
    const QString endOfNames = QStringLiteral("^:\\S+ 366 \\S+ %1 ").arg(QRegularExpression::escape(channel));
    return !waitForLine(QRegularExpression(endOfNames, QRegularExpression::CaseInsensitiveOption), timeoutMs)
                .isEmpty();
}

QStringList RawIrcClient::linesMatching(const QRegularExpression& pattern) const
{
    return m_lines.filter(pattern);
}

bool RawIrcClient::quit(const QString& reason, int timeoutMs)
{
    if (!isConnected())
        return true;
    sendLine(reason.isEmpty() ? QStringLiteral("QUIT") : QStringLiteral("QUIT :") + reason);
    return QTest::qWaitFor([this] { return !isConnected(); }, timeoutMs);
}

void RawIrcClient::abort()
{
    if (!m_socket)
        return;
    m_socket->disconnect(this);
    m_socket->abort();
    m_socket->deleteLater();
    m_socket = nullptr;
}

void RawIrcClient::onReadyRead()
{
    m_buffer += m_socket->readAll();
    int end;
    while ((end = m_buffer.indexOf('\n')) >= 0) {
        QByteArray raw = m_buffer.left(end);
        m_buffer.remove(0, end + 1);
        if (raw.endsWith('\r'))
            raw.chop(1);
        if (!raw.isEmpty())
            handleLine(QString::fromUtf8(raw));
    }
}

void RawIrcClient::handleLine(const QString& line)
{
    m_lines << line;
    const QStringList words = line.split(QLatin1Char(' '));
    if (words.value(0) == QLatin1String("PING")) {
        sendLine(QStringLiteral("PONG ") + line.mid(5));
    } else if (words.size() > 2 && words.at(0).startsWith(QLatin1Char(':'))) {
        const QString& command = words.at(1);
        if (command == QLatin1String("001")) {
            m_nick = words.at(2);
            m_registered = true;
        } else if (!m_registered && (command == QLatin1String("433") || command == QLatin1String("432"))) {
            m_rejected = true;
        }
    }
    emit lineReceived(line);
}
