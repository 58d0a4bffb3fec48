#include "ThemeManager.h"

#include "Contrast.h"
#include "Translucency.h"

#include <QLatin1String>

namespace {

const QColor White(Qt::white);

bool isDark(const QString& theme)
{
    return theme == QLatin1String("dark");
}

// Background of a hovered cancel (or delete) button.
QString cancelHover(bool dark)
{
    return dark ? QStringLiteral("#5F1E1E") : QStringLiteral("#FFE5E5");
}

// colour as text on background, lightened or darkened until it reads there;
// on a light background also on the frosted one that glass dialogs get where
// they cannot be see-through.
QString on(const QString& colour, const QColor& background)
{
    QList<QColor> backgrounds { background };
    if (Contrast::luminance(background) > 0.5)
        backgrounds += Translucency::frost();
    return Contrast::readable(QColor(colour), backgrounds).name().toUpper();
}

QString fill()
{
    return ThemeManager::accentFill().name().toUpper();
}

} // namespace

ThemeManager::Palette ThemeManager::palette(const QString& theme)
{
    Palette p;
    if (isDark(theme)) {
        p.windowBg = QStringLiteral("#2E2E2E");
        p.panelBg = QStringLiteral("#1E1E1E");
        p.textColor = QStringLiteral("#DDDDDD");
        p.accent = QStringLiteral("#007AFF");
        p.accentHover = QStringLiteral("#0062CC");
        p.inputBg = QStringLiteral("#3E3E3E");
        p.inputBorder = QStringLiteral("#555555");
        p.destructiveColor = QStringLiteral("#FF3B30");
    } else {
        p.windowBg = QStringLiteral("#F5F5F7");
        p.panelBg = QStringLiteral("#F0F0F0");
        p.textColor = QStringLiteral("#333333");
        p.accent = QStringLiteral("#007AFF");
        p.accentHover = QStringLiteral("#0062CC");
        p.inputBg = QStringLiteral("#FFFFFF");
        p.inputBorder = QStringLiteral("#D1D1D6");
        p.destructiveColor = QStringLiteral("#FF3B30");
    }
    p.useTranslucentBackground = false;
    return p;
}

QString ThemeManager::globalStyleSheet(const QString& theme)
{
    const Palette p = palette(theme);
    if (isDark(theme)) {
        // %1 window, %2 text, %3 panel, %4 input background, %5 input border
        return QStringLiteral(
            "QMainWindow { background-color: %1; color: %2; }\n"
            "ChatView { background-color: %3; color: %2; border: none; }\n"
            "QListWidget { background-color: %3; color: %2; }\n"
            // The member list is a list view over its own model.
            "QListView#userList { background-color: %3; color: %2; }\n"
            "QLineEdit { background-color: %4; color: %2; border: 1px solid %5; }\n"
            "QMenuBar { background-color: %1; color: %2; }\n"
            "QMenuBar::item:selected { background-color: #505050; }\n"
            "QMenu { background-color: %1; color: %2; border: 1px solid %5; }\n"
            "QMenu::item:selected { background-color: #505050; }\n"
            "QHeaderView::section { background-color: %4; color: %2; padding: 4px; "
            "border: 1px solid %5; }\n"
            "QTreeWidget { background-color: %3; color: %2; alternate-background-color: #252525; }\n"
            "QTreeWidget::item:hover { background-color: #3A3A3A; }\n"
            "QTreeWidget::item:selected { background-color: #505050; }\n"
            // The channel list is a tree view over its own model.
            "QTreeView#channelList { background-color: %3; color: %2; alternate-background-color: #252525; }\n"
            "QTreeView#channelList::item:hover { background-color: #3A3A3A; }\n"
            "QTreeView#channelList::item:selected { background-color: #505050; }\n"
            "QStatusBar { background-color: %1; color: %2; }\n"
            "QLabel#topicLabel { color: %2; }\n"
            "QLabel#channelListInfo { color: %2; }\n")
            .arg(p.windowBg, p.textColor, p.panelBg, p.inputBg, p.inputBorder);
    }

    // %1 window, %2 text, %3 accent, %4 input border, %5 accent under white text
    return QStringLiteral(
        "QMainWindow { background-color: %1; color: %2; }\n"
        "ChatView { color: %2; border: none; border-radius: 8px; padding: 4px; }\n"
        "QListWidget { background-color: #FFFFFF; color: %2; border: none; border-radius: 8px; "
        "padding: 4px; }\n"
        "QListView#userList { background-color: #FFFFFF; color: %2; border: none; border-radius: 8px; "
        "padding: 4px; }\n"
        "QLineEdit { background-color: #FFFFFF; color: %2; border: 1px solid #C6C6C8; "
        "border-radius: 8px; padding: 6px 12px; font-size: 13px; }\n"
        "QLineEdit:focus { border: 2px solid %3; padding: 5px 11px; }\n"
        "QMenuBar { background-color: %1; color: %2; border-bottom: 1px solid %4; }\n"
        "QMenuBar::item:selected { background-color: rgba(0,0,0,0.08); border-radius: 6px; }\n"
        "QMenu { background-color: #FFFFFF; color: %2; border: 1px solid %4; border-radius: 8px; "
        "padding: 4px; }\n"
        "QMenu::item:selected { background-color: %5; color: #FFFFFF; border-radius: 4px; }\n"
        "QHeaderView::section { background-color: %1; color: %2; padding: 4px; "
        "border: 1px solid %4; }\n"
        "QTreeWidget { background-color: #FFFFFF; color: %2; alternate-background-color: #F9F9FB; "
        "border-radius: 8px; }\n"
        "QTreeWidget::item:hover { background-color: #E8F0FE; }\n"
        "QTreeWidget::item:selected { background-color: %5; color: #FFFFFF; }\n"
        "QTreeView#channelList { background-color: #FFFFFF; color: %2; alternate-background-color: #F9F9FB; "
        "border-radius: 8px; }\n"
        "QTreeView#channelList::item:hover { background-color: #E8F0FE; }\n"
        "QTreeView#channelList::item:selected { background-color: %5; color: #FFFFFF; }\n"
        "QStatusBar { background-color: %1; color: %2; border-top: 1px solid %4; }\n"
        "QLabel#topicLabel { color: %2; background: transparent; }\n"
        "QLabel#channelListInfo { color: %2; }\n")
        .arg(p.windowBg, p.textColor, p.accent, p.inputBorder, fill());
}

QString ThemeManager::dialogStyleSheet(const QString& theme)
{
    const bool dark = isDark(theme);
    const Palette p = palette(theme);
    const QString toolBarBg = dark ? QStringLiteral("#3E3E3E") : QStringLiteral("#F0F0F0");
    // %1 window, %2 text, %3 input border, %4 input background, %5 accent,
    // %6 tool bar background, %7 accent under white text, then the button pair
    return QStringLiteral(
               "QDialog { background-color: %1; }\n"
               "QLabel { color: %2; font-size: 13px; }\n"
               "QLineEdit { border: 1px solid %3; border-radius: 6px; padding: 8px 12px; font-size: 14px; "
               "background-color: %4; color: %2; selection-background-color: %7; }\n"
               "QLineEdit:focus { border: 2px solid %5; padding: 7px 11px; }\n"
               "QToolBar { background-color: %6; border: none; }\n")
               .arg(p.windowBg, p.textColor, p.inputBorder, p.inputBg, p.accent, toolBarBg, fill())
        + buttonStyleSheet(theme);
}

QString ThemeManager::lineEditStyleSheet(const QString& theme)
{
    const Palette p = palette(theme);
    return QStringLiteral("QLineEdit { border: 1px solid %1; border-radius: 6px; padding: 8px 12px; "
                          "font-size: 14px; background: %2; color: %3; selection-background-color: %5; }"
                          "QLineEdit:focus { border: 2px solid %4; padding: 7px 11px; }")
        .arg(p.inputBorder, p.inputBg, p.textColor, p.accent, fill());
}

QString ThemeManager::buttonStyleSheet(const QString& theme)
{
    return buttonStyleSheet(theme, QColor(palette(theme).windowBg));
}

QString ThemeManager::buttonStyleSheet(const QString& theme, const QColor& background)
{
    // The cancel text reads on the dialog and on its own hover colour.
    const QString hover = cancelHover(isDark(theme));
    const Palette p = palette(theme);
    return QStringLiteral("QPushButton#connectButton { background-color: %1; color: white; border: none; "
                          "padding: 10px 24px; border-radius: 6px; font-size: 14px; font-weight: 500; }\n"
                          "QPushButton#connectButton:hover { background-color: %2; }\n"
                          "QPushButton#cancelButton { background-color: transparent; color: %3; "
                          "border: 1px solid %3; padding: 10px 24px; border-radius: 6px; "
                          "font-size: 14px; font-weight: 500; }\n"
                          "QPushButton#cancelButton:hover { background-color: %4; color: %5; }\n")
        .arg(fill(), p.accentHover, on(p.destructiveColor, background), hover,
            on(p.destructiveColor, QColor(hover)));
}

QString ThemeManager::preferencesDialogStyleSheet(const QString& theme)
{
    const bool dark = isDark(theme);
    const Palette p = palette(theme);

    // Form controls keep the light look in both themes.
    // %2 input border, %3 input background, %4 accent, %5 font button hover
    const QString form = QStringLiteral(
        "QDialog { background-color: #FFFFFF; }\n"
        "QLabel { color: #333333; font-size: 13px; }\n"
        "QLineEdit { border: 1px solid %2; border-radius: 6px; padding: 6px 12px; font-size: 13px; "
        "background-color: %3; color: #333333; selection-background-color: %4; min-width: 200px; }\n"
        "QLineEdit:focus { border: 2px solid %4; padding: 5px 11px; }\n"
        "QLineEdit#prefsSmallEdit { min-width: 60px; max-width: 60px; }\n"
        "QComboBox { min-height: 28px; max-height: 28px; }\n"
        "QComboBox#prefsWideCombo { min-width: 200px; }\n"
        "QComboBox#prefsSmallCombo { min-width: 60px; max-width: 60px; }\n"
        "QSpinBox { min-height: 28px; max-height: 28px; }\n"
        "QSpinBox#prefsWideSpin { min-width: 200px; max-width: 200px; }\n"
        "QPushButton#prefsFontButton { border: 1px solid %2; border-radius: 6px; padding: 6px 12px; "
        "font-size: 13px; background-color: %3; color: #333333; text-align: left; min-width: 200px; }\n"
        "QPushButton#prefsFontButton:hover { background-color: %5; }\n")
                             .arg(p.inputBorder, p.inputBg, p.accent,
                                 dark ? QStringLiteral("#3E3E3E") : QStringLiteral("#F0F0F0"));

    // %1 background button hover, %2 delete button hover; the texts read on
    // the page (%3, %4) and on their hover colours (%5, %6).
    const QColor page = dark ? QColor(p.windowBg) : White;
    const QString bgHover = dark ? QStringLiteral("#1E3A5F") : QStringLiteral("#E5F0FF");
    const QString deleteHover = cancelHover(dark);
    const QString backgroundButtons
        = QStringLiteral("QPushButton#prefsBgButton { background-color: transparent; color: %3; "
                         "border: 1px solid %3; border-radius: 6px; padding: 6px 12px; font-size: 12px; "
                         "font-weight: 500; }\n"
                         "QPushButton#prefsBgButton:hover { background-color: %1; color: %5; }\n"
                         "QPushButton#prefsDeleteButton { background-color: transparent; color: %4; "
                         "border: 1px solid %4; border-radius: 6px; padding: 6px 12px; font-size: 12px; "
                         "font-weight: 500; }\n"
                         "QPushButton#prefsDeleteButton:hover { background-color: %2; color: %6; }\n")
              .arg(bgHover, deleteHover, on(p.accent, page), on(p.destructiveColor, page),
                  on(p.accent, QColor(bgHover)), on(p.destructiveColor, QColor(deleteHover)));

    // Tabs have no maximum width. Qt reads "max-width: none" as zero, which
    // would clamp every tab to its minimum, so the widget size limit is used.
    QString tabs;
    if (dark) {
        // %1 window, %2 input background, %3 input border
        tabs
            = QStringLiteral("QTabWidget::pane { background-color: %1; border: 1px solid #444; "
                             "border-radius: 8px; padding: 8px; }\n"
                             "QTabBar::tab { background-color: %2; color: #CCCCCC; padding: 6px 8px 6px 4px; "
                             "border: 1px solid %3; border-bottom: none; border-top-left-radius: 4px; "
                             "border-top-right-radius: 4px; min-width: 80px; max-width: 16777215px; }\n"
                             "QTabBar::tab:selected { background-color: #505050; color: #FFFFFF; "
                             "font-weight: bold; }\n"
                             "QTabBar::tab:hover { background-color: #4A4A4A; }\n")
                  .arg(p.windowBg, p.inputBg, p.inputBorder);
    } else {
        // The only placeholder is %2, the pane border. Being the lowest number
        // present it takes the first of the values this template was always
        // filled with (window background, input border, "#6E6E73", accent); the
        // others never reached the sheet. The light pane border has always been
        // drawn in the window colour, so this stays as it is. Passing the one
        // value that lands keeps QString::arg from warning about the rest.
        // %3 is the accent under white text.
        tabs = QStringLiteral(
            "QTabWidget::pane { background-color: #FFFFFF; border: 1px solid %2; border-radius: 8px; "
            "padding: 8px; }\n"
            "QTabBar::tab { background-color: #F0F0F0; color: #333333; padding: 6px 8px 6px 4px; "
            "margin-right: 2px; border: 1px solid #D1D1D6; border-bottom: 1px solid #D1D1D6; "
            "border-top-left-radius: 6px; border-top-right-radius: 6px; min-width: 80px; "
            "max-width: 16777215px; font-size: 12px; }\n"
            "QTabBar::tab:selected { background-color: %3; color: #FFFFFF; font-weight: 600; "
            "border: 1px solid %3; border-bottom: 1px solid %3; "
            "border-top-left-radius: 6px; border-top-right-radius: 6px; }\n"
            "QTabBar::tab:hover:!selected { background-color: #E0E0E0; color: #333333; }\n"
            "QTabBar::tab:selected:hover { background-color: %3; color: #FFFFFF; }\n"
            "QTabBar::close-button { subcontrol-origin: padding; subcontrol-position: right; "
            "margin-right: 6px; background: transparent; border-radius: 2px; padding: 2px; "
            "width: 12px; height: 12px; }\n"
            "QTabBar::close-button:hover { background: rgba(0,0,0,0.1); }\n"
            "QTabBar::close-button:selected:hover { background: rgba(255,255,255,0.25); }\n")
                   .arg(p.windowBg, fill());
    }

    // The dialog is white in every theme.
    return form + buttonStyleSheet(theme, White) + backgroundButtons + tabs;
}

ThemeManager::TabColours ThemeManager::tabColours(const QString& theme)
{
    // Tabs are light in the light theme only; the highlight and the dimmed
    // grey follow the dark theme only. Both texts are made to read on the
    // tab and on the hovered tab.
    const bool light = theme == QLatin1String("light");
    const bool dark = isDark(theme);
    TabColours c;
    c.background = QColor(light ? QStringLiteral("#F0F0F0") : QStringLiteral("#3A3A3A"));
    c.hover = QColor(light ? QStringLiteral("#E0E0E0") : QStringLiteral("#4A4A4A"));
    c.text = QColor(light ? QStringLiteral("#333333") : QStringLiteral("#EEEEEE"));
    const QList<QColor> behind { c.background, c.hover };
    c.dimmedText
        = Contrast::readable(QColor(dark ? QStringLiteral("#9A9A9A") : QStringLiteral("#7A7A7A")), behind);
    c.highlight
        = Contrast::readable(QColor(dark ? QStringLiteral("#FFD700") : QStringLiteral("#FFB800")), behind);
    return c;
}

QString ThemeManager::tabWidgetStyleSheet(const QString& theme)
{
    const Palette palette = ThemeManager::palette(theme);
    const bool light = theme == QLatin1String("light");
    // The page behind the chat view (the topic strip of a channel) takes the
    // window colour, so that the topic text of the theme stays readable.
    const QString pane = light ? QStringLiteral("QTabWidget::pane { border: none; padding: 0px; }")
                               : QStringLiteral("QTabWidget::pane { background: %1; border: 1px solid %2; }")
                                     .arg(palette.windowBg, palette.inputBorder);
    const TabColours tabs = tabColours(theme);
    const QString border = light ? QStringLiteral("#D1D1D6") : QStringLiteral("#555555");
    // The close button of a tab that is not the current one is grey, as
    // readable as the dimmed title.
    return pane
        + QStringLiteral(
            "QTabBar::tab { background: %1; color: %4; border: 1px solid %2; border-bottom: none; "
            "padding: 6px 8px 6px 4px; margin-right: 2px; border-top-left-radius: 6px; "
            "border-top-right-radius: 6px; min-width: 80px; font-size: 12px; }"
            "QTabBar::tab:hover { background: %3; color: %4; }"
            "QTabBar::tab:selected, QTabBar::tab:selected:hover { background: %5; "
            "color: white; font-weight: 600; border: 1px solid %5; border-bottom: none; }"
            "QTabBar QPushButton { color: %6; }")
              .arg(tabs.background.name().toUpper(), border, tabs.hover.name().toUpper(),
                  tabs.text.name().toUpper(), fill(), tabs.dimmedText.name().toUpper());
}

const QString& ThemeManager::tabCloseButtonStyleSheet(bool current)
{
    const auto style = [](QLatin1String colour) {
        return QStringLiteral("QPushButton {  background: transparent;  border: none;  font-size: 16px;  "
                              "font-weight: bold; %1 padding: 0px;}QPushButton:hover {  "
                              "background: rgba(0,0,0,0.1);  border-radius: 4px;}")
            .arg(colour);
    };
    static const QString currentStyle = style(QLatin1String("color: #FFFFFF;"));
    static const QString otherStyle = style(QLatin1String(""));
    return current ? currentStyle : otherStyle;
}

QString ThemeManager::statusBarStyleSheet(const QString& theme, bool connected)
{
    const bool dark = isDark(theme);
    QString background;
    if (connected)
        background = dark ? QStringLiteral("#1F4D2B") : QStringLiteral("#d4edda");
    else
        background = dark ? QStringLiteral("#5A1E24") : QStringLiteral("#f8d7da");
    return QStringLiteral("QStatusBar { background-color: %1; color: %2; } QStatusBar QLabel { color: %2; }")
        .arg(background, palette(theme).textColor);
}

QColor ThemeManager::accentFill()
{
    static const QColor fill = Contrast::readable(QColor(palette(QString()).accent), White);
    return fill;
}

QColor ThemeManager::linkColour(const QString& theme)
{
    return Contrast::readable(QColor(palette(theme).accent), QColor(palette(theme).windowBg));
}
