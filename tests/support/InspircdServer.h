#pragma once

// A private InspIRCd for end-to-end tests (inspircd-fixture.sh beside this
// file): a plain and a TLS port on 127.0.0.1, a self-signed certificate for
// irc.test / 127.0.0.1 made at start. Each test executable starts its own, so
// executables can run in parallel without sharing anything.

#include "ScriptFixture.h"

#include <QObject>
#include <QSslCertificate>
#include <QStandardPaths>

class InspircdServer : public QObject
{
public:
    explicit InspircdServer(QObject* parent = nullptr)
        : QObject(parent)
    { }

    // These take effect on the next start(). Seconds between server PINGs
    // (also the ping timeout).
    void setPingFrequency(int seconds) { m_env.insert("IRCD_PINGFREQ", QString::number(seconds)); }
    // InspIRCd's stock flood limits (a fast sender is fake-lagged and, past
    // its receive queue, killed) instead of the permissive ones.
    void setStockFloodLimits(bool stock) { m_env.insert("IRCD_STOCK_FLOOD", stock ? "1" : "0"); }
    // The network name in ISUPPORT ("QuenvarTest" unless set).
    void setNetworkName(const QString& name) { m_env.insert("IRCD_NETWORK", name); }
    // Ports for the first launch attempt (0 = any free port); when one is
    // taken, start() carries on with free ports.
    void setFirstPorts(quint16 plain, quint16 tls)
    {
        m_env.insert("IRCD_PORTS", QString("%1 %2").arg(plain).arg(tls));
    }

    // Starts the server and waits until both ports accept connections; false
    // (see errorString()) when it could not within timeoutMs.
    bool start(int timeoutMs = 60000)
    {
        if (!m_fixture.start(m_env, timeoutMs))
            return false;
        m_port = m_fixture.port("IRCD_PORT");
        m_tlsPort = m_fixture.port("IRCD_TLSPORT");
        m_certificate = QSslCertificate::fromPath(m_fixture.value("IRCD_CERT")).value(0);
        return true;
    }
    void stop() { m_fixture.stop(); }

    QString host() const { return QStringLiteral("127.0.0.1"); }
    quint16 port() const { return m_port; }
    quint16 tlsPort() const { return m_tlsPort; }
    // The self-signed certificate the TLS port presents (also its own CA).
    QSslCertificate certificate() const { return m_certificate; }
    QString errorString() const { return m_fixture.errorString(); }

    // The inspircd executable, or an empty string when it is not installed.
    static QString executable() { return QStandardPaths::findExecutable("inspircd", { "/usr/sbin", "/usr/bin" }); }

private:
    ScriptFixture m_fixture { "inspircd-fixture.sh" };
    QProcessEnvironment m_env;
    QSslCertificate m_certificate;
    quint16 m_port = 0;
    quint16 m_tlsPort = 0;
};
