/// "bench line" as other programs see it: progress and answers as JSON lines.

#include "bench/keypad/virtualkeypad.h"
#include "tests/support/testprogram.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>

#include <csignal>

namespace
{

const int RunLimitMs = 120000; ///< for a small plan on a machine that is busy

/// What a person does is asked for, what the board shows is not.
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
        process.start(QStringLiteral(BENCH),
                      QStringList{QStringLiteral("line"), m_plan, QStringLiteral("--out"), out(),
                                  QStringLiteral("--pace"), QStringLiteral("0"),
                                  QStringLiteral("--flash-seconds"), QStringLiteral("0")} +
                          options);
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

QJsonObject jsonIn(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? QJsonDocument::fromJson(file.readAll()).object()
                                          : QJsonObject();
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
    QStringList wanted;
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

MFTOOL_TEST(TestFixtures, EventLoop)
#include "tst_fixtures.moc"
