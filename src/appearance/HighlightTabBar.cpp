#include "HighlightTabBar.h"

#include "ThemeManager.h"

#include <QColor>
#include <QPaintEvent>
#include <QStyleOptionTab>
#include <QStylePainter>
#include <QTimer>

namespace {

constexpr int BlinkIntervalMs = 500;

} // namespace

HighlightTabBar::HighlightTabBar(QWidget* parent)
    : QTabBar(parent)
{ }

void HighlightTabBar::setTheme(const QString& theme)
{
    m_theme = theme;
    update();
}

void HighlightTabBar::highlightTab(int index)
{
    if (index < 0 || index >= count())
        return;
    HighlightInfo& info = m_highlights[index];
    if (info.highlighted)
        return;
    info.highlighted = true;
    info.blinkState = true;
    startBlinking(index);
    update();
}

void HighlightTabBar::unhighlightTab(int index)
{
    if (index < 0 || index >= count())
        return;
    const auto it = m_highlights.find(index);
    if (it == m_highlights.end() || !it->highlighted)
        return;
    it->highlighted = false;
    stopBlinking(index);
    update();
}

bool HighlightTabBar::isHighlighted(int index) const
{
    const auto it = m_highlights.constFind(index);
    return it != m_highlights.constEnd() && it->highlighted;
}

void HighlightTabBar::startBlinking(int index)
{
    stopBlinking(index);
    auto* timer = new QTimer(this);
    timer->setInterval(BlinkIntervalMs);
    timer->setSingleShot(false);
    connect(timer, &QTimer::timeout, this, [this, index] { onBlink(index); });
    m_highlights[index].timer = timer;
    timer->start();
}

void HighlightTabBar::stopBlinking(int index)
{
    const auto it = m_highlights.find(index);
    if (it == m_highlights.end() || !it->timer)
        return;
    it->timer->stop();
    // The timer may be the sender of the timeout being handled right now.
    it->timer->deleteLater();
    it->timer = nullptr;
}

void HighlightTabBar::onBlink(int index)
{
    const auto it = m_highlights.find(index);
    if (it == m_highlights.end() || !it->highlighted)
        return;
    it->blinkState = !it->blinkState;
    update(tabRect(index));
}

void HighlightTabBar::setTabDimmed(int index, bool dimmed)
{
    if (index < 0 || index >= count() || isTabDimmed(index) == dimmed)
        return;
    setTabData(index, dimmed ? QVariant(true) : QVariant());
    update(tabRect(index));
}

void HighlightTabBar::paintEvent(QPaintEvent* event)
{
    QStylePainter painter(this);
    // The colours of the chat window's tabs in this theme: the title of a
    // highlighted tab alternates between the highlight colour and the tabs'
    // own text colour.
    const ThemeManager::TabColours colours = ThemeManager::tabColours(m_theme);

    for (int i = 0; i < count(); ++i) {
        if (!event->region().intersects(tabRect(i)))
            continue;

        QStyleOptionTab option;
        initStyleOption(&option, i);

        const auto it = m_highlights.constFind(i);
        const bool highlighted = it != m_highlights.constEnd() && it->highlighted;
        if (!highlighted && !isTabDimmed(i)) {
            painter.drawControl(QStyle::CE_TabBarTab, option);
            continue;
        }

        QColor pen = colours.dimmedText;
        QFont font = painter.font();
        font.setItalic(!highlighted);
        if (highlighted) {
            pen = it->blinkState ? colours.highlight : colours.text;
            option.palette.setColor(QPalette::WindowText, pen);
            font.setBold(true);
        }
        const QString title = option.text;
        option.text.clear();
        painter.drawControl(QStyle::CE_TabBarTab, option);

        painter.save();
        painter.setFont(font);
        painter.setPen(pen);
        const QRect textRect = style()->subElementRect(QStyle::SE_TabBarTabText, &option, this);
        // The tab was sized for the regular font: a bold title that does not
        // fit is cut with an ellipsis rather than run over its neighbours.
        const QString shown
            = QFontMetrics(font).elidedText(title, Qt::ElideRight, textRect.width(), Qt::TextShowMnemonic);
        painter.drawText(textRect, Qt::AlignCenter | Qt::TextShowMnemonic, shown);
        painter.restore();
    }
}
