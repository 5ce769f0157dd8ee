/// Runs a plan on one unit, step by step, and keeps the record.
#ifndef BENCH_LINE_RUNNER_H
#define BENCH_LINE_RUNNER_H

#include "bench/line/calibrationcheck.h"
#include "bench/line/interrupt.h"
#include "bench/line/plan.h"
#include "bench/line/record.h"
#include "bench/line/timebook.h"
#include "bench/line/unit.h"
#include "bench/station/meaning.h"
#include "bench/station/station.h"

#include <QDeadlineTimer>
#include <QObject>

#include <deque>
#include <functional>

/// Is told of the progress of a run.
class RunWatcher
{
public:
    virtual ~RunWatcher() = default;
    virtual void stepStarted(const Plan::Step &step, int number) = 0;
    /// While something takes long: "flash stage 2 (flashing) 45 %".
    virtual void progressed(const QString &text) = 0;
    virtual void stepEnded(const StepRecord &step) = 0;
};

struct RunOptions {
    QString pictureDir; ///< for pictures; empty takes none
    int paceMs = 0;     ///< pause after each step, for a person who follows
    /// Checked while waiting; ends the run when it is raised. May be null.
    const Interrupt *interrupt = nullptr;
    /// Called after each step that was run with the record so far. May be empty.
    std::function<void(const UnitRecord &record)> keep;
};

/// Steps are strict: exactly what is expected must come, in that order, and nothing else.
/// After a failed step the run goes on with the next one, unless the step is required, or
/// the unit is beyond an answer: its tool ended, its line failed, or it gave no sign
/// within the step's limit. A step that is interrupted has not failed, and none is begun
/// after it. A step of which nothing could be checked has not passed either: it counts as
/// not run.
class Runner : public QObject
{
    Q_OBJECT

public:
    Runner(const Plan &plan, Unit *unit, Station *station, RunWatcher *watcher,
           const RunOptions &options);

    /// Fills in steps, start, end, time, outcome and reason of @p record.
    void run(UnitRecord *record);

private slots:
    void take(const Station::Received &received);

private:
    struct Attempt;

    StepRecord runStep(const Plan::Step &step, int number);
    AttemptRecord tryStep(const Plan::Step &step, Attempt *attempt);
    void attempt(const Plan::Step &step, Attempt *attempt);
    bool operate(const Plan::Step &step, Attempt *attempt);
    bool send(const Plan::Step &step, Attempt *attempt);
    bool sent(bool good, Attempt *attempt);
    bool expectFrames(const Plan::Step &step, Attempt *attempt);
    bool expectPolling(const Plan::Step &step, Attempt *attempt);
    bool takeAnswer(const Plan::Poll &poll, const wire::Frame &frame, Attempt *attempt);
    bool compare(const Plan::Expected &expected, const Station::Received &received,
                 Attempt *attempt);
    bool measure(const QList<Plan::Limit> &limits, const wire::Meaning &meaning,
                 QList<Measurement> *measured);
    bool checkPoints(const Plan::Step &step, Attempt *attempt);
    bool runChecks(const Plan::Step &step, Attempt *attempt);
    bool runCheck(const Plan::Check &check, Attempt *attempt);
    bool keepsQuiet(const Plan::Step &step, Attempt *attempt);
    bool heardNothing(const QDeadlineTimer &deadline, Attempt *attempt);
    QString silencedBy(const Plan::Step &step);
    bool look(const Plan::Step &step, Attempt *attempt);
    bool hasTested(const Plan::Step &step, const AttemptRecord &record) const;
    bool missing(const QString &expected, Attempt *attempt);
    void takePicture(const Plan::Step &step, StepRecord *record);
    void settle(Attempt *attempt);
    void keep(UnitRecord *record);

    std::optional<Station::Received> next(const QDeadlineTimer &deadline);
    void pause(const QDeadlineTimer &deadline);
    bool isInterrupted() const;
    TimeBook::Share handShare() const;

    const Plan &m_plan;
    Unit *m_unit;
    Station *m_station;
    RunWatcher *m_watcher;
    const RunOptions m_options;
    std::deque<Station::Received> m_inbox;
    CalibrationPoints m_points;
    TimeBook m_time;
    QString m_over; ///< why the unit is done before its plan; empty while it is not
};

#endif
