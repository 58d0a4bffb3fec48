// Channel list benchmark: a real MainWindow, shown on the offscreen platform,
// receives a LIST of many channels through its connection (a local peer
// writes 321, the 322 rows and 323 at once).
//
// Prints: the time from the first 322 to the sorted table; the time of one
// filter keystroke over every row (typing "l", "li", "lin", then clearing;
// the slowest is the figure); the memory the listing added.
//
// Usage: quenvar_bench_list [channels]

#include "AppSetup.h"
#include "BenchSupport.h"
#include "ChannelListModel.h"

#include <QApplication>
#include <QLineEdit>
#include <QRandomGenerator>

using namespace Bench;

int main(int argc, char* argv[])
{
    Environment environment;
    QApplication app(argc, argv);
    AppSetup::configureApplication();
    describePlatform();

    const int channels = argc > 1 ? qMax(1000, QByteArray(argv[1]).toInt()) : 100000;
    const QString nick = QStringLiteral("benchuser");

    BenchWindow session;
    if (!session.open(nick) || !session.registerNick(nick)) {
        std::fprintf(stderr, "could not set up the window\n");
        return 1;
    }
    MainWindow* window = session.window.get();

    // 60-character topics of words; user counts 1..5,000.
    QRandomGenerator random(3);
    static const char* const words[] = { "linux", "games", "music", "chat", "help", "news", "code", "art",
        "online", "friends", "world", "retro", "debian", "science", "movies", "books" };
    QByteArray wire = ":irc.bench 321 " + nick.toUtf8() + " Channel :Users Name\r\n";
    wire.reserve(channels * 110);
    for (int i = 0; i < channels; ++i) {
        QByteArray topic;
        while (topic.size() < 60) {
            topic += words[random.bounded(16)];
            topic += ' ';
        }
        topic.truncate(60);
        wire += ":irc.bench 322 " + nick.toUtf8() + " #" + words[random.bounded(16)] + QByteArray::number(i)
            + ' ' + QByteArray::number(1 + random.bounded(5000)) + " :" + topic + "\r\n";
    }
    wire += ":irc.bench 323 " + nick.toUtf8() + " :End of channel list.\r\n";

    window->network()->requestChannelList();
    QCoreApplication::processEvents();
    ChannelListModel* table = window->network()->channelListModel;
    if (!table) {
        std::fprintf(stderr, "no list tab\n");
        return 1;
    }

    bool started = false;
    bool ended = false;
    Clocks clocks;
    QObject::connect(window->session()->connection(), &IRCConnection::listChannelReceived, window, [&] {
        if (!started) {
            started = true;
            clocks.start();
        }
    });
    QObject::connect(
        window->session()->connection(), &IRCConnection::listEndReceived, window, [&] { ended = true; },
        Qt::QueuedConnection);

    const long rssBefore = statusKb("VmRSS:");
    resetPeak();
    session.server->write(wire);
    waitUntil([&ended] { return ended; });
    QCoreApplication::processEvents(); // the first paint of the sorted table
    const double toSortedWall = clocks.wallMs();
    const double toSortedCpu = clocks.cpuMsElapsed();
    const long rssAfter = statusKb("VmRSS:");
    const long peak = statusKb("VmHWM:");

    std::printf(
        "LIST of %d channels: %d rows; first 322 to sorted table %.1f ms wall clock, %.1f ms processor "
        "time; first row %s (%s users)\n",
        channels, table->rowCount(), toSortedWall, toSortedCpu, qPrintable(table->channelAt(0).name),
        qPrintable(table->channelAt(0).users));
    std::printf("    RSS before %ld KiB, after %ld KiB, peak %ld KiB: %.2f KiB per channel\n", rssBefore,
        rssAfter, peak, double(rssAfter - rssBefore) / channels);
    result("list_sorted_ms", toSortedWall, "ms");
    result("list_sorted_ms.cpu", toSortedCpu, "ms");
    result("list_rss_per_channel_kib", double(rssAfter - rssBefore) / channels, "KiB");

    // The slowest keystroke counts.
    double slowestWall = 0;
    double slowestCpu = 0;
    const auto keystroke = [&](const QString& text) {
        clocks.start();
        window->channelSearchEdit->setText(text);
        QCoreApplication::processEvents(); // the repaint
        const double wall = clocks.wallMs();
        const double cpu = clocks.cpuMsElapsed();
        slowestWall = qMax(slowestWall, wall);
        slowestCpu = qMax(slowestCpu, cpu);
        std::printf("    filter \"%s\": %.1f ms wall clock, %.1f ms processor time, %d rows shown\n",
            qPrintable(text), wall, cpu, table->rowCount());
    };
    keystroke(QStringLiteral("l"));
    keystroke(QStringLiteral("li"));
    keystroke(QStringLiteral("lin"));
    keystroke(QString());
    result("list_filter_ms", slowestWall, "ms");
    result("list_filter_ms.cpu", slowestCpu, "ms");
    return 0;
}
