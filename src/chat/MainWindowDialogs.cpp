// MainWindow: the away, nickname and topic dialogs and the emoji popup of the
// input line.

#include "MainWindow.h"

#include "EditTopicDialog.h"
#include "EmojiPicker.h"
#include "Session.h"
#include "TextDialog.h"

#include <QDesktopServices>
#include <QDir>
#include <QLineEdit>
#include <QMessageBox>
#include <QPushButton>
#include <QStatusBar>
#include <QUrl>

void MainWindow::onSetAway()
{
    if (!session()->isConnected())
        return;
    if (session()->isAway()) {
        session()->setBack(true);
        return;
    }
    QString reason;
    const TextDialogFields fields { QStringLiteral("Set Away Status"), 460, QStringLiteral("Away message:"),
        QStringLiteral("Away"), QStringLiteral("Reason for being away..."), QStringLiteral("Set Away") };
    if (!runTextDialog(this, currentTheme, fields, &reason))
        return;
    reason = reason.trimmed();
    session()->setAway(reason.isEmpty() ? QStringLiteral("Away") : reason);
}

void MainWindow::onChangeNick()
{
    if (!session()->isConnected())
        return;
    QString nick;
    const TextDialogFields fields { QStringLiteral("Change Nickname"), 400, QStringLiteral("New nickname:"),
        session()->nick(), QStringLiteral("Enter new nickname"), QStringLiteral("Change") };
    if (!runTextDialog(this, currentTheme, fields, &nick))
        return;
    nick = nick.trimmed();
    if (nick.isEmpty() || nick == session()->nick())
        return;
    session()->changeNick(nick);
}

void MainWindow::toggleEmojiPicker()
{
    auto* picker = new EmojiPicker(this, currentTheme);
    picker->placeBeside(emojiButton);
    connect(picker, &EmojiPicker::emojiSelected, this, [this](const QString& emoji) {
        inputLine->insert(emoji);
        inputLine->setFocus();
    });
    picker->setAttribute(Qt::WA_DeleteOnClose);
    picker->show();
}

void MainWindow::editTopic(const QString& channel)
{
    if (!session()->isConnected())
        return;
    if (!session()->isOperator(channel)) {
        QMessageBox::warning(this, QStringLiteral("Permission denied"),
            QStringLiteral("You must be an operator to change the topic."), QMessageBox::Ok);
        return;
    }
    EditTopicDialog dialog(channel, session()->topic(channel), currentTheme, this);
    if (dialog.exec() != QDialog::Accepted)
        return;
    session()->setTopic(channel, dialog.newTopic());
}

void MainWindow::openLogFolder()
{
    const QString folder = session()->logFolder();
    if (folder.isEmpty()) {
        statusBar()->showMessage(QStringLiteral("Logging is off: turn on \"Enable logging\" in Preferences."), 8000);
        return;
    }
    QDir().mkpath(folder);
    QDesktopServices::openUrl(QUrl::fromLocalFile(folder));
}
