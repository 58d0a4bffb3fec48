#include "EngineSession.h"

#include <QDeadlineTimer>
#include <QTest>

namespace {
const QString ClientMarker = QStringLiteral("QUENVAR-TEST-SYNC");
const QString ServerMarker = QStringLiteral(":sync.test NOTICE * :QUENVAR-TEST-SYNC");
} // namespace

EngineSession::EngineSession(const QString& nick, const QString& altNick, const QString& realName)
    : nick(nick)
    , altNick(altNick)
    , realName(realName)
{ }

bool EngineSession::start()
{
    ServerConfig config;
    config.nickname = nick;
    config.altNickname = altNick;
    config.realName = realName;
    connection.setServerConfig(config);
    connection.connectToServer(QStringLiteral("127.0.0.1"), server.port(), nick, realName, false);
    if (!server.waitForClient() || !server.waitForLines(2))
        return false;
    server.takeReceived();
    recorder.clear();
    return connection.isConnected();
}

QStringList EngineSession::sentLines()
{
    connection.sendRaw(ClientMarker);
    if (!server.waitForReceived(ClientMarker.toUtf8() + "\r\n"))
        return { QStringLiteral("<marker not received>") };
    QStringList lines = server.receivedLines();
    server.takeReceived();
    lines.removeLast();
    return lines;
}

bool EngineSession::serverSync()
{
    server.send(ServerMarker.toUtf8() + "\r\n");
    const QString entry = QStringLiteral("rawMessageReceived:") + ServerMarker;
    QDeadlineTimer deadline(10000);
    while (!recorder.log().contains(entry)) {
        if (deadline.hasExpired())
            return false;
        QTest::qWait(5);
    }
    recorder.remove(entry);
    return true;
}
