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
    void noCard();
    void toldByThePipe();
    void healthy();
    void folderGone();
    void writeProtected();
    void full();
    void readsBackWrong();
    void anotherFolder();
    void removed();

private:
    Outcome read() { return m_rig->request(0x6161, "010502"); }
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

void TestSdCard::noCard()
{
    const Outcome outcome = m_rig->request(0x6161, "01ab0c");
    QCOMPARE(outcome.line, QStringList("6162 01AB0C0100000000000000000000"));
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

void TestSdCard::folderGone()
{
    QVERIFY(freshCard(VirtualKeypad::Writable));
    QVERIFY(m_rig->keypad.setCard(VirtualKeypad::NoFolder));
    const Outcome outcome = read();
    QCOMPARE(outcome.line, QStringList("6162 01050202" + zeros));
    QCOMPARE(outcome.log, QStringList({startedLine, confirmedLine,
                                       "debug: Cannot Open File:" + testFile + " for write"}));
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
