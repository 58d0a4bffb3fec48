// The session without a window: server lines in, buffers, members and the
// lines it sends out. What the real server also shows is checked end to end
// in tests/e2e/client; these are the lines a test server cannot easily send.

#include "IRCConnection.h"
#include "LinePeer.h"
#include "Session.h"
#include "TestMain.h"

#include <QDateTime>
#include <QSettings>
#include <QSignalSpy>
#include <QTest>

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

    // Connects as nick and registers; the lines sent meanwhile are dropped.
    bool connect(const QString& nick = QStringLiteral("me"))
    {
        ServerConfig config;
        config.nickname = nick;
        session->connectTo(QStringLiteral("127.0.0.1"), peer.port(), config);
        if (!peer.accept() || !QTest::qWaitFor([this] { return !peer.linesStartingWith("USER").isEmpty(); }, 10000))
            return false;
        says(":irc.test 001 " + nick.toUtf8() + " :Welcome");
        peer.clear();
        return session->isRegistered();
    }

    // The peer sends the lines of text (separated by "\n"); returns once the
    // session has read them all.
    void says(const QByteArray& text)
    {
        int seen = 0;
        const auto counter = QObject::connect(session->connection(), &IRCConnection::rawMessageReceived,
            session.get(), [&seen](const QString&) { ++seen; });
        peer.send(QByteArray(text).replace("\n", "\r\n") + "\r\n");
        if (!QTest::qWaitFor([&] { return seen > int(text.count('\n')); }, 10000))
            qWarning("says: the session read %d lines", seen);
        QObject::disconnect(counter);
    }

    QStringList lines(const QString& buffer) const { return texts(session->lines(buffer)); }
    BufferLine last(const QString& buffer) const { return session->lines(buffer).value(session->lines(buffer).size() - 1); }
};

} // namespace

class TestSession : public QObject
{
    Q_OBJECT

private slots:
    // Where each kind of server line lands and how its row is marked; the
    // own nick counts as a mention only as a word of its own, in other users'
    // messages.
    void routing()
    {
        using L = BufferLine;
        struct Case
        {
            const char* lines;
            QString buffer, sender, text;
            int flags;
            QString nick = "me";
        };
        const QList<Case> cases {
            { ":irc.test 252 me 1 :operator(s) online", "Server", "", "1 operator(s) online", 0 },
            { ":me!u@h JOIN #c\n:irc.test 333 me #c al!u@h 0", "#c", "",
                "*** Topic set by al on " + QDateTime::fromSecsSinceEpoch(0).toString(Qt::TextDate), 0 },
            { "ERROR :Closing link", "Server", "", "*** Error: Closing link", 0 },
            { ":me!u@h JOIN #c\n:op!u@h MODE #c +o-v+l me me 5", "#c", "op", "sets the user limit to 5", L::Status },
            { ":me!u@h JOIN #c\n:s 353 me = #c :me\n:s 366 me #c :End\n:me!u@h NICK :newme", "#c", "me",
                "is now known as newme", L::Status },
            { "NOTICE AUTH :*** hello", "Server", "", "*** hello", L::Notice },
            { ":irc.test WALLOPS :hello", "Server", "", "[irc.test] WALLOPS hello", 0 },
            { "FOO bar :baz", "Server", "", "FOO bar baz", 0 },
            { ":s 321 me Channel :Users Name\nFOO", "Server", "", "*** Receiving channel list...", 0 }, // not while listing
            { ":me!u@h JOIN #c\n:bob!u@h NOTICE @#c :ops", "#c", "", "-bob- ops", L::Notice },
            { ":bob!u@h PRIVMSG me :hi\n:bob!u@h NOTICE me :psst", "bob", "", "-bob- psst", L::Notice },
            { ":NickServ!s@services NOTICE me :Password accepted", "Server", "", "-NickServ- Password accepted",
                L::Notice },
            { ":s 401 me zed :No such nick", "Server", "", "*** zed: No such nick", 0 },
            { ":bob!u@h PRIVMSG me :hi\n:s 301 me bob :lunch", "bob", "bob", "is away: lunch", L::Status },
            { ":bob!u@h INVITE me :#c", "Server", "", "*** bob invites you to #c", 0 },
            { ":s 904 me :SASL authentication failed", "Server", "",
                "*** SASL login failed (SASL authentication failed); connecting without it.", 0 },
            { ":irc.test 433 me taken :Nickname is already in use.", "Server", "", "Nickname taken is already in use.",
                0 },
            { ":s 311 me bob u h * :Bob B\n:s 312 me bob irc.test :Test\n:s 313 me bob :op\n"
              ":s 319 me bob :#a @#b\n:s 301 me bob :lunch\n:s 318 me bob :End",
                "Server", "", "*** bob is away: lunch", 0 },
            { ":s 312 me ghost irc.x :Info\n:s 318 me ghost :End", "Server", "", "*** ghost is using irc.x (Info)", 0 },
            { ":bob!u@h PRIVMSG me :psst", "bob", "bob", "psst", L::Mention },
            { ":me!u@h JOIN #c\n:bob!u@h PRIVMSG #c :hi ME!", "#c", "bob", "hi ME!", L::Mention },
            { ":me!u@h JOIN #c\n:bob!u@h PRIVMSG #c :meme", "#c", "bob", "meme", 0 },
            { ":[x]!u@h JOIN #c\n:b!u@h PRIVMSG #c :hi [x]!", "#c", "b", "hi [x]!", L::Mention, "[x]" },
            { ":[x]!u@h JOIN #c\n:b!u@h PRIVMSG #c :a[x]", "#c", "b", "a[x]", 0, "[x]" },
            { ":^v|!u@h JOIN #c\n:b!u@h PRIVMSG #c :^v|: yo", "#c", "b", "^v|: yo", L::Mention, "^v|" },
            { ":al!u@h JOIN #c\n:b!u@h PRIVMSG #c :al_ there", "#c", "b", "al_ there", 0, "al" },
            { ":al!u@h JOIN #c\n:b!u@h NOTICE #c :al, look", "#c", "", "-b- al, look", L::Notice, "al" },
            { ":al!u@h JOIN #c\n:s 353 al = #c :b al\n:s 366 al #c :End\n:b!u@h NICK :al2", "#c", "b",
                "is now known as al2", L::Status, "al" },
        };
        for (const Case& c : cases) {
            Harness h;
            QVERIFY(h.connect(c.nick));
            h.says(c.lines);
            const BufferLine line = h.last(c.buffer);
            QVERIFY2(h.session->hasBuffer(c.buffer), c.lines);
            QCOMPARE(line.text, c.text);
            QCOMPARE(line.sender, c.sender);
            QCOMPARE(int(line.flags), c.flags);
        }
    }

    // Members in rank order from NAMES, then in join order; joins, parts,
    // quits, kicks and renames, and the rows each writes. Unread rows and
    // mentions count until marked read; a message of two lines goes out as two.
    void members()
    {
        Harness h;
        QVERIFY(h.connect());
        QSignalSpy renamed(h.session.get(), &Session::memberRenamed);
        h.says(":me!u@h JOIN #c\n:s 353 me = #c :+bob @me %hal\n:s 353 me = #c :carl ~zed &ann\n:s 366 me #c :End\n"
               ":bob!u@h PRIVMSG #c :me?");
        QTRY_COMPARE(h.peer.lines(), QStringList { "NAMES #c" });
        QCOMPARE(h.session->members("#c"), (QStringList { "~zed", "&ann", "@me", "%hal", "+bob", "carl" }));
        QVERIFY(h.session->isOperator("#c"));
        QVERIFY(h.session->unreadCount("#c") == 2 && h.session->hasUnreadMention("#c"));
        h.session->markRead("#c");
        QVERIFY(h.session->unreadCount("#c") == 0 && !h.session->hasUnreadMention("#c"));
        const QList<std::pair<QByteArray, QStringList>> steps {
            { ":al!u@h JOIN #c", { "%hal", "&ann", "+bob", "@me", "al", "carl", "~zed" } }, // join order now
            { ":al!u@h JOIN #c", { "%hal", "&ann", "+bob", "@me", "al", "carl", "~zed" } }, // once only
            { ":bob!u@h NICK :Abe", { "%hal", "&ann", "+Abe", "@me", "al", "carl", "~zed" } }, // in place
            { ":carl!u@h PART #c :bye", { "%hal", "&ann", "+Abe", "@me", "al", "~zed" } },
            { ":AL!u@h QUIT :gone", { "%hal", "&ann", "+Abe", "@me", "~zed" } }, // case ignored
            { ":zed!u@h KICK #c hal :out", { "&ann", "+Abe", "@me", "~zed" } },
            { ":x!u@h PART #elsewhere", { "&ann", "+Abe", "@me", "~zed" } },
        };
        for (const auto& [line, expected] : steps) {
            h.says(line);
            QCOMPARE(h.session->members("#c"), expected);
        }
        QCOMPARE(renamed.value(0), (QList<QVariant> { "#c", "+bob", "+Abe" }));
        h.session->sendMessage("#c", "one\ntwo");
        QCOMPARE(h.lines("#c").mid(2), (QStringList { "joined #c", "joined #c", "is now known as Abe", "left #c (bye)",
                                           "quit (gone)", "was kicked by zed (out)", "one", "two" }));
        QTRY_COMPARE(h.peer.linesStartingWith("PRIVMSG"), (QStringList { "PRIVMSG #c :one", "PRIVMSG #c :two" }));
        h.says(":s 332 me #c :the topic\n:me!u@h NICK :you\n:zed!u@h KICK #c you :bye");
        QCOMPARE(h.session->topic("#c"), QStringLiteral("the topic"));
        QCOMPARE(h.session->nick(), QStringLiteral("you"));
        QVERIFY(!h.session->isOperator("#c"));
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
        h.says(":me!u@h MODE &local +o-v+bk bob x!*@* key\n:me!u@h MODE &local +v :dave\n:me!u@h MODE &local -Y carl");
        QCOMPARE(h.session->members("&local"), (QStringList { "carl", "@me", "@bob", "+dave" }));
        QCOMPARE(h.last("&local").text, QStringLiteral("removes mode Y from carl"));
        h.says("@time=2020-01-02T03:04:05.678Z :bob!u@h PRIVMSG &local :then");
        QCOMPARE(h.last("&local").time, QDateTime(QDate(2020, 1, 2), QTime(3, 4, 5, 678), Qt::UTC).toMSecsSinceEpoch());
    }

    // Conversations follow their peer: rfc1459 case mapping, renamed with
    // them, told when they come and go, watched while open (also when opened
    // before the server said it has WATCH).
    void queries()
    {
        Harness h;
        QVERIFY(h.connect());
        h.says(":bob!u@h PRIVMSG me :hi\n:s 005 me WATCH=128 :are supported\n:carl!u@h PRIVMSG me :yo");
        QTRY_COMPARE(h.peer.lines(), (QStringList { "WATCH +bob", "WATCH +carl" }));
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
};

QUENVAR_CORE_TEST_MAIN(TestSession)
#include "tst_session.moc"
