#pragma once

#include <QColor>
#include <QDialog>
#include <QString>

class QTextEdit;

// The modal topic editor: a plain-text field holding the raw topic (IRC
// control codes visible as raw characters) and a toolbar that inserts bold,
// italic and underline marks, text and background colours from the 16-colour
// IRC table, and emoji. The editor is white in every theme.
class EditTopicDialog : public QDialog
{
    Q_OBJECT

public:
    EditTopicDialog(
        const QString& channel, const QString& currentTopic, const QString& theme, QWidget* parent = nullptr);

    // The edited topic without leading and trailing white space.
    QString newTopic() const;

    // Index 0..15 of the IRC colour nearest to `color` by squared distance
    // in RGB; on equal distance the lower index wins.
    static int nearestIrcColor(const QColor& color);
    // Text colour for a run on IRC background `backgroundIndex`: 1 (black)
    // when the background's luminance 0.299 R + 0.587 G + 0.114 B (truncated)
    // is above 127, else 0 (white).
    static int foregroundForBackground(int backgroundIndex);
    // The text that replaces `selectedText` when colour `index` is chosen:
    //  - background: ^C fg "," index selectedText ^C (also for an empty selection),
    //  - text colour, no selection: ^C index,
    //  - text colour with a selection: ^C index selectedText ^C.
    // Numbers are decimal without zero padding.
    static QString colorInsertion(int index, bool background, const QString& selectedText);

private slots:
    void insertIrcFormatting(const QString& code);
    void chooseIrcColor(bool background);
    void openEmojiPicker();
    void applyTheme();

private:
    QTextEdit* editField = nullptr;
    QString currentTheme;
};
