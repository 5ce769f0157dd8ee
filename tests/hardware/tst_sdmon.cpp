// The SD card monitor on a real named pipe.
#include "hardware/sdmon.h"

#include <QFile>
#include <QSignalSpy>
#include <QtTest>

#include <csignal>
#include <memory>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "tests/support/anyqt.h"
#include "tests/support/boardfolder.h"
#include "tests/support/logcatcher.h"
#include "tests/support/testprogram.h"

namespace
{

const char *const pipePath = "/tmp/sdstat";

} // namespace

class TestSdMon : public QObject
{
    Q_OBJECT

private slots:
    void init();

    void createsThePipe();
    void existingFileIsAccepted();
    void pipeThatCannotBeMade();
    void lines_data();
    void lines();
    void onlyTheFirstLineOfAnOpening();
    void restOfAnOpeningIsLostThoughTheWriterStays();
    void writerWithoutAWord();
    void endlessLine();
    void unopenablePipeEndsTheThread();
    void plainFileIsReadAtAPace();
    void deviceIsReadAtAPace();
    void signalOrder();

private:
    /// A monitor that is never deleted while it runs: it blocks in its pipe
    /// until the test program ends.
    SDMon *startMonitor();
    void writeToPipe(const QByteArray &bytes);
    /// Waits until the monitor has gone round once more and is back at its pipe.
    bool backAtThePipe(int rounds);

    std::shared_ptr<BoardFolder> m_folder;
    std::unique_ptr<LogCatcher> m_log;
    std::vector<std::shared_ptr<BoardFolder>> m_kept;
};

void TestSdMon::init()
{
    m_log.reset();
    m_folder = std::make_shared<BoardFolder>();
    m_folder->makeFolder("/tmp");
    m_kept.push_back(m_folder);
    m_log = std::make_unique<LogCatcher>();
}

SDMon *TestSdMon::startMonitor()
{
    return new SDMon(nullptr, m_folder->board());
}

void TestSdMon::writeToPipe(const QByteArray &bytes)
{
    // Opening blocks until the monitor is there.
    const int fd = open(qPrintable(m_folder->at(pipePath)), O_WRONLY);
    QVERIFY(fd >= 0);
    QCOMPARE(int(write(fd, bytes.constData(), size_t(bytes.size()))), int(bytes.size()));
    close(fd);
}

bool TestSdMon::backAtThePipe(int rounds)
{
    return waitUntil(
        [&] { return m_log->count("debug: In ATE Mode--->, Waiting for SD event") > rounds; });
}

void TestSdMon::createsThePipe()
{
    const mode_t mask = umask(0);
    QVERIFY(createSdFifo(m_folder->board()));
    umask(mask);
    struct stat info;
    QCOMPARE(stat(qPrintable(m_folder->at(pipePath)), &info), 0);
    QVERIFY(S_ISFIFO(info.st_mode));
    QCOMPARE(int(info.st_mode & 07777), 0644);
    QCOMPARE(m_log->lines(), QStringList("debug: In ATE Mode--->, SD fifo created at /tmp/sdstat"));
}

void TestSdMon::existingFileIsAccepted()
{
    m_folder->write(pipePath, "");
    QVERIFY(createSdFifo(m_folder->board()));
    QCOMPARE(m_log->lines(), QStringList("debug: In ATE Mode--->, SD fifo already exists"));
}

void TestSdMon::pipeThatCannotBeMade()
{
    m_folder->remove("/tmp");
    SDMon monitor(nullptr, m_folder->board());
    QVERIFY(!monitor.isRunning());
    QCOMPARE(m_log->lines(),
             QStringList({"debug: In ATE Mode--->, Failed to create SD fifo: No such file or "
                          "directory",
                          "warning: In ATE Mode--->, No SD monitoring available"}));
}

void TestSdMon::lines_data()
{
    QTest::addColumn<QByteArray>("line");
    QTest::addColumn<QStringList>("added");
    QTest::addColumn<QStringList>("removed");
    QTest::addColumn<int>("warnings");
    const QStringList card{"/media/mmcblk0p1"};
    const QStringList none;
    QTest::newRow("mounted") << QByteArray("#/media/mmcblk0p1\n") << card << none << 0;
    QTest::newRow("removed") << QByteArray("!/media/mmcblk0p1\n") << none << card << 0;
    QTest::newRow("no line end") << QByteArray("#/media/mmcblk0p1") << card << none << 0;
    QTest::newRow("spaces") << QByteArray("#  /media/mmcblk0p1 \t\r\n") << card << none << 0;
    QTest::newRow("spaces, removed") << QByteArray("! /media/mmcblk0p1  \n") << none << card << 0;
    QTest::newRow("zero byte") << QByteArray("#/media/mmcblk0p1\0junk\n", 23) << card << none << 0;
    QTest::newRow("no folder") << QByteArray("#\n") << QStringList{""} << none << 0;
    QTest::newRow("letter") << QByteArray("x/media/mmcblk0p1\n") << none << none << 1;
    QTest::newRow("space") << QByteArray(" #/media/mmcblk0p1\n") << none << none << 1;
    QTest::newRow("byte above 0x7F") << QByteArray("\xFF\n") << none << none << 1;
    QTest::newRow("zero byte first") << QByteArray("\0#/media\n", 9) << none << none << 1;
    QTest::newRow("line end only") << QByteArray("\n") << none << none << 0;
}

void TestSdMon::lines()
{
    QFETCH(QByteArray, line);
    QFETCH(QStringList, added);
    QFETCH(QStringList, removed);
    QFETCH(int, warnings);

    SDMon *monitor = startMonitor();
    QSignalSpy addedSpy(monitor, SIGNAL(dirAdded(QString)));
    QSignalSpy removedSpy(monitor, SIGNAL(dirRemoved(QString)));
    QVERIFY(backAtThePipe(0));
    writeToPipe(line);
    QVERIFY(backAtThePipe(1));

    QTRY_COMPARE(int(addedSpy.size()), int(added.size()));
    QTRY_COMPARE(int(removedSpy.size()), int(removed.size()));
    for (int i = 0; i < added.size(); ++i)
        QCOMPARE(addedSpy.at(i).at(0).toString(), added.at(i));
    for (int i = 0; i < removed.size(); ++i)
        QCOMPARE(removedSpy.at(i).at(0).toString(), removed.at(i));
    // The monitor of the row before may have gone round twice, the second time for a
    // writer that closes late: being back at the pipe says little about this one.
    QTRY_COMPARE(m_log->count("warning: In ATE Mode--->,Unexpected character at beginning of msg"),
                 warnings);
    QTRY_VERIFY(m_log->has("debug: In ATE Mode--->, Received SD event"));
}

void TestSdMon::onlyTheFirstLineOfAnOpening()
{
    SDMon *monitor = startMonitor();
    QSignalSpy added(monitor, SIGNAL(dirAdded(QString)));
    QVERIFY(backAtThePipe(0));
    writeToPipe("#/one\n#/two\n");
    QVERIFY(backAtThePipe(1));
    QTRY_COMPARE(int(added.size()), 1);
    writeToPipe("#/three\n");
    QTRY_COMPARE(int(added.size()), 2);
    QCOMPARE(added.at(0).at(0).toString(), QString("/one"));
    QCOMPARE(added.at(1).at(0).toString(), QString("/three"));
    QVERIFY(m_log->has("debug: In ATE Mode--->,SD mon read: #/one\n"));
}

void TestSdMon::restOfAnOpeningIsLostThoughTheWriterStays()
{
    SDMon *monitor = startMonitor();
    QSignalSpy added(monitor, SIGNAL(dirAdded(QString)));
    QVERIFY(backAtThePipe(0));
    const int writer = open(qPrintable(m_folder->at(pipePath)), O_WRONLY);
    QCOMPARE(int(write(writer, "#/one\n#/two\n", 12)), 12);
    QVERIFY(backAtThePipe(1));
    QTRY_COMPARE(int(added.size()), 1);
    QCOMPARE(int(write(writer, "#/three\n", 8)), 8);
    QTRY_COMPARE(int(added.size()), 2);
    close(writer);
    QCOMPARE(added.at(0).at(0).toString(), QString("/one"));
    QCOMPARE(added.at(1).at(0).toString(), QString("/three"));
}

void TestSdMon::writerWithoutAWord()
{
    SDMon *monitor = startMonitor();
    QSignalSpy added(monitor, SIGNAL(dirAdded(QString)));
    QVERIFY(backAtThePipe(0));
    writeToPipe("");
    QVERIFY(backAtThePipe(1));
    QVERIFY(m_log->lines().filter("SD mon read").isEmpty());
    QVERIFY(m_log->lines().filter("warning").isEmpty());
    QCOMPARE(int(added.size()), 0);
}

void TestSdMon::endlessLine()
{
    SDMon *monitor = startMonitor();
    QSignalSpy added(monitor, SIGNAL(dirAdded(QString)));
    QVERIFY(backAtThePipe(0));
    signal(SIGPIPE, SIG_IGN);
    const int fd = open(qPrintable(m_folder->at(pipePath)), O_WRONLY);
    // One line of four megabytes. The monitor takes the beginning of it and
    // goes on to its next opening, where the rest is no event.
    QByteArray line("#" + QByteArray(4 * 1024 * 1024, 'a'));
    while (!line.isEmpty()) {
        const ssize_t size = write(fd, line.constData(), size_t(line.size()));
        if (size < 0)
            break; // the monitor was between two openings
        line.remove(0, int(size));
    }
    close(fd);
    QTRY_COMPARE(int(added.size()), 1);
    QVERIFY(added.at(0).at(0).toString().size() <= 64 * 1024);
}

void TestSdMon::unopenablePipeEndsTheThread()
{
    m_folder->makeFolder(pipePath);
    SDMon monitor(nullptr, m_folder->board());
    QVERIFY(monitor.wait(5000));
    QVERIFY(m_log->has("warning: In ATE Mode--->,Failed to open pipe"));
}

void TestSdMon::plainFileIsReadAtAPace()
{
    m_folder->write(pipePath, "#/card\n");
    SDMon *monitor = startMonitor();
    QSignalSpy added(monitor, SIGNAL(dirAdded(QString)));
    QTRY_VERIFY(added.size() >= 2);
    QVERIFY(added.size() < 20); // not as fast as a file can be opened
    QCOMPARE(added.at(0).at(0).toString(), QString("/card"));
    m_folder->remove(pipePath); // ends the thread
    QVERIFY(monitor->wait(10000));
    delete monitor;
}

/// It never makes a reader wait, either.
void TestSdMon::deviceIsReadAtAPace()
{
    m_folder->link(pipePath, "/dev/null");
    SDMon *monitor = startMonitor();
    QVERIFY(backAtThePipe(1));
    QVERIFY(m_log->count("debug: In ATE Mode--->, Received SD event") < 20);
    m_folder->remove(pipePath); // ends the thread
    QVERIFY(monitor->wait(10000));
    QVERIFY(m_log->lines().filter("SD mon read").isEmpty());
    delete monitor;
}

void TestSdMon::signalOrder()
{
    const QMetaObject &meta = SDMon::staticMetaObject;
    QCOMPARE(meta.methodCount() - meta.methodOffset(), 2);
    QCOMPARE(signatureOf(meta.method(meta.methodOffset())), QByteArray("dirAdded(QString)"));
    QCOMPARE(signatureOf(meta.method(meta.methodOffset() + 1)), QByteArray("dirRemoved(QString)"));
}

MFTOOL_TEST(TestSdMon, EventLoop)
#include "tst_sdmon.moc"
