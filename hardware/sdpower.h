/// Power of the SD card slot.
#ifndef HARDWARE_SDPOWER_H
#define HARDWARE_SDPOWER_H

#include "hardware/board.h"

/// Switches the SD card's power. Boards without the switch are left alone; a
/// switch that cannot be opened is logged as a warning.
void setSdPower(const Board &board, bool on);

#endif
