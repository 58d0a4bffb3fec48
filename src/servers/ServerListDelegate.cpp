#include "ServerListDelegate.h"

#include "ServerStore.h"

#include <QFontMetrics>
#include <QPainter>

void ServerListDelegate::paint(
    QPainter* painter, const QStyleOptionViewItem& option, const QModelIndex& index) const
{
    painter->save();

    const QPalette::ColorGroup group
        = (option.state & QStyle::State_Enabled) ? QPalette::Normal : QPalette::Disabled;
    QColor textColor = option.palette.color(group, QPalette::Text);
    QColor background = option.palette.color(group, QPalette::Base);
    if (option.state & QStyle::State_Selected) {
        textColor = option.palette.color(group, QPalette::HighlightedText);
        background = option.palette.color(group, QPalette::Highlight);
    } else if (option.state & QStyle::State_MouseOver) {
        background = option.palette.color(group, QPalette::AlternateBase);
    }
    painter->fillRect(option.rect, background);

    QFont font = option.font;
    const QVariant fontData = index.data(Qt::FontRole);
    if (fontData.canConvert<QFont>())
        font = qvariant_cast<QFont>(fontData).resolve(option.font);
    painter->setFont(font);

    QRect textRect = option.rect.adjusted(4, 0, -4, 0);
    QString text = index.data(Qt::DisplayRole).toString();
    const int flags = Qt::AlignLeft | Qt::AlignVCenter;
    if (text.startsWith(FavMarker)) {
        painter->setPen(QColor(QStringLiteral("#FFD700")));
        painter->drawText(textRect, flags, FavMarker);
        textRect.setLeft(textRect.left() + QFontMetrics(font).horizontalAdvance(FavMarker));
        text = text.mid(FavMarker.size());
    }
    painter->setPen(textColor);
    painter->drawText(textRect, flags, text);

    painter->restore();
}
