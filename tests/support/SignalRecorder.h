#pragma once

#include <QMetaMethod>
#include <QObject>
#include <QStringList>
#include <QTest>

// Records every signal of an object (its own class's, not QObject's), in the
// order they are emitted, as "name:arg1|arg2|..." (a string list joined with
// ",", flags as true/false).
class SignalRecorder : public QObject
{
public:
    explicit SignalRecorder(QObject* source)
        : m_meta(source->metaObject())
    {
        for (int i = QObject::staticMetaObject.methodCount(); i < m_meta->methodCount(); ++i) {
            if (m_meta->method(i).methodType() == QMetaMethod::Signal)
                QMetaObject::connect(source, i, this, QObject::staticMetaObject.methodCount() + i);
        }
    }

    QStringList log() const { return m_log; }
    void clear() { m_log.clear(); }
    // The entries of the signals named in names, in order.
    QStringList of(const QStringList& names) const
    {
        QStringList found = m_log;
        found.removeIf([&](const QString& entry) { return !names.contains(entry.section(':', 0, 0)); });
        return found;
    }
    QStringList entries(const QString& name) const { return of({ name }); }
    // Wait until entry is in the log / until name was emitted count times.
    bool waitFor(const QString& entry, int timeoutMs = 10000) const
    {
        return QTest::qWaitFor([&] { return m_log.contains(entry); }, timeoutMs);
    }
    bool waitForCount(const QString& name, int count, int timeoutMs = 10000) const
    {
        return QTest::qWaitFor([&] { return entries(name).size() >= count; }, timeoutMs);
    }

    // Every signal arrives here as the slot numbered like the signal (after
    // QObject's own methods), the way QSignalSpy listens.
    int qt_metacall(QMetaObject::Call call, int id, void** args) override
    {
        id = QObject::qt_metacall(call, id, args);
        if (id < 0 || call != QMetaObject::InvokeMetaMethod)
            return id;
        const QMetaMethod signal = m_meta->method(id);
        QStringList values;
        for (int i = 0; i < signal.parameterCount(); ++i) {
            const QVariant value(signal.parameterMetaType(i), args[i + 1]);
            const bool list = value.typeId() == QMetaType::QStringList;
            values << (list ? value.toStringList().join(',') : value.toString());
        }
        const QString name = QString::fromLatin1(signal.name());
        m_log << (values.isEmpty() ? name : name + ':' + values.join('|'));
        return -1;
    }

private:
    const QMetaObject* m_meta;
    QStringList m_log;
};
