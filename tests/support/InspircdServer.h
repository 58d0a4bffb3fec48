#pragma once

// A private InspIRCd for end-to-end tests. start() writes a config into a
// fresh temporary folder, makes a self-signed certificate for irc.test /
// 127.0.0.1, picks two free ports on 127.0.0.1 (plain and TLS) and runs
// `inspircd --nofork` until stop() or destruction. Each test executable starts
// one in initTestCase, so executables can run in parallel without sharing
// anything.
//
// The process is stopped by PID with SIGTERM whenever this object goes away,
// and also when the application is about to quit; if the test process itself
// dies, the kernel kills the server (parent-death signal), so no server
// outlives its test.

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

    // Seconds between server PINGs (also the ping timeout). Takes effect on the
    // next start().
    void setPingFrequency(int seconds) { m_pingFrequency = seconds; }
    int pingFrequency() const { return m_pingFrequency; }
    // The connect class with InspIRCd's stock flood limits (a fast sender is
    // fake-lagged and, past its receive queue, killed) instead of the
    // permissive one the other tests use. Takes effect on the next start().
    void setStockFloodLimits(bool stock) { m_stockFloodLimits = stock; }
    // The network name the server announces (ISUPPORT NETWORK; "QuenvarTest"
    // unless set). Takes effect on the next start().
    void setNetworkName(const QString& name) { m_networkName = name; }
    // Ports for the first launch attempt (0 = any free port). When one of them
    // turns out to be taken, start() carries on with free ports, as it does
    // when another process takes a port between picking and binding.
    void setFirstPorts(quint16 plain, quint16 tls)
    {
        m_firstPort = plain;
        m_firstTlsPort = tls;
    }
    // How many launches the last start() needed.
    int launchAttempts() const { return m_launchAttempts; }

    // Starts the server and waits until both ports accept connections. Returns
    // false (see errorString()) when it could not be started within timeoutMs.
    bool start(int timeoutMs = 30000);
    // SIGTERM, then waits for the process to end (SIGKILL as a last resort).
    void stop();

    bool isRunning() const;
    qint64 processId() const;
    QString host() const { return QStringLiteral("127.0.0.1"); }
    quint16 port() const { return m_port; }
    quint16 tlsPort() const { return m_tlsPort; }
    // The server's name as it appears in prefixes and WHOIS.
    QString serverName() const { return QStringLiteral("irc.test"); }
    // The description sent in WHOIS 312 (from the config).
    QString serverDescription() const { return QStringLiteral("Quenvar test server"); }
    // The self-signed certificate the TLS port presents (also its own CA).
    QSslCertificate certificate() const { return m_certificate; }
    QString directory() const;
    QString logText() const;
    QString errorString() const { return m_error; }
    // How the last run ended (valid after stop()); 139 or 10 is a clean stop.
    int lastExitCode() const { return m_lastExitCode; }

    // The inspircd executable, or an empty string when it is not installed.
    static QString executable();

private:
    bool prepareDirectory();
    bool makeCertificate();
    bool writeConfig();
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
    int m_launchAttempts = 0;
    int m_lastExitCode = -1;
};
