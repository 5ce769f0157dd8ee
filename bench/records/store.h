/// One store of all records: a file of SQLite, or a PostgreSQL server that several
/// stations share. Every record is in it once, however often it is brought.
#ifndef BENCH_RECORDS_STORE_H
#define BENCH_RECORDS_STORE_H

#include "bench/records/recordfile.h"

#include <QHash>
#include <QSqlDatabase>
#include <QString>
#include <QStringList>
#include <QVariantList>

/// Belongs to the thread that made it.
class Store
{
public:
    enum Added {
        Stored, ///< it is new, and safe now
        Known,  ///< it was there already
        Refused ///< nothing changed
    };

    Store();
    ~Store();
    Store(const Store &) = delete;
    Store &operator=(const Store &) = delete;

    /// Whether @p place can name a store: the path of a file, or
    /// "postgresql://[user@]host[:port]/database". A password in it is refused: it would stand
    /// in every list of processes. libpq finds it where it usually does, in PGPASSWORD or
    /// ~/.pgpass. False with *error.
    static bool isPlace(const QString &place, QString *error);

    /// Opens the store and brings it to today's form; a file that does not exist is made, with
    /// its folder. False with *error: within some seconds also when a server does not answer.
    bool open(const QString &place, QString *error);

    Added add(const RecordFile &record, QString *error);

    /// For questions. Nothing but this class writes.
    QSqlDatabase database() const;

private:
    /// The keys that belong to a record's rows.
    struct Keys {
        qint64 record = 0; ///< 0 when the record was there already
        qint64 series = 0;
    };

    bool insertAll(const RecordFile &record, Keys *keys, QString *error);
    bool insertRecord(const RecordFile &record, Keys *keys, QString *error);
    bool countUnit(const RecordFile &record, const Keys &keys, QString *error);
    bool insertStep(const RecordFile &record, const RecordFile::Step &step, const Keys &keys,
                    QString *error);
    bool insertMeasurement(const RecordFile::Measurement &measured, qint64 kind, const Keys &keys,
                           QString *error);
    bool series(const RecordFile &record, qint64 *key, QString *error);
    bool stepKind(const QString &plan, const QString &name, qint64 *key, QString *error);
    bool quantity(const RecordFile::Measurement &measured, qint64 kind, qint64 *key,
                  QString *error);
    bool keyOf(const char *table, const QStringList &columns, const QVariantList &values,
               int naming, qint64 *key, QString *error);
    bool execute(const QString &statement, const QVariantList &values, QString *error,
                 qint64 *key = nullptr);

    const QString m_connection;
    QHash<QString, qint64> m_keys; ///< of rows of names that have been asked for
};

#endif
