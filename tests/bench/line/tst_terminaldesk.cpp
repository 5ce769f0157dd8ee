#include "bench/line/terminaldesk.h"

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
    TerminalDesk desk{ends.at(0), prompts};
};

const int LongMs = 20000;

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
    QCOMPARE(desk.printed(), QByteArray("\n  >> Touch it.\n"));
}

void TestTerminalDesk::confirmsWithEnter()
{
    Desk desk;
    desk.type("\n");
    QCOMPARE(int(desk.desk.confirm(QStringLiteral("Press it."), LongMs)), int(TerminalDesk::Yes));
    QCOMPARE(desk.printed(), QByteArray("\n  >> Press it.  Then press Enter: "));
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
    desk.type(typed);
    QTEST(int(desk.desk.question(QStringLiteral("Is it lit?"), LongMs)), "reply");
    QCOMPARE(desk.printed().count("Is it lit? [y/n]"), questions);
}

void TestTerminalDesk::keepsWhatAProgramSaidAhead()
{
    Desk desk;
    desk.type("\nn\ny");
    QCOMPARE(int(desk.desk.confirm(QStringLiteral("1"), LongMs)), int(TerminalDesk::Yes));
    QCOMPARE(int(desk.desk.question(QStringLiteral("2"), LongMs)), int(TerminalDesk::No));
    desk.type("\n");
    QCOMPARE(int(desk.desk.question(QStringLiteral("3"), LongMs)), int(TerminalDesk::Yes));
}

void TestTerminalDesk::forgetsWhatAPersonTypedAhead()
{
    int keyboard = -1;
    int terminal = -1;
    QVERIFY(openpty(&keyboard, &terminal, nullptr, nullptr, nullptr) == 0);
    FILE *prompts = std::tmpfile();
    TerminalDesk desk(terminal, prompts);
    // A key that bounces: the second line must not answer what comes next.
    QCOMPARE(write(keyboard, "\n\n", 2), ssize_t(2));
    QTimer::singleShot(50, [keyboard] { QCOMPARE(write(keyboard, "\n\n", 2), ssize_t(2)); });
    QCOMPARE(int(desk.confirm(QStringLiteral("1"), LongMs)), int(TerminalDesk::Yes));
    QTimer::singleShot(50, [keyboard] { QCOMPARE(write(keyboard, "n\n", 2), ssize_t(2)); });
    QCOMPARE(int(desk.question(QStringLiteral("2"), LongMs)), int(TerminalDesk::No));
    std::fclose(prompts);
    close(terminal);
    close(keyboard);
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
    desk.type(typed);
    QString line = QStringLiteral("before");
    QCOMPARE(int(desk.desk.ask(QStringLiteral("Serial number"), LongMs, &line)),
             int(TerminalDesk::Yes));
    QTEST(line, "line");
    QCOMPARE(desk.printed(), QByteArray("\n  >> Serial number: "));
}

void TestTerminalDesk::stopsWhenInterrupted()
{
    Desk desk;
    Interrupt interrupt;
    TerminalDesk interruptible(desk.ends.at(0), desk.prompts, &interrupt);
    QTimer::singleShot(50, [&interrupt] { interrupt.raise(); });
    QCOMPARE(int(interruptible.question(QStringLiteral("1"), LongMs)),
             int(TerminalDesk::Interrupted));
    QCOMPARE(int(interruptible.confirm(QStringLiteral("2"), LongMs)),
             int(TerminalDesk::Interrupted));
    // What is printed next begins a line of its own.
    QCOMPARE(desk.printed(), QByteArray("\n  >> 1 [y/n] \n\n  >> 2  Then press Enter: \n"));
}

void TestTerminalDesk::asksNobodyWhoCannotRead()
{
    Desk desk;
    const QList<int> ends = newPipe();
    FILE *prompts = fdopen(ends.at(1), "w");
    close(ends.at(0));
    Interrupt interrupt;
    interrupt.followSignals(); // the pipe's signal would end the test
    TerminalDesk unread(desk.ends.at(0), prompts, &interrupt);
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
    desk.type("half a line");
    QCOMPARE(int(desk.desk.question(QStringLiteral("2"), 100)), int(TerminalDesk::TooLate));
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
    desk.type("y\n");
    desk.hangUp();
    QVERIFY(!desk.desk.isDeserted());
    QCOMPARE(int(desk.desk.question(QStringLiteral("1"), LongMs)), int(TerminalDesk::Yes));
    QVERIFY(desk.desk.isDeserted());
}

void TestTerminalDesk::servesTheLineMeanwhile()
{
    Desk desk;
    QTimer::singleShot(50, [&desk] { desk.type("\n"); });
    QCOMPARE(int(desk.desk.confirm(QStringLiteral("1"), LongMs)), int(TerminalDesk::Yes));
}

MFTOOL_TEST(TestTerminalDesk, EventLoop)
#include "tst_terminaldesk.moc"
