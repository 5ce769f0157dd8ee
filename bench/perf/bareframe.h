/* The least that a keypad could do with a frame, in C: the floor that the tool's
 * own functions are measured beside. */
#ifndef BENCH_PERF_BAREFRAME_H
#define BENCH_PERF_BAREFRAME_H

#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Checks the size characters of a message, line end removed.
 * Returns the message type, -1 for anything that is no right frame. */
int bare_check(const char *message, size_t size);

/* Puts a frame with its line end at out, which has room for size + 20 characters.
 * Returns its length. */
size_t bare_build(char *out, unsigned type, const char *data, size_t size);

#ifdef __cplusplus
}
#endif

#endif
