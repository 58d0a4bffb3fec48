#include "IrcText.h"
#include "MemberList.h"
#include "TestMain.h"

#include <QElapsedTimer>
#include <QRandomGenerator>
#include <QTextBlock>
#include <QTextCursor>
#include <QTextDocument>
#include <QTextFragment>

#include <algorithm>

using IrcText::LinkSegment;

Q_DECLARE_METATYPE(IrcText::LinkSegment)

namespace {

QString ctl(char16_t code)
{
    return QString(QChar(code));
}

const QString B = ctl(0x02);
const QString C = ctl(0x03);
const QString I = ctl(0x1D);
const QString U = ctl(0x1F);

QString span(const QString& style)
{
    return QStringLiteral("<span style=\"") + style + QStringLiteral("\">");
}

struct Fragment
{
    QString text;
    bool anchor = false;
    QString href;
    QTextCharFormat format;
};

// Every text fragment of the document, in order.
QList<Fragment> fragments(const QTextDocument& doc)
{
    QList<Fragment> result;
    for (QTextBlock block = doc.begin(); block.isValid(); block = block.next()) {
        for (auto it = block.begin(); !it.atEnd(); ++it) {
            const QTextFragment f = it.fragment();
            if (!f.isValid())
                continue;
            const QTextCharFormat fmt = f.charFormat();
            result.append({f.text(), fmt.isAnchor(), fmt.anchorHref(), fmt});
        }
    }
    return result;
}

QStringList anchorTargets(const QTextDocument& doc)
{
    QStringList hrefs;
    for (const Fragment& f : fragments(doc)) {
        if (f.anchor || !f.href.isEmpty())
            hrefs.append(f.href);
    }
    return hrefs;
}

bool isAllowedTarget(const QString& href)
{
    return href.startsWith(QLatin1String("http://")) || href.startsWith(QLatin1String("https://"))
        || href.startsWith(QLatin1String("mailto:"));
}

// A chat message rendered the way a row renders it.
void renderRow(QTextDocument& doc, const QString& text, const QTextCharFormat& base = {})
{
    QTextCursor cursor(&doc);
    IrcText::insertMessageWithLinks(cursor, text, base);
}

QStringList randomNames(quint32 seed, int count)
{
    QRandomGenerator rng(seed);
    const QStringList prefixes = {QString(), QString(), QStringLiteral("~"), QStringLiteral("&"),
                                  QStringLiteral("@"), QStringLiteral("%"), QStringLiteral("+")};
    const QString alphabet = QStringLiteral("aAbBzZ_[9");
    QStringList names;
    for (int i = 0; i < count; ++i) {
        QString name = prefixes.at(rng.bounded(int(prefixes.size())));
        const int length = rng.bounded(4); // empty names included
        for (int k = 0; k < length; ++k)
            name += alphabet.at(rng.bounded(int(alphabet.size())));
        names.append(name);
    }
    return names;
}

} // namespace

class TestChatText : public QObject
{
    Q_OBJECT

private slots:
    // ---- nick colours -------------------------------------------------
    void nickColorHashesIntoPalette_data()
    {
        QTest::addColumn<QString>("nick");
        QTest::addColumn<QString>("colour");
        QTest::newRow("empty is grey") << QString() << QStringLiteral("#666666");
        QTest::newRow("a") << QStringLiteral("a") << QStringLiteral("#424242");
        QTest::newRow("b") << QStringLiteral("b") << QStringLiteral("#1565c0");
        QTest::newRow("carl") << QStringLiteral("carl") << QStringLiteral("#f9a825");
        QTest::newRow("zed") << QStringLiteral("zed") << QStringLiteral("#558b2f");
        QTest::newRow("prefix is hashed too") << QStringLiteral("~zed") << QStringLiteral("#00b0ff");
        QTest::newRow("case is hashed as given") << QStringLiteral("NickServ")
                                                 << QStringLiteral("#558b2f");
        QTest::newRow("nick_") << QStringLiteral("nick_") << QStringLiteral("#2979ff");
        QTest::newRow("hash wraps") << QStringLiteral("averyveryverylongnickname")
                                    << QStringLiteral("#d500f9");
        QTest::newRow("shortened nick") << QStringLiteral("abcdefghijklmno\u2026")
                                        << QStringLiteral("#78909c");
        QTest::newRow("non-latin") << QStringLiteral("\u00e9t\u00e9") << QStringLiteral("#78909c");
        QTest::newRow("surrogates hashed per unit") << QStringLiteral("\U0001F600x")
                                                    << QStringLiteral("#ad1457");
    }

    void nickColorHashesIntoPalette()
    {
        QFETCH(QString, nick);
        QFETCH(QString, colour);
        QCOMPARE(IrcText::nickColor(nick).name(), colour);
    }

    void nickPaletteHasSixteenEntries()
    {
        const QList<QColor>& palette = IrcText::nickPalette();
        QCOMPARE(palette.size(), 16);
        QCOMPARE(palette.first().name(), QStringLiteral("#9e9e9e"));
        QCOMPARE(palette.at(7).name(), QStringLiteral("#e65100"));
        QCOMPARE(palette.last().name(), QStringLiteral("#bcaaa4"));
    }

    void ircColorTable()
    {
        const QStringList expected = {"#ffffff", "#000000", "#000080", "#008000",
                                      "#ff0000", "#800000", "#800080", "#ffa500",
                                      "#ffff00", "#00ff00", "#008080", "#00ffff",
                                      "#0000ff", "#ff00ff", "#808080", "#c0c0c0"};
        const QList<QColor>& table = IrcText::ircColorTable();
        QCOMPARE(table.size(), 16);
        for (int i = 0; i < 16; ++i)
            QCOMPARE(table.at(i).name(), expected.at(i));
        QCOMPARE(&IrcText::ircColorTable(), &table); // one table per process
        QCOMPARE(IrcText::ircColor(99).name(), QStringLiteral("#c0c0c0"));
        QCOMPARE(IrcText::ircColor(-3).name(), QStringLiteral("#ffffff"));
    }

    // ---- IRC formatting to HTML ---------------------------------------
    void ircToHtml_data()
    {
        QTest::addColumn<QString>("irc");
        QTest::addColumn<QString>("html");
        const QString red = span("color:#ff0000;");
        const QString endSpan = QStringLiteral("</span>");

        QTest::newRow("plain") << QStringLiteral("hello") << QStringLiteral("hello");
        QTest::newRow("empty") << QString() << QString();
        QTest::newRow("bold toggles") << B + "bold" + B + " x" << QStringLiteral("<b>bold</b> x");
        QTest::newRow("italic toggles") << I + "i" + I << QStringLiteral("<i>i</i>");
        QTest::newRow("underline toggles") << U + "u" + U << QStringLiteral("<u>u</u>");
        QTest::newRow("bold twice on") << B + "a" + B + B + "b"
                                       << QStringLiteral("<b>a</b><b>b</b>");
        QTest::newRow("closing order") << B + I + U + "x"
                                       << QStringLiteral("<b><i><u>x</u></i></b>");
        QTest::newRow("closing order, other opening order")
            << U + B + I + "x" << QStringLiteral("<u><b><i>x</u></i></b>");
        QTest::newRow("colour closed before tags") << B + C + "4x" << "<b>" + red + "x</span></b>";
        QTest::newRow("one digit") << C + "4red" << red + "red" + endSpan;
        QTest::newRow("two digits") << C + "04red" << red + "red" + endSpan;
        QTest::newRow("no two-digit limit") << C + "123x"
                                            << span("color:#c0c0c0;") + "x" + endSpan;
        QTest::newRow("99 clamps to 15") << C + "99x" << span("color:#c0c0c0;") + "x" + endSpan;
        QTest::newRow("a thousand digits")
            << C + QString(1000, QLatin1Char('9')) + "x" << span("color:#c0c0c0;") + "x" + endSpan;
        QTest::newRow("zero is white") << C + "0x" << span("color:#ffffff;") + "x" + endSpan;
        QTest::newRow("foreground and background")
            << C + "4,2x" << span("color:#ff0000;background-color:#000080;") + "x" + endSpan;
        QTest::newRow("background clamps")
            << C + "4,99x" << span("color:#ff0000;background-color:#c0c0c0;") + "x" + endSpan;
        QTest::newRow("same red: white text")
            << C + "4,4x" << span("color:#ffffff;background-color:#ff0000;") + "x" + endSpan;
        QTest::newRow("same yellow: black text")
            << C + "8,8x" << span("color:#000000;background-color:#ffff00;") + "x" + endSpan;
        QTest::newRow("same white: black text")
            << C + "0,0x" << span("color:#000000;background-color:#ffffff;") + "x" + endSpan;
        QTest::newRow("same grey 128: black text")
            << C + "14,14x" << span("color:#000000;background-color:#808080;") + "x" + endSpan;
        QTest::newRow("same navy: white text")
            << C + "2,02x" << span("color:#ffffff;background-color:#000080;") + "x" + endSpan;
        QTest::newRow("clamped to same colour")
            << C + "15,99x" << span("color:#000000;background-color:#c0c0c0;") + "x" + endSpan;
        QTest::newRow("comma without digit is consumed") << C + "4,x" << red + "x" + endSpan;
        QTest::newRow("comma at the end") << C + "4," << red + endSpan;
        QTest::newRow("comma without foreground stays text")
            << C + "4a" + C + ",5x" << red + "a" + endSpan + ",5x";
        QTest::newRow("comma without foreground, nothing open") << C + ",5x" << QStringLiteral(",5x");
        QTest::newRow("bare code ends colour") << C + "4a" + C + "b" << red + "a" + endSpan + "b";
        QTest::newRow("new colour replaces old")
            << C + "4a" + C + "5b" << red + "a" + endSpan + span("color:#800000;") + "b" + endSpan;
        QTest::newRow("bare code alone") << C + "x" << QStringLiteral("x");
        QTest::newRow("code at the end") << QStringLiteral("x") + C << QStringLiteral("x");
        QTest::newRow("only ascii digits count")
            << C + QStringLiteral("\u0663x") << QStringLiteral("\u0663x");
        QTest::newRow("tags interleave with colour")
            << C + "4" + B + "a" + C + "b" + B << red + "<b>a" + endSpan + "b</b>";
        QTest::newRow("escaping") << QStringLiteral("<b>&\"x\"</b>")
                                  << QStringLiteral("&lt;b&gt;&amp;&quot;x&quot;&lt;/b&gt;");
        QTest::newRow("entity text is escaped") << QStringLiteral("&lt;") << QStringLiteral("&amp;lt;");
        QTest::newRow("other control codes copied")
            << ctl(0x0F) + "r" + ctl(0x16) + "v" + ctl(0x1E) + "s" + ctl(0x01)
            << ctl(0x0F) + "r" + ctl(0x16) + "v" + ctl(0x1E) + "s" + ctl(0x01);
        QTest::newRow("%1 stays") << QStringLiteral("%1 %2 %L1") << QStringLiteral("%1 %2 %L1");
    }

    void ircToHtml()
    {
        QFETCH(QString, irc);
        QFETCH(QString, html);
        QCOMPARE(IrcText::ircToHtml(irc), html);
    }

    void ircToHtmlRendersHostileTextAsText_data()
    {
        QTest::addColumn<QString>("text");
        QTest::newRow("script") << QStringLiteral("<script>alert(1)</script>");
        QTest::newRow("image") << QStringLiteral("\"><img src=x onerror=alert(1)>");
        QTest::newRow("anchor") << QStringLiteral("<a href=\"javascript:alert(1)\">click</a>");
        QTest::newRow("entities") << QStringLiteral("&lt;b&gt; &amp; &#60;");
        QTest::newRow("placeholders") << QStringLiteral("%1 %2 %3 %99");
        QTest::newRow("long") << QString(10000, QLatin1Char('<'));
    }

    void ircToHtmlRendersHostileTextAsText()
    {
        QFETCH(QString, text);
        QTextDocument doc;
        doc.setHtml(IrcText::ircTopicToHtml(text));
        QCOMPARE(doc.toPlainText(), text);
        QVERIFY(anchorTargets(doc).isEmpty());
        QVERIFY(!doc.toHtml().contains(QLatin1String("<img")));
    }

    // ---- links in topic HTML ------------------------------------------
    void linkifyHtml_data()
    {
        QTest::addColumn<QString>("html");
        QTest::addColumn<QString>("expected");

        QTest::newRow("nothing") << QStringLiteral("just words") << QStringLiteral("just words");
        QTest::newRow("web address")
            << QStringLiteral("see http://a.com now")
            << QStringLiteral("see <a href=\"http://a.com\">http://a.com</a> now");
        QTest::newRow("https")
            << QStringLiteral("https://x.org/p?q=1")
            << QStringLiteral("<a href=\"https://x.org/p?q=1\">https://x.org/p?q=1</a>");
        QTest::newRow("e-mail without mailto")
            << QStringLiteral("mail bob@example.org.")
            << QStringLiteral("mail <a href=\"bob@example.org\">bob@example.org</a>.");
        QTest::newRow("two links")
            << QStringLiteral("http://a.com x@y.de")
            << QStringLiteral("<a href=\"http://a.com\">http://a.com</a> "
                              "<a href=\"x@y.de\">x@y.de</a>");
        QTest::newRow("inside a tag is skipped")
            << QStringLiteral("<a href=\"http://a.com\">x</a>")
            << QStringLiteral("<a href=\"http://a.com\">x</a>");
        QTest::newRow("e-mail inside a tag is skipped")
            << QStringLiteral("<span title=\"bob@example.org\">x</span> c@d.com")
            << QStringLiteral("<span title=\"bob@example.org\">x</span> "
                              "<a href=\"c@d.com\">c@d.com</a>");
        QTest::newRow("after a closed tag is linked")
            << QStringLiteral("<b>x</b> http://a.com")
            << QStringLiteral("<b>x</b> <a href=\"http://a.com\">http://a.com</a>");
        QTest::newRow("directly after > is left")
            << QStringLiteral("<b>http://a.com</b>") << QStringLiteral("<b>http://a.com</b>");
        QTest::newRow("address ends where a tag begins")
            << QStringLiteral("x http://a.com<b>y</b>")
            << QStringLiteral("x <a href=\"http://a.com\">http://a.com</a><b>y</b>");
        QTest::newRow("address after a tag in the same word")
            << QStringLiteral("x http://a.com<i>http://b.com")
            << QStringLiteral("x <a href=\"http://a.com\">http://a.com</a><i>http://b.com");
        QTest::newRow("escaped ampersand kept once")
            << QStringLiteral("http://a.com/?x=1&amp;y=2")
            << QStringLiteral("<a href=\"http://a.com/?x=1&amp;y=2\">http://a.com/?x=1&amp;y=2</a>");
        QTest::newRow("raw ampersand escaped")
            << QStringLiteral("http://a.com/?x=1&y=2")
            << QStringLiteral("<a href=\"http://a.com/?x=1&amp;y=2\">http://a.com/?x=1&amp;y=2</a>");
        QTest::newRow("quote cannot leave the attribute")
            << QStringLiteral("http://a.com/\"onclick=x")
            << QStringLiteral("<a href=\"http://a.com/&quot;onclick=x\">"
                              "http://a.com/&quot;onclick=x</a>");
        QTest::newRow("e-mail inside an address is not linked twice")
            << QStringLiteral("http://s.com/u@v.org/x")
            << QStringLiteral("<a href=\"http://s.com/u@v.org/x\">http://s.com/u@v.org/x</a>");
        QTest::newRow("scheme only") << QStringLiteral("http://") << QStringLiteral("http://");
        QTest::newRow("upper-case scheme is not an address")
            << QStringLiteral("HTTP://A.COM") << QStringLiteral("HTTP://A.COM");
        QTest::newRow("javascript is not an address")
            << QStringLiteral("javascript:alert(1)") << QStringLiteral("javascript:alert(1)");
        QTest::newRow("ftp is not an address")
            << QStringLiteral("ftp://a.com") << QStringLiteral("ftp://a.com");
    }

    void linkifyHtml()
    {
        QFETCH(QString, html);
        QFETCH(QString, expected);
        QCOMPARE(IrcText::linkifyHtml(html), expected);
    }

    void ircTopicToHtml_data()
    {
        QTest::addColumn<QString>("topic");
        QTest::addColumn<QString>("expected");
        QTest::newRow("plain link")
            << QStringLiteral("Rules: http://r.org/?a=1&b=2 <be nice>")
            << QStringLiteral("Rules: <a href=\"http://r.org/?a=1&amp;b=2\">http://r.org/?a=1&amp;b=2"
                              "</a> &lt;be nice&gt;");
        QTest::newRow("bold address not linked")
            << B + "http://a.com" + B << QStringLiteral("<b>http://a.com</b>");
        QTest::newRow("address before colour")
            << "http://a.com" + C + "4x"
            << "<a href=\"http://a.com\">http://a.com</a>" + span("color:#ff0000;") + "x</span>";
        QTest::newRow("address in angle brackets")
            << QStringLiteral("<http://a.com>")
            << QStringLiteral("&lt;<a href=\"http://a.com&gt;\">http://a.com&gt;</a>");
    }

    void ircTopicToHtml()
    {
        QFETCH(QString, topic);
        QFETCH(QString, expected);
        QCOMPARE(IrcText::ircTopicToHtml(topic), expected);
    }

    void topicLinksRenderWithOnlyWebOrMailTargets_data()
    {
        QTest::addColumn<QString>("topic");
        QTest::addColumn<QStringList>("hrefs");
        QTest::newRow("javascript")
            << QStringLiteral("javascript:alert('http://e.vil/') x") << QStringList{"http://e.vil/')"};
        QTest::newRow("quote breakout")
            << QStringLiteral("http://a.com/\"><img src=x onerror=y>")
            << QStringList{"http://a.com/\"><img"};
        QTest::newRow("e-mail") << QStringLiteral("ops: root@example.com")
                                << QStringList{"root@example.com"};
    }

    void topicLinksRenderWithOnlyWebOrMailTargets()
    {
        QFETCH(QString, topic);
        QFETCH(QStringList, hrefs);
        QTextDocument doc;
        doc.setHtml(IrcText::ircTopicToHtml(topic));
        QCOMPARE(doc.toPlainText(), topic);
        const QStringList found = anchorTargets(doc);
        QCOMPARE(found, hrefs);
        QVERIFY(!doc.toHtml().contains(QLatin1String("<img")));
    }

    // ---- links in chat rows -------------------------------------------
    void linkSegments_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QList<LinkSegment>>("segments");

        QTest::newRow("no links") << QStringLiteral("hello there") << QList<LinkSegment>{};
        QTest::newRow("web address")
            << QStringLiteral("a http://x.com/path b")
            << QList<LinkSegment>{{2, 19, "http://x.com/path", "http://x.com/path"}};
        QTest::newRow("https at the end")
            << QStringLiteral("go https://x.org")
            << QList<LinkSegment>{{3, 16, "https://x.org", "https://x.org"}};
        QTest::newRow("e-mail gets mailto")
            << QStringLiteral("mail bob@example.org!")
            << QList<LinkSegment>{{5, 20, "mailto:bob@example.org", "bob@example.org"}};
        QTest::newRow("web address wins over an overlapping e-mail")
            << QStringLiteral("bob@example.org and http://site.com/u/alice@example.net/x")
            << QList<LinkSegment>{
                   {0, 15, "mailto:bob@example.org", "bob@example.org"},
                   {20, 57, "http://site.com/u/alice@example.net/x",
                    "http://site.com/u/alice@example.net/x"}};
        QTest::newRow("sorted by start")
            << QStringLiteral("http://a.b x@y.zz http://c.d")
            << QList<LinkSegment>{{0, 10, "http://a.b", "http://a.b"},
                                  {11, 17, "mailto:x@y.zz", "x@y.zz"},
                                  {18, 28, "http://c.d", "http://c.d"}};
        QTest::newRow("mailto text keeps one prefix in the target")
            << QStringLiteral("mailto:bob@x.org")
            << QList<LinkSegment>{{7, 16, "mailto:bob@x.org", "bob@x.org"}};
        QTest::newRow("address runs to white space")
            << QStringLiteral("(http://a.b/c), next")
            << QList<LinkSegment>{{1, 15, "http://a.b/c),", "http://a.b/c),"}};
        QTest::newRow("javascript")
            << QStringLiteral("javascript:alert(1)") << QList<LinkSegment>{};
        QTest::newRow("javascript around an address")
            << QStringLiteral("javascript:window.open('http://e.vil')")
            << QList<LinkSegment>{{24, 38, "http://e.vil')", "http://e.vil')"}};
        QTest::newRow("other schemes")
            << QStringLiteral("ftp://a.com file:///etc data:text/html,x") << QList<LinkSegment>{};
        QTest::newRow("upper-case scheme") << QStringLiteral("HTTP://A.COM") << QList<LinkSegment>{};
        QTest::newRow("scheme without rest") << QStringLiteral("http:// x") << QList<LinkSegment>{};
        QTest::newRow("e-mail without top-level domain")
            << QStringLiteral("user@host") << QList<LinkSegment>{};
        QTest::newRow("www without scheme") << QStringLiteral("www.a.com") << QList<LinkSegment>{};
    }

    void linkSegments()
    {
        QFETCH(QString, text);
        QFETCH(QList<LinkSegment>, segments);
        const QList<LinkSegment> actual = IrcText::linkSegments(text);
        QCOMPARE(actual.size(), segments.size());
        for (int i = 0; i < actual.size(); ++i) {
            QCOMPARE(actual.at(i).start, segments.at(i).start);
            QCOMPARE(actual.at(i).end, segments.at(i).end);
            QCOMPARE(actual.at(i).href, segments.at(i).href);
            QCOMPARE(actual.at(i).displayText, segments.at(i).displayText);
        }
    }

    void insertMessageWithLinksFormatsLinks()
    {
        QTextDocument doc;
        QTextCharFormat base;
        base.setForeground(QColor(136, 136, 136));
        base.setFontWeight(QFont::Bold);
        const QString text = QStringLiteral("see http://a.com and bob@x.org!");
        renderRow(doc, text, base);

        QCOMPARE(doc.toPlainText(), text);
        QCOMPARE(doc.blockCount(), 1);
        const QList<Fragment> parts = fragments(doc);
        QCOMPARE(parts.size(), 5);
        const QStringList texts = {"see ", "http://a.com", " and ", "bob@x.org", "!"};
        const QStringList hrefs = {"", "http://a.com", "", "mailto:bob@x.org", ""};
        for (int i = 0; i < parts.size(); ++i) {
            const Fragment& f = parts.at(i);
            QCOMPARE(f.text, texts.at(i));
            QCOMPARE(f.href, hrefs.at(i));
            QCOMPARE(f.anchor, !hrefs.at(i).isEmpty());
            QCOMPARE(f.format.fontWeight(), int(QFont::Bold)); // base kept
            if (f.anchor) {
                QCOMPARE(f.format.foreground().color().name(), QStringLiteral("#007aff"));
                QCOMPARE(f.format.underlineStyle(), QTextCharFormat::SingleUnderline);
            } else {
                QCOMPARE(f.format.foreground().color(), QColor(136, 136, 136));
                QCOMPARE(f.format.underlineStyle(), QTextCharFormat::NoUnderline);
            }
        }
    }

    void insertMessageWithLinksAtCursor()
    {
        QTextDocument doc;
        QTextCursor cursor(&doc);
        cursor.insertText(QStringLiteral("[12:00]\t"));
        IrcText::insertMessageWithLinks(cursor, QStringLiteral("http://x.y"), QTextCharFormat());
        cursor.insertText(QStringLiteral("|"));
        QCOMPARE(doc.toPlainText(), QStringLiteral("[12:00]\thttp://x.y|"));
        QCOMPARE(anchorTargets(doc), QStringList{"http://x.y"});
    }

    void hostileMessagesStayText_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("shown");
        QTest::addColumn<QStringList>("hrefs");

        QTest::newRow("html") << QStringLiteral("<b>x</b> <a href='javascript:alert(1)'>y</a>")
                              << QStringLiteral("<b>x</b> <a href='javascript:alert(1)'>y</a>")
                              << QStringList{};
        QTest::newRow("placeholders") << QStringLiteral("%1 %2 %L1 %%1")
                                      << QStringLiteral("%1 %2 %L1 %%1") << QStringList{};
        QTest::newRow("javascript") << QStringLiteral("javascript:alert(document.cookie)")
                                    << QStringLiteral("javascript:alert(document.cookie)")
                                    << QStringList{};
        QTest::newRow("formatting codes kept")
            << B + "b" + C + "4,5c" + ctl(0x01) + ctl(0x0F) + ctl(0x00)
            << B + "b" + C + "4,5c" + ctl(0x01) + ctl(0x0F) + ctl(0x00) << QStringList{};
        QTest::newRow("line breaks do not split the row")
            << QStringLiteral("a\nb\r\nc\rd\u2029e\u2028f\tg")
            << QStringLiteral("a b  c d e f g") << QStringList{};
        QTest::newRow("frame markers do not split the row")
            << QStringLiteral("a\uFDD0b\uFDD1c\uFFFCd") << QStringLiteral("a b c d") << QStringList{};
        QTest::newRow("address before a line break")
            << QStringLiteral("http://a.b\nnext") << QStringLiteral("http://a.b next")
            << QStringList{"http://a.b"};
        QTest::newRow("lone surrogates")
            << QString(QChar(0xD800)) + " http://a.b " + QChar(0xDC00) + " x@y.zz"
            << QString(QChar(0xD800)) + " http://a.b " + QChar(0xDC00) + " x@y.zz"
            << QStringList{"http://a.b", "mailto:x@y.zz"};
        QTest::newRow("html in an address")
            << QStringLiteral("http://a.b/<img>\"'") << QStringLiteral("http://a.b/<img>\"'")
            << QStringList{"http://a.b/<img>\"'"};
    }

    void hostileMessagesStayText()
    {
        QFETCH(QString, text);
        QFETCH(QString, shown);
        QFETCH(QStringList, hrefs);
        QTextDocument doc;
        renderRow(doc, text);
        QCOMPARE(doc.blockCount(), 1);
        QCOMPARE(doc.begin().text(), shown);
        QCOMPARE(anchorTargets(doc), hrefs);
        for (const Fragment& f : fragments(doc))
            QCOMPARE(f.format.fontWeight(), int(QFont::Normal));
    }

    void hugeMessagesRenderAsOneRow_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<int>("links");
        QTest::newRow("letters") << QString(10000, QLatin1Char('a')) << 0;
        QTest::newRow("one huge address") << "http://" + QString(10000, QLatin1Char('a')) << 1;
        QTest::newRow("dots around an at sign")
            << QStringLiteral("a.").repeated(2500) + "@" + QStringLiteral("b.").repeated(2500) << 0;
        QTest::newRow("many at signs") << QStringLiteral("a@").repeated(5000) << 0;
        QTest::newRow("many addresses") << QStringLiteral("x@y.zz ").repeated(1400) << 1400;
        QTest::newRow("many schemes") << QStringLiteral("http://").repeated(1400) << 1;
    }

    void hugeMessagesRenderAsOneRow()
    {
        QFETCH(QString, text);
        QFETCH(int, links);
        QElapsedTimer timer;
        timer.start();
        QTextDocument doc;
        renderRow(doc, text);
        QCOMPARE(doc.blockCount(), 1);
        QCOMPARE(doc.toPlainText(), text);
        const QStringList hrefs = anchorTargets(doc);
        QCOMPARE(hrefs.size(), links);
        for (const QString& href : hrefs)
            QVERIFY(isAllowedTarget(href));
        // Generous: only a pathological slowdown (seconds per message) fails.
        QVERIFY2(timer.elapsed() < 10000, qPrintable(QString::number(timer.elapsed())));
        QTextDocument topic;
        topic.setHtml(IrcText::ircTopicToHtml(text));
        QCOMPARE(topic.toPlainText(), text);
    }

    void onlyWebAndMailTargetsOnRandomText()
    {
        QRandomGenerator rng(20261122);
        const QStringList pieces = {"http://", "https://", "javascript:", "mailto:", "@", ".",
                                    "com", "a", "B", " ", "<", ">", "\"", "&", "'", ":", "/",
                                    "data:", "\n", "%1", "www."};
        for (int round = 0; round < 300; ++round) {
            QString text;
            const int count = 1 + rng.bounded(30);
            for (int i = 0; i < count; ++i)
                text += pieces.at(rng.bounded(int(pieces.size())));
            QTextDocument doc;
            renderRow(doc, text);
            QCOMPARE(doc.blockCount(), 1);
            for (const QString& href : anchorTargets(doc))
                QVERIFY2(isAllowedTarget(href), qPrintable(text));
            for (const LinkSegment& s : IrcText::linkSegments(text)) {
                QVERIFY2(isAllowedTarget(s.href), qPrintable(text));
                QCOMPARE(text.mid(s.start, s.end - s.start), s.displayText);
            }
        }
    }

    void singleBlockTextLeavesOrdinaryTextAlone()
    {
        const QString text = QStringLiteral("ordinary text, \u00e9 \U0001F600");
        QCOMPARE(IrcText::singleBlockText(text), text);
        QCOMPARE(IrcText::singleBlockText(QStringLiteral("a\tb")), QStringLiteral("a b"));
    }

    // ---- member list --------------------------------------------------
    void stripModePrefix_data()
    {
        QTest::addColumn<QString>("nick");
        QTest::addColumn<QString>("stripped");
        QTest::newRow("one symbol only") << QStringLiteral("@+nick") << QStringLiteral("+nick");
        QTest::newRow("empty") << QString() << QString();
        QTest::newRow("plain") << QStringLiteral("nick") << QStringLiteral("nick");
        QTest::newRow("owner") << QStringLiteral("~a") << QStringLiteral("a");
        QTest::newRow("admin") << QStringLiteral("&a") << QStringLiteral("a");
        QTest::newRow("op") << QStringLiteral("@a") << QStringLiteral("a");
        QTest::newRow("half-op") << QStringLiteral("%a") << QStringLiteral("a");
        QTest::newRow("voice") << QStringLiteral("+a") << QStringLiteral("a");
        QTest::newRow("symbol alone") << QStringLiteral("@") << QString();
        QTest::newRow("not a symbol") << QStringLiteral("!a") << QStringLiteral("!a");
        QTest::newRow("symbol later") << QStringLiteral("a@b") << QStringLiteral("a@b");
    }

    void stripModePrefix()
    {
        QFETCH(QString, nick);
        QFETCH(QString, stripped);
        QCOMPARE(MemberList::stripModePrefix(nick), stripped);
        QCOMPARE(MemberList::stripModePrefix(QStringView(nick)).toString(), stripped);
    }

    void memberNickStripsMarkerThenSymbol()
    {
        QCOMPARE(MemberList::memberNick(QStringLiteral("\u25cf @me")), QStringLiteral("me"));
        QCOMPARE(MemberList::memberNick(QStringLiteral("\u25cf me")), QStringLiteral("me"));
        QCOMPARE(MemberList::memberNick(QStringLiteral("+bob")), QStringLiteral("bob"));
        QCOMPARE(MemberList::memberNick(QStringLiteral("\u25cfme")), QStringLiteral("\u25cfme"));
        QCOMPARE(MemberList::stripOwnMarker(QStringLiteral("\u25cf %me")), QStringLiteral("%me"));
    }

    void statusRankAndOperator_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<int>("rank");
        QTest::addColumn<bool>("op");
        QTest::newRow("owner") << QStringLiteral("~a") << 1 << true;
        QTest::newRow("admin") << QStringLiteral("&a") << 2 << true;
        QTest::newRow("op") << QStringLiteral("@a") << 3 << true;
        QTest::newRow("half-op counts") << QStringLiteral("%a") << 4 << true;
        QTest::newRow("voice does not") << QStringLiteral("+a") << 5 << false;
        QTest::newRow("plain") << QStringLiteral("a") << 6 << false;
        QTest::newRow("empty") << QString() << 6 << false;
        QTest::newRow("other symbol") << QStringLiteral("!a") << 6 << false;
    }

    void statusRankAndOperator()
    {
        QFETCH(QString, name);
        QFETCH(int, rank);
        QFETCH(bool, op);
        QCOMPARE(MemberList::statusRank(name), rank);
        QCOMPARE(MemberList::isOperatorEntry(name), op);
    }

    void isOperatorIn_data()
    {
        QTest::addColumn<QStringList>("names");
        QTest::addColumn<QString>("own");
        QTest::addColumn<bool>("op");
        QTest::newRow("half-op") << QStringList{"bob", "%me"} << "me" << true;
        QTest::newRow("owner") << QStringList{"~me"} << "me" << true;
        QTest::newRow("voice") << QStringList{"+me", "@bob"} << "me" << false;
        QTest::newRow("plain") << QStringList{"me"} << "me" << false;
        QTest::newRow("case-sensitive") << QStringList{"@Me"} << "me" << false;
        QTest::newRow("first match decides") << QStringList{"me", "@me"} << "me" << false;
        QTest::newRow("not listed") << QStringList{"@bob"} << "me" << false;
        QTest::newRow("empty list") << QStringList{} << "me" << false;
        QTest::newRow("empty name") << QStringList{""} << "" << false;
    }

    void isOperatorIn()
    {
        QFETCH(QStringList, names);
        QFETCH(QString, own);
        QFETCH(bool, op);
        QCOMPARE(MemberList::isOperatorIn(names, own), op);
    }

    void sortNames_data()
    {
        QTest::addColumn<QStringList>("names");
        QTest::addColumn<QStringList>("sorted");
        QTest::newRow("example") << QStringList{"+bob", "@Alice", "~zed", "carl", "@al"}
                                 << QStringList{"~zed", "@al", "@Alice", "+bob", "carl"};
        QTest::newRow("all ranks")
            << QStringList{"x", "+x", "%x", "@x", "&x", "~x", ""}
            << QStringList{"~x", "&x", "@x", "%x", "+x", "", "x"};
        QTest::newRow("case ignored within a rank")
            << QStringList{"b", "A", "a2", "C"} << QStringList{"A", "a2", "b", "C"};
        QTest::newRow("empty") << QStringList{} << QStringList{};
    }

    void sortNames()
    {
        QFETCH(QStringList, names);
        QFETCH(QStringList, sorted);
        QCOMPARE(MemberList::sortedNames(names), sorted);
        MemberList::sortNames(names);
        QCOMPARE(names, sorted);
    }

    void insertionByRankEqualsFullSort()
    {
        for (quint32 seed = 1; seed <= 50; ++seed) {
            const QStringList names = randomNames(seed, 200);
            QStringList incremental;
            for (const QString& name : names)
                MemberList::insertByRank(incremental, name);
            const QStringList sorted = MemberList::sortedNames(names);
            QCOMPARE(incremental, sorted);
            for (int i = 1; i < sorted.size(); ++i) {
                QVERIFY(MemberList::statusRank(sorted.at(i - 1))
                        <= MemberList::statusRank(sorted.at(i)));
                QVERIFY(!MemberList::lessByRank(sorted.at(i), sorted.at(i - 1)));
            }
        }
    }

    void insertionCaseInsensitiveEqualsFullSort()
    {
        for (quint32 seed = 100; seed <= 150; ++seed) {
            const QStringList names = randomNames(seed, 200);
            QStringList incremental;
            for (const QString& name : names)
                MemberList::insertCaseInsensitive(incremental, name);
            QStringList sorted = names;
            sorted.sort(Qt::CaseInsensitive);
            // Same order up to names equal ignoring case; those keep arrival order.
            QCOMPARE(incremental.size(), sorted.size());
            for (int i = 0; i < sorted.size(); ++i)
                QCOMPARE(incremental.at(i).toCaseFolded(), sorted.at(i).toCaseFolded());
            std::stable_sort(sorted.begin(), sorted.end(), [](const QString& a, const QString& b) {
                return a.compare(b, Qt::CaseInsensitive) < 0;
            });
            QStringList stable = names;
            std::stable_sort(stable.begin(), stable.end(), [](const QString& a, const QString& b) {
                return a.compare(b, Qt::CaseInsensitive) < 0;
            });
            QCOMPARE(incremental, stable);
        }
    }

    void joinAddsInCaseInsensitiveOrder()
    {
        QStringList names = MemberList::sortedNames({"+bob", "@Alice", "~zed", "carl", "@al"});
        QVERIFY(MemberList::addJoinedMember(names, QStringLiteral("Dave")));
        QCOMPARE(names, (QStringList{"+bob", "@al", "@Alice", "carl", "Dave", "~zed"}));
        QVERIFY(!MemberList::addJoinedMember(names, QStringLiteral("CARL")));
        QVERIFY(MemberList::addJoinedMember(names, QStringLiteral("bob")));
        QCOMPARE(names, (QStringList{"+bob", "@al", "@Alice", "bob", "carl", "Dave", "~zed"}));
        QVERIFY(MemberList::addJoinedMember(names, QStringLiteral("aaron")));
        QCOMPARE(names.indexOf(QStringLiteral("aaron")), 3);
    }

    void joinsEqualAppendThenSort()
    {
        for (quint32 seed = 200; seed <= 230; ++seed) {
            QStringList incremental = MemberList::sortedNames(randomNames(seed, 60));
            QStringList reference = incremental;
            for (const QString& name : randomNames(seed + 1000, 60)) {
                const QString nick = MemberList::stripModePrefix(name);
                bool present = false;
                for (const QString& entry : reference)
                    present = present || entry.compare(nick, Qt::CaseInsensitive) == 0;
                QCOMPARE(MemberList::addJoinedMember(incremental, nick), !present);
                if (!present) {
                    reference.append(nick);
                    std::stable_sort(reference.begin(), reference.end(),
                                     [](const QString& a, const QString& b) {
                                         return a.compare(b, Qt::CaseInsensitive) < 0;
                                     });
                }
                QCOMPARE(incremental, reference);
            }
        }
    }

    void removeAndRename()
    {
        QStringList names{"~zed", "@al", "+bob", "carl", "bobby"};
        QVERIFY(MemberList::containsMember(names, u"BOB"));
        QCOMPARE(MemberList::indexOfMember(names, u"carl"), 3);
        QCOMPARE(MemberList::indexOfMember(names, u"bo"), -1);
        QCOMPARE(MemberList::removeMember(names, u"BOB"), 1);
        QCOMPARE(names, (QStringList{"~zed", "@al", "carl", "bobby"}));
        QCOMPARE(MemberList::removeMember(names, u"nobody"), 0);
        QCOMPARE(MemberList::renameMember(names, u"al", QStringLiteral("alan")), 1);
        QCOMPARE(MemberList::renameMember(names, u"Carl", QStringLiteral("karl")), 1);
        QCOMPARE(names, (QStringList{"~zed", "@alan", "karl", "bobby"}));
        QCOMPARE(MemberList::renameMember(names, u"nobody", QStringLiteral("x")), 0);
        QCOMPARE(names, (QStringList{"~zed", "@alan", "karl", "bobby"}));
    }
};

QUENVAR_TEST_MAIN(TestChatText)
#include "tst_chattext.moc"
