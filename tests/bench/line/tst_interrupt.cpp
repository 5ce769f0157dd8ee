#include "bench/line/interrupt.h"

#include <QTest>

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include "tests/support/testprogram.h"

namespace
{

/// Runs @p child in a process of its own. @return its wait status
template<typename Child> int statusOf(Child child)
{
    const pid_t process = fork();
    if (process == 0)
        _exit(child());
    int status = 0;
    waitpid(process, &status, 0);
    return status;
}

} // namespace

class TestInterrupt : public QObject
{
    Q_OBJECT

private slots:
    void isRaisedByASignal_data();
    void isRaisedByASignal();
    void theSecondSignalEndsTheProcess_data();
    void theSecondSignalEndsTheProcess();
    void aTerminalMayCloseMoreThanOnce();
    void leavesTheHangUpToNohup();
    void aBrokenPipeIsAFailedWrite();
    void aFullDiskIsNoInterrupt();
    void putsBackWhatWasThere();
    void theFirstCauseStays();
};

void TestInterrupt::isRaisedByASignal_data()
{
    QTest::addColumn<int>("number");
    QTest::addColumn<QString>("reason");
    QTest::newRow("INT") << SIGINT << "interrupted";
    QTest::newRow("QUIT") << SIGQUIT << "interrupted";
    QTest::newRow("HUP") << SIGHUP << "interrupted: the terminal, or the screen, was closed";
    QTest::newRow("TERM") << SIGTERM << "interrupted: the program was told to terminate";
}

void TestInterrupt::isRaisedByASignal()
{
    QFETCH(int, number);
    std::signal(SIGHUP, SIG_DFL); // whoever started the tests may have had it ignored
    Interrupt interrupt;
    interrupt.followSignals();
    QVERIFY(!interrupt.isRaised());
    QCOMPARE(::raise(number), 0);
    QVERIFY(interrupt.isRaised());
    QTEST(interrupt.reason(), "reason");
}

void TestInterrupt::theSecondSignalEndsTheProcess_data()
{
    QTest::addColumn<int>("first");
    QTest::addColumn<int>("second");
    QTest::newRow("INT twice") << SIGINT << SIGINT;
    QTest::newRow("TERM after INT") << SIGINT << SIGTERM;
    QTest::newRow("QUIT after HUP") << SIGHUP << SIGQUIT;
}

void TestInterrupt::theSecondSignalEndsTheProcess()
{
    QFETCH(int, first);
    QFETCH(int, second);
    const int status = statusOf([first, second] {
        Interrupt interrupt;
        interrupt.followSignals();
        ::raise(first);
        ::raise(second);
        return 0;
    });
    QVERIFY(WIFSIGNALED(status));
    QCOMPARE(WTERMSIG(status), second);
}

void TestInterrupt::aTerminalMayCloseMoreThanOnce()
{
    const int status = statusOf([] {
        Interrupt interrupt;
        interrupt.followSignals();
        ::raise(SIGHUP);
        ::raise(SIGHUP);
        return interrupt.isRaised() ? 0 : 1;
    });
    QVERIFY(WIFEXITED(status));
    QCOMPARE(WEXITSTATUS(status), 0);
}

void TestInterrupt::leavesTheHangUpToNohup()
{
    const int status = statusOf([] {
        std::signal(SIGHUP, SIG_IGN);
        Interrupt interrupt;
        interrupt.followSignals();
        ::raise(SIGHUP);
        return interrupt.isRaised() ? 1 : 0;
    });
    QVERIFY(WIFEXITED(status));
    QCOMPARE(WEXITSTATUS(status), 0);
}

void TestInterrupt::aBrokenPipeIsAFailedWrite()
{
    int ends[2] = {-1, -1};
    QVERIFY(pipe2(ends, O_CLOEXEC) == 0);
    FILE *out = fdopen(ends[1], "w");
    Interrupt interrupt;
    interrupt.followSignals();
    std::fputs("heard", out);
    interrupt.flush(out);
    QVERIFY(!interrupt.isRaised());
    close(ends[0]);
    std::fputs("not heard", out);
    interrupt.flush(out);
    QVERIFY(interrupt.isRaised());
    QCOMPARE(interrupt.reason(), QStringLiteral("interrupted: nobody reads the output"));
    std::fclose(out);
}

/// The verdict still goes to the record.
void TestInterrupt::aFullDiskIsNoInterrupt()
{
    FILE *full = std::fopen("/dev/full", "w");
    QVERIFY(full);
    Interrupt interrupt;
    std::fputs("no room", full);
    interrupt.flush(full);
    QVERIFY(!interrupt.isRaised());
    std::fclose(full);
}

void TestInterrupt::putsBackWhatWasThere()
{
    struct sigaction before = {};
    struct sigaction after = {};
    std::signal(SIGTERM, SIG_IGN);
    sigaction(SIGTERM, nullptr, &before);
    {
        Interrupt interrupt;
        interrupt.followSignals();
        sigaction(SIGTERM, nullptr, &after);
        QVERIFY(after.sa_handler != SIG_IGN);
    }
    sigaction(SIGTERM, nullptr, &after);
    QVERIFY(after.sa_handler == SIG_IGN);
    std::signal(SIGTERM, SIG_DFL);
}

void TestInterrupt::theFirstCauseStays()
{
    Interrupt interrupt;
    interrupt.raise(SIGTERM);
    interrupt.raise(SIGPIPE);
    QCOMPARE(interrupt.reason(), QStringLiteral("interrupted: the program was told to terminate"));
}

MFTOOL_TEST(TestInterrupt, EventLoop)
#include "tst_interrupt.moc"
