#include "NumericTreeWidgetItem.h"

#include <QTreeWidget>

bool NumericTreeWidgetItem::operator<(const QTreeWidgetItem& other) const
{
    const QTreeWidget* tree = treeWidget();
    const int column = tree ? tree->sortColumn() : 0;
    if (column == 1) {
        bool ok = false;
        bool otherOk = false;
        const int count = data(1, Qt::UserRole).toInt(&ok);
        const int otherCount = other.data(1, Qt::UserRole).toInt(&otherOk);
        if (ok && otherOk)
            return count < otherCount;
    }
    return text(column).compare(other.text(column), Qt::CaseInsensitive) < 0;
}
