#include "bench/records/store.h"

#include "bench/records/schema.h"

#include <QDir>
#include <QFileInfo>
#include <QSqlError>
#include <QSqlQuery>
#include <QUrl>
#include <QUuid>
#include <QVariant>

namespace
{

const int ConnectLimitSeconds = 5;
const int BusyLimitMs = 30000; ///< other stations' writes to the same file take milliseconds

const char ServerScheme[] = "postgresql";

bool isServerPlace(const QString &place)
{
    return place.contains(QLatin1String("://"));
}

QString limitsOf(const RecordFile::Measurement &measured)
{
    const auto shown = [](const std::optional<double> &limit) {
        return limit ? QString::number(*limit, 'g', 12) : QString();
    };
    return shown(measured.minimum) + QStringLiteral("..") + shown(measured.maximum);
}

/// A null text is an empty one to us, and none at all to a store.
QVariant text(const QString &value)
{
    return value.isNull() ? QStringLiteral("") : value;
}

QVariant orNull(const std::optional<double> &number)
{
    return number ? QVariant(*number) : QVariant();
}

} // namespace

Store::Store() : m_connection(QUuid::createUuid().toString()) {}

Store::~Store()
{
    QSqlDatabase::removeDatabase(m_connection);
}

bool Store::isPlace(const QString &place, QString *error)
{
    if (place.isEmpty()) {
        *error = QStringLiteral("the store has no name");
        return false;
    }
    if (!isServerPlace(place))
        return true;
    const QUrl url(place);
    if (!url.isValid() || url.scheme() != QLatin1String(ServerScheme) || url.host().isEmpty() ||
        url.path().size() < 2) {
        *error = QStringLiteral("a store is a file or postgresql://[user@]host[:port]/database");
        return false;
    }
    if (!url.password().isEmpty()) {
        *error = QStringLiteral("no password here, where every list of processes shows it: "
                                "put it into PGPASSWORD or ~/.pgpass");
        return false;
    }
    return true;
}

bool Store::open(const QString &place, QString *error)
{
    if (!isPlace(place, error))
        return false;
    const bool isServer = isServerPlace(place);
    QSqlDatabase database = QSqlDatabase::addDatabase(
        isServer ? QStringLiteral("QPSQL") : QStringLiteral("QSQLITE"), m_connection);
    if (isServer) {
        const QUrl url(place);
        database.setHostName(url.host());
        database.setPort(url.port());
        database.setUserName(url.userName());
        database.setDatabaseName(url.path().mid(1));
        database.setConnectOptions(QStringLiteral("connect_timeout=%1").arg(ConnectLimitSeconds));
    } else {
        QDir().mkpath(QFileInfo(place).absolutePath());
        database.setDatabaseName(place);
        database.setConnectOptions(QStringLiteral("QSQLITE_BUSY_TIMEOUT=%1").arg(BusyLimitMs));
    }
    if (!database.open()) {
        *error = QStringLiteral("%1: %2").arg(place, database.lastError().text().trimmed());
        return false;
    }
    if (schema::migrate(database, schema::forms(), error))
        return true;
    *error = QStringLiteral("%1: %2").arg(place, *error);
    return false;
}

QSqlDatabase Store::database() const
{
    return QSqlDatabase::database(m_connection, false);
}

Store::Added Store::add(const RecordFile &record, QString *error)
{
    if (!schema::beginWriting(database(), error))
        return Refused;
    Keys keys;
    QSqlQuery end(database());
    if (insertAll(record, &keys, error)) {
        if (end.exec(QStringLiteral("COMMIT")))
            return keys.record != 0 ? Stored : Known;
        *error = end.lastError().text().trimmed();
    }
    end.exec(QStringLiteral("ROLLBACK"));
    // Names that were new in this transaction are gone with it.
    m_keys.clear();
    return Refused;
}

bool Store::insertAll(const RecordFile &record, Keys *keys, QString *error)
{
    if (!series(record, &keys->series, error) || !insertRecord(record, keys, error))
        return false;
    if (keys->record == 0)
        return true;
    for (const RecordFile::Step &step : record.steps) {
        if (!insertStep(record, step, *keys, error))
            return false;
    }
    return countUnit(record, *keys, error);
}

bool Store::insertRecord(const RecordFile &record, Keys *keys, QString *error)
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
bool Store::countUnit(const RecordFile &record, const Keys &keys, QString *error)
{
    const int passed = record.outcome == QLatin1String("pass") ? 1 : 0;
    const QString name = record.serialNumber.isEmpty() ? record.id : record.serialNumber;
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
        {text(record.plan), name, record.start, passed, keys.series, record.start, passed}, error);
}

bool Store::insertStep(const RecordFile &record, const RecordFile::Step &step, const Keys &keys,
                       QString *error)
{
    const int passed = step.outcome == QLatin1String("pass") ? 1 : 0;
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
                 {kind, keys.series, passed, step.seconds, step.seconds}, error))
        return false;
    for (const RecordFile::Measurement &measured : step.measured) {
        if (!insertMeasurement(measured, kind, keys, error))
            return false;
    }
    return true;
}

bool Store::insertMeasurement(const RecordFile::Measurement &measured, qint64 kind,
                              const Keys &keys, QString *error)
{
    qint64 what = 0;
    return quantity(measured, kind, &what, error) &&
           execute(QStringLiteral("INSERT INTO measurement VALUES (?, ?, ?, ?, ?, ?)"),
                   {keys.record, what, keys.series, orNull(measured.value), text(measured.text),
                    measured.good ? 1 : 0},
                   error);
}

bool Store::series(const RecordFile &record, qint64 *key, QString *error)
{
    return keyOf("series",
                 {QStringLiteral("day"), QStringLiteral("plan"), QStringLiteral("station"),
                  QStringLiteral("variant")},
                 {text(record.day), text(record.plan), text(record.station), text(record.variant)},
                 4, key, error);
}

bool Store::stepKind(const QString &plan, const QString &name, qint64 *key, QString *error)
{
    return keyOf("step_kind", {QStringLiteral("plan"), QStringLiteral("name")},
                 {text(plan), text(name)}, 2, key, error);
}

bool Store::quantity(const RecordFile::Measurement &measured, qint64 kind, qint64 *key,
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

/// The key of a row of names; the row is made if it is not there. Looked for first: an
/// insertion would make other stations wait, and rows seldom are new.
/// @param naming  how many of the columns, from the first, tell one row from another
bool Store::keyOf(const char *table, const QStringList &columns, const QVariantList &values,
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
    // Another station may make the same row just now; then theirs is found.
    if (*key == 0 &&
        (!execute(insert, values, error) || !execute(select, values.mid(0, naming), error, key)))
        return false;
    m_keys.insert(name, *key);
    return *key != 0;
}

/// @param key  set to the first number of the first row, if there is one
bool Store::execute(const QString &statement, const QVariantList &values, QString *error,
                    qint64 *key)
{
    QSqlQuery query(database());
    query.setForwardOnly(true);
    bool good = query.prepare(statement);
    for (const QVariant &value : values)
        query.addBindValue(value);
    good = good && query.exec();
    if (!good)
        *error = query.lastError().text().trimmed();
    else if (key != nullptr && query.next())
        *key = query.value(0).toLongLong();
    return good;
}
