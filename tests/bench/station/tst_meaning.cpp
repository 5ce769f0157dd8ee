#include "bench/station/meaning.h"
#include "bench/station/messages.h"
#include "tests/bench/station/samples.h"
#include "tests/support/testprogram.h"

#include <QtTest>

class TestMeaning : public QObject
{
    Q_OBJECT

private slots:
    void writesARequestAsItsCommand_data();
    void writesARequestAsItsCommand();
    void decodesReplies_data();
    void decodesReplies();
    void namesFields_data();
    void namesFields();
    void complainsOfWrongData_data();
    void complainsOfWrongData();
};

namespace
{

wire::Frame frameOf(quint16 type, const QByteArray &data)
{
    wire::Frame frame;
    frame.type = type;
    frame.data = data;
    return frame;
}

} // namespace

void TestMeaning::writesARequestAsItsCommand_data()
{
    QTest::addColumn<quint16>("type");
    QTest::addColumn<QByteArray>("data");

    for (const SampleCommand &sample : sampleCommands)
        QTest::newRow(sample.command) << sample.type << QByteArray(sample.data);
    QTest::newRow("buzzer off") << quint16(0x6147) << QByteArray("0055");
    QTest::newRow("touch-test off") << quint16(0x7030) << QByteArray("00");
}

void TestMeaning::writesARequestAsItsCommand()
{
    QFETCH(quint16, type);
    QFETCH(QByteArray, data);

    const wire::Meaning meaning = wire::meaningOf(frameOf(type, data));
    QCOMPARE(meaning.text, QString::fromLatin1(QTest::currentDataTag()));
    QCOMPARE(meaning.complaint, QString());
}

void TestMeaning::decodesReplies_data()
{
    QTest::addColumn<quint16>("type");
    QTest::addColumn<QByteArray>("data");
    QTest::addColumn<QString>("text");

    const struct {
        quint16 type;
        const char *data;
        const char *text;
    } rows[] = {
        {0x603D, "01021.2.3         0000000000000000", "version 1.2 '1.2.3'"},
        {0x6162, "0105020100000000000000000000",
         "SD card: status 1 (no card mounted), timeout 5, port 2, bytes 00000000000000000000"},
        {0x7021, "0200000-0005", "calibration point 2 (bottom right) at 0,-5"},
        {0x7022, "00", "calibration rejected"},
        {0x7031, "007042", "touch at 7,42"},
        {0x7051, "0128", "flash stage 1 (scanning) 40 %"},
        {0x7051, "0065", "flash stage 0 (boot stream) 101 %"},
        {0x7051, "0300", "flash stage 3 (formatting) 0 %"},
        {0x7061, "00", "mount failed"},
        {0x7071, "00", "buttons: home up, tamper inactive"},
        {0x7071, "01", "buttons: home down, tamper inactive"},
        {0x7071, "02", "buttons: home up, tamper active"},
        {0x7081, "0000abcd", "voltage reading '0000abcd'"},
        {0x1234, "xy", "unknown type 1234, data \"xy\""},
    };
    for (const SampleReply &sample : sampleReplies)
        QTest::newRow(sample.text)
            << sample.type << QByteArray(sample.data) << QString(sample.text);
    for (const auto &row : rows)
        QTest::newRow(row.text) << row.type << QByteArray(row.data) << QString(row.text);
}

void TestMeaning::decodesReplies()
{
    QFETCH(quint16, type);
    QFETCH(QByteArray, data);
    QFETCH(QString, text);

    const wire::Meaning meaning = wire::meaningOf(frameOf(type, data));
    QCOMPARE(meaning.text, text);
    QCOMPARE(meaning.complaint, QString());
}

void TestMeaning::namesFields_data()
{
    QTest::addColumn<quint16>("type");
    QTest::addColumn<QByteArray>("data");
    QTest::addColumn<QVariantMap>("fields");

    const auto add = [](const char *name, quint16 type, const char *data,
                        const QVariantMap &fields) {
        QTest::newRow(name) << type << QByteArray(data) << fields;
    };
    add("backlight", 0x6143, "0064", {{"level", 100}});
    add("bias power", 0x6143, "0101", {{"bias", 1}});
    add("LEDs", 0x6144, "000F0000000000", {{"mask", 15}});
    add("buzzer", 0x6147, "80C8", {{"level", 200}});
    add("buzzer off", 0x6147, "0055", {{"level", 0}});
    add("home LED", 0x7010, "32", {{"percent", 50}});
    add("SD card request", 0x6161, "011E02", {{"timeout", 30}, {"port", 2}});
    add("SD card", 0x6162, "01FF02030A1B2C3D4E5F60718293",
        {{"timeout", 255}, {"port", 2}, {"status", 3}, {"values", "0A1B2C3D4E5F60718293"}});
    add("test image", 0x7000, "bars", {{"name", "bars"}});
    add("flash", 0x7050, "beta", {{"dir", "beta"}});
    add("calibration", 0x7020, "01", {{"on", 1}});
    add("touch test", 0x7030, "00", {{"on", 0}});
    add("passthrough", 0x7040, "01", {{"on", 1}});
    add("calibration point", 0x7021, "040012004095", {{"index", 4}, {"x", 120}, {"y", 4095}});
    add("calibration result", 0x7022, "00", {{"success", 0}});
    add("touch", 0x7031, "799479", {{"x", 799}, {"y", 479}});
    add("relay", 0x7041, "AT", {{"text", "AT"}});
    add("relayed line", 0x7042, "OK", {{"text", "OK"}});
    add("echo", 0x6003, "ABCD", {{"text", "ABCD"}});
    add("flash status", 0x7051, "0128", {{"stage", 1}, {"percent", 40}});
    add("flash result", 0x7052, "01", {{"success", 1}});
    add("mount result", 0x7061, "01", {{"success", 1}});
    add("buttons", 0x7071, "02", {{"mask", 2}, {"home", 0}, {"tamper", 1}});
    add("voltage", 0x7081, "00012345", {{"text", "00012345"}, {"voltage", 12345}});
    add("no number for a voltage", 0x7081, "000000xy", {{"text", "000000xy"}});
    add("version", 0x603D, "010220140101 1.2  0000000000000000",
        {{"major", 1}, {"minor", 2}, {"version", "20140101 1.2"}});
    add("ACK", 0x0004, "", {});
}

void TestMeaning::namesFields()
{
    QFETCH(quint16, type);
    QFETCH(QByteArray, data);
    QFETCH(QVariantMap, fields);

    QCOMPARE(wire::meaningOf(frameOf(type, data)).fields, fields);
}

void TestMeaning::complainsOfWrongData_data()
{
    QTest::addColumn<quint16>("type");
    QTest::addColumn<QByteArray>("data");
    QTest::addColumn<QString>("complaint");

    const struct {
        const char *name;
        quint16 type;
        const char *data;
        const char *complaint;
    } rows[] = {
        {"ACK with data", 0x0004, "00", "ACK carries no data"},
        {"exit with data", 0x6001, "00", "2 data characters, should be 0: the keypad answers NAK"},
        {"version length", 0x603C, "0102",
         "4 data characters, should be 2: the keypad answers NAK"},
        {"version 02", 0x603C, "02", "should be 01: the keypad answers NA"},
        {"backlight length", 0x6143, "64",
         "2 data characters, should be 4: the keypad answers NAK"},
        {"neither backlight nor bias", 0x6143, "0264",
         "should begin with 00 (backlight) or 01 (bias power): the keypad answers NA"},
        {"bias above 1", 0x6143, "0164", "bias power is 00 or 01: the keypad answers NA"},
        {"backlight digits", 0x6143, "001G",
         "\"1G\" is not a hexadecimal number: the keypad reads it as 0"},
        {"LEDs length", 0x6144, "00FF", "4 data characters, should be 14: the keypad answers NAK"},
        {"LEDs start", 0x6144, "01FF0000000000", "should begin with 00: the keypad answers NA"},
        {"buzzer length", 0x6147, "80", "2 data characters, should be 4: the keypad answers NAK"},
        {"buzzer start", 0x6147, "0155",
         "should begin with 00 (off) or 80 (on): the keypad answers NA"},
        {"SD card length", 0x6161, "01", "2 data characters, should be 6: the keypad answers NAK"},
        {"SD card start", 0x6161, "021E02", "should begin with 01: the keypad answers NA"},
        {"home LED length", 0x7010, "100",
         "3 data characters, should be 2: the keypad answers NAK"},
        {"calibration length", 0x7020, "1",
         "1 data characters, should be 2: the keypad answers NA"},
        {"touch test length", 0x7030, "1",
         "1 data characters, should be 2: the keypad answers NAK"},
        {"passthrough length", 0x7040, "",
         "0 data characters, should be 2: the keypad answers NAK"},
        {"touch test FF", 0x7030, "FF", "should be 00 or 01; the keypad takes it for on"},
        {"mount with data", 0x7060, "00", "2 data characters, should be 0: the keypad answers NAK"},
        {"version reply length", 0x603D, "0102",
         "should be 34 characters: major and minor version as two hexadecimal digits each, "
         "14 of text, 16 zeros"},
        {"version reply zeros", 0x603D, "010220140101 1.2  0000000000000001",
         "should end with 16 zeros"},
        {"SD card lower case", 0x6162, "011e02000a1b2c3d4e5f60718293",
         "should be 28 upper-case hexadecimal digits: 01, timeout, port, status, ten bytes"},
        {"SD card status", 0x6162, "011E02040A1B2C3D4E5F60718293", "status 4, should be 0 to 3"},
        {"calibration target", 0x7021, "050012004095", "target 5, should be 0 to 4"},
        {"calibration point length", 0x7021, "03001204095",
         "should be 12 characters: target as two hexadecimal digits, x and y as five decimal ones"},
        {"calibration result", 0x7022, "02", "should be 00 or 01"},
        {"touch length", 0x7031, "1000042", "should be x and y as three decimal digits each"},
        {"touch digits", 0x7031, "1A0042", "should be x and y as three decimal digits each"},
        {"flash stage", 0x7051, "0428", "stage 4, should be 0 to 3"},
        {"flash status lower case", 0x7051, "014a", "should be 4 upper-case hexadecimal digits"},
        {"buttons length", 0x7071, "003", "should be 2 upper-case hexadecimal digits"},
        {"buttons mask", 0x7071, "04", "only the lowest two bits have a meaning"},
        {"voltage length", 0x7081, "12345", "should be 8 characters"},
    };
    for (const auto &row : rows)
        QTest::newRow(row.name) << row.type << QByteArray(row.data) << QString(row.complaint);
}

void TestMeaning::complainsOfWrongData()
{
    QFETCH(quint16, type);
    QFETCH(QByteArray, data);
    QFETCH(QString, complaint);

    const wire::Meaning meaning = wire::meaningOf(frameOf(type, data));
    QCOMPARE(meaning.complaint, complaint);
    // No meaning of the data is invented.
    if (wire::senderOf(type) == wire::Sender::Station && !meaning.text.startsWith("send "))
        QVERIFY(!meaning.fields.isEmpty());
    else if (meaning.fields.isEmpty())
        QVERIFY2(meaning.text.contains(QString::fromLatin1(data)), qPrintable(meaning.text));
}

MFTOOL_TEST(TestMeaning, EventLoop)
#include "tst_meaning.moc"
