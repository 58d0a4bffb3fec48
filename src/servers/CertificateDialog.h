#pragma once

#include "IRCConnection.h"

#include <QDialog>

#include <functional>

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

    // Opens the dialog over parent without blocking, unless one is open
    // already (a reconnect loop does not stack them); onTrust gets
    // ConnectOnce or AlwaysTrust when the user takes the certificate.
    static void ask(const IRCConnection::CertificateInfo& info, const QString& theme, QWidget* parent,
        std::function<void(int)> onTrust);

private:
    IRCConnection::CertificateInfo m_info;
};
