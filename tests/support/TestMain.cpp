#include "TestMain.h"

#include <QDir>

namespace TestSupport {

QTemporaryDir* isolateSettingsStore()
{
    auto* dir = new QTemporaryDir(QDir::tempPath() + QStringLiteral("/quenvar-test-XXXXXX"));
    if (!dir->isValid())
        qFatal("cannot create a temporary settings folder");
    // A test that runs this executable as a child hands it the (temporary)
    // folder to use, so that it can read the child's store afterwards.
    const QByteArray given = qgetenv("QUENVAR_TEST_CONFIG_HOME");
    qputenv("XDG_CONFIG_HOME", given.isEmpty() ? QFile::encodeName(dir->path()) : given);
    return dir;
}

QString settingsStoreDir()
{
    return qEnvironmentVariable("XDG_CONFIG_HOME");
}

} // namespace TestSupport
