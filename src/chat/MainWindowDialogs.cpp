// MainWindow: the away and nickname dialogs and the emoji popup of the input
// line.

#include "MainWindow.h"

#include "EmojiPicker.h"
#include "IRCConnection.h"
#include "ThemeManager.h"

#include <QAction>
#include <QDialog>
#include <QDialogButtonBox>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QVBoxLayout>

namespace {

// What one of the two small text dialogs shows.
struct TextDialogFields
{
    QString title;
    int minimumWidth;
    QString label;
    QString text;
    QString placeholder;
    QString saveText;
};

// Runs a themed modal dialog with a label, one line edit and Save/Cancel.
// Returns whether it was accepted; the field's text goes to `result`.
bool runTextDialog(QWidget* parent, const QString& theme, const TextDialogFields& fields, QString* result)
{
    QDialog dialog(parent, Qt::Dialog | Qt::CustomizeWindowHint | Qt::WindowTitleHint | Qt::WindowCloseButtonHint);
    dialog.setWindowTitle(fields.title);
    dialog.setMinimumWidth(fields.minimumWidth);

    auto* layout = new QVBoxLayout(&dialog);
    layout->setContentsMargins(20, 20, 20, 16);

    auto* label = new QLabel(fields.label, &dialog);
    label->setStyleSheet(
        QStringLiteral("color: %1; font-size: 13px;").arg(ThemeManager::palette(theme).textColor));
    layout->addWidget(label);

    auto* field = new QLineEdit(fields.text, &dialog);
    field->setPlaceholderText(fields.placeholder);
    field->setStyleSheet(ThemeManager::lineEditStyleSheet(theme));
    layout->addWidget(field);

    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Save | QDialogButtonBox::Cancel, &dialog);
    QPushButton* save = buttons->button(QDialogButtonBox::Save);
    save->setText(fields.saveText);
    save->setDefault(true);
    save->setObjectName(QStringLiteral("connectButton"));
    QPushButton* cancel = buttons->button(QDialogButtonBox::Cancel);
    cancel->setText(QStringLiteral("Cancel"));
    cancel->setObjectName(QStringLiteral("cancelButton"));
    for (QAbstractButton* button : buttons->buttons())
        button->setIcon(QIcon()); // text only, like every other themed button
    buttons->setStyleSheet(ThemeManager::buttonStyleSheet(theme));
    layout->addWidget(buttons);

    QObject::connect(field, &QLineEdit::returnPressed, &dialog, &QDialog::accept);
    QObject::connect(buttons, &QDialogButtonBox::accepted, &dialog, &QDialog::accept);
    QObject::connect(buttons, &QDialogButtonBox::rejected, &dialog, &QDialog::reject);
    dialog.setStyleSheet(ThemeManager::dialogStyleSheet(theme));

    if (dialog.exec() != QDialog::Accepted)
        return false;
    *result = field->text();
    return true;
}

} // namespace

void MainWindow::onSetAway()
{
    if (!connection->isConnected())
        return;
    if (awayActive) {
        markBack(true);
        return;
    }
    QString reason;
    const TextDialogFields fields { QStringLiteral("Set Away Status"), 460, QStringLiteral("Away message:"),
        QStringLiteral("Away"), QStringLiteral("Reason for being away..."), QStringLiteral("Set Away") };
    if (!runTextDialog(this, currentTheme, fields, &reason))
        return;
    reason = reason.trimmed();
    markAway(reason.isEmpty() ? QStringLiteral("Away") : reason);
}

void MainWindow::onChangeNick()
{
    if (!connection->isConnected())
        return;
    QString nick;
    const TextDialogFields fields { QStringLiteral("Change Nickname"), 400, QStringLiteral("New nickname:"),
        connection->currentNick(), QStringLiteral("Enter new nickname"), QStringLiteral("Change") };
    if (!runTextDialog(this, currentTheme, fields, &nick))
        return;
    nick = nick.trimmed();
    if (nick.isEmpty() || nick == connection->currentNick())
        return;
    if (awayActive)
        markBack(false);
    pendingNewNick = nick;
    connection->changeNick(nick);
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
