#include "calibration/calibrate.h"
#include "calibration/pointercaldriver.h"
#include "compat/screen.h"
#include "tests/calibration/pointtext.h"
#include "tests/support/descriptors.h"
#include "tests/support/logcatcher.h"
#include "tests/support/testprogram.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QMouseEvent>
#include <QRegularExpression>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>
#include <QTimer>

#include <cstdlib>
#include <fcntl.h>
#include <functional>
#include <limits>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <termios.h>
#include <unistd.h>

typedef QWSPointerCalibrationData Data;

#ifdef MFTOOL_HAVE_TSLIB
#define NEEDS_TOUCHSCREEN_LIBRARY()
#else
#define NEEDS_TOUCHSCREEN_LIBRARY() QSKIP("built without the touchscreen library")
#endif

namespace
{

int unread(int pipe)
{
    int bytes = -1;
    return ::ioctl(pipe, FIONREAD, &bytes) == 0 ? bytes : -1;
}

bool put(const QString &path, const QByteArray &content)
{
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(content) == content.size();
}

// A panel of 11 bits with its axes swapped: x' = (1900 - y) / 2, y' = (x - 100) / 4.
Data swappedPanel()
{
    const QPoint device[] = {QPoint(196, 1852), QPoint(1924, 1852), QPoint(1924, 348),
                             QPoint(196, 348), QPoint(1060, 1100)};
    const QPoint screen[] = {QPoint(24, 24), QPoint(24, 456), QPoint(776, 456), QPoint(776, 24),
                             QPoint(400, 240)};
    Data data;
    for (int i = 0; i <= Data::LastLocation; ++i) {
        data.devPoints[i] = device[i];
        data.screenPoints[i] = screen[i];
    }
    return data;
}

const char swappedFile[] = "0 -32768 62291968 16384 0 -1605632 65536\n";

// x' = x / 2 + 10, y' = y / 3 - 20; with the screen size that the library's own
// tool adds.
const char otherFile[] = "30000 0 600000 0 20000 -1200000 60000 800 480 0\n";

Data onALine()
{
    Data data = swappedPanel();
    for (int i = 0; i <= Data::LastLocation; ++i)
        data.devPoints[i] = QPoint(100 * i, 200 * i);
    return data;
}

Data inForce(const PointercalDriver &driver)
{
    Data data;
    driver.getCalibration(&data);
    return data;
}

// As a dialog that is cancelled does with what it found.
void handBack(PointercalDriver &driver)
{
    const Data data = inForce(driver);
    driver.clearCalibration();
    driver.calibrate(&data);
}

// Takes the mouse and writes down what it does.
class Recorder : public QWidget
{
public:
    Recorder() : QWidget(nullptr, Qt::FramelessWindowHint) { setGeometry(screenGeometry()); }

    QStringList m_seen;
    std::function<void()> m_onPress;

protected:
    void mousePressEvent(QMouseEvent *event) override
    {
        m_seen << "press " + text(event->pos());
        if (m_onPress)
            m_onPress();
    }
    void mouseMoveEvent(QMouseEvent *event) override { m_seen << "move " + text(event->pos()); }
    void mouseReleaseEvent(QMouseEvent *event) override
    {
        m_seen << "release " + text(event->pos());
    }
};

// One test checks how long the pause is; the others need not wait for it.
void lookEvery(int msecs, const PointercalDriver &driver)
{
    QTimer *pause = driver.findChild<QTimer *>();
    QVERIFY(pause);
    pause->setInterval(msecs);
    if (pause->isActive())
        pause->start();
}

} // namespace

class TestPointercalDriver : public QObject
{
    Q_OBJECT
private slots:
    void init();
    void cleanup();

    void noFile();
    void foreignFile();
    void fileInForce();
    void fitIsStored();
    void fitIsStoredInBothFiles();
    void fitIsInForceAtOnce();
    void setInForceIsStoredAsItWas();
    void setInForceGoesWhereTheEnvironmentPointsNow();
    void withoutCalibrationNothingIsStored();
    void clearingTouchesNoFile();
    void setOnALine();
    void unwritableFile();
    void fitThatIsNotStoredIsNotPraised();
    void mouseIsNotMapped();

    void missingDevice();
    void noDeviceNoWord();
    void builtWithoutTheLibrary();
    void deviceThatIsNoTouchscreen_data();
    void deviceThatIsNoTouchscreen();
    void brokenConfiguration();
    void childrenDoNotGetThePanel();
    void uncalibratedTouches();
    void calibratedTouches();
    void calibrationNamedInTheOtherWay();
    void touchesFromBeforeTheStart();
    void releaseCoordinatesAreIgnored();
    void samplesThatTheLibraryKeeps();
    void rawWhileCleared();
    void handingBackEndsTheRawCoordinates();
    void newCalibrationIsUsed();
    void newCalibrationIsUsedFromANewPlace();
    void failureLeavesTheOldMapAtWork_data();
    void failureLeavesTheOldMapAtWork();
    void calibrationDuringATouch();
    void sameCalibrationLosesNoTouch();
    void deviceGoneAtReload();
    void manyPacketsAtOnce();
    void deviceThatComesLate();
    void pauseBetweenTwoLooks();
    void deviceTakenAwayAndPutBack();
    void unusableFile_data();
    void unusableFile();
    void pipeInThePlaceOfTheFile();
    void rotationInTheFile();
    void pointsThatDoNotFit();
    void pointsThatJustFit();
    void wholeCalibrationByFinger();

private:
    QString in(const char *name) const { return m_dir->filePath(QLatin1String(name)); }
    void plugIn(const QByteArray &configuration = "module_raw touchkit\nmodule linear\n");
    void finger(const QPoint &at, bool down = true);
    void tap(const QPoint &at);

    QTemporaryDir *m_dir = nullptr;
    Recorder *m_screen = nullptr;
    int m_panel = -1;
};

void TestPointercalDriver::init()
{
    m_dir = new QTemporaryDir;
    QVERIFY(m_dir->isValid());
    qunsetenv("TSLIB_TSDEVICE");
    qunsetenv("TSLIB_CONFFILE");
    qunsetenv("POINTERCAL_FILE");
    qputenv("TSLIB_CALIBFILE", QFile::encodeName(in("pointercal")));
    m_screen = new Recorder;
    m_screen->show();
    QVERIFY(QTest::qWaitForWindowExposed(m_screen));
    m_screen->grabMouse();
}

void TestPointercalDriver::cleanup()
{
    delete m_screen;
    if (m_panel >= 0)
        ::close(m_panel);
    m_panel = -1;
    delete m_dir;
}

// A panel on a pipe: the library's module for a serial panel takes packets of
// five bytes, with coordinates of 11 bits, from whatever it can read.
void TestPointercalDriver::plugIn(const QByteArray &configuration)
{
    const QByteArray pipe = QFile::encodeName(in("panel"));
    QCOMPARE(::mkfifo(pipe.constData(), 0600), 0);
    m_panel = ::open(pipe.constData(), O_RDWR | O_NONBLOCK | O_CLOEXEC);
    QVERIFY(m_panel >= 0);
    QVERIFY(put(in("ts.conf"), configuration));
    qputenv("TSLIB_CONFFILE", QFile::encodeName(in("ts.conf")));
    qputenv("TSLIB_TSDEVICE", pipe);
}

void TestPointercalDriver::finger(const QPoint &at, bool down)
{
    const char packet[] = {char(down ? 0x81 : 0x80), char(at.x() >> 7), char(at.x() & 0x7f),
                           char(at.y() >> 7), char(at.y() & 0x7f)};
    QCOMPARE(::write(m_panel, packet, sizeof packet), ssize_t(sizeof packet));
}

// The panel's release says nothing of where it was.
void TestPointercalDriver::tap(const QPoint &at)
{
    finger(at);
    finger(QPoint(0, 0), false);
}

void TestPointercalDriver::noFile()
{
    const PointercalDriver driver;
    const Data data = inForce(driver);
    const QPoint corner = screenGeometry().bottomRight();
    QCOMPARE(data.screenPoints[Data::TopLeft], QPoint(0, 0));
    QCOMPARE(data.screenPoints[Data::BottomRight], corner);
    QCOMPARE(text(data.devPoints), text(data.screenPoints));
}

void TestPointercalDriver::foreignFile()
{
    QVERIFY(put(in("pointercal"), "not seven numbers\n"));
    QTest::ignoreMessage(QtWarningMsg, qPrintable("No calibration in " + in("pointercal")));
    PointercalDriver driver;
    const Data data = inForce(driver);
    QCOMPARE(text(data.devPoints), text(data.screenPoints));
    driver.clearCalibration();
    driver.calibrate(&data);
    QCOMPARE(contentOf(in("pointercal")), QByteArray("not seven numbers\n"));
}

void TestPointercalDriver::fileInForce()
{
    QVERIFY(put(in("pointercal"), otherFile));
    const PointercalDriver driver;
    const Data data = inForce(driver);
    // x = 2 (x' - 10), y = 3 (y' + 20)
    QCOMPARE(data.screenPoints[Data::TopLeft], QPoint(0, 0));
    QCOMPARE(data.devPoints[Data::TopLeft], QPoint(-20, 60));
    const QPoint corner = screenGeometry().bottomRight();
    QCOMPARE(data.screenPoints[Data::BottomRight], corner);
    QCOMPARE(data.devPoints[Data::BottomRight],
             QPoint(2 * (corner.x() - 10), 3 * (corner.y() + 20)));
}

void TestPointercalDriver::fitIsStored()
{
    PointercalDriver driver;
    const Data data = swappedPanel();
    QTest::ignoreMessage(QtDebugMsg, "The calibration fits its points to 0 pixels");
    driver.clearCalibration();
    driver.calibrate(&data);
    QCOMPARE(contentOf(in("pointercal")), QByteArray(swappedFile));
}

void TestPointercalDriver::fitIsStoredInBothFiles()
{
    qputenv("POINTERCAL_FILE", QFile::encodeName(in("of-qt")));
    PointercalDriver driver;
    const Data data = swappedPanel();
    driver.calibrate(&data);
    QCOMPARE(contentOf(in("pointercal")), QByteArray(swappedFile));
    QCOMPARE(contentOf(in("of-qt")), QByteArray(swappedFile));
}

void TestPointercalDriver::fitIsInForceAtOnce()
{
    PointercalDriver driver;
    const Data data = swappedPanel();
    driver.calibrate(&data);
    const Data now = inForce(driver);
    QCOMPARE(text(now.devPoints), text(data.devPoints));
    QCOMPARE(text(now.screenPoints), text(data.screenPoints));
}

// To the byte, though no five points in whole numbers could express this map.
void TestPointercalDriver::setInForceIsStoredAsItWas()
{
    const QByteArray odd = "29999 17 600001\t-11 20003 -1200007 60000 800 480 0\r\n";
    QVERIFY(put(in("pointercal"), odd));
    PointercalDriver driver;
    const Data data = inForce(driver);
    driver.clearCalibration();
    QVERIFY(QFile::remove(in("pointercal")));
    driver.calibrate(&data);
    QCOMPARE(contentOf(in("pointercal")), odd);

    // Again, and after another one from a fit.
    handBack(driver);
    QCOMPARE(contentOf(in("pointercal")), odd);
    const Data fitted = swappedPanel();
    driver.calibrate(&fitted);
    handBack(driver);
    QCOMPARE(contentOf(in("pointercal")), QByteArray(swappedFile));
}

// As when the NAND is mounted after the tool has started.
void TestPointercalDriver::setInForceGoesWhereTheEnvironmentPointsNow()
{
    QVERIFY(put(in("pointercal"), otherFile));
    PointercalDriver driver;
    QVERIFY(QDir(m_dir->path()).mkdir("mnt"));
    qputenv("POINTERCAL_FILE", QFile::encodeName(in("mnt/pointercal")));
    qputenv("TSLIB_CALIBFILE", QFile::encodeName(in("mnt/pointercal")));
    handBack(driver);
    QCOMPARE(contentOf(in("mnt/pointercal")), QByteArray(otherFile));
    QCOMPARE(contentOf(in("pointercal")), QByteArray(otherFile));

    const Data fitted = swappedPanel();
    driver.calibrate(&fitted);
    QCOMPARE(contentOf(in("mnt/pointercal")), QByteArray(swappedFile));
    QCOMPARE(contentOf(in("pointercal")), QByteArray(otherFile));
}

void TestPointercalDriver::withoutCalibrationNothingIsStored()
{
    PointercalDriver driver;
    handBack(driver);
    QCOMPARE(contentOf(in("pointercal")), QByteArray("(none)"));
}

void TestPointercalDriver::clearingTouchesNoFile()
{
    QVERIFY(put(in("pointercal"), otherFile));
    PointercalDriver driver;
    const Data before = inForce(driver);
    driver.clearCalibration();
    QCOMPARE(contentOf(in("pointercal")), QByteArray(otherFile));
    QCOMPARE(text(inForce(driver).devPoints), text(before.devPoints));
}

void TestPointercalDriver::setOnALine()
{
    QVERIFY(put(in("pointercal"), otherFile));
    PointercalDriver driver;
    const Data before = inForce(driver);
    driver.clearCalibration();
    const Data line = onALine();
    QTest::ignoreMessage(QtWarningMsg,
                         "The calibration points determine no map, nothing is stored");
    driver.calibrate(&line);
    QCOMPARE(contentOf(in("pointercal")), QByteArray(otherFile));
    QCOMPARE(text(inForce(driver).devPoints), text(before.devPoints));
}

void TestPointercalDriver::unwritableFile()
{
    QVERIFY(put(in("pointercal"), otherFile));
    PointercalDriver driver;
    const Data before = inForce(driver);
    // One of the two cannot be written: neither is.
    qputenv("POINTERCAL_FILE", QFile::encodeName(in("none/pointercal")));
    const Data data = swappedPanel();
    QTest::ignoreMessage(QtWarningMsg,
                         qPrintable("Failed to store the calibration: " + in("none/pointercal") +
                                    ": No such file or directory"));
    driver.calibrate(&data);
    QCOMPARE(contentOf(in("pointercal")), QByteArray(otherFile));
    QCOMPARE(text(inForce(driver).devPoints), text(before.devPoints));
}

void TestPointercalDriver::fitThatIsNotStoredIsNotPraised()
{
    PointercalDriver driver;
    qputenv("TSLIB_CALIBFILE", QFile::encodeName(in("none/pointercal")));
    Data data = swappedPanel();
    data.devPoints[Data::Center] += QPoint(200, 0);
    const LogCatcher log;
    driver.calibrate(&data);
    QCOMPARE(log.lines(), QStringList("warning: Failed to store the calibration: " +
                                      in("none/pointercal") + ": No such file or directory"));
}

void TestPointercalDriver::mouseIsNotMapped()
{
    QVERIFY(put(in("pointercal"), otherFile));
    PointercalDriver driver;
    const Data data = swappedPanel();
    driver.calibrate(&data);
    QTest::mousePress(m_screen, Qt::LeftButton, Qt::NoModifier, QPoint(100, 200));
    QTest::mouseRelease(m_screen, Qt::LeftButton, Qt::NoModifier, QPoint(100, 200));
    QCOMPARE(m_screen->m_seen, QStringList({"press 100,200", "release 100,200"}));
    QCOMPARE(driver.mapToDevice(QPoint(100, 200), QSize(800, 480)), QPoint(100, 200));
}

void TestPointercalDriver::missingDevice()
{
    NEEDS_TOUCHSCREEN_LIBRARY();
    qputenv("TSLIB_TSDEVICE", "/dev/input/there-is-none");
    const char *const noDevice =
        "Failed to open touchscreen /dev/input/there-is-none, looking for it every second";
    // The library's own way to set a device up would wait for several seconds. On a busy
    // machine the quickest of three counts.
    qint64 quickest = std::numeric_limits<qint64>::max();
    for (int i = 0; i < 3; ++i) {
        QTest::ignoreMessage(QtWarningMsg, noDevice);
        QElapsedTimer time;
        time.start();
        const PointercalDriver tried;
        quickest = qMin(quickest, time.elapsed());
    }
    QVERIFY2(quickest < 2000, qPrintable(QString::number(quickest)));

    QTest::ignoreMessage(QtWarningMsg, noDevice);
    PointercalDriver driver;
    const Data data = swappedPanel();
    QTest::ignoreMessage(QtWarningMsg, "There is no touchscreen to calibrate");
    driver.clearCalibration();
    driver.calibrate(&data);
    QCOMPARE(contentOf(in("pointercal")), QByteArray(swappedFile));
}

void TestPointercalDriver::noDeviceNoWord()
{
    qputenv("TSLIB_TSDEVICE", "");
    const LogCatcher said;
    delete new PointercalDriver;
    QCOMPARE(said.lines(), QStringList());
}

void TestPointercalDriver::builtWithoutTheLibrary()
{
#ifdef MFTOOL_HAVE_TSLIB
    QSKIP("built with the touchscreen library");
#else
    qputenv("TSLIB_TSDEVICE", "/dev/input/event1");
    QTest::ignoreMessage(QtWarningMsg,
                         "Built without the touchscreen library, /dev/input/event1 is not read");
    const PointercalDriver driver;
#endif
}

void TestPointercalDriver::deviceThatIsNoTouchscreen_data()
{
    QTest::addColumn<QByteArray>("device");
    QTest::addColumn<QByteArray>("configuration");
    QTest::newRow("always at its end")
        << QByteArray("/dev/null") << QByteArray("module_raw touchkit\nmodule linear\n");
    QTest::newRow("no input device")
        << QByteArray("/dev/null") << QByteArray("module_raw input\nmodule linear\n");
}

void TestPointercalDriver::deviceThatIsNoTouchscreen()
{
    NEEDS_TOUCHSCREEN_LIBRARY();
    QFETCH(QByteArray, device);
    QFETCH(QByteArray, configuration);
    plugIn(configuration);
    qputenv("TSLIB_TSDEVICE", device);
    QTest::ignoreMessage(QtWarningMsg, "/dev/null is no touchscreen, looking at it every second");
    const PointercalDriver driver;
}

void TestPointercalDriver::brokenConfiguration()
{
    NEEDS_TOUCHSCREEN_LIBRARY();
    plugIn("module_raw there_is_no_such_module\n");
    QTest::ignoreMessage(QtWarningMsg, QRegularExpression("there_is_no_such_module"));
    QTest::ignoreMessage(QtWarningMsg, qPrintable("Failed to configure touchscreen " + in("panel") +
                                                  ", trying again every second"));
    const PointercalDriver driver;
}

void TestPointercalDriver::childrenDoNotGetThePanel()
{
    NEEDS_TOUCHSCREEN_LIBRARY();
    plugIn();
    const PointercalDriver driver;
    int opened = 0; // by the library; the test has the panel open, too
    const QList<int> onPanel = descriptorsOn(in("panel"));
    for (const int descriptor : onPanel) {
        if (descriptor == m_panel)
            continue;
        ++opened;
        QCOMPARE(::fcntl(descriptor, F_GETFD), FD_CLOEXEC);
    }
    QVERIFY(opened > 0);
}

void TestPointercalDriver::uncalibratedTouches()
{
    NEEDS_TOUCHSCREEN_LIBRARY();
    plugIn();
    const PointercalDriver driver;
    finger(QPoint(300, 200));
    finger(QPoint(310, 190));
    finger(QPoint(0, 0), false);
    QTRY_COMPARE(m_screen->m_seen,
                 QStringList({"press 300,200", "move 310,190", "release 310,190"}));
}

void TestPointercalDriver::calibratedTouches()
{
    NEEDS_TOUCHSCREEN_LIBRARY();
    QVERIFY(put(in("pointercal"), swappedFile));
    plugIn();
    const PointercalDriver driver;
    tap(QPoint(1060, 1100));
    tap(QPoint(196, 1852));
    QTRY_COMPARE(m_screen->m_seen,
                 QStringList({"press 400,240", "release 400,240", "press 24,24", "release 24,24"}));
}

// The library knows only TSLIB_CALIBFILE.
void TestPointercalDriver::calibrationNamedInTheOtherWay()
{
    NEEDS_TOUCHSCREEN_LIBRARY();
    qunsetenv("TSLIB_CALIBFILE");
    qputenv("POINTERCAL_FILE", QFile::encodeName(in("of-qt")));
    QVERIFY(put(in("of-qt"), otherFile));
    plugIn();
    PointercalDriver driver;
    QVERIFY(!qEnvironmentVariableIsSet("TSLIB_CALIBFILE"));
    tap(QPoint(400, 600));
    QTRY_COMPARE(m_screen->m_seen, QStringList({"press 210,180", "release 210,180"}));
    m_screen->m_seen.clear();

    const Data data = swappedPanel();
    driver.calibrate(&data);
    QCOMPARE(contentOf(in("of-qt")), QByteArray(swappedFile));
    QVERIFY(!qEnvironmentVariableIsSet("TSLIB_CALIBFILE"));
    tap(QPoint(1060, 1100));
    QTRY_COMPARE(m_screen->m_seen, QStringList({"press 400,240", "release 400,240"}));
}

void TestPointercalDriver::touchesFromBeforeTheStart()
{
    NEEDS_TOUCHSCREEN_LIBRARY();
    plugIn();
    tap(QPoint(10, 10));
    finger(QPoint(20, 20));
    const PointercalDriver driver;
    finger(QPoint(0, 0), false);
    tap(QPoint(30, 30));
    QTRY_COMPARE(m_screen->m_seen, QStringList({"press 30,30", "release 30,30"}));
}

void TestPointercalDriver::releaseCoordinatesAreIgnored()
{
    NEEDS_TOUCHSCREEN_LIBRARY();
    plugIn();
    const PointercalDriver driver;
    finger(QPoint(100, 200));
    finger(QPoint(0, 0), false);
    finger(QPoint(110, 210));
    finger(QPoint(799, 5), false);
    QTRY_COMPARE(m_screen->m_seen, QStringList({"press 100,200", "release 100,200", "press 110,210",
                                                "release 110,210"}));
}

// As its filters do with a touch that they take for noise.
void TestPointercalDriver::samplesThatTheLibraryKeeps()
{
    NEEDS_TOUCHSCREEN_LIBRARY();
    plugIn("module_raw touchkit\nmodule pthres pmin=1000\nmodule linear\n");
    const PointercalDriver driver;
    for (int i = 0; i < 20; ++i)
        finger(QPoint(100 + i, 200));
    QTRY_COMPARE(unread(m_panel), 0);
    QCoreApplication::processEvents();
    QCOMPARE(m_screen->m_seen, QStringList());
}

void TestPointercalDriver::rawWhileCleared()
{
    NEEDS_TOUCHSCREEN_LIBRARY();
    QVERIFY(put(in("pointercal"), swappedFile));
    plugIn();
    PointercalDriver driver;
    driver.clearCalibration();
    finger(QPoint(2047, 1900));
    finger(QPoint(2047, 1910));
    finger(QPoint(0, 0), false);
    QTRY_COMPARE(m_screen->m_seen,
                 QStringList({"press 2047,1900", "move 2047,1910", "release 2047,1910"}));
}

void TestPointercalDriver::handingBackEndsTheRawCoordinates()
{
    NEEDS_TOUCHSCREEN_LIBRARY();
    QVERIFY(put(in("pointercal"), swappedFile));
    plugIn();
    PointercalDriver driver;
    handBack(driver);
    tap(QPoint(1060, 1100));
    QTRY_COMPARE(m_screen->m_seen, QStringList({"press 400,240", "release 400,240"}));
}

void TestPointercalDriver::newCalibrationIsUsed()
{
    NEEDS_TOUCHSCREEN_LIBRARY();
    QVERIFY(put(in("pointercal"), otherFile));
    plugIn();
    PointercalDriver driver;
    tap(QPoint(400, 600));
    QTRY_COMPARE(m_screen->m_seen, QStringList({"press 210,180", "release 210,180"}));
    m_screen->m_seen.clear();
    driver.clearCalibration();
    const Data data = swappedPanel();
    driver.calibrate(&data);
    tap(QPoint(1060, 1100));
    QTRY_COMPARE(m_screen->m_seen, QStringList({"press 400,240", "release 400,240"}));
}

// The mount redirects the environment between two calibrations.
void TestPointercalDriver::newCalibrationIsUsedFromANewPlace()
{
    NEEDS_TOUCHSCREEN_LIBRARY();
    QVERIFY(put(in("pointercal"), otherFile));
    plugIn();
    PointercalDriver driver;
    qputenv("POINTERCAL_FILE", QFile::encodeName(in("nand")));
    qputenv("TSLIB_CALIBFILE", QFile::encodeName(in("nand")));
    driver.clearCalibration();
    const Data data = swappedPanel();
    driver.calibrate(&data);
    tap(QPoint(1060, 1100));
    QTRY_COMPARE(m_screen->m_seen, QStringList({"press 400,240", "release 400,240"}));
    QCOMPARE(contentOf(in("pointercal")), QByteArray(otherFile));
}

void TestPointercalDriver::failureLeavesTheOldMapAtWork_data()
{
    QTest::addColumn<bool>("writable");
    QTest::newRow("no map") << true;
    QTest::newRow("no file") << false;
}

void TestPointercalDriver::failureLeavesTheOldMapAtWork()
{
    NEEDS_TOUCHSCREEN_LIBRARY();
    QFETCH(bool, writable);
    QVERIFY(put(in("pointercal"), otherFile));
    plugIn();
    PointercalDriver driver;
    if (!writable)
        qputenv("TSLIB_CALIBFILE", QFile::encodeName(in("none/pointercal")));
    driver.clearCalibration();
    const Data data = writable ? onALine() : swappedPanel();
    QTest::ignoreMessage(QtWarningMsg,
                         QRegularExpression(writable ? "determine no map" : "Failed to store"));
    driver.calibrate(&data);
    tap(QPoint(400, 600));
    QTRY_COMPARE(m_screen->m_seen, QStringList({"press 210,180", "release 210,180"}));
}

// Called by what a touch does to a widget, while the library is being read.
void TestPointercalDriver::calibrationDuringATouch()
{
    NEEDS_TOUCHSCREEN_LIBRARY();
    plugIn();
    PointercalDriver driver;
    m_screen->m_onPress = [this, &driver] {
        m_screen->m_onPress = nullptr;
        const Data data = swappedPanel();
        driver.clearCalibration();
        driver.calibrate(&data);
    };
    tap(QPoint(300, 200));
    QTRY_COMPARE(m_screen->m_seen, QStringList("press 300,200"));
    // The rest of that touch is in other coordinates and is dropped.
    tap(QPoint(1060, 1100));
    QTRY_COMPARE(m_screen->m_seen,
                 QStringList({"press 300,200", "press 400,240", "release 400,240"}));
}

// Only another calibration makes the device anew, which forgets what it has not told yet.
void TestPointercalDriver::sameCalibrationLosesNoTouch()
{
    NEEDS_TOUCHSCREEN_LIBRARY();
    plugIn();
    PointercalDriver driver;
    const Data data = swappedPanel();
    driver.calibrate(&data);
    tap(QPoint(1060, 1100));
    driver.calibrate(&data);
    QTRY_COMPARE(m_screen->m_seen, QStringList({"press 400,240", "release 400,240"}));
}

void TestPointercalDriver::deviceGoneAtReload()
{
    NEEDS_TOUCHSCREEN_LIBRARY();
    plugIn();
    PointercalDriver driver;
    QVERIFY(QFile::remove(in("panel")));
    const Data data = swappedPanel();
    QTest::ignoreMessage(QtWarningMsg, qPrintable("Failed to open touchscreen " + in("panel") +
                                                  ", looking for it every second"));
    driver.calibrate(&data);
    QCOMPARE(contentOf(in("pointercal")), QByteArray(swappedFile));
    // Without it the driver goes on.
    QTest::ignoreMessage(QtWarningMsg, "There is no touchscreen to calibrate");
    driver.clearCalibration();
    driver.calibrate(&data);
}

// More than are read in one go.
void TestPointercalDriver::manyPacketsAtOnce()
{
    NEEDS_TOUCHSCREEN_LIBRARY();
    plugIn();
    const PointercalDriver driver;
    for (int i = 0; i < 400; ++i)
        finger(QPoint(i, 7));
    finger(QPoint(0, 0), false);
    QTRY_COMPARE(m_screen->m_seen.size(), 401);
    QCOMPARE(m_screen->m_seen.at(399), QString("move 399,7"));
    QCOMPARE(m_screen->m_seen.at(400), QString("release 399,7"));
}

// udev may be late. Many looks make one line in the log, and what was set meanwhile still
// holds.
void TestPointercalDriver::deviceThatComesLate()
{
    NEEDS_TOUCHSCREEN_LIBRARY();
    QVERIFY(put(in("pointercal"), otherFile));
    plugIn();
    const QString late = in("late");
    qputenv("TSLIB_TSDEVICE", QFile::encodeName(late));
    LogCatcher said;
    PointercalDriver driver;
    const QString missing =
        "warning: Failed to open touchscreen " + late + ", looking for it every second";
    QCOMPARE(said.lines(), QStringList(missing));
    lookEvery(1, driver);
    QTest::qWait(50);
    const Data data = swappedPanel();
    driver.calibrate(&data);
    QCOMPARE(said.lines(),
             QStringList({missing, "debug: The calibration fits its points to 0 pixels"}));

    QVERIFY(QFile::link(in("panel"), late));
    QTRY_COMPARE(said.lines().size(), 3);
    QCOMPARE(said.lines().at(2), "debug: Touchscreen " + late + " is there");
    tap(QPoint(1060, 1100));
    QTRY_COMPARE(m_screen->m_seen, QStringList({"press 400,240", "release 400,240"}));
}

void TestPointercalDriver::pauseBetweenTwoLooks()
{
    NEEDS_TOUCHSCREEN_LIBRARY();
    qputenv("TSLIB_TSDEVICE", "/dev/input/there-is-none");
    const LogCatcher said;
    const PointercalDriver driver;
    const QTimer *pause = driver.findChild<QTimer *>();
    QVERIFY(pause && pause->isActive());
    QCOMPARE(pause->interval(), 1000);
}

// A line whose other end is closed is readable for ever and gives nothing. The finger
// that was on it counts as lifted.
void TestPointercalDriver::deviceTakenAwayAndPutBack()
{
    NEEDS_TOUCHSCREEN_LIBRARY();
    plugIn();
    const int master = ::posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
    QVERIFY(master >= 0);
    QCOMPARE(::grantpt(master), 0);
    QCOMPARE(::unlockpt(master), 0);
    termios raw;
    QCOMPARE(::tcgetattr(master, &raw), 0);
    ::cfmakeraw(&raw);
    QCOMPARE(::tcsetattr(master, TCSANOW, &raw), 0);
    const QString device = in("device");
    QVERIFY(QFile::link(QFile::decodeName(::ptsname(master)), device));
    qputenv("TSLIB_TSDEVICE", QFile::encodeName(device));
    LogCatcher said;
    const PointercalDriver driver;
    lookEvery(1, driver);
    const char packet[] = {char(0x81), 1, 2, 3, 4};
    QCOMPARE(::write(master, packet, sizeof packet), ssize_t(sizeof packet));
    QTRY_COMPARE(m_screen->m_seen, QStringList("press 130,388"));

    QVERIFY(QFile::remove(device));
    ::close(master);
    const QString gone =
        "warning: Touchscreen " + device + " has gone, looking for it every second";
    QTRY_COMPARE(said.lines(), QStringList(gone));
    QTRY_COMPARE(m_screen->m_seen, QStringList({"press 130,388", "release 130,388"}));
    QTest::qWait(50);
    QCOMPARE(said.lines(), QStringList(gone));

    QVERIFY(QFile::link(in("panel"), device));
    QTRY_COMPARE(said.lines(), QStringList({gone, "debug: Touchscreen " + device + " is there"}));
    m_screen->m_seen.clear();
    tap(QPoint(300, 200));
    QTRY_COMPARE(m_screen->m_seen, QStringList({"press 300,200", "release 300,200"}));
}

void TestPointercalDriver::unusableFile_data()
{
    QTest::addColumn<QByteArray>("content");
    QTest::newRow("scale 0") << QByteArray("1 0 0 0 1 0 0\n");
    QTest::newRow("least of all numbers divided by -1")
        << QByteArray("2147483647 0 -2147483648 0 1 -2147483648 -1\n");
    QTest::newRow("two numbers short") << QByteArray("2 0 100 0 2\n");
    QTest::newRow("all to one place") << QByteArray("0 0 5 0 0 5 1\n");
    QTest::newRow("beyond 32 bits") << QByteArray("1 0 4294967296 0 1 0 1\n");
}

// The library would have taken what is there, and divided by it.
void TestPointercalDriver::unusableFile()
{
    NEEDS_TOUCHSCREEN_LIBRARY();
    QFETCH(QByteArray, content);
    QVERIFY(put(in("pointercal"), content));
    plugIn();
    QTest::ignoreMessage(QtWarningMsg, qPrintable("No calibration in " + in("pointercal")));
    const PointercalDriver driver;
    finger(QPoint(0, 0));
    finger(QPoint(300, 200));
    finger(QPoint(0, 0), false);
    QTRY_COMPARE(m_screen->m_seen, QStringList({"press 0,0", "move 300,200", "release 300,200"}));
    QCOMPARE(QFile::decodeName(qgetenv("TSLIB_CALIBFILE")), in("pointercal"));
}

// Nobody writes to it, and the library would wait.
void TestPointercalDriver::pipeInThePlaceOfTheFile()
{
    NEEDS_TOUCHSCREEN_LIBRARY();
    QCOMPARE(::mkfifo(QFile::encodeName(in("pointercal")).constData(), 0600), 0);
    plugIn();
    const PointercalDriver driver;
    tap(QPoint(300, 200));
    QTRY_COMPARE(m_screen->m_seen, QStringList({"press 300,200", "release 300,200"}));
}

// As the library's own tool stores it for a screen that is turned.
void TestPointercalDriver::rotationInTheFile()
{
    NEEDS_TOUCHSCREEN_LIBRARY();
    QVERIFY(put(in("pointercal"), "1 0 0 0 1 0 1 800 480 2\n"));
    plugIn();
    const PointercalDriver driver;
    tap(QPoint(100, 50));
    QTRY_COMPARE(m_screen->m_seen, QStringList({"press 699,429", "release 699,429"}));
}

void TestPointercalDriver::pointsThatDoNotFit()
{
    PointercalDriver driver;
    Data data = swappedPanel();
    // Four counts are a pixel; a best fit leaves four fifths of the error at the centre.
    data.devPoints[Data::Center] += QPoint(200, 0);
    QTest::ignoreMessage(QtWarningMsg, "The calibration is off by 40 pixels at the centre target, "
                                       "it is stored all the same");
    driver.calibrate(&data);
    QVERIFY(contentOf(in("pointercal")) != QByteArray("(none)"));
}

// A fingertip hits a target within ten pixels.
void TestPointercalDriver::pointsThatJustFit()
{
    PointercalDriver driver;
    Data data = swappedPanel();
    data.devPoints[Data::Center] += QPoint(50, 0);
    QTest::ignoreMessage(QtDebugMsg, "The calibration fits its points to 10 pixels");
    driver.calibrate(&data);
}

// Dialog, driver and library together: five targets held on a panel with swapped
// axes, after which a tap lands where the finger is.
void TestPointercalDriver::wholeCalibrationByFinger()
{
    NEEDS_TOUCHSCREEN_LIBRARY();
    plugIn();
    PointercalDriver driver;
    m_screen->releaseMouse();
    {
        Calibrate dialog(nullptr, &driver);
        QSignalSpy points(&dialog, SIGNAL(calibratePoint(int, QPoint)));
        QSignalSpy verdicts(&dialog, SIGNAL(finished(bool)));
        QTimer *hold = dialog.findChild<QTimer *>();
        hold->setInterval(20);
        dialog.setGeometry(0, 0, 800, 480);
        dialog.show();
        QVERIFY(QTest::qWaitForWindowExposed(&dialog));
        const Data wanted = swappedPanel();
        for (int i = 0; i <= Data::LastLocation; ++i) {
            finger(wanted.devPoints[i]);
            QTRY_VERIFY(hold->isActive());
            QTRY_VERIFY(!hold->isActive());
            finger(QPoint(0, 0), false);
            QTRY_COMPARE(points.size(), i + 1);
            QCOMPARE(points.at(i).at(0).toInt(), i);
            QCOMPARE(points.at(i).at(1).toPoint(), wanted.devPoints[i]);
        }
        QCOMPARE(verdicts.size(), 1);
        QCOMPARE(verdicts.at(0).at(0).toBool(), true);
        QCOMPARE(contentOf(in("pointercal")), QByteArray("(none)"));
        dialog.hide();
    }
    QCOMPARE(contentOf(in("pointercal")), QByteArray(swappedFile));
    m_screen->m_seen.clear();
    tap(QPoint(580, 1780)); // x' = 60, y' = 120
    QTRY_COMPARE(m_screen->m_seen, QStringList({"press 60,120", "release 60,120"}));
}

MFTOOL_TEST(TestPointercalDriver, Widgets)
#include "tst_pointercaldriver.moc"
