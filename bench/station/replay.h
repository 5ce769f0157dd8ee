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

enum class ReplayPace {
    Recorded, ///< as in the transcript
    Fast      ///< each request as soon as the replies before it have come
};

/// Sends what @p recorded has sent, byte for byte, each time waiting for as
/// many things as were received then, and compares. What was received before
/// the first request belongs to the start of a unit and is not looked for.
///
/// At the recorded pace no request is sent sooner after the one before it, or after what came
/// last, than it was then: polls see the same progress, and hands have the same time to act.
///
/// The progress of a flash is compared as such, its stage and percentage are not; and when the
/// flash is over sooner than it was then, the polls that remain are left out.
/// @param marginMs  how much later than recorded a reply may come
/// @param announce  is told each request before it is sent; may be absent
Replay replay(Station *station, const Transcript &recorded, int marginMs,
              ReplayPace pace = ReplayPace::Recorded,
              const std::function<void(const Transcript::Entry &)> &announce = {});

#endif
