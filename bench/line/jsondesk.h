/// An operator who works with another program: questions go out as JSON lines, answers
/// come in as JSON lines; docs/line.md describes both.
#ifndef BENCH_LINE_JSONDESK_H
#define BENCH_LINE_JSONDESK_H

#include "bench/line/interrupt.h"
#include "bench/line/jsonstream.h"
#include "bench/line/lineinput.h"
#include "bench/line/operatordesk.h"

#include <QDeadlineTimer>

class JsonDesk : public OperatorDesk
{
public:
    /// @param answers    descriptor that lines are read from
    /// @param stream     kept by the caller
    /// @param interrupt  once it is raised no answer is waited for; may be null
    JsonDesk(int answers, JsonStream *stream, const Interrupt *interrupt = nullptr)
        : m_answers(answers), m_stream(stream), m_interrupt(interrupt)
    {
    }

    bool isDeserted() override;
    void tell(const QString &text) override;
    Reply confirm(const QString &text, int limitMs) override;
    Reply question(const QString &text, int limitMs) override;
    Reply ask(const QString &text, int limitMs, QString *line) override;

private:
    enum Kind { Confirm, YesNo, Text };

    Reply put(Kind kind, const QString &text, int limitMs, QString *reply);
    Reply await(Kind kind, int limitMs, QString *reply);
    bool takeLines(Kind kind, int limitMs, QString *reply);
    bool take(const QByteArray &line, Kind kind, int limitMs, QString *reply);
    void refuse(const QByteArray &line, const char *reason);

    LineInput m_answers;
    JsonStream *m_stream;
    const Interrupt *m_interrupt;
    int m_id = 0; ///< of the last question
    QDeadlineTimer m_deadline;
};

#endif
