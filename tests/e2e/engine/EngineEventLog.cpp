#include "EngineEventLog.h"

#include "IRCConnection.h"

#include <QTest>

EngineEventLog::EngineEventLog(IRCConnection* c)
    : QObject(c)
{
    connect(c, &IRCConnection::connected, this, [this] { add(QStringLiteral("connected")); });
    connect(c, &IRCConnection::registered, this, [this] { add(QStringLiteral("registered")); });
    connect(c, &IRCConnection::disconnected, this, [this] { add(QStringLiteral("disconnected")); });
    connect(c, &IRCConnection::errorOccurred, this,
        [this](const QString& e) { add(QStringLiteral("error|") + e); });
    connect(c, &IRCConnection::privmsgReceived, this,
        [this](const QString& f, const QString& t, const QString& x) {
            add({ "privmsg", f, t, x });
        });
    connect(c, &IRCConnection::joinReceived, this, [this](const QString& n, const QString& ch) {
        add({ "join", n, ch });
    });
    connect(
        c, &IRCConnection::partReceived, this, [this](const QString& n, const QString& ch, const QString& r) {
            add({ "part", n, ch, r });
        });
    connect(c, &IRCConnection::nickChanged, this, [this](const QString& o, const QString& n) {
        add({ "nick", o, n });
    });
    connect(c, &IRCConnection::ownNickChanged, this, [this](const QString& n) { add({ "ownnick", n }); });
    connect(c, &IRCConnection::namesList, this, [this](const QString& ch, const QStringList& names) {
        QStringList sorted = names;
        sorted.sort();
        add({ "names", ch, sorted.join(QLatin1Char(' ')) });
    });
    connect(c, &IRCConnection::namesListFinished, this, [this](const QString& ch) {
        add({ "namesend", ch });
    });
    connect(c, &IRCConnection::topicReceived, this, [this](const QString& ch, const QString& t) {
        add({ "topic", ch, t });
    });
    connect(c, &IRCConnection::quitReceived, this, [this](const QString& n, const QString& r) {
        add({ "quit", n, r });
    });
    connect(c, &IRCConnection::kickReceived, this,
        [this](const QString& ch, const QString& k, const QString& by, const QString& r) {
            add({ "kick", ch, k, by, r });
        });
    connect(c, &IRCConnection::listStartReceived, this, [this] { add(QStringLiteral("liststart")); });
    connect(c, &IRCConnection::listChannelReceived, this,
        [this](const QString& ch, const QString& n, const QString& t) {
            add({ "list", ch, n, t });
        });
    connect(c, &IRCConnection::listEndReceived, this, [this] { add(QStringLiteral("listend")); });
    connect(c, &IRCConnection::listInfoReceived, this, [this](const QString& s, int chans, int users) {
        add({ "listinfo", s, QString::number(chans), QString::number(users) });
    });
    connect(c, &IRCConnection::whoisUserReceived, this,
        [this](const QString& n, const QString& u, const QString& h, const QString& r) {
            add({ "whoisuser", n, u, h, r });
        });
    connect(c, &IRCConnection::whoisServerReceived, this,
        [this](const QString& n, const QString& s, const QString& i) {
            add({ "whoisserver", n, s, i });
        });
    connect(c, &IRCConnection::whoisOperatorReceived, this, [this](const QString& n) {
        add({ "whoisoper", n });
    });
    connect(c, &IRCConnection::whoisIdleReceived, this, [this](const QString& n, int idle, const QString& s) {
        add({ "whoisidle", n, QString::number(idle), s });
    });
    connect(c, &IRCConnection::whoisChannelsReceived, this, [this](const QString& n, const QString& ch) {
        add({ "whoischannels", n, ch });
    });
    connect(c, &IRCConnection::whoisEndReceived, this, [this](const QString& tab, const QString& n) {
        add({ "whoisend", tab, n });
    });
    connect(c, &IRCConnection::whoisAwayReceived, this, [this](const QString& n, const QString& m) {
        add({ "whoisaway", n, m });
    });
    connect(c, &IRCConnection::watchStatus, this, [this](const QString& n, bool online) {
        add({ "watch", n, online ? QStringLiteral("online") : QStringLiteral("offline") });
    });
}

QStringList EngineEventLog::of(const QString& kind) const
{
    QStringList result;
    for (const QString& e : events) {
        if (e == kind || e.startsWith(kind + QLatin1Char('|')))
            result << e;
    }
    return result;
}

bool EngineEventLog::waitFor(const QString& event, int timeoutMs) const
{
    return QTest::qWaitFor([&] { return events.contains(event); }, timeoutMs);
}

bool EngineEventLog::waitForCount(const QString& kind, int count, int timeoutMs) const
{
    return QTest::qWaitFor([&] { return of(kind).size() >= count; }, timeoutMs);
}

QString ev(const QStringList& fields)
{
    return fields.join(QLatin1Char('|'));
}
