/// A serial line as a Qt device.
#ifndef SERIAL_QTSERIALPORT_H
#define SERIAL_QTSERIALPORT_H

#include <QByteArray>
#include <QIODevice>
#include <QString>

class IPlatPort;
class QSocketNotifier;
struct LineSettings;

/// Gives an IPlatPort the interface of a sequential QIODevice, with at most 256 bytes of
/// its own buffered in each direction; QIODevice buffers what is read as well. Nothing
/// here waits for bytes, but the kernel may hold up close() until the line has taken what
/// was written.
///
/// open() makes only a write notifier, which sends what the line did not take at once. A
/// read notifier would take the bytes of the test station's protocol, which reads the
/// same line through a descriptor of its own. So this device configures the line and
/// writes to it, and emits no readyRead(). The other slots are for a device that also
/// reads, with its other notifiers set.
class QtSerialPort : public QIODevice
{
    Q_OBJECT

public:
    /// A closed device at 9600 bit/s, 8 data bits, no parity, 1 stop bit.
    /// @param portName  path of the terminal device
    explicit QtSerialPort(const QString &portName, QObject *parent = nullptr);

    bool isSequential() const override;

    /// Applies the line settings and empties the buffers, unless the device is
    /// open already.
    /// @return false when the port cannot be opened; the port logs why
    bool open(OpenMode mode) override;

    /// What is buffered stays there until the next open().
    void close() override;

    /// True when nothing received is buffered, though more may arrive.
    bool atEnd() const override;
    qint64 bytesAvailable() const override;
    qint64 bytesToWrite() const override;
    bool canReadLine() const override;

    /// False at once.
    bool waitForReadyRead(int msecs) override;

    /// False at once.
    bool waitForBytesWritten(int msecs) override;

protected:
    /// Takes what is buffered; never reads from the port itself.
    /// @return the count of bytes, 0 when nothing is buffered, -1 when it is closed as
    ///         well
    qint64 readData(char *data, qint64 maxSize) override;

    /// Writes to the port and buffers what it did not take at once.
    /// @return the count of bytes written or buffered, fewer than @p size when
    ///         the buffer is full; -1 when closed, or when the port failed,
    ///         which closes the device
    qint64 writeData(const char *data, qint64 size) override;

protected slots:
    /// There are bytes to read: moves them to the read buffer. Emits readyRead().
    void onRead();

    /// There is room to write: hands the write buffer to the port.
    void onWrite();

    /// The line is in an exceptional condition: closes the device.
    void onExcept();

protected:
    /// Outlives this device: it is neither closed nor deleted by the destructor.
    IPlatPort *port;

    /// Null, or owned by this device while it is open; close() deletes them.
    QSocketNotifier *readNotifier;
    QSocketNotifier *writeNotifier;
    QSocketNotifier *exceptNotifier;

public:
    // The line settings. They take effect when the device is opened.
    QString portName; ///< path of the terminal device
    int baudRate;     ///< bits per second
    int dataBits;     ///< 5 to 8
    int parity;       ///< 0 none, 1 even, 2 odd
    int stopBits;     ///< 1 or 2

protected:
    QByteArray readBuffer;  ///< received and not yet taken by the reader
    QByteArray writeBuffer; ///< accepted and not yet written

private:
    void watchForRoom(int handle);

private:
    LineSettings lineSettings() const;
};

#endif
