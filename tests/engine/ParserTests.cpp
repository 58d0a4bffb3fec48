#include "TestEngine.h"

#include "EngineSession.h"
#include "IRCConnection.h"
#include "IRCParser.h"
#include "SignalRecorder.h"

#include <QDateTime>
#include <QRandomGenerator>
#include <QSignalSpy>
#include <QTest>

// Rows use lines as InspIRCd 3.15 sent them to a client named alice (the
// session's own nick), plus hand-made malformed lines.
void TestEngine::parserDispatch_data()
{
    QTest::addColumn<QString>("line");
    QTest::addColumn<QStringList>("emitted");
    QTest::addColumn<QStringList>("sent");

    const QStringList none;
    const auto row = [](const char* name, const QString& line, const QStringList& emitted,
                         const QStringList& sent = {}) { QTest::newRow(name) << line << emitted << sent; };

    // PING and PONG
    row("PING trailing", "PING :irc.test", none, { "PONG :irc.test" });
    row("PING middle", "PING abc", none, { "PONG :abc" });
    row("PING padded", "  PING :pad  \t", none, { "PONG :pad" });
    row("PING bare", "PING", none, { "PONG :" });
    row("PING with prefix", ":irc.test PING :x", none);
    row("ping lowercase", "ping :x", none);
    row("PONG", "PONG :irc.test", none);
    row("PONG with prefix", ":irc.test PONG irc.test :hello123", none);

    // PRIVMSG
    row("PRIVMSG channel", ":bob!bobuser@127.0.0.1 PRIVMSG #test :hello channel",
        { "privmsgReceived:bob|#test|hello channel" });
    row("PRIVMSG private", ":bob!bobuser@127.0.0.1 PRIVMSG alice :hello alice in private",
        { "privmsgReceived:bob|bob|hello alice in private" });
    row("PRIVMSG CTCP unchanged",
        ":bob!bobuser@127.0.0.1 PRIVMSG #test :\x01"
        "ACTION waves\x01",
        { "privmsgReceived:bob|#test|\x01"
          "ACTION waves\x01" });
    row("PRIVMSG trailing with colons", ":bob!b@h PRIVMSG #test :a :b: c",
        { "privmsgReceived:bob|#test|a :b: c" });
    row("PRIVMSG empty trailing", ":bob!bobuser@127.0.0.1 PRIVMSG #test :", none);
    row("PRIVMSG no trailing", ":bob!bobuser@127.0.0.1 PRIVMSG #test hi", none);
    row("PRIVMSG no middle", ":bob!bobuser@127.0.0.1 PRIVMSG :hi", none);
    row("PRIVMSG lowercase", ":bob!bobuser@127.0.0.1 privmsg #test :hi", { "privmsgReceived:bob|#test|hi" });
    row("PRIVMSG mixed case", ":bob!bobuser@127.0.0.1 PrivMsg #test :hi", { "privmsgReceived:bob|#test|hi" });
    row("PRIVMSG from server", ":irc.test PRIVMSG #test :notice",
        { "privmsgReceived:irc.test|#test|notice" });
    row("PRIVMSG non-ASCII command", ":bob!b@h PR\u0130VMSG #test :hi", none);

    // JOIN
    row("JOIN trailing", ":bob!bobuser@127.0.0.1 JOIN :#test", { "joinReceived:bob|#test" });
    row("JOIN middle", ":bob!bobuser@127.0.0.1 JOIN #test", { "joinReceived:bob|#test" });
    row("JOIN own", ":alice!alice@127.0.0.1 JOIN :#test", { "joinReceived:alice|#test" }, { "NAMES #test" });
    row("JOIN own middle", ":alice!alice@127.0.0.1 JOIN #second", { "joinReceived:alice|#second" },
        { "NAMES #second" });
    row("JOIN own nick other case", ":ALICE!alice@127.0.0.1 JOIN :#test", { "joinReceived:ALICE|#test" });
    row("JOIN own without channel", ":alice!alice@127.0.0.1 JOIN :", { "joinReceived:alice|" });
    row("JOIN bare", ":bob!b@h JOIN", { "joinReceived:bob|JOIN" });

    // PART
    row("PART with reason", ":carol!carol@127.0.0.1 PART #test :see you later",
        { "partReceived:carol|#test|see you later" });
    row("PART without reason", ":carol!carol@127.0.0.1 PART :#test", { "partReceived:carol|#test|" });
    row("PART middle only", ":carol!carol@127.0.0.1 PART #test", { "partReceived:carol|#test|" });

    // QUIT
    row("QUIT", ":carol!carol@127.0.0.1 QUIT :Quit: bye everyone",
        { "quitReceived:carol|Quit: bye everyone" });
    row("QUIT bare", ":carol!carol@127.0.0.1 QUIT", { "quitReceived:carol|" });

    // KICK
    row("KICK", ":alice!alice@127.0.0.1 KICK #test robert :behave yourself",
        { "kickReceived:#test|robert|alice|behave yourself" });
    row("KICK default reason", ":alice!alice@127.0.0.1 KICK #modes bob :alice",
        { "kickReceived:#modes|bob|alice|alice" });
    row("KICK missing parameters", ":alice!a@h KICK", { "kickReceived:KICK||alice|" });

    // NICK
    row("NICK trailing", ":bob!bobuser@127.0.0.1 NICK :robert", { "nickChanged:bob|robert" });
    row("NICK middle", ":bob!bobuser@127.0.0.1 NICK robert", { "nickChanged:bob|robert" });
    row("NICK padded trailing", ":bob!b@h NICK : robert", { "nickChanged:bob|robert" });
    row("NICK colon inside", ":bob!b@h NICK ::robert", { "nickChanged:bob|robert" });
    row("NICK own", ":alice!alice@127.0.0.1 NICK :alicia",
        { "ownNickChanged:alicia", "nickChanged:alice|alicia" });

    // NAMES
    row("353", ":irc.test 353 alice = #test :@alice bob", { "namesList:#test|@alice,bob" });
    row("353 extra spaces", ":irc.test 353 alice = #c :@op  +v plain ", { "namesList:#c|@op,+v,plain" });
    row("353 empty", ":irc.test 353 alice = #c :", { "namesList:#c|" });
    row("353 too few", ":irc.test 353 alice #c :@op", none);
    row("366", ":irc.test 366 alice #test :End of /NAMES list.", { "namesListFinished:#test" });
    row("366 short", ":irc.test 366 alice", { "namesListFinished:" });

    // LIST
    row("321", ":irc.test 321 alice Channel :Users Name", { "listStartReceived" });
    row("322", ":irc.test 322 alice #test 2 :New topic set by bob",
        { "listChannelReceived:#test|2|New topic set by bob" });
    row("322 empty topic", ":irc.test 322 alice #second 1 :", { "listChannelReceived:#second|1|" });
    row("322 too few", ":irc.test 322 alice #second :x", none);
    row("323", ":irc.test 323 alice :End of channel list.", { "listInfoReceived:|0|0", "listEndReceived" });

    // Topic, nick in use, welcome
    row("332", ":irc.test 332 bob #test :Initial topic by alice",
        { "topicReceived:#test|Initial topic by alice" });
    row("332 short", ":irc.test 332 bob", { "topicReceived:|" });
    row("433", ":irc.test 433 * alice :Nickname is already in use.", { "nickChanged:alice|alice_" },
        { "NICK alice_" });
    row("433 after registration", ":irc.test 433 alice bob :Nickname is already in use.",
        { "nickChanged:alice|alice_" }, { "NICK alice_" });
    row("001", ":irc.test 001 alice :Welcome to the QuenvarTest IRC Network alice!alice@127.0.0.1",
        { "serverMessage:Connected and registered.", "registered" });

    // WHOIS
    row("311", ":irc.test 311 alice bob bobuser 127.0.0.1 * :Bob Builder",
        { "whoisUserReceived:bob|bobuser|127.0.0.1|Bob Builder" });
    row("311 too few", ":irc.test 311 alice bob bobuser 127.0.0.1 :Bob Builder", none);
    row("311 empty parameter", ":irc.test 311 alice  bob u h :x", { "whoisUserReceived:|bob|u|x" });
    row("312", ":irc.test 312 alice bob irc.test :Quenvar test server",
        { "whoisServerReceived:bob|irc.test|Quenvar test server" });
    row("312 too few", ":irc.test 312 alice bob :Quenvar test server", none);
    row("313", ":irc.test 313 bob alice :is a NetAdmin on QuenvarTest", { "whoisOperatorReceived:alice" });
    row("313 too few", ":irc.test 313 bob :is a NetAdmin", none);
    const QString signon = QDateTime::fromSecsSinceEpoch(1795315405).toString(Qt::ISODate);
    row("317", ":irc.test 317 alice bob 0 1795315405 :seconds idle, signon time",
        { "whoisIdleReceived:bob|0|" + signon });
    row("317 signon not a number", ":irc.test 317 alice bob 7 soon :seconds idle",
        { "whoisIdleReceived:bob|7|seconds idle" });
    row("317 without signon", ":irc.test 317 alice bob 42 :seconds idle",
        { "whoisIdleReceived:bob|42|seconds idle" });
    row("317 idle not a number", ":irc.test 317 alice bob x :seconds idle",
        { "whoisIdleReceived:bob|0|seconds idle" });
    row("317 too few", ":irc.test 317 alice bob :seconds idle", none);
    row("319", ":irc.test 319 alice bob :@#second @#test", { "whoisChannelsReceived:bob|@#second @#test" });
    row("319 too few", ":irc.test 319 alice :@#test", none);
    row("318", ":irc.test 318 alice bob :End of /WHOIS list.", { "whoisEndReceived:bob|bob" });
    row("318 short", ":irc.test 318 alice :End of /WHOIS list.", { "whoisEndReceived:Server|" });
    row("318 bare", ":irc.test 318", { "whoisEndReceived:Server|" });
    row("301", ":irc.test 301 alice bob :gone to lunch", { "whoisAwayReceived:bob|gone to lunch" });
    row("301 too few", ":irc.test 301 alice :gone to lunch", none);

    // WATCH
    row("600 logon", ":irc.test 600 alice bob bobuser 127.0.0.1 1795315405 :arrived online",
        { "watchStatus:bob|true" });
    row("601 logoff", ":irc.test 601 alice bob bobuser 127.0.0.1 1795315407 :went offline",
        { "watchStatus:bob|false" });
    row("602 stopped", ":irc.test 602 alice bob bobuser 127.0.0.1 1795315405 :stopped watching", none);
    row("604 now on", ":irc.test 604 alice alice alice 127.0.0.1 1795315404 :is online",
        { "watchStatus:alice|true" });
    row("605 now off", ":irc.test 605 alice bob * * 0 :is offline", { "watchStatus:bob|false" });
    row("606 list", ":irc.test 606 alice :bob alice", none);
    row("600 too few", ":irc.test 600 alice :arrived online", none);
    row("605 too few", ":irc.test 605 alice :is offline", none);
    // Two middle parameters are enough: the nick is the second.
    row("600 shortest", ":irc.test 600 alice bob :arrived online", { "watchStatus:bob|true" });
    row("601 shortest", ":irc.test 601 alice bob :went offline", { "watchStatus:bob|false" });
    row("604 shortest", ":irc.test 604 alice bob :is online", { "watchStatus:bob|true" });
    row("605 shortest", ":irc.test 605 alice bob :is offline", { "watchStatus:bob|false" });
    row("606 with two", ":irc.test 606 alice bob :bob", none);

    // Unlisted numerics reach the server tab as the whole line
    const QString isupport
        = ":irc.test 005 alice AWAYLEN=200 CASEMAPPING=rfc1459 WATCH=128 :are supported by this server";
    row("005", isupport, { "serverMessage:" + isupport });
    row("333", ":irc.test 333 bob #test alice!alice@127.0.0.1 :1795315406",
        { "serverMessage::irc.test 333 bob #test alice!alice@127.0.0.1 :1795315406" });
    row("432", ":irc.test 432 * 1badnick :Erroneous Nickname",
        { "serverMessage::irc.test 432 * 1badnick :Erroneous Nickname" });
    row("598", ":irc.test 598 alice bob bobuser 127.0.0.1 1795315406 :gone to lunch",
        { "serverMessage::irc.test 598 alice bob bobuser 127.0.0.1 1795315406 :gone to lunch" });
    row("603", ":irc.test 603 alice :You have 2 and are on 0 WATCH entries",
        { "serverMessage::irc.test 603 alice :You have 2 and are on 0 WATCH entries" });
    row("607", ":irc.test 607 alice :End of WATCH list",
        { "serverMessage::irc.test 607 alice :End of WATCH list" });
    row("numeric padded", "  :irc.test 376 alice :End of message of the day.  ",
        { "serverMessage::irc.test 376 alice :End of message of the day." });
    row("numeric without prefix", "372 alice :line 2", { "serverMessage:372 alice :line 2" });
    row("four digits", ":irc.test 0001 alice :x", { "serverMessage::irc.test 0001 alice :x" });
    row("one digit bare", "4", { "serverMessage:4" });
    row("welcome without prefix", "001", { "serverMessage:Connected and registered.", "registered" });

    // Named commands without a signal of their own
    row("NOTICE", ":bob!bobuser@127.0.0.1 NOTICE #test :a channel notice", none);
    row("MODE", ":alice!alice@127.0.0.1 MODE #test +o :bob", none);
    row("TOPIC", ":bob!bobuser@127.0.0.1 TOPIC #test :New topic set by bob", none);
    row("ERROR", "ERROR :Closing link: (carol@127.0.0.1) [Quit: bye everyone]", none);
    row("CAP", ":irc.test CAP alice LS :account-notify away-notify multi-prefix server-time ", none);
    row("INVITE", ":bob!b@h INVITE alice :#test", none);
    row("unknown", ":irc.test FOOBAR x", none);

    // Malformed
    row("empty", "", none);
    row("white space", " \t \r ", none);
    row("only prefix", ":irc.test", none);
    row("only colon", ":", none);
    row("two colons", "::", none);
    row("prefix and space", ":irc.test ", none);
    row("empty command", ":irc.test  001 alice :x", none);
    row("trailing only", ":irc.test :just trailing", none);
    row("trailing only without prefix", ":just trailing", none);
    row("non-ASCII digits", ":irc.test \u0663\u0665\u0663 alice = #c :x", none);
}

void TestEngine::parserDispatch()
{
    QFETCH(QString, line);
    QFETCH(QStringList, emitted);
    QFETCH(QStringList, sent);

    EngineSession session;
    QVERIFY(session.start());
    IRCParser::parseLine(line, &session.connection);
    QCOMPARE(session.recorder.log(), emitted);
    QCOMPARE(session.sentLines(), sent);
    QVERIFY(session.connection.isConnected());
}

void TestEngine::parserWithoutSocket()
{
    IRCParser::parseLine(QStringLiteral(":a!u@h PRIVMSG #c :hi"), nullptr);

    IRCConnection connection;
    SignalRecorder recorder(&connection);
    IRCParser::parseLine(QStringLiteral("PING :x"), &connection);
    QCOMPARE(recorder.take(), QStringList { "errorOccurred:Socket is not connected" });

    // Huge parameter counts and long lines are handled like any other.
    QString manyTokens = QStringLiteral(":irc.test 005 alice ");
    for (int i = 0; i < 20000; ++i)
        manyTokens += QStringLiteral("T%1=1 ").arg(i);
    manyTokens += QStringLiteral(":are supported by this server");
    IRCParser::parseLine(manyTokens, &connection);
    QCOMPARE(recorder.take(), QStringList { "serverMessage:" + manyTokens });

    QString manyTargets = QStringLiteral(":bob!b@h PRIVMSG ");
    for (int i = 0; i < 20000; ++i)
        manyTargets += QStringLiteral("#c%1 ").arg(i);
    manyTargets += QStringLiteral(":hi");
    IRCParser::parseLine(manyTargets, &connection);
    QCOMPARE(recorder.take(), QStringList { "privmsgReceived:bob|#c0|hi" });

    QString manyNames = QStringLiteral(":irc.test 353 alice = #big :");
    QStringList expectedNames;
    for (int i = 0; i < 20000; ++i) {
        const QString name = QStringLiteral("@member%1").arg(i);
        manyNames += name + QLatin1Char(' ');
        expectedNames.append(name);
    }
    IRCParser::parseLine(manyNames, &connection);
    QCOMPARE(recorder.take(), QStringList { "namesList:#big|" + expectedNames.join(QLatin1Char(',')) });

    // Only spaces between the command and the end: one empty parameter per gap.
    IRCParser::parseLine(
        QStringLiteral(":irc.test 311 a") + QString(5000, QLatin1Char(' ')) + QStringLiteral("x"),
        &connection);
    QCOMPARE(recorder.take(), QStringList { "whoisUserReceived:|||" });
}

void TestEngine::parserListCounters()
{
    IRCConnection connection;
    SignalRecorder recorder(&connection);
    connection.setListServerName(QStringLiteral("stale"));
    connection.addListChannel(99);

    const QStringList lines {
        ":irc.test 321 alice Channel :Users Name",
        ":irc.test 322 alice #second 1 :",
        ":irc.test 322 alice #test 2 :New topic set by bob",
        ":irc.test 322 alice #odd many :not a number",
        ":irc.test 322 alice #neg -1 :negative",
        ":irc.test 323 alice :End of channel list.",
    };
    for (const QString& line : lines)
        IRCParser::parseLine(line, &connection);

    QCOMPARE(recorder.log(),
        (QStringList { "listStartReceived", "listChannelReceived:#second|1|",
            "listChannelReceived:#test|2|New topic set by bob", "listChannelReceived:#odd|many|not a number",
            "listChannelReceived:#neg|-1|negative", "listInfoReceived:irc.test|4|2", "listEndReceived" }));
    QCOMPARE(connection.getListServerName(), QStringLiteral("irc.test"));
    QCOMPARE(connection.getTotalListChannels(), 4);
    QCOMPARE(connection.getTotalListUsers(), 2);

    // A LIST start without a prefix keeps no server name; counters start over.
    recorder.clear();
    IRCParser::parseLine(QStringLiteral("321 alice Channel :Users Name"), &connection);
    IRCParser::parseLine(QStringLiteral("323 alice :End"), &connection);
    QCOMPARE(
        recorder.log(), (QStringList { "listStartReceived", "listInfoReceived:|0|0", "listEndReceived" }));

    // Hostile counts saturate instead of overflowing.
    IRCParser::parseLine(QStringLiteral(":s 322 a #x 2147483647 :t"), &connection);
    IRCParser::parseLine(QStringLiteral(":s 322 a #y 2147483647 :t"), &connection);
    QCOMPARE(connection.getTotalListUsers(), 2147483647);
    QCOMPARE(connection.getTotalListChannels(), 2);
}

void TestEngine::parserJoinAfterOwnNickChange()
{
    EngineSession session;
    QVERIFY(session.start());
    IRCParser::parseLine(QStringLiteral(":alice!alice@127.0.0.1 NICK :alicia"), &session.connection);
    QCOMPARE(session.connection.currentNick(), QStringLiteral("alicia"));
    IRCParser::parseLine(QStringLiteral(":alice!alice@127.0.0.1 JOIN :#old"), &session.connection);
    IRCParser::parseLine(QStringLiteral(":alicia!alice@127.0.0.1 JOIN :#new"), &session.connection);
    QCOMPARE(session.sentLines(), QStringList { "NAMES #new" });
}

void TestEngine::parserSignalArgumentTypes()
{
    IRCConnection connection;
    QSignalSpy idle(&connection, &IRCConnection::whoisIdleReceived);
    QSignalSpy watch(&connection, &IRCConnection::watchStatus);
    QSignalSpy info(&connection, &IRCConnection::listInfoReceived);
    QSignalSpy names(&connection, &IRCConnection::namesList);

    IRCParser::parseLine(
        QStringLiteral(":irc.test 317 bob alice 1 1795315404 :seconds idle, signon time"), &connection);
    IRCParser::parseLine(QStringLiteral(":irc.test 605 alice bob * * 0 :is offline"), &connection);
    IRCParser::parseLine(QStringLiteral(":irc.test 322 alice #test 2 :t"), &connection);
    IRCParser::parseLine(QStringLiteral(":irc.test 323 alice :End of channel list."), &connection);
    IRCParser::parseLine(QStringLiteral(":irc.test 353 carol = #test :@alice @bob carol"), &connection);

    QCOMPARE(idle.size(), 1);
    QCOMPARE(idle.at(0).at(0).toString(), QStringLiteral("alice"));
    QCOMPARE(idle.at(0).at(1).typeId(), QMetaType::Int);
    QCOMPARE(idle.at(0).at(1).toInt(), 1);
    QCOMPARE(idle.at(0).at(2).toString(), QDateTime::fromSecsSinceEpoch(1795315404).toString(Qt::ISODate));
    QCOMPARE(watch.size(), 1);
    QCOMPARE(watch.at(0).at(1).typeId(), QMetaType::Bool);
    QCOMPARE(watch.at(0).at(1).toBool(), false);
    QCOMPARE(info.size(), 1);
    QCOMPARE(info.at(0).at(0).toString(), QString());
    QCOMPARE(info.at(0).at(1).typeId(), QMetaType::Int);
    QCOMPARE(info.at(0).at(1).toInt(), 1);
    QCOMPARE(info.at(0).at(2).toInt(), 2);
    QCOMPARE(names.size(), 1);
    QCOMPARE(names.at(0).at(1).toStringList(), (QStringList { "@alice", "@bob", "carol" }));
}

void TestEngine::randomInputIsHandledSafely()
{
    // Lines built from the characters that matter to the grammar, plus bytes
    // that are not valid UTF-8; fed to the parser and through the socket.
    QRandomGenerator random(20261122);
    static const char alphabet[] = ":: ::  !@#abcPRIVMSGJOINPARTNICKKICKQUIT0123456789\t\x01\x80\xc3\xff\r";
    const auto randomLine = [&random] {
        QByteArray line;
        const int length = random.bounded(1, 120);
        for (int i = 0; i < length; ++i)
            line.append(alphabet[random.bounded(int(sizeof alphabet - 1))]);
        if (random.bounded(4) == 0)
            line.prepend(":irc.test " + QByteArray::number(random.bounded(1000)) + ' ');
        return line;
    };

    EngineSession session;
    QVERIFY(session.start());
    for (int i = 0; i < 20000; ++i)
        IRCParser::parseLine(QString::fromLatin1(randomLine()), &session.connection);
    QVERIFY(session.connection.isConnected());
    QCOMPARE(session.recorder.entries("errorOccurred"), QStringList());

    session.recorder.clear();
    QByteArray wire;
    int lines = 0;
    for (int i = 0; i < 3000; ++i) {
        QByteArray line = randomLine();
        line.replace('\r', ' ');
        wire += line + "\r\n";
        if (!line.isEmpty())
            ++lines;
    }
    session.server.send(wire);
    QVERIFY(session.serverSync());
    QCOMPARE(session.recorder.entries("rawMessageReceived").size(), lines);
    QCOMPARE(session.recorder.entries("errorOccurred"), QStringList());
    QVERIFY(session.connection.isConnected());
}
