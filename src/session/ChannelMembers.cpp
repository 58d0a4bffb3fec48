#include "ChannelMembers.h"

#include "MemberList.h"

#include <algorithm>

QString ChannelMembers::key(const QString& storedName)
{
    return MemberList::stripModePrefix(QStringView(storedName)).toString().toCaseFolded();
}

void ChannelMembers::reset(const QStringList& rankOrdered)
{
    m_entries.clear();
    m_sortKeys.clear();
    m_renamed.clear();
    m_at.clear();
    m_live = 0;
    m_entries.reserve(rankOrdered.size());
    for (const QString& name : rankOrdered)
        add(name);
    m_joinOrdered = false;
    m_namesValid = false;
}

void ChannelMembers::add(const QString& storedName)
{
    m_at[key(storedName)].append(m_entries.size());
    m_entries.append(storedName);
    m_sortKeys.append(storedName);
    ++m_live;
}

// Drops the holes once they outnumber the members.
void ChannelMembers::sweep()
{
    const qsizetype holes = m_entries.size() - m_live;
    if (holes < 1024 || holes < m_live)
        return;
    const QStringList entries = m_entries;
    const QStringList keys = m_sortKeys;
    m_entries.clear();
    m_sortKeys.clear();
    m_renamed.clear();
    m_at.clear();
    m_live = 0;
    for (qsizetype i = 0; i < entries.size(); ++i) {
        if (entries.at(i).isNull())
            continue;
        if (keys.at(i) != entries.at(i))
            m_renamed.append(m_entries.size());
        add(entries.at(i));
        m_sortKeys.last() = keys.at(i);
    }
}

QStringList ChannelMembers::names() const
{
    if (m_namesValid)
        return m_names;
    QList<qsizetype> order;
    order.reserve(m_live);
    for (qsizetype i = 0; i < m_entries.size(); ++i) {
        if (!m_entries.at(i).isNull())
            order.append(i);
    }
    if (m_joinOrdered) {
        std::stable_sort(order.begin(), order.end(), [this](qsizetype a, qsizetype b) {
            return MemberList::lessCaseInsensitive(m_sortKeys.at(a), m_sortKeys.at(b));
        });
    }
    m_names.clear();
    m_names.reserve(m_live);
    for (const qsizetype i : std::as_const(order))
        m_names.append(m_entries.at(i));
    m_namesValid = true;
    return m_names;
}

bool ChannelMembers::contains(const QString& nick) const
{
    return m_at.contains(nick.toCaseFolded());
}

bool ChannelMembers::join(const QString& nick)
{
    // From the first join on, the list reads in join order (even when the
    // nick is there already).
    if (!m_joinOrdered) {
        m_joinOrdered = true;
        m_namesValid = false;
    }
    // Entries renamed since the last join move to their places now.
    if (!m_renamed.isEmpty()) {
        for (const qsizetype position : std::as_const(m_renamed)) {
            if (!m_entries.at(position).isNull())
                m_sortKeys[position] = m_entries.at(position);
        }
        m_renamed.clear();
        m_namesValid = false;
    }
    const auto found = m_at.constFind(key(nick));
    if (found != m_at.cend()) {
        for (const qsizetype position : *found) {
            if (m_entries.at(position).compare(nick, Qt::CaseInsensitive) == 0)
                return false;
        }
    }
    add(nick);
    m_namesValid = false;
    return true;
}

QStringList ChannelMembers::remove(const QString& nick)
{
    QStringList removed;
    const auto found = m_at.find(nick.toCaseFolded());
    if (found == m_at.end())
        return removed;
    const QList<qsizetype> positions = *found;
    m_at.erase(found);
    for (auto it = positions.crbegin(); it != positions.crend(); ++it) {
        removed.append(m_entries.at(*it));
        m_entries[*it] = QString();
        m_sortKeys[*it] = QString();
        --m_live;
    }
    m_namesValid = false;
    sweep();
    return removed;
}

QList<QPair<QString, QString>> ChannelMembers::rename(const QString& oldNick, const QString& newNick)
{
    QList<QPair<QString, QString>> renamed;
    const QString oldKey = oldNick.toCaseFolded();
    const auto found = m_at.find(oldKey);
    if (found == m_at.end())
        return renamed;
    const QList<qsizetype> positions = *found;
    m_at.erase(found);
    for (const qsizetype position : positions) {
        const QString name = m_entries.at(position);
        const QStringView bare = MemberList::stripModePrefix(QStringView(name));
        const QString now = name.left(name.size() - bare.size()) + newNick;
        m_entries[position] = now;
        m_renamed.append(position);
        renamed.append({ name, now });
    }
    QList<qsizetype>& target = m_at[key(newNick)];
    target += positions;
    std::sort(target.begin(), target.end());
    m_namesValid = false;
    return renamed;
}

QList<QPair<QString, QString>> ChannelMembers::setSymbols(const QString& nick, const QString& symbols)
{
    QList<QPair<QString, QString>> changed;
    const auto found = m_at.constFind(nick.toCaseFolded());
    if (found == m_at.cend())
        return changed;
    for (const qsizetype position : *found) {
        const QString name = m_entries.at(position);
        const QString now = symbols + MemberList::stripModePrefix(name);
        if (now == name)
            continue;
        m_entries[position] = now;
        m_renamed.append(position);
        changed.append({ name, now });
    }
    if (!changed.isEmpty())
        m_namesValid = false;
    return changed;
}

QString ChannelMembers::storedName(const QString& nick) const
{
    const auto found = m_at.constFind(nick.toCaseFolded());
    return found == m_at.cend() || found->isEmpty() ? QString() : m_entries.at(found->constFirst());
}

bool ChannelMembers::isOperator(const QString& ownNick) const
{
    const auto found = m_at.constFind(ownNick.toCaseFolded());
    if (found == m_at.cend())
        return false;
    // The first one as listed: in join order the smallest, ties by arrival.
    const QString* first = nullptr;
    for (const qsizetype position : *found) {
        const QString& name = m_entries.at(position);
        if (MemberList::stripModePrefix(QStringView(name)) != ownNick)
            continue;
        if (!first || (m_joinOrdered && MemberList::lessCaseInsensitive(name, *first)))
            first = &name;
    }
    return first && MemberList::isOperatorEntry(*first);
}
