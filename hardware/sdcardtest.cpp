#include "hardware/sdcardtest.h"

#include <QElapsedTimer>
#include <QFile>
#include <QTextStream>
#include <QtDebug>

#include <cstdlib>
#include <ctime>

namespace
{

const int byteCount = 10;

/// At least two upper-case hexadecimal digits.
QString hexField(int value)
{
    // As unsigned, since Qt's versions disagree on negative numbers in base 16.
    return QString::fromLatin1("%1")
        .arg(static_cast<uint>(value), 2, 16, QLatin1Char('0'))
        .toUpper();
}

/// Tells a write-protected card from a broken file.
int undeletableStatus(const QString &mountDir)
{
    QFile probe(mountDir + QLatin1String("/tmp.txt"));
    if (!probe.open(QIODevice::WriteOnly | QIODevice::Truncate)) {
        qDebug("Cannot Open File:%s for write during test for SD card-read: write protect error",
               qPrintable(probe.fileName()));
        return SdCardNotWritable;
    }
    probe.remove();
    return SdCardFault;
}

void writeBytes(QFile &file, int (&written)[byteCount])
{
    srand(static_cast<unsigned int>(time(nullptr)));
    QTextStream stream(&file);
    for (int &byte : written) {
        byte = rand() & 0xFF;
        stream << hexField(byte) << '\n';
        stream.flush();
    }
}

/// Reads a line for every byte, even past the end of a file that is too short.
/// @return the number of values that differ from @p written
int readBytes(QFile &file, const int (&written)[byteCount], int (&values)[byteCount])
{
    int mismatches = 0;
    for (int index = 0; index < byteCount; ++index) {
        values[index] = file.readLine().trimmed().toInt(nullptr, 16);
        qDebug("index = %d,-------Write=0x%2X,----------Read=0x%2X\n", index,
               static_cast<uint>(written[index]), static_cast<uint>(values[index]));
        if (values[index] != written[index])
            ++mismatches;
    }
    return mismatches;
}

} // namespace

qint64 sdCardTest(const QString &mountDir, int &status, int (&values)[10])
{
    QFile file(mountDir + QLatin1String("/ateTestFileOnSdCard.txt"));
    const QByteArray path = file.fileName().toLocal8Bit();
    if (file.exists() && !file.remove()) {
        qDebug("%s exist but cannot be deleted, SD may have some error", path.constData());
        status = undeletableStatus(mountDir);
        return -1;
    }

    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate)) {
        qDebug("Cannot Open File:%s for write", path.constData());
        status = SdCardNotWritable;
        return -2;
    }
    int written[byteCount];
    writeBytes(file, written);
    file.close();

    if (!file.open(QIODevice::ReadOnly)) {
        qDebug("Cannot Open File:%s for Read", path.constData());
        status = SdCardFault;
        return -3;
    }
    QElapsedTimer clock;
    clock.start();
    const int mismatches = readBytes(file, written, values);
    const qint64 elapsed = clock.elapsed();
    qDebug("Total time to read data is %lld msec", elapsed);
    if (mismatches == 0) {
        qDebug("Full match between read and write");
        status = SdCardGood;
    } else {
        qDebug("Error: number of mismatch betwwen write and read =%d", mismatches);
        status = SdCardFault;
    }
    return elapsed;
}
