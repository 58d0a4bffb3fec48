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

private slots:
    void initTestCase() { QVERIFY2(SecretStore::available(), "no keyring answered on the private bus"); }

    // What reaches the keyring and what the settings file keeps, for each way
    // a record's password changes.
    void passwords()
    {
        const auto save = [](const QString& id, const QString& password) {
            ServerConfig config;
            config.nickname = "me";
            config.password = password;
            ServerStore::saveServerConfig(id, config);
        };
        const QList<QPair<std::function<void(const QString&)>, QString>> changes { // keyring entry (null: none)
            { [&](const QString& id) { save(id, "s3cret pass"); }, "s3cret pass" },
            { [&](const QString& id) { save(id, "first"); save(id, "second"); }, "second" },
            { [&](const QString& id) { save(id, "first"); save(id, QString()); }, QString() }, // cleared
            { [&](const QString& id) { save(id, "first"); ServerStore::removeServerGroup(id); }, QString() },
            { [](const QString& id) { // an old plain password migrates
                 QSettings().setValue("servers/" + id + "/password", "plain old");
                 ServerStore::migratePasswords();
             },
                "plain old" },
        };
        for (int row = 0; row < changes.size(); ++row) {
            const QString id = QStringLiteral("irc.example.net_%1").arg(6661 + row);
            const QString& inKeyring = changes.at(row).second;
            changes.at(row).first(id);
            QCOMPARE(SecretStore::read(id), inKeyring.isNull() ? std::nullopt : std::optional<QString>(inKeyring));
            QCOMPARE(ServerStore::loadServerConfig(id).password, inKeyring);
            // Never in the file while a keyring answers.
            QSettings().sync();
            QFile file(QSettings().fileName());
            const QByteArray text = file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
            for (const char* secret : { "s3cret", "first", "second", "plain old" })
                QVERIFY2(!text.contains(secret), secret);
            QVERIFY(!ServerStore::passwordsKeptInSettingsFile());
        }
    }
};

QUENVAR_CORE_TEST_MAIN(TestKeyring)
#include "tst_keyring.moc"
