#include <QApplication>

#include "app/fullscreen.h"
#include "app/identity.h"
#include "app/mftool.h"

int main(int argc, char *argv[])
{
    QApplication application(argc, argv);
    setIdentity();
    mftool widget;
    showOnWholeScreen(&widget);
    return application.exec();
}
