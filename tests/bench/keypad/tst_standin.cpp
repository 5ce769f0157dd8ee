#include "bench/keypad/virtualkeypad.h"

#include <QtTest>

#include <csignal>

#include "tests/support/testprogram.h"

class TestStandin : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void playsTheCapturedBytes_data();
    void playsTheCapturedBytes();
    void bootStreamHas54EraseLines();
    void automaticFlash();
    void automaticFlashFailures_data();
    void automaticFlashFailures();
    void emptyImageCrashes();
    void attachAndMount();
    void attachAgain();
    void mountWithoutAttach();
    void crash();
    void missingAndBack();
    void hang();
    void endless();
    void holdAndRelease();
    void lasting();
    void updatesAreWritesOfTheirOwn();
    void callsAreRecorded();
    void wrongWord();

private:
    VirtualKeypad::RunResult play(const QString &program, const QStringList &arguments);

    QScopedPointer<VirtualKeypad> m_keypad;
};

namespace
{

const char boot[] = "/boot/fw-1.2/imx28_ivt_linux.sb";
const char image[] = "/boot/fw-1.2/qm8velrootfs.ubi";
const QStringList mountArguments = {"-t", "ubifs", "/dev/ubi0_0", "/mnt"};
const QStringList attachArguments = {"/dev/ubi_ctrl", "-m", "1"};

QStringList flashArguments(const QString &file)
{
    return {"/dev/mtd1", "-y", "-f", file};
}

QByteArray capture(const QString &name)
{
    QFile file(QStringLiteral(CAPTURES_DIR "/") + name);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("no capture");
}

} // namespace

void TestStandin::initTestCase()
{
    if (!VirtualKeypad::whyNot().isEmpty())
        QSKIP(qPrintable(VirtualKeypad::whyNot()));
}

void TestStandin::init()
{
    m_keypad.reset(new VirtualKeypad);
    QVERIFY2(m_keypad->prepare(), qPrintable(m_keypad->errorString()));
}

VirtualKeypad::RunResult TestStandin::play(const QString &program, const QStringList &arguments)
{
    return m_keypad->run("/run/bench/bin/" + program, arguments);
}

void TestStandin::playsTheCapturedBytes_data()
{
    QTest::addColumn<QString>("program");
    QTest::addColumn<QString>("word");
    QTest::addColumn<int>("code");
    QTest::addColumn<int>("outputSize");
    QTest::addColumn<int>("errorsSize");
    const auto row = [](const char *name, const QString &program, const QString &word, int code,
                        int outputSize, int errorsSize) {
        QTest::newRow(name) << program << word << code << outputSize << errorsSize;
    };
    row("ubiformat-good", "ubiformat", "good", 0, 216051, 0);
    row("ubiformat-no-image", "ubiformat", "no-image", 255, 104243, 98);
    row("ubiformat-image-too-large", "ubiformat", "image-too-large", 255, 3426, 103);
    row("ubiformat-image-truncated", "ubiformat", "image-truncated", 255, 104289, 149);
    row("ubiformat-attached", "ubiformat", "attached", 255, 0, 67);
    row("ubiformat-no-device", "ubiformat", "no-device", 255, 0, 208);
    row("ubiattach-good", "ubiattach", "good", 0, 129, 0);
    row("ubiattach-twice", "ubiattach", "twice", 255, 0, 72);
    row("ubiattach-no-ubi", "ubiattach", "no-ubi", 255, 0, 52);
    row("mount-good", "mount", "good", 0, 0, 0);
    row("mount-already", "mount", "already", 32, 0, 128);
    row("mount-no-volume", "mount", "no-volume", 32, 0, 199);
}

void TestStandin::playsTheCapturedBytes()
{
    QFETCH(QString, program);
    QFETCH(QString, word);
    QFETCH(int, code);
    QFETCH(int, outputSize);
    QFETCH(int, errorsSize);
    QVERIFY(m_keypad->setStandin(program, word));
    const VirtualKeypad::RunResult result =
        play(program, program == "mount" ? mountArguments : QStringList());
    QCOMPARE(result.code, code);
    QCOMPARE(int(result.output.size()), outputSize);
    QCOMPARE(int(result.errors.size()), errorsSize);
    QCOMPARE(result.output, capture(program + '-' + word + ".stdout"));
    QCOMPARE(result.errors, capture(program + '-' + word + ".stderr"));
}

void TestStandin::bootStreamHas54EraseLines()
{
    const VirtualKeypad::RunResult result = play("kobs-ng", {"-v", boot});
    QCOMPARE(result.code, 0);
    QCOMPARE(result.output.count("\nmtd: erasing "), 54);
    QVERIFY(result.output.count('\n') > 54);
    QCOMPARE(play("kobs-ng", {"-v", "/boot/none.sb"}).code, 1);
}

void TestStandin::automaticFlash()
{
    const VirtualKeypad::RunResult result = play("ubiformat", flashArguments(image));
    QCOMPARE(result.code, 0);
    QCOMPARE(result.output, capture("ubiformat-good.stdout"));
}

void TestStandin::automaticFlashFailures_data()
{
    QTest::addColumn<qint64>("size");
    QTest::addColumn<QString>("word");
    QTest::newRow("odd size") << qint64(131073) << "image-truncated";
    QTest::newRow("too large") << qint64(1985) * 131072 << "image-too-large";
    QTest::newRow("missing") << qint64(-1) << "no-image";
}

void TestStandin::automaticFlashFailures()
{
    QFETCH(qint64, size);
    QFETCH(QString, word);
    const QString file = "/boot/other.ubi";
    if (size >= 0)
        QCOMPARE(m_keypad->run("truncate", {"-s", QString::number(size), file}).code, 0);
    const VirtualKeypad::RunResult result = play("ubiformat", flashArguments(file));
    QCOMPARE(result.code, 255);
    QCOMPARE(result.errors, capture("ubiformat-" + word + ".stderr"));
}

void TestStandin::emptyImageCrashes()
{
    QVERIFY(m_keypad->writeFile("/boot/empty.ubi", ""));
    const VirtualKeypad::RunResult result = play("ubiformat", flashArguments("/boot/empty.ubi"));
    QCOMPARE(result.code, -1);
    QCOMPARE(result.signal, SIGFPE);
    QVERIFY(result.output.contains("100 % complete"));
}

void TestStandin::attachAndMount()
{
    QCOMPARE(play("ubiattach", attachArguments).code, 0);
    QVERIFY(!m_keypad->exists("/mnt/etc"));
    QCOMPARE(play("mount", mountArguments).code, 0);
    QVERIFY(m_keypad->exists("/mnt/etc"));
    QCOMPARE(m_keypad->readFile("/mnt/usr/lib/panel/version"), QByteArray("20140202 2.7\n"));
    QCOMPARE(play("mount", mountArguments).code, 32);
    const VirtualKeypad::RunResult again = play("ubiformat", flashArguments(image));
    QCOMPARE(again.errors, capture("ubiformat-attached.stderr"));
}

void TestStandin::attachAgain()
{
    QCOMPARE(play("ubiattach", attachArguments).code, 0);
    const VirtualKeypad::RunResult again = play("ubiattach", attachArguments);
    QCOMPARE(again.code, 255);
    QCOMPARE(again.errors, capture("ubiattach-twice.stderr"));
}

void TestStandin::mountWithoutAttach()
{
    const VirtualKeypad::RunResult result = play("mount", mountArguments);
    QCOMPARE(result.code, 32);
    QCOMPARE(result.errors, capture("mount-no-volume.stderr"));
    QVERIFY(!m_keypad->exists("/mnt/etc"));
}

void TestStandin::crash()
{
    QVERIFY(m_keypad->setStandin("ubiformat", "crash"));
    const VirtualKeypad::RunResult result = play("ubiformat", flashArguments(image));
    QCOMPARE(result.signal, SIGSEGV);
    QVERIFY(result.output.size() > 10000);
    QVERIFY(capture("ubiformat-good.stdout").startsWith(result.output));
}

void TestStandin::missingAndBack()
{
    for (const QString program : {"kobs-ng", "ubiformat", "ubiattach", "mount"}) {
        QVERIFY(m_keypad->setStandin(program, "missing"));
        QCOMPARE(play(program, QStringList()).code, 127);
        QVERIFY(m_keypad->setStandin(program, "good"));
        QCOMPARE(play(program, mountArguments).code, 0);
    }
}

void TestStandin::hang()
{
    QVERIFY(m_keypad->setStandin("kobs-ng", "hang"));
    const VirtualKeypad::RunResult result =
        m_keypad->run("timeout", {"0.5", "/run/bench/bin/kobs-ng", "-v", boot});
    QCOMPARE(result.code, 124);
    QVERIFY(result.output.size() > 100);
    QVERIFY(capture("kobs-ng-good.stdout").startsWith(result.output));
}

void TestStandin::endless()
{
    QVERIFY(m_keypad->setStandin("ubiformat", "endless"));
    const VirtualKeypad::RunResult result =
        m_keypad->run("sh", {"-c", "/run/bench/bin/ubiformat | head -c 1000000 | wc -c"});
    QCOMPARE(result.output, QByteArray("1000000\n"));
}

void TestStandin::holdAndRelease()
{
    QVERIFY(m_keypad->holdStandin("ubiformat", " 40 % complete"));
    const QString script = QString("/run/bench/bin/ubiformat /dev/mtd1 -y -f %1 "
                                   "> /tmp/output & wait; echo $? > /tmp/code")
                               .arg(image);
    QCOMPARE(m_keypad->run("sh", {"-c", "(" + script + ") </dev/null >/dev/null 2>&1 &"}).code, 0);
    QTRY_VERIFY(m_keypad->readFile("/tmp/output").endsWith(" 40 % complete  "));
    QVERIFY(!m_keypad->exists("/tmp/code"));
    QVERIFY(m_keypad->releaseStandin("ubiformat"));
    QTRY_VERIFY(m_keypad->exists("/tmp/code"));
    QCOMPARE(m_keypad->readFile("/tmp/output"), capture("ubiformat-good.stdout"));
}

void TestStandin::lasting()
{
    QVERIFY(m_keypad->setStandinSeconds("kobs-ng", 0.5));
    QElapsedTimer timer;
    timer.start();
    QCOMPARE(play("kobs-ng", {"-v", boot}).code, 0);
    QVERIFY(timer.elapsed() >= 500);
}

void TestStandin::updatesAreWritesOfTheirOwn()
{
    // Stopped after an update, exactly that update must be out and no byte more.
    QVERIFY(m_keypad->holdStandin("ubiformat", "scanning eraseblock 1000 "));
    const VirtualKeypad::RunResult result = m_keypad->run(
        "sh", {"-c", QString("timeout 0.5 /run/bench/bin/ubiformat /dev/mtd1 -y -f ") + image});
    const QByteArray whole = capture("ubiformat-good.stdout");
    const int next = int(whole.indexOf("\rlibscan: scanning eraseblock 1001 "));
    QVERIFY(next > 0);
    QCOMPARE(result.output, whole.left(next));
}

void TestStandin::callsAreRecorded()
{
    QCOMPARE(m_keypad->standinCalls().size(), 0);
    m_keypad->run("env", {"-C", "/root", "POINTERCAL_FILE=/mnt/etc/pointercal",
                          "/run/bench/bin/kobs-ng", "-v", "/boot/a b.sb"});
    play("mount", mountArguments);
    const QList<VirtualKeypad::StandinCall> calls = m_keypad->standinCalls();
    QCOMPARE(calls.size(), 2);
    QCOMPARE(calls.at(0).program, QString("kobs-ng"));
    QCOMPARE(calls.at(0).arguments, QStringList({"-v", "/boot/a b.sb"}));
    QCOMPARE(calls.at(0).workingDirectory, QString("/root"));
    QCOMPARE(calls.at(0).environment.value("POINTERCAL_FILE"), QString("/mnt/etc/pointercal"));
    QCOMPARE(calls.at(1).program, QString("mount"));
    QCOMPARE(calls.at(1).arguments, mountArguments);
    QVERIFY(!calls.at(1).environment.contains("POINTERCAL_FILE"));
}

void TestStandin::wrongWord()
{
    QVERIFY(m_keypad->setStandin("mount", "sideways"));
    const VirtualKeypad::RunResult result = play("mount", mountArguments);
    QCOMPARE(result.code, 126);
    QCOMPARE(result.errors, QByteArray("mount: no captured run is called \"sideways\"\n"));
}

MFTOOL_TEST(TestStandin, EventLoop)
#include "tst_standin.moc"
