#pragma once

#include <QObject>
#include <QStringList>

// Records every signal of an object (its own class's, not QObject's), in the
// order they are emitted, as "name:arg1|arg2|..." (a string list joined with
// ",", flags as true/false).
class SignalRecorder : public QObject
{
public:
    explicit SignalRecorder(QObject* source);

    QStringList log() const { return m_log; }
    QStringList take() { return std::exchange(m_log, {}); }
    void clear() { m_log.clear(); }
    // The entries of the signals named in names, in order.
    QStringList of(const QStringList& names) const;
    QStringList entries(const QString& name) const { return of({ name }); }
    // Wait until entry is in the log / until name was emitted count times.
    bool waitFor(const QString& entry, int timeoutMs = 10000) const;
    bool waitForCount(const QString& name, int count, int timeoutMs = 10000) const;

    // Every signal arrives here as the slot numbered like the signal (after
    // QObject's own methods), the way QSignalSpy listens.
    int qt_metacall(QMetaObject::Call call, int id, void** args) override;

private:
    const QMetaObject* m_meta;
    QStringList m_log;
};
