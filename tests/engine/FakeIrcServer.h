#pragma once

#include <QPointer>
#include <QStringList>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTest>

// A scripted IRC server on 127.0.0.1 for one client at a time (a new client
// replaces the old one): records every byte the client sends and sends
// whatever the test tells it to.
class FakeIrcServer
{
public:
    static constexpr int TimeoutMs = 10000;

    FakeIrcServer()
    {
        m_server.listen(QHostAddress::LocalHost);
        QObject::connect(&m_server, &QTcpServer::newConnection, &m_server, [this] {
            while (QTcpSocket* next = m_server.nextPendingConnection()) {
                if (m_client)
                    m_client->deleteLater();
                m_client = next;
                m_received.clear();
                QObject::connect(next, &QTcpSocket::readyRead, &m_server, [this, next] {
                    if (next == m_client)
                        m_received.append(next->readAll());
                });
            }
        });
    }

    quint16 port() const { return m_server.serverPort(); }
    bool waitForClient()
    {
        return QTest::qWaitFor([this] { return !m_client.isNull(); }, TimeoutMs);
    }

    // Bytes received from the client so far / since the last take.
    QByteArray received() const { return m_received; }
    QByteArray takeReceived() { return std::exchange(m_received, {}); }
    bool waitForReceived(const QByteArray& text)
    {
        return QTest::qWaitFor([&] { return m_received.contains(text); }, TimeoutMs);
    }
    // Waits until the received bytes hold at least lines CR LF ended lines.
    bool waitForLines(int lines)
    {
        return QTest::qWaitFor([&] { return m_received.count("\r\n") >= lines; }, TimeoutMs);
    }
    // Received CR LF lines, without their terminators.
    QStringList receivedLines() const
    {
        QStringList lines = QString::fromUtf8(m_received).split(QStringLiteral("\r\n"));
        lines.removeLast(); // what follows the last CR LF
        return lines;
    }

    void send(const QByteArray& bytes)
    {
        if (m_client) {
            m_client->write(bytes);
            m_client->flush();
        }
    }
    // Sends bytes and waits a little so that the next send tends to arrive
    // as a read of its own (tests never depend on it).
    void sendSeparately(const QByteArray& bytes)
    {
        send(bytes);
        if (m_client)
            m_client->waitForBytesWritten(1000);
        QTest::qWait(30);
    }
    void closeClient()
    {
        if (m_client)
            m_client->disconnectFromHost();
    }
    bool waitForClientGone()
    {
        return QTest::qWaitFor(
            [this] { return !m_client || m_client->state() == QAbstractSocket::UnconnectedState; },
            TimeoutMs);
    }

private:
    QTcpServer m_server;
    QPointer<QTcpSocket> m_client;
    QByteArray m_received;
};
