#!/usr/bin/env python3
"""Writes the seed corpus of every fuzz target into fuzz/corpus/<target>/.

The seeds are server lines as an InspIRCd server sends them (a capture
transcript with lines marked '<<', given as the only argument) plus hand-made
hostile inputs. The corpus is committed; run this only to rebuild it.
"""

import hashlib
import os
import re
import shutil
import sys

HERE = os.path.dirname(os.path.abspath(__file__))
CORPUS = os.path.join(HERE, "corpus")


def received_sections(path):
    """[(title, [line bytes])] for every section of the transcript."""
    sections = []
    title, lines = None, []
    with open(path, encoding="utf-8") as transcript:
        for raw in transcript:
            raw = raw.rstrip("\n")
            if raw.startswith("====="):
                if lines:
                    sections.append((title, lines))
                title, lines = raw.strip("= "), []
                continue
            m = re.match(r"^\[[^\]]*\] << (.*)$", raw)
            if m:
                lines.append(m.group(1).replace("\\x01", "\x01").encode("utf-8"))
    if lines:
        sections.append((title, lines))
    return sections


def trailing(line):
    text = line[1:] if line.startswith(b":") else line
    at = text.find(b" :")
    return text[at + 2:] if at >= 0 else None


HOSTILE_TEXT = [
    b"A" * 5000,
    b"".join(bytes([c]) for c in range(1, 32)) + b" C0 controls",
    b"nul\x00inside\x00",
    b"\xff\xfe invalid \xc0\xaf overlong \xed\xa0\x80 surrogate \xf4\x90\x80\x80 too big",
    b"caf\xe9 latin-1",
    "emoji \U0001F600 and \u2028 line sep \u2029 para \ufdd0 \ufffc".encode("utf-8"),
    b"<script>alert(1)</script>",
    b"<a href=\"javascript:alert(1)\">click</a> javascript:alert(1)",
    b"%1 %2 %3 %L1 %%1",
    b"\x0304,12red on blue\x03 \x02bold\x02 \x1ditalic\x1d \x1funderline\x1f \x03plain",
    b"\x03" + b"9" * 40 + b"," + b"9" * 40 + b"x",
    b"\x0301,01same\x0300,00same\x03,5comma",
    b"see http://example.com/a?b=1&c=\"2\"<b>x</b> and https://x.y/z>w",
    b"mail bob@example.com, mailto:x@y.zz or a@b.c@d.ee",
    b"http://a.b/&amp;&lt;&#60;&#x3c;&bogus; &",
    b"\x02http://bold.example/\x02 \x1fuser@under.line\x1f",
    b"http://" + b"x" * 3000,
    b"a@" + b"b." * 1000 + b"cc",
    b"\xfe\xff" + b"\x00\xd8h\x00t\x00t\x00p\x00:\x00/\x00/\x00a\x00\x00\xdc\x00\xd8",
]


def write(target, name, data):
    folder = os.path.join(CORPUS, target)
    os.makedirs(folder, exist_ok=True)
    digest = hashlib.sha1(data).hexdigest()[:12]
    with open(os.path.join(folder, f"{name}-{digest}"), "wb") as out:
        out.write(data)


def main():
    if len(sys.argv) != 2:
        sys.exit("usage: make_seeds.py TRANSCRIPT")
    sections = received_sections(sys.argv[1])
    shutil.rmtree(CORPUS, ignore_errors=True)

    seen = set()
    texts = set()
    for _, lines in sections:
        for line in lines:
            if line not in seen:
                seen.add(line)
                write("parser", "wire", line)
            t = trailing(line)
            if t:
                texts.add(t)
    for index, (_, lines) in enumerate(sections):
        write("parser", "session", b"\n".join(lines))
        body = b"\r\n".join(lines) + b"\r\n"
        cuts = bytes([(37 * (index + 1) + 60 * k) % 256 for k in range(index % 8)])
        write("framing", "session", bytes([index % 8]) + cuts + body)

    prefix = b":evil!e@host PRIVMSG #test :"
    for text in HOSTILE_TEXT:
        for target in ("irctext", "links"):
            write(target, "hostile", text)
        write("parser", "hostile", prefix + text)
        write("parser", "hostile", b":irc.test 332 alice #test :" + text)
        write("inputcommand", "hostile", b"#test\n" + text)
        write("inputcommand", "hostile", b"#test\n/msg bob " + text)
    for text in sorted(texts):
        for target in ("irctext", "links"):
            write(target, "wire", text)

    for line in [
        b"PING :irc.test", b"PING", b":n JOIN", b":n JOIN :#c", b"ERROR :Closing link",
        b":" + b"n" * 5000 + b"!u@h NICK :x", b":s 353 a = #never :@a +b c " * 3,
        b":s 317 a bob 12 99999999999999999999 :seconds", b":s 317 a bob x -9223372036854775808",
        b":s 322 a #c 2147483647 :t", b":s 322 a #d -2147483648 :t", b":s 999 a :unlisted",
        b":s 433 * alice :in use", b"::: :: :", b": x", b"   ", b"\r\r", b"A\tB\x0bC\x0cD",
    ]:
        write("parser", "hostile", line)

    registration = b"\r\n".join(sections[0][1]) + b"\r\n"
    for header, body in [
        (b"\x80", b"A"), (b"\x83\x10\x80\xf0", b"B" * 100), (b"\x82\x01\xfe", b"line\r\n" + b"C" * 700),
        (b"\x00", b"a\rb\r\n\r\n\n\nc\n"), (b"\x00", b"\x00\x01\x02\r\n" + bytes(range(256)) + b"\r\n"),
        (b"\x03\x20\x40\x60", b"\xff\xfe\xc0\xaf\r\n\xe2\x82\r\n\xac\r\n"),
        (b"\x41\x80", registration), (b"\x52\x10\x20", registration),
        (b"\xc1\x80", b"PING :x\r\n" + b"D" * 300),
    ]:
        write("framing", "hostile", header + body)

    for tab in (b"#test", b"Server", b"List", b"bob"):
        for line in [
            b"hello", b"  spaced  ", b"/", b"//", b"/join #x", b"/j x", b"/J", b"/part", b"/p",
            b"/msg bob hi there", b"/m  bob  two  spaces", b"/msg bob", b"/raw PRIVMSG #x :hi",
            b"/raw", b"/nick n", b"/n", b"/whois x", b"/wc x", b"/w", b"/away gone fishing",
            b"/a", b"/back", b"/b", b"/list", b"/l", b"/autojoin #c", b"/autojoin c", b"/unknown x",
            b"/JOIN\t#tab", b"/msg \xe2\x80\x83bob hi", b"/%1 %2",
        ]:
            write("inputcommand", "cmd", tab + b"\n" + line)


if __name__ == "__main__":
    main()
