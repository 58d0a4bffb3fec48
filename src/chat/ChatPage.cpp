#include "ChatPage.h"

#include "ChatView.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QPainter>
#include <QPixmap>
#include <QPushButton>
#include <QSvgRenderer>
#include <QVBoxLayout>

namespace {

// The pencil over an open square of the topic edit button.
const char EditTopicSvg[] = R"(<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 24 24" width="24" height="24">)"
                            R"(<path d="M11 4H4a2 2 0 0 0-2 2v14a2 2 0 0 0 2 2h14a2 2 0 0 0 2-2v-7 )"
                            R"(M18.5 2.5a2.121 2.121 0 0 1 3 3L12 15l-4 1 1-4 9.5-9.5z" )"
                            R"(fill="none" stroke="#007AFF" stroke-width="2" stroke-linecap="round" )"
                            R"(stroke-linejoin="round"/></svg>)";

} // namespace

QWidget* ChatPage::create(bool isChannel, bool nickColumn, const QFont& font)
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
    return page;
}
