#include "bench/line/recordfolder.h"

#include "tests/bench/line/samplerecord.h"
#include "tests/support/testprogram.h"

#include <QDir>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QRegularExpression>
#include <QSet>
#include <QTemporaryDir>
#include <QTest>

#include <atomic>
#include <csignal>
#include <thread>
#include <vector>

#include <sys/resource.h>

class TestRecordFolder : public QObject
{
    Q_OBJECT

private slots:
    void isNamedAfterTheTime();
    void neverUsesAFolderTwice();
    void keepsLatestUpToDate();
    void givesManyAtOnceAFolderEach();
    void leavesALatestThatIsNoLink();
    void keepsARecordThatHasNotEnded();
    void writesOneUnit();
    void concludesWhatHadNotEnded();
    void leavesAVerdictThatWasWritten();
    void writesSeveralUnits();
    void leavesOutALogThatIsNotThere();
    void tellsWhenItCannotWrite();
    void tellsWhenTheDiskIsFull_data();
    void tellsWhenTheDiskIsFull();

private:
    static QJsonObject recordIn(const QString &path);
};

QJsonObject TestRecordFolder::recordIn(const QString &path)
{
    QFile file(RecordFolder::recordPath(path));
    file.open(QIODevice::ReadOnly);
    return QJsonDocument::fromJson(file.readAll()).object();
}

void TestRecordFolder::isNamedAfterTheTime()
{
    QTemporaryDir dir;
    RecordFolder folder;
    QString error;
    QVERIFY(folder.create(dir.filePath(QStringLiteral("a/b")), false, &error));
    const QRegularExpression form(QStringLiteral("/a/b/\\d{8}-\\d{6}$"));
    QVERIFY2(form.match(folder.path()).hasMatch(), qPrintable(folder.path()));
    QVERIFY(QFileInfo(folder.path()).isDir());
    QCOMPARE(folder.unitPath(1), folder.path());
}

void TestRecordFolder::neverUsesAFolderTwice()
{
    QTemporaryDir dir;
    QString error;
    QStringList paths;
    for (int i = 0; i < 4; ++i) { // within a second or not
        RecordFolder folder;
        QVERIFY(folder.create(dir.path(), false, &error));
        QVERIFY(!paths.contains(folder.path()));
        paths.append(folder.path());
    }
}

void TestRecordFolder::keepsLatestUpToDate()
{
    QTemporaryDir dir;
    QString error;
    RecordFolder first;
    RecordFolder second;
    QVERIFY(first.create(dir.path(), false, &error));
    QVERIFY(second.create(dir.path(), false, &error));
    QCOMPARE(QFileInfo(dir.filePath(QStringLiteral("latest"))).canonicalFilePath(),
             QFileInfo(second.path()).canonicalFilePath());
}

/// All start at the same moment, as stations that share a folder may. Again and again,
/// because two must meet within a few microseconds to show whether one can lose.
void TestRecordFolder::givesManyAtOnceAFolderEach()
{
    const int many = 30;
    const int rounds = 40;
    QTemporaryDir dir;
    QSet<QString> different;
    for (int round = 0; round < rounds; ++round) {
        std::atomic<int> waiting{many};
        std::vector<QString> paths(many);
        std::vector<std::thread> threads;
        for (QString &path : paths) {
            threads.emplace_back([&dir, &waiting, &path] {
                RecordFolder folder;
                QString error;
                --waiting;
                while (waiting > 0)
                    std::this_thread::yield();
                if (folder.create(dir.path(), false, &error))
                    path = folder.path();
            });
        }
        for (std::thread &thread : threads)
            thread.join();
        for (const QString &path : paths) {
            QVERIFY(QFileInfo(path).isDir());
            different.insert(path);
        }
        QCOMPARE(int(different.size()), many * (round + 1));
    }
    QVERIFY(different.contains(QFile::symLinkTarget(dir.filePath(QStringLiteral("latest")))));
    // The folders, "latest", and nothing that somebody has forgotten.
    const QDir::Filters everything = QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot;
    QCOMPARE(int(QDir(dir.path()).entryList(everything | QDir::System).size()), many * rounds + 1);
}

void TestRecordFolder::leavesALatestThatIsNoLink()
{
    QTemporaryDir dir;
    QVERIFY(QDir(dir.path()).mkdir(QStringLiteral("latest")));
    RecordFolder folder;
    QString error;
    QVERIFY(folder.create(dir.path(), false, &error));
    QVERIFY(!QFileInfo(dir.filePath(QStringLiteral("latest"))).isSymLink());
    const QDir::Filters everything = QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot;
    QCOMPARE(int(QDir(dir.path()).entryList(everything | QDir::System).size()), 2);
}

void TestRecordFolder::keepsARecordThatHasNotEnded()
{
    QTemporaryDir dir;
    QString error;
    RecordFolder folder;
    QVERIFY(folder.create(dir.path(), false, &error));
    UnitRecord unit = sampleRecord();
    unit.steps = {unit.steps.first()};
    QVERIFY2(folder.keep(unit, &error), qPrintable(error));
    QFile file(folder.path() + QStringLiteral("/record.json"));
    QVERIFY(file.open(QIODevice::ReadOnly));
    QJsonObject json = QJsonDocument::fromJson(file.readAll()).object();
    QCOMPARE(json.value(QStringLiteral("ended")), QJsonValue(false));
    QCOMPARE(json.value(QStringLiteral("steps")).toArray().size(), 1);
    file.close();
    unit.conclude();
    QVERIFY(folder.write(unit, Transcript(), QByteArray(), &error));
    QVERIFY(file.open(QIODevice::ReadOnly));
    json = QJsonDocument::fromJson(file.readAll()).object();
    QCOMPARE(json.value(QStringLiteral("ended")), QJsonValue(true));
}

void TestRecordFolder::writesOneUnit()
{
    QTemporaryDir dir;
    QString error;
    RecordFolder folder;
    QVERIFY(folder.create(dir.path(), false, &error));
    QVERIFY2(folder.write(sampleRecord(), Transcript(), "log\n", &error), qPrintable(error));
    QCOMPARE(QDir(folder.path()).entryList(QDir::Files),
             QStringList({QStringLiteral("junit.xml"), QStringLiteral("record.json"),
                          QStringLiteral("report.html"), QStringLiteral("tool.log")}));
}

void TestRecordFolder::concludesWhatHadNotEnded()
{
    QTemporaryDir dir;
    QString error;
    RecordFolder folder;
    QVERIFY(folder.create(dir.path(), false, &error));
    UnitRecord unit = sampleRecord();
    QVERIFY2(folder.keep(unit, &error), qPrintable(error));
    UnitRecord dead;
    dead.outcome = Outcome::Error;
    dead.reason = QStringLiteral("its process was killed");
    QVERIFY2(folder.conclude(&dead, &error), qPrintable(error));
    QCOMPARE(dead.serialNumber, QStringLiteral("KP-0042"));
    const QJsonObject kept = recordIn(folder.path());
    QCOMPARE(kept.value(QStringLiteral("ended")), QJsonValue(true));
    QCOMPARE(kept.value(QStringLiteral("outcome")).toString(), QStringLiteral("error"));
    QCOMPARE(kept.value(QStringLiteral("reason")).toString(), dead.reason);
    QVERIFY(QFile::exists(folder.path() + QStringLiteral("/junit.xml")));
    QVERIFY(QFile::exists(folder.path() + QStringLiteral("/report.html")));
}

/// Its process may have died after its last word on the unit was on the disk. The store
/// may have that already.
void TestRecordFolder::leavesAVerdictThatWasWritten()
{
    QTemporaryDir dir;
    QString error;
    RecordFolder folder;
    QVERIFY(folder.create(dir.path(), false, &error));
    UnitRecord unit = sampleRecord();
    unit.steps = {unit.steps.first()};
    unit.conclude();
    QCOMPARE(unit.outcome, Outcome::Pass);
    QVERIFY2(folder.write(unit, Transcript(), "what the tool said\n", &error), qPrintable(error));
    const QJsonObject before = recordIn(folder.path());
    const QString report = folder.path() + QStringLiteral("/report.html");
    QVERIFY(QFile::remove(report));
    QVERIFY(QFile::remove(folder.path() + QStringLiteral("/junit.xml")));
    UnitRecord dead;
    dead.outcome = Outcome::Error;
    dead.reason = QStringLiteral("its process was killed");
    QVERIFY2(folder.conclude(&dead, &error), qPrintable(error));
    QCOMPARE(recordIn(folder.path()), before);
    QCOMPARE(dead.outcome, Outcome::Pass);
    QCOMPARE(dead.reason, QString());
    QVERIFY(QFile::exists(folder.path() + QStringLiteral("/junit.xml")));
    QFile page(report);
    QVERIFY(page.open(QIODevice::ReadOnly));
    QVERIFY(page.readAll().contains("what the tool said"));
}

void TestRecordFolder::writesSeveralUnits()
{
    QTemporaryDir dir;
    QString error;
    RecordFolder folder;
    QVERIFY(folder.create(dir.path(), true, &error));
    QCOMPARE(folder.unitPath(12), folder.path() + QStringLiteral("/unit-12"));
    QCOMPARE(folder.unitPath(12, 2), folder.path() + QStringLiteral("/unit-12-attempt-2"));
    UnitRecord unit = sampleRecord();
    unit.conclude();
    QVERIFY2(folder.write(unit, Transcript(), QByteArray(), &error), qPrintable(error));
    QVERIFY(QFile::exists(folder.path() + QStringLiteral("/unit-03/record.json")));
    QVERIFY2(folder.writeSummary({unit}, &error), qPrintable(error));
    QFile page(folder.path() + QStringLiteral("/report.html"));
    QVERIFY(page.open(QIODevice::ReadOnly));
    QVERIFY(page.readAll().contains("href=\"unit-03/report.html\""));
    QVERIFY(QFile::exists(folder.path() + QStringLiteral("/junit.xml")));
}

void TestRecordFolder::leavesOutALogThatIsNotThere()
{
    QTemporaryDir dir;
    QString error;
    RecordFolder folder;
    QVERIFY(folder.create(dir.path(), false, &error));
    QVERIFY(folder.write(sampleRecord(), Transcript(), QByteArray(), &error));
    QVERIFY(!QFile::exists(folder.path() + QStringLiteral("/tool.log")));
}

void TestRecordFolder::tellsWhenTheDiskIsFull_data()
{
    QTest::addColumn<quint64>("room");
    QTest::newRow("at once") << quint64(0);
    QTest::newRow("soon") << quint64(100);
}

void TestRecordFolder::tellsWhenItCannotWrite()
{
    QTemporaryDir dir;
    QFile file(dir.filePath(QStringLiteral("file")));
    QVERIFY(file.open(QIODevice::WriteOnly));
    QString error;
    RecordFolder folder;
    QVERIFY(!folder.create(file.fileName(), false, &error));
    QVERIFY2(error.startsWith(file.fileName() + QLatin1Char('/')), qPrintable(error));
    QVERIFY2(error.endsWith(QStringLiteral(" cannot be made: Not a directory")), qPrintable(error));

    QVERIFY(folder.create(dir.path(), false, &error));
    QVERIFY(QDir(folder.path()).removeRecursively());
    QVERIFY(!folder.write(sampleRecord(), Transcript(), QByteArray(), &error));
    QCOMPARE(error, folder.path() + QStringLiteral(": record.json, junit.xml, report.html could "
                                                   "not be written: No such file or directory"));
    QVERIFY(!folder.writeSummary({sampleRecord()}, &error));
    QCOMPARE(error, folder.path() + QStringLiteral(": junit.xml, report.html could not be "
                                                   "written: No such file or directory"));
}

/// A limit on the size of files refuses what is written as a full disk does: from the
/// beginning, or after a part of it.
void TestRecordFolder::tellsWhenTheDiskIsFull()
{
    QFETCH(quint64, room);
    QTemporaryDir dir;
    QString error;
    RecordFolder folder;
    QVERIFY(folder.create(dir.path(), false, &error));
    std::signal(SIGXFSZ, SIG_IGN);
    rlimit before;
    QVERIFY(getrlimit(RLIMIT_FSIZE, &before) == 0);
    rlimit full = before;
    full.rlim_cur = room;
    QVERIFY(setrlimit(RLIMIT_FSIZE, &full) == 0);
    const bool written = folder.write(sampleRecord(), Transcript(), QByteArray(), &error);
    setrlimit(RLIMIT_FSIZE, &before);
    QVERIFY(!written);
    QCOMPARE(error, folder.path() + QStringLiteral(": record.json, junit.xml, report.html could "
                                                   "not be written: File too large"));
    QVERIFY(!QFile::exists(folder.path() + QStringLiteral("/record.json")));
}

MFTOOL_TEST(TestRecordFolder, EventLoop)
#include "tst_recordfolder.moc"
