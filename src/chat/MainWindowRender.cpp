// MainWindow: message rows, mentions, tab highlights and notifications.

#include "MainWindow.h"

#include "ChatView.h"
#include "HighlightTabBar.h"
#include "IRCConnection.h"
#include "IrcText.h"
#include "MyTabWidget.h"

#include <QDateTime>
#include <QDebug>
#include <QHash>
#include <QPair>
#include <QTextCharFormat>
#include <QTextCursor>

namespace {

const QString ServerTab = QStringLiteral("Server");
const QString ListTab = QStringLiteral("List");

const QColor GreyText(136, 136, 136);
const QColor AwayNickColor(0xAA, 0xAA, 0xAA);

// Longest sender shown in full; longer ones keep MaxNickPrefix characters
// followed by an ellipsis.
constexpr int MaxNickLength = 16;
constexpr int MaxNickPrefix = 15;

// Notification bodies longer than this are cut.
constexpr int MaxNotificationLength = 255;
constexpr int NotificationCut = 252;

QString displayNickFor(const QString& sender)
{
    if (sender.size() <= MaxNickLength)
        return sender;
    int keep = MaxNickPrefix;
    // Never split a surrogate pair.
    if (sender.at(keep - 1).isHighSurrogate())
        --keep;
    return sender.left(keep) + QChar(0x2026);
}

// Character formats of the columns, built once. Latin text is laid out
// without the full shaper (scripts that need it still get it).
QTextCharFormat plainFormat()
{
    QTextCharFormat format;
    format.setFontStyleStrategy(QFont::PreferNoShaping);
    return format;
}

const QTextCharFormat& greyFormat()
{
    static const QTextCharFormat format = [] {
        QTextCharFormat f = plainFormat();
        f.setForeground(GreyText);
        return f;
    }();
    return format;
}

const QTextCharFormat& defaultFormat()
{
    static const QTextCharFormat format = plainFormat();
    return format;
}

const QTextCharFormat& nickFormat(const QColor& colour, bool italic)
{
    static QHash<QPair<QRgb, bool>, QTextCharFormat> formats;
    const QPair<QRgb, bool> key(colour.isValid() ? colour.rgba() : 0, italic);
    auto it = formats.find(key);
    if (it == formats.end()) {
        QTextCharFormat format = plainFormat();
        format.setFontWeight(700);
        if (colour.isValid())
            format.setForeground(colour);
        format.setFontItalic(italic);
        it = formats.insert(key, format);
    }
    return *it;
}

QString notificationBody(const QString& message)
{
    if (message.size() <= MaxNotificationLength)
        return message;
    return message.left(NotificationCut) + QStringLiteral("...");
}

} // namespace

bool MainWindow::isOwnNick(const QString& nick) const
{
    // An empty sender marks a status line, never the user.
    if (nick.isEmpty())
        return false;
    if (nick.compare(connection->currentNick(), Qt::CaseInsensitive) == 0)
        return true;
    return !pendingNewNick.isEmpty() && nick.compare(pendingNewNick, Qt::CaseInsensitive) == 0;
}

QString MainWindow::currentTimestamp()
{
    // Rows arrive in bursts; the text changes at most once a second (the
    // format cannot show anything finer than milliseconds, which are kept).
    const qint64 now = QDateTime::currentMSecsSinceEpoch();
    const bool showsMs = m_timestampFormat.contains(QLatin1Char('z'));
    const qint64 key = showsMs ? now : now / 1000;
    if (key != m_timestampKey || m_timestampFormat != m_timestampCacheFormat) {
        m_timestampKey = key;
        m_timestampCacheFormat = m_timestampFormat;
        m_timestampText = QDateTime::fromMSecsSinceEpoch(now).toString(m_timestampFormat);
    }
    return m_timestampText;
}

const QRegularExpression& MainWindow::mentionPattern(const QString& ownNick)
{
    if (ownNick != m_mentionNick || !m_mentionPattern.isValid()) {
        m_mentionNick = ownNick;
        m_mentionPattern = QRegularExpression(
            QStringLiteral("\\b") + QRegularExpression::escape(ownNick) + QStringLiteral("\\b"),
            QRegularExpression::CaseInsensitiveOption);
        m_mentionPattern.optimize();
    }
    return m_mentionPattern;
}

void MainWindow::appendMessageToTab(const QString& tabName, const QString& message, const QString& sender,
    bool isService)
{
    const QString timestamp = currentTimestamp();
    const bool isChannel = tabName.startsWith(QLatin1Char('#'));
    const bool isPrivate = !isChannel && tabName != ServerTab && tabName != ListTab;

    auto it = tabs.find(tabName);
    if (it == tabs.end()) {
        QWidget* page = createChannelTab(tabName, isChannel);
        registerTab(tabName, page);
        if (isChannel) {
            updateTopicLabel(tabName);
            updateTopicEditButton(tabName);
        }
        if (currentTabName == ServerTab)
            tabWidget->setCurrentWidget(page);
        applyChatBackground();
        addCloseButtonToAllTabs();
        it = tabs.find(tabName);
    }

    ChatView* view = it->chatView;
    if (!view) {
        qWarning() << "appendMessageToTab: chatView is null for tab" << tabName;
        return;
    }
    if (m_appendBatchDepth > 0 && !m_batchViews.contains(view)) {
        view->beginBatch();
        m_batchViews.append(view);
    }

    const bool isServerTab = tabName == ServerTab;
    const bool isSelf = isOwnNick(sender);
    const bool selfAway = isSelf && awayActive;

    QTextCursor cursor = view->appendRow();

    // Each column is one format run, its tab included.
    cursor.insertText(IrcText::singleBlockText(timestamp) + QLatin1Char('\t'), greyFormat());

    if (!isServerTab) {
        const QString displayNick = displayNickFor(IrcText::singleBlockText(sender));
        QColor colour;
        if (!displayNick.isEmpty())
            colour = selfAway ? AwayNickColor : IrcText::nickColor(displayNick);
        cursor.insertText(displayNick + QStringLiteral("  \t"), nickFormat(colour, selfAway && !displayNick.isEmpty()));
    }

    const QTextCharFormat& messageFormat = isService || selfAway ? greyFormat() : defaultFormat();
    QString text;
    if (selfAway && !isService)
        text = QStringLiteral("[Away: %1] %2").arg(awayMessage, message);
    else
        text = isServerTab ? message : QLatin1Char(' ') + message;
    IrcText::insertMessageWithLinks(cursor, text, messageFormat);

    if (isSelf)
        return;
    if (isChannel) {
        const QString myNick = connection->currentNick();
        if (!myNick.isEmpty() && mentionPattern(myNick).match(message).hasMatch()) {
            highlightTab(tabName);
            if (currentTabName != tabName)
                showNotification(tabName, QStringLiteral("%1: %2").arg(sender, notificationBody(message)));
        }
    } else if (isPrivate) {
        highlightTab(tabName);
        if (currentTabName != tabName)
            showNotification(sender, notificationBody(message));
    }
}

void MainWindow::beginAppendBatch()
{
    ++m_appendBatchDepth;
}

void MainWindow::endAppendBatch()
{
    if (m_appendBatchDepth == 0 || --m_appendBatchDepth > 0)
        return;
    const QList<QPointer<ChatView>> views = m_batchViews;
    m_batchViews.clear();
    for (const QPointer<ChatView>& view : views) {
        if (view)
            view->endBatch();
    }
}

void MainWindow::highlightTab(const QString& tabName)
{
    auto it = tabs.find(tabName);
    if (it == tabs.end() || it->highlighted)
        return;
    it->highlighted = true;
    const int index = tabWidget->indexOf(it->widget);
    if (index >= 0 && tabName != currentTabName)
        tabBar->highlightTab(index);
}
