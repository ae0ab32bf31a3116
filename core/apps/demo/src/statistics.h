#pragma once
// Arithmetic on arrival times.

#include <cstdint>
#include <span>

namespace demo {

/// Nanoseconds between arrivals: smallest value that 50 and 99 percent do not exceed, and the longest.
struct IntervalStatistics {
    std::int64_t p50 = 0;
    std::int64_t p99 = 0;
    std::int64_t max = 0;

    bool operator==(const IntervalStatistics&) const = default;
};

/// All zero for fewer than two arrivals.
[[nodiscard]] IntervalStatistics interval_statistics(std::span<const std::int64_t> arrivals);

/**
 * Arrivals per second: from the slope of the straight line that fits the arrival times (nanoseconds) best.
 *
 * A packet that comes late moves the line far less than it would move the time from the first to the last.
 * Returns 0 for fewer than two arrivals, or when no time passes.
 */
[[nodiscard]] double mean_rate(std::span<const std::int64_t> arrivals);

/// Whether a measured rate lies within 2 % of the expected one.
[[nodiscard]] bool rate_agrees(double expected, double measured);

}  // namespace demo
