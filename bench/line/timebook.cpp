#include "bench/line/timebook.h"

#include <algorithm>
#include <iterator>

void TimeBook::start()
{
    std::fill(std::begin(m_nanoseconds), std::end(m_nanoseconds), 0);
    m_share = Bench;
    m_clock.start();
}

TimeBook::Share TimeBook::turnTo(Share share)
{
    m_nanoseconds[m_share] += m_clock.nsecsElapsed();
    m_clock.start();
    const Share before = m_share;
    m_share = share;
    return before;
}

TimeSpent TimeBook::spent()
{
    turnTo(m_share);
    const auto seconds = [this](Share share) {
        return static_cast<double>(m_nanoseconds[share]) / 1e9;
    };
    TimeSpent spent;
    spent.tool = seconds(Tool);
    spent.flash = seconds(Flash);
    spent.operatorAt = seconds(Operator);
    spent.bench = seconds(Bench);
    return spent;
}
