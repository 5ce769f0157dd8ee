/// Shows the progress of several fixtures, and passes on the answers of the operator of
/// them all.
#ifndef BENCH_LINE_FLOORWATCHER_H
#define BENCH_LINE_FLOORWATCHER_H

#include "bench/line/plan.h"
#include "bench/line/record.h"

#include <functional>

class FloorWatcher
{
public:
    virtual ~FloorWatcher() = default;

    virtual void begin(const Plan &plan, const QStringList &fixtures, int units) = 0;
    /// @param fixture  counted from 0
    /// @param event    about a unit, its steps or a question, as docs/line.md describes
    ///                 it
    virtual void heard(int fixture, const QJsonObject &event) = 0;
    /// The fixture is idle for now; nobody waits for answers to its questions.
    virtual void idle(int fixture) = 0;
    /// Anything that is not an event of a unit.
    /// @param about  what it is about: "store"
    virtual void told(const QString &about, const QString &text) = 0;
    /// @param files  folder with the reports; empty when they could not be written
    virtual void summary(const QList<UnitRecord> &units, const QString &files) = 0;

    /// Called with a line for the fixture: an answer, or that a question waits or is shown.
    std::function<void(int fixture, const QJsonObject &line)> say;
    /// Called when nobody can answer any more.
    std::function<void()> hangUp;
};

#endif
