#include "HighlightTabBar.h"

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
    const QColor highlightColor(
        m_theme == QLatin1String("dark") ? QStringLiteral("#FFD700") : QStringLiteral("#FFB800"));

    for (int i = 0; i < count(); ++i) {
        if (!event->region().intersects(tabRect(i)))
            continue;

        QStyleOptionTab option;
        initStyleOption(&option, i);

        const auto it = m_highlights.constFind(i);
        if (it == m_highlights.constEnd() || !it->highlighted) {
            if (!isTabDimmed(i)) {
                painter.drawControl(QStyle::CE_TabBarTab, option);
                continue;
            }
            const QString title = option.text;
            option.text.clear();
            painter.drawControl(QStyle::CE_TabBarTab, option);
            painter.save();
            QFont italic = painter.font();
            italic.setItalic(true);
            painter.setFont(italic);
            painter.setPen(QColor(m_theme == QLatin1String("dark") ? QStringLiteral("#9A9A9A") : QStringLiteral("#7A7A7A")));
            const QRect textRect = style()->subElementRect(QStyle::SE_TabBarTabText, &option, this);
            painter.drawText(textRect, Qt::AlignCenter | Qt::TextShowMnemonic, title);
            painter.restore();
            continue;
        }

        const bool on = it->blinkState;
        option.palette.setColor(QPalette::WindowText, on ? highlightColor : QColor());
        const QString text = option.text;
        option.text.clear();
        painter.drawControl(QStyle::CE_TabBarTab, option);

        painter.save();
        QFont boldFont = painter.font();
        boldFont.setBold(true);
        painter.setFont(boldFont);
        painter.setPen(on ? highlightColor : option.palette.color(QPalette::WindowText));
        const QRect textRect = style()->subElementRect(QStyle::SE_TabBarTabText, &option, this);
        // The tab was sized for the regular font; let the bold title run into
        // the padding rather than be cut at both ends.
        painter.drawText(textRect, Qt::AlignCenter | Qt::TextShowMnemonic | Qt::TextDontClip, text);
        painter.restore();
    }
}
