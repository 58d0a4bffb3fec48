#pragma once

#include <QColor>
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
    // The accept/cancel button pair alone, on the theme's window colour.
    static QString buttonStyleSheet(const QString& theme);
    // The same pair in a dialog of its own background colour.
    static QString buttonStyleSheet(const QString& theme, const QColor& background);
    // The preferences dialog.
    static QString preferencesDialogStyleSheet(const QString& theme);
    // The chat window's tabs; on dark themes the pane behind a page takes the
    // window colour, so that the topic text stays readable.
    static QString tabWidgetStyleSheet(const QString& theme);
    // A tab's close button: white on the current tab; on the others the grey
    // that tabWidgetStyleSheet gives them.
    static const QString& tabCloseButtonStyleSheet(bool current);
    // The status bar: green while connected, pink while not, in the shade of
    // the theme.
    static QString statusBarStyleSheet(const QString& theme, bool connected);

    // The chat window's tabs that are not the current one.
    struct TabColours
    {
        QColor background;
        QColor hover;
        QColor text;
        QColor dimmedText; // a channel the user is no longer in
        QColor highlight; // the title of a tab that calls for attention
    };
    static TabColours tabColours(const QString& theme);

    // Where the accent colour fills a button, a selected row or tab under
    // white text: the accent, deepened where white text on it would not read.
    static QColor accentFill();
    // The colour of links on the theme's window colour.
    static QColor linkColour(const QString& theme);

    ThemeManager() = delete;
};
