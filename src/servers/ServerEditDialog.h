#pragma once

#include "ServerConfig.h"

#include <QDialog>

class QComboBox;
class QLineEdit;

// The form for one server's address and record, used both to add a server
// and to edit one. It does not validate the address; the caller does. It has
// no TLS control, so the record it returns always has TLS off.
class ServerEditDialog : public QDialog
{
    Q_OBJECT

public:
    // `address` is "host:port" (":6667" for a new server).
    ServerEditDialog(const QString& title, const QString& address, const ServerConfig& config,
        const QString& theme, QWidget* parent = nullptr);

    ServerConfig getConfig() const;
    // Trimmed host + ":" + the port as an integer (an empty port gives ":0").
    QString fullAddress() const;

    // The combo box sheet for a theme; the same for both combo boxes.
    static QString comboBoxStyleSheet(const QString& theme);

private:
    void applyTheme();
    void applyComboBoxStyles();

    QLineEdit* addressEdit = nullptr;
    QLineEdit* portEdit = nullptr;
    QLineEdit* nickEdit = nullptr;
    QLineEdit* altNickEdit = nullptr;
    QLineEdit* realNameEdit = nullptr;
    QLineEdit* passwordEdit = nullptr;
    QLineEdit* accountEdit = nullptr;
    QLineEdit* autojoinEdit = nullptr;
    QComboBox* authCombo = nullptr;
    QComboBox* encodingCombo = nullptr;
    QString m_theme;
};
