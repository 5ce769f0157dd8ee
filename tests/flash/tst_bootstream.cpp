#include "flash/bootstream.h"
#include "tests/flash/steptest.h"
#include "tests/support/testprogram.h"

#include <unistd.h>

namespace
{
/// The step with its line parser in reach.
class Parser : public BootStream
{
public:
    Parser() : BootStream(nullptr) {}
    using BootStream::handleLine;
};

/// The step where any user may run its tool.
class Anywhere : public BootStream
{
public:
    Anywhere() : BootStream(nullptr) { m_process->setWorkingDirectory("/"); }
};

/// The percentages of 54 erase lines.
const QList<int> usualRun = {1,  3,  5,  7,  9,  11, 12, 14, 16, 18, 20, 22, 24, 25,
                             27, 29, 31, 33, 35, 37, 38, 40, 42, 44, 46, 48, 50, 51,
                             53, 55, 57, 59, 61, 62, 64, 66, 68, 70, 72, 74, 75, 77,
                             79, 81, 83, 85, 87, 88, 90, 92, 94, 96, 98, 100};

QStringList statusEvents(const QList<int> &percents)
{
    QStringList events;
    for (int percent : percents)
        events << QString("status %1").arg(percent);
    return events;
}

/// The step where the working directory is not there yet.
class Nowhere : public BootStream
{
public:
    explicit Nowhere(const QString &folder) : BootStream(nullptr)
    {
        m_process->setWorkingDirectory(folder);
    }
};

/// Shell commands that print what the tool prints for @p count blocks, other
/// lines among the erase lines.
QByteArray printing(int count)
{
    return "echo 'MTD CONFIG:'\n"
           "i=0\n"
           "while [ $i -lt " +
           QByteArray::number(count) +
           " ]; do\n"
           "  echo \"mtd: erasing @0:0x${i}0000-0x${i}ffff\"\n"
           "  echo 'mtd: succeeded'\n"
           "  i=$((i+1))\n"
           "done";
}
} // namespace

class TestBootStream : public QObject
{
    Q_OBJECT

private slots:
    void classAddsNoSignalOrSlot();
    void toolIsCalledWithTheDefaultDirectory();
    void toolIsCalledWithTheDirectorySet();
    void workingDirectoryIsRootsHome();
    void withoutRootsHomeTheToolRunsHere();
    void usualRunCountsTo100();
    void longerRunStaysAt101();
    void countStartsAnewWithEveryRun();
    void lineCountsByItsPrefix_data();
    void lineCountsByItsPrefix();
    void missingImageFails();
    void missingProgramFails();
};

void TestBootStream::classAddsNoSignalOrSlot()
{
    QCOMPARE(QString(BootStream::staticMetaObject.className()), QString("BootStream"));
    QCOMPARE(BootStream::staticMetaObject.superClass(), &MFProc::staticMetaObject);
    QCOMPARE(declaredMethods(BootStream::staticMetaObject), QStringList());
}

void TestBootStream::toolIsCalledWithTheDefaultDirectory()
{
    if (access("/root", X_OK) != 0)
        QSKIP("the tool runs in /root, which this user cannot enter");
    FakePrograms programs;
    programs.addNoting("kobs-ng", "exit 0");
    BootStream step(nullptr);
    Emitted emitted(&step);
    LogCatcher log;
    step.run();
    TRY_COMPARE(emitted.events, strings("status 100", "complete"));
    QCOMPARE(programs.argumentsSeen(), strings("-v", "/boot/imx28_ivt_linux.sb"));
    QCOMPARE(programs.directorySeen(), QString("/root"));
    QCOMPARE(log.lines(),
             strings("debug: Starting kobs-ng", "debug: process finished with code 0"));
}

void TestBootStream::toolIsCalledWithTheDirectorySet()
{
    FakePrograms programs;
    programs.addNoting("kobs-ng", "exit 0");
    Anywhere step;
    Emitted emitted(&step);
    step.m_dir = "/boot/fw 2";
    step.run();
    TRY_COMPARE(emitted.events.size(), 2);
    QCOMPARE(programs.argumentsSeen(), strings("-v", "/boot/fw 2/imx28_ivt_linux.sb"));
}

void TestBootStream::workingDirectoryIsRootsHome()
{
    BootStream step(nullptr);
    QCOMPARE(processOf(step)->workingDirectory(), QString("/root"));
}

void TestBootStream::withoutRootsHomeTheToolRunsHere()
{
    FakePrograms programs;
    programs.addNoting("kobs-ng", "exit 0");
    const QString home = programs.path("home");
    Nowhere step(home);
    Emitted emitted(&step);
    const QStringList well = strings("status 100", "complete");
    step.run();
    TRY_COMPARE(emitted.events, well);
    QCOMPARE(programs.directorySeen(), QDir::currentPath());

    // A file does not count, either.
    programs.write("home", "");
    step.run();
    TRY_COMPARE(emitted.events, well + well);
    QCOMPARE(programs.directorySeen(), QDir::currentPath());

    // Each run looks again.
    QVERIFY(QFile::remove(home));
    QVERIFY(QDir().mkdir(home));
    step.run();
    TRY_COMPARE(emitted.events, well + well + well);
    QCOMPARE(programs.directorySeen(), home);
}

void TestBootStream::usualRunCountsTo100()
{
    FakePrograms programs;
    programs.add("kobs-ng", printing(54));
    Anywhere step;
    Emitted emitted(&step);
    step.run();
    TRY_VERIFY(emitted.events.contains("complete"));
    QCOMPARE(usualRun.size(), 54);
    QCOMPARE(emitted.events, statusEvents(usualRun) << "status 100"
                                                    << "complete");
}

void TestBootStream::longerRunStaysAt101()
{
    FakePrograms programs;
    programs.add("kobs-ng", printing(60));
    Anywhere step;
    Emitted emitted(&step);
    step.run();
    TRY_VERIFY(emitted.events.contains("complete"));
    QCOMPARE(emitted.events, statusEvents(usualRun) << "status 101"
                                                    << "status 101"
                                                    << "status 101"
                                                    << "status 101"
                                                    << "status 101"
                                                    << "status 101"
                                                    << "status 100"
                                                    << "complete");
}

void TestBootStream::countStartsAnewWithEveryRun()
{
    FakePrograms programs;
    programs.add("kobs-ng", printing(3) + "\nexit 1");
    Anywhere step;
    Emitted emitted(&step);
    step.run();
    TRY_COMPARE(emitted.events,
                strings("status 1", "status 3", "status 5", "failed Finished with Error"));
    emitted.events.clear();
    programs.add("kobs-ng", printing(56));
    step.run();
    TRY_VERIFY(emitted.events.contains("complete"));
    QCOMPARE(emitted.events, statusEvents(usualRun) << "status 101"
                                                    << "status 101"
                                                    << "status 100"
                                                    << "complete");
    emitted.events.clear();
    programs.add("kobs-ng", printing(1));
    step.run();
    TRY_COMPARE(emitted.events, strings("status 1", "status 100", "complete"));
}

void TestBootStream::lineCountsByItsPrefix_data()
{
    QTest::addColumn<QByteArray>("line");
    QTest::addColumn<bool>("counts");

    QTest::newRow("erase line") << QByteArray("mtd: erasing @0:0x0-0x20000\n") << true;
    QTest::newRow("ended by CR") << QByteArray("mtd: erasing @0:0x0-0x20000\r") << true;
    QTest::newRow("prefix alone") << QByteArray("mtd: erasing \n") << true;
    QTest::newRow("NUL behind the prefix") << QByteArray("mtd: erasing \0x\n", 16) << true;
    QTest::newRow("24 KB") << "mtd: erasing " + QByteArray(24576, 'x') + '\n' << true;

    QTest::newRow("no blank at the prefix's end") << QByteArray("mtd: erasing\n") << false;
    QTest::newRow("no blank after the colon") << QByteArray("mtd:erasing @0\n") << false;
    QTest::newRow("two blanks after the colon") << QByteArray("mtd:  erasing @0\n") << false;
    QTest::newRow("leading blank") << QByteArray(" mtd: erasing @0\n") << false;
    QTest::newRow("upper case") << QByteArray("MTD: erasing @0\n") << false;
    QTest::newRow("other text before it") << QByteArray("# mtd: erasing @0\n") << false;
    QTest::newRow("NUL before the prefix") << QByteArray("\0mtd: erasing @0\n", 17) << false;
    QTest::newRow("NUL within the prefix") << QByteArray("mtd:\0 erasing @0\n", 17) << false;
    QTest::newRow("another action") << QByteArray("mtd: writing @0\n") << false;
    QTest::newRow("LF alone") << QByteArray("\n") << false;
    QTest::newRow("24 KB of something else") << QByteArray(24576, 'x') + "mtd: erasing @0\n"
                                             << false;
}

void TestBootStream::lineCountsByItsPrefix()
{
    QFETCH(QByteArray, line);
    QFETCH(bool, counts);

    Parser parser;
    Emitted emitted(&parser);
    parser.handleLine(line);
    QCOMPARE(emitted.events, counts ? QStringList("status 1") : QStringList());
}

void TestBootStream::missingImageFails()
{
    FakePrograms programs;
    programs.add("kobs-ng", "[ -e \"$2\" ] || exit 255");
    Anywhere step;
    Emitted emitted(&step);
    step.m_dir = programs.path("nowhere");
    step.run();
    TRY_COMPARE(emitted.events, QStringList("failed Finished with Error"));
}

void TestBootStream::missingProgramFails()
{
    FakePrograms programs;
    qputenv("PATH", QFile::encodeName(programs.path(".")));
    Anywhere step;
    Emitted emitted(&step);
    LogCatcher log;
    step.run();
    TRY_COMPARE(emitted.events, QStringList("failed Failed to Start"));
    QCOMPARE(log.lines(),
             strings("debug: Starting kobs-ng", "debug: Process error 'Failed to Start'"));
}

MFTOOL_TEST(TestBootStream, EventLoop)
#include "tst_bootstream.moc"
