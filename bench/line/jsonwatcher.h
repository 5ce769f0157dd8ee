/// Reports the progress of a run to another program; docs/line.md describes the lines.
#ifndef BENCH_LINE_JSONWATCHER_H
#define BENCH_LINE_JSONWATCHER_H

#include "bench/line/jsonstream.h"
#include "bench/line/linewatcher.h"

class JsonWatcher : public LineWatcher
{
public:
    /// @param stream  kept by the caller
    explicit JsonWatcher(JsonStream *stream) : m_stream(stream) {}

    void begin(const Plan &plan, const UnitRecord &unit, int units) override;
    void stepStarted(const Plan::Step &step, int number) override;
    void progressed(const QString &text) override;
    void stepEnded(const StepRecord &step) override;
    void end(const UnitRecord &unit, const QString &files) override;
    void summary(const QList<UnitRecord> &units, const QString &files) override;
    void told(const QString &about, const QString &text) override;

private:
    JsonStream *m_stream;
    int m_unit = 0; ///< the one that is tested
    int m_step = 0;
};

#endif
