#pragma once

#include "IRCConnection.h"
#include "PreferencesHost.h"

#include <QList>
#include <QMainWindow>
#include <QPointer>
#include <QString>
#include <QStringList>

class HighlightTabBar;
class MemberListView;
class MyTabWidget;
class NetworkView;
class QAction;
class QCompleter;
class QLineEdit;
class QPushButton;
class QResizeEvent;
class QSplitter;
class QStackedWidget;
class QSystemTrayIcon;
class Session;

// The program's one top-level window: a view and controller of the open
// networks, each a NetworkView with its session and its tabs. The tabs of
// all networks share one tab bar beside the member list of the current
// channel, the input line below; what the user does goes to the network of
// the current tab.
//
// The class is large, so its code is split by concern:
//   MainWindow.cpp         construction, layout, tabs, closing, splitter
//   MainWindowSession.cpp  the networks: adding, closing, reopening, labels;
//                          the connect actions
//   MainWindowLists.cpp    the member list's menus
//   MainWindowInput.cpp    the input line, commands and nick completion
//   MainWindowDialogs.cpp  the away, nickname and topic dialogs, the emoji popup
//   MainWindowMenus.cpp    menus, status bar, theme, tray, notifications,
//                          loading and applying preferences
class MainWindow : public QMainWindow, public PreferencesHost
{
    Q_OBJECT

public:
    // What the window does by itself once the event loop runs: the program
    // opens the connect dialog, or connects the networks open at the last
    // exit again; tests and benchmarks drive a quiet window themselves.
    enum class Startup
    {
        Normal,
        Quiet,
    };

    explicit MainWindow(QWidget* parent = nullptr, Startup startup = Startup::Normal);
    ~MainWindow() override;

    // The network of the current tab, and its session.
    NetworkView* network() const;
    Session* session() const;
    // The open networks, in the order of their tabs.
    const QList<NetworkView*>& networks() const { return m_networks; }

    // --- Tabs (MainWindow.cpp) ---
    void setupUI();
    QStringList completionCandidates() const;
    // A problem found at start: a row in the server tab and a box that does not block.
    void showStartupWarning(const QString& text);
    static QString tabTitle(const QString& name);
    // The name of the tab at index in its network (its buffer, "Server" or "List").
    QString tabKey(int index) const;
    void applyConnectionPreferences() override;
    void updateUserListVisibility(bool isChannel);
    void adjustSplitterToRatio();
    // Inserts page as a tab at index under key, and its close button.
    void addTabPage(QWidget* page, const QString& key, int index);
    // Styles the close buttons for the current tab.
    void updateCloseButtons();

    // --- Networks (MainWindowSession.cpp) ---
    // A new network with its server tab, last in the tab bar.
    NetworkView* addNetwork();
    // Labels as the user reads them: the key alone while one network is open;
    // with several, the server tab names its network, and tabs whose name is
    // open on another network too carry their network in brackets.
    void updateTabLabels();

    // --- Member list (MainWindowLists.cpp) ---
    void updateOwnUserAppearance();
    // The status bar, the away action and the own entry for the current network.
    void showNetworkState();

    // --- Input line (MainWindowInput.cpp) ---
    // Marks the completion word list stale; it is rebuilt the next time it is
    // needed (a key in the input line, completeNick, nickCompletionWords).
    void updateNickCompletionModel();
    // The completer's word list, brought up to date first.
    QStringList nickCompletionWords();

    // --- Menus, status bar, theme, tray, preferences (MainWindowMenus.cpp) ---
    void setupMenuBar();
    void updateStatusBar();
    void showNotification(const QString& title, const QString& message);
    // Styles the whole window for theme ("light", "dark" or "glass") and
    // stores it as the chosen theme.
    void applyTheme(const QString& theme) override;
    void initSystemTray();
    void loadPreferences();
    // Puts the chosen chat font (the member list's font while none was
    // chosen) on the input line and every chat view.
    void applyChatFont() override;
    // The chosen chat font, else the member list's.
    QFont currentChatFont() const;
    void applyChatBackground() override;
    ChatPreferences& chatPreferences() override { return prefs; }
    QString theme() const override { return currentTheme; }

public slots:
    void onTabChanged(int index);
    void closeTab(int index);
    void onTabContextMenu(const QPoint& pos);

    void onUserDoubleClicked(const QString& member);
    void showUserContextMenu(const QPoint& pos);

    void onSendInput();
    void completeNick();
    void onJoinChannel();

    void onSetAway();
    void onChangeNick();
    void toggleEmojiPicker();
    void editTopic(const QString& channel);

    void openPreferencesWindow();
    void showAboutBox();
    void showHelpBox();

    void showConnectDialog();
    void onDisconnectTriggered();
    void onReconnectTriggered();
    // Opens the current network's log folder in the file manager.
    void openLogFolder();


protected:
    void resizeEvent(QResizeEvent* event) override;
    bool eventFilter(QObject* watched, QEvent* event) override;

public:
    ChatPreferences prefs;
    QString currentTheme = QStringLiteral("light");

    // Widgets.
    MyTabWidget* tabWidget = nullptr;
    QLineEdit* inputLine = nullptr;
    QLineEdit* channelSearchEdit = nullptr;
    QStackedWidget* bottomStack = nullptr;
    MemberListView* userList = nullptr;
    QSplitter* splitter = nullptr;
    HighlightTabBar* tabBar = nullptr;
    QCompleter* nickCompleter = nullptr;
    QPushButton* emojiButton = nullptr;
    QSystemTrayIcon* trayIcon = nullptr;
    QAction* awayAction = nullptr;
    QAction* changeNickAction = nullptr;

    // The key of the current tab in its network.
    QString currentTabName;
    bool adjustSplitterEnabled = true;
    bool userListShouldBeVisible = false;

private:
    void refreshNickCompletionModel();
    void setCompletionWords(const QStringList& words);
    // Asks, then quits the network and closes its tabs (never the last one).
    void closeNetwork(NetworkView* network);
    // The connect dialog, or the networks open at the last exit.
    void startNetworks();
    // The next (+1) or previous (-1) tab, round the end.
    void stepTab(int step);

    QList<NetworkView*> m_networks;
    QPointer<NetworkView> m_currentNetwork;

    // The completion word list needs rebuilding before its next use.
    bool m_completionStale = true;
};
