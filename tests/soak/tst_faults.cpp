/// Every path and device of the board in turn is made absent, unreadable and unwritable;
/// each time the tool answers its station as it should and ends with status 0. Also, what
/// the line and the card's pipe can do to it.
#include "hardware/board.h"
#include "tests/support/requests.h"
#include "tests/support/testprogram.h"
#include "tests/whole/rig.h"

#include <QElapsedTimer>
#include <QMap>

#include <algorithm>
#include <cerrno>
#include <functional>

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

namespace
{

const char ack[] = "0004";
const char nak[] = "0005";
const char housingOpen[] = "7071 02";

/// The replies that differ from the usual ones, by the name of the request.
using Answers = QMap<QByteArray, const char *>;

/// One thing broken, and all that a station and the log may show of it.
struct Fault {
    QString name;
    QString path;
    std::function<void(VirtualKeypad &)> breakIt;
    /// One line, as in Outcome, that the tool must log; null when it must not complain.
    const char *log;
    Answers answers; ///< of those requests that are answered otherwise
    const char *logo = ack;
};

using Break = std::function<void(VirtualKeypad &)>;

QString pathOf(Board::Path which)
{
    return Board().path(which);
}

Break without(const QString &path)
{
    return [path](VirtualKeypad &keypad) {
        if (path.startsWith(QLatin1String("/sys/")))
            QVERIFY2(keypad.removeNode(path), qPrintable(path));
        else
            QVERIFY2(keypad.removeFile(path), qPrintable(path));
    };
}

Break failing(const QString &path, SysfsModel::Operation operation, int error)
{
    return [=](VirtualKeypad &keypad) { keypad.fail(path, operation, error); };
}

/// A folder in a file's place cannot be opened, not even by root.
Break folderFor(const QString &path)
{
    return [path](VirtualKeypad &keypad) {
        QVERIFY(keypad.removeFile(path));
        QVERIFY(keypad.makeDir(path));
    };
}

/// A link to itself: there is something, and every access fails with ELOOP.
Break loopFor(const QString &path)
{
    return [path](VirtualKeypad &keypad) {
        QVERIFY(keypad.removeFile(path));
        QCOMPARE(keypad.run("ln", {"-s", path, path}).code, 0);
    };
}

/// What the tool says about anything that it cannot open, read or write.
bool isComplaint(const QString &line)
{
    return line.contains(QLatin1String("failed to"), Qt::CaseInsensitive) ||
           line.contains(QLatin1String("could not"), Qt::CaseInsensitive) ||
           line.contains(QLatin1String("unable to"), Qt::CaseInsensitive) ||
           line.contains(QLatin1String("invalid"), Qt::CaseInsensitive);
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

const Answers tamperUnseen = {{"7070", "7071 00"}};
const Answers voltageUnread = {{"7080", "7081 00000000"}};
const Answers versionUnread = {{"603c 01", ""}};
const Answers pictureUnread = {{"7000 bars", nak}};

/// An attribute of /sys, what is logged and what is answered otherwise when it is broken.
struct Attribute {
    Attribute(const char *attribute, const QString &where, const char *complaint)
        : name(attribute), path(where), log(complaint), logAbsent(complaint)
    {
    }
    /// One that comes into being only by the tool's own export.
    Attribute &made()
    {
        isMade = true;
        return *this;
    }
    Attribute &answers(const Answers &whenUnopened, const Answers &whenUnread,
                       const Answers &whenUnwritten)
    {
        unopened = whenUnopened;
        unread = whenUnread;
        unwritten = whenUnwritten;
        return *this;
    }
    Attribute &logs(const char *whenAbsent, const char *whenUnread, const char *whenUnwritten)
    {
        logAbsent = whenAbsent;
        logUnread = whenUnread;
        logUnwritten = whenUnwritten;
        return *this;
    }

    const char *name;
    QString path;
    const char *log; ///< when it cannot be opened
    Answers unopened;
    Answers unread;
    Answers unwritten;
    bool isMade = false;
    const char *logAbsent;
    const char *logUnread = nullptr;
    const char *logUnwritten = nullptr;
};

const Attribute attributes[] = {
    Attribute("board revision", pathOf(Board::BoardRevision), noRevision)
        .logs("debug: No revision file found, assuming rev 1", "warning: Revision 0 is invalid",
              nullptr),
    Attribute("backlight", pathOf(Board::Backlight), noBacklight),
    Attribute("gpio export", pathOf(Board::GpioExport), noBias)
        .answers(tamperUnseen, {}, tamperUnseen)
        .logs(noBias, nullptr, noActiveLow),
    Attribute("bias polarity", pathOf(Board::BiasActiveLow), noActiveLow).made(),
    Attribute("bias direction", pathOf(Board::BiasDirection), noDirection).made(),
    Attribute("bias value", pathOf(Board::BiasValue), noValue).made(),
    Attribute("tamper polarity", pathOf(Board::TamperActiveLow), noTamperPolarity)
        .made()
        .answers(tamperUnseen, {}, tamperUnseen),
    Attribute("tamper value", pathOf(Board::TamperValue), noTamper)
        .made()
        .answers(tamperUnseen, tamperUnseen, {}),
    Attribute("card power", pathOf(Board::SdPowerValue), noPower).logs(nullptr, nullptr, nullptr),
    Attribute("buzzer", pathOf(Board::Buzzer), noBuzzer),
    Attribute("home led", pathOf(Board::HomeLed), noHome),
    Attribute("voltage", pathOf(Board::BusVoltage), noVoltage)
        .answers(voltageUnread, voltageUnread, {}),
    Attribute("ready", Board().ledBrightness("ready"), noLed),
    Attribute("armed", Board().ledBrightness("armed"), noLed),
    Attribute("trouble", Board().ledBrightness("trouble"), noLed),
    Attribute("ac", Board().ledBrightness("ac"), noLed),
};

const struct {
    int number;
    const char *name;
} errors[] = {{EIO, "EIO"}, {EACCES, "EACCES"}, {ENOSPC, "ENOSPC"}, {EINVAL, "EINVAL"}};

QList<Fault> faultsOf(const Attribute &attribute)
{
    QList<Fault> faults;
    const auto add = [&](const QByteArray &how, const Break &breakIt, const char *log,
                         const Answers &answers) {
        const QString name = QLatin1String(attribute.name) + QLatin1String(", ");
        faults.append({name + QString::fromLatin1(how), attribute.path, breakIt, log, answers});
    };
    if (attribute.isMade)
        add("absent", failing(attribute.path, SysfsModel::Open, ENOENT), attribute.log,
            attribute.unopened);
    else
        add("absent", without(attribute.path), attribute.logAbsent, attribute.unopened);
    for (const auto &error : errors) {
        const auto how = [&error](const char *what) { return QByteArray(what) + error.name; };
        add(how("open "), failing(attribute.path, SysfsModel::Open, error.number), attribute.log,
            attribute.unopened);
        add(how("read "), failing(attribute.path, SysfsModel::Read, error.number),
            attribute.logUnread, attribute.unread);
        add(how("write "), failing(attribute.path, SysfsModel::Write, error.number),
            attribute.logUnwritten, attribute.unwritten);
    }
    return faults;
}

QList<Fault> faultsOfFiles()
{
    QList<Fault> faults;
    const auto add = [&faults](const char *name, Board::Path which,
                               Break (*breakIt)(const QString &), const char *log,
                               const Answers &answers = Answers(), const char *logo = ack) {
        const QString path = pathOf(which);
        faults.append({QLatin1String(name), path, breakIt(path), log, answers, logo});
    };
    add("leds, absent", Board::Leds, without, noLed);
    add("events, absent", Board::HomeKeyEvents, without, noEvents);
    add("events, a folder", Board::HomeKeyEvents, folderFor, noEvents);
    add("events, a loop", Board::HomeKeyEvents, loopFor, noEvents);
    add("card pipe, a folder", Board::SdEvents, folderFor,
        "warning: In ATE Mode--->,Failed to open pipe");
    add("card pipe, a loop", Board::SdEvents, loopFor,
        "warning: In ATE Mode--->, No SD monitoring available");
    add("version, absent", Board::Version, without, noVersion, versionUnread);
    add("version, a folder", Board::Version, folderFor, noVersion, versionUnread);
    add("version, a loop", Board::Version, loopFor, noVersion, versionUnread);
    add("pictures, absent", Board::TestImages, without, noPicture, pictureUnread, nak);
    add("pictures, a loop", Board::TestImages, loopFor, noPicture, pictureUnread, nak);
    return faults;
}

/// Of everything that the tool opens by itself, except for the line.
QList<Fault> allFaults()
{
    QList<Fault> faults;
    for (const Attribute &attribute : attributes)
        faults += faultsOf(attribute);
    return faults + faultsOfFiles();
}

/// Ways in which the line cannot be opened.
struct LineFault {
    const char *name;
    QString path;
    Break breakIt;
};

QList<LineFault> lineFaults()
{
    const QString line = pathOf(Board::TestLine);
    return {
        {"absent", line, without(line)},
        {"a folder", line, folderFor(line)},
        {"a loop", line, loopFor(line)},
    };
}

/// A flash and a mount whose folders are broken.
struct Programs {
    const char *name;
    QString path; ///< of the board that is broken, empty when nothing is
    Break breakIt;
    const char *flashed; ///< data of the flash's reply
    const char *mounted;
    const char *version; ///< asked for after the mount
};

QList<Programs> programFaults()
{
    static const char newVersion[] = "603D 020720140202 2.7  0000000000000000";
    static const char oldVersion[] = "603D 010220140101 1.2  0000000000000000";
    const QString updates = pathOf(Board::UpdateBase);
    return {
        {"nothing", QString(), [](VirtualKeypad &) {}, "01", "01", newVersion},
        {"no folder of update folders", updates, without(updates), "00", "01", newVersion},
        {"folder of update folders is a loop", updates, loopFor(updates), "00", "01", newVersion},
        {"no update folder", QString(),
         [](VirtualKeypad &keypad) { QVERIFY(keypad.removeFile("/boot/fw-1.2")); }, "00", "01",
         newVersion},
        {"update folder is a file", QString(),
         [](VirtualKeypad &keypad) {
             QVERIFY(keypad.removeFile("/boot/fw-1.2"));
             QVERIFY(keypad.writeFile("/boot/fw-1.2", "x"));
         },
         "00", "01", newVersion},
        {"mounted file system without /etc", pathOf(Board::MountedEtc),
         [](VirtualKeypad &keypad) {
             QCOMPARE(keypad.run("ln", {"-s", "/nowhere", "/mnt/etc"}).code, 0);
             QVERIFY(keypad.setStandin("mount", "good"));
         },
         "01", "00", oldVersion},
        {"mounted file system without version", pathOf(Board::MountedVersion),
         [](VirtualKeypad &keypad) {
             // The program cannot make what is already there.
             QVERIFY(keypad.makeDir("/mnt/usr/lib/panel/version"));
         },
         "01", "01", ""},
        {"calibration file is a folder", pathOf(Board::MountedPointercal),
         [](VirtualKeypad &keypad) {
             QVERIFY(keypad.makeDir("/mnt/etc/pointercal"));
             QVERIFY(keypad.setStandin("mount", "good"));
         },
         "01", "01", newVersion},
    };
}

QString joined(const Outcome &outcome)
{
    return outcome.line.join(QLatin1String(", "));
}

} // namespace

class TestFaults : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void path_data();
    void path();
    void everyPathHasItsTurn();
    void programs_data();
    void programs();
    void noLine_data();
    void noLine();
    void flood();
    void pipeWriterThatNeverCloses();
    void pipeWriterThatNeverEndsItsLine();

private:
    void end(Rig *rig);

    QList<Fault> m_faults;
    QList<Programs> m_programs;
    QList<LineFault> m_lines;
};

void TestFaults::initTestCase()
{
    SKIP_UNLESS_KEYPADS_RUN();
}

void TestFaults::path_data()
{
    m_faults = allFaults();
    QTest::addColumn<int>("index");
    for (int i = 0; i < m_faults.size(); ++i)
        QTest::newRow(qPrintable(m_faults.at(i).name)) << i;
}

void TestFaults::path()
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
    QCOMPARE(rig.next(), QString::fromLatin1(fault.logo));
    QCOMPARE(rig.next(), QStringLiteral("9999"));

    const QList<SampleRequest> requests = harmlessRequests();
    for (const SampleRequest &request : requests) {
        if (qstrcmp(request.replies, nak) == 0)
            continue; // opens nothing, or is a complaint of its own
        const Outcome outcome = rig.request(request.type, request.data);
        const char *right = request.name() == "7070" ? housingOpen : request.replies;
        const char *expected = fault.answers.value(request.name(), right);
        QVERIFY2(joined(outcome) == QLatin1String(expected),
                 qPrintable(QStringLiteral("%1: %2 instead of %3")
                                .arg(request.name(), joined(outcome), expected)));
    }
    // The thread that watches the card complains when it gets to it.
    const QString complaint = QString::fromLatin1(fault.log);
    const bool isSaid =
        !fault.log || Patience::waitUntil([&] { return rig.wholeLog().contains(complaint); });
    const QStringList log = rig.wholeLog();
    QVERIFY2(isSaid, qPrintable(log.join('\n')));
    if (!fault.log)
        QVERIFY2(std::none_of(log.cbegin(), log.cend(), isComplaint), qPrintable(log.join('\n')));
    end(&rig);
}

void TestFaults::end(Rig *rig)
{
    QVERIFY(rig->station.send(wire::ExitRequest));
    QCOMPARE(rig->next(), QString::fromLatin1(ack));
    QVERIFY(rig->keypad.waitForExit());
    QCOMPARE(rig->keypad.exitStatus().signal, 0);
    QCOMPARE(rig->keypad.exitStatus().code, 0);
}

/// A path that is added to the board must be added here.
void TestFaults::everyPathHasItsTurn()
{
    QStringList seen;
    const QList<Fault> faults = allFaults();
    for (const Fault &fault : faults)
        seen.append(fault.path);
    const QList<Programs> programs = programFaults();
    for (const Programs &row : programs)
        seen.append(row.path);
    const QList<LineFault> lines = lineFaults();
    for (const LineFault &row : lines)
        seen.append(row.path);
    for (int path = 0; !pathOf(Board::Path(path)).isEmpty(); ++path)
        QVERIFY2(seen.contains(pathOf(Board::Path(path))), qPrintable(pathOf(Board::Path(path))));
}

void TestFaults::programs_data()
{
    m_programs = programFaults();
    QTest::addColumn<int>("index");
    for (int i = 0; i < m_programs.size(); ++i)
        QTest::newRow(m_programs.at(i).name) << i;
}

void TestFaults::programs()
{
    QFETCH(int, index);
    const Programs &row = m_programs.at(index);
    Rig rig;
    QVERIFY2(rig.keypad.prepare(), qPrintable(rig.keypad.errorString()));
    row.breakIt(rig.keypad);
    if (QTest::currentTestFailed())
        return;
    QVERIFY2(rig.startReady(), qPrintable(rig.why()));

    QVERIFY(rig.station.send(wire::FlashRequest));
    QCOMPARE(rig.next(), QString::fromLatin1(ack));
    QCOMPARE(rig.next(), QLatin1String("7052 ") + QLatin1String(row.flashed));
    QVERIFY(rig.station.send(wire::MountRequest));
    QCOMPARE(rig.next(), QString::fromLatin1(ack));
    QCOMPARE(rig.next(Patience::mountPause), QLatin1String("7061 ") + QLatin1String(row.mounted));
    QCOMPARE(joined(rig.request(wire::VersionRequest, "01")), QString::fromLatin1(row.version));
    QCOMPARE(joined(rig.request(wire::CalibrateRequest, "01")), QString::fromLatin1(ack));
    QCOMPARE(joined(rig.request(wire::CalibrateRequest, "00")), QString::fromLatin1(ack));
    end(&rig);
}

void TestFaults::noLine_data()
{
    m_lines = lineFaults();
    QTest::addColumn<int>("index");
    for (int i = 0; i < m_lines.size(); ++i)
        QTest::newRow(m_lines.at(i).name) << i;
}

/// Nobody can be answered; the tool must end by itself.
void TestFaults::noLine()
{
    QFETCH(int, index);
    SKIP_UNLESS_CLOCKS_MOVE();
    KeypadOptions options;
    ToolClock clock;
    clock.wind(options);
    RigKeypad keypad(options);
    QVERIFY2(keypad.prepare(), qPrintable(keypad.errorString()));
    m_lines.at(index).breakIt(keypad);
    if (QTest::currentTestFailed())
        return;
    QVERIFY2(keypad.start(), qPrintable(keypad.errorString()));
    QVERIFY(keypad.waitForLog("Failed to open /dev/ttySP0"));
    QVERIFY(keypad.waitForLog("Failed to open QB740 serial port"));
    QVERIFY(keypad.waitForLog("!!!!!!!!!! stream_pointer NULL !!!!!!!!!!!!!!"));
    QVERIFY(clock.set(16));
    keypad.pressHome(); // wakes it
    QVERIFY(keypad.waitForExit());
    QCOMPARE(keypad.exitStatus().signal, 0);
    QCOMPARE(keypad.exitStatus().code, 0);
}

/// A station that sends without listening, a megabyte and more.
void TestFaults::flood()
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
        // Thrown away: the line would stop if nobody read the answers.
        if ((both.revents & POLLIN) != 0 && read(line, answers, sizeof(answers)) < 0)
            break;
        if ((both.revents & POLLOUT) == 0)
            continue;
        const ssize_t size = write(line, request.constData(), size_t(request.size()));
        sent += size > 0 ? size : 0;
        rig.keypad.clearLog();
    }
    QVERIFY(sent >= 1000000);

    // Afterwards it answers as ever. The last chunks and their answers are still on their
    // way; each echo has a number, so that none is taken for a later one.
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

void TestFaults::pipeWriterThatNeverCloses()
{
    Rig rig;
    QVERIFY2(rig.start(), qPrintable(rig.why()));
    QVERIFY(rig.keypad.waitForLog("Waiting for SD event"));
    QVERIFY(rig.station.waitForReady());
    QVERIFY(rig.keypad.setCard(VirtualKeypad::Writable));
    const int writer = rig.keypad.openFile(pathOf(Board::SdEvents), O_WRONLY);
    QVERIFY(writer >= 0);
    const QByteArray line("#/media/mmcblk0p1\n");
    QCOMPARE(write(writer, line.constData(), size_t(line.size())), ssize_t(line.size()));
    QVERIFY(rig.keypad.waitForLog("SD Mount to m_sdCardMountPath=/media/mmcblk0p1"));
    const Outcome card = rig.request(wire::SdReadRequest, "010502");
    QCOMPARE(card.line.size(), 1);
    QVERIFY2(card.line.first().startsWith("6162 01050200"), qPrintable(joined(card)));
    end(&rig);
    close(writer);
}

void TestFaults::pipeWriterThatNeverEndsItsLine()
{
    Rig rig;
    QVERIFY2(rig.start(), qPrintable(rig.why()));
    QVERIFY(rig.keypad.waitForLog("Waiting for SD event"));
    QVERIFY(rig.station.waitForReady());
    const int writer = rig.keypad.openFile(pathOf(Board::SdEvents), O_WRONLY);
    QVERIFY(writer >= 0);
    QCOMPARE(write(writer, "#/half", 6), ssize_t(6));
    QVERIFY(rig.keypad.waitForLog("Received SD event"));
    QCOMPARE(joined(rig.request(wire::SdReadRequest, "010502")),
             QStringLiteral("6162 0105020100000000000000000000"));
    end(&rig);
    close(writer);
}

MFTOOL_TEST(TestFaults, EventLoop)
#include "tst_faults.moc"
