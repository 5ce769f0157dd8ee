#include <QtTest>

#include "hardware/inputevent.h"
#include "tests/support/testprogram.h"

class TestInputEvent : public QObject
{
    Q_OBJECT

private slots:
    void size();
    void decode_data();
    void decode();
    void homeKey_data();
    void homeKey();
};

void TestInputEvent::size()
{
    QCOMPARE(inputEventSize, 16);
}

void TestInputEvent::decode_data()
{
    QTest::addColumn<QByteArray>("record");
    QTest::addColumn<int>("type");
    QTest::addColumn<int>("code");
    QTest::addColumn<int>("value");

    const QByteArray time("\x11\x22\x33\x44\x55\x66\x77\x08", 8);
    QTest::newRow("press") << time + QByteArray("\x01\x00\x66\x00\x01\x00\x00\x00", 8) << 1 << 102
                           << 1;
    QTest::newRow("release") << time + QByteArray("\x01\x00\x66\x00\x00\x00\x00\x00", 8) << 1 << 102
                             << 0;
    QTest::newRow("negative value")
        << time + QByteArray("\x02\x00\x00\x00\xFE\xFF\xFF\xFF", 8) << 2 << 0 << -2;
    QTest::newRow("little-endian, unsigned")
        << time + QByteArray("\xCD\xAB\x02\x81\x78\x56\x34\x12", 8) << 0xABCD << 0x8102
        << 0x12345678;
}

void TestInputEvent::decode()
{
    QFETCH(QByteArray, record);
    QFETCH(int, type);
    QFETCH(int, code);
    QFETCH(int, value);
    QCOMPARE(record.size(), 16);
    const InputEvent event = decodeInputEvent(record.constData());
    QCOMPARE(int(event.type), type);
    QCOMPARE(int(event.code), code);
    QCOMPARE(event.value, value);

    // Nor does it depend on the record's address.
    const QByteArray shifted = "x" + record;
    QCOMPARE(decodeInputEvent(shifted.constData() + 1).value, value);
}

void TestInputEvent::homeKey_data()
{
    QTest::addColumn<int>("type");
    QTest::addColumn<int>("code");
    QTest::addColumn<bool>("home");
    QTest::newRow("home key") << 1 << 102 << true;
    QTest::newRow("other key") << 1 << 103 << false;
    QTest::newRow("synchronisation") << 0 << 0 << false;
    QTest::newRow("synchronisation, same code") << 0 << 102 << false;
    QTest::newRow("relative axis, same code") << 2 << 102 << false;
    QTest::newRow("low bytes alike") << 0x101 << 102 << false;
    QTest::newRow("code's low byte alike") << 1 << 0x166 << false;
}

void TestInputEvent::homeKey()
{
    QFETCH(int, type);
    QFETCH(int, code);
    QFETCH(bool, home);
    QCOMPARE(isHomeKey(InputEvent{quint16(type), quint16(code), 1}), home);
    QCOMPARE(isHomeKey(InputEvent{quint16(type), quint16(code), 0}), home);
}

MFTOOL_TEST(TestInputEvent, EventLoop)
#include "tst_inputevent.moc"
