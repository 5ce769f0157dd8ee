/// The line itself: pulled out, plugged in again, and used for a long time.
#include "tests/support/processes.h"
#include "tests/support/testprogram.h"
#include "tests/whole/programs.h"
#include "tests/whole/rig.h"

#include <QFileInfo>

#include <functional>

#include <fcntl.h>
#include <unistd.h>

namespace
{

/// Sends requests and takes no answer until the tool, which cannot get rid of its
/// replies any more, does not read the latest one.
/// @return the count of requests; 0 when the tool goes on for ever
int sendUntilStuck(Rig &rig, quint16 type, const std::function<QByteArray(int)> &dataOf)
{
    // It would read whatever comes.
    rig.station.close();
    int sent = 0;
    bool isRead = true;
    while (isRead && sent < 20000) {
        const QByteArray data = dataOf(sent++);
        const QByteArray frame = wire::buildFrame(wire::Sender::Station, type, data);
        if (write(rig.keypad.lineFd(), frame.constData(), size_t(frame.size())) != frame.size())
            break;
        isRead = rig.keypad.VirtualKeypad::waitForLog(QString::fromLatin1(data), 1500);
    }
    rig.station.adopt(fcntl(rig.keypad.lineFd(), F_DUPFD_CLOEXEC, 0));
    return isRead ? 0 : sent;
}

/// @p number with leading zeros and a tail, @p size characters long.
QByteArray numbered(int number, int size)
{
    return QByteArray::number(number).rightJustified(6, '0').leftJustified(size, '=');
}

} // namespace

class TestLine : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void hangsUp();
    void stationComesAndGoes();
    void thousandsOfReplies();
    void uartHandsFramesOverInPieces();
    void lineThatIsNone();
    void nobodyDrainsIt();
    void relayOnASlowLine();
    void programsDoNotGetIt();
};

void TestLine::initTestCase()
{
    SKIP_UNLESS_KEYPADS_RUN();
}

void TestLine::hangsUp()
{
    KeypadOptions options;
    ToolClock clock;
    const bool canWind = ToolClock::whyNot().isEmpty();
    if (canWind)
        clock.wind(options);
    Rig rig(options);
    QVERIFY2(rig.startReady(), qPrintable(rig.why()));
    RigKeypad &keypad = rig.keypad;
    rig.station.close();
    keypad.hangUp();

    const qint64 before = processorTime(keypad.toolPid());
    QVERIFY(before >= 0);
    QTest::qWait(1500);
    const qint64 used = processorTime(keypad.toolPid()) - before;
    QVERIFY2(used < 500, qPrintable(QString::number(used)));
    QVERIFY(keypad.countLog("Got_newsocket:") < 3);

    keypad.pressHome();
    QVERIFY(keypad.waitForStore("/sys/class/leds/buzzer/brightness", "185"));
    keypad.releaseHome();
    QVERIFY(keypad.waitForStore("/sys/class/leds/buzzer/brightness", "0"));

    if (!canWind)
        QSKIP(qPrintable(ToolClock::whyNot()));
    QVERIFY(clock.set(16));
    keypad.pressHome();
    QVERIFY(keypad.waitForExit());
    QCOMPARE(keypad.exitStatus().signal, 0);
    QCOMPARE(keypad.exitStatus().code, 0);
    QVERIFY(rig.waitForLog("debug: \n************ ATE TEST Quit due to time out ************\n"));
}

/// The line does not end when the station's program does.
void TestLine::stationComesAndGoes()
{
    RigKeypad keypad;
    QVERIFY2(keypad.prepare(), qPrintable(keypad.errorString()));
    const QString path = keypad.linePath();
    QVERIFY2(!path.isEmpty(), qPrintable(keypad.errorString()));
    {
        RigStation first;
        QVERIFY2(first.open(path), qPrintable(first.errorString()));
        QVERIFY2(keypad.start(), qPrintable(keypad.errorString()));
        QVERIFY2(first.waitForReady(), qPrintable(first.errorString()));
        QVERIFY(first.send(0x6002, "01"));
        QVERIFY2(first.expect(0x6003, "01"), qPrintable(first.errorString()));
        // Leaves half a frame behind.
        QVERIFY(first.sendRaw("7E000C60"));
        QVERIFY2(first.expect(0x0005), qPrintable(first.errorString()));
    }
    for (int i = 2; i < 5; ++i) {
        const QByteArray data = QByteArray::number(i);
        RigStation another;
        QVERIFY2(another.open(path), qPrintable(another.errorString()));
        QVERIFY(another.send(0x6002, data));
        QVERIFY2(another.expect(0x6003, data), qPrintable(another.errorString()));
    }
    QVERIFY(keypad.isRunning());
}

void TestLine::thousandsOfReplies()
{
    Rig rig;
    QVERIFY2(rig.startReady(), qPrintable(rig.why()));
    const qint64 pid = rig.keypad.toolPid();
    rig.station.transcript().setLimit(10);
    const auto echo = [&rig](int times) {
        for (int i = 0; i < times; ++i) {
            const QByteArray data = QByteArray::number(i);
            if (!rig.station.send(0x6002, data) || !rig.station.expect(0x6003, data))
                return false;
        }
        return true;
    };
    // The first ones fill caches.
    QVERIFY2(echo(200), qPrintable(rig.station.errorString()));
    const QStringList openBefore = process::openFiles(pid);
    const qint64 memoryBefore = process::ownMemory(pid);
    QVERIFY(openBefore.size() > 3 && memoryBefore > 0);

    QVERIFY2(echo(5000), qPrintable(rig.station.errorString()));
    // One from its start may have been closed since, but none may have been added. The
    // last reply comes before its stream is closed.
    QTRY_VERIFY2(process::openFiles(pid).size() <= openBefore.size(),
                 qPrintable(process::openFiles(pid).join(QLatin1Char(' '))));
    const qint64 grown = process::ownMemory(pid) - memoryBefore;
    // A sanitizer keeps freed memory for a while.
    if (!process::isSanitized(pid))
        QVERIFY2(grown < 1024, qPrintable(QString::number(grown)));
}

/// As a driver without DMA does: each frame is still one message.
void TestLine::uartHandsFramesOverInPieces()
{
    KeypadOptions options;
    const QString library = QStringLiteral(UART_LINE);
    options.visible.append(QFileInfo(library).path());
    options.environment.insert(QStringLiteral("LD_PRELOAD"), library);
    // Where the tool is built with a sanitizer, that library cannot be the first one.
    options.environment.insert(QStringLiteral("ASAN_OPTIONS"),
                               qEnvironmentVariable("ASAN_OPTIONS") +
                                   QStringLiteral(":verify_asan_link_order=0"));
    Rig rig(options);
    QVERIFY2(rig.startReady(), qPrintable(rig.why()));
    for (int size = 0; size < 150; ++size) {
        const QByteArray data(size, '5');
        QVERIFY(rig.station.send(0x6002, data));
        QVERIFY2(rig.station.expect(0x6003, data), qPrintable(rig.station.errorString()));
    }
    // Whole frames only, or none: nothing is put together.
    QVERIFY(rig.station.sendRaw("7E000C60"));
    QCOMPARE(rig.next(), QString("0005"));
    QVERIFY(rig.station.sendRaw("02175A02F57F\r\n"));
    QCOMPARE(rig.next(), QString("0005"));
}

/// Something that can be read for ever and says nothing.
void TestLine::lineThatIsNone()
{
    KeypadOptions options;
    options.without.append(QStringLiteral("/dev/ttySP0"));
    RigKeypad keypad(options);
    QVERIFY2(keypad.prepare(), qPrintable(keypad.errorString()));
    QCOMPARE(keypad.run("ln", {"-s", "/dev/null", "/dev/ttySP0"}).code, 0);
    QVERIFY2(keypad.start(), qPrintable(keypad.errorString()));
    QVERIFY(keypad.waitForLog("Failed to read /dev/ttySP0: end of file"));

    const qint64 before = processorTime(keypad.toolPid());
    QVERIFY(before >= 0);
    QTest::qWait(1000);
    const qint64 used = processorTime(keypad.toolPid()) - before;
    QVERIFY2(used < 500, qPrintable(QString::number(used)));
    QCOMPARE(keypad.countLog("Failed to read"), 1);
    QCOMPARE(keypad.countLog("Got_newsocket:"), 0);
}

/// The tool stops in the middle of a reply, and goes on with the next byte.
void TestLine::nobodyDrainsIt()
{
    Rig rig;
    QVERIFY2(rig.startReady(), qPrintable(rig.why()));
    const auto data = [](int number) { return numbered(number, 900); };
    const int sent = sendUntilStuck(rig, 0x6002, data);
    QVERIFY(sent > 1);
    for (int i = 0; i < sent; ++i)
        QCOMPARE(rig.next(), QStringLiteral("6003 ") + QString::fromLatin1(data(i)));
    QCOMPARE(rig.request(0x6002, "5A").line, QStringList("6003 5A"));
}

/// What the line did not take at once follows, and so do the relays after it.
void TestLine::relayOnASlowLine()
{
    const QByteArray ack("7E000A00043102957F\r\n");
    // If the line happens to be full right after a relay, nothing is queued.
    for (int size = 180; size < 190; ++size) {
        Rig rig;
        QVERIFY2(rig.startReady(), qPrintable(rig.why()));
        QCOMPARE(rig.request(0x7040, "01").line, QStringList("0004"));
        const auto data = [size](int number) { return numbered(number, size); };
        const int sent = sendUntilStuck(rig, 0x7041, data);
        QVERIFY(sent > 1);

        QByteArray relayed;
        for (int i = 0; i < sent; ++i)
            relayed += data(i) + "\r\n";
        QByteArray received;
        const auto takeUntil = [&](const std::function<bool()> &isEnough) {
            while (!isEnough()) {
                const std::optional<Station::Received> next = rig.station.receive();
                if (!next)
                    return false;
                received += next->raw;
            }
            return true;
        };
        QVERIFY2(takeUntil([&] { return received.count(ack) == sent; }),
                 qPrintable(rig.station.errorString()));
        if (!rig.keypad.VirtualKeypad::waitForLog("onWrite", 3000))
            continue;
        QVERIFY2(takeUntil([&] { return received.size() == relayed.size() + sent * ack.size(); }),
                 qPrintable(rig.station.errorString()));
        // One ACK may be in the middle of a relayed line.
        QCOMPARE(received.replace(ack, ""), relayed);
        QCOMPARE(rig.request(0x7041, "after").line, QStringList({"line after", "0004"}));
        return;
    }
    QFAIL("the line was never full in the middle of a relay");
}

/// A program that outlives the tool would keep the line open.
void TestLine::programsDoNotGetIt()
{
    Rig rig;
    QVERIFY2(rig.startReady(), qPrintable(rig.why()));
    QVERIFY(Programs::setScript(rig.keypad, QStringLiteral("kobs-ng"),
                                "for file in /proc/$$/fd/*; do\n"
                                "  /bin/readlink $file\n"
                                "done > /tmp/descriptors\n"
                                "exit 1\n"));
    QVERIFY(rig.station.send(wire::FlashRequest));
    QCOMPARE(rig.next(), QString("0004"));
    QCOMPARE(rig.next(), QString("7052 00"));
    const QByteArrayList open = rig.keypad.readFile("/tmp/descriptors").split('\n');
    QVERIFY(open.contains("/tmp/descriptors"));
    // Whoever runs the test may have left others open, such as a log.
    for (const QByteArray &file : open) {
        for (const char *ofTheTool : {"/dev/ttySP0", "/dev/input/", "/sys/", "/tmp/sdstat"})
            QVERIFY2(!file.startsWith(ofTheTool), file.constData());
    }
}

MFTOOL_TEST(TestLine, EventLoop)
#include "tst_line.moc"
