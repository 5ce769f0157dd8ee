#include "fakekeypad.h"

#include <QSocketNotifier>

#include <fcntl.h>
#include <pty.h>
#include <termios.h>
#include <unistd.h>

FakeKeypad::FakeKeypad()
{
    termios raw = {};
    cfmakeraw(&raw);
    raw.c_cflag |= CREAD | CLOCAL | CS8;
    char name[128] = "";
    if (openpty(&m_fd, &m_far, name, &raw, nullptr) < 0)
        qFatal("no pseudo terminal");
    // A program that a test starts must not keep the line open.
    fcntl(m_fd, F_SETFD, FD_CLOEXEC);
    fcntl(m_far, F_SETFD, FD_CLOEXEC);
    m_path = QString::fromLocal8Bit(name);
    m_notifier = new QSocketNotifier(m_fd, QSocketNotifier::Read, this);
    connect(m_notifier, SIGNAL(activated(int)), this, SLOT(read()));
}

FakeKeypad::~FakeKeypad()
{
    hangUp();
}

void FakeKeypad::answerInPieces(const QByteArray &request, const QList<QByteArray> &pieces)
{
    m_answers[request] = pieces;
}

void FakeKeypad::answer(const QByteArray &request, const QByteArray &piece)
{
    m_answers[request] = {piece};
}

void FakeKeypad::say(const QByteArray &bytes)
{
    if (::write(m_fd, bytes.constData(), static_cast<size_t>(bytes.size())) != bytes.size())
        qFatal("the line takes no bytes");
}

void FakeKeypad::hangUp()
{
    if (m_fd < 0)
        return;
    delete m_notifier;
    m_notifier = nullptr;
    ::close(m_fd);
    ::close(m_far);
    m_fd = -1;
}

void FakeKeypad::read()
{
    char bytes[1024];
    const ssize_t count = ::read(m_fd, bytes, sizeof bytes);
    if (count <= 0)
        return;
    const QByteArray request(bytes, static_cast<int>(count));
    m_reads.append(request);
    for (const QByteArray &piece : m_answers.value(request))
        say(piece);
}
