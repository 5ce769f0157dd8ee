/// Where the stores on a board differ from those that a plan wants.
#ifndef BENCH_LINE_STORESDIFFERENCE_H
#define BENCH_LINE_STORESDIFFERENCE_H

#include "bench/line/plan.h"

struct MadeStore {
    QString path;
    QString text;
    bool refused = false; ///< by the driver
};

/// The first difference; in two long lists nobody would find it by eye.
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
