/// Live output of a run that a person can follow: one line a step, in colour
/// and with a running line of progress on a terminal, as plain text in a file.
#ifndef BENCH_LINE_CONSOLE_H
#define BENCH_LINE_CONSOLE_H

#include "bench/line/linewatcher.h"

#include <QElapsedTimer>

#include <cstdio>

class Console : public LineWatcher
{
public:
    /// @param isTerminal  whether lines on @p out can be erased; then it shows colour,
    ///                    too, unless NO_COLOR is set
    /// @param interrupt   raised when nobody reads @p out any more; may be null
    Console(FILE *out, bool isTerminal, Interrupt *interrupt = nullptr);

    /// Whether a stream should be written to as a terminal.
    static bool isTerminal(FILE *out);

    void begin(const Plan &plan, const UnitRecord &unit, int units) override;
    void stepStarted(const Plan::Step &step, int number) override;
    void progressed(const QString &text) override;
    void stepEnded(const StepRecord &step) override;
    void end(const UnitRecord &unit, const QString &files) override;
    /// Yield and times.
    void summary(const QList<UnitRecord> &units, const QString &files) override;
    void told(const QString &about, const QString &text) override;
    /// "pass" in its colour.
    QString shown(Outcome outcome) const;

private:
    void flush();
    void line(const QString &text);
    void detail(const char *title, const QString &text);
    void reportIn(const QString &files);
    void showProgress(const QString &text);
    void eraseProgress();

    FILE *m_out;
    const bool m_isTerminal;
    const bool m_hasColour;
    Interrupt *const m_interrupt;
    int m_steps = 0;
    int m_nameWidth = 0;
    QString m_running; ///< the step that runs, for lines of progress
    bool m_hasProgress = false;
    QElapsedTimer m_sinceProgress;
};

#endif
