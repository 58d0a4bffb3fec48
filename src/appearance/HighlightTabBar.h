#pragma once

#include <QMap>
#include <QString>
#include <QTabBar>

class QPaintEvent;
class QTimer;

// Tab bar whose tabs can be marked highlighted: a highlighted tab's title is
// drawn bold and blinks between the highlight colour and the normal text
// colour every 500 ms until the tab is unhighlighted.
//
// Marks are kept by tab index, not by tab identity, and are not shifted when
// tabs are inserted or removed: unhighlight a tab before closing it, or accept
// that the mark stays with the index.
class HighlightTabBar : public QTabBar
{
    Q_OBJECT

public:
    struct HighlightInfo
    {
        bool highlighted = false;
        // True while the title is drawn in the highlight colour.
        bool blinkState = false;
        // The tab's blink timer (a child of the tab bar), null when not blinking.
        QTimer* timer = nullptr;
    };

    explicit HighlightTabBar(QWidget* parent = nullptr);

    // Stores the theme name ("dark" selects the dark highlight colour) and repaints.
    void setTheme(const QString& theme);
    void highlightTab(int index);
    void unhighlightTab(int index);
    bool isHighlighted(int index) const;
    // A dimmed tab's title is drawn grey (a channel the user is no longer in).
    // The mark moves with the tab.
    void setTabDimmed(int index, bool dimmed);
    bool isTabDimmed(int index) const { return tabData(index).toBool(); }

    // Read-only view of the per-index highlight records.
    const QMap<int, HighlightInfo>& highlights() const { return m_highlights; }

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    void startBlinking(int index);
    void stopBlinking(int index);
    void onBlink(int index);

    QMap<int, HighlightInfo> m_highlights;
    QString m_theme = QStringLiteral("light");
};
