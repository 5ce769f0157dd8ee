/// "bench line --screen" as a whole: what is on the display, what is typed, and what the
/// record then says.
#include "bench/keypad/screen.h"
#include "bench/keypad/virtualkeypad.h"
#include "bench/keypad/xvfb.h"
#include "tests/bench/screen/xkeyboard.h"
#include "tests/support/testprogram.h"

#include <QDir>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QTemporaryDir>

#include <csignal>
#include <memory>

namespace
{

const int LimitMs = 120000; ///< for a small plan on a machine that is busy

const QByteArray SmallPlan =
    R"({"plan":"small","title":"A small plan","operator_limit_ms":600000,"steps":[
    {"name":"Start","operator":{"ask":"Switch it on.","do":[{"power":"on"}]},
     "expect":["ACK","ready"],"limit_ms":600000,"required":true},
    {"name":"Light","request":"backlight 100","expect":["ACK"],"look":"Is it bright?"},
    {"name":"Exit","request":"exit","expect":["ACK"]}]})";

/// Asks at once; the unit need not answer.
const QByteArray LookPlan = R"({"plan":"p","title":"P","operator_limit_ms":3600000,"steps":[
    {"name":"Light","look":"Is it bright?"}]})";

/// A virtual keypad passes its first step and fails the second one.
const QByteArray DarkPlan = R"({"plan":"p","title":"P","steps":[
    {"name":"Start","operator":{"ask":"On.","do":[{"power":"on"}]},"expect":["ACK","ready"],
     "limit_ms":60000},
    {"name":"Volts","request":"voltage","expect":[{"frame":"voltage reply",
     "fields":{"voltage":{"max":1,"unit":"mV"}}}]}]})";

const QRgb Green = 0xff1a7a3c;  // behind PASS
const QRgb Red = 0xffb3201f;    // behind FAIL
const QRgb Yellow = 0xfffff0c2; // behind what the operator shall do
const QRgb Amber = 0xfff2a900;  // around a question
const QRgb Grey = 0xff98a4ad;   // buttons that cannot be pressed yet

class Run
{
public:
    ~Run()
    {
        if (process.state() == QProcess::NotRunning)
            return;
        process.kill();
        process.waitForFinished();
    }

    /// @param platform  of Qt: "xcb" for the X server
    void start(const QByteArray &plan, const QStringList &options, const QString &platform,
               const QString &display = Xvfb::shared().display())
    {
        const QString file = dir.filePath("plan.json");
        QFile written(file);
        if (!written.open(QIODevice::WriteOnly) || written.write(plan) != plan.size())
            qFatal("cannot write a plan");
        written.close();
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert("DISPLAY", display);
        environment.insert("QT_QPA_PLATFORM", platform);
        process.setProcessEnvironment(environment);
        process.start(BENCH, QStringList{"line", file, "--screen", "--out", dir.filePath("out"),
                                         "--store", "none"} +
                                 options);
    }

    bool isOver() const { return process.state() == QProcess::NotRunning; }

    QJsonObject record() const
    {
        QFile file(dir.filePath("out/latest/record.json"));
        if (!file.open(QIODevice::ReadOnly))
            return QJsonObject();
        return QJsonDocument::fromJson(file.readAll()).object();
    }

    QString outcome() const { return record().value("outcome").toString(); }

    QTemporaryDir dir;
    QProcess process;
};

/// How many pixels of the display have this colour.
int count(QRgb colour, const QString &display = Xvfb::shared().display())
{
    const QImage image = Screen(display.toLatin1()).image();
    int count = 0;
    for (int y = 0; y < image.height(); ++y) {
        for (int x = 0; x < image.width(); ++x)
            count += (image.pixel(x, y) | 0xff000000) == colour ? 1 : 0;
    }
    return count;
}

bool isOnDisplay(QRgb colour)
{
    return count(colour) > 0;
}

/// In percent of the display, which is as large as a keypad's.
int share(QRgb colour, const QString &display = Xvfb::shared().display())
{
    return 100 * count(colour, display) / (800 * 480);
}

/// Whether there is a question that takes answers.
bool isAsked()
{
    return isOnDisplay(Amber) && !isOnDisplay(Grey);
}

} // namespace

class TestLineScreen : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void aUnitIsTestedWithScannerAndKeys_data();
    void aUnitIsTestedWithScannerAndKeys();
    void escapeEndsTheUnit();
    void aSignalIsPassedOn_data();
    void aSignalIsPassedOn();
    void aSignalAfterTheEndKeepsTheStatus();
    void aSignalEndsAScreenWhoseLineCouldNotBeStarted();
    void whatTakesTheScreenAwayTakesNoRecord_data();
    void whatTakesTheScreenAwayTakesNoRecord();
    void withoutADisplayNothingIsTested();
    void wrongCallsAreToldWithoutAScreen_data();
    void wrongCallsAreToldWithoutAScreen();
};

void TestLineScreen::initTestCase()
{
    ::signal(SIGHUP, SIG_DFL); // ignored under nohup, and then by the screen as well
    QString reason = VirtualKeypad::whyNot();
    if (reason.isEmpty() && !Xvfb::shared().start())
        reason = Xvfb::shared().errorString();
    if (reason.isEmpty())
        return;
    std::printf("SKIPPED: %s\n", qPrintable(reason));
    std::fflush(stdout);
    QSKIP(qPrintable(reason));
}

void TestLineScreen::aUnitIsTestedWithScannerAndKeys_data()
{
    QTest::addColumn<QString>("typed");
    QTest::addColumn<QRgb>("colour");
    QTest::addColumn<int>("status");
    QTest::addColumn<QString>("outcome");
    // If Enter alone were an answer, "n" would come too late.
    QTest::newRow("it is bright") << "y" << Green << 0 << "pass";
    QTest::newRow("it is not") << "\nn" << Red << 1 << "fail";
}

void TestLineScreen::aUnitIsTestedWithScannerAndKeys()
{
    QFETCH(QString, typed);
    QFETCH(QRgb, colour);
    QFETCH(int, status);
    QFETCH(QString, outcome);
    VirtualKeypad keypad;
    QVERIFY2(keypad.prepare(), qPrintable(keypad.errorString()));
    XKeyboard keyboard(Xvfb::shared().display());
    Run run;
    run.start(SmallPlan, {"--port", keypad.linePath(), "--serial-number", "ask"}, "xcb");
    QTRY_VERIFY_WITH_TIMEOUT(isAsked(), LimitMs);
    QVERIFY(!isOnDisplay(Green));
    QVERIFY(keyboard.type("KP-0042\n"));
    QTRY_VERIFY_WITH_TIMEOUT(share(Yellow) > 10, LimitMs);
    QVERIFY(keypad.start());
    QTRY_VERIFY_WITH_TIMEOUT(isAsked(), LimitMs);
    QVERIFY(keyboard.type(typed));
    QTRY_VERIFY_WITH_TIMEOUT(share(colour) > 15, LimitMs);
    QCOMPARE(isOnDisplay(Green), outcome == "pass");
    QVERIFY(keypad.waitForExit());
    QTRY_COMPARE_WITH_TIMEOUT(run.record().value("ended"), QJsonValue(true), LimitMs);
    QVERIFY(!run.isOver()); // until the verdict was read
    QVERIFY(keyboard.type("\033"));
    QTRY_VERIFY_WITH_TIMEOUT(run.isOver(), LimitMs);
    QCOMPARE(run.process.exitStatus(), QProcess::NormalExit);
    QCOMPARE(run.process.exitCode(), status);
    QCOMPARE(run.outcome(), outcome);
    QCOMPARE(run.record().value("serial_number").toString(), QString("KP-0042"));
    const QJsonObject light = run.record().value("steps").toArray().at(1).toObject();
    QCOMPARE(light.value("outcome").toString(), outcome);
    QCOMPARE(QString::fromUtf8(run.process.readAllStandardError()), QString());
}

void TestLineScreen::escapeEndsTheUnit()
{
    VirtualKeypad keypad;
    QVERIFY2(keypad.prepare(), qPrintable(keypad.errorString()));
    XKeyboard keyboard(Xvfb::shared().display());
    Run run;
    run.start(LookPlan, {"--port", keypad.linePath()}, "xcb");
    QTRY_VERIFY_WITH_TIMEOUT(isAsked(), LimitMs);
    // No fixture is framed for the screen's own question.
    const int framed = count(Amber);
    QVERIFY(keyboard.type("\033"));
    QTRY_VERIFY_WITH_TIMEOUT(count(Amber) < framed * 3 / 4 && isAsked(), LimitMs);
    QVERIFY(!run.isOver());
    QVERIFY(keyboard.type("y"));
    QTRY_VERIFY_WITH_TIMEOUT(run.isOver(), LimitMs);
    QCOMPARE(run.process.exitCode(), 4);
    QCOMPARE(run.outcome(), QString("interrupted"));
    QCOMPARE(run.record().value("ended"), QJsonValue(true));
}

void TestLineScreen::aSignalIsPassedOn_data()
{
    QTest::addColumn<int>("number");
    QTest::newRow("SIGINT") << SIGINT;
    QTest::newRow("SIGTERM") << SIGTERM;
    QTest::newRow("SIGHUP") << SIGHUP;
}

void TestLineScreen::aSignalIsPassedOn()
{
    QFETCH(int, number);
    VirtualKeypad keypad;
    QVERIFY2(keypad.prepare(), qPrintable(keypad.errorString()));
    Run run;
    run.start(LookPlan, {"--port", keypad.linePath()}, "offscreen");
    QTRY_COMPARE_WITH_TIMEOUT(run.outcome(), QString("interrupted"), LimitMs); // it has begun
    QCOMPARE(::kill(static_cast<pid_t>(run.process.processId()), number), 0);
    QTRY_VERIFY_WITH_TIMEOUT(run.isOver(), LimitMs);
    QCOMPARE(run.process.exitStatus(), QProcess::NormalExit);
    QCOMPARE(run.process.exitCode(), 4);
    QCOMPARE(run.outcome(), QString("interrupted"));
    QCOMPARE(run.record().value("ended"), QJsonValue(true));
}

void TestLineScreen::aSignalAfterTheEndKeepsTheStatus()
{
    Run run;
    run.start(DarkPlan, {}, "offscreen");
    QTRY_COMPARE_WITH_TIMEOUT(run.record().value("ended"), QJsonValue(true), LimitMs);
    const auto pid = static_cast<pid_t>(run.process.processId());
    QFile children(QString("/proc/%1/task/%1/children").arg(pid));
    QVERIFY(children.open(QIODevice::ReadOnly));
    QTRY_VERIFY_WITH_TIMEOUT(children.seek(0) && children.readAll().isEmpty(), LimitMs);
    QVERIFY(!run.isOver());
    QCOMPARE(::kill(pid, SIGTERM), 0);
    QTRY_VERIFY_WITH_TIMEOUT(run.isOver(), LimitMs);
    QCOMPARE(run.process.exitStatus(), QProcess::NormalExit);
    QCOMPARE(run.process.exitCode(), 1);
}

void TestLineScreen::aSignalEndsAScreenWhoseLineCouldNotBeStarted()
{
    Run run;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert("QT_QPA_PLATFORM", "offscreen");
    run.process.setProcessEnvironment(environment);
    run.process.start(QFileInfo(BENCH).dir().filePath("bench-screen"),
                      {run.dir.filePath("none"), "line"});
    QByteArray told;
    QTRY_VERIFY_WITH_TIMEOUT((told += run.process.readAllStandardError()).endsWith('\n'), LimitMs);
    QVERIFY2(told.startsWith("bench line: "), told.constData());
    QVERIFY(!run.isOver());
    QCOMPARE(::kill(static_cast<pid_t>(run.process.processId()), SIGTERM), 0);
    QTRY_VERIFY_WITH_TIMEOUT(run.isOver(), LimitMs);
    QCOMPARE(run.process.exitStatus(), QProcess::NormalExit);
    QCOMPARE(run.process.exitCode(), 4);
}

void TestLineScreen::whatTakesTheScreenAwayTakesNoRecord_data()
{
    QTest::addColumn<bool>("isDisplay");
    QTest::newRow("it is killed") << false;
    QTest::newRow("its display goes") << true;
}

/// The line says nothing and asks nothing for the next ten minutes.
void TestLineScreen::whatTakesTheScreenAwayTakesNoRecord()
{
    QFETCH(bool, isDisplay);
    VirtualKeypad keypad;
    QVERIFY2(keypad.prepare(), qPrintable(keypad.errorString()));
    auto display = std::make_unique<Xvfb>();
    QVERIFY2(display->start(), qPrintable(display->errorString()));
    Run run;
    run.start(SmallPlan, {"--port", keypad.linePath()}, "xcb", display->display());
    QTRY_VERIFY_WITH_TIMEOUT(share(Yellow, display->display()) > 10, LimitMs);
    QCOMPARE(run.record().value("ended"), QJsonValue(false));
    if (isDisplay)
        display.reset();
    else
        run.process.kill();
    QTRY_VERIFY_WITH_TIMEOUT(run.isOver(), LimitMs);
    if (isDisplay)
        QCOMPARE(run.process.exitCode(), 4);
    QTRY_COMPARE_WITH_TIMEOUT(run.record().value("ended"), QJsonValue(true), LimitMs);
    QCOMPARE(run.outcome(), QString("interrupted"));
    const QString reason = run.record().value("reason").toString();
    QVERIFY2(reason.endsWith("the terminal, or the screen, was closed"), qPrintable(reason));
}

void TestLineScreen::withoutADisplayNothingIsTested()
{
    Run run;
    run.start(LookPlan, {}, "xcb", run.dir.filePath("none"));
    QTRY_VERIFY_WITH_TIMEOUT(run.isOver(), LimitMs);
    QCOMPARE(run.process.exitStatus(), QProcess::NormalExit);
    QCOMPARE(run.process.exitCode(), 4);
    const QString told = QString::fromUtf8(run.process.readAllStandardError());
    QVERIFY2(told.startsWith("bench line: --screen: no display can be opened ("), qPrintable(told));
    QCOMPARE(told.count('\n'), 1);
    QVERIFY(!QFile::exists(run.dir.filePath("out")));
}

void TestLineScreen::wrongCallsAreToldWithoutAScreen_data()
{
    QTest::addColumn<QStringList>("options");
    QTest::addColumn<QString>("reason");
    QTest::newRow("option") << QStringList{"--units", "0"}
                            << "bench line: --units takes a whole number from 1 to 9999\n";
    QTest::newRow("JSON") << QStringList{"--json"}
                          << "bench line: --screen and --json exclude each other\n";
}

void TestLineScreen::wrongCallsAreToldWithoutAScreen()
{
    QFETCH(QStringList, options);
    QFETCH(QString, reason);
    Run run;
    run.start(LookPlan, options, "none such"); // a screen would fail otherwise
    QTRY_VERIFY_WITH_TIMEOUT(run.isOver(), LimitMs);
    QCOMPARE(run.process.exitCode(), 2);
    QCOMPARE(QString::fromUtf8(run.process.readAllStandardError()), reason);
}

MFTOOL_TEST(TestLineScreen, EventLoop)
#include "tst_linescreen.moc"
