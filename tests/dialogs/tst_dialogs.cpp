// The window's own dialogs and popups: away and nickname, the emoji popup of
// the input line, and the topic strip with its editor.

#include "ChatRows.h"
#include "ChatView.h"
#include "EditTopicDialog.h"
#include "EmojiPicker.h"
#include "MemberListView.h"
#include "MyTabWidget.h"
#include "TestMain.h"
#include "WindowHarness.h"

#include <QAction>
#include <QDialogButtonBox>
#include <QLabel>
#include <QLineEdit>
#include <QPointer>
#include <QPushButton>
#include <QSettings>
#include <QTextEdit>

namespace {

QStringList messages(MainWindow* window, const QString& tab)
{
    return chatMessages(window->network()->tabs.value(tab).chatView);
}

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

    // None of away, nickname and topic opens a dialog while disconnected.
    void dialogsNeedAConnection()
    {
        w->session()->addLine("#c", "x", "bob", false);
        for (const auto& open : { std::function<void()>([this] { w->onSetAway(); }),
                 std::function<void()>([this] { w->onChangeNick(); }),
                 std::function<void()>([this] { w->editTopic("#c"); }) }) {
            const auto dialog = ModalDriver::onModal<QDialog>([](QDialog* d) { d->reject(); });
            open();
            QTest::qWait(50);
            dialog->cancelled = true;
            QVERIFY(!dialog->handled);
        }
    }

    // The away and nickname dialogs: what they send for what was typed.
    void textDialogs_data()
    {
        QTest::addColumn<bool>("away");
        QTest::addColumn<QString>("typed");
        QTest::addColumn<bool>("save");
        QTest::addColumn<QString>("sent"); // empty: nothing
        QTest::newRow("away, padded") << true << "  lunch  " << true << "AWAY :lunch";
        QTest::newRow("away, spaces only") << true << "    " << true << "AWAY :Away";
        QTest::newRow("away, cancelled") << true << "lunch" << false << "";
        QTest::newRow("nick, padded") << false << "  newme  " << true << "NICK newme";
        QTest::newRow("nick, empty") << false << "   " << true << "";
        QTest::newRow("nick, unchanged") << false << "me" << true << "";
    }

    void textDialogs()
    {
        QFETCH(bool, away);
        QFETCH(QString, typed);
        QFETCH(bool, save);
        QFETCH(QString, sent);
        QVERIFY(h->connect("me"));
        QString prefilled;
        answerTextDialog(typed, save, &prefilled);
        away ? w->onSetAway() : w->onChangeNick();
        QCOMPARE(prefilled, away ? QStringLiteral("Away") : QStringLiteral("me"));
        QCOMPARE(w->session()->isAway(), away && !sent.isEmpty());
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

    // A new nick while away comes back first, quietly: no "is back" in the tabs.
    void nickChangeWhileAwayComesBackFirst()
    {
        QVERIFY(h->connect("me"));
        w->session()->addLine("#a", "x", "bob", false);
        answerTextDialog("gone", true);
        w->onSetAway();
        QTRY_COMPARE_WITH_TIMEOUT(messages(w, "#a").count("is away (gone)"), 1, 5000);
        h->peer->clear();
        answerTextDialog("other", true);
        w->onChangeNick();
        QVERIFY(!w->session()->isAway());
        QTRY_COMPARE_WITH_TIMEOUT(h->peer->lines(), (QStringList { "AWAY", "NICK other" }), 5000);
        QCOMPARE(messages(w, "#a").count("is back"), 0);
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
