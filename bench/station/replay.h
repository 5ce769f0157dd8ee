/// A recorded session played to a unit again.
#ifndef BENCH_STATION_REPLAY_H
#define BENCH_STATION_REPLAY_H

#include "bench/station/transcript.h"

#include <QStringList>

#include <functional>

class Station;

struct Replay {
    int sent = 0;            ///< requests played
    int compared = 0;        ///< recorded replies looked for
    QStringList differences; ///< one line each: missing, different or surplus replies
    bool lineFailed = false; ///< the line hung up or refused a request; the rest was not played

    bool same() const { return differences.isEmpty() && !lineFailed; }
};

/// Sends what @p recorded has sent, byte for byte, each time waiting for as
/// many things as were received then, and compares. What was received before
/// the first request belongs to the start of a unit and is not looked for.
/// @param marginMs  how much later than recorded a reply may come
/// @param announce  is told each request before it is sent; may be absent
Replay replay(Station *station, const Transcript &recorded, int marginMs,
              const std::function<void(const Transcript::Entry &)> &announce = {});

#endif
