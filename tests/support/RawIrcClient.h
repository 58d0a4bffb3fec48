#pragma once

// A minimal IRC client for tests: "the other user" on a test server. It
// registers with NICK/USER, answers the server's PINGs, records every line it
// receives and lets a test send raw lines and wait for a line that matches a
// pattern. Lines are read in order: waitForLine() starts after the line the
// previous wait returned, so a test can follow a conversation step by step.

#include <QObject>
#include <QPointer>
#include <QRegularExpression>
#include <QStringList>
#include <QTcpSocket>
#include <QTest>

class RawIrcClient : public QObject
{
public:
    explicit RawIrcClient(const QString& nick, QObject* parent = nullptr)
        : QObject(parent)
        , m_nick(nick)
    { }
    ~RawIrcClient() override { abort(); }

    // Connects and sends NICK and USER; returns at once.
    void connectToServer(const QString& host, quint16 port)
    {
        abort();
        m_buffer.clear();
        m_lines.clear();
        m_readPosition = 0;
        m_registered = m_rejected = false;
        m_socket = new QTcpSocket(this);
        connect(m_socket, &QTcpSocket::readyRead, this, &RawIrcClient::onReadyRead);
        m_socket->connectToHost(host, port);
        m_socket->setSocketOption(QAbstractSocket::LowDelayOption, 1);
        // Written once the connection is up.
        sendLine("NICK " + m_nick);
        sendLine(QStringLiteral("USER %1 0 * :%2").arg(m_nick.left(10), m_nick));
    }
    // Waits for the welcome numeric (001). False on timeout, on a rejected
    // nickname or when the link closes first.
    bool waitForRegistered(int timeoutMs = 10000)
    {
        return QTest::qWaitFor([this] { return m_registered || m_rejected || !isConnected(); }, timeoutMs)
            && m_registered;
    }
    // Connect and register several clients at once; the server finishes
    // registrations on a one-second tick, so this is much faster than one by one.
    static bool registerAll(
        const QList<RawIrcClient*>& clients, const QString& host, quint16 port, int timeoutMs = 10000)
    {
        for (RawIrcClient* client : clients)
            client->connectToServer(host, port);
        bool ok = true;
        for (RawIrcClient* client : clients)
            ok = client->waitForRegistered(timeoutMs) && ok;
        return ok;
    }

    bool isConnected() const
    {
        return m_socket && m_socket->state() != QAbstractSocket::UnconnectedState
            && m_socket->state() != QAbstractSocket::ClosingState;
    }
    // Sends one line; CR LF is appended.
    void sendLine(const QString& line)
    {
        if (m_socket)
            m_socket->write(line.toUtf8() + "\r\n");
    }
    // Waits for the next unread line matching pattern and returns it (empty
    // on timeout). Lines before it are skipped and count as read.
    QString waitForLine(const QRegularExpression& pattern, int timeoutMs = 10000)
    {
        QString found;
        const auto scan = [&] {
            while (found.isEmpty() && m_readPosition < m_lines.size()) {
                if (pattern.match(m_lines.at(m_readPosition++)).hasMatch())
                    found = m_lines.at(m_readPosition - 1);
            }
            return !found.isEmpty();
        };
        return scan() || QTest::qWaitFor(scan, timeoutMs) ? found : QString();
    }
    QString waitForLine(const QString& pattern, int timeoutMs = 10000)
    {
        return waitForLine(QRegularExpression(pattern), timeoutMs);
    }
    // Round trip through the server: once this returns true, the server has
    // handled every line this client sent before it.
    bool sync(int timeoutMs = 10000)
    {
        const QString token = QStringLiteral("sync-%1").arg(++m_syncCounter);
        sendLine("PING :" + token);
        return !waitForLine(QRegularExpression("^:\\S+ PONG \\S+ :" + token + '$'), timeoutMs).isEmpty();
    }
    // JOIN and wait for the end of the names that follow it.
    bool join(const QString& channel, int timeoutMs = 10000)
    {
        sendLine("JOIN " + channel);
        const QRegularExpression endOfNames("^:\\S+ 366 \\S+ " + QRegularExpression::escape(channel) + ' ',
            QRegularExpression::CaseInsensitiveOption);
        return !waitForLine(endOfNames, timeoutMs).isEmpty();
    }
    // Marks every line received so far as read.
    void skipReceived() { m_readPosition = int(m_lines.size()); }

    // All received lines matching pattern, read or not.
    QStringList linesMatching(const QRegularExpression& pattern) const { return m_lines.filter(pattern); }

    // QUIT (with reason when given) and waits until the server closes the link.
    bool quit(const QString& reason = QString(), int timeoutMs = 10000)
    {
        if (!isConnected())
            return true;
        sendLine(reason.isEmpty() ? QStringLiteral("QUIT") : "QUIT :" + reason);
        return QTest::qWaitFor([this] { return !isConnected(); }, timeoutMs);
    }
    void abort()
    {
        if (!m_socket)
            return;
        m_socket->disconnect(this);
        m_socket->abort();
        m_socket->deleteLater();
        m_socket = nullptr;
    }

private:
    void onReadyRead()
    {
        m_buffer += m_socket->readAll();
        qsizetype end;
        while ((end = m_buffer.indexOf('\n')) >= 0) {
            const QString line = QString::fromUtf8(m_buffer.left(end)).remove(QRegularExpression("\r$"));
            m_buffer.remove(0, end + 1);
            if (!line.isEmpty())
                handleLine(line);
        }
    }
    void handleLine(const QString& line)
    {
        m_lines << line;
        const QStringList words = line.split(' ');
        if (words.value(0) == "PING") {
            sendLine("PONG " + line.mid(5));
        } else if (words.size() > 2 && words.at(0).startsWith(':')) {
            if (words.at(1) == "001") {
                m_nick = words.at(2);
                m_registered = true;
            } else if (!m_registered && (words.at(1) == "433" || words.at(1) == "432")) {
                m_rejected = true;
            }
        }
    }

    QPointer<QTcpSocket> m_socket;
    QByteArray m_buffer;
    QStringList m_lines;
    int m_readPosition = 0;
    QString m_nick;
    bool m_registered = false;
    bool m_rejected = false;
    int m_syncCounter = 0;
};
