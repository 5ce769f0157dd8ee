#include "bench/line/record.h"

#include "tests/bench/line/samplerecord.h"
#include "tests/support/testprogram.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QTest>

class TestRecord : public QObject
{
    Q_OBJECT

private slots:
    void theWorstDecides();
    void theFirstOfTheWorstGivesTheReason();
    void aGoodUnitHasNoReason();
    void aUnitWithoutStepsKeepsItsOutcome();
    void exitStatusesTellOutcomesApart();
    void showsValues();
    void showsSeconds_data();
    void showsSeconds();
    void writesAUnit();
    void writesWhoAndWithWhat();
    void tellsFirstPassesFromFinalOnes();
    void writesSteps();
    void writesEveryAttempt();
    void aRunThatHasNotEndedIsNoPass();
    void anInterruptDecides();
};

void TestRecord::theWorstDecides()
{
    UnitRecord unit = sampleRecord();
    unit.conclude();
    QCOMPARE(outcomeName(unit.outcome), QStringLiteral("error"));
    QCOMPARE(unit.reason, QStringLiteral("step 4 \"Died\": the tool crashed"));
    unit.steps.removeAt(3);
    unit.outcome = Outcome::NotRun;
    unit.conclude();
    QCOMPARE(outcomeName(unit.outcome), QStringLiteral("time-out"));
    QCOMPARE(unit.reason, QStringLiteral("step 3 \"Key\": expected ACK; nothing came in 5 s"));
}

void TestRecord::theFirstOfTheWorstGivesTheReason()
{
    UnitRecord unit;
    unit.steps = {sampleStep(1, "a", Outcome::Pass, 0), sampleStep(2, "b", Outcome::Fail, 0),
                  sampleStep(3, "c", Outcome::Fail, 0)};
    unit.steps[1].reason = QStringLiteral("one");
    unit.steps[2].reason = QStringLiteral("two");
    unit.conclude();
    QCOMPARE(outcomeName(unit.outcome), QStringLiteral("fail"));
    QCOMPARE(unit.reason, QStringLiteral("step 2 \"b\": one"));
}

void TestRecord::aGoodUnitHasNoReason()
{
    UnitRecord unit;
    unit.steps = {sampleStep(1, "a", Outcome::Pass, 0)};
    unit.conclude();
    QCOMPARE(outcomeName(unit.outcome), QStringLiteral("pass"));
    QCOMPARE(unit.reason, QString());
}

void TestRecord::aUnitWithoutStepsKeepsItsOutcome()
{
    UnitRecord unit;
    unit.outcome = Outcome::Error;
    unit.reason = QStringLiteral("no keypad");
    unit.conclude();
    QCOMPARE(outcomeName(unit.outcome), QStringLiteral("error"));
    QCOMPARE(unit.reason, QStringLiteral("no keypad"));
}

void TestRecord::exitStatusesTellOutcomesApart()
{
    QCOMPARE(exitStatus(Outcome::Pass), 0);
    QCOMPARE(exitStatus(Outcome::Fail), 1);
    QCOMPARE(exitStatus(Outcome::TimeOut), 3);
    QCOMPARE(exitStatus(Outcome::Error), 4);
    QCOMPARE(exitStatus(Outcome::Interrupted), 4);
    QCOMPARE(exitStatus(Outcome::NotRun), 4); // nothing run is nothing passed
}

void TestRecord::showsValues()
{
    const UnitRecord unit = sampleRecord();
    QCOMPARE(unit.steps.at(0).value(), QStringLiteral("voltage 12345 mV"));
    QCOMPARE(unit.steps.at(0).limits(), QStringLiteral("11000 to 14500 mV"));
    QCOMPARE(unit.steps.at(1).value(), QString());
    QCOMPARE(unit.steps.at(1).shownByBoard(), QStringLiteral("sys/a=1"));

    StepRecord two = unit.steps.at(0);
    two.measured.append(two.measured.first());
    two.measured[1].name = QStringLiteral("current");
    two.measured[1].value = QVariant();
    two.measured[1].unit.clear();
    two.measured[1].limits = QStringLiteral("at most 3");
    QCOMPARE(two.value(), QStringLiteral("voltage 12345 mV, current nothing"));
    QCOMPARE(two.limits(), QStringLiteral("voltage 11000 to 14500 mV, current at most 3"));
    two.measured.clear();
    QCOMPARE(two.value(), QStringLiteral("voltage reading '00012345'"));
    two.received = QStringList({QStringLiteral("ACK"), QStringLiteral("ready")});
    QCOMPARE(two.value(), QStringLiteral("ACK, ready"));
    two.received += {QStringLiteral("ACK"), QStringLiteral("NAK")};
    QCOMPARE(two.value(), QStringLiteral("NAK"));
}

void TestRecord::showsSeconds_data()
{
    QTest::addColumn<double>("seconds");
    QTest::addColumn<QString>("text");
    QTest::newRow("none") << 0.0 << "0.0 ms";
    QTest::newRow("tenths") << 0.00042 << "0.4 ms";
    QTest::newRow("milliseconds") << 0.0521 << "52 ms";
    QTest::newRow("seconds") << 3.381 << "3.38 s";
    QTest::newRow("tens") << 12.345 << "12.3 s";
}

void TestRecord::showsSeconds()
{
    QFETCH(double, seconds);
    QTEST(shownSeconds(seconds), "text");
}

void TestRecord::writesAUnit()
{
    UnitRecord unit = sampleRecord();
    unit.conclude();
    QJsonObject json = toJson(unit);
    QCOMPARE(json.take(QStringLiteral("steps")).toArray().size(), 5);
    const QByteArray wanted = R"({
        "record": 1, "plan": "production", "title": "Test of <units>",
        "plan_file": "plans/production.json", "number": 3, "attempt": 1,
        "serial_number": "KP-0042",
        "station": "desk 3", "unit": "virtual keypad", "faults": ["led-missing"],
        "tool_version": "0.5", "time": { "tool": 0, "flash": 0, "operator": 0, "bench": 0 },
        "start": "2026-03-01T09:30:00.000+01:00",
        "end": "2026-03-01T09:30:12.345+01:00", "seconds": 12.345, "ended": true,
        "outcome": "error", "reason": "step 4 \"Died\": the tool crashed" })";
    QCOMPARE(json, QJsonDocument::fromJson(wanted).object());
}

void TestRecord::writesWhoAndWithWhat()
{
    UnitRecord unit = sampleRecord();
    unit.id = QStringLiteral("one");
    unit.planSha256 = QStringLiteral("abc");
    unit.planIncludes = {{QStringLiteral("lights.json"), QStringLiteral("def")}};
    unit.variant = QStringLiteral("model-b");
    unit.variables = {{QStringLiteral("low"), 9000}};
    unit.attempt = 2;
    unit.operatorName = QStringLiteral("Ann");
    unit.fixture = QStringLiteral("left");
    unit.benchVersion = QStringLiteral("0.6");
    unit.time.tool = 1.5;
    unit.time.operatorAt = 2;
    const QJsonObject json = toJson(unit);
    const QByteArray wanted = R"({
        "id": "one", "plan_sha256": "abc", "plan_includes": { "lights.json": "def" },
        "variant": "model-b", "variables": { "low": 9000 }, "attempt": 2, "operator": "Ann",
        "fixture": "left", "bench_version": "0.6",
        "time": { "tool": 1.5, "flash": 0, "operator": 2, "bench": 0 } })";
    const QJsonObject expected = QJsonDocument::fromJson(wanted).object();
    for (auto it = expected.begin(); it != expected.end(); ++it)
        QCOMPARE(json.value(it.key()), it.value());
    QCOMPARE(unit.time.shown(), QStringLiteral("tool 1.50 s, operator 2.00 s"));
}

/// Of three units one passes at once, one at its second attempt, one never.
void TestRecord::tellsFirstPassesFromFinalOnes()
{
    const auto record = [](int number, int attempt, Outcome outcome) {
        UnitRecord unit;
        unit.number = number;
        unit.attempt = attempt;
        unit.outcome = outcome;
        return unit;
    };
    const QList<UnitRecord> records = {
        record(1, 1, Outcome::Pass), record(2, 1, Outcome::Fail),    record(2, 2, Outcome::Pass),
        record(3, 1, Outcome::Fail), record(3, 2, Outcome::TimeOut), record(4, 1, Outcome::NotRun)};
    const Yield yield = Yield::of(records);
    QCOMPARE(yield.units, 4);
    QCOMPARE(yield.tested, 3);
    QCOMPARE(yield.firstPass, 1);
    QCOMPARE(yield.finalPass, 2);
    QCOMPARE(yield.retested, 2);
    QCOMPARE(yield.percent(yield.finalPass), QStringLiteral("50.0"));
    QCOMPARE(Yield().percent(0), QStringLiteral("0.0"));
    QCOMPARE(lastAttempts(records), (QList<bool>{true, false, true, false, true, true}));
}

void TestRecord::writesSteps()
{
    const QJsonArray steps = toJson(sampleRecord()).value(QStringLiteral("steps")).toArray();
    const QByteArray wanted = R"([
        { "step": 1, "name": "Volts", "group": "group", "outcome": "pass",
          "start": "2026-03-01T09:30:00.125+01:00", "seconds": 0.052, "tries": 1,
          "sent": "voltage", "received": ["voltage reading '00012345'"],
          "measured": [ { "name": "voltage", "value": 12345, "min": 11000, "max": 14500,
                          "unit": "mV", "limits": "11000 to 14500 mV", "good": true } ],
          "checks": [], "picture": "volts.png" },
        { "step": 2, "name": "Light", "group": "group", "outcome": "fail",
          "start": "2026-03-01T09:30:00.125+01:00", "seconds": 0.25, "tries": 2, "received": [],
          "measured": [],
          "checks": [ { "check": "store 1 to /sys/a", "result": "broken", "found": "no store" },
                      { "check": "store 1 to /sys/a", "result": "held" },
                      { "check": "store 1 to /sys/a", "result": "skipped" } ],
          "reason": "expected ACK; came NAK", "expected": "ACK", "came": "NAK",
          "raw": "7E000A00053202977F\\r\\n", "notes": ["Press <it>."] },
        { "step": 3, "name": "Key", "group": "group", "outcome": "time-out",
          "start": "2026-03-01T09:30:00.125+01:00", "seconds": 5, "tries": 1, "received": [],
          "measured": [], "checks": [], "reason": "expected ACK; nothing came in 5 s",
          "expected": "ACK", "came": "nothing" },
        { "step": 4, "name": "Died", "group": "group", "outcome": "error",
          "start": "2026-03-01T09:30:00.125+01:00", "seconds": 0.5, "tries": 1, "received": [],
          "measured": [], "checks": [], "reason": "the tool crashed" },
        { "step": 5, "name": "Rest", "group": "group", "outcome": "not run" } ])";
    const QJsonArray expected = QJsonDocument::fromJson(wanted).array();
    for (int i = 0; i < expected.size(); ++i)
        QCOMPARE(steps.at(i).toObject(), expected.at(i).toObject());
    QCOMPARE(steps.size(), expected.size());
}

void TestRecord::writesEveryAttempt()
{
    UnitRecord unit;
    StepRecord step = sampleStep(1, "Light", Outcome::Pass, 0.75);
    step.tries = 2;
    AttemptRecord first = sampleStep(1, "", Outcome::Fail, 0.5);
    first.sent = QStringLiteral("backlight 100");
    first.received = QStringList{QStringLiteral("NAK")};
    first.reason = QStringLiteral("expected ACK; came NAK");
    first.expected = QStringLiteral("ACK");
    first.came = QStringLiteral("NAK");
    first.raw = "7E000A00053202977F\\r\\n";
    first.notes = QStringList{QStringLiteral("Press it.")};
    AttemptRecord second = sampleStep(1, "", Outcome::Pass, 0.25);
    second.sent = first.sent;
    second.received = QStringList{QStringLiteral("ACK")};
    step.attempts = {first, second};
    unit.steps = {step};
    const QByteArray wanted = R"([
        { "outcome": "fail", "start": "2026-03-01T09:30:00.125+01:00", "seconds": 0.5,
          "sent": "backlight 100", "received": ["NAK"], "measured": [], "checks": [],
          "reason": "expected ACK; came NAK", "expected": "ACK", "came": "NAK",
          "raw": "7E000A00053202977F\\r\\n", "notes": ["Press it."] },
        { "outcome": "pass", "start": "2026-03-01T09:30:00.125+01:00", "seconds": 0.25,
          "sent": "backlight 100", "received": ["ACK"], "measured": [], "checks": [] } ])";
    const QJsonArray steps = toJson(unit).value(QStringLiteral("steps")).toArray();
    QCOMPARE(steps.at(0)[QStringLiteral("attempts")].toArray(),
             QJsonDocument::fromJson(wanted).array());
    QCOMPARE(steps.at(0)[QStringLiteral("outcome")].toString(), QStringLiteral("pass"));
}

void TestRecord::aRunThatHasNotEndedIsNoPass()
{
    UnitRecord unit;
    unit.steps = {sampleStep(1, "a", Outcome::Pass, 0)};
    QJsonObject json = toJson(unit);
    QCOMPARE(json.value(QStringLiteral("ended")), QJsonValue(false));
    QCOMPARE(json.value(QStringLiteral("outcome")).toString(), QStringLiteral("interrupted"));
    QCOMPARE(json.value(QStringLiteral("reason")).toString(),
             QStringLiteral("the run has not ended"));
    QCOMPARE(json.value(QStringLiteral("steps")).toArray().size(), 1);
    unit.conclude();
    json = toJson(unit);
    QCOMPARE(json.value(QStringLiteral("ended")), QJsonValue(true));
    QCOMPARE(json.value(QStringLiteral("outcome")).toString(), QStringLiteral("pass"));
}

/// A unit that failed a step might have failed others too, had it been let.
void TestRecord::anInterruptDecides()
{
    UnitRecord unit;
    unit.steps = {sampleStep(1, "a", Outcome::Fail, 0), sampleStep(2, "b", Outcome::Interrupted, 0),
                  sampleStep(3, "c", Outcome::NotRun, 0)};
    unit.steps[1].reason = QStringLiteral("interrupted");
    unit.conclude();
    QCOMPARE(outcomeName(unit.outcome), QStringLiteral("interrupted"));
    QCOMPARE(unit.reason, QStringLiteral("step 2 \"b\": interrupted"));
}

MFTOOL_TEST(TestRecord, EventLoop)
#include "tst_record.moc"
