#include "bench/keypad/xvfb.h"

#include "bench/keypad/spawn.h"

#include <QStandardPaths>

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

namespace
{

const int startMsecs = 20000;

} // namespace

Xvfb::~Xvfb()
{
    if (m_guard < 0)
        return;
    close(m_leash);
    waitpid(m_guard, nullptr, 0);
}

Xvfb &Xvfb::shared()
{
    static Xvfb server;
    return server;
}

bool Xvfb::start()
{
    if (!m_display.isEmpty())
        return true;
    const QString program = QStandardPaths::findExecutable(QStringLiteral("Xvfb"));
    if (program.isEmpty()) {
        m_error = QStringLiteral("Xvfb is not installed");
        return false;
    }
    int leash[2];
    int output[2];
    if (pipe2(leash, O_CLOEXEC) != 0 || pipe2(output, O_CLOEXEC) != 0) {
        m_error = QString::fromLocal8Bit(strerror(errno));
        return false;
    }
    const QStringList arguments = {QStringLiteral("--guard"),    program,
                                   QStringLiteral("-displayfd"), QStringLiteral("1"),
                                   QStringLiteral("-screen"),    QStringLiteral("0"),
                                   QStringLiteral("800x480x24"), QStringLiteral("-nolisten"),
                                   QStringLiteral("tcp"),        QStringLiteral("-noreset")};
    m_guard =
        spawnProgram(benchProgram(QStringLiteral("keypad-host")), arguments, leash[0], output[1]);
    m_leash = leash[1];
    close(leash[0]);
    close(output[1]);
    const bool ok = m_guard > 0 && readDisplay(output[0]);
    close(output[0]);
    if (!ok)
        m_error = QStringLiteral("Xvfb does not start");
    return ok;
}

bool Xvfb::readDisplay(int fd)
{
    QByteArray number;
    while (!number.endsWith('\n')) {
        pollfd ready = {fd, POLLIN, 0};
        char byte;
        if (poll(&ready, 1, startMsecs) <= 0 || read(fd, &byte, 1) != 1)
            return false;
        number.append(byte);
    }
    m_display = QLatin1Char(':') + QString::fromLatin1(number.trimmed());
    return true;
}
