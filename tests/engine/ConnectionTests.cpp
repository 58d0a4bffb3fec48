#include "TestEngine.h"

#include "EngineSession.h"
#include "IRCConnection.h"

#include <QSignalSpy>
#include <QSslSocket>
#include <QTcpServer>
#include <QTest>

#include <functional>

#ifdef Q_OS_LINUX
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#endif

namespace {

using Action = std::function<void(IRCConnection&)>;

QByteArray repeated(char c, int count)
{
    return QByteArray(count, c);
}

} // namespace

Q_DECLARE_METATYPE(Action)

void TestEngine::initialState()
{
    IRCConnection connection;
    QVERIFY(!connection.isConnected());
    QVERIFY(!connection.isRegistered());
    QVERIFY(!connection.isAway());
    QVERIFY(!connection.isKeepAliveRunning());
    QVERIFY(!connection.isPingPending());
    QVERIFY(!connection.isSleepInhibited());
    QVERIFY(connection.currentNick().isEmpty());
    QVERIFY(connection.getHost().isEmpty());
    QVERIFY(connection.nickCandidates().isEmpty());
    QVERIFY(connection.getListServerName().isEmpty());
    QCOMPARE(connection.getTotalListChannels(), 0);
    QCOMPARE(connection.getTotalListUsers(), 0);
    QCOMPARE(connection.serverConfig().authMethod, QStringLiteral("NickServ (/nickserv IDENTIFY)"));
    QCOMPARE(connection.serverConfig().encoding, QStringLiteral("UTF-8 (Unicode)"));
    QVERIFY(connection.findChild<QTcpSocket*>() == nullptr);

    connection.setAway(true);
    connection.setRegistered(true);
    QVERIFY(connection.isAway());
    QVERIFY(connection.isRegistered());
}

void TestEngine::registrationBytes()
{
    FakeIrcServer server;
    IRCConnection connection;
    QSignalSpy connectedSpy(&connection, &IRCConnection::connected);
    ServerConfig config;
    config.altNickname = QStringLiteral("bobby");
    config.password = QStringLiteral("secret");
    config.authMethod = QStringLiteral("SASL PLAIN");
    connection.setServerConfig(config);
    connection.connectToServer(QStringLiteral("127.0.0.1"), server.port(), QStringLiteral("bob"),
        QStringLiteral("Bob Builder \u2603"), false);

    QCOMPARE(connection.getHost(), QStringLiteral("127.0.0.1"));
    QCOMPARE(connection.currentNick(), QStringLiteral("bob"));
    QVERIFY(server.waitForClient());
    QVERIFY(server.waitForLines(2));
    QTRY_COMPARE_WITH_TIMEOUT(connectedSpy.count(), 1, 10000);
    // Nothing but NICK and USER: no PASS, no CAP, no authentication.
    QTest::qWait(100);
    QCOMPARE(server.received(), QByteArray("NICK bob\r\nUSER bob 0 * :Bob Builder \xe2\x98\x83\r\n"));
    QVERIFY(connection.isConnected());
    QVERIFY(!connection.isRegistered());
    QCOMPARE(connection.serverConfig().altNickname, QStringLiteral("bobby"));
}

void TestEngine::commandBytes_data()
{
    QTest::addColumn<Action>("action");
    QTest::addColumn<QByteArray>("bytes");

    QTest::newRow("join") << Action([](IRCConnection& c) { c.joinChannel("#test"); })
                          << QByteArray("JOIN #test\r\n");
    QTest::newRow("part") << Action([](IRCConnection& c) { c.partChannel("#test"); })
                          << QByteArray("PART #test :Leaving\r\n");
    QTest::newRow("privmsg") << Action([](IRCConnection& c) { c.sendPrivmsg("#test", "hello %1 :)"); })
                             << QByteArray("PRIVMSG #test :hello %1 :)\r\n");
    QTest::newRow("privmsg private") << Action([](IRCConnection& c) { c.sendPrivmsg("bob", ""); })
                                     << QByteArray("PRIVMSG bob :\r\n");
    QTest::newRow("nick") << Action([](IRCConnection& c) { c.changeNick("robert"); })
                          << QByteArray("NICK robert\r\n");
    QTest::newRow("whois") << Action([](IRCConnection& c) { c.sendWhois("bob"); })
                           << QByteArray("WHOIS bob\r\n");
    QTest::newRow("watch add") << Action([](IRCConnection& c) { c.sendWatch("alice", true); })
                               << QByteArray("WATCH +alice\r\n");
    QTest::newRow("watch remove") << Action([](IRCConnection& c) { c.sendWatch("%2", false); })
                                  << QByteArray("WATCH -%2\r\n");
    QTest::newRow("raw") << Action([](IRCConnection& c) { c.sendRaw("MODE #test +o :bob"); })
                         << QByteArray("MODE #test +o :bob\r\n");
    QTest::newRow("raw empty") << Action([](IRCConnection& c) { c.sendRaw(""); }) << QByteArray("\r\n");
}

void TestEngine::commandBytes()
{
    QFETCH(Action, action);
    QFETCH(QByteArray, bytes);

    EngineSession session;
    QVERIFY(session.start());
    action(session.connection);
    QVERIFY(session.server.waitForReceived(bytes));
    QTest::qWait(50);
    QCOMPARE(session.server.received(), bytes);
    QVERIFY(session.recorder.log().isEmpty());
    // Sending a nickname change does not change our nickname; the echo does.
    QCOMPARE(session.connection.currentNick(), QStringLiteral("alice"));
}

void TestEngine::sendRawEncodesUtf8AndEndsEachLine()
{
    EngineSession session;
    QVERIFY(session.start());
    session.connection.sendPrivmsg(
        QStringLiteral("#t\u00e9st"), QStringLiteral("caf\u00e9 \u263a \U0001F600"));
    // Everything after an embedded line break is dropped, so no second
    // command can ride along.
    session.connection.sendRaw(QStringLiteral("PRIVMSG #a :one\r\nQUIT :two"));
    session.connection.sendRaw(QStringLiteral("PRIVMSG #a :three\nQUIT"));
    session.connection.sendRaw(QStringLiteral("PRIVMSG #a :four\rQUIT"));
    session.connection.sendRaw(QStringLiteral("PRIVMSG #a :five") + QChar(0) + QStringLiteral("QUIT"));
    const QByteArray expected = "PRIVMSG #t\xc3\xa9st :caf\xc3\xa9 \xe2\x98\xba \xf0\x9f\x98\x80\r\n"
                                "PRIVMSG #a :one\r\nPRIVMSG #a :three\r\nPRIVMSG #a :four\r\nPRIVMSG #a :five\r\n";
    QVERIFY(session.server.waitForReceived(expected));
    QTest::qWait(50);
    QCOMPARE(session.server.received(), expected);
    QVERIFY(session.recorder.log().isEmpty());
}

// The seams used by the fuzz targets behave like the socket path.
void TestEngine::seamsForTestsAndFuzzing()
{
    IRCConnection connection;
    SignalRecorder recorder(&connection);
    QStringList sent;
    connection.setSendObserver([&sent](const QString& line) { sent << line; });
    // Split across calls, CR LF and LF alike, one Latin-1 line.
    connection.receiveBytes(":a!u@h PRIVMSG #c :hel");
    connection.receiveBytes("lo\r\nPING :tok\n:a!u@h PRIVMSG #c :caf\xe9\r\n");
    QCOMPARE(sent, QStringList { "PONG :tok" });
    const QStringList log = recorder.take();
    QVERIFY(log.contains("privmsgReceived:a|#c|hello"));
    QVERIFY(log.contains(QStringLiteral("privmsgReceived:a|#c|caf\u00e9")));
    QVERIFY(!log.join(' ').contains("errorOccurred"));
    connection.sendRaw(QStringLiteral("NICK x\r\nQUIT"));
    QCOMPARE(sent.last(), QStringLiteral("NICK x"));
}

// A receiver that lets more bytes in while a line is delivered (a nested
// event loop does that) gets every line once, in the order it came.
void TestEngine::reentrantDelivery()
{
    IRCConnection connection;
    QStringList lines;
    connect(&connection, &IRCConnection::rawMessageReceived, &connection, [&](const QString& line) {
        lines << line;
        if (line == QLatin1String("PRIVMSG #c :one"))
            connection.receiveBytes("PRIVMSG #c :three\r\nPRIVMSG #c :fo");
        else if (line == QLatin1String("PRIVMSG #c :two"))
            connection.receiveBytes("ur\r\n");
    });
    connection.receiveBytes("PRIVMSG #c :one\r\nPRIVMSG #c :two\r\n");
    QCOMPARE(lines,
        (QStringList { "PRIVMSG #c :one", "PRIVMSG #c :two", "PRIVMSG #c :three", "PRIVMSG #c :four" }));
    connection.receiveBytes("PRIVMSG #c :five\n");
    QCOMPARE(lines.size(), 5);
    QCOMPARE(lines.last(), QStringLiteral("PRIVMSG #c :five"));
}

void TestEngine::sendWhileDisconnected()
{
    IRCConnection connection;
    SignalRecorder recorder(&connection);
    connection.sendRaw(QStringLiteral("PRIVMSG #a :x"));
    connection.joinChannel(QStringLiteral("#test"));
    QCOMPARE(recorder.take(),
        (QStringList { "errorOccurred:Socket is not connected", "errorOccurred:Socket is not connected" }));
    connection.sendWatch(QStringLiteral("bob"), true);
    connection.sendWatch(QStringLiteral("bob"), false);
    QCOMPARE(recorder.take(), QStringList());

    // Still connecting counts as not connected.
    QTcpServer silent;
    QVERIFY(silent.listen(QHostAddress::LocalHost, 0));
    silent.pauseAccepting();
    connection.connectToServer(
        QStringLiteral("127.0.0.1"), silent.serverPort(), QStringLiteral("a"), QString(), false);
    if (!connection.isConnected()) {
        connection.sendPrivmsg(QStringLiteral("#a"), QStringLiteral("x"));
        QCOMPARE(recorder.entries("errorOccurred"), QStringList { "errorOccurred:Socket is not connected" });
    }
    // After a disconnect sending fails again.
    EngineSession session;
    QVERIFY(session.start());
    session.connection.disconnectFromServer();
    QTRY_VERIFY_WITH_TIMEOUT(!session.connection.isConnected(), 10000);
    session.recorder.clear();
    session.connection.sendWhois(QStringLiteral("bob"));
    QCOMPARE(
        session.recorder.entries("errorOccurred"), QStringList { "errorOccurred:Socket is not connected" });
}

void TestEngine::nickCandidates_data()
{
    QTest::addColumn<QString>("primary");
    QTest::addColumn<QString>("alt");
    QTest::addColumn<int>("size");
    // index -> candidate, as "index=candidate"
    QTest::addColumn<QStringList>("expectedAt");

    const QString p30 = QStringLiteral("abcdefghijklmnopqrstuvwxyz0123"); // 30 characters
    const QString p35 = p30 + QStringLiteral("45678");

    QTest::newRow("primary and alternative")
        << "bob"
        << "bobby" << 102
        << QStringList { "0=bob", "1=bobby", "2=bob_", "3=bob_1", "11=bob_9", "12=bob__10", "101=bob__99" };
    QTest::newRow("no alternative") << "bob"
                                    << "" << 101
                                    << QStringList { "0=bob", "1=bob_", "2=bob_1", "10=bob_9", "11=bob__10",
                                           "100=bob__99" };
    QTest::newRow("alternative equals primary") << "bob"
                                                << "bob" << 101 << QStringList { "0=bob", "1=bob_" };
    QTest::newRow("alternative differs in case")
        << "bob"
        << "BOB" << 102 << QStringList { "0=bob", "1=BOB", "2=bob_" };
    QTest::newRow("alternative equals first candidate")
        << "bob"
        << "bob_" << 101 << QStringList { "0=bob", "1=bob_", "2=bob_1", "10=bob_9", "11=bob__10" };
    QTest::newRow("alternative equals late candidate")
        << "bob"
        << "bob__10" << 101 << QStringList { "0=bob", "1=bob__10", "2=bob_", "11=bob_9", "12=bob__11" };
    QTest::newRow("primary 30 characters")
        << p30 << "" << 101
        << QStringList { "0=" + p30, "1=" + p30.left(29) + "_", "2=" + p30.left(28) + "_1",
               "10=" + p30.left(28) + "_9", "11=" + p30.left(26) + "__10", "100=" + p30.left(26) + "__99" };
    QTest::newRow("primary 35 characters") << p35 << "x" << 102
                                           << QStringList { "0=" + p35, "1=x", "2=" + p30.left(29) + "_",
                                                  "3=" + p30.left(28) + "_1", "12=" + p30.left(26) + "__10" };
    QTest::newRow("primary 28 characters") << p30.left(28) << "" << 101
                                           << QStringList { "1=" + p30.left(28) + "_",
                                                  "2=" + p30.left(28) + "_1", "11=" + p30.left(26) + "__10" };
}

void TestEngine::nickCandidates()
{
    QFETCH(QString, primary);
    QFETCH(QString, alt);
    QFETCH(int, size);
    QFETCH(QStringList, expectedAt);

    FakeIrcServer server;
    IRCConnection connection;
    ServerConfig config;
    config.altNickname = alt;
    connection.setServerConfig(config);
    connection.connectToServer(
        QStringLiteral("127.0.0.1"), server.port(), primary, QStringLiteral("r"), false);
    const QStringList candidates = connection.nickCandidates();
    QCOMPARE(candidates.size(), size);
    for (const QString& entry : expectedAt) {
        const int index = entry.section(QLatin1Char('='), 0, 0).toInt();
        QCOMPARE(candidates.value(index), entry.section(QLatin1Char('='), 1));
    }
    QCOMPARE(connection.currentNick(), primary);
    for (int i = 1; i < candidates.size(); ++i) {
        if (candidates.at(i) != alt)
            QVERIFY2(candidates.at(i).size() <= 30, qPrintable(candidates.at(i)));
        QCOMPARE(candidates.indexOf(candidates.at(i)), i); // no duplicates
    }
}

void TestEngine::nickInUseFallsBackThroughServer()
{
    EngineSession session(QStringLiteral("alice"), QStringLiteral("alicia"));
    QVERIFY(session.start());
    session.server.send(":irc.test 433 * alice :Nickname is already in use.\r\n"
                        ":irc.test 432 * alicia :Erroneous Nickname\r\n"
                        ":irc.test 433 * alicia :Nickname is already in use.\r\n");
    QVERIFY(session.server.waitForLines(2));
    QVERIFY(session.serverSync());
    QCOMPARE(session.server.receivedLines(), (QStringList { "NICK alicia", "NICK alice_" }));
    QCOMPARE(session.connection.currentNick(), QStringLiteral("alice_"));
    QCOMPARE(session.recorder.entries("nickChanged"),
        (QStringList { "nickChanged:alice|alicia", "nickChanged:alicia|alice_" }));
    QCOMPARE(session.recorder.entries("ownNickChanged"), QStringList());
    QCOMPARE(session.recorder.entries("serverMessage"),
        QStringList { "serverMessage::irc.test 432 * alicia :Erroneous Nickname" });

    // The welcome registers under the fallback nickname.
    session.server.send(
        ":irc.test 001 alice_ :Welcome to the QuenvarTest IRC Network alice_!alice@127.0.0.1\r\n");
    QTRY_VERIFY_WITH_TIMEOUT(session.connection.isRegistered(), 10000);
    QCOMPARE(session.recorder.entries("registered"), QStringList { "registered" });
}

void TestEngine::tryNextNickToExhaustion()
{
    EngineSession session(QStringLiteral("bob"), QStringLiteral("bobby"));
    QVERIFY(session.start());
    const QStringList candidates = session.connection.nickCandidates();
    QCOMPARE(candidates.size(), 102);

    for (int i = 1; i < candidates.size(); ++i)
        session.connection.tryNextNick();
    QCOMPARE(session.connection.currentNick(), QStringLiteral("bob__99"));
    QCOMPARE(session.recorder.entries("errorOccurred"), QStringList());
    QCOMPARE(session.recorder.entries("nickChanged").size(), 101);
    QCOMPARE(
        session.recorder.entries("nickChanged").constLast(), QStringLiteral("nickChanged:bob__98|bob__99"));

    session.connection.tryNextNick();
    session.connection.tryNextNick();
    const QString exhausted
        = QStringLiteral("errorOccurred:All nicknames are in use. Please choose a different nick.");
    QCOMPARE(session.recorder.entries("errorOccurred"), (QStringList { exhausted, exhausted }));
    QCOMPARE(session.recorder.entries("nickChanged").size(), 101);
    QCOMPARE(session.recorder.entries("ownNickChanged"), QStringList());
    QCOMPARE(session.connection.currentNick(), QStringLiteral("bob__99"));

    QStringList expectedSent;
    for (int i = 1; i < candidates.size(); ++i)
        expectedSent.append(QStringLiteral("NICK ") + candidates.at(i));
    QCOMPARE(session.sentLines(), expectedSent);
    QVERIFY(session.connection.isConnected());
}

void TestEngine::ownNickTracking()
{
    EngineSession session(QStringLiteral("bob"));
    QVERIFY(session.start());
    session.server.send(":carol!carol@127.0.0.1 NICK :caroline\r\n"
                        ":bob!bobuser@127.0.0.1 NICK :robert\r\n"
                        ":robert!bobuser@127.0.0.1 NICK robby\r\n"
                        ":bob!bobuser@127.0.0.1 NICK :stale\r\n");
    QVERIFY(session.serverSync());
    QCOMPARE(session.recorder.entries("ownNickChanged"),
        (QStringList { "ownNickChanged:robert", "ownNickChanged:robby" }));
    QCOMPARE(session.recorder.entries("nickChanged").size(), 4);
    QCOMPARE(session.connection.currentNick(), QStringLiteral("robby"));

    // A retry changes the nickname without reporting it as our own change.
    session.recorder.clear();
    session.connection.tryNextNick();
    QCOMPARE(session.connection.currentNick(), QStringLiteral("bob_"));
    QCOMPARE(session.recorder.log(), QStringList { "nickChanged:robby|bob_" });
}

void TestEngine::framing_data()
{
    QTest::addColumn<QList<QByteArray>>("chunks");
    QTest::addColumn<QStringList>("lines");

    const QByteArray privmsg = ":bob!bobuser@127.0.0.1 PRIVMSG #test :";
    QTest::newRow("two lines in one read") << QList<QByteArray> {
        ":irc.test 372 alice :Quenvar test MOTD line 1\r\n:irc.test 372 alice :line 2\r\n"
    } << QStringList { ":irc.test 372 alice :Quenvar test MOTD line 1", ":irc.test 372 alice :line 2" };
    QTest::newRow("half a line") << QList<QByteArray> { privmsg + "hel", "lo channel\r\n" }
                                 << QStringList { privmsg + "hello channel" };
    QTest::newRow("CR LF split") << QList<QByteArray> { privmsg + "one\r", "\n" + privmsg + "two\r\n" }
                                 << QStringList { privmsg + "one", privmsg + "two" };
    QTest::newRow("UTF-8 split") << QList<QByteArray> { privmsg + "caf\xc3", "\xa9 \xe2\x98", "\x83\r\n" }
                                 << QStringList { privmsg + "caf\u00e9 \u2603" };
    QTest::newRow("LF only") << QList<QByteArray> { privmsg + "one\n" + privmsg + "two\n" }
                             << QStringList { privmsg + "one", privmsg + "two" };
    QTest::newRow("mixed endings") << QList<QByteArray> { privmsg + "one\n" + privmsg + "two\r\n" + privmsg
        + "three\n" } << QStringList { privmsg + "one", privmsg + "two", privmsg + "three" };
    QTest::newRow("empty lines") << QList<QByteArray> { "\r\n\r\n\n\r\n", privmsg + "x\r\n\r\n" }
                                 << QStringList { privmsg + "x" };
    QTest::newRow("invalid UTF-8 as Latin-1") << QList<QByteArray> { privmsg + "caf\xe9 na\xefve\r\n" }
                                              << QStringList { privmsg + "caf\u00e9 na\u00efve" };
    QTest::newRow("truncated UTF-8 as Latin-1")
        << QList<QByteArray> { privmsg + "x\xc3\r\n" } << QStringList { privmsg + "x\u00c3" };
    QTest::newRow("overlong UTF-8 as Latin-1")
        << QList<QByteArray> { privmsg + "\xc0\xaf\r\n" } << QStringList { privmsg + "\u00c0\u00af" };
    QTest::newRow("valid and invalid lines")
        << QList<QByteArray> { privmsg + "\xe2\x82\xac\r\n" + privmsg + "\x80\r\n" }
        << QStringList { privmsg + "\u20ac", privmsg + "\u0080" };
    QTest::newRow("byte order mark kept") << QList<QByteArray> { "\xef\xbb\xbfPRIVMSG\r\n" }
                                          << QStringList { QChar(0xfeff) + QStringLiteral("PRIVMSG") };
    QTest::newRow("bare CR inside a line")
        << QList<QByteArray> { privmsg + "a\rb\r\n" } << QStringList { privmsg + "a\rb" };
    QTest::newRow("one byte at a time")
        << QList<QByteArray> { ":", "a", " ", "1", "\r", "\n" } << QStringList { ":a 1" };
}

void TestEngine::framing()
{
    QFETCH(QList<QByteArray>, chunks);
    QFETCH(QStringList, lines);

    EngineSession session;
    QVERIFY(session.start());
    for (const QByteArray& chunk : chunks)
        session.server.sendSeparately(chunk);
    QVERIFY(session.serverSync());
    QCOMPARE(session.recorder.entries("rawMessageReceived"), [&] {
        QStringList raw;
        for (const QString& line : lines)
            raw.append(QStringLiteral("rawMessageReceived:") + line);
        return raw;
    }());
    QCOMPARE(session.recorder.entries("errorOccurred"), QStringList());
}

void TestEngine::oversizeLine_data()
{
    QTest::addColumn<QList<QByteArray>>("chunks");
    QTest::addColumn<int>("errors");

    const QByteArray huge = ":irc.test NOTICE alice :" + repeated('x', 70000);
    QTest::newRow("in one read") << QList<QByteArray> { huge + "\r\n" } << 1;
    QTest::newRow("split over reads") << QList<QByteArray> { huge.left(30000), huge.mid(30000, 30000),
        huge.mid(60000), repeated('y', 100000), "\r\n" }
                                      << 1;
    QTest::newRow("ending with LF only") << QList<QByteArray> { huge + "\n" } << 1;
    QTest::newRow("two in a row") << QList<QByteArray> { huge, "\r\n", huge + "\r\n" } << 2;
    QTest::newRow("exactly 64 KiB is kept") << QList<QByteArray> {} << 0;
}

void TestEngine::oversizeLine()
{
    QFETCH(QList<QByteArray>, chunks);
    QFETCH(int, errors);

    EngineSession session;
    QVERIFY(session.start());
    const QByteArray before = ":irc.test 372 alice :before\r\n";
    const QByteArray after = ":irc.test 372 alice :after\r\n";
    const QByteArray limitLine = ":irc.test 372 alice :" + repeated('z', IRCConnection::MaxLineLength - 21);
    QCOMPARE(limitLine.size(), IRCConnection::MaxLineLength);

    session.server.sendSeparately(before);
    for (const QByteArray& chunk : chunks)
        session.server.sendSeparately(chunk);
    if (errors == 0) {
        // A full-length line whose CR arrives before its LF.
        session.server.sendSeparately(limitLine + "\r");
        session.server.sendSeparately("\n");
    }
    session.server.sendSeparately(after);
    QVERIFY(session.serverSync());

    const QString oversize = QStringLiteral(
        "errorOccurred:Received a line longer than 64 KiB without a line end; it was discarded.");
    QCOMPARE(session.recorder.entries("errorOccurred"), QStringList(errors, oversize));
    QStringList expected { QStringLiteral(":irc.test 372 alice :before") };
    if (errors == 0)
        expected.append(QString::fromLatin1(limitLine));
    expected.append(QStringLiteral(":irc.test 372 alice :after"));
    QCOMPARE(session.recorder.entries("serverMessage"), [&] {
        QStringList messages;
        for (const QString& line : expected)
            messages.append(QStringLiteral("serverMessage:") + line);
        return messages;
    }());
    QVERIFY(session.connection.isConnected());
}

void TestEngine::serverPingAnsweredOverTheWire()
{
    EngineSession session;
    QVERIFY(session.start());
    session.server.send("PING :irc.test\r\n:irc.test PING :ignored\r\nPING 12345\r\n");
    QVERIFY(session.server.waitForLines(2));
    QVERIFY(session.serverSync());
    QCOMPARE(session.server.receivedLines(), (QStringList { "PONG :irc.test", "PONG :12345" }));
    QCOMPARE(session.recorder.log(),
        (QStringList { "rawMessageReceived:PING :irc.test", "rawMessageReceived::irc.test PING :ignored",
            "rawMessageReceived:PING 12345" }));
}

void TestEngine::disconnectSendsQuit()
{
    EngineSession session;
    QVERIFY(session.start());
    QVERIFY(session.connection.isKeepAliveRunning());
    session.connection.disconnectFromServer();
    QVERIFY(!session.connection.isKeepAliveRunning());
    QVERIFY(!session.connection.isSleepInhibited());
    QVERIFY(session.server.waitForClientGone());
    QCOMPARE(session.server.received(), QByteArray("QUIT :Quenvar leaving\r\n"));
    QTRY_COMPARE_WITH_TIMEOUT(
        session.recorder.entries("disconnected"), QStringList { "disconnected" }, 10000);
    QVERIFY(!session.connection.isConnected());

    // A second disconnect sends nothing and reports nothing new.
    session.recorder.clear();
    session.connection.disconnectFromServer();
    QTest::qWait(50);
    QCOMPARE(session.recorder.log(), QStringList());

    // Destroying a live connection says goodbye too.
    auto* server = new FakeIrcServer;
    auto* connection = new IRCConnection;
    connection->connectToServer(
        QStringLiteral("127.0.0.1"), server->port(), QStringLiteral("x"), QString(), false);
    QVERIFY(server->waitForLines(2));
    delete connection;
    QVERIFY(server->waitForReceived("QUIT :Quenvar leaving\r\n"));
    delete server;
}

void TestEngine::remoteCloseReportsAndStops()
{
    EngineSession session;
    QVERIFY(session.start());
    session.server.send(
        ":irc.test 001 alice :Welcome\r\nERROR :Closing link: (alice@127.0.0.1) [Quit: bye]\r\n");
    session.server.closeClient();
    QTRY_VERIFY_WITH_TIMEOUT(!session.recorder.entries("disconnected").isEmpty(), 10000);
    QCOMPARE(session.recorder.entries("disconnected").size(), 1);
    QCOMPARE(session.recorder.entries("errorOccurred").size(), 1);
    QVERIFY(session.recorder.entries("errorOccurred").constFirst().size()
        > QStringLiteral("errorOccurred:").size());
    // Lines sent before the close are still delivered.
    QVERIFY(session.recorder.log().contains(
        "rawMessageReceived:ERROR :Closing link: (alice@127.0.0.1) [Quit: bye]"));
    QVERIFY(!session.connection.isKeepAliveRunning());
    QVERIFY(!session.connection.isSleepInhibited());
    // Registration is kept until the next connect.
    QVERIFY(session.connection.isRegistered());
}

void TestEngine::connectionRefused()
{
    quint16 port = 0;
    {
        QTcpServer probe;
        QVERIFY(probe.listen(QHostAddress::LocalHost, 0));
        port = probe.serverPort();
    }
    IRCConnection connection;
    SignalRecorder recorder(&connection);
    connection.connectToServer(QStringLiteral("127.0.0.1"), port, QStringLiteral("a"), QString(), false);
    QTRY_VERIFY_WITH_TIMEOUT(!recorder.entries("errorOccurred").isEmpty(), 10000);
    QCOMPARE(recorder.entries("errorOccurred"), QStringList { "errorOccurred:Connection refused" });
    QCOMPARE(recorder.entries("connected"), QStringList());
    QVERIFY(!connection.isConnected());
    QVERIFY(!connection.isSleepInhibited());
    QVERIFY(!connection.isKeepAliveRunning());
}

void TestEngine::disconnectWhileConnecting()
{
    FakeIrcServer server;
    IRCConnection connection;
    SignalRecorder recorder(&connection);
    connection.connectToServer(
        QStringLiteral("127.0.0.1"), server.port(), QStringLiteral("a"), QString(), false);
    QVERIFY(!connection.isConnected());
    connection.disconnectFromServer();
    QTest::qWait(300);
    QCOMPARE(recorder.entries("connected"), QStringList());
    QCOMPARE(server.received(), QByteArray());
    QVERIFY(!connection.isConnected());
    QVERIFY(!connection.isSleepInhibited());
    QCOMPARE(connection.platformPower().inhibitCount(), 0);
}

void TestEngine::reconnectResetsState()
{
    EngineSession session;
    QVERIFY(session.start());
    session.server.send(":irc.test 001 alice :Welcome\r\n");
    QTRY_VERIFY_WITH_TIMEOUT(session.connection.isRegistered(), 10000);
    session.connection.setAway(true);
    session.connection.tryNextNick();
    QCOMPARE(session.connection.currentNick(), QStringLiteral("alice_"));

    FakeIrcServer second;
    session.connection.connectToServer(QStringLiteral("127.0.0.1"), second.port(), QStringLiteral("carol"),
        QStringLiteral("Carol Danvers"), false);
    QVERIFY(!session.connection.isRegistered());
    QVERIFY(!session.connection.isAway());
    QCOMPARE(session.connection.currentNick(), QStringLiteral("carol"));
    QVERIFY(second.waitForLines(2));
    QCOMPARE(second.received(), QByteArray("NICK carol\r\nUSER carol 0 * :Carol Danvers\r\n"));
    QTRY_VERIFY_WITH_TIMEOUT(session.connection.isConnected(), 10000);

    // The old socket no longer speaks for the connection.
    session.recorder.clear();
    session.server.send(":irc.test 372 alice :old server\r\n");
    session.server.closeClient();
    second.send(":irc.test 372 carol :new server\r\n");
    QTRY_VERIFY_WITH_TIMEOUT(!session.recorder.entries("rawMessageReceived").isEmpty(), 10000);
    QTest::qWait(100);
    QCOMPARE(session.recorder.log(),
        (QStringList { "rawMessageReceived::irc.test 372 carol :new server",
            "serverMessage::irc.test 372 carol :new server" }));
    QVERIFY(session.connection.isConnected());
}

void TestEngine::reconnectFromSlotStopsOldBuffer()
{
    EngineSession session;
    QVERIFY(session.start());
    FakeIrcServer second;
    QObject context;
    QObject::connect(&session.connection, &IRCConnection::registered, &context, [&] {
        session.connection.connectToServer(
            QStringLiteral("127.0.0.1"), second.port(), QStringLiteral("bob"), QStringLiteral("b"), false);
    });
    session.server.send(":irc.test 001 alice :Welcome\r\n:irc.test 372 alice :left behind\r\n");
    QVERIFY(second.waitForLines(2));
    QTest::qWait(100);
    QCOMPARE(session.recorder.entries("rawMessageReceived"),
        QStringList { "rawMessageReceived::irc.test 001 alice :Welcome" });
    QCOMPARE(session.connection.currentNick(), QStringLiteral("bob"));
}

void TestEngine::tcpKeepAliveOptions()
{
    EngineSession session;
    QVERIFY(session.start());
    QTcpSocket* socket = session.clientSocket();
    QVERIFY(socket);
    QCOMPARE(socket->socketOption(QAbstractSocket::KeepAliveOption).toInt(), 1);
    QCOMPARE(socket->socketOption(QAbstractSocket::LowDelayOption).toInt(), 1);
#ifdef Q_OS_LINUX
    const int fd = static_cast<int>(socket->socketDescriptor());
    QVERIFY(fd >= 0);
    const auto option = [fd](int level, int name) {
        int value = -1;
        socklen_t length = sizeof value;
        if (getsockopt(fd, level, name, &value, &length) != 0)
            return -2;
        return value;
    };
    QCOMPARE(option(SOL_SOCKET, SO_KEEPALIVE), 1);
    QCOMPARE(option(IPPROTO_TCP, TCP_KEEPIDLE), 60);
    QCOMPARE(option(IPPROTO_TCP, TCP_KEEPINTVL), 10);
    QCOMPARE(option(IPPROTO_TCP, TCP_KEEPCNT), 5);
#endif
    // Negative descriptors are ignored without harm.
    PlatformPower::configureTcpKeepAlive(-1);
}

void TestEngine::tlsNeverSendsInClear()
{
    if (!QSslSocket::supportsSsl())
        QSKIP("no TLS backend");
    FakeIrcServer server;
    IRCConnection connection;
    SignalRecorder recorder(&connection);
    connection.connectToServer(QStringLiteral("127.0.0.1"), server.port(), QStringLiteral("alice"),
        QStringLiteral("Alice"), true);
    QVERIFY(connection.findChild<QSslSocket*>());
    QVERIFY(server.waitForClient());
    QTRY_VERIFY_WITH_TIMEOUT(server.received().size() >= 3, 10000);
    // A TLS handshake record, not registration text.
    QCOMPARE(server.received().at(0), char(0x16));
    QCOMPARE(server.received().at(1), char(0x03));
    QVERIFY(!server.received().contains("NICK"));

    // A plain-text server makes the handshake fail; that is reported as the
    // socket's own error text and nothing is parsed.
    server.send(":irc.test NOTICE * :*** Looking up your hostname...\r\n");
    QTRY_VERIFY_WITH_TIMEOUT(!recorder.entries("errorOccurred").isEmpty(), 10000);
    QVERIFY(recorder.entries("errorOccurred").constFirst().size() > QStringLiteral("errorOccurred:").size());
    QCOMPARE(recorder.entries("rawMessageReceived"), QStringList());
    QTRY_VERIFY_WITH_TIMEOUT(!connection.isSleepInhibited(), 10000);
    QVERIFY(!server.received().contains("NICK"));
}
