#include "AppSetup.h"

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
    QCoreApplication::setApplicationVersion(QStringLiteral("2.0"));
    QCoreApplication::setOrganizationName(QStringLiteral("Quenvar"));
    // Programs without widgets (the session's tests) have no style to set.
    if (!qobject_cast<QApplication*>(QCoreApplication::instance()))
        return;
    if (QStyle* style = QStyleFactory::create(QStringLiteral("Fusion")))
        QApplication::setStyle(style);
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

} // namespace AppSetup
