#include "flash/rootfs.h"

#include <QStringList>

RootFS::RootFS(QObject *parent)
    : MFProc(parent), m_pattern(new QRegExp), m_count(0), m_dir(QLatin1String("/boot"))
{
}

void RootFS::run()
{
    qDebug("Starting ubiformat");
    m_count = 0;
    m_pattern->setPattern(QLatin1String("libscan: scanning eraseblock \\d+ -- (\\d+) % complete"));
    m_process->start(QLatin1String("ubiformat"),
                     QStringList()
                         << QLatin1String("/dev/mtd1") << QLatin1String("-y") << QLatin1String("-f")
                         << m_dir + QLatin1String("/qm8velrootfs.ubi"),
                     QIODevice::ReadWrite);
}

void RootFS::handleLine(const QByteArray &line)
{
    // The bytes as a C string: a NUL ends the text.
    if (m_pattern->indexIn(QString::fromLatin1(line.constData())) != 0)
        return;

    const int percent = m_pattern->cap(1).toInt();
    emit status(percent);
    if (percent != 100)
        return;
    if (m_count > 1)
        return;

    ++m_count;
    emit next();
    m_pattern->setPattern(
        m_count == 1 ? QLatin1String("ubiformat: flashing eraseblock \\d+ -- (\\d+) % complete")
                     : QLatin1String("ubiformat: formatting eraseblock \\d+ -- (\\d+) % complete"));
}
