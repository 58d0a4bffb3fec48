#include "TestMain.h"

#include <QDir>

QTemporaryDir* TestSupport::isolateSettingsStore()
{
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
