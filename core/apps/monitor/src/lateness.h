#pragma once
// Lateness in figures and as a histogram.

#include <chrono>
#include <cstdint>
#include <span>
#include <vector>

namespace monitor {

/// Smallest, usual and largest lateness; all 0 without a sample.
struct LatenessFigures {
    std::chrono::nanoseconds min{0};
    std::chrono::nanoseconds p50{0};
    std::chrono::nanoseconds p99{0};
    std::chrono::nanoseconds p999{0};
    std::chrono::nanoseconds max{0};

    bool operator==(const LatenessFigures&) const = default;
};

[[nodiscard]] LatenessFigures figures_of(std::span<const std::chrono::nanoseconds> lateness);

/// Counts of equal steps from `from` to `to`, and of what lies outside.
struct LatenessHistogram {
    std::chrono::nanoseconds from{0};
    std::chrono::nanoseconds to{0};
    std::vector<std::uint64_t> counts;
    std::uint64_t below = 0;
    std::uint64_t beyond = 0;
};

/**
 * Covers all but the outer thousandth on either side, so that a single stray does not flatten the rest; its
 * ends are round numbers.
 *
 * @param steps  1 or more
 */
[[nodiscard]] LatenessHistogram histogram_of(std::span<const std::chrono::nanoseconds> lateness,
                                             std::size_t steps);

}  // namespace monitor
