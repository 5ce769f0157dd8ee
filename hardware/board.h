/// The board's paths in one table. All units get their paths from it, and never learn
/// whether the files belong to a board or to a folder that plays one. (The flashing
/// programs' command lines are with their steps.)
#ifndef HARDWARE_BOARD_H
#define HARDWARE_BOARD_H

#include <QString>

class Board
{
public:
    enum Path {
        TestLine,         ///< serial line of the test station and of the QB740 module
        HomeKeyEvents,    ///< input event device of the home key
        BoardRevision,    ///< first line: board revision, decimal
        Backlight,        ///< brightness of the LCD backlight
        GpioExport,       ///< takes the number of a pin to hand to user space
        BiasActiveLow,    ///< LCD bias power, GPIO 62: polarity
        BiasDirection,    ///< LCD bias power: direction
        BiasValue,        ///< LCD bias power: value
        TamperActiveLow,  ///< enclosure tamper switch, GPIO 17: polarity
        TamperValue,      ///< enclosure tamper switch: value
        SdPowerValue,     ///< SD card power switch
        Leds,             ///< folder of all LED devices
        Buzzer,           ///< brightness file of the buzzer, an LED device to the kernel
        HomeLed,          ///< brightness file of the home button's LED
        BusVoltage,       ///< alarm bus supply voltage
        SdEvents,         ///< named pipe that reports SD cards
        TestImages,       ///< folder of the test images and the logo
        Version,          ///< firmware version of the running system
        MountedVersion,   ///< firmware version of the mounted NAND file system
        UpdateBase,       ///< folder of the update directories
        MountedEtc,       ///< exists only when the NAND file system is mounted
        MountedPointercal ///< calibration file on the mounted NAND file system
    };

    /// @param root  put before every path; empty on the board itself
    explicit Board(const QString &root = QString());

    /// The path of @p which, below the root.
    QString path(Path which) const;

    /// The brightness file of the LED device called @p name.
    QString ledBrightness(const QString &name) const;

private:
    QString m_root;
};

#endif
