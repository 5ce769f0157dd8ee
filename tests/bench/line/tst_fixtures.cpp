/// "bench line" for other programs, with progress and answers as JSON lines, and on several
/// fixtures side by side.

#include "bench/keypad/virtualkeypad.h"
#include "tests/support/descriptors.h"
#include "tests/support/processes.h"
#include "tests/support/testprogram.h"

#include <QHash>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>

#include <algorithm>
#include <csignal>
#include <memory>
#include <vector>

#include <unistd.h>

namespace
{

const int RunLimitMs = 120000; ///< for a small plan on a machine that is busy

/// The operator is asked for what a person does, but not for what the board shows.
const QByteArray SmallPlan = R"({"plan":"small","title":"A small plan","operator_limit_ms":60000,
    "steps":[
    {"name":"Start","operator":{"ask":"Switch it on.","do":[{"power":"on"}]},
     "expect":["ACK","ready"],"limit_ms":15000,"required":true},
    {"name":"Light","request":"backlight 100","expect":["ACK"],"look":"Is it bright?"},
    {"name":"Volts","request":"voltage","expect":[{"frame":"voltage reply",
     "fields":{"voltage":{"min":11000,"max":14500,"unit":"mV"}}}]},
    {"name":"Exit","request":"exit","expect":["ACK"],"check":[{"exit":0}]}]})";

/// "bench line" as a process, with a plan and a folder of its own.
class Run
{
public:
    explicit Run(const QByteArray &plan) : m_plan(dir.filePath(QStringLiteral("plan.json")))
    {
        QFile file(m_plan);
        if (!file.open(QIODevice::WriteOnly) || file.write(plan) != plan.size())
            qFatal("cannot write a plan");
    }

    ~Run()
    {
        if (process.state() == QProcess::NotRunning)
            return;
        process.kill();
        process.waitForFinished();
    }

    void start(const QStringList &options)
    {
        QStringList arguments = {QStringLiteral("line"), m_plan, QStringLiteral("--out"), out()};
        if (!options.contains(QStringLiteral("--port")))
            arguments += {QStringLiteral("--flash-seconds"), QStringLiteral("0")};
        process.start(QStringLiteral(BENCH), arguments + options);
    }

    bool isOver() const { return process.state() == QProcess::NotRunning; }
    QString out() const { return dir.filePath(QStringLiteral("out")); }
    QString latest() const { return out() + QStringLiteral("/latest"); }

    QByteArray output()
    {
        m_output += process.readAllStandardOutput();
        return m_output;
    }

    /// Those of that name so far, in their order; all of them for an empty one.
    QList<QJsonObject> events(const QString &name = QString())
    {
        QList<QJsonObject> events;
        const QList<QByteArray> lines = output().split('\n');
        for (int i = 0; i + 1 < lines.size(); ++i) { // the last one is not whole
            const QJsonObject event = QJsonDocument::fromJson(lines.at(i)).object();
            if (name.isEmpty() || event.value(QStringLiteral("event")).toString() == name)
                events.append(event);
        }
        return events;
    }

    QStringList names()
    {
        QStringList names;
        for (const QJsonObject &event : events())
            names.append(event.value(QStringLiteral("event")).toString());
        names.removeAll(QStringLiteral("progress"));
        return names;
    }

    QTemporaryDir dir;
    QProcess process;

private:
    const QString m_plan;
    QByteArray m_output;
};

/// One unit never answers, and nobody waits for less than ten minutes.
const QByteArray PatientPlan = R"({"plan":"p","title":"P","steps":[
    {"name":"Start","operator":{"ask":"On.","do":[{"power":"on"}]},"expect":["ACK","ready"],
     "limit_ms":600000},
    {"name":"Volts","request":"voltage","expect":["voltage reply"]}]})";

/// Waits for a look at a unit that says nothing.
const QByteArray LookPlan = R"({"plan":"p","title":"P","operator_limit_ms":3600000,"steps":[
    {"name":"Light","look":"Is it bright?"}]})";

/// Its process, among the children of the one that runs the batch; 0 while there is none.
pid_t processOf(int unit, qint64 batch)
{
    const QList<qint64> children = process::children(batch);
    for (const qint64 child : children) {
        const QByteArray command = process::read(child, QStringLiteral("cmdline"));
        if (command.split('\0').contains("--unit=" + QByteArray::number(unit)))
            return pid_t(child);
    }
    return 0;
}

QJsonObject jsonIn(const QString &path)
{
    return QJsonDocument::fromJson(contentOf(path)).object();
}

/// @return path of a program that does what the shell script says
QString programIn(const QTemporaryDir &dir, const QByteArray &script)
{
    QFile file(dir.filePath(QStringLiteral("program")));
    if (!file.open(QIODevice::WriteOnly) || file.write("#!/bin/sh\n" + script + "\n") < 0)
        qFatal("cannot write a program");
    file.setPermissions(QFile::ReadOwner | QFile::ExeOwner);
    return file.fileName();
}

/// What "bench records" says of the store of a run.
QByteArray storedBy(const Run &run, const QStringList &question)
{
    QProcess records;
    records.start(QStringLiteral(BENCH),
                  QStringList{QStringLiteral("records"), QStringLiteral("--store"),
                              run.out() + QStringLiteral("/records.sqlite")} +
                      question);
    records.waitForFinished(RunLimitMs);
    return records.readAllStandardOutput();
}

/// Whether the process has not taken a SIGTERM yet that was sent to it.
bool hasPendingEnd(pid_t process)
{
    const QList<QByteArray> lines =
        contentOf(QStringLiteral("/proc/%1/status").arg(process)).split('\n');
    for (const QByteArray &line : lines) {
        if (line.startsWith("ShdPnd:"))
            return (line.mid(7).trimmed().toULongLong(nullptr, 16) >> (SIGTERM - 1) & 1) != 0;
    }
    return false;
}

/// Whether it is gone; a process that nobody has waited for is.
bool hasEnded(pid_t process)
{
    const QByteArray stat = contentOf(QStringLiteral("/proc/%1/stat").arg(process));
    return stat.isEmpty() || stat.mid(stat.lastIndexOf(')') + 2).startsWith('Z');
}

} // namespace

class TestFixtures : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void aProgramIsTold();
    void aProgramAnswers();
    void aProgramThatLeavesEndsTheUnit();
    void unitsAreHandedOutToFixtures();
    void fixturesWorkSideBySide();
    void questionsNameTheFixture();
    void aProgramAnswersForEachFixture();
    void aProcessThatDiesTakesNothingWithIt();
    void aProcessThatDiesAtARetestLeavesTheFirstAttempt();
    void anInterruptReachesEveryFixture();
    void aSecondInterruptEndsAllAtOnce();
    void aBatchThatIsKilledLeavesNoUnitBehind();
    void anInterruptDoesNotWaitForTheProgramAfterAUnit();
    void anOutputThatNobodyReadsEndsEveryFixture();
    void aFullDiskDoesNotTakeTheVerdicts();
    void wrongFixturesAreRefused_data();
    void wrongFixturesAreRefused();
};

void TestFixtures::initTestCase()
{
    QString reason = VirtualKeypad::whyNot();
    if (reason.isEmpty())
        reason = VirtualKeypad::whyNoDisplay(KeypadDisplay::Xvfb);
    if (!reason.isEmpty())
        QSKIP(qPrintable(reason));
}

void TestFixtures::aProgramIsTold()
{
    Run run(SmallPlan);
    run.start({QStringLiteral("--json"), QStringLiteral("--fixture"), QStringLiteral("left"),
               QStringLiteral("--units"), QStringLiteral("2"), QStringLiteral("--fault"),
               QStringLiteral("voltage-low:2"), QStringLiteral("--serial-number"),
               QStringLiteral("KP-9"), QStringLiteral("--count-up")});
    QTRY_VERIFY_WITH_TIMEOUT(run.isOver(), RunLimitMs);
    QCOMPARE(run.process.exitCode(), 1);
    QStringList wanted = {QStringLiteral("run begun")};
    for (int unit = 0; unit < 2; ++unit) {
        wanted.append(QStringLiteral("unit begun"));
        for (int step = 0; step < 4; ++step)
            wanted += {QStringLiteral("step started"), QStringLiteral("step ended")};
        wanted.append(QStringLiteral("unit ended"));
    }
    wanted += {QStringLiteral("summary"), QStringLiteral("note"), QStringLiteral("end")};
    QCOMPARE(run.names(), wanted);
    for (const QJsonObject &event : run.events())
        QCOMPARE(event.value(QStringLiteral("fixture")).toString(), QStringLiteral("left"));

    const QJsonObject runBegun = run.events().at(0);
    QCOMPARE(runBegun.value(QStringLiteral("title")).toString(), QStringLiteral("A small plan"));
    QCOMPARE(runBegun.value(QStringLiteral("units")).toInt(), 2);
    QCOMPARE(runBegun.value(QStringLiteral("fixtures")).toArray(),
             QJsonArray{QStringLiteral("left")});
    const QJsonObject begun = run.events(QStringLiteral("unit begun")).at(1);
    QCOMPARE(begun.value(QStringLiteral("unit")).toInt(), 2);
    QCOMPARE(begun.value(QStringLiteral("units")).toInt(), 2);
    QCOMPARE(begun.value(QStringLiteral("title")).toString(), QStringLiteral("A small plan"));
    QCOMPARE(begun.value(QStringLiteral("steps")).toInt(), 4);
    QCOMPARE(begun.value(QStringLiteral("on")).toString(), QStringLiteral("virtual keypad"));
    QCOMPARE(begun.value(QStringLiteral("serial_number")).toString(), QStringLiteral("KP-10"));
    QCOMPARE(begun.value(QStringLiteral("faults")).toArray(),
             QJsonArray{QStringLiteral("voltage-low")});
    const QJsonObject started = run.events(QStringLiteral("step started")).at(6);
    QCOMPARE(started.value(QStringLiteral("unit")).toInt(), 2);
    QCOMPARE(started.value(QStringLiteral("step")).toInt(), 3);
    QCOMPARE(started.value(QStringLiteral("name")).toString(), QStringLiteral("Volts"));
    const QJsonObject good = run.events(QStringLiteral("step ended")).at(2);
    QCOMPARE(good.value(QStringLiteral("outcome")).toString(), QStringLiteral("pass"));
    QCOMPARE(good.value(QStringLiteral("value")).toString(), QStringLiteral("voltage 12345 mV"));
    const QJsonObject bad = run.events(QStringLiteral("step ended")).at(6);
    QCOMPARE(bad.value(QStringLiteral("unit")).toInt(), 2);
    QCOMPARE(bad.value(QStringLiteral("step")).toInt(), 3);
    QCOMPARE(bad.value(QStringLiteral("outcome")).toString(), QStringLiteral("fail"));
    QVERIFY(!bad.value(QStringLiteral("reason")).toString().isEmpty());
    const QJsonObject ended = run.events(QStringLiteral("unit ended")).at(1);
    QCOMPARE(ended.value(QStringLiteral("outcome")).toString(), QStringLiteral("fail"));
    const QString files = ended.value(QStringLiteral("files")).toString();
    QVERIFY(QFile::exists(files + QStringLiteral("/report.html")));
    QCOMPARE(jsonIn(files + QStringLiteral("/record.json")),
             ended.value(QStringLiteral("record")).toObject());
    QCOMPARE(
        jsonIn(files + QStringLiteral("/record.json")).value(QStringLiteral("fixture")).toString(),
        QStringLiteral("left"));
    const QJsonObject summary = run.events(QStringLiteral("summary")).at(0);
    QCOMPARE(summary.value(QStringLiteral("passed")).toInt(), 1);
    QCOMPARE(summary.value(QStringLiteral("units")).toArray().size(), 2);
    const QJsonObject end = run.events().constLast();
    QCOMPARE(end.value(QStringLiteral("status")).toInt(), 1);
    QCOMPARE(end.value(QStringLiteral("error")).toString(), QString());
}

void TestFixtures::aProgramAnswers()
{
    VirtualKeypad keypad;
    QVERIFY2(keypad.prepare(), qPrintable(keypad.errorString()));
    Run run(SmallPlan);
    run.start({QStringLiteral("--json"), QStringLiteral("--port"), keypad.linePath()});
    QTRY_COMPARE_WITH_TIMEOUT(run.events(QStringLiteral("told")).size(), 1, 30000);
    QCOMPARE(run.events(QStringLiteral("told")).at(0).value(QStringLiteral("text")).toString(),
             QStringLiteral("Switch it on."));
    QVERIFY(keypad.start());
    QTRY_COMPARE_WITH_TIMEOUT(run.events(QStringLiteral("question")).size(), 1, 30000);
    const QJsonObject question = run.events(QStringLiteral("question")).at(0);
    QCOMPARE(question.value(QStringLiteral("kind")).toString(), QStringLiteral("yes/no"));
    QCOMPARE(question.value(QStringLiteral("text")).toString(), QStringLiteral("Is it bright?"));
    QCOMPARE(question.value(QStringLiteral("limit_ms")).toInt(), 60000);
    run.process.write("y\n{\"answer\":1,\"reply\":\"no\"}\n");
    QTRY_VERIFY_WITH_TIMEOUT(run.isOver(), RunLimitMs);
    QCOMPARE(run.process.exitCode(), 1);
    QCOMPARE(run.events(QStringLiteral("refused")).size(), 1);
    const QJsonObject ended = run.events(QStringLiteral("unit ended")).at(0);
    QCOMPARE(ended.value(QStringLiteral("reason")).toString(),
             QStringLiteral("step 2 \"Light\": expected yes to \"Is it bright?\"; came no"));
    QVERIFY(keypad.waitForExit());
}

void TestFixtures::aProgramThatLeavesEndsTheUnit()
{
    Run run(R"({"plan":"p","title":"P","steps":[
        {"name":"Start","operator":{"ask":"On.","do":[{"power":"on"}]},"expect":["ACK","ready"],
         "limit_ms":15000},
        {"name":"Volts","request":"voltage","expect":["voltage reply"]}]})");
    // The reader has gone before the first step is told.
    QProcess shell;
    shell.start(QStringLiteral("/bin/sh"),
                {QStringLiteral("-c"), QStringLiteral("{ \"$@\"; echo $? >\"$0\"; } | head -n 1"),
                 run.dir.filePath(QStringLiteral("status")), QStringLiteral(BENCH),
                 QStringLiteral("line"), run.dir.filePath(QStringLiteral("plan.json")),
                 QStringLiteral("--json"), QStringLiteral("--out"), run.out()});
    QTRY_VERIFY_WITH_TIMEOUT(shell.state() == QProcess::NotRunning, RunLimitMs);
    QFile status(run.dir.filePath(QStringLiteral("status")));
    QVERIFY(status.open(QIODevice::ReadOnly));
    QCOMPARE(status.readAll(), QByteArray("4\n"));
    const QJsonObject record = jsonIn(run.latest() + QStringLiteral("/record.json"));
    QCOMPARE(record.value(QStringLiteral("outcome")).toString(), QStringLiteral("interrupted"));
    QVERIFY(record.value(QStringLiteral("reason"))
                .toString()
                .endsWith(QStringLiteral("interrupted: nobody reads the output")));
}

void TestFixtures::unitsAreHandedOutToFixtures()
{
    Run run(SmallPlan);
    run.start({QStringLiteral("--units"), QStringLiteral("5"), QStringLiteral("--parallel"),
               QStringLiteral("2"), QStringLiteral("--fault"), QStringLiteral("voltage-low:4"),
               QStringLiteral("--serial-number"), QStringLiteral("KP-8"),
               QStringLiteral("--count-up")});
    QTRY_VERIFY_WITH_TIMEOUT(run.isOver(), RunLimitMs);
    const QString output = QString::fromUtf8(run.output());
    QVERIFY2(run.process.exitCode() == 1, qPrintable(output));
    QCOMPARE(QString::fromUtf8(run.process.readAllStandardError()), QString());
    QVERIFY2(output.contains(QStringLiteral("Yield 80.0 % (4 of 5 units), ")), qPrintable(output));
    QVERIFY(!output.contains(QLatin1Char('\033')));
    QHash<QString, int> tested;
    for (int unit = 1; unit <= 5; ++unit) {
        const QJsonObject record =
            jsonIn(QStringLiteral("%1/unit-0%2/record.json").arg(run.latest()).arg(unit));
        QCOMPARE(record.value(QStringLiteral("number")).toInt(), unit);
        QCOMPARE(record.value(QStringLiteral("serial_number")).toString(),
                 QStringLiteral("KP-%1").arg(unit + 7));
        QCOMPARE(record.value(QStringLiteral("outcome")).toString(),
                 unit == 4 ? QStringLiteral("fail") : QStringLiteral("pass"));
        ++tested[record.value(QStringLiteral("fixture")).toString()];
    }
    QCOMPARE(tested.size(), 2);
    QVERIFY(tested.contains(QStringLiteral("keypad 1")));
    QVERIFY(tested.contains(QStringLiteral("keypad 2")));
    QFile summary(run.latest() + QStringLiteral("/report.html"));
    QVERIFY(summary.open(QIODevice::ReadOnly));
    QVERIFY(summary.readAll().contains("4 of 5 units passed"));
    QVERIFY(QFile::exists(run.latest() + QStringLiteral("/junit.xml")));
}

/// No unit ends before all have begun, however long that takes on a busy machine.
void TestFixtures::fixturesWorkSideBySide()
{
    const int count = 8;
    std::vector<std::unique_ptr<VirtualKeypad>> keypads;
    QStringList options = {QStringLiteral("--json")};
    for (int i = 0; i < count; ++i) {
        keypads.push_back(std::make_unique<VirtualKeypad>());
        QVERIFY2(keypads.back()->prepare(), qPrintable(keypads.back()->errorString()));
        options += {QStringLiteral("--port"), keypads.back()->linePath()};
    }
    Run run(LookPlan);
    run.start(options);
    QTRY_COMPARE_WITH_TIMEOUT(run.events(QStringLiteral("question")).size(), count, RunLimitMs);
    QCOMPARE(run.events(QStringLiteral("unit ended")).size(), 0);
    for (int id = 1; id <= count; ++id)
        run.process.write("{\"answer\":" + QByteArray::number(id) + ",\"reply\":\"yes\"}\n");
    QTRY_VERIFY_WITH_TIMEOUT(run.isOver(), RunLimitMs);
    QCOMPARE(run.process.exitCode(), 0);
    QCOMPARE(run.events(QStringLiteral("summary")).at(0).value(QStringLiteral("passed")).toInt(),
             count);
}

void TestFixtures::questionsNameTheFixture()
{
    VirtualKeypad left;
    VirtualKeypad right;
    QVERIFY2(left.prepare(), qPrintable(left.errorString()));
    QVERIFY2(right.prepare(), qPrintable(right.errorString()));
    Run run(LookPlan);
    run.start({QStringLiteral("--port"), left.linePath(), QStringLiteral("--port"),
               right.linePath(), QStringLiteral("--fixture"), QStringLiteral("left"),
               QStringLiteral("--fixture"), QStringLiteral("right"), QStringLiteral("--units"),
               QStringLiteral("5")});
    const QByteArray ofLeft = "  >> left: Is it bright? [y/n]\n";
    const QByteArray ofRight = "  >> right: Is it bright? [y/n]\n";
    QTRY_VERIFY_WITH_TIMEOUT(run.output().contains(ofLeft) || run.output().contains(ofRight),
                             30000);
    // One at a time, and Enter alone answers neither.
    const bool leftIsFirst = run.output().contains(ofLeft);
    const QByteArray first = leftIsFirst ? ofLeft : ofRight;
    const QByteArray second = leftIsFirst ? ofRight : ofLeft;
    run.process.write("\n");
    QTRY_COMPARE_WITH_TIMEOUT(run.output().count(first), 2, 30000);
    QVERIFY(!run.output().contains(second));
    run.process.write("n\n");
    QTRY_VERIFY_WITH_TIMEOUT(run.output().contains(second), 30000);
    run.process.write("y\n");
    // Each gets another unit, which must be connected; they are asked one after another.
    QTRY_VERIFY_WITH_TIMEOUT(
        run.output().contains(": Connect unit 3 of 5, switched off.  Then press Enter:\n") ||
            run.output().contains(": Connect unit 4 of 5, switched off.  Then press Enter:\n"),
        30000);
    run.process.closeWriteChannel();
    QTRY_VERIFY_WITH_TIMEOUT(run.isOver(), RunLimitMs);
    QCOMPARE(run.process.exitCode(), 4);
    const QByteArray output = run.output();
    // Nobody has begun another one, and nobody is asked for those that are left.
    QVERIFY2(output.contains("Yield 20.0 % (1 of 5 units), 3 not tested, "), output.constData());
    QCOMPARE(QDir(run.latest()).entryList({QStringLiteral("unit-*")}),
             QStringList({QStringLiteral("unit-01"), QStringLiteral("unit-02")}));
    QVERIFY(output.contains("there is no operator: standard input is closed\n"));
}

void TestFixtures::aProgramAnswersForEachFixture()
{
    VirtualKeypad left;
    VirtualKeypad right;
    QVERIFY2(left.prepare(), qPrintable(left.errorString()));
    QVERIFY2(right.prepare(), qPrintable(right.errorString()));
    Run run(LookPlan);
    run.start({QStringLiteral("--json"), QStringLiteral("--port"), left.linePath(),
               QStringLiteral("--port"), right.linePath(), QStringLiteral("--fixture"),
               QStringLiteral("left"), QStringLiteral("--fixture"), QStringLiteral("right")});
    QTRY_COMPARE_WITH_TIMEOUT(run.events(QStringLiteral("question")).size(), 2, 30000);
    run.process.write("{\"answer\":3,\"reply\":\"yes\"}\n");
    for (const QJsonObject &question : run.events(QStringLiteral("question"))) {
        const bool good = question.value(QStringLiteral("fixture")) == QStringLiteral("right");
        const int id = question.value(QStringLiteral("id")).toInt();
        run.process.write("{\"answer\":" + QByteArray::number(id) + ",\"reply\":\"" +
                          (good ? "yes" : "no") + "\"}\n");
    }
    QTRY_VERIFY_WITH_TIMEOUT(run.isOver(), RunLimitMs);
    QCOMPARE(run.process.exitCode(), 1);
    QCOMPARE(run.events(QStringLiteral("run begun")).size(), 1);
    QCOMPARE(run.events().at(0).value(QStringLiteral("fixtures")).toArray(),
             (QJsonArray{QStringLiteral("left"), QStringLiteral("right")}));
    QCOMPARE(run.events(QStringLiteral("refused")).size(), 1);
    QCOMPARE(run.events(QStringLiteral("question over")).size(), 2);
    for (const QJsonObject &ended : run.events(QStringLiteral("unit ended"))) {
        const bool good = ended.value(QStringLiteral("fixture")) == QStringLiteral("right");
        QCOMPARE(ended.value(QStringLiteral("outcome")).toString(),
                 good ? QStringLiteral("pass") : QStringLiteral("fail"));
    }
    QCOMPARE(run.events(QStringLiteral("summary")).size(), 1);
    QCOMPARE(run.events().constLast().value(QStringLiteral("status")).toInt(), 1);
}

void TestFixtures::aProcessThatDiesTakesNothingWithIt()
{
    Run run(PatientPlan);
    const QString told = run.dir.filePath(QStringLiteral("told"));
    run.start({QStringLiteral("--parallel"), QStringLiteral("2"), QStringLiteral("--units"),
               QStringLiteral("3"), QStringLiteral("--fault"), QStringLiteral("silent:1"),
               QStringLiteral("--after"),
               programIn(run.dir, "echo \"$1\" >>\"" + told.toUtf8() + "\"")});
    // The other fixture takes the third unit, too.
    const QString third = run.latest() + QStringLiteral("/unit-03/report.html");
    QTRY_VERIFY_WITH_TIMEOUT(QFile::exists(third), RunLimitMs);
    const auto batch = static_cast<pid_t>(run.process.processId());
    const pid_t process = processOf(1, batch);
    QVERIFY(process > 0);
    // Another line may store what it finds before the batch hears of the death.
    QCOMPARE(::kill(batch, SIGSTOP), 0);
    QCOMPARE(::kill(process, SIGKILL), 0);
    QTRY_VERIFY_WITH_TIMEOUT(hasEnded(process), RunLimitMs);
    storedBy(run, {QStringLiteral("import"), QStringLiteral("--waiting"), run.out()});
    QVERIFY(storedBy(run, {QStringLiteral("list")}).contains("not ended"));
    QCOMPARE(::kill(batch, SIGCONT), 0);
    QTRY_VERIFY_WITH_TIMEOUT(run.isOver(), RunLimitMs);
    QCOMPARE(run.process.exitCode(), 4);
    const QByteArray output = run.output();
    QVERIFY2(output.contains("Yield 66.7 % (2 of 3 units), "), output.constData());
    const QJsonObject record = jsonIn(run.latest() + QStringLiteral("/unit-01/record.json"));
    QCOMPARE(record.value(QStringLiteral("outcome")).toString(), QStringLiteral("error"));
    QCOMPARE(record.value(QStringLiteral("ended")), QJsonValue(true));
    QCOMPARE(record.value(QStringLiteral("reason")).toString(),
             QStringLiteral("the process that tested it: it was killed, or crashed"));
    QVERIFY(QFile::exists(run.latest() + QStringLiteral("/unit-01/report.html")));
    // It is reported like any unit, and the place of all records is printed once.
    QVERIFY(contentOf(told).contains("/unit-01/record.json\n"));
    const QByteArray stored = storedBy(run, {QStringLiteral("list")});
    QCOMPARE(stored.count("pass"), 2);
    QVERIFY2(stored.contains("the process that tested it: it was killed"), stored.constData());
    QCOMPARE(output.count("records.sqlite\n"), 1);
    QVERIFY2(output.contains("Store:   " + run.out().toUtf8() + "/records.sqlite\n"),
             output.constData());
}

void TestFixtures::aProcessThatDiesAtARetestLeavesTheFirstAttempt()
{
    VirtualKeypad left;
    VirtualKeypad right;
    QVERIFY2(left.prepare(), qPrintable(left.errorString()));
    QVERIFY2(right.prepare(), qPrintable(right.errorString()));
    Run run(R"({"plan":"p","title":"P","operator_limit_ms":3600000,
        "retest":{"times":1,"when":"at once"},"steps":[
        {"name":"Light","look":"Is it bright?"}]})");
    run.start({QStringLiteral("--json"), QStringLiteral("--port"), left.linePath(),
               QStringLiteral("--port"), right.linePath()});
    QTRY_COMPARE_WITH_TIMEOUT(run.events(QStringLiteral("question")).size(), 2, RunLimitMs);
    run.process.write("{\"answer\":1,\"reply\":\"no\"}\n{\"answer\":2,\"reply\":\"no\"}\n");
    QTRY_COMPARE_WITH_TIMEOUT(run.events(QStringLiteral("question")).size(), 4, RunLimitMs);
    const pid_t process = processOf(1, run.process.processId());
    QVERIFY(process > 0);
    QCOMPARE(::kill(process, SIGKILL), 0);
    QTRY_COMPARE_WITH_TIMEOUT(run.events(QStringLiteral("unit ended")).size(), 3, RunLimitMs);
    for (const char *id : {"3", "4"})
        run.process.write(QByteArray("{\"answer\":") + id + ",\"reply\":\"yes\"}\n");
    QTRY_VERIFY_WITH_TIMEOUT(run.isOver(), RunLimitMs);
    QCOMPARE(run.process.exitCode(), 4);
    const QJsonObject first = jsonIn(run.latest() + QStringLiteral("/unit-01/record.json"));
    QCOMPARE(first.value(QStringLiteral("outcome")).toString(), QStringLiteral("fail"));
    QCOMPARE(first.value(QStringLiteral("attempt")).toInt(), 1);
    const QJsonObject second =
        jsonIn(run.latest() + QStringLiteral("/unit-01-attempt-2/record.json"));
    QCOMPARE(second.value(QStringLiteral("outcome")).toString(), QStringLiteral("error"));
    QCOMPARE(second.value(QStringLiteral("attempt")).toInt(), 2);
    QCOMPARE(
        run.events(QStringLiteral("summary")).at(0).value(QStringLiteral("units")).toArray().size(),
        4);
    QCOMPARE(storedBy(run, {QStringLiteral("list")}).count("error"), 1);
}

void TestFixtures::anInterruptReachesEveryFixture()
{
    Run run(PatientPlan);
    run.start({QStringLiteral("--parallel"), QStringLiteral("2"), QStringLiteral("--units"),
               QStringLiteral("3"), QStringLiteral("--fault"), QStringLiteral("silent")});
    for (const char *unit : {"/unit-01", "/unit-02"}) {
        const QString transcript =
            run.latest() + QLatin1String(unit) + QStringLiteral("/transcript.txt");
        QTRY_VERIFY_WITH_TIMEOUT(contentOf(transcript).contains("step 1: Start"), RunLimitMs);
    }
    QCOMPARE(::kill(static_cast<pid_t>(run.process.processId()), SIGTERM), 0);
    QTRY_VERIFY_WITH_TIMEOUT(run.isOver(), RunLimitMs);
    QCOMPARE(run.process.exitStatus(), QProcess::NormalExit);
    QCOMPARE(run.process.exitCode(), 4);
    for (const char *unit : {"/unit-01", "/unit-02"}) {
        const QJsonObject record =
            jsonIn(run.latest() + QLatin1String(unit) + QStringLiteral("/record.json"));
        QCOMPARE(record.value(QStringLiteral("ended")), QJsonValue(true));
        QCOMPARE(record.value(QStringLiteral("outcome")).toString(), QStringLiteral("interrupted"));
        QCOMPARE(record.value(QStringLiteral("reason")).toString(),
                 QStringLiteral("step 1 \"Start\": interrupted: the program was told to "
                                "terminate"));
    }
    QVERIFY2(run.output().contains("Yield 0.0 % (0 of 3 units), 1 not tested, "),
             run.output().constData());
}

/// Units that are stopped cannot obey the first one.
void TestFixtures::aSecondInterruptEndsAllAtOnce()
{
    Run run(PatientPlan);
    run.start({QStringLiteral("--parallel"), QStringLiteral("2"), QStringLiteral("--fault"),
               QStringLiteral("silent")});
    QList<pid_t> processes;
    for (const int unit : {1, 2}) {
        const QString transcript =
            QStringLiteral("%1/unit-0%2/transcript.txt").arg(run.latest()).arg(unit);
        QTRY_VERIFY_WITH_TIMEOUT(contentOf(transcript).contains("step 1: Start"), RunLimitMs);
        processes.append(processOf(unit, run.process.processId()));
        QVERIFY(processes.last() > 0);
        QCOMPARE(::kill(processes.last(), SIGSTOP), 0);
    }
    const auto batch = static_cast<pid_t>(run.process.processId());
    QCOMPARE(::kill(batch, SIGTERM), 0);
    for (const pid_t process : processes)
        QTRY_VERIFY_WITH_TIMEOUT(hasPendingEnd(process), RunLimitMs);
    QVERIFY(!run.isOver());
    QCOMPARE(::kill(batch, SIGTERM), 0);
    QTRY_VERIFY_WITH_TIMEOUT(run.isOver(), RunLimitMs);
    QCOMPARE(run.process.exitStatus(), QProcess::CrashExit);
    for (const pid_t process : processes) {
        ::kill(process, SIGCONT);
        QTRY_VERIFY_WITH_TIMEOUT(hasEnded(process), RunLimitMs);
    }
}

void TestFixtures::aBatchThatIsKilledLeavesNoUnitBehind()
{
    Run run(PatientPlan);
    run.start({QStringLiteral("--parallel"), QStringLiteral("2"), QStringLiteral("--fault"),
               QStringLiteral("silent")});
    QList<pid_t> processes;
    for (const int unit : {1, 2}) {
        const QString transcript =
            QStringLiteral("%1/unit-0%2/transcript.txt").arg(run.latest()).arg(unit);
        QTRY_VERIFY_WITH_TIMEOUT(contentOf(transcript).contains("step 1: Start"), RunLimitMs);
        processes.append(processOf(unit, run.process.processId()));
        QVERIFY(processes.last() > 0);
    }
    run.process.kill();
    for (const pid_t process : processes)
        QTRY_VERIFY_WITH_TIMEOUT(hasEnded(process), RunLimitMs);
    const QJsonObject record = jsonIn(run.latest() + QStringLiteral("/unit-01/record.json"));
    QCOMPARE(record.value(QStringLiteral("ended")), QJsonValue(true));
    QCOMPARE(record.value(QStringLiteral("outcome")).toString(), QStringLiteral("interrupted"));
}

void TestFixtures::anInterruptDoesNotWaitForTheProgramAfterAUnit()
{
    Run run(LookPlan);
    const QString begun = run.dir.filePath(QStringLiteral("begun"));
    VirtualKeypad left;
    VirtualKeypad right;
    QVERIFY2(left.prepare(), qPrintable(left.errorString()));
    QVERIFY2(right.prepare(), qPrintable(right.errorString()));
    run.start({QStringLiteral("--json"), QStringLiteral("--port"), left.linePath(),
               QStringLiteral("--port"), right.linePath(), QStringLiteral("--after"),
               programIn(run.dir, "echo >\"" + begun.toUtf8() + "\"; exec sleep 3600")});
    QTRY_COMPARE_WITH_TIMEOUT(run.events(QStringLiteral("question")).size(), 2, RunLimitMs);
    run.process.write("{\"answer\":1,\"reply\":\"yes\"}\n");
    QTRY_VERIFY_WITH_TIMEOUT(QFile::exists(begun), RunLimitMs);
    QCOMPARE(::kill(static_cast<pid_t>(run.process.processId()), SIGTERM), 0);
    QTRY_VERIFY_WITH_TIMEOUT(run.isOver(), RunLimitMs);
    QCOMPARE(run.process.exitCode(), 4);
    // The verdict that was there stays.
    QCOMPARE(run.events(QStringLiteral("summary")).at(0).value(QStringLiteral("passed")).toInt(),
             1);
    const QList<QJsonObject> notes = run.events(QStringLiteral("note"));
    const bool isTold = std::any_of(notes.begin(), notes.end(), [](const QJsonObject &note) {
        return note.value(QStringLiteral("text"))
            .toString()
            .endsWith(QStringLiteral("program: not done when the run was interrupted"));
    });
    QVERIFY2(isTold, run.output().constData());
}

void TestFixtures::anOutputThatNobodyReadsEndsEveryFixture()
{
    Run run(PatientPlan);
    QProcess shell;
    shell.start(QStringLiteral("/bin/sh"),
                {QStringLiteral("-c"), QStringLiteral("{ \"$@\"; echo $? >\"$0\"; } | head -n 1"),
                 run.dir.filePath(QStringLiteral("status")), QStringLiteral(BENCH),
                 QStringLiteral("line"), run.dir.filePath(QStringLiteral("plan.json")),
                 QStringLiteral("--parallel"), QStringLiteral("2"), QStringLiteral("--fault"),
                 QStringLiteral("silent"), QStringLiteral("--out"), run.out()});
    QTRY_VERIFY_WITH_TIMEOUT(shell.state() == QProcess::NotRunning, RunLimitMs);
    QFile status(run.dir.filePath(QStringLiteral("status")));
    QVERIFY(status.open(QIODevice::ReadOnly));
    QCOMPARE(status.readAll(), QByteArray("4\n"));
    QVERIFY(QFile::exists(run.latest() + QStringLiteral("/report.html")));
    for (const char *unit : {"/unit-01", "/unit-02"}) {
        const QString path = run.latest() + QLatin1String(unit) + QStringLiteral("/record.json");
        if (!QFile::exists(path)) // it was over before this one began
            continue;
        const QString reason = jsonIn(path).value(QStringLiteral("reason")).toString();
        QVERIFY2(reason.endsWith(QStringLiteral("interrupted: nobody reads the output")),
                 qPrintable(reason));
    }
}

/// The disk has a few pages and is in a name space of its own.
void TestFixtures::aFullDiskDoesNotTakeTheVerdicts()
{
    QStringList inside = {QStringLiteral("--mount")};
    if (geteuid() != 0)
        inside.append(QStringLiteral("--map-root-user"));
    QTemporaryDir disk;
    inside +=
        {QStringLiteral("/bin/sh"), QStringLiteral("-c"),
         QStringLiteral("mount -t tmpfs -o size=24k none \"$0\" || exit 77\n\"$@\""), disk.path()};
    QProcess trial;
    trial.start(QStringLiteral("unshare"), inside + QStringList{QStringLiteral("true")});
    if (!trial.waitForFinished(120000) || trial.exitCode() != 0)
        QSKIP("no file system can be mounted here");
    Run plan(R"({"plan":"p","title":"P","steps":[
        {"name":"Start","operator":{"ask":"On.","do":[{"power":"on"}]},"expect":["ACK","ready"],
         "limit_ms":600000}]})");
    QProcess run;
    run.start(QStringLiteral("unshare"),
              inside + QStringList{QStringLiteral(BENCH), QStringLiteral("line"),
                                   plan.dir.filePath(QStringLiteral("plan.json")),
                                   QStringLiteral("--parallel"), QStringLiteral("2"),
                                   QStringLiteral("--units"), QStringLiteral("9"),
                                   QStringLiteral("--out"), disk.path()});
    QTRY_VERIFY_WITH_TIMEOUT(run.state() == QProcess::NotRunning, RunLimitMs);
    QCOMPARE(run.exitCode(), 4);
    const QByteArray output = run.readAllStandardOutput();
    const QList<QByteArray> lines = output.split('\n');
    const auto count = [&lines](const QByteArray &begin) {
        return std::count_if(lines.begin(), lines.end(),
                             [&](const QByteArray &line) { return line.startsWith(begin); });
    };
    // How many had room depends on which of both was quicker, but never all.
    const auto passed = count("PASS        unit   ");
    QVERIFY2(passed >= 1 && passed < 9, output.constData());
    QCOMPARE(count("NOT RUN     unit   "), 9 - passed);
    QVERIFY2(output.contains(" (" + QByteArray::number(int(passed)) + " of 9 units), "),
             output.constData());
    QVERIFY2(output.contains(" could not be written\nYield "), output.constData());
    QVERIFY(output.contains("\nReport:  none, it could not be written\n"));
    const QByteArray complaint = run.readAllStandardError();
    QVERIFY2(complaint.startsWith("bench line: ") && complaint.contains("No space left"),
             complaint.constData());
}

void TestFixtures::wrongFixturesAreRefused_data()
{
    QTest::addColumn<QStringList>("options");
    QTest::addColumn<QString>("reason");
    const auto row = [](const char *name, const char *options, const char *reason) {
        QTest::newRow(name) << QString::fromLatin1(options).split(QLatin1Char(' '))
                            << QString::fromLatin1(reason);
    };
    row("none", "--parallel 0", "--parallel takes a whole number from 1 to 99");
    row("of real units", "--parallel 2 --port /dev/null",
        "--port and --parallel exclude each other");
    row("on one display", "--parallel 2 --display :0",
        "one display shows one keypad: --display and --parallel exclude each other");
    row("a port twice", "--port /dev/null --port /dev/null", "a port is there more than once");
    row("a name twice", "--parallel 2 --fixture a --fixture a",
        "--fixture takes a name of its own for each of 2 fixtures");
    row("a name too few", "--parallel 2 --fixture a",
        "--fixture takes a name of its own for each of 2 fixtures");
    row("a name too many", "--fixture a --fixture b",
        "--fixture takes a name of its own for each of 1 fixtures");
    row("a fault of a unit too many", "--parallel 2 --fault dies:3",
        "--fault dies:3: there is no such unit; they count from 1 to 2");
}

void TestFixtures::wrongFixturesAreRefused()
{
    QFETCH(QStringList, options);
    QFETCH(QString, reason);
    Run run(SmallPlan);
    run.start(options);
    QTRY_VERIFY_WITH_TIMEOUT(run.isOver(), RunLimitMs);
    QCOMPARE(run.process.exitCode(), 2);
    QCOMPARE(QString::fromUtf8(run.process.readAllStandardError()),
             QStringLiteral("bench line: %1\n").arg(reason));
}

MFTOOL_TEST(TestFixtures, EventLoop)
#include "tst_fixtures.moc"
