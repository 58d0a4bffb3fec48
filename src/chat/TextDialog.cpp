#include "TextDialog.h"

#include "ThemeManager.h"

#include <QDialog>
#include <QDialogButtonBox>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QVBoxLayout>

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

