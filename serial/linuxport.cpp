#include "serial/linuxport.h"

#include <QtDebug>

#include <cerrno>
#include <cstring>

#include <fcntl.h>
#include <termios.h>
#include <unistd.h>

#include "serial/linesettings.h"

namespace
{

struct Speed {
    int rate;
    speed_t code;
};

/// The standard rates, highest first.
const Speed speeds[] = {
    {4000000, B4000000},
    {3500000, B3500000},
    {3000000, B3000000},
    {2500000, B2500000},
    {2000000, B2000000},
    {1500000, B1500000},
    {1152000, B1152000},
    {1000000, B1000000},
    {921600, B921600},
    {576000, B576000},
    {500000, B500000},
    {460800, B460800},
    {230400, B230400},
    {115200, B115200},
    {57600, B57600},
    {38400, B38400},
    {19200, B19200},
    {9600, B9600},
    {4800, B4800},
    {2400, B2400},
    {1800, B1800},
    {1200, B1200},
    {600, B600},
    {300, B300},
    {200, B200},
    {150, B150},
    {134, B134},
    {110, B110},
    {75, B75},
    {50, B50},
    {0, B0},
};

tcflag_t speedFlags(int baudRate)
{
    for (const Speed &speed : speeds) {
        if (speed.rate <= baudRate)
            return speed.code;
    }
    return B0;
}

tcflag_t sizeFlags(int dataBits)
{
    switch (dataBits) {
    case 5:
        return CS5;
    case 6:
        return CS6;
    case 7:
        return CS7;
    default:
        return CS8;
    }
}

tcflag_t parityFlags(int parity)
{
    switch (parity) {
    case 1:
        return PARENB;
    case 2:
        return PARENB | PARODD;
    default:
        return 0;
    }
}

tcflag_t stopFlags(int stopBits)
{
    return stopBits > 1 ? CSTOPB : 0;
}

int openFlags(QIODevice::OpenMode mode)
{
    int flags = O_NOCTTY | O_NONBLOCK;
    if ((mode & QIODevice::ReadWrite) == QIODevice::ReadWrite)
        flags |= O_RDWR;
    else if (mode & QIODevice::WriteOnly)
        flags |= O_WRONLY;
    else
        flags |= O_RDONLY;
    if (mode & QIODevice::Append)
        flags |= O_APPEND;
    if (mode & QIODevice::Truncate)
        flags |= O_TRUNC;
    return flags;
}

/// A raw line: no echo, no line editing, no signals, every byte as it is.
termios lineRecord(const LineSettings &settings)
{
    termios record = termios();
    record.c_iflag = IGNPAR;
    record.c_cflag = CREAD | CLOCAL | speedFlags(settings.baudRate) | sizeFlags(settings.dataBits) |
                     parityFlags(settings.parity) | stopFlags(settings.stopBits);
    record.c_cc[VMIN] = 1;
    record.c_cc[VTIME] = 0;
    return record;
}

} // namespace

LinuxPort::LinuxPort() : fd(-1) {}

LinuxPort::~LinuxPort()
{
    LinuxPort::close();
}

bool LinuxPort::open(QIODevice::OpenMode mode, const LineSettings &settings)
{
    if (isOpen())
        return true;

    const QByteArray path = settings.portName.toLocal8Bit();
    fd = ::open(path.constData(), openFlags(mode));
    if (!isOpen()) {
        qDebug("Failed to open %s: %s", path.constData(), strerror(errno));
        return false;
    }
    // A flashing program that outlives the tool would hold the line open, and the
    // station would see no hang-up.
    fcntl(fd, F_SETFD, FD_CLOEXEC);

    const termios record = lineRecord(settings);
    tcflush(fd, TCIFLUSH);
    if (tcsetattr(fd, TCSANOW, &record) != 0) {
        qDebug("Unable to write serial port settings\n");
        close();
        return false;
    }

    qDebug("%s opened and configured for speed %d\n", path.constData(), settings.baudRate);
    return true;
}

void LinuxPort::close()
{
    if (!isOpen())
        return;
    ::close(fd);
    fd = -1;
}

qint64 LinuxPort::read(char *buffer, qint64 length)
{
    if (!isOpen())
        return -1;
    return ::read(fd, buffer, static_cast<size_t>(length));
}

qint64 LinuxPort::write(const char *buffer, qint64 length)
{
    if (!isOpen())
        return -1;
    return ::write(fd, buffer, static_cast<size_t>(length));
}

bool LinuxPort::isOpen() const
{
    return fd >= 0;
}

int LinuxPort::handle() const
{
    return fd;
}
