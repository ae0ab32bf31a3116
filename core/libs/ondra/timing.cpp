#include "ondra/timing.h"

#include <algorithm>
#include <limits>

#include <sched.h>
#include <unistd.h>

#include <QElapsedTimer>

namespace ondra {

namespace {

using Count = Clock::rep;

/// Longest single usleep(), in microseconds; its argument has 32 bits.
constexpr Count kLongestSleep = 1'000'000'000;

Count saturating_sum(Count a, Count b) noexcept {
    Count sum = 0;
    if (!__builtin_add_overflow(a, b, &sum)) {
        return sum;
    }
    return b > 0 ? std::numeric_limits<Count>::max() : std::numeric_limits<Count>::min();
}

/// Towards zero; outside the 64-bit range its nearer end.
Clock::duration truncate(double nanoseconds) noexcept {
    constexpr double kTwoTo63 = 9223372036854775808.0;
    if (nanoseconds >= kTwoTo63) {
        return Clock::duration::max();
    }
    if (nanoseconds < -kTwoTo63) {
        return Clock::duration::min();
    }
    return Clock::duration(static_cast<Count>(nanoseconds));
}

}  // namespace

Clock::time_point Clock::now() {
    // A local static is started once, also when two threads come here first together.
    static const QElapsedTimer timer = [] {
        QElapsedTimer started;
        started.start();
        return started;
    }();
    return time_point(duration(timer.nsecsElapsed()));
}

Clock::time_point saturating_add(Clock::time_point t, Clock::duration d) noexcept {
    return Clock::time_point(saturating_add(t.time_since_epoch(), d));
}

Clock::duration saturating_add(Clock::duration a, Clock::duration b) noexcept {
    return Clock::duration(saturating_sum(a.count(), b.count()));
}

void sleep_for(Clock::duration d) {
    if (d <= Clock::duration::zero()) {
        return;
    }
    Count left = d.count() / 1000;
    do {
        const Count part = std::min(left, kLongestSleep);
        // A signal ends the whole sleep early, as it ends a single usleep().
        if (usleep(static_cast<useconds_t>(part)) != 0) {
            return;
        }
        left -= part;
    } while (left > 0);
}

void sleep_until(Clock::time_point t) {
    const Clock::time_point now = Clock::now();
    if (now < t) {
        sleep_for(t - now);
    }
}

void wait_until(Clock::time_point t) {
    while (Clock::now() < t) {
        sched_yield();
    }
}

void wait_for(Clock::duration d) {
    wait_until(saturating_add(Clock::now(), d));
}

void wait_while(const std::function<bool()>& predicate) {
    while (predicate()) {
        sched_yield();
    }
}

bool wait_while(const std::function<bool()>& predicate, Clock::duration timeout) {
    const Clock::time_point deadline = saturating_add(Clock::now(), timeout);
    while (predicate()) {
        if (Clock::now() >= deadline) {
            return false;
        }
        sched_yield();
    }
    return true;
}

Clock::duration calculate_delay(int fps) {
    if (fps <= 0) {
        return std::chrono::seconds(1);
    }
    return truncate(1000000000.0 / fps);
}

Clock::duration calculate_delay(Clock::duration delay, int speed_boost) {
    const auto x = static_cast<double>(delay.count());
    if (speed_boost < -100) {
        return truncate(2 * x);
    }
    if (speed_boost <= 0) {
        return truncate(x - x * speed_boost / 100);
    }
    if (speed_boost <= 100) {
        return truncate(x - x * speed_boost / 100 * 0.5);
    }
    return truncate(x - x * 0.5);
}

}  // namespace ondra
