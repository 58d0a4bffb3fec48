#include "PreferencesHost.h"

#include <QSettings>

void ChatPreferences::load(ChatPreferences& prefs)
{
    QSettings settings;
    const QString font = settings.value(QStringLiteral("chatFont")).toString();
    if (!font.isEmpty() && prefs.chatFont.fromString(font))
        prefs.chatFontChosen = true;
    prefs.timestampFormat = settings.value(QStringLiteral("timestampFormat"), QStringLiteral("[HH:mm:ss]")).toString();
    prefs.emojiSize = settings.value(QStringLiteral("emojiSize"), 20).toInt();
    prefs.scrollbackLines = qMax(0, settings.value(QStringLiteral("scrollbackLines"), 0).toInt());
    prefs.logEnabled = settings.value(QStringLiteral("logEnabled"), false).toBool();
    prefs.logPath = settings.value(QStringLiteral("logPath")).toString();
    prefs.backlogLines = qBound(0, settings.value(QStringLiteral("backlogLines"), 50).toInt(), 1000);
    prefs.chatBgImage = settings.value(QStringLiteral("chatBgImage")).toString();

    const QString colour = settings.value(QStringLiteral("chatBgColor")).toString();
    prefs.chatBgColor = QColor();
    if (!colour.isEmpty()) {
        const QColor parsed(colour);
        if (parsed.isValid() && parsed.rgb() != qRgb(0, 0, 0)) {
            prefs.chatBgColor = parsed;
        } else {
            settings.setValue(QStringLiteral("chatBgColor"), QString());
            settings.sync();
        }
    }

    prefs.reopenNetworks = settings.value(QStringLiteral("reopenNetworks"), true).toBool();
    prefs.autoReconnect = settings.value(QStringLiteral("autoReconnect"), true).toBool();
    prefs.reconnectDelay = settings.value(QStringLiteral("reconnectDelay"), 10).toInt();
    prefs.reconnectAttempts = settings.value(QStringLiteral("reconnectAttempts"), 0).toInt();
    prefs.pingInterval = settings.value(QStringLiteral("pingInterval"), 60).toInt();
    prefs.pingTimeout = settings.value(QStringLiteral("pingTimeout"), 45).toInt();
    prefs.acceptInvalidSsl = settings.value(QStringLiteral("acceptInvalidSsl"), false).toBool();
}
