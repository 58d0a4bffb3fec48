#include "EmojiPicker.h"

#include "Translucency.h"

#include <QGridLayout>
#include <QGuiApplication>
#include <QLabel>
#include <QList>
#include <QPushButton>
#include <QScreen>
#include <QStringList>
#include <QVBoxLayout>

namespace {

constexpr int columns = 8;

struct EmojiCategory
{
    QString name;
    QStringList emojis;
};

// The picker's fixed content. The titles stay as they are whatever the
// interface language; entries written with U+FE0F keep it.
QList<EmojiCategory> emojiCategories()
{
    struct Row
    {
        QString name;
        QString emojis; // separated by single spaces
    };
    const Row rows[] = {
        { QStringLiteral("Смайлы"),
            QStringLiteral(
                "😀 😃 😄 😁 😅 😂 🤣 😊 😇 🙂 😉 😌 😍 🥰 😘 😗") },
        { QStringLiteral("Жесты"),
            QStringLiteral(
                "👍 👎 👌 ✌️ 🤞 🤟 🤘 🤙 👋 🤚 🖐️ ✋ 🖖 👏 🙌 🤝") },
        { QStringLiteral("Сердца"),
            QStringLiteral(
                "❤️ 🧡 💛 💚 💙 💜 🖤 🤍 🤎 💔 ❣️ 💕 💞 💓 💗 💖") },
        { QStringLiteral("Эмоции"), QStringLiteral("🔥 ⭐ 🌟 ✨ 💫 🎉 🎊 🎈 💯 ✅ ❌ 💡 💤 💢 💣 💥") },
        { QStringLiteral("Животные"),
            QStringLiteral(
                "🐶 🐱 🐭 🐹 🐰 🦊 🐻 🐼 🐨 🐯 🦁 🐮 🐷 🐸 🐵 🐔") },
        { QStringLiteral("Еда"),
            QStringLiteral(
                "🍎 🍕 🍔 🍟 🍩 🍪 🎂 🍰 ☕ 🍵 🍺 🍷 🍸 🍹 🧃 🥤") },
    };
    QList<EmojiCategory> categories;
    for (const Row& row : rows)
        categories.append({ row.name, row.emojis.split(QLatin1Char(' ')) });
    return categories;
}

// Where the popup cannot be see-through it stands on an opaque colour of
// its own, the container's colour over a plain background.
QString opaqueBackground(const QString& theme)
{
    if (theme == QLatin1String("glass"))
        return QStringLiteral("#F4F6F9");
    return theme == QLatin1String("dark") ? QStringLiteral("#282828") : QStringLiteral("#FFFFFF");
}

QString containerStyle(const QString& theme)
{
    if (theme == QLatin1String("glass"))
        return QStringLiteral("#emojiContainer { background-color: rgba(255,255,255,0.7); "
                              "border: 1px solid rgba(255,255,255,0.5); border-radius: 12px; "
                              "padding: 8px; }");
    if (theme == QLatin1String("dark"))
        return QStringLiteral("#emojiContainer { background-color: rgba(40,40,40,0.95); "
                              "border: 1px solid rgba(255,255,255,0.1); border-radius: 12px; "
                              "padding: 8px; }");
    return QStringLiteral("#emojiContainer { background-color: rgba(255,255,255,0.98); "
                          "border: 1px solid rgba(0,0,0,0.1); border-radius: 12px; padding: 8px; }");
}

} // namespace

namespace {
int preferredSize = 20;
} // namespace

void EmojiPicker::setPreferredSize(int pixels)
{
    preferredSize = qBound(8, pixels, 96);
}

EmojiPicker::EmojiPicker(QWidget* parent, const QString& theme)
    : QDialog(parent)
    , m_theme(theme)
{
    setWindowFlags(Qt::Popup | Qt::FramelessWindowHint);
    // Rounded corners need a see-through window, which only a compositor shows.
    if (Translucency::available())
        setAttribute(Qt::WA_TranslucentBackground);
    else
        setStyleSheet(QStringLiteral("EmojiPicker { background-color: %1; }").arg(opaqueBackground(theme)));
    setAttribute(Qt::WA_ShowWithoutActivating);
    setupUI();
}

void EmojiPicker::setupUI()
{
    auto* outer = new QVBoxLayout(this);
    outer->setContentsMargins(0, 0, 0, 0);

    auto* container = new QWidget(this);
    container->setObjectName(QStringLiteral("emojiContainer"));
    container->setStyleSheet(containerStyle(m_theme));
    // Each emoji in a square with room around it.
    const int cell = preferredSize + 16;
    container->setMinimumWidth(columns * cell + 32);
    container->setMaximumWidth(columns * cell + 52);
    outer->addWidget(container);

    auto* grid = new QGridLayout(container);
    grid->setContentsMargins(8, 8, 8, 8);

    // Titles in a grey that reads on the container (half-transparent black
    // would not reach 4.5:1 on white).
    const bool dark = m_theme == QLatin1String("dark");
    const QString titleStyle
        = QStringLiteral("color: %1; font-size: 10px; font-weight: bold; padding: 4px 2px 2px 2px; "
                         "text-transform: uppercase; letter-spacing: 1px;")
              .arg(dark ? QStringLiteral("rgba(255,255,255,0.5)") : QStringLiteral("#6E6E73"));
    QString buttonStyle = dark
        ? QStringLiteral("QPushButton { background: transparent; border: none; border-radius: 8px; "
                         "font-size: %1px; padding: 0px; color: white; }"
                         "QPushButton:hover { background: rgba(255,255,255,0.15); }"
                         "QPushButton:pressed { background: rgba(255,255,255,0.25); }")
        : QStringLiteral("QPushButton { background: transparent; border: none; border-radius: 8px; "
                         "font-size: %1px; padding: 0px; color: black; }"
                         "QPushButton:hover { background: rgba(0,0,0,0.08); }"
                         "QPushButton:pressed { background: rgba(0,0,0,0.15); }");
    buttonStyle = buttonStyle.arg(preferredSize);

    const QFont emojiFont = colourEmojiFont(font());

    int row = 0;
    for (const EmojiCategory& category : emojiCategories()) {
        auto* title = new QLabel(category.name, container);
        title->setStyleSheet(titleStyle);
        grid->addWidget(title, row, 0, 1, columns);
        ++row;

        for (int i = 0; i < category.emojis.size(); ++i) {
            const QString emoji = category.emojis.at(i);
            auto* button = new QPushButton(emoji, container);
            button->setFixedSize(cell, cell);
            button->setCursor(Qt::PointingHandCursor);
            button->setToolTip(emoji);
            button->setFont(emojiFont);
            button->setStyleSheet(buttonStyle);
            connect(button, &QPushButton::clicked, this, [this, emoji] {
                emit emojiSelected(emoji);
                close();
            });
            grid->addWidget(button, row + i / columns, i % columns);
        }
        // A partly filled last row still ends the category.
        row += (int(category.emojis.size()) + columns - 1) / columns;
    }
}

QFont EmojiPicker::colourEmojiFont(const QFont& base)
{
    QFont font = base;
    font.setFamilies({ QStringLiteral("Noto Color Emoji"), QStringLiteral("Apple Color Emoji"),
        QStringLiteral("Segoe UI Emoji"), base.family() });
    return font;
}

QPoint EmojiPicker::placement(const QRect& buttonGlobal, const QSize& popup, const QRect& available)
{
    const QPoint b = buttonGlobal.topLeft();
    const int w = buttonGlobal.width();
    const int h = buttonGlobal.height();
    const int sw = popup.width();
    const int sh = popup.height();

    int x;
    int y;
    if (b.x() + w + sw + 9 < available.right()) {
        x = b.x() + w + 5;
        y = b.y() - sh / 2;
    } else if (b.x() - sw - 9 > available.left()) {
        x = b.x() - sw - 5;
        y = b.y() - sh / 2;
    } else {
        x = b.x() - (sw - w) / 2;
        y = b.y() - sh - 5;
        if (y < available.top())
            y = b.y() + h + 5;
    }

    if (x < available.left())
        x = available.left() + 5;
    if (x + sw > available.right())
        x = available.right() - sw - 5;
    if (y < available.top())
        y = available.top() + 5;
    if (y + sh > available.bottom())
        y = available.bottom() - sh - 5;
    return QPoint(x, y);
}

void EmojiPicker::moveOnScreen(const QPoint& topLeft)
{
    adjustSize();
    const QSize size = sizeHint();
    const QScreen* screen = QGuiApplication::screenAt(topLeft);
    if (!screen)
        screen = QGuiApplication::primaryScreen();
    if (!screen) {
        move(topLeft);
        return;
    }
    const QRect available = screen->availableGeometry();
    move(qBound(available.left(), topLeft.x(), qMax(available.left(), available.right() + 1 - size.width())),
        qBound(available.top(), topLeft.y(), qMax(available.top(), available.bottom() + 1 - size.height())));
}

void EmojiPicker::placeBeside(const QWidget* button)
{
    adjustSize();
    const QSize size = sizeHint();
    QRect available(QPoint(0, 0), size);
    if (const QScreen* screen = QGuiApplication::primaryScreen())
        available = screen->availableGeometry();
    if (!button) {
        move(available.center() - QPoint(size.width() / 2, size.height() / 2));
        return;
    }
    const QRect anchor(button->mapToGlobal(QPoint(0, 0)), button->size());
    move(placement(anchor, size, available));
}
