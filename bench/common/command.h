/// A subcommand of the bench and the style that all of them share: options before or
/// after the other arguments, a complete --help, reasons on standard error in one line.
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

/// Exit statuses, the same for every subcommand.
namespace BenchExit
{
const int Good = 0;     ///< as wanted
const int Failed = 1;   ///< tried, and not as wanted: refused, wrong, different, damaged
const int Usage = 2;    ///< wrong options or arguments, or a plan or transcript that is not one
const int NoAnswer = 3; ///< nobody answered in time
const int Unable = 4;   ///< it could not be tried, because of the line, the disk or the PC
} // namespace BenchExit

/// Adds --help to @p parser and parses.
/// @return true to go on; false to end with *status, after the help or what is wrong
///         with an option has been printed
bool parseCommand(QCommandLineParser &parser, const QStringList &arguments, int *status);

/// Prints "bench NAME: REASON" to standard error. @return @p status
int complain(const QString &name, const QString &reason, int status);

#endif
