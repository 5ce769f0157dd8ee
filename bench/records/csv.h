/// Records as comma-separated values in the form of RFC 4180, which spreadsheets read.
#ifndef BENCH_RECORDS_CSV_H
#define BENCH_RECORDS_CSV_H

#include "bench/records/questions.h"

#include <QIODevice>
#include <QStringList>

/// "a,\"b \"\"c\"\"\"" without the line's end. A text that a spreadsheet would take for a
/// formula gets an apostrophe in front.
QByteArray csvLine(const QStringList &fields);

/// A line for each record, oldest first, after one with the names of the columns.
/// False with *error.
bool writeRecords(const Questions &questions, QIODevice *output, QString *error);

/// A line for each measured value.
bool writeValues(const Questions &questions, QIODevice *output, QString *error);

#endif
