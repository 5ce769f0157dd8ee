/// Runs a program that must end with the bench, however the bench ends.
#ifndef BENCH_KEYPAD_GUARD_H
#define BENCH_KEYPAD_GUARD_H

/// Runs @p arguments (program first, ended by null) until it ends or until
/// standard input does, and then asks it to terminate. Its standard error is
/// thrown away. @return exit status
int runGuarded(char **arguments);

#endif
