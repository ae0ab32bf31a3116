#include "capture/stamp_clock.h"

#include <ctime>

namespace capture {

namespace {

/// A look that took longer was interrupted and says nothing.
constexpr std::chrono::microseconds kLongestLook{100};

std::chrono::nanoseconds read(clockid_t clock) noexcept {
    timespec time{};
    clock_gettime(clock, &time);
    return std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
}

}  // namespace

void StampClock::look() noexcept {
    const std::chrono::nanoseconds before = read(CLOCK_MONOTONIC);
    const std::chrono::nanoseconds wall = read(CLOCK_REALTIME);
    const std::chrono::nanoseconds after = read(CLOCK_MONOTONIC);
    if (after - before <= kLongestLook) {
        observe(wall, before);
    }
}

void StampClock::observe(std::chrono::nanoseconds wall, std::chrono::nanoseconds steady) noexcept {
    const std::chrono::nanoseconds offset = wall - steady;
    if (observed_ && std::chrono::abs(offset - offset_) >= kSmallestStep) {
        correction_ -= offset - offset_;
    }
    offset_ = offset;
    observed_ = true;
}

std::chrono::nanoseconds StampClock::now() const noexcept {
    return steady(read(CLOCK_REALTIME));
}

}  // namespace capture
