#include "ChannelMembers.h"

#include "MemberList.h"

#include <algorithm>

QString ChannelMembers::key(const QString& storedName)
{
    return MemberList::stripModePrefix(QStringView(storedName)).toString().toCaseFolded();
}

void ChannelMembers::reset(const QStringList& rankOrdered)
{
    m_names = rankOrdered;
    m_joinOrdered = false;
    m_renamed.clear();
    m_counts.clear();
    m_indexedSize = -1;
}

void ChannelMembers::ensureIndex() const
{
    if (m_indexedSize == m_names.size())
        return;
    m_counts.clear();
    m_counts.reserve(m_names.size());
    for (const QString& name : m_names)
        ++m_counts[key(name)];
    m_indexedSize = m_names.size();
}

void ChannelMembers::index(const QString& storedName, int delta)
{
    // Called right after the change to the list.
    if (m_indexedSize < 0)
        return;
    const QString k = key(storedName);
    int& count = m_counts[k];
    count += delta;
    if (count <= 0)
        m_counts.remove(k);
    m_indexedSize += delta;
}

bool ChannelMembers::contains(const QString& nick) const
{
    ensureIndex();
    return m_counts.value(nick.toCaseFolded()) > 0;
}

QList<qsizetype> ChannelMembers::positions(const QString& nick) const
{
    QList<qsizetype> found;
    if (!contains(nick))
        return found;
    if (m_joinOrdered && m_renamed.isEmpty()) {
        // In join order: the entries of nick sit under each of the symbols.
        const auto less = [](const QString& a, const QString& b) { return MemberList::lessCaseInsensitive(a, b); };
        static const QStringList symbols { QString(), QStringLiteral("~"), QStringLiteral("&"), QStringLiteral("@"),
            QStringLiteral("%"), QStringLiteral("+") };
        for (const QString& symbol : symbols) {
            const QString probe = symbol + nick;
            const auto range = std::equal_range(m_names.cbegin(), m_names.cend(), probe, less);
            for (auto it = range.first; it != range.second; ++it) {
                if (MemberList::stripModePrefix(QStringView(*it)).compare(nick, Qt::CaseInsensitive) == 0)
                    found.append(it - m_names.cbegin());
            }
        }
        std::sort(found.begin(), found.end());
        found.erase(std::unique(found.begin(), found.end()), found.end());
        return found;
    }
    for (qsizetype i = 0; i < m_names.size(); ++i) {
        const QStringView bare = MemberList::stripModePrefix(QStringView(m_names.at(i)));
        if (bare.size() == nick.size() && bare.compare(nick, Qt::CaseInsensitive) == 0)
            found.append(i);
    }
    return found;
}

bool ChannelMembers::join(const QString& nick)
{
    bool added;
    if (m_joinOrdered) {
        // Renamed entries move to their places, then a binary search finds
        // both an equal entry and the insertion place.
        MemberList::restoreJoinOrder(m_names, m_renamed);
        m_renamed.clear();
        added = MemberList::insertIntoJoinOrder(m_names, nick);
    } else {
        // Still in the rank order of a NAMES reply: sorted once here (even
        // when the nick is there already).
        added = MemberList::addJoinedMember(m_names, nick);
        if (!added)
            std::stable_sort(m_names.begin(), m_names.end(),
                [](const QString& a, const QString& b) { return MemberList::lessCaseInsensitive(a, b); });
        m_joinOrdered = true;
        m_renamed.clear();
    }
    if (added)
        index(nick, +1);
    return added;
}

QStringList ChannelMembers::remove(const QString& nick)
{
    QStringList removed;
    const QList<qsizetype> found = positions(nick);
    for (auto it = found.crbegin(); it != found.crend(); ++it) {
        removed.append(m_names.takeAt(*it));
        index(removed.last(), -1);
    }
    return removed;
}

QList<QPair<QString, QString>> ChannelMembers::rename(const QString& oldNick, const QString& newNick)
{
    QList<QPair<QString, QString>> renamed;
    for (const qsizetype position : positions(oldNick)) {
        const QString name = m_names.at(position);
        const QStringView bare = MemberList::stripModePrefix(QStringView(name));
        const QString now = name.left(name.size() - bare.size()) + newNick;
        m_names[position] = now;
        index(name, -1);
        index(now, +1);
        // The renamed entry may sit out of join order now.
        if (m_joinOrdered) {
            m_renamed.removeAll(name);
            m_renamed.append(now);
        }
        renamed.append({ name, now });
    }
    return renamed;
}

bool ChannelMembers::isOperator(const QString& ownNick) const
{
    for (const qsizetype position : positions(ownNick)) {
        const QString& name = m_names.at(position);
        if (MemberList::stripModePrefix(QStringView(name)) == ownNick)
            return MemberList::isOperatorEntry(name);
    }
    return false;
}
