// The program as it is started and shipped: its settings store, its command
// line and the demo; then `cmake --install` of this build into a temporary
// prefix and the Debian package CPack makes of it.

#include "AppSetup.h"
#include "InspircdServer.h"
#include "TestMain.h"

#include <QDir>
#include <QElapsedTimer>
#include <QImage>
#include <QProcess>
#include <QRegularExpression>
#include <QScopeGuard>
#include <QSettings>
#include <QStandardPaths>
#include <QSvgRenderer>
#include <QTemporaryDir>

namespace {

const QString DesktopId = QStringLiteral("org.quenvar.Quenvar");

// Starts program with the environment changed: "NAME=value" sets, "NAME" unsets.
void start(QProcess& process, const QString& program, const QStringList& arguments, const QStringList& env = {})
{
    QProcessEnvironment changed = QProcessEnvironment::systemEnvironment();
    for (const QString& e : env)
        e.contains('=') ? changed.insert(e.section('=', 0, 0), e.section('=', 1)) : changed.remove(e);
    process.setProcessEnvironment(changed);
    process.start(program, arguments);
}

// Runs a program to its end; its standard output. The exit code is -1 after a crash.
QByteArray run(const QString& program, const QStringList& arguments, int* exitCode = nullptr)
{
    QProcess process;
    process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    process.start(program, arguments);
    if (!process.waitForFinished(300000))
        qWarning() << program << arguments << "did not finish:" << process.errorString();
    if (exitCode)
        *exitCode = process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1;
    return process.readAllStandardOutput();
}

// What an install holds, relative to its prefix.
QStringList installedFiles()
{
    QStringList files = { "bin/quenvar", "share/applications/" + DesktopId + ".desktop",
        "share/metainfo/" + DesktopId + ".metainfo.xml", "share/man/man1/quenvar.1.gz",
        "share/icons/hicolor/scalable/apps/" + DesktopId + ".svg" };
    for (int size : { 16, 22, 24, 32, 48, 64, 128, 256 })
        files << QStringLiteral("share/icons/hicolor/%1x%1/apps/%2.png").arg(QString::number(size), DesktopId);
    return files;
}

} // namespace

class TestApp : public QObject
{
    Q_OBJECT

    QTemporaryDir m_prefix;

private slots:
    // An empty store gets the light theme and nothing else; a stored theme,
    // even an unknown or empty one, stays. The window's icon is built in.
    void seedsTheme()
    {
        for (const char* stored : { (const char*)nullptr, "dark", "glass", "nonsense", "" }) {
            QSettings settings;
            settings.clear();
            if (stored)
                settings.setValue("theme", stored);
            AppSetup::seedSettings(settings);
            QCOMPARE(QSettings().value("theme").toString(), QString::fromLatin1(stored ? stored : "light"));
            QCOMPARE(settings.allKeys(), QStringList { "theme" });
        }
        QCOMPARE(QImage(QStringLiteral(":/icons/app_icon")).size(), QSize(128, 128));
    }

    // The real program, started on a store of its own (the user's settings
    // folder, or the one --config-dir names): it seeds the theme in the same
    // place the rest of the program reads it from, keeps the file to its user
    // (0600), sets a file it cannot read aside, and keeps running.
    void programSeedsItsStore()
    {
        const QByteArray broken("[General\ntheme=dark\n");
        // What the store holds before, whether it is set aside, whether --config-dir names another folder.
        const QList<std::tuple<QByteArray, bool, bool>> cases { { {}, false, false },
            { "[General]\nchatFont=x\n", false, false }, { broken, true, false }, { {}, false, true },
            { broken, true, true } };
        for (const auto& [before, setAside, configDirOption] : cases) {
            QTemporaryDir config;
            const QString userFolder = config.path() + (configDirOption ? "/user" : "");
            const QString storeFolder = config.path() + (configDirOption ? "/given/Quenvar" : "/Quenvar");
            const QString storeFile = storeFolder + "/Quenvar.conf";
            if (!before.isEmpty()) {
                QVERIFY(QDir().mkpath(storeFolder));
                QFile file(storeFile);
                QVERIFY(file.open(QIODevice::WriteOnly) && file.write(before) == before.size());
            }
            QProcess program;
            start(program, QStringLiteral(QUENVAR_BINARY),
                configDirOption ? QStringList { "--config-dir", config.path() + "/given" } : QStringList(),
                { "XDG_CONFIG_HOME=" + userFolder, "QT_QPA_PLATFORM=offscreen" });
            QVERIFY2(program.waitForStarted(10000), qPrintable(program.errorString()));
            const auto stop = qScopeGuard([&program] {
                program.kill();
                program.waitForFinished(10000);
            });
            QTRY_COMPARE_WITH_TIMEOUT(QSettings(storeFile, QSettings::IniFormat).value("theme").toString(),
                QStringLiteral("light"), 20000);
            // Read and write for its user, nothing for anyone else.
            QCOMPARE(QFile::permissions(storeFile) & 0x0FFF, QFile::ReadUser | QFile::WriteUser);
            const QStringList aside = QDir(storeFolder).entryList({ "Quenvar.conf.broken-*" });
            QCOMPARE(aside.size(), setAside ? 1 : 0);
            QFile kept(storeFolder + "/" + aside.value(0));
            QVERIFY(!setAside || (kept.open(QIODevice::ReadOnly) && kept.readAll() == before));
            QCOMPARE(program.state(), QProcess::Running);
            // Another settings folder leaves the user's alone.
            QCOMPARE(QDir(userFolder).exists(), !configDirOption);
        }
    }

    // --help and --version answer without a display (the platform asked for
    // here has none); mistakes are said and end the program. Nothing is
    // written for a run that only answered.
    void commandLine()
    {
        const QString version = "Quenvar " + QCoreApplication::applicationVersion() + "\n";
        // The arguments, the platform, the exit code, what is printed (all of it when it ends a line).
        const QList<std::tuple<QStringList, QString, int, QString>> cases { { { "--version" }, "xcb", 0, version },
            { { "-platform", "xcb", "-v" }, "xcb", 0, version }, { { "--help" }, "xcb", 0, "--connect <host:port>" },
            { { "--frobnicate" }, "offscreen", 1, "frobnicate" }, { { "irc.example.org" }, "offscreen", 1, "irc.example.org" },
            { { "--connect", "irc.example.org" }, "offscreen", 1, "host:port" },
            { { "--connect", "irc.example.org:0" }, "offscreen", 1, "host:port" },
            { { "--config-dir", "" }, "offscreen", 1, "--config-dir" } };
        for (const auto& [arguments, platform, exitCode, output] : cases) {
            QTemporaryDir config;
            QProcess program;
            start(program, QStringLiteral(QUENVAR_BINARY), arguments,
                { "DISPLAY", "WAYLAND_DISPLAY", "QT_QPA_PLATFORM=" + platform, "XDG_CONFIG_HOME=" + config.path() });
            QVERIFY(program.waitForFinished(30000));
            const QString printed = QString::fromLocal8Bit(
                exitCode == 0 ? program.readAllStandardOutput() : program.readAllStandardError());
            QVERIFY2(program.exitCode() == exitCode, qPrintable(arguments.join(' ')));
            QVERIFY2(exitCode == 0 && output.endsWith('\n') ? printed == output : printed.contains(output),
                qPrintable(printed));
            QVERIFY(QDir(config.path()).isEmpty());
        }
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
        demo.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        start(demo, "bash",
            { QStringLiteral(QUENVAR_TEST_SUPPORT_DIR "/../../scripts/demo/demo.sh"), QStringLiteral(QUENVAR_BINARY) },
            { "TMPDIR=" + tmp.path(), "QT_QPA_PLATFORM=offscreen" });
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

    // Every file an install holds (icons the size their theme folder says),
    // accepted by the desktop's own checkers where they are installed
    // (scripts/test installs them); the installed program reports the newest
    // release its metainfo announces.
    void installs()
    {
        int exitCode = -1;
        run(QStringLiteral(QUENVAR_CMAKE),
            { "--install", QStringLiteral(QUENVAR_BUILD_DIR), "--prefix", m_prefix.path() }, &exitCode);
        QCOMPARE(exitCode, 0);
        for (const QString& file : installedFiles()) {
            const QString path = m_prefix.filePath(file);
            QVERIFY2(QFileInfo(path).size() > 0, qPrintable(file));
            const QRegularExpressionMatch sized = QRegularExpression("/(\\d+)x\\1/").match(file);
            if (sized.hasMatch())
                QCOMPARE(QImage(path).size(), QSize(sized.captured(1).toInt(), sized.captured(1).toInt()));
            QVERIFY(!file.endsWith(".svg") || QSvgRenderer(path).isValid());
        }
        QVERIFY(QFileInfo(m_prefix.filePath("bin/quenvar")).isExecutable());
        const QString metainfo = m_prefix.filePath("share/metainfo/" + DesktopId + ".metainfo.xml");
        for (const QStringList& check : { QStringList { "desktop-file-validate",
                                              m_prefix.filePath("share/applications/" + DesktopId + ".desktop") },
                 QStringList { "appstreamcli", "validate", "--no-net", "--strict", metainfo } }) {
            if (QStandardPaths::findExecutable(check.first()).isEmpty()) {
                qWarning() << check.first() << "is not installed";
                continue;
            }
            const QByteArray output = run(check.first(), check.mid(1), &exitCode);
            QVERIFY2(exitCode == 0, output.constData());
        }
        const QString version = QString::fromUtf8(run(m_prefix.filePath("bin/quenvar"), { "--version" })).trimmed();
        QFile file(metainfo);
        QVERIFY(file.open(QIODevice::ReadOnly));
        const QString release
            = QRegularExpression("<release version=\"([^\"]+)\"").match(QString::fromUtf8(file.readAll())).captured(1);
        QCOMPARE(version, "Quenvar " + release);
    }

    // The package holds what the install holds, under /usr and nowhere else,
    // and depends on the Qt libraries it links and on what it loads by name.
    void debianPackage()
    {
        if (QStandardPaths::findExecutable("dpkg-shlibdeps").isEmpty() || QString(QUENVAR_CPACK).isEmpty())
            QSKIP("dpkg-dev or cpack is not installed");
        QTemporaryDir out;
        int exitCode = -1;
        run(QStringLiteral(QUENVAR_CPACK),
            { "-G", "DEB", "--config", QStringLiteral(QUENVAR_BUILD_DIR "/CPackConfig.cmake"), "-B", out.path() },
            &exitCode);
        QCOMPARE(exitCode, 0);
        const QStringList debs = QDir(out.path()).entryList({ "quenvar_*.deb" });
        QCOMPARE(debs.size(), 1);
        const QString deb = out.filePath(debs.constFirst());
        QStringList contents, expected;
        for (const QByteArray& line : run("dpkg-deb", { "--contents", deb }).split('\n')) {
            const QString path = QString::fromUtf8(line).section(QLatin1Char(' '), -1);
            if (!path.isEmpty() && !path.endsWith('/'))
                contents << path;
        }
        for (const QString& file : installedFiles())
            expected << "./usr/" + file;
        contents.sort();
        expected.sort();
        QCOMPARE(contents, expected);
        const auto field = [&deb](const char* name) { return QString::fromUtf8(run("dpkg-deb", { "--field", deb, name })); };
        QCOMPARE(field("Version").trimmed(), QCoreApplication::applicationVersion());
        const QStringList depends = field("Depends")
                                        .remove(QRegularExpression("\\s*\\([^)]*\\)"))
                                        .split(QRegularExpression("\\s*,\\s*"), Qt::SkipEmptyParts);
        for (const char* needed : { "libqt6widgets6", "libqt6network6", "libqt6svg6", "libqt6keychain1",
                 "libsecret-1-0", "fonts-noto-color-emoji" })
            QVERIFY2(depends.contains(needed), qPrintable(depends.join(", ")));
        for (const QString& dependency : depends)
            QVERIFY2(!dependency.trimmed().endsWith("-dev"), qPrintable(dependency));
    }
};

QUENVAR_TEST_MAIN(TestApp)
#include "tst_app.moc"
