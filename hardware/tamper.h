/// The switch that notices when the enclosure is opened.
#ifndef HARDWARE_TAMPER_H
#define HARDWARE_TAMPER_H

#include "hardware/board.h"

class Buttons;

/// Samples the tamper switch on GPIO 17, after exporting it and setting it to active low
/// if that is still to be done.
/// @param buttons  knows the board's revision; the switch of boards after
///                 revision 3 is never sampled
/// @return true when the switch is active; false also after any failure, which
///         is logged as a warning
bool readTamper(const Buttons &buttons, const Board &board = Board());

#endif
