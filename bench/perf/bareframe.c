#include "bench/perf/bareframe.h"

#include <string.h>

enum { smallest = 18, uncounted = 8, data_at = 12, tail = 6 };

static int digit(char c)
{
    if (c >= '0' && c <= '9')
        return c - '0';
    c = (char)(c | 0x20);
    return c >= 'a' && c <= 'f' ? c - 'a' + 10 : -1;
}

static unsigned number(const char *at, size_t digits)
{
    unsigned value = 0;
    for (size_t i = 0; i < digits; ++i) {
        const int d = digit(at[i]);
        if (d < 0)
            return 0;
        value = value * 16 + (unsigned)d;
    }
    return value;
}

static unsigned sum(const char *at, size_t size)
{
    unsigned total = 0;
    for (size_t i = 0; i < size; ++i)
        total += (unsigned char)at[i];
    return total;
}

int bare_check(const char *message, size_t size)
{
    if (size < smallest || message[0] != '7' || (message[1] | 0x20) != 'e' ||
        message[size - 2] != '7' || (message[size - 1] | 0x20) != 'f')
        return -1;
    if (number(message + 2, 4) != size - uncounted)
        return -1;
    if (number(message + size - tail, 4) != (sum(message, size - tail) & 0xFFFF))
        return -1;
    return (int)number(message + 6, 4);
}

static char *put(char *out, unsigned value, int digits, unsigned *lower_sum)
{
    static const char upper[] = "0123456789ABCDEF";
    for (int i = digits - 1; i >= 0; --i) {
        const unsigned d = (value >> (4 * i)) & 15;
        *lower_sum += (unsigned)upper[d] + (d > 9 ? 32 : 0);
        *out++ = upper[d];
    }
    return out;
}

size_t bare_build(char *out, unsigned type, const char *data, size_t size)
{
    unsigned total = '7' + 'E';
    unsigned ignored = 0;
    char *at = out;
    *at++ = '7';
    *at++ = 'E';
    at = put(at, (unsigned)size + 10, 4, &total);
    at = put(at, type, 4, &total);
    at = put(at, total & 0xFF, 2, &total);
    memcpy(at, data, size);
    at = put(at + size, (total + sum(data, size)) & 0xFFFF, 4, &ignored);
    memcpy(at, "7F\r\n", 4);
    return (size_t)(at + 4 - out);
}
