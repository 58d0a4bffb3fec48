#include "ChatPage.h"

#include "ChatView.h"
#include "FindBar.h"
#include "PreferencesHost.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QPainter>
#include <QPixmap>
#include <QPushButton>
#include <QSvgRenderer>
#include <QUrl>
#include <QVBoxLayout>

namespace {

// The pencil over an open square of the topic edit button.
const char EditTopicSvg[] = R"(<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 24 24" width="24" height="24">)"
                            R"(<path d="M11 4H4a2 2 0 0 0-2 2v14a2 2 0 0 0 2 2h14a2 2 0 0 0 2-2v-7 )"
                            R"(M18.5 2.5a2.121 2.121 0 0 1 3 3L12 15l-4 1 1-4 9.5-9.5z" )"
                            R"(fill="none" stroke="#007AFF" stroke-width="2" stroke-linecap="round" )"
                            R"(stroke-linejoin="round"/></svg>)";

} // namespace

QWidget* ChatPage::create(bool isChannel, bool nickColumn, const QFont& font, QWidget* focusAfterFind)
{
    auto* page = new QWidget;
    auto* layout = new QVBoxLayout(page);
    layout->setContentsMargins(0, 0, 0, 0);

    if (isChannel) {
        auto* topicBar = new QWidget(page);
        topicBar->setObjectName(QStringLiteral("topicBar"));
        topicBar->setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Preferred);
        auto* topicLayout = new QHBoxLayout(topicBar);
        topicLayout->setContentsMargins(4, 2, 4, 2);
        topicLayout->setSpacing(4);

        auto* topicLabel = new QLabel(topicBar);
        topicLabel->setObjectName(QStringLiteral("topicLabel"));
        topicLabel->setTextFormat(Qt::RichText);
        topicLabel->setWordWrap(true);
        topicLabel->setTextInteractionFlags(Qt::TextSelectableByMouse | Qt::LinksAccessibleByMouse);
        topicLabel->setOpenExternalLinks(true);
        // Links in the colour of links in the chat, readable in every theme.
        QPalette linkPalette = topicLabel->palette();
        linkPalette.setColor(QPalette::Link, QColor(0x00, 0x7A, 0xFF));
        topicLabel->setPalette(linkPalette);
        topicLabel->setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Preferred);
        topicLayout->addWidget(topicLabel, 1);

        auto* editButton = new QPushButton(topicBar);
        editButton->setObjectName(QStringLiteral("editTopicBtn"));
        editButton->setFixedSize(24, 24);
        editButton->setToolTip(QStringLiteral("Edit topic"));
        editButton->setStyleSheet(QStringLiteral("QPushButton { border: none; }QPushButton:hover { "
                                                 "background: rgba(128,128,128,0.2); border-radius: 4px; }"));
        QPixmap pencil(24, 24);
        pencil.fill(Qt::transparent);
        {
            QSvgRenderer renderer(QByteArray::fromRawData(EditTopicSvg, sizeof(EditTopicSvg) - 1));
            QPainter painter(&pencil);
            renderer.render(&painter);
        }
        editButton->setIcon(QIcon(pencil));
        editButton->setIconSize(QSize(24, 24));
        topicLayout->addWidget(editButton);

        layout->addWidget(topicBar);
    }

    auto* view = new ChatView(page);
    view->setNickColumnVisible(nickColumn);
    QPalette palette = view->palette();
    palette.setColor(QPalette::Base, Qt::white);
    palette.setColor(QPalette::Window, Qt::white);
    view->setPalette(palette);
    view->setAutoFillBackground(true);
    view->setFont(font);
    layout->addWidget(view, 1);
    layout->addWidget(new FindBar(view, focusAfterFind, page));
    return page;
}

void ChatPage::applyBackground(ChatView* view, const ChatPreferences& prefs, const QString& theme)
{
    const bool dark = theme == QLatin1String("dark");
    const QString border = dark ? QStringLiteral("#555") : QStringLiteral("#ccc");
    QColor background;
    if (!prefs.chatBgImage.isEmpty())
        background = Qt::white;
    else if (prefs.chatBgColor.isValid())
        background = prefs.chatBgColor;
    else
        background = dark ? QColor(0x1E, 0x1E, 0x1E) : QColor(Qt::white);

    QString sheet;
    if (!prefs.chatBgImage.isEmpty()) {
        if (QUrl::fromLocalFile(prefs.chatBgImage).isValid())
            sheet = QStringLiteral("ChatView {   border: 1px solid %1;   background-color: white;   "
                                   "border-image: url(\"%2\") 0 0 0 0 stretch stretch; }")
                        .arg(border, prefs.chatBgImage);
        else
            sheet = QStringLiteral("ChatView {   border: 1px solid %1;   background-color: white;   "
                                   "border-image: none; }")
                        .arg(border);
    } else {
        sheet = QStringLiteral("ChatView {   border: 1px solid %1;   background-color: %2;   "
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

    QPalette palette = view->palette();
    palette.setColor(QPalette::Base, background);
    palette.setColor(QPalette::Window, background);
    view->setPalette(palette);
    view->setAutoFillBackground(true);
    if (view->styleSheet() != sheet)
        view->setStyleSheet(sheet);
    view->viewport()->update();
}
