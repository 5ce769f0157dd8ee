/// The command line that makes the emulated board: what follows "board" on the
/// bench's command line.
#ifndef BENCH_BOARD_BOARDCOMMAND_H
#define BENCH_BOARD_BOARDCOMMAND_H

#include <QStringList>

/// @param arguments  of the subcommand, its name first
/// @return a BenchExit
int runBoardCommand(const QStringList &arguments);

#endif
