#pragma once

#include <QTreeWidgetItem>

// A row of the channel list. Sorted by the "Users" column (1) it compares the
// user counts kept as integers under Qt::UserRole, so 9 comes before 10; by
// any other column, or when a row has no count, it compares the texts with
// case ignored.
class NumericTreeWidgetItem : public QTreeWidgetItem
{
public:
    using QTreeWidgetItem::QTreeWidgetItem;

    bool operator<(const QTreeWidgetItem& other) const override;
};
