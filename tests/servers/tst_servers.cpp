#include "ConnectDialog.h"
#include "ModalDriver.h"
#include "ServerEditDialog.h"
#include "ServerListDelegate.h"
#include "ServerStore.h"
#include "TestMain.h"
#include "ThemeManager.h"

#include <QCheckBox>
#include <QComboBox>
#include <QDialogButtonBox>
#include <QImage>
#include <QIntValidator>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QPainter>
#include <QPushButton>
#include <QSettings>
#include <QSignalSpy>
#include <QTest>

using namespace ModalDriver;

namespace {

QLineEdit* edit(QWidget& dialog, const char* name)
{
    auto* e = dialog.findChild<QLineEdit*>(QString::fromLatin1(name));
    if (!e)
        qFatal("no line edit %s", name);
    return e;
}

QListWidget* listOf(ConnectDialog& dialog)
{
    return dialog.findChild<QListWidget*>(QStringLiteral("serverListWidget"));
}

QStringList rows(ConnectDialog& dialog)
{
    QStringList texts;
    QListWidget* list = listOf(dialog);
    for (int i = 0; i < list->count(); ++i)
        texts.append(list->item(i)->text());
    return texts;
}

QString currentText(ConnectDialog& dialog)
{
    QListWidgetItem* item = listOf(dialog)->currentItem();
    return item ? item->text() : QString();
}

void selectRow(ConnectDialog& dialog, const QString& text)
{
    const int row = rows(dialog).indexOf(text);
    if (row < 0)
        qFatal("row %s missing", qPrintable(text));
    listOf(dialog)->setCurrentRow(row);
}

struct EditValues
{
    QString host;
    QString port;
    QString nick;
    QString channels;
};

// Fills the next server edit dialog and saves it.
HandlePtr saveNextEditDialog(const EditValues& values, std::shared_ptr<QString> seenTitle = nullptr)
{
    return onModal<ServerEditDialog>([values, seenTitle](ServerEditDialog* dialog) {
        if (seenTitle)
            *seenTitle = dialog->windowTitle();
        edit(*dialog, "addressEdit")->setText(values.host);
        edit(*dialog, "portEdit")->setText(values.port);
        if (!values.nick.isNull())
            edit(*dialog, "nickEdit")->setText(values.nick);
        if (!values.channels.isNull())
            edit(*dialog, "autojoinEdit")->setText(values.channels);
        dialog->findChild<QPushButton*>(QStringLiteral("connectButton"))->click();
    });
}

void addServer(ConnectDialog& dialog, const QString& host, const QString& port)
{
    auto handle = saveNextEditDialog({ host, port, QString(), QString() });
    dialog.addServer();
    QVERIFY(handle->handled);
}

QString value(const QString& key)
{
    return QSettings().value(key).toString();
}

QStringList listValue(const QString& key)
{
    return QSettings().value(key).toStringList();
}

ServerConfig sampleConfig()
{
    ServerConfig config;
    config.nickname = QStringLiteral("alice");
    config.altNickname = QStringLiteral("alice_");
    config.realName = QStringLiteral("Alice Liddell");
    config.authMethod = QStringLiteral("SASL PLAIN");
    config.password = QStringLiteral(" secret ");
    config.autojoinChannels = { QStringLiteral("#one"), QStringLiteral("#two") };
    config.encoding = QStringLiteral("KOI8-R");
    config.useSsl = true;
    return config;
}

int goldPixels(const QImage& image)
{
    int count = 0;
    for (int y = 0; y < image.height(); ++y) {
        for (int x = 0; x < image.width(); ++x) {
            const QColor c = image.pixelColor(x, y);
            if (c.red() > 200 && c.green() > 150 && c.green() < 235 && c.blue() < 80)
                ++count;
        }
    }
    return count;
}

} // namespace

class TestServers : public QObject
{
    Q_OBJECT

private slots:
    void init()
    {
        QSettings settings;
        settings.clear();
        settings.sync();
    }

    // --- The store -------------------------------------------------------

    void recordRoundTrip()
    {
        ServerConfig config = sampleConfig();
        config.favorite = true;
        ServerStore::saveServerConfig(QStringLiteral("irc.example.org_6697"), config);

        QSettings settings;
        QCOMPARE(settings.value("servers/irc.example.org_6697/altnick").toString(), QStringLiteral("alice_"));
        QCOMPARE(settings.value("servers/irc.example.org_6697/authmethod").toString(),
            QStringLiteral("SASL PLAIN"));
        QCOMPARE(
            settings.value("servers/irc.example.org_6697/password").toString(), QStringLiteral(" secret "));
        QCOMPARE(settings.value("servers/irc.example.org_6697/address").toString(),
            QStringLiteral("irc.example.org:6697"));

        const ServerConfig loaded = ServerStore::loadServerConfig(QStringLiteral("irc.example.org_6697"));
        QCOMPARE(loaded.nickname, config.nickname);
        QCOMPARE(loaded.altNickname, config.altNickname);
        QCOMPARE(loaded.realName, config.realName);
        QCOMPARE(loaded.authMethod, config.authMethod);
        QCOMPARE(loaded.password, config.password);
        QCOMPARE(loaded.autojoinChannels, config.autojoinChannels);
        QCOMPARE(loaded.encoding, config.encoding);
        QCOMPARE(loaded.useSsl, true);
        QCOMPARE(loaded.favorite, false);
    }

    void singleChannelRoundTrip()
    {
        ServerConfig config;
        config.autojoinChannels = { QStringLiteral("#only") };
        ServerStore::saveServerConfig(QStringLiteral("h_1"), config);
        QCOMPARE(ServerStore::loadServerConfig(QStringLiteral("h_1")).autojoinChannels,
            QStringList { QStringLiteral("#only") });
    }

    void missingGroupGivesDefaults()
    {
        const ServerConfig config = ServerStore::loadServerConfig(QStringLiteral("nowhere.example_6667"));
        QVERIFY(config.nickname.isEmpty());
        QVERIFY(config.altNickname.isEmpty());
        QVERIFY(config.realName.isEmpty());
        QVERIFY(config.password.isEmpty());
        QVERIFY(config.autojoinChannels.isEmpty());
        QCOMPARE(config.authMethod, QStringLiteral("NickServ (/nickserv IDENTIFY)"));
        QCOMPARE(config.encoding, QStringLiteral("UTF-8 (Unicode)"));
        QCOMPARE(config.useSsl, false);
        QCOMPARE(config.favorite, false);
        QVERIFY(QSettings().allKeys().isEmpty()); // reading writes nothing
    }

    void missingKeysKeepFallback()
    {
        QSettings().setValue("servers/h_1/nickname", "stored");
        ServerConfig fallback = sampleConfig();
        const ServerConfig config = ServerStore::loadServerConfig(QStringLiteral("h_1"), fallback);
        QCOMPARE(config.nickname, QStringLiteral("stored"));
        QCOMPARE(config.realName, fallback.realName);
        QCOMPARE(config.useSsl, true);
    }

    void identifiers_data()
    {
        QTest::addColumn<QString>("address");
        QTest::addColumn<QString>("id");
        QTest::newRow("plain") << "irc.example.org:6667"
                               << "irc.example.org_6667";
        QTest::newRow("leading zeros") << "irc.example.org:006667"
                                       << "irc.example.org_6667";
        QTest::newRow("non-numeric port") << "irc.example.org:abc"
                                          << "irc.example.org_0";
        QTest::newRow("empty port") << "irc.example.org:"
                                    << "irc.example.org_0";
        QTest::newRow("empty host") << ":6667"
                                    << "_6667";
        QTest::newRow("underscore host") << "my_host:7000"
                                         << "my_host_7000";
        QTest::newRow("no colon") << "irc.example.org" << QString();
        QTest::newRow("two colons") << "irc.example.org:1:2" << QString();
        QTest::newRow("ipv6") << "::1:6667" << QString();
    }

    void identifiers()
    {
        QFETCH(QString, address);
        QFETCH(QString, id);
        QCOMPARE(ServerStore::idFromAddress(address), id);
    }

    void serverIdUsesIntegerPort()
    {
        QCOMPARE(ConnectDialog::serverId(QStringLiteral("h"), QStringLiteral("00042").toInt()),
            QStringLiteral("h_42"));
    }

    void hostWithUnderscore()
    {
        ServerStore::saveServerConfig(QStringLiteral("my_host_6667"), ServerConfig());
        // The identifier does not split in two, so it is its own address.
        QCOMPARE(value("servers/my_host_6667/address"), QStringLiteral("my_host_6667"));
        // Derived, it has two colons: shown, but without an identifier.
        QCOMPARE(ServerStore::derivedAddress(QStringLiteral("my_host_6667")), QStringLiteral("my:host:6667"));
        QVERIFY(ServerStore::idFromAddress(QStringLiteral("my:host:6667")).isEmpty());
    }

    void cleanAddress_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("clean");
        QTest::newRow("marked") << QString(FavMarker + "h:1") << "h:1";
        QTest::newRow("bare") << "h:1"
                              << "h:1";
        QTest::newRow("star without space")
            << QString::fromUtf8("\u2605h:1") << QString::fromUtf8("\u2605h:1");
        QTest::newRow("marker inside") << QString("h" + FavMarker + ":1") << QString("h" + FavMarker + ":1");
        QTest::newRow("marker twice") << QString(FavMarker + FavMarker + "h:1") << QString(FavMarker + "h:1");
    }

    void cleanAddress()
    {
        QFETCH(QString, text);
        QFETCH(QString, clean);
        QCOMPARE(ConnectDialog::cleanAddress(text), clean);
    }

    void favMarkerIsStarAndSpace()
    {
        QCOMPARE(FavMarker.size(), 2);
        QCOMPARE(FavMarker.at(0).unicode(), char16_t(0x2605));
        QCOMPARE(FavMarker.at(1), QLatin1Char(' '));
    }

    void defaultListShape()
    {
        const QStringList servers = ConnectDialog::defaultServers();
        QCOMPARE(servers.size(), 72);
        QCOMPARE(QSet<QString>(servers.cbegin(), servers.cend()).size(), 72);
        QCOMPARE(servers, ConnectDialog::defaultServers()); // fixed order
        QMap<int, int> ports;
        for (const QString& entry : servers) {
            QString host;
            int port = 0;
            QVERIFY2(ServerStore::splitAddress(entry, &host, &port), qPrintable(entry));
            QVERIFY2(!host.isEmpty() && !host.contains(QLatin1Char('_')), qPrintable(entry));
            QVERIFY(ConnectDialog::isDefaultServer(ConnectDialog::serverId(host, port)));
            ++ports[port];
        }
        QCOMPARE(ports.value(6667), 70);
        QCOMPARE(ports.value(6660), 1);
        QCOMPARE(ports.value(7000), 1);
        QCOMPARE(ports.size(), 3);
        QVERIFY(servers.contains(ServerStore::defaultHost() + ":6667"));
        QVERIFY(!ConnectDialog::isDefaultServer(QStringLiteral("irc.example.org_6667")));
        QVERIFY(!ConnectDialog::isDefaultServer(ServerStore::defaultHost() + "_6697"));
    }

    void splitChannels_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QStringList>("channels");
        QTest::newRow("mixed separators") << "a,,b  #c" << QStringList { "#a", "#b", "#c" };
        QTest::newRow("empty") << "" << QStringList();
        QTest::newRow("only separators") << " , ,\t" << QStringList();
        QTest::newRow("already marked") << "##x, #y" << QStringList { "##x", "#y" };
        QTest::newRow("padded") << "  linux  " << QStringList { "#linux" };
    }

    void splitChannels()
    {
        QFETCH(QString, text);
        QFETCH(QStringList, channels);
        QCOMPARE(ServerStore::splitChannels(text), channels);
    }

    void historyCapAndDeduplication()
    {
        for (int i = 1; i <= 11; ++i)
            ServerStore::recordHistory(QStringLiteral("h%1:6667").arg(i));
        QStringList history = ServerStore::history();
        QCOMPARE(history.size(), 10);
        QCOMPARE(history.first(), QStringLiteral("h2:6667"));
        QCOMPARE(history.last(), QStringLiteral("h11:6667"));

        ServerStore::recordHistory(QStringLiteral("h5:6667"));
        history = listValue("connection/history");
        QCOMPARE(history.size(), 10);
        QCOMPARE(history.count(QStringLiteral("h5:6667")), 1);
        QCOMPARE(history.last(), QStringLiteral("h5:6667"));
        QCOMPARE(history.first(), QStringLiteral("h2:6667"));
    }

    void historyEntryFormat()
    {
        QCOMPARE(ServerStore::historyEntry(QStringLiteral("  irc.x.org "), QStringLiteral("0100")),
            QStringLiteral("irc.x.org:100"));
        QCOMPARE(ServerStore::historyEntry(QStringLiteral("h"), QStringLiteral("x")), QStringLiteral("h:0"));
    }

    void favoritesAndDeletedPersist()
    {
        ServerStore::saveFavorites({ QStringLiteral("a_1"), QStringLiteral("b_2") });
        ServerStore::saveDeletedDefaults({ QStringLiteral("c_3") });
        QCOMPARE(
            ServerStore::loadFavorites(), (QSet<QString> { QStringLiteral("a_1"), QStringLiteral("b_2") }));
        QCOMPARE(ServerStore::loadDeletedDefaults(), QSet<QString> { QStringLiteral("c_3") });
        QCOMPARE(listValue("servers/deletedDefaultServers"), QStringList { QStringLiteral("c_3") });
    }

    void storeSurvivesHostileIds()
    {
        // Identifiers only come from the user's own list, but nothing may
        // break the store when they look odd.
        QSettings().setValue("servers/customList",
            QStringList { "", "favorites", "a/b_1", "x\\y_2", QString(300, QLatin1Char('z')) });
        ConnectDialog dialog;
        QVERIFY(rows(dialog).size() >= 72);
        ServerStore::removeServerGroup(QString());
        QVERIFY(!listValue("servers/customList").isEmpty()); // the empty id removed nothing
    }

    // --- Loading the list ------------------------------------------------

    void firstStartListsNetworksAndSelectsDefault()
    {
        ConnectDialog dialog;
        QCOMPARE(rows(dialog).size(), 72);
        QCOMPARE(currentText(dialog), ServerStore::defaultHost() + ":6667");
        QCOMPARE(edit(dialog, "serverEdit")->text(), ServerStore::defaultHost());
        QCOMPARE(edit(dialog, "serverEdit")->placeholderText(), ServerStore::defaultHost());
        QCOMPARE(edit(dialog, "portEdit")->text(), QStringLiteral("6667"));
        QCOMPARE(dialog.currentServerId(), ServerStore::defaultHost() + "_6667");
        // Every default got its address written once.
        QCOMPARE(value("servers/irc.dal.net_7000/address"), QStringLiteral("irc.dal.net:7000"));
        QVERIFY(listValue("servers/customList").isEmpty());
        // Sorted case-insensitively.
        QStringList sorted = rows(dialog);
        std::sort(sorted.begin(), sorted.end(),
            [](const QString& a, const QString& b) { return a.compare(b, Qt::CaseInsensitive) < 0; });
        QCOMPARE(rows(dialog), sorted);
    }

    void remembersLastServer()
    {
        QSettings().setValue("connection/history", QStringList { "irc.efnet.org:6667", "irc.oftc.net:6667" });
        ConnectDialog dialog;
        QCOMPARE(currentText(dialog), QStringLiteral("irc.oftc.net:6667"));
        QCOMPARE(edit(dialog, "serverEdit")->text(), QStringLiteral("irc.oftc.net"));
    }

    void unknownHistoryEntryIsAppended()
    {
        QSettings().setValue("connection/history", QStringList { "new.example.org:7001" });
        ConnectDialog dialog;
        QCOMPARE(rows(dialog).size(), 73);
        QCOMPARE(rows(dialog).last(), QStringLiteral("new.example.org:7001"));
        QCOMPARE(currentText(dialog), QStringLiteral("new.example.org:7001"));
        QCOMPARE(listValue("servers/customList"), QStringList { "new.example.org_7001" });
        QCOMPARE(value("servers/new.example.org_7001/address"), QStringLiteral("new.example.org:7001"));
    }

    // The chat window stores the record of a server connected to by hand; the
    // next start lists that server from the history and shows its record.
    void handTypedServerComesBackWithItsRecord()
    {
        QSettings settings;
        settings.setValue("connection/history", QStringList { "127.0.0.1:16667" });
        settings.setValue("servers/127.0.0.1_16667/nickname", "alice");
        settings.setValue("servers/127.0.0.1_16667/realname", "Alice Example");
        settings.setValue("servers/127.0.0.1_16667/autojoin", QStringList { "#a", "#b" });
        settings.sync();
        ConnectDialog dialog;
        QCOMPARE(currentText(dialog), QStringLiteral("127.0.0.1:16667"));
        QCOMPARE(edit(dialog, "nickEdit")->text(), QStringLiteral("alice"));
        QCOMPARE(edit(dialog, "realNameEdit")->text(), QStringLiteral("Alice Example"));
        QCOMPARE(edit(dialog, "channelsEdit")->text(), QStringLiteral("#a, #b"));
    }

    void customServerWithUnderscoreHost()
    {
        QSettings().setValue("servers/customList", QStringList { "my_host_7000" });
        ConnectDialog dialog;
        QVERIFY(rows(dialog).contains(QStringLiteral("my:host:7000")));
        QCOMPARE(value("servers/my_host_7000/address"), QStringLiteral("my:host:7000"));
    }

    void favoritesKeptAcrossRestart()
    {
        {
            ConnectDialog dialog;
            selectRow(dialog, QStringLiteral("irc.oftc.net:6667"));
            dialog.toggleCurrentFavorite();
            QCOMPARE(rows(dialog).first(), FavMarker + "irc.oftc.net:6667");
        }
        ConnectDialog dialog;
        QCOMPARE(rows(dialog).first(), FavMarker + "irc.oftc.net:6667");
        QVERIFY(dialog.favoriteServers().contains(QStringLiteral("irc.oftc.net_6667")));
        // The marker is display only.
        QCOMPARE(value("servers/irc.oftc.net_6667/address"), QStringLiteral("irc.oftc.net:6667"));
    }

    void favoriteOfUnlistedServerStays()
    {
        ServerStore::saveFavorites({ QStringLiteral("gone.example_1") });
        ConnectDialog dialog;
        QVERIFY(dialog.favoriteServers().contains(QStringLiteral("gone.example_1")));
        selectRow(dialog, QStringLiteral("irc.oftc.net:6667"));
        dialog.toggleCurrentFavorite();
        QVERIFY(listValue("servers/favorites").contains(QStringLiteral("gone.example_1")));
        QVERIFY(listValue("servers/favorites").contains(QStringLiteral("irc.oftc.net_6667")));
    }

    // --- Adding ----------------------------------------------------------

    void addRefusesInvalidFormat_data()
    {
        QTest::addColumn<QString>("host");
        QTest::newRow("host with port") << "irc.example.org:7000";
        QTest::newRow("ipv6") << "::1";
    }

    void addRefusesInvalidFormat()
    {
        QFETCH(QString, host);
        ConnectDialog dialog;
        const QStringList before = rows(dialog);
        auto editor = saveNextEditDialog({ host, "6667", QString(), QString() });
        auto box = onMessageBox(QStringLiteral("Invalid format"), QMessageBox::Ok);
        dialog.addServer();
        QVERIFY(editor->handled);
        QVERIFY(box->handled);
        QCOMPARE(box->text, QStringLiteral("Please use the format host:port"));
        QCOMPARE(rows(dialog), before);
        QVERIFY(listValue("servers/customList").isEmpty());
    }

    void addCancelledChangesNothing()
    {
        ConnectDialog dialog;
        auto editor = onModal<ServerEditDialog>([](ServerEditDialog* d) {
            edit(*d, "addressEdit")->setText(QStringLiteral("x.example.org"));
            d->findChild<QPushButton*>(QStringLiteral("cancelButton"))->click();
        });
        dialog.addServer();
        QVERIFY(editor->handled);
        QCOMPARE(rows(dialog).size(), 72);
    }

    void addExistingSelectsIt()
    {
        ConnectDialog dialog;
        auto editor = saveNextEditDialog({ "irc.oftc.net", "6667", QString(), QString() });
        auto box = onMessageBox(QStringLiteral("Add Server"), QMessageBox::Ok);
        dialog.addServer();
        QVERIFY(box->handled);
        QCOMPARE(box->text, QStringLiteral("This server already exists in the list."));
        QCOMPARE(currentText(dialog), QStringLiteral("irc.oftc.net:6667"));
        QCOMPARE(rows(dialog).size(), 72);
    }

    void addStoresRecordAndSelects()
    {
        ConnectDialog dialog;
        auto title = std::make_shared<QString>();
        auto editor = saveNextEditDialog({ "  irc.example.org ", "06697", "bob", "a, b" }, title);
        dialog.addServer();
        QVERIFY(editor->handled);
        QCOMPARE(*title, QStringLiteral("Add IRC Server"));
        QCOMPARE(currentText(dialog), QStringLiteral("irc.example.org:6697"));
        QCOMPARE(dialog.currentServerId(), QStringLiteral("irc.example.org_6697"));
        QCOMPARE(edit(dialog, "nickEdit")->text(), QStringLiteral("bob"));
        QCOMPARE(edit(dialog, "channelsEdit")->text(), QStringLiteral("#a, #b"));
        QCOMPARE(value("servers/irc.example.org_6697/nickname"), QStringLiteral("bob"));
        QCOMPARE(listValue("servers/customList"), QStringList { "irc.example.org_6697" });
        ConnectDialog reloaded;
        QVERIFY(rows(reloaded).contains(QStringLiteral("irc.example.org:6697")));
    }

    void orderFavouritesFirstThenCaseInsensitive()
    {
        ConnectDialog dialog;
        addServer(dialog, "C.example", "2");
        addServer(dialog, "b.example", "1");
        addServer(dialog, "zz.example", "3");
        const QStringList list = rows(dialog);
        QVERIFY(list.indexOf("b.example:1") < list.indexOf("C.example:2"));
        // The custom list follows the display order and holds no defaults.
        QCOMPARE(
            listValue("servers/customList"), (QStringList { "b.example_1", "C.example_2", "zz.example_3" }));

        selectRow(dialog, "zz.example:3");
        dialog.toggleCurrentFavorite();
        selectRow(dialog, "irc.oftc.net:6667");
        dialog.toggleCurrentFavorite();
        QCOMPARE(rows(dialog).at(0), FavMarker + "irc.oftc.net:6667");
        QCOMPARE(rows(dialog).at(1), FavMarker + "zz.example:3");
        QVERIFY(!rows(dialog).at(2).startsWith(FavMarker));
        QCOMPARE(currentText(dialog), FavMarker + "irc.oftc.net:6667"); // selection follows the row
        ConnectDialog reloaded;
        QCOMPARE(rows(reloaded).at(0), FavMarker + "irc.oftc.net:6667");
        QCOMPARE(rows(reloaded).at(1), FavMarker + "zz.example:3");

        selectRow(reloaded, FavMarker + "zz.example:3");
        reloaded.toggleCurrentFavorite();
        QCOMPARE(rows(reloaded).at(1).startsWith(FavMarker), false);
        QVERIFY(!listValue("servers/favorites").contains("zz.example_3"));
    }

    void favouriteToggleWithoutPortChangesNothing()
    {
        QSettings settings;
        settings.setValue("servers/customList", QStringList { "odd_1" });
        settings.setValue("servers/odd_1/address", "nohost");
        settings.sync();
        ConnectDialog dialog;
        selectRow(dialog, "nohost");
        QCOMPARE(edit(dialog, "serverEdit")->text(), QStringLiteral("nohost"));
        QCOMPARE(edit(dialog, "portEdit")->text(), QStringLiteral("6667"));
        QVERIFY(dialog.currentServerId().isEmpty());
        const QStringList before = rows(dialog);
        dialog.toggleCurrentFavorite();
        QCOMPARE(rows(dialog), before);
        QVERIFY(dialog.favoriteServers().isEmpty());
        QVERIFY(!QSettings().contains("servers/favorites"));
    }

    void contextMenuTogglesFavourite()
    {
        ConnectDialog dialog;
        dialog.show();
        QVERIFY(QTest::qWaitForWindowExposed(&dialog));
        QListWidget* list = listOf(dialog);
        QListWidgetItem* item = list->findItems("irc.oftc.net:6667", Qt::MatchExactly).value(0);
        QVERIFY(item);
        list->scrollToItem(item);
        const QPoint pos = list->visualItemRect(item).center();

        auto texts = std::make_shared<QStringList>();
        auto menu = onMenu(QStringLiteral("Add to Favorites"), texts);
        dialog.showServerContextMenu(pos);
        QVERIFY(menu->handled);
        QCOMPARE(*texts, (QStringList { "Edit", "Delete", "Add to Favorites" }));
        QCOMPARE(rows(dialog).first(), FavMarker + "irc.oftc.net:6667");
        QCOMPARE(currentText(dialog), FavMarker + "irc.oftc.net:6667");

        list->scrollToItem(list->item(0));
        texts->clear();
        menu = onMenu(QStringLiteral("Remove from Favorites"), texts);
        dialog.showServerContextMenu(list->visualItemRect(list->item(0)).center());
        QVERIFY(menu->handled);
        QVERIFY(texts->contains(QStringLiteral("Remove from Favorites")));
        QVERIFY(!rows(dialog).first().startsWith(FavMarker));
        QVERIFY(ServerStore::loadFavorites().isEmpty());
    }

    void contextMenuOnEmptySpaceDoesNothing()
    {
        QSettings().setValue("servers/deletedDefaultServers", [] {
            QStringList ids;
            for (const QString& entry : ServerStore::defaultServers())
                ids.append(ServerStore::idFromAddress(entry));
            return ids;
        }());
        ConnectDialog dialog;
        dialog.show();
        QVERIFY(QTest::qWaitForWindowExposed(&dialog));
        QCOMPARE(rows(dialog).size(), 0);
        auto texts = std::make_shared<QStringList>();
        auto menu = onMenu(QString(), texts);
        dialog.showServerContextMenu(QPoint(5, 5));
        QTest::qWait(100);
        menu->cancelled = true;
        QVERIFY(!menu->handled);
    }

    // --- Editing ---------------------------------------------------------

    void editWithoutSelection()
    {
        ConnectDialog dialog;
        listOf(dialog)->setCurrentItem(nullptr);
        auto box = onMessageBox(QStringLiteral("Edit"), QMessageBox::Ok);
        dialog.editServer();
        QVERIFY(box->handled);
        QCOMPARE(box->text, QStringLiteral("No server selected."));
    }

    void editFavouriteAddressDropsFavourite()
    {
        ConnectDialog dialog;
        selectRow(dialog, "irc.oftc.net:6667");
        dialog.toggleCurrentFavorite();
        QVERIFY(dialog.favoriteServers().contains("irc.oftc.net_6667"));

        auto title = std::make_shared<QString>();
        auto editor = saveNextEditDialog({ "irc.oftc.net", "6697", "carol", QString() }, title);
        dialog.editServer();
        QVERIFY(editor->handled);
        QCOMPARE(*title, QStringLiteral("Edit irc.oftc.net:6667"));
        QCOMPARE(currentText(dialog), QStringLiteral("irc.oftc.net:6697"));
        QVERIFY(!dialog.favoriteServers().contains("irc.oftc.net_6667"));
        QVERIFY(!listValue("servers/favorites").contains("irc.oftc.net_6667"));
        QVERIFY(!dialog.deletedDefaultIds().contains("irc.oftc.net_6667"));
        QVERIFY(!listValue("servers/deletedDefaultServers").contains("irc.oftc.net_6667"));
        QVERIFY(!QSettings().contains("servers/irc.oftc.net_6667/nickname"));
        QCOMPARE(value("servers/irc.oftc.net_6697/nickname"), QStringLiteral("carol"));
        QCOMPARE(listValue("servers/customList"), QStringList { "irc.oftc.net_6697" });

        // The edited default comes back on the next load, next to the new entry.
        ConnectDialog reloaded;
        QVERIFY(rows(reloaded).contains("irc.oftc.net:6667"));
        QVERIFY(rows(reloaded).contains("irc.oftc.net:6697"));
    }

    void editKeepsFavouriteWhenAddressUnchanged()
    {
        ConnectDialog dialog;
        selectRow(dialog, "irc.oftc.net:6667");
        dialog.toggleCurrentFavorite();
        auto editor = saveNextEditDialog({ "irc.oftc.net", "6667", "dave", "x" });
        dialog.editServer();
        QVERIFY(editor->handled);
        QCOMPARE(currentText(dialog), FavMarker + "irc.oftc.net:6667");
        QCOMPARE(edit(dialog, "nickEdit")->text(), QStringLiteral("dave"));
        QCOMPARE(edit(dialog, "channelsEdit")->text(), QStringLiteral("#x"));
        QVERIFY(dialog.favoriteServers().contains("irc.oftc.net_6667"));
    }

    void editRefusesInvalidFormat()
    {
        ConnectDialog dialog;
        selectRow(dialog, "irc.oftc.net:6667");
        auto editor = saveNextEditDialog({ "irc.oftc.net:1", "6667", "erin", QString() });
        auto box = onMessageBox(QStringLiteral("Invalid format"), QMessageBox::Ok);
        dialog.editServer();
        QVERIFY(box->handled);
        QVERIFY(!QSettings().contains("servers/irc.oftc.net_6667/nickname"));
    }

    void editSwitchesTlsOff()
    {
        ServerStore::saveServerConfig("irc.oftc.net_6667", sampleConfig());
        ConnectDialog dialog;
        selectRow(dialog, "irc.oftc.net:6667");
        QVERIFY(dialog.findChild<QCheckBox*>("sslCheck")->isChecked());
        auto shown = std::make_shared<QStringList>();
        auto editor = onModal<ServerEditDialog>([shown](ServerEditDialog* d) {
            *shown << edit(*d, "nickEdit")->text() << edit(*d, "autojoinEdit")->text()
                   << d->findChild<QComboBox*>("encodingCombo")->currentText();
            d->accept();
        });
        dialog.editServer();
        QVERIFY(editor->handled);
        QCOMPARE(*shown, (QStringList { "alice", "#one, #two", "KOI8-R" }));
        QCOMPARE(QSettings().value("servers/irc.oftc.net_6667/ssl").toBool(), false);
        QCOMPARE(value("servers/irc.oftc.net_6667/password"), QStringLiteral(" secret "));
        QVERIFY(!dialog.findChild<QCheckBox*>("sslCheck")->isChecked());
    }

    void editUnknownAuthMethodSavesFirstNickServ()
    {
        ServerConfig config;
        config.authMethod = QStringLiteral("Carrier pigeon");
        ServerStore::saveServerConfig("irc.oftc.net_6667", config);
        ConnectDialog dialog;
        selectRow(dialog, "irc.oftc.net:6667");
        auto index = std::make_shared<int>(-1);
        auto editor = onModal<ServerEditDialog>([index](ServerEditDialog* d) {
            *index = d->findChild<QComboBox*>("authCombo")->currentIndex();
            d->accept();
        });
        dialog.editServer();
        QVERIFY(editor->handled);
        QCOMPARE(*index, 2);
        QCOMPARE(
            value("servers/irc.oftc.net_6667/authmethod"), QStringLiteral("NickServ (/nickserv IDENTIFY)"));
    }

    // --- Deleting --------------------------------------------------------

    void deleteWithoutSelection()
    {
        ConnectDialog dialog;
        listOf(dialog)->setCurrentItem(nullptr);
        auto box = onMessageBox(QStringLiteral("Delete"), QMessageBox::Ok);
        dialog.deleteServer();
        QVERIFY(box->handled);
        QCOMPARE(box->text, QStringLiteral("No server selected."));
    }

    void deleteBoxShape_data()
    {
        QTest::addColumn<QString>("theme");
        QTest::addColumn<QString>("background");
        QTest::newRow("light") << "light"
                               << "#FFFFFF";
        QTest::newRow("dark") << "dark"
                              << "#2E2E2E";
        QTest::newRow("glass") << "glass"
                               << "#FFFFFF";
    }

    void deleteBoxShape()
    {
        QFETCH(QString, theme);
        QFETCH(QString, background);
        ConnectDialog dialog;
        dialog.setCurrentTheme(theme);
        selectRow(dialog, "irc.oftc.net:6667");
        auto checks = std::make_shared<QStringList>();
        auto box = onModal<QMessageBox>([checks](QMessageBox* b) {
            if (b->icon() != QMessageBox::Critical)
                checks->append("icon");
            if (b->defaultButton() != b->button(QMessageBox::No))
                checks->append("default");
            if (!b->button(QMessageBox::Yes) || b->button(QMessageBox::Yes)->objectName() != "yesButton")
                checks->append("yes");
            if (!b->button(QMessageBox::No) || b->button(QMessageBox::No)->objectName() != "noButton")
                checks->append("no");
            checks->append(b->styleSheet());
            b->button(QMessageBox::No)->click();
        });
        dialog.deleteServer();
        QVERIFY(box->handled);
        QCOMPARE(box->title, QStringLiteral("Delete Server"));
        QCOMPARE(box->text, QStringLiteral("Are you sure you want to delete server: irc.oftc.net:6667"));
        QCOMPARE(checks->size(), 1);
        const QString sheet = checks->first();
        QCOMPARE(sheet, ConnectDialog::deleteBoxStyleSheet(theme));
        QVERIFY(sheet.contains("QMessageBox { background-color: " + background + "; }"));
        QVERIFY(sheet.contains("#FF3B30"));
        QVERIFY(!sheet.contains(QLatin1Char('%')));
        QVERIFY(rows(dialog).contains("irc.oftc.net:6667")); // "No" keeps it
    }

    void deletedDefaultStaysAwayUntilAddedAgain()
    {
        ServerStore::saveServerConfig("irc.oftc.net_6667", sampleConfig());
        {
            ConnectDialog dialog;
            selectRow(dialog, "irc.oftc.net:6667");
            dialog.toggleCurrentFavorite();
            selectRow(dialog, FavMarker + "irc.oftc.net:6667");
            auto box = onMessageBox(QStringLiteral("Delete Server"), QMessageBox::Yes);
            dialog.deleteServer();
            QVERIFY(box->handled);
            QVERIFY(!rows(dialog).contains(FavMarker + "irc.oftc.net:6667"));
            QCOMPARE(listValue("servers/deletedDefaultServers"), QStringList { "irc.oftc.net_6667" });
            QVERIFY(!QSettings().contains("servers/irc.oftc.net_6667/nickname"));
            // A deleted default keeps its favourite mark in the store.
            QVERIFY(listValue("servers/favorites").contains("irc.oftc.net_6667"));
        }
        ConnectDialog dialog;
        QCOMPARE(rows(dialog).size(), 71);
        QVERIFY(!rows(dialog).join(' ').contains("irc.oftc.net:6667"));

        addServer(dialog, "irc.oftc.net", "6667");
        QVERIFY(!dialog.deletedDefaultIds().contains("irc.oftc.net_6667"));
        QVERIFY(listValue("servers/deletedDefaultServers").isEmpty());
        QVERIFY(listValue("servers/customList").isEmpty()); // a default is never custom
        ConnectDialog reloaded;
        QCOMPARE(rows(reloaded).size(), 72);
    }

    void deleteCustomServer()
    {
        ConnectDialog dialog;
        addServer(dialog, "own.example.org", "6667");
        selectRow(dialog, "own.example.org:6667");
        dialog.toggleCurrentFavorite();
        selectRow(dialog, FavMarker + "own.example.org:6667");
        auto box = onMessageBox(QStringLiteral("Delete Server"), QMessageBox::Yes);
        dialog.deleteServer();
        QVERIFY(box->handled);
        QVERIFY(listValue("servers/customList").isEmpty());
        QVERIFY(!QSettings().contains("servers/own.example.org_6667/address"));
        QVERIFY(!listValue("servers/favorites").contains("own.example.org_6667"));
        QVERIFY(listValue("servers/deletedDefaultServers").isEmpty());
        QCOMPARE(rows(dialog).size(), 72);
    }

    // --- The edit dialog -------------------------------------------------

    void editDialogShape()
    {
        ServerEditDialog dialog("Add IRC Server", ":6667", ServerConfig(), "dark");
        QCOMPARE(dialog.windowTitle(), QStringLiteral("Add IRC Server"));
        QCOMPARE(dialog.minimumWidth(), 480);
        QCOMPARE(edit(dialog, "addressEdit")->text(), QString());
        QCOMPARE(edit(dialog, "addressEdit")->placeholderText(), QStringLiteral("irc.example.net"));
        QLineEdit* port = edit(dialog, "portEdit");
        QCOMPARE(port->text(), QStringLiteral("6667"));
        QCOMPARE(port->width(), 80);
        auto* validator = qobject_cast<const QIntValidator*>(port->validator());
        QVERIFY(validator);
        QCOMPARE(validator->bottom(), 1);
        QCOMPARE(validator->top(), 65535);
        QCOMPARE(edit(dialog, "nickEdit")->placeholderText(), QStringLiteral("Type you nickname"));
        QCOMPARE(edit(dialog, "altNickEdit")->placeholderText(),
            QStringLiteral("Alternative nickname if main is taken"));
        QCOMPARE(edit(dialog, "realNameEdit")->placeholderText(),
            QStringLiteral("Type you Real name (optionally)"));
        QCOMPARE(edit(dialog, "passwordEdit")->echoMode(), QLineEdit::Password);
        QCOMPARE(edit(dialog, "autojoinEdit")->placeholderText(), QStringLiteral("#help, #linux"));
        auto* auth = dialog.findChild<QComboBox*>("authCombo");
        auto* encoding = dialog.findChild<QComboBox*>("encodingCombo");
        QCOMPARE(auth->count(), 6);
        QCOMPARE(auth->itemText(3), QStringLiteral("NickServ (/msg NickServ IDENTIFY)"));
        QCOMPARE(auth->currentIndex(), 2);
        QCOMPARE(encoding->count(), 13);
        QCOMPARE(encoding->itemText(12), QStringLiteral("EUC-KR (Korean)"));
        QCOMPARE(encoding->currentIndex(), 0);
        auto* save = dialog.findChild<QPushButton*>("connectButton");
        auto* cancel = dialog.findChild<QPushButton*>("cancelButton");
        QVERIFY(save && cancel);
        QCOMPARE(save->text().remove('&'), QStringLiteral("Save"));
        QCOMPARE(cancel->text().remove('&'), QStringLiteral("Cancel"));

        QStringList labels;
        for (QLabel* label : dialog.findChildren<QLabel*>())
            labels.append(label->text());
        for (const char* text : { "IRC server:", "Port:", "Nickname:", "Second Name:", "Real Name:",
                 "Auth Method:", "Password:", "Auto join channels:", "Encoding:" })
            QVERIFY2(labels.contains(QString::fromLatin1(text)), text);
    }

    void editDialogTheme_data()
    {
        QTest::addColumn<QString>("theme");
        QTest::addColumn<QString>("arrowFill");
        QTest::addColumn<bool>("translucent");
        QTest::newRow("light") << "light"
                               << "#333333" << false;
        QTest::newRow("dark") << "dark"
                              << "#DDDDDD" << false;
        QTest::newRow("glass") << "glass"
                               << "#333333" << true;
    }

    void editDialogTheme()
    {
        QFETCH(QString, theme);
        QFETCH(QString, arrowFill);
        QFETCH(bool, translucent);
        ServerEditDialog dialog("t", "h:1", ServerConfig(), theme);
        QCOMPARE(dialog.styleSheet(), ThemeManager::dialogStyleSheet(theme));
        QCOMPARE(dialog.testAttribute(Qt::WA_TranslucentBackground), translucent);
        QCOMPARE(dialog.autoFillBackground(), !translucent);
        const QString comboSheet = dialog.findChild<QComboBox*>("authCombo")->styleSheet();
        QCOMPARE(dialog.findChild<QComboBox*>("encodingCombo")->styleSheet(), comboSheet);
        QVERIFY(comboSheet.contains(ThemeManager::palette(theme).inputBorder));
        QVERIFY(comboSheet.contains("background: " + ThemeManager::palette(theme).inputBg));
        const QString prefix = QStringLiteral("url(data:image/svg+xml;base64,");
        const int at = comboSheet.indexOf(prefix);
        QVERIFY(at > 0);
        const int end = comboSheet.indexOf(')', at);
        const QByteArray svg
            = QByteArray::fromBase64(comboSheet.mid(at + prefix.size(), end - at - prefix.size()).toLatin1());
        QVERIFY(svg.contains("viewBox=\"0 0 12 12\""));
        QVERIFY(svg.contains("M3 5l3 3 3-3z"));
        QVERIFY(svg.contains("fill=\"" + arrowFill.toLatin1() + "\""));
        // Style sheets load images by name: the inline arrow must be loadable that way.
        const QImage arrow(comboSheet.mid(at + 4, end - at - 4));
        QVERIFY(!arrow.isNull());
        QCOMPARE(arrow.size(), QSize(12, 12));
        QCOMPARE(arrow.pixelColor(6, 6).name(QColor::HexRgb).toUpper(), arrowFill);
    }

    void editDialogAddressSplit_data()
    {
        QTest::addColumn<QString>("address");
        QTest::addColumn<QString>("host");
        QTest::addColumn<QString>("port");
        QTest::newRow("host and port") << "irc.x.org:7000"
                                       << "irc.x.org"
                                       << "7000";
        QTest::newRow("new server") << ":6667"
                                    << ""
                                    << "6667";
        QTest::newRow("no port") << "justhost"
                                 << "justhost"
                                 << "6667";
        QTest::newRow("two colons") << "a:b:c"
                                    << "a:b:c"
                                    << "6667";
        QTest::newRow("leading zeros") << "h:0042"
                                       << "h"
                                       << "42";
    }

    void editDialogAddressSplit()
    {
        QFETCH(QString, address);
        QFETCH(QString, host);
        QFETCH(QString, port);
        ServerEditDialog dialog("t", address, ServerConfig(), "light");
        QCOMPARE(edit(dialog, "addressEdit")->text(), host);
        QCOMPARE(edit(dialog, "portEdit")->text(), port);
    }

    void editDialogFullAddress_data()
    {
        QTest::addColumn<QString>("host");
        QTest::addColumn<QString>("port");
        QTest::addColumn<QString>("full");
        QTest::newRow("plain") << " irc.x.org  "
                               << "6697"
                               << "irc.x.org:6697";
        QTest::newRow("empty port") << "irc.x.org"
                                    << ""
                                    << "irc.x.org:0";
        QTest::newRow("leading zeros") << "h"
                                       << "007"
                                       << "h:7";
        QTest::newRow("port in host") << "h:1"
                                      << "6667"
                                      << "h:1:6667";
    }

    void editDialogFullAddress()
    {
        QFETCH(QString, host);
        QFETCH(QString, port);
        QFETCH(QString, full);
        ServerEditDialog dialog("t", ":6667", ServerConfig(), "light");
        edit(dialog, "addressEdit")->setText(host);
        edit(dialog, "portEdit")->setText(port);
        QCOMPARE(dialog.fullAddress(), full);
    }

    void editDialogGetConfig()
    {
        ServerConfig config = sampleConfig();
        config.authMethod = QString(); // empty selects the first NickServ entry
        config.encoding = QStringLiteral("utf-8 (unicode)"); // case matters: falls back to index 0
        ServerEditDialog dialog("t", "h:1", config, "light");
        QCOMPARE(dialog.findChild<QComboBox*>("authCombo")->currentIndex(), 2);
        QCOMPARE(dialog.findChild<QComboBox*>("encodingCombo")->currentIndex(), 0);
        edit(dialog, "nickEdit")->setText("  nick  ");
        edit(dialog, "altNickEdit")->setText(" alt ");
        edit(dialog, "realNameEdit")->setText(" Real ");
        edit(dialog, "passwordEdit")->setText("  pw  ");
        edit(dialog, "autojoinEdit")->setText("a,,b  #c");
        dialog.findChild<QComboBox*>("encodingCombo")->setCurrentIndex(6);
        const ServerConfig result = dialog.getConfig();
        QCOMPARE(result.nickname, QStringLiteral("nick"));
        QCOMPARE(result.altNickname, QStringLiteral("alt"));
        QCOMPARE(result.realName, QStringLiteral("Real"));
        QCOMPARE(result.password, QStringLiteral("  pw  "));
        QCOMPARE(result.autojoinChannels, (QStringList { "#a", "#b", "#c" }));
        QCOMPARE(result.authMethod, QStringLiteral("NickServ (/nickserv IDENTIFY)"));
        QCOMPARE(result.encoding, QStringLiteral("Windows-1251 (Cyrillic)"));
        QCOMPARE(result.useSsl, false); // never carried by this dialog
        QCOMPARE(result.favorite, false);
    }

    // --- Connecting ------------------------------------------------------

    void connectRefuses_data()
    {
        QTest::addColumn<QString>("server");
        QTest::addColumn<QString>("port");
        QTest::addColumn<QString>("nick");
        QTest::addColumn<QString>("message");
        const QString required = QStringLiteral("Server and nickname are required!");
        const QString range = QStringLiteral("Port must be between 1 and 65535");
        QTest::newRow("no server") << "  "
                                   << "6667"
                                   << "me" << required;
        QTest::newRow("no nick") << "irc.x.org"
                                 << "6667"
                                 << " " << required;
        QTest::newRow("port 0") << "irc.x.org"
                                << "0"
                                << "me" << range;
        QTest::newRow("port 65536") << "irc.x.org"
                                    << "65536"
                                    << "me" << range;
        QTest::newRow("port text") << "irc.x.org"
                                   << "abc"
                                   << "me" << range;
        QTest::newRow("negative port") << "irc.x.org"
                                       << "-1"
                                       << "me" << range;
    }

    void connectRefuses()
    {
        QFETCH(QString, server);
        QFETCH(QString, port);
        QFETCH(QString, nick);
        QFETCH(QString, message);
        ConnectDialog dialog;
        QSignalSpy accepted(&dialog, &QDialog::accepted);
        edit(dialog, "serverEdit")->setText(server);
        edit(dialog, "portEdit")->setText(port);
        edit(dialog, "nickEdit")->setText(nick);
        auto details = std::make_shared<QStringList>();
        auto box = onModal<QMessageBox>(
            [details](QMessageBox* b) {
                const QList<QAbstractButton*> buttons = b->buttons();
                details->append(QString::number(buttons.size()));
                details->append(buttons.value(0) ? buttons.value(0)->objectName() : QString());
                details->append(b->icon() == QMessageBox::Warning ? "warning" : "other");
                details->append(b->styleSheet());
                buttons.value(0)->click();
            },
            [](QMessageBox* b) { return b->windowTitle() == QStringLiteral("Error"); });
        dialog.onConnectClicked();
        QVERIFY(box->handled);
        QCOMPARE(box->text, message);
        QCOMPARE(details->at(0), QStringLiteral("1"));
        QCOMPARE(details->at(1), QStringLiteral("connectButton"));
        QCOMPARE(details->at(2), QStringLiteral("warning"));
        QVERIFY(details->at(3).startsWith("QPushButton#connectButton {"));
        QVERIFY(details->at(3).contains("QPushButton#connectButton:pressed { background-color: #0051AA; }"));
        QCOMPARE(accepted.count(), 0);
        QVERIFY(listValue("connection/history").isEmpty());
    }

    void connectAcceptsHighestPort()
    {
        ConnectDialog dialog;
        QSignalSpy accepted(&dialog, &QDialog::accepted);
        edit(dialog, "serverEdit")->setText(" irc.x.org ");
        edit(dialog, "portEdit")->setText("65535");
        edit(dialog, "nickEdit")->setText("me");
        dialog.onConnectClicked();
        QCOMPARE(accepted.count(), 1);
        QCOMPARE(dialog.result(), int(QDialog::Accepted));
        QCOMPARE(dialog.server(), QStringLiteral("irc.x.org"));
        QCOMPARE(dialog.port(), 65535);
        QCOMPARE(listValue("connection/history"), QStringList { "irc.x.org:65535" });
    }

    void typingAfterSelectionDoesNotSave_data()
    {
        QTest::addColumn<QString>("field");
        QTest::newRow("server") << "serverEdit";
        QTest::newRow("port") << "portEdit";
        QTest::newRow("none") << "";
    }

    void typingAfterSelectionDoesNotSave()
    {
        QFETCH(QString, field);
        ConnectDialog dialog;
        selectRow(dialog, "irc.oftc.net:6667");
        QCOMPARE(dialog.currentServerId(), QStringLiteral("irc.oftc.net_6667"));
        edit(dialog, "nickEdit")->setText("frank");
        if (!field.isEmpty()) {
            QLineEdit* e = dialog.findChild<QLineEdit*>(field);
            const QString text = e->text();
            QTest::keyClick(e, Qt::Key_End);
            QTest::keyClick(e, Qt::Key_X);
            QTest::keyClick(e, Qt::Key_Backspace);
            QCOMPARE(e->text(), text); // same text, typed over
            QVERIFY(dialog.currentServerId().isEmpty());
        }
        dialog.onConnectClicked();
        QCOMPARE(dialog.result(), int(QDialog::Accepted));
        QCOMPARE(dialog.nickname(), QStringLiteral("frank"));
        QCOMPARE(QSettings().contains("servers/irc.oftc.net_6667/nickname"), field.isEmpty());
        QCOMPARE(listValue("connection/history"), QStringList { "irc.oftc.net:6667" });
    }

    void historyWrittenOnConnect()
    {
        ServerStore::recordHistory("irc.oftc.net:6667");
        ServerStore::recordHistory("irc.efnet.org:6667");
        ConnectDialog dialog;
        QCOMPARE(currentText(dialog), QStringLiteral("irc.efnet.org:6667"));
        selectRow(dialog, "irc.oftc.net:6667");
        edit(dialog, "nickEdit")->setText("gina");
        dialog.onConnectClicked();
        QCOMPARE(
            listValue("connection/history"), (QStringList { "irc.efnet.org:6667", "irc.oftc.net:6667" }));
        ConnectDialog reopened;
        QCOMPARE(currentText(reopened), QStringLiteral("irc.oftc.net:6667"));
        QCOMPARE(edit(reopened, "nickEdit")->text(), QStringLiteral("gina"));
    }

    void resultGettersForSelectedServer()
    {
        ServerStore::saveServerConfig("irc.oftc.net_6667", sampleConfig());
        ConnectDialog dialog;
        selectRow(dialog, "irc.oftc.net:6667");
        QCOMPARE(edit(dialog, "nickEdit")->text(), QStringLiteral("alice"));
        QCOMPARE(edit(dialog, "channelsEdit")->text(), QStringLiteral("#one, #two"));
        edit(dialog, "realNameEdit")->setText("  Alice L.  ");
        edit(dialog, "channelsEdit")->setText("three four");
        dialog.findChild<QCheckBox*>("sslCheck")->setChecked(false);
        dialog.onConnectClicked();
        QCOMPARE(dialog.result(), int(QDialog::Accepted));
        QCOMPARE(dialog.server(), QStringLiteral("irc.oftc.net"));
        QCOMPARE(dialog.port(), 6667);
        QCOMPARE(dialog.nickname(), QStringLiteral("alice"));
        QCOMPARE(dialog.altNickname(), QStringLiteral("alice_"));
        QCOMPARE(dialog.realName(), QStringLiteral("Alice L."));
        QCOMPARE(dialog.favoriteChannels(), (QStringList { "#three", "#four" }));
        QCOMPARE(dialog.authMethod(), QStringLiteral("SASL PLAIN"));
        QCOMPARE(dialog.password(), QStringLiteral(" secret "));
        QCOMPARE(dialog.encoding(), QStringLiteral("KOI8-R"));
        QCOMPARE(dialog.useSsl(), false);
        const ServerConfig active = dialog.activeServerConfig();
        QCOMPARE(active.autojoinChannels, (QStringList { "#three", "#four" }));
        const ServerConfig stored = ServerStore::loadServerConfig("irc.oftc.net_6667");
        QCOMPARE(stored.realName, QStringLiteral("Alice L."));
        QCOMPARE(stored.altNickname, QStringLiteral("alice_"));
        QCOMPARE(stored.useSsl, false);
    }

    void resultGettersForTypedServer()
    {
        ConnectDialog dialog;
        edit(dialog, "serverEdit")->setText("typed.example.org");
        edit(dialog, "portEdit")->setText("7000");
        edit(dialog, "nickEdit")->setText(" hank ");
        edit(dialog, "realNameEdit")->setText("");
        edit(dialog, "channelsEdit")->setText("#a, b");
        dialog.findChild<QCheckBox*>("sslCheck")->setChecked(true);
        dialog.onConnectClicked();
        QCOMPARE(dialog.result(), int(QDialog::Accepted));
        QCOMPARE(dialog.nickname(), QStringLiteral("hank"));
        QCOMPARE(dialog.realName(), QString());
        QCOMPARE(dialog.favoriteChannels(), (QStringList { "#a", "#b" }));
        QCOMPARE(dialog.useSsl(), true);
        QCOMPARE(dialog.encoding(), QStringLiteral("UTF-8 (Unicode)"));
        QCOMPARE(dialog.authMethod(), QStringLiteral("NickServ (/nickserv IDENTIFY)"));
        QVERIFY(dialog.altNickname().isEmpty());
        QVERIFY(!QSettings().contains("servers/typed.example.org_7000/nickname"));
    }

    void storedTlsCannotBeSwitchedOffHere()
    {
        ServerConfig config = sampleConfig();
        ServerStore::saveServerConfig("irc.oftc.net_6667", config);
        ConnectDialog dialog;
        selectRow(dialog, "irc.oftc.net:6667");
        // Typed over: the stored record is used as it is.
        edit(dialog, "portEdit")->setText("6667 ");
        edit(dialog, "portEdit")->setText("6667");
        dialog.findChild<QCheckBox*>("sslCheck")->setChecked(false);
        dialog.onConnectClicked();
        QCOMPARE(dialog.useSsl(), true);
    }

    // --- Look ------------------------------------------------------------

    void dialogShape()
    {
        ConnectDialog dialog;
        QCOMPARE(dialog.windowTitle(), QStringLiteral("Connect to IRC Server"));
        QCOMPARE(dialog.minimumSize(), dialog.maximumSize()); // fixed size
        QVERIFY(dialog.width() >= 460 && dialog.width() <= 560);
        QVERIFY(!(dialog.windowFlags() & Qt::WindowMaximizeButtonHint));
        QVERIFY(!(dialog.windowFlags() & Qt::WindowFullscreenButtonHint));
        QCOMPARE(dialog.findChild<QLabel*>("titleLabel")->text(), QStringLiteral("Connect to IRC"));
        QListWidget* list = listOf(dialog);
        QVERIFY(list->alternatingRowColors());
        QCOMPARE(list->minimumHeight(), 120);
        QCOMPARE(list->maximumHeight(), 150);
        QCOMPARE(list->contextMenuPolicy(), Qt::CustomContextMenu);
        QVERIFY(qobject_cast<ServerListDelegate*>(list->itemDelegate()));
        const QMap<QString, QString> buttons { { "addButton", "Add" }, { "editButton", "Edit" },
            { "deleteButton", "Delete" }, { "cancelButton", "Cancel" }, { "connectButton", "Connect" } };
        for (auto it = buttons.cbegin(); it != buttons.cend(); ++it) {
            auto* button = dialog.findChild<QPushButton*>(it.key());
            QVERIFY2(button, qPrintable(it.key()));
            QCOMPARE(button->text(), it.value());
        }
        QVERIFY(dialog.findChild<QPushButton*>("connectButton")->isDefault());
        QCOMPARE(dialog.findChild<QCheckBox*>("sslCheck")->text(), QStringLiteral("Use SSL"));
        QCOMPARE(edit(dialog, "portEdit")->width(), 80);
        QCOMPARE(edit(dialog, "portEdit")->placeholderText(), QStringLiteral("6667"));
        QCOMPARE(edit(dialog, "nickEdit")->placeholderText(), QStringLiteral("Type you nickname"));
        QCOMPARE(edit(dialog, "realNameEdit")->placeholderText(),
            QStringLiteral("Type you Real name (optionally)"));
        QCOMPARE(edit(dialog, "channelsEdit")->placeholderText(), QStringLiteral("#linux, #help"));
        QStringList labels;
        for (QLabel* label : dialog.findChildren<QLabel*>())
            labels.append(label->text());
        for (const char* text : { "Server:", "Port:", "Nickname:", "Real name:", "Join channels:" })
            QVERIFY2(labels.contains(QString::fromLatin1(text)), text);
    }

    void cancelRejects()
    {
        ConnectDialog dialog;
        QSignalSpy rejected(&dialog, &QDialog::rejected);
        dialog.findChild<QPushButton*>("cancelButton")->click();
        QCOMPARE(rejected.count(), 1);
        QVERIFY(listValue("connection/history").isEmpty());
    }

    void themes_data()
    {
        QTest::addColumn<QString>("theme");
        QTest::addColumn<QString>("background");
        QTest::addColumn<QString>("selected");
        QTest::addColumn<bool>("translucent");
        QTest::newRow("light") << "light"
                               << "#FFFFFF"
                               << "#007AFF" << false;
        QTest::newRow("dark") << "dark"
                              << "#2E2E2E"
                              << "#505050" << false;
        QTest::newRow("glass") << "glass"
                               << "#FFFFFF"
                               << "#007AFF" << true;
    }

    void themes()
    {
        QFETCH(QString, theme);
        QFETCH(QString, background);
        QFETCH(QString, selected);
        QFETCH(bool, translucent);
        ConnectDialog dialog;
        QCOMPARE(dialog.currentTheme(), QStringLiteral("light"));
        QCOMPARE(dialog.styleSheet(), ConnectDialog::styleSheetFor("light"));
        dialog.setCurrentTheme(theme);
        QCOMPARE(dialog.currentTheme(), theme);
        const QString sheet = dialog.styleSheet();
        QCOMPARE(sheet, ConnectDialog::styleSheetFor(theme));
        QVERIFY(sheet.contains("QDialog { background-color: " + background + "; }"));
        QVERIFY(sheet.contains("QListWidget::item:selected { background-color: " + selected));
        QVERIFY(sheet.contains("QLabel#titleLabel"));
        QVERIFY(!sheet.contains(QLatin1Char('%')));
        QCOMPARE(dialog.testAttribute(Qt::WA_TranslucentBackground), translucent);
        QCOMPARE(dialog.autoFillBackground(), !translucent);
    }

    void delegatePaintsMarkerInGold_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<bool>("gold");
        QTest::newRow("favourite") << QString(FavMarker + "irc.oftc.net:6667") << true;
        QTest::newRow("plain") << "irc.oftc.net:6667" << false;
    }

    void delegatePaintsMarkerInGold()
    {
        QFETCH(QString, text);
        QFETCH(bool, gold);
        QListWidget list;
        list.addItem(text);
        ServerListDelegate delegate;
        QStyleOptionViewItem option;
        option.initFrom(&list);
        option.rect = QRect(0, 0, 240, 28);
        option.font = QFont();
        option.font.setPixelSize(20);
        option.palette.setColor(QPalette::Base, Qt::white);
        option.palette.setColor(QPalette::Text, Qt::black);
        QImage image(240, 28, QImage::Format_RGB32);
        image.fill(Qt::blue);
        QPainter painter(&image);
        delegate.paint(&painter, option, list.model()->index(0, 0));
        painter.end();
        QCOMPARE(goldPixels(image) > 5, gold);
        QCOMPARE(image.pixelColor(1, 1), QColor(Qt::white)); // background filled
        // The text starts 4 px in; nothing dark left of it.
        for (int y = 0; y < image.height(); ++y)
            QCOMPARE(image.pixelColor(2, y), QColor(Qt::white));
    }

    void delegateSelectedRowUsesHighlight()
    {
        QListWidget list;
        list.addItem("h:1");
        ServerListDelegate delegate;
        QStyleOptionViewItem option;
        option.initFrom(&list);
        option.rect = QRect(0, 0, 100, 20);
        option.state |= QStyle::State_Selected;
        option.palette.setColor(QPalette::Highlight, QColor("#123456"));
        QImage image(100, 20, QImage::Format_RGB32);
        QPainter painter(&image);
        delegate.paint(&painter, option, list.model()->index(0, 0));
        painter.end();
        QCOMPARE(image.pixelColor(1, 1), QColor("#123456"));
    }
};

QUENVAR_TEST_MAIN(TestServers)
#include "tst_servers.moc"
