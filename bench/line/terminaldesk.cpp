#include "bench/line/terminaldesk.h"

#include <QDeadlineTimer>
#include <QEventLoop>

#include <algorithm>

namespace
{

const int SliceMs = 20; ///< between two looks at the keyboard the line is served

} // namespace

bool TerminalDesk::isDeserted()
{
    return m_answers.isEmpty() && !m_answers.read(0);
}

void TerminalDesk::tell(const QString &text)
{
    std::fprintf(m_prompts, "\n  >> %s\n", qPrintable(text));
    flush();
}

TerminalDesk::Reply TerminalDesk::confirm(const QString &text, int limitMs)
{
    m_answers.forgetTypedAhead();
    std::fprintf(m_prompts, "\n  >> %s  Then press Enter: ", qPrintable(text));
    flush();
    QByteArray line;
    return readLine(limitMs, &line);
}

TerminalDesk::Reply TerminalDesk::question(const QString &text, int limitMs)
{
    const QDeadlineTimer deadline(limitMs);
    m_answers.forgetTypedAhead();
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
    m_answers.forgetTypedAhead();
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
    while (!m_answers.takeLine(line)) {
        if (m_interrupt != nullptr && m_interrupt->isRaised())
            return Interrupted;
        // What was typed in time counts, even if this program reads it late.
        const bool isOver = deadline.hasExpired();
        const bool canType =
            m_answers.read(static_cast<int>(std::min<qint64>(SliceMs, deadline.remainingTime())));
        QEventLoop().processEvents();
        if (m_answers.takeLine(line))
            return Yes;
        if (!canType)
            return Nobody;
        if (isOver)
            return TooLate;
    }
    return Yes;
}
