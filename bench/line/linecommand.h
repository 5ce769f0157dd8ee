/// The command line of the production line: what follows "line" on the bench's
/// command line.
#ifndef BENCH_LINE_LINECOMMAND_H
#define BENCH_LINE_LINECOMMAND_H

#include <QStringList>

/// @param arguments  of the subcommand, its name first
/// @return exit status; of several units that of the worst
int runLineCommand(const QStringList &arguments);

#endif
