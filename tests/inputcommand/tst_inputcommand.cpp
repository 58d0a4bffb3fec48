#include "InputCommand.h"
#include "TestMain.h"

#include <QRandomGenerator>

namespace {

using Type = InputCommand::Type;

QString typeName(Type type)
{
    static const QStringList names { "Empty", "Message", "Join", "Part", "Nick", "Msg", "Raw", "List", "Away",
        "Back", "Whois", "Autojoin", "Feedback" };
    return names.value(int(type), "?");
}

void row(const char* tag, const QString& line, const QString& tab, const QString& type, const QString& name,
    const QString& target, const QString& text)
{
    QTest::newRow(tag) << line << tab << type << name << target << text;
}

// A line typed on "#chan" that is reported as the unknown command `name`.
void unknown(const char* tag, const QString& line, const QString& name)
{
    row(tag, line, "#chan", "Feedback", name, "#chan", "Unknown command: " + name);
}

} // namespace

class TestInputCommand : public QObject
{
    Q_OBJECT

private slots:
    void parse_data()
    {
        QTest::addColumn<QString>("line");
        QTest::addColumn<QString>("tab");
        QTest::addColumn<QString>("type");
        QTest::addColumn<QString>("name");
        QTest::addColumn<QString>("target");
        QTest::addColumn<QString>("text");

        // Every command under its own name or an alias, with enough arguments;
        // extra arguments are ignored.
        row("join", "/join #qt", "Server", "Join", "join", "#qt", "");
        row("j adds hash, extra ignored", "/j linux b", "Server", "Join", "join", "#linux", "");
        row("j other prefix gets a hash", "/j &local", "Server", "Join", "join", "#&local", "");
        row("j only hash", "/j #", "#qt", "Join", "join", "#", "");
        row("JOIN keeps argument case", "/JOIN Linux", "Server", "Join", "join", "#Linux", "");
        row("J alias upper case", "/J x", "Server", "Join", "join", "#x", "");
        row("part", "/part", "#qt", "Part", "part", "#qt", "");
        row("p on a private tab", "/p bye all", "bob", "Part", "part", "bob", "");
        row("nick", "/nick Newbie", "#qt", "Nick", "nick", "Newbie", "");
        row("n", "/n other extra", "#qt", "Nick", "nick", "other", "");
        row("msg", "/msg bob hi   there  ", "#qt", "Msg", "msg", "bob", "hi   there");
        row("m", "/m bob hi", "#qt", "Msg", "msg", "bob", "hi");
        row("RAW", "/RAW PRIVMSG #a :hello  world", "#qt", "Raw", "raw", "", "PRIVMSG #a :hello  world");
        row("L", "/L >10", "#qt", "List", "list", "", "");
        row("away default reason", "/away", "#qt", "Away", "away", "", "Away");
        row("a reason trimmed", "/a    gone   fishing ", "#qt", "Away", "away", "", "gone   fishing");
        row("b", "/b now", "#qt", "Back", "back", "", "");
        row("w", "/w alice", "bob", "Whois", "whois", "alice", "");
        row("wc", "/wc alice", "#qt", "Whois", "whois", "alice", "");
        row("AUTOJOIN", "/AUTOJOIN Qt", "#qt", "Autojoin", "autojoin", "#Qt", "");
        row("space after slash", "/ join x", "#qt", "Join", "join", "#x", "");
        row("spaces before argument", "/join    x", "#qt", "Join", "join", "#x", "");

        // Too few arguments never give a usage text: the command is reported
        // as unknown under its mapped name, in the current tab.
        unknown("J alone", "/J", "join");
        unknown("join and spaces", "/join    ", "join");
        unknown("n alone", "/n", "nick");
        unknown("msg without text", "/msg bob", "msg");
        unknown("raw alone", "/raw", "raw");
        unknown("WC alone", "/WC", "whois");
        unknown("autojoin alone", "/autojoin", "autojoin");
        unknown("quit", "/quit now", "quit");
        unknown("lower-cased", "/FooBar x", "foobar");
        unknown("tab is no separator", "/j\tlinux", "j\tlinux");
        unknown("only slash and white space", "/     \t", "");
        unknown("placeholders", "/%1%2 x", "%1%2");
        unknown("double slash", "//join x", "/join");
        row("unknown on a private tab", "/what", "bob", "Feedback", "what", "bob", "Unknown command: what");

        // The /msg text and the /raw line are sections with empty ones counted.
        row("msg double space before target", "/msg  bob hi", "#qt", "Msg", "msg", "bob", "bob hi");
        row("msg after space after slash", "/ msg bob hi", "#qt", "Msg", "msg", "bob", "bob hi");
        row("raw double space", "/raw  MODE #a", "#qt", "Raw", "raw", "", " MODE #a");
        row("msg with placeholders", "/msg %1 %2 %1", "#qt", "Msg", "msg", "%1", "%2 %1");
        // Line breaks are not the parser's business: whatever sends the text
        // has to refuse or cut them.
        row("line breaks passed on", "/raw PRIVMSG #a :x\r\nQUIT", "#qt", "Raw", "raw", "",
            "PRIVMSG #a :x\r\nQUIT");

        row("chat text trimmed", "  hello all \t", "#qt", "Message", "", "#qt", "hello all");
        row("list tab is a target", "hi", "List", "Message", "", "List", "hi");
        row("slash later", "a/b /join", "#qt", "Message", "", "#qt", "a/b /join");
        row("server tab", "hello", "Server", "Feedback", "", "Server", "Cannot send messages to Server tab.");
        row("channel named #Server", "x", "#Server", "Message", "", "#Server", "x");
        row("leading spaces then command", "   /j linux", "#qt", "Join", "join", "#linux", "");
        row("empty", "", "#qt", "Empty", "", "", "");
        row("only white space on server", " \t\r\n ", "Server", "Empty", "", "", "");

        // Huge lines: only the first words are ever cut out.
        const QString payload(1000000, QLatin1Char('x'));
        row("long message", payload, "#qt", "Message", "", "#qt", payload);
        row("long msg", "/msg bob " + payload, "#qt", "Msg", "msg", "bob", payload);
        unknown("long unknown command", "/" + payload, payload);
        QString words = "/w";
        for (int i = 0; i < 500000; ++i)
            words += QStringLiteral(" n%1").arg(i);
        row("half a million words", words, "#qt", "Whois", "whois", "n0", "");
        row("a million spaces", "/msg" + QString(1000000, ' ') + "bob hi", "#qt", "Msg", "msg", "bob",
            QString(999998, ' ') + "bob hi");
    }

    void parse()
    {
        QFETCH(QString, line);
        QFETCH(QString, tab);
        QFETCH(QString, type);
        QFETCH(QString, name);
        QFETCH(QString, target);
        QFETCH(QString, text);
        const InputCommand command = InputCommand::parse(line, tab);
        QCOMPARE(typeName(command.type), type);
        QCOMPARE(command.name, name);
        QCOMPARE(command.target, target);
        QCOMPARE(command.text, text);
    }

    // Random lines of spaces and a few words, checked against QString's own
    // split() and section(): arguments are the non-empty pieces, the /msg
    // text and the /raw line are sections with empty ones counted.
    void agreesWithSections()
    {
        const QStringList words { "msg", "m", "raw", "RAW", "bob", "#c", "hi", "%1", "\t", "x\x01" };
        QRandomGenerator random(20261122);
        for (int round = 0; round < 5000; ++round) {
            QString line = "/";
            const int pieces = random.bounded(1, 7);
            for (int i = 0; i < pieces; ++i) {
                line += QString(random.bounded(0, 3), QLatin1Char(' '));
                line += words.at(random.bounded(int(words.size())));
            }
            line += QString(random.bounded(0, 3), QLatin1Char(' '));

            const QString body = line.trimmed().mid(1);
            const QStringList parts = body.split(' ', Qt::SkipEmptyParts);
            const QString cmd = parts.value(0).toLower();
            const InputCommand command = InputCommand::parse(line, "#c");
            const QByteArray context = line.toUtf8().toPercentEncoding(" /#%");
            if ((cmd == "msg" || cmd == "m") && parts.size() >= 3) {
                QVERIFY2(command.type == Type::Msg, context);
                QVERIFY2(command.target == parts.at(1), context);
                QVERIFY2(command.text == body.section(' ', 2), context);
            } else if (cmd == "raw" && parts.size() >= 2) {
                QVERIFY2(command.type == Type::Raw, context);
                QVERIFY2(command.text == body.section(' ', 1), context);
            } else {
                QVERIFY2(command.type == Type::Feedback, context);
                QVERIFY2(command.text == "Unknown command: " + (cmd == "m" ? QString("msg") : cmd), context);
            }
        }
    }
};

QUENVAR_TEST_MAIN(TestInputCommand)
#include "tst_inputcommand.moc"
