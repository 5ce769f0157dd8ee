#include "calibration/pointercalfile.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>
#include <QTest>

#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include "tests/support/descriptors.h"
#include "tests/support/testprogram.h"

namespace
{

bool put(const QString &path, const QByteArray &content)
{
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(content) == content.size();
}

ino_t inodeOf(const QString &path)
{
    struct stat status;
    return ::stat(QFile::encodeName(path).constData(), &status) == 0 ? status.st_ino : 0;
}

} // namespace

class TestPointercalFile : public QObject
{
    Q_OBJECT
private slots:
    void init();
    void cleanup();
    void whereToReadAndWrite_data();
    void whereToReadAndWrite();
    void environmentIsAskedEachTime();
    void parses_data();
    void parses();
    void refusesForeignContent_data();
    void refusesForeignContent();
    void formatsOneLine();
    void forTheLibrary_data();
    void forTheLibrary();
    void fileOfQt();
    void readsNothingFromWhatIsNoFile();
    void storesNewFile();
    void replacesAsAWhole();
    void keepsTheMode();
    void leftoverOfAPowerCutIsInNobodysWay();
    void sameContentIsNotStoredAgain();
    void followsALink();
    void followsALinkToNothing();
    void storesInAll();
    void missingFolder();
    void unwritableFolder();
    void neverReplacesWhatIsNoFile();
    void failureOfOneLeavesAllAsTheyWere();
    void failedRenameLeavesAllAsTheyWere();

private:
    QString in(const char *name) const { return m_folder + QLatin1Char('/') + name; }

    QStringList names() const
    {
        return QDir(m_folder).entryList(QDir::NoDotAndDotDot | QDir::AllEntries | QDir::System);
    }

    QTemporaryDir *m_dir = nullptr;
    QString m_folder; // without symbolic links, as errors name it
};

void TestPointercalFile::init()
{
    m_dir = new QTemporaryDir;
    QVERIFY(m_dir->isValid());
    m_folder = QFileInfo(m_dir->path()).canonicalFilePath();
    qunsetenv("POINTERCAL_FILE");
    qunsetenv("TSLIB_CALIBFILE");
}

void TestPointercalFile::cleanup()
{
    delete m_dir;
    m_dir = nullptr;
}

void TestPointercalFile::whereToReadAndWrite_data()
{
    QTest::addColumn<QByteArray>("ofQt");
    QTest::addColumn<QByteArray>("ofLibrary");
    QTest::addColumn<QString>("read");
    QTest::addColumn<QStringList>("write");
    QTest::newRow("neither") << QByteArray() << QByteArray() << "/etc/pointercal"
                             << QStringList("/etc/pointercal");
    QTest::newRow("Qt's") << QByteArray("/a/one") << QByteArray() << "/a/one"
                          << QStringList("/a/one");
    QTest::newRow("the library's")
        << QByteArray() << QByteArray("/a/two") << "/a/two" << QStringList("/a/two");
    QTest::newRow("both the same")
        << QByteArray("/mnt/etc/pointercal") << QByteArray("/mnt/etc/pointercal")
        << "/mnt/etc/pointercal" << QStringList("/mnt/etc/pointercal");
    QTest::newRow("the same in two spellings")
        << QByteArray("/mnt/etc/pointercal") << QByteArray("/mnt//etc/./pointercal")
        << "/mnt//etc/./pointercal" << QStringList("/mnt/etc/pointercal");
    QTest::newRow("two") << QByteArray("/a/one") << QByteArray("/a/two") << "/a/two"
                         << QStringList({"/a/one", "/a/two"});
}

void TestPointercalFile::whereToReadAndWrite()
{
    QFETCH(QByteArray, ofQt);
    QFETCH(QByteArray, ofLibrary);
    QFETCH(QString, read);
    QFETCH(QStringList, write);
    // An empty variable counts as unset.
    qputenv("POINTERCAL_FILE", ofQt);
    qputenv("TSLIB_CALIBFILE", ofLibrary);
    QCOMPARE(PointercalFile::toRead(), read);
    QCOMPARE(PointercalFile::toWrite(), write);
}

void TestPointercalFile::environmentIsAskedEachTime()
{
    qputenv("POINTERCAL_FILE", "/etc/pointercal");
    QCOMPARE(PointercalFile::toWrite(), QStringList("/etc/pointercal"));
    qputenv("POINTERCAL_FILE", "/mnt/etc/pointercal");
    qputenv("TSLIB_CALIBFILE", "/mnt/etc/pointercal");
    QCOMPARE(PointercalFile::toWrite(), QStringList("/mnt/etc/pointercal"));
    QCOMPARE(PointercalFile::toRead(), QString("/mnt/etc/pointercal"));
}

void TestPointercalFile::parses_data()
{
    QTest::addColumn<QByteArray>("content");
    QTest::newRow("a line") << QByteArray("1 -2 3 4 5 -6 65536\n");
    QTest::newRow("no line end") << QByteArray("1 -2 3 4 5 -6 65536");
    QTest::newRow("odd white space") << QByteArray("  1\t-2\r\n3  4\n5 -6 65536 \r\n");
    QTest::newRow("with screen size and rotation") << QByteArray("1 -2 3 4 5 -6 65536 800 480 0\n");
    QTest::newRow("with a remark") << QByteArray("1 -2 3 4 5 -6 65536 # line 4\n");
}

void TestPointercalFile::parses()
{
    QFETCH(QByteArray, content);
    AffineMap map;
    QVERIFY(PointercalFile::parse(content, &map));
    QCOMPARE(map.a, 1);
    QCOMPARE(map.b, -2);
    QCOMPARE(map.c, 3);
    QCOMPARE(map.d, 4);
    QCOMPARE(map.e, 5);
    QCOMPARE(map.f, -6);
    QCOMPARE(map.s, 65536);
}

void TestPointercalFile::refusesForeignContent_data()
{
    QTest::addColumn<QByteArray>("content");
    QTest::newRow("nothing") << QByteArray();
    QTest::newRow("a line end") << QByteArray("\n");
    QTest::newRow("six numbers") << QByteArray("1 2 3 4 5 6\n");
    QTest::newRow("scale 0") << QByteArray("1 2 3 4 5 6 0\n");
    QTest::newRow("words") << QByteArray("this is no calibration file at all\n");
    QTest::newRow("a word among them") << QByteArray("1 2 3 x 5 6 7\n");
    QTest::newRow("a fraction") << QByteArray("1 2 3.5 4 5 6 7\n");
    QTest::newRow("beyond 32 bits") << QByteArray("1 2 3 4 5 2147483648 7\n");
    QTest::newRow("commas") << QByteArray("1,2,3,4,5,6,7\n");
    QTest::newRow("bytes") << QByteArray("\0\1\377\0 1 2 3 4 5 6", 16);
}

void TestPointercalFile::refusesForeignContent()
{
    QFETCH(QByteArray, content);
    AffineMap map = {9, 9, 9, 9, 9, 9, 9};
    QVERIFY(!PointercalFile::parse(content, &map));
    QCOMPARE(map.a, 9);
    QCOMPARE(map.s, 9);
}

void TestPointercalFile::forTheLibrary_data()
{
    QTest::addColumn<QByteArray>("content");
    QTest::addColumn<QByteArray>("given");
    QTest::newRow("plain") << QByteArray("13107 0 1 0 7864 2 65536")
                           << QByteArray("13107 0 1 0 7864 2 65536\n");
    QTest::newRow("screen and rotation") << QByteArray("13107\t0 1 0 7864 2 65536\r\n800 480 1\n")
                                         << QByteArray("13107 0 1 0 7864 2 65536 800 480 1\n");
    QTest::newRow("half of them") << QByteArray("13107 0 1 0 7864 2 65536 800 480\n")
                                  << QByteArray("13107 0 1 0 7864 2 65536\n");
    QTest::newRow("negative width") << QByteArray("13107 0 1 0 7864 2 65536 -800 480 0\n")
                                    << QByteArray("13107 0 1 0 7864 2 65536\n");
    QTest::newRow("other text behind") << QByteArray("13107 0 1 0 7864 2 65536 by hand today\n")
                                       << QByteArray("13107 0 1 0 7864 2 65536\n");
    QTest::newRow("negative scale")
        << QByteArray("-3 0 -4 0 -3 -5 -6\n") << QByteArray("3 0 4 0 3 5 6\n");
    QTest::newRow("scale 0") << QByteArray("1 0 0 0 1 0 0\n") << QByteArray();
    QTest::newRow("short") << QByteArray("1 0 0 0 1 0\n") << QByteArray();
    QTest::newRow("nothing") << QByteArray() << QByteArray();
}

void TestPointercalFile::forTheLibrary()
{
    QFETCH(QByteArray, content);
    QFETCH(QByteArray, given);
    QCOMPARE(PointercalFile::forLibrary(content, QSize(800, 480)), given);
}

void TestPointercalFile::fileOfQt()
{
    qputenv("TSLIB_CALIBFILE", "/a/two");
    QCOMPARE(PointercalFile::ofQt(), QString("/etc/pointercal"));
    qputenv("POINTERCAL_FILE", "/a/one");
    QCOMPARE(PointercalFile::ofQt(), QString("/a/one"));
}

void TestPointercalFile::formatsOneLine()
{
    const AffineMap map = {0, -16384, 63930368, 8192, 0, -786432, 65536};
    QCOMPARE(PointercalFile::format(map), QByteArray("0 -16384 63930368 8192 0 -786432 65536\n"));
    const AffineMap extreme = {-2147483647 - 1, 2147483647, 0, 0, 0, 0, 1};
    QCOMPARE(PointercalFile::format(extreme), QByteArray("-2147483648 2147483647 0 0 0 0 1\n"));
}

void TestPointercalFile::readsNothingFromWhatIsNoFile()
{
    QCOMPARE(PointercalFile::read(in("missing")), QByteArray());
    QCOMPARE(PointercalFile::read(m_folder), QByteArray());
    QCOMPARE(PointercalFile::read("/dev/zero"), QByteArray());
    // Opened for reading, a pipe without a writer would wait for ever.
    QCOMPARE(::mkfifo(QFile::encodeName(in("pipe")).constData(), 0600), 0);
    QCOMPARE(PointercalFile::read(in("pipe")), QByteArray());
}

void TestPointercalFile::storesNewFile()
{
    QString error;
    QVERIFY2(PointercalFile::store(QStringList(in("pointercal")), "1 2 3\n", &error),
             qPrintable(error));
    QCOMPARE(contentOf(in("pointercal")), QByteArray("1 2 3\n"));
    QCOMPARE(names(), QStringList("pointercal"));
    struct stat status;
    QCOMPARE(::stat(QFile::encodeName(in("pointercal")).constData(), &status), 0);
    QCOMPARE(int(status.st_mode & 07777), 0644);
}

// Whoever has the old file open keeps all of it, as after a power cut: a new file takes
// over the name.
void TestPointercalFile::replacesAsAWhole()
{
    QVERIFY(put(in("pointercal"), "old\n"));
    const ino_t before = inodeOf(in("pointercal"));
    QFile open(in("pointercal"));
    QVERIFY(open.open(QIODevice::ReadOnly | QIODevice::Unbuffered));
    QString error;
    QVERIFY2(PointercalFile::store(QStringList(in("pointercal")), "new and longer\n", &error),
             qPrintable(error));
    QCOMPARE(open.readAll(), QByteArray("old\n"));
    QCOMPARE(contentOf(in("pointercal")), QByteArray("new and longer\n"));
    QVERIFY(inodeOf(in("pointercal")) != before);
    QCOMPARE(names(), QStringList("pointercal"));
}

void TestPointercalFile::keepsTheMode()
{
    QVERIFY(put(in("pointercal"), "old\n"));
    const QByteArray path = QFile::encodeName(in("pointercal"));
    QCOMPARE(::chmod(path.constData(), 0666), 0);
    QString error;
    QVERIFY(PointercalFile::store(QStringList(in("pointercal")), "new\n", &error));
    struct stat status;
    QCOMPARE(::stat(path.constData(), &status), 0);
    QCOMPARE(int(status.st_mode & 07777), 0666);
}

void TestPointercalFile::leftoverOfAPowerCutIsInNobodysWay()
{
    QVERIFY(put(in("pointercal"), "old\n"));
    QVERIFY(put(in("pointercal.new"), "half of a much longer li"));
    QCOMPARE(PointercalFile::read(in("pointercal")), QByteArray("old\n"));
    QString error;
    QVERIFY(PointercalFile::store(QStringList(in("pointercal")), "new\n", &error));
    QCOMPARE(contentOf(in("pointercal")), QByteArray("new\n"));
    QCOMPARE(names(), QStringList("pointercal"));
}

void TestPointercalFile::sameContentIsNotStoredAgain()
{
    QVERIFY(put(in("pointercal"), "same\n"));
    const ino_t before = inodeOf(in("pointercal"));
    QString error;
    QVERIFY(PointercalFile::store(QStringList(in("pointercal")), "same\n", &error));
    QCOMPARE(inodeOf(in("pointercal")), before);
}

void TestPointercalFile::followsALink()
{
    QVERIFY(QDir(m_folder).mkdir("data"));
    QVERIFY(put(in("data/pointercal"), "old\n"));
    QVERIFY(QFile::link("data/pointercal", in("pointercal")));
    QString error;
    QVERIFY(PointercalFile::store(QStringList(in("pointercal")), "new\n", &error));
    QVERIFY(QFileInfo(in("pointercal")).isSymLink());
    QCOMPARE(contentOf(in("data/pointercal")), QByteArray("new\n"));
}

void TestPointercalFile::followsALinkToNothing()
{
    QVERIFY(QDir(m_folder).mkdir("data"));
    QVERIFY(QFile::link("data/pointercal", in("pointercal")));
    QString error;
    QVERIFY(PointercalFile::store(QStringList(in("pointercal")), "new\n", &error));
    QVERIFY(QFileInfo(in("pointercal")).isSymLink());
    QCOMPARE(contentOf(in("data/pointercal")), QByteArray("new\n"));
}

void TestPointercalFile::storesInAll()
{
    QVERIFY(put(in("one"), "old\n"));
    QString error;
    QVERIFY(PointercalFile::store(QStringList({in("one"), in("two")}), "new\n", &error));
    QCOMPARE(contentOf(in("one")), QByteArray("new\n"));
    QCOMPARE(contentOf(in("two")), QByteArray("new\n"));
    QCOMPARE(names(), QStringList({"one", "two"}));
}

void TestPointercalFile::missingFolder()
{
    QString error;
    QVERIFY(!PointercalFile::store(QStringList(in("none/pointercal")), "new\n", &error));
    QCOMPARE(error, in("none/pointercal") + ": No such file or directory");
    QCOMPARE(names(), QStringList());
}

void TestPointercalFile::unwritableFolder()
{
    // Permissions do not bind root; /proc does.
    QString error;
    QVERIFY(!PointercalFile::store(QStringList("/proc/pointercal"), "new\n", &error));
    QVERIFY2(error.startsWith("/proc/pointercal: "), qPrintable(error));

    if (::geteuid() == 0)
        return;
    QVERIFY(put(in("pointercal"), "old\n"));
    const QByteArray folder = QFile::encodeName(m_folder);
    QCOMPARE(::chmod(folder.constData(), 0500), 0);
    const bool stored = PointercalFile::store(QStringList(in("pointercal")), "new\n", &error);
    QCOMPARE(::chmod(folder.constData(), 0700), 0);
    QVERIFY(!stored);
    QCOMPARE(error, in("pointercal") + ": Permission denied");
    QCOMPARE(contentOf(in("pointercal")), QByteArray("old\n"));
}

void TestPointercalFile::neverReplacesWhatIsNoFile()
{
    QVERIFY(QDir(m_folder).mkdir("folder"));
    QCOMPARE(::mkfifo(QFile::encodeName(in("pipe")).constData(), 0600), 0);
    QString error;
    QVERIFY(!PointercalFile::store(QStringList(in("folder")), "new\n", &error));
    QCOMPARE(error, in("folder") + ": is no regular file");
    QVERIFY(!PointercalFile::store(QStringList(in("pipe")), "new\n", &error));
    QCOMPARE(error, in("pipe") + ": is no regular file");
    QCOMPARE(names(), QStringList({"folder", "pipe"}));
    QVERIFY(QFileInfo(in("folder")).isDir());
}

void TestPointercalFile::failureOfOneLeavesAllAsTheyWere()
{
    QVERIFY(put(in("one"), "old\n"));
    QString error;
    const QStringList paths = QStringList({in("one"), in("two"), in("none/three")});
    QVERIFY(!PointercalFile::store(paths, "new\n", &error));
    QCOMPARE(error, in("none/three") + ": No such file or directory");
    QCOMPARE(contentOf(in("one")), QByteArray("old\n"));
    QCOMPARE(names(), QStringList("one"));
}

// All three are written beside their files; then the third turns out to be a
// mount point, over which nothing can be renamed.
void TestPointercalFile::failedRenameLeavesAllAsTheyWere()
{
    QVERIFY(put(in("one"), "old\n"));
    QVERIFY(put(in("three"), "old too\n"));
    const QByteArray three = QFile::encodeName(in("three"));
    if (::unshare(CLONE_NEWNS) != 0 ||
        ::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
        ::mount(three.constData(), three.constData(), nullptr, MS_BIND, nullptr) != 0)
        QSKIP("a bind mount needs root and a mount namespace");
    QString error;
    const QStringList paths = QStringList({in("one"), in("two"), in("three")});
    const bool stored = PointercalFile::store(paths, "new\n", &error);
    QCOMPARE(::umount(three.constData()), 0);
    QVERIFY(!stored);
    QCOMPARE(error, in("three") + ": Device or resource busy");
    QCOMPARE(contentOf(in("one")), QByteArray("old\n"));
    QCOMPARE(contentOf(in("three")), QByteArray("old too\n"));
    QCOMPARE(names(), QStringList({"one", "three"}));
}

MFTOOL_TEST(TestPointercalFile, NoApplication)
#include "tst_pointercalfile.moc"
