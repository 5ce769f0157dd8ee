#include "bench/station/replay.h"

#include "bench/station/escape.h"
#include "bench/station/station.h"

#include <QElapsedTimer>

#include <algorithm>

namespace
{

using Entry = Transcript::Entry;
using Entries = std::deque<Entry>;
using Place = Entries::const_iterator;

QString shown(const Entry &entry)
{
    const QString bytes = QString::fromLatin1(escaped(entry.bytes));
    return entry.text.isEmpty() ? bytes : QStringLiteral("%1 (%2)").arg(entry.text, bytes);
}

QString shown(const Station::Received &received)
{
    return QStringLiteral("%1 (%2)").arg(received.describe(),
                                         QString::fromLatin1(escaped(received.raw)));
}

bool isSent(const Entry &entry)
{
    return entry.kind == Transcript::Sent;
}

/// Asks how far the flash is.
bool isPoll(const Entry &entry)
{
    const wire::Report report = wire::checkLine(wire::Sender::Station, entry.bytes);
    return isSent(entry) && report.frame.type == wire::FlashQueryRequest;
}

bool isProgress(const QByteArray &line)
{
    const wire::Report report = wire::checkLine(wire::Sender::Keypad, line);
    return report.ok() && report.frame.type == wire::FlashStatus;
}

/// How far a flash is when it is asked is never the same twice.
bool isSame(const Entry &recorded, const Station::Received &came)
{
    return came.raw == recorded.bytes || (isProgress(came.raw) && isProgress(recorded.bytes));
}

/// From one entry to a later one, rounded up; never negative, even if the clock was set
/// back.
qint64 msecsBetween(const Entry &from, const Entry &to)
{
    return std::max<qint64>(0, (to.time - from.time + 999) / 1000);
}

/// Plays the entries one after the other.
class Player
{
public:
    Player(Station *station, const Entries &entries, int marginMs)
        : m_station(station), m_end(entries.end()), m_marginMs(marginMs),
          m_at(std::find_if(entries.begin(), entries.end(), isSent))
    {
    }

    Replay play(ReplayPace pace, const std::function<void(const Entry &)> &announce);

private:
    void send();
    void compare();
    void keepPace();
    bool takeSurplus();
    Place comesLater(Place from, const Station::Received &came) const;
    void jumpBehind(Place early);
    void differs(const QString &how);
    bool hasFailed() const { return !m_station->isOpen() || m_station->isHungUp(); }

    Station *m_station;
    const Place m_end;
    const int m_marginMs;
    Place m_at;                ///< what is to be played next
    Place m_request = m_at;    ///< what was sent last
    Place m_paceFrom = m_at;   ///< the request from which the pace is counted
    Place m_last = m_at;       ///< the request, or what has come last
    QElapsedTimer m_sincePace; ///< since m_paceFrom
    QElapsedTimer m_sinceLast; ///< since m_last
    Replay m_result;
};

Replay Player::play(ReplayPace pace, const std::function<void(const Entry &)> &announce)
{
    bool isFirst = true;
    while (m_at != m_end && !hasFailed()) {
        if (m_at->kind == Transcript::Received) {
            compare();
            continue;
        }
        if (m_at->kind == Transcript::Note) {
            ++m_at;
            continue;
        }
        if (!isFirst && pace == ReplayPace::Recorded)
            keepPace();
        if (!isFirst && takeSurplus())
            continue;
        isFirst = false;
        if (announce)
            announce(*m_at);
        send();
    }
    if (!isFirst)
        takeSurplus();
    m_result.lineFailed = hasFailed();
    return m_result;
}

void Player::send()
{
    if (m_station->sendRaw(m_at->bytes))
        ++m_result.sent;
    m_sincePace.start();
    m_sinceLast.start();
    m_request = m_at;
    m_paceFrom = m_at;
    m_last = m_at;
    ++m_at;
}

void Player::compare()
{
    const Place recorded = m_at++;
    ++m_result.compared;
    const auto came =
        m_station->receive(static_cast<int>(msecsBetween(*m_last, *recorded)) + m_marginMs);
    if (!came) {
        differs(QStringLiteral("missing %1: %2").arg(shown(*recorded), m_station->errorString()));
        m_at = std::find_if(m_at, m_end, isSent);
        return;
    }
    m_sinceLast.start();
    m_last = recorded;
    if (isSame(*recorded, *came))
        return;
    const Place early = isPoll(*m_request) ? comesLater(m_at, *came) : m_end;
    if (early == m_end) {
        differs(QStringLiteral("%1 instead of %2").arg(shown(*came), shown(*recorded)));
        return;
    }
    // The flash was over before this poll, so it is refused.
    const auto refusal = m_station->receive(m_marginMs);
    if (!refusal || !refusal->isFrame() || refusal->frame.type != wire::NotApplicable)
        differs(QStringLiteral("%1 came, and NA did not").arg(shown(*came)));
    jumpBehind(early);
}

void Player::keepPace()
{
    const qint64 afterRequest = msecsBetween(*m_paceFrom, *m_at) - m_sincePace.elapsed();
    const qint64 afterLast = msecsBetween(*m_last, *m_at) - m_sinceLast.elapsed();
    m_station->idle(static_cast<int>(std::max<qint64>({0, afterRequest, afterLast})));
}

/// Takes what nobody waited for. True when that moved the place in the recording.
bool Player::takeSurplus()
{
    while (const auto surplus = m_station->receive(0)) {
        const Place early = m_at != m_end && isPoll(*m_at) ? comesLater(m_at, *surplus) : m_end;
        if (early != m_end) {
            jumpBehind(early);
            return true;
        }
        differs(QStringLiteral("surplus %1").arg(shown(*surplus)));
    }
    return false;
}

/// Where @p came was recorded, if nothing but polls lies before it: a flash that is quicker
/// than it was then says so before the last of them.
Place Player::comesLater(Place from, const Station::Received &came) const
{
    for (Place entry = from; entry != m_end; ++entry) {
        if (isSent(*entry) && !isPoll(*entry))
            return m_end;
        if (entry->kind == Transcript::Received && entry->bytes == came.raw &&
            !isProgress(came.raw))
            return entry;
    }
    return m_end;
}

void Player::jumpBehind(Place early)
{
    ++m_result.compared;
    m_paceFrom = early;
    m_last = early;
    m_sincePace.start();
    m_sinceLast.start();
    m_at = early + 1;
}

void Player::differs(const QString &how)
{
    m_result.differences.append(QStringLiteral("after %1: %2").arg(shown(*m_request), how));
}

} // namespace

Replay replay(Station *station, const Transcript &recorded, int marginMs, ReplayPace pace,
              const std::function<void(const Transcript::Entry &)> &announce)
{
    // A copy: the station may write to the transcript that is played.
    const Entries entries = recorded.entries();
    station->clear();
    return Player(station, entries, marginMs).play(pace, announce);
}
