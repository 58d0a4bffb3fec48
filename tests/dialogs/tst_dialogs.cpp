// The window's own dialogs and popups: away and nickname, the emoji popup of
// the input line, and the topic strip with its editor.

#include "ChatRows.h"
#include "ChatView.h"
#include "EditTopicDialog.h"
#include "EmojiPicker.h"
#include "IRCConnection.h"
#include "IrcText.h"
#include "MainWindow.h"
#include "NetworkView.h"
#include "MemberListView.h"
#include "Session.h"
#include "ModalDriver.h"
#include "MyTabWidget.h"
#include "TestMain.h"
#include "WindowHarness.h"

#include <QAction>
#include <QDialogButtonBox>
#include <QLabel>
#include <QLineEdit>
#include <QMessageBox>
#include <QPointer>
#include <QPushButton>
#include <QSettings>
#include <QTextBlock>
#include <QTextDocument>
#include <QTextEdit>

namespace {

// The message column of every row of a tab.
QStringList messages(MainWindow* window, const QString& tab)
{
    return chatMessages(window->network()->tabs.value(tab).chatView);
}

// Answers the next away or nickname dialog: types `text` into its field and
// saves, or cancels. When asked, records the title, label, prefilled text,
// placeholder and the texts of the two buttons.
ModalDriver::HandlePtr answerTextDialog(const QString& text, bool save, QStringList* seen = nullptr)
{
    return ModalDriver::onModal<QDialog>([text, save, seen](QDialog* dialog) {
        auto* field = dialog->findChild<QLineEdit*>();
        auto* box = dialog->findChild<QDialogButtonBox*>();
        if (seen) {
            *seen << dialog->windowTitle() << dialog->findChild<QLabel*>()->text() << field->text()
                  << field->placeholderText() << box->button(QDialogButtonBox::Save)->text()
                  << box->button(QDialogButtonBox::Cancel)->text();
        }
        field->setText(text);
        box->button(save ? QDialogButtonBox::Save : QDialogButtonBox::Cancel)->click();
    });
}

} // namespace

class TestDialogs : public QObject
{
    Q_OBJECT

private:
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

    // None of the three opens a dialog while disconnected.
    void dialogsNeedAConnection_data()
    {
        QTest::addColumn<int>("which");
        QTest::newRow("away") << 0;
        QTest::newRow("nick") << 1;
        QTest::newRow("topic") << 2;
    }

    void dialogsNeedAConnection()
    {
        QFETCH(int, which);
        w->session()->addLine("#c", "x", "bob", false);
        const auto dialog = ModalDriver::onModal<QDialog>([](QDialog* d) { d->reject(); });
        if (which == 0)
            w->onSetAway();
        else if (which == 1)
            w->onChangeNick();
        else
            w->editTopic("#c");
        QTest::qWait(50);
        dialog->cancelled = true;
        QVERIFY(!dialog->handled);
    }

    // ---- Away ---------------------------------------------------------------

    void awayDialog_data()
    {
        QTest::addColumn<QString>("typed");
        QTest::addColumn<bool>("save");
        QTest::addColumn<QString>("reason"); // empty: not away
        QTest::newRow("padded") << "  lunch  " << true << "lunch";
        QTest::newRow("spaces only") << "    " << true << "Away";
        QTest::newRow("cancelled") << "lunch" << false << "";
    }

    void awayDialog()
    {
        QFETCH(QString, typed);
        QFETCH(bool, save);
        QFETCH(QString, reason);
        QVERIFY(h->connect("me"));
        answerTextDialog(typed, save);
        w->onSetAway();
        QCOMPARE(w->session()->isAway(), !reason.isEmpty());
        if (reason.isEmpty()) {
            QCOMPARE(w->awayAction->text(), QStringLiteral("Marked Away..."));
            QTest::qWait(50);
            QVERIFY(h->peer->linesStartingWith("AWAY").isEmpty());
            return;
        }
        QCOMPARE(w->session()->awayMessage(), reason);
        QCOMPARE(messages(w, "Server").last(), "*** You are marked as away (" + reason + ")");
        QVERIFY(h->peerGot("AWAY :" + reason));
    }

    // The menu entry asks for a reason and then says what it will do next:
    // while away it comes back at once, without a dialog. The own member row
    // looks away meanwhile.
    void awayEntryTogglesBack()
    {
        QVERIFY(h->connectAndRegister("me"));
        h->serverSays(":me!u@h JOIN :#a\n:irc.test 353 me = #a :@me bob\n:irc.test 366 me #a :End");
        w->tabWidget->setCurrentWidget(w->network()->tabs.value("#a").widget);
        QStringList seen;
        answerTextDialog("brb", true, &seen);
        w->awayAction->trigger();
        QCOMPARE(seen,
            (QStringList { "Set Away Status", "Away message:", "Away", "Reason for being away...", "Set Away",
                "Cancel" }));
        QCOMPARE(w->awayAction->text(), QStringLiteral("Unmark Away"));
        QVERIFY(qvariant_cast<QFont>(w->userList->model()->index(0, 0).data(Qt::FontRole)).italic());
        QTRY_COMPARE_WITH_TIMEOUT(messages(w, "#a").last(), QStringLiteral("is away (brb)"), 5000);

        const auto noDialog = answerTextDialog("x", true);
        w->awayAction->trigger();
        QVERIFY(!w->session()->isAway());
        QCOMPARE(w->awayAction->text(), QStringLiteral("Marked Away..."));
        QVERIFY(w->userList->count() > 0
            && !qvariant_cast<QFont>(w->userList->model()->index(0, 0).data(Qt::FontRole)).italic());
        QCOMPARE(messages(w, "Server").last(), QStringLiteral("*** You are back"));
        QTRY_COMPARE_WITH_TIMEOUT(messages(w, "#a").last(), QStringLiteral("is back"), 5000);
        QTRY_COMPARE(h->peer->linesStartingWith("AWAY"), (QStringList { "AWAY :brb", "AWAY" }));
        noDialog->cancelled = true;
        QVERIFY(!noDialog->handled);
    }

    // ---- Nickname ------------------------------------------------------------

    void nickDialog_data()
    {
        QTest::addColumn<QString>("typed");
        QTest::addColumn<QString>("sent"); // empty: nothing sent
        QTest::newRow("padded") << "  newme  "
                                << "newme";
        QTest::newRow("empty") << "   "
                               << "";
        QTest::newRow("unchanged") << "me"
                                   << "";
    }

    void nickDialog()
    {
        QFETCH(QString, typed);
        QFETCH(QString, sent);
        QVERIFY(h->connect("me"));
        QStringList seen;
        answerTextDialog(typed, true, &seen);
        w->onChangeNick();
        QCOMPARE(seen,
            (QStringList {
                "Change Nickname", "New nickname:", "me", "Enter new nickname", "Change", "Cancel" }));
        QCOMPARE(w->session()->pendingNick(), sent);
        if (sent.isEmpty()) {
            QTest::qWait(50);
            QVERIFY(h->peer->linesStartingWith("NICK").isEmpty());
            return;
        }
        QVERIFY(h->peerGot("NICK " + sent));
        // The displayed nick waits for the server.
        QCOMPARE(w->session()->connection()->currentNick(), QStringLiteral("me"));
        h->serverSays(":me!u@h NICK :" + sent.toUtf8());
        QCOMPARE(w->session()->connection()->currentNick(), sent);
        QVERIFY(w->session()->pendingNick().isEmpty());
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
        QCOMPARE(w->awayAction->text(), QStringLiteral("Marked Away..."));
        QTRY_COMPARE_WITH_TIMEOUT(h->peer->lines(), (QStringList { "AWAY", "NICK other" }), 5000);
        QCOMPARE(messages(w, "#a").count("is back"), 0);
    }

    // ---- Emoji popup -----------------------------------------------------------

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

    // ---- Topic strip -------------------------------------------------------------

    // Half-operators and above may edit the topic: the pencil shows for them.
    // A fresh member list without the status hides it, and editing is refused.
    void onlyOperatorsEditTheTopic()
    {
        QVERIFY(h->connectAndRegister("me"));
        h->serverSays(":me!u@h JOIN :#c\n:irc.test 353 me = #c :%me bob\n:irc.test 366 me #c :End");
        QPushButton* pencil = w->network()->tabs.value("#c").editTopicBtn;
        QVERIFY(!pencil->isHidden());
        h->serverSays(":irc.test 353 me = #c :+me bob\n:irc.test 366 me #c :End");
        QVERIFY(pencil->isHidden());

        const auto box = ModalDriver::onMessageBox("Permission denied", QMessageBox::Ok);
        w->editTopic("#c");
        QVERIFY(box->handled);
        QCOMPARE(box->text, QStringLiteral("You must be an operator to change the topic."));
        QTest::qWait(50);
        QVERIFY(h->peer->linesStartingWith("TOPIC").isEmpty());
    }

    void savingSendsTheTrimmedTopic()
    {
        QVERIFY(h->connectAndRegister("me"));
        h->serverSays(":me!u@h JOIN :#chan\n:irc.test 353 me = #chan :@me\n:irc.test 366 me #chan :End\n"
                      ":irc.test 332 me #chan :old \x1Dtopic");
        QLabel* label = w->network()->tabs.value("#chan").topicLabel;
        QCOMPARE(label->text(), IrcText::ircTopicToHtml("old \x1Dtopic"));
        QString opened;
        ModalDriver::onModal<EditTopicDialog>([&opened](EditTopicDialog* dialog) {
            auto* field = dialog->findChild<QTextEdit*>();
            opened = field->toPlainText();
            field->setPlainText("  new topic  ");
            dialog->accept();
        });
        w->network()->tabs.value("#chan").editTopicBtn->click();
        QCOMPARE(opened, QStringLiteral("old \x1Dtopic")); // the raw codes, to edit
        QVERIFY(h->peerGot("TOPIC #chan :new topic"));
        // Shown at once, without waiting for the server.
        QCOMPARE(w->session()->topic("#chan"), QStringLiteral("new topic"));
        QCOMPARE(label->text(), QStringLiteral("new topic"));
    }
};

QUENVAR_TEST_MAIN(TestDialogs)
#include "tst_dialogs.moc"
