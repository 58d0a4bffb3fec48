#pragma once

#include <QTabWidget>

// A tab widget whose tab bar can be replaced from outside, so that the chat
// window can install its HighlightTabBar.
class MyTabWidget : public QTabWidget
{
    Q_OBJECT

public:
    explicit MyTabWidget(QWidget* parent = nullptr);

    // Installs bar as this widget's tab bar (the widget takes ownership).
    void setPublicTabBar(QTabBar* bar);
};
