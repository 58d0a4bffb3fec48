#pragma once

#include <QDialog>
#include <QFont>
#include <QPoint>
#include <QRect>
#include <QSize>
#include <QString>

// A small frameless popup with a fixed grid of 96 emoji in six titled
// categories. A click on an emoji emits emojiSelected with it and closes the
// popup; clicking elsewhere closes it too, as for any popup.
//
// The caller owns placement and lifetime:
//     auto* picker = new EmojiPicker(this, theme);
//     picker->placeBeside(button);
//     connect(picker, &EmojiPicker::emojiSelected, ...);
//     picker->setAttribute(Qt::WA_DeleteOnClose);
//     picker->show();
class EmojiPicker : public QDialog
{
    Q_OBJECT

public:
    EmojiPicker(QWidget* parent, const QString& theme);

    // Where a popup of size `popup` goes next to a button occupying
    // `buttonGlobal` (top-left corner in global coordinates plus the button's
    // size), on a screen whose available area is `available`:
    //  - to the right of the button when it fits there,
    //  - else to the left of it,
    //  - else centred above it, or below it when there is no room above;
    // vertically centred on the button's top edge when beside it. The result
    // is then clamped into `available`, keeping a 5-pixel gap to the edges.
    // Pure: needs no screen and no widget.
    static QPoint placement(const QRect& buttonGlobal, const QSize& popup, const QRect& available);

    // `base` with the colour emoji fonts of the common systems put first, so
    // emoji are drawn in colour rather than with a text font's black-and-white
    // glyphs.
    static QFont colourEmojiFont(const QFont& base);

    // The size in pixels pickers draw their emoji at from now on (the
    // "Emoji size" preference; 20 until set).
    static void setPreferredSize(int pixels);

    // Adjusts the popup's size and moves it by placement() next to `button`,
    // on the primary screen's available area.
    void placeBeside(const QWidget* button);
    // Adjusts the popup's size and moves its top-left corner to `topLeft`, or
    // as near to it as keeps the whole popup on that screen's available area.
    void moveOnScreen(const QPoint& topLeft);

signals:
    void emojiSelected(const QString& emoji);

private:
    void setupUI();

    QString m_theme;
};
