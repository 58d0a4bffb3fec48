// The session without a window: server lines in, buffers, members, topics and
// the commands it sends out.

#include "IRCConnection.h"
#include "IrcText.h"
#include "LinePeer.h"
#include "Session.h"
#include "TestMain.h"

#include <QDateTime>
#include <QRegularExpression>
#include <QSettings>
#include <QTemporaryDir>
#include <QSignalSpy>
#include <QTest>

#include <functional>
#include <memory>

namespace {

QStringList texts(const QList<BufferLine>& lines)
{
    QStringList result;
    for (const BufferLine& line : lines)
        result << line.text;
    return result;
}

// A session connected to an in-process peer that plays the server.
struct Harness
{
    std::unique_ptr<Session> session { new Session };
    LinePeer peer;
    QStringList autojoin; // of the server record connected with

    // Connects through the session as nick and registers; the lines sent
    // while registering are dropped from the peer's record.
    bool connect(const QString& nick = QStringLiteral("me"), bool keepSent = false)
    {
        ServerConfig config;
        config.nickname = nick;
        config.realName = QStringLiteral("Real Name");
        config.autojoinChannels = autojoin;
        session->connectTo(QStringLiteral("127.0.0.1"), peer.port(), config);
        if (!peer.accept() || !QTest::qWaitFor([this] { return !peer.linesStartingWith("USER").isEmpty(); }, 10000))
            return false;
        says(":irc.test 001 " + nick.toUtf8() + " :Welcome");
        if (!keepSent)
            peer.clear();
        return session->isRegistered();
    }

    // The peer sends the lines of text (separated by "\n"); returns once the
    // session has read them all.
    void says(const QByteArray& text)
    {
        QByteArray wire;
        int expected = 0;
        for (const QByteArray& line : text.split('\n')) {
            wire += line + "\r\n";
            ++expected;
        }
        int seen = 0;
        const auto counter = QObject::connect(session->connection(), &IRCConnection::rawMessageReceived,
            session.get(), [&seen](const QString&) { ++seen; });
        peer.send(wire);
        if (!QTest::qWaitFor([&] { return seen >= expected; }, 10000))
            qWarning("says: the session read %d of %d lines", seen, expected);
        QObject::disconnect(counter);
    }

    // What the peer received, once the session's writes reached it.
    QStringList sent(int atLeast = 1)
    {
        static_cast<void>(QTest::qWaitFor([&] { return peer.lines().size() >= atLeast; }, 2000));
        return peer.lines();
    }

    QStringList lines(const QString& buffer) const { return texts(session->lines(buffer)); }
    BufferLine last(const QString& buffer) const
    {
        const QList<BufferLine> all = session->lines(buffer);
        return all.value(all.size() - 1);
    }
};

} // namespace

class TestSession : public QObject
{
    Q_OBJECT

private slots:
    // Where each kind of server line lands, and how its row is marked.
    void routing_data()
    {
        QTest::addColumn<QByteArray>("lines");
        QTest::addColumn<QString>("buffer");
        QTest::addColumn<QString>("sender");
        QTest::addColumn<QString>("text");
        QTest::addColumn<int>("flags");
        const auto row = [](const char* name, const char* lines, const char* buffer, const char* sender,
                             const char* text, int flags) {
            QTest::newRow(name) << QByteArray(lines) << QString(buffer) << QString(sender) << QString(text) << flags;
        };
        row("channel message", ":bob!u@h PRIVMSG #c :h\xc3\xa9llo \xe2\x9c\x93", "#c", "bob", "h\u00e9llo \u2713", 0);
        row("mention, case ignored", ":bob!u@h PRIVMSG #c :hi ME!", "#c", "bob", "hi ME!", BufferLine::Mention);
        row("inside a word: no mention", ":bob!u@h PRIVMSG #c :meme", "#c", "bob", "meme", 0);
        row("private message", ":bob!u@h PRIVMSG me :psst", "bob", "bob", "psst", BufferLine::Mention);
        row("own join", ":me!u@h JOIN :#new", "#new", "me", "joined #new", BufferLine::Status | BufferLine::Own);
        row("numeric, readable", ":irc.test 372 me :- motd", "Server", "", "- motd", 0);
        row("numeric with parameters", ":irc.test 252 me 1 :operator(s) online", "Server", "", "1 operator(s) online", 0);
        row("topic setter", ":me!u@h JOIN #c\n:irc.test 333 me #c al!u@h 0", "#c", "",
            qPrintable("*** Topic set by al on " + QDateTime::fromSecsSinceEpoch(0).toString(Qt::TextDate)), 0);
        row("ERROR", "ERROR :Closing link", "Server", "", "*** Error: Closing link", 0);
        row("mode change", ":me!u@h JOIN #c\n:op!u@h MODE #c +o-v+l me me 5", "#c", "op", "sets the user limit to 5",
            BufferLine::Status);
        row("own part", ":me!u@h JOIN #c\n:me!u@h PART #c", "#c", "", "*** You have left #c", 0);
        row("own kick", ":me!u@h JOIN #c\n:op!u@h KICK #c me :out", "#c", "", "*** You were kicked from #c by op (out)", 0);
        row("own nick change is no mention", ":me!u@h JOIN #c\n:s 353 me = #c :me\n:s 366 me #c :End\n:me!u@h NICK :newme",
            "#c", "me", "is now known as newme", BufferLine::Status);
        row("notice without prefix", "NOTICE AUTH :*** hello", "Server", "", "*** hello", BufferLine::Notice);
        row("other server line", ":irc.test WALLOPS :hello", "Server", "", "[irc.test] WALLOPS hello", 0);
        row("notice to a channel", ":me!u@h JOIN #c\n:bob!u@h NOTICE @#c :ops", "#c", "", "-bob- ops", BufferLine::Notice);
        row("action", ":bob!u@h PRIVMSG #c :\x01" "ACTION waves\x01", "#c", "bob", "waves", BufferLine::Action);
        row("ctcp request", ":bob!u@h PRIVMSG me :\x01TIME\x01", "Server", "", "*** CTCP TIME from bob", 0);
        row("topic change", ":bob!u@h JOIN #c\n:bob!u@h TOPIC #c :new", "#c", "bob", "changed the topic to new",
            BufferLine::Status);
        row("error about a channel", ":me!u@h JOIN #c\n:s 482 me #c :You're not a channel operator", "#c", "",
            "*** #c: You're not a channel operator", 0);
        row("error about nobody open", ":s 401 me zed :No such nick", "Server", "", "*** zed: No such nick", 0);
        row("away reply to a message", ":bob!u@h PRIVMSG me :hi\n:s 301 me bob :lunch", "bob", "bob",
            "is away: lunch", BufferLine::Status);
        row("invite", ":bob!u@h INVITE me :#c", "Server", "", "*** bob invites you to #c", 0);
        row("SASL failure", ":s 904 me :SASL authentication failed", "Server", "",
            "*** SASL login failed (SASL authentication failed); connecting without it.", 0);
        row("kick", ":op!u@h KICK #c bob :out", "#c", "bob", "was kicked by op (out)", BufferLine::Status);
        row("notice of a service", ":NickServ!s@services NOTICE me :Password accepted", "Server", "",
            "-NickServ- Password accepted", BufferLine::Notice);
        row("nick change refused", ":irc.test 433 me taken :Nickname is already in use.", "Server", "",
            "Nickname taken is already in use.", 0);
        row("whois summary",
            ":s 311 me bob u h * :Bob B\n:s 312 me bob irc.test :Test\n:s 313 me bob :op\n"
            ":s 319 me bob :#a @#b\n:s 301 me bob :lunch\n:s 318 me bob :End",
            "Server", "", "*** bob is away: lunch", 0);
    }

    void routing()
    {
        QFETCH(QByteArray, lines);
        QFETCH(QString, buffer);
        Harness h;
        QVERIFY(h.connect());
        h.says(lines);
        const BufferLine line = h.last(buffer);
        QTEST(line.sender, "sender");
        QTEST(line.text, "text");
        QTEST(int(line.flags), "flags");
        QVERIFY(h.session->hasBuffer(buffer));
    }

    void whoisGathersOneSummary()
    {
        Harness h;
        QVERIFY(h.connect());
        h.session->openBuffer(QStringLiteral("#c"));
        h.session->whois(QStringLiteral("bob"), QStringLiteral("#c"));
        QCOMPARE(h.sent(), QStringList { "WHOIS bob" });
        h.says(":s 311 me bob u h * :Bob B\n:s 312 me bob irc.test :Test\n:s 317 me bob 5 1700000000 :idle\n"
               ":s 318 me bob :End");
        const QStringList rows = h.lines(QStringLiteral("#c"));
        QCOMPARE(rows.size(), 3);
        QCOMPARE(rows.at(0), QStringLiteral("*** WHOIS bob: u@h (Bob B)"));
        QCOMPARE(rows.at(1), QStringLiteral("*** bob is using irc.test (Test)"));
        QVERIFY(rows.at(2).startsWith(QStringLiteral("*** bob idle 5s, signed on 20")));
        QVERIFY(!h.session->isGatheringWhois());
    }

    // Members through NAMES, joins, parts, quits, kicks and nick changes, and
    // the rows each change writes.
    void members()
    {
        Harness h;
        QVERIFY(h.connect());
        QSignalSpy added(h.session.get(), &Session::memberAdded);
        QSignalSpy renamed(h.session.get(), &Session::memberRenamed);
        h.says(":me!u@h JOIN #c\n:s 353 me = #c :+bob @me\n:s 353 me = #c :carl ~zed\n:s 366 me #c :End");
        QCOMPARE(h.sent(), QStringList { "NAMES #c" });
        QCOMPARE(h.session->members("#c"), (QStringList { "~zed", "@me", "+bob", "carl" }));
        QVERIFY(h.session->isOperator("#c"));

        const QList<std::pair<QByteArray, QStringList>> steps {
            { ":al!u@h JOIN #c", { "+bob", "@me", "al", "carl", "~zed" } }, // join order from now on
            { ":al!u@h JOIN #c", { "+bob", "@me", "al", "carl", "~zed" } }, // once only
            { ":bob!u@h NICK :Abe", { "+Abe", "@me", "al", "carl", "~zed" } }, // renamed in place
            { ":dan!u@h JOIN #c", { "+Abe", "@me", "al", "carl", "dan", "~zed" } },
            { ":carl!u@h PART #c :bye", { "+Abe", "@me", "al", "dan", "~zed" } },
            { ":DAN!u@h QUIT :gone", { "+Abe", "@me", "al", "~zed" } }, // case ignored
            { ":zed!u@h KICK #c al :out", { "+Abe", "@me", "~zed" } },
            { ":x!u@h PART #elsewhere", { "+Abe", "@me", "~zed" } },
        };
        for (const auto& [line, expected] : steps) {
            h.says(line);
            QCOMPARE(h.session->members("#c"), expected);
        }
        QCOMPARE(added.size(), 2);
        QCOMPARE(renamed.value(0), (QList<QVariant> { "#c", "+bob", "+Abe" }));
        QCOMPARE(h.lines("#c").mid(1),
            (QStringList { "joined #c", "joined #c", "is now known as Abe", "joined #c", "left #c (bye)",
                "quit (gone)", "was kicked by zed (out)" }));

        // Topics, and the user's own rank.
        h.says(":s 332 me #c :the topic\n:me!u@h NICK :you");
        QCOMPARE(h.session->topic("#c"), QStringLiteral("the topic"));
        QCOMPARE(h.session->nick(), QStringLiteral("you"));
        QVERIFY(h.session->isOperator("#c"));
        h.says(":zed!u@h KICK #c you :bye");
        QVERIFY(!h.session->isOperator("#c"));
    }

    // The own nick as a word of its own, whatever characters it holds; only
    // other users' messages count.
    void mentions_data()
    {
        QTest::addColumn<QString>("nick");
        QTest::addColumn<QByteArray>("line");
        QTest::addColumn<bool>("mention");
        QTest::newRow("brackets") << "[x]" << QByteArray(":b!u@h PRIVMSG #c :hi [x]!") << true;
        QTest::newRow("brackets inside a word") << "[x]" << QByteArray(":b!u@h PRIVMSG #c :a[x]") << false;
        QTest::newRow("carets and pipes") << "^v|" << QByteArray(":b!u@h PRIVMSG #c :^v|: yo") << true;
        QTest::newRow("underscore continues the nick") << "al" << QByteArray(":b!u@h PRIVMSG #c :al_ there") << false;
        QTest::newRow("a notice") << "al" << QByteArray(":b!u@h NOTICE #c :al, look") << false;
        QTest::newRow("someone's nick change") << "al" << QByteArray(":b!u@h NICK :al2") << false;
    }

    void mentions()
    {
        QFETCH(QString, nick);
        QFETCH(QByteArray, line);
        Harness h;
        QVERIFY(h.connect(nick));
        h.says(":" + nick.toUtf8() + "!u@h JOIN #c\n:s 353 me = #c :b " + nick.toUtf8() + "\n:s 366 me #c :End\n" + line);
        QTEST(h.last("#c").is(BufferLine::Mention), "mention");
    }

    // Private conversations follow their peer: renamed with them, told when
    // they come and go, watched while open.
    void queries()
    {
        Harness h;
        QVERIFY(h.connect());
        // Opened before the server said it has WATCH: watched once it does.
        h.says(":bob!u@h PRIVMSG me :hi\n:s 005 me WATCH=128 :are supported\n:carl!u@h PRIVMSG me :yo");
        QCOMPARE(h.sent(2), (QStringList { "WATCH +bob", "WATCH +carl" }));
        // rfc1459 case mapping: [ and { are the same letter.
        h.says(":BOB!u@h PRIVMSG me :again\n:x[1]!u@h PRIVMSG me :a\n:X{1}!u@h PRIVMSG me :b");
        QCOMPARE(h.session->findQuery("BOB"), QStringLiteral("bob"));
        QCOMPARE(h.lines("x[1]"), (QStringList { "a", "b" }));
        h.session->closeBuffer("x[1]");
        QSignalSpy renamed(h.session.get(), &Session::bufferRenamed);
        h.says(":bob!u@h NICK :rob\n:s 601 me rob u h 0 :logged off\n:s 600 me rob u h 0 :logged on");
        QCOMPARE(renamed.value(0), (QList<QVariant> { "bob", "rob" }));
        QVERIFY(!h.session->hasBuffer("bob"));
        QCOMPARE(h.lines("rob"), (QStringList { "hi", "again", "is now known as rob", "quit (WATCH)", "is back online" }));
        h.session->closeBuffer("carl");
        QTRY_VERIFY(h.peer.lines().contains("WATCH -carl"));
        QCOMPARE(h.peer.linesStartingWith("WATCH").filter("x"), (QStringList { "WATCH +x[1]", "WATCH -x[1]" }));
        QVERIFY(!h.session->watchedNicks().contains("carl"));
    }

    // A flood of new senders: the first QueryBurstLimit get their
    // conversation, the next ones are listed in the server buffer, said once.
    void queryBurst()
    {
        Harness h;
        QVERIFY(h.connect());
        QByteArrayList wire;
        for (int i = 0; i < Session::QueryBurstLimit + 3; ++i)
            wire << ":n" + QByteArray::number(i) + "!u@h PRIVMSG me :hello";
        h.says(wire.join('\n') + "\n:n3!u@h PRIVMSG me :again");
        QCOMPARE(h.session->bufferNames().size(), Session::QueryBurstLimit + 1);
        QCOMPARE(h.lines("n3"), (QStringList { "hello", "again" }));
        const QStringList server = h.lines("Server");
        QCOMPARE(server.filter("*** Many new private conversations").size(), 1);
        QCOMPARE(server.mid(server.size() - 3), (QStringList { "<n50> hello", "<n51> hello", "<n52> hello" }));
    }

    // What the user asks for, the lines sent and the rows written.
    void intents_data()
    {
        QTest::addColumn<std::function<void(Session*)>>("intent");
        QTest::addColumn<QStringList>("sent");
        QTest::addColumn<QString>("serverRow");
        using F = std::function<void(Session*)>;
        QTest::newRow("message") << F([](Session* s) { s->sendMessage("#c", "hi"); })
                                 << QStringList { "PRIVMSG #c :hi" } << QString();
        QTest::newRow("message of two lines") << F([](Session* s) {
            s->sendMessage("#c", "one\ntwo");
            QCOMPARE(texts(s->lines("#c")), (QStringList { "one", "two" }));
        }) << QStringList { "PRIVMSG #c :one", "PRIVMSG #c :two" } << QString();
        QTest::newRow("away") << F([](Session* s) { s->setAway("lunch"); }) << QStringList { "AWAY :lunch" }
                              << "*** You are marked as away (lunch)";
        QTest::newRow("nick while away") << F([](Session* s) {
            s->setAway("x");
            s->changeNick("other");
        }) << QStringList { "AWAY :x", "AWAY", "NICK other" } << "*** You are back";
        QTest::newRow("close a channel") << F([](Session* s) { s->closeBuffer("#c"); })
                                         << QStringList { "PART #c :Leaving" } << "*** You left #c";
        QTest::newRow("topic") << F([](Session* s) { s->setTopic("#c", "new"); })
                               << QStringList { "TOPIC #c :new" } << QString();
        QTest::newRow("kick and ban") << F([](Session* s) {
            s->ban("#c", "bob");
            s->kick("#c", "bob", "Banned");
        }) << QStringList { "MODE #c +b bob!*@*", "KICK #c bob :Banned" } << QString();
        QTest::newRow("list") << F([](Session* s) { QVERIFY(s->requestChannelList()); }) << QStringList { "LIST" }
                              << QString();
        QTest::newRow("autojoin") << F([](Session* s) { s->setAutojoin("c", true); }) << QStringList()
                                  << "*** Added #c to autojoin list";
    }

    void intents()
    {
        QFETCH(std::function<void(Session*)>, intent);
        QFETCH(QStringList, sent);
        QFETCH(QString, serverRow);
        Harness h;
        QVERIFY(h.connect());
        h.session->openBuffer("#c");
        const QStringList before = h.lines("Server");
        intent(h.session.get());
        QCOMPARE(h.sent(int(sent.size())), sent);
        const QStringList after = h.lines("Server");
        QCOMPARE(after.size() > before.size() ? after.last() : QString(), serverRow);
    }

    // Away: the user's own rows carry the note, every open conversation is
    // told once the current event is handled, and a drop ends it.
    void away()
    {
        Harness h;
        QVERIFY(h.connect());
        h.session->openBuffer("#c");
        h.session->changeNick("pending");
        h.session->setAway("lunch");
        h.session->sendMessage("#c", "hi");
        QCOMPARE(h.last("#c").text, QStringLiteral("[Away: lunch] hi"));
        QCOMPARE(int(h.last("#c").flags), BufferLine::Own | BufferLine::OwnAway);
        QTRY_COMPARE(h.last("#c").text, QStringLiteral("is away (lunch)"));
        QVERIFY(h.last("#c").is(BufferLine::Status));

        QVERIFY(h.session->isOwnNick("PENDING"));
        h.peer.close();
        QTRY_VERIFY(!h.session->isConnected());
        QVERIFY(!h.session->isAway() && h.session->pendingNick().isEmpty());
        // The drop was not asked for: a reconnect is on its way.
        QCOMPARE(h.lines("Server").mid(h.lines("Server").size() - 2, 1), QStringList { "*** Disconnected." });
        QVERIFY(h.lines("Server").last().startsWith("*** Reconnecting in "));
        QCOMPARE(h.session->pendingReconnectAttempt(), 1);
    }

    // Closing a channel leaves it; the server's echo of the part does not
    // open it again. Unread rows and mentions count until marked read.
    void closeAndUnread()
    {
        Harness h;
        QVERIFY(h.connect());
        h.says(":me!u@h JOIN #c\n:s 353 me = #c :me bob\n:s 366 me #c :End\n:bob!u@h PRIVMSG #c :me?");
        QCOMPARE(h.session->unreadCount("#c"), 2);
        QVERIFY(h.session->hasUnreadMention("#c"));
        h.session->markRead("#c");
        QCOMPARE(h.session->unreadCount("#c"), 0);
        QVERIFY(!h.session->hasUnreadMention("#c"));

        QSignalSpy closed(h.session.get(), &Session::bufferClosed);
        h.session->closeBuffer("#c");
        h.says(":me!u@h PART #c");
        QCOMPARE(closed.size(), 1);
        QVERIFY(!h.session->hasBuffer("#c") && !h.session->hasMembers("#c"));
    }

    // What the server says about itself decides channels, ranks and symbols;
    // mode changes move members between ranks; server-time dates rows.
    void serverSupportAndModes()
    {
        Harness h;
        QVERIFY(h.connect());
        h.says(":s 005 me CHANTYPES=#& PREFIX=(Yov)!@+ CHANMODES=b,k,l,nt NETWORK=TestNet :are supported\n"
               ":me!u@h JOIN &local\n:s 353 me = &local :+bob !carl @me dave\n:s 366 me &local :End");
        QCOMPARE(h.session->networkName(), QStringLiteral("TestNet"));
        QVERIFY(h.session->typeOf("&local") == Session::BufferType::Channel);
        QCOMPARE(h.session->members("&local"), (QStringList { "!carl", "@me", "+bob", "dave" }));
        h.says(":me!u@h MODE &local +o-v+bk bob x!*@* key\n:me!u@h MODE &local +v :dave\n"
               ":me!u@h MODE &local -Y carl");
        QCOMPARE(h.session->members("&local"), (QStringList { "carl", "@me", "@bob", "+dave" }));
        QCOMPARE(h.last("&local").text, QStringLiteral("removes mode Y from carl"));
        h.says("@time=2020-01-02T03:04:05.678Z :bob!u@h PRIVMSG &local :then");
        QCOMPARE(h.last("&local").time, QDateTime(QDate(2020, 1, 2), QTime(3, 4, 5, 678), Qt::UTC).toMSecsSinceEpoch());
    }

    // Once registered, lines go out at the set pace, in order; the ones still
    // waiting are dropped when the link ends.
    void sendPace()
    {
        QSettings().setValue("sendBurst", 2);
        QSettings().setValue("sendInterval", 150);
        Harness h;
        QVERIFY(h.connect());
        QSettings().remove("sendBurst");
        QSettings().remove("sendInterval");
        for (int i = 0; i < 6; ++i)
            h.session->sendRaw(QStringLiteral("PRIVMSG #c :%1").arg(i));
        QCOMPARE(h.session->connection()->queuedLines(), 4);
        QTRY_COMPARE(h.peer.linesStartingWith("PRIVMSG").size(), 6);
        QCOMPARE(h.peer.linesStartingWith("PRIVMSG").last(), QStringLiteral("PRIVMSG #c :5"));
        for (int i = 0; i < 5; ++i)
            h.session->sendRaw(QStringLiteral("PRIVMSG #c :again"));
        h.session->disconnectFromServer();
        QCOMPARE(h.session->connection()->queuedLines(), 0);
    }

    // With no keyring to answer (the tests' bus goes nowhere), a password
    // stays in the settings file and the server buffer says so, once.
    void passwordWithoutKeyring()
    {
        LinePeer peer;
        Session session;
        ServerConfig config;
        config.nickname = QStringLiteral("me");
        config.password = QStringLiteral("pw");
        session.connectTo(QStringLiteral("127.0.0.1"), peer.port(), config);
        session.saveServerRecord();
        const QString id = QStringLiteral("127.0.0.1_%1").arg(peer.port());
        QCOMPARE(QSettings().value("servers/" + id + "/password").toString(), QStringLiteral("pw"));
        QCOMPARE(texts(session.lines(Session::ServerBuffer)).filter("No system keyring answered").size(), 1);
    }

    // The record's autojoin list is stored with it and joined once registered.
    void autojoinOnRegistration()
    {
        Harness h;
        const QString id = QStringLiteral("127.0.0.1_%1").arg(h.peer.port());
        h.autojoin = QStringList { "#one", "nochannel", "#two" };
        QVERIFY(h.connect(QStringLiteral("me"), true));
        QCOMPARE(h.session->serverId(), id);
        QTRY_COMPARE(h.peer.linesStartingWith("JOIN"), (QStringList { "JOIN #one,#two" }));
        QVERIFY(h.lines("Server").contains("*** Autojoining #two"));
        h.session->setAutojoin("#one", false);
        QCOMPARE(QSettings().value("servers/" + id + "/autojoin").toStringList(), (QStringList { "nochannel", "#two" }));
    }
};

QUENVAR_CORE_TEST_MAIN(TestSession)
#include "tst_session.moc"
