#include "TestEngine.h"

#include "EngineSession.h"
#include "FakeLoginManager.h"
#include "IRCConnection.h"
#include "PlatformPower.h"

#include <QDateTime>
#include <QElapsedTimer>
#include <QTest>
#include <QTimer>

namespace {

const QString PingTimeout = QStringLiteral("errorOccurred:Ping timeout: no response to PING for 45s");

// A connection whose keep-alive reads a clock the test sets by hand.
struct ClockedSession : EngineSession
{
    ClockedSession()
    {
        connection.setKeepAliveClock([this] { return now; });
    }
    // Runs one keep-alive check at the given clock time.
    void checkAt(qint64 time)
    {
        now = time;
        connection.checkKeepAlive();
    }
    qint64 now = 0;
};

// The token of a keep-alive PING line, or a null string.
QString pingToken(const QString& line)
{
    if (!line.startsWith(QLatin1String("PING :")))
        return QString();
    return line.mid(6);
}

} // namespace

void TestEngine::keepAliveDefaults()
{
    IRCConnection connection;
    const IRCConnection::KeepAliveTiming timing = connection.keepAliveTiming();
    QCOMPARE(timing.checkIntervalMs, 10000);
    QCOMPARE(timing.idleBeforePingMs, qint64(60000));
    QCOMPARE(timing.pingTimeoutMs, qint64(45000));

    EngineSession session;
    QVERIFY(session.start());
    QVERIFY(session.connection.isKeepAliveRunning());
    const auto timers = session.connection.findChildren<QTimer*>(QString(), Qt::FindDirectChildrenOnly);
    QCOMPARE(timers.size(), 1);
    QCOMPARE(timers.constFirst()->interval(), 10000);
    QVERIFY(!session.connection.isPingPending());
}

void TestEngine::pingOnlyAfterMoreThanIdleTime()
{
    ClockedSession session;
    session.now = 1000;
    QVERIFY(session.start());

    session.checkAt(1000 + 30000);
    session.checkAt(1000 + 60000);
    QVERIFY(!session.connection.isPingPending());

    const QDateTime before = QDateTime::currentDateTime().addSecs(-1);
    session.checkAt(1000 + 60001);
    QVERIFY(session.connection.isPingPending());
    QVERIFY(session.server.waitForLines(1));
    const QDateTime after = QDateTime::currentDateTime().addSecs(1);

    // Further checks while the PING is outstanding send nothing more.
    session.checkAt(1000 + 70000);
    session.checkAt(1000 + 100000);
    QTest::qWait(100);
    const QStringList lines = session.server.receivedLines();
    QCOMPARE(lines.size(), 1);
    const QString token = pingToken(lines.constFirst());
    QVERIFY2(!token.isNull(), qPrintable(lines.constFirst()));
    QCOMPARE(token.size(), 19); // yyyy-MM-ddTHH:mm:ss, local time
    const QDateTime sent = QDateTime::fromString(token, Qt::ISODate);
    QVERIFY(sent.isValid());
    QVERIFY(sent >= before.addMSecs(-before.time().msec()) && sent <= after);
    QCOMPARE(session.recorder.log(), QStringList());
}

void TestEngine::pingTimeoutAfterMoreThan45s()
{
    ClockedSession session;
    QVERIFY(session.start());
    session.checkAt(60001);
    QVERIFY(session.connection.isPingPending());
    QVERIFY(session.server.waitForLines(1));

    session.checkAt(60001 + 45000);
    QCOMPARE(session.recorder.log(), QStringList());
    QVERIFY(session.connection.isConnected());

    session.checkAt(60001 + 45001);
    QCOMPARE(session.recorder.entries("errorOccurred"), QStringList { PingTimeout });
    QVERIFY(session.server.waitForClientGone());
    QTRY_COMPARE_WITH_TIMEOUT(
        session.recorder.entries("disconnected"), QStringList { "disconnected" }, 10000);
    // The PING stays outstanding until the next connect or received data.
    QVERIFY(session.connection.isPingPending());
    QVERIFY(!session.connection.isKeepAliveRunning());
    QVERIFY(!session.connection.isSleepInhibited());
    // No QUIT: the link is considered dead.
    QCOMPARE(session.server.receivedLines().size(), 1);

    // Checks after the disconnect report nothing more.
    session.checkAt(500000);
    QCOMPARE(session.recorder.entries("errorOccurred"), QStringList { PingTimeout });
}

void TestEngine::receivedDataClearsPendingPing_data()
{
    QTest::addColumn<QByteArray>("data");
    QTest::newRow("PONG") << QByteArray(":irc.test PONG irc.test :2026-11-22T03:00:00\r\n");
    QTest::newRow("any line") << QByteArray(":bob!bobuser@127.0.0.1 PRIVMSG #test :hello channel\r\n");
    QTest::newRow("part of a line") << QByteArray(":irc.test 372 alice :no end yet");
    QTest::newRow("empty line") << QByteArray("\r\n");
}

void TestEngine::receivedDataClearsPendingPing()
{
    QFETCH(QByteArray, data);

    ClockedSession session;
    QVERIFY(session.start());
    session.checkAt(60001);
    QVERIFY(session.connection.isPingPending());
    QVERIFY(session.server.waitForLines(1));

    session.now = 70000;
    session.server.send(data);
    QTRY_VERIFY_WITH_TIMEOUT(!session.connection.isPingPending(), 10000);

    // No timeout however long ago the PING went out ...
    session.checkAt(60001 + 45001);
    session.checkAt(70000 + 60000);
    QCOMPARE(session.recorder.entries("errorOccurred"), QStringList());
    QVERIFY(!session.connection.isPingPending());
    // ... and the next PING only after more than 60 s from the received data.
    session.checkAt(70000 + 60001);
    QVERIFY(session.connection.isPingPending());
    QVERIFY(session.server.waitForLines(2));
    const QStringList lines = session.server.receivedLines();
    QCOMPARE(lines.size(), 2);
    QVERIFY(!pingToken(lines.at(1)).isNull());
    QVERIFY(session.connection.isConnected());
}

void TestEngine::firstPingWithinTickWindow_data()
{
    QTest::addColumn<qint64>("trafficAt");
    QTest::addColumn<qint64>("pingTick");

    // Ticks every 10 s from the connect at 0.
    QTest::newRow("traffic at connect") << qint64(-1) << qint64(70000);
    QTest::newRow("traffic at 5 s") << qint64(5000) << qint64(70000);
    QTest::newRow("traffic at 9.999 s") << qint64(9999) << qint64(70000);
    QTest::newRow("traffic at 10 s") << qint64(10000) << qint64(80000);
    QTest::newRow("traffic at 35 s") << qint64(35000) << qint64(100000);
}

void TestEngine::firstPingWithinTickWindow()
{
    QFETCH(qint64, trafficAt);
    QFETCH(qint64, pingTick);

    ClockedSession session;
    QVERIFY(session.start());
    if (trafficAt >= 0) {
        session.now = trafficAt;
        QVERIFY(session.serverSync());
    }
    const qint64 lastTraffic = qMax<qint64>(trafficAt, 0);

    qint64 sentAt = -1;
    qint64 timedOutAt = -1;
    for (qint64 tick = 10000; tick <= 300000 && timedOutAt < 0; tick += 10000) {
        session.checkAt(tick);
        if (sentAt < 0 && session.connection.isPingPending())
            sentAt = tick;
        if (!session.recorder.entries("errorOccurred").isEmpty())
            timedOutAt = tick;
    }
    QCOMPARE(sentAt, pingTick);
    QVERIFY(sentAt - lastTraffic > 60000 && sentAt - lastTraffic <= 70000);
    QCOMPARE(timedOutAt, pingTick + 50000);
    QCOMPARE(session.recorder.entries("errorOccurred"), QStringList { PingTimeout });
}

void TestEngine::keepAliveTimerDrivesCheck()
{
    ClockedSession session;
    IRCConnection::KeepAliveTiming timing;
    timing.checkIntervalMs = 20;
    session.connection.setKeepAliveTiming(timing);
    QVERIFY(session.start());
    QCOMPARE(session.connection.findChild<QTimer*>(QString(), Qt::FindDirectChildrenOnly)->interval(), 20);

    session.now = 60001;
    QVERIFY(session.server.waitForLines(1));
    QVERIFY(!pingToken(session.server.receivedLines().constFirst()).isNull());
    QVERIFY(session.connection.isPingPending());

    session.now = 60001 + 45001;
    QTRY_COMPARE_WITH_TIMEOUT(session.recorder.entries("errorOccurred"), QStringList { PingTimeout }, 10000);
    QTRY_VERIFY_WITH_TIMEOUT(!session.connection.isKeepAliveRunning(), 10000);
}

void TestEngine::keepAliveIdleWhenDisconnected()
{
    IRCConnection connection;
    SignalRecorder recorder(&connection);
    qint64 now = 0;
    connection.setKeepAliveClock([&now] { return now; });
    for (now = 0; now <= 1000000; now += 10000)
        connection.checkKeepAlive();
    QCOMPARE(recorder.log(), QStringList());
    QVERIFY(!connection.isPingPending());

    // Restoring the steady clock works too.
    connection.setKeepAliveClock({});
    connection.checkKeepAlive();
    QCOMPARE(recorder.log(), QStringList());
}

void TestEngine::sleepInhibitedOnceReleasedOnce()
{
    EngineSession session;
    QVERIFY(!session.connection.isSleepInhibited());
    QVERIFY(session.start());
    QVERIFY(session.connection.isSleepInhibited());
    QCOMPARE(session.connection.platformPower().inhibitCount(), 1);

    // A second connect without a disconnect keeps the one inhibition.
    FakeIrcServer second;
    session.connection.connectToServer(
        QStringLiteral("127.0.0.1"), second.port(), QStringLiteral("alice"), QStringLiteral("Alice"), false);
    QVERIFY(second.waitForLines(2));
    QTRY_VERIFY_WITH_TIMEOUT(session.connection.isConnected(), 10000);
    QCOMPARE(session.connection.platformPower().inhibitCount(), 1);
    QCOMPARE(session.connection.platformPower().releaseCount(), 0);
    QVERIFY(session.connection.platformPower().isInhibiting());

    session.connection.disconnectFromServer();
    session.connection.disconnectFromServer();
    QTRY_VERIFY_WITH_TIMEOUT(!session.recorder.entries("disconnected").isEmpty(), 10000);
    QCOMPARE(session.connection.platformPower().releaseCount(), 1);
    QVERIFY(!session.connection.platformPower().isInhibiting());
    QVERIFY(!session.connection.platformPower().holdsSystemLock());
    QVERIFY(!session.connection.isSleepInhibited());

    // The next connection inhibits again.
    FakeIrcServer third;
    session.connection.connectToServer(
        QStringLiteral("127.0.0.1"), third.port(), QStringLiteral("alice"), QStringLiteral("Alice"), false);
    QTRY_VERIFY_WITH_TIMEOUT(session.connection.isConnected(), 10000);
    QCOMPARE(session.connection.platformPower().inhibitCount(), 2);
    QVERIFY(session.connection.isSleepInhibited());
}

void TestEngine::sleepReleasedWhenServerCloses()
{
    EngineSession session;
    QVERIFY(session.start());
    QVERIFY(session.connection.isSleepInhibited());
    session.server.closeClient();
    QTRY_VERIFY_WITH_TIMEOUT(!session.recorder.entries("disconnected").isEmpty(), 10000);
    QVERIFY(!session.connection.isSleepInhibited());
    QCOMPARE(session.connection.platformPower().inhibitCount(), 1);
    QCOMPARE(session.connection.platformPower().releaseCount(), 1);
    QVERIFY(!session.connection.isKeepAliveRunning());
}

void TestEngine::platformPowerBookkeeping()
{
    PlatformPower power;
    QVERIFY(!power.isInhibiting());
    QElapsedTimer timer;
    timer.start();
    power.inhibitSleep(QStringLiteral("Testing"));
    power.inhibitSleep(QStringLiteral("Testing"));
    // Without a login manager (as in most test machines) this must not hang.
    QVERIFY2(timer.elapsed() < 5000, qPrintable(QString::number(timer.elapsed())));
    QVERIFY(power.isInhibiting());
    QCOMPARE(power.inhibitCount(), 1);
    QCOMPARE(power.releaseCount(), 0);

    power.releaseSleep();
    power.releaseSleep();
    QVERIFY(!power.isInhibiting());
    QVERIFY(!power.holdsSystemLock());
    QCOMPARE(power.inhibitCount(), 1);
    QCOMPARE(power.releaseCount(), 1);

    // Releasing without an inhibition is harmless.
    PlatformPower idle;
    idle.releaseSleep();
    QCOMPARE(idle.releaseCount(), 0);
}

void TestEngine::sleepLockThroughLoginManager()
{
    if (!m_loginManager)
        QSKIP(qPrintable(QStringLiteral("no private login manager: ") + m_noLoginManager));
    QTRY_COMPARE_WITH_TIMEOUT(m_loginManager->heldLocks(), 0, 10000);

    {
        PlatformPower power;
        power.inhibitSleep(QStringLiteral("Testing the lock"));
        QVERIFY(power.holdsSystemLock());
        QCOMPARE(m_loginManager->calls().constLast(), QStringLiteral("sleep|Quenvar|Testing the lock|block"));
        QTRY_COMPARE_WITH_TIMEOUT(m_loginManager->heldLocks(), 1, 10000);
        power.inhibitSleep(QStringLiteral("again"));
        QCOMPARE(m_loginManager->calls().constLast(), QStringLiteral("sleep|Quenvar|Testing the lock|block"));
        power.releaseSleep();
        QVERIFY(!power.holdsSystemLock());
        QTRY_COMPARE_WITH_TIMEOUT(m_loginManager->heldLocks(), 0, 10000);

        // Going away while inhibiting gives the lock back as well.
        power.inhibitSleep(QStringLiteral("Testing the lock"));
        QTRY_COMPARE_WITH_TIMEOUT(m_loginManager->heldLocks(), 1, 10000);
    }
    QTRY_COMPARE_WITH_TIMEOUT(m_loginManager->heldLocks(), 0, 10000);

    // A connection holds one lock from connect to disconnect.
    const int callsBefore = m_loginManager->calls().size();
    EngineSession session;
    QVERIFY(session.start());
    QVERIFY(session.connection.platformPower().holdsSystemLock());
    QCOMPARE(m_loginManager->calls().size(), callsBefore + 1);
    QCOMPARE(
        m_loginManager->calls().constLast(), QStringLiteral("sleep|Quenvar|An IRC connection is open|block"));
    QTRY_COMPARE_WITH_TIMEOUT(m_loginManager->heldLocks(), 1, 10000);
    session.connection.disconnectFromServer();
    QTRY_COMPARE_WITH_TIMEOUT(m_loginManager->heldLocks(), 0, 10000);
}
