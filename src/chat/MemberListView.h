#pragma once

#include <QListWidget>
#include <QMultiHash>

// The visible member list of the current channel. Members are added, removed
// and renamed one by one as the channel changes; an index of the rows by
// text keeps that cheap in channels of many thousands. The index is kept
// while only these operations change the list; any other change drops it and
// the next lookup rebuilds it.
class MemberListView : public QListWidget
{
    Q_OBJECT

public:
    explicit MemberListView(QWidget* parent = nullptr);
    ~MemberListView() override;

    // Replaces every row.
    void fill(const QStringList& names);
    void addMember(const QString& name);
    void removeMember(const QString& name);
    void renameMember(const QString& name, const QString& newName);
    // The first row with exactly this text, or null.
    QListWidgetItem* findMember(const QString& text);

private:
    void dropIndex();

    QMultiHash<QString, QListWidgetItem*> m_items;
    bool m_indexValid = false;
    bool m_editing = false;
};
