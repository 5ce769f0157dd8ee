#include "serial/qtserialport.h"

#include <QSocketNotifier>
#include <QtDebug>

#include <cstring>

#include "serial/linesettings.h"
#include "serial/linuxport.h"

namespace
{

const int bufferCap = 256;

void setNotifierEnabled(QSocketNotifier *notifier, bool enabled)
{
    if (notifier)
        notifier->setEnabled(enabled);
}

void removeNotifier(QSocketNotifier *&notifier)
{
    delete notifier;
    notifier = nullptr;
}

} // namespace

QtSerialPort::QtSerialPort(const QString &name, QObject *parent)
    : QIODevice(parent), port(new LinuxPort), readNotifier(nullptr), writeNotifier(nullptr),
      exceptNotifier(nullptr), portName(name), baudRate(9600), dataBits(8), parity(0), stopBits(1)
{
}

bool QtSerialPort::isSequential() const
{
    return true;
}

LineSettings QtSerialPort::lineSettings() const
{
    LineSettings settings(portName);
    settings.baudRate = baudRate;
    settings.dataBits = dataBits;
    settings.parity = parity;
    settings.stopBits = stopBits;
    return settings;
}

bool QtSerialPort::open(OpenMode mode)
{
    if (mode == NotOpen)
        return isOpen();
    if (!isOpen()) {
        if (!port->open(mode, lineSettings()))
            return false;
        watchForRoom(port->handle());
        readBuffer.clear();
        writeBuffer.clear();
    }
    return QIODevice::open(mode);
}

void QtSerialPort::watchForRoom(int handle)
{
    if (handle < 0)
        return;
    writeNotifier = new QSocketNotifier(handle, QSocketNotifier::Write, this);
    // A line nearly always has room, which matters only while something is queued.
    writeNotifier->setEnabled(false);
    connect(writeNotifier, SIGNAL(activated(int)), SLOT(onWrite()));
}

void QtSerialPort::close()
{
    port->close();
    removeNotifier(readNotifier);
    removeNotifier(writeNotifier);
    removeNotifier(exceptNotifier);
    QIODevice::close();
}

bool QtSerialPort::atEnd() const
{
    return readBuffer.isEmpty();
}

qint64 QtSerialPort::bytesAvailable() const
{
    return readBuffer.size() + QIODevice::bytesAvailable();
}

qint64 QtSerialPort::bytesToWrite() const
{
    return writeBuffer.size();
}

bool QtSerialPort::canReadLine() const
{
    return readBuffer.contains('\n') || QIODevice::canReadLine();
}

bool QtSerialPort::waitForReadyRead(int)
{
    return false;
}

bool QtSerialPort::waitForBytesWritten(int)
{
    return false;
}

qint64 QtSerialPort::readData(char *data, qint64 maxSize)
{
    if (readBuffer.isEmpty())
        return isOpen() ? 0 : -1;
    const int count = static_cast<int>(qMin<qint64>(readBuffer.size(), maxSize));
    if (count <= 0)
        return 0;
    memcpy(data, readBuffer.constData(), static_cast<size_t>(count));
    readBuffer.remove(0, count);
    setNotifierEnabled(readNotifier, true);
    return count;
}

qint64 QtSerialPort::writeData(const char *data, qint64 size)
{
    if (!isOpen())
        return -1;

    // Nothing may overtake what is queued.
    qint64 written = 0;
    if (writeBuffer.isEmpty()) {
        written = port->write(data, size);
        if (written < 0) {
            close();
            return -1;
        }
    }

    const qint64 room = bufferCap - writeBuffer.size();
    const int queued = static_cast<int>(qMin(size - written, room));
    if (queued <= 0)
        return written;
    writeBuffer.append(data + written, queued);
    setNotifierEnabled(writeNotifier, true);
    return written + queued;
}

void QtSerialPort::onRead()
{
    const qint64 room = bufferCap - readBuffer.size();
    if (room > 0) {
        char received[bufferCap];
        const qint64 count = port->read(received, room);
        if (count < 0) {
            qDebug("An error occurred reading from the port");
            close();
        } else {
            readBuffer.append(received, static_cast<int>(count));
        }
        emit readyRead();
    }
    if (readBuffer.size() == bufferCap)
        setNotifierEnabled(readNotifier, false);
}

void QtSerialPort::onWrite()
{
    qDebug("%s", "onWrite");
    if (!writeBuffer.isEmpty()) {
        const qint64 count = port->write(writeBuffer.constData(), writeBuffer.size());
        if (count < 0) {
            qDebug("An error occurred writting to the port");
            close();
        } else {
            writeBuffer.remove(0, static_cast<int>(count));
        }
    }
    if (writeBuffer.isEmpty())
        setNotifierEnabled(writeNotifier, false);
}

void QtSerialPort::onExcept()
{
    qDebug("Got a serial port execption");
    close();
}
