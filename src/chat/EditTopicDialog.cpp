#include "EditTopicDialog.h"

#include "EmojiPicker.h"
#include "IrcText.h"
#include "ThemeManager.h"

#include <QAction>
#include <QColorDialog>
#include <QDialogButtonBox>
#include <QFont>
#include <QIcon>
#include <QKeySequence>
#include <QPainter>
#include <QPixmap>
#include <QPointer>
#include <QPushButton>
#include <QShortcut>
#include <QTextCursor>
#include <QTextEdit>
#include <QToolBar>
#include <QVBoxLayout>

namespace {

const QChar boldCode(0x02);
const QChar italicCode(0x1D);
const QChar underlineCode(0x1F);
const QChar colorCode(0x03);

constexpr int iconSide = 24;

QPixmap transparentIconPixmap()
{
    QPixmap pixmap(iconSide, iconSide);
    pixmap.fill(Qt::transparent);
    return pixmap;
}

// Paints `text` centred onto `pixmap` in `color` (in `base` made bold,
// italic or underlined as asked).
void paintIconText(QPixmap& pixmap, const QString& text, const QColor& color, int pixelSize,
    bool bold = false, bool italic = false, bool underline = false, const QFont* base = nullptr)
{
    QPainter painter(&pixmap);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setRenderHint(QPainter::TextAntialiasing);
    QFont font = base ? *base : painter.font();
    font.setPixelSize(pixelSize);
    font.setBold(bold);
    font.setItalic(italic);
    font.setUnderline(underline);
    painter.setFont(font);
    painter.setPen(color);
    painter.drawText(pixmap.rect(), Qt::AlignCenter, text);
}

QIcon letterIcon(const QString& text, const QColor& color, bool bold, bool italic, bool underline)
{
    QPixmap pixmap = transparentIconPixmap();
    paintIconText(pixmap, text, color, 18, bold, italic, underline);
    return QIcon(pixmap);
}

QIcon backgroundColorIcon()
{
    QPixmap pixmap = transparentIconPixmap();
    {
        QPainter painter(&pixmap);
        painter.setRenderHint(QPainter::Antialiasing);
        painter.setPen(Qt::NoPen);
        painter.setBrush(QColor(0xFF, 0xFF, 0x99));
        painter.drawRoundedRect(QRectF(1, 1, iconSide - 2, iconSide - 2), 4, 4);
    }
    paintIconText(pixmap, QStringLiteral("A"), QColor(0x33, 0x33, 0x33), 18);
    return QIcon(pixmap);
}

QIcon emojiIcon()
{
    QPixmap pixmap = transparentIconPixmap();
    // In the colour emoji font, like the other emoji buttons.
    const QFont font = EmojiPicker::colourEmojiFont(QFont());
    paintIconText(
        pixmap, QString::fromUcs4(U"\U0001F60A"), QColor(0x33, 0x33, 0x33), 20, false, false, false, &font);
    return QIcon(pixmap);
}

} // namespace

EditTopicDialog::EditTopicDialog(
    const QString& channel, const QString& currentTopic, const QString& theme, QWidget* parent)
    : QDialog(parent)
    , currentTheme(theme)
{
    setWindowTitle(tr("Edit Topic for %1").arg(channel));
    setMinimumSize(560, 380);
    setWindowFlags(Qt::Dialog | Qt::CustomizeWindowHint | Qt::WindowTitleHint | Qt::WindowCloseButtonHint);

    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(16, 16, 16, 12);

    auto* toolBar = new QToolBar(this);
    toolBar->setIconSize(QSize(iconSide, iconSide));
    toolBar->setToolButtonStyle(Qt::ToolButtonIconOnly);
    toolBar->setStyleSheet(QStringLiteral(
        "QToolBar { border: none; spacing: 2px; background: transparent; }"
        "QToolButton { min-width: 32px; min-height: 32px; margin: 0px; padding: 4px; border-radius: 4px; }"
        "QToolButton:hover { background: rgba(128,128,128,0.15); }"));

    const QColor iconText(0x33, 0x33, 0x33);
    QAction* bold
        = toolBar->addAction(letterIcon(QStringLiteral("B"), iconText, true, false, false), tr("Bold"));
    bold->setShortcut(QKeySequence::Bold);
    connect(bold, &QAction::triggered, this, [this] { insertIrcFormatting(QString(boldCode)); });

    QAction* italic
        = toolBar->addAction(letterIcon(QStringLiteral("I"), iconText, false, true, false), tr("Italic"));
    italic->setShortcut(QKeySequence::Italic);
    connect(italic, &QAction::triggered, this, [this] { insertIrcFormatting(QString(italicCode)); });

    QAction* underline
        = toolBar->addAction(letterIcon(QStringLiteral("U"), iconText, false, false, true), tr("Underline"));
    underline->setShortcut(QKeySequence::Underline);
    connect(underline, &QAction::triggered, this, [this] { insertIrcFormatting(QString(underlineCode)); });

    QAction* textColor = toolBar->addAction(
        letterIcon(QStringLiteral("A"), QColor(0x00, 0x7A, 0xFF), false, false, false), tr("Text Color"));
    connect(textColor, &QAction::triggered, this, [this] { chooseIrcColor(false); });

    QAction* backgroundColor = toolBar->addAction(backgroundColorIcon(), tr("Background Color"));
    connect(backgroundColor, &QAction::triggered, this, [this] { chooseIrcColor(true); });

    QAction* emoji = toolBar->addAction(emojiIcon(), tr("Emoji"));
    connect(emoji, &QAction::triggered, this, &EditTopicDialog::openEmojiPicker);

    layout->addWidget(toolBar);

    editField = new QTextEdit(this);
    editField->setObjectName(QStringLiteral("editField"));
    editField->setAcceptRichText(false);
    editField->setPlainText(currentTopic);
    editField->setMinimumHeight(140);
    editField->setStyleSheet(QStringLiteral(
        "QTextEdit { background-color: #FFFFFF; border: 1px solid #ccc; border-radius: 6px; padding: 8px; "
        "font-size: 14px; }"
        "QTextEdit:focus { border: 2px solid #007AFF; padding: 7px; }"));
    layout->addWidget(editField);

    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Save | QDialogButtonBox::Cancel, this);
    buttons->button(QDialogButtonBox::Save)->setObjectName(QStringLiteral("connectButton"));
    buttons->button(QDialogButtonBox::Cancel)->setObjectName(QStringLiteral("cancelButton"));
    for (QAbstractButton* button : buttons->buttons())
        button->setIcon(QIcon()); // text only, like every other themed button
    connect(buttons, &QDialogButtonBox::accepted, this, &QDialog::accept);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
    layout->addWidget(buttons);

    auto* saveShortcut = new QShortcut(QKeySequence(Qt::CTRL | Qt::Key_Return), this);
    connect(saveShortcut, &QShortcut::activated, this, &QDialog::accept);

    applyTheme();
    // The field and the icons are drawn for a light background, so the
    // editor stays white whatever the theme; so do its buttons.
    setStyleSheet(styleSheet() + QStringLiteral(" QDialog { background-color: #FFFFFF; }")
        + ThemeManager::buttonStyleSheet(currentTheme, Qt::white));
}

QString EditTopicDialog::newTopic() const
{
    return editField->toPlainText().trimmed();
}

int EditTopicDialog::nearestIrcColor(const QColor& color)
{
    const QColor rgb = color.toRgb();
    const QList<QColor>& table = IrcText::ircColorTable();
    int best = 0;
    int bestDistance = 1000000;
    for (int i = 0; i < table.size(); ++i) {
        const int dr = rgb.red() - table.at(i).red();
        const int dg = rgb.green() - table.at(i).green();
        const int db = rgb.blue() - table.at(i).blue();
        const int distance = dr * dr + dg * dg + db * db;
        if (distance < bestDistance) {
            bestDistance = distance;
            best = i;
        }
    }
    return best;
}

int EditTopicDialog::foregroundForBackground(int backgroundIndex)
{
    const QColor bg = IrcText::ircColor(backgroundIndex);
    const int luminance = int(0.299 * bg.red() + 0.587 * bg.green() + 0.114 * bg.blue());
    return luminance > 127 ? 1 : 0;
}

QString EditTopicDialog::colorInsertion(int index, bool background, const QString& selectedText)
{
    if (background)
        return colorCode + QString::number(foregroundForBackground(index)) + QLatin1Char(',')
            + QString::number(index) + selectedText + colorCode;
    if (selectedText.isEmpty())
        return colorCode + QString::number(index);
    return colorCode + QString::number(index) + selectedText + colorCode;
}

void EditTopicDialog::insertIrcFormatting(const QString& code)
{
    QTextCursor cursor = editField->textCursor();
    if (cursor.hasSelection())
        cursor.insertText(code + cursor.selectedText() + code);
    else
        cursor.insertText(code);
    editField->setTextCursor(cursor);
}

void EditTopicDialog::chooseIrcColor(bool background)
{
    QPointer<EditTopicDialog> self(this);
    const QColor chosen = QColorDialog::getColor(
        Qt::white, this, background ? tr("Choose Background Color") : tr("Choose Text Color"));
    if (!self || !chosen.isValid())
        return;

    const int index = nearestIrcColor(chosen);
    QTextCursor cursor = editField->textCursor();
    cursor.insertText(colorInsertion(index, background, cursor.selectedText()));
    editField->setTextCursor(cursor);
}

void EditTopicDialog::openEmojiPicker()
{
    auto* picker = new EmojiPicker(this, currentTheme);
    picker->moveOnScreen(mapToGlobal(rect().center()) - QPoint(160, 150));
    connect(picker, &EmojiPicker::emojiSelected, this, [this](const QString& emoji) {
        QTextCursor cursor = editField->textCursor();
        cursor.insertText(emoji);
        editField->setTextCursor(cursor);
    });
    picker->setAttribute(Qt::WA_DeleteOnClose);
    picker->show();
}

void EditTopicDialog::applyTheme()
{
    setAttribute(Qt::WA_TranslucentBackground, false);
    setAutoFillBackground(true);
    setStyleSheet(ThemeManager::dialogStyleSheet(currentTheme));
}
