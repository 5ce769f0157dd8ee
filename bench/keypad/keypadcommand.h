/// "bench keypad": a virtual keypad for a person.
#ifndef BENCH_KEYPAD_KEYPADCOMMAND_H
#define BENCH_KEYPAD_KEYPADCOMMAND_H

#include <QStringList>

/// Runs until the tool ends, until "quit" or the end of standard input. @return exit status
int runKeypadCommand(const QStringList &arguments);

#endif
