#include "bench/station/replay.h"
#include "bench/station/station.h"
#include "tests/support/fakekeypad.h"
#include "tests/support/testprogram.h"

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
    void keepsThePaceOfTheRequests();
    void keepsThePaceAfterALateReply();
    void findsASurplusReplyInAPause();
    void leavesOutThePausesWhenFast();
    void takesAnyProgressOfAFlash();
    void leavesOutThePollsOfAQuickerFlash_data();
    void leavesOutThePollsOfAQuickerFlash();
    void findsAFlashThatFails();
    void stopsWhenTheLineFails();

private:
    Replay play(const QByteArray &recorded, int marginMs = 5000,
                ReplayPace pace = ReplayPace::Recorded);

    std::unique_ptr<FakeKeypad> m_keypad;
    Station m_station;
    QList<qint64> m_sentAfterMs; ///< when each request was sent, from the start of play() on
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

Replay TestReplay::play(const QByteArray &recorded, int marginMs, ReplayPace pace)
{
    QElapsedTimer clock;
    clock.start();
    m_sentAfterMs.clear();
    QString error;
    const std::optional<Transcript> transcript = Transcript::fromText(recorded, &error);
    if (!transcript)
        qFatal("%s", qPrintable(error));
    return replay(&m_station, *transcript, marginMs, pace,
                  [&](const Transcript::Entry &) { m_sentAfterMs.append(clock.elapsed()); });
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
    // Recorded 60 s after its request: a quicker one needs no margin.
    const QByteArray late = "2026-03-01T09:30:01.000000Z > \"7E000A70801C02907F\\r\\n\"\n"
                            "2026-03-01T09:31:01.000000Z < \"7E001270810F0001234504347F\\r\\n\"\n";
    QTimer::singleShot(100, this, [this] { m_keypad->say(VoltageReply); });
    const Replay result = play(late, 0);
    QCOMPARE(result.differences, QStringList());
    QCOMPARE(result.compared, 1);
}

/// 400 ms from request to request, 300 ms from the reply on.
const char *const Paced = "2026-03-01T09:30:01.000000Z > \"7E000E61431F006403607F\\r\\n\"\n"
                          "2026-03-01T09:30:01.100000Z < \"7E000A00043102957F\\r\\n\"\n"
                          "2026-03-01T09:30:01.399000Z - a note\n"
                          "2026-03-01T09:30:01.400000Z > \"7E000A70801C02907F\\r\\n\"\n"
                          "2026-03-01T09:30:01.500000Z < \"7E001270810F0001234504347F\\r\\n\"\n";

void TestReplay::keepsThePaceOfTheRequests()
{
    // The reply comes sooner than recorded; the next request does not.
    m_keypad->answer(Backlight, Ack);
    m_keypad->answer(Voltage, VoltageReply);
    const Replay result = play(Paced);
    QCOMPARE(result.differences, QStringList());
    QCOMPARE(m_sentAfterMs.size(), 2);
    QVERIFY2(m_sentAfterMs.at(1) - m_sentAfterMs.at(0) >= 400,
             qPrintable(QString::number(m_sentAfterMs.at(1) - m_sentAfterMs.at(0))));
}

void TestReplay::keepsThePaceAfterALateReply()
{
    QElapsedTimer sinceReply;
    QTimer::singleShot(300, this, [&] {
        sinceReply.start();
        m_keypad->say(Ack);
    });
    m_keypad->answer(Voltage, VoltageReply);
    const Replay result = play(Paced);
    QCOMPARE(result.differences, QStringList());
    QVERIFY2(sinceReply.elapsed() >= 300, qPrintable(QString::number(sinceReply.elapsed())));
}

void TestReplay::findsASurplusReplyInAPause()
{
    m_keypad->answer(Backlight, Ack);
    m_keypad->answer(Voltage, VoltageReply);
    // A pause of two seconds follows the reply.
    QTimer surplus;
    surplus.setSingleShot(true);
    connect(&surplus, &QTimer::timeout, this, [&] { m_keypad->say(Ack); });
    surplus.start(200);
    const Replay result = play(QByteArray(Paced).replace("01.4", "03.4").replace("01.5", "03.5"));
    QCOMPARE(result.differences, QStringList("after 7E000E61431F006403607F\\r\\n: surplus "
                                             "ACK (7E000A00043102957F\\r\\n)"));
}

void TestReplay::leavesOutThePausesWhenFast()
{
    const QByteArray slow = "2026-03-01T09:30:01.000000Z > \"7E000E61431F006403607F\\r\\n\"\n"
                            "2026-03-01T09:30:01.100000Z < \"7E000A00043102957F\\r\\n\"\n"
                            "2026-03-01T10:30:01.000000Z > \"7E000A70801C02907F\\r\\n\"\n"
                            "2026-03-01T10:30:01.010000Z < \"7E001270810F0001234504347F\\r\\n\"\n";
    m_keypad->answer(Backlight, Ack);
    m_keypad->answer(Voltage, VoltageReply);
    const Replay result = play(slow, 5000, ReplayPace::Fast);
    QCOMPARE(result.differences, QStringList());
    QCOMPARE(result.compared, 2);
}

const QByteArray Query = "7E000A70531C02907F\r\n";
const QByteArray Boot44 = "7E000E70513E002C03AB7F\r\n";
const QByteArray Scan100 = "7E000E70513E016403A17F\r\n";
const QByteArray Complete = "7E000C70523D0103357F\r\n";
const QByteArray Failed = "7E000C70523D0003347F\r\n";
const QByteArray NotApplicable = "7E000A00033002937F\r\n";

/// Two polls, the end of the flash, and the voltage.
const char *const Flash = "2026-03-01T09:30:01.000000Z > \"7E000A70531C02907F\\r\\n\"\n"
                          "2026-03-01T09:30:01.010000Z < \"7E000E70513E002C03AB7F\\r\\n\"\n"
                          "2026-03-01T09:30:01.300000Z > \"7E000A70531C02907F\\r\\n\"\n"
                          "2026-03-01T09:30:01.310000Z < \"7E000E70513E016403A17F\\r\\n\"\n"
                          "2026-03-01T09:30:01.400000Z < \"7E000C70523D0103357F\\r\\n\"\n"
                          "2026-03-01T09:30:01.450000Z > \"7E000A70801C02907F\\r\\n\"\n"
                          "2026-03-01T09:30:01.460000Z < \"7E001270810F0001234504347F\\r\\n\"\n";

void TestReplay::takesAnyProgressOfAFlash()
{
    m_keypad->answer(Query, Boot44);
    m_keypad->answer(Voltage, VoltageReply);
    QTimer::singleShot(500, this, [&] { m_keypad->say(Complete); });
    const Replay result = play(Flash);
    QCOMPARE(result.differences, QStringList());
    QCOMPARE(m_keypad->reads(), (QList<QByteArray>{Query, Query, Voltage}));
}

void TestReplay::leavesOutThePollsOfAQuickerFlash_data()
{
    QTest::addColumn<QList<QByteArray>>("answers");
    QTest::newRow("over between the polls") << QList<QByteArray>{Boot44, Complete};
    QTest::newRow("over while it is polled") << QList<QByteArray>{Complete, NotApplicable};
}

void TestReplay::leavesOutThePollsOfAQuickerFlash()
{
    QFETCH(QList<QByteArray>, answers);
    m_keypad->answerInPieces(Query, answers);
    m_keypad->answer(Voltage, VoltageReply);
    const Replay result = play(Flash);
    QCOMPARE(result.differences, QStringList());
    QCOMPARE(result.sent, 2);
    QCOMPARE(m_keypad->reads(), (QList<QByteArray>{Query, Voltage}));
}

void TestReplay::findsAFlashThatFails()
{
    m_keypad->answerInPieces(Query, {Scan100, Failed});
    m_keypad->answer(Voltage, VoltageReply);
    const Replay result = play(Flash, 300);
    QVERIFY(!result.same());
    QVERIFY2(result.differences.first().contains("surplus flash failed"),
             qPrintable(result.differences.join('\n')));
}

void TestReplay::stopsWhenTheLineFails()
{
    QTimer::singleShot(0, this, [this] { m_keypad->hangUp(); });
    const Replay result = play(Recorded);
    QVERIFY(result.lineFailed);
    QVERIFY(!result.same());
    QCOMPARE(result.sent, 1);
}

MFTOOL_TEST(TestReplay, EventLoop)
#include "tst_replay.moc"
