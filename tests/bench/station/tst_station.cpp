#include "bench/station/station.h"
#include "tests/support/fakekeypad.h"
#include "tests/support/testprogram.h"

#include <QtTest>

#include <memory>
#include <thread>

#include <fcntl.h>
#include <poll.h>
#include <termios.h>
#include <unistd.h>

using Answer = Station::Answer;
using Received = Station::Received;

namespace
{

const QByteArray Ack = "7E000A00043102957F\r\n";
const QByteArray Nak = "7E000A00053202977F\r\n";
const QByteArray Na = "7E000A00033002937F\r\n";
const QByteArray Ready = "7E000A99995102B77F\r\n";
const QByteArray Voltage = "7E001270810F0001234504347F\r\n";
const QByteArray Mounted = "7E000C70613D0103357F\r\n";
const QByteArray FlashFailed = "7E000C70523D0003347F\r\n";
const QByteArray Touch = "7E0010703108120045039C7F\r\n";

const QByteArray BacklightRequest = "7E000E61431F006403607F\r\n";
const QByteArray VoltageRequest = "7E000A70801C02907F\r\n";
const QByteArray MountRequest = "7E000A70601A028C7F\r\n";
const QByteArray FlashRequest = "7E000A70501902837F\r\n";

/// A limit for what must not come: long enough to notice it, short enough to wait for.
const int ShortMs = 60;

} // namespace

class TestStation : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();

    void sendsARequestInOnePiece();
    void setsTheLineRaw();
    void joinsPartialReads();
    void separatesTwoFramesInOneRead();
    void reportsUnframedLinesBetweenFrames();
    void findsAFrameBehindAnUnendedLine();
    void takesAFrameWithLineFeedsInItsData();
    void reportsDamagedFrames_data();
    void reportsDamagedFrames();
    void goesOnBehindALengthThatLies();
    void handsOverAnUnfinishedFrameAtTheLimit();
    void aPollLeavesAnUnfinishedFrameAlone();
    void timesOutInSilence();
    void receivesWhileNobodyWaits();

    void requestReturnsAReply();
    void requestIsRefused_data();
    void requestIsRefused();
    void requestWaitsForTheLateReply();
    void requestTakesALateReplyAheadOfTheAck();
    void requestTimesOutWithoutTheLateReply();
    void requestLeavesTheLateReplyIfAskedTo();
    void requestKeepsWhatElseCame();
    void requestDropsWhatCameBefore();
    void requestTimesOut();
    void requestStopsAtADamagedFrame();
    void requestOfAnUnknownType();
    void requestByItsName();

    void expectsExactly();
    void expectsSilence();
    void waitsForAType();
    void waitsForReady();

    void hangsUpWhileWaiting();
    void deliversWhatCameBeforeTheHangUp();
    void hangsUpWhileIdle();
    void hangsUpOnAMaster();
    void failsWhenNotOpen();
    void saysWhyALineCannotBeOpened();
    void opensAgain();

    void keepsATranscript();
    void worksWithoutAnEventLoop();
    void keepsUpInALongRun();

private:
    std::unique_ptr<FakeKeypad> m_keypad;
    std::unique_ptr<Station> m_station;
};

void TestStation::init()
{
    m_keypad = std::make_unique<FakeKeypad>();
    m_station = std::make_unique<Station>();
    QVERIFY2(m_station->open(m_keypad->path()), qPrintable(m_station->errorString()));
}

void TestStation::cleanup()
{
    m_station.reset();
    m_keypad.reset();
}

void TestStation::sendsARequestInOnePiece()
{
    QVERIFY(m_station->send(0x6143, "0064"));
    QTRY_COMPARE(m_keypad->reads(), QList<QByteArray>{"7E000E61431F006403607F\r\n"});
    const QByteArray longData(900, 'x');
    QVERIFY(m_station->send(0x6002, longData));
    QTRY_COMPARE(m_keypad->reads().size(), 2);
    QCOMPARE(m_keypad->reads().last().size(), 900 + 20);
    QVERIFY(m_station->sendRaw("junk"));
    QTRY_COMPARE(m_keypad->reads().size(), 3);
    QCOMPARE(m_keypad->reads().last(), QByteArray("junk"));
}

void TestStation::setsTheLineRaw()
{
    termios settings;
    QCOMPARE(tcgetattr(m_station->descriptor(), &settings), 0);
    QCOMPARE(settings.c_lflag & tcflag_t(ECHO | ICANON | ISIG), tcflag_t(0));
    QCOMPARE(settings.c_oflag & tcflag_t(OPOST), tcflag_t(0));
    QCOMPARE(settings.c_cflag & tcflag_t(CSIZE | PARENB | CSTOPB), tcflag_t(CS8));
    QCOMPARE(cfgetospeed(&settings), speed_t(B115200));

    QByteArray all;
    for (int byte = 0; byte < 256; ++byte)
        all += static_cast<char>(byte);
    QVERIFY(m_station->sendRaw(all));
    QTRY_COMPARE(m_keypad->reads().join(), all);
    // Nothing of it comes back as an echo.
    QVERIFY2(m_station->expectSilence(ShortMs), qPrintable(m_station->errorString()));
}

void TestStation::joinsPartialReads()
{
    for (char byte : Voltage.left(Voltage.size() - 1)) {
        m_keypad->say(QByteArray(1, byte));
        QVERIFY(!m_station->receive(0));
    }
    m_keypad->say("\n");
    QVERIFY2(m_station->expect(0x7081, "00012345"), qPrintable(m_station->errorString()));
}

void TestStation::separatesTwoFramesInOneRead()
{
    m_keypad->say(Ack + Ready);
    QVERIFY2(m_station->expect(0x0004), qPrintable(m_station->errorString()));
    QVERIFY2(m_station->expect(0x9999), qPrintable(m_station->errorString()));
    QVERIFY(!m_station->receive(0));
}

void TestStation::reportsUnframedLinesBetweenFrames()
{
    m_keypad->say("AT+GMR\r\n" + Ack + "line feed only\n\r\n" + Ready);
    QVERIFY2(m_station->expectLine("AT+GMR"), qPrintable(m_station->errorString()));
    QVERIFY2(m_station->expect(0x0004), qPrintable(m_station->errorString()));
    const auto line = m_station->receive();
    QVERIFY(line && line->kind == Received::Text);
    QCOMPARE(line->line(), QByteArray("line feed only"));
    QCOMPARE(line->raw, QByteArray("line feed only\n"));
    QCOMPARE(line->describe(), QString("unframed line \"line feed only\""));
    QVERIFY2(m_station->expectLine(""), qPrintable(m_station->errorString()));
    QVERIFY2(m_station->expect(0x9999), qPrintable(m_station->errorString()));
}

void TestStation::findsAFrameBehindAnUnendedLine()
{
    m_keypad->say("half 7E a line" + Ack);
    const auto text = m_station->receive();
    QVERIFY(text && text->kind == Received::Text);
    QCOMPARE(text->raw, QByteArray("half 7E a line"));
    QVERIFY2(m_station->expect(0x0004), qPrintable(m_station->errorString()));
}

void TestStation::takesAFrameWithLineFeedsInItsData()
{
    const QByteArray frame = "7E000E60033Aa\r\nb03A87F\r\n";
    m_keypad->say(frame);
    QVERIFY2(m_station->expect(0x6003, "a\r\nb"), qPrintable(m_station->errorString()));
    m_keypad->say(frame.left(16));
    QVERIFY(!m_station->receive(0));
    m_keypad->say(frame.mid(16) + Ack);
    QVERIFY2(m_station->expect(0x6003, "a\r\nb"), qPrintable(m_station->errorString()));
    QVERIFY2(m_station->expect(0x0004), qPrintable(m_station->errorString()));
}

void TestStation::reportsDamagedFrames_data()
{
    QTest::addColumn<QByteArray>("line");
    QTest::addColumn<QString>("description");
    QTest::newRow("checksum") << QByteArray("7E000A00043102967F\r\n")
                              << "damaged frame: checksum is 0296, should be 0295";
    QTest::newRow("start mark") << QByteArray("8E000A00043202977F\r\n")
                                << "damaged frame: start mark is \"8E\", should be 7E";
    QTest::newRow("line end") << QByteArray("7E000A00043102957F\n")
                              << "damaged frame: line end is \"\\n\", should be \"\\r\\n\"";
    QTest::newRow("fragment") << QByteArray("7E000A0004\r\n")
                              << "damaged frame: 10 characters, a frame has at least 18; "
                                 "end mark is \"04\", should be 7F";
    QTest::newRow("lower case") << QByteArray("7e000a00043102957f\r\n")
                                << "damaged frame: lower-case digits, should be "
                                   "7E000A00043102957F";
}

void TestStation::reportsDamagedFrames()
{
    QFETCH(QByteArray, line);
    QFETCH(QString, description);

    m_keypad->say(line + Ready);
    const auto damaged = m_station->waitForFrame();
    QVERIFY(damaged && damaged->kind == Received::DamagedFrame);
    QCOMPARE(damaged->raw, line);
    QCOMPARE(damaged->describe(), description);
    QVERIFY2(m_station->expect(0x9999), qPrintable(m_station->errorString()));
}

void TestStation::goesOnBehindALengthThatLies()
{
    // The header check is right, so that the length is believed at first.
    m_keypad->say("7E000E000435029D7F\r\n" + Ack);
    const auto damaged = m_station->receive();
    QVERIFY(damaged && damaged->kind == Received::DamagedFrame);
    QVERIFY(damaged->report.fails(wire::Problem::LengthField));
    QVERIFY2(m_station->expect(0x0004), qPrintable(m_station->errorString()));

    m_keypad->say("7E00FF00046C03057F\r\n");
    const auto alone = m_station->receive(ShortMs);
    QVERIFY(alone && alone->kind == Received::DamagedFrame);
    QVERIFY(alone->report.fails(wire::Problem::LengthField));
}

void TestStation::handsOverAnUnfinishedFrameAtTheLimit()
{
    m_keypad->say("7E000A0004");
    const auto damaged = m_station->receive(ShortMs);
    QVERIFY(damaged && damaged->kind == Received::DamagedFrame);
    QCOMPARE(damaged->raw, QByteArray("7E000A0004"));
    QVERIFY(!m_station->receive(ShortMs));
}

void TestStation::aPollLeavesAnUnfinishedFrameAlone()
{
    m_keypad->say(Ack.left(7));
    QTRY_COMPARE(m_station->pending(), QByteArray("7E000A0"));
    QVERIFY(!m_station->receive(0));
    QCOMPARE(m_station->pending(), QByteArray("7E000A0"));
    m_keypad->say(Ack.mid(7));
    QVERIFY2(m_station->expect(0x0004), qPrintable(m_station->errorString()));
}

void TestStation::timesOutInSilence()
{
    QElapsedTimer clock;
    clock.start();
    QVERIFY(!m_station->receive(ShortMs));
    QVERIFY(clock.elapsed() >= ShortMs - 1);
    QCOMPARE(m_station->errorString(), QString("nothing came in 0.06 s, waiting for anything"));
    QVERIFY(!m_station->waitFor(0x7081, ShortMs));
    QCOMPARE(m_station->errorString(),
             QString("nothing came in 0.06 s, waiting for voltage reply"));
    QVERIFY(m_station->isOpen());
    QVERIFY(!m_station->isHungUp());
}

void TestStation::receivesWhileNobodyWaits()
{
    QSignalSpy spy(m_station.get(), SIGNAL(received(Station::Received)));
    m_keypad->say(Ack + "text\r\n");
    QTRY_COMPARE(spy.count(), 2);
    QVERIFY(spy.at(0).at(0).value<Received>().isFrame());
    QCOMPARE(spy.at(1).at(0).value<Received>().line(), QByteArray("text"));
    // Still there for a wait.
    QVERIFY2(m_station->expect(0x0004), qPrintable(m_station->errorString()));
    QVERIFY2(m_station->expectLine("text"), qPrintable(m_station->errorString()));
}

void TestStation::requestReturnsAReply()
{
    m_keypad->answer(VoltageRequest, Voltage);
    const Answer answer = m_station->request(0x7080);
    QVERIFY2(answer.ok(), qPrintable(answer.error));
    QVERIFY(!answer.acked);
    QCOMPARE(answer.data(0x7081), QByteArray("00012345"));
    QVERIFY(answer.data(0x7071).isNull());
    QCOMPARE(answer.frames.size(), 1);
    QCOMPARE(m_keypad->reads(), QList<QByteArray>{VoltageRequest});
}

void TestStation::requestIsRefused_data()
{
    QTest::addColumn<QByteArray>("reply");
    QTest::addColumn<int>("outcome");
    QTest::addColumn<QString>("error");
    QTest::newRow("NAK") << Nak << int(Answer::Nak) << "mount was refused with NAK";
    QTest::newRow("NA") << Na << int(Answer::NotApplicable) << "mount was refused with NA";
}

void TestStation::requestIsRefused()
{
    QFETCH(QByteArray, reply);
    QFETCH(int, outcome);
    QFETCH(QString, error);
    m_keypad->answer(MountRequest, reply);
    const Answer answer = m_station->request(0x7060);
    QCOMPARE(int(answer.outcome), outcome);
    QVERIFY(answer.refused());
    QVERIFY(!answer.ok());
    QCOMPARE(answer.error, error);
}

void TestStation::requestWaitsForTheLateReply()
{
    m_keypad->answer(MountRequest, Ack);
    // The late reply has a limit of its own, so it may come after the limit of the ACK.
    QTimer::singleShot(300, this, [this] { m_keypad->say(Mounted); });
    const Answer answer = m_station->request(0x7060, QByteArray(), 250);
    QVERIFY2(answer.ok(), qPrintable(answer.error));
    QVERIFY(answer.acked);
    QCOMPARE(answer.frames.size(), 2);
    QCOMPARE(answer.data(0x7061), QByteArray("01"));
    QVERIFY(answer.elapsedUs > 0);
}

void TestStation::requestTakesALateReplyAheadOfTheAck()
{
    m_keypad->answerInPieces(FlashRequest, {FlashFailed, Ack});
    const Answer answer = m_station->request(0x7050);
    QVERIFY2(answer.ok(), qPrintable(answer.error));
    QVERIFY(answer.acked);
    QCOMPARE(answer.frames.size(), 2);
    QCOMPARE(answer.frames.first().type, quint16(0x7052));
}

void TestStation::requestTimesOutWithoutTheLateReply()
{
    m_keypad->answer(MountRequest, Ack);
    const Answer answer = m_station->request(0x7060, QByteArray(), 5000, ShortMs);
    QCOMPARE(answer.outcome, Answer::TimedOut);
    QVERIFY(answer.acked);
    QCOMPARE(answer.error, QString("nothing came in 0.06 s, waiting for mount result to mount"));
}

void TestStation::requestLeavesTheLateReplyIfAskedTo()
{
    m_keypad->answer(FlashRequest, Ack);
    const Answer answer = m_station->request(0x7050, QByteArray(), 5000, 0);
    QVERIFY2(answer.ok(), qPrintable(answer.error));
    QVERIFY(answer.acked);
}

void TestStation::requestKeepsWhatElseCame()
{
    m_keypad->answerInPieces(BacklightRequest, {Touch, "module\r\n", Ack});
    const Answer answer = m_station->request(0x6143, "0064");
    QVERIFY2(answer.ok(), qPrintable(answer.error));
    QCOMPARE(answer.frames.size(), 2);
    QCOMPARE(answer.frames.first().data, QByteArray("120045"));
    QCOMPARE(answer.lines, QList<QByteArray>{"module"});
}

void TestStation::requestDropsWhatCameBefore()
{
    // A late ACK to an earlier request does not count for this one.
    m_keypad->say(Ack);
    QVERIFY(m_station->waitFor(0x0004));
    m_keypad->say(Ack);
    m_keypad->answer(BacklightRequest, Nak);
    const Answer answer = m_station->request(0x6143, "0064");
    QCOMPARE(answer.outcome, Answer::Nak);
    QCOMPARE(answer.frames.size(), 1);
}

void TestStation::requestTimesOut()
{
    const Answer answer = m_station->request(0x6143, "0064", ShortMs);
    QCOMPARE(answer.outcome, Answer::TimedOut);
    QVERIFY(!answer.acked);
    QVERIFY(!answer.refused());
    QCOMPARE(answer.error, QString("nothing came in 0.06 s, waiting for ACK to backlight 100"));
}

void TestStation::requestStopsAtADamagedFrame()
{
    m_keypad->answer(BacklightRequest, QByteArray("7E000A00041102737F\r\n"));
    const Answer answer = m_station->request(0x6143, "0064");
    QCOMPARE(answer.outcome, Answer::Damaged);
    QVERIFY2(answer.error.contains("wrong case summed"), qPrintable(answer.error));
}

void TestStation::requestOfAnUnknownType()
{
    m_keypad->answer("7E000A123417027F7F\r\n", Na);
    QCOMPARE(m_station->request(0x1234).outcome, Answer::NotApplicable);
}

void TestStation::requestByItsName()
{
    m_keypad->answer(BacklightRequest, Ack);
    QVERIFY(m_station->request("backlight 100").ok());
    QVERIFY(m_station->request("send 6143 0064").ok());
    const Answer wrong = m_station->request("backlight 256");
    QVERIFY(!wrong.ok());
    QCOMPARE(wrong.error, QString("backlight: \"256\" is not a number from 0 to 255"));
    QCOMPARE(m_keypad->reads().size(), 2);
}

void TestStation::expectsExactly()
{
    m_keypad->say(Nak + Touch + "text\r\n");
    QVERIFY(!m_station->expect(0x0004));
    QCOMPARE(m_station->errorString(), QString("expected ACK (7E000A00043102957F\\r\\n), came NAK "
                                               "(7E000A00053202977F\\r\\n)"));
    QVERIFY(!m_station->expect(0x7031, "120046"));
    QVERIFY(m_station->errorString().contains("came touch at 120,45"));
    QVERIFY(!m_station->expect(0x0004));
    QVERIFY(m_station->errorString().contains("came unframed line \"text\""));
}

void TestStation::expectsSilence()
{
    QVERIFY(m_station->expectSilence(ShortMs));
    m_keypad->say(Ack);
    QVERIFY(!m_station->expectSilence(5000));
    QVERIFY(m_station->errorString().startsWith("expected silence, came ACK"));
}

void TestStation::waitsForAType()
{
    m_keypad->say(Ack + "text\r\n" + Touch + Ready);
    const auto touch = m_station->waitFor(0x7031);
    QVERIFY(touch.has_value());
    QCOMPARE(touch->data, QByteArray("120045"));
    QVERIFY2(m_station->expect(0x9999), qPrintable(m_station->errorString()));
}

void TestStation::waitsForReady()
{
    m_keypad->say(Nak + Ready);
    QVERIFY(m_station->waitForReady(5000));
    QVERIFY(!m_station->waitForReady(ShortMs));
}

void TestStation::hangsUpWhileWaiting()
{
    QSignalSpy spy(m_station.get(), SIGNAL(hungUp()));
    QTimer::singleShot(0, this, [this] { m_keypad->hangUp(); });
    const Answer answer = m_station->request(0x7080, QByteArray(), 60000);
    QCOMPARE(answer.outcome, Answer::LineFailed);
    QCOMPARE(answer.error, QString("the line hung up, waiting for voltage reply to voltage"));
    QVERIFY(m_station->isHungUp());
    QVERIFY(!m_station->receive(60000));
    QVERIFY(!m_station->expectSilence(10));
    QCOMPARE(spy.count(), 1);
}

void TestStation::deliversWhatCameBeforeTheHangUp()
{
    // When a pty hangs up, it throws away what its reader has not fetched.
    m_keypad->say(Ack + "7E000A");
    QTRY_COMPARE(m_station->pending(), QByteArray("7E000A"));
    m_keypad->hangUp();
    QTRY_VERIFY(m_station->isHungUp());
    QVERIFY2(m_station->expect(0x0004), qPrintable(m_station->errorString()));
    const auto cutOff = m_station->receive();
    QVERIFY(cutOff && cutOff->kind == Received::DamagedFrame);
}

void TestStation::hangsUpWhileIdle()
{
    QSignalSpy spy(m_station.get(), SIGNAL(hungUp()));
    m_keypad->hangUp();
    QTRY_COMPARE(spy.count(), 1);
    // A line that stays readable for ever must not keep the event loop busy.
    int rounds = 0;
    QTimer after;
    after.setSingleShot(true);
    after.start(ShortMs);
    while (after.isActive()) {
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
        ++rounds;
    }
    QVERIFY2(rounds < 100, qPrintable(QString::number(rounds)));
}

void TestStation::hangsUpOnAMaster()
{
    const int master = posix_openpt(O_RDWR | O_NOCTTY);
    QVERIFY(master >= 0);
    QCOMPARE(grantpt(master), 0);
    QCOMPARE(unlockpt(master), 0);
    const int slave = ::open(ptsname(master), O_RDWR | O_NOCTTY);
    QVERIFY(slave >= 0);
    termios raw;
    QCOMPARE(tcgetattr(slave, &raw), 0);
    cfmakeraw(&raw);
    QCOMPARE(tcsetattr(slave, TCSANOW, &raw), 0);

    Station station;
    station.adopt(master);
    QVERIFY(station.isOpen());
    QCOMPARE(::write(slave, Ack.constData(), size_t(Ack.size())), ssize_t(Ack.size()));
    QVERIFY2(station.expect(0x0004), qPrintable(station.errorString()));
    QVERIFY(station.send(0x7080));
    char bytes[100];
    QCOMPARE(::read(slave, bytes, sizeof bytes), ssize_t(VoltageRequest.size()));
    ::close(slave);
    QVERIFY(!station.receive(60000));
    QVERIFY(station.isHungUp());
}

void TestStation::failsWhenNotOpen()
{
    Station station;
    QVERIFY(!station.isOpen());
    QVERIFY(!station.send(0x7080));
    QCOMPARE(station.errorString(), QString("the line is not open"));
    QVERIFY(!station.receive(60000));
    QCOMPARE(station.errorString(), QString("the line is not open, waiting for anything"));
    QCOMPARE(station.request(0x7080).outcome, Answer::LineFailed);
    QVERIFY(!station.expectSilence(60000));
}

void TestStation::saysWhyALineCannotBeOpened()
{
    Station station;
    QVERIFY(!station.open("/dev/nowhere"));
    QCOMPARE(station.errorString(), QString("/dev/nowhere: No such file or directory"));
    QVERIFY(!station.open("/dev/null"));
    QCOMPARE(station.errorString(), QString("/dev/null is not a serial line"));
    QVERIFY(!station.open(m_keypad->path(), 12345));
    QCOMPARE(station.errorString(), QString("12345 is not a standard baud rate"));
    QVERIFY(!station.isOpen());
}

void TestStation::opensAgain()
{
    m_keypad->say(Ack + "7E");
    QTRY_COMPARE(m_station->pending(), QByteArray("7E"));
    m_station->close();
    QVERIFY(!m_station->isOpen());
    QVERIFY(m_station->open(m_keypad->path(), 9600));
    QCOMPARE(m_station->pending(), QByteArray());
    QVERIFY(!m_station->receive(0));
    m_keypad->say(Ready);
    QVERIFY2(m_station->expect(0x9999), qPrintable(m_station->errorString()));
}

void TestStation::keepsATranscript()
{
    m_keypad->answerInPieces(BacklightRequest, {"module\r\n", Ack});
    QVERIFY(m_station->request(0x6143, "0064").ok());
    m_keypad->say("7E000A00043102967F\r\n");
    QVERIFY(m_station->waitForFrame());
    m_station->sendRaw("junk");
    m_keypad->hangUp();
    QTRY_VERIFY(m_station->isHungUp());

    const auto &entries = m_station->transcript().entries();
    const struct {
        Transcript::Kind kind;
        QByteArray bytes;
        QString text;
    } rows[] = {
        {Transcript::Sent, BacklightRequest, "backlight 100"},
        {Transcript::Received, "module\r\n", "unframed line \"module\""},
        {Transcript::Received, Ack, "ACK"},
        {Transcript::Received, "7E000A00043102967F\r\n",
         "damaged frame: checksum is 0296, should be 0295"},
        {Transcript::Sent, "junk", "raw"},
        {Transcript::Note, "", "the line hung up"},
    };
    QCOMPARE(entries.size(), std::size(rows));
    for (size_t at = 0; at < entries.size(); ++at) {
        QCOMPARE(entries.at(at).kind, rows[at].kind);
        QCOMPARE(entries.at(at).bytes, rows[at].bytes);
        QCOMPARE(entries.at(at).text, rows[at].text);
    }
}

void TestStation::worksWithoutAnEventLoop()
{
    // A thread that Qt did not start has no event loop: here both sides are played without one.
    Answer answer;
    bool silent = false;
    bool hungUp = false;
    const QString path = m_keypad->path();
    m_station->close(); // the line is for one
    m_keypad->answerInPieces(VoltageRequest, {Voltage.left(9), Voltage.mid(9)});
    std::thread stationThread([&] {
        Station station;
        if (!station.open(path))
            return;
        answer = station.request(0x7080);
        silent = station.expectSilence(ShortMs);
        station.send(0x6001);
        station.receive(60000);
        hungUp = station.isHungUp();
    });
    // The main thread's event loop plays the keypad meanwhile.
    const bool asked = QTest::qWaitFor([this] { return m_keypad->reads().size() == 2; }, 30000);
    m_keypad->hangUp();
    stationThread.join();
    QVERIFY(asked);
    QVERIFY2(answer.ok(), qPrintable(answer.error));
    QCOMPARE(answer.data(0x7081), QByteArray("00012345"));
    QVERIFY(silent);
    QVERIFY(hungUp);
}

void TestStation::keepsUpInALongRun()
{
    const int requests = 5000;
    m_station->transcript().setLimit(10);
    m_keypad->answer(VoltageRequest, Voltage);
    for (int i = 0; i < requests; ++i) {
        const Answer answer = m_station->request(0x7080);
        QVERIFY2(answer.ok(), qPrintable(answer.error));
    }
    QCOMPARE(m_station->transcript().entries().size(), size_t(10));
    QVERIFY(!m_station->receive(0));
    QCOMPARE(m_station->pending(), QByteArray());
    QCOMPARE(m_keypad->reads().size(), requests);
}

MFTOOL_TEST(TestStation, EventLoop)
#include "tst_station.moc"
