// MainWindow: the member list's menus and the own entry in it.

#include "MainWindow.h"

#include "Contrast.h"
#include "MemberList.h"
#include "MemberListModel.h"
#include "MemberListView.h"
#include "NetworkView.h"
#include "Session.h"

#include <QApplication>
#include <QClipboard>
#include <QAction>
#include <QMenu>

namespace {

const QColor AwayRowColor(0xAA, 0xAA, 0xAA);

} // namespace

void MainWindow::updateOwnUserAppearance()
{
    if (!userListShouldBeVisible)
        return;
    const int row = userList->members()->rowOfNick(session()->nick());
    if (row < 0)
        return;
    const bool away = session()->isAway();
    QAbstractItemModel* members = userList->model();
    const QModelIndex index = members->index(row, 0);
    QFont font = qvariant_cast<QFont>(index.data(Qt::FontRole));
    font.setItalic(away);
    members->setData(index, font, Qt::FontRole);
    // Not away: no colour of its own, so the row takes the list's colour
    // again (a brush of an invalid colour would paint it black).
    const QColor grey = Contrast::readable(AwayRowColor, userList->palette().color(QPalette::Base));
    members->setData(index, away ? QVariant(QBrush(grey)) : QVariant(), Qt::ForegroundRole);
}

void MainWindow::showNetworkState()
{
    if (awayAction)
        awayAction->setText(session()->isAway() ? QStringLiteral("Unmark Away") : QStringLiteral("Marked Away..."));
    updateStatusBar();
    updateOwnUserAppearance();
}

void MainWindow::onUserDoubleClicked(const QString& member)
{
    if (!session()->isConnected())
        return;
    const QString name = MemberList::memberNick(member);
    if (name.isEmpty() || session()->isOwnNick(name))
        return;
    network()->openPrivateChat(name);
}

void MainWindow::showUserContextMenu(const QPoint& pos)
{
    const QString nick = MemberList::memberNick(userList->memberAt(pos));
    if (nick.isEmpty())
        return;

    QMenu menu(this);
    if (session()->isOwnNick(nick)) {
        // The away and nick actions come with the window's menu bar; offer them
        // here once they exist.
        if (awayAction)
            menu.addAction(session()->isAway() ? QStringLiteral("Unmark Away") : QStringLiteral("Marked Away..."),
                awayAction, &QAction::trigger);
        if (changeNickAction)
            menu.addAction(QStringLiteral("Change Nick..."), changeNickAction, &QAction::trigger);
        if (!menu.isEmpty())
            menu.exec(userList->mapToGlobal(pos));
        return;
    }

    const QString channel = currentTabName;
    menu.addAction(QStringLiteral("Open Private Chat"), this, [this, nick] {
        if (session()->isConnected())
            network()->openPrivateChat(nick);
    });
    menu.addAction(QStringLiteral("Whois"), this, [this, nick, channel] {
        session()->whois(nick, channel);
    });
    menu.addSeparator();
    if (network()->isChannelTab(channel)) {
        menu.addAction(QStringLiteral("Kick"), this, [this, nick, channel] {
            session()->kick(channel, nick, QStringLiteral("Requested"));
        });
        menu.addAction(QStringLiteral("Ban"), this, [this, nick, channel] { session()->ban(channel, nick); });
        menu.addAction(QStringLiteral("Kick/Ban"), this, [this, nick, channel] {
            session()->ban(channel, nick);
            session()->kick(channel, nick, QStringLiteral("Banned"));
        });
        menu.addSeparator();
    } else {
        menu.addAction(QStringLiteral("Copy Nickname"), this,
            [nick] { QApplication::clipboard()->setText(nick); });
    }
    menu.exec(userList->mapToGlobal(pos));
}
