#include "bench/records/schema.h"

#include "tests/support/testprogram.h"

#include <QSqlError>
#include <QSqlQuery>
#include <QTemporaryDir>

#include <thread>
#include <vector>

class TestSchema : public QObject
{
    Q_OBJECT

private slots:
    void makesANewStore();
    void leavesAStoreThatIsUpToDate();
    void bringsAnOlderStoreForward();
    void changesNothingWhenAStepFails();
    void refusesANewerStore();
    void migratesOnceForManyAtOnce();

private:
    /// A connection that ends with this.
    struct Connection {
        explicit Connection(const QString &file) : name(QUuid::createUuid().toString())
        {
            QSqlDatabase database = QSqlDatabase::addDatabase("QSQLITE", name);
            database.setDatabaseName(file);
            database.setConnectOptions("QSQLITE_BUSY_TIMEOUT=60000");
            database.open();
        }
        ~Connection() { QSqlDatabase::removeDatabase(name); }
        QSqlDatabase database() const { return QSqlDatabase::database(name); }
        /// The first value of the first row.
        QVariant ask(const QString &statement) const;
        const QString name;
    };
    static schema::Forms next();
};

QVariant TestSchema::Connection::ask(const QString &statement) const
{
    QSqlQuery query(database());
    return query.exec(statement) && query.next() ? query.value(0) : QVariant();
}

/// Today's forms and one that a later bench may have.
schema::Forms TestSchema::next()
{
    schema::Forms forms = schema::forms();
    forms.append(QStringList{"ALTER TABLE record ADD COLUMN shift TEXT NOT NULL DEFAULT 'day'",
                             "CREATE TABLE pallet (key $KEY, name TEXT) "});
    return forms;
}

void TestSchema::makesANewStore()
{
    const QTemporaryDir dir;
    const Connection store(dir.filePath("a.sqlite"));
    QString error;
    QVERIFY2(schema::migrate(store.database(), schema::forms(), &error), qPrintable(error));
    QCOMPARE(store.ask("SELECT MAX(form) FROM store_form").toInt(), int(schema::forms().size()));
    QCOMPARE(store.ask("SELECT COUNT(*) FROM record"), QVariant(0));
}

void TestSchema::leavesAStoreThatIsUpToDate()
{
    const QTemporaryDir dir;
    const Connection store(dir.filePath("a.sqlite"));
    QString error;
    QVERIFY(schema::migrate(store.database(), schema::forms(), &error));
    // Not even locked: somebody else is writing.
    const Connection other(dir.filePath("a.sqlite"));
    QVERIFY(schema::beginWriting(other.database(), &error));
    QVERIFY2(schema::migrate(store.database(), schema::forms(), &error), qPrintable(error));
    QCOMPARE(store.ask("SELECT COUNT(*) FROM store_form").toInt(), int(schema::forms().size()));
}

void TestSchema::bringsAnOlderStoreForward()
{
    const QTemporaryDir dir;
    const Connection store(dir.filePath("a.sqlite"));
    QString error;
    QVERIFY(schema::migrate(store.database(), schema::forms(), &error));
    QSqlQuery query(store.database());
    QVERIFY(query.exec("INSERT INTO series VALUES (1, '2026-03-02', 'p', 's', '')"));
    QVERIFY2(query.exec("INSERT INTO record VALUES (1, 'id', 1, 'KP-1', '', '', '', '', '', '', '',"
                        " 0, 1, 1, 'pass', '', '')"),
             qPrintable(query.lastError().text()));
    QVERIFY2(schema::migrate(store.database(), next(), &error), qPrintable(error));
    QCOMPARE(store.ask("SELECT MAX(form) FROM store_form").toInt(), int(next().size()));
    QCOMPARE(store.ask("SELECT serial_number || shift FROM record"), QVariant("KP-1day"));
    QCOMPARE(store.ask("SELECT COUNT(*) FROM pallet"), QVariant(0));
}

void TestSchema::changesNothingWhenAStepFails()
{
    const QTemporaryDir dir;
    const Connection store(dir.filePath("a.sqlite"));
    QString error;
    QVERIFY(schema::migrate(store.database(), schema::forms(), &error));
    schema::Forms broken = next();
    broken.append(QStringList{"CREATE TABLE no table"});
    QVERIFY(!schema::migrate(store.database(), broken, &error));
    QVERIFY2(error.contains("syntax error"), qPrintable(error));
    QCOMPARE(store.ask("SELECT MAX(form) FROM store_form").toInt(), int(schema::forms().size()));
    QVERIFY(!store.database().tables().contains("pallet"));
}

void TestSchema::refusesANewerStore()
{
    const QTemporaryDir dir;
    const Connection store(dir.filePath("a.sqlite"));
    QString error;
    QVERIFY(schema::migrate(store.database(), next(), &error));
    QVERIFY(!schema::migrate(store.database(), schema::forms(), &error));
    QCOMPARE(error, QString("the store has form 2, this bench knows forms up to 1: "
                            "a newer bench is needed"));
}

void TestSchema::migratesOnceForManyAtOnce()
{
    const QTemporaryDir dir;
    std::atomic<int> done{0};
    std::vector<std::thread> stations;
    for (int i = 0; i < 6; ++i) {
        stations.emplace_back([&] {
            const Connection store(dir.filePath("a.sqlite"));
            QString error;
            if (schema::migrate(store.database(), next(), &error))
                ++done;
            else
                qWarning("%s", qPrintable(error));
        });
    }
    for (std::thread &station : stations)
        station.join();
    QCOMPARE(done.load(), 6);
    const Connection store(dir.filePath("a.sqlite"));
    QCOMPARE(store.ask("SELECT COUNT(*) FROM store_form").toInt(), int(next().size()));
}

MFTOOL_TEST(TestSchema, EventLoop)
#include "tst_schema.moc"
