// The chat window against a real InspIRCd on loopback, with a raw client as
// the other user: connecting through the connect dialog, autojoin, channel
// events, private messages and WATCH, WHOIS, disconnect and reconnect, and
// the raw echo of the server tab.

#include "ChannelListModel.h"
#include "ChatView.h"
#include "EditTopicDialog.h"
#include "ModalDriver.h"
#include "ConnectDialog.h"
#include "IRCConnection.h"
#include "InspircdServer.h"
#include "MainWindow.h"
#include "MyTabWidget.h"
#include "RawIrcClient.h"
#include "ServerStore.h"
#include "TestMain.h"

#include <QCheckBox>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QRegularExpression>
#include <QSettings>
#include <QStatusBar>
#include <QTextEdit>
#include <QTest>
#include <QTextDocument>

#include <memory>

namespace {

const int kTimeout = 10000;

// One row of a tab: its sender column (empty on the server tab) and message.
struct Row
{
    QString sender;
    QString message;
};

} // namespace

class TestE2eClient : public QObject
{
    Q_OBJECT

private:
    std::unique_ptr<InspircdServer> m_server;
    std::unique_ptr<MainWindow> w;
    QList<RawIrcClient*> m_clients;

    QString serverId() const { return ServerStore::serverId(m_server->host(), m_server->port()); }

    RawIrcClient* otherUser(const QString& nick)
    {
        auto* client = new RawIrcClient(nick);
        m_clients.append(client);
        if (!RawIrcClient::registerAll({ client }, m_server->host(), m_server->port()))
            return nullptr;
        return client;
    }

    // Opens the connect dialog as the user does, fills it in and presses
    // Connect; waits for registration.
    bool connectThroughDialog(const QString& nick, const QString& channels = QString())
    {
        w->onConnectTriggered();
        auto* dialog = w->findChild<ConnectDialog*>();
        if (!dialog || !dialog->isVisible())
            return false;
        dialog->findChild<QLineEdit*>(QStringLiteral("serverEdit"))->setText(m_server->host());
        dialog->findChild<QLineEdit*>(QStringLiteral("portEdit"))->setText(QString::number(m_server->port()));
        dialog->findChild<QLineEdit*>(QStringLiteral("nickEdit"))->setText(nick);
        dialog->findChild<QLineEdit*>(QStringLiteral("realNameEdit"))->setText(QStringLiteral("Window User"));
        dialog->findChild<QLineEdit*>(QStringLiteral("channelsEdit"))->setText(channels);
        dialog->findChild<QCheckBox*>(QStringLiteral("sslCheck"))->setChecked(false);
        dialog->onConnectClicked();
        QElapsedTimer clock;
        clock.start();
        while (!(w->connection->isConnected() && w->connection->isRegistered()) && clock.elapsed() < kTimeout)
            QTest::qWait(20);
        return w->connection->isRegistered() && w->connection->isConnected();
    }

    QList<Row> rows(const QString& tab) const
    {
        QList<Row> result;
        const auto it = w->tabs.constFind(tab);
        if (it == w->tabs.cend() || !it->chatView)
            return result;
        const QStringList lines = it->chatView->document()->toPlainText().split(QLatin1Char('\n'));
        for (const QString& line : lines) {
            const QStringList columns = line.split(QLatin1Char('\t'));
            if (columns.size() == 2)
                result.append({ QString(), columns.at(1) });
            else if (columns.size() >= 3)
                result.append({ columns.at(1).trimmed(), columns.mid(2).join(QLatin1Char('\t')).mid(1) });
        }
        return result;
    }

    QString dump(const QString& tab) const
    {
        QStringList lines;
        for (const Row& row : rows(tab))
            lines << row.sender + QStringLiteral(" | ") + row.message;
        return lines.join(QLatin1Char('\n'));
    }

    bool hasRow(const QString& tab, const QString& sender, const QString& message) const
    {
        for (const Row& row : rows(tab)) {
            if (row.sender == sender && row.message == message)
                return true;
        }
        return false;
    }

    int countRows(const QString& tab, const QString& message) const
    {
        int count = 0;
        for (const Row& row : rows(tab))
            count += row.message == message ? 1 : 0;
        return count;
    }

    QStringList visibleMembers() const
    {
        QStringList names;
        for (int i = 0; i < w->userList->count(); ++i)
            names << w->userList->item(i)->text();
        return names;
    }

    void type(const QString& text)
    {
        w->inputLine->setText(text);
        w->onSendInput();
    }

    void switchTo(const QString& tab)
    {
        for (int i = 0; i < w->tabWidget->count(); ++i) {
            if (w->tabWidget->tabText(i) == tab)
                w->tabWidget->setCurrentIndex(i);
        }
    }

    // Joins channel from the window and waits for its member list.
    bool joinFromWindow(const QString& channel)
    {
        type(QStringLiteral("/join ") + channel);
        QElapsedTimer clock;
        clock.start();
        while (!w->channelUsers.contains(channel) && clock.elapsed() < kTimeout)
            QTest::qWait(20);
        return w->channelUsers.contains(channel) && w->tabs.contains(channel);
    }

private slots:
    void initTestCase()
    {
        if (InspircdServer::executable().isEmpty())
            QSKIP("inspircd is not installed");
        m_server = std::make_unique<InspircdServer>();
        // Frequent server PINGs for the raw echo test.
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
        qDeleteAll(m_clients);
        m_clients.clear();
    }

    // --- Connecting ---

    void startupOpensTheConnectDialogByItself()
    {
        MainWindow window;
        QTRY_VERIFY_WITH_TIMEOUT(window.findChild<ConnectDialog*>() != nullptr, kTimeout);
        auto* dialog = window.findChild<ConnectDialog*>();
        QVERIFY(dialog->isVisible());
        QVERIFY(!dialog->isModal());
        QVERIFY(dialog->testAttribute(Qt::WA_DeleteOnClose));
        // The quiet window opens none.
        QTest::qWait(50);
        QVERIFY(w->findChild<ConnectDialog*>() == nullptr);
    }

    void connectsThroughTheDialogAndAutojoins()
    {
        // A stored server whose autojoin list holds an entry without "#".
        QStringList custom { serverId() };
        {
            QSettings settings;
            settings.setValue(QStringLiteral("servers/customList"), custom);
        }
        ServerConfig stored;
        stored.nickname = QStringLiteral("dlgnick");
        stored.realName = QStringLiteral("Dialog User");
        stored.autojoinChannels = { QStringLiteral("#auto1"), QStringLiteral("linux") };
        ServerStore::saveServerConfig(serverId(), stored);

        QVERIFY(connectThroughDialog(QStringLiteral("dlgnick")));
        QCOMPARE(w->currentServerId, serverId());
        QCOMPARE(w->currentPort(), m_server->port());
        QVERIFY(hasRow(QStringLiteral("Server"), QString(), QStringLiteral("*** Connected to server.")));
        QTRY_VERIFY_WITH_TIMEOUT(w->channelUsers.contains(QStringLiteral("#auto1")), kTimeout);
        QVERIFY(hasRow(QStringLiteral("Server"), QString(), QStringLiteral("*** Autojoining #auto1")));
        QVERIFY(hasRow(QStringLiteral("#auto1"), QStringLiteral("dlgnick"), QStringLiteral("joined dlgnick")));
        for (const Row& row : rows(QStringLiteral("Server")))
            QVERIFY2(!row.message.contains(QStringLiteral("linux")), qPrintable(row.message));
        QVERIFY(!w->tabs.contains(QStringLiteral("linux")));
        QVERIFY(!w->tabs.contains(QStringLiteral("#linux")));
        QCOMPARE(w->favoriteChannels, stored.autojoinChannels);
        // The record was written back under the server's group.
        QCOMPARE(QSettings().value(QStringLiteral("servers/%1/address").arg(serverId())).toString(),
            QStringLiteral("%1:%2").arg(m_server->host()).arg(m_server->port()));
        auto* status = w->findChild<QLabel*>(QStringLiteral("connectionStatus"));
        QVERIFY(status);
        QTRY_COMPARE_WITH_TIMEOUT(
            status->text(), QStringLiteral("Connected to %1 as dlgnick").arg(m_server->host()), kTimeout);
    }

    void autojoinCommandTogglesAndSaves()
    {
        QVERIFY(connectThroughDialog(QStringLiteral("ajnick")));
        type(QStringLiteral("/autojoin mychan"));
        QVERIFY(hasRow(QStringLiteral("Server"), QString(), QStringLiteral("*** Added #mychan to autojoin list")));
        QCOMPARE(w->favoriteChannels, QStringList { QStringLiteral("#mychan") });
        QCOMPARE(QSettings().value(QStringLiteral("servers/%1/autojoin").arg(serverId())).toStringList(),
            QStringList { QStringLiteral("#mychan") });
        type(QStringLiteral("/autojoin #mychan"));
        QVERIFY(hasRow(QStringLiteral("Server"), QString(), QStringLiteral("*** Removed #mychan from autojoin list")));
        QVERIFY(w->favoriteChannels.isEmpty());

        // Reading the record back restores the connection's list from the store.
        QSettings().setValue(
            QStringLiteral("servers/%1/autojoin").arg(serverId()), QStringList { QStringLiteral("#back") });
        w->loadCurrentServerConfig();
        QCOMPARE(w->favoriteChannels, QStringList { QStringLiteral("#back") });
        QCOMPARE(w->connection->serverConfig().autojoinChannels, QStringList { QStringLiteral("#back") });
        QCOMPARE(w->connection->serverConfig().nickname, QStringLiteral("ajnick"));
    }

    // --- Channel events ---

    void joinsPartsQuitsAndNickChangesOfOthers()
    {
        QVERIFY(connectThroughDialog(QStringLiteral("winuser")));
        QVERIFY(joinFromWindow(QStringLiteral("#ev")));
        QCOMPARE(w->currentTabName, QStringLiteral("#ev"));
        QVERIFY(hasRow(QStringLiteral("#ev"), QStringLiteral("winuser"), QStringLiteral("joined winuser")));

        RawIrcClient* bob = otherUser(QStringLiteral("bob"));
        QVERIFY(bob);
        QVERIFY(bob->join(QStringLiteral("#ev")));
        QTRY_VERIFY_WITH_TIMEOUT(hasRow(QStringLiteral("#ev"), QStringLiteral("bob"), QStringLiteral("joined bob")),
            kTimeout);
        QVERIFY(visibleMembers().contains(QStringLiteral("bob")));
        QVERIFY(w->nickCompletionWords().contains(QStringLiteral("bob")));

        bob->sendLine(QStringLiteral("PART #ev :see you"));
        QTRY_VERIFY_WITH_TIMEOUT(
            hasRow(QStringLiteral("#ev"), QStringLiteral("bob"), QStringLiteral("left #ev (see you)")), kTimeout);
        QVERIFY(!visibleMembers().contains(QStringLiteral("bob")));
        QVERIFY(!w->channelUsers.value(QStringLiteral("#ev")).contains(QStringLiteral("bob")));
        QVERIFY(!w->nickCompletionWords().contains(QStringLiteral("bob")));

        QVERIFY(bob->join(QStringLiteral("#ev")));
        QTRY_VERIFY_WITH_TIMEOUT(visibleMembers().contains(QStringLiteral("bob")), kTimeout);
        bob->sendLine(QStringLiteral("NICK bobby"));
        QTRY_VERIFY_WITH_TIMEOUT(
            hasRow(QStringLiteral("#ev"), QStringLiteral("bob"), QStringLiteral("is now known as bobby")), kTimeout);
        QVERIFY(visibleMembers().contains(QStringLiteral("bobby")));
        QVERIFY(!visibleMembers().contains(QStringLiteral("bob")));
        QVERIFY(w->channelUsers.value(QStringLiteral("#ev")).contains(QStringLiteral("bobby")));

        QVERIFY(bob->quit(QStringLiteral("gone home")));
        // The server puts "Quit: " in front of the reason.
        QTRY_VERIFY_WITH_TIMEOUT(
            hasRow(QStringLiteral("#ev"), QStringLiteral("bobby"), QStringLiteral("quit (Quit: gone home)")), kTimeout);
        QVERIFY(!visibleMembers().contains(QStringLiteral("bobby")));
        QVERIFY(!w->channelUsers.value(QStringLiteral("#ev")).contains(QStringLiteral("bobby")));
    }

    void kicksOfOthersAndOfTheUser()
    {
        QVERIFY(connectThroughDialog(QStringLiteral("kicker")));
        QVERIFY(joinFromWindow(QStringLiteral("#kick")));
        QVERIFY(w->channelUsers.value(QStringLiteral("#kick")).contains(QStringLiteral("@kicker")));

        RawIrcClient* carl = otherUser(QStringLiteral("carl"));
        QVERIFY(carl);
        QVERIFY(carl->join(QStringLiteral("#kick")));
        QTRY_VERIFY_WITH_TIMEOUT(visibleMembers().contains(QStringLiteral("carl")), kTimeout);

        // The window's operator kicks carl.
        type(QStringLiteral("/raw KICK #kick carl :out you go"));
        QTRY_VERIFY_WITH_TIMEOUT(hasRow(QStringLiteral("#kick"), QStringLiteral("carl"),
                                     QStringLiteral("was kicked by kicker (out you go)")),
            kTimeout);
        QVERIFY(!visibleMembers().contains(QStringLiteral("carl")));

        // carl opens a channel of his own; the window joins and gets kicked.
        QVERIFY(carl->join(QStringLiteral("#carls")));
        QVERIFY(joinFromWindow(QStringLiteral("#carls")));
        switchTo(QStringLiteral("#carls"));
        QVERIFY(visibleMembers().contains(QStringLiteral("@carl")));
        carl->sendLine(QStringLiteral("KICK #carls kicker :bye"));
        QTRY_VERIFY_WITH_TIMEOUT(
            hasRow(QStringLiteral("#carls"), QStringLiteral("kicker"), QStringLiteral("was kicked by carl (bye)")),
            kTimeout);
        QCOMPARE(w->userList->count(), 0);
        QVERIFY(w->tabs.contains(QStringLiteral("#carls")));
    }

    void ownNickChangeThroughTheServer()
    {
        QVERIFY(connectThroughDialog(QStringLiteral("oldme")));
        QVERIFY(joinFromWindow(QStringLiteral("#nk")));
        type(QStringLiteral("/nick newme"));
        QCOMPARE(w->pendingNewNick, QStringLiteral("newme"));
        QTRY_COMPARE_WITH_TIMEOUT(w->connection->currentNick(), QStringLiteral("newme"), kTimeout);
        QVERIFY(w->pendingNewNick.isEmpty());
        QTRY_VERIFY_WITH_TIMEOUT(
            hasRow(QStringLiteral("#nk"), QStringLiteral("oldme"), QStringLiteral("is now known as newme")), kTimeout);
        QVERIFY(visibleMembers().contains(QStringLiteral("@newme")));
        auto* status = w->findChild<QLabel*>(QStringLiteral("connectionStatus"));
        QCOMPARE(status->text(), QStringLiteral("Connected to %1 as newme").arg(m_server->host()));
    }

    void mentionHighlightsABackgroundTab()
    {
        QVERIFY(connectThroughDialog(QStringLiteral("mentioned")));
        QVERIFY(joinFromWindow(QStringLiteral("#m1")));
        QVERIFY(joinFromWindow(QStringLiteral("#m2")));
        switchTo(QStringLiteral("#m2"));
        RawIrcClient* dana = otherUser(QStringLiteral("dana"));
        QVERIFY(dana);
        QVERIFY(dana->join(QStringLiteral("#m1")));
        dana->sendLine(QStringLiteral("PRIVMSG #m1 :hello there"));
        dana->sendLine(QStringLiteral("PRIVMSG #m1 :mentioned: look at this"));
        QTRY_VERIFY_WITH_TIMEOUT(
            hasRow(QStringLiteral("#m1"), QStringLiteral("dana"), QStringLiteral("mentioned: look at this")), kTimeout);
        QVERIFY(hasRow(QStringLiteral("#m1"), QStringLiteral("dana"), QStringLiteral("hello there")));
        QVERIFY(w->tabs.value(QStringLiteral("#m1")).highlighted);
        QVERIFY(!w->tabs.value(QStringLiteral("#m2")).highlighted);
    }

    // --- Private conversations, WATCH, WHOIS ---

    void privateMessageOpensATabNamedAfterTheSender()
    {
        QVERIFY(connectThroughDialog(QStringLiteral("privme")));
        RawIrcClient* erin = otherUser(QStringLiteral("erin"));
        QVERIFY(erin);
        erin->sendLine(QStringLiteral("PRIVMSG privme :psst, hello"));
        QTRY_VERIFY_WITH_TIMEOUT(
            hasRow(QStringLiteral("erin"), QStringLiteral("erin"), QStringLiteral("psst, hello")), kTimeout);

        // Answering in that tab reaches erin.
        switchTo(QStringLiteral("erin"));
        type(QStringLiteral("hi erin"));
        QVERIFY(!erin->waitForLine(QStringLiteral("^:privme!\\S+ PRIVMSG erin :hi erin$")).isEmpty());
        QVERIFY(hasRow(QStringLiteral("erin"), QStringLiteral("privme"), QStringLiteral("hi erin")));

        // /msg opens (or fills) the target's tab.
        type(QStringLiteral("/msg erin two  spaces"));
        QVERIFY(!erin->waitForLine(QStringLiteral("^:privme!\\S+ PRIVMSG erin :two  spaces$")).isEmpty());
        QVERIFY(hasRow(QStringLiteral("erin"), QStringLiteral("privme"), QStringLiteral("two  spaces")));
    }

    void watchReportsOfflineAndOnlineInThePrivateTab()
    {
        QVERIFY(connectThroughDialog(QStringLiteral("watcher")));
        RawIrcClient* fred = otherUser(QStringLiteral("fred"));
        QVERIFY(fred);
        fred->sendLine(QStringLiteral("PRIVMSG watcher :watch me"));
        QTRY_VERIFY_WITH_TIMEOUT(w->tabs.contains(QStringLiteral("fred")), kTimeout);
        QVERIFY(w->watchedNicks.contains(QStringLiteral("fred")));
        QTest::qWait(300); // the WATCH reaches the server

        QVERIFY(fred->quit(QStringLiteral("later")));
        QTRY_VERIFY_WITH_TIMEOUT(
            hasRow(QStringLiteral("fred"), QStringLiteral("fred"), QStringLiteral("quit (WATCH)")), kTimeout);

        RawIrcClient* again = otherUser(QStringLiteral("fred"));
        QVERIFY(again);
        QTRY_VERIFY_WITH_TIMEOUT(
            hasRow(QStringLiteral("fred"), QStringLiteral("fred"), QStringLiteral("is back online")), kTimeout);
    }

    void whoisSummaryGoesToTheTabItWasAskedFrom()
    {
        QVERIFY(connectThroughDialog(QStringLiteral("asker")));
        RawIrcClient* gina = otherUser(QStringLiteral("gina"));
        QVERIFY(gina);
        QVERIFY(gina->join(QStringLiteral("#who")));
        gina->sendLine(QStringLiteral("AWAY :at lunch"));
        QVERIFY(gina->sync());
        QVERIFY(joinFromWindow(QStringLiteral("#who")));
        switchTo(QStringLiteral("#who"));

        type(QStringLiteral("/w gina"));
        // The away line is the last one of the summary.
        QTRY_COMPARE_WITH_TIMEOUT(countRows(QStringLiteral("#who"), QStringLiteral("*** gina is away: at lunch")), 1,
            kTimeout);
        bool whoisLine = false;
        for (const Row& row : rows(QStringLiteral("#who")))
            whoisLine = whoisLine || row.message.startsWith(QStringLiteral("*** WHOIS gina: gina@127.0.0.1 ("));
        QVERIFY2(whoisLine, qPrintable(dump(QStringLiteral("#who"))));
        QVERIFY(hasRow(QStringLiteral("#who"), QString(),
            QStringLiteral("*** gina is using %1 (%2)").arg(m_server->serverName(), m_server->serverDescription())));
        QVERIFY2(hasRow(QStringLiteral("#who"), QString(), QStringLiteral("*** gina on channels: @#who")),
            qPrintable(dump(QStringLiteral("#who"))));
        // The sign-on time arrives as seconds and is shown as a local date.
        const QRegularExpression idleLine(
            QStringLiteral("^\\*\\*\\* gina idle \\d+s, signed on \\d{4}-\\d\\d-\\d\\dT\\d\\d:\\d\\d:\\d\\d$"));
        int idleLines = 0;
        for (const Row& row : rows(QStringLiteral("#who")))
            idleLines += idleLine.match(row.message).hasMatch() ? 1 : 0;
        QVERIFY2(idleLines == 1, qPrintable(dump(QStringLiteral("#who"))));
        QVERIFY(w->whoisCache.isEmpty());
        for (const Row& row : rows(QStringLiteral("Server")))
            QVERIFY2(!row.message.startsWith(QStringLiteral("*** WHOIS")), qPrintable(row.message));
    }

    // --- Status bar, channel list, topic ---

    void statusBarFollowsTheConnection()
    {
        auto* status = w->findChild<QLabel*>(QStringLiteral("connectionStatus"));
        QCOMPARE(status->text(), QStringLiteral("Disconnected"));
        QCOMPARE(w->statusBar()->styleSheet(), QStringLiteral("QStatusBar { background-color: #f8d7da; }"));
        QVERIFY(connectThroughDialog(QStringLiteral("statusnick")));
        QTRY_COMPARE_WITH_TIMEOUT(status->text(),
            QStringLiteral("Connected to %1 as statusnick").arg(m_server->host()), kTimeout);
        QCOMPARE(w->statusBar()->styleSheet(), QStringLiteral("QStatusBar { background-color: #d4edda; }"));
    }

    void channelListFromTheServer()
    {
        QVERIFY(connectThroughDialog(QStringLiteral("lister")));
        RawIrcClient* ivy = otherUser(QStringLiteral("ivy"));
        QVERIFY(ivy);
        QVERIFY(ivy->join(QStringLiteral("#listed-one")));
        QVERIFY(ivy->join(QStringLiteral("#Listed-Two")));
        ivy->sendLine(QStringLiteral("TOPIC #listed-one :Online games"));
        QVERIFY(ivy->sync());
        QVERIFY(joinFromWindow(QStringLiteral("#listed-one")));

        type(QStringLiteral("/list"));
        QCOMPARE(w->currentTabName, QStringLiteral("List"));
        QTRY_VERIFY_WITH_TIMEOUT(
            hasRow(QStringLiteral("Server"), QString(), QStringLiteral("*** Channel list complete.")), kTimeout);
        QVERIFY(hasRow(QStringLiteral("Server"), QString(), QStringLiteral("*** Receiving channel list...")));
        ChannelListModel* model = w->channelListModel;
        QVERIFY(model->rowCount() >= 2);
        // Largest first: #listed-one has two members.
        QCOMPARE(model->channelAt(0).name, QStringLiteral("#listed-one"));
        QCOMPARE(model->channelAt(0).users, QStringLiteral("2"));
        QCOMPARE(model->channelAt(0).topic, QStringLiteral("Online games"));
        int users = 0;
        for (int row = 0; row < model->rowCount(); ++row)
            users += model->channelAt(row).userCount;
        QCOMPARE(w->listInfoLabel->text(),
            QStringLiteral("%1: %2 channels, %3 users").arg(m_server->serverName()).arg(model->rowCount()).arg(users));

        // "lin" finds the topic "Online games" and both names alike.
        QTest::keyClicks(w->channelSearchEdit, QStringLiteral("games"));
        QCOMPARE(model->rowCount(), 1);
        w->onChannelListDoubleClicked(model->index(0, 0));
        QCOMPARE(w->currentTabName, QStringLiteral("#listed-one"));
    }

    void operatorEditsTheTopic()
    {
        QVERIFY(connectThroughDialog(QStringLiteral("topper")));
        // The channel's creator is its operator.
        QVERIFY(joinFromWindow(QStringLiteral("#topic")));
        QTRY_VERIFY_WITH_TIMEOUT(w->isUserOperator(QStringLiteral("#topic")), kTimeout);
        QVERIFY(!w->tabs.value(QStringLiteral("#topic")).editTopicBtn->isHidden());
        RawIrcClient* jack = otherUser(QStringLiteral("jack"));
        QVERIFY(jack);
        QVERIFY(jack->join(QStringLiteral("#topic")));
        jack->skipReceived();

        ModalDriver::onModal<EditTopicDialog>([](EditTopicDialog* editor) {
            editor->findChild<QTextEdit*>()->setPlainText(QStringLiteral("  \x02" "fresh\x02 topic  "));
            editor->accept();
        });
        w->editTopic(QStringLiteral("#topic"));
        QTRY_VERIFY_WITH_TIMEOUT(!jack->linesMatching(QRegularExpression(QStringLiteral(" TOPIC #topic :\x02" "fresh\x02 topic$"))).isEmpty(),
            kTimeout);
        QVERIFY(w->tabs.value(QStringLiteral("#topic")).topicLabel->text().contains(QStringLiteral("<b>fresh</b>")));

        // Losing the status hides the button once the member list says so.
        type(QStringLiteral("/raw MODE #topic +o jack"));
        QTRY_VERIFY_WITH_TIMEOUT(!jack->linesMatching(QRegularExpression(QStringLiteral(" MODE #topic \\+o :?jack$"))).isEmpty(),
            kTimeout);
        jack->sendLine(QStringLiteral("MODE #topic -o topper"));
        QVERIFY(jack->sync());
        type(QStringLiteral("/raw NAMES #topic"));
        QTRY_VERIFY_WITH_TIMEOUT(!w->isUserOperator(QStringLiteral("#topic")), kTimeout);
        QVERIFY(w->tabs.value(QStringLiteral("#topic")).editTopicBtn->isHidden());
    }

    // --- Disconnect, reconnect, raw echo ---

    void disconnectKeepsTabsAndResetsState()
    {
        QVERIFY(connectThroughDialog(QStringLiteral("leaver")));
        QVERIFY(joinFromWindow(QStringLiteral("#dc")));
        switchTo(QStringLiteral("#dc"));
        QVERIFY(w->userList->count() > 0);
        type(QStringLiteral("/away brb"));
        QVERIFY(w->awayActive);

        w->onDisconnectTriggered();
        QTRY_VERIFY_WITH_TIMEOUT(hasRow(QStringLiteral("Server"), QString(), QStringLiteral("*** Disconnected.")),
            kTimeout);
        QVERIFY(!w->connection->isConnected());
        QVERIFY(w->tabs.contains(QStringLiteral("#dc")));
        QCOMPARE(w->userList->count(), 0);
        QVERIFY(!w->awayActive);
        QVERIFY(w->awayMessage.isEmpty());
        QVERIFY(w->watchedNicks.isEmpty());
        QVERIFY(w->channelUsers.contains(QStringLiteral("#dc")));
        auto* status = w->findChild<QLabel*>(QStringLiteral("connectionStatus"));
        QCOMPARE(status->text(), QStringLiteral("Disconnected"));

        // Typed lines are dropped while disconnected.
        type(QStringLiteral("nobody hears this"));
        QVERIFY(!hasRow(QStringLiteral("#dc"), QStringLiteral("leaver"), QStringLiteral("nobody hears this")));
    }

    void reconnectReturnsToTheSamePort()
    {
        QVERIFY(connectThroughDialog(QStringLiteral("again")));
        w->onReconnectTriggered();
        QTRY_VERIFY_WITH_TIMEOUT(hasRow(QStringLiteral("Server"), QString(), QStringLiteral("*** Disconnected.")),
            kTimeout);
        QTRY_COMPARE_WITH_TIMEOUT(countRows(QStringLiteral("Server"), QStringLiteral("*** Connected to server.")), 2,
            kTimeout);
        QTRY_VERIFY_WITH_TIMEOUT(w->connection->isRegistered() && w->connection->isConnected(), kTimeout);
        QCOMPARE(w->connection->getHost(), m_server->host());
        QCOMPARE(w->currentPort(), m_server->port());
        QTRY_COMPARE_WITH_TIMEOUT(w->connection->currentNick(), QStringLiteral("again"), kTimeout);

        // Not connected: the action does nothing.
        w->onDisconnectTriggered();
        QTRY_VERIFY_WITH_TIMEOUT(!w->connection->isConnected(), kTimeout);
        w->onReconnectTriggered();
        QTest::qWait(1500);
        QVERIFY(!w->connection->isConnected());
    }

    void rawEchoShowsPingsAndHidesTrafficAndNumerics()
    {
        QVERIFY(connectThroughDialog(QStringLiteral("echoer")));
        QVERIFY(joinFromWindow(QStringLiteral("#echo")));
        RawIrcClient* hank = otherUser(QStringLiteral("hank"));
        QVERIFY(hank);
        QVERIFY(hank->join(QStringLiteral("#echo")));
        hank->sendLine(QStringLiteral("PRIVMSG #echo :traffic"));
        QTRY_VERIFY_WITH_TIMEOUT(hasRow(QStringLiteral("#echo"), QStringLiteral("hank"), QStringLiteral("traffic")),
            kTimeout);
        // The server pings every few seconds.
        QTRY_VERIFY_WITH_TIMEOUT(
            hasRow(QStringLiteral("Server"), QString(), QStringLiteral("<< PING :irc.test")), 3 * kTimeout);
        for (const Row& row : rows(QStringLiteral("Server"))) {
            if (!row.message.startsWith(QStringLiteral("<< ")))
                continue;
            const QString line = row.message.mid(3);
            QVERIFY2(!(line.startsWith(QLatin1Char(':')) && line.contains(QLatin1Char('!'))), qPrintable(line));
            QVERIFY2(!QRegularExpression(QStringLiteral("^:\\S+ \\d{3}")).match(line).hasMatch(), qPrintable(line));
        }
        // Numerics are shown once, by the server message handler, not echoed.
        int welcome = 0;
        for (const Row& row : rows(QStringLiteral("Server")))
            welcome += row.message.contains(QStringLiteral(" 002 echoer :Your host is")) ? 1 : 0;
        QVERIFY2(welcome == 1, qPrintable(dump(QStringLiteral("Server"))));
    }
};

QUENVAR_TEST_MAIN(TestE2eClient)
#include "tst_e2e_client.moc"
