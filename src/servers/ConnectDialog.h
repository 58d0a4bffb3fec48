#pragma once

#include "ServerConfig.h"

#include <QDialog>
#include <QMap>
#include <QSet>
#include <QStringList>

class QCheckBox;
class QLineEdit;
class QListWidget;
class QListWidgetItem;
class QPushButton;

// The dialog in which the user picks a server (built-in networks, own servers
// and favourites), manages the list, fills in who to be and presses Connect.
// It is shown non-modally; when accepted, the result getters and
// activeServerConfig() describe the connection to make.
class ConnectDialog : public QDialog
{
    Q_OBJECT

public:
    explicit ConnectDialog(QWidget* parent = nullptr);

    // Results, valid after acceptance.
    QString server() const;
    int port() const;
    QString nickname() const;
    QString realName() const;
    bool useSsl() const;
    QStringList favoriteChannels() const;
    QString altNickname() const;
    QString authMethod() const;
    QString password() const;
    QString encoding() const;
    ServerConfig activeServerConfig() const;

    void setCurrentTheme(const QString& theme);
    QString currentTheme() const { return m_currentTheme; }
    // The dialog's own sheet for a theme name.
    static QString styleSheetFor(const QString& theme);
    // The sheet of the delete confirmation box for a theme name.
    static QString deleteBoxStyleSheet(const QString& theme);

    // The store, as seen by this dialog (see ServerStore).
    static QStringList defaultServers();
    static QString serverId(const QString& host, int port);
    static bool isDefaultServer(const QString& id);
    static QString cleanAddress(const QString& text);
    ServerConfig loadServerConfig(const QString& id) const;
    void saveServerConfig(const QString& id, const ServerConfig& config);
    void removeServerConfig(const QString& id);
    void loadFavorites();
    void saveFavorites();
    void loadDeletedDefaults();
    void saveDeletedDefaults();
    void saveServerList();
    void loadSettings();
    void saveSettings();

    QSet<QString> favoriteServers() const { return m_favoriteServers; }
    QSet<QString> deletedDefaultIds() const { return m_deletedDefaultIds; }
    QMap<QString, ServerConfig> serverConfigs() const { return m_serverConfigs; }
    QString currentServerId() const { return m_currentServerId; }

public slots:
    void onConnectClicked();
    void onServerListSelectionChanged();
    void addServer();
    void editServer();
    void deleteServer();
    void showServerContextMenu(const QPoint& pos);
    // Adds the current row to the favourites or removes it from them. Rows
    // that are not "host:port" are left alone.
    void toggleCurrentFavorite();

private:
    void reorderServerList();
    void updateServerDisplayName(const QString& id);
    void updateChannelsFromCurrentServer();
    void applyTheme();
    void showError(const QString& text);
    QStringList rowTexts() const;
    QListWidgetItem* findRowById(const QString& id) const;

    QSet<QString> m_favoriteServers;
    QSet<QString> m_deletedDefaultIds;
    QLineEdit* serverEdit = nullptr;
    QLineEdit* portEdit = nullptr;
    QLineEdit* nickEdit = nullptr;
    QLineEdit* realNameEdit = nullptr;
    QLineEdit* channelsEdit = nullptr;
    QCheckBox* sslCheck = nullptr;
    QListWidget* serverListWidget = nullptr;
    QPushButton* addBtn = nullptr;
    QPushButton* editBtn = nullptr;
    QPushButton* deleteBtn = nullptr;
    QString m_currentTheme = QStringLiteral("light");
    QMap<QString, ServerConfig> m_serverConfigs;
    ServerConfig m_activeConfig;
    QString m_currentServerId;
};
