#include "bench/station/replay.h"
#include "bench/station/station.h"
#include "fakekeypad.h"

#include <QtTest>

class TestReplay : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void findsNoDifference();
    void findsADifferentReply();
    void findsAMissingReply();
    void findsASurplusReply();
    void givesALateReplyItsTime();
    void stopsWhenTheLineFails();

private:
    Replay play(const QByteArray &recorded, int marginMs = 5000);

    std::unique_ptr<FakeKeypad> m_keypad;
    Station m_station;
};

namespace
{

const QByteArray Backlight = "7E000E61431F006403607F\r\n";
const QByteArray Voltage = "7E000A70801C02907F\r\n";
const QByteArray Ack = "7E000A00043102957F\r\n";
const QByteArray VoltageReply = "7E001270810F0001234504347F\r\n";

/// Start of a unit, one request with an ACK and one with a reply.
const QByteArray Recorded = "# station transcript 1\n"
                            "2026-03-01T09:30:00.000000Z < \"7E000A00043102957F\\r\\n\" # ACK\n"
                            "2026-03-01T09:30:00.100000Z < \"7E000A99995102B77F\\r\\n\" # ready\n"
                            "2026-03-01T09:30:01.000000Z - operator ready\n"
                            "2026-03-01T09:30:01.000000Z > \"7E000E61431F006403607F\\r\\n\" "
                            "# backlight 100\n"
                            "2026-03-01T09:30:01.010000Z < \"7E000A00043102957F\\r\\n\" # ACK\n"
                            "2026-03-01T09:30:01.020000Z > \"7E000A70801C02907F\\r\\n\" "
                            "# voltage\n"
                            "2026-03-01T09:30:01.030000Z < \"7E001270810F0001234504347F\\r\\n\" "
                            "# voltage reading '00012345'\n";

} // namespace

void TestReplay::init()
{
    m_keypad = std::make_unique<FakeKeypad>();
    QVERIFY2(m_station.open(m_keypad->path()), qPrintable(m_station.errorString()));
}

Replay TestReplay::play(const QByteArray &recorded, int marginMs)
{
    QString error;
    const std::optional<Transcript> transcript = Transcript::fromText(recorded, &error);
    if (!transcript)
        qFatal("%s", qPrintable(error));
    return replay(&m_station, *transcript, marginMs);
}

void TestReplay::findsNoDifference()
{
    m_keypad->answer(Backlight, Ack);
    m_keypad->answer(Voltage, VoltageReply);
    const Replay result = play(Recorded);
    QCOMPARE(result.differences, QStringList());
    QVERIFY(result.same());
    QCOMPARE(result.sent, 2);
    QCOMPARE(result.compared, 2);
    QCOMPARE(m_keypad->reads(), (QList<QByteArray>{Backlight, Voltage}));
}

void TestReplay::findsADifferentReply()
{
    m_keypad->answer(Backlight, QByteArray("7E000A00053202977F\r\n"));
    m_keypad->answer(Voltage, VoltageReply);
    const Replay result = play(Recorded);
    QVERIFY(!result.same());
    QCOMPARE(result.differences, QStringList("after backlight 100 (7E000E61431F006403607F\\r\\n): "
                                             "NAK (7E000A00053202977F\\r\\n) instead of "
                                             "ACK (7E000A00043102957F\\r\\n)"));
}

void TestReplay::findsAMissingReply()
{
    m_keypad->answer(Backlight, Ack);
    const Replay result = play(Recorded, 50);
    QCOMPARE(result.differences.size(), 1);
    QVERIFY2(result.differences.first().startsWith(
                 "after voltage (7E000A70801C02907F\\r\\n): missing voltage reading '00012345'"),
             qPrintable(result.differences.first()));
    QVERIFY(!result.lineFailed);
}

void TestReplay::findsASurplusReply()
{
    m_keypad->answer(Backlight, Ack + Ack);
    m_keypad->answer(Voltage, VoltageReply);
    const Replay result = play(Recorded);
    QCOMPARE(result.differences,
             QStringList("after backlight 100 (7E000E61431F006403607F\\r\\n): surplus "
                         "ACK (7E000A00043102957F\\r\\n)"));
}

void TestReplay::givesALateReplyItsTime()
{
    // Recorded 60 s after its request: no margin is needed for one that is quicker.
    const QByteArray late = "2026-03-01T09:30:01.000000Z > \"7E000A70801C02907F\\r\\n\"\n"
                            "2026-03-01T09:31:01.000000Z < \"7E001270810F0001234504347F\\r\\n\"\n";
    QTimer::singleShot(100, this, [this] { m_keypad->say(VoltageReply); });
    const Replay result = play(late, 0);
    QCOMPARE(result.differences, QStringList());
    QCOMPARE(result.compared, 1);
}

void TestReplay::stopsWhenTheLineFails()
{
    QTimer::singleShot(0, this, [this] { m_keypad->hangUp(); });
    const Replay result = play(Recorded);
    QVERIFY(result.lineFailed);
    QVERIFY(!result.same());
    QCOMPARE(result.sent, 1);
}

QTEST_GUILESS_MAIN(TestReplay)
#include "tst_replay.moc"
