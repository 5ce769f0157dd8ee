#include "bench/keypad/sysfsmodel.h"

#include <QtTest>

#include <cerrno>

#include "tests/support/testprogram.h"

class TestSysfsModel : public QObject
{
    Q_OBJECT

private slots:
    void boardAfterBooting();
    void classEntriesAreLinksToDevices();
    void linksAreFollowedOnTheWay();
    void ledStores_data();
    void ledStores();
    void ledMaximumOfItsOwn();
    void backlightStores_data();
    void backlightStores();
    void exportMakesThePin();
    void exportRefuses_data();
    void exportRefuses();
    void unexportForgetsThePolarity();
    void directionStores_data();
    void directionStores();
    void inputCannotBeWritten();
    void activeLowInvertsTheValue();
    void activeLowInvertsStores();
    void levelIsThereBeforeTheExport();
    void modesBindRootToo();
    void unknownAttributes();
    void faults();
    void faultsOnWhatDoesNotExistYet();
    void removedDeviceTakesItsLink();
    void removedAttribute();
    void addedAttributes();
    void addedLed();
    void textEndsAtNul();
};

namespace
{

const char ready[] = "/sys/class/leds/ready/brightness";
const char backlight[] = "/sys/class/backlight/mxs-bl/brightness";
const char exportFile[] = "/sys/class/gpio/export";
const char unexportFile[] = "/sys/class/gpio/unexport";

} // namespace

void TestSysfsModel::boardAfterBooting()
{
    const SysfsModel model;
    QCOMPARE(model.list("/sys"), QStringList({"board_revision", "class", "devices"}));
    QCOMPARE(model.list("/sys/class"), QStringList({"backlight", "gpio", "leds", "power_supply"}));
    QCOMPARE(model.list("/sys/class/leds"),
             QStringList({"ac", "armed", "buzzer", "home", "ready", "trouble"}));
    QCOMPARE(model.list("/sys/class/gpio"), QStringList({"export", "sd_power", "unexport"}));
    QCOMPARE(model.show("/sys/class/leds/buzzer/max_brightness"), QByteArray("255\n"));
    QCOMPARE(model.show("/sys/class/backlight/mxs-bl/max_brightness"), QByteArray("255\n"));
    QCOMPARE(model.show("/sys/board_revision/marlow_revision"), QByteArray("2"));
    QCOMPARE(model.show("/sys/class/power_supply/corlink/voltage_now"), QByteArray("12345\n"));
    QCOMPARE(model.show("/sys/class/gpio/sd_power/value"), QByteArray("0\n"));
    QCOMPARE(model.show("/sys/class/gpio/sd_power/direction"), QByteArray("out\n"));
}

void TestSysfsModel::classEntriesAreLinksToDevices()
{
    const SysfsModel model;
    const SysfsModel::Node link = model.node("/sys/class/leds/ready");
    QCOMPARE(link.type, SysfsModel::Link);
    QCOMPARE(link.target, QString("../../devices/platform/leds/leds/ready"));
    QCOMPARE(model.node("/sys/devices/platform/leds/leds/ready").type, SysfsModel::Folder);
    QCOMPARE(model.node("/sys/class/leds").type, SysfsModel::Folder);
    QCOMPARE(model.node(ready).type, SysfsModel::Attribute);
    QCOMPARE(model.node("/sys/class/leds/none").type, SysfsModel::None);
}

void TestSysfsModel::linksAreFollowedOnTheWay()
{
    SysfsModel model;
    QCOMPARE(model.store("/sys/devices/platform/leds/leds/ready/brightness", "7"), 0);
    QCOMPARE(model.show(ready), QByteArray("7\n"));
    QCOMPARE(model.classPath("/sys/devices/platform/leds/leds/ready/brightness"), QString(ready));
    QCOMPARE(model.classPath(exportFile), QString(exportFile));
}

void TestSysfsModel::ledStores_data()
{
    QTest::addColumn<QByteArray>("text");
    QTest::addColumn<int>("error");
    QTest::addColumn<QByteArray>("shown");
    QTest::newRow("on") << QByteArray("255") << 0 << QByteArray("255\n");
    QTest::newRow("off") << QByteArray("0") << 0 << QByteArray("0\n");
    QTest::newRow("with line end") << QByteArray("185\n") << 0 << QByteArray("185\n");
    QTest::newRow("plus") << QByteArray("+5") << 0 << QByteArray("5\n");
    QTest::newRow("clamped") << QByteArray("256") << 0 << QByteArray("255\n");
    QTest::newRow("far above") << QByteArray("4294967295") << 0 << QByteArray("255\n");
    QTest::newRow("negative") << QByteArray("-1") << EINVAL << QByteArray("3\n");
    QTest::newRow("word") << QByteArray("on") << EINVAL << QByteArray("3\n");
    QTest::newRow("nothing") << QByteArray("\n") << EINVAL << QByteArray("3\n");
    QTest::newRow("two line ends") << QByteArray("1\n\n") << EINVAL << QByteArray("3\n");
    QTest::newRow("blank before") << QByteArray(" 1") << EINVAL << QByteArray("3\n");
    QTest::newRow("blank after") << QByteArray("1 ") << EINVAL << QByteArray("3\n");
    QTest::newRow("sign and blank") << QByteArray("+ 1") << EINVAL << QByteArray("3\n");
    QTest::newRow("hexadecimal") << QByteArray("0x10") << EINVAL << QByteArray("3\n");
    QTest::newRow("too large for any")
        << QByteArray("99999999999999999999") << ERANGE << QByteArray("3\n");
}

void TestSysfsModel::ledStores()
{
    QFETCH(QByteArray, text);
    QFETCH(int, error);
    QFETCH(QByteArray, shown);
    SysfsModel model;
    QCOMPARE(model.store(ready, "3"), 0);
    QCOMPARE(model.store(ready, text), error);
    QCOMPARE(model.show(ready), shown);
}

void TestSysfsModel::ledMaximumOfItsOwn()
{
    SysfsModel model;
    QVERIFY(model.addLed("dim", 15));
    QCOMPARE(model.store("/sys/class/leds/dim/brightness", "255"), 0);
    QCOMPARE(model.show("/sys/class/leds/dim/brightness"), QByteArray("15\n"));
}

void TestSysfsModel::backlightStores_data()
{
    QTest::addColumn<QByteArray>("text");
    QTest::addColumn<int>("error");
    QTest::addColumn<QByteArray>("shown");
    QTest::newRow("a level") << QByteArray("60") << 0 << QByteArray("60\n");
    QTest::newRow("maximum") << QByteArray("255") << 0 << QByteArray("255\n");
    QTest::newRow("above") << QByteArray("256") << EINVAL << QByteArray("100\n");
    QTest::newRow("hexadecimal") << QByteArray("0x10") << 0 << QByteArray("16\n");
    QTest::newRow("word") << QByteArray("full") << EINVAL << QByteArray("100\n");
    QTest::newRow("negative") << QByteArray("-1") << EINVAL << QByteArray("100\n");
}

void TestSysfsModel::backlightStores()
{
    QFETCH(QByteArray, text);
    QFETCH(int, error);
    QFETCH(QByteArray, shown);
    SysfsModel model;
    QCOMPARE(model.store(backlight, text), error);
    QCOMPARE(model.show(backlight), shown);
}

void TestSysfsModel::exportMakesThePin()
{
    SysfsModel model;
    QCOMPARE(model.node("/sys/class/gpio/gpio62").type, SysfsModel::None);
    QCOMPARE(model.store(exportFile, "62"), 0);
    QCOMPARE(model.node("/sys/class/gpio/gpio62").type, SysfsModel::Link);
    QCOMPARE(model.list("/sys/class/gpio/gpio62"),
             QStringList({"active_low", "direction", "value"}));
    QCOMPARE(model.show("/sys/class/gpio/gpio62/direction"), QByteArray("in\n"));
    QCOMPARE(model.show("/sys/class/gpio/gpio62/active_low"), QByteArray("0\n"));
    QCOMPARE(model.show("/sys/class/gpio/gpio62/value"), QByteArray("0\n"));
    QCOMPARE(model.store(exportFile, "62"), EBUSY);
}

void TestSysfsModel::exportRefuses_data()
{
    QTest::addColumn<QByteArray>("text");
    QTest::newRow("word") << QByteArray("gpio62");
    QTest::newRow("negative") << QByteArray("-1");
    QTest::newRow("no such pin") << QByteArray("160");
}

void TestSysfsModel::exportRefuses()
{
    QFETCH(QByteArray, text);
    SysfsModel model;
    QCOMPARE(model.store(exportFile, text), EINVAL);
    QCOMPARE(model.list("/sys/class/gpio"), QStringList({"export", "sd_power", "unexport"}));
}

void TestSysfsModel::unexportForgetsThePolarity()
{
    SysfsModel model;
    QCOMPARE(model.store(unexportFile, "62"), EINVAL);
    QCOMPARE(model.store(exportFile, "62\n"), 0);
    QCOMPARE(model.store("/sys/class/gpio/gpio62/active_low", "1"), 0);
    QCOMPARE(model.store(unexportFile, "62"), 0);
    QCOMPARE(model.node("/sys/class/gpio/gpio62").type, SysfsModel::None);
    QCOMPARE(model.store("/sys/class/gpio/gpio62/active_low", "1"), ENODEV);
    QCOMPARE(model.store(exportFile, "62"), 0);
    QCOMPARE(model.show("/sys/class/gpio/gpio62/active_low"), QByteArray("0\n"));
}

void TestSysfsModel::directionStores_data()
{
    QTest::addColumn<QByteArray>("text");
    QTest::addColumn<int>("error");
    QTest::addColumn<QByteArray>("direction");
    QTest::addColumn<QByteArray>("value");
    QTest::newRow("out") << QByteArray("out") << 0 << QByteArray("out\n") << QByteArray("0\n");
    QTest::newRow("low") << QByteArray("low") << 0 << QByteArray("out\n") << QByteArray("0\n");
    QTest::newRow("high") << QByteArray("high\n") << 0 << QByteArray("out\n") << QByteArray("1\n");
    QTest::newRow("in") << QByteArray("in") << 0 << QByteArray("in\n") << QByteArray("1\n");
    QTest::newRow("else") << QByteArray("1") << EINVAL << QByteArray("in\n") << QByteArray("1\n");
}

void TestSysfsModel::directionStores()
{
    QFETCH(QByteArray, text);
    QFETCH(int, error);
    QFETCH(QByteArray, direction);
    QFETCH(QByteArray, value);
    SysfsModel model;
    QCOMPARE(model.store(exportFile, "62"), 0);
    QVERIFY(model.set("/sys/class/gpio/gpio62/value", "1"));
    QCOMPARE(model.store("/sys/class/gpio/gpio62/direction", text), error);
    QCOMPARE(model.show("/sys/class/gpio/gpio62/direction"), direction);
    QCOMPARE(model.show("/sys/class/gpio/gpio62/value"), value);
}

void TestSysfsModel::inputCannotBeWritten()
{
    SysfsModel model;
    QCOMPARE(model.store(exportFile, "17"), 0);
    QCOMPARE(model.store("/sys/class/gpio/gpio17/value", "1"), EPERM);
    QCOMPARE(model.store("/sys/class/gpio/gpio17/direction", "out"), 0);
    QCOMPARE(model.store("/sys/class/gpio/gpio17/value", "1"), 0);
    QCOMPARE(model.store("/sys/class/gpio/gpio17/value", "high"), EINVAL);
    QCOMPARE(model.show("/sys/class/gpio/gpio17/value"), QByteArray("1\n"));
}

void TestSysfsModel::activeLowInvertsTheValue()
{
    SysfsModel model;
    QCOMPARE(model.store(exportFile, "17"), 0);
    QVERIFY(model.set("/sys/class/gpio/gpio17/value", "1"));
    QCOMPARE(model.show("/sys/class/gpio/gpio17/value"), QByteArray("1\n"));
    QCOMPARE(model.store("/sys/class/gpio/gpio17/active_low", "1"), 0);
    QCOMPARE(model.show("/sys/class/gpio/gpio17/value"), QByteArray("0\n"));
    QVERIFY(model.set("/sys/class/gpio/gpio17/value", "0"));
    QCOMPARE(model.show("/sys/class/gpio/gpio17/value"), QByteArray("1\n"));
    QCOMPARE(model.store("/sys/class/gpio/gpio17/active_low", "0"), 0);
    QCOMPARE(model.show("/sys/class/gpio/gpio17/value"), QByteArray("0\n"));
    QCOMPARE(model.store("/sys/class/gpio/gpio17/active_low", "low"), EINVAL);
}

void TestSysfsModel::activeLowInvertsStores()
{
    SysfsModel model;
    QCOMPARE(model.store(exportFile, "62"), 0);
    QCOMPARE(model.store("/sys/class/gpio/gpio62/direction", "out"), 0);
    QCOMPARE(model.store("/sys/class/gpio/gpio62/active_low", "1"), 0);
    QCOMPARE(model.store("/sys/class/gpio/gpio62/value", "1"), 0);
    QCOMPARE(model.show("/sys/class/gpio/gpio62/value"), QByteArray("1\n"));
    QCOMPARE(model.store("/sys/class/gpio/gpio62/active_low", "0"), 0);
    QCOMPARE(model.show("/sys/class/gpio/gpio62/value"), QByteArray("0\n"));
}

void TestSysfsModel::levelIsThereBeforeTheExport()
{
    SysfsModel model;
    QVERIFY(model.set("/sys/class/gpio/gpio17/value", "1"));
    QCOMPARE(model.node("/sys/class/gpio/gpio17/value").type, SysfsModel::None);
    QCOMPARE(model.store(exportFile, "17"), 0);
    QCOMPARE(model.show("/sys/class/gpio/gpio17/value"), QByteArray("1\n"));
}

void TestSysfsModel::modesBindRootToo()
{
    const SysfsModel model;
    const QString voltage = "/sys/class/power_supply/corlink/voltage_now";
    QCOMPARE(model.open(voltage, true, false), 0);
    QCOMPARE(model.open(voltage, false, true), EACCES);
    QCOMPARE(model.open(voltage, true, true), EACCES);
    QCOMPARE(model.open(exportFile, false, true), 0);
    QCOMPARE(model.open(exportFile, true, false), EACCES);
    QCOMPARE(model.open(ready, true, true), 0);
}

void TestSysfsModel::unknownAttributes()
{
    SysfsModel model;
    QCOMPARE(model.open("/sys/class/leds/ready/colour", true, false), ENOENT);
    QCOMPARE(model.open("/sys/class/leds/none/brightness", false, true), ENOENT);
    QCOMPARE(model.open("/sys/class/leds", true, false), EISDIR);
    QVERIFY(!model.set("/sys/class/leds/ready/colour", "1"));
    int error = 0;
    model.show("/sys/class/leds/none/brightness", &error);
    QCOMPARE(error, ENODEV);
}

void TestSysfsModel::faults()
{
    SysfsModel model;
    model.fail(ready, SysfsModel::Open, EMFILE);
    QCOMPARE(model.open(ready, false, true), EMFILE);
    QCOMPARE(model.open("/sys/devices/platform/leds/leds/ready/brightness", true, false), EMFILE);
    QCOMPARE(model.open("/sys/class/leds/armed/brightness", false, true), 0);
    model.fail(ready, SysfsModel::Read, EIO);
    int error = 0;
    QCOMPARE(model.show(ready, &error), QByteArray());
    QCOMPARE(error, EIO);
    model.fail(ready, SysfsModel::Write, EREMOTEIO);
    QCOMPARE(model.store(ready, "1"), EREMOTEIO);
    model.clearFault(ready);
    QCOMPARE(model.open(ready, false, true), 0);
    QCOMPARE(model.show(ready, &error), QByteArray("0\n"));
    QCOMPARE(error, 0);
    QCOMPARE(model.store(ready, "1"), 0);
}

void TestSysfsModel::faultsOnWhatDoesNotExistYet()
{
    SysfsModel model;
    model.fail("/sys/class/gpio/gpio62/direction", SysfsModel::Open, EIO);
    QCOMPARE(model.open("/sys/class/gpio/gpio62/direction", false, true), ENOENT);
    QCOMPARE(model.store(exportFile, "62"), 0);
    QCOMPARE(model.open("/sys/class/gpio/gpio62/direction", false, true), EIO);
}

void TestSysfsModel::removedDeviceTakesItsLink()
{
    SysfsModel model;
    QVERIFY(model.remove("/sys/class/leds/trouble"));
    QCOMPARE(model.node("/sys/class/leds/trouble").type, SysfsModel::None);
    QCOMPARE(model.node("/sys/devices/platform/leds/leds/trouble").type, SysfsModel::None);
    QCOMPARE(model.node(ready).type, SysfsModel::Attribute);
    QVERIFY(!model.remove("/sys/class/leds/trouble"));
    QVERIFY(!model.remove("/sys"));
    QVERIFY(model.addLed("trouble", 255));
    QCOMPARE(model.node("/sys/class/leds/trouble").type, SysfsModel::Link);
}

void TestSysfsModel::removedAttribute()
{
    SysfsModel model;
    QVERIFY(model.remove("/sys/class/backlight/mxs-bl/brightness"));
    QCOMPARE(model.open(backlight, false, true), ENOENT);
    QCOMPARE(model.node("/sys/class/backlight/mxs-bl").type, SysfsModel::Link);
}

void TestSysfsModel::addedAttributes()
{
    SysfsModel model;
    QVERIFY(model.addAttribute("/sys/class/leds/ready/trigger", "none\n"));
    QCOMPARE(model.show("/sys/devices/platform/leds/leds/ready/trigger"), QByteArray("none\n"));
    QCOMPARE(model.store("/sys/class/leds/ready/trigger", "timer"), 0);
    QCOMPARE(model.show("/sys/class/leds/ready/trigger"), QByteArray("timer"));
    QVERIFY(model.addAttribute("/sys/kernel/some/thing", "1"));
    QCOMPARE(model.list("/sys/kernel/some"), QStringList("thing"));
    QVERIFY(!model.addAttribute("/etc/passwd", "1"));
    QVERIFY(!model.addAttribute("/sys/class/leds/ready/brightness/x", "1"));
}

void TestSysfsModel::addedLed()
{
    SysfsModel model;
    QVERIFY(model.addLed("spare", 1));
    QVERIFY(!model.addLed("spare", 1));
    QVERIFY(!model.addLed("a/b", 1));
    QVERIFY(model.list("/sys/class/leds").contains("spare"));
}

void TestSysfsModel::textEndsAtNul()
{
    SysfsModel model;
    QCOMPARE(model.store(ready, QByteArray("12\0junk", 7)), 0);
    QCOMPARE(model.show(ready), QByteArray("12\n"));
}

MFTOOL_TEST(TestSysfsModel, NoApplication)
#include "tst_sysfsmodel.moc"
