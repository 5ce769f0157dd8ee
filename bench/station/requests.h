/// Requests as a person writes them: by name or by number.
#ifndef BENCH_STATION_REQUESTS_H
#define BENCH_STATION_REQUESTS_H

#include "bench/station/frame.h"

#include <QString>
#include <QStringList>

#include <optional>

namespace wire
{

/// A request as a person writes it: {"backlight", "100"}, {"leds", "0F"},
/// {"send", "6143", "0064"}. A request takes its text (`relay`, `pattern`,
/// `echo`, `flash`, data of `send`) from all remaining words, joined by one blank.
/// @param error  set to one line saying what is wrong, when nothing is returned
std::optional<Frame> parseRequest(const QStringList &words, QString *error);

/// Whether @p word begins a request that parseRequest() knows.
bool isRequestName(const QString &word);

/// The requests one per line, for `--help`: usage, number, what it does.
QString requestHelp();

} // namespace wire

#endif
