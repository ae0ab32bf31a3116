#include "statistics.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <vector>

namespace demo {

namespace {

constexpr double kTolerance = 0.02;
constexpr double kNanosecondsPerSecond = 1e9;

/// Of sorted values, at least one; `percent` is 1 to 100.
std::int64_t percentile(std::span<const std::int64_t> sorted, std::size_t percent) {
    return sorted[(sorted.size() * percent + 99) / 100 - 1];
}

}  // namespace

IntervalStatistics interval_statistics(std::span<const std::int64_t> arrivals) {
    std::vector<std::int64_t> intervals;
    for (std::size_t i = 1; i < arrivals.size(); ++i) {
        intervals.push_back(arrivals[i] - arrivals[i - 1]);
    }
    if (intervals.empty()) {
        return {};
    }
    std::ranges::sort(intervals);
    return {percentile(intervals, 50), percentile(intervals, 99), intervals.back()};
}

double mean_rate(std::span<const std::int64_t> arrivals) {
    if (arrivals.size() < 2) {
        return 0;
    }
    const auto count = static_cast<double>(arrivals.size());
    const double middle = (count - 1) / 2;
    double covariance = 0;
    double variance = 0;
    for (std::size_t i = 0; i < arrivals.size(); ++i) {
        const double index = static_cast<double>(i) - middle;
        // From the first arrival on: a double cannot hold nanoseconds since 1970.
        covariance += index * static_cast<double>(arrivals[i] - arrivals[0]);
        variance += index * index;
    }
    const double period = covariance / variance;
    return period > 0 ? kNanosecondsPerSecond / period : 0;
}

bool rate_agrees(double expected, double measured) {
    return std::abs(measured - expected) <= expected * kTolerance;
}

}  // namespace demo
