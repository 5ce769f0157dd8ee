/// Keeps account of what a unit's time is spent on.
#ifndef BENCH_LINE_TIMEBOOK_H
#define BENCH_LINE_TIMEBOOK_H

#include "bench/line/record.h"

#include <QElapsedTimer>

class TimeBook
{
public:
    enum Share { Bench, Tool, Flash, Operator };

    /// While it lives, time is charged to one share; afterwards to the one before.
    class Visit
    {
    public:
        Visit(TimeBook *book, Share share) : m_book(book), m_before(book->turnTo(share)) {}
        ~Visit() { m_book->turnTo(m_before); }
        Visit(const Visit &) = delete;
        Visit &operator=(const Visit &) = delete;

    private:
        TimeBook *m_book;
        const Share m_before;
    };

    /// Starts counting; the time is the bench's own at first.
    void start();
    /// So far.
    TimeSpent spent();

private:
    Share turnTo(Share share);

    QElapsedTimer m_clock;
    Share m_share = Bench;
    qint64 m_nanoseconds[4] = {0, 0, 0, 0};
};

#endif
