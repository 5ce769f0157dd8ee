// rand() is replaced by the test's own: so it knows the bytes to expect, and can look at
// the card between two of them and change it as a bad card would.
#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QtTest>

#include <cerrno>
#include <cstring>
#include <ctime>
#include <functional>

#include <sys/mount.h>
#include <unistd.h>

#include "hardware/sdcardtest.h"
#include "tests/support/anyqt.h"
#include "tests/support/logcatcher.h"
#include "tests/support/testprogram.h"

namespace
{

QList<int> numbers;
QList<unsigned int> seeds;
std::function<void(int)> beforeNumber;
int drawn = 0;

} // namespace

// These two replace the C library's, even for the code under test.
extern "C" void srand(unsigned int seed) noexcept
{
    seeds.append(seed);
}

extern "C" int rand() noexcept
{
    if (beforeNumber)
        beforeNumber(drawn);
    return drawn < numbers.size() ? numbers.at(drawn++) : 0;
}

namespace
{

const char testFile[] = "ateTestFileOnSdCard.txt";
const char probeFile[] = "tmp.txt";

/// Low bytes 01 23 45 67 89 AB CD EF 05 FA.
const QList<int> tenNumbers{0x01,       0x123,      0x7F45,     0x7FFFFF67, 0x89,
                            0x7ABCD0AB, 0x010101CD, 0x000000EF, 0x00000F05, 0xFA};
const char tenLines[] = "01\n23\n45\n67\n89\nAB\nCD\nEF\n05\nFA\n";

/// A folder that plays the mounted card.
class Card
{
public:
    ~Card()
    {
        for (const QByteArray &mountPoint : m_mounted)
            umount2(mountPoint.constData(), MNT_DETACH);
    }

    QString path() const { return m_folder.path(); }
    QString path(const char *name) const { return m_folder.path() + "/" + QLatin1String(name); }
    bool has(const char *name) const { return QFile::exists(path(name)); }
    QStringList names() const
    {
        return QDir(path()).entryList(QDir::AllEntries | QDir::Hidden | QDir::System |
                                      QDir::NoDotAndDotDot);
    }

    bool put(const char *name, const QByteArray &bytes) const
    {
        QFile file(path(name));
        return file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size();
    }

    QByteArray get(const char *name) const
    {
        QFile file(path(name));
        if (!file.open(QIODevice::ReadOnly))
            return "(none)";
        return file.readAll();
    }

    /// Mounts a file system of its own on the folder.
    bool mountTmpfs(const char *options)
    {
        const QByteArray target = QFile::encodeName(path());
        if (mount("tmpfs", target.constData(), "tmpfs", 0, options) != 0)
            return false;
        m_mounted.prepend(target);
        return true;
    }

    bool makeReadOnly() const
    {
        return mount(nullptr, QFile::encodeName(path()).constData(), nullptr,
                     MS_REMOUNT | MS_RDONLY, nullptr) == 0;
    }

    /// Mounts @p other over the file @p name, which then cannot be deleted.
    bool bindOver(const char *name, const QString &other)
    {
        const QByteArray target = QFile::encodeName(path(name));
        if (mount(QFile::encodeName(other).constData(), target.constData(), nullptr, MS_BIND,
                  nullptr) != 0)
            return false;
        m_mounted.prepend(target);
        return true;
    }

private:
    QTemporaryDir m_folder;
    QList<QByteArray> m_mounted;
};

const char mountNeedsRoot[] = "mounting needs more rights than this test has here";

} // namespace

class TestSdCardTest : public QObject
{
    Q_OBJECT

private slots:
    void init();

    void goodCard();
    void seededWithTheTime();
    void everyLineIsFlushed();
    void oldFileIsDeleted();
    void probeFileIsNotTouchedByAGoodCard();

    void oldFileIsAFolder();
    void oldFileIsAMountPoint();
    void oldFileOnReadOnlyCard();
    void oldProbeFile();
    void probeIsAFolder();

    void cardFolderGone();
    void readOnlyCard();
    void fileVanishes();

    void byteDiffers();
    void fullCard();
    void linesReadBack_data();
    void linesReadBack();

private:
    qint64 run(const QString &mountDir);

    int m_status;
    int m_values[10];
};

void TestSdCardTest::init()
{
    numbers = tenNumbers;
    seeds.clear();
    beforeNumber = nullptr;
    drawn = 0;
    m_status = -77;
    for (int &value : m_values)
        value = -88;
}

qint64 TestSdCardTest::run(const QString &mountDir)
{
    const qint64 result = sdCardTest(mountDir, m_status, m_values);
    beforeNumber = nullptr;
    return result;
}

#define COMPARE_VALUES(...)                                                                        \
    do {                                                                                           \
        const int expected[10] = {__VA_ARGS__};                                                    \
        for (int i = 0; i < 10; ++i)                                                               \
            QCOMPARE(m_values[i], expected[i]);                                                    \
    } while (false)

#define VALUES_UNTOUCHED() COMPARE_VALUES(-88, -88, -88, -88, -88, -88, -88, -88, -88, -88)

void TestSdCardTest::goodCard()
{
    Card card;
    LogCatcher log;
    const qint64 elapsed = run(card.path());
    const QStringList messages = log.take();
    QVERIFY(elapsed >= 0);
    QCOMPARE(m_status, 0);
    COMPARE_VALUES(0x01, 0x23, 0x45, 0x67, 0x89, 0xAB, 0xCD, 0xEF, 0x05, 0xFA);
    QCOMPARE(card.names(), QStringList(QLatin1String(testFile)));
    QCOMPARE(card.get(testFile), QByteArray(tenLines));

    QCOMPARE(messages,
             strings("debug: index = 0,-------Write=0x 1,----------Read=0x 1\n",
                     "debug: index = 1,-------Write=0x23,----------Read=0x23\n",
                     "debug: index = 2,-------Write=0x45,----------Read=0x45\n",
                     "debug: index = 3,-------Write=0x67,----------Read=0x67\n",
                     "debug: index = 4,-------Write=0x89,----------Read=0x89\n",
                     "debug: index = 5,-------Write=0xAB,----------Read=0xAB\n",
                     "debug: index = 6,-------Write=0xCD,----------Read=0xCD\n",
                     "debug: index = 7,-------Write=0xEF,----------Read=0xEF\n",
                     "debug: index = 8,-------Write=0x 5,----------Read=0x 5\n",
                     "debug: index = 9,-------Write=0xFA,----------Read=0xFA\n",
                     QStringLiteral("debug: Total time to read data is %1 msec").arg(elapsed),
                     "debug: Full match between read and write"));
}

void TestSdCardTest::seededWithTheTime()
{
    Card card;
    LogCatcher log;
    const time_t before = time(nullptr);
    run(card.path());
    const time_t after = time(nullptr);
    QCOMPARE(seeds.size(), 1);
    QVERIFY(time_t(seeds.at(0)) >= before && time_t(seeds.at(0)) <= after);
    QCOMPARE(drawn, 10);

    drawn = 0;
    run(card.path());
    QCOMPARE(seeds.size(), 2);
}

void TestSdCardTest::everyLineIsFlushed()
{
    Card card;
    LogCatcher log;
    QList<QByteArray> seen;
    beforeNumber = [&](int) { seen.append(card.get(testFile)); };
    run(card.path());
    QCOMPARE(seen.size(), 10);
    for (int i = 0; i < 10; ++i)
        QCOMPARE(seen.at(i), QByteArray(tenLines).left(3 * i));
}

void TestSdCardTest::oldFileIsDeleted()
{
    Card card;
    const QByteArray old = QByteArray("an older, longer file\n").repeated(10);
    QVERIFY(card.put(testFile, old));
    // Deleted, not overwritten: its other name keeps what was in it.
    QVERIFY(link(QFile::encodeName(card.path(testFile)).constData(),
                 QFile::encodeName(card.path("kept")).constData()) == 0);
    // A file's own mode does not protect it from being deleted: its folder's does.
    QVERIFY(QFile::setPermissions(card.path(testFile), QFile::ReadOwner));
    LogCatcher log;
    QVERIFY(run(card.path()) >= 0);
    QCOMPARE(m_status, 0);
    QCOMPARE(card.get(testFile), QByteArray(tenLines));
    QCOMPARE(card.get("kept"), old);
    // And once more, on the file of the first run.
    drawn = 0;
    QVERIFY(run(card.path()) >= 0);
    QCOMPARE(m_status, 0);
}

void TestSdCardTest::probeFileIsNotTouchedByAGoodCard()
{
    Card card;
    QVERIFY(card.put(probeFile, "mine"));
    LogCatcher log;
    run(card.path());
    QCOMPARE(card.get(probeFile), QByteArray("mine"));
}

void TestSdCardTest::oldFileIsAFolder()
{
    Card card;
    QVERIFY(QDir(card.path()).mkpath(QLatin1String(testFile) + "/inside"));
    LogCatcher log;
    QCOMPARE(run(card.path()), qint64(-1));
    QCOMPARE(m_status, 3);
    VALUES_UNTOUCHED();
    QCOMPARE(log.take(), QStringList(QStringLiteral("debug: ") + card.path() +
                                     QStringLiteral("/ateTestFileOnSdCard.txt exist but cannot be "
                                                    "deleted, SD may have some error")));
    QCOMPARE(card.names(), QStringList(QLatin1String(testFile)));
    QCOMPARE(drawn, 0);
}

void TestSdCardTest::oldFileIsAMountPoint()
{
    Card card;
    QTemporaryDir elsewhere;
    QFile other(elsewhere.filePath(QStringLiteral("file")));
    QVERIFY(other.open(QIODevice::WriteOnly));
    other.write("bound");
    other.close();
    QVERIFY(card.put(testFile, "old"));
    if (!card.bindOver(testFile, other.fileName()))
        QSKIP(mountNeedsRoot);
    LogCatcher log;
    QCOMPARE(run(card.path()), qint64(-1));
    QCOMPARE(m_status, 3);
    VALUES_UNTOUCHED();
    QCOMPARE(card.get(testFile), QByteArray("bound"));
    QVERIFY(!card.has(probeFile));
}

void TestSdCardTest::oldFileOnReadOnlyCard()
{
    Card card;
    if (!card.mountTmpfs("size=64k"))
        QSKIP(mountNeedsRoot);
    QVERIFY(card.put(testFile, "old"));
    QVERIFY(card.makeReadOnly());
    LogCatcher log;
    QCOMPARE(run(card.path()), qint64(-1));
    QCOMPARE(m_status, 2);
    VALUES_UNTOUCHED();
    QCOMPARE(log.take(), strings(QStringLiteral("debug: ") + card.path() +
                                     QStringLiteral("/ateTestFileOnSdCard.txt exist but cannot be "
                                                    "deleted, SD may have some error"),
                                 QStringLiteral("debug: Cannot Open File:") + card.path() +
                                     QStringLiteral("/tmp.txt for write during test for SD "
                                                    "card-read: write protect error")));
    QCOMPARE(card.get(testFile), QByteArray("old"));
    QVERIFY(!card.has(probeFile));
}

void TestSdCardTest::oldProbeFile()
{
    Card card;
    QVERIFY(QDir(card.path()).mkpath(QLatin1String(testFile) + "/inside"));
    QVERIFY(card.put(probeFile, "of an earlier run"));
    LogCatcher log;
    QCOMPARE(run(card.path()), qint64(-1));
    QCOMPARE(m_status, 3);
    QVERIFY(!card.has(probeFile));
}

void TestSdCardTest::probeIsAFolder()
{
    // A card that cannot take the probe counts as write-protected, whatever the cause.
    Card card;
    QVERIFY(QDir(card.path()).mkpath(QLatin1String(testFile) + "/inside"));
    QVERIFY(QDir(card.path()).mkdir(QLatin1String(probeFile)));
    LogCatcher log;
    QCOMPARE(run(card.path()), qint64(-1));
    QCOMPARE(m_status, 2);
    VALUES_UNTOUCHED();
}

void TestSdCardTest::cardFolderGone()
{
    Card card;
    const QString gone = card.path("gone");
    LogCatcher log;
    QCOMPARE(run(gone), qint64(-2));
    QCOMPARE(m_status, 2);
    VALUES_UNTOUCHED();
    QCOMPARE(log.take(), QStringList(QStringLiteral("debug: Cannot Open File:") + gone +
                                     QStringLiteral("/ateTestFileOnSdCard.txt for write")));
    QCOMPARE(card.names(), QStringList());
    QCOMPARE(drawn, 0);
}

void TestSdCardTest::readOnlyCard()
{
    Card card;
    if (!card.mountTmpfs("size=64k") || !card.makeReadOnly())
        QSKIP(mountNeedsRoot);
    LogCatcher log;
    QCOMPARE(run(card.path()), qint64(-2));
    QCOMPARE(m_status, 2);
    VALUES_UNTOUCHED();
    QCOMPARE(log.take(), QStringList(QStringLiteral("debug: Cannot Open File:") + card.path() +
                                     QStringLiteral("/ateTestFileOnSdCard.txt for write")));
}

void TestSdCardTest::fileVanishes()
{
    Card card;
    LogCatcher log;
    beforeNumber = [&](int index) {
        if (index == 9)
            QFile::remove(card.path(testFile));
    };
    QCOMPARE(run(card.path()), qint64(-3));
    QCOMPARE(m_status, 3);
    VALUES_UNTOUCHED();
    QCOMPARE(log.take(), QStringList(QStringLiteral("debug: Cannot Open File:") + card.path() +
                                     QStringLiteral("/ateTestFileOnSdCard.txt for Read")));
}

void TestSdCardTest::byteDiffers()
{
    Card card;
    LogCatcher log;
    beforeNumber = [&](int index) {
        if (index != 9)
            return;
        QFile file(card.path(testFile));
        if (file.open(QIODevice::ReadWrite))
            file.write("F1");
    };
    const qint64 elapsed = run(card.path());
    const QStringList messages = log.take();
    QVERIFY(elapsed >= 0);
    QCOMPARE(m_status, 3);
    COMPARE_VALUES(0xF1, 0x23, 0x45, 0x67, 0x89, 0xAB, 0xCD, 0xEF, 0x05, 0xFA);
    QCOMPARE(messages.size(), 12);
    QCOMPARE(messages.at(0),
             QStringLiteral("debug: index = 0,-------Write=0x 1,----------Read=0xF1\n"));
    QCOMPARE(messages.at(10),
             QStringLiteral("debug: Total time to read data is %1 msec").arg(elapsed));
    QCOMPARE(messages.at(11),
             QStringLiteral("debug: Error: number of mismatch betwwen write and read =1"));
    QVERIFY(card.has(testFile));
}

void TestSdCardTest::fullCard()
{
    Card card;
    if (!card.mountTmpfs("size=4k"))
        QSKIP(mountNeedsRoot);
    QVERIFY(card.put("filling", QByteArray(4096, 'x')));
    LogCatcher log;
    QVERIFY(run(card.path()) >= 0);
    QCOMPARE(m_status, 3);
    COMPARE_VALUES(0, 0, 0, 0, 0, 0, 0, 0, 0, 0);
    QCOMPARE(log.take().last(),
             QStringLiteral("debug: Error: number of mismatch betwwen write and read =10"));
    QCOMPARE(card.get(testFile), QByteArray());
}

void TestSdCardTest::linesReadBack_data()
{
    QTest::addColumn<QByteArray>("file");
    QTest::addColumn<QList<int>>("values");
    QTest::addColumn<QString>("lastMessage");

    using List = QList<int>;
    const QString nine =
        QStringLiteral("debug: Error: number of mismatch betwwen write and read =9");
    const QString ten =
        QStringLiteral("debug: Error: number of mismatch betwwen write and read =10");
    QTest::newRow("empty file") << QByteArray() << List{0, 0, 0, 0, 0, 0, 0, 0, 0, 0} << ten;
    QTest::newRow("short file") << QByteArray("01\n") << List{1, 0, 0, 0, 0, 0, 0, 0, 0, 0} << nine;
    QTest::newRow("no line end") << QByteArray("01") << List{1, 0, 0, 0, 0, 0, 0, 0, 0, 0} << nine;
    QTest::newRow("other line end")
        << QByteArray("01\r\n") << List{1, 0, 0, 0, 0, 0, 0, 0, 0, 0} << nine;
    QTest::newRow("no numbers") << QByteArray("zz\n\n1G\n0 1\nFFFFFFFFF\n")
                                << List{0, 0, 0, 0, 0, 0, 0, 0, 0, 0} << ten;
    QTest::newRow("more than a byte")
        << QByteArray("14A\n7FFFFFFF\n") << List{0x14A, 0x7FFFFFFF, 0, 0, 0, 0, 0, 0, 0, 0} << ten;
    QTest::newRow("lower case") << QByteArray("1\n2\n3\n4\n5\nab\n")
                                << List{1, 2, 3, 4, 5, 0xAB, 0, 0, 0, 0}
                                << QStringLiteral("debug: Error: number of mismatch betwwen write "
                                                  "and read =8");
    QTest::newRow("longer file") << QByteArray(tenLines) + "11\n"
                                 << List{0x01, 0x23, 0x45, 0x67, 0x89, 0xAB, 0xCD, 0xEF, 0x05, 0xFA}
                                 << QStringLiteral("debug: Full match between read and write");
}

void TestSdCardTest::linesReadBack()
{
    QFETCH(QByteArray, file);
    QFETCH(QList<int>, values);
    QFETCH(QString, lastMessage);
    Card card;
    LogCatcher log;
    beforeNumber = [&](int index) {
        if (index != 9)
            return;
        QFile::remove(card.path(testFile));
        card.put(testFile, file);
    };
    QVERIFY(run(card.path()) >= 0);
    for (int i = 0; i < 10; ++i)
        QCOMPARE(m_values[i], values.at(i));
    const QStringList messages = log.take();
    QCOMPARE(messages.size(), 12);
    QCOMPARE(messages.last(), lastMessage);
    QCOMPARE(m_status, lastMessage.contains(QStringLiteral("Error")) ? 3 : 0);
}

MFTOOL_TEST(TestSdCardTest, EventLoop)
#include "tst_sdcardtest.moc"
