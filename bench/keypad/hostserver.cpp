#include "bench/keypad/hostserver.h"

#include "bench/keypad/boardroot.h"

#include <QJsonArray>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <filesystem>
#include <ftw.h>
#include <mntent.h>
#include <poll.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/signalfd.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>
#include <vector>

namespace
{

const int outputChunk = 16 * 1024;      // fits a packet even when every byte is escaped
const qint64 slowestReadUsec = 1000000; // of a reader that has opened the pipe
const char pcPath[] = "PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin";

qint64 monotonicUsec()
{
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return qint64(now.tv_sec) * 1000000 + now.tv_nsec / 1000;
}

QJsonObject errorReply(int error)
{
    return QJsonObject{{QStringLiteral("errno"), error}};
}

QString text(const QJsonObject &request, const char *key)
{
    return request.value(QLatin1String(key)).toString();
}

QByteArray path(const QJsonObject &request)
{
    return text(request, "path").toUtf8();
}

/// Strings as execve(2) takes them; valid while this lives.
class Strings
{
public:
    explicit Strings(const QJsonArray &array)
    {
        for (const QJsonValue &value : array)
            m_bytes.append(value.toString().toUtf8());
        for (QByteArray &bytes : m_bytes)
            m_pointers.push_back(bytes.data());
        m_pointers.push_back(nullptr);
    }
    char **data() { return m_pointers.data(); }

private:
    QList<QByteArray> m_bytes;
    std::vector<char *> m_pointers;
};

/// To be called in a child before it becomes another program.
void becomeOrdinary()
{
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
    signal(SIGPIPE, SIG_DFL);
}

/// Whether a process has the file open. Only a look: links of a process that is
/// just ending cannot be read.
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

/// One line per opening: the reader takes the first line and throws away the
/// rest. So wait until it has closed the pipe after the one before and waits in
/// its next open; write and close at once, or it opens again while this writer
/// is still there and takes that for an event; and do not return before it has
/// taken the line.
QJsonObject writeSdPipe(pid_t tool, const QByteArray &bytes, int msecs)
{
    const char pipe[] = "/tmp/sdstat";
    const qint64 end = monotonicUsec() + qint64(msecs) * 1000;
    // Nothing else may run between opening and closing; not everybody may ask for that.
    const sched_param first = {1};
    sched_setscheduler(0, SCHED_FIFO, &first);
    int fd = -1;
    int error = EAGAIN;
    while (fd < 0) {
        if (!hasOpen(tool, pipe)) {
            fd = open(pipe, O_WRONLY | O_NONBLOCK | O_CLOEXEC);
            error = errno;
        }
        if (fd < 0 && monotonicUsec() > end)
            return errorReply(error);
        if (fd < 0)
            usleep(2000);
    }
    const qint64 takenEnd = monotonicUsec() + slowestReadUsec;
    if (bytes.isEmpty()) {
        while (!hasOpen(tool, pipe) && monotonicUsec() < takenEnd)
            usleep(500);
        close(fd);
        return errorReply(0);
    }
    const int watch = open(pipe, O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    const ssize_t written = write(fd, bytes.constData(), size_t(bytes.size()));
    close(fd);
    int left = 1;
    while (ioctl(watch, FIONREAD, &left) == 0 && left > 0 && monotonicUsec() < takenEnd)
        usleep(500);
    close(watch);
    return errorReply(written == bytes.size() ? 0 : EIO);
}

QJsonObject listFolder(const QByteArray &folder)
{
    DIR *entries = opendir(folder.constData());
    if (entries == nullptr)
        return errorReply(errno);
    QJsonArray names;
    while (const dirent *entry = readdir(entries)) {
        const QByteArray name = entry->d_name;
        if (name != "." && name != "..")
            names.append(QString::fromUtf8(name));
    }
    closedir(entries);
    return QJsonObject{{QStringLiteral("names"), names}};
}

int removeOne(const char *name, const struct stat *, int, FTW *)
{
    return ::remove(name) == 0 ? 0 : errno;
}

/// Something may be mounted at the place or below it; then it cannot be removed.
void unmountAt(const QByteArray &name)
{
    FILE *mounts = setmntent("/proc/self/mounts", "re");
    if (mounts == nullptr)
        return;
    QList<QByteArray> places;
    while (const mntent *entry = getmntent(mounts)) {
        const QByteArray place = entry->mnt_dir;
        if (place == name || place.startsWith(name + '/'))
            places.prepend(place);
    }
    endmntent(mounts);
    for (const QByteArray &place : qAsConst(places))
        umount2(place.constData(), MNT_DETACH | UMOUNT_NOFOLLOW);
}

/// Only what belongs to the keypad: everything else in there is the PC's own,
/// and the bench may be root.
QJsonObject removeAll(const QByteArray &name, const QList<QByteArray> &ownRoots)
{
    unmountAt(name);
    struct stat status;
    if (lstat(name.constData(), &status) != 0)
        return errorReply(errno == ENOENT ? 0 : errno);
    bool own = false;
    for (const QByteArray &root : ownRoots) {
        struct stat rootStatus;
        own =
            own || (stat(root.constData(), &rootStatus) == 0 && rootStatus.st_dev == status.st_dev);
    }
    if (!own)
        return errorReply(EPERM);
    const int result = nftw(name.constData(), removeOne, 16, FTW_DEPTH | FTW_MOUNT | FTW_PHYS);
    return errorReply(result < 0 ? errno : result);
}

QJsonObject makeFolders(const QByteArray &name)
{
    std::error_code error;
    std::filesystem::create_directories(name.constData(), error);
    return errorReply(error.value());
}

} // namespace

HostServer::HostServer(int channel, KeypadLine &line)
    : m_channel(channel), m_line(line), m_start(monotonicUsec()),
      m_sysfs(m_model, [this](const SysfsModel::Store &store) {
          post(QJsonObject{{QStringLiteral("event"), QStringLiteral("store")},
                           {QStringLiteral("usec"), usec()},
                           {QStringLiteral("path"), store.path},
                           {QStringLiteral("text"), Channel::toText(store.text)},
                           {QStringLiteral("errno"), store.error}});
      })
{
}

qint64 HostServer::usec() const
{
    return monotonicUsec() - m_start;
}

QString HostServer::prepare(const QJsonObject &request)
{
    const int device = open("/dev/fuse", O_RDWR | O_CLOEXEC);
    if (device < 0)
        return QStringLiteral("cannot open /dev/fuse: ") + QString::fromLocal8Bit(strerror(errno));
    BoardRoot root;
    root.linePath = m_line.toolPath();
    root.programsDir = text(request, "programs");
    for (const QJsonValue &value : request.value(QLatin1String("visible")).toArray())
        root.visible.append(value.toString());
    const QString reason = root.build();
    if (!reason.isEmpty())
        return reason;
    return m_sysfs.mount(device, "/sys");
}

void HostServer::post(const QJsonObject &object, const QList<int> &descriptors)
{
    // A bench that does not look for a while must not stop the tool.
    QList<int> own;
    for (const int fd : descriptors)
        own.append(fcntl(fd, F_DUPFD_CLOEXEC, 0));
    m_queue.append(qMakePair(object, own));
    flushQueue();
}

void HostServer::flushQueue()
{
    while (!m_queue.isEmpty()) {
        const Channel::Result result =
            m_channel.send(m_queue.first().first, m_queue.first().second);
        if (result == Channel::WouldBlock)
            return;
        m_over = m_over || result == Channel::Closed;
        for (const int fd : m_queue.first().second)
            close(fd);
        m_queue.removeFirst();
    }
}

void HostServer::answer(const QJsonObject &request, QJsonObject reply,
                        const QList<int> &descriptors)
{
    reply.insert(QStringLiteral("id"), request.value(QLatin1String("id")));
    post(reply, descriptors);
}

void HostServer::serve()
{
    sigset_t childSignal;
    sigemptyset(&childSignal);
    sigaddset(&childSignal, SIGCHLD);
    sigprocmask(SIG_BLOCK, &childSignal, nullptr);
    m_childEnded = signalfd(-1, &childSignal, SFD_CLOEXEC | SFD_NONBLOCK);
    signal(SIGPIPE, SIG_IGN);

    while (!m_over) {
        struct Source {
            int fd;
            std::function<void()> ready;
        };
        std::vector<Source> sources = {
            {m_channel.fd(),
             [this] {
                 Packet packet;
                 const Channel::Result result = m_channel.receive(&packet);
                 m_over = result == Channel::Closed;
                 if (result == Channel::Done)
                     handle(packet.object);
             }},
            {m_childEnded, [this] { reap(); }},
            {m_output, [this] { readOutput(); }},
            {m_sysfs.fd(), [this] { m_over = m_over || !m_sysfs.serve(); }},
        };
        if (m_bridging) {
            sources.push_back({m_line.toolMaster(), [this] { m_line.fromTool(); }});
            sources.push_back({m_line.stationMaster(), [this] { m_line.fromStation(); }});
        }
        for (const QSharedPointer<FlawedCard> &card : qAsConst(m_flawedCards))
            sources.push_back({card->fd(), [card] { card->serve(); }});

        std::vector<pollfd> watched;
        for (const Source &source : sources)
            watched.push_back({source.fd, POLLIN, 0});
        if (!m_queue.isEmpty())
            watched[0].events |= POLLOUT;
        if (poll(watched.data(), nfds_t(watched.size()), -1) < 0)
            continue;
        for (size_t i = 0; i < sources.size(); ++i) {
            if ((watched[i].revents & (POLLIN | POLLHUP | POLLERR)) != 0)
                sources[i].ready();
        }
        flushQueue();
    }
}

void HostServer::handle(const QJsonObject &request)
{
    const QString operation = text(request, "op");
    if (operation == QLatin1String("sysfs"))
        handleSysfs(request);
    else if (operation == QLatin1String("start"))
        startTool(request);
    else if (operation == QLatin1String("run"))
        runErrand(request);
    else if (!handleBoard(operation, request) && !handleFiles(operation, request))
        answer(request, errorReply(ENOSYS));
}

bool HostServer::handleBoard(const QString &operation, const QJsonObject &request)
{
    if (operation == QLatin1String("ping")) {
        answer(request);
        return true;
    }
    if (operation == QLatin1String("bridge")) {
        m_line.bridge();
        m_bridging = true;
        answer(request, QJsonObject{{QStringLiteral("path"), m_line.stationPath()}});
        return true;
    }
    if (operation == QLatin1String("hangup")) {
        m_bridging = false;
        m_line.hangUp();
        answer(request);
        return true;
    }
    if (operation == QLatin1String("card")) {
        const QString reason = setCard(text(request, "path"), text(request, "kind"));
        answer(request, QJsonObject{{QStringLiteral("error"), reason}});
        return true;
    }
    return false;
}

bool HostServer::handleFiles(const QString &operation, const QJsonObject &request)
{
    const QByteArray name = path(request);
    if (operation == QLatin1String("open")) {
        const int flags = request.value(QLatin1String("flags")).toInt();
        const mode_t mode = mode_t(request.value(QLatin1String("mode")).toInt());
        inWorker(request, [=](QList<int> *descriptors) {
            umask(0);
            const int fd = open(name.constData(), flags | O_NOCTTY | O_CLOEXEC, mode);
            const int error = fd < 0 ? errno : 0;
            if (fd >= 0)
                descriptors->append(fd);
            return errorReply(error);
        });
        return true;
    }
    if (operation == QLatin1String("list")) {
        inWorker(request, [=](QList<int> *) { return listFolder(name); });
        return true;
    }
    if (operation == QLatin1String("remove")) {
        QList<QByteArray> roots = {"/", "/etc", "/sys"};
        for (const QString &card : m_cards.keys() + m_flawedCards.keys())
            roots.append(card.toUtf8());
        inWorker(request, [=](QList<int> *) { return removeAll(name, roots); });
        return true;
    }
    if (operation == QLatin1String("mkdir")) {
        inWorker(request, [=](QList<int> *) { return makeFolders(name); });
        return true;
    }
    if (operation == QLatin1String("rename") || operation == QLatin1String("symlink")) {
        const QByteArray to = text(request, "to").toUtf8();
        const auto call = operation == QLatin1String("rename") ? ::rename : ::symlink;
        inWorker(request, [=](QList<int> *) {
            return errorReply(call(name.constData(), to.constData()) == 0 ? 0 : errno);
        });
        return true;
    }
    if (operation == QLatin1String("exists")) {
        inWorker(request, [=](QList<int> *) {
            struct stat status;
            return errorReply(lstat(name.constData(), &status) == 0 ? 0 : errno);
        });
        return true;
    }
    if (operation == QLatin1String("sdpipe")) {
        const QByteArray bytes = Channel::toBytes(request.value(QLatin1String("bytes")));
        const int msecs = request.value(QLatin1String("msecs")).toInt();
        const pid_t tool = m_tool;
        inWorker(request, [=](QList<int> *) { return writeSdPipe(tool, bytes, msecs); });
        return true;
    }
    return false;
}

void HostServer::handleSysfs(const QJsonObject &request)
{
    const QString call = text(request, "call");
    const QString node = text(request, "path");
    const QByteArray bytes = Channel::toBytes(request.value(QLatin1String("text")));
    const int number = request.value(QLatin1String("number")).toInt();
    bool ok = true;
    QJsonObject reply;
    if (call == QLatin1String("show"))
        reply.insert(QStringLiteral("text"), Channel::toText(m_model.show(node)));
    else if (call == QLatin1String("set"))
        ok = m_model.set(node, bytes);
    else if (call == QLatin1String("fail"))
        m_model.fail(node, SysfsModel::Operation(number),
                     request.value(QLatin1String("errno")).toInt());
    else if (call == QLatin1String("clear"))
        m_model.clearFault(node);
    else if (call == QLatin1String("addLed"))
        ok = m_model.addLed(node, number);
    else if (call == QLatin1String("add"))
        ok = m_model.addAttribute(node, bytes);
    else if (call == QLatin1String("remove"))
        ok = m_model.remove(node);
    else if (call == QLatin1String("has"))
        ok = m_model.node(node).type != SysfsModel::None;
    reply.insert(QStringLiteral("ok"), ok);
    answer(request, reply);
}

/// File operations may end at this very process's /sys, or wait: a child does
/// them and answers by itself.
void HostServer::inWorker(const QJsonObject &request, const Work &work)
{
    const pid_t worker = fork();
    if (worker < 0) {
        answer(request, errorReply(errno));
        return;
    }
    if (worker > 0)
        return;
    const QJsonValue id = request.value(QLatin1String("id"));
    QList<int> descriptors;
    QJsonObject reply = work(&descriptors);
    // Handed over and closed here ahead of the reply: a program that somebody still has
    // open for writing cannot be run.
    if (!descriptors.isEmpty()) {
        m_channel.sendWaiting(QJsonObject{{QStringLiteral("event"), QStringLiteral("descriptors")},
                                          {QStringLiteral("id"), id}},
                              descriptors);
        for (const int fd : qAsConst(descriptors))
            close(fd);
    }
    reply.insert(QStringLiteral("id"), id);
    m_channel.sendWaiting(reply);
    _exit(0);
}

void HostServer::startTool(const QJsonObject &request)
{
    if (m_tool != 0) {
        answer(request, errorReply(EBUSY));
        return;
    }
    m_line.flushInput();
    Strings arguments(request.value(QLatin1String("arguments")).toArray());
    Strings environment(request.value(QLatin1String("environment")).toArray());
    const QByteArray directory = text(request, "directory").toUtf8();
    int output[2];
    int started[2];
    if (pipe2(output, O_CLOEXEC) != 0 || pipe2(started, O_CLOEXEC) != 0) {
        answer(request, errorReply(errno));
        return;
    }
    m_tool = fork();
    if (m_tool == 0) {
        // The kernel tells the bench, beside this packet, what the process is called there.
        m_channel.sendWaiting(QJsonObject{{QStringLiteral("event"), QStringLiteral("process")}});
        dup2(open("/dev/null", O_RDONLY | O_CLOEXEC), STDIN_FILENO);
        dup2(output[1], STDOUT_FILENO);
        dup2(output[1], STDERR_FILENO);
        for (const QJsonValue &value : request.value(QLatin1String("limits")).toArray()) {
            const QJsonArray limit = value.toArray();
            const rlim_t most = rlim_t(limit.at(1).toDouble());
            const rlimit limits = {most, most};
            setrlimit(__rlimit_resource_t(limit.at(0).toInt()), &limits);
        }
        becomeOrdinary();
        umask(022);
        if (chdir(directory.constData()) == 0)
            execve(arguments.data()[0], arguments.data(), environment.data());
        const int error = errno;
        if (write(started[1], &error, sizeof error) < 0)
            _exit(126);
        _exit(127);
    }
    const int forkError = m_tool < 0 ? errno : 0;
    close(output[1]);
    close(started[1]);
    int error = forkError;
    if (forkError == 0 && read(started[0], &error, sizeof error) != sizeof error)
        error = 0;
    close(started[0]);
    m_tool = qMax(m_tool, 0);
    if (m_output >= 0)
        close(m_output);
    m_output = output[0];
    answer(request, errorReply(error));
}

void HostServer::readOutput()
{
    QByteArray bytes(outputChunk, Qt::Uninitialized);
    const ssize_t count = read(m_output, bytes.data(), size_t(bytes.size()));
    if (count <= 0) {
        close(m_output);
        m_output = -1;
        return;
    }
    bytes.truncate(int(count));
    post(QJsonObject{{QStringLiteral("event"), QStringLiteral("output")},
                     {QStringLiteral("usec"), usec()},
                     {QStringLiteral("text"), Channel::toText(bytes)}});
}

void HostServer::runErrand(const QJsonObject &request)
{
    Strings arguments(request.value(QLatin1String("arguments")).toArray());
    Errand errand = {request.value(QLatin1String("id")), memfd_create("output", MFD_CLOEXEC),
                     memfd_create("errors", MFD_CLOEXEC)};
    const pid_t child = fork();
    if (child == 0) {
        dup2(open("/dev/null", O_RDONLY | O_CLOEXEC), STDIN_FILENO);
        dup2(errand.output, STDOUT_FILENO);
        dup2(errand.errors, STDERR_FILENO);
        becomeOrdinary();
        char variable[sizeof pcPath];
        memcpy(variable, pcPath, sizeof pcPath);
        putenv(variable);
        execvp(arguments.data()[0], arguments.data());
        _exit(127);
    }
    if (child > 0) {
        m_errands.insert(child, errand);
        return;
    }
    close(errand.output);
    close(errand.errors);
    answer(request, errorReply(errno));
}

void HostServer::reap()
{
    signalfd_siginfo ignored;
    if (read(m_childEnded, &ignored, sizeof ignored) < 0)
        return;
    int status = 0;
    pid_t child;
    while ((child = waitpid(-1, &status, WNOHANG)) > 0) {
        const QJsonObject how = {
            {QStringLiteral("code"), WIFEXITED(status) ? WEXITSTATUS(status) : -1},
            {QStringLiteral("signal"), WIFSIGNALED(status) ? WTERMSIG(status) : 0}};
        if (child == m_tool) {
            // What it said last comes before the news of its end. Its own children may keep
            // the pipe open, so take only what is there.
            pollfd more = {m_output, POLLIN, 0};
            while (m_output >= 0 && poll(&more, 1, 0) > 0)
                readOutput();
            m_tool = 0;
            QJsonObject event = how;
            event.insert(QStringLiteral("event"), QStringLiteral("exit"));
            post(event);
        } else if (m_errands.contains(child)) {
            const Errand errand = m_errands.take(child);
            QJsonObject reply = how;
            reply.insert(QStringLiteral("id"), errand.request);
            post(reply, {errand.output, errand.errors});
            close(errand.output);
            close(errand.errors);
        }
    }
}

QString HostServer::setCard(const QString &dir, const QString &kind)
{
    const QByteArray folder = dir.toUtf8();
    const auto failure = [&folder](const char *what) {
        return QStringLiteral("cannot %1 %2: %3")
            .arg(QLatin1String(what), QString::fromUtf8(folder),
                 QString::fromLocal8Bit(strerror(errno)));
    };
    const bool plain = kind == QLatin1String("writable") || kind == QLatin1String("read-only") ||
                       kind == QLatin1String("full");
    if (m_flawedCards.contains(dir) || (!plain && m_cards.contains(dir))) {
        if (umount2(folder.constData(), MNT_DETACH) != 0)
            return failure("unmount");
        m_flawedCards.remove(dir);
        m_cards.remove(dir);
    }
    if (kind == QLatin1String("no-folder"))
        return rmdir(folder.constData()) == 0 || errno == ENOENT ? QString() : failure("remove");

    std::error_code ignored;
    std::filesystem::create_directories(folder.constData(), ignored);
    if (kind == QLatin1String("reads-back-wrong")) {
        const int device = open("/dev/fuse", O_RDWR | O_CLOEXEC);
        if (device < 0)
            return failure("open /dev/fuse for");
        QSharedPointer<FlawedCard> card(new FlawedCard);
        m_flawedCards.insert(dir, card);
        return card->mount(device, folder);
    }
    if (!plain)
        return QStringLiteral("no such kind of card: ") + kind;
    if (!m_cards.contains(dir) &&
        mount("card", folder.constData(), "tmpfs", MS_NOSUID | MS_NODEV, "size=1m") != 0)
        return failure("mount a card at");
    m_cards.insert(dir, true);
    if (mount("card", folder.constData(), "tmpfs", MS_REMOUNT, "size=1m") != 0)
        return failure("make writable");
    const QByteArray filler = folder + "/filler";
    unlink(filler.constData());
    if (kind == QLatin1String("full")) {
        const int fd = open(filler.constData(), O_WRONLY | O_CREAT | O_CLOEXEC, 0644);
        const QByteArray page(4096, 'x');
        while (write(fd, page.constData(), size_t(page.size())) > 0)
            continue;
        close(fd);
    }
    if (kind != QLatin1String("read-only"))
        return QString();
    // A worker that has just written to the card may still be ending.
    for (int attempt = 0; attempt < 200; ++attempt) {
        if (mount("card", folder.constData(), "tmpfs", MS_REMOUNT | MS_RDONLY, "size=1m") == 0)
            return QString();
        if (errno != EBUSY)
            break;
        usleep(1000);
    }
    return failure("make read-only");
}
