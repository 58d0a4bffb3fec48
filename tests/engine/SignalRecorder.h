#pragma once

#include <QObject>
#include <QStringList>

class IRCConnection;

// Records every signal of a connection, in the order they are emitted, as
// "name:arg1|arg2|..." (a name list joined with ",", flags as true/false).
class SignalRecorder : public QObject
{
    Q_OBJECT

public:
    explicit SignalRecorder(IRCConnection* connection, QObject* parent = nullptr);

    QStringList log() const { return m_log; }
    QStringList take();
    // Entries whose signal name is name.
    QStringList entries(const QString& name) const;
    void clear() { m_log.clear(); }
    void remove(const QString& entry) { m_log.removeAll(entry); }

private:
    void record(const QString& name, const QStringList& args = {});

    QStringList m_log;
};
