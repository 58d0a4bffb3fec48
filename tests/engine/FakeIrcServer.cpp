#include "FakeIrcServer.h"

#include <QDeadlineTimer>
#include <QTcpSocket>
#include <QTest>

#include <functional>

namespace {

bool waitUntil(const std::function<bool()>& condition, int timeoutMs)
{
    QDeadlineTimer deadline(timeoutMs);
    while (!condition()) {
        if (deadline.hasExpired())
            return false;
        QTest::qWait(5);
    }
    return true;
}

} // namespace

FakeIrcServer::FakeIrcServer(QObject* parent)
    : QObject(parent)
{
    if (!m_server.listen(QHostAddress::LocalHost, 0))
        qWarning("FakeIrcServer: cannot listen: %s", qPrintable(m_server.errorString()));
    connect(&m_server, &QTcpServer::newConnection, this, [this] {
        while (QTcpSocket* next = m_server.nextPendingConnection()) {
            if (m_client)
                m_client->deleteLater();
            m_client = next;
            next->setParent(this);
            m_received.clear();
            m_clientGone = false;
            connect(next, &QTcpSocket::readyRead, this, [this, next] {
                if (next == m_client)
                    m_received.append(next->readAll());
            });
            connect(next, &QTcpSocket::disconnected, this, [this, next] {
                if (next == m_client)
                    m_clientGone = true;
            });
        }
    });
}

quint16 FakeIrcServer::port() const
{
    return m_server.serverPort();
}

bool FakeIrcServer::waitForClient(int timeoutMs)
{
    return waitUntil([this] { return !m_client.isNull(); }, timeoutMs);
}

QByteArray FakeIrcServer::takeReceived()
{
    QByteArray bytes = m_received;
    m_received.clear();
    return bytes;
}

bool FakeIrcServer::waitForReceived(const QByteArray& text, int timeoutMs)
{
    return waitUntil([this, &text] { return m_received.contains(text); }, timeoutMs);
}

bool FakeIrcServer::waitForLines(int lines, int timeoutMs)
{
    return waitUntil([this, lines] { return m_received.count("\r\n") >= lines; }, timeoutMs);
}

QStringList FakeIrcServer::receivedLines() const
{
    QStringList lines;
    qsizetype start = 0;
    while (true) {
        const qsizetype end = m_received.indexOf("\r\n", start);
        if (end < 0)
            break;
        lines.append(QString::fromUtf8(m_received.mid(start, end - start)));
        start = end + 2;
    }
    return lines;
}

void FakeIrcServer::send(const QByteArray& bytes)
{
    if (!m_client)
        return;
    m_client->write(bytes);
    m_client->flush();
}

void FakeIrcServer::sendSeparately(const QByteArray& bytes)
{
    send(bytes);
    if (m_client)
        m_client->waitForBytesWritten(1000);
    QTest::qWait(30);
}

void FakeIrcServer::closeClient()
{
    if (m_client)
        m_client->disconnectFromHost();
}

bool FakeIrcServer::waitForClientGone(int timeoutMs)
{
    return waitUntil([this] { return m_clientGone || m_client.isNull(); }, timeoutMs);
}
