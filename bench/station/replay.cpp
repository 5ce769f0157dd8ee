#include "bench/station/replay.h"

#include "bench/station/escape.h"
#include "bench/station/station.h"

#include <algorithm>

namespace
{

using Entries = std::deque<Transcript::Entry>;

QString shown(const Transcript::Entry &entry)
{
    const QString bytes = QString::fromLatin1(escaped(entry.bytes));
    return entry.text.isEmpty() ? bytes : QStringLiteral("%1 (%2)").arg(entry.text, bytes);
}

QString shown(const Station::Received &received)
{
    return QStringLiteral("%1 (%2)").arg(received.describe(),
                                         QString::fromLatin1(escaped(received.raw)));
}

/// Compares what comes with the replies recorded from @p first to @p last.
void compare(Station *station, const Transcript::Entry &sent, Entries::const_iterator first,
             Entries::const_iterator last, int marginMs, Replay *result)
{
    qint64 before = sent.time;
    for (auto entry = first; entry != last; ++entry) {
        if (entry->kind != Transcript::Received)
            continue;
        ++result->compared;
        const qint64 gapMs = std::max<qint64>(0, (entry->time - before) / 1000);
        before = entry->time;
        const auto came = station->receive(static_cast<int>(gapMs) + marginMs);
        if (!came) {
            result->differences.append(
                QStringLiteral("after %1: missing %2: %3")
                    .arg(shown(sent), shown(*entry), station->errorString()));
            return;
        }
        if (came->raw != entry->bytes)
            result->differences.append(QStringLiteral("after %1: %2 instead of %3")
                                           .arg(shown(sent), shown(*came), shown(*entry)));
    }
    while (const auto surplus = station->receive(0))
        result->differences.append(
            QStringLiteral("after %1: surplus %2").arg(shown(sent), shown(*surplus)));
}

} // namespace

Replay replay(Station *station, const Transcript &recorded, int marginMs,
              const std::function<void(const Transcript::Entry &)> &announce)
{
    const auto isSent = [](const Transcript::Entry &entry) {
        return entry.kind == Transcript::Sent;
    };
    // The station may write to the transcript that is played.
    const Entries entries = recorded.entries();
    Replay result;
    station->clear();
    auto sent = std::find_if(entries.begin(), entries.end(), isSent);
    while (sent != entries.end() && !result.lineFailed) {
        const auto next = std::find_if(sent + 1, entries.end(), isSent);
        if (announce)
            announce(*sent);
        if (station->sendRaw(sent->bytes)) {
            ++result.sent;
            compare(station, *sent, sent + 1, next, marginMs, &result);
        }
        result.lineFailed = !station->isOpen() || station->isHungUp();
        sent = next;
    }
    return result;
}
