#include "bench/records/csv.h"

#include "bench/records/store.h"
#include "tests/bench/records/sampleattempt.h"
#include "tests/support/testprogram.h"

#include <QBuffer>
#include <QTemporaryDir>

class TestCsv : public QObject
{
    Q_OBJECT

private slots:
    void quotes_data();
    void quotes();
    void writesRecords();
    void writesMeasuredValues();
    void tellsWhenTheDiskIsFull();
};

void TestCsv::quotes_data()
{
    QTest::addColumn<QStringList>("fields");
    QTest::addColumn<QByteArray>("line");
    QTest::newRow("plain") << QStringList{"a", "", "b c"} << QByteArray("a,,b c");
    QTest::newRow("comma") << QStringList{"a,b"} << QByteArray("\"a,b\"");
    QTest::newRow("quote") << QStringList{"a \"b\""} << QByteArray("\"a \"\"b\"\"\"");
    QTest::newRow("line end") << QStringList{"a\r\nb"} << QByteArray("\"a\r\nb\"");
    QTest::newRow("formula") << QStringList{"=HYPERLINK(\"x\")", "+a", "@a", "-a"}
                             << QByteArray("\"'=HYPERLINK(\"\"x\"\")\",'+a,'@a,'-a");
    QTest::newRow("numbers") << QStringList{"-12.5", "+3", "1e-9"} << QByteArray("-12.5,+3,1e-9");
    QTest::newRow("UTF-8") << QStringList{QString(QChar(0xe9))} << QByteArray("\xc3\xa9");
}

void TestCsv::quotes()
{
    QFETCH(QStringList, fields);
    QTEST(csvLine(fields), "line");
}

void TestCsv::writesRecords()
{
    const QTemporaryDir dir;
    Store store;
    QString error;
    QVERIFY(store.open(dir.filePath("records.sqlite"), Store::Fill, &error));
    SampleAttempt attempt;
    attempt.outcome = "fail";
    attempt.attempt = 2;
    QCOMPARE(store.add(attempt.record(), &error), Store::Stored);
    QBuffer output;
    QVERIFY(output.open(QIODevice::WriteOnly));
    QVERIFY2(writeRecords(Questions(store.database(), {}), &output, &error), qPrintable(error));
    QCOMPARE(output.data(),
             QByteArray("start,serial_number,plan,variant,station,fixture,operator,attempt,seconds,"
                        "outcome,reason\r\n"
                        "2026-03-02T07:00:00.000Z,KP-0001,production,\"current=20, lamp=red\","
                        "line-1,left,Ada,2,12.5,fail,"
                        "\"step 1 \"\"Volts\"\": voltage 9000 mV is below 11000\"\r\n"));
}

void TestCsv::writesMeasuredValues()
{
    const QTemporaryDir dir;
    Store store;
    QString error;
    QVERIFY(store.open(dir.filePath("records.sqlite"), Store::Fill, &error));
    QCOMPARE(store.add(SampleAttempt().record(), &error), Store::Stored);
    QBuffer output;
    QVERIFY(output.open(QIODevice::WriteOnly));
    QVERIFY2(writeValues(Questions(store.database(), {}), &output, &error), qPrintable(error));
    QCOMPARE(
        output.data(),
        QByteArray("start,serial_number,plan,step,name,value,unit,min,max,good\r\n"
                   "2026-03-02T07:00:00.000Z,KP-0001,production,Volts,voltage,12000,mV,11000,14500,"
                   "1\r\n"
                   "2026-03-02T07:00:00.000Z,KP-0001,production,Version,version,1.2,,,,1\r\n"));
}

void TestCsv::tellsWhenTheDiskIsFull()
{
    const QTemporaryDir dir;
    Store store;
    QString error;
    QVERIFY(store.open(dir.filePath("records.sqlite"), Store::Fill, &error));
    QFile full("/dev/full");
    if (!full.open(QIODevice::WriteOnly | QIODevice::Unbuffered))
        QSKIP("there is no /dev/full");
    QVERIFY(!writeRecords(Questions(store.database(), {}), &full, &error));
    QCOMPARE(error, QString("No space left on device"));
}

MFTOOL_TEST(TestCsv, EventLoop)
#include "tst_csv.moc"
