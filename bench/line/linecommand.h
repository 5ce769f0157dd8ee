/// The command line of the production line: what follows "line" on the bench's
/// command line.
#ifndef BENCH_LINE_LINECOMMAND_H
#define BENCH_LINE_LINECOMMAND_H

#include <QStringList>

/// Exit statuses; a run of several units ends with that of the worst.
enum LineExit {
    LinePass = 0,    ///< every unit passed
    LineFail = 1,    ///< a unit is not as the plan wants it
    LineUsage = 2,   ///< the command line or the plan is wrong; nothing was started
    LineTimeOut = 3, ///< a unit, or the operator, did not answer in time
    LineError = 4    ///< it could not be tested: no keypad, the tool died, the line failed
};

/// @param arguments  of the subcommand, its name first
/// @return a LineExit
int runLineCommand(const QStringList &arguments);

#endif
