// The window's own dialogs and popups: away and nickname, the emoji popup of
// the input line, and the topic strip with its editor.

#include "ChatView.h"
#include "EditTopicDialog.h"
#include "EmojiPicker.h"
#include "IRCConnection.h"
#include "MainWindow.h"
#include "ModalDriver.h"
#include "MyTabWidget.h"
#include "TestMain.h"
#include "WindowHarness.h"

#include <QAction>
#include <QDialogButtonBox>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QMessageBox>
#include <QPushButton>
#include <QSettings>
#include <QTextBlock>
#include <QTextDocument>
#include <QTextEdit>

namespace {

// The message column of every row of a tab.
QStringList messages(MainWindow* window, const QString& tab)
{
    QStringList rows;
    const ChatView* view = window->tabs.value(tab).chatView;
    for (QTextBlock block = view->document()->begin(); block.isValid(); block = block.next())
        rows << block.text().section(QLatin1Char('\t'), -1).trimmed();
    return rows;
}

// Answers the next away or nickname dialog: types `text` into its field and
// saves, or cancels. Records the dialog's title, label, field and buttons.
struct TextDialogSeen
{
    QString title;
    QString label;
    QString prefilled;
    QString placeholder;
    QString saveText;
    QString cancelText;
    int minimumWidth = 0;
};

ModalDriver::HandlePtr answerTextDialog(const QString& text, bool save, TextDialogSeen* seen = nullptr)
{
    return ModalDriver::onModal<QDialog>([text, save, seen](QDialog* dialog) {
        auto* field = dialog->findChild<QLineEdit*>();
        auto* box = dialog->findChild<QDialogButtonBox*>();
        if (seen) {
            seen->title = dialog->windowTitle();
            seen->label = dialog->findChild<QLabel*>()->text();
            seen->prefilled = field->text();
            seen->placeholder = field->placeholderText();
            seen->saveText = box->button(QDialogButtonBox::Save)->text();
            seen->cancelText = box->button(QDialogButtonBox::Cancel)->text();
            seen->minimumWidth = dialog->minimumWidth();
        }
        field->setText(text);
        if (save)
            box->button(QDialogButtonBox::Save)->click();
        else
            box->button(QDialogButtonBox::Cancel)->click();
    });
}

} // namespace

class TestDialogs : public QObject
{
    Q_OBJECT

private:
    std::unique_ptr<WindowHarness> h;
    MainWindow* w = nullptr;

    // Own nick "me" in #a and #b, a private tab with carl, the list tab.
    void openChatTabs()
    {
        QVERIFY(h->connectAndRegister("me"));
        h->serverSays(":me!u@h JOIN :#a\n:me!u@h JOIN :#b\n:carl!u@h PRIVMSG me :hi\n"
                      ":irc.test 321 me Channel :Users Name\n:irc.test 323 me :End");
        w->createListTab();
        QVERIFY(w->tabs.contains("#a") && w->tabs.contains("#b") && w->tabs.contains("carl")
            && w->tabs.contains("List"));
    }

private slots:
    void init()
    {
        QSettings().clear();
        h = std::make_unique<WindowHarness>();
        w = h->window.get();
    }
    void cleanup() { h.reset(); }

    // ---- Away ---------------------------------------------------------------

    void awayDialogShape()
    {
        QVERIFY(h->connect("me"));
        TextDialogSeen seen;
        const auto answered = answerTextDialog(QString(), false, &seen);
        w->onSetAway();
        QVERIFY(answered->handled);
        QCOMPARE(seen.title, QStringLiteral("Set Away Status"));
        QCOMPARE(seen.label, QStringLiteral("Away message:"));
        QCOMPARE(seen.prefilled, QStringLiteral("Away"));
        QCOMPARE(seen.placeholder, QStringLiteral("Reason for being away..."));
        QCOMPARE(seen.saveText, QStringLiteral("Set Away"));
        QCOMPARE(seen.cancelText, QStringLiteral("Cancel"));
        QCOMPARE(seen.minimumWidth, 460);
        // Cancelled: nothing changes.
        QVERIFY(!w->awayActive);
        QCOMPARE(w->awayAction->text(), QStringLiteral("Marked Away..."));
        QTest::qWait(50);
        QVERIFY(h->peer->linesStartingWith("AWAY").isEmpty());
    }

    void spacesOnlyReasonMeansAway()
    {
        QVERIFY(h->connect("me"));
        answerTextDialog("    ", true);
        w->onSetAway();
        QVERIFY(w->awayActive);
        QCOMPARE(w->awayMessage, QStringLiteral("Away"));
        QCOMPARE(w->awayAction->text(), QStringLiteral("Unmark Away"));
        QCOMPARE(messages(w, "Server").last(), QStringLiteral("*** You are marked as away (Away)"));
        QVERIFY(h->peerGot("AWAY :Away"));
    }

    void awayAndBackAnnounceInChatTabsOnly()
    {
        openChatTabs();
        answerTextDialog("  lunch  ", true);
        w->onSetAway();
        QVERIFY(h->peerGot("AWAY :lunch"));
        // Posted: written once the event loop runs.
        for (const char* tab : { "#a", "#b", "carl" })
            QTRY_COMPARE_WITH_TIMEOUT(messages(w, tab).count("is away (lunch)"), 1, 5000);
        QCOMPARE(messages(w, "Server").count("is away (lunch)"), 0);
        QVERIFY(!w->tabs.value("List").chatView);

        // The menu entry again: back at once, without a dialog.
        w->awayAction->trigger();
        QVERIFY(!w->awayActive);
        QVERIFY(w->awayMessage.isEmpty());
        QCOMPARE(w->awayAction->text(), QStringLiteral("Marked Away..."));
        QCOMPARE(messages(w, "Server").last(), QStringLiteral("*** You are back"));
        for (const char* tab : { "#a", "#b", "carl" })
            QTRY_COMPARE_WITH_TIMEOUT(messages(w, tab).count("is back"), 1, 5000);
        QVERIFY(h->peerGot("AWAY"));
        QCOMPARE(h->peer->linesStartingWith("AWAY").last(), QStringLiteral("AWAY"));
    }

    void awayLinesAreGreyRowsOfTheOwnNick()
    {
        openChatTabs();
        answerTextDialog("brb", true);
        w->onSetAway();
        QTRY_COMPARE_WITH_TIMEOUT(messages(w, "#a").last(), QStringLiteral("is away (brb)"), 5000);
        const QTextBlock row = w->tabs.value("#a").chatView->document()->lastBlock();
        QVERIFY(row.text().contains(QStringLiteral("me  \t")));
        // A service row: grey text, never the away decoration.
        QVERIFY(!row.text().contains("[Away:"));
    }

    void ownRowGreyItalicWhileAway()
    {
        openChatTabs();
        w->tabWidget->setCurrentWidget(w->tabs.value("#a").widget);
        h->serverSays(":irc.test 353 me = #a :@me bob\n:irc.test 366 me #a :End");
        QListWidgetItem* own = w->userList->item(0);
        QCOMPARE(own->text(), QStringLiteral("@me"));
        QVERIFY(!own->font().italic());

        answerTextDialog("away", true);
        w->onSetAway();
        own = w->userList->item(0);
        QVERIFY(own->font().italic());
        QCOMPARE(own->foreground().color(), QColor("#AAAAAA"));
        QVERIFY(!w->userList->item(1)->font().italic());

        // Still so after the list is rebuilt.
        h->serverSays(":irc.test 353 me = #a :@me bob carol\n:irc.test 366 me #a :End");
        own = w->userList->item(0);
        QVERIFY(own->font().italic());
        QCOMPARE(own->foreground().color(), QColor("#AAAAAA"));

        w->onSetAway(); // back
        own = w->userList->item(0);
        QVERIFY(!own->font().italic());
        // Back to the list's own colour.
        QVERIFY(!own->data(Qt::ForegroundRole).isValid());
    }

    void awayWhileDisconnectedDoesNothing()
    {
        const auto answered = answerTextDialog("x", true);
        w->onSetAway();
        QTest::qWait(50);
        answered->cancelled = true;
        QVERIFY(!answered->handled);
        QVERIFY(!w->awayActive);
    }

    // ---- Nickname ------------------------------------------------------------

    void nickDialogShapeAndPendingNick()
    {
        QVERIFY(h->connect("me"));
        TextDialogSeen seen;
        answerTextDialog("  newme  ", true, &seen);
        w->onChangeNick();
        QCOMPARE(seen.title, QStringLiteral("Change Nickname"));
        QCOMPARE(seen.label, QStringLiteral("New nickname:"));
        QCOMPARE(seen.prefilled, QStringLiteral("me"));
        QCOMPARE(seen.placeholder, QStringLiteral("Enter new nickname"));
        QCOMPARE(seen.saveText, QStringLiteral("Change"));
        QCOMPARE(seen.minimumWidth, 400);
        QCOMPARE(w->pendingNewNick, QStringLiteral("newme"));
        QVERIFY(h->peerGot("NICK newme"));
        // The displayed nick waits for the server.
        QCOMPARE(w->connection->currentNick(), QStringLiteral("me"));

        // While pending, the new nick counts as one's own: no mention, no
        // highlight for a line sent under it.
        w->appendMessageToTab("#x", "hello me", "NEWME", false);
        QVERIFY(!w->tabs.value("#x").highlighted);

        h->serverSays(":me!u@h NICK :newme");
        QCOMPARE(w->connection->currentNick(), QStringLiteral("newme"));
        QVERIFY(w->pendingNewNick.isEmpty());
    }

    void unchangedOrEmptyNickIsIgnored_data()
    {
        QTest::addColumn<QString>("typed");
        QTest::newRow("empty") << "   ";
        QTest::newRow("same") << "me";
    }

    void unchangedOrEmptyNickIsIgnored()
    {
        QFETCH(QString, typed);
        QVERIFY(h->connect("me"));
        answerTextDialog(typed, true);
        w->onChangeNick();
        QTest::qWait(50);
        QVERIFY(h->peer->linesStartingWith("NICK").isEmpty());
        QVERIFY(w->pendingNewNick.isEmpty());
    }

    void nickChangeWhileAwayComesBackFirst()
    {
        openChatTabs();
        answerTextDialog("gone", true);
        w->onSetAway();
        QTRY_COMPARE_WITH_TIMEOUT(messages(w, "#a").count("is away (gone)"), 1, 5000);
        h->peer->clear();

        answerTextDialog("other", true);
        w->onChangeNick();
        QVERIFY(!w->awayActive);
        QCOMPARE(w->awayAction->text(), QStringLiteral("Marked Away..."));
        QCOMPARE(messages(w, "Server").last(), QStringLiteral("*** You are back"));
        QTRY_COMPARE_WITH_TIMEOUT(h->peer->lines(), (QStringList { "AWAY", "NICK other" }), 5000);
        QTest::qWait(50);
        QCOMPARE(messages(w, "#a").count("is back"), 0);
    }

    // ---- Emoji popup -----------------------------------------------------------

    void emojiGoesToTheCursorAndFocusReturns()
    {
        w->show();
        QVERIFY(QTest::qWaitForWindowExposed(w));
        w->appendMessageToTab("#a", "x", "bob", false);
        w->tabWidget->setCurrentWidget(w->tabs.value("#a").widget);
        QVERIFY(w->emojiButton->isVisible());
        w->inputLine->setText("hello world");
        w->inputLine->setCursorPosition(5);

        w->emojiButton->click();
        EmojiPicker* picker = w->findChild<EmojiPicker*>();
        QVERIFY(picker);
        QVERIFY(picker->isVisible());
        QVERIFY(picker->testAttribute(Qt::WA_DeleteOnClose));
        const QString thumbsUp = QStringLiteral("\U0001F44D");
        QPushButton* button = nullptr;
        for (QPushButton* candidate : picker->findChildren<QPushButton*>()) {
            if (candidate->text() == thumbsUp)
                button = candidate;
        }
        QVERIFY(button);
        QPointer<EmojiPicker> guard = picker;
        button->click();
        QCOMPARE(w->inputLine->text(), QStringLiteral("hello") + thumbsUp + QStringLiteral(" world"));
        QTRY_VERIFY(guard.isNull());
        QTRY_COMPARE(w->focusWidget(), w->inputLine);

        // Each press opens a new popup.
        w->emojiButton->click();
        w->emojiButton->click();
        QCOMPARE(w->findChildren<EmojiPicker*>().size(), 2);
    }

    // ---- Topic strip -------------------------------------------------------------

    void topicShowsFormattingAndLinks()
    {
        QVERIFY(h->connectAndRegister("me"));
        h->serverSays(":me!u@h JOIN :#c\n"
                      ":irc.test 332 me #c :\x02" "bold\x02 see https://example.org/x <b>not markup</b>");
        QLabel* label = w->tabs.value("#c").topicLabel;
        QVERIFY(label);
        QVERIFY(label->text().contains("<b>bold</b>"));
        QVERIFY(label->text().contains("<a href=\"https://example.org/x\">https://example.org/x</a>"));
        QVERIFY(label->text().contains("&lt;b&gt;not markup&lt;/b&gt;"));
        QCOMPARE(w->channelTopics.value("#c"), QStringLiteral("\x02" "bold\x02 see https://example.org/x <b>not markup</b>"));
    }

    void pencilFollowsOperatorStatus_data()
    {
        QTest::addColumn<QString>("symbol");
        QTest::addColumn<bool>("shown");
        QTest::newRow("owner") << "~" << true;
        QTest::newRow("admin") << "&" << true;
        QTest::newRow("op") << "@" << true;
        QTest::newRow("halfop") << "%" << true;
        QTest::newRow("voice") << "+" << false;
        QTest::newRow("none") << "" << false;
    }

    void pencilFollowsOperatorStatus()
    {
        QFETCH(QString, symbol);
        QFETCH(bool, shown);
        QVERIFY(h->connectAndRegister("me"));
        h->serverSays(":me!u@h JOIN :#c\n:irc.test 353 me = #c :" + symbol.toUtf8() + "me bob\n:irc.test 366 me #c :End");
        QPushButton* pencil = w->tabs.value("#c").editTopicBtn;
        QCOMPARE(!pencil->isHidden(), shown);
        // Losing the status with a fresh member list hides it again.
        h->serverSays(":irc.test 353 me = #c :me bob\n:irc.test 366 me #c :End");
        QVERIFY(pencil->isHidden());
    }

    void nonOperatorIsRefused()
    {
        QVERIFY(h->connectAndRegister("me"));
        h->serverSays(":me!u@h JOIN :#c\n:irc.test 353 me = #c :+me\n:irc.test 366 me #c :End");
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
        QString opened;
        ModalDriver::onModal<EditTopicDialog>([&opened](EditTopicDialog* dialog) {
            auto* field = dialog->findChild<QTextEdit*>();
            opened = field->toPlainText();
            field->setPlainText("  new topic  ");
            dialog->accept();
        });
        w->tabs.value("#chan").editTopicBtn->click();
        QCOMPARE(opened, QStringLiteral("old \x1Dtopic"));
        QVERIFY(h->peerGot("TOPIC #chan :new topic"));
        // Shown at once, without waiting for the server.
        QCOMPARE(w->channelTopics.value("#chan"), QStringLiteral("new topic"));
        QCOMPARE(w->tabs.value("#chan").topicLabel->text(), QStringLiteral("new topic"));
    }

    void editingWhileDisconnectedDoesNothing()
    {
        w->appendMessageToTab("#c", "x", "bob", false);
        const auto box = ModalDriver::onModal<QDialog>([](QDialog* d) { d->reject(); });
        w->editTopic("#c");
        QTest::qWait(50);
        box->cancelled = true;
        QVERIFY(!box->handled);
    }
};

QUENVAR_TEST_MAIN(TestDialogs)
#include "tst_dialogs.moc"
