#include "bench/station/messages.h"

#include <QtTest>

#include "tests/bench/station/samples.h"
#include "tests/support/testprogram.h"

class TestMessages : public QObject
{
    Q_OBJECT

private slots:
    void standInTheOrderOfTypes();
    void repliesAreInTheTable();
    void fieldsFitTheirData();
    void knowsTheAnswers_data();
    void knowsTheAnswers();
    void knowsWhoSends();
    void findsTypesByName();
    void namesTheFieldsOfReplies_data();
    void namesTheFieldsOfReplies();
};

void TestMessages::knowsTheAnswers_data()
{
    QTest::addColumn<quint16>("type");
    QTest::addColumn<bool>("ack");
    QTest::addColumn<quint16>("reply");

    for (const SampleCommand &sample : sampleCommands)
        QTest::newRow(sample.command) << sample.type << sample.isAcknowledged << sample.reply;
}

void TestMessages::knowsTheAnswers()
{
    QFETCH(quint16, type);
    QFETCH(bool, ack);
    QFETCH(quint16, reply);

    const std::optional<wire::Answers> answers = wire::answersTo(type);
    QVERIFY(answers.has_value());
    QCOMPARE(answers->ack, ack);
    QCOMPARE(answers->reply, reply);
    // A reply after an ACK may take long and has a limit of its own.
    QCOMPARE(answers->lateLimitMs > 0, ack && reply != 0);
    QCOMPARE(answers->wrongLength, quint16(type == 0x7020 ? 0x0003 : 0x0005));
}

void TestMessages::knowsWhoSends()
{
    QVERIFY(wire::senderOf(0x6001) == wire::Sender::Station);
    QVERIFY(wire::senderOf(0x9999) == wire::Sender::Keypad);
    QVERIFY(!wire::senderOf(0x1234));
    QVERIFY(!wire::answersTo(0x1234));
    QVERIFY(!wire::answersTo(0x0004));
    QCOMPARE(wire::typeName(0x7081), QString("voltage reply"));
    QCOMPARE(wire::typeName(0x003F), QString("unknown type 003F"));
}

/// Every type only once, so that no row hides another.
void TestMessages::standInTheOrderOfTypes()
{
    int before = -1;
    for (const wire::Message &message : wire::messages()) {
        QVERIFY2(message.type > before, message.name);
        before = message.type;
    }
}

/// A reply that is awaited is one that a keypad sends.
void TestMessages::repliesAreInTheTable()
{
    for (const wire::Message &message : wire::messages()) {
        if (message.answers.reply != 0)
            QVERIFY2(wire::senderOf(message.answers.reply) == wire::Sender::Keypad, message.name);
        QVERIFY2(!message.layouts.empty(), message.name);
    }
}

/// The fields lie in their data.
void TestMessages::fieldsFitTheirData()
{
    for (const wire::Message &message : wire::messages()) {
        for (const wire::Layout &layout : message.layouts) {
            for (const wire::Field &field : layout.fields) {
                const bool toEnd = field.width == wire::ToEnd && field.form == wire::Form::Text;
                QVERIFY2(toEnd || field.place + field.width <= layout.size, message.name);
            }
        }
    }
}

void TestMessages::findsTypesByName()
{
    QCOMPARE(wire::typeNamed("voltage reply").value_or(0), quint16(0x7081));
    QCOMPARE(wire::typeNamed("led request").value_or(0), quint16(0));
    QCOMPARE(wire::typeNamed("LEDS Request").value_or(0), quint16(0x6144));
    QCOMPARE(wire::typeNamed("ack").value_or(0), quint16(0x0004));
    QVERIFY(!wire::typeNamed(QString()));
}

void TestMessages::namesTheFieldsOfReplies_data()
{
    QTest::addColumn<quint16>("type");
    QTest::addColumn<QString>("fields");

    const struct {
        quint16 type;
        const char *fields;
    } rows[] = {
        {0x0004, ""},
        {0x6003, "text"},
        {0x603D, "major minor version"},
        {0x6162, "timeout port status values"},
        {0x7021, "index x y"},
        {0x7022, "success"},
        {0x7031, "x y"},
        {0x7042, "text"},
        {0x7051, "stage percent"},
        {0x7052, "success"},
        {0x7061, "success"},
        {0x7071, "mask home tamper"},
        {0x7081, "text voltage"},
        {0x1234, ""},
    };
    for (const auto &row : rows)
        QTest::newRow(qPrintable(wire::typeNumber(row.type))) << row.type << QString(row.fields);
}

void TestMessages::namesTheFieldsOfReplies()
{
    QFETCH(quint16, type);
    QFETCH(QString, fields);
    QCOMPARE(wire::fieldNames(type).join(' '), fields);
}

MFTOOL_TEST(TestMessages, EventLoop)
#include "tst_messages.moc"
