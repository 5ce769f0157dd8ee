/// Faults that a virtual unit can be given, to see that a plan finds them.
#ifndef BENCH_LINE_FAULT_H
#define BENCH_LINE_FAULT_H

#include "bench/keypad/virtualkeypad.h"

#include <QString>

struct Fault {
    const char *name;
    const char *summary;
    /// Any of these may be null.
    void (*choose)(KeypadOptions *options); ///< before there is a board
    void (*prepare)(VirtualKeypad *keypad); ///< on the board, before the tool starts
    /// On the running tool, when the fourth step or a later one begins. False: it is not
    /// running.
    bool (*later)(VirtualKeypad *keypad);
    bool homeSticks;          ///< a pressed home key is never released
    VirtualKeypad::Card card; ///< how a card that is put in behaves

    /// Null when there is no fault of that name.
    static const Fault *byName(const QString &name);
    /// One line each, for `--help`.
    static QString help();
};

#endif
