#include "flash/mount.h"

#include <QStringList>

Mount::Mount(QObject *parent) : MFProc(parent) {}

void Mount::run()
{
    qDebug("Starting mount");
    m_process->start(QLatin1String("mount"),
                     QStringList() << QLatin1String("-t") << QLatin1String("ubifs")
                                   << QLatin1String("/dev/ubi0_0") << QLatin1String("/mnt"),
                     QIODevice::ReadWrite);
}

void Mount::handleLine(const QByteArray &line)
{
    qDebug("%s", line.constData());
}
