// The window's menu bar acting on the current network, the tab menu, the
// theme, and the stored preferences applied at start.

#include "ChatView.h"
#include "HighlightTabBar.h"
#include "MemberListView.h"
#include "MyTabWidget.h"
#include "TestMain.h"
#include "ThemeManager.h"
#include "WindowHarness.h"

#include <QLineEdit>
#include <QMenuBar>
#include <QSettings>
#include <QTemporaryDir>

namespace {

// The menu bar entry showing `text` (shortcut marks ignored).
QAction* entry(MainWindow* window, const QString& text)
{
    for (QAction* menu : window->menuBar()->actions()) {
        for (QAction* action : menu->menu()->actions()) {
            if (action->text().remove('&') == text)
                return action;
        }
    }
    qFatal("no menu entry %s", qPrintable(text));
}

QColor viewBackground(MainWindow* window, const QString& tab)
{
    return window->network()->tabs.value(tab).chatView->palette().color(QPalette::Base);
}

bool paints(QWidget* widget, const QRect& area, const QColor& colour)
{
    const QImage image = widget->grab(area).toImage().convertToFormat(QImage::Format_RGB32);
    const auto* pixels = reinterpret_cast<const QRgb*>(image.constBits());
    return std::count(pixels, pixels + image.width() * image.height(), colour.rgb()) > 0;
}

} // namespace

class TestMenus : public QObject
{
    Q_OBJECT

    std::unique_ptr<WindowHarness> h;
    MainWindow* w = nullptr;

    void newWindow()
    {
        h = std::make_unique<WindowHarness>();
        w = h->window.get();
    }

private slots:
    void init()
    {
        QSettings().clear();
        newWindow();
    }
    void cleanup() { h.reset(); }

    void menuEntries_data()
    {
        QTest::addColumn<QString>("entry");
        QTest::addColumn<QString>("typed"); // into the dialog the entry opens, if any
        QTest::addColumn<QString>("sent");
        const auto row = [](const char* entry, const char* typed, const char* sent) {
            QTest::addRow("%s", entry) << QString(entry) << QString(typed) << QString(sent);
        };
        row("Channel List", "", "LIST");
        row("Join channel...", "linux", "JOIN #linux");
        row("Change Nick...", "newer", "NICK newer");
        row("Marked Away...", "lunch", "AWAY :lunch");
        row("Disconnect", "", "QUIT");
    }

    // With two networks open, an entry reaches the current tab's network only.
    void menuEntries()
    {
        QFETCH(QString, entry);
        QFETCH(QString, typed);
        QFETCH(QString, sent);
        QVERIFY(h->connectAndRegister("one"));
        std::unique_ptr<LinePeer> first = std::move(h->peer);
        NetworkView* one = w->network();
        NetworkView* two = w->addNetwork();
        two->showTab(QStringLiteral("Server"));
        QVERIFY(h->connectAndRegister("two"));
        for (NetworkView* current : { two, one }) {
            current->showTab(QStringLiteral("Server"));
            QCOMPARE(w->network(), current);
            LinePeer* mine = current == one ? first.get() : h->peer.get();
            LinePeer* other = current == one ? h->peer.get() : first.get();
            mine->clear();
            other->clear();
            const auto dialog = ModalDriver::onModal<QDialog>([typed](QDialog* d) {
                d->findChild<QLineEdit*>()->setText(typed);
                d->accept();
            });
            ::entry(w, entry)->trigger();
            QVERIFY(QTest::qWaitFor([&] { return !mine->linesStartingWith(sent).isEmpty(); }, 5000));
            QCOMPARE(dialog->handled, !typed.isEmpty());
            dialog->cancelled = true;
            QVERIFY(other->linesStartingWith(sent.section(' ', 0, 0)).isEmpty());
        }
        if (sent == "QUIT")
            QTRY_VERIFY(!one->session()->isConnected() && !two->session()->isConnected());
    }

    void entriesWithoutAConnection()
    {
        // "Channel List" before registration does nothing; "Join" says why.
        entry(w, "Channel List")->trigger();
        QVERIFY(!w->network()->tabs.contains("List"));
        const auto refused = ModalDriver::onMessageBox("Error", QMessageBox::Ok);
        entry(w, "Join channel...")->trigger();
        QVERIFY(refused->handled);
    }

    void tabContextMenu()
    {
        QVERIFY(h->connect());
        w->session()->addLine("#a", "x", "bob", false);
        w->session()->addLine("bob", "x", "bob", false);
        w->show();
        const auto at = [this](const char* key) {
            return w->tabBar->tabRect(w->tabWidget->indexOf(w->network()->tabs.value(key).widget)).center();
        };
        const auto none = onNextMenu(QString()); // "Server" has no menu
        w->onTabContextMenu(at("Server"));
        QVERIFY(!none->handled);
        none->cancelled = true;

        for (const QStringList& autojoin : { QStringList { "#a" }, QStringList() }) { // checks, then unchecks
            onNextMenu("Autojoin on connect");
            w->onTabContextMenu(at("#a"));
            QCOMPARE(w->session()->autojoinChannels(), autojoin);
        }

        onNextMenu("Close");
        w->onTabContextMenu(at("#a"));
        QVERIFY(!w->network()->tabs.contains("#a"));
        QVERIFY(h->peerGot("PART #a"));
        onNextMenu("Close");
        w->onTabContextMenu(at("bob"));
        QCOMPARE(w->tabWidget->count(), 1);
    }

    // The theme is stored and reaches every view, tabs opened later and the
    // blinking titles.
    void themeReachesEveryView()
    {
        w->show();
        QVERIFY(QTest::qWaitForWindowExposed(w));
        w->session()->addLine("#a", "x", "bob", false);
        w->session()->addLine("#b", "x", "bob", false);
        w->tabWidget->setCurrentIndex(0);
        w->network()->highlightTab("#b");
        w->applyTheme("dark");
        QCOMPARE(QSettings().value("theme").toString(), QStringLiteral("dark"));
        for (const NetworkView::TabInfo& tab : std::as_const(w->network()->tabs))
            QVERIFY(tab.chatView->palette().color(QPalette::Base).lightnessF() < 0.3);
        w->session()->addLine("bob", "hi", "bob", false);
        QVERIFY(viewBackground(w, "bob").lightnessF() < 0.3);
        const QRect title = w->tabBar->tabRect(w->tabWidget->indexOf(w->network()->tabs.value("#b").widget));
        QTRY_VERIFY_WITH_TIMEOUT(paints(w->tabBar, title, ThemeManager::tabColours("dark").highlight), 3000);
        w->applyTheme("light");
        QCOMPARE(QSettings().value("theme").toString(), QStringLiteral("light"));
        QCOMPARE(viewBackground(w, "#a"), QColor(Qt::white));
    }

    // At start the window follows the store: the theme, the chat background
    // (a picture stretched over every view, or a colour) and the chat font.
    void storedPreferencesAreApplied()
    {
        // Without a stored font the views take the member list's.
        QCOMPARE(w->network()->tabs.value("Server").chatView->font(), w->userList->font());
        QTemporaryDir dir;
        const QString image = dir.filePath("bg.png");
        QImage picture(4, 4, QImage::Format_RGB32);
        picture.fill(Qt::darkCyan);
        QVERIFY(picture.save(image));
        const QFont font(QStringLiteral("DejaVu Serif"), 17);
        QSettings settings;
        settings.setValue("theme", "dark");
        settings.setValue("chatBgImage", image);
        settings.setValue("chatFont", font.toString());
        settings.sync();
        newWindow();
        QCOMPARE(w->currentTheme, QStringLiteral("dark"));
        QCOMPARE(w->network()->tabs.value("Server").chatView->font().pointSize(), 17);
        QCOMPARE(w->inputLine->font().family(), font.family());
        w->session()->addLine("#a", "x", "bob", false); // a tab opened later too
        QCOMPARE(w->network()->tabs.value("#a").chatView->font().pointSize(), 17);
        w->show();
        QVERIFY(QTest::qWaitForWindowExposed(w));
        const QImage shot = w->network()->tabs.value("#a").chatView->grab().toImage();
        QCOMPARE(QColor(shot.pixel(shot.width() / 2, shot.height() / 2)), QColor(Qt::darkCyan));
        // A stored colour paints the views; black or unreadable ones count as
        // none and are cleared in the store.
        for (const auto& [colour, kept] : { std::pair<QString, QString> { "#336699", "#336699" },
                 { "#000000", "" }, { "not a colour", "" } }) {
            QSettings().clear();
            QSettings().setValue("chatBgColor", colour);
            newWindow();
            QCOMPARE(QSettings().value("chatBgColor").toString(), kept);
            QCOMPARE(viewBackground(w, "Server"), kept.isEmpty() ? QColor(Qt::white) : QColor(kept));
        }
    }
};

QUENVAR_TEST_MAIN(TestMenus)
#include "tst_menus.moc"
