#include "tests/bench/line/fakekeypad.h"

#include <sys/socket.h>
#include <unistd.h>

FakeKeypad::FakeKeypad()
{
    int ends[2] = {-1, -1};
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0)
        qFatal("no socket pair");
    m_fd = ends[0];
    m_stationEnd = ends[1];
    m_notifier.reset(new QSocketNotifier(m_fd, QSocketNotifier::Read));
    connect(m_notifier.data(), SIGNAL(activated(int)), SLOT(read()));
}

FakeKeypad::~FakeKeypad()
{
    hangUp();
    if (m_stationEnd >= 0)
        close(m_stationEnd);
}

int FakeKeypad::takeStationEnd()
{
    const int end = m_stationEnd;
    m_stationEnd = -1;
    return end;
}

void FakeKeypad::answer(const QByteArray &request, const QByteArray &bytes)
{
    m_answers[request].append(bytes);
}

void FakeKeypad::say(const QByteArray &bytes)
{
    if (write(m_fd, bytes.constData(), static_cast<size_t>(bytes.size())) != bytes.size())
        qFatal("the line takes no bytes");
}

void FakeKeypad::hangUp()
{
    m_notifier.reset();
    if (m_fd >= 0)
        close(m_fd);
    m_fd = -1;
}

void FakeKeypad::read()
{
    char bytes[4096];
    const ssize_t count = ::read(m_fd, bytes, sizeof bytes);
    if (count <= 0) {
        m_notifier->setEnabled(false);
        return;
    }
    m_pending.append(bytes, static_cast<int>(count));
    for (auto end = m_pending.indexOf("\r\n"); end >= 0; end = m_pending.indexOf("\r\n")) {
        const QByteArray request = m_pending.left(end);
        m_pending.remove(0, end + 2);
        requests.append(request);
        QList<QByteArray> &answers = m_answers[request];
        if (!answers.isEmpty())
            say(answers.size() > 1 ? answers.takeFirst() : answers.first());
        if (onRequest)
            onRequest();
    }
}
