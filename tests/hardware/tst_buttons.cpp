// A named pipe stands in for the event device: what was written waits there
// until it is read, and one read takes whatever is waiting.
#include <QDir>
#include <QFile>
#include <QMetaMethod>
#include <QSocketNotifier>
#include <QtTest>

#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "hardware/buttons.h"
#include "tests/support/anyqt.h"
#include "tests/support/boardfolder.h"
#include "tests/support/descriptors.h"
#include "tests/support/logcatcher.h"
#include "tests/support/onsignal.h"
#include "tests/support/ptyline.h"
#include "tests/support/testprogram.h"

namespace
{

const QString eventDevice = QStringLiteral("/dev/input/event0");
const QString revisionFile = QStringLiteral("/sys/board_revision/marlow_revision");

const QByteArray press("\x00\x00\x00\x00\x00\x00\x00\x00\x01\x00\x66\x00\x01\x00\x00\x00", 16);
const QByteArray release("\x01\x00\x00\x00\x40\x0D\x03\x00\x01\x00\x66\x00\x00\x00\x00\x00", 16);
const QByteArray repeat("\x01\x00\x00\x00\x40\x0D\x03\x00\x01\x00\x66\x00\x02\x00\x00\x00", 16);
const QByteArray negative("\x01\x00\x00\x00\x40\x0D\x03\x00\x01\x00\x66\x00\xFF\xFF\xFF\xFF", 16);
const QByteArray report("\x01\x00\x00\x00\x40\x0D\x03\x00\x00\x00\x00\x00\x00\x00\x00\x00", 16);
const QByteArray otherKey("\x01\x00\x00\x00\x40\x0D\x03\x00\x01\x00\x67\x00\x01\x00\x00\x00", 16);
const QByteArray otherType("\x01\x00\x00\x00\x40\x0D\x03\x00\x02\x00\x66\x00\x01\x00\x00\x00", 16);

/// A board whose home key is a pipe.
class KeyBoard : public BoardFolder
{
public:
    KeyBoard() : m_end(-1)
    {
        makeFolder(QStringLiteral("/dev/input"));
        const QByteArray name = QFile::encodeName(at(eventDevice));
        if (mkfifo(name.constData(), 0600) == 0)
            m_end = open(name.constData(), O_RDWR | O_NONBLOCK);
    }
    ~KeyBoard() { close(m_end); }
    Q_DISABLE_COPY(KeyBoard)

    bool isValid() const { return m_end >= 0; }

    bool send(const QByteArray &bytes) const
    {
        return ::write(m_end, bytes.constData(), size_t(bytes.size())) == bytes.size();
    }

    /// Bytes that nobody has read yet.
    int waiting() const
    {
        int count = -1;
        ioctl(m_end, FIONREAD, &count);
        return count;
    }

private:
    int m_end;
};

QList<bool> states(const QSignalSpy &spy)
{
    QList<bool> list;
    for (const QList<QVariant> &arguments : spy)
        list.append(arguments.at(0).toBool());
    return list;
}

} // namespace

class TestButtons : public QObject
{
    Q_OBJECT

private slots:
    void metaObject();
    void construction();
    void revision();
    void noDevice();
    void records_data();
    void records();
    void recordsInSeveralReads();
    void shortRead();
    void atMostSixteenRecordsInARead();
    void unpluggedDeviceLetsTheKeyGo();
    void endedDeviceSwitchesTheNotifierOff();
    void failedReadIsNotTheEnd();
    void descriptorOutlivesTheObject();
};

void TestButtons::metaObject()
{
    const QMetaObject &meta = Buttons::staticMetaObject;
    QCOMPARE(meta.methodCount() - meta.methodOffset(), 2);
    const QMetaMethod home = meta.method(meta.methodOffset());
    QCOMPARE(signatureOf(home), QByteArray("home(bool)"));
    QCOMPARE(home.methodType(), QMetaMethod::Signal);
    const QMetaMethod read = meta.method(meta.methodOffset() + 1);
    QCOMPARE(signatureOf(read), QByteArray("read()"));
    QCOMPARE(read.methodType(), QMetaMethod::Slot);
    QCOMPARE(read.access(), QMetaMethod::Private);
}

void TestButtons::construction()
{
    KeyBoard keypad;
    QVERIFY(keypad.isValid());
    LogCatcher log;
    QObject parent;
    Buttons *buttons = new Buttons(&parent, keypad.board());
    QCOMPARE(log.take(),
             strings("debug: Input event opened", "debug: No revision file found, assuming rev 1",
                     "debug: Running on board rev 1"));
    QCOMPARE(buttons->parent(), &parent);
    QVERIFY(!buttons->homeDown());
    QCOMPARE(buttons->revision(), 1);
    QCOMPARE(buttons->findChildren<QSocketNotifier *>().size(), 1);
}

void TestButtons::revision()
{
    KeyBoard keypad;
    keypad.write(revisionFile, "4");
    LogCatcher log;
    Buttons buttons(nullptr, keypad.board());
    QCOMPARE(buttons.revision(), 4);
    QCOMPARE(log.take(), strings("debug: Input event opened", "debug: Running on board rev 4"));

    // The board does not change while the tool runs.
    keypad.write(revisionFile, "2");
    QCOMPARE(buttons.revision(), 4);
}

void TestButtons::noDevice()
{
    BoardFolder keypad;
    keypad.write(revisionFile, "3");
    LogCatcher log;
    Buttons buttons(nullptr, keypad.board());
    QCOMPARE(log.take(),
             strings(QStringLiteral("warning: Failed to open ") + keypad.at(eventDevice),
                     "debug: Running on board rev 3"));
    QVERIFY(buttons.findChildren<QSocketNotifier *>().isEmpty());
    QVERIFY(!keypad.exists(eventDevice));

    QSignalSpy home(&buttons, SIGNAL(home(bool)));
    QVERIFY(QMetaObject::invokeMethod(&buttons, "read"));
    QCOMPARE(home.count(), 0);
    QVERIFY(!buttons.homeDown());
}

void TestButtons::records_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<QList<bool>>("reported");
    QTest::addColumn<bool>("downAfterwards");

    using List = QList<bool>;
    QTest::newRow("press") << press << (List() << true) << true;
    QTest::newRow("press and its report") << press + report << (List() << true) << true;
    QTest::newRow("release") << release << (List() << false) << false;
    QTest::newRow("press and release in one read")
        << press + release << (List() << true << false) << false;
    QTest::newRow("press, reports, release")
        << press + report + release + report << (List() << true << false) << false;
    QTest::newRow("auto-repeat") << press + repeat + repeat << (List() << true << true << true)
                                 << true;
    QTest::newRow("any value but zero is down") << negative << (List() << true) << true;
    QTest::newRow("foreign records")
        << report + otherKey + otherType + press + otherKey << (List() << true) << true;
    QTest::newRow("40 bytes") << press + release + press.left(8) << (List() << true << false)
                              << false;
    QTest::newRow("sixteen records")
        << press + report.repeated(14) + release << (List() << true << false) << false;
}

void TestButtons::records()
{
    QFETCH(QByteArray, bytes);
    QFETCH(QList<bool>, reported);
    QFETCH(bool, downAfterwards);
    KeyBoard keypad;
    LogCatcher log;
    Buttons buttons(nullptr, keypad.board());
    QSignalSpy home(&buttons, SIGNAL(home(bool)));
    QVERIFY(keypad.send(bytes));
    QTRY_COMPARE(states(home), reported);
    QCOMPARE(buttons.homeDown(), downAfterwards);
    QCOMPARE(keypad.waiting(), 0);

    // The rest of a read is not kept: the next record is read on its own.
    QVERIFY(keypad.send(downAfterwards ? release : press));
    reported.append(!downAfterwards);
    QTRY_COMPARE(states(home), reported);
    QCOMPARE(buttons.homeDown(), !downAfterwards);
}

void TestButtons::recordsInSeveralReads()
{
    KeyBoard keypad;
    LogCatcher log;
    Buttons buttons(nullptr, keypad.board());
    QList<bool> stateWhenReported;
    onSignal(&buttons, SIGNAL(home(bool)), [&](const QVariant &down) {
        QCOMPARE(buttons.homeDown(), down.toBool());
        stateWhenReported.append(down.toBool());
    });
    for (int i = 0; i < 3; ++i) {
        QVERIFY(keypad.send(press));
        QTRY_COMPARE(stateWhenReported.size(), 2 * i + 1);
        QVERIFY(keypad.send(release));
        QTRY_COMPARE(stateWhenReported.size(), 2 * i + 2);
    }
    QCOMPARE(stateWhenReported, QList<bool>() << true << false << true << false << true << false);
}

void TestButtons::shortRead()
{
    KeyBoard keypad;
    LogCatcher log;
    Buttons buttons(nullptr, keypad.board());
    QSignalSpy home(&buttons, SIGNAL(home(bool)));
    QVERIFY(keypad.send(press.left(15)));
    QTRY_COMPARE(keypad.waiting(), 0);
    QCOMPARE(home.count(), 0);
    QVERIFY(!buttons.homeDown());

    // The missing byte does not complete it.
    QVERIFY(keypad.send(press.mid(15)));
    QTRY_COMPARE(keypad.waiting(), 0);
    QCOMPARE(home.count(), 0);

    QVERIFY(keypad.send(press));
    QTRY_COMPARE(home.count(), 1);
}

void TestButtons::atMostSixteenRecordsInARead()
{
    KeyBoard keypad;
    LogCatcher log;
    Buttons buttons(nullptr, keypad.board());
    QSignalSpy home(&buttons, SIGNAL(home(bool)));
    QVERIFY(keypad.send(press.repeated(16) + release.repeated(4)));
    QVERIFY(QMetaObject::invokeMethod(&buttons, "read"));
    QCOMPARE(home.count(), 16);
    QVERIFY(buttons.homeDown());
    QCOMPARE(keypad.waiting(), 64);
    QVERIFY(QMetaObject::invokeMethod(&buttons, "read"));
    QCOMPARE(home.count(), 20);
    QVERIFY(!buttons.homeDown());
}

void TestButtons::unpluggedDeviceLetsTheKeyGo()
{
    // Both hang up: a pseudo terminal whose far end closes, and a device that is pulled.
    PtyLine device;
    BoardFolder keypad;
    keypad.makeFolder(QStringLiteral("/dev/input"));
    keypad.link(eventDevice, device.path());
    LogCatcher log;
    Buttons buttons(nullptr, keypad.board());
    QSocketNotifier *notifier = buttons.findChild<QSocketNotifier *>();
    QVERIFY(notifier);
    QSignalSpy home(&buttons, SIGNAL(home(bool)));
    device.send(press + release.left(8));
    QTRY_COMPARE(states(home), QList<bool>() << true);
    QVERIFY(notifier->isEnabled());
    log.clear();

    device.hangUp();
    QTRY_VERIFY(!notifier->isEnabled());
    // The key was held: without the release the buzzer would sound for good.
    QCOMPARE(states(home), QList<bool>() << true << false);
    QVERIFY(!buttons.homeDown());
    QCOMPARE(log.take(), QStringList());

    // Nothing is left of it: one more read is as harmless.
    QVERIFY(QMetaObject::invokeMethod(&buttons, "read"));
    QCOMPARE(home.count(), 2);
    QVERIFY(!notifier->isEnabled());
}

void TestButtons::endedDeviceSwitchesTheNotifierOff()
{
    // Always readable, and always at its end.
    BoardFolder keypad;
    keypad.makeFolder(QStringLiteral("/dev/input"));
    keypad.link(eventDevice, QStringLiteral("/dev/null"));
    LogCatcher log;
    Buttons buttons(nullptr, keypad.board());
    QSocketNotifier *notifier = buttons.findChild<QSocketNotifier *>();
    QVERIFY(notifier);
    QVERIFY(notifier->isEnabled());
    QSignalSpy home(&buttons, SIGNAL(home(bool)));
    QTRY_VERIFY(!notifier->isEnabled());
    QCOMPARE(home.count(), 0);
    QVERIFY(!buttons.homeDown());
}

void TestButtons::failedReadIsNotTheEnd()
{
    KeyBoard keypad;
    LogCatcher log;
    Buttons buttons(nullptr, keypad.board());
    const QSocketNotifier *notifier = buttons.findChild<QSocketNotifier *>();
    QVERIFY(notifier);
    QSignalSpy home(&buttons, SIGNAL(home(bool)));
    // An empty pipe that does not wait: the read fails with EAGAIN.
    QCOMPARE(fcntl(int(notifier->socket()), F_SETFL, O_RDWR | O_NONBLOCK), 0);
    QVERIFY(QMetaObject::invokeMethod(&buttons, "read"));
    QCOMPARE(home.count(), 0);
    QVERIFY(notifier->isEnabled());

    QVERIFY(keypad.send(press));
    QTRY_COMPARE(states(home), QList<bool>() << true);
}

void TestButtons::descriptorOutlivesTheObject()
{
    KeyBoard keypad;
    LogCatcher log;
    const int before = openDescriptors();
    Buttons *buttons = new Buttons(nullptr, keypad.board());
    QCOMPARE(openDescriptors(), before + 1);
    delete buttons;
    QCOMPARE(openDescriptors(), before + 1);
}

MFTOOL_TEST(TestButtons, EventLoop)
#include "tst_buttons.moc"
