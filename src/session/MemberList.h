#pragma once

// Channel member names, free of widgets.
//
// Names are stored as the server sent them: with at most one leading mode
// symbol ("~", "&", "@", "%" or "+"). The visible list may show the own
// entry with the marker "\u25cf " in front; memberNick() strips it.
//
// Two orders are in use:
//  - a finished NAMES reply is sorted by status rank, then by the name
//    without its symbol, case ignored (sortNames / lessByRank);
//  - after a join the whole list is sorted case-insensitively as stored
//    (symbols included) (addJoinedMember / lessCaseInsensitive).
// Both sorts are stable, and the binary insertions below give exactly the
// order a full sort of the same names would give.

#include <QString>
#include <QStringList>
#include <QStringView>

namespace MemberList {

// The marker in front of the own entry in the visible list.
QString ownMarker(); // "\u25cf "

// Symbols a network uses beyond ~ & @ % + (from its PREFIX); from then on
// they count as mode symbols too.
void announceModeSymbols(QStringView symbols);

// nick without its leading mode symbols (~ & @ % + and announced ones; a
// multi-prefix name carries several); otherwise nick unchanged.
QString stripModePrefix(const QString& nick);
QStringView stripModePrefix(QStringView nick);

// An item text of the visible list without the own marker and without one
// mode symbol: the plain nickname.
QString memberNick(const QString& itemText);
// An item text without the own marker (the stored name).
QString stripOwnMarker(const QString& itemText);

// ~ 1, & 2, @ 3, % 4, + 5; anything else, or an empty name, 6.
int statusRank(QStringView name);

// Whether a stored name carries operator rights: ~ & @ % (voice + does not).
bool isOperatorEntry(QStringView name);

// Whether the first entry whose stripped form equals ownNick (case-sensitive)
// carries operator rights. No such entry: false.
bool isOperatorIn(const QStringList& names, const QString& ownNick);

// NAMES order: smaller status rank first, then the stripped names compared
// case-insensitively.
bool lessByRank(QStringView a, QStringView b);
// Join order: the stored names compared case-insensitively.
bool lessCaseInsensitive(QStringView a, QStringView b);

// Sorts a finished NAMES reply (stable, lessByRank).
void sortNames(QStringList& names);
// The same with the network's ranks: the symbols of its PREFIX, highest first.
void sortNames(QStringList& names, QStringView rankSymbols);
QStringList sortedNames(QStringList names);
// Inserts name into a list in NAMES order after any equal names; returns
// the index it went to.
int insertByRank(QStringList& names, const QString& name);

// Index of the first entry whose stripped form equals nick, case ignored;
// -1 when none.
int indexOfMember(const QStringList& names, QStringView nick);
bool containsMember(const QStringList& names, QStringView nick);

// A user joined: adds nick unless an entry equal to it ignoring case is
// there, and leaves the list sorted case-insensitively (binary insertion
// when the list already is in that order, a full stable sort otherwise).
// Returns whether it was added.
bool addJoinedMember(QStringList& names, const QString& nick);
// Inserts name into a list already in case-insensitive order after any
// equal names; returns the index it went to.
int insertCaseInsensitive(QStringList& names, const QString& name);

// Incremental join order, for lists known to be in case-insensitive order
// (up to the entries named in outOfPlace). Both give exactly the list the
// full stable sort of addJoinedMember would give.
// Adds nick to a list in join order unless an entry equal to it ignoring
// case is there (a binary search); returns whether it was added.
bool insertIntoJoinOrder(QStringList& names, const QString& nick);
// Puts a list that was in join order, and then had the entries outOfPlace
// renamed in place, back into the order a stable sort would give. Falls back
// to that sort when an entry to move ties with another one.
void restoreJoinOrder(QStringList& names, const QStringList& outOfPlace);

// Removes every entry whose stripped form equals nick, case ignored.
// Returns the number removed.
int removeMember(QStringList& names, QStringView nick);

// Replaces every entry whose stripped form equals oldNick (case ignored) by
// newNick with the entry's mode symbol kept, in place. Returns the number
// replaced.
int renameMember(QStringList& names, QStringView oldNick, const QString& newNick);

} // namespace MemberList
