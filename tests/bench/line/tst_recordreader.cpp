#include "bench/line/recordreader.h"

#include "tests/bench/line/samplerecord.h"
#include "tests/support/testprogram.h"

#include <QJsonArray>
#include <QTest>

Q_DECLARE_METATYPE(Outcome)

namespace
{

/// A record that has all that a record can have.
UnitRecord fullRecord()
{
    UnitRecord unit = sampleRecord();
    unit.id = QStringLiteral("3f2504e0-4f89-41d3-9a0c-0305e82c3301");
    unit.planSha256 = QStringLiteral("4e07");
    unit.planIncludes = {{QStringLiteral("lights.json"), QStringLiteral("6b86")}};
    unit.variant = QStringLiteral("model-b.json");
    unit.variables = {{QStringLiteral("low"), 10500},
                      {QStringLiteral("version"), QStringLiteral("20260105 4.1")}};
    unit.attempt = 2;
    unit.operatorName = QStringLiteral("Ann");
    unit.fixture = QStringLiteral("left");
    unit.benchVersion = QStringLiteral("0.9");
    unit.time = {1.5, 8.25, 2.125, 0.47};
    unit.conclude();
    StepRecord &volts = unit.steps[0];
    volts.attempts = {volts, volts};
    volts.attempts[0].outcome = Outcome::Fail;
    volts.attempts[0].reason = QStringLiteral("voltage 9 mV is not 11000 to 14500 mV");
    Measurement text;
    text.name = QStringLiteral("version");
    text.value = QStringLiteral("1.2");
    text.limits = QStringLiteral("1.2");
    volts.measured.append(text);
    Measurement nothing;
    nothing.name = QStringLiteral("lamp");
    volts.measured.append(nothing);
    unit.steps[1].lostPicture = QStringLiteral("light.png could not be written: full");
    return unit;
}

QString sorted(QStringList names)
{
    names.removeDuplicates();
    names.sort();
    return names.join(QLatin1Char(' '));
}

} // namespace

class TestRecordReader : public QObject
{
    Q_OBJECT

private slots:
    void theSampleHasAllThatARecordCanHave();
    void readsAllThatWasWritten();
    void readsValuesAsTheyWere();
    void readsARecordThatLacksMost();
    void readsOutcomes_data();
    void readsOutcomes();
};

/// Whoever gives a record another member gives it to the sample, too.
void TestRecordReader::theSampleHasAllThatARecordCanHave()
{
    const QJsonObject record = toJson(fullRecord());
    QCOMPARE(sorted(record.keys()),
             QStringLiteral("attempt bench_version end ended faults fixture id number operator "
                            "outcome plan plan_file plan_includes plan_sha256 reason record "
                            "seconds serial_number start station steps time title tool_version "
                            "unit variables variant"));
    QStringList ofSteps;
    const QJsonArray steps = record.value(QStringLiteral("steps")).toArray();
    for (const QJsonValue &step : steps)
        ofSteps += step.toObject().keys();
    QCOMPARE(sorted(ofSteps),
             QStringLiteral("attempts came checks expected group lost_picture measured name notes "
                            "outcome picture raw reason received seconds sent start step tries"));
}

void TestRecordReader::readsAllThatWasWritten()
{
    const QJsonObject written = toJson(fullRecord());
    const QJsonObject read = toJson(recordFromJson(written));
    const QStringList names = written.keys();
    for (const QString &name : names)
        QCOMPARE(read.value(name), written.value(name));
    QCOMPARE(read.keys(), names);
}

void TestRecordReader::readsValuesAsTheyWere()
{
    const UnitRecord read = recordFromJson(toJson(fullRecord()));
    QCOMPARE(read.time.operatorAt, 2.125);
    QCOMPARE(read.variables.value(QStringLiteral("low")).toInt(), 10500);
    QCOMPARE(read.start.toMSecsSinceEpoch(), Q_INT64_C(1772353800000));
    QCOMPARE(read.steps.at(0).attempts.at(0).outcome, Outcome::Fail);
    const QList<Measurement> measured = read.steps.at(0).measured;
    QCOMPARE(measured.at(0).shown(), QStringLiteral("12345 mV"));
    QCOMPARE(measured.at(1).shown(), QStringLiteral("1.2"));
    QCOMPARE(measured.at(2).shown(), QStringLiteral("nothing"));
    QCOMPARE(read.steps.at(1).checks.at(0).brief, QStringLiteral("store 1 to /sys/a"));
    QCOMPARE(read.lostPicture(), QStringLiteral("light.png could not be written: full"));
}

/// As the first bench wrote it, or a power cut left it.
void TestRecordReader::readsARecordThatLacksMost()
{
    const UnitRecord read = recordFromJson({{QStringLiteral("plan"), QStringLiteral("p")}});
    QCOMPARE(read.plan, QStringLiteral("p"));
    QCOMPARE(read.attempt, 1);
    QCOMPARE(read.outcome, Outcome::NotRun);
    QVERIFY(!read.ended);
    QCOMPARE(read.time.bench, 0.0);
    QVERIFY(read.steps.isEmpty());
}

void TestRecordReader::readsOutcomes_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<Outcome>("outcome");
    QTest::newRow("pass") << "pass" << Outcome::Pass;
    QTest::newRow("fail") << "fail" << Outcome::Fail;
    QTest::newRow("time-out") << "time-out" << Outcome::TimeOut;
    QTest::newRow("error") << "error" << Outcome::Error;
    QTest::newRow("interrupted") << "interrupted" << Outcome::Interrupted;
    QTest::newRow("not run") << "not run" << Outcome::NotRun;
    QTest::newRow("none") << "perhaps" << Outcome::NotRun;
}

void TestRecordReader::readsOutcomes()
{
    QFETCH(QString, name);
    QTEST(outcomeFromName(name), "outcome");
}

MFTOOL_TEST(TestRecordReader, EventLoop)
#include "tst_recordreader.moc"
