// The chat view on its own, shown: what each row shows and how it reads as
// text, emoji, right-to-left text, columns, selection, links, scrolling and
// trimming.

#include "ChatView.h"
#include "Session.h"
#include "TestMain.h"

#include <QClipboard>
#include <QDateTime>
#include <QDesktopServices>
#include <QScrollBar>
#include <QTest>

#include <memory>

namespace {

// Receives the links the view opens instead of a browser.
class LinkCatcher : public QObject
{
    Q_OBJECT

public:
    QStringList opened;

public slots:
    void open(const QUrl& url) { opened << url.toString(); }
};

} // namespace

class TestChatView : public QObject
{
    Q_OBJECT

private:
    std::unique_ptr<ChatView> view;

    void add(const QString& sender, const QString& text, int flags = 0, const QString& stamp = "[t]")
    {
        view->appendLine(stamp, BufferLine { 0, sender, text, quint8(flags) });
        view->flushBatch();
    }
    void append(int rows, const QString& text = QStringLiteral("message %1"))
    {
        for (int i = 0; i < rows; ++i)
            view->appendLine("[12:00:00]", BufferLine { 0, "alice", text.arg(view->rowCount()) });
        view->flushBatch();
    }
    // The top of the first message row while the rows fit the view, and the
    // left edge of the message column.
    int firstRowY() const { return ChatView::Margin + QFontMetrics(view->font()).lineSpacing(); }
    int messageX() const
    {
        return ChatView::Margin + view->timestampColumnWidth() + ChatView::NickColumnWidth + ChatView::ColumnPadding;
    }

private slots:
    void init()
    {
        view = std::make_unique<ChatView>();
        view->resize(600, 300);
        view->show();
        QVERIFY(QTest::qWaitForWindowExposed(view.get()));
    }

    void cleanup() { view.reset(); }

    // What a row lays out, how it reads as plain text and its links.
    void rows()
    {
        struct Case
        {
            bool nickColumn;
            QString sender, text;
            int flags;
            QString laidOut, plain;
            QStringList links = {};
        };
        const Case cases[] {
            { true, "alice", "hi there", 0, "[t]\talice  \t hi there", "[t] <alice> hi there" },
            { false, "", "*** Connected", 0, "[t]\t*** Connected", "[t] *** Connected" },
            { true, "me", "[Away: x] hi", BufferLine::Own | BufferLine::OwnAway, "[t]\tme  \t[Away: x] hi", "[t] <me> [Away: x] hi" },
            { true, "bob", "a\nb\tc\u2029d", 0, "[t]\tbob  \t a b c d", "[t] <bob> a b c d" },
            { true, "bob", "http://a\uFDD0b\nc\uFFFC" + QString(QChar(0xD800)) + " x@y.zz", 0, "[t]\tbob  \t http://a b c ? x@y.zz",
                "[t] <bob> http://a b c ? x@y.zz", { "http://a", "mailto:x@y.zz" } }, // one row, whatever breaks it holds
            { true, "bob", "\x03" "04red\x03 and \x02" "bold\x0f.", 0, "[t]\tbob  \t red and bold.", "[t] <bob> red and bold." },
            { true, "bob", "see \x1fhttps://a.org/x\x1f ok", 0, "[t]\tbob  \t see https://a.org/x ok",
                "[t] <bob> see https://a.org/x ok", { "https://a.org/x" } },
            { true, "alice", "waves", BufferLine::Action, "[t]\t*  \t alice waves", "[t] * alice waves" },
            { false, "alice", "waves", BufferLine::Action, "[t]\t* alice waves", "[t] * alice waves" },
            { true, "", "-bob- hi", BufferLine::Notice, "[t]\t  \t -bob- hi", "[t] -bob- hi" },
            { true, QString("mal") + QChar(0) + "lory", "a\x01" "b\x7f", 0, "[t]\tmal\u2400lory  \t a\u2401b\u2421",
                "[t] <mal\u2400lory> a\u2401b\u2421" },
            { true, "\u202e" "evil", "x\u202ey", 0, "[t]\t\u202e" "evil  \t x\u202ey", "[t] <\u202e" "evil> x\u202ey" },
        };
        for (const Case& c : cases) {
            view->clearMessages();
            view->setNickColumnVisible(c.nickColumn);
            add(c.sender, c.text, c.flags);
            QCOMPARE(view->rowCount(), 1);
            QCOMPARE(view->rowText(0), c.laidOut);
            QCOMPARE(view->rowPlainText(0), c.plain);
            QStringList hrefs;
            for (const IrcText::LinkSegment& link : view->row(0).links)
                hrefs << link.href;
            QCOMPARE(hrefs, c.links);
        }
    }

    // Emoji are drawn at the chosen size in the colour font, with what joins
    // or modifies them; other symbols stay text.
    void emoji()
    {
        const QList<std::pair<QString, QString>> cases { { "hi \U0001F600!", "\U0001F600" },
            { "\U0001F44D\U0001F3FD ok", "\U0001F44D\U0001F3FD" },
            { "\U0001F468\u200D\U0001F469\u200D\U0001F467", "\U0001F468\u200D\U0001F469\u200D\U0001F467" },
            { "\u2764\uFE0F love", "\u2764\uFE0F" }, { "1\uFE0F\u20E3 \U0001F1EB\U0001F1F7", "1\uFE0F\u20E3\U0001F1EB\U0001F1F7" },
            { "a \u2B50", "\u2B50" }, { "\u2713 \u2190 (c) #1", "" } };
        view->setEmojiSize(31);
        for (const auto& [text, sized] : cases) {
            view->clearMessages();
            add("bob", text);
            const QString laidOut = view->rowText(0);
            QString found;
            for (int i = int(laidOut.lastIndexOf('\t')) + 2; i < laidOut.size(); ++i) {
                const QTextCharFormat format = view->formatAt(0, i);
                if (format.intProperty(QTextFormat::FontPixelSize) == 31) {
                    QVERIFY(format.fontFamilies().toStringList().contains("Noto Color Emoji"));
                    found += laidOut.at(i);
                }
            }
            QCOMPARE(found, sized);
        }
    }

    // Right-to-left text and direction overrides stay in their column: the
    // timestamp at the left edge, the nick left of the rule, the message
    // right of it, and a message's last letters ("abc") in the order they
    // read unless the message itself overrides the direction.
    void bidi()
    {
        const QList<std::tuple<QString, QString, bool>> cases { { "bob", "abc", false },
            { "\u202e" "evil", "abc", false }, { "a\u2069\u202e" "b", "abc", false },
            { "\u05d0\u05d1\u05d2", "\u05d3\u05d4 abc", false }, { "bob", "\u202e" "abc", true } };
        for (const auto& [sender, text, reversed] : cases) {
            view->clearMessages();
            add(sender, text, 0, "[12:00:00]");
            const QString shown = view->rowText(0);
            const int messageStart = int(shown.lastIndexOf(QLatin1Char('\t'))) + 1;
            QCOMPARE(view->characterX(0, 0), qreal(ChatView::Margin));
            for (int i = int(shown.indexOf(QLatin1Char('\t'))) + 1; i < messageStart - 3; ++i) {
                const qreal x = view->characterX(0, i);
                QVERIFY2(x >= ChatView::Margin + view->timestampColumnWidth() && x <= view->ruleX(), qPrintable(sender));
            }
            for (int i = messageStart; i < shown.size(); ++i)
                QVERIFY2(view->characterX(0, i) >= messageX() - 1, qPrintable(sender));
            // (The edge of "a" lies where its run meets the one before: "b" and "c" tell the order.)
            const int b = int(shown.size()) - 2;
            QCOMPARE(view->characterX(0, b) > view->characterX(0, b + 1), reversed);
        }
    }

    // The timestamp column fits every timestamp format; a nick too wide for
    // its column is cut: no column runs into the next.
    void columns()
    {
        for (const char* format : { "[HH:mm:ss]", "[hh:mm:ss AP]", "[HH:mm]", "hh:mm" }) {
            for (const QString sender : { "al", "WWWWWWWWWWWWWWW" }) {
                view->clearMessages();
                view->setTimestampFormat(format);
                for (const QTime time : { QTime(10, 58, 58), QTime(22, 8, 0) })
                    add(sender, "hi", 0, QDateTime(QDate(2024, 12, 28), time).toString(format));
                for (int row = 0; row < view->rowCount(); ++row) {
                    const QString shown = view->rowText(row);
                    const int nickStart = int(shown.indexOf(QLatin1Char('\t'))) + 1;
                    const int nickEnd = int(shown.indexOf(QStringLiteral("  \t")));
                    const qreal stampsEnd = ChatView::Margin + view->timestampColumnWidth();
                    QVERIFY2(view->characterX(row, nickStart - 1) < stampsEnd - ChatView::ColumnPadding, format);
                    QVERIFY2(view->characterX(row, nickStart) >= stampsEnd, format);
                    QVERIFY2(view->characterX(row, nickEnd) <= view->ruleX() - ChatView::ColumnPadding, format);
                    QVERIFY2(view->characterX(row, nickEnd + 3) >= view->ruleX(), format);
                }
                QCOMPARE(view->rowText(0).contains(sender), sender.size() < 5);
            }
        }
    }

    // A double click takes a word, a drag whole rows, Select All every row;
    // Ctrl+C copies.
    void selectionAndCopy()
    {
        add("alice", "hello world");
        add("", "*** note", 0, "[u]");
        QVERIFY(!view->hasSelection());
        const int y = firstRowY() + 3;
        const int lineSpacing = QFontMetrics(view->font()).lineSpacing();
        QTest::mouseDClick(view->viewport(), Qt::LeftButton, {},
            QPoint(messageX() + QFontMetrics(view->font()).horizontalAdvance(" hello wor"), y));
        QCOMPARE(view->selectedText(), QStringLiteral("world"));
        QTest::mousePress(view->viewport(), Qt::LeftButton, {}, QPoint(messageX() + 2, y));
        QTest::mouseMove(view->viewport(), QPoint(messageX() + 30, y + lineSpacing));
        QTest::mouseRelease(view->viewport(), Qt::LeftButton, {}, QPoint(messageX() + 30, y + lineSpacing));
        QCOMPARE(view->selectedText(), QStringLiteral("[t] <alice> hello world\n[u] *** note"));
        view->clearSelection();
        QTest::keySequence(view.get(), QKeySequence::SelectAll);
        QTest::keySequence(view.get(), QKeySequence::Copy);
        QCOMPARE(QApplication::clipboard()->text(), QStringLiteral("[t] <alice> hello world\n[u] *** note"));
    }

    // A link shows the hand and opens on click; a drag over it does not.
    void links()
    {
        LinkCatcher catcher;
        QDesktopServices::setUrlHandler(QStringLiteral("https"), &catcher, "open");
        add("bob", "go https://example.org/x now");
        const QPoint onLink(messageX() + QFontMetrics(view->font()).horizontalAdvance(" go https://ex"), firstRowY() + 3);
        const QPoint beside(messageX() + 2, firstRowY() + 3);
        QCOMPARE(view->linkAt(onLink), QStringLiteral("https://example.org/x"));
        QCOMPARE(view->linkAt(beside), QString());
        QMouseEvent hover(QEvent::MouseMove, onLink, view->viewport()->mapToGlobal(onLink), Qt::NoButton,
            Qt::NoButton, Qt::NoModifier);
        QApplication::sendEvent(view->viewport(), &hover);
        QCOMPARE(view->viewport()->cursor().shape(), Qt::PointingHandCursor);
        QTest::mouseClick(view->viewport(), Qt::LeftButton, {}, onLink);
        QCOMPARE(catcher.opened, QStringList { "https://example.org/x" });
        QTest::mousePress(view->viewport(), Qt::LeftButton, {}, beside);
        QTest::mouseMove(view->viewport(), onLink);
        QTest::mouseRelease(view->viewport(), Qt::LeftButton, {}, onLink);
        QCOMPARE(catcher.opened.size(), 1);
        QDesktopServices::unsetUrlHandler(QStringLiteral("https"));
    }

    // The view follows new rows while it shows the last one and stays put
    // while the user reads older ones; keys move it.
    // Trimming keeps the newest rows.
    void scrollingAndTrimming()
    {
        append(500);
        QVERIFY(view->isAtEnd());
        const int lastShown = view->firstVisibleRow();
        QVERIFY(lastShown > 450);
        QTest::keyClick(view.get(), Qt::Key_PageUp);
        const int reading = view->firstVisibleRow();
        QVERIFY(!view->isAtEnd() && reading < lastShown);
        append(100);
        QCOMPARE(view->firstVisibleRow(), reading);
        QTest::keyClick(view.get(), Qt::Key_Home, Qt::ControlModifier);
        QCOMPARE(view->firstVisibleRow(), 0);
        QTest::keyClick(view.get(), Qt::Key_End, Qt::ControlModifier);
        append(10);
        QVERIFY(view->isAtEnd());
        QCOMPARE(view->verticalScrollBar()->value(), view->verticalScrollBar()->maximum());
        append(1890); // 2500 rows
        view->trimTo(1000);
        QCOMPARE(view->rowCount(), 1000);
        QCOMPARE(view->row(0).message, QStringLiteral(" message 1500"));
        QCOMPARE(view->row(999).message, QStringLiteral(" message 2499"));
        view->trimTo(0); // no limit
        QCOMPARE(view->rowCount(), 1000);
    }
};

QUENVAR_TEST_MAIN(TestChatView)
#include "tst_chatview.moc"
