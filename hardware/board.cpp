#include "hardware/board.h"

namespace
{

struct Row {
    Board::Path which;
    const char *path;
};

const Row table[] = {
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

} // namespace

Board::Board(const QString &root) : m_root(root) {}

QString Board::path(Path which) const
{
    for (const Row &row : table) {
        if (row.which == which)
            return m_root + QLatin1String(row.path);
    }
    return QString();
}

QString Board::ledBrightness(const QString &name) const
{
    return QString::fromLatin1("%1/%2/brightness").arg(path(Leds), name);
}
