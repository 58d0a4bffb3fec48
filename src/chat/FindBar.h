#pragma once

#include <QWidget>

class ChatView;
class QLabel;
class QLineEdit;

// The find bar under a tab's messages: the text to find (case ignored),
// the number of matching rows, buttons to the older and newer match and one
// to close. Enter goes to the next older match, Shift+Enter to the next
// newer one, Escape closes the bar and ends the search. It starts hidden.
class FindBar : public QWidget
{
    Q_OBJECT

public:
    // focusAfter: where the keyboard goes when the bar closes.
    FindBar(ChatView* view, QWidget* focusAfter, QWidget* parent = nullptr);

    // Shows the bar with its text selected and searches again.
    void open();
    void dismiss();
    QString text() const;

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    void search();
    void updateCount();

    ChatView* m_view;
    QWidget* m_focusAfter;
    QLineEdit* m_edit;
    QLabel* m_count;
};
