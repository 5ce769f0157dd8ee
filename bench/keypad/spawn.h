/// Starts programs: from a process that may have threads, or in the place of this one.
#ifndef BENCH_KEYPAD_SPAWN_H
#define BENCH_KEYPAD_SPAWN_H

#include <QString>
#include <QStringList>

#include <sys/types.h>

/// @param input   becomes its standard input; stays open here
/// @param output  becomes its standard output, -1 for this process's own
/// @return its process number, -1 with errno on failure
pid_t spawnProgram(const QString &program, const QStringList &arguments, int input,
                   int output = -1);

/// Runs a program in the place of this one, with its process number and its open files.
/// @return only when that fails, with the reason
QString becomeProgram(const QString &program, const QStringList &arguments);

/// The program called @p name of this build: next to the running one, or in the folder
/// where it was built.
QString benchProgram(const QString &name);

#endif
