/// How the reports look in a browser: at the width of a telephone and of a desk, and on
/// paper. Chromium shows them; where it is missing the tests are skipped.
#include "bench/line/plan.h"
#include "bench/line/report.h"
#include "bench/station/meaning.h"
#include "bench/station/messages.h"
#include "tests/bench/line/samplerecord.h"
#include "tests/support/testprogram.h"

#include <QImage>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>

namespace
{

const int Phone = 390;
const int Tablet = 760; // the narrowest with columns
const int Desk = 1280;
const int BrowserLimitMs = 120000;

/// Measures a page inside of a frame as wide as a screen and answers in JSON.
const char *const MeasureScript = R"(
function measure(frame) {
  const page = frame.contentDocument, view = frame.contentWindow;
  const size = e => parseFloat(view.getComputedStyle(e).fontSize);
  const shown = e => e.getClientRects().length > 0;
  const all = [...page.body.querySelectorAll('*')].filter(shown);
  const wide = all.filter(e => e.getBoundingClientRect().right > view.innerWidth + 1 ||
                               e.getBoundingClientRect().left < -1);
  // A column with sentences must be wide enough to read them.
  const narrow = all.filter(e => /^(TD|DD|P|H1)$/.test(e.tagName) &&
                                 e.textContent.trim().length > 30 &&
                                 e.getBoundingClientRect().width < 8.5 * size(e));
  const broken = [];
  const walker = page.createTreeWalker(page.body, NodeFilter.SHOW_TEXT);
  while (walker.nextNode()) {
    for (const match of walker.currentNode.data.matchAll(/\d{4}-\d\d-\d\d \d\d:\d\d:\d\d/g)) {
      const range = page.createRange();
      range.setStart(walker.currentNode, match.index);
      range.setEnd(walker.currentNode, match.index + match[0].length);
      if (range.getClientRects().length > 1)
        broken.push(match[0]);
    }
  }
  const lines = e => {
    const range = page.createRange();
    range.selectNodeContents(e);
    return new Set([...range.getClientRects()].map(r => Math.round(r.top))).size;
  };
  broken.push(...all.filter(e => e.matches('th, .mark, td.number') && lines(e) > 1)
                    .map(e => e.textContent));
  const loud = [...page.querySelectorAll('.steps tbody tr')].filter(row => {
    const name = row.querySelector('.name') || row.previousElementSibling.querySelector('.name');
    return name && [...row.querySelectorAll('*')].some(e => size(e) > size(name));
  });
  const told = list => list.slice(0, 5).map(e => e.tagName + '.' + e.className + ' ' +
                                                 e.textContent.trim().slice(0, 40));
  return { width: view.innerWidth, scrolled: page.documentElement.scrollWidth, wide: told(wide),
           narrow: told(narrow), broken: broken, loud: told(loud), elements: all.length };
}
window.onload = () => {
  document.body.textContent =
      'MEASURED' + JSON.stringify([...document.querySelectorAll('iframe')].map(measure)) + 'END';
};
)";

QString browser()
{
    for (const char *name : {"chromium", "chromium-browser", "google-chrome"}) {
        const QString found = QStandardPaths::findExecutable(QLatin1String(name));
        if (!found.isEmpty())
            return found;
    }
    return QString();
}

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
    QByteArray browse(const QStringList &arguments);
    QJsonObject measured(const QByteArray &html, int width);

    QString m_browser;
    QTemporaryDir m_dir;
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
    m_browser = browser();
    if (m_browser.isEmpty()) {
        puts("SKIPPED: chromium is not installed");
        QSKIP("chromium is not installed");
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

/// What Chromium says on its standard output.
QByteArray TestReportLayout::browse(const QStringList &arguments)
{
    const QTemporaryDir profile;
    QProcess process;
    process.setProcessChannelMode(QProcess::SeparateChannels);
    process.start(m_browser,
                  QStringList{QStringLiteral("--headless"), QStringLiteral("--no-sandbox"),
                              QStringLiteral("--disable-gpu"), QStringLiteral("--disable-quic"),
                              QStringLiteral("--no-first-run"),
                              QStringLiteral("--disable-background-networking"),
                              QStringLiteral("--disable-component-update"),
                              QStringLiteral("--disable-sync"),
                              QStringLiteral("--disable-dev-shm-usage"),
                              QStringLiteral("--user-data-dir=") + profile.path()} +
                      arguments);
    if (!process.waitForFinished(BrowserLimitMs))
        return QByteArray();
    return process.readAllStandardOutput();
}

QJsonObject TestReportLayout::measured(const QByteArray &html, int width)
{
    // A window has a minimum width, a frame has none.
    QFile file(m_dir.filePath(QStringLiteral("measure.html")));
    if (!file.open(QIODevice::WriteOnly))
        return QJsonObject();
    file.write("<!DOCTYPE html><meta charset=\"utf-8\"><script>");
    file.write(MeasureScript);
    file.write(
        "</script><body><iframe style=\"border:0;height:900px;width:" + QByteArray::number(width) +
        "px\" srcdoc=\"" + QString::fromUtf8(html).toHtmlEscaped().toUtf8() + "\"></iframe>");
    file.close();
    const QByteArray said =
        browse({QStringLiteral("--window-size=1400,1000"), QStringLiteral("--dump-dom"),
                QStringLiteral("file://") + file.fileName()});
    const auto from = said.indexOf("MEASURED[");
    const auto to = said.indexOf("END</body>");
    if (from < 0 || to < from)
        return QJsonObject();
    QByteArray json = said.mid(from + 8, to - from - 8);
    json.replace("&lt;", "<").replace("&gt;", ">").replace("&amp;", "&");
    return QJsonDocument::fromJson(json).array().first().toObject();
}

void TestReportLayout::fitsTheScreen_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<int>("width");
    QTest::addColumn<bool>("open");
    QTest::addColumn<bool>("printed");
    for (const char *name : {"passed", "failed", "summary"}) {
        for (const int width : {Phone, Tablet, Desk})
            QTest::addRow("%s at %d", name, width)
                << QString::fromLatin1(name) << width << false << false;
    }
    QTest::addRow("all open at %d", Phone) << QStringLiteral("failed") << Phone << true << false;
    QTest::addRow("all open at %d", Desk) << QStringLiteral("failed") << Desk << true << false;
    // As wide as the paper between its margins.
    QTest::addRow("printed") << QStringLiteral("failed") << 688 << false << true;
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
    if (printed)
        html.replace("@media print", "@media all").replace("@media screen", "@media not all");
    const QJsonObject found = measured(html, width);
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
    if (QStandardPaths::findExecutable(QStringLiteral("pdfinfo")).isEmpty())
        QSKIP("pdfinfo is not installed");
    QFETCH(QString, name);
    QFETCH(int, pages);
    QFETCH(QString, title);
    const QString html = m_dir.filePath(name + QStringLiteral(".html"));
    QFile file(html);
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write(page(name));
    file.close();
    const QString pdf = m_dir.filePath(name + QStringLiteral(".pdf"));
    browse({QStringLiteral("--no-pdf-header-footer"), QStringLiteral("--print-to-pdf=") + pdf,
            QStringLiteral("file://") + html});
    QProcess info;
    info.start(QStringLiteral("pdfinfo"), {pdf});
    QVERIFY(info.waitForFinished(BrowserLimitMs));
    const QString said = QString::fromUtf8(info.readAllStandardOutput());
    const QRegularExpressionMatch count =
        QRegularExpression(QStringLiteral("Pages: +(\\d+)")).match(said);
    QVERIFY2(count.hasMatch(), qPrintable(said));
    QVERIFY2(count.captured(1).toInt() <= pages, qPrintable(said));
    QVERIFY2(said.contains(QRegularExpression(QStringLiteral("Title: +") + title)),
             qPrintable(said));

    QProcess reader;
    reader.start(QStringLiteral("pdftotext"),
                 {QStringLiteral("-layout"), pdf, QStringLiteral("-")});
    QVERIFY(reader.waitForFinished(BrowserLimitMs));
    const QString text = QString::fromUtf8(reader.readAllStandardOutput());
    QVERIFY2(text.contains(QStringLiteral("2026-03-01 09:30:00")), qPrintable(text));
    QVERIFY2(text.contains(QStringLiteral("production.json")), qPrintable(text));
    QVERIFY2(text.contains(QStringLiteral("desk 3")), qPrintable(text));
}

MFTOOL_TEST(TestReportLayout, Widgets)
#include "tst_reportlayout.moc"
