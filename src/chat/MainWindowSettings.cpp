// MainWindow: the chat background and the current server's stored record.

#include "MainWindow.h"

#include "ChatView.h"
#include "IRCConnection.h"
#include "ServerStore.h"

#include <QDebug>
#include <QUrl>

void MainWindow::applyChatBackground()
{
    const bool dark = currentTheme == QLatin1String("dark");
    const QString border = dark ? QStringLiteral("#555") : QStringLiteral("#ccc");
    QColor background;
    if (!m_chatBgImage.isEmpty())
        background = Qt::white;
    else if (m_chatBgColor.isValid())
        background = m_chatBgColor;
    else
        background = dark ? QColor(0x1E, 0x1E, 0x1E) : QColor(Qt::white);

    QString sheet;
    if (!m_chatBgImage.isEmpty()) {
        if (QUrl::fromLocalFile(m_chatBgImage).isValid())
            sheet = QStringLiteral("QTextBrowser {   border: 1px solid %1;   background-color: white;   "
                                   "border-image: url(\"%2\") 0 0 0 0 stretch stretch; }")
                        .arg(border, m_chatBgImage);
        else
            sheet = QStringLiteral("QTextBrowser {   border: 1px solid %1;   background-color: white;   "
                                   "border-image: none; }")
                        .arg(border);
    } else {
        sheet = QStringLiteral("QTextBrowser {   border: 1px solid %1;   background-color: %2;   "
                               "border-image: none; }")
                    .arg(border, background.name());
    }
    sheet += QStringLiteral(
        "QScrollBar:vertical { background: transparent; width: 8px; }"
        "QScrollBar:horizontal { background: transparent; height: 8px; }"
        "QScrollBar::handle:vertical { background: rgba(128,128,128,0.5); border-radius: 4px; }"
        "QScrollBar::handle:horizontal { background: rgba(128,128,128,0.5); border-radius: 4px; }"
        "QScrollBar::add-line:vertical, QScrollBar::sub-line:vertical,"
        "QScrollBar::add-line:horizontal, QScrollBar::sub-line:horizontal { border: none; background: none; }");

    for (const TabInfo& info : std::as_const(tabs)) {
        ChatView* view = info.chatView;
        if (!view)
            continue;
        QPalette palette = view->palette();
        palette.setColor(QPalette::Base, background);
        palette.setColor(QPalette::Window, background);
        view->setPalette(palette);
        view->setAutoFillBackground(true);
        if (view->styleSheet() != sheet)
            view->setStyleSheet(sheet);
        view->viewport()->update();
    }
}

void MainWindow::setChannelAutojoin(const QString& channel, bool enable)
{
    const QString name = channel.startsWith(QLatin1Char('#')) ? channel : QLatin1Char('#') + channel;
    if (enable) {
        if (!favoriteChannels.contains(name))
            favoriteChannels.append(name);
    } else {
        favoriteChannels.removeAll(name);
    }
    ServerConfig config = connection->serverConfig();
    config.autojoinChannels = favoriteChannels;
    connection->setServerConfig(config);
    saveCurrentServerConfig();
    appendMessageToTab(QStringLiteral("Server"),
        enable ? QStringLiteral("*** Added %1 to autojoin list").arg(name)
               : QStringLiteral("*** Removed %1 from autojoin list").arg(name),
        QString(), false);
}

void MainWindow::saveCurrentServerConfig()
{
    if (currentServerId.isEmpty()) {
        qWarning() << "saveCurrentServerConfig: currentServerId is empty";
        return;
    }
    ServerStore::saveServerConfig(
        currentServerId, connection->serverConfig(), ServerStore::OddAddress::Skip);
}

void MainWindow::loadCurrentServerConfig()
{
    if (currentServerId.isEmpty())
        return;
    // Keys missing from the store keep what the connection has.
    const ServerConfig config = ServerStore::loadServerConfig(currentServerId, connection->serverConfig());
    connection->setServerConfig(config);
    favoriteChannels = config.autojoinChannels;
}
