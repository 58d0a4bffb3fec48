#include "ConnectDialog.h"
#include "ModalDriver.h"
#include "ServerEditDialog.h"
#include "ServerListDelegate.h"
#include "ServerStore.h"
#include "TestMain.h"
#include "ThemeManager.h"

#include <QCheckBox>
#include <QComboBox>
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

const QString Oftc = QStringLiteral("irc.oftc.net:6667");
const QString OftcId = QStringLiteral("irc.oftc.net_6667");

QLineEdit* edit(QWidget& dialog, const QString& name)
{
    auto* e = dialog.findChild<QLineEdit*>(name);
    if (!e)
        qFatal("no line edit %s", qPrintable(name));
    return e;
}

QCheckBox* sslCheck(QWidget& dialog)
{
    return dialog.findChild<QCheckBox*>(QStringLiteral("sslCheck"));
}

QComboBox* combo(QWidget& dialog, const char* name)
{
    return dialog.findChild<QComboBox*>(QString::fromLatin1(name));
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

void makeFavorite(ConnectDialog& dialog, const QString& address)
{
    selectRow(dialog, address);
    dialog.toggleCurrentFavorite();
}

void fillConnectFields(ConnectDialog& dialog, const QString& server, const QString& port, const QString& nick)
{
    edit(dialog, "serverEdit")->setText(server);
    edit(dialog, "portEdit")->setText(port);
    edit(dialog, "nickEdit")->setText(nick);
}

// Fills the next server edit dialog and saves it. A null nick or channel
// list leaves that field as the dialog shows it.
HandlePtr saveNextEditDialog(const QString& host, const QString& port, const QString& nick = QString(),
    const QString& channels = QString(), std::shared_ptr<QString> seenTitle = nullptr)
{
    return onModal<ServerEditDialog>([=](ServerEditDialog* dialog) {
        if (seenTitle)
            *seenTitle = dialog->windowTitle();
        edit(*dialog, "addressEdit")->setText(host);
        edit(*dialog, "portEdit")->setText(port);
        if (!nick.isNull())
            edit(*dialog, "nickEdit")->setText(nick);
        if (!channels.isNull())
            edit(*dialog, "autojoinEdit")->setText(channels);
        dialog->findChild<QPushButton*>(QStringLiteral("connectButton"))->click();
    });
}

void addServer(ConnectDialog& dialog, const QString& host, const QString& port)
{
    auto handle = saveNextEditDialog(host, port);
    dialog.addServer();
    QVERIFY(handle->handled);
}

// Deletes the current row, confirming with Yes.
void deleteCurrent(ConnectDialog& dialog)
{
    auto box = onMessageBox(QStringLiteral("Delete Server"), QMessageBox::Yes);
    dialog.deleteServer();
    QVERIFY(box->handled);
}

QString value(const QString& key)
{
    return QSettings().value(key).toString();
}

QStringList listValue(const QString& key)
{
    return QSettings().value(key).toStringList();
}

bool stored(const QString& key)
{
    return QSettings().contains(key);
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

// Every field of a record, to compare records in one go.
QStringList fields(const ServerConfig& c)
{
    return { c.nickname, c.altNickname, c.realName, c.authMethod, c.password, c.autojoinChannels.join('|'),
        c.encoding, c.useSsl ? "ssl" : "no ssl", c.favorite ? "favorite" : "not favorite" };
}

// The connection an accepted connect dialog describes.
QStringList results(const ConnectDialog& d)
{
    return { d.server(), QString::number(d.port()), d.nickname(), d.altNickname(), d.realName(),
        d.favoriteChannels().join('|'), d.authMethod(), d.password(), d.encoding(),
        d.useSsl() ? "ssl" : "no ssl" };
}

// The dialog shows each label text and each line edit (by object name) has
// its placeholder.
void checkTexts(QWidget& dialog, const QStringList& labels, const QMap<QString, QString>& placeholders)
{
    QStringList shown;
    for (QLabel* label : dialog.findChildren<QLabel*>())
        shown.append(label->text());
    for (const QString& text : labels)
        QVERIFY2(shown.contains(text), qPrintable(text));
    for (auto it = placeholders.cbegin(); it != placeholders.cend(); ++it)
        QCOMPARE(edit(dialog, it.key())->placeholderText(), it.value());
}

// Buttons by object name (the style sheets rely on those) and their texts.
void checkButtons(QWidget& dialog, const QMap<QString, QString>& buttons)
{
    for (auto it = buttons.cbegin(); it != buttons.cend(); ++it) {
        auto* button = dialog.findChild<QPushButton*>(it.key());
        QVERIFY2(button, qPrintable(it.key()));
        QCOMPARE(button->text().remove('&'), it.value());
    }
}

// Paints one list row through the server list delegate.
QImage paintRow(const QString& text, bool selected = false)
{
    QListWidget list;
    list.addItem(text);
    ServerListDelegate delegate;
    QStyleOptionViewItem option;
    option.initFrom(&list);
    option.rect = QRect(0, 0, 240, 28);
    option.font.setPixelSize(20);
    option.palette.setColor(QPalette::Base, Qt::white);
    option.palette.setColor(QPalette::Text, Qt::black);
    option.palette.setColor(QPalette::Highlight, QColor("#123456"));
    if (selected)
        option.state |= QStyle::State_Selected;
    QImage image(240, 28, QImage::Format_RGB32);
    image.fill(Qt::blue);
    QPainter painter(&image);
    delegate.paint(&painter, option, list.model()->index(0, 0));
    painter.end();
    return image;
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

    void records()
    {
        ServerConfig config = sampleConfig();
        config.favorite = true;
        ServerStore::saveServerConfig(QStringLiteral("irc.example.org_6697"), config);
        // The key names are what existing settings files hold.
        const QMap<QString, QString> keys { { "altnick", "alice_" }, { "authmethod", "SASL PLAIN" },
            { "password", " secret " }, { "address", "irc.example.org:6697" } };
        for (auto it = keys.cbegin(); it != keys.cend(); ++it)
            QCOMPARE(value("servers/irc.example.org_6697/" + it.key()), it.value());
        config.favorite = false; // favourites live in a key of their own
        QCOMPARE(
            fields(ServerStore::loadServerConfig(QStringLiteral("irc.example.org_6697"))), fields(config));

        // A one-element list survives the settings file, too.
        config.autojoinChannels = { QStringLiteral("#only") };
        ServerStore::saveServerConfig(QStringLiteral("h_1"), config);
        QCOMPARE(ServerStore::loadServerConfig(QStringLiteral("h_1")).autojoinChannels,
            QStringList { QStringLiteral("#only") });

        // Missing keys read as the fallback's fields; reading writes nothing.
        QSettings().setValue("servers/h_2/nickname", "stored");
        const QStringList keysBefore = QSettings().allKeys();
        QCOMPARE(fields(ServerStore::loadServerConfig(QStringLiteral("nowhere_1"))), fields(ServerConfig()));
        ServerConfig expected = sampleConfig();
        const ServerConfig mixed = ServerStore::loadServerConfig(QStringLiteral("h_2"), expected);
        expected.nickname = QStringLiteral("stored");
        QCOMPARE(fields(mixed), fields(expected));
        QCOMPARE(QSettings().allKeys(), keysBefore);
    }

    void identifiers()
    {
        const QList<std::pair<QString, QString>> cases { { "irc.example.org:6667", "irc.example.org_6667" },
            { "irc.example.org:006667", "irc.example.org_6667" },
            { "irc.example.org:abc", "irc.example.org_0" }, { ":6667", "_6667" },
            { "my_host:7000", "my_host_7000" }, { "irc.example.org", "" }, { "irc.example.org:1:2", "" },
            { "::1:6667", "" } };
        for (const auto& [address, id] : cases)
            QCOMPARE(ServerStore::idFromAddress(address), id);
    }

    void oddIdentifiers()
    {
        // A host with "_" does not split in two: the dialog stores the
        // identifier as its own address, the chat window stores none.
        ServerStore::saveServerConfig(QStringLiteral("my_host_6667"), ServerConfig());
        QCOMPARE(value("servers/my_host_6667/address"), QStringLiteral("my_host_6667"));
        ServerStore::saveServerConfig(
            QStringLiteral("odd_host_1"), ServerConfig(), ServerStore::OddAddress::Skip);
        QVERIFY(stored("servers/odd_host_1/nickname"));
        QVERIFY(!stored("servers/odd_host_1/address"));

        // Listed from the custom list, it gets its derived address: shown, but
        // without an identifier. Identifiers only come from the user's own
        // list, but nothing may break the store when they look odd.
        QSettings().setValue("servers/customList",
            QStringList {
                "my_host_7000", "", "favorites", "a/b_1", "x\\y_2", QString(300, QLatin1Char('z')) });
        ConnectDialog dialog;
        QVERIFY(rows(dialog).size() >= 73);
        QVERIFY(rows(dialog).contains(QStringLiteral("my:host:7000")));
        QCOMPARE(value("servers/my_host_7000/address"), QStringLiteral("my:host:7000"));
        QVERIFY(ServerStore::idFromAddress(QStringLiteral("my:host:7000")).isEmpty());
        ServerStore::removeServerGroup(QString());
        QVERIFY(!listValue("servers/customList").isEmpty()); // the empty id removed nothing
    }

    void cleanAddress()
    {
        const QString star = QString::fromUtf8("\u2605");
        const QList<std::pair<QString, QString>> cases { { star + " h:1", "h:1" }, { "h:1", "h:1" },
            { star + "h:1", star + "h:1" }, { "h" + FavMarker + ":1", "h" + FavMarker + ":1" },
            { FavMarker + FavMarker + "h:1", FavMarker + "h:1" } };
        for (const auto& [text, clean] : cases)
            QCOMPARE(ConnectDialog::cleanAddress(text), clean);
    }

    void defaultList()
    {
        const QStringList servers = ConnectDialog::defaultServers();
        QCOMPARE(servers.size(), 72);
        QCOMPARE(QSet<QString>(servers.cbegin(), servers.cend()).size(), 72);
        for (const QString& entry : servers) {
            QString host;
            int port = 0;
            QVERIFY2(ServerStore::splitAddress(entry, &host, &port), qPrintable(entry));
            QVERIFY2(!host.isEmpty() && !host.contains(QLatin1Char('_')), qPrintable(entry));
            QVERIFY(ConnectDialog::isDefaultServer(ConnectDialog::serverId(host, port)));
        }
        QVERIFY(servers.contains(ServerStore::defaultHost() + ":6667"));
        QVERIFY(!ConnectDialog::isDefaultServer(QStringLiteral("irc.example.org_6667")));
        QVERIFY(!ConnectDialog::isDefaultServer(ServerStore::defaultHost() + "_6697"));
    }

    void splitChannels()
    {
        const QList<std::pair<QString, QStringList>> cases { { "a,,b  #c", { "#a", "#b", "#c" } },
            { " , ,\t", {} }, { "##x, #y", { "##x", "#y" } }, { "  linux  ", { "#linux" } } };
        for (const auto& [text, channels] : cases)
            QCOMPARE(ServerStore::splitChannels(text), channels);
    }

    void history()
    {
        QCOMPARE(ServerStore::historyEntry(QStringLiteral("  irc.x.org "), QStringLiteral("0100")),
            QStringLiteral("irc.x.org:100"));
        QCOMPARE(ServerStore::historyEntry(QStringLiteral("h"), QStringLiteral("x")), QStringLiteral("h:0"));

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
    }

    // --- Loading the list ------------------------------------------------

    void firstStartListsNetworksAndSelectsDefault()
    {
        ConnectDialog dialog;
        QCOMPARE(rows(dialog).size(), 72);
        QCOMPARE(currentText(dialog), ServerStore::defaultHost() + ":6667");
        QCOMPARE(edit(dialog, "serverEdit")->text(), ServerStore::defaultHost());
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
        QCOMPARE(rows(dialog).size(), 73);
        QCOMPARE(rows(dialog).last(), QStringLiteral("127.0.0.1:16667"));
        QCOMPARE(currentText(dialog), QStringLiteral("127.0.0.1:16667"));
        QCOMPARE(listValue("servers/customList"), QStringList { "127.0.0.1_16667" });
        QCOMPARE(value("servers/127.0.0.1_16667/address"), QStringLiteral("127.0.0.1:16667"));
        QCOMPARE(edit(dialog, "nickEdit")->text(), QStringLiteral("alice"));
        QCOMPARE(edit(dialog, "realNameEdit")->text(), QStringLiteral("Alice Example"));
        QCOMPARE(edit(dialog, "channelsEdit")->text(), QStringLiteral("#a, #b"));
    }

    // --- Adding ----------------------------------------------------------

    void addingServers()
    {
        ConnectDialog dialog;
        auto editor = onModal<ServerEditDialog>([](ServerEditDialog* d) {
            edit(*d, "addressEdit")->setText(QStringLiteral("x.example.org"));
            d->findChild<QPushButton*>(QStringLiteral("cancelButton"))->click();
        });
        dialog.addServer();
        QVERIFY(editor->handled);
        QCOMPARE(rows(dialog).size(), 72); // cancelled

        auto title = std::make_shared<QString>();
        editor = saveNextEditDialog("  irc.example.org ", "06697", "bob", "a, b", title);
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

        // A server already listed is only selected.
        editor = saveNextEditDialog("irc.oftc.net", "6667");
        auto box = onMessageBox(QStringLiteral("Add Server"), QMessageBox::Ok);
        dialog.addServer();
        QVERIFY(box->handled);
        QCOMPARE(box->text, QStringLiteral("This server already exists in the list."));
        QCOMPARE(currentText(dialog), Oftc);
        QCOMPARE(rows(dialog).size(), 73);
    }

    void addOrEditRefusesInvalidFormat()
    {
        const QList<std::pair<bool, QString>> cases { { false, "irc.example.org:7000" }, { false, "::1" },
            { true, "irc.oftc.net:1" } };
        for (const auto& [editing, host] : cases) {
            ConnectDialog dialog;
            selectRow(dialog, Oftc);
            const QStringList before = rows(dialog);
            auto editor = saveNextEditDialog(host, "6667", "erin");
            auto box = onMessageBox(QStringLiteral("Invalid format"), QMessageBox::Ok);
            editing ? dialog.editServer() : dialog.addServer();
            QVERIFY2(editor->handled && box->handled, qPrintable(host));
            QCOMPARE(box->text, QStringLiteral("Please use the format host:port"));
            QCOMPARE(rows(dialog), before);
        }
        QVERIFY(listValue("servers/customList").isEmpty());
        QVERIFY(!stored("servers/irc.oftc.net_6667/nickname"));
    }

    // --- Favourites ------------------------------------------------------

    void orderFavouritesFirstThenCaseInsensitive()
    {
        ServerStore::saveFavorites({ QStringLiteral("gone.example_1") }); // not listed, but kept
        ConnectDialog dialog;
        addServer(dialog, "C.example", "2");
        addServer(dialog, "b.example", "1");
        addServer(dialog, "zz.example", "3");
        const QStringList list = rows(dialog);
        QVERIFY(list.indexOf("b.example:1") < list.indexOf("C.example:2"));
        // The custom list follows the display order and holds no defaults.
        QCOMPARE(
            listValue("servers/customList"), (QStringList { "b.example_1", "C.example_2", "zz.example_3" }));

        makeFavorite(dialog, "zz.example:3");
        makeFavorite(dialog, Oftc);
        QCOMPARE(rows(dialog).mid(0, 2), (QStringList { FavMarker + Oftc, FavMarker + "zz.example:3" }));
        QVERIFY(!rows(dialog).at(2).startsWith(FavMarker));
        QCOMPARE(currentText(dialog), FavMarker + Oftc); // selection follows the row
        QCOMPARE(value("servers/irc.oftc.net_6667/address"), Oftc); // the marker is display only

        ConnectDialog reloaded;
        QCOMPARE(rows(reloaded).mid(0, 2), (QStringList { FavMarker + Oftc, FavMarker + "zz.example:3" }));
        QVERIFY(reloaded.favoriteServers().contains(OftcId));
        makeFavorite(reloaded, FavMarker + "zz.example:3");
        QVERIFY(!rows(reloaded).at(1).startsWith(FavMarker));
        QCOMPARE(ServerStore::loadFavorites(), (QSet<QString> { "gone.example_1", OftcId }));
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
        QVERIFY(!stored("servers/favorites"));
    }

    void contextMenuTogglesFavourite()
    {
        ConnectDialog dialog;
        dialog.show();
        QVERIFY(QTest::qWaitForWindowExposed(&dialog));
        QListWidget* list = listOf(dialog);
        QListWidgetItem* item = list->findItems(Oftc, Qt::MatchExactly).value(0);
        QVERIFY(item);
        list->scrollToItem(item);

        auto texts = std::make_shared<QStringList>();
        auto menu = onMenu(QStringLiteral("Add to Favorites"), texts);
        dialog.showServerContextMenu(list->visualItemRect(item).center());
        QVERIFY(menu->handled);
        QCOMPARE(*texts, (QStringList { "Edit", "Delete", "Add to Favorites" }));
        QCOMPARE(rows(dialog).first(), FavMarker + Oftc);
        QCOMPARE(currentText(dialog), FavMarker + Oftc);

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
        QStringList all;
        for (const QString& entry : ServerStore::defaultServers())
            all.append(ServerStore::idFromAddress(entry));
        QSettings().setValue("servers/deletedDefaultServers", all);
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

    // --- Editing and deleting --------------------------------------------

    void editOrDeleteNeedsSelection()
    {
        for (const QString title : { "Edit", "Delete" }) {
            ConnectDialog dialog;
            listOf(dialog)->setCurrentItem(nullptr);
            auto box = onMessageBox(title, QMessageBox::Ok);
            title == QLatin1String("Edit") ? dialog.editServer() : dialog.deleteServer();
            QVERIFY2(box->handled, qPrintable(title));
            QCOMPARE(box->text, QStringLiteral("No server selected."));
            QCOMPARE(rows(dialog).size(), 72);
        }
    }

    void editFavouriteAddressDropsFavourite()
    {
        ConnectDialog dialog;
        makeFavorite(dialog, Oftc);
        auto title = std::make_shared<QString>();
        auto editor = saveNextEditDialog("irc.oftc.net", "6697", "carol", QString(), title);
        dialog.editServer();
        QVERIFY(editor->handled);
        QCOMPARE(*title, QStringLiteral("Edit irc.oftc.net:6667"));
        QCOMPARE(currentText(dialog), QStringLiteral("irc.oftc.net:6697"));
        QVERIFY(!dialog.favoriteServers().contains(OftcId));
        QVERIFY(!listValue("servers/favorites").contains(OftcId));
        QVERIFY(!listValue("servers/deletedDefaultServers").contains(OftcId));
        QVERIFY(!stored("servers/irc.oftc.net_6667/nickname"));
        QCOMPARE(value("servers/irc.oftc.net_6697/nickname"), QStringLiteral("carol"));
        QCOMPARE(listValue("servers/customList"), QStringList { "irc.oftc.net_6697" });

        // The edited default comes back on the next load, next to the new entry.
        ConnectDialog reloaded;
        QVERIFY(rows(reloaded).contains(Oftc));
        QVERIFY(rows(reloaded).contains("irc.oftc.net:6697"));
    }

    void editInPlaceKeepsFavouriteAndSwitchesTlsOff()
    {
        ServerStore::saveServerConfig(OftcId, sampleConfig());
        ConnectDialog dialog;
        makeFavorite(dialog, Oftc);
        QVERIFY(sslCheck(dialog)->isChecked());
        auto shown = std::make_shared<QStringList>();
        auto editor = onModal<ServerEditDialog>([shown](ServerEditDialog* d) {
            *shown << edit(*d, "nickEdit")->text() << edit(*d, "autojoinEdit")->text()
                   << combo(*d, "encodingCombo")->currentText();
            edit(*d, "nickEdit")->setText(QStringLiteral("dave"));
            edit(*d, "autojoinEdit")->setText(QStringLiteral("x"));
            d->accept();
        });
        dialog.editServer();
        QVERIFY(editor->handled);
        QCOMPARE(*shown, (QStringList { "alice", "#one, #two", "KOI8-R" }));
        QCOMPARE(currentText(dialog), FavMarker + Oftc);
        QVERIFY(dialog.favoriteServers().contains(OftcId));
        QCOMPARE(edit(dialog, "nickEdit")->text(), QStringLiteral("dave"));
        QCOMPARE(edit(dialog, "channelsEdit")->text(), QStringLiteral("#x"));
        // The edit dialog carries no TLS flag: saving switches it off.
        QCOMPARE(QSettings().value("servers/irc.oftc.net_6667/ssl").toBool(), false);
        QCOMPARE(value("servers/irc.oftc.net_6667/password"), QStringLiteral(" secret "));
        QVERIFY(!sslCheck(dialog)->isChecked());
    }

    void deletedDefaultStaysAwayUntilAddedAgain()
    {
        ServerStore::saveServerConfig(OftcId, sampleConfig());
        {
            ConnectDialog dialog;
            makeFavorite(dialog, Oftc);
            selectRow(dialog, FavMarker + Oftc);
            deleteCurrent(dialog);
            QVERIFY(!rows(dialog).contains(FavMarker + Oftc));
            QCOMPARE(listValue("servers/deletedDefaultServers"), QStringList { OftcId });
            QVERIFY(!stored("servers/irc.oftc.net_6667/nickname"));
            // A deleted default keeps its favourite mark in the store.
            QVERIFY(listValue("servers/favorites").contains(OftcId));
        }
        ConnectDialog dialog;
        QCOMPARE(rows(dialog).size(), 71);
        QVERIFY(!rows(dialog).join(' ').contains(Oftc));

        addServer(dialog, "irc.oftc.net", "6667");
        QVERIFY(!dialog.deletedDefaultIds().contains(OftcId));
        QVERIFY(listValue("servers/deletedDefaultServers").isEmpty());
        QVERIFY(listValue("servers/customList").isEmpty()); // a default is never custom
        ConnectDialog reloaded;
        QCOMPARE(rows(reloaded).size(), 72);
    }

    void deleteCustomServer()
    {
        ConnectDialog dialog;
        dialog.setCurrentTheme(QStringLiteral("dark"));
        addServer(dialog, "own.example.org", "6667");
        makeFavorite(dialog, "own.example.org:6667");
        auto seen = std::make_shared<QStringList>();
        auto box = onModal<QMessageBox>([seen](QMessageBox* b) {
            QAbstractButton* yes = b->button(QMessageBox::Yes);
            QAbstractButton* no = b->button(QMessageBox::No);
            // The sheet styles the buttons by these names.
            *seen << (yes ? yes->objectName() : QString()) << (no ? no->objectName() : QString())
                  << (b->defaultButton() == no ? "no is default" : "yes is default")
                  << (b->icon() == QMessageBox::Critical ? "critical" : "other") << b->styleSheet();
            no->click();
        });
        dialog.deleteServer();
        QVERIFY(box->handled);
        QCOMPARE(box->title, QStringLiteral("Delete Server"));
        QCOMPARE(box->text, QStringLiteral("Are you sure you want to delete server: own.example.org:6667"));
        QCOMPARE(*seen,
            (QStringList { "yesButton", "noButton", "no is default", "critical",
                ConnectDialog::deleteBoxStyleSheet("dark") }));
        QCOMPARE(currentText(dialog), FavMarker + "own.example.org:6667"); // "No" keeps it

        deleteCurrent(dialog);
        QCOMPARE(rows(dialog).size(), 72);
        QVERIFY(listValue("servers/customList").isEmpty());
        QVERIFY(!stored("servers/own.example.org_6667/address"));
        QVERIFY(!listValue("servers/favorites").contains("own.example.org_6667"));
        QVERIFY(listValue("servers/deletedDefaultServers").isEmpty());
    }

    // --- The edit dialog -------------------------------------------------

    void editDialogLayout()
    {
        ServerEditDialog dialog("Add IRC Server", ":6667", ServerConfig(), "dark");
        QCOMPARE(dialog.windowTitle(), QStringLiteral("Add IRC Server"));
        auto* validator = qobject_cast<const QIntValidator*>(edit(dialog, "portEdit")->validator());
        QVERIFY(validator);
        QCOMPARE(validator->bottom(), 1);
        QCOMPARE(validator->top(), 65535);
        QCOMPARE(edit(dialog, "passwordEdit")->echoMode(), QLineEdit::Password);
        QCOMPARE(combo(dialog, "authCombo")->count(), 6);
        QCOMPARE(combo(dialog, "encodingCombo")->count(), 13);
        checkButtons(dialog, { { "connectButton", "Save" }, { "cancelButton", "Cancel" } });
        checkTexts(dialog,
            { "IRC server:", "Port:", "Nickname:", "Second Name:", "Real Name:", "Auth Method:", "Password:",
                "Auto join channels:", "Encoding:" },
            { { "addressEdit", "irc.example.net" }, { "nickEdit", "Type you nickname" },
                { "altNickEdit", "Alternative nickname if main is taken" },
                { "realNameEdit", "Type you Real name (optionally)" }, { "autojoinEdit", "#help, #linux" } });
    }

    void editDialogAddress()
    {
        // The address given splits into the fields...
        const QList<QStringList> splits { { "irc.x.org:7000", "irc.x.org", "7000" }, { ":6667", "", "6667" },
            { "justhost", "justhost", "6667" }, { "a:b:c", "a:b:c", "6667" }, { "h:0042", "h", "42" } };
        for (const QStringList& split : splits) {
            ServerEditDialog dialog("t", split.at(0), ServerConfig(), "light");
            QCOMPARE(edit(dialog, "addressEdit")->text(), split.at(1));
            QCOMPARE(edit(dialog, "portEdit")->text(), split.at(2));
        }
        // ...and the fields join into the address entered.
        const QList<QStringList> joins { { " irc.x.org  ", "6697", "irc.x.org:6697" },
            { "irc.x.org", "", "irc.x.org:0" }, { "h", "007", "h:7" }, { "h:1", "6667", "h:1:6667" } };
        ServerEditDialog dialog("t", ":6667", ServerConfig(), "light");
        for (const QStringList& join : joins) {
            edit(dialog, "addressEdit")->setText(join.at(0));
            edit(dialog, "portEdit")->setText(join.at(1));
            QCOMPARE(dialog.fullAddress(), join.at(2));
        }
    }

    void editDialogGetConfig()
    {
        ServerConfig config = sampleConfig();
        config.authMethod = QStringLiteral("Carrier pigeon"); // unknown: the first NickServ entry
        config.encoding = QStringLiteral("utf-8 (unicode)"); // case matters: falls back to index 0
        ServerEditDialog dialog("t", "h:1", config, "light");
        QCOMPARE(combo(dialog, "authCombo")->currentIndex(), 2);
        QCOMPARE(combo(dialog, "encodingCombo")->currentIndex(), 0);
        edit(dialog, "nickEdit")->setText("  nick  ");
        edit(dialog, "altNickEdit")->setText(" alt ");
        edit(dialog, "realNameEdit")->setText(" Real ");
        edit(dialog, "passwordEdit")->setText("  pw  ");
        edit(dialog, "autojoinEdit")->setText("a,,b  #c");
        combo(dialog, "encodingCombo")->setCurrentIndex(6);
        // Trimmed but the password; TLS is never carried by this dialog.
        QCOMPARE(fields(dialog.getConfig()),
            (QStringList { "nick", "alt", "Real", "NickServ (/nickserv IDENTIFY)", "  pw  ", "#a|#b|#c",
                "Windows-1251 (Cyrillic)", "no ssl", "not favorite" }));
    }

    // --- Connecting ------------------------------------------------------

    void connectRefusesThenCancel()
    {
        const QString required = QStringLiteral("Server and nickname are required!");
        const QString range = QStringLiteral("Port must be between 1 and 65535");
        const QList<QStringList> cases { { "  ", "6667", "me", required },
            { "irc.x.org", "6667", " ", required }, { "irc.x.org", "0", "me", range },
            { "irc.x.org", "65536", "me", range }, { "irc.x.org", "abc", "me", range } };
        ConnectDialog dialog;
        QSignalSpy accepted(&dialog, &QDialog::accepted);
        for (const QStringList& c : cases) {
            fillConnectFields(dialog, c.at(0), c.at(1), c.at(2));
            auto details = std::make_shared<QStringList>();
            auto box = onModal<QMessageBox>(
                [details](QMessageBox* b) {
                    const QList<QAbstractButton*> buttons = b->buttons();
                    *details << QString::number(buttons.size()) << buttons.value(0)->objectName()
                             << (b->icon() == QMessageBox::Warning ? "warning" : "other");
                    buttons.value(0)->click();
                },
                [](QMessageBox* b) { return b->windowTitle() == QStringLiteral("Error"); });
            dialog.onConnectClicked();
            QVERIFY2(box->handled, qPrintable(c.join('|')));
            QCOMPARE(box->text, c.at(3));
            // One themed OK button, styled by its name.
            QCOMPARE(*details, (QStringList { "1", "connectButton", "warning" }));
        }
        QCOMPARE(accepted.count(), 0);
        QSignalSpy rejected(&dialog, &QDialog::rejected);
        dialog.findChild<QPushButton*>("cancelButton")->click();
        QCOMPARE(rejected.count(), 1);
        QVERIFY(listValue("connection/history").isEmpty());
    }

    void typingAfterSelectionDoesNotSave_data()
    {
        QTest::addColumn<QString>("field");
        QTest::newRow("server") << "serverEdit";
        QTest::newRow("port") << "portEdit";
        QTest::newRow("none") << "";
    }

    // A server picked from the list has its record updated from the fields;
    // typing over the server or port (even the same text) uses the stored
    // record as it is, whose TLS flag cannot be switched off from here.
    void typingAfterSelectionDoesNotSave()
    {
        QFETCH(QString, field);
        ServerConfig tls;
        tls.useSsl = true;
        ServerStore::saveServerConfig(OftcId, tls);
        ConnectDialog dialog;
        selectRow(dialog, Oftc);
        QCOMPARE(dialog.currentServerId(), OftcId);
        edit(dialog, "nickEdit")->setText("frank");
        sslCheck(dialog)->setChecked(false);
        if (!field.isEmpty()) {
            QLineEdit* e = edit(dialog, field);
            const QString text = e->text();
            QTest::keyClick(e, Qt::Key_End);
            QTest::keyClick(e, Qt::Key_X);
            QTest::keyClick(e, Qt::Key_Backspace);
            QCOMPARE(e->text(), text);
            QVERIFY(dialog.currentServerId().isEmpty());
        }
        dialog.onConnectClicked();
        QCOMPARE(dialog.result(), int(QDialog::Accepted));
        QCOMPARE(dialog.nickname(), QStringLiteral("frank"));
        QCOMPARE(value("servers/irc.oftc.net_6667/nickname") == QLatin1String("frank"), field.isEmpty());
        QCOMPARE(dialog.useSsl(), !field.isEmpty());
        QCOMPARE(listValue("connection/history"), QStringList { Oftc });
    }

    void historyWrittenOnConnect()
    {
        ServerStore::recordHistory(Oftc);
        ServerStore::recordHistory("irc.efnet.org:6667");
        ConnectDialog dialog;
        QCOMPARE(currentText(dialog), QStringLiteral("irc.efnet.org:6667"));
        selectRow(dialog, Oftc);
        edit(dialog, "nickEdit")->setText("gina");
        dialog.onConnectClicked();
        QCOMPARE(listValue("connection/history"), (QStringList { "irc.efnet.org:6667", Oftc }));
        ConnectDialog reopened;
        QCOMPARE(currentText(reopened), Oftc);
        QCOMPARE(edit(reopened, "serverEdit")->text(), QStringLiteral("irc.oftc.net"));
        QCOMPARE(edit(reopened, "nickEdit")->text(), QStringLiteral("gina"));
    }

    void resultsForSelectedServer()
    {
        ServerStore::saveServerConfig(OftcId, sampleConfig());
        ConnectDialog dialog;
        selectRow(dialog, Oftc);
        QCOMPARE(edit(dialog, "nickEdit")->text(), QStringLiteral("alice"));
        QCOMPARE(edit(dialog, "channelsEdit")->text(), QStringLiteral("#one, #two"));
        edit(dialog, "realNameEdit")->setText("  Alice L.  ");
        edit(dialog, "channelsEdit")->setText("three four");
        sslCheck(dialog)->setChecked(false);
        dialog.onConnectClicked();
        QCOMPARE(dialog.result(), int(QDialog::Accepted));
        QCOMPARE(results(dialog),
            (QStringList { "irc.oftc.net", "6667", "alice", "alice_", "Alice L.", "#three|#four",
                "SASL PLAIN", " secret ", "KOI8-R", "no ssl" }));
        QCOMPARE(dialog.activeServerConfig().autojoinChannels, (QStringList { "#three", "#four" }));
        // The selected server's record takes what was entered.
        ServerConfig expected = sampleConfig();
        expected.realName = QStringLiteral("Alice L.");
        expected.autojoinChannels = QStringList { "#three", "#four" };
        expected.useSsl = false;
        QCOMPARE(fields(ServerStore::loadServerConfig(OftcId)), fields(expected));
    }

    void resultsForTypedServer()
    {
        ConnectDialog dialog;
        QSignalSpy accepted(&dialog, &QDialog::accepted);
        fillConnectFields(dialog, " typed.example.org ", "65535", " hank ");
        edit(dialog, "realNameEdit")->setText("");
        edit(dialog, "channelsEdit")->setText("#a, b");
        sslCheck(dialog)->setChecked(true);
        dialog.onConnectClicked();
        QCOMPARE(accepted.count(), 1);
        QCOMPARE(results(dialog),
            (QStringList { "typed.example.org", "65535", "hank", "", "", "#a|#b",
                "NickServ (/nickserv IDENTIFY)", "", "UTF-8 (Unicode)", "ssl" }));
        QCOMPARE(listValue("connection/history"), QStringList { "typed.example.org:65535" });
        QVERIFY(!stored("servers/typed.example.org_65535/nickname"));
    }

    // --- Look ------------------------------------------------------------

    void dialogLayout()
    {
        ConnectDialog dialog;
        QCOMPARE(dialog.windowTitle(), QStringLiteral("Connect to IRC Server"));
        QCOMPARE(dialog.minimumSize(), dialog.maximumSize()); // fixed size
        QVERIFY(!(dialog.windowFlags() & Qt::WindowMaximizeButtonHint));
        QCOMPARE(dialog.findChild<QLabel*>("titleLabel")->text(), QStringLiteral("Connect to IRC"));
        QCOMPARE(listOf(dialog)->contextMenuPolicy(), Qt::CustomContextMenu);
        QVERIFY(qobject_cast<ServerListDelegate*>(listOf(dialog)->itemDelegate()));
        checkButtons(dialog,
            { { "addButton", "Add" }, { "editButton", "Edit" }, { "deleteButton", "Delete" },
                { "cancelButton", "Cancel" }, { "connectButton", "Connect" } });
        QVERIFY(dialog.findChild<QPushButton*>("connectButton")->isDefault());
        QCOMPARE(sslCheck(dialog)->text(), QStringLiteral("Use SSL"));
        checkTexts(dialog, { "Server:", "Port:", "Nickname:", "Real name:", "Join channels:" },
            { { "serverEdit", ServerStore::defaultHost() }, { "portEdit", "6667" },
                { "nickEdit", "Type you nickname" }, { "realNameEdit", "Type you Real name (optionally)" },
                { "channelsEdit", "#linux, #help" } });
    }

    void themes_data()
    {
        QTest::addColumn<QString>("theme");
        QTest::addColumn<QString>("background");
        QTest::addColumn<QString>("arrow");
        // Without a compositor (offscreen) glass is frosted, not see-through.
        QTest::newRow("light") << "light"
                               << "#FFFFFF"
                               << "#333333";
        QTest::newRow("dark") << "dark"
                              << "#2E2E2E"
                              << "#DDDDDD";
        QTest::newRow("glass") << "glass"
                               << "#FFFFFF"
                               << "#333333";
    }

    void themes()
    {
        QFETCH(QString, theme);
        QFETCH(QString, background);
        QFETCH(QString, arrow);
        ConnectDialog dialog;
        QCOMPARE(dialog.styleSheet(), ConnectDialog::styleSheetFor("light"));
        dialog.setCurrentTheme(theme);
        QCOMPARE(dialog.currentTheme(), theme);
        const QString sheet = dialog.styleSheet();
        QVERIFY(sheet.startsWith(ConnectDialog::styleSheetFor(theme)));
        QVERIFY(sheet.contains("QDialog { background-color: " + background + "; }"));
        QVERIFY(!sheet.contains(QLatin1Char('%')));
        QVERIFY(!dialog.testAttribute(Qt::WA_TranslucentBackground));
        // The delete confirmation matches the dialog.
        const QString boxSheet = ConnectDialog::deleteBoxStyleSheet(theme);
        QVERIFY(boxSheet.contains("QMessageBox { background-color: " + background + "; }"));
        QVERIFY(!boxSheet.contains(QLatin1Char('%')));

        ServerEditDialog editor("t", "h:1", ServerConfig(), theme);
        QVERIFY(editor.styleSheet().startsWith(ThemeManager::dialogStyleSheet(theme)));
        QVERIFY(!editor.testAttribute(Qt::WA_TranslucentBackground));
        const QString comboSheet = combo(editor, "authCombo")->styleSheet();
        QCOMPARE(combo(editor, "encodingCombo")->styleSheet(), comboSheet);
        QVERIFY(comboSheet.contains("background: " + ThemeManager::palette(theme).inputBg));
        // Style sheets load images by name: the inline arrow must be loadable that way.
        const int at = comboSheet.indexOf(QStringLiteral("url(data:image/svg+xml;base64,"));
        QVERIFY(at > 0);
        const QImage image(comboSheet.mid(at + 4, comboSheet.indexOf(')', at) - at - 4));
        QCOMPARE(image.size(), QSize(12, 12));
        QCOMPARE(image.pixelColor(6, 6).name(QColor::HexRgb).toUpper(), arrow);
    }

    void delegatePaintsRows()
    {
        // The favourite marker is drawn in gold; the text starts 4 px in on
        // the row's background.
        for (const bool favorite : { true, false }) {
            const QImage image = paintRow(favorite ? FavMarker + Oftc : Oftc);
            QCOMPARE(goldPixels(image) > 5, favorite);
            for (int y = 0; y < image.height(); ++y)
                QCOMPARE(image.pixelColor(2, y), QColor(Qt::white));
        }
        QCOMPARE(paintRow(QStringLiteral("h:1"), true).pixelColor(1, 1), QColor("#123456"));
    }
};

QUENVAR_TEST_MAIN(TestServers)
#include "tst_servers.moc"
