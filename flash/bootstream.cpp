#include "flash/bootstream.h"

#include <QStringList>

BootStream::BootStream(QObject *parent)
    : MFProc(parent), m_total(54), m_count(0), m_dir(QLatin1String("/boot"))
{
    m_process->setWorkingDirectory(QLatin1String("/root"));
}

void BootStream::run()
{
    qDebug("Starting kobs-ng");
    m_count = 0;
    m_process->start(QLatin1String("kobs-ng"),
                     QStringList()
                         << QLatin1String("-v") << m_dir + QLatin1String("/imx28_ivt_linux.sb"),
                     QIODevice::ReadWrite);
}

void BootStream::handleLine(const QByteArray &line)
{
    if (!line.startsWith("mtd: erasing "))
        return;

    if (m_count <= m_total)
        ++m_count;
    emit status(m_count * 100 / m_total);
}
