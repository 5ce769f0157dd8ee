/// The command line of the test station: what follows "station" and "decode"
/// on the bench's command line.
#ifndef BENCH_STATION_STATIONCOMMAND_H
#define BENCH_STATION_STATIONCOMMAND_H

#include <QStringList>

/// Exit statuses of both commands.
enum StationExit {
    StationOk = 0,        ///< every command was answered as it should; every frame is right
    StationRefused = 1,   ///< a request was refused (NAK, NA), a replay differs; a frame is wrong
    StationUsage = 2,     ///< the command line or a command is wrong
    StationLineFault = 3, ///< the line failed, or a damaged frame came
    StationTimeOut = 4    ///< an answer did not come in time
};

/// Talks to a keypad: one command from the arguments, or commands from
/// standard input, one a line.
/// @param arguments  of the subcommand, its name first
/// @return a StationExit; of several commands the first that failed decides
int stationCommand(const QStringList &arguments);

/// Explains frames from the arguments, or from the lines of standard input.
/// @param arguments  of the subcommand, its name first
/// @return a StationExit
int decodeCommand(const QStringList &arguments);

#endif
