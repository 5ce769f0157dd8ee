/// The program behind a virtual keypad. Its standard input is the socket to the
/// bench; it leaves the PC's namespaces, becomes the keypad's first process and
/// serves until the bench is gone.
///
///     keypad-host                        a keypad
///     keypad-host --guard PROGRAM ...    a program that ends when standard input does

#include "bench/keypad/channel.h"
#include "bench/keypad/guard.h"
#include "bench/keypad/hostprotocol.h"
#include "bench/keypad/hostserver.h"
#include "bench/keypad/keypadline.h"

#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <sched.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace HostProtocol;

namespace
{

void writeText(const char *path, const QByteArray &text)
{
    const int fd = open(path, O_WRONLY | O_CLOEXEC);
    if (fd < 0 || write(fd, text.constData(), size_t(text.size())) < 0)
        qWarning("keypad: cannot write %s: %s", path, strerror(errno));
    close(fd);
}

/// Mount and PID namespaces of its own. Who may not have them gets them in a user
/// namespace of their own, as its root.
bool leaveNamespaces()
{
    const int wanted = CLONE_NEWNS | CLONE_NEWPID;
    if (unshare(wanted) == 0)
        return true;
    const QByteArray user = QByteArray::number(getuid());
    const QByteArray group = QByteArray::number(getgid());
    if (unshare(wanted | CLONE_NEWUSER) != 0)
        return false;
    writeText("/proc/self/setgroups", "deny");
    writeText("/proc/self/uid_map", "0 " + user + " 1");
    writeText("/proc/self/gid_map", "0 " + group + " 1");
    return true;
}

int refuse(const Channel &channel, const QJsonObject &request, const QString &reason)
{
    channel.sendWaiting(QJsonObject{{Key::Id, request.value(Key::Id)}, {Key::Reason, reason}});
    return 1;
}

int serveKeypad(const Channel &channel, const QJsonObject &request, KeypadLine &line)
{
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    HostServer server(channel.fd(), line);
    const QString reason = server.prepare(request);
    if (!reason.isEmpty())
        return refuse(channel, request, reason);
    const QList<int> master = line.toolMaster() < 0 ? QList<int>() : QList<int>{line.toolMaster()};
    channel.sendWaiting(QJsonObject{{Key::Id, request.value(Key::Id)}}, master);
    server.serve();
    return 0;
}

int runHost()
{
    setsid(); // an interrupt at the bench's terminal is for the bench
    const Channel channel(fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 3));
    Packet first;
    if (!channel.waitReadable(-1) || channel.receive(&first) != Channel::Done)
        return 1;
    dup2(open("/dev/null", O_RDWR | O_CLOEXEC), STDIN_FILENO);
    KeypadLine line;
    const QString reason = line.open();
    if (!reason.isEmpty())
        return refuse(channel, first.object, reason);
    if (!leaveNamespaces())
        return refuse(channel, first.object,
                      QStringLiteral("cannot make namespaces: ") +
                          QString::fromLocal8Bit(strerror(errno)));
    const pid_t server = fork();
    if (server == 0)
        _exit(serveKeypad(channel, first.object, line));
    if (server < 0)
        return refuse(channel, first.object,
                      QStringLiteral("cannot fork: ") + QString::fromLocal8Bit(strerror(errno)));
    // The pty's far end must close when the server closes it.
    line.hangUp();
    close(channel.fd());
    int status = 0;
    waitpid(server, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 1;
}

} // namespace

int main(int argc, char **argv)
{
    if (argc > 2 && strcmp(argv[1], "--guard") == 0)
        return runGuarded(argv + 2);
    // Without the clean-up at exit: a sanitizer could not start its helper there, since
    // the PID namespace is gone.
    _exit(runHost());
}
