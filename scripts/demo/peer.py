#!/usr/bin/env python3
"""The demo's chatty peers: a few users on the demo server who talk in
#quenvar, come and go, greet the user by name and answer private messages.

    peer.py PORT NICK READY    NICK: the nickname Quenvar uses

Creates the file READY once the channel is set up, prints "demo: NICK joined
#quenvar" once the user is in it, and ends when the server goes away."""

import select
import socket
import sys
import time

CHANNEL = "#quenvar"
TOPIC = "Welcome to the Quenvar demo: this server and everyone here run on your machine"
PEERS = ["alice", "bob", "carol", "dave", "erin"]
STAYING = ["alice", "bob", "carol"]

# (seconds after the previous line, peer, what, text); "{user}" is the user's nick.
SCRIPT = [
    (2, "bob", "say", "morning all"),
    (4, "carol", "say", "hi bob! did you try the channel list yet?"),
    (5, "bob", "say", "yes, it filters as you type, even on big networks"),
    (4, "carol", "action", "is impressed"),
    (6, "dave", "join", ""),
    (3, "dave", "say", "hello! is this where the Quenvar demo is?"),
    (4, "alice", "say", "dave: it is. Nothing here needs the internet"),
    (5, "carol", "say", "tip: right-click a nick in the user list for WHOIS or a private chat"),
    (6, "alice", "say", "\x02bold\x02, \x1ditalic\x1d and \x0304c\x0307o\x0303l\x0312o\x0306u\x0304r\x0307s\x03 show as they should"),
    (5, "dave", "part", "off to lunch"),
    (6, "erin", "join", ""),
    (3, "erin", "say", "hi everyone \U0001F44B"),
    (5, "bob", "say", "hi erin"),
    (6, "carol", "say", "{user}: how do you like it so far?"),
    (7, "erin", "quit", "see you later"),
    (8, "bob", "action", "makes tea"),
    (6, "alice", "say", "anyone up for a game of chess later?"),
    (5, "carol", "say", "always"),
    (10, "bob", "say", "quiet in here"),
]


class Peer:
    def __init__(self, nick, port):
        self.nick = nick
        self.sock = socket.create_connection(("127.0.0.1", port), timeout=10)
        self.buffer = b""
        self.registered = False
        self.joined = False
        self.send(f"NICK {nick}")
        self.send(f"USER {nick} 0 * :{nick.capitalize()}, a demo peer")

    def send(self, line):
        self.sock.sendall(line.encode() + b"\r\n")

    def say(self, target, text):
        self.send(f"PRIVMSG {target} :{text}")

    def join(self):
        self.joined = True
        if self.registered:
            self.send(f"JOIN {CHANNEL}")

    def lines(self):
        data = self.sock.recv(65536)
        if not data:
            raise ConnectionError(self.nick)
        self.buffer += data
        *complete, self.buffer = self.buffer.split(b"\r\n")
        return [line.decode(errors="replace") for line in complete]


def split_line(line):
    """(sender's nick, [command, params..., trailing])"""
    prefix = ""
    if line.startswith(":"):
        prefix, _, line = line[1:].partition(" ")
    head, colon, trailing = line.partition(" :")
    parts = head.split()
    if colon:
        parts.append(trailing)
    return prefix.split("!")[0], parts


class Demo:
    def __init__(self, port, user, ready):
        self.port = port
        self.user = user
        self.ready = ready
        self.peers = {nick: Peer(nick, port) for nick in PEERS}
        self.leaving = []  # peers that sent QUIT, read until the server closes them
        self.user_here = False
        self.answered = {}
        # The talk starts when the user comes in, or after a while without them.
        self.next_at = time.monotonic() + 15
        for nick in STAYING:
            self.peers[nick].join()

    def on_line(self, peer, sender, parts):
        command = parts[0]
        if command == "PING":
            peer.send("PONG :" + parts[-1])
        elif command == "001":
            peer.registered = True
            if peer.joined:
                peer.send(f"JOIN {CHANNEL}")
        elif command == "433" and not peer.registered:
            peer.nick += "_"
            peer.send(f"NICK {peer.nick}")
        alice = self.peers["alice"]
        if peer is alice and sender == alice.nick:
            if command == "JOIN":
                peer.send(f"TOPIC {CHANNEL} :{TOPIC}")
            elif command == "TOPIC":
                open(self.ready, "w").close()
        if sender.lower() != self.user.lower():
            return
        if command == "PRIVMSG" and len(parts) > 2 and not parts[2].startswith("\x01"):
            self.answer(peer, sender, parts[1])
        # What the user does in the channel is seen through alice, who never leaves.
        if peer is not alice:
            return
        if command == "JOIN":
            self.user_here = True
            self.next_at = min(self.next_at, time.monotonic() + SCRIPT[0][0])
            print(f"demo: {sender} joined {CHANNEL}", flush=True)
            peer.say(CHANNEL, f"{sender}: welcome to {CHANNEL}! Type a message below and press Enter")
        elif command in ("PART", "QUIT"):
            self.user_here = False
        elif command == "NICK":
            self.user = parts[1]

    def answer(self, peer, sender, target):
        """A word back for what the user says, at most one every few seconds."""
        now = time.monotonic()
        if now - self.answered.get(target.lower(), 0) < 5:
            return
        if target.lower() == CHANNEL:
            if peer is self.peers["alice"]:
                self.answered[target.lower()] = now
                self.peers["bob"].say(CHANNEL, f"{sender}: nice to hear from you!")
        elif target.lower() == peer.nick.lower():
            self.answered[target.lower()] = now
            peer.say(sender, "Hello! I am one of the demo's peers: everything here runs on this machine.")

    def act(self, nick, what, text):
        peer = self.peers.get(nick)
        if what == "join":
            if peer is None:
                peer = self.peers[nick] = Peer(nick, self.port)
            if not peer.joined:
                peer.join()
        elif peer is None or not peer.joined:
            return
        elif what == "part":
            peer.send(f"PART {CHANNEL} :{text}")
            peer.joined = False
        elif what == "quit":
            peer.send(f"QUIT :{text}")
            self.leaving.append(self.peers.pop(nick))
        elif self.user_here or "{user}" not in text:
            text = text.replace("{user}", self.user)
            peer.say(CHANNEL, f"\x01ACTION {text}\x01" if what == "action" else text)

    def run(self):
        step = 0
        while True:
            socks = {p.sock: p for p in list(self.peers.values()) + self.leaving}
            readable, _, _ = select.select(list(socks), [], [], max(0.0, self.next_at - time.monotonic()))
            for sock in readable:
                peer = socks[sock]
                if peer in self.leaving:
                    if not sock.recv(65536):
                        sock.close()
                        self.leaving.remove(peer)
                    continue
                for line in peer.lines():
                    sender, parts = split_line(line)
                    if parts:
                        self.on_line(peer, sender, parts)
            if time.monotonic() >= self.next_at and self.peers["alice"].registered:
                self.act(*SCRIPT[step][1:])
                step = (step + 1) % len(SCRIPT)
                self.next_at = time.monotonic() + SCRIPT[step][0]


if __name__ == "__main__":
    try:
        Demo(int(sys.argv[1]), sys.argv[2], sys.argv[3]).run()
    except (ConnectionError, OSError, KeyboardInterrupt):
        pass
