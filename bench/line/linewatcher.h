/// Is told of the progress of a run of one unit or many, to show it or to pass it on.
#ifndef BENCH_LINE_LINEWATCHER_H
#define BENCH_LINE_LINEWATCHER_H

#include "bench/line/runner.h"

class LineWatcher : public RunWatcher
{
public:
    /// @param unit   as far as it is known before its first step
    /// @param units  how many there are in all
    virtual void begin(const Plan &plan, const UnitRecord &unit, int units) = 0;
    /// @param files  folder with the unit's record; empty when it could not be written
    virtual void end(const UnitRecord &unit, const QString &files) = 0;
    /// For several units, including those that were not tested.
    /// @param files  folder with the reports; empty when they could not be written
    virtual void summary(const QList<UnitRecord> &units, const QString &files) = 0;
    /// Anything else that a person should know.
    /// @param about  one word: "store", "after"
    /// @param text   one line
    virtual void told(const QString &about, const QString &text) = 0;
};

#endif
