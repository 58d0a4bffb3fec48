#pragma once

#include "IRCConnection.h"
#include "LinePeer.h"
#include "MainWindow.h"
#include "ModalDriver.h"
#include "NetworkView.h"
#include "Session.h"

#include <QTest>

#include <memory>

// A real MainWindow (it opens no connect dialog by itself) connected to an
// in-process LinePeer, which plays the server: it records what the window
// sends and sends it server lines.
struct WindowHarness
{
    std::unique_ptr<MainWindow> window { new MainWindow(nullptr, MainWindow::Startup::Quiet) };
    std::unique_ptr<LinePeer> peer;

    // Connects as nick to a server that offers WATCH; true once connected.
    // The lines sent while connecting (CAP, NICK, USER) are dropped from the
    // peer's record.
    bool connect(const QString& nick = QStringLiteral("mynick"))
    {
        peer = std::make_unique<LinePeer>();
        IRCConnection* connection = window->session()->connection();
        connection->connectToServer("127.0.0.1", peer->port(), nick, "Real Name", false);
        const bool greeted = peer->accept() && QTest::qWaitFor([&] {
            return connection->isConnected() && !peer->linesStartingWith("USER ").isEmpty();
        }, 10000);
        if (!greeted)
            return false;
        peer->clear();
        serverSays(":irc.test 005 " + nick.toUtf8() + " WATCH=128 :are supported");
        return true;
    }

    // Connects and completes registration (the welcome numeric).
    bool connectAndRegister(const QString& nick = QStringLiteral("mynick"))
    {
        if (!connect(nick))
            return false;
        serverSays(":irc.test 001 " + nick.toUtf8() + " :Welcome");
        return QTest::qWaitFor([this] { return window->session()->connection()->isRegistered(); }, 10000);
    }

    // The peer sends the lines of `text` (separated by "\n", without CR LF);
    // returns once the window has read all of them.
    void serverSays(const QByteArray& text)
    {
        QByteArray wire;
        int expected = 0;
        for (const QByteArray& line : text.split('\n')) {
            if (!line.isEmpty()) {
                wire += line + "\r\n";
                ++expected;
            }
        }
        int seen = 0;
        const auto counter = QObject::connect(window->session()->connection(), &IRCConnection::rawMessageReceived,
            window.get(), [&seen](const QString&) { ++seen; });
        peer->send(wire);
        if (!QTest::qWaitFor([&] { return seen >= expected; }, 10000))
            qWarning("serverSays: the window read %d of %d lines", seen, expected);
        QObject::disconnect(counter);
    }

    // Waits until the peer has received a line starting with prefix.
    bool peerGot(const QString& prefix)
    {
        return QTest::qWaitFor([&] { return !peer->linesStartingWith(prefix).isEmpty(); }, 5000);
    }
};

// Chooses the item `text` of the next popup menu that opens, as a user does,
// or only records the item texts into `items` (separators as "-") and closes
// the menu when text is empty.
inline ModalDriver::HandlePtr onNextMenu(const QString& text, QStringList* items = nullptr)
{
    return ModalDriver::onPopupMenu(text, [items](QAction* action) {
        if (items)
            *items << (action->isSeparator() ? QStringLiteral("-") : action->text());
    });
}
