#pragma once

#include "IRCConnection.h"
#include "LinePeer.h"
#include "MainWindow.h"
#include "NetworkView.h"
#include "Session.h"
#include "ModalDriver.h"

#include <QApplication>
#include <QElapsedTimer>
#include <QMenu>
#include <QTest>
#include <QTimer>

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
        window->session()->connection()->connectToServer(
            QStringLiteral("127.0.0.1"), peer->port(), nick, QStringLiteral("Real Name"), false);
        if (!peer->accept())
            return false;
        QElapsedTimer clock;
        clock.start();
        while (!window->session()->connection()->isConnected() && clock.elapsed() < 10000)
            QTest::qWait(10);
        QTest::qWait(20);
        peer->clear();
        if (!window->session()->connection()->isConnected())
            return false;
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
            if (line.isEmpty())
                continue;
            wire += line + "\r\n";
            ++expected;
        }
        int seen = 0;
        const auto counter = QObject::connect(window->session()->connection(), &IRCConnection::rawMessageReceived,
            window.get(), [&seen](const QString&) { ++seen; });
        peer->send(wire);
        const bool all = QTest::qWaitFor([&] { return seen >= expected; }, 10000);
        QObject::disconnect(counter);
        if (!all)
            qWarning("serverSays: the window read %d of %d lines", seen, expected);
    }

    // Waits until the peer has received a line starting with prefix.
    bool peerGot(const QString& prefix)
    {
        return QTest::qWaitFor([&] { return !peer->linesStartingWith(prefix).isEmpty(); }, 5000);
    }
};

// Chooses the item `text` of the next popup menu that opens, as a user does
// (so that exec() returns it), or only records the item texts into `items`
// (separators as "-") and closes the menu when text is empty.
inline ModalDriver::HandlePtr onNextMenu(const QString& text, QStringList* items = nullptr)
{
    return ModalDriver::armWindow([] { return QApplication::activePopupWidget(); },
        [](QWidget* w) { return qobject_cast<QMenu*>(w) != nullptr; },
        [text, items](QWidget* w) {
            auto* menu = qobject_cast<QMenu*>(w);
            for (QAction* action : menu->actions()) {
                if (items)
                    *items << (action->isSeparator() ? QStringLiteral("-") : action->text());
            }
            for (QAction* action : menu->actions()) {
                if (!text.isEmpty() && action->text() == text) {
                    menu->setActiveAction(action);
                    QTest::keyClick(menu, Qt::Key_Return);
                    return;
                }
            }
            menu->close();
        });
}
