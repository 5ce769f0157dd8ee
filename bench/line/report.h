/// The report that people read: one page that needs no other files.
#ifndef BENCH_LINE_REPORT_H
#define BENCH_LINE_REPORT_H

#include "bench/line/record.h"
#include "bench/station/transcript.h"

/// The page of one unit.
/// @param pictureDir  where the pictures named in the record are
/// @param log         the tool's; empty where there is none
QByteArray unitReport(const UnitRecord &unit, const QString &pictureDir,
                      const Transcript &transcript, const QByteArray &log);

/// The page of several units: yield, times, and links to the units' pages.
/// @param folders  of the units, relative to the page; empty for one that was not tested
QByteArray lineReport(const QList<UnitRecord> &units, const QStringList &folders);

#endif
