#include "app/fullscreen.h"

#include <QWidget>

#include "compat/screengeometry.h"

void showOnWholeScreen(QWidget *window)
{
    window->setGeometry(screenGeometry());
    window->showFullScreen();
}
