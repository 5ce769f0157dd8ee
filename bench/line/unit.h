/// A unit on the line, except for its serial line: how to act on it and look at its
/// board. There are virtual keypads, emulated boards with a real kernel, and real units
/// with an operator.
#ifndef BENCH_LINE_UNIT_H
#define BENCH_LINE_UNIT_H

#include "bench/line/plan.h"

#include <QByteArray>
#include <QImage>
#include <QString>

class Station;

class Unit
{
public:
    /// How an operation or a question ended.
    enum Done {
        Performed, ///< or answered with yes
        Refused,   ///< answered with no
        TooLate,   ///< the operator did not act in time
        Impossible ///< it cannot be done: no display, nobody at the keyboard, an interrupt
    };

    enum Finding {
        Holds,
        NotYet,    ///< it may still come
        Broken,    ///< it can no longer come
        CannotLook ///< there is no access to this board
    };

    /// How what is shown differs from what a check wants.
    struct Difference {
        QString wanted; ///< empty for all that the check describes
        QString found;
    };

    virtual ~Unit() = default;

    /// "virtual keypad", "/dev/ttyUSB0".
    virtual QString description() const = 0;
    /// Connects @p station with the unit's line. False with *error.
    virtual bool attach(Station *station, QString *error) = 0;
    /// From now on stores and log lines count.
    virtual void beginStep() = 0;
    /// @param confirm  nothing will come over the line to show that it was done
    /// @param limitMs  for a person
    virtual Done operate(const Plan::Operation &operation, bool confirm, int limitMs,
                         QString *error) = 0;
    /// Whether a person acts: what follows an operation may come late.
    virtual bool hasOperator() const = 0;
    /// What a plan's time limit, in milliseconds, is for this unit.
    virtual int limitFor(int limitMs) const { return limitMs; }
    virtual Done look(const QString &question, int limitMs, QString *error) = 0;
    /// @param difference  set to what is there instead
    virtual Finding check(const Plan::Check &check, Difference *difference) = 0;
    /// What the screen shows; null when it cannot be seen.
    virtual QImage screen() = 0;
    /// How the tool ended; empty while it runs, before it was started, and when that
    /// cannot be known.
    virtual QString end() = 0;
    /// The tool's log with times and severities, one message in each line; empty when
    /// there is no access to it.
    virtual QByteArray log() = 0;
    /// Why a fault that the unit was given did not take effect: its moment never came.
    /// Empty when all did, or there are none.
    virtual QString missedFault() const = 0;
};

#endif
