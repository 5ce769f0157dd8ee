/// The person at a real unit: told what to do on one stream, answers on another.
#ifndef BENCH_LINE_OPERATORDESK_H
#define BENCH_LINE_OPERATORDESK_H

#include <QByteArray>
#include <QString>

#include <cstdio>

class OperatorDesk
{
public:
    enum Reply { Yes, No, TooLate, Nobody };

    /// @param answers  descriptor that lines are read from
    /// @param prompts  where questions are printed
    OperatorDesk(int answers, FILE *prompts) : m_answers(answers), m_prompts(prompts) {}

    /// Tells without waiting for an answer.
    void tell(const QString &text);
    /// Waits for the Enter key.
    Reply confirm(const QString &text, int limitMs);
    /// Waits for y or n; Enter alone is yes.
    Reply question(const QString &text, int limitMs);

private:
    Reply readLine(int limitMs, QByteArray *line);

    int m_answers;
    FILE *m_prompts;
    QByteArray m_pending;
};

#endif
