/// Bytes as one line of printable text.
#ifndef BENCH_STATION_ESCAPE_H
#define BENCH_STATION_ESCAPE_H

#include <QByteArray>

#include <optional>

/// Bytes with what cannot be printed as `\r`, `\n`, `\t`, `\\`, `\"`, `\xHH`.
QByteArray escaped(const QByteArray &bytes);

/// The opposite of escaped(); empty when there is an escape it does not know.
std::optional<QByteArray> unescaped(const QByteArray &text);

#endif
