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
    if (QStyle* style = QStyleFactory::create(QStringLiteral("Fusion")))
        QApplication::setStyle(style);
}

void seedSettings(QSettings& settings)
{
    if (!settings.contains(QStringLiteral("theme")))
        settings.setValue(QStringLiteral("theme"), QStringLiteral("light"));
}

} // namespace AppSetup
