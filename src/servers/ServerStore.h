#pragma once

#include "ServerConfig.h"

#include <QSet>
#include <QString>
#include <QStringList>

// Shown in front of a favourite server's address in the server list (a black
// star and a space). It is display only and never stored.
inline const QString FavMarker = QStringLiteral("\u2605 ");

// The server list, per-server records, favourites and connection history as
// they live in the per-user settings store. Stateless: every operation opens a
// fresh default QSettings, reads or writes, and syncs after any change so that
// nothing the user configured is lost on a crash.
//
// Layout of the store:
//   servers/<id>/{nickname, altnick, realname, authmethod, password, autojoin,
//                 encoding, ssl, address}
//   servers/favorites, servers/deletedDefaultServers, servers/customList
//   connection/history
// where <id> is the server identifier host + "_" + decimal port.
class ServerStore
{
public:
    static constexpr int HistoryLimit = 10;

    // The built-in network the dialog suggests and selects on a first start.
    static QString defaultHost();
    static QString defaultAddress();
    // The built-in "host:port" entries, always in the same order.
    static const QStringList& defaultServers();

    static QStringList authMethods();
    static QStringList encodings();

    // host + "_" + port in decimal; leading zeros of a typed port vanish
    // because the port is an integer here.
    static QString serverId(const QString& host, int port);
    // Splits "host:port" at ":" (empty parts kept). Only an address with
    // exactly two parts is usable; a non-numeric port converts to 0.
    static bool splitAddress(const QString& address, QString* host, int* port);
    // The identifier of a usable address, or an empty string.
    static QString idFromAddress(const QString& address);
    static bool isDefaultServer(const QString& id);
    // The text without a leading favourite marker.
    static QString cleanAddress(const QString& text);
    // The identifier with every "_" replaced by ":".
    static QString derivedAddress(const QString& id);
    // Channels typed as "a, #b  c": split on commas and white space, empty
    // parts dropped, each given exactly one leading "#" if it has none.
    static QStringList splitChannels(const QString& text);

    // Per-server record. Missing keys read as `fallback`'s fields.
    static ServerConfig loadServerConfig(const QString& id, const ServerConfig& fallback = ServerConfig());
    // What saveServerConfig writes as the "address" of a server whose
    // identifier does not split at "_" into exactly host and port (a host
    // holding "_"): the identifier itself (the connect dialog), or nothing
    // (the chat window saving the server it is connected to).
    enum class OddAddress
    {
        WriteIdentifier,
        Skip,
    };
    // The eight record keys of the server's group, then "address": host + ":"
    // + port when the identifier splits at "_" into exactly two parts, else
    // as `odd` says.
    static void saveServerConfig(
        const QString& id, const ServerConfig& config, OddAddress odd = OddAddress::WriteIdentifier);
    // Removes the server's whole group.
    static void removeServerGroup(const QString& id);
    // Moves passwords still kept in the settings file into the keyring,
    // where one answers.
    static void migratePasswords();
    // Whether a password had to stay in the settings file in this run (no
    // keyring answered).
    static bool passwordsKeptInSettingsFile();

    static bool hasStoredAddress(const QString& id);
    static QString storedAddress(const QString& id);
    // The stored address, or the derived one when none is stored.
    static QString displayAddress(const QString& id);

    static QSet<QString> loadFavorites();
    static void saveFavorites(const QSet<QString>& favorites);
    static QSet<QString> loadDeletedDefaults();
    static void saveDeletedDefaults(const QSet<QString>& deleted);

    // The identifiers to list: every default not deleted, then every entry of
    // the custom list not yet present, in that order. Writes the address of
    // each of them whose address key is missing.
    static QStringList listedServerIds(const QSet<QString>& deletedDefaults);
    // Persists the visible list, given as its row texts in display order:
    // fills missing address keys and writes the non-default identifiers to
    // the custom list.
    static void saveServerList(const QStringList& rowTexts);
    static QStringList customList();

    static QStringList history();
    // The history entry for the fields of the dialog: trimmed server, ":",
    // port as an integer in decimal.
    static QString historyEntry(const QString& server, const QString& portText);
    // Moves (or appends) the entry to the end and keeps the newest entries.
    static void recordHistory(const QString& entry);

    ServerStore() = delete;
};
