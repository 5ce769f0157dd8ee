/// Lines that a person types or a program writes, without waiting for their end.
#ifndef BENCH_LINE_LINEINPUT_H
#define BENCH_LINE_LINEINPUT_H

#include <QByteArray>

class LineInput
{
public:
    /// @param descriptor  kept by the caller
    explicit LineInput(int descriptor) : m_descriptor(descriptor) {}

    /// A key that was hit twice must not answer a question that nobody has read: forgets what
    /// a terminal has. A program that answers through a pipe means what it says.
    void forgetTypedAhead();
    /// Takes what comes within the limit. @return false when nothing more can come
    bool read(int limitMs);
    /// The next line that is whole, without its end. @return false when there is none yet
    bool takeLine(QByteArray *line);
    bool isEmpty() const { return m_pending.isEmpty(); }

private:
    const int m_descriptor;
    QByteArray m_pending;
};

#endif
