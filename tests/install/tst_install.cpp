#include "TestMain.h"

#include <QDir>
#include <QFileInfo>
#include <QImage>
#include <QProcess>
#include <QRegularExpression>
#include <QStandardPaths>
#include <QSvgRenderer>
#include <QTemporaryDir>
#include <QTest>

// `cmake --install` of this build into a temporary prefix, and the Debian
// package CPack makes of it: the files a desktop needs, valid for the
// desktop's own tools, and a package that names what the program needs.
class TestInstall : public QObject
{
    Q_OBJECT

    QTemporaryDir m_prefix;

    // Runs a program to its end; its standard output, or a failure.
    static QByteArray run(const QString& program, const QStringList& arguments, int* exitCode = nullptr)
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

    static QString desktopId() { return QStringLiteral("org.quenvar.Quenvar"); }

    // What an install holds, relative to its prefix.
    static QStringList installedFiles()
    {
        QStringList files = { "bin/quenvar", "share/applications/" + desktopId() + ".desktop",
            "share/metainfo/" + desktopId() + ".metainfo.xml", "share/man/man1/quenvar.1.gz",
            "share/icons/hicolor/scalable/apps/" + desktopId() + ".svg" };
        for (int size : { 16, 22, 24, 32, 48, 64, 128, 256 })
            files << QStringLiteral("share/icons/hicolor/%1x%1/apps/%2.png")
                         .arg(QString::number(size), desktopId());
        return files;
    }

private slots:
    void initTestCase()
    {
        QVERIFY(m_prefix.isValid());
        int exitCode = -1;
        run(QStringLiteral(QUENVAR_CMAKE),
            { "--install", QStringLiteral(QUENVAR_BUILD_DIR), "--prefix", m_prefix.path() }, &exitCode);
        QCOMPARE(exitCode, 0);
    }

    void installsEveryFile()
    {
        for (const QString& file : installedFiles()) {
            const QString path = m_prefix.filePath(file);
            QVERIFY2(QFileInfo(path).size() > 0, qPrintable(file));
            // An icon is the size the theme folder it sits in says.
            const QRegularExpressionMatch sized = QRegularExpression("/(\\d+)x\\1/").match(file);
            if (sized.hasMatch())
                QCOMPARE(QImage(path).size(), QSize(sized.captured(1).toInt(), sized.captured(1).toInt()));
            else if (file.endsWith(".svg"))
                QVERIFY(QSvgRenderer(path).isValid());
        }
        QVERIFY(QFileInfo(m_prefix.filePath("bin/quenvar")).isExecutable());
    }

    // The desktop's own checkers accept the entry and the metainfo (where
    // they are installed; scripts/test installs them).
    void validates_data()
    {
        QTest::addColumn<QString>("tool");
        QTest::addColumn<QStringList>("arguments");
        QTest::newRow("desktop entry")
            << "desktop-file-validate" << QStringList { "share/applications/" + desktopId() + ".desktop" };
        QTest::newRow("metainfo") << "appstreamcli"
                                  << QStringList { "validate", "--no-net", "--strict",
                                         "share/metainfo/" + desktopId() + ".metainfo.xml" };
    }

    void validates()
    {
        QFETCH(QString, tool);
        QFETCH(QStringList, arguments);
        if (QStandardPaths::findExecutable(tool).isEmpty())
            QSKIP(qPrintable(tool + " is not installed"));
        for (QString& argument : arguments) {
            if (argument.startsWith("share/"))
                argument = m_prefix.filePath(argument);
        }
        int exitCode = -1;
        const QByteArray output = run(tool, arguments, &exitCode);
        QVERIFY2(exitCode == 0, output.constData());
    }

    // The installed program runs, and the newest release its metainfo
    // announces is the version it reports.
    void installedProgramMatchesItsMetainfo()
    {
        int exitCode = -1;
        const QString version
            = QString::fromUtf8(run(m_prefix.filePath("bin/quenvar"), { "--version" }, &exitCode)).trimmed();
        QCOMPARE(exitCode, 0);
        QFile metainfo(m_prefix.filePath("share/metainfo/" + desktopId() + ".metainfo.xml"));
        QVERIFY(metainfo.open(QIODevice::ReadOnly));
        const QString release = QRegularExpression("<release version=\"([^\"]+)\"")
                                    .match(QString::fromUtf8(metainfo.readAll()))
                                    .captured(1);
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
            { "-G", "DEB", "--config", QStringLiteral(QUENVAR_BUILD_DIR "/CPackConfig.cmake"), "-B",
                out.path() },
            &exitCode);
        QCOMPARE(exitCode, 0);
        const QStringList debs = QDir(out.path()).entryList({ "quenvar_*.deb" });
        QCOMPARE(debs.size(), 1);
        const QString deb = out.filePath(debs.constFirst());

        QStringList contents;
        for (const QByteArray& line : run("dpkg-deb", { "--contents", deb }).split('\n')) {
            const QString path = QString::fromUtf8(line).section(QLatin1Char(' '), -1);
            if (!path.isEmpty() && !path.endsWith('/'))
                contents << path;
        }
        QStringList expected;
        for (const QString& file : installedFiles())
            expected << "./usr/" + file;
        contents.sort();
        expected.sort();
        QCOMPARE(contents, expected);

        const QString version = QString::fromUtf8(run("dpkg-deb", { "--field", deb, "Version" })).trimmed();
        QCOMPARE(version, QCoreApplication::applicationVersion());
        const QStringList depends = QString::fromUtf8(run("dpkg-deb", { "--field", deb, "Depends" }))
                                        .remove(QRegularExpression("\\s*\\([^)]*\\)"))
                                        .split(QRegularExpression("\\s*,\\s*"), Qt::SkipEmptyParts);
        for (const char* needed : { "libqt6widgets6", "libqt6network6", "libqt6svg6", "libqt6keychain1",
                 "libsecret-1-0", "fonts-noto-color-emoji" })
            QVERIFY2(depends.contains(needed), qPrintable(depends.join(", ")));
        for (const QString& dependency : depends)
            QVERIFY2(!dependency.trimmed().endsWith("-dev"), qPrintable(dependency));
    }
};

QUENVAR_TEST_MAIN(TestInstall)
#include "tst_install.moc"
