#pragma once

#include <QList>
#include <QMap>
#include <QObject>
#include <QPointer>
#include <QString>
#include <QStringList>

class ChannelListModel;
class ChannelListPage;
class ChatView;
class MainWindow;
class QLabel;
class QPushButton;
class QTreeView;
class QWidget;
class Session;
struct BufferLine;

// One network in the window: its session and the tabs that show it (the
// server tab, a tab per channel and private conversation, its List tab). It
// turns what the session reports into rows, member list changes, topics and
// tab marks, and keeps its tabs together in the window's tab bar, after its
// server tab. The window holds one per open network and sends what the user
// does to the network of the current tab.
class NetworkView : public QObject
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

    // Makes the network's session and its server tab.
    explicit NetworkView(MainWindow* window);
    ~NetworkView() override;

    Session* session() const { return m_session; }
    // What the tab bar calls the network: its name (ISUPPORT NETWORK), else the host.
    QString name() const;
    // Whether the current tab is one of this network's.
    bool isCurrent() const;
    // The network a tab's page belongs to (null for none).
    static NetworkView* of(const QWidget* page);

    // Tabs by key (the buffer's name, "Server" or "List").
    QMap<QString, TabInfo> tabs;
    // Per tab key, the unsent text of the input line.
    QMap<QString, QString> tabInputHistory;
    // The List tab's table and its rows; null while there is no List tab.
    ChannelListPage* channelListPage = nullptr;
    QTreeView* channelListWidget = nullptr;
    ChannelListModel* channelListModel = nullptr;
    QLabel* listInfoLabel = nullptr;

    // What a key stands for on this network (its channel prefixes: "&local"
    // is a channel where the server says so).
    bool isChannelTab(const QString& key) const;
    bool isPrivateTab(const QString& key) const;
    // The key of the private tab whose peer is nick (case ignored), or "".
    QString findPrivateChatTab(const QString& nick) const;
    // Registers a page under name and adds it after this network's tabs.
    void registerTab(const QString& name, QWidget* page);
    void showTab(const QString& name);
    // Marks a tab the user is not looking at.
    void highlightTab(const QString& tabName);
    // The user closes a tab: the session leaves the channel or stops
    // watching the peer; the tab goes when it reports the buffer closed.
    void closeTab(const QString& name);
    // The network goes: its tabs are removed now, the session says QUIT and
    // this object goes once the link is down.
    void close();
    void openPrivateChat(const QString& nick);

    // The menu's "Channel List" and "/list": once registered, opens the List
    // tab emptied, switches to it and sends LIST.
    void requestChannelList();

    void updateTopicLabel(const QString& channel);
    void updateTopicEditButton(const QString& channel);

    // Rows appended between these calls share one edit block per view, so
    // every view lays out once. Batches nest.
    void beginAppendBatch();
    void endAppendBatch();

    // The networks open now, to be connected again at the next start, and
    // what was stored at the last exit (the server identifiers with a usable
    // address).
    static void storeOpenNetworks(const QList<NetworkView*>& networks);
    static QStringList storedOpenNetworks();
    // Connects to one of those with its stored record (autojoin included).
    void connectStored(const QString& id);

private:
    void connectSession();
    void createListTab();
    void forgetListPage();
    void removePage(QWidget* page);
    void onBufferOpened(const QString& buffer);
    void onBufferClosed(const QString& buffer);
    void onBufferRenamed(const QString& oldName, const QString& newName);
    void onLineAdded(const QString& buffer, const BufferLine& line);
    void onMembersReset(const QString& channel);
    void onMemberRenamed(const QString& channel, const QString& oldName, const QString& newName);
    // Whether channel is the tab the user looks at (the member list shows it).
    bool isShown(const QString& channel) const;
    QString timestampText(qint64 msecs);

    MainWindow* m_window = nullptr;
    Session* m_session = nullptr;

    // The last timestamp text and the second (or millisecond) it is for.
    qint64 m_timestampKey = -1;
    QString m_timestampCacheFormat;
    QString m_timestampText;

    // Views holding an open edit block of the current explicit batch.
    int m_appendBatchDepth = 0;
    QList<QPointer<ChatView>> m_batchViews;
};
