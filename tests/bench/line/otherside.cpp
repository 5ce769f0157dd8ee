#include "tests/bench/line/otherside.h"

#include <fcntl.h>
#include <pty.h>
#include <sys/ioctl.h>
#include <unistd.h>

namespace
{

int waitingIn(int terminal)
{
    int count = 0;
    ioctl(terminal, FIONREAD, &count);
    return count;
}

} // namespace

OtherSide::OtherSide(Kind kind) : m_kind(kind), m_questions(std::tmpfile())
{
    int ends[2] = {-1, -1};
    if (kind == Terminal ? openpty(&m_speech, &m_answers, nullptr, nullptr, nullptr) != 0
                         : pipe2(ends, O_CLOEXEC) != 0)
        qFatal("no line to a desk");
    if (kind == Pipe) {
        m_answers = ends[0];
        m_speech = ends[1];
    }
}

OtherSide::~OtherSide()
{
    hangUp();
    close(m_answers);
    std::fclose(m_questions);
}

void OtherSide::say(const QByteArray &text)
{
    const int before = waitingIn(m_answers);
    if (write(m_speech, text.constData(), static_cast<size_t>(text.size())) != text.size())
        qFatal("cannot answer");
    // The kernel hands a terminal's lines over by and by.
    while (m_kind == Terminal && waitingIn(m_answers) < before + text.size())
        usleep(100);
}

void OtherSide::hangUp()
{
    if (m_speech >= 0)
        close(m_speech);
    m_speech = -1;
}

QByteArray OtherSide::heard() const
{
    std::fflush(m_questions);
    QByteArray text(1 << 16, '\0');
    const ssize_t size =
        pread(fileno(m_questions), text.data(), static_cast<size_t>(text.size()), 0);
    return text.left(static_cast<int>(size));
}

void OtherSide::when(const std::function<bool()> &isTime, const std::function<void()> &what)
{
    m_look.disconnect();
    QObject::connect(&m_look, &QTimer::timeout, [=] {
        if (!isTime())
            return;
        m_look.stop();
        what();
    });
    m_look.start(0);
}

void OtherSide::answer(const QByteArray &text, const QByteArray &answer, int times)
{
    when([=] { return heard().count(text) >= times; }, [=] { say(answer); });
}
