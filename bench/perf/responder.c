/* A keypad that does nothing but answer: poll, read, check, log, write. Run in
 * the tool's place on a virtual keypad it is the floor of a request's round trip. */
#include <fcntl.h>
#include <poll.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include "bench/perf/bareframe.h"

enum { echo_request = 0x6002, exit_request = 0x6001, echo_reply = 0x6003, ready = 0x9999 };
enum { not_applicable = 0x0003, ack = 0x0004, nak = 0x0005 };

static int send_frame(int line, unsigned type, const char *data, size_t size)
{
    char frame[1100];
    const size_t length = bare_build(frame, type, data, size);
    return write(line, frame, length) == (ssize_t)length ? 0 : -1;
}

/* Returns whether to go on. */
static int answer(int line, const char *message, size_t size)
{
    switch (bare_check(message, size)) {
    case -1:
        return send_frame(line, nak, "", 0) == 0;
    case echo_request:
        return send_frame(line, echo_reply, message + 12, size - 18) == 0;
    case exit_request:
        send_frame(line, ack, "", 0);
        return 0;
    default:
        return send_frame(line, not_applicable, "", 0) == 0;
    }
}

int main(void)
{
    const int line = open("/dev/ttySP0", O_RDWR | O_NOCTTY);
    if (line < 0 || send_frame(line, ready, "", 0) != 0)
        return 1;
    for (;;) {
        struct pollfd wanted = {line, POLLIN, 0};
        char chunk[1025];
        if (poll(&wanted, 1, -1) < 0)
            return 1;
        ssize_t size = read(line, chunk, sizeof(chunk) - 1);
        while (size > 0 && strchr(" \t\r\n", chunk[size - 1]))
            --size;
        if (size <= 0)
            return 1;
        chunk[size] = '\0';
        fprintf(stderr, "Got_newsocket: %s\n", chunk);
        if (!answer(line, chunk, (size_t)size))
            return 0;
    }
}
