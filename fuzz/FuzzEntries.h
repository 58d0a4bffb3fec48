#pragma once

// What each fuzz target does with one input, shared by the libFuzzer
// executables (fuzz_target.cpp) and by the regression test that replays
// fuzz/regressions/ in the normal build (tests/fuzzregress/). Header only, so
// both builds compile exactly the same code.
//
// Every entry point takes arbitrary bytes, runs the code under test and checks
// a few cheap invariants; a broken invariant prints what was wrong and aborts,
// which libFuzzer reports like any crash.

#include "IRCConnection.h"
#include "IRCParser.h"
#include "InputCommand.h"
#include "IrcText.h"

#include <QAbstractTextDocumentLayout>
#include <QByteArray>
#include <QGuiApplication>
#include <QList>
#include <QPointer>
#include <QString>
#include <QStringDecoder>
#include <QStringList>
#include <QTextBlock>
#include <QTextCursor>
#include <QTextDocument>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

namespace QuenvarFuzz {

[[noreturn]] inline void fail(const char* what, const QString& detail = QString())
{
    std::fprintf(stderr, "fuzz invariant broken: %s\n", what);
    if (!detail.isEmpty())
        std::fprintf(stderr, "  at: %s\n", qPrintable(detail.left(400)));
    std::fflush(stderr);
    std::abort();
}

inline void check(bool condition, const char* what, const QString& detail = QString())
{
    if (!condition)
        fail(what, detail);
}

// The application object the code under test expects, created once. Widgets
// are never used; text documents need a QGuiApplication (offscreen).
inline void ensureApplication()
{
    if (QCoreApplication::instance())
        return;
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    static int argc = 1;
    static char name[] = "quenvar_fuzz";
    static char* argv[] = { name, nullptr };
    // Never destroyed: tearing it down at exit drops Qt's references to the
    // font caches of fontconfig and FreeType without freeing them, which the
    // leak checker would report at every exit.
    static QGuiApplication* app = new QGuiApplication(argc, argv);
    Q_UNUSED(app);
}

// Text from bytes: "FE FF" in front means the rest is raw UTF-16 code units
// (so lone surrogates can be reached); otherwise UTF-8 when valid, ISO-8859-1
// when not, as the connection decodes received lines.
inline QString decodeText(const uint8_t* data, size_t size)
{
    if (size >= 2 && data[0] == 0xFE && data[1] == 0xFF) {
        const qsizetype units = qsizetype((size - 2) / 2);
        QString text(units, Qt::Uninitialized);
        if (units > 0)
            std::memcpy(text.data(), data + 2, size_t(units) * 2);
        return text;
    }
    const QByteArrayView bytes(reinterpret_cast<const char*>(data), qsizetype(size));
    QStringDecoder decoder(QStringConverter::Utf8, QStringConverter::Flag::Stateless);
    QString text = decoder.decode(bytes);
    if (decoder.hasError())
        return QString::fromLatin1(bytes);
    return text;
}

// Signal arguments are read in full, so a dangling or short string shows up
// under AddressSanitizer.
inline size_t& sinkValue()
{
    static size_t value = 0;
    return value;
}
inline void consume(const QString& s)
{
    sinkValue() += qHash(s) + size_t(s.size());
}
inline void consume(const QStringList& list)
{
    for (const QString& s : list)
        consume(s);
}
inline void consume(int v)
{
    sinkValue() += size_t(v);
}
inline void consume(bool v)
{
    sinkValue() += v ? 1 : 0;
}
template <typename... Args> void consumeAll(const Args&... args)
{
    (consume(args), ...);
}

template <typename... Args> void sink(IRCConnection* connection, void (IRCConnection::*signal)(Args...))
{
    QObject::connect(connection, signal, connection, [](Args... args) { consumeAll(args...); });
}

inline void sinkAllSignals(IRCConnection* c)
{
    sink(c, &IRCConnection::connected);
    sink(c, &IRCConnection::registered);
    sink(c, &IRCConnection::disconnected);
    sink(c, &IRCConnection::errorOccurred);
    sink(c, &IRCConnection::rawMessageReceived);
    sink(c, &IRCConnection::serverMessage);
    sink(c, &IRCConnection::privmsgReceived);
    sink(c, &IRCConnection::joinReceived);
    sink(c, &IRCConnection::partReceived);
    sink(c, &IRCConnection::nickChanged);
    sink(c, &IRCConnection::namesList);
    sink(c, &IRCConnection::namesListFinished);
    sink(c, &IRCConnection::topicReceived);
    sink(c, &IRCConnection::quitReceived);
    sink(c, &IRCConnection::kickReceived);
    sink(c, &IRCConnection::listStartReceived);
    sink(c, &IRCConnection::listChannelReceived);
    sink(c, &IRCConnection::listEndReceived);
    sink(c, &IRCConnection::listInfoReceived);
    sink(c, &IRCConnection::whoisUserReceived);
    sink(c, &IRCConnection::whoisServerReceived);
    sink(c, &IRCConnection::whoisOperatorReceived);
    sink(c, &IRCConnection::whoisIdleReceived);
    sink(c, &IRCConnection::whoisChannelsReceived);
    sink(c, &IRCConnection::whoisEndReceived);
    sink(c, &IRCConnection::whoisAwayReceived);
    sink(c, &IRCConnection::watchStatus);
    sink(c, &IRCConnection::ownNickChanged);
}

// A line the connection would write: exactly one protocol line.
inline void checkSentLine(const QString& line)
{
    consume(line);
    for (const QChar c : line) {
        const char16_t u = c.unicode();
        check(u != u'\r' && u != u'\n' && u != u'\0', "sent line holds CR, LF or NUL", line);
    }
}

// parser: the input, decoded, is cut at line feeds and each piece is parsed
// (IRCParser::parse) and handled by one connection whose sends are captured.
inline void parserInput(const uint8_t* data, size_t size)
{
    ensureApplication();
    const QString text = decodeText(data, size);
    IRCConnection connection;
    sinkAllSignals(&connection);
    connection.setSendObserver(checkSentLine);
    for (const QStringView line : QStringView(text).split(u'\n'))
        connection.handleMessage(IRCParser::parse(line.toString()));
}

// framing: a fresh connection receives the input as bytes from the socket,
// in several chunks.
//   byte 0: bits 0-2 the number of cuts; bit 7 repeats the rest until it is
//           past the longest line kept; bit 6 deletes the connection from
//           the handler of received line number (bits 3-5).
//   then one byte per cut: its place, in 255ths of the stream.
inline void framingInput(const uint8_t* data, size_t size)
{
    ensureApplication();
    if (size == 0)
        return;
    const uint8_t header = data[0];
    const int cutCount = header & 7;
    const bool amplify = (header & 0x80) != 0;
    const bool deleteInHandler = (header & 0x40) != 0;
    const int deleteAtLine = (header >> 3) & 7;
    size_t pos = 1;
    QList<int> cutPlaces;
    for (int i = 0; i < cutCount && pos < size; ++i)
        cutPlaces.append(data[pos++]);
    QByteArray stream(reinterpret_cast<const char*>(data + pos), qsizetype(size - pos));
    if (amplify && !stream.isEmpty())
        stream = stream.repeated((IRCConnection::MaxLineLength + 2) / stream.size() + 2);

    QList<qsizetype> cuts;
    for (const int place : cutPlaces)
        cuts.append(stream.size() * place / 255);
    cuts.append(stream.size());
    std::sort(cuts.begin(), cuts.end());

    auto* connection = new IRCConnection;
    const QPointer<IRCConnection> alive(connection);
    sinkAllSignals(connection);
    connection->setSendObserver(checkSentLine);
    int lineNumber = 0;
    QObject::connect(connection, &IRCConnection::rawMessageReceived, connection, [&](const QString& line) {
        check(!line.isEmpty(), "empty line delivered");
        check(line.size() <= IRCConnection::MaxLineLength, "oversize line delivered", line.left(80));
        check(!line.contains(u'\n'), "delivered line holds LF", line);
        if (deleteInHandler && lineNumber++ == deleteAtLine)
            delete connection;
    });

    qsizetype from = 0;
    for (const qsizetype to : cuts) {
        if (!alive)
            break;
        connection->receiveBytes(stream.mid(from, to - from));
        from = to;
    }
    delete alive.data();
}

// Every "<" of the HTML starts one of the tags the converters write, every
// ">" ends one, and "&" only starts the entities they write. With links, an
// anchor's target is a web address or a bare e-mail address and its text is
// the target itself.
inline void checkTopicHtml(const QString& html, bool withLinks)
{
    static const QLatin1String plainTags[]
        = { QLatin1String("<b>"), QLatin1String("</b>"), QLatin1String("<i>"), QLatin1String("</i>"),
              QLatin1String("<u>"), QLatin1String("</u>"), QLatin1String("<s>"), QLatin1String("</s>"),
              QLatin1String("<tt>"), QLatin1String("</tt>"), QLatin1String("</span>") };
    static const QLatin1String entities[]
        = { QLatin1String("&lt;"), QLatin1String("&gt;"), QLatin1String("&amp;"), QLatin1String("&quot;") };
    const QStringView view(html);
    qsizetype i = 0;
    while (i < view.size()) {
        const QChar c = view.at(i);
        if (c == u'>' || c == u'"')
            fail("raw > or \" outside a tag", html);
        if (c == u'&') {
            bool known = false;
            for (const QLatin1String entity : entities) {
                if (view.mid(i).startsWith(entity)) {
                    known = true;
                    break;
                }
            }
            check(known, "& that starts no known entity", html);
            ++i;
            continue;
        }
        if (c != u'<') {
            ++i;
            continue;
        }
        const QStringView rest = view.mid(i);
        bool matched = false;
        for (const QLatin1String tag : plainTags) {
            if (rest.startsWith(tag)) {
                i += tag.size();
                matched = true;
                break;
            }
        }
        if (matched)
            continue;
        const QLatin1String spanOpen("<span style=\"");
        if (rest.startsWith(spanOpen)) {
            qsizetype j = spanOpen.size();
            while (j < rest.size() && rest.at(j) != u'"') {
                const char16_t u = rest.at(j).unicode();
                const bool allowed = (u >= u'a' && u <= u'z') || (u >= u'0' && u <= u'9') || u == u'#'
                    || u == u':' || u == u';' || u == u'-';
                check(allowed, "unexpected character in a style", html);
                ++j;
            }
            check(rest.mid(j).startsWith(QLatin1String("\">")), "unterminated span", html);
            i += j + 2;
            continue;
        }
        const QLatin1String anchorOpen("<a href=\"");
        check(withLinks && rest.startsWith(anchorOpen), "unexpected tag", rest.left(40).toString());
        const qsizetype quote = rest.indexOf(u'"', anchorOpen.size());
        check(quote > 0 && rest.mid(quote).startsWith(QLatin1String("\">")), "unterminated anchor", html);
        const QStringView href = rest.mid(anchorOpen.size(), quote - anchorOpen.size());
        check(!href.contains(u'<') && !href.contains(u'>'), "markup inside an href", html);
        const bool web
            = href.startsWith(QLatin1String("http://")) || href.startsWith(QLatin1String("https://"));
        bool email = href.contains(u'@') && !web;
        for (const QChar h : href) {
            const char16_t u = h.unicode();
            email = email
                && ((u >= u'a' && u <= u'z') || (u >= u'A' && u <= u'Z') || (u >= u'0' && u <= u'9')
                    || u == u'.' || u == u'_' || u == u'%' || u == u'+' || u == u'-' || u == u'@');
        }
        check(web || email, "link target neither web nor e-mail address", href.toString());
        const qsizetype textStart = quote + 2;
        check(rest.mid(textStart).startsWith(href), "anchor text differs from its target", html);
        check(rest.mid(textStart + href.size()).startsWith(QLatin1String("</a>")), "unclosed anchor", html);
        i += textStart + href.size() + 4;
    }
}

// irctext: IRC codes to HTML, then links; and linkifyHtml on the raw input
// as if it were HTML (it must not crash, whatever it gets).
inline void irctextInput(const uint8_t* data, size_t size)
{
    ensureApplication();
    const QString text = decodeText(data, size);
    const QString html = IrcText::ircToHtml(text);
    checkTopicHtml(html, false);
    const QString topic = IrcText::ircTopicToHtml(text);
    checkTopicHtml(topic, true);
    check(topic == IrcText::linkifyHtml(html), "ircTopicToHtml differs from its two steps");
    consume(IrcText::linkifyHtml(text));
}

// links: the segments of a chat message, then the message inserted into a
// document as one row.
inline void linksInput(const uint8_t* data, size_t size)
{
    ensureApplication();
    const QString text = decodeText(data, size);
    const QList<IrcText::LinkSegment> segments = IrcText::linkSegments(text);
    int previousEnd = 0;
    for (const IrcText::LinkSegment& s : segments) {
        check(s.start >= previousEnd, "segments unsorted or overlapping", text);
        check(s.start < s.end && s.end <= text.size(), "segment out of range", text);
        check(s.displayText.size() == s.end - s.start, "display text does not fit the range", text);
        const bool web
            = s.href.startsWith(QLatin1String("http://")) || s.href.startsWith(QLatin1String("https://"));
        if (web)
            check(s.href == s.displayText, "web link target differs from its text", s.href);
        else
            check(s.href == QLatin1String("mailto:") + s.displayText && s.displayText.contains(u'@'),
                "link neither web nor e-mail address", s.href);
        previousEnd = s.end;
    }

    QTextDocument document;
    document.documentLayout(); // as in a view, which always lays its document out
    QTextCursor cursor(&document);
    QTextCharFormat format;
    // One row is one change of the document: a change per piece would lay
    // the growing row out again for every link.
    int changes = 0;
    QObject::connect(&document, &QTextDocument::contentsChange, &document, [&changes] { ++changes; });
    IrcText::insertMessageWithLinks(cursor, text, format);
    check(changes <= 1, "row inserted as several document changes", text);
    check(document.blockCount() == 1, "message split into several rows", text);
    const QTextBlock block = document.firstBlock();
    check(block.text() == IrcText::singleBlockText(text), "row text differs from the message", text);
    for (auto it = block.begin(); !it.atEnd(); ++it) {
        const QTextCharFormat f = it.fragment().charFormat();
        if (!f.isAnchor())
            continue;
        const QString href = f.anchorHref();
        check(href.startsWith(QLatin1String("http://")) || href.startsWith(QLatin1String("https://"))
                || href.startsWith(QLatin1String("mailto:")),
            "row link with another target", href);
    }
}

// inputcommand: the first line of the input is the current tab when there
// are several lines (else "#test"), the rest is the submitted line.
inline void inputCommandInput(const uint8_t* data, size_t size)
{
    ensureApplication();
    const QString all = decodeText(data, size);
    const qsizetype lf = all.indexOf(u'\n');
    const QString tab = lf < 0 ? QStringLiteral("#test") : all.left(lf);
    const QString line = lf < 0 ? all : all.mid(lf + 1);
    const InputCommand command = InputCommand::parse(line, tab);
    using Type = InputCommand::Type;
    const QString trimmed = line.trimmed();
    check((command.type == Type::Empty) == trimmed.isEmpty(), "blank line not Empty, or the reverse", line);
    if (!trimmed.isEmpty() && !trimmed.startsWith(u'/')) {
        if (tab == QLatin1String("Server"))
            check(command.type == Type::Feedback, "chat text on the server tab not refused", line);
        else
            check(command.type == Type::Message && command.text == trimmed && command.target == tab,
                "chat text not sent as it is", line);
    }
    switch (command.type) {
    case Type::Join:
    case Type::Autojoin:
        check(command.target.startsWith(u'#'), "channel without #", line);
        break;
    case Type::Nick:
    case Type::Msg:
    case Type::Whois:
        check(!command.target.isEmpty() && !command.target.contains(u' '), "bad target", line);
        break;
    case Type::Away:
    case Type::Feedback:
    case Type::Unknown:
        check(!command.text.isEmpty(), "empty text", line);
        break;
    default:
        break;
    }
    consumeAll(command.name, command.target, command.text);
}

} // namespace QuenvarFuzz
