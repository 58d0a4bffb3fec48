#pragma once

#include <QHash>
#include <QObject>
#include <QString>

#include <functional>

class QTimer;
struct BufferLine;

// Writes a network's rows to text files, one per buffer:
// <folder>/<network>/<buffer>.log, names made safe for the file system. One
// line per row: the time (ISO 8601 with its offset), the sender, the text.
// Rows are kept in memory and written at least every two seconds and when the
// log goes away. A file that cannot be written is reported once and left
// alone from then on.
class SessionLog : public QObject
{
    Q_OBJECT

public:
    static constexpr int FlushIntervalMs = 2000;

    explicit SessionLog(QObject* parent = nullptr);
    ~SessionLog() override;

    bool isActive() const { return m_enabled && !m_folder.isEmpty(); }
    // An empty folder, or enabled false, writes nothing.
    void setTarget(bool enabled, const QString& folder);
    // What becomes of a row's text before it is written (formatting codes
    // taken out, say).
    void setTextFilter(std::function<QString(const QString&)> filter) { m_filter = std::move(filter); }
    // The file a buffer of network is written to ("" while disabled).
    QString filePath(const QString& network, const QString& bufferKey) const;

    // bufferKey: the buffer's name as the network compares names (folded).
    void append(const QString& network, const QString& bufferKey, const BufferLine& line);
    void flush();

signals:
    void writeFailed(const QString& path, const QString& reason);

private:
    static QString safeName(const QString& name);

    bool m_enabled = false;
    QString m_folder;
    std::function<QString(const QString&)> m_filter;
    QHash<QString, QByteArray> m_pending; // path -> lines not written yet
    QHash<QString, bool> m_failed; // paths given up on
    QTimer* m_timer = nullptr;
};
