#include "AppSetup.h"

#include "ServerStore.h"
#include "SessionLog.h"

#include <QApplication>
#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSettings>
#include <QStyle>
#include <QStyleFactory>

namespace AppSetup {

void configureApplication()
{
    QCoreApplication::setApplicationName(QStringLiteral("Quenvar"));
    QCoreApplication::setApplicationVersion(QStringLiteral(QUENVAR_VERSION));
    QCoreApplication::setOrganizationName(QStringLiteral("Quenvar"));
    // Programs without widgets (the session's tests) have no style to set.
    if (!qobject_cast<QApplication*>(QCoreApplication::instance()))
        return;
    // Desktops match the window to its desktop entry and icon by this name.
    QGuiApplication::setDesktopFileName(QStringLiteral("org.quenvar.Quenvar"));
    if (QStyle* style = QStyleFactory::create(QStringLiteral("Fusion")))
        QApplication::setStyle(style);
}

bool useSettingsFolder(const QString& dir, QString* error)
{
    if (!QDir().mkpath(dir)) {
        *error = QStringLiteral("The settings folder %1 cannot be made.").arg(QDir::toNativeSeparators(dir));
        return false;
    }
    QSettings::setPath(QSettings::NativeFormat, QSettings::UserScope, dir);
    QSettings::setPath(QSettings::IniFormat, QSettings::UserScope, dir);
    // Where the native store is no file (the registry, a property list) it
    // cannot be moved: an INI file in the folder takes its place. The probe
    // names a store the program never uses, so that the first reader of the
    // real file is still secureSettingsFile().
    const QString probe = QSettings(QSettings::NativeFormat, QSettings::UserScope,
        QCoreApplication::organizationName(), QStringLiteral("location-probe"))
                              .fileName();
    if (!QDir::cleanPath(probe).startsWith(QDir::cleanPath(dir) + QLatin1Char('/')))
        QSettings::setDefaultFormat(QSettings::IniFormat);
    // Logs with no folder chosen stay with these settings too.
    SessionLog::setDefaultFolder(QDir(dir).filePath(QStringLiteral("logs")));
    return true;
}

QString secureSettingsFile()
{
    // Only the first reader of a file hears of its errors: later ones share
    // what that one parsed.
    QString path;
    bool unreadable = false;
    {
        const QSettings settings;
        path = settings.fileName();
        unreadable = settings.status() != QSettings::NoError;
    }
    QString note;
    QFile file(path);
    if (file.exists() && unreadable) {
        const QString kept = path + QStringLiteral(".broken-")
            + QDateTime::currentDateTime().toString(QStringLiteral("yyyyMMdd-HHmmss"));
        if (file.rename(kept) && QFile::setPermissions(kept, QFile::ReadOwner | QFile::WriteOwner))
            note = QStringLiteral("The settings file could not be read. It was kept as %1; Quenvar starts with its "
                                  "default settings.")
                       .arg(QDir::toNativeSeparators(kept));
        else
            note = QStringLiteral("The settings file %1 could not be read: %2")
                       .arg(QDir::toNativeSeparators(path), file.errorString());
    }
    const QFile::Permissions owner = QFile::ReadOwner | QFile::WriteOwner;
    if (!QFile::exists(path)) {
        QDir().mkpath(QFileInfo(path).absolutePath());
        QFile created(path);
        if (created.open(QIODevice::WriteOnly))
            created.close();
    }
    QFile::setPermissions(path, owner);
    return note;
}

void seedSettings(QSettings& settings)
{
    if (!settings.contains(QStringLiteral("theme")))
        settings.setValue(QStringLiteral("theme"), QStringLiteral("light"));
}

std::optional<ServerConfig> serverToConnectAtStart(const QString& host, quint16 port)
{
    // The connect dialog comes back to the server used last, so a server
    // without a nickname of its own opens there.
    ServerStore::recordHistory(host + QLatin1Char(':') + QString::number(port));
    ServerConfig record = ServerStore::loadServerConfig(ServerStore::serverId(host, port));
    if (record.nickname.trimmed().isEmpty())
        return std::nullopt;
    return record;
}

} // namespace AppSetup
