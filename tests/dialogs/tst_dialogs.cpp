// The window's own dialogs and popups: away and nickname, the emoji popup of
// the input line, and the topic strip with its editor.

#include "ChatView.h"
#include "EditTopicDialog.h"
#include "EmojiPicker.h"
#include "MemberListView.h"
#include "MyTabWidget.h"
#include "TestMain.h"
#include "WindowHarness.h"

#include <QDialogButtonBox>
#include <QLabel>
#include <QLineEdit>
#include <QPointer>
#include <QPushButton>
#include <QSettings>
#include <QTextEdit>

namespace {

// Answers the next away or nickname dialog: types `text` into its field and
// saves, or cancels. `prefilled` gets what the field showed.
ModalDriver::HandlePtr answerTextDialog(const QString& text, bool save, QString* prefilled = nullptr)
{
    return ModalDriver::onModal<QDialog>([text, save, prefilled](QDialog* dialog) {
        auto* field = dialog->findChild<QLineEdit*>();
        if (prefilled)
            *prefilled = field->text();
        field->setText(text);
        dialog->findChild<QDialogButtonBox*>()
            ->button(save ? QDialogButtonBox::Save : QDialogButtonBox::Cancel)
            ->click();
    });
}

bool ownRowItalic(MainWindow* w)
{
    return qvariant_cast<QFont>(w->userList->model()->index(0, 0).data(Qt::FontRole)).italic();
}

} // namespace

class TestDialogs : public QObject
{
    Q_OBJECT

    std::unique_ptr<WindowHarness> h;
    MainWindow* w = nullptr;

private slots:
    void init()
    {
        QSettings().clear();
        h = std::make_unique<WindowHarness>();
        w = h->window.get();
    }
    void cleanup() { h.reset(); }

    // The away and nickname dialogs: what they send for what was typed;
    // neither opens while disconnected.
    void textDialogs_data()
    {
        QTest::addColumn<bool>("away");
        QTest::addColumn<bool>("connected");
        QTest::addColumn<QString>("typed");
        QTest::addColumn<bool>("save");
        QTest::addColumn<QString>("sent"); // empty: nothing
        const auto row = [](const char* name, bool away, bool connected, const char* typed, bool save,
                             const char* sent) {
            QTest::addRow("%s", name) << away << connected << QString(typed) << save << QString(sent);
        };
        row("away, padded", true, true, "  lunch  ", true, "AWAY :lunch");
        row("away, spaces only", true, true, "    ", true, "AWAY :Away");
        row("away, cancelled", true, true, "lunch", false, "");
        row("away, disconnected", true, false, "lunch", true, "");
        row("nick, padded", false, true, "  newme  ", true, "NICK newme");
        row("nick, empty", false, true, "   ", true, "");
        row("nick, unchanged", false, true, "me", true, "");
        row("nick, disconnected", false, false, "newme", true, "");
    }

    void textDialogs()
    {
        QFETCH(bool, away);
        QFETCH(bool, connected);
        QFETCH(QString, typed);
        QFETCH(bool, save);
        QFETCH(QString, sent);
        if (connected)
            QVERIFY(h->connect("me"));
        QString prefilled;
        const auto dialog = answerTextDialog(typed, save, &prefilled);
        away ? w->onSetAway() : w->onChangeNick();
        dialog->cancelled = true;
        QCOMPARE(dialog->handled, connected);
        QCOMPARE(w->session()->isAway(), away && !sent.isEmpty());
        if (!connected)
            return;
        QCOMPARE(prefilled, away ? QStringLiteral("Away") : QStringLiteral("me"));
        if (!sent.isEmpty())
            QVERIFY(h->peerGot(sent));
        QTest::qWait(50);
        QCOMPARE(h->peer->linesStartingWith(away ? "AWAY" : "NICK").size(), int(!sent.isEmpty()));
    }

    // The menu entry asks for a reason; while away it comes back at once,
    // without a dialog. The own member row looks away meanwhile.
    void awayEntryTogglesBack()
    {
        QVERIFY(h->connectAndRegister("me"));
        h->serverSays(":me!u@h JOIN :#a\n:irc.test 353 me = #a :@me bob\n:irc.test 366 me #a :End");
        w->tabWidget->setCurrentWidget(w->network()->tabs.value("#a").widget);
        const QString idle = w->awayAction->text();
        answerTextDialog("brb", true);
        w->awayAction->trigger();
        QVERIFY(w->awayAction->text() != idle && ownRowItalic(w));
        const auto noDialog = answerTextDialog("x", true);
        w->awayAction->trigger();
        QVERIFY(!w->session()->isAway() && !ownRowItalic(w));
        QCOMPARE(w->awayAction->text(), idle);
        QTRY_COMPARE(h->peer->linesStartingWith("AWAY"), (QStringList { "AWAY :brb", "AWAY" }));
        noDialog->cancelled = true;
        QVERIFY(!noDialog->handled);
    }

    void emojiGoesToTheCursorAndFocusReturns()
    {
        w->show();
        QVERIFY(QTest::qWaitForWindowExposed(w));
        w->session()->addLine("#a", "x", "bob", false);
        w->tabWidget->setCurrentWidget(w->network()->tabs.value("#a").widget);
        w->inputLine->setText("hello world");
        w->inputLine->setCursorPosition(5);
        w->emojiButton->click();
        QPointer<EmojiPicker> picker = w->findChild<EmojiPicker*>();
        QVERIFY(picker && picker->isVisible());
        const QString thumbsUp = QStringLiteral("\U0001F44D");
        for (QPushButton* button : picker->findChildren<QPushButton*>()) {
            if (button->text() == thumbsUp)
                button->click();
        }
        QCOMPARE(w->inputLine->text(), "hello" + thumbsUp + " world");
        QTRY_VERIFY(picker.isNull());
        QTRY_COMPARE(w->focusWidget(), w->inputLine);
    }

    // The editor opens on the raw codes and sends the trimmed topic, shown at
    // once; without operator status editing is refused.
    void topicEditor()
    {
        QVERIFY(h->connectAndRegister("me"));
        h->serverSays(":me!u@h JOIN :#chan\n:irc.test 353 me = #chan :%me\n:irc.test 366 me #chan :End\n"
                      ":irc.test 332 me #chan :old \x1Dtopic");
        QString opened;
        ModalDriver::onModal<EditTopicDialog>([&opened](EditTopicDialog* dialog) {
            auto* field = dialog->findChild<QTextEdit*>();
            opened = field->toPlainText();
            field->setPlainText("  new topic  ");
            dialog->accept();
        });
        w->network()->tabs.value("#chan").editTopicBtn->click();
        QCOMPARE(opened, QStringLiteral("old \x1Dtopic"));
        QVERIFY(h->peerGot("TOPIC #chan :new topic"));
        QCOMPARE(w->network()->tabs.value("#chan").topicLabel->text(), QStringLiteral("new topic"));

        h->serverSays(":irc.test 353 me = #chan :+me\n:irc.test 366 me #chan :End");
        h->peer->clear();
        const auto box = ModalDriver::onMessageBox("Permission denied", QMessageBox::Ok);
        w->editTopic("#chan");
        QVERIFY(box->handled);
        QTest::qWait(50);
        QVERIFY(h->peer->linesStartingWith("TOPIC").isEmpty());
    }
};

QUENVAR_TEST_MAIN(TestDialogs)
#include "tst_dialogs.moc"
