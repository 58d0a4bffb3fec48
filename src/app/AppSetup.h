#pragma once

#include "ServerConfig.h"

#include <optional>

class QSettings;
class QString;

// The start-up steps of the program entry, kept out of main() so they can be
// exercised on their own.
namespace AppSetup {

// Application name, version and organisation (in that order), then the
// "Fusion" widget style and the desktop entry's name (when the application
// has widgets).
void configureApplication();

// Every settings store the program opens afterwards lives in `dir` (made when
// missing): the file is <dir>/Quenvar/Quenvar.conf where the platform keeps
// settings in files, an INI file there otherwise. False, with `error` set,
// when the folder cannot be made.
bool useSettingsFolder(const QString& dir, QString* error);

// The settings file is the user's alone (mode 0600; made so when it does not
// exist yet, since every later write keeps the mode). A file Qt cannot read
// is kept aside as "<file>.broken-<date and time>" and the program starts
// from defaults; the returned text then tells the user so (empty otherwise).
QString secureSettingsFile();

// Makes sure the store records a theme: writes "theme" = "light" when the key
// is absent and leaves any existing value alone.
void seedSettings(QSettings& settings);

// The server asked for at start: recorded as the last one used, and its
// stored record returned when that names a nickname (nothing otherwise, and
// the connect dialog, which opens on the last server, asks for one).
std::optional<ServerConfig> serverToConnectAtStart(const QString& host, quint16 port);

} // namespace AppSetup
