#include "bench/line/fault.h"
#include "bench/line/vmfault.h"

#include <QtTest>

#include "tests/support/testprogram.h"

class TestVmFault : public QObject
{
    Q_OBJECT

private slots:
    void everyFaultIsPlayedOrRefused();
    void refusesWhatMakesNoSense_data();
    void refusesWhatMakesNoSense();
    void unknownOnesAreRefused();
};

void TestVmFault::everyFaultIsPlayedOrRefused()
{
    int count = 0;
    const QStringList lines = Fault::help().split(QLatin1Char('\n'), Qt::SkipEmptyParts);
    for (const QString &line : lines) {
        const QString name = line.simplified().section(QLatin1Char(' '), 0, 0);
        const Fault *fault = Fault::byName(name);
        QVERIFY2(fault, qPrintable(name));
        const VmFault &played = VmFault::byName(name);
        QCOMPARE(QString(played.name), name);
        const bool isPlayed = played.script || played.later || fault->homeSticks;
        QVERIFY2(isPlayed == !played.refused, qPrintable(name));
        ++count;
    }
    QVERIFY(count >= 15);
}

void TestVmFault::refusesWhatMakesNoSense_data()
{
    QTest::addColumn<QString>("reason");
    QTest::newRow("flash-hangs") << "the board flashes with the real ubiformat, which does not";
    QTest::newRow("silent") << "the board's own systemd starts the tool";
    QTest::newRow("babbles") << "the board's own systemd starts the tool";
}

void TestVmFault::refusesWhatMakesNoSense()
{
    QFETCH(QString, reason);
    QCOMPARE(QString(VmFault::byName(QString(QTest::currentDataTag())).refused), reason);
}

void TestVmFault::unknownOnesAreRefused()
{
    QVERIFY(VmFault::byName(QStringLiteral("a new one")).refused);
}

MFTOOL_TEST(TestVmFault, NoApplication)
#include "tst_vmfault.moc"
