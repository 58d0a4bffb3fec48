#pragma once

#include <QByteArray>
#include <QObject>
#include <QPointer>
#include <QStringList>
#include <QTcpServer>

#include <QTcpSocket>

// A scripted IRC server on 127.0.0.1 for one client at a time: records every
// byte the client sends and sends whatever the test tells it to.
class FakeIrcServer : public QObject
{
    Q_OBJECT

public:
    explicit FakeIrcServer(QObject* parent = nullptr);

    quint16 port() const;
    bool waitForClient(int timeoutMs = 10000);
    QTcpSocket* client() const { return m_client; }

    // Bytes received from the client so far / since the last take.
    QByteArray received() const { return m_received; }
    QByteArray takeReceived();
    // Waits until the received bytes contain text (or time runs out).
    bool waitForReceived(const QByteArray& text, int timeoutMs = 10000);
    // Waits until the received bytes hold at least lines CR LF ended lines.
    bool waitForLines(int lines, int timeoutMs = 10000);
    // Received CR LF lines, without their terminators.
    QStringList receivedLines() const;

    // Sends bytes to the client and pushes them onto the wire.
    void send(const QByteArray& bytes);
    // Sends bytes and waits a little so that the next send tends to arrive
    // as a read of its own (tests never depend on it).
    void sendSeparately(const QByteArray& bytes);
    void closeClient();
    bool waitForClientGone(int timeoutMs = 10000);

private:
    QTcpServer m_server;
    QPointer<QTcpSocket> m_client;
    QByteArray m_received;
    bool m_clientGone = false;
};
