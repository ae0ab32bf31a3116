#include "lateness.h"

#include <algorithm>

#include "percentile.h"

namespace monitor {

namespace {

using std::chrono::nanoseconds;

std::vector<nanoseconds> sorted_copy(std::span<const nanoseconds> lateness) {
    std::vector<nanoseconds> sorted(lateness.begin(), lateness.end());
    std::ranges::sort(sorted);
    return sorted;
}

/// The smallest of 1, 2 and 5 times a power of ten that is not below `width`.
nanoseconds round_up(nanoseconds width) {
    for (std::int64_t unit = 1;; unit *= 10) {
        for (const std::int64_t times : {1, 2, 5}) {
            if (nanoseconds(times * unit) >= width || unit >= 1'000'000'000'000'000) {
                return nanoseconds(times * unit);
            }
        }
    }
}

nanoseconds floor_to(nanoseconds value, nanoseconds unit) {
    const std::int64_t quotient = value / unit;
    return (value % unit < nanoseconds::zero() ? quotient - 1 : quotient) * unit;
}

}  // namespace

LatenessFigures figures_of(std::span<const nanoseconds> lateness) {
    const std::vector<nanoseconds> sorted = sorted_copy(lateness);
    if (sorted.empty()) {
        return {};
    }
    const std::span<const nanoseconds> all(sorted);
    return {all.front(), percentile(all, 500), percentile(all, 990), percentile(all, 999), all.back()};
}

LatenessHistogram histogram_of(std::span<const nanoseconds> lateness, std::size_t steps) {
    const std::vector<nanoseconds> sorted = sorted_copy(lateness);
    const std::span<const nanoseconds> all(sorted);
    const nanoseconds low = percentile(all, 1);
    const nanoseconds high = percentile(all, 999);
    LatenessHistogram histogram;
    histogram.counts.resize(steps);
    const auto count = static_cast<std::int64_t>(steps);
    nanoseconds width = round_up(std::max((high - low) / count + nanoseconds(1), nanoseconds(1)));
    histogram.from = floor_to(low, width);
    // Rounding the begin down may have pushed the end out.
    while (histogram.from + count * width <= high) {
        width = round_up(width + nanoseconds(1));
        histogram.from = floor_to(low, width);
    }
    histogram.to = histogram.from + count * width;
    for (const nanoseconds each : all) {
        if (each < histogram.from) {
            ++histogram.below;
        } else if (each >= histogram.to) {
            ++histogram.beyond;
        } else {
            ++histogram.counts[static_cast<std::size_t>((each - histogram.from) / width)];
        }
    }
    return histogram;
}

}  // namespace monitor
