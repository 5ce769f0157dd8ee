/// The named pipe through which the board's hot-plug script reports SD cards to the tool.
#ifndef BENCH_KEYPAD_SDPIPE_H
#define BENCH_KEYPAD_SDPIPE_H

#include <QByteArray>

#include <sys/types.h>

/// Writes @p bytes in one opening, when @p tool waits for it, and waits until they are
/// taken. Without bytes the pipe is opened and closed again.
/// @param msecs  how long to wait for the tool
/// @return an errno value; 0 when it was done
int writeSdPipe(pid_t tool, const QByteArray &bytes, int msecs);

#endif
