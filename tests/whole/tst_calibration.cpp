/// Calibrating the touchscreen with presses on an X server's screen, as the
/// station, the operator and the file system see it.
#include "tests/support/testprogram.h"
#include "tests/whole/rig.h"
#include "tests/whole/screenreader.h"

#include <fcntl.h>
#include <unistd.h>

namespace
{

const QString ack = QStringLiteral("0004");
const QString accepted = QStringLiteral("7022 01");
const QString rejected = QStringLiteral("7022 00");

/// In the order in which they are asked for: top left, bottom left, bottom right, top
/// right, centre. On a screen of 800 by 480 the pictures of 48 by 48 are right in the
/// corners.
const QPoint targets[] = {{24, 24}, {24, 456}, {776, 456}, {776, 24}, {400, 240}};
const int targetCount = 5;

const QString loud = QStringLiteral("leds/buzzer/brightness=185");
const QString quiet = QStringLiteral("leds/buzzer/brightness=0");
/// A touch held long enough, and its end.
const QStringList heldTouch = {loud, loud, quiet, quiet};

const QString settingCalibration = QStringLiteral("debug: Setting calibration");
const QString exactFit = QStringLiteral("debug: The calibration fits its points to 0 pixels");
const QString releasingMouse = QStringLiteral("debug: releasing mouse");
const QString onlyToSd =
    QStringLiteral("warning: NAND not mounted, calibration will only be saved to SD");

const QString defaultFile = QStringLiteral("/etc/pointercal");
const QString mountedFile = QStringLiteral("/mnt/etc/pointercal");

/// x' = x and y' = y, with the half pixel that makes a truncating division round.
const QByteArray untouched = "65536 0 32768 0 65536 32768 65536\n";
/// x' = x - 4 and y' = y - 2.
const QByteArray moved = "65536 0 -229376 0 65536 -98304 65536\n";

const QRgb black = 0xff000000;
const QRgb white = 0xffffffff;

} // namespace

class TestCalibration : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void cleanup();

    void acceptedCycle();
    void rejectedCycleKeepsTheAcceptedOne();
    void secondRequestStartsAnew();
    void touchFromBeforeItOpened();
    void closedInTheMiddle();
    void closedWithoutBeingOpen();
    void testImageEndsIt();
    void itEndsATestImage();
    void touchTestGoesOnAfterwards();
    void touchTestWhileItIsOpen();
    void mountedFileSystemGetsTheFile();
    void testImageStoresOnTheMount();
    void exitRequestStoresNothing();
    void exitRequestFreesTheDialog();
    void filesOfTheEnvironment();
    void fileThatCannotBeWritten();

private:
    void startTool(const KeypadOptions &options);
    void open();
    Outcome close() { return m_rig->request(wire::CalibrateRequest, "00"); }
    void press(const QPoint &at);
    void hold(const QPoint &at, const QString &point);
    void cycle(const QPoint &offset = QPoint());
    bool targetShown(const QImage &screen, int target) const;
    int target();
    bool waitForTarget(int index);
    QByteArray file(const QString &path) { return m_rig->keypad.readFile(path); }

    QScopedPointer<Rig> m_rig;
};

void TestCalibration::initTestCase()
{
    SKIP_UNLESS_SCREENS_RUN();
    startTool(onScreen());
}

void TestCalibration::startTool(const KeypadOptions &options)
{
    m_rig.reset(new Rig(options));
    QVERIFY2(m_rig->startReady(), qPrintable(m_rig->why()));
}

/// A test that failed half way leaves no dialog and no held finger behind.
void TestCalibration::cleanup()
{
    if (!m_rig || !m_rig->keypad.isRunning())
        return;
    m_rig->keypad.release();
    m_rig->settle();
    m_rig->request(wire::CalibrateRequest, "00");
    m_rig->request(wire::TouchTestRequest, "00");
    m_rig->forget();
}

void TestCalibration::open()
{
    const Outcome opened = m_rig->request(wire::CalibrateRequest, "01");
    QCOMPARE(opened.line, QStringList(ack));
    QCOMPARE(opened.log, QStringList());
    QCOMPARE(opened.stores, QStringList());
    QVERIFY(waitForTarget(0));
}

/// Touches until the buzzer says that it is long enough.
void TestCalibration::press(const QPoint &at)
{
    m_rig->forget();
    QVERIFY(m_rig->keypad.press(at.x(), at.y()));
    AWAIT_COMPARE(m_rig->stores(), QStringList({loud, loud, quiet}));
    // Nothing is reported before the finger lifts.
    QVERIFY(!m_rig->station.receiveNow().has_value());
}

void TestCalibration::hold(const QPoint &at, const QString &point)
{
    press(at);
    QVERIFY(m_rig->keypad.release());
    QCOMPARE(m_rig->next(), point);
    QCOMPARE(m_rig->stores(), heldTouch);
}

/// All five targets, each missed by @p offset, with what is shown meanwhile.
void TestCalibration::cycle(const QPoint &offset)
{
    for (int i = 0; i < targetCount; ++i) {
        QVERIFY(waitForTarget(i));
        const QPoint at = targets[i] + offset;
        press(at);
        QVERIFY(waitForTarget((i + 1) % targetCount));
        QVERIFY(m_rig->keypad.release());
        QCOMPARE(m_rig->next(), QStringLiteral("7021 %1%2%3")
                                    .arg(i, 2, 10, QLatin1Char('0'))
                                    .arg(at.x(), 5, 10, QLatin1Char('0'))
                                    .arg(at.y(), 5, 10, QLatin1Char('0')));
        QCOMPARE(m_rig->stores(), heldTouch);
    }
}

bool TestCalibration::targetShown(const QImage &screen, int index) const
{
    const QPoint middle = targets[index];
    // A black dot in a white ring, on a ground that is neither.
    return screen.pixel(middle) == black && screen.pixel(middle + QPoint(4, -6)) == white;
}

/// The target on the screen; -1 for none, -2 for more than one.
int TestCalibration::target()
{
    const QImage screen = m_rig->keypad.screen();
    int found = -1;
    for (int i = 0; i < targetCount; ++i) {
        if (targetShown(screen, i))
            found = found == -1 ? i : -2;
    }
    return found;
}

bool TestCalibration::waitForTarget(int index)
{
    return Patience::waitUntil([&] { return target() == index; });
}

void TestCalibration::acceptedCycle()
{
    QVERIFY(!m_rig->keypad.exists(defaultFile));
    open();
    cycle();
    QCOMPARE(m_rig->next(), accepted);
    QCOMPARE(m_rig->settle().line, QStringList());
    // It stays, for another one.
    QVERIFY(waitForTarget(0));
    QVERIFY(!m_rig->keypad.exists(defaultFile));

    const Outcome closed = close();
    QCOMPARE(closed.line, QStringList(ack));
    QCOMPARE(closed.log, QStringList({settingCalibration, exactFit, releasingMouse, onlyToSd}));
    QCOMPARE(closed.stores, QStringList(quiet));
    QCOMPARE(file(defaultFile), untouched);
    // Below it is the main screen, without the logo.
    QVERIFY(ScreenReader(m_rig->keypad).waitForStatus("Flash NAND"));
}

void TestCalibration::rejectedCycleKeepsTheAcceptedOne()
{
    open();
    cycle(QPoint(4, 2));
    QCOMPARE(m_rig->next(), accepted);

    // Diagonals of 867 and 802: a mean of 834, and 16 are too many or too few.
    hold(QPoint(24, 24), "7021 000002400024");
    hold(QPoint(24, 456), "7021 010002400456");
    hold(QPoint(776, 456), "7021 020077600456");
    hold(QPoint(700, 24), "7021 030070000024");
    hold(QPoint(400, 240), "7021 040040000240");
    QCOMPARE(m_rig->next(), rejected);
    const Outcome end = m_rig->settle();
    QCOMPARE(end.line, QStringList());
    QCOMPARE(end.log, QStringList("debug: Calibration data invalid"));
    QVERIFY(waitForTarget(0));

    QCOMPARE(close().log, QStringList({settingCalibration, exactFit, releasingMouse, onlyToSd}));
    QCOMPARE(file(defaultFile), moved);
}

void TestCalibration::secondRequestStartsAnew()
{
    open();
    hold(targets[0], "7021 000002400024");
    hold(targets[1], "7021 010002400456");
    QVERIFY(waitForTarget(2));
    open();
    hold(QPoint(50, 60), "7021 000005000060");
    QVERIFY(waitForTarget(1));
}

/// Its release is the first point, half way from 0,0: the dialog saw no press.
void TestCalibration::touchFromBeforeItOpened()
{
    QVERIFY(m_rig->keypad.press(200, 100));
    QCOMPARE(m_rig->settle().line, QStringList());
    open();
    QVERIFY(m_rig->keypad.release());
    QCOMPARE(m_rig->next(), QString("7021 000010000050"));
    QVERIFY(waitForTarget(1));
    hold(targets[1], "7021 010002400456");
}

void TestCalibration::closedInTheMiddle()
{
    QVERIFY(m_rig->keypad.writeFile(defaultFile, untouched));
    open();
    hold(targets[0], "7021 000002400024");
    hold(targets[1], "7021 010002400456");
    const Outcome closed = close();
    QCOMPARE(closed.line, QStringList(ack));
    QCOMPARE(closed.log, QStringList({settingCalibration, releasingMouse, onlyToSd}));
    QCOMPARE(closed.stores, QStringList(quiet));
    // What was in force before: the last accepted cycle.
    QCOMPARE(file(defaultFile), moved);
}

void TestCalibration::closedWithoutBeingOpen()
{
    const Outcome closed = close();
    QCOMPARE(closed.line, QStringList(ack));
    QCOMPARE(closed.log, QStringList());
    QCOMPARE(closed.stores, QStringList());
}

void TestCalibration::testImageEndsIt()
{
    open();
    hold(targets[0], "7021 000002400024");
    const Outcome shown = m_rig->request(wire::PatternRequest, "bars");
    QCOMPARE(shown.line, QStringList(ack));
    QCOMPARE(shown.log, QStringList({"debug: Using test pattern '/home/default/bars.png'",
                                     settingCalibration, releasingMouse, onlyToSd}));
    QCOMPARE(shown.stores, QStringList(quiet));
    QVERIFY(m_rig->keypad.waitForPixel(150, 240, 0xffffff00));
    QCOMPARE(target(), -1);
    // It is gone: a touch is not a point any more.
    m_rig->forget();
    QVERIFY(m_rig->keypad.touch(24, 24, 0));
    const Outcome touched = m_rig->settle();
    QCOMPARE(touched.line, QStringList());
    QCOMPARE(touched.stores, QStringList());
}

void TestCalibration::itEndsATestImage()
{
    QCOMPARE(m_rig->request(wire::PatternRequest, "bars").line, QStringList(ack));
    QVERIFY(m_rig->keypad.waitForPixel(150, 240, 0xffffff00));
    open();
    QCOMPARE(close().line, QStringList(ack));
    // The image does not come back.
    QVERIFY(ScreenReader(m_rig->keypad).waitForStatus("Flash NAND"));
}

void TestCalibration::touchTestGoesOnAfterwards()
{
    const QPoint button = ScreenReader::button();
    QVERIFY(ScreenReader(m_rig->keypad).waitForStatus("Flash NAND"));
    QCOMPARE(m_rig->request(wire::TouchTestRequest, "01").line, QStringList(ack));
    QVERIFY(m_rig->keypad.touch(button.x(), button.y()));
    QCOMPARE(m_rig->next(), QString("7031 400262"));
    QCOMPARE(m_rig->settle().line, QStringList()); // the dialog would count a late release

    // Meanwhile every touch is the dialog's.
    open();
    hold(targets[0], "7021 000002400024");
    QCOMPARE(m_rig->settle().line, QStringList());
    QCOMPARE(close().line, QStringList(ack));

    // And then the touch test's again, also where the start button is.
    QVERIFY(ScreenReader(m_rig->keypad).waitForStatus("Flash NAND"));
    QVERIFY(m_rig->keypad.touch(button.x(), button.y()));
    QCOMPARE(m_rig->next(), QString("7031 400262"));
    QCOMPARE(m_rig->settle().line, QStringList());
    QCOMPARE(m_rig->keypad.standinCalls().size(), 0);

    QCOMPARE(m_rig->request(wire::TouchTestRequest, "00").line, QStringList(ack));
    QVERIFY(m_rig->keypad.touch(200, 100));
    QCOMPARE(m_rig->settle().line, QStringList());
}

void TestCalibration::touchTestWhileItIsOpen()
{
    open();
    QCOMPARE(m_rig->request(wire::TouchTestRequest, "01").line, QStringList(ack));
    QVERIFY(m_rig->keypad.touch(24, 24));
    QCOMPARE(m_rig->next(), QString("7031 024024"));
    QCOMPARE(m_rig->settle().line, QStringList());
    QCOMPARE(m_rig->request(wire::TouchTestRequest, "00").line, QStringList(ack));

    // Touches are the dialog's again.
    hold(targets[0], "7021 000002400024");
    QCOMPARE(close().line, QStringList(ack));
}

void TestCalibration::mountedFileSystemGetsTheFile()
{
    const QByteArray before = file(defaultFile);
    QVERIFY(m_rig->mount());
    QVERIFY(!m_rig->keypad.exists(mountedFile));

    // Closed at once: the calibration in force is stored where it belongs now.
    open();
    QCOMPARE(close().log, QStringList({settingCalibration, releasingMouse}));
    QCOMPARE(file(mountedFile), before);

    open();
    cycle();
    QCOMPARE(m_rig->next(), accepted);
    QCOMPARE(close().log, QStringList({settingCalibration, exactFit, releasingMouse}));
    QCOMPARE(file(mountedFile), untouched);
    QCOMPARE(m_rig->keypad.listDir("/mnt/etc"), QStringList("pointercal"));
    QCOMPARE(file(defaultFile), before);
}

void TestCalibration::testImageStoresOnTheMount()
{
    QVERIFY(m_rig->keypad.removeFile(mountedFile));
    open();
    cycle();
    QCOMPARE(m_rig->next(), accepted);
    const Outcome shown = m_rig->request(wire::PatternRequest, "bars");
    QCOMPARE(shown.line, QStringList(ack));
    QCOMPARE(shown.log, QStringList({"debug: Using test pattern '/home/default/bars.png'",
                                     settingCalibration, releasingMouse}));
    QCOMPARE(file(mountedFile), untouched);
    // And the other way round.
    open();
    QCOMPARE(close().log, QStringList({settingCalibration, releasingMouse}));
    QVERIFY(ScreenReader(m_rig->keypad).waitForStatus("Flash NAND"));
}

void TestCalibration::exitRequestStoresNothing()
{
    startTool(onScreen());
    open();
    cycle();
    QCOMPARE(m_rig->next(), accepted);
    m_rig->forget();
    QVERIFY(m_rig->station.send(wire::ExitRequest));
    QCOMPARE(m_rig->next(), ack);
    QVERIFY(m_rig->keypad.waitForExit());
    QCOMPARE(m_rig->keypad.exitStatus().code, 0);
    QCOMPARE(m_rig->keypad.exitStatus().signal, 0);
    QVERIFY(!m_rig->keypad.exists(defaultFile));
    QCOMPARE(m_rig->log(), QStringList());
    QCOMPARE(m_rig->stores(), QStringList());
}

void TestCalibration::exitRequestFreesTheDialog()
{
    startTool(KeypadOptions());
    QCOMPARE(m_rig->request(wire::CalibrateRequest, "01").line, QStringList(ack));
    QVERIFY(m_rig->station.send(wire::ExitRequest));
    QCOMPARE(m_rig->next(), ack);
    QVERIFY(m_rig->keypad.waitForExit());
    QCOMPARE(m_rig->keypad.exitStatus().code, 0);
    QVERIFY(!m_rig->log().contains(settingCalibration));
}

void TestCalibration::filesOfTheEnvironment()
{
    KeypadOptions options = onScreen();
    options.environment.insert("POINTERCAL_FILE", "/root/files/of-qt");
    options.environment.insert("TSLIB_CALIBFILE", "/root/files/of-library");
    m_rig.reset(new Rig(options));
    RigKeypad &keypad = m_rig->keypad;
    QVERIFY2(keypad.prepare(), qPrintable(keypad.errorString()));
    QCOMPARE(keypad.run("mkdir", {"/root/files"}).code, 0);
    const QByteArray old = "131072 0 0 0 131072 0 65536\n";
    QVERIFY(keypad.writeFile("/root/files/of-library", old));
    const int oldFile = keypad.openFile("/root/files/of-library", O_RDONLY);
    QVERIFY(oldFile >= 0);
    QVERIFY2(m_rig->startReady(), qPrintable(m_rig->why()));

    open();
    cycle();
    QCOMPARE(m_rig->next(), accepted);
    QCOMPARE(close().log, QStringList({settingCalibration, exactFit, releasingMouse, onlyToSd}));
    QCOMPARE(file("/root/files/of-qt"), untouched);
    QCOMPARE(file("/root/files/of-library"), untouched);
    QCOMPARE(keypad.listDir("/root/files"), QStringList({"of-library", "of-qt"}));
    QVERIFY(!keypad.exists(defaultFile));
    // Replaced as a whole: whoever has the old file open still reads the old one.
    char buffer[100] = {};
    const ssize_t count = ::read(oldFile, buffer, sizeof buffer);
    ::close(oldFile);
    QCOMPARE(QByteArray(buffer, int(count)), old);
}

void TestCalibration::fileThatCannotBeWritten()
{
    KeypadOptions options = onScreen();
    options.environment.insert("POINTERCAL_FILE", "/root/nowhere/pointercal");
    startTool(options);
    open();
    cycle();
    QCOMPARE(m_rig->next(), accepted);
    const Outcome closed = close();
    QCOMPARE(closed.line, QStringList(ack));
    QVERIFY(closed.log.filter("warning: Failed to store the calibration: ").size() == 1);
    QVERIFY(closed.log.contains(releasingMouse));
    QVERIFY(!m_rig->keypad.exists(defaultFile));
    open();
}

MFTOOL_TEST(TestCalibration, Widgets)

#include "tst_calibration.moc"
