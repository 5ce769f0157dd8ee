/// Home key, tamper switch and board revision.
#include "tests/support/ptyline.h"
#include "tests/support/testprogram.h"
#include "tests/whole/rig.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

namespace
{

const quint16 syncEvent = 0;
const quint16 keyEvent = 1;
const quint16 homeKey = 102;

const QString down = QStringLiteral("leds/buzzer/brightness=185");
const QString up = QStringLiteral("leds/buzzer/brightness=0");

QByteArray key(qint32 value)
{
    return VirtualKeypad::eventRecord(keyEvent, homeKey, value);
}

QByteArray report()
{
    return VirtualKeypad::eventRecord(syncEvent, 0, 0);
}

} // namespace

class TestHomeKey : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void pressAndRelease();
    void events_data();
    void events();
    void refusedStoreIsNotRepeated();
    void unplugged();
    void exportsOnce();
    void withHomeKey();
    void exportedBefore();
    void notAboveRevisionThree();
    void revision_data();
    void revision();

private:
    /// Sends @p bytes to the event device and waits until the tool has read them.
    bool feed(const QByteArray &bytes);
    bool feedAndSettle(const QByteArray &bytes, Outcome *outcome);
    bool unexport();

    QScopedPointer<Rig> m_rig;
    int m_events = -1;
};

void TestHomeKey::initTestCase()
{
    SKIP_UNLESS_KEYPADS_RUN();
    m_rig.reset(new Rig);
    QVERIFY2(m_rig->startReady(), qPrintable(m_rig->why()));
    m_events = m_rig->keypad.openFile("/dev/input/event0", O_RDWR | O_NONBLOCK);
    QVERIFY(m_events >= 0);
}

bool TestHomeKey::feed(const QByteArray &bytes)
{
    if (!m_rig->keypad.writeEvents(bytes))
        return false;
    int unread = 1;
    return Patience::waitUntil(
        [this, &unread] { return ioctl(m_events, FIONREAD, &unread) == 0 && unread == 0; });
}

bool TestHomeKey::feedAndSettle(const QByteArray &bytes, Outcome *outcome)
{
    m_rig->forget();
    if (!feed(bytes))
        return false;
    // The stores happen in the same event as the read.
    *outcome = m_rig->settle();
    return true;
}

bool TestHomeKey::unexport()
{
    RigKeypad &keypad = m_rig->keypad;
    return !keypad.hasNode("/sys/class/gpio/gpio17") ||
           keypad.writeFile("/sys/class/gpio/unexport", "17");
}

void TestHomeKey::pressAndRelease()
{
    m_rig->forget();
    m_rig->keypad.setTamper(false);
    m_rig->keypad.pressHome();
    QVERIFY(m_rig->keypad.waitForStore("/sys/class/leds/buzzer/brightness", "185"));
    QCOMPARE(m_rig->stores(), QStringList(down));
    QCOMPARE(m_rig->request(0x7070).line, QStringList("7071 01"));

    m_rig->forget();
    m_rig->keypad.releaseHome();
    QVERIFY(m_rig->keypad.waitForStore("/sys/class/leds/buzzer/brightness", "0"));
    QCOMPARE(m_rig->stores(), QStringList(up));
    QCOMPARE(m_rig->request(0x7070).line, QStringList("7071 00"));
}

void TestHomeKey::events_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<QStringList>("stores");
    QTest::addColumn<QString>("mask");
    const QStringList none;

    QTest::newRow("press as the kernel sends it") << key(1) + report() << QStringList(down) << "01";
    QTest::newRow("both in one read")
        << key(1) + report() + key(0) + report() << QStringList({down, up}) << "00";
    QTest::newRow("another key") << VirtualKeypad::eventRecord(keyEvent, 103, 1) << none << "00";
    QTest::newRow("40 bytes") << key(1) + report() + key(0).left(8) << QStringList(down) << "01";
    QTest::newRow("release") << key(0) + report() << QStringList(up) << "00";
}

void TestHomeKey::events()
{
    QFETCH(QByteArray, bytes);
    QFETCH(QStringList, stores);
    QFETCH(QString, mask);
    Outcome outcome;
    QVERIFY(feedAndSettle(bytes, &outcome));
    QCOMPARE(outcome.stores, stores);
    QCOMPARE(outcome.line, QStringList());
    QCOMPARE(outcome.log, QStringList());
    QCOMPARE(m_rig->request(0x7070).line, QStringList("7071 " + mask));
}

void TestHomeKey::refusedStoreIsNotRepeated()
{
    const QString buzzer("/sys/class/leds/buzzer/brightness");
    m_rig->keypad.fail(buzzer, SysfsModel::Write, EIO);
    Outcome outcome;
    const bool fed = feedAndSettle(key(1), &outcome);
    m_rig->keypad.clearFault(buzzer);
    QVERIFY(fed);
    QCOMPARE(outcome.stores, QStringList(down + " refused"));
    QVERIFY(feedAndSettle(key(0), &outcome));
    QCOMPARE(outcome.stores, QStringList(up));
}

/// A terminal in the device's place hangs up like a device that is unplugged.
void TestHomeKey::unplugged()
{
    Rig rig;
    RigKeypad &keypad = rig.keypad;
    QVERIFY2(keypad.prepare(), qPrintable(keypad.errorString()));
    PtyLine device; // made after the keypad's own process, which would keep it open
    QVERIFY(keypad.removeFile("/dev/input/event0"));
    QCOMPARE(keypad.run("ln", {"-s", device.path(), "/dev/input/event0"}).code, 0);
    QVERIFY2(rig.startReady(), qPrintable(rig.why()));
    device.send(key(1) + report());
    QVERIFY(keypad.waitForStore("/sys/class/leds/buzzer/brightness", "185"));
    rig.forget();

    // Nothing will report that the key is released, and the buzzer must not sound for
    // good.
    device.hangUp();
    QVERIFY(keypad.waitForStore("/sys/class/leds/buzzer/brightness", "0"));
    rig.forget();
    const qint64 before = processorTime(keypad.toolPid());
    QVERIFY(before >= 0);
    QTest::qWait(1500);
    const qint64 used = processorTime(keypad.toolPid()) - before;
    QVERIFY2(used < 500, qPrintable(QString::number(used)));

    const Outcome outcome = rig.request(0x7070);
    QCOMPARE(outcome.line, QStringList("7071 00"));
    QCOMPARE(outcome.stores.filter("buzzer"), QStringList());
    QCOMPARE(outcome.log, QStringList());
}

// Tamper

void TestHomeKey::exportsOnce()
{
    QVERIFY(unexport());
    m_rig->keypad.setTamper(true);
    const Outcome first = m_rig->request(0x7070);
    QCOMPARE(first.line, QStringList("7071 02"));
    QCOMPARE(first.stores, QStringList({"gpio/export=17", "gpio/gpio17/active_low=1"}));
    QCOMPARE(first.log, QStringList());

    // The polarity belongs to the export; the switch is sampled every time.
    m_rig->keypad.setTamper(false);
    const Outcome second = m_rig->request(0x7070);
    QCOMPARE(second.line, QStringList("7071 00"));
    QCOMPARE(second.stores, QStringList());
    m_rig->keypad.setTamper(true);
    QCOMPARE(m_rig->request(0x7070).line, QStringList("7071 02"));
}

void TestHomeKey::withHomeKey()
{
    m_rig->keypad.setTamper(true);
    Outcome outcome;
    QVERIFY(feedAndSettle(key(1), &outcome));
    QCOMPARE(m_rig->request(0x7070).line, QStringList("7071 03"));
    m_rig->keypad.setTamper(false);
    QCOMPARE(m_rig->request(0x7070).line, QStringList("7071 01"));
    QVERIFY(feedAndSettle(key(0), &outcome));
    QCOMPARE(m_rig->request(0x7070).line, QStringList("7071 00"));
}

/// An export outlives the tool that made it.
void TestHomeKey::exportedBefore()
{
    QVERIFY(unexport());
    Rig rig;
    QVERIFY2(rig.keypad.prepare(), qPrintable(rig.keypad.errorString()));
    QVERIFY(rig.keypad.setAttribute("/sys/board_revision/marlow_revision", "3"));
    QVERIFY(rig.keypad.writeFile("/sys/class/gpio/export", "17"));
    QVERIFY(rig.keypad.writeFile("/sys/class/gpio/gpio17/active_low", "1"));
    QVERIFY2(rig.startReady(), qPrintable(rig.why()));
    rig.keypad.setTamper(true);
    const Outcome outcome = rig.request(0x7070);
    QCOMPARE(outcome.line, QStringList("7071 02")); // also on the last revision that has it
    QCOMPARE(outcome.stores, QStringList());
}

void TestHomeKey::notAboveRevisionThree()
{
    Rig rig;
    QVERIFY2(rig.keypad.prepare(), qPrintable(rig.keypad.errorString()));
    QVERIFY(rig.keypad.setAttribute("/sys/board_revision/marlow_revision", "4"));
    QVERIFY2(rig.startReady(), qPrintable(rig.why()));
    rig.keypad.setTamper(true);
    // With faults in every file a touch would show.
    for (const char *file : {"export", "gpio17/active_low", "gpio17/value"})
        rig.keypad.fail(QLatin1String("/sys/class/gpio/") + QLatin1String(file), SysfsModel::Open,
                        EACCES);
    const Outcome outcome = rig.request(0x7070);
    QCOMPARE(outcome.line, QStringList("7071 00"));
    QCOMPARE(outcome.stores, QStringList());
    QCOMPARE(outcome.log, QStringList());
    QVERIFY(!rig.keypad.hasNode("/sys/class/gpio/gpio17"));

    rig.keypad.pressHome();
    AWAIT_COMPARE(rig.request(0x7070).line, QStringList("7071 01"));
}

// Revision

void TestHomeKey::revision_data()
{
    QTest::addColumn<QByteArray>("text");
    QTest::addColumn<QStringList>("said");
    QTest::newRow("12, a line of another")
        << QByteArray("12") << QStringList("debug: Running on board rev 12");
    QTest::newRow("-3") << QByteArray("-3")
                        << QStringList({"warning: Revision -3 is invalid",
                                        "debug: Running on board rev 1"});
}

void TestHomeKey::revision()
{
    QFETCH(QByteArray, text);
    QFETCH(QStringList, said);
    Rig rig;
    QVERIFY2(rig.keypad.prepare(), qPrintable(rig.keypad.errorString()));
    QVERIFY(rig.keypad.setAttribute("/sys/board_revision/marlow_revision", text));
    QVERIFY2(rig.start(), qPrintable(rig.why()));
    QVERIFY(rig.station.waitForReady());
    QCOMPARE(rig.settle().log.filter(QRegularExpression("[Rr]ev(ision)? ")), said);
}

MFTOOL_TEST(TestHomeKey, EventLoop)
#include "tst_homekey.moc"
