#include "bench/records/recordsreport.h"

#include "tests/support/testprogram.h"

#include <QRegularExpression>
#include <QTest>

namespace
{

QuantityAnswer quantity(double least, double mean, double most, double deviation,
                        std::optional<double> minimum, std::optional<double> maximum)
{
    QuantityAnswer answer;
    answer.name = QStringLiteral("voltage");
    answer.minimum = minimum;
    answer.maximum = maximum;
    answer.values = {1000, mean, deviation, least, most};
    answer.bins = chooseBins(answer.values, minimum, maximum, false);
    answer.bars.fill(1, answer.bins.count);
    return answer;
}

RecordsAnswer ofDays(int days)
{
    RecordsAnswer answer;
    for (int i = 0; i < days; ++i) {
        UnitGroup group;
        group.day = QDate(2026, 3, 1).addDays(i).toString(Qt::ISODate);
        group.count = {10, 8, 9, 1, 11};
        answer.units.append(group);
    }
    return answer;
}

/// The values of a quantity in the page, as "Mean 12.5".
QString valueIn(const QByteArray &page, const char *name)
{
    return QRegularExpression(
               QStringLiteral("<dt>%1</dt><dd>([^<]*)</dd>").arg(QLatin1String(name)))
        .match(QString::fromUtf8(page))
        .captured(1);
}

} // namespace

class TestRecordsReport : public QObject
{
    Q_OBJECT

private slots:
    void showsValuesWithTheDigitsThatTheyNeed_data();
    void showsValuesWithTheDigitsThatTheyNeed();
    void showsCapabilities_data();
    void showsCapabilities();
    void namesThePointsOfTheTrend_data();
    void namesThePointsOfTheTrend();
    void tellsThatThereIsNone();
};

void TestRecordsReport::showsValuesWithTheDigitsThatTheyNeed_data()
{
    QTest::addColumn<double>("least");
    QTest::addColumn<double>("most");
    QTest::addColumn<QString>("shownLeast");
    QTest::addColumn<QString>("shownMost");
    QTest::newRow("few") << 2.0 << 8.0 << "2"
                         << "8";
    QTest::newRow("millivolts") << 11400.0 << 13200.0 << "11400"
                                << "13200";
    QTest::newRow("a fraction") << 1.0 / 3 << 2.0 / 3 << "0.333333"
                                << "0.666667";
    QTest::newRow("large, close together") << 99999998.0 << 100000000.0 << "99999998"
                                           << "100000000";
    QTest::newRow("below zero") << -123469135.0 << -123444443.0 << "-123469135"
                                << "-123444443";
    QTest::newRow("close together") << 12.4999 << 12.5001 << "12.4999"
                                    << "12.5001";
    QTest::newRow("tiny") << 1.2e-9 << 1.3e-9 << "1.2e-09"
                          << "1.3e-09";
    QTest::newRow("zero") << 0.0 << 0.0 << "0"
                          << "0";
}

void TestRecordsReport::showsValuesWithTheDigitsThatTheyNeed()
{
    QFETCH(double, least);
    QFETCH(double, most);
    RecordsAnswer answer = ofDays(1);
    answer.quantities = {quantity(least, least, most, 1, std::nullopt, std::nullopt)};
    const QByteArray page = recordsReport(answer);
    QTEST(valueIn(page, "Least"), "shownLeast");
    QTEST(valueIn(page, "Most"), "shownMost");
}

void TestRecordsReport::showsCapabilities_data()
{
    QTest::addColumn<double>("deviation");
    QTest::addColumn<QString>("cp");
    QTest::newRow("usual") << 225.0 << "2.59";
    QTest::newRow("limits that nobody measures against") << 0.225 << "2.59e+03";
    QTest::newRow("none differs") << 0.0 << QString(QChar(0x2013));
}

void TestRecordsReport::showsCapabilities()
{
    QFETCH(double, deviation);
    RecordsAnswer answer = ofDays(1);
    answer.quantities = {quantity(11400, 12750, 13200, deviation, 11000, 14500)};
    const QByteArray page = recordsReport(answer);
    QTEST(valueIn(page, "Cp"), "cp");
    QTEST(valueIn(page, "Cpk"), "cp");
}

void TestRecordsReport::namesThePointsOfTheTrend_data()
{
    QTest::addColumn<int>("days");
    QTest::addColumn<QByteArray>("axis");
    QTest::newRow("one") << 1
                         << QByteArray("<div class=\"axis few\"><span>2026-03-01</span></div>");
    QTest::newRow("few") << 3
                         << QByteArray("<div class=\"axis few\"><span>2026-03-01</span>"
                                       "<span>2026-03-02</span><span>2026-03-03</span></div>");
    QTest::newRow("some") << 31
                          << QByteArray("<div class=\"axis\"><span>2026-03-01</span>"
                                        "<span>2026-03-31</span></div>");
    QTest::newRow("months") << 200
                            << QByteArray("<div class=\"axis\"><span>2026-03</span>"
                                          "<span>2026-09</span></div>");
}

void TestRecordsReport::namesThePointsOfTheTrend()
{
    QFETCH(int, days);
    QFETCH(QByteArray, axis);
    const QByteArray page = recordsReport(ofDays(days));
    QVERIFY2(page.contains(axis), page.constData());
}

void TestRecordsReport::tellsThatThereIsNone()
{
    RecordsAnswer answer;
    answer.which = QStringLiteral("station line-9");
    const QByteArray page = recordsReport(answer);
    QVERIFY(page.contains("<h1>station line-9</h1>"));
    QVERIFY(page.contains("There is no record of these."));
    QVERIFY(!page.contains("<svg"));
}

MFTOOL_TEST(TestRecordsReport, NoApplication)
#include "tst_recordsreport.moc"
