#pragma once

#include <QHostAddress>
#include <QStringList>
#include <QTcpServer>
#include <QTcpSocket>

// The server end of a window's connection, in process: accepts the one
// connection and records every line the window sends (without CR LF).
class LinePeer
{
public:
    LinePeer() { m_server.listen(QHostAddress::LocalHost); }

    quint16 port() const { return m_server.serverPort(); }

    // Waits for the window's connection; true once accepted.
    bool accept(int timeoutMs = 10000)
    {
        if (!m_server.waitForNewConnection(timeoutMs))
            return false;
        m_socket = m_server.nextPendingConnection();
        QObject::connect(m_socket, &QTcpSocket::readyRead, m_socket, [this] { read(); });
        return true;
    }

    // Every line received so far.
    QStringList lines()
    {
        read();
        return m_lines;
    }

    // The received lines that start with prefix.
    QStringList linesStartingWith(const QString& prefix)
    {
        QStringList result;
        for (const QString& line : lines()) {
            if (line.startsWith(prefix))
                result << line;
        }
        return result;
    }

    // Sends raw bytes to the window (lines must carry their CR LF).
    void send(const QByteArray& bytes)
    {
        if (m_socket) {
            m_socket->write(bytes);
            m_socket->flush();
        }
    }

    void clear()
    {
        read();
        m_lines.clear();
    }

    void close()
    {
        if (m_socket)
            m_socket->disconnectFromHost();
    }

private:
    void read()
    {
        if (!m_socket)
            return;
        m_buffer += m_socket->readAll();
        qsizetype end;
        while ((end = m_buffer.indexOf("\r\n")) >= 0) {
            m_lines << QString::fromUtf8(m_buffer.left(end));
            m_buffer.remove(0, end + 2);
        }
    }

    QTcpServer m_server;
    QTcpSocket* m_socket = nullptr;
    QByteArray m_buffer;
    QStringList m_lines;
};
