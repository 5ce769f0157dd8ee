// The lines of the SD card events, without the pipe that brings them.
#include "hardware/sdevent.h"

#include <QtTest>

#include "tests/support/testprogram.h"

class TestSdEvent : public QObject
{
    Q_OBJECT

private slots:
    void line_data();
    void line();
};

void TestSdEvent::line_data()
{
    QTest::addColumn<QByteArray>("line");
    QTest::addColumn<int>("kind");
    QTest::addColumn<QString>("dir");
    const int nothing = SdEvent::Nothing;
    const int mounted = SdEvent::Mounted;
    const int removed = SdEvent::Removed;
    const int invalid = SdEvent::Invalid;
    const QString card = QStringLiteral("/media/mmcblk0p1");
    const QString none;

    QTest::newRow("mounted") << QByteArray("#/media/mmcblk0p1\n") << mounted << card;
    QTest::newRow("removed") << QByteArray("!/media/mmcblk0p1\n") << removed << card;
    QTest::newRow("without line end") << QByteArray("#/media/mmcblk0p1") << mounted << card;
    QTest::newRow("CR LF") << QByteArray("!/media/mmcblk0p1\r\n") << removed << card;
    QTest::newRow("white space around")
        << QByteArray("# \t\v\f/media/mmcblk0p1 \t\n") << mounted << card;
    QTest::newRow("white space inside")
        << QByteArray("#/media/my  card 1\n") << mounted << QStringLiteral("/media/my  card 1");
    QTest::newRow("marks inside") << QByteArray("#/media/#1!\n") << mounted
                                  << QStringLiteral("/media/#1!");
    QTest::newRow("both marks") << QByteArray("#!/media\n") << mounted << QStringLiteral("!/media");
    QTest::newRow("any text is a folder")
        << QByteArray("!gone\n") << removed << QStringLiteral("gone");
    QTest::newRow("up to a zero byte")
        << QByteArray("#/media/mmcblk0p1\0/more\n", 24) << mounted << card;
    QTest::newRow("white space before a zero byte")
        << QByteArray("#/media/mmcblk0p1 \0x\n", 21) << mounted << card;
    QTest::newRow("zero byte at once") << QByteArray("!\0/media\n", 9) << removed << none;
    QTest::newRow("a name in UTF-8") << QByteArray("#/media/gro\xC3\x9F\n") << mounted
                                     << QString::fromUtf8("/media/gro\xC3\x9F");
    QTest::newRow("mounted nowhere") << QByteArray("#") << mounted << none;
    QTest::newRow("mounted nowhere, with line end") << QByteArray("#\n") << mounted << none;
    QTest::newRow("removed from nowhere") << QByteArray("!  \n") << removed << none;

    QTest::newRow("empty") << QByteArray() << nothing << none;
    QTest::newRow("null") << QByteArray("") << nothing << none;
    QTest::newRow("line end") << QByteArray("\n") << nothing << none;
    QTest::newRow("CR LF alone") << QByteArray("\r\n") << nothing << none;

    QTest::newRow("CR alone") << QByteArray("\r") << invalid << none;
    QTest::newRow("space and line end") << QByteArray(" \n") << invalid << none;
    QTest::newRow("space before the mark") << QByteArray(" #/media\n") << invalid << none;
    QTest::newRow("line end before the mark") << QByteArray("\n#/media\n") << invalid << none;
    QTest::newRow("letter") << QByteArray("m/media\n") << invalid << none;
    QTest::newRow("path alone") << QByteArray("/media/mmcblk0p1\n") << invalid << none;
    QTest::newRow("zero byte") << QByteArray("\0", 1) << invalid << none;
    QTest::newRow("zero byte before the mark") << QByteArray("\0#/media\n", 9) << invalid << none;
    QTest::newRow("byte above 0x7F") << QByteArray("\xA3/media\n") << invalid << none;
}

void TestSdEvent::line()
{
    QFETCH(QByteArray, line);
    QFETCH(int, kind);
    QFETCH(QString, dir);
    const SdEvent event = parseSdEvent(line);
    QCOMPARE(int(event.kind), kind);
    QCOMPARE(event.dir, dir);
}

MFTOOL_TEST(TestSdEvent, EventLoop)
#include "tst_sdevent.moc"
