#pragma once

#include <QObject>
#include <QString>
#include <QStringList>

class IRCConnection;

// Records a connection's signals as text in arrival order, one entry per
// signal with its arguments joined by "|" ("join|nick|#chan"), so a test can
// check both what was reported and in which order.
class EngineEventLog : public QObject
{
public:
    explicit EngineEventLog(IRCConnection* connection);

    QStringList events;

    // Events whose first field is kind, in order.
    QStringList of(const QString& kind) const;
    // Waits until exactly this event has been recorded.
    bool waitFor(const QString& event, int timeoutMs = 10000) const;
    // Waits until at least count events of this kind have been recorded.
    bool waitForCount(const QString& kind, int count, int timeoutMs = 10000) const;

private:
    void add(const QString& e) { events << e; }
    void add(const QStringList& fields) { events << fields.join(QLatin1Char('|')); }
};

// One event as EngineEventLog writes it.
QString ev(const QStringList& fields);
