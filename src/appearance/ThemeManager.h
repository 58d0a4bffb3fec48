#pragma once

#include <QString>

// Colours and style sheets for the application's themes.
//
// The theme name is the value stored under the settings key "theme"
// ("light", "dark" or "glass"). Only the exact name "dark" selects the dark
// variant; every other name, "glass" included, gets the light variant.
// Everything here is stateless: the same name always gives the same result.
class ThemeManager
{
public:
    // Colours are "#RRGGBB" strings so they can go straight into style sheets.
    struct Palette
    {
        QString windowBg;
        QString panelBg;
        QString textColor;
        QString accent;
        QString accentHover;
        QString inputBg;
        QString inputBorder;
        QString destructiveColor;
        bool useTranslucentBackground = false;
    };

    static Palette palette(const QString& theme);

    // Main window.
    static QString globalStyleSheet(const QString& theme);
    // Dialogs with a "connectButton"/"cancelButton" pair.
    static QString dialogStyleSheet(const QString& theme);
    // A single line edit.
    static QString lineEditStyleSheet(const QString& theme);
    // The accept/cancel button pair alone.
    static QString buttonStyleSheet(const QString& theme);
    // The preferences dialog.
    static QString preferencesDialogStyleSheet(const QString& theme);
    // The chat window's tabs; on dark themes the pane behind a page takes the
    // window colour, so that the topic text stays readable.
    static QString tabWidgetStyleSheet(const QString& theme);

    ThemeManager() = delete;
};
