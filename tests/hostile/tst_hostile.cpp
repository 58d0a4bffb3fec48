// A hostile server against a real window: the in-process peer sends what no
// well-behaved server would. After each attack the window must still respond,
// show the text as plain text (never markup, no link but http, https and
// mailto), keep its memory bounded, and render a later ordinary line.

#include "ChatView.h"
#include "ChannelListModel.h"
#include "IRCConnection.h"
#include "MainWindow.h"
#include "MyTabWidget.h"
#include "TestMain.h"
#include "WindowHarness.h"

#include <QFile>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QRegularExpression>
#include <QSettings>
#include <QSignalSpy>
#include <QTextBlock>
#include <QTextDocument>

namespace {

// Resident memory of this process in KiB (-1 where /proc is missing).
long rssKb()
{
    QFile file(QStringLiteral("/proc/self/status"));
    if (!file.open(QIODevice::ReadOnly))
        return -1;
    for (const QByteArray& line : file.readAll().split('\n')) {
        if (line.startsWith("VmRSS:"))
            return line.mid(6).trimmed().split(' ').value(0).toLong();
    }
    return -1;
}

// Every link target in a tab's rows.
// A bound on memory growth in KiB; AddressSanitizer's shadow memory and
// quarantine make every allocation cost several times as much.
long allowanceKb(long kb)
{
#if defined(__SANITIZE_ADDRESS__)
    return kb * 4;
#else
    return kb;
#endif
}

QStringList linkTargets(const ChatView* view)
{
    QStringList targets;
    for (QTextBlock block = view->document()->begin(); block.isValid(); block = block.next()) {
        for (auto it = block.begin(); !it.atEnd(); ++it) {
            const QTextCharFormat format = it.fragment().charFormat();
            if (format.isAnchor())
                targets << format.anchorHref();
        }
    }
    return targets;
}

QString plainText(const ChatView* view)
{
    return view->document()->toPlainText();
}

} // namespace

class TestHostile : public QObject
{
    Q_OBJECT

private:
    std::unique_ptr<WindowHarness> h;
    MainWindow* w = nullptr;

    // After an attack: the window answers an ordinary line at once.
    void stillWorks(const QString& channel = QStringLiteral("#calm"))
    {
        QVERIFY(w->connection->isConnected());
        h->serverSays(":friend!f@h PRIVMSG " + channel.toUtf8() + " :an ordinary line");
        QVERIFY(w->tabs.contains(channel));
        ChatView* view = w->tabs.value(channel).chatView;
        QTRY_VERIFY_WITH_TIMEOUT(!view->inBatch(), 5000);
        QVERIFY(view->document()->lastBlock().text().endsWith(QStringLiteral(" an ordinary line")));
        for (const QString& target : linkTargets(view))
            QVERIFY2(target.startsWith("http://") || target.startsWith("https://") || target.startsWith("mailto:"),
                qPrintable(target));
    }

    // Every chat view's links are http, https or mailto.
    void onlySafeLinksAnywhere()
    {
        for (const MainWindow::TabInfo& tab : std::as_const(w->tabs)) {
            if (!tab.chatView)
                continue;
            for (const QString& target : linkTargets(tab.chatView))
                QVERIFY2(target.startsWith("http://") || target.startsWith("https://") || target.startsWith("mailto:"),
                    qPrintable(target));
        }
    }

private slots:
    void init()
    {
        QSettings().clear();
        h = std::make_unique<WindowHarness>();
        w = h->window.get();
        w->show();
        QVERIFY(QTest::qWaitForWindowExposed(w));
        QVERIFY(h->connectAndRegister("me"));
        h->serverSays(":me!m@h JOIN :#calm");
    }
    void cleanup() { h.reset(); }

    void megabyteLineWithoutAnEnd()
    {
        const long before = rssKb();
        QSignalSpy errors(w->connection, &IRCConnection::errorOccurred);
        h->peer->send(QByteArray(1024 * 1024, 'A'));
        QTRY_COMPARE_WITH_TIMEOUT(errors.size(), 1, 10000);
        // Ended at last: the rest of the monster goes, the next line counts.
        h->peer->send("AAAA\r\n");
        stillWorks();
        QCOMPARE(errors.size(), 1);
        QVERIFY(plainText(w->tabs.value("Server").chatView).contains("longer than 64 KiB"));
        QVERIFY2(rssKb() - before < allowanceKb(32 * 1024), qPrintable(QString::number(rssKb() - before)));
    }

    void nulAndControlCharacters()
    {
        QByteArray text = "start";
        for (char c = 1; c < 32; ++c) {
            if (c != '\n' && c != '\r')
                text += c;
        }
        text += QByteArray("mid\0dle", 7) + "\x7f end";
        h->serverSays(":bob!b@h PRIVMSG #calm :" + text);
        const QTextBlock row = w->tabs.value("#calm").chatView->document()->lastBlock();
        // One row, the text kept around the controls.
        QVERIFY(row.text().contains("start"));
        QVERIFY(row.text().contains(" end"));
        h->serverSays(":bob!b@h TOPIC #calm :x\n:irc.test 332 me #calm :" + text);
        QVERIFY(w->tabs.value("#calm").topicLabel->text().contains("start"));
        stillWorks();
    }

    void invalidAndOverlongUtf8()
    {
        h->serverSays(":bob!b@h PRIVMSG #calm :bad \xff\xfe bytes\n"
                      ":bob!b@h PRIVMSG #calm :overlong \xc0\xaf slash\n"
                      ":bob!b@h PRIVMSG #calm :cut \xe2\x82");
        const QString shown = plainText(w->tabs.value("#calm").chatView);
        // Read as Latin-1 when not UTF-8: nothing dropped, nothing replaced.
        QVERIFY(shown.contains(QStringLiteral("bad \u00ff\u00fe bytes")));
        QVERIFY(shown.contains(QStringLiteral("overlong \u00c0\u00af slash")));
        QVERIFY(!shown.contains(QChar(QChar::ReplacementCharacter)));
        stillWorks();
    }

    void fiftyThousandJoins()
    {
        w->tabWidget->setCurrentWidget(w->tabs.value("#calm").widget);
        h->serverSays(":irc.test 353 me = #calm :@me\n:irc.test 366 me #calm :End");
        const long before = rssKb();
        QByteArray joins;
        for (int i = 0; i < 50000; ++i)
            joins += ":guest" + QByteArray::number(i) + "!g@h JOIN :#calm\n";
        h->serverSays(joins);
        QCOMPARE(w->channelUsers.value("#calm").size(), 50001);
        QCOMPARE(w->userList->count(), 50001);
        stillWorks();
        QVERIFY2(rssKb() - before < allowanceKb(400 * 1024), qPrintable(QString::number(rssKb() - before)));
    }

    void markupStaysText()
    {
        const QByteArray hostile = "<b>bold</b> <script>alert(1)</script> <a href=\"javascript:alert(2)\">x</a> "
                                   "javascript:alert(3) %1 %2 &amp; <img src=x onerror=alert(4)> "
                                   "https://ok.example/p?q=<b>";
        h->serverSays(":bob!b@h PRIVMSG #calm :" + hostile + "\n"
                      ":irc.test 332 me #calm :" + hostile + "\n"
                      ":<i>evil</i>!b@h PRIVMSG #calm :from a nick with markup %1");
        const ChatView* view = w->tabs.value("#calm").chatView;
        const QString shown = plainText(view);
        QVERIFY(shown.contains(QString::fromUtf8(hostile)));
        QVERIFY(shown.contains("<i>evil</i>"));
        QVERIFY(shown.contains("from a nick with markup %1"));
        onlySafeLinksAnywhere();

        const QString topic = w->tabs.value("#calm").topicLabel->text();
        QVERIFY(!topic.contains("<script", Qt::CaseInsensitive));
        QVERIFY(!topic.contains("<img", Qt::CaseInsensitive));
        QVERIFY(!topic.contains("<b>bold"));
        QVERIFY(topic.contains("&lt;script&gt;"));
        const QRegularExpression href(QStringLiteral("href=\"([^\"]*)\""));
        for (auto it = href.globalMatch(topic); it.hasNext();) {
            const QString target = it.next().captured(1);
            QVERIFY2(target.startsWith("http://") || target.startsWith("https://"), qPrintable(target));
        }
        // The status bar notifications and tab labels take text as it is too.
        stillWorks();
    }

    void hundredThousandCharacterNick()
    {
        // Longer than any line may be: dropped whole, reported once.
        QSignalSpy errors(w->connection, &IRCConnection::errorOccurred);
        h->peer->send(":" + QByteArray(100000, 'n') + "!u@h PRIVMSG #calm :too long\r\n");
        QTRY_COMPARE_WITH_TIMEOUT(errors.size(), 1, 10000);
        stillWorks();
        QVERIFY(!plainText(w->tabs.value("#calm").chatView).contains("too long"));

        // As long as a line can be: shown cut, in a private tab of its own.
        const QByteArray nick(60000, 'n');
        h->serverSays(":" + nick + "!u@h PRIVMSG #calm :long nick here\n:" + nick + "!u@h PRIVMSG me :and privately");
        const QTextBlock row = w->tabs.value("#calm").chatView->document()->lastBlock();
        QVERIFY(row.text().contains(QString(15, QLatin1Char('n')) + QChar(0x2026)));
        QVERIFY(!row.text().contains(QString(16, QLatin1Char('n'))));
        QVERIFY(w->tabs.contains(QString::fromLatin1(nick)));
        stillWorks();
    }

    void tenThousandUnknownNumerics()
    {
        const long before = rssKb();
        QByteArray lines;
        for (int i = 0; i < 10000; ++i)
            lines += ":irc.test " + QByteArray::number(700 + i % 200) + " me :numeric number " + QByteArray::number(i) + "\n";
        h->serverSays(lines);
        QVERIFY(plainText(w->tabs.value("Server").chatView).contains("numeric number 9999"));
        stillWorks();
        QVERIFY2(rssKb() - before < allowanceKb(100 * 1024), qPrintable(QString::number(rssKb() - before)));
    }

    void repliesAboutStrangers()
    {
        const int tabsBefore = w->tabWidget->count();
        h->serverSays(":irc.test 353 me = #never :@a +b c\n:irc.test 366 me #never :End\n"
                      ":ghost!g@h PART #unknown :bye\n"
                      ":ghost!g@h KICK #unknown nobody :out\n"
                      ":ghost!g@h QUIT :gone\n"
                      ":ghost!g@h NICK :spectre\n"
                      ":irc.test 366 me #calm :End");
        // A member list for a channel never joined is kept, but no tab or
        // member row appears for it.
        QVERIFY(!w->tabs.contains("#never"));
        QVERIFY(w->tabWidget->count() <= tabsBefore + 2);
        stillWorks();
    }

    void listRepliesOutOfOrder()
    {
        // End before start, rows without a start, start without an end.
        h->serverSays(":irc.test 323 me :End of channel list.\n"
                      ":irc.test 322 me #a 5 :before any start\n"
                      ":irc.test 366 me #calm :End\n:irc.test 353 me = #calm :@me late\n");
        QVERIFY(!w->inList);
        w->requestChannelList();
        h->serverSays(":irc.test 322 me #b 7 :no start\n:irc.test 321 me Channel :Users Name\n"
                      ":irc.test 322 me #c 9 :after start");
        QVERIFY(w->inList);
        QCOMPARE(w->channelListModel->rowCount(), 2);
        h->serverSays(":irc.test 323 me :End of channel list.\n:irc.test 323 me :and again");
        QVERIFY(!w->inList);
        stillWorks();
    }

    void disconnectMidLineThenReconnect()
    {
        // What the user is typing survives the drop and the reconnect, in the
        // current tab and as the draft of another.
        w->tabWidget->setCurrentWidget(w->tabs.value("Server").widget);
        w->inputLine->setText("/join #draft-of-server");
        w->tabWidget->setCurrentWidget(w->tabs.value("#calm").widget);
        w->inputLine->setText("half-typed reply");
        h->peer->send(":bob!b@h PRIVMSG #calm :half a li");
        QTest::qWait(50);
        h->peer->close();
        QTRY_VERIFY_WITH_TIMEOUT(!w->connection->isConnected(), 5000);
        QVERIFY(!plainText(w->tabs.value("#calm").chatView).contains("half a li"));
        // A new connection does not inherit the fragment.
        QVERIFY(h->connectAndRegister("me"));
        h->serverSays("ne\r\n:bob!b@h PRIVMSG #calm :fresh");
        QVERIFY(!plainText(w->tabs.value("#calm").chatView).contains("half a line"));
        QVERIFY(plainText(w->tabs.value("#calm").chatView).contains("fresh"));
        QCOMPARE(w->inputLine->text(), QStringLiteral("half-typed reply"));
        w->tabWidget->setCurrentWidget(w->tabs.value("Server").widget);
        QCOMPARE(w->inputLine->text(), QStringLiteral("/join #draft-of-server"));
        stillWorks();
    }

    void serverThatNeverRegisters()
    {
        h = std::make_unique<WindowHarness>();
        w = h->window.get();
        QVERIFY(h->connect("me"));
        QTest::qWait(200);
        QVERIFY(!w->connection->isRegistered());
        // Commands that need registration say so; the window stays usable.
        w->inputLine->setText("/list");
        w->onSendInput();
        QVERIFY(plainText(w->tabs.value("Server").chatView)
                    .contains("*** Please wait for registration to complete before using /list."));
        w->inputLine->setText("hello");
        w->onSendInput();
        QVERIFY(plainText(w->tabs.value("Server").chatView).contains("Cannot send messages to Server tab."));
        QVERIFY(w->connection->isConnected());
    }
};

QUENVAR_TEST_MAIN(TestHostile)
#include "tst_hostile.moc"
