#include "flash/bootstream.h"

#include <QFileInfo>
#include <QStringList>

namespace
{

bool canBeEntered(const QString &folder)
{
    const QFileInfo info(folder);
    return info.isDir() && info.isExecutable();
}

} // namespace

BootStream::BootStream(QObject *parent)
    : MFProc(parent), m_total(54), m_count(0), m_dir(QLatin1String("/boot"))
{
    m_process->setWorkingDirectory(QLatin1String("/root"));
}

void BootStream::run()
{
    qDebug("Starting kobs-ng");
    m_count = 0;

    // If the working directory cannot be entered, Qt 4.8 runs the program in the tool's
    // own. Later versions would not start it.
    const QString folder = m_process->workingDirectory();
    if (!canBeEntered(folder))
        m_process->setWorkingDirectory(QString());
    m_process->start(QLatin1String("kobs-ng"),
                     QStringList()
                         << QLatin1String("-v") << m_dir + QLatin1String("/imx28_ivt_linux.sb"),
                     QIODevice::ReadWrite);
    m_process->setWorkingDirectory(folder);
}

void BootStream::handleLine(const QByteArray &line)
{
    if (!line.startsWith("mtd: erasing "))
        return;

    if (m_count <= m_total)
        ++m_count;
    emit status(m_count * 100 / m_total);
}
