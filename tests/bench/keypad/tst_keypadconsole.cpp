#include "bench/keypad/keypadconsole.h"

#include <QtTest>

#include "tests/support/testprogram.h"

class TestKeypadConsole : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void readings();
    void homeKey();
    void storesAndFaults();
    void cards();
    void flashingPrograms();
    void power();
    void refusals_data();
    void refusals();
    void nothing();
    void helpNamesAll();
    void quit();

private:
    QString good(const QString &line);

    QScopedPointer<VirtualKeypad> m_keypad;
    QScopedPointer<KeypadConsole> m_console;
};

void TestKeypadConsole::initTestCase()
{
    if (!VirtualKeypad::whyNot().isEmpty())
        QSKIP(qPrintable(VirtualKeypad::whyNot()));
    KeypadOptions options;
    options.tool = "/bin/sh";
    options.arguments =
        QStringList({"-c", "mkfifo /tmp/sdstat; while true; do cat /tmp/sdstat; done"});
    options.environment.insert("PATH", "/usr/bin:/bin");
    m_keypad.reset(new VirtualKeypad(options));
    QVERIFY2(m_keypad->start(), qPrintable(m_keypad->errorString()));
    m_console.reset(new KeypadConsole(*m_keypad));
}

/// The answer of a command that must work.
QString TestKeypadConsole::good(const QString &line)
{
    const KeypadConsole::Outcome outcome = m_console->execute(line);
    if (!outcome.ok)
        qWarning("%s: %s", qPrintable(line), qPrintable(outcome.text));
    return outcome.ok ? outcome.text : QStringLiteral("failed");
}

void TestKeypadConsole::readings()
{
    QCOMPARE(good("voltage 13800"), QString());
    QCOMPARE(m_keypad->attribute("/sys/class/power_supply/corlink/voltage_now"),
             QByteArray("13800\n"));
    QCOMPARE(good("revision 4"), QString());
    QCOMPARE(m_keypad->attribute("/sys/board_revision/marlow_revision"), QByteArray("4"));
    QCOMPARE(good("set /sys/class/leds/ac/brightness 9"), QString());
    QCOMPARE(good("show /sys/class/leds/ac/brightness"), QString("9"));
    QVERIFY(m_keypad->writeFile("/sys/class/gpio/export", "17"));
    QCOMPARE(good("tamper on"), QString());
    QCOMPARE(good("show /sys/class/gpio/gpio17/value"), QString("1"));
    QCOMPARE(good("tamper off"), QString());
    QCOMPARE(good("show /sys/class/gpio/gpio17/value"), QString("0"));
}

void TestKeypadConsole::homeKey()
{
    QCOMPARE(good("home down"), QString());
    QCOMPARE(good("home up"), QString());
    QCOMPARE(m_keypad->run("head", {"-c", "64", "/dev/input/event0"}).output.size(), 64);
}

void TestKeypadConsole::storesAndFaults()
{
    m_keypad->clearStores();
    const QString home = "/sys/class/leds/home/brightness";
    QVERIFY(m_keypad->writeFile(home, "128"));
    QCOMPARE(good("fault " + home + " store EIO"), QString());
    QVERIFY(!m_keypad->writeFile(home, "1"));
    QCOMPARE(good("fault " + home + " open 13"), QString());
    QVERIFY(!m_keypad->writeFile(home, "1"));
    QCOMPARE(good("fault " + home + " clear"), QString());
    QVERIFY(m_keypad->writeFile(home, "2"));
    const QStringList lines = good("stores").split('\n');
    QCOMPARE(lines.size(), 3);
    QVERIFY2(lines.at(0).endsWith(" /sys/class/leds/home/brightness \"128\""),
             qPrintable(lines.at(0)));
    QVERIFY2(lines.at(1).endsWith("\"1\" refused: Input/output error"), qPrintable(lines.at(1)));
    QCOMPARE(good("stores /sys/class/leds/ac/brightness"), QString());
    QCOMPARE(good("remove /sys/class/leds/trouble"), QString());
    QVERIFY(!m_keypad->hasNode("/sys/class/leds/trouble"));
}

void TestKeypadConsole::cards()
{
    QCOMPARE(good("card in"), QString());
    QVERIFY(m_keypad->waitForLog("#/media/mmcblk0p1"));
    QCOMPARE(good("card out"), QString());
    QVERIFY(m_keypad->waitForLog("!/media/mmcblk0p1"));
    for (const char *kind : {"read-only", "full", "reads-back-wrong", "no-folder", "writable"})
        QCOMPARE(good(QString("card %1").arg(kind)), QString());
    QVERIFY(m_keypad->writeFile("/media/mmcblk0p1/file", "x"));
    QCOMPARE(good("card full"), QString());
    QVERIFY(!m_keypad->exists("/media/mmcblk0p1/file"));
    QCOMPARE(good("card writable"), QString());
}

void TestKeypadConsole::flashingPrograms()
{
    QCOMPARE(good("play mount already"), QString());
    QCOMPARE(good("seconds mount 0.1"), QString());
    QCOMPARE(m_keypad->run("/run/bench/bin/mount").code, 32);
}

void TestKeypadConsole::power()
{
    const KeypadConsole::Outcome again = m_console->execute("power on");
    QVERIFY(!again.ok);
    QCOMPARE(again.text, QString("the keypad is on"));
    QCOMPARE(good("power off"), QString());
    QVERIFY(!m_keypad->isRunning());
    QVERIFY(!m_console->isPowered());
    const KeypadConsole::Outcome off = m_console->execute("power off");
    QVERIFY(!off.ok);
    QCOMPARE(off.text, QString("the keypad is off"));
    const QString on = good("power on");
    QCOMPARE(on, QString("tool %1").arg(m_keypad->toolPid()));
    QVERIFY(m_keypad->isRunning());
    QVERIFY(m_console->isPowered());
}

void TestKeypadConsole::refusals_data()
{
    QTest::addColumn<QString>("line");
    QTest::addColumn<QString>("reason");
    const auto row = [](const char *name, const QString &line, const QString &reason) {
        QTest::newRow(name) << line << reason;
    };
    row("unknown", "hum", "there is no command \"hum\"; try help");
    row("too few", "home", "usage: home down|up");
    row("too many", "home down up", "usage: home down|up");
    row("wrong word", "home sideways", "usage: home down|up");
    row("power", "power up", "usage: power on|off");
    row("card", "card sideways", "there is no card \"sideways\"");
    row("tamper", "tamper 1", "usage: tamper on|off");
    row("touch", "touch a b", "usage: touch X Y [MS]");
    row("touch without display", "touch 1 2", "there is no display to touch");
    row("screenshot", "screenshot /tmp/x.png", "there is no display to look at");
    row("show", "show /sys/none", "there is no /sys/none");
    row("set", "set /sys/none 1", "there is no /sys/none");
    row("fault operation", "fault /sys/x look EIO", "usage: fault PATH open|read|store ERROR");
    row("fault number", "fault /sys/x open EWHAT",
        "an error is a number or EPERM, ENOENT, EIO, EACCES, EBUSY, "
        "ENODEV, EINVAL, EMFILE, ENOSPC, EROFS, ENOMEM, ETIMEDOUT");
    row("fault path", "fault ready open EIO", "only attributes of /sys can fail");
    row("stores path", "stores ready", "stores go to whole paths, beginning with /sys/");
    row("touch outside", "touch 800 0", "the screen ends at 799 479");
    row("program", "play dd crash", "a program is kobs-ng, ubiformat, ubiattach or mount");
    row("play", "play mount ?",
        "mount plays auto, good, crash, hang, endless, missing, already, "
        "no-volume");
    row("program's seconds", "seconds dd 1", "a program is kobs-ng, ubiformat, ubiattach or mount");
    row("remove", "remove /sys/none", "cannot remove /sys/none");
    row("seconds", "seconds mount long", "usage: seconds PROGRAM S");
    row("no number", "seconds mount nan", "usage: seconds PROGRAM S");
}

void TestKeypadConsole::refusals()
{
    QFETCH(QString, line);
    QFETCH(QString, reason);
    const KeypadConsole::Outcome outcome = m_console->execute(line);
    QVERIFY(!outcome.ok);
    QCOMPARE(outcome.text, reason);
}

void TestKeypadConsole::nothing()
{
    QCOMPARE(good(""), QString());
    QCOMPARE(good("   "), QString());
    QCOMPARE(good("# a remark"), QString());
}

void TestKeypadConsole::helpNamesAll()
{
    const QString help = good("help");
    QCOMPARE(help, KeypadConsole::help());
    for (const char *name :
         {"power", "home", "card", "voltage", "tamper", "revision", "touch", "screenshot", "stores",
          "show", "set", "fault", "remove", "play", "seconds", "unplug", "help", "quit"})
        QVERIFY2(("\n" + help).contains(QRegularExpression(QString("\n  %1[ \n]").arg(name))),
                 name);
}

void TestKeypadConsole::quit()
{
    QVERIFY(!m_console->isOver());
    QCOMPARE(good("quit"), QString());
    QVERIFY(m_console->isOver());
}

MFTOOL_TEST(TestKeypadConsole, EventLoop)
#include "tst_keypadconsole.moc"
