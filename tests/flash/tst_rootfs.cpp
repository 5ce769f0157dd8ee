#include "flash/rootfs.h"
#include "tests/flash/steptest.h"
#include "tests/support/testprogram.h"

#include <algorithm>
#include <numeric>

namespace
{
/// The step with its line parser in reach, ready to take a run's lines without
/// a tool behind it.
class Parser : public RootFS
{
public:
    Parser() : RootFS(nullptr)
    {
        FakePrograms programs;
        programs.add("ubiformat", "exit 0");
        QSignalSpy ended(this, SIGNAL(complete()));
        run();
        if (ended.isEmpty())
            ended.wait(patience);
    }
    using RootFS::handleLine;
};

/// Adds "next" to what @p emitted records of @p step.
void recordNext(RootFS *step, Emitted *emitted)
{
    onSignal(step, SIGNAL(next()), [emitted](const QVariant &) { emitted->events << "next"; });
}

/// The percentages of a run, separated at each next().
QList<QList<int>> stagesOf(const QStringList &events)
{
    QList<QList<int>> stages;
    stages << QList<int>();
    for (const QString &event : events) {
        if (event == "next")
            stages << QList<int>();
        else
            stages.last() << event.mid(7).toInt();
    }
    return stages;
}

int sum(const QList<int> &numbers)
{
    return std::accumulate(numbers.begin(), numbers.end(), 0);
}

bool rises(const QList<int> &numbers)
{
    return std::is_sorted(numbers.begin(), numbers.end());
}

const char scanning5[] = "libscan: scanning eraseblock 99 --  5 % complete  \r";
const char scanning40[] = "libscan: scanning eraseblock 793 -- 40 % complete  \r";
const char scanning100[] = "libscan: scanning eraseblock 1983 -- 100 % complete  \n";
const char flashing12[] = "ubiformat: flashing eraseblock 10 -- 12 % complete  \r";
const char flashing100[] = "ubiformat: flashing eraseblock 86 -- 100 % complete  \n";
const char formatting30[] = "ubiformat: formatting eraseblock 655 -- 30 % complete  \r";
const char formatting100[] = "ubiformat: formatting eraseblock 1983 -- 100 % complete  \n";
} // namespace

class TestRootFS : public QObject
{
    Q_OBJECT

private slots:
    void classAddsItsOneSignal();
    void toolIsCalledWithTheDefaultDirectory();
    void toolIsCalledWithTheDirectorySet();
    void goodRunGivesItsThreeStages();
    void failingRunGivesItsScanAndTheFailure_data();
    void failingRunGivesItsScanAndTheFailure();
    void crashAfterTheScanFailsTwice();
    void missingProgramFails();

    void stageChangesFollowTheStatus();
    void everyStageKnowsItsOwnLinesOnly();
    void lastStageHasNoNext();
    void lineIsReadByTheStagesPattern_data();
    void lineIsReadByTheStagesPattern();
    void nextRunScansAgain();
};

void TestRootFS::classAddsItsOneSignal()
{
    QCOMPARE(QString(RootFS::staticMetaObject.className()), QString("RootFS"));
    QCOMPARE(RootFS::staticMetaObject.superClass(), &MFProc::staticMetaObject);
    QCOMPARE(declaredMethods(RootFS::staticMetaObject), QStringList("next()"));
    QCOMPARE(RootFS::staticMetaObject.method(RootFS::staticMetaObject.methodOffset()).methodType(),
             QMetaMethod::Signal);
}

void TestRootFS::toolIsCalledWithTheDefaultDirectory()
{
    FakePrograms programs;
    programs.addNoting("ubiformat", "exit 0");
    RootFS step(nullptr);
    Emitted emitted(&step);
    LogCatcher log;
    step.run();
    TRY_COMPARE(emitted.events, strings("status 100", "complete"));
    QCOMPARE(programs.argumentsSeen(), strings("/dev/mtd1", "-y", "-f", "/boot/qm8velrootfs.ubi"));
    QCOMPARE(programs.directorySeen(), QDir::currentPath());
    QCOMPARE(processOf(step)->workingDirectory(), QString());
    QCOMPARE(log.lines(),
             strings("debug: Starting ubiformat", "debug: process finished with code 0"));
}

void TestRootFS::toolIsCalledWithTheDirectorySet()
{
    FakePrograms programs;
    programs.addNoting("ubiformat", "exit 0");
    RootFS step(nullptr);
    Emitted emitted(&step);
    step.m_dir = "/boot/fw 2";
    step.run();
    TRY_COMPARE(emitted.events.size(), 2);
    QCOMPARE(programs.argumentsSeen(),
             strings("/dev/mtd1", "-y", "-f", "/boot/fw 2/qm8velrootfs.ubi"));
}

void TestRootFS::goodRunGivesItsThreeStages()
{
    FakePrograms programs;
    programs.addPlaying("ubiformat", "ubiformat-good", 0);
    RootFS step(nullptr);
    Emitted emitted(&step);
    recordNext(&step, &emitted);
    step.run();
    TRY_VERIFY(emitted.events.contains("complete"));

    QCOMPARE(emitted.events.takeLast(), QString("complete"));
    QCOMPARE(emitted.events.takeLast(), QString("status 100"));
    const QList<QList<int>> stages = stagesOf(emitted.events);
    QCOMPARE(stages.size(), 3);
    QCOMPARE(stages.at(0).size(), 1786);
    QCOMPARE(stages.at(1).size(), 79);
    QCOMPARE(stages.at(2).size(), 1708);
    QCOMPARE(sum(stages.at(0)), 97366);
    QCOMPARE(sum(stages.at(1)), 4319);
    QCOMPARE(sum(stages.at(2)), 93097);
    for (const QList<int> &stage : stages) {
        QCOMPARE(stage.first(), 10);
        QCOMPARE(stage.last(), 100);
        QVERIFY(rises(stage));
    }
}

void TestRootFS::failingRunGivesItsScanAndTheFailure_data()
{
    QTest::addColumn<QString>("capture");
    QTest::addColumn<int>("scanned");
    QTest::addColumn<int>("scannedSum");

    QTest::newRow("image missing") << "ubiformat-no-image" << 1786 << 97366;
    QTest::newRow("image truncated") << "ubiformat-image-truncated" << 1786 << 97366;
    QTest::newRow("image too large") << "ubiformat-image-too-large" << 58 << 3190;
    QTest::newRow("still attached") << "ubiformat-attached" << 0 << 0;
    QTest::newRow("no device") << "ubiformat-no-device" << 0 << 0;
}

void TestRootFS::failingRunGivesItsScanAndTheFailure()
{
    QFETCH(QString, capture);
    QFETCH(int, scanned);
    QFETCH(int, scannedSum);

    FakePrograms programs;
    programs.addPlaying("ubiformat", capture, 255);
    RootFS step(nullptr);
    Emitted emitted(&step);
    recordNext(&step, &emitted);
    LogCatcher log;
    step.run();
    TRY_VERIFY(emitted.events.contains("failed Finished with Error"));
    QCOMPARE(emitted.events.takeLast(), QString("failed Finished with Error"));
    QCOMPARE(log.lines(),
             strings("debug: Starting ubiformat", "debug: process finished with code 255"));

    const QList<QList<int>> stages = stagesOf(emitted.events);
    QCOMPARE(stages.size(), scanned > 0 ? 2 : 1);
    QCOMPARE(stages.at(0).size(), scanned);
    QCOMPARE(sum(stages.at(0)), scannedSum);
    if (scanned == 0)
        return;
    QCOMPARE(stages.at(0).first(), 10);
    QCOMPARE(stages.at(0).last(), 100);
    QCOMPARE(stages.at(1).size(), 0);
}

void TestRootFS::crashAfterTheScanFailsTwice()
{
    // An empty image makes the real tool divide by zero after its scan.
    FakePrograms programs;
    programs.add("ubiformat", QByteArray("printf '\\r") + "libscan: scanning eraseblock 63 -- "
                                                          "100 %% complete  \\n'; kill -FPE $$");
    RootFS step(nullptr);
    Emitted emitted(&step);
    recordNext(&step, &emitted);
    step.run();
    TRY_COMPARE(emitted.events, strings("status 100", "next", "failed Crashed", "failed Crashed"));
}

void TestRootFS::missingProgramFails()
{
    FakePrograms programs;
    qputenv("PATH", QFile::encodeName(programs.path(".")));
    RootFS step(nullptr);
    Emitted emitted(&step);
    LogCatcher log;
    step.run();
    TRY_COMPARE(emitted.events, QStringList("failed Failed to Start"));
    QCOMPARE(log.lines(),
             strings("debug: Starting ubiformat", "debug: Process error 'Failed to Start'"));
}

void TestRootFS::stageChangesFollowTheStatus()
{
    Parser parser;
    Emitted emitted(&parser);
    recordNext(&parser, &emitted);
    parser.handleLine(scanning40);
    parser.handleLine(scanning100);
    parser.handleLine(flashing12);
    parser.handleLine(flashing100);
    parser.handleLine(formatting30);
    parser.handleLine(formatting100);
    QCOMPARE(emitted.events, strings("status 40", "status 100", "next", "status 12", "status 100",
                                     "next", "status 30", "status 100"));
}

void TestRootFS::everyStageKnowsItsOwnLinesOnly()
{
    Parser parser;
    Emitted emitted(&parser);
    recordNext(&parser, &emitted);

    parser.handleLine(flashing12);
    parser.handleLine(flashing100);
    parser.handleLine(formatting30);
    parser.handleLine(formatting100);
    QCOMPARE(emitted.events, QStringList());

    parser.handleLine(scanning100);
    emitted.events.clear();
    parser.handleLine(scanning40);
    parser.handleLine(scanning100);
    parser.handleLine(formatting30);
    parser.handleLine(formatting100);
    QCOMPARE(emitted.events, QStringList());

    parser.handleLine(flashing100);
    emitted.events.clear();
    parser.handleLine(scanning40);
    parser.handleLine(scanning100);
    parser.handleLine(flashing12);
    parser.handleLine(flashing100);
    QCOMPARE(emitted.events, QStringList());
}

void TestRootFS::lastStageHasNoNext()
{
    Parser parser;
    parser.handleLine(scanning100);
    parser.handleLine(flashing100);
    Emitted emitted(&parser);
    recordNext(&parser, &emitted);
    parser.handleLine(formatting100);
    parser.handleLine(formatting100);
    parser.handleLine(formatting30);
    QCOMPARE(emitted.events, strings("status 100", "status 100", "status 30"));
}

void TestRootFS::lineIsReadByTheStagesPattern_data()
{
    QTest::addColumn<QByteArray>("line");
    QTest::addColumn<QStringList>("events");
    const auto row = [](const char *name, const QByteArray &line, const QStringList &events) {
        QTest::newRow(name) << line << events;
    };

    const QByteArray start("libscan: scanning eraseblock 7 -- ");
    const QByteArray nul(1, '\0');
    const QStringList nothing;
    const QStringList fifty("status 50");

    row("two digits", start + "50 % complete  \r", fifty);
    row("nothing after it", start + "50 % complete", fifty);
    row("text after it", start + "50 % completely", fifty);
    row("one digit, one blank", start + "5 % complete  \r", QStringList("status 5"));
    row("leading zeros", start + "0050 % complete\r", fifty);
    row("0", start + "0 % complete\r", QStringList("status 0"));
    row("100", start + "100 % complete\r", strings("status 100", "next"));
    row("100 with leading zeros", start + "000100 % complete\r", strings("status 100", "next"));
    row("above 100", start + "101 % complete\r", QStringList("status 101"));
    row("greatest number", start + "2147483647 % complete\r", QStringList("status 2147483647"));
    row("number too great", start + "2147483648 % complete\r", QStringList("status 0"));
    row("number far too great", start + "99999999999999999999100 % complete\r",
        QStringList("status 0"));
    row("block number too great for anything",
        "libscan: scanning eraseblock 99999999999999999999 -- 50 % complete\r", fifty);
    row("NUL behind the text", start + "50 % complete" + nul + "\r", fifty);
    row("24 KB after it", start + "50 % complete" + QByteArray(24576, ' ') + "\r", fifty);

    row("below 10 as the tool prints it", QByteArray(scanning5), nothing);
    row("leading blank", " " + start + "50 % complete\r", nothing);
    row("other text before it", "ubiformat: " + start + "50 % complete\r", nothing);
    row("twice in a line, the first one no match",
        start + " 5 % complete " + start + "50 % complete\r", nothing);
    row("24 KB before it", QByteArray(24576, 'x') + start + "50 % complete\r", nothing);
    row("NUL before it", nul + start + "50 % complete\r", nothing);
    row("NUL within it", start + "50 %" + nul + " complete\r", nothing);
    row("upper case", "Libscan: scanning eraseblock 7 -- 50 % complete\r", nothing);
    row("no percentage", start + " % complete\r", nothing);
    row("negative percentage", start + "-5 % complete\r", nothing);
    row("no block number", "libscan: scanning eraseblock  -- 50 % complete\r", nothing);
    row("no blank before the sign", start + "50% complete\r", nothing);
    row("cut off", start + "50 % comple\r", nothing);
    row("digits of another script", start + "\xD9\xA5\xD9\xA0 % complete\r", nothing);
    row("LF alone", "\n", nothing);
    row("empty", QByteArray(), nothing);
}

void TestRootFS::lineIsReadByTheStagesPattern()
{
    QFETCH(QByteArray, line);
    QFETCH(QStringList, events);

    Parser parser;
    Emitted emitted(&parser);
    recordNext(&parser, &emitted);
    parser.handleLine(line);
    QCOMPARE(emitted.events, events);
}

void TestRootFS::nextRunScansAgain()
{
    FakePrograms programs;
    const QByteArray lines = "libscan: scanning eraseblock 63 -- 100 % complete  \n"
                             "ubiformat: flashing eraseblock 9 -- 11 % complete  \n";
    programs.write("lines", lines);
    programs.add("ubiformat", "cat \"$here/lines\"; exit 1");
    RootFS step(nullptr);
    Emitted emitted(&step);
    recordNext(&step, &emitted);
    const QStringList outcome =
        strings("status 100", "next", "status 11", "failed Finished with Error");
    step.run();
    TRY_COMPARE(emitted.events, outcome);
    emitted.events.clear();
    step.run();
    TRY_COMPARE(emitted.events, outcome);
}

MFTOOL_TEST(TestRootFS, EventLoop)
#include "tst_rootfs.moc"
