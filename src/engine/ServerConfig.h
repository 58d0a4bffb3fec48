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
    // Carried in the record only; favourites are stored in a key of their own.
    bool favorite = false;
};
