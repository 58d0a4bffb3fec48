// The window's menu bar, about and help boxes, status bar, theme, tray and
// notifications, and how it applies the stored preferences.

#include "ChatView.h"
#include "EditTopicDialog.h"
#include "EmojiPicker.h"
#include "HighlightTabBar.h"
#include "IRCConnection.h"
#include "MainWindow.h"
#include "NetworkView.h"
#include "MemberListView.h"
#include "Session.h"
#include "ModalDriver.h"
#include "MyTabWidget.h"
#include "PreferencesDialog.h"
#include "TestMain.h"
#include "ThemeManager.h"
#include "WindowHarness.h"

#include <QAction>
#include <QImage>
#include <QInputDialog>
#include <QLabel>
#include <QLineEdit>
#include <QMenuBar>
#include <QPushButton>
#include <QSettings>
#include <QStatusBar>
#include <QTemporaryDir>

#include <algorithm>
#include <functional>

namespace {

// The entries of a menu (separators as "-") or the titles of a menu bar.
QStringList menuEntries(QWidget* menu)
{
    QStringList entries;
    for (QAction* action : menu->actions())
        entries << (action->isSeparator() ? QStringLiteral("-") : action->text());
    return entries;
}

QString statusText(MainWindow* window)
{
    auto* label = window->statusBar()->findChild<QLabel*>(QStringLiteral("connectionStatus"));
    return label ? label->text() : QString();
}

QColor viewBackground(MainWindow* window, const QString& tab)
{
    return window->network()->tabs.value(tab).chatView->palette().color(QPalette::Base);
}

// Opens the box behind `trigger` and closes it with its OK button. Returns
// its title, its style sheet, the texts of its labels ("<icon>" for the
// picture) and last the OK button's object name.
QStringList openBox(const std::function<void()>& trigger)
{
    QStringList seen;
    ModalDriver::onModal<QDialog>([&seen](QDialog* box) {
        seen << box->windowTitle() << box->styleSheet();
        for (QLabel* label : box->findChildren<QLabel*>())
            seen << (label->pixmap().isNull() ? label->text() : QStringLiteral("<icon>"));
        auto* ok = box->findChild<QPushButton*>();
        seen << ok->objectName();
        ok->click();
    });
    trigger();
    return seen;
}

// Whether `widget` shows `colour` somewhere in `area`.
bool paints(QWidget* widget, const QRect& area, QRgb colour)
{
    const QImage image = widget->grab(area).toImage().convertToFormat(QImage::Format_RGB32);
    const auto* pixels = reinterpret_cast<const QRgb*>(image.constBits());
    const auto* end = pixels + image.width() * image.height();
    return std::find(pixels, end, colour) != end;
}

QPoint tabCentre(MainWindow* window, const QString& title)
{
    for (int i = 0; i < window->tabWidget->count(); ++i) {
        if (window->tabKey(i) == title)
            return window->tabBar->tabRect(i).center();
    }
    return QPoint(-1, -1);
}

} // namespace

class TestMenus : public QObject
{
    Q_OBJECT

private:
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

    // ---- Menus ----------------------------------------------------------------

    void menuBarEntries()
    {
        const QList<QAction*> menus = w->menuBar()->actions();
        QCOMPARE(menuEntries(w->menuBar()),
            (QStringList { "&Server", "&User", "&Channel", "&Settings", "About" }));
        QCOMPARE(menuEntries(menus.at(0)->menu()),
            (QStringList { "&Connect...", "&Disconnect", "-", "&Reconnect", "Open &log folder", "-", "&Quit" }));
        QCOMPARE(menuEntries(menus.at(1)->menu()), (QStringList { "Marked Away...", "Change Nick..." }));
        QCOMPARE(menuEntries(menus.at(2)->menu()), (QStringList { "&Join channel...", "Channel &List" }));
        QCOMPARE(menuEntries(menus.at(3)->menu()), QStringList { "&Preferences..." });
        QCOMPARE(menuEntries(menus.at(4)->menu()), (QStringList { "About Quenvar", "Help" }));
        // The away entry is the one whose text follows the away state.
        QCOMPARE(w->awayAction, menus.at(1)->menu()->actions().at(0));
        QCOMPARE(menus.at(0)->menu()->actions().last()->shortcut(), QKeySequence(QKeySequence::Quit));
        // No entry moves into the application menu on macOS.
        for (QAction* menu : menus) {
            for (QAction* action : menu->menu()->actions())
                QVERIFY(action->isSeparator() || action->menuRole() == QAction::NoRole);
        }
    }

    void menuActionsReachTheirSlots()
    {
        // "Channel List" before registration does nothing.
        QAction* list = w->menuBar()->actions().at(2)->menu()->actions().at(1);
        list->trigger();
        QVERIFY(!w->network()->tabs.contains("List"));
        QVERIFY(h->connectAndRegister());
        list->trigger();
        QCOMPARE(w->currentTabName, QStringLiteral("List"));
        QVERIFY(h->peerGot("LIST"));

        // "Preferences..." opens a non-modal dialog that goes away when closed.
        w->menuBar()->actions().at(3)->menu()->actions().at(0)->trigger();
        QPointer<PreferencesDialog> prefs = w->findChild<PreferencesDialog*>();
        QVERIFY(prefs && prefs->isVisible());
        QVERIFY(!prefs->isModal());
        prefs->close();
        QTRY_VERIFY(prefs.isNull());
    }

    void joinChannelAsksForAName()
    {
        const auto refused = ModalDriver::onMessageBox("Error", QMessageBox::Ok);
        w->onJoinChannel();
        QVERIFY(refused->handled);
        QCOMPARE(refused->text, QStringLiteral("Not connected."));

        QVERIFY(h->connect());
        ModalDriver::onModal<QInputDialog>([](QInputDialog* dialog) {
            QCOMPARE(dialog->windowTitle(), QStringLiteral("Join Channel"));
            QCOMPARE(dialog->labelText(), QStringLiteral("Channel name (e.g. #linux):"));
            dialog->setTextValue("linux");
            dialog->accept();
        });
        w->onJoinChannel();
        QVERIFY(h->peerGot("JOIN #linux"));
    }

    void tabContextMenu()
    {
        QVERIFY(h->connect());
        w->session()->addLine("#a", "x", "bob", false);
        w->session()->addLine("bob", "x", "bob", false);
        w->show();
        // "Server" has no menu.
        const auto none = onNextMenu(QString());
        w->onTabContextMenu(tabCentre(w, "Server"));
        QVERIFY(!none->handled);
        none->cancelled = true;

        QStringList items;
        onNextMenu("Autojoin on connect", &items);
        w->onTabContextMenu(tabCentre(w, "#a"));
        QCOMPARE(items, (QStringList { "Close", "Autojoin on connect" }));
        QCOMPARE(w->session()->autojoinChannels(), QStringList { "#a" });
        onNextMenu("Autojoin on connect"); // now checked: unchecking removes it
        w->onTabContextMenu(tabCentre(w, "#a"));
        QVERIFY(w->session()->autojoinChannels().isEmpty());

        onNextMenu("Close");
        w->onTabContextMenu(tabCentre(w, "#a"));
        QVERIFY(!w->network()->tabs.contains("#a"));
        QVERIFY(h->peerGot("PART #a"));
        onNextMenu("Close");
        w->onTabContextMenu(tabCentre(w, "bob"));
        QVERIFY(!w->network()->tabs.contains("bob"));
        QCOMPARE(w->tabWidget->count(), 1);
    }

    // ---- About and help ------------------------------------------------------------

    // Both boxes stay white in every theme, with the accent OK button.
    void aboutAndHelpBoxes()
    {
        w->applyTheme("dark");
        const QString white = QStringLiteral("QDialog { background-color: #FFFFFF; }");
        const QStringList about = openBox([this] { w->showAboutBox(); });
        QCOMPARE(about.mid(0, 5),
            (QStringList { "About Quenvar", white, "<icon>", "Quenvar", "Version 2.0 Ruskavel" }));
        QVERIFY(about.join(' ').contains("cross-platform IRC client for macOS, Linux and Windows"));
        QCOMPARE(about.last(), QStringLiteral("connectButton"));
        QVERIFY(!QApplication::windowIcon().isNull());

        const QStringList help = openBox([this] { w->showHelpBox(); });
        QCOMPARE(help.mid(0, 4), (QStringList { "Help", white, "<icon>", "Basic IRC commands" }));
        const QString table = help.join(' ');
        for (const char* command : { "/join #channel[,#more] [keys]", "/part [#channel] [reason]",
                 "/msg nick message", "/query nick [message]", "/whois nick", "/who mask", "/nick newnick",
                 "/away [message]", "/back", "/list", "/topic [#channel] [text]", "/kick nick [reason]",
                 "/ban nick", "/me action", "/quit [reason]", "/notice nick|#channel message",
                 "/ctcp nick command [args]", "/mode [target] modes", "/op nick...", "/deop nick...",
                 "/voice nick...", "/devoice nick...", "/invite nick [#channel]", "/close", "/clear",
                 "/autojoin #channel", "/raw line", "/help [command]" })
            QVERIFY2(table.contains(QLatin1String(command)), command);
        QVERIFY(table.contains("Set away status (also /a; use /back to return)"));
    }

    // ---- Status bar ----------------------------------------------------------------

    void statusBarFollowsTheConnection()
    {
        // The bar as shown: its hue (pink or red about 355, green about 135)
        // and how light it is.
        const auto shown = [this] {
            const QImage image = w->statusBar()->grab().toImage();
            return image.pixelColor(image.width() / 4, image.height() / 2);
        };
        const auto red
            = [](const QColor& c) { return c.hslHue() >= 330 || (c.hslHue() >= 0 && c.hslHue() <= 20); };
        const auto green = [](const QColor& c) { return c.hslHue() >= 90 && c.hslHue() <= 160; };
        QCOMPARE(statusText(w), QStringLiteral("Disconnected"));
        QVERIFY(red(shown()));
        QVERIFY(h->connectAndRegister("mynick"));
        QCOMPARE(statusText(w), QStringLiteral("Connected to 127.0.0.1 as mynick"));
        QVERIFY(green(shown()) && shown().lightnessF() > 0.5);
        // The own nick confirmed by the server shows at once.
        h->serverSays(":mynick!u@h NICK :other");
        QCOMPARE(statusText(w), QStringLiteral("Connected to 127.0.0.1 as other"));
        // The dark theme keeps the connection colours, in its own shade.
        w->applyTheme("dark");
        QVERIFY(green(shown()) && shown().lightnessF() < 0.5);
        h->peer->close();
        QTRY_COMPARE(statusText(w), QStringLiteral("Disconnected"));
        QVERIFY(red(shown()) && shown().lightnessF() < 0.5);
    }

    // ---- Theme -------------------------------------------------------------------

    void darkThemeDarkensTheWindow()
    {
        w->resize(800, 400);
        w->show();
        QVERIFY(QTest::qWaitForWindowExposed(w));
        w->session()->addLine("#a", "x", "bob", false);
        w->session()->addLine("#b", "x", "bob", false);
        w->tabWidget->setCurrentIndex(0);
        w->network()->highlightTab("#b");
        w->applyTheme("dark");
        QCOMPARE(QSettings().value("theme").toString(), QStringLiteral("dark"));
        QCOMPARE(w->currentTheme, QStringLiteral("dark"));
        QCOMPARE(w->styleSheet(), ThemeManager::globalStyleSheet("dark"));
        QCOMPARE(w->userList->styleSheet(), QStringLiteral("QListView { border: 1px solid #555; }"));
        QVERIFY(w->tabWidget->styleSheet().contains("background: #3A3A3A"));
        QVERIFY(w->tabWidget->styleSheet().contains("color: #EEEEEE"));
        for (const NetworkView::TabInfo& tab : std::as_const(w->network()->tabs)) {
            QCOMPARE(tab.chatView->palette().color(QPalette::Base), QColor("#1E1E1E"));
            QVERIFY(tab.chatView->styleSheet().contains("border: 1px solid #555"));
        }
        // New tabs take the current background.
        w->session()->addLine("bob", "hi", "bob", false);
        QCOMPARE(viewBackground(w, "bob"), QColor("#1E1E1E"));
        // Highlighted titles take the theme's colour (in the lit phase of their blinking).
        const QRect title = w->tabBar->tabRect(w->tabWidget->indexOf(w->network()->tabs.value("#b").widget));
        QTRY_VERIFY_WITH_TIMEOUT(paints(w->tabBar, title, qRgb(0xFF, 0xD7, 0x00)), 3000);

        w->applyTheme("light");
        QCOMPARE(QSettings().value("theme").toString(), QStringLiteral("light"));
        QCOMPARE(w->userList->styleSheet(), QStringLiteral("QListView { border: 1px solid #ccc; }"));
        QVERIFY(w->tabWidget->styleSheet().contains("background: #F0F0F0"));
        QCOMPARE(viewBackground(w, "#a"), QColor(Qt::white));
    }

    // ---- Notifications ----------------------------------------------------------------

    void notificationsWithoutATray()
    {
        if (w->trayIcon)
            QSKIP("this platform has a system tray");
        // Active window: dropped.
        w->show();
        w->activateWindow();
        QVERIFY(QTest::qWaitForWindowActive(w));
        w->showNotification("#a", "bob: hi");
        QVERIFY(w->statusBar()->currentMessage().isEmpty());
        // Inactive: shown in the status bar.
        QWidget other;
        other.show();
        other.activateWindow();
        QVERIFY(QTest::qWaitForWindowActive(&other));
        w->showNotification("#a", "bob: hi");
        QCOMPARE(w->statusBar()->currentMessage(), QStringLiteral("#a: bob: hi"));
    }

    // ---- Stored preferences -------------------------------------------------------------

    // What the window shows at start follows the store: the theme, the chat
    // background (a picture stretched over every view) and the chat font.
    void storedPreferencesAreApplied()
    {
        // Without a stored font the views take the member list's.
        QVERIFY(!w->prefs.chatFontChosen);
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
        QCOMPARE(w->styleSheet(), ThemeManager::globalStyleSheet("dark"));
        QVERIFY(w->prefs.chatFontChosen);
        QCOMPARE(w->network()->tabs.value("Server").chatView->font().pointSize(), 17);
        QCOMPARE(w->inputLine->font().family(), font.family());

        // A tab opened later reads in the same font.
        w->session()->addLine("#a", "x", "bob", false);
        QCOMPARE(w->network()->tabs.value("#a").chatView->font().pointSize(), 17);
        w->show();
        QVERIFY(QTest::qWaitForWindowExposed(w));
        for (const NetworkView::TabInfo& tab : std::as_const(w->network()->tabs))
            QVERIFY(tab.chatView->styleSheet().contains(
                "border-image: url(\"" + image + "\") 0 0 0 0 stretch stretch;"));
        const QImage shot = w->network()->tabs.value("#a").chatView->grab().toImage();
        QCOMPARE(QColor(shot.pixel(shot.width() / 2, shot.height() / 2)), QColor(Qt::darkCyan));
    }

    // A stored colour paints the views; black or unreadable ones count as
    // none and are cleared in the store.
    void storedColour_data()
    {
        QTest::addColumn<QString>("colour");
        QTest::addColumn<QString>("kept");
        QTest::newRow("colour") << "#336699"
                                << "#336699";
        QTest::newRow("black") << "#000000"
                               << "";
        QTest::newRow("invalid") << "not a colour"
                                 << "";
    }

    void storedColour()
    {
        QFETCH(QString, colour);
        QFETCH(QString, kept);
        QSettings().setValue("chatBgColor", colour);
        newWindow();
        QCOMPARE(QSettings().value("chatBgColor").toString(), kept);
        QCOMPARE(w->prefs.chatBgColor.isValid(), !kept.isEmpty());
        QCOMPARE(viewBackground(w, "Server"), kept.isEmpty() ? QColor(Qt::white) : QColor(kept));
    }

    // With QUENVAR_SCREENSHOT_DIR set: the main window in each theme with a
    // busy channel, the list tab with a filter, the about and help boxes,
    // the emoji popup and the topic editor, saved as PNG files there.
    void screenshots()
    {
        const QString dir = qEnvironmentVariable("QUENVAR_SCREENSHOT_DIR");
        if (dir.isEmpty())
            QSKIP("QUENVAR_SCREENSHOT_DIR not set");
        QVERIFY(h->connectAndRegister("alice"));
        w->resize(1100, 640);
        w->show();
        QVERIFY(QTest::qWaitForWindowExposed(w));
        h->serverSays(":alice!a@h JOIN :#quenvar\n"
                      ":irc.test 332 alice #quenvar :\x02Quenvar\x02 \x03" "4release\x03 day \xe2\x80\x94 notes at https://example.org/notes\n"
                      ":irc.test 353 alice = #quenvar :@alice +bob carol averyveryverylongnickname ~dave\n"
                      ":irc.test 366 alice #quenvar :End");
        QByteArray chatter;
        for (int i = 0; i < 40; ++i) {
            const char* nicks[] = { "bob", "carol", "averyveryverylongnickname", "dave" };
            chatter += QByteArray(":") + nicks[i % 4] + "!u@h PRIVMSG #quenvar :message " + QByteArray::number(i)
                + (i % 9 == 3 ? " with a link https://example.org/page/" + QByteArray::number(i) : QByteArray())
                + (i == 37 ? " alice: are you around?" : "") + "\n";
        }
        chatter += ":bob!u@h PRIVMSG alice :a private word\n";
        h->serverSays(chatter);
        w->tabWidget->setCurrentWidget(w->network()->tabs.value("#quenvar").widget);
        for (const QString& theme : { QStringLiteral("light"), QStringLiteral("dark"), QStringLiteral("glass") }) {
            w->applyTheme(theme);
            QTest::qWait(100);
            QVERIFY(w->grab().save(QStringLiteral("%1/main-%2.png").arg(dir, theme)));
        }
        w->applyTheme("light");

        h->window->network()->requestChannelList();
        h->serverSays(":irc.test 321 alice Channel :Users Name\n"
                      ":irc.test 322 alice #linux 120 :All about the Linux kernel\n"
                      ":irc.test 322 alice #games 45 :Online games and chat\n"
                      ":irc.test 322 alice #quenvar 5 :Quenvar testing\n"
                      ":irc.test 323 alice :End");
        QTest::keyClicks(w->channelSearchEdit, "lin");
        QTest::qWait(100);
        QVERIFY(w->grab().save(dir + "/list-filtered.png"));

        for (const auto& [name, open] : { std::pair<QString, std::function<void()>> { "about", [this] { w->showAboutBox(); } },
                 std::pair<QString, std::function<void()>> { "help", [this] { w->showHelpBox(); } } }) {
            ModalDriver::onModal<QDialog>([dir, name](QDialog* box) {
                QTest::qWait(50);
                box->grab().save(QStringLiteral("%1/%2.png").arg(dir, name));
                box->accept();
            });
            open();
        }

        // The emoji popup in both themes, and the topic editor.
        w->tabWidget->setCurrentWidget(w->network()->tabs.value("#quenvar").widget);
        for (const QString& theme : { QStringLiteral("light"), QStringLiteral("dark") }) {
            EmojiPicker picker(w, theme);
            picker.show();
            QTest::qWait(50);
            QVERIFY(picker.grab().save(QStringLiteral("%1/emoji-%2.png").arg(dir, theme)));
        }
        ModalDriver::onModal<EditTopicDialog>([dir](EditTopicDialog* editor) {
            QTest::qWait(50);
            editor->grab().save(dir + "/topic-editor.png");
            editor->reject();
        });
        w->editTopic("#quenvar");
    }
};

QUENVAR_TEST_MAIN(TestMenus)
#include "tst_menus.moc"
