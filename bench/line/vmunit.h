/// A unit that is an emulated board with a real kernel: everything that is done to it or
/// looked at on it goes through the agent in the board.
#ifndef BENCH_LINE_VMUNIT_H
#define BENCH_LINE_VMUNIT_H

#include "bench/board/vmboard.h"
#include "bench/line/playedunit.h"

class VmUnit : public PlayedUnit
{
public:
    /// @param faults  none that VmFault refuses
    VmUnit(const VmBoardOptions &options, const QList<const Fault *> &faults);
    ~VmUnit() override;

    QString description() const override;
    /// Makes the board's disk; it is started by an operation of the plan.
    bool attach(Station *station, QString *error) override;
    void beginStep() override;
    Done operate(const Plan::Operation &operation, bool confirm, int limitMs,
                 QString *error) override;
    int limitFor(int limitMs) const override;
    QImage screen() override;
    QString end() override;
    QByteArray log() override;

protected:
    QList<MadeStore> stores() override;
    QStringList logTexts() override;
    std::optional<QByteArray> attribute(const QString &path) override;
    std::optional<QByteArray> file(const QString &path) override;
    Ending ending() override;
    QString whyNoEnding() override;
    bool pushHome(bool down) override;

private:
    static QString momentOf(const Fault &fault);
    bool perform(const Plan::Action &action);
    bool switchPower(bool on);
    bool plantFaults();
    bool touch(const QPoint &point, int holdMs);
    bool done(const Agent::Answer &answer);

    const VmBoardOptions m_options;
    VmBoard m_board;
    QString m_error;
    int m_firstStore = 0; ///< of the step
    int m_firstLine = 0;
};

#endif
