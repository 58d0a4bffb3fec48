#include "TestEngine.h"

#include "EngineSession.h"
#include "IRCParser.h"

#include <QDateTime>
#include <QTest>

// Rows use lines as InspIRCd 3.15 sent them to a client named alice (the
// session's own nick), plus hand-made malformed ones: one row per rule and,
// where a rule needs parameters, one with too few.
void TestEngine::parserDispatch_data()
{
    QTest::addColumn<QString>("line");
    QTest::addColumn<QStringList>("emitted");
    QTest::addColumn<QStringList>("sent");

    const QStringList none;
    const auto row = [](const char* name, const QString& line, const QStringList& emitted,
                         const QStringList& sent = {}) { QTest::newRow(name) << line << emitted << sent; };

    row("PING trailing", "PING :irc.test", none, { "PONG :irc.test" });
    row("PING middle", "PING abc", none, { "PONG :abc" });
    row("PING padded", "  PING :pad  \t", none, { "PONG :pad" });
    row("PING bare", "PING", none, { "PONG :" });
    row("PING with prefix", ":irc.test PING :x", none);
    row("ping lowercase", "ping :x", none);
    row("PONG", "PONG :irc.test", none);

    row("PRIVMSG channel", ":bob!bobuser@127.0.0.1 PRIVMSG #test :hello channel",
        { "privmsgReceived:bob|#test|hello channel" });
    row("PRIVMSG private", ":bob!bobuser@127.0.0.1 PRIVMSG alice :hello alice in private",
        { "privmsgReceived:bob|bob|hello alice in private" });
    row("PRIVMSG trailing with colons", ":bob!b@h PRIVMSG #test :a :b: c",
        { "privmsgReceived:bob|#test|a :b: c" });
    row("PRIVMSG from server", ":irc.test PRIVMSG #test :notice",
        { "privmsgReceived:irc.test|#test|notice" });
    row("PRIVMSG lowercase", ":bob!bobuser@127.0.0.1 privmsg #test :hi", { "privmsgReceived:bob|#test|hi" });
    row("PRIVMSG non-ASCII command", ":bob!b@h PR\u0130VMSG #test :hi", none);
    row("PRIVMSG empty trailing", ":bob!bobuser@127.0.0.1 PRIVMSG #test :", none);
    row("PRIVMSG no middle", ":bob!bobuser@127.0.0.1 PRIVMSG :hi", none);

    row("JOIN trailing", ":bob!bobuser@127.0.0.1 JOIN :#test", { "joinReceived:bob|#test" });
    row("JOIN middle", ":bob!bobuser@127.0.0.1 JOIN #test", { "joinReceived:bob|#test" });
    row("JOIN own", ":alice!alice@127.0.0.1 JOIN :#test", { "joinReceived:alice|#test" }, { "NAMES #test" });
    row("JOIN own nick other case", ":ALICE!alice@127.0.0.1 JOIN :#test", { "joinReceived:ALICE|#test" });
    row("JOIN own without channel", ":alice!alice@127.0.0.1 JOIN :", none);
    // Without parameters the command reads as the only middle parameter.
    row("JOIN bare", ":bob!b@h JOIN", none);
    row("NICK bare", ":bob!b@h NICK", none);
    row("KICK without nick", ":op!o@h KICK #test", none);

    row("PART with reason", ":carol!carol@127.0.0.1 PART #test :see you later",
        { "partReceived:carol|#test|see you later" });
    row("PART channel trailing", ":carol!carol@127.0.0.1 PART :#test", { "partReceived:carol|#test|" });
    row("QUIT", ":carol!carol@127.0.0.1 QUIT :Quit: bye everyone",
        { "quitReceived:carol|Quit: bye everyone" });
    row("KICK", ":alice!alice@127.0.0.1 KICK #test robert :behave yourself",
        { "kickReceived:#test|robert|alice|behave yourself" });

    row("NICK trailing", ":bob!bobuser@127.0.0.1 NICK :robert", { "nickChanged:bob|robert" });
    row("NICK middle", ":bob!bobuser@127.0.0.1 NICK robert", { "nickChanged:bob|robert" });
    row("NICK padded with colon inside", ":bob!b@h NICK : :robert", { "nickChanged:bob|robert" });
    row("NICK own", ":alice!alice@127.0.0.1 NICK :alicia",
        { "ownNickChanged:alicia", "nickChanged:alice|alicia" });

    row("353", ":irc.test 353 alice = #c :@op  +v plain ", { "namesList:#c|@op,+v,plain" });
    row("353 too few", ":irc.test 353 alice #c :@op", none);
    row("366", ":irc.test 366 alice #test :End of /NAMES list.", { "namesListFinished:#test" });
    row("321", ":irc.test 321 alice Channel :Users Name", { "listStartReceived" });
    row("322", ":irc.test 322 alice #test 2 :New topic set by bob",
        { "listChannelReceived:#test|2|New topic set by bob" });
    row("322 too few", ":irc.test 322 alice #second :x", none);
    row("323", ":irc.test 323 alice :End of channel list.", { "listInfoReceived:|0|0", "listEndReceived" });
    row("332", ":irc.test 332 bob #test :Initial topic by alice",
        { "topicReceived:#test|Initial topic by alice" });
    row("433", ":irc.test 433 * alice :Nickname is already in use.", { "nickChanged:alice|alice_" },
        { "NICK alice_" });
    row("001", ":irc.test 001 alice :Welcome to the QuenvarTest IRC Network alice!alice@127.0.0.1",
        { "serverMessage:Connected and registered.", "registered" });

    row("311", ":irc.test 311 alice bob bobuser 127.0.0.1 * :Bob Builder",
        { "whoisUserReceived:bob|bobuser|127.0.0.1|Bob Builder" });
    row("311 too few", ":irc.test 311 alice bob bobuser 127.0.0.1 :Bob Builder", none);
    row("311 empty parameter", ":irc.test 311 alice  bob u h :x", { "whoisUserReceived:|bob|u|x" });
    row("312", ":irc.test 312 alice bob irc.test :Quenvar test server",
        { "whoisServerReceived:bob|irc.test|Quenvar test server" });
    row("312 too few", ":irc.test 312 alice bob :Quenvar test server", none);
    row("313", ":irc.test 313 bob alice :is a NetAdmin on QuenvarTest", { "whoisOperatorReceived:alice" });
    row("313 too few", ":irc.test 313 bob :is a NetAdmin", none);
    row("317", ":irc.test 317 alice bob 0 1795315405 :seconds idle, signon time",
        { "whoisIdleReceived:bob|0|" + QDateTime::fromSecsSinceEpoch(1795315405).toString(Qt::ISODate) });
    row("317 signon not a number", ":irc.test 317 alice bob 7 soon :seconds idle",
        { "whoisIdleReceived:bob|7|seconds idle" });
    row("317 without signon", ":irc.test 317 alice bob 42 :seconds idle",
        { "whoisIdleReceived:bob|42|seconds idle" });
    row("317 too few", ":irc.test 317 alice bob :seconds idle", none);
    row("319", ":irc.test 319 alice bob :@#second @#test", { "whoisChannelsReceived:bob|@#second @#test" });
    row("319 too few", ":irc.test 319 alice :@#test", none);
    row("318", ":irc.test 318 alice bob :End of /WHOIS list.", { "whoisEndReceived:bob|bob" });
    row("318 too few", ":irc.test 318 alice :End of /WHOIS list.", { "whoisEndReceived:Server|" });
    row("301", ":irc.test 301 alice bob :gone to lunch", { "whoisAwayReceived:bob|gone to lunch" });
    row("301 too few", ":irc.test 301 alice :gone to lunch", none);

    row("600 logon", ":irc.test 600 alice bob bobuser 127.0.0.1 1795315405 :arrived online",
        { "watchStatus:bob|true" });
    row("604 now on", ":irc.test 604 alice bob :is online", { "watchStatus:bob|true" });
    row("600 too few", ":irc.test 600 alice :arrived online", none);
    row("601 logoff", ":irc.test 601 alice bob :went offline", { "watchStatus:bob|false" });
    row("605 now off", ":irc.test 605 alice bob * * 0 :is offline", { "watchStatus:bob|false" });
    row("605 too few", ":irc.test 605 alice :is offline", none);
    row("602 stopped", ":irc.test 602 alice bob bobuser 127.0.0.1 1795315405 :stopped watching", none);
    row("606 list", ":irc.test 606 alice :bob alice", none);

    // Other numerics reach the server tab as the whole line.
    row("603", ":irc.test 603 alice :You have 2 and are on 0 WATCH entries",
        { "serverMessage::irc.test 603 alice :You have 2 and are on 0 WATCH entries" });
    row("001 under another nick", ":irc.test 001 alic :Welcome",
        { "ownNickChanged:alic", "serverMessage:Connected and registered.", "registered" });
    row("numeric padded", "  :irc.test 376 alice :End of message of the day.  ",
        { "serverMessage::irc.test 376 alice :End of message of the day." });
    row("numeric without prefix", "372 alice :line 2", { "serverMessage:372 alice :line 2" });
    row("four digits", ":irc.test 0001 alice :x", { "serverMessage::irc.test 0001 alice :x" });
    // Named commands without a signal of their own are dropped.
    row("NOTICE", ":bob!bobuser@127.0.0.1 NOTICE #test :a channel notice",
        { "noticeReceived:bob|#test|a channel notice|true" });
    row("NOTICE of the server", ":irc.test NOTICE * :*** Looking up your hostname",
        { "noticeReceived:irc.test|*|*** Looking up your hostname|false" });
    row("NOTICE to ranks", ":bob!b@h NOTICE @#test :ops", { "noticeReceived:bob|#test|ops|true" });
    row("status message", ":bob!b@h PRIVMSG +#test :voiced", { "privmsgReceived:bob|#test|voiced" });
    row("server-time tag", "@time=2026-11-25T20:00:00.000Z;x=y :bob!b@h PRIVMSG #test :hi",
        { "privmsgReceived:bob|#test|hi" });
    row("tags alone", "@time=2026-11-25T20:00:00.000Z", none);

    row("ACTION", ":bob!b@h PRIVMSG #test :\x01" "ACTION waves\x01", { "actionReceived:bob|#test|waves" });
    row("ACTION in private", ":bob!b@h PRIVMSG alice :\x01" "ACTION waves", { "actionReceived:bob|bob|waves" });
    row("CTCP VERSION", ":bob!b@h PRIVMSG alice :\x01VERSION\x01", { "ctcpRequestReceived:bob|alice|VERSION|" },
        { "NOTICE bob :\x01VERSION Quenvar 2.0\x01" });
    row("CTCP PING", ":bob!b@h PRIVMSG alice :\x01PING 123 4\x01", { "ctcpRequestReceived:bob|alice|PING|123 4" },
        { "NOTICE bob :\x01PING 123 4\x01" });
    row("CTCP unknown", ":bob!b@h PRIVMSG alice :\x01" "FINGER\x01", { "ctcpRequestReceived:bob|alice|FINGER|" });
    row("CTCP reply", ":bob!b@h NOTICE alice :\x01VERSION X 1.0\x01", { "ctcpReplyReceived:bob|VERSION|X 1.0" });
    row("TOPIC", ":bob!b@h TOPIC #test :new topic", { "topicChanged:bob|#test|new topic" });
    row("TOPIC cleared", ":bob!b@h TOPIC #test :", { "topicChanged:bob|#test|" });
    row("MODE member", ":alice!a@h MODE #test +o :bob", { "modeReceived:alice|#test|+o,bob" });
    row("MODE user", ":alice MODE alice :+iw", { "modeReceived:alice|alice|+iw" });
    row("MODE bare", ":alice!a@h MODE #test", none);
    row("INVITE", ":bob!b@h INVITE alice :#test", { "inviteReceived:bob|alice|#test" });
    row("AWAY", ":bob!b@h AWAY :lunch", { "userAwayChanged:bob|lunch" });
    row("AWAY back", ":bob!b@h AWAY", { "userAwayChanged:bob|" });
    row("ACCOUNT", ":bob!b@h ACCOUNT bobby", { "accountChanged:bob|bobby" });
    row("CHGHOST", ":bob!b@h CHGHOST nu new.host", { "hostChanged:bob|nu|new.host" });
    row("CHGHOST too few", ":bob!b@h CHGHOST nu", none);
    row("401", ":irc.test 401 alice bob :No such nick/channel", { "errorReplyReceived:401|bob|No such nick/channel" });
    row("441 names the channel", ":irc.test 441 alice bob #test :They are not on that channel",
        { "errorReplyReceived:441|#test|They are not on that channel" });
    row("482", ":irc.test 482 alice #test :You must be a channel op", { "errorReplyReceived:482|#test|You must be a channel op" });
    row("904", ":irc.test 904 alice :SASL authentication failed", { "saslFinished:false|SASL authentication failed" },
        { "CAP END" });
    row("730", ":irc.test 730 alice :bob!b@h,carl!c@h", { "watchStatus:bob|true", "watchStatus:carl|true" });
    row("731", ":irc.test 731 alice :bob", { "watchStatus:bob|false" });

    row("white space", " \t \r ", none);
    row("only prefix", ":irc.test", none);
    row("empty command", ":irc.test  001 alice :x", none);
    row("trailing only", ":irc.test :just trailing", none);
    row("non-ASCII digits", ":irc.test \u0663\u0665\u0663 alice = #c :x", none);

    QStringList many;
    for (int i = 0; i < 20000; ++i)
        many.append(QStringLiteral("#c%1").arg(i));
    const QString isupport = ":irc.test 005 alice " + many.join(' ') + " :are supported by this server";
    row("20000 parameters", isupport, { "serverSupportChanged", "serverMessage:" + isupport });
    row("PRIVMSG to 20000 targets", ":bob!b@h PRIVMSG " + many.join(' ') + " :hi",
        { "privmsgReceived:bob|#c0|hi" });
    row("353 of 20000 names", ":irc.test 353 alice = #big :" + many.join(' '),
        { "namesList:#big|" + many.join(',') });
    row("5000 empty parameters", ":irc.test 311 a" + QString(5000, ' ') + "x", { "whoisUserReceived:|||" });
}

void TestEngine::parserDispatch()
{
    QFETCH(QString, line);
    QFETCH(QStringList, emitted);
    QFETCH(QStringList, sent);

    EngineSession session;
    QVERIFY(session.start());
    session.connection.handleMessage(IRCParser::parse(line));
    QCOMPARE(session.recorder.log(), emitted);
    QCOMPARE(session.sentLines(), sent);
    QVERIFY(session.connection.isConnected());
}

// The message itself, where it holds more than the signals show. fields:
// source, target, text, then args.
void TestEngine::parserMessage_data()
{
    QTest::addColumn<QString>("line");
    QTest::addColumn<IrcMessage::Kind>("kind");
    QTest::addColumn<QStringList>("fields");
    QTest::addColumn<int>("number");
    using K = IrcMessage::Kind;
    const auto row = [](const char* name, const QString& line, K kind, const QStringList& fields,
                         int number = 0) { QTest::newRow(name) << line << kind << fields << number; };

    row("PING", "PING :irc.test", K::Ping, { "", "", "irc.test" });
    row("PRIVMSG private", ":bob!b@h PRIVMSG alice :hi", K::Privmsg, { "bob", "alice", "hi" });
    row("KICK", ":alice!a@h KICK #test robert :behave", K::Kick, { "alice", "#test", "behave", "robert" });
    row("321", ":irc.test 321 alice Channel :Users Name", K::ListStart, { "irc.test", "", "" });
    row("322", ":irc.test 322 alice #test 2 :topic", K::ListChannel, { "", "#test", "topic", "2" }, 2);
    row("322 count not a number", ":s 322 a #b many :t", K::ListChannel, { "", "#b", "t", "many" });
    row("317", ":irc.test 317 alice bob 42 :seconds idle", K::WhoisIdle, { "", "bob", "seconds idle" }, 42);
    row("433", ":irc.test 433 * alice :Nickname is already in use.", K::NickInUse,
        { "", "alice", "Nickname is already in use." }, 433);
    row("432", ":irc.test 432 * a!b :Erroneous Nickname", K::NickInUse, { "", "a!b", "Erroneous Nickname" }, 432);
    row("JOIN learns user@host", ":me!u@h.example JOIN #c", K::Join, { "me", "#c", "u@h.example" });
    row("numeric padded", " :s 376 a :End ", K::ServerText, { "", "", ":s 376 a :End" }, 376);
    row("CAP LS continued", ":s CAP * LS * :sasl=PLAIN multi-prefix", K::Cap, { "", "LS", "", "sasl=PLAIN", "multi-prefix" }, 1);
    row("CAP ACK", ":s CAP alice ACK :sasl ", K::Cap, { "", "ACK", "", "sasl" });
    row("AUTHENTICATE", "AUTHENTICATE :+", K::Authenticate, { "", "", "+" });
    row("NOTICE", ":bob!b@h NOTICE #test :hi", K::Notice, { "bob", "#test", "hi", "b@h" });
}

void TestEngine::parserMessage()
{
    QFETCH(QString, line);
    QFETCH(IrcMessage::Kind, kind);
    QFETCH(QStringList, fields);
    QFETCH(int, number);

    const IrcMessage message = IRCParser::parse(line);
    QCOMPARE(message.kind, kind);
    QCOMPARE(QStringList({ message.source, message.target, message.text }) + message.args, fields);
    QCOMPARE(message.number, number);
}

void TestEngine::parserListCounters()
{
    IRCConnection connection;
    SignalRecorder recorder(&connection);
    connection.setListServerName(QStringLiteral("stale"));
    connection.addListChannel(99);
    const auto parse = [&](const QStringList& lines) {
        for (const QString& line : lines)
            connection.handleMessage(IRCParser::parse(line));
        return recorder.take().filter(QStringLiteral("listInfoReceived:"));
    };

    // The start resets the counters; a count that is no number adds nothing.
    QCOMPARE(parse({ ":irc.test 321 alice Channel :Users Name", ":irc.test 322 alice #a 1 :",
                 ":irc.test 322 alice #b many :t", ":irc.test 322 alice #c -1 :t",
                 ":irc.test 322 alice #d 5 :t", ":irc.test 323 alice :End of channel list." }),
        QStringList { "listInfoReceived:irc.test|4|5" });
    // A start without a prefix keeps no server name; hostile counts saturate.
    QCOMPARE(parse({ "321 alice Channel :Users Name", ":s 322 a #x 2147483647 :t",
                 ":s 322 a #y 2147483647 :t", "323 alice :End" }),
        QStringList { "listInfoReceived:|2|2147483647" });
}
