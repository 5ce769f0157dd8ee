// The choice of the passthrough line's speed, and what it logs.
#include "app/passthroughspeed.h"

#include <QtTest>

#include "tests/support/logcatcher.h"
#include "tests/support/testprogram.h"

class TestPassthroughSpeed : public QObject
{
    Q_OBJECT

private slots:
    void choice_data();
    void choice();
};

void TestPassthroughSpeed::choice_data()
{
    QTest::addColumn<QString>("arguments");
    QTest::addColumn<int>("speed");
    QTest::addColumn<QStringList>("log");
    const QStringList silent;
    const QStringList refused("debug: Invalid QB740 baud rate specified, defaulting to 115200");
    QTest::newRow("no arguments") << "mftool" << 115200 << silent;
    QTest::newRow("9600") << "mftool -b 9600" << 9600 << QStringList("debug: Using baud rate 9600");
    QTest::newRow("19200") << "mftool -b 19200" << 19200
                           << QStringList("debug: Using baud rate 19200");
    QTest::newRow("38400") << "mftool -b 38400" << 38400
                           << QStringList("debug: Using baud rate 38400");
    QTest::newRow("57600") << "mftool -b 57600" << 57600
                           << QStringList("debug: Using baud rate 57600");
    QTest::newRow("115200") << "mftool -b 115200" << 115200
                            << QStringList("debug: Using baud rate 115200");
    QTest::newRow("not offered") << "mftool -b 4800" << 115200 << refused;
    QTest::newRow("no number") << "mftool -b fast" << 115200 << refused;
    QTest::newRow("hexadecimal") << "mftool -b 0x2580" << 115200 << refused;
    QTest::newRow("last argument") << "mftool -n -b" << 115200 << silent;
    QTest::newRow("first of two") << "mftool -b 9600 -b 19200" << 9600
                                  << QStringList("debug: Using baud rate 9600");
    QTest::newRow("upper case") << "mftool -B 9600" << 115200 << silent;
    QTest::newRow("among others") << "mftool x -n -b 9600 y" << 9600
                                  << QStringList("debug: Using baud rate 9600");
    QTest::newRow("no number follows") << "mftool -b -n" << 115200 << refused;
}

void TestPassthroughSpeed::choice()
{
    QFETCH(QString, arguments);
    LogCatcher log;
    QTEST(passthroughSpeed(arguments.split(' ')), "speed");
    QTEST(log.lines(), "log");
}

MFTOOL_TEST(TestPassthroughSpeed, NoApplication)
#include "tst_passthroughspeed.moc"
