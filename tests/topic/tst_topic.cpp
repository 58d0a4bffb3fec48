#include "EditTopicDialog.h"
#include "EmojiPicker.h"
#include "TestMain.h"
#include "ThemeManager.h"

#include <QAction>
#include <QApplication>
#include <QColorDialog>
#include <QDialogButtonBox>
#include <QElapsedTimer>
#include <QGridLayout>
#include <QLabel>
#include <QPointer>
#include <QPushButton>
#include <QSignalSpy>
#include <QTextCursor>
#include <QTextEdit>
#include <QTimer>
#include <QToolBar>

#include <functional>
#include <memory>

namespace {

const QString B(QChar(0x02));
const QString I(QChar(0x1D));
const QString U(QChar(0x1F));
const QString C(QChar(0x03));

// The picker's content, written as code points so that the comparison is
// independent of how the source stores the characters.
struct ExpectedCategory
{
    QString title;
    QStringList emojis;
};

QString fromCodePoints(std::initializer_list<char32_t> codePoints)
{
    QString s;
    for (char32_t cp : codePoints)
        s += QString::fromUcs4(&cp, 1);
    return s;
}

QList<ExpectedCategory> expectedCategories()
{
    using CP = std::initializer_list<char32_t>;
    auto list = [](std::initializer_list<CP> items) {
        QStringList out;
        for (const CP& item : items)
            out << fromCodePoints(item);
        return out;
    };
    return {
        { fromCodePoints({ 0x421, 0x43C, 0x430, 0x439, 0x43B, 0x44B }),
            list({ { 0x1F600 }, { 0x1F603 }, { 0x1F604 }, { 0x1F601 }, { 0x1F605 }, { 0x1F602 }, { 0x1F923 },
                { 0x1F60A }, { 0x1F607 }, { 0x1F642 }, { 0x1F609 }, { 0x1F60C }, { 0x1F60D }, { 0x1F970 },
                { 0x1F618 }, { 0x1F617 } }) },
        { fromCodePoints({ 0x416, 0x435, 0x441, 0x442, 0x44B }),
            list({ { 0x1F44D }, { 0x1F44E }, { 0x1F44C }, { 0x270C, 0xFE0F }, { 0x1F91E }, { 0x1F91F },
                { 0x1F918 }, { 0x1F919 }, { 0x1F44B }, { 0x1F91A }, { 0x1F590, 0xFE0F }, { 0x270B },
                { 0x1F596 }, { 0x1F44F }, { 0x1F64C }, { 0x1F91D } }) },
        { fromCodePoints({ 0x421, 0x435, 0x440, 0x434, 0x446, 0x430 }),
            list({ { 0x2764, 0xFE0F }, { 0x1F9E1 }, { 0x1F49B }, { 0x1F49A }, { 0x1F499 }, { 0x1F49C },
                { 0x1F5A4 }, { 0x1F90D }, { 0x1F90E }, { 0x1F494 }, { 0x2763, 0xFE0F }, { 0x1F495 },
                { 0x1F49E }, { 0x1F493 }, { 0x1F497 }, { 0x1F496 } }) },
        { fromCodePoints({ 0x42D, 0x43C, 0x43E, 0x446, 0x438, 0x438 }),
            list({ { 0x1F525 }, { 0x2B50 }, { 0x1F31F }, { 0x2728 }, { 0x1F4AB }, { 0x1F389 }, { 0x1F38A },
                { 0x1F388 }, { 0x1F4AF }, { 0x2705 }, { 0x274C }, { 0x1F4A1 }, { 0x1F4A4 }, { 0x1F4A2 },
                { 0x1F4A3 }, { 0x1F4A5 } }) },
        { fromCodePoints({ 0x416, 0x438, 0x432, 0x43E, 0x442, 0x43D, 0x44B, 0x435 }),
            list({ { 0x1F436 }, { 0x1F431 }, { 0x1F42D }, { 0x1F439 }, { 0x1F430 }, { 0x1F98A }, { 0x1F43B },
                { 0x1F43C }, { 0x1F428 }, { 0x1F42F }, { 0x1F981 }, { 0x1F42E }, { 0x1F437 }, { 0x1F438 },
                { 0x1F435 }, { 0x1F414 } }) },
        { fromCodePoints({ 0x415, 0x434, 0x430 }),
            list({ { 0x1F34E }, { 0x1F355 }, { 0x1F354 }, { 0x1F35F }, { 0x1F369 }, { 0x1F36A }, { 0x1F382 },
                { 0x1F370 }, { 0x2615 }, { 0x1F375 }, { 0x1F37A }, { 0x1F377 }, { 0x1F378 }, { 0x1F379 },
                { 0x1F9C3 }, { 0x1F964 } }) },
    };
}

QGridLayout* emojiGrid(EmojiPicker& picker)
{
    auto* container = picker.findChild<QWidget*>(QStringLiteral("emojiContainer"));
    return container ? qobject_cast<QGridLayout*>(container->layout()) : nullptr;
}

QPushButton* emojiButton(EmojiPicker& picker, const QString& emoji)
{
    for (QPushButton* button : picker.findChildren<QPushButton*>())
        if (button->text() == emoji)
            return button;
    return nullptr;
}

QTextEdit* field(EditTopicDialog& dialog)
{
    return dialog.findChild<QTextEdit*>();
}

QAction* toolAction(EditTopicDialog& dialog, const QString& text)
{
    auto* bar = dialog.findChild<QToolBar*>();
    if (!bar)
        return nullptr;
    for (QAction* action : bar->actions())
        if (action->text() == text)
            return action;
    return nullptr;
}

// Selects [start, end) of the field's text (start == end: cursor only).
void placeCursor(QTextEdit* edit, int start, int end)
{
    QTextCursor cursor = edit->textCursor();
    cursor.setPosition(start);
    cursor.setPosition(end, QTextCursor::KeepAnchor);
    edit->setTextCursor(cursor);
}

struct ColorDialogSeen
{
    bool handled = false;
    QString title;
    QColor initial;
};

// Arms a handler for the next modal colour dialog: it records the title and
// the initial colour, then picks `pick` (or cancels when `pick` is invalid).
// It keeps looking every 20 ms for up to 10 s, for a busy machine.
std::shared_ptr<ColorDialogSeen> onColorDialog(const QColor& pick)
{
    auto seen = std::make_shared<ColorDialogSeen>();
    auto clock = std::make_shared<QElapsedTimer>();
    clock->start();
    auto poll = std::make_shared<std::function<void()>>();
    *poll = [seen, clock, poll, pick] {
        auto* dialog = qobject_cast<QColorDialog*>(QApplication::activeModalWidget());
        if (dialog) {
            seen->handled = true;
            seen->title = dialog->windowTitle();
            seen->initial = dialog->currentColor();
            if (pick.isValid()) {
                dialog->setCurrentColor(pick);
                dialog->accept();
            } else {
                dialog->reject();
            }
            *poll = nullptr; // break the cycle
            return;
        }
        if (clock->elapsed() < 10000)
            QTimer::singleShot(20, [poll] {
                if (*poll)
                    (*poll)();
            });
    };
    QTimer::singleShot(0, [poll] {
        if (*poll)
            (*poll)();
    });
    return seen;
}

} // namespace

class TestTopic : public QObject
{
    Q_OBJECT

private slots:
    // ---- Emoji picker: content ----

    void emojiGridInOrder()
    {
        EmojiPicker picker(nullptr, QStringLiteral("light"));
        QGridLayout* grid = emojiGrid(picker);
        QVERIFY(grid);
        QCOMPARE(grid->columnCount(), 8);

        int row = 0;
        int buttons = 0;
        for (const ExpectedCategory& category : expectedCategories()) {
            QLayoutItem* titleItem = grid->itemAtPosition(row, 0);
            QVERIFY(titleItem);
            auto* title = qobject_cast<QLabel*>(titleItem->widget());
            QVERIFY2(title, qPrintable(QStringLiteral("no title in row %1").arg(row)));
            QCOMPARE(title->text(), category.title);
            int r, c, rowSpan, columnSpan;
            grid->getItemPosition(grid->indexOf(title), &r, &c, &rowSpan, &columnSpan);
            QCOMPARE(columnSpan, 8);
            ++row;

            QCOMPARE(category.emojis.size(), 16);
            for (int i = 0; i < category.emojis.size(); ++i) {
                QLayoutItem* item = grid->itemAtPosition(row + i / 8, i % 8);
                QVERIFY(item);
                auto* button = qobject_cast<QPushButton*>(item->widget());
                QVERIFY(button);
                QCOMPARE(button->text(), category.emojis.at(i));
                QCOMPARE(button->toolTip(), category.emojis.at(i));
                QCOMPARE(button->size(), QSize(36, 36));
                QCOMPARE(button->cursor().shape(), Qt::PointingHandCursor);
                ++buttons;
            }
            row += 2;
        }
        QCOMPARE(buttons, 96);
        QCOMPARE(picker.findChildren<QPushButton*>().size(), 96);
        QCOMPARE(grid->rowCount(), row);
    }

    void emojiKeepsVariationSelectors()
    {
        EmojiPicker picker(nullptr, QStringLiteral("light"));
        for (char32_t base : { 0x270C, 0x1F590, 0x2764, 0x2763 }) {
            const QString withSelector = fromCodePoints({ base, 0xFE0F });
            QVERIFY2(emojiButton(picker, withSelector), qPrintable(QString::number(base, 16)));
            QVERIFY(!emojiButton(picker, fromCodePoints({ base })));
        }
    }

    void emojiPopupShape()
    {
        EmojiPicker picker(nullptr, QStringLiteral("light"));
        QVERIFY(picker.windowFlags().testFlag(Qt::Popup));
        QVERIFY(picker.windowFlags().testFlag(Qt::FramelessWindowHint));
        QVERIFY(picker.testAttribute(Qt::WA_TranslucentBackground));
        QVERIFY(picker.testAttribute(Qt::WA_ShowWithoutActivating));
        auto* container = picker.findChild<QWidget*>(QStringLiteral("emojiContainer"));
        QVERIFY(container);
        picker.adjustSize();
        QVERIFY(container->width() >= 320);
        QVERIFY(container->width() <= 340);
    }

    void emojiThemes_data()
    {
        QTest::addColumn<QString>("theme");
        QTest::addColumn<QString>("containerBackground");
        QTest::addColumn<QString>("titleColor");
        QTest::addColumn<QString>("buttonColors");
        QTest::newRow("light") << "light"
                               << "background-color: rgba(255,255,255,0.98)"
                               << "color: rgba(0,0,0,0.5);"
                               << "color: black; }QPushButton:hover { background: rgba(0,0,0,0.08); }"
                                  "QPushButton:pressed { background: rgba(0,0,0,0.15); }";
        QTest::newRow("dark") << "dark"
                              << "background-color: rgba(40,40,40,0.95)"
                              << "color: rgba(255,255,255,0.5);"
                              << "color: white; }QPushButton:hover { background: rgba(255,255,255,0.15); }"
                                 "QPushButton:pressed { background: rgba(255,255,255,0.25); }";
        QTest::newRow("glass") << "glass"
                               << "background-color: rgba(255,255,255,0.7)"
                               << "color: rgba(0,0,0,0.5);"
                               << "color: black; }QPushButton:hover { background: rgba(0,0,0,0.08); }"
                                  "QPushButton:pressed { background: rgba(0,0,0,0.15); }";
        QTest::newRow("unknown") << "Dark"
                                 << "background-color: rgba(255,255,255,0.98)"
                                 << "color: rgba(0,0,0,0.5);"
                                 << "color: black; }QPushButton:hover { background: rgba(0,0,0,0.08); }"
                                    "QPushButton:pressed { background: rgba(0,0,0,0.15); }";
    }

    void emojiThemes()
    {
        QFETCH(QString, theme);
        QFETCH(QString, containerBackground);
        QFETCH(QString, titleColor);
        QFETCH(QString, buttonColors);
        EmojiPicker picker(nullptr, theme);
        auto* container = picker.findChild<QWidget*>(QStringLiteral("emojiContainer"));
        QVERIFY(container);
        QVERIFY(container->styleSheet().startsWith(QStringLiteral("#emojiContainer {")));
        QVERIFY2(container->styleSheet().contains(containerBackground), qPrintable(container->styleSheet()));
        const QList<QLabel*> titles = picker.findChildren<QLabel*>();
        QCOMPARE(titles.size(), 6);
        for (QLabel* title : titles)
            QVERIFY2(title->styleSheet().startsWith(titleColor), qPrintable(title->styleSheet()));
        for (QPushButton* button : picker.findChildren<QPushButton*>())
            QVERIFY2(button->styleSheet().contains(buttonColors), qPrintable(button->styleSheet()));
    }

    // ---- Emoji picker: a choice ----

    void emojiChoiceEmitsAndCloses()
    {
        QPointer<EmojiPicker> picker = new EmojiPicker(nullptr, QStringLiteral("light"));
        picker->setAttribute(Qt::WA_DeleteOnClose);
        QSignalSpy spy(picker.data(), &EmojiPicker::emojiSelected);
        picker->show();
        QVERIFY(QTest::qWaitForWindowExposed(picker));

        const QString thumbsUp = fromCodePoints({ 0x1F44D });
        QPushButton* button = emojiButton(*picker, thumbsUp);
        QVERIFY(button);
        QTest::mouseClick(button, Qt::LeftButton);
        QTRY_COMPARE_WITH_TIMEOUT(spy.size(), 1, 5000);
        QCOMPARE(spy.at(0).at(0).toString(), thumbsUp);
        QTRY_VERIFY_WITH_TIMEOUT(picker.isNull(), 5000);
    }

    void emojiChoiceWithSelector()
    {
        EmojiPicker picker(nullptr, QStringLiteral("dark"));
        QSignalSpy spy(&picker, &EmojiPicker::emojiSelected);
        picker.show();
        QVERIFY(QTest::qWaitForWindowExposed(&picker));
        const QString heart = fromCodePoints({ 0x2764, 0xFE0F });
        QPushButton* button = emojiButton(picker, heart);
        QVERIFY(button);
        button->click();
        QCOMPARE(spy.size(), 1);
        QCOMPARE(spy.at(0).at(0).toString(), heart);
        QVERIFY(!picker.isVisible());
    }

    // ---- Emoji picker: placement ----

    void emojiPlacement_data()
    {
        QTest::addColumn<QRect>("button");
        QTest::addColumn<QSize>("popup");
        QTest::addColumn<QRect>("available");
        QTest::addColumn<QPoint>("expected");

        const QRect screen(0, 0, 1920, 1080);
        const QSize popup(340, 560);
        // Beside the button: vertically centred on its top edge, 5 px away.
        QTest::newRow("right") << QRect(100, 500, 30, 30) << popup << screen << QPoint(135, 220);
        QTest::newRow("left at right edge")
            << QRect(1800, 500, 30, 30) << popup << screen << QPoint(1455, 220);
        // "Fits on the right" is a strict comparison with available.right() (999 here).
        QTest::newRow("right, one short of the edge")
            << QRect(619, 500, 30, 30) << popup << QRect(0, 0, 1000, 1080) << QPoint(654, 220);
        QTest::newRow("left, exactly at the edge")
            << QRect(620, 500, 30, 30) << popup << QRect(0, 0, 1000, 1080) << QPoint(275, 220);
        // No room either side: centred above, or below when above is off-screen.
        QTest::newRow("above") << QRect(185, 800, 30, 30) << popup << QRect(0, 0, 400, 1080)
                               << QPoint(30, 235);
        QTest::newRow("below") << QRect(185, 100, 30, 30) << popup << QRect(0, 0, 400, 1080)
                               << QPoint(30, 135);
        QTest::newRow("below a top panel")
            << QRect(185, 300, 30, 30) << popup << QRect(0, 40, 400, 1040) << QPoint(30, 335);
        // Clamping keeps a 5-pixel gap.
        QTest::newRow("clamp bottom") << QRect(100, 1000, 30, 30) << popup << screen << QPoint(135, 514);
        QTest::newRow("clamp top") << QRect(100, 100, 30, 30) << popup << screen << QPoint(135, 5);
        QTest::newRow("clamp top, offset screen")
            << QRect(100, 100, 30, 30) << popup << QRect(0, 60, 1920, 1020) << QPoint(135, 65);
        QTest::newRow("clamp left") << QRect(10, 800, 30, 30) << QSize(380, 560) << QRect(0, 0, 400, 1080)
                                    << QPoint(5, 235);
        QTest::newRow("clamp right") << QRect(380, 800, 30, 30) << QSize(380, 560) << QRect(0, 0, 400, 1080)
                                     << QPoint(14, 235);
        QTest::newRow("second screen, right")
            << QRect(2000, 500, 30, 30) << popup << QRect(1920, 0, 1920, 1080) << QPoint(2035, 220);
        QTest::newRow("second screen, left")
            << QRect(3700, 500, 30, 30) << popup << QRect(1920, 0, 1920, 1080) << QPoint(3355, 220);
        // Odd sizes: integer division.
        QTest::newRow("odd height") << QRect(100, 500, 31, 31) << QSize(341, 561) << screen
                                    << QPoint(136, 220);
        QTest::newRow("odd width above")
            << QRect(185, 800, 31, 30) << QSize(341, 560) << QRect(0, 0, 400, 1080) << QPoint(30, 235);
    }

    void emojiPlacement()
    {
        QFETCH(QRect, button);
        QFETCH(QSize, popup);
        QFETCH(QRect, available);
        QFETCH(QPoint, expected);
        QCOMPARE(EmojiPicker::placement(button, popup, available), expected);
    }

    void emojiPlacementStaysOnScreen_data()
    {
        QTest::addColumn<int>("x");
        QTest::addColumn<int>("y");
        for (int x : { 0, 3, 200, 700, 1300, 1890, 1919 })
            for (int y : { 0, 2, 300, 800, 1050, 1079 })
                QTest::addRow("%d,%d", x, y) << x << y;
    }

    void emojiPlacementStaysOnScreen()
    {
        QFETCH(int, x);
        QFETCH(int, y);
        const QRect available(0, 0, 1920, 1080);
        const QSize popup(340, 560);
        const QPoint at = EmojiPicker::placement(QRect(x, y, 30, 30), popup, available);
        const QRect placed(at, popup);
        QVERIFY(placed.left() >= available.left());
        QVERIFY(placed.top() >= available.top());
        QVERIFY(at.x() + popup.width() <= available.right());
        QVERIFY(at.y() + popup.height() <= available.bottom());
    }

    void emojiPlaceBesideUsesSizeHint()
    {
        QWidget window;
        window.resize(200, 100);
        auto* button = new QPushButton(QStringLiteral("e"), &window);
        button->setGeometry(10, 10, 30, 30);
        window.show();
        QVERIFY(QTest::qWaitForWindowExposed(&window));

        EmojiPicker picker(&window, QStringLiteral("light"));
        picker.placeBeside(button);
        const QRect available = QGuiApplication::primaryScreen()->availableGeometry();
        const QRect anchor(button->mapToGlobal(QPoint(0, 0)), button->size());
        QCOMPARE(picker.pos(), EmojiPicker::placement(anchor, picker.sizeHint(), available));
    }

    // ---- Topic editor: construction ----

    void editorOpensRawTopic()
    {
        const QString raw = B + QStringLiteral("bold") + B + QStringLiteral(" see https://example.org ") + C
            + QStringLiteral("4,1red") + C + QStringLiteral(" ") + I + QStringLiteral("it") + I + U
            + QStringLiteral("un") + U + QStringLiteral(" <b>&amp;</b>");
        EditTopicDialog dialog(QStringLiteral("#chan"), raw, QStringLiteral("light"));
        QTextEdit* edit = field(dialog);
        QVERIFY(edit);
        QCOMPARE(edit->toPlainText(), raw);
        QVERIFY(!edit->acceptRichText());
        QCOMPARE(dialog.newTopic(), raw);
    }

    void editorShape()
    {
        EditTopicDialog dialog(QStringLiteral("#chan"), QString(), QStringLiteral("dark"));
        QCOMPARE(dialog.windowTitle(), QStringLiteral("Edit Topic for #chan"));
        QVERIFY(dialog.minimumWidth() >= 560);
        QVERIFY(dialog.minimumHeight() >= 380);
        QVERIFY(dialog.windowFlags().testFlag(Qt::WindowCloseButtonHint));
        QVERIFY(!dialog.windowFlags().testFlag(Qt::WindowMaximizeButtonHint));
        QVERIFY(!dialog.windowFlags().testFlag(Qt::WindowMinimizeButtonHint));

        auto* bar = dialog.findChild<QToolBar*>();
        QVERIFY(bar);
        QStringList texts;
        for (QAction* action : bar->actions()) {
            texts << action->text();
            QVERIFY(!action->icon().isNull());
        }
        QCOMPARE(texts,
            (QStringList { "Bold", "Italic", "Underline", "Text Color", "Background Color", "Emoji" }));
        QCOMPARE(bar->iconSize(), QSize(24, 24));
        QCOMPARE(bar->toolButtonStyle(), Qt::ToolButtonIconOnly);
        QCOMPARE(toolAction(dialog, "Bold")->shortcut(), QKeySequence(QKeySequence::Bold));
        QCOMPARE(toolAction(dialog, "Italic")->shortcut(), QKeySequence(QKeySequence::Italic));
        QCOMPARE(toolAction(dialog, "Underline")->shortcut(), QKeySequence(QKeySequence::Underline));

        auto* save = dialog.findChild<QPushButton*>(QStringLiteral("connectButton"));
        auto* cancel = dialog.findChild<QPushButton*>(QStringLiteral("cancelButton"));
        QVERIFY(save);
        QVERIFY(cancel);
        auto* box = dialog.findChild<QDialogButtonBox*>();
        QCOMPARE(box->standardButton(save), QDialogButtonBox::Save);
        QCOMPARE(box->standardButton(cancel), QDialogButtonBox::Cancel);
    }

    void editorIsWhiteInEveryTheme_data()
    {
        QTest::addColumn<QString>("theme");
        QTest::newRow("light") << "light";
        QTest::newRow("dark") << "dark";
        QTest::newRow("glass") << "glass";
    }

    void editorIsWhiteInEveryTheme()
    {
        QFETCH(QString, theme);
        EditTopicDialog dialog(QStringLiteral("#chan"), QStringLiteral("topic"), theme);
        QVERIFY(dialog.styleSheet().startsWith(ThemeManager::dialogStyleSheet(theme)));
        QVERIFY(dialog.styleSheet().endsWith(QStringLiteral(" QDialog { background-color: #FFFFFF; }")));
        QVERIFY(!dialog.testAttribute(Qt::WA_TranslucentBackground));

        dialog.show();
        QVERIFY(QTest::qWaitForWindowExposed(&dialog));
        const QImage image = dialog.grab().toImage();
        QCOMPARE(image.pixelColor(3, image.height() / 2), QColor(Qt::white));
    }

    // ---- Topic editor: formatting ----

    void formatting_data()
    {
        QTest::addColumn<QString>("action");
        QTest::addColumn<QString>("text");
        QTest::addColumn<int>("start");
        QTest::addColumn<int>("end");
        QTest::addColumn<QString>("expected");
        QTest::addColumn<int>("cursorAfter");

        const QString text = QStringLiteral("a word here");
        QTest::newRow("bold, no selection")
            << "Bold" << text << 2 << 2 << "a " + QString(B) + "word here" << 3;
        QTest::newRow("bold, selection") << "Bold" << text << 2 << 6 << "a " + B + "word" + B + " here" << 8;
        QTest::newRow("bold, backwards selection")
            << "Bold" << text << 6 << 2 << "a " + B + "word" + B + " here" << 8;
        QTest::newRow("italic, no selection") << "Italic" << text << 11 << 11 << text + I << 12;
        QTest::newRow("italic, selection")
            << "Italic" << text << 0 << 1 << I + QString("a") + I + " word here" << 3;
        QTest::newRow("underline, no selection") << "Underline" << text << 0 << 0 << U + text << 1;
        QTest::newRow("underline, selection")
            << "Underline" << text << 7 << 11 << "a word " + U + "here" + U << 13;
        QTest::newRow("bold, empty field") << "Bold" << QString() << 0 << 0 << QString(B) << 1;
    }

    void formatting()
    {
        QFETCH(QString, action);
        QFETCH(QString, text);
        QFETCH(int, start);
        QFETCH(int, end);
        QFETCH(QString, expected);
        QFETCH(int, cursorAfter);

        EditTopicDialog dialog(QStringLiteral("#chan"), text, QStringLiteral("light"));
        QTextEdit* edit = field(dialog);
        placeCursor(edit, start, end);
        QAction* act = toolAction(dialog, action);
        QVERIFY(act);
        act->trigger();
        QCOMPARE(edit->toPlainText(), expected);
        QCOMPARE(edit->textCursor().position(), cursorAfter);
        QVERIFY(!edit->textCursor().hasSelection());
    }

    void shortcutsInsert_data()
    {
        QTest::addColumn<QKeySequence>("keys");
        QTest::addColumn<QString>("expected");
        QTest::newRow("bold") << QKeySequence(QKeySequence::Bold) << "x" + QString(B) + "word" + B;
        QTest::newRow("italic") << QKeySequence(QKeySequence::Italic) << "x" + QString(I) + "word" + I;
        QTest::newRow("underline") << QKeySequence(QKeySequence::Underline) << "x" + QString(U) + "word" + U;
    }

    void shortcutsInsert()
    {
        QFETCH(QKeySequence, keys);
        QFETCH(QString, expected);
        EditTopicDialog dialog(QStringLiteral("#chan"), QStringLiteral("xword"), QStringLiteral("light"));
        dialog.show();
        QApplication::setActiveWindow(&dialog);
        QVERIFY(QTest::qWaitForWindowActive(&dialog));
        QTextEdit* edit = field(dialog);
        edit->setFocus();
        placeCursor(edit, 1, 5);
        QTest::keySequence(edit, keys);
        QTRY_COMPARE_WITH_TIMEOUT(edit->toPlainText(), expected, 5000);

        // Without a selection: one mark at the cursor.
        placeCursor(edit, 0, 0);
        QTest::keySequence(edit, keys);
        QTRY_COMPARE_WITH_TIMEOUT(edit->toPlainText(), expected.at(1) + expected, 5000);
    }

    void ctrlReturnSavesEscapeCancels_data()
    {
        QTest::addColumn<int>("key");
        QTest::addColumn<int>("modifiers");
        QTest::addColumn<int>("result");
        QTest::newRow("ctrl+return") << int(Qt::Key_Return) << int(Qt::ControlModifier)
                                     << int(QDialog::Accepted);
        QTest::newRow("escape") << int(Qt::Key_Escape) << int(Qt::NoModifier) << int(QDialog::Rejected);
    }

    void ctrlReturnSavesEscapeCancels()
    {
        QFETCH(int, key);
        QFETCH(int, modifiers);
        QFETCH(int, result);
        EditTopicDialog dialog(QStringLiteral("#chan"), QStringLiteral("old"), QStringLiteral("light"));
        dialog.setResult(-1);
        QSignalSpy finished(&dialog, &QDialog::finished);
        dialog.show();
        QApplication::setActiveWindow(&dialog);
        QVERIFY(QTest::qWaitForWindowActive(&dialog));
        field(dialog)->setFocus();
        QTest::keyClick(field(dialog), Qt::Key(key), Qt::KeyboardModifiers(modifiers));
        QTRY_COMPARE_WITH_TIMEOUT(finished.size(), 1, 5000);
        QCOMPARE(finished.at(0).at(0).toInt(), result);
        QCOMPARE(field(dialog)->toPlainText(), QStringLiteral("old"));
    }

    // ---- Topic editor: saving ----

    void newTopicTrimmed_data()
    {
        QTest::addColumn<QString>("typed");
        QTest::addColumn<QString>("expected");
        QTest::newRow("spaces") << "  new topic  "
                                << "new topic";
        QTest::newRow("tabs and newlines") << "\t\nnew topic\n \t"
                                           << "new topic";
        QTest::newRow("inner spaces kept") << " a  b "
                                           << "a  b";
        QTest::newRow("only spaces") << "   "
                                     << "";
        QTest::newRow("empty") << ""
                               << "";
        QTest::newRow("codes kept") << QString(" ") + B + "x" + B + " " << QString(B) + "x" + B;
    }

    void newTopicTrimmed()
    {
        QFETCH(QString, typed);
        QFETCH(QString, expected);
        EditTopicDialog dialog(QStringLiteral("#chan"), QStringLiteral("old"), QStringLiteral("light"));
        field(dialog)->setPlainText(typed);
        QCOMPARE(dialog.newTopic(), expected);
    }

    void saveAndCancelButtons()
    {
        EditTopicDialog dialog(QStringLiteral("#chan"), QStringLiteral("old"), QStringLiteral("light"));
        QTimer::singleShot(0, &dialog, [&dialog] {
            field(dialog)->setPlainText(QStringLiteral("  new topic  "));
            dialog.findChild<QPushButton*>(QStringLiteral("connectButton"))->click();
        });
        QCOMPARE(dialog.exec(), int(QDialog::Accepted));
        QCOMPARE(dialog.newTopic(), QStringLiteral("new topic"));

        QTimer::singleShot(0, &dialog,
            [&dialog] { dialog.findChild<QPushButton*>(QStringLiteral("cancelButton"))->click(); });
        QCOMPARE(dialog.exec(), int(QDialog::Rejected));
    }

    // ---- Topic editor: colours ----

    void nearestColor_data()
    {
        QTest::addColumn<QColor>("chosen");
        QTest::addColumn<int>("index");
        QTest::newRow("pure red") << QColor(255, 0, 0) << 4;
        QTest::newRow("#101010") << QColor(0x10, 0x10, 0x10) << 1;
        QTest::newRow("#FFFF40") << QColor(0xFF, 0xFF, 0x40) << 8;
        // Pale yellow is nearer to silver (12034) than to white (16129) or
        // yellow (16384).
        QTest::newRow("#FFFF80") << QColor(0xFF, 0xFF, 0x80) << 15;
        QTest::newRow("white") << QColor(Qt::white) << 0;
        QTest::newRow("black") << QColor(Qt::black) << 1;
        QTest::newRow("navy-ish") << QColor(0, 0, 0x70) << 2;
        QTest::newRow("orange") << QColor(0xFF, 0xA0, 0x10) << 7;
        QTest::newRow("silver") << QColor(0xC8, 0xC8, 0xC8) << 15;
        QTest::newRow("grey") << QColor(0x80, 0x80, 0x80) << 14;
        // Equally far from black (1) and navy (2): the lower index wins.
        QTest::newRow("tie") << QColor(0, 0, 0x40) << 1;
        QTest::newRow("hsv input") << QColor::fromHsv(0, 255, 255) << 4;
    }

    void nearestColor()
    {
        QFETCH(QColor, chosen);
        QFETCH(int, index);
        QCOMPARE(EditTopicDialog::nearestIrcColor(chosen), index);
    }

    void luminanceRule_data()
    {
        QTest::addColumn<int>("background");
        QTest::addColumn<int>("foreground");
        QTest::newRow("white") << 0 << 1;
        QTest::newRow("black") << 1 << 0;
        QTest::newRow("yellow") << 8 << 1;
        QTest::newRow("orange") << 7 << 1;
        QTest::newRow("red") << 4 << 0;
        QTest::newRow("green") << 9 << 1;
        QTest::newRow("blue") << 12 << 0;
        QTest::newRow("magenta") << 13 << 0;
        QTest::newRow("teal") << 10 << 0;
        QTest::newRow("silver") << 15 << 1;
        // 0.299*128 + 0.587*128 + 0.114*128 computes to 127.99..., truncated to 127.
        QTest::newRow("grey") << 14 << 0;
    }

    void luminanceRule()
    {
        QFETCH(int, background);
        QFETCH(int, foreground);
        QCOMPARE(EditTopicDialog::foregroundForBackground(background), foreground);
    }

    void colorInsertion_data()
    {
        QTest::addColumn<int>("index");
        QTest::addColumn<bool>("background");
        QTest::addColumn<QString>("selected");
        QTest::addColumn<QString>("expected");
        QTest::newRow("text, none") << 4 << false << "" << C + QStringLiteral("4");
        QTest::newRow("text, selection") << 12 << false << "hi" << C + QStringLiteral("12hi") + C;
        QTest::newRow("text, no padding") << 3 << false << "x" << C + QStringLiteral("3x") + C;
        QTest::newRow("background, none") << 8 << true << "" << C + QStringLiteral("1,8") + C;
        QTest::newRow("background, selection") << 1 << true << "hi" << C + QStringLiteral("0,1hi") + C;
        QTest::newRow("percent text stays") << 4 << true << "%1%2" << C + QStringLiteral("0,4%1%2") + C;
    }

    void colorInsertion()
    {
        QFETCH(int, index);
        QFETCH(bool, background);
        QFETCH(QString, selected);
        QFETCH(QString, expected);
        QCOMPARE(EditTopicDialog::colorInsertion(index, background, selected), expected);
    }

    void chooseColorThroughDialog_data()
    {
        QTest::addColumn<QString>("action");
        QTest::addColumn<QColor>("pick");
        QTest::addColumn<int>("start");
        QTest::addColumn<int>("end");
        QTest::addColumn<QString>("title");
        QTest::addColumn<QString>("expected");

        const QString red = QStringLiteral("Choose Text Color");
        const QString bg = QStringLiteral("Choose Background Color");
        // Field text: "a word here".
        QTest::newRow("red text, no selection")
            << "Text Color" << QColor(255, 0, 0) << 2 << 2 << red << "a " + C + "4word here";
        QTest::newRow("red text, selection")
            << "Text Color" << QColor(255, 0, 0) << 2 << 6 << red << "a " + C + "4word" + C + " here";
        QTest::newRow("#FFFF40 background, no selection")
            << "Background Color" << QColor(0xFF, 0xFF, 0x40) << 2 << 2 << bg
            << "a " + C + "1,8" + C + "word here";
        QTest::newRow("#101010 background, selection") << "Background Color" << QColor(0x10, 0x10, 0x10) << 2
                                                       << 6 << bg << "a " + C + "0,1word" + C + " here";
        QTest::newRow("#FFFF80 background") << "Background Color" << QColor(0xFF, 0xFF, 0x80) << 2 << 6 << bg
                                            << "a " + C + "1,15word" + C + " here";
        QTest::newRow("text cancelled") << "Text Color" << QColor() << 2 << 6 << red << "a word here";
        QTest::newRow("background cancelled")
            << "Background Color" << QColor() << 2 << 2 << bg << "a word here";
    }

    void chooseColorThroughDialog()
    {
        QFETCH(QString, action);
        QFETCH(QColor, pick);
        QFETCH(int, start);
        QFETCH(int, end);
        QFETCH(QString, title);
        QFETCH(QString, expected);

        EditTopicDialog dialog(
            QStringLiteral("#chan"), QStringLiteral("a word here"), QStringLiteral("light"));
        placeCursor(field(dialog), start, end);
        auto seen = onColorDialog(pick);
        toolAction(dialog, action)->trigger();
        QVERIFY(seen->handled);
        QCOMPARE(seen->title, title);
        QCOMPARE(seen->initial, QColor(Qt::white));
        QCOMPARE(field(dialog)->toPlainText(), expected);
    }

    // ---- Topic editor: emoji ----

    void emojiFromEditor()
    {
        EditTopicDialog dialog(QStringLiteral("#chan"), QStringLiteral("ab"), QStringLiteral("dark"));
        dialog.show();
        QVERIFY(QTest::qWaitForWindowExposed(&dialog));
        placeCursor(field(dialog), 1, 1);

        toolAction(dialog, QStringLiteral("Emoji"))->trigger();
        QPointer<EmojiPicker> picker = dialog.findChild<EmojiPicker*>();
        QVERIFY(picker);
        QVERIFY(picker->isVisible());
        QVERIFY(picker->testAttribute(Qt::WA_DeleteOnClose));
        QCOMPARE(picker->pos(), dialog.mapToGlobal(dialog.rect().center()) - QPoint(160, 150));
        // The picker follows the editor's theme.
        QVERIFY(picker->findChild<QLabel*>()->styleSheet().contains(QStringLiteral("rgba(255,255,255,0.5)")));

        const QString victory = fromCodePoints({ 0x270C, 0xFE0F });
        QPushButton* button = emojiButton(*picker, victory);
        QVERIFY(button);
        QTest::mouseClick(button, Qt::LeftButton);
        QTRY_VERIFY_WITH_TIMEOUT(picker.isNull(), 5000);
        QCOMPARE(field(dialog)->toPlainText(), QStringLiteral("a") + victory + QStringLiteral("b"));
        QCOMPARE(field(dialog)->textCursor().position(), 1 + int(victory.size()));
    }
};

QUENVAR_TEST_MAIN(TestTopic)
#include "tst_topic.moc"
