/// The outcome of a run as JUnit XML, which continuous integration and test
/// management systems read.
#ifndef BENCH_LINE_JUNIT_H
#define BENCH_LINE_JUNIT_H

#include "bench/line/record.h"

/// One test suite for each unit, one test case for each step: a failure for what is not
/// as it should be, an error for a time-out and for what could not be tested, skipped for
/// what was not run.
QByteArray toJunit(const QList<UnitRecord> &units);

#endif
