#include "bench/line/terminaldesk.h"

#include <QDeadlineTimer>
#include <QEventLoop>

#include <algorithm>
#include <cerrno>

#include <poll.h>
#include <termios.h>
#include <unistd.h>

namespace
{

const int SliceMs = 20; ///< the line is served between two looks at the keyboard

} // namespace

bool TerminalDesk::isDeserted()
{
    return m_pending.isEmpty() && !readSome(0);
}

void TerminalDesk::tell(const QString &text)
{
    std::fprintf(m_prompts, "\n  >> %s\n", qPrintable(text));
    flush();
}

TerminalDesk::Reply TerminalDesk::confirm(const QString &text, int limitMs)
{
    forgetTypedAhead();
    std::fprintf(m_prompts, "\n  >> %s  Then press Enter: ", qPrintable(text));
    flush();
    QByteArray line;
    return readLine(limitMs, &line);
}

TerminalDesk::Reply TerminalDesk::question(const QString &text, int limitMs)
{
    const QDeadlineTimer deadline(limitMs);
    forgetTypedAhead();
    for (;;) {
        std::fprintf(m_prompts, "\n  >> %s [y/n] ", qPrintable(text));
        flush();
        QByteArray line;
        const Reply reply = readLine(static_cast<int>(deadline.remainingTime()), &line);
        if (reply != Yes)
            return reply;
        const QByteArray word = line.trimmed().toLower();
        if (word == "y" || word == "yes")
            return Yes;
        if (word == "n" || word == "no")
            return No;
    }
}

TerminalDesk::Reply TerminalDesk::ask(const QString &text, int limitMs, QString *line)
{
    forgetTypedAhead();
    std::fprintf(m_prompts, "\n  >> %s: ", qPrintable(text));
    flush();
    QByteArray typed;
    const Reply reply = readLine(limitMs, &typed);
    if (reply == Yes)
        *line = QString::fromUtf8(typed).trimmed();
    return reply;
}

void TerminalDesk::flush()
{
    if (m_interrupt != nullptr)
        m_interrupt->flush(m_prompts);
    else
        std::fflush(m_prompts);
}

/// A key that was hit twice must not answer a question that nobody has read. A
/// program that answers through a pipe means what it says.
void TerminalDesk::forgetTypedAhead()
{
    if (isatty(m_answers) == 0)
        return;
    tcflush(m_answers, TCIFLUSH);
    m_pending.clear();
}

TerminalDesk::Reply TerminalDesk::readLine(int limitMs, QByteArray *line)
{
    const Reply reply = awaitLine(limitMs, line);
    if (reply != Yes) { // nobody has ended the prompt's line
        std::fputc('\n', m_prompts);
        flush();
    }
    return reply;
}

/// @return Yes for any line
TerminalDesk::Reply TerminalDesk::awaitLine(int limitMs, QByteArray *line)
{
    const QDeadlineTimer deadline(limitMs);
    for (;;) {
        const auto end = m_pending.indexOf('\n');
        if (end >= 0) {
            *line = m_pending.left(end);
            m_pending.remove(0, end + 1);
            return Yes;
        }
        if (m_interrupt != nullptr && m_interrupt->isRaised())
            return Interrupted;
        if (deadline.hasExpired())
            return TooLate;
        const bool canType =
            readSome(static_cast<int>(std::min<qint64>(SliceMs, deadline.remainingTime())));
        QEventLoop().processEvents();
        if (!canType)
            return Nobody;
    }
}

/// Takes what is typed within the limit. @return false when nothing more can be
bool TerminalDesk::readSome(int limitMs)
{
    pollfd keyboard = {m_answers, POLLIN, 0};
    if (poll(&keyboard, 1, limitMs) <= 0)
        return true;
    char bytes[256];
    const ssize_t count = read(m_answers, bytes, sizeof bytes);
    if (count > 0)
        m_pending.append(bytes, static_cast<int>(count));
    return count > 0 || (count < 0 && (errno == EINTR || errno == EAGAIN));
}
