#include "SignalRecorder.h"

#include <QMetaMethod>
#include <QTest>

SignalRecorder::SignalRecorder(QObject* source)
    : m_meta(source->metaObject())
{
    for (int i = QObject::staticMetaObject.methodCount(); i < m_meta->methodCount(); ++i) {
        if (m_meta->method(i).methodType() == QMetaMethod::Signal)
            QMetaObject::connect(source, i, this, QObject::staticMetaObject.methodCount() + i);
    }
}

QStringList SignalRecorder::of(const QStringList& names) const
{
    QStringList found;
    for (const QString& entry : m_log) {
        if (names.contains(entry.section(QLatin1Char(':'), 0, 0)))
            found.append(entry);
    }
    return found;
}

bool SignalRecorder::waitFor(const QString& entry, int timeoutMs) const
{
    return QTest::qWaitFor([&] { return m_log.contains(entry); }, timeoutMs);
}

bool SignalRecorder::waitForCount(const QString& name, int count, int timeoutMs) const
{
    return QTest::qWaitFor([&] { return entries(name).size() >= count; }, timeoutMs);
}

int SignalRecorder::qt_metacall(QMetaObject::Call call, int id, void** args)
{
    id = QObject::qt_metacall(call, id, args);
    if (id < 0 || call != QMetaObject::InvokeMetaMethod)
        return id;
    const QMetaMethod signal = m_meta->method(id);
    QStringList values;
    for (int i = 0; i < signal.parameterCount(); ++i) {
        const QVariant value(signal.parameterMetaType(i), args[i + 1]);
        values.append(value.typeId() == QMetaType::QStringList ? value.toStringList().join(QLatin1Char(','))
                                                               : value.toString());
    }
    const QString name = QString::fromLatin1(signal.name());
    m_log.append(values.isEmpty() ? name : name + QLatin1Char(':') + values.join(QLatin1Char('|')));
    return -1;
}
