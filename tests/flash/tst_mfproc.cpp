#include "flash/mfproc.h"
#include "tests/flash/steptest.h"
#include "tests/support/testprogram.h"

#include <QPointer>

#include <cerrno>
#include <csignal>

namespace
{
/// The smallest possible step: it runs "tool" and keeps the lines.
class Tool : public MFProc
{
public:
    Tool() : MFProc(nullptr) {}

    void run() override
    {
        ++runs;
        m_process->start("tool", QStringList(), QIODevice::ReadWrite);
    }

    /// Text to the tool's standard input.
    void tell(const QByteArray &text) { m_process->write(text); }

    QList<QByteArray> lines;
    int runs = 0;

protected:
    void handleLine(const QByteArray &line) override { lines << line; }
};

typedef QList<QByteArray> Lines;
} // namespace

class TestMFProc : public QObject
{
    Q_OBJECT

private slots:
    void signalsAndSlotsComeInTheirOrder();
    void processBelongsToTheStepAndKeepsItsChannelsApart();
    void startCallsRun();
    void processIsOpenedForReadingAndWriting();

    void silentToolThatExitsWith0IsComplete();
    void outputIsCutIntoLines_data();
    void outputIsCutIntoLines();
    void lineIsAssembledFromSeveralReads();
    void allLinesComeBeforeTheEnd();
    void standardErrorIsNotKept();
    void lineWithoutEndIsBounded();
    void unfinishedLineStartsTheNextRun_data();
    void unfinishedLineStartsTheNextRun();

    void badExitCodeFails_data();
    void badExitCodeFails();
    void crashFailsTwice_data();
    void crashFailsTwice();
    void programThatCannotStartFailsOnce_data();
    void programThatCannotStartFailsOnce();
    void everyProcessErrorHasItsText_data();
    void everyProcessErrorHasItsText();
    void everyProcessEndHasItsOutcome_data();
    void everyProcessEndHasItsOutcome();

    void stepRestartsAfterEveryEnd_data();
    void stepRestartsAfterEveryEnd();
    void stepRestartsFromItsOwnOutcome();
    void stepsChainThroughTheirConnections();
    void destroyedStepKillsItsToolInSilence();
};

void TestMFProc::signalsAndSlotsComeInTheirOrder()
{
    QCOMPARE(QString(MFProc::staticMetaObject.className()), QString("MFProc"));
    QCOMPARE(MFProc::staticMetaObject.superClass(), &QObject::staticMetaObject);
    QCOMPARE(declaredMethods(MFProc::staticMetaObject),
             strings("started()", "status(int)", "complete()", "failed(QString)", "start()",
                     "finished(int,QProcess::ExitStatus)", "error(QProcess::ProcessError)",
                     "readyRead()"));

    const int first = MFProc::staticMetaObject.methodOffset();
    for (int i = 0; i < 8; ++i) {
        const QMetaMethod method = MFProc::staticMetaObject.method(first + i);
        const bool isSignal = i < 4;
        QCOMPARE(method.methodType(), isSignal ? QMetaMethod::Signal : QMetaMethod::Slot);
        const QMetaMethod::Access ofSlots = i < 5 ? QMetaMethod::Public : QMetaMethod::Private;
        QCOMPARE(method.access(), isSignal ? accessOfSignals() : ofSlots);
    }
}

void TestMFProc::processBelongsToTheStepAndKeepsItsChannelsApart()
{
    Tool tool;
    QCOMPARE(tool.children().size(), 1);
    QVERIFY(processOf(tool) != nullptr);
    QCOMPARE(processOf(tool)->processChannelMode(), QProcess::SeparateChannels);
    QCOMPARE(processOf(tool)->workingDirectory(), QString());
}

void TestMFProc::startCallsRun()
{
    FakePrograms programs;
    programs.add("tool", "exit 0");
    Tool tool;
    Emitted emitted(&tool);
    QVERIFY(QMetaObject::invokeMethod(&tool, "start"));
    QCOMPARE(tool.runs, 1);
    TRY_COMPARE(emitted.events, strings("status 100", "complete"));
}

void TestMFProc::processIsOpenedForReadingAndWriting()
{
    FakePrograms programs;
    programs.add("tool", "read answer; echo \"$answer\"");
    Tool tool;
    Emitted emitted(&tool);
    tool.start();
    QCOMPARE(processOf(tool)->openMode(), QIODevice::OpenMode(QIODevice::ReadWrite));
    tool.tell("yes\n");
    TRY_COMPARE(emitted.events, strings("status 100", "complete"));
    QCOMPARE(tool.lines, Lines() << "yes\n");
}

void TestMFProc::silentToolThatExitsWith0IsComplete()
{
    FakePrograms programs;
    programs.add("tool", "exit 0");
    Tool tool;
    Emitted emitted(&tool);
    LogCatcher log;
    tool.start();
    TRY_COMPARE(emitted.events, strings("status 100", "complete"));
    QCOMPARE(tool.lines, Lines());
    QCOMPARE(log.lines(), QStringList("debug: process finished with code 0"));
}

void TestMFProc::outputIsCutIntoLines_data()
{
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<Lines>("lines");

    QTest::newRow("CR LF, then an unfinished line") << QByteArray("printf 'a\\r\\nb'")
                                                    << (Lines() << "a\r"
                                                                << "\n");
    QTest::newRow("LF") << QByteArray("printf 'a\\nb\\n'")
                        << (Lines() << "a\n"
                                    << "b\n");
    QTest::newRow("CR") << QByteArray("printf '\\ra\\rb\\r'")
                        << (Lines() << "\r"
                                    << "a\r"
                                    << "b\r");
    QTest::newRow("LF CR") << QByteArray("printf 'a\\n\\rb\\n'")
                           << (Lines() << "a\n"
                                       << "\r"
                                       << "b\n");
    QTest::newRow("empty lines") << QByteArray("printf '\\n\\n\\r\\r'")
                                 << (Lines() << "\n"
                                             << "\n"
                                             << "\r"
                                             << "\r");
    QTest::newRow("no terminator") << QByteArray("printf abc") << Lines();
    QTest::newRow("NUL and bytes above 7F") << QByteArray("printf 'a\\0b\\344\\377\\n'")
                                            << (Lines() << QByteArray("a\0b\xE4\xFF\n", 6));
    QTest::newRow("other control characters")
        << QByteArray("printf 'a\\t\\v\\f\\033b\\n'") << (Lines() << "a\t\v\f\033b\n");
    QTest::newRow("standard error is not read")
        << QByteArray("echo complaint >&2; echo text; echo complaint >&2") << (Lines() << "text\n");
}

void TestMFProc::outputIsCutIntoLines()
{
    QFETCH(QByteArray, body);
    QFETCH(Lines, lines);

    FakePrograms programs;
    programs.add("tool", body);
    Tool tool;
    Emitted emitted(&tool);
    tool.start();
    TRY_COMPARE(emitted.events, strings("status 100", "complete"));
    QCOMPARE(tool.lines, lines);
}

void TestMFProc::lineIsAssembledFromSeveralReads()
{
    FakePrograms programs;
    programs.add("tool", "printf 'first\\nsec'; read go; printf 'ond'; read go; printf '\\n'");
    Tool tool;
    Emitted emitted(&tool);
    tool.start();
    TRY_COMPARE(tool.lines, Lines() << "first\n");
    QCOMPARE(emitted.events, QStringList());
    tool.tell("go\n");
    QCOMPARE(tool.lines, Lines() << "first\n");
    tool.tell("go\n");
    TRY_COMPARE(emitted.events, strings("status 100", "complete"));
    QCOMPARE(tool.lines, Lines() << "first\n"
                                 << "second\n");
}

void TestMFProc::allLinesComeBeforeTheEnd()
{
    FakePrograms programs;
    programs.add("tool", "seq 1 100000");
    Tool tool;
    int linesAtTheEnd = -1;
    onSignal(&tool, SIGNAL(status(int)),
             [&tool, &linesAtTheEnd](const QVariant &) { linesAtTheEnd = int(tool.lines.size()); });
    tool.start();
    TRY_COMPARE(linesAtTheEnd, 100000);
    QCOMPARE(tool.lines.first(), QByteArray("1\n"));
    QCOMPARE(tool.lines.at(49999), QByteArray("50000\n"));
    QCOMPARE(tool.lines.last(), QByteArray("100000\n"));
}

/// Many megabytes of error output are kept nowhere.
void TestMFProc::standardErrorIsNotKept()
{
    FakePrograms programs;
    programs.add("tool", "head -c 20000000 /dev/zero >&2; readlink /proc/$$/fd/2");
    Tool tool;
    Emitted emitted(&tool);
    tool.start();
    TRY_COMPARE(emitted.events, strings("status 100", "complete"));
    QCOMPARE(tool.lines, Lines() << "/dev/null\n");
    QCOMPARE(processOf(tool)->readAllStandardError(), QByteArray());
    QCOMPARE(processOf(tool)->processChannelMode(), QProcess::SeparateChannels);
}

/// Of a line without end, the beginning is kept, and the line after it is found.
void TestMFProc::lineWithoutEndIsBounded()
{
    FakePrograms programs;
    programs.add("tool",
                 "printf begin; head -c 3000000 /dev/zero | tr '\\0' x; printf '\\nnext\\r'");
    Tool tool;
    Emitted emitted(&tool);
    tool.start();
    TRY_COMPARE(emitted.events, strings("status 100", "complete"));
    QCOMPARE(tool.lines.size(), 2);
    QCOMPARE(tool.lines.at(0), "begin" + QByteArray(65536 - 5, 'x') + '\n');
    QCOMPARE(tool.lines.at(1), QByteArray("next\r"));
}

void TestMFProc::unfinishedLineStartsTheNextRun_data()
{
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<QStringList>("outcome");

    QTest::newRow("after success")
        << QByteArray("printf 'a\\r\\nb'") << strings("status 100", "complete");
    QTest::newRow("after a bad exit code")
        << QByteArray("printf 'a\\r\\nb'; exit 3") << QStringList("failed Finished with Error");
    QTest::newRow("after a crash") << QByteArray("printf 'a\\r\\nb'; kill -KILL $$")
                                   << strings("failed Crashed", "failed Crashed");
}

void TestMFProc::unfinishedLineStartsTheNextRun()
{
    QFETCH(QByteArray, body);
    QFETCH(QStringList, outcome);

    FakePrograms programs;
    programs.add("tool", body);
    Tool tool;
    Emitted emitted(&tool);
    tool.start();
    TRY_COMPARE(emitted.events, outcome);
    QCOMPARE(tool.lines, Lines() << "a\r"
                                 << "\n");

    // A run that cannot be started does not lose it, either.
    QFile::remove(programs.path("tool"));
    tool.start();
    outcome << "failed Failed to Start";
    TRY_COMPARE(emitted.events, outcome);

    programs.add("tool", "printf 'c\\nd\\n'");
    tool.start();
    outcome << "status 100"
            << "complete";
    TRY_COMPARE(emitted.events, outcome);
    QCOMPARE(tool.lines, Lines() << "a\r"
                                 << "\n"
                                 << "bc\n"
                                 << "d\n");
}

void TestMFProc::badExitCodeFails_data()
{
    QTest::addColumn<int>("exitCode");

    QTest::newRow("1") << 1;
    QTest::newRow("32") << 32;
    QTest::newRow("255") << 255;
}

void TestMFProc::badExitCodeFails()
{
    QFETCH(int, exitCode);

    FakePrograms programs;
    programs.add("tool", "echo text; exit " + QByteArray::number(exitCode));
    Tool tool;
    Emitted emitted(&tool);
    LogCatcher log;
    tool.start();
    TRY_COMPARE(emitted.events, QStringList("failed Finished with Error"));
    QCOMPARE(tool.lines, Lines() << "text\n");
    QCOMPARE(log.lines(),
             QStringList(QString("debug: process finished with code %1").arg(exitCode)));
}

void TestMFProc::crashFailsTwice_data()
{
    QTest::addColumn<QByteArray>("signal");
    QTest::addColumn<int>("number");

    QTest::newRow("segmentation fault") << QByteArray("SEGV") << SIGSEGV;
    QTest::newRow("division by zero") << QByteArray("FPE") << SIGFPE;
    QTest::newRow("killed") << QByteArray("KILL") << SIGKILL;
    QTest::newRow("terminated") << QByteArray("TERM") << SIGTERM;
}

void TestMFProc::crashFailsTwice()
{
    QFETCH(QByteArray, signal);
    QFETCH(int, number);

    FakePrograms programs;
    programs.add("tool", "echo text; kill -" + signal + " $$");
    Tool tool;
    Emitted emitted(&tool);
    LogCatcher log;
    tool.start();
    TRY_COMPARE(emitted.events, strings("failed Crashed", "failed Crashed"));
    QCOMPARE(tool.lines, Lines() << "text\n");
    QCOMPARE(log.lines(), strings("debug: Process error 'Crashed'",
                                  QString("debug: process finished with code %1").arg(number)));
}

void TestMFProc::programThatCannotStartFailsOnce_data()
{
    QTest::addColumn<QByteArray>("file");
    QTest::addColumn<bool>("executable");

    QTest::newRow("no such program") << QByteArray() << false;
    QTest::newRow("not executable") << QByteArray("#!/bin/sh\nexit 0\n") << false;
    QTest::newRow("its interpreter is missing")
        << QByteArray("#!/there/is/no/such/shell\nexit 0\n") << true;
}

void TestMFProc::programThatCannotStartFailsOnce()
{
    QFETCH(QByteArray, file);
    QFETCH(bool, executable);

    FakePrograms programs;
    if (!file.isEmpty())
        programs.write("tool", file);
    if (executable)
        QFile::setPermissions(programs.path("tool"), QFile::ReadOwner | QFile::ExeOwner);
    Tool tool;
    Emitted emitted(&tool);
    LogCatcher log;
    tool.start();
    TRY_COMPARE(emitted.events, QStringList("failed Failed to Start"));
    QCOMPARE(log.lines(), QStringList("debug: Process error 'Failed to Start'"));

    // Nothing of the failed start comes late: only the next run's end follows.
    QFile::remove(programs.path("tool"));
    programs.add("tool", "exit 0");
    tool.start();
    TRY_COMPARE(emitted.events, strings("failed Failed to Start", "status 100", "complete"));
    QCOMPARE(log.lines(), strings("debug: Process error 'Failed to Start'",
                                  "debug: process finished with code 0"));
}

void TestMFProc::everyProcessErrorHasItsText_data()
{
    QTest::addColumn<int>("error");
    QTest::addColumn<QString>("text");

    QTest::newRow("FailedToStart") << int(QProcess::FailedToStart) << "Failed to Start";
    QTest::newRow("Crashed") << int(QProcess::Crashed) << "Crashed";
    QTest::newRow("Timedout") << int(QProcess::Timedout) << "Timed Out";
    QTest::newRow("ReadError") << int(QProcess::ReadError) << "Read Error";
    QTest::newRow("WriteError") << int(QProcess::WriteError) << "Write Error";
    QTest::newRow("UnknownError") << int(QProcess::UnknownError) << "Unknown";
    QTest::newRow("a value that has no name yet") << 6 << "Unknown";
}

void TestMFProc::everyProcessErrorHasItsText()
{
    QFETCH(int, error);
    QFETCH(QString, text);

    Tool tool;
    Emitted emitted(&tool);
    LogCatcher log;
    QVERIFY(QMetaObject::invokeMethod(
        &tool, "error", Q_ARG(QProcess::ProcessError, QProcess::ProcessError(error))));
    QCOMPARE(emitted.events, QStringList("failed " + text));
    QCOMPARE(log.lines(), QStringList("debug: Process error '" + text + "'"));
}

void TestMFProc::everyProcessEndHasItsOutcome_data()
{
    QTest::addColumn<int>("exitCode");
    QTest::addColumn<bool>("crash");
    QTest::addColumn<QStringList>("outcome");

    QTest::newRow("exit 0") << 0 << false << strings("status 100", "complete");
    QTest::newRow("exit 1") << 1 << false << QStringList("failed Finished with Error");
    QTest::newRow("exit -1") << -1 << false << QStringList("failed Finished with Error");
    // Qt 4 reports code 0 for a crash.
    QTest::newRow("crash with code 0") << 0 << true << QStringList("failed Crashed");
    QTest::newRow("crash with code 11") << 11 << true << QStringList("failed Crashed");
}

void TestMFProc::everyProcessEndHasItsOutcome()
{
    QFETCH(int, exitCode);
    QFETCH(bool, crash);
    QFETCH(QStringList, outcome);

    Tool tool;
    Emitted emitted(&tool);
    LogCatcher log;
    QVERIFY(QMetaObject::invokeMethod(
        &tool, "finished", Q_ARG(int, exitCode),
        Q_ARG(QProcess::ExitStatus, crash ? QProcess::CrashExit : QProcess::NormalExit)));
    QCOMPARE(emitted.events, outcome);
    QCOMPARE(log.lines(),
             QStringList(QString("debug: process finished with code %1").arg(exitCode)));
}

void TestMFProc::stepRestartsAfterEveryEnd_data()
{
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<QStringList>("outcome");

    QTest::newRow("success") << QByteArray("exit 0") << strings("status 100", "complete");
    QTest::newRow("bad exit code")
        << QByteArray("exit 1") << QStringList("failed Finished with Error");
    QTest::newRow("crash") << QByteArray("kill -SEGV $$")
                           << strings("failed Crashed", "failed Crashed");
    QTest::newRow("no program") << QByteArray() << QStringList("failed Failed to Start");
}

void TestMFProc::stepRestartsAfterEveryEnd()
{
    QFETCH(QByteArray, body);
    QFETCH(QStringList, outcome);

    FakePrograms programs;
    Tool tool;
    Emitted emitted(&tool);
    QStringList expected;
    // Twice, to see that a step recovers from a bad run as well.
    for (int round = 0; round < 2; ++round) {
        QFile::remove(programs.path("tool"));
        if (!body.isEmpty())
            programs.add("tool", body);
        tool.start();
        expected << outcome;
        TRY_COMPARE(emitted.events, expected);

        programs.add("tool", "echo again");
        tool.start();
        expected << "status 100"
                 << "complete";
        TRY_COMPARE(emitted.events, expected);
    }
    QCOMPARE(tool.lines, Lines() << "again\n"
                                 << "again\n");
}

void TestMFProc::stepRestartsFromItsOwnOutcome()
{
    // A station may ask for the next run as soon as it reads the report of the
    // last one, which is written while the end is still being reported.
    FakePrograms programs;
    programs.add("tool", "echo once; exit 1");
    Tool tool;
    Emitted emitted(&tool);
    onSignal(&tool, SIGNAL(failed(QString)), [&tool, &programs](const QVariant &) {
        programs.add("tool", "echo more");
        tool.start();
    });
    tool.start();
    TRY_COMPARE(emitted.events, strings("failed Finished with Error", "status 100", "complete"));
    QCOMPARE(tool.lines, Lines() << "once\n"
                                 << "more\n");
}

void TestMFProc::stepsChainThroughTheirConnections()
{
    FakePrograms programs;
    programs.add("tool", "exit 0");
    Tool first;
    Tool second;
    Emitted emitted(&second);
    int runsAtStageChange = -1;
    onSignal(&first, SIGNAL(complete()),
             [&second, &runsAtStageChange](const QVariant &) { runsAtStageChange = second.runs; });
    QVERIFY(connect(&first, SIGNAL(complete()), &second, SLOT(start())));
    first.run();
    TRY_COMPARE(emitted.events, strings("status 100", "complete"));
    QCOMPARE(runsAtStageChange, 0);
    QCOMPARE(second.runs, 1);
}

void TestMFProc::destroyedStepKillsItsToolInSilence()
{
    FakePrograms programs;
    programs.add("tool", "echo $$; exec sleep 1000");
    QPointer<Tool> tool = new Tool;
    Emitted emitted(tool);
    tool->start();
    TRY_COMPARE(tool->lines.size(), 1);
    const pid_t pid = tool->lines.first().trimmed().toInt();
    QCOMPARE(kill(pid, 0), 0);

    LogCatcher log;
    delete tool;
    QCOMPARE(kill(pid, 0), -1);
    QCOMPARE(errno, ESRCH);
    QCOMPARE(emitted.events, QStringList());
    QCOMPARE(log.lines().size(), 1);
    QVERIFY2(log.lines().first().startsWith("warning: QProcess: Destroyed while process"),
             qPrintable(log.lines().first()));
}

MFTOOL_TEST(TestMFProc, EventLoop)
#include "tst_mfproc.moc"
