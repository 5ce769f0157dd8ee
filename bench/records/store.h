/// One store of all records: a file of SQLite, or a PostgreSQL server that several
/// stations share. Every record is in it once, however often it is stored.
#ifndef BENCH_RECORDS_STORE_H
#define BENCH_RECORDS_STORE_H

#include "bench/records/recordfile.h"

#include <QList>
#include <QSqlDatabase>
#include <QString>

#include <memory>

class RecordRows;

/// Belongs to the thread that made it.
class Store
{
public:
    enum Use {
        Ask, ///< a file must be there
        Fill ///< a missing file is made, with its folder
    };

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
    /// "postgresql://[user@]host[:port]/database[?option=value&...]" with the options of
    /// libpq. A password in it is refused: every list of processes would show it. libpq
    /// finds it where it usually does, in PGPASSWORD or ~/.pgpass. False with *error.
    static bool isPlace(const QString &place, QString *error);

    /// Opens the store, once, and brings it to today's form.
    /// False with *error: within some seconds also when a server does not answer.
    bool open(const QString &place, Use use, QString *error);
    /// Whether the connection is still there.
    bool answers() const;

    /// Stores a record of the open store. *error only when it is refused.
    Added add(const RecordFile &record, QString *error);
    /// All of them in one transaction, which is much quicker than each by itself.
    /// @param stored  how many were new
    /// False with *error, and nothing changed.
    bool add(const QList<RecordFile> &records, int *stored, QString *error);

    /// For questions. Nothing but this class writes.
    QSqlDatabase database() const;

private:
    bool addTogether(const QList<RecordFile> &records, int *stored, QString *error);

    const QString m_connection;
    std::unique_ptr<RecordRows> m_rows;
};

#endif
