#include "hardware/tamper.h"

#include <QFile>
#include <QtDebug>

#include "hardware/attribute.h"
#include "hardware/buttons.h"

namespace
{

const int lastRevisionWithTamper = 3;

/// The polarity is set only here: the kernel keeps it as long as the pin stays exported.
bool exportTamper(const Board &board)
{
    if (!writeAttribute(board.path(Board::GpioExport), "17")) {
        qWarning("Unable to export the tamper GPIO to user space");
        return false;
    }
    if (!QFile::exists(board.path(Board::TamperValue))) {
        qWarning("Failed to export the tamper GPIO to user space");
        return false;
    }
    if (!writeAttribute(board.path(Board::TamperActiveLow), "1")) {
        qWarning("Failed to change the tamper GPIO to active low");
        return false;
    }
    return true;
}

} // namespace

bool readTamper(const Buttons &buttons, const Board &board)
{
    if (buttons.revision() > lastRevisionWithTamper)
        return false;

    QFile value(board.path(Board::TamperValue));
    if (!value.exists() && !exportTamper(board))
        return false;
    if (!value.open(QIODevice::ReadOnly)) {
        qWarning("Failed to open tamper value file");
        return false;
    }
    return value.readAll().startsWith('0');
}
