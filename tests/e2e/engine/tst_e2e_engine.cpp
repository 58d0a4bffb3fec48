#include "EngineEventLog.h"
#include "IRCConnection.h"
#include "InspircdServer.h"
#include "RawIrcClient.h"
#include "ServerConfig.h"
#include "TestMain.h"

#include <QDateTime>
#include <QElapsedTimer>
#include <QFileInfo>
#include <QHostAddress>
#include <QSet>
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

bool processGone(qint64 pid)
{
    return ::kill(pid_t(pid), 0) != 0 && errno == ESRCH;
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

    void cleanupTestCase()
    {
        m_pairScope.reset();
        m_server.reset();
    }

    void init() { m_scope = std::make_unique<QObject>(); }

    void cleanup()
    {
        m_scope.reset();
        QSslConfiguration::setDefaultConfiguration(m_defaultSsl);
    }

    // --- the fixture itself ---------------------------------------------------------

    void fixtureListensOnTwoPorts()
    {
        QVERIFY(m_server->isRunning());
        QVERIFY(m_server->port() != 0);
        QVERIFY(m_server->tlsPort() != 0);
        QVERIFY(m_server->port() != m_server->tlsPort());
        const QString log = m_server->logText();
        QVERIFY(log.contains(QStringLiteral("Added a listener on 127.0.0.1:%1 ").arg(m_server->port())));
        QVERIFY(log.contains(QStringLiteral("Added a listener on 127.0.0.1:%1 ").arg(m_server->tlsPort())));
        QVERIFY(!m_server->certificate().isNull());
        QVERIFY(m_server->certificate()
                    .subjectAlternativeNames()
                    .values(QSsl::IpAddressEntry)
                    .contains(QStringLiteral("127.0.0.1")));
    }

    void rawClientsRegisterInParallel()
    {
        RawIrcClient a(QStringLiteral("fixa")), b(QStringLiteral("fixb")), c(QStringLiteral("fixc"));
        QElapsedTimer clock;
        clock.start();
        QVERIFY(RawIrcClient::registerAll({ &a, &b, &c }, m_server->host(), m_server->port()));
        qInfo("three clients registered in %lld ms", clock.elapsed());
        QCOMPARE(a.nick(), QStringLiteral("fixa"));
        QVERIFY(!a.waitForLine(QStringLiteral("^:irc\\.test 376 fixa ")).isEmpty());

        a.sendLine(QStringLiteral("PRIVMSG fixb :hello from a"));
        QCOMPARE(b.waitForLine(QStringLiteral(" PRIVMSG fixb ")),
            QStringLiteral(":fixa!fixa@127.0.0.1 PRIVMSG fixb :hello from a"));
        QVERIFY(a.sync());
        QVERIFY(c.quit(QStringLiteral("bye")));
    }

    void rawClientRejectedNickFailsRegistration()
    {
        RawIrcClient first(QStringLiteral("fixdup")), second(QStringLiteral("fixdup"));
        QVERIFY(RawIrcClient::registerAll({ &first }, m_server->host(), m_server->port()));
        second.connectToServer(m_server->host(), m_server->port());
        QVERIFY(!second.waitForRegistered(kTimeout));
        QVERIFY(!second.linesMatching(QRegularExpression(QStringLiteral(" 433 \\* fixdup "))).isEmpty());
    }

    void secondServerPingsAndStopsCleanly()
    {
        auto other = std::make_unique<InspircdServer>();
        other->setPingFrequency(2);
        QVERIFY2(other->start(), qPrintable(other->errorString()));
        QVERIFY(other->port() != m_server->port());
        QVERIFY(other->tlsPort() != m_server->tlsPort());

        RawIrcClient client(QStringLiteral("pinged"));
        QVERIFY(RawIrcClient::registerAll({ &client }, other->host(), other->port()));
        // The client answers each PING, so it survives several rounds.
        QVERIFY(!client.waitForLine(QStringLiteral("^PING :irc\\.test$"), kTimeout).isEmpty());
        QVERIFY(!client.waitForLine(QStringLiteral("^PING :irc\\.test$"), kTimeout).isEmpty());
        QVERIFY(client.isConnected());

        const qint64 pid = other->processId();
        const QString dir = other->directory();
        QVERIFY(pid > 0);
        other->stop();
        QVERIFY(!other->isRunning());
        QVERIFY2(other->lastExitCode() == 139 || other->lastExitCode() == 10,
            qPrintable(QString::number(other->lastExitCode())));
        QVERIFY(processGone(pid));
        QTRY_VERIFY_WITH_TIMEOUT(!client.isConnected(), kTimeout);
        other.reset();
        QVERIFY(!QFileInfo::exists(dir));
    }

    void busyPortIsSkipped_data()
    {
        QTest::addColumn<bool>("tlsBusy");
        QTest::newRow("plain port busy") << false;
        QTest::newRow("TLS port busy") << true;
    }

    void busyPortIsSkipped()
    {
        QFETCH(bool, tlsBusy);
        QTcpServer squatter;
        QVERIFY(squatter.listen(QHostAddress::LocalHost, 0));
        const quint16 busy = squatter.serverPort();

        InspircdServer server;
        server.setFirstPorts(tlsBusy ? 0 : busy, tlsBusy ? busy : 0);
        QVERIFY2(server.start(), qPrintable(server.errorString()));
        QCOMPARE(server.launchAttempts(), 2);
        QVERIFY(server.port() != busy);
        QVERIFY(server.tlsPort() != busy);
        RawIrcClient client(QStringLiteral("retried"));
        QVERIFY(RawIrcClient::registerAll({ &client }, server.host(), server.port()));
    }

    // --- registration -------------------------------------------------------------

    void registrationReportsConnectedThenRegistered()
    {
        RawIrcClient observer(QStringLiteral("regobs"));
        observer.connectToServer(m_server->host(), m_server->port());
        Engine e = startEngine(QStringLiteral("regnick"), QString(), QStringLiteral("Reg Istered Name"));
        QSignalSpy raw(e.c, &IRCConnection::rawMessageReceived);
        QSignalSpy server(e.c, &IRCConnection::serverMessage);
        QVERIFY(observer.waitForRegistered());
        QVERIFY(e.log->waitFor(QStringLiteral("registered")));

        QCOMPARE(e.log->events.mid(0, 2), QStringList({ "connected", "registered" }));
        QVERIFY(e.c->isConnected());
        QVERIFY(e.c->isRegistered());
        QCOMPARE(e.c->currentNick(), QStringLiteral("regnick"));
        QVERIFY(e.log->of(QStringLiteral("error")).isEmpty());
        // The welcome line names the user as NICK and USER told the server.
        QCOMPARE(raw.first().first().toString(),
            QStringLiteral(":irc.test 001 regnick :Welcome to the QuenvarTest IRC Network "
                           "regnick!regnick@127.0.0.1"));
        QCOMPARE(server.first().first().toString(), QStringLiteral("Connected and registered."));
        // Unhandled numerics reach the server tab whole, prefix included.
        QTRY_VERIFY_WITH_TIMEOUT(
            signalTexts(server).contains(QStringLiteral(":irc.test 376 regnick :End of message of the day.")),
            kTimeout);
        QVERIFY(
            signalTexts(server).contains(QStringLiteral(":irc.test 372 regnick :Quenvar test MOTD line 1")));

        // The server knows the user by the fields of USER.
        observer.sendLine(QStringLiteral("WHOIS regnick"));
        QCOMPARE(observer.waitForLine(QStringLiteral(" 311 regobs regnick ")),
            QStringLiteral(":irc.test 311 regobs regnick regnick 127.0.0.1 * :Reg Istered Name"));
    }

    void nicknameInUseFallsBack_data()
    {
        QTest::addColumn<QString>("nick");
        QTest::addColumn<QString>("alt");
        QTest::addColumn<QStringList>("taken");
        QTest::addColumn<QStringList>("tried");

        QTest::newRow("alternative free")
            << "fbone"
            << "fbonealt" << QStringList { "fbone" } << QStringList { "fbone", "fbonealt" };
        QTest::newRow("alternative taken") << "fbtwo"
                                           << "fbtwoalt" << QStringList { "fbtwo", "fbtwoalt" }
                                           << QStringList { "fbtwo", "fbtwoalt", "fbtwo_" };
        QTest::newRow("no alternative")
            << "fbthree"
            << "" << QStringList { "fbthree" } << QStringList { "fbthree", "fbthree_" };
        QTest::newRow("underscore taken too")
            << "fbfour"
            << "fbfouralt" << QStringList { "fbfour", "fbfouralt", "fbfour_" }
            << QStringList { "fbfour", "fbfouralt", "fbfour_", "fbfour_1" };
        QTest::newRow("30 characters")
            << "fbfive789012345678901234567890"
            << "" << QStringList { "fbfive789012345678901234567890" }
            << QStringList { "fbfive789012345678901234567890", "fbfive78901234567890123456789_" };
    }

    void nicknameInUseFallsBack()
    {
        QFETCH(QString, nick);
        QFETCH(QString, alt);
        QFETCH(QStringList, taken);
        QFETCH(QStringList, tried);

        QList<RawIrcClient*> holders;
        for (const QString& name : taken)
            holders << new RawIrcClient(name, m_scope.get());
        QVERIFY(RawIrcClient::registerAll(holders, m_server->host(), m_server->port()));

        Engine e = startEngine(nick, alt);
        QSignalSpy raw(e.c, &IRCConnection::rawMessageReceived);
        QVERIFY(e.log->waitFor(QStringLiteral("registered")));

        QStringList expectedChanges;
        for (int i = 1; i < tried.size(); ++i)
            expectedChanges << ev({ "nick", tried.at(i - 1), tried.at(i) });
        QCOMPARE(e.log->of(QStringLiteral("nick")), expectedChanges);
        QVERIFY(e.log->of(QStringLiteral("ownnick")).isEmpty());
        QCOMPARE(e.c->currentNick(), tried.last());
        QCOMPARE(e.log->of(QStringLiteral("registered")).size(), 1);
        QVERIFY(e.log->of(QStringLiteral("error")).isEmpty());
        // One 433 per rejected name, then the welcome under the last one.
        int rejections = 0;
        for (const QString& line : signalTexts(raw)) {
            if (line.section(QLatin1Char(' '), 1, 1) == QLatin1String("433"))
                ++rejections;
        }
        QCOMPARE(rejections, tried.size() - 1);
        QVERIFY(signalTexts(raw).contains(
            QStringLiteral(":irc.test 001 %1 :Welcome to the QuenvarTest IRC Network %1!%2@127.0.0.1")
                .arg(tried.last(), nick.left(10))));
    }

    void ownNickChangeIsTracked()
    {
        Engine e = startEngine(QStringLiteral("before"));
        QVERIFY(e.log->waitFor(QStringLiteral("registered")));
        e.c->changeNick(QStringLiteral("after"));
        // Nothing changes until the server confirms.
        QCOMPARE(e.c->currentNick(), QStringLiteral("before"));
        QVERIFY(e.log->waitFor(QStringLiteral("ownnick|after")));
        QCOMPARE(e.log->of(QStringLiteral("nick")), QStringList { "nick|before|after" });
        QCOMPARE(e.c->currentNick(), QStringLiteral("after"));
    }

    // --- channels -------------------------------------------------------------------

    void joinEchoNamesTopicPartAndKick()
    {
        const QString channel = QStringLiteral("#e2e-join");
        RawIrcClient owner(QStringLiteral("jowner"));
        owner.connectToServer(m_server->host(), m_server->port());
        Engine e = startEngine(QStringLiteral("joiner"));
        QVERIFY(owner.waitForRegistered());
        QVERIFY(owner.join(channel));
        owner.sendLine(QStringLiteral("TOPIC %1 :Topic with ümlauts and :colons").arg(channel));
        QVERIFY(owner.sync());
        QVERIFY(e.log->waitFor(QStringLiteral("registered")));
        QSignalSpy raw(e.c, &IRCConnection::rawMessageReceived);

        e.c->joinChannel(channel);
        QVERIFY(e.log->waitForCount(QStringLiteral("namesend"), 2));
        QVERIFY(syncEngine(e.c));
        // Our own join is echoed with the channel as trailing text; the server
        // sends the topic and the names, and our NAMES gets them a second time.
        QCOMPARE(e.log->events.mid(2),
            QStringList({ ev({ "join", "joiner", channel }),
                ev({ "topic", channel, "Topic with ümlauts and :colons" }),
                ev({ "names", channel, "@jowner joiner" }), ev({ "namesend", channel }),
                ev({ "names", channel, "@jowner joiner" }), ev({ "namesend", channel }) }));
        QVERIFY(signalTexts(raw).contains(QStringLiteral(":joiner!joiner@127.0.0.1 JOIN :") + channel));
        QCOMPARE(owner.waitForLine(QStringLiteral(" JOIN ")),
            QStringLiteral(":joiner!joiner@127.0.0.1 JOIN :#e2e-join"));

        // Someone else's join does not ask for names again.
        RawIrcClient guest(QStringLiteral("jguest"));
        QVERIFY(RawIrcClient::registerAll({ &guest }, m_server->host(), m_server->port()));
        guest.sendLine(QStringLiteral("JOIN ") + channel);
        QVERIFY(e.log->waitFor(ev({ "join", "jguest", channel })));
        // Leaving without a reason, and with one.
        guest.sendLine(QStringLiteral("PART ") + channel);
        QVERIFY(e.log->waitFor(ev({ "part", "jguest", channel, "" })));
        guest.sendLine(QStringLiteral("JOIN ") + channel);
        guest.sendLine(QStringLiteral("PART %1 :see you later").arg(channel));
        QVERIFY(e.log->waitFor(ev({ "part", "jguest", channel, "see you later" })));
        guest.sendLine(QStringLiteral("JOIN ") + channel);
        QVERIFY(guest.quit(QStringLiteral("gone home")));
        QVERIFY(e.log->waitFor(ev({ "quit", "jguest", "Quit: gone home" })));
        QVERIFY(syncEngine(e.c));
        QCOMPARE(e.log->of(QStringLiteral("namesend")).size(), 2);

        // Our own part carries the fixed reason.
        e.c->partChannel(channel);
        QVERIFY(e.log->waitFor(ev({ "part", "joiner", channel, "Leaving" })));
        QCOMPARE(owner.waitForLine(QStringLiteral("^:joiner!\\S+ PART ")),
            QStringLiteral(":joiner!joiner@127.0.0.1 PART #e2e-join :Leaving"));

        // A kick, with the kicker's nick as the server's default reason.
        e.c->joinChannel(channel);
        QVERIFY(owner.waitForLine(QStringLiteral(":joiner!\\S+ JOIN ")).size() > 0);
        owner.sendLine(QStringLiteral("KICK %1 joiner").arg(channel));
        QVERIFY(e.log->waitFor(ev({ "kick", channel, "joiner", "jowner", "jowner" })));
        owner.sendLine(QStringLiteral("INVITE joiner ") + channel);
        e.c->joinChannel(channel);
        QVERIFY(owner.waitForLine(QStringLiteral(":joiner!\\S+ JOIN ")).size() > 0);
        owner.sendLine(QStringLiteral("KICK %1 joiner :behave").arg(channel));
        QVERIFY(e.log->waitFor(ev({ "kick", channel, "joiner", "jowner", "behave" })));
        QVERIFY(e.log->of(QStringLiteral("error")).isEmpty());
    }

    void disconnectSendsQuit()
    {
        const QString channel = QStringLiteral("#e2e-quit");
        RawIrcClient other(QStringLiteral("qwitness"));
        other.connectToServer(m_server->host(), m_server->port());
        Engine e = startEngine(QStringLiteral("quitter"));
        QVERIFY(other.waitForRegistered());
        QVERIFY(e.log->waitFor(QStringLiteral("registered")));
        QVERIFY(other.join(channel));
        e.c->joinChannel(channel);
        QVERIFY(!other.waitForLine(QStringLiteral(":quitter!\\S+ JOIN ")).isEmpty());

        e.c->disconnectFromServer();
        QCOMPARE(other.waitForLine(QStringLiteral(" QUIT ")),
            QStringLiteral(":quitter!quitter@127.0.0.1 QUIT :Quit: Quenvar leaving"));
        QVERIFY(e.log->waitFor(QStringLiteral("disconnected")));
        QVERIFY(!e.c->isConnected());
        QVERIFY(e.log->of(QStringLiteral("error")).isEmpty());
    }

    // --- messages -------------------------------------------------------------------

    void privateAndChannelMessagesBothWays_data()
    {
        QTest::addColumn<bool>("inChannel");
        QTest::addColumn<QString>("text");

        const QStringList texts {
            QStringLiteral("plain words"),
            QStringLiteral("UTF-8: Grüße, 日本語, emoji 😀"),
            QStringLiteral("%1 %2 placeholders stay"),
            QStringLiteral(":-) starts with a colon"),
            QStringLiteral("\x01"
                           "ACTION waves\x01"),
            QStringLiteral("\x02"
                           "bold\x02 \x03"
                           "4red\x03"),
            QString(400, QLatin1Char('x')),
        };
        for (bool inChannel : { false, true }) {
            for (int i = 0; i < texts.size(); ++i) {
                QTest::addRow("%s %d", inChannel ? "channel" : "private", i) << inChannel << texts.at(i);
            }
        }
    }

    void privateAndChannelMessagesBothWays()
    {
        QFETCH(bool, inChannel);
        QFETCH(QString, text);
        const QString channel = QStringLiteral("#e2e-talk");
        if (!m_pairScope) {
            m_pairScope = std::make_unique<QObject>();
            m_alice = startEngine(
                QStringLiteral("talkalice"), QString(), QStringLiteral("A"), false, m_pairScope.get());
            m_bob = startEngine(
                QStringLiteral("talkbob"), QString(), QStringLiteral("B"), false, m_pairScope.get());
            QVERIFY(m_alice.log->waitFor(QStringLiteral("registered")));
            QVERIFY(m_bob.log->waitFor(QStringLiteral("registered")));
            m_alice.c->joinChannel(channel);
            QVERIFY(m_alice.log->waitFor(ev({ "join", "talkalice", channel })));
            m_bob.c->joinChannel(channel);
            QVERIFY(m_alice.log->waitFor(ev({ "join", "talkbob", channel })));
            QVERIFY(m_bob.log->waitFor(ev({ "join", "talkbob", channel })));
        }
        m_alice.log->events.clear();
        m_bob.log->events.clear();

        m_alice.c->sendPrivmsg(inChannel ? channel : QStringLiteral("talkbob"), text);
        QVERIFY(m_bob.log->waitForCount(QStringLiteral("privmsg"), 1));
        QCOMPARE(m_bob.log->of(QStringLiteral("privmsg")),
            QStringList {
                ev({ "privmsg", "talkalice", inChannel ? channel : QStringLiteral("talkalice"), text }) });

        m_bob.c->sendPrivmsg(inChannel ? channel : QStringLiteral("talkalice"), text);
        QVERIFY(m_alice.log->waitForCount(QStringLiteral("privmsg"), 1));
        QCOMPARE(m_alice.log->of(QStringLiteral("privmsg")),
            QStringList {
                ev({ "privmsg", "talkbob", inChannel ? channel : QStringLiteral("talkbob"), text }) });
        // Without echo-message nobody hears their own line back.
        QVERIFY(syncEngine(m_alice.c));
        QVERIFY(syncEngine(m_bob.c));
        QCOMPARE(m_alice.log->of(QStringLiteral("privmsg")).size(), 1);
        QCOMPARE(m_bob.log->of(QStringLiteral("privmsg")).size(), 1);
        QVERIFY(m_alice.log->of(QStringLiteral("error")).isEmpty());
        QVERIFY(m_bob.log->of(QStringLiteral("error")).isEmpty());
    }

    void nonUtf8LineFallsBackToLatin1()
    {
        RawIrcClient sender(QStringLiteral("latin"));
        sender.connectToServer(m_server->host(), m_server->port());
        Engine e = startEngine(QStringLiteral("latinrcv"));
        QVERIFY(sender.waitForRegistered());
        QVERIFY(e.log->waitFor(QStringLiteral("registered")));
        // "café à la crème" in ISO-8859-1, passed on by the server byte for
        // byte, then the same in UTF-8.
        sender.sendBytes(QByteArray("PRIVMSG latinrcv :caf\xe9 \xe0 la cr\xe8me\r\n"));
        sender.sendBytes(QByteArray("PRIVMSG latinrcv :caf\xc3\xa9 \xc3\xa0 la cr\xc3\xa8me\r\n"));
        QVERIFY(e.log->waitForCount(QStringLiteral("privmsg"), 2));
        const QString text = QStringLiteral("café à la crème");
        QCOMPARE(e.log->of(QStringLiteral("privmsg")),
            QStringList(
                { ev({ "privmsg", "latin", "latin", text }), ev({ "privmsg", "latin", "latin", text }) }));
    }

    // --- WHOIS ----------------------------------------------------------------------

    void whoisReportsRealData()
    {
        const QString channel = QStringLiteral("#e2e-whois");
        Engine target = startEngine(QStringLiteral("whoised"), QString(), QStringLiteral("Who Is Real"));
        Engine asker = startEngine(QStringLiteral("asker"));
        QVERIFY(target.log->waitFor(QStringLiteral("registered")));
        QVERIFY(asker.log->waitFor(QStringLiteral("registered")));
        QSignalSpy targetRaw(target.c, &IRCConnection::rawMessageReceived);
        target.c->joinChannel(channel);
        target.c->sendRaw(QStringLiteral("AWAY :out for lunch"));
        target.c->sendRaw(QStringLiteral("OPER admin adminpass"));
        QTRY_VERIFY_WITH_TIMEOUT(
            signalTexts(targetRaw).filter(QStringLiteral(" 381 whoised ")).size() == 1, kTimeout);
        QVERIFY(syncEngine(target.c));

        const QDateTime before = QDateTime::currentDateTime().addSecs(-120);
        asker.c->sendWhois(QStringLiteral("whoised"));
        QVERIFY(asker.log->waitForCount(QStringLiteral("whoisend"), 1));
        const QStringList whois = asker.log->events.filter(QRegularExpression(QStringLiteral("^whois")));
        QCOMPARE(whois.size(), 7);
        QCOMPARE(whois.at(0), ev({ "whoisuser", "whoised", "whoised", "127.0.0.1", "Who Is Real" }));
        QCOMPARE(whois.at(1), ev({ "whoischannels", "whoised", "@" + channel }));
        QCOMPARE(whois.at(2), ev({ "whoisserver", "whoised", "irc.test", "Quenvar test server" }));
        QCOMPARE(whois.at(3), ev({ "whoisaway", "whoised", "out for lunch" }));
        QCOMPARE(whois.at(4), ev({ "whoisoper", "whoised" }));
        const QStringList idle = whois.at(5).split(QLatin1Char('|'));
        QCOMPARE(idle.size(), 4);
        QCOMPARE(idle.at(0), QStringLiteral("whoisidle"));
        QCOMPARE(idle.at(1), QStringLiteral("whoised"));
        bool isNumber = false;
        const int idleSeconds = idle.at(2).toInt(&isNumber);
        QVERIFY(isNumber);
        QVERIFY2(idleSeconds >= 0 && idleSeconds < 120, qPrintable(idle.at(2)));
        // The sign-on time arrives as seconds since the epoch and is reported
        // as local date-time text.
        const QDateTime signon = QDateTime::fromString(idle.at(3), Qt::ISODate);
        QVERIFY2(signon.isValid(), qPrintable(idle.at(3)));
        QVERIFY(signon >= before);
        QVERIFY(signon <= QDateTime::currentDateTime().addSecs(120));
        QCOMPARE(whois.at(6), ev({ "whoisend", "whoised", "whoised" }));

        // A message to an away user brings the away text as a reply.
        asker.log->events.clear();
        asker.c->sendPrivmsg(QStringLiteral("whoised"), QStringLiteral("are you there?"));
        QVERIFY(asker.log->waitFor(ev({ "whoisaway", "whoised", "out for lunch" })));
    }

    void whoisOfUnknownNick()
    {
        Engine asker = startEngine(QStringLiteral("asker2"));
        QVERIFY(asker.log->waitFor(QStringLiteral("registered")));
        QSignalSpy server(asker.c, &IRCConnection::serverMessage);
        asker.c->sendWhois(QStringLiteral("nobodyhere"));
        QVERIFY(asker.log->waitFor(ev({ "whoisend", "nobodyhere", "nobodyhere" })));
        QCOMPARE(asker.log->events.filter(QRegularExpression(QStringLiteral("^whois"))).size(), 1);
        QVERIFY(
            signalTexts(server).contains(QStringLiteral(":irc.test 401 asker2 nobodyhere :No such nick")));
    }

    // --- WATCH ----------------------------------------------------------------------

    void watchReportsOnlineAndOffline()
    {
        Engine e = startEngine(QStringLiteral("watcher"));
        QVERIFY(e.log->waitFor(QStringLiteral("registered")));

        // Watching someone who is away from the network: "is offline" (605).
        e.c->sendWatch(QStringLiteral("watchee"), true);
        QVERIFY(e.log->waitForCount(QStringLiteral("watch"), 1));
        QStringList expected { ev({ "watch", "watchee", "offline" }) };
        QCOMPARE(e.log->of(QStringLiteral("watch")), expected);

        // Arriving (600) and leaving (601).
        auto* watchee = new RawIrcClient(QStringLiteral("watchee"), m_scope.get());
        QVERIFY(RawIrcClient::registerAll({ watchee }, m_server->host(), m_server->port()));
        expected << ev({ "watch", "watchee", "online" });
        QVERIFY(e.log->waitForCount(QStringLiteral("watch"), 2));
        QCOMPARE(e.log->of(QStringLiteral("watch")), expected);
        QVERIFY(watchee->quit());
        expected << ev({ "watch", "watchee", "offline" });
        QVERIFY(e.log->waitForCount(QStringLiteral("watch"), 3));
        QCOMPARE(e.log->of(QStringLiteral("watch")), expected);

        // A nick change into the watched name counts as arriving.
        auto* renamer = new RawIrcClient(QStringLiteral("renamer"), m_scope.get());
        QVERIFY(RawIrcClient::registerAll({ renamer }, m_server->host(), m_server->port()));
        renamer->sendLine(QStringLiteral("NICK watchee"));
        expected << ev({ "watch", "watchee", "online" });
        QVERIFY(e.log->waitForCount(QStringLiteral("watch"), 4));
        QCOMPARE(e.log->of(QStringLiteral("watch")), expected);

        // Removing the entry (602) and listing (606/607) report nothing.
        e.c->sendWatch(QStringLiteral("watchee"), false);
        e.c->sendRaw(QStringLiteral("WATCH S"));
        QVERIFY(syncEngine(e.c));
        renamer->sendLine(QStringLiteral("NICK renamer"));
        QVERIFY(renamer->sync());
        QVERIFY(syncEngine(e.c));
        QCOMPARE(e.log->of(QStringLiteral("watch")), expected);

        // Watching someone already online: "is online" (604).
        e.c->sendWatch(QStringLiteral("renamer"), true);
        expected << ev({ "watch", "renamer", "online" });
        QVERIFY(e.log->waitForCount(QStringLiteral("watch"), 5));
        QCOMPARE(e.log->of(QStringLiteral("watch")), expected);
        QVERIFY(e.log->of(QStringLiteral("error")).isEmpty());
    }

    // --- LIST -----------------------------------------------------------------------

    void listCountsChannelsAndUsers()
    {
        auto* l1 = new RawIrcClient(QStringLiteral("lister1"), m_scope.get());
        auto* l2 = new RawIrcClient(QStringLiteral("lister2"), m_scope.get());
        auto* l3 = new RawIrcClient(QStringLiteral("lister3"), m_scope.get());
        Engine e = startEngine(QStringLiteral("listasker"));
        QVERIFY(RawIrcClient::registerAll({ l1, l2, l3 }, m_server->host(), m_server->port()));
        QVERIFY(l1->join(QStringLiteral("#e2e-lista")));
        l1->sendLine(QStringLiteral("TOPIC #e2e-lista :List topic, with: colons"));
        QVERIFY(l2->join(QStringLiteral("#e2e-lista")));
        QVERIFY(l3->join(QStringLiteral("#e2e-listb")));
        for (RawIrcClient* client : { l1, l2, l3 })
            QVERIFY(client->sync());
        QVERIFY(e.log->waitFor(QStringLiteral("registered")));

        for (int round = 0; round < 2; ++round) {
            e.log->events.clear();
            e.c->sendRaw(QStringLiteral("LIST"));
            QVERIFY(e.log->waitFor(QStringLiteral("listend")));
            const QStringList& events = e.log->events;
            QCOMPARE(events.first(), QStringLiteral("liststart"));
            QCOMPARE(events.last(), QStringLiteral("listend"));
            const QStringList rows = events.filter(QRegularExpression(QStringLiteral("^list\\|")));
            QVERIFY(rows.contains(ev({ "list", "#e2e-lista", "2", "List topic, with: colons" })));
            QVERIFY(rows.contains(ev({ "list", "#e2e-listb", "1", "" })));
            // The summary counts every row of this reply, and only this reply.
            int users = 0;
            for (const QString& row : rows)
                users += row.section(QLatin1Char('|'), 2, 2).toInt();
            QCOMPARE(events.at(events.size() - 2),
                ev({ "listinfo", "irc.test", QString::number(rows.size()), QString::number(users) }));
            QCOMPARE(events.size(), rows.size() + 3);
            QCOMPARE(e.c->getTotalListChannels(), rows.size());
            QCOMPARE(e.c->getTotalListUsers(), users);
            QCOMPARE(e.c->getListServerName(), QStringLiteral("irc.test"));
        }
    }

    // --- TLS ------------------------------------------------------------------------

    void tlsCertificateProblemIsReported_data()
    {
        QTest::addColumn<bool>("trustCa");
        QTest::addColumn<QString>("host");
        QTest::addColumn<int>("sslError");

        QTest::newRow("untrusted self-signed")
            << false << "127.0.0.1" << int(QSslError::SelfSignedCertificate);
        QTest::newRow("trusted, wrong host name") << true << "localhost" << int(QSslError::HostNameMismatch);
    }

    void tlsCertificateProblemIsReported()
    {
        QFETCH(bool, trustCa);
        QFETCH(QString, host);
        QFETCH(int, sslError);
        if (trustCa)
            trustServerCertificate();

        RawIrcClient observer(QStringLiteral("tlsobs"));
        observer.connectToServer(m_server->host(), m_server->port());
        Engine e = createEngine();
        QSignalSpy raw(e.c, &IRCConnection::rawMessageReceived);
        e.c->connectToServer(
            host, m_server->tlsPort(), QStringLiteral("tlsrefused"), QStringLiteral("T"), true);
        QVERIFY(e.log->waitForCount(QStringLiteral("error"), 1));
        const QString expected
            = QSslError(QSslError::SslError(sslError), m_server->certificate()).errorString();
        QCOMPARE(e.log->of(QStringLiteral("error")).first(), QStringLiteral("error|") + expected);
        QVERIFY(QTest::qWaitFor([&] { return !e.c->isConnected(); }, kTimeout));

        // Nothing was registered: the server never heard of the nick.
        QVERIFY(observer.waitForRegistered());
        observer.sendLine(QStringLiteral("WHOIS tlsrefused"));
        QVERIFY(!observer.waitForLine(QStringLiteral(" 401 tlsobs tlsrefused ")).isEmpty());
        QCOMPARE(raw.size(), 0);
        QVERIFY(!e.c->isRegistered());
        QVERIFY(e.log->of(QStringLiteral("registered")).isEmpty());
    }

    void tlsWithTrustedCaRegisters()
    {
        trustServerCertificate();
        RawIrcClient peer(QStringLiteral("tlspeer"));
        peer.connectToServer(m_server->host(), m_server->port());
        Engine e = startEngine(QStringLiteral("tlsuser"), QString(), QStringLiteral("Secure User"), true);
        QVERIFY(e.log->waitFor(QStringLiteral("registered")));
        QCOMPARE(e.log->events.mid(0, 2), QStringList({ "connected", "registered" }));
        QVERIFY(e.log->of(QStringLiteral("error")).isEmpty());
        QVERIFY(e.c->isConnected());

        QVERIFY(peer.waitForRegistered());
        peer.sendLine(QStringLiteral("WHOIS tlsuser"));
        QCOMPARE(peer.waitForLine(QStringLiteral(" 671 tlspeer tlsuser ")),
            QStringLiteral(":irc.test 671 tlspeer tlsuser :is using a secure connection"));
        peer.sendLine(QStringLiteral("PRIVMSG tlsuser :over TLS ✓"));
        QVERIFY(e.log->waitFor(ev({ "privmsg", "tlspeer", "tlspeer", QStringLiteral("over TLS ✓") })));
        e.c->sendPrivmsg(QStringLiteral("tlspeer"), QStringLiteral("and back ✓"));
        QCOMPARE(peer.waitForLine(QStringLiteral(" PRIVMSG tlspeer ")),
            QStringLiteral(":tlsuser!tlsuser@127.0.0.1 PRIVMSG tlspeer :and back ✓"));
    }

    // --- server PINGs ---------------------------------------------------------------

    void serverPingsAreAnswered()
    {
        InspircdServer fast;
        fast.setPingFrequency(2);
        QVERIFY2(fast.start(), qPrintable(fast.errorString()));
        Engine e
            = startEngine(QStringLiteral("ponger"), QString(), QStringLiteral("P"), false, nullptr, &fast);
        QSignalSpy raw(e.c, &IRCConnection::rawMessageReceived);
        QVERIFY(e.log->waitFor(QStringLiteral("registered")));
        // A client that does not answer is dropped at the next PING, so three
        // PINGs in a row mean the first two were answered.
        QVERIFY(QTest::qWaitFor(
            [&] { return signalTexts(raw).count(QStringLiteral("PING :irc.test")) >= 3; }, 20000));
        QVERIFY(e.c->isConnected());
        QVERIFY(e.log->of(QStringLiteral("disconnected")).isEmpty());
        QVERIFY(e.log->of(QStringLiteral("error")).isEmpty());
        QVERIFY(signalTexts(raw).filter(QStringLiteral("Ping timeout")).isEmpty());
        e.c->disconnectFromServer();
        QVERIFY(e.log->waitFor(QStringLiteral("disconnected")));
    }

private:
    Engine createEngine(QObject* owner = nullptr)
    {
        Engine e;
        e.c = new IRCConnection(owner ? owner : m_scope.get());
        e.log = new EngineEventLog(e.c);
        return e;
    }

    Engine startEngine(const QString& nick, const QString& alt = QString(),
        const QString& realName = QStringLiteral("Quenvar Tester"), bool tls = false,
        QObject* owner = nullptr, InspircdServer* server = nullptr)
    {
        if (!server)
            server = m_server.get();
        Engine e = createEngine(owner);
        ServerConfig config;
        config.nickname = nick;
        config.altNickname = alt;
        config.realName = realName;
        config.useSsl = tls;
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
            [&] {
                for (const QList<QVariant>& args : raw) {
                    if (args.first().toString().endsWith(QStringLiteral(" PONG irc.test :") + token))
                        return true;
                }
                return false;
            },
            kTimeout);
    }

    static QStringList signalTexts(const QSignalSpy& spy)
    {
        QStringList texts;
        for (const QList<QVariant>& args : spy)
            texts << args.first().toString();
        return texts;
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
    std::unique_ptr<QObject> m_pairScope; // the two connections shared by the message rows
    Engine m_alice;
    Engine m_bob;
    QSslConfiguration m_defaultSsl;
};

QUENVAR_TEST_MAIN(TestE2eEngine)
#include "tst_e2e_engine.moc"
