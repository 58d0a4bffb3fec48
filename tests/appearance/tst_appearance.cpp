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

#include <QAbstractItemView>
#include <QCheckBox>
#include <QComboBox>
#include <QLabel>
#include <QLineEdit>
#include <QMenuBar>
#include <QRegularExpression>
#include <QStatusBar>

namespace {

QImage snapshot(QWidget* widget)
{
    QImage image = widget->grab().toImage().convertToFormat(QImage::Format_ARGB32);
    image.setDevicePixelRatio(1);
    return image;
}

template <typename Visit> void forEachPixel(const QImage& image, const QRect& rect, Visit visit)
{
    const QRect area = rect.intersected(image.rect());
    for (int y = area.top(); y <= area.bottom(); ++y) {
        for (int x = area.left(); x <= area.right(); ++x)
            visit(image.pixel(x, y));
    }
}

// Pixels inside rect whose channels are all within tolerance of colour.
int countNear(const QImage& image, const QRect& rect, const QColor& colour, int tolerance = 24)
{
    int n = 0;
    forEachPixel(image, rect, [&](QRgb c) {
        n += qAbs(qRed(c) - colour.red()) <= tolerance && qAbs(qGreen(c) - colour.green()) <= tolerance
            && qAbs(qBlue(c) - colour.blue()) <= tolerance;
    });
    return n;
}

// ---- What a user reads ----

// The text drawn inside rect: the most common colour is taken for the
// background, the pixel that stands out most from it for the ink. Returns the
// background and the contrast of the ink on it.
std::pair<QColor, double> inkIn(const QImage& image, const QRect& rect)
{
    QHash<QRgb, int> counts;
    forEachPixel(image, rect, [&counts](QRgb c) { ++counts[c]; });
    const QList<QRgb> colours = counts.keys();
    const QColor background = QColor::fromRgba(*std::max_element(
        colours.cbegin(), colours.cend(), [&](QRgb a, QRgb b) { return counts.value(a) < counts.value(b); }));
    double ratio = 1;
    for (const QRgb colour : colours)
        ratio = qMax(ratio, Contrast::ratio(QColor::fromRgba(colour), background));
    return { background, ratio };
}

// The texts of a shown window below the contrast normal text needs, one a
// line: labels, buttons, fields, tabs, rows of lists and tables, menus and
// the status bar read from the pixels; the chat rows from the colours each
// character is laid out in against the view's background, which must be what
// the view shows.
QStringList unreadable(QWidget* top)
{
    QStringList out;
    const auto note = [&out](const QString& what, double ratio) {
        if (ratio < Contrast::Minimum)
            out << QStringLiteral("%1: %2").arg(what).arg(ratio, 0, 'f', 2);
    };
    const QImage image = snapshot(top);
    const auto read = [&](QWidget* w, const QRect& local, const QString& text) {
        const QRect rect(w->mapTo(top, local.topLeft()), local.size());
        note(QStringLiteral("%1 \"%2\"").arg(QString::fromLatin1(w->metaObject()->className()), text),
            inkIn(image, rect).second);
    };
    bool opaque = true;
    forEachPixel(image, image.rect(), [&opaque](QRgb c) { opaque = opaque && qAlpha(c) == 255; });
    if (!opaque)
        return { QStringLiteral("see-through background") };
    QList<QWidget*> widgets = top->findChildren<QWidget*>();
    widgets.prepend(top);
    for (QWidget* w : std::as_const(widgets)) {
        if (!w->isVisible() || !w->isEnabled())
            continue;
        if (auto* view = qobject_cast<ChatView*>(w)) {
            const QColor base = view->palette().color(QPalette::Base);
            const QColor shown = inkIn(snapshot(view->viewport()), view->viewport()->rect()).first;
            if (shown.rgb() != base.rgb())
                note(QStringLiteral("chat background %1 shown as %2").arg(base.name(), shown.name()), 1);
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
                        note(QStringLiteral("chat row \"%1\" at %2").arg(text).arg(pos),
                            Contrast::ratio(ink, behind));
                }
            }
        } else if (auto* label = qobject_cast<QLabel*>(w)) {
            if (!label->text().trimmed().isEmpty())
                read(label, label->contentsRect(), label->text().left(40));
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
                if (QWidget* b = bar->tabButton(i, QTabBar::LeftSide))
                    rect.setLeft(b->geometry().right());
                if (QWidget* b = bar->tabButton(i, QTabBar::RightSide))
                    rect.setRight(b->geometry().left());
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

// A surface shows its windows in a theme and hands each to `read` while it is up.
using Reader = std::function<void(QWidget*)>;

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

// Every window in theme, each handed to `read` while it is up: a registered
// window with a channel with a linked topic, members, rows from many nicks
// (so every nick colour), a notice, an action, a link, a mention in another
// tab (read in both phases of its blinking; the second time under a plain
// topic), a notification, the channel list and every menu; then a window not
// connected with the preferences, the about and help boxes, the server
// dialogs and the popups.
void showEverything(const QString& theme, const Reader& read)
{
    WindowHarness h;
    h.window->applyTheme(theme);
    QVERIFY(h.connectAndRegister());
    QByteArray lines
        = ":mynick!u@h JOIN #quenvar\n:irc.test 332 mynick #quenvar :https://example.org/rules\n"
          ":irc.test 353 mynick = #quenvar :mynick @op +voiced plain\n:irc.test 366 mynick #quenvar :End\n"
          ":mynick!u@h JOIN #side\n:op!u@h PRIVMSG #side :mynick: look\n:op!u@h MODE #quenvar +v plain\n"
          ":op!u@h NOTICE #quenvar :a notice\n:op!u@h PRIVMSG #quenvar :\x01"
          "ACTION waves\x01\n"
          ":op!u@h PRIVMSG #quenvar :see https://example.org and \x03"
          "8yellow\x03 text\n";
    for (int i = 0; i < 40; ++i)
        lines += ":nick" + QByteArray::number(i * 7) + "!u@h PRIVMSG #quenvar :hello\n";
    h.serverSays(lines);
    MainWindow* w = h.window.get();
    w->tabWidget->setCurrentWidget(w->network()->tabs.value("#quenvar").widget);
    w->statusBar()->showMessage(QStringLiteral("Mention: op in #side"));
    showAndRead(w, read);
    const int side = w->tabWidget->indexOf(w->network()->tabs.value("#side").widget);
    const bool phase = w->tabBar->highlights().value(side).blinkState;
    QTRY_VERIFY_WITH_TIMEOUT(w->tabBar->highlights().value(side).blinkState != phase, 10000);
    h.serverSays(":op!u@h TOPIC #quenvar :Be nice"); // a link would outshine the label's own colour
    read(w);
    w->inputLine->setText("/list");
    w->onSendInput();
    h.serverSays(":irc.test 321 mynick Channel :Users Name\n:irc.test 322 mynick #small 9 :Online games\n"
                 ":irc.test 322 mynick #big 15 :The kernel\n:irc.test 323 mynick :End of channel list.");
    read(w);
    for (QMenu* menu : w->menuBar()->findChildren<QMenu*>(QString(), Qt::FindDirectChildrenOnly)) {
        menu->popup(w->mapToGlobal(QPoint(40, 40)));
        QVERIFY(QTest::qWaitForWindowExposed(menu));
        menu->setActiveAction(menu->actions().constFirst());
        read(menu);
        menu->close();
    }

    WindowHarness idle;
    idle.window->applyTheme(theme);
    showAndRead(idle.window.get(), read);
    PreferencesDialog preferences(idle.window.get());
    showAndRead(&preferences, read);
    readModal([&] { InfoBoxes::showAboutBox(idle.window.get()); }, read);
    readModal([&] { InfoBoxes::showHelpBox(idle.window.get()); }, read);
    ConnectDialog connect;
    connect.setCurrentTheme(theme);
    showAndRead(&connect, read);
    ServerConfig config;
    config.nickname = QStringLiteral("mynick");
    ServerEditDialog editor(QStringLiteral("Edit"), QStringLiteral("irc.test:6697"), config, theme);
    showAndRead(&editor, read);
    for (QComboBox* combo : editor.findChildren<QComboBox*>()) { // a hovered row of each popup
        combo->showPopup();
        QAbstractItemView* view = combo->view();
        QVERIFY(QTest::qWaitForWindowExposed(view->window()));
        QTest::mouseMove(view->viewport(), view->visualRect(view->model()->index(2, 0)).center());
        QTRY_COMPARE(view->currentIndex().row(), 2);
        read(view->window());
        combo->hidePopup();
    }
    const IRCConnection::CertificateInfo info { "irc.test", 6697, { "The certificate is self-signed" },
        "CN=irc.test", "CN=irc.test", "", "", "AB:CD" };
    CertificateDialog certificate(info, theme);
    showAndRead(&certificate, read);
    EditTopicDialog topic(QStringLiteral("#quenvar"), QStringLiteral("A topic"), theme);
    showAndRead(&topic, read);
    EmojiPicker picker(nullptr, theme);
    showAndRead(&picker, read);
    QString text;
    const TextDialogFields fields { "Away", 400, "Away message:", "Lunch", "", "Set" };
    readModal([&] { runTextDialog(nullptr, theme, fields, &text); }, read);
}

} // namespace

class TestAppearance : public QObject
{
    Q_OBJECT

private slots:
    void textIsReadable_data()
    {
        QTest::addColumn<QString>("theme");
        for (const char* theme : { "light", "dark", "glass" })
            QTest::newRow(theme) << QString::fromLatin1(theme);
    }

    void textIsReadable()
    {
        QFETCH(QString, theme);
        // A sheet Qt cannot parse is dropped silently: fail on its warning instead.
        QTest::failOnWarning(QRegularExpression(QStringLiteral("Could not parse")));
        QStringList below;
        int windows = 0;
        showEverything(theme, [&](QWidget* window) {
            below += unreadable(window);
            ++windows;
        });
        QVERIFY(windows >= 14);
        QVERIFY2(below.isEmpty(), qPrintable(below.join('\n')));
    }

    // ---- HighlightTabBar ----

    void highlightedTitle_data()
    {
        QTest::addColumn<QString>("theme");
        QTest::addColumn<QColor>("colour");
        QTest::addColumn<QColor>("otherColour");
        const QColor light = ThemeManager::tabColours("light").highlight;
        const QColor dark = ThemeManager::tabColours("dark").highlight;
        QTest::addRow("light") << "light" << light << dark;
        QTest::addRow("dark") << "dark" << dark << light;
        // Only "dark" takes the dark highlight, made readable on the tabs.
        QTest::addRow("Dark") << "Dark" << QColor(0xFF, 0xB8, 0x00) << dark;
    }

    // In the theme's colour and bold (more ink than the style's own title of
    // the same text in the same colour), other tabs untouched; blinking on a
    // timer of its own until unhighlighted (indexes out of range ignored); a
    // title that does not fit is cut to its tab, nothing under its close button.
    void highlightedTitle()
    {
        QFETCH(QString, theme);
        QFETCH(QColor, colour);
        QFETCH(QColor, otherColour);
        // Tabs 2 and 3 share a title: the style's own rendering of it is the measure.
        auto bar = std::make_unique<HighlightTabBar>(nullptr);
        for (const char* title : { "Server", "#quenvar", "&MMMMMMMM", "&MMMMMMMM" })
            bar->addTab(QString::fromLatin1(title));
        bar->resize(bar->sizeHint());
        bar->setTheme(theme);
        bar->setTabTextColor(3, colour);
        bar->show();
        QVERIFY(QTest::qWaitForWindowExposed(bar.get()));
        const auto timers = [&bar] { return bar->findChildren<QTimer*>(Qt::FindDirectChildrenOnly).size(); };
        const auto idle = timers();
        for (int index : { -1, bar->count(), std::numeric_limits<int>::min() }) {
            bar->highlightTab(index);
            bar->unhighlightTab(index);
        }
        QVERIFY(bar->highlights().isEmpty());
        const auto lit = [&bar, &colour] { return countNear(snapshot(bar.get()), bar->tabRect(2), colour); };
        QCOMPARE(lit(), 0);
        bar->highlightTab(2);
        bar->highlightTab(2);
        QCOMPARE(timers(), idle + 1);
        const QImage on = snapshot(bar.get());
        const int normal = countNear(on, bar->tabRect(3), colour);
        QVERIFY2(normal > 20 && lit() > normal * 3 / 2,
            qPrintable(QStringLiteral("%1, %2").arg(lit()).arg(normal)));
        QCOMPARE(countNear(on, bar->tabRect(2), otherColour), 0);
        QCOMPARE(countNear(on, bar->tabRect(0), colour) + countNear(on, bar->tabRect(1), colour), 0);
        QTRY_VERIFY_WITH_TIMEOUT(!bar->highlights().value(2).blinkState, 10000);
        QCOMPARE(lit(), 0);
        QTRY_VERIFY_WITH_TIMEOUT(bar->highlights().value(2).blinkState, 10000);
        QVERIFY(lit() > 20);
        bar->unhighlightTab(2);
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
        QCOMPARE(timers(), idle);
        QTest::qWait(1200); // more than two blink intervals
        QCOMPARE(lit(), 0);

        HighlightTabBar cut;
        cut.setStyleSheet(ThemeManager::tabWidgetStyleSheet(theme));
        cut.setTheme(theme);
        cut.addTab(QStringLiteral("#MMMMMMMMMMMMMMMMMMMMMMMM"));
        cut.addTab(QStringLiteral("next"));
        auto* close = new QPushButton(QString(QChar(0x00D7)));
        close->setFixedSize(20, 20);
        close->setStyleSheet(QStringLiteral("QPushButton { background: transparent; border: none; }"));
        cut.setTabButton(0, QTabBar::LeftSide, close);
        cut.setCurrentIndex(1);
        cut.resize(cut.sizeHint());
        cut.show();
        QVERIFY(QTest::qWaitForWindowExposed(&cut));
        cut.highlightTab(0);
        const QImage image = snapshot(&cut);
        QVERIFY(countNear(image, cut.tabRect(0), colour, 8) > 20);
        QCOMPARE(
            countNear(image, close->geometry(), colour, 8) + countNear(image, cut.tabRect(1), colour, 8), 0);
    }
};

QUENVAR_TEST_MAIN(TestAppearance)
#include "tst_appearance.moc"
