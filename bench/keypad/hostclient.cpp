#include "bench/keypad/hostclient.h"

#include "bench/keypad/spawn.h"

#include <QDeadlineTimer>
#include <QFileInfo>
#include <QJsonArray>

#include <cerrno>
#include <cstring>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace HostProtocol;

namespace
{

void closeAll(const QList<int> &descriptors)
{
    for (const int fd : descriptors)
        ::close(fd);
}

} // namespace

HostClient::~HostClient()
{
    close();
}

bool HostClient::failed(const QString &reason)
{
    m_error = reason;
    return false;
}

bool HostClient::succeeded(const QString &what, int number)
{
    if (number == 0)
        return true;
    m_error = what + QLatin1String(": ") + QString::fromLocal8Bit(strerror(number));
    errno = number;
    return false;
}

bool HostClient::launch(const QString &toolDir, const QStringList &visible)
{
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends) != 0)
        return failed(QString::fromLocal8Bit(strerror(errno)));
    const int yes = 1;
    setsockopt(ends[0], SOL_SOCKET, SO_PASSCRED, &yes, sizeof yes);
    const QString program = benchProgram(QStringLiteral("keypad-host"));
    m_host = spawnProgram(program, QStringList(), ends[1]);
    const int spawnError = errno;
    ::close(ends[1]);
    m_channel = Channel(ends[0]);
    if (m_host < 0)
        return succeeded(QStringLiteral("cannot start ") + program, spawnError);
    QList<int> descriptors;
    const QJsonObject reply = ask(QJsonObject{{Key::Programs, QFileInfo(program).path()},
                                              {Key::ToolDir, toolDir},
                                              {Key::Visible, QJsonArray::fromStringList(visible)}},
                                  &descriptors, CallMsecs);
    if (!descriptors.isEmpty())
        m_line = descriptors.first();
    const QString reason = reply.value(Key::Reason).toString();
    if (!reason.isEmpty() || m_line < 0)
        return failed(reason.isEmpty() ? QStringLiteral("the keypad does not answer") : reason);
    return true;
}

void HostClient::closeLine()
{
    if (m_line >= 0)
        ::close(m_line);
    m_line = -1;
}

void HostClient::close()
{
    closeLine();
    if (m_channel.fd() >= 0)
        ::close(m_channel.fd());
    m_channel = Channel();
    if (m_host > 0)
        waitpid(m_host, nullptr, 0);
    m_host = -1;
    for (const Packet &packet : qAsConst(m_replies))
        closeAll(packet.descriptors);
    m_replies.clear();
    for (const QList<int> &descriptors : qAsConst(m_handedOver))
        closeAll(descriptors);
    m_handedOver.clear();
}

QJsonObject HostClient::call(Operation operation, QJsonObject request, QList<int> *descriptors,
                             int msecs)
{
    request.insert(Key::OperationKind, toJson(operation));
    return ask(request, descriptors, msecs);
}

QJsonObject HostClient::ask(QJsonObject request, QList<int> *descriptors, int msecs)
{
    const int id = m_nextRequest++;
    request.insert(Key::Id, id);
    Packet reply;
    reply.object.insert(Key::Error, EPIPE);
    if (m_channel.fd() >= 0 && m_channel.sendWaiting(request) &&
        waitUntil([this, id] { return m_replies.contains(id); }, msecs))
        reply = m_replies.take(id);
    if (descriptors != nullptr)
        *descriptors = reply.descriptors;
    else
        closeAll(reply.descriptors);
    return reply.object;
}

bool HostClient::drain()
{
    for (;;) {
        Packet packet;
        switch (m_channel.receive(&packet)) {
        case Channel::Done:
            take(packet);
            break;
        case Channel::WouldBlock:
            return true;
        case Channel::Closed:
            lost();
            return false;
        }
    }
}

void HostClient::take(const Packet &packet)
{
    const Event event = fromJson<Event>(packet.object.value(Key::EventKind));
    const int id = packet.object.value(Key::Id).toInt();
    if (event == Event::None) {
        m_replies.insert(id, packet);
        m_replies[id].descriptors += m_handedOver.take(id);
    } else if (event == Event::Descriptors) {
        m_handedOver.insert(id, packet.descriptors);
    } else {
        happened(event, packet);
    }
}

bool HostClient::waitUntil(const std::function<bool()> &done, int msecs)
{
    const QDeadlineTimer deadline(msecs);
    for (;;) {
        const bool alive = m_channel.fd() >= 0 && drain();
        if (done())
            return true;
        if (!alive || deadline.hasExpired())
            return false;
        m_channel.waitReadable(int(deadline.remainingTime()));
    }
}
