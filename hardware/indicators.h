/// What the keypad shows and sounds: backlight, LCD bias power, LEDs, buzzer.
/// Every function stores short text into the kernel's attribute files, opened
/// for this one store, so that a file that appears later is used without a
/// restart. A file that cannot be opened is logged and otherwise ignored; a text that
/// the kernel refuses is not noticed.
#ifndef HARDWARE_INDICATORS_H
#define HARDWARE_INDICATORS_H

#include "hardware/board.h"

class QFile;

/// @param level  stored as it is; the kernel decides what it accepts
void setBacklight(const Board &board, uint level);

/// Exports and configures GPIO 62 as far as needed and drives it.
/// A step that fails is logged and ends the sequence; earlier steps stay done.
/// @param level  0 switches the bias power off, anything else on
void setBiasPower(const Board &board, uint level);

/// Switches the four status LEDs.
/// @param mask  bit 0 ready, 1 armed, 2 trouble, 3 ac; higher bits are ignored
void setStatusLeds(const Board &board, uint mask);

/// Switches every LED device there is, the home LED included, except the buzzer.
void setAllLeds(const Board &board, bool on);

/// @param level  half of it is stored (255 sounds at 127)
void setBuzzerLevel(const Board &board, uint level);

/// Sounds or silences the buzzer through a file that stays open.
/// @param file  opened unbuffered by the caller, who owns it; does nothing when it is closed
void soundBuzzer(QFile *file, bool on);

/// @param percent  brightness in per cent, not clamped
void setHomeLedLevel(const Board &board, uint percent);

#endif
