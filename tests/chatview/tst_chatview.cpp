// The chat view on its own, shown: what each row shows, selection to text,
// links, scrolling and trimming.

#include "ChatView.h"
#include "Session.h"
#include "TestMain.h"

#include <QClipboard>
#include <QContextMenuEvent>
#include <QDateTime>
#include <QDesktopServices>
#include <QMenu>
#include <QMouseEvent>
#include <QScrollBar>
#include <QTest>
#include <QTimer>

#include <memory>

namespace {

BufferLine line(const QString& sender, const QString& text, quint8 flags = 0)
{
    BufferLine l;
    l.sender = sender;
    l.text = text;
    l.flags = flags;
    return l;
}

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

    void append(int rows, const QString& text = QStringLiteral("message %1"))
    {
        for (int i = 0; i < rows; ++i)
            view->appendLine(QStringLiteral("[12:00:00]"), line(QStringLiteral("alice"), text.arg(view->rowCount())));
        view->flushBatch();
    }

    // The top of the first message row while the rows fit the view.
    int firstRowY() const { return ChatView::Margin + QFontMetrics(view->font()).lineSpacing(); }
    int messageX() const
    {
        return ChatView::Margin + view->timestampColumnWidth() + ChatView::NickColumnWidth
            + ChatView::ColumnPadding;
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

    // What a row shows and how it reads as plain text.
    void rows_data()
    {
        QTest::addColumn<bool>("nickColumn");
        QTest::addColumn<QString>("sender");
        QTest::addColumn<QString>("text");
        QTest::addColumn<int>("flags");
        QTest::addColumn<QString>("laidOut");
        QTest::addColumn<QString>("plain");
        QTest::addColumn<QStringList>("links");
        const auto add
            = [](const char* name, bool nickColumn, const QString& sender, const QString& text, int flags,
                  const QString& laidOut, const QString& plain, const QStringList& links = {}) {
                  QTest::newRow(name) << nickColumn << sender << text << flags << laidOut << plain << links;
              };
        add("message", true, "alice", "hi there", 0, "[t]\talice  \t hi there", "[t] <alice> hi there");
        add("server row", false, "", "*** Connected", 0, "[t]\t*** Connected", "[t] *** Connected");
        add("away note, no space", true, "me", "[Away: x] hi", BufferLine::Own | BufferLine::OwnAway,
            "[t]\tme  \t[Away: x] hi", "[t] <me> [Away: x] hi");
        add("line breaks neutralised", true, "bob", "a\nb\tc", 0, "[t]\tbob  \t a b c", "[t] <bob> a b c");
        add("formatting codes read", true, "bob",
            "\x03"
            "04red\x03 and \x02"
            "bold\x0f.",
            0, "[t]\tbob  \t red and bold.", "[t] <bob> red and bold.");
        add("link in formatted text", true, "bob", "see \x1fhttps://a.org/x\x1f ok", 0,
            "[t]\tbob  \t see https://a.org/x ok", "[t] <bob> see https://a.org/x ok", { "https://a.org/x" });
        add("action", true, "alice", "waves", BufferLine::Action, "[t]\t*  \t alice waves",
            "[t] * alice waves");
        add("action without nick column", false, "alice", "waves", BufferLine::Action, "[t]\t* alice waves",
            "[t] * alice waves");
        add("notice", true, "", "-bob- hi", BufferLine::Notice, "[t]\t  \t -bob- hi", "[t] -bob- hi");
        add("controls shown", true, QString("mal") + QChar(0) + "lory",
            "a\x01"
            "b\x7f",
            0, "[t]\tmal\u2400lory  \t a\u2401b\u2421", "[t] <mal\u2400lory> a\u2401b\u2421");
        add("overrides kept as text", true,
            "\u202e"
            "evil",
            "x\u202ey", 0,
            "[t]\t\u202e"
            "evil  \t x\u202ey",
            "[t] <\u202e"
            "evil> x\u202ey");
    }

    void rows()
    {
        QFETCH(bool, nickColumn);
        QFETCH(QString, sender);
        QFETCH(QString, text);
        QFETCH(int, flags);
        view->setNickColumnVisible(nickColumn);
        view->appendLine(QStringLiteral("[t]"), line(sender, text, quint8(flags)));
        QCOMPARE(view->rowCount(), 1);
        QTEST(view->rowText(0), "laidOut");
        QTEST(view->rowPlainText(0), "plain");
        QStringList hrefs;
        for (const IrcText::LinkSegment& link : view->row(0).links)
            hrefs << link.href;
        QTEST(hrefs, "links");
    }

    // Emoji are drawn at the chosen size in the colour font, with what joins
    // or modifies them; other symbols stay text.
    void emoji_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("sized");
        QTest::newRow("face") << "hi \U0001F600!" << "\U0001F600";
        QTest::newRow("skin tone") << "\U0001F44D\U0001F3FD ok" << "\U0001F44D\U0001F3FD";
        QTest::newRow("family") << "\U0001F468\u200D\U0001F469\u200D\U0001F467" << "\U0001F468\u200D\U0001F469\u200D\U0001F467";
        QTest::newRow("heart with selector") << "\u2764\uFE0F love" << "\u2764\uFE0F";
        QTest::newRow("keycap and flag") << "1\uFE0F\u20E3 \U0001F1EB\U0001F1F7" << "1\uFE0F\u20E3\U0001F1EB\U0001F1F7";
        QTest::newRow("star") << "a \u2B50" << "\u2B50";
        QTest::newRow("text symbols") << "\u2713 \u2190 (c) #1" << "";
    }

    void emoji()
    {
        QFETCH(QString, text);
        view->setEmojiSize(31);
        view->appendLine(QStringLiteral("[t]"), line("bob", text));
        const QString laidOut = view->rowText(0);
        const int start = int(laidOut.lastIndexOf('\t')) + 2;
        QString sized;
        for (int i = start; i < laidOut.size(); ++i) {
            const QTextCharFormat format = view->formatAt(0, i);
            if (format.intProperty(QTextFormat::FontPixelSize) == 31) {
                QVERIFY(format.fontFamilies().toStringList().contains("Noto Color Emoji"));
                sized += laidOut.at(i);
            }
        }
        QTEST(sized, "sized");
    }

    // Right-to-left text and direction overrides stay in their column: the
    // timestamp at the left edge, the nick left of the rule, the message
    // right of it, and a message's last letters in the order they read.
    void bidi_data()
    {
        QTest::addColumn<QString>("sender");
        QTest::addColumn<QString>("text"); // ends in "abc"
        QTest::addColumn<bool>("reversed"); // "abc" drawn right to left
        QTest::newRow("plain") << "bob"
                               << "abc" << false;
        QTest::newRow("override in the nick") << "\u202e"
                                                 "evil"
                                              << "abc" << false;
        QTest::newRow("isolate closed in the nick") << "a\u2069\u202e"
                                                       "b"
                                                    << "abc" << false;
        QTest::newRow("right-to-left nick and message") << "\u05d0\u05d1\u05d2"
                                                        << "\u05d3\u05d4 abc" << false;
        QTest::newRow("override in the message") << "bob"
                                                 << "\u202e"
                                                    "abc"
                                                 << true;
    }

    void bidi()
    {
        QFETCH(QString, sender);
        QFETCH(QString, text);
        QFETCH(bool, reversed);
        view->appendLine(QStringLiteral("[12:00:00]"), line(sender, text));
        view->flushBatch();
        const QString shown = view->rowText(0);
        const int nickStart = int(shown.indexOf(QLatin1Char('\t'))) + 1;
        const int messageStart = int(shown.lastIndexOf(QLatin1Char('\t'))) + 1;
        QCOMPARE(view->characterX(0, 0), qreal(ChatView::Margin));
        for (int i = nickStart; i < messageStart - 3; ++i) {
            const qreal x = view->characterX(0, i);
            QVERIFY2(x >= ChatView::Margin + view->timestampColumnWidth() && x <= view->ruleX(),
                qPrintable(QString::number(i)));
        }
        for (int i = messageStart; i < shown.size(); ++i)
            QVERIFY2(view->characterX(0, i) >= messageX() - 1, qPrintable(QString::number(i)));
        // (The edge of "a" lies where its run meets the one before: "b" and
        // "c" tell the order.)
        const int b = int(shown.size()) - 2;
        QCOMPARE(view->characterX(0, b) > view->characterX(0, b + 1), reversed);
    }

    // The timestamp column fits every timestamp format; a nick too wide for
    // its column is cut: no column runs into the next.
    void columns_data()
    {
        QTest::addColumn<QString>("format");
        QTest::addColumn<QString>("sender");
        for (const char* format : { "[HH:mm:ss]", "[hh:mm:ss AP]", "[HH:mm]", "hh:mm" }) {
            QTest::addRow("%s, short nick", format) << format << "al";
            QTest::addRow("%s, wide nick", format) << format << "WWWWWWWWWWWWWWW";
        }
    }

    void columns()
    {
        QFETCH(QString, format);
        QFETCH(QString, sender);
        view->setTimestampFormat(format);
        for (const QTime time : { QTime(10, 58, 58), QTime(22, 8, 0) })
            view->appendLine(QDateTime(QDate(2024, 12, 28), time).toString(format), line(sender, "hi"));
        view->flushBatch();
        for (int row = 0; row < view->rowCount(); ++row) {
            const QString shown = view->rowText(row);
            const int nickStart = int(shown.indexOf(QLatin1Char('\t'))) + 1;
            const int nickEnd = int(shown.indexOf(QStringLiteral("  \t")));
            const qreal stampsEnd = ChatView::Margin + view->timestampColumnWidth();
            QVERIFY(view->characterX(row, nickStart - 1) < stampsEnd - ChatView::ColumnPadding);
            QVERIFY(view->characterX(row, nickStart) >= stampsEnd);
            QVERIFY(view->characterX(row, nickEnd) <= view->ruleX() - ChatView::ColumnPadding);
            QVERIFY(view->characterX(row, nickEnd + 3) >= view->ruleX());
        }
        QVERIFY(view->rowText(0).contains(sender) == (sender.size() < 5));
    }

    // Selecting: a double click takes a word, Select All every row; Ctrl+C
    // and the context menu copy it.
    void selectionAndCopy()
    {
        view->appendLine(QStringLiteral("[t]"), line(QStringLiteral("alice"), QStringLiteral("hello world")));
        view->appendLine(QStringLiteral("[u]"), line(QString(), QStringLiteral("*** note")));
        view->flushBatch();
        QVERIFY(!view->hasSelection());

        const int y = firstRowY() + 3;
        QTest::mouseDClick(view->viewport(), Qt::LeftButton, {},
            QPoint(messageX() + QFontMetrics(view->font()).horizontalAdvance(QStringLiteral(" hello wor")), y));
        QCOMPARE(view->selectedText(), QStringLiteral("world"));

        // A drag from the first row into the second selects whole rows.
        QTest::mousePress(view->viewport(), Qt::LeftButton, {}, QPoint(messageX() + 2, y));
        QTest::mouseMove(view->viewport(), QPoint(messageX() + 30, y + QFontMetrics(view->font()).lineSpacing()));
        QTest::mouseRelease(view->viewport(), Qt::LeftButton, {},
            QPoint(messageX() + 30, y + QFontMetrics(view->font()).lineSpacing()));
        QCOMPARE(view->selectedText(), QStringLiteral("[t] <alice> hello world\n[u] *** note"));

        QTest::keySequence(view.get(), QKeySequence::SelectAll);
        QTest::keySequence(view.get(), QKeySequence::Copy);
        QCOMPARE(QApplication::clipboard()->text(), QStringLiteral("[t] <alice> hello world\n[u] *** note"));

        // The context menu offers Copy (only with a selection) and Select All.
        view->clearSelection();
        QStringList items;
        QTimer::singleShot(0, this, [&items] {
            auto* menu = qobject_cast<QMenu*>(QApplication::activePopupWidget());
            if (!menu)
                return;
            for (QAction* action : menu->actions())
                items << action->text() + (action->isEnabled() ? "" : " (off)");
            menu->close();
        });
        QContextMenuEvent event(QContextMenuEvent::Mouse, QPoint(10, 10), view->mapToGlobal(QPoint(10, 10)));
        QApplication::sendEvent(view->viewport(), &event);
        QCOMPARE(items, (QStringList { "Copy (off)", "Select All" }));
    }

    // A link shows the hand and opens on click; a drag over it does not.
    void links()
    {
        LinkCatcher catcher;
        QDesktopServices::setUrlHandler(QStringLiteral("https"), &catcher, "open");
        view->appendLine(QStringLiteral("[t]"),
            line(QStringLiteral("bob"), QStringLiteral("go https://example.org/x now"), 0));
        view->flushBatch();
        QCOMPARE(view->row(0).links.value(0).href, QStringLiteral("https://example.org/x"));
        const QFontMetrics metrics(view->font());
        const QPoint onLink(messageX() + metrics.horizontalAdvance(QStringLiteral(" go https://ex")), firstRowY() + 3);
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
    void scrolling()
    {
        append(500);
        QVERIFY(view->isAtEnd());
        const int lastShown = view->firstVisibleRow();
        QVERIFY(lastShown > 450);

        QTest::keyClick(view.get(), Qt::Key_PageUp);
        QVERIFY(!view->isAtEnd());
        const int reading = view->firstVisibleRow();
        QVERIFY(reading < lastShown);
        append(100);
        QCOMPARE(view->firstVisibleRow(), reading);

        QTest::keyClick(view.get(), Qt::Key_Home, Qt::ControlModifier);
        QCOMPARE(view->firstVisibleRow(), 0);
        QTest::keyClick(view.get(), Qt::Key_End, Qt::ControlModifier);
        QVERIFY(view->isAtEnd());
        append(10);
        QVERIFY(view->isAtEnd());
        QCOMPARE(view->verticalScrollBar()->value(), view->verticalScrollBar()->maximum());

        // Narrower, the rows wrap: more scroll positions, still at the end.
        append(1, QStringLiteral("a long row %1 ") + QStringLiteral("that wraps ").repeated(20));
        const int rows = view->verticalScrollBar()->maximum();
        view->resize(300, 300);
        QTRY_VERIFY(view->verticalScrollBar()->maximum() > rows);
        QVERIFY(view->isAtEnd());
    }

    void trimming()
    {
        append(2500);
        view->trimTo(1000);
        QCOMPARE(view->rowCount(), 1000);
        QCOMPARE(view->row(0).message, QStringLiteral(" message 1500"));
        QCOMPARE(view->row(999).message, QStringLiteral(" message 2499"));
        view->trimTo(0); // no limit
        QCOMPARE(view->rowCount(), 1000);
        view->clearMessages();
        QCOMPARE(view->rowCount(), 0);
    }
};

QUENVAR_TEST_MAIN(TestChatView)
#include "tst_chatview.moc"
