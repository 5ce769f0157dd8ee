/// A store that several stations share, on a real PostgreSQL server.
#include "bench/records/csv.h"
#include "bench/records/importer.h"
#include "bench/records/recordsreport.h"
#include "bench/records/schema.h"
#include "bench/records/store.h"
#include "tests/bench/records/postgresserver.h"
#include "tests/bench/records/sampleattempt.h"
#include "tests/support/testprogram.h"

#include <QBuffer>
#include <QDir>
#include <QProcess>
#include <QSqlError>
#include <QSqlQuery>
#include <QTemporaryDir>

#include <csignal>
#include <memory>
#include <thread>
#include <vector>

#include <arpa/inet.h>
#include <sys/socket.h>
#include <unistd.h>

class TestSharedStore : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void cleanupTestCase();
    void init();
    void answersAsAFileDoes();
    void replacesARunThatHadNotEnded();
    void isMadeOnceByManyAtOnce();
    void refusesANewerForm();
    void keepsRecordsOfStationsAtTheSameTimeOnce();
    void keepsRecordsOnceThoughTheServerDies_data();
    void keepsRecordsOnceThoughTheServerDies();
    void tellsWhichFoldersTheServerDidNotTake_data();
    void tellsWhichFoldersTheServerDidNotTake();
    void findsThePassword_data();
    void findsThePassword();
    void givesUpOnAServerThatIsSilent();

private:
    std::unique_ptr<QProcess> startImport(const QString &folder, const QString &place) const;
    QString writeRecords(const QString &folder, int from, int count) const;
    qint64 ask(const QString &statement) const;
    void verifyEachOnce(int records) const;

    std::unique_ptr<PostgresServer> m_server;
    std::unique_ptr<QTemporaryDir> m_dir;
    QString m_database;
    int m_databases = 0;
};

namespace
{

const int ImportLimitMs = 240000;

SampleAttempt numbered(int number)
{
    SampleAttempt attempt;
    attempt.id = QStringLiteral("id-%1").arg(number);
    attempt.serialNumber = QStringLiteral("KP-%1").arg(number);
    attempt.volts = 12000 + number % 7;
    attempt.outcome = number % 5 == 0 ? QStringLiteral("fail") : QStringLiteral("pass");
    return attempt;
}

/// All that can be asked of a store, as a page and as tables.
QByteArray answersOf(const Store &store)
{
    const Questions questions(store.database(), {});
    RecordsAnswer answer;
    QBuffer output;
    output.open(QIODevice::WriteOnly);
    QString error;
    if (!askAll(questions, &answer, &error) || !writeRecords(questions, &output, &error) ||
        !writeValues(questions, &output, &error))
        return error.toUtf8();
    answer.time = QDateTime(QDate(2026, 3, 2), QTime(12, 0));
    return recordsReport(answer) + output.data();
}

} // namespace

void TestSharedStore::initTestCase()
{
    const QString missing = PostgresServer::missing();
    if (!missing.isEmpty()) {
        std::printf("SKIPPED: %s\n", qPrintable(missing));
        QSKIP(qPrintable(missing));
    }
    m_server = std::make_unique<PostgresServer>();
    QString error;
    QVERIFY2(m_server->create(&error), qPrintable(error));
    QVERIFY2(m_server->start(&error), qPrintable(error));
}

void TestSharedStore::cleanupTestCase()
{
    m_server.reset();
}

void TestSharedStore::init()
{
    QString error;
    QVERIFY2(m_server->start(&error), qPrintable(error)); // a test may have failed without it
    m_dir = std::make_unique<QTemporaryDir>();
    m_database = QString("records%1").arg(++m_databases);
    QVERIFY2(m_server->createDatabase(m_database, &error), qPrintable(error));
}

std::unique_ptr<QProcess> TestSharedStore::startImport(const QString &folder,
                                                       const QString &place) const
{
    auto process = std::make_unique<QProcess>();
    process->start(BENCH, {"records", "import", "--waiting", folder, "--store", place});
    return process;
}

/// Records as a line leaves them, all of them waiting.
QString TestSharedStore::writeRecords(const QString &folder, int from, int count) const
{
    const QString path = m_dir->filePath(folder);
    QDir(path).mkpath("not-stored");
    for (int i = from; i < from + count; ++i) {
        QDir(path).mkpath(QString::number(i));
        QFile record(QString("%1/%2/record.json").arg(path).arg(i));
        QFile marker(QString("%1/not-stored/%2").arg(path).arg(i));
        if (record.open(QIODevice::WriteOnly) && marker.open(QIODevice::WriteOnly)) {
            record.write(numbered(i).json());
            marker.write(QString("%1/record.json\n").arg(i).toUtf8());
        }
    }
    return path;
}

/// The first number of the answer; -1 when there is none.
qint64 TestSharedStore::ask(const QString &statement) const
{
    Store store;
    QString error;
    if (!store.open(m_server->place(m_database), Store::Ask, &error))
        return -1;
    QSqlQuery query(store.database());
    return query.exec(statement) && query.next() ? query.value(0).toLongLong() : -1;
}

/// Records numbered from 0, each with all its rows, and counted once.
void TestSharedStore::verifyEachOnce(int records) const
{
    QCOMPARE(ask("SELECT COUNT(*) FROM record"), records);
    QCOMPARE(ask("SELECT COUNT(DISTINCT serial_number) FROM record"), records);
    QCOMPARE(ask("SELECT COUNT(*) FROM record_json"), records);
    QCOMPARE(ask("SELECT COUNT(*) FROM step"), 2 * records);
    QCOMPARE(ask("SELECT COUNT(*) FROM measurement"), 2 * records);
    QCOMPARE(ask("SELECT SUM(runs) FROM step_sum"), 2 * records);
    QCOMPARE(ask("SELECT SUM(attempts) FROM unit"), records);
    QCOMPARE(ask("SELECT COUNT(*) FROM unit"), records);
}

void TestSharedStore::answersAsAFileDoes()
{
    Store file;
    Store server;
    QString error;
    QVERIFY(file.open(m_dir->filePath("records.sqlite"), Store::Fill, &error));
    QVERIFY2(server.open(m_server->place(m_database), Store::Fill, &error), qPrintable(error));
    for (int i = 0; i < 60; ++i) {
        SampleAttempt attempt = numbered(i);
        attempt.serialNumber = QString("KP-%1").arg(i % 50); // ten were tested twice
        attempt.start = QString("2026-03-%1T08:%2:00+01:00")
                            .arg(i % 9 + 1, 2, 10, QChar('0'))
                            .arg(i, 2, 10, QChar('0'));
        attempt.station = i % 3 == 0 ? "line-2" : "line-1";
        attempt.volts = 11000.25 + 61 * i;
        QCOMPARE(file.add(attempt.record(), &error), Store::Stored);
        QVERIFY2(server.add(attempt.record(), &error) == Store::Stored, qPrintable(error));
        QCOMPARE(server.add(attempt.record(), &error), Store::Known);
    }
    const QByteArray answers = answersOf(file);
    QVERIFY2(answers.contains("<dd>50</dd>") && answers.contains("KP-49"), answers.constData());
    QCOMPARE(answersOf(server), answers);
}

void TestSharedStore::replacesARunThatHadNotEnded()
{
    Store store;
    QString error;
    QVERIFY2(store.open(m_server->place(m_database), Store::Fill, &error), qPrintable(error));
    SampleAttempt attempt = numbered(0);
    attempt.ended = false;
    QCOMPARE(store.add(attempt.record(), &error), Store::Stored);
    SampleAttempt other = numbered(0);
    other.id = "another attempt";
    other.outcome = "pass";
    other.start = "2026-03-01T08:00:00+01:00";
    QCOMPARE(store.add(other.record(), &error), Store::Stored);
    QVERIFY2(store.add(numbered(0).record(), &error) == Store::Stored, qPrintable(error));
    QCOMPARE(ask("SELECT COUNT(*) FROM record"), 2);
    QCOMPARE(ask("SELECT SUM(runs) FROM step_sum"), 4);
    QCOMPARE(ask("SELECT attempts FROM unit"), 2);
    QCOMPARE(ask("SELECT first_passed FROM unit"), 1);
    QCOMPARE(ask("SELECT latest_passed FROM unit"), 0);
}

void TestSharedStore::isMadeOnceByManyAtOnce()
{
    std::vector<std::unique_ptr<QProcess>> stations;
    for (int i = 0; i < 6; ++i)
        stations.push_back(startImport(m_dir->path(), m_server->place(m_database)));
    for (const auto &station : stations) {
        QVERIFY(station->waitForFinished(ImportLimitMs));
        QCOMPARE(station->readAllStandardError(), QByteArray());
        QCOMPARE(station->exitCode(), 0);
    }
    QCOMPARE(ask("SELECT COUNT(*) FROM store_form"), qint64(schema::forms().size()));
}

void TestSharedStore::refusesANewerForm()
{
    QString error;
    {
        Store store;
        QVERIFY2(store.open(m_server->place(m_database), Store::Fill, &error), qPrintable(error));
        schema::Forms newer = schema::forms();
        newer.append(QStringList{"CREATE TABLE pallet (key $KEY, name TEXT) $CLUSTERED"});
        QVERIFY2(schema::migrate(store.database(), newer, &error), qPrintable(error));
    }
    Store store;
    QVERIFY(!store.open(m_server->place(m_database), Store::Ask, &error));
    QVERIFY2(error.endsWith(": the store has form 2, this bench knows forms up to 1: "
                            "a newer bench is needed"),
             qPrintable(error));
}

void TestSharedStore::keepsRecordsOfStationsAtTheSameTimeOnce()
{
    // Each station has records that the next one has too, and in an order of its own.
    const int each = 80;
    const int count = 4;
    std::vector<std::unique_ptr<QProcess>> stations;
    for (int i = 0; i < count; ++i)
        writeRecords(QString::number(i), i * each / 2, each);
    for (int i = 0; i < count; ++i)
        stations.push_back(
            startImport(m_dir->filePath(QString::number(i)), m_server->place(m_database)));
    int stored = 0;
    for (const auto &station : stations) {
        QVERIFY(station->waitForFinished(ImportLimitMs));
        QCOMPARE(station->readAllStandardError(), QByteArray());
        stored += station->readAllStandardOutput().split(' ').first().toInt();
    }
    QCOMPARE(stored, each * (count + 1) / 2);
    verifyEachOnce(each * (count + 1) / 2);
}

void TestSharedStore::keepsRecordsOnceThoughTheServerDies_data()
{
    QTest::addColumn<int>("signal");
    QTest::newRow("quits at once") << SIGQUIT;
    QTest::newRow("is killed") << SIGKILL;
}

void TestSharedStore::keepsRecordsOnceThoughTheServerDies()
{
    QFETCH(int, signal);
    const int each = 400;
    const QString first = writeRecords("a", 0, each);
    const QString second = writeRecords("b", each / 2, each);
    const auto one = startImport(first, m_server->place(m_database));
    const auto two = startImport(second, m_server->place(m_database));
    // In the middle: both are at it, some have come, and each has more to bring.
    QTRY_COMPARE_WITH_TIMEOUT(ask("SELECT COUNT(DISTINCT pid) FROM pg_stat_activity WHERE datname "
                                  "= current_database() AND pid <> pg_backend_pid()"),
                              qint64(2), ImportLimitMs);
    const qint64 come = ask("SELECT COUNT(*) FROM record");
    QTRY_VERIFY_WITH_TIMEOUT(ask("SELECT COUNT(*) FROM record") > come + 20, ImportLimitMs);
    m_server->stop(signal);
    QVERIFY(one->waitForFinished(ImportLimitMs));
    QVERIFY(two->waitForFinished(ImportLimitMs));
    QCOMPARE(one->exitCode(), 1);
    const QByteArray said = one->readAllStandardOutput();
    QVERIFY2(said.contains(" stored, 0 known, ") && said.endsWith(" not stored\n"),
             said.constData());
    // Once, and not for each of the records that now wait.
    const QByteArray error = one->readAllStandardError();
    QVERIFY2(error.count("bench records: ") == 1 && error.count('\n') < 3, error.constData());
    QString reason;
    QVERIFY2(m_server->start(&reason), qPrintable(reason));
    const qint64 before = ask("SELECT COUNT(*) FROM record");
    QVERIFY2(before > 0 && before < each * 3 / 2, qPrintable(QString::number(before)));
    for (const QString &folder : {first, second}) {
        const auto again = startImport(folder, m_server->place(m_database));
        QVERIFY(again->waitForFinished(ImportLimitMs));
        QCOMPARE(again->readAllStandardError(), QByteArray());
        QCOMPARE(again->exitCode(), 0);
        QCOMPARE(QDir(folder + "/not-stored").entryList(QDir::Files), QStringList());
    }
    verifyEachOnce(each * 3 / 2);
}

void TestSharedStore::tellsWhichFoldersTheServerDidNotTake_data()
{
    QTest::addColumn<int>("scope");
    QTest::newRow("what waits") << int(WhatWaits);
    QTest::newRow("what is there") << int(WhatIsThere);
}

/// The server may go away while there is nothing to bring, too.
void TestSharedStore::tellsWhichFoldersTheServerDidNotTake()
{
    QFETCH(int, scope);
    const QString first = writeRecords("a", 0, 2);
    const QString second = writeRecords("b", 2, 2);
    Store store;
    QString error;
    QVERIFY2(store.open(m_server->place(m_database), Store::Fill, &error), qPrintable(error));
    m_server->stop(SIGQUIT);
    const ImportResult result =
        importFolders(&store, {first, second}, static_cast<ImportScope>(scope));
    QCOMPARE(result.stored, 0);
    QCOMPARE(result.problems, (QStringList{first + ": the store does not answer",
                                           second + ": the store does not answer"}));
    QCOMPARE(QDir(first + "/not-stored").entryList(QDir::Files), (QStringList{"0", "1"}));
}

void TestSharedStore::findsThePassword_data()
{
    QTest::addColumn<QByteArray>("variable");
    QTest::addColumn<QByteArray>("file");
    QTest::addColumn<int>("status");
    QTest::newRow("in PGPASSWORD") << QByteArray("secret") << QByteArray() << 0;
    QTest::newRow("in a file") << QByteArray() << QByteArray("127.0.0.1:*:*:bench:secret\n") << 0;
    QTest::newRow("nowhere") << QByteArray() << QByteArray() << 4;
    QTest::newRow("wrong") << QByteArray("guessed") << QByteArray() << 4;
}

void TestSharedStore::findsThePassword()
{
    QFETCH(QByteArray, variable);
    QFETCH(QByteArray, file);
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.remove("PGPASSFILE");
    environment.remove("PGPASSWORD");
    if (!variable.isEmpty())
        environment.insert("PGPASSWORD", QString::fromLatin1(variable));
    if (!file.isEmpty()) {
        QFile passwords(m_dir->filePath(".pgpass"));
        QVERIFY(passwords.open(QIODevice::WriteOnly));
        QVERIFY(passwords.setPermissions(QFile::ReadOwner | QFile::WriteOwner));
        passwords.write(file);
        passwords.close();
        environment.insert("PGPASSFILE", passwords.fileName());
    }
    QProcess process;
    process.setProcessEnvironment(environment);
    process.start(BENCH, {"records", "import", "--waiting", m_dir->path(), "--store",
                          m_server->networkPlace(m_database)});
    QVERIFY(process.waitForFinished(ImportLimitMs));
    const QByteArray error = process.readAllStandardError();
    QTEST(process.exitCode(), "status");
    QVERIFY2(process.exitCode() == 0 || error.contains("password"), error.constData());
}

/// A machine that takes a connection and never says a word.
void TestSharedStore::givesUpOnAServerThatIsSilent()
{
    const int silent = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    QVERIFY(bind(silent, reinterpret_cast<sockaddr *>(&address), size) == 0);
    QVERIFY(listen(silent, 5) == 0);
    QVERIFY(getsockname(silent, reinterpret_cast<sockaddr *>(&address), &size) == 0);
    const QString folder = writeRecords("a", 0, 1);
    const auto process = startImport(
        folder, QString("postgresql://127.0.0.1:%1/records").arg(ntohs(address.sin_port)));
    QVERIFY(process->waitForFinished(ImportLimitMs));
    close(silent);
    QCOMPARE(process->exitCode(), 4);
    const QByteArray error = process->readAllStandardError();
    QVERIFY2(error.contains("timeout"), error.constData());
    QCOMPARE(QDir(folder + "/not-stored").entryList(QDir::Files).size(), 1);
}

MFTOOL_TEST(TestSharedStore, EventLoop)
#include "tst_sharedstore.moc"
