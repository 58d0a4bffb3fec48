// Session: what the server says, turned into buffer rows, members, topics and state.

#include "Session.h"

#include "IRCConnection.h"
#include "MemberList.h"
#include "SessionLog.h"

#include <QDateTime>
#include <QSettings>

namespace {

// Parameters as a person reads them: without the ":" that marks the last one.
QString withoutTrailingMark(QString parameters)
{
    if (parameters.startsWith(QLatin1Char(':')))
        return parameters.mid(1);
    const qsizetype space = parameters.indexOf(QLatin1String(" :"));
    if (space >= 0)
        parameters.remove(space + 1, 1);
    return parameters;
}

// How a channel mode change reads in a row ("gives channel operator status to bob").
QString describeMode(bool adding, QChar mode, const QString& parameter, qsizetype rank, const QString& prefixModes)
{
    static const QHash<QChar, QString> ranks { { u'q', QStringLiteral("channel owner status") },
        { u'a', QStringLiteral("channel admin status") }, { u'o', QStringLiteral("channel operator status") },
        { u'h', QStringLiteral("half-operator status") }, { u'v', QStringLiteral("voice") } };
    if (rank >= 0) {
        const QString what = ranks.value(mode, QStringLiteral("mode %1").arg(prefixModes.at(rank)));
        return adding ? QStringLiteral("gives %1 to %2").arg(what, parameter)
                      : QStringLiteral("removes %1 from %2").arg(what, parameter);
    }
    switch (mode.unicode()) {
    case 'b':
        return adding ? QStringLiteral("sets a ban on %1").arg(parameter)
                      : QStringLiteral("removes the ban on %1").arg(parameter);
    case 'k':
        return adding ? QStringLiteral("sets the channel key") : QStringLiteral("removes the channel key");
    case 'l':
        return adding ? QStringLiteral("sets the user limit to %1").arg(parameter)
                      : QStringLiteral("removes the user limit");
    default:
        return QStringLiteral("sets mode %1%2%3")
            .arg(adding ? QStringLiteral("+") : QStringLiteral("-"), QString(mode),
                parameter.isEmpty() ? QString() : QLatin1Char(' ') + parameter);
    }
}

} // namespace

void Session::onConnected()
{
    addLine(ServerBuffer, QStringLiteral("*** Connected to server."));
    emit stateChanged();
}

void Session::onRegistered()
{
    if (!m_serverId.isEmpty()) {
        QSettings settings;
        const QStringList stored
            = settings.value(QStringLiteral("servers/") + m_serverId + QStringLiteral("/autojoin")).toStringList();
        if (!stored.isEmpty()) {
            m_autojoin = stored;
            ServerConfig config = m_connection->serverConfig();
            config.autojoinChannels = stored;
            m_connection->setServerConfig(config);
        }
    }
    // Back after a drop: every conversation is told, and the channels whose
    // buffers are open are joined again with the autojoin list.
    QStringList channels = m_autojoin;
    QSet<QString> autojoined;
    for (const QString& channel : std::as_const(channels))
        autojoined.insert(m_connection->foldCase(channel));
    if (m_rejoinOnRegistration) {
        m_rejoinOnRegistration = false;
        m_reconnectAttempt = 0;
        for (auto it = m_buffers.cbegin(); it != m_buffers.cend(); ++it) {
            if (typeOf(it.key()) == BufferType::Channel && !autojoined.contains(m_connection->foldCase(it.key())))
                channels.append(it.key());
        }
        const QStringList open = m_buffers.keys();
        for (const QString& buffer : open) {
            if (buffer != ListPage)
                addLine(buffer, QStringLiteral("*** Reconnected"));
        }
    }
    // Joined a few to a line, so that a long list does not wait for the send
    // pace channel by channel; channels with a key first, keys in their order.
    QStringList batch;
    QStringList keys;
    int batchBytes = 0;
    const auto joinBatch = [this, &batch, &keys, &batchBytes] {
        if (!batch.isEmpty())
            m_connection->joinChannel(batch.join(QLatin1Char(',')) + (keys.isEmpty() ? QString() : QLatin1Char(' ') + keys.join(QLatin1Char(','))));
        batch.clear();
        keys.clear();
        batchBytes = 0;
    };
    std::stable_partition(channels.begin(), channels.end(),
        [this](const QString& channel) { return m_channelKeys.contains(m_connection->foldCase(channel)); });
    for (const QString& channel : std::as_const(channels)) {
        if (typeOf(channel) != BufferType::Channel)
            continue;
        const QString key = m_channelKeys.value(m_connection->foldCase(channel));
        const int bytes = int(channel.toUtf8().size() + key.toUtf8().size()) + 2;
        if (batchBytes + bytes > 400)
            joinBatch();
        batch.append(channel);
        if (!key.isEmpty())
            keys.append(key);
        batchBytes += bytes;
        addLine(ServerBuffer,
            autojoined.contains(m_connection->foldCase(channel)) ? QStringLiteral("*** Autojoining %1").arg(channel)
                                                                 : QStringLiteral("*** Rejoining %1").arg(channel));
    }
    joinBatch();
    emit stateChanged();
}

void Session::onDisconnected()
{
    addLine(ServerBuffer, QStringLiteral("*** Disconnected."));
    const bool wasAway = m_away;
    m_away = false;
    m_awayMessage.clear();
    m_pendingNick.clear();
    m_watched.clear();
    m_inList = false;
    m_leaving.clear();
    const QSet<QString> joined = m_joined;
    for (auto it = m_buffers.cbegin(); it != m_buffers.cend(); ++it) {
        if (joined.contains(m_connection->foldCase(it.key())))
            setJoined(it.key(), false);
    }
    m_joined.clear();
    emit stateChanged();
    emit disconnected();
    if (wasAway)
        emit awayChanged(false);
    if (!m_userDisconnected)
        scheduleReconnect();
}

// A server reply as a person reads it: what follows our nick, without the
// protocol's colon ("Your host is irc.test", "#chat alice 1795499717").
void Session::onServerText(const QString& line)
{
    if (m_inList)
        return;
    QStringView text(line);
    if (!text.startsWith(u':')) {
        addLine(ServerBuffer, line);
        return;
    }
    // ":server NNN nick params :trailing"
    const QList<QStringView> words = text.split(u' ');
    if (words.size() < 3) {
        addLine(ServerBuffer, line);
        return;
    }
    qsizetype at = words.at(0).size() + 1 + words.at(1).size() + 1 + words.at(2).size() + 1;
    const QString readable = withoutTrailingMark(at < text.size() ? text.mid(at).toString() : QString());
    if (words.at(1) == u"333") {
        // Who set a channel's topic, and when: in the channel's buffer.
        const QStringList parts = readable.split(QLatin1Char(' '));
        const QString channel = findBuffer(parts.value(0));
        if (!channel.isEmpty() && parts.size() >= 3) {
            const QString who = parts.at(1).section(QLatin1Char('!'), 0, 0);
            const QDateTime when = QDateTime::fromSecsSinceEpoch(parts.at(2).toLongLong());
            addLine(channel, QStringLiteral("*** Topic set by %1 on %2").arg(who, when.toString(Qt::TextDate)));
            return;
        }
    }
    if (!readable.trimmed().isEmpty())
        addLine(ServerBuffer, readable);
}

// Anything else the server says, once, without the protocol's punctuation.
void Session::onUnhandledLine(const QString& line)
{
    if (m_inList)
        return;
    QString text = line;
    QString source;
    if (text.startsWith(QLatin1Char(':'))) {
        source = text.mid(1).section(QLatin1Char(' '), 0, 0).section(QLatin1Char('!'), 0, 0);
        text = text.section(QLatin1Char(' '), 1);
    }
    text = withoutTrailingMark(text);
    addLine(ServerBuffer, source.isEmpty() ? text : QStringLiteral("[%1] %2").arg(source, text));
}

bool Session::isJoined(const QString& channel) const
{
    return m_joined.contains(m_connection->foldCase(channel));
}

bool Session::isLeaving(const QString& channel) const
{
    return m_leaving.contains(m_connection->foldCase(channel));
}

void Session::setJoined(const QString& channel, bool joined)
{
    const QString folded = m_connection->foldCase(channel);
    if (joined ? !m_joined.contains(folded) : m_joined.remove(folded)) {
        if (joined)
            m_joined.insert(folded);
        emit joinedChanged(channel, joined);
    }
}

bool Session::inQueryBurst()
{
    const qint64 since = m_clock.elapsed() - QueryBurstWindowMs;
    while (!m_queryOpenings.isEmpty() && m_queryOpenings.first() < since)
        m_queryOpenings.removeFirst();
    const bool burst = m_queryOpenings.size() >= QueryBurstLimit;
    if (!burst)
        m_burstNoted = false;
    return burst;
}

void Session::onPrivmsg(const QString& from, const QString& target, const QString& text)
{
    // The connection gives a private message its sender as the target.
    const bool channel = typeOf(target) == BufferType::Channel;
    QString buffer = channel ? target : findQuery(from);
    if (buffer.isEmpty())
        buffer = from;
    // A flood of new senders opens no more conversations than a person can
    // follow: their first messages are listed in the server buffer instead.
    if (typeOf(buffer) == BufferType::Query && !m_buffers.contains(buffer) && inQueryBurst()) {
        if (!m_burstNoted) {
            m_burstNoted = true;
            addLine(ServerBuffer,
                QStringLiteral("*** Many new private conversations at once: messages from further new senders "
                               "are shown here until it calms down."));
        }
        addLine(ServerBuffer, QStringLiteral("<%1> %2").arg(from, text));
        return;
    }
    addLine(buffer, text, from);
}

void Session::onJoin(const QString& nick, const QString& channel)
{
    if (isOwnNick(nick)) {
        // The echo of a join still in flight when the user closed the buffer.
        if (isLeaving(channel))
            return;
        addLine(channel, QStringLiteral("joined %1").arg(channel), nick, true);
        setJoined(channel, true);
        emit membersChanged(channel);
        return;
    }
    if (isLeaving(channel))
        return;
    addLine(channel, QStringLiteral("joined %1").arg(channel), nick, true);
    if (m_buffers.contains(channel)) {
        if (m_members[channel].join(nick))
            emit memberAdded(channel, nick);
        emit membersChanged(channel);
    }
    const QString query = findQuery(nick);
    if (!query.isEmpty())
        addLine(query, QStringLiteral("is back online"), query, true);
}

void Session::onPart(const QString& nick, const QString& channel, const QString& reason)
{
    // The user's own leaving is reported where it was started (the part
    // command, closing the buffer). After the buffer was closed the server's
    // echo must not open it again: only the channel's members go.
    if (isOwnNick(nick)) {
        m_leaving.remove(m_connection->foldCase(channel));
        setJoined(channel, false);
        m_members.remove(channel);
        // Parted with /part: the buffer stays, empty of members, to rejoin or close.
        if (m_buffers.contains(channel)) {
            addLine(channel, QStringLiteral("*** You have left %1").arg(channel));
            emit membersReset(channel);
            emit membersChanged(channel);
        }
        return;
    }
    addLine(channel, QStringLiteral("left %1 (%2)").arg(channel, reason), nick, true);
    removeMember(channel, nick);
    emit membersChanged(channel);
}

void Session::onNick(const QString& oldNick, const QString& newNick)
{
    const QString line = QStringLiteral("is now known as %1").arg(newNick);
    const QStringList channels = m_members.keys();
    for (const QString& channel : channels) {
        if (!m_members[channel].contains(oldNick))
            continue;
        if (m_buffers.contains(channel))
            addLine(channel, line, oldNick, true);
        const auto renamed = m_members[channel].rename(oldNick, newNick);
        for (const auto& pair : renamed)
            emit memberRenamed(channel, pair.first, pair.second);
        emit membersChanged(channel);
    }
    const QString query = findQuery(oldNick);
    if (!query.isEmpty()) {
        addLine(query, line, oldNick, true);
        renameQuery(query, newNick);
    }
}

void Session::renameQuery(const QString& oldName, const QString& newName)
{
    if (oldName == newName || m_buffers.contains(newName))
        return;
    m_buffers.insert(newName, m_buffers.take(oldName));
    m_queries.remove(m_connection->foldCase(oldName));
    m_queries.insert(m_connection->foldCase(newName), newName);
    emit bufferRenamed(oldName, newName);
}

void Session::onNames(const QString& channel, const QStringList& names)
{
    m_pendingNames[channel] += names;
}

void Session::onNamesFinished(const QString& channel)
{
    QStringList names = m_pendingNames.take(channel);
    if (isLeaving(channel))
        return;
    MemberList::sortNames(names, prefixSymbols());
    m_members[channel].reset(names);
    emit membersReset(channel);
    emit membersChanged(channel);
}

void Session::onQuit(const QString& nick, const QString& reason)
{
    const QString line = QStringLiteral("quit (%1)").arg(reason);
    // Collect first: writing may open buffers, never member lists.
    QStringList channels;
    for (auto it = m_members.cbegin(); it != m_members.cend(); ++it) {
        if (it->contains(nick))
            channels.append(it.key());
    }
    for (const QString& channel : std::as_const(channels)) {
        if (m_buffers.contains(channel))
            addLine(channel, line, nick, true);
        removeMember(channel, nick);
        emit membersChanged(channel);
    }
    const QString query = findQuery(nick);
    if (!query.isEmpty())
        addLine(query, line, nick, true);
}

void Session::onKick(const QString& channel, const QString& kicked, const QString& kicker, const QString& reason)
{
    if (isOwnNick(kicked)) {
        setJoined(channel, false);
        m_members.remove(channel);
        if (!isLeaving(channel))
            addLine(channel, QStringLiteral("*** You were kicked from %1 by %2 (%3)").arg(channel, kicker, reason));
        m_leaving.remove(m_connection->foldCase(channel));
        emit kickedFrom(channel);
        emit membersReset(channel);
        emit membersChanged(channel);
        return;
    }
    if (isLeaving(channel))
        return;
    addLine(channel, QStringLiteral("was kicked by %1 (%2)").arg(kicker, reason), kicked, true);
    removeMember(channel, kicked);
    emit membersChanged(channel);
}

void Session::onWatchStatus(const QString& nick, bool online)
{
    const QString query = findQuery(nick);
    if (query.isEmpty())
        return;
    addLine(query, online ? QStringLiteral("is back online") : QStringLiteral("quit (WATCH)"), query, true);
}

void Session::onNotice(const QString& from, const QString& target, const QString& text, bool fromUser)
{
    const QString row = from.isEmpty() ? text : QStringLiteral("-%1- %2").arg(from, text);
    // Services (NickServ, ChanServ, ...) speak to the user as a whole.
    const bool service = fromUser && (from.endsWith(QLatin1String("Serv"), Qt::CaseInsensitive)
        || from.compare(QLatin1String("Global"), Qt::CaseInsensitive) == 0);
    // In a channel's buffer when sent to the channel; a user's in their
    // conversation when one is open, else where the user is looking;
    // services and servers in the server buffer.
    QString buffer = typeOf(target) == BufferType::Channel ? findBuffer(target) : QString();
    if (buffer.isEmpty() && fromUser && !service) {
        buffer = findQuery(from);
        const BufferType current = typeOf(m_currentBuffer);
        if (buffer.isEmpty() && m_buffers.contains(m_currentBuffer)
            && (current == BufferType::Channel || current == BufferType::Query))
            buffer = m_currentBuffer;
    }
    addLine(buffer.isEmpty() ? ServerBuffer : buffer, row, QString(), false, BufferLine::Notice);
}

void Session::onMode(const QString& from, const QString& target, const QStringList& modes)
{
    const QString text = modes.join(QLatin1Char(' '));
    if (typeOf(target) != BufferType::Channel) {
        addLine(ServerBuffer, QStringLiteral("*** %1 sets mode %2 on %3").arg(from, text, target));
        emit modesChanged(target, from, modes);
        return;
    }
    const IRCConnection::ServerSupport& support = m_connection->serverSupport();
    const QString& prefixModes = support.prefixModes;
    const QString& symbols = support.prefixSymbols;
    const auto members = m_members.find(target);
    bool adding = true;
    qsizetype next = 1;
    const QString changes = modes.value(0);
    QStringList rows;
    for (const QChar mode : changes) {
        if (mode == QLatin1Char('+') || mode == QLatin1Char('-')) {
            adding = mode == QLatin1Char('+');
            continue;
        }
        const qsizetype rank = prefixModes.indexOf(mode);
        const bool takesParameter = rank >= 0 || support.chanModes.value(0).contains(mode)
            || support.chanModes.value(1).contains(mode) || (adding && support.chanModes.value(2).contains(mode));
        const QString parameter = takesParameter ? modes.value(next++) : QString();
        rows << describeMode(adding, mode, parameter, rank, prefixModes);
        if (rank < 0 || parameter.isEmpty() || members == m_members.end())
            continue;
        // A member's rank: their symbols with this one added or taken away, highest first.
        const QString stored = members->storedName(parameter);
        if (stored.isNull())
            continue;
        QString held = stored.left(stored.size() - MemberList::stripModePrefix(stored).size());
        const QChar symbol = symbols.at(rank);
        held.remove(symbol);
        if (adding)
            held.append(symbol);
        std::sort(held.begin(), held.end(), [&symbols](QChar a, QChar b) { return symbols.indexOf(a) < symbols.indexOf(b); });
        if (!m_connection->hasCap(QStringLiteral("multi-prefix")))
            held = held.left(1);
        for (const auto& pair : members->setSymbols(parameter, held))
            emit memberRenamed(target, pair.first, pair.second);
    }
    const QString channel = findBuffer(target);
    for (const QString& row : std::as_const(rows)) {
        if (!channel.isEmpty())
            addLine(channel, row, from, true);
    }
    if (members != m_members.end())
        emit membersChanged(target);
    emit modesChanged(target, from, modes);
}

void Session::onServerSupport()
{
    MemberList::announceModeSymbols(prefixSymbols());
    m_log->forgetFiles();
    // The case mapping may have changed: the queries' index is made anew.
    m_queries.clear();
    for (auto it = m_buffers.cbegin(); it != m_buffers.cend(); ++it) {
        if (typeOf(it.key()) == BufferType::Query)
            m_queries.insert(m_connection->foldCase(it.key()), it.key());
    }
    // Conversations opened before the server said how to follow nicks.
    for (auto it = m_buffers.cbegin(); it != m_buffers.cend(); ++it) {
        if (typeOf(it.key()) == BufferType::Query)
            watchQuery(it.key());
    }
}

void Session::onErrorReply(int numeric, const QString& subject, const QString& text)
{
    const QString buffer = subject.isEmpty() ? QString() : findBuffer(subject);
    addLine(buffer.isEmpty() ? ServerBuffer : buffer,
        subject.isEmpty() ? QStringLiteral("*** %1").arg(text) : QStringLiteral("*** %1: %2").arg(subject, text));
    emit errorReply(numeric, subject, text);
}

void Session::onWhoisEnd(const QString& nick)
{
    const WhoisReply info = m_whois.take(nick);
    const QString buffer = m_whoisBuffer;
    addLine(buffer, QStringLiteral("*** WHOIS %1: %2@%3 (%4)").arg(nick, info.user, info.host, info.realname));
    if (info.isOperator)
        addLine(buffer, QStringLiteral("*** %1 is an IRC operator").arg(nick));
    addLine(buffer, QStringLiteral("*** %1 is using %2 (%3)").arg(nick, info.server, info.serverInfo));
    if (info.idle >= 0)
        addLine(buffer,
            QStringLiteral("*** %1 idle %2s, signed on %3").arg(nick, QString::number(info.idle), info.signon));
    if (!info.channels.isEmpty())
        addLine(buffer, QStringLiteral("*** %1 on channels: %2").arg(nick, info.channels));
    if (!info.awayMsg.isEmpty())
        addLine(buffer, QStringLiteral("*** %1 is away: %2").arg(nick, info.awayMsg));
}

void Session::onListStart()
{
    m_inList = true;
    addLine(ServerBuffer, QStringLiteral("*** Receiving channel list..."));
    emit channelListStarted();
}

void Session::onListEnd()
{
    emit channelListEnded();
    m_inList = false;
    addLine(ServerBuffer, QStringLiteral("*** Channel list complete."));
}

// --- Intents ----------------------------------------------------------------------

// --- Logging --------------------------------------------------------------------

void Session::setLogging(bool enabled, const QString& folder, std::function<QString(const QString&)> textFilter)
{
    m_log->setTarget(enabled, folder);
    m_log->setTextFilter(std::move(textFilter));
}

QString Session::logFile(const QString& buffer) const
{
    return m_log->filePath(networkName(), m_connection->foldCase(buffer));
}

QString Session::logFolder() const
{
    return m_log->networkFolder(networkName());
}

void Session::flushLog()
{
    m_log->sync();
}

void Session::showBacklog(const QString& buffer)
{
    const BufferType type = typeOf(buffer);
    if (m_backlogRows == 0 || !m_log->isActive() || (type != BufferType::Channel && type != BufferType::Query))
        return;
    // Rows of this buffer still on their way to the disk belong to the backlog too.
    m_log->sync();
    QList<BufferLine> rows = SessionLog::readTail(logFile(buffer), m_backlogRows);
    if (rows.isEmpty())
        return;
    BufferLine separator;
    separator.time = QDateTime::currentMSecsSinceEpoch();
    separator.flags = BufferLine::Backlog | BufferLine::Separator;
    rows.append(separator);
    for (BufferLine& row : rows) {
        // A receiver of lineAdded may close the buffer.
        const auto it = m_buffers.find(buffer);
        if (it == m_buffers.end())
            return;
        row.flags |= BufferLine::Backlog;
        it->lines.append(row);
        emit lineAdded(buffer, row);
    }
}

// --- Certificates ---------------------------------------------------------------

void Session::watchCertificates()
{
    connect(m_connection, &IRCConnection::certificateUntrusted, this, [this](const IRCConnection::CertificateInfo& info) {
        m_awaitingCertificateDecision = true;
        addLine(ServerBuffer,
            QStringLiteral("*** The certificate of %1:%2 is not trusted (%3).")
                .arg(info.host, QString::number(info.port), info.errors.join(QStringLiteral("; "))));
        emit certificateDecisionNeeded(info);
    });
    connect(m_connection, &IRCConnection::certificateAcceptedDespite, this, [this](const QStringList& errors) {
        addLine(ServerBuffer,
            QStringLiteral("*** Warning: the server's certificate is not trusted (%1); connecting anyway, as set "
                           "in the preferences.")
                .arg(errors.join(QStringLiteral("; "))));
    });
    connect(m_connection, &IRCConnection::certificateChanged, this, [this](const QString& pinned, const QString& presented) {
        m_awaitingCertificateDecision = true;
        addLine(ServerBuffer,
            QStringLiteral("*** Refused: the server presented another certificate than the one trusted for it "
                           "(trusted %1, presented %2). If the server changed its certificate, remove the trust "
                           "and connect again.")
                .arg(pinned, presented));
    });
}
