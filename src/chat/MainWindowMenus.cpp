// MainWindow: the menu bar, the about and help boxes, the status bar, the
// theme, the tray icon and notifications, and the preferences it applies.

#include "MainWindow.h"

#include "ChatView.h"
#include "HighlightTabBar.h"
#include "IRCConnection.h"
#include "MyTabWidget.h"
#include "PreferencesDialog.h"
#include "ThemeManager.h"

#include <QAction>
#include <QApplication>
#include <QDialog>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QMenu>
#include <QMenuBar>
#include <QPixmap>
#include <QPushButton>
#include <QSettings>
#include <QSplitter>
#include <QStatusBar>
#include <QSystemTrayIcon>
#include <QVBoxLayout>

#include <functional>

namespace {

const QString AppIconPath = QStringLiteral(":/icons/app_icon");

// Displayed size of the application icon in the about and help boxes.
constexpr int BoxIconSize = 96;

const QString OkButtonStyle = QStringLiteral(
    "QPushButton#connectButton {  background-color: #007AFF; color: white; border: none; border-radius: 6px;  "
    "padding: 8px 0px; font-size: 14px; font-weight: 500;}"
    "QPushButton#connectButton:hover { background-color: #0062CC; }"
    "QPushButton#connectButton:pressed { background-color: #0051AA; }");

// The icon, or `fallbackText` in `fallbackStyle` when it cannot be loaded.
QLabel* iconLabel(QWidget* parent, const QString& fallbackText, const QString& fallbackStyle)
{
    auto* label = new QLabel(parent);
    label->setAlignment(Qt::AlignCenter);
    const QPixmap icon(AppIconPath);
    if (icon.isNull()) {
        label->setText(fallbackText);
        label->setStyleSheet(fallbackStyle);
    } else {
        label->setPixmap(icon.scaled(BoxIconSize, BoxIconSize, Qt::KeepAspectRatio, Qt::SmoothTransformation));
    }
    return label;
}

QLabel* textLabel(QWidget* parent, const QString& text, int pointSize, bool bold, const QString& style)
{
    auto* label = new QLabel(text, parent);
    label->setAlignment(Qt::AlignCenter);
    QFont font(QStringLiteral("Comic Sans MS"), pointSize);
    font.setBold(bold);
    label->setFont(font);
    label->setStyleSheet(style);
    return label;
}

// The white modal box shared by "About" and "Help"; `fill` adds the content
// between the icon and the OK button.
void runInfoBox(QWidget* parent, const QString& title, const QString& iconFallbackStyle,
    const std::function<void(QDialog*, QVBoxLayout*)>& fill)
{
    QDialog box(parent);
    box.setWindowTitle(title);
    box.setStyleSheet(QStringLiteral("QDialog { background-color: #FFFFFF; }"));
    auto* layout = new QVBoxLayout(&box);
    layout->setAlignment(Qt::AlignHCenter);
    layout->setContentsMargins(28, 24, 28, 20);
    layout->setSpacing(8);
    layout->addWidget(iconLabel(&box, QStringLiteral("Quenvar"), iconFallbackStyle), 0, Qt::AlignHCenter);
    fill(&box, layout);

    auto* ok = new QPushButton(QStringLiteral("OK"), &box);
    ok->setObjectName(QStringLiteral("connectButton"));
    ok->setFixedWidth(88);
    ok->setDefault(true);
    ok->setStyleSheet(OkButtonStyle);
    QObject::connect(ok, &QPushButton::clicked, &box, &QDialog::accept);
    layout->addSpacing(8);
    layout->addWidget(ok, 0, Qt::AlignHCenter);
    box.exec();
}

QString tabWidgetStyleSheet(const QString& theme, const ThemeManager::Palette& palette)
{
    const bool light = theme == QLatin1String("light");
    // The page behind the chat view (the topic strip of a channel) takes the
    // window colour, so that the topic text of the theme stays readable.
    const QString pane = light
        ? QStringLiteral("QTabWidget::pane { border: none; padding: 0px; }")
        : QStringLiteral("QTabWidget::pane { background: %1; border: 1px solid %2; }")
              .arg(palette.windowBg, palette.inputBorder);
    const QString background = light ? QStringLiteral("#F0F0F0") : QStringLiteral("#3A3A3A");
    const QString border = light ? QStringLiteral("#D1D1D6") : QStringLiteral("#555555");
    const QString hover = light ? QStringLiteral("#E0E0E0") : QStringLiteral("#4A4A4A");
    const QString text = light ? QStringLiteral("#333333") : QStringLiteral("#EEEEEE");
    return pane
        + QStringLiteral("QTabBar::tab { background: %1; color: %4; border: 1px solid %2; border-bottom: none; "
                         "padding: 6px 8px 6px 4px; margin-right: 2px; border-top-left-radius: 6px; "
                         "border-top-right-radius: 6px; min-width: 80px; font-size: 12px; }"
                         "QTabBar::tab:hover { background: %3; color: %4; }"
                         "QTabBar::tab:selected, QTabBar::tab:selected:hover { background: #007AFF; "
                         "color: white; font-weight: 600; border: 1px solid #007AFF; border-bottom: none; }")
              .arg(background, border, hover, text);
}

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
    connectAction = noRole(server->addAction(QStringLiteral("&Connect..."), this, &MainWindow::onConnectTriggered));
    disconnectAction
        = noRole(server->addAction(QStringLiteral("&Disconnect"), this, &MainWindow::onDisconnectTriggered));
    server->addSeparator();
    reconnectAction
        = noRole(server->addAction(QStringLiteral("&Reconnect"), this, &MainWindow::onReconnectTriggered));
    server->addSeparator();
    QAction* quit = noRole(server->addAction(QStringLiteral("&Quit"), qApp, &QApplication::quit));
    quit->setShortcut(QKeySequence::Quit);

    QMenu* user = bar->addMenu(QStringLiteral("&User"));
    awayAction = noRole(user->addAction(QStringLiteral("Marked Away..."), this, &MainWindow::onSetAway));
    changeNickAction = noRole(user->addAction(QStringLiteral("Change Nick..."), this, &MainWindow::onChangeNick));

    QMenu* channel = bar->addMenu(QStringLiteral("&Channel"));
    noRole(channel->addAction(QStringLiteral("&Join channel..."), this, &MainWindow::onJoinChannel));
    noRole(channel->addAction(QStringLiteral("Channel &List"), this, &MainWindow::requestChannelList));

    QMenu* settings = bar->addMenu(QStringLiteral("&Settings"));
    noRole(settings->addAction(QStringLiteral("&Preferences..."), this, &MainWindow::openPreferencesWindow));

    QMenu* about = bar->addMenu(QStringLiteral("About"));
    noRole(about->addAction(QStringLiteral("About Quenvar"), this, &MainWindow::showAboutBox));
    noRole(about->addAction(QStringLiteral("Help"), this, &MainWindow::showHelpBox));
}

void MainWindow::showAboutBox()
{
    runInfoBox(this, QStringLiteral("About Quenvar"),
        QStringLiteral("font-size: 42px; font-weight: bold; color: #007AFF;"),
        [](QDialog* box, QVBoxLayout* layout) {
            layout->addWidget(textLabel(box, QStringLiteral("Quenvar"), 26, true, QStringLiteral("color: #1d1d1f;")));
            layout->addWidget(
                textLabel(box, QStringLiteral("Version 2.0 Ruskavel"), 16, false, QStringLiteral("color: #888888;")));

            auto* about = new QLabel(box);
            about->setTextFormat(Qt::RichText);
            about->setWordWrap(true);
            about->setAlignment(Qt::AlignCenter);
            about->setOpenExternalLinks(true);
            about->setMinimumWidth(340);
            about->setStyleSheet(QStringLiteral("color: #555555; font-size: 15px;"));
            about->setText(QStringLiteral(
                "Quenvar is a free, modern, cross-platform IRC client for macOS, Linux and Windows.<br><br>"
                "<a href=\"https://quenvar.org\" style=\"color: #007AFF;\">quenvar.org</a>"));
            layout->addWidget(about);

            auto* footer = new QLabel(QStringLiteral("Made for people who live on IRC."), box);
            footer->setAlignment(Qt::AlignCenter);
            footer->setStyleSheet(QStringLiteral("color: #888888; font-size: 13px;"));
            layout->addWidget(footer);
        });
}

void MainWindow::showHelpBox()
{
    runInfoBox(this, QStringLiteral("Help"), QStringLiteral("font-size: 36px; color: #007AFF;"),
        [](QDialog* box, QVBoxLayout* layout) {
            layout->addWidget(textLabel(box, QStringLiteral("Basic IRC commands"), 18, true,
                QStringLiteral("color: #1d1d1f; margin-bottom: 8px;")));

            static const char* const rows[][2] = {
                { "/join #channel", "Join a channel" },
                { "/part [#channel]", "Leave a channel (or current tab)" },
                { "/msg nick message", "Send a private message" },
                { "/whois nick", "Show information about a user" },
                { "/nick newnick", "Change your nickname" },
                { "/away message", "Set away status (use /back to return)" },
                { "/list", "List channels on the server" },
                { "/topic [#channel]", "Show or change the channel topic" },
                { "/kick nick [reason]", "Kick a user from the channel" },
                { "/me action", "Send an action message" },
                { "/quit [message]", "Disconnect from the server" },
                { "/notice nick message", "Send a notice (like /msg but silent)" },
                { "/ctcp nick command", "Send a CTCP request (e.g., /ctcp nick VERSION)" },
                { "/mode #channel +o nick", "Change channel or user modes" },
                { "/invite nick #channel", "Invite a user to a channel" },
                { "/who #channel", "Show users in a channel" },
                { "/help [command]", "Show help (server\u2011specific)" },
            };
            QString html = QStringLiteral(
                "<table cellspacing=\"0\" cellpadding=\"4\" style=\"font-size: 13px; color: #333;\">"
                "<tr><th align=\"left\" style=\"border-bottom: 1px solid #cccccc;\">Command</th>"
                "<th align=\"left\" style=\"border-bottom: 1px solid #cccccc;\">Description</th></tr>");
            for (const auto& row : rows) {
                html += QStringLiteral("<tr><td><code>%1</code></td><td>%2</td></tr>")
                            .arg(QString::fromUtf8(row[0]).toHtmlEscaped(), QString::fromUtf8(row[1]).toHtmlEscaped());
            }
            html += QStringLiteral("</table>");

            auto* table = new QLabel(box);
            table->setTextFormat(Qt::RichText);
            table->setWordWrap(true);
            table->setStyleSheet(QStringLiteral("font-size: 13px; color: #333;"));
            table->setText(html);
            // A wrapped label does not tell the box its height: give it its
            // width and the height that width needs.
            table->setFixedWidth(520);
            table->setMinimumHeight(table->heightForWidth(520));
            layout->addWidget(table);
        });
}

// --- Status bar, theme ---------------------------------------------------------------

void MainWindow::updateStatusBar()
{
    QStatusBar* bar = statusBar();
    auto* label = bar->findChild<QLabel*>(QStringLiteral("connectionStatus"));
    if (!label) {
        label = new QLabel(bar);
        label->setObjectName(QStringLiteral("connectionStatus"));
        bar->addPermanentWidget(label);
    }
    if (!connection->isConnected()) {
        bar->setStyleSheet(QStringLiteral("QStatusBar { background-color: #f8d7da; }"));
        label->setText(QStringLiteral("Disconnected"));
    } else {
        bar->setStyleSheet(QStringLiteral("QStatusBar { background-color: #d4edda; }"));
        label->setText(
            QStringLiteral("Connected to %1 as %2").arg(connection->getHost(), connection->currentNick()));
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
    userList->setStyleSheet(QStringLiteral("QListWidget { border: 1px solid %1; }")
                                .arg(theme == QLatin1String("dark") ? QStringLiteral("#555")
                                                                    : QStringLiteral("#ccc")));
    tabWidget->setStyleSheet(tabWidgetStyleSheet(theme, ThemeManager::palette(theme)));

    addCloseButtonToAllTabs();
    splitter->setStyleSheet(QStringLiteral("QSplitter::handle { background: transparent; }"));
    applyChatBackground();
    tabBar->updateGeometry();
    userList->setVisible(userListShouldBeVisible);
    updateStatusBar();
    update();
}

// The theme is chosen in the preferences.
void MainWindow::onToggleTheme() { }

// --- Preferences -------------------------------------------------------------------

void MainWindow::openPreferencesWindow()
{
    auto* dialog = new PreferencesDialog(this);
    dialog->setAttribute(Qt::WA_DeleteOnClose);
    dialog->show();
}

void MainWindow::loadPreferences()
{
    QSettings settings;
    const QString font = settings.value(QStringLiteral("chatFont")).toString();
    if (!font.isEmpty() && m_chatFont.fromString(font))
        m_chatFontChosen = true;
    m_timestampFormat = settings.value(QStringLiteral("timestampFormat"), QStringLiteral("[HH:mm:ss]")).toString();
    m_emojiSize = settings.value(QStringLiteral("emojiSize"), 20).toInt();
    m_logEnabled = settings.value(QStringLiteral("logEnabled"), false).toBool();
    m_logPath = settings.value(QStringLiteral("logPath")).toString();
    m_chatBgImage = settings.value(QStringLiteral("chatBgImage")).toString();

    const QString colour = settings.value(QStringLiteral("chatBgColor")).toString();
    m_chatBgColor = QColor();
    if (!colour.isEmpty()) {
        const QColor parsed(colour);
        // Black counts as no colour: an accidental black background is
        // repaired here.
        if (parsed.isValid() && parsed.rgb() != qRgb(0, 0, 0))
            m_chatBgColor = parsed;
        else {
            settings.setValue(QStringLiteral("chatBgColor"), QString());
            settings.sync();
        }
    }

    m_autoReconnect = settings.value(QStringLiteral("autoReconnect"), true).toBool();
    m_reconnectDelay = settings.value(QStringLiteral("reconnectDelay"), 10).toInt();
    m_reconnectAttempts = settings.value(QStringLiteral("reconnectAttempts"), 0).toInt();
    m_pingInterval = settings.value(QStringLiteral("pingInterval"), 60).toInt();
    m_pingTimeout = settings.value(QStringLiteral("pingTimeout"), 45).toInt();
    m_acceptInvalidSSl = settings.value(QStringLiteral("acceptInvalidSsl"), false).toBool();

    applyChatFont();
    applyChatBackground();
}

QFont MainWindow::currentChatFont() const
{
    return m_chatFontChosen ? m_chatFont : userList->font();
}

void MainWindow::applyChatFont()
{
    const QFont font = currentChatFont();
    inputLine->setFont(font);
    for (const TabInfo& info : std::as_const(tabs)) {
        if (info.chatView)
            info.chatView->setFont(font);
    }
}

// Lines take the format from m_timestampFormat as they are appended; nothing
// already shown changes.
void MainWindow::applyTimestampFormat() { }

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
