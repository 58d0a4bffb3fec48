#include "SignalRecorder.h"

#include "IRCConnection.h"

#include <QMetaMethod>

SignalRecorder::SignalRecorder(IRCConnection* connection)
{
    const QMetaObject& meta = IRCConnection::staticMetaObject;
    for (int i = meta.methodOffset(); i < meta.methodCount(); ++i) {
        if (meta.method(i).methodType() == QMetaMethod::Signal)
            QMetaObject::connect(connection, i, this, QObject::staticMetaObject.methodCount() + i);
    }
}

QStringList SignalRecorder::entries(const QString& name) const
{
    QStringList found;
    for (const QString& entry : m_log) {
        if (entry == name || entry.startsWith(name + QLatin1Char(':')))
            found.append(entry);
    }
    return found;
}

int SignalRecorder::qt_metacall(QMetaObject::Call call, int id, void** args)
{
    id = QObject::qt_metacall(call, id, args);
    if (id < 0 || call != QMetaObject::InvokeMetaMethod)
        return id;
    const QMetaMethod signal = IRCConnection::staticMetaObject.method(id);
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
