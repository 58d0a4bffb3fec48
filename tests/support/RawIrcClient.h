#pragma once

// A minimal IRC client for tests: "the other user" on a test server. It
// registers with NICK/USER, answers the server's PINGs, records every line it
// receives and lets a test send raw lines and wait for a line that matches a
// pattern. Lines are read in order: waitForLine() starts after the line the
// previous wait returned, so a test can follow a conversation step by step.

#include <QByteArray>
#include <QObject>
#include <QRegularExpression>
#include <QString>
#include <QStringList>

class QTcpSocket;

class RawIrcClient : public QObject
{
    Q_OBJECT

public:
    explicit RawIrcClient(const QString& nick, QObject* parent = nullptr);
    ~RawIrcClient() override;

    // Connects and sends NICK and USER; returns at once.
    void connectToServer(const QString& host, quint16 port);
    // Waits for the welcome numeric (001). False on timeout, on a rejected
    // nickname or when the link closes first.
    bool waitForRegistered(int timeoutMs = 10000);
    // Connect and register several clients at once; the server finishes
    // registrations on a one-second tick, so this is much faster than one by one.
    static bool registerAll(
        const QList<RawIrcClient*>& clients, const QString& host, quint16 port, int timeoutMs = 10000);

    bool isConnected() const;
    bool isRegistered() const { return m_registered; }
    // The nickname the server confirmed in 001 (the requested one before that).
    QString nick() const { return m_nick; }

    // Sends one line; CR LF is appended.
    void sendLine(const QString& line);
    // Sends bytes exactly as given (for lines that are not UTF-8, or split writes).
    void sendBytes(const QByteArray& bytes);
    // Waits for the next unread line matching pattern and returns it (empty
    // on timeout). Lines before it are skipped and count as read.
    QString waitForLine(const QRegularExpression& pattern, int timeoutMs = 10000);
    QString waitForLine(const QString& pattern, int timeoutMs = 10000)
    {
        return waitForLine(QRegularExpression(pattern), timeoutMs);
    }
    // Round trip through the server: once this returns true, the server has
    // handled every line this client sent before it.
    bool sync(int timeoutMs = 10000);
    // JOIN and wait for the end of the names that follow it.
    bool join(const QString& channel, int timeoutMs = 10000);
    // Marks every line received so far as read.
    void skipReceived() { m_readPosition = m_lines.size(); }

    // Every line received since connecting, without line ends.
    QStringList receivedLines() const { return m_lines; }
    // All received lines matching pattern, read or not.
    QStringList linesMatching(const QRegularExpression& pattern) const;

    // QUIT (with reason when given) and waits until the server closes the link.
    bool quit(const QString& reason = QString(), int timeoutMs = 10000);
    void abort();

signals:
    void lineReceived(const QString& line);

private:
    void onReadyRead();
    void handleLine(const QString& line);

    QTcpSocket* m_socket = nullptr;
    QByteArray m_buffer;
    QStringList m_lines;
    int m_readPosition = 0;
    QString m_nick;
    bool m_registered = false;
    bool m_rejected = false;
    int m_syncCounter = 0;
};
