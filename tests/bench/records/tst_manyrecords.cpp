/// What questions cost when there are more and more records. By hand, as many as one likes:
///
///     RECORDS=1000000 STORE=/tmp/many.sqlite build/tests/tests_records tst_manyrecords
///
/// leaves a store to which "bench records report --store /tmp/many.sqlite" can be put.
#include "bench/records/csv.h"
#include "bench/records/recordsreport.h"
#include "bench/records/store.h"
#include "tests/bench/records/generatedstore.h"
#include "tests/support/testprogram.h"

#include <QTemporaryDir>

#include <algorithm>
#include <ctime>

class TestManyRecords : public QObject
{
    Q_OBJECT

private slots:
    void tenTimesTheRecordsCostTenTimesTheTimeAtMost_data();
    void tenTimesTheRecordsCostTenTimesTheTimeAtMost();
    void areAnsweredRight();
    void makesALargeStore();
};

namespace
{

const int Few = 4000;
const int Many = 10 * Few;
const int Times = 5;

using Question = bool (*)(const Store &store);

bool makeReport(const Store &store)
{
    RecordsAnswer answer;
    QString error;
    return askAll(Questions(store.database(), {}), &answer, &error) &&
           !recordsReport(answer).isEmpty();
}

bool makeReportOfOneStation(const Store &store)
{
    RecordFilter filter;
    filter.station = QStringLiteral("line-2");
    RecordsAnswer answer;
    QString error;
    return askAll(Questions(store.database(), filter), &answer, &error) && !answer.units.isEmpty();
}

bool listNewest(const Store &store)
{
    QList<ListedRecord> records;
    QString error;
    return Questions(store.database(), {}).list(50, &records, &error) && records.size() == 50;
}

bool showOne(const Store &store)
{
    RecordFilter filter;
    filter.serialNumber = QStringLiteral("KP-10");
    int attempts = 0;
    QString error;
    return Questions(store.database(), filter)
               .each([&attempts](const ListedRecord &) { ++attempts; }, &error) &&
           attempts == 2;
}

/// Of this process: other programs do not change it much. The least of several.
double processorSeconds(Question question, const Store &store)
{
    double least = 1e9;
    for (int i = 0; i < Times; ++i) {
        const std::clock_t before = std::clock();
        if (!question(store))
            return -1;
        least = std::min(least, static_cast<double>(std::clock() - before) / CLOCKS_PER_SEC);
    }
    return least;
}

} // namespace

Q_DECLARE_METATYPE(Question)

void TestManyRecords::tenTimesTheRecordsCostTenTimesTheTimeAtMost_data()
{
    QTest::addColumn<Question>("question");
    QTest::addColumn<double>("most");
    // What looks at all records may take ten times as long, and twice that on a noisy
    // machine; what looks at few must not notice.
    QTest::newRow("report") << &makeReport << 20.0;
    QTest::newRow("report of a station") << &makeReportOfOneStation << 20.0;
    QTest::newRow("list") << &listNewest << 4.0;
    QTest::newRow("show") << &showOne << 4.0;
}

void TestManyRecords::tenTimesTheRecordsCostTenTimesTheTimeAtMost()
{
    QFETCH(Question, question);
    QFETCH(double, most);
    const QTemporaryDir dir;
    Store few;
    Store many;
    QString error;
    QVERIFY2(few.open(dir.filePath("few.sqlite"), Store::Fill, &error), qPrintable(error));
    QVERIFY2(many.open(dir.filePath("many.sqlite"), Store::Fill, &error), qPrintable(error));
    QVERIFY2(generateRecords(few.database(), Few, &error), qPrintable(error));
    QVERIFY2(generateRecords(many.database(), Many, &error), qPrintable(error));
    const double ofFew = processorSeconds(question, few);
    const double ofMany = processorSeconds(question, many);
    QVERIFY(ofFew >= 0 && ofMany >= 0);
    // The clock's own coarseness counts little, but not nothing.
    QVERIFY2(ofMany <= most * std::max(ofFew, 0.0005),
             qPrintable(QString("%1 s and %2 s").arg(ofFew).arg(ofMany)));
}

void TestManyRecords::areAnsweredRight()
{
    const QTemporaryDir dir;
    Store store;
    QString error;
    QVERIFY2(store.open(dir.filePath("few.sqlite"), Store::Fill, &error), qPrintable(error));
    QVERIFY2(generateRecords(store.database(), 1200, &error), qPrintable(error));
    RecordsAnswer answer;
    QVERIFY2(askAll(Questions(store.database(), {}), &answer, &error), qPrintable(error));
    UnitCount all;
    for (const UnitGroup &group : answer.units)
        all.add(group.count);
    QCOMPARE(all.units, 1100);
    QCOMPARE(all.retested, 100);
    QCOMPARE(all.attempts, 1200);
    qint64 failures = 0;
    for (const StepFailures &step : answer.failures)
        failures += step.records;
    QVERIFY(failures >= 40 && failures <= 60);
    QCOMPARE(answer.slowest.first().step, QString("Step 10"));
    QCOMPARE(answer.slowest.first().runs, 1200);
    QCOMPARE(answer.quantities.size(), 10);
    QCOMPARE(answer.quantities.first().values.count, 1200);
    qint64 inBars = 0;
    for (const qint64 bar : answer.quantities.first().bars)
        inBars += bar;
    QCOMPARE(inBars, 1200);
}

void TestManyRecords::makesALargeStore()
{
    const QString place = qEnvironmentVariable("STORE");
    const int records = qEnvironmentVariableIntValue("RECORDS");
    if (place.isEmpty() || records < 1)
        QSKIP("for measuring by hand, with RECORDS and STORE");
    Store store;
    QString error;
    QVERIFY2(store.open(place, Store::Fill, &error), qPrintable(error));
    QVERIFY2(generateRecords(store.database(), records, &error), qPrintable(error));
}

MFTOOL_TEST(TestManyRecords, EventLoop)
#include "tst_manyrecords.moc"
