/// Calibrating the touchscreen by finger: the real touchscreen library reads a
/// panel in a pipe, and the real file is written and used.
#include "tests/support/testprogram.h"
#include "tests/whole/programs.h"
#include "tests/whole/rig.h"
#include "tests/whole/screenreader.h"

#include <cmath>
#include <fcntl.h>
#include <unistd.h>

namespace
{

const QString ack = QStringLiteral("0004");

const QString panelDevice = QStringLiteral("/root/panel");
const QString configuration = QStringLiteral("/root/ts.conf");
const QString defaultFile = QStringLiteral("/etc/pointercal");

const QString loud = QStringLiteral("leds/buzzer/brightness=185");
const QString quiet = QStringLiteral("leds/buzzer/brightness=0");

/// What the panel, which is mounted on its side and upside down, reports for a finger on
/// the screen: x = 1900 - 3 y', y = 100 + 2 x'.
QPoint onPanel(const QPoint &screen)
{
    return {1900 - 3 * screen.y(), 100 + 2 * screen.x()};
}

/// A keypad whose tool is to read the panel.
KeypadOptions withPanel()
{
    KeypadOptions options = onScreen();
    options.environment.insert("TSLIB_TSDEVICE", panelDevice);
    options.environment.insert("TSLIB_CONFFILE", configuration);
    return options;
}

/// Places all over the screen.
const QPoint places[] = {{0, 0},     {799, 0},   {0, 479},   {799, 479}, {123, 321},
                         {400, 240}, {555, 111}, {700, 450}, {31, 17}};

} // namespace

class TestCalibrationFinger : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void cleanup();

    void touchesAreRawWithoutAFile();
    void shortTouch();
    void wholeCalibration();
    void tapsLandWhereTheFingerIs();
    void startButton();
    void rawAgainWhileItIsOpen();
    void fileIsUsedAfterARestart();
    void mountedFileIsUsed();
    void lateTouchscreen();

private:
    void finger(const QPoint &panel);
    void lift();
    void tap(const QPoint &panel);
    void hold(const QPoint &panel, const QString &point);
    void touchTest(bool on);
    void comparePlaces();

    QScopedPointer<Rig> m_rig;
    int m_panel = -1;
};

void TestCalibrationFinger::initTestCase()
{
    SKIP_UNLESS_SCREENS_RUN();
    m_rig.reset(new Rig(withPanel()));
    RigKeypad &keypad = m_rig->keypad;
    QVERIFY2(keypad.prepare(), qPrintable(keypad.errorString()));
    QVERIFY(keypad.writeFile(configuration, "module_raw touchkit\nmodule linear\n"));
    QCOMPARE(keypad.run("mkfifo", {panelDevice}).code, 0);
    m_panel = keypad.openFile(panelDevice, O_RDWR | O_NONBLOCK);
    QVERIFY(m_panel >= 0);
    QVERIFY2(m_rig->start(), qPrintable(m_rig->why()));
    QVERIFY(m_rig->station.waitForReady());
    const QString log = m_rig->log().join('\n');
    m_rig->forget();
    if (log.contains(QLatin1String("Built without the touchscreen library"))) {
        const char *const reason = "the tool was built without the touchscreen library";
        skipProgram(reason);
        QSKIP(reason);
    }
    QVERIFY2(!log.contains("touchscreen", Qt::CaseInsensitive), qPrintable(log));
    // No picture on the buttons.
    QCOMPARE(m_rig->request(wire::PatternRequest).line, QStringList(ack));
}

void TestCalibrationFinger::cleanup()
{
    if (!m_rig || !m_rig->keypad.isRunning() || m_panel < 0)
        return;
    lift();
    m_rig->request(wire::CalibrateRequest, "00");
    m_rig->request(wire::TouchTestRequest, "00");
    m_rig->forget();
}

/// A packet of the panel: a mark that says whether it is touched, and two coordinates of
/// 11 bits.
void TestCalibrationFinger::finger(const QPoint &panel)
{
    const char packet[] = {char(0x81), char(panel.x() >> 7), char(panel.x() & 0x7f),
                           char(panel.y() >> 7), char(panel.y() & 0x7f)};
    QCOMPARE(::write(m_panel, packet, sizeof packet), ssize_t(sizeof packet));
}

/// The coordinates of a release mean nothing.
void TestCalibrationFinger::lift()
{
    const char packet[] = {char(0x80), 0, 0, 0, 0};
    QCOMPARE(::write(m_panel, packet, sizeof packet), ssize_t(sizeof packet));
}

void TestCalibrationFinger::tap(const QPoint &panel)
{
    finger(panel);
    lift();
}

void TestCalibrationFinger::hold(const QPoint &panel, const QString &point)
{
    m_rig->forget();
    finger(panel);
    AWAIT_COMPARE(m_rig->stores(), QStringList({loud, loud, quiet}));
    QVERIFY(!m_rig->station.receiveNow().has_value());
    lift();
    QCOMPARE(m_rig->next(), point);
    QCOMPARE(m_rig->stores(), QStringList({loud, loud, quiet, quiet}));
}

void TestCalibrationFinger::touchTest(bool on)
{
    QCOMPARE(m_rig->request(wire::TouchTestRequest, on ? "01" : "00").line, QStringList(ack));
}

void TestCalibrationFinger::comparePlaces()
{
    touchTest(true);
    for (const QPoint &place : places) {
        tap(onPanel(place));
        const std::optional<wire::Frame> frame = m_rig->station.waitFor(wire::TouchReply);
        QVERIFY2(frame.has_value(), qPrintable(m_rig->station.errorString()));
        const QString said = QString::fromLatin1(frame->data);
        QCOMPARE(said.size(), 6);
        const QPoint off = QPoint(said.left(3).toInt(), said.mid(3).toInt()) - place;
        QVERIFY2(
            std::abs(off.x()) <= 1 && std::abs(off.y()) <= 1,
            qPrintable(QStringLiteral("%1 for %2,%3").arg(said).arg(place.x()).arg(place.y())));
    }
    QCOMPARE(m_rig->settle().line, QStringList());
    touchTest(false);
}

void TestCalibrationFinger::touchesAreRawWithoutAFile()
{
    QVERIFY(!m_rig->keypad.exists(defaultFile));
    touchTest(true);
    tap(QPoint(300, 200));
    QCOMPARE(m_rig->next(), QString("7031 300200"));
    // In normal use a touch stays on the screen.
    tap(QPoint(1828, 148));
    QCOMPARE(m_rig->next(), QString("7031 799148"));
    QCOMPARE(m_rig->settle().line, QStringList());
}

void TestCalibrationFinger::shortTouch()
{
    QCOMPARE(m_rig->request(wire::CalibrateRequest, "01").line, QStringList(ack));
    m_rig->forget();
    tap(QPoint(1828, 148));
    AWAIT_COMPARE(m_rig->stores(), QStringList({quiet, loud, loud, quiet}));
    QCOMPARE(m_rig->settle().line, QStringList());
    QCOMPARE(m_rig->request(wire::CalibrateRequest, "00").line, QStringList(ack));
    QVERIFY(!m_rig->keypad.exists(defaultFile));
}

void TestCalibrationFinger::wholeCalibration()
{
    QCOMPARE(m_rig->request(wire::CalibrateRequest, "01").line, QStringList(ack));
    hold(QPoint(1828, 148), "7021 000182800148");
    hold(QPoint(532, 148), "7021 010053200148");
    hold(QPoint(532, 1652), "7021 020053201652");
    hold(QPoint(1828, 1652), "7021 030182801652");
    hold(QPoint(1180, 900), "7021 040118000900");
    QCOMPARE(m_rig->next(), QString("7022 01"));
    const Outcome closed = m_rig->request(wire::CalibrateRequest, "00");
    QCOMPARE(closed.line, QStringList(ack));
    QCOMPARE(
        closed.log,
        QStringList({"debug: Setting calibration",
                     "debug: The calibration fits its points to 0 pixels", "debug: releasing mouse",
                     "warning: NAND not mounted, calibration will only be saved to SD"}));

    // Seven numbers; with them the panel's corners are the screen's.
    const QList<QByteArray> words = m_rig->keypad.readFile(defaultFile).simplified().split(' ');
    QCOMPARE(words.size(), 7);
    QList<double> number;
    for (const QByteArray &word : words)
        number.append(word.toInt());
    QVERIFY(number.at(6) > 0);
    for (const QPoint &place : places) {
        const QPoint panel = onPanel(place);
        const double x =
            (number.at(0) * panel.x() + number.at(1) * panel.y() + number.at(2)) / number.at(6);
        const double y =
            (number.at(3) * panel.x() + number.at(4) * panel.y() + number.at(5)) / number.at(6);
        // The file rounds by half a pixel.
        QVERIFY(std::abs(x - place.x() - 0.5) < 0.5 && std::abs(y - place.y() - 0.5) < 0.5);
    }
}

void TestCalibrationFinger::tapsLandWhereTheFingerIs()
{
    comparePlaces();
}

void TestCalibrationFinger::startButton()
{
    QVERIFY(m_rig->keypad.setStandin("kobs-ng", "no-image"));
    tap(onPanel(QPoint(100, 100)));
    QCOMPARE(m_rig->settle().line, QStringList());
    tap(onPanel(ScreenReader::button()));
    QCOMPARE(m_rig->next(), QString("7052 00"));
    QVERIFY(ScreenReader(m_rig->keypad).waitForStatus("Failed: Finished with Error"));
}

/// If it is closed early, it restores what was in force.
void TestCalibrationFinger::rawAgainWhileItIsOpen()
{
    const QByteArray before = m_rig->keypad.readFile(defaultFile);
    QCOMPARE(m_rig->request(wire::CalibrateRequest, "01").line, QStringList(ack));
    hold(QPoint(1500, 300), "7021 000150000300");
    QCOMPARE(m_rig->request(wire::CalibrateRequest, "00").line, QStringList(ack));
    QCOMPARE(m_rig->keypad.readFile(defaultFile), before);
    comparePlaces();
}

void TestCalibrationFinger::fileIsUsedAfterARestart()
{
    QVERIFY(m_rig->station.send(wire::ExitRequest));
    QVERIFY(m_rig->keypad.waitForExit());
    QVERIFY2(m_rig->startReady(), qPrintable(m_rig->why()));
    comparePlaces();
}

/// A calibration after the mount is stored there and in force at once.
void TestCalibrationFinger::mountedFileIsUsed()
{
    const QByteArray before = m_rig->keypad.readFile(defaultFile);
    QVERIFY(m_rig->mount());
    comparePlaces();
    // The finger now means other places: 4 to the left of where it was.
    QCOMPARE(m_rig->request(wire::CalibrateRequest, "01").line, QStringList(ack));
    hold(QPoint(1828, 156), "7021 000182800156");
    hold(QPoint(532, 156), "7021 010053200156");
    hold(QPoint(532, 1660), "7021 020053201660");
    hold(QPoint(1828, 1660), "7021 030182801660");
    hold(QPoint(1180, 908), "7021 040118000908");
    QCOMPARE(m_rig->next(), QString("7022 01"));
    const Outcome closed = m_rig->request(wire::CalibrateRequest, "00");
    QVERIFY(closed.log.filter("warning: ").isEmpty());
    QVERIFY(m_rig->keypad.exists("/mnt/etc/pointercal"));
    QVERIFY(m_rig->keypad.readFile("/mnt/etc/pointercal") != before);
    QCOMPARE(m_rig->keypad.readFile(defaultFile), before);
    touchTest(true);
    tap(onPanel(QPoint(204, 100)));
    QCOMPARE(m_rig->next(), QString("7031 200100"));
}

/// Nothing is touched before it is there, and the log says why.
void TestCalibrationFinger::lateTouchscreen()
{
    ::close(m_panel);
    m_panel = -1;
    m_rig.reset(new Rig(withPanel()));
    RigKeypad &keypad = m_rig->keypad;
    QVERIFY2(keypad.prepare(), qPrintable(keypad.errorString()));
    QVERIFY(keypad.writeFile(configuration, "module_raw touchkit\nmodule linear\n"));
    QVERIFY(keypad.writeFile(defaultFile, "1 0 0 0 1 0 0\n"));
    QVERIFY2(m_rig->start(), qPrintable(m_rig->why()));
    QVERIFY(m_rig->station.waitForReady());
    QCOMPARE(m_rig->log().filter("warning: "),
             QStringList(
                 {"warning: No calibration in /etc/pointercal",
                  "warning: Failed to open touchscreen /root/panel, looking for it every second"}));
    m_rig->forget();

    QCOMPARE(m_rig->request(wire::CalibrateRequest, "01").log,
             QStringList("warning: There is no touchscreen to calibrate"));
    QCOMPARE(m_rig->request(wire::CalibrateRequest, "00").line, QStringList(ack));
    QCOMPARE(keypad.readFile(defaultFile), QByteArray("1 0 0 0 1 0 0\n"));
    QCOMPARE(m_rig->request(wire::PatternRequest).line, QStringList(ack));

    QCOMPARE(keypad.run("mkfifo", {panelDevice}).code, 0);
    m_panel = keypad.openFile(panelDevice, O_RDWR | O_NONBLOCK);
    QVERIFY(m_panel >= 0);
    // The tool looks for it every second and sleeps meanwhile.
    const int betweenLooks = 1000; // ms
    QVERIFY(Patience::waitUntil(
        [this] { return m_rig->log().contains("debug: Touchscreen /root/panel is there"); },
        betweenLooks));
    // The content of the file is not used: touches are raw.
    touchTest(true);
    tap(QPoint(0, 0));
    QCOMPARE(m_rig->next(), QString("7031 000000"));
    tap(QPoint(300, 200));
    QCOMPARE(m_rig->next(), QString("7031 300200"));
}

MFTOOL_TEST(TestCalibrationFinger, Widgets)

#include "tst_calibrationfinger.moc"
