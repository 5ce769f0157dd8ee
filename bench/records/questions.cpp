#include "bench/records/questions.h"

#include "bench/records/sqlreason.h"

#include <QSqlQuery>
#include <QStringList>
#include <QVariant>

#include <algorithm>
#include <cmath>

namespace
{

struct FilterRow {
    const char *condition;
    const char *words;
    QString RecordFilter::*value;
};

/// What a series of records has in common.
const FilterRow seriesRows[] = {
    {"series.day >= ?", "since", &RecordFilter::since},
    {"series.day <= ?", "until", &RecordFilter::until},
    {"series.plan = ?", "plan", &RecordFilter::plan},
    {"series.station = ?", "station", &RecordFilter::station},
    {"series.variant = ?", "variant", &RecordFilter::variant},
};

/// What each record has for itself.
const FilterRow recordRows[] = {
    {"record.serial_number = ?", "serial number", &RecordFilter::serialNumber},
    {"record.outcome = ?", "outcome", &RecordFilter::outcome},
};

/// The rows of @p rows that @p filter has a value for.
template<size_t Size>
QList<FilterRow> asked(const FilterRow (&rows)[Size], const RecordFilter &filter)
{
    QList<FilterRow> found;
    for (const FilterRow &row : rows) {
        if (!(filter.*row.value).isEmpty())
            found.append(row);
    }
    return found;
}

QString conditions(const QList<FilterRow> &rows)
{
    QStringList all;
    for (const FilterRow &row : rows)
        all.append(QLatin1String(row.condition));
    return all.isEmpty() ? QString()
                         : QStringLiteral(" WHERE ") + all.join(QStringLiteral(" AND "));
}

QVariantList valuesOf(const QList<FilterRow> &rows, const RecordFilter &filter)
{
    QVariantList values;
    for (const FilterRow &row : rows)
        values.append(filter.*row.value);
    return values;
}

const char ListedColumns[] = "SELECT record.key, serial_number, start_ms, plan, variant, station,"
                             " fixture, operator, attempt, seconds, outcome, reason FROM record"
                             " JOIN series ON series.key = record.series";

ListedRecord listed(const QSqlQuery &query)
{
    ListedRecord record;
    record.key = query.value(0).toLongLong();
    record.serialNumber = query.value(1).toString();
    record.start = query.value(2).toLongLong();
    record.plan = query.value(3).toString();
    record.variant = query.value(4).toString();
    record.station = query.value(5).toString();
    record.fixture = query.value(6).toString();
    record.operatorName = query.value(7).toString();
    record.attempt = query.value(8).toInt();
    record.seconds = query.value(9).toDouble();
    record.outcome = query.value(10).toString();
    record.reason = query.value(11).toString();
    return record;
}

std::optional<double> limit(const QVariant &value)
{
    return value.isNull() ? std::nullopt : std::optional<double>(value.toDouble());
}

ListedValue listedValue(const QSqlQuery &query)
{
    ListedValue value;
    value.start = query.value(0).toLongLong();
    value.serialNumber = query.value(1).toString();
    value.plan = query.value(2).toString();
    value.step = query.value(3).toString();
    value.name = query.value(4).toString();
    value.value = query.value(5).isNull() ? query.value(6).toString()
                                          : QString::number(query.value(5).toDouble(), 'g', 15);
    value.unit = query.value(7).toString();
    value.minimum = limit(query.value(8));
    value.maximum = limit(query.value(9));
    value.good = query.value(10).toInt() != 0;
    return value;
}

UnitGroup unitGroup(const QSqlQuery &query)
{
    UnitGroup group;
    group.day = query.value(0).toString();
    group.plan = query.value(1).toString();
    group.station = query.value(2).toString();
    group.variant = query.value(3).toString();
    group.count = {query.value(4).toLongLong(), query.value(5).toLongLong(),
                   query.value(6).toLongLong(), query.value(7).toLongLong(),
                   query.value(8).toLongLong()};
    return group;
}

bool isWhole(double value)
{
    return value == std::floor(value);
}

/// @param shift  the mean of the distances to an origin
double deviation(double sumOfSquares, double shift, qint64 count)
{
    const auto many = static_cast<double>(count);
    const double variance = (sumOfSquares - many * shift * shift) / (many - 1);
    return std::sqrt(std::max(0.0, variance));
}

} // namespace

QString RecordFilter::describe() const
{
    QStringList parts;
    for (const FilterRow &row : asked(seriesRows, *this) + asked(recordRows, *this))
        parts.append(QStringLiteral("%1 %2").arg(QLatin1String(row.words), this->*row.value));
    return parts.join(QStringLiteral(", "));
}

void UnitCount::add(const UnitCount &other)
{
    units += other.units;
    firstPass += other.firstPass;
    finalPass += other.finalPass;
    retested += other.retested;
    attempts += other.attempts;
}

Questions::Questions(const QSqlDatabase &database, const RecordFilter &filter)
    : m_database(database), m_filter(filter)
{
}

/// Takes each row of records that fit the filter.
bool Questions::eachRecord(const QString &select, const QString &order, const TakeRow &take,
                           QString *error) const
{
    const QList<FilterRow> rows = asked(seriesRows, m_filter) + asked(recordRows, m_filter);
    return eachRow(select + conditions(rows) + order, valuesOf(rows, m_filter), take, error);
}

/// " AND COLUMN IN (...)" for rows of the series that are asked for, with its values.
QString Questions::inSeries(const QString &column, QVariantList *values) const
{
    const QList<FilterRow> rows = asked(seriesRows, m_filter);
    if (rows.isEmpty())
        return QString();
    *values += valuesOf(rows, m_filter);
    return QStringLiteral(" AND %1 IN (SELECT key FROM series%2)").arg(column, conditions(rows));
}

bool Questions::eachRow(const QString &statement, const QVariantList &values, const TakeRow &take,
                        QString *error) const
{
    QSqlQuery query(m_database);
    query.setForwardOnly(true);
    bool good = query.prepare(statement);
    for (const QVariant &value : values)
        query.addBindValue(value);
    good = good && query.exec();
    if (!good)
        *error = sqlReason(query.lastError());
    while (good && query.next())
        take(query);
    return good;
}

bool Questions::list(int most, QList<ListedRecord> *records, QString *error) const
{
    return eachRecord(
        QLatin1String(ListedColumns),
        QStringLiteral(" ORDER BY start_ms DESC, record.key DESC LIMIT %1").arg(most),
        [records](const QSqlQuery &row) { records->append(listed(row)); }, error);
}

bool Questions::each(const std::function<void(const ListedRecord &)> &take, QString *error) const
{
    return eachRecord(
        QLatin1String(ListedColumns), QStringLiteral(" ORDER BY start_ms, record.key"),
        [&take](const QSqlQuery &row) { take(listed(row)); }, error);
}

bool Questions::eachValue(const std::function<void(const ListedValue &)> &take,
                          QString *error) const
{
    return eachRecord(
        QStringLiteral("SELECT start_ms, serial_number, series.plan, step_kind.name,"
                       " quantity.name, value, shown, quantity.unit, minimum, maximum, good"
                       " FROM measurement JOIN record ON record.key = measurement.record"
                       " JOIN series ON series.key = record.series"
                       " JOIN quantity ON quantity.key = measurement.quantity"
                       " JOIN step_kind ON step_kind.key = quantity.kind"),
        QStringLiteral(" ORDER BY start_ms, record.key, measurement.quantity"),
        [&take](const QSqlQuery &row) { take(listedValue(row)); }, error);
}

bool Questions::json(qint64 key, QByteArray *json, QString *error) const
{
    return eachRow(
               QStringLiteral("SELECT json FROM record_json WHERE record = ?"), {key},
               [json](const QSqlQuery &row) { *json = row.value(0).toString().toUtf8(); }, error) &&
           !json->isEmpty();
}

bool Questions::units(QList<UnitGroup> *groups, QString *error) const
{
    QVariantList values;
    const QString which = inSeries(QStringLiteral("first_series"), &values);
    return eachRow(
        QStringLiteral("SELECT day, plan, station, variant, units, first_pass, final_pass,"
                       " retested, attempts FROM (SELECT first_series, COUNT(*) AS units,"
                       " SUM(first_passed) AS first_pass, SUM(latest_passed) AS final_pass,"
                       " SUM(CASE WHEN attempts > 1 THEN 1 ELSE 0 END) AS retested,"
                       " SUM(attempts) AS attempts FROM unit WHERE 1 = 1%1"
                       " GROUP BY first_series) AS counted"
                       " JOIN series ON series.key = first_series"
                       " ORDER BY day, plan, station, variant")
            .arg(which),
        values, [groups](const QSqlQuery &row) { groups->append(unitGroup(row)); }, error);
}

bool Questions::failures(QList<StepFailures> *steps, QString *error) const
{
    QVariantList values;
    const QString which = inSeries(QStringLiteral("record.series"), &values);
    const TakeRow take = [steps](const QSqlQuery &row) {
        steps->append(
            {row.value(0).toString(), row.value(1).toString(), row.value(2).toLongLong()});
    };
    return eachRow(
        QStringLiteral("SELECT plan, failed_step, COUNT(*) FROM record"
                       " JOIN series ON series.key = record.series WHERE failed_step <> ''%1"
                       " GROUP BY plan, failed_step ORDER BY 3 DESC, 1, 2")
            .arg(which),
        values, take, error);
}

bool Questions::slowest(int most, QList<StepTime> *steps, QString *error) const
{
    QVariantList values;
    const QString which = inSeries(QStringLiteral("series"), &values);
    const TakeRow take = [steps](const QSqlQuery &row) {
        steps->append({row.value(0).toString(), row.value(1).toString(), row.value(2).toLongLong(),
                       row.value(3).toDouble(), row.value(4).toDouble()});
    };
    return eachRow(QStringLiteral("SELECT plan, name, runs, seconds / runs, most FROM (SELECT kind,"
                                  " SUM(runs) AS runs, SUM(seconds) AS seconds, MAX(most) AS most"
                                  " FROM step_sum WHERE runs > 0%1 GROUP BY kind) AS summed"
                                  " JOIN step_kind ON step_kind.key = kind"
                                  " ORDER BY 4 DESC, 1, 2 LIMIT %2")
                       .arg(which)
                       .arg(most),
                   values, take, error);
}

bool Questions::quantities(QList<QuantityAnswer> *answers, QString *error) const
{
    struct Quantity {
        qint64 key;
        double origin;
        QuantityAnswer answer;
    };
    // All at once: a server gives one answer at a time.
    QList<Quantity> found;
    const TakeRow take = [&found](const QSqlQuery &row) {
        QuantityAnswer answer;
        answer.plan = row.value(1).toString();
        answer.step = row.value(2).toString();
        answer.name = row.value(3).toString();
        answer.unit = row.value(4).toString();
        answer.minimum = limit(row.value(5));
        answer.maximum = limit(row.value(6));
        found.append({row.value(0).toLongLong(), row.value(7).toDouble(), answer});
    };
    if (!eachRow(QStringLiteral("SELECT quantity.key, step_kind.plan, step_kind.name,"
                                " quantity.name, unit, minimum, maximum, origin FROM quantity"
                                " JOIN step_kind ON step_kind.key = kind"
                                " WHERE origin IS NOT NULL ORDER BY 2, 3, 4, 6, 7"),
                 {}, take, error))
        return false;
    for (Quantity &each : found) {
        QuantityAnswer &answer = each.answer;
        if (!measure(each.key, each.origin, &answer, error))
            return false;
        const bool differs = answer.values.most > answer.values.least;
        if (answer.values.count == 0 || (!differs && !answer.minimum && !answer.maximum))
            continue;
        if (!count(each.key, &answer, error))
            return false;
        answers->append(answer);
    }
    return true;
}

bool Questions::measure(qint64 key, double origin, QuantityAnswer *answer, QString *error) const
{
    const QString distance = QStringLiteral("(value - %1)").arg(origin, 0, 'g', 17);
    QVariantList values = {key};
    const QString which = inSeries(QStringLiteral("series"), &values);
    const TakeRow take = [answer, origin](const QSqlQuery &row) {
        Statistics &found = answer->values;
        found.count = row.value(0).toLongLong();
        const double shift = row.value(1).toDouble();
        found.mean = origin + shift;
        if (found.count > 1)
            found.deviation = deviation(row.value(2).toDouble(), shift, found.count);
        found.least = row.value(3).toDouble();
        found.most = row.value(4).toDouble();
        answer->outside = row.value(5).toLongLong();
    };
    return eachRow(QStringLiteral("SELECT COUNT(*), AVG(%1), SUM(%1 * %1), MIN(value), MAX(value),"
                                  " SUM(1 - good) FROM measurement"
                                  " WHERE quantity = ? AND value IS NOT NULL%2")
                       .arg(distance, which),
                   values, take, error);
}

bool Questions::count(qint64 key, QuantityAnswer *answer, QString *error) const
{
    const bool whole = isWhole(answer->values.least) && isWhole(answer->values.most);
    const Bins bins = chooseBins(answer->values, answer->minimum, answer->maximum, whole);
    // A cast rounds a number on a server and truncates it in a file.
    const QString bar =
        QStringLiteral("CAST(%1((value - %2) / %3) AS INTEGER)")
            .arg(m_database.driverName() == QLatin1String("QPSQL") ? QStringLiteral("FLOOR")
                                                                   : QString())
            .arg(bins.from, 0, 'g', 17)
            .arg(bins.width, 0, 'g', 17);
    QVariantList values = {key};
    const QString which = inSeries(QStringLiteral("series"), &values);
    answer->bins = bins;
    answer->bars.fill(0, bins.count);
    // A value that lies on an edge may be taken for the next bar's.
    const TakeRow take = [answer](const QSqlQuery &row) {
        answer->bars[qBound(0, row.value(0).toInt(), answer->bins.count - 1)] +=
            row.value(1).toLongLong();
    };
    return eachRow(QStringLiteral("SELECT %1 AS bar, COUNT(*) FROM measurement"
                                  " WHERE quantity = ? AND value IS NOT NULL%2 GROUP BY bar")
                       .arg(bar, which),
                   values, take, error);
}
