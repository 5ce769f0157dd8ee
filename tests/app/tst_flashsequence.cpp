// A flash as the main widget runs it: what it sends unasked, what it answers between the
// stages, and what the bars show. Shell scripts stand in for the two programs, a pseudo
// terminal for the line.
#include "app/mftool.h"

#include <QLabel>
#include <QProgressBar>
#include <QStackedWidget>

#include <atomic>
#include <memory>
#include <thread>

#include "flash/bootstream.h"
#include "flash/rootfs.h"
#include "tests/flash/steptest.h"
#include "tests/support/boardfolder.h"
#include "tests/support/logcatcher.h"
#include "tests/support/ptyline.h"
#include "tests/support/testprogram.h"

namespace
{

const char *const nak = "7E000A00053202977F\r\n"; // no logo in the folder
const char *const notApplicable = "7E000A00033002937F\r\n";
const char *const ready = "7E000A99995102B77F\r\n";
const char *const complete = "7E000C70523D0103357F\r\n";
const char *const failed = "7E000C70523D0003347F\r\n";

// A frame of progress: stage and percent, two digits each, after "3E".

/// What the boot stream's 54 erase lines give, and its end.
const char *const bootFrames = "7E000E70513E000103977F\r\n"
                               "7E000E70513E000303997F\r\n"
                               "7E000E70513E0005039B7F\r\n"
                               "7E000E70513E0007039D7F\r\n"
                               "7E000E70513E0009039F7F\r\n"
                               "7E000E70513E000B03A87F\r\n"
                               "7E000E70513E000C03A97F\r\n"
                               "7E000E70513E000E03AB7F\r\n"
                               "7E000E70513E001003977F\r\n"
                               "7E000E70513E001203997F\r\n"
                               "7E000E70513E0014039B7F\r\n"
                               "7E000E70513E0016039D7F\r\n"
                               "7E000E70513E0018039F7F\r\n"
                               "7E000E70513E001903A07F\r\n"
                               "7E000E70513E001B03A97F\r\n"
                               "7E000E70513E001D03AB7F\r\n"
                               "7E000E70513E001F03AD7F\r\n"
                               "7E000E70513E002103997F\r\n"
                               "7E000E70513E0023039B7F\r\n"
                               "7E000E70513E0025039D7F\r\n"
                               "7E000E70513E0026039E7F\r\n"
                               "7E000E70513E002803A07F\r\n"
                               "7E000E70513E002A03A97F\r\n"
                               "7E000E70513E002C03AB7F\r\n"
                               "7E000E70513E002E03AD7F\r\n"
                               "7E000E70513E003003997F\r\n"
                               "7E000E70513E0032039B7F\r\n"
                               "7E000E70513E0033039C7F\r\n"
                               "7E000E70513E0035039E7F\r\n"
                               "7E000E70513E003703A07F\r\n"
                               "7E000E70513E003903A27F\r\n"
                               "7E000E70513E003B03AB7F\r\n"
                               "7E000E70513E003D03AD7F\r\n"
                               "7E000E70513E003E03AE7F\r\n"
                               "7E000E70513E0040039A7F\r\n"
                               "7E000E70513E0042039C7F\r\n"
                               "7E000E70513E0044039E7F\r\n"
                               "7E000E70513E004603A07F\r\n"
                               "7E000E70513E004803A27F\r\n"
                               "7E000E70513E004A03AB7F\r\n"
                               "7E000E70513E004B03AC7F\r\n"
                               "7E000E70513E004D03AE7F\r\n"
                               "7E000E70513E004F03B07F\r\n"
                               "7E000E70513E0051039C7F\r\n"
                               "7E000E70513E0053039E7F\r\n"
                               "7E000E70513E005503A07F\r\n"
                               "7E000E70513E005703A27F\r\n"
                               "7E000E70513E005803A37F\r\n"
                               "7E000E70513E005A03AC7F\r\n"
                               "7E000E70513E005C03AE7F\r\n"
                               "7E000E70513E005E03B07F\r\n"
                               "7E000E70513E0060039C7F\r\n"
                               "7E000E70513E0062039E7F\r\n"
                               "7E000E70513E006403A07F\r\n"
                               "7E000E70513E006403A07F\r\n";

/// Some updates of the real root file system tool, some of each stage.
const char *const rootOutput =
    "ubiformat: mtd1 (nand), size 260046848 bytes (248.0 MiB), 1984 eraseblocks of 131072 bytes "
    "(128.0 KiB), min. I/O size 2048 bytes\n"
    "\rlibscan: scanning eraseblock 197 --  9 % complete  "
    "\rlibscan: scanning eraseblock 217 -- 10 % complete  "
    "\rlibscan: scanning eraseblock 1010 -- 50 % complete  "
    "\rlibscan: scanning eraseblock 1983 -- 100 % complete  \n"
    "ubiformat: 1984 eraseblocks have valid erase counter, mean value is 1\n"
    "\rubiformat: flashing eraseblock 8 -- 10 % complete  "
    "\rubiformat: flashing eraseblock 43 -- 50 % complete  "
    "\rubiformat: flashing eraseblock 86 -- 100 % complete  \n"
    "\rubiformat: formatting eraseblock 294 -- 10 % complete  "
    "\rubiformat: formatting eraseblock 1053 -- 50 % complete  "
    "\rubiformat: formatting eraseblock 1983 -- 100 % complete  \n";

/// What they give, and the tool's end. A percentage below ten comes after two blanks and
/// does not count.
const char *const rootFrames = "7E000E70513E010A03A87F\r\n"
                               "7E000E70513E0132039C7F\r\n"
                               "7E000E70513E016403A17F\r\n"
                               "7E000E70513E020A03A97F\r\n"
                               "7E000E70513E0232039D7F\r\n"
                               "7E000E70513E026403A27F\r\n"
                               "7E000E70513E030A03AA7F\r\n"
                               "7E000E70513E0332039E7F\r\n"
                               "7E000E70513E036403A37F\r\n"
                               "7E000E70513E036403A37F\r\n";

const char *const bars[] = {"m_progBoot", "m_progScan", "m_progFlash", "m_progFormat"};

/// Keeps emptying a line, as a station does: a full one would stop the widget, which runs
/// in the thread of the test.
class Emptier
{
public:
    explicit Emptier(PtyLine *line)
        : m_stop(false), m_thread([this, line] {
              while (!m_stop) {
                  if (line->waitForBytes(20))
                      line->received();
              }
          })
    {
    }
    ~Emptier()
    {
        m_stop = true;
        m_thread.join();
    }
    Emptier(const Emptier &) = delete;
    Emptier &operator=(const Emptier &) = delete;

private:
    std::atomic<bool> m_stop;
    std::thread m_thread;
};

} // namespace

class TestFlashSequence : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();

    void progressIsReportedUnasked();
    void wholeOutputIsReportedInOrder();
    void progressOfAFailedRun();
    void withoutReportsOnlyTheEndIsSent_data();
    void withoutReportsOnlyTheEndIsSent();
    void everyStartSaysAnewWhetherToReport_data();
    void everyStartSaysAnewWhetherToReport();
    void refusedStartLeavesTheReportsAsTheyAre();
    void oneArgumentMeansNoFolder();
    void statusBeforeAnyFlash();
    void statusAfterAFlash_data();
    void statusAfterAFlash();

    void stageMovesBeforeTheSecondToolStarts();
    void rootFsThatSaysNothing();
    void startBeginsAnew();
    void valuesOutOfRangeLeaveTheBar_data();
    void valuesOutOfRangeLeaveTheBar();

private:
    void call(const char *slot) { QVERIFY(QMetaObject::invokeMethod(m_widget.get(), slot)); }
    void start(bool sendStatus)
    {
        QVERIFY(QMetaObject::invokeMethod(m_widget.get(), "startFlash", Q_ARG(bool, sendStatus),
                                          Q_ARG(QString, QString())));
    }
    void status(int percent)
    {
        QVERIFY(QMetaObject::invokeMethod(m_widget.get(), "status", Q_ARG(int, percent)));
    }
    /// The two programs print what the real ones do, the second one not all of it.
    void addGoodPrograms();
    /// Waits for the end of a flash; @return what has come on the line.
    QByteArray runToTheEnd();
    QString statusLine() { return m_widget->findChild<QLabel *>("m_lblStatus")->text(); }
    QList<int> barValues();

    std::unique_ptr<BoardFolder> m_folder;
    std::unique_ptr<PtyLine> m_line;
    std::unique_ptr<FakePrograms> m_programs;
    std::unique_ptr<LogCatcher> m_log;
    std::unique_ptr<mftool> m_widget;
};

void TestFlashSequence::init()
{
    m_folder = std::make_unique<BoardFolder>();
    m_line = std::make_unique<PtyLine>();
    m_programs = std::make_unique<FakePrograms>();
    m_log = std::make_unique<LogCatcher>();
    m_folder->link("/dev/ttySP0", m_line->path());
    m_folder->makeFolder("/tmp");
    m_folder->makeFolder("/boot/fw-1.1");
    m_folder->makeFolder("/boot/fw-1.2");
    m_widget = std::make_unique<mftool>(nullptr, m_folder->board());
    // Any user may run it there.
    processOf(*m_widget->findChild<BootStream *>())->setWorkingDirectory("/");
    QTRY_COMPARE(m_line->received(), QByteArray(nak) + ready);
    m_line->clear();
    // The last that comes from the card's thread.
    QTRY_VERIFY(m_log->has("debug: In ATE Mode--->, Waiting for SD event"));
}

void TestFlashSequence::cleanup()
{
    m_widget.reset();
    m_log.reset();
    m_programs.reset();
    m_line.reset();
    m_folder.reset();
}

void TestFlashSequence::addGoodPrograms()
{
    m_programs->addPlaying("kobs-ng", "kobs-ng-good", 0);
    m_programs->write("updates", rootOutput);
    m_programs->add("ubiformat", "cat \"$here/updates\"");
}

QByteArray TestFlashSequence::runToTheEnd()
{
    const auto ended = [this] {
        return !m_line->received().isEmpty() && statusLine() != "Flashing...";
    };
    if (!QTest::qWaitFor(ended, patience))
        return "no end: " + m_line->received();
    // Whatever else the tools may still report.
    QCoreApplication::sendPostedEvents();
    QCoreApplication::processEvents();
    return m_line->received();
}

QList<int> TestFlashSequence::barValues()
{
    QList<int> values;
    for (const char *bar : bars)
        values << m_widget->findChild<QProgressBar *>(bar)->value();
    return values;
}

void TestFlashSequence::progressIsReportedUnasked()
{
    addGoodPrograms();
    start(true);
    QCOMPARE(m_line->received(), QByteArray());
    QCOMPARE(runToTheEnd(), QByteArray(bootFrames) + rootFrames + complete);
    QCOMPARE(statusLine(), QString("Complete!"));
    QCOMPARE(barValues(), QList<int>({100, 100, 100, 100}));
}

void TestFlashSequence::wholeOutputIsReportedInOrder()
{
    m_programs->addPlaying("kobs-ng", "kobs-ng-good", 0);
    m_programs->addPlaying("ubiformat", "ubiformat-good", 0);
    {
        const Emptier emptier(m_line.get());
        start(true);
        TRY_COMPARE(statusLine(), QString("Complete!"));
    }
    QByteArray sent = m_line->received();
    QVERIFY(sent.endsWith(complete));
    sent.chop(int(qstrlen(complete)));

    int counts[4] = {};
    QByteArray last;
    while (!sent.isEmpty()) {
        const QByteArray frame = sent.left(24);
        sent.remove(0, 24);
        QVERIFY2(frame.startsWith("7E000E70513E0") && frame.endsWith("7F\r\n"), frame.constData());
        // The hexadecimal digits of a stage are in order, and so are the stages.
        const QByteArray data = frame.mid(12, 4);
        QVERIFY2(data >= last, (last + " before " + data).constData());
        last = data;
        const int stage = data.at(1) - '0';
        QVERIFY2(stage < 4, data.constData());
        ++counts[stage];
    }
    // The updates of the captures from 10 % on, and the ends of the two tools.
    QCOMPARE(counts[0], 54 + 1);
    QCOMPARE(counts[1], 1786);
    QCOMPARE(counts[2], 79);
    QCOMPARE(counts[3], 1708 + 1);
    QCOMPARE(last, QByteArray("0364"));
}

void TestFlashSequence::progressOfAFailedRun()
{
    m_programs->add("kobs-ng", "echo mtd: erasing 1\necho mtd: erasing 2\nexit 1");
    start(true);
    QCOMPARE(runToTheEnd(), QByteArray("7E000E70513E000103977F\r\n"
                                       "7E000E70513E000303997F\r\n") +
                                failed);
    QCOMPARE(statusLine(), QString("Failed: Finished with Error"));
}

void TestFlashSequence::withoutReportsOnlyTheEndIsSent_data()
{
    QTest::addColumn<int>("arguments");
    QTest::newRow("no argument") << 0;
    QTest::newRow("one") << 1;
    QTest::newRow("two") << 2;
}

void TestFlashSequence::withoutReportsOnlyTheEndIsSent()
{
    QFETCH(int, arguments);
    addGoodPrograms();
    if (arguments == 0)
        call("startFlash");
    else if (arguments == 1)
        QVERIFY(QMetaObject::invokeMethod(m_widget.get(), "startFlash", Q_ARG(bool, false)));
    else
        start(false);
    QCOMPARE(runToTheEnd(), QByteArray(complete));
    QCOMPARE(barValues(), QList<int>({100, 100, 100, 100}));
}

void TestFlashSequence::everyStartSaysAnewWhetherToReport_data()
{
    QTest::addColumn<bool>("first");
    QTest::newRow("reports, then none") << true;
    QTest::newRow("none, then reports") << false;
}

void TestFlashSequence::everyStartSaysAnewWhetherToReport()
{
    QFETCH(bool, first);
    addGoodPrograms();
    const QByteArray reports = QByteArray(bootFrames) + rootFrames;
    start(first);
    QCOMPARE(runToTheEnd(), (first ? reports : QByteArray()) + complete);
    m_line->clear();
    start(!first);
    QCOMPARE(runToTheEnd(), (first ? QByteArray() : reports) + complete);
}

void TestFlashSequence::refusedStartLeavesTheReportsAsTheyAre()
{
    m_programs->add("kobs-ng", "echo mtd: erasing 1\nexit 1");
    start(true);
    m_log->clear();
    call("startFlash");
    QCOMPARE(m_log->lines(), QStringList("debug: Flash already in progress"));
    QCOMPARE(m_line->received(), QByteArray());
    QCOMPARE(runToTheEnd(), QByteArray("7E000E70513E000103977F\r\n") + failed);
}

void TestFlashSequence::oneArgumentMeansNoFolder()
{
    addGoodPrograms();
    QVERIFY(QMetaObject::invokeMethod(m_widget.get(), "startFlash", Q_ARG(bool, true)));
    QVERIFY(m_log->has("debug: Using firmware update dir '" + m_folder->at("/boot/fw-1.2") + "'"));
    QCOMPARE(runToTheEnd(), QByteArray(bootFrames) + rootFrames + complete);
    QCOMPARE(m_programs->argumentsSeen(),
             QStringList({"-v", m_folder->at("/boot/fw-1.2/imx28_ivt_linux.sb")}));
}

void TestFlashSequence::statusBeforeAnyFlash()
{
    status(7);
    QCOMPARE(m_line->received(), QByteArray());
    QCOMPARE(barValues(), QList<int>({7, 0, 0, 0}));
    call("flashQuery");
    QCOMPARE(m_line->received(), QByteArray(notApplicable));
}

void TestFlashSequence::statusAfterAFlash_data()
{
    QTest::addColumn<bool>("reports");
    QTest::addColumn<QByteArray>("sent");
    QTest::newRow("with reports") << true << QByteArray("7E000E70513E030703A07F\r\n");
    QTest::newRow("without") << false << QByteArray();
}

/// A percentage is reported as the last flash was asked to, whether one is under way or
/// not.
void TestFlashSequence::statusAfterAFlash()
{
    QFETCH(bool, reports);
    addGoodPrograms();
    start(reports);
    QVERIFY(runToTheEnd().endsWith(complete));
    m_line->clear();
    status(7);
    QTEST(m_line->received(), "sent");
    QCOMPARE(barValues(), QList<int>({100, 100, 100, 7}));
    m_line->clear();
    call("flashQuery");
    QCOMPARE(m_line->received(), QByteArray(notApplicable));
}

void TestFlashSequence::stageMovesBeforeTheSecondToolStarts()
{
    addGoodPrograms();
    QByteArray atStart;
    QObject context;
    // The process says so while it is being started.
    connect(processOf(*m_widget->findChild<RootFS *>()), &QProcess::stateChanged, &context,
            [&](QProcess::ProcessState state) {
                if (state != QProcess::Starting)
                    return;
                m_line->clear();
                call("flashQuery");
                atStart = m_line->received();
            });
    start(false);
    QVERIFY(runToTheEnd().endsWith(complete));
    // The second tool's stage, and still the first one's percentage.
    QCOMPARE(atStart, QByteArray("7E000E70513E016403A17F\r\n"));
}

/// Only the second tool's output leads to the last stage: if it ends well without a word,
/// the flash stays where it was, and no other can be started.
void TestFlashSequence::rootFsThatSaysNothing()
{
    m_programs->addPlaying("kobs-ng", "kobs-ng-good", 0);
    m_programs->add("ubiformat", "exit 0");
    start(false);
    TRY_VERIFY(m_log->count("debug: process finished with code 0") == 2);
    QCOMPARE(m_line->received(), QByteArray());
    QCOMPARE(statusLine(), QString("Flashing..."));
    QCOMPARE(barValues(), QList<int>({100, 100, 0, 0}));
    call("flashQuery");
    QCOMPARE(m_line->received(), QByteArray("7E000E70513E026403A27F\r\n"));
    m_line->clear();
    m_log->clear();
    call("startFlash");
    QCOMPARE(m_log->lines(), QStringList("debug: Flash already in progress"));
    QCOMPARE(m_line->received(), QByteArray());
}

void TestFlashSequence::startBeginsAnew()
{
    addGoodPrograms();
    start(false);
    QVERIFY(runToTheEnd().endsWith(complete));
    m_line->clear();
    m_programs->add("kobs-ng", "while [ ! -e \"$here/go\" ]; do sleep 0.05; done\nexit 1");
    start(false);
    QCOMPARE(statusLine(), QString("Flashing..."));
    QCOMPARE(barValues(), QList<int>({0, 0, 0, 0}));
    QCOMPARE(m_widget->findChild<QStackedWidget *>("m_stk")->currentIndex(), 1);
    call("flashQuery");
    QCOMPARE(m_line->received(), QByteArray("7E000E70513E000003967F\r\n"));
    m_line->clear();
    m_programs->write("go", "");
    QCOMPARE(runToTheEnd(), QByteArray(failed));
}

void TestFlashSequence::valuesOutOfRangeLeaveTheBar_data()
{
    QTest::addColumn<int>("stage");
    QTest::addColumn<int>("percent");
    for (int stage = 0; stage < 4; ++stage) {
        for (const int percent : {101, 255, INT_MAX, -1, INT_MIN})
            QTest::addRow("%s, %d", bars[stage], percent) << stage << percent;
    }
}

void TestFlashSequence::valuesOutOfRangeLeaveTheBar()
{
    QFETCH(int, stage);
    QFETCH(int, percent);
    for (int i = 0; i < stage; ++i)
        call("next");
    QList<int> expected({0, 0, 0, 0});
    status(40);
    expected[stage] = 40;
    QCOMPARE(barValues(), expected);
    status(percent);
    QCOMPARE(barValues(), expected);
    // Both ends of the range are included.
    for (const int end : {100, 0}) {
        status(end);
        expected[stage] = end;
        QCOMPARE(barValues(), expected);
    }
}

MFTOOL_TEST(TestFlashSequence, Widgets)
#include "tst_flashsequence.moc"
