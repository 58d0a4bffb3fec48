#include "TestMain.h"

#include <QDir>

namespace TestSupport {

QTemporaryDir* isolateSettingsStore()
{
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
