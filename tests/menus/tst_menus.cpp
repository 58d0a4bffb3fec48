// The window's menu bar, about and help boxes, status bar, theme, tray and
// notifications, and how it loads and applies the stored preferences.

#include "ChatView.h"
#include "EditTopicDialog.h"
#include "EmojiPicker.h"
#include "HighlightTabBar.h"
#include "IRCConnection.h"
#include "MainWindow.h"
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
#include <QListWidget>
#include <QMenuBar>
#include <QPushButton>
#include <QSettings>
#include <QSplitter>
#include <QStatusBar>
#include <QTemporaryDir>

#include <functional>

namespace {

QStringList menuEntries(QMenu* menu)
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

// Opens the box behind `trigger`, records what it shows and closes it with
// its OK button.
struct BoxSeen
{
    QString title;
    QString sheet;
    QStringList texts;
    bool hasIcon = false;
    QString okName;
    int okWidth = 0;
};

BoxSeen openBox(const std::function<void()>& trigger)
{
    BoxSeen seen;
    ModalDriver::onModal<QDialog>([&seen](QDialog* box) {
        seen.title = box->windowTitle();
        seen.sheet = box->styleSheet();
        for (QLabel* label : box->findChildren<QLabel*>()) {
            if (!label->pixmap().isNull())
                seen.hasIcon = true;
            else
                seen.texts << label->text();
        }
        auto* ok = box->findChild<QPushButton*>();
        seen.okName = ok->objectName();
        seen.okWidth = ok->width();
        ok->click();
    });
    trigger();
    return seen;
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
        QStringList titles;
        for (QAction* menu : menus)
            titles << menu->text();
        QCOMPARE(titles, (QStringList { "&Server", "&User", "&Channel", "&Settings", "About" }));
        QCOMPARE(menuEntries(menus.at(0)->menu()),
            (QStringList { "&Connect...", "&Disconnect", "-", "&Reconnect", "-", "&Quit" }));
        QCOMPARE(menuEntries(menus.at(1)->menu()), (QStringList { "Marked Away...", "Change Nick..." }));
        QCOMPARE(menuEntries(menus.at(2)->menu()), (QStringList { "&Join channel...", "Channel &List" }));
        QCOMPARE(menuEntries(menus.at(3)->menu()), QStringList { "&Preferences..." });
        QCOMPARE(menuEntries(menus.at(4)->menu()), (QStringList { "About Quenvar", "Help" }));
        QCOMPARE(w->awayAction, menus.at(1)->menu()->actions().at(0));
        QCOMPARE(w->changeNickAction, menus.at(1)->menu()->actions().at(1));
        QCOMPARE(menus.at(0)->menu()->actions().last()->shortcut(), QKeySequence(QKeySequence::Quit));
        for (QAction* menu : menus) {
            for (QAction* action : menu->menu()->actions()) {
                if (!action->isSeparator())
                    QCOMPARE(action->menuRole(), QAction::NoRole);
            }
        }
        QCOMPARE(w->themeAction, nullptr);
    }

    void menuActionsReachTheirSlots()
    {
        // "Channel List" before registration does nothing.
        QAction* list = w->menuBar()->actions().at(2)->menu()->actions().at(1);
        list->trigger();
        QVERIFY(!w->tabs.contains("List"));
        QVERIFY(h->connectAndRegister());
        list->trigger();
        QCOMPARE(w->currentTabName, QStringLiteral("List"));
        QVERIFY(h->peerGot("LIST"));

        // "Preferences..." opens a non-modal dialog that deletes itself.
        w->menuBar()->actions().at(3)->menu()->actions().at(0)->trigger();
        auto* prefs = w->findChild<PreferencesDialog*>();
        QVERIFY(prefs);
        QVERIFY(prefs->isVisible());
        QVERIFY(!prefs->isModal());
        QVERIFY(prefs->testAttribute(Qt::WA_DeleteOnClose));
        QPointer<PreferencesDialog> guard = prefs;
        prefs->close();
        QTRY_VERIFY(guard.isNull());
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
        w->appendMessageToTab("#a", "x", "bob", false);
        w->appendMessageToTab("bob", "x", "bob", false);
        w->show();
        auto tabCentre = [this](const QString& key) {
            for (int i = 0; i < w->tabWidget->count(); ++i) {
                if (w->tabWidget->tabText(i) == key)
                    return w->tabBar->tabRect(i).center();
            }
            return QPoint(-1, -1);
        };

        // "Server" has no menu; a chat tab offers closing and autojoin.
        QStringList items;
        const auto none = onNextMenu(QString(), &items);
        w->onTabContextMenu(tabCentre("Server"));
        QVERIFY(!none->handled);
        none->cancelled = true;
        onNextMenu(QString(), &items);
        w->onTabContextMenu(tabCentre("#a"));
        QCOMPARE(items, (QStringList { "Close", "Autojoin on connect" }));

        onNextMenu("Autojoin on connect");
        w->onTabContextMenu(tabCentre("#a"));
        QCOMPARE(w->favoriteChannels, QStringList { "#a" });
        ModalDriver::armWindow([] { return QApplication::activePopupWidget(); },
            [](QWidget* menu) { return qobject_cast<QMenu*>(menu) != nullptr; },
            [&items](QWidget* menu) {
                items.clear();
                for (QAction* action : menu->actions()) {
                    if (action->isCheckable() && action->isChecked())
                        items << action->text();
                }
                static_cast<QMenu*>(menu)->close();
            });
        w->onTabContextMenu(tabCentre("#a"));
        QCOMPARE(items, QStringList { "Autojoin on connect" });

        onNextMenu("Close");
        w->onTabContextMenu(tabCentre("#a"));
        QVERIFY(!w->tabs.contains("#a"));
        QVERIFY(h->peerGot("PART #a"));
        onNextMenu("Close");
        w->onTabContextMenu(tabCentre("bob"));
        QVERIFY(!w->tabs.contains("bob"));
        QCOMPARE(w->tabWidget->count(), 1);
    }

    // ---- About and help ------------------------------------------------------------

    void aboutBox_data()
    {
        QTest::addColumn<QString>("theme");
        QTest::newRow("light") << "light";
        QTest::newRow("dark") << "dark";
    }

    void aboutBox()
    {
        QFETCH(QString, theme);
        w->applyTheme(theme);
        const BoxSeen seen = openBox([this] { w->showAboutBox(); });
        QCOMPARE(seen.title, QStringLiteral("About Quenvar"));
        // White in every theme.
        QCOMPARE(seen.sheet, QStringLiteral("QDialog { background-color: #FFFFFF; }"));
        QVERIFY(seen.hasIcon);
        QVERIFY(seen.texts.contains("Quenvar"));
        QVERIFY(seen.texts.contains("Version 2.0 Ruskavel"));
        QVERIFY(seen.texts.join(' ').contains("cross-platform IRC client for macOS, Linux and Windows"));
        QCOMPARE(seen.okName, QStringLiteral("connectButton"));
        QCOMPARE(seen.okWidth, 88);
    }

    void helpBox()
    {
        w->applyTheme("dark");
        const BoxSeen seen = openBox([this] { w->showHelpBox(); });
        QCOMPARE(seen.title, QStringLiteral("Help"));
        QCOMPARE(seen.sheet, QStringLiteral("QDialog { background-color: #FFFFFF; }"));
        QVERIFY(seen.texts.contains("Basic IRC commands"));
        const QString table = seen.texts.join(' ');
        for (const char* command : { "/join #channel", "/part [#channel]", "/msg nick message", "/whois nick",
                 "/nick newnick", "/away message", "/list", "/topic [#channel]", "/kick nick [reason]",
                 "/me action", "/quit [message]", "/notice nick message", "/ctcp nick command",
                 "/mode #channel +o nick", "/invite nick #channel", "/who #channel", "/help [command]" })
            QVERIFY2(table.contains(QLatin1String(command)), command);
        QVERIFY(table.contains(QStringLiteral("Show help (server\u2011specific)")));
        QVERIFY(table.contains("Set away status (use /back to return)"));
        QCOMPARE(seen.okName, QStringLiteral("connectButton"));
    }

    // ---- Status bar ----------------------------------------------------------------

    void statusBarFollowsTheConnection()
    {
        QCOMPARE(statusText(w), QStringLiteral("Disconnected"));
        QCOMPARE(w->statusBar()->styleSheet(), QStringLiteral("QStatusBar { background-color: #f8d7da; }"));
        QVERIFY(h->connectAndRegister("mynick"));
        QCOMPARE(statusText(w), QStringLiteral("Connected to 127.0.0.1 as mynick"));
        QCOMPARE(w->statusBar()->styleSheet(), QStringLiteral("QStatusBar { background-color: #d4edda; }"));
        // The own nick confirmed by the server shows at once.
        h->serverSays(":mynick!u@h NICK :other");
        QCOMPARE(statusText(w), QStringLiteral("Connected to 127.0.0.1 as other"));
        // Theme changes keep the connection colours.
        w->applyTheme("dark");
        QCOMPARE(w->statusBar()->styleSheet(), QStringLiteral("QStatusBar { background-color: #d4edda; }"));
        h->peer->close();
        QTRY_COMPARE(statusText(w), QStringLiteral("Disconnected"));
    }

    // ---- Theme -------------------------------------------------------------------

    void darkThemeDarkensTheWindow()
    {
        w->appendMessageToTab("#a", "x", "bob", false);
        w->applyTheme("dark");
        QCOMPARE(QSettings().value("theme").toString(), QStringLiteral("dark"));
        QCOMPARE(w->currentTheme, QStringLiteral("dark"));
        QCOMPARE(w->styleSheet(), ThemeManager::globalStyleSheet("dark"));
        QCOMPARE(w->userList->styleSheet(), QStringLiteral("QListWidget { border: 1px solid #555; }"));
        QVERIFY(w->tabWidget->styleSheet().contains("background: #3A3A3A"));
        QVERIFY(w->tabWidget->styleSheet().contains("color: #EEEEEE"));
        QCOMPARE(w->splitter->styleSheet(), QStringLiteral("QSplitter::handle { background: transparent; }"));
        for (const MainWindow::TabInfo& tab : std::as_const(w->tabs)) {
            QCOMPARE(tab.chatView->palette().color(QPalette::Base), QColor("#1E1E1E"));
            QVERIFY(tab.chatView->styleSheet().contains("background-color: #1e1e1e"));
            QVERIFY(tab.chatView->styleSheet().contains("border: 1px solid #555"));
        }

        w->applyTheme("light");
        QCOMPARE(QSettings().value("theme").toString(), QStringLiteral("light"));
        QCOMPARE(w->userList->styleSheet(), QStringLiteral("QListWidget { border: 1px solid #ccc; }"));
        QVERIFY(w->tabWidget->styleSheet().contains("background: #F0F0F0"));
        QVERIFY(w->tabWidget->styleSheet().contains("QTabWidget::pane { border: none; padding: 0px; }"));
        QCOMPARE(w->tabs.value("#a").chatView->palette().color(QPalette::Base), QColor(Qt::white));
    }

    void highlightColourFollowsTheTheme()
    {
        // The tab bar paints highlighted titles in a colour of its theme.
        w->resize(800, 400);
        w->show();
        QVERIFY(QTest::qWaitForWindowExposed(w));
        w->appendMessageToTab("#a", "x", "bob", false);
        w->appendMessageToTab("#b", "x", "bob", false);
        w->tabWidget->setCurrentIndex(0);
        w->highlightTab("#b");
        const int index = w->tabWidget->indexOf(w->tabs.value("#b").widget);
        QVERIFY(w->tabBar->isHighlighted(index));
        const auto hasColour = [this, index](QRgb wanted) {
            const QImage image = w->tabBar->grab(w->tabBar->tabRect(index)).toImage();
            for (int y = 0; y < image.height(); ++y) {
                for (int x = 0; x < image.width(); ++x) {
                    if (image.pixel(x, y) == wanted)
                        return true;
                }
            }
            return false;
        };
        // The title blinks: wait for the highlighted phase in each theme.
        QTRY_VERIFY_WITH_TIMEOUT(hasColour(qRgb(0xFF, 0xB8, 0x00)), 3000);
        w->applyTheme("dark");
        QTRY_VERIFY_WITH_TIMEOUT(hasColour(qRgb(0xFF, 0xD7, 0x00)), 3000);
    }

    void startUsesTheStoredTheme()
    {
        QSettings().setValue("theme", "dark");
        newWindow();
        QCOMPARE(w->currentTheme, QStringLiteral("dark"));
        QCOMPARE(w->styleSheet(), ThemeManager::globalStyleSheet("dark"));
        QCOMPARE(QSettings().value("theme").toString(), QStringLiteral("dark"));
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
        QVERIFY(!w->isActiveWindow());
        w->showNotification("#a", "bob: hi");
        QCOMPARE(w->statusBar()->currentMessage(), QStringLiteral("#a: bob: hi"));
    }

    void applicationIcon()
    {
        QVERIFY(!QApplication::windowIcon().isNull());
    }

    // ---- Stored preferences -------------------------------------------------------------

    void blackBackgroundIsRepaired()
    {
        QSettings().setValue("chatBgColor", "#000000");
        newWindow();
        QVERIFY(!w->m_chatBgColor.isValid());
        QCOMPARE(QSettings().value("chatBgColor").toString(), QString());
        QCOMPARE(w->tabs.value("Server").chatView->palette().color(QPalette::Base), QColor(Qt::white));
    }

    void invalidColourIsRepairedToo()
    {
        QSettings().setValue("chatBgColor", "not a colour");
        newWindow();
        QVERIFY(!w->m_chatBgColor.isValid());
        QCOMPARE(QSettings().value("chatBgColor").toString(), QString());
    }

    void storedValuesAreLoaded()
    {
        QSettings settings;
        settings.setValue("timestampFormat", "[HH:mm]");
        settings.setValue("emojiSize", 31);
        settings.setValue("logEnabled", true);
        settings.setValue("logPath", "/var/log/irc");
        settings.setValue("chatBgColor", "#336699");
        settings.setValue("autoReconnect", false);
        settings.setValue("reconnectDelay", 99);
        settings.setValue("reconnectAttempts", 4);
        settings.setValue("pingInterval", 300);
        settings.setValue("pingTimeout", 60);
        settings.setValue("acceptInvalidSsl", true);
        settings.sync();
        newWindow();
        QCOMPARE(w->m_timestampFormat, QStringLiteral("[HH:mm]"));
        QCOMPARE(w->m_emojiSize, 31);
        QVERIFY(w->m_logEnabled);
        QCOMPARE(w->m_logPath, QStringLiteral("/var/log/irc"));
        QCOMPARE(w->m_chatBgColor, QColor("#336699"));
        QVERIFY(!w->m_autoReconnect);
        QCOMPARE(w->m_reconnectDelay, 99);
        QCOMPARE(w->m_reconnectAttempts, 4);
        QCOMPARE(w->m_pingInterval, 300);
        QCOMPARE(w->m_pingTimeout, 60);
        QVERIFY(w->m_acceptInvalidSSl);
        QCOMPARE(w->tabs.value("Server").chatView->palette().color(QPalette::Base), QColor("#336699"));
    }

    void imageBackgroundOnEveryView()
    {
        QTemporaryDir dir;
        const QString image = dir.filePath("bg.png");
        QImage picture(4, 4, QImage::Format_RGB32);
        picture.fill(Qt::darkCyan);
        QVERIFY(picture.save(image));
        QSettings().setValue("chatBgImage", image);
        newWindow();
        w->appendMessageToTab("#a", "x", "bob", false);
        w->show();
        QVERIFY(QTest::qWaitForWindowExposed(w));
        for (const MainWindow::TabInfo& tab : std::as_const(w->tabs)) {
            QVERIFY(tab.chatView->styleSheet().startsWith(QStringLiteral(
                "QTextBrowser {   border: 1px solid #ccc;   background-color: white;   border-image: url(\"%1\") "
                "0 0 0 0 stretch stretch; }").arg(image)));
        }
        // The picture is stretched over the view.
        ChatView* view = w->tabs.value("#a").chatView;
        const QImage shot = view->grab().toImage();
        QCOMPARE(QColor(shot.pixel(shot.width() / 2, shot.height() / 2)), QColor(Qt::darkCyan));
    }

    void unsetBackgroundFollowsTheTheme()
    {
        w->applyTheme("dark");
        w->applyChatBackground();
        QCOMPARE(w->tabs.value("Server").chatView->palette().color(QPalette::Base), QColor("#1E1E1E"));
        // New tabs take the current background.
        w->appendMessageToTab("bob", "hi", "bob", false);
        QCOMPARE(w->tabs.value("bob").chatView->palette().color(QPalette::Base), QColor("#1E1E1E"));
    }

    void storedChatFontIsApplied()
    {
        QFont font(QStringLiteral("DejaVu Serif"), 17);
        QSettings().setValue("chatFont", font.toString());
        newWindow();
        w->appendMessageToTab("#a", "x", "bob", false);
        QVERIFY(w->m_chatFontChosen);
        QCOMPARE(w->tabs.value("Server").chatView->font().pointSize(), 17);
        QCOMPARE(w->inputLine->font().family(), font.family());
    }

    void withoutAChosenFontTheViewsFollowTheMemberList()
    {
        QVERIFY(!w->m_chatFontChosen);
        QCOMPARE(w->tabs.value("Server").chatView->font(), w->userList->font());
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
        w->tabWidget->setCurrentWidget(w->tabs.value("#quenvar").widget);
        for (const QString& theme : { QStringLiteral("light"), QStringLiteral("dark"), QStringLiteral("glass") }) {
            w->applyTheme(theme);
            QTest::qWait(100);
            QVERIFY(w->grab().save(QStringLiteral("%1/main-%2.png").arg(dir, theme)));
        }
        w->applyTheme("light");

        h->window->requestChannelList();
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
        w->tabWidget->setCurrentWidget(w->tabs.value("#quenvar").widget);
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
