/// Reads a record back from its JSON.
#ifndef BENCH_LINE_RECORDREADER_H
#define BENCH_LINE_RECORDREADER_H

#include "bench/line/record.h"

/// The opposite of toJson(), except for the short text of a check, which no record has.
/// @param object  as docs/line.md describes record.json; what it lacks is empty
UnitRecord recordFromJson(const QJsonObject &object);

/// The opposite of outcomeName(); NotRun for anything else.
Outcome outcomeFromName(const QString &name);

#endif
