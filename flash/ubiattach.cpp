#include "flash/ubiattach.h"

#include <QStringList>

UBIAttach::UBIAttach(QObject *parent) : MFProc(parent) {}

void UBIAttach::run()
{
    qDebug("Starting ubiattach");
    m_process->start(QLatin1String("ubiattach"),
                     QStringList() << QLatin1String("/dev/ubi_ctrl") << QLatin1String("-m")
                                   << QLatin1String("1"),
                     QIODevice::ReadWrite);
}

void UBIAttach::handleLine(const QByteArray &line)
{
    qDebug("%s", line.constData());
}
