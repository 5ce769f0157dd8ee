/// "bench records": the store of all records, filled and asked.
#ifndef BENCH_RECORDS_RECORDSCOMMAND_H
#define BENCH_RECORDS_RECORDSCOMMAND_H

#include <QStringList>

/// @param arguments  "records" first. @return exit status
int recordsCommand(const QStringList &arguments);

#endif
