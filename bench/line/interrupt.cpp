#include "bench/line/interrupt.h"

#include <cerrno>
#include <iterator>

namespace
{

const int Signals[] = {SIGHUP, SIGINT, SIGQUIT, SIGTERM, SIGPIPE, Interrupt::OutputLost};
const int Count = static_cast<int>(std::size(Signals));

struct sigaction before[Count];
Interrupt *followed = nullptr;

void follow(int number, void (*handler)(int))
{
    struct sigaction action = {};
    action.sa_handler = handler;
    action.sa_flags = SA_RESTART;
    sigemptyset(&action.sa_mask);
    sigaction(number, &action, nullptr);
}

void end(int number)
{
    const int errnoBefore = errno;
    followed->raise(number == Interrupt::OutputLost ? SIGPIPE : number);
    // Who interrupts twice does not want to wait for the record.
    for (const int other : {SIGINT, SIGQUIT, SIGTERM})
        follow(other, SIG_DFL);
    errno = errnoBefore;
}

/// Unlike SIG_IGN, a handler is not inherited by the programs that are started.
void ignore(int) {}

} // namespace

Interrupt::~Interrupt()
{
    if (!m_follows)
        return;
    for (int i = 0; i < Count; ++i)
        sigaction(Signals[i], &before[i], nullptr);
    followed = nullptr;
}

void Interrupt::followSignals(bool isOfBatch)
{
    followed = this;
    m_follows = true;
    for (int i = 0; i < Count; ++i) {
        const int number = Signals[i];
        sigaction(number, nullptr, &before[i]);
        if (number == SIGHUP && before[i].sa_handler == SIG_IGN)
            continue;
        if (number == OutputLost && !isOfBatch)
            continue;
        follow(number, number == SIGPIPE ? ignore : end);
    }
}

void Interrupt::raise(int cause)
{
    if (m_cause == 0)
        m_cause = cause;
}

QString Interrupt::reason() const
{
    switch (m_cause) {
    case SIGHUP:
        return QStringLiteral("interrupted: the terminal, or the screen, was closed");
    case SIGTERM:
        return QStringLiteral("interrupted: the program was told to terminate");
    case SIGPIPE:
        return QStringLiteral("interrupted: nobody reads the output");
    default:
        return QStringLiteral("interrupted");
    }
}

void Interrupt::flush(FILE *out)
{
    if (std::fflush(out) != 0 && (errno == EPIPE || errno == EIO))
        raise(SIGPIPE);
}
