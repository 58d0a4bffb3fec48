#pragma once

#include "FakeIrcServer.h"
#include "IRCConnection.h"
#include "SignalRecorder.h"

// A connection to a FakeIrcServer, with every signal recorded from the moment
// it was built.
class EngineSession
{
public:
    explicit EngineSession(const QString& nick = QStringLiteral("alice"), const QString& altNick = QString())
        : nick(nick)
        , altNick(altNick)
    { }

    // Connects, waits for the server to see CAP, NICK and USER, then clears what
    // the server received and what was recorded. False on failure.
    bool start()
    {
        ServerConfig config;
        config.altNickname = altNick;
        connection.setServerConfig(config);
        connection.connectToServer(
            QStringLiteral("127.0.0.1"), server.port(), nick, QStringLiteral("A"), false);
        if (!server.waitForLines(3))
            return false;
        server.takeReceived();
        recorder.clear();
        return connection.isConnected();
    }
    // Sends a marker line from the client and waits for it; returns (and
    // consumes) the bytes the client sent before it.
    QByteArray sentBytes()
    {
        connection.sendRaw(QString::fromLatin1(Marker));
        if (!server.waitForReceived(QByteArray(Marker) + "\r\n"))
            return "<marker not received>";
        const QByteArray bytes = server.takeReceived();
        return bytes.left(bytes.indexOf(Marker));
    }
    QStringList sentLines() { return QString::fromUtf8(sentBytes()).split("\r\n", Qt::SkipEmptyParts); }
    // Sends a marker line from the server and waits until the client has
    // handled it (and everything before it); the marker is left out of the log.
    bool serverSync()
    {
        const QByteArray line = QByteArray(":sync.test NOTICE * :") + Marker;
        server.send(line + "\r\n");
        const QString entry = QStringLiteral("rawMessageReceived:") + QString::fromLatin1(line);
        if (!QTest::qWaitFor([&] { return recorder.log().contains(entry); }, FakeIrcServer::TimeoutMs))
            return false;
        recorder.remove(entry);
        recorder.remove(QStringLiteral("noticeReceived:sync.test|*|") + QString::fromLatin1(Marker) + QStringLiteral("|false"));
        return true;
    }

    static constexpr char Marker[] = "QUENVAR-TEST-SYNC";
    QString nick;
    QString altNick;
    FakeIrcServer server;
    IRCConnection connection;
    SignalRecorder recorder { &connection };
};
