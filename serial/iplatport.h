/// A serial port as the operating system offers it.
#ifndef SERIAL_IPLATPORT_H
#define SERIAL_IPLATPORT_H

#include <QIODevice>

struct LineSettings;

/// Moves raw bytes between its owner and a terminal device. Nothing here waits
/// or buffers; QtSerialPort does what Qt's streams need beyond that.
class IPlatPort
{
public:
    virtual ~IPlatPort();

    /// Opens the device that @p settings name and sets its line.
    /// @return true when the port is open; one that was open already stays as it is
    virtual bool open(QIODevice::OpenMode mode, const LineSettings &settings) = 0;

    /// Does nothing when the port is closed.
    virtual void close() = 0;

    /// One attempt to take up to @p length bytes.
    /// @return the count of bytes; negative on an error, also when nothing is
    ///         waiting or the port is closed
    virtual qint64 read(char *buffer, qint64 length) = 0;

    /// One attempt to hand over @p length bytes.
    /// @return the count of bytes taken, which may be smaller; negative on an
    ///         error, also when there is no room or the port is closed
    virtual qint64 write(const char *buffer, qint64 length) = 0;

    virtual bool isOpen() const = 0;

    /// The descriptor to wait on, -1 when the port is closed.
    virtual int handle() const = 0;
};

#endif
