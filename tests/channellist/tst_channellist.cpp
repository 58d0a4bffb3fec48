#include "ChannelListModel.h"
#include "ChannelListPage.h"
#include "ChatRows.h"
#include "MyTabWidget.h"
#include "TestMain.h"
#include "WindowHarness.h"

#include <QLabel>
#include <QLineEdit>
#include <QSettings>
#include <QTreeView>

namespace {

QStringList names(const ChannelListModel* model)
{
    QStringList result;
    for (int row = 0; row < model->rowCount(); ++row)
        result << model->channelAt(row).name;
    return result;
}

} // namespace

class TestChannelList : public QObject
{
    Q_OBJECT

    std::unique_ptr<WindowHarness> h;
    MainWindow* w = nullptr;

private slots:
    void init()
    {
        QSettings().clear();
        h = std::make_unique<WindowHarness>();
        w = h->window.get();
    }
    void cleanup() { h.reset(); }

    void model_data()
    {
        QTest::addColumn<QString>("filter");
        QTest::addColumn<int>("column"); // sorted by, -1: arrival order
        QTest::addColumn<int>("order");
        QTest::addColumn<QStringList>("shown");
        const auto row = [](const char* name, const char* filter, int column, Qt::SortOrder order,
                             const QStringList& shown) {
            QTest::addRow("%s", name) << QString(filter) << column << int(order) << shown;
        };
        const auto up = Qt::AscendingOrder;
        row("all", "", -1, up, { "#Linux", "#games", "#x", "#C", "#a" });
        row("name and topic alike", "lin", -1, up, { "#Linux", "#games" });
        row("case ignored", "LINUX", -1, up, { "#Linux" });
        row("user count not searched", "42", -1, up, {});
        row("no wildcard syntax", "#*", -1, up, {});
        row("topics without formatting codes", "online g", -1, up, { "#games" });
        // Users as numbers (not a number counts as 0); text with case ignored.
        row("users up", "", 1, up, { "#a", "#games", "#C", "#Linux", "#x" });
        row("users down", "", 1, Qt::DescendingOrder, { "#x", "#Linux", "#C", "#games", "#a" });
        row("name", "", 0, up, { "#a", "#C", "#games", "#Linux", "#x" });
        row("topic", "", 2, up, { "#C", "#a", "#x", "#games", "#Linux" });
        row("filtered and sorted", "a", 1, Qt::DescendingOrder, { "#C", "#games", "#a" });
    }

    void model()
    {
        QFETCH(QString, filter);
        QFETCH(int, column);
        QFETCH(int, order);
        QFETCH(QStringList, shown);
        ChannelListModel model;
        QTreeView view;
        view.setModel(&model);
        model.appendChannel("#Linux", "42", "the kernel");
        model.appendChannel("#games", "7",
            "\x02On\x02line \x03"
            "04games");
        model.appendChannel("#x", "420", "nothing");
        model.appendChannel("#C", "9", "alpha");
        model.appendChannel("#a", "x", "beta");
        view.setCurrentIndex(model.index(3, 0));
        model.sort(column, Qt::SortOrder(order));
        if (filter.isEmpty()) // the current row moves with its channel
            QCOMPARE(view.currentIndex().row(), shown.indexOf("#C"));
        model.setFilterText(filter);
        QCOMPARE(names(&model), shown);
        QCOMPARE(model.channelCount(), 5);
        // Rows arriving meanwhile are shown, at the end, until the filter changes.
        model.appendChannel("#late", "1", "");
        QCOMPARE(names(&model), shown + QStringList { "#late" });
        model.setFilterText(filter + " ");
        QVERIFY(!names(&model).contains("#late"));
    }

    // The list tab: largest first, a summary, the search field filters; a
    // double click joins and brings the tab to the front (an open one too);
    // the menu joins (the tab comes with the server's JOIN) and toggles
    // autojoin; another listing starts empty and
    // unsorted; nothing joins while disconnected; closing the tab forgets it
    // and ignores the rest of the listing.
    void listTab()
    {
        QVERIFY(h->connectAndRegister());
        w->show();
        QVERIFY(QTest::qWaitForWindowExposed(w));
        w->inputLine->setText("/l");
        w->onSendInput();
        QVERIFY(h->peerGot("LIST"));
        h->serverSays(
            ":irc.test 321 mynick Channel :Users Name\n:irc.test 322 mynick #small 9 :Online games\n"
            ":irc.test 322 mynick #Linux 10 :the kernel\n:irc.test 322 mynick #apple 15 :\n"
            ":irc.test 323 mynick :End of channel list.");
        NetworkView* n = w->network();
        ChannelListPage* page = n->channelListPage;
        QCOMPARE(w->currentTabName, QStringLiteral("List"));
        QCOMPARE(names(n->channelListModel), (QStringList { "#apple", "#Linux", "#small" }));
        QCOMPARE(n->listInfoLabel->text(), QStringLiteral("irc.test: 3 channels, 34 users"));
        QVERIFY(!chatRows(n->tabs.value("Server").chatView).join('\n').contains("End of channel list"));
        QTest::keyClicks(w->channelSearchEdit, "LIN");
        QCOMPARE(names(n->channelListModel), (QStringList { "#Linux", "#small" }));
        w->channelSearchEdit->clear();

        for (int i = 0; i < 2; ++i) {
            w->tabWidget->setCurrentWidget(n->tabs.value("List").widget);
            h->peer->clear();
            page->onDoubleClicked(page->model()->index(1, 2));
            QCOMPARE(w->currentTabName, QStringLiteral("#Linux"));
            QVERIFY(h->peerGot("JOIN #Linux"));
        }
        w->tabWidget->setCurrentWidget(n->tabs.value("List").widget);
        const QPoint firstRow = page->view()->visualRect(page->model()->index(0, 0)).center();
        onNextMenu("Join #apple");
        page->showContextMenu(firstRow);
        QVERIFY(h->peerGot("JOIN #apple"));
        QVERIFY(!n->tabs.contains("#apple"));
        for (const QStringList& autojoin : { QStringList { "#apple" }, QStringList() }) {
            onNextMenu("Autojoin on connect");
            page->showContextMenu(firstRow);
            QCOMPARE(w->session()->autojoinChannels(), autojoin);
        }

        n->requestChannelList();
        QCOMPARE(n->channelListModel->rowCount(), 0);
        h->serverSays(":irc.test 321 mynick Channel :Users Name\n:irc.test 322 mynick #new 3 :fresh");
        QVERIFY(!n->channelListWidget->isSortingEnabled());
        QCOMPARE(names(n->channelListModel), QStringList { "#new" });
        h->peer->close();
        QTRY_VERIFY(!w->session()->isConnected());
        page->onDoubleClicked(page->model()->index(0, 0));
        QVERIFY(!n->tabs.contains("#new"));
        w->closeTab(w->tabWidget->indexOf(n->tabs.value("List").widget));
        QVERIFY(!n->tabs.contains("List") && !n->channelListModel && !n->listInfoLabel);
    }
};

QUENVAR_TEST_MAIN(TestChannelList)
#include "tst_channellist.moc"
