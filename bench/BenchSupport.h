#pragma once

// Shared by the benchmark programs: memory and processor-time readings, and
// a shown MainWindow connected to an in-process peer.

#include "IRCConnection.h"
#include "MainWindow.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QHostAddress>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTest>

#include <cstdio>
#include <ctime>
#include <memory>

namespace Bench {

// Kilobytes of a "VmRSS:" / "VmHWM:" line of /proc/self/status; -1 elsewhere.
inline long statusKb(const char* key)
{
    QFile file(QStringLiteral("/proc/self/status"));
    if (!file.open(QIODevice::ReadOnly))
        return -1;
    const QByteArray wanted(key);
    for (const QByteArray& line : file.readAll().split('\n')) {
        if (line.startsWith(wanted))
            return line.mid(wanted.size()).trimmed().split(' ').value(0).toLong();
    }
    return -1;
}

// Puts the peak-RSS counter back to the current RSS (Linux 4.0+).
inline void resetPeak()
{
    QFile file(QStringLiteral("/proc/self/clear_refs"));
    if (file.open(QIODevice::WriteOnly))
        file.write("5");
}

// Processor time of this process in milliseconds.
inline double cpuMs()
{
    timespec ts {};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &ts);
    return ts.tv_sec * 1e3 + ts.tv_nsec / 1e6;
}

// Wall clock and processor time since start().
struct Clocks
{
    QElapsedTimer wall;
    double cpuStart = 0;

    void start()
    {
        wall.start();
        cpuStart = cpuMs();
    }
    double wallMs() const { return wall.nsecsElapsed() / 1e6; }
    double cpuMsElapsed() const { return cpuMs() - cpuStart; }
};

// A shown window connected to a local peer (the peer's end is `server`).
struct Session
{
    std::unique_ptr<MainWindow> window;
    std::unique_ptr<QTcpServer> peer;
    QTcpSocket* server = nullptr;

    bool open(const QString& nick)
    {
        window = std::make_unique<MainWindow>(nullptr, MainWindow::Startup::Quiet);
        window->show();
        if (!QTest::qWaitForWindowExposed(window.get()))
            std::fprintf(stderr, "window not exposed\n");
        peer = std::make_unique<QTcpServer>();
        peer->listen(QHostAddress::LocalHost);
        window->connection->connectToServer(
            QStringLiteral("127.0.0.1"), peer->serverPort(), nick, QStringLiteral("Bench"), false);
        if (!peer->waitForNewConnection(10000))
            return false;
        server = peer->nextPendingConnection();
        QTest::qWait(100);
        return window->connection->isConnected();
    }

    // Sends the welcome numeric and waits until the window is registered.
    bool registerNick(const QString& nick)
    {
        server->write(":irc.bench 001 " + nick.toUtf8() + " :Welcome\r\n");
        QElapsedTimer clock;
        clock.start();
        while (!window->connection->isRegistered() && clock.elapsed() < 10000)
            QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents, 20);
        return window->connection->isRegistered();
    }
};

} // namespace Bench
