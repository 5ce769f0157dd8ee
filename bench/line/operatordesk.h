/// The person at a real unit: told what to do on one stream, answers on another.
#ifndef BENCH_LINE_OPERATORDESK_H
#define BENCH_LINE_OPERATORDESK_H

#include "bench/line/interrupt.h"

#include <QByteArray>
#include <QString>

#include <cstdio>

class OperatorDesk
{
public:
    enum Reply { Yes, No, TooLate, Nobody, Interrupted };

    /// @param answers  descriptor that lines are read from; of a terminal only what is
    ///                 typed after a question answers it
    /// @param prompts  where questions are printed
    /// @param interrupt  once it is raised no answer is waited for; raised when nobody can
    ///                   read the questions any more. May be absent
    OperatorDesk(int answers, FILE *prompts, Interrupt *interrupt = nullptr)
        : m_answers(answers), m_prompts(prompts), m_interrupt(interrupt)
    {
    }

    /// Whether nobody can answer any question: what the answers are read from has ended.
    bool isDeserted();
    /// Tells without waiting for an answer.
    void tell(const QString &text);
    /// Waits for the Enter key.
    Reply confirm(const QString &text, int limitMs);
    /// Waits for y or n. Neither is assumed: after anything else, Enter alone too, it asks again.
    Reply question(const QString &text, int limitMs);

private:
    void flush();
    void forgetTypedAhead();
    Reply readLine(int limitMs, QByteArray *line);
    Reply awaitLine(int limitMs, QByteArray *line);
    bool readSome(int limitMs);

    int m_answers;
    FILE *m_prompts;
    Interrupt *m_interrupt;
    QByteArray m_pending;
};

#endif
