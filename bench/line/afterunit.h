/// A program of the factory's own that is run after each unit: it prints a label, or tells
/// another system.
#ifndef BENCH_LINE_AFTERUNIT_H
#define BENCH_LINE_AFTERUNIT_H

#include <QString>

/// Runs @p program with the path of a record as its argument and waits until it has ended, for
/// @p limitMs at most; then it is killed. What it prints is not shown.
/// @return why it has failed, in one line, with the last that it said; empty when it has not
QString runAfterUnit(const QString &program, const QString &record, int limitMs);

#endif
