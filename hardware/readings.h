/// What the board's files say about it.
#ifndef HARDWARE_READINGS_H
#define HARDWARE_READINGS_H

#include <QByteArray>
#include <QString>

#include "hardware/board.h"

/// The alarm bus voltage in the driver's own text and unit, without the white
/// space around it.
/// @return empty, after a warning, when the file cannot be opened
QByteArray readVoltage(const Board &board);

/// The installed firmware's version.
/// @param mounted  true to ask the NAND file system below /mnt, false the running system
/// @param version  receives the text without the white space around it, up to
///                 its first zero byte; untouched on failure
/// @return false, after a debug line, when the file cannot be opened
bool readVersion(const Board &board, bool mounted, QString *version);

#endif
