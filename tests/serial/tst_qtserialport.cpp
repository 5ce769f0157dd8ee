#include <QMetaMethod>
#include <QSocketNotifier>
#include <QTextStream>
#include <QtTest>

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

/// The device on a fake port, with its protected members made public.
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

    /// One to put into the device, which then owns it. What it watches can be
    /// read and written at any time.
    QSocketNotifier *newNotifier(QSocketNotifier::Type type, const char *slot = nullptr)
    {
        QSocketNotifier *notifier = new QSocketNotifier(m_watched.far(), type);
        m_watched.send("x");
        if (slot)
            connect(notifier, SIGNAL(activated(int)), this, slot);
        return notifier;
    }

private:
    PtyLine m_watched;
};

QByteArray filled(int size)
{
    QByteArray bytes;
    for (int i = 0; i < size; ++i)
        bytes.append(char('a' + i % 26));
    return bytes;
}

/// The buffers, and what is on the line: still to be read, or written.
struct Bytes {
    QByteArray read;
    QByteArray write;
    QByteArray line;
};

enum Outcome { Watches, Pauses, Closed };

/// What a notifier's slot does.
struct SlotCase {
    const char *name;
    QSocketNotifier::Type type;
    Bytes before;
    int accepts; ///< how much one write takes; -1: reading and writing fail
    Bytes after;
    QList<qint64> asked; ///< length of each read; each brings readyRead()
    Outcome then;        ///< what becomes of the notifier
    QStringList log;
};

const QSocketNotifier::Type in = QSocketNotifier::Read;
const QSocketNotifier::Type out = QSocketNotifier::Write;
const QByteArray full = filled(256);
const QByteArray almost = filled(255);
const QString wrote("debug: onWrite");
const QString unread("debug: An error occurred reading from the port");
const QString unwritten("debug: An error occurred writting to the port");
const QString excepted("debug: Got a serial port execption");

const QList<SlotCase> slotCases = {
    {"read what came", in, {"", "", "abc"}, 0, {"abc", "", ""}, {256}, Watches, {}},
    {"read more", in, {"abc", "", "de"}, 0, {"abcde", "", ""}, {253}, Watches, {}},
    {"nothing came", in, {"", "", ""}, 0, {"", "", ""}, {256}, Watches, {}},
    {"read until full", in, {"", "", full + "x"}, 0, {full, "", "x"}, {256}, Pauses, {}},
    {"read a last byte", in, {almost, "", "x"}, 0, {almost + "x", "", ""}, {1}, Pauses, {}},
    {"no room", in, {full, "", "x"}, 0, {full, "", "x"}, {}, Pauses, {}},
    {"reading fails", in, {"kept", "", ""}, -1, {"kept", "", ""}, {252}, Closed, {unread}},
    {"write the queue", out, {"", "queued", ""}, 1000, {"", "", "queued"}, {}, Pauses, {wrote}},
    {"write a part", out, {"", "queued", ""}, 2, {"", "eued", "qu"}, {}, Watches, {wrote}},
    {"nothing taken", out, {"", "queued", ""}, 0, {"", "queued", ""}, {}, Watches, {wrote}},
    {"nothing to write", out, {"", "", ""}, 1000, {"", "", ""}, {}, Pauses, {wrote}},
    {"writing fails", out, {"", "ab", ""}, -1, {"", "ab", ""}, {}, Closed, {wrote, unwritten}},
    {"exception", QSocketNotifier::Exception, {}, 0, {}, {}, Closed, {excepted}},
};

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

    void write_data();
    void write();
    void writeFails();
    void writeWhenClosed();
    void writeWithoutRoom();
    void writeFromTextStream();

    void notifierSlots_data();
    void notifierSlots();
    void onReadEmptiedByTheReader();
    void slotsOfAClosedDevice();

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
    QCOMPARE(methods, strings("onRead()", "onWrite()", "onExcept()"));
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
    // An unfinished line waits for its end.
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

void TestQtSerialPort::write_data()
{
    QTest::addColumn<int>("before"); // bytes in the queue
    QTest::addColumn<int>("accepts");
    QTest::addColumn<int>("size");
    QTest::addColumn<int>("returned");
    QTest::addColumn<int>("after");
    QTest::newRow("all of 1000: the cap is the buffer's alone") << 0 << 1000 << 1000 << 1000 << 0;
    QTest::newRow("nothing of 300") << 0 << 0 << 300 << 256 << 256;
    QTest::newRow("nothing of 256") << 0 << 0 << 256 << 256 << 256;
    QTest::newRow("nothing of 1") << 0 << 0 << 1 << 1 << 1;
    QTest::newRow("1 of 2") << 0 << 1 << 2 << 2 << 1;
    QTest::newRow("1 of 300") << 0 << 1 << 300 << 257 << 256;
    QTest::newRow("44 of 300") << 0 << 44 << 300 << 300 << 256;
    QTest::newRow("45 of 300") << 0 << 45 << 300 << 300 << 255;
    QTest::newRow("299 of 300") << 0 << 299 << 300 << 300 << 1;
    QTest::newRow("after queued bytes") << 5 << 1000 << 6 << 6 << 11;
    QTest::newRow("beyond the cap") << 250 << 0 << 10 << 6 << 256;
    QTest::newRow("full") << 256 << 0 << 1 << 0 << 256;
}

void TestQtSerialPort::write()
{
    QFETCH(int, before);
    QFETCH(int, accepts);
    QFETCH(int, size);
    QFETCH(int, returned);
    QFETCH(int, after);
    LogCatcher log;
    FakePort port;
    OpenDevice device(&port);
    device.writeNotifier = device.newNotifier(QSocketNotifier::Write);
    device.writeNotifier->setEnabled(false);
    device.writeBuffer = filled(before);
    port.accepts = accepts;
    QByteArray bytes("\r\n\0\xFF", 4); // bytes like any others
    bytes = (bytes + QByteArray(1000, 'z')).left(size);
    QCOMPARE(device.write(bytes), qint64(returned));

    // Only an empty queue is bypassed.
    const QList<QByteArray> none;
    QCOMPARE(port.offered, before > 0 ? none : none + QList<QByteArray>{bytes});
    const QByteArray taken = before > 0 ? QByteArray() : bytes.left(accepts);
    QCOMPARE(port.outgoing, taken);
    QCOMPARE(device.writeBuffer, filled(before) + bytes.mid(taken.size(), after - before));
    QCOMPARE(device.bytesToWrite(), qint64(after));
    QCOMPARE(device.writeNotifier->isEnabled(), after > before);
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

void TestQtSerialPort::notifierSlots_data()
{
    QTest::addColumn<int>("index");
    for (int i = 0; i < slotCases.size(); ++i)
        QTest::newRow(slotCases.at(i).name) << i;
}

void TestQtSerialPort::notifierSlots()
{
    QFETCH(int, index);
    const SlotCase &row = slotCases.at(index);
    for (const bool isWatched : {true, false}) {
        LogCatcher log;
        FakePort port;
        OpenDevice device(&port);
        QSocketNotifier **const notifiers[] = {&device.readNotifier, &device.writeNotifier,
                                               &device.exceptNotifier};
        QSocketNotifier *&notifier = *notifiers[row.type];
        if (isWatched)
            notifier = device.newNotifier(row.type);
        device.readBuffer = row.before.read;
        device.writeBuffer = row.before.write;
        port.incoming = row.before.line;
        port.accepts = row.accepts;
        port.failsReading = port.failsWriting = row.accepts < 0;
        QSignalSpy ready(&device, SIGNAL(readyRead()));
        const char *const names[] = {"onRead", "onWrite", "onExcept"};
        QVERIFY(QMetaObject::invokeMethod(&device, names[row.type]));

        QCOMPARE(device.readBuffer, row.after.read);
        QCOMPARE(device.writeBuffer, row.after.write);
        QCOMPARE(port.incoming + port.outgoing, row.after.line);
        QCOMPARE(port.asked, row.asked);
        QCOMPARE(int(port.offered.size()), row.before.write.isEmpty() ? 0 : 1);
        QCOMPARE(int(ready.count()), int(row.asked.size()));
        QCOMPARE(log.take(), row.log);
        QCOMPARE(device.isOpen(), row.then != Closed);
        QCOMPARE(port.closed, row.then == Closed ? 1 : 0);
        if (isWatched && row.then != Closed)
            QCOMPARE(notifier->isEnabled(), row.then == Watches);
        else
            QVERIFY(!notifier);
    }
}

void TestQtSerialPort::slotsOfAClosedDevice()
{
    LogCatcher log;
    FakePort port;
    Device device(&port);
    port.failsReading = true;
    device.onRead();
    device.onWrite();
    device.onExcept();
    QVERIFY(!device.isOpen());
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

void TestQtSerialPort::notifiersThatFire()
{
    LogCatcher log;
    FakePort port;
    OpenDevice device(&port);
    device.readNotifier = device.newNotifier(QSocketNotifier::Read, SLOT(onRead()));

    // More than fits: it comes in pieces and nothing is lost.
    const QByteArray sent = filled(1000);
    port.incoming = sent;
    QTRY_COMPARE(device.readBuffer, sent.left(256));
    QByteArray received;
    onSignal(&device, SIGNAL(readyRead()), [&](const QVariant &) { received += device.readAll(); });
    received += device.readAll();
    QTRY_COMPARE(received, sent);

    device.writeBuffer = "queued";
    device.writeNotifier = device.newNotifier(QSocketNotifier::Write, SLOT(onWrite()));
    QTRY_VERIFY(device.writeBuffer.isEmpty());
    QVERIFY(!device.writeNotifier->isEnabled());
    QCOMPARE(port.outgoing, QByteArray("queued"));
}

void TestQtSerialPort::notifierDeletedFromItsOwnSignal()
{
    LogCatcher log;
    FakePort port;
    OpenDevice device(&port);
    port.failsReading = true;
    device.readNotifier = device.newNotifier(QSocketNotifier::Read, SLOT(onRead()));
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
