#include "ChatView.h"
#include "HighlightTabBar.h"
#include "IRCConnection.h"
#include "IrcText.h"
#include "MainWindow.h"
#include "NetworkView.h"
#include "Session.h"
#include "MemberList.h"
#include "MemberListView.h"
#include "MyTabWidget.h"
#include "TestMain.h"
#include "WindowHarness.h"

#include <QAbstractTextDocumentLayout>
#include <QApplication>
#include <QClipboard>
#include <QCompleter>
#include <QLineEdit>
#include <QPushButton>
#include <QRandomGenerator>
#include <QRegularExpression>
#include <QScrollBar>
#include <QSettings>
#include <QSignalSpy>
#include <QSplitter>
#include <QStatusBar>
#include <QStringListModel>
#include <QTest>
#include <QTextBlock>
#include <QTextDocument>

#include <memory>

namespace {

const QColor Grey(136, 136, 136);

// A row of a tab's view: its laid-out text and the formats it is drawn with.
struct Row
{
    const ChatView* view = nullptr;
    int index = -1;

    QString text() const { return view->rowText(index); }
    QTextCharFormat timestampFormat() const { return view->formatAt(index, 0); }
    QTextCharFormat nickFormat() const { return view->formatAt(index, int(text().indexOf(QLatin1Char('\t'))) + 1); }
    QTextCharFormat messageFormat() const
    {
        return view->formatAt(index, int(text().lastIndexOf(QLatin1Char('\t'))) + 1);
    }
    // The nick column: the nick, two spaces and the tab.
    QString nickColumn() const { return text().section(QLatin1Char('\t'), 1, 1) + QLatin1Char('\t'); }
    QStringList hrefs() const
    {
        QStringList result;
        for (const IrcText::LinkSegment& link : view->row(index).links)
            result << link.href;
        return result;
    }
};

QString messageColumn(const Row& row)
{
    return row.text().section(QLatin1Char('\t'), -1);
}

// Grey: a colour of its own, without hue.
bool isGrey(const QTextCharFormat& format)
{
    return format.hasProperty(QTextFormat::ForegroundBrush) && format.foreground().color().hslHue() < 0;
}

// A nick's colour as rows show it: the nick colour's hue, its lightness made
// to read on the view's background.
bool inNickColour(const QTextCharFormat& format, const QString& nick)
{
    const int shown = format.foreground().color().hslHue();
    const int hue = IrcText::nickColor(nick).hslHue();
    const int apart = qAbs(shown - hue);
    return (shown < 0 && hue < 0) || (shown >= 0 && hue >= 0 && qMin(apart, 360 - apart) <= 3);
}

bool matches(const QString& text, const QString& pattern)
{
    return QRegularExpression(pattern).match(text).hasMatch();
}

// One data row, a value per column.
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
    void say(const QString& tab, const QString& text, const QString& sender = QStringLiteral("bob"),
        bool service = false)
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
    Row lastRow(const QString& tab) const { return { view(tab), view(tab)->rowCount() - 1 }; }

    // The message texts of a tab's rows, in order, trimmed.
    QStringList messages(const QString& tab) const
    {
        QStringList result;
        for (int i = 0; i < view(tab)->rowCount(); ++i)
            result << messageColumn(Row { view(tab), i }).trimmed();
        return result;
    }

    QString lastMessage(const QString& tab) const { return messageColumn(lastRow(tab)).trimmed(); }

    int indexOf(const QString& tab) const
    {
        for (int i = 0; i < w->tabWidget->count(); ++i) {
            if (w->tabKey(i) == tab)
                return i;
        }
        return -1;
    }

    void switchTo(const QString& tab) { w->tabWidget->setCurrentIndex(indexOf(tab)); }
    QString notification() const { return w->statusBar()->currentMessage(); }

    // Shows a channel's member list with the given names (a complete NAMES reply).
    void showMembers(const QString& channel, const QStringList& names)
    {
        say(channel, QStringLiteral("joined"), QStringLiteral("someone"), true);
        switchTo(channel);
        emit w->session()->connection()->namesList(channel, names);
        emit w->session()->connection()->namesListFinished(channel);
    }

    // The first member row with exactly this text (invalid when none).
    QModelIndex memberRow(const QString& text) const
    {
        return w->userList->model()->index(w->userList->rowOf(text), 0);
    }

    QFont memberFont(const QString& text) const
    {
        return qvariant_cast<QFont>(memberRow(text).data(Qt::FontRole));
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
        return QTest::qWaitForWindowExposed(w);
    }

private slots:
    void init()
    {
        h = std::make_unique<WindowHarness>();
        w = h->window.get();
    }

    void cleanup() { h.reset(); }

    // --- The window and its tabs ---

    void switchingTabs()
    {
        QCOMPARE(w->windowTitle(), QStringLiteral("Quenvar"));
        QCOMPARE(w->tabWidget->count(), 1);
        QCOMPARE(w->currentTabName, QStringLiteral("Server"));
        QCOMPARE(w->inputLine->placeholderText(), QStringLiteral("Type a command..."));
        QVERIFY(w->userList->isHidden() && w->emojiButton->isHidden());

        QVERIFY(h->connect());
        say("#a", "x");
        say("bob", "x");
        QVERIFY(!w->userList->isHidden() && !w->emojiButton->isHidden());
        QCOMPARE(w->inputLine->placeholderText(), QStringLiteral("Type a message..."));
        // Each tab keeps its own draft.
        w->inputLine->setText(QStringLiteral("half typed"));
        switchTo("bob");
        QVERIFY(w->userList->isHidden() && !w->emojiButton->isHidden());
        QCOMPARE(w->inputLine->text(), QString());
        w->inputLine->setText(QStringLiteral("for bob"));
        switchTo("Server");
        QVERIFY(w->userList->isHidden() && w->emojiButton->isHidden());
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

    void closingAChannelPartsOnlyWhileConnected()
    {
        say("#a", "x");
        const int serverRows = view("Server")->rowCount();
        QSignalSpy errors(w->session()->connection(), &IRCConnection::errorOccurred);
        w->closeTab(indexOf("#a"));
        QCOMPARE(indexOf("#a"), -1);
        QCOMPARE(errors.count(), 0); // no send was even tried
        QCOMPARE(view("Server")->rowCount(), serverRows);
        QCOMPARE(w->currentTabName, QStringLiteral("Server"));

        QVERIFY(h->connect());
        showMembers("#a", { "mynick", "bob" });
        w->inputLine->setText(QStringLiteral("draft"));
        w->closeTab(indexOf("#a"));
        QTRY_COMPARE_WITH_TIMEOUT(h->peer->lines(), QStringList { "PART #a :Leaving" }, 5000);
        QCOMPARE(lastMessage("Server"), QStringLiteral("*** You left #a"));
        QVERIFY(!w->network()->tabInputHistory.contains(QStringLiteral("#a")));
        QVERIFY(w->session()->hasMembers(QStringLiteral("#a")));

        // The server's echo of the part, then someone else's line, after the
        // tab is gone: the echo opens nothing and the channel is forgotten.
        h->serverSays(":mynick!u@h PART :#a\n:bob!u@h PRIVMSG mynick :hi");
        QCOMPARE(indexOf("#a"), -1);
        QVERIFY(!w->session()->hasMembers(QStringLiteral("#a")));
        QVERIFY(indexOf("bob") >= 0);
    }

    void tabCloseControls()
    {
        for (const char* tab : { "#a", "#b", "#c", "carol" })
            say(tab, "x");
        QVERIFY(showWindow());
        w->activateWindow();
        QVERIFY(QTest::qWaitForWindowActive(w));
        const auto button = [this](const QString& tab) {
            return qobject_cast<QPushButton*>(w->tabBar->tabButton(indexOf(tab), QTabBar::LeftSide));
        };

        // Every tab has a close button; the current tab's is white.
        switchTo("#b");
        for (const char* tab : { "Server", "#a", "#b", "#c", "carol" }) {
            QCOMPARE(button(tab)->text(), QString(QChar(0x00D7)));
            QCOMPARE(button(tab)->styleSheet().contains("#FFFFFF"), tab == QLatin1String("#b"));
        }

        // Nothing closes the server tab.
        button("Server")->click();
        QTest::mouseDClick(w->tabBar, Qt::LeftButton, {}, w->tabBar->tabRect(0).center());
        QCOMPARE(w->tabKey(0), QStringLiteral("Server"));
        QCOMPARE(w->tabWidget->count(), 5);

        // A button closes its own tab, also after tabs before it were closed.
        // The private tab's mark moves with it.
        switchTo("Server");
        QVERIFY(w->tabBar->isHighlighted(4));
        button("#a")->click();
        QCOMPARE(indexOf("#a"), -1);
        QVERIFY(!w->tabBar->isHighlighted(2) && w->tabBar->isHighlighted(3));
        button("carol")->click();
        QCOMPARE(indexOf("carol"), -1);
        QTest::mouseDClick(w->tabBar, Qt::LeftButton, {}, w->tabBar->tabRect(indexOf("#b")).center());
        QCOMPARE(indexOf("#b"), -1);

        const QKeySequence close(QKeySequence::Close);
        if (close.isEmpty())
            QSKIP("the platform has no Close key");
        switchTo("Server");
        QTest::keySequence(w, close);
        QCOMPARE(w->tabWidget->count(), 2);
        switchTo("#c");
        QTest::keySequence(w, close);
        QCOMPARE(w->tabWidget->count(), 1);
    }

    void splitterKeepsOneFifth()
    {
        say("#a", "x");
        QVERIFY(showWindow());
        w->resize(w->width() + 1003 - w->splitter->width(), w->height());
        QTRY_COMPARE_WITH_TIMEOUT(w->splitter->width(), 1003, 5000);
        // 803 and 200 are asked for; the splitter fits them beside its 8 px
        // handle, keeping their proportion.
        const QList<int> oneFifth { 797, 198 };
        QTRY_COMPARE_WITH_TIMEOUT(w->splitter->sizes(), oneFifth, 5000);

        // A drag lasts until the next tab switch.
        w->splitter->setSizes({ 500, 503 });
        switchTo("Server");
        QTRY_COMPARE_WITH_TIMEOUT(w->splitter->sizes().value(1), 0, 5000);
        switchTo("#a");
        QTRY_COMPARE_WITH_TIMEOUT(w->splitter->sizes(), oneFifth, 5000);
    }

    // --- Rows ---

    void rowColumns()
    {
        say("#chan", "see https://example.org/a?b=c#d or mail me@example.com", "alice");
        QCOMPARE(view("#chan")->rowCount(), 1);
        const Row row = lastRow("#chan");
        QVERIFY2(matches(row.text(), "^\\[\\d\\d:\\d\\d:\\d\\d\\]\\talice  \\t see https://\\S+ or mail me@"),
            qPrintable(row.text()));
        QVERIFY(isGrey(row.timestampFormat()));
        QCOMPARE(row.nickFormat().fontWeight(), 700);
        QCOMPARE(row.hrefs(), (QStringList { "https://example.org/a?b=c#d", "mailto:me@example.com" }));

        // The server tab has no nick column and no leading space.
        say("Server", "*** Connected", QString());
        QVERIFY2(matches(lastRow("Server").text(), "^\\[\\d\\d:\\d\\d:\\d\\d\\]\\t\\*\\*\\* Connected$"),
            qPrintable(lastRow("Server").text()));

        w->prefs.timestampFormat = QStringLiteral("'<'HH'>'");
        say("#chan", "x");
        QVERIFY(matches(lastRow("#chan").text(), "^<\\d\\d>\\t"));

        // Long nicks are cut to 15 characters and an ellipsis, never within
        // a surrogate pair; the colour is the shown nick's.
        const QList<std::pair<QString, QString>> nicks { { "sixteen_letters_", "sixteen_letters_" },
            { "seventeen_letters", QStringLiteral("seventeen_lette\u2026") },
            { QStringLiteral("abcdefghijklmn\U0001F600xyz"), QStringLiteral("abcdefghijklmn\u2026") } };
        for (const auto& [nick, shown] : nicks) {
            say("#chan", "hi", nick);
            QCOMPARE(lastRow("#chan").nickColumn(), shown + QStringLiteral("  \t"));
            QVERIFY(inNickColour(lastRow("#chan").nickFormat(), shown));
        }
    }

    void ownLinesLook_data()
    {
        QTest::addColumn<QString>("sender");
        QTest::addColumn<QString>("pendingNick");
        QTest::addColumn<bool>("away");
        QTest::addColumn<bool>("service");
        QTest::addColumn<bool>("awayLook"); // nick grey italic, message grey
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
        QFETCH(QString, message);
        QVERIFY(h->connect());
        if (!pendingNick.isEmpty())
            w->session()->changeNick(pendingNick);
        if (away)
            w->session()->setAway(QStringLiteral("at lunch"));

        say("#chan", "text", sender, service);
        const Row row = lastRow("#chan");
        QCOMPARE(messageColumn(row), message);
        const QTextCharFormat nick = row.nickFormat();
        QVERIFY(awayLook ? isGrey(nick) : inNickColour(nick, sender));
        QCOMPARE(nick.fontItalic(), awayLook);
        QCOMPARE(isGrey(row.messageFormat()), awayLook || service);
    }

    // A mention in a channel (the own nick as a word, case ignored) and every
    // private message mark their tab and, unless it is the current one, show
    // a notification. The user's own lines never do.
    void mention_data()
    {
        QTest::addColumn<QString>("tab");
        QTest::addColumn<QString>("sender");
        QTest::addColumn<QString>("message");
        QTest::addColumn<bool>("marked");
        QTest::addColumn<QString>("notice");
        addRow("channel, case ignored", "#chan", "bob", "Hello MyNick!", true, "#chan: bob: Hello MyNick!");
        addRow("current tab: not marked", "#side", "bob", "Hello MyNick!", false, "");
        addRow("longer word", "#chan", "bob", "Hello mynickname", false, "");
        addRow("inside a word", "#chan", "bob", "xmynick", false, "");
        addRow("own line", "#chan", "MYNICK", "mynick says hi", false, "");
        addRow("pending nick's line", "#chan", "NextNick", "mynick again", false, "");
        addRow("server tab", "Server", "bob", "mynick: hello", false, "");
        addRow("private message", "bob", "bob", "psst", true, "bob: psst");
        addRow("own private line", "carol", "mynick", "mynick: hi", false, "");
        const QString full = QStringLiteral("mynick ") + QString(248, QLatin1Char('y'));
        addRow("255 characters in full", "#chan", "bob", full, true, "#chan: bob: " + full);
        addRow("longer ones cut", "#chan", "bob", full + "z", true, "#chan: bob: " + full.left(252) + "...");
    }

    void mention()
    {
        QFETCH(QString, tab);
        QFETCH(QString, sender);
        QFETCH(QString, message);
        QFETCH(bool, marked);
        QFETCH(QString, notice);
        QVERIFY(h->connect());
        w->session()->changeNick(QStringLiteral("nextnick"));
        say("#side", "x"); // current: opened from the server tab
        say("#chan", "x");

        say(tab, message, sender);
        QCOMPARE(w->network()->tabs.value(tab).highlighted, marked);
        QCOMPARE(w->tabBar->isHighlighted(indexOf(tab)), marked && tab != QLatin1String("#side"));
        QCOMPARE(notification(), notice);

        // Switching to the tab clears the mark.
        switchTo("Server");
        switchTo(tab);
        QVERIFY(!w->network()->tabs.value(tab).highlighted && !w->tabBar->isHighlighted(indexOf(tab)));
    }

    void mentionFollowsTheOwnNick()
    {
        QVERIFY(h->connect("first"));
        say("#chan", "x");
        switchTo("Server");
        say("#chan", "first!");
        QVERIFY(w->network()->tabs.value(QStringLiteral("#chan")).highlighted);
        switchTo("#chan");
        switchTo("Server");

        // The server confirms a new nick: the old one is no longer a mention.
        emit w->session()->connection()->nickChanged(QStringLiteral("first"), QStringLiteral("second"));
        say("#chan", "first!");
        QVERIFY(!w->network()->tabs.value(QStringLiteral("#chan")).highlighted);
        say("#chan", "hi second");
        QVERIFY(w->network()->tabs.value(QStringLiteral("#chan")).highlighted);
    }

    void hostileTextStaysText_data()
    {
        QTest::addColumn<QString>("message");
        QTest::addColumn<QString>("sender");
        QTest::addColumn<QString>("visible"); // expected in the message column
        const QString markup
            = QStringLiteral("<b>bold</b> <a href=\"javascript:x\">x</a> &amp; <img src=x> %1 %L1");
        addRow("markup and placeholders", markup, "<i>%1</i>", " " + markup);
        addRow("control characters shown", "a\u0001b\u0007c\u007fd", "ctl", " a\u2401b\u2407c\u2421d");
        addRow("line breaks and tabs", QStringLiteral("one\ntwo\rthree\u2029four\u2028five\tsix"), "n\nick",
            " one two three four five six");
    }

    void hostileTextStaysText()
    {
        QFETCH(QString, message);
        QFETCH(QString, sender);
        QFETCH(QString, visible);
        say("#chan", message, sender);
        QCOMPARE(view("#chan")->rowCount(), 1); // one row, not broken up
        const Row row = lastRow("#chan");
        QCOMPARE(messageColumn(row), visible);
        for (int i = int(row.text().lastIndexOf(QLatin1Char('\t'))) + 1; i < row.text().size(); ++i) {
            const QTextCharFormat format = row.view->formatAt(row.index, i);
            QVERIFY(!format.isAnchor() && format.fontWeight() != 700 && !format.fontItalic());
        }
        view("#chan")->flushBatch();
    }

    // Rows of one batch are laid out together, once the batch is over; the
    // grey rule right of the nick column runs down the view, the nicks end
    // just left of it and no text, wrapped lines included, touches it.
    void longScrollback()
    {
        w->resize(1280, 720);
        QVERIFY(showWindow());
        say("#chan", "first");
        ChatView* chat = view("#chan");
        QTRY_VERIFY_WITH_TIMEOUT(!chat->inBatch(), 5000);

        // Nothing of a batch shows before it is over; then the view follows
        // the last row.
        const int rangeBefore = chat->verticalScrollBar()->maximum();
        w->network()->beginAppendBatch();
        const QStringList nicks { "alice", "averyveryverylongnickname", "Eve" };
        for (int i = 0; i < 100; ++i)
            say("#chan", QStringLiteral("message %1, see https://example.org/page/%1").arg(i),
                nicks.at(i % 3));
        say("#chan", QStringLiteral("a long line that wraps around the end of the view ").repeated(6));
        QTest::qWait(50);
        QVERIFY(chat->inBatch());
        QCOMPARE(chat->verticalScrollBar()->maximum(), rangeBefore);
        w->network()->endAppendBatch();
        QTRY_VERIFY_WITH_TIMEOUT(!chat->inBatch(), 5000);
        QCOMPARE(chat->rowCount(), 102);
        QVERIFY(chat->isAtEnd());
        QVERIFY(chat->verticalScrollBar()->maximum() > 0);
        QCOMPARE(chat->verticalScrollBar()->value(), chat->verticalScrollBar()->maximum());

        QTest::qWait(50);
        const QImage image = chat->viewport()->grab().toImage();
        const int ruleX = qRound(chat->ruleX());
        const auto count = [&image](int x0, int x1, auto test) {
            int found = 0;
            for (int y = 0; y < image.height(); ++y) {
                for (int x = x0; x <= x1; ++x)
                    found += test(image.pixel(x, y)) ? 1 : 0;
            }
            return found;
        };
        const auto ink = [](QColor c) { return c.lightness() < 200; };
        QVERIFY(count(ruleX, ruleX, [](QColor c) { return c == Grey; }) > image.height() * 9 / 10);
        QVERIFY(count(ruleX - 20, ruleX - 8, ink) > 0);
        QCOMPARE(count(ruleX - 1, ruleX - 1, ink), 0);
        QCOMPARE(count(ruleX + 1, ruleX + 1, ink), 0);
    }

    // --- Member list ---

    void namesSortByRankThenName()
    {
        say("#c", "x");
        say("#d", "x");
        emit w->session()->connection()->namesList(QStringLiteral("#c"), { "+bob", "@Alice" });
        QCOMPARE(w->userList->count(), 0); // nothing shown before the end
        emit w->session()->connection()->namesList(QStringLiteral("#c"), { "~zed", "carl", "@al" });
        emit w->session()->connection()->namesListFinished(QStringLiteral("#c"));
        const QStringList expected { "~zed", "@al", "@Alice", "+bob", "carl" };
        QCOMPARE(w->session()->members(QStringLiteral("#c")), expected);
        QCOMPARE(shownMembers(), expected);

        // Names of another channel show once it is current.
        emit w->session()->connection()->namesList(QStringLiteral("#d"), { "dave" });
        emit w->session()->connection()->namesListFinished(QStringLiteral("#d"));
        QCOMPARE(shownMembers(), expected);
        switchTo("#d");
        QCOMPARE(shownMembers(), QStringList { "dave" });

        // Single members are added at the end and removed by their exact
        // text, on the current channel's list only.
        w->userList->addMember(QStringLiteral("aaron"));
        QCOMPARE(shownMembers(), (QStringList { "dave", "aaron" }));
        w->userList->removeMember(QStringLiteral("+dave"));
        w->userList->removeMember(QStringLiteral("DAVE"));
        QCOMPARE(w->userList->count(), 2);
        w->userList->removeMember(QStringLiteral("dave"));
        QCOMPARE(shownMembers(), QStringList { "aaron" });

        // An empty reply empties the list.
        emit w->session()->connection()->namesListFinished(QStringLiteral("#d"));
        QCOMPARE(w->session()->members(QStringLiteral("#d")), QStringList());
        QCOMPARE(w->userList->count(), 0);
    }

    // Half-ops and up, by the own entry (its case must match).
    void operatorStatus()
    {
        QVERIFY(h->connect());
        QVERIFY(!w->session()->isOperator(QStringLiteral("#c")));
        for (const auto& [entry, op] :
            { std::pair { "%mynick", true }, { "+mynick", false }, { "@MyNick", false } }) {
            showMembers("#c", { "@bob", entry });
            QCOMPARE(w->session()->isOperator(QStringLiteral("#c")), op);
            // The topic button follows it.
            QCOMPARE(!w->network()->tabs.value(QStringLiteral("#c")).editTopicBtn->isHidden(), op);
        }
    }

    void privateTabs()
    {
        showMembers("#c", { "@mynick", "+bob" });
        w->onUserDoubleClicked(memberRow("+bob").data().toString()); // disconnected: nothing
        QCOMPARE(w->tabWidget->count(), 2);

        QVERIFY(h->connect());
        // A double click on self (also as the pending nick) does nothing.
        w->onUserDoubleClicked(memberRow("@mynick").data().toString());
        w->session()->changeNick(QStringLiteral("BOB"));
        w->onUserDoubleClicked(memberRow("+bob").data().toString());
        QCOMPARE(w->tabWidget->count(), 2);
        emit w->session()->connection()->ownNickChanged(QStringLiteral("mynick")); // the server refused it
        // On someone else it opens their tab, or switches to it.
        w->onUserDoubleClicked(memberRow("+bob").data().toString());
        QCOMPARE(w->currentTabName, QStringLiteral("bob"));
        switchTo("#c");
        w->onUserDoubleClicked(memberRow("+bob").data().toString());
        QCOMPARE(w->currentTabName, QStringLiteral("bob"));
        QCOMPARE(w->tabWidget->count(), 3);

        // A message opens a tab that becomes current when the server tab is,
        // without a mark.
        switchTo("Server");
        say("Carl", "hi", "Carl");
        QCOMPARE(w->currentTabName, QStringLiteral("Carl"));
        QVERIFY(notification().isEmpty());
        QVERIFY(!w->tabBar->isHighlighted(indexOf("Carl")));
        say("Carl", "again", "Carl");
        QCOMPARE(w->network()->findPrivateChatTab(QStringLiteral("CARL")), QStringLiteral("Carl"));
        QCOMPARE(w->network()->findPrivateChatTab(QStringLiteral("#c")), QString());

        // The server watches each peer once, while the tab is open.
        w->closeTab(indexOf("Carl"));
        QTRY_COMPARE_WITH_TIMEOUT(
            sent("WATCH"), (QStringList { "WATCH +bob", "WATCH +Carl", "WATCH -Carl" }), 5000);
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
        QFETCH(QStringList, sent);
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
        QTRY_COMPARE_WITH_TIMEOUT(h->peer->lines(), sent, 5000);
        if (item == QLatin1String("Whois"))
            QCOMPARE(w->session()->whoisReplyBuffer(), QStringLiteral("#c"));
        if (item == QLatin1String("Open Private Chat"))
            QCOMPARE(w->currentTabName, QStringLiteral("bob"));
    }

    // Joins, parts and renames applied one by one give the list a full
    // stable sort on every join would give.
    void joinOrderMatchesAFullSort()
    {
        QVERIFY(h->connect("me"));
        QStringList names;
        for (int i = 0; i < 60; ++i)
            names << QStringLiteral("~&@%+").mid(i % 6, 1) + QStringLiteral("N%1").arg(i * 37 % 101);
        showMembers("#j", names);
        QStringList expected = w->session()->members(QStringLiteral("#j"));
        const auto sameNick = [](const QString& name, const QString& nick) {
            return MemberList::stripModePrefix(name).compare(nick, Qt::CaseInsensitive) == 0;
        };
        QRandomGenerator random(7);
        for (int step = 0; step < 400; ++step) {
            const QString nick = QStringLiteral("n%1").arg(random.bounded(90));
            const int action = random.bounded(4);
            if (action < 2) {
                emit w->session()->connection()->joinReceived(nick, QStringLiteral("#j"));
                if (!expected.contains(nick, Qt::CaseInsensitive))
                    expected.append(nick);
                std::stable_sort(expected.begin(), expected.end(),
                    [](const QString& a, const QString& b) { return a.compare(b, Qt::CaseInsensitive) < 0; });
            } else if (action == 2) {
                emit w->session()->connection()->partReceived(nick, QStringLiteral("#j"), QStringLiteral("r"));
                expected.removeIf([&](const QString& name) { return sameNick(name, nick); });
            } else {
                const QString renamed = QStringLiteral("N%1").arg(random.bounded(200));
                if (std::any_of(expected.cbegin(), expected.cend(),
                        [&](const QString& name) { return sameNick(name, renamed); }))
                    continue;
                emit w->session()->connection()->nickChanged(nick, renamed);
                MemberList::renameMember(expected, nick, renamed);
            }
            QCOMPARE(w->session()->members(QStringLiteral("#j")), expected);
        }
        QStringList visible = shownMembers();
        visible.sort(Qt::CaseInsensitive);
        expected.sort(Qt::CaseInsensitive);
        QCOMPARE(visible, expected);
    }

    // --- Input line and commands ---

    // What typed lines show rather than send, and where.
    void inputRows()
    {
        say("#a", "x");
        // Disconnected: nothing goes out, the line stays to be sent later.
        type("/j other");
        QCOMPARE(w->inputLine->text(), QStringLiteral("/j other"));
        type("hello");
        QCOMPARE(view("#a")->rowCount(), 3);
        QCOMPARE(lastMessage("#a"), QStringLiteral("*** Not connected."));
        QCOMPARE(w->inputLine->text(), QStringLiteral("hello"));
        w->inputLine->clear();

        QVERIFY(h->connect("me"));
        switchTo("Server");
        type("hello world");
        QCOMPARE(lastMessage("Server"), QStringLiteral("Cannot send messages to Server tab."));
        type("/l");
        QCOMPARE(lastMessage("Server"),
            QStringLiteral("*** Please wait for registration to complete before using /list."));
        QTest::qWait(100);
        QVERIFY(h->peer->lines().isEmpty());

        // A private message shows in its tab, an unknown command in the
        // current one under the command's full name.
        type("/m bob hi  there");
        QCOMPARE(w->currentTabName, QStringLiteral("bob"));
        QCOMPARE(lastMessage("bob"), QStringLiteral("hi  there"));
        type("/J");
        QCOMPARE(lastMessage("bob"), QStringLiteral("Unknown command: join"));
        QCOMPARE(w->inputLine->text(), QStringLiteral("/J")); // kept to be put right

        // Channel commands elsewhere, CTCP, Help and topics answer with a row
        // in the current tab.
        type("/kick carl");
        QCOMPARE(lastMessage("bob"), QStringLiteral("*** /kick works in a channel tab."));
        QCOMPARE(w->inputLine->text(), QString());
        type("/ctcp carl version");
        QCOMPARE(lastMessage("bob"), QStringLiteral("*** CTCP VERSION sent to carl"));
        type("/help w");
        QCOMPARE(
            lastMessage("bob"), QStringLiteral("/whois nick: Show information about a user (also /w, /wc)"));
        type("/topic #a");
        QCOMPARE(lastMessage("bob"), QStringLiteral("*** No topic is known for #a"));
        emit w->session()->connection()->topicReceived("#a", "All about a");
        switchTo("#a");
        type("/topic");
        QCOMPARE(lastMessage("#a"), QStringLiteral("*** Topic of #a: All about a"));

        // /query opens or finds the private tab, /clear empties a tab, /close
        // closes it.
        type("/query BOB");
        QCOMPARE(w->currentTabName, QStringLiteral("bob"));
        type("/clear");
        QCOMPARE(view("bob")->rowCount(), 0);
        QCOMPARE(w->session()->lineCount("bob"), 0);
        type("/close");
        QVERIFY(!w->network()->tabs.contains("bob"));
        QVERIFY(!w->session()->hasBuffer("bob"));
    }

    void commandsSendTheirLines_data()
    {
        QTest::addColumn<QString>("typed");
        QTest::addColumn<QStringList>("sent");
        addRow("join alias adds #", "/j linux", QStringList { "JOIN #linux" });
        addRow("join with keys", "/join #a,b k1,k2", QStringList { "JOIN #a,#b k1,k2" });
        addRow("part the current tab", "/p", QStringList { "PART #cur :Leaving" });
        addRow("part with a reason", "/part see  you", QStringList { "PART #cur :see  you" });
        addRow("part another channel", "/p #x bye", QStringList { "PART #x :bye" });
        addRow("raw keeps the rest", "/raw MODE  #cur +m", QStringList { "MODE  #cur +m" });
        addRow("msg counts empty sections", "/msg bob hi  there",
            (QStringList { "PRIVMSG bob :hi  there", "WATCH +bob" }));
        addRow("whois", "/wc carl", QStringList { "WHOIS carl" });
        addRow("away default reason", "/away", QStringList { "AWAY :Away" });
        addRow("back while not away", "/b", QStringList { "AWAY" });
        addRow("plain text", "  hello  ", QStringList { "PRIVMSG #cur :hello" });
        addRow("me", "/me waves",
            QStringList { "PRIVMSG #cur :\x01"
                          "ACTION waves\x01" });
        addRow("notice", "/notice #cur heads up", QStringList { "NOTICE #cur :heads up" });
        addRow("ctcp", "/ctcp carl ping 42", QStringList { "PRIVMSG carl :\x01PING 42\x01" });
        addRow("topic set", "/topic new  topic", QStringList { "TOPIC #cur :new  topic" });
        addRow("topic of another channel", "/topic #x new", QStringList { "TOPIC #x :new" });
        addRow("kick default reason", "/kick carl", QStringList { "KICK #cur carl :Requested" });
        addRow("kick with reason", "/kick carl go away", QStringList { "KICK #cur carl :go away" });
        addRow("ban", "/ban carl", QStringList { "MODE #cur +b carl!*@*" });
        addRow("mode of the channel", "/mode +l 10", QStringList { "MODE #cur +l 10" });
        addRow("mode of a target", "/mode mynick +i", QStringList { "MODE mynick +i" });
        addRow("op four", "/op a b c d", (QStringList { "MODE #cur +ooo a b c", "MODE #cur +o d" }));
        addRow("deop", "/deop a b", QStringList { "MODE #cur -oo a b" });
        addRow("voice", "/voice a", QStringList { "MODE #cur +v a" });
        addRow("devoice", "/devoice a", QStringList { "MODE #cur -v a" });
        addRow("invite here", "/invite carl", QStringList { "INVITE carl #cur" });
        addRow("invite elsewhere", "/invite carl #x", QStringList { "INVITE carl #x" });
        addRow("who", "/who #cur", QStringList { "WHO #cur" });
        addRow("query with text", "/query carl hi", (QStringList { "WATCH +carl", "PRIVMSG carl :hi" }));
        addRow("close parts", "/close", QStringList { "PART #cur :Leaving" });
        addRow("quit default reason", "/quit", QStringList { "QUIT :Quenvar leaving" });
        addRow("quit with reason", "/quit off  to bed", QStringList { "QUIT :off  to bed" });
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
        QCOMPARE(w->session()->whoisReplyBuffer() == QLatin1String("#cur"), typed.startsWith(QLatin1String("/wc")));
    }

    void awayAndBackAnnounceInEveryChatTab()
    {
        QVERIFY(h->connect("me"));
        say("#b", "x");
        say("carl", "x", "carl");
        showMembers("#a", { "@me", "bob" });
        const QString away = QStringLiteral("is away (gone fishing)");
        type("/a   gone fishing  ");
        QCOMPARE(lastMessage("Server"), QStringLiteral("*** You are marked as away (gone fishing)"));
        // The own entry in the member list looks away, also once the list is rebuilt.
        QVERIFY(memberFont("@me").italic() && memberRow("bob").isValid() && !memberFont("bob").italic());
        const QBrush awayBrush = qvariant_cast<QBrush>(memberRow("@me").data(Qt::ForegroundRole));
        QVERIFY(awayBrush.style() == Qt::SolidPattern && awayBrush.color().hslHue() < 0);
        emit w->session()->connection()->namesList(QStringLiteral("#a"), { "@me", "bob" });
        emit w->session()->connection()->namesListFinished(QStringLiteral("#a"));
        QVERIFY(memberFont("@me").italic());
        // The per-tab lines come after the current event.
        QVERIFY(!messages("#a").contains(away));
        QTRY_VERIFY_WITH_TIMEOUT(messages("#a").contains(away), 5000);
        for (const char* tab : { "#a", "#b", "carl" })
            QCOMPARE(messages(tab).count(away), 1);
        QVERIFY(!messages("Server").contains(away));

        type("/back");
        QCOMPARE(lastMessage("Server"), QStringLiteral("*** You are back"));
        QVERIFY(memberRow("@me").isValid() && !memberFont("@me").italic());
        QVERIFY(!memberRow("@me").data(Qt::ForegroundRole).isValid());
        QTRY_COMPARE_WITH_TIMEOUT(messages("carl").count("is back"), 1, 5000);
        QCOMPARE(messages("#a").count("is back"), 1);
        QTRY_COMPARE_WITH_TIMEOUT(sent("AWAY"), (QStringList { "AWAY :gone fishing", "AWAY" }), 5000);

        // Away and back within one event, and a tab closed before the lines
        // are written: each open tab gets the lines as they read when given.
        w->session()->setAway(QStringLiteral("brb"));
        w->session()->setBack(true);
        w->closeTab(indexOf("#b"));
        QTRY_COMPARE_WITH_TIMEOUT(messages("carl").count("is back"), 2, 5000);
        QCOMPARE(
            messages("carl").mid(messages("carl").size() - 2), (QStringList { "is away (brb)", "is back" }));
        QCOMPARE(indexOf("#b"), -1);

        // A new nick ends the away state without the per-tab lines.
        type("/away");
        QTRY_COMPARE_WITH_TIMEOUT(messages("#a").count("is away (Away)"), 1, 5000);
        type("/n newme");
        QVERIFY(!w->session()->isAway());
        QCOMPARE(w->session()->pendingNick(), QStringLiteral("newme"));
        QCOMPARE(lastMessage("Server"), QStringLiteral("*** You are back"));
        QTRY_COMPARE_WITH_TIMEOUT(
            h->peer->lines().mid(h->peer->lines().size() - 2), (QStringList { "AWAY", "NICK newme" }), 5000);
        QTest::qWait(100);
        QCOMPARE(messages("#a").count("is back"), 2);
    }

    void completion()
    {
        QVERIFY(h->connect("me"));
        showMembers("#c", { "@alice", "alan" });
        // The completer's words: the members without symbols, the private
        // tab's peer, the own nick.
        QCOMPARE(w->nickCompletionWords(), (QStringList { "alice", "alan", "me" }));
        say("carl", "x", "carl");
        switchTo("carl");
        QCOMPARE(w->nickCompletionWords(), (QStringList { "carl", "me" }));
        switchTo("Server");
        QCOMPARE(w->nickCompletionWords(), QStringList { "me" });

        // Completing the word before the cursor takes the first member in
        // the stored order, by the nick without its symbol: "al" finds @alice.
        switchTo("#c");
        QCOMPARE(completed("hey al"), QStringLiteral("hey alice"));
        QCOMPARE(completed("hey ala"), QStringLiteral("hey alan"));
        // The typed prefix keeps its case; no suffix is added.
        QCOMPARE(completed("ALa"), QStringLiteral("ALan"));
        // Commands and unknown prefixes stay as they are.
        QCOMPARE(completed("/whois al"), QStringLiteral("/whois al"));
        QCOMPARE(completed("zz"), QStringLiteral("zz"));
        // The own nick is always a candidate.
        QCOMPARE(completed("m"), QStringLiteral("me"));

        // Someone joins; then text is pasted without a key press. The popup
        // the paste opens already offers the newcomer.
        w->inputLine->clear();
        emit w->session()->connection()->joinReceived(QStringLiteral("dana"), QStringLiteral("#c"));
        QGuiApplication::clipboard()->setText(QStringLiteral("da"));
        w->inputLine->paste();
        const auto* model = qobject_cast<QStringListModel*>(w->nickCompleter->model());
        QVERIFY(model && model->stringList().contains(QStringLiteral("dana")));

        // The Tab key completes and keeps the focus in the input line.
        QVERIFY(showWindow());
        w->activateWindow();
        w->inputLine->setFocus();
        QTRY_VERIFY_WITH_TIMEOUT(w->inputLine->hasFocus(), 5000);
        w->inputLine->setText(QStringLiteral("ala"));
        QTest::keyClick(w->inputLine, Qt::Key_Tab);
        QCOMPARE(w->inputLine->text(), QStringLiteral("alan"));
        QVERIFY(w->inputLine->hasFocus());

        // Typed at the start of the line, so the completer's popup opens (it
        // matches the whole line) and takes the keys first.
        w->inputLine->clear();
        QTest::keyClicks(w->inputLine, QStringLiteral("ala"));
        QWidget* popup = w->nickCompleter->popup();
        QTRY_VERIFY_WITH_TIMEOUT(popup->isVisible(), 5000);
        QTest::keyClick(popup, Qt::Key_Tab);
        QCOMPARE(w->inputLine->text(), QStringLiteral("alan"));
        QVERIFY(!popup->isVisible());
        QVERIFY(w->inputLine->hasFocus());
    }

    // --- The current server's record ---

    void autojoinListAndServerRecord()
    {
        QSettings().clear();
        // Before any connection nothing is stored.
        w->session()->setAutojoin(QStringLiteral("linux"), true);
        QCOMPARE(lastMessage("Server"), QStringLiteral("*** Added #linux to autojoin list"));
        w->session()->setAutojoin(QStringLiteral("#other"), false);
        QCOMPARE(lastMessage("Server"), QStringLiteral("*** Removed #other from autojoin list"));
        QVERIFY(QSettings().childGroups().isEmpty());

        // The address is stored only when the identifier splits into host and port.
        w->session()->setServerId(QStringLiteral("my_host_6667"));
        w->session()->setAutojoin(QStringLiteral("#linux"), true);
        w->session()->setServerId(QStringLiteral("irc.example.org_6697"));
        w->session()->setAutojoin(QStringLiteral("#a"), true);
        QSettings settings;
        QVERIFY(settings.contains("servers/my_host_6667/nickname"));
        QVERIFY(!settings.contains("servers/my_host_6667/address"));
        QCOMPARE(settings.value("servers/irc.example.org_6697/address").toString(),
            QStringLiteral("irc.example.org:6697"));
        QCOMPARE(settings.value("servers/irc.example.org_6697/autojoin").toStringList(),
            (QStringList { "#linux", "#a" }));
    }

    // --- Protocol events without a server ---

    // Lines nothing else handles are shown once, readable, except while the
    // channel list is coming in.
    void unhandledLinesShown()
    {
        const QList<std::pair<QString, QString>> lines { { ":srv WALLOPS :hi there", "[srv] WALLOPS hi there" },
            { "FOO bar :baz", "FOO bar baz" } };
        for (const auto& [line, shown] : lines) {
            emit w->session()->connection()->unhandledLine(line);
            QCOMPARE(lastMessage("Server"), shown);
        }
        emit w->session()->connection()->listStartReceived();
        const int rows = view("Server")->rowCount();
        emit w->session()->connection()->unhandledLine(QStringLiteral("FOO"));
        QCOMPARE(view("Server")->rowCount(), rows);
    }

    void whoisWithoutUserReplyStillPrints()
    {
        emit w->session()->connection()->whoisServerReceived("ghost", "irc.x", "Info");
        emit w->session()->connection()->whoisOperatorReceived("ghost");
        emit w->session()->connection()->whoisEndReceived("ignored", "ghost");
        QCOMPARE(messages("Server").mid(messages("Server").size() - 3),
            (QStringList { "*** WHOIS ghost: @ ()", "*** ghost is an IRC operator",
                "*** ghost is using irc.x (Info)" }));
        QVERIFY(!w->session()->isGatheringWhois());
        QVERIFY(!w->network()->tabs.contains(QStringLiteral("ignored")));
    }
};

QUENVAR_TEST_MAIN(TestChat)
#include "tst_chat.moc"
