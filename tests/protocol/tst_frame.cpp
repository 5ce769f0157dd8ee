// The frame as pure functions: what is accepted, what is refused and why.
#include "protocol/frame.h"

#include <QtTest>

#include "tests/support/testprogram.h"

class TestFrame : public QObject
{
    Q_OBJECT

private slots:
    void check_data();
    void check();
    void withoutStrictChecks_data();
    void withoutStrictChecks();
    void build_data();
    void build();
    void lengthOfFiveDigits();
    void hex_data();
    void hex();
};

void TestFrame::check_data()
{
    QTest::addColumn<QByteArray>("message");
    QTest::addColumn<int>("verdict");
    QTest::addColumn<int>("type");
    QTest::addColumn<QByteArray>("data");
    QTest::addColumn<uint>("expected");
    const auto row = [](const char *name, const QByteArray &message, int verdict, int type,
                        const QByteArray &data, uint expected) {
        QTest::newRow(name) << message << verdict << type << data << expected;
    };

    const QByteArray none;
    row("empty", none, int(FrameEmpty), 0, none, 0U);
    row("17 characters", "7E000A7000140297F", int(FrameTooShort), 0, none, 0U);
    row("smallest frame", "7E000A60011402797F", int(FrameGood), 0x6001, none, 0U);
    row("backlight", "7E000E61431F006403607F", int(FrameGood), 0x6143, "0064", 0U);
    row("start mark", "7D000A60011402797F", int(FrameBadMarks), 0, none, 0U);
    row("end mark", "7E000A60011402797D", int(FrameBadMarks), 0, none, 0U);
    row("length", "7E000C60011402797F", int(FrameBadLength), 0x6001, none, 10U);
    row("length beyond the message", "7EFFFF60011402797F", int(FrameBadLength), 0x6001, none, 10U);
    row("length zero", "7E000060011402797F", int(FrameBadLength), 0x6001, none, 10U);
    row("length with a sign", "7E+00A60011402797F", int(FrameBadLength), 0x6001, none, 10U);
    row("checksum", "7E000A60011402787F", int(FrameBadChecksum), 0x6001, none, 0x0279U);
    row("checksum over the wrong case", "7E000A60011402997F", int(FrameBadChecksum), 0x6001, none,
        0x0279U);
    row("bytes above 0x7F count unsigned",
        QByteArray("7E000D70411C\xE4\xFF\x80"
                   "04F37F"),
        int(FrameGood), 0x7041, QByteArray("\xE4\xFF\x80"), 0U);
}

void TestFrame::check()
{
    QFETCH(QByteArray, message);
    const ReceivedFrame frame = checkFrame(message, true);
    QTEST(int(frame.verdict), "verdict");
    QTEST(int(frame.type), "type");
    QTEST(frame.data, "data");
    QTEST(frame.expected, "expected");
}

void TestFrame::withoutStrictChecks_data()
{
    QTest::addColumn<QByteArray>("message");
    QTest::addColumn<int>("verdict");
    QTest::addColumn<QByteArray>("data");
    QTest::newRow("wrong length and checksum")
        << QByteArray("7EFFFF61431F0064FFFF7F") << int(FrameGood) << QByteArray("0064");
    QTest::newRow("no data") << QByteArray("7E0000600100zzzz7F") << int(FrameGood) << QByteArray();
    QTest::newRow("marks still count")
        << QByteArray("7F000E61431F006403607F") << int(FrameBadMarks) << QByteArray();
    QTest::newRow("so does the smallest size")
        << QByteArray("7E000A6001140277F") << int(FrameTooShort) << QByteArray();
}

void TestFrame::withoutStrictChecks()
{
    QFETCH(QByteArray, message);
    const ReceivedFrame frame = checkFrame(message, false);
    QTEST(int(frame.verdict), "verdict");
    QTEST(frame.data, "data");
}

void TestFrame::build_data()
{
    QTest::addColumn<int>("type");
    QTest::addColumn<QByteArray>("data");
    QTest::addColumn<QByteArray>("frame");
    QTest::newRow("ACK") << 0x0004 << QByteArray() << QByteArray("7E000A00043102957F\r\n");
    QTest::newRow("NAK") << 0x0005 << QByteArray() << QByteArray("7E000A00053202977F\r\n");
    QTest::newRow("NA") << 0x0003 << QByteArray() << QByteArray("7E000A00033002937F\r\n");
    QTest::newRow("ready") << 0x9999 << QByteArray() << QByteArray("7E000A99995102B77F\r\n");
    QTest::newRow("three characters")
        << 0x6003 << QByteArray("123") << QByteArray("7E000D600339123033B7F\r\n");
    QTest::newRow("letters in type and length")
        << 0x603D << QByteArray("0000ABC           0000000000000000")
        << QByteArray("7E002C603D6E0000ABC           000000000000000008EF7F\r\n");
    QTest::newRow("data stay as they are") << 0x7042 << QByteArray("\xE4\xFF")
                                           << QByteArray("7E000C70423C\xE4\xFF"
                                                         "04B57F\r\n");
}

void TestFrame::build()
{
    QFETCH(int, type);
    QFETCH(QByteArray, data);
    QTEST(buildFrame(static_cast<quint16>(type), data), "frame");
}

void TestFrame::lengthOfFiveDigits()
{
    const QByteArray frame = buildFrame(0x7042, QByteArray(0x10000 - 10, 'x'));
    QCOMPARE(frame.left(14), QByteArray("7E10000704208x"));
    // The sums of header and data: 0x2A2 and 65,526 times 0x78.
    QCOMPARE(frame.right(9), QByteArray("xFDF27F\r\n"));
    QCOMPARE(static_cast<int>(frame.size()), 13 + 65526 + 8);
}

void TestFrame::hex_data()
{
    QTest::addColumn<QByteArray>("digits");
    QTest::addColumn<uint>("value");
    QTest::newRow("upper") << QByteArray("1F") << 0x1FU;
    QTest::newRow("lower") << QByteArray("1f") << 0x1FU;
    QTest::newRow("four") << QByteArray("FFFF") << 0xFFFFU;
    QTest::newRow("a bad digit spoils all") << QByteArray("1G") << 0U;
    QTest::newRow("prefix") << QByteArray("0x") << 0U;
    QTest::newRow("sign") << QByteArray("+1") << 0U;
    QTest::newRow("blank") << QByteArray(" 1") << 0U;
    QTest::newRow("none") << QByteArray() << 0U;
}

void TestFrame::hex()
{
    QFETCH(QByteArray, digits);
    QTEST(hexValue(digits.constData(), static_cast<int>(digits.size())), "value");
}

MFTOOL_TEST(TestFrame, NoApplication)
#include "tst_frame.moc"
