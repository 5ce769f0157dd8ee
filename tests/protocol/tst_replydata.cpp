// The data of the replies, character by character.
#include "protocol/replydata.h"

#include <QtTest>

#include <climits>

#include "tests/support/testprogram.h"

class TestReplyData : public QObject
{
    Q_OBJECT

private slots:
    void version_data();
    void version();
    void voltage_data();
    void voltage();
    void points();
    void flashStatus();
    void buttons();
    void verdict();
    void sdCard_data();
    void sdCard();
};

void TestReplyData::version_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<QByteArray>("data");
    const auto row = [](const char *name, const QString &text, const QByteArray &data) {
        QTest::newRow(name) << text << data;
    };
    const QByteArray zeros("0000000000000000");
    row("dated", "20140101 1.2", "010220140101 1.2  " + zeros);
    row("three parts", "1.2.3", "01021.2.3         " + zeros);
    row("no number", "abc", "0000ABC           " + zeros);
    row("the last letter, and the characters around them", "`az{", "0000`AZ{          " + zeros);
    row("one part", "7", "07007             " + zeros);
    row("empty", "", "0000              " + zeros);
    row("low 8 bits", "257.511", "01FF257.511       " + zeros);
    row("letters in the second part", "10.x", "0A0010.X          " + zeros);
    row("empty parts are kept", ".5", "0005.5            " + zeros);
    row("cut to 14", "12345678901.234567",
        "00"
        "47"
        "12345678901.23" +
            zeros);
    row("dated, one part", "20140101 9", "090020140101 9    " + zeros);
    row("seven digits are not a date", "2014010 1.2", "00022014010 1.2   " + zeros);
    row("date not at the start", "v20140101 1.2", "0002V20140101 1.2 " + zeros);
    row("not ASCII stays one byte", QString::fromLatin1("1.2\xDF"),
        "01001.2\xDF          " + zeros);
}

void TestReplyData::version()
{
    QFETCH(QString, text);
    const QByteArray data = versionData(text);
    QTEST(data, "data");
    QCOMPARE(int(data.size()), 34);
}

void TestReplyData::voltage_data()
{
    QTest::addColumn<QByteArray>("reading");
    QTest::addColumn<QByteArray>("data");
    QTest::newRow("short") << QByteArray("12345") << QByteArray("00012345");
    QTest::newRow("long") << QByteArray("1234567890") << QByteArray("12345678");
    QTest::newRow("none") << QByteArray() << QByteArray("00000000");
    QTest::newRow("exact") << QByteArray("12345678") << QByteArray("12345678");
    QTest::newRow("passed on unparsed") << QByteArray("-3.5 V") << QByteArray("00-3.5 V");
}

void TestReplyData::voltage()
{
    QFETCH(QByteArray, reading);
    QTEST(voltageData(reading), "data");
}

void TestReplyData::points()
{
    QCOMPARE(calibrationPointData(3, QPoint(120, 4095)), QByteArray("030012004095"));
    QCOMPARE(calibrationPointData(0, QPoint(123456, 0)), QByteArray("0012345600000"));
    QCOMPARE(calibrationPointData(4, QPoint(-5, 7)), QByteArray("04-000500007"));
    QCOMPARE(touchData(QPoint(7, 42)), QByteArray("007042"));
    QCOMPARE(touchData(QPoint(799, 479)), QByteArray("799479"));
    QCOMPARE(touchData(QPoint(1000, 42)), QByteArray("1000042"));
}

void TestReplyData::flashStatus()
{
    QCOMPARE(flashStatusData(2, 100), QByteArray("0264"));
    QCOMPARE(flashStatusData(0, 101), QByteArray("0065"));
    QCOMPARE(flashStatusData(3, 0), QByteArray("0300"));
    QCOMPARE(flashStatusData(1, 300), QByteArray("0112C"));
}

void TestReplyData::buttons()
{
    QCOMPARE(buttonsData(0), QByteArray("00"));
    QCOMPARE(buttonsData(3), QByteArray("03"));
    QCOMPARE(buttonsData(0x1AB), QByteArray("1AB"));
}

void TestReplyData::verdict()
{
    QCOMPARE(verdictData(true), QByteArray("01"));
    QCOMPARE(verdictData(false), QByteArray("00"));
}

void TestReplyData::sdCard_data()
{
    QTest::addColumn<int>("timeout");
    QTest::addColumn<int>("portNum");
    QTest::addColumn<int>("status");
    QTest::addColumn<QList<int>>("values");
    QTest::addColumn<QString>("text");

    using List = QList<int>;
    const List zeros{0, 0, 0, 0, 0, 0, 0, 0, 0, 0};
    const List bytes{0x01, 0x23, 0x45, 0x67, 0x89, 0xAB, 0xCD, 0xEF, 0x05, 0xFA};
    QTest::newRow("no card") << 5 << 2 << 1 << zeros << "0105020100000000000000000000";
    QTest::newRow("good card") << 5 << 2 << 0 << bytes << "010502000123456789ABCDEF05FA";
    QTest::newRow("not writable") << 0 << 0 << 2 << zeros << "0100000200000000000000000000";
    QTest::newRow("fault") << 10 << 1 << 3 << zeros << "010A010300000000000000000000";
    QTest::newRow("255") << 255 << 255 << 1 << zeros << "01FFFF0100000000000000000000";
    QTest::newRow("timeout 256") << 256 << 2 << 1 << zeros << "01100020100000000000000000000";
    QTest::newRow("port 256") << 2 << 256 << 1 << zeros << "01021000100000000000000000000";
    QTest::newRow("timeout -1") << -1 << 2 << 1 << zeros << "01FFFFFFFF020100000000000000000000";
    QTest::newRow("port -2") << 2 << -2 << 1 << zeros << "0102FFFFFFFE0100000000000000000000";
    QTest::newRow("smallest and largest")
        << INT_MIN << INT_MAX << 1 << zeros << "01800000007FFFFFFF0100000000000000000000";
    QTest::newRow("wide values") << 0 << 0 << 3 << List{0x14A, -1, 0, 0, 0, 0, 0, 0, 0, 0x10}
                                 << "0100000314AFFFFFFFF0000000000000010";
}

void TestReplyData::sdCard()
{
    QFETCH(int, timeout);
    QFETCH(int, portNum);
    QFETCH(int, status);
    QFETCH(QList<int>, values);
    QFETCH(QString, text);
    int array[10];
    for (int i = 0; i < 10; ++i)
        array[i] = values.at(i);
    QCOMPARE(sdCardResponse(timeout, portNum, status, array), text);
}

MFTOOL_TEST(TestReplyData, NoApplication)
#include "tst_replydata.moc"
