#pragma once

#include "IRCConnection.h"

#include <QObject>
#include <QRegularExpression>
#include <QStringList>
#include <QTest>

// One event as EngineEventLog writes it.
inline QString ev(const QStringList& fields)
{
    return fields.join(QLatin1Char('|'));
}

// Records a connection's signals as text in arrival order, one entry per
// signal with its arguments joined by "|" ("join|nick|#chan"), so a test can
// check both what was reported and in which order.
class EngineEventLog : public QObject
{
public:
    explicit EngineEventLog(IRCConnection* c)
        : QObject(c)
    {
        using I = IRCConnection;
        record(c, &I::connected, "connected");
        record(c, &I::registered, "registered");
        record(c, &I::disconnected, "disconnected");
        record(c, &I::errorOccurred, "error");
        record(c, &I::privmsgReceived, "privmsg");
        record(c, &I::joinReceived, "join");
        record(c, &I::partReceived, "part");
        record(c, &I::nickChanged, "nick");
        record(c, &I::ownNickChanged, "ownnick");
        record(c, &I::namesList, "names");
        record(c, &I::namesListFinished, "namesend");
        record(c, &I::topicReceived, "topic");
        record(c, &I::quitReceived, "quit");
        record(c, &I::kickReceived, "kick");
        record(c, &I::listStartReceived, "liststart");
        record(c, &I::listChannelReceived, "list");
        record(c, &I::listEndReceived, "listend");
        record(c, &I::listInfoReceived, "listinfo");
        record(c, &I::whoisUserReceived, "whoisuser");
        record(c, &I::whoisServerReceived, "whoisserver");
        record(c, &I::whoisOperatorReceived, "whoisoper");
        record(c, &I::whoisIdleReceived, "whoisidle");
        record(c, &I::whoisChannelsReceived, "whoischannels");
        record(c, &I::whoisEndReceived, "whoisend");
        record(c, &I::whoisAwayReceived, "whoisaway");
        record(c, &I::watchStatus, "watch");
    }

    QStringList events;

    // Events whose first field is kind, in order.
    QStringList of(const QString& kind) const
    {
        return events.filter(QRegularExpression(QStringLiteral("^%1(\\||$)").arg(kind)));
    }
    bool waitFor(const QString& event, int timeoutMs = 10000) const
    {
        return QTest::qWaitFor([&] { return events.contains(event); }, timeoutMs);
    }
    bool waitForCount(const QString& kind, int count, int timeoutMs = 10000) const
    {
        return QTest::qWaitFor([&] { return of(kind).size() >= count; }, timeoutMs);
    }

private:
    static QString field(const QString& text) { return text; }
    static QString field(int number) { return QString::number(number); }
    // The one flag among the signals' arguments is WATCH's.
    static QString field(bool online)
    {
        return online ? QStringLiteral("online") : QStringLiteral("offline");
    }
    // Names in a fixed order.
    static QString field(QStringList names)
    {
        names.sort();
        return names.join(QLatin1Char(' '));
    }

    template <typename... Args>
    void record(IRCConnection* c, void (IRCConnection::*signal)(Args...), const char* kind)
    {
        connect(c, signal, this, [this, kind](Args... args) {
            events << ev((QStringList { QString::fromLatin1(kind) } << ... << field(args)));
        });
    }
};
