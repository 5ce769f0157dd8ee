#include "bench/keypad/channel.h"

#include <QJsonDocument>

#include <cerrno>
#include <cstring>
#include <poll.h>
#include <sys/socket.h>

namespace
{

const int largestPacket = 256 * 1024;
const int mostDescriptors = 4;

} // namespace

Channel::Result Channel::send(const QJsonObject &object, const QList<int> &descriptors) const
{
    const QByteArray bytes = QJsonDocument(object).toJson(QJsonDocument::Compact);
    iovec part = {const_cast<char *>(bytes.constData()), size_t(bytes.size())};
    alignas(cmsghdr) char control[CMSG_SPACE(mostDescriptors * sizeof(int))] = {};
    msghdr message = {};
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    if (!descriptors.isEmpty()) {
        const size_t length = size_t(descriptors.size()) * sizeof(int);
        message.msg_control = control;
        message.msg_controllen = CMSG_SPACE(length);
        cmsghdr *header = CMSG_FIRSTHDR(&message);
        header->cmsg_level = SOL_SOCKET;
        header->cmsg_type = SCM_RIGHTS;
        header->cmsg_len = CMSG_LEN(length);
        for (int i = 0; i < descriptors.size(); ++i) {
            const int fd = descriptors.at(i);
            memcpy(CMSG_DATA(header) + size_t(i) * sizeof(int), &fd, sizeof(int));
        }
    }
    ssize_t sent;
    do {
        sent = sendmsg(m_fd, &message, MSG_DONTWAIT | MSG_NOSIGNAL);
    } while (sent < 0 && errno == EINTR);
    if (sent >= 0)
        return Done;
    return errno == EAGAIN ? WouldBlock : Closed;
}

bool Channel::sendWaiting(const QJsonObject &object, const QList<int> &descriptors) const
{
    for (;;) {
        const Result result = send(object, descriptors);
        if (result != WouldBlock)
            return result == Done;
        pollfd room = {m_fd, POLLOUT, 0};
        poll(&room, 1, -1);
    }
}

Channel::Result Channel::receive(Packet *packet) const
{
    QByteArray bytes(largestPacket, Qt::Uninitialized);
    iovec part = {bytes.data(), size_t(bytes.size())};
    alignas(cmsghdr) char
        control[CMSG_SPACE(mostDescriptors * sizeof(int)) + CMSG_SPACE(sizeof(ucred))] = {};
    msghdr message = {};
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    message.msg_control = control;
    message.msg_controllen = sizeof control;
    ssize_t received;
    do {
        received = recvmsg(m_fd, &message, MSG_DONTWAIT | MSG_CMSG_CLOEXEC);
    } while (received < 0 && errno == EINTR);
    if (received < 0 && errno == EAGAIN)
        return WouldBlock;
    if (received <= 0)
        return Closed;
    bytes.truncate(int(received));
    *packet = Packet();
    packet->object = QJsonDocument::fromJson(bytes).object();
    for (cmsghdr *header = CMSG_FIRSTHDR(&message); header != nullptr;
         header = CMSG_NXTHDR(&message, header)) {
        if (header->cmsg_level != SOL_SOCKET)
            continue;
        const size_t length = header->cmsg_len - CMSG_LEN(0);
        for (size_t i = 0; header->cmsg_type == SCM_RIGHTS && i < length / sizeof(int); ++i) {
            int fd;
            memcpy(&fd, CMSG_DATA(header) + i * sizeof(int), sizeof fd);
            packet->descriptors.append(fd);
        }
        if (header->cmsg_type == SCM_CREDENTIALS) {
            ucred sender;
            memcpy(&sender, CMSG_DATA(header), sizeof sender);
            packet->sender = sender.pid;
        }
    }
    return Done;
}

bool Channel::waitReadable(int msecs) const
{
    pollfd ready = {m_fd, POLLIN, 0};
    return poll(&ready, 1, msecs) > 0;
}
