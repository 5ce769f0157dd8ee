/// What a run says to another program: one JSON object a line.
#ifndef BENCH_LINE_JSONSTREAM_H
#define BENCH_LINE_JSONSTREAM_H

#include "bench/line/interrupt.h"

#include <QJsonObject>
#include <QString>

#include <cstdio>

class JsonStream
{
public:
    /// @param fixture    "fixture" of every line; empty for none
    /// @param interrupt  raised when nobody reads @p out any more; may be null
    JsonStream(FILE *out, const QString &fixture, Interrupt *interrupt = nullptr)
        : m_out(out), m_fixture(fixture), m_interrupt(interrupt)
    {
    }

    /// Writes @p object with the member "event", at once.
    void say(const char *event, QJsonObject object);

private:
    FILE *m_out;
    const QString m_fixture;
    Interrupt *m_interrupt;
};

#endif
