#include "FakeLoginManager.h"

#include <QMutexLocker>
#include <QStandardPaths>

#ifdef QUENVAR_HAVE_DBUS
#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusError>
#endif

#ifdef Q_OS_UNIX
#include <fcntl.h>
#include <poll.h>
#include <unistd.h>
#endif

namespace {
const QString ConnectionName = QStringLiteral("quenvar-fake-login1");
} // namespace

FakeLoginManager* FakeLoginManager::start(QString* whyNot)
{
#if defined(QUENVAR_HAVE_DBUS) && defined(Q_OS_UNIX)
    const QString daemon = QStandardPaths::findExecutable(QStringLiteral("dbus-daemon"));
    if (daemon.isEmpty()) {
        *whyNot = QStringLiteral("dbus-daemon is not installed");
        return nullptr;
    }
    auto* fake = new FakeLoginManager;
    fake->m_daemon.setProgram(daemon);
    fake->m_daemon.setArguments({ QStringLiteral("--session"), QStringLiteral("--nofork"),
        QStringLiteral("--nopidfile"), QStringLiteral("--print-address=1") });
    fake->m_daemon.start();
    QString address;
    if (fake->m_daemon.waitForStarted(5000)) {
        while (!fake->m_daemon.canReadLine() && fake->m_daemon.waitForReadyRead(5000)) { }
        address = QString::fromUtf8(fake->m_daemon.readLine()).trimmed();
    }
    if (address.isEmpty()) {
        *whyNot = QStringLiteral("the bus daemon did not start");
        delete fake;
        return nullptr;
    }
    QDBusConnection bus = QDBusConnection::connectToBus(address, ConnectionName);
    if (!bus.isConnected() || !bus.registerService(QStringLiteral("org.freedesktop.login1"))) {
        *whyNot = QStringLiteral("cannot serve on the private bus: ") + bus.lastError().message();
        delete fake;
        return nullptr;
    }
    // Served from a thread of its own: the caller blocks on the GUI thread.
    fake->m_thread.start();
    fake->moveToThread(&fake->m_thread);
    bus.registerObject(QStringLiteral("/org/freedesktop/login1"), fake, QDBusConnection::ExportAllSlots);
    qputenv("DBUS_SYSTEM_BUS_ADDRESS", address.toUtf8());
    return fake;
#else
    *whyNot = QStringLiteral("no D-Bus support in this build");
    return nullptr;
#endif
}

FakeLoginManager::~FakeLoginManager()
{
#ifdef QUENVAR_HAVE_DBUS
    QDBusConnection::disconnectFromBus(ConnectionName);
#endif
    m_thread.quit();
    m_thread.wait(5000);
    if (m_daemon.state() != QProcess::NotRunning) {
        m_daemon.terminate();
        if (!m_daemon.waitForFinished(5000))
            m_daemon.kill();
        m_daemon.waitForFinished(5000);
    }
#ifdef Q_OS_UNIX
    for (const int fd : std::as_const(m_readEnds))
        ::close(fd);
#endif
}

QStringList FakeLoginManager::calls() const
{
    QMutexLocker lock(&m_mutex);
    return m_calls;
}

int FakeLoginManager::heldLocks() const
{
    QMutexLocker lock(&m_mutex);
    int held = 0;
#ifdef Q_OS_UNIX
    for (const int fd : m_readEnds) {
        // The read end reports a hang-up once every write end is closed.
        pollfd p { fd, POLLIN, 0 };
        if (::poll(&p, 1, 0) == 0)
            ++held;
    }
#endif
    return held;
}

#ifdef QUENVAR_HAVE_DBUS
QDBusUnixFileDescriptor FakeLoginManager::Inhibit(
    const QString& what, const QString& who, const QString& why, const QString& mode)
{
    QMutexLocker lock(&m_mutex);
    m_calls.append(QStringList { what, who, why, mode }.join(QLatin1Char('|')));
    int ends[2] = { -1, -1 };
#ifdef Q_OS_UNIX
    if (::pipe2(ends, O_CLOEXEC) != 0)
        return QDBusUnixFileDescriptor();
    m_readEnds.append(ends[0]);
#endif
    QDBusUnixFileDescriptor lockEnd(ends[1]); // keeps a copy of its own
#ifdef Q_OS_UNIX
    ::close(ends[1]);
#endif
    return lockEnd;
}
#endif
