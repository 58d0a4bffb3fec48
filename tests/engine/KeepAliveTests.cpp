#include "TestEngine.h"

#include "EngineSession.h"
#include "FakeLoginManager.h"

#include <QDateTime>
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

} // namespace

void TestEngine::pingAfterIdleThenTimeout()
{
    ClockedSession session;
    session.now = 1000;
    QVERIFY(session.start());
    session.checkAt(1000 + 60000);
    QVERIFY(!session.connection.isPingPending());
    session.checkAt(1000 + 60001);
    QVERIFY(session.connection.isPingPending());

    // While the PING is outstanding nothing more is sent; 45 s are no timeout yet.
    session.checkAt(61001 + 30000);
    session.checkAt(61001 + 45000);
    QCOMPARE(session.recorder.log(), QStringList());
    session.checkAt(61001 + 45001);
    QCOMPARE(session.recorder.log(), QStringList { PingTimeout });

    // The link is taken for dead: closed without a QUIT.
    QVERIFY(session.server.waitForClientGone());
    const QStringList lines = session.server.receivedLines();
    QCOMPARE(lines.size(), 1);
    QVERIFY2(lines.constFirst().startsWith(QLatin1String("PING :")), qPrintable(lines.constFirst()));
    QVERIFY(QDateTime::fromString(lines.constFirst().mid(6), Qt::ISODate).isValid());
    QTRY_COMPARE_WITH_TIMEOUT(session.recorder.log(), (QStringList { PingTimeout, "disconnected" }), 10000);
    QVERIFY(!session.connection.isKeepAliveRunning());
    QVERIFY(!session.connection.isSleepInhibited());
    session.checkAt(500000);
    QCOMPARE(session.recorder.log(), (QStringList { PingTimeout, "disconnected" }));
}

void TestEngine::receivedDataClearsPendingPing_data()
{
    QTest::addColumn<QByteArray>("data");
    QTest::newRow("PONG") << QByteArray(":irc.test PONG irc.test :2026-11-22T03:00:00\r\n");
    QTest::newRow("part of a line") << QByteArray(":irc.test 372 alice :no end yet");
}

void TestEngine::receivedDataClearsPendingPing()
{
    QFETCH(QByteArray, data);

    ClockedSession session;
    QVERIFY(session.start());
    session.checkAt(60001);
    QVERIFY(session.server.waitForLines(1));

    session.now = 70000;
    session.server.send(data);
    QTRY_VERIFY_WITH_TIMEOUT(!session.connection.isPingPending(), 10000);
    // No timeout however long ago the PING went out, and the next PING only
    // after more than 60 s from the received data.
    session.checkAt(60001 + 45001);
    session.checkAt(70000 + 60000);
    QVERIFY(!session.connection.isPingPending());
    session.checkAt(70000 + 60001);
    QVERIFY(session.connection.isPingPending());
    QVERIFY(session.server.waitForLines(2));
    QCOMPARE(session.recorder.entries("errorOccurred"), QStringList());
}

void TestEngine::keepAliveTimerDrivesCheck()
{
    ClockedSession session;
    QVERIFY(session.start());
    auto* timer = session.connection.findChild<QTimer*>(QString(), Qt::FindDirectChildrenOnly);
    QVERIFY(timer && timer->isActive());
    QCOMPARE(timer->interval(), 10000);

    IRCConnection::KeepAliveTiming timing;
    timing.checkIntervalMs = 20;
    session.connection.setKeepAliveTiming(timing); // restarts the running timer
    QCOMPARE(timer->interval(), 20);
    session.now = 60001;
    QVERIFY(session.server.waitForLines(1));
    QVERIFY(session.connection.isPingPending());
    session.now = 60001 + 45001;
    QTRY_COMPARE_WITH_TIMEOUT(session.recorder.entries("errorOccurred"), QStringList { PingTimeout }, 10000);
    QTRY_VERIFY_WITH_TIMEOUT(!timer->isActive(), 10000);
}

void TestEngine::sleepLockThroughLoginManager()
{
    // Without a login manager only the bookkeeping is there to check.
    const auto heldLocks = [this](int expected) {
        return !m_loginManager
            || QTest::qWaitFor([&] { return m_loginManager->heldLocks() == expected; }, 10000);
    };
    QVERIFY(heldLocks(0));
    {
        PlatformPower power;
        power.inhibitSleep(QStringLiteral("Testing the lock"));
        power.inhibitSleep(QStringLiteral("again"));
        QCOMPARE(power.inhibitCount(), 1);
        QVERIFY(heldLocks(1));
        if (m_loginManager) {
            QVERIFY(power.holdsSystemLock());
            QCOMPARE(
                m_loginManager->calls().constLast(), QStringLiteral("sleep|Quenvar|Testing the lock|block"));
        }
        power.releaseSleep();
        power.releaseSleep();
        QCOMPARE(power.releaseCount(), 1);
        QVERIFY(!power.holdsSystemLock());
        QVERIFY(heldLocks(0));

        // Going away while inhibiting gives the lock back as well.
        power.inhibitSleep(QStringLiteral("Testing the lock"));
        QVERIFY(heldLocks(1));
    }
    QVERIFY(heldLocks(0));
    if (!m_loginManager)
        QSKIP(qPrintable(QStringLiteral("no private login manager: ") + m_noLoginManager));

    // A connection holds one lock from connect to disconnect.
    const int callsBefore = m_loginManager->calls().size();
    EngineSession session;
    QVERIFY(session.start());
    QCOMPARE(m_loginManager->calls().mid(callsBefore),
        QStringList { "sleep|Quenvar|An IRC connection is open|block" });
    QVERIFY(heldLocks(1));
    session.connection.disconnectFromServer();
    QVERIFY(heldLocks(0));
}
