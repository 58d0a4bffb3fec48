#pragma once

#include <QObject>
#include <QStringList>

class IRCConnection;

// Records every signal of a connection, in the order they are emitted, as
// "name:arg1|arg2|..." (a name list joined with ",", flags as true/false).
class SignalRecorder : public QObject
{
public:
    explicit SignalRecorder(IRCConnection* connection);

    QStringList log() const { return m_log; }
    QStringList take() { return std::exchange(m_log, {}); }
    // Entries whose signal name is name.
    QStringList entries(const QString& name) const;
    // The log without the rawMessageReceived entries.
    QStringList withoutRaw() const
    {
        QStringList log = m_log;
        log.removeIf(
            [](const QString& entry) { return entry.startsWith(QLatin1String("rawMessageReceived:")); });
        return log;
    }
    void clear() { m_log.clear(); }
    void remove(const QString& entry) { m_log.removeAll(entry); }

    // Every signal arrives here as the slot numbered like the signal (after
    // QObject's own methods), the way QSignalSpy listens.
    int qt_metacall(QMetaObject::Call call, int id, void** args) override;

private:
    QStringList m_log;
};
