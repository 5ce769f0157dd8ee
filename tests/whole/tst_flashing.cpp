/// Programming the NAND, as the station, the operator and the board's programs
/// see it.
#include "tests/support/testprogram.h"
#include "tests/whole/programs.h"
#include "tests/whole/rig.h"
#include "tests/whole/screenreader.h"

#include <csignal>

namespace
{

const QString boot = QStringLiteral("kobs-ng");
const QString rootFs = QStringLiteral("ubiformat");

const QString ack = QStringLiteral("0004");
const QString notApplicable = QStringLiteral("0003");
const QString complete = QStringLiteral("7052 01");
const QString failed = QStringLiteral("7052 00");

const QString timedOut =
    QStringLiteral("debug: \n************ ATE TEST Quit due to time out ************\n");

/// What the boot stream tool prints with so many blocks to erase.
QByteArray bootStreamOutput(int eraseLines)
{
    QByteArray output("mtd: opening: \"/dev/mtd0\"\n");
    for (int i = 1; i <= eraseLines; ++i)
        output += "mtd: erasing line " + QByteArray::number(i) + " of many\n";
    return output + "mtd: Verifying boot blocks: OK\n";
}

KeypadOptions withSettings(KeypadOptions options)
{
    options.workingDirectory = QStringLiteral("/usr");
    options.environment.insert(QStringLiteral("BOARD_SETTING"), QStringLiteral("as it was"));
    return options;
}

} // namespace

class TestFlashing : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void cleanup();

    void fromTheButton();
    void fromTheStation();
    void everyStageAnswers();
    void wholeOutputAtFullSpeed();
    void programsAreStartedRight();
    void secondStartIsRefused();
    void moreEraseLinesThanExpected();
    void failures_data();
    void failures();
    void killedProgram();
    void updateDirectory_data();
    void updateDirectory();

    void exitRequestDuringAFlash();
    void stationFallsSilentDuringAFlash();
    void flashWithoutAStation();
    void killedToolLeavesAQuietProgram();
    void killedToolEndsAPrintingProgram();

private:
    bool startTool(const KeypadOptions &options);
    Outcome query() { return m_rig->request(wire::FlashQueryRequest); }
    bool waitForQuery(const char *data);
    void flashWell();
    void endsByTheTimer(const QString &program);

    QScopedPointer<Rig> m_rig;
    QScopedPointer<ScreenReader> m_screen;
};

void TestFlashing::initTestCase()
{
    SKIP_UNLESS_SCREENS_RUN();
    QVERIFY2(startTool(onScreen()), qPrintable(m_rig->why()));
}

bool TestFlashing::startTool(const KeypadOptions &options)
{
    m_screen.reset();
    m_rig.reset(new Rig(withSettings(options)));
    if (!m_rig->startReady())
        return false;
    m_screen.reset(new ScreenReader(m_rig->keypad));
    // No picture on the buttons.
    m_rig->request(wire::PatternRequest);
    return options.display.kind == KeypadDisplay::Offscreen ||
           (m_screen->waitForStatus("Flash NAND") && m_screen->findBars());
}

/// Whatever a test left running is brought to its end: a check that failed must not make
/// later ones fail.
void TestFlashing::cleanup()
{
    if (!m_rig)
        return;
    if (!m_rig->keypad.isRunning()) {
        startTool(KeypadOptions()); // for the ends that follow an end
        return;
    }
    Programs::kill(m_rig->keypad, boot, QStringLiteral("KILL"));
    Programs::kill(m_rig->keypad, rootFs, QStringLiteral("KILL"));
    Programs::waitUntilGone(m_rig->keypad, boot);
    Programs::waitUntilGone(m_rig->keypad, rootFs);
    Programs::restoreAll(m_rig->keypad);
    m_rig->settle();
    m_rig->forget();
}

/// Waits until the tool has read as far as this answer says: stage and percent.
bool TestFlashing::waitForQuery(const char *data)
{
    const QStringList wanted(QStringLiteral("7051 ") + QLatin1String(data));
    QStringList answer;
    if (Patience::waitUntil([&] { return (answer = query().line) == wanted; }))
        return true;
    qWarning("the last answer is %s, after this log:\n%s",
             qPrintable(answer.join(QLatin1String(", "))),
             qPrintable(m_rig->wholeLog().join(u'\n')));
    return false;
}

/// A whole flash, with everything that the station hears of it.
void TestFlashing::flashWell()
{
    m_rig->forget();
    QVERIFY(m_rig->station.send(wire::FlashRequest));
    QCOMPARE(m_rig->next(), ack);
    QCOMPARE(m_rig->next(), complete);
    QCOMPARE(m_rig->settle().line, QStringList());
}

void TestFlashing::fromTheButton()
{
    RigKeypad &keypad = m_rig->keypad;
    // Below the logo there is nothing to press.
    QCOMPARE(m_rig->request(wire::PatternRequest, "tarnwick.png").line, QStringList(ack));
    QVERIFY(keypad.touch(ScreenReader::button().x(), ScreenReader::button().y()));
    QCOMPARE(m_rig->settle().line, QStringList());
    QCOMPARE(query().line, QStringList(notApplicable));
    QCOMPARE(Programs::calls(keypad), QStringList());

    QCOMPARE(m_rig->request(wire::PatternRequest).line, QStringList(ack));
    QVERIFY(m_screen->waitForStatus("Flash NAND"));
    QCOMPARE(m_screen->bars(), QString("0 0 0 0"));

    QVERIFY(keypad.holdStandin(boot, "mtd: erasing @0:0x340000"));
    QVERIFY(keypad.holdStandin(rootFs, "scanning eraseblock 795 "));
    m_rig->forget();
    QVERIFY(keypad.touch(ScreenReader::button().x(), ScreenReader::button().y()));
    QVERIFY2(m_screen->waitForStatus("Flashing..."), qPrintable(m_screen->status()));
    QVERIFY(waitForQuery("0032"));
    QVERIFY2(m_screen->waitForBars({50, 0, 0, 0}), qPrintable(m_screen->bars()));

    QVERIFY(keypad.releaseStandin(boot));
    QVERIFY(waitForQuery("0128"));
    QVERIFY2(m_screen->waitForBars({100, 40, 0, 0}), qPrintable(m_screen->bars()));

    QVERIFY(keypad.holdStandin(rootFs, "ubiformat: flashing eraseblock 44 "));
    QVERIFY(waitForQuery("0232"));
    QVERIFY2(m_screen->waitForBars({100, 100, 50, 0}), qPrintable(m_screen->bars()));

    QVERIFY(keypad.holdStandin(rootFs, "ubiformat: formatting eraseblock 1510 "));
    QVERIFY(waitForQuery("034B"));
    QVERIFY2(m_screen->waitForBars({100, 100, 100, 75}), qPrintable(m_screen->bars()));
    QCOMPARE(m_screen->status(), QString("Flashing..."));

    m_rig->forget();
    QVERIFY(keypad.releaseStandin(rootFs));
    QCOMPARE(m_rig->next(), complete);
    QCOMPARE(m_rig->settle().line, QStringList());
    QVERIFY2(m_screen->waitForStatus("Complete!"), qPrintable(m_screen->status()));
    QCOMPARE(m_screen->bars(), QString("100 100 100 100"));

    // The page with the button does not come back.
    QVERIFY(keypad.touch(ScreenReader::button().x(), ScreenReader::button().y()));
    QCOMPARE(m_rig->settle().line, QStringList());
    QCOMPARE(query().line, QStringList(notApplicable));
    QCOMPARE(m_screen->status(), QString("Complete!"));
    QCOMPARE(Programs::calls(keypad),
             QStringList({"kobs-ng -v /boot/fw-1.2/imx28_ivt_linux.sb",
                          "ubiformat /dev/mtd1 -y -f /boot/fw-1.2/qm8velrootfs.ubi"}));
}

void TestFlashing::fromTheStation()
{
    RigKeypad &keypad = m_rig->keypad;
    QVERIFY(keypad.holdStandin(boot, "mtd: erasing @0:0x340000"));
    const Outcome started = m_rig->request(wire::FlashRequest);
    QCOMPARE(started.line, QStringList(ack));
    QCOMPARE(started.log, QStringList({"debug: Using firmware update dir '/boot/fw-1.2'",
                                       "debug: Starting kobs-ng"}));
    QCOMPARE(started.stores, QStringList());
    // All bars start anew.
    QVERIFY(waitForQuery("0032"));
    QVERIFY2(m_screen->waitForBars({50, 0, 0, 0}), qPrintable(m_screen->bars()));
    QVERIFY2(m_screen->waitForStatus("Flashing..."), qPrintable(m_screen->status()));

    m_rig->forget();
    QVERIFY(keypad.releaseStandin(boot));
    QCOMPARE(m_rig->next(), complete);
    QCOMPARE(m_rig->settle().line, QStringList());
    QVERIFY(m_screen->waitForStatus("Complete!"));
    QCOMPARE(m_screen->bars(), QString("100 100 100 100"));
}

/// Only the tool's own output counts, in every stage and between them.
void TestFlashing::everyStageAnswers()
{
    RigKeypad &keypad = m_rig->keypad;
    QCOMPARE(query().line, QStringList(notApplicable));

    QVERIFY(keypad.holdStandin(boot, "MTD CONFIG:"));
    QCOMPARE(m_rig->request(wire::FlashRequest).line, QStringList(ack));
    QVERIFY(Programs::waitUntilRunning(keypad, boot));
    QCOMPARE(query().line, QStringList("7051 0000"));

    QVERIFY(keypad.holdStandin(boot, "mtd: erasing @0:0x0-"));
    QVERIFY(waitForQuery("0001"));
    // The second tool has started but said nothing of its work: the stage is its
    // own, the percentage still the first one's.
    QVERIFY(keypad.holdStandin(rootFs, "1984 eraseblocks of 131072 bytes"));
    QVERIFY(keypad.releaseStandin(boot));
    QVERIFY(waitForQuery("0164"));
    QVERIFY(Programs::waitUntilRunning(keypad, rootFs));
    QCOMPARE(query().line, QStringList("7051 0164"));

    QVERIFY(keypad.holdStandin(rootFs, "scanning eraseblock 795 "));
    QVERIFY(waitForQuery("0128"));
    QVERIFY(keypad.holdStandin(rootFs, "eraseblocks have valid erase counter"));
    QVERIFY(waitForQuery("0264"));
    // A line counts when its end has come, at the beginning of the next one.
    QVERIFY(keypad.holdStandin(rootFs, "ubiformat: flashing eraseblock 44 "));
    QVERIFY(waitForQuery("0232"));
    QVERIFY(keypad.holdStandin(rootFs, "ubiformat: formatting eraseblock 1510 "));
    QVERIFY(waitForQuery("034B"));
    m_rig->forget();
    QVERIFY(keypad.releaseStandin(rootFs));
    QCOMPARE(m_rig->next(), complete);
    QCOMPARE(query().line, QStringList(notApplicable));
}

void TestFlashing::wholeOutputAtFullSpeed()
{
    m_rig->forget();
    QVERIFY(m_rig->station.send(wire::FlashRequest));
    QCOMPARE(m_rig->next(), ack);
    QCOMPARE(m_rig->next(), complete);
    const Outcome end = m_rig->settle();
    QCOMPARE(end.line, QStringList());
    QCOMPARE(end.log,
             QStringList({"debug: Using firmware update dir '/boot/fw-1.2'",
                          "debug: Starting kobs-ng", "debug: process finished with code 0",
                          "debug: Starting ubiformat", "debug: process finished with code 0"}));
    QCOMPARE(end.stores, QStringList());
}

void TestFlashing::programsAreStartedRight()
{
    flashWell();
    const QList<VirtualKeypad::StandinCall> calls = m_rig->keypad.standinCalls();
    QCOMPARE(calls.size(), 2);
    const VirtualKeypad::StandinCall first = calls.at(0);
    QCOMPARE(first.program, boot);
    QCOMPARE(first.arguments, QStringList({"-v", "/boot/fw-1.2/imx28_ivt_linux.sb"}));
    QCOMPARE(first.workingDirectory, QString("/root"));
    const VirtualKeypad::StandinCall second = calls.at(1);
    QCOMPARE(second.program, rootFs);
    QCOMPARE(second.arguments,
             QStringList({"/dev/mtd1", "-y", "-f", "/boot/fw-1.2/qm8velrootfs.ubi"}));
    QCOMPARE(second.workingDirectory, QString("/usr"));
    for (const VirtualKeypad::StandinCall &call : calls) {
        QCOMPARE(call.environment.value("BOARD_SETTING"), QString("as it was"));
        QVERIFY(!call.environment.contains("POINTERCAL_FILE"));
        QVERIFY(!call.environment.contains("TSLIB_CALIBFILE"));
    }
    QCOMPARE(first.environment, second.environment);
}

void TestFlashing::secondStartIsRefused()
{
    RigKeypad &keypad = m_rig->keypad;
    QVERIFY(keypad.holdStandin(boot, "mtd: erasing @0:0x340000"));
    QCOMPARE(m_rig->request(wire::FlashRequest).line, QStringList(ack));
    QVERIFY(waitForQuery("0032"));

    const Outcome again = m_rig->request(wire::FlashRequest, "elsewhere");
    QCOMPARE(again.line, QStringList(ack));
    QCOMPARE(again.log, QStringList("debug: Flash already in progress"));
    QCOMPARE(again.stores, QStringList());
    QCOMPARE(query().line, QStringList("7051 0032"));
    QVERIFY(m_screen->waitForBars({50, 0, 0, 0}));

    m_rig->forget();
    QVERIFY(keypad.releaseStandin(boot));
    QCOMPARE(m_rig->next(), complete);
    QCOMPARE(m_rig->settle().line, QStringList());
    QCOMPARE(Programs::calls(keypad),
             QStringList({"kobs-ng -v /boot/fw-1.2/imx28_ivt_linux.sb",
                          "ubiformat /dev/mtd1 -y -f /boot/fw-1.2/qm8velrootfs.ubi"}));
}

void TestFlashing::moreEraseLinesThanExpected()
{
    RigKeypad &keypad = m_rig->keypad;
    const QString capture = QStringLiteral("/run/bench/captures/kobs-ng-good.stdout");
    const QByteArray usual = keypad.readFile(capture);
    QVERIFY(keypad.writeFile(capture, bootStreamOutput(60)));
    QVERIFY(keypad.holdStandin(boot, "erasing line 53 of"));
    QCOMPARE(m_rig->request(wire::FlashRequest).line, QStringList(ack));
    QVERIFY(waitForQuery("0062"));
    QVERIFY(m_screen->waitForBars({98, 0, 0, 0}));
    QVERIFY(keypad.holdStandin(boot, "erasing line 54 of"));
    QVERIFY(waitForQuery("0064"));
    QVERIFY(keypad.holdStandin(boot, "erasing line 55 of"));
    QVERIFY(waitForQuery("0065"));
    // A bar ends at 100 and leaves alone what is beyond.
    QVERIFY(m_screen->waitForBars({100, 0, 0, 0}));
    m_rig->forget();
    QVERIFY(keypad.releaseStandin(boot));
    QCOMPARE(m_rig->next(), complete);
    QVERIFY(keypad.writeFile(capture, usual));
}

void TestFlashing::failures_data()
{
    QTest::addColumn<QString>("program");
    QTest::addColumn<QString>("play");
    QTest::addColumn<int>("reports");
    QTest::addColumn<QString>("status");
    QTest::addColumn<QStringList>("ending");
    QTest::addColumn<QList<int>>("bars");

    const auto row = [](const QString &program, const char *play, int reports, const char *status,
                        const QStringList &ending, const QList<int> &bars) {
        QTest::newRow(qPrintable(program + ' ' + play))
            << program << play << reports << status << ending << bars;
    };
    const char *const error = "Failed: Finished with Error";
    const QStringList code255("debug: process finished with code 255");
    const QStringList notStarted("debug: Process error 'Failed to Start'");
    const QStringList crashed({"debug: Process error 'Crashed'",
                               "debug: process finished with code " + QString::number(SIGSEGV)});

    row(boot, "no-image", 1, error, {"debug: process finished with code 1"}, {0, 0, 0, 0});
    row(boot, "missing", 1, "Failed: Failed to Start", notStarted, {0, 0, 0, 0});
    row(boot, "crash", 2, "Failed: Crashed", crashed, {});
    row(rootFs, "no-image", 1, error, code255, {100, 100, 0, 0});
    row(rootFs, "image-too-large", 1, error, code255, {100, 100, 0, 0});
    row(rootFs, "image-truncated", 1, error, code255, {100, 100, 0, 0});
    row(rootFs, "attached", 1, error, code255, {100, 0, 0, 0});
    row(rootFs, "no-device", 1, error, code255, {100, 0, 0, 0});
    row(rootFs, "missing", 1, "Failed: Failed to Start", notStarted, {100, 0, 0, 0});
    row(rootFs, "crash", 2, "Failed: Crashed", crashed, {});
}

/// Each ends the sequence; the next flash works again.
void TestFlashing::failures()
{
    QFETCH(QString, program);
    QFETCH(QString, play);
    QFETCH(int, reports);
    QFETCH(QString, status);
    QFETCH(QStringList, ending);
    QFETCH(QList<int>, bars);
    RigKeypad &keypad = m_rig->keypad;
    QVERIFY(keypad.setStandin(program, play));

    m_rig->forget();
    QVERIFY(m_rig->station.send(wire::FlashRequest));
    QCOMPARE(m_rig->next(), ack);
    for (int i = 0; i < reports; ++i)
        QCOMPARE(m_rig->next(), failed);
    const Outcome end = m_rig->settle();
    QCOMPARE(end.line, QStringList());
    QStringList log({"debug: Using firmware update dir '/boot/fw-1.2'", "debug: Starting kobs-ng"});
    if (program == rootFs)
        log += QStringList({"debug: process finished with code 0", "debug: Starting ubiformat"});
    QCOMPARE(end.log, log + ending);
    QCOMPARE(query().line, QStringList(notApplicable));
    QVERIFY2(m_screen->waitForStatus(status), qPrintable(m_screen->status()));
    if (!bars.isEmpty()) // a crash may come anywhere
        QVERIFY2(m_screen->waitForBars(bars), qPrintable(m_screen->bars()));

    QStringList calls;
    if (program == rootFs || play != "missing")
        calls += "kobs-ng -v /boot/fw-1.2/imx28_ivt_linux.sb";
    if (program == rootFs && play != "missing")
        calls += "ubiformat /dev/mtd1 -y -f /boot/fw-1.2/qm8velrootfs.ubi";
    QCOMPARE(Programs::calls(keypad), calls);

    QVERIFY(Programs::restoreAll(keypad));
    flashWell();
    QVERIFY(m_screen->waitForStatus("Complete!"));
    QCOMPARE(m_screen->bars(), QString("100 100 100 100"));
}

void TestFlashing::killedProgram()
{
    RigKeypad &keypad = m_rig->keypad;
    // It leaves an unfinished line.
    QVERIFY(Programs::setScript(keypad, boot,
                                "echo mtd: erasing\\ 1\n"
                                "printf 'mtd: erasing '\n"
                                "echo ready >/root/ready\n"
                                "while :; do /bin/sleep 0.05; done\n"));
    QCOMPARE(m_rig->request(wire::FlashRequest).line, QStringList(ack));
    QVERIFY(waitForQuery("0001"));
    AWAIT_VERIFY(keypad.exists("/root/ready"));
    m_rig->forget();
    QVERIFY(Programs::kill(keypad, boot, QStringLiteral("KILL")));
    QCOMPARE(m_rig->next(), failed);
    QCOMPARE(m_rig->next(), failed);
    const Outcome end = m_rig->settle();
    QCOMPARE(end.line, QStringList());
    QCOMPARE(end.log, QStringList({"debug: Process error 'Crashed'",
                                   "debug: process finished with code 9"}));
    QVERIFY2(m_screen->waitForStatus("Failed: Crashed"), qPrintable(m_screen->status()));

    // The unfinished line is the beginning of the next run's first one, which
    // thus counts as an erase line: 28 where 27 were printed.
    QVERIFY(Programs::restoreAll(keypad));
    QVERIFY(keypad.holdStandin(boot, "mtd: erasing @0:0x340000"));
    QCOMPARE(m_rig->request(wire::FlashRequest).line, QStringList(ack));
    QVERIFY(waitForQuery("0033"));
    m_rig->forget();
    QVERIFY(keypad.releaseStandin(boot));
    QCOMPARE(m_rig->next(), complete);
}

void TestFlashing::updateDirectory_data()
{
    QTest::addColumn<QStringList>("folders");
    QTest::addColumn<QByteArray>("asked");
    QTest::addColumn<QString>("chosen");
    const auto row = [](const char *name, const QStringList &folders, const QByteArray &asked,
                        const QString &chosen) {
        QTest::newRow(name) << folders << asked << chosen;
    };
    const QStringList betas({"fw-beta-a", "fw-beta-b", "fw-gamma"});
    row("nothing asked, the greatest name", QStringList({"fw-9", "fw-10"}), "", "/boot/fw-9");
    row("last of those that contain it", betas, "beta", "/boot/fw-beta-b");
    row("no match", betas, "delta", "delta");
    row("a name with a blank", QStringList({"my fw", "your fw"}), "y f", "/boot/my fw");
    row("absolute, ends with a slash", betas, "/data/fw/", "/data/fw/");
}

void TestFlashing::updateDirectory()
{
    QFETCH(QStringList, folders);
    QFETCH(QByteArray, asked);
    QFETCH(QString, chosen);
    RigKeypad &keypad = m_rig->keypad;
    const QStringList old = keypad.listDir("/boot");
    for (const QString &name : old)
        QVERIFY(keypad.removeFile("/boot/" + name));
    for (const QString &name : qAsConst(folders))
        QVERIFY(keypad.makeDir("/boot/" + name));
    // The content of the folder does not matter: only the programs' arguments count here.
    QVERIFY(keypad.setStandin(boot, "good"));
    QVERIFY(keypad.setStandin(rootFs, "no-device"));

    m_rig->forget();
    QVERIFY(m_rig->station.send(wire::FlashRequest, asked));
    QCOMPARE(m_rig->next(), ack);
    QCOMPARE(m_rig->next(), failed);
    QCOMPARE(m_rig->log().value(0), "debug: Using firmware update dir '" + chosen + "'");
    const QList<VirtualKeypad::StandinCall> calls = keypad.standinCalls();
    QCOMPARE(calls.size(), 2);
    QCOMPARE(calls.at(0).arguments, QStringList({"-v", chosen + "/imx28_ivt_linux.sb"}));
    QCOMPARE(calls.at(1).arguments,
             QStringList({"/dev/mtd1", "-y", "-f", chosen + "/qm8velrootfs.ubi"}));
}

void TestFlashing::exitRequestDuringAFlash()
{
    // Without a screen: what is left unfreed at the end is then the tool's own.
    QVERIFY2(startTool(KeypadOptions()), qPrintable(m_rig->why()));
    RigKeypad &keypad = m_rig->keypad;
    QVERIFY(keypad.holdStandin(rootFs, "scanning eraseblock 795 "));
    QCOMPARE(m_rig->request(wire::FlashRequest).line, QStringList(ack));
    QVERIFY(waitForQuery("0128"));
    m_rig->forget();
    QVERIFY(m_rig->station.send(wire::ExitRequest));
    QCOMPARE(m_rig->next(), ack);
    QVERIFY(keypad.waitForExit());
    const VirtualKeypad::ExitStatus status = keypad.exitStatus();
    QCOMPARE(status.code, 0);
    QCOMPARE(status.signal, 0);
    QVERIFY(Programs::running(keypad, rootFs).isEmpty());
    // No failure is reported: nobody is left to hear it.
    QVERIFY(!m_rig->station.receiveNow().has_value());
    QVERIFY(m_rig->waitForLog(
        "warning: QProcess: Destroyed while process (\"ubiformat\") is still running."));
    QVERIFY(!m_rig->log().join('\n').contains("finished with code"));
}

/// The time-out does not make the flash fail, it ends it: the program ends with the tool,
/// and nothing more comes over the line.
void TestFlashing::endsByTheTimer(const QString &program)
{
    RigKeypad &keypad = m_rig->keypad;
    QVERIFY(keypad.waitForExit());
    const VirtualKeypad::ExitStatus status = keypad.exitStatus();
    QCOMPARE(status.signal, 0);
    QCOMPARE(status.code, 0);
    QVERIFY(m_rig->waitForLog(timedOut));
    QVERIFY(m_rig->waitForLog("warning: QProcess: Destroyed while process (\"" + program +
                              "\") is still running."));
    QVERIFY(!m_rig->log().join('\n').contains("finished with code"));
    QVERIFY(Programs::running(keypad, program).isEmpty());
    QCOMPARE(m_rig->stores().filter("sd_power"), QStringList("gpio/sd_power/value=0"));
    QVERIFY(!m_rig->station.receiveNow().has_value());
}

void TestFlashing::stationFallsSilentDuringAFlash()
{
    SKIP_UNLESS_CLOCKS_MOVE();
    KeypadOptions options;
    ToolClock clock;
    clock.wind(options);
    QVERIFY2(startTool(options), qPrintable(m_rig->why()));
    RigKeypad &keypad = m_rig->keypad;
    QVERIFY(keypad.holdStandin(boot, "mtd: erasing @0:0x340000"));
    QCOMPARE(m_rig->request(wire::FlashRequest).line, QStringList(ack));
    QVERIFY(waitForQuery("0032"));

    // Only frames from the station put off the time-out, not the work of the programs.
    QVERIFY(clock.set(500));
    QVERIFY(keypad.holdStandin(rootFs, "scanning eraseblock 795 "));
    QVERIFY(keypad.releaseStandin(boot));
    QVERIFY(m_rig->waitForLog("debug: Starting ubiformat"));
    QVERIFY(Programs::waitUntilRunning(keypad, rootFs));
    m_rig->forget();
    QVERIFY(clock.set(602));
    keypad.pressHome();
    endsByTheTimer(rootFs);
}

/// The button needs no station, but without one the tool still ends after 15 seconds.
void TestFlashing::flashWithoutAStation()
{
    SKIP_UNLESS_CLOCKS_MOVE();
    KeypadOptions options = onScreen();
    options.without = QStringList("/home/default/tarnwick.png"); // it would cover the button
    ToolClock clock;
    clock.wind(options);
    // Fifteen seconds of a clock that is then set back: a slow machine has all
    // the time it needs.
    QVERIFY(clock.set(3600));
    m_screen.reset();
    m_rig.reset(new Rig(withSettings(options)));
    QVERIFY2(m_rig->startReady(), qPrintable(m_rig->why()));
    QVERIFY(clock.set(0));
    RigKeypad &keypad = m_rig->keypad;
    m_screen.reset(new ScreenReader(keypad));
    QVERIFY(m_screen->waitForStatus("Flash NAND"));
    QVERIFY(m_screen->findBars());
    QVERIFY(keypad.holdStandin(boot, "mtd: erasing @0:0x340000"));
    QVERIFY(keypad.touch(ScreenReader::button().x(), ScreenReader::button().y()));
    QVERIFY2(m_screen->waitForBars({50, 0, 0, 0}), qPrintable(m_screen->bars()));

    m_rig->forget();
    QVERIFY(clock.set(3600 + 16));
    keypad.pressHome();
    endsByTheTimer(boot);
}

void TestFlashing::killedToolLeavesAQuietProgram()
{
    RigKeypad &keypad = m_rig->keypad;
    QVERIFY(Programs::setScript(keypad, boot,
                                "while [ ! -e /root/go ]; do /bin/sleep 0.05; done\n"
                                "echo whole >/root/done\n"));
    QCOMPARE(m_rig->request(wire::FlashRequest).line, QStringList(ack));
    QVERIFY(Programs::waitUntilRunning(keypad, boot));
    QVERIFY(keypad.kill(SIGKILL));
    QVERIFY(keypad.waitForExit());
    QCOMPARE(keypad.exitStatus().signal, SIGKILL);
    QVERIFY(!Programs::running(keypad, boot).isEmpty());
    QVERIFY(keypad.writeFile("/root/go", ""));
    QVERIFY(Programs::waitUntilGone(keypad, boot));
    QCOMPARE(keypad.readFile("/root/done"), QByteArray("whole\n"));
}

void TestFlashing::killedToolEndsAPrintingProgram()
{
    RigKeypad &keypad = m_rig->keypad;
    QVERIFY(Programs::setScript(keypad, boot,
                                "echo mtd: erasing\\ 1\n"
                                "while [ ! -e /root/go ]; do /bin/sleep 0.05; done\n"
                                "echo mtd: erasing\\ 2\n"
                                "echo survived >/root/done\n"));
    QCOMPARE(m_rig->request(wire::FlashRequest).line, QStringList(ack));
    QVERIFY(waitForQuery("0001"));
    QVERIFY(keypad.kill(SIGKILL));
    QVERIFY(keypad.waitForExit());
    QVERIFY(!Programs::running(keypad, boot).isEmpty());
    QVERIFY(keypad.writeFile("/root/go", ""));
    QVERIFY(Programs::waitUntilGone(keypad, boot));
    QVERIFY(!keypad.exists("/root/done"));
}

MFTOOL_TEST(TestFlashing, Widgets)

#include "tst_flashing.moc"
