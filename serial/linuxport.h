/// A serial port of a Linux system.
#ifndef SERIAL_LINUXPORT_H
#define SERIAL_LINUXPORT_H

#include "serial/iplatport.h"

/// A terminal device in raw mode, opened without blocking and without becoming
/// the controlling terminal; child processes do not get it. Messages go to the
/// debug log.
class LinuxPort : public IPlatPort
{
public:
    LinuxPort();

    /// Closes the port.
    ~LinuxPort() override;

    /// Unknown values are replaced silently: a speed by the next lower standard rate, a
    /// character size by 8, a parity by none.
    /// @return false when the device cannot be opened or is no terminal; the
    ///         reason is logged and the port stays closed
    bool open(QIODevice::OpenMode mode, const LineSettings &settings) override;
    void close() override;
    qint64 read(char *buffer, qint64 length) override;
    qint64 write(const char *buffer, qint64 length) override;
    bool isOpen() const override;
    int handle() const override;

private:
    Q_DISABLE_COPY(LinuxPort)

    int fd;
};

#endif
