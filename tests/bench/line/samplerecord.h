/// A record with a step of every outcome, for the tests of what is written from one.
#ifndef TESTS_BENCH_LINE_SAMPLERECORD_H
#define TESTS_BENCH_LINE_SAMPLERECORD_H

#include "bench/line/record.h"

#include <QTimeZone>

inline StepRecord sampleStep(int number, const char *name, Outcome outcome, double seconds)
{
    StepRecord step;
    step.number = number;
    step.name = QString::fromLatin1(name);
    step.group = QStringLiteral("group");
    step.outcome = outcome;
    step.start = QDateTime(QDate(2026, 3, 1), QTime(9, 30, 0, 125), QTimeZone(3600));
    step.seconds = seconds;
    step.tries = 1;
    return step;
}

inline UnitRecord sampleRecord()
{
    UnitRecord unit;
    unit.plan = QStringLiteral("production");
    unit.planTitle = QStringLiteral("Test of <units>");
    unit.planFile = QStringLiteral("plans/production.json");
    unit.number = 3;
    unit.serialNumber = QStringLiteral("KP-0042");
    unit.station = QStringLiteral("desk 3");
    unit.unit = QStringLiteral("virtual keypad");
    unit.faults = QStringList{QStringLiteral("led-missing")};
    unit.toolVersion = QStringLiteral("0.5");
    unit.start = QDateTime(QDate(2026, 3, 1), QTime(9, 30, 0), QTimeZone(3600));
    unit.end = unit.start.addMSecs(12345);

    StepRecord volts = sampleStep(1, "Volts", Outcome::Pass, 0.052);
    volts.sent = QStringLiteral("voltage");
    volts.received = QStringList{QStringLiteral("voltage reading '00012345'")};
    Measurement measured;
    measured.name = QStringLiteral("voltage");
    measured.value = 12345;
    measured.unit = QStringLiteral("mV");
    measured.min = 11000;
    measured.max = 14500;
    measured.limits = QStringLiteral("11000 to 14500 mV");
    measured.good = true;
    volts.measured.append(measured);
    volts.picture = QStringLiteral("volts.png");

    StepRecord light = sampleStep(2, "Light", Outcome::Fail, 0.25);
    light.tries = 2;
    light.expected = QStringLiteral("ACK");
    light.came = QStringLiteral("NAK");
    light.raw = "7E000A00053202977F\\r\\n";
    light.reason = QStringLiteral("expected ACK; came NAK");
    light.notes = QStringList{QStringLiteral("Press <it>.")};
    CheckRecord check;
    check.what = QStringLiteral("store 1 to /sys/a");
    check.brief = QStringLiteral("sys/a=1");
    check.result = CheckRecord::Broken;
    check.found = QStringLiteral("no store");
    light.checks.append(check);
    check.result = CheckRecord::Held;
    check.found.clear();
    light.checks.append(check);
    check.result = CheckRecord::Skipped;
    light.checks.append(check);

    StepRecord key = sampleStep(3, "Key", Outcome::TimeOut, 5);
    key.expected = QStringLiteral("ACK");
    key.came = QStringLiteral("nothing");
    key.reason = QStringLiteral("expected ACK; nothing came in 5 s");

    StepRecord died = sampleStep(4, "Died", Outcome::Error, 0.5);
    died.reason = QStringLiteral("the tool crashed");

    StepRecord rest = sampleStep(5, "Rest", Outcome::NotRun, 0);
    rest.tries = 0;
    rest.reason = QStringLiteral("the tool crashed");

    unit.steps = {volts, light, key, died, rest};
    return unit;
}

#endif
