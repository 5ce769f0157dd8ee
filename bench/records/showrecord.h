/// Records in the terminal.
#ifndef BENCH_RECORDS_SHOWRECORD_H
#define BENCH_RECORDS_SHOWRECORD_H

#include "bench/records/questions.h"

/// "2026-11-21 14:03:09  KP-0101  pass  production  line-2  35.2 s", the reason after a failure.
QString listLine(const ListedRecord &record);

/// A line for each step of a record.json, with what was measured and why it failed.
QString stepLines(const QByteArray &json);

#endif
