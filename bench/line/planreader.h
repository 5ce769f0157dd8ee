/// Reads a plan from JSON, and says all that is wrong with it.
#ifndef BENCH_LINE_PLANREADER_H
#define BENCH_LINE_PLANREADER_H

#include "bench/line/plan.h"

/// @param file   name for messages and for Plan::file; includes are relative to it
/// @param settings  what is set in its variables
/// @param error  set when nothing is returned: "FILE: PLACE: REASON", or "FILE: 2 mistakes:"
///               and a line for each
std::optional<Plan> readPlan(const QByteArray &json, const QString &file,
                             const PlanSettings &settings, QString *error);

#endif
