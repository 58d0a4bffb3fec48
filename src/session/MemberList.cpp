#include "MemberList.h"

#include <QPair>

#include <algorithm>

namespace MemberList {

namespace {

// Symbols that networks announced beyond the usual five (PREFIX).
QString& announcedSymbols()
{
    static QString symbols;
    return symbols;
}

bool isModeSymbol(QChar c)
{
    switch (c.unicode()) {
    case '~':
    case '&':
    case '@':
    case '%':
    case '+':
        return true;
    default:
        return !announcedSymbols().isEmpty() && announcedSymbols().contains(c);
    }
}

// Where the symbols of a stored name end (a name may carry several, multi-prefix).
qsizetype symbolsEnd(QStringView nick)
{
    qsizetype i = 0;
    while (i < nick.size() && isModeSymbol(nick.at(i)))
        ++i;
    return i;
}

bool sameNick(QStringView a, QStringView b)
{
    return a.size() == b.size() && a.compare(b, Qt::CaseInsensitive) == 0;
}

} // namespace

QString ownMarker()
{
    return QStringLiteral("\u25cf ");
}

void announceModeSymbols(QStringView symbols)
{
    for (const QChar c : symbols) {
        if (!isModeSymbol(c))
            announcedSymbols().append(c);
    }
}

QString stripModePrefix(const QString& nick)
{
    const qsizetype end = symbolsEnd(nick);
    return end ? nick.mid(end) : nick;
}

QStringView stripModePrefix(QStringView nick)
{
    return nick.mid(symbolsEnd(nick));
}

QString stripOwnMarker(const QString& itemText)
{
    const QString marker = ownMarker();
    if (itemText.startsWith(marker))
        return itemText.mid(marker.size());
    return itemText;
}

QString memberNick(const QString& itemText)
{
    return stripModePrefix(stripOwnMarker(itemText));
}

int statusRank(QStringView name)
{
    if (name.isEmpty())
        return 6;
    switch (name.front().unicode()) {
    case '~':
        return 1;
    case '&':
        return 2;
    case '@':
        return 3;
    case '%':
        return 4;
    case '+':
        return 5;
    default:
        return 6;
    }
}

bool isOperatorEntry(QStringView name)
{
    return statusRank(name) <= 4;
}

bool isOperatorIn(const QStringList& names, const QString& ownNick)
{
    for (const QString& name : names) {
        if (stripModePrefix(QStringView(name)) == QStringView(ownNick))
            return !name.isEmpty() && isOperatorEntry(name);
    }
    return false;
}

bool lessByRank(QStringView a, QStringView b)
{
    const int rankA = statusRank(a);
    const int rankB = statusRank(b);
    if (rankA != rankB)
        return rankA < rankB;
    return stripModePrefix(a).compare(stripModePrefix(b), Qt::CaseInsensitive) < 0;
}

bool lessCaseInsensitive(QStringView a, QStringView b)
{
    return a.compare(b, Qt::CaseInsensitive) < 0;
}

void sortNames(QStringList& names)
{
    std::stable_sort(names.begin(), names.end(),
                     [](const QString& a, const QString& b) { return lessByRank(a, b); });
}

void sortNames(QStringList& names, QStringView rankSymbols)
{
    const auto rank = [rankSymbols](QStringView name) {
        const qsizetype at = name.isEmpty() ? -1 : rankSymbols.indexOf(name.front());
        return at < 0 ? rankSymbols.size() : at;
    };
    std::stable_sort(names.begin(), names.end(), [&rank](const QString& a, const QString& b) {
        const qsizetype rankA = rank(a);
        const qsizetype rankB = rank(b);
        if (rankA != rankB)
            return rankA < rankB;
        return stripModePrefix(QStringView(a)).compare(stripModePrefix(QStringView(b)), Qt::CaseInsensitive) < 0;
    });
}

QStringList sortedNames(QStringList names)
{
    sortNames(names);
    return names;
}

int insertByRank(QStringList& names, const QString& name)
{
    const auto it = std::upper_bound(
        names.begin(), names.end(), name,
        [](const QString& value, const QString& element) { return lessByRank(value, element); });
    const int index = static_cast<int>(it - names.begin());
    names.insert(index, name);
    return index;
}

int indexOfMember(const QStringList& names, QStringView nick)
{
    for (qsizetype i = 0; i < names.size(); ++i) {
        if (sameNick(stripModePrefix(QStringView(names.at(i))), nick))
            return static_cast<int>(i);
    }
    return -1;
}

bool containsMember(const QStringList& names, QStringView nick)
{
    return indexOfMember(names, nick) >= 0;
}

int insertCaseInsensitive(QStringList& names, const QString& name)
{
    const auto it = std::upper_bound(names.begin(), names.end(), name,
                                     [](const QString& value, const QString& element) {
                                         return lessCaseInsensitive(value, element);
                                     });
    const int index = static_cast<int>(it - names.begin());
    names.insert(index, name);
    return index;
}

bool addJoinedMember(QStringList& names, const QString& nick)
{
    for (const QString& name : names) {
        if (sameNick(name, nick))
            return false;
    }
    const auto less = [](const QString& a, const QString& b) { return lessCaseInsensitive(a, b); };
    if (std::is_sorted(names.cbegin(), names.cend(), less)) {
        insertCaseInsensitive(names, nick);
    } else {
        // The list is still in NAMES order: the first join after a NAMES
        // reply puts the whole list into case-insensitive order.
        names.append(nick);
        std::stable_sort(names.begin(), names.end(), less);
    }
    return true;
}

bool insertIntoJoinOrder(QStringList& names, const QString& nick)
{
    const auto less = [](const QString& a, const QString& b) { return lessCaseInsensitive(a, b); };
    const auto first = std::lower_bound(names.begin(), names.end(), nick, less);
    // Entries equal to nick ignoring case sit together from here on.
    for (auto it = first; it != names.end() && !less(nick, *it); ++it) {
        if (sameNick(*it, nick))
            return false;
    }
    insertCaseInsensitive(names, nick);
    return true;
}

void restoreJoinOrder(QStringList& names, const QStringList& outOfPlace)
{
    if (outOfPlace.isEmpty())
        return;
    const auto less = [](const QString& a, const QString& b) { return lessCaseInsensitive(a, b); };
    // Take the moved entries out (in place); the rest is in order.
    QList<QPair<qsizetype, QString>> taken;
    for (const QString& name : outOfPlace) {
        const qsizetype index = names.indexOf(name);
        if (index >= 0)
            taken.append({ index, names.takeAt(index) });
    }
    // Each goes to its one place unless it ties with another entry, where
    // only the full stable sort knows the order.
    bool tie = false;
    for (qsizetype i = 0; i < taken.size() && !tie; ++i) {
        const QString& name = taken.at(i).second;
        const auto range = std::equal_range(names.cbegin(), names.cend(), name, less);
        tie = range.first != range.second;
        for (qsizetype j = i + 1; j < taken.size() && !tie; ++j)
            tie = !less(name, taken.at(j).second) && !less(taken.at(j).second, name);
    }
    if (tie) {
        // Back where they were, then the full sort.
        for (auto it = taken.crbegin(); it != taken.crend(); ++it)
            names.insert(it->first, it->second);
        std::stable_sort(names.begin(), names.end(), less);
        return;
    }
    for (const auto& entry : std::as_const(taken))
        insertCaseInsensitive(names, entry.second);
}

int removeMember(QStringList& names, QStringView nick)
{
    return static_cast<int>(names.removeIf([nick](const QString& name) {
        return sameNick(stripModePrefix(QStringView(name)), nick);
    }));
}

int renameMember(QStringList& names, QStringView oldNick, const QString& newNick)
{
    int renamed = 0;
    for (QString& name : names) {
        if (!sameNick(stripModePrefix(QStringView(name)), oldNick))
            continue;
        name = name.left(symbolsEnd(name)) + newNick;
        ++renamed;
    }
    return renamed;
}

} // namespace MemberList
