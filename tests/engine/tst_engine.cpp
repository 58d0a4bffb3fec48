// The protocol engine against an in-process peer: the parser's dispatch and
// ISUPPORT, framing, what goes on the wire, nickname fallback, the link's
// life, keep-alive and the sleep lock. What a real server shows is checked
// in tests/e2e/engine.

#include "IRCConnection.h"
#include "IRCParser.h"
#include "LinePeer.h"
#include "SignalRecorder.h"
#include "TestMain.h"

#include <QDBusConnection>
#include <QDBusError>
#include <QDBusUnixFileDescriptor>
#include <QDateTime>
#include <QMutex>
#include <QProcess>
#include <QRegularExpression>
#include <QSslSocket>
#include <QThread>
#include <QTimer>

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <functional>
#include <tuple>

namespace {

using Action = std::function<void(IRCConnection&)>;
const QString Host = QStringLiteral("127.0.0.1");
const QString NotConnected = QStringLiteral("errorOccurred:Socket is not connected");
const QString PingTimeout = QStringLiteral("errorOccurred:Ping timeout: no response to PING for 45s");
const QString Oversize = "errorOccurred:Received a line longer than 64 KiB without a line end; it was discarded.";
const QByteArray Marker = "QUENVAR-TEST-SYNC";

// A connection to a LinePeer with every signal recorded; its keep-alive reads
// a clock the test sets.
struct Wire
{
    LinePeer peer;
    IRCConnection connection;
    SignalRecorder recorder { &connection };
    qint64 now = 0;

    QByteArray greeting; // what the client sent up to USER

    // Connects, waits for USER, then forgets what was sent and recorded.
    bool start(const QString& nick = "alice", const QString& alt = {}, ServerConfig config = {},
        const QString& realName = "A")
    {
        config.altNickname = alt;
        connection.setServerConfig(config);
        connection.setKeepAliveClock([this] { return now; });
        connection.connectToServer(Host, peer.port(), nick, realName, false);
        if (!QTest::qWaitFor([&] { return !peer.linesStartingWith("USER ").isEmpty(); }, 10000))
            return false;
        greeting = peer.takeReceived();
        recorder.clear();
        return connection.isConnected();
    }
    // What the client sent before a marker line it sends now.
    QByteArray sent()
    {
        connection.sendRaw(QString::fromLatin1(Marker));
        if (!peer.waitForReceived(Marker + "\r\n"))
            return "<marker not received>";
        const QByteArray bytes = peer.takeReceived();
        return bytes.left(bytes.indexOf(Marker));
    }
    QStringList sentLines() { return QString::fromUtf8(sent()).split("\r\n", Qt::SkipEmptyParts); }
    // The keep-alive check at the given clock time.
    void checkAt(qint64 time)
    {
        now = time;
        connection.checkKeepAlive();
    }
    // The peer sends bytes and a marker line; true once the client handled both.
    bool says(const QByteArray& bytes)
    {
        peer.send(bytes + ":sync.test NOTICE * :" + Marker + "\r\n");
        return recorder.waitFor("rawMessageReceived::sync.test NOTICE * :" + Marker);
    }
    // The log (of the signals named, when given) without the marker's entries.
    QStringList log(const QStringList& names = {}) const
    {
        QStringList entries = names.isEmpty() ? recorder.log() : recorder.of(names);
        entries.removeIf([](const QString& entry) { return entry.contains(QLatin1String(Marker)); });
        return entries;
    }
};

} // namespace

Q_DECLARE_METATYPE(Action)

// A stand-in for the login manager on a private message bus, offered to the
// process as the system bus: it answers Inhibit with one end of a pipe, so a
// test can see whether the caller still holds the lock.
class FakeLoginManager : public QObject
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.login1.Manager")

public:
    // Must run before anything in the process uses the system bus; null (with
    // the reason) when no bus can be had.
    static FakeLoginManager* start(QString* whyNot)
    {
        auto* fake = new FakeLoginManager;
        fake->m_daemon.start("dbus-daemon", { "--session", "--nofork", "--nopidfile", "--print-address=1" });
        while (fake->m_daemon.waitForStarted(5000) && !fake->m_daemon.canReadLine()
            && fake->m_daemon.waitForReadyRead(5000)) { }
        const QString address = QString::fromUtf8(fake->m_daemon.readLine()).trimmed();
        QDBusConnection bus = QDBusConnection::connectToBus(address, BusName);
        if (address.isEmpty() || !bus.registerService("org.freedesktop.login1")) {
            *whyNot = "no private bus: " + bus.lastError().message();
            delete fake;
            return nullptr;
        }
        // Served from a thread of its own: the caller blocks on the GUI thread.
        fake->m_thread.start();
        fake->moveToThread(&fake->m_thread);
        bus.registerObject("/org/freedesktop/login1", fake, QDBusConnection::ExportAllSlots);
        qputenv("DBUS_SYSTEM_BUS_ADDRESS", address.toUtf8());
        return fake;
    }
    ~FakeLoginManager() override
    {
        QDBusConnection::disconnectFromBus(BusName);
        m_thread.quit();
        m_thread.wait(5000);
        m_daemon.kill();
        m_daemon.waitForFinished(5000);
        for (const int fd : std::as_const(m_readEnds))
            ::close(fd);
    }

    // "what|who|why|mode" of every Inhibit call so far.
    QStringList calls() const
    {
        QMutexLocker lock(&m_mutex);
        return m_calls;
    }
    // Locks of which some copy is still open: their pipe's read end sees no hang-up yet.
    int heldLocks() const
    {
        QMutexLocker lock(&m_mutex);
        return int(std::count_if(m_readEnds.cbegin(), m_readEnds.cend(), [](int fd) {
            pollfd p { fd, POLLIN, 0 };
            return ::poll(&p, 1, 0) == 0;
        }));
    }

public slots:
    QDBusUnixFileDescriptor Inhibit(
        const QString& what, const QString& who, const QString& why, const QString& mode)
    {
        QMutexLocker lock(&m_mutex);
        m_calls << QStringList { what, who, why, mode }.join('|');
        int ends[2] = { -1, -1 };
        if (::pipe2(ends, O_CLOEXEC) == 0)
            m_readEnds << ends[0];
        const QDBusUnixFileDescriptor lockEnd(ends[1]); // keeps a copy of its own
        ::close(ends[1]);
        return lockEnd;
    }

private:
    FakeLoginManager() = default;
    static constexpr const char* BusName = "quenvar-fake-login1";
    QProcess m_daemon;
    QThread m_thread;
    mutable QMutex m_mutex;
    QStringList m_calls;
    QList<int> m_readEnds;
};

class TestEngine : public QObject
{
    Q_OBJECT

    FakeLoginManager* m_loginManager = nullptr;
    QString m_noLoginManager;

private slots:
    void initTestCase()
    {
        // Before anything in this process uses the system bus, so that every
        // connection in these tests takes and gives back a real lock.
        m_loginManager = FakeLoginManager::start(&m_noLoginManager);
    }
    void cleanupTestCase() { delete m_loginManager; }

    // Lines as InspIRCd 3.15 sends them to alice (alternative nick alicia) and
    // hand-made malformed ones, handled in turn; related forms share a row.
    // What the real server's ordinary replies give is checked end to end.
    void dispatch_data()
    {
        QTest::addColumn<QString>("lines");
        QTest::addColumn<QStringList>("emitted");
        QTest::addColumn<QStringList>("sent");
        const auto row
            = [](const char* name, const QString& lines, const QStringList& emitted,
                  const QStringList& sent = {}) { QTest::newRow(name) << lines << emitted << sent; };

        row("PING forms", "PING :irc.test\nPING abc\n  PING :pad  \t\nPING", {}, { "PONG :irc.test", "PONG :abc",
            "PONG :pad", "PONG :" });
        row("PRIVMSG forms",
            ":bob!b@h PRIVMSG #test :a :b: c\n:irc.test PRIVMSG #test :notice\n:bob!b@h privmsg #test :hi\n"
            ":bob!b@h PRIVMSG +#test :voiced\n@time=2026-11-25T20:00:00.000Z;x=y :bob!b@h PRIVMSG #test :tagged",
            { "privmsgReceived:bob|#test|a :b: c", "privmsgReceived:irc.test|#test|notice",
            "privmsgReceived:bob|#test|hi", "privmsgReceived:bob|#test|voiced", "privmsgReceived:bob|#test|tagged" });
        // Without parameters the command reads as the only middle parameter.
        row("malformed", ":bob!b@h PR\u0130VMSG #test :hi\n:bob!b@h PRIVMSG #test :\n:bob!b@h PRIVMSG :hi\n"
            "@time=2026-11-25T20:00:00.000Z\n:alice!a@h JOIN :\n:bob!b@h JOIN\n:bob!b@h NICK\n"
            ":op!o@h KICK #test\n:alice!a@h MODE #test\n:bob!b@h CHGHOST nu\n \t \r \n:irc.test\n"
            ":irc.test  001 alice :x\n:irc.test :just trailing\n:irc.test \u0663\u0665\u0663 alice = #c :x", {});
        row("replies with too few parameters", ":irc.test 353 alice #c :@op\n:irc.test 322 alice #second :x\n"
            ":irc.test 311 alice bob u 127.0.0.1 :B\n:irc.test 312 alice bob :Quenvar test server\n"
            ":irc.test 313 bob :is a NetAdmin\n:irc.test 317 alice bob :seconds idle\n"
            ":irc.test 319 alice :@#test\n:irc.test 301 alice :gone\n:irc.test 600 alice :arrived online\n"
            ":irc.test 605 alice :is offline", {});
        row("JOIN forms", ":bob!b@h JOIN #test\n:alice!a@h JOIN :#test\n:ALICE!a@h JOIN :#other",
            { "joinReceived:bob|#test", "joinReceived:alice|#test", "joinReceived:ALICE|#other" }, { "NAMES #test" });
        row("PART and NICK forms", ":carol!c@h PART :#test\n:bob!b@h NICK robert\n:bob!b@h NICK : :robert",
            { "partReceived:carol|#test|", "nickChanged:bob|robert", "nickChanged:bob|robert" });
        // Only a change (or JOIN) under the current nickname is our own.
        row("own nick followed", ":carol!c@h NICK :caroline\n:alice!a@h NICK :robert\n:robert!a@h NICK robby\n"
            ":alice!a@h NICK :stale\n:alice!a@h JOIN :#old\n:robby!a@h JOIN :#new", { "nickChanged:carol|caroline",
            "ownNickChanged:robert", "nickChanged:alice|robert", "ownNickChanged:robby", "nickChanged:robert|robby",
            "nickChanged:alice|stale", "joinReceived:alice|#old", "joinReceived:robby|#new" }, { "NAMES #new" });
        // While registering, 432 moves on like 433; afterwards a refusal keeps the nick.
        row("nick refused",
            ":irc.test 433 * alice :Nickname is already in use.\n:irc.test 432 * alicia :Erroneous Nickname\n"
            ":irc.test 001 alice_ :Welcome\n:irc.test 433 alice_ bob :Nickname is already in use.",
            { "nickChanged:alice|alicia", "nickChanged:alicia|alice_", "serverMessage:Connected and registered.",
            "registered", "nickRejected:bob|433|Nickname is already in use." }, { "NICK alicia", "NICK alice_" });
        // Capabilities are asked for once the last line of the offer is in.
        row("CAP LS over two lines", ":s CAP * LS * :multi-prefix sasl=PLAIN\n:s CAP * LS :server-time", {},
            { "CAP REQ :multi-prefix server-time" });
        row("001 under another nick", ":irc.test 001 alic :Welcome", { "ownNickChanged:alic",
            "serverMessage:Connected and registered.", "registered" });

        row("353", ":irc.test 353 alice = #c :@op  +v plain ", { "namesList:#c|@op,+v,plain" });
        row("323 alone", ":irc.test 323 alice :End of channel list.", { "listInfoReceived:|0|0", "listEndReceived" });
        // The start resets the counts; a count that is no number adds nothing.
        row("LIST counted from its start",
            ":irc.test 322 alice #old 99 :t\n:irc.test 321 alice Channel :Users Name\n"
            ":irc.test 322 alice #a 1 :\n:irc.test 322 alice #b many :t\n:irc.test 322 alice #c -1 :t\n"
            ":irc.test 322 alice #d 5 :t\n:irc.test 323 alice :End of channel list.",
            { "listChannelReceived:#old|99|t", "listStartReceived", "listChannelReceived:#a|1|",
            "listChannelReceived:#b|many|t", "listChannelReceived:#c|-1|t", "listChannelReceived:#d|5|t",
            "listInfoReceived:irc.test|4|5", "listEndReceived" });
        // A start without a prefix names no server; hostile counts saturate.
        row("LIST counts saturate",
            "321 alice Channel :Users Name\n:s 322 a #x 2147483647 :t\n:s 322 a #y 2147483647 :t\n323 alice :End",
            { "listStartReceived", "listChannelReceived:#x|2147483647|t", "listChannelReceived:#y|2147483647|t",
            "listInfoReceived:|2|2147483647", "listEndReceived" });
        row("WHOIS forms", ":irc.test 311 alice  bob u h :x\n"
            ":irc.test 317 alice bob 0 1795315405 :seconds idle, signon time\n"
            ":irc.test 317 alice bob 7 soon :seconds idle\n:irc.test 317 alice bob 42 :seconds idle\n"
            ":irc.test 318 alice :End of /WHOIS list.", { "whoisUserReceived:|bob|u|x",
            "whoisIdleReceived:bob|0|" + QDateTime::fromSecsSinceEpoch(1795315405).toString(Qt::ISODate),
            "whoisIdleReceived:bob|7|seconds idle", "whoisIdleReceived:bob|42|seconds idle",
            "whoisEndReceived:Server|" });
        row("MONITOR", ":irc.test 730 alice :bob!b@h,carl!c@h\n:irc.test 731 alice :bob", { "watchStatus:bob|true",
            "watchStatus:carl|true", "watchStatus:bob|false" });
        // Other numerics reach the server tab as the whole line; errors name their subject.
        row("other numerics",
            "  :irc.test 376 alice :End of message of the day.  \n372 alice :line 2\n:irc.test 0001 alice :x",
            { "serverMessage::irc.test 376 alice :End of message of the day.", "serverMessage:372 alice :line 2",
            "serverMessage::irc.test 0001 alice :x" });
        row("error replies", ":irc.test 401 alice bob :No such nick/channel\n"
            ":irc.test 441 alice bob #test :They are not on that channel\n"
            ":irc.test 904 alice :SASL authentication failed", { "errorReplyReceived:401|bob|No such nick/channel",
            "errorReplyReceived:441|#test|They are not on that channel",
            "saslFinished:false|SASL authentication failed" }, { "CAP END" });
        row("NOTICE forms",
            ":bob!b@h NOTICE #test :to the channel\n:irc.test NOTICE * :*** Looking up your hostname\n"
            ":bob!b@h NOTICE @#test :ops", { "noticeReceived:bob|#test|to the channel|true",
            "noticeReceived:irc.test|*|*** Looking up your hostname|false", "noticeReceived:bob|#test|ops|true" });
        // One answer per sender at a time: each request here has a sender of its own.
        row("ACTION and CTCP", ":bob!b@h PRIVMSG #test :\x01" "ACTION waves\x01\n:bob!b@h PRIVMSG alice :\x01"
            "ACTION waves\n:bob!b@h PRIVMSG alice :\x01VERSION\x01\n:carl!c@h PRIVMSG alice :\x01PING 123 4\x01\n"
            ":dave!d@h PRIVMSG alice :\x01" "FINGER\x01\n:bob!b@h NOTICE alice :\x01VERSION X 1.0\x01",
            { "actionReceived:bob|#test|waves", "actionReceived:bob|bob|waves",
            "ctcpRequestReceived:bob|alice|VERSION|", "ctcpRequestReceived:carl|alice|PING|123 4",
            "ctcpRequestReceived:dave|alice|FINGER|", "ctcpReplyReceived:bob|VERSION|X 1.0" },
            { "NOTICE bob :\x01VERSION Quenvar 2.0\x01", "NOTICE carl :\x01PING 123 4\x01" });
        row("user and channel events",
            ":bob!b@h TOPIC #test :new topic\n:bob!b@h TOPIC #test :\n:alice!a@h MODE #test +o :bob\n"
            ":alice MODE alice :+iw\n:bob!b@h INVITE alice :#test\n:bob!b@h AWAY :lunch\n:bob!b@h AWAY\n"
            ":bob!b@h ACCOUNT bobby\n:bob!b@h CHGHOST nu new.host", { "topicChanged:bob|#test|new topic",
            "topicChanged:bob|#test|", "modeReceived:alice|#test|+o,bob", "modeReceived:alice|alice|+iw",
            "inviteReceived:bob|alice|#test", "userAwayChanged:bob|lunch", "userAwayChanged:bob|",
            "accountChanged:bob|bobby", "hostChanged:bob|nu|new.host" });

        QStringList many;
        for (int i = 0; i < 20000; ++i)
            many.append(QStringLiteral("#c%1").arg(i));
        const QString isupport = ":irc.test 005 alice " + many.join(' ') + " :are supported by this server";
        row("20000 parameters", isupport, { "serverSupportChanged", "serverMessage:" + isupport });
        row("5000 empty parameters", ":irc.test 311 a" + QString(5000, ' ') + "x", { "whoisUserReceived:|||" });
    }

    void dispatch()
    {
        QFETCH(QString, lines);
        Wire w;
        QVERIFY(w.start("alice", "alicia"));
        for (const QString& line : lines.split('\n'))
            w.connection.handleMessage(IRCParser::parse(line));
        QTEST(w.log(), "emitted");
        QTEST(w.sentLines(), "sent");
        QVERIFY(w.connection.isConnected());
    }

    // What the server says of itself in ISUPPORT: ranks (modes|symbols),
    // channel types, status message prefixes, network, case mapping, nick
    // and line length, WATCH and MONITOR, channel modes.
    void isupport()
    {
        const QString defaults = "qaohv|~&@%+|#|~&@%+||rfc1459|0|512|0|0|beI,k,l,imnpst";
        const QList<QPair<QString, QString>> cases {
            { "", defaults },
            { "PREFIX=(Yov)!@+ CHANTYPES=#& STATUSMSG=@+ NETWORK=Test CASEMAPPING=ASCII NICKLEN=16 "
              "LINELEN=1024 WATCH=64 MONITOR=10 CHANMODES=b,k,l,nt,X",
                "Yov|!@+|#&|@+|Test|ascii|16|1024|1|1|b,k,l,nt" },
            { "PREFIX=(ov)@+", "ov|@+|#|~&@%+||rfc1459|0|512|0|0|beI,k,l,imnpst" },
            { "PREFIX=(ov)@ PREFIX=ov@+ LINELEN=200 CHANMODES=b,k", defaults }, // malformed: ignored
            { "PREFIX=(ov)@+ NETWORK=Test WATCH=1 -PREFIX -NETWORK -WATCH LINELEN=100000",
                "qaohv|~&@%+|#|~&@%+||rfc1459|0|8191|0|0|beI,k,l,imnpst" },
        };
        for (const auto& [tokens, support] : cases) {
            IRCConnection connection;
            if (!tokens.isEmpty())
                connection.handleMessage(IRCParser::parse(":irc.test 005 alice " + tokens + " :are supported"));
            const IRCConnection::ServerSupport s = connection.serverSupport();
            QCOMPARE(QStringList({ s.prefixModes, s.prefixSymbols, s.chanTypes, s.statusMsg, s.network,
                s.caseMapping, QString::number(s.nickLen), QString::number(s.lineLen), QString::number(s.watch),
                QString::number(s.monitor), s.chanModes.join(',') }).join('|'), support);
        }
    }

    // Bytes as they arrive in separate reads, and the lines they make.
    void framing_data()
    {
        QTest::addColumn<QList<QByteArray>>("chunks");
        QTest::addColumn<QStringList>("lines");
        QTest::addColumn<int>("oversize"); // lines dropped as too long
        const QByteArray m = ":bob!b@h PRIVMSG #test :";
        const auto row = [](const char* name, const QList<QByteArray>& chunks, const QStringList& lines,
                             int oversize = 0) { QTest::newRow(name) << chunks << lines << oversize; };
        row("two lines in one read", { m + "one\r\n" + m + "two\r\n" }, { m + "one", m + "two" });
        row("half a line", { m + "hel", "lo channel\r\n" }, { m + "hello channel" });
        row("CR LF split", { m + "one\r", "\n" + m + "two\r\n" }, { m + "one", m + "two" });
        row("UTF-8 split", { m + "caf\xc3", "\xa9 \xe2\x98", "\x83\r\n" }, { m + "caf\u00e9 \u2603" });
        row("LF only and mixed", { m + "one\n" + m + "two\r\n" + m + "three\n" }, { m + "one", m + "two",
            m + "three" });
        row("empty lines skipped", { "\r\n\r\n\n\r\n", m + "x\r\n\r\n" }, { m + "x" });
        row("invalid UTF-8 as Latin-1, line by line", { m + "caf\xe9 na\xefve\r\n" + m + "\xe2\x82\xac\r\n" },
            { m + "caf\u00e9 na\u00efve", m + "\u20ac" });
        row("byte order mark kept", { "\xef\xbb\xbfPRIVMSG\r\n" }, { QChar(0xfeff) + QStringLiteral("PRIVMSG") });
        row("bare CR inside a line", { m + "a\rb\r\n" }, { m + "a\rb" });
        const QByteArray huge = ":irc.test NOTICE alice :" + QByteArray(70000, 'x');
        row("over 64 KiB in one read", { m + "before\r\n", huge + "\r\n", m + "after\r\n" }, { m + "before",
            m + "after" }, 1);
        row("over 64 KiB over many reads", { huge.left(30000), huge.mid(30000, 30000), huge.mid(60000),
            QByteArray(100000, 'y'), "\r\n", m + "after\r\n" }, { m + "after" }, 1);
        row("two over 64 KiB in a row", { huge, "\r\n", huge + "\r\n" }, {}, 2);
        // A line of the full length whose CR arrives before its LF is kept.
        const QByteArray limit = ":irc.test 372 alice :" + QByteArray(IRCConnection::MaxLineLength - 21, 'z');
        row("exactly 64 KiB", { limit + "\r", "\n" }, { limit });
    }

    void framing()
    {
        QFETCH(QList<QByteArray>, chunks);
        QFETCH(int, oversize);
        Wire w;
        QVERIFY(w.start());
        for (const QByteArray& chunk : chunks) {
            w.peer.send(chunk);
            QTest::qWait(30); // tends to make a read of its own (nothing depends on it)
        }
        QVERIFY(w.says(""));
        QTEST(
            w.log({ "rawMessageReceived" }).replaceInStrings(QRegularExpression("^rawMessageReceived:"), ""),
            "lines");
        QCOMPARE(w.log({ "errorOccurred" }), QStringList(oversize, Oversize));
    }

    // What goes out before the server answers: PASS only for the server
    // password method, capabilities asked for first, the nick standing in for
    // an empty real name.
    void registration()
    {
        const QByteArray plain = "CAP LS 302\r\nNICK bob\r\nUSER bob 0 * :Bob \xe2\x98\x83\r\n";
        const std::tuple<const char*, const char*, QString, QByteArray> cases[] = {
            { "Server Password (PASS)", "se cret", "Bob \u2603", "PASS :se cret\r\n" + plain },
            { "Server Password (PASS)", "", "Bob \u2603", plain },
            { "None", "", "", "CAP LS 302\r\nNICK bob\r\nUSER bob 0 * :bob\r\n" },
        };
        for (const auto& [method, password, realName, bytes] : cases) {
            Wire w;
            ServerConfig config;
            config.authMethod = method;
            config.password = password;
            QVERIFY(w.start("bob", {}, config, realName));
            QTest::qWait(100);
            QCOMPARE(w.greeting + w.peer.received(), bytes);
        }
    }

    // Text cut to a number of UTF-8 bytes: at spaces where possible, never
    // inside a character.
    void splitText()
    {
        const std::tuple<QString, int, QStringList> cases[] = {
            { "hello there", 20, { "hello there" } },
            { "aa bb cc dd", 7, { "aa bb", "cc dd" } }, // at the last space
            { "abc def", 3, { "abc", "def" } }, // a space right at the end
            { "abcdefgh", 3, { "abc", "def", "gh" } },
            { "one\r\ntwo\n\nthree\r", 20, { "one", "two", "three" } }, // lines, empty ones dropped
            { "\u00e9\u00e9\u00e9", 3, { "\u00e9", "\u00e9", "\u00e9" } },
            { "ab\u00e9cd", 4, { "ab\u00e9", "cd" } }, // full to the byte
            { "\U0001F600\U0001F600", 5, { "\U0001F600", "\U0001F600" } },
            { "\n\r\n", 10, {} },
        };
        for (const auto& [text, maxBytes, pieces] : cases)
            QCOMPARE(IRCConnection::splitText(text, maxBytes), pieces);
    }

    void commandBytes_data()
    {
        QTest::addColumn<QByteArray>("bytes");
        QTest::addColumn<Action>("action");
        const auto row = [](const char* name, const QByteArray& bytes, const Action& action) {
            QTest::newRow(name) << bytes << action;
        };
        const auto raw = [](const QString& line) { return [line](IRCConnection& c) { c.sendRaw(line); }; };
        const auto privmsg
            = [](const QString& text) { return [text](IRCConnection& c) { c.sendPrivmsg("#test", text); }; };
        row("privmsg of two lines", "PRIVMSG #test :one\r\nPRIVMSG #test :two\r\n", privmsg("one\ntwo"));
        // ":alice!" + 74 bytes for a user@host not yet seen + " " and "PRIVMSG #test :" leave 413 bytes.
        row("privmsg cut to what the server relays", "PRIVMSG #test :" + QByteArray(413,
            'a') + "\r\nPRIVMSG #test :" + QByteArray(87, 'a') + "\r\n", privmsg(QString(500, 'a')));
        // Our own JOIN shows our user@host: a longer message fits.
        row("privmsg cut to what the server relays of us", "NAMES #test\r\nPRIVMSG #test :" + QByteArray(476,
            'a') + "\r\nPRIVMSG #test :" + QByteArray(24, 'a') + "\r\n",
            [](IRCConnection& c) { c.handleMessage(IRCParser::parse(":alice!u@h.example JOIN #test"));
                c.sendPrivmsg("#test", QString(500, 'a'));
            });
        row("privmsg cut before a character that does not fit",
            "PRIVMSG #test :" + QByteArray(411, 'a') + "\r\nPRIVMSG #test :\xe2\x98\x83z\r\n",
            privmsg(QString(411, 'a') + "\u2603z")); // one byte short of the snowman's three
        // Online notification as the server offers it (WATCH, preferred, end to end).
        const auto watch = [](const char* offered, const QString& nick, bool add) {
            return [=](IRCConnection& c) {
                c.handleMessage(
                    IRCParser::parse(QStringLiteral(":s 005 alice %1 :are supported").arg(offered)));
                c.sendWatch(nick, add);
            };
        };
        row("watch remove", "WATCH -%2\r\n", watch("WATCH=128 MONITOR=100", "%2", false));
        row("monitor add", "MONITOR + alice\r\n", watch("MONITOR=100", "alice", true));
        row("neither offered", "", watch("NETWORK=x", "alice", true));
        // Whatever follows a line break or NUL is dropped: no second command can ride along.
        row("cut at LF", "PRIVMSG #a :one\r\n", raw("PRIVMSG #a :one\nQUIT"));
        row("cut at CR", "PRIVMSG #a :one\r\n", raw("PRIVMSG #a :one\rQUIT"));
        row("cut at NUL", "PRIVMSG #a :one\r\n", raw(QStringLiteral("PRIVMSG #a :one") + QChar(0) + "QUIT"));
    }

    void commandBytes()
    {
        QFETCH(Action, action);
        Wire w;
        QVERIFY(w.start());
        action(w.connection);
        QTEST(w.sent(), "bytes");
        QCOMPARE(w.log().filter(QRegularExpression("^(?!serverSupportChanged|serverMessage|joinReceived)")),
            QStringList());
    }

    void sendWithoutSocket()
    {
        IRCConnection connection;
        SignalRecorder recorder(&connection);
        connection.joinChannel("#test");
        connection.handleMessage(IRCParser::parse("PING :x"));
        connection.sendWatch("bob", true); // silently skipped
        QCOMPARE(recorder.log(), QStringList(2, NotConnected));
        // With a send observer (the fuzz targets' seam) every line goes there
        // instead, cut as it would be on the wire.
        QStringList sent;
        connection.setSendObserver([&sent](const QString& line) { sent << line; });
        connection.sendRaw("NICK x\r\nQUIT");
        connection.receiveBytes("PING :tok\n");
        QCOMPARE(sent, (QStringList { "NICK x", "PONG :tok" }));

        // A receiver that lets more bytes in while a line is delivered (a
        // nested event loop does that) gets every line once, in the order it came.
        QStringList lines;
        QObject::connect(&connection, &IRCConnection::rawMessageReceived, &connection, [&](const QString& line) {
            lines << line;
            if (line == "PRIVMSG #c :one")
                connection.receiveBytes("PRIVMSG #c :three\r\nPRIVMSG #c :fo");
            else if (line == "PRIVMSG #c :two")
                connection.receiveBytes("ur\r\n");
        });
        connection.receiveBytes("PRIVMSG #c :one\r\nPRIVMSG #c :two\r\n");
        connection.receiveBytes("PRIVMSG #c :five\n");
        QCOMPARE(lines, (QStringList { "PRIVMSG #c :one", "PRIVMSG #c :two", "PRIVMSG #c :three", "PRIVMSG #c :four",
            "PRIVMSG #c :five" }));
    }

    // The nicknames tried in turn: the primary, the alternative, then
    // numbered ones cut to 30 characters (the nicknames given are kept whole).
    void nickCandidates_data()
    {
        QTest::addColumn<QString>("primary");
        QTest::addColumn<QString>("alt");
        QTest::addColumn<int>("size");
        QTest::addColumn<QStringList>("expectedAt"); // "index=candidate"
        const auto row = [](const char* name, const QString& primary, const QString& alt, int size,
                             const QStringList& at) { QTest::newRow(name) << primary << alt << size << at; };
        const QString p35 = "abcdefghijklmnopqrstuvwxyz012345678";
        const QString p28 = p35.left(28);
        row("primary and alternative", "bob", "bobby", 102, { "0=bob", "1=bobby", "2=bob_", "3=bob_1", "11=bob_9",
            "12=bob__10", "101=bob__99" });
        row("no alternative", "bob", "", 101, { "0=bob", "1=bob_", "10=bob_9", "11=bob__10" });
        row("alternative equals primary", "bob", "bob", 101, { "0=bob", "1=bob_" });
        row("alternative equals a candidate", "bob", "bob__10", 101, { "0=bob", "1=bob__10", "2=bob_", "11=bob_9",
            "12=bob__11" });
        row("primary 35 characters", p35, "x", 102, { "0=" + p35, "1=x", "2=" + p35.left(29) + "_",
            "3=" + p35.left(28) + "_1", "12=" + p35.left(26) + "__10", "101=" + p35.left(26) + "__99" });
        row("primary 28 characters", p28, "", 101, { "1=" + p28 + "_", "2=" + p28 + "_1",
            "11=" + p28.left(26) + "__10" });
    }

    void nickCandidates()
    {
        QFETCH(QString, primary);
        QFETCH(QString, alt);
        QFETCH(QStringList, expectedAt);
        Wire w;
        QVERIFY(w.start(primary, alt));
        const QStringList candidates = w.connection.nickCandidates();
        QTEST(int(candidates.size()), "size");
        for (const QString& entry : expectedAt)
            QCOMPARE(candidates.value(entry.section('=', 0, 0).toInt()), entry.section('=', 1));
        for (int i = 1; i < candidates.size(); ++i) {
            QVERIFY2(candidates.at(i) == alt || candidates.at(i).size() <= 30, qPrintable(candidates.at(i)));
            QCOMPARE(candidates.indexOf(candidates.at(i)), i); // no duplicates
        }
        // Each retry sends the next one (no change of our own until the server
        // confirms it); past the last, every retry says all are in use.
        QStringList sent, log;
        for (int i = 1; i < candidates.size(); ++i) {
            w.connection.tryNextNick();
            sent << "NICK " + candidates.at(i);
            log << "nickChanged:" + candidates.at(i - 1) + "|" + candidates.at(i);
        }
        w.connection.tryNextNick();
        w.connection.tryNextNick();
        log << QStringList(2, "errorOccurred:All nicknames are in use. Please choose a different nick.");
        QCOMPARE(w.log(), log);
        QCOMPARE(w.sentLines(), sent);
        QCOMPARE(w.connection.currentNick(), candidates.constLast());
    }

    void disconnectSendsQuitOnce()
    {
        Wire w;
        QVERIFY(w.start());
        // The link asks for TCP keep-alive probes and no send delay.
        auto* socket = w.connection.findChild<QTcpSocket*>();
        QVERIFY(socket && socket->socketOption(QAbstractSocket::LowDelayOption).toInt() == 1);
        int keepAlive = 0;
        socklen_t length = sizeof keepAlive;
        QVERIFY(::getsockopt(int(socket->socketDescriptor()), SOL_SOCKET, SO_KEEPALIVE, &keepAlive, &length) == 0);
        QCOMPARE(keepAlive, 1);

        w.connection.disconnectFromServer();
        QVERIFY(!w.connection.isKeepAliveRunning() && !w.connection.isSleepInhibited());
        QVERIFY(w.peer.waitForClosed());
        QCOMPARE(w.peer.received(), QByteArray("QUIT :Quenvar leaving\r\n"));
        QVERIFY(w.recorder.waitFor("disconnected"));
        // A second disconnect sends and reports nothing; sending fails again.
        w.connection.disconnectFromServer();
        w.connection.sendWhois("bob");
        QTest::qWait(50);
        QCOMPARE(w.log(), (QStringList { "disconnected", NotConnected }));

        // Destroying a live connection says goodbye too.
        auto* connection = new IRCConnection;
        connection->connectToServer(Host, w.peer.port(), "x", QString(), false);
        QVERIFY(w.peer.waitForLines(2));
        delete connection;
        QVERIFY(w.peer.waitForReceived("QUIT :Quenvar leaving\r\n"));
    }

    void serverClosesTheLink()
    {
        Wire w;
        QVERIFY(w.start());
        w.peer.send(":irc.test 001 alice :Welcome\r\nERROR :Closing link: (alice@127.0.0.1) [Quit: bye]\r\n");
        w.peer.close();
        QVERIFY(w.recorder.waitFor("disconnected"));
        QTest::qWait(50);
        // Lines sent before the close are still delivered; the server's reason
        // is reported, then the socket's own text.
        QVERIFY(w.log().contains("rawMessageReceived:ERROR :Closing link: (alice@127.0.0.1) [Quit: bye]"));
        QCOMPARE(w.log({ "disconnected" }).size(), 1);
        const QStringList errors = w.log({ "errorOccurred" });
        QCOMPARE(errors.value(0), "errorOccurred:Closing link: (alice@127.0.0.1) [Quit: bye]");
        QVERIFY(errors.size() == 2 && errors.constLast() != "errorOccurred:");
        QVERIFY(!w.connection.isKeepAliveRunning() && w.connection.platformPower().releaseCount() == 1);
        QVERIFY(w.connection.isRegistered()); // until the next connect
    }

    void connectionNeverUp()
    {
        const quint16 closedPort = LinePeer().port(); // free again once the peer is gone
        IRCConnection connection;
        SignalRecorder recorder(&connection);
        const QStringList refused { "errorOccurred:Connection refused", "connectFailed" };
        connection.connectToServer(Host, closedPort, "a", QString(), false);
        QTRY_COMPARE_WITH_TIMEOUT(recorder.log(), refused, 10000);
        // Given up while still connecting: nothing goes out, nothing is reported.
        LinePeer peer;
        connection.connectToServer(Host, peer.port(), "a", QString(), false);
        connection.disconnectFromServer();
        QTest::qWait(300);
        QCOMPARE(recorder.log(), refused);
        QCOMPARE(peer.received(), QByteArray());
        QVERIFY(!connection.isConnected() && !connection.isKeepAliveRunning());
        QCOMPARE(connection.platformPower().inhibitCount(), 0);
    }

    void reconnectWithoutDisconnect()
    {
        Wire w;
        QVERIFY(w.start());
        w.peer.send(":irc.test 001 alice :Welcome\r\n");
        QTRY_VERIFY_WITH_TIMEOUT(w.connection.isRegistered(), 10000);
        w.connection.setAway(true);
        w.connection.tryNextNick();
        LinePeer second;
        w.connection.connectToServer(Host, second.port(), "carol", "C D", false);
        QVERIFY(!w.connection.isRegistered() && !w.connection.isAway() && w.connection.currentNick() == "carol");
        QVERIFY(second.waitForReceived("NICK carol\r\nUSER carol 0 * :C D\r\n"));
        QTRY_VERIFY_WITH_TIMEOUT(w.connection.isConnected(), 10000);
        // Sleep stays inhibited once for both connections.
        QVERIFY(w.connection.platformPower().inhibitCount() == 1 && w.connection.platformPower().isInhibiting());

        // The old socket no longer speaks for the connection.
        w.recorder.clear();
        w.peer.send(":irc.test 372 alice :old server\r\n");
        w.peer.close();
        second.send(":irc.test 372 carol :new server\r\n");
        QTRY_VERIFY_WITH_TIMEOUT(!w.log().isEmpty(), 10000);
        QTest::qWait(100);
        QCOMPARE(w.log(), (QStringList { "rawMessageReceived::irc.test 372 carol :new server",
            "serverMessage::irc.test 372 carol :new server" }));

        // Reconnecting from a slot: what was left in the old buffer is
        // dropped; what the new socket delivers meanwhile (from a nested
        // event loop) is kept.
        LinePeer third;
        QObject::connect(&w.connection, &IRCConnection::registered, &w.recorder, [&] {
            w.connection.connectToServer(Host, third.port(), "bob", QString(), false);
            w.connection.receiveBytes(":irc.test 372 bob :new\r\n");
        });
        w.recorder.clear();
        second.send(":irc.test 001 carol :Welcome\r\n:irc.test 372 carol :left behind\r\n");
        QVERIFY(third.waitForLines(3));
        QTest::qWait(100);
        QCOMPARE(w.log({ "rawMessageReceived" }), (QStringList { "rawMessageReceived::irc.test 001 carol :Welcome",
            "rawMessageReceived::irc.test 372 bob :new" }));
    }

    // Against a plain-text server the handshake fails: nothing goes out in
    // clear and nothing is parsed.
    void tlsNeverSendsInClear()
    {
        if (!QSslSocket::supportsSsl())
            QSKIP("no TLS backend");
        LinePeer peer;
        IRCConnection connection;
        SignalRecorder recorder(&connection);
        connection.connectToServer(Host, peer.port(), "alice", "Alice", true);
        QTRY_VERIFY_WITH_TIMEOUT(peer.received().startsWith("\x16\x03"), 10000); // a handshake record
        peer.send(":irc.test NOTICE * :*** Looking up your hostname...\r\n");
        QVERIFY(recorder.waitForCount("errorOccurred", 1));
        QVERIFY(recorder.entries("errorOccurred").constFirst() != "errorOccurred:");
        QCOMPARE(recorder.entries("rawMessageReceived"), QStringList());
        QTRY_VERIFY_WITH_TIMEOUT(!connection.isSleepInhibited(), 10000);
        QVERIFY(!peer.received().contains("NICK"));
    }

    // Checked by the timer (made fast) or, where a boundary is at stake, by hand.
    void pingAfterIdleThenTimeout()
    {
        Wire w;
        w.now = 1000;
        QVERIFY(w.start());
        IRCConnection::KeepAliveTiming timing;
        timing.checkIntervalMs = 20;
        w.connection.setKeepAliveTiming(timing); // restarts the running timer
        w.checkAt(1000 + 60000);
        QVERIFY(!w.connection.isPingPending());
        w.now = 1000 + 60001;
        QVERIFY(w.peer.waitForLines(1));
        QVERIFY(w.connection.isPingPending());
        // While the PING is out nothing more is sent; 45 s are no timeout yet.
        w.checkAt(61001 + 45000);
        QCOMPARE(w.log(), QStringList());
        w.now = 61001 + 45001;
        QVERIFY(w.recorder.waitFor(PingTimeout));
        // The link is taken for dead: closed without a QUIT.
        QVERIFY(w.peer.waitForClosed());
        const QStringList lines = w.peer.lines();
        QVERIFY2(lines.size() == 1 && lines.constFirst().startsWith("PING :")
                && QDateTime::fromString(lines.constFirst().mid(6), Qt::ISODate).isValid(), qPrintable(lines.join('|')));
        QTRY_COMPARE_WITH_TIMEOUT(w.log(), (QStringList { PingTimeout, "disconnected" }), 10000);
        QVERIFY(!w.connection.isKeepAliveRunning() && !w.connection.isSleepInhibited());
        w.checkAt(500000);
        QCOMPARE(w.log(), (QStringList { PingTimeout, "disconnected" }));
    }

    // A PONG, or any data (part of a line too), answers a pending PING.
    void receivedDataClearsPendingPing()
    {
        for (const QByteArray data : { ":irc.test PONG irc.test :2026-11-22T03:00:00\r\n", ":irc.test 372 a :no end" }) {
            Wire w;
            QVERIFY(w.start());
            w.checkAt(60001);
            QVERIFY(w.peer.waitForLines(1));
            w.now = 70000;
            w.peer.send(data);
            QTRY_VERIFY_WITH_TIMEOUT(!w.connection.isPingPending(), 10000);
            // No timeout however long ago the PING went out, and the next PING
            // only 60 s after the data.
            w.checkAt(60001 + 45001);
            w.checkAt(70000 + 60000);
            QVERIFY(!w.connection.isPingPending());
            w.checkAt(70000 + 60001);
            QVERIFY(w.connection.isPingPending() && w.peer.waitForLines(2));
            QCOMPARE(w.log({ "errorOccurred" }), QStringList());
        }
    }

    // A connection holds one lock of the login manager from connect to
    // disconnect, and gives it back when it goes away while connected.
    void sleepLockThroughLoginManager()
    {
        if (!m_loginManager)
            QSKIP(qPrintable("no private login manager: " + m_noLoginManager));
        const auto held = [this](int count) {
            return QTest::qWaitFor([&] { return m_loginManager->heldLocks() == count; }, 10000);
        };
        const qsizetype before = m_loginManager->calls().size();
        {
            Wire w;
            QVERIFY(w.start());
            QCOMPARE(m_loginManager->calls().mid(before),
                QStringList { "sleep|Quenvar|An IRC connection is open|block" });
            QVERIFY(held(1));
            w.connection.disconnectFromServer();
            w.connection.disconnectFromServer();
            QVERIFY(held(0));
            w.connection.connectToServer(Host, w.peer.port(), "alice", QString(), false);
            QVERIFY(held(1));
        }
        QVERIFY(held(0));
        QCOMPARE(m_loginManager->calls().size(), before + 2);
    }
};

QUENVAR_TEST_MAIN(TestEngine)
#include "tst_engine.moc"
