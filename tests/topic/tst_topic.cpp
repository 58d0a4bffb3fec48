#include "EditTopicDialog.h"
#include "EmojiPicker.h"
#include "TestMain.h"
#include "ThemeManager.h"

#include <QAction>
#include <QApplication>
#include <QColorDialog>
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

#include <memory>

namespace {

const QString B(QChar(0x02));
const QString I(QChar(0x1D));
const QString U(QChar(0x1F));
const QString C(QChar(0x03));

// The picker's content: titles and emoji written as escapes, so that the
// comparison does not depend on how the source stores the characters.
QList<QPair<QString, QStringList>> expectedCategories()
{
    const auto category = [](const char16_t* title, const char16_t* emojis) {
        return qMakePair(QString::fromUtf16(title), QString::fromUtf16(emojis).split(u' '));
    };
    return {
        category(u"\u0421\u043C\u0430\u0439\u043B\u044B",
            u"\U0001F600 \U0001F603 \U0001F604 \U0001F601 \U0001F605 \U0001F602 \U0001F923 \U0001F60A "
            u"\U0001F607 \U0001F642 \U0001F609 \U0001F60C \U0001F60D \U0001F970 \U0001F618 \U0001F617"),
        category(u"\u0416\u0435\u0441\u0442\u044B",
            u"\U0001F44D \U0001F44E \U0001F44C \u270C\uFE0F \U0001F91E \U0001F91F \U0001F918 \U0001F919 "
            u"\U0001F44B \U0001F91A \U0001F590\uFE0F \u270B \U0001F596 \U0001F44F \U0001F64C \U0001F91D"),
        category(u"\u0421\u0435\u0440\u0434\u0446\u0430",
            u"\u2764\uFE0F \U0001F9E1 \U0001F49B \U0001F49A \U0001F499 \U0001F49C \U0001F5A4 \U0001F90D "
            u"\U0001F90E \U0001F494 \u2763\uFE0F \U0001F495 \U0001F49E \U0001F493 \U0001F497 \U0001F496"),
        category(u"\u042D\u043C\u043E\u0446\u0438\u0438",
            u"\U0001F525 \u2B50 \U0001F31F \u2728 \U0001F4AB \U0001F389 \U0001F38A \U0001F388 "
            u"\U0001F4AF \u2705 \u274C \U0001F4A1 \U0001F4A4 \U0001F4A2 \U0001F4A3 \U0001F4A5"),
        category(u"\u0416\u0438\u0432\u043E\u0442\u043D\u044B\u0435",
            u"\U0001F436 \U0001F431 \U0001F42D \U0001F439 \U0001F430 \U0001F98A \U0001F43B \U0001F43C "
            u"\U0001F428 \U0001F42F \U0001F981 \U0001F42E \U0001F437 \U0001F438 \U0001F435 \U0001F414"),
        category(u"\u0415\u0434\u0430",
            u"\U0001F34E \U0001F355 \U0001F354 \U0001F35F \U0001F369 \U0001F36A \U0001F382 \U0001F370 "
            u"\u2615 \U0001F375 \U0001F37A \U0001F377 \U0001F378 \U0001F379 \U0001F9C3 \U0001F964"),
    };
}

template <typename T> T* widgetAt(QGridLayout* grid, int row, int column)
{
    QLayoutItem* item = grid->itemAtPosition(row, column);
    return item ? qobject_cast<T*>(item->widget()) : nullptr;
}

QPushButton* emojiButton(EmojiPicker& picker, const QString& emoji)
{
    for (QPushButton* button : picker.findChildren<QPushButton*>())
        if (button->text() == emoji)
            return button;
    return nullptr;
}

std::unique_ptr<EditTopicDialog> editor(const QString& topic, const QString& theme = QStringLiteral("light"))
{
    return std::make_unique<EditTopicDialog>(QStringLiteral("#chan"), topic, theme);
}

QTextEdit* field(EditTopicDialog& dialog)
{
    return dialog.findChild<QTextEdit*>();
}

QAction* toolAction(EditTopicDialog& dialog, const QString& text)
{
    for (QAction* action : dialog.findChild<QToolBar*>()->actions())
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
    auto* timer = new QTimer(qApp);
    QElapsedTimer clock;
    clock.start();
    QObject::connect(timer, &QTimer::timeout, timer, [timer, seen, pick, clock] {
        auto* dialog = qobject_cast<QColorDialog*>(QApplication::activeModalWidget());
        if (!dialog && clock.elapsed() < 10000)
            return;
        timer->stop();
        timer->deleteLater();
        if (!dialog)
            return;
        seen->handled = true;
        seen->title = dialog->windowTitle();
        seen->initial = dialog->currentColor();
        if (pick.isValid()) {
            dialog->setCurrentColor(pick);
            dialog->accept();
        } else {
            dialog->reject();
        }
    });
    timer->start(20);
    return seen;
}

} // namespace

class TestTopic : public QObject
{
    Q_OBJECT

private slots:
    // ---- Emoji picker ----

    void emojiGridInOrder()
    {
        EmojiPicker picker(nullptr, QStringLiteral("light"));
        auto* container = picker.findChild<QWidget*>(QStringLiteral("emojiContainer"));
        QVERIFY(container);
        auto* grid = qobject_cast<QGridLayout*>(container->layout());
        QVERIFY(grid);

        // Eight to a row, each category under its title.
        int row = 0;
        for (const auto& [title, emojis] : expectedCategories()) {
            auto* label = widgetAt<QLabel>(grid, row++, 0);
            QVERIFY2(label, qPrintable(QStringLiteral("no title in row %1").arg(row - 1)));
            QCOMPARE(label->text(), title);
            for (int i = 0; i < emojis.size(); ++i) {
                auto* button = widgetAt<QPushButton>(grid, row + i / 8, i % 8);
                QVERIFY(button);
                QCOMPARE(button->text(), emojis.at(i));
                QCOMPARE(button->toolTip(), emojis.at(i));
            }
            row += 2;
        }
        QCOMPARE(grid->rowCount(), row);
        QCOMPARE(picker.findChildren<QPushButton*>().size(), 96);
    }

    void emojiThemes_data()
    {
        QTest::addColumn<QString>("theme");
        QTest::addColumn<QString>("background");
        QTest::addColumn<bool>("lightInk");
        QTest::newRow("light") << "light" << "rgba(255,255,255,0.98)" << false;
        QTest::newRow("dark") << "dark" << "rgba(40,40,40,0.95)" << true;
        QTest::newRow("glass") << "glass" << "rgba(255,255,255,0.7)" << false;
        QTest::newRow("unknown: light") << "Dark" << "rgba(255,255,255,0.98)" << false;
    }

    void emojiThemes()
    {
        QFETCH(QString, theme);
        QFETCH(QString, background);
        QFETCH(bool, lightInk);
        EmojiPicker picker(nullptr, theme);
        const QString sheet = picker.findChild<QWidget*>(QStringLiteral("emojiContainer"))->styleSheet();
        QVERIFY2(sheet.contains("background-color: " + background), qPrintable(sheet));
        const QString buttonInk = lightInk ? "color: white;" : "color: black;";
        for (QPushButton* button : picker.findChildren<QPushButton*>())
            QVERIFY2(button->styleSheet().contains(buttonInk), qPrintable(button->styleSheet()));
    }

    void emojiPlacement_data()
    {
        QTest::addColumn<QRect>("button");
        QTest::addColumn<QSize>("popup");
        QTest::addColumn<QRect>("available");
        QTest::addColumn<QPoint>("expected");

        const QRect screen(0, 0, 1920, 1080);
        const QRect narrow(0, 0, 400, 1080);
        const QSize popup(340, 560);
        // Beside the button: vertically centred on its top edge, 5 px away.
        // "Fits on the right" is a strict comparison with available.right() (999 here).
        QTest::newRow("right, one short of the edge")
            << QRect(619, 500, 30, 30) << popup << QRect(0, 0, 1000, 1080) << QPoint(654, 220);
        QTest::newRow("left, exactly at the edge")
            << QRect(620, 500, 30, 30) << popup << QRect(0, 0, 1000, 1080) << QPoint(275, 220);
        QTest::newRow("narrow second screen: above, not left")
            << QRect(2105, 800, 30, 30) << popup << QRect(1920, 0, 400, 1080) << QPoint(1950, 235);
        // No room either side: centred above, or below when above is off-screen.
        QTest::newRow("above") << QRect(185, 800, 30, 30) << popup << narrow << QPoint(30, 235);
        QTest::newRow("below, as above would be under a top panel")
            << QRect(185, 580, 30, 30) << popup << QRect(0, 40, 400, 2000) << QPoint(30, 615);
        // Clamping keeps a 5-pixel gap.
        QTest::newRow("clamp bottom") << QRect(100, 1000, 30, 30) << popup << screen << QPoint(135, 514);
        QTest::newRow("clamp top, offset screen")
            << QRect(100, 100, 30, 30) << popup << QRect(0, 60, 1920, 1020) << QPoint(135, 65);
        const QSize wide(380, 560);
        QTest::newRow("clamp left") << QRect(10, 800, 30, 30) << wide << narrow << QPoint(5, 235);
        QTest::newRow("clamp right") << QRect(380, 800, 30, 30) << wide << narrow << QPoint(14, 235);
    }

    void emojiPlacement()
    {
        QFETCH(QRect, button);
        QFETCH(QSize, popup);
        QFETCH(QRect, available);
        QFETCH(QPoint, expected);
        QCOMPARE(EmojiPicker::placement(button, popup, available), expected);
    }

    void emojiPlacementStaysOnScreen()
    {
        const QRect available(0, 0, 1920, 1080);
        const QSize popup(340, 560);
        for (int x : { 0, 3, 200, 700, 1300, 1890, 1919 }) {
            for (int y : { 0, 2, 300, 800, 1050, 1079 }) {
                const QPoint at = EmojiPicker::placement(QRect(x, y, 30, 30), popup, available);
                const QString where = QStringLiteral("button at %1,%2").arg(x).arg(y);
                QVERIFY2(at.x() >= available.left() && at.y() >= available.top(), qPrintable(where));
                QVERIFY2(at.x() + popup.width() <= available.right(), qPrintable(where));
                QVERIFY2(at.y() + popup.height() <= available.bottom(), qPrintable(where));
            }
        }
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

    // ---- Topic editor ----

    void editorShowsRawTopicAndTools()
    {
        const QString raw = B + "bold" + B + " see https://example.org " + C + "4,1red" + C + " " + I + "it"
            + I + U + "un" + U + " <b>&amp;</b>";
        auto dialog = editor(raw);
        QCOMPARE(dialog->windowTitle(), QStringLiteral("Edit Topic for #chan"));
        QCOMPARE(field(*dialog)->toPlainText(), raw);
        QVERIFY(!field(*dialog)->acceptRichText());
        QCOMPARE(dialog->newTopic(), raw); // control codes are not white space
        field(*dialog)->setPlainText(QStringLiteral("\t\n new  topic\n \t"));
        QCOMPARE(dialog->newTopic(), QStringLiteral("new  topic"));
        field(*dialog)->setPlainText(QStringLiteral("   "));
        QCOMPARE(dialog->newTopic(), QString());

        QStringList texts;
        for (QAction* action : dialog->findChild<QToolBar*>()->actions()) {
            texts << action->text();
            QVERIFY(!action->icon().isNull());
        }
        QCOMPARE(texts,
            (QStringList { "Bold", "Italic", "Underline", "Text Color", "Background Color", "Emoji" }));
    }

    void editorIsWhiteInEveryTheme_data()
    {
        QTest::addColumn<QString>("theme");
        QTest::newRow("dark") << "dark";
        QTest::newRow("glass") << "glass";
    }

    void editorIsWhiteInEveryTheme()
    {
        QFETCH(QString, theme);
        auto dialog = editor(QStringLiteral("topic"), theme);
        QVERIFY(dialog->styleSheet().startsWith(ThemeManager::dialogStyleSheet(theme)));
        dialog->show();
        QVERIFY(QTest::qWaitForWindowExposed(dialog.get()));
        const QImage image = dialog->grab().toImage();
        QCOMPARE(image.pixelColor(3, image.height() / 2), QColor(Qt::white));
    }

    void formatting_data()
    {
        QTest::addColumn<QString>("action");
        QTest::addColumn<int>("start");
        QTest::addColumn<int>("end");
        QTest::addColumn<QString>("expected");
        QTest::addColumn<int>("cursorAfter");
        // Field text: "a word here".
        QTest::newRow("bold, selection") << "Bold" << 2 << 6 << "a " + B + "word" + B + " here" << 8;
        QTest::newRow("bold, backwards selection")
            << "Bold" << 6 << 2 << "a " + B + "word" + B + " here" << 8;
        QTest::newRow("italic, no selection, at the end") << "Italic" << 11 << 11 << "a word here" + I << 12;
        QTest::newRow("underline, selection at the end")
            << "Underline" << 7 << 11 << "a word " + U + "here" + U << 13;
    }

    void formatting()
    {
        QFETCH(QString, action);
        QFETCH(int, start);
        QFETCH(int, end);
        QFETCH(QString, expected);
        QFETCH(int, cursorAfter);
        auto dialog = editor(QStringLiteral("a word here"));
        QTextEdit* edit = field(*dialog);
        placeCursor(edit, start, end);
        QAction* tool = toolAction(*dialog, action);
        QVERIFY(tool);
        tool->trigger();
        QCOMPARE(edit->toPlainText(), expected);
        QCOMPARE(edit->textCursor().position(), cursorAfter);
        QVERIFY(!edit->textCursor().hasSelection());
    }

    void keys_data()
    {
        QTest::addColumn<QKeySequence>("keys");
        QTest::addColumn<QString>("expected");
        QTest::addColumn<int>("result"); // -1: the editor stays open
        QTest::newRow("bold") << QKeySequence(QKeySequence::Bold) << "x" + B + "word" + B << -1;
        QTest::newRow("italic") << QKeySequence(QKeySequence::Italic) << "x" + I + "word" + I << -1;
        QTest::newRow("underline") << QKeySequence(QKeySequence::Underline) << "x" + U + "word" + U << -1;
        QTest::newRow("ctrl+return saves")
            << QKeySequence(Qt::CTRL | Qt::Key_Return) << "xword" << int(QDialog::Accepted);
        QTest::newRow("escape cancels") << QKeySequence(Qt::Key_Escape) << "xword" << int(QDialog::Rejected);
    }

    void keys()
    {
        QFETCH(QKeySequence, keys);
        QFETCH(QString, expected);
        QFETCH(int, result);
        auto dialog = editor(QStringLiteral("xword"));
        QSignalSpy finished(dialog.get(), &QDialog::finished);
        dialog->show();
        QApplication::setActiveWindow(dialog.get());
        QVERIFY(QTest::qWaitForWindowActive(dialog.get()));
        field(*dialog)->setFocus();
        placeCursor(field(*dialog), 1, 5);
        QTest::keySequence(field(*dialog), keys);
        QTRY_COMPARE_WITH_TIMEOUT(field(*dialog)->toPlainText(), expected, 5000);
        QTRY_COMPARE_WITH_TIMEOUT(finished.size(), result < 0 ? 0 : 1, 5000);
        if (result >= 0)
            QCOMPARE(finished.at(0).at(0).toInt(), result);
    }

    void saveAndCancelButtons()
    {
        // The themed style sheets know the buttons by these names.
        auto dialog = editor(QStringLiteral("old"));
        auto* save = dialog->findChild<QPushButton*>(QStringLiteral("connectButton"));
        auto* cancel = dialog->findChild<QPushButton*>(QStringLiteral("cancelButton"));
        QVERIFY(save && cancel);
        QTextEdit* edit = field(*dialog);
        QTimer::singleShot(0, save, [save, edit] {
            edit->setPlainText(QStringLiteral("  new topic  "));
            save->click();
        });
        QCOMPARE(dialog->exec(), int(QDialog::Accepted));
        QCOMPARE(dialog->newTopic(), QStringLiteral("new topic"));
        QTimer::singleShot(0, cancel, &QPushButton::click);
        QCOMPARE(dialog->exec(), int(QDialog::Rejected));
    }

    // ---- Topic editor: colours ----

    void nearestColor_data()
    {
        QTest::addColumn<QColor>("chosen");
        QTest::addColumn<int>("index");
        QTest::newRow("pure red") << QColor(255, 0, 0) << 4;
        // Pale yellow is nearer to silver (12034) than to white (16129) or yellow (16384).
        QTest::newRow("#FFFF80") << QColor(0xFF, 0xFF, 0x80) << 15;
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

    void foregroundForEveryBackground()
    {
        // 1 (black) on light backgrounds, 0 (white) on dark ones. Grey 128
        // computes to 127.99..., truncated to 127: white text.
        QString foregrounds;
        for (int background = 0; background < 16; ++background)
            foregrounds += QString::number(EditTopicDialog::foregroundForBackground(background));
        QCOMPARE(foregrounds, QStringLiteral("1000000111010001"));
    }

    void colorInsertion_data()
    {
        QTest::addColumn<int>("index");
        QTest::addColumn<bool>("background");
        QTest::addColumn<QString>("selected");
        QTest::addColumn<QString>("expected");
        QTest::newRow("text, no selection") << 4 << false << "" << C + "4";
        QTest::newRow("text, selection, no padding") << 3 << false << "hi" << C + "3hi" + C;
        QTest::newRow("background, no selection") << 8 << true << "" << C + "1,8" + C;
        QTest::newRow("background, selection with %1") << 12 << true << "%1hi" << C + "0,12%1hi" + C;
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
        QTest::addColumn<QString>("expected");
        // Field text: "a word here".
        QTest::newRow("red text, selection")
            << "Text Color" << QColor(255, 0, 0) << 2 << 6 << "a " + C + "4word" + C + " here";
        QTest::newRow("#FFFF40 background, no selection")
            << "Background Color" << QColor(0xFF, 0xFF, 0x40) << 2 << 2 << "a " + C + "1,8" + C + "word here";
        QTest::newRow("cancelled") << "Text Color" << QColor() << 2 << 6 << "a word here";
    }

    void chooseColorThroughDialog()
    {
        QFETCH(QString, action);
        QFETCH(QColor, pick);
        QFETCH(int, start);
        QFETCH(int, end);
        QFETCH(QString, expected);
        auto dialog = editor(QStringLiteral("a word here"));
        placeCursor(field(*dialog), start, end);
        QAction* tool = toolAction(*dialog, action);
        QVERIFY(tool);
        auto seen = onColorDialog(pick);
        tool->trigger();
        QVERIFY(seen->handled);
        QCOMPARE(seen->title, "Choose " + action);
        QCOMPARE(seen->initial, QColor(Qt::white));
        QCOMPARE(field(*dialog)->toPlainText(), expected);
    }

    void emojiFromEditor()
    {
        auto dialog = editor(QStringLiteral("ab"), QStringLiteral("dark"));
        dialog->show();
        QVERIFY(QTest::qWaitForWindowExposed(dialog.get()));
        placeCursor(field(*dialog), 1, 1);

        QAction* tool = toolAction(*dialog, QStringLiteral("Emoji"));
        QVERIFY(tool);
        tool->trigger();
        QPointer<EmojiPicker> picker = dialog->findChild<EmojiPicker*>();
        QVERIFY(picker);
        QVERIFY(picker->isVisible());
        QCOMPARE(picker->windowType(), Qt::Popup); // a click elsewhere closes it
        QSignalSpy chosen(picker.data(), &EmojiPicker::emojiSelected);
        // The picker follows the editor's theme.
        QVERIFY(picker->findChild<QLabel*>()->styleSheet().contains(QStringLiteral("rgba(255,255,255,0.5)")));

        const QString victory = QString::fromUtf16(u"\u270C\uFE0F");
        QPushButton* button = emojiButton(*picker, victory);
        QVERIFY(button);
        QTest::mouseClick(button, Qt::LeftButton);
        QTRY_VERIFY_WITH_TIMEOUT(picker.isNull(), 5000);
        QCOMPARE(chosen.size(), 1);
        QCOMPARE(chosen.at(0).at(0).toString(), victory);
        QCOMPARE(field(*dialog)->toPlainText(), "a" + victory + "b");
        QCOMPARE(field(*dialog)->textCursor().position(), 3);
    }
};

QUENVAR_TEST_MAIN(TestTopic)
#include "tst_topic.moc"
