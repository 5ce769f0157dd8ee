#include "calibration/affinefit.h"

#include <QSize>
#include <QTest>

#include <cmath>
#include <limits>
#include <random>

#include "tests/support/testprogram.h"

typedef QWSPointerCalibrationData Data;

namespace
{

const QPoint targets[] = {QPoint(24, 24), QPoint(24, 456), QPoint(776, 456), QPoint(776, 24),
                          QPoint(400, 240)};

// A panel: where it sees a point of the screen, in its own counts.
struct Panel {
    double xx, xy, x0;
    double yx, yy, y0;

    QPointF counts(const QPointF &screen) const
    {
        return QPointF(xx * screen.x() + xy * screen.y() + x0,
                       yx * screen.x() + yy * screen.y() + y0);
    }
};

Data pressedOn(const Panel &panel, const QPoint *noise)
{
    Data data;
    for (int i = 0; i <= Data::LastLocation; ++i) {
        data.screenPoints[i] = targets[i];
        data.devPoints[i] = panel.counts(targets[i]).toPoint() + noise[i];
    }
    return data;
}

Data set(const QPoint (&device)[5])
{
    Data data;
    for (int i = 0; i <= Data::LastLocation; ++i) {
        data.screenPoints[i] = targets[i];
        data.devPoints[i] = device[i];
    }
    return data;
}

QString text(const AffineMap &m)
{
    return QString("%1 %2 %3 %4 %5 %6 %7")
        .arg(m.a)
        .arg(m.b)
        .arg(m.c)
        .arg(m.d)
        .arg(m.e)
        .arg(m.f)
        .arg(m.s);
}

} // namespace

Q_DECLARE_METATYPE(AffineMap)
Q_DECLARE_METATYPE(Panel)
Q_DECLARE_METATYPE(QWSPointerCalibrationData)

class TestAffineFit : public QObject
{
    Q_OBJECT
private slots:
    void identity();
    void workedFit();
    void residualIsSpread();
    void mapTruncates();
    void wholeScreenWithinAPixel_data();
    void wholeScreenWithinAPixel();
    void noMap_data();
    void noMap();
    void thinButDetermined();
    void scaleKeepsTheLibraryWithin32Bits();
    void largestErrorOfASet();
    void mapsThatTheLibraryCanUse_data();
    void mapsThatTheLibraryCanUse();
    void mapsThatTheLibraryCannotUse_data();
    void mapsThatTheLibraryCannotUse();
    void pointsStandForTheirMap();
    void pointsOfAMapThatCannotBeInverted();
    void pointsOfAMapThatLeadsFarAway();
};

void TestAffineFit::identity()
{
    AffineMap map;
    QVERIFY(fitAffine(set({targets[0], targets[1], targets[2], targets[3], targets[4]}), &map));
    // Half a pixel in both constants, for the division that truncates.
    QCOMPARE(text(map), QString("65536 0 32768 0 65536 32768 65536"));
    QCOMPARE(mapped(map, QPoint(0, 0)), QPoint(0, 0));
    QCOMPARE(mapped(map, QPoint(799, 479)), QPoint(799, 479));
}

void TestAffineFit::workedFit()
{
    // Axes swapped: panel x runs with screen y, 8 counts a pixel from 100 on;
    // panel y against screen x, 4 counts a pixel from 3900 down.
    AffineMap map;
    QVERIFY(fitAffine(set({QPoint(292, 3804), QPoint(3748, 3804), QPoint(3748, 796),
                           QPoint(292, 796), QPoint(2020, 2300)}),
                      &map));
    // x' = (3900 - y) / 4, y' = (x - 100) / 8
    QCOMPARE(text(map), QString("0 -16384 63930368 8192 0 -786432 65536"));
    QCOMPARE(mapped(map, QPoint(2020, 2300)), QPoint(400, 240));
    QCOMPARE(mapped(map, QPoint(292, 796)), QPoint(776, 24));
}

void TestAffineFit::residualIsSpread()
{
    // All right except for the centre, which was pressed five pixels too far to the
    // right: a best fit moves everything by a fifth of that.
    AffineMap map;
    QVERIFY(
        fitAffine(set({targets[0], targets[1], targets[2], targets[3], QPoint(405, 240)}), &map));
    QCOMPARE(mapped(map, targets[0]).x(), 23);
    QCOMPARE(mapped(map, targets[2]).x(), 775);
    QCOMPARE(mapped(map, QPoint(405, 240)).x(), 404);
    QCOMPARE(mapped(map, QPoint(405, 240)).y(), 240);
}

void TestAffineFit::mapTruncates()
{
    const AffineMap map = {1, 0, 0, 0, -1, 0, 2};
    QCOMPARE(mapped(map, QPoint(7, 7)), QPoint(3, -3));
    QCOMPARE(mapped(map, QPoint(-7, -7)), QPoint(-3, 3));
    const AffineMap negativeScale = {1, 0, 0, 0, 1, 0, -2};
    QCOMPARE(mapped(negativeScale, QPoint(6, -6)), QPoint(-3, 3));
    // Products beyond 32 bits.
    const AffineMap large = {2000000000, 0, 0, 0, 2000000000, 0, 2000000000};
    QCOMPARE(mapped(large, QPoint(4095, -4095)), QPoint(4095, -4095));
}

void TestAffineFit::wholeScreenWithinAPixel_data()
{
    QTest::addColumn<Panel>("panel");
    QTest::newRow("straight") << Panel{4.5, 0, 200, 0, 7.5, 250};
    QTest::newRow("mirrored in x") << Panel{-4.5, 0, 3900, 0, 7.5, 250};
    QTest::newRow("mirrored in y") << Panel{4.5, 0, 200, 0, -7.5, 3850};
    QTest::newRow("upside down") << Panel{-4.5, 0, 3900, 0, -7.5, 3850};
    QTest::newRow("axes swapped") << Panel{0, 7.5, 250, 4.5, 0, 200};
    QTest::newRow("swapped and mirrored") << Panel{0, -7.5, 3850, -4.5, 0, 3900};
    QTest::newRow("skewed") << Panel{4.3, 0.21, 180, -0.17, 7.1, 330};
    QTest::newRow("swapped and skewed") << Panel{0.15, 7.2, 260, -4.4, -0.2, 3800};
}

// Five presses, each a few counts off; then a touch on every 7th pixel each way,
// the edges among them.
void TestAffineFit::wholeScreenWithinAPixel()
{
    QFETCH(Panel, panel);
    std::mt19937 random(20240229);
    std::uniform_int_distribution<int> counts(-3, 3);
    for (int run = 0; run < 50; ++run) {
        QPoint noise[5];
        for (QPoint &n : noise)
            n = QPoint(counts(random), counts(random));
        AffineMap map;
        QVERIFY(fitAffine(pressedOn(panel, noise), &map));
        QCOMPARE(map.s, 65536);
        for (int y = 0; y < 480; y += y < 476 ? 7 : 3) {
            for (int x = 0; x < 800; x += x < 798 ? 7 : 1) {
                const QPoint off =
                    mapped(map, panel.counts(QPointF(x, y)).toPoint()) - QPoint(x, y);
                if (qAbs(off.x()) > 1 || qAbs(off.y()) > 1)
                    QFAIL(qPrintable(
                        QString("%1,%2 is off by %3,%4").arg(x).arg(y).arg(off.x()).arg(off.y())));
            }
        }
    }
}

void TestAffineFit::noMap_data()
{
    QTest::addColumn<Data>("data");
    QTest::newRow("one point") << set(
        {QPoint(9, 9), QPoint(9, 9), QPoint(9, 9), QPoint(9, 9), QPoint(9, 9)});
    QTest::newRow("level line") << set(
        {QPoint(0, 7), QPoint(100, 7), QPoint(200, 7), QPoint(300, 7), QPoint(400, 7)});
    QTest::newRow("upright line") << set(
        {QPoint(7, 0), QPoint(7, 1), QPoint(7, 2), QPoint(7, 3), QPoint(7, 4)});
    QTest::newRow("slanting line")
        << set({QPoint(-3, -5), QPoint(3, 5), QPoint(6, 10), QPoint(9, 15), QPoint(12, 20)});
    QTest::newRow("two places") << set(
        {QPoint(0, 0), QPoint(4000, 4000), QPoint(0, 0), QPoint(4000, 4000), QPoint(0, 0)});
    QTest::newRow("dead axis, noise of a count")
        << set({QPoint(200, 2047), QPoint(201, 2048), QPoint(3800, 2048), QPoint(3799, 2047),
                QPoint(2000, 2047)});
    // Here the numbers alone would not show it.
    QTest::newRow("dead axis, near its zero")
        << set({QPoint(200, 1), QPoint(201, 2), QPoint(3800, 2), QPoint(3799, 1), QPoint(2000, 1)});
    QTest::newRow("far from any panel")
        << set({QPoint(0, 0), QPoint(0, 2147483647), QPoint(2147483647, 2147483647),
                QPoint(2147483647, 0), QPoint(1073741823, 1073741823)});
    // 2^24 counts are the most in each direction; beyond that the sums would not be
    // exact.
    const int far = 16777217;
    const int wide = 4000000; // not on a line
    QTest::newRow("too far left") << set({QPoint(-far, 0), QPoint(-far, wide), QPoint(0, wide),
                                          QPoint(0, 0), QPoint(-far / 2, wide / 2)});
    QTest::newRow("too far right") << set({QPoint(0, 0), QPoint(0, wide), QPoint(far, wide),
                                           QPoint(far, 0), QPoint(far / 2, wide / 2)});
    QTest::newRow("too far up") << set({QPoint(0, -far), QPoint(0, 0), QPoint(wide, 0),
                                        QPoint(wide, -far), QPoint(wide / 2, -far / 2)});
    QTest::newRow("too far down") << set({QPoint(0, 0), QPoint(0, far), QPoint(wide, far),
                                          QPoint(wide, 0), QPoint(wide / 2, far / 2)});
    // Where the sums fit into 32 bits, the factors are so coarse that a touch would be
    // more than a pixel off.
    QTest::newRow("a hundred counts, far from 0")
        << set({QPoint(20000, 20000), QPoint(20000, 20100), QPoint(20100, 20100),
                QPoint(20100, 20000), QPoint(20050, 20050)});
}

void TestAffineFit::noMap()
{
    QFETCH(Data, data);
    AffineMap map = {1, 2, 3, 4, 5, 6, 7};
    QVERIFY(!fitAffine(data, &map));
    QCOMPARE(text(map), QString("1 2 3 4 5 6 7"));
}

void TestAffineFit::thinButDetermined()
{
    // A panel of 100 to 1 is odd but has two axes.
    AffineMap map;
    QVERIFY(fitAffine(
        set({QPoint(0, 0), QPoint(0, 40), QPoint(2000, 40), QPoint(2000, 0), QPoint(1000, 20)}),
        &map));
    QCOMPARE(mapped(map, QPoint(2000, 40)), QPoint(776, 456));
    // And a small square of ten counts is still a square.
    QVERIFY(fitAffine(set({QPoint(100, 100), QPoint(100, 110), QPoint(110, 110), QPoint(110, 100),
                           QPoint(105, 105)}),
                      &map));
    QCOMPARE(mapped(map, QPoint(110, 110)), QPoint(776, 456));
    QCOMPARE(mapped(map, QPoint(105, 105)), QPoint(400, 240));
}

void TestAffineFit::scaleKeepsTheLibraryWithin32Bits()
{
    // A small part of a 12-bit range: the constant alone would be 65536 times
    // -32000 pixels.
    const Data data = set({QPoint(4000, 4000), QPoint(4000, 4090), QPoint(4090, 4090),
                           QPoint(4090, 4000), QPoint(4045, 4045)});
    AffineMap map;
    QVERIFY(fitAffine(data, &map));
    QVERIFY(map.s < 65536);
    QCOMPARE(map.s & (map.s - 1), 0);
    for (int y = 0; y <= 4095; y += 4095) {
        for (int x = 0; x <= 4095; x += 4095) {
            const double worst = std::fabs(double(map.a) * x) + std::fabs(double(map.b) * y) +
                                 std::fabs(double(map.c));
            QVERIFY(worst <= 2147483647.0);
            const double worstY = std::fabs(double(map.d) * x) + std::fabs(double(map.e) * y) +
                                  std::fabs(double(map.f));
            QVERIFY(worstY <= 2147483647.0);
        }
    }
    QVERIFY(largestError(map, data) <= 1);
}

void TestAffineFit::largestErrorOfASet()
{
    const AffineMap map = {1, 0, 0, 0, 1, 0, 1};
    Data data = set({targets[0], targets[1], targets[2], targets[3], targets[4]});
    QCOMPARE(largestError(map, data), 0);
    data.devPoints[Data::BottomRight] += QPoint(0, -9);
    data.devPoints[Data::TopLeft] += QPoint(-4, 2);
    int worst = -1;
    QCOMPARE(largestError(map, data, &worst), 9);
    QCOMPARE(worst, int(Data::BottomRight));
    // Of equal ones the first.
    data.devPoints[Data::Center] += QPoint(9, 0);
    QCOMPARE(largestError(map, data, &worst), 9);
    QCOMPARE(worst, int(Data::BottomRight));
}

void TestAffineFit::mapsThatTheLibraryCanUse_data()
{
    QTest::addColumn<AffineMap>("map");
    QTest::addColumn<QString>("given");
    QTest::newRow("as it is") << AffineMap{13107, 1, -2, 3, 7864, 4, 65536}
                              << "13107 1 -2 3 7864 4 65536";
    QTest::newRow("identity") << AffineMap{1, 0, 0, 0, 1, 0, 1} << "1 0 0 0 1 0 1";
    // The division would end the process if the sum is the smallest number of all.
    QTest::newRow("negative scale") << AffineMap{-3, 1, -100, 2, -5, 7, -4} << "3 -1 100 -2 5 -7 4";
    // 65536 times the 65535 counts of a panel of 16 bits would be too much; (2^31 - 1 -
    // 2 * 65535) / 65535 is 32766.5.
    QTest::newRow("a pixel for each count")
        << AffineMap{65536, 0, 0, 0, 65536, 0, 65536} << "32766 0 0 0 32766 0 32766";
    QTest::newRow("least of all numbers, in range") << AffineMap{std::numeric_limits<qint32>::min(),
                                                                 0,
                                                                 0,
                                                                 0,
                                                                 std::numeric_limits<qint32>::min(),
                                                                 0,
                                                                 std::numeric_limits<qint32>::min()}
                                                    << "32766 0 0 0 32766 0 32766";
}

void TestAffineFit::mapsThatTheLibraryCanUse()
{
    QFETCH(AffineMap, map);
    QFETCH(QString, given);
    AffineMap result = {0, 0, 0, 0, 0, 0, 0};
    QVERIFY(mapForLibrary(map, QSize(800, 480), &result));
    QCOMPARE(text(result), given);
}

void TestAffineFit::mapsThatTheLibraryCannotUse_data()
{
    QTest::addColumn<AffineMap>("map");
    const qint32 largest = std::numeric_limits<qint32>::max();
    const qint32 least = std::numeric_limits<qint32>::min();
    QTest::newRow("scale 0") << AffineMap{1, 0, 0, 0, 1, 0, 0};
    QTest::newRow("zeros") << AffineMap{0, 0, 0, 0, 0, 0, 0};
    QTest::newRow("all to one place") << AffineMap{0, 0, 5, 0, 0, 5, 1};
    QTest::newRow("all to a line") << AffineMap{1, 2, 0, 2, 4, 0, 1};
    QTest::newRow("out of range at 0,0") << AffineMap{largest, 0, least, 0, 1, least, -1};
    QTest::newRow("screen where no panel counts") << AffineMap{3, 0, largest, 0, 3, 0, 7};
    QTest::newRow("and below it") << AffineMap{1, 0, 0, 0, 1, -140000, 1};
    // A hundred pixels for each count, at the far end of a panel of 16 bits.
    QTest::newRow("too steep to round") << AffineMap{30001, 0, -1800000000, 0, 300, 0, 300};
}

void TestAffineFit::mapsThatTheLibraryCannotUse()
{
    QFETCH(AffineMap, map);
    AffineMap result = {1, 2, 3, 4, 5, 6, 7};
    QVERIFY(!mapForLibrary(map, QSize(800, 480), &result));
    QCOMPARE(text(result), QString("1 2 3 4 5 6 7"));
}

void TestAffineFit::pointsStandForTheirMap()
{
    const AffineMap map = {0, -16384, 63930368, 8192, 0, -786432, 65536};
    const Data data = pointsOf(map, QSize(800, 480));
    QCOMPARE(data.screenPoints[Data::TopLeft], QPoint(0, 0));
    QCOMPARE(data.screenPoints[Data::BottomLeft], QPoint(0, 479));
    QCOMPARE(data.screenPoints[Data::BottomRight], QPoint(799, 479));
    QCOMPARE(data.screenPoints[Data::TopRight], QPoint(799, 0));
    QCOMPARE(data.screenPoints[Data::Center], QPoint(399, 239));
    QVERIFY(largestError(map, data) <= 1);
    // x = 8 y' + 96, y = 3902 - 4 x'
    QCOMPARE(data.devPoints[Data::BottomRight], QPoint(3928, 706));

    const AffineMap identityMap = {1, 0, 0, 0, 1, 0, 1};
    const Data same = pointsOf(identityMap, QSize(800, 480));
    for (int i = 0; i <= Data::LastLocation; ++i)
        QCOMPARE(same.devPoints[i], same.screenPoints[i]);
}

void TestAffineFit::pointsOfAMapThatCannotBeInverted()
{
    const AffineMap flat = {1, 1, 0, 2, 2, 0, 1};
    const Data data = pointsOf(flat, QSize(800, 480));
    QCOMPARE(data.screenPoints[Data::BottomRight], QPoint(799, 479));
    for (int i = 0; i <= Data::LastLocation; ++i)
        QCOMPARE(data.devPoints[i], QPoint(0, 0));
}

void TestAffineFit::pointsOfAMapThatLeadsFarAway()
{
    // One count of the panel is a two-thousand-millionth of a pixel.
    const AffineMap tiny = {1, 0, 0, 0, -1, 0, 2147483647};
    const Data data = pointsOf(tiny, QSize(800, 480));
    QCOMPARE(data.devPoints[Data::TopLeft], QPoint(0, 0));
    QCOMPARE(data.devPoints[Data::BottomRight], QPoint(16777216, -16777216));
}

MFTOOL_TEST(TestAffineFit, NoApplication)
#include "tst_affinefit.moc"
