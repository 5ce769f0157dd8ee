/// A unit's whole way through production under Valgrind: no error, and no block is lost
/// except for those in tests/valgrind.supp.
#include "tests/support/requests.h"
#include "tests/support/testprogram.h"
#include "tests/whole/rig.h"

#include <QFileInfo>
#include <QStandardPaths>

#include <cstdio>

namespace
{

const char report[] = "/run/memcheck.log";
const QString buzzer = QStringLiteral("/sys/class/leds/buzzer/brightness");
const int limitMsecs = 240000; // everything is some forty times slower

} // namespace

class TestMemcheck : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void production();

private:
    void ask(quint16 type, const QByteArray &data, const char *replies);
    void touchTest();
    void calibrate();
    void flash();

    QScopedPointer<Rig> m_rig;
};

void TestMemcheck::initTestCase()
{
    SKIP_UNLESS_SCREENS_RUN();
    QString reason;
#ifdef MEMCHECK_SANITIZED
    reason = QStringLiteral("a program built with a sanitizer cannot run under Valgrind");
#endif
    if (reason.isEmpty() && QStandardPaths::findExecutable(QStringLiteral("valgrind")).isEmpty())
        reason = QStringLiteral("valgrind is not installed");
    if (reason.isEmpty())
        return;
    skipProgram(reason);
    QSKIP(qPrintable(reason));
}

/// @param replies  as in SampleRequest: the last one is compared, as far as it is written here
void TestMemcheck::ask(quint16 type, const QByteArray &data, const char *replies)
{
    const Station::Answer answer = m_rig->station.request(type, data, limitMsecs, limitMsecs);
    QVERIFY2(!answer.frames.isEmpty(), qPrintable(answer.error));
    const SampleRequest expected = {type, "", replies};
    QCOMPARE(answer.frames.last().type, expected.lastType());
    const QByteArray received = answer.frames.last().data;
    QVERIFY2(received.startsWith(expected.lastData()), received.constData());
}

void TestMemcheck::touchTest()
{
    ask(0x7030, "01", "0004");
    QVERIFY(m_rig->keypad.touch(123, 45));
    QCOMPARE(m_rig->next(), QStringLiteral("7031 123045"));
    ask(0x7030, "00", "0004");
    m_rig->settle(); // the dialog that comes next would take the finger's lifting for its own
}

/// The five targets, each held until the buzzer has fallen silent again.
void TestMemcheck::calibrate()
{
    RigKeypad &keypad = m_rig->keypad;
    const struct {
        int x;
        int y;
        const char *point;
    } targets[] = {
        {24, 24, "7021 000002400024"},   {24, 456, "7021 010002400456"},
        {776, 456, "7021 020077600456"}, {776, 24, "7021 030077600024"},
        {400, 240, "7021 040040000240"},
    };
    ask(0x7020, "01", "0004");
    // The first target is there, a black dot in a white ring: so the dialog gets the touch.
    QVERIFY(keypad.waitForPixel(24, 24, 0xff000000));
    QVERIFY(keypad.waitForPixel(28, 18, 0xffffffff));
    for (const auto &target : targets) {
        keypad.clearStores();
        QVERIFY(keypad.press(target.x, target.y));
        QVERIFY(keypad.waitForStore(buzzer, "185"));
        QVERIFY(keypad.waitForStore(buzzer, "0"));
        QVERIFY(keypad.release());
        QCOMPARE(m_rig->next(), QString::fromLatin1(target.point));
    }
    QCOMPARE(m_rig->next(), QStringLiteral("7022 01"));
    ask(0x7020, "00", "0004");
}

/// With a station that looks in between, and once more when all is over.
void TestMemcheck::flash()
{
    RigKeypad &keypad = m_rig->keypad;
    QVERIFY(keypad.holdStandin("ubiformat", "ubiformat: flashing eraseblock 44 "));
    QVERIFY(m_rig->station.send(0x7050));
    QCOMPARE(m_rig->next(), QStringLiteral("0004"));
    const auto stage = [this] {
        const Station::Answer answer =
            m_rig->station.request(0x7053, QByteArray(), limitMsecs, limitMsecs);
        return answer.data(0x7051).left(2);
    };
    QTRY_COMPARE_WITH_TIMEOUT(stage(), QByteArray("02"), limitMsecs);
    QVERIFY(keypad.releaseStandin("ubiformat"));
    QCOMPARE(m_rig->next(), QStringLiteral("7052 01"));
    ask(0x7053, "", "0003");
}

void TestMemcheck::production()
{
    const QString suppressions = QStringLiteral(MEMCHECK_SUPPRESSIONS);
    KeypadOptions options;
    options.display.kind = KeypadDisplay::Xvfb;
    options.wrapper = QStringList{QStringLiteral("valgrind"),
                                  QStringLiteral("--leak-check=full"),
                                  QStringLiteral("--show-leak-kinds=definite"),
                                  QStringLiteral("--errors-for-leak-kinds=definite"),
                                  QStringLiteral("--error-exitcode=99"),
                                  QStringLiteral("--suppressions=") + suppressions,
                                  QStringLiteral("--log-file=") + QLatin1String(report)};
    // There is no desktop to look for: the search starts a process, which leaks.
    options.environment.insert(QStringLiteral("DBUS_SESSION_BUS_ADDRESS"),
                               QStringLiteral("unix:path=/nowhere"));
    // Qt compiles its own expressions to code that no tool can watch.
    options.environment.insert(QStringLiteral("QT_ENABLE_REGEXP_JIT"), QStringLiteral("0"));
    options.visible.append(QFileInfo(suppressions).path());
    m_rig.reset(new Rig(options));
    RigKeypad &keypad = m_rig->keypad;
    QVERIFY2(m_rig->start(), qPrintable(m_rig->why()));
    // As early as possible: on a busy machine under Valgrind the tool may need longer for
    // its first screen than it waits for its station.
    QCOMPARE(m_rig->next(), QStringLiteral("0004"));
    QVERIFY(m_rig->station.send(0x6002, "anybody there"));
    QVERIFY2(m_rig->station.waitFor(0x6003), qPrintable(m_rig->station.errorString()));

    const QList<SampleRequest> requests = harmlessRequests();
    for (const SampleRequest &request : requests)
        ask(request.type, request.data, request.replies);
    if (QTest::currentTestFailed())
        return;
    keypad.pressHome();
    QVERIFY(keypad.waitForStore(buzzer, "185"));
    ask(0x7070, "", "7071 01");
    keypad.setTamper(true);
    ask(0x7070, "", "7071 03");
    keypad.setTamper(false);
    keypad.releaseHome();
    QVERIFY(keypad.setCard(VirtualKeypad::Writable));
    QVERIFY(keypad.insertCard());
    QVERIFY(keypad.waitForLog("SD Mount to m_sdCardMountPath="));
    ask(0x6161, "010502", "6162 01050200");
    QVERIFY(keypad.removeCard());
    touchTest();
    if (QTest::currentTestFailed())
        return;
    calibrate();
    if (QTest::currentTestFailed())
        return;
    flash();
    if (QTest::currentTestFailed())
        return;
    ask(0x7060, "", "7061 01");
    ask(0x603C, "01", "603D 020720140202 2.7  0000000000000000");
    ask(0x7020, "01", "0004");
    ask(0x7020, "00", "0004");
    ask(0x6001, "", "0004");
    QVERIFY(keypad.waitForExit());
    QCOMPARE(keypad.exitStatus().signal, 0);
    bool isThere = false;
    const QByteArray found = keypad.readFile(QLatin1String(report), &isThere);
    QVERIFY(isThere);
    const bool isClean = keypad.exitStatus().code == 0 && found.contains("ERROR SUMMARY: 0 errors");
    if (!isClean)
        fputs(found.constData(), stderr); // longer than a test's message may be
    QVERIFY(isClean);
}

MFTOOL_TEST(TestMemcheck, EventLoop)
#include "tst_memcheck.moc"
