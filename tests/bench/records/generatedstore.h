/// A store of as many records as a factory has after years, made by the database itself.
#ifndef TESTS_BENCH_RECORDS_GENERATEDSTORE_H
#define TESTS_BENCH_RECORDS_GENERATEDSTORE_H

#include <QSqlDatabase>
#include <QString>

/// Fills a new store of SQLite: @p records records of one plan with ten steps, of which each
/// measures a value; 200 a day on each of five stations, one unit of twelve tested twice.
/// False with *error.
bool generateRecords(const QSqlDatabase &database, int records, QString *error);

#endif
