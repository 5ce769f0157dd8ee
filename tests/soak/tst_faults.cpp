/// Every path and device of the board in turn is made absent, unreadable and
/// unwritable; each time the tool answers its station as it should and ends with
/// status 0. Besides, what the two lines into the tool can be put through.
#include "hardware/board.h"
#include "tests/whole/rig.h"

#include <QElapsedTimer>
#include <QMap>

#include <cerrno>
#include <functional>

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

namespace
{

const char ack[] = "0004";
const char nak[] = "0005";
const char na[] = "0003";

/// A station's round through everything that is answered at once.
struct Request {
    const char *name;
    quint16 type;
    const char *data;
    const char *answer; ///< of a board without faults, as in Outcome::line
};

const Request requests[] = {
    {"version", 0x603C, "01", "603D 010220140101 1.2  0000000000000000"},
    {"backlight", 0x6143, "0064", ack},
    {"bias", 0x6143, "0101", ack},
    {"leds", 0x6144, "00050000000000", ack},
    {"buzzer", 0x6147, "80FF", ack},
    {"home led", 0x7010, "32", ack},
    {"card", 0x6161, "010502", "6162 0105020100000000000000000000"},
    {"picture", 0x7000, "bars", ack},
    {"no picture", 0x7000, "", ack},
    {"calibrate", 0x7020, "01", ack},
    {"calibrated", 0x7020, "00", ack},
    {"touch test", 0x7030, "01", ack},
    {"touch tested", 0x7030, "00", ack},
    {"passthrough", 0x7040, "01", ack},
    {"relay", 0x7041, "AT", "line AT, 0004"},
    {"passed through", 0x7040, "00", ack},
    {"flash query", 0x7053, "", na},
    {"buttons", 0x7070, "", "7071 02"}, // the enclosure is open
    {"voltage", 0x7080, "", nullptr},   // whatever the board's supply is
    {"unknown", 0x1234, "", na},
};

/// One thing broken, and all that a station and the log may show of it.
struct Fault {
    const char *name;
    Board::Path path;
    std::function<void(VirtualKeypad &)> breakIt;
    const char *log; ///< one line, as in Outcome, that the tool must log; or null
    QMap<QByteArray, const char *> answers; ///< of those requests that are answered otherwise
    const char *logo = ack;
};

using Break = std::function<void(VirtualKeypad &)>;

QString pathOf(Board::Path which)
{
    return Board().path(which);
}

Break without(Board::Path which)
{
    return [which](VirtualKeypad &keypad) {
        const QString path = pathOf(which);
        if (path.startsWith(QLatin1String("/sys/")))
            QVERIFY2(keypad.removeNode(path), qPrintable(path));
        else
            QVERIFY2(keypad.removeFile(path), qPrintable(path));
    };
}

Break failing(Board::Path which, SysfsModel::Operation operation, int error)
{
    return [=](VirtualKeypad &keypad) { keypad.fail(pathOf(which), operation, error); };
}

/// A folder in a file's place cannot be opened, not even by root.
Break folderFor(Board::Path which)
{
    return [which](VirtualKeypad &keypad) {
        QVERIFY(keypad.removeFile(pathOf(which)));
        QVERIFY(keypad.makeDir(pathOf(which)));
    };
}

/// A link to itself: there is something, and every access fails with ELOOP.
Break loopFor(Board::Path which)
{
    return [which](VirtualKeypad &keypad) {
        QVERIFY(keypad.removeFile(pathOf(which)));
        QCOMPARE(keypad.run("ln", {"-s", pathOf(which), pathOf(which)}).code, 0);
    };
}

const char noBias[] = "debug: In ATE Mode---, could not export pin62, fro LCD Bias Power "
                      "manipulation";
const char noActiveLow[] = "debug: In ATE Mode---, could not open/write into active_low file, "
                           "for LCD Bias Power manipulation";
const char noDirection[] = "debug: In ATE Mode---, could not open/write into direction file, "
                           "for LCD Bias Power manipulation";
const char noValue[] = "debug: In ATE Mode---, could not open/write into value file, for LCD "
                       "Bias Power manipulation";
const char noTamperPolarity[] = "warning: Failed to change the tamper GPIO to active low";
const char noTamper[] = "warning: Failed to open tamper value file";
const char noPower[] = "warning: In ATE Mode-->, Failed to open sd power file for writing";
const char noBuzzer[] = "warning: Failed to open buzzer file";
const char noLed[] = "warning: Failed to open LED file";
const char noHome[] = "warning: Failed to open home file";
const char noVoltage[] = "warning: Failed to open voltage file";
const char noVersion[] = "debug: In ATE mode Could not Open Version file to read";
const char noPicture[] = "warning: Failed to open test pattern file";
const char noBacklight[] = "warning: Failed to open backlight file";
const char noRevision[] = "warning: Unable to read the board revision file";
const char noEvents[] = "warning: Failed to open /dev/input/event0";

const QMap<QByteArray, const char *> tamperUnseen = {{"buttons", "7071 00"}};
const QMap<QByteArray, const char *> voltageUnread = {{"voltage", "7081 00000000"}};
const QMap<QByteArray, const char *> versionUnread = {{"version", ""}};
const QMap<QByteArray, const char *> pictureUnread = {{"picture", nak}};

/// An attribute of /sys and what is logged when it cannot be opened.
struct Attribute {
    const char *name;
    Board::Path path;
    const char *log;
    QMap<QByteArray, const char *> unopened;  ///< answers when it cannot be opened
    QMap<QByteArray, const char *> unread;    ///< when reading fails
    QMap<QByteArray, const char *> unwritten; ///< when writing fails
    bool isMade;                              ///< comes into being only by the tool's own export
    const char *logAbsent;                    ///< where it differs from log
    const char *logUnread;
};

const Attribute attributes[] = {
    {"board revision",
     Board::BoardRevision,
     noRevision,
     {},
     {},
     {},
     false,
     "debug: No revision file found, assuming rev 1",
     "warning: Revision 0 is invalid"},
    {"backlight", Board::Backlight, noBacklight, {}, {}, {}, false, noBacklight, nullptr},
    {"gpio export",
     Board::GpioExport,
     noBias,
     tamperUnseen,
     {},
     tamperUnseen,
     false,
     noBias,
     nullptr},
    {"bias polarity", Board::BiasActiveLow, noActiveLow, {}, {}, {}, true, noActiveLow, nullptr},
    {"bias direction", Board::BiasDirection, noDirection, {}, {}, {}, true, noDirection, nullptr},
    {"bias value", Board::BiasValue, noValue, {}, {}, {}, true, noValue, nullptr},
    {"tamper polarity",
     Board::TamperActiveLow,
     noTamperPolarity,
     tamperUnseen,
     {},
     tamperUnseen,
     true,
     noTamperPolarity,
     nullptr},
    {"tamper value",
     Board::TamperValue,
     noTamper,
     tamperUnseen,
     tamperUnseen,
     {},
     true,
     noTamper,
     nullptr},
    {"card power", Board::SdPowerValue, noPower, {}, {}, {}, false, nullptr, nullptr},
    {"buzzer", Board::Buzzer, noBuzzer, {}, {}, {}, false, noBuzzer, nullptr},
    {"home led", Board::HomeLed, noHome, {}, {}, {}, false, noHome, nullptr},
    {"voltage",
     Board::BusVoltage,
     noVoltage,
     voltageUnread,
     voltageUnread,
     {},
     false,
     noVoltage,
     nullptr},
};

const int errors[] = {EIO, EACCES, ENOSPC, EINVAL};

QList<Fault> faultsOf(const Attribute &attribute)
{
    QList<Fault> faults;
    const auto add = [&](const char *how, const Break &breakIt, const char *log,
                         const QMap<QByteArray, const char *> &answers) {
        faults.append({how, attribute.path, breakIt, log, answers});
    };
    if (attribute.isMade)
        add("absent", failing(attribute.path, SysfsModel::Open, ENOENT), attribute.log,
            attribute.unopened);
    else
        add("absent", without(attribute.path), attribute.logAbsent, attribute.unopened);
    static const char *const how[3][4] = {
        {"open EIO", "open EACCES", "open ENOSPC", "open EINVAL"},
        {"read EIO", "read EACCES", "read ENOSPC", "read EINVAL"},
        {"write EIO", "write EACCES", "write ENOSPC", "write EINVAL"}};
    for (int i = 0; i < 4; ++i) {
        add(how[0][i], failing(attribute.path, SysfsModel::Open, errors[i]), attribute.log,
            attribute.unopened);
        add(how[1][i], failing(attribute.path, SysfsModel::Read, errors[i]), attribute.logUnread,
            attribute.unread);
        add(how[2][i], failing(attribute.path, SysfsModel::Write, errors[i]), nullptr,
            attribute.unwritten);
    }
    return faults;
}

QList<Fault> faultsOfFiles()
{
    return {
        {"leds, absent", Board::Leds, without(Board::Leds), noLed, {}},
        {"events, absent", Board::HomeKeyEvents, without(Board::HomeKeyEvents), noEvents, {}},
        {"events, a folder", Board::HomeKeyEvents, folderFor(Board::HomeKeyEvents), noEvents, {}},
        {"events, a loop", Board::HomeKeyEvents, loopFor(Board::HomeKeyEvents), noEvents, {}},
        {"card pipe, a folder",
         Board::SdEvents,
         folderFor(Board::SdEvents),
         "warning: In ATE Mode--->,Failed to open pipe",
         {}},
        {"card pipe, a loop",
         Board::SdEvents,
         loopFor(Board::SdEvents),
         "warning: In ATE Mode--->, No SD monitoring available",
         {}},
        {"version, absent", Board::Version, without(Board::Version), noVersion, versionUnread},
        {"version, a folder", Board::Version, folderFor(Board::Version), noVersion, versionUnread},
        {"version, a loop", Board::Version, loopFor(Board::Version), noVersion, versionUnread},
        {"pictures, absent", Board::TestImages, without(Board::TestImages), noPicture,
         pictureUnread, nak},
        {"pictures, a loop", Board::TestImages, loopFor(Board::TestImages), noPicture,
         pictureUnread, nak},
    };
}

/// A flash and a mount, where their folders are what is broken.
struct Programs {
    const char *name;
    Break breakIt;
    const char *flashed; ///< data of the flash's reply
    const char *mounted;
    const char *version; ///< asked for behind the mount
};

QString joined(const Outcome &outcome)
{
    return outcome.line.join(QLatin1String(", "));
}

} // namespace

class tst_Faults : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void path_data();
    void path();
    void everyPathHasItsTurn();
    void programs_data();
    void programs();
    void noLine();
    void flood();
    void pipeWriterThatNeverCloses();
    void pipeWriterThatNeverEndsItsLine();

private:
    void end(Rig *rig);

    QList<Fault> m_faults;
    QList<Programs> m_programs;
};

void tst_Faults::initTestCase()
{
    SKIP_UNLESS_KEYPADS_RUN();
}

void tst_Faults::path_data()
{
    QTest::addColumn<int>("index");
    m_faults.clear();
    QStringList names;
    for (const Attribute &attribute : attributes) {
        const QList<Fault> faults = faultsOf(attribute);
        for (const Fault &fault : faults) {
            m_faults.append(fault);
            names.append(QLatin1String(attribute.name) + QLatin1String(", ") +
                         QLatin1String(fault.name));
        }
    }
    const QList<Fault> files = faultsOfFiles();
    for (const Fault &fault : files) {
        m_faults.append(fault);
        names.append(QLatin1String(fault.name));
    }
    for (int i = 0; i < m_faults.size(); ++i)
        QTest::newRow(qPrintable(names.at(i))) << i;
}

void tst_Faults::path()
{
    QFETCH(int, index);
    const Fault &fault = m_faults.at(index);
    Rig rig;
    QVERIFY2(rig.keypad.prepare(), qPrintable(rig.keypad.errorString()));
    rig.keypad.setTamper(true);
    fault.breakIt(rig.keypad);
    if (QTest::currentTestFailed())
        return;
    QVERIFY2(rig.start(), qPrintable(rig.why()));
    QCOMPARE(rig.next(60000), QString::fromLatin1(fault.logo));
    QCOMPARE(rig.next(60000), QStringLiteral("9999"));

    QStringList logged = rig.settle().log; // all of it, however late it came
    for (const Request &request : requests) {
        const Outcome outcome = rig.request(request.type, request.data);
        logged += outcome.log;
        const char *expected = fault.answers.value(request.name, request.answer);
        if (expected)
            QVERIFY2(joined(outcome) == QLatin1String(expected),
                     qPrintable(QStringLiteral("%1: %2 instead of %3")
                                    .arg(request.name, joined(outcome), expected)));
    }
    if (fault.log)
        QVERIFY2(logged.contains(QString::fromLatin1(fault.log)), qPrintable(logged.join('\n')));
    end(&rig);
}

void tst_Faults::end(Rig *rig)
{
    QVERIFY(rig->station.send(wire::ExitRequest));
    QCOMPARE(rig->next(60000), QString::fromLatin1(ack));
    QVERIFY(rig->keypad.waitForExit(60000));
    QCOMPARE(rig->keypad.exitStatus().signal, 0);
    QCOMPARE(rig->keypad.exitStatus().code, 0);
}

/// A path that is added to the board must be added here.
void tst_Faults::everyPathHasItsTurn()
{
    QList<int> seen = {Board::TestLine, Board::MountedVersion, Board::UpdateBase, Board::MountedEtc,
                       Board::MountedPointercal};
    for (const Fault &fault : qAsConst(m_faults))
        seen.append(fault.path);
    for (int path = 0; !pathOf(Board::Path(path)).isEmpty(); ++path)
        QVERIFY2(seen.contains(path), qPrintable(pathOf(Board::Path(path))));
}

void tst_Faults::programs_data()
{
    static const char newVersion[] = "603D 020720140202 2.7  0000000000000000";
    static const char oldVersion[] = "603D 010220140101 1.2  0000000000000000";
    QTest::addColumn<int>("index");
    m_programs = {
        {"nothing", [](VirtualKeypad &) {}, "01", "01", newVersion},
        {"no update folder",
         [](VirtualKeypad &keypad) { QVERIFY(keypad.removeFile("/boot/fw-1.2")); }, "00", "01",
         newVersion},
        {"update folder is a file",
         [](VirtualKeypad &keypad) {
             QVERIFY(keypad.removeFile("/boot/fw-1.2"));
             QVERIFY(keypad.writeFile("/boot/fw-1.2", "x"));
         },
         "00", "01", newVersion},
        {"mounted file system without /etc",
         [](VirtualKeypad &keypad) {
             QCOMPARE(keypad.run("ln", {"-s", "/nowhere", "/mnt/etc"}).code, 0);
             QVERIFY(keypad.setStandin("mount", "good"));
         },
         "01", "00", oldVersion},
        {"mounted file system without version",
         [](VirtualKeypad &keypad) {
             // What is there already the program cannot make.
             QVERIFY(keypad.makeDir("/mnt/usr/lib/panel/version"));
         },
         "01", "01", ""},
        {"calibration file is a folder",
         [](VirtualKeypad &keypad) {
             QVERIFY(keypad.makeDir("/mnt/etc/pointercal"));
             QVERIFY(keypad.setStandin("mount", "good"));
         },
         "01", "01", newVersion},
    };
    for (int i = 0; i < m_programs.size(); ++i)
        QTest::newRow(m_programs.at(i).name) << i;
}

void tst_Faults::programs()
{
    QFETCH(int, index);
    const Programs &row = m_programs.at(index);
    Rig rig;
    QVERIFY2(rig.keypad.prepare(), qPrintable(rig.keypad.errorString()));
    row.breakIt(rig.keypad);
    if (QTest::currentTestFailed())
        return;
    QVERIFY2(rig.startReady(), qPrintable(rig.why()));

    const Station::Answer flashed = rig.station.request(wire::FlashRequest, "", 60000, 60000);
    QVERIFY2(flashed.acked, qPrintable(flashed.error));
    QCOMPARE(flashed.data(wire::FlashComplete), QByteArray(row.flashed));
    const Station::Answer mounted = rig.station.request(wire::MountRequest, "", 60000, 60000);
    QVERIFY2(mounted.acked, qPrintable(mounted.error));
    QCOMPARE(mounted.data(wire::MountReply), QByteArray(row.mounted));
    QCOMPARE(joined(rig.request(wire::VersionRequest, "01")), QString::fromLatin1(row.version));
    QCOMPARE(joined(rig.request(wire::CalibrateRequest, "01")), QString::fromLatin1(ack));
    QCOMPARE(joined(rig.request(wire::CalibrateRequest, "00")), QString::fromLatin1(ack));
    end(&rig);
}

/// Nobody can be answered; the tool must end by itself.
void tst_Faults::noLine()
{
    if (!ToolClock::whyNot().isEmpty())
        QSKIP(qPrintable(ToolClock::whyNot()));
    KeypadOptions options;
    options.without.append(pathOf(Board::TestLine));
    ToolClock clock;
    clock.wind(options);
    VirtualKeypad keypad(options);
    QVERIFY2(keypad.start(), qPrintable(keypad.errorString()));
    QVERIFY(keypad.waitForLog("Failed to open /dev/ttySP0", 60000));
    QVERIFY(keypad.waitForLog("Failed to open QB740 serial port", 60000));
    QVERIFY(keypad.waitForLog("!!!!!!!!!! stream_pointer NULL !!!!!!!!!!!!!!", 60000));
    QVERIFY(clock.set(16));
    keypad.pressHome(); // wakes it
    QVERIFY(keypad.waitForExit(60000));
    QCOMPARE(keypad.exitStatus().signal, 0);
    QCOMPARE(keypad.exitStatus().code, 0);
}

/// A station that sends without listening, a megabyte and more.
void tst_Faults::flood()
{
    Rig rig;
    QVERIFY2(rig.startReady(), qPrintable(rig.why()));
    const int line = rig.keypad.lineFd();
    const QByteArray request("7E000A70701B028E7F\r\n");
    char answers[65536];
    qint64 sent = 0;
    QElapsedTimer timer;
    for (timer.start(); sent < 1000000 && timer.elapsed() < 60000;) {
        pollfd both = {line, POLLIN | POLLOUT, 0};
        poll(&both, 1, 1000);
        // Thrown away: a line whose answers nobody takes would stand still.
        if ((both.revents & POLLIN) != 0 && read(line, answers, sizeof(answers)) < 0)
            break;
        if ((both.revents & POLLOUT) == 0)
            continue;
        const ssize_t size = write(line, request.constData(), size_t(request.size()));
        sent += size > 0 ? size : 0;
        rig.keypad.clearLog();
    }
    QVERIFY(sent >= 1000000);

    // Afterwards it answers as ever. The last chunks and their answers are still under
    // way; each echo has a number, so that none of them passes for a later one's.
    QByteArray asked;
    QByteArray answered("none");
    for (int i = 0; i < 100 && answered != asked; ++i) {
        asked = "still here " + QByteArray::number(i);
        answered = rig.station.request(wire::EchoRequest, asked, 2000).data(wire::EchoReply);
    }
    QCOMPARE(answered, asked);
    rig.station.clear();
    end(&rig);
}

void tst_Faults::pipeWriterThatNeverCloses()
{
    Rig rig;
    QVERIFY2(rig.start(), qPrintable(rig.why()));
    QVERIFY(rig.keypad.waitForLog("Waiting for SD event", 60000));
    QVERIFY(rig.station.waitForReady(60000));
    QVERIFY(rig.keypad.setCard(VirtualKeypad::Writable));
    const int writer = rig.keypad.openFile(pathOf(Board::SdEvents), O_WRONLY);
    QVERIFY(writer >= 0);
    const QByteArray line("#/media/mmcblk0p1\n");
    QCOMPARE(write(writer, line.constData(), size_t(line.size())), ssize_t(line.size()));
    QVERIFY(rig.keypad.waitForLog("SD Mount to m_sdCardMountPath=/media/mmcblk0p1", 20000));
    const Outcome card = rig.request(wire::SdReadRequest, "010502");
    QCOMPARE(card.line.size(), 1);
    QVERIFY2(card.line.first().startsWith("6162 01050200"), qPrintable(joined(card)));
    end(&rig);
    close(writer);
}

void tst_Faults::pipeWriterThatNeverEndsItsLine()
{
    Rig rig;
    QVERIFY2(rig.start(), qPrintable(rig.why()));
    QVERIFY(rig.keypad.waitForLog("Waiting for SD event", 60000));
    QVERIFY(rig.station.waitForReady(60000));
    const int writer = rig.keypad.openFile(pathOf(Board::SdEvents), O_WRONLY);
    QVERIFY(writer >= 0);
    QCOMPARE(write(writer, "#/half", 6), ssize_t(6));
    QVERIFY(rig.keypad.waitForLog("Received SD event", 20000));
    QCOMPARE(joined(rig.request(wire::SdReadRequest, "010502")),
             QStringLiteral("6162 0105020100000000000000000000"));
    end(&rig);
    close(writer);
}

QTEST_GUILESS_MAIN(tst_Faults)
#include "tst_faults.moc"
