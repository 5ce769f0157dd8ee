#include "bench/line/console.h"

#include "tests/bench/line/samplerecord.h"
#include "tests/support/testprogram.h"

#include <QTest>

#include <memory>

#include <fcntl.h>
#include <pty.h>
#include <stdlib.h>
#include <unistd.h>

namespace
{

struct Closer {
    void operator()(FILE *file) const { std::fclose(file); }
};

/// A stream whose content can be looked at.
class Paper
{
public:
    Paper() : m_file(std::tmpfile()) {}
    FILE *stream() const { return m_file.get(); }
    QString text() const
    {
        std::fflush(m_file.get());
        std::rewind(m_file.get());
        QByteArray all(1 << 16, '\0');
        all.resize(static_cast<int>(
            std::fread(all.data(), 1, static_cast<size_t>(all.size()), m_file.get())));
        return QString::fromUtf8(all);
    }

private:
    std::unique_ptr<FILE, Closer> m_file;
};

Plan samplePlan()
{
    Plan plan;
    plan.title = QStringLiteral("Test of units");
    for (const char *name : {"Volts", "Light", "Key", "Died", "Rest"}) {
        Plan::Step step;
        step.name = QString::fromLatin1(name);
        plan.steps.append(step);
    }
    return plan;
}

} // namespace

class TestConsole : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void writesPlainTextIntoAFile();
    void coloursATerminal();
    void rewritesTheLineOfProgress();
    void saysWhatWasSkipped();
    void cutsLongValues();
    void summarisesUnits();
    void tellsFirstPassesFromFinalOnes();
    void saysWhereTheTimeWent();
    void countsUnitsThatWereNotTested();
    void saysWhyAUnitEndedBetweenSteps();
    void noticesThatNobodyReads();
    void takesAFileForNoTerminal();
    void rewritesTheLineWithoutColour();
    void keepsProgressInOneLine();
};

void TestConsole::init()
{
    qunsetenv("NO_COLOR");
}

void TestConsole::writesPlainTextIntoAFile()
{
    Paper paper;
    Console console(paper.stream(), false);
    UnitRecord unit = sampleRecord();
    unit.conclude();
    const Plan plan = samplePlan();
    console.begin(plan, unit, 4);
    for (int i = 0; i < 5; ++i) {
        console.stepStarted(plan.steps.at(i), i + 1);
        console.progressed(QStringLiteral("soon")); // too soon for a file
        console.stepEnded(unit.steps.at(i));
    }
    console.end(unit, QStringLiteral("out/x"));
    QCOMPARE(
        paper.text(),
        QString::fromLatin1(
            R"(Test of units: 5 steps on virtual keypad, unit 3 of 4, serial number KP-0042, fault: led-missing
PASS          1 Volts    52 ms  voltage 12345 mV  [11000 to 14500 mV]
FAIL          2 Light   250 ms  sys/a=1  (try 2)  (1 check skipped)
                 expected  ACK
                 came      NAK
                 raw       7E000A00053202977F\r\n
TIME-OUT      3 Key     5.00 s  
                 expected  ACK
                 came      nothing
ERROR         4 Died    500 ms  
                 reason    the tool crashed
ERROR       1 pass, 1 fail, 1 time-out, 1 error, 1 not run of 5 steps in 12.3 s
            step 2 "Light": fail
            step 3 "Key": time-out
            step 4 "Died": error
Report:  out/x/report.html
)"));
}

void TestConsole::coloursATerminal()
{
    Paper paper;
    Console console(paper.stream(), true);
    const UnitRecord unit = sampleRecord();
    console.stepEnded(unit.steps.at(0));
    console.stepEnded(unit.steps.at(1));
    console.stepEnded(unit.steps.at(2));
    const QString text = paper.text();
    QVERIFY(text.startsWith(QStringLiteral("\033[32mPASS       \033[0m")));
    QVERIFY(text.contains(QStringLiteral("\n\033[1;31mFAIL       \033[0m")));
    QVERIFY(text.contains(QStringLiteral("\n\033[1;35mTIME-OUT   \033[0m")));
}

void TestConsole::rewritesTheLineOfProgress()
{
    Paper paper;
    Console console(paper.stream(), true);
    const Plan plan = samplePlan();
    console.begin(plan, sampleRecord(), 1);
    console.stepStarted(plan.steps.first(), 1);
    console.progressed(QStringLiteral("40 %"));
    console.progressed(QStringLiteral("50 %"));
    console.stepEnded(sampleRecord().steps.first());
    const QString text = paper.text();
    QVERIFY(text.contains(QStringLiteral("\n...           1 Volts\r\033[K"
                                         "...           1 Volts  40 %\r\033[K"
                                         "...           1 Volts  50 %\r\033[K"
                                         "\033[32mPASS")));
}

void TestConsole::saysWhatWasSkipped()
{
    Paper paper;
    Console console(paper.stream(), false);
    StepRecord step = sampleStep(1, "s", Outcome::Pass, 0);
    step.checks = {CheckRecord(), CheckRecord()};
    console.stepEnded(step);
    QVERIFY(paper.text().endsWith(QStringLiteral("(2 checks skipped)\n")));
}

void TestConsole::cutsLongValues()
{
    Paper paper;
    Console console(paper.stream(), false);
    StepRecord step = sampleStep(1, "s", Outcome::Pass, 0);
    step.received = QStringList{QString(200, QLatin1Char('x'))};
    console.stepEnded(step);
    QVERIFY(paper.text().endsWith(QString(87, QLatin1Char('x')) + QStringLiteral("...\n")));
}

void TestConsole::summarisesUnits()
{
    Paper paper;
    Console console(paper.stream(), false);
    UnitRecord good = sampleRecord();
    good.outcome = Outcome::Pass;
    good.number = 1;
    UnitRecord bad = sampleRecord();
    bad.number = 2;
    bad.end = bad.start.addMSecs(3000);
    bad.conclude();
    console.summary({good, good, bad}, QStringLiteral("out/x"));
    QCOMPARE(paper.text(), QString::fromLatin1(R"(
PASS        unit   1 KP-0042        12.3 s  
PASS        unit   1 KP-0042        12.3 s  
ERROR       unit   2 KP-0042        3.00 s  step 4 "Died": the tool crashed
Yield 66.7 % (2 of 3 units), 9.23 s a unit on average, 12.3 s the longest, 27.7 s in all
Report:  out/x/report.html
)"));
}

void TestConsole::tellsFirstPassesFromFinalOnes()
{
    Paper paper;
    Console console(paper.stream(), false);
    UnitRecord first = sampleRecord();
    first.outcome = Outcome::Fail;
    first.reason = QStringLiteral("too low");
    UnitRecord second = sampleRecord();
    second.outcome = Outcome::Pass;
    second.attempt = 2;
    console.summary({first, second}, QStringLiteral("out/x"));
    QCOMPARE(paper.text(), QString::fromLatin1(R"(
FAIL        unit   3 KP-0042        12.3 s  too low
PASS        unit   3 KP-0042        12.3 s  attempt 2
Yield 100.0 % (1 of 1 units), first pass 0.0 % (0), 24.7 s a unit on average, 12.3 s the longest, 24.7 s in all
Report:  out/x/report.html
)"));
}

void TestConsole::saysWhereTheTimeWent()
{
    Paper paper;
    Console console(paper.stream(), false);
    UnitRecord unit;
    unit.steps = {sampleStep(1, "a", Outcome::Pass, 0)};
    unit.outcome = Outcome::Pass;
    unit.time.tool = 1.25;
    unit.time.flash = 8.5;
    unit.time.bench = 0.125;
    console.end(unit, QStringLiteral("out/x"));
    QVERIFY2(paper.text().contains(
                 QStringLiteral("\nTime:    tool 1.25 s, flash 8.50 s, bench 125 ms\nReport:")),
             qPrintable(paper.text()));
}

void TestConsole::countsUnitsThatWereNotTested()
{
    Paper paper;
    Console console(paper.stream(), false);
    UnitRecord good = sampleRecord();
    good.outcome = Outcome::Pass;
    good.number = 1;
    UnitRecord none;
    none.number = 2;
    none.serialNumber = QStringLiteral("KP-0043");
    none.reason = QStringLiteral("interrupted");
    console.summary({good, none, none}, QStringLiteral("out/x"));
    QCOMPARE(paper.text(), QString::fromLatin1(R"(
PASS        unit   1 KP-0042        12.3 s  
NOT RUN     unit   2 KP-0043                interrupted
NOT RUN     unit   2 KP-0043                interrupted
Yield 33.3 % (1 of 3 units), 2 not tested, 12.3 s a unit on average, 12.3 s the longest, 12.3 s in all
Report:  out/x/report.html
)"));
}

void TestConsole::saysWhyAUnitEndedBetweenSteps()
{
    Paper paper;
    Console console(paper.stream(), false);
    UnitRecord unit;
    unit.steps = {sampleStep(1, "a", Outcome::Pass, 0), sampleStep(2, "b", Outcome::NotRun, 0)};
    unit.outcome = Outcome::Interrupted;
    unit.reason = QStringLiteral("before step 2 \"b\": interrupted");
    console.end(unit, QString());
    QCOMPARE(paper.text(), QString::fromLatin1(R"(INTERRUPTED 1 pass, 1 not run of 2 steps in 0.0 ms
            before step 2 "b": interrupted
Report:  none, it could not be written
)"));
}

void TestConsole::noticesThatNobodyReads()
{
    int ends[2] = {-1, -1};
    QVERIFY(pipe2(ends, O_CLOEXEC) == 0);
    const std::unique_ptr<FILE, Closer> out(fdopen(ends[1], "w"));
    Interrupt interrupt;
    interrupt.followSignals(); // the pipe's signal would end the test
    Console console(out.get(), false, &interrupt);
    StepRecord step = sampleStep(1, "s", Outcome::Pass, 0);
    console.stepEnded(step);
    QVERIFY(!interrupt.isRaised());
    close(ends[0]);
    console.stepEnded(step);
    QVERIFY(interrupt.isRaised());
    QCOMPARE(interrupt.reason(), QStringLiteral("interrupted: nobody reads the output"));
}

void TestConsole::takesAFileForNoTerminal()
{
    Paper paper;
    QVERIFY(!Console::isTerminal(paper.stream()));
    const int master = posix_openpt(O_RDWR | O_NOCTTY);
    QVERIFY(master >= 0);
    const std::unique_ptr<FILE, Closer> terminal(fdopen(master, "w"));
    QVERIFY(Console::isTerminal(terminal.get()));
}

void TestConsole::rewritesTheLineWithoutColour()
{
    qputenv("NO_COLOR", "1");
    Paper paper;
    Console console(paper.stream(), true);
    const Plan plan = samplePlan();
    console.begin(plan, sampleRecord(), 1);
    console.stepStarted(plan.steps.first(), 1);
    console.stepEnded(sampleRecord().steps.first());
    QVERIFY2(paper.text().contains(
                 QStringLiteral("\n...           1 Volts\r\033[KPASS          1 Volts")),
             qPrintable(paper.text()));
    QCOMPARE(paper.text().count(QLatin1Char('\033')), 1);
}

void TestConsole::keepsProgressInOneLine()
{
    int screen = -1;
    int terminal = -1;
    const winsize narrow = {24, 60, 0, 0};
    QVERIFY(openpty(&screen, &terminal, nullptr, nullptr, &narrow) == 0);
    std::unique_ptr<FILE, Closer> out(fdopen(terminal, "w"));
    Console console(out.get(), true);
    const Plan plan = samplePlan();
    console.begin(plan, sampleRecord(), 1);
    console.stepStarted(plan.steps.first(), 1);
    console.progressed(QString(80, QLatin1Char('x')));
    out.reset(); // what was written stays readable up to the end
    QByteArray shown;
    char chunk[4096];
    for (ssize_t count; (count = read(screen, chunk, sizeof chunk)) > 0;)
        shown.append(chunk, static_cast<int>(count));
    close(screen);
    // The last column stays free: a line that fills it goes on in the next one.
    const QByteArray last = shown.mid(shown.lastIndexOf("\033[K") + 3);
    QCOMPARE(last, "...           1 Volts  " + QByteArray(36, 'x'));
}

MFTOOL_TEST(TestConsole, EventLoop)
#include "tst_console.moc"
