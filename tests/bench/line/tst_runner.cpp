#include "bench/line/runner.h"

#include "tests/support/fakekeypad.h"
#include "tests/support/testprogram.h"

#include <QDir>
#include <QElapsedTimer>
#include <QTemporaryDir>
#include <QTest>
#include <QThread>
#include <QTimer>

#include <utility>

namespace
{

const QByteArray Ack = "7E000A00043102957F\r\n";
const QByteArray Nak = "7E000A00053202977F\r\n";
const QByteArray Na = "7E000A00033002937F\r\n";
const QByteArray FlashGood = "7E000C70523D0103357F\r\n";
const QByteArray FlashBad = "7E000C70523D0003347F\r\n";
const QByteArray Status0At10 = "7E000E70513E000A03A77F\r\n";
const QByteArray Status1At50 = "7E000E70513E0132039C7F\r\n";
const QByteArray Status3At100 = "7E000E70513E036403A37F\r\n";
const QByteArray Mounted = "7E000C70613D0103357F\r\n";
const QByteArray MountedOddly = "7E000C70613D0203367F\r\n";
const QByteArray Volts12345 = "7E001270810F0001234504347F\r\n";
const QByteArray Volts8720 = "7E001270810F0000872004367F\r\n";
const QByteArray Touch31x42 = "7E0010703108031042039A7F\r\n";

const QByteArray AskBacklight100 = "7E000E61431F006403607F";
const QByteArray AskButtons = "7E000A70701B028E7F";
const QByteArray AskVoltage = "7E000A70801C02907F";
const QByteArray AskFlashQuery = "7E000A70531C02907F";
const QByteArray AskRelay = "7E001170410AAT+VER?04677F";

/// A unit whose board shows what a test says.
class FakeUnit : public Unit
{
public:
    explicit FakeUnit(FakeKeypad *line) : keypad(line) {}

    QString description() const override { return QStringLiteral("fake"); }
    bool attach(Station *station, QString *) override
    {
        station->adopt(keypad->takeStationEnd());
        return true;
    }
    void beginStep() override { ++steps; }
    Done operate(const Plan::Operation &operation, bool confirm, int limitMs,
                 QString *error) override
    {
        asked.append(operation.ask);
        confirmed = confirm;
        operatorLimitMs = limitMs;
        if (done != Performed)
            *error = QStringLiteral("no hand");
        else if (!saysWhenTouched.isEmpty())
            keypad->say(saysWhenTouched);
        return done;
    }
    bool hasOperator() const override { return isReal; }
    Done look(const QString &question, int, QString *error) override
    {
        asked.append(question);
        if (hangsUpWhenSeen)
            keypad->hangUp();
        *error = QStringLiteral("no eye");
        return seen;
    }
    Finding check(const Plan::Check &, Difference *difference) override
    {
        *difference = {wanted, QStringLiteral("what is there")};
        ++looks;
        if (onCheck)
            onCheck();
        return findings.size() > 1 ? findings.takeFirst() : findings.first();
    }
    QImage screen() override { return shows; }
    QString end() override
    {
        if (const auto wait = std::exchange(onWait, nullptr))
            wait();
        return ended;
    }
    QByteArray log() override { return QByteArray(); }
    QString missedFault() const override { return QString(); }

    FakeKeypad *keypad;
    bool isReal = false;
    bool hangsUpWhenSeen = false;
    Done done = Performed;
    Done seen = Performed;
    QList<Finding> findings = {Holds};
    QString wanted; ///< of a finding's difference
    QString ended;
    QByteArray saysWhenTouched;
    QStringList asked;
    bool confirmed = false;
    int operatorLimitMs = 0;
    int steps = 0;
    int looks = 0;
    QImage shows;
    std::function<void()> onCheck;
    std::function<void()> onWait; ///< once, before the runner waits for a frame
};

class Listener : public RunWatcher
{
public:
    void stepStarted(const Plan::Step &step, int) override { started.append(step.name); }
    void progressed(const QString &text) override
    {
        progress.append(text);
        QThread::msleep(slownessMs); // as a terminal that is slow to print
    }
    void stepEnded(const StepRecord &step) override
    {
        ended.append(step.name);
        if (onEnded)
            onEnded(step);
    }

    unsigned long slownessMs = 0;
    std::function<void(const StepRecord &)> onEnded;
    QStringList started;
    QStringList progress;
    QStringList ended;
};

/// Everything around one run.
struct Bench {
    FakeKeypad keypad;
    FakeUnit unit{&keypad};
    Listener listener;
    RunOptions options;
    Station station;

    UnitRecord run(const QByteArray &steps)
    {
        QString error;
        const std::optional<Plan> plan =
            Plan::fromJson("{\"plan\":\"p\",\"title\":\"P\",\"limit_ms\":20000,"
                           "\"operator_limit_ms\":400,\"steps\":[" +
                               steps + "]}",
                           QStringLiteral("plan"), &error);
        if (!plan)
            qFatal("%s", qPrintable(error));
        unit.attach(&station, &error);
        UnitRecord record;
        Runner(*plan, &unit, &station, &listener, options).run(&record);
        return record;
    }
};

/// Calls @p then once while the runner waits for what may follow the first answer.
void afterTheAnswer(Bench *bench, const std::function<void()> &then)
{
    QObject::connect(&bench->station, &Station::received, &bench->keypad,
                     [bench, then, isFirst = true]() mutable {
                         if (isFirst)
                             bench->unit.onWait = then;
                         isFirst = false;
                     });
}

/// A long limit, for what must end before it.
const QByteArray Backlight = R"({"name":"light","request":"backlight 100","expect":["ACK"],
                                 "limit_ms":20000})";
const QByteArray Buttons = R"({"name":"buttons","request":"buttons","expect":["ACK"]})";
/// Five points of a touchscreen that counts 4 and 7 for a pixel.
const QByteArrayList RawPoints = {
    "7E001670210D00003960041805007F\r\n", "7E001670210D01003960344205017F\r\n",
    "7E001670210D02034040344204FB7F\r\n", "7E001670210D03034040041804FC7F\r\n",
    "7E001670210D04019000193004FC7F\r\n"};
const QByteArray Calibrating =
    R"({"name":"s","operator":{"ask":"a","do":[{"touch":[1,1]}]},"limit_ms":20000,
        "expect":["calibration point","calibration point","calibration point",
                  "calibration point","calibration point"],
        "calibration":{"max_error_px":6}})";
/// Time-outs are waited for.
const QByteArray HurriedButtons =
    R"({"name":"buttons","request":"buttons","expect":["ACK"],"limit_ms":300})";
const QByteArray HurriedSilence =
    R"({"name":"silence","request":"voltage","expect":["ACK"],"limit_ms":300})";
const QByteArray Poll = R"({"name":"flash","limit_ms":20000,
    "poll":{"request":"flash-query","every_ms":10,"at_least":2,"rising":"stage",
            "fields":{"percent":{"min":0,"max":101}}},
    "expect":[{"frame":"flash result","fields":{"success":1}}]})";

} // namespace

#define COMPARE_OUTCOME(step, wanted)                                                              \
    QCOMPARE(outcomeName((step).outcome), QString::fromLatin1(wanted))

class TestRunner : public QObject
{
    Q_OBJECT

private slots:
    void passesWhenAllIsAsExpected();
    void failsOnAnotherFrame();
    void failsOnTheWrongOrder();
    void failsOnOneFrameTooMany();
    void failsOnAFrameBeforeTheStep();
    void tellsWhoseTimeItWas();
    void failsOnADamagedFrame();
    void takesHalfAFrameForDamaged();
    void failsOnDataThatMeanNothing();
    void timesOutAndEndsASilentUnit();
    void timesOutAndGoesOnAfterASign();
    void measuresFieldsAgainstLimits();
    void comparesDataWithWildcards();
    void takesUnframedLines();
    void sendsRawBytesAsTheyStand();
    void triesAgain();
    void goesOnAfterAFailedStep();
    void endsAfterARequiredStep();
    void doesNotBlameTheNextStepForALateReply();
    void staysQuiet();
    void followsAPoll();
    void takesNaAfterTheEndOfWhatIsPolled();
    void failsWhenAPollIsRefused();
    void failsWhenAPolledFieldFalls();
    void failsWhenAPolledFieldIsOutOfLimits();
    void timesOutWhenAPollStalls();
    void asksNoMoreOnceTheResultIsThere();
    void failsAfterTooFewAnswers();
    void failsOnUnaskedProgress();
    void waitsForTheBoard();
    void failsOnABrokenCheck();
    void tellsWhereAStoreDiffers();
    void failsWhenTheBoardShowsNothingInTime();
    void skipsWhatItCannotLookAt();
    void doesNotSkipWhatItOughtToSee();
    void asksForAnOperation();
    void confirmsAnOperationBeforeARequest();
    void waitsLongerForAPerson();
    void waitsForABootOfARealUnit();
    void measuresACalibration();
    void failsACalibrationThatDoesNotFit();
    void takesTheLatestCalibration();
    void wantsRawPointsOfARealUnit();
    void endsWithoutAHand();
    void timesOutWithoutAPerson();
    void asksNobodyOnALineThatHungUp();
    void asksWhatAPersonSees();
    void asksNobodyAtAVirtualUnit();
    void doesNotPassWhatNobodySaw();
    void tellsAPictureThatWasLost();
    void endsWhenTheToolEnds();
    void hearsTheLastWordsOfATool();
    void endsWhenTheLineHangsUp();
    void endsWhenInterrupted();
    void anInterruptedCheckHasNotFailed();
    void anInterruptBetweenStepsEndsTheUnit();
    void aTryThatIsNotRepeatedHasNotFailedTheStep();
    void silenceNeedsAUnitThatCouldSpeak();
    void aToolThatShallEndMayBeSilent();
    void handsOverTheRecordAsItGrows();
    void takesPictures();
    void tellsAboutEveryStep();
    void notesStepsInTheTranscript();
};

void TestRunner::passesWhenAllIsAsExpected()
{
    Bench bench;
    bench.keypad.answer(AskBacklight100, Ack);
    const UnitRecord record = bench.run(Backlight);
    COMPARE_OUTCOME(record, "pass");
    QCOMPARE(record.reason, QString());
    QCOMPARE(int(record.steps.size()), 1);
    const StepRecord &step = record.steps.first();
    COMPARE_OUTCOME(step, "pass");
    QCOMPARE(step.number, 1);
    QCOMPARE(step.tries, 1);
    QCOMPARE(step.sent, QStringLiteral("backlight 100"));
    QCOMPARE(step.received, QStringList(QStringLiteral("ACK")));
    QCOMPARE(bench.keypad.requests, QList<QByteArray>({AskBacklight100}));
    QVERIFY(record.start <= record.end);
}

void TestRunner::failsOnAnotherFrame()
{
    Bench bench;
    bench.keypad.answer(AskBacklight100, Nak);
    const UnitRecord record = bench.run(Backlight);
    COMPARE_OUTCOME(record, "fail");
    QCOMPARE(record.reason, QStringLiteral("step 1 \"light\": expected ACK; came NAK"));
    QCOMPARE(record.steps.first().expected, QStringLiteral("ACK"));
    QCOMPARE(record.steps.first().came, QStringLiteral("NAK"));
    QCOMPARE(record.steps.first().raw, QByteArray("7E000A00053202977F\\r\\n"));
}

void TestRunner::failsOnTheWrongOrder()
{
    Bench bench;
    bench.keypad.answer(AskBacklight100, Mounted + Ack);
    const UnitRecord record =
        bench.run(R"({"name":"s","request":"backlight 100","expect":["ACK","mount result"]})");
    COMPARE_OUTCOME(record, "fail");
    QCOMPARE(record.steps.first().reason, QStringLiteral("expected ACK; came mounted"));
    // What else came is kept.
    QCOMPARE(record.steps.first().received,
             QStringList({QStringLiteral("mounted"), QStringLiteral("ACK")}));
}

void TestRunner::failsOnOneFrameTooMany()
{
    Bench bench;
    bench.keypad.answer(AskBacklight100, Ack + Ack);
    bench.keypad.answer(AskButtons, Ack);
    const UnitRecord record = bench.run(Backlight + "," + Buttons);
    COMPARE_OUTCOME(record.steps.at(0), "fail");
    QCOMPARE(record.steps.at(0).reason, QStringLiteral("expected nothing more; came ACK"));
    COMPARE_OUTCOME(record.steps.at(1), "pass");
}

void TestRunner::failsOnAFrameBeforeTheStep()
{
    Bench bench;
    bench.keypad.answer(AskBacklight100, Ack);
    bench.keypad.answer(AskButtons, Ack);
    bench.options.paceMs = 300;
    // In the pause after the first step.
    bench.listener.onEnded = [&bench](const StepRecord &step) {
        if (step.number == 1)
            bench.keypad.say(Touch31x42);
    };
    const UnitRecord record = bench.run(Backlight + "," + Buttons);
    COMPARE_OUTCOME(record.steps.at(0), "pass");
    COMPARE_OUTCOME(record.steps.at(1), "fail");
    QCOMPARE(record.steps.at(1).reason,
             QStringLiteral("expected nothing before the step; came touch at 31,42"));
}

/// The tool answers, the flash is asked about, a person acts; the rest is the bench's.
void TestRunner::tellsWhoseTimeItWas()
{
    const QByteArray touch = R"({"name":"touch","operator":{"ask":"Touch.",
        "do":[{"touch":[31,42]}]},"expect":["touch"]})";
    const auto time = [](const QByteArray &step, bool isReal) {
        Bench bench;
        bench.unit.isReal = isReal;
        bench.unit.saysWhenTouched = Touch31x42;
        bench.keypad.answer(AskBacklight100, Ack);
        bench.keypad.answer(AskFlashQuery, Status0At10);
        bench.keypad.answer(AskFlashQuery, Status1At50);
        bench.keypad.answer(AskFlashQuery, Status3At100 + FlashGood);
        const UnitRecord record = bench.run(step);
        return record.outcome == Outcome::Pass ? record.time : TimeSpent();
    };
    const TimeSpent tool = time(Backlight, true);
    QVERIFY(tool.tool > 0 && tool.bench > 0);
    QVERIFY(tool.flash == 0.0 && tool.operatorAt == 0.0);
    const TimeSpent hand = time(touch, false); // a virtual one
    QVERIFY(hand.tool > 0 && hand.operatorAt == 0.0);
    const TimeSpent person = time(touch, true);
    QVERIFY(person.operatorAt > 0 && person.tool == 0.0);
    const TimeSpent flash = time(R"({"name":"f","poll":{"request":"flash-query","every_ms":10},
        "expect":["flash result"]})",
                                 false);
    QVERIFY(flash.flash > 0.01 && flash.tool == 0.0); // three questions, 10 ms apart
}

void TestRunner::failsOnADamagedFrame()
{
    Bench bench;
    bench.keypad.answer(AskBacklight100, "7E000A00043102967F\r\n");
    const UnitRecord record = bench.run(Backlight);
    COMPARE_OUTCOME(record, "fail");
    QVERIFY2(record.steps.first().came.startsWith(QStringLiteral("damaged frame: checksum")),
             qPrintable(record.steps.first().came));
}

void TestRunner::takesHalfAFrameForDamaged()
{
    Bench bench;
    bench.keypad.answer(AskButtons, "7E000A00043");
    const UnitRecord record =
        bench.run(R"({"name":"s","request":"buttons","expect":["ACK"],"limit_ms":1500})");
    COMPARE_OUTCOME(record, "fail");
    QVERIFY2(record.steps.first().came.startsWith(QStringLiteral("damaged frame: ")),
             qPrintable(record.steps.first().came));
    QCOMPARE(record.steps.first().raw, QByteArray("7E000A00043"));
}

void TestRunner::failsOnDataThatMeanNothing()
{
    Bench bench;
    bench.keypad.answer(AskButtons, MountedOddly);
    const QByteArray step = R"({"name":"s","request":"buttons","expect":[)";
    COMPARE_OUTCOME(bench.run(step + "\"mount result\"]}"), "fail");

    // A plan that names the data takes the responsibility.
    Bench other;
    other.keypad.answer(AskButtons, MountedOddly);
    COMPARE_OUTCOME(other.run(step + R"({"frame":"mount result","data":"02"}]})"), "pass");
}

void TestRunner::timesOutAndEndsASilentUnit()
{
    Bench bench;
    const UnitRecord record = bench.run(HurriedButtons + "," + Backlight);
    COMPARE_OUTCOME(record, "time-out");
    COMPARE_OUTCOME(record.steps.at(0), "time-out");
    QCOMPARE(record.steps.at(0).reason, QStringLiteral("expected ACK; nothing came in 0.3 s"));
    QCOMPARE(record.steps.at(0).came, QStringLiteral("nothing"));
    COMPARE_OUTCOME(record.steps.at(1), "not run");
    QCOMPARE(record.steps.at(1).reason, QStringLiteral("the unit gave no sign in step 1"));
    QCOMPARE(bench.keypad.requests, QList<QByteArray>({AskButtons}));
}

void TestRunner::timesOutAndGoesOnAfterASign()
{
    Bench bench;
    bench.keypad.answer(AskButtons, Ack);
    bench.keypad.answer(AskBacklight100, Ack);
    const UnitRecord record = bench.run(
        R"({"name":"s","request":"buttons","expect":["ACK","mount result"],
            "limit_ms":1500},)" +
        Backlight);
    COMPARE_OUTCOME(record, "time-out");
    COMPARE_OUTCOME(record.steps.at(0), "time-out");
    QCOMPARE(record.steps.at(0).expected, QStringLiteral("mount result"));
    COMPARE_OUTCOME(record.steps.at(1), "pass");
}

void TestRunner::measuresFieldsAgainstLimits()
{
    const QByteArray step = R"({"name":"volts","request":"voltage","expect":[
        {"frame":"voltage reply","fields":{"voltage":{"min":11000,"max":14500,"unit":"mV"}}}]})";
    Bench good;
    good.keypad.answer(AskVoltage, Volts12345);
    const UnitRecord passed = good.run(step);
    COMPARE_OUTCOME(passed, "pass");
    QCOMPARE(int(passed.steps.first().measured.size()), 1);
    const Measurement measured = passed.steps.first().measured.first();
    QCOMPARE(measured.name, QStringLiteral("voltage"));
    QCOMPARE(measured.value.toInt(), 12345);
    QVERIFY(measured.good);
    QCOMPARE(passed.steps.first().value(), QStringLiteral("voltage 12345 mV"));
    QCOMPARE(passed.steps.first().limits(), QStringLiteral("11000 to 14500 mV"));

    Bench bad;
    bad.keypad.answer(AskVoltage, Volts8720);
    const UnitRecord failed = bad.run(step);
    COMPARE_OUTCOME(failed, "fail");
    QVERIFY(!failed.steps.first().measured.first().good);
    QCOMPARE(failed.steps.first().value(), QStringLiteral("voltage 8720 mV"));
    QCOMPARE(failed.steps.first().reason,
             QStringLiteral("expected voltage reply, voltage 11000 to 14500 mV; came voltage "
                            "reading '00008720'"));
}

void TestRunner::comparesDataWithWildcards()
{
    const QByteArray step = R"({"name":"volts","request":"voltage","expect":[
        {"frame":"voltage reply","data":"0001????"}]})";
    Bench good;
    good.keypad.answer(AskVoltage, Volts12345);
    COMPARE_OUTCOME(good.run(step), "pass");
    Bench bad;
    bad.keypad.answer(AskVoltage, Volts8720);
    COMPARE_OUTCOME(bad.run(step), "fail");
}

void TestRunner::takesUnframedLines()
{
    const QByteArray step =
        R"({"name":"relay","request":"relay AT+VER?","expect":[{"line":"AT+VER?"},"ACK"]})";
    Bench good;
    good.keypad.answer(AskRelay, "AT+VER?\r\n" + Ack);
    COMPARE_OUTCOME(good.run(step), "pass");
    Bench bad;
    bad.keypad.answer(AskRelay, "AT+VER\r\n" + Ack);
    const UnitRecord record = bad.run(step);
    COMPARE_OUTCOME(record, "fail");
    QCOMPARE(record.steps.first().came, QStringLiteral("unframed line \"AT+VER\""));
    Bench none;
    none.keypad.answer(AskRelay, Ack);
    QCOMPARE(none.run(step).steps.first().reason,
             QStringLiteral("expected the unframed line \"AT+VER?\"; came ACK"));
}

void TestRunner::sendsRawBytesAsTheyStand()
{
    Bench bench;
    bench.keypad.answer("7E\t\"x", Nak);
    const UnitRecord record = bench.run(R"({"name":"raw","raw":"7E\t\"x\r\n","expect":["NAK"]})");
    COMPARE_OUTCOME(record, "pass");
    QCOMPARE(record.steps.first().sent, QStringLiteral("7E\\t\\\"x\\r\\n"));
}

void TestRunner::triesAgain()
{
    const QByteArray step = R"({"name":"s","request":"buttons","expect":["ACK"],"tries":3})";
    Bench bench;
    bench.keypad.answer(AskButtons, Nak);
    bench.keypad.answer(AskButtons, Ack);
    const UnitRecord record = bench.run(step);
    COMPARE_OUTCOME(record, "pass");
    QCOMPARE(record.steps.first().tries, 2);
    QCOMPARE(record.steps.first().reason, QString());
    // The try that did not pass is kept whole.
    QCOMPARE(int(record.steps.first().attempts.size()), 2);
    const AttemptRecord first = record.steps.first().attempts.at(0);
    COMPARE_OUTCOME(first, "fail");
    QCOMPARE(first.sent, QStringLiteral("buttons"));
    QCOMPARE(first.received, QStringList(QStringLiteral("NAK")));
    QCOMPARE(first.reason, QStringLiteral("expected ACK; came NAK"));
    QCOMPARE(first.raw, QByteArray("7E000A00053202977F\\r\\n"));
    QVERIFY(first.seconds > 0 && first.start.isValid());
    const AttemptRecord second = record.steps.first().attempts.at(1);
    COMPARE_OUTCOME(second, "pass");
    QCOMPARE(second.received, QStringList(QStringLiteral("ACK")));
    QVERIFY(second.start >= first.start.addMSecs(qint64(first.seconds * 1000) - 1));
    QVERIFY(record.steps.first().seconds >= first.seconds + second.seconds);
    QCOMPARE(int(bench.keypad.requests.size()), 2);

    Bench never;
    never.keypad.answer(AskButtons, Nak);
    const UnitRecord failed = never.run(step);
    COMPARE_OUTCOME(failed, "fail");
    QCOMPARE(failed.steps.first().tries, 3);
    QCOMPARE(int(never.keypad.requests.size()), 3);
}

void TestRunner::goesOnAfterAFailedStep()
{
    Bench bench;
    bench.keypad.answer(AskButtons, Nak);
    bench.keypad.answer(AskBacklight100, Ack);
    const UnitRecord record = bench.run(Buttons + "," + Backlight);
    COMPARE_OUTCOME(record, "fail");
    COMPARE_OUTCOME(record.steps.at(0), "fail");
    COMPARE_OUTCOME(record.steps.at(1), "pass");
    QCOMPARE(record.reason, QStringLiteral("step 1 \"buttons\": expected ACK; came NAK"));
}

void TestRunner::endsAfterARequiredStep()
{
    Bench bench;
    bench.keypad.answer(AskButtons, Nak);
    const UnitRecord record = bench.run(
        R"({"name":"s","request":"buttons","expect":["ACK"],"required":true},)" + Backlight);
    COMPARE_OUTCOME(record, "fail");
    COMPARE_OUTCOME(record.steps.at(1), "not run");
    QCOMPARE(record.steps.at(1).reason, QStringLiteral("step 1 is required"));
}

void TestRunner::doesNotBlameTheNextStepForALateReply()
{
    Bench bench;
    bench.keypad.answer(AskButtons, Nak);
    bench.keypad.answer(AskBacklight100, Ack);
    // In the time a failed step is given: its first answer has been judged by then.
    afterTheAnswer(&bench, [&bench] { bench.keypad.say(Mounted); });
    const UnitRecord record = bench.run(Buttons + "," + Backlight);
    COMPARE_OUTCOME(record.steps.at(0), "fail");
    QCOMPARE(record.steps.at(0).received,
             QStringList({QStringLiteral("NAK"), QStringLiteral("mounted")}));
    COMPARE_OUTCOME(record.steps.at(1), "pass");
}

void TestRunner::staysQuiet()
{
    const QByteArray step = R"({"name":"s","request":"buttons","expect":["ACK"],"quiet_ms":20000})";
    Bench bench;
    bench.keypad.answer(AskButtons, Ack);
    afterTheAnswer(&bench, [&bench] { bench.keypad.say(Touch31x42); });
    QElapsedTimer clock;
    clock.start();
    const UnitRecord record = bench.run(step);
    COMPARE_OUTCOME(record, "fail");
    QCOMPARE(record.steps.first().reason,
             QStringLiteral("expected nothing more; came touch at 31,42"));
    QVERIFY(clock.elapsed() < 15000);

    Bench quiet;
    quiet.keypad.answer(AskButtons, Ack);
    clock.start();
    COMPARE_OUTCOME(quiet.run(R"({"name":"s","request":"buttons","expect":["ACK"],
                                  "quiet_ms":150})"),
                    "pass");
    QVERIFY(clock.elapsed() >= 150);
}

void TestRunner::followsAPoll()
{
    Bench bench;
    bench.keypad.answer(AskFlashQuery, Status0At10);
    bench.keypad.answer(AskFlashQuery, Status1At50);
    bench.keypad.answer(AskFlashQuery, Status3At100 + FlashGood);
    bench.keypad.answer(AskFlashQuery, "never asked");
    const UnitRecord record = bench.run(Poll);
    COMPARE_OUTCOME(record, "pass");
    QCOMPARE(bench.listener.progress,
             QStringList({QStringLiteral("flash stage 0 (boot stream) 10 %"),
                          QStringLiteral("flash stage 1 (scanning) 50 %"),
                          QStringLiteral("flash stage 3 (formatting) 100 %")}));
    QCOMPARE(record.steps.first().value(), QStringLiteral("success 1"));
}

void TestRunner::takesNaAfterTheEndOfWhatIsPolled()
{
    Bench bench;
    bench.keypad.answer(AskFlashQuery, Status0At10);
    bench.keypad.answer(AskFlashQuery, Status1At50);
    bench.keypad.answer(AskFlashQuery, FlashGood + Na);
    COMPARE_OUTCOME(bench.run(Poll), "pass");
}

void TestRunner::failsWhenAPollIsRefused()
{
    Bench bench;
    bench.keypad.answer(AskFlashQuery, Na);
    const UnitRecord record = bench.run(Poll);
    COMPARE_OUTCOME(record, "fail");
    QCOMPARE(record.steps.first().reason,
             QStringLiteral("expected flash result, success 1; came NA"));
}

void TestRunner::failsWhenAPolledFieldFalls()
{
    Bench bench;
    bench.keypad.answer(AskFlashQuery, Status1At50);
    bench.keypad.answer(AskFlashQuery, Status0At10);
    const UnitRecord record = bench.run(Poll);
    COMPARE_OUTCOME(record, "fail");
    QCOMPARE(record.steps.first().reason,
             QStringLiteral("expected stage at least 1, as before; came flash stage 0 (boot "
                            "stream) 10 %"));
}

void TestRunner::failsWhenAPolledFieldIsOutOfLimits()
{
    Bench bench;
    bench.keypad.answer(AskFlashQuery, Status3At100);
    const UnitRecord record = bench.run(
        R"({"name":"flash","poll":{"request":"flash-query","every_ms":10,
            "fields":{"percent":{"max":99}}},"expect":["flash result"]})");
    COMPARE_OUTCOME(record, "fail");
    QCOMPARE(record.steps.first().reason, QStringLiteral("expected percent at most 99; came flash "
                                                         "stage 3 (formatting) 100 %"));
    QCOMPARE(record.steps.first().measured.first().value.toInt(), 100);
}

void TestRunner::timesOutWhenAPollStalls()
{
    Bench bench;
    bench.keypad.answer(AskFlashQuery, Status0At10);
    bench.keypad.answer(AskFlashQuery, Status1At50);
    bench.keypad.answer(AskBacklight100, Ack);
    QElapsedTimer clock;
    clock.start();
    const UnitRecord record = bench.run(
        R"({"name":"flash","poll":{"request":"flash-query","every_ms":10,"stall_ms":150},
            "expect":["flash result"],"limit_ms":20000},)" +
        Backlight);
    QVERIFY(clock.elapsed() >= 150);
    QVERIFY(clock.elapsed() < 15000);
    COMPARE_OUTCOME(record, "time-out");
    QCOMPARE(record.steps.first().reason,
             QStringLiteral("no progress in 0.15 s, still flash stage 1 (scanning) 50 %"));
    COMPARE_OUTCOME(record.steps.at(1), "pass"); // it does answer
}

void TestRunner::asksNoMoreOnceTheResultIsThere()
{
    Bench bench;
    bench.listener.slownessMs = 30; // the next question is due before the result is looked at
    bench.keypad.answer(AskFlashQuery, Status0At10);
    bench.keypad.answer(AskFlashQuery, Status3At100 + FlashGood);
    COMPARE_OUTCOME(bench.run(Poll), "pass");
    QCOMPARE(bench.keypad.requests, QList<QByteArray>({AskFlashQuery, AskFlashQuery}));
}

void TestRunner::failsAfterTooFewAnswers()
{
    Bench bench;
    bench.keypad.answer(AskFlashQuery, Status3At100 + FlashGood);
    const UnitRecord record = bench.run(Poll);
    COMPARE_OUTCOME(record, "fail");
    QCOMPARE(record.steps.first().reason,
             QStringLiteral("expected at least 2 answers while waiting; came 1"));
}

void TestRunner::failsOnUnaskedProgress()
{
    Bench bench;
    bench.keypad.answer(AskFlashQuery, Status0At10 + Status1At50);
    const UnitRecord record = bench.run(Poll);
    COMPARE_OUTCOME(record, "fail");
    QCOMPARE(record.steps.first().reason,
             QStringLiteral("expected flash result, success 1; came flash stage 1 (scanning) "
                            "50 %"));
}

void TestRunner::waitsForTheBoard()
{
    Bench bench;
    bench.keypad.answer(AskButtons, Ack);
    bench.unit.findings = {Unit::NotYet, Unit::NotYet, Unit::Holds};
    const UnitRecord record = bench.run(
        R"({"name":"s","request":"buttons","expect":["ACK"],"check":[{"log":"x"}],
            "limit_ms":20000})");
    COMPARE_OUTCOME(record, "pass");
    QCOMPARE(bench.unit.looks, 3);
    QCOMPARE(int(record.steps.first().checks.first().result), int(CheckRecord::Held));
    QCOMPARE(record.steps.first().checks.first().found, QString());
}

void TestRunner::failsOnABrokenCheck()
{
    Bench bench;
    bench.keypad.answer(AskButtons, Ack);
    bench.unit.findings = {Unit::Broken, Unit::Holds};
    QElapsedTimer clock;
    clock.start();
    const UnitRecord record = bench.run(
        R"({"name":"s","request":"buttons","expect":["ACK"],"limit_ms":20000,
            "check":[{"log":"x"},{"attribute":"/sys/a","text":"1"}]})");
    QVERIFY(clock.elapsed() < 15000);
    COMPARE_OUTCOME(record, "fail");
    QCOMPARE(record.steps.first().reason,
             QStringLiteral("expected log line \"x\"; came what is there"));
    // The others are looked at all the same.
    QCOMPARE(int(record.steps.first().checks.size()), 2);
    QCOMPARE(int(record.steps.first().checks.at(0).result), int(CheckRecord::Broken));
    QCOMPARE(record.steps.first().checks.at(0).found, QStringLiteral("what is there"));
    QCOMPARE(int(record.steps.first().checks.at(1).result), int(CheckRecord::Held));
}

void TestRunner::tellsWhereAStoreDiffers()
{
    Bench bench;
    bench.unit.findings = {Unit::Broken};
    bench.unit.wanted = QStringLiteral("store 2 of 2");
    const UnitRecord record =
        bench.run(R"({"name":"s","check":[{"stores":[{"path":"/a","text":"1"}]}]})");
    QCOMPARE(record.steps.first().reason,
             QStringLiteral("expected store 2 of 2; came what is there"));
    // The record has the whole list beside it.
    QCOMPARE(record.steps.first().checks.first().what, QStringLiteral("store 1 to /a"));
}

void TestRunner::failsWhenTheBoardShowsNothingInTime()
{
    Bench bench;
    bench.unit.findings = {Unit::NotYet};
    const UnitRecord record = bench.run(R"({"name":"s","check":[{"log":"x"}],"limit_ms":50})");
    COMPARE_OUTCOME(record, "fail");
    QCOMPARE(int(record.steps.first().checks.first().result), int(CheckRecord::Broken));
}

void TestRunner::skipsWhatItCannotLookAt()
{
    Bench bench;
    bench.unit.isReal = true;
    bench.unit.findings = {Unit::CannotLook};
    bench.keypad.answer(AskButtons, Ack);
    const UnitRecord record =
        bench.run(R"({"name":"s","request":"buttons","expect":["ACK"],"check":[{"log":"x"}]})");
    COMPARE_OUTCOME(record, "pass");
    QCOMPARE(int(record.steps.first().checks.first().result), int(CheckRecord::Skipped));
}

void TestRunner::doesNotSkipWhatItOughtToSee()
{
    // The display of a virtual keypad has gone.
    Bench bench;
    bench.unit.findings = {Unit::CannotLook};
    bench.keypad.answer(AskButtons, Ack);
    const UnitRecord record =
        bench.run(R"({"name":"s","request":"buttons","expect":["ACK"],"check":[{"log":"x"}]})");
    COMPARE_OUTCOME(record, "error");
    QCOMPARE(record.reason,
             QStringLiteral("step 1 \"s\": it could not be looked at: log line \"x\""));
}

void TestRunner::asksForAnOperation()
{
    Bench bench;
    bench.unit.saysWhenTouched = Touch31x42;
    const UnitRecord record = bench.run(
        R"({"name":"s","operator":{"ask":"Touch it.","do":[{"touch":[31,42]}]},
            "expect":[{"frame":"touch","fields":{"x":31,"y":42}}]})");
    COMPARE_OUTCOME(record, "pass");
    QCOMPARE(bench.unit.asked, QStringList(QStringLiteral("Touch it.")));
    QVERIFY(!bench.unit.confirmed); // the frame shows that it was done
    QCOMPARE(bench.unit.operatorLimitMs, 400);
    QCOMPARE(record.steps.first().notes, QStringList(QStringLiteral("Touch it.")));
}

void TestRunner::confirmsAnOperationBeforeARequest()
{
    Bench bench;
    bench.keypad.answer(AskButtons, Ack);
    COMPARE_OUTCOME(bench.run(R"({"name":"s","operator":{"ask":"Press.","do":[{"home":"press"}]},
                                  "request":"buttons","expect":["ACK"]})"),
                    "pass");
    QVERIFY(bench.unit.confirmed);
}

/// A real unit boots once it is switched on, and the line waits; a virtual one does not.
void TestRunner::waitsForABootOfARealUnit()
{
    const QByteArray step =
        R"({"name":"s","operator":{"ask":"On.","do":[{"power":"on"}],"boot_ms":350},
            "expect":["ready"],"limit_ms":50})";
    Bench bench;
    bench.unit.isReal = true;
    QCOMPARE(bench.run(step).steps.first().reason,
             QStringLiteral("expected ready; nothing came in 0.8 s"));
    Bench quick;
    QCOMPARE(quick.run(step).steps.first().reason,
             QStringLiteral("expected ready; nothing came in 0.05 s"));
}

void TestRunner::measuresACalibration()
{
    Bench bench;
    bench.unit.isReal = true;
    bench.unit.saysWhenTouched = RawPoints.join();
    const UnitRecord record = bench.run(Calibrating);
    COMPARE_OUTCOME(record, "pass");
    const QList<Measurement> measured = record.steps.first().measured;
    QCOMPARE(int(measured.size()), 1);
    QCOMPARE(measured.first().name, QStringLiteral("calibration error"));
    QCOMPARE(measured.first().shown(), QStringLiteral("0 px"));
    QCOMPARE(measured.first().limits, QStringLiteral("at most 6 px"));
    QCOMPARE(measured.first().max.value(), 6.0);
    QVERIFY(measured.first().good);
}

void TestRunner::failsACalibrationThatDoesNotFit()
{
    Bench bench;
    QByteArrayList points = RawPoints;
    // The centre where the top right is.
    points[4] = "7E001670210D04034040041804FD7F\r\n";
    bench.unit.saysWhenTouched = points.join();
    const UnitRecord record = bench.run(Calibrating);
    COMPARE_OUTCOME(record, "fail");
    QCOMPARE(record.steps.first().reason,
             QStringLiteral("expected calibration error at most 6 px; came 247.8 px, most at the "
                            "centre"));
    QVERIFY(!record.steps.first().measured.first().good);
}

/// Points of an earlier cycle do not stand for those that have not come again.
void TestRunner::takesTheLatestCalibration()
{
    Bench bench;
    bench.unit.saysWhenTouched = RawPoints.join() + RawPoints.mid(0, 4).join();
    const UnitRecord record = bench.run(
        R"({"name":"s","operator":{"ask":"a","do":[{"touch":[1,1]}]},"limit_ms":20000,
            "expect":["calibration point","calibration point","calibration point",
                      "calibration point","calibration point","calibration point",
                      "calibration point","calibration point","calibration point"],
            "calibration":{"max_error_px":6}})");
    QCOMPARE(record.steps.first().reason,
             QStringLiteral("expected calibration error at most 6 px; came no point for: centre"));
}

void TestRunner::wantsRawPointsOfARealUnit()
{
    const QByteArray screensOwn = "7E001670210D00000240002404ED7F\r\n"
                                  "7E001670210D01000240045604F77F\r\n"
                                  "7E001670210D02007760045605067F\r\n"
                                  "7E001670210D03007760002404FE7F\r\n"
                                  "7E001670210D04004000024004EF7F\r\n";
    Bench real;
    real.unit.isReal = true;
    real.unit.saysWhenTouched = screensOwn;
    const UnitRecord record = real.run(Calibrating);
    COMPARE_OUTCOME(record, "fail");
    QCOMPARE(record.steps.first().came,
             QStringLiteral("the points are the screen's own: nothing was raw"));
    Bench bench;
    bench.unit.saysWhenTouched = screensOwn;
    COMPARE_OUTCOME(bench.run(Calibrating), "pass");
}

void TestRunner::waitsLongerForAPerson()
{
    const QByteArray step =
        R"({"name":"s","operator":{"ask":"Touch it.","do":[{"touch":[31,42]}]},
            "expect":["touch"],"limit_ms":50})";
    Bench bench;
    bench.unit.isReal = true;
    const UnitRecord record = bench.run(step);
    COMPARE_OUTCOME(record, "time-out");
    QCOMPARE(record.steps.first().reason, QStringLiteral("expected touch; nothing came in 0.45 s"));
    Bench quick;
    QCOMPARE(quick.run(step).steps.first().reason,
             QStringLiteral("expected touch; nothing came in 0.05 s"));
}

void TestRunner::endsWithoutAHand()
{
    Bench bench;
    bench.unit.done = Unit::Impossible;
    const UnitRecord record = bench.run(
        R"({"name":"s","operator":{"ask":"Press.","do":[{"home":"press"}]},
            "request":"buttons","expect":["ACK"],"tries":3},)" +
        Backlight);
    COMPARE_OUTCOME(record, "error");
    QCOMPARE(record.reason, QStringLiteral("step 1 \"s\": no hand"));
    QCOMPARE(record.steps.at(0).tries, 1);
    COMPARE_OUTCOME(record.steps.at(1), "not run");
    QVERIFY(bench.keypad.requests.isEmpty());
}

void TestRunner::timesOutWithoutAPerson()
{
    Bench bench;
    bench.unit.done = Unit::TooLate;
    const UnitRecord record = bench.run(
        R"({"name":"s","operator":{"ask":"Press.","do":[{"home":"press"}]},
            "request":"buttons","expect":["ACK"]},)" +
        Backlight);
    COMPARE_OUTCOME(record, "time-out");
    QCOMPARE(record.reason, QStringLiteral("step 1 \"s\": no hand"));
    // It is not the unit that was silent.
    COMPARE_OUTCOME(record.steps.at(1), "not run");
    QCOMPARE(record.steps.at(1).reason, QStringLiteral("the operator gave no sign in step 1"));
}

void TestRunner::asksNobodyOnALineThatHungUp()
{
    Bench bench;
    bench.unit.isReal = true;
    bench.unit.hangsUpWhenSeen = true;
    bench.keypad.answer(AskButtons, Ack);
    const UnitRecord record = bench.run(
        R"({"name":"s","request":"buttons","expect":["ACK"],"look":"Is it lit?"},
           {"name":"t","operator":{"ask":"Press.","do":[{"home":"press"}]},
            "request":"buttons","expect":["ACK"]})");
    COMPARE_OUTCOME(record, "error");
    QCOMPARE(record.reason, QStringLiteral("step 2 \"t\": the line hung up"));
    QCOMPARE(bench.unit.asked, QStringList(QStringLiteral("Is it lit?")));
}

void TestRunner::asksWhatAPersonSees()
{
    const QByteArray step =
        R"({"name":"s","request":"buttons","expect":["ACK"],"look":"Is it lit?"})";
    Bench yes;
    yes.unit.isReal = true;
    yes.keypad.answer(AskButtons, Ack);
    const UnitRecord passed = yes.run(step);
    COMPARE_OUTCOME(passed, "pass");
    QCOMPARE(passed.steps.first().notes, QStringList(QStringLiteral("Is it lit? Yes.")));

    Bench no;
    no.unit.isReal = true;
    no.unit.seen = Unit::Refused;
    no.keypad.answer(AskButtons, Ack);
    const UnitRecord failed = no.run(step);
    COMPARE_OUTCOME(failed, "fail");
    QCOMPARE(failed.steps.first().reason,
             QStringLiteral("expected yes to \"Is it lit?\"; came no"));

    Bench late;
    late.unit.isReal = true;
    late.unit.seen = Unit::TooLate;
    late.keypad.answer(AskButtons, Ack);
    COMPARE_OUTCOME(late.run(step), "time-out");

    Bench nobody;
    nobody.unit.isReal = true;
    nobody.unit.seen = Unit::Impossible;
    nobody.keypad.answer(AskButtons, Ack);
    COMPARE_OUTCOME(nobody.run(step), "error");
}

void TestRunner::asksNobodyAtAVirtualUnit()
{
    Bench bench;
    bench.unit.seen = Unit::Refused;
    bench.keypad.answer(AskButtons, Ack);
    COMPARE_OUTCOME(bench.run(R"({"name":"s","request":"buttons","expect":["ACK"],
                                  "look":"Is it lit?"})"),
                    "pass");
    QVERIFY(bench.unit.asked.isEmpty());
}

void TestRunner::doesNotPassWhatNobodySaw()
{
    // Nobody is there who could look.
    Bench look;
    look.keypad.answer(AskButtons, Ack);
    const UnitRecord unseen =
        look.run(R"({"name":"s","look":"Is it lit?","required":true},)" + Buttons);
    COMPARE_OUTCOME(unseen.steps.at(0), "not run");
    QCOMPARE(unseen.steps.at(0).reason, QStringLiteral("not tested: nobody could look"));
    QCOMPARE(unseen.steps.at(0).checks.size(), 1);
    QCOMPARE(unseen.steps.at(0).checks.first().what, QStringLiteral("Is it lit?"));
    QCOMPARE(int(unseen.steps.at(0).checks.first().result), int(CheckRecord::Skipped));
    COMPARE_OUTCOME(unseen.steps.at(1), "pass"); // nothing has failed
    COMPARE_OUTCOME(unseen, "pass");

    // Nobody can look at the board of a real unit.
    Bench board;
    board.unit.isReal = true;
    board.unit.findings = {Unit::CannotLook};
    const UnitRecord dark = board.run(R"({"name":"s","check":[{"log":"x"}]})");
    COMPARE_OUTCOME(dark.steps.at(0), "not run");
    COMPARE_OUTCOME(dark, "not run");
    QCOMPARE(dark.reason, QStringLiteral("nothing of it could be tested"));
    QCOMPARE(exitStatus(dark.outcome), 4);

    // Something was tested, so the step counts; what was not is said.
    Bench reply;
    reply.keypad.answer(AskButtons, Ack);
    const UnitRecord answered =
        reply.run(R"({"name":"s","request":"buttons","expect":["ACK"],"look":"Is it lit?"})");
    COMPARE_OUTCOME(answered, "pass");
    QCOMPARE(int(answered.steps.at(0).checks.value(0).result), int(CheckRecord::Skipped));

    // The checks of a step have looked in a person's place.
    Bench checked;
    const UnitRecord seen =
        checked.run(R"({"name":"s","check":[{"log":"x"}],"look":"Is it lit?"})");
    COMPARE_OUTCOME(seen, "pass");
    QCOMPARE(seen.steps.at(0).checks.size(), 1);
}

void TestRunner::endsWhenTheToolEnds()
{
    Bench bench;
    bench.keypad.onRequest = [&bench] { bench.unit.ended = QStringLiteral("the tool crashed"); };
    QElapsedTimer clock;
    clock.start();
    const UnitRecord record = bench.run(Backlight + "," + Buttons);
    QVERIFY(clock.elapsed() < 15000); // not at the step's limit
    COMPARE_OUTCOME(record, "error");
    QCOMPARE(record.reason, QStringLiteral("step 1 \"light\": the tool crashed"));
    QCOMPARE(record.steps.at(0).expected, QStringLiteral("ACK"));
    COMPARE_OUTCOME(record.steps.at(1), "not run");
    QCOMPARE(record.steps.at(1).reason, QStringLiteral("the tool crashed"));
}

void TestRunner::hearsTheLastWordsOfATool()
{
    Bench bench;
    bench.keypad.answer(AskBacklight100, Ack);
    bench.unit.ended = QStringLiteral("the tool ended with exit status 0");
    COMPARE_OUTCOME(bench.run(Backlight), "pass");
}

void TestRunner::endsWhenTheLineHangsUp()
{
    Bench bench;
    bench.keypad.onRequest = [&bench] {
        QTimer::singleShot(0, &bench.keypad, [&bench] { bench.keypad.hangUp(); });
    };
    const UnitRecord record = bench.run(Backlight + "," + Buttons);
    COMPARE_OUTCOME(record, "error");
    QCOMPARE(record.reason, QStringLiteral("step 1 \"light\": the line hung up"));
    COMPARE_OUTCOME(record.steps.at(1), "not run");
}

void TestRunner::endsWhenInterrupted()
{
    Bench bench;
    Interrupt interrupt;
    bench.options.interrupt = &interrupt;
    QTemporaryDir folder;
    bench.options.pictureDir = folder.path();
    bench.unit.shows = QImage(4, 3, QImage::Format_RGB32);
    bench.keypad.onRequest = [&interrupt] { interrupt.raise(); };
    const UnitRecord record = bench.run(Backlight + "," + Buttons);
    COMPARE_OUTCOME(record, "interrupted");
    QCOMPARE(record.reason, QStringLiteral("step 1 \"light\": interrupted"));
    COMPARE_OUTCOME(record.steps.at(1), "not run");
    QCOMPARE(record.steps.at(1).reason, QStringLiteral("interrupted"));
    QVERIFY(!bench.keypad.requests.contains(AskButtons));
    QVERIFY(QDir(folder.path()).isEmpty()); // nothing has gone wrong
}

void TestRunner::anInterruptedCheckHasNotFailed()
{
    Bench bench;
    Interrupt interrupt;
    bench.options.interrupt = &interrupt;
    bench.keypad.answer(AskButtons, Ack);
    bench.keypad.answer(AskBacklight100, Ack);
    bench.unit.findings = {Unit::NotYet};
    bench.unit.onCheck = [&] {
        if (bench.unit.looks == 2) // the first check is being waited for
            interrupt.raise();
    };
    const UnitRecord record =
        bench.run(R"({"name":"s","request":"buttons","expect":["ACK"],"limit_ms":20000,
                      "check":[{"log":"x"},{"attribute":"/sys/a","text":"1"}]},)" +
                  Backlight);
    COMPARE_OUTCOME(record.steps.at(0), "interrupted");
    QVERIFY(record.steps.at(0).checks.isEmpty()); // neither held nor broken
    COMPARE_OUTCOME(record.steps.at(1), "not run");
    COMPARE_OUTCOME(record, "interrupted");
    QCOMPARE(bench.keypad.requests, QList<QByteArray>({AskButtons}));
    QCOMPARE(bench.unit.looks, 2); // nothing is waited for or looked at any more
}

void TestRunner::anInterruptBetweenStepsEndsTheUnit()
{
    Bench bench;
    Interrupt interrupt;
    bench.options.interrupt = &interrupt;
    bench.options.paceMs = 60000;
    bench.keypad.answer(AskButtons, Ack);
    bench.keypad.answer(AskBacklight100, Ack);
    bench.listener.onEnded = [&bench, &interrupt](const StepRecord &) {
        QTimer::singleShot(50, &bench.keypad, [&interrupt] { interrupt.raise(SIGTERM); });
    };
    const UnitRecord record = bench.run(Buttons + "," + Backlight);
    COMPARE_OUTCOME(record.steps.at(0), "pass");
    COMPARE_OUTCOME(record.steps.at(1), "not run");
    COMPARE_OUTCOME(record, "interrupted");
    QCOMPARE(record.reason, QStringLiteral("before step 2 \"light\": interrupted: the program was "
                                           "told to terminate"));
}

void TestRunner::aTryThatIsNotRepeatedHasNotFailedTheStep()
{
    Bench bench;
    Interrupt interrupt;
    bench.options.interrupt = &interrupt;
    bench.keypad.answer(AskButtons, Nak);
    // After what came was judged, while the unit is given a moment for more.
    afterTheAnswer(&bench, [&interrupt] { interrupt.raise(); });
    const UnitRecord record =
        bench.run(R"({"name":"s","request":"buttons","expect":["ACK"],"tries":3})");
    COMPARE_OUTCOME(record, "interrupted");
    QCOMPARE(int(record.steps.first().attempts.size()), 1);
    COMPARE_OUTCOME(record.steps.first().attempts.first(), "fail");
}

void TestRunner::silenceNeedsAUnitThatCouldSpeak()
{
    const QByteArray step = R"({"name":"s","request":"buttons","expect":["ACK"],"quiet_ms":20000})";
    QElapsedTimer clock;
    clock.start();

    Bench unplugged;
    unplugged.keypad.answer(AskButtons, Ack);
    afterTheAnswer(&unplugged, [&unplugged] { unplugged.keypad.hangUp(); });
    UnitRecord record = unplugged.run(step + "," + Backlight);
    COMPARE_OUTCOME(record, "error");
    QCOMPARE(record.reason, QStringLiteral("step 1 \"s\": the line hung up"));
    COMPARE_OUTCOME(record.steps.at(1), "not run");

    Bench dead;
    dead.keypad.answer(AskButtons, Ack);
    afterTheAnswer(&dead, [&dead] { dead.unit.ended = QStringLiteral("the tool crashed"); });
    record = dead.run(step);
    COMPARE_OUTCOME(record, "error");
    QCOMPARE(record.reason, QStringLiteral("step 1 \"s\": the tool crashed"));

    Bench interrupted;
    Interrupt interrupt;
    interrupted.options.interrupt = &interrupt;
    interrupted.keypad.answer(AskButtons, Ack);
    afterTheAnswer(&interrupted, [&interrupt] { interrupt.raise(); });
    record = interrupted.run(step + "," + Backlight);
    COMPARE_OUTCOME(record, "interrupted");
    COMPARE_OUTCOME(record.steps.at(0), "interrupted");
    COMPARE_OUTCOME(record.steps.at(1), "not run");
    QVERIFY(clock.elapsed() < 15000);
}

void TestRunner::aToolThatShallEndMayBeSilent()
{
    Bench bench;
    bench.keypad.answer(AskButtons, Ack);
    bench.unit.ended = QStringLiteral("the tool ended with exit status 0");
    COMPARE_OUTCOME(bench.run(R"({"name":"s","request":"buttons","expect":["ACK"],
                                  "check":[{"exit":0}],"quiet_ms":100})"),
                    "pass");
}

void TestRunner::handsOverTheRecordAsItGrows()
{
    Bench bench;
    QStringList kept;
    bench.options.keep = [&kept](const UnitRecord &record) {
        QStringList outcomes = {QString::fromLatin1(record.ended ? "ended" : "going")};
        for (const StepRecord &step : record.steps)
            outcomes.append(outcomeName(step.outcome));
        kept.append(outcomes.join(QLatin1Char(' ')));
    };
    bench.keypad.answer(AskButtons, Ack);
    const UnitRecord record = bench.run(Buttons + "," + HurriedSilence + "," + Backlight);
    QCOMPARE(kept,
             QStringList({QStringLiteral("going pass"), QStringLiteral("going pass time-out")}));
    QVERIFY(record.ended);
    QCOMPARE(int(record.steps.size()), 3);
}

void TestRunner::takesPictures()
{
    QTemporaryDir folder;
    Bench bench;
    bench.options.pictureDir = folder.path();
    bench.unit.shows = QImage(4, 3, QImage::Format_RGB32);
    bench.unit.shows.fill(Qt::green);
    bench.keypad.answer(AskButtons, Ack);
    bench.keypad.answer(AskBacklight100, Nak);
    const UnitRecord record =
        bench.run(R"({"name":"s","request":"buttons","expect":["ACK"],"picture":"bars"},)" +
                  Backlight + "," + Buttons);
    QCOMPARE(record.steps.at(0).picture, QStringLiteral("bars.png"));
    QCOMPARE(record.steps.at(1).picture, QStringLiteral("step-2.png")); // it failed
    QCOMPARE(record.steps.at(2).picture, QString());
    QCOMPARE(QDir(folder.path()).entryList(QDir::Files),
             QStringList({QStringLiteral("bars.png"), QStringLiteral("step-2.png")}));
    const QImage bars(folder.filePath(QStringLiteral("bars.png")));
    QCOMPARE(bars.size(), QSize(4, 3));
    QCOMPARE(bars.pixelColor(3, 2), QColor(Qt::green));
}

void TestRunner::tellsAPictureThatWasLost()
{
    Bench bench;
    bench.options.pictureDir = QStringLiteral("/nowhere");
    bench.unit.shows = QImage(4, 3, QImage::Format_RGB32);
    bench.keypad.answer(AskButtons, Ack);
    const UnitRecord record =
        bench.run(R"({"name":"s","request":"buttons","expect":["ACK"],"picture":"bars"})");
    COMPARE_OUTCOME(record, "pass"); // the unit is not to blame
    QCOMPARE(record.steps.at(0).picture, QString());
    QCOMPARE(record.lostPicture(),
             QStringLiteral("bars.png could not be written: No such file or directory"));
}

void TestRunner::tellsAboutEveryStep()
{
    Bench bench;
    const UnitRecord record = bench.run(HurriedButtons + "," + Backlight);
    QCOMPARE(bench.listener.started, QStringList(QStringLiteral("buttons")));
    QCOMPARE(bench.listener.ended,
             QStringList({QStringLiteral("buttons"), QStringLiteral("light")}));
    QCOMPARE(bench.unit.steps, 1);
    QCOMPARE(int(record.steps.size()), 2);
}

void TestRunner::notesStepsInTheTranscript()
{
    Bench bench;
    bench.keypad.answer(AskButtons, Ack);
    bench.run(Buttons);
    const auto &entries = bench.station.transcript().entries();
    QCOMPARE(int(entries.size()), 3);
    QCOMPARE(entries.at(0).text, QStringLiteral("step 1: buttons"));
    QCOMPARE(entries.at(1).bytes, QByteArray("7E000A70701B028E7F\r\n"));
    QCOMPARE(entries.at(1).text, QStringLiteral("buttons"));
    QCOMPARE(entries.at(2).bytes, Ack);
}

MFTOOL_TEST(TestRunner, EventLoop)
#include "tst_runner.moc"
