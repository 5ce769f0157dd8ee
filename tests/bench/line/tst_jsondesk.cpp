#include "bench/line/jsondesk.h"

#include "tests/support/testprogram.h"

#include <QJsonDocument>
#include <QList>
#include <QTest>
#include <QTimer>

#include <fcntl.h>
#include <unistd.h>

namespace
{

const int LongMs = 20000;

QList<int> newPipe()
{
    int ends[2] = {-1, -1};
    if (pipe2(ends, O_CLOEXEC) != 0)
        qFatal("no pipe");
    return {ends[0], ends[1]};
}

/// A desk at a program that a test plays.
struct Desk {
    ~Desk()
    {
        close(ends.at(0));
        hangUp();
        std::fclose(out);
    }
    void say(const QByteArray &text)
    {
        if (write(ends.at(1), text.constData(), static_cast<size_t>(text.size())) != text.size())
            qFatal("cannot answer");
    }
    void hangUp()
    {
        if (ends.at(1) >= 0)
            close(ends.at(1));
        ends[1] = -1;
    }
    QByteArray heard()
    {
        std::rewind(out);
        QByteArray text(4096, '\0');
        text.resize(
            static_cast<int>(std::fread(text.data(), 1, static_cast<size_t>(text.size()), out)));
        return text;
    }

    QList<int> ends = newPipe();
    FILE *out = std::tmpfile();
    Interrupt interrupt;
    JsonStream stream{out, QString()};
    JsonDesk desk{ends.at(0), &stream, &interrupt};
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
    QTEST(int(confirms ? desk.desk.confirm(text, 1500) : desk.desk.question(text, 1500)), "reply");
    QCOMPARE(desk.heard(), QByteArray("{\"event\":\"question\",\"id\":1,\"kind\":\"") +
                               (confirms ? "confirm" : "yes/no") +
                               "\",\"limit_ms\":1500,\"text\":\"Is it lit?\"}\n"
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
    QCOMPARE(int(desk.desk.ask(QStringLiteral("Serial number"), 700, &line)),
             int(OperatorDesk::Yes));
    QCOMPARE(line, QStringLiteral("no"));
    QCOMPARE(desk.heard(),
             QByteArray("{\"event\":\"question\",\"id\":1,\"kind\":\"text\",\"limit_ms\":700,"
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
    bool over = false;
    // Much longer than the limit, which counts from when the question is shown.
    QTimer::singleShot(300,
                       [&desk] { desk.say("{\"shown\":1}\n{\"answer\":1,\"reply\":\"yes\"}\n"); });
    QTimer::singleShot(200, [&desk, &over] { over = desk.heard().contains("over"); });
    QCOMPARE(int(desk.desk.question(QStringLiteral("1"), 100)), int(OperatorDesk::Yes));
    QVERIFY(!over);
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
    QTimer::singleShot(50, [&desk] { desk.interrupt.raise(); });
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
