/// How the reports look in a browser: at the width of a telephone and of a desk, and on
/// paper. Chromium shows them; where it is missing the tests are skipped.
#include "bench/line/plan.h"
#include "bench/line/report.h"
#include "bench/station/meaning.h"
#include "bench/station/messages.h"
#include "tests/bench/browser.h"
#include "tests/bench/line/samplerecord.h"
#include "tests/support/testprogram.h"

#include <QImage>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTemporaryDir>
#include <QTest>

namespace
{

QString readable(const Plan::Expected &expected)
{
    return expected.isFrame ? wire::typeName(expected.type) : expected.text.value_or(QString());
}

StepRecord passedStep(const Plan::Step &step, int number)
{
    StepRecord record = sampleStep(number, "", Outcome::Pass, 0.012 * number);
    record.name = step.name;
    record.group = step.group;
    if (step.request)
        record.sent = wire::meaningOf(*step.request).text;
    for (const Plan::Expected &expected : step.expected) {
        record.received.append(readable(expected));
        for (const Plan::Limit &limit : expected.fields) {
            Measurement measured;
            measured.name = limit.field;
            measured.value = limit.text ? QVariant(*limit.text) : QVariant(limit.min.value_or(0));
            measured.unit = limit.unit;
            measured.limits = limit.describe();
            measured.good = true;
            record.measured.append(measured);
        }
    }
    for (const Plan::Check &check : step.checks) {
        CheckRecord held;
        held.what = check.describe();
        held.brief = check.brief();
        held.result = CheckRecord::Held;
        record.checks.append(held);
    }
    if (!step.picture.isEmpty())
        record.picture = step.picture + QStringLiteral(".png");
    return record;
}

/// A unit that passed the whole production plan.
UnitRecord passedUnit()
{
    QString error;
    const std::optional<Plan> plan =
        Plan::load(QStringLiteral(SOURCE_DIR "/bench/plans/production.json"), &error);
    UnitRecord unit = sampleRecord();
    unit.steps.clear();
    if (!plan)
        return unit;
    unit.planTitle = plan->title;
    unit.planFile = QStringLiteral("/home/factory/plans/production.json");
    unit.faults.clear();
    int number = 0;
    for (const Plan::Step &step : plan->steps)
        unit.steps.append(passedStep(step, ++number));
    unit.conclude();
    return unit;
}

/// The same with steps of every other outcome, and reasons as long as they come.
UnitRecord failedUnit()
{
    UnitRecord unit = passedUnit();
    const QList<StepRecord> samples = sampleRecord().steps;
    for (int i = 1; i < samples.size(); ++i) {
        StepRecord &step = unit.steps[i + 5];
        step.outcome = samples.at(i).outcome;
        step.expected = step.checks.isEmpty() ? samples.at(i).expected : step.checks.first().what;
        step.came = step.expected + QStringLiteral(", then 0 to /sys/class/leds/ac/brightness");
        step.raw = "7E000A00053202977F\\r\\n7E000A00053202977F\\r\\n7E000A00053202977F\\r\\n";
        step.reason = QStringLiteral("expected %1; came %2").arg(step.expected, step.came);
    }
    unit.outcome = Outcome::NotRun;
    unit.conclude();
    return unit;
}

Transcript longTranscript()
{
    Transcript transcript;
    for (int i = 0; i < 300; ++i) {
        Transcript::Entry entry;
        entry.time = Q_INT64_C(1772353800125000) + i * 1000;
        entry.kind = i % 2 == 0 ? Transcript::Sent : Transcript::Received;
        entry.bytes = "7E003A7021746865206669726D776172652773206C6F6E672076657273696F6E7F\r\n";
        entry.text = QStringLiteral("version reply, major 1, minor 2, version 20140101 1.2");
        transcript.append(entry);
    }
    return transcript;
}

QByteArray longLog()
{
    return QByteArray("12:00:00.000 debug    Using test pattern '/home/default/bars.png'\n")
        .repeated(250);
}

} // namespace

class TestReportLayout : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void fitsTheScreen_data();
    void fitsTheScreen();
    void takesFewPages_data();
    void takesFewPages();

private:
    QByteArray page(const QString &name) const;
    QTemporaryDir m_dir; ///< with the pictures of a record
    Browser m_browser;
};

void TestReportLayout::initTestCase()
{
    QVERIFY(m_dir.isValid());
    const QList<StepRecord> steps = passedUnit().steps;
    QVERIFY(steps.size() > 50);
    for (const StepRecord &step : steps) {
        if (step.picture.isEmpty())
            continue;
        QImage picture(800, 480, QImage::Format_RGB32);
        picture.fill(Qt::darkCyan);
        QVERIFY(picture.save(m_dir.filePath(step.picture)));
    }
    const QString missing = Browser::missing();
    if (!missing.isEmpty()) {
        printf("SKIPPED: %s\n", qPrintable(missing));
        QSKIP(qPrintable(missing));
    }
}

QByteArray TestReportLayout::page(const QString &name) const
{
    if (name == QLatin1String("passed"))
        return unitReport(passedUnit(), m_dir.path(), longTranscript(), longLog());
    if (name == QLatin1String("failed"))
        return unitReport(failedUnit(), m_dir.path(), longTranscript(), longLog());
    QList<UnitRecord> units;
    QStringList folders;
    for (int i = 1; i <= 20; ++i) {
        units.append(i % 4 == 0 ? failedUnit() : passedUnit());
        units.last().number = i;
        folders.append(QStringLiteral("unit-%1").arg(i));
    }
    return lineReport(units, folders);
}

void TestReportLayout::fitsTheScreen_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<int>("width");
    QTest::addColumn<bool>("open");
    QTest::addColumn<bool>("printed");
    for (const char *name : {"passed", "failed", "summary"}) {
        for (const int width : {Browser::Phone, Browser::Tablet, Browser::Desk})
            QTest::addRow("%s at %d", name, width)
                << QString::fromLatin1(name) << width << false << false;
    }
    for (const int width : {Browser::Phone, Browser::Desk})
        QTest::addRow("all open at %d", width)
            << QStringLiteral("failed") << width << true << false;
    QTest::addRow("printed") << QStringLiteral("failed") << int(Browser::Paper) << false << true;
}

void TestReportLayout::fitsTheScreen()
{
    QFETCH(QString, name);
    QFETCH(int, width);
    QFETCH(bool, open);
    QFETCH(bool, printed);
    QByteArray html = page(name);
    if (open)
        html.replace("<details", "<details open");
    const QJsonObject found =
        printed ? m_browser.measuredOnPaper(html) : m_browser.measured(html, width);
    const QByteArray told = QJsonDocument(found).toJson();
    QVERIFY2(found.value(QStringLiteral("elements")).toInt() > 100, told.constData());
    QCOMPARE(found.value(QStringLiteral("width")).toInt(), width);
    QVERIFY2(found.value(QStringLiteral("scrolled")).toInt() <= width, told.constData());
    for (const char *fault : {"wide", "narrow", "broken", "loud"})
        QVERIFY2(found.value(QLatin1String(fault)).toArray().isEmpty(), told.constData());
}

void TestReportLayout::takesFewPages_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<int>("pages");
    QTest::addColumn<QString>("title");
    QTest::newRow("passed") << QStringLiteral("passed") << 4 << QStringLiteral("KP-0042 pass");
    QTest::newRow("failed") << QStringLiteral("failed") << 5 << QStringLiteral("KP-0042 error");
    QTest::newRow("summary of twenty")
        << QStringLiteral("summary") << 2 << QStringLiteral("15 of 20 passed");
}

void TestReportLayout::takesFewPages()
{
    const QString missing = Browser::missingForPrint();
    if (!missing.isEmpty())
        QSKIP(qPrintable(missing));
    QFETCH(QString, name);
    QFETCH(int, pages);
    QFETCH(QString, title);
    const Browser::Print print = m_browser.printed(page(name));
    QVERIFY(print.pages > 0);
    QVERIFY2(print.pages <= pages, qPrintable(QString::number(print.pages)));
    QVERIFY2(print.title.startsWith(title), qPrintable(print.title));
    for (const char *text : {"2026-03-01 09:30:00", "production.json", "desk 3"})
        QVERIFY2(print.text.contains(QLatin1String(text)), qPrintable(print.text));
}

MFTOOL_TEST(TestReportLayout, Widgets)
#include "tst_reportlayout.moc"
