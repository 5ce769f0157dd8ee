#include "bench/keypad/virtualkeypad.h"

#include <QtTest>

#include <csignal>
#include <unistd.h>

/// "bench keypad" as a person runs it.
class TestKeypadCommand : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void helpSaysItAll();
    void wrongOptions_data();
    void wrongOptions();
    void listOfCommands();
    void printsLineAndLog();
    void exitStatusTellsTheTools();
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
    QMap<qint64, qint64> parents;
    const QStringList all = QDir("/proc").entryList(QDir::Dirs);
    for (const QString &entry : all) {
        QFile stat("/proc/" + entry + "/stat");
        if (entry.toLongLong() == 0 || !stat.open(QIODevice::ReadOnly))
            continue;
        const QByteArray fields = stat.readAll();
        parents.insert(entry.toLongLong(),
                       fields.mid(fields.lastIndexOf(')') + 2).split(' ').at(1).toLongLong());
    }
    QSet<qint64> found = {process};
    for (int before = 0; before != found.size();) {
        before = int(found.size());
        for (auto it = parents.constBegin(); it != parents.constEnd(); ++it) {
            if (found.contains(it.value()))
                found.insert(it.key());
        }
    }
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
                             << QByteArray("bench keypad: --flash-seconds takes a number\n");
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
    start(bench, {"--offscreen", "--do", "nonsense", "--tool", "/bin/true"});
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

QTEST_GUILESS_MAIN(TestKeypadCommand)
#include "tst_keypadcommand.moc"
