#include "HighlightTabBar.h"
#include "TestMain.h"
#include "ThemeManager.h"

#include <QCoreApplication>
#include <QDialog>
#include <QImage>
#include <QLabel>
#include <QLineEdit>
#include <QMainWindow>
#include <QMap>
#include <QPointer>
#include <QPushButton>
#include <QRegularExpression>
#include <QTabWidget>
#include <QTimer>
#include <memory>

namespace {

using Rules = QMap<QString, QMap<QString, QString>>;

// Splits a style sheet into selector -> (property -> value). Later rules for
// the same selector add to or override earlier ones, as in the cascade.
// Anything that is not a well-formed "selector { declarations }" run makes
// the parse fail.
bool parseSheet(const QString& sheet, Rules* rules)
{
    static const QRegularExpression ruleRe(QStringLiteral("\\s*([^{}]+?)\\s*\\{([^{}]*)\\}\\s*"));
    qsizetype pos = 0;
    while (pos < sheet.size()) {
        const auto match = ruleRe.match(
            sheet, pos, QRegularExpression::NormalMatch, QRegularExpression::AnchorAtOffsetMatchOption);
        if (!match.hasMatch())
            return sheet.mid(pos).trimmed().isEmpty();
        auto& declarations = (*rules)[match.captured(1).simplified()];
        const auto parts = match.captured(2).split(QLatin1Char(';'), Qt::SkipEmptyParts);
        for (const QString& part : parts) {
            if (part.trimmed().isEmpty())
                continue;
            const qsizetype colon = part.indexOf(QLatin1Char(':'));
            if (colon <= 0)
                return false;
            declarations.insert(part.left(colon).trimmed(), part.mid(colon + 1).simplified());
        }
        pos = match.capturedEnd();
    }
    return true;
}

QString sheetFor(const QString& name, const QString& theme)
{
    if (name == QLatin1String("global"))
        return ThemeManager::globalStyleSheet(theme);
    if (name == QLatin1String("dialog"))
        return ThemeManager::dialogStyleSheet(theme);
    if (name == QLatin1String("lineEdit"))
        return ThemeManager::lineEditStyleSheet(theme);
    if (name == QLatin1String("button"))
        return ThemeManager::buttonStyleSheet(theme);
    if (name == QLatin1String("preferences"))
        return ThemeManager::preferencesDialogStyleSheet(theme);
    return {};
}

const QStringList& sheetNames()
{
    static const QStringList names { "global", "dialog", "lineEdit", "button", "preferences" };
    return names;
}

QStringList paletteFields(const ThemeManager::Palette& p)
{
    return { p.windowBg, p.panelBg, p.textColor, p.accent, p.accentHover, p.inputBg, p.inputBorder,
        p.destructiveColor, p.useTranslucentBackground ? "true" : "false" };
}

// Pixels inside rect whose channels are all within tolerance of colour.
int countNear(const QImage& image, const QRect& rect, const QColor& colour, int tolerance = 24)
{
    int n = 0;
    const QRect area = rect.intersected(image.rect());
    for (int y = area.top(); y <= area.bottom(); ++y) {
        for (int x = area.left(); x <= area.right(); ++x) {
            const QColor c = image.pixelColor(x, y);
            if (qAbs(c.red() - colour.red()) <= tolerance && qAbs(c.green() - colour.green()) <= tolerance
                && qAbs(c.blue() - colour.blue()) <= tolerance)
                ++n;
        }
    }
    return n;
}

int blinkTimerCount(const HighlightTabBar& bar)
{
    return int(bar.findChildren<QTimer*>(Qt::FindDirectChildrenOnly).size());
}

void releaseDeferredDeletes()
{
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
}

const QColor LightHighlight(QStringLiteral("#FFB800"));
const QColor DarkHighlight(QStringLiteral("#FFD700"));

} // namespace

class TestAppearance : public QObject
{
    Q_OBJECT

private:
    // Tabs 2 and 3 share a title so a highlighted title can be compared with
    // the style's own rendering of the same text.
    std::unique_ptr<HighlightTabBar> makeBar()
    {
        auto bar = std::make_unique<HighlightTabBar>(nullptr);
        bar->addTab(QStringLiteral("Server"));
        bar->addTab(QStringLiteral("#quenvar"));
        bar->addTab(QStringLiteral("&MMMMMMMM"));
        bar->addTab(QStringLiteral("&MMMMMMMM"));
        bar->resize(bar->sizeHint());
        return bar;
    }

    QImage grabBar(HighlightTabBar& bar)
    {
        QImage image = bar.grab().toImage();
        image.setDevicePixelRatio(1);
        return image.scaled(bar.size());
    }

private slots:
    // ---- ThemeManager: palettes ----

    void palette_data()
    {
        QTest::addColumn<QString>("theme");
        QTest::addColumn<QStringList>("expected");
        const QStringList light { "#F5F5F7", "#F0F0F0", "#333333", "#007AFF", "#0062CC", "#FFFFFF", "#D1D1D6",
            "#FF3B30", "false" };
        const QStringList dark { "#2E2E2E", "#1E1E1E", "#DDDDDD", "#007AFF", "#0062CC", "#3E3E3E", "#555555",
            "#FF3B30", "false" };
        QTest::newRow("light") << "light" << light;
        QTest::newRow("dark") << "dark" << dark;
        QTest::newRow("glass") << "glass" << light;
        QTest::newRow("empty") << "" << light;
        QTest::newRow("capitalised Dark") << "Dark" << light;
        QTest::newRow("upper DARK") << "DARK" << light;
        QTest::newRow("padded dark") << " dark" << light;
        QTest::newRow("unknown") << "solarized" << light;
    }

    void palette()
    {
        QFETCH(QString, theme);
        QFETCH(QStringList, expected);
        QCOMPARE(paletteFields(ThemeManager::palette(theme)), expected);
    }

    void paletteFieldOrder()
    {
        const ThemeManager::Palette p { "a", "b", "c", "d", "e", "f", "g", "h", true };
        QCOMPARE(p.windowBg, QStringLiteral("a"));
        QCOMPARE(p.panelBg, QStringLiteral("b"));
        QCOMPARE(p.textColor, QStringLiteral("c"));
        QCOMPARE(p.accent, QStringLiteral("d"));
        QCOMPARE(p.accentHover, QStringLiteral("e"));
        QCOMPARE(p.inputBg, QStringLiteral("f"));
        QCOMPARE(p.inputBorder, QStringLiteral("g"));
        QCOMPARE(p.destructiveColor, QStringLiteral("h"));
        QVERIFY(p.useTranslucentBackground);
        QVERIFY(!ThemeManager::Palette().useTranslucentBackground);
    }

    // ---- ThemeManager: style sheets ----

    void sheetRules_data()
    {
        QTest::addColumn<QString>("sheet");
        QTest::addColumn<QString>("theme");
        QTest::addColumn<QString>("selector");
        QTest::addColumn<QString>("property");
        QTest::addColumn<QString>("value");

        auto row = [](const char* sheet, const char* theme, const char* selector, const char* property,
                       const char* value) {
            QTest::addRow("%s/%s/%s/%s", sheet, theme, selector, property)
                << sheet << theme << selector << property << value;
        };

        // Main window, dark.
        row("global", "dark", "QMainWindow", "background-color", "#2E2E2E");
        row("global", "dark", "QMainWindow", "color", "#DDDDDD");
        row("global", "dark", "QTextBrowser", "background-color", "#1E1E1E");
        row("global", "dark", "QTextBrowser", "border", "none");
        row("global", "dark", "QListWidget", "background-color", "#1E1E1E");
        row("global", "dark", "QLineEdit", "background-color", "#3E3E3E");
        row("global", "dark", "QLineEdit", "border", "1px solid #555555");
        row("global", "dark", "QMenuBar", "background-color", "#2E2E2E");
        row("global", "dark", "QMenuBar::item:selected", "background-color", "#505050");
        row("global", "dark", "QMenu", "border", "1px solid #555555");
        row("global", "dark", "QMenu::item:selected", "background-color", "#505050");
        row("global", "dark", "QHeaderView::section", "background-color", "#3E3E3E");
        row("global", "dark", "QHeaderView::section", "padding", "4px");
        row("global", "dark", "QTreeWidget", "alternate-background-color", "#252525");
        row("global", "dark", "QTreeWidget::item:hover", "background-color", "#3A3A3A");
        row("global", "dark", "QTreeWidget::item:selected", "background-color", "#505050");
        row("global", "dark", "QStatusBar", "background-color", "#2E2E2E");
        row("global", "dark", "QLabel#topicLabel", "color", "#DDDDDD");

        // Main window, light (glass shares it).
        for (const char* theme : { "light", "glass" }) {
            row("global", theme, "QMainWindow", "background-color", "#F5F5F7");
            row("global", theme, "QMainWindow", "color", "#333333");
            row("global", theme, "QTextBrowser", "border-radius", "8px");
            row("global", theme, "QTextBrowser", "padding", "4px");
            row("global", theme, "QListWidget", "background-color", "#FFFFFF");
            row("global", theme, "QLineEdit", "border", "1px solid #C6C6C8");
            row("global", theme, "QLineEdit", "padding", "6px 12px");
            row("global", theme, "QLineEdit", "font-size", "13px");
            row("global", theme, "QLineEdit:focus", "border", "2px solid #007AFF");
            row("global", theme, "QLineEdit:focus", "padding", "5px 11px");
            row("global", theme, "QMenuBar", "border-bottom", "1px solid #D1D1D6");
            row("global", theme, "QMenuBar::item:selected", "background-color", "rgba(0,0,0,0.08)");
            row("global", theme, "QMenu", "background-color", "#FFFFFF");
            row("global", theme, "QMenu::item:selected", "background-color", "#007AFF");
            row("global", theme, "QMenu::item:selected", "color", "#FFFFFF");
            row("global", theme, "QHeaderView::section", "background-color", "#F5F5F7");
            row("global", theme, "QTreeWidget", "alternate-background-color", "#F9F9FB");
            row("global", theme, "QTreeWidget::item:hover", "background-color", "#E8F0FE");
            row("global", theme, "QTreeWidget::item:selected", "background-color", "#007AFF");
            row("global", theme, "QStatusBar", "border-top", "1px solid #D1D1D6");
            row("global", theme, "QLabel#topicLabel", "background", "transparent");
        }

        // Dialogs.
        row("dialog", "dark", "QDialog", "background-color", "#2E2E2E");
        row("dialog", "dark", "QLabel", "color", "#DDDDDD");
        row("dialog", "dark", "QLineEdit", "border", "1px solid #555555");
        row("dialog", "dark", "QLineEdit", "background-color", "#3E3E3E");
        row("dialog", "dark", "QLineEdit", "selection-background-color", "#007AFF");
        row("dialog", "dark", "QLineEdit:focus", "border", "2px solid #007AFF");
        row("dialog", "dark", "QPushButton#connectButton", "background-color", "#007AFF");
        row("dialog", "dark", "QPushButton#connectButton", "padding", "10px 24px");
        row("dialog", "dark", "QPushButton#connectButton:hover", "background-color", "#0062CC");
        row("dialog", "dark", "QPushButton#cancelButton", "color", "#FF3B30");
        row("dialog", "dark", "QPushButton#cancelButton", "border", "1px solid #FF3B30");
        row("dialog", "dark", "QPushButton#cancelButton:hover", "background-color", "#5F1E1E");
        row("dialog", "dark", "QToolBar", "background-color", "#3E3E3E");
        row("dialog", "light", "QDialog", "background-color", "#F5F5F7");
        row("dialog", "light", "QLabel", "color", "#333333");
        row("dialog", "light", "QLineEdit", "border", "1px solid #D1D1D6");
        row("dialog", "light", "QLineEdit", "background-color", "#FFFFFF");
        row("dialog", "light", "QPushButton#cancelButton:hover", "background-color", "#FFE5E5");
        row("dialog", "light", "QPushButton#cancelButton", "font-weight", "500");
        row("dialog", "light", "QToolBar", "background-color", "#F0F0F0");
        row("dialog", "light", "QToolBar", "border", "none");

        // The button pair alone.
        row("button", "dark", "QPushButton#connectButton", "background-color", "#007AFF");
        row("button", "dark", "QPushButton#cancelButton:hover", "background-color", "#5F1E1E");
        row("button", "light", "QPushButton#connectButton:hover", "background-color", "#0062CC");
        row("button", "light", "QPushButton#cancelButton", "border", "1px solid #FF3B30");
        row("button", "light", "QPushButton#cancelButton:hover", "background-color", "#FFE5E5");

        // Preferences: form controls keep the light look in both themes.
        for (const char* theme : { "light", "dark" }) {
            row("preferences", theme, "QDialog", "background-color", "#FFFFFF");
            row("preferences", theme, "QLabel", "color", "#333333");
            row("preferences", theme, "QLineEdit", "min-width", "200px");
            row("preferences", theme, "QLineEdit#prefsSmallEdit", "max-width", "60px");
            row("preferences", theme, "QComboBox", "max-height", "28px");
            row("preferences", theme, "QSpinBox#prefsWideSpin", "max-width", "200px");
            row("preferences", theme, "QPushButton#prefsFontButton", "text-align", "left");
            row("preferences", theme, "QPushButton#prefsBgButton", "color", "#007AFF");
            row("preferences", theme, "QPushButton#prefsDeleteButton", "border", "1px solid #FF3B30");
        }
        row("preferences", "dark", "QLineEdit", "border", "1px solid #555555");
        row("preferences", "dark", "QLineEdit", "background-color", "#3E3E3E");
        row("preferences", "dark", "QPushButton#prefsFontButton:hover", "background-color", "#3E3E3E");
        row("preferences", "dark", "QPushButton#prefsBgButton:hover", "background-color", "#1E3A5F");
        row("preferences", "dark", "QPushButton#prefsDeleteButton:hover", "background-color", "#5F1E1E");
        row("preferences", "dark", "QPushButton#cancelButton:hover", "background-color", "#5F1E1E");
        row("preferences", "dark", "QTabWidget::pane", "background-color", "#2E2E2E");
        row("preferences", "dark", "QTabWidget::pane", "border", "1px solid #444");
        row("preferences", "dark", "QTabBar::tab", "background-color", "#3E3E3E");
        row("preferences", "dark", "QTabBar::tab", "border", "1px solid #555555");
        row("preferences", "dark", "QTabBar::tab", "border-bottom", "none");
        row("preferences", "dark", "QTabBar::tab", "color", "#CCCCCC");
        row("preferences", "dark", "QTabBar::tab:selected", "background-color", "#505050");
        row("preferences", "dark", "QTabBar::tab:selected", "font-weight", "bold");
        row("preferences", "dark", "QTabBar::tab:hover", "background-color", "#4A4A4A");
        row("preferences", "light", "QLineEdit", "border", "1px solid #D1D1D6");
        row("preferences", "light", "QPushButton#prefsFontButton:hover", "background-color", "#F0F0F0");
        row("preferences", "light", "QPushButton#prefsBgButton:hover", "background-color", "#E5F0FF");
        row("preferences", "light", "QPushButton#prefsDeleteButton:hover", "background-color", "#FFE5E5");
        row("preferences", "light", "QTabWidget::pane", "background-color", "#FFFFFF");
        row("preferences", "light", "QTabBar::tab", "padding", "6px 8px 6px 4px");
        row("preferences", "light", "QTabBar::tab", "font-size", "12px");
        row("preferences", "light", "QTabBar::tab:selected", "background-color", "#007AFF");
        row("preferences", "light", "QTabBar::tab:selected", "font-weight", "600");
        row("preferences", "light", "QTabBar::tab:hover:!selected", "background-color", "#E0E0E0");
        row("preferences", "light", "QTabBar::close-button", "margin-right", "6px");
        row("preferences", "light", "QTabBar::close-button:hover", "background", "rgba(0,0,0,0.1)");
        row("preferences", "light", "QTabBar::close-button:selected:hover", "background",
            "rgba(255,255,255,0.25)");
    }

    void sheetRules()
    {
        QFETCH(QString, sheet);
        QFETCH(QString, theme);
        QFETCH(QString, selector);
        QFETCH(QString, property);
        QFETCH(QString, value);

        Rules rules;
        QVERIFY2(parseSheet(sheetFor(sheet, theme), &rules), "malformed style sheet");
        QVERIFY2(rules.contains(selector), qPrintable("no rule for " + selector));
        QVERIFY2(rules.value(selector).contains(property), qPrintable("no " + property + " in " + selector));
        QCOMPARE(rules.value(selector).value(property), value);
    }

    void lightPreferencesPaneBorderIsWindowColour()
    {
        Rules rules;
        QVERIFY(parseSheet(ThemeManager::preferencesDialogStyleSheet(QStringLiteral("light")), &rules));
        QCOMPARE(rules.value("QTabWidget::pane").value("border"), QStringLiteral("1px solid #F5F5F7"));
    }

    void lineEditSheetText_data()
    {
        QTest::addColumn<QString>("theme");
        QTest::addColumn<QString>("expected");
        const QString tpl = QStringLiteral(
            "QLineEdit { border: 1px solid %1; border-radius: 6px; padding: 8px 12px; font-size: 14px; "
            "background: %2; color: %3; selection-background-color: %4; }"
            "QLineEdit:focus { border: 2px solid %4; padding: 7px 11px; }");
        QTest::newRow("light") << "light" << tpl.arg("#D1D1D6", "#FFFFFF", "#333333", "#007AFF");
        QTest::newRow("dark") << "dark" << tpl.arg("#555555", "#3E3E3E", "#DDDDDD", "#007AFF");
    }

    void lineEditSheetText()
    {
        QFETCH(QString, theme);
        QFETCH(QString, expected);
        QCOMPARE(ThemeManager::lineEditStyleSheet(theme), expected);
    }

    void preferencesSheetOrder_data()
    {
        QTest::addColumn<QString>("theme");
        QTest::newRow("light") << "light";
        QTest::newRow("dark") << "dark";
    }

    void preferencesSheetOrder()
    {
        QFETCH(QString, theme);
        const QString sheet = ThemeManager::preferencesDialogStyleSheet(theme);
        const qsizetype form = sheet.indexOf("QPushButton#prefsFontButton");
        const qsizetype buttons = sheet.indexOf(ThemeManager::buttonStyleSheet(theme));
        const qsizetype backgrounds = sheet.indexOf("QPushButton#prefsBgButton");
        const qsizetype tabs = sheet.indexOf("QTabWidget::pane");
        QVERIFY(form >= 0);
        QVERIFY(form < buttons);
        QVERIFY(buttons < backgrounds);
        QVERIFY(backgrounds < tabs);
    }

    void sheetsArePureAndComplete_data()
    {
        QTest::addColumn<QString>("sheet");
        QTest::addColumn<QString>("theme");
        for (const QString& sheet : sheetNames()) {
            for (const char* theme : { "light", "dark", "glass", "", "Dark" })
                QTest::addRow("%s/%s", qPrintable(sheet), theme) << sheet << theme;
        }
    }

    void sheetsArePureAndComplete()
    {
        QFETCH(QString, sheet);
        QFETCH(QString, theme);
        const QString first = sheetFor(sheet, theme);
        QVERIFY(!first.isEmpty());
        QCOMPARE(sheetFor(sheet, theme), first);
        QVERIFY2(!first.contains(QRegularExpression(QStringLiteral("%\\d"))), qPrintable(first));
        Rules rules;
        QVERIFY(parseSheet(first, &rules));
        QVERIFY(!rules.isEmpty());
        // Every theme name but "dark" gets exactly the light sheet.
        if (theme != QLatin1String("dark"))
            QCOMPARE(first, sheetFor(sheet, QStringLiteral("light")));
        else
            QVERIFY(first != sheetFor(sheet, QStringLiteral("light")));
    }

    void sheetsAreAcceptedByQt_data() { sheetsArePureAndComplete_data(); }

    void sheetsAreAcceptedByQt()
    {
        QFETCH(QString, sheet);
        QFETCH(QString, theme);
        QTest::failOnWarning(QRegularExpression(QStringLiteral("Could not parse")));
        QMainWindow window;
        auto* central = new QWidget(&window);
        new QLineEdit(central);
        new QPushButton(QStringLiteral("OK"), central);
        window.setCentralWidget(central);
        window.setStyleSheet(sheetFor(sheet, theme));
        window.ensurePolished();
        central->ensurePolished();
        const auto children = central->findChildren<QWidget*>();
        for (QWidget* child : children)
            child->ensurePolished();
        QVERIFY(!window.styleSheet().isEmpty());
    }

    void preferencesTabsAreNotCapped_data() { preferencesSheetOrder_data(); }

    void preferencesTabsAreNotCapped()
    {
        QFETCH(QString, theme);
        QTabWidget tabs;
        tabs.addTab(new QLabel(QStringLiteral("a")), QStringLiteral("A rather long page title here"));
        tabs.addTab(new QLabel(QStringLiteral("b")), QStringLiteral("X"));
        tabs.setStyleSheet(ThemeManager::preferencesDialogStyleSheet(theme));
        tabs.show();
        QVERIFY(QTest::qWaitForWindowExposed(&tabs));
        const QFontMetrics metrics(tabs.tabBar()->font());
        QVERIFY(tabs.tabBar()->tabRect(0).width() > metrics.horizontalAdvance("A rather long page title"));
        QVERIFY(tabs.tabBar()->tabRect(1).width() >= 80);
    }

    // ---- HighlightTabBar: state ----

    void outOfRangeIndexesAreIgnored_data()
    {
        QTest::addColumn<int>("index");
        QTest::newRow("-1") << -1;
        QTest::newRow("count") << 4;
        QTest::newRow("far") << 1000;
        QTest::newRow("int min") << std::numeric_limits<int>::min();
    }

    void outOfRangeIndexesAreIgnored()
    {
        QFETCH(int, index);
        auto bar = makeBar();
        QCOMPARE(bar->count(), 4);
        const int timersBefore = blinkTimerCount(*bar);
        bar->highlightTab(index);
        QVERIFY(!bar->isHighlighted(index));
        QVERIFY(bar->highlights().isEmpty());
        QCOMPARE(blinkTimerCount(*bar), timersBefore);
        bar->unhighlightTab(index);
        QVERIFY(bar->highlights().isEmpty());
    }

    void highlightStartsBlinking()
    {
        auto bar = makeBar();
        const int timersBefore = blinkTimerCount(*bar);
        bar->highlightTab(1);
        QVERIFY(bar->isHighlighted(1));
        QVERIFY(!bar->isHighlighted(0));
        QVERIFY(!bar->isHighlighted(2));
        const auto info = bar->highlights().value(1);
        QVERIFY(info.highlighted);
        QVERIFY(info.blinkState);
        QVERIFY(info.timer);
        QCOMPARE(info.timer->parent(), bar.get());
        QVERIFY(info.timer->isActive());
        QCOMPARE(info.timer->interval(), 500);
        QVERIFY(!info.timer->isSingleShot());
        QCOMPARE(blinkTimerCount(*bar), timersBefore + 1);
    }

    void highlightingTwiceKeepsOneTimer()
    {
        auto bar = makeBar();
        const int timersBefore = blinkTimerCount(*bar);
        bar->highlightTab(2);
        QTimer* timer = bar->highlights().value(2).timer;
        bar->highlightTab(2);
        bar->highlightTab(2);
        QCOMPARE(blinkTimerCount(*bar), timersBefore + 1);
        QCOMPARE(bar->highlights().value(2).timer, timer);
        QCOMPARE(bar->highlights().size(), 1);
    }

    void eachHighlightedTabHasItsOwnTimer()
    {
        auto bar = makeBar();
        const int timersBefore = blinkTimerCount(*bar);
        bar->highlightTab(1);
        bar->highlightTab(3);
        QCOMPARE(blinkTimerCount(*bar), timersBefore + 2);
        QVERIFY(bar->highlights().value(1).timer != bar->highlights().value(3).timer);
        bar->unhighlightTab(1);
        QVERIFY(!bar->isHighlighted(1));
        QVERIFY(bar->isHighlighted(3));
        QVERIFY(bar->highlights().value(3).timer->isActive());
    }

    void unhighlightStopsAndReleasesTimer()
    {
        auto bar = makeBar();
        const int timersBefore = blinkTimerCount(*bar);
        bar->highlightTab(1);
        QPointer<QTimer> timer = bar->highlights().value(1).timer;
        QVERIFY(timer);

        bar->unhighlightTab(1);
        QVERIFY(!bar->isHighlighted(1));
        QVERIFY(bar->highlights().contains(1)); // the entry stays, only the flag is cleared
        QCOMPARE(bar->highlights().value(1).timer, nullptr);
        QVERIFY(timer); // deletion is deferred
        QVERIFY(!timer->isActive());

        releaseDeferredDeletes();
        QVERIFY(timer.isNull());
        QCOMPARE(blinkTimerCount(*bar), timersBefore);

        // A second unhighlight is harmless.
        bar->unhighlightTab(1);
        releaseDeferredDeletes();
        QVERIFY(!bar->isHighlighted(1));
        QCOMPARE(blinkTimerCount(*bar), timersBefore);
    }

    void unhighlightKeepsLastBlinkState()
    {
        auto bar = makeBar();
        bar->highlightTab(1);
        QTRY_VERIFY_WITH_TIMEOUT(!bar->highlights().value(1).blinkState, 10000);
        bar->unhighlightTab(1);
        QVERIFY(!bar->highlights().value(1).blinkState);
        QTest::qWait(1200); // more than two blink intervals
        QVERIFY(!bar->highlights().value(1).blinkState);
        QVERIFY(!bar->isHighlighted(1));
    }

    void highlightAgainRestartsBlinking()
    {
        auto bar = makeBar();
        bar->highlightTab(0);
        QPointer<QTimer> first = bar->highlights().value(0).timer;
        bar->unhighlightTab(0);
        releaseDeferredDeletes();
        QVERIFY(first.isNull());
        bar->highlightTab(0);
        QVERIFY(bar->isHighlighted(0));
        QVERIFY(bar->highlights().value(0).blinkState);
        QVERIFY(bar->highlights().value(0).timer);
        QVERIFY(bar->highlights().value(0).timer->isActive());
    }

    void queriesCreateNoEntries()
    {
        auto bar = makeBar();
        QVERIFY(!bar->isHighlighted(0));
        QVERIFY(!bar->isHighlighted(3));
        QVERIFY(!bar->isHighlighted(-5));
        bar->unhighlightTab(2); // never highlighted
        QVERIFY(bar->highlights().isEmpty());
    }

    void blinkStateToggles()
    {
        auto bar = makeBar();
        bar->highlightTab(3);
        QVERIFY(bar->highlights().value(3).blinkState);
        QTRY_VERIFY_WITH_TIMEOUT(!bar->highlights().value(3).blinkState, 10000);
        QTRY_VERIFY_WITH_TIMEOUT(bar->highlights().value(3).blinkState, 10000);
        QVERIFY(bar->isHighlighted(3));
    }

    void timersDieWithTheBar()
    {
        auto bar = makeBar();
        bar->highlightTab(1);
        bar->highlightTab(2);
        QPointer<QTimer> a = bar->highlights().value(1).timer;
        QPointer<QTimer> b = bar->highlights().value(2).timer;
        bar.reset();
        QVERIFY(a.isNull());
        QVERIFY(b.isNull());
    }

    // ---- HighlightTabBar: painting ----

    void highlightedTitlePaintsInHighlightColour_data()
    {
        QTest::addColumn<QString>("theme");
        QTest::addColumn<QColor>("colour");
        QTest::addColumn<QColor>("otherColour");
        QTest::newRow("light") << "light" << LightHighlight << DarkHighlight;
        QTest::newRow("dark") << "dark" << DarkHighlight << LightHighlight;
        QTest::newRow("glass") << "glass" << LightHighlight << DarkHighlight;
        QTest::newRow("Dark") << "Dark" << LightHighlight << DarkHighlight;
    }

    void highlightedTitlePaintsInHighlightColour()
    {
        QFETCH(QString, theme);
        QFETCH(QColor, colour);
        QFETCH(QColor, otherColour);
        auto bar = makeBar();
        bar->setTheme(theme);
        bar->show();
        QVERIFY(QTest::qWaitForWindowExposed(bar.get()));

        const QImage before = grabBar(*bar);
        QCOMPARE(countNear(before, bar->tabRect(1), colour), 0);

        bar->highlightTab(1);
        QVERIFY(bar->highlights().value(1).blinkState);
        const QImage on = grabBar(*bar);
        QVERIFY2(countNear(on, bar->tabRect(1), colour) > 20,
            qPrintable(QString::number(countNear(on, bar->tabRect(1), colour))));
        QCOMPARE(countNear(on, bar->tabRect(1), otherColour), 0);
        // Other tabs are untouched.
        QCOMPARE(countNear(on, bar->tabRect(0), colour), 0);
        QCOMPARE(countNear(on, bar->tabRect(2), colour), 0);
    }

    void blinkOffPaintsWithoutHighlightColour()
    {
        auto bar = makeBar();
        bar->show();
        QVERIFY(QTest::qWaitForWindowExposed(bar.get()));
        bar->highlightTab(2);
        QTRY_VERIFY_WITH_TIMEOUT(!bar->highlights().value(2).blinkState, 10000);
        const QImage off = grabBar(*bar);
        QCOMPARE(countNear(off, bar->tabRect(2), LightHighlight), 0);

        QTRY_VERIFY_WITH_TIMEOUT(bar->highlights().value(2).blinkState, 10000);
        QVERIFY(countNear(grabBar(*bar), bar->tabRect(2), LightHighlight) > 20);

        bar->unhighlightTab(2);
        QCOMPARE(countNear(grabBar(*bar), bar->tabRect(2), LightHighlight), 0);
    }

    void highlightedTitleIsBold()
    {
        // Tab 3 has the same title drawn by the style at normal weight in the
        // same colour; the highlighted title must carry clearly more ink.
        auto bar = makeBar();
        bar->setTabTextColor(3, LightHighlight);
        bar->show();
        QVERIFY(QTest::qWaitForWindowExposed(bar.get()));
        bar->highlightTab(2);
        QVERIFY(bar->highlights().value(2).blinkState);
        const QImage image = grabBar(*bar);
        const int bold = countNear(image, bar->tabRect(2), LightHighlight);
        const int normal = countNear(image, bar->tabRect(3), LightHighlight);
        QVERIFY2(normal > 20, qPrintable(QString::number(normal)));
        QVERIFY2(
            bold > normal * 3 / 2, qPrintable(QStringLiteral("bold %1, normal %2").arg(bold).arg(normal)));
    }

    void themeChangeTakesEffectAtNextBlink()
    {
        auto bar = makeBar();
        bar->show();
        QVERIFY(QTest::qWaitForWindowExposed(bar.get()));
        bar->highlightTab(1);
        QVERIFY(countNear(grabBar(*bar), bar->tabRect(1), LightHighlight) > 20);

        QTRY_VERIFY_WITH_TIMEOUT(!bar->highlights().value(1).blinkState, 10000);
        bar->setTheme(QStringLiteral("dark"));
        QVERIFY(bar->isHighlighted(1));
        QTRY_VERIFY_WITH_TIMEOUT(bar->highlights().value(1).blinkState, 10000);
        const QImage image = grabBar(*bar);
        QVERIFY(countNear(image, bar->tabRect(1), DarkHighlight) > 20);
        QCOMPARE(countNear(image, bar->tabRect(1), LightHighlight), 0);
    }
};

QUENVAR_TEST_MAIN(TestAppearance)
#include "tst_appearance.moc"
