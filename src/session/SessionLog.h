#pragma once

#include <QByteArray>
#include <QHash>
#include <QList>
#include <QObject>
#include <QString>
#include <QThread>

#include <functional>

class QTimer;
class SessionLogWriter;
struct BufferLine;

// Writes a network's rows to text files, one per buffer:
// <folder>/<network>/<buffer>.log, names made safe for the file system. One
// line per row: the time (ISO 8601 with its offset), the sender, the text.
// Rows are kept in memory and handed to a writer thread at least every two
// seconds and when the log goes away, so a slow disk never holds up the
// window. A file that cannot be written is reported once and left alone from
// then on.
class SessionLog : public QObject
{
    Q_OBJECT

public:
    static constexpr int FlushIntervalMs = 2000;
    // A file's rows are handed over sooner once this many bytes wait.
    static constexpr qsizetype ChunkBytes = 64 * 1024;

    explicit SessionLog(QObject* parent = nullptr);
    ~SessionLog() override;

    bool isActive() const { return m_enabled && !m_folder.isEmpty(); }
    // enabled false writes nothing; an empty folder is defaultFolder().
    void setTarget(bool enabled, const QString& folder);
    // Where logs go when no folder is chosen: "logs" in the application's
    // data folder, unless another one was set (the settings are kept
    // elsewhere).
    static QString defaultFolder();
    static void setDefaultFolder(const QString& folder);
    // What becomes of a row's text before it is written (formatting codes
    // taken out, say).
    void setTextFilter(std::function<QString(const QString&)> filter) { m_filter = std::move(filter); }
    // The file a buffer of network is written to ("" while disabled).
    QString filePath(const QString& network, const QString& bufferKey) const;
    // The folder of network's files ("" while disabled).
    QString networkFolder(const QString& network) const;

    // How the network folds names (its case mapping): a buffer's file is
    // named by its folded name.
    void setNameFolding(std::function<QString(const QString&)> fold);
    // Forgets which file each buffer goes to (after the network's name or
    // case mapping changed).
    void forgetFiles();
    void append(const QString& network, const QString& buffer, const BufferLine& line);
    // Hands what is waiting to the writer.
    void flush();
    // Flushes and waits until everything handed over is on disk (write
    // failures are reported before it returns).
    void sync();

    // The last `count` rows of a log file, oldest first, read from its end:
    // a big file costs no more than a small one.
    static QList<BufferLine> readTail(const QString& path, int count);

signals:
    void writeFailed(const QString& path, const QString& reason);

private:
    // A buffer's file and the lines waiting to go to it.
    struct File
    {
        QString path;
        QByteArray pending;
        bool failed = false;
    };

    static QString safeName(const QString& name);
    // A row read back from a log line (time 0 when the line is no row).
    static BufferLine parseRow(const QByteArray& line);
    void onWriteFailed(const QString& path, const QString& reason);
    // Appends a row as one line of a log file, with its newline, to out.
    void formatRow(const BufferLine& line, QByteArray& out);

    bool m_enabled = false;
    QString m_folder;
    std::function<QString(const QString&)> m_filter;
    std::function<QString(const QString&)> m_fold;
    QHash<QString, File> m_files; // by buffer name, for m_filesNetwork
    QString m_filesNetwork;
    bool m_anyPending = false;
    // The time text of the last row's second, and the offset from UTC of its hour.
    qint64 m_stampSecond = -1;
    QByteArray m_stamp;
    qint64 m_offsetHour = -1;
    int m_offset = 0;
    QTimer* m_timer = nullptr;
    QThread m_thread;
    SessionLogWriter* m_writer = nullptr;
};
