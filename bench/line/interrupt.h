/// A request to end a run early: a signal, or an output that nobody reads any more.
/// Whoever waits checks it; a signal's handler does nothing else.
#ifndef BENCH_LINE_INTERRUPT_H
#define BENCH_LINE_INTERRUPT_H

#include <QString>

#include <csignal>
#include <cstdio>

class Interrupt
{
public:
    /// The signal that tells the process of one unit that nobody reads the output of the batch.
    static constexpr int OutputLost = SIGUSR1;

    Interrupt() = default;
    ~Interrupt();
    Q_DISABLE_COPY(Interrupt)

    /// From now on SIGHUP (unless the process was started with it ignored, as nohup
    /// does), SIGINT, SIGQUIT and SIGTERM raise this one, and the next SIGINT, SIGQUIT or
    /// SIGTERM ends the process at once. A terminal that closes may send SIGHUP more than
    /// once, so it never does. A broken pipe is a write that fails, see flush(). Only one
    /// at a time can do this; the former handlers are restored at the end.
    /// @param isOfBatch  OutputLost raises it, too
    void followSignals(bool isOfBatch = false);

    /// @param cause  a signal's number; the first one stays. Safe in a handler.
    void raise(int cause = SIGINT);
    bool isRaised() const { return m_cause != 0; }
    /// The signal's number; 0 while it is not raised.
    int cause() const { return m_cause; }
    /// "interrupted", with the cause if a person did not type it.
    QString reason() const;

    /// Flushes @p out; raised when nobody reads it any more.
    void flush(FILE *out);

private:
    volatile std::sig_atomic_t m_cause = 0;
    bool m_follows = false;
};

#endif
