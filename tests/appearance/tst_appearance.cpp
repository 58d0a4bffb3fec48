#include "CertificateDialog.h"
#include "ChatView.h"
#include "ConnectDialog.h"
#include "Contrast.h"
#include "EditTopicDialog.h"
#include "EmojiPicker.h"
#include "HighlightTabBar.h"
#include "InfoBoxes.h"
#include "MyTabWidget.h"
#include "PreferencesDialog.h"
#include "ServerEditDialog.h"
#include "TestMain.h"
#include "TextDialog.h"
#include "ThemeManager.h"
#include "WindowHarness.h"

#include <QCheckBox>
#include <QComboBox>
#include <QCoreApplication>
#include <QFontDatabase>
#include <QImage>
#include <QLabel>
#include <QLineEdit>
#include <QListView>
#include <QMainWindow>
#include <QMap>
#include <QMenuBar>
#include <QPointer>
#include <QRegularExpression>
#include <QScreen>
#include <QStatusBar>
#include <QTabWidget>
#include <QTimer>
#include <QToolBar>
#include <QToolButton>
#include <QToolTip>
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

const QColor LightHighlight = ThemeManager::tabColours(QStringLiteral("light")).highlight;
const QColor DarkHighlight = ThemeManager::tabColours(QStringLiteral("dark")).highlight;

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

// ---- What a user reads ----

// The text drawn inside rect: the most common colour is taken for the
// background, the pixel that stands out most from it for the ink.
struct Ink
{
    QColor background;
    QColor ink;
    double ratio = 1;
};

Ink inkIn(const QImage& image, const QRect& rect)
{
    const QRect area = rect.intersected(image.rect());
    QHash<QRgb, int> counts;
    for (int y = area.top(); y <= area.bottom(); ++y) {
        for (int x = area.left(); x <= area.right(); ++x)
            ++counts[image.pixel(x, y)];
    }
    Ink result;
    const QList<QRgb> colours = counts.keys();
    result.background = QColor::fromRgba(*std::max_element(
        colours.cbegin(), colours.cend(), [&](QRgb a, QRgb b) { return counts.value(a) < counts.value(b); }));
    for (const QRgb colour : colours) {
        const double r = Contrast::ratio(QColor::fromRgba(colour), result.background);
        if (r > result.ratio)
            result = { result.background, QColor::fromRgba(colour), r };
    }
    return result;
}

struct Reading
{
    QString what;
    double ratio;
};

QImage snapshot(QWidget* widget)
{
    QImage image = widget->grab().toImage().convertToFormat(QImage::Format_ARGB32);
    image.setDevicePixelRatio(1);
    return image;
}

// Every text of a shown window with its contrast: labels, buttons, fields,
// tabs, rows of lists and tables, menus and the status bar read from the
// pixels; the chat rows from the colours each character is laid out in
// against the view's background, which must be what the view shows.
QList<Reading> readWindow(QWidget* top)
{
    QList<Reading> out;
    const QImage image = snapshot(top);
    const auto read = [&](QWidget* w, const QRect& local, const QString& text) {
        const QRect rect(w->mapTo(top, local.topLeft()), local.size());
        out.append({ QStringLiteral("%1 \"%2\"").arg(QString::fromLatin1(w->metaObject()->className()), text),
            inkIn(image, rect).ratio });
    };
    bool transparent = false;
    for (int y = 0; y < image.height() && !transparent; y += 3) {
        for (int x = 0; x < image.width() && !transparent; x += 3)
            transparent = qAlpha(image.pixel(x, y)) < 255;
    }
    if (transparent)
        out.append({ QStringLiteral("see-through background"), 1 });

    QList<QWidget*> widgets = top->findChildren<QWidget*>();
    widgets.prepend(top);
    for (QWidget* w : std::as_const(widgets)) {
        if (!w->isVisible() || !w->isEnabled())
            continue;
        if (auto* view = qobject_cast<ChatView*>(w)) {
            const QColor base = view->palette().color(QPalette::Base);
            const QColor shown = inkIn(snapshot(view->viewport()), view->viewport()->rect()).background;
            if (shown.rgb() != base.rgb())
                out.append(
                    { QStringLiteral("chat background %1 shown as %2").arg(base.name(), shown.name()), 1 });
            for (int row = 0; row < view->rowCount(); ++row) {
                const QString text = view->rowText(row);
                for (int pos = 0; pos < text.size(); ++pos) {
                    const QTextCharFormat format = view->formatAt(row, pos);
                    const QColor ink = format.hasProperty(QTextFormat::ForegroundBrush)
                        ? format.foreground().color()
                        : view->palette().color(QPalette::Text);
                    const QColor behind = format.hasProperty(QTextFormat::BackgroundBrush)
                        ? format.background().color()
                        : base;
                    if (!text.at(pos).isSpace())
                        out.append({ QStringLiteral("chat row \"%1\" at %2").arg(text).arg(pos),
                            Contrast::ratio(ink, behind) });
                }
            }
        } else if (auto* label = qobject_cast<QLabel*>(w)) {
            if (!label->text().trimmed().isEmpty())
                read(label, label->contentsRect(), label->text().left(40));
            // A family asked for by name must be one the machine has.
            const QFont font = label->font();
            if ((font.resolveMask() & (QFont::FamilyResolved | QFont::FamiliesResolved))
                && !QFontDatabase::families().contains(font.family()))
                out.append(
                    { QStringLiteral("\"%1\" in a missing font, %2").arg(label->text(), font.family()), 1 });
        } else if (auto* check = qobject_cast<QCheckBox*>(w)) {
            const int indicator = check->style()->pixelMetric(QStyle::PM_IndicatorWidth, nullptr, check) + 4;
            read(check, check->rect().adjusted(indicator, 0, 0, 0), check->text());
        } else if (auto* button = qobject_cast<QAbstractButton*>(w)) {
            // Emoji are pictures in their own colours.
            const bool emoji = !button->text().isEmpty()
                && QChar::category(button->text().toUcs4().constFirst()) == QChar::Symbol_Other;
            if (!button->text().isEmpty() && button->icon().isNull() && !emoji)
                read(button, button->rect().adjusted(3, 3, -3, -3), button->text());
        } else if (auto* edit = qobject_cast<QLineEdit*>(w)) {
            if (!edit->text().isEmpty())
                read(edit, edit->rect().adjusted(4, 4, -4, -4), edit->text());
        } else if (auto* combo = qobject_cast<QComboBox*>(w)) {
            read(combo, combo->rect().adjusted(4, 4, -30, -4), combo->currentText());
        } else if (auto* bar = qobject_cast<QTabBar*>(w)) {
            for (int i = 0; i < bar->count(); ++i) {
                QRect rect = bar->tabRect(i).adjusted(4, 4, -4, -2);
                for (const auto side : { QTabBar::LeftSide, QTabBar::RightSide }) {
                    if (QWidget* b = bar->tabButton(i, side))
                        rect = side == QTabBar::LeftSide
                            ? rect.adjusted(b->geometry().right() - rect.left(), 0, 0, 0)
                            : rect.adjusted(0, 0, b->geometry().left() - rect.right(), 0);
                }
                read(bar, rect, bar->tabText(i));
            }
        } else if (auto* items = qobject_cast<QAbstractItemView*>(w)) {
            for (int row = 0; row < items->model()->rowCount(items->rootIndex()); ++row) {
                const QModelIndex index = items->model()->index(row, 0, items->rootIndex());
                const QRect rect = items->visualRect(index).intersected(items->viewport()->rect());
                if (rect.height() > 8 && !index.data().toString().isEmpty())
                    read(items->viewport(), rect.adjusted(2, 1, -2, -1), index.data().toString());
            }
        } else if (auto* menu = qobject_cast<QMenu*>(w)) {
            for (QAction* action : menu->actions()) {
                if (!action->isSeparator())
                    read(menu, menu->actionGeometry(action).adjusted(2, 1, -2, -1), action->text());
            }
        } else if (auto* menuBar = qobject_cast<QMenuBar*>(w)) {
            for (QAction* action : menuBar->actions())
                read(menuBar, menuBar->actionGeometry(action).adjusted(2, 2, -2, -2), action->text());
        } else if (auto* status = qobject_cast<QStatusBar*>(w)) {
            if (!status->currentMessage().isEmpty())
                read(
                    status, QRect(4, 3, status->width() / 2, status->height() - 6), status->currentMessage());
        }
    }
    return out;
}

// The readings below what normal text needs, one a line.
QString belowMinimum(const QList<Reading>& readings)
{
    QStringList below;
    for (const Reading& r : readings) {
        if (r.ratio < Contrast::Minimum)
            below << QStringLiteral("%1: %2").arg(r.what).arg(r.ratio, 0, 'f', 2);
    }
    return below.join(QLatin1Char('\n'));
}

// A surface shows its windows in a theme and hands each to `read` while it is up.
using Reader = std::function<void(QWidget*)>;
using Surface = void (*)(const QString& theme, const Reader& read);

void showAndRead(QWidget* window, const Reader& read)
{
    window->show();
    QVERIFY(QTest::qWaitForWindowExposed(window));
    QCoreApplication::processEvents();
    read(window);
}

// A modal box opened by `open`: read while it runs, then closed.
void readModal(const std::function<void()>& open, const Reader& read)
{
    auto handle = ModalDriver::onModal<QDialog>([read](QDialog* dialog) {
        QTest::qWait(50);
        read(dialog);
        dialog->reject();
    });
    open();
    QVERIFY(handle->handled);
}

// A registered window in theme: a channel with a linked topic, members, rows
// from many nicks (so every nick colour), a notice, an action, a link, a
// status row, a mention in another tab (blinking), and a notification in the
// status bar.
std::unique_ptr<WindowHarness> chattingWindow(const QString& theme)
{
    auto h = std::make_unique<WindowHarness>();
    h->window->applyTheme(theme);
    if (!h->connectAndRegister())
        return nullptr;
    QByteArray lines = ":mynick!u@h JOIN #quenvar\n"
                       ":irc.test 332 mynick #quenvar :https://example.org/rules\n"
                       ":irc.test 353 mynick = #quenvar :mynick @op +voiced plain\n"
                       ":irc.test 366 mynick #quenvar :End\n"
                       ":mynick!u@h JOIN #side\n"
                       ":op!u@h PRIVMSG #side :mynick: look\n"
                       ":op!u@h MODE #quenvar +v plain\n"
                       ":op!u@h NOTICE #quenvar :a notice\n"
                       ":op!u@h PRIVMSG #quenvar :\x01"
                       "ACTION waves\x01\n"
                       ":op!u@h PRIVMSG #quenvar :see https://example.org and \x03"
                       "8yellow\x03 text\n";
    for (int i = 0; i < 40; ++i)
        lines += ":nick" + QByteArray::number(i * 7) + "!u@h PRIVMSG #quenvar :hello\n";
    h->serverSays(lines);
    MainWindow* w = h->window.get();
    w->tabWidget->setCurrentIndex(w->tabWidget->indexOf(w->network()->tabs.value("#quenvar").widget));
    w->statusBar()->showMessage(QStringLiteral("Mention: op in #side"));
    return h;
}

void mainWindow(const QString& theme, const Reader& read)
{
    auto h = chattingWindow(theme);
    QVERIFY(h);
    MainWindow* w = h->window.get();
    showAndRead(w, read);
    // The other half of the blink, and the channel list.
    const int side = w->tabWidget->indexOf(w->network()->tabs.value("#side").widget);
    const bool phase = w->tabBar->highlights().value(side).blinkState;
    QTRY_VERIFY_WITH_TIMEOUT(w->tabBar->highlights().value(side).blinkState != phase, 10000);
    read(w);
    w->inputLine->setText("/list");
    w->onSendInput();
    h->serverSays(":irc.test 321 mynick Channel :Users Name\n"
                  ":irc.test 322 mynick #small 9 :Online games\n"
                  ":irc.test 322 mynick #big 15 :The kernel\n"
                  ":irc.test 323 mynick :End of channel list.");
    read(w);
    for (QMenu* menu : w->menuBar()->findChildren<QMenu*>(QString(), Qt::FindDirectChildrenOnly)) {
        menu->popup(w->mapToGlobal(QPoint(40, 40)));
        QVERIFY(QTest::qWaitForWindowExposed(menu));
        menu->setActiveAction(menu->actions().constFirst());
        read(menu);
        menu->close();
    }
    QToolTip::showText(w->mapToGlobal(QPoint(60, 60)), QStringLiteral("Insert emoji"), w);
    const auto tip = [] {
        const QWidgetList tops = QApplication::topLevelWidgets();
        const auto it = std::find_if(tops.cbegin(), tops.cend(),
            [](const QWidget* top) { return top->inherits("QTipLabel") && top->isVisible(); });
        return it == tops.cend() ? nullptr : *it;
    };
    QTRY_VERIFY(tip());
    read(tip());
}

void connectDialog(const QString& theme, const Reader& read)
{
    ConnectDialog dialog;
    dialog.setCurrentTheme(theme);
    showAndRead(&dialog, read);
}

void serverEditDialog(const QString& theme, const Reader& read)
{
    ServerConfig config;
    config.nickname = QStringLiteral("mynick");
    ServerEditDialog dialog(QStringLiteral("Edit"), QStringLiteral("irc.test:6697"), config, theme);
    showAndRead(&dialog, read);
}

void topicEditor(const QString& theme, const Reader& read)
{
    EditTopicDialog dialog(QStringLiteral("#quenvar"), QStringLiteral("A topic"), theme);
    showAndRead(&dialog, read);
}

void textDialog(const QString& theme, const Reader& read)
{
    QString text;
    readModal(
        [&] {
            runTextDialog(nullptr, theme, { "Away", 400, "Away message:", "Lunch", "", "Set" }, &text);
        },
        read);
}

// The preferences over a window that is not connected.
void preferences(const QString& theme, const Reader& read)
{
    WindowHarness h;
    h.window->applyTheme(theme);
    showAndRead(h.window.get(), read);
    PreferencesDialog dialog(h.window.get());
    showAndRead(&dialog, read);
}

void infoBoxes(const QString& theme, const Reader& read)
{
    WindowHarness h;
    h.window->applyTheme(theme);
    readModal([&] { InfoBoxes::showAboutBox(h.window.get()); }, read);
    readModal([&] { InfoBoxes::showHelpBox(h.window.get()); }, read);
}

void emojiPicker(const QString& theme, const Reader& read)
{
    EmojiPicker picker(nullptr, theme);
    showAndRead(&picker, read);
}

void certificateDialog(const QString& theme, const Reader& read)
{
    IRCConnection::CertificateInfo info;
    info.host = QStringLiteral("irc.test");
    info.port = 6697;
    info.errors = QStringList { QStringLiteral("The certificate is self-signed") };
    info.subject = info.issuer = QStringLiteral("CN=irc.test");
    info.fingerprint = QStringLiteral("AB:CD");
    CertificateDialog dialog(info, theme);
    showAndRead(&dialog, read);
}

const std::pair<const char*, Surface> Surfaces[]
    = { { "main window", &mainWindow }, { "connect dialog", &connectDialog },
          { "server edit dialog", &serverEditDialog }, { "topic editor", &topicEditor },
          { "text dialog", &textDialog }, { "preferences", &preferences }, { "about and help", &infoBoxes },
          { "emoji picker", &emojiPicker }, { "certificate dialog", &certificateDialog } };

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
        row("preferences", "light", "QTabWidget::pane", "border", "1px solid #F5F5F7");
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
        // Only "dark" takes the dark highlight, made readable on the tabs.
        QTest::newRow("Dark") << "Dark" << QColor(0xFF, 0xB8, 0x00) << DarkHighlight;
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

    // A bold highlighted title that does not fit is cut to its tab: nothing
    // of it under the close button or in the next tab.
    void highlightedTitleStaysInItsTab()
    {
        for (const char* name : { "light", "dark" }) {
            const QString theme = QString::fromLatin1(name);
            HighlightTabBar bar;
            bar.setStyleSheet(ThemeManager::tabWidgetStyleSheet(theme));
            bar.setTheme(theme);
            bar.addTab(QStringLiteral("#MMMMMMMMMMMMMMMMMMMMMMMM"));
            bar.addTab(QStringLiteral("next"));
            auto* close = new QPushButton(QString(QChar(0x00D7)));
            close->setFixedSize(20, 20);
            close->setStyleSheet(QStringLiteral("QPushButton { background: transparent; border: none; }"));
            bar.setTabButton(0, QTabBar::LeftSide, close);
            bar.setCurrentIndex(1);
            bar.resize(bar.sizeHint());
            bar.show();
            QVERIFY(QTest::qWaitForWindowExposed(&bar));
            bar.highlightTab(0);
            const QImage image = grabBar(bar);
            const QColor highlight = ThemeManager::tabColours(theme).highlight;
            QVERIFY2(countNear(image, bar.tabRect(0), highlight, 8) > 20, name);
            QCOMPARE(countNear(image, close->geometry(), highlight, 8), 0);
            QCOMPARE(countNear(image, bar.tabRect(1), highlight, 8), 0);
        }
    }

    // The server edit dialog's combo popups show the hovered item in the
    // sheet's colours, readable.
    void comboPopupsShowTheirHover()
    {
        for (const char* theme : { "light", "dark", "glass" }) {
            ServerEditDialog dialog(QStringLiteral("Edit"), QStringLiteral("irc.test:6667"), ServerConfig(),
                QString::fromLatin1(theme));
            dialog.show();
            QVERIFY(QTest::qWaitForWindowExposed(&dialog));
            for (const char* name : { "authCombo", "encodingCombo" }) {
                auto* combo = dialog.findChild<QComboBox*>(QLatin1String(name));
                combo->setCurrentIndex(0);
                combo->showPopup();
                QAbstractItemView* view = combo->view();
                QVERIFY(QTest::qWaitForWindowExposed(view->window()));
                const QRect hovered = view->visualRect(view->model()->index(2, 0));
                const QRect plain = view->visualRect(view->model()->index(1, 0));
                QTest::mouseMove(view->viewport(), hovered.center());
                QTRY_VERIFY(view->currentIndex().row() == 2);
                const QImage image = snapshot(view->viewport());
                const Ink over = inkIn(image, hovered);
                const QString where = QStringLiteral("%1 %2").arg(QLatin1String(theme), QLatin1String(name));
                QVERIFY2(over.background != inkIn(image, plain).background, qPrintable(where));
                QVERIFY2(over.background.rgb() == ThemeManager::accentFill().rgb(), qPrintable(where));
                QVERIFY2(over.ratio >= Contrast::Minimum, qPrintable(where));
                combo->hidePopup();
            }
        }
    }

    // Every emoji button draws its emoji in colour, and the picker opened by
    // the topic editor at the foot of the screen stays on the screen.
    void emojiButtonsInColourAndOnScreen()
    {
        const auto colourful = [](QWidget* w) {
            const QImage image = snapshot(w);
            int n = 0;
            for (int y = 0; y < image.height(); ++y) {
                for (int x = 0; x < image.width(); ++x) {
                    const QColor c = image.pixelColor(x, y);
                    n += c.alpha() > 128 && c.hsvSaturation() > 100 && c.value() > 100;
                }
            }
            return n;
        };
        WindowHarness h;
        QVERIFY(colourful(h.window->emojiButton) > 20);

        EditTopicDialog editor(QStringLiteral("#quenvar"), QString(), QStringLiteral("light"));
        const QRect screen = QGuiApplication::primaryScreen()->availableGeometry();
        editor.show();
        QVERIFY(QTest::qWaitForWindowExposed(&editor));
        editor.move(screen.left(), screen.bottom() - editor.frameGeometry().height());
        auto* toolBar = editor.findChild<QToolBar*>();
        QAction* emoji = toolBar->actions().at(5);
        QVERIFY(colourful(toolBar->widgetForAction(emoji)) > 20);
        emoji->trigger();
        EmojiPicker* picker = editor.findChild<EmojiPicker*>();
        QVERIFY(picker && QTest::qWaitForWindowExposed(picker));
        QVERIFY2(screen.contains(picker->frameGeometry()),
            qPrintable(QStringLiteral("%1,%2 %3x%4")
                           .arg(picker->x())
                           .arg(picker->y())
                           .arg(picker->width())
                           .arg(picker->height())));
        QVERIFY(colourful(picker->findChildren<QPushButton*>().constFirst()) > 20);
    }

    // ---- Every text readable in every theme ----

    void textIsReadable_data()
    {
        QTest::addColumn<QString>("theme");
        QTest::addColumn<int>("surface");
        for (const char* theme : { "light", "dark", "glass" }) {
            for (int i = 0; i < int(std::size(Surfaces)); ++i)
                QTest::newRow(qPrintable(
                    QStringLiteral("%1/%2").arg(QLatin1String(theme), QLatin1String(Surfaces[i].first))))
                    << QString::fromLatin1(theme) << i;
        }
    }

    void textIsReadable()
    {
        QFETCH(QString, theme);
        QFETCH(int, surface);
        QList<Reading> readings;
        Surfaces[surface].second(theme, [&](QWidget* window) { readings += readWindow(window); });
        QVERIFY(!readings.isEmpty());
        const QString below = belowMinimum(readings);
        QVERIFY2(below.isEmpty(), qPrintable(below));
    }
};

QUENVAR_TEST_MAIN(TestAppearance)
#include "tst_appearance.moc"
