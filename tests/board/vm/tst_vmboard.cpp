#include "bench/board/boardimage.h"
#include "bench/board/vmboard.h"
#include "bench/station/meaning.h"
#include "bench/station/station.h"

#include <QtTest>

#include <algorithm>
#include <unistd.h>

#include "tests/support/testprogram.h"

namespace
{

const int ReplyMs = 120000; ///< an emulated board on a machine that is busy
const int FlashMs = 900000; ///< and a whole flash there

const quint16 CardReply = 0x6162;
const quint16 CalibrationPoint = 0x7021;
const quint16 TouchReport = 0x7031;
const quint16 FlashResult = 0x7052;
const quint16 ButtonsReply = 0x7071;
const quint16 ReadyFrame = 0x9999;

const char MountCard[] = "mount -o loop /usr/share/keypad/card.img /media/mmcblk0p1";
const char CardCame[] = "echo '#/media/mmcblk0p1' >/tmp/sdstat";
const char CardWent[] = "umount /media/mmcblk0p1; echo '!/media/mmcblk0p1' >/tmp/sdstat";

} // namespace

/// What was once done to such a board by hand: things break under the tool, and it
/// goes on. Every board boots for a minute, so that one serves many tests.
class TestVmBoard : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void cleanup();
    void cleanupTestCase();
    void manyRequestsOverAUart();
    void lateScreenAndInput();
    void homeKeyTooLate();
    void ledsUnregistered();
    void inputPulledWhileHeld();
    void imageTooLarge();
    void imageTruncated();
    void imageMissing();
    void killedWhileItFlashes();
    void flashWhileMounted();
    void fullTmp();
    void fullRoot();
    void fullCard();
    void stoppedBySystemd();
    void packageRemoved();
    void sysvInit();

private:
    void boot(VmBoardOptions::Line line, const QStringList &late = QStringList());
    void startTool();
    int starts() const;
    void slowDown();
    void needBoard();
    bool waitForLog(const char *words, qsizetype from = 0);
    bool answers();
    bool touch(int x, int y, quint16 reply);
    bool reportsTouches();
    QByteArray buttons();
    int cardStatus();
    bool cardEvent(const QByteArray &script, const char *words);
    int flash();
    void withImage(const QByteArray &change, int result);
    QByteArray text(const char *script);

    QString m_image;
    VmBoardOptions::Line m_line = VmBoardOptions::Usb;
    std::unique_ptr<VmBoard> m_board;
    std::unique_ptr<Station> m_station;
};

void TestVmBoard::initTestCase()
{
    if (!qEnvironmentVariableIsSet("MFTOOL_BOARD_TESTS"))
        QSKIP("it takes minutes; ./test.sh board runs it");
    QString error;
    m_image = BoardImage::find(QString(), &error);
    if (m_image.isEmpty())
        QSKIP(qPrintable(error));
}

/// A board on which something failed serves no further test.
void TestVmBoard::cleanup()
{
    if (!QTest::currentTestFailed())
        return;
    m_station.reset();
    m_board.reset();
}

void TestVmBoard::cleanupTestCase()
{
    m_station.reset();
    m_board.reset();
}

/// A board of its own, with the tool on the line.
void TestVmBoard::boot(VmBoardOptions::Line line, const QStringList &late)
{
    m_station.reset();
    m_line = line;
    VmBoardOptions options;
    options.image = m_image;
    options.line = line;
    options.late = late;
    m_board = std::make_unique<VmBoard>(options);
    QVERIFY2(m_board->prepare(), qPrintable(m_board->errorString()));
    m_station = std::make_unique<Station>();
    m_station->adopt(dup(m_board->lineFd()));
    QElapsedTimer clock;
    clock.start();
    QVERIFY2(m_board->powerOn(), qPrintable(m_board->errorString()));
    if (!late.isEmpty())
        return;
    QVERIFY2(m_board->waitForTool(), qPrintable(m_board->errorString()));
    QVERIFY2(m_station->waitForReady(ReplyMs), qPrintable(m_station->errorString()));
    qInfo("power to ready: %.1f s; resident: %s", static_cast<double>(clock.elapsed()) / 1000,
          text("grep -o 'VmRSS.*' /proc/$(pidof mftool)/status").simplified().constData());
}

/// How often the log says that the tool was started.
int TestVmBoard::starts() const
{
    const QList<Journal::Entry> log = m_board->log();
    return static_cast<int>(std::count_if(log.begin(), log.end(), [](const Journal::Entry &e) {
        return e.event == Journal::Started;
    }));
}

/// Starts the tool again. Its log may arrive later than its first frame.
void TestVmBoard::startTool()
{
    m_station->clear();
    const int before = starts();
    QVERIFY2(m_board->run("systemctl start mftool"), qPrintable(m_board->errorString()));
    QVERIFY2(m_station->waitForReady(VmBoard::BootLimitMs), qPrintable(m_station->errorString()));
    QTRY_VERIFY_WITH_TIMEOUT(starts() > before, ReplyMs);
}

/// One that is on, on a USB line.
void TestVmBoard::needBoard()
{
    if (!m_board || !m_board->isOn() || m_line != VmBoardOptions::Usb)
        boot(VmBoardOptions::Usb);
    m_station->clear();
    if (m_board->ending().known)
        startTool();
}

bool TestVmBoard::waitForLog(const char *words, qsizetype from)
{
    const QString text = QString::fromLatin1(words);
    QSignalSpy logged(m_board.get(), SIGNAL(logged()));
    const QDeadlineTimer deadline(VmBoard::BootLimitMs);
    for (;;) {
        const QList<Journal::Entry> log = m_board->log().mid(static_cast<int>(from));
        for (const Journal::Entry &entry : log) {
            if (entry.text.contains(text))
                return true;
        }
        if (!m_board->isOn() || deadline.hasExpired())
            return false;
        logged.wait(ReplyMs);
    }
}

/// Keeps the board busy from now on: its clock then follows its instructions only, and its
/// time limits do not expire early on a busy PC.
void TestVmBoard::slowDown()
{
    m_board->agent().follow("echo $$ >/run/slowdown; renice -n 19 $$; while :; do :; done");
}

/// Touches for longer than a calibration target needs, and waits for @p reply.
bool TestVmBoard::touch(int x, int y, quint16 reply)
{
    const QByteArray at = QByteArray::number(x) + ' ' + QByteArray::number(y);
    return m_board->agent().ask("touch " + at).ok() && m_board->agent().run("sleep 1.5").ok() &&
           m_board->agent().ask("lift").ok() && m_station->waitFor(reply, ReplyMs).has_value();
}

/// Whether a finger on the screen comes over the line.
bool TestVmBoard::reportsTouches()
{
    m_station->clear();
    return m_station->request(QStringLiteral("touch-test on"), ReplyMs).ok() &&
           touch(400, 260, TouchReport) &&
           m_station->request(QStringLiteral("touch-test off"), ReplyMs).ok();
}

QByteArray TestVmBoard::buttons()
{
    return m_station->request(QStringLiteral("buttons"), ReplyMs).data(ButtonsReply);
}

int TestVmBoard::cardStatus()
{
    const std::optional<wire::Frame> frame =
        m_station->request(QStringLiteral("sdread 5 2"), ReplyMs).frame(CardReply);
    return frame ? wire::meaningOf(*frame).fields.value(QStringLiteral("status")).toInt() : -1;
}

/// Tells the tool of a card, and waits until it has heard it.
bool TestVmBoard::cardEvent(const QByteArray &script, const char *words)
{
    const auto before = m_board->log().size();
    return m_board->run(script) && waitForLog(words, before);
}

bool TestVmBoard::answers()
{
    const Station::Answer answer = m_station->request(QStringLiteral("echo ABCD"), ReplyMs);
    if (!answer.ok())
        qWarning("%s", qPrintable(answer.error));
    return answer.ok();
}

/// @return the flash result's verdict; -1 when none came
int TestVmBoard::flash()
{
    if (!m_station->request(QStringLiteral("flash"), ReplyMs, 0).acked)
        return -1;
    const std::optional<wire::Frame> result = m_station->waitFor(FlashResult, FlashMs);
    return result ? result->data.toInt() : -1;
}

QByteArray TestVmBoard::text(const char *script)
{
    return m_board->agent().run(script).output.trimmed();
}

void TestVmBoard::manyRequestsOverAUart()
{
    const int requests = 600;
    boot(VmBoardOptions::Uart);
    int refused = 0;
    for (int i = 0; i < requests; ++i) {
        const Station::Answer answer =
            m_station->request(i % 2 != 0 ? QStringLiteral("echo 0123456789ABCDEF0123456789ABCDEF")
                                          : QStringLiteral("voltage"),
                               ReplyMs);
        if (!answer.ok())
            ++refused;
    }
    QCOMPARE(refused, 0);
}

void TestVmBoard::lateScreenAndInput()
{
    // The line is there and nothing else, for longer than it is waited for.
    boot(VmBoardOptions::Usb,
         {QStringLiteral("bochs"), QStringLiteral("home"), QStringLiteral("touch")});
    QVERIFY(waitForLog("waiting for the frame buffer, /dev/fb0"));
    QVERIFY(waitForLog("there is no /dev/fb0, starting without it"));
    QVERIFY(waitForLog("there is no /dev/input/event0, starting without it"));
    QTRY_VERIFY_WITH_TIMEOUT(m_board->ending().known, ReplyMs);
    QCOMPARE(m_board->ending().signal, 6); // Qt gives up
    QVERIFY(!m_station->waitFor(ReadyFrame, 0));

    // Now one comes after the other.
    slowDown();
    const auto before = m_board->log().size();
    m_station->clear();
    QVERIFY2(m_board->run("systemctl start mftool"), qPrintable(m_board->errorString()));
    QVERIFY(waitForLog("waiting for the frame buffer, /dev/fb0", before));
    QVERIFY2(m_board->run("insmod /run/keypad/bochs.ko"), qPrintable(m_board->errorString()));
    QVERIFY(waitForLog("waiting for the home key, /dev/input/event0", before));
    QVERIFY(m_board->agent().ask("plug home").ok());
    QVERIFY2(m_station->waitForReady(VmBoard::BootLimitMs), qPrintable(m_station->errorString()));
    QVERIFY2(m_board->run("kill $(cat /run/slowdown)"), qPrintable(m_board->errorString()));
    QVERIFY(!m_board->screen().isNull());
    QVERIFY(m_board->agent().ask("key 102 1").ok());
    QTRY_COMPARE_WITH_TIMEOUT(buttons(), QByteArray("01"), ReplyMs);
    QVERIFY(m_board->agent().ask("key 102 0").ok());
    QTRY_COMPARE_WITH_TIMEOUT(buttons(), QByteArray("00"), ReplyMs);

    QVERIFY(m_board->agent().ask("plug touch").ok());
    QVERIFY(waitForLog("Touchscreen /dev/input/touchscreen is there", before));
    QVERIFY(reportsTouches());
}

void TestVmBoard::homeKeyTooLate()
{
    needBoard();
    QVERIFY2(m_board->run("systemctl stop mftool"), qPrintable(m_board->errorString()));
    QVERIFY(m_board->agent().ask("unplug home").ok());
    const auto before = m_board->log().size();
    startTool();
    QVERIFY(waitForLog("there is no /dev/input/event0, starting without it", before));
    // The tool has looked for it once.
    QVERIFY(m_board->agent().ask("plug home").ok());
    QVERIFY(m_board->agent().ask("key 102 1").ok());
    QCOMPARE(buttons(), QByteArray("00"));
    QVERIFY(m_board->agent().ask("key 102 0").ok());

    QVERIFY2(m_board->run("systemctl stop mftool"), qPrintable(m_board->errorString()));
    startTool();
    QVERIFY(m_board->agent().ask("key 102 1").ok());
    QTRY_COMPARE_WITH_TIMEOUT(buttons(), QByteArray("01"), ReplyMs);
    QVERIFY(m_board->agent().ask("key 102 0").ok());
}

void TestVmBoard::ledsUnregistered()
{
    needBoard();
    const QByteArray led = "/sys/devices/platform/keypad-board/led";
    QVERIFY2(m_board->run("echo -trouble >" + led + "; echo -buzzer >" + led),
             qPrintable(m_board->errorString()));
    QVERIFY(m_station->request(QStringLiteral("leds 0F"), ReplyMs).acked);
    QCOMPARE(text("cat /sys/class/leds/ready/brightness"), QByteArray("255"));
    m_station->request(QStringLiteral("buzzer 200"), ReplyMs);
    QVERIFY(answers());

    QVERIFY2(m_board->run("echo +trouble >" + led + "; echo +buzzer >" + led),
             qPrintable(m_board->errorString()));
    QVERIFY(m_station->request(QStringLiteral("leds 0F"), ReplyMs).acked);
    QCOMPARE(text("cat /sys/class/leds/trouble/brightness"), QByteArray("255"));
}

void TestVmBoard::inputPulledWhileHeld()
{
    needBoard();
    QVERIFY(m_board->agent().ask("key 102 1").ok());
    QTRY_COMPARE_WITH_TIMEOUT(buttons(), QByteArray("01"), ReplyMs);
    QVERIFY(m_board->agent().ask("unplug home").ok());
    QTRY_COMPARE_WITH_TIMEOUT(buttons(), QByteArray("00"), ReplyMs);
    const auto before = m_board->log().size();
    QVERIFY(m_board->agent().ask("touch 100 100").ok());
    QVERIFY(m_board->agent().ask("unplug touch").ok());
    QVERIFY(waitForLog("Touchscreen /dev/input/touchscreen has gone", before));
    QVERIFY(answers());

    QVERIFY(m_board->agent().ask("plug home").ok());
    QVERIFY(m_board->agent().ask("plug touch").ok());
    QVERIFY(waitForLog("Touchscreen /dev/input/touchscreen is there", before));
    QVERIFY(reportsTouches());
}

void TestVmBoard::imageTooLarge()
{
    needBoard();
    withImage("truncate -s 160M", 0);
}

void TestVmBoard::imageTruncated()
{
    needBoard();
    withImage("truncate -s -1000", 0);
}

void TestVmBoard::imageMissing()
{
    needBoard();
    withImage("rm", 0);
}

/// What @p change does to the image makes a flash end with @p result; the tool goes on.
void TestVmBoard::withImage(const QByteArray &change, int result)
{
    const QByteArray image = "/boot/fw-1.2/qm8velrootfs.ubi";
    QVERIFY2(m_board->run("cp " + image + " /root/ && " + change + ' ' + image),
             qPrintable(m_board->errorString()));
    const int came = flash();
    QVERIFY2(m_board->run("mv /root/qm8velrootfs.ubi " + image),
             qPrintable(m_board->errorString()));
    QCOMPARE(came, result);
    QVERIFY(answers());
}

void TestVmBoard::killedWhileItFlashes()
{
    needBoard();
    const auto before = m_board->log().size();
    QVERIFY(m_station->request(QStringLiteral("flash"), ReplyMs, 0).acked);
    QVERIFY(waitForLog("Starting ubiformat", before));
    QVERIFY2(m_board->run("systemctl kill --kill-whom=main --signal=KILL mftool"),
             qPrintable(m_board->errorString()));
    QTRY_VERIFY_WITH_TIMEOUT(m_board->ending().known, ReplyMs);
    QCOMPARE(m_board->ending().signal, 9);
    // Nothing of it is left to write to the NAND beside the next one.
    QTRY_COMPARE_WITH_TIMEOUT(text("pidof ubiformat"), QByteArray(), ReplyMs);
    startTool();
    QCOMPARE(flash(), 1);
}

void TestVmBoard::flashWhileMounted()
{
    needBoard();
    QCOMPARE(flash(), 1);
    QVERIFY(m_station->request(QStringLiteral("mount"), ReplyMs, FlashMs).ok());
    QCOMPARE(text("cat /mnt/usr/lib/panel/version"), QByteArray("20140202 2.7"));
    QCOMPARE(flash(), 0);
    QCOMPARE(text("cat /mnt/usr/lib/panel/version"), QByteArray("20140202 2.7"));
    QVERIFY(answers());
    QVERIFY2(m_board->run("umount /mnt && ubidetach -m 1"), qPrintable(m_board->errorString()));
}

void TestVmBoard::fullTmp()
{
    needBoard();
    // No room for the pipe of the card's events.
    QVERIFY2(m_board->run("systemctl stop mftool; mount -t tmpfs -o nr_inodes=1 tmpfs /tmp"),
             qPrintable(m_board->errorString()));
    const auto before = m_board->log().size();
    startTool();
    QVERIFY(waitForLog("Failed to create SD fifo: No space left on device", before));
    QVERIFY(answers());
    QVERIFY2(m_board->run(MountCard), qPrintable(m_board->errorString()));
    QCOMPARE(cardStatus(), 1);

    QVERIFY2(m_board->run("systemctl stop mftool; umount /tmp"),
             qPrintable(m_board->errorString()));
    startTool();
    QVERIFY(cardEvent(CardCame, "SD Mount to"));
    QCOMPARE(cardStatus(), 0);
    QVERIFY(cardEvent(CardWent, "SD UnMount from"));
    QCOMPARE(cardStatus(), 1);
}

void TestVmBoard::fullRoot()
{
    needBoard();
    QVERIFY2(m_board->run("systemctl stop mftool; rm -f /tmp/sdstat /etc/pointercal; n=0; "
                          "for size in 100M 10M 1M 100K 4K; do "
                          "while fallocate -l $size /root/fill.$n; do n=$((n + 1)); done; "
                          "done 2>/dev/null; ! echo x >/root/test"),
             "the disk cannot be filled");
    startTool();
    QVERIFY(answers());
    QCOMPARE(flash(), 1);
    // A calibration that cannot be stored.
    const auto before = m_board->log().size();
    QVERIFY(m_station->request(QStringLiteral("calibrate on"), ReplyMs).ok());
    for (const QPoint &target :
         {QPoint(24, 24), QPoint(24, 456), QPoint(776, 456), QPoint(776, 24), QPoint(400, 240)})
        QVERIFY(touch(target.x(), target.y(), CalibrationPoint));
    QVERIFY(m_station->request(QStringLiteral("calibrate off"), ReplyMs).ok());
    QVERIFY(waitForLog("Failed to store the calibration", before));
    QVERIFY(answers());
    QVERIFY2(m_board->run("rm -f /root/fill.* /root/test"), qPrintable(m_board->errorString()));
}

void TestVmBoard::fullCard()
{
    needBoard();
    // A file can still be made on it, but holds nothing: not in the place of an older one.
    QVERIFY2(m_board->run(QByteArray(MountCard) +
                          "; rm -f /media/mmcblk0p1/ateTestFileOnSdCard.txt; dd if=/dev/zero "
                          "of=/media/mmcblk0p1/fill bs=1k 2>/dev/null; test $? = 1"),
             qPrintable(m_board->errorString()));
    QVERIFY(cardEvent(CardCame, "SD Mount to"));
    QCOMPARE(cardStatus(), 3);
    QVERIFY2(m_board->run("rm /media/mmcblk0p1/fill"), qPrintable(m_board->errorString()));
    QCOMPARE(cardStatus(), 0);
    QVERIFY(cardEvent(CardWent, "SD UnMount from"));
    QCOMPARE(cardStatus(), 1);
}

void TestVmBoard::stoppedBySystemd()
{
    needBoard();
    QVERIFY2(m_board->run("systemctl stop mftool"), qPrintable(m_board->errorString()));
    QCOMPARE(text("systemctl show --property=Result,ActiveState mftool"),
             QByteArray("Result=success\nActiveState=inactive"));
    startTool();
    QVERIFY(answers());
}

void TestVmBoard::packageRemoved()
{
    needBoard();
    QVERIFY2(m_board->run("DEBIAN_FRONTEND=noninteractive apt-get remove -q -y mftool"),
             qPrintable(m_board->errorString()));
    QCOMPARE(text("pidof mftool"), QByteArray());
    QCOMPARE(text("systemctl is-failed mftool"), QByteArray("inactive"));
    QCOMPARE(text("find / -xdev -name '*mftool*' ! -path '/var/log/*' ! -path '/var/cache/*' "
                  "! -path '/usr/share/keypad/*'; "
                  "ls /tmp/sdstat /home/default 2>/dev/null"),
             QByteArray());

    QVERIFY2(m_board->run("DEBIAN_FRONTEND=noninteractive apt-get install -q -y "
                          "/usr/share/keypad/mftool_*.deb"),
             qPrintable(m_board->errorString()));
    startTool();
    QVERIFY(answers());
}

void TestVmBoard::sysvInit()
{
    needBoard();
    // Its scripts would check the root, and there is no e2fsck on the board.
    const Agent::Answer installed = m_board->agent().run(
        "DEBIAN_FRONTEND=noninteractive apt-get install -q -y --no-install-recommends "
        "/usr/share/keypad/sysv/*.deb && sed -i '/^.dev.vda/s/1$/0/' /etc/fstab && sync",
        VmBoard::BootLimitMs);
    QVERIFY2(installed.ok(), installed.output.right(500).constData());
    m_board->powerOff();
    m_station->clear();
    QVERIFY2(m_board->powerOn(), qPrintable(m_board->errorString()));
    QVERIFY2(m_station->waitForReady(VmBoard::BootLimitMs), qPrintable(m_station->errorString()));
    QVERIFY(answers());
    QCOMPARE(text("cat /proc/1/comm; /etc/init.d/mftool status"),
             QByteArray("init\nmftool is running"));
    QVERIFY(text("cat /var/log/mftool.log").contains("ATE 15 sec Timer started"));

    QVERIFY2(m_board->run("/etc/init.d/mftool stop"), qPrintable(m_board->errorString()));
    QCOMPARE(text("/etc/init.d/mftool status; pidof mftool"), QByteArray("mftool is not running"));
    m_board.reset();
}

MFTOOL_TEST(TestVmBoard, EventLoop)
#include "tst_vmboard.moc"
