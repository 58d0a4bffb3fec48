#pragma once

#include <QColor>
#include <QFont>
#include <QString>

// The chat window's preferences as they are in use.
struct ChatPreferences
{
    // Appearance.
    QString chatBgImage;
    QColor chatBgColor;
    QString timestampFormat = QStringLiteral("[HH:mm:ss]");
    QFont chatFont;
    // Whether chatFont was chosen (stored, or picked in the preferences);
    // until then the views keep the member list's font.
    bool chatFontChosen = false;
    int emojiSize = 20;
    // Rows kept per conversation; 0 keeps them all.
    int scrollbackLines = 0;
    // Connection.
    // At start, connect the networks open at the last exit again.
    bool reopenNetworks = true;
    bool autoReconnect = true;
    int reconnectDelay = 10;
    int reconnectAttempts = 0;
    int pingInterval = 60;
    int pingTimeout = 45;
    bool acceptInvalidSsl = false;
    // Logging.
    QString logPath; // empty: the default folder
    bool logEnabled = false;
    // Logged rows shown when a conversation opens; 0: none.
    int backlogLines = 50;

    // Reads the stored preferences into `into` (chatFont only when one was
    // stored: the caller's default font stays otherwise). A stored black
    // background colour is taken for an accident and cleared in the store.
    static void load(ChatPreferences& into);
};

// What the preferences window needs of the window it edits.
class PreferencesHost
{
public:
    virtual ~PreferencesHost() = default;

    virtual ChatPreferences& chatPreferences() = 0;
    virtual QString theme() const = 0;
    // Styles the window for theme and stores it as the chosen one.
    virtual void applyTheme(const QString& theme) = 0;
    virtual void applyChatFont() = 0;
    virtual void applyChatBackground() = 0;
    // Reconnect and keep-alive values, for the connections from now on.
    virtual void applyConnectionPreferences() = 0;
};
