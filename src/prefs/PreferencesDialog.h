#pragma once

#include <QColor>
#include <QDialog>
#include <QFont>
#include <QString>

class QCheckBox;
class QComboBox;
class QDialogButtonBox;
class QLabel;
class QLineEdit;
class QPushButton;
class QShowEvent;
class QSpinBox;

// The preferences window: three pages ("Interface", "Chat", "Network") that
// edit the chat window's preference values, write them to the settings store
// and ask the window to re-apply them.
//
// The dialog does not know the chat window. It is built from a copy of the
// window's current values (`Values`) and talks back through signals:
//
//   chatFontChosen(font)      the font chooser was confirmed. The window keeps
//                             the font in its own chat-font member at once,
//                             without applying or saving it; a later Apply or
//                             OK (from this or another opening) saves it.
//   themeChosen(theme)        first step of every Apply/OK: the window applies
//                             the theme ("light", "dark" or "glass") to itself
//                             (its applyTheme(theme), which also stores it).
//   preferencesApplied(v)     second step: the window copies every value of `v`
//                             into its members, then runs applyChatFont() and
//                             applyChatBackground().
//
// After these the dialog writes all fourteen keys to the store and restyles
// itself for the chosen theme. Opening: create it with the window as parent,
// connect the three signals and show() it; it is non-modal and deletes itself
// when closed, and several may be open at once.
class PreferencesDialog : public QDialog
{
    Q_OBJECT

public:
    // The chat window's preference members, with the defaults used when a
    // key is absent from the store.
    struct Values
    {
        QString theme = QStringLiteral("light");
        QFont chatFont;
        QString timestampFormat = QStringLiteral("[HH:mm:ss]");
        int emojiSize = 20;
        bool logEnabled = false;
        QString logPath;
        QString chatBgImage;
        QColor chatBgColor; // invalid: no colour chosen
        bool autoReconnect = true;
        int reconnectDelay = 10; // seconds
        int reconnectAttempts = 0; // 0: unlimited
        int pingInterval = 60; // seconds
        int pingTimeout = 45; // seconds
        bool acceptInvalidSsl = false;
    };

    explicit PreferencesDialog(const Values& current, QWidget* parent = nullptr);

    // The values as last handed to the window (the opening values, the font
    // once chosen, everything after an Apply).
    Values values() const { return m_values; }

public slots:
    // Copies the controls into the values, has the window apply them and
    // writes every key to the store.
    void saveAndApply();
    // Styles the dialog for the current theme.
    void applyTheme();

signals:
    void chatFontChosen(const QFont& font);
    void themeChosen(const QString& theme);
    void preferencesApplied(const PreferencesDialog::Values& values);

protected:
    void showEvent(QShowEvent* event) override;

private:
    QWidget* buildInterfacePage();
    QWidget* buildChatPage();
    QWidget* buildNetworkPage();
    void updateBgPreview();
    void chooseFont();
    void chooseBgImage();
    void chooseBgColor();
    void resetBg();
    void chooseLogPath();
    QString chosenTheme() const;

    Values m_values;
    QDialogButtonBox* m_buttonBox = nullptr;

    QComboBox* themeCombo = nullptr;
    QPushButton* fontBtn = nullptr;
    QComboBox* tsCombo = nullptr;
    QSpinBox* emojiSpin = nullptr;
    QCheckBox* openNewTabCheck = nullptr;
    QLineEdit* completionSuffixEdit = nullptr;
    QSpinBox* completionMinSpin = nullptr;
    QCheckBox* logCheck = nullptr;
    QLineEdit* logPathEdit = nullptr;
    QCheckBox* highlightCheck = nullptr;
    QCheckBox* soundCheck = nullptr;
    QComboBox* userSortCombo = nullptr;
    QCheckBox* autoReconnectCheck = nullptr;
    QSpinBox* reconnectDelaySpin = nullptr;
    QSpinBox* reconnectAttemptsSpin = nullptr;
    QSpinBox* pingIntervalSpin = nullptr;
    QSpinBox* pingTimeoutSpin = nullptr;
    QCheckBox* sslCheck = nullptr;
    QComboBox* authCombo = nullptr;
    QPushButton* bgImageBtn = nullptr;
    QPushButton* bgColorBtn = nullptr;
    QPushButton* bgResetBtn = nullptr;
    QLabel* bgPreview = nullptr;

    // The background choice pending until the next Apply/OK.
    QString m_selectedBgImage;
    QColor m_selectedBgColor;
};
