// The engine on a pseudo terminal: what the station sends, and what it sees.
#include "protocol/testproto.h"

#include <QCoreApplication>
#include <QMetaMethod>
#include <QPoint>
#include <QSignalSpy>
#include <QSocketNotifier>
#include <QTimer>
#include <QtTest>

#include <atomic>
#include <csignal>
#include <malloc.h>
#include <termios.h>

#include <algorithm>
#include <memory>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <pthread.h>
#include <unistd.h>

#include "tests/support/anyqt.h"
#include "tests/support/boardfolder.h"
#include "tests/support/descriptors.h"
#include "tests/support/logcatcher.h"
#include "tests/support/onsignal.h"
#include "tests/support/ptyline.h"
#include "tests/support/testprogram.h"

namespace
{

const char *const ack = "7E000A00043102957F\r\n";
const char *const nak = "7E000A00053202977F\r\n";
const char *const na = "7E000A00033002937F\r\n";
const char *const nothing = "";

const char *const probe = "7E000F60021Aprobe04A47F\r\n";
const char *const probeEcho = "7E000F60033Bprobe04E87F\r\n";

/// A line with echo and line editing, as a fresh one is.
termios cooked()
{
    termios settings = {};
    settings.c_iflag = ICRNL | IXON;
    settings.c_oflag = OPOST | ONLCR;
    settings.c_cflag = CREAD | CS8 | B9600;
    settings.c_lflag = ICANON | ECHO | ISIG;
    settings.c_cc[VEOF] = 4;
    return settings;
}

std::atomic<int> signalsSeen(0);

void countSignal(int)
{
    ++signalsSeen;
}

/// As QProcess does for the end of a child: system calls are not restarted.
void catchSignal(int number)
{
    struct sigaction action = {};
    action.sa_handler = countSignal;
    sigaction(number, &action, nullptr);
}

/// Whether the thread @p id of this process sleeps, which here means in its write.
bool sleeps(pid_t id)
{
    QFile file(QString("/proc/self/task/%1/stat").arg(id));
    if (!file.open(QIODevice::ReadOnly))
        return false;
    const QByteArray stat = file.readAll();
    return stat.mid(stat.lastIndexOf(')') + 2, 1) == "S";
}

/// Sends a signal to a thread that sleeps in a write, and goes on once it sleeps
/// again or @p returned says that the write has been given up.
void interrupt(pthread_t thread, pid_t id, const std::atomic<bool> &returned)
{
    while (!sleeps(id) && !returned)
        std::this_thread::yield();
    const int before = signalsSeen;
    pthread_kill(thread, SIGUSR1);
    while (signalsSeen == before || (!sleeps(id) && !returned))
        std::this_thread::yield();
}

/// One request, the signal it raises, what goes out at once, and its log line.
struct Request {
    const char *name;
    const char *frame;
    const char *signal;
    const char *reply;
    const char *log;
};

const Request requests[] = {
    {"exit", "7E000A60011402797F", "testExit()", ack, ""},
    {"exit with data", "7E000C6001160002DD7F", "", nak, ""},
    {"echo", "7E000E600219ABCD038D7F", "", "7E000E60033AABCD03D87F\r\n", ""},
    {"echo without data", "7E000A600215027B7F", "", "7E000A600336029F7F\r\n", ""},
    {"echo keeps any text", "7E0011600206xyz 7e~05117F", "", "7E0011600307xyz 7e~05137F\r\n", ""},
    {"version", "7E000C603C2B0103007F", "getVersion()", nothing, ""},
    {"version with 02", "7E000C603C2B0203017F", "", na,
     "debug: In ATE Mode--->, 603c Command, first byte must be 01 (30 31)"},
    {"version with two bytes", "7E000E603C2D010203667F", "", nak,
     "debug: In ATE Mode--->, 603c Command needs 1 bytes of data (2 ASCII)"},
    {"version without data", "7E000A603C2902947F", "", nak,
     "debug: In ATE Mode--->, 603c Command needs 1 bytes of data (2 ASCII)"},
    {"backlight", "7E000E61431F006403607F", "setBacklight(100)", ack, ""},
    {"backlight full", "7E000E61431F00FF03827F", "setBacklight(255)", ack, ""},
    {"backlight in lower case", "7E000E61431F00ff03C27F", "setBacklight(255)", ack, ""},
    {"backlight with a bad digit", "7E000E61431F001G036E7F", "setBacklight(0)", ack, ""},
    {"bias on", "7E000E61431F010103587F", "setBiasPower(1)", ack, ""},
    {"bias off", "7E000E61431F010003577F", "setBiasPower(0)", ack, ""},
    {"bias above 1", "7E000E61431F016403617F", "", na, ""},
    {"bias 2", "7E000E61431F010203597F", "", na, ""},
    {"display, neither", "7E000E61431F020103597F", "", na, ""},
    {"display, too short", "7E000C61431D0002F27F", "", nak, ""},
    {"display, too long", "7E001061430B00640003A77F", "", nak, ""},
    {"leds", "7E001861441400FF000000000005457F", "setLeds(255)", ack, ""},
    {"leds, other bytes unused", "7E00186144140005FFFFFFFFFF05FA7F", "setLeds(5)", ack, ""},
    {"leds, not 00", "7E001861441401FF000000000005467F", "", na, ""},
    {"leds, too short", "7E000E61442000FF036E7F", "", nak, ""},
    {"leds without data", "7E000A61441C02907F", "", nak, ""},
    {"leds, too long", "7E001A61441D00FF00000000000005BE7F", "", nak, ""},
    {"buzzer off", "7E000E614723000003487F", "setBuzzer(0)", ack, ""},
    {"buzzer off ignores its level", "7E000E614723005503527F", "setBuzzer(0)", ack, ""},
    {"buzzer on", "7E000E61472380FF037C7F", "setBuzzer(255)", ack, ""},
    {"buzzer, neither", "7E000E614723015503537F", "", na, ""},
    {"buzzer, too short", "7E000C6147218002EC7F", "", nak, ""},
    {"buzzer without data", "7E000A61471F02967F", "", nak, ""},
    {"buzzer, too long", "7E001061470F80FF0003D97F", "", nak, ""},
    {"sd card", "7E001061610B011E0203B67F", "readSdCard(30,2)", nothing, ""},
    {"sd card, largest", "7E001061610B01FFFF03F67F", "readSdCard(255,255)", nothing, ""},
    {"sd card, not 01", "7E001061610B021E0203B77F", "", na,
     "debug: In ATE Mode--->, 6161 Command, first byte must be 01 (30 31)"},
    {"sd card, too short", "7E000E61611F011E036D7F", "", nak,
     "debug: In ATE Mode--->, 6161 Command needs 3 bytes of data (6 ASCII)"},
    {"sd card, too long", "7E001261610D011E0200041A7F", "", nak,
     "debug: In ATE Mode--->, 6161 Command needs 3 bytes of data (6 ASCII)"},
    {"test pattern", "7E000E700018bars04297F", "setLCDTestPattern(bars)", nothing, ""},
    {"test pattern cleared", "7E000A70001402797F", "setLCDTestPattern()", ack, ""},
    {"home led", "7E000C7010173202E47F", "setHomeLed(50)", ack, ""},
    {"home led, too short", "7E000A701015027B7F", "", nak, ""},
    {"home led, too long", "7E000E701019320003487F", "", nak, ""},
    {"calibrate on", "7E000C7020180102E27F", "setCalibrate(true)", ack, ""},
    {"calibrate off", "7E000C7020180002E17F", "setCalibrate(false)", ack, ""},
    {"calibrate on by FF", "7E000C702018FF030D7F", "setCalibrate(true)", ack, ""},
    {"calibrate on by no number", "7E000C702018zz03757F", "setCalibrate(true)", ack, ""},
    {"calibrate, too short is NA", "7E000A702016027D7F", "", na, ""},
    {"calibrate, too long is NA", "7E000E70201A0100034D7F", "", na, ""},
    {"touch test on", "7E000C7030190102E47F", "tsTestEnable(true)", ack, ""},
    {"touch test on by FF", "7E000C703019FF030F7F", "tsTestEnable(true)", ack, ""},
    {"touch test on by no number", "7E000C703019zz03777F", "tsTestEnable(true)", ack, ""},
    {"touch test off", "7E000C7030190002E37F", "tsTestEnable(false)", ack, ""},
    {"touch test, too long", "7E000E70301B0000034E7F", "", nak, ""},
    {"touch test, too short", "7E000A703017027F7F", "", nak, ""},
    {"passthrough on", "7E000C70401A0102ED7F", "passthroughEnable(true)", ack, ""},
    {"passthrough off", "7E000C70401A0002EC7F", "passthroughEnable(false)", ack, ""},
    {"passthrough, too short", "7E000A70401802817F", "", nak, ""},
    {"passthrough, too long", "7E000E70401C010003517F", "", nak, ""},
    {"relay", "7E0010704109AT+X=103F87F", "passthrough(AT+X=1)", ack, ""},
    {"relay nothing", "7E000A70411902837F", "passthrough()", ack, ""},
    {"relay bytes above 0x7F",
     "7E000D70411C"
     "\xE4"
     "\xFF"
     "\x80"
     "04F37F",
     "passthrough("
     "\xE4"
     "\xFF"
     "\x80"
     ")",
     ack, ""},
    {"flash", "7E000A70501902837F", "flashStart(false,)", ack, ""},
    {"flash from a folder", "7E000E70501Dbeta042E7F", "flashStart(false,beta)", ack, ""},
    {"flash query", "7E000A70531C02907F", "flashQuery()", nothing, ""},
    {"flash query with data", "7E000C70531E0002F47F", "", nak, ""},
    {"mount", "7E000A70601A028C7F", "mountStart()", ack, ""},
    {"mount with data", "7E000C70601C0002F07F", "", nak, ""},
    {"buttons", "7E000A70701B028E7F", "buttonRequest()", nothing, ""},
    {"buttons with data", "7E000C70701D0002F27F", "", nak, ""},
    {"voltage", "7E000A70801C02907F", "readVoltage()", nothing, ""},
    {"voltage with data", "7E000C70801E0002F47F", "", nak, ""},
    {"unknown type", "7E000A123417027F7F", "", na, "debug: Unhandled type: 1234"},
    {"unknown type, small", "7E000C000B215502EE7F", "", na, "debug: Unhandled type: 000B"},
    {"type of no hexadecimal", "7E000A60G12B029F7F", "", na, "debug: Unhandled type: 0000"},
};

/// Writes down every signal of an engine as "name(arguments)".
class SignalRecorder
{
public:
    explicit SignalRecorder(TestProto *proto)
    {
        const QMetaObject *meta = proto->metaObject();
        for (int i = meta->methodOffset(); i < meta->methodCount(); ++i) {
            const QMetaMethod method = meta->method(i);
            if (method.methodType() != QMetaMethod::Signal)
                continue;
            const QByteArray signature = signatureOf(method);
            // As SIGNAL() would write it.
            const QByteArray signal = QByteArray::number(QSIGNAL_CODE) + signature;
            m_spies.push_back(std::make_unique<QSignalSpy>(proto, signal.constData()));
            m_names.push_back(signature.left(signature.indexOf('(')));
        }
    }

    QByteArray take()
    {
        QByteArray all;
        for (size_t i = 0; i < m_spies.size(); ++i) {
            for (const QList<QVariant> &arguments : *m_spies[i])
                all += m_names[i] + '(' + join(arguments) + ')';
            m_spies[i]->clear();
        }
        return all;
    }

private:
    static QByteArray join(const QList<QVariant> &arguments)
    {
        QByteArray text;
        for (const QVariant &argument : arguments)
            text += argument.toByteArray() + ',';
        text.chop(1);
        return text;
    }

    std::vector<std::unique_ptr<QSignalSpy>> m_spies;
    std::vector<QByteArray> m_names;
};

} // namespace

class TestTestProto : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();

    void requestTable_data();
    void requestTable();
    void metaObjectOrder();

    void answersFromASlotGoOutFirst();
    void lineEndIsNotNeeded();
    void whiteSpaceIsTrimmed();
    void zeroByteEndsTheMessage();
    void emptyMessageGetsNothing();
    void damagedFrames_data();
    void damagedFrames();
    void splitFrameIsTwoMessages();
    void twoFramesInOneReadAreOneMessage();
    void oversizedChunkIsRefused();

    void ateTimerStartsWith15Seconds();
    void marksRestartTheAteTimer_data();
    void marksRestartTheAteTimer();
    void timeOutEndsAteMode();

    void replies();
    void repliesLeaveNothingBehind();
    void signalsLoseNoReply();
    void missingLine();
    void nothingToRead();
    void hungUpLineSwitchesTheNotifierOff();
    void lineThatCannotBeReadSwitchesTheNotifierOff();
    void failedReadIsAnEmptyMessage();
    void endWithoutEndSwitchesTheNotifierOff();
    void endsOfACookedLineDoNot();
    void lineSettingsStayAsTheyAre();
    void namesKeepTheirBytes_data();
    void namesKeepTheirBytes();

    void sdPowerIsSwitchedOn();
    void missingSdPowerIsSilent();
    void unwritableSdPowerIsAWarning();
    void sdCardComesAndGoes();

private:
    void start();
    /// What the station receives for @p bytes, before the answer to an echo request that
    /// is sent after them.
    QByteArray answerTo(const QByteArray &bytes);

    std::unique_ptr<BoardFolder> m_folder;
    std::unique_ptr<PtyLine> m_line;
    std::unique_ptr<LogCatcher> m_log;
    std::unique_ptr<TestProto> m_proto;
};

void TestTestProto::init()
{
    m_folder = std::make_unique<BoardFolder>();
    m_line = std::make_unique<PtyLine>();
    m_log = std::make_unique<LogCatcher>();
    m_folder->link("/dev/ttySP0", m_line->path());
    m_folder->makeFolder("/tmp");
    m_folder->write("/sys/class/gpio/sd_power/value", "-");
}

void TestTestProto::cleanup()
{
    m_proto.reset();
    m_log.reset();
    m_line.reset();
    m_folder.reset();
}

void TestTestProto::start()
{
    m_proto = std::make_unique<TestProto>(nullptr, m_folder->board());
}

QByteArray TestTestProto::answerTo(const QByteArray &bytes)
{
    m_line->clear();
    const int read = m_log->count("debug: Got_newsocket: " + bytes.trimmed().split('\0').first());
    m_line->send(bytes);
    // The engine reads once for each message: the next may only follow then.
    const auto taken = [&] {
        return m_log->count("debug: Got_newsocket: " + bytes.trimmed().split('\0').first()) > read;
    };
    if (!waitUntil(taken, 5000))
        return "(not read)";
    m_line->send(probe);
    if (!waitUntil([&] { return m_line->received().endsWith(probeEcho); }, 5000))
        return "(no echo)";
    QByteArray answer = m_line->received();
    answer.chop(static_cast<int>(qstrlen(probeEcho)));
    return answer;
}

void TestTestProto::requestTable_data()
{
    QTest::addColumn<QByteArray>("frame");
    QTest::addColumn<QByteArray>("signal");
    QTest::addColumn<QByteArray>("reply");
    QTest::addColumn<QString>("log");
    for (const Request &request : requests)
        QTest::newRow(request.name) << QByteArray(request.frame) << QByteArray(request.signal)
                                    << QByteArray(request.reply) << QString(request.log);
}

void TestTestProto::requestTable()
{
    QFETCH(QByteArray, frame);
    QFETCH(QByteArray, signal);
    QFETCH(QByteArray, reply);
    QFETCH(QString, log);

    start();
    SignalRecorder recorder(m_proto.get());
    const QByteArray answer = answerTo(frame + "\r\n");
    QCOMPARE(answer, reply);
    QCOMPARE(recorder.take(), signal);
    if (!log.isEmpty())
        QCOMPARE(m_log->count(log), 1);
}

void TestTestProto::metaObjectOrder()
{
    const QByteArrayList expected = {
        "testExit()",
        "setBacklight(uint)",
        "setBiasPower(uint)",
        "setLeds(uint)",
        "setBuzzer(uint)",
        "readSdCard(int,int)",
        "setLCDTestPattern(QString)",
        "setHomeLed(uint)",
        "setCalibrate(bool)",
        "tsTestEnable(bool)",
        "passthroughEnable(bool)",
        "passthrough(QByteArray)",
        "flashStart(bool,QString)",
        "flashQuery()",
        "mountStart()",
        "buttonRequest()",
        "readVoltage()",
        "getVersion()",
        "tsCoords(QPoint)",
        "calibrateResult(int,QPoint)",
        "calibrateFinished(bool)",
        "passthroughReply(QByteArray)",
        "flashStatus(int,int)",
        "flashComplete(bool)",
        "sendReady()",
        "mountComplete(bool)",
        "sendButtons(uint)",
        "sendVoltage(QByteArray)",
        "sendAck()",
        "sendNak()",
        "sendNA()",
        "sendVersion(QString)",
        "sendReadSdCardResp(QString)",
        "exitMftool()",
        "read()",
        "setSdCardMountPath(QString)",
        "clearSdCardMountPath(QString)",
    };
    QByteArrayList found;
    const QMetaObject &meta = TestProto::staticMetaObject;
    for (int i = meta.methodOffset(); i < meta.methodCount(); ++i)
        found << signatureOf(meta.method(i));
    QCOMPARE(found, expected);
}

void TestTestProto::answersFromASlotGoOutFirst()
{
    start();
    connect(m_proto.get(), SIGNAL(setHomeLed(uint)), m_proto.get(), SLOT(sendButtons(uint)));
    QCOMPARE(answerTo("7E000C7010173202E47F\r\n"),
             QByteArray("7E000C70713E32033B7F\r\n7E000A00043102957F\r\n"));
}

void TestTestProto::lineEndIsNotNeeded()
{
    start();
    QCOMPARE(answerTo("7E000A70001402797F"), QByteArray(ack));
}

void TestTestProto::whiteSpaceIsTrimmed()
{
    start();
    QCOMPARE(answerTo(" \t\r\n7E000A70001402797F \n"), QByteArray(ack));
}

void TestTestProto::zeroByteEndsTheMessage()
{
    start();
    QCOMPARE(answerTo(QByteArray("7E000A70001402797F\0junk\r\n", 24)), QByteArray(ack));
}

void TestTestProto::emptyMessageGetsNothing()
{
    start();
    QCOMPARE(answerTo("\r\n"), QByteArray());
    QCOMPARE(m_log->count("debug: Invalid message"), 0);
}

void TestTestProto::damagedFrames_data()
{
    QTest::addColumn<QByteArray>("frame");
    QTest::addColumn<QByteArray>("reply");
    QTest::addColumn<QString>("log");
    const auto row = [](const char *name, const QByteArray &frame, const QByteArray &reply,
                        const QString &log) { QTest::newRow(name) << frame << reply << log; };
    const QString invalid("debug: Invalid message");
    row("17 characters", "7E000A7000140297F", QByteArray(nak), invalid);
    row("1 character", "7", QByteArray(nak), invalid);
    row("junk", "what a fine mess this is", QByteArray(nak), invalid);
    row("start mark, first", "8E000A70001402797F", QByteArray(nak), invalid);
    row("start mark, second", "7F000A70001402797F", QByteArray(nak), invalid);
    row("end mark, first", "7E000A70001402798F", QByteArray(nak), invalid);
    row("end mark, second", "7E000A70001402797E", QByteArray(nak), invalid);
    row("length too large", "7E000B70001402797F", QByteArray(nak),
        "debug: \n Invalid length, should be 10");
    row("length too small", "7E000E61431F00640003607F", QByteArray(nak),
        "debug: \n Invalid length, should be 16");
    row("length no number", "7E00xx70001402797F", QByteArray(nak),
        "debug: \n Invalid length, should be 10");
    row("checksum", "7E000A700014027A7F", QByteArray(nak),
        "debug: checksum does not match, it should be 0279");
    row("checksum no number", "7E000A70001402-97F", QByteArray(nak),
        "debug: checksum does not match, it should be 0279");
    row("data changed", "7E000E61431F006503607F", QByteArray(nak),
        "debug: checksum does not match, it should be 0361");
    row("lower-case marks", "7e000E61431F006403807f", QByteArray(ack), QString());
    row("lower-case fields", "7E000e61431f006403a07F", QByteArray(ack), QString());
    row("header check is not looked at", "7E000E6143990064035B7F", QByteArray(ack), QString());
}

void TestTestProto::damagedFrames()
{
    QFETCH(QByteArray, frame);
    QFETCH(QByteArray, reply);
    QFETCH(QString, log);

    start();
    SignalRecorder recorder(m_proto.get());
    QCOMPARE(answerTo(frame + "\r\n"), reply);
    if (log.isEmpty())
        return;
    QCOMPARE(m_log->count(log), 1);
    QCOMPARE(recorder.take(), QByteArray());
}

void TestTestProto::splitFrameIsTwoMessages()
{
    start();
    QCOMPARE(answerTo("7E000E61431"), QByteArray(nak));
    QCOMPARE(answerTo("F006403607F\r\n"), QByteArray(nak));
    QCOMPARE(m_log->count("debug: Invalid message"), 2);
}

void TestTestProto::twoFramesInOneReadAreOneMessage()
{
    start();
    QCOMPARE(answerTo("7E000A70001402797F\r\n7E000A70001402797F\r\n"), QByteArray(nak));
    QCOMPARE(m_log->count("debug: \n Invalid length, should be 30"), 1);
}

void TestTestProto::oversizedChunkIsRefused()
{
    start();
    const QByteArray junk(3000, 'x');
    m_line->send(junk);
    QTRY_COMPARE(m_line->received(), QByteArray(nak) + nak + nak);
}

void TestTestProto::ateTimerStartsWith15Seconds()
{
    start();
    const QTimer *timer = m_proto->findChild<QTimer *>();
    QVERIFY(timer->isActive());
    QVERIFY(!timer->isSingleShot());
    QCOMPARE(timer->interval(), 15000);
#if QT_VERSION >= 0x050000 // before, every timer was precise
    QCOMPARE(timer->timerType(), Qt::PreciseTimer);
#endif
    QVERIFY(m_log->has("debug: In ATE Mode --->, ATE 15 sec Timer started:"));
}

void TestTestProto::marksRestartTheAteTimer_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<int>("interval");
    QTest::newRow("good frame") << QByteArray("7E000A70001402797F") << 600000;
    QTest::newRow("wrong checksum") << QByteArray("7E000A700014FFFF7F") << 600000;
    QTest::newRow("wrong length") << QByteArray("7EFFFF70001402797F") << 600000;
    QTest::newRow("unknown type") << QByteArray("7E000A123417027F7F") << 600000;
    QTest::newRow("wrong end mark") << QByteArray("7E000A70001402797E") << 15000;
    QTest::newRow("too short") << QByteArray("7E000A7000140297F") << 15000;
}

void TestTestProto::marksRestartTheAteTimer()
{
    QFETCH(QByteArray, bytes);
    QFETCH(int, interval);
    start();
    const QTimer *timer = m_proto->findChild<QTimer *>();
    m_line->send(bytes + "\r\n");
    QTRY_VERIFY(m_log->has(QString::fromLatin1("debug: Got_newsocket: " + bytes)));
    QTRY_VERIFY(!m_line->received().isEmpty());
    QCOMPARE(timer->interval(), interval);
    QVERIFY(timer->isActive());
}

void TestTestProto::timeOutEndsAteMode()
{
    start();
    QSignalSpy exits(m_proto.get(), SIGNAL(testExit()));
    m_folder->write("/sys/class/gpio/sd_power/value", "-");
    QTimer *timer = m_proto->findChild<QTimer *>();
    timer->start(0); // as if 15 seconds had gone by
    // The power is off before the signal is emitted.
    QByteArray powerAtExit;
    onSignal(m_proto.get(), SIGNAL(testExit()), [&](const QVariant &) {
        if (powerAtExit.isEmpty())
            powerAtExit = m_folder->read("/sys/class/gpio/sd_power/value");
    });
    QVERIFY(exits.wait());
    QCOMPARE(powerAtExit, QByteArray("0"));
    // It is emitted again and again until somebody ends the tool.
    QVERIFY(timer->isActive());
    QVERIFY(exits.wait());
    timer->stop();
    QVERIFY(m_log->has("debug: \n************ ATE TEST Quit due to time out ************\n"));
    QVERIFY(m_log->has("debug: In ATE Mode --->, SD card Detection Disabled"));
    QCOMPARE(m_folder->read("/sys/class/gpio/sd_power/value"), QByteArray("0"));
    QCOMPARE(m_line->received(), QByteArray());
}

void TestTestProto::replies()
{
    start();
    m_proto->sendReady();
    m_proto->sendAck();
    m_proto->sendNak();
    m_proto->sendNA();
    m_proto->sendVersion("20140101 1.2");
    m_proto->sendReadSdCardResp("0105020100000000000000000000");
    m_proto->calibrateResult(3, QPoint(120, 4095));
    m_proto->calibrateFinished(true);
    m_proto->calibrateFinished(false);
    m_proto->tsCoords(QPoint(7, 42));
    m_proto->tsCoords(QPoint(1000, 42));
    m_proto->passthroughReply("\xE4\xFF");
    m_proto->flashStatus(2, 100);
    m_proto->flashComplete(true);
    m_proto->flashComplete(false);
    m_proto->mountComplete(true);
    m_proto->mountComplete(false);
    m_proto->sendButtons(3);
    m_proto->sendButtons(0x1FF);
    m_proto->sendVoltage("12345");
    m_proto->sendVoltage("1234567890");
    QCOMPARE(m_line->received(),
             QByteArray("7E000A99995102B77F\r\n"
                        "7E000A00043102957F\r\n"
                        "7E000A00053202977F\r\n"
                        "7E000A00033002937F\r\n"
                        "7E002C603D6E010220140101 1.2  000000000000000009467F\r\n"
                        "7E0026616213010502010000000000000000000007C07F\r\n"
                        "7E001670210D03001200409504F97F\r\n"
                        "7E000C70223A01032F7F\r\n"
                        "7E000C70223A00032E7F\r\n"
                        "7E0010703108007042039D7F\r\n"
                        "7E0011703109100004203C97F\r\n"
                        "7E000C70423C\xE4\xFF"
                        "04B57F\r\n"
                        "7E000E70513E026403A27F\r\n"
                        "7E000C70523D0103357F\r\n"
                        "7E000C70523D0003347F\r\n"
                        "7E000C70613D0103357F\r\n"
                        "7E000C70613D0003347F\r\n"
                        "7E000C70713E0303397F\r\n"
                        "7E000D70713F1FF03957F\r\n"
                        "7E001270810F0001234504347F\r\n"
                        "7E001270810F1234567804497F\r\n"));
}

void TestTestProto::repliesLeaveNothingBehind()
{
    start();
    const QByteArray hundred = QByteArray(ack).repeated(100);
#ifdef __SANITIZE_ADDRESS__
    const int hundreds = 50; // every allocation is traced
#else
    const int hundreds = 1001;
#endif
    int descriptors = 0;
    size_t allocated = 0;
    for (int i = 0; i < hundreds; ++i) {
        for (int j = 0; j < 100; ++j)
            m_proto->sendAck();
        QCOMPARE(m_line->received(), hundred);
        m_line->clear();
        if (i > 0)
            continue;
        // The first hundred allocate what the others reuse.
        descriptors = int(descriptorsOn(m_line->path()).size());
        allocated = mallinfo2().uordblks;
        QVERIFY(descriptors > 0);
    }
    QCOMPARE(int(descriptorsOn(m_line->path()).size()), descriptors);
    // Less than one byte for each reply. A sanitizer has an allocator, and a leak check,
    // of its own.
    const size_t now = mallinfo2().uordblks;
    QVERIFY2(now < allocated + 50000, qPrintable(QString::number(now - allocated)));
}

void TestTestProto::signalsLoseNoReply()
{
    start();
    catchSignal(SIGUSR1);
    // A line that takes nothing more, until its other end is read.
    const int line = open(qPrintable(m_line->path()), O_WRONLY | O_NOCTTY | O_NONBLOCK);
    QVERIFY(line >= 0);
    int filler = 0;
    while (write(line, "-", 1) == 1)
        ++filler;
    close(line);

    std::atomic<bool> returned(false);
    const pthread_t writer = pthread_self();
    const pid_t id = gettid();
    QByteArray received;
    std::thread other([&] {
        for (int i = 0; i < 3; ++i)
            interrupt(writer, id, returned);
        while (!returned)
            received = m_line->received();
    });
    m_proto->sendReady();
    returned = true;
    other.join();
    received = m_line->received();
    QCOMPARE(received.mid(filler), QByteArray("7E000A99995102B77F\r\n"));
}

void TestTestProto::missingLine()
{
    m_folder->remove("/dev/ttySP0");
    start();
    QVERIFY(m_log->has("debug: Failed to open " + m_folder->at("/dev/ttySP0")));
    QVERIFY(!m_proto->findChild<QSocketNotifier *>());
    QVERIFY(m_proto->findChild<QTimer *>()->isActive());
    m_proto->sendReady();
    QCOMPARE(m_log->count("debug: \n!!!!!!!!!! stream_pointer NULL !!!!!!!!!!!!!!\n"), 1);
    m_log->clear();
    QVERIFY(QMetaObject::invokeMethod(m_proto.get(), "read"));
    QVERIFY(m_log->lines().filter("Got_newsocket").isEmpty());
}

void TestTestProto::nothingToRead()
{
    m_folder->remove("/dev/ttySP0");
    m_folder->write("/dev/ttySP0", "");
    start();
    m_log->clear();
    QVERIFY(QMetaObject::invokeMethod(m_proto.get(), "read"));
    QVERIFY(m_log->lines().filter("Got_newsocket").isEmpty());
    QCOMPARE(m_folder->read("/dev/ttySP0"), QByteArray()); // no reply
}

void TestTestProto::hungUpLineSwitchesTheNotifierOff()
{
    start();
    const QSocketNotifier *notifier = m_proto->findChild<QSocketNotifier *>();
    QVERIFY(notifier->isEnabled());
    m_line->hangUp();
    QTRY_VERIFY(!notifier->isEnabled());
    QVERIFY(m_proto->findChild<QTimer *>()->isActive());
    m_proto->sendReady(); // lost, but no harm done
    QVERIFY(!m_log->has("debug: Invalid message"));
}

void TestTestProto::lineThatCannotBeReadSwitchesTheNotifierOff()
{
    // It always says that it is readable, and each read fails with EIO.
    m_folder->remove("/dev/ttySP0");
    m_folder->link("/dev/ttySP0", "/proc/self/mem");
    start();
    const QSocketNotifier *notifier = m_proto->findChild<QSocketNotifier *>();
    QVERIFY(notifier->isEnabled());
    QTRY_VERIFY(!notifier->isEnabled());
    QCOMPARE(m_log->count("debug: Failed to read " + m_folder->at("/dev/ttySP0") +
                          ": Input/output error"),
             1);
    QCOMPARE(m_log->count("debug: Got_newsocket: "), 1);
    QVERIFY(m_proto->findChild<QTimer *>()->isActive());
}

void TestTestProto::failedReadIsAnEmptyMessage()
{
    start();
    // So that a read finds nothing, which is a temporary failure.
    const QList<int> lines = descriptorsOn(m_line->path());
    QVERIFY(!lines.isEmpty());
    const int line = *std::max_element(lines.begin(), lines.end()); // opened last
    fcntl(line, F_SETFL, fcntl(line, F_GETFL) | O_NONBLOCK);
    m_log->clear();
    QVERIFY(QMetaObject::invokeMethod(m_proto.get(), "read"));
    QCOMPARE(m_log->count("debug: Got_newsocket: "), 1);
    QCOMPARE(m_log->lines().filter("Failed to read"), QStringList());
    QVERIFY(m_proto->findChild<QSocketNotifier *>()->isEnabled());
    QCOMPARE(answerTo("7E000E600219ABCD038D7F"), QByteArray("7E000E60033AABCD03D87F\r\n"));
}

void TestTestProto::endWithoutEndSwitchesTheNotifierOff()
{
    m_folder->remove("/dev/ttySP0");
    m_folder->link("/dev/ttySP0", "/dev/null");
    start();
    const QSocketNotifier *notifier = m_proto->findChild<QSocketNotifier *>();
    QVERIFY(notifier->isEnabled());
    QTRY_VERIFY(!notifier->isEnabled());
    QCOMPARE(m_log->count("debug: Failed to read " + m_folder->at("/dev/ttySP0") + ": end of file"),
             1);
    QCOMPARE(m_log->lines().filter("Got_newsocket"), QStringList());
}

/// Before it is made raw, a line ends once for each end-of-file character.
void TestTestProto::endsOfACookedLineDoNot()
{
    const int line = open(qPrintable(m_line->path()), O_RDWR | O_NOCTTY);
    const termios settings = cooked();
    QCOMPARE(tcsetattr(line, TCSANOW, &settings), 0);
    start();
    for (int i = 0; i < 3; ++i) {
        m_line->send(QByteArray(60, '\x04'));
        m_log->clear();
        m_line->send("\nword\n");
        QTRY_COMPARE(m_log->count("debug: Got_newsocket: word"), 1);
    }
    QVERIFY(m_proto->findChild<QSocketNotifier *>()->isEnabled());
    QCOMPARE(m_log->lines().filter("Failed to read"), QStringList());
    close(line);
}

/// They are the business of whoever sets up the board.
void TestTestProto::lineSettingsStayAsTheyAre()
{
    const int line = open(qPrintable(m_line->path()), O_RDWR | O_NOCTTY);
    const termios settings = cooked();
    QCOMPARE(tcsetattr(line, TCSANOW, &settings), 0);
    termios before;
    QCOMPARE(tcgetattr(line, &before), 0);
    start();
    m_proto->sendReady();
    termios after;
    QCOMPARE(tcgetattr(line, &after), 0);
    close(line);
    QCOMPARE(after.c_iflag, before.c_iflag);
    QCOMPARE(after.c_oflag, before.c_oflag);
    QCOMPARE(after.c_cflag, before.c_cflag);
    QCOMPARE(after.c_lflag, before.c_lflag);
    QCOMPARE(QByteArray(reinterpret_cast<const char *>(after.c_cc), NCCS),
             QByteArray(reinterpret_cast<const char *>(before.c_cc), NCCS));
}

/// The decoder of UTF-8 drops a byte order mark, and an empty name means another request.
void TestTestProto::namesKeepTheirBytes_data()
{
    QTest::addColumn<QByteArray>("frame");
    QTest::addColumn<QByteArray>("answer");
    QTest::addColumn<QByteArray>("name");
    const QByteArray mark("\xEF\xBB\xBF");
    QTest::newRow("picture, mark alone")
        << "7E000D700017" + mark + "04E87F" << QByteArray() << mark;
    QTest::newRow("picture, mark ahead")
        << "7E000F700019" + mark + "ab05AF7F" << QByteArray() << mark + "ab";
    QTest::newRow("picture, two marks")
        << "7E0012700006" + mark + mark + "ab08017F" << QByteArray() << mark + mark + "ab";
    QTest::newRow("flash, mark alone")
        << "7E000D70501C" + mark + "04F97F" << QByteArray(ack) << mark;
    QTest::newRow("flash, mark ahead")
        << "7E000F70501E" + mark + "ab05C07F" << QByteArray(ack) << mark + "ab";
}

void TestTestProto::namesKeepTheirBytes()
{
    QFETCH(QByteArray, frame);
    QFETCH(QByteArray, name);
    start();
    QString got;
    const auto take = [&](const QVariant &text) { got = text.toString(); };
    onSignal(m_proto.get(), SIGNAL(setLCDTestPattern(QString)), take);
    onSignal(m_proto.get(), SIGNAL(flashStart(bool, QString)), take);
    QTEST(answerTo(frame), "answer");
    QCOMPARE(QFile::encodeName(got), name);
}

void TestTestProto::sdPowerIsSwitchedOn()
{
    start();
    QCOMPARE(m_folder->read("/sys/class/gpio/sd_power/value"), QByteArray("1"));
    QVERIFY(m_log->has("debug: In ATE Mode --->, SD card Detection Enabled"));
}

void TestTestProto::missingSdPowerIsSilent()
{
    m_folder->remove("/sys/class/gpio/sd_power/value");
    start();
    QVERIFY(!m_folder->exists("/sys/class/gpio/sd_power/value"));
    QVERIFY(m_log->lines().filter("sd power").isEmpty());
    QVERIFY(m_log->lines().filter("SD card Detection").isEmpty());
}

void TestTestProto::unwritableSdPowerIsAWarning()
{
    m_folder->remove("/sys/class/gpio/sd_power/value");
    m_folder->makeFolder("/sys/class/gpio/sd_power/value");
    start();
    QVERIFY(m_log->has("warning: In ATE Mode-->, Failed to open sd power file for writing"));
}

void TestTestProto::sdCardComesAndGoes()
{
    start();
    QVERIFY(m_proto->sdCardMountPath().isNull());
    QVERIFY(QMetaObject::invokeMethod(m_proto.get(), "setSdCardMountPath",
                                      Q_ARG(QString, "/media/mmcblk0p1")));
    QCOMPARE(m_proto->sdCardMountPath(), QString("/media/mmcblk0p1"));
    QVERIFY(m_log->has("debug: In ATE Mode--->, SD Mount to m_sdCardMountPath=/media/mmcblk0p1"));
    QVERIFY(QMetaObject::invokeMethod(m_proto.get(), "clearSdCardMountPath",
                                      Q_ARG(QString, "/another")));
    QVERIFY(m_proto->sdCardMountPath().isNull());
    QVERIFY(m_log->has("debug: In ATE Mode--->, SD UnMount from m_sdCardMountPath=/another"));
}

MFTOOL_TEST(TestTestProto, EventLoop)
#include "tst_testproto.moc"
