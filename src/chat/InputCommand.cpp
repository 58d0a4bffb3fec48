#include "InputCommand.h"

#include <QStringList>

namespace {

const QChar Space(QLatin1Char(' '));

InputCommand make(InputCommand::Type type, const QString& name, const QString& target = QString(),
    const QString& text = QString())
{
    InputCommand command;
    command.type = type;
    command.name = name;
    command.target = target;
    command.text = text;
    return command;
}

// The first `count` pieces of `body` split at single spaces, empty pieces
// dropped. Most commands only look at the command word and two arguments, so
// a huge line is not cut up any further.
QStringList firstWords(const QString& body, int count)
{
    QStringList words;
    qsizetype from = 0;
    while (words.size() < count && from < body.size()) {
        qsizetype end = body.indexOf(Space, from);
        if (end < 0)
            end = body.size();
        if (end > from)
            words.append(body.mid(from, end - from));
        from = end + 1;
    }
    return words;
}

// The rest of `body` after its `count`th space (empty when it has fewer):
// sections separated by single spaces, empty sections counted.
QString afterSpaces(const QString& body, int count)
{
    qsizetype at = -1;
    for (int i = 0; i < count; ++i) {
        at = body.indexOf(Space, at + 1);
        if (at < 0)
            return QString();
    }
    return body.mid(at + 1);
}

// The text after the first `count` words of `body`, words being separated by
// runs of spaces: the spaces right after them skipped, the rest untouched.
QString afterWords(const QString& body, int count)
{
    qsizetype at = 0;
    for (int i = 0;; ++i) {
        while (at < body.size() && body.at(at) == Space)
            ++at;
        if (i == count)
            break;
        while (at < body.size() && body.at(at) != Space)
            ++at;
    }
    return body.mid(at);
}

// A typed command word as a command name: lower-cased, aliases mapped.
QString commandName(const QString& word)
{
    const QString lower = word.toLower();
    return InputCommand::commandAliases().value(lower, lower);
}

QString withoutSlash(const QString& word)
{
    return word.startsWith(QLatin1Char('/')) ? word.mid(1) : word;
}

// The mode strings that give (sign "+") or take (sign "-") the rank `letter`
// to the nicks, three nicks to a MODE line as most servers take.
QStringList rankModes(QChar sign, QChar letter, const QStringList& nicks)
{
    constexpr qsizetype PerLine = 3;
    QStringList lines;
    for (qsizetype from = 0; from < nicks.size(); from += PerLine) {
        const QStringList some = nicks.mid(from, PerLine);
        lines.append(sign + QString(some.size(), letter) + Space + some.join(Space));
    }
    return lines;
}

} // namespace

const QMap<QString, QString>& InputCommand::commandAliases()
{
    static const QMap<QString, QString> aliases {
        { QStringLiteral("j"), QStringLiteral("join") },
        { QStringLiteral("l"), QStringLiteral("list") },
        { QStringLiteral("w"), QStringLiteral("whois") },
        { QStringLiteral("n"), QStringLiteral("nick") },
        { QStringLiteral("p"), QStringLiteral("part") },
        { QStringLiteral("m"), QStringLiteral("msg") },
        { QStringLiteral("a"), QStringLiteral("away") },
        { QStringLiteral("b"), QStringLiteral("back") },
        { QStringLiteral("wc"), QStringLiteral("whois") },
        { QStringLiteral("raw"), QStringLiteral("raw") },
    };
    return aliases;
}

const QList<InputCommand::HelpRow>& InputCommand::helpRows()
{
    static const QList<HelpRow> rows {
        { QStringLiteral("/join #channel[,#more] [keys]"), QStringLiteral("Join channels (also /j)") },
        { QStringLiteral("/part [#channel] [reason]"),
            QStringLiteral("Leave a channel, or the current one (also /p)") },
        { QStringLiteral("/msg nick message"), QStringLiteral("Send a private message (also /m)") },
        { QStringLiteral("/query nick [message]"), QStringLiteral("Open a private tab with a user") },
        { QStringLiteral("/me action"), QStringLiteral("Send an action message") },
        { QStringLiteral("/notice nick|#channel message"),
            QStringLiteral("Send a notice (like /msg but silent)") },
        { QStringLiteral("/ctcp nick command [args]"),
            QStringLiteral("Send a CTCP request (e.g., /ctcp nick VERSION)") },
        { QStringLiteral("/nick newnick"), QStringLiteral("Change your nickname (also /n)") },
        { QStringLiteral("/whois nick"), QStringLiteral("Show information about a user (also /w, /wc)") },
        { QStringLiteral("/who mask"), QStringLiteral("List the users matching a mask, or of a channel") },
        { QStringLiteral("/away [message]"),
            QStringLiteral("Set away status (also /a; use /back to return)") },
        { QStringLiteral("/back"), QStringLiteral("Return from away (also /b)") },
        { QStringLiteral("/list"), QStringLiteral("List channels on the server (also /l)") },
        { QStringLiteral("/topic [#channel] [text]"), QStringLiteral("Show or change the channel topic") },
        { QStringLiteral("/kick nick [reason]"), QStringLiteral("Kick a user from the channel") },
        { QStringLiteral("/ban nick"), QStringLiteral("Ban a user from the channel (nick!*@*)") },
        { QStringLiteral("/mode [target] modes"), QStringLiteral("Change channel or user modes") },
        { QStringLiteral("/op nick..."), QStringLiteral("Make users channel operators") },
        { QStringLiteral("/deop nick..."), QStringLiteral("Take channel operator status from users") },
        { QStringLiteral("/voice nick..."), QStringLiteral("Give users voice") },
        { QStringLiteral("/devoice nick..."), QStringLiteral("Take voice from users") },
        { QStringLiteral("/invite nick [#channel]"), QStringLiteral("Invite a user to a channel") },
        { QStringLiteral("/close"), QStringLiteral("Close the current tab") },
        { QStringLiteral("/clear"), QStringLiteral("Clear the messages of the current tab") },
        { QStringLiteral("/autojoin #channel"),
            QStringLiteral("Add a channel to the autojoin list, or remove it") },
        { QStringLiteral("/raw line"), QStringLiteral("Send a line to the server as it is") },
        { QStringLiteral("/quit [reason]"), QStringLiteral("Disconnect from the server") },
        { QStringLiteral("/help [command]"), QStringLiteral("Show this help, or the line of one command") },
    };
    return rows;
}

QString InputCommand::helpLine(const QString& command)
{
    const QString name = QLatin1Char('/') + commandName(withoutSlash(command));
    for (const HelpRow& row : helpRows()) {
        if (row.usage.section(Space, 0, 0) == name)
            return row.usage + QStringLiteral(": ") + row.description;
    }
    return QString();
}

QString InputCommand::channelName(const QString& name, const QString& channelTypes)
{
    const bool channel = !name.isEmpty() && (name.front() == QLatin1Char('#') || channelTypes.contains(name.front()));
    return channel ? name : QLatin1Char('#') + name;
}

InputCommand InputCommand::parse(const QString& line, const QString& currentTab, const QString& channelTypes)
{
    const QString text = line.trimmed();
    if (text.isEmpty())
        return InputCommand();

    if (!text.startsWith(QLatin1Char('/'))) {
        if (currentTab == QLatin1String("Server"))
            return make(Type::Feedback, QString(), QStringLiteral("Server"),
                QStringLiteral("Cannot send messages to Server tab."));
        return make(Type::Message, QString(), currentTab, text);
    }

    const QString body = text.mid(1);
    const QStringList parts = firstWords(body, 3);
    const QString cmd = commandName(parts.value(0));
    const qsizetype arguments = parts.size() - 1;
    const auto isChannel = [&channelTypes](const QString& name) {
        return !name.isEmpty() && channelTypes.contains(name.front());
    };
    const bool inChannel = isChannel(currentTab);
    const auto channelOnly = [&cmd, &currentTab] {
        return make(
            Type::Feedback, cmd, currentTab, QStringLiteral("*** /%1 works in a channel tab.").arg(cmd));
    };
    // Several commands act on the current channel with the words that follow.
    const auto onChannel
        = [&](Type type, const QStringList& args = QStringList(), const QString& text = QString()) {
              if (!inChannel)
                  return channelOnly();
              InputCommand command = make(type, cmd, currentTab, text);
              command.args = args;
              return command;
          };

    if (cmd == QLatin1String("join") && arguments >= 1) {
        QStringList channels = parts.at(1).split(QLatin1Char(','));
        for (QString& channel : channels)
            channel = channelName(channel, channelTypes);
        return make(Type::Join, cmd, channels.join(QLatin1Char(',')), parts.value(2));
    }
    if (cmd == QLatin1String("part")) {
        const bool named = arguments >= 1 && isChannel(parts.at(1));
        if (!named && !inChannel)
            return channelOnly();
        const QString reason = afterWords(body, named ? 2 : 1);
        return make(Type::Part, cmd, named ? parts.at(1) : currentTab,
            reason.isEmpty() ? QStringLiteral("Leaving") : reason);
    }
    if (cmd == QLatin1String("nick") && arguments >= 1)
        return make(Type::Nick, cmd, parts.at(1));
    if (cmd == QLatin1String("msg") && arguments >= 2)
        return make(Type::Msg, cmd, parts.at(1), afterSpaces(body, 2));
    if (cmd == QLatin1String("raw") && arguments >= 1)
        return make(Type::Raw, cmd, QString(), afterSpaces(body, 1));
    if (cmd == QLatin1String("list"))
        return make(Type::List, cmd);
    if (cmd == QLatin1String("away")) {
        const QString reason = afterSpaces(body, 1).trimmed();
        return make(Type::Away, cmd, QString(), reason.isEmpty() ? QStringLiteral("Away") : reason);
    }
    if (cmd == QLatin1String("back"))
        return make(Type::Back, cmd);
    if (cmd == QLatin1String("whois") && arguments >= 1)
        return make(Type::Whois, cmd, parts.at(1));
    if (cmd == QLatin1String("autojoin") && arguments >= 1)
        return make(Type::Autojoin, cmd, channelName(parts.at(1)));

    if (cmd == QLatin1String("me") && arguments >= 1) {
        if (currentTab == QLatin1String("Server") || currentTab == QLatin1String("List"))
            return make(Type::Feedback, cmd, currentTab,
                QStringLiteral("*** /me works in a channel or private tab."));
        return make(Type::Action, cmd, currentTab, afterWords(body, 1));
    }
    if (cmd == QLatin1String("notice") && arguments >= 2)
        return make(Type::Notice, cmd, parts.at(1), afterWords(body, 2));
    if (cmd == QLatin1String("ctcp") && arguments >= 2) {
        const QString rest = afterWords(body, 3);
        return make(Type::Ctcp, cmd, parts.at(1),
            parts.at(2).toUpper() + (rest.isEmpty() ? QString() : Space + rest));
    }
    if (cmd == QLatin1String("topic")) {
        if (arguments >= 1 && isChannel(parts.at(1))) {
            const QString topic = afterWords(body, 2);
            return make(topic.isEmpty() ? Type::ShowTopic : Type::SetTopic, cmd, parts.at(1), topic);
        }
        const QString topic = afterWords(body, 1);
        return onChannel(topic.isEmpty() ? Type::ShowTopic : Type::SetTopic, QStringList(), topic);
    }
    if (cmd == QLatin1String("kick") && arguments >= 1) {
        const QString reason = afterWords(body, 2);
        return onChannel(
            Type::Kick, { parts.at(1) }, reason.isEmpty() ? QStringLiteral("Requested") : reason);
    }
    if (cmd == QLatin1String("ban") && arguments >= 1)
        return onChannel(Type::Ban, { parts.at(1) });
    if (cmd == QLatin1String("mode") && arguments >= 1) {
        const QStringList words = body.split(Space, Qt::SkipEmptyParts);
        const QChar first = parts.at(1).front();
        if (first == QLatin1Char('+') || first == QLatin1Char('-'))
            return onChannel(Type::Mode, { words.mid(1).join(Space) });
        InputCommand command = make(Type::Mode, cmd, parts.at(1));
        command.args = QStringList { words.mid(2).join(Space) };
        return command;
    }
    if ((cmd == QLatin1String("op") || cmd == QLatin1String("deop") || cmd == QLatin1String("voice")
            || cmd == QLatin1String("devoice"))
        && arguments >= 1) {
        const QChar sign = cmd.startsWith(QLatin1String("de")) ? QLatin1Char('-') : QLatin1Char('+');
        const QChar letter = cmd.endsWith(QLatin1String("op")) ? QLatin1Char('o') : QLatin1Char('v');
        return onChannel(Type::Mode, rankModes(sign, letter, body.split(Space, Qt::SkipEmptyParts).mid(1)));
    }
    if (cmd == QLatin1String("invite") && arguments >= 1) {
        if (arguments >= 2) {
            InputCommand command = make(Type::Invite, cmd, parts.at(2));
            command.args = QStringList { parts.at(1) };
            return command;
        }
        return onChannel(Type::Invite, { parts.at(1) });
    }
    if (cmd == QLatin1String("who") && arguments >= 1)
        return make(Type::Who, cmd, parts.at(1));
    if (cmd == QLatin1String("query") && arguments >= 1) {
        if (isChannel(parts.at(1)))
            return make(Type::Feedback, cmd, currentTab,
                QStringLiteral("*** /query opens a private tab with a nick."));
        return make(Type::Query, cmd, parts.at(1), afterWords(body, 2));
    }
    if (cmd == QLatin1String("close")) {
        if (currentTab == QLatin1String("Server"))
            return make(Type::Feedback, cmd, currentTab, QStringLiteral("*** The server tab stays open."));
        return make(Type::Close, cmd, currentTab);
    }
    if (cmd == QLatin1String("clear"))
        return make(Type::Clear, cmd, currentTab);
    if (cmd == QLatin1String("quit")) {
        const QString reason = afterWords(body, 1);
        return make(
            Type::Quit, cmd, QString(), reason.isEmpty() ? QStringLiteral("Quenvar leaving") : reason);
    }
    if (cmd == QLatin1String("help")) {
        if (arguments < 1)
            return make(Type::Help, cmd);
        const QString asked = commandName(withoutSlash(parts.at(1)));
        const QString help = helpLine(asked);
        return make(
            Type::Help, cmd, asked, help.isEmpty() ? QStringLiteral("*** No help for /") + asked : help);
    }

    return make(Type::Unknown, cmd, currentTab, QStringLiteral("Unknown command: ") + cmd);
}
