#pragma once

#include "ChatView.h"

#include <QStringList>

// The rows of a chat view as laid out (timestamp, tab, nick, tab, message),
// oldest first.
inline QStringList chatRows(const ChatView* view)
{
    QStringList rows;
    for (int i = 0; view && i < view->rowCount(); ++i)
        rows << view->rowText(i);
    return rows;
}

// The message column of every row, trimmed.
inline QStringList chatMessages(const ChatView* view)
{
    QStringList messages;
    for (const QString& row : chatRows(view))
        messages << row.section(QLatin1Char('\t'), -1).trimmed();
    return messages;
}

// The last row as laid out; empty when there is none.
inline QString lastChatRow(const ChatView* view)
{
    return view && view->rowCount() > 0 ? view->rowText(view->rowCount() - 1) : QString();
}
