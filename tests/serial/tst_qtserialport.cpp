#include <QMetaMethod>
#include <QSocketNotifier>
#include <QTextStream>
#include <QtTest>

#include <sys/socket.h>
#include <unistd.h>

#include "serial/linesettings.h"
#include "serial/linuxport.h"
#include "serial/qtserialport.h"
#include "tests/support/anyqt.h"
#include "tests/support/logcatcher.h"
#include "tests/support/onsignal.h"
#include "tests/support/ptyline.h"
#include "tests/support/testprogram.h"

namespace
{

/// A port that does what it is told and remembers what was asked of it.
class FakePort : public IPlatPort
{
public:
    ~FakePort() override { ++deleted; }

    bool open(QIODevice::OpenMode mode, const LineSettings &settings) override
    {
        ++opened;
        lastMode = mode;
        lastSettings = QStringLiteral("%1 %2 %3 %4 %5")
                           .arg(settings.portName)
                           .arg(settings.baudRate)
                           .arg(settings.dataBits)
                           .arg(settings.parity)
                           .arg(settings.stopBits);
        isUp = opens;
        return opens;
    }

    void close() override
    {
        ++closed;
        isUp = false;
    }

    qint64 read(char *buffer, qint64 length) override
    {
        asked.append(length);
        if (failsReading)
            return -1;
        const QByteArray now = incoming.left(int(length));
        memcpy(buffer, now.constData(), size_t(now.size()));
        incoming.remove(0, now.size());
        return now.size();
    }

    qint64 write(const char *buffer, qint64 length) override
    {
        offered.append(QByteArray(buffer, int(length)));
        if (failsWriting)
            return -1;
        const qint64 taken = qMin(length, accepts);
        outgoing.append(buffer, int(taken));
        return taken;
    }

    bool isOpen() const override { return isUp; }

    int handle() const override
    {
        ++handleAsked;
        return -1; // nothing to wait on
    }

    bool opens = true;
    bool failsReading = false;
    bool failsWriting = false;
    qint64 accepts = 1 << 20; ///< how much one write takes

    bool isUp = false;
    int opened = 0;
    int closed = 0;
    int deleted = 0;
    mutable int handleAsked = 0;
    QIODevice::OpenMode lastMode = QIODevice::NotOpen;
    QString lastSettings;
    QByteArray incoming;
    QByteArray outgoing;
    QList<qint64> asked;       ///< length of each read
    QList<QByteArray> offered; ///< bytes of each write
};

/// The device on a fake port, with its inside laid open.
class Device : public QtSerialPort
{
public:
    explicit Device(IPlatPort *fake) : QtSerialPort(QStringLiteral("/dev/fake"))
    {
        delete port;
        port = fake;
    }

    using QtSerialPort::exceptNotifier;
    using QtSerialPort::port;
    using QtSerialPort::readBuffer;
    using QtSerialPort::readData;
    using QtSerialPort::readNotifier;
    using QtSerialPort::writeBuffer;
    using QtSerialPort::writeData;
    using QtSerialPort::writeNotifier;

    using QtSerialPort::onExcept;
    using QtSerialPort::onRead;
    using QtSerialPort::onWrite;
};

/// Two connected descriptors for notifiers to watch.
class Pair
{
public:
    Pair()
    {
        if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK, 0, m_ends) != 0)
            qFatal("no socket pair");
    }
    ~Pair()
    {
        ::close(m_ends[0]);
        ::close(m_ends[1]);
    }
    Q_DISABLE_COPY(Pair)

    int near() const { return m_ends[0]; }
    int far() const { return m_ends[1]; }

    /// True when the far end could send all of @p bytes.
    bool send(const QByteArray &bytes) const
    {
        return ::write(far(), bytes.constData(), size_t(bytes.size())) == bytes.size();
    }

private:
    int m_ends[2];
};

/// A device that is open as long as it lives.
class OpenDevice : public Device
{
public:
    explicit OpenDevice(FakePort *fake) : Device(fake)
    {
        QVERIFY(QtSerialPort::open(QIODevice::ReadWrite));
    }
    /// Removes its notifiers before what they watch is gone.
    ~OpenDevice() override { QtSerialPort::close(); }

    /// One to put into the device, which then owns it.
    QSocketNotifier *newNotifier(QSocketNotifier::Type type) const
    {
        return new QSocketNotifier(m_watched.near(), type);
    }

private:
    Pair m_watched;
};

/// A port over one end of a Pair: notifiers of the other end really fire.
class PairPort : public IPlatPort
{
public:
    explicit PairPort(int descriptor) : m_descriptor(descriptor) {}
    bool open(QIODevice::OpenMode, const LineSettings &) override { return true; }
    void close() override {}
    qint64 read(char *buffer, qint64 length) override
    {
        return failsReading ? -1 : ::read(m_descriptor, buffer, size_t(length));
    }
    qint64 write(const char *buffer, qint64 length) override
    {
        return ::write(m_descriptor, buffer, size_t(length));
    }
    bool isOpen() const override { return true; }
    int handle() const override { return m_descriptor; }

    bool failsReading = false;

private:
    int m_descriptor;
};

QByteArray filled(int size)
{
    QByteArray bytes;
    for (int i = 0; i < size; ++i)
        bytes.append(char('a' + i % 26));
    return bytes;
}

} // namespace

class TestQtSerialPort : public QObject
{
    Q_OBJECT

private slots:
    void metaObject();
    void initialValues();

    void openPassesTheSettings();
    void openFails();
    void openNotOpen();
    void openWhileOpen();
    void openClearsTheBuffers();
    void openMakesAWriteNotifierAlone();
    void openWithoutADescriptorMakesNone();

    void closeRemovesNotifiers();
    void closeKeepsTheBuffers();
    void destructorLeavesThePort();

    void sequential();
    void waitingReturnsAtOnce();

    void readNothing();
    void readPart();
    void readThroughTheDevice();
    void linesThroughTheDevice();
    void canReadLine();
    void bytesAvailable();

    void writeTakenWhole();
    void writeTakenInPart_data();
    void writeTakenInPart();
    void writeBehindQueuedBytes();
    void writeBeyondTheCap();
    void writeWithFullBuffer();
    void writeFails();
    void writeWhenClosed();
    void writeWithoutRoom();
    void writeFromTextStream();

    void onReadTakesWhatFits();
    void onReadNothingCame();
    void onReadFillsUp();
    void onReadFull();
    void onReadFails();
    void onReadEmptiedByTheReader();

    void onWriteSendsTheQueue();
    void onWritePart();
    void onWriteNothingTaken();
    void onWriteEmpty();
    void onWriteFails();

    void onExcept();

    void slotsWithoutNotifiers();
    void notifiersThatFire();
    void notifierDeletedFromItsOwnSignal();

    void onARealLine();
    void stealsNoBytes();
    void queuedBytesFollow();
};

void TestQtSerialPort::metaObject()
{
    const QMetaObject &meta = QtSerialPort::staticMetaObject;
    QCOMPARE(meta.className(), "QtSerialPort");
    QCOMPARE(meta.superClass(), &QIODevice::staticMetaObject);
    QStringList methods;
    for (int i = meta.methodOffset(); i < meta.methodCount(); ++i) {
        QCOMPARE(meta.method(i).methodType(), QMetaMethod::Slot);
        QCOMPARE(meta.method(i).access(), QMetaMethod::Protected);
        methods.append(QString::fromLatin1(signatureOf(meta.method(i))));
    }
    QCOMPARE(methods, QStringList() << "onRead()"
                                    << "onWrite()"
                                    << "onExcept()");
}

void TestQtSerialPort::initialValues()
{
    QObject parent;
    FakePort port;
    Device device(&port);
    QCOMPARE(device.portName, QStringLiteral("/dev/fake"));
    QCOMPARE(device.baudRate, 9600);
    QCOMPARE(device.dataBits, 8);
    QCOMPARE(device.parity, 0);
    QCOMPARE(device.stopBits, 1);
    QVERIFY(!device.isOpen());
    QVERIFY(device.readBuffer.isEmpty());
    QVERIFY(device.writeBuffer.isEmpty());
    QVERIFY(!device.readNotifier);
    QVERIFY(!device.writeNotifier);
    QVERIFY(!device.exceptNotifier);
    QCOMPARE(port.opened, 0);

    QtSerialPort *child = new QtSerialPort(QStringLiteral("/dev/other"), &parent);
    QCOMPARE(child->parent(), &parent);
    QCOMPARE(child->portName, QStringLiteral("/dev/other"));
}

void TestQtSerialPort::openPassesTheSettings()
{
    FakePort port;
    Device device(&port);
    device.portName = QStringLiteral("/dev/line");
    device.baudRate = 38400;
    device.dataBits = 7;
    device.parity = 2;
    device.stopBits = 2;
    QVERIFY(device.open(QIODevice::ReadWrite));
    QVERIFY(device.isOpen());
    QCOMPARE(device.openMode(), QIODevice::OpenMode(QIODevice::ReadWrite));
    QCOMPARE(port.opened, 1);
    QCOMPARE(port.lastMode, QIODevice::OpenMode(QIODevice::ReadWrite));
    QCOMPARE(port.lastSettings, QStringLiteral("/dev/line 38400 7 2 2"));
    QCOMPARE(port.handleAsked, 1);
}

void TestQtSerialPort::openFails()
{
    FakePort port;
    Device device(&port);
    port.opens = false;
    device.writeBuffer = "old";
    QVERIFY(!device.open(QIODevice::ReadWrite));
    QVERIFY(!device.isOpen());
    QCOMPARE(port.handleAsked, 0);
    QCOMPARE(device.writeBuffer, QByteArray("old"));
}

void TestQtSerialPort::openNotOpen()
{
    FakePort port;
    Device device(&port);
    QVERIFY(!device.open(QIODevice::NotOpen));
    QVERIFY(!device.isOpen());
    QCOMPARE(port.opened, 0);

    QVERIFY(device.open(QIODevice::ReadWrite));
    device.readBuffer = "r";
    QVERIFY(device.open(QIODevice::NotOpen));
    QCOMPARE(device.openMode(), QIODevice::OpenMode(QIODevice::ReadWrite));
    QCOMPARE(device.readBuffer, QByteArray("r"));
    QCOMPARE(port.opened, 1);
    QCOMPARE(port.closed, 0);
}

void TestQtSerialPort::openWhileOpen()
{
    FakePort port;
    Device device(&port);
    QVERIFY(device.open(QIODevice::ReadWrite));
    device.readBuffer = "r";
    device.writeBuffer = "w";
    QVERIFY(device.open(QIODevice::WriteOnly));
    QCOMPARE(device.openMode(), QIODevice::OpenMode(QIODevice::WriteOnly));
    QCOMPARE(port.opened, 1);
    QCOMPARE(port.handleAsked, 1);
    QCOMPARE(device.readBuffer, QByteArray("r"));
    QCOMPARE(device.writeBuffer, QByteArray("w"));
}

void TestQtSerialPort::openClearsTheBuffers()
{
    FakePort port;
    Device device(&port);
    device.readBuffer = "r";
    device.writeBuffer = "w";
    QVERIFY(device.open(QIODevice::ReadWrite));
    QVERIFY(device.readBuffer.isEmpty());
    QVERIFY(device.writeBuffer.isEmpty());
}

/// One that reads would take the bytes of whoever else reads the line.
void TestQtSerialPort::openMakesAWriteNotifierAlone()
{
    PtyLine line(PtyLine::Fresh);
    LogCatcher log;
    Device device(nullptr);
    device.port = new LinuxPort;
    device.portName = line.path();
    QVERIFY(device.open(QIODevice::ReadWrite));
    QVERIFY(!device.readNotifier);
    QVERIFY(!device.exceptNotifier);
    QCOMPARE(device.findChildren<QSocketNotifier *>(), QList<QSocketNotifier *>()
                                                           << device.writeNotifier);
    QCOMPARE(device.writeNotifier->type(), QSocketNotifier::Write);
    QCOMPARE(int(device.writeNotifier->socket()), device.port->handle());
    QVERIFY(!device.writeNotifier->isEnabled());
    device.close();
    QVERIFY(!device.writeNotifier);
    QVERIFY(device.findChildren<QSocketNotifier *>().isEmpty());
    delete device.port;
}

void TestQtSerialPort::openWithoutADescriptorMakesNone()
{
    FakePort port;
    Device device(&port);
    QVERIFY(device.open(QIODevice::ReadWrite));
    QVERIFY(device.findChildren<QSocketNotifier *>().isEmpty());
}

void TestQtSerialPort::closeRemovesNotifiers()
{
    FakePort port;
    OpenDevice device(&port);
    device.readNotifier = device.newNotifier(QSocketNotifier::Read);
    device.exceptNotifier = device.newNotifier(QSocketNotifier::Exception);
    const QPointer<QSocketNotifier> read(device.readNotifier);
    const QPointer<QSocketNotifier> except(device.exceptNotifier);
    device.close();
    QVERIFY(!device.isOpen());
    QCOMPARE(port.closed, 1);
    QVERIFY(!read);
    QVERIFY(!except);
    QVERIFY(!device.readNotifier);
    QVERIFY(!device.writeNotifier);
    QVERIFY(!device.exceptNotifier);
    device.close();
    QVERIFY(!device.isOpen());
}

void TestQtSerialPort::closeKeepsTheBuffers()
{
    FakePort port;
    OpenDevice device(&port);
    device.readBuffer = "r";
    device.writeBuffer = "w";
    device.close();
    QCOMPARE(device.readBuffer, QByteArray("r"));
    QCOMPARE(device.writeBuffer, QByteArray("w"));
}

void TestQtSerialPort::destructorLeavesThePort()
{
    FakePort port;
    {
        Device device(&port);
        QVERIFY(device.open(QIODevice::ReadWrite));
    }
    QCOMPARE(port.closed, 0);
    QCOMPARE(port.deleted, 0);
    QVERIFY(port.isUp);
}

void TestQtSerialPort::sequential()
{
    FakePort port;
    Device device(&port);
    QVERIFY(device.isSequential());
    QVERIFY(device.open(QIODevice::ReadWrite));
    QVERIFY(device.isSequential());
    QCOMPARE(device.pos(), qint64(0));
}

void TestQtSerialPort::waitingReturnsAtOnce()
{
    FakePort port;
    OpenDevice device(&port);
    device.readBuffer = "r";
    device.writeBuffer = "w";
    port.incoming = "more";
    QElapsedTimer clock;
    clock.start();
    // Hours, so that any waiting at all shows on the slowest machine.
    QVERIFY(!device.waitForReadyRead(3600 * 1000));
    QVERIFY(!device.waitForBytesWritten(3600 * 1000));
    QVERIFY(!device.waitForReadyRead(-1));
    QVERIFY(!device.waitForBytesWritten(-1));
    QVERIFY(clock.elapsed() < 60 * 1000);
    QVERIFY(port.asked.isEmpty());
    QVERIFY(port.offered.isEmpty());
}

void TestQtSerialPort::readNothing()
{
    FakePort port;
    Device device(&port);
    char byte;
    QCOMPARE(device.readData(&byte, 1), qint64(-1));
    QVERIFY(device.open(QIODevice::ReadWrite));
    port.incoming = "waiting";
    QCOMPARE(device.readData(&byte, 1), qint64(0));
    // The port itself is never asked here.
    QVERIFY(port.asked.isEmpty());
    QVERIFY(device.atEnd());
}

void TestQtSerialPort::readPart()
{
    FakePort port;
    OpenDevice device(&port);
    device.readNotifier = device.newNotifier(QSocketNotifier::Read);
    device.readNotifier->setEnabled(false);
    device.readBuffer = "abcde";
    char bytes[8] = "-------";

    QCOMPARE(device.readData(bytes, 0), qint64(0));
    QVERIFY(!device.readNotifier->isEnabled());
    QCOMPARE(device.readData(bytes, -1), qint64(0));
    QVERIFY(!device.readNotifier->isEnabled());
    QVERIFY(!device.atEnd());

    QCOMPARE(device.readData(bytes, 2), qint64(2));
    QCOMPARE(QByteArray(bytes, 7), QByteArray("ab-----"));
    QCOMPARE(device.readBuffer, QByteArray("cde"));
    QVERIFY(device.readNotifier->isEnabled());

    QCOMPARE(device.readData(bytes, 8), qint64(3));
    QCOMPARE(QByteArray(bytes, 7), QByteArray("cde----"));
    QVERIFY(device.readBuffer.isEmpty());
    QVERIFY(device.atEnd());
}

void TestQtSerialPort::readThroughTheDevice()
{
    FakePort port;
    OpenDevice device(&port);
    port.incoming = QByteArray("a\0\r\n\xFFz", 6);
    device.onRead();
    QCOMPARE(device.read(2), QByteArray("a\0", 2));
    QCOMPARE(device.bytesAvailable(), qint64(4));
    QCOMPARE(device.readAll(), QByteArray("\r\n\xFFz", 4));
    QCOMPARE(device.bytesAvailable(), qint64(0));
    QCOMPARE(device.readAll(), QByteArray());
}

void TestQtSerialPort::linesThroughTheDevice()
{
    FakePort port;
    OpenDevice device(&port);
    port.incoming = "one\r\ntwo\nthr";
    device.onRead();
    QVERIFY(device.canReadLine());
    QCOMPARE(device.readLine(), QByteArray("one\r\n"));
    QVERIFY(device.canReadLine());
    QCOMPARE(device.readLine(), QByteArray("two\n"));
    // What has no end yet waits for it.
    QVERIFY(!device.canReadLine());
    QCOMPARE(device.bytesAvailable(), qint64(3));
    port.incoming = "ee\n";
    device.onRead();
    QVERIFY(device.canReadLine());
    QCOMPARE(device.readLine(), QByteArray("three\n"));
    QVERIFY(!device.canReadLine());
}

void TestQtSerialPort::canReadLine()
{
    FakePort port;
    OpenDevice device(&port);
    QVERIFY(!device.canReadLine());
    device.readBuffer = "no end\r";
    QVERIFY(!device.canReadLine());
    device.readBuffer = "an end\n";
    QVERIFY(device.canReadLine());

    // A line may also lie in QIODevice's own buffer.
    QCOMPARE(device.peek(7), QByteArray("an end\n"));
    QVERIFY(device.readBuffer.isEmpty());
    QVERIFY(device.canReadLine());
    QCOMPARE(device.bytesAvailable(), qint64(7));
    QCOMPARE(device.readLine(), QByteArray("an end\n"));
}

void TestQtSerialPort::bytesAvailable()
{
    FakePort port;
    OpenDevice device(&port);
    QCOMPARE(device.bytesAvailable(), qint64(0));
    device.readBuffer = "abc";
    QCOMPARE(device.bytesAvailable(), qint64(3));
    QCOMPARE(device.peek(2), QByteArray("ab"));
    QCOMPARE(device.bytesAvailable(), qint64(3));
    device.readBuffer.append("de");
    QCOMPARE(device.bytesAvailable(), qint64(5));
    QCOMPARE(device.readAll(), QByteArray("abcde"));
}

void TestQtSerialPort::writeTakenWhole()
{
    FakePort port;
    OpenDevice device(&port);
    device.writeNotifier = device.newNotifier(QSocketNotifier::Write);
    device.writeNotifier->setEnabled(false);
    const QByteArray bytes("a\r\n\0\xFFz", 6);
    QCOMPARE(device.write(bytes), qint64(6));
    QCOMPARE(port.outgoing, bytes);
    QCOMPARE(port.offered.size(), 1);
    QCOMPARE(device.bytesToWrite(), qint64(0));
    QVERIFY(!device.writeNotifier->isEnabled());

    // The cap is one of the buffer, not of what the port takes.
    QCOMPARE(device.write(filled(1000)), qint64(1000));
    QCOMPARE(port.outgoing, bytes + filled(1000));
    QCOMPARE(device.bytesToWrite(), qint64(0));
}

void TestQtSerialPort::writeTakenInPart_data()
{
    QTest::addColumn<int>("accepts");
    QTest::addColumn<int>("size");
    QTest::addColumn<int>("returned");
    QTest::addColumn<int>("queued");
    QTest::newRow("nothing of 300") << 0 << 300 << 256 << 256;
    QTest::newRow("nothing of 256") << 0 << 256 << 256 << 256;
    QTest::newRow("nothing of 1") << 0 << 1 << 1 << 1;
    QTest::newRow("1 of 2") << 1 << 2 << 2 << 1;
    QTest::newRow("1 of 300") << 1 << 300 << 257 << 256;
    QTest::newRow("44 of 300") << 44 << 300 << 300 << 256;
    QTest::newRow("45 of 300") << 45 << 300 << 300 << 255;
    QTest::newRow("299 of 300") << 299 << 300 << 300 << 1;
}

void TestQtSerialPort::writeTakenInPart()
{
    QFETCH(int, accepts);
    QFETCH(int, size);
    QFETCH(int, returned);
    QFETCH(int, queued);
    FakePort port;
    OpenDevice device(&port);
    device.writeNotifier = device.newNotifier(QSocketNotifier::Write);
    device.writeNotifier->setEnabled(false);
    port.accepts = accepts;
    const QByteArray bytes = filled(size);
    QCOMPARE(device.write(bytes), qint64(returned));
    QCOMPARE(port.offered, QList<QByteArray>() << bytes);
    QCOMPARE(port.outgoing, bytes.left(accepts));
    QCOMPARE(device.writeBuffer, bytes.mid(accepts, queued));
    QCOMPARE(device.bytesToWrite(), qint64(queued));
    QVERIFY(device.writeNotifier->isEnabled());
}

void TestQtSerialPort::writeBehindQueuedBytes()
{
    FakePort port;
    OpenDevice device(&port);
    port.accepts = 0;
    QCOMPARE(device.write("first"), qint64(5));
    port.accepts = 1000;
    QCOMPARE(device.write("second"), qint64(6));
    QCOMPARE(port.offered.size(), 1);
    QCOMPARE(port.outgoing, QByteArray());
    QCOMPARE(device.writeBuffer, QByteArray("firstsecond"));

    LogCatcher log;
    device.onWrite();
    QCOMPARE(port.outgoing, QByteArray("firstsecond"));
}

void TestQtSerialPort::writeBeyondTheCap()
{
    FakePort port;
    OpenDevice device(&port);
    port.accepts = 0;
    QCOMPARE(device.write(filled(250)), qint64(250));
    QCOMPARE(device.write("0123456789"), qint64(6));
    QCOMPARE(device.writeBuffer, filled(250) + "012345");
}

void TestQtSerialPort::writeWithFullBuffer()
{
    LogCatcher log;
    FakePort port;
    OpenDevice device(&port);
    port.accepts = 0;
    QCOMPARE(device.write(filled(256)), qint64(256));
    QCOMPARE(device.write("x"), qint64(0));
    QCOMPARE(device.writeBuffer, filled(256));
    QVERIFY(device.isOpen());
    QCOMPARE(log.take(), QStringList());
}

void TestQtSerialPort::writeFails()
{
    LogCatcher log;
    FakePort port;
    OpenDevice device(&port);
    port.failsWriting = true;
    QCOMPARE(device.write("x"), qint64(-1));
    QVERIFY(!device.isOpen());
    QCOMPARE(port.closed, 1);
    QVERIFY(device.writeBuffer.isEmpty());
    QCOMPARE(log.take(), QStringList());
}

void TestQtSerialPort::writeWhenClosed()
{
    FakePort port;
    Device device(&port);
    QCOMPARE(device.writeData("x", 1), qint64(-1));
    QVERIFY(port.offered.isEmpty());
    QVERIFY(device.writeBuffer.isEmpty());
    QCOMPARE(port.closed, 0);
}

void TestQtSerialPort::writeWithoutRoom()
{
    // A line that takes nothing more fails with EAGAIN, which counts as any failure does.
    PtyLine line(PtyLine::Fresh);
    LogCatcher log;
    QtSerialPort device(line.path());
    QVERIFY(device.open(QIODevice::ReadWrite));
    // A single byte is never taken in part, so at the end one is refused.
    qint64 last = 1;
    for (int attempt = 0; attempt < 10000000 && last == 1; ++attempt)
        last = device.write("x");
    QCOMPARE(last, qint64(-1));
    QVERIFY(!device.isOpen());
}

void TestQtSerialPort::writeFromTextStream()
{
    FakePort port;
    OpenDevice device(&port);
    QTextStream stream(&device);
    stream << "AB" << 12 << "\r\n";
    stream.flush();
    QCOMPARE(port.outgoing, QByteArray("AB12\r\n"));
}

void TestQtSerialPort::onReadTakesWhatFits()
{
    FakePort port;
    OpenDevice device(&port);
    QSignalSpy ready(&device, SIGNAL(readyRead()));
    port.incoming = "abc";
    device.onRead();
    QCOMPARE(port.asked, QList<qint64>() << 256);
    QCOMPARE(device.readBuffer, QByteArray("abc"));
    QCOMPARE(ready.count(), 1);
    port.incoming = "de";
    device.onRead();
    QCOMPARE(port.asked, QList<qint64>() << 256 << 253);
    QCOMPARE(device.readBuffer, QByteArray("abcde"));
    QCOMPARE(ready.count(), 2);
}

void TestQtSerialPort::onReadNothingCame()
{
    LogCatcher log;
    FakePort port;
    OpenDevice device(&port);
    QSignalSpy ready(&device, SIGNAL(readyRead()));
    device.onRead();
    QCOMPARE(ready.count(), 1);
    QVERIFY(device.readBuffer.isEmpty());
    QVERIFY(device.isOpen());
    QCOMPARE(log.take(), QStringList());
}

void TestQtSerialPort::onReadFillsUp()
{
    FakePort port;
    OpenDevice device(&port);
    device.readNotifier = device.newNotifier(QSocketNotifier::Read);
    port.incoming = filled(300);
    device.onRead();
    QCOMPARE(device.readBuffer, filled(256));
    QCOMPARE(port.incoming.size(), 44);
    QVERIFY(!device.readNotifier->isEnabled());

    // Room for one byte is room.
    char byte;
    QCOMPARE(device.readData(&byte, 1), qint64(1));
    QCOMPARE(byte, 'a');
    QVERIFY(device.readNotifier->isEnabled());
    device.onRead();
    QCOMPARE(port.asked, QList<qint64>() << 256 << 1);
    QCOMPARE(device.readBuffer, filled(257).mid(1));
    QVERIFY(!device.readNotifier->isEnabled());
}

void TestQtSerialPort::onReadFull()
{
    FakePort port;
    OpenDevice device(&port);
    device.readNotifier = device.newNotifier(QSocketNotifier::Read);
    device.readBuffer = filled(256);
    port.incoming = "x";
    QSignalSpy ready(&device, SIGNAL(readyRead()));
    device.onRead();
    QVERIFY(port.asked.isEmpty());
    QCOMPARE(ready.count(), 0);
    QCOMPARE(device.readBuffer, filled(256));
    QVERIFY(!device.readNotifier->isEnabled());
}

void TestQtSerialPort::onReadFails()
{
    LogCatcher log;
    FakePort port;
    OpenDevice device(&port);
    device.readNotifier = device.newNotifier(QSocketNotifier::Read);
    device.readBuffer = "kept";
    port.failsReading = true;
    QSignalSpy ready(&device, SIGNAL(readyRead()));
    device.onRead();
    QCOMPARE(log.take(),
             QStringList(QStringLiteral("debug: An error occurred reading from the port")));
    QVERIFY(!device.isOpen());
    QCOMPARE(port.closed, 1);
    QVERIFY(!device.readNotifier);
    QCOMPARE(ready.count(), 1);
    QCOMPARE(device.readBuffer, QByteArray("kept"));
}

void TestQtSerialPort::onReadEmptiedByTheReader()
{
    // A reader that takes the bytes at once leaves no reason to stop reading.
    FakePort port;
    OpenDevice device(&port);
    device.readNotifier = device.newNotifier(QSocketNotifier::Read);
    QByteArray taken;
    onSignal(&device, SIGNAL(readyRead()), [&](const QVariant &) { taken += device.readAll(); });
    port.incoming = filled(256);
    device.onRead();
    QCOMPARE(taken, filled(256));
    QVERIFY(device.readNotifier->isEnabled());
}

void TestQtSerialPort::onWriteSendsTheQueue()
{
    LogCatcher log;
    FakePort port;
    OpenDevice device(&port);
    device.writeNotifier = device.newNotifier(QSocketNotifier::Write);
    device.writeBuffer = "queued";
    device.onWrite();
    QCOMPARE(port.offered, QList<QByteArray>() << "queued");
    QCOMPARE(port.outgoing, QByteArray("queued"));
    QVERIFY(device.writeBuffer.isEmpty());
    QVERIFY(!device.writeNotifier->isEnabled());
    QCOMPARE(log.take(), QStringList(QStringLiteral("debug: onWrite")));
}

void TestQtSerialPort::onWritePart()
{
    LogCatcher log;
    FakePort port;
    OpenDevice device(&port);
    device.writeNotifier = device.newNotifier(QSocketNotifier::Write);
    device.writeBuffer = "queued";
    port.accepts = 2;
    device.onWrite();
    QCOMPARE(port.outgoing, QByteArray("qu"));
    QCOMPARE(device.writeBuffer, QByteArray("eued"));
    QVERIFY(device.writeNotifier->isEnabled());
    // One call of the port for one call of the slot.
    QCOMPARE(port.offered.size(), 1);
    device.onWrite();
    QCOMPARE(port.outgoing, QByteArray("queu"));
    QCOMPARE(log.take(), QStringList() << "debug: onWrite"
                                       << "debug: onWrite");
}

void TestQtSerialPort::onWriteNothingTaken()
{
    LogCatcher log;
    FakePort port;
    OpenDevice device(&port);
    device.writeNotifier = device.newNotifier(QSocketNotifier::Write);
    device.writeBuffer = "queued";
    port.accepts = 0;
    device.onWrite();
    QCOMPARE(device.writeBuffer, QByteArray("queued"));
    QVERIFY(device.writeNotifier->isEnabled());
    QVERIFY(device.isOpen());
}

void TestQtSerialPort::onWriteEmpty()
{
    LogCatcher log;
    FakePort port;
    OpenDevice device(&port);
    device.writeNotifier = device.newNotifier(QSocketNotifier::Write);
    device.onWrite();
    QVERIFY(port.offered.isEmpty());
    QVERIFY(!device.writeNotifier->isEnabled());
    QCOMPARE(log.take(), QStringList(QStringLiteral("debug: onWrite")));
}

void TestQtSerialPort::onWriteFails()
{
    LogCatcher log;
    FakePort port;
    OpenDevice device(&port);
    device.writeNotifier = device.newNotifier(QSocketNotifier::Write);
    device.writeBuffer = "queued";
    port.failsWriting = true;
    device.onWrite();
    QCOMPARE(log.take(), QStringList() << "debug: onWrite"
                                       << "debug: An error occurred writting to the port");
    QVERIFY(!device.isOpen());
    QCOMPARE(port.closed, 1);
    QCOMPARE(device.writeBuffer, QByteArray("queued"));
    QVERIFY(!device.writeNotifier);
}

void TestQtSerialPort::onExcept()
{
    LogCatcher log;
    FakePort port;
    OpenDevice device(&port);
    device.exceptNotifier = device.newNotifier(QSocketNotifier::Exception);
    device.onExcept();
    QCOMPARE(log.take(), QStringList(QStringLiteral("debug: Got a serial port execption")));
    QVERIFY(!device.isOpen());
    QCOMPARE(port.closed, 1);
    QVERIFY(!device.exceptNotifier);
}

void TestQtSerialPort::slotsWithoutNotifiers()
{
    // Each place that would switch a notifier, on a device that has none.
    LogCatcher log;
    FakePort port;
    OpenDevice device(&port);
    port.accepts = 1;
    QCOMPARE(device.write("ab"), qint64(2));
    device.onWrite();
    QCOMPARE(port.outgoing, QByteArray("ab"));
    port.incoming = filled(256);
    device.onRead();
    char bytes[256];
    QCOMPARE(device.readData(bytes, 256), qint64(256));
    device.onExcept();
    QVERIFY(!device.isOpen());
    // And on a closed one.
    port.failsReading = true;
    device.onRead();
    device.onWrite();
    device.onExcept();
    QVERIFY(!device.isOpen());
}

void TestQtSerialPort::notifiersThatFire()
{
    LogCatcher log;
    Pair pair;
    PairPort port(pair.near());
    Device device(&port);
    QVERIFY(device.open(QIODevice::ReadWrite));
    device.readNotifier = new QSocketNotifier(pair.near(), QSocketNotifier::Read);
    device.writeNotifier = new QSocketNotifier(pair.near(), QSocketNotifier::Write);
    connect(device.readNotifier, SIGNAL(activated(int)), &device, SLOT(onRead()));
    connect(device.writeNotifier, SIGNAL(activated(int)), &device, SLOT(onWrite()));

    // More than fits: it comes in pieces and nothing is lost.
    const QByteArray sent = filled(1000);
    QVERIFY(pair.send(sent));
    QTRY_COMPARE(device.readBuffer, sent.left(256));
    QByteArray received;
    onSignal(&device, SIGNAL(readyRead()), [&](const QVariant &) { received += device.readAll(); });
    received += device.readAll();
    QTRY_COMPARE(received, sent);

    device.writeBuffer = "queued";
    device.writeNotifier->setEnabled(true);
    QTRY_VERIFY(device.writeBuffer.isEmpty());
    QVERIFY(!device.writeNotifier->isEnabled());
    QCOMPARE(PtyLine::readFrom(pair.far(), 6), QByteArray("queued"));
    device.close();
}

void TestQtSerialPort::notifierDeletedFromItsOwnSignal()
{
    LogCatcher log;
    Pair pair;
    PairPort port(pair.near());
    Device device(&port);
    QVERIFY(device.open(QIODevice::ReadWrite));
    device.readNotifier = new QSocketNotifier(pair.near(), QSocketNotifier::Read);
    connect(device.readNotifier, SIGNAL(activated(int)), &device, SLOT(onRead()));
    port.failsReading = true;
    QVERIFY(pair.send("x"));
    QTRY_VERIFY(!device.isOpen());
    QVERIFY(!device.readNotifier);
}

void TestQtSerialPort::onARealLine()
{
    PtyLine line(PtyLine::Fresh);
    LogCatcher log;
    QtSerialPort device(line.path());
    device.baudRate = 19200;
    QVERIFY(device.open(QIODevice::ReadWrite));
    QCOMPARE(log.take(), QStringList(QStringLiteral("debug: ") + line.path() +
                                     QStringLiteral(" opened and configured for speed 19200\n")));
    QCOMPARE(device.write("AB\r\n"), qint64(4));
    QCOMPARE(PtyLine::readFrom(line.near(), 4), QByteArray("AB\r\n"));
    device.close();
    QVERIFY(!device.isOpen());

    device.portName = QStringLiteral("/nonexistent/ttySP0");
    QVERIFY(!device.open(QIODevice::ReadWrite));
    QCOMPARE(log.take(),
             QStringList(QStringLiteral(
                 "debug: Failed to open /nonexistent/ttySP0: No such file or directory")));
}

void TestQtSerialPort::stealsNoBytes()
{
    // Another descriptor on the same line gets every byte, also while events are handled.
    PtyLine line(PtyLine::Fresh);
    LogCatcher log;
    QtSerialPort device(line.path());
    QVERIFY(device.open(QIODevice::ReadWrite));
    QSignalSpy ready(&device, SIGNAL(readyRead()));
    QByteArray received;
    QSocketNotifier reader(line.far(), QSocketNotifier::Read);
    onSignal(&reader, SIGNAL(activated(int)),
             [&](const QVariant &) { received += PtyLine::readFrom(line.far(), 1); });
    QByteArray sent;
    for (int round = 0; round < 200; ++round) {
        const QByteArray chunk = QByteArray::number(round) + " of many lines\n";
        sent += chunk;
        line.send(chunk);
        QCoreApplication::processEvents();
    }
    QTRY_COMPARE(received, sent);
    QCOMPARE(ready.count(), 0);
    QCOMPARE(device.bytesAvailable(), qint64(0));
}

/// What a slow line did not take at once goes out by itself when there is room again.
void TestQtSerialPort::queuedBytesFollow()
{
    PtyLine line(PtyLine::Fresh);
    LogCatcher log;
    QtSerialPort device(line.path());
    QByteArray sent;
    // Lengths differ: a line that is full between two writes closes the device, as
    // any failed write does.
    for (int size = 100; device.bytesToWrite() == 0 && size < 250; ++size) {
        if (!device.isOpen()) {
            PtyLine::readFrom(line.near(), static_cast<int>(sent.size()));
            sent.clear();
            QVERIFY(device.open(QIODevice::ReadWrite));
        }
        while (device.isOpen() && device.bytesToWrite() == 0) {
            const QByteArray bytes = filled(size);
            if (device.write(bytes) == size)
                sent += bytes;
        }
    }
    QVERIFY(device.bytesToWrite() > 0);
    QCOMPARE(device.write("behind"), qint64(6));
    sent += "behind";
    log.clear();

    QByteArray received;
    QSocketNotifier far(line.near(), QSocketNotifier::Read);
    onSignal(&far, SIGNAL(activated(int)), [&](const QVariant &) {
        char chunk[4096];
        const ssize_t count = ::read(line.near(), chunk, sizeof chunk);
        received.append(chunk, int(qMax<ssize_t>(count, 0)));
    });
    QTRY_COMPARE(received.size(), sent.size());
    QCOMPARE(received, sent);
    QCOMPARE(device.bytesToWrite(), qint64(0));
    QVERIFY(log.has("debug: onWrite"));
    // An empty queue is left alone.
    log.clear();
    QCOMPARE(device.write("x"), qint64(1));
    QCoreApplication::processEvents();
    QCOMPARE(log.take(), QStringList());
}

MFTOOL_TEST(TestQtSerialPort, EventLoop)
#include "tst_qtserialport.moc"
