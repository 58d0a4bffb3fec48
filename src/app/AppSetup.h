#pragma once

class QSettings;

// The start-up steps of the program entry, kept out of main() so they can be
// exercised on their own.
namespace AppSetup {

// Application name, version and organisation (in that order), then the
// "Fusion" widget style (when the application has widgets).
void configureApplication();

// Makes sure the store records a theme: writes "theme" = "light" when the key
// is absent and leaves any existing value alone.
void seedSettings(QSettings& settings);

} // namespace AppSetup
