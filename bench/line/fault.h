/// Faults that a virtual unit can be made with, so that a plan shows that it
/// finds them.
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
    /// On the running tool, as the fourth step begins or a later one. False: it does not run.
    bool (*later)(VirtualKeypad *keypad);
    bool homeSticks;          ///< a pressed home key is never released
    VirtualKeypad::Card card; ///< what a card put in behaves like

    /// Null for a name that is no fault.
    static const Fault *byName(const QString &name);
    /// One line each, for `--help`.
    static QString help();
};

#endif
