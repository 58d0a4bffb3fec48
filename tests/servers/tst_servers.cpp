#include "ConnectDialog.h"
#include "ModalDriver.h"
#include "ServerEditDialog.h"
#include "ServerStore.h"
#include "TestMain.h"

#include <QCheckBox>
#include <QComboBox>
#include <QLineEdit>
#include <QListWidget>
#include <QSettings>
#include <QSignalSpy>

using namespace ModalDriver;

namespace {

const QString Oftc = QStringLiteral("irc.oftc.net:6667");
const QString OftcId = QStringLiteral("irc.oftc.net_6667");

QLineEdit* edit(QWidget& dialog, const char* name) { return dialog.findChild<QLineEdit*>(QString::fromLatin1(name)); }
QListWidget* listOf(const ConnectDialog& dialog) { return dialog.findChild<QListWidget*>(); }
QString value(const QString& key) { return QSettings().value(key).toString(); }
QStringList listValue(const QString& key) { return QSettings().value(key).toStringList(); }

QStringList rows(const ConnectDialog& dialog)
{
    QStringList texts;
    for (int i = 0; i < listOf(dialog)->count(); ++i)
        texts.append(listOf(dialog)->item(i)->text());
    return texts;
}

QString currentText(const ConnectDialog& dialog)
{
    return listOf(dialog)->currentItem() ? listOf(dialog)->currentItem()->text() : QString();
}

void select(ConnectDialog& dialog, const QString& row) { listOf(dialog)->setCurrentRow(rows(dialog).indexOf(row)); }

void makeFavorite(ConnectDialog& dialog, const QString& row)
{
    select(dialog, row);
    dialog.toggleCurrentFavorite();
}

// Adds a server (or runs `act`) through the edit dialog, saved with these
// fields; a null nick leaves the field as shown.
void viaEditor(ConnectDialog& dialog, const QString& host, const QString& port, const QString& nick = {},
    void (ConnectDialog::*act)() = &ConnectDialog::addServer)
{
    auto handle = onModal<ServerEditDialog>([=](ServerEditDialog* editor) {
        edit(*editor, "addressEdit")->setText(host);
        edit(*editor, "portEdit")->setText(port);
        if (!nick.isNull())
            edit(*editor, "nickEdit")->setText(nick);
        editor->accept();
    });
    (dialog.*act)();
    QVERIFY(handle->handled);
}

// Deletes the current row, confirming with Yes.
void deleteCurrent(ConnectDialog& dialog)
{
    auto box = onMessageBox(QStringLiteral("Delete Server"), QMessageBox::Yes);
    dialog.deleteServer();
    QVERIFY(box->handled);
}

ServerConfig sampleConfig()
{
    return { "alice", "alice_", "Alice Liddell", "SASL PLAIN", " secret ", "", { "#one", "#two" }, "KOI8-R",
        true, "", false };
}

// Every field of a record, to compare records in one go.
QStringList fields(const ServerConfig& c)
{
    return { c.nickname, c.altNickname, c.realName, c.authMethod, c.password, c.autojoinChannels.join('|'),
        c.encoding, c.useSsl ? "ssl" : "no ssl" };
}

} // namespace

class TestServers : public QObject
{
    Q_OBJECT

private slots:
    void init() { QSettings().clear(); }

    // --- The store -------------------------------------------------------

    // Identifiers from addresses; a host with "_" does not split in two: the
    // dialog stores the identifier as its own address, the chat window stores
    // none. Listed from the custom list, it gets its derived address. Odd
    // identifiers must not break the store.
    void identifiers()
    {
        const QList<std::pair<QString, QString>> cases { { "irc.example.org:006667", "irc.example.org_6667" },
            { "irc.example.org:abc", "irc.example.org_0" }, { ":6667", "_6667" },
            { "my_host:7000", "my_host_7000" }, { "irc.example.org", "" }, { "irc.example.org:1:2", "" },
            { "::1:6667", "" } };
        for (const auto& [address, id] : cases)
            QCOMPARE(ServerStore::idFromAddress(address), id);
        ServerStore::saveServerConfig(QStringLiteral("my_host_6667"), ServerConfig());
        QCOMPARE(value("servers/my_host_6667/address"), QStringLiteral("my_host_6667"));
        ServerStore::saveServerConfig("odd_host_1", ServerConfig(), ServerStore::OddAddress::Skip);
        QVERIFY(QSettings().contains("servers/odd_host_1/nickname") && !QSettings().contains("servers/odd_host_1/address"));
        QSettings().setValue("servers/customList",
            QStringList { "my_host_7000", "", "favorites", "a/b_1", "x\\y_2", QString(300, QLatin1Char('z')) });
        ConnectDialog dialog;
        QVERIFY(rows(dialog).contains(QStringLiteral("my:host:7000")));
        QCOMPARE(value("servers/my_host_7000/address"), QStringLiteral("my:host:7000"));
        ServerStore::removeServerGroup(QString());
        QVERIFY(!listValue("servers/customList").isEmpty()); // the empty id removed nothing
    }

    void records()
    {
        ServerConfig config = sampleConfig();
        ServerStore::saveServerConfig(QStringLiteral("irc.example.org_6697"), config);
        // The key names are what existing settings files hold; without a
        // keyring the password stays in the file, without the keyring mark.
        const QMap<QString, QString> keys { { "altnick", "alice_" }, { "authmethod", "SASL PLAIN" },
            { "password", " secret " }, { "address", "irc.example.org:6697" }, { "passwordinkeyring", "" } };
        for (auto it = keys.cbegin(); it != keys.cend(); ++it)
            QCOMPARE(value("servers/irc.example.org_6697/" + it.key()), it.value());
        QVERIFY(ServerStore::passwordsKeptInSettingsFile());
        QCOMPARE(fields(ServerStore::loadServerConfig("irc.example.org_6697")), fields(config));
        ServerStore::migratePasswords(); // without a keyring: stays where it is
        QCOMPARE(value("servers/irc.example.org_6697/password"), QStringLiteral(" secret "));
        // A one-element list survives the settings file, too.
        config.autojoinChannels = QStringList { QStringLiteral("#only") };
        ServerStore::saveServerConfig(QStringLiteral("h_1"), config);
        QCOMPARE(ServerStore::loadServerConfig("h_1").autojoinChannels, config.autojoinChannels);

        // Missing keys read as the fallback's fields; reading writes nothing.
        QSettings().setValue("servers/h_2/nickname", "stored");
        const QStringList keysBefore = QSettings().allKeys();
        QCOMPARE(fields(ServerStore::loadServerConfig("nowhere_1")), fields(ServerConfig()));
        config = sampleConfig();
        const ServerConfig mixed = ServerStore::loadServerConfig(QStringLiteral("h_2"), config);
        config.nickname = QStringLiteral("stored");
        QCOMPARE(fields(mixed), fields(config));
        QCOMPARE(QSettings().allKeys(), keysBefore);
    }

    // The newest ten, oldest first; an entry used again moves to the end.
    void history()
    {
        QStringList expected;
        for (int i = 1; i <= 11; ++i)
            ServerStore::recordHistory(expected.emplaceBack(QStringLiteral("h%1:6667").arg(i)));
        QCOMPARE(ServerStore::history(), expected.mid(1));
        ServerStore::recordHistory(QStringLiteral("h5:6667"));
        expected.removeAll(QStringLiteral("h5:6667"));
        QCOMPARE(listValue("connection/history"), expected.mid(1) << QStringLiteral("h5:6667"));
    }

    // --- The list --------------------------------------------------------

    // A first start lists the networks and selects the default. The chat
    // window stores the record of a server connected to by hand; the next
    // start lists that server from the history and shows its record.
    void startingLists()
    {
        ConnectDialog dialog;
        QCOMPARE(rows(dialog).size(), ServerStore::defaultServers().size());
        QCOMPARE(currentText(dialog), ServerStore::defaultAddress());
        QCOMPARE(edit(dialog, "serverEdit")->text(), ServerStore::defaultHost());
        QCOMPARE(value("servers/irc.dal.net_7000/address"), QStringLiteral("irc.dal.net:7000"));
        QVERIFY(listValue("servers/customList").isEmpty());
        QSettings settings;
        settings.setValue("connection/history", QStringList { "127.0.0.1:16667" });
        settings.setValue("servers/127.0.0.1_16667/nickname", "alice");
        settings.setValue("servers/127.0.0.1_16667/autojoin", QStringList { "#a", "#b" });
        settings.sync();
        ConnectDialog next;
        QCOMPARE(currentText(next), QStringLiteral("127.0.0.1:16667"));
        QCOMPARE(listValue("servers/customList"), QStringList { "127.0.0.1_16667" });
        QCOMPARE(edit(next, "nickEdit")->text(), QStringLiteral("alice"));
        QCOMPARE(edit(next, "channelsEdit")->text(), QStringLiteral("#a, #b"));
    }

    void addingServers()
    {
        ConnectDialog dialog;
        const int defaults = rows(dialog).size();
        auto editor = onModal<ServerEditDialog>([](ServerEditDialog* d) { d->reject(); });
        dialog.addServer();
        QVERIFY(editor->handled);
        QCOMPARE(rows(dialog).size(), defaults); // cancelled

        viaEditor(dialog, "  irc.example.org ", "06697", "bob");
        QCOMPARE(currentText(dialog), QStringLiteral("irc.example.org:6697"));
        QCOMPARE(value("servers/irc.example.org_6697/nickname"), QStringLiteral("bob"));
        QVERIFY(rows(ConnectDialog()).contains(QStringLiteral("irc.example.org:6697")));

        // A server already listed is only selected.
        auto box = onMessageBox(QStringLiteral("Add Server"), QMessageBox::Ok);
        viaEditor(dialog, "irc.oftc.net", "6667");
        QVERIFY(box->handled);
        QCOMPARE(currentText(dialog), Oftc);
        QCOMPARE(rows(dialog).size(), defaults + 1);
    }

    // Favourites first, then the rest, case ignored; the marker is display
    // only; favourites not listed are kept.
    void favourites()
    {
        ServerStore::saveFavorites({ QStringLiteral("gone.example_1") });
        ConnectDialog dialog;
        viaEditor(dialog, "C.example", "2");
        viaEditor(dialog, "b.example", "1");
        viaEditor(dialog, "zz.example", "3");
        // The custom list follows the display order and holds no defaults.
        QCOMPARE(
            listValue("servers/customList"), (QStringList { "b.example_1", "C.example_2", "zz.example_3" }));
        makeFavorite(dialog, "zz.example:3");
        makeFavorite(dialog, Oftc);
        const QStringList favourites { FavMarker + Oftc, FavMarker + "zz.example:3" };
        QCOMPARE(rows(dialog).mid(0, 3), favourites + QStringList { rows(dialog).at(2) });
        QVERIFY(!rows(dialog).at(2).startsWith(FavMarker));
        QCOMPARE(currentText(dialog), FavMarker + Oftc); // selection follows the row
        QCOMPARE(value("servers/irc.oftc.net_6667/address"), Oftc);

        ConnectDialog reloaded;
        QCOMPARE(rows(reloaded).mid(0, 2), favourites);
        makeFavorite(reloaded, FavMarker + "zz.example:3");
        QVERIFY(!rows(reloaded).at(1).startsWith(FavMarker));
        QCOMPARE(ServerStore::loadFavorites(), (QSet<QString> { "gone.example_1", OftcId }));
    }

    // Edited in place a favourite stays one and loses TLS (the edit dialog
    // carries no TLS flag); edited to another address it is a new entry, no
    // favourite, and the default comes back on the next load.
    void editing()
    {
        ServerStore::saveServerConfig(OftcId, sampleConfig());
        ConnectDialog dialog;
        makeFavorite(dialog, Oftc);
        QStringList shown;
        auto editor = onModal<ServerEditDialog>([&shown](ServerEditDialog* d) {
            shown << edit(*d, "nickEdit")->text() << edit(*d, "autojoinEdit")->text()
                  << d->findChild<QComboBox*>("encodingCombo")->currentText();
            edit(*d, "autojoinEdit")->setText(QStringLiteral("x"));
            d->accept();
        });
        dialog.editServer();
        QVERIFY(editor->handled);
        QCOMPARE(shown, (QStringList { "alice", "#one, #two", "KOI8-R" }));
        QCOMPARE(currentText(dialog), FavMarker + Oftc);
        QCOMPARE(edit(dialog, "channelsEdit")->text(), QStringLiteral("#x"));
        QVERIFY(!dialog.findChild<QCheckBox*>()->isChecked());
        QCOMPARE(fields(ServerStore::loadServerConfig(OftcId)).mid(4),
            (QStringList { " secret ", "#x", "KOI8-R", "no ssl" }));

        viaEditor(dialog, "irc.oftc.net", "6697", "carol", &ConnectDialog::editServer);
        QCOMPARE(currentText(dialog), QStringLiteral("irc.oftc.net:6697"));
        QVERIFY(
            listValue("servers/favorites").isEmpty() && listValue("servers/deletedDefaultServers").isEmpty());
        QVERIFY(!QSettings().contains("servers/irc.oftc.net_6667/nickname"));
        QCOMPARE(value("servers/irc.oftc.net_6697/nickname"), QStringLiteral("carol"));
        QCOMPARE(listValue("servers/customList"), QStringList { "irc.oftc.net_6697" });
        QVERIFY(rows(ConnectDialog()).contains(Oftc));
    }

    // Deleting asks first, "No" being the default. A deleted default stays
    // away (keeping its favourite mark) until added again; a custom server
    // goes with its record and favourite.
    void deleting()
    {
        ServerStore::saveServerConfig(OftcId, sampleConfig());
        const int defaults = ServerStore::defaultServers().size();
        {
            ConnectDialog dialog;
            makeFavorite(dialog, Oftc);
            bool noIsDefault = false;
            auto box = onModal<QMessageBox>([&noIsDefault](QMessageBox* b) {
                noIsDefault = b->defaultButton() == b->button(QMessageBox::No);
                b->button(QMessageBox::No)->click();
            });
            dialog.deleteServer();
            QVERIFY(box->handled && noIsDefault);
            QCOMPARE(currentText(dialog), FavMarker + Oftc);
            deleteCurrent(dialog);
            QCOMPARE(listValue("servers/deletedDefaultServers"), QStringList { OftcId });
            QVERIFY(!QSettings().contains("servers/irc.oftc.net_6667/nickname"));
            QCOMPARE(listValue("servers/favorites"), QStringList { OftcId });
        }
        ConnectDialog dialog;
        QCOMPARE(rows(dialog).size(), defaults - 1);
        viaEditor(dialog, "irc.oftc.net", "6667");
        QVERIFY(listValue("servers/deletedDefaultServers").isEmpty());
        QVERIFY(listValue("servers/customList").isEmpty()); // a default is never custom
        QCOMPARE(rows(ConnectDialog()).size(), defaults);

        viaEditor(dialog, "own.example.org", "6667");
        makeFavorite(dialog, "own.example.org:6667");
        deleteCurrent(dialog);
        QCOMPARE(rows(dialog).size(), defaults);
        QVERIFY(listValue("servers/customList").isEmpty());
        QVERIFY(!QSettings().contains("servers/own.example.org_6667/address"));
        QCOMPARE(listValue("servers/favorites"), QStringList { OftcId });
    }

    // The address given splits into the fields, the fields join into the
    // address entered; the record comes back trimmed but the password, an
    // unknown auth method or encoding as the first choice.
    void editDialog()
    {
        for (const QStringList& split :
            QList<QStringList> { { "irc.x.org:7000", "irc.x.org", "7000" }, { ":6667", "", "6667" },
                { "justhost", "justhost", "6667" }, { "a:b:c", "a:b:c", "6667" }, { "h:0042", "h", "42" } }) {
            ServerEditDialog dialog("t", split.at(0), ServerConfig(), "light");
            QCOMPARE(QStringList({ edit(dialog, "addressEdit")->text(), edit(dialog, "portEdit")->text() }),
                split.mid(1));
        }
        ServerConfig config = sampleConfig();
        config.authMethod = QStringLiteral("Carrier pigeon");
        config.encoding = QStringLiteral("utf-8 (unicode)"); // case matters
        ServerEditDialog dialog("t", ":6667", config, "light");
        for (const QStringList& join : QList<QStringList> { { " irc.x.org  ", "6697", "irc.x.org:6697" },
                 { "irc.x.org", "", "irc.x.org:0" }, { "h", "007", "h:7" }, { "h:1", "6667", "h:1:6667" } }) {
            edit(dialog, "addressEdit")->setText(join.at(0));
            edit(dialog, "portEdit")->setText(join.at(1));
            QCOMPARE(dialog.fullAddress(), join.at(2));
        }
        for (const char* name : { "nickEdit", "altNickEdit", "realNameEdit", "passwordEdit" })
            edit(dialog, name)->setText(QStringLiteral("  %1  ").arg(QLatin1String(name).left(3)));
        edit(dialog, "autojoinEdit")->setText("a,,b  #c");
        QCOMPARE(fields(dialog.getConfig()),
            (QStringList { "nic", "alt", "rea", "NickServ (/nickserv IDENTIFY)", "  pas  ", "#a|#b|#c",
                "UTF-8 (Unicode)", "no ssl" }));
    }

    // --- Refusals and connecting -----------------------------------------

    // Each refusal says why in a box and changes nothing.
    void refusals()
    {
        using Act = void (ConnectDialog::*)();
        const Act add = &ConnectDialog::addServer, change = &ConnectDialog::editServer,
                  remove = &ConnectDialog::deleteServer, connect = &ConnectDialog::onConnectClicked;
        // The box's title, what is done: through the edit dialog to an address,
        // with no row selected, or connecting to server and port as nick.
        const QList<std::tuple<QString, Act, QStringList>> cases { { "Invalid format", add, { "irc.example.org:7000" } },
            { "Invalid format", add, { "::1" } }, { "Invalid format", change, { "irc.oftc.net:1" } },
            { "Edit", change, {} }, { "Delete", remove, {} }, { "Error", connect, { "  ", "6667", "me" } },
            { "Error", connect, { "irc.x.org", "6667", " " } }, { "Error", connect, { "irc.x.org", "0", "me" } },
            { "Error", connect, { "irc.x.org", "65536", "me" } }, { "Error", connect, { "irc.x.org", "abc", "me" } } };
        for (const auto& [title, act, typed] : cases) {
            ConnectDialog dialog;
            select(dialog, Oftc);
            const QStringList before = rows(dialog);
            QSignalSpy accepted(&dialog, &QDialog::accepted);
            auto box = onMessageBox(title, QMessageBox::Ok);
            if (typed.isEmpty())
                listOf(dialog)->setCurrentItem(nullptr);
            for (int i = 0; typed.size() == 3 && i < 3; ++i)
                edit(dialog, std::array { "serverEdit", "portEdit", "nickEdit" }[i])->setText(typed.at(i));
            if (typed.size() == 1)
                viaEditor(dialog, typed.at(0), "6667", "erin", act);
            else
                (dialog.*act)();
            QVERIFY2(box->handled, qPrintable(title));
            QCOMPARE(rows(dialog), before);
            QCOMPARE(accepted.count(), 0);
        }
        QVERIFY(listValue("servers/customList").isEmpty() && ServerStore::history().isEmpty());
        QVERIFY(!QSettings().contains("servers/irc.oftc.net_6667/nickname"));
    }

    void connecting_data()
    {
        QTest::addColumn<QString>("typedOver"); // after picking a server; "all": typed by hand
        QTest::addColumn<QStringList>("expected"); // server, port, then the record's fields
        // A server picked from the list has its record updated from the fields.
        QTest::addRow("picked") << ""
                                << QStringList { "irc.oftc.net", "6667", "frank", "alice_", "Alice L.",
                                       "SASL PLAIN", " secret ", "#three|#four", "KOI8-R", "no ssl" };
        // Typing over the server or port (even the same text) uses the stored
        // record as it is, whose TLS flag cannot be switched off from here.
        const QStringList stored { "irc.oftc.net", "6667", "alice", "alice_", "Alice Liddell", "SASL PLAIN",
            " secret ", "#one|#two", "KOI8-R", "ssl" };
        QTest::addRow("server typed over") << "serverEdit" << stored;
        QTest::addRow("port typed over") << "portEdit" << stored;
        // A server typed by hand is used as typed, and not stored.
        QTest::addRow("typed by hand")
            << "all"
            << QStringList { "typed.example.org", "65535", "frank", "", "Alice L.",
                   "NickServ (/nickserv IDENTIFY)", "", "#three|#four", "UTF-8 (Unicode)", "no ssl" };
    }

    void connecting()
    {
        QFETCH(QString, typedOver);
        QFETCH(QStringList, expected);
        ServerStore::saveServerConfig(OftcId, sampleConfig());
        ServerStore::recordHistory("irc.efnet.org:6667");
        ConnectDialog dialog;
        QCOMPARE(currentText(dialog), QStringLiteral("irc.efnet.org:6667")); // the newest history entry
        select(dialog, Oftc);
        QCOMPARE(edit(dialog, "channelsEdit")->text(), QStringLiteral("#one, #two")); // the record, shown
        edit(dialog, "nickEdit")->setText(" frank ");
        edit(dialog, "realNameEdit")->setText("  Alice L.  ");
        edit(dialog, "channelsEdit")->setText("three four");
        dialog.findChild<QCheckBox*>()->setChecked(false);
        if (typedOver == "all") {
            edit(dialog, "serverEdit")->setText(" typed.example.org ");
            edit(dialog, "portEdit")->setText("65535");
        } else if (!typedOver.isEmpty()) {
            QLineEdit* e = edit(dialog, qPrintable(typedOver));
            QTest::keyClick(e, Qt::Key_End);
            QTest::keyClick(e, Qt::Key_X);
            QTest::keyClick(e, Qt::Key_Backspace);
        }
        dialog.onConnectClicked();
        QCOMPARE(dialog.result(), int(QDialog::Accepted));
        const QStringList active = fields(dialog.activeServerConfig());
        QCOMPARE(QStringList({ dialog.server(), QString::number(dialog.port()) }) + active, expected);
        const QString id = ServerStore::serverId(expected.at(0), expected.at(1).toInt());
        QCOMPARE(
            fields(ServerStore::loadServerConfig(id)), typedOver == "all" ? fields(ServerConfig()) : active);
        const QString entry = expected.at(0) + ':' + expected.at(1);
        QCOMPARE(listValue("connection/history"), (QStringList { "irc.efnet.org:6667", entry }));
        QCOMPARE(currentText(ConnectDialog()), entry);
    }
};

QUENVAR_TEST_MAIN(TestServers)
#include "tst_servers.moc"
