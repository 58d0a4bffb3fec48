#pragma once

class QSettings;
class QString;

// The start-up steps of the program entry, kept out of main() so they can be
// exercised on their own.
namespace AppSetup {

// Application name, version and organisation (in that order), then the
// "Fusion" widget style (when the application has widgets).
void configureApplication();

// The settings file is the user's alone (mode 0600; made so when it does not
// exist yet, since every later write keeps the mode). A file Qt cannot read
// is kept aside as "<file>.broken-<date and time>" and the program starts
// from defaults; the returned text then tells the user so (empty otherwise).
QString secureSettingsFile();

// Makes sure the store records a theme: writes "theme" = "light" when the key
// is absent and leaves any existing value alone.
void seedSettings(QSettings& settings);

} // namespace AppSetup
