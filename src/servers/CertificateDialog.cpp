#include "CertificateDialog.h"

#include "ThemeManager.h"

#include <QDialogButtonBox>
#include <QFormLayout>
#include <QLabel>
#include <QPushButton>
#include <QVBoxLayout>

namespace {

QLabel* plainLabel(const QString& text, QWidget* parent)
{
    auto* label = new QLabel(text, parent);
    label->setTextFormat(Qt::PlainText); // everything here comes from the server
    label->setWordWrap(true);
    label->setTextInteractionFlags(Qt::TextSelectableByMouse);
    return label;
}

} // namespace

CertificateDialog::CertificateDialog(
    const IRCConnection::CertificateInfo& info, const QString& theme, QWidget* parent)
    : QDialog(parent)
    , m_info(info)
{
    setWindowTitle(QStringLiteral("Untrusted Certificate"));
    setMinimumWidth(520);
    auto* layout = new QVBoxLayout(this);
    layout->addWidget(plainLabel(
        QStringLiteral("The certificate of %1:%2 could not be verified. Someone may be impersonating the server.")
            .arg(info.host, QString::number(info.port)),
        this));
    auto* form = new QFormLayout;
    form->addRow(QStringLiteral("Errors:"), plainLabel(info.errors.join(QLatin1Char('\n')), this));
    form->addRow(QStringLiteral("Subject:"), plainLabel(info.subject, this));
    form->addRow(QStringLiteral("Issuer:"), plainLabel(info.issuer, this));
    form->addRow(QStringLiteral("Valid:"),
        plainLabel(QStringLiteral("%1 to %2").arg(info.validFrom, info.validUntil), this));
    QLabel* fingerprint = plainLabel(info.fingerprint, this);
    fingerprint->setObjectName(QStringLiteral("fingerprint"));
    form->addRow(QStringLiteral("SHA-256:"), fingerprint);
    layout->addLayout(form);

    auto* buttons = new QDialogButtonBox(this);
    QPushButton* once = buttons->addButton(QStringLiteral("Connect this time"), QDialogButtonBox::AcceptRole);
    QPushButton* always
        = buttons->addButton(QStringLiteral("Always trust this certificate for this server"), QDialogButtonBox::AcceptRole);
    QPushButton* cancel = buttons->addButton(QStringLiteral("Cancel"), QDialogButtonBox::RejectRole);
    cancel->setObjectName(QStringLiteral("cancelButton"));
    once->setObjectName(QStringLiteral("connectButton"));
    always->setObjectName(QStringLiteral("alwaysTrustButton"));
    for (QPushButton* button : { once, always })
        button->setAutoDefault(false);
    cancel->setDefault(true);
    connect(once, &QPushButton::clicked, this, [this] { done(ConnectOnce); });
    connect(always, &QPushButton::clicked, this, [this] { done(AlwaysTrust); });
    connect(cancel, &QPushButton::clicked, this, &QDialog::reject);
    layout->addWidget(buttons);
    setStyleSheet(ThemeManager::dialogStyleSheet(theme));
}

void CertificateDialog::ask(const IRCConnection::CertificateInfo& info, const QString& theme, QWidget* parent,
    std::function<void(int)> onTrust)
{
    if (parent->findChild<CertificateDialog*>())
        return;
    auto* dialog = new CertificateDialog(info, theme, parent);
    dialog->setAttribute(Qt::WA_DeleteOnClose);
    QObject::connect(dialog, &QDialog::finished, parent, [onTrust = std::move(onTrust)](int answer) {
        if (answer == ConnectOnce || answer == AlwaysTrust)
            onTrust(answer);
    });
    dialog->open();
}
