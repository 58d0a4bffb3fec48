#pragma once

#include <QStyledItemDelegate>

// Paints the rows of the server list: plain text on the view's colours, with
// a favourite's leading marker drawn in gold.
class ServerListDelegate : public QStyledItemDelegate
{
    Q_OBJECT

public:
    using QStyledItemDelegate::QStyledItemDelegate;

    void paint(
        QPainter* painter, const QStyleOptionViewItem& option, const QModelIndex& index) const override;
};
