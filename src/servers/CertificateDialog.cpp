#include "CertificateDialog.h"

#include "ThemeManager.h"

#include <QHBoxLayout>
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
    setMinimumWidth(680);
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

    // A plain row rather than a button box: every button keeps its whole text.
    auto* buttons = new QHBoxLayout;
    auto* once = new QPushButton(QStringLiteral("Connect this time"), this);
    auto* always = new QPushButton(QStringLiteral("Always trust this certificate for this server"), this);
    auto* cancel = new QPushButton(QStringLiteral("Cancel"), this);
    buttons->addStretch();
    for (QPushButton* button : { once, always, cancel })
        buttons->addWidget(button);
    cancel->setObjectName(QStringLiteral("cancelButton"));
    once->setObjectName(QStringLiteral("connectButton"));
    always->setObjectName(QStringLiteral("alwaysTrustButton"));
    // Shaped like its neighbours, in a neutral colour; its text in the theme's.
    always->setStyleSheet(
        QStringLiteral("QPushButton { padding: 10px 16px; border-radius: 6px; border: 1px solid #8E8E93; "
                       "font-size: 14px; background: transparent; color: %1; }")
            .arg(ThemeManager::palette(theme).textColor));
    for (QPushButton* button : { once, always })
        button->setAutoDefault(false);
    cancel->setDefault(true);
    connect(once, &QPushButton::clicked, this, [this] { done(ConnectOnce); });
    connect(always, &QPushButton::clicked, this, [this] { done(AlwaysTrust); });
    connect(cancel, &QPushButton::clicked, this, &QDialog::reject);
    layout->addLayout(buttons);
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
