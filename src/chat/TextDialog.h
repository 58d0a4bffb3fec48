#pragma once

#include <QString>

class QWidget;

// What one of the two small text dialogs shows.
struct TextDialogFields
{
    QString title;
    int minimumWidth;
    QString label;
    QString text;
    QString placeholder;
    QString saveText;
};

// Runs a themed modal dialog with a label, one line edit and Save/Cancel.
// Returns whether it was accepted; the field's text goes to `result`.
bool runTextDialog(QWidget* parent, const QString& theme, const TextDialogFields& fields, QString* result);
