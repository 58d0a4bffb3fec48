#pragma once

#include "IRCConnection.h"
#include "PreferencesHost.h"

#include <QList>
#include <QMainWindow>
#include <QMap>
#include <QPointer>
#include <QString>
#include <QStringList>

class ChannelListModel;
class ChannelListPage;
class ChatView;
class HighlightTabBar;
class MemberListView;
class MyTabWidget;
class QAction;
class QCompleter;
class QLabel;
class QLineEdit;
class QModelIndex;
class QPushButton;
class QResizeEvent;
class QSplitter;
class QStackedWidget;
class QSystemTrayIcon;
class QTreeView;
class Session;
struct BufferLine;

// The program's one top-level window: a view and controller of a session. A
// tab per buffer of the session beside the member list of the current
// channel, the input line below; what the user does goes to the session.
//
// The class is large, so its code is split by concern:
//   MainWindow.cpp         construction, layout, tabs, closing, splitter
//   MainWindowSession.cpp  what the session reports: rows, members, topics,
//                          state, the channel list; the connect actions
//   MainWindowLists.cpp    the member list's menus, the channel list page
//   MainWindowInput.cpp    the input line, commands and nick completion
//   MainWindowDialogs.cpp  the away, nickname and topic dialogs, the emoji popup
//   MainWindowMenus.cpp    menus, status bar, theme, tray, notifications,
//                          loading and applying preferences
class MainWindow : public QMainWindow, public PreferencesHost
{
    Q_OBJECT

public:
    // One tab's widgets, held by value in `tabs`.
    struct TabInfo
    {
        QWidget* widget = nullptr; // the page, owned by the tab widget
        ChatView* chatView = nullptr; // the page's message view
        QString peerNick; // the peer of a private tab, else empty
        QWidget* topicBar = nullptr; // the topic strip of a channel tab, else null
        QLabel* topicLabel = nullptr;
        QPushButton* editTopicBtn = nullptr;
        bool highlighted = false; // the tab carries an unread mention
    };

    // Whether the window opens the connect dialog by itself once the event
    // loop runs (the program does; tests and benchmarks drive the window
    // themselves).
    enum class Startup
    {
        OpenConnectDialog,
        Quiet,
    };

    explicit MainWindow(QWidget* parent = nullptr, Startup startup = Startup::OpenConnectDialog);
    ~MainWindow() override;

    Session* session() const { return m_session; }

    // --- Tabs (MainWindow.cpp) ---
    void setupUI();
    void createServerTab();
    // Builds a page (topic strip for channels, the message view); it is
    // neither registered nor added.
    QWidget* createChannelTab(const QString& name, bool isChannel);
    bool isChannelTab(const QString& key) const;
    QStringList completionCandidates() const;
    // A problem found at start: a row in the server tab and a box that does not block.
    void showStartupWarning(const QString& text);
    static QString tabTitle(const QString& name);
    // The name of the tab at index (its buffer, "Server" or "List").
    QString tabKey(int index) const;
    void applyConnectionPreferences() override;
    bool isPrivateTab(const QString& key) const;
    // Registers a page under name, adds it with name as label and tool tip and
    // returns its record.
    TabInfo& registerTab(const QString& name, QWidget* page);
    QString findPrivateChatTab(const QString& nick) const;
    void updateUserListVisibility(bool isChannel);
    void adjustSplitterToRatio();
    void highlightTab(const QString& tabName);
    // Adds page as a tab with label as text and tool tip, and its close button.
    int addTabPage(QWidget* page, const QString& label);
    // Styles the close buttons for the current tab.
    void updateCloseButtons();

    // --- Rows (MainWindowSession.cpp) ---
    // Adds a row to the session's buffer tabName (its tab is created when
    // missing): timestamp, sender and message.
    void appendMessageToTab(const QString& tabName, const QString& message, const QString& sender,
        bool isService);
    // Rows appended between these calls (in any tab) share one edit block per
    // view, so every view lays out once. Batches nest. Without an explicit
    // batch, the rows appended before control returns to the event loop are
    // batched anyway.
    void beginAppendBatch();
    void endAppendBatch();

    // --- Member list, channel list (MainWindowLists.cpp) ---
    void updateOwnUserAppearance();
    // Builds the "List" tab once.
    void createListTab();
    // The menu's "Channel List" and "/list": once registered, opens the list
    // tab emptied, switches to it and sends LIST.
    void requestChannelList();

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
    // The chat background on one view (a new tab's).
    ChatPreferences& chatPreferences() override { return prefs; }
    QString theme() const override { return currentTheme; }

    // --- Topic strip (MainWindowSession.cpp) ---
    void updateTopicLabel(const QString& channel);
    void updateTopicEditButton(const QString& channel);

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
    // The "List" tab's table and its rows; null while there is no list tab.
    ChannelListPage* channelListPage = nullptr;
    QTreeView* channelListWidget = nullptr;
    ChannelListModel* channelListModel = nullptr;
    QLabel* listInfoLabel = nullptr;
    QSplitter* splitter = nullptr;
    HighlightTabBar* tabBar = nullptr;
    QCompleter* nickCompleter = nullptr;
    QPushButton* emojiButton = nullptr;
    QSystemTrayIcon* trayIcon = nullptr;
    QAction* awayAction = nullptr;
    QAction* changeNickAction = nullptr;

    // Tabs by key (the buffer's name, or "List").
    QMap<QString, TabInfo> tabs;
    QString currentTabName;
    bool adjustSplitterEnabled = true;
    bool userListShouldBeVisible = false;
    // Per tab key, the unsent text of the input line.
    QMap<QString, QString> tabInputHistory;

private:
    void connectSession();
    void onBufferOpened(const QString& buffer);
    void onBufferClosed(const QString& buffer);
    void onBufferRenamed(const QString& oldName, const QString& newName);
    void onLineAdded(const QString& buffer, const BufferLine& line);
    void onMembersReset(const QString& channel);
    void onMemberRenamed(const QString& channel, const QString& oldName, const QString& newName);
    void onAwayChanged(bool away);
    void refreshNickCompletionModel();
    void setCompletionWords(const QStringList& words);
    void openPrivateChat(const QString& nick);
    QString timestampText(qint64 msecs);

    Session* m_session = nullptr;

    // The last timestamp text and the second (or millisecond) it is for.
    qint64 m_timestampKey = -1;
    QString m_timestampCacheFormat;
    QString m_timestampText;

    // The completion word list needs rebuilding before its next use.
    bool m_completionStale = true;

    // Views holding an open edit block of the current explicit batch.
    int m_appendBatchDepth = 0;
    QList<QPointer<ChatView>> m_batchViews;
};
