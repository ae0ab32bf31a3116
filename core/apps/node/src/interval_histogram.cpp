#include "interval_histogram.h"

#include <bit>
#include <cmath>

namespace node {

namespace {

/// Classes of the values between two powers of two.
constexpr unsigned kClassBits = 7;

std::int64_t upper_end(std::int64_t value) {
    const auto width = static_cast<unsigned>(std::bit_width(static_cast<std::uint64_t>(value)));
    if (width <= kClassBits) {
        return value;
    }
    const std::int64_t mask = (std::int64_t{1} << (width - kClassBits - 1)) - 1;
    return value | mask;
}

}  // namespace

void IntervalHistogram::add(Duration time) {
    time = std::max(time, Duration{0});
    min_ = count_ == 0 ? time : std::min(min_, time);
    max_ = std::max(max_, time);
    ++count_;
    ++classes_[upper_end(time.count())];
}

IntervalHistogram::Duration IntervalHistogram::quantile(double share) const {
    const auto wanted = static_cast<std::uint64_t>(std::ceil(share * static_cast<double>(count_)));
    std::uint64_t passed = 0;
    for (const auto& [end, number] : classes_) {
        passed += number;
        if (passed >= wanted) {
            return std::min(Duration{end}, max_);
        }
    }
    return max_;
}

}  // namespace node
