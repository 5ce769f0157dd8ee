/// Mounting the NAND's file system, as the station and the board's programs see it.
#include "tests/support/testprogram.h"
#include "tests/whole/programs.h"
#include "tests/whole/rig.h"

#include <csignal>

namespace
{

const QString attach = QStringLiteral("ubiattach");
const QString mountProgram = QStringLiteral("mount");

const QString ack = QStringLiteral("0004");
const QString mounted = QStringLiteral("7061 01");
const QString notMounted = QStringLiteral("7061 00");

const QString attachCall = QStringLiteral("ubiattach /dev/ubi_ctrl -m 1");
const QString mountCall = QStringLiteral("mount -t ubifs /dev/ubi0_0 /mnt");

/// What the attaching program prints, each line logged with its end.
const QString attachedLine =
    QStringLiteral("debug: UBI device number 0, total 1984 LEBs (255983616 bytes, 244.1 MiB), "
                   "available 0 LEBs (0 bytes), LEB size 129024 bytes (126.0 KiB)\n");
const QString code0 = QStringLiteral("debug: process finished with code 0");

const QByteArray runningVersion = "010220140101 1.2  0000000000000000";
const QByteArray mountedVersion = "020720140202 2.7  0000000000000000";

/// The pause for the kernel between attaching and mounting. The clock that times the
/// programs may be slower than the tool's, by a thousandth at most.
const double pauseBetween = 2000 * 0.999; // ms

KeypadOptions options()
{
    KeypadOptions options;
    options.workingDirectory = QStringLiteral("/usr");
    options.environment.insert(QStringLiteral("POINTERCAL_FILE"), QStringLiteral("/etc/of-qt"));
    return options;
}

} // namespace

class TestMounting : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void cleanup();

    void attachFailures_data();
    void attachFailures();
    void nothingIsMountedAfterAFailedAttach();
    void mountFailures_data();
    void mountFailures();
    void nothingToMount();
    void environmentStaysWithoutAMount();

    void mounts();
    void mountedAlready();
    void versionComesFromTheMount();
    void environmentPointsAtTheMount();
    void flashingUnmountsNothing();

    void requestDuringThePause();
    void exitRequestDuringThePause();

private:
    void addFailures(const QStringList &captures, const QString &refusal);
    void mountFailing(const QString &program, const QStringList &log, const QStringList &calls,
                      const QString &lastCall);
    QByteArray version() { return m_rig->station.request(wire::VersionRequest, "01").data(0x603D); }
    VirtualKeypad::StandinCall flashOnce();

    QScopedPointer<Rig> m_rig;
};

void TestMounting::initTestCase()
{
    SKIP_UNLESS_KEYPADS_RUN();
    m_rig.reset(new Rig(options()));
    QVERIFY2(m_rig->startReady(), qPrintable(m_rig->why()));
}

void TestMounting::cleanup()
{
    if (!m_rig || !m_rig->keypad.isRunning())
        return;
    Programs::restoreAll(m_rig->keypad);
    m_rig->settle();
    m_rig->forget();
}

/// Starts the flash and lets it fail at once. @return how its program was called
VirtualKeypad::StandinCall TestMounting::flashOnce()
{
    m_rig->keypad.setStandin("kobs-ng", "no-image");
    m_rig->station.clear();
    if (!m_rig->station.send(wire::FlashRequest) || m_rig->next() != ack ||
        m_rig->next() != QLatin1String("7052 00"))
        return {};
    const QList<VirtualKeypad::StandinCall> calls = m_rig->keypad.standinCalls();
    for (const VirtualKeypad::StandinCall &call : calls) {
        if (call.program == QLatin1String("kobs-ng"))
            return call;
    }
    return {};
}

/// The ways in which a program fails: it ends as in one of @p captures, of which the
/// tool logs @p refusal, or is missing, or crashes.
void TestMounting::addFailures(const QStringList &captures, const QString &refusal)
{
    QTest::addColumn<QString>("play");
    QTest::addColumn<QStringList>("line");
    QTest::addColumn<QStringList>("ending");
    const QStringList one(notMounted);
    for (const QString &capture : captures)
        QTest::newRow(qPrintable(capture)) << capture << one << QStringList(refusal);
    QTest::newRow("missing") << "missing" << one
                             << QStringList("debug: Process error 'Failed to Start'");
    QTest::newRow("crash") << "crash" << QStringList({notMounted, notMounted})
                           << QStringList({"debug: Process error 'Crashed'",
                                           "debug: process finished with code " +
                                               QString::number(SIGSEGV)});
}

/// Mounts while @p program, called by @p lastCall, fails in the row's way. @p log and
/// @p calls are what there is before that.
void TestMounting::mountFailing(const QString &program, const QStringList &log,
                                const QStringList &calls, const QString &lastCall)
{
    QFETCH(QString, play);
    QFETCH(QStringList, line);
    QFETCH(QStringList, ending);
    RigKeypad &keypad = m_rig->keypad;
    QVERIFY(keypad.setStandin(program, play));
    m_rig->forget();
    QVERIFY(m_rig->station.send(wire::MountRequest));
    QCOMPARE(m_rig->next(), ack);
    for (const QString &frame : qAsConst(line))
        QCOMPARE(m_rig->next(program == mountProgram ? Patience::mountPause : 0), frame);
    const Outcome end = m_rig->settle();
    QCOMPARE(end.line, QStringList());
    QCOMPARE(end.log, log + ending);
    QCOMPARE(Programs::calls(keypad), play == "missing" ? calls : calls + QStringList(lastCall));
}

void TestMounting::attachFailures_data()
{
    addFailures({"no-ubi", "twice"}, "debug: process finished with code 255");
}

void TestMounting::attachFailures()
{
    mountFailing(attach, {"debug: Starting ubiattach"}, {}, attachCall);
}

void TestMounting::nothingIsMountedAfterAFailedAttach()
{
    // Longer than the pause after an attach that succeeded.
    QVERIFY(m_rig->station.expectSilence(2300));
    QCOMPARE(Programs::calls(m_rig->keypad), QStringList());
    QCOMPARE(m_rig->settle().log, QStringList());
}

void TestMounting::mountFailures_data()
{
    addFailures({"no-volume", "already"}, "debug: process finished with code 32");
}

void TestMounting::mountFailures()
{
    mountFailing(mountProgram,
                 {"debug: Starting ubiattach", attachedLine, code0, "debug: Starting mount"},
                 {attachCall}, mountCall);
}

/// The program succeeds, but there is no file system with an /etc.
void TestMounting::nothingToMount()
{
    RigKeypad &keypad = m_rig->keypad;
    QVERIFY(Programs::setScript(keypad, mountProgram, "echo one\nexit 0\n"));
    m_rig->forget();
    QVERIFY(m_rig->station.send(wire::MountRequest));
    QCOMPARE(m_rig->next(), ack);
    QCOMPARE(m_rig->next(Patience::mountPause), notMounted);
    const Outcome end = m_rig->settle();
    QCOMPARE(end.line, QStringList());
    QCOMPARE(end.log,
             QStringList({"debug: Starting ubiattach", attachedLine, code0, "debug: Starting mount",
                          "debug: one\n", code0,
                          "debug: Mount appears to have failed, or there is nothing to mount"}));
}

void TestMounting::environmentStaysWithoutAMount()
{
    RigKeypad &keypad = m_rig->keypad;
    // What is there before the mount does not count.
    QVERIFY(keypad.makeDir("/mnt/usr/lib/panel"));
    QVERIFY(keypad.writeFile("/mnt/usr/lib/panel/version", "20140303 3.9\n"));
    QCOMPARE(version(), runningVersion);
    const VirtualKeypad::StandinCall call = flashOnce();
    QCOMPARE(call.environment.value("POINTERCAL_FILE"), QString("/etc/of-qt"));
    QVERIFY(!call.environment.contains("TSLIB_CALIBFILE"));
}

void TestMounting::mounts()
{
    RigKeypad &keypad = m_rig->keypad;
    m_rig->forget();
    QVERIFY(m_rig->station.send(wire::MountRequest));
    QCOMPARE(m_rig->next(), ack);
    QCOMPARE(m_rig->next(Patience::mountPause), mounted);
    const Outcome end = m_rig->settle();
    QCOMPARE(end.line, QStringList());
    QCOMPARE(end.log, QStringList({"debug: Starting ubiattach", attachedLine, code0,
                                   "debug: Starting mount", code0}));
    QCOMPARE(end.stores, QStringList());

    const QList<VirtualKeypad::StandinCall> calls = keypad.standinCalls();
    QCOMPARE(calls.size(), 2);
    QCOMPARE(calls.at(0).program, attach);
    QCOMPARE(calls.at(0).arguments, QStringList({"/dev/ubi_ctrl", "-m", "1"}));
    QCOMPARE(calls.at(1).program, mountProgram);
    QCOMPARE(calls.at(1).arguments, QStringList({"-t", "ubifs", "/dev/ubi0_0", "/mnt"}));
    for (const VirtualKeypad::StandinCall &call : calls) {
        QCOMPARE(call.workingDirectory, QString("/usr"));
        QCOMPARE(call.environment.value("POINTERCAL_FILE"), QString("/etc/of-qt"));
    }
    const double between =
        Programs::startTime(keypad, mountProgram) - Programs::startTime(keypad, attach);
    QVERIFY2(between >= pauseBetween, qPrintable(QString::number(between)));
}

void TestMounting::mountedAlready()
{
    const Outcome again = m_rig->request(wire::MountRequest);
    QCOMPARE(again.line, QStringList(ack));
    QCOMPARE(again.log, QStringList());
    QVERIFY(m_rig->station.expectSilence(2300));
    QCOMPARE(m_rig->settle().log, QStringList());
    QCOMPARE(Programs::calls(m_rig->keypad), QStringList());
}

void TestMounting::versionComesFromTheMount()
{
    QCOMPARE(version(), mountedVersion);
    // Never again from the running system, and then there is no answer at all.
    QVERIFY(m_rig->keypad.removeFile("/mnt/usr/lib/panel/version"));
    const Outcome without = m_rig->request(wire::VersionRequest, "01");
    QCOMPARE(without.line, QStringList());
    QCOMPARE(without.log, QStringList("debug: In ATE mode Could not Open Version file to read"));
    QVERIFY(m_rig->keypad.writeFile("/mnt/usr/lib/panel/version", "20140202 2.7\n"));
    QCOMPARE(version(), mountedVersion);
}

void TestMounting::environmentPointsAtTheMount()
{
    const VirtualKeypad::StandinCall call = flashOnce();
    QCOMPARE(call.environment.value("POINTERCAL_FILE"), QString("/mnt/etc/pointercal"));
    QCOMPARE(call.environment.value("TSLIB_CALIBFILE"), QString("/mnt/etc/pointercal"));
}

void TestMounting::flashingUnmountsNothing()
{
    m_rig->station.clear();
    QVERIFY(m_rig->station.send(wire::FlashRequest));
    QCOMPARE(m_rig->next(), ack);
    QCOMPARE(m_rig->next(), QString("7052 01"));
    QCOMPARE(version(), mountedVersion);
    QCOMPARE(m_rig->request(wire::MountRequest).line, QStringList(ack));
    QVERIFY(!Programs::calls(m_rig->keypad).contains(attachCall));
}

/// The second request finds the volume attached and fails; the first one goes on.
void TestMounting::requestDuringThePause()
{
    m_rig.reset(new Rig(options()));
    QVERIFY2(m_rig->startReady(), qPrintable(m_rig->why()));
    RigKeypad &keypad = m_rig->keypad;
    QCOMPARE(m_rig->request(wire::MountRequest).line, QStringList(ack));
    QVERIFY(keypad.waitForLog("process finished with code 0"));
    QVERIFY(m_rig->station.send(wire::MountRequest));
    QCOMPARE(m_rig->next(), ack);
    QCOMPARE(m_rig->next(), notMounted);
    QCOMPARE(m_rig->next(Patience::mountPause), mounted);
    QCOMPARE(m_rig->settle().line, QStringList());
    QCOMPARE(Programs::calls(keypad), QStringList({attachCall, attachCall, mountCall}));
}

void TestMounting::exitRequestDuringThePause()
{
    m_rig.reset(new Rig(options()));
    QVERIFY2(m_rig->startReady(), qPrintable(m_rig->why()));
    RigKeypad &keypad = m_rig->keypad;
    QCOMPARE(m_rig->request(wire::MountRequest).line, QStringList(ack));
    QVERIFY(keypad.waitForLog("process finished with code 0"));
    m_rig->station.clear();
    QVERIFY(m_rig->station.send(wire::ExitRequest));
    QCOMPARE(m_rig->next(), ack);
    QVERIFY(keypad.waitForExit());
    QCOMPARE(keypad.exitStatus().code, 0);
    QVERIFY(!m_rig->station.receiveNow().has_value());
    QCOMPARE(Programs::calls(keypad), QStringList(attachCall));
}

MFTOOL_TEST(TestMounting, EventLoop)

#include "tst_mounting.moc"
