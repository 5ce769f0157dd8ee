/// What the data of a frame mean, as the table of messages says.
#ifndef BENCH_STATION_MEANING_H
#define BENCH_STATION_MEANING_H

#include "bench/station/frame.h"

#include <QString>
#include <QVariantMap>

namespace wire
{

struct Meaning {
    QString text; ///< for a person: "touch at 120,45"; a request as its command, "backlight 100" or
                  ///< "send 6143 0264"
    QVariantMap fields; ///< by name, numbers as int, texts as QString: "x" 120, "y" 45
    QString complaint;  ///< why the data are not as the type wants them; empty when they are
};

/// Decodes a frame of any type.
Meaning meaningOf(const Frame &frame);

} // namespace wire

#endif
