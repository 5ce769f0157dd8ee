#include "bench/line/plan.h"

#include "bench/station/messages.h"
#include "tests/support/testprogram.h"

#include <QDir>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>

namespace
{

/// A right plan around one step.
QByteArray planWith(const QByteArray &step)
{
    return "{\"plan\":\"p\",\"title\":\"P\",\"steps\":[" + step + "]}";
}

/// A right step with one more member.
QByteArray stepWith(const QByteArray &member)
{
    return "{\"name\":\"s\",\"expect\":[\"ACK\"]," + member + "}";
}

QByteArray checking(const QByteArray &check)
{
    return stepWith("\"check\":[" + check + "]");
}

QByteArray expecting(const QByteArray &expected)
{
    return "{\"name\":\"s\",\"expect\":[" + expected + "]}";
}

QByteArray doing(const QByteArray &action)
{
    return stepWith("\"operator\":{\"ask\":\"a\",\"do\":[" + action + "]}");
}

/// The published schema, read by Python's jsonschema: one process for all questions.
class PublishedSchema
{
public:
    ~PublishedSchema()
    {
        m_process.closeWriteChannel();
        m_process.waitForFinished();
    }

    /// Whether it can be asked.
    bool start()
    {
        m_process.start(QStringLiteral("python3"),
                        {QStringLiteral(SOURCE_DIR "/tests/bench/line/schemacheck.py"),
                         QStringLiteral(SOURCE_DIR "/docs/plan.schema.json")});
        return answer() == "ready";
    }

    QByteArray errorString() { return m_process.readAllStandardError(); }

    /// "valid" or "invalid: WHY".
    QByteArray say(const QByteArray &json)
    {
        m_process.write(QJsonDocument::fromJson(json).toJson(QJsonDocument::Compact) + '\n');
        return answer();
    }

    bool takes(const QByteArray &json) { return say(json) == "valid"; }

private:
    QByteArray answer()
    {
        while (!m_process.canReadLine()) {
            if (!m_process.waitForReadyRead(60000))
                return QByteArray();
        }
        return m_process.readLine().trimmed();
    }

    QProcess m_process;
};

/// "NA, ACK, ...": what an error message offers in place of an unknown type.
QByteArray replyNames()
{
    QByteArrayList names;
    for (const wire::Message &message : wire::messages()) {
        if (message.sender == wire::Sender::Keypad)
            names.append(message.name);
    }
    return names.join(", ");
}

} // namespace

class TestPlan : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void matchesWildcards_data();
    void matchesWildcards();
    void knowsTypesByNameAndNumber();
    void readsAWholeStep();
    void hasDefaults();
    void readsEveryCheck();
    void readsEveryAction();
    void needsADisplayOnlyToLookOrTouch();
    void takesRightSteps_data();
    void takesRightSteps();
    void schemaTakesRightSteps_data() { takesRightSteps_data(); }
    void schemaTakesRightSteps();
    void refusesWrongPlans_data();
    void refusesWrongPlans();
    void schemaRefusesWrongPlans_data() { refusesWrongPlans_data(); }
    void schemaRefusesWrongPlans();
    void tellsWhatIsNoJson();
    void tellsThatAFileIsMissing();
    void fillsInVariables();
    void setsVariables();
    void refusesWrongSettings_data();
    void refusesWrongSettings();
    void readsAVariant();
    void refusesAWrongVariant_data();
    void refusesAWrongVariant();
    void includesSteps();
    void namesThePlaceInAnIncludedFile();
    void refusesFilesThatIncludeEachOther();
    void takesSerialNumbers();
    void readsRetests();
    void productionTakesOtherVersions();
    void readsEveryPlanOfTheBench_data();
    void readsEveryPlanOfTheBench();
    void schemaTakesEveryPlanOfTheBench_data() { readsEveryPlanOfTheBench_data(); }
    void schemaTakesEveryPlanOfTheBench();
    void pageNamesEveryReply();
    void speaksBeforeItAsks();
    void productionWaitsForABoot();
    void productionChecksTheCalibration();
    void describesLimits_data();
    void describesLimits();

private:
    QString write(const char *name, const QByteArray &json);

    QTemporaryDir m_dir;
    PublishedSchema m_schema;
    bool m_hasSchema = false;
};

void TestPlan::initTestCase()
{
    m_hasSchema = m_schema.start();
    const QByteArray error = m_schema.errorString();
    QVERIFY2(m_hasSchema || error.contains("not installed"), error.constData());
}

void TestPlan::matchesWildcards_data()
{
    QTest::addColumn<QString>("pattern");
    QTest::addColumn<QString>("text");
    QTest::addColumn<bool>("result");
    const auto row = [](const char *name, const QString &pattern, const QString &text,
                        bool result) { QTest::newRow(name) << pattern << text << result; };
    row("same", "00AB", "00AB", true);
    row("other case", "00ab", "00AB", false);
    row("shorter", "00A", "00AB", false);
    row("longer", "00ABC", "00AB", false);
    row("one character", "0?AB", "07AB", true);
    row("one character is not none", "00AB?", "00AB", false);
    row("any end", "00*", "00AB", true);
    row("any of none", "00AB*", "00AB", true);
    row("two stars, taken back", "*ab*cd", "abxabcxcd", true);
    row("star, wrong end", "*cd", "cdx", false);
    row("empty and empty", "", "", true);
    row("empty and text", "", "x", false);
    row("brackets are themselves", "[a]", "a", false);
}

void TestPlan::matchesWildcards()
{
    QFETCH(QString, pattern);
    QFETCH(QString, text);
    QTEST(matches(pattern, text), "result");
}

void TestPlan::knowsTypesByNameAndNumber()
{
    QCOMPARE(int(messageType(QStringLiteral("ACK")).value()), 0x0004);
    QCOMPARE(int(messageType(QStringLiteral("ack")).value()), 0x0004);
    QCOMPARE(int(messageType(QStringLiteral("voltage reply")).value()), 0x7081);
    QCOMPARE(int(messageType(QStringLiteral("ready")).value()), 0x9999);
    QCOMPARE(int(messageType(QStringLiteral("7081")).value()), 0x7081);
    QCOMPARE(int(messageType(QStringLiteral("12ab")).value()), 0x12AB);
    QVERIFY(!messageType(QStringLiteral("volts")));
    QVERIFY(!messageType(QStringLiteral("708")));
}

void TestPlan::readsAWholeStep()
{
    const QByteArray json = planWith(R"({
        "name": "Voltage", "group": "readings", "request": "7080", "limit_ms": 1500,
        "operator": { "ask": "Look", "do": [ { "home": "press" } ] },
        "expect": [ "ACK",
                    { "frame": "voltage reply", "data": "000?????",
                      "fields": { "voltage": { "min": 11000, "max": 14500, "unit": "mV" } } },
                    { "line": "AT*" } ],
        "check": [ { "log": "x" } ], "look": "Is it?", "picture": "volts", "quiet_ms": 20,
        "tries": 3, "required": true })");
    QString error;
    const std::optional<Plan> plan = Plan::fromJson(json, QStringLiteral("p.json"), &error);
    QVERIFY2(plan, qPrintable(error));
    QCOMPARE(plan->name, QStringLiteral("p"));
    QCOMPARE(plan->title, QStringLiteral("P"));
    QCOMPARE(plan->file, QStringLiteral("p.json"));
    QCOMPARE(int(plan->steps.size()), 1);
    const Plan::Step &step = plan->steps.first();
    QCOMPARE(step.name, QStringLiteral("Voltage"));
    QCOMPARE(step.group, QStringLiteral("readings"));
    QCOMPARE(int(step.request.value().type), 0x7080);
    QCOMPARE(step.request.value().data, QByteArray());
    QCOMPARE(step.limitMs, 1500);
    QCOMPARE(step.operation.value().ask, QStringLiteral("Look"));
    QCOMPARE(int(step.expected.size()), 3);
    QCOMPARE(int(step.expected.at(0).type), 0x0004);
    QVERIFY(!step.expected.at(0).text);
    const Plan::Expected &voltage = step.expected.at(1);
    QCOMPARE(int(voltage.type), 0x7081);
    QCOMPARE(voltage.text.value(), QStringLiteral("000?????"));
    QCOMPARE(int(voltage.fields.size()), 1);
    QCOMPARE(voltage.fields.first().field, QStringLiteral("voltage"));
    QCOMPARE(voltage.fields.first().min.value(), 11000.0);
    QCOMPARE(voltage.fields.first().max.value(), 14500.0);
    QCOMPARE(voltage.fields.first().unit, QStringLiteral("mV"));
    QVERIFY(!step.expected.at(2).isFrame);
    QCOMPARE(step.expected.at(2).text.value(), QStringLiteral("AT*"));
    QCOMPARE(step.look, QStringLiteral("Is it?"));
    QCOMPARE(step.picture, QStringLiteral("volts"));
    QCOMPARE(step.quietMs, 20);
    QCOMPARE(step.tries, 3);
    QVERIFY(step.required);
}

void TestPlan::hasDefaults()
{
    QString error;
    const std::optional<Plan> plan =
        Plan::fromJson(R"({"plan":"p","title":"P","limit_ms":700,"steps":[
            {"name":"a","expect":["ACK"]},{"name":"b","raw":"7E\r\n","expect":["NAK"],
             "limit_ms":900}]})",
                       QStringLiteral("p.json"), &error);
    QVERIFY2(plan, qPrintable(error));
    QCOMPARE(plan->operatorLimitMs, 30000);
    QCOMPARE(plan->steps.at(0).limitMs, 700);
    QCOMPARE(plan->steps.at(0).tries, 1);
    QCOMPARE(plan->steps.at(0).quietMs, 0);
    QVERIFY(!plan->steps.at(0).required);
    QVERIFY(!plan->steps.at(0).request);
    QCOMPARE(plan->steps.at(1).limitMs, 900);
    QCOMPARE(plan->steps.at(1).raw, QByteArray("7E\r\n"));
}

void TestPlan::readsEveryCheck()
{
    QString error;
    const std::optional<Plan> plan = Plan::fromJson(planWith(stepWith(R"("check":[
        {"stores":[{"path":"/sys/a","text":"1"},{"path":"/sys/a","text":"2"},{"path":"/sys/b","text":""}]},
        {"attribute":"/sys/a","text":"12?"},
        {"pixel":[799,479],"colour":"#12aBff","tolerance":3},
        {"file":"/mnt/x","text":"a\n*"},
        {"file":"/mnt/y","exists":false},
        {"log":"said"},
        {"exit":0}])")),
                                                    QStringLiteral("p"), &error);
    QVERIFY2(plan, qPrintable(error));
    const QList<Plan::Check> &checks = plan->steps.first().checks;
    QCOMPARE(int(checks.size()), 7);
    QCOMPARE(checks.at(0).describe(),
             QStringLiteral("store 1 to /sys/a, then 2 to /sys/a, then  to /sys/b"));
    QCOMPARE(checks.at(1).describe(), QStringLiteral("/sys/a reads 12?"));
    QCOMPARE(checks.at(2).describe(), QStringLiteral("pixel 799,479 is #12abff"));
    QCOMPARE(checks.at(2).tolerance, 3);
    QCOMPARE(checks.at(3).describe(), QStringLiteral("file /mnt/x holds 'a\\u000a*'"));
    QCOMPARE(checks.at(4).describe(), QStringLiteral("no file /mnt/y"));
    QCOMPARE(checks.at(5).describe(), QStringLiteral("log line \"said\""));
    QCOMPARE(checks.at(6).describe(), QStringLiteral("the tool ends with exit status 0"));
    const QStringList briefly = {
        QStringLiteral("sys/a=1 2 sys/b="), QStringLiteral("sys/a reads 12?"),
        QStringLiteral("pixel #12abff"),    QStringLiteral("/mnt/x"),
        QStringLiteral("no /mnt/y"),        QStringLiteral("logged"),
        QStringLiteral("exit status 0")};
    for (int i = 0; i < checks.size(); ++i)
        QCOMPARE(checks.at(i).brief(), briefly.at(i));
}

void TestPlan::readsEveryAction()
{
    QString error;
    const std::optional<Plan> plan =
        Plan::fromJson(planWith(doing(R"({"power":"on"},{"home":"release"},{"tamper":"open"},
            {"card":"out"},{"touch":[3,4],"hold_ms":700},{"touch":[0,0]})")),
                       QStringLiteral("p"), &error);
    QVERIFY2(plan, qPrintable(error));
    const QList<Plan::Action> &actions = plan->steps.first().operation.value().actions;
    QCOMPARE(int(actions.size()), 6);
    QCOMPARE(int(actions.at(0).kind), int(Plan::Action::Power));
    QCOMPARE(actions.at(0).on, true);
    QCOMPARE(int(actions.at(1).kind), int(Plan::Action::Home));
    QCOMPARE(actions.at(1).on, false);
    QCOMPARE(int(actions.at(2).kind), int(Plan::Action::Tamper));
    QCOMPARE(actions.at(2).on, true);
    QCOMPARE(int(actions.at(3).kind), int(Plan::Action::Card));
    QCOMPARE(actions.at(3).on, false);
    QCOMPARE(int(actions.at(4).kind), int(Plan::Action::Touch));
    QCOMPARE(actions.at(4).point, QPoint(3, 4));
    QCOMPARE(actions.at(4).holdMs, 700);
    QCOMPARE(actions.at(5).holdMs, 80);
}

void TestPlan::needsADisplayOnlyToLookOrTouch()
{
    QString error;
    const auto needs = [&error](const QByteArray &step) {
        return Plan::fromJson(planWith(step), QStringLiteral("p"), &error).value().needsDisplay();
    };
    QVERIFY(!needs(doing(R"({"home":"press"})")));
    QVERIFY(!needs(checking(R"({"log":"x"})")));
    QVERIFY(needs(doing(R"({"touch":[1,1]})")));
    QVERIFY(needs(checking(R"({"pixel":[1,1],"colour":"#000000"})")));
    QVERIFY(needs(stepWith(R"("picture":"x")")));
}

/// Each of these the published schema must take, too.
void TestPlan::takesRightSteps_data()
{
    QTest::addColumn<QByteArray>("step");
    QTest::newRow("the smallest") << QByteArray(R"({"name":"s","expect":["ACK"]})");
    QTest::newRow("only a check") << QByteArray(R"({"name":"s","check":[{"log":"x"}]})");
    QTest::newRow("only a look") << QByteArray(R"({"name":"s","look":"x"})");
    QTest::newRow("only quiet") << QByteArray(R"({"name":"s","quiet_ms":1})");
    QTest::newRow("request by name") << stepWith(R"("request":"backlight 100")");
    QTest::newRow("request by number") << stepWith(R"("request":"6143","data":"0064")");
    QTest::newRow("request of an unknown type") << stepWith(R"("request":"1234")");
    QTest::newRow("reply of an unknown type") << expecting(R"("1234")");
    QTest::newRow("empty data") << expecting(R"({"frame":"echo reply","data":""})");
    QTest::newRow("empty line") << expecting(R"({"line":""})");
    QTest::newRow("number") << expecting(R"({"frame":"mount result","fields":{"success":1}})");
    QTest::newRow("text") << expecting(R"({"frame":"version reply","fields":{"version":"1*"}})");
    QTest::newRow("no lower limit") << expecting(R"({"frame":"touch","fields":{"x":{"max":10}}})");
    QTest::newRow("whole number with decimals") << stepWith(R"("limit_ms":1000.0)");
    QTest::newRow("poll") << stepWith(
        R"("poll":{"request":"flash-query","every_ms":5,"at_least":0,"stall_ms":9,"rising":"stage",
            "fields":{"percent":{"min":0,"max":101}}})");
    QTest::newRow("poll by number") << stepWith(R"("poll":{"request":"7053","data":""})");
    QTest::newRow("line ends of a file") << checking(R"({"file":"/a","text":"a\r\n\tb"})");
    QTest::newRow("any character sent raw") << stepWith(R"("raw":"7E\u0000\u001b\n")");
    QTest::newRow("only a calibration")
        << QByteArray(R"({"name":"s","calibration":{"max_error_px":2.5}})");
    QTest::newRow("calibration of a turned panel")
        << stepWith(R"("calibration":{"max_error_px":800,"x_grows":"left","y_grows":"up"})");
    QTest::newRow("boot") << stepWith(
        R"("operator":{"ask":"a","do":[{"power":"on"}],"boot_ms":180000})");
    QTest::newRow("no variable") << QByteArray(R"({"name":"s","look":"$${a}"})");
    QTest::newRow("file that exists") << checking(R"({"file":"/a","exists":true,"text":""})");
}

void TestPlan::takesRightSteps()
{
    QFETCH(QByteArray, step);
    QString error;
    QVERIFY2(Plan::fromJson(planWith(step), QStringLiteral("p"), &error), qPrintable(error));
}

void TestPlan::schemaTakesRightSteps()
{
    if (!m_hasSchema)
        QSKIP("python3-jsonschema is not installed");
    QFETCH(QByteArray, step);
    QCOMPARE(m_schema.say(planWith(step)), QByteArray("valid"));
}

void TestPlan::refusesWrongPlans_data()
{
    QTest::addColumn<QByteArray>("json");
    QTest::addColumn<QString>("error");
    // What the schema cannot know: names and fields of messages, what must be unique.
    QTest::addColumn<bool>("schemaRefuses");

    const auto row = [](const char *name, const QByteArray &json, const char *error,
                        bool schemaRefuses = true) {
        QTest::newRow(name) << json << QString::fromLatin1(error) << schemaRefuses;
    };
    const auto step = [&row](const char *name, const QByteArray &text, const char *error,
                             bool schemaRefuses = true) {
        const QByteArray place = QByteArray("step 1 \"s\": ") + error;
        row(name, planWith(text), place.constData(), schemaRefuses);
    };

    row("no object", "[]", "a plan is an object: { ... }");
    row("no name", R"({"title":"P","steps":[{"name":"s","expect":["ACK"]}]})",
        "\"plan\" is missing");
    row("no title", R"({"plan":"p","steps":[{"name":"s","expect":["ACK"]}]})",
        "\"title\" is missing");
    row("empty title", R"({"plan":"p","title":"","steps":[{"name":"s","expect":["ACK"]}]})",
        "\"title\" must be a text that is not empty");
    row("no steps", R"({"plan":"p","title":"P"})", "\"steps\" is missing");
    row("empty steps", R"({"plan":"p","title":"P","steps":[]})",
        "\"steps\" must be a list that is not empty");
    row("steps no list", R"({"plan":"p","title":"P","steps":{}})",
        "\"steps\" must be a list that is not empty");
    row("unknown member of the plan",
        R"({"plan":"p","title":"P","speed":1,"steps":[{"name":"s","expect":["ACK"]}]})",
        "\"speed\" is not known here");
    row("limit of the plan",
        R"({"plan":"p","title":"P","limit_ms":0,"steps":[{"name":"s","expect":["ACK"]}]})",
        "\"limit_ms\" must be a whole number from 1 to 3600000");
    const auto member = [&row](const char *name, const QByteArray &text, const char *error,
                               bool schemaRefuses = true) {
        row(name,
            R"({"plan":"p","title":"P","steps":[{"name":"s","expect":["ACK"]}],)" + text + "}",
            error, schemaRefuses);
    };
    member("serial number no text", R"("serial_number":4)",
           "\"serial_number\" must be a text that is not empty");
    member("serial number no expression", R"("serial_number":"KP-(")",
           "\"serial_number\" is not a regular expression: missing closing parenthesis", false);
    member("serial number only right within brackets", R"("serial_number":"a)(b")",
           "\"serial_number\" is not a regular expression: unmatched closing parenthesis", false);
    member("operator no boolean", R"("operator":"yes")", "\"operator\" must be true or false");
    member("retest without times", R"("retest":{"when":"at once"})",
           "retest: \"times\" is missing");
    member("retest never", R"("retest":{"times":0})",
           "retest: \"times\" must be a whole number from 1 to 10");
    member("retest later", R"("retest":{"times":1,"when":"later"})",
           "retest: \"when\" must be \"at once\" or \"by hand\"");
    member("variables no object", R"("variables":["a"])", "\"variables\" must be an object");
    member("variable of another kind", R"("variables":{"a":true})",
           "\"variables\": \"a\" must be a number or a text");
    member("variable's name", R"("variables":{"A b":1})",
           "\"variables\": \"A b\" must be a name of a-z, 0-9 and _");
    step("no such variable", stepWith(R"("look":"Is it ${colour}?")"),
         "there is no variable \"colour\"; the plan has none", false);
    step("variable that does not end", stepWith(R"("look":"${colour")"),
         "\"${colour\" is not closed with }", false);
    row("include and more", planWith(R"({"include":"a.json","name":"s"})"),
        "step 1 \"s\": \"name\" is not known here\n"
        "step 1 \"s\": a.json: No such file or directory");
    row("include of what is not there", planWith(R"({"include":"/nowhere/a.json"})"),
        "step 1: /nowhere/a.json: No such file or directory", false);
    row("include of a device", planWith(R"({"include":"/dev/zero"})"),
        "step 1: /dev/zero is not a file", false);

    row("step no object", planWith("1"), "step 1: must be an object");
    row("step without a name", planWith(R"({"expect":["ACK"]})"), "step 1: \"name\" is missing");
    row("name misspelt", planWith(R"({"nmae":"s","expect":["ACK"]})"),
        "step 1: \"name\" is missing\n"
        "step 1: \"nmae\" is not known here");
    row("expect misspelt", planWith(R"({"name":"s","expct":["ACK"],"tries":0})"),
        "step 1 \"s\": \"tries\" must be a whole number from 1 to 10\n"
        "step 1 \"s\": it tests nothing: \"expect\", \"calibration\", \"check\", \"look\" or "
        "\"quiet_ms\" is missing\n"
        "step 1 \"s\": \"expct\" is not known here");
    row("mistakes in several places",
        planWith(R"({"name":"s","expect":["okay",{"frame":"touch","fields":{"z":1}}],"tries":0},
                    {"name":"t","check":[{"pixel":[800,0],"colour":"red"}]},
                    {"name":"s","look":""})"),
        "step 1 \"s\": expect 1: \"okay\" is neither four hexadecimal digits nor a reply of the "
        "keypad: NA, ACK, NAK, echo reply, version reply, SD card read reply, calibration point, "
        "calibration result, touch, relayed line, flash status, flash result, mount result, "
        "buttons reply, voltage reply, ready\n"
        "step 1 \"s\": expect 2: a frame of type \"touch\" has no field \"z\"; it has x, y\n"
        "step 1 \"s\": \"tries\" must be a whole number from 1 to 10\n"
        "step 2 \"t\": check 1: \"pixel\" must be [x, y] with x from 0 to 799 and y from 0 to "
        "479\n"
        "step 2 \"t\": check 1: \"colour\" must be \"#\" and six hexadecimal digits\n"
        "step 3 \"s\": \"look\" must be a text that is not empty\n"
        "step 3 \"s\": an earlier step has the same name");
    row("nothing of the plan", "{}",
        "\"plan\" is missing\n\"title\" is missing\n\"steps\" is missing");
    row("key twice, and a mistake", R"({"plan":"p","title":"P","title":"Q","steps":[]})",
        "line 1, column 25: \"title\" is there twice\n"
        "\"steps\" must be a list that is not empty");
    row("name twice", planWith(R"({"name":"s","expect":["ACK"]},{"name":"s","expect":["ACK"]})"),
        "step 2 \"s\": an earlier step has the same name", false);
    row("picture twice", planWith(R"({"name":"s","expect":["ACK"],"picture":"a"},
                    {"name":"t","expect":["ACK"],"picture":"a"})"),
        "step 2 \"t\": an earlier step has a \"picture\" of the same name", false);
    row("second step is wrong",
        planWith(R"({"name":"s","expect":["ACK"]},{"name":"t","look":"l","tries":0})"),
        "step 2 \"t\": \"tries\" must be a whole number from 1 to 10");

    step("unknown member", stepWith(R"("limit":1)"), "\"limit\" is not known here");
    step("tests nothing", R"({"name":"s","request":"echo"})",
         "it tests nothing: \"expect\", \"calibration\", \"check\", \"look\" or \"quiet_ms\" is "
         "missing");
    step("limit as text", stepWith(R"("limit_ms":"1")"),
         "\"limit_ms\" must be a whole number from 1 to 3600000");
    step("limit with a part", stepWith(R"("limit_ms":1.5)"),
         "\"limit_ms\" must be a whole number from 1 to 3600000");
    step("limit too long", stepWith(R"("limit_ms":3600001)"),
         "\"limit_ms\" must be a whole number from 1 to 3600000");
    step("too many tries", stepWith(R"("tries":11)"),
         "\"tries\" must be a whole number from 1 to 10");
    step("quiet for ever", stepWith(R"("quiet_ms":60001)"),
         "\"quiet_ms\" must be a whole number from 1 to 60000");
    step("required as number", stepWith(R"("required":1)"), "\"required\" must be true or false");
    step("picture as path", stepWith(R"("picture":"../x")"),
         "\"picture\" must be a name of a-z, 0-9 and -");
    step("empty look", stepWith(R"("look":"")"), "\"look\" must be a text that is not empty");

    step("unknown request", stepWith(R"("request":"backlit 1")"),
         "\"request\": unknown request \"backlit\"; \"bench station --help\" lists them all",
         false);
    step("data behind the number", stepWith(R"("request":"6143 0064")"),
         "\"request\": unknown request \"6143\"; what a request by number carries stands in "
         "\"data\"",
         false);
    step("request without its argument", stepWith(R"("request":"backlight")"),
         "\"request\": usage: backlight LEVEL", false);
    step("argument out of range", stepWith(R"("request":"backlight 256")"),
         "\"request\": backlight: \"256\" is not a number from 0 to 255", false);
    step("request no text", stepWith(R"("request":6143)"),
         "\"request\" must be a text that is not empty");
    step("data of a named request", stepWith(R"("request":"echo","data":"1")"),
         "\"data\" belongs to a request by number", false);
    step("data alone", stepWith(R"("data":"1")"), "\"data\" needs a \"request\"");
    step("request and raw", stepWith(R"("request":"echo","raw":"x")"),
         "\"request\" and \"raw\" cannot be used together");

    step("empty expect", R"({"name":"s","look":"l","expect":[]})",
         "\"expect\" must be a list that is not empty");
    const QByteArray unknown =
        "expect 1: \"okay\" is neither four hexadecimal digits nor a reply of the keypad: " +
        replyNames();
    step("unknown reply", expecting(R"("okay")"), unknown.constData(), false);
    step("request as reply", expecting(R"("ACK","voltage request")"),
         "expect 2: \"voltage request\" is a request, which no keypad sends", false);
    step("reply no text", expecting("4"), "expect 1: must be an object");
    step("object without frame", expecting(R"({"data":"1"})"), "expect 1: \"frame\" is missing");
    step("data no text", expecting(R"({"frame":"ACK","data":1})"),
         "expect 1: \"data\" must be a text");
    step("frame and line", expecting(R"({"frame":"ACK","line":"x"})"),
         "expect 1: \"frame\" is not known here");
    step("unknown field", expecting(R"({"frame":"touch","fields":{"z":1}})"),
         "expect 1: a frame of type \"touch\" has no field \"z\"; it has x, y", false);
    step("field of a bare reply", expecting(R"({"frame":"ACK","fields":{"x":1}})"),
         "expect 1: a frame of type \"ACK\" has no field \"x\"; it has none", false);
    step("limit without limits", expecting(R"({"frame":"touch","fields":{"x":{"unit":"px"}}})"),
         "expect 1: field \"x\": \"min\" or \"max\" is missing");
    step("limits the wrong way round",
         expecting(R"({"frame":"touch","fields":{"x":{"min":2,"max":1}}})"),
         "expect 1: field \"x\": \"min\" is above \"max\"", false);
    step("limit as text", expecting(R"({"frame":"touch","fields":{"x":{"min":"1"}}})"),
         "expect 1: field \"x\": \"min\" must be a number");
    step("limit misspelt", expecting(R"({"frame":"touch","fields":{"x":{"min":1,"mx":2}}})"),
         "expect 1: field \"x\": \"mx\" is not known here");
    step("field as list", expecting(R"({"frame":"touch","fields":{"x":[1]}})"),
         "expect 1: field \"x\" must be a number, a text, or an object with \"min\" or \"max\"");

    step("no kind of check", checking("{}"),
         "check 1: must have exactly one of \"stores\", \"attribute\", \"pixel\", \"file\", "
         "\"log\", \"exit\"");
    step("two kinds of check", checking(R"({"log":"x","exit":0})"),
         "check 1: must have exactly one of \"stores\", \"attribute\", \"pixel\", \"file\", "
         "\"log\", \"exit\"");
    step("store without a text", checking(R"({"stores":[{"path":"/a"}]})"),
         "check 1: store 1: \"text\" is missing");
    step("store by a relative path", checking(R"({"stores":[{"path":"a","text":"1"}]})"),
         "check 1: store 1: \"path\" must be a whole path, beginning with /");
    step("attribute without a text", checking(R"({"attribute":"/a"})"),
         "check 1: \"text\" is missing");
    step("pixel beside the screen", checking(R"({"pixel":[800,0],"colour":"#000000"})"),
         "check 1: \"pixel\" must be [x, y] with x from 0 to 799 and y from 0 to 479");
    step("pixel of one number", checking(R"({"pixel":[8],"colour":"#000000"})"),
         "check 1: \"pixel\" must be [x, y] with x from 0 to 799 and y from 0 to 479");
    step("pixel of three numbers", checking(R"({"pixel":[8,8,8],"colour":"#000000"})"),
         "check 1: \"pixel\" must be [x, y] with x from 0 to 799 and y from 0 to 479");
    step("pixel with a part", checking(R"({"pixel":[8.5,8],"colour":"#000000"})"),
         "check 1: \"pixel\" must be [x, y] with x from 0 to 799 and y from 0 to 479");
    step("colour by name", checking(R"({"pixel":[8,8],"colour":"red"})"),
         "check 1: \"colour\" must be \"#\" and six hexadecimal digits");
    step("no colour", checking(R"({"pixel":[8,8]})"), "check 1: \"colour\" is missing");
    step("text of no file", checking(R"({"file":"/a","exists":false,"text":"x"})"),
         "check 1: a file that does not exist has no \"text\"");
    step("empty log line", checking(R"({"log":""})"),
         "check 1: \"log\" must be a text that is not empty");
    step("exit status", checking(R"({"exit":256})"),
         "check 1: \"exit\" must be a whole number from 0 to 255");

    step("nothing asked", stepWith(R"("operator":{"do":[{"home":"press"}]})"),
         "operator: \"ask\" is missing");
    step("nothing done", stepWith(R"("operator":{"ask":"a","do":[]})"),
         "operator: \"do\" must be a list that is not empty");
    step("operator as text", stepWith(R"("operator":"a")"), "operator: must be an object");
    step("unknown action", doing(R"({"kick":"on"})"),
         "operator: do 1: must have exactly one of \"power\", \"home\", \"tamper\", \"card\", "
         "\"touch\"");
    step("two actions in one", doing(R"({"power":"on","card":"in"})"),
         "operator: do 1: must have exactly one of \"power\", \"home\", \"tamper\", \"card\", "
         "\"touch\"");
    step("half a press", doing(R"({"home":"down"})"),
         "operator: do 1: \"home\" must be \"press\" or \"release\"");
    step("hold of a key", doing(R"({"home":"press","hold_ms":5})"),
         "operator: do 1: \"hold_ms\" is not known here");
    step("touch beside the screen", doing(R"({"touch":[0,480]})"),
         "operator: do 1: \"touch\" must be [x, y] with x from 0 to 799 and y from 0 to 479");

    step("poll for nothing", R"({"name":"s","look":"l","poll":{"request":"flash-query"}})",
         "a \"poll\" needs an \"expect\" that ends it");
    step("poll without a request", stepWith(R"("poll":{"every_ms":5})"),
         "poll: \"request\" is missing");
    step("poll without an answer", stepWith(R"("poll":{"request":"backlight 1"})"),
         "poll: that request has no answer to follow", false);
    step("poll rising a stranger", stepWith(R"("poll":{"request":"flash-query","rising":"x"})"),
         "poll: the answer has no field \"x\"", false);
    step("poll for an unknown request", stepWith(R"("poll":{"request":"x","rising":"y"})"),
         "poll: \"request\": unknown request \"x\"; \"bench station --help\" lists them all",
         false);
    step("calibration without a limit", stepWith(R"("calibration":{})"),
         "calibration: \"max_error_px\" is missing");
    step("calibration without an error", stepWith(R"("calibration":{"max_error_px":0})"),
         "calibration: \"max_error_px\" must be above 0 and at most 800");
    step("calibration the third way",
         stepWith(R"("calibration":{"max_error_px":1,"x_grows":"down"})"),
         "calibration: \"x_grows\" must be \"right\" or \"left\"");
    step("boot for ever",
         stepWith(R"("operator":{"ask":"a","do":[{"power":"on"}],"boot_ms":3600001})"),
         "operator: \"boot_ms\" must be a whole number from 1 to 3600000");

    const char *const look = R"({"name":"s","look":"\u001b[2J"})";
    step("control character", look, "\"look\" holds a control character: \\u001b[2J");
    row("control character of a name", planWith(R"({"name":"a\u0000b\u001b","look":"l"})"),
        "step 1 \"a\\u0000b\\u001b\": \"name\" holds a control character: a\\u0000b\\u001b");
    row("control character of a title",
        R"({"plan":"p","title":"\u009b","steps":[{"name":"s","look":"l"}]})",
        "\"title\" holds a control character: \\u009b");
    row("control character of a key", planWith(R"({"name":"s","look":"l","\u0007":1})"),
        "step 1 \"s\": \"\\u0007\" is not known here");
    step("line end of a line", expecting(R"({"line":"a\n"})"),
         "expect 1: \"line\" holds a control character: a\\u000a");
    step("control character of a field",
         expecting(R"({"frame":"echo reply","fields":{"text":"\u007f"}})"),
         "expect 1: field \"text\" holds a control character: \\u007f");
    step("control character of a file", checking(R"({"file":"/a","text":"\n\u001b"})"),
         "check 1: \"text\" holds a control character: \\u000a\\u001b");
    step("poll too often", stepWith(R"("poll":{"request":"flash-query","every_ms":0})"),
         "poll: \"every_ms\" must be a whole number from 1 to 60000");
}

void TestPlan::refusesWrongPlans()
{
    QFETCH(QByteArray, json);
    QFETCH(QString, error);
    QString found;
    QVERIFY(!Plan::fromJson(json, QStringLiteral("wrong.json"), &found));
    const QStringList mistakes = error.split(QLatin1Char('\n'));
    if (mistakes.size() == 1) {
        QCOMPARE(found, QStringLiteral("wrong.json: ") + error);
        return;
    }
    QCOMPARE(found, QStringLiteral("wrong.json: %1 mistakes:\n  ").arg(mistakes.size()) +
                        mistakes.join(QStringLiteral("\n  ")));
}

void TestPlan::schemaRefusesWrongPlans()
{
    if (!m_hasSchema)
        QSKIP("python3-jsonschema is not installed");
    QFETCH(QByteArray, json);
    QFETCH(bool, schemaRefuses);
    QCOMPARE(m_schema.takes(json), !schemaRefuses);
}

void TestPlan::tellsWhatIsNoJson()
{
    QString error;
    QVERIFY(!Plan::fromJson("{\n  \"plan\": 'p' }", QStringLiteral("x.json"), &error));
    QCOMPARE(error,
             QStringLiteral("x.json: line 2, column 11: JSON has double quotes, not single ones"));
}

void TestPlan::tellsThatAFileIsMissing()
{
    QString error;
    QVERIFY(!Plan::load(QStringLiteral("/nowhere/plan.json"), &error));
    QCOMPARE(error, QStringLiteral("/nowhere/plan.json: No such file or directory"));
}

/// @return the file's path
QString TestPlan::write(const char *name, const QByteArray &json)
{
    const QString path = m_dir.filePath(QLatin1String(name));
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(json) != json.size())
        qFatal("cannot write a plan");
    return path;
}

void TestPlan::fillsInVariables()
{
    QString error;
    const std::optional<Plan> plan =
        Plan::fromJson(R"json({"plan":"p","title":"Model ${model}, $${model}",
            "variables":{"model":"A7","low":11000.5,"level":100},
            "steps":[{"name":"Light ${model}","request":"backlight ${level}","limit_ms":"${level}",
             "expect":[{"frame":"voltage reply",
              "fields":{"voltage":{"min":"${low}","max":14500},"text":"${model}-${low}"}}]}]})json",
                       QStringLiteral("p.json"), &error);
    QVERIFY2(plan, qPrintable(error));
    QCOMPARE(plan->title, QStringLiteral("Model A7, ${model}"));
    const Plan::Step &step = plan->steps.first();
    QCOMPARE(step.name, QStringLiteral("Light A7"));
    QCOMPARE(step.request->data, QByteArray("0064"));
    QCOMPARE(step.limitMs, 100);
    const QList<Plan::Limit> fields = step.expected.first().fields;
    QCOMPARE(fields.at(0).text.value(), QStringLiteral("A7-11000.5"));
    QCOMPARE(fields.at(1).min.value(), 11000.5);
    QVERIFY(plan->variables.isEmpty()); // nobody has set one
}

void TestPlan::setsVariables()
{
    PlanSettings settings;
    QString error;
    QVERIFY(settings.set(QStringLiteral("low=9000"), &error));
    QVERIFY(settings.set(QStringLiteral("version=20* = 7"), &error));
    const std::optional<Plan> plan = Plan::fromJson(R"({"plan":"p","title":"P",
            "variables":{"low":11000,"version":"1","model":"A7"},
            "steps":[{"name":"s","expect":[{"frame":"voltage reply",
              "fields":{"voltage":{"min":"${low}"}}},
             {"frame":"version reply","fields":{"version":"${version}"}}]}]})",
                                                    QStringLiteral("p.json"), &error, settings);
    QVERIFY2(plan, qPrintable(error));
    const Plan::Step &step = plan->steps.first();
    QCOMPARE(step.expected.at(0).fields.first().min.value(), 9000.0);
    QCOMPARE(step.expected.at(1).fields.first().text.value(), QStringLiteral("20* = 7"));
    QCOMPARE(plan->variables,
             (QJsonObject{{QStringLiteral("low"), 9000},
                          {QStringLiteral("version"), QStringLiteral("20* = 7")}}));
}

void TestPlan::refusesWrongSettings_data()
{
    QTest::addColumn<QString>("setting");
    QTest::addColumn<QString>("reason");
    QTest::newRow("no value") << "low"
                              << "--set takes NAME=VALUE, not \"low\"";
    QTest::newRow("no name") << "=1"
                             << "--set takes NAME=VALUE, not \"=1\"";
    QTest::newRow("another name") << "lwo=1"
                                  << "p.json: no variable \"lwo\" can be set; the plan has low";
    QTest::newRow("a text for a number") << "low=much"
                                         << "p.json: the variable \"low\" is a number";
    QTest::newRow("no number at all") << "low="
                                      << "p.json: the variable \"low\" is a number";
}

void TestPlan::refusesWrongSettings()
{
    QFETCH(QString, setting);
    PlanSettings settings;
    QString error;
    if (settings.set(setting, &error))
        QVERIFY(!Plan::fromJson(R"({"plan":"p","title":"P","variables":{"low":1},
                                    "steps":[{"name":"s","look":"${low}?"}]})",
                                QStringLiteral("p.json"), &error, settings));
    QTEST(error, "reason");
}

void TestPlan::readsAVariant()
{
    const QString file = write("model-b.json", R"({"low":9000,"model":"B"})");
    PlanSettings settings;
    QString error;
    QVERIFY2(settings.load(file, &error), qPrintable(error));
    QVERIFY(settings.set(QStringLiteral("model=C"), &error)); // the nearer one holds
    const std::optional<Plan> plan = Plan::fromJson(
        R"({"plan":"p","title":"${model}","variables":{"low":1,"model":"A"},
            "steps":[{"name":"s","look":"l"}]})",
        QStringLiteral("p.json"), &error, settings);
    QVERIFY2(plan, qPrintable(error));
    QCOMPARE(plan->title, QStringLiteral("C"));
    QCOMPARE(plan->variant, QStringLiteral("model-b"));
    QCOMPARE(plan->variables, (QJsonObject{{QStringLiteral("low"), 9000},
                                           {QStringLiteral("model"), QStringLiteral("C")}}));
}

void TestPlan::refusesAWrongVariant_data()
{
    QTest::addColumn<QByteArray>("json");
    QTest::addColumn<QString>("reason");
    QTest::newRow("no object") << QByteArray("[1]")
                               << "a variant is an object of variables: { \"name\": ... }";
    QTest::newRow("twice") << QByteArray(R"({"low":1,"low":2})")
                           << "line 1, column 10: \"low\" is there twice";
}

void TestPlan::refusesAWrongVariant()
{
    QFETCH(QByteArray, json);
    QFETCH(QString, reason);
    const QString file = write("variant.json", json);
    QString error;
    QVERIFY(!PlanSettings().load(file, &error));
    QCOMPARE(error, file + QStringLiteral(": ") + reason);
    QVERIFY(!PlanSettings().load(QStringLiteral("/nowhere/v.json"), &error));
    QCOMPARE(error, QStringLiteral("/nowhere/v.json: No such file or directory"));
}

void TestPlan::includesSteps()
{
    QVERIFY(QDir(m_dir.path()).mkpath(QStringLiteral("parts")));
    const QString file = write("plan.json", R"({"plan":"p","title":"P","limit_ms":700,
        "variables":{"what":"voltage"},
        "steps":[{"name":"first","look":"l"},{"include":"parts/two.json"},
                 {"name":"last","look":"l"}]})");
    write("parts/two.json", R"({"$schema":"x","steps":[{"name":"second","request":"${what}",
        "expect":["voltage reply"]},{"include":"three.json"}]})");
    write("parts/three.json", R"({"steps":[{"name":"third","look":"l"}]})");
    QString error;
    const std::optional<Plan> plan = Plan::load(file, &error);
    QVERIFY2(plan, qPrintable(error));
    QStringList names;
    for (const Plan::Step &step : plan->steps)
        names.append(step.name);
    QCOMPARE(names, (QStringList{QStringLiteral("first"), QStringLiteral("second"),
                                 QStringLiteral("third"), QStringLiteral("last")}));
    QCOMPARE(plan->steps.at(1).limitMs, 700);
    QCOMPARE(plan->includes.size(), 2);
    QCOMPARE(plan->includes.at(1).file, m_dir.filePath(QStringLiteral("parts/three.json")));
    // As sha256sum prints it.
    QCOMPARE(plan->includes.at(1).sha256,
             QStringLiteral("6256482543524a461f907df46b3074c36ec32b36d7e5ff996971a62a33f0576e"));
    QCOMPARE(plan->sha256.size(), 64);
}

void TestPlan::namesThePlaceInAnIncludedFile()
{
    const QString file = write("plan.json", R"({"plan":"p","title":"P","steps":[
        {"name":"first","look":"l"},{"include":"part.json"}]})");
    const QString part = write("part.json", R"({"title":"no","steps":[{"name":"first","look":"l"},
        {"name":"b","loook":"l"}]})");
    QString error;
    QVERIFY(!Plan::load(file, &error));
    const QString place = QStringLiteral("\n  step 2: %1: ").arg(part);
    QCOMPARE(error, QStringLiteral("%1: 4 mistakes:").arg(file) + place +
                        QStringLiteral("step 1 \"first\": an earlier step has the same name") +
                        place +
                        QStringLiteral("step 2 \"b\": it tests nothing: \"expect\", "
                                       "\"calibration\", \"check\", \"look\" or \"quiet_ms\" "
                                       "is missing") +
                        place + QStringLiteral("step 2 \"b\": \"loook\" is not known here") +
                        place + QStringLiteral("\"title\" is not known here"));
    write("part.json", "{'steps'}");
    QVERIFY(!Plan::load(file, &error));
    QCOMPARE(error, QStringLiteral("%1: step 2: %2: line 1, column 2: JSON has double quotes, not "
                                   "single ones")
                        .arg(file, part));
}

void TestPlan::refusesFilesThatIncludeEachOther()
{
    const QString plan = write("plan.json", R"({"plan":"p","title":"P","steps":[
        {"name":"first","look":"l"},{"include":"a.json"}]})");
    const QString a = write("a.json", R"({"steps":[{"include":"b.json"}]})");
    const QString b = write("b.json", R"({"steps":[{"include":"./a.json"}]})");
    QString error;
    QVERIFY(!Plan::load(plan, &error));
    QCOMPARE(error, QStringLiteral("%1: step 2: %2: step 1: %3: step 1: the files include each "
                                   "other: %1, then %2, then %3, then %2")
                        .arg(plan, a, b));
}

void TestPlan::takesSerialNumbers()
{
    QString error;
    const std::optional<Plan> plan = Plan::fromJson(
        R"({"plan":"p","title":"P","serial_number":"KP-\\d{4}|spare",
            "operator":true,"steps":[{"name":"s","look":"l"}]})",
        QStringLiteral("p"), &error);
    QVERIFY2(plan, qPrintable(error));
    QVERIFY(plan->wantsOperator);
    QVERIFY(plan->takesSerialNumber(QStringLiteral("KP-0042")));
    QVERIFY(plan->takesSerialNumber(QStringLiteral("spare")));
    for (const char *wrong : {"KP-00421", "xKP-0042", "KP-004", "spare part", "KP-0042\n", ""})
        QVERIFY2(!plan->takesSerialNumber(QString::fromLatin1(wrong)), wrong);
    QVERIFY(Plan().takesSerialNumber(QStringLiteral("anything")));
}

void TestPlan::readsRetests()
{
    const auto retest = [](const QByteArray &value) {
        QString error;
        return Plan::fromJson(R"({"plan":"p","title":"P",)" + value +
                                  R"("steps":[{"name":"s","look":"l"}]})",
                              QStringLiteral("p"), &error)
            .value()
            .retest;
    };
    QCOMPARE(retest("").times, 0);
    QCOMPARE(retest(R"("retest":{"times":2},)").times, 2);
    QVERIFY(!retest(R"("retest":{"times":2},)").byHand);
    QVERIFY(!retest(R"("retest":{"times":1,"when":"at once"},)").byHand);
    QVERIFY(retest(R"("retest":{"times":1,"when":"by hand"},)").byHand);
}

void TestPlan::productionTakesOtherVersions()
{
    PlanSettings settings;
    QString error;
    QVERIFY(settings.set(QStringLiteral("old_version=20090101 3.0"), &error));
    QVERIFY(settings.set(QStringLiteral("new_version=20150505 4.1"), &error));
    const std::optional<Plan> plan =
        Plan::load(QStringLiteral(SOURCE_DIR "/bench/plans/production.json"), &error, settings);
    QVERIFY2(plan, qPrintable(error));
    QStringList versions;
    for (const Plan::Step &step : plan->steps) {
        if (step.name.startsWith(QLatin1String("Version")))
            versions.append(step.expected.first().describe());
    }
    QCOMPARE(versions, (QStringList{QStringLiteral("version reply, version '20090101 3.0'"),
                                    QStringLiteral("version reply, version '20150505 4.1'")}));
}

void TestPlan::readsEveryPlanOfTheBench_data()
{
    QTest::addColumn<QString>("file");
    const QDir dir(QStringLiteral(SOURCE_DIR "/bench/plans"));
    const QStringList names = dir.entryList({QStringLiteral("*.json")}, QDir::Files);
    QVERIFY(names.contains(QStringLiteral("production.json")));
    for (const QString &name : names)
        QTest::newRow(qPrintable(name)) << dir.filePath(name);
}

void TestPlan::readsEveryPlanOfTheBench()
{
    QFETCH(QString, file);
    QString error;
    QVERIFY2(Plan::load(file, &error), qPrintable(error));
}

void TestPlan::schemaTakesEveryPlanOfTheBench()
{
    if (!m_hasSchema)
        QSKIP("python3-jsonschema is not installed");
    QFETCH(QString, file);
    QFile opened(file);
    QVERIFY(opened.open(QIODevice::ReadOnly));
    QCOMPARE(m_schema.say(opened.readAll()), QByteArray("valid"));
}

/// A person who writes a plan has no other list of them.
void TestPlan::pageNamesEveryReply()
{
    QFile page(QStringLiteral(SOURCE_DIR "/docs/line.md"));
    QVERIFY(page.open(QIODevice::ReadOnly));
    const QString text = QString::fromUtf8(page.readAll()).simplified();
    for (const wire::Message &message : wire::messages()) {
        const QString name = QLatin1Char('`') + QLatin1String(message.name) + QLatin1Char('`');
        QVERIFY2(message.sender == wire::Sender::Station || text.contains(name), message.name);
    }
}

/// The tool quits 15 seconds after its start when no frame has come by then, so nobody
/// may be asked to look before the first one.
void TestPlan::speaksBeforeItAsks()
{
    QString error;
    const std::optional<Plan> plan =
        Plan::load(QStringLiteral(SOURCE_DIR "/bench/plans/production.json"), &error);
    QVERIFY2(plan, qPrintable(error));
    for (const Plan::Step &step : plan->steps) {
        QVERIFY2(step.look.isEmpty() || step.request, qPrintable(step.name));
        if (step.request)
            break;
    }
}

/// Up to 91 seconds were seen from power to "ready"; a virtual keypad, which need not
/// boot, fails sooner.
void TestPlan::productionWaitsForABoot()
{
    QString error;
    const std::optional<Plan> plan =
        Plan::load(QStringLiteral(SOURCE_DIR "/bench/plans/production.json"), &error);
    QVERIFY2(plan, qPrintable(error));
    const Plan::Step &start = plan->steps.first();
    QCOMPARE(start.operation.value().bootMs, 180000);
    QCOMPARE(start.limitMs, 15000);
}

/// Once, when the fifth point has come.
void TestPlan::productionChecksTheCalibration()
{
    QString error;
    const std::optional<Plan> plan =
        Plan::load(QStringLiteral(SOURCE_DIR "/bench/plans/production.json"), &error);
    QVERIFY2(plan, qPrintable(error));
    QStringList names;
    for (const Plan::Step &step : plan->steps) {
        if (!step.calibration)
            continue;
        names.append(step.name);
        QCOMPARE(step.calibration->maxErrorPx, 6.0);
        QVERIFY(step.calibration->xGrowsRight);
        QVERIFY(step.calibration->yGrowsDown);
    }
    QCOMPARE(names, QStringList(QStringLiteral("Target centre")));
}

void TestPlan::describesLimits_data()
{
    QTest::addColumn<QByteArray>("limit");
    QTest::addColumn<QString>("text");
    QTest::newRow("range") << QByteArray(R"({"min":1,"max":2,"unit":"V"})")
                           << QStringLiteral("1 to 2 V");
    QTest::newRow("least") << QByteArray(R"({"min":1.5})") << QStringLiteral("at least 1.5");
    QTest::newRow("most") << QByteArray(R"({"max":14500000})")
                          << QStringLiteral("at most 14500000");
    QTest::newRow("number") << QByteArray("7") << QStringLiteral("7");
    QTest::newRow("text") << QByteArray("\"7*\"") << QStringLiteral("'7*'");
}

void TestPlan::describesLimits()
{
    QFETCH(QByteArray, limit);
    QString error;
    const std::optional<Plan> plan = Plan::fromJson(
        planWith(expecting("{\"frame\":\"voltage reply\",\"fields\":{\"voltage\":" + limit + "}}")),
        QStringLiteral("p"), &error);
    QVERIFY2(plan, qPrintable(error));
    QTEST(plan->steps.first().expected.first().fields.first().describe(), "text");
}

MFTOOL_TEST(TestPlan, EventLoop)
#include "tst_plan.moc"
