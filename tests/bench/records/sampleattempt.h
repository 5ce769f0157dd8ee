/// A record.json of one attempt at a unit, for the tests of what is made of many.
#ifndef TESTS_BENCH_RECORDS_SAMPLEATTEMPT_H
#define TESTS_BENCH_RECORDS_SAMPLEATTEMPT_H

#include "bench/records/recordfile.h"

#include <QByteArray>
#include <QJsonObject>

/// What tells one attempt from another; the rest is the same in all.
struct SampleAttempt {
    QString id = QStringLiteral("a0000000-0000-0000-0000-000000000001");
    QString serialNumber = QStringLiteral("KP-0001");
    QString start = QStringLiteral("2026-03-02T08:00:00.000+01:00");
    QString plan = QStringLiteral("production");
    QString station = QStringLiteral("line-1");
    QString outcome = QStringLiteral("pass"); ///< also of the first step
    double volts = 12000;                     ///< measured by the first step, 11000 to 14500 mV
    bool ended = true;
    int attempt = 1;

    /// Two steps that were run, "Volts" and "Version", and one that was not, "Lamp".
    QJsonObject object() const;
    QByteArray json() const;
    RecordFile record() const;
};

#endif
