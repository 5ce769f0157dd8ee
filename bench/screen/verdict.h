/// How the outcome of a unit is shown: with a colour, a word and a sign, because some people
/// cannot tell red from green.
#ifndef BENCH_SCREEN_VERDICT_H
#define BENCH_SCREEN_VERDICT_H

#include <QColor>
#include <QString>

enum class Sign { None, Tick, Cross, Exclamation, Bar };

struct Verdict {
    QString word;
    Sign sign = Sign::None;
    QColor colour;
    bool isPass = false;
};

/// @param outcome  as in a record ("pass", "time-out"); an unknown one is shown as it is and
///                 is no pass
Verdict verdictOf(const QString &outcome);

#endif
