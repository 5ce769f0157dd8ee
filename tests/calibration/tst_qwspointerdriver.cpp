// The driver of Qt 4 for Embedded Linux on stand-ins that calculate as its classes do.
#include "calibration/pointercalfile.h"
#include "calibration/qwspointerdriver.h"
#include "tests/api/qws.h"
#include "tests/calibration/pointtext.h"
#include "tests/support/descriptors.h"
#include "tests/support/testprogram.h"

#include <QDir>
#include <QFile>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTest>

#include <sys/stat.h>
#include <unistd.h>

typedef QWSPointerCalibrationData Data;

namespace
{

bool put(const QString &path, const QByteArray &content)
{
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(content) == content.size();
}

Data set(const QPoint (&device)[5])
{
    const QPoint screen[] = {QPoint(24, 24), QPoint(24, 456), QPoint(776, 456), QPoint(776, 24),
                             QPoint(400, 240)};
    Data data;
    for (int i = 0; i <= Data::LastLocation; ++i) {
        data.devPoints[i] = device[i];
        data.screenPoints[i] = screen[i];
    }
    return data;
}

// x' = x / 4, y' = (4000 - y) / 8
Data straight()
{
    const QPoint device[] = {QPoint(96, 3808), QPoint(96, 352), QPoint(3104, 352),
                             QPoint(3104, 3808), QPoint(1600, 2080)};
    return set(device);
}
const char straightFile[] = "16384 0 0 0 -8192 32768000 65536";

// x' = x / 3.7 ..., with digits that five points in whole counts cannot reproduce.
const char oldFile[] = "17712 31 -999983 -17 9001 -2000003 65536 800 480 0\n";

} // namespace

class TestQwsPointerDriver : public QObject
{
    Q_OBJECT
private slots:
    void init();
    void cleanup();

    void calibrationInForce_data() { handlers(); }
    void calibrationInForce();
    void clearingChangesNothingInForce();
    void aborted_data() { handlers(); }
    void aborted();
    void abortedWithoutAFile_data() { handlers(); }
    void abortedWithoutAFile();
    void abortedManyTimes();
    void abortedAfterAMount_data() { handlers(); }
    void abortedAfterAMount();
    void abortedWithoutAFileAfterAMount();
    void abortedAndTheMountCannotBeWritten();
    void accepted_data() { handlers(); }
    void accepted();
    void acceptedTwice_data() { handlers(); }
    void acceptedTwice();
    void acceptedAfterAMount_data() { handlers(); }
    void acceptedAfterAMount();
    void abortedAfterAccepted();
    void abortedAfterAcceptedAndAMount();
    void degenerate_data();
    void degenerate();
    void fileThatCannotBeWritten();
    void pipeInThePlaceOfTheFile();
    void pointsThatDoNotFit();
    void unusableFile_data();
    void unusableFile();
    void cursorIsHidden();
    void withoutMouse();
    void withoutServer();
    void screenMapsToTheDevice();

private:
    void handlers();
    QString in(const char *name) const { return m_dir->filePath(QLatin1String(name)); }
    void useFile(const char *name);
    void mount();

    QTemporaryDir *m_dir = nullptr;
    int m_divisions = 0;
};

void TestQwsPointerDriver::init()
{
    m_dir = new QTemporaryDir;
    QVERIFY(m_dir->isValid());
    QVERIFY(QDir(m_dir->path()).mkdir("mnt"));
    useFile("pointercal");
    m_divisions = qws::divisionsByZero();
}

// Whatever was done, no touch and no calculation may have ended the process.
void TestQwsPointerDriver::cleanup()
{
    qws::touch(QPoint(100, 100));
    qws::stop();
    delete m_dir;
    QCOMPARE(qws::divisionsByZero(), m_divisions);
}

void TestQwsPointerDriver::handlers()
{
    QTest::addColumn<int>("handler");
    QTest::newRow("linuxinput") << int(qws::LinuxInput);
    QTest::newRow("tslib") << int(qws::Tslib);
}

void TestQwsPointerDriver::useFile(const char *name)
{
    qputenv("POINTERCAL_FILE", QFile::encodeName(in(name)));
    qputenv("TSLIB_CALIBFILE", QFile::encodeName(in(name)));
}

void TestQwsPointerDriver::mount()
{
    useFile("mnt/pointercal");
}

namespace
{

// As the dialog does when it is closed without an accepted cycle.
void abort(PointerDriver &driver)
{
    Data saved;
    driver.getCalibration(&saved);
    driver.clearCalibration();
    driver.calibrate(&saved);
}

void accept(PointerDriver &driver, const Data &data)
{
    Data saved;
    driver.getCalibration(&saved);
    driver.clearCalibration();
    driver.calibrate(&data);
}

// The panel of oldFile at the middle of the screen.
const QPoint oldMiddle(1535, 1969);

} // namespace

void TestQwsPointerDriver::calibrationInForce()
{
    QFETCH(int, handler);
    QVERIFY(put(in("pointercal"), straightFile));
    qws::start(qws::Handler(handler));
    const QWSPointerDriver driver;
    // As the dialog passes it: nothing in it yet.
    Data data;
    driver.getCalibration(&data);
    QCOMPARE(text(data.screenPoints).isEmpty(), false);
    QCOMPARE(data.screenPoints[Data::TopLeft], QPoint(0, 0));
    QCOMPARE(data.devPoints[Data::TopLeft], QPoint(0, 4000));
    const QPoint corner = data.screenPoints[Data::BottomRight];
    QVERIFY(corner.x() > 400 && corner.y() > 240);
    QCOMPARE(data.devPoints[Data::BottomRight], QPoint(4 * corner.x(), 4000 - 8 * corner.y()));
}

void TestQwsPointerDriver::clearingChangesNothingInForce()
{
    QVERIFY(put(in("pointercal"), straightFile));
    qws::start(qws::LinuxInput);
    QWSPointerDriver driver;
    Data before;
    driver.getCalibration(&before);
    driver.clearCalibration();
    Data data;
    driver.getCalibration(&data);
    QCOMPARE(text(data.devPoints), text(before.devPoints));
    driver.calibrate(&data);
    QCOMPARE(contentOf(in("pointercal")), QByteArray(straightFile));
    QCOMPARE(qws::touch(QPoint(1600, 2080)), QPoint(400, 240));
}

void TestQwsPointerDriver::aborted()
{
    QFETCH(int, handler);
    QVERIFY(put(in("pointercal"), oldFile));
    qws::start(qws::Handler(handler));
    QWSPointerDriver driver;
    const QPoint before = qws::touch(oldMiddle);
    abort(driver);
    QCOMPARE(contentOf(in("pointercal")), QByteArray(oldFile));
    QCOMPARE(qws::touch(oldMiddle), before);
}

void TestQwsPointerDriver::abortedWithoutAFile()
{
    QFETCH(int, handler);
    qws::start(qws::Handler(handler));
    QWSPointerDriver driver;
    abort(driver);
    QCOMPARE(contentOf(in("pointercal")), QByteArray("(none)"));
    QCOMPARE(qws::touch(QPoint(300, 200)), QPoint(300, 200));
}

// Rounded points would drift.
void TestQwsPointerDriver::abortedManyTimes()
{
    QVERIFY(put(in("pointercal"), oldFile));
    qws::start(qws::Tslib);
    QWSPointerDriver driver;
    for (int i = 0; i < 20; ++i)
        abort(driver);
    QCOMPARE(contentOf(in("pointercal")), QByteArray(oldFile));
}

// It is stored where the environment points now.
void TestQwsPointerDriver::abortedAfterAMount()
{
    QFETCH(int, handler);
    QVERIFY(put(in("pointercal"), oldFile));
    QVERIFY(put(in("mnt/pointercal"), straightFile));
    qws::start(qws::Handler(handler));
    QWSPointerDriver driver;
    const QPoint before = qws::touch(oldMiddle);
    mount();
    abort(driver);
    QCOMPARE(contentOf(in("mnt/pointercal")), QByteArray(oldFile));
    QCOMPARE(contentOf(in("pointercal")), QByteArray(oldFile));
    QCOMPARE(qws::touch(oldMiddle), before);
}

void TestQwsPointerDriver::abortedWithoutAFileAfterAMount()
{
    QVERIFY(put(in("mnt/pointercal"), straightFile));
    qws::start(qws::Tslib);
    QWSPointerDriver driver;
    mount();
    abort(driver);
    QCOMPARE(contentOf(in("mnt/pointercal")), QByteArray(straightFile));
    QCOMPARE(contentOf(in("pointercal")), QByteArray("(none)"));
    QCOMPARE(qws::touch(QPoint(300, 200)), QPoint(300, 200));
    // The environment is as it was.
    QCOMPARE(QFile::decodeName(qgetenv("POINTERCAL_FILE")), in("mnt/pointercal"));
    QCOMPARE(QFile::decodeName(qgetenv("TSLIB_CALIBFILE")), in("mnt/pointercal"));
}

void TestQwsPointerDriver::abortedAndTheMountCannotBeWritten()
{
    QVERIFY(put(in("pointercal"), oldFile));
    qws::start(qws::Tslib);
    QWSPointerDriver driver;
    const QPoint before = qws::touch(oldMiddle);
    useFile("none/pointercal");
    QTest::ignoreMessage(QtWarningMsg,
                         qPrintable("Failed to store the calibration: " + in("none/pointercal") +
                                    ": No such file or directory"));
    abort(driver);
    QCOMPARE(qws::touch(oldMiddle), before);
}

void TestQwsPointerDriver::accepted()
{
    QFETCH(int, handler);
    QVERIFY(put(in("pointercal"), oldFile));
    qws::start(qws::Handler(handler));
    QWSPointerDriver driver;
    QTest::ignoreMessage(QtDebugMsg, "The calibration fits its points to 0 pixels");
    accept(driver, straight());
    QCOMPARE(contentOf(in("pointercal")), QByteArray(straightFile));
    QCOMPARE(qws::touch(QPoint(1600, 2080)), QPoint(400, 240));
}

void TestQwsPointerDriver::acceptedTwice()
{
    QFETCH(int, handler);
    qws::start(qws::Handler(handler));
    QWSPointerDriver driver;
    Data moved = straight();
    for (QPoint &point : moved.devPoints)
        point += QPoint(40, 0);
    accept(driver, moved);
    QCOMPARE(qws::touch(QPoint(1640, 2080)), QPoint(400, 240));
    accept(driver, straight());
    QCOMPARE(contentOf(in("pointercal")), QByteArray(straightFile));
    QCOMPARE(qws::touch(QPoint(1600, 2080)), QPoint(400, 240));
}

void TestQwsPointerDriver::acceptedAfterAMount()
{
    QFETCH(int, handler);
    QVERIFY(put(in("pointercal"), oldFile));
    qws::start(qws::Handler(handler));
    QWSPointerDriver driver;
    mount();
    accept(driver, straight());
    QCOMPARE(contentOf(in("mnt/pointercal")), QByteArray(straightFile));
    QCOMPARE(contentOf(in("pointercal")), QByteArray(oldFile));
    QCOMPARE(qws::touch(QPoint(1600, 2080)), QPoint(400, 240));
}

void TestQwsPointerDriver::abortedAfterAccepted()
{
    QVERIFY(put(in("pointercal"), oldFile));
    qws::start(qws::Tslib);
    QWSPointerDriver driver;
    accept(driver, straight());
    abort(driver);
    QCOMPARE(contentOf(in("pointercal")), QByteArray(straightFile));
    QCOMPARE(qws::touch(QPoint(1600, 2080)), QPoint(400, 240));
}

void TestQwsPointerDriver::abortedAfterAcceptedAndAMount()
{
    qws::start(qws::LinuxInput);
    QWSPointerDriver driver;
    accept(driver, straight());
    mount();
    abort(driver);
    QCOMPARE(contentOf(in("mnt/pointercal")), QByteArray(straightFile));
    QCOMPARE(qws::touch(QPoint(1600, 2080)), QPoint(400, 240));
}

void TestQwsPointerDriver::degenerate_data()
{
    QTest::addColumn<int>("handler");
    QTest::addColumn<QList<QPoint>>("device");
    const QPoint spot(100, 100);
    const QList<QPoint> sameSpot = {spot, spot, spot, spot, spot};
    const QList<QPoint> deadAxis = {QPoint(100, 7), QPoint(101, 8), QPoint(3000, 8),
                                    QPoint(3001, 7), QPoint(1500, 7)};
    const QList<QPoint> zeros = {QPoint(), QPoint(), QPoint(), QPoint(), QPoint()};
    // Its diagonals are equal, but three of its corners are on a line.
    const QList<QPoint> threeInALine = {QPoint(0, 0), QPoint(1000, 1000), QPoint(1000, 0),
                                        QPoint(1000, 0), QPoint(900, 300)};
    for (const int handler : {int(qws::LinuxInput), int(qws::Tslib)}) {
        QTest::addRow("the same spot five times, %d", handler) << handler << sameSpot;
        QTest::addRow("a dead axis, %d", handler) << handler << deadAxis;
        QTest::addRow("zeros, %d", handler) << handler << zeros;
        QTest::addRow("three corners in a line, %d", handler) << handler << threeInALine;
    }
}

void TestQwsPointerDriver::degenerate()
{
    QFETCH(int, handler);
    QFETCH(QList<QPoint>, device);
    QVERIFY(put(in("pointercal"), oldFile));
    qws::start(qws::Handler(handler));
    QWSPointerDriver driver;
    const QPoint before = qws::touch(oldMiddle);
    Data data = straight();
    for (int i = 0; i <= Data::LastLocation; ++i)
        data.devPoints[i] = device.at(i);
    QTest::ignoreMessage(QtWarningMsg,
                         "The calibration points determine no map, nothing is stored");
    accept(driver, data);
    QCOMPARE(contentOf(in("pointercal")), QByteArray(oldFile));
    QCOMPARE(qws::touch(oldMiddle), before);
    QVERIFY(!qws::cursorIsVisible());
}

void TestQwsPointerDriver::fileThatCannotBeWritten()
{
    QVERIFY(put(in("pointercal"), oldFile));
    qws::start(qws::LinuxInput);
    QWSPointerDriver driver;
    const QPoint before = qws::touch(oldMiddle);
    useFile("none/pointercal");
    QTest::ignoreMessage(QtWarningMsg,
                         qPrintable("Failed to store the calibration: " + in("none/pointercal") +
                                    ": No such file or directory"));
    accept(driver, straight());
    QCOMPARE(contentOf(in("none/pointercal")), QByteArray("(none)"));
    QCOMPARE(qws::touch(oldMiddle), before);
}

// Qt would open it for writing and wait for a reader.
void TestQwsPointerDriver::pipeInThePlaceOfTheFile()
{
    qws::start(qws::LinuxInput);
    QWSPointerDriver driver;
    QCOMPARE(::mkfifo(QFile::encodeName(in("mnt/pointercal")).constData(), 0600), 0);
    Data saved;
    driver.getCalibration(&saved);
    driver.clearCalibration();
    mount();
    QTest::ignoreMessage(QtWarningMsg, qPrintable("Failed to store the calibration: " +
                                                  in("mnt/pointercal") + ": is no regular file"));
    const Data data = straight();
    driver.calibrate(&data);
    QCOMPARE(qws::touch(QPoint(300, 200)), QPoint(300, 200));
}

void TestQwsPointerDriver::pointsThatDoNotFit()
{
    qws::start(qws::LinuxInput);
    QWSPointerDriver driver;
    Data data = straight();
    data.devPoints[Data::Center] += QPoint(400, 0);
    QTest::ignoreMessage(QtWarningMsg, "The calibration is off by 100 pixels at the centre target, "
                                       "it is stored all the same");
    accept(driver, data);
    QCOMPARE(contentOf(in("pointercal")), QByteArray(straightFile));
}

void TestQwsPointerDriver::unusableFile_data()
{
    QTest::addColumn<int>("handler");
    QTest::addColumn<QByteArray>("content");
    for (const int handler : {int(qws::LinuxInput), int(qws::Tslib)}) {
        QTest::addRow("zeros, %d", handler) << handler << QByteArray("0 0 0 0 0 0 0");
        QTest::addRow("no scale, %d", handler) << handler << QByteArray("1 0 0 0 1 0 0\n");
        QTest::addRow("all to one place, %d", handler) << handler << QByteArray("0 0 5 0 0 5 1\n");
    }
}

// As an older version of the tool may have left it behind. Only a new calibration gets
// rid of it.
void TestQwsPointerDriver::unusableFile()
{
    QFETCH(int, handler);
    QFETCH(QByteArray, content);
    QVERIFY(put(in("pointercal"), content));
    qws::start(qws::Handler(handler));
    QTest::ignoreMessage(QtWarningMsg, qPrintable("No calibration in " + in("pointercal")));
    QWSPointerDriver driver;
    QCOMPARE(qws::touch(QPoint(300, 200)), QPoint(300, 200));
    abort(driver);
    QCOMPARE(qws::touch(QPoint(300, 200)), QPoint(300, 200));
    QCOMPARE(contentOf(in("pointercal")), content);
    accept(driver, straight());
    QCOMPARE(contentOf(in("pointercal")), QByteArray(straightFile));
    QCOMPARE(qws::touch(QPoint(1600, 2080)), QPoint(400, 240));
}

void TestQwsPointerDriver::cursorIsHidden()
{
    qws::start(qws::LinuxInput);
    QVERIFY(qws::cursorIsVisible());
    QWSPointerDriver driver;
    QVERIFY(!qws::cursorIsVisible());
    abort(driver);
    QVERIFY(!qws::cursorIsVisible());
    accept(driver, straight());
    QVERIFY(!qws::cursorIsVisible());
}

void TestQwsPointerDriver::withoutMouse()
{
    qws::startWithoutMouse();
    QWSPointerDriver driver;
    for (int i = 0; i < 3; ++i)
        QTest::ignoreMessage(QtWarningMsg, "There is no mouse handler to calibrate");
    accept(driver, straight());
    QCOMPARE(contentOf(in("pointercal")), QByteArray("(none)"));
}

void TestQwsPointerDriver::withoutServer()
{
    qws::stop();
    QWSPointerDriver driver;
    for (int i = 0; i < 3; ++i)
        QTest::ignoreMessage(QtWarningMsg, "There is no mouse handler to calibrate");
    abort(driver);
    QCOMPARE(contentOf(in("pointercal")), QByteArray("(none)"));
}

void TestQwsPointerDriver::screenMapsToTheDevice()
{
    const QWSPointerDriver driver;
    QCOMPARE(driver.mapToDevice(QPoint(10, 20), QSize(800, 480)), QPoint(789, 459));
}

MFTOOL_TEST(TestQwsPointerDriver, Widgets)
#include "tst_qwspointerdriver.moc"
