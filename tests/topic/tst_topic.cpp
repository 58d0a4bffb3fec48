// The topic editor and the emoji picker it opens. (Saving from the window,
// the editor's look in each theme and the picker's place on the screen are
// checked in tests/dialogs and tests/appearance.)

#include "EditTopicDialog.h"
#include "EmojiPicker.h"
#include "ModalDriver.h"
#include "TestMain.h"

#include <QAction>
#include <QColorDialog>
#include <QLabel>
#include <QPointer>
#include <QPushButton>
#include <QSignalSpy>
#include <QTest>
#include <QTextEdit>
#include <QToolBar>

#include <memory>

namespace {

const QString B(QChar(0x02)), I(QChar(0x1D)), U(QChar(0x1F)), C(QChar(0x03));

struct Editor
{
    std::unique_ptr<EditTopicDialog> dialog;
    QTextEdit* field = nullptr;

    explicit Editor(const QString& topic, const QString& theme = QStringLiteral("light"))
        : dialog(std::make_unique<EditTopicDialog>(QStringLiteral("#chan"), topic, theme))
        , field(dialog->findChild<QTextEdit*>())
    {
    }
    QAction* tool(const QString& text) const
    {
        for (QAction* action : dialog->findChild<QToolBar*>()->actions())
            if (action->text() == text)
                return action;
        return nullptr;
    }
    // Selects [start, end) (start == end: the cursor only).
    void select(int start, int end)
    {
        QTextCursor cursor = field->textCursor();
        cursor.setPosition(start);
        cursor.setPosition(end, QTextCursor::KeepAnchor);
        field->setTextCursor(cursor);
    }
};

} // namespace

class TestTopic : public QObject
{
    Q_OBJECT

private slots:
    void emojiPlacement()
    {
        const QSize popup(340, 560), wide(380, 560);
        const QRect narrow(0, 0, 400, 1080), screen(0, 0, 1920, 1080);

        // Beside the button, centred on its top edge, 5 px away; "fits on the
        // right" compares strictly with available.right() (999 here). No room
        // either side: centred above, or below when above is off-screen. The
        // result is clamped 5 px inside.
        const QList<std::tuple<const char*, QRect, QSize, QRect, QPoint>> cases { // the button, popup, screen, place
            { "right, one short of the edge", { 619, 500, 30, 30 }, popup, { 0, 0, 1000, 1080 }, { 654, 220 } },
            { "left, exactly at the edge", { 620, 500, 30, 30 }, popup, { 0, 0, 1000, 1080 }, { 275, 220 } },
            { "narrow second screen: above", { 2105, 800, 30, 30 }, popup, { 1920, 0, 400, 1080 }, { 1950, 235 } },
            { "above", { 185, 800, 30, 30 }, popup, narrow, { 30, 235 } },
            { "below, under a top panel", { 185, 580, 30, 30 }, popup, { 0, 40, 400, 2000 }, { 30, 615 } },
            { "clamp bottom", { 100, 1000, 30, 30 }, popup, screen, { 135, 514 } },
            { "clamp top, offset screen", { 100, 100, 30, 30 }, popup, { 0, 60, 1920, 1020 }, { 135, 65 } },
            { "clamp left", { 10, 800, 30, 30 }, wide, narrow, { 5, 235 } },
            { "clamp right", { 380, 800, 30, 30 }, wide, narrow, { 14, 235 } },
        };
        for (const auto& [name, button, size, available, expected] : cases)
            QVERIFY2(EmojiPicker::placement(button, size, available) == expected, name);
        for (int x : { 0, 3, 200, 700, 1300, 1890, 1919 })
            for (int y : { 0, 2, 300, 800, 1050, 1079 })
                QVERIFY(screen.contains(QRect(EmojiPicker::placement(QRect(x, y, 30, 30), popup, screen), popup)));
    }

    // Tool buttons and keys on the field "a word here": what they insert
    // around the selection and where the cursor ends.
    void formattingToolsAndKeys()
    {
        struct Case
        {
            const char* tool; // or null: the keys
            QKeySequence keys;
            int start, end;
            QString expected;
            int cursor, result; // cursor -1: the dialog closes with `result`
        };
        const QString text = QStringLiteral("a word here");
        const Case cases[] {
            { "Bold", {}, 2, 6, "a " + B + "word" + B + " here", 8, 0 },
            { "Bold", {}, 6, 2, "a " + B + "word" + B + " here", 8, 0 },
            { "Italic", {}, 11, 11, text + I, 12, 0 },
            { "Underline", {}, 7, 11, "a word " + U + "here" + U, 13, 0 },
            { nullptr, QKeySequence::Bold, 2, 6, "a " + B + "word" + B + " here", 8, 0 },
            { nullptr, QKeySequence::Italic, 2, 6, "a " + I + "word" + I + " here", 8, 0 },
            { nullptr, QKeySequence::Underline, 2, 6, "a " + U + "word" + U + " here", 8, 0 },
            { nullptr, QKeySequence(Qt::CTRL | Qt::Key_Return), 2, 6, text, -1, QDialog::Accepted },
            { nullptr, QKeySequence(Qt::Key_Escape), 2, 6, text, -1, QDialog::Rejected },
        };
        for (const Case& c : cases) {
            const QString name = c.tool ? c.tool : c.keys.toString();
            Editor e(text);
            QSignalSpy finished(e.dialog.get(), &QDialog::finished);
            if (!c.tool) {
                e.dialog->show();
                QApplication::setActiveWindow(e.dialog.get());
                QVERIFY(QTest::qWaitForWindowActive(e.dialog.get()));
                e.field->setFocus();
            }
            e.select(c.start, c.end);
            if (c.tool)
                e.tool(c.tool)->trigger();
            else
                QTest::keySequence(e.field, c.keys);
            QVERIFY2(QTest::qWaitFor([&] { return e.field->toPlainText() == c.expected; }, 5000), qPrintable(name));
            if (c.cursor >= 0)
                QVERIFY2(e.field->textCursor().position() == c.cursor && !e.field->textCursor().hasSelection()
                        && finished.isEmpty(), qPrintable(name));
            else
                QVERIFY2(QTest::qWaitFor([&] { return finished.size() == 1; }, 5000)
                        && finished.at(0).at(0).toInt() == c.result, qPrintable(name));
        }
    }

    void colours()
    {
        // Nearest of the 16 by squared RGB distance, the lower index on a tie.
        QCOMPARE(EditTopicDialog::nearestIrcColor(QColor(0xFF, 0xFF, 0x80)), 15); // silver, not white or yellow
        QCOMPARE(EditTopicDialog::nearestIrcColor(QColor(0, 0, 0x40)), 1); // black and navy tie
        // Black text on light backgrounds, white on dark ones (grey 128 truncates to 127: dark).
        QString foregrounds;
        for (int background = 0; background < 16; ++background)
            foregrounds += QString::number(EditTopicDialog::foregroundForBackground(background));
        QCOMPARE(foregrounds, QStringLiteral("1000000111010001"));
        QCOMPARE(EditTopicDialog::colorInsertion(4, false, ""), C + "4");
        QCOMPARE(EditTopicDialog::colorInsertion(12, true, "%1hi"), C + "0,12%1hi" + C);

        // Through the colour dialog, which starts at white: text with a
        // selection, a background without one, cancelled.
        const QList<std::tuple<QString, QColor, int, QString>> cases { // the tool, the pick (invalid: cancel), the cursor
            { "Text Color", QColor(255, 0, 0), 6, "a " + C + "4word" + C + " here" },
            { "Background Color", QColor(0xFF, 0xFF, 0x40), 2, "a " + C + "1,8" + C + "word here" },
            { "Text Color", QColor(), 6, "a word here" } };
        for (const auto& [tool, pick, end, expected] : cases) {
            Editor e(QStringLiteral("a word here"));
            e.select(2, end);
            QColor initial;
            const auto seen = ModalDriver::onModal<QColorDialog>([&, pick = pick](QColorDialog* dialog) {
                initial = dialog->currentColor();
                dialog->setCurrentColor(pick);
                pick.isValid() ? dialog->accept() : dialog->reject();
            });
            e.tool(tool)->trigger();
            QVERIFY(seen->handled && seen->title == "Choose " + tool && initial == QColor(Qt::white));
            QCOMPARE(e.field->toPlainText(), expected);
        }
    }

    void emojiFromEditor()
    {
        Editor e(QStringLiteral("ab"), QStringLiteral("dark"));
        e.dialog->show();
        QVERIFY(QTest::qWaitForWindowExposed(e.dialog.get()));
        e.select(1, 1);
        e.tool(QStringLiteral("Emoji"))->trigger();
        QPointer<EmojiPicker> picker = e.dialog->findChild<EmojiPicker*>();
        QVERIFY(picker && picker->isVisible() && picker->windowType() == Qt::Popup); // a click elsewhere closes it
        QCOMPARE(picker->findChildren<QPushButton*>().size(), 96);
        const QString victory = QString::fromUtf16(u"\u270C\uFE0F");
        QPushButton* button = nullptr;
        for (QPushButton* b : picker->findChildren<QPushButton*>())
            button = b->text() == victory ? b : button;
        QVERIFY(button);
        QTest::mouseClick(button, Qt::LeftButton);
        QTRY_VERIFY_WITH_TIMEOUT(picker.isNull(), 5000);
        QCOMPARE(e.field->toPlainText(), "a" + victory + "b");
        QCOMPARE(e.field->textCursor().position(), 3);
    }
};

QUENVAR_TEST_MAIN(TestTopic)
#include "tst_topic.moc"
