// How long the end of a frame is waited for, on lines that only count, and on real ones.
#include "protocol/quietline.h"

#include <QElapsedTimer>
#include <QList>
#include <QtTest>

#include <fcntl.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include "tests/support/ptyline.h"
#include "tests/support/testprogram.h"

/// What the kernel fills in for TCGETS2; its own header cannot be included together with
/// <termios.h>.
struct termios2 {
    char bytes[44];
};

namespace
{

/// A line whose clock is the sum of its pauses.
class CountedLine : public ReceivingLine
{
public:
    unsigned speed() const override { return m_speed; }
    int waiting() const override { return m_counts.value(int(pauses.size()), m_counts.last()); }
    void pause(unsigned microseconds) override
    {
        pauses.append(microseconds);
        if (growing)
            m_counts.append(m_counts.last() + 16);
    }

    CountedLine(unsigned speed, const QList<int> &counts) : m_speed(speed), m_counts(counts) {}

    bool growing = false; ///< it never falls silent
    QList<unsigned> pauses;

    unsigned total() const
    {
        unsigned sum = 0;
        for (const unsigned microseconds : pauses)
            sum += microseconds;
        return sum;
    }

private:
    const unsigned m_speed;
    QList<int> m_counts; ///< what waits before the first pause, after it, after the second ...
};

} // namespace

class TestQuietLine : public QObject
{
    Q_OBJECT

private slots:
    void waitsUntilNothingMoreComes_data();
    void waitsUntilNothingMoreComes();
    void pauseSuitsTheSpeed_data();
    void pauseSuitsTheSpeed();
    void endsWhereALineNeverFallsSilent_data();
    void endsWhereALineNeverFallsSilent();
    void pseudoTerminalIsNoUart();
    void noTerminalIsNoUart();
    void terminalIsReadOnlyAfterIt();
};

void TestQuietLine::waitsUntilNothingMoreComes_data()
{
    QTest::addColumn<QList<int>>("counts");
    QTest::addColumn<int>("pauses");
    QTest::newRow("whole at once") << QList<int>{22} << 1;
    QTest::newRow("nothing at all") << QList<int>{0} << 1;
    QTest::newRow("two pieces") << QList<int>{16, 22} << 2;
    QTest::newRow("four pieces") << QList<int>{8, 16, 32, 40} << 4;
    QTest::newRow("byte by byte") << QList<int>{1, 2, 3, 4, 5, 6, 7, 8} << 8;
}

void TestQuietLine::waitsUntilNothingMoreComes()
{
    QFETCH(QList<int>, counts);
    QFETCH(int, pauses);
    CountedLine line(115200, counts);
    waitUntilQuiet(line);
    QCOMPARE(int(line.pauses.size()), pauses);
}

void TestQuietLine::pauseSuitsTheSpeed_data()
{
    QTest::addColumn<unsigned>("speed");
    QTest::addColumn<unsigned>("microseconds");
    // 36 characters of ten bits each, 3 ms at least.
    QTest::newRow("115200") << 115200U << 3125U;
    QTest::newRow("9600") << 9600U << 37500U;
    QTest::newRow("300") << 300U << 1200000U;
    QTest::newRow("230400") << 230400U << 3000U;
    QTest::newRow("as 9600") << 0U << 37500U;
    // Never more than 1024 characters.
    QTest::newRow("4000000") << 4000000U << 2560U;
}

void TestQuietLine::pauseSuitsTheSpeed()
{
    QFETCH(unsigned, speed);
    QFETCH(unsigned, microseconds);
    CountedLine line(speed, {22});
    waitUntilQuiet(line);
    QCOMPARE(line.pauses, QList<unsigned>{microseconds});
}

void TestQuietLine::endsWhereALineNeverFallsSilent_data()
{
    QTest::addColumn<unsigned>("speed");
    QTest::addColumn<unsigned>("microseconds");
    // 1024 characters of ten bits each.
    QTest::newRow("115200") << 115200U << 88888U;
    QTest::newRow("9600") << 9600U << 1066666U;
    QTest::newRow("4000000") << 4000000U << 2560U;
}

void TestQuietLine::endsWhereALineNeverFallsSilent()
{
    QFETCH(unsigned, speed);
    QFETCH(unsigned, microseconds);
    CountedLine line(speed, {16});
    line.growing = true;
    waitUntilQuiet(line);
    QCOMPARE(line.total(), microseconds);
}

void TestQuietLine::pseudoTerminalIsNoUart()
{
    const PtyLine line;
    const int fd = open(qPrintable(line.path()), O_RDWR | O_NOCTTY);
    QVERIFY(fd >= 0);
    QVERIFY(!isUart(fd));
    close(fd);
}

void TestQuietLine::noTerminalIsNoUart()
{
    const int fd = open("/dev/null", O_RDWR);
    QVERIFY(!isUart(fd));
    close(fd);
    QVERIFY(!isUart(-1));
}

/// The speed is the line's present one; nothing is read from it.
void TestQuietLine::terminalIsReadOnlyAfterIt()
{
    PtyLine line;
    const int fd = open(qPrintable(line.path()), O_RDWR | O_NOCTTY);
    QVERIFY(fd >= 0);
    termios2 record;
    if (ioctl(fd, TCGETS2, &record) != 0) {
        close(fd);
        QSKIP("the kernel, or what emulates it, does not tell a line's speed as a number");
    }
    termios settings;
    QCOMPARE(tcgetattr(fd, &settings), 0);
    cfsetspeed(&settings, B1200);
    QCOMPARE(tcsetattr(fd, TCSANOW, &settings), 0);
    line.send("frame");
    QElapsedTimer clock;
    clock.start();
    waitUntilQuiet(fd);
    QVERIFY2(clock.nsecsElapsed() >= 300 * 1000000LL, qPrintable(QString::number(clock.elapsed())));
    char bytes[10];
    QCOMPARE(int(read(fd, bytes, sizeof bytes)), 5);
    close(fd);
}

MFTOOL_TEST(TestQuietLine, NoApplication)
#include "tst_quietline.moc"
