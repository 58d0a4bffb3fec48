#include "PreferencesDialog.h"

#include "SessionLog.h"

#include "PreferencesHost.h"
#include "ThemeManager.h"

#include <QApplication>
#include <QCheckBox>
#include <QColorDialog>
#include <QComboBox>
#include <QDialogButtonBox>
#include <QDir>
#include <QFileDialog>
#include <QFontDialog>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QSettings>
#include <QSpinBox>
#include <QTabWidget>
#include <QVBoxLayout>

namespace {

QFormLayout* newFormLayout(QWidget* page)
{
    auto* form = new QFormLayout(page);
    form->setLabelAlignment(Qt::AlignLeft | Qt::AlignVCenter);
    form->setFieldGrowthPolicy(QFormLayout::ExpandingFieldsGrow);
    return form;
}

QSpinBox* newSpinBox(int minimum, int maximum, int value, const QString& objectName, QWidget* parent)
{
    auto* spin = new QSpinBox(parent);
    spin->setObjectName(objectName);
    spin->setRange(minimum, maximum);
    spin->setValue(value);
    return spin;
}

QString fontButtonText(const QFont& font)
{
    return font.family() + QLatin1Char(' ') + QString::number(font.pointSize());
}

// The shared preferences sheet keeps its form text dark in every theme, while
// the dark theme puts the pages on a dark pane; lighten the text on the pages
// so that it stays readable there. The preview keeps dark text: its own
// background is always light or a chosen picture/colour.
QString darkReadabilitySheet(const QString& theme)
{
    if (theme != QLatin1String("dark"))
        return QString();
    return QStringLiteral("QTabWidget QLabel { color: #DDDDDD; }"
                          "QLineEdit, QPushButton#prefsFontButton { color: #DDDDDD; }"
                          "QLabel#prefsBgPreview { color: #333333; }");
}

} // namespace

PreferencesDialog::PreferencesDialog(PreferencesHost* host, QWidget* parent)
    : QDialog(parent)
    , m_host(host)
{
    setWindowTitle(tr("Preferences"));
    setMinimumSize(560, 520);
    setAttribute(Qt::WA_DeleteOnClose);
    setWindowFlags(windowFlags() & ~Qt::WindowMaximizeButtonHint);

    auto* layout = new QVBoxLayout(this);
    auto* tabs = new QTabWidget(this);
    tabs->addTab(buildInterfacePage(), tr("Interface"));
    tabs->addTab(buildChatPage(), tr("Chat"));
    tabs->addTab(buildNetworkPage(), tr("Network"));
    layout->addWidget(tabs);

    m_buttonBox = new QDialogButtonBox(
        QDialogButtonBox::Ok | QDialogButtonBox::Apply | QDialogButtonBox::Cancel, this);
    layout->addWidget(m_buttonBox);
    for (QAbstractButton* button : m_buttonBox->buttons())
        button->setIcon(QIcon()); // text only, like every other themed button
    connect(m_buttonBox->button(QDialogButtonBox::Apply), &QPushButton::clicked, this,
        &PreferencesDialog::saveAndApply);
    connect(m_buttonBox, &QDialogButtonBox::accepted, this, [this] {
        saveAndApply();
        accept();
    });
    connect(m_buttonBox, &QDialogButtonBox::rejected, this, &PreferencesDialog::reject);

    setWindowFlags(windowFlags() & ~Qt::WindowFullscreenButtonHint);
    // Styled before measuring, so the fixed size fits the styled controls.
    applyTheme();
    adjustSize();
    setFixedSize(size());
}

QWidget* PreferencesDialog::buildInterfacePage()
{
    auto* page = new QWidget;
    QFormLayout* form = newFormLayout(page);

    themeCombo = new QComboBox(page);
    themeCombo->setObjectName(QStringLiteral("prefsWideCombo"));
    themeCombo->addItem(tr("Light"), QStringLiteral("light"));
    themeCombo->addItem(tr("Dark"), QStringLiteral("dark"));
    themeCombo->addItem(tr("Glass"), QStringLiteral("glass"));
    themeCombo->setCurrentIndex(qMax(0, themeCombo->findData(m_host->theme())));
    form->addRow(tr("Theme:"), themeCombo);

    fontBtn = new QPushButton(fontButtonText(m_host->chatPreferences().chatFont), page);
    fontBtn->setObjectName(QStringLiteral("prefsFontButton"));
    connect(fontBtn, &QPushButton::clicked, this, &PreferencesDialog::chooseFont);
    form->addRow(tr("Chat font:"), fontBtn);

    tsCombo = new QComboBox(page);
    tsCombo->setObjectName(QStringLiteral("prefsWideCombo"));
    tsCombo->addItems({ QStringLiteral("[HH:mm:ss]"), QStringLiteral("[hh:mm:ss AP]"),
        QStringLiteral("[HH:mm]"), QStringLiteral("hh:mm") });
    tsCombo->setCurrentIndex(qMax(0, tsCombo->findText(m_host->chatPreferences().timestampFormat)));
    form->addRow(tr("Timestamp:"), tsCombo);

    emojiSpin = newSpinBox(12, 48, m_host->chatPreferences().emojiSize, QStringLiteral("prefsSpinBox"), page);
    form->addRow(tr("Emoji size:"), emojiSpin);

    openNewTabCheck = new QCheckBox(tr("Switch to new tabs automatically"), page);
    openNewTabCheck->setChecked(true);
    form->addRow(openNewTabCheck);

    form->addRow(new QLabel(tr("Chat background:"), page));

    auto* bgButtons = new QHBoxLayout;
    bgImageBtn = new QPushButton(tr("Choose Image..."), page);
    bgImageBtn->setObjectName(QStringLiteral("prefsBgButton"));
    bgColorBtn = new QPushButton(tr("Solid Color..."), page);
    bgColorBtn->setObjectName(QStringLiteral("prefsBgButton"));
    bgResetBtn = new QPushButton(tr("Reset"), page);
    bgResetBtn->setObjectName(QStringLiteral("prefsDeleteButton"));
    bgButtons->addWidget(bgImageBtn);
    bgButtons->addWidget(bgColorBtn);
    bgButtons->addWidget(bgResetBtn);
    bgButtons->addStretch();
    form->addRow(bgButtons);
    connect(bgImageBtn, &QPushButton::clicked, this, &PreferencesDialog::chooseBgImage);
    connect(bgColorBtn, &QPushButton::clicked, this, &PreferencesDialog::chooseBgColor);
    connect(bgResetBtn, &QPushButton::clicked, this, &PreferencesDialog::resetBg);

    bgPreview = new QLabel(tr("None"), page);
    bgPreview->setObjectName(QStringLiteral("prefsBgPreview"));
    bgPreview->setMinimumHeight(60);
    bgPreview->setAlignment(Qt::AlignCenter);
    form->addRow(bgPreview);

    m_selectedBgImage = m_host->chatPreferences().chatBgImage;
    m_selectedBgColor = m_host->chatPreferences().chatBgColor;
    updateBgPreview();
    return page;
}

QWidget* PreferencesDialog::buildChatPage()
{
    auto* page = new QWidget;
    QFormLayout* form = newFormLayout(page);

    // Completion, highlighting and sorting are fixed in the chat window for
    // now; their controls always open with these values and are not stored.
    completionSuffixEdit = new QLineEdit(QStringLiteral(":"), page);
    completionSuffixEdit->setObjectName(QStringLiteral("prefsSmallEdit"));
    completionSuffixEdit->setMaxLength(3);
    form->addRow(tr("Nick completion suffix:"), completionSuffixEdit);

    completionMinSpin = newSpinBox(1, 10, 1, QStringLiteral("prefsSpinBox"), page);
    form->addRow(tr("Min prefix length:"), completionMinSpin);

    scrollbackSpin = newSpinBox(
        0, 10000000, m_host->chatPreferences().scrollbackLines, QStringLiteral("prefsWideSpin"), page);
    scrollbackSpin->setSpecialValueText(tr("Unlimited"));
    scrollbackSpin->setSingleStep(1000);
    form->addRow(tr("Scrollback lines:"), scrollbackSpin);

    logCheck = new QCheckBox(tr("Enable logging"), page);
    logCheck->setChecked(m_host->chatPreferences().logEnabled);
    form->addRow(logCheck);

    auto* logRow = new QHBoxLayout;
    logPathEdit = new QLineEdit(m_host->chatPreferences().logPath, page);
    logPathEdit->setPlaceholderText(tr("Log directory path..."));
    auto* logBrowse = new QPushButton(QStringLiteral("..."), page);
    logBrowse->setObjectName(QStringLiteral("prefsBgButton"));
    connect(logBrowse, &QPushButton::clicked, this, &PreferencesDialog::chooseLogPath);
    logRow->addWidget(logPathEdit, 1);
    logRow->addWidget(logBrowse);
    form->addRow(tr("Log path:"), logRow);
    logPathEdit->setToolTip(tr("Empty: %1").arg(QDir::toNativeSeparators(SessionLog::defaultFolder())));

    backlogSpin = newSpinBox(0, 1000, m_host->chatPreferences().backlogLines, QStringLiteral("prefsSpinBox"), page);
    backlogSpin->setSpecialValueText(tr("Off"));
    backlogSpin->setToolTip(tr("Logged lines shown when a conversation opens"));
    form->addRow(tr("Backlog lines:"), backlogSpin);

    highlightCheck = new QCheckBox(tr("Highlight when your nick is mentioned"), page);
    highlightCheck->setChecked(true);
    form->addRow(highlightCheck);

    soundCheck = new QCheckBox(tr("Play sound on highlight"), page);
    soundCheck->setChecked(false);
    form->addRow(soundCheck);

    userSortCombo = new QComboBox(page);
    userSortCombo->setObjectName(QStringLiteral("prefsWideCombo"));
    userSortCombo->addItems({ tr("Alphabetical"), tr("By status then alpha") });
    form->addRow(tr("User list sorting:"), userSortCombo);
    return page;
}

QWidget* PreferencesDialog::buildNetworkPage()
{
    auto* page = new QWidget;
    QFormLayout* form = newFormLayout(page);
    const QString wideSpin = QStringLiteral("prefsWideSpin");

    reopenNetworksCheck = new QCheckBox(tr("Reopen the networks open at exit"), page);
    reopenNetworksCheck->setChecked(m_host->chatPreferences().reopenNetworks);
    form->addRow(reopenNetworksCheck);

    autoReconnectCheck = new QCheckBox(tr("Auto-reconnect on disconnect"), page);
    autoReconnectCheck->setChecked(m_host->chatPreferences().autoReconnect);
    form->addRow(autoReconnectCheck);

    reconnectDelaySpin = newSpinBox(1, 300, m_host->chatPreferences().reconnectDelay, wideSpin, page);
    reconnectDelaySpin->setSuffix(tr(" sec"));
    form->addRow(tr("Reconnect delay:"), reconnectDelaySpin);

    reconnectAttemptsSpin = newSpinBox(0, 100, m_host->chatPreferences().reconnectAttempts, wideSpin, page);
    reconnectAttemptsSpin->setSpecialValueText(tr("Unlimited"));
    form->addRow(tr("Max attempts:"), reconnectAttemptsSpin);

    pingIntervalSpin = newSpinBox(10, 600, m_host->chatPreferences().pingInterval, wideSpin, page);
    pingIntervalSpin->setSuffix(tr(" sec"));
    form->addRow(tr("PING interval:"), pingIntervalSpin);

    pingTimeoutSpin = newSpinBox(5, 120, m_host->chatPreferences().pingTimeout, wideSpin, page);
    pingTimeoutSpin->setSuffix(tr(" sec"));
    form->addRow(tr("PONG timeout:"), pingTimeoutSpin);

    sslCheck = new QCheckBox(tr("Accept invalid SSL certificates"), page);
    sslCheck->setChecked(m_host->chatPreferences().acceptInvalidSsl);
    form->addRow(sslCheck);

    // Shown for the future; the connection always registers without it.
    authCombo = new QComboBox(page);
    authCombo->setObjectName(QStringLiteral("prefsWideCombo"));
    authCombo->addItems({ tr("Server password"), tr("SASL PLAIN"), tr("SASL EXTERNAL") });
    form->addRow(tr("Auth method:"), authCombo);
    return page;
}

void PreferencesDialog::chooseFont()
{
    bool ok = false;
    const QFont font = QFontDialog::getFont(&ok, m_host->chatPreferences().chatFont, this);
    if (!ok)
        return;
    m_host->chatPreferences().chatFont = font;
    m_host->chatPreferences().chatFontChosen = true;
    fontBtn->setText(fontButtonText(font));
}

void PreferencesDialog::chooseBgImage()
{
    const QString path = QFileDialog::getOpenFileName(
        this, tr("Select Background Image"), QString(), tr("Images (*.png *.jpg *.jpeg *.bmp *.gif)"));
    if (path.isEmpty())
        return;
    m_selectedBgImage = path;
    m_selectedBgColor = QColor();
    updateBgPreview();
}

void PreferencesDialog::chooseBgColor()
{
    const QColor initial = m_selectedBgColor.isValid() ? m_selectedBgColor : QColor(Qt::white);
    const QColor color = QColorDialog::getColor(initial, this, tr("Select Background Color"));
    if (!color.isValid())
        return;
    m_selectedBgColor = color;
    m_selectedBgImage.clear();
    updateBgPreview();
}

void PreferencesDialog::resetBg()
{
    m_selectedBgImage.clear();
    m_selectedBgColor = QColor();
    updateBgPreview();
}

void PreferencesDialog::chooseLogPath()
{
    const QString dir = QFileDialog::getExistingDirectory(
        this, tr("Select log directory"), logPathEdit->text().trimmed(), QFileDialog::ShowDirsOnly);
    if (!dir.isEmpty())
        logPathEdit->setText(dir);
}

void PreferencesDialog::updateBgPreview()
{
    QString style;
    if (!m_selectedBgImage.isEmpty())
        style = QStringLiteral("border-image: url(\"%1\") 0 0 0 0 stretch stretch;").arg(m_selectedBgImage);
    else if (m_selectedBgColor.isValid())
        style = QStringLiteral("background-color: %1;").arg(m_selectedBgColor.name());
    else
        style = QStringLiteral("background-color: #f5f5f5;");
    style += QStringLiteral(" border: 1px solid #999; border-radius: 4px;");
    bgPreview->setStyleSheet(style);

    const bool none = m_selectedBgImage.isEmpty() && !m_selectedBgColor.isValid();
    bgPreview->setText(none ? tr("None image...") : QString());
}

void PreferencesDialog::saveAndApply()
{
    const QString theme = themeCombo->currentData().toString();
    ChatPreferences& prefs = m_host->chatPreferences();
    prefs.timestampFormat = tsCombo->currentText();
    prefs.emojiSize = emojiSpin->value();
    prefs.scrollbackLines = scrollbackSpin->value();
    prefs.logEnabled = logCheck->isChecked();
    prefs.logPath = logPathEdit->text().trimmed();
    prefs.backlogLines = backlogSpin->value();
    prefs.chatBgImage = m_selectedBgImage;
    prefs.chatBgColor = m_selectedBgColor;
    prefs.reopenNetworks = reopenNetworksCheck->isChecked();
    prefs.autoReconnect = autoReconnectCheck->isChecked();
    prefs.reconnectDelay = reconnectDelaySpin->value();
    prefs.reconnectAttempts = reconnectAttemptsSpin->value();
    prefs.pingInterval = pingIntervalSpin->value();
    prefs.pingTimeout = pingTimeoutSpin->value();
    prefs.acceptInvalidSsl = sslCheck->isChecked();

    m_host->applyTheme(theme);
    // The font and the timestamp format size the chat views' columns.
    m_host->applyChatFont();
    m_host->applyChatBackground();
    m_host->applyConnectionPreferences();

    QSettings settings;
    settings.setValue(QStringLiteral("theme"), theme);
    settings.setValue(QStringLiteral("chatFont"), prefs.chatFont.toString());
    settings.setValue(QStringLiteral("timestampFormat"), prefs.timestampFormat);
    settings.setValue(QStringLiteral("emojiSize"), prefs.emojiSize);
    settings.setValue(QStringLiteral("scrollbackLines"), prefs.scrollbackLines);
    settings.setValue(QStringLiteral("logEnabled"), prefs.logEnabled);
    settings.setValue(QStringLiteral("logPath"), prefs.logPath);
    settings.setValue(QStringLiteral("backlogLines"), prefs.backlogLines);
    settings.setValue(QStringLiteral("chatBgImage"), prefs.chatBgImage);
    settings.setValue(QStringLiteral("chatBgColor"),
        prefs.chatBgColor.isValid() ? prefs.chatBgColor.name() : QString());
    settings.setValue(QStringLiteral("reopenNetworks"), prefs.reopenNetworks);
    settings.setValue(QStringLiteral("autoReconnect"), prefs.autoReconnect);
    settings.setValue(QStringLiteral("reconnectDelay"), prefs.reconnectDelay);
    settings.setValue(QStringLiteral("reconnectAttempts"), prefs.reconnectAttempts);
    settings.setValue(QStringLiteral("pingInterval"), prefs.pingInterval);
    settings.setValue(QStringLiteral("pingTimeout"), prefs.pingTimeout);
    settings.setValue(QStringLiteral("acceptInvalidSsl"), prefs.acceptInvalidSsl);
    settings.sync();

    applyTheme();
}

void PreferencesDialog::showEvent(QShowEvent* event)
{
    QDialog::showEvent(event);
    applyTheme();
}

void PreferencesDialog::applyTheme()
{
    setStyleSheet(QString());
    setAttribute(Qt::WA_TranslucentBackground, false);
    setAutoFillBackground(true);
    m_buttonBox->button(QDialogButtonBox::Apply)->setObjectName(QStringLiteral("connectButton"));
    m_buttonBox->button(QDialogButtonBox::Ok)->setObjectName(QStringLiteral("connectButton"));
    m_buttonBox->button(QDialogButtonBox::Cancel)->setObjectName(QStringLiteral("cancelButton"));
    const QString theme = m_host->theme();
    setStyleSheet(ThemeManager::preferencesDialogStyleSheet(theme) + darkReadabilitySheet(theme));
    // Check-box texts follow the page too; through the palette's window text
    // only, so that the check mark inside the white box stays dark.
    const QColor checkText = theme == QLatin1String("dark")
        ? QColor(0xDD, 0xDD, 0xDD)
        : QApplication::palette().windowText().color();
    const auto checks = findChildren<QCheckBox*>();
    for (QCheckBox* check : checks) {
        QPalette palette = check->palette();
        palette.setColor(QPalette::WindowText, checkText);
        check->setPalette(palette);
    }
    updateGeometry();
    update();
}
