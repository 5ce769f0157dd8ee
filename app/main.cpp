#include <QApplication>

#include "app/fullscreen.h"
#include "app/mftool.h"

namespace
{

void setIdentity()
{
    QCoreApplication::setOrganizationName(QLatin1String("Tarnwick"));
    QCoreApplication::setOrganizationDomain(QLatin1String("tarnwick.example"));
    QCoreApplication::setApplicationName(QLatin1String("ZRV8810-MF"));
    QCoreApplication::setApplicationVersion(QLatin1String("0.5"));
}

} // namespace

int main(int argc, char *argv[])
{
    QApplication application(argc, argv);
    setIdentity();
    mftool widget;
    showOnWholeScreen(&widget);
    return application.exec();
}
