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
// dropped. Only the command word and two arguments ever matter, so a huge
// line is not cut up any further.
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

QString InputCommand::channelName(const QString& name)
{
    return name.startsWith(QLatin1Char('#')) ? name : QLatin1Char('#') + name;
}

InputCommand InputCommand::parse(const QString& line, const QString& currentTab)
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
    QString cmd = parts.value(0).toLower();
    cmd = commandAliases().value(cmd, cmd);
    const qsizetype arguments = parts.size() - 1;

    if (cmd == QLatin1String("join") && arguments >= 1)
        return make(Type::Join, cmd, channelName(parts.at(1)));
    if (cmd == QLatin1String("part"))
        return make(Type::Part, cmd, currentTab);
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

    return make(Type::Feedback, cmd, currentTab, QStringLiteral("Unknown command: ") + cmd);
}
