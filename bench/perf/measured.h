/// What the performance report is made of: processes on a virtual keypad, and
/// the middle of many measurements.
#ifndef BENCH_PERF_MEASURED_H
#define BENCH_PERF_MEASURED_H

#include "bench/keypad/virtualkeypad.h"

#include <QByteArray>
#include <QMap>
#include <QString>
#include <QStringList>

#include <vector>

/// A program in the tool's place on a keypad of its own. Its output is thrown away
/// unread, so that reading it takes no time.
class Subject
{
public:
    /// @param program  of this build: "mftool", "perf-responder"
    /// @param wrapper  put before it, for example valgrind, by its whole path
    explicit Subject(const QString &program, const QStringList &arguments = QStringList(),
                     const QStringList &wrapper = QStringList());

    /// @return milliseconds from the start of the process to its ready frame; ends this
    /// process with the reason when there is none
    double start();

    /// Sends @p request and waits for one whole line. @return microseconds
    double exchange(const QByteArray &request);

    /// Sends the exit request and waits for the end.
    void finish();

    qint64 pid() { return m_keypad.toolPid(); }
    VirtualKeypad &keypad() { return m_keypad; }

private:
    QByteArray readLine();

    VirtualKeypad m_keypad;
    QByteArray m_rest;
};

/// The values of smaps_rollup in KiB: "Rss", and "Unique", which the process does not
/// share.
QMap<QString, double> memoryOf(qint64 pid);

/// How often any thread of @p pid has been switched to and away from.
qint64 contextSwitches(qint64 pid);

double median(std::vector<double> values);

#endif
