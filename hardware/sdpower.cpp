#include "hardware/sdpower.h"

#include <QFile>
#include <QtDebug>

#include "hardware/attribute.h"

void setSdPower(const Board &board, bool on)
{
    const QString file = board.path(Board::SdPowerValue);
    if (!QFile::exists(file))
        return;
    if (!writeAttribute(file, on ? "1" : "0")) {
        qWarning("In ATE Mode-->, Failed to open sd power file for writing");
        return;
    }
    qDebug("In ATE Mode --->, SD card Detection %s", on ? "Enabled" : "Disabled");
}
