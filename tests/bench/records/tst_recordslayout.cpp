/// How the report on all records looks in a browser: at the width of a telephone and of a
/// desk, and on paper. Chromium shows it; where it is missing the tests are skipped.
#include "bench/records/recordsreport.h"

#include "tests/bench/browser.h"
#include "tests/support/testprogram.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>

#include <algorithm>
#include <functional>

namespace
{

const double SmallestOnScreen = 11;  ///< of letters, in pixels
const double SmallestOnPaper = 9.33; ///< 7 points

const char LongName[] = "Relayed line of the passthrough with a text as long as the frame takes, "
                        "sent_twice_and_compared_with_what_came_back_from_the_other_end";

UnitGroup group(const QDate &day, const QString &plan, const QString &station,
                const QString &variant, qint64 units)
{
    UnitGroup group;
    group.day = day.toString(Qt::ISODate);
    group.plan = plan;
    group.station = station;
    group.variant = variant;
    group.count = {units, units - units / 12, units - units / 40, units / 14, units + units / 14};
    return group;
}

/// @param spread  of the values around @p mean
QuantityAnswer quantity(const QString &step, const QString &name, const QString &unit, double mean,
                        double spread, std::optional<double> minimum, std::optional<double> maximum)
{
    QuantityAnswer answer;
    answer.plan = QStringLiteral("production");
    answer.step = step;
    answer.name = name;
    answer.unit = unit;
    answer.minimum = minimum;
    answer.maximum = maximum;
    answer.outside = 3;
    answer.values = {1200, mean, spread / 4, mean - spread, mean + spread};
    answer.bins = chooseBins(answer.values, minimum, maximum, false);
    answer.bars.fill(0, answer.bins.count);
    for (int i = 0; i < answer.bars.size(); ++i) {
        const double low = answer.bins.edge(i);
        const double distance = (low + answer.bins.width / 2 - mean) / std::max(spread, 1e-15);
        const bool hasMean = low <= mean && mean < low + answer.bins.width;
        answer.bars[i] = hasMean ? 200 : qRound64(200 * std::max(0.0, 1 - distance * distance));
    }
    return answer;
}

/// As a floor of three lines has it after three weeks.
RecordsAnswer usual()
{
    RecordsAnswer answer;
    answer.time = QDateTime(QDate(2026, 3, 20), QTime(16, 30));
    for (int day = 0; day < 20; ++day) {
        for (const char *station : {"line-1", "line-2", "line-3"}) {
            for (const char *variant : {"", "model-b.json"})
                answer.units.append(group(QDate(2026, 3, 1).addDays(day),
                                          QStringLiteral("production"), QLatin1String(station),
                                          QLatin1String(variant), 90 + 13 * day % 40));
        }
    }
    const QStringList steps = {QStringLiteral("Bus voltage"),      QStringLiteral("Backlight dim"),
                               QStringLiteral("Target centre"),    QStringLiteral("Flash NAND"),
                               QStringLiteral("Relayed line"),     QStringLiteral("Red bars shown"),
                               QStringLiteral("Mount the system"), QStringLiteral("Buzzer")};
    for (int i = 0; i < steps.size(); ++i) {
        answer.failures.append({QStringLiteral("production"), steps.at(i), 60 / (i + 1)});
        answer.slowest.append(
            {QStringLiteral("production"), steps.at(i), 11000, 40.0 / (i + 1), 90.0 / (i + 1)});
        answer.quantities.append(quantity(steps.at(i), QStringLiteral("voltage"),
                                          QStringLiteral("mV"), 12300 + 50 * i, 900, 11000, 14500));
    }
    return answer;
}

RecordsAnswer longNames()
{
    RecordsAnswer answer = usual();
    answer.which =
        QStringLiteral("since 2026-03-01, plan %1, station %1").arg(QLatin1String(LongName));
    for (UnitGroup &each : answer.units) {
        each.station += QLatin1Char(' ') + QLatin1String(LongName);
        each.variant += QStringLiteral("colour=red_as_the_second_customer_wants_it, low=11000, "
                                       "high=14500, version=20260105 4.1");
    }
    for (StepFailures &each : answer.failures)
        each = {QLatin1String(LongName), each.step + QLatin1Char(' ') + QLatin1String(LongName),
                each.records * 12345};
    for (StepTime &each : answer.slowest) {
        each.step += QLatin1Char(' ') + QLatin1String(LongName);
        each.plan = QLatin1String(LongName);
        each.runs *= 1000;
        each.mean *= 100;
        each.most *= 1000;
    }
    for (QuantityAnswer &each : answer.quantities) {
        each.plan = each.step = each.name = QLatin1String(LongName);
        each.unit = QStringLiteral("millivolts_at_the_connector");
    }
    return answer;
}

RecordsAnswer farLimits()
{
    RecordsAnswer answer = usual();
    const QString step = QStringLiteral("Bus voltage");
    const QString name = QStringLiteral("voltage");
    const QString unit = QStringLiteral("V");
    answer.quantities = {
        quantity(step, name, unit, 12.5, 0.001, -1e9, 1e9),
        quantity(step, name, unit, 1.2345678e-9, 1e-13, 1e-9, 2e-9),
        quantity(step, name, unit, -123456789.125, 12345.5, std::nullopt, 0),
        quantity(step, name, unit, 99999999, 1, 12, std::nullopt),
        quantity(step, name, unit, 5, 3, std::nullopt, std::nullopt),
        quantity(step, name, unit, 12345, 0, 11000, 14500),
        quantity(step, name, unit, 3, 4, 4, 5),
    };
    return answer;
}

RecordsAnswer overManyMonths()
{
    RecordsAnswer answer = usual();
    answer.units.clear();
    for (int month = 0; month < 72; ++month)
        answer.units.append(group(QDate(2020, 1, 15).addMonths(month), QStringLiteral("production"),
                                  QStringLiteral("line-1"), QString(), 2000 + month * 37 % 900));
    return answer;
}

RecordsAnswer ofOneDay()
{
    RecordsAnswer answer = usual();
    answer.units = answer.units.mid(0, 6);
    return answer;
}

RecordsAnswer ofNone()
{
    RecordsAnswer answer;
    answer.time = usual().time;
    answer.which = QStringLiteral("since 2030-01-01, station line-9");
    return answer;
}

RecordsAnswer ofOneRecord()
{
    RecordsAnswer answer = ofNone();
    answer.which = QString();
    answer.units = {group(QDate(2026, 3, 1), QStringLiteral("production"), QStringLiteral("line-1"),
                          QString(), 1)};
    answer.slowest = {{QStringLiteral("production"), QStringLiteral("Flash NAND"), 1, 8.5, 8.5}};
    QuantityAnswer one = quantity(QStringLiteral("Bus voltage"), QStringLiteral("voltage"),
                                  QStringLiteral("mV"), 12345, 0, 11000, 14500);
    one.values.count = 1;
    one.outside = 0;
    answer.quantities = {one};
    return answer;
}

RecordsAnswer ofManyVariants()
{
    RecordsAnswer answer = usual();
    for (int i = 0; i < 60; ++i)
        answer.units.append(group(QDate(2026, 3, 2), QStringLiteral("production"),
                                  QStringLiteral("line-1"), QStringLiteral("model-%1.json").arg(i),
                                  i));
    std::sort(answer.units.begin(), answer.units.end(),
              [](const UnitGroup &a, const UnitGroup &b) { return a.day < b.day; });
    return answer;
}

struct Case {
    const char *name;
    RecordsAnswer (*answer)();
    int pages; ///< of paper, at most
};

const Case Cases[] = {
    {"usual", usual, 3},
    {"long names", longNames, 6},
    {"far limits", farLimits, 3},
    {"many months", overManyMonths, 3},
    {"one day", ofOneDay, 3},
    {"no record", ofNone, 1},
    {"one record", ofOneRecord, 1},
    {"many variants", ofManyVariants, 4},
};

} // namespace

Q_DECLARE_METATYPE(const Case *)

class TestRecordsLayout : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void fitsTheScreen_data();
    void fitsTheScreen();
    void fitsThePaper_data();
    void fitsThePaper();

private:
    Browser m_browser;
};

void TestRecordsLayout::initTestCase()
{
    const QString folder = qEnvironmentVariable("PAGES"); // for a look by hand
    for (const Case &each : Cases) {
        QFile file(folder + QLatin1Char('/') + QLatin1String(each.name) + QStringLiteral(".html"));
        if (!folder.isEmpty() && file.open(QIODevice::WriteOnly))
            file.write(recordsReport(each.answer()));
    }
    const QString missing = Browser::missing();
    if (!missing.isEmpty()) {
        printf("SKIPPED: %s\n", qPrintable(missing));
        QSKIP(qPrintable(missing));
    }
}

void TestRecordsLayout::fitsTheScreen_data()
{
    QTest::addColumn<const Case *>("shown");
    QTest::addColumn<int>("width");
    QTest::addColumn<bool>("open");
    for (const Case &each : Cases) {
        for (const int width : {Browser::Phone, Browser::Desk})
            QTest::addRow("%s at %d", each.name, width) << &each << width << false;
    }
    for (const int width : {Browser::Phone, Browser::Desk})
        QTest::addRow("in figures at %d", width) << &Cases[1] << width << true;
    QTest::addRow("usual at %d", int(Browser::Tablet)) << &Cases[0] << int(Browser::Tablet) << true;
}

void TestRecordsLayout::fitsTheScreen()
{
    QFETCH(const Case *, shown);
    QFETCH(int, width);
    QFETCH(bool, open);
    QByteArray html = recordsReport(shown->answer());
    if (open)
        html.replace("<details", "<details open");
    const QJsonObject found = m_browser.measured(html, width);
    const QByteArray told = QJsonDocument(found).toJson();
    QVERIFY2(found.value(QStringLiteral("elements")).toInt() >= 4, told.constData());
    QCOMPARE(found.value(QStringLiteral("width")).toInt(), width);
    QVERIFY2(found.value(QStringLiteral("scrolled")).toInt() <= width, told.constData());
    QVERIFY2(found.value(QStringLiteral("least")).toDouble() >= SmallestOnScreen, told.constData());
    for (const char *fault : {"wide", "narrow", "broken"})
        QVERIFY2(found.value(QLatin1String(fault)).toArray().isEmpty(), told.constData());
}

void TestRecordsLayout::fitsThePaper_data()
{
    QTest::addColumn<const Case *>("shown");
    for (const Case &each : Cases)
        QTest::newRow(each.name) << &each;
}

void TestRecordsLayout::fitsThePaper()
{
    QFETCH(const Case *, shown);
    const QByteArray html = recordsReport(shown->answer());
    const QJsonObject found = m_browser.measuredOnPaper(html);
    const QByteArray told = QJsonDocument(found).toJson();
    QVERIFY2(found.value(QStringLiteral("elements")).toInt() >= 4, told.constData());
    QVERIFY2(found.value(QStringLiteral("least")).toDouble() >= SmallestOnPaper, told.constData());
    for (const char *fault : {"wide", "narrow", "broken"})
        QVERIFY2(found.value(QLatin1String(fault)).toArray().isEmpty(), told.constData());
    const QString missing = Browser::missingForPrint();
    if (!missing.isEmpty())
        QSKIP(qPrintable(missing));
    const Browser::Print print = m_browser.printed(html);
    QVERIFY2(print.pages >= 1 && print.pages <= shown->pages,
             qPrintable(QString::number(print.pages)));
    QVERIFY2(print.title.startsWith(QStringLiteral("Production records: ")),
             qPrintable(print.title));
    QVERIFY2(print.text.contains(QStringLiteral("2026-03-20 16:30")), qPrintable(print.text));
}

MFTOOL_TEST(TestRecordsLayout, EventLoop)
#include "tst_recordslayout.moc"
