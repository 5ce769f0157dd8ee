#include "bench/line/jsondesk.h"

#include "tests/bench/line/otherside.h"
#include "tests/support/testprogram.h"

#include <QElapsedTimer>
#include <QTest>

namespace
{

const int LongMs = 600000;

/// A desk at a program that a test plays.
struct Desk : OtherSide {
    Interrupt interrupt;
    JsonStream stream{questions(), QString()};
    JsonDesk desk{answers(), &stream, &interrupt};
};

} // namespace

class TestJsonDesk : public QObject
{
    Q_OBJECT

private slots:
    void tells();
    void asks_data();
    void asks();
    void takesNoOtherAnswer_data();
    void takesNoOtherAnswer();
    void takesALine();
    void numbersItsQuestions();
    void waitsForItsTurn();
    void takesAnAnswerThatItSeesLate();
    void isTooLateOnceShown();
    void stopsWhenInterrupted();
    void noticesThatNobodyIsThere();
};

void TestJsonDesk::tells()
{
    Desk desk;
    desk.desk.tell(QStringLiteral("Touch \"it\"."));
    QCOMPARE(desk.heard(), QByteArray("{\"event\":\"told\",\"text\":\"Touch \\\"it\\\".\"}\n"));
}

void TestJsonDesk::asks_data()
{
    QTest::addColumn<bool>("confirms");
    QTest::addColumn<QByteArray>("answer");
    QTest::addColumn<int>("reply");
    QTest::newRow("done") << true << QByteArray("{\"answer\":1,\"reply\":\"yes\"}\n")
                          << int(OperatorDesk::Yes);
    QTest::newRow("yes") << false << QByteArray("{ \"reply\" : \"yes\", \"answer\" : 1 }\r\n")
                         << int(OperatorDesk::Yes);
    QTest::newRow("no") << false << QByteArray("{\"answer\":1,\"reply\":\"no\"}\n")
                        << int(OperatorDesk::No);
}

void TestJsonDesk::asks()
{
    QFETCH(bool, confirms);
    QFETCH(QByteArray, answer);
    Desk desk;
    desk.say(answer);
    const QString text = QStringLiteral("Is it lit?");
    QTEST(int(confirms ? desk.desk.confirm(text, 60000) : desk.desk.question(text, 60000)),
          "reply");
    QCOMPARE(desk.heard(), QByteArray("{\"event\":\"question\",\"id\":1,\"kind\":\"") +
                               (confirms ? "confirm" : "yes/no") +
                               "\",\"limit_ms\":60000,\"text\":\"Is it lit?\"}\n"
                               "{\"event\":\"question over\",\"id\":1}\n");
}

void TestJsonDesk::takesNoOtherAnswer_data()
{
    QTest::addColumn<bool>("confirms");
    QTest::addColumn<QByteArray>("line");
    QTest::addColumn<QByteArray>("refusal");
    const auto row = [](const char *name, bool confirms, const char *line, const char *reason) {
        QString shown = QString::fromLatin1(line);
        shown.replace(QLatin1Char('"'), QStringLiteral("\\\""));
        QTest::newRow(name) << confirms << QByteArray(line)
                            << QStringLiteral("{\"event\":\"refused\",\"line\":\"%1\","
                                              "\"reason\":\"%2\"}\n")
                                   .arg(shown, QLatin1String(reason))
                                   .toLatin1();
    };
    row("a key", false, "y", "not a JSON object");
    row("an array", false, "[1]", "not a JSON object");
    row("nothing", false, "", "not a JSON object");
    row("another question's", false, R"({"answer":2,"reply":"yes"})", "not of the open question");
    row("no question's", false, R"({"reply":"yes"})", "not of the open question");
    row("perhaps", false, R"({"answer":1,"reply":"perhaps"})", R"(its reply is \"yes\" or \"no\")");
    row("no reply", false, R"({"answer":1})", R"(its reply is \"yes\" or \"no\")");
    row("a number", false, R"({"answer":1,"reply":1})", R"(its reply is \"yes\" or \"no\")");
    row("not done", true, R"({"answer":1,"reply":"no"})", R"(its reply is \"yes\")");
}

void TestJsonDesk::takesNoOtherAnswer()
{
    QFETCH(bool, confirms);
    QFETCH(QByteArray, line);
    QFETCH(QByteArray, refusal);
    Desk desk;
    desk.say(line + '\n');
    desk.say("{\"answer\":1,\"reply\":\"yes\"}\n");
    const QString text = QStringLiteral("1");
    QCOMPARE(int(confirms ? desk.desk.confirm(text, LongMs) : desk.desk.question(text, LongMs)),
             int(OperatorDesk::Yes));
    QVERIFY2(desk.heard().contains(refusal), desk.heard().constData());
}

void TestJsonDesk::takesALine()
{
    Desk desk;
    desk.say("{\"answer\":1,\"reply\":5}\n{\"answer\":1,\"reply\":\" no \"}\n");
    QString line;
    QCOMPARE(int(desk.desk.ask(QStringLiteral("Serial number"), 60000, &line)),
             int(OperatorDesk::Yes));
    QCOMPARE(line, QStringLiteral("no"));
    QCOMPARE(desk.heard(),
             QByteArray("{\"event\":\"question\",\"id\":1,\"kind\":\"text\",\"limit_ms\":60000,"
                        "\"text\":\"Serial number\"}\n"
                        "{\"event\":\"refused\",\"line\":\"{\\\"answer\\\":1,\\\"reply\\\":5}\","
                        "\"reason\":\"its reply is a text\"}\n"
                        "{\"event\":\"question over\",\"id\":1}\n"));
}

void TestJsonDesk::numbersItsQuestions()
{
    Desk desk;
    QCOMPARE(int(desk.desk.confirm(QStringLiteral("1"), 1)), int(OperatorDesk::TooLate));
    // The answer to the first one came too late and must not answer the second one.
    desk.say("{\"answer\":1,\"reply\":\"yes\"}\n{\"answer\":2,\"reply\":\"no\"}\n");
    QCOMPARE(int(desk.desk.question(QStringLiteral("2"), LongMs)), int(OperatorDesk::No));
}

void TestJsonDesk::waitsForItsTurn()
{
    Desk desk;
    desk.say("{\"waits\":1}\n");
    // Longer than the limit, which counts from when the question is shown.
    QElapsedTimer clock;
    clock.start();
    bool isOver = true;
    desk.when([&] { return clock.elapsed() > 50; },
              [&] {
                  isOver = desk.heard().contains("question over");
                  desk.say("{\"shown\":1}\n{\"answer\":1,\"reply\":\"yes\"}\n");
              });
    QCOMPARE(int(desk.desk.question(QStringLiteral("1"), 1)), int(OperatorDesk::Yes));
    QVERIFY(!isOver);
}

/// The program stood still, or the machine: what was said before it looks is in time.
void TestJsonDesk::takesAnAnswerThatItSeesLate()
{
    Desk desk;
    desk.say("{\"answer\":1,\"reply\":\"yes\"}\n");
    QCOMPARE(int(desk.desk.question(QStringLiteral("1"), 0)), int(OperatorDesk::Yes));
}

void TestJsonDesk::isTooLateOnceShown()
{
    Desk desk;
    desk.say("{\"waits\":1}\n{\"shown\":1}\n");
    QCOMPARE(int(desk.desk.question(QStringLiteral("1"), 100)), int(OperatorDesk::TooLate));
}

void TestJsonDesk::stopsWhenInterrupted()
{
    Desk desk;
    desk.say("{\"waits\":1}\n");
    desk.when([&] { return desk.heard().contains("\"question\""); },
              [&] { desk.interrupt.raise(); });
    QCOMPARE(int(desk.desk.question(QStringLiteral("1"), LongMs)), int(OperatorDesk::Interrupted));
    QVERIFY(desk.heard().endsWith("{\"event\":\"question over\",\"id\":1}\n"));
}

void TestJsonDesk::noticesThatNobodyIsThere()
{
    Desk desk;
    QVERIFY(!desk.desk.isDeserted());
    desk.say("{\"answer\":1,\"reply\":\"yes\"}\n");
    desk.hangUp();
    QCOMPARE(int(desk.desk.confirm(QStringLiteral("1"), LongMs)), int(OperatorDesk::Yes));
    QVERIFY(desk.desk.isDeserted());
    QString line = QStringLiteral("before");
    QCOMPARE(int(desk.desk.ask(QStringLiteral("2"), LongMs, &line)), int(OperatorDesk::Nobody));
    QCOMPARE(line, QStringLiteral("before"));
}

MFTOOL_TEST(TestJsonDesk, EventLoop)
#include "tst_jsondesk.moc"
