/// A unit that is an emulated board with a real kernel: what a hand does at it and the
/// look at it go through the agent in the board.
#ifndef BENCH_LINE_VMUNIT_H
#define BENCH_LINE_VMUNIT_H

#include "bench/board/vmboard.h"
#include "bench/line/unit.h"

#include <QList>

#include <functional>

struct Fault;

class VmUnit : public Unit
{
public:
    /// @param faults  none that is refused, see VmFault
    VmUnit(const VmBoardOptions &options, const QList<const Fault *> &faults);
    ~VmUnit() override;

    QString description() const override;
    /// Makes the board's disk; it is started by an operation of the plan.
    bool attach(Station *station, QString *error) override;
    void beginStep() override;
    Done operate(const Plan::Operation &operation, bool confirm, int limitMs,
                 QString *error) override;
    bool hasOperator() const override { return false; }
    int limitFor(int limitMs) const override;
    Done look(const QString &question, int limitMs, QString *error) override;
    Finding check(const Plan::Check &check, Difference *difference) override;
    QImage screen() override;
    QString end() override;
    QByteArray log() override;
    QString missedFault() const override;

private:
    void hadItsMoment(const std::function<bool(const Fault &fault)> &had);
    bool perform(const Plan::Action &action);
    bool switchPower(bool on);
    bool plantFaults();
    bool touch(const QPoint &point, int holdMs);
    bool moveHome(bool down);
    bool done(const Agent::Answer &answer);
    Finding checkStores(const Plan::Check &check, Difference *difference);
    Finding checkLog(const Plan::Check &check, QString *found);
    Finding checkExit(const Plan::Check &check, QString *found);
    QString ending() const;

    const VmBoardOptions m_options;
    const QList<const Fault *> m_faults;
    VmBoard m_board;
    QList<const Fault *> m_awaited; ///< faults whose moment has not come yet
    QString m_error;
    int m_steps = 0;
    int m_firstStore = 0; ///< of the step
    int m_firstLine = 0;
};

#endif
