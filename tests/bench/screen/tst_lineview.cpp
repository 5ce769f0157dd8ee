#include "bench/screen/lineview.h"
#include "tests/support/testprogram.h"

#include <QSignalSpy>

namespace
{

const QByteArray UnitBegun =
    R"({"event":"unit begun","unit":3,"attempt":2,"units":20,"title":"Keypad","steps":57,)"
    R"("on":"/dev/ttyUSB0","serial_number":"KP-0042","faults":[],"fixture":"left"})"
    "\n";
const QByteArray StepStarted =
    R"({"event":"step started","unit":3,"step":12,"name":"Light","fixture":"left"})"
    "\n";

QByteArray unitEnded(int unit, const char *outcome, const char *fixture = "left")
{
    return "{\"event\":\"unit ended\",\"unit\":" + QByteArray::number(unit) + ",\"outcome\":\"" +
           outcome + "\",\"reason\":\"why\",\"record\":{\"seconds\":27.5},\"fixture\":\"" +
           fixture + "\"}\n";
}

} // namespace

class TestLineView : public QObject
{
    Q_OBJECT

private slots:
    void theRunNamesItsFixtures();
    void aRunWithoutNamesHasOneFixture();
    void aUnitBegins();
    void aStepBegins();
    void progressIsOfTheStep();
    void aStepThatFailedIsCounted_data();
    void aStepThatFailedIsCounted();
    void anInstructionLastsUntilTheStepIsOver();
    void aQuestionIsAsked_data();
    void aQuestionIsAsked();
    void aQuestionThatCannotBeAnsweredIsLeftAlone_data();
    void aQuestionThatCannotBeAnsweredIsLeftAlone();
    void aQuestionIsOver();
    void aUnitEnds();
    void theNextUnitBeginsAnew();
    void ofARetestTheLastAttemptCounts();
    void theSummaryKnowsUnitsThatWereNotTested();
    void aNoteNamesItsFixture();
    void theEndTellsTheError();
    void fixturesAreToldApart();
    void halfLinesWait();
    void rubbishIsLeftAlone_data();
    void rubbishIsLeftAlone();
};

void TestLineView::theRunNamesItsFixtures()
{
    LineView view;
    view.read(R"({"event":"run begun","title":"Keypad","units":20,"fixtures":["left","right"]})"
              "\n");
    QCOMPARE(view.title(), QString("Keypad"));
    QCOMPARE(view.count().units, 20);
    QCOMPARE(view.fixtures().size(), 2);
    QCOMPARE(view.fixtures().at(0).name, QString("left"));
    QCOMPARE(view.fixtures().at(1).name, QString("right"));
    QVERIFY(!view.fixtures().at(0).isTesting);
}

void TestLineView::aRunWithoutNamesHasOneFixture()
{
    LineView view;
    view.read("{\"event\":\"run begun\",\"title\":\"Keypad\",\"units\":1,\"fixtures\":[]}\n");
    QCOMPARE(view.fixtures().size(), 1);
    QCOMPARE(view.fixtures().at(0).name, QString());
}

void TestLineView::aUnitBegins()
{
    LineView view;
    QSignalSpy changed(&view, SIGNAL(changed()));
    view.read(UnitBegun);
    QCOMPARE(changed.size(), 1);
    QCOMPARE(view.fixtures().size(), 1);
    const FixtureView &left = view.fixtures().at(0);
    QCOMPARE(left.name, QString("left"));
    QCOMPARE(left.unit, 3);
    QCOMPARE(left.attempt, 2);
    QCOMPARE(left.serialNumber, QString("KP-0042"));
    QCOMPARE(left.steps, 57);
    QCOMPARE(left.step, 0);
    QVERIFY(left.isTesting);
    QCOMPARE(view.count().units, 20);
}

void TestLineView::aStepBegins()
{
    LineView view;
    view.read(UnitBegun + StepStarted);
    QCOMPARE(view.fixtures().at(0).step, 12);
    QCOMPARE(view.fixtures().at(0).stepName, QString("Light"));
}

void TestLineView::progressIsOfTheStep()
{
    LineView view;
    view.read(
        UnitBegun + StepStarted +
        "{\"event\":\"progress\",\"unit\":3,\"step\":12,\"text\":\"43 %\",\"fixture\":\"left\"}\n");
    QCOMPARE(view.fixtures().at(0).progress, QString("43 %"));
    view.read(StepStarted);
    QCOMPARE(view.fixtures().at(0).progress, QString());
}

void TestLineView::aStepThatFailedIsCounted_data()
{
    QTest::addColumn<QByteArray>("outcome");
    QTest::addColumn<int>("failed");
    QTest::newRow("pass") << QByteArray("pass") << 0;
    QTest::newRow("not run") << QByteArray("not run") << 0;
    QTest::newRow("fail") << QByteArray("fail") << 1;
    QTest::newRow("time-out") << QByteArray("time-out") << 1;
}

void TestLineView::aStepThatFailedIsCounted()
{
    QFETCH(QByteArray, outcome);
    QFETCH(int, failed);
    LineView view;
    view.read(UnitBegun + StepStarted +
              "{\"event\":\"step ended\",\"unit\":3,\"step\":12,\"name\":\"Light\",\"outcome\":\"" +
              outcome + "\",\"fixture\":\"left\"}\n");
    QCOMPARE(view.fixtures().at(0).failedSteps, failed);
}

void TestLineView::anInstructionLastsUntilTheStepIsOver()
{
    LineView view;
    view.read(UnitBegun + StepStarted +
              "{\"event\":\"told\",\"text\":\"Switch it on.\",\"fixture\":\"left\"}\n");
    QCOMPARE(view.fixtures().at(0).instruction, QString("Switch it on."));
    view.read("{\"event\":\"step ended\",\"outcome\":\"pass\",\"fixture\":\"left\"}\n");
    QCOMPARE(view.fixtures().at(0).instruction, QString());
}

void TestLineView::aQuestionIsAsked_data()
{
    QTest::addColumn<QByteArray>("word");
    QTest::addColumn<int>("kind");
    QTest::newRow("confirm") << QByteArray("confirm") << int(Question::Confirm);
    QTest::newRow("yes/no") << QByteArray("yes/no") << int(Question::YesNo);
    QTest::newRow("text") << QByteArray("text") << int(Question::Text);
}

void TestLineView::aQuestionIsAsked()
{
    QFETCH(QByteArray, word);
    QFETCH(int, kind);
    qRegisterMetaType<Question>();
    LineView view;
    QSignalSpy asked(&view, SIGNAL(asked(Question)));
    view.read("{\"event\":\"question\",\"id\":5,\"kind\":\"" + word +
              "\",\"text\":\"Is it bright?\",\"limit_ms\":60000,\"fixture\":\"left\"}\n");
    QCOMPARE(asked.size(), 1);
    const Question question = asked.at(0).at(0).value<Question>();
    QCOMPARE(question.id, 5);
    QCOMPARE(int(question.kind), kind);
    QCOMPARE(question.fixture, QString("left"));
    QCOMPARE(question.text, QString("Is it bright?"));
}

void TestLineView::aQuestionThatCannotBeAnsweredIsLeftAlone_data()
{
    QTest::addColumn<QByteArray>("line");
    QTest::newRow("kind") << QByteArray(
        "{\"event\":\"question\",\"id\":5,\"kind\":\"picture\",\"text\":\"Which?\"}\n");
    QTest::newRow("no id") << QByteArray(
        "{\"event\":\"question\",\"kind\":\"yes/no\",\"text\":\"Which?\"}\n");
    QTest::newRow("id") << QByteArray(
        "{\"event\":\"question\",\"id\":0,\"kind\":\"yes/no\",\"text\":\"Which?\"}\n");
}

void TestLineView::aQuestionThatCannotBeAnsweredIsLeftAlone()
{
    QFETCH(QByteArray, line);
    LineView view;
    QSignalSpy asked(&view, SIGNAL(asked(Question)));
    view.read(line);
    QCOMPARE(asked.size(), 0);
}

void TestLineView::aQuestionIsOver()
{
    LineView view;
    QSignalSpy withdrawn(&view, SIGNAL(withdrawn(int)));
    view.read("{\"event\":\"question over\",\"id\":5,\"fixture\":\"left\"}\n");
    QCOMPARE(withdrawn.size(), 1);
    QCOMPARE(withdrawn.at(0).at(0).toInt(), 5);
}

void TestLineView::aUnitEnds()
{
    LineView view;
    view.read(UnitBegun + StepStarted +
              "{\"event\":\"told\",\"text\":\"Switch it on.\",\"fixture\":\"left\"}\n" +
              unitEnded(3, "fail"));
    const FixtureView &left = view.fixtures().at(0);
    QVERIFY(!left.isTesting);
    QCOMPARE(left.outcome, QString("fail"));
    QCOMPARE(left.reason, QString("why"));
    QCOMPARE(left.seconds, 27.5);
    QCOMPARE(left.serialNumber, QString("KP-0042"));
    QCOMPARE(left.instruction, QString());
    QCOMPARE(view.count().tested, 1);
    QCOMPARE(view.count().passed, 0);
}

void TestLineView::theNextUnitBeginsAnew()
{
    LineView view;
    view.read(UnitBegun + StepStarted + unitEnded(3, "fail") +
              "{\"event\":\"unit begun\",\"unit\":4,\"steps\":57,\"fixture\":\"left\"}\n");
    const FixtureView &left = view.fixtures().at(0);
    QVERIFY(left.isTesting);
    QCOMPARE(left.unit, 4);
    QCOMPARE(left.attempt, 1);
    QCOMPARE(left.outcome, QString());
    QCOMPARE(left.reason, QString());
    QCOMPARE(left.step, 0);
    QCOMPARE(left.serialNumber, QString());
    QCOMPARE(view.count().units, 20);
}

void TestLineView::ofARetestTheLastAttemptCounts()
{
    LineView view;
    view.read(UnitBegun + unitEnded(1, "pass") + unitEnded(2, "fail") + unitEnded(2, "pass") +
              unitEnded(3, "pass") + unitEnded(3, "error"));
    QCOMPARE(view.count().tested, 3);
    QCOMPARE(view.count().passed, 2);
}

void TestLineView::theSummaryKnowsUnitsThatWereNotTested()
{
    LineView view;
    view.read(UnitBegun + unitEnded(1, "pass"));
    QCOMPARE(view.count().counted, 1);
    view.read(R"({"event":"summary","units":[{"unit":1,"attempt":1,"outcome":"fail"},)"
              R"({"unit":1,"attempt":2,"outcome":"pass"},{"unit":2,"attempt":1,"outcome":"fail"},)"
              R"({"unit":3,"attempt":1,"outcome":"not run"}],"passed":1,"files":"out"})"
              "\n");
    QCOMPARE(view.count().units, 20);
    QCOMPARE(view.count().tested, 2);
    QCOMPARE(view.count().passed, 1);
    QCOMPARE(view.count().counted, 20);
}

void TestLineView::aNoteNamesItsFixture()
{
    LineView view;
    view.read("{\"event\":\"note\",\"about\":\"store\",\"text\":\"2 records wait\"}\n");
    QCOMPARE(view.note(), QString("store: 2 records wait"));
    view.read(
        "{\"event\":\"note\",\"about\":\"after\",\"text\":\"no paper\",\"fixture\":\"left\"}\n");
    QCOMPARE(view.note(), QString("left, after: no paper"));
}

void TestLineView::theEndTellsTheError()
{
    LineView view;
    QVERIFY(!view.hasEnded());
    view.read("{\"event\":\"end\",\"status\":4,\"error\":\"the disk is full\"}\n");
    QVERIFY(view.hasEnded());
    QCOMPARE(view.error(), QString("the disk is full"));
}

void TestLineView::fixturesAreToldApart()
{
    LineView view;
    view.read(R"({"event":"run begun","title":"P","units":2,"fixtures":["left","right"]})"
              "\n"
              R"({"event":"unit begun","unit":1,"steps":4,"fixture":"right"})"
              "\n"
              R"({"event":"unit begun","unit":2,"steps":4,"fixture":"left"})"
              "\n"
              R"({"event":"step started","unit":1,"step":2,"name":"Light","fixture":"right"})"
              "\n" +
              unitEnded(2, "pass", "left"));
    QCOMPARE(view.fixtures().size(), 2);
    QCOMPARE(view.fixtures().at(0).unit, 2);
    QCOMPARE(view.fixtures().at(0).outcome, QString("pass"));
    QCOMPARE(view.fixtures().at(1).unit, 1);
    QCOMPARE(view.fixtures().at(1).stepName, QString("Light"));
    QVERIFY(view.fixtures().at(1).isTesting);
}

void TestLineView::halfLinesWait()
{
    LineView view;
    QSignalSpy changed(&view, SIGNAL(changed()));
    const QByteArray lines = UnitBegun + StepStarted;
    for (const char byte : lines)
        view.read(QByteArray(1, byte));
    QCOMPARE(changed.size(), 2);
    QCOMPARE(view.fixtures().at(0).stepName, QString("Light"));
    view.read(unitEnded(3, "pass").chopped(1));
    QVERIFY(view.fixtures().at(0).isTesting);
    view.read("\n");
    QCOMPARE(view.fixtures().at(0).outcome, QString("pass"));
}

void TestLineView::rubbishIsLeftAlone_data()
{
    QTest::addColumn<QByteArray>("line");
    QTest::newRow("text") << QByteArray("hello\n");
    QTest::newRow("empty") << QByteArray("\n");
    QTest::newRow("bytes") << QByteArray("\0\xff{\n", 4);
    QTest::newRow("array") << QByteArray("[1,2]\n");
    QTest::newRow("cut off") << QByteArray("{\"event\":\"unit begun\"\n");
    QTest::newRow("no event") << QByteArray("{\"unit\":4}\n");
    QTest::newRow("unknown event")
        << QByteArray("{\"event\":\"coffee ready\",\"unit\":4,\"fixture\":\"kitchen\"}\n");
    QTest::newRow("event is a number") << QByteArray("{\"event\":7}\n");
}

void TestLineView::rubbishIsLeftAlone()
{
    QFETCH(QByteArray, line);
    LineView view;
    view.read(UnitBegun);
    QSignalSpy changed(&view, SIGNAL(changed()));
    view.read(line);
    QCOMPARE(changed.size(), 0);
    QCOMPARE(view.fixtures().size(), 1);
    QCOMPARE(view.fixtures().at(0).unit, 3);
    view.read(StepStarted);
    QCOMPARE(view.fixtures().at(0).step, 12);
}

MFTOOL_TEST(TestLineView, NoApplication)
#include "tst_lineview.moc"
