#include "bench/records/schema.h"

#include "bench/records/sqlreason.h"

#include <QSqlQuery>
#include <QVariant>

namespace
{

/// Of the lock under which one of several stations makes the tables of a new server.
const int MigrationLock = 20140102;

QString inDialectOf(const QSqlDatabase &database, QString statement)
{
    const bool server = schema::isServer(database);
    statement.replace(QLatin1String("$KEY"), server ? QLatin1String("BIGSERIAL PRIMARY KEY")
                                                    : QLatin1String("INTEGER PRIMARY KEY"));
    statement.replace(QLatin1String("$CLUSTERED"),
                      server ? QLatin1String() : QLatin1String("WITHOUT ROWID"));
    return statement;
}

bool run(QSqlQuery *query, const QString &statement, QString *error)
{
    if (query->exec(statement))
        return true;
    *error = sqlReason(query->lastError());
    return false;
}

/// 0 for a new store; -1 with *error.
int formOf(const QSqlDatabase &database, QString *error)
{
    if (!database.tables().contains(QStringLiteral("store_form")))
        return 0;
    QSqlQuery query(database);
    if (!run(&query, QStringLiteral("SELECT MAX(form) FROM store_form"), error))
        return -1;
    return query.next() ? query.value(0).toInt() : 0;
}

bool takeMigrationLock(const QSqlDatabase &database, QSqlQuery *query, QString *error)
{
    // A file is locked as a whole already.
    return !schema::isServer(database) ||
           run(query, QStringLiteral("SELECT pg_advisory_xact_lock(%1)").arg(MigrationLock), error);
}

/// Makes the forms after @p form.
bool makeForms(const QSqlDatabase &database, int form, const schema::Forms &forms, QSqlQuery *query,
               QString *error)
{
    if (form == 0 &&
        !run(query, QStringLiteral("CREATE TABLE store_form (form INTEGER NOT NULL)"), error))
        return false;
    for (int next = form; next < forms.size(); ++next) {
        for (const QString &statement : forms.at(next)) {
            if (!run(query, inDialectOf(database, statement), error))
                return false;
        }
        if (!run(query, QStringLiteral("INSERT INTO store_form VALUES (%1)").arg(next + 1), error))
            return false;
    }
    return true;
}

} // namespace

// An entry that has been in use is never changed; changes are added as new entries.
//
// What recurs in every record is stored once, in "series", "step_kind" and "quantity", so
// that the large tables hold only numbers. "unit" and "step_sum" are kept up to date with
// every record that comes, so that a million records need not be counted again for the
// questions they answer. A row of "step_sum" is written by the one station that its
// series names, so stations that share a store do not wait for each other.
const schema::Forms &schema::forms()
{
    static const Forms all = {QStringList{
        QStringLiteral("CREATE TABLE series ("
                       " key $KEY,"
                       " day TEXT NOT NULL,"
                       " plan TEXT NOT NULL,"
                       " station TEXT NOT NULL,"
                       " variant TEXT NOT NULL,"
                       " UNIQUE (day, plan, station, variant))"),
        // A unit without a serial number is identified by its only record's id.
        QStringLiteral("CREATE TABLE unit ("
                       " key $KEY,"
                       " plan TEXT NOT NULL,"
                       " serial_number TEXT NOT NULL,"
                       " attempts INTEGER NOT NULL,"
                       " first_start_ms BIGINT NOT NULL,"
                       " first_passed INTEGER NOT NULL,"
                       " first_series BIGINT NOT NULL REFERENCES series (key),"
                       " latest_start_ms BIGINT NOT NULL,"
                       " latest_passed INTEGER NOT NULL,"
                       " UNIQUE (plan, serial_number))"),
        QStringLiteral("CREATE TABLE record ("
                       " key $KEY,"
                       " id TEXT NOT NULL UNIQUE,"
                       " series BIGINT NOT NULL REFERENCES series (key),"
                       " serial_number TEXT NOT NULL,"
                       " title TEXT NOT NULL,"
                       " plan_sha256 TEXT NOT NULL,"
                       " fixture TEXT NOT NULL,"
                       " operator TEXT NOT NULL,"
                       " connected TEXT NOT NULL,"
                       " tool_version TEXT NOT NULL,"
                       " bench_version TEXT NOT NULL,"
                       " start_ms BIGINT NOT NULL,"
                       " seconds DOUBLE PRECISION NOT NULL,"
                       " attempt INTEGER NOT NULL,"
                       " outcome TEXT NOT NULL,"
                       " reason TEXT NOT NULL,"
                       " failed_step TEXT NOT NULL)"),
        QStringLiteral("CREATE INDEX record_by_serial ON record (serial_number, start_ms)"),
        QStringLiteral("CREATE INDEX record_by_start ON record (start_ms)"),
        QStringLiteral("CREATE INDEX record_failed ON record (failed_step, series)"
                       " WHERE failed_step <> ''"),
        QStringLiteral("CREATE TABLE record_json ("
                       " record BIGINT PRIMARY KEY REFERENCES record (key),"
                       " json TEXT NOT NULL)"),
        QStringLiteral("CREATE TABLE step_kind ("
                       " key $KEY,"
                       " plan TEXT NOT NULL,"
                       " name TEXT NOT NULL,"
                       " UNIQUE (plan, name))"),
        QStringLiteral("CREATE TABLE step ("
                       " record BIGINT NOT NULL REFERENCES record (key),"
                       " number INTEGER NOT NULL,"
                       " kind BIGINT NOT NULL REFERENCES step_kind (key),"
                       " outcome TEXT NOT NULL,"
                       " seconds DOUBLE PRECISION NOT NULL,"
                       " tries INTEGER NOT NULL,"
                       " PRIMARY KEY (record, number)) $CLUSTERED"),
        QStringLiteral("CREATE TABLE step_sum ("
                       " kind BIGINT NOT NULL REFERENCES step_kind (key),"
                       " series BIGINT NOT NULL REFERENCES series (key),"
                       " runs BIGINT NOT NULL,"
                       " passed BIGINT NOT NULL,"
                       " seconds DOUBLE PRECISION NOT NULL,"
                       " most DOUBLE PRECISION NOT NULL,"
                       " PRIMARY KEY (kind, series)) $CLUSTERED"),
        // The origin is the first value that came. Sums of squares are taken of distances
        // to it: with large values that differ little they would otherwise lose all
        // digits.
        QStringLiteral("CREATE TABLE quantity ("
                       " key $KEY,"
                       " kind BIGINT NOT NULL REFERENCES step_kind (key),"
                       " name TEXT NOT NULL,"
                       " limits TEXT NOT NULL,"
                       " unit TEXT NOT NULL,"
                       " minimum DOUBLE PRECISION,"
                       " maximum DOUBLE PRECISION,"
                       " origin DOUBLE PRECISION,"
                       " UNIQUE (kind, name, limits))"),
        QStringLiteral("CREATE TABLE measurement ("
                       " record BIGINT NOT NULL REFERENCES record (key),"
                       " quantity BIGINT NOT NULL REFERENCES quantity (key),"
                       " series BIGINT NOT NULL REFERENCES series (key),"
                       " value DOUBLE PRECISION,"
                       " shown TEXT NOT NULL,"
                       " good INTEGER NOT NULL)"),
        QStringLiteral("CREATE INDEX measurement_by_quantity"
                       " ON measurement (quantity, series, value, good)"),
        QStringLiteral("CREATE INDEX measurement_by_record ON measurement (record)"),
    }};
    return all;
}

bool schema::isServer(const QSqlDatabase &database)
{
    return database.driverName() == QLatin1String("QPSQL");
}

bool schema::beginWriting(const QSqlDatabase &database, QString *error)
{
    QSqlQuery query(database);
    // SQLite's plain BEGIN takes the lock at the first write, and then refuses instead of
    // waiting if somebody else has written in the meantime.
    return run(&query,
               isServer(database) ? QStringLiteral("BEGIN") : QStringLiteral("BEGIN IMMEDIATE"),
               error);
}

bool schema::migrate(const QSqlDatabase &database, const Forms &forms, QString *error)
{
    int form = formOf(database, error);
    if (form > forms.size()) {
        *error = QStringLiteral("the store has form %1, this bench knows forms up to %2: "
                                "a newer bench is needed")
                     .arg(form)
                     .arg(forms.size());
    }
    if (form < 0 || form > forms.size())
        return false;
    // Whoever only reads does not wait for those who write.
    if (form == forms.size())
        return true;
    if (!beginWriting(database, error))
        return false;
    QSqlQuery query(database);
    // If two find the same old form, the second waits for the first and looks again.
    const bool done = takeMigrationLock(database, &query, error) &&
                      (form = formOf(database, error)) >= 0 &&
                      makeForms(database, form, forms, &query, error) &&
                      run(&query, QStringLiteral("COMMIT"), error);
    if (!done)
        query.exec(QStringLiteral("ROLLBACK"));
    return done;
}
