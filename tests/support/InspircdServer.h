#pragma once

// A private InspIRCd for end-to-end tests. start() writes a config into a
// fresh temporary folder, makes a self-signed certificate for irc.test /
// 127.0.0.1, picks two free ports on 127.0.0.1 (plain and TLS) and runs
// `inspircd --nofork` until stop() or destruction. If the test process dies,
// the kernel kills the server (parent-death signal), so none outlives its test.

#include <QObject>
#include <QSslCertificate>
#include <QString>

#include <memory>

class QProcess;
class QTemporaryDir;

class InspircdServer : public QObject
{
    Q_OBJECT

public:
    explicit InspircdServer(QObject* parent = nullptr);
    ~InspircdServer() override;

    // These take effect on the next start(). Seconds between server PINGs
    // (also the ping timeout).
    void setPingFrequency(int seconds) { m_pingFrequency = seconds; }
    // InspIRCd's stock flood limits (a fast sender is fake-lagged and, past
    // its receive queue, killed) instead of the permissive ones.
    void setStockFloodLimits(bool stock) { m_stockFloodLimits = stock; }
    // The network name in ISUPPORT ("QuenvarTest" unless set).
    void setNetworkName(const QString& name) { m_networkName = name; }
    // Ports for the first launch attempt (0 = any free port); when one is
    // taken, start() carries on with free ports.
    void setFirstPorts(quint16 plain, quint16 tls)
    {
        m_firstPort = plain;
        m_firstTlsPort = tls;
    }

    // Starts the server and waits until both ports accept connections; false
    // (see errorString()) when it could not within timeoutMs.
    bool start(int timeoutMs = 30000);
    // SIGTERM, then waits for the process to end (SIGKILL as a last resort).
    void stop();

    QString host() const { return QStringLiteral("127.0.0.1"); }
    quint16 port() const { return m_port; }
    quint16 tlsPort() const { return m_tlsPort; }
    // The self-signed certificate the TLS port presents (also its own CA).
    QSslCertificate certificate() const { return m_certificate; }
    QString errorString() const { return m_error; }

    // The inspircd executable, or an empty string when it is not installed.
    static QString executable();

private:
    bool prepare();
    bool launchOnce(int timeoutMs, bool firstAttempt, bool* retry);

    std::unique_ptr<QTemporaryDir> m_dir;
    QProcess* m_process = nullptr;
    QSslCertificate m_certificate;
    QString m_error;
    quint16 m_port = 0;
    quint16 m_tlsPort = 0;
    quint16 m_firstPort = 0;
    quint16 m_firstTlsPort = 0;
    int m_pingFrequency = 120;
    bool m_stockFloodLimits = false;
    QString m_networkName = QStringLiteral("QuenvarTest");
};
