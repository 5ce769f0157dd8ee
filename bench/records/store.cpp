#include "bench/records/store.h"

#include "bench/records/recordrows.h"
#include "bench/records/schema.h"
#include "bench/records/sqlreason.h"

#include <QDir>
#include <QFileInfo>
#include <QSqlQuery>
#include <QUrl>
#include <QUrlQuery>
#include <QUuid>

namespace
{

const int BusyLimitMs = 30000; ///< other stations' writes to the same file take milliseconds
const int TriesWhenMet = 5;

/// For libpq: a server that does not answer is given up, before it is connected and
/// after.
const char ServerLimits[] = "connect_timeout=5;tcp_user_timeout=30000";

/// If a station is cut off in the middle, the others can go on after a minute.
const char *const ServerSettings[] = {
    "SET idle_in_transaction_session_timeout = '60s'",
    "SET lock_timeout = '60s'",
};

bool isServerPlace(const QString &place)
{
    return place.contains(QLatin1String("://"));
}

/// The options of libpq in the place itself, such as "sslmode=verify-full".
QString optionsOf(const QUrl &url)
{
    QString options = QLatin1String(ServerLimits);
    const auto items = QUrlQuery(url).queryItems(QUrl::FullyDecoded);
    for (const auto &item : items) {
        QString value = item.second;
        value.replace(QLatin1Char('\\'), QLatin1String("\\\\"));
        value.replace(QLatin1Char('\''), QLatin1String("\\'"));
        options += QStringLiteral(";%1='%2'").arg(item.first, value);
    }
    return options;
}

QSqlDatabase serverConnection(const QString &place, const QString &name)
{
    QSqlDatabase database = QSqlDatabase::addDatabase(QStringLiteral("QPSQL"), name);
    const QUrl url(place);
    database.setHostName(url.host());
    database.setPort(url.port());
    database.setUserName(url.userName());
    database.setDatabaseName(url.path().mid(1));
    database.setConnectOptions(optionsOf(url));
    return database;
}

/// SQLite's own journal, not its write-ahead log: the store stays one file, which may be
/// on a network share and be read by those who may not write. Only imports wait for it.
QSqlDatabase fileConnection(const QString &place, const QString &name)
{
    QSqlDatabase database = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), name);
    database.setDatabaseName(place);
    database.setConnectOptions(QStringLiteral("QSQLITE_BUSY_TIMEOUT=%1").arg(BusyLimitMs));
    return database;
}

bool limitWaiting(const QSqlDatabase &database, QString *error)
{
    for (const char *setting : ServerSettings) {
        QSqlQuery query(database);
        if (!query.exec(QLatin1String(setting))) {
            *error = sqlReason(query.lastError());
            return false;
        }
    }
    return true;
}

} // namespace

Store::Store() : m_connection(QUuid::createUuid().toString()) {}

Store::~Store()
{
    m_rows.reset(); // its queries
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
    if (!url.isValid() || url.scheme() != QLatin1String("postgresql") || url.path().size() < 2 ||
        (url.host().isEmpty() && !QUrlQuery(url).hasQueryItem(QStringLiteral("host")))) {
        *error = QStringLiteral("a store is a file or postgresql://[user@]host[:port]/database");
        return false;
    }
    if (!url.password().isEmpty() || QUrlQuery(url).hasQueryItem(QStringLiteral("password"))) {
        *error = QStringLiteral("no password here, where every list of processes shows it: "
                                "put it into PGPASSWORD or ~/.pgpass");
        return false;
    }
    return true;
}

bool Store::open(const QString &place, Use use, QString *error)
{
    if (!isPlace(place, error))
        return false;
    const bool isServer = isServerPlace(place);
    if (!isServer && use == Ask && !QFileInfo::exists(place)) {
        *error = QStringLiteral("%1: there is no store yet; \"import\" makes it").arg(place);
        return false;
    }
    if (!isServer)
        QDir().mkpath(QFileInfo(place).absolutePath());
    QSqlDatabase database =
        isServer ? serverConnection(place, m_connection) : fileConnection(place, m_connection);
    QString reason;
    if (!database.open())
        reason = sqlReason(database.lastError());
    else if ((!isServer || limitWaiting(database, &reason)) &&
             schema::migrate(database, schema::forms(), &reason))
        m_rows = std::make_unique<RecordRows>(database);
    if (m_rows)
        return true;
    *error = QStringLiteral("%1: %2").arg(place, reason);
    return false;
}

QSqlDatabase Store::database() const
{
    return QSqlDatabase::database(m_connection, false);
}

bool Store::answers() const
{
    return database().isOpen() && QSqlQuery(database()).exec(QStringLiteral("SELECT 1"));
}

Store::Added Store::add(const RecordFile &record, QString *error)
{
    int stored = 0;
    if (!add(QList<RecordFile>{record}, &stored, error))
        return Refused;
    return stored > 0 ? Stored : Known;
}

bool Store::add(const QList<RecordFile> &records, int *stored, QString *error)
{
    for (int i = 1; i < TriesWhenMet; ++i) {
        if (addTogether(records, stored, error))
            return true;
        if (!m_rows->hasMetAnother())
            return false;
    }
    return addTogether(records, stored, error);
}

bool Store::addTogether(const QList<RecordFile> &records, int *stored, QString *error)
{
    *stored = 0;
    bool good = schema::beginWriting(database(), error);
    for (const RecordFile &record : records) {
        bool isNew = false;
        good = good && m_rows->write(record, &isNew, error);
        *stored += isNew ? 1 : 0;
    }
    QSqlQuery end(database());
    if (good && end.exec(QStringLiteral("COMMIT")))
        return true;
    if (good)
        *error = sqlReason(end.lastError());
    if (database().isOpen())
        end.exec(QStringLiteral("ROLLBACK"));
    m_rows->rolledBack();
    return false;
}
