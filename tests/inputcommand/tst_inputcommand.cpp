#include "InputCommand.h"
#include "TestMain.h"

#include <QRandomGenerator>

namespace {

using Type = InputCommand::Type;

QString typeName(Type type)
{
    static const QMap<Type, QString> names {
        { Type::Empty, "Empty" },
        { Type::Message, "Message" },
        { Type::Join, "Join" },
        { Type::Part, "Part" },
        { Type::Nick, "Nick" },
        { Type::Msg, "Msg" },
        { Type::Raw, "Raw" },
        { Type::List, "List" },
        { Type::Away, "Away" },
        { Type::Back, "Back" },
        { Type::Whois, "Whois" },
        { Type::Autojoin, "Autojoin" },
        { Type::Feedback, "Feedback" },
    };
    return names.value(type, "?");
}

// The columns shared by the table-driven tests: the line, the current tab
// and every field of the expected result.
void addColumns()
{
    QTest::addColumn<QString>("line");
    QTest::addColumn<QString>("tab");
    QTest::addColumn<QString>("type");
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("target");
    QTest::addColumn<QString>("text");
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

private:
    void checkRow()
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

private slots:
    void aliasTable()
    {
        const QMap<QString, QString> expected {
            { "j", "join" },
            { "l", "list" },
            { "w", "whois" },
            { "n", "nick" },
            { "p", "part" },
            { "m", "msg" },
            { "a", "away" },
            { "b", "back" },
            { "wc", "whois" },
            { "raw", "raw" },
        };
        QCOMPARE(InputCommand::commandAliases(), expected);
        QCOMPARE(&InputCommand::commandAliases(), &InputCommand::commandAliases());
    }

    void channelName_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<QString>("expected");
        QTest::newRow("bare") << QString("linux") << QString("#linux");
        QTest::newRow("with hash") << QString("#linux") << QString("#linux");
        QTest::newRow("double hash kept") << QString("##c") << QString("##c");
        QTest::newRow("other prefix gets a hash") << QString("&local") << QString("#&local");
        QTest::newRow("empty") << QString() << QString("#");
    }

    void channelName()
    {
        QFETCH(QString, name);
        QFETCH(QString, expected);
        QCOMPARE(InputCommand::channelName(name), expected);
    }

    // Every command under its own name and every alias, with enough arguments.
    void commands_data()
    {
        addColumns();
        row("join", "/join #qt", "Server", "Join", "join", "#qt", "");
        row("j adds hash", "/j linux", "Server", "Join", "join", "#linux", "");
        row("j extra ignored", "/j #a b", "Server", "Join", "join", "#a", "");
        row("JOIN keeps argument case", "/JOIN Linux", "Server", "Join", "join", "#Linux", "");
        row("J alias upper case", "/J x", "Server", "Join", "join", "#x", "");
        row("part", "/part", "#qt", "Part", "part", "#qt", "");
        row("p extra ignored", "/p bye all", "bob", "Part", "part", "bob", "");
        row("part on server", "/PART", "Server", "Part", "part", "Server", "");
        row("nick", "/nick Newbie", "#qt", "Nick", "nick", "Newbie", "");
        row("n", "/n other extra", "#qt", "Nick", "nick", "other", "");
        row("msg", "/msg bob hi there", "#qt", "Msg", "msg", "bob", "hi there");
        row("m", "/m bob hi", "#qt", "Msg", "msg", "bob", "hi");
        row("msg inner spaces kept", "/msg bob hi   there", "#qt", "Msg", "msg", "bob", "hi   there");
        row("msg trailing spaces trimmed", "/msg bob hi  ", "#qt", "Msg", "msg", "bob", "hi");
        row("raw", "/raw PRIVMSG #a :hello  world", "#qt", "Raw", "raw", "", "PRIVMSG #a :hello  world");
        row("RAW", "/RAW version", "#qt", "Raw", "raw", "", "version");
        row("list", "/list", "#qt", "List", "list", "", "");
        row("L extra ignored", "/L >10", "#qt", "List", "list", "", "");
        row("away default reason", "/away", "#qt", "Away", "away", "", "Away");
        row("a reason", "/a gone fishing", "#qt", "Away", "away", "", "gone fishing");
        row("away reason trimmed", "/away    spaced   out", "#qt", "Away", "away", "", "spaced   out");
        row("back", "/back", "#qt", "Back", "back", "", "");
        row("b extra ignored", "/b now", "#qt", "Back", "back", "", "");
        row("whois", "/whois alice", "#qt", "Whois", "whois", "alice", "");
        row("w", "/w alice", "bob", "Whois", "whois", "alice", "");
        row("wc is whois", "/wc alice", "#qt", "Whois", "whois", "alice", "");
        row("autojoin", "/autojoin linux", "#qt", "Autojoin", "autojoin", "#linux", "");
        row("AUTOJOIN with hash", "/AUTOJOIN #Qt", "#qt", "Autojoin", "autojoin", "#Qt", "");
        row("space after slash", "/ join x", "#qt", "Join", "join", "#x", "");
        row("spaces before argument", "/join    x", "#qt", "Join", "join", "#x", "");
    }

    void commands() { checkRow(); }

    // Too few arguments never give a usage text: the command is reported as
    // unknown under its mapped name, in the current tab.
    void unknownCommands_data()
    {
        addColumns();
        unknown("J alone", "/J", "join");
        unknown("join alone", "/join", "join");
        unknown("join and spaces", "/join    ", "join");
        unknown("n alone", "/n", "nick");
        unknown("msg without text", "/msg bob", "msg");
        unknown("m alone", "/m", "msg");
        unknown("raw alone", "/raw", "raw");
        unknown("WC alone", "/WC", "whois");
        unknown("w alone", "/w", "whois");
        unknown("autojoin alone", "/autojoin", "autojoin");
        unknown("quit", "/quit now", "quit");
        unknown("lower-cased", "/FooBar x", "foobar");
        unknown("no alias aj", "/aj x", "aj");
        unknown("close is no command", "/close", "close");
        unknown("tab is no separator", "/j\tlinux", "j\tlinux");
        row("unknown on a private tab", "/what", "bob", "Feedback", "what", "bob", "Unknown command: what");
    }

    void unknownCommands() { checkRow(); }

    // Sections of /msg and /raw are counted with empty ones included.
    void emptySections_data()
    {
        addColumns();
        row("msg double space before target", "/msg  bob hi", "#qt", "Msg", "msg", "bob", "bob hi");
        row("msg double space before text", "/msg bob  hi", "#qt", "Msg", "msg", "bob", " hi");
        row("msg three spaces before target", "/msg   bob hi", "#qt", "Msg", "msg", "bob", " bob hi");
        row("msg after space after slash", "/ msg bob hi", "#qt", "Msg", "msg", "bob", "bob hi");
        row("raw double space", "/raw  MODE #a", "#qt", "Raw", "raw", "", " MODE #a");
        row("raw keeps colon text", "/raw PRIVMSG #a :  x  ", "#qt", "Raw", "raw", "", "PRIVMSG #a :  x");
        row("raw after space after slash", "/ raw x", "#qt", "Raw", "raw", "", "raw x");
        row("away after double space", "/away  back soon", "#qt", "Away", "away", "", "back soon");
    }

    void emptySections() { checkRow(); }

    void plainText_data()
    {
        addColumns();
        row("channel", "hello all", "#qt", "Message", "", "#qt", "hello all");
        row("private", "hi bob", "bob", "Message", "", "bob", "hi bob");
        row("list tab is a target", "hi", "List", "Message", "", "List", "hi");
        row("trimmed", "  hi there \t", "#qt", "Message", "", "#qt", "hi there");
        row("slash later", "a/b /join", "#qt", "Message", "", "#qt", "a/b /join");
        row("server tab", "hello", "Server", "Feedback", "", "Server", "Cannot send messages to Server tab.");
        row("channel named #Server", "x", "#Server", "Message", "", "#Server", "x");
        row("leading spaces then command", "   /j linux", "#qt", "Join", "join", "#linux", "");
        row("empty", "", "#qt", "Empty", "", "", "");
        row("only spaces", "     ", "#qt", "Empty", "", "", "");
        row("only white space on server", " \t\r\n ", "Server", "Empty", "", "", "");
    }

    void plainText() { checkRow(); }

    void hostile_data()
    {
        addColumns();
        unknown("only slash", "/", "");
        unknown("slash and spaces", "/     ", "");
        unknown("slash and white space", "/     \t", "");
        unknown("placeholder", "/%1", "%1");
        unknown("placeholders", "/%1%2 x", "%1%2");
        unknown("double slash", "//join x", "/join");
        row("msg with placeholders", "/msg %1 %2 %1", "#qt", "Msg", "msg", "%1", "%2 %1");
        row("away with placeholder", "/away %1", "#qt", "Away", "away", "", "%1");
        row("ctcp action kept", "/msg bob \u0001ACTION waves\u0001", "#qt", "Msg", "msg", "bob",
            "\u0001ACTION waves\u0001");
        row("colour codes kept", "\u00034red\u000f", "#qt", "Message", "", "#qt", "\u00034red\u000f");
        const QString withNul = QString("a") + QChar(0) + "b";
        row("nul in text", withNul, "#qt", "Message", "", "#qt", withNul);
        // Line breaks inside a line are not the parser's business: whatever
        // sends the text has to refuse or cut them.
        row("line breaks passed on", "/raw PRIVMSG #a :x\r\nQUIT", "#qt", "Raw", "raw", "",
            "PRIVMSG #a :x\r\nQUIT");
        row("unicode nick", "/w Ünïcødé", "#qt", "Whois", "whois", "Ünïcødé", "");
        row("join only hash", "/j #", "#qt", "Join", "join", "#", "");
    }

    void hostile() { checkRow(); }

    void veryLongLines()
    {
        const QString payload(1000000, QLatin1Char('x'));
        InputCommand command = InputCommand::parse("/msg bob " + payload, "#qt");
        QCOMPARE(typeName(command.type), QString("Msg"));
        QCOMPARE(command.target, QString("bob"));
        QCOMPARE(command.text, payload);

        command = InputCommand::parse("/raw " + payload, "#qt");
        QCOMPARE(typeName(command.type), QString("Raw"));
        QCOMPARE(command.text, payload);

        // Half a million words: only the first ones count.
        QString words = "/w";
        for (int i = 0; i < 500000; ++i)
            words += QStringLiteral(" n%1").arg(i);
        command = InputCommand::parse(words, "#qt");
        QCOMPARE(typeName(command.type), QString("Whois"));
        QCOMPARE(command.target, QString("n0"));

        // A huge run of spaces before the arguments.
        command = InputCommand::parse("/msg" + QString(1000000, QLatin1Char(' ')) + "bob hi", "#qt");
        QCOMPARE(typeName(command.type), QString("Msg"));
        QCOMPARE(command.target, QString("bob"));
        QCOMPARE(command.text, QString(999998, QLatin1Char(' ')) + "bob hi");

        command = InputCommand::parse(payload, "#qt");
        QCOMPARE(typeName(command.type), QString("Message"));
        QCOMPARE(command.text, payload);

        command = InputCommand::parse("/" + payload, "#qt");
        QCOMPARE(command.text, "Unknown command: " + payload);
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
