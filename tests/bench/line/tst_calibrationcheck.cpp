#include "bench/line/calibrationcheck.h"

#include <QTest>

#include "tests/support/testprogram.h"

Q_DECLARE_METATYPE(CalibrationPoints)

namespace
{

/// Top left, bottom left, bottom right, top right, centre.
CalibrationPoints points(const QPoint &tl, const QPoint &bl, const QPoint &br, const QPoint &tr,
                         const QPoint &centre)
{
    return {{0, tl}, {1, bl}, {2, br}, {3, tr}, {4, centre}};
}

/// 4 counts for a pixel from left to right, 7 from the top down.
const CalibrationPoints Raw =
    points({396, 418}, {396, 3442}, {3404, 3442}, {3404, 418}, {1900, 1930});
const CalibrationPoints ScreensOwn = points({24, 24}, {24, 456}, {776, 456}, {776, 24}, {400, 240});

} // namespace

class TestCalibrationCheck : public QObject
{
    Q_OBJECT

private slots:
    void judges_data();
    void judges();
    void judgesTurnedPanels_data();
    void judgesTurnedPanels();
    void refusesWhatHasNoMap_data();
    void refusesWhatHasNoMap();
    void wantsRawPointsOfARealUnitOnly();
    void takesPointsFromFrames();
};

void TestCalibrationCheck::judges_data()
{
    QTest::addColumn<CalibrationPoints>("points");
    QTest::addColumn<QString>("error");
    QTest::addColumn<bool>("good");
    QTest::addColumn<QString>("complaint");
    const auto row = [](const char *name, const CalibrationPoints &points, const QString &error,
                        bool good, const QString &complaint) {
        QTest::newRow(name) << points << error << good << complaint;
    };

    row("exact", Raw, "0 px", true, QString());
    row("turned a little", points({396, 500}, {486, 3524}, {3494, 3442}, {3404, 418}, {1945, 1971}),
        "0 px", true, QString());
    // Ten pixels, of which the best map takes a fifth.
    row("centre too low", points({396, 418}, {396, 3442}, {3404, 3442}, {3404, 418}, {1900, 2000}),
        "8 px", false, "8 px, most at the centre");
    // The four others give way: a corner off by ten pixels leaves three.
    row("corner a little off",
        points({436, 418}, {396, 3442}, {3404, 3442}, {3404, 418}, {1900, 1930}), "3 px", true,
        QString());
    row("corner far off", points({796, 418}, {396, 3442}, {3404, 3442}, {3404, 418}, {1900, 1930}),
        "34.2 px", false, "34.2 px, most at the top left");
    // One map swaps both axes, and such a screen is useless.
    row("swapped axes", points({418, 396}, {3442, 396}, {3442, 3404}, {418, 3404}, {1930, 1900}),
        "0 px", true, "right targets do not lie right of left ones");
    row("mirrored left to right",
        points({3404, 418}, {3404, 3442}, {396, 3442}, {396, 418}, {1900, 1930}), "0 px", true,
        "right targets do not lie right of left ones");
    row("sheared", points({72, 24}, {936, 456}, {1688, 456}, {824, 24}, {880, 240}), "0 px", true,
        "right targets do not lie right of left ones");
    row("sheared upwards", points({24, 72}, {24, 504}, {776, 2008}, {776, 1576}, {400, 1040}),
        "0 px", true, "bottom targets do not lie below top ones");
    row("upside down", points({396, 3442}, {396, 418}, {3404, 418}, {3404, 3442}, {1900, 1930}),
        "0 px", true, "bottom targets do not lie below top ones");
    row("centre at the top right",
        points({396, 418}, {396, 3442}, {3404, 3442}, {3404, 418}, {3404, 418}), "247.8 px", false,
        "247.8 px, most at the centre");
}

void TestCalibrationCheck::judges()
{
    QFETCH(CalibrationPoints, points);
    Plan::Calibration wanted;
    wanted.maxErrorPx = 6;
    const CalibrationResult result = checkCalibration(points, wanted, true);
    QTEST(result.error.shown(), "error");
    QTEST(result.error.good, "good");
    QTEST(result.complaint, "complaint");
    QCOMPARE(result.error.max.value(), 6.0);
    QCOMPARE(result.error.limits, QStringLiteral("at most 6 px"));
}

void TestCalibrationCheck::judgesTurnedPanels_data()
{
    QTest::addColumn<CalibrationPoints>("points");
    QTest::addColumn<bool>("right");
    QTest::addColumn<bool>("down");
    const CalibrationPoints mirrored =
        points({3404, 418}, {3404, 3442}, {396, 3442}, {396, 418}, {1900, 1930});
    const CalibrationPoints upsideDown =
        points({396, 3442}, {396, 418}, {3404, 418}, {3404, 3442}, {1900, 1930});
    QTest::newRow("mirrored left to right") << mirrored << false << true;
    QTest::newRow("upside down") << upsideDown << true << false;
}

/// The plan says when a panel counts the other way round, and then nothing else is
/// accepted.
void TestCalibrationCheck::judgesTurnedPanels()
{
    QFETCH(CalibrationPoints, points);
    Plan::Calibration wanted;
    wanted.maxErrorPx = 6;
    QFETCH(bool, right);
    QFETCH(bool, down);
    wanted.xGrowsRight = right;
    wanted.yGrowsDown = down;
    QCOMPARE(checkCalibration(points, wanted, true).complaint, QString());
    QVERIFY(!checkCalibration(Raw, wanted, true).complaint.isEmpty());
}

void TestCalibrationCheck::refusesWhatHasNoMap_data()
{
    QTest::addColumn<CalibrationPoints>("points");
    QTest::addColumn<QString>("complaint");
    const QString line = QStringLiteral("the points lie on one line");
    QTest::newRow("one spot") << points({9, 9}, {9, 9}, {9, 9}, {9, 9}, {9, 9}) << line;
    QTest::newRow("dead axis") << points({396, 0}, {396, 0}, {3404, 0}, {3404, 0}, {1900, 0})
                               << line;
    QTest::newRow("both axes the same")
        << points({396, 396}, {3442, 3442}, {3442, 3442}, {396, 396}, {1900, 1900}) << line;
    CalibrationPoints four = Raw;
    four.remove(1);
    four.remove(4);
    QTest::newRow("missing") << four << QStringLiteral("no point for: bottom left, centre");
}

void TestCalibrationCheck::refusesWhatHasNoMap()
{
    QFETCH(CalibrationPoints, points);
    Plan::Calibration wanted;
    wanted.maxErrorPx = 6;
    const CalibrationResult result = checkCalibration(points, wanted, false);
    QTEST(result.complaint, "complaint");
    QCOMPARE(result.error.shown(), QStringLiteral("nothing px"));
    QVERIFY(!result.error.good);
}

void TestCalibrationCheck::wantsRawPointsOfARealUnitOnly()
{
    Plan::Calibration wanted;
    wanted.maxErrorPx = 60;
    const QString notRaw = QStringLiteral("the points are the screen's own: nothing was raw");
    QCOMPARE(checkCalibration(ScreensOwn, wanted, true).complaint, notRaw);
    QCOMPARE(checkCalibration(ScreensOwn, wanted, false).complaint, QString());
    // As a finger hits them.
    const CalibrationPoints touched =
        points({30, 19}, {21, 460}, {779, 451}, {770, 29}, {404, 233});
    QCOMPARE(checkCalibration(touched, wanted, true).complaint, notRaw);
    // A panel of few counts is raw all the same.
    const CalibrationPoints coarse = points({49, 24}, {49, 456}, {801, 456}, {801, 24}, {425, 240});
    QCOMPARE(checkCalibration(coarse, wanted, true).complaint, QString());
}

void TestCalibrationCheck::takesPointsFromFrames()
{
    CalibrationPoints points;
    const auto take = [&points](quint16 type, const QByteArray &data) {
        wire::Frame frame;
        frame.type = type;
        frame.data = data;
        takeCalibrationPoint(frame, &points);
    };
    take(0x7021, "000039600418");
    take(0x7021, "040190001930");
    take(0x7031, "003960");
    QCOMPARE(points, CalibrationPoints({{0, {396, 418}}, {4, {1900, 1930}}}));
    take(0x7021, "000040000420"); // another cycle
    QCOMPARE(points, CalibrationPoints({{0, {400, 420}}}));
}

MFTOOL_TEST(TestCalibrationCheck, EventLoop)
#include "tst_calibrationcheck.moc"
