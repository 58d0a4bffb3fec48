#include "PlatformPower.h"

#if defined(Q_OS_WIN)
// winsock2.h before windows.h, which would otherwise pull in the old winsock.h.
#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#include <winsock2.h>
#include <ws2tcpip.h>
#include <windows.h>
// Keep-alive option numbers of the TCP level, for SDKs that lack them.
#ifndef TCP_KEEPIDLE
#define TCP_KEEPIDLE 3
#endif
#ifndef TCP_KEEPCNT
#define TCP_KEEPCNT 16
#endif
#ifndef TCP_KEEPINTVL
#define TCP_KEEPINTVL 17
#endif
#elif defined(Q_OS_LINUX)
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>
#ifdef QUENVAR_HAVE_DBUS
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusUnixFileDescriptor>
#include <QVariant>
#endif
#endif

namespace {

#if defined(Q_OS_LINUX) && defined(QUENVAR_HAVE_DBUS)
// The login manager answers at once when it runs; a missing bus fails at once.
// The timeout only bounds a bus that is there but slow to activate the service.
constexpr int LoginManagerTimeoutMs = 1000;

// Takes a "block" inhibitor lock on sleep from the login manager. Returns the
// lock's descriptor (closing it releases the lock), or -1.
int takeLoginManagerSleepLock(const QString& reason)
{
    QDBusConnection bus = QDBusConnection::systemBus();
    if (!bus.isConnected())
        return -1;
    QDBusMessage call = QDBusMessage::createMethodCall(QStringLiteral("org.freedesktop.login1"),
        QStringLiteral("/org/freedesktop/login1"), QStringLiteral("org.freedesktop.login1.Manager"),
        QStringLiteral("Inhibit"));
    call << QStringLiteral("sleep") << QStringLiteral("Quenvar") << reason << QStringLiteral("block");
    const QDBusMessage reply = bus.call(call, QDBus::Block, LoginManagerTimeoutMs);
    if (reply.type() != QDBusMessage::ReplyMessage || reply.arguments().isEmpty())
        return -1;
    const auto lock = qvariant_cast<QDBusUnixFileDescriptor>(reply.arguments().constFirst());
    if (!lock.isValid())
        return -1;
    // The message's copy closes with it; keep one of our own.
    return ::dup(lock.fileDescriptor());
}
#endif

} // namespace

PlatformPower::~PlatformPower()
{
    releaseSleep();
}

void PlatformPower::configureTcpKeepAlive(qintptr descriptor)
{
    if (descriptor < 0)
        return;
#if defined(Q_OS_WIN)
    const auto s = static_cast<SOCKET>(descriptor);
    const DWORD on = 1;
    const DWORD idle = KeepAliveIdleSeconds;
    const DWORD interval = KeepAliveIntervalSeconds;
    const DWORD count = KeepAliveProbeCount;
    setsockopt(s, SOL_SOCKET, SO_KEEPALIVE, reinterpret_cast<const char*>(&on), int(sizeof on));
    setsockopt(s, IPPROTO_TCP, TCP_KEEPIDLE, reinterpret_cast<const char*>(&idle), int(sizeof idle));
    setsockopt(s, IPPROTO_TCP, TCP_KEEPINTVL, reinterpret_cast<const char*>(&interval), int(sizeof interval));
    setsockopt(s, IPPROTO_TCP, TCP_KEEPCNT, reinterpret_cast<const char*>(&count), int(sizeof count));
#elif defined(Q_OS_LINUX)
    const int fd = static_cast<int>(descriptor);
    const int on = 1;
    const int idle = KeepAliveIdleSeconds;
    const int interval = KeepAliveIntervalSeconds;
    const int count = KeepAliveProbeCount;
    setsockopt(fd, SOL_SOCKET, SO_KEEPALIVE, &on, sizeof on);
    setsockopt(fd, IPPROTO_TCP, TCP_KEEPIDLE, &idle, sizeof idle);
    setsockopt(fd, IPPROTO_TCP, TCP_KEEPINTVL, &interval, sizeof interval);
    setsockopt(fd, IPPROTO_TCP, TCP_KEEPCNT, &count, sizeof count);
#endif
}

void PlatformPower::inhibitSleep(const QString& reason)
{
    if (m_inhibiting)
        return;
    m_inhibiting = true;
    ++m_inhibitCount;
#if defined(Q_OS_WIN)
    Q_UNUSED(reason);
    SetThreadExecutionState(ES_CONTINUOUS | ES_SYSTEM_REQUIRED);
#elif defined(Q_OS_LINUX) && defined(QUENVAR_HAVE_DBUS)
    m_lockDescriptor = takeLoginManagerSleepLock(reason);
#else
    Q_UNUSED(reason);
#endif
}

void PlatformPower::releaseSleep()
{
    if (!m_inhibiting)
        return;
    m_inhibiting = false;
    ++m_releaseCount;
#if defined(Q_OS_WIN)
    SetThreadExecutionState(ES_CONTINUOUS);
#elif defined(Q_OS_LINUX)
    if (m_lockDescriptor >= 0)
        ::close(m_lockDescriptor);
#endif
    m_lockDescriptor = -1;
}

bool PlatformPower::holdsSystemLock() const
{
#if defined(Q_OS_WIN)
    return m_inhibiting;
#else
    return m_lockDescriptor >= 0;
#endif
}
