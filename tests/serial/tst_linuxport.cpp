// The settings are checked twice: in the record handed to the system, which
// holds all of them, and in what a pseudo terminal gives back, which forces
// its character size and parity.
#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QtTest>

#include <cerrno>
#include <cstring>

#include <dlfcn.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include "serial/linesettings.h"
#include "serial/linuxport.h"
#include "tests/support/descriptors.h"
#include "tests/support/logcatcher.h"
#include "tests/support/ptyline.h"
#include "tests/support/testprogram.h"

namespace
{

struct Call {
    QByteArray name;
    int fd;
    int argument;
};

QList<Call> calls;
termios handedOver;
/// Stands for a driver that refuses, or one that takes what a pty does not keep.
enum { AskTheSystem, Refuse, Accept } answer = AskTheSystem;

} // namespace

// These two take the place of the C library's, also for the code under test.
extern "C" int tcsetattr(int fd, int when, const termios *record) noexcept
{
    calls.append(Call{"tcsetattr", fd, when});
    handedOver = *record;
    if (answer == Accept)
        return 0;
    if (answer == Refuse) {
        errno = EIO;
        return -1;
    }
    using Function = int (*)(int, int, const termios *);
    static const Function next = reinterpret_cast<Function>(dlsym(RTLD_NEXT, "tcsetattr"));
    return next(fd, when, record);
}

extern "C" int tcflush(int fd, int queue) noexcept
{
    calls.append(Call{"tcflush", fd, queue});
    using Function = int (*)(int, int);
    static const Function next = reinterpret_cast<Function>(dlsym(RTLD_NEXT, "tcflush"));
    return next(fd, queue);
}

namespace
{

/// The kernel's own view of a line, with the speeds as numbers.
struct termios2 {
    tcflag_t c_iflag;
    tcflag_t c_oflag;
    tcflag_t c_cflag;
    tcflag_t c_lflag;
    cc_t c_line;
    cc_t c_cc[19];
    speed_t c_ispeed;
    speed_t c_ospeed;
};

/// Runs @p body in a child that leads a session of its own.
/// @return what @p body returned
template<typename Body> int inNewSession(Body body)
{
    const pid_t child = fork();
    if (child == 0) {
        setsid();
        _exit(body());
    }
    int status = -1;
    waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

int hasControllingTerminal()
{
    return open("/dev/tty", O_RDWR) >= 0 ? 1 : 0;
}

} // namespace

class TestLinuxPort : public QObject
{
    Q_OBJECT

private slots:
    void init();

    void startsClosed();
    void speed_data();
    void speed();
    void speedsBelowZero();
    void characterSize_data();
    void characterSize();
    void parity_data();
    void parity();
    void stopBits_data();
    void stopBits();
    void allFlags();
    void rawLineReadBack();
    void inputIsDiscardedBeforeTheSettings();
    void access_data();
    void access();
    void truncate_data();
    void truncate();
    void noControllingTerminal();
    void childProcessesDoNotGetIt();
    void openWhileOpen();
    void logsTheRequestedSpeed();
    void missingDevice();
    void noTerminal();
    void refusedSettings();
    void receives();
    void nothingWaiting();
    void sends();
    void noRoom();
    void close();
    void destructorCloses();
};

void TestLinuxPort::init()
{
    calls.clear();
    memset(&handedOver, 0xFF, sizeof handedOver);
    answer = AskTheSystem;
}

void TestLinuxPort::startsClosed()
{
    LinuxPort port;
    char byte = 'x';
    QVERIFY(!port.isOpen());
    QCOMPARE(port.handle(), -1);
    QCOMPARE(port.read(&byte, 1), qint64(-1));
    QCOMPARE(port.write(&byte, 1), qint64(-1));
    port.close();
    QVERIFY(calls.isEmpty());
}

void TestLinuxPort::speed_data()
{
    QTest::addColumn<int>("requested");
    QTest::addColumn<uint>("code");
    QTest::addColumn<uint>("rate");

    const struct {
        int rate;
        speed_t code;
    } table[] = {
        {0, B0},
        {50, B50},
        {75, B75},
        {110, B110},
        {134, B134},
        {150, B150},
        {200, B200},
        {300, B300},
        {600, B600},
        {1200, B1200},
        {1800, B1800},
        {2400, B2400},
        {4800, B4800},
        {9600, B9600},
        {19200, B19200},
        {38400, B38400},
        {57600, B57600},
        {115200, B115200},
        {230400, B230400},
        {460800, B460800},
        {500000, B500000},
        {576000, B576000},
        {921600, B921600},
        {1000000, B1000000},
        {1152000, B1152000},
        {1500000, B1500000},
        {2000000, B2000000},
        {2500000, B2500000},
        {3000000, B3000000},
        {3500000, B3500000},
        {4000000, B4000000},
    };
    QCOMPARE(int(sizeof table / sizeof table[0]), 31);

    for (const auto &row : table) {
        const int next = &row == &table[30] ? INT_MAX : (&row)[1].rate;
        QTest::newRow(QByteArray::number(row.rate)) << row.rate << row.code << uint(row.rate);
        QTest::newRow(QByteArray::number(row.rate + 1) + ", above " + QByteArray::number(row.rate))
            << row.rate + 1 << row.code << uint(row.rate);
        QTest::newRow(QByteArray::number(next - 1) + ", below the next")
            << next - 1 << row.code << uint(row.rate);
    }
    QTest::newRow("100000") << 100000 << uint(B57600) << 57600u;
    QTest::newRow("4500000") << 4500000 << uint(B4000000) << 4000000u;
    QTest::newRow("highest") << INT_MAX << uint(B4000000) << 4000000u;
}

void TestLinuxPort::speed()
{
    QFETCH(int, requested);
    QFETCH(uint, code);
    QFETCH(uint, rate);
    PtyLine line(PtyLine::Fresh);
    LogCatcher log;
    LineSettings settings(line.path());
    settings.baudRate = requested;
    LinuxPort port;
    QVERIFY(port.open(QIODevice::ReadWrite, settings));

    QCOMPARE(uint(handedOver.c_cflag & CBAUD), code);
    QCOMPARE(uint(handedOver.c_cflag & CIBAUD), 0u);
    QCOMPARE(handedOver.c_ispeed, speed_t(0));
    QCOMPARE(handedOver.c_ospeed, speed_t(0));

    termios2 numbers;
    const int asked = ioctl(port.handle(), TCGETS2, &numbers);
    if (asked != 0 && (errno == ENOTTY || errno == ENOSYS))
        QSKIP("The record is right; qemu-user does not give all speeds back");
    QCOMPARE(asked, 0);
    QCOMPARE(numbers.c_ospeed, rate);
    termios kept;
    QCOMPARE(tcgetattr(port.handle(), &kept), 0);
    QCOMPARE(uint(kept.c_cflag & CBAUD), code);
}

void TestLinuxPort::speedsBelowZero()
{
    PtyLine line(PtyLine::Fresh);
    LogCatcher log;
    LineSettings settings(line.path());
    settings.baudRate = -1;
    LinuxPort port;
    QVERIFY(port.open(QIODevice::ReadWrite, settings));
    QCOMPARE(uint(handedOver.c_cflag & CBAUD), uint(B0));
}

void TestLinuxPort::characterSize_data()
{
    QTest::addColumn<int>("dataBits");
    QTest::addColumn<uint>("size");
    QTest::newRow("5") << 5 << uint(CS5);
    QTest::newRow("6") << 6 << uint(CS6);
    QTest::newRow("7") << 7 << uint(CS7);
    QTest::newRow("8") << 8 << uint(CS8);
    QTest::newRow("9") << 9 << uint(CS8);
    QTest::newRow("4") << 4 << uint(CS8);
    QTest::newRow("0") << 0 << uint(CS8);
    QTest::newRow("-5") << -5 << uint(CS8);
}

void TestLinuxPort::characterSize()
{
    QFETCH(int, dataBits);
    QFETCH(uint, size);
    PtyLine line(PtyLine::Fresh);
    LogCatcher log;
    answer = Accept;
    LineSettings settings(line.path());
    settings.dataBits = dataBits;
    LinuxPort port;
    QVERIFY(port.open(QIODevice::ReadWrite, settings));
    QCOMPARE(uint(handedOver.c_cflag), uint(CREAD | CLOCAL | B9600) | size);
}

void TestLinuxPort::parity_data()
{
    QTest::addColumn<int>("parity");
    QTest::addColumn<uint>("flags");
    QTest::newRow("none") << 0 << 0u;
    QTest::newRow("even") << 1 << uint(PARENB);
    QTest::newRow("odd") << 2 << uint(PARENB | PARODD);
    QTest::newRow("3") << 3 << 0u;
    QTest::newRow("-1") << -1 << 0u;
}

void TestLinuxPort::parity()
{
    QFETCH(int, parity);
    QFETCH(uint, flags);
    PtyLine line(PtyLine::Fresh);
    LogCatcher log;
    answer = Accept;
    LineSettings settings(line.path());
    settings.parity = parity;
    LinuxPort port;
    QVERIFY(port.open(QIODevice::ReadWrite, settings));
    QCOMPARE(uint(handedOver.c_cflag), uint(CREAD | CLOCAL | B9600 | CS8) | flags);
}

void TestLinuxPort::stopBits_data()
{
    QTest::addColumn<int>("stopBits");
    QTest::addColumn<uint>("flags");
    QTest::newRow("-1") << -1 << 0u;
    QTest::newRow("0") << 0 << 0u;
    QTest::newRow("1") << 1 << 0u;
    QTest::newRow("2") << 2 << uint(CSTOPB);
    QTest::newRow("3") << 3 << uint(CSTOPB);
}

void TestLinuxPort::stopBits()
{
    QFETCH(int, stopBits);
    QFETCH(uint, flags);
    PtyLine line(PtyLine::Fresh);
    LogCatcher log;
    LineSettings settings(line.path());
    settings.stopBits = stopBits;
    LinuxPort port;
    QVERIFY(port.open(QIODevice::ReadWrite, settings));
    QCOMPARE(uint(handedOver.c_cflag), uint(CREAD | CLOCAL | B9600 | CS8) | flags);
    termios kept;
    QCOMPARE(tcgetattr(port.handle(), &kept), 0);
    QCOMPARE(uint(kept.c_cflag & CSTOPB), flags);
}

void TestLinuxPort::allFlags()
{
    PtyLine line(PtyLine::Fresh);
    LogCatcher log;
    answer = Accept;
    LineSettings settings(line.path());
    settings.baudRate = 115200;
    settings.dataBits = 7;
    settings.parity = 2;
    settings.stopBits = 2;
    LinuxPort port;
    QVERIFY(port.open(QIODevice::ReadWrite, settings));
    QCOMPARE(handedOver.c_iflag, tcflag_t(IGNPAR));
    QCOMPARE(handedOver.c_oflag, tcflag_t(0));
    QCOMPARE(handedOver.c_lflag, tcflag_t(0));
    QCOMPARE(handedOver.c_cflag,
             tcflag_t(CREAD | CLOCAL | B115200 | CS7 | PARENB | PARODD | CSTOPB));
    QCOMPARE(handedOver.c_line, cc_t(0));
    for (int which = 0; which < NCCS; ++which)
        QCOMPARE(int(handedOver.c_cc[which]), which == VMIN ? 1 : 0);
}

void TestLinuxPort::rawLineReadBack()
{
    PtyLine line(PtyLine::Fresh);
    LogCatcher log;
    LinuxPort port;
    QVERIFY(port.open(QIODevice::ReadWrite, LineSettings(line.path())));
    termios kept;
    QCOMPARE(tcgetattr(port.handle(), &kept), 0);
    QCOMPARE(kept.c_iflag, tcflag_t(IGNPAR));
    QCOMPARE(kept.c_oflag, tcflag_t(0));
    QCOMPARE(kept.c_lflag, tcflag_t(0));
    QCOMPARE(kept.c_cflag, tcflag_t(CREAD | CLOCAL | CS8 | B9600));
    QCOMPARE(int(kept.c_cc[VMIN]), 1);
    QCOMPARE(int(kept.c_cc[VTIME]), 0);
    for (int which : {VINTR, VQUIT, VERASE, VKILL, VEOF, VSTART, VSTOP, VSUSP, VEOL})
        QCOMPARE(int(kept.c_cc[which]), 0);
}

void TestLinuxPort::inputIsDiscardedBeforeTheSettings()
{
    PtyLine line(PtyLine::Fresh);
    LogCatcher log;
    // A line end, so that the bytes count as read in the line mode of a fresh pty.
    line.send("left over\n");
    pollfd waiting = {line.far(), POLLIN, 0};
    QCOMPARE(poll(&waiting, 1, 5000), 1);

    LinuxPort port;
    QVERIFY(port.open(QIODevice::ReadWrite, LineSettings(line.path())));
    char bytes[16];
    QCOMPARE(port.read(bytes, sizeof bytes), qint64(-1));

    QCOMPARE(calls.size(), 2);
    QCOMPARE(calls.at(0).name, QByteArray("tcflush"));
    QCOMPARE(calls.at(0).fd, port.handle());
    QCOMPARE(calls.at(0).argument, TCIFLUSH);
    QCOMPARE(calls.at(1).name, QByteArray("tcsetattr"));
    QCOMPARE(calls.at(1).fd, port.handle());
    QCOMPARE(calls.at(1).argument, TCSANOW);
}

void TestLinuxPort::access_data()
{
    QTest::addColumn<int>("mode");
    QTest::addColumn<int>("flags");
    QTest::newRow("read") << int(QIODevice::ReadOnly) << O_RDONLY;
    QTest::newRow("write") << int(QIODevice::WriteOnly) << O_WRONLY;
    QTest::newRow("both") << int(QIODevice::ReadWrite) << O_RDWR;
    QTest::newRow("neither") << int(QIODevice::NotOpen) << O_RDONLY;
    QTest::newRow("neither, append") << int(QIODevice::Append) << (O_RDONLY | O_APPEND);
    QTest::newRow("write, append")
        << int(QIODevice::WriteOnly | QIODevice::Append) << (O_WRONLY | O_APPEND);
    QTest::newRow("both, append") << int(QIODevice::ReadWrite | QIODevice::Append)
                                  << (O_RDWR | O_APPEND);
    QTest::newRow("both, truncate") << int(QIODevice::ReadWrite | QIODevice::Truncate) << O_RDWR;
    QTest::newRow("both, text") << int(QIODevice::ReadWrite | QIODevice::Text) << O_RDWR;
    QTest::newRow("both, unbuffered")
        << int(QIODevice::ReadWrite | QIODevice::Unbuffered) << O_RDWR;
}

void TestLinuxPort::access()
{
    QFETCH(int, mode);
    QFETCH(int, flags);
    PtyLine line(PtyLine::Fresh);
    LogCatcher log;
    LinuxPort port;
    QVERIFY(port.open(QIODevice::OpenMode(mode), LineSettings(line.path())));
    const int kept = fcntl(port.handle(), F_GETFL);
    QCOMPARE(kept & (O_ACCMODE | O_APPEND | O_NONBLOCK), flags | O_NONBLOCK);
}

void TestLinuxPort::truncate_data()
{
    QTest::addColumn<int>("mode");
    QTest::addColumn<QByteArray>("left");
    QTest::newRow("truncate") << int(QIODevice::ReadWrite | QIODevice::Truncate) << QByteArray();
    QTest::newRow("both") << int(QIODevice::ReadWrite) << QByteArray("old");
    QTest::newRow("write") << int(QIODevice::WriteOnly) << QByteArray("old");
}

void TestLinuxPort::truncate()
{
    // A plain file shows it; that it is no terminal is noticed only after opening.
    QFETCH(int, mode);
    QFETCH(QByteArray, left);
    QTemporaryDir folder;
    QFile file(folder.filePath(QStringLiteral("file")));
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write("old");
    file.close();

    LogCatcher log;
    LinuxPort port;
    QVERIFY(!port.open(QIODevice::OpenMode(mode), LineSettings(file.fileName())));
    QVERIFY(file.open(QIODevice::ReadOnly));
    QCOMPARE(file.readAll(), left);
}

void TestLinuxPort::noControllingTerminal()
{
    PtyLine line(PtyLine::Fresh);
    const QByteArray path = line.path().toLatin1();
    // That a plain open does get one shows that the check can fail. An open only for writing
    // would never get one.
    QCOMPARE(inNewSession([&] {
                 open(path.constData(), O_RDWR);
                 return hasControllingTerminal();
             }),
             1);

    PtyLine other(PtyLine::Fresh);
    LogCatcher log;
    QCOMPARE(inNewSession([&] {
                 LinuxPort port;
                 if (!port.open(QIODevice::ReadWrite, LineSettings(other.path())))
                     return 2;
                 return hasControllingTerminal();
             }),
             0);
}

void TestLinuxPort::childProcessesDoNotGetIt()
{
    PtyLine line(PtyLine::Fresh);
    LogCatcher log;
    LinuxPort port;
    QVERIFY(port.open(QIODevice::ReadWrite, LineSettings(line.path())));
    QCOMPARE(fcntl(port.handle(), F_GETFD), FD_CLOEXEC);
}

void TestLinuxPort::openWhileOpen()
{
    PtyLine line(PtyLine::Fresh);
    LogCatcher log;
    LineSettings settings(line.path());
    settings.baudRate = 38400;
    LinuxPort port;
    QVERIFY(port.open(QIODevice::ReadWrite, settings));
    const int handle = port.handle();
    calls.clear();
    log.take();

    LineSettings other(QStringLiteral("/nonexistent"));
    other.baudRate = 115200;
    QVERIFY(port.open(QIODevice::ReadOnly, other));
    QCOMPARE(port.handle(), handle);
    QVERIFY(calls.isEmpty());
    QCOMPARE(log.take(), QStringList());
    termios kept;
    QCOMPARE(tcgetattr(port.handle(), &kept), 0);
    QCOMPARE(uint(kept.c_cflag & CBAUD), uint(B38400));
}

void TestLinuxPort::logsTheRequestedSpeed()
{
    PtyLine line(PtyLine::Fresh);
    LogCatcher log;
    LineSettings settings(line.path());
    settings.baudRate = 100000;
    LinuxPort port;
    QVERIFY(port.open(QIODevice::ReadWrite, settings));
    QCOMPARE(log.take(), QStringList(QStringLiteral("debug: ") + line.path() +
                                     QStringLiteral(" opened and configured for speed 100000\n")));
}

void TestLinuxPort::missingDevice()
{
    LogCatcher log;
    LinuxPort port;
    QVERIFY(!port.open(QIODevice::ReadWrite, LineSettings(QStringLiteral("/nonexistent/ttySP0"))));
    QCOMPARE(log.take(),
             QStringList(QStringLiteral(
                 "debug: Failed to open /nonexistent/ttySP0: No such file or directory")));
    QVERIFY(!port.isOpen());
    QCOMPARE(port.handle(), -1);
    QVERIFY(calls.isEmpty());
}

void TestLinuxPort::noTerminal()
{
    QTemporaryDir folder;
    QFile file(folder.filePath(QStringLiteral("file")));
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.close();

    LogCatcher log;
    const int before = openDescriptors();
    LinuxPort port;
    QVERIFY(!port.open(QIODevice::ReadWrite, LineSettings(file.fileName())));
    QCOMPARE(log.take(),
             QStringList(QStringLiteral("debug: Unable to write serial port settings\n")));
    QVERIFY(!port.isOpen());
    QCOMPARE(port.handle(), -1);
    QCOMPARE(openDescriptors(), before);
}

void TestLinuxPort::refusedSettings()
{
    PtyLine line(PtyLine::Fresh);
    LogCatcher log;
    answer = Refuse;
    const int before = openDescriptors();
    LinuxPort port;
    QVERIFY(!port.open(QIODevice::ReadWrite, LineSettings(line.path())));
    QCOMPARE(log.take(),
             QStringList(QStringLiteral("debug: Unable to write serial port settings\n")));
    QCOMPARE(port.handle(), -1);
    QCOMPARE(openDescriptors(), before);

    // Nothing of the failure sticks.
    answer = AskTheSystem;
    QVERIFY(port.open(QIODevice::ReadWrite, LineSettings(line.path())));
    QVERIFY(port.isOpen());
}

void TestLinuxPort::receives()
{
    PtyLine line(PtyLine::Fresh);
    LogCatcher log;
    LinuxPort port;
    QVERIFY(port.open(QIODevice::ReadWrite, LineSettings(line.path())));
    // Line ends, an interrupt, flow control, an end of file and a byte of all ones stay bytes.
    const QByteArray sent("a\r\n\x03\x11\x13\x04\xFF\0z", 10);
    line.send(sent);

    QByteArray received;
    pollfd waiting = {port.handle(), POLLIN, 0};
    while (received.size() < sent.size()) {
        QCOMPARE(poll(&waiting, 1, 5000), 1);
        char bytes[4];
        const qint64 count = port.read(bytes, 4);
        QVERIFY(count > 0 && count <= 4);
        received.append(bytes, int(count));
    }
    QCOMPARE(received, sent);
    // And nothing was echoed.
    waiting.fd = line.near();
    QCOMPARE(poll(&waiting, 1, 0), 0);
}

void TestLinuxPort::nothingWaiting()
{
    PtyLine line(PtyLine::Fresh);
    LogCatcher log;
    LinuxPort port;
    QVERIFY(port.open(QIODevice::ReadWrite, LineSettings(line.path())));
    char byte;
    errno = 0;
    QCOMPARE(port.read(&byte, 1), qint64(-1));
    QCOMPARE(errno, EAGAIN);
    QVERIFY(port.isOpen());
}

void TestLinuxPort::sends()
{
    PtyLine line(PtyLine::Fresh);
    LogCatcher log;
    LinuxPort port;
    QVERIFY(port.open(QIODevice::WriteOnly, LineSettings(line.path())));
    const QByteArray sent("a\r\n\tb\n\xFF\0z", 9);
    QCOMPARE(port.write(sent.constData(), 9), qint64(9));
    QCOMPARE(PtyLine::readFrom(line.near(), 9), sent);
    QCOMPARE(port.write(sent.constData(), 2), qint64(2));
    QCOMPARE(PtyLine::readFrom(line.near(), 2), QByteArray("a\r"));

    char byte;
    errno = 0;
    QCOMPARE(port.read(&byte, 1), qint64(-1));
    QCOMPARE(errno, EBADF);
}

void TestLinuxPort::noRoom()
{
    PtyLine line(PtyLine::Fresh);
    LogCatcher log;
    LinuxPort port;
    QVERIFY(port.open(QIODevice::ReadWrite, LineSettings(line.path())));
    const QByteArray much(1 << 20, 'x');
    const qint64 first = port.write(much.constData(), much.size());
    QVERIFY(first > 0 && first < much.size());
    qint64 count = first;
    for (int attempt = 0; attempt < 1000 && count >= 0; ++attempt)
        count = port.write(much.constData(), much.size());
    QCOMPARE(count, qint64(-1));
    QCOMPARE(errno, EAGAIN);
    QVERIFY(port.isOpen());
}

void TestLinuxPort::close()
{
    PtyLine line(PtyLine::Fresh);
    LogCatcher log;
    LinuxPort port;
    QVERIFY(port.open(QIODevice::ReadWrite, LineSettings(line.path())));
    line.send("waiting");
    const int handle = port.handle();
    port.close();
    QVERIFY(!port.isOpen());
    QCOMPARE(port.handle(), -1);
    QCOMPARE(fcntl(handle, F_GETFD), -1);

    char byte = 'x';
    errno = 0;
    QCOMPARE(port.read(&byte, 1), qint64(-1));
    QCOMPARE(port.write(&byte, 1), qint64(-1));
    QCOMPARE(errno, 0);
    QCOMPARE(byte, 'x');

    log.take();
    port.close();
    QCOMPARE(log.take(), QStringList());

    QVERIFY(port.open(QIODevice::ReadWrite, LineSettings(line.path())));
    QVERIFY(port.isOpen());
}

void TestLinuxPort::destructorCloses()
{
    PtyLine line(PtyLine::Fresh);
    LogCatcher log;
    int handle;
    {
        LinuxPort port;
        QVERIFY(port.open(QIODevice::ReadWrite, LineSettings(line.path())));
        handle = port.handle();
        QVERIFY(fcntl(handle, F_GETFD) >= 0);
    }
    QCOMPARE(fcntl(handle, F_GETFD), -1);

    const int before = openDescriptors();
    IPlatPort *port = new LinuxPort;
    QVERIFY(port->open(QIODevice::ReadWrite, LineSettings(line.path())));
    delete port;
    QCOMPARE(openDescriptors(), before);
}

MFTOOL_TEST(TestLinuxPort, EventLoop)
#include "tst_linuxport.moc"
