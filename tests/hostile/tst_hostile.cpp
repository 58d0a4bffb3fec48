// A hostile server against a real window: the in-process peer sends what no
// well-behaved server would. After each attack the window must still respond,
// show the text as plain text (never markup, no link but http, https and
// mailto), keep its memory bounded, and render a later ordinary line.

#include "ChannelListModel.h"
#include "ChatRows.h"
#include "MemberListView.h"
#include "MyTabWidget.h"
#include "TestMain.h"
#include "WindowHarness.h"

#include <QFile>
#include <QLabel>
#include <QLineEdit>
#include <QRegularExpression>
#include <QSettings>

namespace {

// Resident memory of this process in KiB (0 where /proc is missing).
long rssKb()
{
    QFile file(QStringLiteral("/proc/self/status"));
    return file.open(QIODevice::ReadOnly)
        ? QRegularExpression("VmRSS:\\s*(\\d+)").match(QString::fromLatin1(file.readAll())).captured(1).toLong()
        : 0;
}

// Whether memory grew by less than kb since `before`. AddressSanitizer's
// shadow memory and quarantine make every allocation cost several times as
// much, so it gets more room.
bool grewLessThan(long before, long kb)
{
#if defined(__SANITIZE_ADDRESS__)
    kb *= 4;
#endif
    const long growth = rssKb() - before;
    if (growth >= kb)
        qWarning("resident memory grew by %ld KiB", growth);
    return growth < kb;
}

bool isSafeLink(const QString& target)
{
    return target.startsWith("http://") || target.startsWith("https://") || target.startsWith("mailto:");
}

} // namespace

class TestHostile : public QObject
{
    Q_OBJECT

private:
    std::unique_ptr<WindowHarness> h;
    MainWindow* w = nullptr;

    QString shown(const QString& tab) const
    {
        return chatRows(w->network()->tabs.value(tab).chatView).join('\n');
    }

    // After an attack: the window answers an ordinary line at once, and no
    // view holds a link but http, https and mailto.
    void stillWorks()
    {
        QVERIFY(w->session()->connection()->isConnected());
        h->serverSays(":friend!f@h PRIVMSG #calm :an ordinary line");
        ChatView* view = w->network()->tabs.value("#calm").chatView;
        QTRY_VERIFY_WITH_TIMEOUT(!view->inBatch(), 5000);
        QVERIFY(lastChatRow(view).endsWith(" an ordinary line"));
        for (const NetworkView::TabInfo& tab : std::as_const(w->network()->tabs)) {
            if (!tab.chatView)
                continue;
            for (int row = 0; row < tab.chatView->rowCount(); ++row) {
                for (const IrcText::LinkSegment& link : tab.chatView->row(row).links)
                    QVERIFY2(isSafeLink(link.href), qPrintable(link.href));
            }
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
        h->peer->send(QByteArray(1024 * 1024, 'A'));
        // Ended at last: the rest of the monster goes, the next line counts.
        h->peer->send("AAAA\r\n");
        stillWorks();
        QCOMPARE(shown("Server").count("longer than 64 KiB"), 1);
        QVERIFY(grewLessThan(before, 32 * 1024));
    }

    void controlCharactersAndBrokenUtf8()
    {
        QByteArray text = "start";
        for (char c = 1; c < 32; ++c) {
            if (c != '\n' && c != '\r')
                text += c;
        }
        text += QByteArray("mid\0dle", 7) + "\x7f end";
        h->serverSays(":bob!b@h PRIVMSG #calm :" + text);
        // One row, the text kept around the controls.
        const QString row = lastChatRow(w->network()->tabs.value("#calm").chatView);
        QVERIFY(row.contains("start") && row.contains(" end"));
        h->serverSays(":bob!b@h TOPIC #calm :x\n:irc.test 332 me #calm :" + text);
        QVERIFY(w->network()->tabs.value("#calm").topicLabel->text().contains("start"));

        h->serverSays(":bob!b@h PRIVMSG #calm :bad \xff\xfe bytes\n"
                      ":bob!b@h PRIVMSG #calm :overlong \xc0\xaf slash\n"
                      ":bob!b@h PRIVMSG #calm :cut \xe2\x82");
        // Read as Latin-1 when not UTF-8: nothing dropped, nothing replaced.
        QVERIFY(shown("#calm").contains(QStringLiteral("bad \u00ff\u00fe bytes")));
        QVERIFY(shown("#calm").contains(QStringLiteral("overlong \u00c0\u00af slash")));
        QVERIFY(!shown("#calm").contains(QChar(QChar::ReplacementCharacter)));
        stillWorks();
    }

    void fiftyThousandJoins()
    {
        w->tabWidget->setCurrentWidget(w->network()->tabs.value("#calm").widget);
        h->serverSays(":irc.test 353 me = #calm :@me\n:irc.test 366 me #calm :End");
        const long before = rssKb();
        QByteArray joins;
        for (int i = 0; i < 50000; ++i)
            joins += ":guest" + QByteArray::number(i) + "!g@h JOIN :#calm\n";
        h->serverSays(joins);
        QCOMPARE(w->session()->members("#calm").size(), 50001);
        QCOMPARE(w->userList->count(), 50001);
        stillWorks();
        QVERIFY(grewLessThan(before, 400 * 1024));
    }

    void markupStaysText()
    {
        const QByteArray hostile
            = "<b>bold</b> <script>alert(1)</script> <a href=\"javascript:alert(2)\">x</a> "
              "javascript:alert(3) %1 %2 &amp; <img src=x onerror=alert(4)> "
              "https://ok.example/p?q=<b>";
        h->serverSays(":bob!b@h PRIVMSG #calm :" + hostile + "\n:irc.test 332 me #calm :" + hostile
            + "\n:<i>evil</i>!b@h PRIVMSG #calm :from a nick with markup %1");
        QVERIFY(shown("#calm").contains(QString::fromUtf8(hostile)));
        QVERIFY(shown("#calm").contains("<i>evil</i>"));
        QVERIFY(shown("#calm").contains("from a nick with markup %1"));

        // The topic strip is rich text: the markup arrives escaped.
        const QString topic = w->network()->tabs.value("#calm").topicLabel->text();
        QVERIFY(!topic.contains("<script", Qt::CaseInsensitive));
        QVERIFY(!topic.contains("<img", Qt::CaseInsensitive));
        QVERIFY(!topic.contains("<b>bold"));
        QVERIFY(topic.contains("&lt;script&gt;"));
        const QRegularExpression href(QStringLiteral("href=\"([^\"]*)\""));
        for (auto it = href.globalMatch(topic); it.hasNext();) {
            const QString target = it.next().captured(1);
            QVERIFY2(target.startsWith("http://") || target.startsWith("https://"), qPrintable(target));
        }
        stillWorks();
    }

    void hundredThousandCharacterNick()
    {
        // Longer than any line may be: dropped whole, reported once.
        h->peer->send(":" + QByteArray(100000, 'n') + "!u@h PRIVMSG #calm :too long\r\n");
        stillWorks();
        QCOMPARE(shown("Server").count("longer than 64 KiB"), 1);
        QVERIFY(!shown("#calm").contains("too long"));

        // As long as a line can be: shown cut, in a private tab of its own.
        const QByteArray nick(60000, 'n');
        h->serverSays(
            ":" + nick + "!u@h PRIVMSG #calm :long nick here\n:" + nick + "!u@h PRIVMSG me :and privately");
        const QString row = lastChatRow(w->network()->tabs.value("#calm").chatView);
        // (At most 15 characters, fewer when they are wider than the column.)
        QVERIFY(row.contains(QString(8, QLatin1Char('n')) + QChar(0x2026)));
        QVERIFY(!row.contains(QString(16, QLatin1Char('n'))));
        QVERIFY(w->network()->tabs.contains(QString::fromLatin1(nick)));
        stillWorks();
    }

    void tenThousandUnknownNumerics()
    {
        const long before = rssKb();
        QByteArray lines;
        for (int i = 0; i < 10000; ++i)
            lines += ":irc.test " + QByteArray::number(700 + i % 200) + " me :numeric number "
                + QByteArray::number(i) + "\n";
        h->serverSays(lines);
        QVERIFY(shown("Server").contains("numeric number 9999"));
        stillWorks();
        QVERIFY(grewLessThan(before, 100 * 1024));
    }

    void repliesOutOfContext()
    {
        const int tabsBefore = w->tabWidget->count();
        const int members = w->userList->count();
        h->serverSays(":irc.test 353 me = #never :@a +b c\n:irc.test 366 me #never :End\n"
                      ":ghost!g@h PART #unknown :bye\n"
                      ":ghost!g@h KICK #unknown nobody :out\n"
                      ":ghost!g@h QUIT :gone\n"
                      ":ghost!g@h NICK :spectre\n"
                      ":irc.test 366 me #calm :End");
        // A member list for a channel never joined is kept, but no tab or
        // member row appears for it.
        QVERIFY(!w->network()->tabs.contains("#never"));
        QVERIFY(w->tabWidget->count() <= tabsBefore + 2);
        QCOMPARE(w->userList->count(), members);

        // LIST replies out of order: end before start, rows without a start, start without an end.
        h->serverSays(":irc.test 323 me :End of channel list.\n"
                      ":irc.test 322 me #a 5 :before any start\n"
                      ":irc.test 366 me #calm :End\n:irc.test 353 me = #calm :@me late\n");
        QVERIFY(!w->session()->isReceivingList());
        w->network()->requestChannelList();
        h->serverSays(":irc.test 322 me #b 7 :no start\n:irc.test 321 me Channel :Users Name\n"
                      ":irc.test 322 me #c 9 :after start");
        QVERIFY(w->session()->isReceivingList());
        QCOMPARE(w->network()->channelListModel->rowCount(), 2);
        h->serverSays(":irc.test 323 me :End of channel list.\n:irc.test 323 me :and again");
        QVERIFY(!w->session()->isReceivingList());
        stillWorks();
    }

    void disconnectMidLineThenReconnect()
    {
        // What the user is typing survives the drop and the reconnect, in the
        // current tab and as the draft of another.
        w->tabWidget->setCurrentWidget(w->network()->tabs.value("Server").widget);
        w->inputLine->setText("/join #draft-of-server");
        w->tabWidget->setCurrentWidget(w->network()->tabs.value("#calm").widget);
        w->inputLine->setText("half-typed reply");
        h->peer->send(":bob!b@h PRIVMSG #calm :half a li");
        QTest::qWait(50);
        h->peer->close();
        QTRY_VERIFY_WITH_TIMEOUT(!w->session()->connection()->isConnected(), 5000);
        QVERIFY(!shown("#calm").contains("half a li"));
        // A new connection does not inherit the fragment.
        QVERIFY(h->connectAndRegister("me"));
        h->serverSays("ne\r\n:bob!b@h PRIVMSG #calm :fresh");
        QVERIFY(!shown("#calm").contains("half a line"));
        QVERIFY(shown("#calm").contains("fresh"));
        QCOMPARE(w->inputLine->text(), QStringLiteral("half-typed reply"));
        w->tabWidget->setCurrentWidget(w->network()->tabs.value("Server").widget);
        QCOMPARE(w->inputLine->text(), QStringLiteral("/join #draft-of-server"));
        stillWorks();
    }

    void serverThatNeverRegisters()
    {
        h = std::make_unique<WindowHarness>();
        w = h->window.get();
        QVERIFY(h->connect("me"));
        QTest::qWait(200);
        QVERIFY(!w->session()->connection()->isRegistered());
        // Commands that need registration say so; the window stays usable.
        w->inputLine->setText("/list");
        w->onSendInput();
        QVERIFY(shown("Server").contains("*** Please wait for registration to complete before using /list."));
        QVERIFY(w->session()->connection()->isConnected());
    }
};

QUENVAR_TEST_MAIN(TestHostile)
#include "tst_hostile.moc"
