// The engine and the session against real servers on loopback, with raw
// clients as the other users: registration, nickname fallback, channels,
// messages, WHOIS, WATCH and TLS on a plain InspIRCd; logging in through
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
#include <QSslConfiguration>
#include <QSslError>
#include <QTest>

#include <memory>
#include <tuple>

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
    "joinReceived", "partReceived", "nickChanged", "ownNickChanged", "namesList", "namesListFinished", "topicReceived",
    "whoisUserReceived", "whoisServerReceived", "whoisOperatorReceived", "whoisIdleReceived", "whoisChannelsReceived",
    "whoisEndReceived", "whoisAwayReceived", "watchStatus" };

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
        auto* c = new IRCConnection(m_scope.get());
        Engine e { c, new SignalRecorder(c) };
        e.log->setParent(c);
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
        return QTest::qWaitFor([&] {
            const QList<BufferLine> lines = session->lines(buffer);
            return std::any_of(lines.cbegin(), lines.cend(), [&](const BufferLine& l) { return l.text.contains(text); });
        }, kTimeout);
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

    void init() { m_scope = std::make_unique<QObject>(); }
    void cleanup()
    {
        m_scope.reset();
        QSslConfiguration::setDefaultConfiguration(m_defaultSsl);
    }

    void nicknameInUseFallsBack()
    {
        // The alternative and the nicks tried in turn, all but the last taken.
        // The suffix replaces the end of a nick of the longest length.
        const QString thirty = "fbfive789012345678901234567890";
        const QList<QPair<QString, QStringList>> cases {
            { "fbfouralt", { "fbfour", "fbfouralt", "fbfour_", "fbfour_1" } }, { "", { thirty, thirty.left(29) + '_' } }
        };
        QList<RawIrcClient*> holders;
        QList<Engine> engines;
        for (const auto& [alt, tried] : cases)
            for (const QString& name : tried.mid(0, tried.size() - 1))
                holders << new RawIrcClient(name, m_scope.get());
        QVERIFY(RawIrcClient::registerAll(holders, m_server->host(), m_server->port()));
        for (const auto& [alt, tried] : cases)
            engines << startEngine(tried.first(), alt);
        for (int i = 0; i < cases.size(); ++i) {
            const QStringList& tried = cases.at(i).second;
            QVERIFY2(engines.at(i).log->waitFor("registered"), qPrintable(tried.first()));
            // One step per rejection, and no error on the way.
            QStringList expected { "connected" };
            for (int k = 1; k < tried.size(); ++k)
                expected << "nickChanged:" + tried.at(k - 1) + '|' + tried.at(k);
            QCOMPARE(engines.at(i).events(), expected << "registered");
            QCOMPARE(engines.at(i).c->currentNick(), tried.last());
        }
    }

    // Joining a channel with a topic. Messages of every kind arrive whole
    // and in order, privately and in a channel; without echo-message the sender hears nothing back. WHOIS of a
    // real user (the window's end-to-end test reads the whole summary), the
    // away text a message brings, an unknown nick. WATCH.
    void messagesWhoisAndWatch()
    {
        const QString channel = "#e2e-talk";
        Engine alice = startEngine("talkalice");
        Engine bob = startEngine("talkbob", QString(), "Who Is Real");
        QVERIFY(alice.log->waitFor("registered") && bob.log->waitFor("registered"));
        bob.c->joinChannel(channel);
        QVERIFY(bob.log->waitForCount("namesListFinished", 2));
        bob.c->sendRaw("TOPIC " + channel + " :Topic with ümlauts and :colons");
        QVERIFY(sync(bob));
        // Our own join is echoed with the channel as trailing text; the server
        // sends the topic and the names, and our NAMES gets them a second
        // time. Then nothing but messages arrives.
        alice.c->joinChannel(channel);
        QVERIFY(alice.log->waitForCount("namesListFinished", 2) && sync(alice));
        const QString names = "namesList:" + channel + "|@talkbob,talkalice";
        QCOMPARE(alice.events().mid(2), QStringList({ "joinReceived:talkalice|" + channel,
            "topicReceived:" + channel + "|Topic with ümlauts and :colons", names, "namesListFinished:" + channel,
            names, "namesListFinished:" + channel }));
        QVERIFY(bob.log->waitFor("joinReceived:talkalice|" + channel));
        alice.log->clear();
        bob.log->clear();
        alice.c->setSendPacing({ 1000, 1 }); // paced sending has its own test
        QStringList toBob;
        for (const QString& text : { QString("plain words"), QString("UTF-8: Grüße, 日本語, emoji 😀"),
                 QString("%1 %2 placeholders stay"), QString(":-) starts with a colon"),
                 QString("\002bold\002 \0034red\003"), QString(400, 'x') }) {
            alice.c->sendPrivmsg("talkbob", text);
            alice.c->sendPrivmsg(channel, text);
            toBob << "privmsgReceived:talkalice|talkalice|" + text
                  << "privmsgReceived:talkalice|" + channel + '|' + text;
        }
        QVERIFY(bob.log->waitForCount("privmsgReceived", toBob.size()));
        QVERIFY(sync(alice) && sync(bob));
        QCOMPARE(bob.events(), toBob);
        QCOMPARE(alice.events(), QStringList());

        bob.c->sendRaw("AWAY :out for lunch");
        bob.c->sendRaw("OPER admin adminpass");
        QTRY_VERIFY_WITH_TIMEOUT(!bob.texts("rawMessageReceived").filter(" 381 talkbob ").isEmpty(), kTimeout);
        alice.c->sendWhois("talkbob");
        QVERIFY(alice.log->waitFor("whoisEndReceived:talkbob|talkbob"));
        for (const QString& entry : QStringList { "whoisUserReceived:talkbob|talkbob|127.0.0.1|Who Is Real",
                 "whoisChannelsReceived:talkbob|@" + channel, "whoisAwayReceived:talkbob|out for lunch",
                 "whoisOperatorReceived:talkbob" })
            QVERIFY2(alice.events().contains(entry), qPrintable(entry));
        alice.log->clear();
        alice.c->sendPrivmsg("talkbob", "are you there?");
        QVERIFY(alice.log->waitFor("whoisAwayReceived:talkbob|out for lunch"));
        alice.log->clear();
        alice.c->sendWhois("nobodyhere");
        QVERIFY(alice.log->waitFor("whoisEndReceived:nobodyhere|nobodyhere"));
        QCOMPARE(alice.events(), QStringList { "whoisEndReceived:nobodyhere|nobodyhere" });
        QCOMPARE(alice.log->entries("errorReplyReceived"),
            QStringList { "errorReplyReceived:401|nobodyhere|No such nick" });

        // WATCH: someone away from the network is offline (605); a nick
        // change into the watched name counts as arriving (600); removing the
        // entry (602) and listing (606/607) report nothing; someone already
        // online is online (604).
        QStringList expected;
        const auto reported = [&](const QString& nick, bool online) {
            expected << "watchStatus:" + nick + (online ? "|true" : "|false");
            alice.log->waitForCount("watchStatus", int(expected.size()));
            return alice.log->entries("watchStatus") == expected;
        };
        alice.c->sendWatch("watchee", true);
        QVERIFY(reported("watchee", false));
        bob.c->sendRaw("NICK watchee");
        QVERIFY(reported("watchee", true));
        alice.c->sendWatch("watchee", false);
        alice.c->sendRaw("WATCH S");
        QVERIFY(sync(alice));
        bob.c->sendRaw("NICK talkbob");
        bob.c->sendRaw("AWAY"); // an away user is reported by another numeric
        QVERIFY(sync(bob) && sync(alice));
        QCOMPARE(alice.log->entries("watchStatus"), expected);
        alice.c->sendWatch("talkbob", true);
        QVERIFY(reported("talkbob", true));
        QVERIFY(alice.log->entries("errorOccurred").isEmpty() && bob.log->entries("errorOccurred").isEmpty());
    }

    // TLS: the test CA unknown, then trusted but reached under a name the
    // certificate does not hold: the socket's own error, nothing received.
    // Trusted, it registers (the server knows the user by the fields of USER),
    // and disconnecting says goodbye in a shared channel.
    void tlsRegistrationAndQuit()
    {
        RawIrcClient observer("tlsobs");
        observer.connectToServer(m_server->host(), m_server->port());
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
            // New TLS sockets trust the test server's certificate.
            QSslConfiguration config = QSslConfiguration::defaultConfiguration();
            config.addCaCertificates({ m_server->certificate() });
            QSslConfiguration::setDefaultConfiguration(config);
        }

        Engine e = startEngine("tlsuser", QString(), "Secure User", true);
        QVERIFY(e.log->waitFor("registered"));
        QCOMPARE(e.events(), (QStringList { "connected", "registered" }));
        // Unhandled numerics reach the server tab whole, prefix included.
        QTRY_VERIFY_WITH_TIMEOUT(
            e.texts("serverMessage").contains(":irc.test 376 tlsuser :End of message of the day."), kTimeout);
        QVERIFY(observer.waitForRegistered());
        observer.sendLine("WHOIS tlsuser");
        QCOMPARE(observer.waitForLine(" 311 tlsobs tlsuser "),
            ":irc.test 311 tlsobs tlsuser tlsuser 127.0.0.1 * :Secure User");
        QCOMPARE(observer.waitForLine(" 671 tlsobs tlsuser "),
            ":irc.test 671 tlsobs tlsuser :is using a secure connection");

        QVERIFY(observer.join("#e2e-quit"));
        e.c->joinChannel("#e2e-quit");
        QVERIFY(!observer.waitForLine(":tlsuser!\\S+ JOIN ").isEmpty());
        e.c->disconnectFromServer();
        QCOMPARE(observer.waitForLine(" QUIT "), ":tlsuser!tlsuser@127.0.0.1 QUIT :Quit: Quenvar leaving");
        QVERIFY(e.log->waitFor("disconnected"));
        QVERIFY(e.log->entries("errorOccurred").isEmpty());
    }

    // The server record's login: SASL PLAIN during registration, NickServ
    // IDENTIFY after it; a wrong password is said and the session goes on.
    // A new account registered through NickServ (carol) logs in with SASL next time.
    void servicesLogin()
    {
        auto first = connectAs(m_services->port("IRCD_PORT"), "carol");
        QVERIFY(QTest::qWaitFor([&] { return first->isRegistered(); }, kTimeout));
        first->sendMessage("NickServ", "REGISTER carols-pass carol@example.test");
        // Services answer in the server buffer.
        QVERIFY(shows(first.get(), Session::ServerBuffer, "-NickServ- Nickname \x02" "carol\x02 registered."));
        first->disconnectFromServer();
        const QString sasl = "SASL PLAIN", pass = "s3cret-pass", saslRow = "*** Logged in with SASL.";
        const std::tuple<const char*, QString, QString, QString, QString, bool> cases[] = {
            { "alice", sasl, pass, "", saslRow, true }, // SASL as the nick
            { "alice2", sasl, pass, "alice", saslRow, true }, // as another account
            { "alice3", sasl, "wrong-pass", "alice",
                "*** SASL login failed (SASL authentication failed); connecting without it.", false },
            { "alice4", "NickServ (/msg NickServ IDENTIFY)", pass, "alice",
                "-NickServ- Password accepted - you are now recognized.", true },
            { "alice5", "NickServ (/nickserv IDENTIFY)", "nope-nope", "alice", "-NickServ- Password incorrect.",
                false },
            { "carol_away", sasl, "carols-pass", "carol", saslRow, false },
        };
        for (const auto& [nick, method, password, account, row, loggedIn] : cases) {
            auto session = connectAs(m_services->port("IRCD_PORT"), nick, method, password, account);
            QVERIFY2(QTest::qWaitFor([&] { return session->isRegistered(); }, kTimeout), nick);
            QVERIFY2(shows(session.get(), Session::ServerBuffer, row), nick);
            QVERIFY2(!loggedIn || shows(session.get(), Session::ServerBuffer, "You are now logged in as alice"), nick);
            QVERIFY2(session->isConnected(), nick);
        }
    }

    // ngIRCd: its ISUPPORT decides channels ("&"), ranks and online
    // notification (none: it has neither WATCH nor MONITOR); an empty real
    // name registers; a long message arrives whole.
    void ngircdForms()
    {
        RawIrcClient peer("ngpeer");
        QVERIFY(RawIrcClient::registerAll({ &peer }, Host, m_ngircd->port("NGIRCD_PORT")));
        QVERIFY(peer.join("&local"));
        auto session = connectAs(m_ngircd->port("NGIRCD_PORT"), "ngme", "None", QString(), QString(), QString());
        QVERIFY(QTest::qWaitFor([&] { return session->isRegistered(); }, kTimeout));
        QVERIFY(QTest::qWaitFor([&] { return session->networkName() == "QuenvarNg"; }, kTimeout));

        session->join("&local");
        QTRY_COMPARE_WITH_TIMEOUT(session->members("&local"), (QStringList { "@ngpeer", "ngme" }), kTimeout);
        QVERIFY(session->typeOf("&local") == Session::BufferType::Channel);
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
        RawIrcClient peer("peer");
        QVERIFY(RawIrcClient::registerAll({ &peer }, server.host(), server.port()));
        for (const QString channel : { "#r1", "#r2" }) {
            QVERIFY(shows(session.get(), channel, "*** Reconnected"));
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
        QVERIFY(RawIrcClient::registerAll({ &peer }, strict.host(), strict.port()));
        QVERIFY(peer.join("#paste"));

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
