#include "AppSetup.h"
#include "InspircdServer.h"
#include "TestMain.h"

#include <QApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QIcon>
#include <QImage>
#include <QProcess>
#include <QScopeGuard>
#include <QSettings>
#include <QStyle>
#include <QTemporaryDir>

class TestApp : public QObject
{
    Q_OBJECT

private slots:
    void init() { QSettings().clear(); }

    void identity()
    {
        QCOMPARE(QCoreApplication::applicationName(), QStringLiteral("Quenvar"));
        QCOMPARE(QCoreApplication::organizationName(), QStringLiteral("Quenvar"));
        QCOMPARE(QCoreApplication::applicationVersion(), QStringLiteral("2.0"));
        QCOMPARE(QApplication::style()->name().toLower(), QStringLiteral("fusion"));
    }

    void seedsLightThemeOnEmptyStore()
    {
        QSettings settings;
        QVERIFY(settings.allKeys().isEmpty());
        AppSetup::seedSettings(settings);
        QCOMPARE(settings.value("theme").toString(), QStringLiteral("light"));
        QCOMPARE(settings.allKeys(), QStringList{QStringLiteral("theme")});
    }

    void keepsExistingTheme_data()
    {
        QTest::addColumn<QString>("stored");
        QTest::newRow("dark") << "dark";
        QTest::newRow("glass") << "glass";
        QTest::newRow("unknown") << "nonsense";
        QTest::newRow("empty") << "";
    }

    void keepsExistingTheme()
    {
        QFETCH(QString, stored);
        QSettings().setValue("theme", stored);
        QSettings settings;
        AppSetup::seedSettings(settings);
        QCOMPARE(QSettings().value("theme").toString(), stored);
    }

    void iconResource()
    {
        QImage icon(QStringLiteral(":/icons/app_icon"));
        QVERIFY(!icon.isNull());
        QCOMPARE(icon.size(), QSize(128, 128));
        QVERIFY(icon.hasAlphaChannel());
    }

    // The real program, started on a store of its own (the user's settings
    // folder, or the one --config-dir names): it seeds the theme in the same
    // place the rest of the program reads it from, keeps the file to its user
    // (0600), sets a file it cannot read aside, and keeps running.
    void programSeedsItsStore_data()
    {
        QTest::addColumn<QByteArray>("before");
        QTest::addColumn<bool>("setAside");
        QTest::addColumn<bool>("configDirOption");
        QTest::newRow("no store yet") << QByteArray() << false << false;
        QTest::newRow("a readable store") << QByteArray("[General]\nchatFont=x\n") << false << false;
        QTest::newRow("a broken store") << QByteArray("[General\ntheme=dark\n") << true << false;
        QTest::newRow("--config-dir, a new folder") << QByteArray() << false << true;
        QTest::newRow("--config-dir, a broken store") << QByteArray("[General\ntheme=dark\n") << true << true;
    }

    void programSeedsItsStore()
    {
        QFETCH(QByteArray, before);
        QFETCH(bool, setAside);
        QFETCH(bool, configDirOption);
        QTemporaryDir config;
        QVERIFY(config.isValid());
        const QString userFolder = config.path() + (configDirOption ? "/user" : "");
        const QString storeFolder = config.path() + (configDirOption ? "/given/Quenvar" : "/Quenvar");
        const QString storeFile = storeFolder + "/Quenvar.conf";
        if (!before.isEmpty()) {
            QVERIFY(QDir().mkpath(storeFolder));
            QFile file(storeFile);
            QVERIFY(file.open(QIODevice::WriteOnly) && file.write(before) == before.size());
        }
        QProcess program;
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert("XDG_CONFIG_HOME", userFolder);
        env.insert("QT_QPA_PLATFORM", "offscreen");
        program.setProcessEnvironment(env);
        program.start(QStringLiteral(QUENVAR_BINARY),
            configDirOption ? QStringList { "--config-dir", config.path() + "/given" } : QStringList());
        QVERIFY2(program.waitForStarted(10000), qPrintable(program.errorString()));

        QString theme;
        QElapsedTimer clock;
        clock.start();
        while (clock.elapsed() < 20000 && theme != QLatin1String("light")) {
            QTest::qWait(50);
            theme = QSettings(storeFile, QSettings::IniFormat).value("theme").toString();
        }
        QCOMPARE(theme, QStringLiteral("light"));
        // Read and write for its user, nothing for anyone else.
        QCOMPARE(QFile::permissions(storeFile) & 0x0FFF, QFile::ReadUser | QFile::WriteUser);
        const QStringList aside = QDir(storeFolder).entryList({ "Quenvar.conf.broken-*" });
        QCOMPARE(aside.size(), setAside ? 1 : 0);
        if (setAside) {
            QFile kept(storeFolder + "/" + aside.value(0));
            QVERIFY(kept.open(QIODevice::ReadOnly));
            QCOMPARE(kept.readAll(), before);
        }
        QCOMPARE(program.state(), QProcess::Running);
        program.kill();
        program.waitForFinished(10000);
        // Another settings folder leaves the user's alone.
        QCOMPARE(QDir(userFolder).exists(), !configDirOption);
    }

    // --help and --version answer without a display (the platform asked for
    // here has none); mistakes are said and end the program.
    void commandLine_data()
    {
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<QString>("platform");
        QTest::addColumn<int>("exitCode");
        QTest::addColumn<QString>("output");
        const QString version = "Quenvar " + QCoreApplication::applicationVersion() + "\n";
        QTest::newRow("--version") << QStringList { "--version" } << "xcb" << 0 << version;
        QTest::newRow("-v among Qt's options")
            << QStringList { "-platform", "xcb", "-v" } << "xcb" << 0 << version;
        QTest::newRow("--help") << QStringList { "--help" } << "xcb" << 0 << "--connect <host:port>";
        QTest::newRow("unknown option") << QStringList { "--frobnicate" } << "offscreen" << 1 << "frobnicate";
        QTest::newRow("stray argument")
            << QStringList { "irc.example.org" } << "offscreen" << 1 << "irc.example.org";
        QTest::newRow("--connect without port")
            << QStringList { "--connect", "irc.example.org" } << "offscreen" << 1 << "host:port";
        QTest::newRow("--connect port 0")
            << QStringList { "--connect", "irc.example.org:0" } << "offscreen" << 1 << "host:port";
        QTest::newRow("--config-dir empty")
            << QStringList { "--config-dir", "" } << "offscreen" << 1 << "--config-dir";
    }

    void commandLine()
    {
        QFETCH(QStringList, arguments);
        QFETCH(QString, platform);
        QFETCH(int, exitCode);
        QFETCH(QString, output);
        QTemporaryDir config;
        QProcess program;
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.remove("DISPLAY");
        env.remove("WAYLAND_DISPLAY");
        env.insert("QT_QPA_PLATFORM", platform);
        env.insert("XDG_CONFIG_HOME", config.path());
        program.setProcessEnvironment(env);
        program.start(QStringLiteral(QUENVAR_BINARY), arguments);
        QVERIFY(program.waitForFinished(30000));
        const QString printed = QString::fromLocal8Bit(
            exitCode == 0 ? program.readAllStandardOutput() : program.readAllStandardError());
        QCOMPARE(program.exitCode(), exitCode);
        QVERIFY2(exitCode == 0 && output.endsWith('\n') ? printed == output : printed.contains(output),
            qPrintable(printed));
        // Nothing was written for a run that only answered.
        QVERIFY(QDir(config.path()).isEmpty());
    }

    // scripts/run --demo: the demo's server and peers come up, Quenvar starts
    // on a settings folder of its own, connects at once and joins #quenvar;
    // stopping the demo stops everything it started and removes its folder.
    void demoConnectsAndCleansUp()
    {
        if (InspircdServer::executable().isEmpty())
            QSKIP("InspIRCd is not installed");
        QTemporaryDir tmp;
        QProcess demo;
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert("TMPDIR", tmp.path());
        env.insert("QT_QPA_PLATFORM", "offscreen");
        demo.setProcessEnvironment(env);
        demo.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        demo.start("bash",
            { QStringLiteral(QUENVAR_TEST_SUPPORT_DIR "/../../scripts/demo/demo.sh"),
                QStringLiteral(QUENVAR_BINARY) });
        QVERIFY(demo.waitForStarted(10000));
        // Stopped as a user would (Ctrl+C, closing the terminal) whatever happens.
        const auto stop = qScopeGuard([&demo] {
            demo.terminate();
            demo.waitForFinished(30000);
        });
        QByteArray output;
        QElapsedTimer clock;
        clock.start();
        while (clock.elapsed() < 60000 && !output.contains("demo: guest joined #quenvar\n")) {
            QTest::qWait(100);
            output += demo.readAllStandardOutput();
        }
        QVERIFY2(output.contains("demo: guest joined #quenvar\n"), output.constData());

        demo.terminate();
        QVERIFY(demo.waitForFinished(30000));
        QCOMPARE(QDir(tmp.path()).entryList({ "quenvar-demo-*" }), QStringList());
        // No process of the demo's is left: all of them were started on
        // paths inside its temporary folder.
        for (const QString& pid : QDir("/proc").entryList({ "[0-9]*" }, QDir::Dirs)) {
            QFile cmdline("/proc/" + pid + "/cmdline");
            if (cmdline.open(QIODevice::ReadOnly))
                QVERIFY2(!cmdline.readAll().contains(tmp.path().toLocal8Bit()), qPrintable(pid));
        }
    }
};

QUENVAR_TEST_MAIN(TestApp)
#include "tst_app.moc"
