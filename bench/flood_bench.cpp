// Private-message flood benchmark: a real MainWindow, shown, fed by a local
// peer with 3,000 private messages from 3,000 distinct nicks, written at once.
// Measured: the time until every message is handled and shown, the longest
// the window's event loop went without answering (a timer that should fire
// every 10 ms), the peak resident memory, and how many tabs were opened.
//
// Usage: quenvar_bench_flood [senders]

#include "AppSetup.h"
#include "BenchSupport.h"

#include <QApplication>
#include <QTimer>

using namespace Bench;

int main(int argc, char* argv[])
{
    Environment environment;
    QApplication app(argc, argv);
    AppSetup::configureApplication();
    describePlatform();
    const int senders = argc > 1 ? qMax(100, QByteArray(argv[1]).toInt()) : 3000;
    const QString own = QStringLiteral("benchme");

    BenchWindow bench;
    if (!bench.open(own) || !bench.registerNick(own)) {
        std::fprintf(stderr, "could not set up the window\n");
        return 1;
    }
    int handled = 0;
    QObject::connect(bench.window->session()->connection(), &IRCConnection::privmsgReceived, bench.window.get(),
        [&handled](const QString&, const QString&, const QString&) { ++handled; });
    QByteArray wire;
    for (int i = 0; i < senders; ++i) {
        const QByteArray nick = "sender" + QByteArray::number(i);
        wire += ':' + nick + '!' + nick + "@flood.example PRIVMSG " + own.toUtf8() + " :hello, are you there? "
            + QByteArray::number(i) + "\r\n";
    }

    // The longest gap between ticks of a 10 ms timer: how long a key press
    // would have waited.
    QElapsedTimer sinceTick;
    qint64 longestGap = 0;
    QTimer ticker;
    QObject::connect(&ticker, &QTimer::timeout, [&] {
        longestGap = qMax(longestGap, sinceTick.restart());
    });
    ticker.start(10);
    sinceTick.start();

    resetPeak();
    Clocks clocks;
    clocks.start();
    bench.server->write(wire);
    const bool all = waitUntil([&] { return handled >= senders; }, 120000);
    QCoreApplication::processEvents(); // the rows laid out and painted
    const double wall = clocks.wallMs();
    const double cpu = clocks.cpuMsElapsed();
    longestGap = qMax(longestGap, sinceTick.elapsed());
    ticker.stop();
    const long peak = statusKb("VmHWM:");

    std::printf("%d private messages from %d senders%s: %.1f ms wall clock, %.1f ms processor time; "
                "%d tabs; the window went %lld ms at most without answering; peak RSS %ld KiB\n",
        senders, senders, all ? "" : " (NOT all handled)", wall, cpu, int(bench.window->network()->tabs.size()),
        static_cast<long long>(longestGap), peak);
    result("flood_ms", wall, "ms");
    result("flood_ms.cpu", cpu, "ms");
    result("flood_stall_ms", double(longestGap), "ms");
    result("flood_peak_rss_mib", peak / 1024.0, "MiB");
    return all ? 0 : 1;
}
