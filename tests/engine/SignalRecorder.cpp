#include "SignalRecorder.h"

#include "IRCConnection.h"

SignalRecorder::SignalRecorder(IRCConnection* c, QObject* parent)
    : QObject(parent)
{
    using C = IRCConnection;
    const auto b = [](bool v) { return v ? QStringLiteral("true") : QStringLiteral("false"); };
    const auto n = [](int v) { return QString::number(v); };
    connect(c, &C::connected, this, [this] { record("connected"); });
    connect(c, &C::registered, this, [this] { record("registered"); });
    connect(c, &C::disconnected, this, [this] { record("disconnected"); });
    connect(c, &C::errorOccurred, this, [this](const QString& e) { record("errorOccurred", { e }); });
    connect(
        c, &C::rawMessageReceived, this, [this](const QString& m) { record("rawMessageReceived", { m }); });
    connect(c, &C::serverMessage, this, [this](const QString& m) { record("serverMessage", { m }); });
    connect(c, &C::privmsgReceived, this,
        [this](const QString& from, const QString& target, const QString& text) {
            record("privmsgReceived", { from, target, text });
        });
    connect(c, &C::joinReceived, this, [this](const QString& nick, const QString& channel) {
        record("joinReceived", { nick, channel });
    });
    connect(c, &C::partReceived, this,
        [this](const QString& nick, const QString& channel, const QString& reason) {
            record("partReceived", { nick, channel, reason });
        });
    connect(c, &C::nickChanged, this, [this](const QString& oldNick, const QString& newNick) {
        record("nickChanged", { oldNick, newNick });
    });
    connect(c, &C::namesList, this, [this](const QString& channel, const QStringList& names) {
        record("namesList", { channel, names.join(QLatin1Char(',')) });
    });
    connect(c, &C::namesListFinished, this,
        [this](const QString& channel) { record("namesListFinished", { channel }); });
    connect(c, &C::topicReceived, this, [this](const QString& channel, const QString& topic) {
        record("topicReceived", { channel, topic });
    });
    connect(c, &C::quitReceived, this, [this](const QString& nick, const QString& reason) {
        record("quitReceived", { nick, reason });
    });
    connect(c, &C::kickReceived, this,
        [this](const QString& channel, const QString& kicked, const QString& kicker, const QString& reason) {
            record("kickReceived", { channel, kicked, kicker, reason });
        });
    connect(c, &C::listStartReceived, this, [this] { record("listStartReceived"); });
    connect(c, &C::listChannelReceived, this,
        [this](const QString& channel, const QString& users, const QString& topic) {
            record("listChannelReceived", { channel, users, topic });
        });
    connect(c, &C::listEndReceived, this, [this] { record("listEndReceived"); });
    connect(c, &C::listInfoReceived, this, [this, n](const QString& server, int channels, int users) {
        record("listInfoReceived", { server, n(channels), n(users) });
    });
    connect(c, &C::whoisUserReceived, this,
        [this](const QString& nick, const QString& user, const QString& host, const QString& real) {
            record("whoisUserReceived", { nick, user, host, real });
        });
    connect(c, &C::whoisServerReceived, this,
        [this](const QString& nick, const QString& server, const QString& info) {
            record("whoisServerReceived", { nick, server, info });
        });
    connect(c, &C::whoisOperatorReceived, this,
        [this](const QString& nick) { record("whoisOperatorReceived", { nick }); });
    connect(c, &C::whoisIdleReceived, this, [this, n](const QString& nick, int idle, const QString& signon) {
        record("whoisIdleReceived", { nick, n(idle), signon });
    });
    connect(c, &C::whoisChannelsReceived, this, [this](const QString& nick, const QString& channels) {
        record("whoisChannelsReceived", { nick, channels });
    });
    connect(c, &C::whoisEndReceived, this, [this](const QString& tab, const QString& nick) {
        record("whoisEndReceived", { tab, nick });
    });
    connect(c, &C::whoisAwayReceived, this, [this](const QString& nick, const QString& msg) {
        record("whoisAwayReceived", { nick, msg });
    });
    connect(c, &C::watchStatus, this, [this, b](const QString& nick, bool online) {
        record("watchStatus", { nick, b(online) });
    });
    connect(c, &C::ownNickChanged, this, [this](const QString& nick) { record("ownNickChanged", { nick }); });
}

QStringList SignalRecorder::take()
{
    QStringList log = m_log;
    m_log.clear();
    return log;
}

QStringList SignalRecorder::entries(const QString& name) const
{
    QStringList found;
    const QString start = name + QLatin1Char(':');
    for (const QString& entry : m_log) {
        if (entry == name || entry.startsWith(start))
            found.append(entry);
    }
    return found;
}

void SignalRecorder::record(const QString& name, const QStringList& args)
{
    m_log.append(args.isEmpty() ? name : name + QLatin1Char(':') + args.join(QLatin1Char('|')));
}
