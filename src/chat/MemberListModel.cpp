#include "MemberListModel.h"

#include "MemberList.h"

namespace {

// Empty slots are compacted once there are more of them than members (and
// more than a few).
constexpr int MinEmptySlotsToCompact = 64;

int lowestBit(int i)
{
    return i & -i;
}

// A row's text without the own marker and one mode symbol.
QStringView nickOf(QStringView text)
{
    static const QString marker = MemberList::ownMarker();
    if (text.startsWith(marker))
        text = text.mid(marker.size());
    return MemberList::stripModePrefix(text);
}

} // namespace

MemberListModel::MemberListModel(QObject* parent)
    : QAbstractListModel(parent)
{
    m_tree.push_back(0);
}

int MemberListModel::rowCount(const QModelIndex& parent) const
{
    return parent.isValid() ? 0 : m_live;
}

QVariant MemberListModel::data(const QModelIndex& index, int role) const
{
    if (!index.isValid() || index.row() >= m_live)
        return QVariant();
    const int slot = slotOf(index.row());
    if (role == Qt::DisplayRole || role == Qt::EditRole)
        return m_slots.at(slot);
    if (m_roles.isEmpty())
        return QVariant();
    return m_roles.value(slot).value(role);
}

bool MemberListModel::setData(const QModelIndex& index, const QVariant& value, int role)
{
    if (!index.isValid() || index.row() >= m_live || role == Qt::DisplayRole || role == Qt::EditRole)
        return false;
    const int slot = slotOf(index.row());
    auto it = m_roles.find(slot);
    if (value.isValid()) {
        if (it == m_roles.end())
            it = m_roles.insert(slot, {});
        it->insert(role, value);
    } else if (it != m_roles.end()) {
        it->remove(role);
        if (it->isEmpty())
            m_roles.erase(it);
    }
    emit dataChanged(index, index, { role });
    return true;
}

void MemberListModel::fill(const QStringList& names)
{
    beginResetModel();
    m_slots = names;
    m_used.assign(size_t(names.size()), 1);
    m_live = int(names.size());
    buildTree();
    // Indexed on the first lookup.
    m_index.clear();
    m_indexed = false;
    m_roles.clear();
    endResetModel();
}

void MemberListModel::clear()
{
    fill({});
}

void MemberListModel::addMember(const QString& name)
{
    const int slot = int(m_slots.size());
    beginInsertRows(QModelIndex(), m_live, m_live);
    m_slots.append(name);
    m_used.push_back(1);
    // The new tree node counts its own slot and the nodes below it.
    const int node = slot + 1;
    int sum = 1;
    for (int i = node - 1; i > node - lowestBit(node); i -= lowestBit(i))
        sum += m_tree[size_t(i)];
    m_tree.push_back(sum);
    ++m_live;
    if (m_indexed)
        m_index.insert(name, slot);
    endInsertRows();
}

void MemberListModel::removeMember(const QString& name)
{
    const int slot = findSlot(name);
    if (slot < 0)
        return;
    const int row = rowOfSlot(slot);
    beginRemoveRows(QModelIndex(), row, row);
    m_index.remove(name, slot);
    m_roles.remove(slot);
    m_slots[slot] = QString();
    m_used[size_t(slot)] = 0;
    treeAdd(slot, -1);
    --m_live;
    // Empty slots at the end go at once: nothing comes after them.
    while (!m_used.empty() && !m_used.back()) {
        m_used.pop_back();
        m_slots.removeLast();
        m_tree.pop_back();
    }
    endRemoveRows();
    const int empty = int(m_slots.size()) - m_live;
    if (empty > MinEmptySlotsToCompact && empty > m_live)
        compact();
}

void MemberListModel::renameMember(const QString& name, const QString& newName)
{
    const int slot = findSlot(name);
    if (slot < 0)
        return;
    if (m_indexed) {
        m_index.remove(name, slot);
        m_index.insert(newName, slot);
    }
    m_slots[slot] = newName;
    const QModelIndex changed = index(rowOfSlot(slot));
    emit dataChanged(changed, changed, { Qt::DisplayRole, Qt::EditRole });
}

QString MemberListModel::memberAt(int row) const
{
    if (row < 0 || row >= m_live)
        return QString();
    return m_slots.at(slotOf(row));
}

int MemberListModel::rowOf(const QString& text) const
{
    const int slot = findSlot(text);
    return slot < 0 ? -1 : rowOfSlot(slot);
}

int MemberListModel::rowOfNick(QStringView nick) const
{
    int row = 0;
    for (qsizetype slot = 0; slot < m_slots.size(); ++slot) {
        if (!m_used[size_t(slot)])
            continue;
        const QStringView candidate = nickOf(m_slots.at(slot));
        if (candidate.size() == nick.size() && candidate.compare(nick, Qt::CaseInsensitive) == 0)
            return row;
        ++row;
    }
    return -1;
}

int MemberListModel::slotOf(int row) const
{
    const int slotCount = int(m_slots.size());
    if (m_live == slotCount)
        return row;
    // The lowest slot with row + 1 members up to and including it.
    int node = 0;
    int remaining = row + 1;
    int step = 1;
    while (step * 2 <= slotCount)
        step *= 2;
    for (; step > 0; step /= 2) {
        const int next = node + step;
        if (next <= slotCount && m_tree[size_t(next)] < remaining) {
            node = next;
            remaining -= m_tree[size_t(next)];
        }
    }
    return node;
}

int MemberListModel::rowOfSlot(int slot) const
{
    if (m_live == int(m_slots.size()))
        return slot;
    // The members before the slot.
    int row = 0;
    for (int node = slot; node > 0; node -= lowestBit(node))
        row += m_tree[size_t(node)];
    return row;
}

int MemberListModel::findSlot(const QString& text) const
{
    if (!m_indexed)
        buildIndex();
    // The first of equal texts, should a list hold any.
    int first = -1;
    const auto [begin, end] = m_index.equal_range(text);
    for (auto it = begin; it != end; ++it) {
        if (first < 0 || *it < first)
            first = *it;
    }
    return first;
}

void MemberListModel::buildIndex() const
{
    m_index.clear();
    m_index.reserve(m_live);
    for (qsizetype slot = 0; slot < m_slots.size(); ++slot) {
        if (m_used[size_t(slot)])
            m_index.insert(m_slots.at(slot), int(slot));
    }
    m_indexed = true;
}

void MemberListModel::buildTree()
{
    const size_t slotCount = m_used.size();
    m_tree.assign(slotCount + 1, 0);
    for (size_t node = 1; node <= slotCount; ++node) {
        m_tree[node] += m_used[node - 1];
        const size_t parent = node + size_t(lowestBit(int(node)));
        if (parent <= slotCount)
            m_tree[parent] += m_tree[node];
    }
}

void MemberListModel::treeAdd(int slot, int delta)
{
    const int slotCount = int(m_slots.size());
    for (int node = slot + 1; node <= slotCount; node += lowestBit(node))
        m_tree[size_t(node)] += delta;
}

// Rows stay as they are: nothing to tell the views.
void MemberListModel::compact()
{
    QStringList kept;
    kept.reserve(m_live);
    QHash<int, QMap<int, QVariant>> roles;
    for (qsizetype slot = 0; slot < m_slots.size(); ++slot) {
        if (!m_used[size_t(slot)])
            continue;
        const auto it = m_roles.constFind(int(slot));
        if (it != m_roles.cend())
            roles.insert(int(kept.size()), *it);
        kept.append(m_slots.at(slot));
    }
    m_slots = kept;
    m_roles = roles;
    m_used.assign(size_t(m_live), 1);
    buildTree();
    m_index.clear();
    m_indexed = false;
}
