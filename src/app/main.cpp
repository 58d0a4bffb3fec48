#include "AppSetup.h"
#include "CommandLine.h"
#include "MainWindow.h"
#include "ServerStore.h"
#include "Session.h"

#include <QApplication>
#include <QSettings>

#include <cstdio>
#include <memory>

int main(int argc, char* argv[])
{
    if (const int code = CommandLine::answerWithoutWindow(argc, argv); code >= 0)
        return code;

    auto app = std::make_unique<QApplication>(argc, argv);
    AppSetup::configureApplication();
    CommandLine::Options options;
    QString error;
    if (!CommandLine::parse(QCoreApplication::arguments(), &options, &error)
        || (!options.configDir.isEmpty() && !AppSetup::useSettingsFolder(options.configDir, &error))) {
        std::fprintf(stderr, "quenvar: %s\nTry quenvar --help.\n", qPrintable(error));
        return 1;
    }
    const QString settingsNote = AppSetup::secureSettingsFile();
    auto settings = std::make_unique<QSettings>();
    AppSetup::seedSettings(*settings);
    ServerStore::migratePasswords();

    std::optional<ServerConfig> server;
    if (!options.connectHost.isEmpty())
        server = AppSetup::serverToConnectAtStart(options.connectHost, options.connectPort);
    auto window = std::make_unique<MainWindow>(
        nullptr, server ? MainWindow::Startup::Quiet : MainWindow::Startup::Normal);
    window->show();
    if (server)
        window->session()->connectTo(options.connectHost, options.connectPort, *server);
    if (!settingsNote.isEmpty())
        window->showStartupWarning(settingsNote);
    const int exitCode = app->exec();

    // Torn down in this order: the window, the settings object, the application.
    window.reset();
    settings.reset();
    app.reset();
    return exitCode;
}
