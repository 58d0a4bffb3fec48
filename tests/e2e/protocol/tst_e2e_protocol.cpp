// The engine and the session against real servers on loopback, with raw
// clients as the other users: registration, nickname fallback, channels,
// messages, WHOIS, WATCH, LIST and TLS on a plain InspIRCd; logging in through
// services (InspIRCd linked to Anope); ngIRCd's other forms; a reconnect that
// rejoins; a paste at the default send pace under InspIRCd's stock flood limits.

#include "IRCConnection.h"
#include "InspircdServer.h"
#include "RawIrcClient.h"
#include "ScriptFixture.h"
#include "Session.h"
#include "SignalRecorder.h"
#include "TestMain.h"

#include <QRegularExpression>
#include <QSettings>
#include <QSslConfiguration>
#include <QSslError>
#include <QTest>

#include <memory>

namespace {

const int kTimeout = 15000;
const QString Host = QStringLiteral("127.0.0.1");

// What a raw client received of messages to target from nick, in order.
QStringList messagesTo(const RawIrcClient& client, const QString& nick, const QString& target)
{
    const QRegularExpression pattern("^(@\\S+ )?:" + QRegularExpression::escape(nick) + "!\\S+ PRIVMSG "
        + QRegularExpression::escape(target) + " :");
    return client.linesMatching(pattern).replaceInStrings(pattern, "");
}

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

class TestE2eProtocol : public QObject
{
    Q_OBJECT

private:
    std::unique_ptr<InspircdServer> m_server;
    std::unique_ptr<ScriptFixture> m_services; // InspIRCd linked to Anope
    std::unique_ptr<ScriptFixture> m_ngircd;
    std::unique_ptr<QObject> m_scope; // owns each test's connections and clients
    QSslConfiguration m_defaultSsl;

    // A connection to the plain InspIRCd (its TLS port when tls), recorded.
    Engine startEngine(const QString& nick, const QString& alt = QString(), const QString& realName = "Q Tester",
        bool tls = false, const QString& host = Host)
    {
        Engine e { new IRCConnection(m_scope.get()), nullptr };
        e.log = new SignalRecorder(e.c);
        e.log->setParent(e.c);
        ServerConfig config;
        config.altNickname = alt;
        e.c->setServerConfig(config);
        e.c->connectToServer(host, tls ? m_server->tlsPort() : m_server->port(), nick, realName, tls);
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


    // A session connected with a record of nick and the given login.
    static std::unique_ptr<Session> connectAs(quint16 port, const QString& nick, const QString& method = "None",
        const QString& password = QString(), const QString& account = QString(),
        const QString& realName = "Q Tester")
    {
        ServerConfig config;
        config.nickname = nick;
        config.realName = realName;
        config.authMethod = method;
        config.password = password;
        config.account = account;
        auto session = std::make_unique<Session>();
        session->connectTo(Host, port, config);
        return session;
    }

    static bool shows(Session* session, const QString& buffer, const QString& text)
    {
        return QTest::qWaitFor(
            [&] {
                const QList<BufferLine> lines = session->lines(buffer);
                return std::any_of(
                    lines.cbegin(), lines.cend(), [&](const BufferLine& l) { return l.text.contains(text); });
            },
            kTimeout);
    }

private slots:
    void initTestCase()
    {
        m_defaultSsl = QSslConfiguration::defaultConfiguration();
        m_server = std::make_unique<InspircdServer>();
        QVERIFY2(m_server->start(), qPrintable(m_server->errorString()));
        m_services = std::make_unique<ScriptFixture>(QStringLiteral("services/services-fixture.sh"));
        QProcessEnvironment accounts;
        accounts.insert(QStringLiteral("SERVICES_ACCOUNTS"), QStringLiteral("alice:s3cret-pass"));
        QVERIFY2(m_services->start(accounts), qPrintable(m_services->errorString()));
        m_ngircd = std::make_unique<ScriptFixture>(QStringLiteral("ngircd-fixture.sh"));
        QVERIFY2(m_ngircd->start(), qPrintable(m_ngircd->errorString()));
    }

    void cleanupTestCase()
    {
        m_ngircd.reset();
        m_services.reset();
        m_server.reset();
    }
    void init() { m_scope = std::make_unique<QObject>(); }
    void cleanup()
    {
        m_scope.reset();
        QSslConfiguration::setDefaultConfiguration(m_defaultSsl);
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
            { "fbfour", "fbfouralt", { "fbfour", "fbfouralt", "fbfour_" },
                { "fbfour", "fbfouralt", "fbfour_", "fbfour_1" } },
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
            QStringList({ "joinReceived:joiner|" + channel,
                "topicReceived:" + channel + "|Topic with ümlauts and :colons",
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
            toBob << "privmsgReceived:talkalice|talkalice|" + text
                  << "privmsgReceived:talkalice|" + channel + '|' + text;
            toAlice << "privmsgReceived:talkbob|talkbob|" + text
                    << "privmsgReceived:talkbob|" + channel + '|' + text;
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
        QVERIFY(asker.log->waitFor("whoisEndReceived:whoised|whoised"));
        // (The window's end-to-end test reads the whole summary.)
        for (const QString& entry : QStringList { "whoisUserReceived:whoised|whoised|127.0.0.1|Who Is Real",
                 "whoisChannelsReceived:whoised|@" + channel, "whoisAwayReceived:whoised|out for lunch",
                 "whoisOperatorReceived:whoised" })
            QVERIFY2(asker.events().contains(entry), qPrintable(entry));

        // A message to an away user brings the away text as a reply.
        asker.log->clear();
        asker.c->sendPrivmsg("whoised", "are you there?");
        QVERIFY(asker.log->waitFor("whoisAwayReceived:whoised|out for lunch"));

        // An unknown nick: only the end of the reply, and the error for the server tab.
        asker.log->clear();
        asker.c->sendWhois("nobodyhere");
        QVERIFY(asker.log->waitFor("whoisEndReceived:nobodyhere|nobodyhere"));
        QCOMPARE(asker.events(), QStringList { "whoisEndReceived:nobodyhere|nobodyhere" });
        QCOMPARE(asker.log->entries("errorReplyReceived"),
            QStringList { "errorReplyReceived:401|nobodyhere|No such nick" });
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
        // A nick change into the watched name counts as arriving (600).
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
            Engine e = startEngine("tlsrefused", QString(), "T", true, host);
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
        QCOMPARE(observer.waitForLine(" 671 tlsobs tlsuser "),
            ":irc.test 671 tlsobs tlsuser :is using a secure connection");
        observer.sendLine("PRIVMSG tlsuser :over TLS ✓");
        QVERIFY(e.log->waitFor("privmsgReceived:tlsobs|tlsobs|over TLS ✓"));
        e.c->sendPrivmsg("tlsobs", "and back ✓");
        QCOMPARE(
            observer.waitForLine(" PRIVMSG tlsobs "), ":tlsuser!tlsuser@127.0.0.1 PRIVMSG tlsobs :and back ✓");
    }


    // The server record's login: SASL PLAIN during registration, NickServ
    // IDENTIFY after it; a wrong password is said and the session goes on.
    void servicesLogin_data()
    {
        QTest::addColumn<QString>("nick");
        QTest::addColumn<QString>("method");
        QTest::addColumn<QString>("password");
        QTest::addColumn<QString>("account");
        QTest::addColumn<QString>("row");
        QTest::addColumn<bool>("loggedIn");
        const QString sasl = "SASL PLAIN", pass = "s3cret-pass", saslRow = "*** Logged in with SASL.";
        QTest::newRow("SASL as the nick") << "alice" << sasl << pass << "" << saslRow << true;
        QTest::newRow("SASL as another account") << "alice2" << sasl << pass << "alice" << saslRow << true;
        QTest::newRow("SASL, wrong password") << "alice3" << sasl << "wrong-pass" << "alice"
            << "*** SASL login failed (SASL authentication failed); connecting without it." << false;
        QTest::newRow("NickServ") << "alice4" << "NickServ (/msg NickServ IDENTIFY)" << pass << "alice"
                                  << "-NickServ- Password accepted - you are now recognized." << true;
        QTest::newRow("NickServ, wrong password") << "alice5" << "NickServ (/nickserv IDENTIFY)" << "nope-nope"
                                                  << "alice" << "-NickServ- Password incorrect." << false;
    }

    void servicesLogin()
    {
        QFETCH(QString, nick);
        QFETCH(QString, method);
        QFETCH(QString, password);
        QFETCH(QString, account);
        QFETCH(QString, row);
        QFETCH(bool, loggedIn);
        auto session = connectAs(m_services->port("IRCD_PORT"), nick, method, password, account);
        QVERIFY(QTest::qWaitFor([&] { return session->isRegistered(); }, kTimeout));
        QVERIFY(shows(session.get(), Session::ServerBuffer, row));
        if (loggedIn)
            QVERIFY(shows(session.get(), Session::ServerBuffer, "You are now logged in as alice"));
        else
            QVERIFY(!session->lines(Session::ServerBuffer).isEmpty() && session->isConnected());
        session->disconnectFromServer();
        QVERIFY(QTest::qWaitFor([&] { return !session->isConnected(); }, kTimeout));
    }

    // A new account registered through NickServ logs in with SASL next time.
    void registerThenSasl()
    {
        auto first = connectAs(m_services->port("IRCD_PORT"), "carol");
        QVERIFY(QTest::qWaitFor([&] { return first->isRegistered(); }, kTimeout));
        first->sendMessage("NickServ", "REGISTER carols-pass carol@example.test");
        // Services answer in the server buffer.
        QVERIFY(shows(first.get(), Session::ServerBuffer, "-NickServ- Nickname \x02" "carol\x02 registered."));
        first->disconnectFromServer();

        auto second = connectAs(m_services->port("IRCD_PORT"), "carol_away", "SASL PLAIN", "carols-pass", "carol");
        QVERIFY(shows(second.get(), Session::ServerBuffer, "*** Logged in with SASL."));
        QVERIFY(QTest::qWaitFor([&] { return second->isRegistered(); }, kTimeout));
    }

    // ngIRCd: its ISUPPORT decides channels ("&"), ranks and online
    // notification (none: it has neither WATCH nor MONITOR); an empty real
    // name registers; a long message arrives whole.
    void ngircdForms()
    {
        RawIrcClient peer("ngpeer");
        peer.connectToServer(Host, m_ngircd->port("NGIRCD_PORT"));
        QVERIFY(peer.waitForRegistered());
        QVERIFY(peer.join("&local"));
        auto session = connectAs(m_ngircd->port("NGIRCD_PORT"), "ngme", "None", QString(), QString(), QString());
        QVERIFY(QTest::qWaitFor([&] { return session->isRegistered(); }, kTimeout));
        QVERIFY(QTest::qWaitFor([&] { return session->networkName() == "QuenvarNg"; }, kTimeout));
        QVERIFY(session->connection()->serverSupport().chanTypes.contains(QLatin1Char('&')));

        session->join("&local");
        QVERIFY(QTest::qWaitFor([&] { return session->members("&local").size() == 2; }, kTimeout));
        QVERIFY(session->typeOf("&local") == Session::BufferType::Channel);
        QCOMPARE(session->members("&local"), (QStringList { "@ngpeer", "ngme" }));
        peer.sendLine("MODE &local +v ngme");
        QVERIFY(QTest::qWaitFor([&] { return session->members("&local").contains("+ngme"); }, kTimeout));

        session->openBuffer("ngpeer");
        QVERIFY(session->watchedNicks().isEmpty());

        // Words to 2,000 characters: the pieces it is cut into join with spaces into the whole.
        QString text;
        for (int i = 0; text.size() < 2000; ++i)
            text += QStringLiteral("w%1%2 ").arg(i).arg(QString(i % 7, QChar(u'\u00e9')));
        text = text.left(2000).trimmed();
        session->sendMessage("&local", text);
        QVERIFY(QTest::qWaitFor([&] { return messagesTo(peer, "ngme", "&local").join(' ') == text; }, kTimeout));
        QVERIFY(session->isConnected());
    }

    // The server goes away and comes back on the same port: the session
    // reconnects after the set delay, joins both channels again and says so
    // in each; the user's own Disconnect is never undone.
    void reconnectAndRejoin()
    {
        InspircdServer server;
        QVERIFY2(server.start(), qPrintable(server.errorString()));
        auto session = connectAs(server.port(), "rejoiner");
        session->setReconnectPolicy({ true, 1, 0 });
        QVERIFY(QTest::qWaitFor([&] { return session->isRegistered(); }, kTimeout));
        session->join("#r1");
        session->join("#r2", "sekrit");
        QVERIFY(QTest::qWaitFor([&] { return session->isJoined("#r1") && session->isJoined("#r2"); }, kTimeout));

        const quint16 port = server.port();
        server.stop();
        QVERIFY(QTest::qWaitFor([&] { return !session->isConnected(); }, kTimeout));
        QVERIFY(shows(session.get(), Session::ServerBuffer, "*** Reconnecting in 1 s (attempt 1)..."));
        server.setFirstPorts(port, 0);
        QVERIFY2(server.start(), qPrintable(server.errorString()));
        QCOMPARE(server.port(), port);
        QVERIFY(QTest::qWaitFor([&] { return session->isJoined("#r1") && session->isJoined("#r2"); }, 30000));
        QVERIFY(shows(session.get(), "#r1", "*** Reconnected"));
        QVERIFY(shows(session.get(), "#r2", "*** Reconnected"));
        RawIrcClient peer("peer");
        peer.connectToServer(server.host(), server.port());
        QVERIFY(peer.waitForRegistered());
        for (const QString channel : { "#r1", "#r2" }) {
            peer.sendLine("NAMES " + channel);
            QVERIFY(!peer.waitForLine(" 353 peer . " + channel + " :.*rejoiner").isEmpty());
        }

        session->disconnectFromServer();
        QVERIFY(QTest::qWaitFor([&] { return !session->isConnected(); }, kTimeout));
        QTest::qWait(2500);
        QVERIFY(!session->isConnected());
        QCOMPARE(session->pendingReconnectAttempt(), 0);
    }

    // InspIRCd with its stock flood limits: an empty real name registers, and
    // 30 pasted lines arrive in order at the default pace without the server
    // closing the link.
    void pasteAtDefaultPace()
    {
        InspircdServer strict;
        strict.setStockFloodLimits(true);
        QVERIFY2(strict.start(), qPrintable(strict.errorString()));
        RawIrcClient peer("reader");
        peer.connectToServer(strict.host(), strict.port());
        QVERIFY(peer.waitForRegistered());
        QVERIFY(peer.join("#paste"));

        QVERIFY(!QSettings().contains("sendInterval")); // the default pace
        auto session = connectAs(strict.port(), "paster", "None", QString(), QString(), QString());
        QVERIFY(QTest::qWaitFor([&] { return session->isRegistered(); }, kTimeout));
        session->join("#paste");
        QVERIFY(QTest::qWaitFor([&] { return session->members("#paste").size() == 2; }, kTimeout));

        // 30 lines of 300 characters: more than the server's receive queue
        // takes at once (8 KiB), so that sending them unpaced gets the link closed.
        QStringList pasted;
        for (int i = 1; i <= 30; ++i)
            pasted << QStringLiteral("line %1 of the paste ").arg(i).leftJustified(300, QLatin1Char('.'));
        session->sendMessage("#paste", pasted.join('\n'));
        QVERIFY(QTest::qWaitFor([&] { return messagesTo(peer, "paster", "#paste").size() >= 30; }, 90000));
        QCOMPARE(messagesTo(peer, "paster", "#paste"), pasted);
        QVERIFY(session->isConnected());
    }
};

QUENVAR_CORE_TEST_MAIN(TestE2eProtocol)
#include "tst_e2e_protocol.moc"
