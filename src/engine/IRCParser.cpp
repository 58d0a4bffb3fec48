#include "IRCParser.h"

#include <QDateTime>
#include <QVarLengthArray>

namespace {

// A line cut into views of itself; nothing is copied until the message
// needs it.
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
        // No parameters.
        msg.command = line.mid(pos);
        pos = length;
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

using Kind = IrcMessage::Kind;

// The server's time of a message from its tags ("time=2026-11-25T20:00:00.000Z;..."),
// in milliseconds since the epoch, or 0.
qint64 tagTime(QStringView tags)
{
    for (const QStringView tag : tags.split(u';')) {
        if (!tag.startsWith(QLatin1String("time=")))
            continue;
        const QDateTime when = QDateTime::fromString(tag.mid(5).toString(), Qt::ISODateWithMs);
        return when.isValid() ? when.toMSecsSinceEpoch() : 0;
    }
    return 0;
}

// A message text wrapped in \x01 is a CTCP: fills the command (upper case)
// and its parameters; false for ordinary text.
bool readCtcp(QStringView text, IrcMessage& m)
{
    if (text.size() < 2 || text.front() != u'\x01')
        return false;
    text = text.mid(1);
    if (text.endsWith(u'\x01'))
        text.chop(1);
    const qsizetype space = text.indexOf(u' ');
    const QString command = (space < 0 ? text : text.left(space)).toString().toUpper();
    if (command.isEmpty())
        return false;
    m.args.append(command);
    m.text = space < 0 ? QString() : text.mid(space + 1).toString();
    return true;
}

// line is the received line; text is the same line trimmed.
void parseNumeric(int numeric, const Message& msg, const QString& line, QStringView text, IrcMessage& m)
{
    const qsizetype n = msg.count();
    switch (numeric) {
    case 353:
        if (n > 2) {
            m.kind = Kind::Names;
            m.target = msg.param(2);
            const QList<QStringView> names = msg.trailing.split(u' ', Qt::SkipEmptyParts);
            m.args.reserve(names.size());
            for (const QStringView name : names) {
                // userhost-in-names: "@nick!user@host" (a rank symbol may be "!" too).
                const qsizetype bang = name.lastIndexOf(u'!');
                const bool userHost = bang > 0 && name.indexOf(u'@', bang) > bang;
                m.args.append((userHost ? name.left(bang) : name).toString());
            }
        }
        return;
    case 366:
        m.kind = Kind::NamesEnd;
        m.target = msg.param(1);
        return;
    case 321:
        m.kind = Kind::ListStart;
        m.source = msg.prefix.toString();
        return;
    case 322:
        if (n > 2) {
            bool ok = false;
            const int users = msg.params[2].toInt(&ok);
            m.kind = Kind::ListChannel;
            m.number = ok ? users : 0;
            m.target = msg.param(1);
            m.args.append(msg.param(2));
            m.text = msg.trailing.toString();
        }
        return;
    case 323:
        m.kind = Kind::ListEnd;
        return;
    case 332:
        m.kind = Kind::Topic;
        m.target = msg.param(1);
        m.text = msg.trailing.toString();
        return;
    case 432: // erroneous nickname
    case 433: // nickname in use
        m.kind = Kind::NickInUse;
        m.number = numeric;
        m.target = msg.param(1);
        m.text = msg.trailing.toString();
        return;
    case 1:
        m.kind = Kind::Welcome;
        m.target = msg.param(0);
        return;
    case 5:
        m.kind = Kind::Isupport;
        for (qsizetype i = 1; i < n; ++i)
            m.args.append(msg.param(i));
        m.text = text.size() == line.size() ? line : text.toString();
        return;
    case 902: // nick locked
    case 903: // success
    case 904: // failed
    case 905: // too long
    case 906: // aborted
    case 907: // already authenticated
        m.kind = Kind::Sasl;
        m.number = numeric;
        m.text = msg.trailing.toString();
        return;
    case 730:
    case 731: {
        // "nick!user@host,nick2!user@host" (730) or "nick,nick2" (731).
        m.kind = numeric == 730 ? Kind::MonitorOnline : Kind::MonitorOffline;
        const QStringView list = msg.trailing.isEmpty() ? msg.value(1) : msg.trailing;
        for (const QStringView entry : list.split(u',', Qt::SkipEmptyParts)) {
            const qsizetype bang = entry.indexOf(u'!');
            m.args.append((bang < 0 ? entry : entry.left(bang)).trimmed().toString());
        }
        return;
    }
    case 311:
        if (n > 4) {
            m.kind = Kind::WhoisUser;
            m.target = msg.param(1);
            m.args.append(msg.param(2));
            m.args.append(msg.param(3));
            m.text = msg.trailing.toString();
        }
        return;
    case 312:
        if (n > 2) {
            m.kind = Kind::WhoisServer;
            m.target = msg.param(1);
            m.args.append(msg.param(2));
            m.text = msg.trailing.toString();
        }
        return;
    case 313:
        if (n > 1) {
            m.kind = Kind::WhoisOperator;
            m.target = msg.param(1);
        }
        return;
    case 317:
        if (n > 2) {
            m.kind = Kind::WhoisIdle;
            m.target = msg.param(1);
            m.number = msg.params[2].toInt();
            if (n > 3)
                m.text = signonText(msg.params[3]);
            if (m.text.isNull())
                m.text = msg.trailing.toString();
        }
        return;
    case 319:
        if (n > 1) {
            m.kind = Kind::WhoisChannels;
            m.target = msg.param(1);
            m.text = msg.trailing.toString();
        }
        return;
    case 318:
        // Without a nick the target stays null: the end goes to the server tab.
        m.kind = Kind::WhoisEnd;
        if (n > 1)
            m.target = msg.param(1);
        return;
    case 301:
        if (n > 1) {
            m.kind = Kind::WhoisAway;
            m.target = msg.param(1);
            m.text = msg.trailing.toString();
        }
        return;
    case 600: // logon
    case 604: // now on
        if (n > 1) {
            m.kind = Kind::WatchOnline;
            m.target = msg.param(1);
        }
        return;
    case 601: // logoff
    case 605: // now off
        if (n > 1) {
            m.kind = Kind::WatchOffline;
            m.target = msg.param(1);
        }
        return;
    case 602: // stopped watching
    case 606: // watch list
        return;
    default:
        if (numeric >= 400 && numeric < 600 && n > 1) {
            // An error about a nick, a channel or a command.
            m.kind = Kind::ErrorReply;
            m.number = numeric;
            for (qsizetype i = 1; i < n; ++i)
                m.args.append(msg.param(i));
            m.text = msg.trailing.toString();
            return;
        }
        // The whole line, sharing the received text when nothing was trimmed.
        m.kind = Kind::ServerText;
        m.number = numeric;
        m.text = text.size() == line.size() ? line : text.toString();
        return;
    }
}

} // namespace

IrcMessage IRCParser::parse(const QString& line)
{
    IrcMessage m;
    QStringView text = QStringView(line).trimmed();
    if (text.startsWith(u'@')) {
        const qsizetype space = text.indexOf(u' ');
        if (space < 0)
            return m;
        m.time = tagTime(text.mid(1, space - 1));
        text = text.mid(space + 1).trimmed();
    }
    if (text.isEmpty())
        return m;

    if (text.startsWith(QLatin1String("PING"))) {
        QStringView token = text.mid(qMin<qsizetype>(5, text.size())).trimmed();
        if (token.startsWith(u':'))
            token = token.mid(1);
        m.kind = Kind::Ping;
        m.text = token.toString();
        return m;
    }
    if (text.startsWith(QLatin1String("PONG"))) {
        m.kind = Kind::Pong;
        return m;
    }

    Message msg;
    if (!split(text, msg))
        return m;
    const QStringView command = msg.command;
    if (command.isEmpty())
        return m;

    const int numeric = numericOf(command);
    if (numeric >= 0) {
        parseNumeric(numeric, msg, line, text, m);
        return m;
    }
    const char16_t first = command.front().unicode();
    if (first < u'0' || first > u'9') {
        // Named commands; those not listed here stay Ignored.
        // A command without the parameters it needs stays Ignored.
        if (isCommand(command, QLatin1String("PRIVMSG"))) {
            if (msg.count() >= 1 && !msg.trailing.isEmpty()) {
                m.source = msg.nick();
                m.target = msg.param(0);
                if (readCtcp(msg.trailing, m)) {
                    m.kind = Kind::Ctcp;
                } else {
                    m.kind = Kind::Privmsg;
                    m.text = msg.trailing.toString();
                }
            }
        } else if (isCommand(command, QLatin1String("NOTICE"))) {
            if (msg.count() >= 1) {
                m.source = msg.prefix.isEmpty() ? QString() : msg.nick();
                m.target = msg.param(0);
                const qsizetype bang = msg.prefix.indexOf(u'!');
                if (bang >= 0 && readCtcp(msg.trailing, m)) {
                    m.kind = Kind::CtcpReply;
                    return m;
                }
                m.kind = Kind::Notice;
                m.text = msg.trailing.toString();
                if (bang >= 0)
                    m.args.append(msg.prefix.mid(bang + 1).toString());
            }
        } else if (isCommand(command, QLatin1String("JOIN"))) {
            // Many servers send the channel as the trailing parameter.
            const QString channel
                = msg.count() > 0 ? withoutLeadingColon(msg.params[0]) : msg.trailing.toString();
            if (!channel.isEmpty()) {
                m.kind = Kind::Join;
                m.source = msg.nick();
                m.target = channel;
                const qsizetype bang = msg.prefix.indexOf(u'!');
                if (bang >= 0)
                    m.text = msg.prefix.mid(bang + 1).toString();
            }
        } else if (isCommand(command, QLatin1String("PART"))) {
            if (msg.count() == 0 && msg.trailing.isEmpty())
                return m;
            m.kind = Kind::Part;
            m.source = msg.nick();
            if (msg.count() > 0) {
                m.target = msg.param(0);
                m.text = msg.trailing.toString();
            } else {
                m.target = msg.trailing.toString();
            }
        } else if (isCommand(command, QLatin1String("QUIT"))) {
            m.kind = Kind::Quit;
            m.source = msg.nick();
            m.text = msg.trailing.toString();
        } else if (isCommand(command, QLatin1String("KICK"))) {
            if (msg.count() < 2)
                return m;
            m.kind = Kind::Kick;
            m.source = msg.nick();
            m.target = msg.param(0);
            m.args.append(msg.param(1));
            m.text = msg.trailing.toString();
        } else if (isCommand(command, QLatin1String("CAP"))) {
            // CAP <nick> <sub> [*] [:caps]
            if (msg.count() < 2)
                return m;
            m.kind = Kind::Cap;
            m.target = msg.param(1).toUpper();
            m.number = msg.count() > 2 && msg.params[2] == u'*' ? 1 : 0;
            QStringView caps = msg.trailing;
            if (caps.isEmpty() && msg.count() > 2 && msg.params.back() != u'*')
                caps = msg.params.back();
            for (const QStringView cap : caps.split(u' ', Qt::SkipEmptyParts))
                m.args.append(cap.toString());
        } else if (isCommand(command, QLatin1String("ERROR"))) {
            m.kind = Kind::Error;
            m.text = msg.trailing.isEmpty() ? msg.param(0) : msg.trailing.toString();
        } else if (isCommand(command, QLatin1String("AUTHENTICATE"))) {
            m.kind = Kind::Authenticate;
            m.text = msg.count() > 0 ? msg.param(0) : msg.trailing.toString();
        } else if (isCommand(command, QLatin1String("TOPIC"))) {
            if (msg.count() < 1)
                return m;
            m.kind = Kind::TopicChange;
            m.source = msg.nick();
            m.target = msg.param(0);
            m.text = msg.trailing.toString();
        } else if (isCommand(command, QLatin1String("MODE"))) {
            if (msg.count() < 1 || (msg.count() < 2 && msg.trailing.isEmpty()))
                return m;
            m.kind = Kind::Mode;
            m.source = msg.nick();
            m.target = msg.param(0);
            for (qsizetype i = 1; i < msg.count(); ++i)
                m.args.append(msg.param(i));
            if (!msg.trailing.isEmpty())
                m.args.append(msg.trailing.toString());
        } else if (isCommand(command, QLatin1String("INVITE"))) {
            const QString channel = msg.count() > 1 ? msg.param(1) : msg.trailing.toString();
            if (msg.count() < 1 || channel.isEmpty())
                return m;
            m.kind = Kind::Invite;
            m.source = msg.nick();
            m.target = msg.param(0);
            m.text = channel;
        } else if (isCommand(command, QLatin1String("AWAY"))) {
            m.kind = Kind::Away;
            m.source = msg.nick();
            if (!msg.trailing.isEmpty() || msg.count() > 0)
                m.text = msg.trailing.isEmpty() ? msg.param(0) : msg.trailing.toString();
        } else if (isCommand(command, QLatin1String("ACCOUNT"))) {
            const QString account = msg.count() > 0 ? msg.param(0) : msg.trailing.toString();
            if (account.isEmpty())
                return m;
            m.kind = Kind::Account;
            m.source = msg.nick();
            m.target = account;
        } else if (isCommand(command, QLatin1String("CHGHOST"))) {
            const QString host = msg.count() > 1 ? msg.param(1) : msg.trailing.toString();
            if (msg.count() < 1 || host.isEmpty())
                return m;
            m.kind = Kind::Chghost;
            m.source = msg.nick();
            m.args = QStringList { msg.param(0), host };
        } else if (isCommand(command, QLatin1String("NICK"))) {
            const QStringView newNick
                = msg.trailing.isEmpty() ? msg.value(0).trimmed() : msg.trailing.trimmed();
            const QString nick = withoutLeadingColon(newNick);
            if (!nick.isEmpty()) {
                m.kind = Kind::Nick;
                m.source = msg.nick();
                m.target = nick;
            }
        }
        return m;
    }
    // Any other command that starts with a digit.
    m.kind = Kind::ServerText;
    m.text = text.size() == line.size() ? line : text.toString();
    return m;
}
