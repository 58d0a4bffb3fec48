// MainWindow: the input line, its slash commands and nick completion.

#include "MainWindow.h"

#include "IRCConnection.h"
#include "InputCommand.h"
#include "MemberList.h"

#include <QAction>
#include <QCompleter>
#include <QEvent>
#include <QInputDialog>
#include <QKeyEvent>
#include <QAbstractItemView>
#include <QLineEdit>
#include <QMessageBox>
#include <QStringListModel>
#include <QTimer>

namespace {

const QString ServerTab = QStringLiteral("Server");
const QString ListTab = QStringLiteral("List");

} // namespace

void MainWindow::onSendInput()
{
    const QString line = inputLine->text();
    inputLine->clear();
    tabInputHistory.insert(currentTabName, QString());

    const InputCommand command = InputCommand::parse(line, currentTabName);
    if (command.type == InputCommand::Type::Empty || !connection->isConnected())
        return;

    const QString ownNick = connection->currentNick();
    switch (command.type) {
    case InputCommand::Type::Empty:
        break;
    case InputCommand::Type::Message:
    case InputCommand::Type::Msg:
        connection->sendPrivmsg(command.target, command.text);
        appendMessageToTab(command.target, command.text, ownNick, false);
        break;
    case InputCommand::Type::Feedback:
        appendMessageToTab(command.target, command.text, QString(), false);
        break;
    case InputCommand::Type::Join:
        connection->joinChannel(command.target);
        break;
    case InputCommand::Type::Part:
        connection->partChannel(command.target);
        break;
    case InputCommand::Type::Nick:
        if (awayActive)
            markBack(false);
        pendingNewNick = command.target;
        connection->changeNick(command.target);
        break;
    case InputCommand::Type::Raw:
        connection->sendRaw(command.text);
        break;
    case InputCommand::Type::List:
        if (!connection->isRegistered()) {
            appendMessageToTab(ServerTab,
                QStringLiteral("*** Please wait for registration to complete before using /list."), QString(),
                false);
            break;
        }
        requestChannelList();
        break;
    case InputCommand::Type::Away:
        markAway(command.text);
        break;
    case InputCommand::Type::Back:
        markBack(true);
        break;
    case InputCommand::Type::Whois:
        whoisTargetTab = currentTabName;
        connection->sendWhois(command.target);
        break;
    case InputCommand::Type::Autojoin:
        setChannelAutojoin(command.target, !favoriteChannels.contains(command.target));
        break;
    }
}

// The line goes to every channel and private tab once the current event is
// handled, as it reads now: going away and coming back at once still gives
// "is away (reason)" then "is back", and a tab closed meanwhile stays closed.
void MainWindow::announceToTabs(const QString& line)
{
    const QString nick = connection->currentNick();
    for (auto it = tabs.cbegin(); it != tabs.cend(); ++it) {
        const QString tab = it.key();
        if (tab == ServerTab || tab == ListTab)
            continue;
        QTimer::singleShot(0, this, [this, tab, line, nick] {
            if (tabs.contains(tab))
                appendMessageToTab(tab, line, nick, true);
        });
    }
}

void MainWindow::markAway(const QString& message)
{
    awayActive = true;
    awayMessage = message;
    connection->sendRaw(QStringLiteral("AWAY :") + awayMessage);
    if (awayAction)
        awayAction->setText(QStringLiteral("Unmark Away"));
    appendMessageToTab(ServerTab, QStringLiteral("*** You are marked as away (") + awayMessage + QLatin1Char(')'),
        QString(), false);
    announceToTabs(QStringLiteral("is away (%1)").arg(awayMessage));
    updateStatusBar();
    updateOwnUserAppearance();
}

void MainWindow::markBack(bool announceInTabs)
{
    connection->sendRaw(QStringLiteral("AWAY"));
    awayActive = false;
    awayMessage.clear();
    if (awayAction)
        awayAction->setText(QStringLiteral("Marked Away..."));
    appendMessageToTab(ServerTab, QStringLiteral("*** You are back"), QString(), false);
    if (announceInTabs)
        announceToTabs(QStringLiteral("is back"));
    updateStatusBar();
    updateOwnUserAppearance();
}

void MainWindow::onJoinChannel()
{
    if (!connection->isConnected()) {
        QMessageBox::warning(this, QStringLiteral("Error"), QStringLiteral("Not connected."), QMessageBox::Ok);
        return;
    }
    bool ok = false;
    const QString name = QInputDialog::getText(this, QStringLiteral("Join Channel"),
        QStringLiteral("Channel name (e.g. #linux):"), QLineEdit::Normal, QString(), &ok);
    if (!ok || name.isEmpty())
        return;
    connection->joinChannel(InputCommand::channelName(name));
}

// --- Nick completion ----------------------------------------------------------------

void MainWindow::completeNick()
{
    if (!nickCompleter)
        return;
    const QString text = inputLine->text();
    if (text.isEmpty() || text.startsWith(QLatin1Char('/')))
        return;

    const int pos = inputLine->cursorPosition();
    if (pos <= 0)
        return;
    const int start = int(text.lastIndexOf(QLatin1Char(' '), pos - 1)) + 1;
    const QString prefix = text.mid(start, pos - start);
    if (prefix.isEmpty())
        return;

    QStringList candidates;
    const auto users = channelUsers.constFind(currentTabName);
    if (currentTabName.startsWith(QLatin1Char('#')) && users != channelUsers.cend())
        candidates = *users;
    else if (!currentTabName.startsWith(QLatin1Char('#')) && currentTabName != ServerTab)
        candidates.append(currentTabName);
    candidates.append(connection->currentNick());
    candidates.removeDuplicates();
    setCompletionWords(candidates);
    // The completer now holds these candidates until the word list changes.
    m_completionStale = false;

    for (const QString& candidate : std::as_const(candidates)) {
        if (candidate.startsWith(prefix, Qt::CaseInsensitive)) {
            inputLine->setCursorPosition(pos);
            inputLine->insert(candidate.mid(prefix.size()));
            return;
        }
    }
}

void MainWindow::updateNickCompletionModel()
{
    // Member lists change on every join, part and nick change; the word list
    // is rebuilt once, when it is next needed.
    m_completionStale = true;
}

QStringList MainWindow::nickCompletionWords()
{
    refreshNickCompletionModel();
    const auto* model = nickCompleter ? qobject_cast<QStringListModel*>(nickCompleter->model()) : nullptr;
    return model ? model->stringList() : QStringList();
}

void MainWindow::refreshNickCompletionModel()
{
    if (!m_completionStale || !nickCompleter)
        return;
    m_completionStale = false;
    QStringList words;
    const auto users = channelUsers.constFind(currentTabName);
    if (currentTabName.startsWith(QLatin1Char('#')) && users != channelUsers.cend()) {
        words.reserve(users->size() + 1);
        for (const QString& name : *users)
            words.append(MemberList::stripModePrefix(name));
    } else if (!currentTabName.startsWith(QLatin1Char('#')) && currentTabName != ServerTab) {
        words.append(currentTabName);
    }
    words.append(connection->currentNick());
    words.removeDuplicates();
    setCompletionWords(words);
}

void MainWindow::setCompletionWords(const QStringList& words)
{
    auto* model = qobject_cast<QStringListModel*>(nickCompleter->model());
    if (!model) {
        model = new QStringListModel(nickCompleter);
        nickCompleter->setModel(model);
        // Setting the model puts the completer's own filter in front on the
        // popup again; Tab must reach this window's filter first.
        nickCompleter->popup()->installEventFilter(this);
    }
    model->setStringList(words);
}

bool MainWindow::eventFilter(QObject* watched, QEvent* event)
{
    if (nickCompleter && watched == nickCompleter->popup() && event->type() == QEvent::KeyPress) {
        auto* key = static_cast<QKeyEvent*>(event);
        if (key->key() == Qt::Key_Tab && key->modifiers() == Qt::NoModifier) {
            nickCompleter->popup()->hide();
            completeNick();
            // The completed word would open the popup again.
            nickCompleter->popup()->hide();
            return true;
        }
    }
    if (watched == inputLine) {
        if (event->type() == QEvent::KeyPress) {
            auto* key = static_cast<QKeyEvent*>(event);
            if (key->key() == Qt::Key_Tab && key->modifiers() == Qt::NoModifier) {
                // Tab completes; it is neither typed nor moves the focus.
                completeNick();
                if (nickCompleter)
                    nickCompleter->popup()->hide();
                return true;
            }
            refreshNickCompletionModel();
        } else if (event->type() == QEvent::InputMethod) {
            refreshNickCompletionModel();
        }
    }
    return QMainWindow::eventFilter(watched, event);
}
