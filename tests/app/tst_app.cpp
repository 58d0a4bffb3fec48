#include "AppSetup.h"
#include "TestMain.h"

#include <QApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QIcon>
#include <QImage>
#include <QFile>
#include <QProcess>
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

    // The real program, started on a store of its own: it seeds the theme in
    // the same place the rest of the program reads it from, keeps the file to
    // its user (0600), sets a file it cannot read aside, and keeps running.
    void programSeedsItsStore_data()
    {
        QTest::addColumn<QByteArray>("before");
        QTest::addColumn<bool>("setAside");
        QTest::newRow("no store yet") << QByteArray() << false;
        QTest::newRow("a readable store") << QByteArray("[General]\nchatFont=x\n") << false;
        QTest::newRow("a broken store") << QByteArray("[General\ntheme=dark\n") << true;
    }

    void programSeedsItsStore()
    {
        QFETCH(QByteArray, before);
        QFETCH(bool, setAside);
        QTemporaryDir config;
        QVERIFY(config.isValid());
        const QString storeFile = config.path() + "/Quenvar/Quenvar.conf";
        if (!before.isEmpty()) {
            QVERIFY(QDir().mkpath(config.path() + "/Quenvar"));
            QFile file(storeFile);
            QVERIFY(file.open(QIODevice::WriteOnly) && file.write(before) == before.size());
        }
        QProcess program;
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert("XDG_CONFIG_HOME", config.path());
        env.insert("QT_QPA_PLATFORM", "offscreen");
        program.setProcessEnvironment(env);
        program.start(QStringLiteral(QUENVAR_BINARY), {});
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
        const QStringList aside = QDir(config.path() + "/Quenvar").entryList({ "Quenvar.conf.broken-*" });
        QCOMPARE(aside.size(), setAside ? 1 : 0);
        if (setAside) {
            QFile kept(config.path() + "/Quenvar/" + aside.value(0));
            QVERIFY(kept.open(QIODevice::ReadOnly));
            QCOMPARE(kept.readAll(), before);
        }
        QCOMPARE(program.state(), QProcess::Running);
        program.kill();
        program.waitForFinished(10000);
    }
};

QUENVAR_TEST_MAIN(TestApp)
#include "tst_app.moc"
