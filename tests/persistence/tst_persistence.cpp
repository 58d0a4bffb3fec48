// Nothing the user configured is lost when the program dies right after a
// save: a child process (this executable, running one scenario) makes its
// changes through the program's own operations, reports "SAVED" and is then
// killed with SIGKILL, without any chance to flush. The parent reads the store
// file back.

#include "IRCConnection.h"
#include "MainWindow.h"
#include "PreferencesDialog.h"
#include "ServerStore.h"
#include "Session.h"
#include "TestMain.h"

#include <QDialogButtonBox>
#include <QProcess>
#include <QPushButton>
#include <QSettings>
#include <QSpinBox>
#include <QTemporaryDir>

#include <cstdio>

namespace {

const char* const ScenarioVariable = "QUENVAR_CRASH_SCENARIO";

// In the child: says the changes are made, then waits to be killed.
void savedAndWait()
{
    std::printf("SAVED\n");
    std::fflush(stdout);
    for (;;)
        QTest::qWait(1000);
}

// The children's changes, by name.
void runScenario(const QByteArray& name)
{
    if (name == "servers") {
        ServerConfig config;
        config.nickname = "keeper";
        config.autojoinChannels = QStringList { "#kept" };
        ServerStore::saveServerConfig("irc.kept.example_6697", config);
        ServerStore::saveServerList({ "irc.kept.example:6697" });
        ServerStore::saveFavorites({ "irc.kept.example_6697" });
        ServerStore::saveDeletedDefaults({ ServerStore::idFromAddress(ServerStore::defaultServers().first()) });
        ServerStore::recordHistory("irc.kept.example:6697");
        savedAndWait();
    }
    MainWindow window(nullptr, MainWindow::Startup::Quiet);
    if (name == "preferences") {
        auto* dialog = new PreferencesDialog(&window);
        dialog->show();
        for (QSpinBox* spin : dialog->findChildren<QSpinBox*>()) {
            if (spin->maximum() == 48) // "Emoji size:"
                spin->setValue(33);
        }
        dialog->findChild<QDialogButtonBox*>()->button(QDialogButtonBox::Apply)->click();
    } else if (name == "autojoin") {
        window.session()->setServerId("irc.kept.example_6667");
        ServerConfig config;
        config.nickname = "keeper";
        window.session()->connection()->setServerConfig(config);
        window.session()->setAutojoin("kept", true);
    }
    savedAndWait();
}

} // namespace

class TestPersistence : public QObject
{
    Q_OBJECT

private slots:
    void survivesAKill_data()
    {
        QTest::addColumn<QString>("scenario");
        QTest::addColumn<QStringList>("stored"); // "key=value", lists joined with ","
        const QString kept = "servers/irc.kept.example_6697/";
        QTest::newRow("server records") << "servers"
            << QStringList { kept + "nickname=keeper", kept + "autojoin=#kept",
                   kept + "address=irc.kept.example:6697", "servers/customList=irc.kept.example_6697",
                   "servers/favorites=irc.kept.example_6697", "connection/history=irc.kept.example:6697",
                   "servers/deletedDefaultServers="
                       + ServerStore::idFromAddress(ServerStore::defaultServers().first()) };
        QTest::newRow("preferences applied")
            << "preferences" << QStringList { "emojiSize=33", "theme=light", "timestampFormat=[HH:mm:ss]" };
        QTest::newRow("autojoin") << "autojoin"
                                  << QStringList { "servers/irc.kept.example_6667/autojoin=#kept",
                                         "servers/irc.kept.example_6667/nickname=keeper" };
    }

    void survivesAKill()
    {
        if (qEnvironmentVariableIsSet(ScenarioVariable))
            runScenario(qgetenv(ScenarioVariable)); // never returns
        QFETCH(QString, scenario);
        QFETCH(QStringList, stored);
        QTemporaryDir config;
        QProcess child;
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert(ScenarioVariable, scenario);
        env.insert("QUENVAR_TEST_CONFIG_HOME", config.path());
        env.insert("QT_QPA_PLATFORM", "offscreen");
        child.setProcessEnvironment(env);
        child.start(QCoreApplication::applicationFilePath(), { "survivesAKill" });
        QByteArray output;
        QVERIFY(QTest::qWaitFor([&] {
            child.waitForReadyRead(100);
            output += child.readAllStandardOutput();
            return output.contains("SAVED") || child.state() == QProcess::NotRunning;
        }, 60000));
        QVERIFY2(output.contains("SAVED"), (output + child.readAllStandardError()).constData());
        child.kill(); // SIGKILL: no destructors, no flushing
        child.waitForFinished(10000);

        QSettings store(config.path() + "/Quenvar/Quenvar.conf", QSettings::IniFormat);
        for (const QString& entry : stored)
            QCOMPARE(store.value(entry.section('=', 0, 0)).toStringList().join(','), entry.section('=', 1));
    }
};

QUENVAR_TEST_MAIN(TestPersistence)
#include "tst_persistence.moc"
