#include "HighlightTabBar.h"
#include "TestMain.h"
#include "ThemeManager.h"

#include <QCoreApplication>
#include <QImage>
#include <QLabel>
#include <QLineEdit>
#include <QMainWindow>
#include <QMap>
#include <QPointer>
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

using SheetFunction = QString (*)(const QString&);

const QMap<QString, SheetFunction>& sheets()
{
    static const QMap<QString, SheetFunction> all { { "global", &ThemeManager::globalStyleSheet },
        { "dialog", &ThemeManager::dialogStyleSheet }, { "lineEdit", &ThemeManager::lineEditStyleSheet },
        { "button", &ThemeManager::buttonStyleSheet },
        { "preferences", &ThemeManager::preferencesDialogStyleSheet } };
    return all;
}

QString sheetFor(const QString& name, const QString& theme)
{
    return sheets().value(name)(theme);
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

} // namespace

class TestAppearance : public QObject
{
    Q_OBJECT

private slots:
    // ---- ThemeManager ----

    void palette()
    {
        const QStringList light { "#F5F5F7", "#F0F0F0", "#333333", "#007AFF", "#0062CC", "#FFFFFF", "#D1D1D6",
            "#FF3B30", "false" };
        const QStringList dark { "#2E2E2E", "#1E1E1E", "#DDDDDD", "#007AFF", "#0062CC", "#3E3E3E", "#555555",
            "#FF3B30", "false" };
        QCOMPARE(paletteFields(ThemeManager::palette(QStringLiteral("light"))), light);
        QCOMPARE(paletteFields(ThemeManager::palette(QStringLiteral("dark"))), dark);
        // Only the exact name "dark" is dark; glass is not translucent either.
        for (const char* theme : { "glass", "", "Dark", " dark" })
            QVERIFY2(paletteFields(ThemeManager::palette(QString::fromLatin1(theme))) == light, theme);
    }

    // A few rules per sheet and theme: enough to notice the wrong sheet, the
    // wrong theme branch or a misplaced placeholder.
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

        row("global", "dark", "QMainWindow", "background-color", "#2E2E2E");
        row("global", "dark", "ChatView", "background-color", "#1E1E1E");
        row("global", "dark", "QTreeView#channelList", "alternate-background-color", "#252525");
        row("global", "dark", "QLabel#topicLabel", "color", "#DDDDDD");
        row("global", "light", "QMainWindow", "color", "#333333");
        row("global", "light", "QLineEdit:focus", "border", "2px solid #007AFF");
        row("global", "light", "QTreeView#channelList::item:selected", "background-color", "#007AFF");

        row("dialog", "dark", "QDialog", "background-color", "#2E2E2E");
        row("dialog", "dark", "QPushButton#cancelButton:hover", "background-color", "#5F1E1E");
        row("dialog", "dark", "QToolBar", "background-color", "#3E3E3E");
        row("dialog", "light", "QLabel", "color", "#333333");
        row("dialog", "light", "QPushButton#connectButton:hover", "background-color", "#0062CC");
        row("dialog", "light", "QToolBar", "background-color", "#F0F0F0");

        row("lineEdit", "dark", "QLineEdit", "background", "#3E3E3E");
        row("lineEdit", "light", "QLineEdit:focus", "border", "2px solid #007AFF");

        row("button", "dark", "QPushButton#cancelButton:hover", "background-color", "#5F1E1E");
        row("button", "light", "QPushButton#cancelButton:hover", "background-color", "#FFE5E5");

        // Preferences: form controls keep the light look in both themes.
        for (const char* theme : { "light", "dark" }) {
            row("preferences", theme, "QDialog", "background-color", "#FFFFFF");
            row("preferences", theme, "QLabel", "color", "#333333");
        }
        row("preferences", "dark", "QLineEdit", "border", "1px solid #555555");
        row("preferences", "dark", "QPushButton#prefsBgButton:hover", "background-color", "#1E3A5F");
        row("preferences", "dark", "QPushButton#cancelButton:hover", "background-color", "#5F1E1E");
        row("preferences", "dark", "QTabBar::tab:selected", "background-color", "#505050");
        row("preferences", "light", "QPushButton#connectButton", "background-color", "#007AFF");
        row("preferences", "light", "QTabWidget::pane", "border", "1px solid #F5F5F7");
        row("preferences", "light", "QTabBar::tab:selected", "background-color", "#007AFF");
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

    void sheetsAreSound_data()
    {
        QTest::addColumn<QString>("sheet");
        QTest::addColumn<QString>("theme");
        for (const QString& sheet : sheets().keys()) {
            for (const char* theme : { "light", "dark", "glass", "", "Dark" })
                QTest::addRow("%s/%s", qPrintable(sheet), theme) << sheet << theme;
        }
    }

    // Stable, fully filled in, well formed, accepted by Qt, and the light
    // sheet for every theme name but "dark".
    void sheetsAreSound()
    {
        QFETCH(QString, sheet);
        QFETCH(QString, theme);
        const QString text = sheetFor(sheet, theme);
        QCOMPARE(sheetFor(sheet, theme), text);
        QVERIFY2(!text.contains(QRegularExpression(QStringLiteral("%\\d"))), qPrintable(text));
        Rules rules;
        QVERIFY(parseSheet(text, &rules));
        QVERIFY(!rules.isEmpty());
        if (theme != QLatin1String("dark"))
            QCOMPARE(text, sheetFor(sheet, QStringLiteral("light")));
        else
            QVERIFY(text != sheetFor(sheet, QStringLiteral("light")));

        QTest::failOnWarning(QRegularExpression(QStringLiteral("Could not parse")));
        QMainWindow window;
        window.setCentralWidget(new QLineEdit);
        window.setStyleSheet(text);
        window.ensurePolished();
        window.centralWidget()->ensurePolished();
    }

    void preferencesTabsAreNotCapped()
    {
        for (const char* theme : { "light", "dark" }) {
            QTabWidget tabs;
            tabs.addTab(new QLabel(QStringLiteral("a")), QStringLiteral("A rather long page title here"));
            tabs.addTab(new QLabel(QStringLiteral("b")), QStringLiteral("X"));
            tabs.setStyleSheet(ThemeManager::preferencesDialogStyleSheet(QString::fromLatin1(theme)));
            tabs.show();
            QVERIFY(QTest::qWaitForWindowExposed(&tabs));
            const int longTitle
                = QFontMetrics(tabs.tabBar()->font()).horizontalAdvance("A rather long page title");
            QVERIFY2(tabs.tabBar()->tabRect(0).width() > longTitle, theme);
            QVERIFY2(tabs.tabBar()->tabRect(1).width() >= 80, theme);
        }
    }

    // ---- HighlightTabBar: state ----

    void outOfRangeIndexesAreIgnored()
    {
        auto bar = makeBar();
        const int timersBefore = blinkTimerCount(*bar);
        for (int index : { -1, bar->count(), std::numeric_limits<int>::min() }) {
            bar->highlightTab(index);
            QVERIFY(!bar->isHighlighted(index));
            bar->unhighlightTab(index);
        }
        QVERIFY(bar->highlights().isEmpty());
        QCOMPARE(blinkTimerCount(*bar), timersBefore);
    }

    void highlightLifecycle()
    {
        auto bar = makeBar();
        const int timersBefore = blinkTimerCount(*bar);
        bar->highlightTab(1);
        QVERIFY(bar->isHighlighted(1));
        QVERIFY(!bar->isHighlighted(0));
        QVERIFY(bar->highlights().value(1).blinkState);
        QPointer<QTimer> timer = bar->highlights().value(1).timer;
        QVERIFY(timer);
        QCOMPARE(timer->parent(), bar.get());
        QVERIFY(timer->isActive());
        QCOMPARE(timer->interval(), 500);

        // Highlighting again keeps the one timer.
        bar->highlightTab(1);
        QCOMPARE(bar->highlights().value(1).timer, timer.data());
        QCOMPARE(blinkTimerCount(*bar), timersBefore + 1);

        bar->unhighlightTab(1);
        QVERIFY(!bar->isHighlighted(1));
        QCOMPARE(bar->highlights().value(1).timer, nullptr);
        QVERIFY(timer); // deletion is deferred
        QVERIFY(!timer->isActive());
        releaseDeferredDeletes();
        QVERIFY(timer.isNull());
        QCOMPARE(blinkTimerCount(*bar), timersBefore);

        // A second unhighlight is harmless.
        bar->unhighlightTab(1);
        releaseDeferredDeletes();
        QCOMPARE(blinkTimerCount(*bar), timersBefore);

        // Highlighting again starts over, in the highlight colour.
        bar->highlightTab(1);
        QVERIFY(bar->isHighlighted(1));
        QVERIFY(bar->highlights().value(1).blinkState);
        QVERIFY(bar->highlights().value(1).timer && bar->highlights().value(1).timer->isActive());
    }

    void tabsBlinkIndependently()
    {
        auto bar = makeBar();
        const int timersBefore = blinkTimerCount(*bar);
        bar->highlightTab(1);
        bar->highlightTab(3);
        QCOMPARE(blinkTimerCount(*bar), timersBefore + 2);
        QPointer<QTimer> a = bar->highlights().value(1).timer;
        QPointer<QTimer> b = bar->highlights().value(3).timer;
        QVERIFY(a != b);
        bar->unhighlightTab(1);
        QVERIFY(bar->isHighlighted(3));
        QVERIFY(b->isActive());

        // Queries and unhighlighting a tab never highlighted create no records.
        QVERIFY(!bar->isHighlighted(0));
        bar->unhighlightTab(2);
        QCOMPARE(bar->highlights().keys(), (QList<int> { 1, 3 }));

        bar.reset();
        QVERIFY(a.isNull());
        QVERIFY(b.isNull());
    }

    void blinkStateTogglesAndFreezesOnUnhighlight()
    {
        auto bar = makeBar();
        bar->highlightTab(3);
        QTRY_VERIFY_WITH_TIMEOUT(!bar->highlights().value(3).blinkState, 10000);
        QTRY_VERIFY_WITH_TIMEOUT(bar->highlights().value(3).blinkState, 10000);
        QTRY_VERIFY_WITH_TIMEOUT(!bar->highlights().value(3).blinkState, 10000);
        bar->unhighlightTab(3);
        QTest::qWait(1200); // more than two blink intervals
        QVERIFY(!bar->highlights().value(3).blinkState);
        QVERIFY(!bar->isHighlighted(3));
    }

    // ---- HighlightTabBar: painting ----

    void highlightedTitlePaintsInHighlightColour_data()
    {
        QTest::addColumn<QString>("theme");
        QTest::addColumn<QColor>("colour");
        QTest::addColumn<QColor>("otherColour");
        QTest::newRow("light") << "light" << LightHighlight << DarkHighlight;
        QTest::newRow("dark") << "dark" << DarkHighlight << LightHighlight;
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
        QCOMPARE(countNear(grabBar(*bar), bar->tabRect(1), colour), 0);

        bar->highlightTab(1);
        const QImage on = grabBar(*bar);
        QVERIFY2(countNear(on, bar->tabRect(1), colour) > 20,
            qPrintable(QString::number(countNear(on, bar->tabRect(1), colour))));
        QCOMPARE(countNear(on, bar->tabRect(1), otherColour), 0);
        // Other tabs are untouched.
        QCOMPARE(countNear(on, bar->tabRect(0), colour), 0);
        QCOMPARE(countNear(on, bar->tabRect(2), colour), 0);
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
        const QImage image = grabBar(*bar);
        const int bold = countNear(image, bar->tabRect(2), LightHighlight);
        const int normal = countNear(image, bar->tabRect(3), LightHighlight);
        QVERIFY2(normal > 20, qPrintable(QString::number(normal)));
        QVERIFY2(
            bold > normal * 3 / 2, qPrintable(QStringLiteral("bold %1, normal %2").arg(bold).arg(normal)));
    }

    // The off phase drops the colour, a theme change shows at the next "on"
    // phase, and unhighlighting drops the colour for good.
    void blinkingRepaintsAndFollowsTheme()
    {
        auto bar = makeBar();
        bar->show();
        QVERIFY(QTest::qWaitForWindowExposed(bar.get()));
        bar->highlightTab(1);
        QVERIFY(countNear(grabBar(*bar), bar->tabRect(1), LightHighlight) > 20);

        QTRY_VERIFY_WITH_TIMEOUT(!bar->highlights().value(1).blinkState, 10000);
        QCOMPARE(countNear(grabBar(*bar), bar->tabRect(1), LightHighlight), 0);
        bar->setTheme(QStringLiteral("dark"));
        QVERIFY(bar->isHighlighted(1));
        QTRY_VERIFY_WITH_TIMEOUT(bar->highlights().value(1).blinkState, 10000);
        const QImage image = grabBar(*bar);
        QVERIFY(countNear(image, bar->tabRect(1), DarkHighlight) > 20);
        QCOMPARE(countNear(image, bar->tabRect(1), LightHighlight), 0);

        bar->unhighlightTab(1);
        QCOMPARE(countNear(grabBar(*bar), bar->tabRect(1), DarkHighlight), 0);
    }
};

QUENVAR_TEST_MAIN(TestAppearance)
#include "tst_appearance.moc"
