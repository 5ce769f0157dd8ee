/// One page about many records: yields and their trend, what failed, where the measured
/// values are between their limits, what takes long. It needs no other files.
#ifndef BENCH_RECORDS_RECORDSREPORT_H
#define BENCH_RECORDS_RECORDSREPORT_H

#include "bench/records/questions.h"

#include <QByteArray>
#include <QDateTime>

/// Everything that the page shows.
struct RecordsAnswer {
    QString which; ///< of the filter, for a person; empty for all records
    QDateTime time;
    QList<UnitGroup> units;
    QList<StepFailures> failures;
    QList<StepTime> slowest;
    QList<QuantityAnswer> quantities;
};

/// Asks all of it. False with *error when the store does not answer.
bool askAll(const Questions &questions, RecordsAnswer *answer, QString *error);

/// @return HTML, UTF-8
QByteArray recordsReport(const RecordsAnswer &answer);

#endif
