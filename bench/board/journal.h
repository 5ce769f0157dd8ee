/// Reads what `journalctl --output=json` prints of the tool's service.
#ifndef BENCH_BOARD_JOURNAL_H
#define BENCH_BOARD_JOURNAL_H

#include <QByteArray>
#include <QString>

namespace Journal
{

/// What an entry tells of the service, beside its text.
enum Event {
    Nothing,
    Started, ///< its process runs
    Ended    ///< its process has ended: Entry::status or Entry::signal
};

struct Entry {
    QString time;     ///< the board's clock, "hh:mm:ss.zzz"
    QString severity; ///< "debug", "info", "notice", "warning", "err", ...
    QString text;
    Event event = Nothing;
    int status = -1;
    int signal = 0;
};

/// @return false when it is not an entry
bool read(const QByteArray &line, Entry *entry);

} // namespace Journal

#endif
