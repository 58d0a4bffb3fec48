// The chat window against a real InspIRCd on loopback, with raw clients as
// the other users: connecting through the connect dialog, autojoin, reconnect
// and disconnect, a channel's life, private chat, WATCH, WHOIS, TLS trust,
// the channel list, two networks, logs and find.
// (Reconnecting after a drop and long or pasted messages at the default pace
// are checked at the session level in tests/e2e/protocol.)

#include "CertificateDialog.h"
#include "ChannelListModel.h"
#include "ChatRows.h"
#include "ChatView.h"
#include "ConnectDialog.h"
#include "HighlightTabBar.h"
#include "IRCConnection.h"
#include "InspircdServer.h"
#include "MainWindow.h"
#include "MemberListView.h"
#include "ModalDriver.h"
#include "MyTabWidget.h"
#include "NetworkView.h"
#include "RawIrcClient.h"
#include "ServerStore.h"
#include "Session.h"
#include "TestMain.h"

#include <QCheckBox>
#include <QFile>
#include <QFileInfo>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QRegularExpression>
#include <QSettings>
#include <QTemporaryDir>
#include <QTest>

#include <functional>
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
    QString status() const { return w->findChild<QLabel*>("connectionStatus")->text(); }
    bool connected() const { return w->session()->isConnected() && w->session()->isRegistered(); }

    // Another user of the server; connectAs() registers it.
    RawIrcClient* user(const QString& nick) { return m_users.emplaceBack(new RawIrcClient(nick)); }

    // Fills in the connect dialog as the user does and presses Connect (to
    // the test server unless `server` is given); the other users register
    // meanwhile. True once all have.
    bool connectAs(const QString& nick, const QList<RawIrcClient*>& others = {},
        const QString& realName = QStringLiteral("Window User"), InspircdServer* server = nullptr)
    {
        server = server ? server : m_server.get();
        w->showConnectDialog();
        auto* dialog = w->findChild<ConnectDialog*>();
        if (!dialog || !dialog->isVisible())
            return false;
        for (const auto& [field, text] : { std::pair<const char*, QString> { "serverEdit", server->host() },
                 { "portEdit", QString::number(server->port()) }, { "nickEdit", nick }, { "realNameEdit", realName },
                 { "channelsEdit", QString() } })
            dialog->findChild<QLineEdit*>(field)->setText(text);
        dialog->findChild<QCheckBox*>("sslCheck")->setChecked(false);
        dialog->onConnectClicked();
        return RawIrcClient::registerAll(others, server->host(), server->port())
            && QTest::qWaitFor([this] { return connected(); }, kTimeout);
    }

    // A tab's rows as "<sender> message", or only the message where the row
    // has no sender; the tab of the current network unless one is given.
    QStringList rows(const QString& tab, const NetworkView* network = nullptr) const
    {
        QStringList result;
        for (const QString& line : chatRows((network ? network : w->network())->tabs.value(tab).chatView)) {
            const QStringList columns = line.split(QLatin1Char('\t'));
            const QString sender = columns.value(1).trimmed();
            const QString message = columns.mid(2).join(QLatin1Char('\t')).mid(1);
            result << (columns.size() == 2 ? columns.at(1) : sender.isEmpty() ? message : "<" + sender + "> " + message);
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
        m_server = std::make_unique<InspircdServer>();
        m_server->setPingFrequency(4); // frequent PINGs, which the server tab must not echo
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

    // At start the window opens the connect dialog by itself (not the quiet
    // one); the dialog connects, the stored autojoin list is joined; then
    // reconnect and disconnect.
    void connectAutojoinReconnectAndDisconnect()
    {
        {
            MainWindow window;
            QTRY_VERIFY_WITH_TIMEOUT(window.findChild<ConnectDialog*>() != nullptr, kTimeout);
            auto* dialog = window.findChild<ConnectDialog*>();
            QVERIFY(dialog->isVisible() && !dialog->isModal() && dialog->testAttribute(Qt::WA_DeleteOnClose)
                && !w->findChild<ConnectDialog*>());
        }
        // A stored server whose autojoin list holds an entry without "#":
        // only channel names are joined.
        QSettings().setValue("servers/customList", QStringList { serverId() });
        ServerConfig stored;
        stored.nickname = "dlgnick";
        stored.realName = "Dialog User";
        stored.autojoinChannels = { "#auto1", "linux" };
        ServerStore::saveServerConfig(serverId(), stored);
        QVERIFY(connectAs("dlgnick"));
        QVERIFY(w->session()->serverId() == serverId() && shows("Server", "*** Connected to server."));
        QCOMPARE(status(), "Connected to 127.0.0.1 as dlgnick");
        QCOMPARE(QSettings().value("servers/" + serverId() + "/address").toString(), "127.0.0.1:" + QString::number(m_server->port()));
        QVERIFY(shows("#auto1", "<dlgnick> joined #auto1"));
        QVERIFY(!w->network()->tabs.contains("linux") && !w->network()->tabs.contains("#linux"));

        // /autojoin toggles a channel in the stored record.
        type("/autojoin mychan");
        QVERIFY(shows("Server", "*** Added #mychan to autojoin list"));
        QCOMPARE(QSettings().value("servers/" + serverId() + "/autojoin").toStringList(), QStringList({ "#auto1", "linux", "#mychan" }));

        // Reconnect: the same server, port and nick, into the autojoin channel again.
        w->onReconnectTriggered();
        QTRY_COMPARE_WITH_TIMEOUT(rows("Server").count("*** Autojoining #auto1"), 2, kTimeout);
        QVERIFY(connected() && w->session()->port() == m_server->port() && w->session()->nick() == "dlgnick");

        // Disconnecting keeps the tabs and ends the session's state.
        type("/msg nobodyhere hello");
        QVERIFY(w->session()->watchedNicks().contains("nobodyhere"));
        switchTo("#auto1");
        QTRY_VERIFY_WITH_TIMEOUT(w->userList->count() > 0, kTimeout);
        type("/away brb");
        QVERIFY(w->session()->isAway());
        w->onDisconnectTriggered();
        QTRY_COMPARE_WITH_TIMEOUT(rows("Server").count("*** Disconnected."), 2, kTimeout);
        QVERIFY(!w->session()->connection()->isConnected() && w->network()->tabs.contains("#auto1"));
        QVERIFY(w->session()->hasMembers("#auto1") && w->userList->count() == 0);
        QVERIFY(!w->session()->isAway() && w->session()->awayMessage().isEmpty() && w->session()->watchedNicks().isEmpty());
        QCOMPARE(status(), "Disconnected");
    }

    // A channel's life, a row per step: the line a user sends (from null:
    // typed in the window), the row its tab then shows, the line another
    // user receives (`to`, a pattern) and the state that follows. Joins,
    // parts, renames, quits and kicks keep the member list and completion
    // current; typed commands reach the others as sent; notices go to the
    // channel, the open conversation, else the current tab; the topic button
    // follows the own rank; the own part and kick keep the tab, dimmed and
    // empty. The server tab reads as text: replies once, no raw lines, no PINGs.
    void channelLife()
    {
        RawIrcClient *bob = user("bob"), *carl = user("carl"), *dave = user("dave");
        QVERIFY(connectAs("winuser", { bob, carl, dave }));
        QVERIFY(carl->join("#other") && joinFromWindow("#other"));
        switchTo("Server"); // so that #ev becomes current once joined
        const auto completes = [this](const QString& nick) { return w->nickCompletionWords().contains(nick); };
        const auto editable = [this] { return w->network()->tabs.value("#ev").editTopicBtn->isVisibleTo(w.get()); };
        const auto dimmed = [this] { return w->tabBar->isTabDimmed(w->tabWidget->indexOf(w->network()->tabs.value("#ev").widget)); };
        struct Step
        {
            RawIrcClient* from;
            QString line, tab, row;
            std::function<bool()> then = {};
            RawIrcClient* to = nullptr;
            QString seen = {};
        };
        const QList<Step> steps {
            { nullptr, "/join #ev", "#ev", "<winuser> joined #ev", [&] { return listed("@winuser") && editable(); } },
            { bob, "JOIN #ev", "#ev", "<bob> joined #ev", [&] { return listed("bob") && completes("bob"); } },
            { bob, "PART #ev :see you", "#ev", "<bob> left #ev (see you)",
                [&] { return !listed("bob") && !completes("bob") && !w->session()->members("#ev").contains("bob"); } },
            { bob, "JOIN #ev", "", "", [&] { return listed("bob"); } },
            { bob, "NICK bobby", "#ev", "<bob> is now known as bobby", [&] { return listed("bobby") && !listed("bob"); } },
            { bob, "QUIT :gone home", "#ev", "<bobby> quit (Quit: gone home)", [&] { return !listed("bobby"); } },
            { carl, "JOIN #ev", "#ev", "<carl> joined #ev", [&] { return listed("carl"); } },
            { nullptr, "/raw KICK #ev carl :out you go", "#ev", "<carl> was kicked by winuser (out you go)",
                [&] { return !listed("carl"); } },
            { dave, "JOIN #ev", "#ev", "<dave> joined #ev", [&] { return listed("dave") && !listed("@carl"); } }, // not #other's
            { nullptr, "/me waves", "#ev", "<*> winuser waves", {}, dave, " PRIVMSG #ev :\x01" "ACTION waves\x01$" },
            { nullptr, "/notice dave psst", "", "", {}, dave, " NOTICE dave :psst$" },
            { nullptr, "/ctcp dave VERSION", "#ev", "*** CTCP VERSION sent to dave", {}, dave,
                " PRIVMSG dave :\x01VERSION\x01$" },
            { nullptr, "/topic fresh words", "#ev", "<winuser> changed the topic to fresh words", {}, dave,
                " TOPIC #ev :fresh words$" },
            { nullptr, "/op dave", "#ev", "<winuser> gives channel operator status to dave",
                [&] { return listed("@dave"); }, dave, " MODE #ev \\+o :?dave$" },
            { nullptr, "/part #other bye now", "#other", "*** You have left #other", // the named channel, not the current
                [&] { return !w->session()->isJoined("#other") && w->session()->isJoined("#ev"); }, carl, " PART #other :bye now$" },
            { nullptr, "/nick newme", "#ev", "<winuser> is now known as newme",
                [&] { return listed("@newme") && status() == "Connected to 127.0.0.1 as newme"; } },
            { dave, "NOTICE newme :psst", "#ev", "-dave- psst" }, // no conversation open: the current tab
            { dave, "PRIVMSG newme :\x01VERSION\x01", "Server", "*** CTCP VERSION from dave", {}, dave,
                "NOTICE dave :\x01VERSION Quenvar 2.0\x01" },
            { dave, "PRIVMSG #ev :left \u202Eright", "#ev", "<dave> left \u202Eright" },
            { dave, "TOPIC #ev :a new topic", "#ev", "<dave> changed the topic to a new topic",
                [&] { return w->network()->tabs.value("#ev").topicLabel->text().contains("a new topic"); } },
            { dave, "MODE #ev +v-o newme newme", "#ev", "<dave> removes channel operator status from newme",
                [&] { return listed("+newme") && !editable(); } },
            { dave, "MODE #ev -v+o newme newme", "#ev", "<dave> gives channel operator status to newme",
                [&] { return listed("@newme") && editable(); } },
            { dave, "PRIVMSG newme :hi", "dave", "<dave> hi" },
            { dave, "NOTICE newme :in private", "dave", "-dave- in private" }, // the open conversation
            { dave, "NOTICE #ev :to all", "#ev", "-dave- to all" }, // the channel's, not the conversation
            { carl, "JOIN #ev", "", "", [&] { return listed("carl"); } },
            { dave, "MODE #ev +v carl", "", "", [&] { return listed("+carl"); } },
            { nullptr, "/part", "#ev", "*** You have left #ev", [&] { return w->userList->count() == 0 && dimmed(); } },
            { nullptr, "/join #ev", "#ev", "<newme> joined #ev", // the names in rank order
                [&] { return w->userList->count() == 3 && w->userList->rowOf("@dave") == 0 && w->userList->rowOf("+carl") == 1
                    && w->userList->rowOf("newme") == 2 && !dimmed(); } },
            { dave, "KICK #ev newme :behave", "#ev", "*** You were kicked from #ev by dave (behave)",
                [&] { return w->userList->count() == 0 && dimmed(); } },
            { nullptr, "/msg #ev still here?", "#ev",
                "*** #ev: You cannot send external messages to this channel whilst the +n (noextmsg) mode is set." },
        };
        for (const Step& step : steps) {
            if (step.from)
                step.from->sendLine(step.line);
            else
                type(step.line);
            QVERIFY2(step.row.isEmpty() || shows(step.tab, step.row), qPrintable(step.line));
            QVERIFY2(!step.to || !step.to->waitForLine(step.seen).isEmpty(), qPrintable(step.line));
            QVERIFY2(!step.then || QTest::qWaitFor(step.then, kTimeout), qPrintable(step.line));
        }
        QTest::qWait(4000);
        QCOMPARE(rows("Server").filter("Your host is irc.test").size(), 1);
        QCOMPARE(rows("Server").filter(QRegularExpression("^(<< |:\\S+ |PING)")), QStringList());
    }

    // TLS with the server's self-signed certificate: the dialog's three
    // answers, a pinned certificate taken silently, another one refused
    // (naming both), and the preference that takes any certificate with a
    // warning.
    void certificateTrust()
    {
        const QString fingerprint = IRCConnection::fingerprintOf(m_server->certificate());
        const QString pin = "servers/" + ServerStore::serverId(m_server->host(), m_server->tlsPort()) + "/certfingerprint";
        // The pin, whether any certificate is taken, the dialog's answer (null: no dialog), whether it
        // connects, the pin stored after (null: not looked at), a row the server tab shows.
        const std::tuple<QString, bool, const char*, bool, QString, QString> cases[] {
            { "", false, "cancelButton", false, "", "" }, { "", false, "connectButton", true, "", "" },
            { "", false, "alwaysTrustButton", true, fingerprint, "" }, { fingerprint, false, nullptr, true, {}, "" },
            { "00:11", false, nullptr, false, {}, "*** Refused: the server presented another certificate than the one "
                                                  "trusted for it (trusted 00:11, presented " + fingerprint + ")." },
            { "", true, nullptr, true, {}, "*** Warning: the server's certificate is not trusted" } };
        for (const auto& [pinned, acceptAny, button, connects, stored, row] : cases) {
            ServerConfig config;
            config.nickname = QStringLiteral("tlsme");
            config.useSsl = true;
            config.certFingerprint = pinned;
            w->session()->setAcceptInvalidCertificates(acceptAny);
            w->session()->connectTo(m_server->host(), m_server->tlsPort(), config);
            if (button) {
                QVERIFY(QTest::qWaitFor([&] { return w->findChild<CertificateDialog*>() != nullptr; }, kTimeout));
                auto* dialog = w->findChild<CertificateDialog*>();
                QCOMPARE(dialog->findChild<QLabel*>("fingerprint")->text(), fingerprint);
                QVERIFY(dialog->findChild<QPushButton*>("cancelButton")->isDefault());
                dialog->findChild<QPushButton*>(button)->click();
            }
            QCOMPARE(QTest::qWaitFor([&] { return connected(); }, connects ? kTimeout : 1500), connects);
            QVERIFY(button || !w->findChild<CertificateDialog*>());
            QVERIFY(stored.isNull() || QSettings().value(pin).toString() == stored);
            QVERIFY2(row.isEmpty() || !rows("Server").filter(row).isEmpty(), qPrintable(row));
            w->session()->disconnectFromServer();
            QVERIFY(QTest::qWaitFor([&] { return !w->session()->isConnected(); }, kTimeout));
        }
    }

    // A mention marks its tab when another is current; the WHOIS summary goes
    // to the tab it was asked from; a private message opens a tab named after
    // the sender, which answers reach; WATCH says when she leaves and returns.
    // The channel list from the server, largest first.
    void mentionWhoisPrivateChatAndWatch()
    {
        RawIrcClient* erin = user("erin");
        QVERIFY(connectAs("privme", { erin }));
        QVERIFY(erin->join("#who"));
        erin->sendLine("AWAY :at lunch");
        erin->sendLine("TOPIC #who :Online games");
        QVERIFY(erin->sync());
        QVERIFY(joinFromWindow("#who") && joinFromWindow("#quiet"));
        switchTo("#quiet");
        erin->sendLine("PRIVMSG #who :hello there");
        erin->sendLine("PRIVMSG #who :privme: look at this");
        QVERIFY(shows("#who", "<erin> privme: look at this"));
        QVERIFY(w->network()->tabs.value("#who").highlighted && !w->network()->tabs.value("#quiet").highlighted);

        switchTo("#who");
        type("/w erin");
        QVERIFY(shows("#who", "*** erin is away: at lunch"));
        QStringList summary = rows("#who").mid(rows("#who").size() - 5);
        const QString idle = summary.takeAt(2); // the sign-on time as a local date
        QVERIFY2(QRegularExpression("^\\*\\*\\* erin idle \\d+s, signed on \\d{4}-\\d\\d-\\d\\dT\\d\\d:\\d\\d:\\d\\d$")
                     .match(idle).hasMatch(), qPrintable(idle));
        QCOMPARE(summary,
            (QStringList { "*** WHOIS erin: erin@127.0.0.1 (erin)", "*** erin is using irc.test (Quenvar test server)",
                "*** erin on channels: @#who", "*** erin is away: at lunch" }));
        QVERIFY(!w->session()->isGatheringWhois() && rows("Server").filter("*** WHOIS").isEmpty());
        // The channel list: largest channel first, with its topic.
        type("/list");
        QVERIFY(shows("Server", "*** Channel list complete.") && w->currentTabName == "List");
        const ChannelListModel* list = w->network()->channelListModel;
        QVERIFY(list->rowCount() >= 2 && list->channelAt(0).name == "#who" && list->channelAt(0).users == "2");
        QCOMPARE(list->channelAt(0).topic, "Online games");

        erin->sendLine("PRIVMSG privme :psst, hello");
        QVERIFY(shows("erin", "<erin> psst, hello"));
        switchTo("erin");
        type("hi  erin");
        QVERIFY(!erin->waitForLine("^:privme!\\S+ PRIVMSG erin :hi  erin$").isEmpty() && rows("erin").contains("<privme> hi  erin"));
        QVERIFY(erin->quit("later"));
        QVERIFY(shows("erin", "<erin> quit (WATCH)"));
        QVERIFY(RawIrcClient::registerAll({ user("erin") }, m_server->host(), m_server->port()));
        QVERIFY(shows("erin", "<erin> is back online"));
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
        RawIrcClient *ann = user("ann"), *bea = user("bea");
        QVERIFY(connectAs("onenick", { ann }));
        QVERIFY(joinFromWindow("#same"));
        type("/autojoin #same");
        NetworkView* one = w->network();
        QVERIFY(connectAs("twonick", { bea }, "Window User", &other));
        NetworkView* two = w->network();
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
        QCOMPARE(status(), "Connected to OtherNet (127.0.0.1) as twonick");

        // Rows and commands stay on their network. A tab opened later joins
        // its network's group, and the marks of the tabs after it move along.
        QVERIFY(ann->join("#same") && bea->join("#same"));
        type("/me waves");
        QVERIFY(!bea->waitForLine("^:twonick!\\S+ PRIVMSG #same :\x01" "ACTION waves\x01$").isEmpty());
        one->showTab("#same");
        QCOMPARE(status(), "Connected to QuenvarTest (127.0.0.1) as onenick");
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
        QVERIFY(ann->linesMatching(QRegularExpression("waves")).isEmpty()
            && bea->linesMatching(QRegularExpression("hello one")).isEmpty());

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

        // The next start connects both again, into their autojoin channel.
        w.reset();
        w = std::make_unique<MainWindow>();
        QVERIFY(QTest::qWaitFor([this] { return w->networks().size() == 2 && w->networks().at(0)->session()->isJoined("#same")
                && w->networks().at(1)->session()->isJoined("#same"); }, kTimeout));
        QVERIFY(!w->findChild<ConnectDialog*>());
        two = w->networks().at(1);
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
        QCOMPARE(status(), "Connected to 127.0.0.1 as twonick");
        type("/msg #same still here");
        QVERIFY(!bea->waitForLine("PRIVMSG #same :still here$").isEmpty());
        bea->sendLine("PRIVMSG #same :after");
        QVERIFY(shows("#same", "<bea> after", kTimeout, two));
    }

    // With logging on: what the log files hold after a session, the backlog
    // a reopened conversation starts with, finding in a long scrollback, and
    // a log folder that cannot be written.
    void logsBacklogAndFind()
    {
        QTemporaryDir logs;
        QSettings settings;
        settings.setValue("logEnabled", true);
        settings.setValue("logPath", logs.path());
        settings.setValue("backlogLines", 2);
        w = std::make_unique<MainWindow>(nullptr, MainWindow::Startup::Quiet);
        RawIrcClient* bob = user("bob");
        QVERIFY(connectAs("logme", { bob }));
        QVERIFY(joinFromWindow("#Logs") && bob->join("#logs"));
        bob->sendLine("PRIVMSG #logs :\x02hello\x02 \x03" "04there");
        bob->sendLine("PRIVMSG #logs :\x01" "ACTION waves\x01");
        type("/topic a topic");
        QVERIFY(shows("#Logs", "<logme> changed the topic to a topic"));
        bob->sendLine("PRIVMSG logme :psst");
        QVERIFY(shows("bob", "<bob> is back online"));
        type("/msg bob back");
        bob->sendLine("PART #logs :bye");
        QVERIFY(shows("#Logs", "<bob> left #Logs (bye)"));

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
        QCOMPARE(w->session()->logFile("#Logs"), w->session()->logFolder() + "/#logs.log");
        QCOMPARE(logged("#Logs"), (QStringList { "* logme joined #Logs", "* bob joined #Logs", "<bob> hello there",
            "* bob waves", "* logme changed the topic to a topic", "* bob left #Logs (bye)" }));
        QCOMPARE(logged("bob"), (QStringList { "<bob> psst", "* bob is back online", "<logme> back" }));

        // Reopened, the conversation starts with its last rows, greyed, and a separator.
        w->closeTab(w->tabWidget->indexOf(w->network()->tabs.value("bob").widget));
        bob->sendLine("PRIVMSG logme :again");
        QVERIFY(shows("bob", "<bob> again"));
        const ChatView* view = w->network()->tabs.value("bob").chatView;
        QCOMPARE(rows("bob").mid(0, 2), (QStringList { "<*> bob is back online", "<logme> back" }));
        QVERIFY(view->row(0).flags & BufferLine::Backlog && view->row(2).flags & BufferLine::Separator);
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
        const auto match = [view] { return view->rowText(view->currentMatchRow()).section('\t', -1).trimmed(); };
        QCOMPARE(count->text(), "4 of 4");
        QCOMPARE(match(), "line 307 Needle");
        QTest::keyClick(find, Qt::Key_Return);
        QCOMPARE(match(), "line 207 Needle");
        QVERIFY(view->firstVisibleRow() <= view->currentMatchRow());
        QTest::keyClick(find, Qt::Key_Return, Qt::ShiftModifier);
        QTest::keyClick(find, Qt::Key_Return, Qt::ShiftModifier);
        QCOMPARE(count->text(), "1 of 4"); // wrapped round to the oldest
        QTest::keyClick(find, Qt::Key_Escape);
        QVERIFY(!find->isVisible() && w->inputLine->hasFocus() && view->matchCount() == 0);

        // A log folder that cannot be written: said once per file, the chat goes on.
        QTemporaryDir readOnly;
        QVERIFY(QFile(readOnly.filePath(QFileInfo(w->session()->logFolder()).fileName())).open(QIODevice::WriteOnly));
        QFile::setPermissions(readOnly.path(), QFile::ReadOwner | QFile::ExeOwner);
        settings.setValue("logPath", readOnly.path());
        w->loadPreferences();
        for (const char* text : { "one", "two" }) {
            bob->sendLine(QStringLiteral("PRIVMSG logme :") + text);
            QVERIFY(shows("bob", QStringLiteral("<bob> ") + text));
            w->session()->flushLog();
        }
        const QString stopped = "^\\*\\*\\* Logging to " + QRegularExpression::escape(readOnly.path()) + "/.*/bob.log stopped: ";
        QCOMPARE(rows("Server").filter(QRegularExpression(stopped)).size(), 1);
        QFile::setPermissions(readOnly.path(), QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    }
};

QUENVAR_TEST_MAIN(TestE2eClient)
#include "tst_e2e_client.moc"
