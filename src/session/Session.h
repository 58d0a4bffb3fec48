#pragma once

#include "ChannelMembers.h"
#include "IRCConnection.h"
#include "LineStore.h"
#include "ServerConfig.h"

#include <QElapsedTimer>
#include <QHash>
#include <QList>
#include <QMap>
#include <QObject>
#include <QRegularExpression>
#include <QSet>
#include <QString>
#include <QStringList>

#include <functional>

class IRCConnection;
class QTimer;
class SessionLog;

// One row of a buffer, as it was when it was added.
struct BufferLine
{
    enum Flag : quint8
    {
        Status = 1, // a grey row: joins, parts, quits, away notes
        Own = 2, // written by the user (their nick or the nick they asked for)
        OwnAway = 4, // written by the user while away: grey, italic nick
        Mention = 8, // names the user in a channel, or any private message to them
        Action = 16, // "/me": text is what the sender does
        Notice = 32, // a NOTICE
        Backlog = 64, // read back from the log when the buffer opened: grey
        Separator = 128, // the rule between the backlog and the rows of now
    };

    qint64 time = 0; // milliseconds since the epoch
    QString sender; // empty: a line of the buffer itself ("*** ...")
    QString text; // as shown (a message written while away carries its "[Away: ...]" note)
    quint8 flags = 0;

    bool is(Flag flag) const { return flags & flag; }
};

// Everything Quenvar knows about one network: its connection and its
// conversations. There is a buffer for the server, one per channel with an
// open conversation and one per private conversation (a query), each with its
// rows and its unread and mention state; channels have members with their
// ranks and a topic. The session reacts to what the server says and to what
// the user asks for, sends the commands, and reports every change as a signal.
// It never touches a widget.
class Session : public QObject
{
    Q_OBJECT

public:
    // The buffer of the server's own lines.
    static const QString ServerBuffer; // "Server"
    // The name of the channel list's page in the window; it is never a query.
    static const QString ListPage; // "List"

    enum class BufferType
    {
        Server,
        Channel,
        Query,
        Other, // the channel list's name
    };
    // What a buffer name stands for on this network (its channel prefixes).
    BufferType typeOf(const QString& name) const;

    // WHOIS replies gathered for one nick until the end of the reply.
    struct WhoisReply
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

    // A burst of new private conversations: once this many queries were
    // opened within the window, first messages from further new senders go
    // to the server buffer instead of opening theirs.
    static constexpr int QueryBurstLimit = 50;
    static constexpr qint64 QueryBurstWindowMs = 60000;

    // When the link drops without the user asking: try again after delaySec,
    // then twice as long each time (capped at five minutes, with a little
    // jitter), at most maxAttempts times (0: no limit).
    struct ReconnectPolicy
    {
        bool enabled = true;
        int delaySec = 10;
        int maxAttempts = 0;
    };
    static constexpr int MaxReconnectDelaySec = 300;

    explicit Session(QObject* parent = nullptr);
    ~Session() override;

    IRCConnection* connection() const { return m_connection; }

    // --- Connection state ---
    bool isConnected() const;
    bool isRegistered() const;
    QString host() const;
    // The port of the last connection made through connectTo (0 before any).
    quint16 port() const { return m_port; }
    // host + "_" + port of the server record in use; empty before a connection.
    QString serverId() const { return m_serverId; }
    void setServerId(const QString& id) { m_serverId = id; }

    // --- Identity ---
    QString nick() const;
    // The nick asked for by changeNick until the server confirms it.
    QString pendingNick() const { return m_pendingNick; }
    // Whether nick is the user's (current nick or the pending one, case ignored).
    bool isOwnNick(const QString& nick) const;
    // The network's name as the server gives it (ISUPPORT NETWORK), else the host.
    QString networkName() const;
    // The member rank symbols of this network, highest first ("~&@%+").
    QString prefixSymbols() const;
    bool isAway() const { return m_away; }
    QString awayMessage() const { return m_awayMessage; }

    // --- Buffers ---
    bool hasBuffer(const QString& name) const { return m_buffers.contains(name); }
    QStringList bufferNames() const { return m_buffers.keys(); }
    // The rows of a buffer (none for an unknown one).
    qsizetype lineCount(const QString& name) const;
    BufferLine line(const QString& name, qsizetype index) const;
    QList<BufferLine> lines(const QString& name) const;
    // Rows added since the buffer was last marked read, and whether one of
    // them was a mention.
    int unreadCount(const QString& name) const;
    bool hasUnreadMention(const QString& name) const;
    void markRead(const QString& name);
    // Forgets the oldest rows of a buffer beyond the newest `rows`.
    void trimBuffer(const QString& name, qsizetype rows);
    // The query buffer of nick (case ignored), or an empty string.
    QString findQuery(const QString& nick) const;
    // The open buffer whose name is name under the network's case mapping, or an empty string.
    QString findBuffer(const QString& name) const;
    // Opens the buffer if it is not open; true when it was opened now.
    bool openBuffer(const QString& name);
    // The buffer the user looks at (notices from users with no conversation
    // open are shown there).
    void setCurrentBuffer(const QString& name) { m_currentBuffer = name; }
    // Whether the user is in channel (joined and neither parted nor kicked since).
    bool isJoined(const QString& channel) const;
    // The user closes a buffer: a channel is left, a query's nick is no longer
    // watched. The server buffer stays.
    void closeBuffer(const QString& name);
    // Adds a row to a buffer, opening the buffer first when needed. status:
    // a grey row. The session decides whether it is the user's own and
    // whether it mentions them.
    void addLine(const QString& buffer, const QString& text, const QString& sender = QString(), bool status = false,
        quint8 extraFlags = 0, qint64 time = 0);

    // --- Channels ---
    bool hasMembers(const QString& channel) const { return m_members.contains(channel); }
    QStringList members(const QString& channel) const;
    QString topic(const QString& channel) const { return m_topics.value(channel); }
    // Whether the user is an operator of channel (while connected).
    bool isOperator(const QString& channel) const;

    // --- WHOIS, WATCH, channel list, autojoin ---
    // The buffer the next WHOIS summary goes to.
    QString whoisReplyBuffer() const { return m_whoisBuffer; }
    bool isGatheringWhois() const { return !m_whois.isEmpty(); }
    // Lower-cased nicks for which a watch was sent.
    QSet<QString> watchedNicks() const { return m_watched; }
    // Whether a LIST reply is being received (the server buffer then stays quiet).
    bool isReceivingList() const { return m_inList; }
    QStringList autojoinChannels() const { return m_autojoin; }

    void setReconnectPolicy(const ReconnectPolicy& policy) { m_reconnectPolicy = policy; }
    // Rows written to <folder>/<network>/<buffer>.log while enabled;
    // textFilter makes a row's text plain (formatting codes out).
    void setLogging(bool enabled, const QString& folder, std::function<QString(const QString&)> textFilter = {});
    // The file the rows of buffer go to ("" while logging is off), and
    // writing what is waiting now (it is written every two seconds anyway).
    QString logFile(const QString& buffer) const;
    // The folder of this network's log files ("" while logging is off).
    QString logFolder() const;
    // Waits until every row so far is written.
    void flushLog();
    // A channel or query buffer that opens starts with its last `rows` logged
    // rows (0: none), then a separator row.
    void setBacklog(int rows) { m_backlogRows = qMax(0, rows); }
    // Certificates that fail verification are taken with a warning row.
    void setAcceptInvalidCertificates(bool accept) { m_connection->setAcceptInvalidCertificates(accept); }
    // The user's answer to certificateDecisionNeeded: connect again taking
    // the certificate with this fingerprint, this time only or from now on
    // (pinned in the server record).
    void trustCertificate(const QString& fingerprint, bool always);
    ReconnectPolicy reconnectPolicy() const { return m_reconnectPolicy; }
    // The keep-alive PING after intervalSec of silence; the link is given up
    // timeoutSec after it when nothing answers.
    void setKeepAlive(int intervalSec, int timeoutSec);
    // Waiting to reconnect: the attempt that comes next (0: not waiting).
    int pendingReconnectAttempt() const;

    // --- What the user asks for ---
    // Connects to host:port with the record config (its autojoin list is kept)
    // and stores the record as the current server's.
    void connectTo(const QString& host, quint16 port, const ServerConfig& config);
    void disconnectFromServer();
    // Connects again to the server and port last used: at once while
    // disconnected, a second after dropping the link otherwise.
    void reconnect();
    // Keeps the autojoin list in the current record and stores it.
    void rememberServerRecord();
    void sendMessage(const QString& target, const QString& text);
    void sendNotice(const QString& target, const QString& text);
    void sendAction(const QString& target, const QString& text);
    void sendRaw(const QString& line);
    void part(const QString& channel);
    void changeNick(const QString& nick);
    // Marks the user away (the channel and query buffers are told once the
    // current event is handled) / back.
    void setAway(const QString& message);
    void setBack(bool announceInBuffers);
    // WHOIS of nick; the summary goes to replyBuffer.
    void whois(const QString& nick, const QString& replyBuffer);
    // Sends LIST; false (and nothing sent) before registration.
    bool requestChannelList();
    void setTopic(const QString& channel, const QString& topic);
    void kick(const QString& channel, const QString& nick, const QString& reason);
    void ban(const QString& channel, const QString& nick);
    // Adds channel ("#" added when missing) to the autojoin list or removes
    // it, stores the record and says so in the server buffer.
    void setAutojoin(const QString& channel, bool enable);
    // The current server's stored record (missing keys keep the connection's).
    void loadServerRecord();
    void saveServerRecord();
    // PART with a reason.
    void part(const QString& channel, const QString& reason);
    // JOIN of one or more channels ("#a,#b") with their keys ("k1,k2").
    void join(const QString& channels, const QString& keys = QString());
    // Leaves the server, saying reason in the QUIT line.
    void quit(const QString& reason);
    // MODE target with the mode string and its parameters (none: the server
    // tells the current modes).
    void mode(const QString& target, const QString& modes);
    void invite(const QString& nick, const QString& channel);
    void who(const QString& mask);
    // A CTCP request ("VERSION", "PING 123") as a PRIVMSG to target.
    void ctcp(const QString& target, const QString& request);
    // Forgets the rows of a buffer; it stays open.
    void clearBuffer(const QString& name);

signals:
    void bufferOpened(const QString& buffer);
    void bufferClosed(const QString& buffer);
    void bufferRenamed(const QString& oldName, const QString& newName);
    void lineAdded(const QString& buffer, const BufferLine& line);

    // The member list of channel was replaced (a NAMES reply ended).
    void membersReset(const QString& channel);
    void memberAdded(const QString& channel, const QString& storedName);
    void memberRemoved(const QString& channel, const QString& storedName);
    void memberRenamed(const QString& channel, const QString& oldName, const QString& newName);
    // The user was kicked from channel.
    void kickedFrom(const QString& channel);
    // The user joined channel, or left it (parted, kicked or disconnected).
    void joinedChanged(const QString& channel, bool joined);
    // After any change to channel's members (and to the user's rank there).
    void membersChanged(const QString& channel);
    void topicChanged(const QString& channel);
    // Modes of a channel or of the user changed (modes: the mode string and its parameters).
    void modesChanged(const QString& target, const QString& by, const QStringList& modes);
    void invited(const QString& by, const QString& channel);
    // A user's away state changed (away-notify); message is null when they are back.
    void userAway(const QString& nick, const QString& message);
    void accountChanged(const QString& nick, const QString& account);
    // The server's certificate failed verification; the user decides.
    void certificateDecisionNeeded(const IRCConnection::CertificateInfo& info);
    // The outcome of a SASL login.
    void loginFinished(bool success, const QString& reason);
    // A server error reply about subject (a channel, a nick or a command).
    void errorReply(int numeric, const QString& subject, const QString& text);

    // Connected, registered, disconnected or the own nick changed.
    void stateChanged();
    void disconnected();
    void ownNickChanged(const QString& nick);
    void awayChanged(bool away);

    void channelListStarted();
    void channelListEntry(const QString& channel, const QString& users, const QString& topic);
    void channelListEnded();
    void channelListInfo(const QString& server, int channels, int users);

private:
    struct Buffer
    {
        LineStore lines;
        int unread = 0;
        bool mentioned = false;
    };

    void onConnected();
    void onRegistered();
    void onDisconnected();
    void onPrivmsg(const QString& from, const QString& target, const QString& text);
    void onJoin(const QString& nick, const QString& channel);
    void onPart(const QString& nick, const QString& channel, const QString& reason);
    void onNick(const QString& oldNick, const QString& newNick);
    void onNames(const QString& channel, const QStringList& names);
    void onNamesFinished(const QString& channel);
    void onQuit(const QString& nick, const QString& reason);
    void onKick(const QString& channel, const QString& kicked, const QString& kicker, const QString& reason);
    void onWatchStatus(const QString& nick, bool online);
    void onNotice(const QString& from, const QString& target, const QString& text, bool fromUser);
    void onMode(const QString& from, const QString& target, const QStringList& modes);
    void onServerSupport();
    void onErrorReply(int numeric, const QString& subject, const QString& text);
    void watchQuery(const QString& nick);
    void onUnhandledLine(const QString& line);
    void scheduleReconnect();
    // Rows for certificates that fail verification or changed; no reconnect until the user decides.
    void watchCertificates();
    // No reconnect waits, and the next drop counts attempts from one again.
    void cancelReconnect();
    void reconnectNow();
    void onServerText(const QString& line);
    void setJoined(const QString& channel, bool joined);
    // Whether rows about channel are to be dropped: the user closed its
    // buffer and the server has not confirmed the part yet.
    bool isLeaving(const QString& channel) const;
    void onWhoisEnd(const QString& nick);
    void showBacklog(const QString& buffer);
    void onListStart();
    void onListEnd();

    void removeMember(const QString& channel, const QString& nick);
    void renameQuery(const QString& oldName, const QString& newName);
    void announce(const QString& text);
    bool mentions(const QString& text);
    bool inQueryBurst();
    WhoisReply& whoisOf(const QString& nick) { return m_whois[nick]; }

    IRCConnection* m_connection = nullptr;
    QMap<QString, Buffer> m_buffers;
    // Members per channel; a channel can have members without a buffer (its
    // conversation was closed, the server has not confirmed the part yet).
    QMap<QString, ChannelMembers> m_members;
    QMap<QString, QStringList> m_pendingNames;
    QMap<QString, QString> m_topics;
    QMap<QString, WhoisReply> m_whois;
    QString m_whoisBuffer = QStringLiteral("Server");
    QSet<QString> m_watched;
    QStringList m_autojoin;
    QString m_serverId;
    quint16 m_port = 0;
    QString m_pendingNick;
    bool m_away = false;
    QString m_awayMessage;
    bool m_inList = false;
    QString m_currentBuffer;
    QSet<QString> m_joined; // folded names of the channels the user is in
    QHash<QString, QString> m_queries; // folded nick -> the query buffer's name
    SessionLog* m_log = nullptr;
    int m_backlogRows = 0;
    QSet<QString> m_leaving; // folded names of channels closed while joined
    QHash<QString, QString> m_channelKeys; // folded channel -> the key it was joined with
    ReconnectPolicy m_reconnectPolicy;
    QTimer* m_reconnectTimer = nullptr;
    int m_reconnectAttempt = 0; // attempts since the link was last up
    bool m_userDisconnected = false; // the user ended the link: no reconnect
    bool m_rejoinOnRegistration = false; // this connection continues the last one
    bool m_awaitingCertificateDecision = false; // no reconnect until the user decides
    bool m_toldAboutPasswordFile = false;
    // When the recent queries were opened (monotonic milliseconds).
    QElapsedTimer m_clock;
    QList<qint64> m_queryOpenings;
    bool m_burstNoted = false;

    // The mention test for the own nick, rebuilt only when that nick changes.
    QString m_mentionNick;
    QRegularExpression m_mentionPattern;
};
