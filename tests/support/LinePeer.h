#pragma once

#include <QPointer>
#include <QStringList>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTest>

// The server end of a client's connection, in process: records every byte
// the client sends and sends whatever the test tells it to. A new connection
// replaces the previous one (and starts a fresh record).
class LinePeer
{
public:
    LinePeer()
    {
        m_server.listen(QHostAddress::LocalHost);
        QObject::connect(&m_server, &QTcpServer::newConnection, &m_server, [this] {
            while (QTcpSocket* next = m_server.nextPendingConnection()) {
                if (m_socket)
                    m_socket->deleteLater();
                m_socket = next;
                m_received.clear();
                QObject::connect(next, &QTcpSocket::readyRead, &m_server, [this] { received(); });
            }
        });
    }

    quint16 port() const { return m_server.serverPort(); }
    // Waits for the client's connection; true once accepted.
    bool accept(int timeoutMs = 10000)
    {
        return QTest::qWaitFor([this] { return !m_socket.isNull(); }, timeoutMs);
    }

    // The bytes received since connecting (or the last take or clear).
    QByteArray received()
    {
        if (m_socket)
            m_received += m_socket->readAll();
        return m_received;
    }
    QByteArray takeReceived()
    {
        received();
        return std::exchange(m_received, {});
    }
    bool waitForReceived(const QByteArray& text, int timeoutMs = 10000)
    {
        return QTest::qWaitFor([&] { return received().contains(text); }, timeoutMs);
    }
    // The complete lines received, without their CR LF.
    QStringList lines()
    {
        QStringList lines = QString::fromUtf8(received()).split(QStringLiteral("\r\n"));
        lines.removeLast(); // what follows the last line end
        return lines;
    }
    QStringList linesStartingWith(const QString& prefix)
    {
        QStringList found = lines();
        found.removeIf([&](const QString& line) { return !line.startsWith(prefix); });
        return found;
    }
    bool waitForLines(int count, int timeoutMs = 10000)
    {
        return QTest::qWaitFor([&] { return lines().size() >= count; }, timeoutMs);
    }
    // Forgets the complete lines received so far.
    void clear()
    {
        received();
        m_received.remove(0, m_received.lastIndexOf('\n') + 1);
    }

    // Sends raw bytes (lines must carry their CR LF).
    void send(const QByteArray& bytes)
    {
        if (m_socket && m_socket->write(bytes) >= 0)
            m_socket->flush();
    }
    void close()
    {
        if (m_socket)
            m_socket->disconnectFromHost();
    }
    // Waits until the client's connection is gone (true when there is none).
    bool waitForClosed(int timeoutMs = 10000)
    {
        return QTest::qWaitFor(
            [this] { return !m_socket || m_socket->state() == QAbstractSocket::UnconnectedState; }, timeoutMs);
    }

private:
    QTcpServer m_server;
    QPointer<QTcpSocket> m_socket;
    QByteArray m_received;
};
