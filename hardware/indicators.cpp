#include "hardware/indicators.h"

#include <QDir>
#include <QFile>
#include <QtDebug>

#include "hardware/attribute.h"

namespace
{

const char *const biasGpio = "62";

/// The status LEDs in the order of the mask's bits, bit 0 first.
const char *const statusLeds[] = {"ready", "armed", "trouble", "ac"};

const char *ledText(bool on)
{
    return on ? "255" : "0";
}

/// By the formula 50 per cent would be 127, but stations expect 128. So 50 is 128, and
/// every other level follows the formula.
uint homeBrightness(uint percent)
{
    const uint rounding = percent == 50 ? 50 : 49;
    return (percent * 255 + rounding) / 100;
}

bool exportBiasGpio(const Board &board)
{
    qDebug("In ATE Mode---,gpio62 folder (value file) is not exist, need to be created");
    if (!writeAttribute(board.path(Board::GpioExport), biasGpio)) {
        qDebug("In ATE Mode---, could not export pin62, fro LCD Bias Power manipulation");
        return false;
    }
    qDebug("In ATE Mode---, export pin number to generate gpio62 folder, and value file");
    return true;
}

} // namespace

void setBacklight(const Board &board, uint level)
{
    if (!writeAttribute(board.path(Board::Backlight), QByteArray::number(level)))
        qWarning("Failed to open backlight file");
}

void setBiasPower(const Board &board, uint level)
{
    if (!QFile::exists(board.path(Board::BiasValue)) && !exportBiasGpio(board))
        return;
    // Every time: another program may have changed the pin.
    if (!writeAttribute(board.path(Board::BiasActiveLow), "0")) {
        qDebug("In ATE Mode---, could not open/write into active_low file, for LCD Bias Power "
               "manipulation");
        return;
    }
    if (!writeAttribute(board.path(Board::BiasDirection), "out")) {
        qDebug("In ATE Mode---, could not open/write into direction file, for LCD Bias Power "
               "manipulation");
        return;
    }
    if (!writeAttribute(board.path(Board::BiasValue), level != 0 ? "1" : "0")) {
        qDebug("In ATE Mode---, could not open/write into value file, for LCD Bias Power "
               "manipulation");
        return;
    }
    qDebug("In ATE Mode---, LCD Bias Power manipulation, was successfully done!");
}

void setStatusLeds(const Board &board, uint mask)
{
    for (const char *led : statusLeds) {
        const QString file = board.ledBrightness(QString::fromLatin1(led));
        if (!writeAttribute(file, ledText((mask & 1) != 0)))
            qWarning("Failed to open LED file");
        mask >>= 1;
    }
}

void setAllLeds(const Board &board, bool on)
{
    const QDir leds(board.path(Board::Leds));
    const QStringList names = leds.entryList(QDir::Dirs | QDir::NoDotAndDotDot, QDir::Unsorted);
    for (const QString &name : names) {
        if (name == QLatin1String("buzzer")) // an LED to the kernel only
            continue;
        const QString file = board.ledBrightness(name);
        if (!writeAttribute(file, ledText(on)))
            qWarning("Failed to open led file '%s'", qPrintable(file));
    }
}

void setBuzzerLevel(const Board &board, uint level)
{
    // Stations rely on the half.
    if (!writeAttribute(board.path(Board::Buzzer), QByteArray::number(level >> 1)))
        qWarning("Failed to open buzzer file");
}

void soundBuzzer(QFile *file, bool on)
{
    if (!file->isOpen())
        return;
    file->write(on ? "185" : "0");
    file->flush();
}

void setHomeLedLevel(const Board &board, uint percent)
{
    if (!writeAttribute(board.path(Board::HomeLed), QByteArray::number(homeBrightness(percent))))
        qWarning("Failed to open home file");
}
