#include "MemberList.h"

#include <algorithm>

namespace MemberList {

namespace {

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
        return false;
    }
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

QString stripModePrefix(const QString& nick)
{
    if (!nick.isEmpty() && isModeSymbol(nick.front()))
        return nick.mid(1);
    return nick;
}

QStringView stripModePrefix(QStringView nick)
{
    if (!nick.isEmpty() && isModeSymbol(nick.front()))
        return nick.mid(1);
    return nick;
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
        const bool hasSymbol = stripModePrefix(QStringView(name)).size() != name.size();
        name = hasSymbol ? name.left(1) + newNick : newNick;
        ++renamed;
    }
    return renamed;
}

} // namespace MemberList
