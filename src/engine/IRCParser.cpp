#include "IRCParser.h"

#include "IRCConnection.h"

#include <QDateTime>
#include <QStringList>
#include <QVarLengthArray>

namespace {

// A line cut into views of itself; nothing is copied until a signal needs it.
struct Message
{
    QStringView prefix;
    QStringView command;
    QVarLengthArray<QStringView, 16> params;
    QStringView trailing;

    QStringView value(qsizetype i) const { return i < params.size() ? params[i] : QStringView(); }
    QString param(qsizetype i) const { return value(i).toString(); }
    qsizetype count() const { return params.size(); }
    QString nick() const
    {
        const qsizetype bang = prefix.indexOf(u'!');
        return (bang < 0 ? prefix : prefix.left(bang)).toString();
    }
};

// Commands are ASCII; compares with an upper-case ASCII literal ignoring case.
bool isCommand(QStringView command, QLatin1String upper)
{
    if (command.size() != upper.size())
        return false;
    for (qsizetype i = 0; i < command.size(); ++i) {
        char16_t c = command[i].unicode();
        if (c >= u'a' && c <= u'z')
            c -= u'a' - u'A';
        if (c != static_cast<unsigned char>(upper.data()[i]))
            return false;
    }
    return true;
}

// The numeric of a three-digit command, or -1.
int numericOf(QStringView command)
{
    if (command.size() != 3)
        return -1;
    int value = 0;
    for (const QChar c : command) {
        const char16_t u = c.unicode();
        if (u < u'0' || u > u'9')
            return -1;
        value = value * 10 + (u - u'0');
    }
    return value;
}

// Cuts the (trimmed, non-empty) line into its parts; false when it has a
// prefix but nothing after it.
bool split(QStringView line, Message& msg)
{
    const qsizetype length = line.size();
    qsizetype pos = 0;
    if (line.front() == u':') {
        const qsizetype space = line.indexOf(u' ', 1);
        if (space < 0)
            return false;
        msg.prefix = line.mid(1, space - 1);
        pos = space + 1;
    }
    const qsizetype commandEnd = line.indexOf(u' ', pos);
    if (commandEnd >= 0) {
        msg.command = line.mid(pos, commandEnd - pos);
        pos = commandEnd + 1;
    } else {
        // No parameters: the scan stays put, so the command also reads as
        // the only middle parameter.
        msg.command = line.mid(pos);
    }
    while (pos < length) {
        if (line[pos] == u':') {
            msg.trailing = line.mid(pos + 1);
            break;
        }
        const qsizetype space = line.indexOf(u' ', pos);
        if (space < 0) {
            msg.params.append(line.mid(pos));
            break;
        }
        msg.params.append(line.mid(pos, space - pos));
        pos = space + 1;
    }
    return true;
}

QString withoutLeadingColon(QStringView text)
{
    if (text.startsWith(u':'))
        text = text.mid(1);
    return text.toString();
}

// The sign-on time of a 317 reply as local date-time text, or a null string.
QString signonText(QStringView seconds)
{
    bool ok = false;
    const qlonglong value = seconds.toLongLong(&ok);
    if (!ok)
        return QString();
    const QDateTime when = QDateTime::fromSecsSinceEpoch(value);
    if (!when.isValid())
        return QString();
    return when.toString(Qt::ISODate);
}

// line is the received line; text is the same line trimmed.
void dispatchNumeric(int numeric, const Message& msg, const QString& line, QStringView text, IRCConnection* c)
{
    const qsizetype n = msg.count();
    switch (numeric) {
    case 353:
        if (n > 2) {
            QStringList names;
            for (const QStringView name : msg.trailing.split(u' ', Qt::SkipEmptyParts))
                names.append(name.toString());
            emit c->namesList(msg.param(2), names);
        }
        return;
    case 366:
        emit c->namesListFinished(msg.param(1));
        return;
    case 321:
        c->resetListCounters();
        if (!msg.prefix.isEmpty())
            c->setListServerName(msg.prefix.toString());
        emit c->listStartReceived();
        return;
    case 322:
        if (n > 2) {
            bool ok = false;
            const int users = msg.params[2].toInt(&ok);
            c->addListChannel(ok ? users : 0);
            emit c->listChannelReceived(msg.param(1), msg.param(2), msg.trailing.toString());
        }
        return;
    case 323:
        emit c->listInfoReceived(c->getListServerName(), c->getTotalListChannels(), c->getTotalListUsers());
        emit c->listEndReceived();
        return;
    case 332:
        emit c->topicReceived(msg.param(1), msg.trailing.toString());
        return;
    case 433:
        c->tryNextNick();
        return;
    case 1:
        emit c->serverMessage(QStringLiteral("Connected and registered."));
        c->setRegistered(true);
        emit c->registered();
        return;
    case 311:
        if (n > 4)
            emit c->whoisUserReceived(msg.param(1), msg.param(2), msg.param(3), msg.trailing.toString());
        return;
    case 312:
        if (n > 2)
            emit c->whoisServerReceived(msg.param(1), msg.param(2), msg.trailing.toString());
        return;
    case 313:
        if (n > 1)
            emit c->whoisOperatorReceived(msg.param(1));
        return;
    case 317:
        if (n > 2) {
            QString signon;
            if (n > 3)
                signon = signonText(msg.params[3]);
            if (signon.isNull())
                signon = msg.trailing.toString();
            emit c->whoisIdleReceived(msg.param(1), msg.params[2].toInt(), signon);
        }
        return;
    case 319:
        if (n > 1)
            emit c->whoisChannelsReceived(msg.param(1), msg.trailing.toString());
        return;
    case 318:
        if (n > 1) {
            const QString nick = msg.param(1);
            emit c->whoisEndReceived(nick, nick);
        } else {
            emit c->whoisEndReceived(QStringLiteral("Server"), msg.param(1));
        }
        return;
    case 301:
        if (n > 1)
            emit c->whoisAwayReceived(msg.param(1), msg.trailing.toString());
        return;
    case 600: // logon
    case 604: // now on
        if (n > 1)
            emit c->watchStatus(msg.param(1), true);
        return;
    case 601: // logoff
    case 605: // now off
        if (n > 1)
            emit c->watchStatus(msg.param(1), false);
        return;
    case 602: // stopped watching
    case 606: // watch list
        return;
    default:
        // The whole line, sharing the received text when nothing was trimmed.
        emit c->serverMessage(text.size() == line.size() ? line : text.toString());
        return;
    }
}

} // namespace

void IRCParser::parseLine(const QString& line, IRCConnection* connection)
{
    if (!connection)
        return;
    const QStringView text = QStringView(line).trimmed();
    if (text.isEmpty())
        return;

    if (text.startsWith(QLatin1String("PING"))) {
        QStringView token = text.mid(qMin<qsizetype>(5, text.size())).trimmed();
        if (token.startsWith(u':'))
            token = token.mid(1);
        QString reply = QStringLiteral("PONG :");
        reply.append(token);
        connection->sendRaw(reply);
        return;
    }
    if (text.startsWith(QLatin1String("PONG")))
        return;

    Message msg;
    if (!split(text, msg))
        return;
    const QStringView command = msg.command;
    if (command.isEmpty())
        return;

    const int numeric = numericOf(command);
    if (numeric >= 0) {
        dispatchNumeric(numeric, msg, line, text, connection);
        return;
    }
    const char16_t first = command.front().unicode();
    if (first < u'0' || first > u'9') {
        // Named commands.
        IRCConnection* c = connection;
        if (isCommand(command, QLatin1String("PRIVMSG"))) {
            if (msg.count() >= 1 && !msg.trailing.isEmpty()) {
                const QString nick = msg.nick();
                const QString text = msg.trailing.toString();
                if (msg.params[0].startsWith(u'#'))
                    emit c->privmsgReceived(nick, msg.param(0), text);
                else
                    emit c->privmsgReceived(nick, nick, text);
            }
        } else if (isCommand(command, QLatin1String("JOIN"))) {
            // Many servers send the channel as the trailing parameter.
            const QString channel
                = msg.count() > 0 ? withoutLeadingColon(msg.params[0]) : msg.trailing.toString();
            const QString nick = msg.nick();
            emit c->joinReceived(nick, channel);
            if (nick == c->currentNick() && !channel.isEmpty())
                c->sendRaw(QStringLiteral("NAMES ") + channel);
        } else if (isCommand(command, QLatin1String("PART"))) {
            if (msg.count() > 0)
                emit c->partReceived(msg.nick(), msg.param(0), msg.trailing.toString());
            else
                emit c->partReceived(msg.nick(), msg.trailing.toString(), QString());
        } else if (isCommand(command, QLatin1String("QUIT"))) {
            emit c->quitReceived(msg.nick(), msg.trailing.toString());
        } else if (isCommand(command, QLatin1String("KICK"))) {
            emit c->kickReceived(msg.param(0), msg.param(1), msg.nick(), msg.trailing.toString());
        } else if (isCommand(command, QLatin1String("NICK"))) {
            const QStringView newNick
                = msg.trailing.isEmpty() ? msg.value(0).trimmed() : msg.trailing.trimmed();
            emit c->nickChanged(msg.nick(), withoutLeadingColon(newNick));
        }
        return;
    }
    // Any other command that starts with a digit.
    emit connection->serverMessage(text.size() == line.size() ? line : text.toString());
}
