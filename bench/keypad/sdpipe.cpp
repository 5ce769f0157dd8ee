#include "bench/keypad/sdpipe.h"

#include <QDeadlineTimer>

#include <cerrno>
#include <dirent.h>
#include <fcntl.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <unistd.h>

namespace
{

const int slowestReadMsecs = 1000; ///< of a reader that has opened the pipe
const char pipePath[] = "/tmp/sdstat";

/// Whether a process has the file open. Only a guess: the links of a process that is just
/// ending cannot be read.
bool hasOpen(pid_t process, const QByteArray &file)
{
    const QByteArray folder = "/proc/" + QByteArray::number(process) + "/fd";
    DIR *descriptors = opendir(folder.constData());
    if (descriptors == nullptr)
        return false;
    bool found = false;
    while (const dirent *entry = readdir(descriptors)) {
        char target[4096] = {};
        const QByteArray link = folder + '/' + entry->d_name;
        if (readlink(link.constData(), target, sizeof target - 1) > 0 && file == target)
            found = true;
    }
    closedir(descriptors);
    return found;
}

/// The pipe's writing end, opened as soon as the tool waits for it.
/// @param error  set to an errno value when it does not
int openWhenAwaited(pid_t tool, const QDeadlineTimer &deadline, int *error)
{
    *error = EAGAIN;
    for (;;) {
        if (!hasOpen(tool, pipePath)) {
            const int fd = open(pipePath, O_WRONLY | O_NONBLOCK | O_CLOEXEC);
            if (fd >= 0)
                return fd;
            *error = errno;
        }
        if (deadline.hasExpired())
            return -1;
        usleep(2000);
    }
}

void waitUntilTaken(int watch, const QDeadlineTimer &deadline)
{
    int left = 1;
    while (ioctl(watch, FIONREAD, &left) == 0 && left > 0 && !deadline.hasExpired())
        usleep(500);
}

} // namespace

/// One line per opening: the reader takes the first line and throws away the rest. So
/// wait until it has closed the pipe after the last line and waits in its next open.
/// Write and close at once, or it opens again while this writer is still there and takes
/// that for an event. And do not return before it has taken the line.
int writeSdPipe(pid_t tool, const QByteArray &bytes, int msecs)
{
    // Nothing else should run between opening and closing; not every user may ask for
    // that.
    const sched_param first = {1};
    sched_setscheduler(0, SCHED_FIFO, &first);
    int error = 0;
    const int fd = openWhenAwaited(tool, QDeadlineTimer(msecs), &error);
    if (fd < 0)
        return error;
    const QDeadlineTimer taken(slowestReadMsecs);
    if (bytes.isEmpty()) {
        while (!hasOpen(tool, pipePath) && !taken.hasExpired())
            usleep(500);
        close(fd);
        return 0;
    }
    const int watch = open(pipePath, O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    const ssize_t written = write(fd, bytes.constData(), size_t(bytes.size()));
    close(fd);
    waitUntilTaken(watch, taken);
    close(watch);
    return written == bytes.size() ? 0 : EIO;
}
