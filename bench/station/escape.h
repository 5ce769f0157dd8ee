/// Bytes as one line of printable text.
#ifndef BENCH_STATION_ESCAPE_H
#define BENCH_STATION_ESCAPE_H

#include <QByteArray>

#include <optional>

/// Bytes with what cannot be printed as `\r`, `\n`, `\t`, `\\`, `\"`, `\xHH`.
QByteArray escaped(const QByteArray &bytes);

/// The opposite of escaped(); empty when it does not know an escape in @p text.
std::optional<QByteArray> unescaped(const QByteArray &text);

#endif
