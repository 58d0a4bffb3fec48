// MainWindow: the menu bar, the status bar, the theme, the tray icon and
// notifications, and the preferences it applies (font, chat background).

#include "MainWindow.h"

#include "ChatPage.h"
#include "ChatView.h"
#include "EmojiPicker.h"
#include "HighlightTabBar.h"
#include "InfoBoxes.h"
#include "MemberListView.h"
#include "MyTabWidget.h"
#include "NetworkView.h"
#include "PreferencesDialog.h"
#include "IrcText.h"
#include "Session.h"
#include "ThemeManager.h"

#include <QAction>
#include <QApplication>
#include <QDialog>
#include <QLabel>
#include <QLineEdit>
#include <QMenu>
#include <QMenuBar>
#include <QPixmap>
#include <QPushButton>
#include <QSettings>
#include <QSplitter>
#include <QStatusBar>
#include <QSystemTrayIcon>
#include <QUrl>
#include <QVBoxLayout>

#include <functional>

namespace {

const QString AppIconPath = QStringLiteral(":/icons/app_icon");

} // namespace

// --- Menu bar ------------------------------------------------------------------------

void MainWindow::setupMenuBar()
{
    QMenuBar* bar = menuBar();
    const auto noRole = [](QAction* action) {
        action->setMenuRole(QAction::NoRole);
        return action;
    };

    QMenu* server = bar->addMenu(QStringLiteral("&Server"));
    noRole(server->addAction(QStringLiteral("&Connect..."), this, &MainWindow::showConnectDialog));
    noRole(server->addAction(QStringLiteral("&Disconnect"), this, &MainWindow::onDisconnectTriggered));
    server->addSeparator();
    noRole(server->addAction(QStringLiteral("&Reconnect"), this, &MainWindow::onReconnectTriggered));
    noRole(server->addAction(QStringLiteral("Open &log folder"), this, &MainWindow::openLogFolder));
    server->addSeparator();
    QAction* quit = noRole(server->addAction(QStringLiteral("&Quit"), qApp, &QApplication::quit));
    quit->setShortcut(QKeySequence::Quit);

    QMenu* user = bar->addMenu(QStringLiteral("&User"));
    awayAction = noRole(user->addAction(QStringLiteral("Marked Away..."), this, &MainWindow::onSetAway));
    changeNickAction = noRole(user->addAction(QStringLiteral("Change Nick..."), this, &MainWindow::onChangeNick));

    QMenu* channel = bar->addMenu(QStringLiteral("&Channel"));
    noRole(channel->addAction(QStringLiteral("&Join channel..."), this, &MainWindow::onJoinChannel));
    noRole(channel->addAction(QStringLiteral("Channel &List"), this, [this] { network()->requestChannelList(); }));

    QMenu* settings = bar->addMenu(QStringLiteral("&Settings"));
    noRole(settings->addAction(QStringLiteral("&Preferences..."), this, &MainWindow::openPreferencesWindow));

    QMenu* about = bar->addMenu(QStringLiteral("About"));
    noRole(about->addAction(QStringLiteral("About Quenvar"), this, &MainWindow::showAboutBox));
    noRole(about->addAction(QStringLiteral("Help"), this, &MainWindow::showHelpBox));
}

void MainWindow::showAboutBox()
{
    InfoBoxes::showAboutBox(this);
}

void MainWindow::showHelpBox()
{
    InfoBoxes::showHelpBox(this);
}

// --- Status bar, theme ---------------------------------------------------------------

void MainWindow::updateStatusBar()
{
    QStatusBar* bar = statusBar();
    auto* label = bar->findChild<QLabel*>(QStringLiteral("connectionStatus"));
    if (!label) {
        label = new QLabel(bar);
        label->setObjectName(QStringLiteral("connectionStatus"));
        // The host and nick come from the server: never markup.
        label->setTextFormat(Qt::PlainText);
        bar->addPermanentWidget(label);
    }
    bar->setStyleSheet(ThemeManager::statusBarStyleSheet(currentTheme, session()->isConnected()));
    if (!session()->isConnected()) {
        label->setText(QStringLiteral("Disconnected"));
    } else {
        // With several networks open, which one this is.
        QString server = session()->host();
        if (m_networks.size() > 1 && network()->name() != server)
            server = QStringLiteral("%1 (%2)").arg(network()->name(), server);
        label->setText(QStringLiteral("Connected to %1 as %2").arg(server, session()->nick()));
    }
}

void MainWindow::applyTheme(const QString& theme)
{
    setStyleSheet(QString());
    statusBar()->setStyleSheet(QString());
    menuBar()->setStyleSheet(QString());
    setAttribute(Qt::WA_TranslucentBackground, false);
    setAutoFillBackground(true);
    if (QWidget* central = centralWidget()) {
        central->setAttribute(Qt::WA_TranslucentBackground, false);
        central->setAutoFillBackground(true);
        central->setStyleSheet(QString());
        // The filled background is the theme's window colour, not the
        // platform's, so that the frame around the tabs matches the theme.
        QPalette palette = central->palette();
        palette.setColor(QPalette::Window, QColor(ThemeManager::palette(theme).windowBg));
        central->setPalette(palette);
    }

    setStyleSheet(ThemeManager::globalStyleSheet(theme));

    currentTheme = theme;
    QSettings settings;
    settings.setValue(QStringLiteral("theme"), theme);
    settings.sync();

    tabBar->setTheme(theme);
    userList->setStyleSheet(QStringLiteral("QListView { border: 1px solid %1; }")
                                .arg(theme == QLatin1String("dark") ? QStringLiteral("#555")
                                                                    : QStringLiteral("#ccc")));
    tabWidget->setStyleSheet(ThemeManager::tabWidgetStyleSheet(theme));

    splitter->setStyleSheet(QStringLiteral("QSplitter::handle { background: transparent; }"));
    applyChatBackground();
    for (NetworkView* network : std::as_const(m_networks)) {
        for (auto it = network->tabs.cbegin(); it != network->tabs.cend(); ++it)
            network->updateTopicLabel(it.key());
    }
    tabBar->updateGeometry();
    userList->setVisible(userListShouldBeVisible);
    updateStatusBar();
    update();
}

// --- Preferences -------------------------------------------------------------------

void MainWindow::openPreferencesWindow()
{
    auto* dialog = new PreferencesDialog(this, this);
    dialog->setAttribute(Qt::WA_DeleteOnClose);
    dialog->show();
}

void MainWindow::loadPreferences()
{
    ChatPreferences::load(prefs);
    applyChatFont();
    applyChatBackground();
    applyConnectionPreferences();
}

void MainWindow::applyConnectionPreferences()
{
    Session::ReconnectPolicy policy;
    policy.enabled = prefs.autoReconnect;
    policy.delaySec = qBound(1, prefs.reconnectDelay, Session::MaxReconnectDelaySec);
    policy.maxAttempts = qBound(0, prefs.reconnectAttempts, 100);
    for (const NetworkView* network : std::as_const(m_networks)) {
        Session* session = network->session();
        session->setReconnectPolicy(policy);
        session->setAcceptInvalidCertificates(prefs.acceptInvalidSsl);
        session->setLogging(prefs.logEnabled, prefs.logPath, &IrcText::stripFormatting);
        session->setBacklog(prefs.backlogLines);
        session->setKeepAlive(qBound(10, prefs.pingInterval, 600), qBound(5, prefs.pingTimeout, 120));
    }
}

QFont MainWindow::currentChatFont() const
{
    return prefs.chatFontChosen ? prefs.chatFont : userList->font();
}

void MainWindow::applyChatFont()
{
    const QFont font = currentChatFont();
    inputLine->setFont(font);
    EmojiPicker::setPreferredSize(prefs.emojiSize);
    // The themes give line edits a font size of their own; the input line's
    // own sheet wins over the window's, so the chosen size holds in every theme.
    QString family = font.family();
    family.remove(QLatin1Char('"'));
    const QString size = font.pointSizeF() > 0 ? QStringLiteral("%1pt").arg(font.pointSizeF())
                                               : QStringLiteral("%1px").arg(font.pixelSize());
    inputLine->setStyleSheet(
        QStringLiteral("QLineEdit { padding: 4px 8px; font-family: \"%1\"; font-size: %2; }").arg(family, size));
    for (const NetworkView* network : std::as_const(m_networks)) {
        for (const NetworkView::TabInfo& info : network->tabs) {
            if (info.chatView) {
                info.chatView->setFont(font);
                info.chatView->setTimestampFormat(prefs.timestampFormat);
                info.chatView->setEmojiSize(prefs.emojiSize);
            }
        }
    }
}

void MainWindow::applyChatBackground()
{
    for (const NetworkView* network : std::as_const(m_networks)) {
        for (const NetworkView::TabInfo& info : network->tabs) {
            if (info.chatView)
                ChatPage::applyBackground(info.chatView, prefs, currentTheme);
        }
    }
}

// --- Tray and notifications ------------------------------------------------------------

void MainWindow::initSystemTray()
{
    const QIcon icon(AppIconPath);
    QApplication::setWindowIcon(icon);
    if (!QSystemTrayIcon::isSystemTrayAvailable())
        return;

    trayIcon = new QSystemTrayIcon(icon, this);
    trayIcon->setToolTip(QStringLiteral("Quenvar"));
    connect(trayIcon, &QSystemTrayIcon::activated, this, [this](QSystemTrayIcon::ActivationReason reason) {
        if (reason != QSystemTrayIcon::Trigger && reason != QSystemTrayIcon::DoubleClick)
            return;
        if (isMinimized())
            showNormal();
        raise();
        activateWindow();
    });
    auto* menu = new QMenu(this);
    menu->addAction(QStringLiteral("Show Quenvar"), this, [this] {
        showNormal();
        raise();
        activateWindow();
    });
    menu->addSeparator();
    menu->addAction(QStringLiteral("Quit"), qApp, &QApplication::quit);
    trayIcon->setContextMenu(menu);
    trayIcon->show();
}

void MainWindow::showNotification(const QString& title, const QString& message)
{
    if (trayIcon && QSystemTrayIcon::supportsMessages()) {
        trayIcon->showMessage(title, message, QSystemTrayIcon::Information, 5000);
        return;
    }
    if (isActiveWindow())
        return;
    if (auto* bar = findChild<QStatusBar*>(QString(), Qt::FindDirectChildrenOnly))
        bar->showMessage(title + QStringLiteral(": ") + message, 5000);
}
