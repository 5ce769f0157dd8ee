/// Where the stores that a board has seen differ from those that a plan wants.
#ifndef BENCH_LINE_STORESDIFFERENCE_H
#define BENCH_LINE_STORESDIFFERENCE_H

#include "bench/line/plan.h"

struct MadeStore {
    QString path;
    QString text;
    bool refused = false; ///< by the driver
};

/// The first of them; of two long lists nobody finds it by eye.
struct StoresDifference {
    enum Kind {
        None,
        Missing, ///< all are right so far; the rest may still come
        Wrong
    };

    Kind kind = None;
    QString wanted; ///< "store 3 of 4, 255 to /sys/class/leds/trouble/brightness"
    QString found;  ///< "0 to /sys/class/leds/ac/brightness", "none"
};

/// @param made  those to the paths that are wanted
StoresDifference storesDifference(const QList<Plan::Store> &wanted, const QList<MadeStore> &made);

#endif
