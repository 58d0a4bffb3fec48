#pragma once

#include <QString>
#include <QStringList>

// The per-server record: who to be on a server and what to join there. It is
// carried by the connection and stored per server by the server store.
struct ServerConfig
{
    QString nickname;
    QString altNickname;
    QString realName;
    // Display texts, stored as text (see ServerStore::authMethods()).
    QString authMethod = QStringLiteral("NickServ (/nickserv IDENTIFY)");
    QString password;
    // The services account to log in as; empty: the nickname.
    QString account;
    QStringList autojoinChannels;
    QString encoding = QStringLiteral("UTF-8 (Unicode)");
    bool useSsl = false;
    // SHA-256 fingerprint ("AB:CD:...") of the TLS certificate the user chose
    // to trust for this server; empty: the system's trust decides.
    QString certFingerprint;
    // Carried in the record only; favourites are stored in a key of their own.
    bool favorite = false;
};
