#include "bench/line/junit.h"

#include "tests/bench/line/samplerecord.h"
#include "tests/support/testprogram.h"

#include <QProcess>
#include <QStandardPaths>
#include <QTemporaryFile>
#include <QTest>

namespace
{

bool hasValidator()
{
    return !QStandardPaths::findExecutable(QStringLiteral("xmllint")).isEmpty();
}

/// What xmllint finds wrong with the file; empty if nothing.
QByteArray complaints(const QByteArray &xml)
{
    QTemporaryFile file;
    if (!file.open() || file.write(xml) != xml.size() || !file.flush())
        return "no file";
    QProcess validator;
    validator.start(QStringLiteral("xmllint"),
                    {QStringLiteral("--noout"), QStringLiteral("--nonet"),
                     QStringLiteral("--schema"),
                     QStringLiteral(SOURCE_DIR "/tests/bench/line/junit.xsd"), file.fileName()});
    if (!validator.waitForFinished(60000))
        return "xmllint did not end";
    return validator.exitCode() == 0 ? QByteArray() : validator.readAllStandardError();
}

} // namespace

class TestJunit : public QObject
{
    Q_OBJECT

private slots:
    void writesOneSuiteAUnit();
    void addsUpUnits();
    void tellsAttemptsApart();
    void survivesControlCharacters();
    void isAsReadersOfItWant();
    void readersRefuseWhatIsWrong_data();
    void readersRefuseWhatIsWrong();
};

void TestJunit::writesOneSuiteAUnit()
{
    QCOMPARE(QString::fromUtf8(toJunit({sampleRecord()})),
             QString::fromUtf8(
                 R"(<?xml version="1.0" encoding="UTF-8"?>
<testsuites tests="5" failures="1" errors="2" time="12.345">
    <testsuite name="production KP-0042" timestamp="2026-03-01T09:30:00+01:00" hostname="desk 3" tests="5" failures="1" errors="2" time="12.345" skipped="1">
        <properties>
            <property name="attempt" value="1"/>
            <property name="last_attempt" value="true"/>
            <property name="outcome" value="not run"/>
        </properties>
        <testcase classname="production.group" name="Volts" time="0.052"/>
        <testcase classname="production.group" name="Light" time="0.250">
            <failure type="fail" message="expected ACK; came NAK">expected: ACK
came: NAK
raw: 7E000A00053202977F\r\n</failure>
        </testcase>
        <testcase classname="production.group" name="Key" time="5.000">
            <error type="time-out" message="expected ACK; nothing came in 5 s">expected: ACK
came: nothing</error>
        </testcase>
        <testcase classname="production.group" name="Died" time="0.500">
            <error type="error" message="the tool crashed"></error>
        </testcase>
        <testcase classname="production.group" name="Rest" time="0.000">
            <skipped message="the tool crashed"/>
        </testcase>
    </testsuite>
</testsuites>
)"));
}

void TestJunit::addsUpUnits()
{
    UnitRecord nameless = sampleRecord();
    nameless.serialNumber.clear();
    const QByteArray xml = toJunit({sampleRecord(), nameless});
    QVERIFY(xml.contains(R"(<testsuites tests="10" failures="2" errors="4" time="24.690">)"));
    QVERIFY(xml.contains(R"(<testsuite name="production unit 3")"));
}

void TestJunit::tellsAttemptsApart()
{
    UnitRecord first = sampleRecord();
    first.outcome = Outcome::Fail;
    UnitRecord second = sampleRecord();
    second.attempt = 2;
    second.outcome = Outcome::Pass;
    second.operatorName = QStringLiteral("Ann & Bob");
    const QByteArray xml = toJunit({first, second});
    QVERIFY(xml.contains(R"(<testsuite name="production KP-0042 attempt 2")"));
    QVERIFY(xml.contains(R"(
            <property name="attempt" value="1"/>
            <property name="last_attempt" value="false"/>
            <property name="outcome" value="fail"/>
)"));
    QVERIFY(xml.contains(R"(
            <property name="attempt" value="2"/>
            <property name="last_attempt" value="true"/>
            <property name="outcome" value="pass"/>
            <property name="operator" value="Ann &amp; Bob"/>
)"));
    if (hasValidator())
        QCOMPARE(complaints(xml), QByteArray());
}

void TestJunit::survivesControlCharacters()
{
    UnitRecord unit = sampleRecord();
    unit.steps[1].came = QStringLiteral("a\001\033b");
    QVERIFY(toJunit({unit}).contains("came: a??b"));
}

void TestJunit::isAsReadersOfItWant()
{
    if (!hasValidator())
        QSKIP("xmllint is not installed");
    UnitRecord odd = sampleRecord();
    odd.serialNumber.clear();
    odd.station.clear();
    odd.steps[1].came = QStringLiteral("a\001<\033>&b");
    odd.end = odd.start.addDays(1);
    QCOMPARE(complaints(toJunit({sampleRecord(), odd})), QByteArray());
}

void TestJunit::readersRefuseWhatIsWrong_data()
{
    QTest::addColumn<QByteArray>("right");
    QTest::addColumn<QByteArray>("wrong");
    QTest::newRow("skipped of all suites")
        << QByteArray("<testsuites tests=") << QByteArray("<testsuites skipped=\"1\" tests=");
    QTest::newRow("suite without its number")
        << QByteArray("hostname=\"desk 3\" tests=\"5\"") << QByteArray("hostname=\"desk 3\"");
    QTest::newRow("case without a class") << QByteArray("classname=") << QByteArray("group=");
    QTest::newRow("unknown outcome") << QByteArray("<skipped") << QByteArray("<omitted");
    QTest::newRow("time as words") << QByteArray("time=\"0.052\"") << QByteArray("time=\"52 ms\"");
}

void TestJunit::readersRefuseWhatIsWrong()
{
    if (!hasValidator())
        QSKIP("xmllint is not installed");
    QFETCH(QByteArray, right);
    QFETCH(QByteArray, wrong);
    QByteArray xml = toJunit({sampleRecord()});
    QVERIFY(xml.contains(right));
    xml.replace(right, wrong);
    QVERIFY(!complaints(xml).isEmpty());
}

MFTOOL_TEST(TestJunit, EventLoop)
#include "tst_junit.moc"
