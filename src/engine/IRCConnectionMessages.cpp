// IRCConnection: what a received message makes the connection do (its
// signals, capability negotiation, SASL, ISUPPORT, automatic answers).

#include "IRCConnection.h"

#include "IRCParser.h"

#include <QDateTime>

#include <iterator>

namespace {

// How often one sender gets an automatic CTCP answer at most.
constexpr qint64 CtcpAnswerGapMs = 2000;
const QString ClientVersion = QStringLiteral("Quenvar 2.0");
// The capabilities Quenvar asks for when a server offers them ("sasl" only
// when the server record logs in with it).
const QStringList WantedCaps = { QStringLiteral("multi-prefix"), QStringLiteral("server-time"),
    QStringLiteral("away-notify"), QStringLiteral("account-notify"), QStringLiteral("extended-join"),
    QStringLiteral("chghost"), QStringLiteral("invite-notify"), QStringLiteral("cap-notify"),
    QStringLiteral("message-tags"), QStringLiteral("userhost-in-names") };
const QString SaslCap = QStringLiteral("sasl");

} // namespace

void IRCConnection::handleCap(const IrcMessage& m)
{
    const QString& sub = m.target;
    if (sub == QLatin1String("LS") || sub == QLatin1String("NEW")) {
        QStringList names;
        for (const QString& cap : m.args) {
            const qsizetype eq = cap.indexOf(QLatin1Char('='));
            const QString name = eq < 0 ? cap : cap.left(eq);
            if (name == SaslCap)
                m_saslMechanisms = eq < 0 ? QString() : cap.mid(eq + 1);
            names.append(name);
        }
        if (sub == QLatin1String("LS")) {
            m_offeredCaps += names;
            if (m.number == 1) // more lines follow
                return;
            names = m_offeredCaps;
        }
        requestCaps(names);
    } else if (sub == QLatin1String("ACK")) {
        bool sasl = false;
        for (QString cap : m.args) {
            if (cap.startsWith(QLatin1Char('-'))) {
                m_enabledCaps.removeAll(cap.mid(1));
                continue;
            }
            if (!m_enabledCaps.contains(cap))
                m_enabledCaps.append(cap);
            sasl = sasl || cap == SaslCap;
        }
        if (sasl && m_capNegotiating && !m_saslRunning) {
            m_saslRunning = true;
            writeLine(QStringLiteral("AUTHENTICATE PLAIN"));
        } else if (!m_saslRunning) {
            endCapNegotiation();
        }
    } else if (sub == QLatin1String("NAK")) {
        endCapNegotiation();
    } else if (sub == QLatin1String("DEL")) {
        for (const QString& cap : m.args)
            m_enabledCaps.removeAll(cap);
    }
}

void IRCConnection::requestCaps(const QStringList& offered)
{
    QStringList wanted;
    for (const QString& cap : WantedCaps) {
        if (offered.contains(cap) && !m_enabledCaps.contains(cap))
            wanted.append(cap);
    }
    const bool saslOffered = offered.contains(SaslCap)
        && (m_saslMechanisms.isEmpty() || m_saslMechanisms.split(QLatin1Char(',')).contains(QLatin1String("PLAIN")));
    if (m_capNegotiating && saslOffered && m_serverConfig.authMethod == QLatin1String("SASL PLAIN")
        && !m_serverConfig.password.isEmpty())
        wanted.append(SaslCap);
    if (!wanted.isEmpty())
        writeLine(QStringLiteral("CAP REQ :") + wanted.join(QLatin1Char(' ')));
    else
        endCapNegotiation();
}

void IRCConnection::endCapNegotiation()
{
    if (!m_capNegotiating)
        return;
    m_capNegotiating = false;
    m_saslRunning = false;
    writeLine(QStringLiteral("CAP END"));
}

void IRCConnection::applyIsupport(const QStringList& tokens)
{
    for (const QString& token : tokens) {
        const qsizetype eq = token.indexOf(QLatin1Char('='));
        const bool removed = token.startsWith(QLatin1Char('-'));
        const QString key = (eq < 0 ? token : token.left(eq)).mid(removed ? 1 : 0).toUpper();
        const QString value = eq < 0 ? QString() : token.mid(eq + 1);
        const ServerSupport defaults;
        if (key == QLatin1String("PREFIX")) {
            // "(ohv)@%+": modes and their symbols, highest first.
            const qsizetype close = value.indexOf(QLatin1Char(')'));
            const QString modes = value.mid(1, close - 1);
            const QString symbols = value.mid(close + 1);
            if (!removed && value.startsWith(QLatin1Char('(')) && close > 0 && modes.size() == symbols.size()) {
                m_support.prefixModes = modes;
                m_support.prefixSymbols = symbols;
            } else if (removed) {
                m_support.prefixModes = defaults.prefixModes;
                m_support.prefixSymbols = defaults.prefixSymbols;
            }
        } else if (key == QLatin1String("CHANMODES")) {
            const QStringList groups = value.split(QLatin1Char(','));
            m_support.chanModes = removed || groups.size() < 4 ? defaults.chanModes : groups.mid(0, 4);
        } else if (key == QLatin1String("CHANTYPES")) {
            m_support.chanTypes = removed ? defaults.chanTypes : value;
        } else if (key == QLatin1String("STATUSMSG")) {
            m_support.statusMsg = removed ? QString() : value;
        } else if (key == QLatin1String("NETWORK")) {
            m_support.network = removed ? QString() : value;
        } else if (key == QLatin1String("CASEMAPPING")) {
            m_support.caseMapping = removed || value.isEmpty() ? defaults.caseMapping : value.toLower();
        } else if (key == QLatin1String("NICKLEN")) {
            m_support.nickLen = removed ? 0 : qMax(0, value.toInt());
        } else if (key == QLatin1String("LINELEN")) {
            const int length = value.toInt();
            m_support.lineLen = removed || length < 512 ? defaults.lineLen : qMin(length, 8191);
        } else if (key == QLatin1String("WATCH")) {
            m_support.watch = !removed;
        } else if (key == QLatin1String("MONITOR")) {
            m_support.monitor = !removed;
        }
    }
    emit serverSupportChanged();
}

void IRCConnection::answerCtcp(const QString& from, const QString& command, const QString& args)
{
    QString reply;
    if (command == QLatin1String("VERSION"))
        reply = ClientVersion;
    else if (command == QLatin1String("PING"))
        reply = args;
    else if (command == QLatin1String("TIME"))
        reply = QDateTime::currentDateTime().toString(Qt::RFC2822Date);
    else if (command == QLatin1String("CLIENTINFO"))
        reply = QStringLiteral("ACTION CLIENTINFO PING TIME VERSION");
    else
        return;
    // At most one answer per sender every two seconds, so nobody can make
    // us flood ourselves off the server.
    const qint64 current = m_steadyClock.elapsed();
    const QString key = foldCase(from);
    const auto last = m_ctcpAnswered.constFind(key);
    if (last != m_ctcpAnswered.cend() && current - *last < CtcpAnswerGapMs)
        return;
    if (m_ctcpAnswered.size() > 1000) {
        for (auto it = m_ctcpAnswered.begin(); it != m_ctcpAnswered.end();)
            it = current - *it >= CtcpAnswerGapMs ? m_ctcpAnswered.erase(it) : std::next(it);
    }
    m_ctcpAnswered.insert(key, current);
    sendRaw(QStringLiteral("NOTICE %1 :\x01%2 %3\x01").arg(from, command, reply));
}

void IRCConnection::handleMessage(const IrcMessage& m)
{
    using Kind = IrcMessage::Kind;
    switch (m.kind) {
    case Kind::Ignored:
    case Kind::Pong:
        return;
    case Kind::Error:
        emit errorOccurred(m.text);
        return;
    case Kind::Ping:
        writeLine(QStringLiteral("PONG :") + m.text);
        return;
    case Kind::Privmsg: {
        // A message to us belongs to its sender's conversation.
        const QString target = messageTarget(m.target);
        emit privmsgReceived(m.source, isChannelName(target) ? target : m.source, m.text);
        return;
    }
    case Kind::Notice:
        emit noticeReceived(m.source, messageTarget(m.target), m.text, !m.args.isEmpty());
        return;
    case Kind::Ctcp: {
        const QString target = messageTarget(m.target);
        const QString& command = m.args.constFirst();
        if (command == QLatin1String("ACTION")) {
            emit actionReceived(m.source, isChannelName(target) ? target : m.source, m.text);
            return;
        }
        emit ctcpRequestReceived(m.source, target, command, m.text);
        answerCtcp(m.source, command, m.text);
        return;
    }
    case Kind::CtcpReply:
        emit ctcpReplyReceived(m.source, m.args.constFirst(), m.text);
        return;
    case Kind::Cap:
        handleCap(m);
        return;
    case Kind::Authenticate:
        if (m_saslRunning && m.text == QLatin1String("+")) {
            // PLAIN: authzid NUL authcid NUL password, base64 in pieces of 400.
            const QByteArray account = loginAccount().toUtf8();
            const QByteArray plain
                = (account + '\0' + account + '\0' + m_serverConfig.password.toUtf8()).toBase64();
            for (qsizetype at = 0; at < plain.size(); at += 400)
                writeLine(QStringLiteral("AUTHENTICATE ") + QString::fromLatin1(plain.mid(at, 400)));
            if (plain.size() % 400 == 0)
                writeLine(QStringLiteral("AUTHENTICATE +"));
        }
        return;
    case Kind::Sasl:
        if (m.number != 907)
            emit saslFinished(m.number == 903, m.text);
        endCapNegotiation();
        return;
    case Kind::Isupport:
        applyIsupport(m.args);
        emit serverMessage(m.text);
        return;
    case Kind::TopicChange:
        emit topicChanged(m.source, m.target, m.text);
        return;
    case Kind::Mode:
        emit modeReceived(m.source, m.target, m.args);
        return;
    case Kind::Invite:
        emit inviteReceived(m.source, m.target, m.text);
        return;
    case Kind::Away:
        emit userAwayChanged(m.source, m.text);
        return;
    case Kind::Account:
        emit accountChanged(m.source, m.target);
        return;
    case Kind::Chghost:
        if (m.source == currentNick())
            m_userHost = m.args.at(0) + QLatin1Char('@') + m.args.at(1);
        emit hostChanged(m.source, m.args.at(0), m.args.at(1));
        return;
    case Kind::ErrorReply: {
        QString subject = m.args.value(0);
        for (const QString& arg : m.args) {
            if (isChannelName(arg)) {
                subject = arg;
                break;
            }
        }
        emit errorReplyReceived(m.number, subject, m.text);
        return;
    }
    case Kind::MonitorOnline:
    case Kind::MonitorOffline:
        for (const QString& nick : m.args)
            emit watchStatus(nick, m.kind == Kind::MonitorOnline);
        return;
    case Kind::Join:
        if (m.source == currentNick() && !m.text.isEmpty())
            m_userHost = m.text;
        emit joinReceived(m.source, m.target);
        if (m.source == currentNick() && !m.target.isEmpty())
            sendRaw(QStringLiteral("NAMES ") + m.target);
        return;
    case Kind::Part:
        emit partReceived(m.source, m.target, m.text);
        return;
    case Kind::Quit:
        emit quitReceived(m.source, m.text);
        return;
    case Kind::Kick:
        emit kickReceived(m.target, m.args.value(0), m.source, m.text);
        return;
    case Kind::Nick:
        emit nickChanged(m.source, m.target);
        return;
    case Kind::Names:
        emit namesList(m.target, m.args);
        return;
    case Kind::NamesEnd:
        emit namesListFinished(m.target);
        return;
    case Kind::ListStart:
        resetListCounters();
        if (!m.source.isEmpty())
            setListServerName(m.source);
        emit listStartReceived();
        return;
    case Kind::ListChannel:
        addListChannel(m.number);
        emit listChannelReceived(m.target, m.args.value(0), m.text);
        return;
    case Kind::ListEnd:
        emit listInfoReceived(getListServerName(), getTotalListChannels(), getTotalListUsers());
        emit listEndReceived();
        return;
    case Kind::Topic:
        emit topicReceived(m.target, m.text);
        return;
    case Kind::NickInUse:
        // While registering, the next candidate; afterwards the nick stays.
        if (m_registered)
            emit nickRejected(m.target, m.number, m.text);
        else
            tryNextNick();
        return;
    case Kind::Welcome: {
        m_capNegotiating = false;
        m_saslRunning = false;
        if (!m.target.isEmpty() && m.target != nickName && m.target != QLatin1String("*")) {
            // The server registered us under another form of the nick (cut to its length, say).
            nickName = m.target;
            emit ownNickChanged(nickName);
        }
        emit serverMessage(QStringLiteral("Connected and registered."));
        setRegistered(true);
        m_sendTokens = m_pacing.burst;
        m_tokensAt = m_steadyClock.elapsed();
        const QString method = m_serverConfig.authMethod;
        if (method.startsWith(QLatin1String("NickServ")) && !m_serverConfig.password.isEmpty())
            sendRaw(QStringLiteral("PRIVMSG NickServ :IDENTIFY %1 %2").arg(loginAccount(), m_serverConfig.password));
        emit registered();
        return;
    }
    case Kind::WhoisUser:
        emit whoisUserReceived(m.target, m.args.value(0), m.args.value(1), m.text);
        return;
    case Kind::WhoisServer:
        emit whoisServerReceived(m.target, m.args.value(0), m.text);
        return;
    case Kind::WhoisOperator:
        emit whoisOperatorReceived(m.target);
        return;
    case Kind::WhoisIdle:
        emit whoisIdleReceived(m.target, m.number, m.text);
        return;
    case Kind::WhoisChannels:
        emit whoisChannelsReceived(m.target, m.text);
        return;
    case Kind::WhoisEnd:
        if (m.target.isNull())
            emit whoisEndReceived(QStringLiteral("Server"), m.target);
        else
            emit whoisEndReceived(m.target, m.target);
        return;
    case Kind::WhoisAway:
        emit whoisAwayReceived(m.target, m.text);
        return;
    case Kind::WatchOnline:
        emit watchStatus(m.target, true);
        return;
    case Kind::WatchOffline:
        emit watchStatus(m.target, false);
        return;
    case Kind::ServerText:
        emit serverMessage(m.text);
        return;
    }
}
