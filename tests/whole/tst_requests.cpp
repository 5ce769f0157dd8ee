/// Every request with right and wrong data, on the line, in /sys and in the log.
#include "tests/support/testprogram.h"
#include "tests/whole/rig.h"

#include <cerrno>

namespace
{

/// The four stores that show these LEDs: "1000" is ready alone, "0001" ac.
QStringList ledStores(const char *shown)
{
    const char *const names[] = {"ready", "armed", "trouble", "ac"};
    QStringList stores;
    for (int i = 0; i < 4; ++i)
        stores << QStringLiteral("leds/%1/brightness=%2")
                      .arg(QLatin1String(names[i]), shown[i] == '1' ? "255" : "0");
    return stores;
}

} // namespace

class TestRequests : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void worked_data();
    void worked();
    void table_data();
    void table();
    void biasPower();
    void biasPowerRefusedStores();
    void refusedStores_data();
    void refusedStores();
    void missingLed();
    void createdLater();
    void allTheLedsThereAre();

private:
    QScopedPointer<Rig> m_rig;
};

void TestRequests::initTestCase()
{
    SKIP_UNLESS_KEYPADS_RUN();
    m_rig.reset(new Rig);
    QVERIFY2(m_rig->startReady(), qPrintable(m_rig->why()));
}

void TestRequests::init()
{
    QVERIFY(m_rig->keypad.isRunning());
}

/// Whole frames as they are on the line.
void TestRequests::worked_data()
{
    QTest::addColumn<QByteArray>("sent");
    QTest::addColumn<QByteArray>("came");
    const QByteArray ack("7E000A00043102957F\r\n");
    const QByteArray nak("7E000A00053202977F\r\n");
    const QByteArray na("7E000A00033002937F\r\n");

    QTest::newRow("backlight 100") << QByteArray("7E000E61431F006403607F\r\n") << ack;
    QTest::newRow("lower case") << QByteArray("7e000e61435f006403c47f\r\n") << ack;
    QTest::newRow("no line end") << QByteArray("7E000E61431F006403607F") << ack;
    QTest::newRow("white space around") << QByteArray(" \t\r\n7E000E61431F006403607F \n\n") << ack;
    QTest::newRow("another header check") // only the checksum says whether it is right
        << QByteArray("7E000E614300006403497F\r\n") << ack;
    QTest::newRow("echo of three characters")
        << QByteArray("7E000D6002185AB03397F\r\n") << QByteArray("7E000D6003395AB035D7F\r\n");
    QTest::newRow("echo") << QByteArray("7E000E600219ABCD038D7F\r\n")
                          << QByteArray("7E000E60033AABCD03D87F\r\n");
    QTest::newRow("unknown type") << QByteArray("7E000A99993102957F\r\n") << na;
    QTest::newRow("checksum") << QByteArray("7E000E61431F006403617F\r\n") << nak;
}

void TestRequests::worked()
{
    QFETCH(QByteArray, sent);
    QFETCH(QByteArray, came);
    m_rig->forget();
    QVERIFY(m_rig->station.sendRaw(sent));
    const std::optional<Station::Received> received = m_rig->station.receive();
    QVERIFY2(received.has_value(), qPrintable(m_rig->station.errorString()));
    QCOMPARE(received->raw, came);
    QCOMPARE(m_rig->settle().line, QStringList());
}

void TestRequests::table_data()
{
    QTest::addColumn<int>("type");
    QTest::addColumn<QByteArray>("data");
    QTest::addColumn<QStringList>("line");
    QTest::addColumn<QStringList>("stores");
    QTest::addColumn<QStringList>("log");

    int number = 0;
    const auto row = [&number](int type, const char *data, const QStringList &line,
                               const QStringList &stores = QStringList(),
                               const QStringList &log = QStringList()) {
        const QByteArray name = QByteArray::number(++number) + ": " + QByteArray::number(type, 16) +
                                ' ' + QByteArray(data).left(40);
        QTest::newRow(name.constData()) << type << QByteArray(data) << line << stores << log;
    };
    const QStringList ack("0004");
    const QStringList nak("0005");
    const QStringList na("0003");
    const QStringList nothing;

    // Data of a wrong length is in tst_badinput.
    row(0x6002, "", {"6003"});
    row(0x6002, "ABCD", {"6003 ABCD"});
    row(0x6002, "any text 7F, 7E and lower case", {"6003 any text 7F, 7E and lower case"});
    row(0x6003, "ABCD", na, nothing, {"debug: Unhandled type: 6003"});
    row(0x0004, "", na, nothing, {"debug: Unhandled type: 0004"});
    row(0xBEEF, "0123", na, nothing, {"debug: Unhandled type: BEEF"});

    const QStringList versionLength(
        "debug: In ATE Mode--->, 603c Command needs 1 bytes of data (2 ASCII)");
    const QStringList versionByte(
        "debug: In ATE Mode--->, 603c Command, first byte must be 01 (30 31)");
    row(0x603C, "01", {"603D 010220140101 1.2  0000000000000000"});
    row(0x603C, "", nak, nothing, versionLength);
    row(0x603C, "02", na, nothing, versionByte);
    row(0x603C, "1 ", na, nothing, versionByte);

    const QString backlight("backlight/mxs-bl/brightness=%1");
    row(0x6143, "0000", ack, {backlight.arg(0)});
    row(0x6143, "0001", ack, {backlight.arg(1)});
    row(0x6143, "0064", ack, {backlight.arg(100)});
    row(0x6143, "00FF", ack, {backlight.arg(255)});
    row(0x6143, "00ff", ack, {backlight.arg(255)});
    row(0x6143, "001G", ack, {backlight.arg(0)});
    row(0x6143, "0102", na);
    row(0x6143, "0164", na);
    row(0x6143, "01FF", na);
    row(0x6143, "0264", na);
    row(0x6143, "1064", na);
    row(0x6143, "FF00", na);

    row(0x6144, "00000000000000", ack, ledStores("0000"));
    row(0x6144, "00010000000000", ack, ledStores("1000"));
    row(0x6144, "00020000000000", ack, ledStores("0100"));
    row(0x6144, "00040000000000", ack, ledStores("0010"));
    row(0x6144, "00080000000000", ack, ledStores("0001"));
    row(0x6144, "000F0000000000", ack, ledStores("1111"));
    row(0x6144, "00FFFFFFFFFFFF", ack, ledStores("1111"));
    row(0x6144, "00100000000000", ack, ledStores("0000")); // no such LED
    row(0x6144, "000Fanything..", ack, ledStores("1111")); // five bytes that say nothing
    row(0x6144, "00G10000000000", ack, ledStores("0000"));
    row(0x6144, "010F0000000000", na);
    row(0x6144, "800F0000000000", na);

    const QString buzzer("leds/buzzer/brightness=%1");
    row(0x6147, "0000", ack, {buzzer.arg(0)});
    row(0x6147, "0055", ack, {buzzer.arg(0)});
    row(0x6147, "00FF", ack, {buzzer.arg(0)});
    row(0x6147, "8000", ack, {buzzer.arg(0)});
    row(0x6147, "8001", ack, {buzzer.arg(0)});
    row(0x6147, "8002", ack, {buzzer.arg(1)});
    row(0x6147, "80C8", ack, {buzzer.arg(100)});
    row(0x6147, "80FF", ack, {buzzer.arg(127)});
    row(0x6147, "0155", na);
    row(0x6147, "8100", na);

    // The card has its own program; here nothing is in the slot.
    const QStringList noCard{
        "debug: In ATE Mode--->, command 0X6161: readSdCard started",
        "debug: SD Detection and/or mount is not confirmed, we cannot continue readSdCardread"};
    const QStringList cardLength(
        "debug: In ATE Mode--->, 6161 Command needs 3 bytes of data (6 ASCII)");
    const QStringList cardByte(
        "debug: In ATE Mode--->, 6161 Command, first byte must be 01 (30 31)");
    row(0x6161, "011E02", {"6162 011E020100000000000000000000"}, nothing, noCard);
    row(0x6161, "", nak, nothing, cardLength);
    row(0x6161, "021E02", na, nothing, cardByte);
    row(0x6161, "101E02", na, nothing, cardByte);

    row(0x7000, "no such picture", nak, nothing,
        {"debug: Using test pattern 'no such picture'",
         "warning: Failed to open test pattern file"});
    row(0x7000, "bars.png", ack, nothing, {"debug: Using test pattern '/home/default/bars.png'"});
    row(0x7000, "", ack);
    row(0x7000, "", ack); // nothing is shown any more: no second reply either

    const QString home("leds/home/brightness=%1");
    row(0x7010, "00", ack, {home.arg(0)});
    row(0x7010, "01", ack, {home.arg(3)});
    row(0x7010, "0A", ack, {home.arg(25)});
    row(0x7010, "32", ack, {home.arg(128)});
    row(0x7010, "63", ack, {home.arg(252)});
    row(0x7010, "64", ack, {home.arg(255)});
    row(0x7010, "FF", ack, {home.arg(650)}); // the driver has the last word
    row(0x7010, "zz", ack, {home.arg(0)});

    // NA where the neighbours have NAK.
    row(0x7020, "", na);
    row(0x7020, "00", ack);

    const QStringList touchOn("debug: Touchscreen test -- enabled");
    const QStringList touchOff("debug: Touchscreen test -- disabled");
    row(0x7030, "01", ack, nothing, touchOn);
    row(0x7030, "FF", ack, nothing, touchOn);
    row(0x7030, "0 ", ack, nothing, touchOn); // anything but "00"
    row(0x7030, "00", ack, nothing, touchOff);

    const QStringList relayOn("debug: QB740 passthrough -- enabled");
    const QStringList relayOff("debug: QB740 passthrough -- disabled");
    row(0x7041, "AB", ack); // dropped: not switched on
    row(0x7040, "01", ack, nothing, relayOn);
    row(0x7041, "AB", {"line AB", "0004"});
    row(0x7041, "", {"line ", "0004"});
    row(0x7040, "A0", ack, nothing, relayOn);
    row(0x7040, "00", ack, nothing, relayOff);
    row(0x7041, "AB", ack);

    row(0x7053, "", na); // nothing is being flashed
    row(0x7080, "", {"7081 00012345"});
}

void TestRequests::table()
{
    QFETCH(int, type);
    QFETCH(QByteArray, data);
    QFETCH(QStringList, line);
    QFETCH(QStringList, stores);
    QFETCH(QStringList, log);
    const Outcome outcome = m_rig->request(quint16(type), data);
    QCOMPARE(outcome.line, line);
    QCOMPARE(outcome.stores, stores);
    QCOMPARE(outcome.log, log);
}

void TestRequests::biasPower()
{
    RigKeypad &keypad = m_rig->keypad;
    QVERIFY(!keypad.hasNode("/sys/class/gpio/gpio62"));

    const Outcome first = m_rig->request(0x6143, "0101");
    QCOMPARE(first.line, QStringList("0004"));
    QCOMPARE(first.stores, QStringList({"gpio/export=62", "gpio/gpio62/active_low=0",
                                        "gpio/gpio62/direction=out", "gpio/gpio62/value=1"}));
    QCOMPARE(
        first.log,
        QStringList({
            "debug: In ATE Mode---,gpio62 folder (value file) is not exist, need to be created",
            "debug: In ATE Mode---, export pin number to generate gpio62 folder, and value file",
            "debug: In ATE Mode---, LCD Bias Power manipulation, was successfully done!",
        }));
    QCOMPARE(keypad.attribute("/sys/class/gpio/gpio62/value"), QByteArray("1\n"));

    // The pin is there now; the polarity is set every time.
    const Outcome second = m_rig->request(0x6143, "0100");
    QCOMPARE(second.line, QStringList("0004"));
    QCOMPARE(second.stores, QStringList({"gpio/gpio62/active_low=0", "gpio/gpio62/direction=out",
                                         "gpio/gpio62/value=0"}));
    QCOMPARE(second.log,
             QStringList("debug: In ATE Mode---, LCD Bias Power manipulation, was successfully "
                         "done!"));
    QCOMPARE(keypad.attribute("/sys/class/gpio/gpio62/value"), QByteArray("0\n"));
}

/// Only an open that fails stops the sequence.
void TestRequests::biasPowerRefusedStores()
{
    RigKeypad &keypad = m_rig->keypad;
    keypad.removeNode("/sys/class/gpio/gpio62");
    QCOMPARE(m_rig->request(0x6143, "0101").stores.size(), 4);
    const QString direction("/sys/class/gpio/gpio62/direction");
    keypad.fail(direction, SysfsModel::Write, EIO);
    const Outcome outcome = m_rig->request(0x6143, "0100");
    keypad.clearFault(direction);
    QCOMPARE(outcome.line, QStringList("0004"));
    QCOMPARE(outcome.stores,
             QStringList({"gpio/gpio62/active_low=0", "gpio/gpio62/direction=out refused",
                          "gpio/gpio62/value=0"}));
}

void TestRequests::refusedStores_data()
{
    QTest::addColumn<QString>("path");
    QTest::addColumn<int>("type");
    QTest::addColumn<QByteArray>("data");
    QTest::addColumn<QString>("store");
    QTest::newRow("backlight") << "/sys/class/backlight/mxs-bl/brightness" << 0x6143
                               << QByteArray("0064") << "backlight/mxs-bl/brightness=100 refused";
    QTest::newRow("buzzer") << "/sys/class/leds/buzzer/brightness" << 0x6147 << QByteArray("80FF")
                            << "leds/buzzer/brightness=127 refused";
    QTest::newRow("home LED") << "/sys/class/leds/home/brightness" << 0x7010 << QByteArray("64")
                              << "leds/home/brightness=255 refused";
    QTest::newRow("an LED") << "/sys/class/leds/ac/brightness" << 0x6144
                            << QByteArray("00080000000000") << "leds/ac/brightness=255 refused";
}

/// A store that the driver refuses is made once and reported nowhere.
void TestRequests::refusedStores()
{
    QFETCH(QString, path);
    QFETCH(int, type);
    QFETCH(QByteArray, data);
    QFETCH(QString, store);
    m_rig->keypad.fail(path, SysfsModel::Write, EINVAL);
    const Outcome outcome = m_rig->request(quint16(type), data);
    m_rig->keypad.clearFault(path);
    QCOMPARE(outcome.line, QStringList("0004"));
    QCOMPARE(outcome.log, QStringList());
    const QString file = store.left(store.indexOf('='));
    QCOMPARE(outcome.stores.filter(file), QStringList(store));
}

void TestRequests::missingLed()
{
    QVERIFY(m_rig->keypad.removeNode("/sys/class/leds/trouble"));
    const Outcome outcome = m_rig->request(0x6144, "000F0000000000");
    QCOMPARE(outcome.line, QStringList("0004"));
    QCOMPARE(outcome.log, QStringList("warning: Failed to open LED file"));
    QCOMPARE(outcome.stores, QStringList({"leds/ready/brightness=255", "leds/armed/brightness=255",
                                          "leds/ac/brightness=255"}));
}

/// What appears while the tool runs is used without a restart.
void TestRequests::createdLater()
{
    RigKeypad &keypad = m_rig->keypad;
    if (!keypad.hasNode("/sys/class/leds/trouble"))
        QVERIFY(keypad.addLed("trouble"));
    QCOMPARE(m_rig->request(0x6144, "00040000000000").stores, ledStores("0010"));
}

/// At the start every LED is lit, whatever it is called; a folder without a
/// brightness is named.
void TestRequests::allTheLedsThereAre()
{
    Rig rig;
    QVERIFY2(rig.keypad.prepare(), qPrintable(rig.keypad.errorString()));
    QVERIFY(rig.keypad.addLed("buzzer2"));
    QVERIFY(rig.keypad.addLed("Buzzer"));
    QVERIFY(rig.keypad.addAttribute("/sys/class/leds/odd/trigger", "none\n"));
    rig.keypad.fail("/sys/class/leds/armed/brightness", SysfsModel::Open, EACCES);
    rig.keypad.fail("/sys/class/leds/ac/brightness", SysfsModel::Write, EIO);
    rig.keypad.fail("/sys/class/gpio/sd_power/value", SysfsModel::Open, EACCES);
    QVERIFY2(rig.start(), qPrintable(rig.why()));
    QVERIFY(rig.station.waitForReady());

    QStringList stores = rig.settle().stores;
    stores.sort();
    QCOMPARE(stores, QStringList({"leds/Buzzer/brightness=255", "leds/ac/brightness=255 refused",
                                  "leds/buzzer2/brightness=255", "leds/home/brightness=255",
                                  "leds/ready/brightness=255", "leds/trouble/brightness=255"}));
    const QStringList log = rig.log();
    QStringList failures = log.filter("led file");
    failures.sort();
    QCOMPARE(failures,
             QStringList({"warning: Failed to open led file '/sys/class/leds/armed/brightness'",
                          "warning: Failed to open led file '/sys/class/leds/odd/brightness'"}));
    QVERIFY(log.contains("warning: In ATE Mode-->, Failed to open sd power file for writing"));
    QCOMPARE(log.filter("SD card Detection").size(), 0);
}

MFTOOL_TEST(TestRequests, EventLoop)
#include "tst_requests.moc"
