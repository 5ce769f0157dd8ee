#include "calibration/calibrationmath.h"
#include "calibration/pointercalibrationdata.h"
#include "tests/support/testprogram.h"

#include <QTest>

#include <limits>

class TestCalibrationMath : public QObject
{
    Q_OBJECT
private slots:
    void averageTruncatesTowardZero_data();
    void averageTruncatesTowardZero();
    void averageOfTheExtremes();
    void diagonalLengthIsTruncated_data();
    void diagonalLengthIsTruncated();
    void sumThatWrapsCountsAsNoLength();
    void diagonalsAgreeWithinTwoPercent_data();
    void diagonalsAgreeWithinTwoPercent();
    void plausibleByTheRightCorners();
    void centreIsNotLookedAt();
};

void TestCalibrationMath::averageTruncatesTowardZero_data()
{
    QTest::addColumn<QPoint>("before");
    QTest::addColumn<QPoint>("now");
    QTest::addColumn<QPoint>("average");
    QTest::newRow("even") << QPoint(10, 20) << QPoint(20, 40) << QPoint(15, 30);
    QTest::newRow("odd") << QPoint(10, 20) << QPoint(11, 23) << QPoint(10, 21);
    QTest::newRow("negative odd") << QPoint(-10, -20) << QPoint(-11, -23) << QPoint(-10, -21);
    QTest::newRow("minus one and zero") << QPoint(-1, 0) << QPoint(0, -1) << QPoint(0, 0);
    QTest::newRow("both signs") << QPoint(-5, 5) << QPoint(2, -2) << QPoint(-1, 1);
    QTest::newRow("unmoved") << QPoint(4095, 7) << QPoint(4095, 7) << QPoint(4095, 7);
}

void TestCalibrationMath::averageTruncatesTowardZero()
{
    QFETCH(QPoint, before);
    QFETCH(QPoint, now);
    QFETCH(QPoint, average);
    QCOMPARE(averageTowardZero(before, now), average);
}

void TestCalibrationMath::averageOfTheExtremes()
{
    const int high = std::numeric_limits<int>::max();
    const int low = std::numeric_limits<int>::min();
    QCOMPARE(averageTowardZero(QPoint(high, low), QPoint(high, low)), QPoint(high, low));
    QCOMPARE(averageTowardZero(QPoint(high, low), QPoint(low, high)), QPoint(0, 0));
}

void TestCalibrationMath::diagonalLengthIsTruncated_data()
{
    QTest::addColumn<QPoint>("to");
    QTest::addColumn<int>("length");
    QTest::newRow("none") << QPoint(100, 200) << 0;
    QTest::newRow("3 4 5") << QPoint(103, 196) << 5;
    QTest::newRow("just below 5") << QPoint(104, 202) << 4; // sqrt(20)
    QTest::newRow("just below 2") << QPoint(101, 201) << 1; // sqrt(2)
    QTest::newRow("12 bits") << QPoint(4195, 4295) << 5791; // sqrt(2) * 4095 = 5791.2
    QTest::newRow("backwards") << QPoint(-3995, -3895) << 5791;
    QTest::newRow("just within 32 bits") << QPoint(100 + 46340, 200) << 46340;
}

void TestCalibrationMath::diagonalLengthIsTruncated()
{
    QFETCH(QPoint, to);
    QFETCH(int, length);
    QCOMPARE(diagonalLength(QPoint(100, 200), to), length);
    QCOMPARE(diagonalLength(to, QPoint(100, 200)), length);
}

void TestCalibrationMath::sumThatWrapsCountsAsNoLength()
{
    // 46341 squared is 2147488281, 4633 more than 32 bits hold: negative.
    QCOMPARE(diagonalLength(QPoint(0, 0), QPoint(46341, 0)), 0);
    // 65536 squared is 2 to the 32nd: only the other square is left.
    QCOMPARE(diagonalLength(QPoint(0, 0), QPoint(65536, 3)), 3);
    QCOMPARE(diagonalLength(QPoint(std::numeric_limits<int>::min(), 0),
                            QPoint(std::numeric_limits<int>::max(), 7)),
             7); // the difference is 2 to the 32nd less 1, that is -1: sqrt(50)
}

void TestCalibrationMath::diagonalsAgreeWithinTwoPercent_data()
{
    QTest::addColumn<int>("first");
    QTest::addColumn<int>("second");
    QTest::addColumn<bool>("agree");
    QTest::newRow("equal") << 400 << 400 << true;
    QTest::newRow("400 and 408") << 400 << 408 << true;
    QTest::newRow("400 and 420") << 400 << 420 << false;
    // Average 408, tolerance 8: 400 to 416, both on the bound.
    QTest::newRow("on both bounds") << 400 << 416 << true;
    QTest::newRow("on both bounds, the other way") << 416 << 400 << true;
    // Average 408 (of 817), tolerance 8: 417 is one above.
    QTest::newRow("one above") << 400 << 417 << false;
    QTest::newRow("one above, the other way") << 417 << 400 << false;
    // Average 407, tolerance 8: 399 to 415.
    QTest::newRow("on the lower bound, rounded average") << 399 << 416 << false;
    QTest::newRow("both in, rounded average") << 399 << 415 << true;
    // The tolerance steps from 0 to 1 where the average reaches 50.
    QTest::newRow("49 and 50") << 49 << 50 << false;
    QTest::newRow("49 and 51") << 49 << 51 << true;
    QTest::newRow("50 and 51") << 50 << 51 << true;
    QTest::newRow("49 and 49") << 49 << 49 << true;
    QTest::newRow("no length at all") << 0 << 0 << true;
    QTest::newRow("one without length") << 0 << 400 << false;
    QTest::newRow("12 bits, within") << 5791 << 5677 << true;  // 5734, 114: 5620 to 5848
    QTest::newRow("12 bits, beyond") << 5791 << 5563 << false; // 5677, 113: 5564 to 5790
}

void TestCalibrationMath::diagonalsAgreeWithinTwoPercent()
{
    QFETCH(int, first);
    QFETCH(int, second);
    QFETCH(bool, agree);
    QCOMPARE(diagonalsAgree(first, second), agree);
}

void TestCalibrationMath::plausibleByTheRightCorners()
{
    // Top left, bottom left, bottom right, top right: diagonals of 500 and 500.
    const QPoint good[] = {QPoint(0, 0), QPoint(0, 400), QPoint(300, 400), QPoint(300, 0),
                           QPoint(150, 200)};
    QVERIFY(isPlausible(good));
    // Bottom right pressed at the bottom left: 400 against 500.
    const QPoint wrongCorner[] = {QPoint(0, 0), QPoint(0, 400), QPoint(0, 400), QPoint(300, 0),
                                  QPoint(150, 200)};
    QVERIFY(!isPlausible(wrongCorner));
    // A kite: its diagonals agree, 400 and 400, but no two opposite sides do.
    const QPoint kite[] = {QPoint(0, 0), QPoint(50, -100), QPoint(400, 0), QPoint(50, 300),
                           QPoint(200, 0)};
    QVERIFY(isPlausible(kite));
}

void TestCalibrationMath::centreIsNotLookedAt()
{
    const QPoint points[] = {QPoint(0, 0), QPoint(0, 400), QPoint(300, 400), QPoint(300, 0),
                             QPoint(9999, -9999)};
    QVERIFY(isPlausible(points));
}

MFTOOL_TEST(TestCalibrationMath, NoApplication)
#include "tst_calibrationmath.moc"
