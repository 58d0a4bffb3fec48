#pragma once

#include <QHash>
#include <QList>
#include <QPair>
#include <QString>
#include <QStringList>

// The members of one channel as the server named them (with at most one mode
// symbol), kept cheap under floods of joins, parts, quits and nick changes.
//
// After a NAMES reply the members are in its rank order. From the first join
// on they are listed in join order: sorted case-insensitively as stored, ties
// in the order they came; an entry renamed since the last join keeps its
// place until the next join. Every change is O(1): entries stay where they
// came (a removed one leaves a hole until enough holes are swept out), an
// index by folded nick finds them, and the join order is sorted only when the
// list is read.
class ChannelMembers
{
public:
    // The members from a finished NAMES reply, already sorted by rank.
    void reset(const QStringList& rankOrdered);

    // The members in their order (rank order until the first join, then join order).
    QStringList names() const;
    qsizetype size() const { return m_live; }

    // Whether an entry of nick (symbol ignored, case ignored) is here.
    bool contains(const QString& nick) const;

    // Adds a joined nick unless an entry equal to it (case ignored) is here;
    // whether it was added.
    bool join(const QString& nick);
    // Removes every entry of nick; the stored names removed, last first.
    QStringList remove(const QString& nick);
    // Renames every entry of oldNick in place, its symbol kept; the pairs of
    // stored names (before, after).
    QList<QPair<QString, QString>> rename(const QString& oldNick, const QString& newNick);

    // Gives every entry of nick the mode symbols `symbols` (highest first;
    // empty: none), in place; the pairs of stored names (before, after).
    QList<QPair<QString, QString>> setSymbols(const QString& nick, const QString& symbols);
    // The stored name of nick's first entry, or a null string.
    QString storedName(const QString& nick) const;

    // Whether the first listed entry that is exactly ownNick (case-sensitive,
    // symbol ignored) carries operator rights.
    bool isOperator(const QString& ownNick) const;

private:
    static QString key(const QString& storedName);
    void add(const QString& storedName);
    void sweep();

    QStringList m_entries; // in the order they came; a removed entry is a null string
    QStringList m_sortKeys; // per entry, the name it is sorted by in join order
    QList<qsizetype> m_renamed; // entries renamed since the last join
    QHash<QString, QList<qsizetype>> m_at; // folded nick -> positions in m_entries, ascending
    qsizetype m_live = 0;
    bool m_joinOrdered = false;
    mutable QStringList m_names; // names(), kept until the next change
    mutable bool m_namesValid = false;
};
