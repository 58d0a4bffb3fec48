#include "TestEngine.h"

#include "EngineSession.h"
#include "IRCParser.h"

#include <QSslSocket>
#include <QRegularExpression>
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

const QString NotConnected = QStringLiteral("errorOccurred:Socket is not connected");
const QString Host = QStringLiteral("127.0.0.1");

} // namespace

Q_DECLARE_METATYPE(Action)

// What goes out before the server answers: PASS only for the server
// password method, capabilities asked for first, the nick standing in for an
// empty real name.
void TestEngine::registrationBytes_data()
{
    QTest::addColumn<QString>("method");
    QTest::addColumn<QString>("password");
    QTest::addColumn<QString>("realName");
    QTest::addColumn<QByteArray>("bytes");
    const QByteArray plain = "CAP LS 302\r\nNICK bob\r\nUSER bob 0 * :Bob \xe2\x98\x83\r\n";
    QTest::newRow("NickServ: nothing before registration") << "NickServ (/nickserv IDENTIFY)" << "secret"
                                                           << "Bob \u2603" << plain;
    QTest::newRow("SASL: asked for once offered") << "SASL PLAIN" << "secret" << "Bob \u2603" << plain;
    QTest::newRow("server password") << "Server Password (PASS)" << "se cret" << "Bob \u2603"
                                     << "PASS :se cret\r\n" + plain;
    QTest::newRow("server password, none given") << "Server Password (PASS)" << "" << "Bob \u2603" << plain;
    QTest::newRow("empty real name") << "None" << "" << "" << QByteArray("CAP LS 302\r\nNICK bob\r\nUSER bob 0 * :bob\r\n");
}

void TestEngine::registrationBytes()
{
    QFETCH(QString, method);
    QFETCH(QString, password);
    QFETCH(QString, realName);
    FakeIrcServer server;
    IRCConnection connection;
    SignalRecorder recorder(&connection);
    ServerConfig config;
    config.authMethod = method;
    config.password = password;
    connection.setServerConfig(config);
    connection.connectToServer(Host, server.port(), QStringLiteral("bob"), realName, false);
    QVERIFY(server.waitForLines(3));
    QTRY_COMPARE_WITH_TIMEOUT(recorder.log(), QStringList { "connected" }, 10000);
    QTest::qWait(100);
    QTEST(server.received(), "bytes");
    QVERIFY(!connection.isRegistered());
}

// Lines of text cut to a number of UTF-8 bytes: at spaces where possible,
// never inside a character.
void TestEngine::splitText_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<int>("maxBytes");
    QTest::addColumn<QStringList>("pieces");
    QTest::newRow("fits") << "hello there" << 20 << QStringList { "hello there" };
    QTest::newRow("at the last space") << "aa bb cc dd" << 7 << QStringList { "aa bb", "cc dd" };
    QTest::newRow("space right at the end") << "abc def" << 3 << QStringList { "abc", "def" };
    QTest::newRow("no space") << "abcdefgh" << 3 << QStringList { "abc", "def", "gh" };
    QTest::newRow("lines, empty ones dropped") << "one\r\ntwo\n\nthree\r" << 20
                                               << QStringList { "one", "two", "three" };
    QTest::newRow("two-byte characters") << QStringLiteral("\u00e9\u00e9\u00e9") << 3
                                         << QStringList { QStringLiteral("\u00e9"), QStringLiteral("\u00e9"), QStringLiteral("\u00e9") };
    QTest::newRow("surrogate pairs") << QStringLiteral("\U0001F600\U0001F600") << 5
                                     << QStringList { QStringLiteral("\U0001F600"), QStringLiteral("\U0001F600") };
    QTest::newRow("nothing") << "\n\r\n" << 10 << QStringList();
}

void TestEngine::splitText()
{
    QFETCH(QString, text);
    QFETCH(int, maxBytes);
    QTEST(IRCConnection::splitText(text, maxBytes), "pieces");
}

void TestEngine::commandBytes_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<Action>("action");
    const auto row = [](const char* name, const QByteArray& bytes, const Action& action) {
        QTest::newRow(name) << bytes << action;
    };
    const auto raw = [](const QString& line) { return [line](IRCConnection& c) { c.sendRaw(line); }; };

    row("join", "JOIN #test\r\n", [](IRCConnection& c) { c.joinChannel("#test"); });
    row("part", "PART #test :Leaving\r\n", [](IRCConnection& c) { c.partChannel("#test"); });
    row("privmsg", "PRIVMSG #test :hello %1 :)\r\n",
        [](IRCConnection& c) { c.sendPrivmsg("#test", "hello %1 :)"); });
    row("privmsg of two lines", "PRIVMSG #test :one\r\nPRIVMSG #test :two\r\n",
        [](IRCConnection& c) { c.sendPrivmsg("#test", "one\ntwo"); });
    // ":alice!" + 74 bytes for a user@host not yet seen + " " and "PRIVMSG #test :" leave 413 bytes.
    row("privmsg cut to what the server relays",
        "PRIVMSG #test :" + QByteArray(413, 'a') + "\r\nPRIVMSG #test :" + QByteArray(87, 'a') + "\r\n",
        [](IRCConnection& c) { c.sendPrivmsg("#test", QString(500, QLatin1Char('a'))); });
    row("nick", "NICK robert\r\n", [](IRCConnection& c) { c.changeNick("robert"); });
    row("whois", "WHOIS bob\r\n", [](IRCConnection& c) { c.sendWhois("bob"); });
    // Online notification as the server offers it.
    const auto offers = [](const char* token) {
        return [token](IRCConnection& c) {
            c.handleMessage(IRCParser::parse(QStringLiteral(":s 005 alice %1 :are supported").arg(QLatin1String(token))));
        };
    };
    const auto watch = [](const Action& offer, const QString& nick, bool add) {
        return [=](IRCConnection& c) {
            offer(c);
            c.sendWatch(nick, add);
        };
    };
    row("watch add", "WATCH +alice\r\n", watch(offers("WATCH=128"), "alice", true));
    row("watch remove", "WATCH -%2\r\n", watch(offers("WATCH=128 MONITOR=100"), "%2", false));
    row("monitor add", "MONITOR + alice\r\n", watch(offers("MONITOR=100"), "alice", true));
    row("neither offered", "", watch(offers("NETWORK=x"), "alice", true));
    row("raw", "MODE #test +o :bob\r\n", raw("MODE #test +o :bob"));
    row("UTF-8", "PRIVMSG #t\xc3\xa9st :\xe2\x98\xba \xf0\x9f\x98\x80\r\n",
        raw(QStringLiteral("PRIVMSG #t\u00e9st :\u263a \U0001F600")));
    // Whatever follows a line break or NUL is dropped: no second command can ride along.
    row("cut at CR LF", "PRIVMSG #a :one\r\n", raw("PRIVMSG #a :one\r\nQUIT :two"));
    row("cut at LF", "PRIVMSG #a :one\r\n", raw("PRIVMSG #a :one\nQUIT"));
    row("cut at CR", "PRIVMSG #a :one\r\n", raw("PRIVMSG #a :one\rQUIT"));
    row("cut at NUL", "PRIVMSG #a :one\r\n", raw(QStringLiteral("PRIVMSG #a :one") + QChar(0) + "QUIT"));
}

void TestEngine::commandBytes()
{
    QFETCH(QByteArray, bytes);
    QFETCH(Action, action);

    EngineSession session;
    QVERIFY(session.start());
    action(session.connection);
    QCOMPARE(session.sentBytes(), bytes);
    QCOMPARE(session.recorder.log().filter(QRegularExpression("^(?!serverSupportChanged|serverMessage)")), QStringList());
    // Sending a nickname change does not change our nickname; the echo does.
    QCOMPARE(session.connection.currentNick(), QStringLiteral("alice"));
}

void TestEngine::sendWithoutSocket()
{
    IRCConnection connection;
    SignalRecorder recorder(&connection);
    connection.joinChannel(QStringLiteral("#test"));
    connection.handleMessage(IRCParser::parse(QStringLiteral("PING :x")));
    connection.sendWatch(QStringLiteral("bob"), true); // silently skipped
    QCOMPARE(recorder.take(), QStringList(2, NotConnected));

    // Still connecting counts as not connected.
    QTcpServer silent;
    QVERIFY(silent.listen(QHostAddress::LocalHost, 0));
    silent.pauseAccepting();
    connection.connectToServer(Host, silent.serverPort(), QStringLiteral("a"), QString(), false);
    if (!connection.isConnected()) {
        connection.sendPrivmsg(QStringLiteral("#a"), QStringLiteral("x"));
        QCOMPARE(recorder.take(), QStringList { NotConnected });
    }

    // With a send observer (the fuzz targets' seam) every line goes there
    // instead, cut as it would be on the wire.
    QStringList sent;
    connection.setSendObserver([&sent](const QString& line) { sent << line; });
    connection.sendRaw(QStringLiteral("NICK x\r\nQUIT"));
    connection.receiveBytes("PING :tok\n");
    QCOMPARE(sent, (QStringList { "NICK x", "PONG :tok" }));
}

// A receiver that lets more bytes in while a line is delivered (a nested
// event loop does that) gets every line once, in the order it came.
void TestEngine::reentrantDelivery()
{
    IRCConnection connection;
    QStringList lines;
    QObject::connect(&connection, &IRCConnection::rawMessageReceived, &connection, [&](const QString& line) {
        lines << line;
        if (line == QLatin1String("PRIVMSG #c :one"))
            connection.receiveBytes("PRIVMSG #c :three\r\nPRIVMSG #c :fo");
        else if (line == QLatin1String("PRIVMSG #c :two"))
            connection.receiveBytes("ur\r\n");
    });
    connection.receiveBytes("PRIVMSG #c :one\r\nPRIVMSG #c :two\r\n");
    connection.receiveBytes("PRIVMSG #c :five\n");
    QCOMPARE(lines,
        (QStringList { "PRIVMSG #c :one", "PRIVMSG #c :two", "PRIVMSG #c :three", "PRIVMSG #c :four",
            "PRIVMSG #c :five" }));
}

void TestEngine::nickCandidates_data()
{
    QTest::addColumn<QString>("primary");
    QTest::addColumn<QString>("alt");
    QTest::addColumn<int>("size");
    QTest::addColumn<QStringList>("expectedAt"); // "index=candidate"

    const QString p35 = QStringLiteral("abcdefghijklmnopqrstuvwxyz012345678");
    const QString p28 = p35.left(28);
    QTest::newRow("primary and alternative")
        << "bob"
        << "bobby" << 102
        << QStringList { "0=bob", "1=bobby", "2=bob_", "3=bob_1", "11=bob_9", "12=bob__10", "101=bob__99" };
    QTest::newRow("no alternative") << "bob"
                                    << "" << 101
                                    << QStringList { "0=bob", "1=bob_", "10=bob_9", "11=bob__10" };
    QTest::newRow("alternative equals primary") << "bob"
                                                << "bob" << 101 << QStringList { "0=bob", "1=bob_" };
    QTest::newRow("alternative equals a candidate")
        << "bob"
        << "bob__10" << 101 << QStringList { "0=bob", "1=bob__10", "2=bob_", "11=bob_9", "12=bob__11" };
    // Candidates are cut to 30 characters; the nicknames given are kept whole.
    QTest::newRow("primary 35 characters")
        << p35 << "x" << 102
        << QStringList { "0=" + p35, "1=x", "2=" + p35.left(29) + "_", "3=" + p35.left(28) + "_1",
               "12=" + p35.left(26) + "__10", "101=" + p35.left(26) + "__99" };
    QTest::newRow("primary 28 characters")
        << p28 << "" << 101
        << QStringList { "1=" + p28 + "_", "2=" + p28 + "_1", "11=" + p28.left(26) + "__10" };
}

void TestEngine::nickCandidates()
{
    QFETCH(QString, primary);
    QFETCH(QString, alt);
    QFETCH(int, size);
    QFETCH(QStringList, expectedAt);

    EngineSession session(primary, alt);
    QVERIFY(session.start());
    const QStringList candidates = session.connection.nickCandidates();
    QCOMPARE(candidates.size(), size);
    for (const QString& entry : expectedAt)
        QCOMPARE(candidates.value(entry.section('=', 0, 0).toInt()), entry.section('=', 1));
    QCOMPARE(session.connection.currentNick(), primary);
    for (int i = 1; i < candidates.size(); ++i) {
        QVERIFY2(candidates.at(i) == alt || candidates.at(i).size() <= 30, qPrintable(candidates.at(i)));
        QCOMPARE(candidates.indexOf(candidates.at(i)), i); // no duplicates
    }
}

void TestEngine::nickInUseFallsBackThroughServer()
{
    EngineSession session(QStringLiteral("alice"), QStringLiteral("alicia"));
    QVERIFY(session.start());
    session.server.send(
        ":irc.test 433 * alice :Nickname is already in use.\r\n"
        ":irc.test 432 * alicia :Erroneous Nickname\r\n"
        ":irc.test 001 alice_ :Welcome to the QuenvarTest IRC Network alice_!alice@127.0.0.1\r\n"
        ":irc.test 433 alice_ bob :Nickname is already in use.\r\n");
    QVERIFY(session.serverSync());
    // While registering, 432 moves on like 433; afterwards a refusal keeps the nick.
    QCOMPARE(session.sentLines(), (QStringList { "NICK alicia", "NICK alice_" }));
    QCOMPARE(session.recorder.withoutRaw(),
        (QStringList { "nickChanged:alice|alicia", "nickChanged:alicia|alice_",
            "serverMessage:Connected and registered.", "registered",
            "nickRejected:bob|433|Nickname is already in use." }));
    QCOMPARE(session.connection.currentNick(), QStringLiteral("alice_"));
    QVERIFY(session.connection.isRegistered());
}

void TestEngine::tryNextNickToExhaustion()
{
    EngineSession session(QStringLiteral("bob"), QStringLiteral("bobby"));
    QVERIFY(session.start());
    const QStringList candidates = session.connection.nickCandidates();
    QStringList expectedSent;
    for (int i = 1; i < candidates.size(); ++i) {
        session.connection.tryNextNick();
        expectedSent.append(QStringLiteral("NICK ") + candidates.at(i));
    }
    QCOMPARE(session.recorder.entries("nickChanged").size(), 101);
    QCOMPARE(session.recorder.take().constLast(), QStringLiteral("nickChanged:bob__98|bob__99"));

    session.connection.tryNextNick();
    session.connection.tryNextNick();
    const QString exhausted
        = QStringLiteral("errorOccurred:All nicknames are in use. Please choose a different nick.");
    QCOMPARE(session.recorder.log(), QStringList(2, exhausted));
    QCOMPARE(session.connection.currentNick(), QStringLiteral("bob__99"));
    QCOMPARE(session.sentLines(), expectedSent);
}

void TestEngine::ownNickTracking()
{
    EngineSession session(QStringLiteral("bob"));
    QVERIFY(session.start());
    session.server.send(":carol!carol@127.0.0.1 NICK :caroline\r\n"
                        ":bob!bobuser@127.0.0.1 NICK :robert\r\n"
                        ":robert!bobuser@127.0.0.1 NICK robby\r\n"
                        ":bob!bobuser@127.0.0.1 NICK :stale\r\n"
                        ":bob!bobuser@127.0.0.1 JOIN :#old\r\n"
                        ":robby!bobuser@127.0.0.1 JOIN :#new\r\n");
    QVERIFY(session.serverSync());
    QCOMPARE(session.recorder.entries("ownNickChanged"),
        (QStringList { "ownNickChanged:robert", "ownNickChanged:robby" }));
    QCOMPARE(session.recorder.entries("nickChanged").size(), 4);
    QCOMPARE(session.connection.currentNick(), QStringLiteral("robby"));
    // Only a JOIN under the current nickname is our own.
    QCOMPARE(session.sentLines(), QStringList { "NAMES #new" });

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

    const QByteArray m = ":bob!bobuser@127.0.0.1 PRIVMSG #test :";
    const auto row = [](const char* name, const QList<QByteArray>& chunks, const QStringList& lines) {
        QTest::newRow(name) << chunks << lines;
    };
    row("two lines in one read", { m + "one\r\n" + m + "two\r\n" }, { m + "one", m + "two" });
    row("half a line", { m + "hel", "lo channel\r\n" }, { m + "hello channel" });
    row("CR LF split", { m + "one\r", "\n" + m + "two\r\n" }, { m + "one", m + "two" });
    row("UTF-8 split", { m + "caf\xc3", "\xa9 \xe2\x98", "\x83\r\n" }, { m + "caf\u00e9 \u2603" });
    row("LF only and mixed", { m + "one\n" + m + "two\r\n" + m + "three\n" },
        { m + "one", m + "two", m + "three" });
    row("empty lines skipped", { "\r\n\r\n\n\r\n", m + "x\r\n\r\n" }, { m + "x" });
    row("invalid UTF-8 as Latin-1, line by line", { m + "caf\xe9 na\xefve\r\n" + m + "\xe2\x82\xac\r\n" },
        { m + "caf\u00e9 na\u00efve", m + "\u20ac" });
    row("byte order mark kept", { "\xef\xbb\xbfPRIVMSG\r\n" }, { QChar(0xfeff) + QStringLiteral("PRIVMSG") });
    row("bare CR inside a line", { m + "a\rb\r\n" }, { m + "a\rb" });
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
    QCOMPARE(
        session.recorder.entries("rawMessageReceived").replaceInStrings("rawMessageReceived:", ""), lines);
    QCOMPARE(session.recorder.entries("errorOccurred"), QStringList());
}

void TestEngine::oversizeLine_data()
{
    QTest::addColumn<QList<QByteArray>>("chunks");
    QTest::addColumn<int>("errors");

    const QByteArray huge = ":irc.test NOTICE alice :" + QByteArray(70000, 'x');
    QTest::newRow("in one read") << QList<QByteArray> { huge + "\r\n" } << 1;
    QTest::newRow("over many reads") << QList<QByteArray> { huge.left(30000), huge.mid(30000, 30000),
        huge.mid(60000), QByteArray(100000, 'y'), "\r\n" }
                                     << 1;
    QTest::newRow("two in a row") << QList<QByteArray> { huge, "\r\n", huge + "\r\n" } << 2;
    // A line of the full length whose CR arrives before its LF is kept.
    const QByteArray limit = ":irc.test 372 alice :" + QByteArray(IRCConnection::MaxLineLength - 21, 'z');
    QTest::newRow("exactly 64 KiB") << QList<QByteArray> { limit + "\r", "\n" } << 0;
}

void TestEngine::oversizeLine()
{
    QFETCH(QList<QByteArray>, chunks);
    QFETCH(int, errors);

    EngineSession session;
    QVERIFY(session.start());
    session.server.sendSeparately(":irc.test 372 alice :before\r\n");
    for (const QByteArray& chunk : chunks)
        session.server.sendSeparately(chunk);
    session.server.sendSeparately(":irc.test 372 alice :after\r\n");
    QVERIFY(session.serverSync());

    QCOMPARE(session.recorder.entries("errorOccurred"),
        QStringList(errors,
            "errorOccurred:Received a line longer than 64 KiB without a line end; it was discarded."));
    QStringList expected { "serverMessage::irc.test 372 alice :before" };
    if (errors == 0)
        expected.append("serverMessage:" + QString::fromLatin1(chunks.constFirst().chopped(1)));
    expected.append("serverMessage::irc.test 372 alice :after");
    QCOMPARE(session.recorder.entries("serverMessage"), expected);
    QVERIFY(session.connection.isConnected());
}

void TestEngine::disconnectSendsQuit()
{
    EngineSession session;
    QVERIFY(session.start());
    session.connection.disconnectFromServer();
    QVERIFY(!session.connection.isKeepAliveRunning());
    QVERIFY(!session.connection.isSleepInhibited());
    QVERIFY(session.server.waitForClientGone());
    QCOMPARE(session.server.received(), QByteArray("QUIT :Quenvar leaving\r\n"));
    QTRY_COMPARE_WITH_TIMEOUT(session.recorder.log(), QStringList { "disconnected" }, 10000);

    // A second disconnect sends and reports nothing; sending fails again.
    session.connection.disconnectFromServer();
    session.connection.sendWhois(QStringLiteral("bob"));
    QTest::qWait(50);
    QCOMPARE(session.recorder.log(), (QStringList { "disconnected", NotConnected }));

    // Destroying a live connection says goodbye too.
    FakeIrcServer server;
    auto* connection = new IRCConnection;
    connection->connectToServer(Host, server.port(), QStringLiteral("x"), QString(), false);
    QVERIFY(server.waitForLines(2));
    delete connection;
    QVERIFY(server.waitForReceived("QUIT :Quenvar leaving\r\n"));
}

void TestEngine::remoteCloseReportsAndStops()
{
    EngineSession session;
    QVERIFY(session.start());
    session.server.send(
        ":irc.test 001 alice :Welcome\r\nERROR :Closing link: (alice@127.0.0.1) [Quit: bye]\r\n");
    session.server.closeClient();
    QTRY_VERIFY_WITH_TIMEOUT(!session.recorder.entries("disconnected").isEmpty(), 10000);
    QTest::qWait(50);
    // Lines sent before the close are still delivered; the error is the socket's own text.
    const QStringList log = session.recorder.log();
    QVERIFY(log.contains("rawMessageReceived:ERROR :Closing link: (alice@127.0.0.1) [Quit: bye]"));
    QCOMPARE(session.recorder.entries("disconnected").size(), 1);
    // The server's reason, then the socket's own text.
    QCOMPARE(session.recorder.entries("errorOccurred").size(), 2);
    QCOMPARE(session.recorder.entries("errorOccurred").constFirst(),
        QLatin1String("errorOccurred:Closing link: (alice@127.0.0.1) [Quit: bye]"));
    QVERIFY(session.recorder.entries("errorOccurred").constLast() != QLatin1String("errorOccurred:"));
    QVERIFY(!session.connection.isKeepAliveRunning());
    QCOMPARE(session.connection.platformPower().releaseCount(), 1);
    QVERIFY(!session.connection.isSleepInhibited());
    // Registration is kept until the next connect.
    QVERIFY(session.connection.isRegistered());
}

void TestEngine::connectionNeverUp()
{
    quint16 closedPort = 0;
    {
        QTcpServer probe;
        QVERIFY(probe.listen(QHostAddress::LocalHost, 0));
        closedPort = probe.serverPort();
    }
    IRCConnection connection;
    SignalRecorder recorder(&connection);
    connection.connectToServer(Host, closedPort, QStringLiteral("a"), QString(), false);
    QTRY_COMPARE_WITH_TIMEOUT(
        recorder.log(), (QStringList { "errorOccurred:Connection refused", "connectFailed" }), 10000);

    // Given up while still connecting: nothing goes out, nothing is reported.
    FakeIrcServer server;
    connection.connectToServer(Host, server.port(), QStringLiteral("a"), QString(), false);
    connection.disconnectFromServer();
    QTest::qWait(300);
    QCOMPARE(recorder.log(), (QStringList { "errorOccurred:Connection refused", "connectFailed" }));
    QCOMPARE(server.received(), QByteArray());
    QVERIFY(!connection.isConnected());
    QVERIFY(!connection.isKeepAliveRunning());
    QCOMPARE(connection.platformPower().inhibitCount(), 0);
}

void TestEngine::reconnectWithoutDisconnect()
{
    EngineSession session;
    QVERIFY(session.start());
    session.server.send(":irc.test 001 alice :Welcome\r\n");
    QTRY_VERIFY_WITH_TIMEOUT(session.connection.isRegistered(), 10000);
    session.connection.setAway(true);
    session.connection.tryNextNick();

    FakeIrcServer second;
    session.connection.connectToServer(
        Host, second.port(), QStringLiteral("carol"), QStringLiteral("C D"), false);
    QVERIFY(!session.connection.isRegistered());
    QVERIFY(!session.connection.isAway());
    QCOMPARE(session.connection.currentNick(), QStringLiteral("carol"));
    QVERIFY(second.waitForLines(3));
    QCOMPARE(second.received(), QByteArray("CAP LS 302\r\nNICK carol\r\nUSER carol 0 * :C D\r\n"));
    QTRY_VERIFY_WITH_TIMEOUT(session.connection.isConnected(), 10000);
    // Sleep stays inhibited once for both connections.
    const PlatformPower& power = session.connection.platformPower();
    QCOMPARE(power.inhibitCount(), 1);
    QVERIFY(power.isInhibiting());

    // The old socket no longer speaks for the connection.
    session.recorder.clear();
    session.server.send(":irc.test 372 alice :old server\r\n");
    session.server.closeClient();
    second.send(":irc.test 372 carol :new server\r\n");
    QTRY_VERIFY_WITH_TIMEOUT(!session.recorder.log().isEmpty(), 10000);
    QTest::qWait(100);
    QCOMPARE(session.recorder.log(),
        (QStringList { "rawMessageReceived::irc.test 372 carol :new server",
            "serverMessage::irc.test 372 carol :new server" }));

    // Released once however often disconnected; the next connect takes it again.
    session.connection.disconnectFromServer();
    session.connection.disconnectFromServer();
    QTRY_VERIFY_WITH_TIMEOUT(!session.recorder.entries("disconnected").isEmpty(), 10000);
    QCOMPARE(power.releaseCount(), 1);
    QVERIFY(!power.holdsSystemLock());
    session.connection.connectToServer(Host, second.port(), QStringLiteral("carol"), QString(), false);
    QTRY_VERIFY_WITH_TIMEOUT(session.connection.isConnected(), 10000);
    QCOMPARE(power.inhibitCount(), 2);
}

void TestEngine::reconnectFromSlotStopsOldBuffer()
{
    EngineSession session;
    QVERIFY(session.start());
    FakeIrcServer second;
    QObject::connect(&session.connection, &IRCConnection::registered, &session.recorder, [&] {
        session.connection.connectToServer(Host, second.port(), QStringLiteral("bob"), QString(), false);
        // What the new socket delivers meanwhile (from a nested event loop) is kept.
        session.connection.receiveBytes(":irc.test 372 bob :new\r\n");
    });
    session.server.send(":irc.test 001 alice :Welcome\r\n:irc.test 372 alice :left behind\r\n");
    QVERIFY(second.waitForLines(3));
    QTest::qWait(100);
    QCOMPARE(session.recorder.entries("rawMessageReceived"),
        (QStringList { "rawMessageReceived::irc.test 001 alice :Welcome",
            "rawMessageReceived::irc.test 372 bob :new" }));
}

void TestEngine::tcpKeepAliveOptions()
{
    EngineSession session;
    QVERIFY(session.start());
    auto* socket = session.connection.findChild<QTcpSocket*>();
    QVERIFY(socket);
    QCOMPARE(socket->socketOption(QAbstractSocket::LowDelayOption).toInt(), 1);
#ifdef Q_OS_LINUX
    const auto option = [fd = int(socket->socketDescriptor())](int level, int name) {
        int value = -1;
        socklen_t length = sizeof value;
        return getsockopt(fd, level, name, &value, &length) == 0 ? value : -2;
    };
    QCOMPARE(option(SOL_SOCKET, SO_KEEPALIVE), 1);
    QCOMPARE(option(IPPROTO_TCP, TCP_KEEPIDLE), 60);
    QCOMPARE(option(IPPROTO_TCP, TCP_KEEPINTVL), 10);
    QCOMPARE(option(IPPROTO_TCP, TCP_KEEPCNT), 5);
#else
    QCOMPARE(socket->socketOption(QAbstractSocket::KeepAliveOption).toInt(), 1);
#endif
}

void TestEngine::tlsNeverSendsInClear()
{
    if (!QSslSocket::supportsSsl())
        QSKIP("no TLS backend");
    FakeIrcServer server;
    IRCConnection connection;
    SignalRecorder recorder(&connection);
    connection.connectToServer(Host, server.port(), QStringLiteral("alice"), QStringLiteral("Alice"), true);
    QTRY_VERIFY_WITH_TIMEOUT(server.received().size() >= 3, 10000);
    // A TLS handshake record, not registration text.
    QVERIFY(server.received().startsWith("\x16\x03"));

    // A plain-text server makes the handshake fail; that is reported as the
    // socket's own error text and nothing is parsed.
    server.send(":irc.test NOTICE * :*** Looking up your hostname...\r\n");
    QTRY_VERIFY_WITH_TIMEOUT(!recorder.entries("errorOccurred").isEmpty(), 10000);
    QVERIFY(recorder.entries("errorOccurred").constFirst() != QLatin1String("errorOccurred:"));
    QCOMPARE(recorder.entries("rawMessageReceived"), QStringList());
    QTRY_VERIFY_WITH_TIMEOUT(!connection.isSleepInhibited(), 10000);
    QVERIFY(!server.received().contains("NICK"));
}
