#include "bench/line/junit.h"

#include "tests/bench/line/samplerecord.h"

#include <QTest>

class TestJunit : public QObject
{
    Q_OBJECT

private slots:
    void writesOneSuiteAUnit();
    void addsUpUnits();
    void survivesControlCharacters();
};

void TestJunit::writesOneSuiteAUnit()
{
    QCOMPARE(QString::fromUtf8(toJunit({sampleRecord()})),
             QString::fromUtf8(
                 R"(<?xml version="1.0" encoding="UTF-8"?>
<testsuites tests="5" failures="1" errors="2" skipped="1" time="12.345">
    <testsuite name="production KP-0042" timestamp="2026-03-01T09:30:00+01:00" hostname="desk 3" tests="5" failures="1" errors="2" skipped="1" time="12.345">
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
    QVERIFY(xml.contains(
        R"(<testsuites tests="10" failures="2" errors="4" skipped="2" time="24.690">)"));
    QVERIFY(xml.contains(R"(<testsuite name="production unit 3")"));
}

void TestJunit::survivesControlCharacters()
{
    UnitRecord unit = sampleRecord();
    unit.steps[1].came = QStringLiteral("a\001\033b");
    QVERIFY(toJunit({unit}).contains("came: a??b"));
}

QTEST_GUILESS_MAIN(TestJunit)
#include "tst_junit.moc"
