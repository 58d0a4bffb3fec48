// Server passwords in a real Secret Service: a throw-away gnome-keyring on a
// private session bus (support/with-keyring.sh runs this executable).

#include "SecretStore.h"
#include "ServerStore.h"
#include "TestMain.h"

#include <QFile>
#include <QSettings>
#include <QTest>

#include <functional>

class TestKeyring : public QObject
{
    Q_OBJECT

    static QByteArray settingsFileText()
    {
        QSettings().sync();
        QFile file(QSettings().fileName());
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
    }

private slots:
    void initTestCase() { QVERIFY2(SecretStore::available(), "no keyring answered on the private bus"); }

    // What reaches the keyring and what the settings file keeps, for each way
    // a record's password changes.
    void passwords_data()
    {
        QTest::addColumn<std::function<void(const QString&)>>("change");
        QTest::addColumn<QString>("inKeyring"); // null: no entry
        using F = std::function<void(const QString&)>;
        const auto save = [](const QString& id, const QString& password) {
            ServerConfig config;
            config.nickname = QStringLiteral("me");
            config.password = password;
            ServerStore::saveServerConfig(id, config);
        };
        QTest::newRow("saved") << F([save](const QString& id) { save(id, "s3cret pass"); }) << "s3cret pass";
        QTest::newRow("changed") << F([save](const QString& id) {
            save(id, "first");
            save(id, "second");
        }) << "second";
        QTest::newRow("cleared") << F([save](const QString& id) {
            save(id, "first");
            save(id, QString());
        }) << QString();
        QTest::newRow("removed with its record") << F([save](const QString& id) {
            save(id, "first");
            ServerStore::removeServerGroup(id);
        }) << QString();
        QTest::newRow("an old plain password migrates") << F([](const QString& id) {
            QSettings().setValue("servers/" + id + "/password", "plain old");
            ServerStore::migratePasswords();
        }) << "plain old";
    }

    void passwords()
    {
        QFETCH(std::function<void(const QString&)>, change);
        QFETCH(QString, inKeyring);
        static int row = 0;
        const QString id = QStringLiteral("irc.example.net_%1").arg(6660 + ++row);
        change(id);
        QCOMPARE(SecretStore::read(id), inKeyring.isNull() ? std::nullopt : std::optional<QString>(inKeyring));
        QCOMPARE(ServerStore::loadServerConfig(id).password, inKeyring.isNull() ? QString() : inKeyring);
        // Never in the file while a keyring answers.
        for (const char* secret : { "s3cret", "first", "second", "plain old" })
            QVERIFY2(!settingsFileText().contains(secret), secret);
        QVERIFY(!ServerStore::passwordsKeptInSettingsFile());
    }
};

QUENVAR_CORE_TEST_MAIN(TestKeyring)
#include "tst_keyring.moc"
