#include "bench/line/console.h"
#include "bench/line/linerun.h"
#include "bench/line/terminaldesk.h"
#include "bench/line/virtualunit.h"
#include "tests/support/testprogram.h"

#include <QDir>
#include <QTemporaryDir>
#include <QTest>

#include <fcntl.h>
#include <unistd.h>

namespace
{

/// Puts a folder in the place of the step's picture.
class Meddler : public Console
{
public:
    Meddler(FILE *paper, const QString &folder) : Console(paper, false), m_folder(folder) {}
    void stepStarted(const Plan::Step &step, int number) override
    {
        QDir(m_folder).mkpath(QStringLiteral("latest/unit-01/bars.png"));
        Console::stepStarted(step, number);
    }

private:
    const QString m_folder;
};

} // namespace

class TestLineRun : public QObject
{
    Q_OBJECT

private slots:
    void countsSerialNumbersUp_data();
    void countsSerialNumbersUp();
    void asksNobodyIntoAClosedInput_data();
    void asksNobodyIntoAClosedInput();
    void aLostPictureIsALostRecord();
};

void TestLineRun::countsSerialNumbersUp_data()
{
    QTest::addColumn<QString>("first");
    QTest::addColumn<int>("by");
    QTest::addColumn<QString>("result");
    QTest::newRow("the first itself") << "KP-0009" << 0 << "KP-0009";
    QTest::newRow("the next") << "KP-0009" << 1 << "KP-0010";
    QTest::newRow("wider than it was") << "KP-99" << 1 << "KP-100";
    QTest::newRow("only digits") << "0041" << 2 << "0043";
    QTest::newRow("digits in front stay") << "24A7" << 5 << "24A12";
    QTest::newRow("no digits at the end") << "unit" << 1 << "unit-2";
    QTest::newRow("too many digits to count")
        << "12345678901234567899" << 1 << "12345678901234567900";
    QTest::newRow("none") << "" << 3 << "";
}

void TestLineRun::countsSerialNumbersUp()
{
    QFETCH(QString, first);
    QFETCH(int, by);
    QTEST(LineRun::countedUp(first, by), "result");
}

void TestLineRun::asksNobodyIntoAClosedInput_data()
{
    QTest::addColumn<QByteArray>("step");
    QTest::addColumn<int>("units");
    QTest::addColumn<bool>("refused");
    const QByteArray act = R"("operator": {"ask": "On.", "do": [{"power": "on"}]})";
    QTest::newRow("a look") << QByteArray(R"("request": "voltage", "expect": ["voltage reply"],
                                             "look": "Is it on?")")
                            << 1 << true;
    QTest::newRow("a hand beside a request")
        << act + R"(, "request": "voltage", "expect": ["voltage reply"])" << 1 << true;
    QTest::newRow("a second unit")
        << QByteArray(R"("request": "voltage", "expect": ["voltage reply"])") << 2 << true;
    // Who can act but not type is asked for nothing; the port is not there, though.
    QTest::newRow("a hand that the line tells of")
        << act + R"(, "expect": ["ready"])" << 1 << false;
}

void TestLineRun::asksNobodyIntoAClosedInput()
{
    QFETCH(QByteArray, step);
    QFETCH(int, units);
    QFETCH(bool, refused);
    QString error;
    const std::optional<Plan> plan =
        Plan::fromJson(R"({"plan": "p", "title": "P", "steps": [{"name": "s", )" + step + "}]}",
                       QStringLiteral("plan.json"), &error);
    QVERIFY2(plan, qPrintable(error));
    QTemporaryDir folder;
    LineOptions options;
    options.port = QStringLiteral("/nowhere/port");
    options.units = units;
    options.outDir = folder.filePath(QStringLiteral("out"));
    const int nothing = open("/dev/null", O_RDONLY | O_CLOEXEC);
    FILE *paper = std::tmpfile();
    Console console(paper, false);
    TerminalDesk desk(nothing, paper);
    const Outcome outcome = LineRun(*plan, options, &console, &desk).run(&error);
    std::fclose(paper);
    close(nothing);
    QCOMPARE(int(outcome), int(Outcome::Error));
    QCOMPARE(error, refused ? QStringLiteral("the plan asks an operator, and standard input is "
                                             "closed")
                            : QString());
    QCOMPARE(QFile::exists(options.outDir), !refused);
}

void TestLineRun::aLostPictureIsALostRecord()
{
    const QString reason = VirtualKeypad::whyNoDisplay(KeypadDisplay::Xvfb);
    if (!reason.isEmpty())
        QSKIP(qPrintable(reason));
    QString error;
    const std::optional<Plan> plan =
        Plan::fromJson(R"({"plan": "p", "title": "P", "steps": [{"name": "s",
                           "operator": {"ask": "On.", "do": [{"power": "on"}]},
                           "expect": ["ACK", "ready"], "limit_ms": 30000, "picture": "bars"}]})",
                       QStringLiteral("plan.json"), &error);
    QVERIFY2(plan, qPrintable(error));
    QTemporaryDir folder;
    LineOptions options;
    options.units = 2;
    options.outDir = folder.path();
    options.display.kind = KeypadDisplay::Xvfb;
    FILE *paper = std::tmpfile();
    Meddler console(paper, folder.path());
    TerminalDesk desk(STDIN_FILENO, paper);
    const Outcome outcome = LineRun(*plan, options, &console, &desk).run(&error);
    std::rewind(paper);
    QByteArray told(4096, '\0');
    told.resize(static_cast<int>(std::fread(told.data(), 1, 4096, paper)));
    std::fclose(paper);
    QCOMPARE(int(outcome), int(Outcome::Error));
    QVERIFY2(error.contains(QStringLiteral("/unit-01: bars.png could not be written: ")),
             qPrintable(error));
    QVERIFY2(told.contains("                 picture   bars.png could not be written: "),
             told.constData());
    QVERIFY2(told.contains("Yield 50.0 % (1 of 2 units), 1 not tested"), told.constData());
    QFile record(folder.filePath(QStringLiteral("latest/unit-01/record.json")));
    QVERIFY(record.open(QIODevice::ReadOnly));
    QVERIFY(record.readAll().contains("\"lost_picture\": \"bars.png could not be written: "));
}

MFTOOL_TEST(TestLineRun, EventLoop)
#include "tst_linerun.moc"
