/// A subcommand of the bench and the style that all of them share: options
/// before or after the other arguments, --help that says it all, reasons on
/// standard error in one line.
#ifndef BENCH_COMMON_COMMAND_H
#define BENCH_COMMON_COMMAND_H

#include <QCommandLineParser>
#include <QString>
#include <QStringList>

struct Command {
    const char *name;
    const char *summary; ///< one line for the list of commands
    /// @param arguments  of the subcommand, its name first. @return exit status
    int (*run)(const QStringList &arguments);
};

namespace BenchExit
{
const int Good = 0;
const int Failed = 1; ///< what was asked for did not come out well
const int Usage = 2;  ///< wrong options or arguments
const int Unable = 3; ///< it cannot be done here: something the PC lacks
} // namespace BenchExit

/// Adds --help to @p parser and parses. True: go on. False: end with *status,
/// after help was printed or a wrong option told.
bool parseCommand(QCommandLineParser &parser, const QStringList &arguments, int *status);

/// Prints "bench NAME: REASON" to standard error. @return @p status
int complain(const QString &name, const QString &reason, int status);

#endif
