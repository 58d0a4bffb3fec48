// Nothing the user configured is lost when the program dies right after a
// save: a child process (this executable, running one scenario) makes its
// changes through the program's own operations, reports "SAVED" and is then
// killed with SIGKILL, without any chance to flush. The parent reads the store
// file back.

#include "ConnectDialog.h"
#include "IRCConnection.h"
#include "MainWindow.h"
#include "Session.h"
#include "PreferencesDialog.h"
#include "ServerStore.h"
#include "TestMain.h"

#include <QCheckBox>
#include <QComboBox>
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

} // namespace

class TestPersistence : public QObject
{
    Q_OBJECT

private:
    // Runs this executable's test function `scenario` as the child, kills it
    // once it has saved, and returns its store (empty path when it failed).
    QString runAndKill(const QString& scenario, QTemporaryDir& config)
    {
        QProcess child;
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert(ScenarioVariable, scenario);
        env.insert("QUENVAR_TEST_CONFIG_HOME", config.path());
        env.insert("QT_QPA_PLATFORM", "offscreen");
        child.setProcessEnvironment(env);
        child.start(QCoreApplication::applicationFilePath(), { scenario });
        if (!child.waitForStarted(10000))
            return QString();
        QByteArray output;
        QElapsedTimer clock;
        clock.start();
        while (!output.contains("SAVED") && clock.elapsed() < 60000 && child.state() == QProcess::Running) {
            child.waitForReadyRead(100);
            output += child.readAllStandardOutput();
        }
        if (!output.contains("SAVED")) {
            qWarning("child: %s %s", output.constData(), child.readAllStandardError().constData());
            return QString();
        }
        child.kill(); // SIGKILL: no destructors, no flushing
        child.waitForFinished(10000);
        return config.path() + "/Quenvar/Quenvar.conf";
    }

    bool isChild(const char* scenario) const { return qgetenv(ScenarioVariable) == scenario; }

private slots:
    // ---- The children --------------------------------------------------------

    void childServers()
    {
        if (!isChild("childServers"))
            QSKIP("runs as the killed child only");
        ServerConfig config;
        config.nickname = QStringLiteral("keeper");
        config.autojoinChannels = QStringList { QStringLiteral("#kept") };
        ServerStore::saveServerConfig(QStringLiteral("irc.kept.example_6697"), config);
        ServerStore::saveServerList({ QStringLiteral("irc.kept.example:6697") });
        ServerStore::saveFavorites({ QStringLiteral("irc.kept.example_6697") });
        ServerStore::saveDeletedDefaults({ ServerStore::idFromAddress(ServerStore::defaultServers().first()) });
        ServerStore::recordHistory(QStringLiteral("irc.kept.example:6697"));
        savedAndWait();
    }

    void childPreferences()
    {
        if (!isChild("childPreferences"))
            QSKIP("runs as the killed child only");
        MainWindow window(nullptr, MainWindow::Startup::Quiet);
        auto* dialog = new PreferencesDialog(&window);
        dialog->show();
        for (QSpinBox* spin : dialog->findChildren<QSpinBox*>()) {
            if (spin->maximum() == 48) // "Emoji size:"
                spin->setValue(33);
        }
        dialog->findChild<QDialogButtonBox*>()->button(QDialogButtonBox::Apply)->click();
        savedAndWait();
    }

    void childAutojoin()
    {
        if (!isChild("childAutojoin"))
            QSKIP("runs as the killed child only");
        MainWindow window(nullptr, MainWindow::Startup::Quiet);
        window.session()->setServerId(QStringLiteral("irc.kept.example_6667"));
        ServerConfig config;
        config.nickname = QStringLiteral("keeper");
        window.session()->connection()->setServerConfig(config);
        window.session()->setAutojoin(QStringLiteral("kept"), true);
        savedAndWait();
    }

    // ---- The parent ------------------------------------------------------------

    void serverStoreSurvivesAKill()
    {
        if (qEnvironmentVariableIsSet(ScenarioVariable))
            QSKIP("child run");
        QTemporaryDir config;
        const QString file = runAndKill("childServers", config);
        QVERIFY(!file.isEmpty());
        QSettings store(file, QSettings::IniFormat);
        QCOMPARE(store.value("servers/irc.kept.example_6697/nickname").toString(), QStringLiteral("keeper"));
        QCOMPARE(store.value("servers/irc.kept.example_6697/autojoin").toStringList(), QStringList { "#kept" });
        QCOMPARE(store.value("servers/irc.kept.example_6697/address").toString(), QStringLiteral("irc.kept.example:6697"));
        QCOMPARE(store.value("servers/customList").toStringList(), QStringList { "irc.kept.example_6697" });
        QCOMPARE(store.value("servers/favorites").toStringList(), QStringList { "irc.kept.example_6697" });
        QCOMPARE(store.value("servers/deletedDefaultServers").toStringList().size(), 1);
        QCOMPARE(store.value("connection/history").toStringList(), QStringList { "irc.kept.example:6697" });
    }

    void preferencesSurviveAKill()
    {
        if (qEnvironmentVariableIsSet(ScenarioVariable))
            QSKIP("child run");
        QTemporaryDir config;
        const QString file = runAndKill("childPreferences", config);
        QVERIFY(!file.isEmpty());
        QSettings store(file, QSettings::IniFormat);
        QCOMPARE(store.value("emojiSize").toInt(), 33);
        QCOMPARE(store.value("theme").toString(), QStringLiteral("light"));
        QCOMPARE(store.value("timestampFormat").toString(), QStringLiteral("[HH:mm:ss]"));
    }

    void autojoinSurvivesAKill()
    {
        if (qEnvironmentVariableIsSet(ScenarioVariable))
            QSKIP("child run");
        QTemporaryDir config;
        const QString file = runAndKill("childAutojoin", config);
        QVERIFY(!file.isEmpty());
        QSettings store(file, QSettings::IniFormat);
        QCOMPARE(store.value("servers/irc.kept.example_6667/autojoin").toStringList(), QStringList { "#kept" });
        QCOMPARE(store.value("servers/irc.kept.example_6667/nickname").toString(), QStringLiteral("keeper"));
    }
};

QUENVAR_TEST_MAIN(TestPersistence)
#include "tst_persistence.moc"
