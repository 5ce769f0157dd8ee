/// The guard of a program that must not outlive the bench: it ends when its input does.

#include "tests/support/testprogram.h"

#include <QFile>
#include <QProcess>
#include <QTest>

#include <csignal>
#include <sys/types.h>

namespace
{

const int LimitMs = 60000;

QByteArray contentOf(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

/// Its state as the kernel's letter ("S", "T"); empty when it is gone.
QByteArray stateOf(pid_t process)
{
    const QByteArray stat = contentOf(QStringLiteral("/proc/%1/stat").arg(process));
    return stat.mid(stat.lastIndexOf(')') + 2).left(1);
}

/// What the guard keeps; 0 while there is nothing.
pid_t guardedBy(const QProcess &guard)
{
    return contentOf(QStringLiteral("/proc/%1/task/%1/children").arg(guard.processId()))
        .trimmed()
        .toInt();
}

} // namespace

class TestGuard : public QObject
{
    Q_OBJECT

private slots:
    void endsTheProgramWithItsInput();
    void endsAProgramThatHadStoodStill();
    void endsWithTheProgram();
};

void TestGuard::endsTheProgramWithItsInput()
{
    QProcess guard;
    guard.start(QStringLiteral(HOST),
                {QStringLiteral("--guard"), QStringLiteral("sleep"), QStringLiteral("3600")});
    QTRY_VERIFY_WITH_TIMEOUT(guardedBy(guard) > 0, LimitMs);
    const pid_t program = guardedBy(guard);
    guard.closeWriteChannel();
    QTRY_COMPARE_WITH_TIMEOUT(guard.state(), QProcess::NotRunning, LimitMs);
    QVERIFY(stateOf(program).isEmpty());
}

/// A child that stops is news of it, too, but not its end.
void TestGuard::endsAProgramThatHadStoodStill()
{
    QProcess guard;
    guard.start(QStringLiteral(HOST),
                {QStringLiteral("--guard"), QStringLiteral("sleep"), QStringLiteral("3600")});
    QTRY_VERIFY_WITH_TIMEOUT(guardedBy(guard) > 0, LimitMs);
    const pid_t program = guardedBy(guard);
    QCOMPARE(::kill(program, SIGSTOP), 0);
    QTRY_COMPARE_WITH_TIMEOUT(stateOf(program), QByteArray("T"), LimitMs);
    QCOMPARE(::kill(program, SIGCONT), 0);
    QTRY_COMPARE_WITH_TIMEOUT(stateOf(program), QByteArray("S"), LimitMs);
    guard.closeWriteChannel();
    QTRY_COMPARE_WITH_TIMEOUT(guard.state(), QProcess::NotRunning, LimitMs);
    QVERIFY(stateOf(program).isEmpty());
}

void TestGuard::endsWithTheProgram()
{
    QProcess guard;
    guard.start(QStringLiteral(HOST), {QStringLiteral("--guard"), QStringLiteral("sh"),
                                       QStringLiteral("-c"), QStringLiteral("exit 7")});
    QTRY_COMPARE_WITH_TIMEOUT(guard.state(), QProcess::NotRunning, LimitMs);
    QCOMPARE(guard.exitCode(), 7);
}

MFTOOL_TEST(TestGuard, EventLoop)
#include "tst_guard.moc"
