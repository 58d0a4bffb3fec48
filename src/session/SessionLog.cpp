#include "SessionLog.h"

#include "Session.h"

#include <QCoreApplication>
#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSet>
#include <QStandardPaths>
#include <QStringEncoder>
#include <QTimer>

#include <algorithm>
#include <utility>

namespace {

// Appends text as UTF-8. Control characters (formatting codes among them)
// stop it: false, with out as it was.
bool appendUtf8(QByteArray& out, QStringView text)
{
    const qsizetype start = out.size();
    out.resize(start + text.size() * 3);
    char* to = out.data() + start;
    qsizetype i = 0;
    // Mostly ASCII: byte by byte until the first character that is not.
    for (; i < text.size(); ++i) {
        const char16_t c = text[i].unicode();
        if (c >= 0x80)
            break;
        if (c < 0x20 || c == 0x7F) {
            out.truncate(start);
            return false;
        }
        *to++ = char(c);
    }
    if (i < text.size()) {
        const QStringView rest = text.mid(i);
        if (std::any_of(rest.cbegin(), rest.cend(), [](QChar c) { return c.unicode() < 0x20 || c.unicode() == 0x7F; })) {
            out.truncate(start);
            return false;
        }
        QStringEncoder encoder(QStringEncoder::Utf8);
        to = encoder.appendToBuffer(to, rest);
    }
    out.truncate(to - out.constData());
    return true;
}

} // namespace

// Lives on the log's own thread and does the file system work.
class SessionLogWriter : public QObject
{
public:
    explicit SessionLogWriter(SessionLog* log)
        : m_log(log)
    {
    }

    void write(const QHash<QString, QByteArray>& batch)
    {
        for (auto it = batch.cbegin(); it != batch.cend(); ++it) {
            if (m_failed.contains(it.key()))
                continue;
            QFile file(it.key());
            const bool ok = QDir().mkpath(QFileInfo(file).absolutePath()) && file.open(QIODevice::Append)
                && file.write(it.value()) == it.value().size() && file.flush();
            if (!ok) {
                m_failed.insert(it.key());
                const QString path = it.key();
                const QString reason = file.errorString();
                SessionLog* log = m_log;
                QMetaObject::invokeMethod(
                    log, [log, path, reason] { emit log->writeFailed(path, reason); }, Qt::QueuedConnection);
            }
        }
    }
    // A new target: files given up on may be tried again.
    void reset() { m_failed.clear(); }

private:
    SessionLog* m_log;
    QSet<QString> m_failed;
};

SessionLog::SessionLog(QObject* parent)
    : QObject(parent)
    , m_timer(new QTimer(this))
    , m_writer(new SessionLogWriter(this))
{
    m_timer->setSingleShot(true);
    m_timer->setInterval(FlushIntervalMs);
    connect(m_timer, &QTimer::timeout, this, &SessionLog::flush);
    connect(this, &SessionLog::writeFailed, this, &SessionLog::onWriteFailed);
    m_thread.setObjectName(QStringLiteral("log writer"));
    m_writer->moveToThread(&m_thread);
    m_thread.start(QThread::LowPriority);
}

SessionLog::~SessionLog()
{
    flush();
    QMetaObject::invokeMethod(m_writer, [] {}, Qt::BlockingQueuedConnection);
    m_thread.quit();
    m_thread.wait();
    delete m_writer;
}

void SessionLog::setTarget(bool enabled, const QString& folder)
{
    const QString target = folder.isEmpty() ? defaultFolder() : folder;
    if (enabled == m_enabled && target == m_folder)
        return;
    forgetFiles();
    m_enabled = enabled;
    m_folder = target;
    SessionLogWriter* writer = m_writer;
    QMetaObject::invokeMethod(writer, [writer] { writer->reset(); }, Qt::QueuedConnection);
}

namespace {
QString chosenDefaultFolder;
} // namespace

void SessionLog::setDefaultFolder(const QString& folder)
{
    chosenDefaultFolder = folder;
}

QString SessionLog::defaultFolder()
{
    if (!chosenDefaultFolder.isEmpty())
        return chosenDefaultFolder;
    const QString data = QStandardPaths::writableLocation(QStandardPaths::AppLocalDataLocation);
    return data.isEmpty() ? QString() : QDir(data).filePath(QStringLiteral("logs"));
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

QString SessionLog::networkFolder(const QString& network) const
{
    return isActive() ? QDir(m_folder).filePath(safeName(network)) : QString();
}

QString SessionLog::filePath(const QString& network, const QString& bufferKey) const
{
    const QString folder = networkFolder(network);
    return folder.isEmpty() ? QString() : folder + QLatin1Char('/') + safeName(bufferKey) + QStringLiteral(".log");
}

void SessionLog::setNameFolding(std::function<QString(const QString&)> fold)
{
    m_fold = std::move(fold);
    forgetFiles();
}

void SessionLog::forgetFiles()
{
    flush();
    m_files.clear();
}

void SessionLog::formatRow(const BufferLine& line, QByteArray& out)
{
    // Local time with its offset from UTC written out. Rows come many to a
    // second: the text of the second is kept, and the offset is looked up
    // once an hour (it changes on the hour, if at all).
    const qint64 second = line.time / 1000;
    if (second != m_stampSecond) {
        const qint64 hour = second / 3600;
        if (hour != m_offsetHour) {
            m_offsetHour = hour;
            m_offset = QDateTime::fromSecsSinceEpoch(hour * 3600).offsetFromUtc();
        }
        m_stampSecond = second;
        m_stamp = QDateTime::fromSecsSinceEpoch(second, Qt::OffsetFromUTC, m_offset).toString(Qt::ISODate).toUtf8();
    }
    const auto append = [this, &out](const QString& text) {
        if (appendUtf8(out, text))
            return;
        // Formatting codes go through the filter; line breaks and other
        // controls left become spaces: one row, one line.
        QString plain = m_filter ? m_filter(text) : text;
        for (QChar& c : plain) {
            if (c.unicode() < 0x20 || c.unicode() == 0x7F)
                c = QLatin1Char(' ');
        }
        out += plain.toUtf8();
    };
    out += m_stamp;
    if (line.sender.isEmpty()) {
        out += ' ';
    } else if (line.is(BufferLine::Status) || line.is(BufferLine::Action)) {
        out += " * ";
        append(line.sender);
        out += ' ';
    } else {
        out += " <";
        append(line.sender);
        out += "> ";
    }
    append(line.text);
    out += '\n';
}

void SessionLog::append(const QString& network, const QString& buffer, const BufferLine& line)
{
    if (!isActive())
        return;
    if (network != m_filesNetwork) {
        forgetFiles();
        m_filesNetwork = network;
    }
    File& file = m_files[buffer];
    if (file.path.isEmpty())
        file.path = filePath(network, m_fold ? m_fold(buffer) : buffer);
    if (file.failed)
        return;
    formatRow(line, file.pending);
    m_anyPending = true;
    // A busy channel's rows go in pieces that stay small and warm.
    if (file.pending.size() >= ChunkBytes) {
        flush();
        file.pending.reserve(ChunkBytes + 4096);
    } else if (!m_timer->isActive())
        m_timer->start();
}

void SessionLog::flush()
{
    m_timer->stop();
    if (!m_anyPending)
        return;
    m_anyPending = false;
    QHash<QString, QByteArray> batch;
    for (File& file : m_files) {
        if (!file.pending.isEmpty())
            batch[file.path] += std::exchange(file.pending, {});
    }
    SessionLogWriter* writer = m_writer;
    QMetaObject::invokeMethod(
        writer, [writer, batch = std::move(batch)] { writer->write(batch); }, Qt::QueuedConnection);
}

void SessionLog::sync()
{
    flush();
    QMetaObject::invokeMethod(m_writer, [] {}, Qt::BlockingQueuedConnection);
    // The failures the writer reported on the way.
    QCoreApplication::sendPostedEvents(this, QEvent::MetaCall);
}

void SessionLog::onWriteFailed(const QString& path, const QString&)
{
    for (File& file : m_files) {
        if (file.path == path) {
            file.failed = true;
            file.pending.clear();
        }
    }
}

BufferLine SessionLog::parseRow(const QByteArray& raw)
{
    BufferLine line;
    const QString text = QString::fromUtf8(raw);
    const qsizetype space = text.indexOf(QLatin1Char(' '));
    if (space <= 0)
        return line;
    const QDateTime when = QDateTime::fromString(text.left(space), Qt::ISODate);
    if (!when.isValid())
        return line;
    line.time = when.toMSecsSinceEpoch();
    QString rest = text.mid(space + 1);
    if (rest.startsWith(QLatin1Char('<'))) {
        const qsizetype end = rest.indexOf(QStringLiteral("> "));
        if (end > 1) {
            line.sender = rest.mid(1, end - 1);
            rest = rest.mid(end + 2);
        }
    } else if (rest.startsWith(QStringLiteral("* "))) {
        const qsizetype end = rest.indexOf(QLatin1Char(' '), 2);
        if (end > 2) {
            line.sender = rest.mid(2, end - 2);
            line.flags |= BufferLine::Action;
            rest = rest.mid(end + 1);
        }
    }
    line.text = rest;
    return line;
}

QList<BufferLine> SessionLog::readTail(const QString& path, int count)
{
    // Rows are short; a file whose end holds no line breaks is not read to its start.
    constexpr qint64 Chunk = 64 * 1024;
    constexpr qint64 MostRead = 4 * 1024 * 1024;
    QList<BufferLine> rows;
    QFile file(path);
    if (count <= 0 || !file.open(QIODevice::ReadOnly))
        return rows;
    qint64 pos = file.size();
    QByteArray tail;
    while (pos > 0 && tail.count('\n') <= count && tail.size() < MostRead) {
        const qint64 size = qMin(Chunk, pos);
        pos -= size;
        if (!file.seek(pos))
            break;
        tail.prepend(file.read(size));
    }
    QList<QByteArray> lines = tail.split('\n');
    // The first piece may be the end of an earlier line.
    if (pos > 0 && !lines.isEmpty())
        lines.removeFirst();
    for (qsizetype i = lines.size() - 1; i >= 0 && rows.size() < count; --i) {
        const BufferLine row = parseRow(lines.at(i));
        if (row.time != 0)
            rows.prepend(row);
    }
    return rows;
}
