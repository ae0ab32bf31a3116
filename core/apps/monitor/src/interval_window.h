#pragma once
// The times at which packets of one stream came, over a sliding window.

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace monitor {

/// What the window holds.
struct IntervalFigures {
    /// Upper bounds of the histogram's steps, in milliseconds; the last step has none. The steps are finest
    /// around the intervals of 44, 40, 30 and 25 frames a second.
    static constexpr std::array<double, 12> kBounds{1, 2, 5, 10, 15, 20, 22, 24, 26, 30, 45, 100};

    /// Packets a second; 0 when there are fewer than two, or the last one is too old.
    double fps = 0;
    /// Milliseconds; 0 without an interval.
    double p50 = 0;
    double p99 = 0;
    double max = 0;
    /// Longest interval since the stream began.
    double worst = 0;
    /// Intervals up to each bound, and beyond the last.
    std::array<std::uint64_t, kBounds.size() + 1> histogram{};
};

/// Of one stream; about 4 KiB. One thread.
class IntervalWindow {
public:
    static constexpr std::size_t kMostTimes = 512;
    static constexpr std::chrono::seconds kWindow{5};
    /// After this time without a packet the rate shows as 0.
    static constexpr std::chrono::seconds kIdleAfter{2};

    /// @param time  not before the one added last
    void add(std::chrono::nanoseconds time);
    [[nodiscard]] IntervalFigures figures(std::chrono::nanoseconds now) const;
    /// Since the start.
    [[nodiscard]] std::uint64_t packets() const noexcept { return count_; }

private:
    /// The times within the window, oldest first.
    [[nodiscard]] std::vector<std::chrono::nanoseconds> recent(std::chrono::nanoseconds now) const;

    /// Ring of the latest times; the next one goes to index count_ % kMostTimes.
    std::array<std::chrono::nanoseconds, kMostTimes> times_{};
    std::uint64_t count_ = 0;
    std::chrono::nanoseconds worst_{0};
};

}  // namespace monitor
