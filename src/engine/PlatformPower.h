#pragma once

#include <QString>
#include <QtGlobal>

// The operating-system side of keeping a connection alive: TCP keep-alive
// options on a native socket and holding off system sleep while connected.
// Every platform-specific call of the program lives here.
class PlatformPower
{
public:
    static constexpr int KeepAliveIdleSeconds = 60;
    static constexpr int KeepAliveIntervalSeconds = 10;
    static constexpr int KeepAliveProbeCount = 5;

    PlatformPower() = default;
    ~PlatformPower();
    PlatformPower(const PlatformPower&) = delete;
    PlatformPower& operator=(const PlatformPower&) = delete;

    // Turns TCP keep-alive on for the descriptor with the values above.
    // Negative descriptors are ignored; failures of the calls are ignored.
    static void configureTcpKeepAlive(qintptr descriptor);

    // Asks the system not to sleep (the display may still turn off). Does
    // nothing when already inhibiting. Where the system offers no way (or the
    // service is absent) this only records the request.
    void inhibitSleep(const QString& reason);
    // Gives the inhibition back. Does nothing when not inhibiting.
    void releaseSleep();

    bool isInhibiting() const { return m_inhibiting; }
    // Whether the system actually granted the inhibition (a held lock).
    bool holdsSystemLock() const;
    // How often an inhibition was requested from / given back to the system.
    int inhibitCount() const { return m_inhibitCount; }
    int releaseCount() const { return m_releaseCount; }

private:
    bool m_inhibiting = false;
    int m_inhibitCount = 0;
    int m_releaseCount = 0;
    int m_lockDescriptor = -1; // login manager's inhibitor lock (Linux)
};
