/// A unit that is a virtual keypad: its operator's hand and the look at its
/// board are calls.
#ifndef BENCH_LINE_VIRTUALUNIT_H
#define BENCH_LINE_VIRTUALUNIT_H

#include "bench/keypad/virtualkeypad.h"
#include "bench/line/unit.h"

#include <QList>

#include <functional>

struct Fault;

struct VirtualUnitOptions {
    KeypadDisplay display;
    double flashSeconds = 0; ///< for both programs of a flash together; 0 is full speed
    QList<const Fault *> faults;
};

class VirtualUnit : public Unit
{
public:
    explicit VirtualUnit(const VirtualUnitOptions &options);
    ~VirtualUnit() override;

    QString description() const override;
    /// Builds the board; the tool is started by an operation of the plan.
    bool attach(Station *station, QString *error) override;
    void beginStep() override;
    Done operate(const Plan::Operation &operation, bool confirm, int limitMs,
                 QString *error) override;
    bool hasOperator() const override { return false; }
    Done look(const QString &question, int limitMs, QString *error) override;
    Finding check(const Plan::Check &check, Difference *difference) override;
    QImage screen() override;
    QString end() override;
    QByteArray log() override;
    QString missedFault() const override;

private:
    void hadItsMoment(const std::function<bool(const Fault &fault)> &had);
    bool perform(const Plan::Action &action);
    void moveHome(bool down);
    bool switchPower(bool on);
    bool moveCard(bool in);
    Finding checkStores(const Plan::Check &check, Difference *difference);
    Finding checkFile(const Plan::Check &check, QString *found);
    Finding checkLog(const Plan::Check &check, QString *found);
    Finding checkExit(const Plan::Check &check, QString *found);
    /// How the tool ended; empty while it runs and before it was first started.
    QString ending();

    const VirtualUnitOptions m_options;
    VirtualKeypad m_keypad;
    bool m_isOn = false;
    int m_steps = 0;
    QList<const Fault *> m_awaited; ///< faults whose moment has not come yet
    int m_firstStore = 0;           ///< of the step
    int m_firstLine = 0;
};

#endif
