/// Voltage, version and the relay to the module on the same line.
#include "tests/support/testprogram.h"
#include "tests/whole/rig.h"

namespace
{

const QString voltageFile = QStringLiteral("/sys/class/power_supply/corlink/voltage_now");
const QString versionFile = QStringLiteral("/usr/lib/panel/version");

const QByteArray ack("7E000A00043102957F\r\n");

} // namespace

class TestBoardReadings : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void voltage_data();
    void voltage();
    void version_data();
    void version();
    void versionOfTheFlashIsNotReadUnmounted();
    void relayComesAheadOfTheAck_data();
    void relayComesAheadOfTheAck();
    void relayIsOffAtFirstAndAgain();
    void nothingIsLostWhileRelaying();

private:
    QByteArray rawNext();

    QScopedPointer<Rig> m_rig;
};

void TestBoardReadings::initTestCase()
{
    SKIP_UNLESS_KEYPADS_RUN();
    m_rig.reset(new Rig);
    QVERIFY2(m_rig->startReady(), qPrintable(m_rig->why()));
}

QByteArray TestBoardReadings::rawNext()
{
    const std::optional<Station::Received> received = m_rig->station.receive();
    return received ? received->raw : m_rig->station.errorString().toUtf8();
}

void TestBoardReadings::voltage_data()
{
    QTest::addColumn<QByteArray>("text");
    QTest::addColumn<QString>("reply");
    QTest::newRow("as the kernel writes it") << QByteArray("12345\n") << "7081 00012345";
    QTest::newRow("cut to eight") << QByteArray("1234567890\n") << "7081 12345678";
    QTest::newRow("negative") << QByteArray("-12\n") << "7081 00000-12";
    QTest::newRow("bytes above 7F") << QByteArray("\xB5\xFF\n") << "7081 000000\xC2\xB5\xC3\xBF";
}

void TestBoardReadings::voltage()
{
    QFETCH(QByteArray, text);
    QFETCH(QString, reply);
    QVERIFY(m_rig->keypad.setAttribute(voltageFile, text));
    const Outcome outcome = m_rig->request(0x7080);
    QCOMPARE(outcome.line, QStringList(reply));
    QCOMPARE(outcome.log, QStringList());
}

void TestBoardReadings::version_data()
{
    QTest::addColumn<QByteArray>("text");
    QTest::addColumn<QString>("reply");
    const auto row = [](const char *name, const QByteArray &text, const QString &reply) {
        QTest::newRow(name) << text << reply;
    };
    row("dated", "20140101 1.2\n", "603D 010220140101 1.2  0000000000000000");
    row("plain", "1.2.3\n", "603D 01021.2.3         0000000000000000");
    row("low eight bits", "300.255", "603D 2CFF300.255       0000000000000000");
    row("cut to fourteen", "20140101 10.11-long", "603D 0A0020140101 10.110000000000000000");
    row("up to a zero byte", QByteArray("1.2\0.3", 6), "603D 01021.2           0000000000000000");
}

void TestBoardReadings::version()
{
    QFETCH(QByteArray, text);
    QFETCH(QString, reply);
    QVERIFY(m_rig->keypad.writeFile(versionFile, text));
    const Outcome outcome = m_rig->request(0x603C, "01");
    QCOMPARE(outcome.line, QStringList(reply));
    QCOMPARE(outcome.log, QStringList());
}

void TestBoardReadings::versionOfTheFlashIsNotReadUnmounted()
{
    QVERIFY(m_rig->keypad.makeDir("/mnt/usr/lib/panel"));
    QVERIFY(m_rig->keypad.writeFile("/mnt/usr/lib/panel/version", "9.9\n"));
    QVERIFY(m_rig->keypad.removeFile(versionFile));
    QCOMPARE(m_rig->request(0x603C, "01").line, QStringList());
    QVERIFY(m_rig->keypad.writeFile(versionFile, "1.2\n"));
    QCOMPARE(m_rig->request(0x603C, "01").line,
             QStringList("603D 01021.2           0000000000000000"));
}

// Passthrough

void TestBoardReadings::relayComesAheadOfTheAck_data()
{
    QTest::addColumn<QByteArray>("data");
    QTest::newRow("two bytes") << QByteArray("AB");
    QTest::newRow("nothing") << QByteArray();
    QTest::newRow("blanks are kept") << QByteArray("  a  b  ");
    QTest::newRow("bytes above 7F") << QByteArray("\x80\xE4\xFF\xC3\xBC");
    QTest::newRow("control characters") << QByteArray("\x01\x1B\x7F\t|");
    QTest::newRow("more than a buffer") << QByteArray(900, 'q');
}

void TestBoardReadings::relayComesAheadOfTheAck()
{
    QFETCH(QByteArray, data);
    QCOMPARE(m_rig->request(0x7040, "01").line, QStringList("0004"));
    m_rig->forget();
    QVERIFY(m_rig->station.send(0x7041, data));
    QCOMPARE(rawNext(), data + "\r\n");
    QCOMPARE(rawNext(), ack);
    QCOMPARE(m_rig->settle().line, QStringList());
    QCOMPARE(m_rig->request(0x7040, "00").line, QStringList("0004"));
}

void TestBoardReadings::relayIsOffAtFirstAndAgain()
{
    QCOMPARE(m_rig->request(0x7041, "AB").line, QStringList("0004"));
    QCOMPARE(m_rig->request(0x7040, "01").log, QStringList("debug: QB740 passthrough -- enabled"));
    QCOMPARE(m_rig->request(0x7041, "AB").line, QStringList({"line AB", "0004"}));
    QCOMPARE(m_rig->request(0x7040, "00").log, QStringList("debug: QB740 passthrough -- disabled"));
    QCOMPARE(m_rig->request(0x7041, "AB").line, QStringList("0004"));
}

/// The port of the relay must not take the station's bytes.
void TestBoardReadings::nothingIsLostWhileRelaying()
{
    QCOMPARE(m_rig->request(0x7040, "01").line, QStringList("0004"));
    RigStation &station = m_rig->station;
    for (int i = 0; i < 400; ++i) {
        const QByteArray data = QByteArray::number(i);
        QVERIFY(station.send(0x6002, data));
        QVERIFY2(station.expect(0x6003, data), qPrintable(station.errorString()));
        if (i % 4 != 0)
            continue;
        QVERIFY(station.send(0x7041, data));
        QVERIFY2(station.expectLine(data), qPrintable(station.errorString()));
        QVERIFY2(station.expect(0x0004, QByteArray()), qPrintable(station.errorString()));
    }
    QCOMPARE(m_rig->request(0x7040, "00").line, QStringList("0004"));
}

MFTOOL_TEST(TestBoardReadings, EventLoop)
#include "tst_boardreadings.moc"
