/// A program of the factory's that is run after each unit: it prints a label, say, or
/// informs another system.
#ifndef BENCH_LINE_AFTERUNIT_H
#define BENCH_LINE_AFTERUNIT_H

#include "bench/line/interrupt.h"

#include <QString>

constexpr int DefaultAfterLimitMs = 30000;

/// Runs @p program with the path of a record as its argument and waits until it has ended, for
/// @p limitMs at most, or two seconds once the run is interrupted; then it is killed. What it
/// prints is not shown.
/// @param interrupt  may be null
/// @return why it failed, in one line, with the last thing it said; empty when it did not
QString runAfterUnit(const QString &program, const QString &record, int limitMs,
                     const Interrupt *interrupt = nullptr);

#endif
