#pragma once

#include "IRCConnection.h"

#include <QDialog>

// Asks what to do about a server certificate that failed verification: the
// server, the errors, subject, issuer, validity and SHA-256 fingerprint, with
// "Connect this time", "Always trust this certificate for this server" and
// "Cancel" (the default). The answer is the dialog's result.
class CertificateDialog : public QDialog
{
    Q_OBJECT

public:
    enum Answer
    {
        Cancel = QDialog::Rejected,
        ConnectOnce = 2,
        AlwaysTrust = 3,
    };

    explicit CertificateDialog(const IRCConnection::CertificateInfo& info, const QString& theme, QWidget* parent = nullptr);

    const IRCConnection::CertificateInfo& info() const { return m_info; }

private:
    IRCConnection::CertificateInfo m_info;
};
