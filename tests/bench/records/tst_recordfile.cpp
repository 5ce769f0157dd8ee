#include "bench/records/recordfile.h"

#include "tests/bench/records/sampleattempt.h"
#include "tests/support/testprogram.h"

#include <QJsonDocument>
#include <QTemporaryDir>

class TestRecordFile : public QObject
{
    Q_OBJECT

private slots:
    void readsARecord();
    void readsStepsThatWereRun();
    void readsARunThatNobodyEnded();
    void readsARecordWithoutNewerNames();
    void takesTheVariantsName();
    void makesAnIdFromWhatTellsRunsApart();
    void takesTheDayFromTheStationsClock();
    void namesTheStepThatDecided_data();
    void namesTheStepThatDecided();
    void refusesOtherFiles_data();
    void refusesOtherFiles();
    void namesTheFileThatItCannotRead();

private:
    static QByteArray without(const QStringList &names);
};

/// The sample as an older bench would have written it.
QByteArray TestRecordFile::without(const QStringList &names)
{
    QJsonObject object = SampleAttempt().object();
    for (const QString &name : names)
        object.remove(name);
    return QJsonDocument(object).toJson();
}

void TestRecordFile::readsARecord()
{
    const QByteArray json = SampleAttempt().json();
    QString error;
    const std::optional<RecordFile> record = RecordFile::fromJson(json, &error);
    QVERIFY2(record, qPrintable(error));
    QCOMPARE(record->id, QString("a0000000-0000-0000-0000-000000000001"));
    QCOMPARE(record->serialNumber, QString("KP-0001"));
    QCOMPARE(record->plan, QString("production"));
    QCOMPARE(record->title, QString("Test of units"));
    QCOMPARE(record->planSum, QString("4e07"));
    QCOMPARE(record->variant, QString("current=20, lamp=red"));
    QCOMPARE(record->station, QString("line-1"));
    QCOMPARE(record->fixture, QString("left"));
    QCOMPARE(record->operatorName, QString("Ada"));
    QCOMPARE(record->unit, QString("/dev/ttyUSB0"));
    QCOMPARE(record->toolVersion, QString("1.2"));
    QCOMPARE(record->benchVersion, QString("0.9"));
    QCOMPARE(record->start, Q_INT64_C(1772434800000)); // 2026-03-02 07:00 UTC
    QCOMPARE(record->seconds, 12.5);
    QCOMPARE(record->attempt, 1);
    QCOMPARE(record->outcome, QString("pass"));
    QCOMPARE(record->reason, QString());
    QCOMPARE(record->failedStep, QString());
    QCOMPARE(record->json, json);
}

void TestRecordFile::readsStepsThatWereRun()
{
    const QList<RecordFile::Step> steps = SampleAttempt().record().steps;
    QCOMPARE(steps.size(), 2);
    const RecordFile::Step &volts = steps.first();
    QCOMPARE(volts.number, 1);
    QCOMPARE(volts.name, QString("Volts"));
    QCOMPARE(volts.outcome, QString("pass"));
    QCOMPARE(volts.seconds, 0.5);
    QCOMPARE(volts.tries, 2);
    QCOMPARE(volts.measured.size(), 1);
    const RecordFile::Measurement &voltage = volts.measured.first();
    QCOMPARE(voltage.name, QString("voltage"));
    QCOMPARE(voltage.value.value_or(0), 12000.0);
    QCOMPARE(voltage.unit, QString("mV"));
    QCOMPARE(voltage.minimum.value_or(0), 11000.0);
    QCOMPARE(voltage.maximum.value_or(0), 14500.0);
    QVERIFY(voltage.good);
    const RecordFile::Measurement &version = steps.at(1).measured.first();
    QVERIFY(!version.value);
    QCOMPARE(version.text, QString("1.2"));
    QVERIFY(!version.minimum && !version.maximum);
}

void TestRecordFile::readsARunThatNobodyEnded()
{
    SampleAttempt attempt;
    attempt.ended = false;
    QCOMPARE(attempt.record().outcome, QString("not ended"));
    QCOMPARE(attempt.record().failedStep, QString());
}

void TestRecordFile::readsARecordWithoutNewerNames()
{
    QString error;
    const std::optional<RecordFile> record =
        RecordFile::fromJson(without({"id", "plan_sha256", "operator", "fixture", "attempt",
                                      "variables", "bench_version", "ended"}),
                             &error);
    QVERIFY2(record, qPrintable(error));
    QCOMPARE(record->outcome, QString("pass"));
    QCOMPARE(record->attempt, 1);
    QCOMPARE(record->variant, QString());
    QCOMPARE(record->steps.size(), 2);
}

void TestRecordFile::takesTheVariantsName()
{
    QJsonObject object = SampleAttempt().object();
    object.insert("variant", "export");
    QString error;
    QCOMPARE(RecordFile::fromJson(QJsonDocument(object).toJson(), &error)->variant,
             QString("export"));
}

/// However often it is read it is the same record; a later run is another one.
void TestRecordFile::makesAnIdFromWhatTellsRunsApart()
{
    SampleAttempt attempt;
    attempt.id.clear();
    const QString id = attempt.record().id;
    QCOMPARE(id.size(), 36);
    QCOMPARE(attempt.record().id, id);
    attempt.start = "2026-03-02T08:00:00.001+01:00";
    QVERIFY(attempt.record().id != id);
}

void TestRecordFile::takesTheDayFromTheStationsClock()
{
    SampleAttempt attempt;
    attempt.start = "2026-03-02T00:30:00.000+01:00"; // the day before in UTC
    QCOMPARE(attempt.record().day, QString("2026-03-02"));
}

void TestRecordFile::namesTheStepThatDecided_data()
{
    QTest::addColumn<QString>("outcome");
    QTest::addColumn<QString>("step");
    QTest::newRow("pass") << "pass"
                          << "";
    QTest::newRow("fail") << "fail"
                          << "Volts";
    QTest::newRow("time-out") << "time-out"
                              << "Volts";
}

void TestRecordFile::namesTheStepThatDecided()
{
    QFETCH(QString, outcome);
    SampleAttempt attempt;
    attempt.outcome = outcome;
    QTEST(attempt.record().failedStep, "step");
    QCOMPARE(attempt.record().outcome, outcome);
}

void TestRecordFile::refusesOtherFiles_data()
{
    QTest::addColumn<QByteArray>("json");
    QTest::addColumn<QString>("reason");
    QTest::newRow("empty") << QByteArray() << "illegal value";
    QTest::newRow("cut") << SampleAttempt().json().left(200) << "";
    QTest::newRow("no object") << QByteArray("[1]") << "not a record of a unit";
    QTest::newRow("something else")
        << QByteArray("{\"start\":\"2026-03-02T08:00:00\"}") << "not a record of a unit";
    QTest::newRow("no start") << without({"start"}) << "not a record of a unit";
}

void TestRecordFile::refusesOtherFiles()
{
    QFETCH(QByteArray, json);
    QFETCH(QString, reason);
    QString error;
    QVERIFY(!RecordFile::fromJson(json, &error));
    QVERIFY(!error.isEmpty());
    if (!reason.isEmpty())
        QCOMPARE(error, reason);
}

void TestRecordFile::namesTheFileThatItCannotRead()
{
    const QTemporaryDir dir;
    const QString path = dir.filePath("record.json");
    QString error;
    QVERIFY(!RecordFile::load(path, &error));
    QCOMPARE(error, path + ": No such file or directory");
    QFile file(path);
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write("{}");
    file.close();
    QVERIFY(!RecordFile::load(path, &error));
    QCOMPARE(error, path + ": not a record of a unit");
}

MFTOOL_TEST(TestRecordFile, NoApplication)
#include "tst_recordfile.moc"
