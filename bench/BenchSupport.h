#pragma once

// Shared by the benchmark programs: the isolated environment they run in,
// memory and processor-time readings, the result lines bench/run collects,
// and a shown MainWindow connected to an in-process peer.

#include "IRCConnection.h"
#include "MainWindow.h"
#include "NetworkView.h"
#include "Session.h"

#include <QByteArray>
#include <QCoreApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QGuiApplication>
#include <QHostAddress>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTemporaryDir>
#include <QTest>

#include <cstdio>
#include <ctime>
#include <functional>
#include <memory>

namespace Bench {

// Set up before the QApplication: a temporary settings folder (the real
// store is never touched) and the offscreen platform unless one is chosen.
struct Environment
{
    QTemporaryDir config;

    Environment()
    {
        qputenv("XDG_CONFIG_HOME", config.path().toLocal8Bit());
        if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
            qputenv("QT_QPA_PLATFORM", "offscreen");
    }
};

// One figure for bench/run: "RESULT key value unit". bench/run takes the
// median of every key over its runs.
inline void result(const char* key, double value, const char* unit)
{
    std::printf("RESULT %s %.6g %s\n", key, value, unit);
    std::fflush(stdout);
}

// Facts about the run for the report: "INFO key value".
inline void info(const char* key, const QString& value)
{
    std::printf("INFO %s %s\n", key, qPrintable(value));
    std::fflush(stdout);
}

// The Qt version and platform plugin in use (needs a QGuiApplication).
inline void describePlatform()
{
    info("qt", QString::fromLatin1(qVersion()));
    info("platform", QGuiApplication::platformName());
}

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

// CLOCK_MONOTONIC in nanoseconds: one clock for every process of the machine.
inline qint64 monotonicNs()
{
    timespec ts {};
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return qint64(ts.tv_sec) * 1000000000 + ts.tv_nsec;
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

// Runs the event loop until done() holds or timeoutMs have passed; returns done().
inline bool waitUntil(const std::function<bool()>& done, int timeoutMs = 600000)
{
    QElapsedTimer clock;
    clock.start();
    while (!done() && clock.elapsed() < timeoutMs)
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents, 20);
    return done();
}

// A shown window connected to a local peer (the peer's end is `server`).
struct BenchWindow
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
        window->session()->connection()->connectToServer(
            QStringLiteral("127.0.0.1"), peer->serverPort(), nick, QStringLiteral("Bench"), false);
        if (!peer->waitForNewConnection(10000))
            return false;
        server = peer->nextPendingConnection();
        QTest::qWait(100);
        return window->session()->connection()->isConnected();
    }

    // Sends the welcome numeric and waits until the window is registered.
    bool registerNick(const QString& nick)
    {
        server->write(":irc.bench 001 " + nick.toUtf8() + " :Welcome\r\n");
        return waitUntil([this] { return window->session()->connection()->isRegistered(); }, 10000);
    }
};

} // namespace Bench
