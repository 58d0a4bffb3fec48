#include "MemberListView.h"

#include "MemberListModel.h"

MemberListView::MemberListView(QWidget* parent)
    : QListView(parent)
    , m_members(new MemberListModel(this))
{
    // Every row is one line of text: one size for all keeps big channels fast.
    setUniformItemSizes(true);
    setModel(m_members);
    connect(this, &QAbstractItemView::doubleClicked, this,
        [this](const QModelIndex& index) { emit memberDoubleClicked(memberAt(index.row())); });
}

void MemberListView::fill(const QStringList& names)
{
    m_members->fill(names);
}

void MemberListView::clear()
{
    m_members->clear();
}

void MemberListView::addMember(const QString& name)
{
    m_members->addMember(name);
}

void MemberListView::removeMember(const QString& name)
{
    m_members->removeMember(name);
}

void MemberListView::renameMember(const QString& name, const QString& newName)
{
    m_members->renameMember(name, newName);
}

int MemberListView::count() const
{
    return m_members->count();
}

QString MemberListView::memberAt(int row) const
{
    return m_members->memberAt(row);
}

QString MemberListView::memberAt(const QPoint& pos) const
{
    const QModelIndex index = indexAt(pos);
    return index.isValid() ? memberAt(index.row()) : QString();
}

int MemberListView::rowOf(const QString& text) const
{
    return m_members->rowOf(text);
}

QString MemberListView::currentMember() const
{
    const QModelIndex index = currentIndex();
    return index.isValid() ? memberAt(index.row()) : QString();
}
