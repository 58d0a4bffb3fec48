// The "About Quenvar" and "Help" boxes.

#include "InfoBoxes.h"

#include "Contrast.h"
#include "InputCommand.h"
#include "ThemeManager.h"

#include <QDialog>
#include <QLabel>
#include <QPixmap>
#include <QPushButton>
#include <QVBoxLayout>

#include <functional>

namespace {

const QString AppIconPath = QStringLiteral(":/icons/app_icon");

// Displayed size of the application icon in the about and help boxes.
constexpr int BoxIconSize = 96;

// The boxes are white in every theme; their greys and blues are the
// deepest shades that still read on white.
QString onWhite(const char* colour)
{
    return Contrast::readable(QColor(QLatin1String(colour)), Qt::white).name();
}

QString okButtonStyle()
{
    return QStringLiteral("QPushButton#connectButton {  background-color: %1; color: white; border: none; "
                          "border-radius: 6px;  padding: 8px 0px; font-size: 14px; font-weight: 500;}"
                          "QPushButton#connectButton:hover { background-color: #0062CC; }"
                          "QPushButton#connectButton:pressed { background-color: #0051AA; }")
        .arg(ThemeManager::accentFill().name());
}

// The icon, or `fallbackText` in `fallbackStyle` when it cannot be loaded.
QLabel* iconLabel(QWidget* parent, const QString& fallbackText, const QString& fallbackStyle)
{
    auto* label = new QLabel(parent);
    label->setAlignment(Qt::AlignCenter);
    const QPixmap icon(AppIconPath);
    if (icon.isNull()) {
        label->setText(fallbackText);
        label->setStyleSheet(fallbackStyle);
    } else {
        label->setPixmap(icon.scaled(BoxIconSize, BoxIconSize, Qt::KeepAspectRatio, Qt::SmoothTransformation));
    }
    return label;
}

QLabel* textLabel(QWidget* parent, const QString& text, int pointSize, bool bold, const QString& style)
{
    auto* label = new QLabel(text, parent);
    label->setAlignment(Qt::AlignCenter);
    // The family the interface is drawn in, as the machine has it.
    QFont font = label->font();
    font.setFamily(QFontInfo(font).family());
    font.setPointSize(pointSize);
    font.setBold(bold);
    label->setFont(font);
    label->setStyleSheet(style);
    return label;
}

// The white modal box shared by "About" and "Help"; `fill` adds the content
// between the icon and the OK button.
void runInfoBox(QWidget* parent, const QString& title, const QString& iconFallbackStyle,
    const std::function<void(QDialog*, QVBoxLayout*)>& fill)
{
    QDialog box(parent);
    box.setWindowTitle(title);
    box.setStyleSheet(QStringLiteral("QDialog { background-color: #FFFFFF; }"));
    auto* layout = new QVBoxLayout(&box);
    layout->setAlignment(Qt::AlignHCenter);
    layout->setContentsMargins(28, 24, 28, 20);
    layout->setSpacing(8);
    layout->addWidget(iconLabel(&box, QStringLiteral("Quenvar"), iconFallbackStyle), 0, Qt::AlignHCenter);
    fill(&box, layout);

    auto* ok = new QPushButton(QStringLiteral("OK"), &box);
    ok->setObjectName(QStringLiteral("connectButton"));
    ok->setFixedWidth(88);
    ok->setDefault(true);
    ok->setStyleSheet(okButtonStyle());
    QObject::connect(ok, &QPushButton::clicked, &box, &QDialog::accept);
    layout->addSpacing(8);
    layout->addWidget(ok, 0, Qt::AlignHCenter);
    box.exec();
}

} // namespace

namespace InfoBoxes {

void showAboutBox(QWidget* parent)
{
    runInfoBox(parent, QStringLiteral("About Quenvar"),
        QStringLiteral("font-size: 42px; font-weight: bold; color: %1;").arg(onWhite("#007AFF")),
        [](QDialog* box, QVBoxLayout* layout) {
            layout->addWidget(
                textLabel(box, QStringLiteral("Quenvar"), 26, true, QStringLiteral("color: #1d1d1f;")));
            layout->addWidget(textLabel(box, QStringLiteral("Version 2.0 Ruskavel"), 16, false,
                QStringLiteral("color: %1;").arg(onWhite("#888888"))));

            auto* about = new QLabel(box);
            about->setTextFormat(Qt::RichText);
            about->setWordWrap(true);
            about->setAlignment(Qt::AlignCenter);
            about->setOpenExternalLinks(true);
            about->setMinimumWidth(340);
            about->setStyleSheet(QStringLiteral("color: #555555; font-size: 15px;"));
            about->setText(QStringLiteral(
                "Quenvar is a free, modern, cross-platform IRC client for macOS, Linux and Windows.<br><br>"
                "<a href=\"https://quenvar.org\" style=\"color: %1;\">quenvar.org</a>")
                               .arg(onWhite("#007AFF")));
            layout->addWidget(about);

            auto* footer = new QLabel(QStringLiteral("Made for people who live on IRC."), box);
            footer->setAlignment(Qt::AlignCenter);
            footer->setStyleSheet(QStringLiteral("color: %1; font-size: 13px;").arg(onWhite("#888888")));
            layout->addWidget(footer);
        });
}

void showHelpBox(QWidget* parent)
{
    runInfoBox(parent, QStringLiteral("Help"),
        QStringLiteral("font-size: 36px; color: %1;").arg(onWhite("#007AFF")),
        [](QDialog* box, QVBoxLayout* layout) {
            layout->addWidget(textLabel(box, QStringLiteral("Basic IRC commands"), 18, true,
                QStringLiteral("color: #1d1d1f; margin-bottom: 8px;")));

            QString html = QStringLiteral(
                "<table cellspacing=\"0\" cellpadding=\"4\" style=\"font-size: 13px; color: #333;\">"
                "<tr><th align=\"left\" style=\"border-bottom: 1px solid #cccccc;\">Command</th>"
                "<th align=\"left\" style=\"border-bottom: 1px solid #cccccc;\">Description</th></tr>");
            for (const InputCommand::HelpRow& row : InputCommand::helpRows()) {
                html += QStringLiteral("<tr><td><code>%1</code></td><td>%2</td></tr>")
                            .arg(row.usage.toHtmlEscaped(), row.description.toHtmlEscaped());
            }
            html += QStringLiteral("</table>");

            auto* table = new QLabel(box);
            table->setTextFormat(Qt::RichText);
            table->setWordWrap(true);
            table->setStyleSheet(QStringLiteral("font-size: 13px; color: #333;"));
            table->setText(html);
            // A wrapped label does not tell the box its height: give it its
            // width and the height that width needs.
            table->setFixedWidth(520);
            table->setMinimumHeight(table->heightForWidth(520));
            layout->addWidget(table);
        });
}

} // namespace InfoBoxes
