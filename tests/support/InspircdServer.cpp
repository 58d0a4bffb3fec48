#include "InspircdServer.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QProcess>
#include <QRegularExpression>
#include <QSet>
#include <QStandardPaths>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTemporaryDir>

#include <csignal>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <unistd.h>

namespace {

// Two distinct ports that were free on 127.0.0.1 a moment ago (both held until
// both are known, so they cannot coincide).
bool pickFreePorts(quint16* plain, quint16* tls)
{
    QTcpServer a, b;
    if (!a.listen(QHostAddress::LocalHost, 0) || !b.listen(QHostAddress::LocalHost, 0))
        return false;
    *plain = a.serverPort();
    *tls = b.serverPort();
    return true;
}

bool portAccepts(quint16 port)
{
    QTcpSocket probe;
    probe.connectToHost(QHostAddress::LocalHost, port);
    return probe.waitForConnected(2000);
}

QString readFile(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? QString::fromUtf8(file.readAll()) : QString();
}

} // namespace

InspircdServer::InspircdServer(QObject* parent)
    : QObject(parent)
{ }

InspircdServer::~InspircdServer()
{
    stop();
}

QString InspircdServer::executable()
{
    const QString found = QStandardPaths::findExecutable("inspircd");
    return found.isEmpty() ? QStandardPaths::findExecutable("inspircd", { "/usr/sbin", "/usr/local/sbin", "/sbin" })
                           : found;
}

bool InspircdServer::start(int timeoutMs)
{
    stop();
    m_error.clear();
    if (executable().isEmpty()) {
        m_error = "inspircd is not installed";
        return false;
    }
    if (!prepare())
        return false;
    QElapsedTimer clock;
    clock.start();
    bool retry = true;
    for (int attempt = 0; retry && attempt < 5 && clock.elapsed() < timeoutMs; ++attempt) {
        if (launchOnce(timeoutMs - int(clock.elapsed()), attempt == 0, &retry))
            return true;
        stop();
    }
    return false;
}

// The folder with the message of the day and a fresh certificate.
bool InspircdServer::prepare()
{
    m_dir = std::make_unique<QTemporaryDir>(QDir::tempPath() + "/quenvar-ircd-XXXXXX");
    if (!m_dir->isValid() || !QFile::copy(QUENVAR_TEST_SUPPORT_DIR "/motd.txt", m_dir->filePath("motd.txt"))) {
        m_error = "cannot prepare a temporary folder";
        return false;
    }
    QProcess openssl;
    openssl.setProcessChannelMode(QProcess::MergedChannels);
    openssl.setWorkingDirectory(m_dir->path());
    openssl.start("openssl",
        QString("req -x509 -newkey ec -pkeyopt ec_paramgen_curve:prime256v1 -nodes -days 2 -subj /CN=irc.test "
                "-addext subjectAltName=DNS:irc.test,IP:127.0.0.1 -keyout key.pem -out cert.pem")
            .split(' '));
    const bool ran = openssl.waitForFinished(30000) && openssl.exitStatus() == QProcess::NormalExit
        && openssl.exitCode() == 0;
    const QList<QSslCertificate> certs = QSslCertificate::fromPath(m_dir->filePath("cert.pem"));
    if (!ran || certs.isEmpty()) {
        m_error = "openssl failed: " + QString::fromLocal8Bit(openssl.readAll());
        return false;
    }
    m_certificate = certs.constFirst();
    return true;
}

bool InspircdServer::launchOnce(int timeoutMs, bool firstAttempt, bool* retry)
{
    *retry = true;
    if (!pickFreePorts(&m_port, &m_tlsPort)) {
        m_error = "no free port on 127.0.0.1";
        return false;
    }
    if (firstAttempt && m_firstPort)
        m_port = m_firstPort;
    if (firstAttempt && m_firstTlsPort)
        m_tlsPort = m_firstTlsPort;
    QString config = readFile(QUENVAR_TEST_SUPPORT_DIR "/inspircd.conf.in");
    config.replace("@DIR@", m_dir->path())
        .replace("@PORT@", QString::number(m_port))
        .replace("@TLSPORT@", QString::number(m_tlsPort))
        .replace("@PINGFREQ@", QString::number(m_pingFrequency))
        .replace("network=\"QuenvarTest\"", "network=\"" + m_networkName + "\"");
    if (m_stockFloodLimits) {
        config.replace("recvq=\"1M\"", "recvq=\"8192\"")
            .replace("threshold=\"1000000\" commandrate=\"1000000\" fakelag=\"no\"",
                "threshold=\"10\" commandrate=\"1000\" fakelag=\"yes\"");
    }
    QFile out(m_dir->filePath("inspircd.conf"));
    if (config.isEmpty() || !out.open(QIODevice::WriteOnly | QIODevice::Truncate) || out.write(config.toUtf8()) < 0) {
        m_error = "cannot write " + out.fileName();
        *retry = false;
        return false;
    }
    out.close();
    // A fresh log per attempt, so that an earlier attempt's lines cannot
    // satisfy this one's readiness check.
    const QString logPath = m_dir->filePath("ircd.log");
    QFile::remove(logPath);
    QStringList args { "--config", out.fileName(), "--nofork" };
    if (::geteuid() == 0)
        args << "--runasroot";
    m_process = new QProcess(this);
    m_process->setWorkingDirectory(m_dir->path());
    m_process->setStandardInputFile(QProcess::nullDevice());
    m_process->setProcessChannelMode(QProcess::MergedChannels);
    m_process->setStandardOutputFile(m_dir->filePath("output.txt"));
    m_process->setChildProcessModifier([] {
        // No core files from the known crash on shutdown, and no server left
        // behind if the test process dies without running its destructors.
        struct rlimit noCore = { 0, 0 };
        ::setrlimit(RLIMIT_CORE, &noCore);
        ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    });
    m_process->start(executable(), args);
    if (!m_process->waitForStarted(10000)) {
        m_error = "cannot run inspircd: " + m_process->errorString();
        *retry = false;
        return false;
    }
    const QRegularExpression listening("Added a listener on 127\\.0\\.0\\.1:(\\d+)\\b");
    QElapsedTimer clock;
    clock.start();
    while (clock.elapsed() < timeoutMs) {
        if (m_process->waitForFinished(50) || m_process->state() == QProcess::NotRunning) {
            m_error = "inspircd exited during start-up:\n" + readFile(logPath) + readFile(m_dir->filePath("output.txt"));
            *retry = false;
            return false;
        }
        const QString log = readFile(logPath);
        if (log.contains("Failed to listen on 127.0.0.1:")) {
            m_error = "a port was taken during start-up:\n" + log; // between picking and binding
            return false;
        }
        QSet<quint16> bound;
        for (auto it = listening.globalMatch(log); it.hasNext();)
            bound.insert(it.next().captured(1).toUShort());
        if (bound.contains(m_port) && bound.contains(m_tlsPort) && log.contains("Startup complete")
            && portAccepts(m_port) && portAccepts(m_tlsPort))
            return true;
    }
    m_error = "inspircd was not ready in time:\n" + readFile(logPath);
    return false;
}

void InspircdServer::stop()
{
    if (!m_process)
        return;
    if (m_process->state() != QProcess::NotRunning) {
        m_process->terminate();
        if (!m_process->waitForFinished(10000)) {
            m_process->kill();
            m_process->waitForFinished(5000);
        }
    }
    delete m_process;
    m_process = nullptr;
}
