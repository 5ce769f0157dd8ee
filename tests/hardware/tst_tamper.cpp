// The folder plays /sys/class/gpio. Two things are watched: every file that is
// opened there, and every single store. A store of a pin's number into the
// export file makes the pin appear before the store returns, as in the kernel.
#include <QFile>
#include <QFileInfo>
#include <QPair>
#include <QtTest>

#include <cerrno>
#include <functional>
#include <memory>

#include <sys/inotify.h>
#include <unistd.h>

#include "hardware/buttons.h"
#include "hardware/tamper.h"
#include "tests/support/anyqt.h"
#include "tests/support/boardfolder.h"
#include "tests/support/logcatcher.h"
#include "tests/support/testprogram.h"
#include "tests/support/writewatch.h"

namespace
{

const QString revisionFile = QStringLiteral("/sys/board_revision/marlow_revision");
const QString exportFile = QStringLiteral("/sys/class/gpio/export");
const QString activeLowFile = QStringLiteral("/sys/class/gpio/gpio17/active_low");
const QString valueFile = QStringLiteral("/sys/class/gpio/gpio17/value");

/// Called for every store into a file below the watched root: its path below
/// the root, and the bytes. Returns the error that the store meets, 0 for none.
std::function<int(const QByteArray &, const QByteArray &)> onStore;
QByteArray watchedRoot;

int watchStore(int fd, const QByteArray &bytes)
{
    char name[4096];
    const QByteArray link = "/proc/self/fd/" + QByteArray::number(fd);
    const ssize_t length = readlink(link.constData(), name, sizeof name);
    const QByteArray path(name, int(qMax<ssize_t>(length, 0)));
    if (!onStore || !path.startsWith(watchedRoot))
        return 0;
    const auto hook = onStore;
    return hook(path.mid(watchedRoot.size()), bytes);
}

class GpioBoard : public BoardFolder
{
public:
    using Store = QPair<QByteArray, QByteArray>;

    explicit GpioBoard(const QByteArray &revision) : m_watch(inotify_init1(IN_NONBLOCK))
    {
        write(revisionFile, revision);
        makeFolder(QStringLiteral("/sys/class/gpio"));
        m_buttons = std::make_unique<Buttons>(nullptr, board());
        log.take();
    }
    ~GpioBoard()
    {
        onStore = nullptr;
        WriteWatch::set(nullptr);
        close(m_watch);
    }
    Q_DISABLE_COPY(GpioBoard)

    /// The export file is there; what happens in it is up to exported().
    void makeExport() { write(exportFile, ""); }

    /// The pin is there: its polarity, direction and value files.
    void makePin(const QByteArray &value)
    {
        write(activeLowFile, "0\n");
        write(valueFile, value);
    }

    /// From now on stores and opened files are recorded. A store into the export file
    /// runs @p exported, which returns the error that the store meets.
    void watch(const std::function<int()> &exported = [] { return 0; })
    {
        watchFolder(exportFile);
        watchFolder(valueFile);
        watchedRoot = QFile::encodeName(at(QString()));
        WriteWatch::set(watchStore);
        onStore = [this, exported](const QByteArray &path, const QByteArray &bytes) {
            stores.append(Store(path, bytes));
            if (path != "/sys/class/gpio/export")
                return 0;
            const auto silence = onStore;
            onStore = nullptr;
            const int error = exported();
            onStore = silence;
            watchFolder(valueFile);
            return error;
        };
    }

    /// Names of the files that were opened since watch(), in order.
    QStringList opened() const
    {
        QStringList names;
        alignas(inotify_event) char events[4096];
        ssize_t length;
        while ((length = ::read(m_watch, events, sizeof events)) > 0) {
            for (ssize_t at = 0; at < length;) {
                const void *const place = events + at;
                const inotify_event *const event = static_cast<const inotify_event *>(place);
                names.append(QString::fromLatin1(event->len > 0 ? event->name : ""));
                at += ssize_t(sizeof *event + event->len);
            }
        }
        return names;
    }

    const Buttons &buttons() const { return *m_buttons; }
    bool tamper() const { return readTamper(buttons(), board()); }

    /// What is logged from now on, without what the buttons log at their start.
    LogCatcher log;
    QList<Store> stores;

private:
    void watchFolder(const QString &file) const
    {
        const QByteArray folder = QFile::encodeName(QFileInfo(at(file)).path());
        inotify_add_watch(m_watch, folder.constData(), IN_OPEN);
    }

    int m_watch;
    std::unique_ptr<Buttons> m_buttons;
};

const GpioBoard::Store exportStore("/sys/class/gpio/export", "17");
const GpioBoard::Store polarityStore("/sys/class/gpio/gpio17/active_low", "1");

} // namespace

class TestTamper : public QObject
{
    Q_OBJECT

private slots:
    void aboveRevision3_data();
    void aboveRevision3();
    void upToRevision3_data();
    void upToRevision3();
    void value_data();
    void value();
    void exportsOnce();
    void exportCannotBeOpened();
    void exportWithoutEffect();
    void exportRefused();
    void polarityCannotBeOpened();
    void polarityRefused();
    void valueCannotBeOpened();
    void valueCannotBeOpenedAfterTheExport();
};

void TestTamper::aboveRevision3_data()
{
    QTest::addColumn<QByteArray>("revision");
    QTest::addColumn<bool>("exported");
    for (const char *revision : {"4", "5", "100"}) {
        QTest::newRow(QByteArray(revision) + ", pin exported") << QByteArray(revision) << true;
        QTest::newRow(QByteArray(revision) + ", pin not exported") << QByteArray(revision) << false;
    }
}

void TestTamper::aboveRevision3()
{
    QFETCH(QByteArray, revision);
    QFETCH(bool, exported);
    GpioBoard keypad(revision);
    keypad.makeExport();
    if (exported)
        keypad.makePin("0\n");
    keypad.watch();
    QVERIFY(!keypad.tamper());
    QCOMPARE(keypad.log.take(), QStringList());
    QCOMPARE(keypad.opened(), QStringList());
    QVERIFY(keypad.stores.isEmpty());
}

void TestTamper::upToRevision3_data()
{
    QTest::addColumn<QByteArray>("revision");
    for (const char *revision : {"1", "2", "3"})
        QTest::newRow(revision) << QByteArray(revision);
}

void TestTamper::upToRevision3()
{
    QFETCH(QByteArray, revision);
    GpioBoard keypad(revision);
    keypad.makeExport();
    keypad.makePin("0\n");
    keypad.watch();
    QVERIFY(keypad.tamper());
    QCOMPARE(keypad.log.take(), QStringList());
    // An exported pin is only read: its polarity stays as it is.
    QCOMPARE(keypad.opened(), QStringList(QStringLiteral("value")));
    QVERIFY(keypad.stores.isEmpty());
    QCOMPARE(keypad.read(activeLowFile), QByteArray("0\n"));
}

void TestTamper::value_data()
{
    QTest::addColumn<QByteArray>("file");
    QTest::addColumn<bool>("active");
    QTest::newRow("0") << QByteArray("0") << true;
    QTest::newRow("0 and line end") << QByteArray("0\n") << true;
    QTest::newRow("1") << QByteArray("1\n") << false;
    QTest::newRow("only the first character counts") << QByteArray("01") << true;
    QTest::newRow("10") << QByteArray("10\n") << false;
    QTest::newRow("space before it") << QByteArray(" 0") << false;
    QTest::newRow("zero byte") << QByteArray("\0", 1) << false;
    QTest::newRow("empty") << QByteArray() << false;
}

void TestTamper::value()
{
    QFETCH(QByteArray, file);
    QFETCH(bool, active);
    GpioBoard keypad("2");
    keypad.makePin("1\n");
    QVERIFY(!keypad.tamper());
    // Sampled afresh by every call.
    keypad.write(valueFile, file);
    QCOMPARE(keypad.tamper(), active);
    QCOMPARE(keypad.log.take(), QStringList());
}

void TestTamper::exportsOnce()
{
    GpioBoard keypad("2");
    keypad.makeExport();
    keypad.watch([&] {
        keypad.makePin("0\n");
        return 0;
    });
    QVERIFY(keypad.tamper());
    QCOMPARE(keypad.stores, QList<GpioBoard::Store>() << exportStore << polarityStore);
    QCOMPARE(keypad.opened(), strings("export", "active_low", "value"));
    QCOMPARE(keypad.log.take(), QStringList());

    QVERIFY(keypad.tamper());
    QCOMPARE(keypad.stores.size(), 2);
    QCOMPARE(keypad.opened(), QStringList(QStringLiteral("value")));
}

void TestTamper::exportCannotBeOpened()
{
    const QStringList message(
        QStringLiteral("warning: Unable to export the tamper GPIO to user space"));
    GpioBoard keypad("2");
    keypad.makeFolder(exportFile);
    keypad.watch();
    QVERIFY(!keypad.tamper());
    QCOMPARE(keypad.log.take(), message);
    QVERIFY(keypad.stores.isEmpty());

    BoardFolder bare;
    QVERIFY(!readTamper(keypad.buttons(), bare.board()));
    QCOMPARE(keypad.log.take(), message);
}

void TestTamper::exportWithoutEffect()
{
    GpioBoard keypad("2");
    keypad.makeExport();
    keypad.watch();
    QVERIFY(!keypad.tamper());
    QCOMPARE(keypad.log.take(), QStringList(QStringLiteral(
                                    "warning: Failed to export the tamper GPIO to user space")));
    QCOMPARE(keypad.stores, QList<GpioBoard::Store>() << exportStore);
    QCOMPARE(keypad.opened(), QStringList(QStringLiteral("export")));
}

void TestTamper::exportRefused()
{
    // A store that the kernel refuses is not an error by itself and is not tried again.
    GpioBoard keypad("2");
    keypad.makeExport();
    keypad.watch([] { return EBUSY; });
    QVERIFY(!keypad.tamper());
    QCOMPARE(keypad.log.take(), QStringList(QStringLiteral(
                                    "warning: Failed to export the tamper GPIO to user space")));
    QCOMPARE(keypad.stores, QList<GpioBoard::Store>() << exportStore);
}

void TestTamper::polarityCannotBeOpened()
{
    GpioBoard keypad("2");
    keypad.makeExport();
    keypad.watch([&] {
        keypad.write(valueFile, "0\n");
        keypad.makeFolder(activeLowFile);
        return 0;
    });
    QVERIFY(!keypad.tamper());
    QCOMPARE(keypad.log.take(), QStringList(QStringLiteral(
                                    "warning: Failed to change the tamper GPIO to active low")));
    QCOMPARE(keypad.stores, QList<GpioBoard::Store>() << exportStore);
    QVERIFY(!keypad.opened().contains(QStringLiteral("value")));

    // The pin is there from now on, and its polarity is left alone.
    QVERIFY(keypad.tamper());
    QCOMPARE(keypad.log.take(), QStringList());
    QCOMPARE(keypad.stores.size(), 1);
}

void TestTamper::polarityRefused()
{
    GpioBoard keypad("2");
    keypad.makeExport();
    keypad.watch([&] {
        keypad.makePin("0\n");
        return 0;
    });
    const auto accepting = onStore;
    onStore = [accepting](const QByteArray &path, const QByteArray &bytes) {
        const int error = accepting(path, bytes);
        return path.endsWith("active_low") ? EIO : error;
    };
    QVERIFY(keypad.tamper());
    QCOMPARE(keypad.log.take(), QStringList());
}

void TestTamper::valueCannotBeOpened()
{
    GpioBoard keypad("3");
    keypad.makeExport();
    keypad.makeFolder(valueFile);
    keypad.watch();
    QVERIFY(!keypad.tamper());
    QCOMPARE(keypad.log.take(),
             QStringList(QStringLiteral("warning: Failed to open tamper value file")));
    QVERIFY(keypad.stores.isEmpty());
}

void TestTamper::valueCannotBeOpenedAfterTheExport()
{
    GpioBoard keypad("1");
    keypad.makeExport();
    keypad.watch([&] {
        keypad.makeFolder(valueFile);
        keypad.write(activeLowFile, "0\n");
        return 0;
    });
    QVERIFY(!keypad.tamper());
    QCOMPARE(keypad.log.take(),
             QStringList(QStringLiteral("warning: Failed to open tamper value file")));
    QCOMPARE(keypad.stores, QList<GpioBoard::Store>() << exportStore << polarityStore);
}

MFTOOL_TEST(TestTamper, EventLoop)
#include "tst_tamper.moc"
