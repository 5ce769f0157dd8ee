#include "bench/keypad/virtualkeypad.h"

#include <QtTest>

#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <poll.h>
#include <sys/resource.h>
#include <termios.h>
#include <unistd.h>

#include "tests/support/processes.h"
#include "tests/support/testprogram.h"

class TestVirtualKeypad : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void boardsPlaces();
    void changesStayInTheKeypad();
    void etcFilesCanBeReplaced();
    void writtenProgramRunsAtOnce();
    void pcIsStillThere();
    void toolInAHiddenPlace();
    void toolAboveAVisibleFolder();
    void toolInAPlaceThatIsLeftOut();
    void leftOut();
    void exitStatusAndSignals();
    void runsAgain();
    void toolThatIsNotThere();
    void environmentIsTheBenchs();
    void workingDirectoryAndLimits();
    void toolPidIsTheCallers();
    void toolInheritsNoFiles();
    void logHasSeverityAndWholeTexts();
    void logOfATalkativeToolIsComplete();
    void lineIsRawBeforeTheTool();
    void lineCarriesAllBytes();
    void lineIsNobodysTerminal();
    void lineByPath();
    void unreadLineDoesNotStopTheTool();
    void hangUp();
    void homeKeyRecords();
    void eventDeviceNeverBlocks();
    void sdPipe();
    void sdPipeOneLineAnOpening();
    void sdPipeNobodyReads();
    void cards();
    void filesOnACardStay();
    void pcsFilesAreNotRemoved();
    void tamper();
    void files();
    void fasterTime();
    void wrapper();
    void twoKeypads();
    void nothingRemainsAfterStop();
    void waitsWithoutAnEventLoopAndSignalsWithOne();

private:
    static QString makeTool(const QString &folder);
    static KeypadOptions shell(const QString &script);
    static QByteArray readLine(int fd, int size);
};

namespace
{

const char ready[] = "/sys/class/leds/ready/brightness";

} // namespace

KeypadOptions TestVirtualKeypad::shell(const QString &script)
{
    KeypadOptions options;
    options.tool = QStringLiteral("/bin/sh");
    options.arguments = QStringList({"-c", script});
    options.environment.insert("PATH", "/usr/bin:/bin");
    return options;
}

/// Exactly @p size bytes, or fewer when they do not come.
QByteArray TestVirtualKeypad::readLine(int fd, int size)
{
    QByteArray bytes;
    pollfd ready = {fd, POLLIN, 0};
    while (bytes.size() < size && poll(&ready, 1, 5000) > 0) {
        QByteArray chunk(size - int(bytes.size()), '\0');
        const ssize_t count = read(fd, chunk.data(), size_t(chunk.size()));
        if (count <= 0)
            break;
        bytes.append(chunk.constData(), int(count));
    }
    return bytes;
}

void TestVirtualKeypad::initTestCase()
{
    if (!VirtualKeypad::whyNot().isEmpty())
        QSKIP(qPrintable(VirtualKeypad::whyNot()));
}

void TestVirtualKeypad::boardsPlaces()
{
    VirtualKeypad keypad;
    QVERIFY2(keypad.prepare(), qPrintable(keypad.errorString()));
    QCOMPARE(keypad.listDir("/home/default"),
             QStringList({"bars.png", "black.png", "blue.png", "checkerboard.png", "green.png",
                          "grey.png", "red.png", "tarnwick.png", "white.png"}));
    QCOMPARE(keypad.readFile("/usr/lib/panel/version"), QByteArray("20140101 1.2\n"));
    QCOMPARE(keypad.listDir("/boot"), QStringList("fw-1.2"));
    QCOMPARE(keypad.listDir("/boot/fw-1.2"),
             QStringList({"imx28_ivt_linux.sb", "qm8velrootfs.ubi"}));
    QCOMPARE(keypad.listDir("/mnt"), QStringList());
    // Only the path to this build, if that is below it.
    QStringList home = keypad.listDir("/root");
    const QString build = qEnvironmentVariable("MFTOOL_BUILD_DIR");
    if (build.startsWith(QStringLiteral("/root/")))
        home.removeOne(build.section(QLatin1Char('/'), 2, 2));
    QCOMPARE(home, QStringList());
    QVERIFY(!keypad.exists("/tmp/sdstat"));
    QVERIFY(keypad.exists("/dev/ttySP0"));
    QVERIFY(keypad.exists("/media/mmcblk0p1"));
    QCOMPARE(keypad.run("sh", {"-c", "test -p /dev/input/event0"}).code, 0);
    QCOMPARE(keypad.run("sh", {"-c", "head -c 4 /dev/zero | wc -c"}).output, QByteArray("4\n"));
    QCOMPARE(keypad.run("sh", {"-c", "echo gone > /dev/null"}).code, 0);
    QVERIFY(keypad.exists("/etc/passwd"));
    QCOMPARE(keypad.run("id", {"-u"}).output, QByteArray("0\n"));
}

void TestVirtualKeypad::changesStayInTheKeypad()
{
    VirtualKeypad keypad;
    QVERIFY2(keypad.prepare(), qPrintable(keypad.errorString()));
    for (const char *path : {"/etc/keypad-test", "/tmp/keypad-test", "/root/keypad-test",
                             "/boot/keypad-test", "/mnt/keypad-test", "/home/default/keypad-test",
                             "/usr/lib/panel/keypad-test", "/run/keypad-test"}) {
        QVERIFY2(keypad.writeFile(path, "x"), path);
        QCOMPARE(keypad.readFile(path), QByteArray("x"));
        QVERIFY2(!QFile::exists(path), path);
    }
    VirtualKeypad other;
    QVERIFY(other.prepare());
    QVERIFY(!other.exists("/etc/keypad-test"));
}

void TestVirtualKeypad::etcFilesCanBeReplaced()
{
    VirtualKeypad keypad;
    QVERIFY2(keypad.prepare(), qPrintable(keypad.errorString()));
    QVERIFY(!keypad.exists("/etc/pointercal"));
    QVERIFY(keypad.writeFile("/etc/pointercal.new", "1 0 0 0 1 0 1\n"));
    QCOMPARE(keypad.run("mv", {"/etc/pointercal.new", "/etc/pointercal"}).code, 0);
    QVERIFY(keypad.writeFile("/etc/hostname.new", "keypad\n"));
    QCOMPARE(keypad.run("mv", {"/etc/hostname.new", "/etc/hostname"}).code, 0);
    QCOMPARE(keypad.readFile("/etc/hostname"), QByteArray("keypad\n"));
}

/// None can be run that anybody still has open for writing.
void TestVirtualKeypad::writtenProgramRunsAtOnce()
{
    VirtualKeypad keypad;
    QVERIFY2(keypad.prepare(), qPrintable(keypad.errorString()));
    for (int i = 0; i < 100; ++i) {
        QVERIFY(
            keypad.writeFile("/root/program", "#!/bin/sh\nexit " + QByteArray::number(i), 0755));
        QCOMPARE(keypad.run("/root/program").code, i);
    }
}

void TestVirtualKeypad::pcIsStillThere()
{
    VirtualKeypad keypad;
    QVERIFY2(keypad.prepare(), qPrintable(keypad.errorString()));
    QVERIFY(keypad.exists(QCoreApplication::applicationFilePath()));
    QVERIFY(keypad.listDir("/usr/lib").size() > 10);
    QVERIFY(keypad.exists("/usr/bin/env"));
}

QString TestVirtualKeypad::makeTool(const QString &folder)
{
    QFile file(folder + "/tool");
    if (!file.open(QIODevice::WriteOnly) || file.write("#!/bin/sh\nexit 7\n") < 0 ||
        !file.setPermissions(QFile::ReadOwner | QFile::ExeOwner | QFile::WriteOwner))
        return QString();
    return file.fileName();
}

void TestVirtualKeypad::toolInAHiddenPlace()
{
    QTemporaryDir dir("/tmp/keypad-test-XXXXXX");
    KeypadOptions options;
    options.tool = makeTool(dir.path());
    VirtualKeypad keypad(options);
    QVERIFY2(keypad.start(), qPrintable(keypad.errorString()));
    QVERIFY(keypad.waitForExit());
    QCOMPARE(keypad.exitStatus().code, 7);
    QCOMPARE(keypad.listDir("/tmp").filter("keypad-test").size(), 1);
}

void TestVirtualKeypad::toolAboveAVisibleFolder()
{
    QTemporaryDir dir("/tmp/keypad-test-XXXXXX");
    KeypadOptions options;
    options.tool = makeTool(dir.path());
    QVERIFY(QDir(dir.path()).mkpath("inside"));
    options.visible = QStringList(dir.path() + "/inside");
    VirtualKeypad keypad(options);
    QVERIFY2(keypad.start(), qPrintable(keypad.errorString()));
    QVERIFY(keypad.waitForExit());
    QCOMPARE(keypad.exitStatus().code, 7);
    QVERIFY(keypad.exists(dir.path() + "/inside"));
}

void TestVirtualKeypad::toolInAPlaceThatIsLeftOut()
{
    QTemporaryDir dir("/tmp/keypad-test-XXXXXX");
    KeypadOptions options;
    options.tool = makeTool(dir.path());
    options.without = QStringList("/tmp");
    VirtualKeypad keypad(options);
    QVERIFY2(keypad.start(), qPrintable(keypad.errorString()));
    QVERIFY(keypad.waitForExit());
    QCOMPARE(keypad.exitStatus().code, 7);
    QVERIFY(!keypad.exists("/tmp"));
    QVERIFY(QFile::exists(options.tool));
}

void TestVirtualKeypad::leftOut()
{
    KeypadOptions options;
    options.without = QStringList({"/dev/input/event0", "/sys/class/leds/trouble",
                                   "/home/default/tarnwick.png", "/sys/class/gpio/sd_power"});
    VirtualKeypad keypad(options);
    QVERIFY2(keypad.prepare(), qPrintable(keypad.errorString()));
    QVERIFY(!keypad.exists("/dev/input/event0"));
    QVERIFY(!keypad.exists("/sys/class/leds/trouble"));
    QVERIFY(!keypad.exists("/home/default/tarnwick.png"));
    QVERIFY(!keypad.exists("/sys/class/gpio/sd_power"));
    QVERIFY(keypad.exists("/sys/class/leds/ready"));

    KeypadOptions noLine;
    noLine.without = QStringList("/dev/ttySP0");
    VirtualKeypad unconnected(noLine);
    QVERIFY2(unconnected.prepare(), qPrintable(unconnected.errorString()));
    QVERIFY(!unconnected.exists("/dev/ttySP0"));
}

void TestVirtualKeypad::exitStatusAndSignals()
{
    VirtualKeypad three(shell("exit 3"));
    QVERIFY2(three.start(), qPrintable(three.errorString()));
    QVERIFY(three.waitForExit());
    QCOMPARE(three.exitStatus().code, 3);
    QCOMPARE(three.exitStatus().signal, 0);
    QCOMPARE(three.toolPid(), qint64(0));
    QVERIFY(!three.kill(SIGTERM));

    VirtualKeypad killed(shell("exec sleep 100"));
    QVERIFY(killed.start());
    QVERIFY(killed.isRunning());
    QVERIFY(killed.kill(SIGTERM));
    QVERIFY(killed.waitForExit());
    QCOMPARE(killed.exitStatus().code, -1);
    QCOMPARE(killed.exitStatus().signal, SIGTERM);
}

void TestVirtualKeypad::runsAgain()
{
    VirtualKeypad keypad(shell("echo run; cat /tmp/count 2>/dev/null; echo 1 >> /tmp/count"));
    QVERIFY(keypad.start());
    QVERIFY(keypad.waitForExit());
    QVERIFY(keypad.start());
    QVERIFY(keypad.waitForExit());
    QCOMPARE(keypad.countLog("run"), 2);
    QCOMPARE(keypad.readFile("/tmp/count"), QByteArray("1\n1\n"));
    keypad.stop();
    QVERIFY(keypad.start());
    QVERIFY(keypad.waitForExit());
    QCOMPARE(keypad.readFile("/tmp/count"), QByteArray("1\n"));
}

void TestVirtualKeypad::toolThatIsNotThere()
{
    KeypadOptions options;
    options.tool = "/nowhere/tool";
    VirtualKeypad keypad(options);
    QVERIFY(!keypad.start());
    QCOMPARE(keypad.errorString(),
             QString("cannot start /nowhere/tool: No such file or directory"));
    QVERIFY(keypad.waitForExit());
}

void TestVirtualKeypad::environmentIsTheBenchs()
{
    qputenv("KEYPAD_TEST_SECRET", "1");
    KeypadOptions options = shell("env");
    options.environment.remove("PATH");
    options.tool = "/usr/bin/env";
    options.arguments.clear();
    options.environment.insert("EXTRA", "value with blanks");
    VirtualKeypad keypad(options);
    QVERIFY(keypad.start());
    QVERIFY(keypad.waitForExit());
    QCOMPARE(keypad.countLog("KEYPAD_TEST_SECRET"), 0);
    QCOMPARE(keypad.countLog("EXTRA=value with blanks"), 1);
    QCOMPARE(keypad.countLog("QT_QPA_PLATFORM=offscreen"), 1);
    QCOMPARE(keypad.countLog("HOME=/root"), 1);
    QCOMPARE(keypad.countLog("PATH=/run/bench/bin"), 1);
}

void TestVirtualKeypad::workingDirectoryAndLimits()
{
    KeypadOptions options = shell("pwd; ulimit -n");
    options.workingDirectory = "/home/default";
    options.limits.append(qMakePair(int(RLIMIT_NOFILE), quint64(57)));
    VirtualKeypad keypad(options);
    QVERIFY(keypad.start());
    QVERIFY(keypad.waitForExit());
    QCOMPARE(keypad.log().size(), 2);
    QCOMPARE(keypad.log().at(0).text, QString("/home/default"));
    QCOMPARE(keypad.log().at(1).text, QString("57"));
}

void TestVirtualKeypad::toolPidIsTheCallers()
{
    VirtualKeypad keypad(shell("exec sleep 100"));
    QVERIFY(keypad.start());
    QVERIFY(keypad.toolPid() > 0);
    const auto commandLine = [&keypad] {
        QFile file(QString("/proc/%1/cmdline").arg(keypad.toolPid()));
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("nothing");
    };
    // The shell becomes the program.
    QTRY_COMPARE(commandLine(), QByteArray("sleep\0"
                                           "100\0",
                                           10));
    QVERIFY(!QDir(QString("/proc/%1/fd").arg(keypad.toolPid())).entryList().isEmpty());
}

void TestVirtualKeypad::toolInheritsNoFiles()
{
    const int inherited = open("/dev/zero", O_RDONLY);
    QVERIFY(inherited > STDERR_FILENO);
    VirtualKeypad keypad(shell("readlink /proc/self/fd/*; echo end"));
    QVERIFY(keypad.start());
    QVERIFY(keypad.waitForLog("end"));
    close(inherited);
    QVERIFY(keypad.countLog("/dev/null") > 0);
    QCOMPARE(keypad.countLog("/dev/zero"), 0);
}

void TestVirtualKeypad::logHasSeverityAndWholeTexts()
{
    KeypadOptions options;
    options.tool = PROBE;
    options.arguments = QStringList({"say", "first", "timer", "0"});
    VirtualKeypad keypad(options);
    QVERIFY2(keypad.start(), qPrintable(keypad.errorString()));
    QVERIFY(keypad.waitForLog("timer", 20000));
    const QList<VirtualKeypad::LogLine> log = keypad.log();
    QCOMPARE(log.first().severity, QString("debug"));
    QCOMPARE(log.first().text, QString("first\nand more"));
    QCOMPARE(log.first().time.size(), 12);
    QCOMPARE(log.last().severity, QString("warning"));
    QCOMPARE(log.last().text, QString("timer"));
    // Both may have arrived in one piece.
    QVERIFY(log.first().usec > 0 && log.last().usec >= log.first().usec);
    QCOMPARE(keypad.countLog("and more"), 1);
    keypad.clearLog();
    QCOMPARE(keypad.countLog("and more"), 0);
}

void TestVirtualKeypad::logOfATalkativeToolIsComplete()
{
    VirtualKeypad keypad(shell("seq 1 100000; echo over"));
    QVERIFY(keypad.start());
    // Nobody is reading meanwhile: the tool must go on all the same.
    const QString state = QString("/proc/%1").arg(keypad.toolPid());
    QDeadlineTimer deadline(20000);
    while (QFile::exists(state) && !deadline.hasExpired())
        QThread::msleep(5);
    QVERIFY(!QFile::exists(state));
    QVERIFY(keypad.waitForExit());
    QCOMPARE(keypad.log().size(), 100001);
    QCOMPARE(keypad.log().at(49999).text, QString("50000"));
    QCOMPARE(keypad.log().last().text, QString("over"));
}

void TestVirtualKeypad::lineIsRawBeforeTheTool()
{
    VirtualKeypad keypad;
    QVERIFY(keypad.prepare());
    termios settings = {};
    QCOMPARE(tcgetattr(keypad.lineFd(), &settings), 0);
    QCOMPARE(settings.c_lflag & tcflag_t(ECHO | ICANON | ISIG | IEXTEN), tcflag_t(0));
    QCOMPARE(settings.c_oflag & tcflag_t(OPOST), tcflag_t(0));
    QCOMPARE(settings.c_iflag & tcflag_t(ICRNL | IXON | ISTRIP), tcflag_t(0));
}

void TestVirtualKeypad::lineCarriesAllBytes()
{
    VirtualKeypad keypad(shell("exec cat < /dev/ttySP0 > /dev/ttySP0"));
    QVERIFY(keypad.start());
    QByteArray all;
    for (int byte = 0; byte < 256; ++byte)
        all.append(char(byte));
    QTRY_VERIFY(
        QFile::symLinkTarget(QString("/proc/%1/fd/0").arg(keypad.toolPid())).contains("/dev/"));
    QTRY_VERIFY(
        !QFile::symLinkTarget(QString("/proc/%1/fd/0").arg(keypad.toolPid())).contains("null"));
    QCOMPARE(write(keypad.lineFd(), all.constData(), size_t(all.size())), ssize_t(256));
    QCOMPARE(readLine(keypad.lineFd(), 256), all);
}

void TestVirtualKeypad::lineIsNobodysTerminal()
{
    VirtualKeypad keypad(shell("exec 3<>/dev/ttySP0; exec sleep 100"));
    QVERIFY(keypad.start());
    QTRY_VERIFY(QFile::exists(QString("/proc/%1/fd/3").arg(keypad.toolPid())));
    // State, parent, group, session, terminal.
    QCOMPARE(process::stat(keypad.toolPid()).value(4), QByteArray("0"));
}

void TestVirtualKeypad::lineByPath()
{
    VirtualKeypad keypad(shell("exec cat < /dev/ttySP0 > /dev/ttySP0"));
    QVERIFY(keypad.start());
    const QString path = keypad.linePath();
    QVERIFY(path.startsWith("/dev/pts/"));
    QCOMPARE(keypad.linePath(), path);
    for (int run = 0; run < 2; ++run) {
        const int fd = ::open(qPrintable(path), O_RDWR | O_NOCTTY);
        QVERIFY(fd >= 0);
        QCOMPARE(write(fd, "\x7f\r\nA\x80", 5), ssize_t(5));
        QCOMPARE(readLine(fd, 5), QByteArray("\x7f\r\nA\x80", 5));
        close(fd);
    }
}

void TestVirtualKeypad::unreadLineDoesNotStopTheTool()
{
    VirtualKeypad keypad(
        shell("head -c 500000 /dev/zero > /dev/ttySP0; echo written; exec sleep 100"));
    QVERIFY(keypad.prepare());
    QVERIFY(!keypad.linePath().isEmpty());
    QVERIFY(keypad.start());
    QVERIFY(keypad.waitForLog("written", 20000));
}

void TestVirtualKeypad::hangUp()
{
    // Whether the read ends with EIO or just ends depends on whether it waited already.
    VirtualKeypad keypad(shell("exec 3<>/dev/ttySP0; echo open; cat <&3; echo over; "
                               "echo x >&3 || echo refused"));
    QVERIFY(keypad.start());
    QVERIFY(keypad.waitForLog("open"));
    QCOMPARE(keypad.countLog("over"), 0);
    keypad.hangUp();
    QCOMPARE(keypad.lineFd(), -1);
    QVERIFY(keypad.waitForLog("over"));
    QVERIFY(keypad.waitForLog("refused"));
}

void TestVirtualKeypad::homeKeyRecords()
{
    VirtualKeypad keypad(shell("head -c 64 /dev/input/event0 | od -An -v -tx1 -w16"));
    QVERIFY(keypad.start());
    keypad.pressHome();
    keypad.releaseHome();
    QVERIFY(keypad.waitForExit());
    QCOMPARE(keypad.log().size(), 4);
    // The first eight bytes are the time.
    QCOMPARE(keypad.log().at(0).text.mid(24), QString(" 01 00 66 00 01 00 00 00"));
    QCOMPARE(keypad.log().at(1).text.mid(24), QString(" 00 00 00 00 00 00 00 00"));
    QCOMPARE(keypad.log().at(2).text.mid(24), QString(" 01 00 66 00 00 00 00 00"));
    QCOMPARE(keypad.log().at(3).text.mid(24), QString(" 00 00 00 00 00 00 00 00"));
    QCOMPARE(VirtualKeypad::eventRecord(0x1234, 0x5678, -2).mid(8),
             QByteArray("\x34\x12\x78\x56\xfe\xff\xff\xff", 8));
}

void TestVirtualKeypad::eventDeviceNeverBlocks()
{
    VirtualKeypad keypad(shell("exec 3<>/dev/input/event0; echo read-write;"
                               "exec 4</dev/input/event0; echo read; exec 5>/dev/input/event0;"
                               "echo write"));
    QVERIFY(keypad.start());
    QVERIFY(keypad.waitForExit());
    QCOMPARE(keypad.log().last().text, QString("write"));
}

void TestVirtualKeypad::sdPipe()
{
    VirtualKeypad keypad(shell("mkfifo /tmp/sdstat; for i in 1 2; do read line < /tmp/sdstat; "
                               "echo $line; done"));
    QVERIFY(keypad.start());
    QVERIFY2(keypad.insertCard(), qPrintable(keypad.errorString()));
    QVERIFY2(keypad.removeCard("/media/other"), qPrintable(keypad.errorString()));
    QVERIFY(keypad.waitForExit());
    QCOMPARE(keypad.log().size(), 2);
    QCOMPARE(keypad.log().at(0).text, QString("#/media/mmcblk0p1"));
    QCOMPARE(keypad.log().at(1).text, QString("!/media/other"));
}

void TestVirtualKeypad::sdPipeOneLineAnOpening()
{
    // A reader that is slow to close must not swallow the next event.
    VirtualKeypad keypad(shell("mkfifo /tmp/sdstat; n=0; while [ $n -lt 5 ]; do"
                               " exec </tmp/sdstat; read line; sleep 0.05; exec </dev/null;"
                               " echo $line; n=$((n+1)); done"));
    QVERIFY(keypad.start());
    for (int i = 0; i < 5; ++i)
        QVERIFY2(keypad.writeSdPipe("#card" + QByteArray::number(i) + "\n"),
                 qPrintable(keypad.errorString()));
    QVERIFY(keypad.waitForExit());
    QStringList lines;
    const QList<VirtualKeypad::LogLine> log = keypad.log();
    for (const VirtualKeypad::LogLine &line : log)
        lines.append(line.text);
    QCOMPARE(lines, QStringList({"#card0", "#card1", "#card2", "#card3", "#card4"}));
}

void TestVirtualKeypad::sdPipeNobodyReads()
{
    VirtualKeypad keypad(shell("exec sleep 100"));
    QVERIFY(keypad.start());
    QVERIFY(!keypad.insertCard("/media/mmcblk0p1", 50));
    QCOMPARE(keypad.errorString(), QString("/tmp/sdstat: No such file or directory"));
}

void TestVirtualKeypad::cards()
{
    VirtualKeypad keypad;
    QVERIFY(keypad.prepare());
    const QString file = "/media/mmcblk0p1/file";
    QVERIFY(keypad.writeFile(file, "12\n"));
    QCOMPARE(keypad.readFile(file), QByteArray("12\n"));

    QVERIFY2(keypad.setCard(VirtualKeypad::Full), qPrintable(keypad.errorString()));
    QVERIFY(!keypad.writeFile("/media/mmcblk0p1/other", "12\n"));
    QCOMPARE(errno, ENOSPC);
    QVERIFY(keypad.exists("/media/mmcblk0p1/other"));

    QVERIFY2(keypad.setCard(VirtualKeypad::ReadOnly), qPrintable(keypad.errorString()));
    QVERIFY(!keypad.writeFile(file, "34\n"));
    QCOMPARE(errno, EROFS);
    QVERIFY(!keypad.removeFile(file));
    QVERIFY(keypad.exists(file));

    QVERIFY2(keypad.setCard(VirtualKeypad::ReadsBackWrong), qPrintable(keypad.errorString()));
    QVERIFY(!keypad.exists(file));
    QVERIFY(keypad.writeFile(file, "12\n34\n"));
    QCOMPARE(keypad.readFile(file), QByteArray("02\n34\n"));
    QVERIFY(keypad.removeFile(file));
    QCOMPARE(keypad.listDir("/media/mmcblk0p1"), QStringList());

    QVERIFY2(keypad.setCard(VirtualKeypad::NoFolder), qPrintable(keypad.errorString()));
    QVERIFY(!keypad.exists("/media/mmcblk0p1"));
    QVERIFY2(keypad.setCard(VirtualKeypad::Writable), qPrintable(keypad.errorString()));
    QVERIFY(keypad.writeFile(file, "12\n"));
}

void TestVirtualKeypad::filesOnACardStay()
{
    VirtualKeypad keypad;
    QVERIFY(keypad.prepare());
    QVERIFY(keypad.makeDir("/media/mmcblk0p1/ateTestFileOnSdCard.txt"));
    QVERIFY(keypad.writeFile("/media/mmcblk0p1/ateTestFileOnSdCard.txt/in", "x"));
    QVERIFY(keypad.setCard(VirtualKeypad::ReadOnly));
    QVERIFY(keypad.exists("/media/mmcblk0p1/ateTestFileOnSdCard.txt/in"));
    QVERIFY(keypad.setCard(VirtualKeypad::Writable));
    QVERIFY(keypad.exists("/media/mmcblk0p1/ateTestFileOnSdCard.txt/in"));
    QVERIFY(keypad.setCard(VirtualKeypad::Writable, "/media/another card"));
    QVERIFY(keypad.writeFile("/media/another card/file", "x"));
}

void TestVirtualKeypad::pcsFilesAreNotRemoved()
{
    QTemporaryDir dir(QCoreApplication::applicationDirPath() + "/keypad-test-XXXXXX");
    QFile file(dir.filePath("file"));
    QVERIFY(file.open(QIODevice::WriteOnly));
    VirtualKeypad keypad;
    QVERIFY(keypad.prepare());
    QVERIFY(keypad.exists(file.fileName()));
    QVERIFY(!keypad.removeFile(file.fileName()));
    QVERIFY(file.exists());
    // A folder that is mounted there goes from the keypad's view, not from the PC.
    QVERIFY(keypad.removeFile("/usr"));
    QVERIFY(QFile::exists("/usr/bin/env"));
}

void TestVirtualKeypad::tamper()
{
    VirtualKeypad keypad;
    QVERIFY(keypad.prepare());
    keypad.setTamper(true);
    QVERIFY(keypad.writeFile("/sys/class/gpio/export", "17"));
    QVERIFY(keypad.writeFile("/sys/class/gpio/gpio17/active_low", "1"));
    QCOMPARE(keypad.readFile("/sys/class/gpio/gpio17/value"), QByteArray("0\n"));
    keypad.setTamper(false);
    QCOMPARE(keypad.readFile("/sys/class/gpio/gpio17/value"), QByteArray("1\n"));
}

void TestVirtualKeypad::files()
{
    VirtualKeypad keypad;
    QVERIFY(keypad.prepare());
    bool ok = true;
    QCOMPARE(keypad.readFile("/tmp/none", &ok), QByteArray());
    QVERIFY(!ok);
    QCOMPARE(keypad.errorString(), QString("/tmp/none: No such file or directory"));
    QVERIFY(keypad.makeDir("/tmp/a/b"));
    QVERIFY(keypad.writeFile("/tmp/a/b/c", QByteArray(300000, 'z'), 0600));
    QCOMPARE(keypad.readFile("/tmp/a/b/c").size(), 300000);
    QVERIFY(keypad.removeFile("/tmp/a"));
    QVERIFY(!keypad.exists("/tmp/a"));
    QVERIFY(keypad.removeFile("/tmp/a"));
    const VirtualKeypad::RunResult result =
        keypad.run("sh", {"-c", "echo out; echo err >&2; exit 5"});
    QCOMPARE(result.code, 5);
    QCOMPARE(result.output, QByteArray("out\n"));
    QCOMPARE(result.errors, QByteArray("err\n"));
    QCOMPARE(keypad.run("no-such-program").code, 127);
}

void TestVirtualKeypad::fasterTime()
{
    KeypadOptions options;
    options.tool = PROBE;
    options.arguments = QStringList({"timer", "60000"});
    options.faketime = "x60";
    VirtualKeypad keypad(options);
    if (!keypad.prepare())
        QSKIP(qPrintable(keypad.errorString()));
    QVERIFY(keypad.start());
    QVERIFY(keypad.waitForLog("shown", 20000));
    // A minute of the tool's; well below a minute of ours.
    QVERIFY(keypad.waitForLog("timer", 30000));
}

void TestVirtualKeypad::wrapper()
{
    KeypadOptions options = shell("echo wrapped");
    options.wrapper = QStringList({"nice", "-n", "5"});
    VirtualKeypad keypad(options);
    QVERIFY2(keypad.start(), qPrintable(keypad.errorString()));
    QVERIFY(keypad.waitForExit());
    QCOMPARE(keypad.log().first().text, QString("wrapped"));
}

void TestVirtualKeypad::twoKeypads()
{
    VirtualKeypad one(shell("echo 1 > /sys/class/leds/ready/brightness"));
    VirtualKeypad two(shell("echo 2 > /sys/class/leds/ready/brightness"));
    QVERIFY(one.start());
    QVERIFY(two.start());
    QVERIFY(one.waitForStore(ready, "1\n"));
    QVERIFY(two.waitForStore(ready, "2\n"));
    QCOMPARE(one.stores().size(), 1);
    QCOMPARE(two.stores().size(), 1);
}

void TestVirtualKeypad::nothingRemainsAfterStop()
{
    VirtualKeypad keypad(shell("sleep 100 & setsid sleep 100 & exec sleep 100"));
    QVERIFY(keypad.start());
    const QString tool = QString("/proc/%1").arg(keypad.toolPid());
    QVERIFY(QFile::exists(tool));
    QSignalSpy exited(&keypad, SIGNAL(exited()));
    keypad.stop();
    // Ended and reaped when stop() returns, and so is everything it started.
    QVERIFY(!QFile::exists(tool));
    QCOMPARE(exited.count(), 1);
    QVERIFY(!keypad.isRunning());
    QCOMPARE(keypad.attribute(ready), QByteArray());
}

void TestVirtualKeypad::waitsWithoutAnEventLoopAndSignalsWithOne()
{
    VirtualKeypad keypad(shell("echo 5 > /sys/class/leds/ready/brightness; echo logged"));
    QSignalSpy exited(&keypad, SIGNAL(exited()));
    QList<QByteArray> stored;
    QStringList logged;
    connect(&keypad, &VirtualKeypad::stored,
            [&stored](const SysfsModel::Store &store) { stored.append(store.text); });
    connect(&keypad, &VirtualKeypad::logged,
            [&logged](const VirtualKeypad::LogLine &line) { logged.append(line.text); });
    QVERIFY(keypad.start());
    QVERIFY(exited.count() > 0 || exited.wait());
    QCOMPARE(stored, QList<QByteArray>({"5\n"}));
    QCOMPARE(logged, QStringList("logged"));
}

MFTOOL_TEST(TestVirtualKeypad, EventLoop)
#include "tst_virtualkeypad.moc"
