#pragma once

#include <QColor>
#include <QDialog>
#include <QString>

class PreferencesHost;
class QCheckBox;
class QComboBox;
class QDialogButtonBox;
class QLabel;
class QLineEdit;
class QPushButton;
class QShowEvent;
class QSpinBox;

// The preferences window: three pages ("Interface", "Chat", "Network") that
// edit the window's preferences through its PreferencesHost, write them to the
// settings store and have the window re-apply theme, font and background.
//
// Non-modal; it deletes itself when closed, and several may be open at once.
// Each opening starts from the window's current preferences. A font picked with
// the font chooser goes into the window's chat font at once, but is applied
// and saved only by the next Apply or OK (from this or a later opening).
class PreferencesDialog : public QDialog
{
    Q_OBJECT

public:
    explicit PreferencesDialog(PreferencesHost* host, QWidget* parent = nullptr);

public slots:
    // Copies the controls into the window's members, has the window apply
    // them and writes every key to the store.
    void saveAndApply();
    // Styles the dialog for the window's current theme.
    void applyTheme();

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

    PreferencesHost* m_host = nullptr; // not owned
    QDialogButtonBox* m_buttonBox = nullptr;

    QComboBox* themeCombo = nullptr;
    QPushButton* fontBtn = nullptr;
    QComboBox* tsCombo = nullptr;
    QSpinBox* emojiSpin = nullptr;
    QCheckBox* openNewTabCheck = nullptr;
    QLineEdit* completionSuffixEdit = nullptr;
    QSpinBox* completionMinSpin = nullptr;
    QSpinBox* scrollbackSpin = nullptr;
    QCheckBox* logCheck = nullptr;
    QLineEdit* logPathEdit = nullptr;
    QSpinBox* backlogSpin = nullptr;
    QCheckBox* highlightCheck = nullptr;
    QCheckBox* soundCheck = nullptr;
    QComboBox* userSortCombo = nullptr;
    QCheckBox* reopenNetworksCheck = nullptr;
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
