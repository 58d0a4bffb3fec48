// Chat window benchmark: a real MainWindow, shown on the offscreen platform.
//
// (a) 100,000 channel messages (5% with a web address, 1% mentioning the own
//     nick) for the visible channel tab:
//     - through the window's connection: a local peer writes every line at
//       once; the engine reads what has arrived, cuts and parses the lines,
//       and each message goes to its tab as the window's message handler
//       does (the window's own handler). The batches are whatever each read of the socket delivers.
//       Total time.
//     - in chunks of 1,000 rows, each laid out and painted before the next,
//       on a fresh window: the time per 1,000 rows at the start and at the
//       end of the scrollback.
// (b) a NAMES reply of 20,000 members for the current channel, in lines of
//     60 names as a server sends them: time to the filled, sorted list.
// (c) resident memory after the connection run of (a): peak, and per
//     scrollback row.
// (d) then 5,000 joins, parts, quits and nick changes of members of that
//     channel (it stays current): time for all of them, rows included.
//
// Times are given on the wall clock and as processor time of this process
// (on a shared machine the wall clock also counts other processes).
//
// Usage: quenvar_bench_chat [rows]

#include "AppSetup.h"
#include "ChatView.h"
#include "IRCConnection.h"
#include "MainWindow.h"

#include <QApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QHostAddress>
#include <QListWidget>
#include <QRandomGenerator>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTemporaryDir>
#include <QTest>
#include <QTextDocument>

#include <cstdio>
#include <ctime>
#include <memory>

namespace {

const QString Channel = QStringLiteral("#bench");
const QString OwnNick = QStringLiteral("benchuser");

// Kilobytes of a "VmRSS:" / "VmHWM:" line of /proc/self/status; -1 elsewhere.
long statusKb(const char* key)
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
void resetPeak()
{
    QFile file(QStringLiteral("/proc/self/clear_refs"));
    if (file.open(QIODevice::WriteOnly))
        file.write("5");
}

// Processor time of this process in milliseconds.
double cpuMs()
{
    timespec ts {};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &ts);
    return ts.tv_sec * 1e3 + ts.tv_nsec / 1e6;
}

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

const char* Words[] = { "the", "server", "channel", "patch", "build", "works", "for", "me", "again", "why",
    "does", "this", "fail", "on", "arm64", "kernel", "release", "tomorrow", "maybe", "yes", "no", "thanks",
    "look", "at", "log", "line", "crash", "fixed", "in", "master" };
constexpr int WordCount = int(sizeof(Words) / sizeof(Words[0]));

struct Traffic
{
    QStringList senders;
    QStringList messages;

    explicit Traffic(int rows)
    {
        QRandomGenerator random(42);
        for (int i = 0; i < 200; ++i)
            senders << QStringLiteral("user%1").arg(i * 7919 % 100000);
        senders << QStringLiteral("averyveryverylongnickname");
        messages.reserve(rows);
        for (int i = 0; i < rows; ++i) {
            QString text;
            const int words = 4 + random.bounded(14);
            for (int w = 0; w < words; ++w) {
                if (w)
                    text += QLatin1Char(' ');
                text += QLatin1String(Words[random.bounded(WordCount)]);
            }
            if (i % 20 == 7) // 5% with a web address
                text += QStringLiteral(" see https://example.org/issues/%1?tab=log#L%2").arg(i).arg(random.bounded(900));
            if (i % 100 == 42) // 1% mention the own nick
                text = OwnNick + QStringLiteral(": ") + text;
            messages << text;
        }
    }
    const QString& sender(int i) const { return senders.at(i % senders.size()); }
};

// A shown window connected to a local peer, its channel tab current.
struct Session
{
    std::unique_ptr<MainWindow> window;
    std::unique_ptr<QTcpServer> peer;
    QTcpSocket* server = nullptr;

    bool open()
    {
        window = std::make_unique<MainWindow>(nullptr, MainWindow::Startup::Quiet);
        window->show();
        if (!QTest::qWaitForWindowExposed(window.get()))
            std::fprintf(stderr, "window not exposed\n");
        peer = std::make_unique<QTcpServer>();
        peer->listen(QHostAddress::LocalHost);
        window->connection->connectToServer(QStringLiteral("127.0.0.1"), peer->serverPort(), OwnNick,
            QStringLiteral("Bench"), false);
        if (!peer->waitForNewConnection(10000))
            return false;
        server = peer->nextPendingConnection();
        QTest::qWait(100);
        window->appendMessageToTab(Channel, QStringLiteral("joined %1").arg(Channel), OwnNick, true);
        QTest::qWait(50);
        return window->currentTabName == Channel && chatView();
    }

    ChatView* chatView() const { return window->tabs.value(Channel).chatView; }
};

void printSeries(const char* clock, const QList<double>& per1000)
{
    auto average = [&per1000](qsizetype from, qsizetype count) {
        double sum = 0;
        int n = 0;
        for (qsizetype k = qMax<qsizetype>(0, from); k < from + count && k < per1000.size(); ++k, ++n)
            sum += per1000.at(k);
        return n ? sum / n : 0.0;
    };
    const double first = average(1, 1); // the very first chunk also pays for first-use set-up
    const double last = per1000.isEmpty() ? 0 : per1000.last();
    const double head = average(0, 5);
    const double tail = average(per1000.size() - 5, 5);
    std::printf("    %-15s rows 1,001-2,000 %7.1f ms, last 1,000 %7.1f ms (ratio %.2f); "
                "first 5,000 %7.1f ms, last 5,000 %7.1f ms per 1,000 (ratio %.2f)\n",
        clock, first, last, first > 0 ? last / first : 0, head, tail, head > 0 ? tail / head : 0);
}

} // namespace

int main(int argc, char* argv[])
{
    // Never touch the real settings store.
    QTemporaryDir config;
    qputenv("XDG_CONFIG_HOME", config.path().toLocal8Bit());
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication app(argc, argv);
    AppSetup::configureApplication();

    const int rows = argc > 1 ? qMax(1000, QByteArray(argv[1]).toInt()) : 100000;
    const Traffic traffic(rows);

    // (a) through the connection.
    Session session;
    if (!session.open()) {
        std::fprintf(stderr, "could not set up the window\n");
        return 1;
    }
    QByteArray wire;
    wire.reserve(rows * 120);
    for (int i = 0; i < rows; ++i) {
        const QByteArray from = traffic.sender(i).toUtf8();
        wire += ':' + from + '!' + from + "@host.example PRIVMSG " + Channel.toUtf8() + " :"
            + traffic.messages.at(i).toUtf8() + "\r\n";
    }
    // The window's own message handler puts each message into its tab; this
    // only counts them.
    int appended = 0;
    QObject::connect(session.window->connection, &IRCConnection::privmsgReceived, session.window.get(),
        [&](const QString&, const QString&, const QString&) { ++appended; });
    int layoutRuns = 0;
    QObject::connect(session.chatView()->document(), &QTextDocument::contentsChange,
        [&layoutRuns](int, int, int) { ++layoutRuns; });

    const long rssBefore = statusKb("VmRSS:");
    resetPeak();
    Clocks clocks;
    clocks.start();
    session.server->write(wire);
    while (appended < rows && clocks.wall.elapsed() < 600000)
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents, 50);
    session.chatView()->flushBatch();
    QCoreApplication::processEvents();
    const double totalWall = clocks.wallMs();
    const double totalCpu = clocks.cpuMsElapsed();
    const long rssAfter = statusKb("VmRSS:");
    const long peak = statusKb("VmHWM:");

    std::printf("(a) %d channel messages through the connection: %d rows in the view, laid out in %d batches\n",
        rows, session.chatView()->rowCount() - 1, layoutRuns);
    std::printf("    total %9.1f ms wall clock (%.2f us per row), %9.1f ms processor time (%.2f us per row)\n",
        totalWall, totalWall * 1000 / rows, totalCpu, totalCpu * 1000 / rows);

    // (c) memory.
    std::printf("(c) RSS before %ld KiB, after %ld KiB, peak %ld KiB; per scrollback row %.2f KiB\n", rssBefore,
        rssAfter, peak, rssBefore > 0 && peak > 0 ? double(peak - rssBefore) / rows : 0.0);

    // (b) NAMES of 20,000 members for the current channel.
    QRandomGenerator random(7);
    QStringList names;
    const char* symbols[] = { "", "", "", "", "", "", "+", "+", "@", "%", "~", "&" };
    for (int i = 0; i < 20000; ++i)
        names << QLatin1String(symbols[random.bounded(12)]) + QStringLiteral("Member%1").arg(random.bounded(1000000));
    clocks.start();
    for (int i = 0; i < names.size(); i += 60)
        session.window->onNames(Channel, names.mid(i, 60));
    session.window->onNamesFinished(Channel);
    QCoreApplication::processEvents();
    std::printf("(b) NAMES of %lld members: %.1f ms wall clock, %.1f ms processor time; %d rows listed, "
                "first \"%s\", last \"%s\"\n",
        static_cast<long long>(names.size()), clocks.wallMs(), clocks.cpuMsElapsed(),
        session.window->userList->count(), qPrintable(session.window->userList->item(0)->text()),
        qPrintable(session.window->userList->item(session.window->userList->count() - 1)->text()));

    // (d) 5,000 membership events in that channel: joins, parts, quits and
    // nick changes in turn, as one batch of received lines.
    {
        MainWindow* window = session.window.get();
        QStringList present;
        for (const QString& name : window->channelUsers.value(Channel))
            present << window->stripModePrefix(name);
        QRandomGenerator pick(11);
        const auto takeMember = [&]() {
            const int index = int(pick.bounded(int(present.size())));
            const QString nick = present.at(index);
            present.removeAt(index);
            return nick;
        };
        constexpr int Events = 5000;
        int newcomer = 0;
        window->updateNickCompletionModel();
        window->nickCompletionWords();
        clocks.start();
        window->beginAppendBatch();
        for (int i = 0; i < Events; ++i) {
            switch (i % 4) {
            case 0: {
                const QString nick = QStringLiteral("Joiner%1").arg(newcomer++);
                window->onJoin(nick, Channel);
                present << nick;
                break;
            }
            case 1:
                window->onPart(takeMember(), Channel, QStringLiteral("bye"));
                break;
            case 2:
                window->onQuit(takeMember(), QStringLiteral("Quit: gone"));
                break;
            default: {
                const QString nick = QStringLiteral("Renamed%1").arg(i);
                window->onNick(takeMember(), nick);
                present << nick;
                break;
            }
            }
        }
        window->endAppendBatch();
        const double eventsWall = clocks.wallMs();
        const double eventsCpu = clocks.cpuMsElapsed();
        // The completion word list is rebuilt once, when next needed.
        clocks.start();
        const qsizetype words = window->nickCompletionWords().size();
        const double wordsWall = clocks.wallMs();
        std::printf("(d) %d joins, parts, quits and nick changes among %lld members: %.1f ms wall clock, "
                    "%.1f ms processor time (%.1f us per event, rows included); %lld members left, "
                    "%d listed; completion word list of %lld rebuilt in %.1f ms\n",
            Events, static_cast<long long>(names.size()), eventsWall, eventsCpu, eventsCpu * 1000 / Events,
            static_cast<long long>(window->channelUsers.value(Channel).size()), window->userList->count(),
            static_cast<long long>(words), wordsWall);
    }
    session = Session();

    // (a) cost per 1,000 rows as the scrollback grows, on a fresh window.
    Session growth;
    if (!growth.open()) {
        std::fprintf(stderr, "could not set up the window\n");
        return 1;
    }
    QList<double> wallPer1000;
    QList<double> cpuPer1000;
    for (int i = 0; i < rows; i += 1000) {
        clocks.start();
        growth.window->beginAppendBatch();
        for (int j = i; j < i + 1000 && j < rows; ++j)
            growth.window->appendMessageToTab(Channel, traffic.messages.at(j), traffic.sender(j), false);
        growth.window->endAppendBatch();
        growth.chatView()->flushBatch();
        QCoreApplication::processEvents(); // painting
        wallPer1000 << clocks.wallMs();
        cpuPer1000 << clocks.cpuMsElapsed();
    }
    if (qEnvironmentVariableIsSet("QUENVAR_BENCH_SERIES")) {
        for (qsizetype k = 0; k < cpuPer1000.size(); ++k)
            std::fprintf(stderr, "%lld %.1f\n", static_cast<long long>(k + 1) * 1000, cpuPer1000.at(k));
    }
    std::printf("(a) per 1,000 rows, in chunks of 1,000 each laid out and painted:\n");
    printSeries("wall clock", wallPer1000);
    printSeries("processor time", cpuPer1000);
    return 0;
}
