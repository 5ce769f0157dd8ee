/// The faults of a virtual unit that make sense on a board with a real kernel, and
/// why the others do not.
#ifndef BENCH_LINE_VMFAULT_H
#define BENCH_LINE_VMFAULT_H

#include <QString>

struct VmFault {
    const char *name;    ///< as in the table of all faults
    const char *script;  ///< runs in the board before the tool is started; may be null
    const char *later;   ///< as the fourth step begins; may be null
    const char *refused; ///< why it cannot be played; null when it can

    /// Every fault has a row.
    static const VmFault &byName(const QString &name);
};

#endif
