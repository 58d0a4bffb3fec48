#include "ServerStore.h"

#include "SecretStore.h"

#include <QRegularExpression>
#include <QSettings>

namespace {

const QString ServersGroup = QStringLiteral("servers/");
const QString FavoritesKey = QStringLiteral("servers/favorites");
const QString DeletedDefaultsKey = QStringLiteral("servers/deletedDefaultServers");
const QString CustomListKey = QStringLiteral("servers/customList");
const QString HistoryKey = QStringLiteral("connection/history");

QString groupOf(const QString& id)
{
    return ServersGroup + id;
}

QString addressKey(const QString& id)
{
    return ServersGroup + id + QStringLiteral("/address");
}

QStringList toList(const QSet<QString>& set)
{
    return QStringList(set.cbegin(), set.cend());
}

QSet<QString> toSet(const QStringList& list)
{
    return QSet<QString>(list.cbegin(), list.cend());
}

const QString PasswordKey = QStringLiteral("password");
// Set while a record's password is in the keyring rather than in the file.
const QString InKeyringKey = QStringLiteral("passwordinkeyring");

bool passwordsInFile = false;

// The password goes to the keyring; the settings file keeps it only where no
// keyring answers (the file is readable by its user alone).
void storePassword(QSettings& settings, const QString& id, const QString& password)
{
    const bool wasInKeyring = settings.value(InKeyringKey).toBool();
    if (password.isEmpty()) {
        settings.remove(PasswordKey);
        settings.remove(InKeyringKey);
        if (wasInKeyring)
            SecretStore::remove(id);
    } else if (SecretStore::write(id, password)) {
        settings.remove(PasswordKey);
        settings.setValue(InKeyringKey, true);
    } else {
        settings.setValue(PasswordKey, password);
        settings.remove(InKeyringKey);
        passwordsInFile = true;
    }
}

void writeRecord(QSettings& settings, const QString& id, const ServerConfig& config)
{
    settings.beginGroup(groupOf(id));
    settings.setValue(QStringLiteral("nickname"), config.nickname);
    settings.setValue(QStringLiteral("altnick"), config.altNickname);
    settings.setValue(QStringLiteral("realname"), config.realName);
    settings.setValue(QStringLiteral("authmethod"), config.authMethod);
    storePassword(settings, id, config.password);
    settings.setValue(QStringLiteral("account"), config.account);
    settings.setValue(QStringLiteral("autojoin"), config.autojoinChannels);
    settings.setValue(QStringLiteral("encoding"), config.encoding);
    settings.setValue(QStringLiteral("ssl"), config.useSsl);
    if (config.certFingerprint.isEmpty())
        settings.remove(QStringLiteral("certfingerprint"));
    else
        settings.setValue(QStringLiteral("certfingerprint"), config.certFingerprint);
    settings.endGroup();
}

const QSet<QString>& defaultIds()
{
    static const QSet<QString> ids = [] {
        QSet<QString> result;
        for (const QString& entry : ServerStore::defaultServers()) {
            const QString id = ServerStore::idFromAddress(entry);
            if (!id.isEmpty())
                result.insert(id);
        }
        return result;
    }();
    return ids;
}

} // namespace

QString ServerStore::defaultHost()
{
    return QStringLiteral("irc.libera.chat");
}

QString ServerStore::defaultAddress()
{
    return defaultHost() + QStringLiteral(":6667");
}

const QStringList& ServerStore::defaultServers()
{
    // Public IRC networks. The default host comes first; Undernet and DALnet
    // are listed on their alternative ports.
    static const QStringList servers = {
        QStringLiteral("irc.libera.chat:6667"),
        QStringLiteral("irc.oftc.net:6667"),
        QStringLiteral("irc.efnet.org:6667"),
        QStringLiteral("irc.undernet.org:6660"),
        QStringLiteral("irc.dal.net:7000"),
        QStringLiteral("irc.quakenet.org:6667"),
        QStringLiteral("irc.rizon.net:6667"),
        QStringLiteral("open.ircnet.net:6667"),
        QStringLiteral("irc.snoonet.org:6667"),
        QStringLiteral("irc.esper.net:6667"),
        QStringLiteral("irc.gamesurge.net:6667"),
        QStringLiteral("irc.swiftirc.net:6667"),
        QStringLiteral("irc.geekshed.net:6667"),
        QStringLiteral("irc.abjects.net:6667"),
        QStringLiteral("irc.2600.net:6667"),
        QStringLiteral("irc.hackint.org:6667"),
        QStringLiteral("irc.slashnet.org:6667"),
        QStringLiteral("irc.irchighway.net:6667"),
        QStringLiteral("irc.link-net.org:6667"),
        QStringLiteral("irc.p2p-network.net:6667"),
        QStringLiteral("irc.scenep2p.net:6667"),
        QStringLiteral("irc.darkmyst.org:6667"),
        QStringLiteral("irc.freenode.net:6667"),
        QStringLiteral("irc.w3.org:6667"),
        QStringLiteral("irc.gimp.org:6667"),
        QStringLiteral("irc.azzurra.org:6667"),
        QStringLiteral("irc.chatspike.net:6667"),
        QStringLiteral("irc.euirc.net:6667"),
        QStringLiteral("irc.synirc.net:6667"),
        QStringLiteral("irc.worldnet.net:6667"),
        QStringLiteral("irc.epiknet.org:6667"),
        QStringLiteral("irc.europnet.org:6667"),
        QStringLiteral("irc.galaxynet.org:6667"),
        QStringLiteral("irc.afternet.org:6667"),
        QStringLiteral("irc.allnetwork.org:6667"),
        QStringLiteral("irc.ptnet.org:6667"),
        QStringLiteral("irc.brasirc.com.br:6667"),
        QStringLiteral("irc.chatjunkies.org:6667"),
        QStringLiteral("irc.criten.net:6667"),
        QStringLiteral("irc.coldfront.net:6667"),
        QStringLiteral("irc.sorcery.net:6667"),
        QStringLiteral("irc.oz.org:6667"),
        QStringLiteral("irc.magicstar.net:6667"),
        QStringLiteral("irc.krstarica.com:6667"),
        QStringLiteral("irc.kampungchat.org:6667"),
        QStringLiteral("irc.forestnet.org:6667"),
        QStringLiteral("irc.foonetic.net:6667"),
        QStringLiteral("irc.furnet.org:6667"),
        QStringLiteral("irc.spotchat.org:6667"),
        QStringLiteral("irc.teranova.net:6667"),
        QStringLiteral("irc.xertion.org:6667"),
        QStringLiteral("irc.zirc.org:6667"),
        QStringLiteral("irc.globalgamers.net:6667"),
        QStringLiteral("irc.irc-hispano.org:6667"),
        QStringLiteral("irc.chathispano.com:6667"),
        QStringLiteral("irc.rusnet.org.ru:6667"),
        QStringLiteral("irc.canternet.org:6667"),
        QStringLiteral("irc.ponychat.net:6667"),
        QStringLiteral("irc.tilde.chat:6667"),
        QStringLiteral("irc.blitzed.org:6667"),
        QStringLiteral("irc.deltaanime.net:6667"),
        QStringLiteral("irc.ircnow.org:6667"),
        QStringLiteral("irc.technet.chat:6667"),
        QStringLiteral("irc.ecnet.org:6667"),
        QStringLiteral("irc.newnet.net:6667"),
        QStringLiteral("irc.nightstar.net:6667"),
        QStringLiteral("irc.stormbit.net:6667"),
        QStringLiteral("irc.shadowfire.org:6667"),
        QStringLiteral("irc.simosnap.com:6667"),
        QStringLiteral("irc.pirc.pl:6667"),
        QStringLiteral("irc.oltreirc.net:6667"),
        QStringLiteral("irc.chatzona.org:6667"),
    };
    return servers;
}

QStringList ServerStore::authMethods()
{
    return { QStringLiteral("None"), QStringLiteral("Server Password (PASS)"),
        QStringLiteral("NickServ (/nickserv IDENTIFY)"), QStringLiteral("NickServ (/msg NickServ IDENTIFY)"),
        QStringLiteral("SASL PLAIN"), QStringLiteral("SASL EXTERNAL") };
}

QStringList ServerStore::encodings()
{
    return { QStringLiteral("UTF-8 (Unicode)"), QStringLiteral("ISO-8859-1 (Latin-1)"),
        QStringLiteral("ISO-8859-2 (Central European)"), QStringLiteral("ISO-8859-5 (Cyrillic)"),
        QStringLiteral("ISO-8859-7 (Greek)"), QStringLiteral("ISO-8859-15 (Latin-9)"),
        QStringLiteral("Windows-1251 (Cyrillic)"), QStringLiteral("Windows-1252 (Western)"),
        QStringLiteral("KOI8-R"), QStringLiteral("KOI8-U"), QStringLiteral("GBK (Chinese)"),
        QStringLiteral("Shift-JIS (Japanese)"), QStringLiteral("EUC-KR (Korean)") };
}

QString ServerStore::serverId(const QString& host, int port)
{
    return host + QLatin1Char('_') + QString::number(port);
}

bool ServerStore::splitAddress(const QString& address, QString* host, int* port)
{
    const QStringList parts = address.split(QLatin1Char(':'), Qt::KeepEmptyParts, Qt::CaseSensitive);
    if (parts.size() != 2)
        return false;
    if (host)
        *host = parts.at(0);
    if (port)
        *port = parts.at(1).toInt(nullptr, 10); // 0 when not a number
    return true;
}

QString ServerStore::idFromAddress(const QString& address)
{
    QString host;
    int port = 0;
    if (!splitAddress(address, &host, &port))
        return QString();
    return serverId(host, port);
}

bool ServerStore::isDefaultServer(const QString& id)
{
    return defaultIds().contains(id);
}

QString ServerStore::cleanAddress(const QString& text)
{
    if (text.startsWith(FavMarker, Qt::CaseSensitive))
        return text.mid(FavMarker.size());
    return text;
}

QString ServerStore::derivedAddress(const QString& id)
{
    QString address = id;
    return address.replace(QLatin1Char('_'), QLatin1Char(':'));
}

QStringList ServerStore::splitChannels(const QString& text)
{
    static const QRegularExpression separators(QStringLiteral("[,\\s]+"));
    const QString trimmed = text.trimmed();
    if (trimmed.isEmpty())
        return {};
    QStringList channels = trimmed.split(separators, Qt::SkipEmptyParts);
    for (QString& channel : channels) {
        if (!channel.startsWith(QLatin1Char('#')))
            channel.prepend(QLatin1Char('#'));
    }
    return channels;
}

ServerConfig ServerStore::loadServerConfig(const QString& id, const ServerConfig& fallback)
{
    QSettings settings;
    settings.beginGroup(groupOf(id));
    ServerConfig config = fallback;
    config.nickname = settings.value(QStringLiteral("nickname"), fallback.nickname).toString();
    config.altNickname = settings.value(QStringLiteral("altnick"), fallback.altNickname).toString();
    config.realName = settings.value(QStringLiteral("realname"), fallback.realName).toString();
    config.authMethod = settings.value(QStringLiteral("authmethod"), fallback.authMethod).toString();
    if (settings.value(InKeyringKey).toBool()) {
        config.password = SecretStore::read(id).value_or(fallback.password);
    } else {
        config.password = settings.value(PasswordKey, fallback.password).toString();
        // Kept in the file by an earlier version, or while no keyring answered.
        if (settings.contains(PasswordKey) && !config.password.isEmpty())
            storePassword(settings, id, config.password);
    }
    config.account = settings.value(QStringLiteral("account"), fallback.account).toString();
    config.certFingerprint = settings.value(QStringLiteral("certfingerprint"), fallback.certFingerprint).toString();
    config.autojoinChannels
        = settings.value(QStringLiteral("autojoin"), fallback.autojoinChannels).toStringList();
    config.encoding = settings.value(QStringLiteral("encoding"), fallback.encoding).toString();
    config.useSsl = settings.value(QStringLiteral("ssl"), fallback.useSsl).toBool();
    settings.endGroup();
    return config;
}

bool ServerStore::passwordsKeptInSettingsFile()
{
    return passwordsInFile;
}

void ServerStore::migratePasswords()
{
    QSettings settings;
    settings.beginGroup(QStringLiteral("servers"));
    const QStringList ids = settings.childGroups();
    for (const QString& id : ids) {
        settings.beginGroup(id);
        const QString password = settings.value(PasswordKey).toString();
        if (!password.isEmpty())
            storePassword(settings, id, password);
        settings.endGroup();
    }
}

void ServerStore::saveServerConfig(const QString& id, const ServerConfig& config, OddAddress odd)
{
    const QStringList parts = id.split(QLatin1Char('_'), Qt::KeepEmptyParts);
    QSettings settings;
    writeRecord(settings, id, config);
    if (parts.size() == 2)
        settings.setValue(addressKey(id), parts.at(0) + QLatin1Char(':') + parts.at(1));
    else if (odd == OddAddress::WriteIdentifier)
        settings.setValue(addressKey(id), id);
    settings.sync();
}

void ServerStore::removeServerGroup(const QString& id)
{
    // An empty identifier would name the whole server list.
    if (id.isEmpty())
        return;
    QSettings settings;
    if (settings.value(groupOf(id) + QLatin1Char('/') + InKeyringKey).toBool())
        SecretStore::remove(id);
    settings.remove(groupOf(id));
    settings.sync();
}

bool ServerStore::hasStoredAddress(const QString& id)
{
    return QSettings().contains(addressKey(id));
}

QString ServerStore::storedAddress(const QString& id)
{
    return QSettings().value(addressKey(id)).toString();
}

QString ServerStore::displayAddress(const QString& id)
{
    const QString address = storedAddress(id);
    return address.isEmpty() ? derivedAddress(id) : address;
}

QSet<QString> ServerStore::loadFavorites()
{
    return toSet(QSettings().value(FavoritesKey).toStringList());
}

void ServerStore::saveFavorites(const QSet<QString>& favorites)
{
    QSettings settings;
    settings.setValue(FavoritesKey, toList(favorites));
    settings.sync();
}

QSet<QString> ServerStore::loadDeletedDefaults()
{
    return toSet(QSettings().value(DeletedDefaultsKey).toStringList());
}

void ServerStore::saveDeletedDefaults(const QSet<QString>& deleted)
{
    QSettings settings;
    settings.setValue(DeletedDefaultsKey, toList(deleted));
    settings.sync();
}

QStringList ServerStore::listedServerIds(const QSet<QString>& deletedDefaults)
{
    QSettings settings;
    QStringList ids;
    QSet<QString> seen;
    bool changed = false;
    for (const QString& entry : defaultServers()) {
        const QString id = idFromAddress(entry);
        if (id.isEmpty() || deletedDefaults.contains(id) || seen.contains(id))
            continue;
        seen.insert(id);
        ids.append(id);
        if (!settings.contains(addressKey(id))) {
            settings.setValue(addressKey(id), entry);
            changed = true;
        }
    }
    const QStringList custom = settings.value(CustomListKey).toStringList();
    for (const QString& id : custom) {
        if (id.isEmpty() || seen.contains(id))
            continue;
        seen.insert(id);
        ids.append(id);
        if (!settings.contains(addressKey(id))) {
            settings.setValue(addressKey(id), derivedAddress(id));
            changed = true;
        }
    }
    if (changed)
        settings.sync();
    return ids;
}

void ServerStore::saveServerList(const QStringList& rowTexts)
{
    QSettings settings;
    QStringList custom;
    for (const QString& text : rowTexts) {
        const QString address = cleanAddress(text);
        const QString id = idFromAddress(address);
        if (id.isEmpty())
            continue;
        if (!settings.contains(addressKey(id)))
            settings.setValue(addressKey(id), address);
        if (!isDefaultServer(id))
            custom.append(id);
    }
    settings.setValue(CustomListKey, custom);
    settings.sync();
}

QStringList ServerStore::customList()
{
    return QSettings().value(CustomListKey).toStringList();
}

QStringList ServerStore::history()
{
    return QSettings().value(HistoryKey).toStringList();
}

QString ServerStore::historyEntry(const QString& server, const QString& portText)
{
    return server.trimmed() + QLatin1Char(':') + QString::number(portText.toInt(nullptr, 10));
}

void ServerStore::recordHistory(const QString& entry)
{
    QSettings settings;
    QStringList entries = settings.value(HistoryKey).toStringList();
    entries.removeAll(entry);
    entries.append(entry);
    while (entries.size() > HistoryLimit)
        entries.removeFirst();
    settings.setValue(HistoryKey, entries);
    settings.sync();
}
