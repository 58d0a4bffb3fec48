#pragma once

#include <QHash>
#include <QList>
#include <QPair>
#include <QString>
#include <QStringList>

// The members of one channel as the server named them (with at most one mode
// symbol), kept cheap under floods of joins, parts, quits and nick changes.
//
// After a NAMES reply the list is in rank order; the first join sorts it once
// into join order (case-insensitive as stored), after which every further join
// is one binary insertion. A nick change renames entries in place and notes
// them, so that the next join moves them to their places first. A count per
// folded nick answers "is this nick here?" without walking the list.
class ChannelMembers
{
public:
    // The members from a finished NAMES reply, already sorted by rank.
    void reset(const QStringList& rankOrdered);

    const QStringList& names() const { return m_names; }
    qsizetype size() const { return m_names.size(); }

    // Whether an entry of nick (symbol ignored, case ignored) is here.
    bool contains(const QString& nick) const;
    // Positions of the entries of nick (symbol and case ignored), ascending.
    QList<qsizetype> positions(const QString& nick) const;

    // Adds a joined nick unless it is here already; whether it was added.
    bool join(const QString& nick);
    // Removes every entry of nick; the stored names removed, last first.
    QStringList remove(const QString& nick);
    // Renames every entry of oldNick in place, its symbol kept; the pairs of
    // stored names (before, after).
    QList<QPair<QString, QString>> rename(const QString& oldNick, const QString& newNick);

    // Whether the first entry that is exactly ownNick (case-sensitive, symbol
    // ignored) carries operator rights.
    bool isOperator(const QString& ownNick) const;

private:
    void index(const QString& storedName, int delta);
    void ensureIndex() const;
    static QString key(const QString& storedName);

    QStringList m_names;
    // In join order since a join (until the next NAMES reply).
    bool m_joinOrdered = false;
    // Entries renamed in place since the last join.
    QStringList m_renamed;
    // Per folded nick, how many entries carry it; rebuilt when its total no
    // longer matches the list.
    mutable QHash<QString, int> m_counts;
    mutable qsizetype m_indexedSize = -1;
};
