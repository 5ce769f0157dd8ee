#include "bench/line/lineinput.h"

#include <cerrno>

#include <poll.h>
#include <termios.h>
#include <unistd.h>

void LineInput::forgetTypedAhead()
{
    if (isatty(m_descriptor) == 0)
        return;
    tcflush(m_descriptor, TCIFLUSH);
    m_pending.clear();
}

bool LineInput::read(int limitMs)
{
    pollfd input = {m_descriptor, POLLIN, 0};
    if (poll(&input, 1, limitMs) <= 0)
        return true;
    char bytes[256];
    const ssize_t count = ::read(m_descriptor, bytes, sizeof bytes);
    if (count > 0)
        m_pending.append(bytes, static_cast<int>(count));
    return count > 0 || (count < 0 && (errno == EINTR || errno == EAGAIN));
}

bool LineInput::takeLine(QByteArray *line)
{
    const auto end = m_pending.indexOf('\n');
    if (end < 0)
        return false;
    *line = m_pending.left(end);
    m_pending.remove(0, end + 1);
    return true;
}
