/// Writes the rows of records; the caller begins and ends the transactions.
#ifndef BENCH_RECORDS_RECORDROWS_H
#define BENCH_RECORDS_RECORDROWS_H

#include "bench/records/recordfile.h"

#include <QHash>
#include <QSqlDatabase>
#include <QSqlQuery>
#include <QString>
#include <QStringList>
#include <QVariantList>

#include <map>

class RecordRows
{
public:
    explicit RecordRows(const QSqlDatabase &database) : m_database(database) {}

    /// Writes all rows of a record that is new. One that had not ended when it was stored is
    /// replaced by the same one, ended. *isNew is false for any other that is there already.
    /// False with *error: the transaction must be rolled back, and rolledBack() called.
    bool write(const RecordFile &record, bool *isNew, QString *error);
    void rolledBack();

    /// Whether the last failure comes from two stations that waited for each other: the same
    /// transaction may succeed when it is tried again.
    bool hasMetAnother() const;

private:
    /// The keys that belong to a record's rows.
    struct Keys {
        qint64 record = 0; ///< 0 when the record was there already
        qint64 series = 0;
    };

    bool removeUnfinished(const RecordFile &record, QString *error);
    bool recountUnit(const RecordFile &record, QString *error);
    bool insertRecord(const RecordFile &record, Keys *keys, QString *error);
    bool countUnit(const QString &plan, const QString &name, qint64 start, bool passed,
                   qint64 series, QString *error);
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
    QSqlQuery *executed(const QString &statement, const QVariantList &values, QString *error);
    bool execute(const QString &statement, const QVariantList &values, QString *error,
                 qint64 *key = nullptr);

    const QSqlDatabase m_database;
    std::map<QString, QSqlQuery> m_queries; ///< prepared, by their statements
    QHash<QString, qint64> m_keys;          ///< of rows of names that have been asked for
    QString m_errorCode;                    ///< the database's own, of the last failure
};

#endif
