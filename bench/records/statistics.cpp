#include "bench/records/statistics.h"

#include <algorithm>
#include <cmath>

namespace
{

const int WantedBars = 20;

/// The next of 1, 2, 5, 10, 20 ... that is not smaller.
double roundedUp(double width)
{
    const double power = std::pow(10, std::floor(std::log10(width)));
    for (const double step : {1.0, 2.0, 5.0}) {
        if (width <= step * power * (1 + 1e-9))
            return step * power;
    }
    return 10 * power;
}

} // namespace

std::optional<double> Statistics::cp(std::optional<double> minimum,
                                     std::optional<double> maximum) const
{
    if (!minimum || !maximum || count < 2 || deviation <= 0)
        return std::nullopt;
    return (*maximum - *minimum) / (6 * deviation);
}

std::optional<double> Statistics::cpk(std::optional<double> minimum,
                                      std::optional<double> maximum) const
{
    if ((!minimum && !maximum) || count < 2 || deviation <= 0)
        return std::nullopt;
    const double below = minimum ? mean - *minimum : HUGE_VAL;
    const double above = maximum ? *maximum - mean : HUGE_VAL;
    return std::min(below, above) / (3 * deviation);
}

Bins chooseBins(const Statistics &values, std::optional<double> minimum,
                std::optional<double> maximum, bool whole)
{
    const double spread = values.most - values.least;
    double least = values.least;
    double most = values.most;
    // A limit far away from all values would leave only one bar for them. Values that are all
    // alike have no more than one anyway.
    const double near = spread > 0 ? 4 * spread : HUGE_VAL;
    if (minimum && least - *minimum <= near)
        least = std::min(least, *minimum);
    if (maximum && *maximum - most <= near)
        most = std::max(most, *maximum);
    if (most <= least)
        return {least - 0.5, 1, 1};
    Bins bins;
    bins.width = roundedUp((most - least) / WantedBars);
    if (whole)
        bins.width = std::max(1.0, bins.width);
    bins.from = std::floor(least / bins.width) * bins.width;
    bins.count = static_cast<int>(std::floor((most - bins.from) / bins.width + 1e-9)) + 1;
    return bins;
}
