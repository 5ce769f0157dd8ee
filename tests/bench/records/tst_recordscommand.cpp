/// "bench records" as it is called, on a store of its own.
#include "tests/bench/records/sampleattempt.h"
#include "tests/support/testprogram.h"

#include <QDir>
#include <QProcess>
#include <QTemporaryDir>

class TestRecordsCommand : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void importsOnceAndOnlyOnce();
    void importsWhatWaits();
    void keepsWaitingWhatCannotBeRead();
    void keepsWaitingWhileTheStoreIsAway();
    void lists();
    void shows();
    void exportsCsv();
    void writesTheReport();
    void refusesWrongCalls_data();
    void refusesWrongCalls();

private:
    struct Run {
        int status = -1;
        QString out;
        QString err;
    };
    Run run(const QStringList &arguments) const;
    Run store(const SampleAttempt &attempt) const;
    void write(const QString &path, const QByteArray &bytes) const;

    std::unique_ptr<QTemporaryDir> m_dir;
};

void TestRecordsCommand::initTestCase()
{
    qputenv("TZ", "UTC");
}

void TestRecordsCommand::init()
{
    m_dir = std::make_unique<QTemporaryDir>();
    QVERIFY(m_dir->isValid());
}

TestRecordsCommand::Run TestRecordsCommand::run(const QStringList &arguments) const
{
    QProcess process;
    process.setWorkingDirectory(m_dir->path());
    process.start(BENCH, QStringList{"records"} + arguments);
    Run result;
    if (!process.waitForFinished(60000) || process.exitStatus() != QProcess::NormalExit)
        return result;
    result.status = process.exitCode();
    result.out = QString::fromUtf8(process.readAllStandardOutput());
    result.err = QString::fromUtf8(process.readAllStandardError());
    return result;
}

void TestRecordsCommand::write(const QString &path, const QByteArray &bytes) const
{
    QFile file(m_dir->filePath(path));
    QVERIFY(QDir().mkpath(QFileInfo(file).path()));
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write(bytes);
}

TestRecordsCommand::Run TestRecordsCommand::store(const SampleAttempt &attempt) const
{
    write("bench-out/" + attempt.id + "/record.json", attempt.json());
    return run({"import"});
}

void TestRecordsCommand::importsOnceAndOnlyOnce()
{
    const Run first = store(SampleAttempt());
    QCOMPARE(first.err, QString());
    QCOMPARE(first.out, QString("1 stored, 0 known\n"));
    QCOMPARE(first.status, 0);
    SampleAttempt second;
    second.id = "another";
    QCOMPARE(store(second).out, QString("1 stored, 1 known\n"));
    write("bench-out/wrong/record.json", "{}");
    const Run third = run({"import"});
    QCOMPARE(third.out, QString("0 stored, 2 known, 1 not stored\n"));
    QCOMPARE(third.err,
             QString("bench records: bench-out/wrong/record.json: not a record of a unit\n"));
    QCOMPARE(third.status, 1);
}

void TestRecordsCommand::importsWhatWaits()
{
    write("out/a/record.json", SampleAttempt().json());
    write("out/not-stored/1", "a/record.json\n");
    write("out/not-stored/2", "killed-before-it-was-written/record.json\n");
    SampleAttempt other;
    other.id = "not entered";
    write("out/b/record.json", other.json());
    const Run result = run({"import", "--waiting", "out", "--store", "s.sqlite"});
    QCOMPARE(result.err, QString());
    QCOMPARE(result.out, QString("1 stored, 0 known\n"));
    QCOMPARE(result.status, 0);
    QCOMPARE(QDir(m_dir->filePath("out/not-stored")).entryList(QDir::Files), QStringList());
}

/// The disk may give a damaged file today, and the whole one when it was mended.
void TestRecordsCommand::keepsWaitingWhatCannotBeRead()
{
    write("out/a/record.json", "{}");
    write("out/not-stored/1", "a/record.json\n");
    SampleAttempt other;
    other.id = "another";
    write("out/b/record.json", other.json());
    write("out/not-stored/2", "b/record.json\n");
    const QStringList import{"import", "--waiting", "out"};
    const Run damaged = run(import);
    QCOMPARE(damaged.out, QString("1 stored, 0 known, 1 not stored\n"));
    QCOMPARE(damaged.err, QString("bench records: out/a/record.json: not a record of a unit\n"));
    QCOMPARE(damaged.status, 1);
    const QString entries = m_dir->filePath("out/not-stored");
    QCOMPARE(QDir(entries).entryList(QDir::Files), QStringList{"1"});
    write("out/a/record.json", SampleAttempt().json());
    const Run mended = run(import);
    QCOMPARE(mended.err, QString());
    QCOMPARE(mended.out, QString("1 stored, 0 known\n"));
    QCOMPARE(mended.status, 0);
    QCOMPARE(QDir(entries).entryList(QDir::Files), QStringList());
}

void TestRecordsCommand::keepsWaitingWhileTheStoreIsAway()
{
    write("out/a/record.json", SampleAttempt().json());
    write("out/not-stored/1", "a/record.json\n");
    // A port that nobody listens on.
    const Run away =
        run({"import", "--waiting", "out", "--store", "postgresql://127.0.0.1:1/records"});
    QCOMPARE(away.status, 4);
    QVERIFY2(away.err.startsWith("bench records: postgresql://127.0.0.1:1/records: "),
             qPrintable(away.err));
    QCOMPARE(run({"import", "--waiting", "out"}).out, QString("1 stored, 0 known\n"));
}

void TestRecordsCommand::lists()
{
    SampleAttempt attempt;
    store(attempt);
    attempt.id = "later";
    attempt.start = "2026-03-02T09:00:00.000+01:00";
    attempt.outcome = "fail";
    attempt.attempt = 2;
    store(attempt);
    const QString later =
        "2026-03-02 08:00:00  KP-0001  fail  production  current=20, lamp=red  line-1  12.5 s  "
        "attempt 2  step 1 \"Volts\": voltage 9000 mV is below 11000\n";
    const QString earlier = "2026-03-02 07:00:00  KP-0001  pass  production  current=20, lamp=red  "
                            "line-1  12.5 s\n";
    QCOMPARE(run({"list"}).out, later + earlier);
    QCOMPARE(run({"list", "--most", "1"}).out, later);
    QCOMPARE(run({"list", "--outcome", "pass"}).out, earlier);
    const Run none = run({"list", "--station", "line-9"});
    QCOMPARE(none.out, QString());
    QCOMPARE(none.err, QString("bench records: there is no such record\n"));
    QCOMPARE(none.status, 1);
}

void TestRecordsCommand::shows()
{
    store(SampleAttempt());
    const Run result = run({"show", "KP-0001"});
    QCOMPARE(result.status, 0);
    QCOMPARE(result.out,
             QString("2026-03-02 07:00:00  KP-0001  pass  production  current=20, lamp=red  "
                     "line-1  12.5 s\n"
                     "\n"
                     "   1  Volts                             pass         0.50 s  voltage 12000 "
                     "mV\n"
                     "   2  Version                           pass         0.25 s  version 1.2\n"));
    const Run none = run({"show", "KP-0002"});
    QCOMPARE(none.status, 1);
    QCOMPARE(none.err, QString("bench records: there is no record of KP-0002\n"));
}

void TestRecordsCommand::exportsCsv()
{
    store(SampleAttempt());
    const QString records = run({"export", "--csv"}).out;
    QVERIFY2(records.startsWith("start,serial_number,plan,variant,station,"), qPrintable(records));
    QCOMPARE(records.count("\r\n"), 2);
    const QString values = run({"export", "--csv", "--values"}).out;
    QVERIFY2(values.startsWith("start,serial_number,plan,step,name,value,"), qPrintable(values));
    QCOMPARE(values.count("\r\n"), 3);
}

void TestRecordsCommand::writesTheReport()
{
    store(SampleAttempt());
    const Run result = run({"report", "--plan", "production", "--out", "page.html"});
    QCOMPARE(result.err, QString());
    QCOMPARE(result.out, QString("page.html\n"));
    QFile page(m_dir->filePath("page.html"));
    QVERIFY(page.open(QIODevice::ReadOnly));
    const QString html = QString::fromUtf8(page.readAll());
    QVERIFY(html.contains("<h1>plan production</h1>"));
    QVERIFY(html.contains("100.0 %"));
    // Of a single day the yields are seen, too.
    QVERIFY(html.contains("<polyline class=\"first\" points=\"15.0,0.0 135.0,0.0\"/>"));
}

void TestRecordsCommand::refusesWrongCalls_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QString>("error");
    const QString seeHelp = "; see bench records --help\n";
    QTest::newRow("nothing") << QStringList{} << "list, show, export, report or import?" + seeHelp;
    QTest::newRow("word") << QStringList{"dance"} << "there is no \"dance\"" + seeHelp;
    QTest::newRow("day") << QStringList{"list", "--since", "yesterday"}
                         << "--since takes a day as 2026-11-21" + seeHelp;
    QTest::newRow("no such day") << QStringList{"list", "--until", "2026-02-30"}
                                 << "--until takes a day as 2026-11-21" + seeHelp;
    QTest::newRow("empty") << QStringList{"list", "--plan", ""} << "--plan is empty" + seeHelp;
    QTest::newRow("store") << QStringList{"list", "--store", "http://x/y"}
                           << "a store is a file or postgresql://[user@]host[:port]/database" +
                                  seeHelp;
    QTest::newRow("most") << QStringList{"list", "--most", "0"}
                          << "--most takes a number from 1" + seeHelp;
    QTest::newRow("report of an outcome")
        << QStringList{"report", "--outcome", "pass"}
        << "a report is about all outcomes: --outcome is for the others" + seeHelp;
    QTest::newRow("list something")
        << QStringList{"list", "KP-1"} << "list takes options only" + seeHelp;
    QTest::newRow("show nothing") << QStringList{"show"}
                                  << "show takes one serial number" + seeHelp;
}

void TestRecordsCommand::refusesWrongCalls()
{
    QFETCH(QStringList, arguments);
    QFETCH(QString, error);
    const Run result = run(arguments);
    QCOMPARE(result.err, "bench records: " + error);
    QCOMPARE(result.out, QString());
    QCOMPARE(result.status, 2);
}

MFTOOL_TEST(TestRecordsCommand, EventLoop)
#include "tst_recordscommand.moc"
