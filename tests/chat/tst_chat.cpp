// The chat window against an in-process peer playing the server: tabs and
// drafts, rows, mentions, the member list, the input line and its commands.
// Flows a real server shows are checked in tests/e2e/client.

#include "ChatView.h"
#include "HighlightTabBar.h"
#include "IRCConnection.h"
#include "IrcText.h"
#include "MainWindow.h"
#include "MemberListView.h"
#include "MyTabWidget.h"
#include "NetworkView.h"
#include "Session.h"
#include "TestMain.h"
#include "WindowHarness.h"

#include <QApplication>
#include <QClipboard>
#include <QCompleter>
#include <QLineEdit>
#include <QPushButton>
#include <QRegularExpression>
#include <QScrollBar>
#include <QSettings>
#include <QSignalSpy>
#include <QSplitter>
#include <QStatusBar>
#include <QStringListModel>
#include <QTest>

#include <memory>

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

template <typename... Values> void addRow(const char* name, const Values&... values)
{
    (QTest::newRow(name) << ... << values);
}

} // namespace

class TestChat : public QObject
{
    Q_OBJECT

private:
    std::unique_ptr<WindowHarness> h;
    MainWindow* w = nullptr;

    // A row in tab, which is opened when missing.
    void say(const QString& tab, const QString& text, const QString& sender = "bob", bool service = false)
    {
        w->session()->addLine(tab, text, sender, service);
    }
    // Enter pressed on text in the input line.
    void type(const QString& text)
    {
        w->inputLine->setText(text);
        w->onSendInput();
    }
    QString completed(const QString& text)
    {
        w->inputLine->setText(text);
        w->completeNick();
        return w->inputLine->text();
    }
    ChatView* view(const QString& tab) const { return w->network()->tabs.value(tab).chatView; }
    QString lastRow(const QString& tab) const { return view(tab)->rowText(view(tab)->rowCount() - 1); }
    // The format of the last row's timestamp (column 0), nick (1) or message (2).
    QTextCharFormat lastFormat(const QString& tab, int column) const
    {
        const QString row = lastRow(tab);
        const int at = column == 0 ? 0 : int(column == 1 ? row.indexOf('\t') : row.lastIndexOf('\t')) + 1;
        return view(tab)->formatAt(view(tab)->rowCount() - 1, at);
    }
    QStringList messages(const QString& tab) const
    {
        QStringList result;
        for (int i = 0; i < view(tab)->rowCount(); ++i)
            result << view(tab)->rowText(i).section(QLatin1Char('\t'), -1).trimmed();
        return result;
    }
    QString lastMessage(const QString& tab) const { return messages(tab).value(messages(tab).size() - 1); }
    int indexOf(const QString& tab) const
    {
        for (int i = 0; i < w->tabWidget->count(); ++i)
            if (w->tabKey(i) == tab)
                return i;
        return -1;
    }
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
    QModelIndex memberRow(const QString& text) const
    {
        return w->userList->model()->index(w->userList->rowOf(text), 0);
    }
    bool italic(const QString& member) const
    {
        return qvariant_cast<QFont>(memberRow(member).data(Qt::FontRole)).italic();
    }
    QStringList shownMembers() const
    {
        QStringList shown;
        for (int i = 0; i < w->userList->count(); ++i)
            shown << w->userList->model()->index(i, 0).data().toString();
        return shown;
    }
    QStringList sent(const QString& prefix) const { return h->peer->linesStartingWith(prefix); }
    bool showWindow()
    {
        w->show();
        w->activateWindow();
        return QTest::qWaitForWindowActive(w);
    }

private slots:
    void init()
    {
        h = std::make_unique<WindowHarness>();
        w = h->window.get();
    }
    void cleanup() { h.reset(); }

    // Each tab keeps its own draft and its own look of the input area.
    void tabsKeepTheirDrafts()
    {
        QCOMPARE(w->currentTabName, QStringLiteral("Server"));
        QVERIFY(w->userList->isHidden() && w->emojiButton->isHidden());
        QVERIFY(h->connect());
        say("#a", "x");
        say("bob", "x");
        QVERIFY(!w->userList->isHidden() && !w->emojiButton->isHidden());
        QCOMPARE(w->inputLine->placeholderText(), QStringLiteral("Type a message..."));
        w->inputLine->setText("half typed");
        switchTo("bob");
        QVERIFY(w->userList->isHidden() && !w->emojiButton->isHidden());
        QCOMPARE(w->inputLine->text(), QString());
        w->inputLine->setText("for bob");
        switchTo("Server");
        QVERIFY(w->emojiButton->isHidden());
        QCOMPARE(w->inputLine->placeholderText(), QStringLiteral("Type a command..."));
        QCOMPARE(w->inputLine->text(), QString());
        switchTo("#a");
        QCOMPARE(w->inputLine->text(), QStringLiteral("half typed"));
        switchTo("bob");
        QCOMPARE(w->inputLine->text(), QStringLiteral("for bob"));
        // Sending clears the draft.
        switchTo("#a");
        QTest::keyClick(w->inputLine, Qt::Key_Return);
        QTRY_COMPARE_WITH_TIMEOUT(sent("PRIVMSG"), QStringList { "PRIVMSG #a :half typed" }, 5000);
        QCOMPARE(lastMessage("#a"), QStringLiteral("half typed"));
        switchTo("bob");
        switchTo("#a");
        QCOMPARE(w->inputLine->text(), QString());
    }

    // Close buttons, double clicks and the Close key; the server tab stays.
    // A channel tab closed while connected parts (its draft is forgotten);
    // the server's echo opens nothing again.
    void closingTabs()
    {
        for (const char* tab : { "#a", "#b", "#c", "carol" })
            say(tab, "x");
        QVERIFY(showWindow());
        const auto button = [this](const QString& tab) {
            return qobject_cast<QPushButton*>(w->tabBar->tabButton(indexOf(tab), QTabBar::LeftSide));
        };
        QSignalSpy errors(w->session()->connection(), &IRCConnection::errorOccurred);
        button("Server")->click();
        QTest::mouseDClick(w->tabBar, Qt::LeftButton, {}, w->tabBar->tabRect(0).center());
        QCOMPARE(w->tabWidget->count(), 5);
        // A button closes its own tab, also after tabs before it went; the
        // private tab's mark moves with it. Disconnected, nothing is sent.
        QVERIFY(w->tabBar->isHighlighted(4));
        button("#a")->click();
        QCOMPARE(indexOf("#a"), -1);
        QVERIFY(!w->tabBar->isHighlighted(2) && w->tabBar->isHighlighted(3));
        button("carol")->click();
        QCOMPARE(indexOf("carol"), -1);
        QTest::mouseDClick(w->tabBar, Qt::LeftButton, {}, w->tabBar->tabRect(indexOf("#b")).center());
        QCOMPARE(indexOf("#b"), -1);
        QCOMPARE(errors.count(), 0);
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
        QCOMPARE(indexOf("#c"), -1);
        QVERIFY(!w->session()->hasMembers("#c"));
        QVERIFY(indexOf("bob") >= 0);
    }

    void splitterKeepsOneFifth()
    {
        say("#a", "x");
        QVERIFY(showWindow());
        w->resize(w->width() + 1003 - w->splitter->width(), w->height());
        QTRY_COMPARE_WITH_TIMEOUT(w->splitter->width(), 1003, 5000);
        // 803 and 200 asked for, fitted beside the 8 px handle.
        const QList<int> oneFifth { 797, 198 };
        QTRY_COMPARE_WITH_TIMEOUT(w->splitter->sizes(), oneFifth, 5000);
        // A drag lasts until the next tab switch.
        w->splitter->setSizes({ 500, 503 });
        switchTo("Server");
        QTRY_COMPARE_WITH_TIMEOUT(w->splitter->sizes().value(1), 0, 5000);
        switchTo("#a");
        QTRY_COMPARE_WITH_TIMEOUT(w->splitter->sizes(), oneFifth, 5000);
    }

    // Timestamp grey, nick bold in its colour and cut to 15 characters
    // (never within a surrogate pair), links; the server tab has no nick column.
    void rowColumns()
    {
        const auto matches = [](const QString& text, const QString& pattern) {
            return QRegularExpression(pattern).match(text).hasMatch();
        };
        say("#chan", "see https://example.org/a?b=c#d or mail me@example.com", "alice");
        QVERIFY2(matches(lastRow("#chan"), "^\\[\\d\\d:\\d\\d:\\d\\d\\]\\talice  \\t see https://"), qPrintable(lastRow("#chan")));
        QVERIFY(isGrey(lastFormat("#chan", 0)));
        QCOMPARE(lastFormat("#chan", 1).fontWeight(), 700);
        QStringList hrefs;
        for (const IrcText::LinkSegment& link : view("#chan")->row(0).links)
            hrefs << link.href;
        QCOMPARE(hrefs, (QStringList { "https://example.org/a?b=c#d", "mailto:me@example.com" }));
        say("Server", "*** Connected", QString());
        QVERIFY2(matches(lastRow("Server"), "^\\[\\d\\d:\\d\\d:\\d\\d\\]\\t\\*\\*\\* Connected$"), qPrintable(lastRow("Server")));
        w->prefs.timestampFormat = QStringLiteral("'<'HH'>'");
        say("#chan", "x");
        QVERIFY(matches(lastRow("#chan"), "^<\\d\\d>\\t"));
        const QList<std::pair<QString, QString>> nicks { { "sixteen_letters_", "sixteen_letters_" },
            { "seventeen_letters", "seventeen_lette\u2026" }, { "abcdefghijklmn\U0001F600xyz", "abcdefghijklmn\u2026" } };
        for (const auto& [nick, shown] : nicks) {
            say("#chan", "hi", nick);
            QCOMPARE(lastRow("#chan").section('\t', 1, 1), shown + "  ");
            QVERIFY(inNickColour(lastFormat("#chan", 1), shown));
        }
    }

    // The own lines (also under the pending nick) while away: the note in
    // front, nick grey italic, message grey.
    void ownLinesLook_data()
    {
        QTest::addColumn<QString>("sender");
        QTest::addColumn<QString>("pendingNick");
        QTest::addColumn<bool>("away");
        QTest::addColumn<bool>("service");
        QTest::addColumn<bool>("awayLook");
        QTest::addColumn<QString>("message");
        addRow("own nick, other case", "MyNick", "", false, false, false, " text");
        addRow("own nick away", "mynick", "", true, false, true, "[Away: at lunch] text");
        addRow("pending nick away", "NewNick", "newnick", true, false, true, "[Away: at lunch] text");
        addRow("own service line away", "mynick", "", true, true, true, " text");
        addRow("someone else, while away", "bob", "", true, false, false, " text");
    }

    void ownLinesLook()
    {
        QFETCH(QString, sender);
        QFETCH(QString, pendingNick);
        QFETCH(bool, away);
        QFETCH(bool, service);
        QFETCH(bool, awayLook);
        QVERIFY(h->connect());
        if (!pendingNick.isEmpty())
            w->session()->changeNick(pendingNick);
        if (away)
            w->session()->setAway("at lunch");
        say("#chan", "text", sender, service);
        QTEST(lastRow("#chan").section('\t', -1), "message");
        const QTextCharFormat nick = lastFormat("#chan", 1);
        QVERIFY(awayLook ? isGrey(nick) : inNickColour(nick, sender));
        QCOMPARE(nick.fontItalic(), awayLook);
        QCOMPARE(isGrey(lastFormat("#chan", 2)), awayLook || service);
    }

    // A mention in a channel and every private message mark their tab and,
    // unless it is the current one, show a notification; the own lines never
    // do. Switching to the tab clears the mark.
    void mention_data()
    {
        QTest::addColumn<QString>("tab");
        QTest::addColumn<QString>("sender");
        QTest::addColumn<QString>("message");
        QTest::addColumn<bool>("mark");
        QTest::addColumn<QString>("notice");
        addRow("channel, case ignored", "#chan", "bob", "Hello MyNick!", true, "#chan: bob: Hello MyNick!");
        addRow("current tab: not marked", "#side", "bob", "Hello MyNick!", false, "");
        addRow("longer word", "#chan", "bob", "Hello mynickname", false, "");
        addRow("own line", "#chan", "MYNICK", "mynick says hi", false, "");
        addRow("pending nick's line", "#chan", "NextNick", "mynick again", false, "");
        addRow("server tab", "Server", "bob", "mynick: hello", false, "");
        addRow("private message", "bob", "bob", "psst", true, "bob: psst");
        addRow("own private line", "carol", "mynick", "mynick: hi", false, "");
        const QString full = "mynick " + QString(248, QLatin1Char('y'));
        addRow("255 characters in full", "#chan", "bob", full, true, "#chan: bob: " + full);
        addRow("longer ones cut", "#chan", "bob", full + "z", true, "#chan: bob: " + full.left(252) + "...");
    }

    void mention()
    {
        QFETCH(QString, tab);
        QFETCH(bool, mark);
        QVERIFY(h->connect());
        w->session()->changeNick("nextnick");
        say("#side", "x"); // current: opened from the server tab
        say("#chan", "x");
        QFETCH(QString, sender);
        QFETCH(QString, message);
        say(tab, message, sender);
        QCOMPARE(marked(tab), mark);
        QCOMPARE(w->tabBar->isHighlighted(indexOf(tab)), mark && tab != "#side");
        QTEST(w->statusBar()->currentMessage(), "notice");
        switchTo("Server");
        switchTo(tab);
        QVERIFY(!marked(tab) && !w->tabBar->isHighlighted(indexOf(tab)));

        // Once the server confirms a new nick, the old one is no mention.
        switchTo("Server");
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
        QVERIFY(chat->inBatch());
        QCOMPARE(chat->verticalScrollBar()->maximum(), rangeBefore);
        w->network()->endAppendBatch();
        QTRY_VERIFY_WITH_TIMEOUT(!chat->inBatch(), 5000);
        QCOMPARE(chat->rowCount(), 102);
        QVERIFY(chat->isAtEnd() && chat->verticalScrollBar()->maximum() > 0);
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

    // NAMES replies in rank order, then name; shown once complete, on the
    // current channel's list; single members added at the end, removed by
    // their exact text. Half-ops and up (the own entry, case kept) get the
    // topic button.
    void memberList()
    {
        say("#c", "x");
        say("#d", "x");
        emit w->session()->connection()->namesList("#c", { "+bob", "@Alice", "%hal" });
        QCOMPARE(w->userList->count(), 0);
        emit w->session()->connection()->namesList("#c", { "~zed", "carl", "@al", "&ann" });
        emit w->session()->connection()->namesListFinished("#c");
        const QStringList expected { "~zed", "&ann", "@al", "@Alice", "%hal", "+bob", "carl" };
        QCOMPARE(w->session()->members("#c"), expected);
        QCOMPARE(shownMembers(), expected);
        emit w->session()->connection()->namesList("#d", { "dave" });
        emit w->session()->connection()->namesListFinished("#d");
        QCOMPARE(shownMembers(), expected);
        switchTo("#d");
        QCOMPARE(shownMembers(), QStringList { "dave" });
        w->userList->addMember("aaron");
        w->userList->removeMember("+dave");
        w->userList->removeMember("DAVE");
        QCOMPARE(shownMembers(), (QStringList { "dave", "aaron" }));
        emit w->session()->connection()->namesListFinished("#d"); // an empty reply
        QCOMPARE(w->userList->count(), 0);

        QVERIFY(h->connect());
        for (const auto& [entry, op] : { std::pair { "%mynick", true }, { "+mynick", false }, { "@MyNick", false } }) {
            showMembers("#c", { "@bob", entry });
            QCOMPARE(w->session()->isOperator("#c"), op);
            QCOMPARE(!w->network()->tabs.value("#c").editTopicBtn->isHidden(), op);
        }
    }

    // A double click opens or finds someone's private tab (not the own
    // one, not disconnected); a message opens one that becomes current when
    // the server tab is; each peer is watched once, while the tab is open.
    void privateTabs()
    {
        showMembers("#c", { "@mynick", "+bob" });
        w->onUserDoubleClicked("+bob");
        QCOMPARE(w->tabWidget->count(), 2);
        QVERIFY(h->connect());
        w->onUserDoubleClicked("@mynick");
        w->session()->changeNick("BOB");
        w->onUserDoubleClicked("+bob");
        QCOMPARE(w->tabWidget->count(), 2);
        emit w->session()->connection()->ownNickChanged("mynick"); // the server refused it
        w->onUserDoubleClicked("+bob");
        QCOMPARE(w->currentTabName, QStringLiteral("bob"));
        switchTo("#c");
        w->onUserDoubleClicked("+bob");
        QCOMPARE(w->currentTabName, QStringLiteral("bob"));
        QCOMPARE(w->tabWidget->count(), 3);
        switchTo("Server");
        say("Carl", "hi", "Carl");
        QCOMPARE(w->currentTabName, QStringLiteral("Carl"));
        QVERIFY(w->statusBar()->currentMessage().isEmpty() && !w->tabBar->isHighlighted(indexOf("Carl")));
        QCOMPARE(w->network()->findPrivateChatTab("CARL"), QStringLiteral("Carl"));
        w->closeTab(indexOf("Carl"));
        QTRY_COMPARE_WITH_TIMEOUT(sent("WATCH"), (QStringList { "WATCH +bob", "WATCH +Carl", "WATCH -Carl" }), 5000);
    }

    void memberMenu_data()
    {
        QTest::addColumn<QString>("item");
        QTest::addColumn<QStringList>("sent");
        addRow("kick", "Kick", QStringList { "KICK #c bob :Requested" });
        addRow("ban", "Ban", QStringList { "MODE #c +b bob!*@*" });
        addRow("kick and ban", "Kick/Ban", QStringList { "MODE #c +b bob!*@*", "KICK #c bob :Banned" });
        addRow("whois", "Whois", QStringList { "WHOIS bob" });
        addRow("private chat", "Open Private Chat", QStringList { "WATCH +bob" });
        addRow("below the items: no menu", "", QStringList());
    }

    void memberMenu()
    {
        QFETCH(QString, item);
        QVERIFY(h->connect());
        showMembers("#c", { "@mynick", "@bob" });
        QVERIFY(showWindow());
        QStringList items;
        const auto menu = onNextMenu(item, &items);
        w->showUserContextMenu(item.isEmpty() ? QPoint(5, w->userList->viewport()->height() - 3)
                                              : w->userList->visualRect(memberRow("@bob")).center());
        menu->cancelled = true;
        const QStringList entries { "Open Private Chat", "Whois", "-", "Kick", "Ban", "Kick/Ban", "-" };
        QCOMPARE(items, item.isEmpty() ? QStringList() : entries);
        QFETCH(QStringList, sent);
        QTRY_COMPARE_WITH_TIMEOUT(h->peer->lines(), sent, 5000);
        if (item == "Whois")
            QCOMPARE(w->session()->whoisReplyBuffer(), QStringLiteral("#c"));
        if (item == "Open Private Chat")
            QCOMPARE(w->currentTabName, QStringLiteral("bob"));
    }

    // What typed lines show rather than send, and where.
    void inputRows()
    {
        say("#a", "x");
        // Disconnected: nothing goes out, the line stays to be sent later.
        type("/j other");
        QCOMPARE(w->inputLine->text(), QStringLiteral("/j other"));
        type("hello");
        QCOMPARE(lastMessage("#a"), QStringLiteral("*** Not connected."));
        QCOMPARE(w->inputLine->text(), QStringLiteral("hello"));
        w->inputLine->clear();

        QVERIFY(h->connect("me"));
        switchTo("Server");
        type("hello world");
        QCOMPARE(lastMessage("Server"), QStringLiteral("Cannot send messages to Server tab."));
        type("/l");
        QCOMPARE(lastMessage("Server"), QStringLiteral("*** Please wait for registration to complete before using /list."));
        QTest::qWait(100);
        QVERIFY(h->peer->lines().isEmpty());
        // A private message shows in its tab, an unknown command in the
        // current one, the line kept to be put right.
        type("/m bob hi  there");
        QCOMPARE(w->currentTabName, QStringLiteral("bob"));
        QCOMPARE(lastMessage("bob"), QStringLiteral("hi  there"));
        type("/J");
        QCOMPARE(lastMessage("bob"), QStringLiteral("Unknown command: join"));
        QCOMPARE(w->inputLine->text(), QStringLiteral("/J"));
        const QList<std::pair<QString, QString>> answers { { "/kick carl", "*** /kick works in a channel tab." },
            { "/ctcp carl version", "*** CTCP VERSION sent to carl" },
            { "/help w", "/whois nick: Show information about a user (also /w, /wc)" },
            { "/topic #a", "*** No topic is known for #a" } };
        for (const auto& [typed, row] : answers) {
            type(typed);
            QCOMPARE(lastMessage("bob"), row);
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
    }

    void commandsSendTheirLines_data()
    {
        QTest::addColumn<QString>("typed");
        QTest::addColumn<QStringList>("sent");
        addRow("join alias adds #", "/j linux", QStringList { "JOIN #linux" });
        addRow("join with keys", "/join #a,b k1,k2", QStringList { "JOIN #a,#b k1,k2" });
        addRow("part the current tab", "/p", QStringList { "PART #cur :Leaving" });
        addRow("part another channel", "/p #x bye", QStringList { "PART #x :bye" });
        addRow("raw keeps the rest", "/raw MODE  #cur +m", QStringList { "MODE  #cur +m" });
        addRow("msg watches", "/msg bob hi  there", (QStringList { "PRIVMSG bob :hi  there", "WATCH +bob" }));
        addRow("whois", "/wc carl", QStringList { "WHOIS carl" });
        addRow("away default reason", "/away", QStringList { "AWAY :Away" });
        addRow("back while not away", "/b", QStringList { "AWAY" });
        addRow("plain text", "  hello  ", QStringList { "PRIVMSG #cur :hello" });
        addRow("me", "/me waves", QStringList { "PRIVMSG #cur :\x01" "ACTION waves\x01" });
        addRow("notice", "/notice #cur heads up", QStringList { "NOTICE #cur :heads up" });
        addRow("ctcp", "/ctcp carl ping 42", QStringList { "PRIVMSG carl :\x01PING 42\x01" });
        addRow("topic set", "/topic new  topic", QStringList { "TOPIC #cur :new  topic" });
        addRow("kick", "/kick carl go away", QStringList { "KICK #cur carl :go away" });
        addRow("ban", "/ban carl", QStringList { "MODE #cur +b carl!*@*" });
        addRow("mode of a target", "/mode mynick +i", QStringList { "MODE mynick +i" });
        addRow("op four", "/op a b c d", (QStringList { "MODE #cur +ooo a b c", "MODE #cur +o d" }));
        addRow("invite", "/invite carl #x", QStringList { "INVITE carl #x" });
        addRow("who", "/who #cur", QStringList { "WHO #cur" });
        addRow("query with text", "/query carl hi", (QStringList { "WATCH +carl", "PRIVMSG carl :hi" }));
        addRow("close parts", "/close", QStringList { "PART #cur :Leaving" });
        addRow("quit default reason", "/quit", QStringList { "QUIT :Quenvar leaving" });
    }

    void commandsSendTheirLines()
    {
        QFETCH(QString, typed);
        QFETCH(QStringList, sent);
        QVERIFY(h->connect());
        say("#cur", "x");
        type(typed);
        QTRY_COMPARE_WITH_TIMEOUT(h->peer->lines(), sent, 5000);
        // WHOIS replies go to the tab the request was typed in.
        QCOMPARE(w->session()->whoisReplyBuffer() == "#cur", typed.startsWith("/wc"));
    }

    // Away and back are said in every chat tab once the current event is
    // handled, with the lines as they read when given; the own member entry
    // looks away (also once the list is rebuilt). A new nick ends the away
    // state without the per-tab lines.
    void awayAndBack()
    {
        QVERIFY(h->connect("me"));
        say("#b", "x");
        say("carl", "x", "carl");
        showMembers("#a", { "@me", "bob" });
        const QString away = "is away (gone fishing)";
        type("/a   gone fishing  ");
        QCOMPARE(lastMessage("Server"), QStringLiteral("*** You are marked as away (gone fishing)"));
        QVERIFY(italic("@me") && !italic("bob"));
        QCOMPARE(qvariant_cast<QBrush>(memberRow("@me").data(Qt::ForegroundRole)).color().hslHue(), -1);
        emit w->session()->connection()->namesList("#a", { "@me", "bob" });
        emit w->session()->connection()->namesListFinished("#a");
        QVERIFY(italic("@me"));
        QVERIFY(!messages("#a").contains(away));
        QTRY_VERIFY_WITH_TIMEOUT(messages("#a").contains(away), 5000);
        for (const char* tab : { "#a", "#b", "carl" })
            QCOMPARE(messages(tab).count(away), 1);
        QVERIFY(!messages("Server").contains(away));
        type("/back");
        QCOMPARE(lastMessage("Server"), QStringLiteral("*** You are back"));
        QVERIFY(!italic("@me") && !memberRow("@me").data(Qt::ForegroundRole).isValid());
        QTRY_COMPARE_WITH_TIMEOUT(messages("carl").count("is back"), 1, 5000);
        QTRY_COMPARE_WITH_TIMEOUT(sent("AWAY"), (QStringList { "AWAY :gone fishing", "AWAY" }), 5000);
        w->session()->setAway("brb");
        w->session()->setBack(true);
        w->closeTab(indexOf("#b"));
        QTRY_COMPARE_WITH_TIMEOUT(messages("carl").count("is back"), 2, 5000);
        QCOMPARE(messages("carl").mid(messages("carl").size() - 2), (QStringList { "is away (brb)", "is back" }));
        QCOMPARE(indexOf("#b"), -1);
        type("/away");
        QTRY_COMPARE_WITH_TIMEOUT(messages("#a").count("is away (Away)"), 1, 5000);
        type("/n newme");
        QVERIFY(!w->session()->isAway());
        QCOMPARE(lastMessage("Server"), QStringLiteral("*** You are back"));
        QTRY_COMPARE_WITH_TIMEOUT(h->peer->lines().mid(h->peer->lines().size() - 2), (QStringList { "AWAY", "NICK newme" }), 5000);
        QTest::qWait(100);
        QCOMPARE(messages("#a").count("is back"), 2);
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
        const QList<std::pair<QString, QString>> cases { { "hey al", "hey alice" }, { "hey ala", "hey alan" },
            { "ALa", "ALan" }, { "/whois al", "/whois al" }, { "zz", "zz" }, { "m", "me" } };
        for (const auto& [typed, result] : cases)
            QCOMPARE(completed(typed), result);
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
        QCOMPARE(w->inputLine->text(), QStringLiteral("alan"));
        QVERIFY(w->inputLine->hasFocus());
        // Typed at the start, the completer's popup opens and takes the keys first.
        w->inputLine->clear();
        QTest::keyClicks(w->inputLine, "ala");
        QWidget* popup = w->nickCompleter->popup();
        QTRY_VERIFY_WITH_TIMEOUT(popup->isVisible(), 5000);
        QTest::keyClick(popup, Qt::Key_Tab);
        QCOMPARE(w->inputLine->text(), QStringLiteral("alan"));
        QVERIFY(!popup->isVisible() && w->inputLine->hasFocus());
    }

    // Before any connection nothing is stored; the address is stored only
    // when the identifier splits into host and port. Nothing else handled
    // is shown readable, except while the channel list comes in.
    void serverRecordAndUnhandledLines()
    {
        QSettings().clear();
        w->session()->setAutojoin("linux", true);
        QCOMPARE(lastMessage("Server"), QStringLiteral("*** Added #linux to autojoin list"));
        QVERIFY(QSettings().childGroups().isEmpty());
        w->session()->setServerId("my_host_6667");
        w->session()->setAutojoin("#linux", true);
        w->session()->setServerId("irc.example.org_6697");
        w->session()->setAutojoin("#a", true);
        QSettings settings;
        QVERIFY(settings.contains("servers/my_host_6667/nickname") && !settings.contains("servers/my_host_6667/address"));
        QCOMPARE(settings.value("servers/irc.example.org_6697/address").toString(), QStringLiteral("irc.example.org:6697"));
        QCOMPARE(settings.value("servers/irc.example.org_6697/autojoin").toStringList(), (QStringList { "#linux", "#a" }));

        emit w->session()->connection()->unhandledLine("FOO bar :baz");
        QCOMPARE(lastMessage("Server"), QStringLiteral("FOO bar baz"));
        emit w->session()->connection()->listStartReceived();
        const int rows = view("Server")->rowCount();
        emit w->session()->connection()->unhandledLine("FOO");
        QCOMPARE(view("Server")->rowCount(), rows);
    }
};

QUENVAR_TEST_MAIN(TestChat)
#include "tst_chat.moc"
