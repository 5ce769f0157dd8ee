#include "bench/keypad/virtualkeypad.h"

#include <QtTest>

#include <csignal>
#include <unistd.h>

#include "tests/support/processes.h"
#include "tests/support/testprogram.h"

/// "bench keypad" as a person runs it.
class TestKeypadCommand : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void helpSaysItAll();
    void wrongOptions_data();
    void wrongOptions();
    void listOfCommands();
    void printsLineAndLog();
    void exitStatusTellsTheTools();
    void startsSwitchedOff();
    void powerComesAndGoes();
    void canBePractisedOn();
    void endOfInputEndsIt();
    void commandsBeforeTheStart();
    void nothingRemainsWhenKilled();
    void ordinaryUser_data();
    void ordinaryUser();
    void saysWhyItCannotWork_data();
    void saysWhyItCannotWork();

private:
    static void start(QProcess &bench, const QStringList &arguments);
    static QByteArray readLine(QProcess &bench);
    static QSet<qint64> descendants(qint64 process);
};

void TestKeypadCommand::start(QProcess &bench, const QStringList &arguments)
{
    bench.start(BENCH, QStringList("keypad") + arguments);
    QVERIFY(bench.waitForStarted());
}

QByteArray TestKeypadCommand::readLine(QProcess &bench)
{
    while (!bench.canReadLine()) {
        if (!bench.waitForReadyRead(20000))
            return "nothing: " + bench.readAllStandardError();
    }
    return bench.readLine().trimmed();
}

QSet<qint64> TestKeypadCommand::descendants(qint64 process)
{
    QSet<qint64> found = {process};
    const QList<qint64> children = process::children(process);
    for (const qint64 child : children)
        found += descendants(child);
    return found;
}

void TestKeypadCommand::initTestCase()
{
    if (!VirtualKeypad::whyNot().isEmpty())
        QSKIP(qPrintable(VirtualKeypad::whyNot()));
}

void TestKeypadCommand::helpSaysItAll()
{
    QProcess bench;
    start(bench, {"--help"});
    QVERIFY(bench.waitForFinished());
    QCOMPARE(bench.exitCode(), 0);
    const QByteArray text = bench.readAllStandardOutput();
    for (const char *word :
         {"Usage:", "bench keypad", "--tool", "--vnc", "--headless", "--faketime", "--wrapper",
          "--without", "--env", "--do", "home down|up", "screenshot FILE"})
        QVERIFY2(text.contains(word), word);
}

void TestKeypadCommand::wrongOptions_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QByteArray>("reason");
    QTest::newRow("unknown") << QStringList("--colour")
                             << QByteArray("bench keypad: Unknown option 'colour'; see bench "
                                           "keypad --help\n");
    QTest::newRow("unknown command")
        << QStringList({"--do", "card out", "--do", "nonsense"})
        << QByteArray("bench keypad: --do \"nonsense\": there is no command \"nonsense\"; try "
                      "help\n");
    QTest::newRow("command without its argument")
        << QStringList({"--do", "home"})
        << QByteArray("bench keypad: --do \"home\": usage: home down|up\n");
    QTest::newRow("windows") << QStringList("--help-all")
                             << QByteArray("bench keypad: Unknown option 'help-all'; see bench "
                                           "keypad --help\n");
    QTest::newRow("port") << QStringList({"--vnc", "high"})
                          << QByteArray("bench keypad: --vnc takes a port\n");
    QTest::newRow("speed") << QStringList({"--faketime", "60"})
                           << QByteArray("bench keypad: --faketime takes a speed such as x60\n");
    QTest::newRow("variable") << QStringList({"--env", "A"})
                              << QByteArray("bench keypad: --env takes name=value\n");
    QTest::newRow("seconds") << QStringList({"--flash-seconds", "long"})
                             << QByteArray("bench keypad: --flash-seconds takes a number from "
                                           "0\n");
    QTest::newRow("no number") << QStringList({"--flash-seconds", "nan"})
                               << QByteArray("bench keypad: --flash-seconds takes a number from "
                                             "0\n");
    const QByteArray stray = "bench keypad: unexpected \"foo\"; the tool's own arguments stand "
                             "after --\n";
    QTest::newRow("stray argument") << QStringList({"foo"}) << stray;
    QTest::newRow("stray argument before the tool's")
        << QStringList({"foo", "--offscreen", "--", "-x", "--"}) << stray;
    QTest::newRow("relative path") << QStringList({"--without", "/dev/ttySP0", "--without", "tmp"})
                                   << QByteArray("bench keypad: --without takes a whole path, "
                                                 "beginning with /, not \"tmp\"\n");
    QTest::newRow("empty tool") << QStringList({"--tool", ""})
                                << QByteArray("bench keypad: --tool takes a program, not an "
                                              "empty text\n");
    QTest::newRow("empty path") << QStringList({"--without", "/dev/ttySP0", "--without="})
                                << QByteArray("bench keypad: --without takes a path, not an "
                                              "empty text\n");
    QTest::newRow("off for ever") << QStringList({"--off", "--no-input"})
                                  << QByteArray("bench keypad: --off waits for \"power on\" from "
                                                "standard input, which --no-input does not read\n");
}

void TestKeypadCommand::wrongOptions()
{
    QFETCH(QStringList, arguments);
    QFETCH(QByteArray, reason);
    QProcess bench;
    start(bench, arguments);
    QVERIFY(bench.waitForFinished());
    QCOMPARE(bench.exitCode(), 2);
    QCOMPARE(bench.readAllStandardError(), reason);
}

void TestKeypadCommand::listOfCommands()
{
    QProcess bench;
    bench.start(BENCH, {"--help"});
    QVERIFY(bench.waitForFinished());
    QCOMPARE(bench.exitCode(), 0);
    QVERIFY(bench.readAllStandardOutput().contains("\n  keypad "));
    bench.start(BENCH, QStringList());
    QVERIFY(bench.waitForFinished());
    QCOMPARE(bench.exitCode(), 2);
    bench.start(BENCH, {"dance"});
    QVERIFY(bench.waitForFinished());
    QCOMPARE(bench.exitCode(), 2);
    QCOMPARE(bench.readAllStandardError(),
             QByteArray("bench: there is no command \"dance\"; see bench --help\n"));
}

void TestKeypadCommand::printsLineAndLog()
{
    QProcess bench;
    start(bench, {"--offscreen", "--tool", "/bin/sh", "--", "-c",
                  "echo 7 > /sys/class/leds/home/brightness; echo hello; exec /bin/sleep 100"});
    const QByteArray line = readLine(bench);
    QVERIFY2(line.startsWith("line /dev/pts/"), line.constData());
    QVERIFY(QFile::exists(QString::fromLatin1(line.mid(5))));
    QVERIFY(readLine(bench).startsWith("tool "));
    QCOMPARE(readLine(bench), QByteArray("output   hello"));
    bench.write("stores\nnonsense\nquit\n");
    QVERIFY(readLine(bench).endsWith("/sys/class/leds/home/brightness \"7\\n\""));
    QCOMPARE(readLine(bench), QByteArray("? there is no command \"nonsense\"; try help"));
    QVERIFY(bench.waitForFinished());
    QCOMPARE(bench.exitCode(), 0);
}

void TestKeypadCommand::exitStatusTellsTheTools()
{
    for (const char *script : {"exit 0", "exit 4", "kill -9 $$"}) {
        QProcess bench;
        start(bench, {"--offscreen", "--tool", "/bin/sh", "--", "-c", script});
        QVERIFY(bench.waitForFinished());
        const bool good = QByteArray(script) == "exit 0";
        QCOMPARE(bench.exitCode(), good ? 0 : 1);
        const QByteArray text = bench.readAllStandardOutput();
        QVERIFY2(text.contains("the tool ended with exit status") ||
                     text.contains("the tool was ended by signal 9"),
                 text.constData());
    }
}

/// A keypad that says when it starts and ends by itself when a file lets it.
const QStringList patientTool = {
    "--offscreen",
    "--tool",
    "/bin/sh",
    "--",
    "-c",
    "echo started; until test -e /sys/class/leds/ac/brightness && "
    "read b < /sys/class/leds/ac/brightness && test $b = 9; do /bin/sleep 0.05; done"};

void TestKeypadCommand::startsSwitchedOff()
{
    QProcess bench;
    start(bench, QStringList("--off") + patientTool);
    const QByteArray line = readLine(bench);
    QVERIFY2(line.startsWith("line /dev/pts/"), line.constData());
    QCOMPARE(readLine(bench), QByteArray("the keypad is off; \"power on\" switches it on"));
    bench.write("power off\npower on\n");
    QCOMPARE(readLine(bench), QByteArray("? the keypad is off"));
    QVERIFY(readLine(bench).startsWith("tool "));
    QCOMPARE(readLine(bench), QByteArray("output   started"));
    // A unit whose tool has ended waits for the next "power on".
    bench.write("set /sys/class/leds/ac/brightness 9\n");
    QCOMPARE(readLine(bench), QByteArray("the tool ended with exit status 0"));
    QCOMPARE(readLine(bench), QByteArray("\"power on\" switches the keypad on again"));
    bench.write("set /sys/class/leds/ac/brightness 0\npower on\n");
    QVERIFY(readLine(bench).startsWith("tool "));
    QCOMPARE(readLine(bench), QByteArray("output   started"));
    bench.write("quit\n");
    QVERIFY(bench.waitForFinished());
    QCOMPARE(bench.exitCode(), 0);
}

void TestKeypadCommand::powerComesAndGoes()
{
    QProcess bench;
    start(bench, patientTool);
    const QByteArray line = readLine(bench);
    QVERIFY(readLine(bench).startsWith("tool "));
    QCOMPARE(readLine(bench), QByteArray("output   started"));
    bench.write("power off\nhome down\nhome up\npower on\n");
    QVERIFY(readLine(bench).startsWith("tool "));
    QCOMPARE(readLine(bench), QByteArray("output   started"));
    // When it ends without having been switched off, the keypad ends.
    bench.write("set /sys/class/leds/ac/brightness 9\n");
    QCOMPARE(readLine(bench), QByteArray("the tool ended with exit status 0"));
    QVERIFY(bench.waitForFinished());
    QCOMPARE(bench.exitCode(), 0);
}

/// A keypad in one terminal, the line with its questions to an operator in another.
void TestKeypadCommand::canBePractisedOn()
{
    QTemporaryDir folder;
    QFile plan(folder.filePath("plan.json"));
    QVERIFY(plan.open(QIODevice::WriteOnly));
    plan.write(R"({"plan": "practice", "title": "Practice", "steps": [
        {"name": "Start", "operator": {"ask": "Switch it on.", "do": [{"power": "on"}]},
         "expect": ["ACK", "ready"], "limit_ms": 120000},
        {"name": "Home key", "operator": {"ask": "Press home.", "do": [{"home": "press"}]},
         "request": "buttons", "expect": [{"frame": "buttons reply", "fields": {"home": 1}}]}]})");
    plan.close();
    QProcess keypad;
    start(keypad, {"--off", "--offscreen"});
    const QString line = QString::fromLatin1(readLine(keypad).mid(5));
    QVERIFY(readLine(keypad).startsWith("the keypad is off"));

    QProcess bench;
    bench.setProcessChannelMode(QProcess::MergedChannels);
    bench.start(BENCH, {"line", plan.fileName(), "--port", line, "--out", folder.path()});
    const auto asks = [&](const QByteArray &question) {
        QByteArray text;
        while (!text.contains(question) && bench.waitForReadyRead(60000))
            text += bench.readAllStandardOutput();
        return text.contains(question);
    };
    QVERIFY(asks("Switch it on."));
    keypad.write("power on\n");
    QVERIFY(keypad.waitForBytesWritten());
    QVERIFY(asks("Press home."));
    keypad.write("home down\nshow /sys/class/leds/ac/brightness\n");
    QByteArray answer; // of the second command, when the first one is done
    while (answer != "255" && !answer.startsWith("nothing: "))
        answer = readLine(keypad);
    QCOMPARE(answer, QByteArray("255"));
    bench.write("\n");
    QVERIFY(bench.waitForFinished(60000));
    QVERIFY2(bench.exitCode() == 0, bench.readAllStandardOutput().constData());
}

void TestKeypadCommand::endOfInputEndsIt()
{
    QProcess bench;
    start(bench, {"--offscreen", "--tool", "/bin/sleep", "--", "100"});
    QVERIFY(readLine(bench).startsWith("line "));
    bench.closeWriteChannel();
    QVERIFY(bench.waitForFinished());
    QCOMPARE(bench.exitCode(), 0);
    QVERIFY(bench.readAllStandardOutput().endsWith("--no-input lets it run on\n"));
}

void TestKeypadCommand::commandsBeforeTheStart()
{
    QProcess bench;
    start(bench,
          {"--offscreen", "--do", "revision 5", "--do", "remove /sys/class/leds/ac", "--without",
           "/sys/class/leds/armed", "--env", "GREETING=good day", "--tool", "/bin/sh", "--", "-c",
           "read r < /sys/board_revision/marlow_revision; echo $r; echo /sys/class/leds/*; "
           "echo $GREETING"});
    QVERIFY(bench.waitForFinished());
    const QByteArray text = bench.readAllStandardOutput();
    QVERIFY2(text.contains("output   5\n"), text.constData());
    QVERIFY2(text.contains("/sys/class/leds/buzzer /sys/class/leds/home /sys/class/leds/ready "
                           "/sys/class/leds/trouble\n"),
             text.constData());
    QVERIFY2(text.contains("output   good day\n"), text.constData());
    start(bench, {"--offscreen", "--wrapper", "nosuch", "--tool", "/bin/true"});
    QVERIFY(bench.waitForFinished());
    QVERIFY(bench.readAllStandardError().startsWith("bench keypad: cannot start nosuch: "));
    QCOMPARE(bench.exitCode(), 4);
    start(bench, {"--offscreen", "--do", "remove /sys/nonsense", "--tool", "/bin/true"});
    QVERIFY(bench.waitForFinished());
    QCOMPARE(bench.exitCode(), 4);
}

void TestKeypadCommand::nothingRemainsWhenKilled()
{
    QStringList display = {"--headless"};
    if (!VirtualKeypad::whyNoDisplay(KeypadDisplay::Xvfb).isEmpty())
        display = QStringList("--offscreen");
    QProcess bench;
    start(bench, display + QStringList({"--tool", "/bin/sh", "--", "-c",
                                        "/usr/bin/setsid /bin/sleep 100 & echo started; "
                                        "exec /bin/sleep 100"}));
    while (readLine(bench) != "output   started")
        QVERIFY(bench.state() == QProcess::Running);
    QSet<qint64> processes;
    // The host, the keypad's first process, the tool and its child at least.
    QTRY_VERIFY((processes = descendants(bench.processId())).size() >= 5);
    bench.kill();
    QVERIFY(bench.waitForFinished());
    for (const qint64 process : qAsConst(processes))
        QTRY_VERIFY2(!QFile::exists(QString("/proc/%1/exe").arg(process)) ||
                         QFile::symLinkTarget(QString("/proc/%1/exe").arg(process)).isEmpty(),
                     qPrintable(QString("process %1 remains").arg(process)));
    QFile mounts("/proc/self/mountinfo");
    QVERIFY(mounts.open(QIODevice::ReadOnly));
    QVERIFY(!mounts.readAll().contains(" fuse keypad"));
}

void TestKeypadCommand::ordinaryUser_data()
{
    QTest::addColumn<QString>("before");
    QTest::newRow("as it is") << "true";
    // As in many containers; the kernel then refuses such a user an overlay on /etc.
    QTest::newRow("mounts below /etc") << "mount --bind /etc/hostname /etc/hostname";
}

void TestKeypadCommand::ordinaryUser()
{
    QFETCH(QString, before);
    if (geteuid() != 0)
        QSKIP("this is an ordinary user's run already");
    if (QStandardPaths::findExecutable("setpriv").isEmpty())
        QSKIP("setpriv is not installed");
    QProcess bench;
    bench.start("unshare",
                {"-m", "sh", "-c",
                 before + " && exec setpriv --reuid=65534 --regid=65534 --clear-groups \"$@\"",
                 "sh", BENCH, "keypad", "--offscreen", "--no-input", "--tool", "/bin/sh", "--",
                 "-c",
                 "echo 7 > /sys/class/leds/home/brightness && echo stored; "
                 "echo x > /etc/pointercal.new && /bin/mv /etc/pointercal.new /etc/pointercal && "
                 "echo x > /etc/hostname.new && /bin/mv /etc/hostname.new /etc/hostname && "
                 "echo written"});
    QVERIFY(bench.waitForFinished());
    const QByteArray reason = bench.readAllStandardError().trimmed();
    if (bench.exitCode() == 4 || bench.exitCode() > 100 || reason.startsWith("unshare: "))
        QSKIP(("not for an ordinary user here: " + reason).constData());
    const QByteArray text = bench.readAllStandardOutput();
    QVERIFY2(text.contains("output   stored\n"), text + reason);
    QVERIFY2(text.contains("output   written\n"), text + reason);
    QCOMPARE(bench.exitCode(), 0);
}

void TestKeypadCommand::saysWhyItCannotWork_data()
{
    QTest::addColumn<QString>("spoil");
    QTest::addColumn<QByteArray>("reason");
    QTest::newRow("no FUSE device") << "mount -t tmpfs none /dev && mkdir /dev/pts && "
                                       "mount -t devpts none /dev/pts -o ptmxmode=666 && "
                                       "ln -s pts/ptmx /dev/ptmx"
                                    << QByteArray("bench keypad: cannot open /dev/fuse: "
                                                  "No such file or directory\n");
    QTest::newRow("no namespaces") << "echo 0 > /proc/sys/user/max_mnt_namespaces"
                                   << QByteArray("bench keypad: cannot make namespaces: "
                                                 "No space left on device\n");
}

void TestKeypadCommand::saysWhyItCannotWork()
{
    QFETCH(QString, spoil);
    QFETCH(QByteArray, reason);
    QProcess bench;
    bench.start("unshare", {"-U", "-r", "-m", "sh", "-c",
                            spoil + " && exec \"$0\" keypad --offscreen --tool /bin/true", BENCH});
    QVERIFY(bench.waitForFinished());
    const QByteArray errors = bench.readAllStandardError();
    if (errors.startsWith("unshare: ") || errors.startsWith("mount: ") || errors.startsWith("sh: "))
        QSKIP(("cannot be spoilt here: " + errors.trimmed()).constData());
    QCOMPARE(bench.exitCode(), 4);
    QCOMPARE(errors, reason);
}

MFTOOL_TEST(TestKeypadCommand, EventLoop)
#include "tst_keypadcommand.moc"
