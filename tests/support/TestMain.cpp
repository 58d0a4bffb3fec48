#include "TestMain.h"

#include <QDir>

QTemporaryDir* TestSupport::isolateSettingsStore()
{
    const QByteArray given = qgetenv("QUENVAR_TEST_CONFIG_HOME");
    auto* dir = given.isEmpty() ? new QTemporaryDir(QDir::tempPath() + "/quenvar-test-XXXXXX") : nullptr;
    if (dir && !dir->isValid())
        qFatal("cannot create a temporary settings folder");
    qputenv("XDG_CONFIG_HOME", dir ? QFile::encodeName(dir->path()) : given);
    return dir;
}
