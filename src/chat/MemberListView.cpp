#include "MemberListView.h"

MemberListView::MemberListView(QWidget* parent)
    : QListWidget(parent)
{
    QAbstractItemModel* list = model();
    connect(list, &QAbstractItemModel::rowsInserted, this, &MemberListView::dropIndex);
    connect(list, &QAbstractItemModel::rowsRemoved, this, &MemberListView::dropIndex);
    connect(list, &QAbstractItemModel::rowsMoved, this, &MemberListView::dropIndex);
    connect(list, &QAbstractItemModel::modelReset, this, &MemberListView::dropIndex);
    connect(list, &QAbstractItemModel::layoutChanged, this, &MemberListView::dropIndex);
    connect(list, &QAbstractItemModel::dataChanged, this,
        [this](const QModelIndex&, const QModelIndex&, const QList<int>& roles) {
            if (roles.isEmpty() || roles.contains(Qt::DisplayRole) || roles.contains(Qt::EditRole))
                dropIndex();
        });
}

// The model outlives this class's members while the base class is destroyed:
// stop listening first.
MemberListView::~MemberListView()
{
    model()->disconnect(this);
}

void MemberListView::dropIndex()
{
    if (m_editing)
        return;
    m_indexValid = false;
    m_items.clear();
}

void MemberListView::fill(const QStringList& names)
{
    setUpdatesEnabled(false);
    clear();
    addItems(names);
    setUpdatesEnabled(true);
    // Indexed on the first lookup.
    dropIndex();
}

void MemberListView::addMember(const QString& name)
{
    auto* item = new QListWidgetItem(name);
    m_editing = true;
    addItem(item);
    m_editing = false;
    if (m_indexValid)
        m_items.insert(name, item);
}

void MemberListView::removeMember(const QString& name)
{
    QListWidgetItem* item = findMember(name);
    if (!item)
        return;
    m_items.remove(name, item);
    m_editing = true;
    delete item;
    m_editing = false;
}

QListWidgetItem* MemberListView::findMember(const QString& text)
{
    if (!m_indexValid) {
        m_items.clear();
        m_items.reserve(count());
        for (int row = 0; row < count(); ++row) {
            QListWidgetItem* it = item(row);
            m_items.insert(it->text(), it);
        }
        m_indexValid = true;
    }
    // The first row with that text; only duplicates need the row order.
    if (m_items.count(text) > 1) {
        const QList<QListWidgetItem*> found = findItems(text, Qt::MatchExactly | Qt::MatchCaseSensitive);
        return found.isEmpty() ? nullptr : found.first();
    }
    return m_items.value(text);
}

void MemberListView::renameMember(const QString& name, const QString& newName)
{
    QListWidgetItem* item = findMember(name);
    if (!item)
        return;
    m_items.remove(name, item);
    m_editing = true;
    item->setText(newName);
    m_editing = false;
    if (m_indexValid)
        m_items.insert(newName, item);
}
