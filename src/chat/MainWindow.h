#pragma once

#include <QColor>
#include <QHash>
#include <QMultiHash>
#include <QFont>
#include <QList>
#include <QMainWindow>
#include <QMap>
#include <QPointer>
#include <QRegularExpression>
#include <QSet>
#include <QString>
#include <QStringList>

class ChannelListModel;
class ChatView;
class HighlightTabBar;
class IRCConnection;
class MyTabWidget;
class QAction;
class QCompleter;
class QLabel;
class QLineEdit;
class QListWidget;
class QListWidgetItem;
class QPushButton;
class QResizeEvent;
class QSplitter;
class QStackedWidget;
class QSystemTrayIcon;
class QTimer;
class QModelIndex;
class QTreeView;

// The program's one top-level window: a tab per conversation beside the
// member list of the current channel, the input line below.
//
// The class is large, so its code is split by concern:
//   MainWindow.cpp         construction, layout, tab registry, closing, splitter
//   MainWindowRender.cpp   message rows, mentions, highlights, notifications
//   MainWindowLists.cpp    the member list (NAMES, sorting, menus), the channel list
//   MainWindowInput.cpp    the input line, commands and nick completion
//   MainWindowEvents.cpp   the connection: connect actions, protocol events, WHOIS
//   MainWindowTopic.cpp    the topic strip of channel tabs
//   MainWindowDialogs.cpp  the away and nickname dialogs, the emoji popup
//   MainWindowSettings.cpp chat background, the current server's record
//   MainWindowMenus.cpp    menus, about and help, status bar, theme, tray,
//                          notifications, loading and applying preferences
//
// The window's state is public: its dialogs (preferences, topic editor) read
// and write it directly.
class MainWindow : public QMainWindow
{
    Q_OBJECT

public:
    // One tab's record, held by value in `tabs`.
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

    // WHOIS replies gathered for one nick until the end of the reply.
    struct WhoInfo
    {
        QString user;
        QString host;
        QString realname;
        QString server;
        QString serverInfo;
        QString channels;
        QString awayMsg;
        bool isOperator = false;
        int idle = -1; // seconds; -1 while not received
        QString signon;
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

    // --- Tabs (MainWindow.cpp) ---
    void setupUI();
    void createServerTab();
    // Builds a page (topic strip for channels, the message view); it is
    // neither registered nor added.
    QWidget* createChannelTab(const QString& name, bool isChannel);
    // Registers a page under name, adds it with name as label and tool tip and
    // returns its record. Private tabs get a WATCH for their peer.
    TabInfo& registerTab(const QString& name, QWidget* page);
    QString findPrivateChatTab(const QString& nick) const;
    void updateUserListVisibility(bool isChannel);
    void adjustSplitterToRatio();

    // --- Rendering (MainWindowRender.cpp) ---
    // The one way text is shown: a row with timestamp, sender and message in
    // the tab tabName (created when missing).
    void appendMessageToTab(const QString& tabName, const QString& message, const QString& sender,
        bool isService);
    void highlightTab(const QString& tabName);
    void showNotification(const QString& title, const QString& message);
    // Rows appended between these calls (in any tab) share one edit block per
    // view, so every view lays out once. Batches nest. Without an explicit
    // batch, the rows appended before control returns to the event loop are
    // batched anyway.
    void beginAppendBatch();
    void endAppendBatch();
    // Whether nick is the user's own (current nick or a pending new nick,
    // case ignored).
    bool isOwnNick(const QString& nick) const;

    // --- Member list (MainWindowLists.cpp) ---
    void addUserToList(const QString& tabName, const QString& user);
    void removeUserFromList(const QString& tabName, const QString& user);
    void clearUserList(const QString& tabName);
    QString stripModePrefix(const QString& nick) const;
    bool isUserOperator(const QString& channel) const;
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
    // Marks the user away with message / ends the away state. The per-tab
    // lines ("is away (...)", "is back") are posted to run after the current
    // event when announceInTabs is set.
    void markAway(const QString& message);
    void markBack(bool announceInTabs);
    void announceToTabs(const QString& line);

    // --- Menus, status bar, theme, tray, preferences (MainWindowMenus.cpp) ---
    void setupMenuBar();
    void updateStatusBar();
    // Styles the whole window for theme ("light", "dark" or "glass") and
    // stores it as the chosen theme.
    void applyTheme(const QString& theme);
    void initSystemTray();
    void loadPreferences();
    // Puts the chosen chat font (the member list's font while none was
    // chosen) on the input line and every chat view.
    void applyChatFont();
    // The chosen chat font, else the member list's.
    QFont currentChatFont() const;
    void applyTimestampFormat();

    // --- Connection and protocol events (MainWindowEvents.cpp) ---
    // The port of the last connection made through the connect dialog (0
    // before any).
    quint16 currentPort() const { return m_currentPort; }

    // --- Topic strip (MainWindowTopic.cpp) ---
    void updateTopicLabel(const QString& channel);
    void updateTopicEditButton(const QString& channel);

    // --- Chat background and server record (MainWindowSettings.cpp) ---
    void applyChatBackground();
    void setChannelAutojoin(const QString& channel, bool enable);
    void saveCurrentServerConfig();
    void loadCurrentServerConfig();

public slots:
    void onTabChanged(int index);
    void closeTab(int index);
    void requestCloseTab(int index);
    void addCloseButtonToAllTabs();
    void onSplitterMoved(int pos, int index);
    void onTabContextMenu(const QPoint& pos);

    void onNames(const QString& channel, const QStringList& names);
    void onNamesFinished(const QString& channel);
    void onUserDoubleClicked(QListWidgetItem* item);
    void showUserContextMenu(const QPoint& pos);

    void onSendInput();
    void completeNick();
    void onJoinChannel();

    // Away and nickname dialogs, the emoji popup (MainWindowDialogs.cpp).
    void onSetAway();
    void onChangeNick();
    void toggleEmojiPicker();

    void onToggleTheme();
    void openPreferencesWindow();
    void showAboutBox();
    void showHelpBox();

    void showConnectDialog();
    void onConnectTriggered();
    void onDisconnectTriggered();
    void onReconnectTriggered();

    void onConnected();
    void onRegistered();
    void onDisconnected();
    void onError(const QString& error);
    void onRawMessage(const QString& line);
    void onServerMessage(const QString& message);
    void onPrivmsg(const QString& from, const QString& target, const QString& text);
    void onJoin(const QString& nick, const QString& channel);
    void onPart(const QString& nick, const QString& channel, const QString& reason);
    void onNick(const QString& oldNick, const QString& newNick);
    void onTopic(const QString& channel, const QString& topic);
    void onQuit(const QString& nick, const QString& reason);
    void onKick(const QString& channel, const QString& kicked, const QString& kicker, const QString& reason);
    void onWhoisUser(const QString& nick, const QString& user, const QString& host, const QString& real);
    void onWhoisServer(const QString& nick, const QString& server, const QString& serverInfo);
    void onWhoisOperator(const QString& nick);
    void onWhoisIdle(const QString& nick, int idle, const QString& signon);
    void onWhoisChannels(const QString& nick, const QString& channels);
    void onWhoisEnd(const QString& targetTab, const QString& nick);
    void onWhoisAway(const QString& nick, const QString& message);
    void onWatchStatus(const QString& nick, bool online);
    void onOwnNickChanged(const QString& nick);
    void editTopic(const QString& channel);

    // --- Channel list browser (MainWindowLists.cpp) ---
    void onListStart();
    void onListChannel(const QString& channel, const QString& users, const QString& topic);
    void onListEnd();
    void onListInfo(const QString& server, int channels, int users);
    void filterChannelList(const QString& text);
    void onChannelListDoubleClicked(const QModelIndex& index);
    void showChannelListContextMenu(const QPoint& pos);

protected:
    void resizeEvent(QResizeEvent* event) override;
    bool eventFilter(QObject* watched, QEvent* event) override;

public:
    // Chat appearance preferences.
    QString m_chatBgImage;
    QColor m_chatBgColor;
    QString m_timestampFormat = QStringLiteral("[HH:mm:ss]");
    QFont m_chatFont;
    // Whether m_chatFont was chosen (stored, or picked in the preferences);
    // until then the views keep the member list's font.
    bool m_chatFontChosen = false;
    int m_emojiSize = 20;
    // Connection preferences.
    bool m_autoReconnect = true;
    int m_reconnectDelay = 10;
    int m_reconnectAttempts = 0;
    int m_pingInterval = 60;
    int m_pingTimeout = 45;
    bool m_acceptInvalidSSl = false;
    // Logging preferences.
    QString m_logPath;
    bool m_logEnabled = false;

    QTimer* reconnectTimer = nullptr;

    QMap<QString, QStringList> channelUsers;
    QStringList favoriteChannels;

    // Widgets.
    MyTabWidget* tabWidget = nullptr;
    QLineEdit* inputLine = nullptr;
    QLineEdit* channelSearchEdit = nullptr;
    QStackedWidget* bottomStack = nullptr;
    QListWidget* userList = nullptr;
    IRCConnection* connection = nullptr;
    // The "List" tab's table and its rows; null while there is no list tab.
    QTreeView* channelListWidget = nullptr;
    ChannelListModel* channelListModel = nullptr;
    QLabel* listInfoLabel = nullptr;
    QSplitter* splitter = nullptr;
    HighlightTabBar* tabBar = nullptr;
    QCompleter* nickCompleter = nullptr;
    QPushButton* emojiButton = nullptr;
    QSystemTrayIcon* trayIcon = nullptr;

    // WHOIS.
    QMap<QString, WhoInfo> whoisCache;
    QString whoisTargetTab = QStringLiteral("Server");

    // Away and nick.
    QAction* awayAction = nullptr;
    QAction* changeNickAction = nullptr;
    bool awayActive = false;
    QString awayMessage;
    QString pendingNewNick;

    QAction* themeAction = nullptr;

    // The "&Server" menu's actions.
    QAction* connectAction = nullptr;
    QAction* disconnectAction = nullptr;
    QAction* reconnectAction = nullptr;

    // Tab registry.
    QMap<QString, TabInfo> tabs;
    QMap<QString, QStringList> pendingNames;
    QString currentTabName;
    QString currentTheme = QStringLiteral("light");
    QMap<QString, QString> channelTopics;

    bool adjustSplitterEnabled = true;
    bool inList = false;

    // Lower-cased nicks for which a watch was sent.
    QSet<QString> watchedNicks;

    QString currentServerId;

    bool userListShouldBeVisible = false;

    // Per tab key, the unsent text of the input line.
    QMap<QString, QString> tabInputHistory;

    QMap<QString, QString> highlightedTabTexts;

private:
    void connectEngineSignals();
    void refreshNickCompletionModel();
    void setCompletionWords(const QStringList& words);
    void renamePrivateTab(const QString& oldKey, const QString& newKey);
    void removeMemberFromChannel(const QString& channel, const QString& nick);
    void fillUserList(const QStringList& names);
    void openPrivateChat(const QString& nick);
    const QRegularExpression& mentionPattern(const QString& ownNick);
    QString currentTimestamp();

    // The last timestamp text and the second (or millisecond) it is for.
    qint64 m_timestampKey = -1;
    QString m_timestampCacheFormat;
    QString m_timestampText;

    // The mention test for the own nick, rebuilt only when that nick changes.
    QString m_mentionNick;
    QRegularExpression m_mentionPattern;

    // The completion word list needs rebuilding before its next use.
    bool m_completionStale = true;
    // Port of the last connection made through the connect dialog.
    quint16 m_currentPort = 0;
    // Channels whose member list is in join order (case-insensitive as
    // stored) since a join, so the next join is one binary insertion; the
    // value names the entries renamed in place since then, which the next
    // join moves to their places first.
    QMap<QString, QStringList> m_joinOrdered;

    // Per channel, how many stored entries have each nick (without symbol,
    // case folded), so membership tests do not walk big member lists. Checked
    // against the list's size and rebuilt when it no longer matches.
    struct MemberIndex
    {
        qsizetype size = -1;
        QHash<QString, int> counts;
    };
    mutable QHash<QString, MemberIndex> m_memberIndex;
    MemberIndex& memberIndex(const QString& channel) const;
    void indexMember(const QString& channel, const QString& storedName, int delta);
    bool hasMember(const QString& channel, const QString& nick) const;
    // Positions of the stored entries of nick (symbol ignored, case
    // ignored) in the channel's list, ascending.
    QList<qsizetype> memberPositions(const QString& channel, const QString& nick) const;

    // The visible member list's items by text, kept while only this class's
    // member operations change the list; any other change drops it and the
    // next lookup rebuilds it.
    QMultiHash<QString, QListWidgetItem*> m_userItems;
    bool m_userItemsValid = false;
    bool m_editingUserList = false;
    void trackUserListChanges();
    QListWidgetItem* findUserItem(const QString& text);
    void renameUserItem(const QString& text, const QString& newText);

    // Views holding an open edit block of the current explicit batch.
    int m_appendBatchDepth = 0;
    QList<QPointer<ChatView>> m_batchViews;
};
