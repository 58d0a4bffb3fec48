// The chat window against a real InspIRCd on loopback, with raw clients as
// the other users: connecting through the connect dialog, autojoin, reconnect
// and disconnect, channel events, private chat, WATCH, WHOIS, the channel list
// and the topic editor.

#include "CertificateDialog.h"
#include "ChannelListModel.h"
#include "ChatRows.h"
#include "ChatView.h"
#include "ConnectDialog.h"
#include "EditTopicDialog.h"
#include "IRCConnection.h"
#include "HighlightTabBar.h"
#include "InspircdServer.h"
#include "MainWindow.h"
#include "NetworkView.h"
#include "MemberListView.h"
#include "Session.h"
#include "ModalDriver.h"
#include "MyTabWidget.h"
#include "RawIrcClient.h"
#include "ServerStore.h"
#include "TestMain.h"

#include <QCheckBox>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QRegularExpression>
#include <QSettings>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>
#include <QTest>
#include <QTimer>
#include <QTextDocument>
#include <QTextEdit>

#include <memory>

namespace {

const int kTimeout = 10000;

} // namespace

class TestE2eClient : public QObject
{
    Q_OBJECT

private:
    std::unique_ptr<InspircdServer> m_server;
    std::unique_ptr<MainWindow> w;
    QList<RawIrcClient*> m_users;

    QString serverId() const { return ServerStore::serverId(m_server->host(), m_server->port()); }
    QLabel* status() const { return w->findChild<QLabel*>("connectionStatus"); }

    // Another user of the server; connectAs() registers it.
    RawIrcClient* user(const QString& nick)
    {
        m_users.append(new RawIrcClient(nick));
        return m_users.last();
    }

    // Opens the connect dialog as the user does, fills it in and presses
    // Connect (to the test server unless `server` is given); the other users
    // register meanwhile. True once all have.
    bool connectAs(const QString& nick, const QList<RawIrcClient*>& others = {},
        const QString& realName = QStringLiteral("Window User"), InspircdServer* server = nullptr)
    {
        server = server ? server : m_server.get();
        w->showConnectDialog();
        auto* dialog = w->findChild<ConnectDialog*>();
        if (!dialog || !dialog->isVisible())
            return false;
        const auto fill = [dialog](const char* field, const QString& text) {
            dialog->findChild<QLineEdit*>(QLatin1String(field))->setText(text);
        };
        fill("serverEdit", server->host());
        fill("portEdit", QString::number(server->port()));
        fill("nickEdit", nick);
        fill("realNameEdit", realName);
        fill("channelsEdit", QString());
        dialog->findChild<QCheckBox*>("sslCheck")->setChecked(false);
        dialog->onConnectClicked();
        return RawIrcClient::registerAll(others, server->host(), server->port())
            && QTest::qWaitFor(
                [this] { return w->session()->connection()->isConnected() && w->session()->connection()->isRegistered(); }, kTimeout);
    }

    // A tab's rows as "<sender> message", or only the message where the row
    // has no sender; the tab of the current network unless one is given.
    QStringList rows(const QString& tab, const NetworkView* network = nullptr) const
    {
        QStringList result;
        const ChatView* view = (network ? network : w->network())->tabs.value(tab).chatView;
        if (!view)
            return result;
        for (const QString& line : chatRows(view)) {
            const QStringList columns = line.split(QLatin1Char('\t'));
            if (columns.size() == 2) {
                result << columns.at(1);
            } else if (columns.size() >= 3) {
                const QString sender = columns.at(1).trimmed();
                const QString message = columns.mid(2).join(QLatin1Char('\t')).mid(1);
                result << (sender.isEmpty() ? message : QStringLiteral("<%1> %2").arg(sender, message));
            }
        }
        return result;
    }

    // Waits until tab shows row; tells what it shows instead otherwise.
    bool shows(const QString& tab, const QString& row, int timeoutMs = kTimeout, const NetworkView* network = nullptr) const
    {
        if (QTest::qWaitFor([&] { return rows(tab, network).contains(row); }, timeoutMs))
            return true;
        qWarning().noquote() << tab << "has no row" << row << "but:\n" << rows(tab, network).join(QLatin1Char('\n'));
        return false;
    }

    // Whether the member list shows this entry (with its symbol).
    bool listed(const QString& entry) const { return w->userList->rowOf(entry) >= 0; }

    void type(const QString& text)
    {
        w->inputLine->setText(text);
        w->onSendInput();
    }

    void switchTo(const QString& tab) { w->tabWidget->setCurrentWidget(w->network()->tabs.value(tab).widget); }

    // Joins channel from the window and waits for its member list.
    bool joinFromWindow(const QString& channel)
    {
        type(QStringLiteral("/join ") + channel);
        return QTest::qWaitFor([&] { return w->session()->hasMembers(channel); }, kTimeout)
            && w->network()->tabs.contains(channel);
    }

private slots:
    void initTestCase()
    {
        if (InspircdServer::executable().isEmpty())
            QSKIP("inspircd is not installed");
        m_server = std::make_unique<InspircdServer>();
        // Frequent server PINGs for the raw echo of the server tab.
        m_server->setPingFrequency(4);
        QVERIFY2(m_server->start(), qPrintable(m_server->errorString()));
    }

    void cleanupTestCase() { m_server.reset(); }

    void init()
    {
        QSettings().clear();
        w = std::make_unique<MainWindow>(nullptr, MainWindow::Startup::Quiet);
    }

    void cleanup()
    {
        w.reset();
        qDeleteAll(m_users);
        m_users.clear();
    }

    void startupOpensTheConnectDialogByItself()
    {
        MainWindow window;
        QTRY_VERIFY_WITH_TIMEOUT(window.findChild<ConnectDialog*>() != nullptr, kTimeout);
        auto* dialog = window.findChild<ConnectDialog*>();
        QVERIFY(dialog->isVisible());
        QVERIFY(!dialog->isModal());
        QVERIFY(dialog->testAttribute(Qt::WA_DeleteOnClose));
        // The quiet window opens none.
        QVERIFY(w->findChild<ConnectDialog*>() == nullptr);
    }

    void connectAutojoinReconnectAndDisconnect()
    {
        // A stored server whose autojoin list holds an entry without "#".
        QSettings().setValue("servers/customList", QStringList { serverId() });
        ServerConfig stored;
        stored.nickname = "dlgnick";
        stored.realName = "Dialog User";
        stored.autojoinChannels = { "#auto1", "linux" };
        ServerStore::saveServerConfig(serverId(), stored);
        QCOMPARE(status()->text(), "Disconnected");

        QVERIFY(connectAs("dlgnick"));
        QCOMPARE(w->session()->serverId(), serverId());
        QCOMPARE(w->session()->port(), m_server->port());
        QVERIFY(shows("Server", "*** Connected to server."));
        QCOMPARE(status()->text(), QStringLiteral("Connected to %1 as dlgnick").arg(m_server->host()));
        // The record was written back under the server's group.
        QCOMPARE(QSettings().value(QStringLiteral("servers/%1/address").arg(serverId())).toString(),
            QStringLiteral("%1:%2").arg(m_server->host()).arg(m_server->port()));
        // Only channel names are autojoined.
        QVERIFY(shows("#auto1", "<dlgnick> joined #auto1"));
        QVERIFY(rows("Server").contains("*** Autojoining #auto1"));
        QCOMPARE(rows("Server").filter("linux"), QStringList());
        QVERIFY(!w->network()->tabs.contains("linux") && !w->network()->tabs.contains("#linux"));
        QCOMPARE(w->session()->autojoinChannels(), stored.autojoinChannels);

        // /autojoin toggles a channel in the stored record.
        const QString storedList = QStringLiteral("servers/%1/autojoin").arg(serverId());
        type("/autojoin mychan");
        QVERIFY(shows("Server", "*** Added #mychan to autojoin list"));
        QCOMPARE(QSettings().value(storedList).toStringList(),
            stored.autojoinChannels + QStringList { "#mychan" });
        type("/autojoin #mychan");
        QVERIFY(shows("Server", "*** Removed #mychan from autojoin list"));
        QCOMPARE(QSettings().value(storedList).toStringList(), stored.autojoinChannels);

        // Reconnect: back to the same server and port under the same nick,
        // and into the autojoin channel again.
        w->onReconnectTriggered();
        QVERIFY(shows("Server", "*** Disconnected."));
        QTRY_COMPARE_WITH_TIMEOUT(rows("Server").count("*** Autojoining #auto1"), 2, kTimeout);
        QCOMPARE(rows("Server").count("*** Connected to server."), 2);
        QVERIFY(w->session()->connection()->isConnected() && w->session()->connection()->isRegistered());
        QCOMPARE(w->session()->connection()->getHost(), m_server->host());
        QCOMPARE(w->session()->port(), m_server->port());
        QCOMPARE(w->session()->connection()->currentNick(), "dlgnick");

        // Disconnecting keeps the tabs and ends the session's state.
        type("/msg nobodyhere hello");
        QVERIFY(w->session()->watchedNicks().contains("nobodyhere"));
        switchTo("#auto1");
        QTRY_VERIFY_WITH_TIMEOUT(w->userList->count() > 0, kTimeout);
        type("/away brb");
        QVERIFY(w->session()->isAway());
        w->onDisconnectTriggered();
        QTRY_COMPARE_WITH_TIMEOUT(rows("Server").count("*** Disconnected."), 2, kTimeout);
        QVERIFY(!w->session()->connection()->isConnected());
        QVERIFY(w->network()->tabs.contains("#auto1"));
        QVERIFY(w->session()->hasMembers("#auto1"));
        QCOMPARE(w->userList->count(), 0);
        QVERIFY(!w->session()->isAway());
        QVERIFY(w->session()->awayMessage().isEmpty());
        QVERIFY(w->session()->watchedNicks().isEmpty());
        QCOMPARE(status()->text(), "Disconnected");

        // The user's Disconnect never reconnects by itself; Reconnect does,
        // and the open channels are joined again.
        QTest::qWait(1200);
        QVERIFY(!w->session()->connection()->isConnected());
        w->onReconnectTriggered();
        QVERIFY(shows("#auto1", "*** Reconnected"));
        QVERIFY(QTest::qWaitFor([this] { return w->session()->isJoined("#auto1"); }, kTimeout));
        w->onDisconnectTriggered();
        QVERIFY(QTest::qWaitFor([this] { return !w->session()->isConnected(); }, kTimeout));
    }

    void channelEventsAndRawEcho()
    {
        RawIrcClient* bob = user("bob");
        RawIrcClient* carl = user("carl");
        QVERIFY(connectAs("winuser", { bob, carl }));
        QVERIFY(joinFromWindow("#ev"));
        QCOMPARE(w->currentTabName, "#ev");
        QVERIFY(shows("#ev", "<winuser> joined #ev"));
        // The channel's creator is its operator.
        QVERIFY(w->session()->members("#ev").contains("@winuser"));

        QVERIFY(bob->join("#ev"));
        QVERIFY(shows("#ev", "<bob> joined #ev"));
        QVERIFY(listed("bob"));
        QVERIFY(w->nickCompletionWords().contains("bob"));

        bob->sendLine("PART #ev :see you");
        QVERIFY(shows("#ev", "<bob> left #ev (see you)"));
        QVERIFY(!listed("bob"));
        QVERIFY(!w->session()->members("#ev").contains("bob"));
        QVERIFY(!w->nickCompletionWords().contains("bob"));

        QVERIFY(bob->join("#ev"));
        QTRY_VERIFY_WITH_TIMEOUT(listed("bob"), kTimeout);
        bob->sendLine("NICK bobby");
        QVERIFY(shows("#ev", "<bob> is now known as bobby"));
        QVERIFY(listed("bobby"));
        QVERIFY(!listed("bob"));
        QVERIFY(w->session()->members("#ev").contains("bobby"));

        QVERIFY(bob->quit("gone home"));
        // The server puts "Quit: " in front of the reason.
        QVERIFY(shows("#ev", "<bobby> quit (Quit: gone home)"));
        QVERIFY(!listed("bobby"));
        QVERIFY(!w->session()->members("#ev").contains("bobby"));

        // The window's operator kicks carl.
        QVERIFY(carl->join("#ev"));
        QTRY_VERIFY_WITH_TIMEOUT(listed("carl"), kTimeout);
        type("/raw KICK #ev carl :out you go");
        QVERIFY(shows("#ev", "<carl> was kicked by winuser (out you go)"));
        QVERIFY(!listed("carl"));

        // The user's own nick changes once the server confirms it.
        type("/nick newme");
        QCOMPARE(w->session()->pendingNick(), "newme");
        QVERIFY(shows("#ev", "<winuser> is now known as newme"));
        QCOMPARE(w->session()->connection()->currentNick(), "newme");
        QVERIFY(w->session()->pendingNick().isEmpty());
        QVERIFY(listed("@newme"));
        QCOMPARE(status()->text(), QStringLiteral("Connected to %1 as newme").arg(m_server->host()));

        // In carl's channel the user is kicked: the tab stays, its members go.
        QVERIFY(carl->join("#carls"));
        QVERIFY(joinFromWindow("#carls"));
        switchTo("#carls");
        QVERIFY(listed("@carl"));
        carl->sendLine("KICK #carls newme :bye");
        QVERIFY(shows("#carls", "*** You were kicked from #carls by carl (bye)"));
        QCOMPARE(w->userList->count(), 0);
        QVERIFY(w->network()->tabs.contains("#carls"));

        // The server tab reads as text, not protocol: replies once each, no
        // raw lines, not the server's PINGs.
        QTest::qWait(5000);
        QCOMPARE(rows("Server").filter("Your host is irc.test").size(), 1);
        QCOMPARE(rows("Server").filter(QRegularExpression("^(<< |:\\S+ |PING)")), QStringList());
    }

    // Another user's notices, CTCP, actions, topic and mode changes as the
    // window shows them, then the user's own part, rejoin and kick: one step a
    // row, each with the line dave sends (or the user types) and the row the
    // tab shows.
    void noticesTopicsModesPartAndKick()
    {
        RawIrcClient* dave = user("dave");
        QVERIFY(connectAs("ircme", { dave }));
        QVERIFY(dave->join("#t18"));
        QVERIFY(joinFromWindow("#t18"));
        QVERIFY(QTest::qWaitFor([&] { return w->session()->members("#t18").size() == 2; }, kTimeout));
        const auto editable = [this] { return w->network()->tabs.value("#t18").editTopicBtn->isVisibleTo(w.get()); };
        const auto dimmed = [this] { return w->tabBar->isTabDimmed(w->tabWidget->indexOf(w->network()->tabs.value("#t18").widget)); };
        struct Step
        {
            QString line; // from dave, or typed when it starts with "/"
            QString tab;
            QString row;
        };
        const QList<Step> steps {
            { "NOTICE ircme :psst", "#t18", "-dave- psst" }, // no conversation open: the current tab
            { "NOTICE #t18 :to all", "#t18", "-dave- to all" },
            { "PRIVMSG ircme :\x01VERSION\x01", "Server", "*** CTCP VERSION from dave" },
            { "PRIVMSG #t18 :\x01" "ACTION waves\x01", "#t18", "<*> dave waves" },
            { "PRIVMSG #t18 :\x02" "bold\x02 \x03" "04red\x03 \x1Fplain", "#t18", "<dave> bold red plain" },
            { "PRIVMSG #t18 :left \u202Eright", "#t18", "<dave> left \u202Eright" },
            { "TOPIC #t18 :a new topic", "#t18", "<dave> changed the topic to a new topic" },
            { "MODE #t18 +o ircme", "#t18", "<dave> gives channel operator status to ircme" },
            { "MODE #t18 +v-o ircme ircme", "#t18", "<dave> removes channel operator status from ircme" },
            { "/part", "#t18", "*** You have left #t18" },
            { "/join #t18", "#t18", "<ircme> joined #t18" },
            { "KICK #t18 ircme :behave", "#t18", "*** You were kicked from #t18 by dave (behave)" },
            { "/msg #t18 still here?", "#t18", "*** #t18: You cannot send external messages to this channel whilst the +n (noextmsg) mode is set." },
        };
        for (const Step& step : steps) {
            if (step.line.startsWith(QLatin1Char('/')))
                type(step.line);
            else
                dave->sendLine(step.line);
            QVERIFY2(shows(step.tab, step.row), qPrintable(step.line));
            if (step.line.startsWith("TOPIC"))
                QVERIFY(w->network()->tabs.value("#t18").topicLabel->text().contains("a new topic"));
            if (step.line == "MODE #t18 +o ircme")
                QVERIFY(QTest::qWaitFor([&] { return listed("@ircme") && editable(); }, kTimeout));
            if (step.line.startsWith("MODE #t18 +v"))
                QVERIFY(QTest::qWaitFor([&] { return listed("+ircme") && !editable(); }, kTimeout));
            if (step.line == "/part" || step.line.startsWith("KICK"))
                QVERIFY(QTest::qWaitFor([&] { return w->userList->count() == 0 && dimmed(); }, kTimeout));
            if (step.line.startsWith("/join"))
                QVERIFY(QTest::qWaitFor([&] { return listed("@dave") && !dimmed(); }, kTimeout));
        }
        QVERIFY(!dave->waitForLine("NOTICE dave :\x01VERSION Quenvar 2.0\x01").isEmpty());
        QVERIFY(w->network()->tabs.contains("#t18"));
    }

    // Typed commands as another user on the server sees them: one row a
    // command, the line typed in #cmd and the line that reaches peer.
    void commandsOnTheWire()
    {
        RawIrcClient* peer = user("cmdpeer");
        QVERIFY(connectAs("cmduser", { peer }));
        QVERIFY(joinFromWindow("#cmd2"));
        QVERIFY(joinFromWindow("#cmd"));
        QVERIFY(peer->join("#cmd") && peer->join("#cmd2"));
        switchTo("#cmd");
        const QList<std::pair<QString, QString>> steps {
            { "/me waves", "PRIVMSG #cmd :\x01" "ACTION waves\x01$" },
            { "/notice cmdpeer psst", "NOTICE cmdpeer :psst$" },
            { "/ctcp cmdpeer VERSION", "PRIVMSG cmdpeer :\x01VERSION\x01$" },
            { "/topic fresh words", "TOPIC #cmd :fresh words$" },
            { "/op cmdpeer", "MODE #cmd \\+o :?cmdpeer$" },
            { "/mode +m", "MODE #cmd :?\\+m$" },
            { "/part #cmd2 bye now", "PART #cmd2 :bye now$" }, // the named channel, not the current one
            { "/kick cmdpeer out", "KICK #cmd cmdpeer :out$" },
        };
        for (const auto& [typed, seen] : steps) {
            type(typed);
            QVERIFY2(!peer->waitForLine("^(@\\S+ )?:cmduser!\\S+ " + seen).isEmpty(), qPrintable(typed));
        }
        QVERIFY(w->session()->isJoined("#cmd") && !w->session()->isJoined("#cmd2"));
    }

    // TLS with the server's self-signed certificate: the dialog's three
    // answers, a pinned certificate taken silently, another one refused, and
    // the preference that takes any certificate with a warning.
    void certificateTrust()
    {
        const QString fingerprint = IRCConnection::fingerprintOf(m_server->certificate());
        const QString id = ServerStore::serverId(m_server->host(), m_server->tlsPort());
        Session* session = w->session();
        const auto connectTls = [&](const QString& pinned) {
            ServerConfig config;
            config.nickname = QStringLiteral("tlsme");
            config.useSsl = true;
            config.certFingerprint = pinned;
            session->connectTo(m_server->host(), m_server->tlsPort(), config);
        };
        const auto leave = [&] {
            session->disconnectFromServer();
            return QTest::qWaitFor([&] { return !session->isConnected(); }, kTimeout);
        };
        struct Answer
        {
            const char* button;
            bool connects;
            bool pinned;
        };
        for (const Answer& answer : { Answer { "cancelButton", false, false }, Answer { "connectButton", true, false },
                 Answer { "alwaysTrustButton", true, true } }) {
            connectTls(QString());
            QVERIFY(QTest::qWaitFor([&] { return w->findChild<CertificateDialog*>() != nullptr; }, kTimeout));
            auto* dialog = w->findChild<CertificateDialog*>();
            QCOMPARE(dialog->findChild<QLabel*>("fingerprint")->text(), fingerprint);
            QVERIFY(dialog->findChild<QPushButton*>("cancelButton")->isDefault());
            dialog->findChild<QPushButton*>(answer.button)->click();
            QVERIFY(QTest::qWaitFor([&] { return session->isRegistered() && session->isConnected(); }, answer.connects ? kTimeout : 1500)
                == answer.connects);
            QCOMPARE(QSettings().value("servers/" + id + "/certfingerprint").toString(), answer.pinned ? fingerprint : QString());
            QVERIFY(leave());
        }
        // Pinned: no question. Another pin: refused, naming both.
        connectTls(fingerprint);
        QVERIFY(QTest::qWaitFor([&] { return session->isRegistered() && session->isConnected(); }, kTimeout));
        QVERIFY(!w->findChild<CertificateDialog*>());
        QVERIFY(leave());
        connectTls(QStringLiteral("00:11"));
        QVERIFY(shows("Server", QStringLiteral("*** Refused: the server presented another certificate than the one trusted "
                                               "for it (trusted 00:11, presented %1). If the server changed its "
                                               "certificate, remove the trust and connect again.").arg(fingerprint)));
        QVERIFY(!session->isConnected() && !w->findChild<CertificateDialog*>());
        // Any certificate, with a warning, as the preference says.
        session->setAcceptInvalidCertificates(true);
        connectTls(QString());
        QVERIFY(QTest::qWaitFor([&] { return session->isRegistered() && session->isConnected(); }, kTimeout));
        QVERIFY(!rows("Server").filter("*** Warning: the server's certificate is not trusted").isEmpty());
        session->setAcceptInvalidCertificates(false);
        QVERIFY(leave());
    }

    void mentionWhoisPrivateChatAndWatch()
    {
        RawIrcClient* erin = user("erin");
        QVERIFY(connectAs("privme", { erin }));
        QVERIFY(erin->join("#who"));
        erin->sendLine("AWAY :at lunch");
        QVERIFY(erin->sync());
        QVERIFY(joinFromWindow("#who"));
        QVERIFY(joinFromWindow("#quiet"));

        // A mention marks its tab when another one is current.
        switchTo("#quiet");
        erin->sendLine("PRIVMSG #who :hello there");
        erin->sendLine("PRIVMSG #who :privme: look at this");
        QVERIFY(shows("#who", "<erin> privme: look at this"));
        QVERIFY(rows("#who").contains("<erin> hello there"));
        QVERIFY(w->network()->tabs.value("#who").highlighted);
        QVERIFY(!w->network()->tabs.value("#quiet").highlighted);

        // The WHOIS summary goes to the tab it was asked from, the away line last.
        switchTo("#who");
        type("/w erin");
        QVERIFY(shows("#who", "*** erin is away: at lunch"));
        QStringList summary = rows("#who").mid(rows("#who").size() - 5);
        // The sign-on time arrives as seconds and is shown as a local date.
        const QString idle = summary.takeAt(2);
        const QRegularExpression idleLine(QStringLiteral(
            "^\\*\\*\\* erin idle \\d+s, signed on \\d{4}-\\d\\d-\\d\\dT\\d\\d:\\d\\d:\\d\\d$"));
        QVERIFY2(idleLine.match(idle).hasMatch(), qPrintable(idle));
        QCOMPARE(summary,
            (QStringList { "*** WHOIS erin: erin@127.0.0.1 (erin)",
                "*** erin is using irc.test (Quenvar test server)", "*** erin on channels: @#who",
                "*** erin is away: at lunch" }));
        QVERIFY(!w->session()->isGatheringWhois());
        QCOMPARE(rows("Server").filter("*** WHOIS"), QStringList());

        // A private message opens a tab named after the sender; answers from
        // that tab and /msg reach her.
        erin->sendLine("PRIVMSG privme :psst, hello");
        QVERIFY(shows("erin", "<erin> psst, hello"));
        QVERIFY(w->session()->watchedNicks().contains("erin"));
        switchTo("erin");
        type("hi erin");
        QVERIFY(!erin->waitForLine("^:privme!\\S+ PRIVMSG erin :hi erin$").isEmpty());
        QVERIFY(rows("erin").contains("<privme> hi erin"));
        type("/msg erin two  spaces");
        QVERIFY(!erin->waitForLine("^:privme!\\S+ PRIVMSG erin :two  spaces$").isEmpty());
        QVERIFY(rows("erin").contains("<privme> two  spaces"));

        // WATCH reports in the private tab when she leaves and comes back.
        QVERIFY(erin->quit("later"));
        QVERIFY(shows("erin", "<erin> quit (WATCH)"));
        QVERIFY(RawIrcClient::registerAll({ user("erin") }, m_server->host(), m_server->port()));
        QVERIFY(shows("erin", "<erin> is back online"));
    }

    void channelListFromTheServer()
    {
        RawIrcClient* ivy = user("ivy");
        QVERIFY(connectAs("lister", { ivy }));
        QVERIFY(ivy->join("#listed-one"));
        QVERIFY(ivy->join("#Listed-Two"));
        ivy->sendLine("TOPIC #listed-one :Online games");
        QVERIFY(ivy->sync());
        QVERIFY(joinFromWindow("#listed-one"));

        type("/list");
        QCOMPARE(w->currentTabName, "List");
        QVERIFY(shows("Server", "*** Channel list complete."));
        ChannelListModel* model = w->network()->channelListModel;
        QVERIFY(model->rowCount() >= 2);
        // Largest first: #listed-one has two members.
        QCOMPARE(model->channelAt(0).name, "#listed-one");
        QCOMPARE(model->channelAt(0).users, "2");
        QCOMPARE(model->channelAt(0).topic, "Online games");
        int users = 0;
        for (int row = 0; row < model->rowCount(); ++row)
            users += model->channelAt(row).userCount;
        QCOMPARE(w->network()->listInfoLabel->text(),
            QStringLiteral("irc.test: %1 channels, %2 users").arg(model->rowCount()).arg(users));
    }

    void operatorEditsTheTopic()
    {
        RawIrcClient* jack = user("jack");
        QVERIFY(connectAs("topper", { jack }));
        // The channel's creator is its operator.
        QVERIFY(joinFromWindow("#topic"));
        QTRY_VERIFY_WITH_TIMEOUT(w->session()->isOperator("#topic"), kTimeout);
        QVERIFY(!w->network()->tabs.value("#topic").editTopicBtn->isHidden());
        QVERIFY(jack->join("#topic"));
        jack->skipReceived();

        ModalDriver::onModal<EditTopicDialog>([](EditTopicDialog* editor) {
            editor->findChild<QTextEdit*>()->setPlainText("  \002fresh\002 topic  ");
            editor->accept();
        });
        w->editTopic("#topic");
        QVERIFY(!jack->waitForLine(" TOPIC #topic :\002fresh\002 topic$").isEmpty());
        QVERIFY(w->network()->tabs.value("#topic").topicLabel->text().contains("<b>fresh</b>"));

        // Losing the status hides the button once the member list says so.
        type("/raw MODE #topic +o jack");
        QVERIFY(!jack->waitForLine(" MODE #topic \\+o :?jack$").isEmpty());
        jack->sendLine("MODE #topic -o topper");
        QVERIFY(jack->sync());
        type("/raw NAMES #topic");
        QTRY_VERIFY_WITH_TIMEOUT(!w->session()->isOperator("#topic"), kTimeout);
        QVERIFY(w->network()->tabs.value("#topic").editTopicBtn->isHidden());
    }

    // Two servers at once, each with a #same: rows and typed lines stay on
    // their own network, the labels tell the networks apart, Ctrl+Tab walks
    // through both, both come back at the next start, and closing one
    // leaves the other working.
    void twoNetworksAtOnce()
    {
        InspircdServer other;
        other.setNetworkName(QStringLiteral("OtherNet"));
        QVERIFY2(other.start(), qPrintable(other.errorString()));
        RawIrcClient* ann = user("ann");
        RawIrcClient* bea = user("bea");
        QVERIFY(connectAs("onenick", { ann }));
        QVERIFY(joinFromWindow("#same"));
        type("/autojoin #same");
        NetworkView* one = w->network();
        QCOMPARE(w->tabWidget->tabText(0), "Server");
        QVERIFY(connectAs("twonick", { bea }, "Window User", &other));
        NetworkView* two = w->network();
        QCOMPARE(w->networks(), (QList<NetworkView*> { one, two }));
        QVERIFY(joinFromWindow("#same"));
        type("/autojoin #same");
        const auto labels = [this] {
            QStringList texts;
            for (int i = 0; i < w->tabWidget->count(); ++i)
                texts << w->tabWidget->tabText(i);
            return texts;
        };
        const QStringList both { "QuenvarTest", "#same [QuenvarTest]", "OtherNet", "#same [OtherNet]" };
        QTRY_COMPARE_WITH_TIMEOUT(labels(), both, kTimeout);
        QCOMPARE(status()->text(), "Connected to OtherNet (127.0.0.1) as twonick");

        // Rows and commands stay on their network. A tab opened later joins
        // its network's group, and the marks of the tabs after it move along.
        QVERIFY(ann->join("#same") && bea->join("#same"));
        type("/me waves");
        QVERIFY(!bea->waitForLine("^:twonick!\\S+ PRIVMSG #same :\x01" "ACTION waves\x01$").isEmpty());
        one->showTab("#same");
        QCOMPARE(status()->text(), "Connected to QuenvarTest (127.0.0.1) as onenick");
        type("hello one");
        QVERIFY(!ann->waitForLine("^:onenick!\\S+ PRIVMSG #same :hello one$").isEmpty());
        ann->sendLine("PRIVMSG #same :from one");
        bea->sendLine("PRIVMSG #same :twonick: from two");
        QVERIFY(shows("#same", "<ann> from one", kTimeout, one) && shows("#same", "<bea> twonick: from two", kTimeout, two));
        ann->sendLine("PRIVMSG onenick :psst");
        QVERIFY(shows("ann", "<ann> psst", kTimeout, one));
        QCOMPARE(labels(), (QStringList { "QuenvarTest", "#same [QuenvarTest]", "ann", "OtherNet", "#same [OtherNet]" }));
        QVERIFY(w->tabBar->isHighlighted(2) && !w->tabBar->isHighlighted(3) && w->tabBar->isHighlighted(4));
        QVERIFY(!rows("#same", one).join('\n').contains("from two") && !rows("#same", two).join('\n').contains("from one"));
        QVERIFY(ann->sync() && bea->sync());
        QVERIFY(ann->linesMatching(QRegularExpression("waves")).isEmpty());
        QVERIFY(bea->linesMatching(QRegularExpression("hello one")).isEmpty());

        w->show();
        w->activateWindow();
        QVERIFY(QTest::qWaitForWindowActive(w.get()));
        w->tabWidget->setCurrentIndex(0);
        QStringList visited;
        for (int i = 0; i < w->tabWidget->count(); ++i) {
            QTest::keySequence(w.get(), QKeySequence(Qt::CTRL | Qt::Key_Tab));
            visited << w->tabWidget->tabText(w->tabWidget->currentIndex());
        }
        QCOMPARE(visited, labels().mid(1) + labels().mid(0, 1));
        QTest::keySequence(w.get(), QKeySequence(Qt::CTRL | Qt::Key_PageUp));
        QCOMPARE(w->tabWidget->currentIndex(), w->tabWidget->count() - 1);

        // The next start connects both again, into their autojoin channel.
        w.reset();
        w = std::make_unique<MainWindow>();
        QVERIFY(QTest::qWaitFor([this] {
            return w->networks().size() == 2 && w->networks().at(0)->session()->isJoined("#same")
                && w->networks().at(1)->session()->isJoined("#same");
        }, kTimeout));
        QVERIFY(!w->findChild<ConnectDialog*>());
        one = w->networks().at(0);
        two = w->networks().at(1);
        QCOMPARE(two->session()->port(), other.port());
        QTRY_COMPARE_WITH_TIMEOUT(labels(), both, kTimeout);

        // Closing a server tab asks; then that network quits and its tabs go.
        const auto refused = ModalDriver::onMessageBox("Close network", QMessageBox::No);
        w->closeTab(0);
        QCOMPARE(w->networks().size(), 2);
        ann->skipReceived();
        const auto accepted = ModalDriver::onMessageBox("Close network", QMessageBox::Yes);
        w->closeTab(0);
        QCOMPARE(w->networks(), QList<NetworkView*> { two });
        QVERIFY(!ann->waitForLine(" QUIT :").isEmpty());
        QCOMPARE(labels(), (QStringList { "Server", "#same" }));
        QCOMPARE(status()->text(), "Connected to 127.0.0.1 as twonick");
        type("/msg #same still here");
        QVERIFY(!bea->waitForLine("PRIVMSG #same :still here$").isEmpty());
        bea->sendLine("PRIVMSG #same :after");
        QVERIFY(shows("#same", "<bea> after", kTimeout, two));
    }

    // 300 new senders at once: 50 conversations open, the other first
    // messages are listed in the server tab; the window keeps answering and
    // its memory stays bounded.
    void privateMessageFlood()
    {
        QList<RawIrcClient*> senders;
        for (int i = 0; i < 300; ++i)
            senders << user(QStringLiteral("flood%1").arg(i));
        QVERIFY(connectAs("floodme", senders));
        const auto rssKb = [] {
            QFile status(QStringLiteral("/proc/self/status"));
            if (!status.open(QIODevice::ReadOnly))
                return 0L;
            const QByteArray text = status.readAll();
            const qsizetype at = text.indexOf("VmRSS:");
            return at < 0 ? 0L : text.mid(at + 6, text.indexOf('\n', at) - at - 6).trimmed().split(' ').value(0).toLong();
        };
        const long rssBefore = rssKb();
        QElapsedTimer sinceTick;
        qint64 longestGap = 0;
        QTimer ticker;
        connect(&ticker, &QTimer::timeout, this, [&] { longestGap = qMax(longestGap, sinceTick.restart()); });
        ticker.start(10);
        sinceTick.start();

        for (RawIrcClient* sender : std::as_const(senders))
            sender->sendLine(QStringLiteral("PRIVMSG floodme :are you there?"));
        QVERIFY(QTest::qWaitFor(
            [&] { return rows("Server").filter(QStringLiteral("> are you there?")).size() == 250; }, 60000));
        ticker.stop();
        int queries = 0;
        for (auto it = w->network()->tabs.cbegin(); it != w->network()->tabs.cend(); ++it)
            queries += it.key().startsWith(QLatin1String("flood")) ? 1 : 0;
        QCOMPARE(queries, Session::QueryBurstLimit);
        QCOMPARE(rows("Server").filter(QStringLiteral("*** Many new private conversations")).size(), 1);
        QVERIFY2(longestGap < 2000, qPrintable(QString::number(longestGap)));
        const long grown = rssKb() - rssBefore;
#ifndef __SANITIZE_ADDRESS__
        QVERIFY2(grown < 100 * 1024, qPrintable(QString::number(grown)));
#else
        Q_UNUSED(grown); // AddressSanitizer keeps freed memory in quarantine: no bound there
#endif
    }

    // With logging on: what the log files hold after a session, the backlog
    // a reopened conversation starts with, a log folder that cannot be
    // written, and finding in a long scrollback.
    void logsBacklogAndFind()
    {
        QTemporaryDir logs;
        QSettings settings;
        settings.setValue("logEnabled", true);
        settings.setValue("logPath", logs.path());
        settings.setValue("backlogLines", 2);
        settings.sync();
        w = std::make_unique<MainWindow>(nullptr, MainWindow::Startup::Quiet);
        RawIrcClient* bob = user("bob");
        QVERIFY(connectAs("logme", { bob }));
        QVERIFY(joinFromWindow("#Logs"));
        QVERIFY(bob->join("#logs"));
        bob->sendLine("PRIVMSG #logs :\x02hello\x02 \x03" "04there");
        bob->sendLine("PRIVMSG #logs :\x01" "ACTION waves\x01");
        type("/topic a topic");
        QVERIFY(shows("#Logs", "<logme> changed the topic to a topic"));
        bob->sendLine("PRIVMSG logme :psst");
        QVERIFY(shows("bob", "<bob> is back online"));
        type("/msg bob back");
        bob->sendLine("PART #logs :bye");
        QVERIFY(shows("#Logs", "<bob> left #Logs (bye)"));
        QVERIFY(w->network()->tabs.contains("bob"));

        w->session()->flushLog();
        const QRegularExpression stamp("^\\d{4}-\\d\\d-\\d\\dT\\d\\d:\\d\\d:\\d\\d([+-]\\d\\d:\\d\\d|Z) ");
        const auto logged = [&](const QString& buffer) {
            QFile file(w->session()->logFile(buffer));
            QStringList texts;
            if (!file.open(QIODevice::ReadOnly))
                return QStringList { "cannot open " + file.fileName() };
            for (const QString& row : QString::fromUtf8(file.readAll()).split('\n', Qt::SkipEmptyParts))
                texts << (stamp.match(row).hasMatch() ? row.mid(stamp.match(row).capturedLength()) : "no time: " + row);
            return texts;
        };
        // Each network in its own folder, each buffer in a file named by its folded name.
        QCOMPARE(QFileInfo(w->session()->logFile("#Logs")).fileName(), "#logs.log");
        QVERIFY(w->session()->logFile("#Logs").startsWith(w->session()->logFolder() + "/"));
        QCOMPARE(logged("#Logs"),
            (QStringList { "* logme joined #Logs", "* bob joined #Logs", "<bob> hello there", "* bob waves",
                "* logme changed the topic to a topic", "* bob left #Logs (bye)" }));
        QCOMPARE(logged("bob"), (QStringList { "<bob> psst", "* bob is back online", "<logme> back" }));

        // Reopened, the conversation starts with its last rows, greyed, and a separator.
        w->closeTab(w->tabWidget->indexOf(w->network()->tabs.value("bob").widget));
        bob->sendLine("PRIVMSG logme :again");
        QVERIFY(shows("bob", "<bob> again"));
        const ChatView* view = w->network()->tabs.value("bob").chatView;
        QCOMPARE(rows("bob").mid(0, 2), (QStringList { "<*> bob is back online", "<logme> back" }));
        QCOMPARE(view->row(0).flags & BufferLine::Backlog, BufferLine::Backlog);
        QCOMPARE(view->row(2).flags & BufferLine::Separator, BufferLine::Separator);
        QCOMPARE(view->row(3).flags & (BufferLine::Backlog | BufferLine::Separator), 0);

        // Find over a long scrollback: Ctrl+F, the newest match first, Enter older, Escape closes.
        for (int i = 0; i < 400; ++i)
            bob->sendLine(QStringLiteral("PRIVMSG logme :line %1%2").arg(i).arg(i % 100 == 7 ? " Needle" : ""));
        QVERIFY(shows("bob", "<bob> line 399", 30000));
        switchTo("bob");
        w->show();
        QVERIFY(QTest::qWaitForWindowExposed(w.get()));
        QTest::keyClick(w.get(), Qt::Key_F, Qt::ControlModifier);
        auto* find = w->network()->tabs.value("bob").widget->findChild<QLineEdit*>("findEdit");
        QVERIFY(find && find->isVisible() && find->hasFocus());
        QTest::keyClicks(find, "nEEDLE");
        auto* count = w->network()->tabs.value("bob").widget->findChild<QLabel*>("findCount");
        QCOMPARE(count->text(), "4 of 4");
        QCOMPARE(view->rowText(view->currentMatchRow()).section('\t', -1).trimmed(), "line 307 Needle");
        QTest::keyClick(find, Qt::Key_Return);
        QCOMPARE(view->rowText(view->currentMatchRow()).section('\t', -1).trimmed(), "line 207 Needle");
        QVERIFY(view->firstVisibleRow() <= view->currentMatchRow());
        QTest::keyClick(find, Qt::Key_Return, Qt::ShiftModifier);
        QTest::keyClick(find, Qt::Key_Return, Qt::ShiftModifier);
        QCOMPARE(count->text(), "1 of 4"); // wrapped round to the oldest
        QTest::keyClick(find, Qt::Key_Escape);
        QVERIFY(!find->isVisible());
        QVERIFY(w->inputLine->hasFocus());
        QCOMPARE(view->matchCount(), 0);

        // A log folder that cannot be written: said once, the chat goes on.
        QTemporaryDir readOnly;
        QFile occupied(readOnly.filePath(QFileInfo(w->session()->logFolder()).fileName()));
        QVERIFY(occupied.open(QIODevice::WriteOnly));
        occupied.close();
        QFile::setPermissions(readOnly.path(), QFile::ReadOwner | QFile::ExeOwner);
        settings.setValue("logPath", readOnly.path());
        w->loadPreferences();
        bob->sendLine("PRIVMSG logme :one");
        QVERIFY(shows("bob", "<bob> one"));
        w->session()->flushLog();
        bob->sendLine("PRIVMSG logme :two");
        QVERIFY(shows("bob", "<bob> two"));
        w->session()->flushLog();
        // Once per file (this conversation's and the server tab's).
        QCOMPARE(rows("Server").filter(QRegularExpression("^\\*\\*\\* Logging to " + QRegularExpression::escape(readOnly.path()) + "/.*/bob.log stopped: ")).size(), 1);
        QFile::setPermissions(readOnly.path(), QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    }

    // Without a real name the window still registers; a message longer than
    // a server line arrives whole, in pieces cut at spaces.
    void longMessageWithoutRealName()
    {
        RawIrcClient* gina = user("gina");
        QVERIFY(connectAs("longme", { gina }, QString()));
        QVERIFY(gina->join("#long"));
        QVERIFY(joinFromWindow("#long"));
        QStringList words;
        for (int i = 0; i < 360; ++i)
            words << QStringLiteral("w%1rd").arg(i);
        const QString text = words.join(QLatin1Char(' '));
        QVERIFY(text.size() > 2000);
        type(text);
        QStringList pieces;
        while (pieces.join(QLatin1Char(' ')).size() < text.size()) {
            const QString line = gina->waitForLine(QStringLiteral("PRIVMSG #long :"));
            QVERIFY2(!line.isEmpty(), qPrintable(pieces.join(QLatin1Char('|'))));
            QVERIFY(line.toUtf8().size() <= 510);
            pieces << line.section(QStringLiteral(" :"), 1);
        }
        QVERIFY(pieces.size() >= 5);
        QCOMPARE(pieces.join(QLatin1Char(' ')), text);
        QVERIFY(w->session()->connection()->isConnected());
    }
};

QUENVAR_TEST_MAIN(TestE2eClient)
#include "tst_e2e_client.moc"
