#pragma once
// Keeps a repeated log line from flooding the log.

#include <chrono>
#include <cstdint>
#include <optional>

namespace forwarder {

/// Lets `burst` lines through at once and one more each `interval`, and counts the others. Used by one
/// thread.
class LogLimiter {
public:
    using Clock = std::chrono::steady_clock;

    LogLimiter(unsigned burst, Clock::duration interval)
        : burst_(burst), interval_(interval), tokens_(burst) {}

    /// Number of lines withheld since the last one let through when this one may be written; nothing when
    /// not.
    [[nodiscard]] std::optional<std::uint64_t> admit(Clock::time_point now) noexcept;

private:
    unsigned burst_;
    Clock::duration interval_;
    unsigned tokens_;
    std::uint64_t suppressed_ = 0;
    /// Time up to which tokens have been given out; meaningless while tokens_ is full.
    Clock::time_point filled_;
};

}  // namespace forwarder
