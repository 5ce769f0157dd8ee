/// What is said of a unit, and how it looks: a word and a sign besides the colour, for
/// whoever does not tell red from green.
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

/// @param outcome  as in a record ("pass", "time-out"); one that is not known here is shown
///                 as it is and is no pass
Verdict verdictOf(const QString &outcome);

#endif
