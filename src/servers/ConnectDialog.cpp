#include "ConnectDialog.h"
#include "Contrast.h"

#include "ServerEditDialog.h"
#include "ServerListDelegate.h"
#include "ServerStore.h"
#include "ThemeManager.h"
#include "Translucency.h"

#include <QCheckBox>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QMenu>
#include <QMessageBox>
#include <QPushButton>
#include <QSignalBlocker>
#include <QVBoxLayout>

#include <algorithm>

namespace {

QLineEdit* makeEdit(const QString& objectName, const QString& placeholder, QWidget* parent)
{
    auto* edit = new QLineEdit(parent);
    edit->setObjectName(objectName);
    edit->setPlaceholderText(placeholder);
    return edit;
}

QPushButton* makeButton(const QString& text, const QString& objectName, QWidget* parent)
{
    auto* button = new QPushButton(text, parent);
    button->setObjectName(objectName);
    return button;
}

// Rows of the list: the address a row stands for and its identifier, if any.
QString rowAddress(const QListWidgetItem* item)
{
    return ServerStore::cleanAddress(item->text());
}

QString rowId(const QListWidgetItem* item)
{
    return ServerStore::idFromAddress(rowAddress(item));
}

bool isValidAddressFormat(const QString& address)
{
    return address.count(QLatin1Char(':')) == 1;
}

} // namespace

ConnectDialog::ConnectDialog(QWidget* parent)
    : QDialog(parent)
{
    setWindowTitle(QStringLiteral("Connect to IRC Server"));
    setMinimumWidth(460);
    setMaximumWidth(560);
    setWindowFlags((windowFlags() & ~Qt::WindowMaximizeButtonHint) | Qt::MSWindowsFixedSizeDialogHint);
    setAttribute(Qt::WA_TranslucentBackground, false);

    auto* mainLayout = new QVBoxLayout(this);
    mainLayout->setContentsMargins(28, 28, 28, 20);
    mainLayout->setSpacing(18);

    auto* titleLabel = new QLabel(QStringLiteral("Connect to IRC"), this);
    titleLabel->setObjectName(QStringLiteral("titleLabel"));
    mainLayout->addWidget(titleLabel);

    auto* form = new QFormLayout;
    form->setLabelAlignment(Qt::AlignLeft | Qt::AlignVCenter);
    form->setFieldGrowthPolicy(QFormLayout::ExpandingFieldsGrow);
    form->setFormAlignment(Qt::AlignLeft | Qt::AlignTop);
    form->setSpacing(12);

    serverEdit = makeEdit(QStringLiteral("serverEdit"), ServerStore::defaultHost(), this);
    portEdit = makeEdit(QStringLiteral("portEdit"), QStringLiteral("6667"), this);
    portEdit->setFixedWidth(80);

    auto* listButtons = new QWidget(this);
    auto* listButtonsLayout = new QVBoxLayout(listButtons);
    listButtonsLayout->setContentsMargins(0, 0, 0, 0);
    listButtonsLayout->setSpacing(4);
    addBtn = makeButton(QStringLiteral("Add"), QStringLiteral("addButton"), listButtons);
    editBtn = makeButton(QStringLiteral("Edit"), QStringLiteral("editButton"), listButtons);
    deleteBtn = makeButton(QStringLiteral("Delete"), QStringLiteral("deleteButton"), listButtons);
    listButtonsLayout->addWidget(addBtn);
    listButtonsLayout->addWidget(editBtn);
    listButtonsLayout->addWidget(deleteBtn);
    listButtonsLayout->addStretch();

    serverListWidget = new QListWidget(this);
    serverListWidget->setObjectName(QStringLiteral("serverListWidget"));
    serverListWidget->setAlternatingRowColors(true);
    serverListWidget->setMinimumHeight(120);
    serverListWidget->setMaximumHeight(150);
    serverListWidget->setContextMenuPolicy(Qt::CustomContextMenu);
    serverListWidget->setItemDelegate(new ServerListDelegate(serverListWidget));

    nickEdit = makeEdit(QStringLiteral("nickEdit"), QStringLiteral("Type you nickname"), this);
    realNameEdit
        = makeEdit(QStringLiteral("realNameEdit"), QStringLiteral("Type you Real name (optionally)"), this);
    channelsEdit = makeEdit(QStringLiteral("channelsEdit"), QStringLiteral("#linux, #help"), this);

    form->addRow(QStringLiteral("Server:"), serverEdit);
    form->addRow(QStringLiteral("Port:"), portEdit);
    form->addRow(listButtons, serverListWidget);
    form->addRow(QStringLiteral("Nickname:"), nickEdit);
    form->addRow(QStringLiteral("Real name:"), realNameEdit);
    form->addRow(QStringLiteral("Join channels:"), channelsEdit);
    mainLayout->addLayout(form);

    sslCheck = new QCheckBox(QStringLiteral("Use SSL"), this);
    sslCheck->setObjectName(QStringLiteral("sslCheck"));
    mainLayout->addWidget(sslCheck);

    auto* buttonRow = new QHBoxLayout;
    buttonRow->addStretch();
    auto* cancelButton = makeButton(QStringLiteral("Cancel"), QStringLiteral("cancelButton"), this);
    auto* connectButton = makeButton(QStringLiteral("Connect"), QStringLiteral("connectButton"), this);
    connectButton->setDefault(true);
    buttonRow->addWidget(cancelButton);
    buttonRow->addWidget(connectButton);
    mainLayout->addLayout(buttonRow);

    connect(serverListWidget, &QListWidget::currentItemChanged, this,
        &ConnectDialog::onServerListSelectionChanged);
    connect(addBtn, &QPushButton::clicked, this, &ConnectDialog::addServer);
    connect(editBtn, &QPushButton::clicked, this, &ConnectDialog::editServer);
    connect(deleteBtn, &QPushButton::clicked, this, &ConnectDialog::deleteServer);
    connect(
        serverListWidget, &QWidget::customContextMenuRequested, this, &ConnectDialog::showServerContextMenu);
    connect(connectButton, &QPushButton::clicked, this, &ConnectDialog::onConnectClicked);
    connect(cancelButton, &QPushButton::clicked, this, &QDialog::reject);
    // A server typed by hand is not the selected row any more.
    connect(serverEdit, &QLineEdit::textChanged, this, [this] { m_currentServerId.clear(); });
    connect(portEdit, &QLineEdit::textChanged, this, [this] { m_currentServerId.clear(); });

    loadSettings();
    applyTheme();
    adjustSize();
    setFixedSize(size());
    setWindowFlags(windowFlags() & ~(Qt::WindowMaximizeButtonHint | Qt::WindowFullscreenButtonHint));
}

// --- Results ---------------------------------------------------------------

QString ConnectDialog::server() const
{
    return serverEdit->text().trimmed();
}

int ConnectDialog::port() const
{
    return portEdit->text().toInt(nullptr, 10);
}

QString ConnectDialog::nickname() const
{
    return m_activeConfig.nickname.isEmpty() ? nickEdit->text().trimmed() : m_activeConfig.nickname;
}

QString ConnectDialog::realName() const
{
    return m_activeConfig.realName.isEmpty() ? realNameEdit->text().trimmed() : m_activeConfig.realName;
}

bool ConnectDialog::useSsl() const
{
    return m_activeConfig.useSsl;
}

QStringList ConnectDialog::favoriteChannels() const
{
    if (!m_activeConfig.autojoinChannels.isEmpty())
        return m_activeConfig.autojoinChannels;
    return ServerStore::splitChannels(channelsEdit->text());
}

QString ConnectDialog::altNickname() const
{
    return m_activeConfig.altNickname;
}

QString ConnectDialog::authMethod() const
{
    return m_activeConfig.authMethod;
}

QString ConnectDialog::password() const
{
    return m_activeConfig.password;
}

QString ConnectDialog::encoding() const
{
    return m_activeConfig.encoding;
}

ServerConfig ConnectDialog::activeServerConfig() const
{
    return m_activeConfig;
}

// --- Store -----------------------------------------------------------------

QStringList ConnectDialog::defaultServers()
{
    return ServerStore::defaultServers();
}

QString ConnectDialog::serverId(const QString& host, int port)
{
    return ServerStore::serverId(host, port);
}

bool ConnectDialog::isDefaultServer(const QString& id)
{
    return ServerStore::isDefaultServer(id);
}

QString ConnectDialog::cleanAddress(const QString& text)
{
    return ServerStore::cleanAddress(text);
}

ServerConfig ConnectDialog::loadServerConfig(const QString& id) const
{
    return ServerStore::loadServerConfig(id);
}

void ConnectDialog::saveServerConfig(const QString& id, const ServerConfig& config)
{
    ServerStore::saveServerConfig(id, config);
}

void ConnectDialog::removeServerConfig(const QString& id)
{
    ServerStore::removeServerGroup(id);
    m_serverConfigs.remove(id);
    m_favoriteServers.remove(id);
    saveFavorites();
}

void ConnectDialog::loadFavorites()
{
    m_favoriteServers = ServerStore::loadFavorites();
}

void ConnectDialog::saveFavorites()
{
    ServerStore::saveFavorites(m_favoriteServers);
}

void ConnectDialog::loadDeletedDefaults()
{
    m_deletedDefaultIds = ServerStore::loadDeletedDefaults();
}

void ConnectDialog::saveDeletedDefaults()
{
    ServerStore::saveDeletedDefaults(m_deletedDefaultIds);
}

void ConnectDialog::saveServerList()
{
    ServerStore::saveServerList(rowTexts());
}

void ConnectDialog::loadSettings()
{
    loadFavorites();
    loadDeletedDefaults();

    const QStringList ids = ServerStore::listedServerIds(m_deletedDefaultIds);
    m_serverConfigs.clear();
    for (const QString& id : ids)
        m_serverConfigs.insert(id, loadServerConfig(id));

    serverListWidget->clear();
    for (const QString& id : ids) {
        const QString address = ServerStore::displayAddress(id);
        const QString addressId = ServerStore::idFromAddress(address);
        const bool favorite = !addressId.isEmpty() && m_favoriteServers.contains(addressId);
        serverListWidget->addItem(favorite ? FavMarker + address : address);
    }
    reorderServerList();

    // Come back to the server used last.
    QString remembered;
    const QStringList history = ServerStore::history();
    if (!history.isEmpty()) {
        const QString last = history.last();
        const QStringList parts = last.split(QLatin1Char(':'), Qt::KeepEmptyParts);
        if (parts.size() == 2) {
            serverEdit->setText(parts.at(0));
            portEdit->setText(parts.at(1));
            remembered = last;
        }
    }

    if (!remembered.isEmpty()) {
        for (int row = 0; row < serverListWidget->count(); ++row) {
            if (rowAddress(serverListWidget->item(row)) == remembered) {
                serverListWidget->setCurrentRow(row);
                return;
            }
        }
        // A server connected to by hand: the chat window stored its record
        // under its identifier; show it with the row.
        const QString rememberedId = ServerStore::idFromAddress(remembered);
        if (!rememberedId.isEmpty())
            m_serverConfigs.insert(rememberedId, loadServerConfig(rememberedId));
        serverListWidget->addItem(remembered);
        serverListWidget->setCurrentRow(serverListWidget->count() - 1);
        saveServerList();
        return;
    }

    const QList<QListWidgetItem*> defaults = serverListWidget->findItems(
        ServerStore::defaultAddress(), Qt::MatchExactly | Qt::MatchCaseSensitive);
    if (!defaults.isEmpty())
        serverListWidget->setCurrentItem(defaults.first());
    else if (serverListWidget->count() > 0)
        serverListWidget->setCurrentRow(0);
}

void ConnectDialog::saveSettings()
{
    ServerStore::recordHistory(ServerStore::historyEntry(serverEdit->text(), portEdit->text()));
}

// --- List ------------------------------------------------------------------

QStringList ConnectDialog::rowTexts() const
{
    QStringList texts;
    texts.reserve(serverListWidget->count());
    for (int row = 0; row < serverListWidget->count(); ++row)
        texts.append(serverListWidget->item(row)->text());
    return texts;
}

QListWidgetItem* ConnectDialog::findRowById(const QString& id) const
{
    for (int row = 0; row < serverListWidget->count(); ++row) {
        QListWidgetItem* item = serverListWidget->item(row);
        if (rowId(item) == id)
            return item;
    }
    return nullptr;
}

void ConnectDialog::reorderServerList()
{
    const QListWidgetItem* current = serverListWidget->currentItem();
    const QString rememberedId = current ? rowId(current) : QString();

    QList<QListWidgetItem*> items;
    {
        const QSignalBlocker blocker(serverListWidget);
        while (serverListWidget->count() > 0)
            items.append(serverListWidget->takeItem(0));
        std::sort(items.begin(), items.end(), [](const QListWidgetItem* a, const QListWidgetItem* b) {
            const bool favoriteA = a->text().startsWith(FavMarker);
            const bool favoriteB = b->text().startsWith(FavMarker);
            if (favoriteA != favoriteB)
                return favoriteA;
            return QString::compare(rowAddress(a), rowAddress(b), Qt::CaseInsensitive) < 0;
        });
        for (QListWidgetItem* item : items)
            serverListWidget->addItem(item);
    }

    if (rememberedId.isEmpty())
        return;
    if (QListWidgetItem* item = findRowById(rememberedId))
        serverListWidget->setCurrentItem(item);
}

void ConnectDialog::onServerListSelectionChanged()
{
    const QListWidgetItem* item = serverListWidget->currentItem();
    if (!item)
        return;
    const QString address = rowAddress(item);
    QString host;
    int port = 0;
    if (!ServerStore::splitAddress(address, &host, &port)) {
        serverEdit->setText(address);
        portEdit->setText(QStringLiteral("6667"));
        m_currentServerId.clear();
        return;
    }

    serverEdit->setText(host);
    portEdit->setText(QString::number(port));
    m_currentServerId = serverId(host, port);
    const auto it = m_serverConfigs.constFind(m_currentServerId);
    if (it != m_serverConfigs.constEnd()) {
        nickEdit->setText(it->nickname);
        realNameEdit->setText(it->realName);
        channelsEdit->setText(it->autojoinChannels.join(QStringLiteral(", ")));
        sslCheck->setChecked(it->useSsl);
    } else {
        nickEdit->clear();
        realNameEdit->clear();
        channelsEdit->clear();
        sslCheck->setChecked(false);
    }
}

void ConnectDialog::updateChannelsFromCurrentServer()
{
    const QListWidgetItem* item = serverListWidget->currentItem();
    if (!item)
        return;
    const QString id = rowId(item);
    if (id.isEmpty())
        return;
    const ServerConfig config = loadServerConfig(id);
    if (!config.autojoinChannels.isEmpty())
        channelsEdit->setText(config.autojoinChannels.join(QStringLiteral(", ")));
}

void ConnectDialog::updateServerDisplayName(const QString& id)
{
    QListWidgetItem* item = findRowById(id);
    if (!item)
        return;
    const QString address = rowAddress(item);
    item->setText(m_favoriteServers.contains(id) ? FavMarker + address : address);
}

void ConnectDialog::showServerContextMenu(const QPoint& pos)
{
    QListWidgetItem* item = serverListWidget->itemAt(pos);
    if (!item)
        return;
    serverListWidget->setCurrentItem(item);
    const QString id = rowId(item);

    QMenu menu(this);
    QAction* editAction = menu.addAction(QStringLiteral("Edit"));
    QAction* deleteAction = menu.addAction(QStringLiteral("Delete"));
    menu.addSeparator();
    const bool favorite = !id.isEmpty() && m_favoriteServers.contains(id);
    QAction* favoriteAction = menu.addAction(
        favorite ? QStringLiteral("Remove from Favorites") : QStringLiteral("Add to Favorites"));

    QAction* chosen = menu.exec(serverListWidget->viewport()->mapToGlobal(pos));
    if (!chosen)
        return;
    if (chosen == editAction)
        editServer();
    else if (chosen == deleteAction)
        deleteServer();
    else if (chosen == favoriteAction)
        toggleCurrentFavorite();
}

void ConnectDialog::toggleCurrentFavorite()
{
    const QListWidgetItem* item = serverListWidget->currentItem();
    if (!item)
        return;
    const QString id = rowId(item);
    if (id.isEmpty())
        return;
    if (!m_favoriteServers.remove(id))
        m_favoriteServers.insert(id);
    saveFavorites();
    updateServerDisplayName(id);
    reorderServerList();
}

// --- Add, edit, delete -----------------------------------------------------

void ConnectDialog::addServer()
{
    ServerEditDialog dialog(
        QStringLiteral("Add IRC Server"), QStringLiteral(":6667"), ServerConfig(), m_currentTheme, this);
    if (dialog.exec() != QDialog::Accepted)
        return;
    const ServerConfig config = dialog.getConfig();
    const QString address = dialog.fullAddress();
    if (!isValidAddressFormat(address)) {
        QMessageBox::warning(
            this, QStringLiteral("Invalid format"), QStringLiteral("Please use the format host:port"));
        return;
    }
    for (int row = 0; row < serverListWidget->count(); ++row) {
        if (rowAddress(serverListWidget->item(row)) == address) {
            QMessageBox::information(this, QStringLiteral("Add Server"),
                QStringLiteral("This server already exists in the list."));
            serverListWidget->setCurrentRow(row);
            return;
        }
    }

    const QString id = ServerStore::idFromAddress(address);
    if (isDefaultServer(id) && m_deletedDefaultIds.remove(id))
        saveDeletedDefaults();

    serverListWidget->addItem(address);
    serverListWidget->setCurrentRow(serverListWidget->count() - 1);
    saveServerConfig(id, config);
    m_serverConfigs.insert(id, config);
    saveServerList();
    reorderServerList();
    onServerListSelectionChanged();
}

void ConnectDialog::editServer()
{
    QListWidgetItem* item = serverListWidget->currentItem();
    if (!item) {
        QMessageBox::information(this, QStringLiteral("Edit"), QStringLiteral("No server selected."));
        return;
    }
    const QString oldAddress = rowAddress(item);
    const QString oldId = ServerStore::idFromAddress(oldAddress);
    if (oldId.isEmpty())
        return;

    ServerEditDialog dialog(
        QStringLiteral("Edit ") + oldAddress, oldAddress, m_serverConfigs.value(oldId), m_currentTheme, this);
    if (dialog.exec() != QDialog::Accepted)
        return;
    const ServerConfig config = dialog.getConfig();
    const QString address = dialog.fullAddress();
    if (!isValidAddressFormat(address)) {
        QMessageBox::warning(
            this, QStringLiteral("Invalid format"), QStringLiteral("Please use the format host:port"));
        return;
    }

    QString id = oldId;
    if (address != oldAddress) {
        // The old entry goes, favourite mark included; an edited default
        // server is not a deleted one, so it is listed again next time.
        removeServerConfig(oldId);
        item->setText(address);
        id = ServerStore::idFromAddress(address);
    }
    saveServerConfig(id, config);
    m_serverConfigs.insert(id, config);
    saveServerList();
    updateServerDisplayName(id);
    updateChannelsFromCurrentServer();
    onServerListSelectionChanged();
}

void ConnectDialog::deleteServer()
{
    QListWidgetItem* item = serverListWidget->currentItem();
    if (!item) {
        QMessageBox::information(this, QStringLiteral("Delete"), QStringLiteral("No server selected."));
        return;
    }
    const QString address = rowAddress(item);

    QMessageBox box(this);
    box.setWindowTitle(QStringLiteral("Delete Server"));
    box.setText(QStringLiteral("Are you sure you want to delete server: %1").arg(address));
    box.setIcon(QMessageBox::Critical);
    box.setStandardButtons(QMessageBox::Yes | QMessageBox::No);
    box.setDefaultButton(QMessageBox::No);
    box.button(QMessageBox::Yes)->setObjectName(QStringLiteral("yesButton"));
    box.button(QMessageBox::No)->setObjectName(QStringLiteral("noButton"));
    box.setStyleSheet(deleteBoxStyleSheet(m_currentTheme));
    if (box.exec() != QMessageBox::Yes)
        return;

    const QString id = ServerStore::idFromAddress(address);
    if (!id.isEmpty()) {
        if (isDefaultServer(id)) {
            // Remembered so the built-in entry stays away on the next start.
            m_deletedDefaultIds.insert(id);
            saveDeletedDefaults();
            ServerStore::removeServerGroup(id);
        } else {
            removeServerConfig(id);
        }
    }
    delete serverListWidget->takeItem(serverListWidget->row(item));
    saveServerList();
    saveFavorites();
}

// --- Connect ---------------------------------------------------------------

void ConnectDialog::showError(const QString& text)
{
    QMessageBox box(this);
    box.setWindowTitle(QStringLiteral("Error"));
    box.setText(text);
    box.setIcon(QMessageBox::Warning);
    QPushButton* ok = box.addButton(QMessageBox::Ok);
    ok->setObjectName(QStringLiteral("connectButton"));
    box.setStyleSheet(
        QStringLiteral("QPushButton#connectButton {  background-color: %1; color: white; "
                       "border: none; border-radius: 6px;  padding: 8px 16px; font-size: 14px; "
                       "font-weight: 500;}QPushButton#connectButton:hover { background-color: "
                       "#0062CC; }QPushButton#connectButton:pressed { background-color: #0051AA; }")
            .arg(ThemeManager::accentFill().name()));
    box.exec();
}

void ConnectDialog::onConnectClicked()
{
    const QString host = serverEdit->text().trimmed();
    if (host.isEmpty() || nickEdit->text().trimmed().isEmpty()) {
        showError(QStringLiteral("Server and nickname are required!"));
        return;
    }
    if (port() < 1 || port() > 65535) {
        showError(QStringLiteral("Port must be between 1 and 65535"));
        return;
    }

    saveSettings();

    const QStringList channels = ServerStore::splitChannels(channelsEdit->text());
    const QString id = serverId(host, portEdit->text().trimmed().toInt(nullptr, 10));
    // Only a server picked from the list has its record updated; one typed
    // by hand is used as it is.
    if (!m_currentServerId.isEmpty() && m_currentServerId == id) {
        ServerConfig config;
        config.nickname = nickEdit->text().trimmed();
        config.realName = realNameEdit->text().trimmed();
        config.autojoinChannels = channels;
        config.useSsl = sslCheck->isChecked();
        const auto it = m_serverConfigs.constFind(m_currentServerId);
        if (it != m_serverConfigs.constEnd()) {
            config.altNickname = it->altNickname;
            config.authMethod = it->authMethod;
            config.password = it->password;
            config.account = it->account;
            config.certFingerprint = it->certFingerprint;
            config.encoding = it->encoding;
        }
        saveServerConfig(m_currentServerId, config);
        m_serverConfigs.insert(m_currentServerId, config);
    }

    m_activeConfig = m_serverConfigs.value(id, ServerConfig());
    if (m_activeConfig.nickname.isEmpty())
        m_activeConfig.nickname = nickEdit->text().trimmed();
    if (m_activeConfig.realName.isEmpty())
        m_activeConfig.realName = realNameEdit->text().trimmed();
    if (m_activeConfig.autojoinChannels.isEmpty())
        m_activeConfig.autojoinChannels = channels;
    if (m_activeConfig.encoding.isEmpty())
        m_activeConfig.encoding = QStringLiteral("UTF-8 (Unicode)");
    if (m_activeConfig.authMethod.isEmpty())
        m_activeConfig.authMethod = QStringLiteral("NickServ (/nickserv IDENTIFY)");
    // A stored TLS flag cannot be switched off from here.
    if (!m_activeConfig.useSsl)
        m_activeConfig.useSsl = sslCheck->isChecked();

    accept();
}

// --- Theme -----------------------------------------------------------------

void ConnectDialog::setCurrentTheme(const QString& theme)
{
    m_currentTheme = theme;
    applyTheme();
}

void ConnectDialog::applyTheme()
{
    setStyleSheet(styleSheetFor(m_currentTheme));
    Translucency::applyGlass(this, m_currentTheme == QLatin1String("glass"));
}

QString ConnectDialog::styleSheetFor(const QString& theme)
{
    const bool dark = theme == QLatin1String("dark");
    QStringList c = dark
        ? QStringList { QStringLiteral("#2E2E2E"), QStringLiteral("#DDDDDD"), QStringLiteral("#FFFFFF"),
              QStringLiteral("#555555"), QStringLiteral("#3E3E3E"), QStringLiteral("#1E1E1E"),
              QStringLiteral("#252525"), QStringLiteral("#3A3A3A"), QStringLiteral("#505050"),
              QStringLiteral("#FFFFFF"), QStringLiteral("#5F1E1E"), QStringLiteral("#1E3A5F"),
              QStringLiteral("#5F1E1E") }
        : QStringList { QStringLiteral("#FFFFFF"), QStringLiteral("#333333"), QStringLiteral("#1d1d1f"),
              QStringLiteral("#D1D1D6"), QStringLiteral("#FFFFFF"), QStringLiteral("#FFFFFF"),
              QStringLiteral("#F9F9F9"), QStringLiteral("#E8F0FE"), ThemeManager::accentFill().name(),
              QStringLiteral("white"), QStringLiteral("#FFE5E5"), QStringLiteral("#E5F0FF"),
              QStringLiteral("#FFE5E5") };
    // The blue and red texts read on the dialog (%14, %15) and on their hover
    // colours (%16, %17).
    const ThemeManager::Palette p = ThemeManager::palette(theme);
    const auto on = [dark](const QString& colour, const QString& background) {
        // Light dialogs may stand on the frosted glass background.
        const QList<QColor> behind
            = QList<QColor> { QColor(background) } + (dark ? QList<QColor>() : Translucency::frost());
        return Contrast::readable(QColor(colour), behind).name();
    };
    c << on(p.accent, c.at(0)) << on(p.destructiveColor, c.at(0)) << on(p.accent, c.at(11))
      << on(p.destructiveColor, c.at(10)) << ThemeManager::accentFill().name();
    return QStringLiteral(
        "QDialog { background-color: %1; }"
        "QLabel, QCheckBox { color: %2; font-size: 13px; }"
        "QLabel#titleLabel { font-size: 22px; font-weight: bold; color: %3; }"
        "QLineEdit { border: 1px solid %4; border-radius: 6px; padding: 8px 12px; font-size: 14px; "
        "background-color: %5; color: %2; selection-background-color: %18; }"
        "QLineEdit:focus { border: 2px solid #007AFF; padding: 7px 11px; }"
        "QListWidget { background-color: %6; color: %2; border: 1px solid %4; border-radius: 6px; "
        "alternate-background-color: %7; font-size: 14px; selection-background-color: %9; "
        "selection-color: %10; }"
        "QListWidget::item:hover { background-color: %8; }"
        "QListWidget::item:selected { background-color: %9; color: %10; }"
        "QPushButton { border-radius: 6px; padding: 10px 24px; font-size: 14px; font-weight: 500; }"
        "QPushButton#connectButton { background-color: %18; color: white; border: none; }"
        "QPushButton#connectButton:hover { background-color: #0062CC; }"
        "QPushButton#connectButton:pressed { background-color: #0051AA; }"
        "QPushButton#cancelButton { background-color: transparent; color: %15; "
        "border: 1px solid %15; }"
        "QPushButton#cancelButton:hover { background-color: %11; color: %17; }"
        "QPushButton#addButton, QPushButton#editButton { background-color: transparent; color: %14; "
        "border: 1px solid %14; border-radius: 6px; padding: 8px 16px; font-size: 13px; "
        "font-weight: 500; }"
        "QPushButton#addButton:hover, QPushButton#editButton:hover { background-color: %12; color: %16; }"
        "QPushButton#deleteButton { background-color: transparent; color: %15; "
        "border: 1px solid %15; border-radius: 6px; padding: 8px 16px; font-size: 13px; "
        "font-weight: 500; }"
        "QPushButton#deleteButton:hover { background-color: %13; color: %17; }")
        .arg(c.at(0), c.at(1), c.at(2), c.at(3), c.at(4), c.at(5), c.at(6), c.at(7), c.at(8), c.at(9),
            c.at(10), c.at(11), c.at(12), c.at(13), c.at(14), c.at(15), c.at(16), c.at(17));
}

QString ConnectDialog::deleteBoxStyleSheet(const QString& theme)
{
    const bool dark = theme == QLatin1String("dark");
    const QString background = dark ? QStringLiteral("#2E2E2E") : QStringLiteral("#FFFFFF");
    const QString hover = dark ? QStringLiteral("#5F1E1E") : QStringLiteral("#FFE5E5");
    const QColor red(ThemeManager::palette(theme).destructiveColor);
    return QStringLiteral("QMessageBox { background-color: %1; }"
                          "QLabel { color: %2; font-size: 13px; }"
                          "QPushButton { border-radius: 6px; padding: 10px 24px; font-size: 14px; "
                          "font-weight: 500; }"
                          "QPushButton#yesButton { background-color: %4; color: white; border: none; }"
                          "QPushButton#yesButton:hover { background-color: #0062CC; }"
                          "QPushButton#yesButton:pressed { background-color: #0051AA; }"
                          "QPushButton#noButton { background-color: transparent; color: %5; "
                          "border: 1px solid %5; }"
                          "QPushButton#noButton:hover { background-color: %3; color: %6; }")
        .arg(background, dark ? QStringLiteral("#DDDDDD") : QStringLiteral("#333333"), hover,
            ThemeManager::accentFill().name(), Contrast::readable(red, QColor(background)).name(),
            Contrast::readable(red, QColor(hover)).name());
}
