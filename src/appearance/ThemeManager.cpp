#include "ThemeManager.h"

#include <QLatin1String>

namespace {

bool isDark(const QString& theme)
{
    return theme == QLatin1String("dark");
}

// Background of a hovered cancel (or delete) button.
QString cancelHover(bool dark)
{
    return dark ? QStringLiteral("#5F1E1E") : QStringLiteral("#FFE5E5");
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
            "QLabel#topicLabel { color: %2; }\n")
            .arg(p.windowBg, p.textColor, p.panelBg, p.inputBg, p.inputBorder);
    }

    // %1 window, %2 text, %3 accent, %4 input border
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
        "QMenu::item:selected { background-color: %3; color: #FFFFFF; border-radius: 4px; }\n"
        "QHeaderView::section { background-color: %1; color: %2; padding: 4px; "
        "border: 1px solid %4; }\n"
        "QTreeWidget { background-color: #FFFFFF; color: %2; alternate-background-color: #F9F9FB; "
        "border-radius: 8px; }\n"
        "QTreeWidget::item:hover { background-color: #E8F0FE; }\n"
        "QTreeWidget::item:selected { background-color: %3; color: #FFFFFF; }\n"
        "QTreeView#channelList { background-color: #FFFFFF; color: %2; alternate-background-color: #F9F9FB; "
        "border-radius: 8px; }\n"
        "QTreeView#channelList::item:hover { background-color: #E8F0FE; }\n"
        "QTreeView#channelList::item:selected { background-color: %3; color: #FFFFFF; }\n"
        "QStatusBar { background-color: %1; color: %2; border-top: 1px solid %4; }\n"
        "QLabel#topicLabel { color: %2; background: transparent; }\n")
        .arg(p.windowBg, p.textColor, p.accent, p.inputBorder);
}

QString ThemeManager::dialogStyleSheet(const QString& theme)
{
    const bool dark = isDark(theme);
    const Palette p = palette(theme);
    const QString toolBarBg = dark ? QStringLiteral("#3E3E3E") : QStringLiteral("#F0F0F0");
    // %1 window, %2 text, %3 input border, %4 input background, %5 accent,
    // %6 accent hover, %7 destructive, %8 cancel hover, %9 tool bar background
    return QStringLiteral(
        "QDialog { background-color: %1; }\n"
        "QLabel { color: %2; font-size: 13px; }\n"
        "QLineEdit { border: 1px solid %3; border-radius: 6px; padding: 8px 12px; font-size: 14px; "
        "background-color: %4; color: %2; selection-background-color: %5; }\n"
        "QLineEdit:focus { border: 2px solid %5; padding: 7px 11px; }\n"
        "QPushButton#connectButton { background-color: %5; color: white; border: none; "
        "padding: 10px 24px; border-radius: 6px; font-size: 14px; font-weight: 500; }\n"
        "QPushButton#connectButton:hover { background-color: %6; }\n"
        "QPushButton#cancelButton { background-color: transparent; color: %7; border: 1px solid %7; "
        "padding: 10px 24px; border-radius: 6px; font-size: 14px; font-weight: 500; }\n"
        "QPushButton#cancelButton:hover { background-color: %8; }\n"
        "QToolBar { background-color: %9; border: none; }\n")
        .arg(p.windowBg, p.textColor, p.inputBorder, p.inputBg, p.accent, p.accentHover, p.destructiveColor,
            cancelHover(dark), toolBarBg);
}

QString ThemeManager::lineEditStyleSheet(const QString& theme)
{
    const Palette p = palette(theme);
    return QStringLiteral("QLineEdit { border: 1px solid %1; border-radius: 6px; padding: 8px 12px; "
                          "font-size: 14px; background: %2; color: %3; selection-background-color: %4; }"
                          "QLineEdit:focus { border: 2px solid %4; padding: 7px 11px; }")
        .arg(p.inputBorder, p.inputBg, p.textColor, p.accent);
}

QString ThemeManager::buttonStyleSheet(const QString& theme)
{
    return QStringLiteral(
               "QPushButton#connectButton { background-color: #007AFF; color: white; border: none; "
               "padding: 10px 24px; border-radius: 6px; font-size: 14px; font-weight: 500; }\n"
               "QPushButton#connectButton:hover { background-color: #0062CC; }\n"
               "QPushButton#cancelButton { background-color: transparent; color: #FF3B30; "
               "border: 1px solid #FF3B30; padding: 10px 24px; border-radius: 6px; "
               "font-size: 14px; font-weight: 500; }\n"
               "QPushButton#cancelButton:hover { background-color: ")
        + cancelHover(isDark(theme)) + QStringLiteral("; }\n");
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

    // %1 background button hover, %2 delete button hover
    const QString backgroundButtons
        = QStringLiteral("QPushButton#prefsBgButton { background-color: transparent; color: #007AFF; "
                         "border: 1px solid #007AFF; border-radius: 6px; padding: 6px 12px; font-size: 12px; "
                         "font-weight: 500; }\n"
                         "QPushButton#prefsBgButton:hover { background-color: %1; }\n"
                         "QPushButton#prefsDeleteButton { background-color: transparent; color: #FF3B30; "
                         "border: 1px solid #FF3B30; border-radius: 6px; padding: 6px 12px; font-size: 12px; "
                         "font-weight: 500; }\n"
                         "QPushButton#prefsDeleteButton:hover { background-color: %2; }\n")
              .arg(dark ? QStringLiteral("#1E3A5F") : QStringLiteral("#E5F0FF"), cancelHover(dark));

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
        tabs = QStringLiteral(
            "QTabWidget::pane { background-color: #FFFFFF; border: 1px solid %2; border-radius: 8px; "
            "padding: 8px; }\n"
            "QTabBar::tab { background-color: #F0F0F0; color: #333333; padding: 6px 8px 6px 4px; "
            "margin-right: 2px; border: 1px solid #D1D1D6; border-bottom: 1px solid #D1D1D6; "
            "border-top-left-radius: 6px; border-top-right-radius: 6px; min-width: 80px; "
            "max-width: 16777215px; font-size: 12px; }\n"
            "QTabBar::tab:selected { background-color: #007AFF; color: #FFFFFF; font-weight: 600; "
            "border: 1px solid #007AFF; border-bottom: 1px solid #007AFF; "
            "border-top-left-radius: 6px; border-top-right-radius: 6px; }\n"
            "QTabBar::tab:hover:!selected { background-color: #E0E0E0; color: #333333; }\n"
            "QTabBar::tab:selected:hover { background-color: #007AFF; color: #FFFFFF; }\n"
            "QTabBar::close-button { subcontrol-origin: padding; subcontrol-position: right; "
            "margin-right: 6px; background: transparent; border-radius: 2px; padding: 2px; "
            "width: 12px; height: 12px; }\n"
            "QTabBar::close-button:hover { background: rgba(0,0,0,0.1); }\n"
            "QTabBar::close-button:selected:hover { background: rgba(255,255,255,0.25); }\n")
                   .arg(p.windowBg);
    }

    return form + buttonStyleSheet(theme) + backgroundButtons + tabs;
}

QString ThemeManager::tabWidgetStyleSheet(const QString& theme)
{
    const Palette palette = ThemeManager::palette(theme);
    const bool light = theme == QLatin1String("light");
    // The page behind the chat view (the topic strip of a channel) takes the
    // window colour, so that the topic text of the theme stays readable.
    const QString pane = light
        ? QStringLiteral("QTabWidget::pane { border: none; padding: 0px; }")
        : QStringLiteral("QTabWidget::pane { background: %1; border: 1px solid %2; }")
              .arg(palette.windowBg, palette.inputBorder);
    const QString background = light ? QStringLiteral("#F0F0F0") : QStringLiteral("#3A3A3A");
    const QString border = light ? QStringLiteral("#D1D1D6") : QStringLiteral("#555555");
    const QString hover = light ? QStringLiteral("#E0E0E0") : QStringLiteral("#4A4A4A");
    const QString text = light ? QStringLiteral("#333333") : QStringLiteral("#EEEEEE");
    return pane
        + QStringLiteral("QTabBar::tab { background: %1; color: %4; border: 1px solid %2; border-bottom: none; "
                         "padding: 6px 8px 6px 4px; margin-right: 2px; border-top-left-radius: 6px; "
                         "border-top-right-radius: 6px; min-width: 80px; font-size: 12px; }"
                         "QTabBar::tab:hover { background: %3; color: %4; }"
                         "QTabBar::tab:selected, QTabBar::tab:selected:hover { background: #007AFF; "
                         "color: white; font-weight: 600; border: 1px solid #007AFF; border-bottom: none; }")
              .arg(background, border, hover, text);
}
