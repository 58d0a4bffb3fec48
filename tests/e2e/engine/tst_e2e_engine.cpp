// The connection engine against a real InspIRCd on loopback, with raw clients
// as the other users.

#include "IRCConnection.h"
#include "InspircdServer.h"
#include "RawIrcClient.h"
#include "SignalRecorder.h"
#include "TestMain.h"

#include <QDateTime>
#include <QRegularExpression>
#include <QSslConfiguration>
#include <QSslError>
#include <QTest>

#include <memory>

namespace {

const int kTimeout = 10000;

// The signals these tests follow (raw lines, server texts and notices aside).
const QStringList Events { "connected", "registered", "disconnected", "errorOccurred", "privmsgReceived",
    "joinReceived", "partReceived", "nickChanged", "ownNickChanged", "namesList", "namesListFinished",
    "topicReceived", "quitReceived", "kickReceived", "listStartReceived", "listChannelReceived", "listEndReceived",
    "listInfoReceived", "whoisUserReceived", "whoisServerReceived", "whoisOperatorReceived", "whoisIdleReceived",
    "whoisChannelsReceived", "whoisEndReceived", "whoisAwayReceived", "watchStatus" };

// A connection and the record of its signals.
struct Engine
{
    IRCConnection* c = nullptr;
    SignalRecorder* log = nullptr;

    // The followed signals in order, names in a list sorted.
    QStringList events() const
    {
        QStringList events = log->of(Events);
        for (QString& event : events) {
            if (event.startsWith("namesList:")) {
                QStringList names = event.section('|', 1).split(',');
                names.sort();
                event = event.section('|', 0, 0) + '|' + names.join(',');
            }
        }
        return events;
    }
    // The arguments of one signal's entries, message tags (server-time and
    // the like) taken off.
    QStringList texts(const QString& name) const
    {
        return log->entries(name).replaceInStrings(QRegularExpression("^" + name + ":(@\\S+ )?"), "");
    }
};

} // namespace

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

    // A server that pings every two seconds keeps a client that answers, and
    // takes the link down with it when it stops.
    void serverPingsAreAnsweredUntilTheServerStops()
    {
        InspircdServer fast;
        fast.setPingFrequency(2);
        QVERIFY2(fast.start(), qPrintable(fast.errorString()));
        Engine e = startEngine("ponger", QString(), "P", false, &fast);
        // A client that does not answer is dropped at the next PING, so a
        // second PING means the first was answered.
        QVERIFY(QTest::qWaitFor([&] { return e.texts("rawMessageReceived").count("PING :irc.test") >= 2; }, 20000));
        QCOMPARE(e.events(), (QStringList { "connected", "registered" }));
        fast.stop();
        QVERIFY(e.log->waitFor("disconnected"));
    }

    void registrationAndQuit()
    {
        RawIrcClient observer("regobs");
        observer.connectToServer(m_server->host(), m_server->port());
        Engine e = startEngine("regnick", QString(), "Reg Istered Name");
        QVERIFY(observer.waitForRegistered());
        QVERIFY(e.log->waitFor("registered"));
        QCOMPARE(e.events(), (QStringList { "connected", "registered" }));
        QCOMPARE(e.texts("rawMessageReceived").filter(" 001 ").value(0),
            ":irc.test 001 regnick :Welcome to the QuenvarTest IRC Network regnick!regnick@127.0.0.1");
        QCOMPARE(e.texts("serverMessage").value(0), "Connected and registered.");
        // Unhandled numerics reach the server tab whole, prefix included.
        QTRY_VERIFY_WITH_TIMEOUT(
            e.texts("serverMessage").contains(":irc.test 376 regnick :End of message of the day."), kTimeout);
        // The server knows the user by the fields of USER.
        observer.sendLine("WHOIS regnick");
        QCOMPARE(observer.waitForLine(" 311 regobs regnick "),
            ":irc.test 311 regobs regnick regnick 127.0.0.1 * :Reg Istered Name");

        // Disconnecting says goodbye in a shared channel.
        QVERIFY(observer.join("#e2e-quit"));
        e.c->joinChannel("#e2e-quit");
        QVERIFY(!observer.waitForLine(":regnick!\\S+ JOIN ").isEmpty());
        e.c->disconnectFromServer();
        QCOMPARE(observer.waitForLine(" QUIT "), ":regnick!regnick@127.0.0.1 QUIT :Quit: Quenvar leaving");
        QVERIFY(e.log->waitFor("disconnected"));
        QVERIFY(e.log->entries("errorOccurred").isEmpty());
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
            { "fbtwo", "fbtwoalt", { "fbtwo", "fbtwoalt" }, { "fbtwo", "fbtwoalt", "fbtwo_" } },
            { "fbthree", "", { "fbthree" }, { "fbthree", "fbthree_" } },
            { "fbfour", "fbfouralt", { "fbfour", "fbfouralt", "fbfour_" }, { "fbfour", "fbfouralt", "fbfour_", "fbfour_1" } },
            // The suffix replaces the end of a nick of the longest length.
            { thirty, "", { thirty }, { thirty, thirty.left(29) + '_' } },
        };
        QList<RawIrcClient*> holders;
        for (const Case& c : cases) {
            for (const QString& name : c.taken)
                holders << new RawIrcClient(name, m_scope.get());
        }
        QVERIFY(RawIrcClient::registerAll(holders, m_server->host(), m_server->port()));
        QList<Engine> engines;
        for (const Case& c : cases)
            engines << startEngine(c.nick, c.alt);
        for (int i = 0; i < cases.size(); ++i) {
            const Case& c = cases.at(i);
            const Engine& e = engines.at(i);
            QVERIFY2(e.log->waitFor("registered"), qPrintable(c.nick));
            // One step per rejection, and no error on the way.
            QStringList expected { "connected" };
            for (int k = 1; k < c.tried.size(); ++k)
                expected << "nickChanged:" + c.tried.at(k - 1) + '|' + c.tried.at(k);
            QCOMPARE(e.events(), expected << "registered");
            QCOMPARE(e.c->currentNick(), c.tried.last());
            // The server agrees on the name.
            QCOMPARE(e.texts("rawMessageReceived").filter(QRegularExpression("^\\S+ 001 ")).value(0),
                QStringLiteral(":irc.test 001 %1 :Welcome to the QuenvarTest IRC Network %1!%2@127.0.0.1")
                    .arg(c.tried.last(), c.nick.left(10)));
        }
    }

    void joinEchoNamesTopicPartAndKick()
    {
        const QString channel = "#e2e-join";
        RawIrcClient owner("jowner"), guest("jguest");
        Engine e = startEngine("joiner");
        QVERIFY(RawIrcClient::registerAll({ &owner, &guest }, m_server->host(), m_server->port()));
        QVERIFY(owner.join(channel));
        owner.sendLine("TOPIC " + channel + " :Topic with ümlauts and :colons");
        QVERIFY(owner.sync());
        QVERIFY(e.log->waitFor("registered"));

        e.c->joinChannel(channel);
        QVERIFY(e.log->waitForCount("namesListFinished", 2));
        QVERIFY(sync(e));
        // Our own join is echoed with the channel as trailing text; the server
        // sends the topic and the names, and our NAMES gets them a second time.
        const QString names = "namesList:" + channel + "|@jowner,joiner";
        QCOMPARE(e.events().mid(2),
            QStringList({ "joinReceived:joiner|" + channel, "topicReceived:" + channel + "|Topic with ümlauts and :colons",
                names, "namesListFinished:" + channel, names, "namesListFinished:" + channel }));
        QCOMPARE(owner.waitForLine(" JOIN "), ":joiner!joiner@127.0.0.1 JOIN :#e2e-join");

        // Someone else's join does not ask for names again; leaving without a reason.
        guest.sendLine("JOIN " + channel);
        guest.sendLine("PART " + channel);
        QVERIFY(e.log->waitFor("partReceived:jguest|" + channel + "|"));
        QVERIFY(sync(e));
        QCOMPARE(e.log->entries("namesListFinished").size(), 2);

        // Our own part carries the fixed reason.
        e.c->partChannel(channel);
        QVERIFY(e.log->waitFor("partReceived:joiner|" + channel + "|Leaving"));
        QCOMPARE(owner.waitForLine("^:joiner!\\S+ PART "), ":joiner!joiner@127.0.0.1 PART #e2e-join :Leaving");

        // Kicked, with the kicker's nick as the server's default reason, then
        // with a reason.
        const QList<QPair<QString, QString>> kicks { { QString(), "jowner" }, { " :behave", "behave" } };
        for (const auto& [extra, reason] : kicks) {
            owner.sendLine("INVITE joiner " + channel);
            e.c->joinChannel(channel);
            QVERIFY(!owner.waitForLine(":joiner!\\S+ JOIN ").isEmpty());
            owner.sendLine("KICK " + channel + " joiner" + extra);
            QVERIFY(e.log->waitFor("kickReceived:" + channel + "|joiner|jowner|" + reason));
        }
        QVERIFY(e.log->entries("errorOccurred").isEmpty());
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
        QVERIFY(alice.log->waitForCount("namesListFinished", 2));
        bob.c->joinChannel(channel);
        QVERIFY(alice.log->waitFor("joinReceived:talkbob|" + channel));
        QVERIFY(bob.log->waitForCount("namesListFinished", 2));
        alice.log->clear();
        bob.log->clear();
        // Paced sending has its own test; here every line goes at once.
        for (IRCConnection* c : { alice.c, bob.c })
            c->setSendPacing({ 1000, 1 });

        const QStringList lines { "plain words", "UTF-8: Grüße, 日本語, emoji 😀", "%1 %2 placeholders stay",
            ":-) starts with a colon", "\002bold\002 \0034red\003", QString(400, 'x') };
        QStringList toAlice, toBob;
        for (const QString& text : lines) {
            alice.c->sendPrivmsg("talkbob", text);
            alice.c->sendPrivmsg(channel, text);
            bob.c->sendPrivmsg("talkalice", text);
            bob.c->sendPrivmsg(channel, text);
            toBob << "privmsgReceived:talkalice|talkalice|" + text << "privmsgReceived:talkalice|" + channel + '|' + text;
            toAlice << "privmsgReceived:talkbob|talkbob|" + text << "privmsgReceived:talkbob|" + channel + '|' + text;
        }
        QVERIFY(alice.log->waitForCount("privmsgReceived", toAlice.size()));
        QVERIFY(bob.log->waitForCount("privmsgReceived", toBob.size()));
        // In order, and without echo-message nobody hears their own line back.
        QVERIFY(sync(alice));
        QVERIFY(sync(bob));
        QCOMPARE(alice.events(), toAlice);
        QCOMPARE(bob.events(), toBob);
    }

    void whoisReportsRealData()
    {
        const QString channel = "#e2e-whois";
        Engine target = startEngine("whoised", QString(), "Who Is Real");
        Engine asker = startEngine("asker");
        QVERIFY(target.log->waitFor("registered"));
        QVERIFY(asker.log->waitFor("registered"));
        target.c->joinChannel(channel);
        target.c->sendRaw("AWAY :out for lunch");
        target.c->sendRaw("OPER admin adminpass");
        QTRY_VERIFY_WITH_TIMEOUT(!target.texts("rawMessageReceived").filter(" 381 whoised ").isEmpty(), kTimeout);
        QVERIFY(sync(target));

        asker.c->sendWhois("whoised");
        QVERIFY(asker.log->waitForCount("whoisEndReceived", 1));
        QStringList whois = asker.events().filter(QRegularExpression("^whois"));
        QCOMPARE(whois.size(), 7);
        // Idle seconds, and the sign-on time (seconds since the epoch on the
        // wire) as local date-time text.
        const QStringList idle = whois.takeAt(5).split('|');
        QCOMPARE(idle.value(0), "whoisIdleReceived:whoised");
        QVERIFY2(QRegularExpression("^\\d{1,2}$").match(idle.value(1)).hasMatch(), qPrintable(idle.join(' ')));
        const QDateTime signon = QDateTime::fromString(idle.value(2), Qt::ISODate);
        QVERIFY2(signon.isValid() && qAbs(signon.secsTo(QDateTime::currentDateTime())) < 120, qPrintable(idle.join(' ')));
        QCOMPARE(whois,
            QStringList({ "whoisUserReceived:whoised|whoised|127.0.0.1|Who Is Real",
                "whoisChannelsReceived:whoised|@" + channel, "whoisServerReceived:whoised|irc.test|Quenvar test server",
                "whoisAwayReceived:whoised|out for lunch", "whoisOperatorReceived:whoised",
                "whoisEndReceived:whoised|whoised" }));

        // A message to an away user brings the away text as a reply.
        asker.log->clear();
        asker.c->sendPrivmsg("whoised", "are you there?");
        QVERIFY(asker.log->waitFor("whoisAwayReceived:whoised|out for lunch"));

        // An unknown nick: only the end of the reply, and the error for the server tab.
        asker.log->clear();
        asker.c->sendWhois("nobodyhere");
        QVERIFY(asker.log->waitFor("whoisEndReceived:nobodyhere|nobodyhere"));
        QCOMPARE(asker.events(), QStringList { "whoisEndReceived:nobodyhere|nobodyhere" });
        QCOMPARE(asker.log->entries("errorReplyReceived"), QStringList { "errorReplyReceived:401|nobodyhere|No such nick" });
    }

    void watchReportsOnlineAndOffline()
    {
        Engine e = startEngine("watcher");
        auto* renamer = new RawIrcClient("renamer", m_scope.get());
        QVERIFY(RawIrcClient::registerAll({ renamer }, m_server->host(), m_server->port()));
        QVERIFY(e.log->waitFor("registered"));
        QStringList expected;
        const auto reported = [&](const QString& nick, bool online) {
            expected << "watchStatus:" + nick + (online ? "|true" : "|false");
            e.log->waitForCount("watchStatus", int(expected.size()));
            return e.log->entries("watchStatus") == expected;
        };
        // Watching someone who is away from the network: "is offline" (605).
        e.c->sendWatch("watchee", true);
        QVERIFY(reported("watchee", false));
        // Arriving (600) and leaving (601).
        auto* watchee = new RawIrcClient("watchee", m_scope.get());
        QVERIFY(RawIrcClient::registerAll({ watchee }, m_server->host(), m_server->port()));
        QVERIFY(reported("watchee", true));
        QVERIFY(watchee->quit());
        QVERIFY(reported("watchee", false));
        // A nick change into the watched name counts as arriving.
        renamer->sendLine("NICK watchee");
        QVERIFY(reported("watchee", true));

        // Removing the entry (602) and listing (606/607) report nothing.
        e.c->sendWatch("watchee", false);
        e.c->sendRaw("WATCH S");
        QVERIFY(sync(e));
        renamer->sendLine("NICK renamer");
        QVERIFY(renamer->sync());
        QVERIFY(sync(e));
        QCOMPARE(e.log->entries("watchStatus"), expected);

        // Watching someone already online: "is online" (604).
        e.c->sendWatch("renamer", true);
        QVERIFY(reported("renamer", true));
        QVERIFY(e.log->entries("errorOccurred").isEmpty());
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

        e.log->clear();
        e.c->sendRaw("LIST");
        QVERIFY(e.log->waitFor("listEndReceived"));
        const QStringList rows = e.log->entries("listChannelReceived");
        QVERIFY(rows.contains("listChannelReceived:#e2e-lista|2|List topic, with: colons"));
        QVERIFY(rows.contains("listChannelReceived:#e2e-listb|1|"));
        int users = 0;
        for (const QString& row : rows)
            users += row.section('|', 1, 1).toInt();
        const QString info = QStringLiteral("listInfoReceived:irc.test|%1|%2").arg(rows.size()).arg(users);
        QCOMPARE(e.events(), (QStringList { "listStartReceived" } + rows + QStringList { info, "listEndReceived" }));
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
            e.c->connectToServer(host, m_server->tlsPort(), "tlsrefused", "T", true);
            QVERIFY(e.log->waitForCount("errorOccurred", 1));
            QCOMPARE(e.log->entries("errorOccurred").value(0),
                "errorOccurred:" + QSslError(error, m_server->certificate()).errorString());
            QTRY_VERIFY_WITH_TIMEOUT(!e.c->isConnected(), kTimeout);
            QCOMPARE(e.log->entries("rawMessageReceived"), QStringList());
            QVERIFY(!e.c->isRegistered());
            // New TLS sockets trust the test server's certificate.
            QSslConfiguration config = QSslConfiguration::defaultConfiguration();
            config.addCaCertificates({ m_server->certificate() });
            QSslConfiguration::setDefaultConfiguration(config);
        }

        Engine e = startEngine("tlsuser", QString(), "Secure User", true);
        QVERIFY(e.log->waitFor("registered"));
        QCOMPARE(e.events(), (QStringList { "connected", "registered" }));
        QVERIFY(observer.waitForRegistered());
        // The refused attempts never reached the server.
        observer.sendLine("WHOIS tlsrefused");
        QVERIFY(!observer.waitForLine(" 401 tlsobs tlsrefused ").isEmpty());
        observer.sendLine("WHOIS tlsuser");
        QCOMPARE(observer.waitForLine(" 671 tlsobs tlsuser "), ":irc.test 671 tlsobs tlsuser :is using a secure connection");
        observer.sendLine("PRIVMSG tlsuser :over TLS ✓");
        QVERIFY(e.log->waitFor("privmsgReceived:tlsobs|tlsobs|over TLS ✓"));
        e.c->sendPrivmsg("tlsobs", "and back ✓");
        QCOMPARE(observer.waitForLine(" PRIVMSG tlsobs "), ":tlsuser!tlsuser@127.0.0.1 PRIVMSG tlsobs :and back ✓");
    }

private:
    Engine createEngine()
    {
        Engine e;
        e.c = new IRCConnection(m_scope.get());
        e.log = new SignalRecorder(e.c);
        e.log->setParent(e.c);
        return e;
    }

    Engine startEngine(const QString& nick, const QString& alt = QString(), const QString& realName = "Quenvar Tester",
        bool tls = false, InspircdServer* server = nullptr)
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
    static bool sync(const Engine& e)
    {
        static int counter = 0;
        const QString token = QStringLiteral("engine-sync-%1").arg(++counter);
        e.c->sendRaw("PING :" + token);
        return QTest::qWaitFor(
            [&] { return e.texts("rawMessageReceived").contains(":irc.test PONG irc.test :" + token); }, kTimeout);
    }

    std::unique_ptr<InspircdServer> m_server;
    std::unique_ptr<QObject> m_scope; // owns each test's connections and clients
    QSslConfiguration m_defaultSsl;
};

QUENVAR_TEST_MAIN(TestE2eEngine)
#include "tst_e2e_engine.moc"
