/// Keeps account of what a unit's time is spent on.
#ifndef BENCH_LINE_TIMEBOOK_H
#define BENCH_LINE_TIMEBOOK_H

#include "bench/line/record.h"

#include <QElapsedTimer>

class TimeBook
{
public:
    enum Share { Bench, Tool, Flash, Operator };

    /// While it lives the time goes on one share; afterwards on the one before.
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

    /// From here on time counts, as the bench's own.
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
