#pragma once

#include <QAbstractListModel>
#include <QHash>
#include <QMap>
#include <QMultiHash>
#include <QStringList>
#include <QStringView>
#include <QVariant>

#include <vector>

// The rows of the member list of the current channel: one text per member,
// as the window gives it (a stored name, the own entry possibly with the
// marker "\u25cf " in front). The order is the window's: fill() takes a whole
// list, a single member is added at the end, removed where it is and renamed
// in place.
//
// Channels can hold tens of thousands of members, and a busy one sees many
// joins, parts and renames a second; each of them costs log time here:
// - rows live in slots in row order; a removed member leaves an empty slot
//   behind instead of moving every row after it. The slots are compacted
//   (without any visible change) once most of them are empty.
// - a Fenwick tree over the slots counts the members, to turn a row into its
//   slot and back.
// - an index from text to slots finds a member's row. It is built on the
//   first lookup after a fill, so that a list nobody leaves never pays for it.
//
// Any data of another role than the text (a font, a colour) stays with its
// row when the row is renamed and goes with it when it is removed.
class MemberListModel : public QAbstractListModel
{
    Q_OBJECT

public:
    explicit MemberListModel(QObject* parent = nullptr);

    int rowCount(const QModelIndex& parent = QModelIndex()) const override;
    QVariant data(const QModelIndex& index, int role = Qt::DisplayRole) const override;
    // Every role but the text, which only changes through the calls below.
    // An invalid value removes the role's data.
    bool setData(const QModelIndex& index, const QVariant& value, int role) override;

    // Replaces every row.
    void fill(const QStringList& names);
    void clear();
    // Adds a row at the end.
    void addMember(const QString& name);
    // Removes, or renames in place, the first row with exactly this text.
    void removeMember(const QString& name);
    void renameMember(const QString& name, const QString& newName);

    int count() const { return m_live; }
    // The text of a row; empty outside the list.
    QString memberAt(int row) const;
    // The first row with exactly this text; -1 when none.
    int rowOf(const QString& text) const;
    // The first row whose nickname (without the own marker and one mode
    // symbol) equals nick, case ignored; -1 when none.
    int rowOfNick(QStringView nick) const;

private:
    int slotOf(int row) const;
    int rowOfSlot(int slot) const;
    // The first slot holding exactly this text; -1 when none.
    int findSlot(const QString& text) const;
    void buildIndex() const;
    void buildTree();
    void treeAdd(int slot, int delta);
    void compact();

    QStringList m_slots; // in row order; an empty slot's text is unused
    std::vector<char> m_used; // per slot: whether it holds a member
    std::vector<int> m_tree; // 1-based Fenwick tree of m_used
    int m_live = 0; // members (rows)
    mutable QMultiHash<QString, int> m_index; // text -> slots
    mutable bool m_indexed = false;
    QHash<int, QMap<int, QVariant>> m_roles; // slot -> role -> value
};
