// Chat window benchmark: a real MainWindow, shown (offscreen unless another
// platform is chosen), fed by a local peer through its connection: every line
// is read from the socket, cut, decoded and parsed by the engine and handled
// by the window's own slots.
//
// (a) 100,000 channel messages (5% with a web address, 1% mentioning the own
//     nick) for the visible channel tab:
//     - the peer writes every line at once; the batches are whatever each
//       read of the socket delivers. Total time to the last row laid out.
//     - on a fresh window, the peer writes 1,000 lines at a time and each
//       chunk is laid out and painted before the next: the cost per row at
//       the start (rows 1,001-6,000) and at the end (the last 5,000 rows),
//       each the median of its five chunks. With QUENVAR_BENCH_SERIES set,
//       every chunk's processor time and layout count go to stderr.
// (b) a NAMES reply of 20,000 members for the current channel, in lines of
//     60 names as a server sends them: time to the filled, sorted list.
// (c) resident memory of the run of (a): peak, and added per scrollback row.
// (d) then 5,000 joins, parts, quits and nick changes of members of that
//     channel (it stays current), written at once: time for all of them,
//     rows included.
//
// (f) (a) again on a fresh window with logging on: the processor time it
//     adds (the log's writer thread included), the rows on disk at the end.
// (g) find over the 100,000 rows of (a): a common word and a missing one.
// (h) a private conversation opened whose log is 1 GB: the 50 rows of its
//     backlog read from the end of the file and shown (left out with
//     QUENVAR_BENCH_NO_BIG_LOG set: it writes 1 GB to the temporary folder).
//
// Times are given on the wall clock and as processor time of this process
// (on a shared machine the wall clock also counts other processes).
//
// Usage: quenvar_bench_chat [rows]

#include "AppSetup.h"
#include "BenchSupport.h"
#include "ChatView.h"
#include "IrcFormat.h"
#include "MemberList.h"
#include "MemberListView.h"

#include <QApplication>
#include <QRandomGenerator>
#include <QDir>
#include <QFileInfo>
#include <QScrollBar>
#include <QTemporaryDir>

#include <algorithm>

using namespace Bench;

namespace {

const QString Channel = QStringLiteral("#bench");
const QString OwnNick = QStringLiteral("benchuser");

const char* Words[] = { "the", "server", "channel", "patch", "build", "works", "for", "me", "again", "why",
    "does", "this", "fail", "on", "arm64", "kernel", "release", "tomorrow", "maybe", "yes", "no", "thanks",
    "look", "at", "log", "line", "crash", "fixed", "in", "master" };
constexpr int WordCount = int(sizeof(Words) / sizeof(Words[0]));

// The channel's traffic as the peer writes it, one line per message.
QByteArrayList channelTraffic(int rows)
{
    QRandomGenerator random(42);
    QByteArrayList senders;
    for (int i = 0; i < 200; ++i)
        senders << "user" + QByteArray::number(i * 7919 % 100000);
    senders << "averyveryverylongnickname";
    QByteArrayList lines;
    lines.reserve(rows);
    for (int i = 0; i < rows; ++i) {
        QByteArray text;
        const int words = 4 + random.bounded(14);
        for (int w = 0; w < words; ++w) {
            if (w)
                text += ' ';
            text += Words[random.bounded(WordCount)];
        }
        if (i % 20 == 7) // 5% with a web address
            text += " see https://example.org/issues/" + QByteArray::number(i) + "?tab=log#L"
                + QByteArray::number(random.bounded(900));
        if (i % 100 == 42) // 1% mention the own nick
            text = OwnNick.toUtf8() + ": " + text;
        const QByteArray& from = senders.at(i % senders.size());
        lines << ':' + from + '!' + from + "@host.example PRIVMSG " + Channel.toUtf8() + " :" + text + "\r\n";
    }
    return lines;
}

// A shown window connected to a local peer, joined to the channel, whose tab
// is current; counts the channel messages the window has handled.
struct ChatSession : BenchWindow
{
    int messages = 0;

    bool open()
    {
        if (!BenchWindow::open(OwnNick) || !registerNick(OwnNick))
            return false;
        // The window's own handler is connected first, so when this counts a
        // message the window has already taken it.
        QObject::connect(window->session()->connection(), &IRCConnection::privmsgReceived, window.get(),
            [this](const QString&, const QString&, const QString&) { ++messages; });
        server->write(':' + OwnNick.toUtf8() + "!b@host.example JOIN " + Channel.toUtf8() + "\r\n");
        return waitUntil([this] { return window->currentTabName == Channel && chatView(); }, 10000);
    }

    ChatView* chatView() const { return window->network()->tabs.value(Channel).chatView; }

    // Writes the lines and returns once the window has handled `expected`
    // messages, laid out the rows and painted.
    bool deliver(const QByteArray& wire, int expected)
    {
        server->write(wire);
        const bool ok = waitUntil([&] { return messages >= expected; });
        settle();
        return ok;
    }

    void settle()
    {
        chatView()->flushBatch();
        QCoreApplication::processEvents(); // painting
    }
};

// Median of values[from, from + count).
double median(const QList<double>& values, qsizetype from, qsizetype count)
{
    QList<double> window = values.mid(qMax<qsizetype>(0, from), count);
    if (window.isEmpty())
        return 0;
    std::sort(window.begin(), window.end());
    const qsizetype middle = window.size() / 2;
    return window.size() % 2 ? window.at(middle) : (window.at(middle - 1) + window.at(middle)) / 2;
}

} // namespace

int main(int argc, char* argv[])
{
    Environment environment;
    QApplication app(argc, argv);
    AppSetup::configureApplication();
    describePlatform();

    const int rows = argc > 1 ? qMax(10000, QByteArray(argv[1]).toInt()) : 100000;
    const QByteArrayList traffic = channelTraffic(rows);

    // (a) every line at once.
    ChatSession session;
    if (!session.open()) {
        std::fprintf(stderr, "could not set up the window\n");
        return 1;
    }
    const QByteArray wire = traffic.join();
    const int messagesBefore = session.messages;
    const long rssBefore = statusKb("VmRSS:");
    resetPeak();
    Clocks clocks;
    clocks.start();
    if (!session.deliver(wire, messagesBefore + rows))
        std::fprintf(stderr, "(a) not every message arrived\n");
    const double totalWall = clocks.wallMs();
    const double totalCpu = clocks.cpuMsElapsed();
    const long rssAfter = statusKb("VmRSS:");
    const long peak = statusKb("VmHWM:");

    std::printf(
        "(a) %d channel messages through the connection: %d rows in the view\n", rows,
        session.chatView()->rowCount() - 1);
    std::printf(
        "    total %9.1f ms wall clock (%.2f us per row), %9.1f ms processor time (%.2f us per row)\n",
        totalWall, totalWall * 1000 / rows, totalCpu, totalCpu * 1000 / rows);
    result("chat_total_ms", totalWall, "ms");
    result("chat_total_ms.cpu", totalCpu, "ms");

    // (c) memory.
    const double perRow = double(rssAfter - rssBefore) / rows;
    std::printf("(c) RSS before %ld KiB, after %ld KiB, peak %ld KiB; per scrollback row %.2f KiB\n",
        rssBefore, rssAfter, peak, perRow);
    result("chat_peak_rss_mib", peak / 1024.0, "MiB");
    result("chat_rss_per_row_kib", perRow, "KiB");

    // (b) NAMES of 20,000 members for the current channel.
    MainWindow* window = session.window.get();
    QRandomGenerator random(7);
    QStringList names;
    const char* symbols[] = { "", "", "", "", "", "", "+", "+", "@", "%", "~", "&" };
    for (int i = 0; i < 20000; ++i)
        names << QLatin1String(symbols[random.bounded(12)])
                + QStringLiteral("Member%1").arg(random.bounded(1000000));
    QByteArray namesWire;
    for (qsizetype i = 0; i < names.size(); i += 60) {
        namesWire += ":irc.bench 353 " + OwnNick.toUtf8() + " = " + Channel.toUtf8() + " :"
            + names.mid(i, 60).join(QLatin1Char(' ')).toUtf8() + "\r\n";
    }
    namesWire += ":irc.bench 366 " + OwnNick.toUtf8() + ' ' + Channel.toUtf8() + " :End of /NAMES list.\r\n";
    bool namesDone = false;
    QObject::connect(window->session()->connection(), &IRCConnection::namesListFinished, window,
        [&namesDone](const QString&) { namesDone = true; });
    clocks.start();
    session.server->write(namesWire);
    waitUntil([&namesDone] { return namesDone; });
    session.settle();
    const double namesWall = clocks.wallMs();
    const double namesCpu = clocks.cpuMsElapsed();
    std::printf("(b) NAMES of %lld members: %.1f ms wall clock, %.1f ms processor time; %d rows listed, "
                "first \"%s\", last \"%s\"\n",
        static_cast<long long>(names.size()), namesWall, namesCpu, window->userList->count(),
        qPrintable(window->userList->memberAt(0)),
        qPrintable(window->userList->memberAt(window->userList->count() - 1)));
    result("names_ms", namesWall, "ms");
    result("names_ms.cpu", namesCpu, "ms");

    // (d) 5,000 membership events in that channel: joins, parts, quits and
    // nick changes in turn, written at once.
    {
        QStringList present;
        for (const QString& name : window->session()->members(Channel))
            present << MemberList::stripModePrefix(name);
        QRandomGenerator pick(11);
        const auto takeMember = [&]() {
            const int index = int(pick.bounded(int(present.size())));
            const QString nick = present.at(index);
            present.removeAt(index);
            return nick.toUtf8();
        };
        constexpr int Events = 5000;
        QByteArray eventWire;
        int newcomer = 0;
        for (int i = 0; i < Events; ++i) {
            switch (i % 4) {
            case 0: {
                const QByteArray nick = "Joiner" + QByteArray::number(newcomer++);
                eventWire += ':' + nick + "!j@host.example JOIN " + Channel.toUtf8() + "\r\n";
                present << QString::fromUtf8(nick);
                break;
            }
            case 1:
                eventWire += ':' + takeMember() + "!m@host.example PART " + Channel.toUtf8() + " :bye\r\n";
                break;
            case 2:
                eventWire += ':' + takeMember() + "!m@host.example QUIT :Quit: gone\r\n";
                break;
            default: {
                const QByteArray nick = "Renamed" + QByteArray::number(i);
                eventWire += ':' + takeMember() + "!m@host.example NICK :" + nick + "\r\n";
                present << QString::fromUtf8(nick);
                break;
            }
            }
        }
        int events = 0;
        const auto count = [&events] { ++events; };
        IRCConnection* connection = window->session()->connection();
        QObject::connect(connection, &IRCConnection::joinReceived, window, count);
        QObject::connect(connection, &IRCConnection::partReceived, window, count);
        QObject::connect(connection, &IRCConnection::quitReceived, window, count);
        QObject::connect(connection, &IRCConnection::nickChanged, window, count);
        window->updateNickCompletionModel();
        window->nickCompletionWords();

        clocks.start();
        session.server->write(eventWire);
        waitUntil([&events] { return events >= Events; });
        session.settle();
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
            static_cast<long long>(window->session()->members(Channel).size()), window->userList->count(),
            static_cast<long long>(words), wordsWall);
        result("members_events_ms", eventsWall, "ms");
        result("members_events_ms.cpu", eventsCpu, "ms");
        result("names_and_events_ms", namesWall + eventsWall, "ms");
        result("names_and_events_ms.cpu", namesCpu + eventsCpu, "ms");
    }
    session = ChatSession();

    // (a) cost per row as the scrollback grows, on a fresh window.
    ChatSession growth;
    if (!growth.open()) {
        std::fprintf(stderr, "could not set up the window\n");
        return 1;
    }
    QList<double> wallPer1000;
    QList<double> cpuPer1000;
    const int growthBase = growth.messages;
    for (int i = 0; i < rows; i += 1000) {
        QByteArray chunk;
        for (int j = i; j < i + 1000 && j < rows; ++j)
            chunk += traffic.at(j);
        clocks.start();
        growth.deliver(chunk, growthBase + qMin(rows, i + 1000));
        wallPer1000 << clocks.wallMs();
        cpuPer1000 << clocks.cpuMsElapsed();
    }
    if (qEnvironmentVariableIsSet("QUENVAR_BENCH_SERIES")) {
        for (qsizetype k = 0; k < cpuPer1000.size(); ++k)
            std::fprintf(stderr, "%lld %.1f\n", static_cast<long long>(k + 1) * 1000, cpuPer1000.at(k));
    }
    // The first chunk also pays for first use; the start is rows 1,001-6,000.
    // Medians of five chunks, so that one chunk disturbed by another process
    // does not decide.
    const double startWall = median(wallPer1000, 1, 5);
    const double endWall = median(wallPer1000, wallPer1000.size() - 5, 5);
    const double startCpu = median(cpuPer1000, 1, 5);
    const double endCpu = median(cpuPer1000, cpuPer1000.size() - 5, 5);
    std::printf(
        "(a) per 1,000 rows, in chunks of 1,000 each laid out and painted: rows "
        "1,001-6,000 %.1f ms (%.1f ms processor time), last 5,000 %.1f ms (%.1f ms); ratio %.2f (%.2f)\n",
        startWall, startCpu, endWall, endCpu, endWall / startWall, endCpu / startCpu);
    result("chat_row_start_us", startWall, "us");
    result("chat_row_start_us.cpu", startCpu, "us");
    result("chat_row_end_us", endWall, "us");
    result("chat_row_end_us.cpu", endCpu, "us");
    result("chat_row_ratio", endWall / startWall, "x");
    result("chat_row_ratio.cpu", endCpu / startCpu, "x");

    // (e) scrolled back to row 50,000: one full screen laid out and painted
    // (nothing of it laid out before), at five places around it.
    ChatView* chat = growth.chatView();
    QList<double> paints;
    for (int k = 0; k < 5; ++k) {
        chat->scrollToRow(qMin(rows / 2, chat->rowCount() - 1) + k * 200);
        clocks.start();
        chat->viewport()->repaint();
        paints << clocks.wallMs();
    }
    std::printf("(e) a full screen of rows painted at row 50,000: %.2f ms (median of 5 places)\n",
        median(paints, 0, paints.size()));
    result("chat_paint_ms", median(paints, 0, paints.size()), "ms");

    // (g) find over every row.
    QList<double> finds;
    int found = 0;
    for (const char* text : { "patch", "no such word" }) {
        clocks.start();
        found += chat->find(QString::fromLatin1(text));
        finds << clocks.wallMs();
    }
    chat->find(QString());
    const double findMs = *std::max_element(finds.cbegin(), finds.cend());
    std::printf("(g) find over %d rows: %.1f ms (common word, %d rows), %.1f ms (missing word)\n", chat->rowCount(),
        finds.at(0), found, finds.at(1));
    result("find_ms", findMs, "ms");
    growth = ChatSession();

    // (f) (a) on two fresh windows, without and with logging.
    QTemporaryDir logs;
    double plainCpu = 0;
    double loggedCpu = 0;
    double loggedWall = 0;
    ChatSession logged;
    for (const bool logging : { false, true }) {
        logged = ChatSession();
        if (!logged.open()) {
            std::fprintf(stderr, "could not set up the window\n");
            return 1;
        }
        if (logging)
            logged.window->session()->setLogging(true, logs.path(), &IrcText::stripFormatting);
        const int before = logged.messages;
        clocks.start();
        if (!logged.deliver(wire, before + rows))
            std::fprintf(stderr, "(f) not every message arrived\n");
        logged.window->session()->flushLog();
        (logging ? loggedCpu : plainCpu) = clocks.cpuMsElapsed();
        loggedWall = clocks.wallMs();
    }
    const QFileInfo logFile(logged.window->session()->logFile(Channel));
    std::printf("(f) the same with logging on: %.1f ms wall clock, %.1f ms processor time against %.1f ms without "
                "(+%.1f%%); %lld bytes logged\n",
        loggedWall, loggedCpu, plainCpu, (loggedCpu / plainCpu - 1) * 100, static_cast<long long>(logFile.size()));
    result("logging_overhead_pct", (loggedCpu / plainCpu - 1) * 100, "%");
    if (qEnvironmentVariableIsSet("QUENVAR_BENCH_NO_BIG_LOG"))
        return 0;

    // (h) a conversation whose log is 1 GB opens with its backlog.
    const QString peer = QStringLiteral("bigtalker");
    logged.window->session()->setBacklog(50);
    const QString bigLog = logged.window->session()->logFile(peer);
    {
        QDir().mkpath(QFileInfo(bigLog).absolutePath());
        QFile file(bigLog);
        QByteArray block;
        for (int i = 0; block.size() < (1 << 20); ++i)
            block += "2026-11-25T10:00:00+00:00 <bigtalker> " + traffic.at(i % traffic.size()).split(':').last().trimmed() + '\n';
        if (!file.open(QIODevice::WriteOnly))
            return 1;
        while (file.size() < (qint64(1) << 30))
            file.write(block);
    }
    clocks.start();
    logged.window->session()->openBuffer(peer);
    const double backlogMs = clocks.wallMs();
    const ChatView* backlogView = logged.window->network()->tabs.value(peer).chatView;
    std::printf("(h) a conversation with a %lld MiB log opened: %.2f ms, %d rows shown\n",
        static_cast<long long>(QFileInfo(bigLog).size() >> 20), backlogMs, backlogView ? backlogView->rowCount() : -1);
    result("backlog_1gb_ms", backlogMs, "ms");
    QFile::remove(bigLog);
    return 0;
}
