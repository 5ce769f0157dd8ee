/// How a serial line is set.
#ifndef SERIAL_LINESETTINGS_H
#define SERIAL_LINESETTINGS_H

#include <QString>

struct LineSettings {
    /// 9600 bit/s, 8 data bits, no parity, 1 stop bit.
    explicit LineSettings(const QString &name)
        : portName(name), baudRate(9600), dataBits(8), parity(0), stopBits(1)
    {
    }

    QString portName; ///< path of the terminal device
    int baudRate;     ///< bits per second
    int dataBits;     ///< 5 to 8
    int parity;       ///< 0 none, 1 even, 2 odd
    int stopBits;     ///< 1 or 2
};

#endif
