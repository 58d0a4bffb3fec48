// Engine benchmark: no window, only IRCConnection and IRCParser.
//
// (1) Parser throughput: lines per second through IRCParser::parse and
//     IRCConnection::handleMessage, every signal of the connection connected
//     to a slot that counts, over a mix of server lines as a busy network
//     sends them (see ServerTraffic). The lines are decoded beforehand;
//     2,000,000 lines are parsed.
// (2) Engine ingest: a sender thread writes a 50 MB capture of the same mix
//     (with a few UTF-8 and ISO-8859-1 lines, CR LF and LF endings) into a loopback
//     socket as fast as it can; a connected IRCConnection reads, cuts,
//     decodes and parses it. Bytes per second from the first byte written to
//     the signal of the last line.
//
// Usage: quenvar_bench_engine [megabytes]

#include "BenchSupport.h"
#include "IRCParser.h"

#include <QCoreApplication>
#include <QMetaMethod>
#include <QRandomGenerator>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <thread>

using namespace Bench;

namespace {

const QByteArray OwnNick = "benchuser";
const QByteArray EndChannel = "#capture-end";

// Counts every signal it is connected to.
class SignalCounter : public QObject
{
    Q_OBJECT

public:
    qint64 count = 0;

public slots:
    void hit() { ++count; }
};

// Connects every signal IRCConnection declares to counter.
int connectEverySignal(IRCConnection* connection, SignalCounter* counter)
{
    const QMetaObject* meta = &IRCConnection::staticMetaObject;
    const QMetaMethod hit = counter->metaObject()->method(counter->metaObject()->indexOfSlot("hit()"));
    int connected = 0;
    for (int i = meta->methodOffset(); i < meta->methodCount(); ++i) {
        const QMetaMethod method = meta->method(i);
        if (method.methodType() == QMetaMethod::Signal && QObject::connect(connection, method, counter, hit))
            ++connected;
    }
    return connected;
}

// Server traffic of a busy network, one line at a time, always the same for
// a seed. Per 100 lines: 55 channel messages, 5 private messages, 2 notices,
// 8 joins, 5 parts, 5 quits, 2 nick changes, 2 modes, 1 kick, 3 NAMES lines
// (353) and 1 end of NAMES (366), 6 LIST rows (322) and 5 other numerics
// (MOTD, ISUPPORT, LUSERS, topic, WHOIS). No PING (the reply would need a
// connected socket) and nothing from or about the own nick.
class ServerTraffic
{
public:
    explicit ServerTraffic(quint32 seed)
        : random(seed)
    {
        for (int i = 0; i < 3000; ++i)
            nicks << "user" + QByteArray::number(i * 7919 % 100000);
        for (int i = 0; i < 200; ++i)
            channels << "#chan" + QByteArray::number(i);
    }

    QByteArray next()
    {
        const int kind = random.bounded(100);
        if (kind < 55)
            return source() + " PRIVMSG " + channel() + " :" + text(4, 30);
        if (kind < 60)
            return source() + " PRIVMSG " + OwnNick + " :" + text(2, 15);
        if (kind < 62)
            return source() + " NOTICE " + channel() + " :" + text(3, 10);
        if (kind < 70)
            return source() + (kind % 2 ? " JOIN :" : " JOIN ") + channel();
        if (kind < 75)
            return source() + " PART " + channel() + " :" + text(1, 5);
        if (kind < 80)
            return source() + " QUIT :Quit: " + text(1, 6);
        if (kind < 82)
            return source() + " NICK :" + nick() + "_";
        if (kind < 84)
            return source() + " MODE " + channel() + " +o " + nick();
        if (kind < 85)
            return source() + " KICK " + channel() + ' ' + nick() + " :" + text(1, 5);
        if (kind < 88) {
            QByteArray line = ":irc.bench.example 353 " + OwnNick + " = " + channel() + " :";
            for (int i = 0; i < 60; ++i) {
                static const char* const modes[] = { "", "", "", "", "+", "@" };
                line += modes[random.bounded(6)] + nick() + ' ';
            }
            line.chop(1);
            return line;
        }
        if (kind < 89)
            return ":irc.bench.example 366 " + OwnNick + ' ' + channel() + " :End of /NAMES list.";
        if (kind < 95)
            return ":irc.bench.example 322 " + OwnNick + ' ' + channel() + QByteArray::number(kind) + ' '
                + QByteArray::number(1 + random.bounded(5000)) + " :" + text(3, 12);
        switch (random.bounded(8)) {
        case 0:
            return ":irc.bench.example 372 " + OwnNick + " :- " + text(5, 12);
        case 1:
            return ":irc.bench.example 005 " + OwnNick
                + " CHANTYPES=# PREFIX=(ov)@+ NICKLEN=30 CHANMODES=b,k,l,imnpst :are supported by this "
                  "server";
        case 2:
            return ":irc.bench.example 251 " + OwnNick
                + " :There are 4123 users and 9000 invisible on 12 servers";
        case 3:
            return ":irc.bench.example 332 " + OwnNick + ' ' + channel() + " :" + text(4, 20);
        case 4:
            return ":irc.bench.example 333 " + OwnNick + ' ' + channel() + ' ' + nick() + " 1700000000";
        case 5:
            return ":irc.bench.example 311 " + OwnNick + ' ' + nick()
                + " ident host.example * :" + text(1, 3);
        case 6:
            return ":irc.bench.example 319 " + OwnNick + ' ' + nick() + " :@" + channel() + " +" + channel();
        default:
            return ":irc.bench.example 318 " + OwnNick + ' ' + nick() + " :End of /WHOIS list.";
        }
    }

private:
    QByteArray nick() { return nicks.at(random.bounded(int(nicks.size()))); }
    QByteArray channel() { return channels.at(random.bounded(int(channels.size()))); }
    QByteArray source()
    {
        const QByteArray n = nick();
        return ':' + n + "!~" + n + "@host-" + QByteArray::number(random.bounded(5000)) + ".example.net";
    }
    QByteArray text(int minWords, int maxWords)
    {
        static const char* const words[] = { "the", "server", "channel", "patch", "build", "works", "for",
            "me", "again", "why", "does", "this", "fail", "on", "arm64", "kernel", "release", "tomorrow",
            "maybe", "yes", "no", "thanks", "look", "at", "log", "line", "crash", "fixed", "in", "master",
            "https://example.org/issues/4711", "caf\u00e9", "gr\u00fc\u00dfe", "\u20ac5", "\002bold\002",
            "\0034red\003", "caf\351" /* ISO-8859-1 */ };
        constexpr int count = int(sizeof(words) / sizeof(words[0]));
        // Mostly ASCII words; one line in twenty may hold UTF-8, ISO-8859-1
        // or IRC codes.
        const int pool = random.bounded(20) == 0 ? count : 30;
        QByteArray out;
        const int n = minWords + random.bounded(maxWords - minWords + 1);
        for (int i = 0; i < n; ++i) {
            if (i)
                out += ' ';
            out += words[random.bounded(pool)];
        }
        return out;
    }

    QRandomGenerator random;
    QByteArrayList nicks;
    QByteArrayList channels;
};

void parserThroughput()
{
    constexpr int Distinct = 200000;
    constexpr int Passes = 10;
    ServerTraffic traffic(17);
    QStringList lines;
    lines.reserve(Distinct);
    for (int i = 0; i < Distinct; ++i)
        lines << QString::fromUtf8(traffic.next());

    IRCConnection connection;
    SignalCounter counter;
    const int signalCount = connectEverySignal(&connection, &counter);
    int errors = 0;
    QObject::connect(&connection, &IRCConnection::errorOccurred, &counter, [&errors] { ++errors; });

    // One pass to warm up caches and the allocator.
    for (const QString& line : std::as_const(lines))
        connection.handleMessage(IRCParser::parse(line));
    counter.count = 0;

    Clocks clocks;
    clocks.start();
    for (int pass = 0; pass < Passes; ++pass) {
        for (const QString& line : std::as_const(lines))
            connection.handleMessage(IRCParser::parse(line));
    }
    const double wall = clocks.wallMs();
    const double cpu = clocks.cpuMsElapsed();
    const double parsed = double(Distinct) * Passes;
    std::printf("parser: %.0f lines in %.1f ms wall clock (%.1f ms processor time), %lld signals on %d "
                "connected signals, %d errors\n",
        parsed, wall, cpu, static_cast<long long>(counter.count), signalCount, errors);
    result("parser_lines_per_s", parsed / (wall / 1e3), "lines/s");
    result("parser_lines_per_s.cpu", parsed / (cpu / 1e3), "lines/s");
}

void engineIngest(int megabytes)
{
    // The capture: the same mix, endings mostly CR LF and sometimes LF.
    ServerTraffic traffic(23);
    const qsizetype target = qsizetype(megabytes) * 1000 * 1000;
    QByteArray capture;
    capture.reserve(target + 1024);
    qint64 lines = 0;
    while (capture.size() < target) {
        capture += traffic.next();
        capture += lines % 16 == 5 ? "\n" : "\r\n";
        ++lines;
    }
    capture += ":ender!~e@host.example.net JOIN " + EndChannel + "\r\n";
    ++lines;

    // The sender: a plain blocking socket in its own thread.
    const int listener = ::socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof(address);
    if (listener < 0 || ::bind(listener, reinterpret_cast<sockaddr*>(&address), sizeof(address)) != 0
        || ::listen(listener, 1) != 0
        || ::getsockname(listener, reinterpret_cast<sockaddr*>(&address), &length) != 0) {
        std::fprintf(stderr, "engine ingest: cannot listen on loopback\n");
        return;
    }
    std::atomic<qint64> firstByteNs { 0 };
    std::atomic<bool> finished { false };
    std::thread sender([&] {
        const int peer = ::accept(listener, nullptr, nullptr);
        if (peer < 0)
            return;
        firstByteNs = monotonicNs();
        qsizetype sent = 0;
        while (sent < capture.size()) {
            const ssize_t n = ::send(peer, capture.constData() + sent, size_t(capture.size() - sent), 0);
            if (n <= 0)
                break;
            sent += n;
        }
        // Keep the link open until the reader is done.
        while (!finished)
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        ::close(peer);
    });

    IRCConnection connection;
    SignalCounter counter;
    connectEverySignal(&connection, &counter);
    qint64 lastLineNs = 0;
    QObject::connect(&connection, &IRCConnection::joinReceived, &counter,
        [&lastLineNs](const QString&, const QString& channel) {
            if (channel == QLatin1String(EndChannel))
                lastLineNs = monotonicNs();
        });
    long rssBefore = statusKb("VmRSS:");
    resetPeak();
    const double cpuBefore = cpuMs();
    connection.connectToServer(QStringLiteral("127.0.0.1"), ntohs(address.sin_port),
        QString::fromLatin1(OwnNick), QStringLiteral("Bench"), false);
    const bool done = waitUntil([&] { return lastLineNs != 0; }, 300000);
    const double cpu = cpuMs() - cpuBefore;
    finished = true;
    sender.join();
    ::close(listener);
    if (!done) {
        std::fprintf(stderr, "engine ingest: the last line never arrived\n");
        return;
    }
    const double seconds = (lastLineNs - firstByteNs) / 1e9;
    std::printf("engine ingest: %.1f MB (%lld lines) in %.1f ms: %.1f MB/s, %.0f lines/s; %lld signals; "
                "processor time of both threads %.1f ms; peak RSS %ld KiB over %ld KiB before\n",
        capture.size() / 1e6, static_cast<long long>(lines), seconds * 1e3, capture.size() / 1e6 / seconds,
        lines / seconds, static_cast<long long>(counter.count), cpu, statusKb("VmHWM:"), rssBefore);
    result("ingest_mb_per_s", capture.size() / 1e6 / seconds, "MB/s");
    result("ingest_lines_per_s", lines / seconds, "lines/s");
}

} // namespace

int main(int argc, char* argv[])
{
    Environment environment;
    QCoreApplication app(argc, argv);
    info("qt", QString::fromLatin1(qVersion()));
    const int megabytes = argc > 1 ? qMax(1, QByteArray(argv[1]).toInt()) : 50;
    parserThroughput();
    engineIngest(megabytes);
    return 0;
}

#include "engine_bench.moc"
