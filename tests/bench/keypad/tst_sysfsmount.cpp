#include "bench/keypad/virtualkeypad.h"

#include <QtTest>

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "tests/support/testprogram.h"

/// /sys behaves as the kernel's does. Checked by system calls on descriptors that were
/// opened in the keypad.
class TestSysfsMount : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void cleanup();
    void everyWriteIsOneStore();
    void writesAtAnyPosition();
    void appending();
    void truncationChangesNothing();
    void createIsRefused();
    void namesCannotBeChanged();
    void refusedStores();
    void readsEndAndRestart();
    void readSeesTheLatestValue();
    void exportIsThereAtOnce();
    void modesBindRootToo();
    void linksAsTheKernelMakesThem();
    void faults();
    void removedWhileOpen();
    void longText();
    void anyBytes();
    void orderAndTime();

private:
    int open(const QString &path, int flags);
    QList<QByteArray> storesOf(const QString &path);

    QScopedPointer<VirtualKeypad> m_keypad;
    QList<int> m_open;
};

namespace
{

const char ready[] = "/sys/class/leds/ready/brightness";

} // namespace

void TestSysfsMount::initTestCase()
{
    if (!VirtualKeypad::whyNot().isEmpty())
        QSKIP(qPrintable(VirtualKeypad::whyNot()));
    m_keypad.reset(new VirtualKeypad);
    QVERIFY2(m_keypad->prepare(), qPrintable(m_keypad->errorString()));
}

void TestSysfsMount::cleanup()
{
    for (const int fd : m_open)
        close(fd);
    m_open.clear();
    if (m_keypad)
        m_keypad->clearStores();
}

int TestSysfsMount::open(const QString &path, int flags)
{
    const int fd = m_keypad->openFile(path, flags);
    const int error = errno;
    if (fd >= 0)
        m_open.append(fd);
    errno = error;
    return fd;
}

QList<QByteArray> TestSysfsMount::storesOf(const QString &path)
{
    QList<QByteArray> texts;
    const QList<SysfsModel::Store> stores = m_keypad->stores(path);
    for (const SysfsModel::Store &store : stores)
        texts.append(store.text);
    return texts;
}

void TestSysfsMount::everyWriteIsOneStore()
{
    const int fd = open(ready, O_WRONLY);
    QVERIFY(fd >= 0);
    QCOMPARE(write(fd, "255", 3), ssize_t(3));
    QCOMPARE(write(fd, "0", 1), ssize_t(1));
    QCOMPARE(write(fd, "185\n", 4), ssize_t(4));
    QCOMPARE(storesOf(ready), QList<QByteArray>({"255", "0", "185\n"}));
    QCOMPARE(m_keypad->attribute(ready), QByteArray("185\n"));
}

void TestSysfsMount::writesAtAnyPosition()
{
    const int fd = open(ready, O_RDWR);
    QCOMPARE(pwrite(fd, "12", 2, 1000), ssize_t(2));
    QCOMPARE(lseek(fd, 7, SEEK_SET), off_t(7));
    QCOMPARE(write(fd, "34", 2), ssize_t(2));
    QCOMPARE(storesOf(ready), QList<QByteArray>({"12", "34"}));
    QCOMPARE(m_keypad->attribute(ready), QByteArray("34\n"));
}

void TestSysfsMount::appending()
{
    const int fd = open(ready, O_WRONLY | O_APPEND);
    QCOMPARE(write(fd, "77", 2), ssize_t(2));
    QCOMPARE(storesOf(ready), QList<QByteArray>({"77"}));
}

void TestSysfsMount::truncationChangesNothing()
{
    QVERIFY(m_keypad->setAttribute(ready, "99\n"));
    QVERIFY(open(ready, O_WRONLY | O_TRUNC) >= 0);
    QVERIFY(open(ready, O_WRONLY | O_TRUNC | O_CREAT) >= 0);
    QCOMPARE(m_keypad->attribute(ready), QByteArray("99\n"));
    QCOMPARE(storesOf(ready), QList<QByteArray>());
}

void TestSysfsMount::createIsRefused()
{
    QCOMPARE(open("/sys/class/leds/ready/colour", O_WRONLY | O_CREAT | O_TRUNC), -1);
    QCOMPARE(errno, EACCES);
    QCOMPARE(open("/sys/class/leds/ready/colour", O_WRONLY), -1);
    QCOMPARE(errno, ENOENT);
    QCOMPARE(open("/sys/class/leds/none/brightness", O_WRONLY | O_CREAT), -1);
    QCOMPARE(errno, ENOENT);
}

void TestSysfsMount::namesCannotBeChanged()
{
    QVERIFY(!m_keypad->makeDir("/sys/class/leds/new"));
    QVERIFY(!m_keypad->removeFile(ready));
    QCOMPARE(m_keypad->run("mv", {ready, "/sys/class/leds/ready/old"}).code, 1);
    QVERIFY(m_keypad->exists(ready));
}

void TestSysfsMount::refusedStores()
{
    int fd = open(ready, O_WRONLY);
    QCOMPARE(write(fd, "bright", 6), ssize_t(-1));
    QCOMPARE(errno, EINVAL);
    QCOMPARE(write(fd, "300", 3), ssize_t(3));
    QCOMPARE(m_keypad->attribute(ready), QByteArray("255\n"));
    const QList<SysfsModel::Store> stores = m_keypad->stores(ready);
    QCOMPARE(stores.size(), 2);
    QCOMPARE(stores.at(0).text, QByteArray("bright"));
    QCOMPARE(stores.at(0).error, EINVAL);
    QCOMPARE(stores.at(1).error, 0);
    fd = open("/sys/class/backlight/mxs-bl/brightness", O_WRONLY);
    QCOMPARE(write(fd, "256", 3), ssize_t(-1));
    QCOMPARE(errno, EINVAL);
}

void TestSysfsMount::readsEndAndRestart()
{
    QVERIFY(m_keypad->setAttribute(ready, "128\n"));
    const int fd = open(ready, O_RDONLY);
    char text[16] = {};
    QCOMPARE(read(fd, text, 2), ssize_t(2));
    QCOMPARE(QByteArray(text, 2), QByteArray("12"));
    QCOMPARE(read(fd, text, sizeof text), ssize_t(2));
    QCOMPARE(QByteArray(text, 2), QByteArray("8\n"));
    QCOMPARE(read(fd, text, sizeof text), ssize_t(0));
    QCOMPARE(lseek(fd, 0, SEEK_SET), off_t(0));
    QCOMPARE(read(fd, text, sizeof text), ssize_t(4));
    QCOMPARE(QByteArray(text, 4), QByteArray("128\n"));
    struct stat status;
    QCOMPARE(fstat(fd, &status), 0);
    QCOMPARE(status.st_size, off_t(4096));
}

void TestSysfsMount::readSeesTheLatestValue()
{
    const int fd = open(ready, O_RDWR);
    char text[16] = {};
    for (const QByteArray &value : {QByteArray("1"), QByteArray("20"), QByteArray("3")}) {
        QCOMPARE(pwrite(fd, value.constData(), size_t(value.size()), 0), ssize_t(value.size()));
        const ssize_t count = pread(fd, text, sizeof text, 0);
        QCOMPARE(QByteArray(text, int(count)), value + '\n');
    }
}

void TestSysfsMount::exportIsThereAtOnce()
{
    QCOMPARE(open("/sys/class/gpio/gpio62/value", O_WRONLY), -1);
    QCOMPARE(errno, ENOENT);
    const int fd = open("/sys/class/gpio/export", O_WRONLY);
    QCOMPARE(write(fd, "62", 2), ssize_t(2));
    QVERIFY(open("/sys/class/gpio/gpio62/value", O_RDWR) >= 0);
    QVERIFY(m_keypad->listDir("/sys/class/gpio").contains("gpio62"));
    QCOMPARE(write(m_open.last(), "1", 1), ssize_t(-1));
    QCOMPARE(errno, EPERM);
    QCOMPARE(write(fd, "62", 2), ssize_t(-1));
    QCOMPARE(errno, EBUSY);
    const int back = open("/sys/class/gpio/unexport", O_WRONLY);
    QCOMPARE(write(back, "62", 2), ssize_t(2));
    QVERIFY(!m_keypad->exists("/sys/class/gpio/gpio62"));
}

void TestSysfsMount::modesBindRootToo()
{
    QCOMPARE(open("/sys/class/gpio/export", O_RDONLY), -1);
    QCOMPARE(errno, EACCES);
    QCOMPARE(open("/sys/class/power_supply/corlink/voltage_now", O_WRONLY | O_TRUNC), -1);
    QCOMPARE(errno, EACCES);
}

void TestSysfsMount::linksAsTheKernelMakesThem()
{
    QCOMPARE(m_keypad->run("readlink", {"/sys/class/leds/ready"}).output,
             QByteArray("../../devices/platform/leds/leds/ready\n"));
    QCOMPARE(m_keypad->run("readlink", {"-f", ready}).output,
             QByteArray("/sys/devices/platform/leds/leds/ready/brightness\n"));
    QCOMPARE(m_keypad->listDir("/sys/class/leds"),
             QStringList({"ac", "armed", "buzzer", "home", "ready", "trouble"}));
}

void TestSysfsMount::faults()
{
    m_keypad->fail(ready, SysfsModel::Open, EMFILE);
    QCOMPARE(open(ready, O_WRONLY), -1);
    QCOMPARE(errno, EMFILE);
    m_keypad->clearFault(ready);
    m_keypad->fail(ready, SysfsModel::Write, EIO);
    m_keypad->fail(ready, SysfsModel::Read, ENODATA);
    const int fd = open(ready, O_RDWR);
    QVERIFY(fd >= 0);
    QCOMPARE(write(fd, "1", 1), ssize_t(-1));
    QCOMPARE(errno, EIO);
    QCOMPARE(m_keypad->stores(ready).last().error, EIO);
    char text[4];
    QCOMPARE(read(fd, text, sizeof text), ssize_t(-1));
    QCOMPARE(errno, ENODATA);
    m_keypad->clearFault(ready);
    QCOMPARE(write(fd, "1", 1), ssize_t(1));
}

void TestSysfsMount::removedWhileOpen()
{
    QVERIFY(m_keypad->addLed("spare"));
    const int fd = open("/sys/class/leds/spare/brightness", O_RDWR);
    QVERIFY(fd >= 0);
    QVERIFY(m_keypad->removeNode("/sys/class/leds/spare"));
    QVERIFY(!m_keypad->hasNode("/sys/class/leds/spare"));
    QCOMPARE(write(fd, "1", 1), ssize_t(-1));
    QCOMPARE(errno, ENODEV);
    QVERIFY(!m_keypad->exists("/sys/class/leds/spare"));
}

void TestSysfsMount::longText()
{
    QVERIFY(m_keypad->addAttribute("/sys/kernel/notes", ""));
    const int fd = open("/sys/kernel/notes", O_WRONLY);
    const QByteArray text(5000, 'x');
    QCOMPARE(write(fd, text.constData(), size_t(text.size())), ssize_t(4096));
    QCOMPARE(m_keypad->attribute("/sys/kernel/notes").size(), 4096);
}

void TestSysfsMount::anyBytes()
{
    const int fd = open(ready, O_WRONLY);
    QCOMPARE(write(fd, "7\0\xff\n", 4), ssize_t(4));
    QCOMPARE(storesOf(ready), QList<QByteArray>({QByteArray("7\0\xff\n", 4)}));
    QCOMPARE(m_keypad->attribute(ready), QByteArray("7\n"));
}

void TestSysfsMount::orderAndTime()
{
    QVERIFY(open(ready, O_WRONLY) >= 0);
    QVERIFY(open("/sys/class/leds/home/brightness", O_WRONLY) >= 0);
    for (int i = 0; i < 3; ++i) {
        QCOMPARE(write(m_open.at(0), "1", 1), ssize_t(1));
        QCOMPARE(write(m_open.at(1), "2", 1), ssize_t(1));
    }
    const QList<SysfsModel::Store> stores = m_keypad->stores();
    QCOMPARE(stores.size(), 6);
    for (int i = 0; i < 6; ++i) {
        QCOMPARE(stores.at(i).path,
                 QString(i % 2 == 0 ? ready : "/sys/class/leds/home/brightness"));
        QVERIFY(i == 0 || stores.at(i).usec > stores.at(i - 1).usec);
    }
}

MFTOOL_TEST(TestSysfsMount, EventLoop)
#include "tst_sysfsmount.moc"
