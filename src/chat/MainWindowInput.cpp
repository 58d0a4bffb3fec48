// MainWindow: the input line, its slash commands and nick completion.

#include "MainWindow.h"

#include "ChatView.h"
#include "IRCConnection.h"
#include "InputCommand.h"
#include "MemberList.h"
#include "MyTabWidget.h"
#include "NetworkView.h"
#include "Session.h"

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

} // namespace

void MainWindow::onSendInput()
{
    const QString line = inputLine->text();
    inputLine->clear();
    NetworkView* net = network();
    net->tabInputHistory.insert(currentTabName, QString());

    Session* session = net->session();
    const InputCommand command
        = InputCommand::parse(line, currentTabName, session->connection()->serverSupport().chanTypes);
    // Help, Clear and Close concern only the window; the rest waits for a connection.
    const bool local = command.type == InputCommand::Type::Help || command.type == InputCommand::Type::Clear
        || command.type == InputCommand::Type::Close;
    if (command.type == InputCommand::Type::Empty)
        return;
    if (!local && !session->isConnected()) {
        // Nothing typed is lost: it waits in the line until the link is back.
        inputLine->setText(line);
        net->tabInputHistory.insert(currentTabName, line);
        session->addLine(net->tabs.contains(currentTabName) && currentTabName != Session::ListPage ? currentTabName : ServerTab,
            QStringLiteral("*** Not connected."));
        return;
    }

    switch (command.type) {
    case InputCommand::Type::Empty:
        break;
    case InputCommand::Type::Message:
    case InputCommand::Type::Msg:
        session->sendMessage(command.target, command.text);
        break;
    case InputCommand::Type::Unknown:
        // Left in the line to be put right.
        inputLine->setText(line);
        session->addLine(command.target, command.text);
        break;
    case InputCommand::Type::Feedback:
        session->addLine(command.target, command.text);
        break;
    case InputCommand::Type::Join:
        session->join(command.target, command.text);
        break;
    case InputCommand::Type::Part:
        session->part(command.target, command.text);
        break;
    case InputCommand::Type::Nick:
        session->changeNick(command.target);
        break;
    case InputCommand::Type::Raw:
        session->sendRaw(command.text);
        break;
    case InputCommand::Type::List:
        if (!session->isRegistered()) {
            session->addLine(ServerTab,
                QStringLiteral("*** Please wait for registration to complete before using /list."));
            break;
        }
        net->requestChannelList();
        break;
    case InputCommand::Type::Away:
        session->setAway(command.text);
        break;
    case InputCommand::Type::Back:
        session->setBack(true);
        break;
    case InputCommand::Type::Whois:
        session->whois(command.target, currentTabName);
        break;
    case InputCommand::Type::Autojoin:
        session->setAutojoin(command.target, !session->autojoinChannels().contains(command.target));
        break;
    case InputCommand::Type::Action:
        session->sendAction(command.target, command.text);
        break;
    case InputCommand::Type::Notice:
        session->sendNotice(command.target, command.text);
        break;
    case InputCommand::Type::Ctcp:
        session->ctcp(command.target, command.text);
        session->addLine(currentTabName,
            QStringLiteral("*** CTCP %1 sent to %2")
                .arg(command.text.section(QLatin1Char(' '), 0, 0), command.target));
        break;
    case InputCommand::Type::ShowTopic: {
        const QString channel = session->findBuffer(command.target);
        const QString topic = session->topic(channel.isEmpty() ? command.target : channel);
        session->addLine(currentTabName,
            topic.isEmpty() ? QStringLiteral("*** No topic is known for %1").arg(command.target)
                            : QStringLiteral("*** Topic of %1: %2").arg(command.target, topic));
        break;
    }
    case InputCommand::Type::SetTopic:
        session->setTopic(command.target, command.text);
        break;
    case InputCommand::Type::Kick:
        session->kick(command.target, command.args.value(0), command.text);
        break;
    case InputCommand::Type::Ban:
        session->ban(command.target, command.args.value(0));
        break;
    case InputCommand::Type::Mode:
        for (const QString& modes : command.args)
            session->mode(command.target, modes);
        break;
    case InputCommand::Type::Invite:
        session->invite(command.args.value(0), command.target);
        break;
    case InputCommand::Type::Who:
        session->who(command.target);
        break;
    case InputCommand::Type::Query: {
        // Back to an open conversation with the nick, whatever its case there.
        const QString open = session->findQuery(command.target);
        const QString nick = open.isEmpty() ? command.target : open;
        net->openPrivateChat(nick);
        if (!command.text.isEmpty())
            session->sendMessage(nick, command.text);
        break;
    }
    case InputCommand::Type::Close: {
        const auto it = net->tabs.constFind(command.target);
        if (it != net->tabs.cend())
            closeTab(tabWidget->indexOf(it->widget));
        break;
    }
    case InputCommand::Type::Clear: {
        const auto it = net->tabs.constFind(command.target);
        if (it != net->tabs.cend() && it->chatView)
            it->chatView->clearMessages();
        session->clearBuffer(command.target);
        break;
    }
    case InputCommand::Type::Quit:
        session->quit(command.text);
        break;
    case InputCommand::Type::Help:
        if (command.text.isEmpty())
            showHelpBox();
        else
            session->addLine(currentTabName, command.text);
        break;
    }
}

void MainWindow::onJoinChannel()
{
    if (!session()->isConnected()) {
        QMessageBox::warning(this, QStringLiteral("Error"), QStringLiteral("Not connected."), QMessageBox::Ok);
        return;
    }
    bool ok = false;
    const QString name = QInputDialog::getText(this, QStringLiteral("Join Channel"),
        QStringLiteral("Channel name (e.g. #linux):"), QLineEdit::Normal, QString(), &ok);
    if (!ok || name.isEmpty())
        return;
    session()->join(InputCommand::channelName(name, session()->connection()->serverSupport().chanTypes));
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

    // Plain nicks: "al" completes "@alice".
    const QStringList candidates = completionCandidates();
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
    setCompletionWords(completionCandidates());
}

// The nicks of the current tab without their rank symbols, and the own nick.
QStringList MainWindow::completionCandidates() const
{
    QStringList words;
    const NetworkView* net = network();
    if (net->isChannelTab(currentTabName) && net->session()->hasMembers(currentTabName)) {
        const QStringList users = session()->members(currentTabName);
        words.reserve(users.size() + 1);
        for (const QString& name : users)
            words.append(MemberList::stripModePrefix(name));
    } else if (!net->isChannelTab(currentTabName) && currentTabName != ServerTab) {
        words.append(currentTabName);
    }
    words.append(session()->nick());
    words.removeDuplicates();
    return words;
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
