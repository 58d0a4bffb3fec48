#include "AppSetup.h"

#include <QApplication>
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

void seedSettings(QSettings& settings)
{
    if (!settings.contains(QStringLiteral("theme")))
        settings.setValue(QStringLiteral("theme"), QStringLiteral("light"));
}

} // namespace AppSetup
