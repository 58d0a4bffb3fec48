#include "AppSetup.h"
#include "MainWindow.h"
#include "ServerStore.h"

#include <QApplication>
#include <QSettings>

#include <memory>

int main(int argc, char* argv[])
{
    auto app = std::make_unique<QApplication>(argc, argv);
    AppSetup::configureApplication();
    const QString settingsNote = AppSetup::secureSettingsFile();
    auto settings = std::make_unique<QSettings>();
    AppSetup::seedSettings(*settings);
    ServerStore::migratePasswords();

    auto window = std::make_unique<MainWindow>();
    window->show();
    if (!settingsNote.isEmpty())
        window->showStartupWarning(settingsNote);
    const int exitCode = app->exec();

    // Torn down in this order: the window, the settings object, the application.
    window.reset();
    settings.reset();
    app.reset();
    return exitCode;
}
