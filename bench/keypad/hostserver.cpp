#include "bench/keypad/hostserver.h"

#include "bench/keypad/boardroot.h"
#include "bench/keypad/hostfiles.h"
#include "bench/keypad/hostprotocol.h"
#include "bench/keypad/sdpipe.h"

#include <QJsonArray>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/signalfd.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>
#include <vector>

using namespace HostProtocol;

namespace
{

const int outputChunk = 16 * 1024; // fits a packet even when every byte is escaped
const char pcPath[] = "PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin";

qint64 monotonicUsec()
{
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return qint64(now.tv_sec) * 1000000 + now.tv_nsec / 1000;
}

QJsonObject errorReply(int error)
{
    return QJsonObject{{Key::Error, error}};
}

QByteArray bytesOf(const QJsonObject &request, QLatin1String key)
{
    return request.value(key).toString().toUtf8();
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

/// Called in a child before it becomes another program.
void becomeOrdinary()
{
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
    signal(SIGPIPE, SIG_DFL);
    // Whoever started the bench may have let it inherit files of its own.
    close_range(STDERR_FILENO + 1, ~0U, CLOSE_RANGE_CLOEXEC);
}

QJsonObject openFile(const QJsonObject &request, QList<int> *descriptors)
{
    umask(0);
    const int flags = request.value(Key::Flags).toInt() | O_NOCTTY | O_CLOEXEC;
    const mode_t mode = mode_t(request.value(Key::Mode).toInt());
    const int fd = open(bytesOf(request, Key::Path).constData(), flags, mode);
    if (fd < 0)
        return errorReply(errno);
    descriptors->append(fd);
    return errorReply(0);
}

} // namespace

HostServer::HostServer(int channel, KeypadLine &line)
    : m_channel(channel), m_line(line), m_start(monotonicUsec()),
      m_sysfs(m_model, [this](const SysfsModel::Store &store) {
          post(QJsonObject{{Key::EventKind, toJson(Event::Store)},
                           {Key::Usec, usec()},
                           {Key::Path, store.path},
                           {Key::Text, Channel::toText(store.text)},
                           {Key::Error, store.error}});
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
    root.programsDir = request.value(Key::Programs).toString();
    root.toolDir = request.value(Key::ToolDir).toString();
    for (const QJsonValue &value : request.value(Key::Visible).toArray())
        root.visible.append(value.toString());
    const QString reason = root.build();
    if (!reason.isEmpty())
        return reason;
    return m_sysfs.mount(device, "/sys");
}

void HostServer::post(const QJsonObject &object, const QList<int> &descriptors)
{
    // A bench that is busy for a while must not stop the tool.
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
    reply.insert(Key::Id, request.value(Key::Id));
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
        for (const QSharedPointer<FlawedCard> &card : m_cards.flawedCards())
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
    switch (fromJson<Operation>(request.value(Key::OperationKind))) {
    case Operation::Ping:
        return answer(request);
    case Operation::Bridge:
        m_line.bridge();
        m_bridging = true;
        return answer(request, QJsonObject{{Key::Path, m_line.stationPath()}});
    case Operation::HangUp:
        m_bridging = false;
        m_line.hangUp();
        return answer(request);
    case Operation::SetCard:
        return setCard(request);
    case Operation::Sysfs:
        return handleSysfs(request);
    case Operation::Start:
        return startTool(request);
    case Operation::Run:
        return runErrand(request);
    case Operation::Open:
    case Operation::List:
    case Operation::Remove:
    case Operation::MakeFolders:
    case Operation::Rename:
    case Operation::Link:
    case Operation::Exists:
    case Operation::WriteSdPipe:
        return inWorker(request);
    }
    answer(request, errorReply(ENOSYS));
}

void HostServer::setCard(const QJsonObject &request)
{
    const CardKind::Card kind = fromJson<CardKind::Card>(request.value(Key::Kind));
    const QString reason = m_cards.setCard(request.value(Key::Path).toString(), kind);
    answer(request, QJsonObject{{Key::Reason, reason}});
}

QList<QByteArray> HostServer::ownRoots() const
{
    QList<QByteArray> roots = {"/", "/etc", "/sys"};
    const QStringList cards = m_cards.folders();
    for (const QString &card : cards)
        roots.append(card.toUtf8());
    return roots;
}

/// In a child of its own.
QJsonObject HostServer::work(const QJsonObject &request, QList<int> *descriptors) const
{
    const QByteArray name = bytesOf(request, Key::Path);
    const QByteArray to = bytesOf(request, Key::To);
    struct stat status;
    switch (fromJson<Operation>(request.value(Key::OperationKind))) {
    case Operation::Open:
        return openFile(request, descriptors);
    case Operation::List: {
        QStringList names;
        const int error = HostFiles::list(name, &names);
        return QJsonObject{{Key::Error, error}, {Key::Names, QJsonArray::fromStringList(names)}};
    }
    case Operation::Remove:
        return errorReply(HostFiles::removeAll(name, ownRoots()));
    case Operation::MakeFolders:
        return errorReply(HostFiles::makeFolders(name));
    case Operation::Rename:
        return errorReply(::rename(name.constData(), to.constData()) == 0 ? 0 : errno);
    case Operation::Link:
        return errorReply(::symlink(name.constData(), to.constData()) == 0 ? 0 : errno);
    case Operation::Exists:
        return errorReply(lstat(name.constData(), &status) == 0 ? 0 : errno);
    case Operation::WriteSdPipe:
        return errorReply(writeSdPipe(m_tool, Channel::toBytes(request.value(Key::Bytes)),
                                      request.value(Key::Msecs).toInt()));
    default:
        return errorReply(ENOSYS);
    }
}

void HostServer::handleSysfs(const QJsonObject &request)
{
    const QString node = request.value(Key::Path).toString();
    const QByteArray bytes = Channel::toBytes(request.value(Key::Text));
    const int number = request.value(Key::Number).toInt();
    bool ok = true;
    QJsonObject reply;
    switch (fromJson<SysfsCall>(request.value(Key::Call))) {
    case SysfsCall::Show:
        reply.insert(Key::Text, Channel::toText(m_model.show(node)));
        break;
    case SysfsCall::Set:
        ok = m_model.set(node, bytes);
        break;
    case SysfsCall::Fail:
        m_model.fail(node, SysfsModel::Operation(number), request.value(Key::Error).toInt());
        break;
    case SysfsCall::ClearFault:
        m_model.clearFault(node);
        break;
    case SysfsCall::AddLed:
        ok = m_model.addLed(node, number);
        break;
    case SysfsCall::AddAttribute:
        ok = m_model.addAttribute(node, bytes);
        break;
    case SysfsCall::Remove:
        ok = m_model.remove(node);
        break;
    case SysfsCall::Has:
        ok = m_model.node(node).type != SysfsModel::None;
        break;
    }
    reply.insert(Key::Ok, ok);
    answer(request, reply);
}

/// File operations may lead to the /sys that this process serves, or wait: so a child
/// does them and answers by itself.
void HostServer::inWorker(const QJsonObject &request)
{
    const pid_t worker = fork();
    if (worker < 0) {
        answer(request, errorReply(errno));
        return;
    }
    if (worker > 0)
        return;
    const QJsonValue id = request.value(Key::Id);
    QList<int> descriptors;
    QJsonObject reply = work(request, &descriptors);
    // Handed over and closed here before the reply: a program that is still open for
    // writing cannot be run.
    if (!descriptors.isEmpty()) {
        m_channel.sendWaiting(
            QJsonObject{{Key::EventKind, toJson(Event::Descriptors)}, {Key::Id, id}}, descriptors);
        for (const int fd : qAsConst(descriptors))
            close(fd);
    }
    reply.insert(Key::Id, id);
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
    Strings arguments(request.value(Key::Arguments).toArray());
    Strings environment(request.value(Key::Environment).toArray());
    const QByteArray directory = bytesOf(request, Key::Directory);
    int output[2];
    int started[2];
    if (pipe2(output, O_CLOEXEC) != 0 || pipe2(started, O_CLOEXEC) != 0) {
        answer(request, errorReply(errno));
        return;
    }
    m_tool = fork();
    if (m_tool == 0) {
        // With this packet the kernel tells the bench the number of the process as seen
        // there.
        m_channel.sendWaiting(QJsonObject{{Key::EventKind, toJson(Event::Process)}});
        dup2(open("/dev/null", O_RDONLY | O_CLOEXEC), STDIN_FILENO);
        dup2(output[1], STDOUT_FILENO);
        dup2(output[1], STDERR_FILENO);
        for (const QJsonValue &value : request.value(Key::Limits).toArray()) {
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
    post(QJsonObject{{Key::EventKind, toJson(Event::Output)},
                     {Key::Usec, usec()},
                     {Key::Text, Channel::toText(bytes)}});
}

void HostServer::runErrand(const QJsonObject &request)
{
    Strings arguments(request.value(Key::Arguments).toArray());
    Errand errand = {request.value(Key::Id), memfd_create("output", MFD_CLOEXEC),
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
        const QJsonObject how = {{Key::Code, WIFEXITED(status) ? WEXITSTATUS(status) : -1},
                                 {Key::Signal, WIFSIGNALED(status) ? WTERMSIG(status) : 0}};
        if (child == m_tool) {
            // Its last output comes before the report of its end. Its own children may
            // keep the pipe open, so take only what is there.
            pollfd more = {m_output, POLLIN, 0};
            while (m_output >= 0 && poll(&more, 1, 0) > 0)
                readOutput();
            m_tool = 0;
            QJsonObject event = how;
            event.insert(Key::EventKind, toJson(Event::Exit));
            post(event);
        } else if (m_errands.contains(child)) {
            const Errand errand = m_errands.take(child);
            QJsonObject reply = how;
            reply.insert(Key::Id, errand.request);
            post(reply, {errand.output, errand.errors});
            close(errand.output);
            close(errand.errors);
        }
    }
}
