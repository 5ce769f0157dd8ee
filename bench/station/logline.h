/// Frames in a line of any log: after a time stamp or a prefix such as "Got_newsocket: ",
/// between quotes, or with a line end written out.
#ifndef BENCH_STATION_LOGLINE_H
#define BENCH_STATION_LOGLINE_H

#include "bench/station/frame.h"

#include <QList>

namespace wire
{

/// The frames in @p line, from left to right. Where there is a right frame, only right
/// ones are returned; otherwise the one piece that looks most like a frame, with what is
/// wrong with it. A frame with blanks between its fields or bytes is found too. Empty
/// when nothing looks like one.
///
/// Whose frame it is follows from its type; a type that nobody sends is taken
/// for the sender whose sums are right, or else for the station's.
QList<Report> framesInLogLine(const QByteArray &line);

/// What a person wants to know about a frame: sender, type, fields, and when it is wrong
/// each check that fails, what the right frame is, and what the keypad makes of it.
/// Several lines, each with a line end.
QString explain(const Report &report);

} // namespace wire

#endif
