// The settings are checked twice: in the record handed to the system, which
// holds all of them, and in what a pseudo terminal gives back, which forces
// its character size and parity.
#include <QDir>
#include <QFile>
#include <QScopedPointer>
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
/// Plays a driver that refuses, or one that accepts what a pty does not keep.
enum { AskTheSystem, Refuse, Accept } answer = AskTheSystem;

} // namespace

// These two replace the C library's, even for the code under test.
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
    void cleanup();

    void startsClosed();
    void speed_data();
    void speed();
    void record_data();
    void record();
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

private:
    bool open() { return m_port->open(QIODevice::ReadWrite, LineSettings(m_line->path())); }

    QScopedPointer<PtyLine> m_line;
    QScopedPointer<LogCatcher> m_log;
    QScopedPointer<LinuxPort> m_port;
};

void TestLinuxPort::init()
{
    calls.clear();
    memset(&handedOver, 0xFF, sizeof handedOver);
    answer = AskTheSystem;
    m_line.reset(new PtyLine(PtyLine::Fresh));
    m_log.reset(new LogCatcher);
    m_port.reset(new LinuxPort);
}

void TestLinuxPort::cleanup()
{
    m_port.reset();
    m_log.reset();
    m_line.reset();
}

void TestLinuxPort::startsClosed()
{
    char byte = 'x';
    QVERIFY(!m_port->isOpen());
    QCOMPARE(m_port->handle(), -1);
    QCOMPARE(m_port->read(&byte, 1), qint64(-1));
    QCOMPARE(m_port->write(&byte, 1), qint64(-1));
    m_port->close();
    QVERIFY(calls.isEmpty());
}

void TestLinuxPort::speed_data()
{
    QTest::addColumn<int>("requested");
    QTest::addColumn<uint>("code");
    QTest::addColumn<uint>("rate");

    const int rates[] = {0,       50,      75,      110,     134,     150,     200,     300,
                         600,     1200,    1800,    2400,    4800,    9600,    19200,   38400,
                         57600,   115200,  230400,  460800,  500000,  576000,  921600,  1000000,
                         1152000, 1500000, 2000000, 2500000, 3000000, 3500000, 4000000, INT_MAX};
    const speed_t codes[] = {B0,       B50,      B75,      B110,     B134,     B150,     B200,
                             B300,     B600,     B1200,    B1800,    B2400,    B4800,    B9600,
                             B19200,   B38400,   B57600,   B115200,  B230400,  B460800,  B500000,
                             B576000,  B921600,  B1000000, B1152000, B1500000, B2000000, B2500000,
                             B3000000, B3500000, B4000000};
    QCOMPARE(int(sizeof codes / sizeof codes[0]), 31);

    for (int i = 0; i < 31; ++i) {
        const QByteArray name = QByteArray::number(rates[i]);
        QTest::newRow(name) << rates[i] << codes[i] << uint(rates[i]);
        QTest::newRow(name + " and one more") << rates[i] + 1 << codes[i] << uint(rates[i]);
        QTest::newRow(name + ", below the next") << rates[i + 1] - 1 << codes[i] << uint(rates[i]);
    }
    QTest::newRow("-1") << -1 << uint(B0) << 0u;
    QTest::newRow("highest") << INT_MAX << uint(B4000000) << 4000000u;
}

void TestLinuxPort::speed()
{
    QFETCH(int, requested);
    QFETCH(uint, code);
    QFETCH(uint, rate);
    LineSettings settings(m_line->path());
    settings.baudRate = requested;
    QVERIFY(m_port->open(QIODevice::ReadWrite, settings));

    QCOMPARE(uint(handedOver.c_cflag & CBAUD), code);
    QCOMPARE(uint(handedOver.c_cflag & CIBAUD), 0u);
    QCOMPARE(handedOver.c_ispeed, speed_t(0));
    QCOMPARE(handedOver.c_ospeed, speed_t(0));

    termios2 numbers;
    const int asked = ioctl(m_port->handle(), TCGETS2, &numbers);
    if (asked != 0 && (errno == ENOTTY || errno == ENOSYS))
        QSKIP("The record is right; qemu-user does not give all speeds back");
    QCOMPARE(asked, 0);
    QCOMPARE(numbers.c_ospeed, rate);
    termios kept;
    QCOMPARE(tcgetattr(m_port->handle(), &kept), 0);
    QCOMPARE(uint(kept.c_cflag & CBAUD), code);
}

void TestLinuxPort::record_data()
{
    QTest::addColumn<int>("dataBits");
    QTest::addColumn<int>("parity");
    QTest::addColumn<int>("stopBits");
    QTest::addColumn<uint>("flags");
    QTest::newRow("5 bits") << 5 << 0 << 1 << uint(CS5);
    QTest::newRow("6 bits") << 6 << 0 << 1 << uint(CS6);
    QTest::newRow("7 bits") << 7 << 0 << 1 << uint(CS7);
    QTest::newRow("8 bits") << 8 << 0 << 1 << uint(CS8);
    QTest::newRow("9 bits") << 9 << 0 << 1 << uint(CS8);
    QTest::newRow("4 bits") << 4 << 0 << 1 << uint(CS8);
    QTest::newRow("-5 bits") << -5 << 0 << 1 << uint(CS8);
    QTest::newRow("even") << 8 << 1 << 1 << uint(CS8 | PARENB);
    QTest::newRow("odd") << 8 << 2 << 1 << uint(CS8 | PARENB | PARODD);
    QTest::newRow("parity 3") << 8 << 3 << 1 << uint(CS8);
    QTest::newRow("parity -1") << 8 << -1 << 1 << uint(CS8);
    QTest::newRow("-1 stop bits") << 8 << 0 << -1 << uint(CS8);
    QTest::newRow("0 stop bits") << 8 << 0 << 0 << uint(CS8);
    QTest::newRow("2 stop bits") << 8 << 0 << 2 << uint(CS8 | CSTOPB);
    QTest::newRow("3 stop bits") << 8 << 0 << 3 << uint(CS8 | CSTOPB);
    QTest::newRow("all at once") << 7 << 2 << 2 << uint(CS7 | PARENB | PARODD | CSTOPB);
}

/// All that is handed to the system.
void TestLinuxPort::record()
{
    QFETCH(int, dataBits);
    QFETCH(int, parity);
    QFETCH(int, stopBits);
    QFETCH(uint, flags);
    answer = Accept;
    LineSettings settings(m_line->path());
    settings.baudRate = 115200;
    settings.dataBits = dataBits;
    settings.parity = parity;
    settings.stopBits = stopBits;
    QVERIFY(m_port->open(QIODevice::ReadWrite, settings));
    QCOMPARE(handedOver.c_iflag, tcflag_t(IGNPAR));
    QCOMPARE(handedOver.c_oflag, tcflag_t(0));
    QCOMPARE(handedOver.c_lflag, tcflag_t(0));
    QCOMPARE(handedOver.c_cflag, tcflag_t(CREAD | CLOCAL | B115200) | flags);
    QCOMPARE(handedOver.c_line, cc_t(0));
    for (int which = 0; which < NCCS; ++which)
        QCOMPARE(int(handedOver.c_cc[which]), which == VMIN ? 1 : 0);
}

void TestLinuxPort::rawLineReadBack()
{
    QVERIFY(open());
    termios kept;
    QCOMPARE(tcgetattr(m_port->handle(), &kept), 0);
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
    // A line end, so that the bytes count as read in the line mode of a fresh pty.
    m_line->send("left over\n");
    pollfd waiting = {m_line->far(), POLLIN, 0};
    QCOMPARE(poll(&waiting, 1, 5000), 1);

    QVERIFY(open());
    char bytes[16];
    QCOMPARE(m_port->read(bytes, sizeof bytes), qint64(-1));

    QCOMPARE(calls.size(), 2);
    QCOMPARE(calls.at(0).name, QByteArray("tcflush"));
    QCOMPARE(calls.at(0).fd, m_port->handle());
    QCOMPARE(calls.at(0).argument, TCIFLUSH);
    QCOMPARE(calls.at(1).name, QByteArray("tcsetattr"));
    QCOMPARE(calls.at(1).fd, m_port->handle());
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
    QVERIFY(m_port->open(QIODevice::OpenMode(mode), LineSettings(m_line->path())));
    const int kept = fcntl(m_port->handle(), F_GETFL);
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
    // A plain file shows it; only after opening is it noticed that it is not a terminal.
    QFETCH(int, mode);
    QFETCH(QByteArray, left);
    QTemporaryDir folder;
    QFile file(folder.filePath(QStringLiteral("file")));
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write("old");
    file.close();

    QVERIFY(!m_port->open(QIODevice::OpenMode(mode), LineSettings(file.fileName())));
    QVERIFY(file.open(QIODevice::ReadOnly));
    QCOMPARE(file.readAll(), left);
}

void TestLinuxPort::noControllingTerminal()
{
    const QByteArray path = m_line->path().toLatin1();
    // That a plain open does get one shows that the check can fail. An open only for writing
    // would never get one.
    QCOMPARE(inNewSession([&] {
                 ::open(path.constData(), O_RDWR);
                 return hasControllingTerminal();
             }),
             1);

    PtyLine other(PtyLine::Fresh);
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
    QVERIFY(open());
    QCOMPARE(fcntl(m_port->handle(), F_GETFD), FD_CLOEXEC);
}

void TestLinuxPort::openWhileOpen()
{
    LineSettings settings(m_line->path());
    settings.baudRate = 38400;
    QVERIFY(m_port->open(QIODevice::ReadWrite, settings));
    const int handle = m_port->handle();
    calls.clear();
    m_log->take();

    LineSettings other(QStringLiteral("/nonexistent"));
    other.baudRate = 115200;
    QVERIFY(m_port->open(QIODevice::ReadOnly, other));
    QCOMPARE(m_port->handle(), handle);
    QVERIFY(calls.isEmpty());
    QCOMPARE(m_log->take(), QStringList());
    termios kept;
    QCOMPARE(tcgetattr(m_port->handle(), &kept), 0);
    QCOMPARE(uint(kept.c_cflag & CBAUD), uint(B38400));
}

void TestLinuxPort::logsTheRequestedSpeed()
{
    LineSettings settings(m_line->path());
    settings.baudRate = 100000;
    QVERIFY(m_port->open(QIODevice::ReadWrite, settings));
    QCOMPARE(m_log->take(),
             QStringList(QStringLiteral("debug: ") + m_line->path() +
                         QStringLiteral(" opened and configured for speed 100000\n")));
}

void TestLinuxPort::missingDevice()
{
    QVERIFY(
        !m_port->open(QIODevice::ReadWrite, LineSettings(QStringLiteral("/nonexistent/ttySP0"))));
    QCOMPARE(m_log->take(),
             QStringList(QStringLiteral(
                 "debug: Failed to open /nonexistent/ttySP0: No such file or directory")));
    QVERIFY(!m_port->isOpen());
    QCOMPARE(m_port->handle(), -1);
    QVERIFY(calls.isEmpty());
}

void TestLinuxPort::noTerminal()
{
    QTemporaryDir folder;
    QFile file(folder.filePath(QStringLiteral("file")));
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.close();

    const int before = openDescriptors();
    QVERIFY(!m_port->open(QIODevice::ReadWrite, LineSettings(file.fileName())));
    QCOMPARE(m_log->take(),
             QStringList(QStringLiteral("debug: Unable to write serial port settings\n")));
    QVERIFY(!m_port->isOpen());
    QCOMPARE(m_port->handle(), -1);
    QCOMPARE(openDescriptors(), before);
}

void TestLinuxPort::refusedSettings()
{
    answer = Refuse;
    const int before = openDescriptors();
    QVERIFY(!open());
    QCOMPARE(m_log->take(),
             QStringList(QStringLiteral("debug: Unable to write serial port settings\n")));
    QCOMPARE(m_port->handle(), -1);
    QCOMPARE(openDescriptors(), before);

    // The failure leaves nothing behind.
    answer = AskTheSystem;
    QVERIFY(open());
    QVERIFY(m_port->isOpen());
}

void TestLinuxPort::receives()
{
    QVERIFY(open());
    // Line ends, an interrupt, flow control, an end of file and a byte of all ones stay bytes.
    const QByteArray sent("a\r\n\x03\x11\x13\x04\xFF\0z", 10);
    m_line->send(sent);

    QByteArray received;
    pollfd waiting = {m_port->handle(), POLLIN, 0};
    while (received.size() < sent.size()) {
        QCOMPARE(poll(&waiting, 1, 5000), 1);
        char bytes[4];
        const qint64 count = m_port->read(bytes, 4);
        QVERIFY(count > 0 && count <= 4);
        received.append(bytes, int(count));
    }
    QCOMPARE(received, sent);
    // And nothing was echoed.
    waiting.fd = m_line->near();
    QCOMPARE(poll(&waiting, 1, 0), 0);
}

void TestLinuxPort::nothingWaiting()
{
    QVERIFY(open());
    char byte;
    errno = 0;
    QCOMPARE(m_port->read(&byte, 1), qint64(-1));
    QCOMPARE(errno, EAGAIN);
    QVERIFY(m_port->isOpen());
}

void TestLinuxPort::sends()
{
    QVERIFY(m_port->open(QIODevice::WriteOnly, LineSettings(m_line->path())));
    const QByteArray sent("a\r\n\tb\n\xFF\0z", 9);
    QCOMPARE(m_port->write(sent.constData(), 9), qint64(9));
    QCOMPARE(PtyLine::readFrom(m_line->near(), 9), sent);
    QCOMPARE(m_port->write(sent.constData(), 2), qint64(2));
    QCOMPARE(PtyLine::readFrom(m_line->near(), 2), QByteArray("a\r"));

    char byte;
    errno = 0;
    QCOMPARE(m_port->read(&byte, 1), qint64(-1));
    QCOMPARE(errno, EBADF);
}

void TestLinuxPort::noRoom()
{
    QVERIFY(open());
    const QByteArray much(1 << 20, 'x');
    const qint64 first = m_port->write(much.constData(), much.size());
    QVERIFY(first > 0 && first < much.size());
    qint64 count = first;
    for (int attempt = 0; attempt < 1000 && count >= 0; ++attempt)
        count = m_port->write(much.constData(), much.size());
    QCOMPARE(count, qint64(-1));
    QCOMPARE(errno, EAGAIN);
    QVERIFY(m_port->isOpen());
}

void TestLinuxPort::close()
{
    QVERIFY(open());
    m_line->send("waiting");
    const int handle = m_port->handle();
    m_port->close();
    QVERIFY(!m_port->isOpen());
    QCOMPARE(m_port->handle(), -1);
    QCOMPARE(fcntl(handle, F_GETFD), -1);

    char byte = 'x';
    errno = 0;
    QCOMPARE(m_port->read(&byte, 1), qint64(-1));
    QCOMPARE(m_port->write(&byte, 1), qint64(-1));
    QCOMPARE(errno, 0);
    QCOMPARE(byte, 'x');

    m_log->take();
    m_port->close();
    QCOMPARE(m_log->take(), QStringList());

    QVERIFY(open());
    QVERIFY(m_port->isOpen());
}

void TestLinuxPort::destructorCloses()
{
    QVERIFY(open());
    const int handle = m_port->handle();
    QVERIFY(fcntl(handle, F_GETFD) >= 0);
    m_port.reset();
    QCOMPARE(fcntl(handle, F_GETFD), -1);

    const int before = openDescriptors();
    IPlatPort *port = new LinuxPort;
    QVERIFY(port->open(QIODevice::ReadWrite, LineSettings(m_line->path())));
    delete port;
    QCOMPARE(openDescriptors(), before);
}

MFTOOL_TEST(TestLinuxPort, EventLoop)
#include "tst_linuxport.moc"
