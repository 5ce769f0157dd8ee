/// The operator at a terminal: instructions go to one stream, answers come from another.
#ifndef BENCH_LINE_TERMINALDESK_H
#define BENCH_LINE_TERMINALDESK_H

#include "bench/line/interrupt.h"
#include "bench/line/lineinput.h"
#include "bench/line/operatordesk.h"

#include <QByteArray>

#include <cstdio>

class TerminalDesk : public OperatorDesk
{
public:
    /// @param answers  descriptor that lines are read from; on a terminal only what is
    ///                 typed after a question answers it
    /// @param prompts  where questions are printed
    /// @param interrupt  once it is raised no answer is waited for; raised when nobody
    ///                   can read the questions any more. May be null
    TerminalDesk(int answers, FILE *prompts, Interrupt *interrupt = nullptr)
        : m_answers(answers), m_prompts(prompts), m_interrupt(interrupt)
    {
    }

    bool isDeserted() override;
    void tell(const QString &text) override;
    /// Waits for the Enter key.
    Reply confirm(const QString &text, int limitMs) override;
    /// Waits for y or n; after anything else, even Enter alone, it asks again.
    Reply question(const QString &text, int limitMs) override;
    Reply ask(const QString &text, int limitMs, QString *line) override;

private:
    void flush();
    Reply readLine(int limitMs, QByteArray *line);
    Reply awaitLine(int limitMs, QByteArray *line);

    LineInput m_answers;
    FILE *m_prompts;
    Interrupt *m_interrupt;
};

#endif
