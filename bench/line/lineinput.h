/// Lines that a person types or a program writes, read without waiting for their end.
#ifndef BENCH_LINE_LINEINPUT_H
#define BENCH_LINE_LINEINPUT_H

#include <QByteArray>

class LineInput
{
public:
    /// @param descriptor  kept by the caller
    explicit LineInput(int descriptor) : m_descriptor(descriptor) {}

    /// Forgets what was typed on a terminal: a key that was hit twice must not answer a
    /// question that nobody has read. What a program writes into a pipe is kept; it means
    /// what it says.
    void forgetTypedAhead();
    /// Reads what comes within the limit. @return false when nothing more can come
    bool read(int limitMs);
    /// The next complete line, without its end. @return false when there is none yet
    bool takeLine(QByteArray *line);
    bool isEmpty() const { return m_pending.isEmpty(); }

private:
    const int m_descriptor;
    QByteArray m_pending;
};

#endif
