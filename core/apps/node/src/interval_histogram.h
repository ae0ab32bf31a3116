#pragma once
// How long something took, time after time.

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <map>

namespace node {

/// Counts durations in classes of less than 1 % width; minimum and maximum are exact. A run of days takes no
/// more memory than one of seconds.
class IntervalHistogram {
public:
    using Duration = std::chrono::nanoseconds;

    /// Less than nothing (a clock that was set back) counts as nothing.
    void add(Duration time);

    [[nodiscard]] std::uint64_t count() const { return count_; }
    /// Zero while nothing has been counted; as the two below.
    [[nodiscard]] Duration min() const { return min_; }
    [[nodiscard]] Duration max() const { return max_; }
    /// The upper end of the class that holds the share's last duration, at most max().
    /// @param share  0 to 1
    [[nodiscard]] Duration quantile(double share) const;

private:
    /// Number of durations by the upper end of their class, in nanoseconds.
    std::map<std::int64_t, std::uint64_t> classes_;
    std::uint64_t count_ = 0;
    Duration min_{0};
    Duration max_{0};
};

}  // namespace node
