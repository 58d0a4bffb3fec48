// Text rendering free of widgets (IRC formatting, links, hostile topics)
// and the member list's order and rows. (How rows show hostile text is
// checked in tests/chatview and tests/hostile.)

#include "IrcText.h"
#include "MemberList.h"
#include "MemberListModel.h"
#include "TestMain.h"

#include <QElapsedTimer>
#include <QFont>
#include <QRandomGenerator>
#include <QRegularExpression>
#include <QTextBlock>
#include <QTextDocument>
#include <QTextFragment>

#include <algorithm>

namespace {

const auto ctl = [](char16_t code) { return QString(QChar(code)); };
const QString B = ctl(0x02), C = ctl(0x03), I = ctl(0x1D), U = ctl(0x1F);
// A colour span as ircToHtml writes it around `text`.
const auto span = [](const QString& style, const QString& text) { return "<span style=\"" + style + "\">" + text + "</span>"; };

// Rows of text_data() for one function: name, input, expected.
void addTextRows(const char* function, std::initializer_list<std::tuple<const char*, QString, QString>> rows)
{
    for (const auto& [name, input, expected] : rows)
        QTest::addRow("%s: %s", function, name) << QString(function) << input << expected;
}

const auto isAllowedTarget = [](const QString& href) { return QRegularExpression("^(https?://|mailto:)").match(href).hasMatch(); };

// What `function` makes of input, as one string:
//  html:     ircToHtml();
//  linkify:  linkifyHtml();
//  runs:     formatMessage(): the text shown, then each formatted run as
//            "start+length" with b, i, u, s, m (monospace), fg, bg;
//  segments: linkSegments(), each as "start-end href";
//  topic:    the topic bar's document (ircTopicToHtml): the text shown where
//            it differs from the input, then the link targets, and what must
//            never be there (more than one block, an image).
QString describe(const QString& function, const QString& input)
{
    QStringList shown;
    if (function == "html")
        return IrcText::ircToHtml(input);
    if (function == "linkify")
        return IrcText::linkifyHtml(input);
    if (function == "runs") {
        const IrcText::FormattedText formatted = IrcText::formatMessage(input);
        shown << formatted.text;
        for (const QTextLayout::FormatRange& r : formatted.formats) {
            const QTextCharFormat& f = r.format;
            QString run = QString::number(r.start) + "+" + QString::number(r.length);
            const QList<std::pair<bool, QString>> flags { { f.fontWeight() == QFont::Bold, " b" },
                { f.fontItalic(), " i" }, { f.fontUnderline(), " u" }, { f.fontStrikeOut(), " s" },
                { f.hasProperty(QTextFormat::FontFamilies), " m" },
                { f.hasProperty(QTextFormat::ForegroundBrush), " fg" + f.foreground().color().name() },
                { f.hasProperty(QTextFormat::BackgroundBrush), " bg" + f.background().color().name() } };
            for (const auto& [on, name] : flags)
                run += on ? name : QString();
            shown << run;
        }
        if (IrcText::stripFormatting(input) != formatted.text)
            shown << "stripFormatting differs";
        return shown.join(" | ");
    }
    if (function == "segments") {
        for (const IrcText::LinkSegment& s : IrcText::linkSegments(input))
            shown << QString::number(s.start) + "-" + QString::number(s.end) + " " + s.href
                    + (s.displayText == input.mid(s.start, s.end - s.start) ? "" : " (shown otherwise)");
        return shown.join(" | ");
    }
    QTextDocument doc;
    doc.setHtml(IrcText::ircTopicToHtml(input));
    if (doc.toPlainText() != input)
        shown << "shown " + doc.toPlainText();
    for (QTextBlock block = doc.begin(); block.isValid(); block = block.next())
        for (auto it = block.begin(); !it.atEnd(); ++it)
            shown << (it.fragment().charFormat().isAnchor() ? it.fragment().charFormat().anchorHref() : QString());
    shown << (doc.blockCount() == 1 ? QString() : "blocks") << (doc.toHtml().contains("<img") ? "img" : QString());
    shown.removeAll(QString());
    return shown.join(" | ");
}

QStringList randomNames(quint32 seed, int count)
{
    QRandomGenerator rng(seed);
    const QStringList prefixes = { "", "", "~", "&", "@", "%", "+" };
    const QString alphabet = QStringLiteral("aAbBzZ_[9");
    QStringList names;
    for (int i = 0; i < count; ++i) {
        QString name = prefixes.at(rng.bounded(int(prefixes.size())));
        for (int length = rng.bounded(4); length > 0; --length) // empty names included
            name += alphabet.at(rng.bounded(int(alphabet.size())));
        names.append(name);
    }
    return names;
}

// The join order by its definition: a stable sort ignoring case, symbols included.
QStringList joinSorted(QStringList names)
{
    std::stable_sort(names.begin(), names.end(),
        [](const QString& a, const QString& b) { return a.compare(b, Qt::CaseInsensitive) < 0; });
    return names;
}

} // namespace

class TestChatText : public QObject
{
    Q_OBJECT

private slots:
    // A nick's colour is a hash of the nick exactly as given.
    void nickColor()
    {
        const QList<std::pair<QString, QString>> colours { { "", "#666666" }, { "a", "#424242" },
            { "zed", "#558b2f" }, { "~zed", "#00b0ff" }, { "NickServ", "#558b2f" },
            { "averyveryverylongnickname", "#d500f9" }, { "\U0001F600x", "#ad1457" } };
        for (const auto& [nick, colour] : colours)
            QCOMPARE(IrcText::nickColor(nick).name(), colour);
    }

    // IRC formatting, links and hostile text, function by function (see describe()).
    void text_data()
    {
        QTest::addColumn<QString>("function");
        QTest::addColumn<QString>("input");
        QTest::addColumn<QString>("expected");
        const QString red = QStringLiteral("color:#ff0000;");
        const auto onSame = [](const char* fg, const char* bg) {
            return span(QStringLiteral("color:%1;background-color:%2;").arg(fg, bg), "x");
        };
        addTextRows("html", {
            { "empty", "", "" },
            { "bold, italic and underline toggle", B + "b" + B + I + "i" + I + U + "u" + U + " x", "<b>b</b><i>i</i><u>u</u> x" },
            { "open tags closed at the end", B + I + U + "x", "<b><i><u>x</u></i></b>" },
            { "colour closed before tags", B + C + "4x", "<b>" + span(red, "x") + "</b>" },
            { "two digits, zero is white", C + "04red" + C + "0x", span(red, "red") + span("color:#ffffff;", "x") },
            { "two digits at most, 99 is the default", C + QString(1000, '9') + "x", QString(998, '9') + "x" },
            { "a digit after two is text", C + "032024", span("color:#008000;", "2024") },
            { "a third digit after one is text", C + "2" + "2024", span("color:#004747;", "024") },
            { "extended colours", C + "52,88x", span("color:#ff0000;background-color:#000000;", "x") },
            { "foreground and background", C + "4,2x", onSame("#ff0000", "#000080") },
            { "same dark colour: white text", C + "4,4x", onSame("#ffffff", "#ff0000") },
            { "same light colour or grey 128: black text", C + "8,8x" + C + "14,14x",
                onSame("#000000", "#ffff00") + onSame("#000000", "#808080") },
            { "99 background is the default", C + "15,99x", span("color:#c0c0c0;", "x") },
            { "background kept by a new foreground", C + "4,2a" + C + "3b",
                onSame("#ff0000", "#000080").replace("x", "a")
                    + onSame("#008000", "#000080").replace("x", "b") },
            { "comma without digit is consumed", C + "4,x", span(red, "x") },
            { "no empty tags", C + "4," + B + B, "" },
            { "bare code closes, comma stays text", C + "4a" + C + ",5x", span(red, "a") + ",5x" },
            { "new colour replaces old", C + "4a" + C + "5b", span(red, "a") + span("color:#800000;", "b") },
            { "code at the end", "x" + C, "x" },
            { "only ascii digits count", C + "\u0663x", "\u0663x" },
            { "escaping, entities too", "<b>&\"x\"</b>&lt;", "&lt;b&gt;&amp;&quot;x&quot;&lt;/b&gt;&amp;lt;" },
            { "reset closes everything", B + I + C + "4a" + ctl(0x0F) + "b",
                "<b><i>" + span(red, "a") + "</i></b>b" },
            { "tags closed out of order still nest", B + "a" + I + "b" + B + "c" + I, "<b>a<i>b</i></b><i>c</i>" },
            { "reverse swaps colours, white on black without", ctl(0x16) + "v" + ctl(0x16) + C + "4,2" + ctl(0x16) + "x",
                span("color:#ffffff;background-color:#000000;", "v") + onSame("#000080", "#ff0000") },
            { "strikethrough and monospace", ctl(0x1E) + "s" + ctl(0x1E) + ctl(0x11) + "m", "<s>s</s><tt>m</tt>" },
            { "hex colour", ctl(0x04) + "FF8000,000000x" + ctl(0x04) + "zz", onSame("#ff8000", "#000000") + "zz" },
            { "other controls shown, breaks as spaces", "a" + ctl(0x01) + ctl(0x7F) + "\n" + ctl(0x00),
                "a\u2401\u2421 \u2400" },
        });
        addTextRows("runs", {
            { "plain", "hello", "hello" },
            { "styles, reset", B + "b" + B + I + "i" + I + U + "u" + ctl(0x1E) + "s" + ctl(0x0F) + "n",
                "biusn | 0+1 b | 1+1 i | 2+1 u | 3+1 u s" },
            { "colours, reverse, monospace", C + "4,2x" + C + "y" + ctl(0x16) + "r" + ctl(0x0F) + ctl(0x11) + "m",
                "xyrm | 0+1 fg#ff0000 bg#000080 | 2+1 fg#ffffff bg#000000 | 3+1 m" },
            { "hex colour, digit after a colour", ctl(0x04) + "123456x" + C + "032024", "x2024 | 0+1 fg#123456 | 1+4 fg#008000" },
            { "controls shown, breaks and tabs as spaces", "a" + ctl(0x00) + "b" + ctl(0x07) + "c" + ctl(0x7F) + "\tb\nc\u2029d",
                "a\u2400b\u2407c\u2421 b c d" },
        });
        const auto a = [](const QString& href) { return "<a href=\"" + href + "\">" + href + "</a>"; };
        addTextRows("linkify", {
            { "web address", "see http://a.com now", "see " + a("http://a.com") + " now" },
            { "e-mail without mailto", "mail bob@example.org.", "mail " + a("bob@example.org") + "." },
            { "two links", "https://x.org/p?q=1 x@y.de", a("https://x.org/p?q=1") + " " + a("x@y.de") },
            { "inside a tag is skipped", "<a href=\"http://a.com\">x</a><i title=\"bob@example.org\">x</i> c@d.com",
                "<a href=\"http://a.com\">x</a><i title=\"bob@example.org\">x</i> " + a("c@d.com") },
            { "after a closed tag is linked", "<b>x</b> http://a.com", "<b>x</b> " + a("http://a.com") },
            { "in formatting is linked", "<b>http://a.com</b>", "<b>" + a("http://a.com") + "</b>" },
            { "an anchor's text is left", "<A href=\"x\">http://a.com</a> c@d.com",
                "<A href=\"x\">http://a.com</a> " + a("c@d.com") },
            { "address ends where a tag begins", "x http://a.com<b>y</b>",
                "x " + a("http://a.com") + "<b>y</b>" },
            { "scheme alone before a tag", "http://<b>x</b>", "http://<b>x</b>" },
            { "ampersands: entity kept, raw one escaped", "http://a.com/?x=1&amp;y=2&z=3",
                a("http://a.com/?x=1&amp;y=2&amp;z=3") },
            { "quote cannot leave the attribute", "http://a.com/\"onclick=x",
                a("http://a.com/&quot;onclick=x") },
            { "e-mail inside an address is not linked twice", "http://s.com/u@v.org/x",
                a("http://s.com/u@v.org/x") },
            { "not addresses: upper case, javascript, ftp", "HTTP://A.COM javascript:alert(1) ftp://a.com",
                "HTTP://A.COM javascript:alert(1) ftp://a.com" },
        });
        // The topic bar shows the text as typed, with only web or mail targets.
        addTextRows("topic", {
            { "image, anchor, entities, placeholders",
                "\"><img src=x onerror=alert(1)> <a href=\"javascript:alert(1)\">click</a> &lt;b&gt; &amp; &#60; %1 %2 %99", "" },
            { "long", QString(10000, QLatin1Char('<')), "" },
            { "javascript around an address", "javascript:alert('http://e.vil/') x", "http://e.vil/')" },
            { "quote breakout", "http://a.com/\"><img src=x onerror=y>", "http://a.com/\"><img" },
            { "e-mail", "ops: root@example.com", "root@example.com" },
            { "escaped once", "Rules: http://r.org/?a=1&b=2 <be nice>", "http://r.org/?a=1&b=2" },
            { "address in angle brackets", "<http://a.com>", "http://a.com>" },
        });
        // Links in chat rows: web addresses up to white space, then e-mail
        // addresses that overlap none, with "mailto:".
        addTextRows("segments", {
            { "web address", "a http://x.com/path b", "2-19 http://x.com/path" },
            { "e-mail gets mailto", "mail bob@example.org!", "5-20 mailto:bob@example.org" },
            { "web address wins over an overlapping e-mail", "bob@example.org and http://site.com/u/alice@example.net/x",
                "0-15 mailto:bob@example.org | 20-57 http://site.com/u/alice@example.net/x" },
            { "sorted by start", "http://a.b x@y.zz https://c.d", "0-10 http://a.b | 11-17 mailto:x@y.zz | 18-29 https://c.d" },
            { "mailto text keeps one prefix in the target", "mailto:bob@x.org", "7-16 mailto:bob@x.org" },
            { "address runs to white space", "(http://a.b/c), next", "1-15 http://a.b/c)," },
            { "javascript around an address", "javascript:window.open('http://e.vil')", "24-38 http://e.vil')" },
            { "nothing linkable",
                "javascript:alert(1) ftp://a.com file:///etc data:text/html,x HTTP://A.COM http:// www.a.com user@host", "" },
        });
    }

    void text()
    {
        QFETCH(QString, function);
        QFETCH(QString, input);
        QTEST(describe(function, input), "expected");
    }

    // Huge or pathological messages: one row, only allowed targets, and no
    // pathological slowdown (seconds per message; the bound is generous).
    // Random text never gets any other link target in a row.
    void hugeAndRandomMessages()
    {
        const QList<std::pair<QString, int>> cases { { "http://" + QString(10000, QLatin1Char('a')), 1 },
            { QStringLiteral("a.").repeated(2500) + "@" + QStringLiteral("b.").repeated(2500), 0 },
            { QStringLiteral("x@y.zz ").repeated(1400), 1400 }, { QStringLiteral("http://").repeated(1400), 1 } };
        for (const auto& [text, links] : cases) {
            QElapsedTimer timer;
            timer.start();
            const QList<IrcText::LinkSegment> segments = IrcText::linkSegments(text);
            QCOMPARE(segments.size(), links);
            QVERIFY(std::all_of(segments.cbegin(), segments.cend(), [](const auto& s) { return isAllowedTarget(s.href); }));
            QCOMPARE(IrcText::formatMessage(text).text, text);
            QTextDocument topic;
            topic.setHtml(IrcText::ircTopicToHtml(text));
            QCOMPARE(topic.toPlainText(), text);
            QVERIFY2(timer.elapsed() < 10000, qPrintable(QString::number(timer.elapsed())));
        }
        QRandomGenerator rng(20261122);
        const QStringList pieces = { "http://", "https://", "javascript:", "mailto:", "@", ".", "com", "a", "B", " ",
            "<", ">", "\"", "&", "'", ":", "/", "data:", "\n", "%1", "www." };
        for (int round = 0; round < 300; ++round) {
            QString text;
            for (int i = 1 + rng.bounded(30); i > 0; --i)
                text += pieces.at(rng.bounded(int(pieces.size())));
            for (const IrcText::LinkSegment& s : IrcText::linkSegments(text))
                QVERIFY2(isAllowedTarget(s.href) && text.mid(s.start, s.end - s.start) == s.displayText, qPrintable(text));
        }
    }

    // ---- member list --------------------------------------------------
    // Ranks by the leading symbol (half-op and up count as operators), the
    // NAMES order, the own entry's marker, and the operator test on the own
    // entry (case kept, the first match decides).
    void modeSymbols()
    {
        const QList<std::tuple<QString, QString, int>> cases { { "~a", "a", 1 }, { "&a", "a", 2 }, { "@a", "a", 3 },
            { "%a", "a", 4 }, { "+a", "a", 5 }, { "a", "a", 6 }, { "", "", 6 }, { "!a", "!a", 6 }, { "@+a", "a", 3 },
            { "@", "", 3 }, { "a@b", "a@b", 6 } };
        for (const auto& [name, stripped, rank] : cases) {
            QCOMPARE(MemberList::stripModePrefix(name), stripped);
            QCOMPARE(MemberList::statusRank(name), rank);
            QCOMPARE(MemberList::isOperatorEntry(name), rank <= 4);
        }
        QCOMPARE(MemberList::sortedNames({ "x", "+x", "%x", "@x", "&x", "~x", "", "@A", "@b" }),
            (QStringList { "~x", "&x", "@A", "@b", "@x", "%x", "+x", "", "x" }));
        QCOMPARE(MemberList::memberNick(QStringLiteral("\u25cf @me")), QStringLiteral("me"));
        QCOMPARE(MemberList::memberNick(QStringLiteral("\u25cfme")), QStringLiteral("\u25cfme"));
        QVERIFY(MemberList::isOperatorIn({ "bob", "%me" }, "me") && !MemberList::isOperatorIn({ "+me", "@bob" }, "me"));
        QVERIFY(!MemberList::isOperatorIn({ "@Me" }, "me") && !MemberList::isOperatorIn({ "me", "@me" }, "me"));
    }

    // Binary insertion, equal names included, gives exactly the full stable
    // sort, by rank and by name (case ignored, symbols included: the join order).
    void insertionsEqualStableSort()
    {
        for (quint32 seed = 1; seed <= 50; ++seed) {
            const QStringList names = randomNames(seed, 200);
            QStringList byRank, byCase;
            for (const QString& name : names) {
                MemberList::insertByRank(byRank, name);
                MemberList::insertCaseInsensitive(byCase, name);
            }
            QCOMPARE(byRank, MemberList::sortedNames(names));
            QCOMPARE(byCase, joinSorted(names));
        }
    }

    // The visible member rows: a fill keeps its order, single members come at
    // the end, go or are renamed where they are (the first row with exactly
    // that text). "+name" adds, "-name" removes, "old>new" renames.
    void memberRows()
    {
        const QString own = MemberList::ownMarker();
        const QList<std::tuple<QStringList, QStringList, QStringList>> cases {
            { { "~zed", "@al", "bob" }, { "+aaron", "+@zz" }, { "~zed", "@al", "bob", "aaron", "@zz" } },
            { { "~zed", "@al", "bob" }, { "-al", "-BOB", "-@al" }, { "~zed", "bob" } },
            { { "~zed", "@al", "bob" }, { "@al>@alan", "bob>+bob", "nobody>x" }, { "~zed", "@alan", "+bob" } },
            { { "a", "b", "a" }, { "a>c", "-a", "+a" }, { "c", "b", "a" } },
            { { own + "@me", "bob" }, { own + "@me>" + own + "me" }, { own + "me", "bob" } },
        };
        for (const auto& [filled, steps, rows] : cases) {
            MemberListModel model;
            model.fill(filled);
            for (const QString& step : steps) {
                if (step.startsWith(QLatin1Char('+')))
                    model.addMember(step.mid(1));
                else if (step.startsWith(QLatin1Char('-')))
                    model.removeMember(step.mid(1));
                else
                    model.renameMember(step.section(QLatin1Char('>'), 0, 0), step.section(QLatin1Char('>'), 1));
            }
            QCOMPARE(model.rowCount(), rows.size());
            for (int row = 0; row < rows.size(); ++row) {
                QCOMPARE(model.index(row).data().toString(), rows.at(row));
                QCOMPARE(model.rowOf(rows.at(row)), rows.indexOf(rows.at(row)));
                QCOMPARE(model.rowOfNick(MemberList::memberNick(rows.at(row)).toUpper()), row);
            }
            QCOMPARE(model.rowOf(QStringLiteral("nobody")), -1);
        }

        // Thousands of changes in a big list (most of them removals) against
        // a plain list doing the same; a row's font stays with it.
        QStringList plain;
        for (int i = 0; i < 3000; ++i)
            plain << QStringLiteral("n%1").arg(i);
        MemberListModel model;
        model.fill(plain);
        const QString marked = QStringLiteral("n2999");
        model.setData(model.index(model.rowOf(marked)), QFont(QStringLiteral("Serif")), Qt::FontRole);
        QRandomGenerator random(3);
        for (int step = 0; step < 6000; ++step) {
            const QString name = plain.at(random.bounded(int(plain.size())));
            if (name == marked)
                continue;
            if (step % 4 == 0) {
                model.addMember(name + QLatin1Char('x'));
                plain.append(name + QLatin1Char('x'));
            } else if (step % 4 == 1) {
                model.renameMember(name, name + QLatin1Char('y'));
                plain[plain.indexOf(name)] = name + QLatin1Char('y');
            } else {
                model.removeMember(name);
                plain.removeAt(plain.indexOf(name));
            }
            for (int row = 0; step % 500 == 0 && row < plain.size(); ++row)
                QCOMPARE(model.memberAt(row), plain.at(row));
        }
        QCOMPARE(model.rowCount(), plain.size());
        const QModelIndex index = model.index(model.rowOf(marked));
        QCOMPARE(index.row(), plain.indexOf(marked));
        QCOMPARE(qvariant_cast<QFont>(index.data(Qt::FontRole)).family(), QStringLiteral("Serif"));
    }
};

QUENVAR_TEST_MAIN(TestChatText)
#include "tst_chattext.moc"
