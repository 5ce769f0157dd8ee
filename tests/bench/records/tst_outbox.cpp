#include "bench/records/outbox.h"

#include "tests/support/testprogram.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <atomic>
#include <cerrno>
#include <thread>
#include <vector>

#include <dlfcn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace
{

enum Kind { Nothing, File, Folder };

Kind refused = Nothing; ///< plays a disk that cannot keep this
int refusal = EIO;
QStringList *synced = nullptr; ///< gets what is put on the disk

} // namespace

// This replaces the C library's, even for the code under test.
extern "C" int fsync(int fd)
{
    using Function = int (*)(int);
    static const Function next = reinterpret_cast<Function>(dlsym(RTLD_NEXT, "fsync"));
    struct stat status = {};
    fstat(fd, &status);
    if (refused == (S_ISDIR(status.st_mode) ? Folder : File)) {
        errno = refusal;
        return -1;
    }
    if (synced != nullptr)
        synced->append(QFile::symLinkTarget(QStringLiteral("/proc/self/fd/%1").arg(fd)));
    return next(fd);
}

class TestOutbox : public QObject
{
    Q_OBJECT

private slots:
    void cleanup();
    void isEmptyWithoutAFolder();
    void waitsOnceTheTicketIsGone();
    void waitsWhenTheLineWasKilled();
    void tellsTheOldestFirst();
    void forgetsWhatIsTakenOut();
    void isFoundAfterTheFolderWasMoved();
    void isFoundBelowAFolderNamedFromHere();
    void tellsWhenItCannotEnter();
    void isOnTheDiskOnceItIsEntered();
    void tellsWhenTheDiskDoesNotKeepIt_data();
    void tellsWhenTheDiskDoesNotKeepIt();
    void entersWhereFoldersCannotBeSynced();
    void leavesOutWhatIsBeingWritten();
    void entersWhileOthersLook();

private:
    static QStringList records(const Outbox &outbox);
};

QStringList TestOutbox::records(const Outbox &outbox)
{
    QStringList records;
    const QList<Outbox::Entry> entries = outbox.waiting();
    for (const Outbox::Entry &entry : entries)
        records.append(entry.record);
    return records;
}

void TestOutbox::cleanup()
{
    refused = Nothing;
    refusal = EIO;
    synced = nullptr;
}

void TestOutbox::isEmptyWithoutAFolder()
{
    QCOMPARE(records(Outbox("/nowhere")), QStringList());
}

void TestOutbox::waitsOnceTheTicketIsGone()
{
    const QTemporaryDir dir;
    const Outbox outbox(dir.path());
    QString error;
    Outbox::Ticket ticket = outbox.enter(dir.filePath("run/record.json"), &error);
    QVERIFY2(ticket.isHeld(), qPrintable(error));
    QCOMPARE(records(outbox), QStringList());
    Outbox::Ticket moved = std::move(ticket);
    QCOMPARE(records(outbox), QStringList());
    moved = Outbox::Ticket();
    QCOMPARE(records(outbox), QStringList{dir.filePath("run/record.json")});
}

void TestOutbox::waitsWhenTheLineWasKilled()
{
    const QTemporaryDir dir;
    const Outbox outbox(dir.path());
    const pid_t line = fork();
    if (line == 0) {
        QString error;
        const Outbox::Ticket ticket = outbox.enter(dir.filePath("record.json"), &error);
        kill(getpid(), SIGKILL);
    }
    int status = 0;
    QCOMPARE(waitpid(line, &status, 0), line);
    QVERIFY(WIFSIGNALED(status));
    QCOMPARE(records(outbox), QStringList{dir.filePath("record.json")});
}

void TestOutbox::tellsTheOldestFirst()
{
    const QTemporaryDir dir;
    const Outbox outbox(dir.path());
    QString error;
    QDateTime time(QDate(2026, 3, 2), QTime(8, 0));
    for (const char *name : {"b", "a", "c"}) {
        const Outbox::Ticket ticket = outbox.enter(dir.filePath(name), &error);
        QVERIFY(ticket.isHeld());
    }
    // Entered within a tick of the clock of files; a line takes longer.
    const QList<Outbox::Entry> entries = outbox.waiting();
    QCOMPARE(entries.size(), 3);
    for (const QString &name : QStringList{"b", "a", "c"}) {
        for (const Outbox::Entry &entry : entries) {
            if (entry.record != dir.filePath(name))
                continue;
            QFile marker(entry.marker);
            QVERIFY(marker.open(QIODevice::ReadWrite));
            QVERIFY(marker.setFileTime(time, QFileDevice::FileModificationTime));
        }
        time = time.addSecs(1);
    }
    QCOMPARE(records(outbox),
             (QStringList{dir.filePath("b"), dir.filePath("a"), dir.filePath("c")}));
}

void TestOutbox::forgetsWhatIsTakenOut()
{
    const QTemporaryDir dir;
    const Outbox outbox(dir.path());
    QString error;
    outbox.enter(dir.filePath("a"), &error);
    outbox.enter(dir.filePath("b"), &error);
    const QList<Outbox::Entry> entries = outbox.waiting();
    QCOMPARE(entries.size(), 2);
    Outbox::takeOut(entries.first());
    QCOMPARE(records(outbox), QStringList{entries.last().record});
    QCOMPARE(QDir(dir.filePath("not-stored")).entryList(QDir::Files).size(), 1);
}

void TestOutbox::isFoundAfterTheFolderWasMoved()
{
    const QTemporaryDir dir;
    QString error;
    Outbox(dir.filePath("a")).enter(dir.filePath("a/run 1/record.json"), &error);
    QVERIFY(QDir(dir.path()).rename("a", "b"));
    QCOMPARE(records(Outbox(dir.filePath("b"))), QStringList{dir.filePath("b/run 1/record.json")});
}

/// As "bench line" without --out has it: both paths begin where the program was started.
void TestOutbox::isFoundBelowAFolderNamedFromHere()
{
    const QTemporaryDir dir;
    const QString before = QDir::currentPath();
    QVERIFY(QDir::setCurrent(dir.path()));
    const Outbox outbox("bench-out");
    QString error;
    outbox.enter("bench-out/run/record.json", &error);
    const QStringList found = records(outbox);
    const QStringList elsewhere = records(Outbox(dir.filePath("bench-out")));
    QVERIFY(QDir::setCurrent(before));
    QCOMPARE(error, QString());
    QCOMPARE(found, QStringList{"bench-out/run/record.json"});
    QCOMPARE(elsewhere, QStringList{dir.filePath("bench-out/run/record.json")});
}

void TestOutbox::tellsWhenItCannotEnter()
{
    const QTemporaryDir dir;
    QFile file(dir.filePath("not-stored"));
    QVERIFY(file.open(QIODevice::WriteOnly));
    QString error;
    QVERIFY(!Outbox(dir.path()).enter(dir.filePath("record.json"), &error).isHeld());
    QVERIFY2(error.startsWith(dir.filePath("not-stored/")), qPrintable(error));
    QVERIFY2(error.endsWith(": Not a directory"), qPrintable(error));
}

/// A power cut takes what is not: the entry, its name, or the whole folder.
void TestOutbox::isOnTheDiskOnceItIsEntered()
{
    const QTemporaryDir dir;
    const QString path = QFileInfo(dir.path()).canonicalFilePath();
    const Outbox outbox(path);
    QString error;
    QStringList order;
    synced = &order;
    {
        const Outbox::Ticket ticket = outbox.enter(path + "/record.json", &error);
        QVERIFY2(ticket.isHeld(), qPrintable(error));
    }
    const QList<Outbox::Entry> entries = outbox.waiting();
    QCOMPARE(entries.size(), 1);
    QCOMPARE(order, (QStringList{entries.first().marker, path + "/not-stored", path}));
}

void TestOutbox::tellsWhenTheDiskDoesNotKeepIt_data()
{
    QTest::addColumn<int>("kind");
    QTest::newRow("file") << int(File);
    QTest::newRow("folder") << int(Folder);
}

void TestOutbox::tellsWhenTheDiskDoesNotKeepIt()
{
    QFETCH(int, kind);
    const QTemporaryDir dir;
    QString error;
    refused = static_cast<Kind>(kind);
    QVERIFY(!Outbox(dir.path()).enter(dir.filePath("record.json"), &error).isHeld());
    QVERIFY2(error.startsWith(dir.filePath("not-stored/")), qPrintable(error));
    QVERIFY2(error.endsWith(": Input/output error"), qPrintable(error));
    QCOMPARE(QDir(dir.filePath("not-stored")).entryList(QDir::Files), QStringList());
}

/// Some file systems of a network put only files on the disk.
void TestOutbox::entersWhereFoldersCannotBeSynced()
{
    const QTemporaryDir dir;
    QString error;
    refused = Folder;
    refusal = EINVAL;
    const Outbox::Ticket ticket = Outbox(dir.path()).enter(dir.filePath("record.json"), &error);
    QVERIFY2(ticket.isHeld(), qPrintable(error));
}

void TestOutbox::leavesOutWhatIsBeingWritten()
{
    const QTemporaryDir dir;
    QVERIFY(QDir(dir.path()).mkpath("not-stored"));
    QFile marker(dir.filePath("not-stored/marker"));
    QVERIFY(marker.open(QIODevice::WriteOnly));
    QCOMPARE(records(Outbox(dir.path())), QStringList());
    marker.write("record.js");
    marker.flush();
    QCOMPARE(records(Outbox(dir.path())), QStringList());
    marker.write("on\n");
    marker.flush();
    QCOMPARE(records(Outbox(dir.path())), QStringList{dir.filePath("record.json")});
}

void TestOutbox::entersWhileOthersLook()
{
    const QTemporaryDir dir;
    const Outbox outbox(dir.path());
    const int many = 300;
    std::atomic<bool> done{false};
    std::atomic<bool> seenEarly{false};
    std::thread looker([&] {
        while (!done) {
            const QStringList found = records(outbox);
            for (const QString &record : found)
                seenEarly = seenEarly || !record.endsWith("/record.json");
        }
    });
    int entered = 0;
    std::vector<Outbox::Ticket> tickets;
    for (int i = 0; i < many; ++i) {
        QString error;
        tickets.push_back(outbox.enter(dir.filePath(QString("%1/record.json").arg(i)), &error));
        entered += tickets.back().isHeld() ? 1 : 0;
    }
    tickets.clear();
    done = true;
    looker.join();
    QCOMPARE(entered, many);
    QVERIFY(!seenEarly);
    QCOMPARE(records(outbox).size(), many);
}

MFTOOL_TEST(TestOutbox, NoApplication)
#include "tst_outbox.moc"
