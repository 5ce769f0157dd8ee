/// Plays a recorded session to a unit again.
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

enum class ReplayPace {
    Recorded, ///< as in the transcript
    Fast      ///< each request as soon as the replies before it have come
};

/// Sends what was sent in @p recorded, byte for byte, each time waits for as many things
/// as were received then, and compares. What was received before the first request
/// belongs to the start of a unit and is ignored.
///
/// At the recorded pace no request follows the one before it, or what came last, sooner
/// than it did then: so polls see the same progress, and people have the same time to
/// act.
///
/// A report of a flash's progress must come, but its stage and percentage are not
/// compared. When the flash is over sooner than it was then, the remaining polls are left
/// out.
/// @param marginMs  how much later than recorded a reply may come
/// @param announce  called with each request before it is sent; may be empty
Replay replay(Station *station, const Transcript &recorded, int marginMs,
              ReplayPace pace = ReplayPace::Recorded,
              const std::function<void(const Transcript::Entry &)> &announce = {});

#endif
