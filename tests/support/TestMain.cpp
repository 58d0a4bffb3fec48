#include "TestMain.h"

#include <QDir>

namespace TestSupport {

QTemporaryDir* isolateSettingsStore()
{
    // A test that runs this executable as a child hands it the (temporary)
    // folder to use, so that it can read the child's store afterwards.
    const QByteArray given = qgetenv("QUENVAR_TEST_CONFIG_HOME");
    if (!given.isEmpty()) {
        qputenv("XDG_CONFIG_HOME", given);
        return nullptr;
    }
    auto* dir = new QTemporaryDir(QDir::tempPath() + QStringLiteral("/quenvar-test-XXXXXX"));
    if (!dir->isValid())
        qFatal("cannot create a temporary settings folder");
    qputenv("XDG_CONFIG_HOME", QFile::encodeName(dir->path()));
    return dir;
}

QString settingsStoreDir()
{
    return qEnvironmentVariable("XDG_CONFIG_HOME");
}

} // namespace TestSupport
