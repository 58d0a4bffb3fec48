// MainWindow: the topic strip above a channel's messages.

#include "MainWindow.h"

#include "EditTopicDialog.h"
#include "IRCConnection.h"
#include "IrcText.h"

#include <QLabel>
#include <QMessageBox>
#include <QPushButton>

void MainWindow::updateTopicLabel(const QString& channel)
{
    const auto it = tabs.constFind(channel);
    if (it == tabs.cend() || !it->topicLabel || !it->topicBar)
        return;
    const QString topic = channelTopics.value(channel);
    if (topic.isEmpty())
        it->topicLabel->clear();
    else
        it->topicLabel->setText(IrcText::ircTopicToHtml(topic));
}

void MainWindow::updateTopicEditButton(const QString& channel)
{
    const auto it = tabs.constFind(channel);
    if (it == tabs.cend() || !it->editTopicBtn)
        return;
    it->editTopicBtn->setVisible(isUserOperator(channel));
}

void MainWindow::editTopic(const QString& channel)
{
    if (!connection->isConnected())
        return;
    if (!isUserOperator(channel)) {
        QMessageBox::warning(this, QStringLiteral("Permission denied"),
            QStringLiteral("You must be an operator to change the topic."), QMessageBox::Ok);
        return;
    }
    EditTopicDialog dialog(channel, channelTopics.value(channel), currentTheme, this);
    if (dialog.exec() != QDialog::Accepted)
        return;
    const QString topic = dialog.newTopic();
    connection->sendRaw(QStringLiteral("TOPIC %1 :%2").arg(channel, topic));
    channelTopics.insert(channel, topic);
    updateTopicLabel(channel);
}
