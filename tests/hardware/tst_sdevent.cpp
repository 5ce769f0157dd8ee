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
    const auto row = [](const char *name, const QByteArray &line, int kind, const QString &dir) {
        QTest::newRow(name) << line << kind << dir;
    };
    const int nothing = SdEvent::Nothing;
    const int mounted = SdEvent::Mounted;
    const int removed = SdEvent::Removed;
    const int invalid = SdEvent::Invalid;
    const QString card = QStringLiteral("/media/mmcblk0p1");
    const QString none;

    row("mounted", "#/media/mmcblk0p1\n", mounted, card);
    row("removed", "!/media/mmcblk0p1\n", removed, card);
    row("without line end", "#/media/mmcblk0p1", mounted, card);
    row("CR LF", "!/media/mmcblk0p1\r\n", removed, card);
    row("white space around", QByteArray("# \t\v\f/media/mmcblk0p1 \t\n"), mounted, card);
    row("white space inside", "#/media/my  card 1\n", mounted, QStringLiteral("/media/my  card 1"));
    row("marks inside", "#/media/#1!\n", mounted, QStringLiteral("/media/#1!"));
    row("both marks", "#!/media\n", mounted, QStringLiteral("!/media"));
    row("any text is a folder", "!gone\n", removed, QStringLiteral("gone"));
    row("up to a zero byte", QByteArray("#/media/mmcblk0p1\0/more\n", 24), mounted, card);
    row("white space before a zero byte", QByteArray("#/media/mmcblk0p1 \0x\n", 21), mounted, card);
    row("zero byte at once", QByteArray("!\0/media\n", 9), removed, none);
    row("a name in UTF-8", QByteArray("#/media/gro\xC3\x9F\n"), mounted,
        QString::fromUtf8("/media/gro\xC3\x9F"));
    row("mounted nowhere", "#", mounted, none);
    row("mounted nowhere, with line end", "#\n", mounted, none);
    row("removed from nowhere", "!  \n", removed, none);

    row("empty", QByteArray(), nothing, none);
    row("null", "", nothing, none);
    row("line end", "\n", nothing, none);
    row("CR LF alone", "\r\n", nothing, none);

    row("CR alone", "\r", invalid, none);
    row("space and line end", " \n", invalid, none);
    row("space before the mark", " #/media\n", invalid, none);
    row("line end before the mark", "\n#/media\n", invalid, none);
    row("letter", "m/media\n", invalid, none);
    row("path alone", "/media/mmcblk0p1\n", invalid, none);
    row("zero byte", QByteArray("\0", 1), invalid, none);
    row("zero byte before the mark", QByteArray("\0#/media\n", 9), invalid, none);
    row("byte above 0x7F", QByteArray("\xA3/media\n"), invalid, none);
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
