#pragma once

// QUENVAR_TEST_MAIN(TestClass) replaces QTEST_MAIN for every Quenvar test.
// Before anything touches QSettings it points XDG_CONFIG_HOME at a fresh
// temporary folder, so no test can read or write the user's real settings
// store, even when the executable is started by hand. It also selects the
// offscreen platform unless one was chosen, and gives the application the
// program's own identity (names, version, "Fusion").

#include "AppSetup.h"

#include <QApplication>
#include <QTemporaryDir>
#include <QTest>

namespace TestSupport {

// Creates the isolated configuration folder and exports it; main() keeps it
// for the whole run. A child run given QUENVAR_TEST_CONFIG_HOME by its parent
// test uses that folder instead (and gets null: the parent owns it).
QTemporaryDir* isolateSettingsStore();

} // namespace TestSupport

#define QUENVAR_TEST_MAIN_WITH(App, TestObject)                                        \
    int main(int argc, char* argv[])                                                   \
    {                                                                                  \
        std::unique_ptr<QTemporaryDir> store(TestSupport::isolateSettingsStore());     \
        if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))                            \
            qputenv("QT_QPA_PLATFORM", "offscreen");                                   \
        App app(argc, argv);                                                           \
        AppSetup::configureApplication();                                              \
        QTEST_SET_MAIN_SOURCE_PATH                                                     \
        TestObject tc;                                                                 \
        return QTest::qExec(&tc, argc, argv);                                          \
    }

#define QUENVAR_TEST_MAIN(TestObject) QUENVAR_TEST_MAIN_WITH(QApplication, TestObject)
// For tests of the layers below the window: a QCoreApplication, so that
// anything reaching for a widget fails.
#define QUENVAR_CORE_TEST_MAIN(TestObject) QUENVAR_TEST_MAIN_WITH(QCoreApplication, TestObject)
