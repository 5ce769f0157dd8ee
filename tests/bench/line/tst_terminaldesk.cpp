#include "bench/line/terminaldesk.h"

#include "tests/bench/line/otherside.h"
#include "tests/support/testprogram.h"

#include <QElapsedTimer>
#include <QTest>

#include <unistd.h>

namespace
{

/// A desk at a person whom a test plays.
struct Desk : OtherSide {
    explicit Desk(Kind kind = Pipe) : OtherSide(kind) {}

    Interrupt interrupt;
    TerminalDesk desk{answers(), questions(), &interrupt};
};

const int LongMs = 600000;

} // namespace

class TestTerminalDesk : public QObject
{
    Q_OBJECT

private slots:
    void tellsWithoutWaiting();
    void confirmsWithEnter();
    void asksUntilItUnderstands_data();
    void asksUntilItUnderstands();
    void keepsWhatAProgramSaidAhead();
    void forgetsWhatAPersonTypedAhead();
    void asksForALine_data();
    void asksForALine();
    void stopsWhenInterrupted();
    void asksNobodyWhoCannotRead();
    void isTooLate();
    void noticesThatNobodyIsThere();
    void knowsBeforeItAsksThatNobodyIsThere();
    void servesTheLineMeanwhile();
};

void TestTerminalDesk::tellsWithoutWaiting()
{
    Desk desk;
    desk.desk.tell(QStringLiteral("Touch it."));
    QCOMPARE(desk.heard(), QByteArray("\n  >> Touch it.\n"));
}

void TestTerminalDesk::confirmsWithEnter()
{
    Desk desk;
    desk.say("\n");
    QCOMPARE(int(desk.desk.confirm(QStringLiteral("Press it."), LongMs)), int(TerminalDesk::Yes));
    QCOMPARE(desk.heard(), QByteArray("\n  >> Press it.  Then press Enter: "));
}

void TestTerminalDesk::asksUntilItUnderstands_data()
{
    QTest::addColumn<QByteArray>("typed");
    QTest::addColumn<int>("reply");
    QTest::addColumn<int>("questions");
    QTest::newRow("enter is no yes") << QByteArray("\n\ny\n") << int(TerminalDesk::Yes) << 3;
    QTest::newRow("enter is no no") << QByteArray(" \nn\n") << int(TerminalDesk::No) << 2;
    QTest::newRow("y") << QByteArray("y\n") << int(TerminalDesk::Yes) << 1;
    QTest::newRow("YES") << QByteArray(" YES \n") << int(TerminalDesk::Yes) << 1;
    QTest::newRow("n") << QByteArray("n\n") << int(TerminalDesk::No) << 1;
    QTest::newRow("No") << QByteArray("No\r\n") << int(TerminalDesk::No) << 1;
    QTest::newRow("perhaps, then n") << QByteArray("perhaps\nn\n") << int(TerminalDesk::No) << 2;
}

void TestTerminalDesk::asksUntilItUnderstands()
{
    QFETCH(QByteArray, typed);
    QFETCH(int, questions);
    Desk desk;
    desk.say(typed);
    QTEST(int(desk.desk.question(QStringLiteral("Is it lit?"), LongMs)), "reply");
    QCOMPARE(desk.heard().count("Is it lit? [y/n]"), questions);
}

void TestTerminalDesk::keepsWhatAProgramSaidAhead()
{
    Desk desk;
    desk.say("\nn\ny");
    QCOMPARE(int(desk.desk.confirm(QStringLiteral("1"), LongMs)), int(TerminalDesk::Yes));
    QCOMPARE(int(desk.desk.question(QStringLiteral("2"), LongMs)), int(TerminalDesk::No));
    desk.say("\n");
    QCOMPARE(int(desk.desk.question(QStringLiteral("3"), LongMs)), int(TerminalDesk::Yes));
}

/// A key that bounces, or was hit too early, answers nothing that nobody has read.
void TestTerminalDesk::forgetsWhatAPersonTypedAhead()
{
    Desk desk(Desk::Terminal);
    desk.say("y\ny\n");
    desk.answer("1 [y/n]", "n\ny\n");
    QCOMPARE(int(desk.desk.question(QStringLiteral("1"), LongMs)), int(TerminalDesk::No));
    desk.answer("2 [y/n]", "n\n");
    QCOMPARE(int(desk.desk.question(QStringLiteral("2"), LongMs)), int(TerminalDesk::No));
    desk.say("KP-1\n");
    desk.answer("Number:", "KP-2\n");
    QString line;
    QCOMPARE(int(desk.desk.ask(QStringLiteral("Number"), LongMs, &line)), int(TerminalDesk::Yes));
    QCOMPARE(line, QStringLiteral("KP-2"));
    desk.say("\n");
    QCOMPARE(int(desk.desk.confirm(QStringLiteral("3"), 1)), int(TerminalDesk::TooLate));
}

void TestTerminalDesk::asksForALine_data()
{
    QTest::addColumn<QByteArray>("typed");
    QTest::addColumn<QString>("line");
    QTest::newRow("a word") << QByteArray("KP-0042\n") << "KP-0042";
    QTest::newRow("what a scanner sends") << QByteArray(" KP-0042 \r\n") << "KP-0042";
    QTest::newRow("not only ASCII")
        << QByteArray("J\xc3\xb6rg\n") << QString(QLatin1String("J\xf6rg"));
    QTest::newRow("Enter alone") << QByteArray("\nKP-0042\n") << "";
}

void TestTerminalDesk::asksForALine()
{
    QFETCH(QByteArray, typed);
    Desk desk;
    desk.say(typed);
    QString line = QStringLiteral("before");
    QCOMPARE(int(desk.desk.ask(QStringLiteral("Serial number"), LongMs, &line)),
             int(TerminalDesk::Yes));
    QTEST(line, "line");
    QCOMPARE(desk.heard(), QByteArray("\n  >> Serial number: "));
}

void TestTerminalDesk::stopsWhenInterrupted()
{
    Desk desk;
    desk.when([&] { return desk.heard().contains("1 [y/n]"); }, [&] { desk.interrupt.raise(); });
    QCOMPARE(int(desk.desk.question(QStringLiteral("1"), LongMs)), int(TerminalDesk::Interrupted));
    QCOMPARE(int(desk.desk.confirm(QStringLiteral("2"), LongMs)), int(TerminalDesk::Interrupted));
    // What is printed next begins a line of its own.
    QCOMPARE(desk.heard(), QByteArray("\n  >> 1 [y/n] \n\n  >> 2  Then press Enter: \n"));
}

void TestTerminalDesk::asksNobodyWhoCannotRead()
{
    Desk desk;
    int ends[2] = {-1, -1};
    QCOMPARE(pipe(ends), 0);
    FILE *prompts = fdopen(ends[1], "w");
    close(ends[0]);
    Interrupt interrupt;
    interrupt.followSignals(); // the pipe's signal would end the test
    TerminalDesk unread(desk.answers(), prompts, &interrupt);
    QCOMPARE(int(unread.question(QStringLiteral("1"), LongMs)), int(TerminalDesk::Interrupted));
    QVERIFY(interrupt.isRaised());
    std::fclose(prompts);
}

void TestTerminalDesk::isTooLate()
{
    Desk desk;
    QElapsedTimer clock;
    clock.start();
    QCOMPARE(int(desk.desk.confirm(QStringLiteral("1"), 100)), int(TerminalDesk::TooLate));
    QVERIFY(clock.elapsed() >= 100);
    desk.say("half a line");
    QCOMPARE(int(desk.desk.question(QStringLiteral("2"), 100)), int(TerminalDesk::TooLate));
    // The program stood still, or the machine: what was typed before it looks is in time.
    desk.say("\n");
    QCOMPARE(int(desk.desk.confirm(QStringLiteral("3"), 0)), int(TerminalDesk::Yes));
}

void TestTerminalDesk::noticesThatNobodyIsThere()
{
    Desk desk;
    desk.hangUp();
    QCOMPARE(int(desk.desk.confirm(QStringLiteral("1"), LongMs)), int(TerminalDesk::Nobody));
    QCOMPARE(int(desk.desk.question(QStringLiteral("2"), LongMs)), int(TerminalDesk::Nobody));
    QString line = QStringLiteral("before");
    QCOMPARE(int(desk.desk.ask(QStringLiteral("3"), LongMs, &line)), int(TerminalDesk::Nobody));
    QCOMPARE(line, QStringLiteral("before"));
}

void TestTerminalDesk::knowsBeforeItAsksThatNobodyIsThere()
{
    Desk desk;
    QVERIFY(!desk.desk.isDeserted());
    // A program has said all that it will: its answer is still good.
    desk.say("y\n");
    desk.hangUp();
    QVERIFY(!desk.desk.isDeserted());
    QCOMPARE(int(desk.desk.question(QStringLiteral("1"), LongMs)), int(TerminalDesk::Yes));
    QVERIFY(desk.desk.isDeserted());
}

void TestTerminalDesk::servesTheLineMeanwhile()
{
    Desk desk;
    desk.answer("Then press Enter:", "\n");
    QCOMPARE(int(desk.desk.confirm(QStringLiteral("1"), LongMs)), int(TerminalDesk::Yes));
}

MFTOOL_TEST(TestTerminalDesk, EventLoop)
#include "tst_terminaldesk.moc"
