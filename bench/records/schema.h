/// The tables of the store, and how an older store is brought to today's form.
#ifndef BENCH_RECORDS_SCHEMA_H
#define BENCH_RECORDS_SCHEMA_H

#include <QList>
#include <QSqlDatabase>
#include <QString>
#include <QStringList>

namespace schema
{

/// For each form of the store, from the first, the statements that make it out of the one
/// before. They mean the same to SQLite and PostgreSQL except for two words: "$KEY" is
/// the type of a table's own numbers, "$CLUSTERED" ends a table that is kept in the order
/// of its key.
using Forms = QList<QStringList>;

/// Those of this bench; the last is the one that it reads and writes.
const Forms &forms();

/// Brings the store to the last of @p forms, in one transaction: a new store, one of an
/// older form, or one that is up to date already. Several programs may do this at once.
/// False with *error, and nothing is changed; a form that is newer than the last is
/// refused.
bool migrate(const QSqlDatabase &database, const Forms &forms, QString *error);

/// Starts a transaction that writes; another writer is waited for.
bool beginWriting(const QSqlDatabase &database, QString *error);

/// Whether it is a PostgreSQL server and not a file.
bool isServer(const QSqlDatabase &database);

} // namespace schema

#endif
