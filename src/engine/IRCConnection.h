#pragma once

#include "PlatformPower.h"
#include "ServerConfig.h"

#include <QAbstractSocket>
#include <QByteArray>
#include <QElapsedTimer>
#include <QHash>
#include <QObject>
#include <QString>
#include <QStringList>

#include <functional>

class QSslCertificate;
class QSslError;
class QTcpSocket;
class QTimer;
struct IrcMessage;

// The one connection to one IRC server: owns the TCP or TLS socket, registers,
// cuts the received bytes into lines, has IRCParser type them and reacts to
// each (handleMessage), sends commands, keeps the link alive and publishes
// everything that happens as signals.
class IRCConnection : public QObject
{
    Q_OBJECT

public:
    // Timing of the keep-alive check. The defaults are the program's fixed
    // values; tests shorten nothing but drive the clock (setKeepAliveClock).
    struct KeepAliveTiming
    {
        int checkIntervalMs = 10000; // period of the keep-alive timer
        qint64 idleBeforePingMs = 60000; // PING after strictly more idle time than this
        qint64 pingTimeoutMs = 45000; // give up after strictly more time than this
    };

    // Monotonic milliseconds; only differences are used.
    using Clock = std::function<qint64()>;

    // How fast lines go out once registered: a burst of `burst` lines, then one
    // every intervalMs, so that a paste is never taken for a flood.
    struct SendPacing
    {
        int burst = 5;
        int intervalMs = 1500;
    };

    // What the server told about itself in ISUPPORT (005), with the values
    // assumed until it does.
    struct ServerSupport
    {
        QString prefixModes = QStringLiteral("qaohv"); // member modes, highest first
        QString prefixSymbols = QStringLiteral("~&@%+"); // their symbols, in the same order
        QString chanTypes = QStringLiteral("#");
        // CHANMODES: modes with a list, with a parameter always, with one when
        // set, and without one.
        QStringList chanModes = { QStringLiteral("beI"), QStringLiteral("k"), QStringLiteral("l"),
            QStringLiteral("imnpst") };
        QString statusMsg = QStringLiteral("~&@%+"); // prefixes of a message to a channel's ranks ("@#chan")
        QString network;
        QString caseMapping = QStringLiteral("rfc1459");
        int nickLen = 0; // 0: not given
        int lineLen = 512; // CR LF included
        bool watch = false;
        bool monitor = false;
    };

    // A TLS certificate the connection would not take on its own.
    struct CertificateInfo
    {
        QString host;
        quint16 port = 0;
        QStringList errors;
        QString subject;
        QString issuer;
        QString validFrom;
        QString validUntil;
        QString fingerprint; // SHA-256, "AB:CD:..."
    };

    // Longest received line kept (bytes, without its terminator).
    static constexpr int MaxLineLength = 64 * 1024;

    explicit IRCConnection(QObject* parent = nullptr);
    ~IRCConnection() override;

    void connectToServer(
        const QString& host, quint16 port, const QString& nick, const QString& realName, bool useSsl);
    // Says QUIT with reason (while connected) and drops the link.
    void disconnectFromServer(const QString& reason = QStringLiteral("Quenvar leaving"));
    // Sends one line (cut at a line break, and to what the server takes).
    // Once registered, lines go out at the pace set by setSendPacing; the
    // lines still waiting are dropped when the link ends.
    void sendRaw(const QString& line);
    void setSendPacing(const SendPacing& pacing) { m_pacing = pacing; }
    // Certificates that fail verification: taken anyway with a warning
    // (acceptInvalid), or taken once when their fingerprint is this one
    // (for the next connection only). A fingerprint pinned in the server
    // record is always taken, and any other certificate for that server refused.
    void setAcceptInvalidCertificates(bool acceptInvalid) { m_acceptInvalidCertificates = acceptInvalid; }
    void acceptCertificateOnce(const QString& fingerprint) { m_acceptOnce = fingerprint; }
    static QString fingerprintOf(const QSslCertificate& certificate);
    SendPacing sendPacing() const { return m_pacing; }
    // Lines waiting for their turn.
    qsizetype queuedLines() const { return m_sendQueue.size(); }

    void joinChannel(const QString& channel);
    void partChannel(const QString& channel);
    // Sends text to target as PRIVMSG lines: one message per line of text,
    // each cut to what the server can relay (see splitText); returns the
    // pieces sent, in order.
    QStringList sendPrivmsg(const QString& target, const QString& text);
    // The same as NOTICE lines.
    QStringList sendNotice(const QString& target, const QString& text);
    // Longest line a server takes, CR LF included.
    static constexpr int MaxLineBytes = 512;
    // The lines of text (CR LF, CR or LF end a line; empty lines are
    // dropped), each cut into pieces of at most maxBytes bytes of UTF-8: at
    // the last space that fits (the space dropped) or, without one, between
    // two characters, never inside one.
    static QStringList splitText(const QString& text, int maxBytes);
    // The bytes of message text a PRIVMSG to target may carry: what is left
    // of a line once the server puts ":nick!user@host " in front when it
    // relays it (user@host as learned from the own join, else as long as a
    // server allows).
    int messageBudget(const QString& target) const;
    void changeNick(const QString& nick);
    void sendWhois(const QString& nick);
    // Follows nick with WATCH or MONITOR, whichever the server offers;
    // false (nothing sent) when it offers neither or the link is down.
    bool sendWatch(const QString& nick, bool add);

    const ServerSupport& serverSupport() const { return m_support; }
    // Whether name is a channel on this server (its CHANTYPES).
    bool isChannelName(const QString& name) const;
    // name folded by the server's case mapping, for comparing nicks and channels.
    QString foldCase(const QString& name) const;
    bool sameName(const QString& a, const QString& b) const { return foldCase(a) == foldCase(b); }
    // The capabilities the server acknowledged.
    QStringList enabledCaps() const { return m_enabledCaps; }
    bool hasCap(const QString& cap) const { return m_enabledCaps.contains(cap); }
    // While a received message is handled: the server's time of it
    // (server-time), in milliseconds since the epoch; otherwise 0.
    qint64 messageTime() const { return m_messageTime; }

    bool isConnected() const;
    bool isRegistered() const;
    void setRegistered(bool registered);
    QString currentNick() const;
    QString getHost() const;
    bool isAway() const;
    void setAway(bool away);

    void resetListCounters();
    void addListChannel(int userCount);
    void setListServerName(const QString& name);
    QString getListServerName() const;
    int getTotalListChannels() const;
    int getTotalListUsers() const;

    void setServerConfig(const ServerConfig& config);
    ServerConfig serverConfig() const;

    void tryNextNick();

    // Nickname candidates in the order they are tried (built on connect).
    QStringList nickCandidates() const;

    // Keep-alive seam: the clock the check reads (an empty function restores
    // the steady clock) and its timing.
    void setKeepAliveClock(Clock clock);
    void setKeepAliveTiming(const KeepAliveTiming& timing);
    KeepAliveTiming keepAliveTiming() const;
    bool isKeepAliveRunning() const;
    bool isPingPending() const;

    bool isSleepInhibited() const;
    const PlatformPower& platformPower() const;

    // Seams for tests and fuzzing, unused by the program:
    // - with a send observer set, every line sendRaw() would write goes to
    //   the observer instead (cut as it would be cut, without CR LF), whether
    //   or not a socket is connected;
    // - receiveBytes() takes bytes as if read from the socket: they are
    //   framed, decoded and parsed exactly like received data.
    using SendObserver = std::function<void(const QString& line)>;
    void setSendObserver(SendObserver observer);
    void receiveBytes(const QByteArray& bytes);

    // What a received line makes the connection do: its signals, and the
    // automatic replies (PONG, NAMES after our own JOIN, the next nickname
    // on 433) and state (registration, LIST counters) that go with them.
    // Called for every line read; tests, fuzzing and benchmarks call it too.
    void handleMessage(const IrcMessage& message);

public slots:
    // Runs on every tick of the keep-alive timer; may be called directly.
    void checkKeepAlive();

signals:
    void connected();
    // A connection attempt ended before the link came up (refused, no
    // route, a failed TLS handshake).
    void connectFailed();
    void registered();
    void disconnected();
    void errorOccurred(const QString& error);
    void rawMessageReceived(const QString& message);
    void serverMessage(const QString& message);
    void privmsgReceived(const QString& from, const QString& target, const QString& text);
    void joinReceived(const QString& nick, const QString& channel);
    void partReceived(const QString& nick, const QString& channel, const QString& reason);
    void nickChanged(const QString& oldNick, const QString& newNick);
    void namesList(const QString& channel, const QStringList& names);
    void namesListFinished(const QString& channel);
    void topicReceived(const QString& channel, const QString& topic);
    void quitReceived(const QString& nick, const QString& reason);
    void kickReceived(
        const QString& channel, const QString& kickedNick, const QString& kickerNick, const QString& reason);
    void listStartReceived();
    void listChannelReceived(const QString& channel, const QString& userCount, const QString& topic);
    void listEndReceived();
    void listInfoReceived(const QString& serverName, const int& totalChannels, const int& totalUsers);
    void whoisUserReceived(
        const QString& nick, const QString& user, const QString& host, const QString& real);
    void whoisServerReceived(const QString& nick, const QString& server, const QString& serverInfo);
    void whoisOperatorReceived(const QString& nick);
    void whoisIdleReceived(const QString& nick, const int& idle, const QString& signon);
    void whoisChannelsReceived(const QString& nick, const QString& channels);
    void whoisEndReceived(const QString& targetTab, const QString& nick);
    void whoisAwayReceived(const QString& nick, const QString& msg);
    void watchStatus(const QString& nick, const bool& online);
    void ownNickChanged(const QString& newNick);
    // After registration the server refused a nick change (432 or 433); the
    // nick stays as it is.
    void nickRejected(const QString& nick, int numeric, const QString& reason);
    // The server's certificate failed verification and nothing said to take
    // it: the connection was not made. The user may decide.
    void certificateUntrusted(const IRCConnection::CertificateInfo& info);
    // Taken although it failed verification, as the preferences say (errors: why).
    void certificateAcceptedDespite(const QStringList& errors);
    // The server presented another certificate than the one pinned for it.
    void certificateChanged(const QString& pinned, const QString& presented);
    // ISUPPORT told something new (see serverSupport()).
    void serverSupportChanged();
    // The outcome of a SASL login (reason: the server's text).
    void saslFinished(bool success, const QString& reason);
    // A user, a service or a server (from: its name; empty for a notice
    // without prefix) sent a NOTICE to target (a channel or us).
    void noticeReceived(const QString& from, const QString& target, const QString& text, bool fromUser);
    void actionReceived(const QString& from, const QString& target, const QString& text);
    void ctcpRequestReceived(const QString& from, const QString& target, const QString& command, const QString& args);
    void ctcpReplyReceived(const QString& from, const QString& command, const QString& text);
    void topicChanged(const QString& nick, const QString& channel, const QString& topic);
    void modeReceived(const QString& from, const QString& target, const QStringList& modes);
    void inviteReceived(const QString& from, const QString& nick, const QString& channel);
    // away-notify: message is null when nick is back.
    void userAwayChanged(const QString& nick, const QString& message);
    void accountChanged(const QString& nick, const QString& account);
    void hostChanged(const QString& nick, const QString& user, const QString& host);
    // A line nothing above stands for (an unknown command, a malformed line),
    // without its message tags.
    void unhandledLine(const QString& line);
    // An error reply about subject (a channel, a nick or a command; the
    // channel when the reply names one).
    void errorReplyReceived(int numeric, const QString& subject, const QString& text);

private slots:
    void onConnected();
    void onDisconnected();
    void onReadyRead();
    void onError(QAbstractSocket::SocketError socketError);

private:
    void configureSocketKeepAlive();
    void disableSleep();
    void enableSleep();
    void generateNickAlternatives(const QString& primary, const QString& alt);
    void onOwnNickChanged(const QString& oldNick, const QString& newNick);
    void processBuffer();
    void onSslErrors(const QList<QSslError>& errors);
    bool pinnedCertificateDiffers();
    qint64 now() const;
    void writeLine(const QString& line);
    // line as it may go out: up to its first line break (or NUL), cut to what
    // the server takes.
    QString wireLine(const QString& line) const;
    void flushQueue();
    void handleCap(const IrcMessage& m);
    void requestCaps(const QStringList& offered);
    void endCapNegotiation();
    void applyIsupport(const QStringList& tokens);
    void answerCtcp(const QString& from, const QString& command, const QString& args);
    QString messageTarget(const QString& target) const;
    QString loginAccount() const;
    QStringList sendSplit(const QString& command, const QString& target, const QString& text);

    QTcpSocket* socket = nullptr;
    QTimer* keepAliveTimer = nullptr;
    qint64 lastActivity = 0; // clock time of the last received chunk or successful send
    qint64 pingSentTimer = 0; // clock time the keep-alive PING went out
    QString host;
    quint16 port = 0;
    QString nickName;
    QString realName;
    QString m_userHost; // user@host the server shows for us, once seen
    bool useSsl = false;
    QByteArray buffer; // received bytes not yet ended by a line feed
    bool m_registered = false;
    bool away = false;
    bool pingPending = false;
    int totalListChannels = 0;
    int totalListUsers = 0;
    QString listServerName;
    QStringList pendingNicks;
    int nickAttemptIndex = 0;
    bool sleepInhibited = false;
    ServerConfig m_serverConfig;

    bool m_linkUp = false; // this socket reached onConnected (after the TLS handshake for TLS)
    bool m_discardingLine = false; // dropping the rest of an oversize line
    bool m_processingBuffer = false; // processBuffer is delivering lines
    KeepAliveTiming m_timing;
    Clock m_clock;
    QElapsedTimer m_steadyClock;
    PlatformPower m_power;
    SendObserver m_sendObserver;

    SendPacing m_pacing;
    QStringList m_sendQueue;
    QTimer* m_sendTimer = nullptr;
    double m_sendTokens = 0; // lines that may go out at once
    qint64 m_tokensAt = 0; // steady-clock time m_sendTokens was counted

    ServerSupport m_support;
    qint64 m_messageTime = 0;
    bool m_acceptInvalidCertificates = false;
    QString m_acceptOnce;
    bool m_capNegotiating = false;
    bool m_saslRunning = false;
    QStringList m_offeredCaps; // names from CAP LS, gathered over its lines
    QString m_saslMechanisms; // the value of "sasl=" in CAP LS
    QStringList m_enabledCaps;
    QHash<QString, qint64> m_ctcpAnswered; // folded nick -> steady-clock time of the last answer
};
