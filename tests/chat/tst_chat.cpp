// The chat window against an in-process peer playing the server: tabs and
// drafts, rows, mentions, member actions, the input line and its commands.
// Flows a real server shows (the member list among them) are checked in
// tests/e2e/client.

#include "ChatRows.h"
#include "HighlightTabBar.h"
#include "IrcText.h"
#include "MemberListView.h"
#include "MyTabWidget.h"
#include "TestMain.h"
#include "WindowHarness.h"

#include <QClipboard>
#include <QCompleter>
#include <QLineEdit>
#include <QPushButton>
#include <QScrollBar>
#include <QSettings>
#include <QSignalSpy>
#include <QStatusBar>
#include <QStringListModel>

namespace {

// Grey: a colour of its own, without hue.
bool isGrey(const QTextCharFormat& format)
{
    return format.hasProperty(QTextFormat::ForegroundBrush) && format.foreground().color().hslHue() < 0;
}

// A nick's colour as rows show it: its hue, the lightness made to read.
bool inNickColour(const QTextCharFormat& format, const QString& nick)
{
    const int shown = format.foreground().color().hslHue();
    const int hue = IrcText::nickColor(nick).hslHue();
    const int apart = qAbs(shown - hue);
    return (shown < 0 && hue < 0) || (shown >= 0 && hue >= 0 && qMin(apart, 360 - apart) <= 3);
}

} // namespace

class TestChat : public QObject
{
    Q_OBJECT

private:
    std::unique_ptr<WindowHarness> h;
    MainWindow* w = nullptr;

    // A row in tab, which is opened when missing.
    void say(const QString& tab, const QString& text, const QString& sender = "bob", bool service = false) { w->session()->addLine(tab, text, sender, service); }
    // Enter pressed on text in the input line.
    void type(const QString& text) { w->inputLine->setText(text); w->onSendInput(); }
    ChatView* view(const QString& tab) const { return w->network()->tabs.value(tab).chatView; }
    // The format of the last row's timestamp (column 0), nick (1) or message (2).
    QTextCharFormat lastFormat(const QString& tab, int column) const
    {
        const QString row = lastChatRow(view(tab));
        const int at = column == 0 ? 0 : int(column == 1 ? row.indexOf('\t') : row.lastIndexOf('\t')) + 1;
        return view(tab)->formatAt(view(tab)->rowCount() - 1, at);
    }
    QStringList messages(const QString& tab) const { return chatMessages(view(tab)); }
    QString lastMessage(const QString& tab) const { return messages(tab).value(messages(tab).size() - 1); }
    int indexOf(const QString& tab) const { return w->tabWidget->indexOf(w->network()->tabs.value(tab).widget); }
    void switchTo(const QString& tab) { w->tabWidget->setCurrentIndex(indexOf(tab)); }
    bool marked(const QString& tab) const { return w->network()->tabs.value(tab).highlighted; }
    // Shows a channel's member list with the given names (a complete NAMES reply).
    void showMembers(const QString& channel, const QStringList& names)
    {
        say(channel, "joined", "someone", true);
        switchTo(channel);
        emit w->session()->connection()->namesList(channel, names);
        emit w->session()->connection()->namesListFinished(channel);
    }
    QModelIndex member(const QString& entry) const { return w->userList->model()->index(w->userList->rowOf(entry), 0); }
    bool italic(const QString& entry) const { return qvariant_cast<QFont>(member(entry).data(Qt::FontRole)).italic(); }
    bool showWindow() { w->show(); w->activateWindow(); return QTest::qWaitForWindowActive(w); }

private slots:
    void init()
    {
        QSettings().setValue("sendInterval", 0); // no pacing on the test link
        h = std::make_unique<WindowHarness>();
        w = h->window.get();
    }
    void cleanup() { h.reset(); }

    // Each tab keeps its own draft and its own input area (member list and
    // emoji button where they serve); sending clears the draft.
    void tabsKeepTheirDrafts()
    {
        QVERIFY(w->userList->isHidden() && w->emojiButton->isHidden());
        QVERIFY(h->connect());
        say("#a", "x");
        say("bob", "x");
        QVERIFY(!w->userList->isHidden() && !w->emojiButton->isHidden());
        w->inputLine->setText("half typed");
        switchTo("bob");
        QVERIFY(w->userList->isHidden() && !w->emojiButton->isHidden() && w->inputLine->text().isEmpty());
        w->inputLine->setText("for bob");
        switchTo("Server");
        QVERIFY(w->emojiButton->isHidden() && w->inputLine->text().isEmpty());
        switchTo("#a");
        QCOMPARE(w->inputLine->text(), QStringLiteral("half typed"));
        switchTo("bob");
        QCOMPARE(w->inputLine->text(), QStringLiteral("for bob"));
        switchTo("#a");
        QTest::keyClick(w->inputLine, Qt::Key_Return);
        QTRY_COMPARE_WITH_TIMEOUT(h->peer->linesStartingWith("PRIVMSG"), QStringList { "PRIVMSG #a :half typed" }, 5000);
        QCOMPARE(lastMessage("#a"), QStringLiteral("half typed"));
        switchTo("bob");
        switchTo("#a");
        QCOMPARE(w->inputLine->text(), QString());
    }

    // Close buttons, double clicks and the Close key; the server tab stays.
    // Disconnected nothing is sent; connected a channel's tab parts (its
    // draft forgotten) and the server's echo opens nothing again.
    void closingTabs()
    {
        for (const char* tab : { "#a", "#b", "#c", "carol" })
            say(tab, "x");
        QVERIFY(showWindow());
        const auto close = [this](const QString& tab) {
            qobject_cast<QPushButton*>(w->tabBar->tabButton(indexOf(tab), QTabBar::LeftSide))->click();
        };
        QSignalSpy errors(w->session()->connection(), &IRCConnection::errorOccurred);
        close("Server");
        QTest::mouseDClick(w->tabBar, Qt::LeftButton, {}, w->tabBar->tabRect(0).center());
        QVERIFY(w->tabWidget->count() == 5 && w->tabBar->isHighlighted(4));
        close("#a"); // the private tab's mark moves with it
        QVERIFY(indexOf("#a") < 0 && !w->tabBar->isHighlighted(2) && w->tabBar->isHighlighted(3));
        close("carol");
        QTest::mouseDClick(w->tabBar, Qt::LeftButton, {}, w->tabBar->tabRect(indexOf("#b")).center());
        QVERIFY(indexOf("carol") < 0 && indexOf("#b") < 0 && errors.isEmpty());
        switchTo("Server");
        QTest::keySequence(w, QKeySequence::Close);
        QCOMPARE(w->tabWidget->count(), 2);

        QVERIFY(h->connect());
        showMembers("#c", { "mynick", "bob" });
        w->inputLine->setText("draft");
        QTest::keySequence(w, QKeySequence::Close);
        QTRY_COMPARE_WITH_TIMEOUT(h->peer->lines(), QStringList { "PART #c :Leaving" }, 5000);
        QCOMPARE(lastMessage("Server"), QStringLiteral("*** You left #c"));
        QVERIFY(!w->network()->tabInputHistory.contains("#c"));
        h->serverSays(":mynick!u@h PART :#c\n:bob!u@h PRIVMSG mynick :hi");
        QVERIFY(indexOf("#c") < 0 && !w->session()->hasMembers("#c") && indexOf("bob") >= 0);
    }

    // Timestamp grey in the chosen format, nick bold in its colour and cut to
    // 15 characters (never within a surrogate pair). The own lines (also
    // under the pending nick) while away carry the note, nick grey italic,
    // message grey.
    void rowLook()
    {
        say("#chan", "hi", "alice");
        QVERIFY(isGrey(lastFormat("#chan", 0)) && lastFormat("#chan", 1).fontWeight() == 700);
        QVERIFY(QRegularExpression("^\\[\\d\\d:\\d\\d:\\d\\d\\]\\talice  \\t hi$").match(lastChatRow(view("#chan"))).hasMatch());
        w->prefs.timestampFormat = QStringLiteral("'<'HH'>'");
        for (const auto& [nick, shown] : { std::pair<QString, QString> { "sixteen_letters_", "sixteen_letters_" },
                 { "seventeen_letters", "seventeen_lette\u2026" }, { "abcdefghijklmn\U0001F600xyz", "abcdefghijklmn\u2026" } }) {
            say("#chan", "hi", nick);
            QCOMPARE(lastChatRow(view("#chan")).section('\t', 1, 1), shown + "  ");
            QVERIFY(lastChatRow(view("#chan")).contains(QRegularExpression("^<\\d\\d>\\t")));
            QVERIFY(inNickColour(lastFormat("#chan", 1), shown));
        }

        QVERIFY(h->connect());
        // The sender, away, a service line, the away look (nick grey italic, message grey), the message column.
        const QList<std::tuple<QString, bool, bool, bool, QString>> cases { { "MyNick", false, false, false, " text" },
            { "mynick", true, false, true, "[Away: at lunch] text" }, { "mynick", true, true, true, " text" },
            { "bob", true, false, false, " text" }, { "NewNick", true, false, true, "[Away: at lunch] text" } };
        for (const auto& [sender, away, service, awayLook, message] : cases) {
            if (sender == "NewNick")
                w->session()->changeNick("newnick");
            if (away && !w->session()->isAway())
                w->session()->setAway("at lunch");
            say("#chan", "text", sender, service);
            QCOMPARE(lastChatRow(view("#chan")).section('\t', -1), message);
            const QTextCharFormat nick = lastFormat("#chan", 1);
            QVERIFY2(awayLook ? isGrey(nick) : inNickColour(nick, sender), qPrintable(sender));
            QVERIFY(nick.fontItalic() == awayLook && isGrey(lastFormat("#chan", 2)) == (awayLook || service));
        }
    }

    // A mention in a channel and every private message mark their tab and,
    // unless it is the current one, show a notification; the own lines never
    // do. Switching to the tab clears the mark. Once the server confirms a
    // new nick, the old one is no mention.
    void mentions()
    {
        QVERIFY(h->connect());
        w->session()->changeNick("nextnick");
        say("#side", "x"); // current: opened from the server tab
        say("#chan", "x");
        const QString full = "mynick " + QString(248, QLatin1Char('y'));
        // The tab, the sender, the message, whether it marks the tab, the notification.
        const QList<std::tuple<QString, QString, QString, bool, QString>> cases {
            { "#chan", "bob", "Hello MyNick!", true, "#chan: bob: Hello MyNick!" },
            { "#side", "bob", "Hello MyNick!", false, "" }, { "#chan", "bob", "Hello mynickname", false, "" },
            { "#chan", "MYNICK", "mynick says hi", false, "" }, { "#chan", "NextNick", "mynick again", false, "" },
            { "Server", "bob", "mynick: hello", false, "" }, { "bob", "bob", "psst", true, "bob: psst" },
            { "carol", "mynick", "mynick: hi", false, "" }, { "#chan", "bob", full, true, "#chan: bob: " + full },
            { "#chan", "bob", full + "z", true, "#chan: bob: " + full.left(252) + "..." } };
        for (const auto& [tab, sender, message, mark, notice] : cases) {
            w->statusBar()->clearMessage();
            say(tab, message, sender);
            QVERIFY2(marked(tab) == mark, qPrintable(message));
            QCOMPARE(w->tabBar->isHighlighted(indexOf(tab)), mark && tab != "#side");
            QCOMPARE(w->statusBar()->currentMessage(), notice);
            switchTo(tab);
            switchTo("#side");
            QVERIFY(!marked(tab) && !w->tabBar->isHighlighted(indexOf(tab)));
        }
        emit w->session()->connection()->nickChanged("mynick", "second");
        say("#chan", "mynick!");
        QVERIFY(!marked("#chan"));
        say("#chan", "hi second");
        QVERIFY(marked("#chan"));
    }

    // Rows of a batch are laid out once it is over; then the view follows
    // the last row. The grey rule right of the nick column runs down the
    // view; nicks end just left of it and no text, wrapped lines included,
    // touches it.
    void longScrollback()
    {
        w->resize(1280, 720);
        QVERIFY(showWindow());
        say("#chan", "first");
        ChatView* chat = view("#chan");
        QTRY_VERIFY_WITH_TIMEOUT(!chat->inBatch(), 5000);
        const int rangeBefore = chat->verticalScrollBar()->maximum();
        w->network()->beginAppendBatch();
        const QStringList nicks { "alice", "averyveryverylongnickname", "Eve" };
        for (int i = 0; i < 100; ++i)
            say("#chan", QStringLiteral("message %1, see https://example.org/page/%1").arg(i), nicks.at(i % 3));
        say("#chan", QStringLiteral("a long line that wraps around the end of the view ").repeated(6));
        QTest::qWait(50);
        QVERIFY(chat->inBatch() && chat->verticalScrollBar()->maximum() == rangeBefore);
        w->network()->endAppendBatch();
        QTRY_VERIFY_WITH_TIMEOUT(!chat->inBatch(), 5000);
        QVERIFY(chat->rowCount() == 102 && chat->isAtEnd() && chat->verticalScrollBar()->maximum() > 0);
        QTest::qWait(50);
        const QImage image = chat->viewport()->grab().toImage();
        const int ruleX = qRound(chat->ruleX());
        const auto count = [&image](int x0, int x1, auto test) {
            int found = 0;
            for (int y = 0; y < image.height(); ++y)
                for (int x = x0; x <= x1; ++x)
                    found += test(image.pixel(x, y)) ? 1 : 0;
            return found;
        };
        const auto ink = [](QColor c) { return c.lightness() < 200; };
        QVERIFY(count(ruleX, ruleX, [](QColor c) { return c == QColor(136, 136, 136); }) > image.height() * 9 / 10);
        QVERIFY(count(ruleX - 20, ruleX - 8, ink) > 0);
        QCOMPARE(count(ruleX - 1, ruleX - 1, ink) + count(ruleX + 1, ruleX + 1, ink), 0);
    }

    // A double click opens or finds someone's private tab (not the own, nor
    // disconnected); a message opens one that becomes current when the
    // server tab is. The member menu's entries and what each sends; none
    // below the members.
    void memberActions()
    {
        showMembers("#c", { "@mynick", "@bob" });
        w->onUserDoubleClicked("@bob");
        QCOMPARE(w->tabWidget->count(), 2);
        QVERIFY(h->connect());
        w->onUserDoubleClicked("@mynick");
        w->session()->changeNick("BOB");
        w->onUserDoubleClicked("@bob");
        QCOMPARE(w->tabWidget->count(), 2);
        emit w->session()->connection()->ownNickChanged("mynick"); // the server refused it
        w->onUserDoubleClicked("@bob");
        QCOMPARE(w->currentTabName, QStringLiteral("bob"));
        switchTo("#c");
        w->onUserDoubleClicked("@bob");
        QVERIFY(w->currentTabName == "bob" && w->tabWidget->count() == 3);
        switchTo("Server");
        say("Carl", "hi", "Carl");
        QCOMPARE(w->currentTabName, QStringLiteral("Carl"));
        QVERIFY(w->statusBar()->currentMessage().isEmpty() && !w->tabBar->isHighlighted(indexOf("Carl")));
        QCOMPARE(w->network()->findPrivateChatTab("CARL"), QStringLiteral("Carl"));

        switchTo("#c");
        w->closeTab(indexOf("bob"));
        // Each peer is watched once, while the tab is open.
        QTRY_COMPARE(h->peer->linesStartingWith("WATCH"), (QStringList { "WATCH +bob", "WATCH +Carl", "WATCH -bob" }));
        QVERIFY(showWindow());
        const QList<std::pair<QString, QStringList>> cases { { "", {} }, { "Kick", { "KICK #c bob :Requested" } },
            { "Ban", { "MODE #c +b bob!*@*" } }, { "Kick/Ban", { "MODE #c +b bob!*@*", "KICK #c bob :Banned" } },
            { "Whois", { "WHOIS bob" } }, { "Open Private Chat", { "WATCH +bob" } } };
        for (const auto& [item, lines] : cases) {
            h->peer->clear();
            QStringList items;
            const auto menu = onNextMenu(item, &items);
            w->showUserContextMenu(item.isEmpty() ? QPoint(5, w->userList->viewport()->height() - 3)
                                                  : w->userList->visualRect(member("@bob")).center());
            menu->cancelled = true;
            const QStringList entries { "Open Private Chat", "Whois", "-", "Kick", "Ban", "Kick/Ban", "-" };
            QCOMPARE(items, item.isEmpty() ? QStringList() : entries);
            QTRY_COMPARE_WITH_TIMEOUT(h->peer->lines(), lines, 5000);
        }
        QVERIFY(w->session()->whoisReplyBuffer() == "#c" && w->currentTabName == "bob");
    }

    // What typed lines show rather than send, and where; then the lines
    // commands send (those other users see are also checked against the real
    // server in tests/e2e/client).
    void inputLine()
    {
        say("#a", "x");
        type("/j other"); // disconnected: nothing goes out, the line stays
        QCOMPARE(w->inputLine->text(), QStringLiteral("/j other"));
        type("hello");
        QVERIFY(lastMessage("#a") == "*** Not connected." && w->inputLine->text() == "hello");
        w->inputLine->clear();

        QVERIFY(h->connect());
        switchTo("Server");
        // A private message shows in its tab (then current), feedback in the
        // current one; an unknown command's line stays to be put right.
        for (const auto& [typed, tab, row] : { std::tuple<QString, QString, QString> { "hello world", "Server",
                 "Cannot send messages to Server tab." },
                 { "/l", "Server", "*** Please wait for registration to complete before using /list." },
                 { "/m bob hi  there", "bob", "hi  there" }, { "/J", "bob", "Unknown command: join" },
                 { "/kick carl", "bob", "*** /kick works in a channel tab." },
                 { "/topic #a", "bob", "*** No topic is known for #a" } }) {
            type(typed);
            QVERIFY(lastMessage(tab) == row && w->currentTabName == tab && w->inputLine->text() == (typed == "/J" ? typed : ""));
        }
        emit w->session()->connection()->topicReceived("#a", "All about a");
        switchTo("#a");
        type("/topic");
        QCOMPARE(lastMessage("#a"), QStringLiteral("*** Topic of #a: All about a"));
        type("/query BOB");
        QCOMPARE(w->currentTabName, QStringLiteral("bob"));
        type("/clear");
        QVERIFY(view("bob")->rowCount() == 0 && w->session()->lineCount("bob") == 0);
        type("/close");
        QVERIFY(!w->network()->tabs.contains("bob") && !w->session()->hasBuffer("bob"));
        QTRY_COMPARE(h->peer->lines(), (QStringList { "PRIVMSG bob :hi  there", "WATCH +bob", "WATCH -bob" }));

        const QList<std::pair<QString, QStringList>> cases { { "/j linux", { "JOIN #linux" } },
            { "/join #a,b k1,k2", { "JOIN #a,#b k1,k2" } }, { "/p", { "PART #cur :Leaving" } },
            { "/raw MODE  #cur +m", { "MODE  #cur +m" } }, { "/wc carl", { "WHOIS carl" } }, { "/away", { "AWAY :Away" } },
            { "/b", { "AWAY" } }, { "  hello  ", { "PRIVMSG #cur :hello" } }, { "/kick carl", { "KICK #cur carl :Requested" } },
            { "/ban carl", { "MODE #cur +b carl!*@*" } }, { "/mode mynick +i", { "MODE mynick +i" } },
            { "/op a b c d", { "MODE #cur +ooo a b c", "MODE #cur +o d" } }, { "/devoice a", { "MODE #cur -v a" } },
            { "/invite carl #x", { "INVITE carl #x" } }, { "/who #cur", { "WHO #cur" } },
            { "/query carl hi", { "WATCH +carl", "PRIVMSG carl :hi" } }, { "/close", { "PART #cur :Leaving" } },
            { "/quit", { "QUIT :Quenvar leaving" } } };
        for (const auto& [typed, lines] : cases) {
            say("#cur", "x");
            switchTo("#cur");
            h->peer->clear();
            type(typed);
            QTRY_COMPARE_WITH_TIMEOUT(h->peer->lines(), lines, 5000);
            if (typed == "/wc carl") // WHOIS replies go to the tab the request was typed in
                QCOMPARE(w->session()->whoisReplyBuffer(), QStringLiteral("#cur"));
        }
    }

    // Away is said in every chat tab once the current event is handled, with
    // the lines as they read when given, also when back within the same
    // event; the own member entry stays away when the list is rebuilt. (The
    // away and nick dialogs are checked in tests/dialogs.)
    void awayInEveryTab()
    {
        QVERIFY(h->connect("me"));
        say("#b", "x");
        say("carl", "x", "carl");
        showMembers("#a", { "@me", "bob" });
        const QString away = "is away (gone fishing)";
        type("/a   gone fishing  ");
        QCOMPARE(lastMessage("Server"), QStringLiteral("*** You are marked as away (gone fishing)"));
        emit w->session()->connection()->namesList("#a", { "@me", "bob" });
        emit w->session()->connection()->namesListFinished("#a");
        QVERIFY(italic("@me") && !italic("bob") && !messages("#a").contains(away));
        QTRY_VERIFY_WITH_TIMEOUT(messages("#a").contains(away), 5000);
        for (const char* tab : { "#a", "#b", "carl" })
            QCOMPARE(messages(tab).count(away), 1);
        QVERIFY(!messages("Server").contains(away));
        w->session()->setBack(true);
        w->session()->setAway("brb");
        w->session()->setBack(true);
        w->closeTab(indexOf("#b"));
        QTRY_COMPARE_WITH_TIMEOUT(messages("carl").count("is back"), 2, 5000);
        QCOMPARE(messages("carl").mid(messages("carl").size() - 2), (QStringList { "is away (brb)", "is back" }));
    }

    // Completion offers the members without symbols, the private tab's peer
    // and the own nick; it completes the word before the cursor, keeping the
    // typed case; Tab completes and keeps the focus.
    void completion()
    {
        QVERIFY(h->connect("me"));
        showMembers("#c", { "@alice", "alan" });
        QCOMPARE(w->nickCompletionWords(), (QStringList { "alice", "alan", "me" }));
        say("carl", "x", "carl");
        switchTo("carl");
        QCOMPARE(w->nickCompletionWords(), (QStringList { "carl", "me" }));
        switchTo("Server");
        QCOMPARE(w->nickCompletionWords(), QStringList { "me" });
        switchTo("#c");
        for (const auto& [typed, result] : { std::pair<QString, QString> { "hey al", "hey alice" }, { "hey ala", "hey alan" },
                 { "ALa", "ALan" }, { "/whois al", "/whois al" }, { "zz", "zz" }, { "m", "me" } }) {
            w->inputLine->setText(typed);
            w->completeNick();
            QCOMPARE(w->inputLine->text(), result);
        }
        // Someone joins, then text is pasted: the popup already offers them.
        w->inputLine->clear();
        emit w->session()->connection()->joinReceived("dana", "#c");
        QGuiApplication::clipboard()->setText("da");
        w->inputLine->paste();
        const auto* model = qobject_cast<QStringListModel*>(w->nickCompleter->model());
        QVERIFY(model && model->stringList().contains("dana"));

        QVERIFY(showWindow());
        w->inputLine->setFocus();
        QTRY_VERIFY_WITH_TIMEOUT(w->inputLine->hasFocus(), 5000);
        w->inputLine->setText("ala");
        QTest::keyClick(w->inputLine, Qt::Key_Tab);
        QVERIFY(w->inputLine->text() == "alan" && w->inputLine->hasFocus());
        // Typed at the start, the completer's popup opens and takes the keys first.
        w->inputLine->clear();
        QTest::keyClicks(w->inputLine, "ala");
        QWidget* popup = w->nickCompleter->popup();
        QTRY_VERIFY_WITH_TIMEOUT(popup->isVisible(), 5000);
        QTest::keyClick(popup, Qt::Key_Tab);
        QVERIFY(w->inputLine->text() == "alan" && !popup->isVisible() && w->inputLine->hasFocus());
    }
};

QUENVAR_TEST_MAIN(TestChat)
#include "tst_chat.moc"
