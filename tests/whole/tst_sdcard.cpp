/// The card: announced through the pipe, read back on request, with every result caused
/// as by a real card.
#include "tests/support/testprogram.h"
#include "tests/whole/rig.h"

#include <fcntl.h>
#include <unistd.h>

namespace
{

const QString card = QStringLiteral("/media/mmcblk0p1");
const QString testFile = QStringLiteral("/media/mmcblk0p1/ateTestFileOnSdCard.txt");
const QString startedLine =
    QStringLiteral("debug: In ATE Mode--->, command 0X6161: readSdCard started");
const QString confirmedLine =
    QStringLiteral("debug: SD Detectiona and mount is confirmed in /media/mmcblk0p1");
const QString zeros = QString(20, QLatin1Char('0'));

} // namespace

class TestSdCard : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void noCard_data();
    void noCard();
    void toldByThePipe();
    void healthy();
    void healthyAgain();
    void echoedNumbers_data();
    void echoedNumbers();
    void folderGone();
    void undeletable_data();
    void undeletable();
    void writeProtected();
    void full();
    void readsBackWrong();
    void anotherFolder();
    void removed();

private:
    Outcome read(const QByteArray &timeoutAndPort = "0502")
    {
        return m_rig->request(0x6161, "01" + timeoutAndPort);
    }
    bool insert(const QString &dir = card);
    bool freshCard(VirtualKeypad::Card kind);

    QScopedPointer<Rig> m_rig;
};

void TestSdCard::initTestCase()
{
    SKIP_UNLESS_KEYPADS_RUN();
    m_rig.reset(new Rig);
    QVERIFY2(m_rig->startReady(), qPrintable(m_rig->why()));
}

bool TestSdCard::insert(const QString &dir)
{
    m_rig->settle();
    m_rig->forget();
    return m_rig->keypad.insertCard(dir) &&
           m_rig->waitForLog(
               QStringLiteral("debug: In ATE Mode--->, SD Mount to m_sdCardMountPath=") + dir);
}

/// An empty card in the slot that behaves as @p kind says.
bool TestSdCard::freshCard(VirtualKeypad::Card kind)
{
    RigKeypad &keypad = m_rig->keypad;
    if (!keypad.setCard(VirtualKeypad::Writable))
        return false;
    const QStringList old = keypad.listDir(card);
    for (const QString &name : old) {
        if (!keypad.removeFile(card + QLatin1Char('/') + name))
            return false;
    }
    return keypad.setCard(kind) && insert();
}

void TestSdCard::noCard_data()
{
    QTest::addColumn<QByteArray>("data");
    QTest::addColumn<QString>("reply");
    QTest::newRow("5, 2") << QByteArray("010502") << "6162 0105020100000000000000000000";
    QTest::newRow("0, 0") << QByteArray("010000") << "6162 0100000100000000000000000000";
    QTest::newRow("255, 255") << QByteArray("01FFFF") << "6162 01FFFF0100000000000000000000";
    QTest::newRow("lower case") << QByteArray("01ab0c") << "6162 01AB0C0100000000000000000000";
    QTest::newRow("no numbers") << QByteArray("01x1-1") << "6162 0100000100000000000000000000";
}

void TestSdCard::noCard()
{
    QFETCH(QByteArray, data);
    QFETCH(QString, reply);
    const Outcome outcome = m_rig->request(0x6161, data);
    QCOMPARE(outcome.line, QStringList(reply));
    QCOMPARE(outcome.log,
             QStringList({startedLine, "debug: SD Detection and/or mount is not confirmed, we "
                                       "cannot continue readSdCardread"}));
}

void TestSdCard::toldByThePipe()
{
    m_rig->forget();
    QVERIFY(m_rig->keypad.insertCard());
    QVERIFY(m_rig->keypad.removeCard());
    QVERIFY(m_rig->keypad.removeCard("/media/other"));
    QVERIFY(m_rig->waitForLog(
        "debug: In ATE Mode--->, SD UnMount from m_sdCardMountPath=/media/other"));
    const Outcome outcome = m_rig->settle();
    QCOMPARE(outcome.line, QStringList()); // the station is told nothing

    // The monitor and the main thread log in any order.
    QCOMPARE(outcome.log.filter("SD mon read: "),
             QStringList({"debug: In ATE Mode--->,SD mon read: #/media/mmcblk0p1\n",
                          "debug: In ATE Mode--->,SD mon read: !/media/mmcblk0p1\n",
                          "debug: In ATE Mode--->,SD mon read: !/media/other\n"}));
    QCOMPARE(
        outcome.log.filter("m_sdCardMountPath"),
        QStringList({"debug: In ATE Mode--->, SD Mount to m_sdCardMountPath=/media/mmcblk0p1",
                     "debug: In ATE Mode--->, SD UnMount from m_sdCardMountPath=/media/mmcblk0p1",
                     "debug: In ATE Mode--->, SD UnMount from m_sdCardMountPath=/media/other"}));
}

void TestSdCard::healthy()
{
    QVERIFY(freshCard(VirtualKeypad::Writable));
    QVERIFY(m_rig->keypad.writeFile(testFile, "of an earlier test\n"));
    const Outcome outcome = read();
    QCOMPARE(outcome.line.size(), 1);
    const QString reply = outcome.line.first();
    QCOMPARE(reply.left(13), QString("6162 01050200"));
    QCOMPARE(reply.size(), 13 + 20);

    // The test file stays: ten lines of two digits, in the order of the reply.
    const QList<QByteArray> lines = m_rig->keypad.readFile(testFile).split('\n');
    QCOMPARE(lines.size(), 11);
    QCOMPARE(lines.last(), QByteArray());
    QString values;
    for (int i = 0; i < 10; ++i) {
        QCOMPARE(lines.at(i).size(), 2);
        QCOMPARE(lines.at(i), lines.at(i).toUpper());
        values += QString::fromLatin1(lines.at(i));
    }
    QCOMPARE(reply.mid(13), values);

    QStringList log = outcome.log;
    QCOMPARE(log.size(), 14);
    QCOMPARE(log.takeFirst(), startedLine);
    QCOMPARE(log.takeFirst(), confirmedLine);
    for (int i = 0; i < 10; ++i) {
        // Filled with blanks, as the format has it.
        const QString shown = QString::number(values.mid(2 * i, 2).toInt(nullptr, 16), 16)
                                  .toUpper()
                                  .rightJustified(2);
        QCOMPARE(log.takeFirst(),
                 QStringLiteral("debug: index = %1,-------Write=0x%2,----------Read=0x%2\n")
                     .arg(QString::number(i), shown));
    }
    QVERIFY(QRegularExpression("^debug: Total time to read data is [0-9]+ msec$")
                .match(log.takeFirst())
                .hasMatch());
    QCOMPARE(log, QStringList("debug: Full match between read and write"));
    QCOMPARE(m_rig->keypad.listDir(card), QStringList("ateTestFileOnSdCard.txt"));
}

void TestSdCard::healthyAgain()
{
    QVERIFY(freshCard(VirtualKeypad::Writable));
    const QByteArray before = m_rig->keypad.readFile(testFile);
    QCOMPARE(before, QByteArray());
    for (int i = 0; i < 3; ++i)
        QCOMPARE(read().line.value(0).left(13), QString("6162 01050200"));
}

void TestSdCard::echoedNumbers_data()
{
    QTest::addColumn<QByteArray>("numbers");
    QTest::addColumn<QString>("start");
    QTest::newRow("0, 0") << QByteArray("0000") << "6162 01000000";
    QTest::newRow("255, 0") << QByteArray("FF00") << "6162 01FF0000";
    QTest::newRow("0, 255") << QByteArray("00FF") << "6162 0100FF00";
}

void TestSdCard::echoedNumbers()
{
    QFETCH(QByteArray, numbers);
    QFETCH(QString, start);
    QVERIFY(freshCard(VirtualKeypad::Writable));
    const Outcome outcome = read(numbers);
    QCOMPARE(outcome.line.size(), 1);
    QCOMPARE(outcome.line.first().left(13), start);
    QCOMPARE(outcome.line.first().size(), 33);
}

void TestSdCard::folderGone()
{
    QVERIFY(freshCard(VirtualKeypad::Writable));
    QVERIFY(m_rig->keypad.setCard(VirtualKeypad::NoFolder));
    const Outcome outcome = read();
    QCOMPARE(outcome.line, QStringList("6162 01050202" + zeros));
    QCOMPARE(outcome.log, QStringList({startedLine, confirmedLine,
                                       "debug: Cannot Open File:" + testFile + " for write"}));
}

void TestSdCard::undeletable_data()
{
    QTest::addColumn<bool>("writable");
    QTest::addColumn<QString>("how"); // folder, bound file, file
    QTest::newRow("folder on a writable card") << true << "folder";
    QTest::newRow("folder on a read-only card") << false << "folder";
    QTest::newRow("bound file on a writable card") << true << "bound";
    QTest::newRow("bound file on a read-only card") << false << "bound";
    QTest::newRow("file on a read-only card") << false << "file";
}

void TestSdCard::undeletable()
{
    QFETCH(bool, writable);
    QFETCH(QString, how);
    RigKeypad &keypad = m_rig->keypad;
    QVERIFY(freshCard(VirtualKeypad::Writable));
    if (how == "folder") {
        QVERIFY(keypad.makeDir(testFile));
        QVERIFY(keypad.writeFile(testFile + "/inside", "x"));
    } else {
        QVERIFY(keypad.writeFile(testFile, "old\n"));
    }
    if (how == "bound") {
        const VirtualKeypad::RunResult bound =
            keypad.run("mount", {"--bind", "/usr/lib/panel/version", testFile});
        if (bound.code != 0)
            QSKIP(("no bind mounts here: " + bound.errors).constData());
    }
    if (!writable)
        QVERIFY2(keypad.setCard(VirtualKeypad::ReadOnly), qPrintable(keypad.errorString()));

    const Outcome outcome = read();
    const QStringList left = keypad.listDir(card);
    if (how == "bound")
        keypad.run("umount", {testFile});

    QCOMPARE(outcome.line, QStringList((writable ? "6162 01050203" : "6162 01050202") + zeros));
    QStringList log{startedLine, confirmedLine,
                    "debug: " + testFile + " exist but cannot be deleted, SD may have some error"};
    if (!writable)
        log << "debug: Cannot Open File:/media/mmcblk0p1/tmp.txt for write during test for SD "
               "card-read: write protect error";
    QCOMPARE(outcome.log, log);
    // The probe file is gone again.
    QCOMPARE(left, QStringList("ateTestFileOnSdCard.txt"));
}

void TestSdCard::writeProtected()
{
    QVERIFY(freshCard(VirtualKeypad::ReadOnly));
    const Outcome outcome = read();
    QCOMPARE(outcome.line, QStringList("6162 01050202" + zeros));
    QCOMPARE(outcome.log, QStringList({startedLine, confirmedLine,
                                       "debug: Cannot Open File:" + testFile + " for write"}));
}

/// The file can be made but holds nothing: ten lines are read all the same.
void TestSdCard::full()
{
    QVERIFY(freshCard(VirtualKeypad::Full));
    const Outcome outcome = read();
    QCOMPARE(outcome.line, QStringList("6162 01050203" + zeros));
    QCOMPARE(outcome.log.filter("Read=0x 0\n").size(), 10);
    // A zero that was written is no mismatch.
    const int matches = int(outcome.log.filter("Write=0x 0,").size());
    QCOMPARE(outcome.log.last(),
             QStringLiteral("debug: Error: number of mismatch betwwen write and read =%1")
                 .arg(10 - matches));
    QVERIFY(m_rig->keypad.exists(testFile));
}

/// The first digit of the file is read back as the next or previous one.
void TestSdCard::readsBackWrong()
{
    QVERIFY2(freshCard(VirtualKeypad::ReadsBackWrong), qPrintable(m_rig->keypad.errorString()));
    // The digit may happen to be a letter that becomes something else than a digit: then
    // 0 is read.
    const Outcome outcome = read();
    QCOMPARE(outcome.line.size(), 1);
    QCOMPARE(outcome.line.first().left(13), QString("6162 01050203"));
    QCOMPARE(outcome.log.last(),
             QString("debug: Error: number of mismatch betwwen write and read =1"));

    const QList<QByteArray> lines = m_rig->keypad.readFile(testFile).split('\n');
    QCOMPARE(lines.size(), 11);
    QString values;
    for (int i = 0; i < 10; ++i)
        values += QString::number(lines.at(i).toInt(nullptr, 16), 16)
                      .toUpper()
                      .rightJustified(2, QLatin1Char('0'));
    QCOMPARE(outcome.line.first().mid(13), values);
    QVERIFY(m_rig->keypad.setCard(VirtualKeypad::Writable));
}

/// Where the card is mounted is what the pipe says.
void TestSdCard::anotherFolder()
{
    QVERIFY(m_rig->keypad.makeDir("/media/a card"));
    QVERIFY(insert("/media/a card"));
    const Outcome outcome = read();
    QCOMPARE(outcome.line.value(0).left(13), QString("6162 01050200"));
    QVERIFY(outcome.log.contains("debug: SD Detectiona and mount is confirmed in /media/a card"));
    QCOMPARE(m_rig->keypad.listDir("/media/a card"), QStringList("ateTestFileOnSdCard.txt"));
}

void TestSdCard::removed()
{
    QVERIFY(freshCard(VirtualKeypad::Writable));
    m_rig->forget();
    // Whatever was removed, no card is left.
    QVERIFY(m_rig->keypad.removeCard("/media/other"));
    QVERIFY(m_rig->waitForLog(
        "debug: In ATE Mode--->, SD UnMount from m_sdCardMountPath=/media/other"));
    QCOMPARE(read().line, QStringList("6162 01050201" + zeros));
    QCOMPARE(m_rig->keypad.listDir(card), QStringList());
}

MFTOOL_TEST(TestSdCard, EventLoop)
#include "tst_sdcard.moc"
