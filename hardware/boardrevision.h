/// The revision of the board that the tool runs on.
#ifndef HARDWARE_BOARDREVISION_H
#define HARDWARE_BOARDREVISION_H

#include "hardware/board.h"

/// @return the revision, 1 or more; 1 also where the board does not tell it or
///         tells an impossible one, which is logged
int readBoardRevision(const Board &board = Board());

#endif
