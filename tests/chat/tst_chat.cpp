#include "ChatView.h"
#include "HighlightTabBar.h"
#include "IRCConnection.h"
#include "IrcText.h"
#include "LinePeer.h"
#include "MainWindow.h"
#include "MemberList.h"
#include "MyTabWidget.h"
#include "ServerConfig.h"
#include "TestMain.h"
#include "WindowHarness.h"

#include <QAbstractTextDocumentLayout>
#include <QCompleter>
#include <QApplication>
#include <QClipboard>
#include <QElapsedTimer>
#include <QImage>
#include <QLineEdit>
#include <QListWidget>
#include <QMenu>
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
#include <QTimer>

#include <memory>

namespace {

const QColor Grey(136, 136, 136);

// The fragments of a row, in order.
QList<QTextFragment> fragments(const QTextBlock& block)
{
    QList<QTextFragment> result;
    for (auto it = block.begin(); !it.atEnd(); ++it) {
        if (it.fragment().isValid())
            result << it.fragment();
    }
    return result;
}

// The first fragment of a row whose text starts with prefix.
QTextFragment fragmentStartingWith(const QTextBlock& block, const QString& prefix)
{
    for (const QTextFragment& fragment : fragments(block)) {
        if (fragment.text().startsWith(prefix))
            return fragment;
    }
    return QTextFragment();
}

// The fragments after the row's last tab: the message column.
QList<QTextFragment> messageFragments(const QTextBlock& block)
{
    QList<QTextFragment> all = fragments(block);
    QList<QTextFragment> result;
    for (int i = int(all.size()) - 1; i >= 0; --i) {
        if (all.at(i).text().contains(QLatin1Char('\t')))
            break;
        result.prepend(all.at(i));
    }
    return result;
}

QString messageColumn(const QTextBlock& block)
{
    return block.text().section(QLatin1Char('\t'), -1);
}

bool isGrey(const QTextCharFormat& format)
{
    return format.hasProperty(QTextFormat::ForegroundBrush) && format.foreground().color() == Grey;
}

} // namespace

class TestChat : public QObject
{
    Q_OBJECT

private:
    std::unique_ptr<MainWindow> w;
    std::unique_ptr<LinePeer> peer;

    // Connects the window to an in-process peer as nick.
    bool connectWindow(const QString& nick = QStringLiteral("mynick"))
    {
        peer = std::make_unique<LinePeer>();
        w->connection->connectToServer(QStringLiteral("127.0.0.1"), peer->port(), nick,
            QStringLiteral("Real Name"), false);
        if (!peer->accept())
            return false;
        QElapsedTimer clock;
        clock.start();
        while (!w->connection->isConnected() && clock.elapsed() < 10000)
            QTest::qWait(10);
        QTest::qWait(20);
        peer->clear();
        return w->connection->isConnected();
    }

    ChatView* view(const QString& tab) const { return w->tabs.value(tab).chatView; }

    QTextBlock lastRow(const QString& tab) const { return view(tab)->document()->lastBlock(); }

    int indexOf(const QString& tab) const
    {
        for (int i = 0; i < w->tabWidget->count(); ++i) {
            if (w->tabWidget->tabText(i) == tab)
                return i;
        }
        return -1;
    }

    void switchTo(const QString& tab) { w->tabWidget->setCurrentIndex(indexOf(tab)); }

    QString notification() const { return w->statusBar()->currentMessage(); }

    QPushButton* closeButton(int index) const
    {
        return qobject_cast<QPushButton*>(w->tabBar->tabButton(index, QTabBar::LeftSide));
    }

    // Shows a channel's member list with the given names (a complete NAMES reply).
    void showMembers(const QString& channel, const QStringList& names)
    {
        w->appendMessageToTab(channel, QStringLiteral("joined"), QStringLiteral("someone"), true);
        switchTo(channel);
        w->onNames(channel, names);
        w->onNamesFinished(channel);
    }

    QListWidgetItem* memberItem(const QString& text) const
    {
        const auto found = w->userList->findItems(text, Qt::MatchExactly);
        return found.isEmpty() ? nullptr : found.first();
    }

private slots:
    void init()
    {
        w = std::make_unique<MainWindow>(nullptr, MainWindow::Startup::Quiet);
    }

    void cleanup()
    {
        w.reset();
        peer.reset();
    }

    // --- The window ---

    void startsWithTheServerTab()
    {
        QCOMPARE(w->tabWidget->count(), 1);
        QCOMPARE(w->tabWidget->tabText(0), QStringLiteral("Server"));
        QCOMPARE(w->currentTabName, QStringLiteral("Server"));
        QCOMPARE(w->inputLine->placeholderText(), QStringLiteral("Type a command..."));
        QVERIFY(w->userList->isHidden());
        QVERIFY(w->emojiButton->isHidden());
        QCOMPARE(w->windowTitle(), QStringLiteral("Quenvar"));
    }

    // --- Rows ---

    void firstMessageInSecondRow()
    {
        w->appendMessageToTab(QStringLiteral("#chan"), QStringLiteral("hello there"), QStringLiteral("alice"), false);
        ChatView* chat = view(QStringLiteral("#chan"));
        QVERIFY(chat);
        QCOMPARE(w->currentTabName, QStringLiteral("#chan"));
        QCOMPARE(chat->document()->blockCount(), 2);
        QVERIFY(chat->document()->firstBlock().text().isEmpty());
        QVERIFY2(QRegularExpression(QStringLiteral("^\\[\\d\\d:\\d\\d:\\d\\d\\]\\talice  \\t hello there$"))
                     .match(lastRow(QStringLiteral("#chan")).text())
                     .hasMatch(),
            qPrintable(lastRow(QStringLiteral("#chan")).text()));

        // The server tab has no nick column and no leading space.
        w->appendMessageToTab(QStringLiteral("Server"), QStringLiteral("*** Connected"), QString(), false);
        QCOMPARE(view(QStringLiteral("Server"))->document()->blockCount(), 2);
        QVERIFY2(QRegularExpression(QStringLiteral("^\\[\\d\\d:\\d\\d:\\d\\d\\]\\t\\*\\*\\* Connected$"))
                     .match(lastRow(QStringLiteral("Server")).text())
                     .hasMatch(),
            qPrintable(lastRow(QStringLiteral("Server")).text()));

        // The timestamp is grey.
        const QTextFragment stamp = fragments(lastRow(QStringLiteral("#chan"))).first();
        QVERIFY(isGrey(stamp.charFormat()));
    }

    void rowsFollowTheTimestampFormat()
    {
        w->m_timestampFormat = QStringLiteral("'<'HH'>'");
        w->appendMessageToTab(QStringLiteral("#chan"), QStringLiteral("x"), QStringLiteral("alice"), false);
        QVERIFY(QRegularExpression(QStringLiteral("^<\\d\\d>\\t"))
                    .match(lastRow(QStringLiteral("#chan")).text())
                    .hasMatch());
    }

    void nickTruncation_data()
    {
        QTest::addColumn<QString>("nick");
        QTest::addColumn<QString>("shown");
        QTest::newRow("16 characters stay") << "sixteen_letters_" << "sixteen_letters_";
        QTest::newRow("17 characters") << "seventeen_letters" << QStringLiteral("seventeen_lette\u2026");
        QTest::newRow("30 characters") << "abcdefghijklmnopqrstuvwxyz0123"
                                       << QStringLiteral("abcdefghijklmno\u2026");
    }

    void nickTruncation()
    {
        QFETCH(QString, nick);
        QFETCH(QString, shown);
        w->appendMessageToTab(QStringLiteral("#chan"), QStringLiteral("hi"), nick, false);
        const QTextFragment fragment = fragmentStartingWith(lastRow(QStringLiteral("#chan")), shown);
        QVERIFY(fragment.isValid());
        QCOMPARE(fragment.text(), shown + QStringLiteral("  \t"));
        QCOMPARE(fragment.charFormat().foreground().color(), IrcText::nickColor(shown));
        QCOMPARE(fragment.charFormat().fontWeight(), 700);
        if (shown != nick)
            QVERIFY(!lastRow(QStringLiteral("#chan")).text().contains(nick));
    }

    void selfDetection_data()
    {
        QTest::addColumn<QString>("sender");
        QTest::addColumn<QString>("pendingNick");
        QTest::addColumn<bool>("away");
        QTest::addColumn<bool>("service");
        QTest::addColumn<bool>("awayLook"); // nick grey italic, message grey
        QTest::addColumn<QString>("message");

        QTest::newRow("own nick, other case") << "MyNick" << "" << false << false << false << " text";
        QTest::newRow("own nick away") << "mynick" << "" << true << false << true << "[Away: at lunch] text";
        QTest::newRow("pending nick away") << "NewNick" << "newnick" << true << false << true
                                           << "[Away: at lunch] text";
        QTest::newRow("own service line away") << "mynick" << "" << true << true << true << " text";
        QTest::newRow("someone else, while away") << "bob" << "" << true << false << false << " text";
        QTest::newRow("nick pending, not away") << "newnick" << "newnick" << false << false << false << " text";
    }

    void selfDetection()
    {
        QFETCH(QString, sender);
        QFETCH(QString, pendingNick);
        QFETCH(bool, away);
        QFETCH(bool, service);
        QFETCH(bool, awayLook);
        QFETCH(QString, message);
        QVERIFY(connectWindow());
        w->pendingNewNick = pendingNick;
        w->awayActive = away;
        w->awayMessage = away ? QStringLiteral("at lunch") : QString();

        w->appendMessageToTab(QStringLiteral("#chan"), QStringLiteral("text"), sender, service);
        const QTextBlock row = lastRow(QStringLiteral("#chan"));
        QCOMPARE(messageColumn(row), message);

        const QTextFragment nick = fragmentStartingWith(row, sender);
        QVERIFY(nick.isValid());
        const QList<QTextFragment> text = messageFragments(row);
        QVERIFY(!text.isEmpty());
        if (awayLook) {
            QCOMPARE(nick.charFormat().foreground().color(), QColor(0xAA, 0xAA, 0xAA));
            QVERIFY(nick.charFormat().fontItalic());
            QVERIFY(isGrey(text.first().charFormat()));
        } else {
            QCOMPARE(nick.charFormat().foreground().color(), IrcText::nickColor(sender));
            QVERIFY(!nick.charFormat().fontItalic());
            QCOMPARE(isGrey(text.first().charFormat()), service);
        }
    }

    void ownLinesNeverHighlight()
    {
        QVERIFY(connectWindow());
        w->pendingNewNick = QStringLiteral("nextnick");
        w->appendMessageToTab(QStringLiteral("#chan"), QStringLiteral("first"), QStringLiteral("carol"), false);
        switchTo(QStringLiteral("Server"));
        w->statusBar()->clearMessage();

        w->appendMessageToTab(QStringLiteral("#chan"), QStringLiteral("mynick says hi"), QStringLiteral("MYNICK"), false);
        w->appendMessageToTab(QStringLiteral("#chan"), QStringLiteral("mynick again"), QStringLiteral("NextNick"), false);
        w->appendMessageToTab(QStringLiteral("Server"), QStringLiteral("*** mynick is here"), QString(), false);
        w->appendMessageToTab(QStringLiteral("Server"), QStringLiteral("mynick: hello"), QStringLiteral("bob"), false);
        w->appendMessageToTab(QStringLiteral("bob"), QStringLiteral("mynick: hi"), QStringLiteral("mynick"), false);

        for (const QString& tab : { QStringLiteral("#chan"), QStringLiteral("Server"), QStringLiteral("bob") }) {
            QVERIFY2(!w->tabs.value(tab).highlighted, qPrintable(tab));
            QVERIFY(!w->tabBar->isHighlighted(indexOf(tab)));
        }
        QVERIFY(notification().isEmpty());
    }

    void mention_data()
    {
        QTest::addColumn<QString>("message");
        QTest::addColumn<bool>("current");
        QTest::addColumn<bool>("mention");

        QTest::newRow("other tab, case ignored") << "Hello MyNick!" << false << true;
        QTest::newRow("current tab") << "Hello MyNick!" << true << true;
        QTest::newRow("nick as a prefix") << "mynick: look" << false << true;
        QTest::newRow("longer word") << "Hello mynickname" << false << false;
        QTest::newRow("inside a word") << "xmynick" << false << false;
        QTest::newRow("no nick") << "Hello everyone" << false << false;
    }

    void mention()
    {
        QFETCH(QString, message);
        QFETCH(bool, current);
        QFETCH(bool, mention);
        QVERIFY(connectWindow());
        w->appendMessageToTab(QStringLiteral("#chan"), QStringLiteral("first"), QStringLiteral("carol"), false);
        if (!current)
            switchTo(QStringLiteral("Server"));
        w->statusBar()->clearMessage();

        w->appendMessageToTab(QStringLiteral("#chan"), message, QStringLiteral("bob"), false);
        QCOMPARE(w->tabs.value(QStringLiteral("#chan")).highlighted, mention);
        QCOMPARE(w->tabBar->isHighlighted(indexOf(QStringLiteral("#chan"))), mention && !current);
        QCOMPARE(notification(),
            mention && !current ? QStringLiteral("#chan: bob: ") + message : QString());

        // Switching to the tab clears the mark.
        switchTo(QStringLiteral("Server"));
        switchTo(QStringLiteral("#chan"));
        QVERIFY(!w->tabs.value(QStringLiteral("#chan")).highlighted);
        QVERIFY(!w->tabBar->isHighlighted(indexOf(QStringLiteral("#chan"))));
    }

    void mentionFollowsTheOwnNick()
    {
        QVERIFY(connectWindow(QStringLiteral("first")));
        w->appendMessageToTab(QStringLiteral("#chan"), QStringLiteral("first!"), QStringLiteral("bob"), false);
        QVERIFY(w->tabs.value(QStringLiteral("#chan")).highlighted);
        switchTo(QStringLiteral("Server"));
        switchTo(QStringLiteral("#chan"));

        // The server confirms a new nick: the old one is no longer a mention.
        emit w->connection->nickChanged(QStringLiteral("first"), QStringLiteral("second"));
        QCOMPARE(w->connection->currentNick(), QStringLiteral("second"));
        w->appendMessageToTab(QStringLiteral("#chan"), QStringLiteral("first!"), QStringLiteral("bob"), false);
        QVERIFY(!w->tabs.value(QStringLiteral("#chan")).highlighted);
        w->appendMessageToTab(QStringLiteral("#chan"), QStringLiteral("hi second"), QStringLiteral("bob"), false);
        QVERIFY(w->tabs.value(QStringLiteral("#chan")).highlighted);
    }

    void longNotificationIsCut()
    {
        QVERIFY(connectWindow());
        w->appendMessageToTab(QStringLiteral("#chan"), QStringLiteral("first"), QStringLiteral("carol"), false);
        switchTo(QStringLiteral("Server"));
        const QString message = QStringLiteral("mynick ") + QString(300, QLatin1Char('x'));
        w->appendMessageToTab(QStringLiteral("#chan"), message, QStringLiteral("bob"), false);
        QCOMPARE(notification(), QStringLiteral("#chan: bob: ") + message.left(252) + QStringLiteral("..."));

        // 255 characters are shown in full.
        const QString exact = QStringLiteral("mynick ") + QString(248, QLatin1Char('y'));
        QCOMPARE(exact.size(), 255);
        w->appendMessageToTab(QStringLiteral("#chan"), exact, QStringLiteral("bob"), false);
        QCOMPARE(notification(), QStringLiteral("#chan: bob: ") + exact);
    }

    void privateMessageHighlights()
    {
        QVERIFY(connectWindow());
        w->appendMessageToTab(QStringLiteral("#chan"), QStringLiteral("first"), QStringLiteral("carol"), false);
        QCOMPARE(w->currentTabName, QStringLiteral("#chan"));
        w->statusBar()->clearMessage();

        w->appendMessageToTab(QStringLiteral("bob"), QStringLiteral("psst, no nick here"), QStringLiteral("bob"), false);
        QCOMPARE(w->currentTabName, QStringLiteral("#chan"));
        QCOMPARE(w->tabs.value(QStringLiteral("bob")).peerNick, QStringLiteral("bob"));
        QVERIFY(w->tabs.value(QStringLiteral("bob")).highlighted);
        QVERIFY(w->tabBar->isHighlighted(indexOf(QStringLiteral("bob"))));
        QCOMPARE(notification(), QStringLiteral("bob: psst, no nick here"));
    }

    void newPrivateTabBecomesCurrentFromServer()
    {
        QVERIFY(connectWindow());
        w->appendMessageToTab(QStringLiteral("bob"), QStringLiteral("hi"), QStringLiteral("bob"), false);
        QCOMPARE(w->currentTabName, QStringLiteral("bob"));
        QVERIFY(notification().isEmpty());
        QVERIFY(!w->tabBar->isHighlighted(indexOf(QStringLiteral("bob"))));
    }

    void privateTabSendsWatchOnce()
    {
        QVERIFY(connectWindow());
        w->appendMessageToTab(QStringLiteral("Bob"), QStringLiteral("hi"), QStringLiteral("Bob"), false);
        w->appendMessageToTab(QStringLiteral("Bob"), QStringLiteral("again"), QStringLiteral("Bob"), false);
        w->appendMessageToTab(QStringLiteral("#chan"), QStringLiteral("x"), QStringLiteral("carol"), false);
        QTRY_COMPARE_WITH_TIMEOUT(peer->linesStartingWith(QStringLiteral("WATCH")),
            QStringList { QStringLiteral("WATCH +Bob") }, 5000);
        QVERIFY(w->watchedNicks.contains(QStringLiteral("bob")));
        QCOMPARE(w->findPrivateChatTab(QStringLiteral("BOB")), QStringLiteral("Bob"));
        QCOMPARE(w->findPrivateChatTab(QStringLiteral("#chan")), QString());

        // Closing the tab ends the watch.
        w->closeTab(indexOf(QStringLiteral("Bob")));
        QTRY_COMPARE_WITH_TIMEOUT(peer->linesStartingWith(QStringLiteral("WATCH")),
            (QStringList { QStringLiteral("WATCH +Bob"), QStringLiteral("WATCH -Bob") }), 5000);
        QVERIFY(!w->watchedNicks.contains(QStringLiteral("bob")));
    }

    void hostileTextStaysText_data()
    {
        QTest::addColumn<QString>("message");
        QTest::addColumn<QString>("sender");
        QTest::addColumn<QString>("visible"); // expected in the message column

        QTest::newRow("markup") << "<b>bold</b> <a href=\"javascript:x\">x</a> &amp; <img src=x>"
                                << "<i>nick</i>"
                                << " <b>bold</b> <a href=\"javascript:x\">x</a> &amp; <img src=x>";
        QTest::newRow("placeholders") << "%1 %2 %L1 %%" << "%1" << " %1 %2 %L1 %%";
        QTest::newRow("control characters") << QStringLiteral("a\x02" "b\x03" "4,5c\x0f" "d\x16" "e") << "ctl"
                                            << QStringLiteral(" a\x02" "b\x03" "4,5c\x0f" "d\x16" "e");
        QTest::newRow("line breaks") << QStringLiteral("one\ntwo\rthree\u2029four\u2028five") << "n\nick"
                                     << QStringLiteral(" one two three four five");
        QTest::newRow("tab") << "a\tb" << "tab" << " a b";
        QTest::newRow("10,000 characters") << QString(10000, QLatin1Char('y')) << "bob"
                                           << QLatin1Char(' ') + QString(10000, QLatin1Char('y'));
    }

    void hostileTextStaysText()
    {
        QFETCH(QString, message);
        QFETCH(QString, sender);
        QFETCH(QString, visible);
        w->appendMessageToTab(QStringLiteral("#chan"), message, sender, false);
        ChatView* chat = view(QStringLiteral("#chan"));
        QCOMPARE(chat->document()->blockCount(), 2); // one row, not broken up
        const QTextBlock row = lastRow(QStringLiteral("#chan"));
        QCOMPARE(messageColumn(row), visible);
        QCOMPARE(row.text().count(QLatin1Char('\t')), 2);
        for (const QTextFragment& fragment : messageFragments(row)) {
            QVERIFY(!fragment.charFormat().isAnchor());
            QVERIFY(fragment.charFormat().fontWeight() != 700);
            QVERIFY(!fragment.charFormat().fontItalic());
        }
        QVERIFY(!chat->document()->toHtml().contains(QStringLiteral("<b>bold")));
        chat->flushBatch();
    }

    void linksInRows()
    {
        w->appendMessageToTab(QStringLiteral("#chan"),
            QStringLiteral("see https://example.org/a?b=c#d or mail me@example.com"), QStringLiteral("bob"), false);
        QStringList hrefs;
        for (const QTextFragment& fragment : messageFragments(lastRow(QStringLiteral("#chan")))) {
            if (fragment.charFormat().isAnchor()) {
                hrefs << fragment.charFormat().anchorHref();
                QCOMPARE(fragment.charFormat().foreground().color(), QColor(0x00, 0x7A, 0xFF));
            }
        }
        QCOMPARE(hrefs, (QStringList { QStringLiteral("https://example.org/a?b=c#d"),
                            QStringLiteral("mailto:me@example.com") }));
    }

    void clearingTheViewKeepsTheFirstRowBlank()
    {
        w->appendMessageToTab(QStringLiteral("#chan"), QStringLiteral("one"), QStringLiteral("bob"), false);
        w->appendMessageToTab(QStringLiteral("#chan"), QStringLiteral("two"), QStringLiteral("bob"), false);
        ChatView* chat = view(QStringLiteral("#chan"));
        QCOMPARE(chat->rowCount(), 2);
        chat->clearMessages();
        QCOMPARE(chat->rowCount(), 0);
        w->appendMessageToTab(QStringLiteral("#chan"), QStringLiteral("three"), QStringLiteral("bob"), false);
        QCOMPARE(chat->document()->blockCount(), 2);
        QVERIFY(chat->document()->firstBlock().text().isEmpty());
        QCOMPARE(messageColumn(lastRow(QStringLiteral("#chan"))), QStringLiteral(" three"));
    }

    // Rows of one batch are laid out together, once the batch is over.
    void batchesLayOutOnce()
    {
        w->resize(900, 600);
        w->show();
        QVERIFY(QTest::qWaitForWindowExposed(w.get()));
        w->appendMessageToTab(QStringLiteral("#chan"), QStringLiteral("first"), QStringLiteral("bob"), false);
        ChatView* chat = view(QStringLiteral("#chan"));
        QTRY_VERIFY_WITH_TIMEOUT(!chat->inBatch(), 5000);

        // The layout learns of changes through contentsChange.
        QSignalSpy changes(chat->document(), &QTextDocument::contentsChange);
        w->beginAppendBatch();
        for (int i = 0; i < 200; ++i)
            w->appendMessageToTab(QStringLiteral("#chan"), QStringLiteral("line %1").arg(i), QStringLiteral("bob"), false);
        QVERIFY(chat->inBatch());
        QTest::qWait(50);
        // Nothing laid out while the batch is open.
        QCOMPARE(changes.count(), 0);
        QCOMPARE(chat->document()->lastBlock().layout()->lineCount(), 0);
        w->endAppendBatch();
        QTRY_VERIFY_WITH_TIMEOUT(!chat->inBatch(), 5000);
        QCOMPARE(changes.count(), 1);
        QVERIFY(chat->document()->lastBlock().layout()->lineCount() > 0);
        QCOMPARE(chat->rowCount(), 201);
        // The last row is scrolled into view.
        QVERIFY(chat->verticalScrollBar()->maximum() > 0);
        const QRectF last = chat->document()->documentLayout()->blockBoundingRect(chat->document()->lastBlock());
        const int top = chat->verticalScrollBar()->value();
        QVERIFY(last.top() >= top);
        QVERIFY(last.bottom() <= top + chat->viewport()->height() + 1);
    }

    // --- Tabs ---

    void draftsFollowTheTab()
    {
        QVERIFY(connectWindow());
        w->appendMessageToTab(QStringLiteral("#a"), QStringLiteral("x"), QStringLiteral("bob"), false);
        w->appendMessageToTab(QStringLiteral("#b"), QStringLiteral("x"), QStringLiteral("bob"), false);
        QCOMPARE(w->currentTabName, QStringLiteral("#a"));

        w->inputLine->setText(QStringLiteral("half typed"));
        switchTo(QStringLiteral("#b"));
        QCOMPARE(w->inputLine->text(), QString());
        w->inputLine->setText(QStringLiteral("for b"));
        switchTo(QStringLiteral("Server"));
        QCOMPARE(w->inputLine->text(), QString());
        switchTo(QStringLiteral("#a"));
        QCOMPARE(w->inputLine->text(), QStringLiteral("half typed"));
        switchTo(QStringLiteral("#b"));
        QCOMPARE(w->inputLine->text(), QStringLiteral("for b"));

        // Sending clears the draft.
        switchTo(QStringLiteral("#a"));
        QTest::keyClick(w->inputLine, Qt::Key_Return);
        QCOMPARE(w->inputLine->text(), QString());
        QTRY_COMPARE_WITH_TIMEOUT(peer->linesStartingWith(QStringLiteral("PRIVMSG")),
            QStringList { QStringLiteral("PRIVMSG #a :half typed") }, 5000);
        QCOMPARE(messageColumn(lastRow(QStringLiteral("#a"))), QStringLiteral(" half typed"));
        switchTo(QStringLiteral("#b"));
        switchTo(QStringLiteral("#a"));
        QCOMPARE(w->inputLine->text(), QString());
    }

    void switchingShowsTheRightControls()
    {
        w->appendMessageToTab(QStringLiteral("#a"), QStringLiteral("x"), QStringLiteral("bob"), false);
        w->appendMessageToTab(QStringLiteral("bob"), QStringLiteral("x"), QStringLiteral("bob"), false);
        switchTo(QStringLiteral("#a"));
        QVERIFY(!w->userList->isHidden());
        QVERIFY(!w->emojiButton->isHidden());
        QCOMPARE(w->inputLine->placeholderText(), QStringLiteral("Type a message..."));
        switchTo(QStringLiteral("bob"));
        QVERIFY(w->userList->isHidden());
        QVERIFY(!w->emojiButton->isHidden());
        switchTo(QStringLiteral("Server"));
        QVERIFY(w->userList->isHidden());
        QVERIFY(w->emojiButton->isHidden());
        QCOMPARE(w->inputLine->placeholderText(), QStringLiteral("Type a command..."));
    }

    void closingAChannelWhileDisconnectedSendsNothing()
    {
        w->appendMessageToTab(QStringLiteral("#a"), QStringLiteral("x"), QStringLiteral("bob"), false);
        const int serverRows = view(QStringLiteral("Server"))->rowCount();
        QSignalSpy errors(w->connection, &IRCConnection::errorOccurred);
        w->closeTab(indexOf(QStringLiteral("#a")));
        QCOMPARE(indexOf(QStringLiteral("#a")), -1);
        QVERIFY(!w->tabs.contains(QStringLiteral("#a")));
        QCOMPARE(errors.count(), 0); // no send was even tried
        QCOMPARE(view(QStringLiteral("Server"))->rowCount(), serverRows);
        QCOMPARE(w->currentTabName, QStringLiteral("Server"));
    }

    void closingAChannelWhileConnectedParts()
    {
        QVERIFY(connectWindow());
        w->appendMessageToTab(QStringLiteral("#a"), QStringLiteral("x"), QStringLiteral("bob"), false);
        w->inputLine->setText(QStringLiteral("draft"));
        w->closeTab(indexOf(QStringLiteral("#a")));
        QTRY_COMPARE_WITH_TIMEOUT(peer->lines(), QStringList { QStringLiteral("PART #a :Leaving") }, 5000);
        QCOMPARE(messageColumn(lastRow(QStringLiteral("Server"))), QStringLiteral("*** You left #a"));
        QVERIFY(!w->tabInputHistory.contains(QStringLiteral("#a")));
        QCOMPARE(w->currentTabName, QStringLiteral("Server"));

        // The server's echo of the part, then someone else's line, after the
        // tab is gone: the echo opens nothing and the channel is forgotten.
        QSignalSpy raw(w->connection, &IRCConnection::rawMessageReceived);
        peer->send(":mynick!u@h PART :#a\r\n:bob!u@h PRIVMSG mynick :hi\r\n");
        QTRY_COMPARE_WITH_TIMEOUT(raw.count(), 2, 5000);
        QCOMPARE(indexOf(QStringLiteral("#a")), -1);
        QVERIFY(!w->channelUsers.contains(QStringLiteral("#a")));
        QVERIFY(indexOf(QStringLiteral("bob")) >= 0);
    }

    void serverTabCannotBeClosed()
    {
        w->appendMessageToTab(QStringLiteral("#a"), QStringLiteral("x"), QStringLiteral("bob"), false);
        w->appendMessageToTab(QStringLiteral("#b"), QStringLiteral("x"), QStringLiteral("bob"), false);
        w->show();
        w->activateWindow();
        QVERIFY(QTest::qWaitForWindowActive(w.get()));

        // Double click.
        QTest::mouseDClick(w->tabBar, Qt::LeftButton, {}, w->tabBar->tabRect(0).center());
        QCOMPARE(w->tabWidget->tabText(0), QStringLiteral("Server"));
        QTest::mouseDClick(w->tabBar, Qt::LeftButton, {}, w->tabBar->tabRect(indexOf("#b")).center());
        QCOMPARE(indexOf(QStringLiteral("#b")), -1);

        // Close button.
        closeButton(0)->click();
        QCOMPARE(w->tabWidget->tabText(0), QStringLiteral("Server"));

        // Shortcut.
        const QKeySequence close(QKeySequence::Close);
        if (close.isEmpty())
            QSKIP("the platform has no Close key");
        switchTo(QStringLiteral("Server"));
        QTest::keySequence(w.get(), close);
        QCOMPARE(w->tabWidget->tabText(0), QStringLiteral("Server"));
        QCOMPARE(w->tabWidget->count(), 2);
        switchTo(QStringLiteral("#a"));
        QTest::keySequence(w.get(), close);
        QCOMPARE(indexOf(QStringLiteral("#a")), -1);
        QCOMPARE(w->tabWidget->count(), 1);
    }

    void closeButtonsAfterEverySwitch()
    {
        w->appendMessageToTab(QStringLiteral("#a"), QStringLiteral("x"), QStringLiteral("bob"), false);
        w->appendMessageToTab(QStringLiteral("#b"), QStringLiteral("x"), QStringLiteral("bob"), false);
        w->appendMessageToTab(QStringLiteral("carol"), QStringLiteral("x"), QStringLiteral("carol"), false);
        QCOMPARE(w->tabWidget->count(), 4);
        for (int current : { 2, 3, 0, 1, 3 }) {
            w->tabWidget->setCurrentIndex(current);
            for (int i = 0; i < w->tabWidget->count(); ++i) {
                QPushButton* button = closeButton(i);
                QVERIFY(button);
                QCOMPARE(button->text(), QString(QChar(0x00D7)));
                const QString colour = i == current ? QStringLiteral("color: #FFFFFF;") : QStringLiteral("color: #999999;");
                QVERIFY2(button->styleSheet().contains(colour), qPrintable(QStringLiteral("%1 %2").arg(current).arg(i)));
            }
        }
        // A close button closes its own tab, and the buttons are rebuilt.
        closeButton(indexOf(QStringLiteral("#a")))->click();
        QCOMPARE(indexOf(QStringLiteral("#a")), -1);
        closeButton(indexOf(QStringLiteral("carol")))->click();
        QCOMPARE(indexOf(QStringLiteral("carol")), -1);
        QCOMPARE(w->tabWidget->count(), 2);
    }

    void highlightMarksMoveWithTheirTabs()
    {
        QVERIFY(connectWindow());
        w->appendMessageToTab(QStringLiteral("#a"), QStringLiteral("x"), QStringLiteral("bob"), false);
        w->appendMessageToTab(QStringLiteral("#b"), QStringLiteral("x"), QStringLiteral("bob"), false);
        w->appendMessageToTab(QStringLiteral("#c"), QStringLiteral("x"), QStringLiteral("bob"), false);
        switchTo(QStringLiteral("Server"));
        w->appendMessageToTab(QStringLiteral("#c"), QStringLiteral("mynick!"), QStringLiteral("bob"), false);
        QVERIFY(w->tabBar->isHighlighted(3));
        w->closeTab(indexOf(QStringLiteral("#b")));
        QCOMPARE(indexOf(QStringLiteral("#c")), 2);
        QVERIFY(w->tabBar->isHighlighted(2));
        QVERIFY(!w->tabBar->isHighlighted(1));
        QVERIFY(!w->tabBar->isHighlighted(3));
    }

    void splitterKeepsOneFifth()
    {
        w->appendMessageToTab(QStringLiteral("#a"), QStringLiteral("x"), QStringLiteral("bob"), false);
        w->show();
        QVERIFY(QTest::qWaitForWindowExposed(w.get()));
        const int delta = 1003 - w->splitter->width();
        w->resize(w->width() + delta, w->height());
        QTRY_COMPARE_WITH_TIMEOUT(w->splitter->width(), 1003, 5000);
        // 803 and 200 are asked for; the splitter fits them beside its 8 px
        // handle, keeping their proportion.
        auto oneFifth = [this] {
            const QList<int> sizes = w->splitter->sizes();
            return sizes.size() == 2 && sizes[0] + sizes[1] == 1003 - w->splitter->handleWidth()
                && qAbs(sizes[0] * 200 - sizes[1] * 803) <= 803;
        };
        QTRY_VERIFY_WITH_TIMEOUT(oneFifth(), 5000);
        QCOMPARE(w->splitter->handleWidth(), 8);
        QCOMPARE(w->splitter->sizes(), (QList<int> { 797, 198 }));

        // A drag lasts until the next tab switch.
        w->splitter->setSizes({ 500, 503 });
        switchTo(QStringLiteral("Server"));
        QTRY_COMPARE_WITH_TIMEOUT(w->splitter->sizes().value(1), 0, 5000);
        switchTo(QStringLiteral("#a"));
        QTRY_VERIFY_WITH_TIMEOUT(oneFifth(), 5000);
    }

    // --- Member list ---

    void namesSortByRankThenName()
    {
        w->appendMessageToTab(QStringLiteral("#c"), QStringLiteral("x"), QStringLiteral("bob"), false);
        w->onNames(QStringLiteral("#c"), { QStringLiteral("+bob"), QStringLiteral("@Alice") });
        QCOMPARE(w->userList->count(), 0); // nothing shown before the end
        w->onNames(QStringLiteral("#c"), { QStringLiteral("~zed"), QStringLiteral("carl"), QStringLiteral("@al") });
        w->onNamesFinished(QStringLiteral("#c"));
        const QStringList expected { QStringLiteral("~zed"), QStringLiteral("@al"), QStringLiteral("@Alice"),
            QStringLiteral("+bob"), QStringLiteral("carl") };
        QCOMPARE(w->channelUsers.value(QStringLiteral("#c")), expected);
        QVERIFY(!w->pendingNames.contains(QStringLiteral("#c")));
        QStringList shown;
        for (int i = 0; i < w->userList->count(); ++i)
            shown << w->userList->item(i)->text();
        QCOMPARE(shown, expected);

        // An empty reply empties the list.
        w->onNamesFinished(QStringLiteral("#c"));
        QCOMPARE(w->channelUsers.value(QStringLiteral("#c")), QStringList());
        QCOMPARE(w->userList->count(), 0);
    }

    void namesOfAnotherChannelStayHidden()
    {
        w->appendMessageToTab(QStringLiteral("#c"), QStringLiteral("x"), QStringLiteral("bob"), false);
        w->appendMessageToTab(QStringLiteral("#d"), QStringLiteral("x"), QStringLiteral("bob"), false);
        w->onNames(QStringLiteral("#d"), { QStringLiteral("dave") });
        w->onNamesFinished(QStringLiteral("#d"));
        QCOMPARE(w->userList->count(), 0);
        switchTo(QStringLiteral("#d"));
        QCOMPARE(w->userList->count(), 1);
        QCOMPARE(w->userList->item(0)->text(), QStringLiteral("dave"));
        switchTo(QStringLiteral("#c"));
        QCOMPARE(w->userList->count(), 0);
    }

    void stripModePrefix_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<QString>("stripped");
        QTest::newRow("one symbol only") << "@+nick" << "+nick";
        QTest::newRow("empty") << "" << "";
        QTest::newRow("plain") << "nick" << "nick";
        QTest::newRow("owner") << "~a" << "a";
        QTest::newRow("admin") << "&a" << "a";
        QTest::newRow("half-op") << "%a" << "a";
        QTest::newRow("voice") << "+a" << "a";
        QTest::newRow("not a symbol") << "!a" << "!a";
    }

    void stripModePrefix()
    {
        QFETCH(QString, name);
        QFETCH(QString, stripped);
        QCOMPARE(w->stripModePrefix(name), stripped);
    }

    void operatorStatus_data()
    {
        QTest::addColumn<QString>("ownEntry");
        QTest::addColumn<bool>("op");
        QTest::newRow("owner") << "~mynick" << true;
        QTest::newRow("admin") << "&mynick" << true;
        QTest::newRow("operator") << "@mynick" << true;
        QTest::newRow("half-op") << "%mynick" << true;
        QTest::newRow("voice") << "+mynick" << false;
        QTest::newRow("plain") << "mynick" << false;
        QTest::newRow("other case") << "@MyNick" << false;
    }

    void operatorStatus()
    {
        QFETCH(QString, ownEntry);
        QFETCH(bool, op);
        QVERIFY(!w->isUserOperator(QStringLiteral("#c")));
        QVERIFY(connectWindow());
        showMembers(QStringLiteral("#c"), { QStringLiteral("@bob"), ownEntry });
        QCOMPARE(w->isUserOperator(QStringLiteral("#c")), op);
        QVERIFY(!w->isUserOperator(QStringLiteral("#elsewhere")));
        // The topic button follows it.
        QCOMPARE(!w->tabs.value(QStringLiteral("#c")).editTopicBtn->isHidden(), op);
    }

    void addAndRemoveOnTheVisibleList()
    {
        showMembers(QStringLiteral("#c"), { QStringLiteral("@bob"), QStringLiteral("carl") });
        w->appendMessageToTab(QStringLiteral("#d"), QStringLiteral("x"), QStringLiteral("bob"), false);

        w->addUserToList(QStringLiteral("#d"), QStringLiteral("zed"));
        QCOMPARE(w->userList->count(), 2);
        w->addUserToList(QStringLiteral("#c"), QStringLiteral("aaron"));
        QCOMPARE(w->userList->count(), 3);
        QCOMPARE(w->userList->item(2)->text(), QStringLiteral("aaron")); // appended, not sorted

        w->removeUserFromList(QStringLiteral("#c"), QStringLiteral("bob"));
        QCOMPARE(w->userList->count(), 3); // the symbol is part of the name
        w->removeUserFromList(QStringLiteral("#c"), QStringLiteral("@BOB"));
        QCOMPARE(w->userList->count(), 3); // case matters
        w->removeUserFromList(QStringLiteral("#d"), QStringLiteral("@bob"));
        QCOMPARE(w->userList->count(), 3); // not the current tab
        w->removeUserFromList(QStringLiteral("#c"), QStringLiteral("@bob"));
        QCOMPARE(w->userList->count(), 2);
        QVERIFY(!memberItem(QStringLiteral("@bob")));

        w->clearUserList(QStringLiteral("#d"));
        QCOMPARE(w->userList->count(), 2);
        w->clearUserList(QStringLiteral("#c"));
        QCOMPARE(w->userList->count(), 0);
    }

    void doubleClickOpensPrivateChat()
    {
        QVERIFY(connectWindow());
        showMembers(QStringLiteral("#c"), { QStringLiteral("@mynick"), QStringLiteral("+bob") });

        // Self (also as the pending nick) does nothing.
        w->onUserDoubleClicked(memberItem(QStringLiteral("@mynick")));
        QCOMPARE(w->tabWidget->count(), 2);
        QCOMPARE(w->currentTabName, QStringLiteral("#c"));
        w->pendingNewNick = QStringLiteral("BOB");
        w->onUserDoubleClicked(memberItem(QStringLiteral("+bob")));
        QCOMPARE(w->tabWidget->count(), 2);
        w->pendingNewNick.clear();

        w->onUserDoubleClicked(memberItem(QStringLiteral("+bob")));
        QCOMPARE(w->currentTabName, QStringLiteral("bob"));
        QCOMPARE(w->tabs.value(QStringLiteral("bob")).peerNick, QStringLiteral("bob"));
        QCOMPARE(w->tabWidget->tabToolTip(indexOf(QStringLiteral("bob"))), QStringLiteral("bob"));

        // An existing tab is only switched to.
        switchTo(QStringLiteral("#c"));
        w->onUserDoubleClicked(memberItem(QStringLiteral("+bob")));
        QCOMPARE(w->currentTabName, QStringLiteral("bob"));
        QCOMPARE(w->tabWidget->count(), 3);
        QTRY_COMPARE_WITH_TIMEOUT(peer->linesStartingWith(QStringLiteral("WATCH")),
            QStringList { QStringLiteral("WATCH +bob") }, 5000);
    }

    void doubleClickWhileDisconnectedDoesNothing()
    {
        showMembers(QStringLiteral("#c"), { QStringLiteral("bob") });
        w->onUserDoubleClicked(memberItem(QStringLiteral("bob")));
        QCOMPARE(w->tabWidget->count(), 2);
    }

    void memberMenu_data()
    {
        QTest::addColumn<QString>("item");
        QTest::addColumn<QStringList>("sent");
        QTest::newRow("kick") << "Kick" << QStringList { "KICK #c bob :Requested" };
        QTest::newRow("ban") << "Ban" << QStringList { "MODE #c +b bob!*@*" };
        QTest::newRow("kick and ban") << "Kick/Ban" << QStringList { "MODE #c +b bob!*@*", "KICK #c bob :Banned" };
        QTest::newRow("whois") << "Whois" << QStringList { "WHOIS bob" };
    }

    void memberMenu()
    {
        QFETCH(QString, item);
        QFETCH(QStringList, sent);
        QVERIFY(connectWindow());
        showMembers(QStringLiteral("#c"), { QStringLiteral("@mynick"), QStringLiteral("@bob") });
        w->show();
        QVERIFY(QTest::qWaitForWindowExposed(w.get()));

        QStringList items;
        onNextMenu(item, &items);
        w->showUserContextMenu(w->userList->visualItemRect(memberItem(QStringLiteral("@bob"))).center());
        QCOMPARE(items, (QStringList { "Open Private Chat", "Whois", "-", "Kick", "Ban", "Kick/Ban", "-" }));
        // (A new private tab also asks the server to watch its peer.)
        const auto commandLines = [this] {
            QStringList lines = peer->lines();
            lines.removeIf([](const QString& line) { return line.startsWith(QStringLiteral("WATCH ")); });
            return lines;
        };
        QTRY_COMPARE_WITH_TIMEOUT(commandLines(), sent, 5000);
        if (item == QLatin1String("Whois"))
            QCOMPARE(w->whoisTargetTab, QStringLiteral("#c"));
    }

    void memberMenuOutsideChannels()
    {
        QVERIFY(connectWindow());
        w->appendMessageToTab(QStringLiteral("carol"), QStringLiteral("x"), QStringLiteral("carol"), false);
        switchTo(QStringLiteral("carol"));
        // The pane is hidden outside channels, but what it holds still gets a menu.
        w->userList->show();
        w->show();
        QVERIFY(QTest::qWaitForWindowExposed(w.get()));
        w->addUserToList(QStringLiteral("carol"), QStringLiteral("+dave"));

        QStringList items;
        onNextMenu(QStringLiteral("Copy Nickname"), &items);
        w->showUserContextMenu(w->userList->visualItemRect(memberItem(QStringLiteral("+dave"))).center());
        QCOMPARE(items, (QStringList { "Open Private Chat", "Whois", "-", "Copy Nickname" }));
        QCOMPARE(QApplication::clipboard()->text(), QStringLiteral("dave"));

        // "Open Private Chat" acts like a double click.
        onNextMenu(QStringLiteral("Open Private Chat"));
        w->showUserContextMenu(w->userList->visualItemRect(memberItem(QStringLiteral("+dave"))).center());
        QCOMPARE(w->currentTabName, QStringLiteral("dave"));
    }

    void noMemberMenuOutsideItems()
    {
        showMembers(QStringLiteral("#c"), { QStringLiteral("bob") });
        w->show();
        QVERIFY(QTest::qWaitForWindowExposed(w.get()));
        bool opened = false;
        QTimer::singleShot(0, [&opened] {
            if (auto* menu = QApplication::activePopupWidget()) {
                opened = true;
                menu->close();
            }
        });
        w->showUserContextMenu(QPoint(5, w->userList->viewport()->height() - 3));
        QTest::qWait(20);
        QVERIFY(!opened);
    }

    void ownEntryLooksAway()
    {
        QVERIFY(connectWindow());
        showMembers(QStringLiteral("#c"), { QStringLiteral("@MyNick"), QStringLiteral("bob") });
        w->awayActive = true;
        w->updateOwnUserAppearance();
        QListWidgetItem* own = memberItem(QStringLiteral("@MyNick"));
        QVERIFY(own->font().italic());
        QCOMPARE(own->foreground().color(), QColor(0xAA, 0xAA, 0xAA));
        QVERIFY(!memberItem(QStringLiteral("bob"))->font().italic());

        // A rebuilt list keeps the look; coming back removes it.
        w->onNames(QStringLiteral("#c"), { QStringLiteral("@MyNick"), QStringLiteral("bob") });
        w->onNamesFinished(QStringLiteral("#c"));
        QVERIFY(memberItem(QStringLiteral("@MyNick"))->font().italic());
        w->awayActive = false;
        w->updateOwnUserAppearance();
        QVERIFY(!memberItem(QStringLiteral("@MyNick"))->font().italic());
        QVERIFY(!memberItem(QStringLiteral("@MyNick"))->data(Qt::ForegroundRole).isValid());
    }

    // --- How a channel looks ---

    // Draws a channel with a few hundred rows, links, a mention and a long
    // nick, and checks the columns on the screen. With QUENVAR_SCREENSHOT set
    // to a file name, the window is saved there.
    void channelRendering()
    {
        QVERIFY(connectWindow());
        w->resize(1280, 720);
        w->show();
        QVERIFY(QTest::qWaitForWindowExposed(w.get()));
        w->appendMessageToTab(QStringLiteral("#linux"), QStringLiteral("joined #linux"), QStringLiteral("mynick"), true);
        const QStringList nicks { "alice", "bob", "carol", "averyveryverylongnickname", "dave_", "Eve" };
        for (int i = 0; i < 300; ++i) {
            QString text = QStringLiteral("message number %1 with some words in it").arg(i);
            if (i % 7 == 0)
                text += QStringLiteral(" see https://example.org/page/%1 for details").arg(i);
            if (i % 50 == 25)
                text += QStringLiteral(", mail admin@example.com");
            if (i == 290)
                text = QStringLiteral("mynick: could you look at this? ") + QString(30, QLatin1Char('z'))
                    + QStringLiteral(" and a long line that wraps around the end of the view, ")
                    + QStringLiteral("so that the next line of it starts in the message column again");
            w->appendMessageToTab(QStringLiteral("#linux"), text, nicks.at(i % nicks.size()), false);
        }
        w->appendMessageToTab(QStringLiteral("#linux"), QStringLiteral("my own line"), QStringLiteral("mynick"), false);
        w->appendMessageToTab(QStringLiteral("#linux"), QStringLiteral("left #linux (bye)"), QStringLiteral("Eve"), true);
        w->onNames(QStringLiteral("#linux"), { "@alice", "+bob", "carol", "mynick", "~dave_", "Eve" });
        w->onNamesFinished(QStringLiteral("#linux"));
        ChatView* chat = view(QStringLiteral("#linux"));
        QTRY_VERIFY_WITH_TIMEOUT(!chat->inBatch(), 5000);
        QTest::qWait(50);

        const QString file = qEnvironmentVariable("QUENVAR_SCREENSHOT");
        if (!file.isEmpty())
            QVERIFY(w->grab().save(file));

        const QImage image = chat->viewport()->grab().toImage();
        const int ruleX = qRound(chat->ruleX()) - chat->horizontalScrollBar()->value();
        int greyRows = 0;
        for (int y = 0; y < image.height(); ++y) {
            if (QColor(image.pixel(ruleX, y)) == Grey)
                ++greyRows;
        }
        QVERIFY2(greyRows > image.height() * 9 / 10, qPrintable(QString::number(greyRows)));

        // The nicks end just left of the rule (before their two spaces), and
        // nothing touches the rule on either side.
        auto inkIn = [&image](int x0, int x1) {
            int ink = 0;
            for (int y = 0; y < image.height(); ++y) {
                for (int x = x0; x <= x1; ++x)
                    ink += QColor(image.pixel(x, y)).lightness() < 200 ? 1 : 0;
            }
            return ink;
        };
        QVERIFY(inkIn(ruleX - 20, ruleX - 8) > 0);
        QCOMPARE(inkIn(ruleX - 1, ruleX - 1), 0);
        QCOMPARE(inkIn(ruleX + 1, ruleX + 1), 0);
    }

    // --- Input line and commands ---

    // The message texts of a tab's rows, in order.
    QStringList messages(const QString& tab) const
    {
        QStringList result;
        const QTextDocument* document = view(tab)->document();
        for (QTextBlock block = document->firstBlock().next(); block.isValid(); block = block.next())
            result << messageColumn(block).trimmed();
        return result;
    }

    void textOnTheServerTabIsRefused()
    {
        QVERIFY(connectWindow());
        w->inputLine->setText(QStringLiteral("hello world"));
        w->onSendInput();
        QCOMPARE(messageColumn(lastRow(QStringLiteral("Server"))), QStringLiteral("Cannot send messages to Server tab."));
        QTest::qWait(100);
        QVERIFY(peer->linesStartingWith(QStringLiteral("PRIVMSG")).isEmpty());
        QCOMPARE(w->inputLine->text(), QString());
    }

    void typedLinesWhileDisconnectedAreDropped()
    {
        w->appendMessageToTab(QStringLiteral("#a"), QStringLiteral("x"), QStringLiteral("bob"), false);
        switchTo(QStringLiteral("#a"));
        const int rows = view(QStringLiteral("#a"))->document()->blockCount();
        w->inputLine->setText(QStringLiteral("/j other"));
        w->onSendInput();
        w->inputLine->setText(QStringLiteral("/bogus"));
        w->onSendInput();
        QCOMPARE(view(QStringLiteral("#a"))->document()->blockCount(), rows);
        QCOMPARE(w->inputLine->text(), QString());
    }

    void commandsSendTheirLines_data()
    {
        QTest::addColumn<QString>("typed");
        QTest::addColumn<QStringList>("sent");
        QTest::newRow("join alias adds #") << "/j linux" << QStringList { "JOIN #linux" };
        QTest::newRow("join takes the first word") << "/join #a b" << QStringList { "JOIN #a" };
        QTest::newRow("part the current tab") << "/p extra words" << QStringList { "PART #cur :Leaving" };
        QTest::newRow("raw keeps the rest") << "/raw MODE  #cur +m" << QStringList { "MODE  #cur +m" };
        QTest::newRow("msg counts empty sections") << "/msg bob hi  there" << QStringList { "PRIVMSG bob :hi  there" };
        QTest::newRow("whois") << "/wc carl" << QStringList { "WHOIS carl" };
        QTest::newRow("away default reason") << "/away" << QStringList { "AWAY :Away" };
        QTest::newRow("back while not away") << "/b" << QStringList { "AWAY" };
        QTest::newRow("plain text") << "  hello  " << QStringList { "PRIVMSG #cur :hello" };
    }

    void commandsSendTheirLines()
    {
        QFETCH(QString, typed);
        QFETCH(QStringList, sent);
        QVERIFY(connectWindow());
        w->appendMessageToTab(QStringLiteral("#cur"), QStringLiteral("x"), QStringLiteral("bob"), false);
        switchTo(QStringLiteral("#cur"));
        peer->clear();
        w->inputLine->setText(typed);
        w->onSendInput();
        // (A new private tab also asks the server to watch its peer.)
        const auto commandLines = [this] {
            QStringList lines = peer->lines();
            lines.removeIf([](const QString& line) { return line.startsWith(QStringLiteral("WATCH ")); });
            return lines;
        };
        QTRY_COMPARE_WITH_TIMEOUT(commandLines(), sent, 5000);
    }

    void msgEchoesIntoTheTargetTab()
    {
        QVERIFY(connectWindow(QStringLiteral("me")));
        w->inputLine->setText(QStringLiteral("/m bob hi  there"));
        w->onSendInput();
        QVERIFY(w->tabs.contains(QStringLiteral("bob")));
        QCOMPARE(messageColumn(lastRow(QStringLiteral("bob"))), QStringLiteral(" hi  there"));
        // Too few arguments: reported as unknown under the mapped name.
        w->inputLine->setText(QStringLiteral("/msg bob"));
        w->onSendInput();
        QCOMPARE(messageColumn(lastRow(QStringLiteral("bob"))), QStringLiteral(" Unknown command: msg"));
        w->inputLine->setText(QStringLiteral("/J"));
        w->onSendInput();
        QCOMPARE(messageColumn(lastRow(QStringLiteral("bob"))), QStringLiteral(" Unknown command: join"));
    }

    void awayAndBackAnnounceInEveryChatTab()
    {
        QVERIFY(connectWindow(QStringLiteral("me")));
        w->appendMessageToTab(QStringLiteral("#a"), QStringLiteral("x"), QStringLiteral("bob"), false);
        w->appendMessageToTab(QStringLiteral("#b"), QStringLiteral("x"), QStringLiteral("bob"), false);
        w->appendMessageToTab(QStringLiteral("carl"), QStringLiteral("x"), QStringLiteral("carl"), false);
        w->inputLine->setText(QStringLiteral("/a   gone fishing  "));
        w->onSendInput();
        QVERIFY(w->awayActive);
        QCOMPARE(w->awayMessage, QStringLiteral("gone fishing"));
        QCOMPARE(messageColumn(lastRow(QStringLiteral("Server"))),
            QStringLiteral("*** You are marked as away (gone fishing)"));
        // The per-tab lines come after the current event.
        QCOMPARE(messages(QStringLiteral("#a")).count(QStringLiteral("is away (gone fishing)")), 0);
        QTRY_COMPARE_WITH_TIMEOUT(messages(QStringLiteral("#a")).count(QStringLiteral("is away (gone fishing)")), 1, 5000);
        QCOMPARE(messages(QStringLiteral("#b")).count(QStringLiteral("is away (gone fishing)")), 1);
        QCOMPARE(messages(QStringLiteral("carl")).count(QStringLiteral("is away (gone fishing)")), 1);
        QVERIFY(!messages(QStringLiteral("Server")).contains(QStringLiteral("is away (gone fishing)")));

        w->inputLine->setText(QStringLiteral("/back"));
        w->onSendInput();
        QVERIFY(!w->awayActive);
        QVERIFY(w->awayMessage.isEmpty());
        QCOMPARE(messageColumn(lastRow(QStringLiteral("Server"))), QStringLiteral("*** You are back"));
        QTRY_COMPARE_WITH_TIMEOUT(messages(QStringLiteral("carl")).count(QStringLiteral("is back")), 1, 5000);
        QCOMPARE(messages(QStringLiteral("#a")).count(QStringLiteral("is back")), 1);
        QCOMPARE(peer->linesStartingWith(QStringLiteral("AWAY")),
            (QStringList { QStringLiteral("AWAY :gone fishing"), QStringLiteral("AWAY") }));

        // Away and back within one event, and a tab closed before the lines
        // are written: each open tab gets the lines as they read when given.
        w->markAway(QStringLiteral("brb"));
        w->markBack(true);
        w->closeTab(indexOf(QStringLiteral("#b")));
        QTRY_COMPARE_WITH_TIMEOUT(messages(QStringLiteral("carl")).count(QStringLiteral("is back")), 2, 5000);
        QCOMPARE(messages(QStringLiteral("carl")).count(QStringLiteral("is away (brb)")), 1);
        QCOMPARE(messages(QStringLiteral("carl")).mid(messages(QStringLiteral("carl")).size() - 2),
            (QStringList { QStringLiteral("is away (brb)"), QStringLiteral("is back") }));
        QCOMPARE(indexOf(QStringLiteral("#b")), -1);
        QVERIFY(!w->tabs.contains(QStringLiteral("#b")));
    }

    void backWhileNotAwayStillSendsAway()
    {
        QVERIFY(connectWindow());
        QVERIFY(!w->awayActive);
        w->inputLine->setText(QStringLiteral("/back"));
        w->onSendInput();
        QCOMPARE(messageColumn(lastRow(QStringLiteral("Server"))), QStringLiteral("*** You are back"));
        QTRY_COMPARE_WITH_TIMEOUT(peer->linesStartingWith(QStringLiteral("AWAY")), QStringList { QStringLiteral("AWAY") }, 5000);
        QVERIFY(!w->awayActive);
    }

    void nickWhileAwayEndsAwayWithoutTabLines()
    {
        QVERIFY(connectWindow(QStringLiteral("me")));
        w->appendMessageToTab(QStringLiteral("#a"), QStringLiteral("x"), QStringLiteral("bob"), false);
        w->inputLine->setText(QStringLiteral("/away"));
        w->onSendInput();
        QTRY_COMPARE_WITH_TIMEOUT(messages(QStringLiteral("#a")).count(QStringLiteral("is away (Away)")), 1, 5000);
        QCOMPARE(messageColumn(lastRow(QStringLiteral("Server"))), QStringLiteral("*** You are marked as away (Away)"));

        w->inputLine->setText(QStringLiteral("/n newme"));
        w->onSendInput();
        QVERIFY(!w->awayActive);
        QCOMPARE(w->pendingNewNick, QStringLiteral("newme"));
        QCOMPARE(messageColumn(lastRow(QStringLiteral("Server"))), QStringLiteral("*** You are back"));
        QTRY_COMPARE_WITH_TIMEOUT(peer->lines().mid(peer->lines().size() - 2),
            (QStringList { QStringLiteral("AWAY"), QStringLiteral("NICK newme") }), 5000);
        QTest::qWait(100);
        QCOMPARE(messages(QStringLiteral("#a")).count(QStringLiteral("is back")), 0);
    }

    void listWaitsForRegistration()
    {
        QVERIFY(connectWindow());
        w->inputLine->setText(QStringLiteral("/l"));
        w->onSendInput();
        QCOMPARE(messageColumn(lastRow(QStringLiteral("Server"))),
            QStringLiteral("*** Please wait for registration to complete before using /list."));
    }

    void completionPrefersTheStoredOrder()
    {
        QVERIFY(connectWindow(QStringLiteral("me")));
        showMembers(QStringLiteral("#c"), { QStringLiteral("@alice"), QStringLiteral("alan") });
        w->inputLine->setText(QStringLiteral("hey al"));
        w->completeNick();
        QCOMPARE(w->inputLine->text(), QStringLiteral("hey alan"));
        // The stored symbol takes part: "@a" finds @alice.
        w->inputLine->setText(QStringLiteral("@a"));
        w->completeNick();
        QCOMPARE(w->inputLine->text(), QStringLiteral("@alice"));
        // The typed prefix keeps its case; no suffix is added.
        w->inputLine->setText(QStringLiteral("ALa"));
        w->completeNick();
        QCOMPARE(w->inputLine->text(), QStringLiteral("ALan"));
        // Commands and unknown prefixes stay as they are.
        w->inputLine->setText(QStringLiteral("/whois al"));
        w->completeNick();
        QCOMPARE(w->inputLine->text(), QStringLiteral("/whois al"));
        w->inputLine->setText(QStringLiteral("zz"));
        w->completeNick();
        QCOMPARE(w->inputLine->text(), QStringLiteral("zz"));
    }

    void tabKeyCompletesAndKeepsFocus()
    {
        QVERIFY(connectWindow(QStringLiteral("me")));
        showMembers(QStringLiteral("#c"), { QStringLiteral("@alice"), QStringLiteral("alan") });
        w->show();
        QVERIFY(QTest::qWaitForWindowExposed(w.get()));
        w->activateWindow();
        w->inputLine->setFocus();
        QTRY_VERIFY_WITH_TIMEOUT(w->inputLine->hasFocus(), 5000);
        w->inputLine->setText(QStringLiteral("al"));
        QTest::keyClick(w->inputLine, Qt::Key_Tab);
        QCOMPARE(w->inputLine->text(), QStringLiteral("alan"));
        QVERIFY(w->inputLine->hasFocus());

        // Typed at the start of the line, so the completer's popup opens (it
        // matches the whole line) and takes the keys first.
        w->inputLine->clear();
        QTest::keyClicks(w->inputLine, QStringLiteral("al"));
        QWidget* popup = w->nickCompleter->popup();
        QTRY_VERIFY_WITH_TIMEOUT(popup->isVisible(), 5000);
        QTest::keyClick(popup, Qt::Key_Tab);
        QCOMPARE(w->inputLine->text(), QStringLiteral("alan"));
        QVERIFY(!popup->isVisible());
        QVERIFY(w->inputLine->hasFocus());
    }

    void completionWordsFollowTheMembers()
    {
        QVERIFY(connectWindow(QStringLiteral("me")));
        showMembers(QStringLiteral("#c"), { QStringLiteral("@alice"), QStringLiteral("+bob"), QStringLiteral("me") });
        QCOMPARE(w->nickCompletionWords(),
            (QStringList { QStringLiteral("alice"), QStringLiteral("bob"), QStringLiteral("me") }));
        w->appendMessageToTab(QStringLiteral("carl"), QStringLiteral("x"), QStringLiteral("carl"), false);
        switchTo(QStringLiteral("carl"));
        QCOMPARE(w->nickCompletionWords(), (QStringList { QStringLiteral("carl"), QStringLiteral("me") }));
        switchTo(QStringLiteral("Server"));
        QCOMPARE(w->nickCompletionWords(), QStringList { QStringLiteral("me") });

        // Someone joins; then text is pasted without a key press. The popup
        // the paste opens already offers the newcomer.
        switchTo(QStringLiteral("#c"));
        QCOMPARE(w->nickCompletionWords().size(), 3);
        w->onJoin(QStringLiteral("dana"), QStringLiteral("#c"));
        QGuiApplication::clipboard()->setText(QStringLiteral("da"));
        w->inputLine->paste();
        const auto* model = qobject_cast<QStringListModel*>(w->nickCompleter->model());
        QVERIFY(model);
        QVERIFY(model->stringList().contains(QStringLiteral("dana")));
    }

    // --- The current server's record ---

    void autojoinBeforeAnyConnectionWritesNothing()
    {
        QSettings().clear();
        w->setChannelAutojoin(QStringLiteral("linux"), true);
        QCOMPARE(w->favoriteChannels, QStringList { QStringLiteral("#linux") });
        QCOMPARE(w->connection->serverConfig().autojoinChannels, QStringList { QStringLiteral("#linux") });
        QCOMPARE(messageColumn(lastRow(QStringLiteral("Server"))), QStringLiteral("*** Added #linux to autojoin list"));
        const int rows = view(QStringLiteral("Server"))->document()->blockCount();
        w->setChannelAutojoin(QStringLiteral("#linux"), true);
        QCOMPARE(w->favoriteChannels, QStringList { QStringLiteral("#linux") });
        QCOMPARE(view(QStringLiteral("Server"))->document()->blockCount(), rows + 1);
        w->setChannelAutojoin(QStringLiteral("#other"), false);
        QCOMPARE(messageColumn(lastRow(QStringLiteral("Server"))),
            QStringLiteral("*** Removed #other from autojoin list"));
        QVERIFY(QSettings().childGroups().isEmpty());
    }

    void recordIsSavedUnderTheCurrentServer_data()
    {
        QTest::addColumn<QString>("id");
        QTest::addColumn<QString>("address");
        QTest::newRow("host and port") << "irc.example.org_6697" << "irc.example.org:6697";
        QTest::newRow("host with underscore") << "my_host_6667" << QString();
    }

    void recordIsSavedUnderTheCurrentServer()
    {
        QFETCH(QString, id);
        QFETCH(QString, address);
        QSettings().clear();
        ServerConfig config;
        config.nickname = QStringLiteral("nick");
        config.realName = QStringLiteral("Real");
        config.useSsl = true;
        w->connection->setServerConfig(config);
        w->currentServerId = id;
        w->setChannelAutojoin(QStringLiteral("#a"), true);
        QSettings settings;
        settings.beginGroup(QStringLiteral("servers/") + id);
        QCOMPARE(settings.value(QStringLiteral("nickname")).toString(), QStringLiteral("nick"));
        QCOMPARE(settings.value(QStringLiteral("realname")).toString(), QStringLiteral("Real"));
        QCOMPARE(settings.value(QStringLiteral("autojoin")).toStringList(), QStringList { QStringLiteral("#a") });
        QCOMPARE(settings.value(QStringLiteral("ssl")).toBool(), true);
        QCOMPARE(settings.contains(QStringLiteral("address")), !address.isEmpty());
        QCOMPARE(settings.value(QStringLiteral("address")).toString(), address);
        settings.endGroup();

        // Reading back: stored keys win, missing ones keep the connection's.
        settings.setValue(QStringLiteral("servers/%1/nickname").arg(id), QStringLiteral("stored"));
        settings.remove(QStringLiteral("servers/%1/realname").arg(id));
        settings.sync();
        w->favoriteChannels.clear();
        w->loadCurrentServerConfig();
        QCOMPARE(w->connection->serverConfig().nickname, QStringLiteral("stored"));
        QCOMPARE(w->connection->serverConfig().realName, QStringLiteral("Real"));
        QCOMPARE(w->favoriteChannels, QStringList { QStringLiteral("#a") });
    }

    // --- Protocol events without a server ---

    void rawEcho_data()
    {
        QTest::addColumn<QString>("line");
        QTest::addColumn<bool>("echoed");
        QTest::newRow("ping") << "PING :x" << true;
        QTest::newRow("numeric") << ":srv 001 me :Welcome" << false;
        QTest::newRow("user traffic") << ":nick!u@h PRIVMSG #a :hi" << false;
        QTest::newRow("server notice") << ":srv NOTICE * :hello" << true;
        QTest::newRow("short") << ":s 1" << true;
        QTest::newRow("not three digits") << ":srv 01x me" << true;
        QTest::newRow("space after colon") << ": 001 me" << true;
    }

    void rawEcho()
    {
        QFETCH(QString, line);
        QFETCH(bool, echoed);
        const int before = view(QStringLiteral("Server"))->document()->blockCount();
        w->onRawMessage(line);
        QCOMPARE(view(QStringLiteral("Server"))->document()->blockCount(), before + (echoed ? 1 : 0));
        if (echoed)
            QCOMPARE(messageColumn(lastRow(QStringLiteral("Server"))), QStringLiteral("<< ") + line);
        // Nothing is echoed while the channel list is coming in.
        w->inList = true;
        w->onRawMessage(line);
        QCOMPARE(view(QStringLiteral("Server"))->document()->blockCount(), before + (echoed ? 1 : 0));
    }

    void whoisWithoutUserReplyStillPrints()
    {
        w->whoisTargetTab = QStringLiteral("Server");
        w->onWhoisServer(QStringLiteral("ghost"), QStringLiteral("irc.x"), QStringLiteral("Info"));
        w->onWhoisOperator(QStringLiteral("ghost"));
        w->onWhoisEnd(QStringLiteral("ignored"), QStringLiteral("ghost"));
        const QStringList rows = messages(QStringLiteral("Server"));
        QCOMPARE(rows.mid(rows.size() - 3),
            (QStringList { QStringLiteral("*** WHOIS ghost: @ ()"), QStringLiteral("*** ghost is an IRC operator"),
                QStringLiteral("*** ghost is using irc.x (Info)") }));
        QVERIFY(w->whoisCache.isEmpty());
        QVERIFY(!w->tabs.contains(QStringLiteral("ignored")));
    }

    void joinOrderMatchesAFullSort()
    {
        // Joins, parts and renames applied incrementally give the list a full
        // stable sort on every join would give.
        QVERIFY(connectWindow(QStringLiteral("me")));
        QStringList names;
        for (int i = 0; i < 60; ++i)
            names << QStringLiteral("%1N%2").arg(QString(QStringLiteral("~&@%+ ").at(i % 6)).trimmed()).arg(i * 37 % 101);
        showMembers(QStringLiteral("#j"), names);
        QStringList expected = w->channelUsers.value(QStringLiteral("#j"));
        const auto fullJoin = [&expected](const QString& nick) {
            bool present = false;
            for (const QString& name : std::as_const(expected))
                present = present || name.compare(nick, Qt::CaseInsensitive) == 0;
            if (!present)
                expected.append(nick);
            std::stable_sort(expected.begin(), expected.end(),
                [](const QString& a, const QString& b) { return a.compare(b, Qt::CaseInsensitive) < 0; });
        };
        QRandomGenerator random(7);
        for (int step = 0; step < 400; ++step) {
            const QString nick = QStringLiteral("n%1").arg(random.bounded(90));
            switch (random.bounded(4)) {
            case 0:
            case 1:
                w->onJoin(nick, QStringLiteral("#j"));
                fullJoin(nick);
                break;
            case 2:
                w->onPart(nick, QStringLiteral("#j"), QStringLiteral("r"));
                expected.removeIf([&nick](const QString& name) {
                    return MemberList::stripModePrefix(name).compare(nick, Qt::CaseInsensitive) == 0;
                });
                break;
            default: {
                const QString renamed = QStringLiteral("N%1").arg(random.bounded(200));
                bool taken = false;
                for (const QString& name : std::as_const(expected))
                    taken = taken || MemberList::stripModePrefix(name).compare(renamed, Qt::CaseInsensitive) == 0;
                if (taken)
                    break;
                w->onNick(nick, renamed);
                MemberList::renameMember(expected, nick, renamed);
                break;
            }
            }
            QCOMPARE(w->channelUsers.value(QStringLiteral("#j")), expected);
        }
        QStringList visible;
        for (int i = 0; i < w->userList->count(); ++i)
            visible << w->userList->item(i)->text();
        visible.sort(Qt::CaseInsensitive);
        QStringList stored = expected;
        stored.sort(Qt::CaseInsensitive);
        QCOMPARE(visible, stored);
    }
};

QUENVAR_TEST_MAIN(TestChat)
#include "tst_chat.moc"
