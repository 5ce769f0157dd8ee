#include <QDir>
#include <QFile>
#include <QProcess>
#include <QProcessEnvironment>
#include <QTemporaryDir>
#include <QtTest>

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include "tests/support/testprogram.h"

/// "bench board" as far as it goes without making a board, which takes minutes.
class TestBoardCommand : public QObject
{
    Q_OBJECT

private slots:
    void unknownOption();
    void noSuchPackage();
    void saysThatThereIsNone();
    void anotherPackageIsAnotherBoard();
    void oneThatIsThereIsKept();
    void othersAreRemoved();
    void nothingIsRemovedWhileOneIsMade();
    void saysWhatIsMissing();
    void lineWithoutBoard();

private:
    void run(const QStringList &arguments, const QString &searchPath = QString());
    QString where(const QByteArray &package);
    QString folder(const char *name, const QStringList &standsOn = QStringList());
    QStringList folders() const;
    int clear();

    QTemporaryDir m_cache;
    int m_status = -1;
    QByteArray m_output;
    QByteArray m_errors;
};

void TestBoardCommand::run(const QStringList &arguments, const QString &searchPath)
{
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("MFTOOL_CACHE"), m_cache.filePath(QStringLiteral("cache")));
    if (!searchPath.isEmpty())
        environment.insert(QStringLiteral("PATH"), searchPath);
    QProcess process;
    process.setProcessEnvironment(environment);
    process.start(QStringLiteral(BENCH), arguments);
    QVERIFY(process.waitForFinished(120000));
    m_status = process.exitCode();
    m_output = process.readAllStandardOutput();
    m_errors = process.readAllStandardError();
}

/// A file that stands for a package, and the folder of its board.
QString TestBoardCommand::where(const QByteArray &package)
{
    const QString path = m_cache.filePath(QStringLiteral("package.deb"));
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(package) != package.size())
        return QString();
    file.close();
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("MFTOOL_CACHE"), m_cache.filePath(QStringLiteral("cache")));
    QProcess process;
    process.setProcessEnvironment(environment);
    process.start(QStringLiteral(SOURCE_DIR "/bench/board/make-image.sh"),
                  {QStringLiteral("--where"), QStringLiteral("--package"), path});
    process.waitForFinished(120000);
    return QString::fromLocal8Bit(process.readAllStandardOutput().trimmed());
}

void TestBoardCommand::unknownOption()
{
    run({QStringLiteral("board"), QStringLiteral("--size")});
    QCOMPARE(m_status, 2);
    QCOMPARE(m_errors, QByteArray("bench board: Unknown option 'size'; see bench board --help\n"));
}

void TestBoardCommand::noSuchPackage()
{
    run({QStringLiteral("board"), QStringLiteral("--where"), QStringLiteral("--package"),
         QStringLiteral("/nothing.deb")});
    QCOMPARE(m_status, 4);
    QCOMPARE(m_errors, QByteArray("bench board: there is no /nothing.deb\n"));
}

void TestBoardCommand::saysThatThereIsNone()
{
    run({QStringLiteral("board"), QStringLiteral("--where")});
    QCOMPARE(m_status, 4);
    QCOMPARE(m_errors, QByteArray("bench board: there is no board for this source tree yet: run "
                                  "build/bench board\n"));
}

void TestBoardCommand::anotherPackageIsAnotherBoard()
{
    const QString one = where("one");
    QVERIFY2(one.startsWith(m_cache.filePath(QStringLiteral("cache/board-"))), qPrintable(one));
    QVERIFY(one != where("another"));
    QCOMPARE(where("one"), one);
}

void TestBoardCommand::oneThatIsThereIsKept()
{
    const QString folder = where("kept");
    QVERIFY(QDir().mkpath(folder));
    QVERIFY(QFile(folder + QStringLiteral("/complete")).open(QIODevice::WriteOnly));
    run({QStringLiteral("board"), QStringLiteral("--package"),
         m_cache.filePath(QStringLiteral("package.deb"))});
    QCOMPARE(m_status, 0);
    QCOMPARE(m_output, folder.toLocal8Bit() + '\n');
}

/// Makes a complete folder in the cache; for a board, with links to what it is based on.
QString TestBoardCommand::folder(const char *name, const QStringList &standsOn)
{
    const QString path = m_cache.filePath(QStringLiteral("cache/") + QLatin1String(name));
    QDir().mkpath(path);
    QFile(path + QStringLiteral("/complete")).open(QIODevice::WriteOnly);
    for (const QString &part : standsOn)
        QFile::link(part, path + QLatin1Char('/') + QFileInfo(part).fileName().section('-', 0, 0));
    return path;
}

QStringList TestBoardCommand::folders() const
{
    return QDir(m_cache.filePath(QStringLiteral("cache")))
        .entryList(QDir::Dirs | QDir::NoDotAndDotDot, QDir::Name);
}

/// Has what the board of "package.deb" does not need removed.
int TestBoardCommand::clear()
{
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("MFTOOL_CACHE"), m_cache.filePath(QStringLiteral("cache")));
    QProcess process;
    process.setProcessEnvironment(environment);
    process.start(QStringLiteral(SOURCE_DIR "/bench/board/make-image.sh"),
                  {QStringLiteral("--clear"), QStringLiteral("--package"),
                   m_cache.filePath(QStringLiteral("package.deb"))});
    process.waitForFinished(120000);
    m_errors = process.readAllStandardError();
    return process.exitCode();
}

void TestBoardCommand::othersAreRemoved()
{
    const QString own = QFileInfo(where("own")).fileName();
    folder(own.toLatin1().constData());
    const QString used = folder("board-used", {folder("kernel-used"), folder("base-used")});
    folder("board-old", {folder("kernel-old"), folder("base-old")});
    folder("sysv-old");
    folder("board-older"); // from before boards had links
    const int lock = open(QFile::encodeName(used + QStringLiteral("/complete")).constData(),
                          O_RDONLY | O_CLOEXEC);
    QVERIFY(flock(lock, LOCK_SH) == 0);
    QCOMPARE(clear(), 0);
    QStringList left = {own, QStringLiteral("base-used"), QStringLiteral("board-used"),
                        QStringLiteral("kernel-used")};
    left.sort();
    QCOMPARE(folders(), left);

    ::close(lock);
    QCOMPARE(clear(), 0);
    QCOMPARE(folders(), QStringList(own));
}

void TestBoardCommand::nothingIsRemovedWhileOneIsMade()
{
    where("own");
    folder("board-old");
    QFile file(m_cache.filePath(QStringLiteral("cache/lock")));
    QVERIFY(file.open(QIODevice::WriteOnly));
    QVERIFY(flock(file.handle(), LOCK_EX) == 0);
    QCOMPARE(clear(), 1);
    QCOMPARE(m_errors, QByteArray("a board is being made there\n"));
    QVERIFY(folders().contains(QStringLiteral("board-old")));
}

void TestBoardCommand::saysWhatIsMissing()
{
    // A search path with the usual programs but without the emulator.
    const QString folder = m_cache.filePath(QStringLiteral("bin"));
    QVERIFY(QDir().mkpath(folder));
    const QStringList programs = {"bash", "cut", "dirname", "find",      "realpath", "sed",
                                  "sort", "tr",  "grep",    "sha256sum", "xargs"};
    for (const QString &program : programs)
        QFile::link(QStringLiteral("/usr/bin/") + program, folder + QLatin1Char('/') + program);
    QVERIFY(!where("missing").isEmpty());
    QProcess process;
    QProcessEnvironment environment;
    environment.insert(QStringLiteral("MFTOOL_CACHE"), m_cache.filePath(QStringLiteral("cache")));
    environment.insert(QStringLiteral("PATH"), folder);
    process.setProcessEnvironment(environment);
    process.start(QStringLiteral(SOURCE_DIR "/bench/board/make-image.sh"),
                  {QStringLiteral("--package"), m_cache.filePath(QStringLiteral("package.deb"))});
    QVERIFY(process.waitForFinished(120000));
    const QByteArray errors = process.readAllStandardError();
    QCOMPARE(process.exitCode(), 77);
    QVERIFY2(errors.startsWith("not installed: qemu-system-arm "), errors.constData());
    QVERIFY2(errors.endsWith("; scripts/install-packages.sh build board\n"), errors.constData());
}

void TestBoardCommand::lineWithoutBoard()
{
    run({QStringLiteral("line"), QStringLiteral(SOURCE_DIR "/bench/plans/production.json"),
         QStringLiteral("--board"), QStringLiteral("vm")});
    QCOMPARE(m_status, 4);
    QCOMPARE(m_errors, QByteArray("bench line: there is no board for this source tree yet: run "
                                  "build/bench board\n"));
}

MFTOOL_TEST(TestBoardCommand, EventLoop)
#include "tst_boardcommand.moc"
