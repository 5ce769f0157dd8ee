/// The other side of a desk: the person at the terminal, or the program that has the
/// operator. Reads what is asked there and answers when it has been asked.
#ifndef TESTS_BENCH_LINE_OTHERSIDE_H
#define TESTS_BENCH_LINE_OTHERSIDE_H

#include <QByteArray>
#include <QTimer>

#include <cstdio>
#include <functional>

class OtherSide
{
public:
    enum Kind {
        Pipe,
        Terminal ///< one line is read at a time, and what was typed can be forgotten
    };

    explicit OtherSide(Kind kind = Pipe);
    ~OtherSide();
    Q_DISABLE_COPY(OtherSide)

    /// Where the code under test reads answers from.
    int answers() const { return m_answers; }
    /// Where it asks.
    FILE *questions() const { return m_questions; }

    /// Answers; a terminal has the line when this returns.
    void say(const QByteArray &text);
    /// Nothing more will be said.
    void hangUp();
    /// All that was asked.
    QByteArray heard() const;
    /// Does @p what, in the event loop, as soon as @p isTime holds; one such thing at a time.
    void when(const std::function<bool()> &isTime, const std::function<void()> &what);
    /// Says @p answer once @p text has been asked that many times.
    void answer(const QByteArray &text, const QByteArray &answer, int times = 1);

private:
    int m_answers = -1;
    int m_speech = -1;
    Kind m_kind;
    FILE *m_questions;
    QTimer m_look; ///< every time that events are processed
};

#endif
