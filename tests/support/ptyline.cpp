#include "tests/support/ptyline.h"

#include <QtGlobal>

#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

PtyLine::PtyLine(Kind kind)
{
    termios raw = {};
    cfmakeraw(&raw);
    raw.c_cflag |= CREAD | CLOCAL | CS8;
    raw.c_cc[VMIN] = 1;
    char name[64];
    if (openpty(&m_near, &m_far, name, kind == Raw ? &raw : nullptr, nullptr) != 0)
        qFatal("no pseudo terminal to be had");
    fcntl(m_near, F_SETFL, O_NONBLOCK);
    fcntl(m_near, F_SETFD, FD_CLOEXEC);
    fcntl(m_far, F_SETFD, FD_CLOEXEC);
    m_path = QString::fromLatin1(name);
}

PtyLine::~PtyLine()
{
    hangUp();
}

void PtyLine::send(const QByteArray &bytes)
{
    if (write(m_near, bytes.constData(), static_cast<size_t>(bytes.size())) != bytes.size())
        qFatal("the pseudo terminal took less than it was given");
}

void PtyLine::sendAsOne(const QByteArray &bytes)
{
    send(bytes);
    for (int waiting = 0; waiting < bytes.size();) {
        pollfd line = {m_far, POLLIN, 0};
        poll(&line, 1, 1000);
        ioctl(m_far, FIONREAD, &waiting);
    }
}

QByteArray PtyLine::received()
{
    char chunk[4096];
    for (;;) {
        const ssize_t size = read(m_near, chunk, sizeof(chunk));
        if (size <= 0)
            return m_received;
        m_received.append(chunk, static_cast<int>(size));
    }
}

bool PtyLine::waitForBytes(int msecs)
{
    pollfd near = {m_near, POLLIN, 0};
    return poll(&near, 1, msecs) > 0;
}

void PtyLine::clear()
{
    received();
    m_received.clear();
}

void PtyLine::hangUp()
{
    if (m_near < 0)
        return;
    close(m_far);
    close(m_near);
    m_near = m_far = -1;
}

QByteArray PtyLine::readFrom(int fd, int size)
{
    QByteArray bytes;
    pollfd waiting = {fd, POLLIN, 0};
    while (bytes.size() < size && poll(&waiting, 1, 5000) == 1) {
        char chunk[4096];
        const ssize_t count =
            read(fd, chunk, qMin(sizeof(chunk), static_cast<size_t>(size - bytes.size())));
        if (count <= 0)
            break;
        bytes.append(chunk, static_cast<int>(count));
    }
    return bytes;
}
