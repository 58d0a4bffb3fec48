// The connection engine against a real InspIRCd on loopback, with raw clients
// as the other users.

#include "EngineEventLog.h"
#include "IRCConnection.h"
#include "InspircdServer.h"
#include "RawIrcClient.h"
#include "ServerConfig.h"
#include "TestMain.h"

#include <QDateTime>
#include <QFileInfo>
#include <QHostAddress>
#include <QSignalSpy>
#include <QSslConfiguration>
#include <QSslError>
#include <QTcpServer>
#include <QTest>

#include <cerrno>
#include <csignal>
#include <memory>

namespace {

const int kTimeout = 10000;

// The lines a spy saw, without their message tags (server-time and the like).
QStringList texts(const QSignalSpy& spy)
{
    QStringList result;
    for (const QList<QVariant>& args : spy) {
        const QString line = args.first().toString();
        result << (line.startsWith(QLatin1Char('@')) ? line.section(QLatin1Char(' '), 1) : line);
    }
    return result;
}

} // namespace

struct Engine
{
    IRCConnection* c = nullptr;
    EngineEventLog* log = nullptr;
};

class TestE2eEngine : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        if (InspircdServer::executable().isEmpty())
            QSKIP("inspircd is not installed");
        m_defaultSsl = QSslConfiguration::defaultConfiguration();
        m_server = std::make_unique<InspircdServer>();
        QVERIFY2(m_server->start(), qPrintable(m_server->errorString()));
    }

    void cleanupTestCase() { m_server.reset(); }

    void init() { m_scope = std::make_unique<QObject>(); }

    void cleanup()
    {
        m_scope.reset();
        QSslConfiguration::setDefaultConfiguration(m_defaultSsl);
    }

    // A second server: its first plain port is taken, so it starts on fresh
    // ones; it pings every two seconds, keeps a client that answers and stops
    // cleanly, taking the link down with it.
    void serverPingsAreAnsweredUntilTheServerStops()
    {
        QTcpServer squatter;
        QVERIFY(squatter.listen(QHostAddress::LocalHost, 0));
        auto fast = std::make_unique<InspircdServer>();
        fast->setFirstPorts(squatter.serverPort(), 0);
        fast->setPingFrequency(2);
        QVERIFY2(fast->start(), qPrintable(fast->errorString()));
        QCOMPARE(fast->launchAttempts(), 2);
        QVERIFY(fast->port() != squatter.serverPort());

        Engine e = startEngine("ponger", QString(), "P", false, fast.get());
        QSignalSpy raw(e.c, &IRCConnection::rawMessageReceived);
        // A client that does not answer is dropped at the next PING, so a
        // second PING means the first was answered.
        QVERIFY(QTest::qWaitFor([&] { return texts(raw).count("PING :irc.test") >= 2; }, 20000));
        QCOMPARE(e.log->events, (QStringList { "connected", "registered" }));

        const qint64 pid = fast->processId();
        const QString dir = fast->directory();
        fast->stop();
        QVERIFY2(fast->lastExitCode() == 139 || fast->lastExitCode() == 10,
            qPrintable(QString::number(fast->lastExitCode())));
        QVERIFY(::kill(pid_t(pid), 0) != 0 && errno == ESRCH);
        QVERIFY(e.log->waitFor("disconnected"));
        fast.reset();
        QVERIFY(!QFileInfo::exists(dir));
    }

    void registrationOwnNickChangeAndQuit()
    {
        RawIrcClient observer("regobs");
        observer.connectToServer(m_server->host(), m_server->port());
        Engine e = startEngine("regnick", QString(), "Reg Istered Name");
        QSignalSpy raw(e.c, &IRCConnection::rawMessageReceived);
        QSignalSpy server(e.c, &IRCConnection::serverMessage);
        QVERIFY(observer.waitForRegistered());
        QVERIFY(e.log->waitFor("registered"));

        QCOMPARE(e.log->events, (QStringList { "connected", "registered" }));
        QVERIFY(e.c->isConnected() && e.c->isRegistered());
        QCOMPARE(e.c->currentNick(), "regnick");
        QCOMPARE(texts(raw).filter(" 001 ").value(0),
            QStringLiteral(":irc.test 001 regnick :Welcome to the QuenvarTest IRC Network "
                           "regnick!regnick@127.0.0.1"));
        QCOMPARE(server.first().first().toString(), "Connected and registered.");
        // Unhandled numerics reach the server tab whole, prefix included.
        QTRY_VERIFY_WITH_TIMEOUT(
            texts(server).contains(":irc.test 376 regnick :End of message of the day."), kTimeout);
        QVERIFY(texts(server).contains(":irc.test 372 regnick :Quenvar test MOTD line 1"));
        // The server knows the user by the fields of USER.
        observer.sendLine("WHOIS regnick");
        QCOMPARE(observer.waitForLine(" 311 regobs regnick "),
            ":irc.test 311 regobs regnick regnick 127.0.0.1 * :Reg Istered Name");

        // The own nick changes once the server confirms it.
        e.c->changeNick("renamed");
        QCOMPARE(e.c->currentNick(), "regnick");
        QVERIFY(e.log->waitFor("ownnick|renamed"));
        QCOMPARE(e.log->of("nick"), QStringList { "nick|regnick|renamed" });
        QCOMPARE(e.c->currentNick(), "renamed");

        // Disconnecting says goodbye in a shared channel.
        QVERIFY(observer.join("#e2e-quit"));
        e.c->joinChannel("#e2e-quit");
        QVERIFY(!observer.waitForLine(":renamed!\\S+ JOIN ").isEmpty());
        e.c->disconnectFromServer();
        QCOMPARE(observer.waitForLine(" QUIT "), ":renamed!regnick@127.0.0.1 QUIT :Quit: Quenvar leaving");
        QVERIFY(e.log->waitFor("disconnected"));
        QVERIFY(!e.c->isConnected());
        QVERIFY(e.log->of("error").isEmpty());
    }

    void nicknameInUseFallsBack()
    {
        struct Case
        {
            QString nick;
            QString alt;
            QStringList taken;
            QStringList tried;
        };
        const QString thirty = "fbfive789012345678901234567890";
        const QList<Case> cases {
            { "fbone", "fbonealt", { "fbone" }, { "fbone", "fbonealt" } },
            { "fbtwo", "fbtwoalt", { "fbtwo", "fbtwoalt" }, { "fbtwo", "fbtwoalt", "fbtwo_" } },
            { "fbthree", "", { "fbthree" }, { "fbthree", "fbthree_" } },
            { "fbfour", "fbfouralt", { "fbfour", "fbfouralt", "fbfour_" },
                { "fbfour", "fbfouralt", "fbfour_", "fbfour_1" } },
            // The suffix replaces the end of a nick of the longest length.
            { thirty, "", { thirty }, { thirty, thirty.left(29) + QLatin1Char('_') } },
        };
        QList<RawIrcClient*> holders;
        for (const Case& c : cases) {
            for (const QString& name : c.taken)
                holders << new RawIrcClient(name, m_scope.get());
        }
        QVERIFY(RawIrcClient::registerAll(holders, m_server->host(), m_server->port()));

        QList<Engine> engines;
        QStringList welcomes;
        for (const Case& c : cases) {
            engines << startEngine(c.nick, c.alt);
            connect(engines.last().c, &IRCConnection::rawMessageReceived, engines.last().c,
                [&welcomes](const QString& tagged) {
                    const QString line = tagged.startsWith(QLatin1Char('@')) ? tagged.section(QLatin1Char(' '), 1) : tagged;
                    if (line.section(QLatin1Char(' '), 1, 1) == QLatin1String("001"))
                        welcomes << line;
                });
        }
        for (int i = 0; i < cases.size(); ++i) {
            const Case& c = cases.at(i);
            const Engine& e = engines.at(i);
            QVERIFY2(e.log->waitFor("registered"), qPrintable(c.nick));
            // One step per rejection, and no error on the way.
            QStringList expected { "connected" };
            for (int k = 1; k < c.tried.size(); ++k)
                expected << ev({ "nick", c.tried.at(k - 1), c.tried.at(k) });
            expected << "registered";
            QCOMPARE(e.log->events, expected);
            QCOMPARE(e.c->currentNick(), c.tried.last());
            // The server agrees on the name.
            const QString welcome = QStringLiteral(":irc.test 001 %1 :Welcome to the QuenvarTest IRC Network "
                                                   "%1!%2@127.0.0.1")
                                        .arg(c.tried.last(), c.nick.left(10));
            QVERIFY2(welcomes.contains(welcome), qPrintable(welcomes.join(QLatin1Char('\n'))));
        }
    }

    void joinEchoNamesTopicPartAndKick()
    {
        const QString channel = "#e2e-join";
        RawIrcClient owner("jowner"), guest("jguest");
        Engine e = startEngine("joiner");
        QVERIFY(RawIrcClient::registerAll({ &owner, &guest }, m_server->host(), m_server->port()));
        QVERIFY(owner.join(channel));
        owner.sendLine(QStringLiteral("TOPIC %1 :Topic with ümlauts and :colons").arg(channel));
        QVERIFY(owner.sync());
        QVERIFY(e.log->waitFor("registered"));

        e.c->joinChannel(channel);
        QVERIFY(e.log->waitForCount("namesend", 2));
        QVERIFY(syncEngine(e.c));
        // Our own join is echoed with the channel as trailing text; the server
        // sends the topic and the names, and our NAMES gets them a second time.
        QCOMPARE(e.log->events.mid(2),
            QStringList({ ev({ "join", "joiner", channel }),
                ev({ "topic", channel, "Topic with ümlauts and :colons" }),
                ev({ "names", channel, "@jowner joiner" }), ev({ "namesend", channel }),
                ev({ "names", channel, "@jowner joiner" }), ev({ "namesend", channel }) }));
        QCOMPARE(owner.waitForLine(" JOIN "), ":joiner!joiner@127.0.0.1 JOIN :#e2e-join");

        // Someone else's join does not ask for names again.
        guest.sendLine(QStringLiteral("JOIN ") + channel);
        QVERIFY(e.log->waitFor(ev({ "join", "jguest", channel })));
        // Leaving without a reason, with one, and by quitting.
        guest.sendLine(QStringLiteral("PART ") + channel);
        QVERIFY(e.log->waitFor(ev({ "part", "jguest", channel, "" })));
        guest.sendLine(QStringLiteral("JOIN ") + channel);
        guest.sendLine(QStringLiteral("PART %1 :see you later").arg(channel));
        QVERIFY(e.log->waitFor(ev({ "part", "jguest", channel, "see you later" })));
        guest.sendLine(QStringLiteral("JOIN ") + channel);
        QVERIFY(guest.quit("gone home"));
        QVERIFY(e.log->waitFor(ev({ "quit", "jguest", "Quit: gone home" })));
        QVERIFY(syncEngine(e.c));
        QCOMPARE(e.log->of("namesend").size(), 2);

        // Our own part carries the fixed reason.
        e.c->partChannel(channel);
        QVERIFY(e.log->waitFor(ev({ "part", "joiner", channel, "Leaving" })));
        QCOMPARE(
            owner.waitForLine("^:joiner!\\S+ PART "), ":joiner!joiner@127.0.0.1 PART #e2e-join :Leaving");

        // Kicked, with the kicker's nick as the server's default reason, then
        // with a reason.
        const QList<QPair<QString, QString>> kicks { { QString(), "jowner" }, { " :behave", "behave" } };
        for (const auto& [extra, reason] : kicks) {
            owner.sendLine(QStringLiteral("INVITE joiner ") + channel);
            e.c->joinChannel(channel);
            QVERIFY(!owner.waitForLine(":joiner!\\S+ JOIN ").isEmpty());
            owner.sendLine(QStringLiteral("KICK %1 joiner").arg(channel) + extra);
            QVERIFY(e.log->waitFor(ev({ "kick", channel, "joiner", "jowner", reason })));
        }
        QVERIFY(e.log->of("error").isEmpty());
    }

    void messagesBothWays()
    {
        const QString channel = "#e2e-talk";
        Engine alice = startEngine("talkalice");
        Engine bob = startEngine("talkbob");
        QVERIFY(alice.log->waitFor("registered"));
        QVERIFY(bob.log->waitFor("registered"));
        // Each gets the names twice on joining (see above); then nothing
        // but messages arrives.
        alice.c->joinChannel(channel);
        QVERIFY(alice.log->waitForCount("namesend", 2));
        bob.c->joinChannel(channel);
        QVERIFY(alice.log->waitFor(ev({ "join", "talkbob", channel })));
        QVERIFY(bob.log->waitForCount("namesend", 2));
        alice.log->events.clear();
        bob.log->events.clear();
        // Paced sending has its own test; here every line goes at once.
        for (IRCConnection* c : { alice.c, bob.c })
            c->setSendPacing({ 1000, 1 });

        const QStringList lines {
            "plain words",
            "UTF-8: Grüße, 日本語, emoji 😀",
            "%1 %2 placeholders stay",
            ":-) starts with a colon",
            "\002bold\002 \0034red\003",
            QString(400, QLatin1Char('x')),
        };
        QStringList toAlice, toBob;
        for (const QString& text : lines) {
            alice.c->sendPrivmsg("talkbob", text);
            alice.c->sendPrivmsg(channel, text);
            bob.c->sendPrivmsg("talkalice", text);
            bob.c->sendPrivmsg(channel, text);
            toBob << ev({ "privmsg", "talkalice", "talkalice", text })
                  << ev({ "privmsg", "talkalice", channel, text });
            toAlice << ev({ "privmsg", "talkbob", "talkbob", text })
                    << ev({ "privmsg", "talkbob", channel, text });
        }
        QVERIFY(alice.log->waitForCount("privmsg", toAlice.size()));
        QVERIFY(bob.log->waitForCount("privmsg", toBob.size()));
        // In order, and without echo-message nobody hears their own line back.
        QVERIFY(syncEngine(alice.c));
        QVERIFY(syncEngine(bob.c));
        QCOMPARE(alice.log->events, toAlice);
        QCOMPARE(bob.log->events, toBob);
    }

    void whoisReportsRealData()
    {
        const QString channel = "#e2e-whois";
        Engine target = startEngine("whoised", QString(), "Who Is Real");
        Engine asker = startEngine("asker");
        QVERIFY(target.log->waitFor("registered"));
        QVERIFY(asker.log->waitFor("registered"));
        QSignalSpy targetRaw(target.c, &IRCConnection::rawMessageReceived);
        target.c->joinChannel(channel);
        target.c->sendRaw("AWAY :out for lunch");
        target.c->sendRaw("OPER admin adminpass");
        QTRY_VERIFY_WITH_TIMEOUT(!texts(targetRaw).filter(" 381 whoised ").isEmpty(), kTimeout);
        QVERIFY(syncEngine(target.c));

        asker.c->sendWhois("whoised");
        QVERIFY(asker.log->waitForCount("whoisend", 1));
        QStringList whois = asker.log->events.filter(QRegularExpression("^whois"));
        QCOMPARE(whois.size(), 7);
        // Idle seconds, and the sign-on time (seconds since the epoch on the
        // wire) as local date-time text.
        const QStringList idle = whois.takeAt(5).split(QLatin1Char('|'));
        QCOMPARE(idle.mid(0, 2), (QStringList { "whoisidle", "whoised" }));
        QVERIFY2(
            QRegularExpression("^\\d{1,2}$").match(idle.value(2)).hasMatch(), qPrintable(idle.join(' ')));
        const QDateTime signon = QDateTime::fromString(idle.value(3), Qt::ISODate);
        QVERIFY2(signon.isValid() && qAbs(signon.secsTo(QDateTime::currentDateTime())) < 120,
            qPrintable(idle.join(' ')));
        QCOMPARE(whois,
            QStringList({ ev({ "whoisuser", "whoised", "whoised", "127.0.0.1", "Who Is Real" }),
                ev({ "whoischannels", "whoised", "@" + channel }),
                ev({ "whoisserver", "whoised", "irc.test", "Quenvar test server" }),
                ev({ "whoisaway", "whoised", "out for lunch" }), ev({ "whoisoper", "whoised" }),
                ev({ "whoisend", "whoised", "whoised" }) }));

        // A message to an away user brings the away text as a reply.
        asker.log->events.clear();
        asker.c->sendPrivmsg("whoised", "are you there?");
        QVERIFY(asker.log->waitFor(ev({ "whoisaway", "whoised", "out for lunch" })));

        // An unknown nick: only the end of the reply, and the error for the server tab.
        asker.log->events.clear();
        QSignalSpy error(asker.c, &IRCConnection::errorReplyReceived);
        asker.c->sendWhois("nobodyhere");
        QVERIFY(asker.log->waitFor(ev({ "whoisend", "nobodyhere", "nobodyhere" })));
        QCOMPARE(asker.log->events, QStringList { ev({ "whoisend", "nobodyhere", "nobodyhere" }) });
        QCOMPARE(error.value(0), (QList<QVariant> { 401, "nobodyhere", "No such nick" }));
    }

    void watchReportsOnlineAndOffline()
    {
        Engine e = startEngine("watcher");
        auto* renamer = new RawIrcClient("renamer", m_scope.get());
        QVERIFY(RawIrcClient::registerAll({ renamer }, m_server->host(), m_server->port()));
        QVERIFY(e.log->waitFor("registered"));
        QStringList expected;
        auto reported = [&](const char* nick, const char* state) {
            expected << ev({ "watch", nick, state });
            e.log->waitForCount("watch", expected.size());
            if (e.log->of("watch") == expected)
                return true;
            qWarning() << "WATCH reports:" << e.log->of("watch");
            return false;
        };

        // Watching someone who is away from the network: "is offline" (605).
        e.c->sendWatch("watchee", true);
        QVERIFY(reported("watchee", "offline"));
        // Arriving (600) and leaving (601).
        auto* watchee = new RawIrcClient("watchee", m_scope.get());
        QVERIFY(RawIrcClient::registerAll({ watchee }, m_server->host(), m_server->port()));
        QVERIFY(reported("watchee", "online"));
        QVERIFY(watchee->quit());
        QVERIFY(reported("watchee", "offline"));
        // A nick change into the watched name counts as arriving.
        renamer->sendLine("NICK watchee");
        QVERIFY(reported("watchee", "online"));

        // Removing the entry (602) and listing (606/607) report nothing.
        e.c->sendWatch("watchee", false);
        e.c->sendRaw("WATCH S");
        QVERIFY(syncEngine(e.c));
        renamer->sendLine("NICK renamer");
        QVERIFY(renamer->sync());
        QVERIFY(syncEngine(e.c));
        QCOMPARE(e.log->of("watch"), expected);

        // Watching someone already online: "is online" (604).
        e.c->sendWatch("renamer", true);
        QVERIFY(reported("renamer", "online"));
        QVERIFY(e.log->of("error").isEmpty());
    }

    void listCountsChannelsAndUsers()
    {
        auto* l1 = new RawIrcClient("lister1", m_scope.get());
        auto* l2 = new RawIrcClient("lister2", m_scope.get());
        auto* l3 = new RawIrcClient("lister3", m_scope.get());
        Engine e = startEngine("listasker");
        QVERIFY(RawIrcClient::registerAll({ l1, l2, l3 }, m_server->host(), m_server->port()));
        QVERIFY(l1->join("#e2e-lista"));
        l1->sendLine("TOPIC #e2e-lista :List topic, with: colons");
        QVERIFY(l2->join("#e2e-lista"));
        QVERIFY(l3->join("#e2e-listb"));
        QVERIFY(l1->sync());
        QVERIFY(e.log->waitFor("registered"));

        // Twice: the second reply is counted afresh.
        for (int round = 0; round < 2; ++round) {
            e.log->events.clear();
            e.c->sendRaw("LIST");
            QVERIFY(e.log->waitFor("listend"));
            const QStringList rows = e.log->of("list");
            QVERIFY(rows.contains(ev({ "list", "#e2e-lista", "2", "List topic, with: colons" })));
            QVERIFY(rows.contains(ev({ "list", "#e2e-listb", "1", "" })));
            int users = 0;
            for (const QString& row : rows)
                users += row.section(QLatin1Char('|'), 2, 2).toInt();
            const QString info
                = ev({ "listinfo", "irc.test", QString::number(rows.size()), QString::number(users) });
            QCOMPARE(e.log->events, (QStringList { "liststart" } + rows + QStringList { info, "listend" }));
            QCOMPARE(e.c->getTotalListChannels(), rows.size());
            QCOMPARE(e.c->getTotalListUsers(), users);
        }
    }

    void tlsReportsCertificateProblemsAndRegistersWhenTrusted()
    {
        RawIrcClient observer("tlsobs");
        observer.connectToServer(m_server->host(), m_server->port());

        // The test CA unknown, then trusted but reached under a name the
        // certificate does not hold: the socket's own error, nothing received.
        const QList<QPair<QString, QSslError::SslError>> refusals {
            { "127.0.0.1", QSslError::SelfSignedCertificate },
            { "localhost", QSslError::HostNameMismatch },
        };
        for (const auto& [host, error] : refusals) {
            Engine e = createEngine();
            QSignalSpy raw(e.c, &IRCConnection::rawMessageReceived);
            e.c->connectToServer(host, m_server->tlsPort(), "tlsrefused", "T", true);
            QVERIFY(e.log->waitForCount("error", 1));
            QCOMPARE(e.log->of("error").first(),
                QStringLiteral("error|") + QSslError(error, m_server->certificate()).errorString());
            QTRY_VERIFY_WITH_TIMEOUT(!e.c->isConnected(), kTimeout);
            QCOMPARE(raw.size(), 0);
            QVERIFY(!e.c->isRegistered());
            trustServerCertificate();
        }

        Engine e = startEngine("tlsuser", QString(), "Secure User", true);
        QVERIFY(e.log->waitFor("registered"));
        QCOMPARE(e.log->events, (QStringList { "connected", "registered" }));
        QVERIFY(observer.waitForRegistered());
        // The refused attempts never reached the server.
        observer.sendLine("WHOIS tlsrefused");
        QVERIFY(!observer.waitForLine(" 401 tlsobs tlsrefused ").isEmpty());
        observer.sendLine("WHOIS tlsuser");
        QCOMPARE(observer.waitForLine(" 671 tlsobs tlsuser "),
            ":irc.test 671 tlsobs tlsuser :is using a secure connection");
        observer.sendLine("PRIVMSG tlsuser :over TLS ✓");
        QVERIFY(e.log->waitFor(ev({ "privmsg", "tlsobs", "tlsobs", "over TLS ✓" })));
        e.c->sendPrivmsg("tlsobs", "and back ✓");
        QCOMPARE(observer.waitForLine(" PRIVMSG tlsobs "),
            ":tlsuser!tlsuser@127.0.0.1 PRIVMSG tlsobs :and back ✓");
    }

private:
    Engine createEngine()
    {
        Engine e;
        e.c = new IRCConnection(m_scope.get());
        e.log = new EngineEventLog(e.c);
        return e;
    }

    Engine startEngine(const QString& nick, const QString& alt = QString(),
        const QString& realName = "Quenvar Tester", bool tls = false, InspircdServer* server = nullptr)
    {
        if (!server)
            server = m_server.get();
        Engine e = createEngine();
        ServerConfig config;
        config.altNickname = alt;
        e.c->setServerConfig(config);
        e.c->connectToServer(server->host(), tls ? server->tlsPort() : server->port(), nick, realName, tls);
        return e;
    }

    // Round trip through the server: afterwards every line the connection
    // sent before has been handled and its replies have been parsed.
    static bool syncEngine(IRCConnection* c)
    {
        static int counter = 0;
        const QString token = QStringLiteral("engine-sync-%1").arg(++counter);
        QSignalSpy raw(c, &IRCConnection::rawMessageReceived);
        c->sendRaw(QStringLiteral("PING :") + token);
        return QTest::qWaitFor(
            [&] { return texts(raw).contains(QStringLiteral(":irc.test PONG irc.test :") + token); },
            kTimeout);
    }

    // New TLS sockets trust the test server's self-signed certificate.
    void trustServerCertificate()
    {
        QSslConfiguration config = QSslConfiguration::defaultConfiguration();
        config.addCaCertificates({ m_server->certificate() });
        QSslConfiguration::setDefaultConfiguration(config);
    }

    std::unique_ptr<InspircdServer> m_server;
    std::unique_ptr<QObject> m_scope; // owns each test's connections and clients
    QSslConfiguration m_defaultSsl;
};

QUENVAR_TEST_MAIN(TestE2eEngine)
#include "tst_e2e_engine.moc"
