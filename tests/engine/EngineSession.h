#pragma once

#include "FakeIrcServer.h"
#include "IRCConnection.h"
#include "SignalRecorder.h"

#include <QTcpSocket>

// A connection registered against a FakeIrcServer, with every signal recorded
// from the moment it was built. start() connects and consumes NICK/USER.
class EngineSession
{
public:
    explicit EngineSession(const QString& nick = QStringLiteral("alice"), const QString& altNick = QString(),
        const QString& realName = QStringLiteral("Alice Liddell"));

    // Connects, waits for the server to see NICK and USER, clears what the
    // server received and what was recorded. False on failure.
    bool start();
    // Sends a marker line from the client and waits for it; returns the lines
    // the client sent before the marker (and consumes them).
    QStringList sentLines();
    // Sends a marker line from the server and waits until the client has
    // handled it (and everything before it); the marker is removed from the log.
    bool serverSync();
    // The connection's socket (a child of the connection).
    QTcpSocket* clientSocket() const { return connection.findChild<QTcpSocket*>(); }

    QString nick;
    QString altNick;
    QString realName;
    FakeIrcServer server;
    IRCConnection connection;
    SignalRecorder recorder { &connection };
};
