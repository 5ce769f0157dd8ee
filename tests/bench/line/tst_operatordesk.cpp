#include "bench/line/operatordesk.h"

#include <QElapsedTimer>
#include <QList>
#include <QTest>
#include <QTimer>

#include <fcntl.h>
#include <pty.h>
#include <unistd.h>

#include "tests/support/testprogram.h"

namespace
{

QList<int> newPipe()
{
    int ends[2] = {-1, -1};
    if (pipe2(ends, O_CLOEXEC) != 0)
        qFatal("no pipe");
    return {ends[0], ends[1]};
}

/// A desk whose keyboard is a pipe.
struct Desk {
    ~Desk()
    {
        close(ends.at(0));
        hangUp();
        std::fclose(prompts);
    }
    void type(const QByteArray &text)
    {
        if (write(ends.at(1), text.constData(), static_cast<size_t>(text.size())) != text.size())
            qFatal("cannot type");
    }
    void hangUp()
    {
        if (ends.at(1) >= 0)
            close(ends.at(1));
        ends[1] = -1;
    }
    QByteArray printed()
    {
        std::rewind(prompts);
        QByteArray text(4096, '\0');
        text.resize(static_cast<int>(
            std::fread(text.data(), 1, static_cast<size_t>(text.size()), prompts)));
        return text;
    }

    QList<int> ends = newPipe();
    FILE *prompts = std::tmpfile();
    OperatorDesk desk{ends.at(0), prompts};
};

const int LongMs = 20000;

} // namespace

class TestOperatorDesk : public QObject
{
    Q_OBJECT

private slots:
    void tellsWithoutWaiting();
    void confirmsWithEnter();
    void asksUntilItUnderstands_data();
    void asksUntilItUnderstands();
    void keepsWhatAProgramSaidAhead();
    void forgetsWhatAPersonTypedAhead();
    void stopsWhenInterrupted();
    void asksNobodyWhoCannotRead();
    void isTooLate();
    void noticesThatNobodyIsThere();
    void knowsBeforeItAsksThatNobodyIsThere();
    void servesTheLineMeanwhile();
};

void TestOperatorDesk::tellsWithoutWaiting()
{
    Desk desk;
    desk.desk.tell(QStringLiteral("Touch it."));
    QCOMPARE(desk.printed(), QByteArray("\n  >> Touch it.\n"));
}

void TestOperatorDesk::confirmsWithEnter()
{
    Desk desk;
    desk.type("\n");
    QCOMPARE(int(desk.desk.confirm(QStringLiteral("Press it."), LongMs)), int(OperatorDesk::Yes));
    QCOMPARE(desk.printed(), QByteArray("\n  >> Press it.  Then press Enter: "));
}

void TestOperatorDesk::asksUntilItUnderstands_data()
{
    QTest::addColumn<QByteArray>("typed");
    QTest::addColumn<int>("reply");
    QTest::addColumn<int>("questions");
    QTest::newRow("enter is no yes") << QByteArray("\n\ny\n") << int(OperatorDesk::Yes) << 3;
    QTest::newRow("enter is no no") << QByteArray(" \nn\n") << int(OperatorDesk::No) << 2;
    QTest::newRow("y") << QByteArray("y\n") << int(OperatorDesk::Yes) << 1;
    QTest::newRow("YES") << QByteArray(" YES \n") << int(OperatorDesk::Yes) << 1;
    QTest::newRow("n") << QByteArray("n\n") << int(OperatorDesk::No) << 1;
    QTest::newRow("No") << QByteArray("No\r\n") << int(OperatorDesk::No) << 1;
    QTest::newRow("perhaps, then n") << QByteArray("perhaps\nn\n") << int(OperatorDesk::No) << 2;
}

void TestOperatorDesk::asksUntilItUnderstands()
{
    QFETCH(QByteArray, typed);
    QFETCH(int, questions);
    Desk desk;
    desk.type(typed);
    QTEST(int(desk.desk.question(QStringLiteral("Is it lit?"), LongMs)), "reply");
    QCOMPARE(desk.printed().count("Is it lit? [y/n]"), questions);
}

void TestOperatorDesk::keepsWhatAProgramSaidAhead()
{
    Desk desk;
    desk.type("\nn\ny");
    QCOMPARE(int(desk.desk.confirm(QStringLiteral("1"), LongMs)), int(OperatorDesk::Yes));
    QCOMPARE(int(desk.desk.question(QStringLiteral("2"), LongMs)), int(OperatorDesk::No));
    desk.type("\n");
    QCOMPARE(int(desk.desk.question(QStringLiteral("3"), LongMs)), int(OperatorDesk::Yes));
}

void TestOperatorDesk::forgetsWhatAPersonTypedAhead()
{
    int keyboard = -1;
    int terminal = -1;
    QVERIFY(openpty(&keyboard, &terminal, nullptr, nullptr, nullptr) == 0);
    FILE *prompts = std::tmpfile();
    OperatorDesk desk(terminal, prompts);
    // A key that bounces: the second line must not answer what comes next.
    QCOMPARE(write(keyboard, "\n\n", 2), ssize_t(2));
    QTimer::singleShot(50, [keyboard] { QCOMPARE(write(keyboard, "\n\n", 2), ssize_t(2)); });
    QCOMPARE(int(desk.confirm(QStringLiteral("1"), LongMs)), int(OperatorDesk::Yes));
    QTimer::singleShot(50, [keyboard] { QCOMPARE(write(keyboard, "n\n", 2), ssize_t(2)); });
    QCOMPARE(int(desk.question(QStringLiteral("2"), LongMs)), int(OperatorDesk::No));
    std::fclose(prompts);
    close(terminal);
    close(keyboard);
}

void TestOperatorDesk::stopsWhenInterrupted()
{
    Desk desk;
    Interrupt interrupt;
    OperatorDesk interruptible(desk.ends.at(0), desk.prompts, &interrupt);
    QTimer::singleShot(50, [&interrupt] { interrupt.raise(); });
    QCOMPARE(int(interruptible.question(QStringLiteral("1"), LongMs)),
             int(OperatorDesk::Interrupted));
    QCOMPARE(int(interruptible.confirm(QStringLiteral("2"), LongMs)),
             int(OperatorDesk::Interrupted));
    // What is printed next begins a line of its own.
    QCOMPARE(desk.printed(), QByteArray("\n  >> 1 [y/n] \n\n  >> 2  Then press Enter: \n"));
}

void TestOperatorDesk::asksNobodyWhoCannotRead()
{
    Desk desk;
    const QList<int> ends = newPipe();
    FILE *prompts = fdopen(ends.at(1), "w");
    close(ends.at(0));
    Interrupt interrupt;
    interrupt.followSignals(); // the pipe's signal would end the test
    OperatorDesk unread(desk.ends.at(0), prompts, &interrupt);
    QCOMPARE(int(unread.question(QStringLiteral("1"), LongMs)), int(OperatorDesk::Interrupted));
    QVERIFY(interrupt.isRaised());
    std::fclose(prompts);
}

void TestOperatorDesk::isTooLate()
{
    Desk desk;
    QElapsedTimer clock;
    clock.start();
    QCOMPARE(int(desk.desk.confirm(QStringLiteral("1"), 100)), int(OperatorDesk::TooLate));
    QVERIFY(clock.elapsed() >= 100);
    desk.type("half a line");
    QCOMPARE(int(desk.desk.question(QStringLiteral("2"), 100)), int(OperatorDesk::TooLate));
}

void TestOperatorDesk::noticesThatNobodyIsThere()
{
    Desk desk;
    desk.hangUp();
    QCOMPARE(int(desk.desk.confirm(QStringLiteral("1"), LongMs)), int(OperatorDesk::Nobody));
    QCOMPARE(int(desk.desk.question(QStringLiteral("2"), LongMs)), int(OperatorDesk::Nobody));
}

void TestOperatorDesk::knowsBeforeItAsksThatNobodyIsThere()
{
    Desk desk;
    QVERIFY(!desk.desk.isDeserted());
    // A program has said all that it will: its answer is still good.
    desk.type("y\n");
    desk.hangUp();
    QVERIFY(!desk.desk.isDeserted());
    QCOMPARE(int(desk.desk.question(QStringLiteral("1"), LongMs)), int(OperatorDesk::Yes));
    QVERIFY(desk.desk.isDeserted());
}

void TestOperatorDesk::servesTheLineMeanwhile()
{
    Desk desk;
    QTimer::singleShot(50, [&desk] { desk.type("\n"); });
    QCOMPARE(int(desk.desk.confirm(QStringLiteral("1"), LongMs)), int(OperatorDesk::Yes));
}

MFTOOL_TEST(TestOperatorDesk, EventLoop)
#include "tst_operatordesk.moc"
