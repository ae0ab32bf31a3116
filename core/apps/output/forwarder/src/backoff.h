#pragma once
// When to try a failing destination again.

#include <chrono>

namespace forwarder {

/**
 * Pause after errors: 100 ms after the first, doubled with each further one, at most 2 s; one success ends
 * it.
 *
 * Short enough that a node that comes back is lit again within two seconds. Used by one thread.
 */
class Backoff {
public:
    using Clock = std::chrono::steady_clock;

    static constexpr std::chrono::milliseconds kFirstPause{100};
    static constexpr std::chrono::milliseconds kLongestPause{2000};

    /// True when sending may be tried.
    [[nodiscard]] bool ready(Clock::time_point now) const noexcept { return now >= until_; }
    void failed(Clock::time_point now) noexcept;
    void succeeded() noexcept;

private:
    /// Next pause; grows with each failure.
    std::chrono::milliseconds pause_ = kFirstPause;
    Clock::time_point until_ = Clock::time_point::min();
};

}  // namespace forwarder
