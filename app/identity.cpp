#include "app/identity.h"

#include <QCoreApplication>

void setIdentity()
{
    QCoreApplication::setOrganizationName(QLatin1String("Tarnwick"));
    QCoreApplication::setOrganizationDomain(QLatin1String("tarnwick.example"));
    QCoreApplication::setApplicationName(QLatin1String("ZRV8810-MF"));
    QCoreApplication::setApplicationVersion(QLatin1String(MFTOOL_VERSION));
}
