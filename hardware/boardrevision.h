/// The revision of the board that the tool runs on.
#ifndef HARDWARE_BOARDREVISION_H
#define HARDWARE_BOARDREVISION_H

#include "hardware/board.h"

/// @return the revision, 1 or more; 1 when the board does not say or names an impossible
///         one, which is logged
int readBoardRevision(const Board &board = Board());

#endif
