#include "bench/line/linerun.h"

#include <QTest>

class TestLineRun : public QObject
{
    Q_OBJECT

private slots:
    void countsSerialNumbersUp_data();
    void countsSerialNumbersUp();
};

void TestLineRun::countsSerialNumbersUp_data()
{
    QTest::addColumn<QString>("first");
    QTest::addColumn<int>("by");
    QTest::addColumn<QString>("result");
    QTest::newRow("the first itself") << "KP-0009" << 0 << "KP-0009";
    QTest::newRow("the next") << "KP-0009" << 1 << "KP-0010";
    QTest::newRow("wider than it was") << "KP-99" << 1 << "KP-100";
    QTest::newRow("only digits") << "0041" << 2 << "0043";
    QTest::newRow("digits in front stay") << "24A7" << 5 << "24A12";
    QTest::newRow("no digits at the end") << "unit" << 1 << "unit-2";
    QTest::newRow("too many digits to count")
        << "12345678901234567899" << 1 << "12345678901234567900";
    QTest::newRow("none") << "" << 3 << "";
}

void TestLineRun::countsSerialNumbersUp()
{
    QFETCH(QString, first);
    QFETCH(int, by);
    QTEST(LineRun::countedUp(first, by), "result");
}

QTEST_GUILESS_MAIN(TestLineRun)
#include "tst_linerun.moc"
