/// The person at the line, who is told what to do and asked what there is to see. The
/// implementations decide where that is: at a terminal, or in another program's window.
#ifndef BENCH_LINE_OPERATORDESK_H
#define BENCH_LINE_OPERATORDESK_H

#include <QString>

class OperatorDesk
{
public:
    enum Reply { Yes, No, TooLate, Nobody, Interrupted };

    virtual ~OperatorDesk() = default;

    /// Whether nobody can answer any more, because the source of the answers has ended.
    virtual bool isDeserted() = 0;
    /// Says something without waiting for an answer.
    virtual void tell(const QString &text) = 0;
    /// Waits until what was asked for is done. @return Yes then
    virtual Reply confirm(const QString &text, int limitMs) = 0;
    /// Waits for yes or no; neither is assumed.
    virtual Reply question(const QString &text, int limitMs) = 0;
    /// Waits for a line, typed or scanned.
    /// @param line  set to it, without white space around it; may be empty. Left alone when
    ///              none came
    /// @return Yes for any line
    virtual Reply ask(const QString &text, int limitMs, QString *line) = 0;
};

#endif
