/// The line itself: pulled out, plugged in again, and used for a long time.
#include "tests/whole/rig.h"

#include <QDir>
#include <QFile>

namespace
{

/// What its descriptors are open on.
QStringList descriptors(qint64 pid)
{
    QStringList targets;
    const QDir folder(QStringLiteral("/proc/%1/fd").arg(pid));
    const QStringList names =
        folder.entryList(QDir::AllEntries | QDir::System | QDir::NoDotAndDotDot);
    for (const QString &name : names)
        targets.append(QFile::symLinkTarget(folder.filePath(name)));
    return targets;
}

/// Memory of its own, in kilobytes.
qint64 ownMemory(qint64 pid)
{
    QFile file(QStringLiteral("/proc/%1/status").arg(pid));
    if (!file.open(QIODevice::ReadOnly))
        return -1;
    const QList<QByteArray> lines = file.readAll().split('\n');
    for (const QByteArray &line : lines) {
        if (line.startsWith("RssAnon:"))
            return line.mid(8).trimmed().split(' ').first().toLongLong();
    }
    return -1;
}

bool isSanitized(qint64 pid)
{
    QFile file(QStringLiteral("/proc/%1/maps").arg(pid));
    return file.open(QIODevice::ReadOnly) && file.readAll().contains("libasan");
}

} // namespace

class tst_Line : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void hangsUp();
    void stationComesAndGoes();
    void thousandsOfReplies();
};

void tst_Line::initTestCase()
{
    SKIP_UNLESS_KEYPADS_RUN();
}

void tst_Line::hangsUp()
{
    KeypadOptions options;
    ToolClock clock;
    const bool canWind = ToolClock::whyNot().isEmpty();
    if (canWind)
        clock.wind(options);
    Rig rig(options);
    QVERIFY2(rig.startReady(), qPrintable(rig.why()));
    VirtualKeypad &keypad = rig.keypad;
    rig.station.close();
    keypad.hangUp();

    const qint64 before = processorTime(keypad.toolPid());
    QVERIFY(before >= 0);
    QTest::qWait(1500);
    const qint64 used = processorTime(keypad.toolPid()) - before;
    QVERIFY2(used < 500, qPrintable(QString::number(used)));
    QVERIFY(keypad.countLog("Got_newsocket:") < 3);

    keypad.pressHome();
    QVERIFY(keypad.waitForStore("/sys/class/leds/buzzer/brightness", "185", 20000));
    keypad.releaseHome();
    QVERIFY(keypad.waitForStore("/sys/class/leds/buzzer/brightness", "0", 20000));

    if (!canWind)
        QSKIP(qPrintable(ToolClock::whyNot()));
    QVERIFY(clock.set(16));
    keypad.pressHome();
    QVERIFY(keypad.waitForExit(30000));
    QCOMPARE(keypad.exitStatus().signal, 0);
    QCOMPARE(keypad.exitStatus().code, 0);
    QVERIFY(rig.waitForLog("debug: \n************ ATE TEST Quit due to time out ************\n"));
}

/// A station's program that ends does not end the line.
void tst_Line::stationComesAndGoes()
{
    VirtualKeypad keypad;
    QVERIFY2(keypad.prepare(), qPrintable(keypad.errorString()));
    const QString path = keypad.linePath();
    QVERIFY2(!path.isEmpty(), qPrintable(keypad.errorString()));
    {
        Station first;
        QVERIFY2(first.open(path), qPrintable(first.errorString()));
        QVERIFY2(keypad.start(), qPrintable(keypad.errorString()));
        QVERIFY2(first.waitForReady(30000), qPrintable(first.errorString()));
        QVERIFY(first.send(0x6002, "01"));
        QVERIFY2(first.expect(0x6003, "01"), qPrintable(first.errorString()));
        // Leaves half a frame behind.
        QVERIFY(first.sendRaw("7E000C60"));
        QVERIFY2(first.expect(0x0005), qPrintable(first.errorString()));
    }
    for (int i = 2; i < 5; ++i) {
        const QByteArray data = QByteArray::number(i);
        Station another;
        QVERIFY2(another.open(path), qPrintable(another.errorString()));
        QVERIFY(another.send(0x6002, data));
        QVERIFY2(another.expect(0x6003, data, 10000), qPrintable(another.errorString()));
    }
    QVERIFY(keypad.isRunning());
}

void tst_Line::thousandsOfReplies()
{
    Rig rig;
    QVERIFY2(rig.startReady(), qPrintable(rig.why()));
    const qint64 pid = rig.keypad.toolPid();
    rig.station.transcript().setLimit(10);
    const auto echo = [&rig](int times) {
        for (int i = 0; i < times; ++i) {
            const QByteArray data = QByteArray::number(i);
            if (!rig.station.send(0x6002, data) || !rig.station.expect(0x6003, data, 20000))
                return false;
        }
        return true;
    };
    // The first ones fill caches.
    QVERIFY2(echo(200), qPrintable(rig.station.errorString()));
    const QStringList openBefore = descriptors(pid);
    const qint64 memoryBefore = ownMemory(pid);
    QVERIFY(openBefore.size() > 3 && memoryBefore > 0);

    QVERIFY2(echo(5000), qPrintable(rig.station.errorString()));
    // One of its start may have been closed since, none may have been added. The last
    // reply has come before its stream is closed.
    QTRY_VERIFY2(descriptors(pid).size() <= openBefore.size(),
                 qPrintable(descriptors(pid).join(QLatin1Char(' '))));
    const qint64 grown = ownMemory(pid) - memoryBefore;
    // A sanitizer keeps freed memory for a while.
    if (!isSanitized(pid))
        QVERIFY2(grown < 1024, qPrintable(QString::number(grown)));
}

QTEST_GUILESS_MAIN(tst_Line)
#include "tst_line.moc"
