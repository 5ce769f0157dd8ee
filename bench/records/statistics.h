/// Statistics of many values of one quantity.
#ifndef BENCH_RECORDS_STATISTICS_H
#define BENCH_RECORDS_STATISTICS_H

#include <QVector>

#include <optional>

struct Statistics {
    qint64 count = 0;
    double mean = 0;
    double deviation = 0; ///< standard deviation of the sample, n - 1
    double least = 0;
    double most = 0;

    /// How well the spread fits between the limits, (max - min) / 6 deviations: needs
    /// both limits. Absent when it has no meaning: with fewer than two values, or when
    /// all are equal.
    std::optional<double> cp(std::optional<double> minimum, std::optional<double> maximum) const;
    /// The same for the mean as it is: its distance to the nearer limit / 3 deviations.
    std::optional<double> cpk(std::optional<double> minimum, std::optional<double> maximum) const;
};

/// Where the bars of a histogram are.
struct Bins {
    double from = 0;
    double width = 1; ///< of a bar
    int count = 1;

    double edge(int bar) const { return from + width * bar; }
    double to() const { return edge(count); }
};

/// About twenty bars of a round width over all values, and over the limits if the values
/// come near them, so that the limits can be drawn. Bars of whole numbers when @p whole.
Bins chooseBins(const Statistics &values, std::optional<double> minimum,
                std::optional<double> maximum, bool whole);

#endif
