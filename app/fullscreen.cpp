#include "app/fullscreen.h"

#include <QWidget>

#include "compat/screen.h"

void showOnWholeScreen(QWidget *window)
{
    window->setGeometry(screenGeometry());
    window->showFullScreen();
}
