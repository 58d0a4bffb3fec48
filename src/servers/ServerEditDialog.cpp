#include "ServerEditDialog.h"

#include "ServerStore.h"
#include "ThemeManager.h"
#include "Translucency.h"

#include <QComboBox>
#include <QDialogButtonBox>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QFormLayout>
#include <QIcon>
#include <QIntValidator>
#include <QLineEdit>
#include <QPushButton>
#include <QStyledItemDelegate>
#include <QTemporaryDir>
#include <QVBoxLayout>

namespace {

QLineEdit* makeEdit(
    const QString& objectName, const QString& text, const QString& placeholder, QWidget* parent)
{
    auto* edit = new QLineEdit(text, parent);
    edit->setObjectName(objectName);
    edit->setPlaceholderText(placeholder);
    return edit;
}

// Selects the item whose text is exactly `text`, else the item at `fallback`.
void selectText(QComboBox* combo, const QString& text, int fallback)
{
    const int index = combo->findText(text, Qt::MatchExactly | Qt::MatchCaseSensitive);
    combo->setCurrentIndex(index >= 0 ? index : fallback);
}

// Qt's style sheets load url(...) images by file name and do not decode
// "data:" URIs themselves. A file name "data:rest" is, however, looked up in
// the search paths registered for the prefix "data", so the decoded image is
// written once under the name "rest" into such a folder; the inline URI in the
// sheet then names a file Qt can load.
void makeInlineImageLoadable(const QString& uri)
{
    static const QString prefix = QStringLiteral("data:");
    const int comma = uri.indexOf(QLatin1Char(','));
    if (!uri.startsWith(prefix) || comma < 0 || !uri.left(comma).endsWith(QLatin1String(";base64")))
        return;
    static QTemporaryDir folder(QDir::tempPath() + QStringLiteral("/quenvar-images-XXXXXX"));
    if (!folder.isValid())
        return;
    static const bool registered = [] {
        QDir::addSearchPath(QStringLiteral("data"), folder.path());
        return true;
    }();
    Q_UNUSED(registered);

    const QString path = folder.filePath(uri.mid(prefix.size()));
    if (QFileInfo::exists(path))
        return;
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile file(path);
    if (file.open(QIODevice::WriteOnly))
        file.write(QByteArray::fromBase64(uri.mid(comma + 1).toLatin1()));
}

// A small down arrow as an inline SVG image.
QString arrowImage(const QString& fill)
{
    const QString svg = QStringLiteral("<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"12\" height=\"12\" "
                                       "viewBox=\"0 0 12 12\"><path d=\"M3 5l3 3 3-3z\" fill=\"%1\"/></svg>")
                            .arg(fill);
    const QString uri
        = QStringLiteral("data:image/svg+xml;base64,") + QString::fromLatin1(svg.toUtf8().toBase64());
    makeInlineImageLoadable(uri);
    return uri;
}

} // namespace

ServerEditDialog::ServerEditDialog(const QString& title, const QString& address, const ServerConfig& config,
    const QString& theme, QWidget* parent)
    : QDialog(parent)
    , m_theme(theme)
{
    setWindowTitle(title);
    setMinimumWidth(480);
    setWindowFlags(Qt::Dialog | Qt::CustomizeWindowHint | Qt::WindowTitleHint | Qt::WindowCloseButtonHint);

    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(20, 20, 20, 16);
    auto* form = new QFormLayout;
    form->setLabelAlignment(Qt::AlignLeft);
    form->setSpacing(8);
    form->setFieldGrowthPolicy(QFormLayout::ExpandingFieldsGrow);
    layout->addLayout(form);

    QString host;
    int port = 6667;
    if (!ServerStore::splitAddress(address, &host, &port)) {
        host = address;
        port = 6667;
    }

    addressEdit = makeEdit(QStringLiteral("addressEdit"), host, QStringLiteral("irc.example.net"), this);
    portEdit = makeEdit(QStringLiteral("portEdit"), QString::number(port), QStringLiteral("6667"), this);
    portEdit->setFixedWidth(80);
    portEdit->setValidator(new QIntValidator(1, 65535, portEdit));
    nickEdit
        = makeEdit(QStringLiteral("nickEdit"), config.nickname, QStringLiteral("Type you nickname"), this);
    altNickEdit = makeEdit(QStringLiteral("altNickEdit"), config.altNickname,
        QStringLiteral("Alternative nickname if main is taken"), this);
    realNameEdit = makeEdit(QStringLiteral("realNameEdit"), config.realName,
        QStringLiteral("Type you Real name (optionally)"), this);
    authCombo = new QComboBox(this);
    authCombo->setObjectName(QStringLiteral("authCombo"));
    authCombo->setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Fixed);
    authCombo->addItems(ServerStore::authMethods());
    selectText(authCombo,
        config.authMethod.isEmpty() ? QStringLiteral("NickServ (/nickserv IDENTIFY)") : config.authMethod, 2);
    passwordEdit = makeEdit(
        QStringLiteral("passwordEdit"), config.password, QStringLiteral("Password for auth on server"), this);
    passwordEdit->setEchoMode(QLineEdit::Password);
    accountEdit = makeEdit(QStringLiteral("accountEdit"), config.account,
        QStringLiteral("Services account (empty: the nickname)"), this);
    autojoinEdit = makeEdit(QStringLiteral("autojoinEdit"),
        config.autojoinChannels.join(QStringLiteral(", ")), QStringLiteral("#help, #linux"), this);
    encodingCombo = new QComboBox(this);
    encodingCombo->setObjectName(QStringLiteral("encodingCombo"));
    encodingCombo->setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Fixed);
    encodingCombo->addItems(ServerStore::encodings());
    selectText(
        encodingCombo, config.encoding.isEmpty() ? QStringLiteral("UTF-8 (Unicode)") : config.encoding, 0);

    form->addRow(QStringLiteral("IRC server:"), addressEdit);
    form->addRow(QStringLiteral("Port:"), portEdit);
    form->addRow(QStringLiteral("Nickname:"), nickEdit);
    form->addRow(QStringLiteral("Second Name:"), altNickEdit);
    form->addRow(QStringLiteral("Real Name:"), realNameEdit);
    form->addRow(QStringLiteral("Auth Method:"), authCombo);
    form->addRow(QStringLiteral("Account:"), accountEdit);
    form->addRow(QStringLiteral("Password:"), passwordEdit);
    form->addRow(QStringLiteral("Auto join channels:"), autojoinEdit);
    form->addRow(QStringLiteral("Encoding:"), encodingCombo);

    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Save | QDialogButtonBox::Cancel, this);
    for (const auto& [which, name] : { std::pair { QDialogButtonBox::Save, "connectButton" },
             std::pair { QDialogButtonBox::Cancel, "cancelButton" } }) {
        QPushButton* button = buttons->button(which);
        button->setObjectName(QString::fromLatin1(name));
        button->setIcon(QIcon()); // text only, like every other themed button
    }
    connect(buttons, &QDialogButtonBox::accepted, this, &QDialog::accept);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
    layout->addWidget(buttons);

    applyTheme();
    applyComboBoxStyles();
}

ServerConfig ServerEditDialog::getConfig() const
{
    ServerConfig config;
    config.nickname = nickEdit->text().trimmed();
    config.altNickname = altNickEdit->text().trimmed();
    config.realName = realNameEdit->text().trimmed();
    config.authMethod = authCombo->currentText();
    config.password = passwordEdit->text();
    config.account = accountEdit->text().trimmed();
    config.encoding = encodingCombo->currentText();
    config.autojoinChannels = ServerStore::splitChannels(autojoinEdit->text());
    config.useSsl = false;
    config.favorite = false;
    return config;
}

QString ServerEditDialog::fullAddress() const
{
    return addressEdit->text().trimmed() + QLatin1Char(':')
        + QString::number(portEdit->text().toInt(nullptr, 10));
}

void ServerEditDialog::applyTheme()
{
    setStyleSheet(ThemeManager::dialogStyleSheet(m_theme));
    Translucency::applyGlass(this, m_theme == QLatin1String("glass"));
}

void ServerEditDialog::applyComboBoxStyles()
{
    const QString sheet = comboBoxStyleSheet(m_theme);
    for (QComboBox* combo : { authCombo, encodingCombo }) {
        combo->setStyleSheet(sheet);
        // The style's own popup delegate paints every item alike; a styled
        // delegate draws the sheet's hovered and selected items.
        combo->setItemDelegate(new QStyledItemDelegate(combo));
    }
}

QString ServerEditDialog::comboBoxStyleSheet(const QString& theme)
{
    const ThemeManager::Palette palette = ThemeManager::palette(theme);
    const QString arrow
        = arrowImage(theme == QLatin1String("dark") ? QStringLiteral("#DDDDDD") : QStringLiteral("#333333"));
    return QStringLiteral(
        "QComboBox { border: 1px solid %1; border-radius: 6px; padding: 8px 12px; font-size: 14px; "
        "background: %2; color: %3; }"
        "QComboBox:focus { border: 2px solid %4; padding: 7px 11px; }"
        "QComboBox::drop-down { subcontrol-origin: padding; subcontrol-position: top right; width: 30px; "
        "border-left: 1px solid %1; border-top-right-radius: 6px; border-bottom-right-radius: 6px; "
        "background: transparent; }"
        "QComboBox::down-arrow { image: url(%5); width: 12px; height: 12px; background: transparent; }"
        "QComboBox QAbstractItemView { background: %2; color: %3; selection-background-color: %4; "
        "selection-color: white; border: 1px solid %1; outline: none; }"
        "QComboBox QAbstractItemView::item { padding: 6px 12px; }"
        "QComboBox QAbstractItemView::item:hover, QComboBox QAbstractItemView::item:selected { "
        "background: %4; color: white; }")
        .arg(palette.inputBorder, palette.inputBg, palette.textColor, ThemeManager::accentFill().name(),
            arrow);
}
