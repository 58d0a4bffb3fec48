#pragma once

#include <QListView>

class MemberListModel;

// The visible member list of the current channel: a list view over a
// MemberListModel, one row per member, every row the same height. Members are
// added, removed and renamed one by one as the channel changes; each of these
// stays cheap in channels of many thousands (see MemberListModel).
class MemberListView : public QListView
{
    Q_OBJECT

public:
    explicit MemberListView(QWidget* parent = nullptr);

    MemberListModel* members() const { return m_members; }

    // Replaces every row.
    void fill(const QStringList& names);
    void clear();
    // Adds a row at the end.
    void addMember(const QString& name);
    // Removes, or renames, the first row with exactly this text.
    void removeMember(const QString& name);
    void renameMember(const QString& name, const QString& newName);

    int count() const;
    // The text of a row, or of the row at a point of the viewport; empty
    // when there is none.
    QString memberAt(int row) const;
    QString memberAt(const QPoint& pos) const;
    // The first row with exactly this text; -1 when none.
    int rowOf(const QString& text) const;
    // The text of the current row; empty when there is none.
    QString currentMember() const;

signals:
    // A row was double-clicked; text is the row's.
    void memberDoubleClicked(const QString& text);

private:
    MemberListModel* m_members = nullptr;
};
