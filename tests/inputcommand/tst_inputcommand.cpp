#include "InputCommand.h"
#include "TestMain.h"

#include <QRandomGenerator>

namespace {

using Type = InputCommand::Type;

QString typeName(Type type)
{
    static const QStringList names { "Empty", "Message", "Join", "Part", "Nick", "Msg", "Raw", "List", "Away",
        "Back", "Whois", "Autojoin", "Feedback", "Action", "Notice", "Ctcp", "ShowTopic", "SetTopic", "Kick",
        "Ban", "Mode", "Invite", "Who", "Query", "Close", "Clear", "Quit", "Help", "Unknown" };
    return names.value(int(type), "?");
}

void row(const char* tag, const QString& line, const QString& tab, const QString& type, const QString& name,
    const QString& target, const QString& text, const QStringList& args = {}, const QString& types = "#")
{
    QTest::newRow(tag) << line << tab << type << name << target << text << args << types;
}

// A command typed on `tab` that is refused there for want of a channel.
void channelOnly(const char* tag, const QString& line, const QString& tab, const QString& name)
{
    row(tag, line, tab, "Feedback", name, tab, "*** /" + name + " works in a channel tab.");
}

// A line typed on "#chan" that is reported as the unknown command `name`.
void unknown(const char* tag, const QString& line, const QString& name)
{
    row(tag, line, "#chan", "Unknown", name, "#chan", "Unknown command: " + name);
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
        QTest::addColumn<QStringList>("args");
        QTest::addColumn<QString>("types");

        // Every command under its own name or an alias, with enough arguments;
        // extra arguments are ignored.
        row("join", "/join #qt", "Server", "Join", "join", "#qt", "");
        row("j adds hash, then a key", "/j linux b c", "Server", "Join", "join", "#linux", "b");
        row("join several with keys", "/join #a,b,&c k1,k2", "#qt", "Join", "join", "#a,#b,#&c", "k1,k2");
        row("j other prefix gets a hash", "/j &local", "Server", "Join", "join", "#&local", "");
        row("j only hash", "/j #", "#qt", "Join", "join", "#", "");
        row("JOIN keeps argument case", "/JOIN Linux", "Server", "Join", "join", "#Linux", "");
        row("J alias upper case", "/J x", "Server", "Join", "join", "#x", "");
        row("part", "/part", "#qt", "Part", "part", "#qt", "Leaving");
        row("p with a reason", "/p  bye  all", "#qt", "Part", "part", "#qt", "bye  all");
        row("part another channel", "/part #b see you", "bob", "Part", "part", "#b", "see you");
        row("part a word that is no channel", "/part b", "#qt", "Part", "part", "#qt", "b");
        channelOnly("p on a private tab", "/p bye all", "bob", "part");
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
        unknown("kick alone", "/kick", "kick");
        unknown("notice without text", "/notice bob", "notice");
        unknown("ctcp without command", "/ctcp bob", "ctcp");
        unknown("lower-cased", "/FooBar x", "foobar");
        unknown("tab is no separator", "/j\tlinux", "j\tlinux");
        unknown("only slash and white space", "/     \t", "");
        unknown("placeholders", "/%1%2 x", "%1%2");
        unknown("double slash", "//join x", "/join");
        row("unknown on a private tab", "/what", "bob", "Unknown", "what", "bob", "Unknown command: what");

        // The commands beyond chat, in their forms.
        row("me", "/me waves  hi", "bob", "Action", "me", "bob", "waves  hi");
        row("me on the server tab", "/me x", "Server", "Feedback", "me", "Server",
            "*** /me works in a channel or private tab.");
        row("notice", "/notice  #qt heads up", "bob", "Notice", "notice", "#qt", "heads up");
        row("ctcp upper-cased", "/ctcp bob version", "#qt", "Ctcp", "ctcp", "bob", "VERSION");
        row("ctcp with arguments", "/ctcp bob PING  123", "#qt", "Ctcp", "ctcp", "bob", "PING 123");
        row("topic shown", "/topic", "#qt", "ShowTopic", "topic", "#qt", "");
        row("topic set", "/topic new  topic", "#qt", "SetTopic", "topic", "#qt", "new  topic");
        row("topic of another channel", "/topic #b", "bob", "ShowTopic", "topic", "#b", "");
        row("topic set elsewhere", "/topic #b new", "Server", "SetTopic", "topic", "#b", "new");
        channelOnly("topic on a private tab", "/topic hi", "bob", "topic");
        row("kick default reason", "/kick bob", "#qt", "Kick", "kick", "#qt", "Requested", { "bob" });
        row("kick with reason", "/kick bob go  away", "#qt", "Kick", "kick", "#qt", "go  away", { "bob" });
        channelOnly("kick on the server tab", "/kick bob", "Server", "kick");
        row("ban", "/ban bob", "#qt", "Ban", "ban", "#qt", "", { "bob" });
        channelOnly("ban on a private tab", "/ban bob", "bob", "ban");
        row("mode on the channel", "/mode +b  x!*@*", "#qt", "Mode", "mode", "#qt", "", { "+b x!*@*" });
        row("mode with a target", "/mode me -i+w", "#qt", "Mode", "mode", "me", "", { "-i+w" });
        row("mode asked", "/mode #b", "Server", "Mode", "mode", "#b", "", { "" });
        channelOnly("mode on the server tab", "/mode +m", "Server", "mode");
        row("op three to a line", "/op a b c d", "#qt", "Mode", "op", "#qt", "", { "+ooo a b c", "+o d" });
        row("deop", "/deop a", "#qt", "Mode", "deop", "#qt", "", { "-o a" });
        row("voice", "/voice a  b", "#qt", "Mode", "voice", "#qt", "", { "+vv a b" });
        row("devoice", "/devoice a", "#qt", "Mode", "devoice", "#qt", "", { "-v a" });
        channelOnly("op on a private tab", "/op a", "bob", "op");
        row("invite here", "/invite bob", "#qt", "Invite", "invite", "#qt", "", { "bob" });
        row("invite elsewhere", "/invite bob #b", "Server", "Invite", "invite", "#b", "", { "bob" });
        channelOnly("invite without a channel", "/invite bob", "Server", "invite");
        row("who", "/who #qt", "Server", "Who", "who", "#qt", "");
        row("query", "/query Bob", "#qt", "Query", "query", "Bob", "");
        row("query with text", "/query bob hi  there", "#qt", "Query", "query", "bob", "hi  there");
        row("query a channel", "/query #b", "#qt", "Feedback", "query", "#qt",
            "*** /query opens a private tab with a nick.");
        row("close", "/close", "bob", "Close", "close", "bob", "");
        row("close the server tab", "/close", "Server", "Feedback", "close", "Server",
            "*** The server tab stays open.");
        row("clear", "/clear", "Server", "Clear", "clear", "Server", "");
        row("quit default reason", "/quit", "#qt", "Quit", "quit", "", "Quenvar leaving");
        row("quit with reason", "/quit see  you", "#qt", "Quit", "quit", "", "see  you");
        row("help", "/help", "#qt", "Help", "help", "", "");
        row("help of an alias", "/help J", "#qt", "Help", "help", "join",
            "/join #channel[,#more] [keys]: Join channels (also /j)");
        row("help with slash", "/help /kick", "#qt", "Help", "help", "kick",
            "/kick nick [reason]: Kick a user from the channel");
        row("help of nothing", "/help nope", "#qt", "Help", "help", "nope", "*** No help for /nope");
        // Channels are what the network says they are.
        row("kick on a & channel", "/kick bob", "&local", "Kick", "kick", "&local", "Requested", { "bob" },
            "#&");
        channelOnly("& is no channel here", "/kick bob", "&local", "kick");

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
        QFETCH(QStringList, args);
        QFETCH(QString, types);
        const InputCommand command = InputCommand::parse(line, tab, types);
        QCOMPARE(typeName(command.type), type);
        QCOMPARE(command.name, name);
        QCOMPARE(command.target, target);
        QCOMPARE(command.text, text);
        QCOMPARE(command.args, args);
    }

    // Help has a line for every command the input line knows.
    void helpCoversEveryCommand()
    {
        const QStringList commands { "join", "part", "msg", "query", "me", "notice", "ctcp", "nick", "whois",
            "who", "away", "back", "list", "topic", "kick", "ban", "mode", "op", "deop", "voice", "devoice",
            "invite", "close", "clear", "autojoin", "raw", "quit", "help" };
        QCOMPARE(InputCommand::helpRows().size(), commands.size());
        for (const QString& command : commands) {
            const QString line = InputCommand::helpLine(command);
            QVERIFY2(line.startsWith("/" + command + " ") || line.startsWith("/" + command + ":"),
                qPrintable(command));
        }
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
                QVERIFY2(command.type == Type::Unknown, context);
                QVERIFY2(command.text == "Unknown command: " + (cmd == "m" ? QString("msg") : cmd), context);
            }
        }
    }
};

QUENVAR_TEST_MAIN(TestInputCommand)
#include "tst_inputcommand.moc"
