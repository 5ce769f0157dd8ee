// The switch of the card's power, on a folder that plays the board.
#include "hardware/sdpower.h"

#include <QtTest>

#include "tests/support/boardfolder.h"
#include "tests/support/logcatcher.h"
#include "tests/support/testprogram.h"

namespace
{

const QString powerSwitch = QStringLiteral("/sys/class/gpio/sd_power/value");

} // namespace

class TestSdPower : public QObject
{
    Q_OBJECT

private slots:
    void switches_data();
    void switches();
    void boardWithoutTheSwitch();
    void switchThatCannotBeOpened();
    void refusedStore();
};

void TestSdPower::switches_data()
{
    QTest::addColumn<QByteArray>("before");
    QTest::addColumn<bool>("on");
    QTest::addColumn<QByteArray>("after");
    QTest::addColumn<QString>("said");
    const QString enabled = QStringLiteral("debug: In ATE Mode --->, SD card Detection Enabled");
    const QString disabled = QStringLiteral("debug: In ATE Mode --->, SD card Detection Disabled");
    QTest::newRow("on") << QByteArray("0\n") << true << QByteArray("1") << enabled;
    QTest::newRow("off") << QByteArray("1\n") << false << QByteArray("0") << disabled;
    // Stored every time: somebody else may have switched it in the meantime.
    QTest::newRow("on again") << QByteArray("1\n") << true << QByteArray("1") << enabled;
    QTest::newRow("off again") << QByteArray("0\n") << false << QByteArray("0") << disabled;
}

void TestSdPower::switches()
{
    QFETCH(QByteArray, before);
    QFETCH(bool, on);
    QFETCH(QByteArray, after);
    QFETCH(QString, said);
    BoardFolder folder;
    folder.write(powerSwitch, before);
    LogCatcher log;
    setSdPower(folder.board(), on);
    QCOMPARE(folder.read(powerSwitch), after);
    QCOMPARE(log.take(), QStringList(said));
}

void TestSdPower::boardWithoutTheSwitch()
{
    BoardFolder folder;
    folder.makeFolder(QStringLiteral("/sys/class/gpio/sd_power"));
    LogCatcher log;
    setSdPower(folder.board(), true);
    setSdPower(folder.board(), false);
    QVERIFY(!folder.exists(powerSwitch));
    QCOMPARE(log.take(), QStringList());
}

void TestSdPower::switchThatCannotBeOpened()
{
    // Root may open every file for writing, but no folder.
    BoardFolder folder;
    folder.makeFolder(powerSwitch);
    LogCatcher log;
    const QString failed =
        QStringLiteral("warning: In ATE Mode-->, Failed to open sd power file for writing");
    setSdPower(folder.board(), true);
    QCOMPARE(log.take(), QStringList(failed));
    setSdPower(folder.board(), false);
    QCOMPARE(log.take(), QStringList(failed));
}

void TestSdPower::refusedStore()
{
    BoardFolder folder;
    folder.link(powerSwitch, QStringLiteral("/dev/full"));
    LogCatcher log;
    setSdPower(folder.board(), true);
    QCOMPARE(log.take(), QStringList("debug: In ATE Mode --->, SD card Detection Enabled"));
}

MFTOOL_TEST(TestSdPower, NoApplication)
#include "tst_sdpower.moc"
