#pragma once

#include <QMutex>
#include <QObject>
#include <QProcess>
#include <QStringList>
#include <QThread>

#ifdef QUENVAR_HAVE_DBUS
#include <QDBusUnixFileDescriptor>
#endif

// A stand-in for the login manager on a private message bus started for the
// test run: answers Inhibit with one end of a pipe, so a test can see whether
// the caller still holds the lock. The bus is offered as the system bus.
class FakeLoginManager : public QObject
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.login1.Manager")

public:
    // Starts a private bus and serves on it, and points DBUS_SYSTEM_BUS_ADDRESS
    // at it. Must run before anything in the process uses the system bus.
    // Returns null (with a reason) when no bus daemon can be started.
    static FakeLoginManager* start(QString* whyNot);
    ~FakeLoginManager() override;

    // "what|who|why|mode" of every Inhibit call so far.
    QStringList calls() const;
    // Locks handed out whose every copy is still open somewhere.
    int heldLocks() const;

#ifdef QUENVAR_HAVE_DBUS
public slots:
    QDBusUnixFileDescriptor Inhibit(
        const QString& what, const QString& who, const QString& why, const QString& mode);
#endif

private:
    FakeLoginManager() = default;

    QProcess m_daemon;
    QThread m_thread;
    mutable QMutex m_mutex;
    QStringList m_calls;
    QList<int> m_readEnds;
};
