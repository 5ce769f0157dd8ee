#include "bench/records/recordrows.h"

#include "bench/records/sqlreason.h"

#include <QVariant>

namespace
{

const char DeadlockDetected[] = "40P01"; ///< as PostgreSQL numbers its failures

QString limitsOf(const RecordFile::Measurement &measured)
{
    const auto shown = [](const std::optional<double> &limit) {
        return limit ? QString::number(*limit, 'g', 12) : QString();
    };
    return shown(measured.minimum) + QStringLiteral("..") + shown(measured.maximum);
}

/// To us a null text is an empty one, to a store it is no text at all. A server accepts
/// no NUL, which a damaged unit may send.
QVariant text(const QString &value)
{
    QString taken = value.isNull() ? QStringLiteral("") : value;
    return taken.replace(QChar(0), QChar(QChar::ReplacementCharacter));
}

QVariant orNull(const std::optional<double> &number)
{
    return number ? QVariant(*number) : QVariant();
}

bool passed(const QString &outcome)
{
    return outcome == QLatin1String("pass");
}

/// A record without a serial number is a unit of its own.
QString unitName(const RecordFile &record)
{
    return record.serialNumber.isEmpty() ? record.id : record.serialNumber;
}

} // namespace

bool RecordRows::write(const RecordFile &record, bool *isNew, QString *error)
{
    Keys keys;
    if (!removeUnfinished(record, error) || !series(record, &keys.series, error) ||
        !insertRecord(record, &keys, error))
        return false;
    *isNew = keys.record != 0;
    if (!*isNew)
        return true;
    for (const RecordFile::Step &step : record.steps) {
        if (!insertStep(record, step, keys, error))
            return false;
    }
    return countUnit(record.plan, unitName(record), record.start, passed(record.outcome),
                     keys.series, error);
}

void RecordRows::rolledBack()
{
    // Names that were new in the transaction are gone with it.
    m_keys.clear();
}

bool RecordRows::hasMetAnother() const
{
    return m_errorCode == QLatin1String(DeadlockDetected);
}

/// Takes back what the same run counted before it had ended, which happens when a folder
/// is imported or copied during a batch. All its steps come again, so the longest times
/// need not be looked up among the others.
bool RecordRows::removeUnfinished(const RecordFile &record, QString *error)
{
    if (!record.ended())
        return true;
    qint64 key = 0;
    // Of several that find it only one gets the row.
    if (!execute(QStringLiteral("UPDATE record SET outcome = '' WHERE id = ? AND outcome = ?"
                                " RETURNING key"),
                 {text(record.id), RecordFile::notEnded()}, error, &key))
        return false;
    if (key == 0)
        return true;
    return execute(QStringLiteral("UPDATE step_sum SET"
                                  " runs = runs - (SELECT COUNT(*) FROM step"
                                  "  WHERE record = ? AND step.kind = step_sum.kind),"
                                  " passed = passed - (SELECT COUNT(*) FROM step"
                                  "  WHERE record = ? AND step.kind = step_sum.kind"
                                  "  AND step.outcome = 'pass'),"
                                  " seconds = seconds - (SELECT SUM(step.seconds) FROM step"
                                  "  WHERE record = ? AND step.kind = step_sum.kind)"
                                  " WHERE series = (SELECT series FROM record WHERE key = ?)"
                                  " AND kind IN (SELECT kind FROM step WHERE record = ?)"),
                   {key, key, key, key, key}, error) &&
           execute(QStringLiteral("DELETE FROM measurement WHERE record = ?"), {key}, error) &&
           execute(QStringLiteral("DELETE FROM step WHERE record = ?"), {key}, error) &&
           execute(QStringLiteral("DELETE FROM record_json WHERE record = ?"), {key}, error) &&
           execute(QStringLiteral("DELETE FROM record WHERE key = ?"), {key}, error) &&
           recountUnit(record, error);
}

/// From the records of it that are left.
bool RecordRows::recountUnit(const RecordFile &record, QString *error)
{
    if (!execute(QStringLiteral("DELETE FROM unit WHERE plan = ? AND serial_number = ?"),
                 {text(record.plan), unitName(record)}, error))
        return false;
    if (record.serialNumber.isEmpty())
        return true;
    QSqlQuery *query = executed(QStringLiteral("SELECT start_ms, outcome, record.series FROM record"
                                               " JOIN series ON series.key = record.series"
                                               " WHERE serial_number = ? AND plan = ?"),
                                {text(record.serialNumber), text(record.plan)}, error);
    if (query == nullptr)
        return false;
    struct Left {
        qint64 start;
        bool passed;
        qint64 series;
    };
    // Reads all at once: a server gives one answer at a time.
    QList<Left> records;
    while (query->next())
        records.append({query->value(0).toLongLong(), passed(query->value(1).toString()),
                        query->value(2).toLongLong()});
    query->finish();
    for (const Left &left : records) {
        if (!countUnit(record.plan, unitName(record), left.start, left.passed, left.series, error))
            return false;
    }
    return true;
}

bool RecordRows::insertRecord(const RecordFile &record, Keys *keys, QString *error)
{
    if (!execute(QStringLiteral("INSERT INTO record (id, series, serial_number, title, plan_sha256,"
                                " fixture, operator, connected, tool_version, bench_version,"
                                " start_ms, seconds, attempt, outcome, reason, failed_step)"
                                " VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?)"
                                " ON CONFLICT (id) DO NOTHING RETURNING key"),
                 {text(record.id), keys->series, text(record.serialNumber), text(record.title),
                  text(record.planSum), text(record.fixture), text(record.operatorName),
                  text(record.unit), text(record.toolVersion), text(record.benchVersion),
                  record.start, record.seconds, record.attempt, text(record.outcome),
                  text(record.reason), text(record.failedStep)},
                 error, &keys->record))
        return false;
    return keys->record == 0 || execute(QStringLiteral("INSERT INTO record_json VALUES (?, ?)"),
                                        {keys->record, QString::fromUtf8(record.json)}, error);
}

/// Records may come in any order: an older one may turn out to be the first attempt.
bool RecordRows::countUnit(const QString &plan, const QString &name, qint64 start, bool isPass,
                           qint64 series, QString *error)
{
    const int pass = isPass ? 1 : 0;
    return execute(
        QStringLiteral(
            "INSERT INTO unit (plan, serial_number, attempts, first_start_ms, first_passed,"
            " first_series, latest_start_ms, latest_passed) VALUES (?, ?, 1, ?, ?, ?, ?, ?)"
            " ON CONFLICT (plan, serial_number) DO UPDATE SET attempts = unit.attempts + 1,"
            " first_passed = CASE WHEN excluded.first_start_ms < unit.first_start_ms"
            "  THEN excluded.first_passed ELSE unit.first_passed END,"
            " first_series = CASE WHEN excluded.first_start_ms < unit.first_start_ms"
            "  THEN excluded.first_series ELSE unit.first_series END,"
            " first_start_ms = CASE WHEN excluded.first_start_ms < unit.first_start_ms"
            "  THEN excluded.first_start_ms ELSE unit.first_start_ms END,"
            " latest_passed = CASE WHEN excluded.latest_start_ms >= unit.latest_start_ms"
            "  THEN excluded.latest_passed ELSE unit.latest_passed END,"
            " latest_start_ms = CASE WHEN excluded.latest_start_ms >= unit.latest_start_ms"
            "  THEN excluded.latest_start_ms ELSE unit.latest_start_ms END"),
        {text(plan), text(name), start, pass, series, start, pass}, error);
}

bool RecordRows::insertStep(const RecordFile &record, const RecordFile::Step &step,
                            const Keys &keys, QString *error)
{
    qint64 kind = 0;
    if (!stepKind(record.plan, step.name, &kind, error) ||
        !execute(QStringLiteral("INSERT INTO step VALUES (?, ?, ?, ?, ?, ?)"),
                 {keys.record, step.number, kind, text(step.outcome), step.seconds, step.tries},
                 error) ||
        !execute(QStringLiteral("INSERT INTO step_sum VALUES (?, ?, 1, ?, ?, ?)"
                                " ON CONFLICT (kind, series) DO UPDATE SET"
                                " runs = step_sum.runs + 1,"
                                " passed = step_sum.passed + excluded.passed,"
                                " seconds = step_sum.seconds + excluded.seconds,"
                                " most = CASE WHEN excluded.most > step_sum.most"
                                "  THEN excluded.most ELSE step_sum.most END"),
                 {kind, keys.series, passed(step.outcome) ? 1 : 0, step.seconds, step.seconds},
                 error))
        return false;
    for (const RecordFile::Measurement &measured : step.measured) {
        if (!insertMeasurement(measured, kind, keys, error))
            return false;
    }
    return true;
}

bool RecordRows::insertMeasurement(const RecordFile::Measurement &measured, qint64 kind,
                                   const Keys &keys, QString *error)
{
    qint64 what = 0;
    return quantity(measured, kind, &what, error) &&
           execute(QStringLiteral("INSERT INTO measurement VALUES (?, ?, ?, ?, ?, ?)"),
                   {keys.record, what, keys.series, orNull(measured.value), text(measured.text),
                    measured.good ? 1 : 0},
                   error);
}

bool RecordRows::series(const RecordFile &record, qint64 *key, QString *error)
{
    return keyOf("series",
                 {QStringLiteral("day"), QStringLiteral("plan"), QStringLiteral("station"),
                  QStringLiteral("variant")},
                 {text(record.day), text(record.plan), text(record.station), text(record.variant)},
                 4, key, error);
}

bool RecordRows::stepKind(const QString &plan, const QString &name, qint64 *key, QString *error)
{
    return keyOf("step_kind", {QStringLiteral("plan"), QStringLiteral("name")},
                 {text(plan), text(name)}, 2, key, error);
}

bool RecordRows::quantity(const RecordFile::Measurement &measured, qint64 kind, qint64 *key,
                          QString *error)
{
    return keyOf("quantity",
                 {QStringLiteral("kind"), QStringLiteral("name"), QStringLiteral("limits"),
                  QStringLiteral("unit"), QStringLiteral("minimum"), QStringLiteral("maximum"),
                  QStringLiteral("origin")},
                 {kind, text(measured.name), limitsOf(measured), text(measured.unit),
                  orNull(measured.minimum), orNull(measured.maximum), orNull(measured.value)},
                 3, key, error);
}

/// The key of a row of names; the row is made if it is not there. It is looked for first:
/// an insertion would make other stations wait, and rows are seldom new.
/// @param naming  how many of the columns, from the first, identify a row
bool RecordRows::keyOf(const char *table, const QStringList &columns, const QVariantList &values,
                       int naming, qint64 *key, QString *error)
{
    QString name = QLatin1String(table);
    for (const QVariant &value : values.mid(0, naming))
        name += QLatin1Char('\n') + value.toString();
    *key = m_keys.value(name);
    if (*key != 0)
        return true;
    const QString select =
        QStringLiteral("SELECT key FROM %1 WHERE %2 = ?")
            .arg(QLatin1String(table), columns.mid(0, naming).join(QStringLiteral(" = ? AND ")));
    const QString insert =
        QStringLiteral("INSERT INTO %1 (%2) VALUES (?%3) ON CONFLICT DO NOTHING")
            .arg(QLatin1String(table), columns.join(QStringLiteral(", ")),
                 QStringLiteral(", ?").repeated(static_cast<int>(columns.size()) - 1));
    if (!execute(select, values.mid(0, naming), error, key))
        return false;
    // Another station may be making the same row; then that one is found.
    if (*key == 0 &&
        (!execute(insert, values, error) || !execute(select, values.mid(0, naming), error, key)))
        return false;
    m_keys.insert(name, *key);
    return *key != 0;
}

/// The query with its rows; nothing with *error.
QSqlQuery *RecordRows::executed(const QString &statement, const QVariantList &values,
                                QString *error)
{
    m_errorCode.clear();
    const auto place = m_queries.try_emplace(statement, m_database);
    QSqlQuery *query = &place.first->second;
    query->setForwardOnly(true);
    const bool prepared = !place.second || query->prepare(statement);
    for (int i = 0; i < values.size(); ++i)
        query->bindValue(i, values.at(i));
    if (prepared && query->exec())
        return query;
    *error = sqlReason(query->lastError());
    m_errorCode = query->lastError().nativeErrorCode();
    if (!prepared)
        m_queries.erase(place.first);
    return nullptr;
}

/// @param key  set to the first number of the first row, if there is one
bool RecordRows::execute(const QString &statement, const QVariantList &values, QString *error,
                         qint64 *key)
{
    QSqlQuery *query = executed(statement, values, error);
    if (query == nullptr)
        return false;
    if (key != nullptr && query->next())
        *key = query->value(0).toLongLong();
    query->finish();
    return true;
}
