// The chat view on its own, shown: what each row shows, selection to text,
// links, scrolling and trimming.

#include "ChatView.h"
#include "Session.h"
#include "TestMain.h"

#include <QClipboard>
#include <QContextMenuEvent>
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
        return ChatView::Margin + ChatView::TimestampColumnWidth + ChatView::NickColumnWidth + ChatView::ColumnPadding;
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
        QTest::newRow("message") << true << "alice" << "hi there" << 0 << "[t]\talice  \t hi there"
                                 << "[t] <alice> hi there";
        QTest::newRow("server row") << false << "" << "*** Connected" << 0 << "[t]\t*** Connected"
                                    << "[t] *** Connected";
        QTest::newRow("away note, no space") << true << "me" << "[Away: x] hi"
                                             << int(BufferLine::Own | BufferLine::OwnAway)
                                             << "[t]\tme  \t[Away: x] hi" << "[t] <me> [Away: x] hi";
        QTest::newRow("line breaks neutralised") << true << "bob" << "a\nb\tc" << 0 << "[t]\tbob  \t a b c"
                                                 << "[t] <bob> a b c";
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
