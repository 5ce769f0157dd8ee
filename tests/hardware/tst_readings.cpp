#include <QtTest>

#include "hardware/readings.h"
#include "tests/support/boardfolder.h"
#include "tests/support/logcatcher.h"
#include "tests/support/testprogram.h"

namespace
{

const QString voltageFile = QStringLiteral("/sys/class/power_supply/corlink/voltage_now");
const QString versionFile = QStringLiteral("/usr/lib/panel/version");
const QString mountedVersionFile = QStringLiteral("/mnt/usr/lib/panel/version");

} // namespace

class TestReadings : public QObject
{
    Q_OBJECT

private slots:
    void voltage_data();
    void voltage();
    void voltageFileMissing();
    void voltageFollowsTheFile();
    void version_data();
    void version();
    void versionOfTheChosenSystem();
    void versionFileMissing();
};

void TestReadings::voltage_data()
{
    QTest::addColumn<QByteArray>("file");
    QTest::addColumn<QByteArray>("reading");
    QTest::newRow("number") << QByteArray("12345") << QByteArray("12345");
    QTest::newRow("number and line end") << QByteArray("12345\n") << QByteArray("12345");
    QTest::newRow("white space around it") << QByteArray(" \t12345 \r\n") << QByteArray("12345");
    QTest::newRow("not parsed") << QByteArray("-1.5 V\n") << QByteArray("-1.5 V");
    QTest::newRow("two lines") << QByteArray("12\n34\n") << QByteArray("12\n34");
    QTest::newRow("not cut") << QByteArray("1234567890123\n") << QByteArray("1234567890123");
    QTest::newRow("zero byte") << QByteArray("12\00034\n", 6) << QByteArray("12\00034", 5);
    QTest::newRow("bytes as they are") << QByteArray("\xE4\xFF\n") << QByteArray("\xE4\xFF");
    QTest::newRow("only white space") << QByteArray("\n") << QByteArray();
    QTest::newRow("empty") << QByteArray() << QByteArray();
}

void TestReadings::voltage()
{
    QFETCH(QByteArray, file);
    QFETCH(QByteArray, reading);
    BoardFolder keypad;
    keypad.write(voltageFile, file);
    LogCatcher log;
    QCOMPARE(readVoltage(keypad.board()), reading);
    QCOMPARE(log.take(), QStringList());
}

void TestReadings::voltageFileMissing()
{
    BoardFolder keypad;
    LogCatcher log;
    QCOMPARE(readVoltage(keypad.board()), QByteArray());
    QCOMPARE(log.take(), QStringList(QStringLiteral("warning: Failed to open voltage file")));
}

void TestReadings::voltageFollowsTheFile()
{
    BoardFolder keypad;
    keypad.write(voltageFile, "11900\n");
    QCOMPARE(readVoltage(keypad.board()), QByteArray("11900"));
    keypad.write(voltageFile, "12100\n");
    QCOMPARE(readVoltage(keypad.board()), QByteArray("12100"));
}

void TestReadings::version_data()
{
    QTest::addColumn<QByteArray>("file");
    QTest::addColumn<QString>("text");
    QTest::newRow("plain") << QByteArray("1.2") << QStringLiteral("1.2");
    QTest::newRow("line end") << QByteArray("20140101 1.2\n") << QStringLiteral("20140101 1.2");
    QTest::newRow("white space around it") << QByteArray("\n\t 1.2 \r\n") << QStringLiteral("1.2");
    QTest::newRow("up to the first zero byte")
        << QByteArray("1.2\0003.4\n", 8) << QStringLiteral("1.2");
    QTest::newRow("white space before the zero byte stays")
        << QByteArray("1.2 \000x\n", 7) << QStringLiteral("1.2 ");
    QTest::newRow("zero byte at the end") << QByteArray("1.2\n\000", 5) << QStringLiteral("1.2\n");
    QTest::newRow("zero byte at the start") << QByteArray("\0001.2", 4) << QString();
    QTest::newRow("case is kept") << QByteArray("abc\n") << QStringLiteral("abc");
    QTest::newRow("a byte is a character")
        << QByteArray("1.2\xC3\xA4") << QStringLiteral("1.2\u00C3\u00A4");
    QTest::newRow("empty") << QByteArray() << QString();
}

void TestReadings::version()
{
    QFETCH(QByteArray, file);
    QFETCH(QString, text);
    BoardFolder keypad;
    keypad.write(versionFile, file);
    LogCatcher log;
    QString version = QStringLiteral("before");
    QVERIFY(readVersion(keypad.board(), false, &version));
    QCOMPARE(version, text);
    QCOMPARE(log.take(), QStringList());
}

void TestReadings::versionOfTheChosenSystem()
{
    BoardFolder keypad;
    keypad.write(versionFile, "1.0\n");
    keypad.write(mountedVersionFile, "2.0\n");
    QString version;
    QVERIFY(readVersion(keypad.board(), false, &version));
    QCOMPARE(version, QStringLiteral("1.0"));
    QVERIFY(readVersion(keypad.board(), true, &version));
    QCOMPARE(version, QStringLiteral("2.0"));
}

void TestReadings::versionFileMissing()
{
    const QStringList message(
        QStringLiteral("debug: In ATE mode Could not Open Version file to read"));
    QString version = QStringLiteral("before");
    LogCatcher log;

    BoardFolder running;
    running.write(versionFile, "1.0\n");
    QVERIFY(!readVersion(running.board(), true, &version));
    QCOMPARE(log.take(), message);

    BoardFolder mounted;
    mounted.write(mountedVersionFile, "2.0\n");
    QVERIFY(!readVersion(mounted.board(), false, &version));
    QCOMPARE(log.take(), message);

    QCOMPARE(version, QStringLiteral("before"));
}

MFTOOL_TEST(TestReadings, EventLoop)
#include "tst_readings.moc"
