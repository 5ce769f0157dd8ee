#include "bench/records/statistics.h"

#include "tests/support/testprogram.h"

class TestStatistics : public QObject
{
    Q_OBJECT

private slots:
    void capability_data();
    void capability();
    void hasNoCapabilityWithoutASpread();
    void choosesBins_data();
    void choosesBins();
};

Q_DECLARE_METATYPE(std::optional<double>)

void TestStatistics::capability_data()
{
    QTest::addColumn<std::optional<double>>("minimum");
    QTest::addColumn<std::optional<double>>("maximum");
    QTest::addColumn<std::optional<double>>("cp");
    QTest::addColumn<std::optional<double>>("cpk");
    using Limit = std::optional<double>;
    // Of mean 10, deviation 2: (22 - 4) / 12, (10 - 4) / 6 and (22 - 10) / 6.
    QTest::newRow("both limits") << Limit(4) << Limit(22) << Limit(1.5) << Limit(1);
    QTest::newRow("minimum only") << Limit(4) << Limit() << Limit() << Limit(1);
    QTest::newRow("maximum only") << Limit() << Limit(22) << Limit() << Limit(2);
    QTest::newRow("none") << Limit() << Limit() << Limit() << Limit();
    QTest::newRow("mean outside") << Limit(13) << Limit(25) << Limit(1) << Limit(-0.5);
}

void TestStatistics::capability()
{
    QFETCH(std::optional<double>, minimum);
    QFETCH(std::optional<double>, maximum);
    Statistics values;
    values.count = 100;
    values.mean = 10;
    values.deviation = 2;
    QTEST(values.cp(minimum, maximum), "cp");
    QTEST(values.cpk(minimum, maximum), "cpk");
}

void TestStatistics::hasNoCapabilityWithoutASpread()
{
    Statistics one;
    one.count = 1;
    one.mean = 10;
    QVERIFY(!one.cp(4, 22) && !one.cpk(4, 22));
    Statistics same = one;
    same.count = 50;
    QVERIFY(!same.cp(4, 22) && !same.cpk(4, 22));
}

void TestStatistics::choosesBins_data()
{
    QTest::addColumn<double>("least");
    QTest::addColumn<double>("most");
    QTest::addColumn<std::optional<double>>("minimum");
    QTest::addColumn<std::optional<double>>("maximum");
    QTest::addColumn<bool>("whole");
    QTest::addColumn<double>("from");
    QTest::addColumn<double>("width");
    QTest::addColumn<int>("count");
    using Limit = std::optional<double>;
    QTest::newRow("no limits") << 0.0 << 1.0 << Limit() << Limit() << false << 0.0 << 0.05 << 21;
    QTest::newRow("limits near") << 11900.0 << 12100.0 << Limit(11500) << Limit(12500) << true
                                 << 11500.0 << 50.0 << 21;
    QTest::newRow("limits far away")
        << 11990.0 << 12010.0 << Limit(0) << Limit(100000) << true << 11990.0 << 1.0 << 21;
    QTest::newRow("one side near")
        << 2.0 << 10.0 << Limit(0) << Limit(1000) << false << 0.0 << 0.5 << 21;
    QTest::newRow("few whole numbers")
        << 1.0 << 4.0 << Limit() << Limit() << true << 1.0 << 1.0 << 4;
    QTest::newRow("all the same") << 7.0 << 7.0 << Limit() << Limit() << true << 6.5 << 1.0 << 1;
    QTest::newRow("all the same between limits")
        << 12345.0 << 12345.0 << Limit(11000) << Limit(14500) << true << 11000.0 << 200.0 << 18;
    QTest::newRow("below zero") << -3.0 << -1.0 << Limit() << Limit() << false << -3.0 << 0.1 << 21;
}

void TestStatistics::choosesBins()
{
    QFETCH(double, least);
    QFETCH(double, most);
    QFETCH(std::optional<double>, minimum);
    QFETCH(std::optional<double>, maximum);
    QFETCH(bool, whole);
    Statistics values;
    values.count = 10;
    values.least = least;
    values.most = most;
    const Bins bins = chooseBins(values, minimum, maximum, whole);
    QTEST(bins.from, "from");
    QTEST(bins.width, "width");
    QTEST(bins.count, "count");
    QVERIFY(bins.from <= least && bins.to() > most);
}

MFTOOL_TEST(TestStatistics, NoApplication)
#include "tst_statistics.moc"
