/// What a check finds in what a board shows, on every kind of board.
#ifndef BENCH_LINE_FINDINGS_H
#define BENCH_LINE_FINDINGS_H

#include "bench/line/storesdifference.h"
#include "bench/line/unit.h"

#include <QImage>
#include <QStringList>

namespace Findings
{

/// @param made  all stores of the step, those to other paths too
Unit::Finding stores(const Plan::Check &check, const QList<MadeStore> &made,
                     Unit::Difference *difference);
/// For an attribute, or a file that exists.
Unit::Finding text(const Plan::Check &check, const QByteArray &bytes, QString *found);
/// @param exists  whether the file does
Unit::Finding file(const Plan::Check &check, bool exists, const QByteArray &bytes, QString *found);
Unit::Finding pixel(const Plan::Check &check, const QImage &screen, QString *found);
/// @param lines  logged since the step began
Unit::Finding log(const Plan::Check &check, const QStringList &lines, QString *found);
/// How a tool ended, in words. @param signal  0 for none
QString ending(int status, int signal);

} // namespace Findings

#endif
