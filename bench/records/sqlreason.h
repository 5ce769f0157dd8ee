/// Why the store did not do what it was asked, in one line.
#ifndef BENCH_RECORDS_SQLREASON_H
#define BENCH_RECORDS_SQLREASON_H

#include <QSqlError>
#include <QString>

/// What the database says, or else what Qt's driver says.
inline QString sqlReason(const QSqlError &error)
{
    const QString said = error.databaseText().simplified();
    return said.isEmpty() ? error.driverText().simplified() : said;
}

#endif
