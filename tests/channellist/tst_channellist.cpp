#include "ChannelListModel.h"
#include "ChannelListPage.h"
#include "ChatRows.h"
#include "ChatView.h"
#include "IRCConnection.h"
#include "MainWindow.h"
#include "NetworkView.h"
#include "Session.h"
#include "MyTabWidget.h"
#include "TestMain.h"
#include "WindowHarness.h"

#include <QHeaderView>
#include <QLabel>
#include <QLineEdit>
#include <QSettings>
#include <QStackedWidget>
#include <QTextBlock>
#include <QTextDocument>
#include <QTreeView>

namespace {

QStringList names(const ChannelListModel& model)
{
    QStringList result;
    for (int row = 0; row < model.rowCount(); ++row)
        result << model.channelAt(row).name;
    return result;
}

QStringList serverRows(MainWindow* window)
{
    QStringList rows;
    for (const QString& row : chatRows(window->network()->tabs.value("Server").chatView))
        rows << row.section(QLatin1Char('\t'), -1);
    return rows;
}

} // namespace

class TestChannelList : public QObject
{
    Q_OBJECT

private:
    std::unique_ptr<WindowHarness> h;
    MainWindow* w = nullptr;

    // A registered window that asked for the list with "/l" on the server tab
    // and received three channels.
    void listThree()
    {
        QVERIFY(h->connectAndRegister());
        w->inputLine->setText("/l");
        w->onSendInput();
        QCOMPARE(w->currentTabName, QStringLiteral("List"));
        QVERIFY(h->peerGot("LIST"));
        h->serverSays(":irc.test 321 mynick Channel :Users Name\n"
                      ":irc.test 322 mynick #small 9 :Online games\n"
                      ":irc.test 322 mynick #Linux 10 :the kernel\n"
                      ":irc.test 322 mynick #apple 15 :\n"
                      ":irc.test 323 mynick :End of channel list.");
    }

private slots:
    void init()
    {
        QSettings().clear();
        h = std::make_unique<WindowHarness>();
        w = h->window.get();
    }
    void cleanup() { h.reset(); }

    // ---- The model ---------------------------------------------------------------

    void filterMatchesNameOrTopic_data()
    {
        QTest::addColumn<QString>("filter");
        QTest::addColumn<QStringList>("shown");
        QTest::newRow("empty shows all") << "" << QStringList { "#Linux", "#games", "#x" };
        QTest::newRow("lin: name and topic alike") << "lin" << QStringList { "#Linux", "#games" };
        QTest::newRow("case ignored") << "LINUX" << QStringList { "#Linux" };
        QTest::newRow("user count is not searched") << "42" << QStringList {};
        QTest::newRow("no wildcard syntax") << "#*" << QStringList {};
        QTest::newRow("topics without formatting codes") << "online g" << QStringList { "#games" };
    }

    void filterMatchesNameOrTopic()
    {
        QFETCH(QString, filter);
        QFETCH(QStringList, shown);
        ChannelListModel model;
        model.appendChannel("#Linux", "42", "the kernel");
        model.appendChannel("#games", "7",
            "\x02On\x02line \x03"
            "04games");
        model.appendChannel("#x", "420", "nothing");
        QCOMPARE(model.data(model.index(1, 2)).toString(), QStringLiteral("Online games"));
        model.setFilterText(filter);
        QCOMPARE(names(model), shown);
        QCOMPARE(model.channelCount(), 3);
    }

    void rowsArrivingWhileFilteredStayUntilTheFilterChanges()
    {
        ChannelListModel model;
        model.appendChannel("#linux", "1", "");
        model.setFilterText("lin");
        model.appendChannel("#perl", "2", "camels");
        QCOMPARE(names(model), (QStringList { "#linux", "#perl" }));
        model.setFilterText("li");
        QCOMPARE(names(model), QStringList { "#linux" });
        model.setFilterText("");
        QCOMPARE(names(model), (QStringList { "#linux", "#perl" }));
    }

    void sorting()
    {
        ChannelListModel model;
        QTreeView view;
        view.setModel(&model);
        model.appendChannel("#b", "10", "Zeta");
        model.appendChannel("#C", "9", "alpha");
        model.appendChannel("#a", "x", "beta");
        view.setCurrentIndex(model.index(0, 0));
        model.sort(1, Qt::AscendingOrder);
        QCOMPARE(names(model), (QStringList { "#a", "#C", "#b" })); // not a number counts as 0; 9 before 10
        // The current row moves with its channel.
        QCOMPARE(view.currentIndex().row(), 2);
        model.sort(1, Qt::DescendingOrder);
        QCOMPARE(names(model), (QStringList { "#b", "#C", "#a" }));
        model.sort(0, Qt::AscendingOrder);
        QCOMPARE(names(model), (QStringList { "#a", "#b", "#C" })); // case ignored
        model.sort(2, Qt::AscendingOrder);
        QCOMPARE(names(model), (QStringList { "#C", "#a", "#b" }));
        // Sorting keeps the filter, and the filter keeps the order.
        model.setFilterText("#");
        model.sort(0, Qt::DescendingOrder);
        model.setFilterText("b");
        QCOMPARE(names(model), (QStringList { "#b", "#a" }));
        QCOMPARE(model.data(model.index(0, 1), Qt::UserRole).toInt(), 10);
        QCOMPARE(model.data(model.index(1, 1)).toString(), QStringLiteral("x"));
    }

    // ---- The list tab ----------------------------------------------------------

    void listingFilterRelistAndClose()
    {
        listThree();
        QVERIFY(w->network()->channelListWidget && w->network()->channelListModel);
        QCOMPARE(w->network()->tabs.value("List").chatView, nullptr);
        // The bottom strip holds the channel search field on the list tab.
        QCOMPARE(w->bottomStack->currentWidget(), w->channelSearchEdit);
        // Largest first, the counts numeric.
        QCOMPARE(names(*w->network()->channelListModel), (QStringList { "#apple", "#Linux", "#small" }));
        QVERIFY(w->network()->channelListWidget->isSortingEnabled());
        QCOMPARE(w->network()->channelListWidget->header()->sortIndicatorSection(), 1);
        QCOMPARE(w->network()->channelListWidget->header()->sortIndicatorOrder(), Qt::DescendingOrder);
        QCOMPARE(w->network()->listInfoLabel->text(), QStringLiteral("irc.test: 3 channels, 34 users"));
        QVERIFY(!w->session()->isReceivingList());
        const QStringList rows = serverRows(w);
        QVERIFY(rows.contains("*** Receiving channel list..."));
        QVERIFY(rows.contains("*** Channel list complete."));
        // The listing's numerics are not echoed into the server tab.
        for (const QString& row : rows)
            QVERIFY2(!row.contains("322") && !row.contains("End of channel list"), qPrintable(row));

        // Typing in the search field filters the table.
        QTest::keyClicks(w->channelSearchEdit, "LIN");
        QCOMPARE(names(*w->network()->channelListModel), (QStringList { "#Linux", "#small" }));
        w->channelSearchEdit->clear();
        QCOMPARE(w->network()->channelListModel->rowCount(), 3);

        // Another listing starts from an empty table, left unsorted while it arrives.
        w->network()->requestChannelList();
        QCOMPARE(w->network()->channelListModel->rowCount(), 0);
        QCOMPARE(w->network()->listInfoLabel->text(), QStringLiteral("Server: loading..."));
        h->serverSays(":irc.test 321 mynick Channel :Users Name\n"
                      ":irc.test 322 mynick #new 3 :fresh");
        QVERIFY(w->session()->isReceivingList());
        QVERIFY(!w->network()->channelListWidget->isSortingEnabled());
        QCOMPARE(names(*w->network()->channelListModel), QStringList { "#new" });

        // Closing the tab forgets its widgets; the rest of the listing is ignored.
        w->closeTab(w->tabWidget->indexOf(w->network()->tabs.value("List").widget));
        QVERIFY(!w->network()->tabs.contains("List"));
        QCOMPARE(w->network()->channelListWidget, nullptr);
        QCOMPARE(w->network()->channelListModel, nullptr);
        QCOMPARE(w->network()->listInfoLabel, nullptr);
        h->serverSays(":irc.test 322 mynick #late 1 :x\n"
                      ":irc.test 323 mynick :End of channel list.");
        QVERIFY(!w->session()->isReceivingList());
    }

    void doubleClickJoins()
    {
        listThree();
        h->peer->clear();
        const int row = names(*w->network()->channelListModel).indexOf("#Linux");
        w->network()->channelListPage->onDoubleClicked(w->network()->channelListModel->index(row, 2));
        QCOMPARE(w->currentTabName, QStringLiteral("#Linux"));
        QVERIFY(w->network()->tabs.value("#Linux").topicBar);
        QVERIFY(h->peerGot("JOIN #Linux"));

        // An existing tab: switch to it and join again.
        w->tabWidget->setCurrentWidget(w->network()->tabs.value("List").widget);
        h->peer->clear();
        const int tabsBefore = w->tabWidget->count();
        w->network()->channelListPage->onDoubleClicked(w->network()->channelListModel->index(row, 0));
        QCOMPARE(w->currentTabName, QStringLiteral("#Linux"));
        QCOMPARE(w->tabWidget->count(), tabsBefore);
        QVERIFY(h->peerGot("JOIN #Linux"));

        // Disconnected: nothing.
        w->session()->connection()->disconnectFromServer();
        QTRY_VERIFY(!w->session()->connection()->isConnected());
        w->network()->channelListPage->onDoubleClicked(w->network()->channelListModel->index(0, 0));
        QVERIFY(!w->network()->tabs.contains("#apple"));
    }

    void contextMenuJoinsAndTogglesAutojoin()
    {
        listThree();
        w->show();
        QVERIFY(QTest::qWaitForWindowExposed(w));
        const QPoint onFirstRow = w->network()->channelListWidget->visualRect(w->network()->channelListModel->index(0, 0)).center();

        QStringList items;
        onNextMenu(QString(), &items);
        w->network()->channelListPage->showContextMenu(onFirstRow);
        QCOMPARE(items, (QStringList { "Join #apple", "Autojoin on connect" }));

        h->peer->clear();
        onNextMenu("Join #apple");
        w->network()->channelListPage->showContextMenu(onFirstRow);
        QVERIFY(h->peerGot("JOIN #apple"));
        QVERIFY(!w->network()->tabs.contains("#apple")); // the tab comes with the server's JOIN

        onNextMenu("Autojoin on connect");
        w->network()->channelListPage->showContextMenu(onFirstRow);
        QCOMPARE(w->session()->autojoinChannels(), QStringList { "#apple" });
        QCOMPARE(serverRows(w).last(), QStringLiteral("*** Added #apple to autojoin list"));
        onNextMenu("Autojoin on connect");
        w->network()->channelListPage->showContextMenu(onFirstRow);
        QVERIFY(w->session()->autojoinChannels().isEmpty());
        QCOMPARE(serverRows(w).last(), QStringLiteral("*** Removed #apple from autojoin list"));

        // Empty space: no menu.
        const ModalDriver::HandlePtr menu = onNextMenu(QString(), &items);
        w->network()->channelListPage->showContextMenu(QPoint(5, w->network()->channelListWidget->viewport()->height() - 2));
        QTest::qWait(50);
        menu->cancelled = true;
        QVERIFY(!menu->handled);
    }

    void darkTableStyleIsFixedAtCreation()
    {
        w->applyTheme("dark");
        listThree();
        QVERIFY(w->network()->channelListWidget->styleSheet().contains("background-color: #1E1E1E"));
        w->applyTheme("light");
        QVERIFY(w->network()->channelListWidget->styleSheet().contains("background-color: #1E1E1E"));
    }
};

QUENVAR_TEST_MAIN(TestChannelList)
#include "tst_channellist.moc"
