#include "interval_window.h"

#include <algorithm>

#include "percentile.h"

namespace monitor {

namespace {

double milliseconds(std::chrono::nanoseconds time) {
    return std::chrono::duration<double, std::milli>(time).count();
}

}  // namespace

void IntervalWindow::add(std::chrono::nanoseconds time) {
    if (count_ > 0) {
        worst_ = std::max(worst_, time - times_[(count_ - 1) % kMostTimes]);
    }
    times_[count_++ % kMostTimes] = time;
}

std::vector<std::chrono::nanoseconds> IntervalWindow::recent(std::chrono::nanoseconds now) const {
    std::vector<std::chrono::nanoseconds> times;
    for (std::uint64_t i = count_ - std::min<std::uint64_t>(count_, kMostTimes); i < count_; ++i) {
        if (times_[i % kMostTimes] + kWindow >= now) {
            times.push_back(times_[i % kMostTimes]);
        }
    }
    return times;
}

IntervalFigures IntervalWindow::figures(std::chrono::nanoseconds now) const {
    IntervalFigures figures;
    figures.worst = milliseconds(worst_);
    const std::vector<std::chrono::nanoseconds> times = recent(now);
    std::vector<double> intervals;
    for (std::size_t i = 1; i < times.size(); ++i) {
        const double interval = milliseconds(times[i] - times[i - 1]);
        intervals.push_back(interval);
        const auto bound = std::ranges::lower_bound(IntervalFigures::kBounds, interval);
        ++figures.histogram[static_cast<std::size_t>(bound - IntervalFigures::kBounds.begin())];
    }
    if (intervals.empty()) {
        return figures;
    }
    std::ranges::sort(intervals);
    const std::span<const double> sorted(intervals);
    figures.p50 = percentile(sorted, 500);
    figures.p99 = percentile(sorted, 990);
    figures.max = sorted.back();
    if (times.back() > times.front() && times.back() + kIdleAfter >= now) {
        figures.fps = static_cast<double>(intervals.size()) /
                      std::chrono::duration<double>(times.back() - times.front()).count();
    }
    return figures;
}

}  // namespace monitor
