// The protocol against real servers on loopback, a session without a window
// and raw clients as the other users: logging in through services (InspIRCd
// linked to Anope), ngIRCd's other forms, long messages and a paste at the
// default send pace under InspIRCd's stock flood limits.

#include "IRCConnection.h"
#include "InspircdServer.h"
#include "RawIrcClient.h"
#include "ScriptFixture.h"
#include "Session.h"
#include "TestMain.h"

#include <QRegularExpression>
#include <QSettings>
#include <QTest>

#include <memory>

namespace {

const int kTimeout = 15000;
const QString Host = QStringLiteral("127.0.0.1");

// Words to 2,000 characters, so that the pieces a long message is cut into
// join with spaces into the whole of it.
QString longText()
{
    QString text;
    for (int i = 0; text.size() < 2000; ++i)
        text += QStringLiteral("w%1%2 ").arg(i).arg(QString(i % 7, QChar(u'\u00e9')));
    return text.left(2000).trimmed();
}

// What a raw client received of messages to target from nick, in order.
QStringList messagesTo(const RawIrcClient& client, const QString& nick, const QString& target)
{
    QStringList texts;
    const QRegularExpression pattern(QStringLiteral("^(@\\S+ )?:%1!\\S+ PRIVMSG %2 :(.*)$")
                                         .arg(QRegularExpression::escape(nick), QRegularExpression::escape(target)));
    for (const QString& line : client.receivedLines()) {
        const QRegularExpressionMatch match = pattern.match(line);
        if (match.hasMatch())
            texts << match.captured(2);
    }
    return texts;
}

} // namespace

class TestE2eProtocol : public QObject
{
    Q_OBJECT

private:
    std::unique_ptr<ScriptFixture> m_services; // InspIRCd linked to Anope
    std::unique_ptr<ScriptFixture> m_ngircd;

    // A session connected with a record of nick and the given login.
    static std::unique_ptr<Session> connectAs(quint16 port, const QString& nick, const QString& method = "None",
        const QString& password = QString(), const QString& account = QString(), const QString& realName = "Q Tester")
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
                return std::any_of(lines.cbegin(), lines.cend(), [&](const BufferLine& l) { return l.text.contains(text); });
            },
            kTimeout);
    }

private slots:
    void initTestCase()
    {
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
        QTest::newRow("SASL as the nick") << "alice" << "SASL PLAIN" << "s3cret-pass" << "" << "*** Logged in with SASL."
                                          << true;
        QTest::newRow("SASL as another account") << "alice2" << "SASL PLAIN" << "s3cret-pass" << "alice"
                                                 << "*** Logged in with SASL." << true;
        QTest::newRow("SASL, wrong password")
            << "alice3" << "SASL PLAIN" << "wrong-pass" << "alice"
            << "*** SASL login failed (SASL authentication failed); connecting without it." << false;
        QTest::newRow("NickServ") << "alice4" << "NickServ (/msg NickServ IDENTIFY)" << "s3cret-pass" << "alice"
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

        const QString text = longText();
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

    // InspIRCd with its stock flood limits: an empty real name registers, a
    // 2,000-character message arrives whole, and 30 pasted lines arrive in
    // order at the default pace without the server closing the link.
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

        const QString text = longText();
        session->sendMessage("#paste", text);
        QVERIFY(QTest::qWaitFor([&] { return messagesTo(peer, "paster", "#paste").join(' ') == text; }, kTimeout));

        // 30 lines of 300 characters: more than the server's receive queue
        // takes at once (8 KiB), so that sending them unpaced gets the link closed.
        QStringList pasted;
        for (int i = 1; i <= 30; ++i)
            pasted << QStringLiteral("line %1 of the paste ").arg(i).leftJustified(300, QLatin1Char('.'));
        const qsizetype before = messagesTo(peer, "paster", "#paste").size();
        session->sendMessage("#paste", pasted.join('\n'));
        QVERIFY(QTest::qWaitFor([&] { return messagesTo(peer, "paster", "#paste").size() >= before + 30; }, 90000));
        QCOMPARE(messagesTo(peer, "paster", "#paste").mid(before), pasted);
        QVERIFY(session->isConnected());
    }
};

QUENVAR_CORE_TEST_MAIN(TestE2eProtocol)
#include "tst_e2e_protocol.moc"
