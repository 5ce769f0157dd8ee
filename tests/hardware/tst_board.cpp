// The board's paths, as the kernel and the other programs of the board have them.
#include "hardware/board.h"

#include <QtTest>

#include "tests/support/testprogram.h"

class TestBoard : public QObject
{
    Q_OBJECT

private slots:
    void paths_data();
    void paths();
    void root();
    void leds();
};

void TestBoard::paths_data()
{
    QTest::addColumn<int>("which");
    QTest::addColumn<QString>("path");
    const struct {
        Board::Path which;
        const char *path;
    } rows[] = {
        {Board::TestLine, "/dev/ttySP0"},
        {Board::HomeKeyEvents, "/dev/input/event0"},
        {Board::BoardRevision, "/sys/board_revision/marlow_revision"},
        {Board::Backlight, "/sys/class/backlight/mxs-bl/brightness"},
        {Board::GpioExport, "/sys/class/gpio/export"},
        {Board::BiasActiveLow, "/sys/class/gpio/gpio62/active_low"},
        {Board::BiasDirection, "/sys/class/gpio/gpio62/direction"},
        {Board::BiasValue, "/sys/class/gpio/gpio62/value"},
        {Board::TamperActiveLow, "/sys/class/gpio/gpio17/active_low"},
        {Board::TamperValue, "/sys/class/gpio/gpio17/value"},
        {Board::SdPowerValue, "/sys/class/gpio/sd_power/value"},
        {Board::Leds, "/sys/class/leds"},
        {Board::Buzzer, "/sys/class/leds/buzzer/brightness"},
        {Board::HomeLed, "/sys/class/leds/home/brightness"},
        {Board::BusVoltage, "/sys/class/power_supply/corlink/voltage_now"},
        {Board::SdEvents, "/tmp/sdstat"},
        {Board::TestImages, "/home/default"},
        {Board::Version, "/usr/lib/panel/version"},
        {Board::MountedVersion, "/mnt/usr/lib/panel/version"},
        {Board::UpdateBase, "/boot"},
        {Board::MountedEtc, "/mnt/etc"},
        {Board::MountedPointercal, "/mnt/etc/pointercal"},
    };
    for (const auto &row : rows)
        QTest::newRow(row.path) << int(row.which) << QString(row.path);
}

void TestBoard::paths()
{
    QFETCH(int, which);
    QTEST(Board().path(static_cast<Board::Path>(which)), "path");
}

void TestBoard::root()
{
    QCOMPARE(Board("/somewhere").path(Board::TestLine), QString("/somewhere/dev/ttySP0"));
}

void TestBoard::leds()
{
    QCOMPARE(Board().ledBrightness("ac"), QString("/sys/class/leds/ac/brightness"));
    // A name that looks like a placeholder stays a name.
    QCOMPARE(Board("/%2").ledBrightness("%1"), QString("/%2/sys/class/leds/%1/brightness"));
}

MFTOOL_TEST(TestBoard, NoApplication)
#include "tst_board.moc"
