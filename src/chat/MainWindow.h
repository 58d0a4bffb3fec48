#pragma once

#include <QMainWindow>

// The chat window. For now only its frame: the tabs, the chat views and the
// protocol handling are built on top of this class.
class MainWindow : public QMainWindow
{
    Q_OBJECT

public:
    explicit MainWindow(QWidget* parent = nullptr);
};
