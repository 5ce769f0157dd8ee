/// What can be asked of the store. The database does all the counting: a million records
/// never pass through this program.
#ifndef BENCH_RECORDS_QUESTIONS_H
#define BENCH_RECORDS_QUESTIONS_H

#include "bench/records/statistics.h"

#include <QList>
#include <QSqlDatabase>
#include <QString>
#include <QVariantList>
#include <QVector>

#include <functional>

/// Which records are asked about; empty members do not matter.
struct RecordFilter {
    QString since; ///< first day, "2026-11-21"
    QString until; ///< last day
    QString plan;
    QString station;
    QString variant;
    QString serialNumber;
    QString outcome;

    /// "since 2026-11-01, station line-2"; empty for all records.
    QString describe() const;
};

struct ListedRecord {
    qint64 key = 0;
    QString serialNumber;
    qint64 start = 0; ///< milliseconds since 1970, UTC
    QString plan;
    QString variant;
    QString station;
    QString fixture;
    QString operatorName;
    int attempt = 1;
    double seconds = 0;
    QString outcome;
    QString reason;
};

struct ListedValue {
    qint64 start = 0; ///< of its record, milliseconds since 1970, UTC
    QString serialNumber;
    QString plan;
    QString step;
    QString name;
    QString value; ///< a number or a text
    QString unit;
    std::optional<double> minimum;
    std::optional<double> maximum;
    bool good = false;
};

/// Units, by their serial numbers; a record without one counts as a unit of its own.
struct UnitCount {
    qint64 units = 0;
    qint64 firstPass = 0; ///< passed at the first attempt
    qint64 finalPass = 0; ///< passed at the latest attempt
    qint64 retested = 0;  ///< more than one attempt
    qint64 attempts = 0;  ///< of all units

    void add(const UnitCount &other);
};

/// The units of one day, plan, station and variant, as they were at the first attempt.
struct UnitGroup {
    QString day;
    QString plan;
    QString station;
    QString variant;
    UnitCount count;
};

struct StepFailures {
    QString plan;
    QString step;
    qint64 records = 0; ///< in which this step decided
};

struct StepTime {
    QString plan;
    QString step;
    qint64 runs = 0;
    double mean = 0; ///< seconds
    double most = 0; ///< seconds
};

struct QuantityAnswer {
    QString plan;
    QString step;
    QString name;
    QString unit;
    std::optional<double> minimum;
    std::optional<double> maximum;
    qint64 outside = 0; ///< values that were not as the plan wants them
    Statistics values;
    Bins bins;
    QVector<qint64> bars; ///< values in each bin
};

class QSqlQuery;

/// Every function: false with *error when the store does not answer.
class Questions
{
public:
    Questions(const QSqlDatabase &database, const RecordFilter &filter);

    /// Newest first.
    bool list(int most, QList<ListedRecord> *records, QString *error) const;
    /// Calls @p take for each record, oldest first, however many there are.
    bool each(const std::function<void(const ListedRecord &)> &take, QString *error) const;
    /// The same for each measured value.
    bool eachValue(const std::function<void(const ListedValue &)> &take, QString *error) const;
    /// The record as it was written.
    bool json(qint64 key, QByteArray *json, QString *error) const;

    /// In the order of the days.
    bool units(QList<UnitGroup> *groups, QString *error) const;
    /// Most first.
    bool failures(QList<StepFailures> *steps, QString *error) const;
    /// Slowest first.
    bool slowest(int most, QList<StepTime> *steps, QString *error) const;
    /// For each measured number whose values differ or that has limits, in the order of
    /// plan, step and name.
    bool quantities(QList<QuantityAnswer> *answers, QString *error) const;

private:
    using TakeRow = std::function<void(const QSqlQuery &row)>;

    bool eachRecord(const QString &select, const QString &order, const TakeRow &take,
                    QString *error) const;
    QString inSeries(const QString &column, QVariantList *values) const;
    bool eachRow(const QString &statement, const QVariantList &values, const TakeRow &take,
                 QString *error) const;
    bool measure(qint64 key, double origin, QuantityAnswer *answer, QString *error) const;
    bool count(qint64 key, QuantityAnswer *answer, QString *error) const;

    const QSqlDatabase m_database;
    const RecordFilter m_filter;
};

#endif
