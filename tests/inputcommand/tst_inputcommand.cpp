#include "InputCommand.h"
#include "TestMain.h"

#include <QRegularExpression>

using T = InputCommand::Type;

namespace {

struct Case
{
    QString line, tab;
    T type;
    QString name, target, text;
    QStringList args = {};
    QString types = "#";
};

// Refused on `tab` for want of a channel.
Case channelOnly(const QString& line, const QString& tab, const QString& name)
{
    return { line, tab, T::Feedback, name, tab, "*** /" + name + " works in a channel tab." };
}

// Typed on "#chan", reported as the unknown command `name`.
Case unknown(const QString& line, const QString& name)
{
    return { line, "#chan", T::Unknown, name, "#chan", "Unknown command: " + name };
}

} // namespace

class TestInputCommand : public QObject
{
    Q_OBJECT

private slots:
    void parse()
    {
        const QString payload(1000000, QLatin1Char('x'));
        QString words = "/w";
        for (int i = 0; i < 500000; ++i)
            words += QStringLiteral(" n%1").arg(i);
        const QList<Case> cases {
            // Every command under its name or an alias; extra arguments are ignored.
            { "/join #qt", "Server", T::Join, "join", "#qt", "" },
            { "/j linux b c", "Server", T::Join, "join", "#linux", "b" },
            { "/join #a,b,&c k1,k2", "#qt", T::Join, "join", "#a,#b,#&c", "k1,k2" },
            { "/J Linux", "Server", T::Join, "join", "#Linux", "" },
            { "/part", "#qt", T::Part, "part", "#qt", "Leaving" },
            { "/p  bye  all", "#qt", T::Part, "part", "#qt", "bye  all" },
            { "/part #b see you", "bob", T::Part, "part", "#b", "see you" },
            { "/part b", "#qt", T::Part, "part", "#qt", "b" },
            channelOnly("/p bye all", "bob", "part"),
            { "/n other extra", "#qt", T::Nick, "nick", "other", "" },
            { "/msg bob hi   there  ", "#qt", T::Msg, "msg", "bob", "hi   there" },
            { "/m bob hi", "#qt", T::Msg, "msg", "bob", "hi" },
            { "/RAW PRIVMSG #a :hello  world", "#qt", T::Raw, "raw", "", "PRIVMSG #a :hello  world" },
            { "/L >10", "#qt", T::List, "list", "", "" },
            { "/away", "#qt", T::Away, "away", "", "Away" },
            { "/a    gone   fishing ", "#qt", T::Away, "away", "", "gone   fishing" },
            { "/b now", "#qt", T::Back, "back", "", "" },
            { "/w alice", "bob", T::Whois, "whois", "alice", "" },
            { "/wc alice", "#qt", T::Whois, "whois", "alice", "" },
            { "/AUTOJOIN Qt", "#qt", T::Autojoin, "autojoin", "#Qt", "" },
            { "/ join x", "#qt", T::Join, "join", "#x", "" },
            { "/join    x", "#qt", T::Join, "join", "#x", "" },
            // Too few arguments: unknown under the mapped name, never a usage text.
            unknown("/J", "join"), unknown("/join    ", "join"), unknown("/n", "nick"),
            unknown("/msg bob", "msg"), unknown("/raw", "raw"), unknown("/WC", "whois"),
            unknown("/autojoin", "autojoin"), unknown("/kick", "kick"), unknown("/notice bob", "notice"),
            unknown("/ctcp bob", "ctcp"), unknown("/FooBar x", "foobar"), unknown("/j\tlinux", "j\tlinux"),
            unknown("/     \t", ""), unknown("/%1%2 x", "%1%2"), unknown("//join x", "/join"),
            { "/what", "bob", T::Unknown, "what", "bob", "Unknown command: what" },
            { "/me waves  hi", "bob", T::Action, "me", "bob", "waves  hi" },
            { "/me x", "Server", T::Feedback, "me", "Server", "*** /me works in a channel or private tab." },
            { "/notice  #qt heads up", "bob", T::Notice, "notice", "#qt", "heads up" },
            { "/ctcp bob version", "#qt", T::Ctcp, "ctcp", "bob", "VERSION" },
            { "/ctcp bob PING  123", "#qt", T::Ctcp, "ctcp", "bob", "PING 123" },
            { "/topic", "#qt", T::ShowTopic, "topic", "#qt", "" },
            { "/topic new  topic", "#qt", T::SetTopic, "topic", "#qt", "new  topic" },
            { "/topic #b", "bob", T::ShowTopic, "topic", "#b", "" },
            { "/topic #b new", "Server", T::SetTopic, "topic", "#b", "new" },
            channelOnly("/topic hi", "bob", "topic"),
            { "/kick bob", "#qt", T::Kick, "kick", "#qt", "Requested", { "bob" } },
            { "/kick bob go  away", "#qt", T::Kick, "kick", "#qt", "go  away", { "bob" } },
            channelOnly("/kick bob", "Server", "kick"),
            { "/ban bob", "#qt", T::Ban, "ban", "#qt", "", { "bob" } },
            channelOnly("/ban bob", "bob", "ban"),
            { "/mode +b  x!*@*", "#qt", T::Mode, "mode", "#qt", "", { "+b x!*@*" } },
            { "/mode me -i+w", "#qt", T::Mode, "mode", "me", "", { "-i+w" } },
            { "/mode #b", "Server", T::Mode, "mode", "#b", "", { "" } },
            channelOnly("/mode +m", "Server", "mode"),
            { "/op a b c d", "#qt", T::Mode, "op", "#qt", "", { "+ooo a b c", "+o d" } },
            { "/deop a", "#qt", T::Mode, "deop", "#qt", "", { "-o a" } },
            { "/voice a  b", "#qt", T::Mode, "voice", "#qt", "", { "+vv a b" } },
            { "/devoice a", "#qt", T::Mode, "devoice", "#qt", "", { "-v a" } },
            channelOnly("/op a", "bob", "op"),
            { "/invite bob", "#qt", T::Invite, "invite", "#qt", "", { "bob" } },
            { "/invite bob #b", "Server", T::Invite, "invite", "#b", "", { "bob" } },
            channelOnly("/invite bob", "Server", "invite"),
            { "/who #qt", "Server", T::Who, "who", "#qt", "" },
            { "/query bob hi  there", "#qt", T::Query, "query", "bob", "hi  there" },
            { "/query #b", "#qt", T::Feedback, "query", "#qt", "*** /query opens a private tab with a nick." },
            { "/close", "bob", T::Close, "close", "bob", "" },
            { "/close", "Server", T::Feedback, "close", "Server", "*** The server tab stays open." },
            { "/clear", "Server", T::Clear, "clear", "Server", "" },
            { "/quit", "#qt", T::Quit, "quit", "", "Quenvar leaving" },
            { "/quit see  you", "#qt", T::Quit, "quit", "", "see  you" },
            { "/help", "#qt", T::Help, "help", "", "" },
            { "/help J", "#qt", T::Help, "help", "join", "/join #channel[,#more] [keys]: Join channels (also /j)" },
            { "/help /kick", "#qt", T::Help, "help", "kick", "/kick nick [reason]: Kick a user from the channel" },
            { "/help nope", "#qt", T::Help, "help", "nope", "*** No help for /nope" },
            // Channels are what the network says they are.
            { "/kick bob", "&local", T::Kick, "kick", "&local", "Requested", { "bob" }, "#&" },
            channelOnly("/kick bob", "&local", "kick"),
            // The /msg text and the /raw line are sections, empty ones counted.
            { "/msg  bob hi", "#qt", T::Msg, "msg", "bob", "bob hi" },
            { "/raw  MODE #a", "#qt", T::Raw, "raw", "", " MODE #a" },
            { "/msg %1 %2 %1", "#qt", T::Msg, "msg", "%1", "%2 %1" },
            // Line breaks are for whatever sends the text to refuse or cut.
            { "/raw PRIVMSG #a :x\r\nQUIT", "#qt", T::Raw, "raw", "", "PRIVMSG #a :x\r\nQUIT" },
            { "  hello all \t", "#qt", T::Message, "", "#qt", "hello all" },
            { "hi", "List", T::Message, "", "List", "hi" },
            { "a/b /join", "#qt", T::Message, "", "#qt", "a/b /join" },
            { "hello", "Server", T::Feedback, "", "Server", "Cannot send messages to Server tab." },
            { "x", "#Server", T::Message, "", "#Server", "x" },
            { "   /j linux", "#qt", T::Join, "join", "#linux", "" },
            { "", "#qt", T::Empty, "", "", "" },
            { " \t\r\n ", "Server", T::Empty, "", "", "" },
            // Huge lines: only the first words are ever cut out.
            { payload, "#qt", T::Message, "", "#qt", payload },
            { "/msg bob " + payload, "#qt", T::Msg, "msg", "bob", payload },
            unknown("/" + payload, payload),
            { words, "#qt", T::Whois, "whois", "n0", "" },
            { "/msg" + QString(1000000, ' ') + "bob hi", "#qt", T::Msg, "msg", "bob", QString(999998, ' ') + "bob hi" },
        };
        for (const Case& c : cases) {
            const InputCommand command = InputCommand::parse(c.line, c.tab, c.types);
            QVERIFY2(command.type == c.type && command.name == c.name && command.target == c.target
                    && command.text == c.text && command.args == c.args,
                qPrintable(c.line.left(60) + " on " + c.tab + ": " + command.name + "|" + command.target + "|"
                    + command.text.left(60) + "|" + command.args.join(',')));
        }

        // Help has a line for every command.
        const QStringList commands { "join", "part", "msg", "query", "me", "notice", "ctcp", "nick", "whois", "who", "away",
            "back", "list", "topic", "kick", "ban", "mode", "op", "deop", "voice", "devoice", "invite", "close", "clear",
            "autojoin", "raw", "quit", "help" };
        QCOMPARE(InputCommand::helpRows().size(), commands.size());
        for (const QString& command : commands)
            QVERIFY2(QRegularExpression("^/" + command + "[ :]").match(InputCommand::helpLine(command)).hasMatch(),
                qPrintable(command));
    }
};

QUENVAR_TEST_MAIN(TestInputCommand)
#include "tst_inputcommand.moc"
