#include "bench/keypad/keypadline.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <termios.h>
#include <unistd.h>

namespace
{

const int chunk = 4096;

QByteArray readSome(int fd)
{
    QByteArray bytes(chunk, Qt::Uninitialized);
    const ssize_t count = read(fd, bytes.data(), size_t(bytes.size()));
    bytes.truncate(count > 0 ? int(count) : 0);
    return bytes;
}

} // namespace

QString KeypadLine::Pty::open()
{
    master = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
    char name[64] = {};
    if (master < 0 || grantpt(master) != 0 || unlockpt(master) != 0 ||
        ptsname_r(master, name, sizeof name) != 0)
        return QStringLiteral("cannot make a pty: ") + QString::fromLocal8Bit(strerror(errno));
    slave = ::open(name, O_RDWR | O_NOCTTY | O_CLOEXEC);
    termios settings = {};
    // A fresh pty echoes and rewrites line ends.
    if (slave < 0 || tcgetattr(slave, &settings) != 0)
        return QStringLiteral("cannot open a pty: ") + QString::fromLocal8Bit(strerror(errno));
    cfmakeraw(&settings);
    tcsetattr(slave, TCSANOW, &settings);
    path = QString::fromLocal8Bit(name);
    return QString();
}

void KeypadLine::Pty::close()
{
    if (slave >= 0)
        ::close(slave);
    if (master >= 0)
        ::close(master);
    master = -1;
    slave = -1;
    path.clear();
}

/// A serial line cannot stop a sender: what does not fit into the pty, because nobody has
/// read for a while, is lost.
void KeypadLine::Pty::push(const QByteArray &bytes)
{
    if (master >= 0 && write(master, bytes.constData(), size_t(bytes.size())) < 0)
        return;
}

KeypadLine::~KeypadLine()
{
    hangUp();
}

QString KeypadLine::open()
{
    for (Pty *pty : {&m_tool, &m_station}) {
        const QString reason = pty->open();
        if (!reason.isEmpty())
            return reason;
    }
    return QString();
}

void KeypadLine::hangUp()
{
    m_tool.close();
    m_station.close();
}

void KeypadLine::flushInput()
{
    if (m_tool.slave >= 0)
        tcflush(m_tool.slave, TCIFLUSH);
}

void KeypadLine::bridge()
{
    for (const int master : {m_tool.master, m_station.master})
        fcntl(master, F_SETFL, O_NONBLOCK);
}

void KeypadLine::fromTool()
{
    m_station.push(readSome(m_tool.master));
}

void KeypadLine::fromStation()
{
    m_tool.push(readSome(m_station.master));
}
