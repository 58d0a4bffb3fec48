#include "MainWindow.h"

MainWindow::MainWindow(QWidget* parent)
    : QMainWindow(parent)
{
    resize(1280, 720);
    setWindowTitle(QStringLiteral("Quenvar"));
}
