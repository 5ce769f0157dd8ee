#include "protocol/quietline.h"

#include <algorithm>
#include <cerrno>
#include <ctime>

// The kernel's own record of a terminal's settings: <termios.h> has the speed only as a
// code, and cannot be included as well.
#include <asm/termbits.h>
#include <linux/serial.h>
#include <sys/ioctl.h>

namespace
{

/// Start bit, eight data bits, stop bit.
const unsigned long long characterBits = 10;

/// The driver is told when half a FIFO of 64 bytes is full, or after four characters'
/// time of silence.
const unsigned quietCharacters = 36;

/// At high speeds the driver's own work takes longer than the characters do.
const unsigned shortestQuiet = 3000; // microseconds

/// The most that one read takes. A line that never falls silent must be read, too.
const unsigned longestCharacters = 1024;

/// What a driver falls back to when the speed it is given is 0.
const unsigned defaultSpeed = 9600;

unsigned timeOf(unsigned characters, unsigned speed)
{
    return static_cast<unsigned>(characters * characterBits * 1000000 / speed);
}

class TerminalLine : public ReceivingLine
{
public:
    explicit TerminalLine(int fd) : m_fd(fd) {}

    unsigned speed() const override
    {
        struct termios2 settings;
        return ioctl(m_fd, TCGETS2, &settings) == 0 ? settings.c_ospeed : 0;
    }

    int waiting() const override
    {
        int count = 0;
        return ioctl(m_fd, FIONREAD, &count) == 0 ? count : 0;
    }

    void pause(unsigned microseconds) override
    {
        timespec left = {static_cast<time_t>(microseconds / 1000000),
                         static_cast<long>(microseconds % 1000000 * 1000)};
        while (nanosleep(&left, &left) != 0 && errno == EINTR)
            continue;
    }

private:
    const int m_fd;
};

} // namespace

ReceivingLine::~ReceivingLine() {}

void waitUntilQuiet(ReceivingLine &line)
{
    const unsigned speed = line.speed() > 0 ? line.speed() : defaultSpeed;
    const unsigned longest = timeOf(longestCharacters, speed);
    const unsigned quiet = std::max(timeOf(quietCharacters, speed), shortestQuiet);

    int before = line.waiting();
    // Pauses are counted, not the clock: on a busy board they take longer, and so
    // does the driver.
    for (unsigned waited = 0; waited < longest; waited += quiet) {
        line.pause(std::min(quiet, longest - waited));
        const int now = line.waiting();
        if (now == before)
            return;
        before = now;
    }
}

bool isUart(int fd)
{
    serial_struct port = serial_struct();
    return ioctl(fd, TIOCGSERIAL, &port) == 0 && port.type != PORT_UNKNOWN;
}

void waitUntilQuiet(int fd)
{
    TerminalLine line(fd);
    waitUntilQuiet(line);
}
