#include "SecretStore.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QEventLoop>
#include <QTimer>

#include <qt6keychain/keychain.h>

namespace SecretStore {

namespace {

const QString Service = QStringLiteral("Quenvar");
// A job that takes longer is taken for a keyring that does not answer; the
// fallback is used for the rest of the run.
constexpr int JobTimeoutMs = 5000;

enum class State
{
    Unknown,
    Up,
    Down,
};
State state = State::Unknown;

// Runs a job to its end and says how it ended. A job left behind by the
// timeout is not deleted under the keyring's feet: it goes when it finishes.
QKeychain::Error run(QKeychain::Job* job)
{
    job->setAutoDelete(false);
    QEventLoop loop;
    bool finished = false;
    QObject::connect(job, &QKeychain::Job::finished, &loop, [&] {
        finished = true;
        loop.quit();
    });
    QTimer::singleShot(JobTimeoutMs, &loop, &QEventLoop::quit);
    job->start();
    loop.exec();
    if (!finished) {
        state = State::Down;
        QObject::connect(job, &QKeychain::Job::finished, job, &QObject::deleteLater);
        return QKeychain::OtherError;
    }
    const QKeychain::Error error = job->error();
    job->deleteLater();
    return error;
}

} // namespace

bool available()
{
    if (state == State::Unknown) {
        // Without a bus, or with nobody owning the Secret Service name, a
        // job would fail anyway, some only after a long D-Bus timeout.
        QDBusConnection bus = QDBusConnection::sessionBus();
        bool up = bus.isConnected();
        if (up) {
            const QDBusMessage ping = QDBusMessage::createMethodCall(QStringLiteral("org.freedesktop.secrets"),
                QStringLiteral("/org/freedesktop/secrets"), QStringLiteral("org.freedesktop.DBus.Peer"),
                QStringLiteral("Ping"));
            up = bus.call(ping, QDBus::Block, 2000).type() == QDBusMessage::ReplyMessage;
        }
        state = up ? State::Up : State::Down;
    }
    return state == State::Up;
}

bool write(const QString& key, const QString& secret)
{
    if (!available())
        return false;
    auto* job = new QKeychain::WritePasswordJob(Service);
    job->setKey(key);
    job->setTextData(secret);
    const bool ok = run(job) == QKeychain::NoError;
    // A keyring that refuses to store (locked, no collection) counts as none.
    if (!ok)
        state = State::Down;
    return ok;
}

std::optional<QString> read(const QString& key)
{
    if (!available())
        return std::nullopt;
    auto* job = new QKeychain::ReadPasswordJob(Service);
    job->setKey(key);
    if (run(job) != QKeychain::NoError)
        return std::nullopt;
    // run() leaves the job to deleteLater: its data is still there now.
    return job->textData();
}

bool remove(const QString& key)
{
    if (!available())
        return false;
    auto* job = new QKeychain::DeletePasswordJob(Service);
    job->setKey(key);
    const QKeychain::Error error = run(job);
    return error == QKeychain::NoError || error == QKeychain::EntryNotFound;
}

} // namespace SecretStore
