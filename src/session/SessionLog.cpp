#include "SessionLog.h"

#include "Session.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTimer>

#include <utility>

SessionLog::SessionLog(QObject* parent)
    : QObject(parent)
    , m_timer(new QTimer(this))
{
    m_timer->setSingleShot(true);
    m_timer->setInterval(FlushIntervalMs);
    connect(m_timer, &QTimer::timeout, this, &SessionLog::flush);
}

SessionLog::~SessionLog()
{
    flush();
}

void SessionLog::setTarget(bool enabled, const QString& folder)
{
    if (enabled == m_enabled && folder == m_folder)
        return;
    flush();
    m_enabled = enabled;
    m_folder = folder;
    m_failed.clear();
}

// No separators, no characters file systems refuse, no leading dot.
QString SessionLog::safeName(const QString& name)
{
    QString safe = name;
    for (QChar& c : safe) {
        if (c.unicode() < 0x20 || QStringLiteral("/\\:*?\"<>|").contains(c))
            c = QLatin1Char('_');
    }
    if (safe.isEmpty() || safe.startsWith(QLatin1Char('.')))
        safe.prepend(QLatin1Char('_'));
    return safe;
}

QString SessionLog::filePath(const QString& network, const QString& bufferKey) const
{
    if (!m_enabled || m_folder.isEmpty())
        return QString();
    return QDir(m_folder).filePath(safeName(network) + QLatin1Char('/') + safeName(bufferKey) + QStringLiteral(".log"));
}

void SessionLog::append(const QString& network, const QString& bufferKey, const BufferLine& line)
{
    const QString path = filePath(network, bufferKey);
    if (path.isEmpty() || m_failed.contains(path))
        return;
    const QString text = m_filter ? m_filter(line.text) : line.text;
    // Local time with its offset from UTC written out.
    const QDateTime when = QDateTime::fromMSecsSinceEpoch(line.time);
    QString row = when.toOffsetFromUtc(when.offsetFromUtc()).toString(Qt::ISODate);
    if (line.sender.isEmpty())
        row += QLatin1Char(' ') + text;
    else if (line.is(BufferLine::Status) || line.is(BufferLine::Action))
        row += QStringLiteral(" * %1 %2").arg(line.sender, text);
    else
        row += QStringLiteral(" <%1> %2").arg(line.sender, text);
    // One row, one line.
    row.replace(QLatin1Char('\n'), QLatin1Char(' ')).replace(QLatin1Char('\r'), QLatin1Char(' '));
    m_pending[path] += row.toUtf8() + '\n';
    if (!m_timer->isActive())
        m_timer->start();
}

void SessionLog::flush()
{
    m_timer->stop();
    const QHash<QString, QByteArray> pending = std::exchange(m_pending, {});
    for (auto it = pending.cbegin(); it != pending.cend(); ++it) {
        QFile file(it.key());
        const bool ok = QDir().mkpath(QFileInfo(file).absolutePath()) && file.open(QIODevice::Append)
            && file.write(it.value()) == it.value().size();
        if (!ok) {
            m_failed.insert(it.key(), true);
            emit writeFailed(it.key(), file.errorString());
        }
    }
}
