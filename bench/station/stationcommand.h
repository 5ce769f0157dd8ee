/// The command line of the test station: what follows "station" and "decode"
/// on the bench's command line.
#ifndef BENCH_STATION_STATIONCOMMAND_H
#define BENCH_STATION_STATIONCOMMAND_H

#include <QStringList>

/// Talks to a keypad: one command from the arguments, or commands from
/// standard input, one a line.
/// @param arguments  of the subcommand, its name first
/// @return exit status; with several commands, that of the first that failed
int stationCommand(const QStringList &arguments);

/// Explains frames from the arguments, or from the lines of standard input.
/// @param arguments  of the subcommand, its name first
/// @return exit status
int decodeCommand(const QStringList &arguments);

#endif
