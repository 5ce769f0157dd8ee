#include "bench/station/messages.h"
#include "bench/station/requests.h"
#include "tests/bench/station/samples.h"
#include "tests/support/testprogram.h"

#include <QtTest>

class TestRequests : public QObject
{
    Q_OBJECT

private slots:
    void parsesRequests_data();
    void parsesRequests();
    void refusesWrongRequests_data();
    void refusesWrongRequests();
    void helpNamesEveryRequest();
};

void TestRequests::parsesRequests_data()
{
    QTest::addColumn<quint16>("type");
    QTest::addColumn<QByteArray>("data");

    const struct {
        const char *command;
        quint16 type;
        const char *data;
    } rows[] = {
        {"echo", 0x6002, ""},
        {"echo two words", 0x6002, "two words"},
        {"echo \\xE4\\r", 0x6002, "\xE4\r"},
        {"backlight 0", 0x6143, "0000"},
        {"BACKLIGHT 255", 0x6143, "00FF"},
        {"bias off", 0x6143, "0100"},
        {"led a", 0x6144, "000A0000000000"},
        {"sd-read 255 0", 0x6161, "01FF00"},
        {"pattern /a/b c.png", 0x7000, "/a/b c.png"},
        {"calibrate off", 0x7020, "00"},
        {"touch-test 0", 0x7030, "00"},
        {"passthrough off", 0x7040, "00"},
        {"relay AT+GMR", 0x7041, "AT+GMR"},
        {"relay", 0x7041, ""},
        {"send 6143 0064", 0x6143, "0064"},
        {"send 3", 0x0003, ""},
        {"send ffff a b", 0xFFFF, "a b"},
    };
    for (const SampleCommand &sample : sampleCommands)
        QTest::newRow(sample.command) << sample.type << QByteArray(sample.data);
    for (const auto &row : rows)
        QTest::newRow(row.command) << row.type << QByteArray(row.data);
}

void TestRequests::parsesRequests()
{
    QFETCH(quint16, type);
    QFETCH(QByteArray, data);

    QString error;
    const QStringList words = QString::fromLatin1(QTest::currentDataTag()).split(' ');
    QVERIFY(wire::isRequestName(words.first()));
    const std::optional<wire::Frame> frame = wire::parseRequest(words, &error);
    QVERIFY2(frame.has_value(), qPrintable(error));
    QCOMPARE(frame->type, type);
    QCOMPARE(frame->data, data);
}

void TestRequests::refusesWrongRequests_data()
{
    QTest::addColumn<QString>("error");

    const struct {
        const char *command;
        const char *error;
    } rows[] = {
        {"", "unknown request \"\""},
        {"light 1", "unknown request \"light\""},
        // It leaves the station's prompt, and must not end the tool, as somebody may
        // expect.
        {"quit", "unknown request \"quit\""},
        {"backlight", "usage: backlight LEVEL"},
        {"backlight 1 2", "usage: backlight LEVEL"},
        {"backlight 256", "backlight: \"256\" is not a number from 0 to 255"},
        {"backlight -1", "backlight: \"-1\" is not a number from 0 to 255"},
        {"backlight 0x10", "backlight: \"0x10\" is not a number from 0 to 255"},
        {"leds G", "leds: \"G\" is not a hexadecimal number from 00 to FF"},
        {"leds 100", "leds: \"100\" is not a hexadecimal number from 00 to FF"},
        {"bias 2", "bias: \"2\" is neither on nor off"},
        {"sdread 30", "usage: sdread TIMEOUT PORT"},
        {"sdread x 2", "sdread: \"x\" is not a number from 0 to 255"},
        {"sdread 2 x", "sdread: \"x\" is not a number from 0 to 255"},
        {"pattern", "usage: pattern NAME"},
        {"calibrate maybe", "calibrate: \"maybe\" is neither on nor off"},
        {"mount now", "usage: mount"},
        {"send", "usage: send TYPE [DATA]"},
        {"send 10000", "send: \"10000\" is not a message type of up to four hexadecimal digits"},
        {"send xyz", "send: \"xyz\" is not a message type of up to four hexadecimal digits"},
        {"echo \\q", "echo: unknown escape; known are \\r \\n \\t \\\\ \\\" \\xHH"},
    };
    for (const auto &row : rows)
        QTest::newRow(row.command) << QString(row.error);
}

void TestRequests::refusesWrongRequests()
{
    QFETCH(QString, error);

    QString came;
    const QStringList words = QString::fromLatin1(QTest::currentDataTag()).split(' ');
    QVERIFY(!wire::parseRequest(words, &came));
    QCOMPARE(came, error);
}

void TestRequests::helpNamesEveryRequest()
{
    const QString help = wire::requestHelp();
    QVERIFY(help.contains("  backlight LEVEL       6143  LCD backlight, 0 to 255\n"));
    QVERIFY(help.contains("  buzzer LEVEL|off      6147  buzzer, 0 to 255\n"));
    for (const wire::Message &message : wire::messages()) {
        if (message.sender == wire::Sender::Station)
            QVERIFY2(help.contains(wire::typeNumber(message.type)), message.name);
    }
    QVERIFY(help.contains("send TYPE [DATA]"));
}

MFTOOL_TEST(TestRequests, EventLoop)
#include "tst_requests.moc"
