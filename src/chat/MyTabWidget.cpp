#include "MyTabWidget.h"

MyTabWidget::MyTabWidget(QWidget* parent)
    : QTabWidget(parent)
{
}

void MyTabWidget::setPublicTabBar(QTabBar* bar)
{
    setTabBar(bar);
}
