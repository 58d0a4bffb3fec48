#include "InspircdServer.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QHostAddress>
#include <QProcess>
#include <QRegularExpression>
#include <QSet>
#include <QStandardPaths>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTemporaryDir>
#include <QThread>

#include <csignal>
#include <sys/resource.h>
#include <unistd.h>
#ifdef Q_OS_LINUX
#include <sys/prctl.h>
#endif

#include <vector>

namespace {

const int kMaxLaunchAttempts = 5;

// Two distinct ports that were free on 127.0.0.1 a moment ago. Both listeners
// stay open until both ports are known, so the two cannot coincide.
bool pickFreePorts(quint16* plain, quint16* tls)
{
    std::vector<std::unique_ptr<QTcpServer>> holders;
    QList<quint16> ports;
    for (int i = 0; i < 2; ++i) {
        auto holder = std::make_unique<QTcpServer>();
        if (!holder->listen(QHostAddress::LocalHost, 0))
            return false;
        ports << holder->serverPort();
        holders.push_back(std::move(holder));
    }
    *plain = ports.at(0);
    *tls = ports.at(1);
    return true;
}

bool portAccepts(quint16 port)
{
    QTcpSocket probe;
    probe.connectToHost(QHostAddress::LocalHost, port);
    const bool ok = probe.waitForConnected(2000);
    probe.abort();
    return ok;
}

QString readFile(const QString& path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return QString();
    return QString::fromUtf8(file.readAll());
}

} // namespace

InspircdServer::InspircdServer(QObject* parent)
    : QObject(parent)
{
    // Tests that end through QCoreApplication::quit or exit() still take the
    // server down; the destructor covers the normal path.
    if (QCoreApplication::instance()) {
        connect(QCoreApplication::instance(), &QCoreApplication::aboutToQuit, this, &InspircdServer::stop);
    }
}

InspircdServer::~InspircdServer()
{
    stop();
}

QString InspircdServer::executable()
{
    QString found = QStandardPaths::findExecutable(QStringLiteral("inspircd"));
    if (found.isEmpty()) {
        found = QStandardPaths::findExecutable(QStringLiteral("inspircd"),
            { QStringLiteral("/usr/sbin"), QStringLiteral("/usr/local/sbin"), QStringLiteral("/sbin") });
    }
    return found;
}

QString InspircdServer::directory() const
{
    return m_dir ? m_dir->path() : QString();
}

QString InspircdServer::logText() const
{
    return m_dir ? readFile(m_dir->filePath(QStringLiteral("ircd.log"))) : QString();
}

bool InspircdServer::isRunning() const
{
    return m_process && m_process->state() != QProcess::NotRunning;
}

qint64 InspircdServer::processId() const
{
    return isRunning() ? m_process->processId() : 0;
}

bool InspircdServer::start(int timeoutMs)
{
    stop();
    m_error.clear();
    if (executable().isEmpty()) {
        m_error = QStringLiteral("inspircd is not installed");
        return false;
    }
    if (!prepareDirectory() || !makeCertificate())
        return false;

    QElapsedTimer clock;
    clock.start();
    m_launchAttempts = 0;
    for (int attempt = 0; attempt < kMaxLaunchAttempts; ++attempt) {
        const int left = timeoutMs - int(clock.elapsed());
        if (left <= 0)
            break;
        bool retry = false;
        ++m_launchAttempts;
        if (launchOnce(left, attempt == 0, &retry))
            return true;
        stop();
        if (!retry)
            return false;
    }
    if (m_error.isEmpty())
        m_error = QStringLiteral("inspircd did not start within %1 ms").arg(timeoutMs);
    return false;
}

bool InspircdServer::prepareDirectory()
{
    m_dir = std::make_unique<QTemporaryDir>(QDir::tempPath() + QStringLiteral("/quenvar-ircd-XXXXXX"));
    if (!m_dir->isValid()) {
        m_error = QStringLiteral("cannot create a temporary folder: %1").arg(m_dir->errorString());
        return false;
    }
    const QString motdSource = QStringLiteral(QUENVAR_TEST_SUPPORT_DIR "/motd.txt");
    if (!QFile::copy(motdSource, m_dir->filePath(QStringLiteral("motd.txt")))) {
        m_error = QStringLiteral("cannot copy %1").arg(motdSource);
        return false;
    }
    return true;
}

bool InspircdServer::makeCertificate()
{
    const QString certPath = m_dir->filePath(QStringLiteral("cert.pem"));
    QProcess openssl;
    openssl.setProcessChannelMode(QProcess::MergedChannels);
    openssl.setWorkingDirectory(m_dir->path());
    openssl.start(QStringLiteral("openssl"),
        { QStringLiteral("req"), QStringLiteral("-x509"), QStringLiteral("-newkey"), QStringLiteral("ec"),
            QStringLiteral("-pkeyopt"), QStringLiteral("ec_paramgen_curve:prime256v1"),
            QStringLiteral("-nodes"), QStringLiteral("-days"), QStringLiteral("2"), QStringLiteral("-subj"),
            QStringLiteral("/CN=irc.test"), QStringLiteral("-addext"),
            QStringLiteral("subjectAltName=DNS:irc.test,IP:127.0.0.1"), QStringLiteral("-keyout"),
            m_dir->filePath(QStringLiteral("key.pem")), QStringLiteral("-out"), certPath });
    if (!openssl.waitForFinished(30000) || openssl.exitStatus() != QProcess::NormalExit
        || openssl.exitCode() != 0) {
        m_error = QStringLiteral("openssl failed: %1 %2")
                      .arg(openssl.errorString(), QString::fromLocal8Bit(openssl.readAll()));
        openssl.kill();
        openssl.waitForFinished(5000);
        return false;
    }
    const QList<QSslCertificate> certs = QSslCertificate::fromPath(certPath);
    if (certs.isEmpty()) {
        m_error = QStringLiteral("openssl wrote no readable certificate");
        return false;
    }
    m_certificate = certs.constFirst();
    return true;
}

bool InspircdServer::writeConfig()
{
    const QString templatePath = QStringLiteral(QUENVAR_TEST_SUPPORT_DIR "/inspircd.conf.in");
    QString config = readFile(templatePath);
    if (config.isEmpty()) {
        m_error = QStringLiteral("cannot read %1").arg(templatePath);
        return false;
    }
    config.replace(QStringLiteral("@DIR@"), m_dir->path());
    config.replace(QStringLiteral("@PORT@"), QString::number(m_port));
    config.replace(QStringLiteral("@TLSPORT@"), QString::number(m_tlsPort));
    config.replace(QStringLiteral("@PINGFREQ@"), QString::number(m_pingFrequency));
    config.replace(QStringLiteral("network=\"QuenvarTest\""), QStringLiteral("network=\"%1\"").arg(m_networkName));
    if (m_stockFloodLimits) {
        config.replace(QStringLiteral("recvq=\"1M\""), QStringLiteral("recvq=\"8192\""));
        config.replace(QStringLiteral("threshold=\"1000000\" commandrate=\"1000000\" fakelag=\"no\""),
            QStringLiteral("threshold=\"10\" commandrate=\"1000\" fakelag=\"yes\""));
    }
    QFile out(m_dir->filePath(QStringLiteral("inspircd.conf")));
    if (!out.open(QIODevice::WriteOnly | QIODevice::Truncate) || out.write(config.toUtf8()) < 0) {
        m_error = QStringLiteral("cannot write %1").arg(out.fileName());
        return false;
    }
    return true;
}

bool InspircdServer::launchOnce(int timeoutMs, bool firstAttempt, bool* retry)
{
    *retry = false;
    if (!pickFreePorts(&m_port, &m_tlsPort)) {
        m_error = QStringLiteral("no free port on 127.0.0.1");
        *retry = true;
        return false;
    }
    if (firstAttempt && m_firstPort != 0)
        m_port = m_firstPort;
    if (firstAttempt && m_firstTlsPort != 0)
        m_tlsPort = m_firstTlsPort;
    // A fresh log per attempt, so that an earlier attempt's lines cannot
    // satisfy this one's readiness check.
    const QString logPath = m_dir->filePath(QStringLiteral("ircd.log"));
    QFile::remove(logPath);
    if (!writeConfig())
        return false;

    QStringList args { QStringLiteral("--config"), m_dir->filePath(QStringLiteral("inspircd.conf")),
        QStringLiteral("--nofork") };
    if (::geteuid() == 0)
        args << QStringLiteral("--runasroot");

    m_process = new QProcess(this);
    m_process->setProgram(executable());
    m_process->setArguments(args);
    m_process->setWorkingDirectory(m_dir->path());
    m_process->setStandardInputFile(QProcess::nullDevice());
    m_process->setStandardOutputFile(m_dir->filePath(QStringLiteral("stdout.txt")));
    m_process->setStandardErrorFile(m_dir->filePath(QStringLiteral("stderr.txt")));
    m_process->setChildProcessModifier([] {
        // No core files from the known crash on shutdown, and no server left
        // behind if the test process dies without running its destructors.
        struct rlimit noCore = { 0, 0 };
        ::setrlimit(RLIMIT_CORE, &noCore);
#ifdef Q_OS_LINUX
        ::prctl(PR_SET_PDEATHSIG, SIGKILL);
#endif
    });
    m_process->start();
    if (!m_process->waitForStarted(10000)) {
        m_error = QStringLiteral("cannot run inspircd: %1").arg(m_process->errorString());
        return false;
    }

    const QRegularExpression listening(QStringLiteral("Added a listener on 127\\.0\\.0\\.1:(\\d+)\\b"));
    const QRegularExpression failed(QStringLiteral("Failed to listen on 127\\.0\\.0\\.1:(\\d+)\\b"));
    QElapsedTimer clock;
    clock.start();
    while (clock.elapsed() < timeoutMs) {
        if (m_process->waitForFinished(50) || m_process->state() == QProcess::NotRunning) {
            m_error = QStringLiteral("inspircd exited with status %1 during start-up:\n%2\n%3")
                          .arg(QString::number(m_process->exitCode()), logText(),
                              readFile(m_dir->filePath(QStringLiteral("stderr.txt"))));
            return false;
        }
        const QString log = readFile(logPath);
        if (failed.match(log).hasMatch()) {
            // Someone took one of the ports between picking and binding.
            m_error = QStringLiteral("a port was taken during start-up:\n%1").arg(log);
            *retry = true;
            return false;
        }
        QSet<quint16> bound;
        auto it = listening.globalMatch(log);
        while (it.hasNext())
            bound.insert(it.next().captured(1).toUShort());
        if (bound.contains(m_port) && bound.contains(m_tlsPort)
            && log.contains(QLatin1String("Startup complete"))) {
            if (portAccepts(m_port) && portAccepts(m_tlsPort))
                return true;
        }
    }
    m_error = QStringLiteral("inspircd was not ready within %1 ms:\n%2")
                  .arg(QString::number(timeoutMs), logText());
    *retry = true;
    return false;
}

void InspircdServer::stop()
{
    if (!m_process)
        return;
    if (m_process->state() != QProcess::NotRunning) {
        const qint64 pid = m_process->processId();
        if (pid > 0)
            ::kill(pid_t(pid), SIGTERM);
        if (!m_process->waitForFinished(10000)) {
            m_process->kill();
            m_process->waitForFinished(5000);
        }
    }
    // Shell convention: 128 + signal number for a process a signal ended.
    m_lastExitCode = m_process->exitStatus() == QProcess::CrashExit ? 128 + m_process->exitCode()
                                                                    : m_process->exitCode();
    delete m_process;
    m_process = nullptr;
}
