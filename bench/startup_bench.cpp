// Start-up benchmark: from process start to the main window shown and the
// connect dialog open, as the program starts (the steps of src/app/main.cpp).
//
// Run without arguments, this program is the driver: it makes a temporary
// settings folder, then starts itself as a child process once to warm up
// (a first start on empty settings; reported, not counted) and then [runs]
// more times. Each child is timed from the moment just before the driver
// spawns it (CLOCK_MONOTONIC, the same clock in every process), so the time
// includes exec, dynamic loading and Qt's initialisation. A child prints:
//   - to main():            the process is loaded and its static initialisers ran
//   - to QApplication:      the application object and the platform plugin
//   - to MainWindow built:  the window constructed
//   - to dialog shown:      the ConnectDialog got its Show event while the main
//                           window is visible (the headline figure)
//   - to first paint:       both the main window and the dialog were painted
//
// A child started by hand (--child without a time) is timed from its start
// time in /proc/self/stat, which counts in clock ticks (10 ms).
//
// Usage: quenvar_bench_startup [runs]

#include "AppSetup.h"
#include "BenchSupport.h"
#include "ConnectDialog.h"
#include "MainWindow.h"

#include <QApplication>
#include <QEvent>
#include <QSettings>
#include <QTimer>

#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>
#include <string>

extern char** environ;

using namespace Bench;

namespace {

// CLOCK_MONOTONIC time of this process's start, from /proc/self/stat
// (field 22, clock ticks since boot; the monotonic clock also counts from
// boot, but without the time suspended, which is zero on a running bench).
qint64 processStartNs()
{
    QFile file(QStringLiteral("/proc/self/stat"));
    if (!file.open(QIODevice::ReadOnly))
        return 0;
    const QByteArray stat = file.readAll();
    // The command name may hold spaces; the fields after it do not.
    const QList<QByteArray> fields = stat.mid(stat.lastIndexOf(')') + 2).split(' ');
    const qint64 ticks = fields.value(22 - 3).toLongLong();
    timespec boot {};
    timespec mono {};
    clock_gettime(CLOCK_BOOTTIME, &boot);
    clock_gettime(CLOCK_MONOTONIC, &mono);
    const qint64 bootToMono
        = (qint64(boot.tv_sec) - mono.tv_sec) * 1000000000 + (boot.tv_nsec - mono.tv_nsec);
    return ticks * (1000000000 / sysconf(_SC_CLK_TCK)) - bootToMono;
}

// Notes when the window and the dialog show and paint, and ends the
// application once both are painted.
class StartupWatch : public QObject
{
public:
    MainWindow* window = nullptr;
    qint64 dialogShownNs = 0;
    qint64 windowPaintedNs = 0;
    qint64 dialogPaintedNs = 0;

    bool eventFilter(QObject* watched, QEvent* event) override
    {
        const QEvent::Type type = event->type();
        if (type != QEvent::Show && type != QEvent::Paint)
            return false;
        const bool isDialog = qobject_cast<ConnectDialog*>(watched) != nullptr;
        if (type == QEvent::Show && isDialog && !dialogShownNs && window && window->isVisible())
            dialogShownNs = monotonicNs();
        if (type == QEvent::Paint && isDialog && !dialogPaintedNs)
            dialogPaintedNs = monotonicNs();
        if (type == QEvent::Paint && watched == window && !windowPaintedNs)
            windowPaintedNs = monotonicNs();
        if (dialogShownNs && dialogPaintedNs && windowPaintedNs && !quitting) {
            quitting = true;
            QTimer::singleShot(0, qApp, &QCoreApplication::quit);
        }
        return false;
    }

private:
    bool quitting = false;
};

int child(int argc, char* argv[])
{
    const qint64 mainNs = monotonicNs();
    const qint64 spawnedNs = argc > 2 ? QByteArray(argv[2]).toLongLong() : 0;
    const bool warmUp = argc > 3 && std::strcmp(argv[3], "warmup") == 0;
    const qint64 startNs = spawnedNs ? spawnedNs : processStartNs();
    // Started by hand: settings of its own (the driver gives its children one).
    const std::unique_ptr<Environment> ownEnvironment = spawnedNs ? nullptr : std::make_unique<Environment>();

    // As src/app/main.cpp does it.
    auto app = std::make_unique<QApplication>(argc, argv);
    AppSetup::configureApplication();
    auto settings = std::make_unique<QSettings>();
    AppSetup::seedSettings(*settings);
    const qint64 applicationNs = monotonicNs();

    StartupWatch watch;
    app->installEventFilter(&watch);
    auto window = std::make_unique<MainWindow>();
    watch.window = window.get();
    const qint64 windowNs = monotonicNs();
    window->show();
    QTimer::singleShot(30000, app.get(), [] {
        std::fprintf(stderr, "start-up: the connect dialog did not show within 30 s\n");
        QCoreApplication::exit(1);
    });
    const int code = app->exec();
    if (code != 0)
        return code;

    const auto ms = [startNs](qint64 ns) { return (ns - startNs) / 1e6; };
    const double painted = ms(qMax(watch.windowPaintedNs, watch.dialogPaintedNs));
    if (warmUp) {
        std::printf("start-up, first start on empty settings (not counted): dialog shown after %.1f ms\n",
            ms(watch.dialogShownNs));
        info("platform", QGuiApplication::platformName());
        info("qt", QString::fromLatin1(qVersion()));
        return 0;
    }
    std::printf("start-up (timed from %s): main() %.1f ms, QApplication %.1f ms, MainWindow built %.1f ms, "
                "dialog shown %.1f ms, both painted %.1f ms\n",
        spawnedNs ? "the spawn" : "/proc/self/stat", ms(mainNs), ms(applicationNs), ms(windowNs),
        ms(watch.dialogShownNs), painted);
    result("startup_main_ms", ms(mainNs), "ms");
    result("startup_app_ms", ms(applicationNs), "ms");
    result("startup_window_ms", ms(windowNs), "ms");
    result("startup_ms", ms(watch.dialogShownNs), "ms");
    result("startup_painted_ms", painted, "ms");
    // Tear down in the program's order.
    window.reset();
    settings.reset();
    app.reset();
    return 0;
}

// Starts this program as a child and waits for it; false when it failed.
bool spawnChild(bool warmUp)
{
    std::string self = QFile::symLinkTarget(QStringLiteral("/proc/self/exe")).toStdString();
    std::string spawned;
    std::string mode = warmUp ? "warmup" : "timed";
    char childFlag[] = "--child";
    pid_t pid = 0;
    spawned = std::to_string(monotonicNs());
    char* args[] = { self.data(), childFlag, spawned.data(), mode.data(), nullptr };
    if (posix_spawn(&pid, self.c_str(), nullptr, nullptr, args, environ) != 0)
        return false;
    int status = 0;
    if (waitpid(pid, &status, 0) != pid)
        return false;
    return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

int driver(int argc, char* argv[])
{
    const int runs = argc > 1 ? qMax(1, QByteArray(argv[1]).toInt()) : 5;
    // One settings folder for every child: the first start fills it, the
    // timed ones find it as a user's next start does.
    Environment environment;
    std::fflush(stdout);
    if (!spawnChild(true))
        return 1;
    for (int i = 0; i < runs; ++i) {
        if (!spawnChild(false))
            return 1;
    }
    return 0;
}

} // namespace

int main(int argc, char* argv[])
{
    if (argc > 1 && std::strcmp(argv[1], "--child") == 0)
        return child(argc, argv);
    return driver(argc, argv);
}
