/// How the tool starts, with everything and with something missing, and how it
/// ends.
#include "bench/keypad/keypadlog.h"
#include "tests/support/testprogram.h"
#include "tests/whole/rig.h"

#include <fcntl.h>
#include <termios.h>
#include <unistd.h>

namespace
{

const QString ready = QStringLiteral("/sys/class/leds/ready/brightness");
const QString sdPower = QStringLiteral("/sys/class/gpio/sd_power/value");
const QString buzzer = QStringLiteral("/sys/class/leds/buzzer/brightness");

const QString started = QStringLiteral("debug: In ATE Mode --->, ATE 15 sec Timer started:");
const QString timedOut =
    QStringLiteral("debug: \n************ ATE TEST Quit due to time out ************\n");

const QByteArray ack("7E000A00043102957F\r\n");
const QByteArray nak("7E000A00053202977F\r\n");
const QByteArray readyFrame("7E000A99995102B77F\r\n");

const QByteArray echoRequest("7E000C6002175A02F57F\r\n"); // data 5A

KeypadOptions with(const QStringList &arguments)
{
    KeypadOptions options;
    options.arguments = arguments;
    return options;
}

KeypadOptions lacking(const QStringList &paths)
{
    KeypadOptions options;
    options.without = paths;
    return options;
}

/// A keypad whose tool uses @p clock.
KeypadOptions on(ToolClock &clock, KeypadOptions options = KeypadOptions())
{
    clock.wind(options);
    return options;
}

/// What the tool has set on its line.
bool lineSettings(RigKeypad &keypad, termios *settings)
{
    const int fd = keypad.openFile(QStringLiteral("/dev/ttySP0"), O_RDWR | O_NOCTTY | O_NONBLOCK);
    if (fd < 0)
        return false;
    const bool ok = tcgetattr(fd, settings) == 0;
    close(fd);
    return ok;
}

/// The log in the order of the tool's own thread, up to now.
QByteArray rawNext(Rig &rig)
{
    const std::optional<Station::Received> received = rig.station.receive();
    return received ? received->raw : rig.station.errorString().toUtf8();
}

/// Shows that the tool is alive when it has no line.
bool buzzesWithTheKey(RigKeypad &keypad)
{
    keypad.clearStores();
    keypad.pressHome();
    const bool on = keypad.waitForStore(buzzer, "185");
    keypad.releaseHome();
    return on && keypad.waitForStore(buzzer, "0");
}

} // namespace

class TestStartup : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void healthyBoard();
    void identity();
    void commandLine_data();
    void commandLine();
    void checksOff();
    void exitRequest();
    void startsAgain();
    void everythingMissing();
    void noLine();
    void noBuzzer();
    void fifteenSecondsAtSixtyTimesTheSpeed();
    void fifteenSeconds();
    void badMarksBuyNoTime();
    void damagedFrameBuysTenMinutes();
    void tenMinutesCountFromTheLastFrame();

private:
    void expectTimeOut(Rig &rig);
};

void TestStartup::initTestCase()
{
    SKIP_UNLESS_KEYPADS_RUN();
}

void TestStartup::healthyBoard()
{
    Rig rig;
    QVERIFY2(rig.start(), qPrintable(rig.why()));
    // The logo is answered like any test image, before the ready message.
    QCOMPARE(rawNext(rig), ack);
    QCOMPARE(rawNext(rig), readyFrame);
    QCOMPARE(rig.settle().line, QStringList());

    QCOMPARE(rig.log(), QStringList({
                            "debug: Input event opened",
                            "debug: Running on board rev 2",
                            "debug: In ATE Mode--->, SD fifo created at /tmp/sdstat",
                            "debug: In ATE Mode --->, SD card Detection Enabled",
                            "debug: In ATE Mode --->, ATE 15 sec Timer started:",
                            "debug: /dev/ttySP0 opened and configured for speed 115200\n",
                            "debug: Using test pattern '/home/default/tarnwick.png'",
                        }));

    // Every LED but the buzzer, in the order of the folder; then the engine,
    // whose first store is the card's power, and only then its line.
    QStringList stores = rig.stores();
    QCOMPARE(stores.size(), 6);
    QCOMPARE(stores.takeLast(), QString("gpio/sd_power/value=1"));
    stores.sort();
    QCOMPARE(stores, QStringList({"leds/ac/brightness=255", "leds/armed/brightness=255",
                                  "leds/home/brightness=255", "leds/ready/brightness=255",
                                  "leds/trouble/brightness=255"}));

    termios settings;
    QVERIFY(lineSettings(rig.keypad, &settings));
    QCOMPARE(cfgetospeed(&settings), speed_t(B115200));
    QCOMPARE(settings.c_iflag, tcflag_t(IGNPAR));
    QCOMPARE(settings.c_oflag, tcflag_t(0));
    QCOMPARE(settings.c_lflag, tcflag_t(0));
    QCOMPARE(settings.c_cflag & (CSIZE | CSTOPB | PARENB | CREAD | CLOCAL),
             tcflag_t(CS8 | CREAD | CLOCAL));
    QCOMPARE(settings.c_cc[VMIN], cc_t(1));
    QCOMPARE(settings.c_cc[VTIME], cc_t(0));
}

/// The tool knows its name before it builds anything: Qt can put it before each line.
void TestStartup::identity()
{
    KeypadOptions options;
    options.environment.insert(
        "QT_MESSAGE_PATTERN", KeypadLog::pattern().replace("%{message}", "%{appname}: %{message}"));
    Rig rig(options);
    QVERIFY2(rig.start(), qPrintable(rig.why()));
    QVERIFY(rig.waitForLog("debug: ZRV8810-MF: Input event opened"));
}

void TestStartup::commandLine_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QString>("said"); // about the speed
    QTest::addColumn<uint>("speed");
    const QString invalid("debug: Invalid QB740 baud rate specified, defaulting to 115200");

    QTest::newRow("a speed") << QStringList({"-b", "38400"}) << "debug: Using baud rate 38400"
                             << uint(B38400);
    QTest::newRow("the lowest, with -n")
        << QStringList({"-n", "-b", "9600"}) << "debug: Using baud rate 9600" << uint(B9600);
    QTest::newRow("one that is not offered")
        << QStringList({"-b", "4800"}) << invalid << uint(B115200);
    QTest::newRow("a word") << QStringList({"-b", "fast"}) << invalid << uint(B115200);
    QTest::newRow("last") << QStringList({"-b"}) << QString() << uint(B115200);
    QTest::newRow("first of two") << QStringList({"-b", "19200", "-b", "57600"})
                                  << "debug: Using baud rate 19200" << uint(B19200);
    QTest::newRow("others are ignored")
        << QStringList({"-B", "9600", "-N", "--n", "b", "57600"}) << QString() << uint(B115200);
}

void TestStartup::commandLine()
{
    QFETCH(QStringList, arguments);
    QFETCH(QString, said);
    QFETCH(uint, speed);
    Rig rig(with(arguments));
    QVERIFY2(rig.start(), qPrintable(rig.why()));
    QVERIFY(rig.station.waitForReady());

    const QStringList about = rig.settle().log.filter("baud rate");
    QCOMPARE(about, said.isEmpty() ? QStringList() : QStringList(said));
    termios settings;
    QVERIFY(lineSettings(rig.keypad, &settings));
    QCOMPARE(uint(cfgetospeed(&settings)), speed);

    // Only "-n", exactly like this, switches the checks off: the checksum of this echo is
    // wrong.
    rig.forget();
    QVERIFY(rig.station.sendRaw("7E000C6002175AFFFF7F\r\n"));
    QCOMPARE(rig.next(), arguments.contains("-n") ? QString("6003 5A") : QString("0005"));
}

void TestStartup::checksOff()
{
    Rig rig(with({"-b", "-n"})); // a word as speed, and nevertheless the switch
    QVERIFY2(rig.startReady(), qPrintable(rig.why()));

    // Neither the length field nor the checksum count, the data are what is between the
    // header check and the last six characters.
    QVERIFY(rig.station.sendRaw("7E123460022AABCDEFXXXX7F\r\n"));
    QCOMPARE(rig.next(), QString("6003 ABCDEF"));
    QVERIFY(rig.station.sendRaw("7eZZZZ60022A00007f\r\n"));
    QCOMPARE(rig.next(), QString("6003"));
    // The marks and the size still count.
    QCOMPARE(rig.raw("7D000C6002175A02F57F\r\n").line, QStringList("0005"));
    QCOMPARE(rig.raw("7E000C6002175A7F\r\n").line, QStringList("0005"));
}

void TestStartup::exitRequest()
{
    Rig rig;
    QVERIFY2(rig.startReady(), qPrintable(rig.why()));
    QCOMPARE(rig.request(0x6001, "00").line, QStringList("0005"));

    rig.forget();
    QVERIFY(rig.station.sendRaw("7E000A6001140277F\r\n")); // a character short
    QCOMPARE(rig.next(), QString("0005"));
    QVERIFY(rig.station.send(0x6001));
    QCOMPARE(rawNext(rig), ack);
    QVERIFY(rig.keypad.waitForExit());
    QCOMPARE(rig.keypad.exitStatus().signal, 0);
    QCOMPARE(rig.keypad.exitStatus().code, 0);
    // Only the time-out switches the card's power off.
    QCOMPARE(rig.stores(), QStringList());
}

void TestStartup::startsAgain()
{
    Rig rig;
    QVERIFY2(rig.startReady(), qPrintable(rig.why()));
    QVERIFY(rig.station.send(0x6001));
    QVERIFY(rig.keypad.waitForExit());
    QCOMPARE(rig.keypad.exitStatus().code, 0);

    // The pipe is still there.
    rig.forget();
    QVERIFY2(rig.keypad.start(), qPrintable(rig.keypad.errorString()));
    QCOMPARE(rig.next(), QString("0004"));
    QCOMPARE(rig.next(), QString("9999"));
    QVERIFY(rig.waitForLog("debug: In ATE Mode--->, SD fifo already exists"));
}

void TestStartup::everythingMissing()
{
    Rig rig(lacking({"/dev/ttySP0", "/dev/input/event0", "/sys/class", "/sys/board_revision",
                     "/home/default", "/tmp", "/usr/lib/panel/version", "/boot", "/mnt"}));
    QVERIFY2(rig.start(), qPrintable(rig.why()));
    QVERIFY(rig.waitForLog("warning: Failed to open test pattern file"));
    // The ready message is lost, but the event loop that sent it runs.
    const QString lost("debug: \n!!!!!!!!!! stream_pointer NULL !!!!!!!!!!!!!!\n");
    AWAIT_COMPARE(rig.log().count(lost), 2);
    QVERIFY(rig.keypad.isRunning());
    QCOMPARE(rig.log(),
             QStringList({
                 "warning: Failed to open buzzer file",
                 "warning: Failed to open /dev/input/event0",
                 "debug: No revision file found, assuming rev 1",
                 "debug: Running on board rev 1",
                 "debug: In ATE Mode--->, Failed to create SD fifo: No such file or directory",
                 "warning: In ATE Mode--->, No SD monitoring available",
                 "debug: In ATE Mode --->, ATE 15 sec Timer started:",
                 "debug: Failed to open /dev/ttySP0",
                 "debug: Failed to open /dev/ttySP0: No such file or directory",
                 "warning: Failed to open QB740 serial port",
                 "debug: Using test pattern 'tarnwick.png'",
                 "warning: Failed to open test pattern file",
                 lost,
                 lost,
             }));
}

void TestStartup::noLine()
{
    SKIP_UNLESS_CLOCKS_MOVE();
    ToolClock clock;
    Rig rig(on(clock, lacking({"/dev/ttySP0"})));
    QVERIFY2(rig.start(), qPrintable(rig.why()));
    QVERIFY(rig.waitForLog("debug: Failed to open /dev/ttySP0"));
    QVERIFY(rig.waitForLog("debug: Failed to open /dev/ttySP0: No such file or directory"));
    QVERIFY(rig.waitForLog("warning: Failed to open QB740 serial port"));
    QVERIFY(buzzesWithTheKey(rig.keypad));

    // Nobody can ask it to end, so it ends by itself.
    QVERIFY(clock.set(16));
    expectTimeOut(rig);
}

void TestStartup::noBuzzer()
{
    Rig rig(lacking({"/sys/class/leds/buzzer"}));
    QVERIFY2(rig.start(), qPrintable(rig.why()));
    QVERIFY(rig.station.waitForReady());
    QVERIFY(rig.settle().log.contains("warning: Failed to open buzzer file"));

    // The home key stays silent, and nothing is logged.
    rig.forget();
    rig.keypad.pressHome();
    AWAIT_COMPARE(rig.request(0x7070).line, QStringList("7071 01"));
    QCOMPARE(rig.log().filter("buzzer"), QStringList());
    // A level opens the file anew.
    const Outcome level = rig.request(0x6147, "80FF");
    QCOMPARE(level.line, QStringList("0004"));
    QCOMPARE(level.log, QStringList("warning: Failed to open buzzer file"));
    QVERIFY(rig.keypad.addLed("buzzer"));
    QCOMPARE(rig.request(0x6147, "80FF").stores, QStringList("leds/buzzer/brightness=127"));
}

// The time-outs

/// Wakes the tool, which then finds that its time is up.
void TestStartup::expectTimeOut(Rig &rig)
{
    rig.keypad.pressHome();
    QVERIFY(rig.keypad.waitForExit());
    QCOMPARE(rig.keypad.exitStatus().signal, 0);
    QCOMPARE(rig.keypad.exitStatus().code, 0);
    QVERIFY(rig.waitForLog(timedOut));
}

void TestStartup::fifteenSecondsAtSixtyTimesTheSpeed()
{
    SKIP_UNLESS_CLOCKS_MOVE();
    KeypadOptions options;
    options.faketime = "x60";
    Rig rig(options);
    QVERIFY2(rig.start(), qPrintable(rig.why()));
    QVERIFY(rig.keypad.waitForExit());
    QCOMPARE(rig.keypad.exitStatus().signal, 0);
    QCOMPARE(rig.keypad.exitStatus().code, 0);
    QVERIFY(rig.log().contains(timedOut));
    QVERIFY(rig.log().contains("debug: In ATE Mode --->, SD card Detection Disabled"));

    QStringList power;
    const QList<SysfsModel::Store> stores = rig.keypad.stores(sdPower);
    for (const SysfsModel::Store &store : stores)
        power << QString::fromLatin1(store.text);
    QCOMPARE(power, QStringList({"1", "0"}));

    // By the tool's own clock, which is not the timer's: a correction of the time in
    // between is some milliseconds at this speed.
    QTime start;
    QTime end;
    const QList<VirtualKeypad::LogLine> log = rig.keypad.log();
    for (const VirtualKeypad::LogLine &line : log) {
        if (line.text.contains("ATE 15 sec Timer started"))
            start = QTime::fromString(line.time, "hh:mm:ss.zzz");
        if (line.text.contains("Quit due to time out"))
            end = QTime::fromString(line.time, "hh:mm:ss.zzz");
    }
    QVERIFY(start.isValid() && end.isValid());
    const int day = 24 * 60 * 60 * 1000;
    const int waited = (start.msecsTo(end) + day) % day;
    QVERIFY2(waited >= 14990, qPrintable(QString::number(waited)));
}

void TestStartup::fifteenSeconds()
{
    SKIP_UNLESS_CLOCKS_MOVE();
    ToolClock clock;
    Rig rig(on(clock));
    QVERIFY2(rig.start(), qPrintable(rig.why()));
    QVERIFY(rig.station.waitForReady());
    QVERIFY(clock.set(5));
    QVERIFY(buzzesWithTheKey(rig.keypad));

    QVERIFY(clock.set(16));
    rig.keypad.clearStores();
    expectTimeOut(rig);
    QCOMPARE(rig.stores().filter("sd_power"), QStringList("gpio/sd_power/value=0"));
}

void TestStartup::badMarksBuyNoTime()
{
    SKIP_UNLESS_CLOCKS_MOVE();
    ToolClock clock;
    Rig rig(on(clock));
    QVERIFY2(rig.startReady(), qPrintable(rig.why()));
    QVERIFY(rig.station.sendRaw("7E000C6002175A02F57E\r\n"));
    QCOMPARE(rig.next(), QString("0005"));
    QVERIFY(rig.station.sendRaw("7E000C6002177F\r\n")); // too short to have any
    QCOMPARE(rig.next(), QString("0005"));

    QVERIFY(clock.set(16));
    expectTimeOut(rig);
}

void TestStartup::damagedFrameBuysTenMinutes()
{
    SKIP_UNLESS_CLOCKS_MOVE();
    ToolClock clock;
    Rig rig(on(clock));
    QVERIFY2(rig.startReady(), qPrintable(rig.why()));
    QVERIFY(rig.station.sendRaw("7E000C6002175AFFFF7F\r\n"));
    QCOMPARE(rig.next(), QString("0005"));

    QVERIFY(clock.set(500));
    QVERIFY(buzzesWithTheKey(rig.keypad));
    QVERIFY(clock.set(602));
    expectTimeOut(rig);
}

void TestStartup::tenMinutesCountFromTheLastFrame()
{
    SKIP_UNLESS_CLOCKS_MOVE();
    ToolClock clock;
    Rig rig(on(clock));
    QVERIFY2(rig.startReady(), qPrintable(rig.why()));
    QVERIFY(rig.station.sendRaw(echoRequest));
    QCOMPARE(rig.next(), QString("6003 5A"));

    // A frame with a wrong length counts, and so does an unknown type; wrong marks do
    // not.
    QVERIFY(clock.set(400));
    QVERIFY(rig.station.sendRaw("7E000D6002175A02F57F\r\n"));
    QCOMPARE(rig.next(), QString("0005"));
    QVERIFY(clock.set(900));
    QVERIFY(buzzesWithTheKey(rig.keypad));
    QVERIFY(rig.station.send(0x1234));
    QCOMPARE(rig.next(), QString("0003"));
    QVERIFY(clock.set(1400));
    QVERIFY(rig.station.sendRaw("6E000C6002175A02F57F\r\n"));
    QCOMPARE(rig.next(), QString("0005"));
    QVERIFY(buzzesWithTheKey(rig.keypad));

    QVERIFY(clock.set(1502));
    rig.keypad.clearStores();
    expectTimeOut(rig);
    QCOMPARE(rig.stores().filter("sd_power"), QStringList("gpio/sd_power/value=0"));
}

MFTOOL_TEST(TestStartup, EventLoop)
#include "tst_startup.moc"
