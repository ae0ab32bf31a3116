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
    /// Adds lines that another limiter withheld, and that nobody would tell of otherwise.
    void take_over(std::uint64_t withheld) noexcept { suppressed_ += withheld; }

private:
    unsigned burst_;
    Clock::duration interval_;
    unsigned tokens_;
    std::uint64_t suppressed_ = 0;
    /// Time up to which tokens have been given out; meaningless while tokens_ is full.
    Clock::time_point filled_;
};

/**
 * Asks both for one line: `own`, which looks after lines of one kind, and `common`, which looks after all
 * kinds.
 *
 * The number of lines that either withheld when both let it through; nothing when not. What `own` had
 * withheld is told by the next line that passes `common` when this one does not.
 */
[[nodiscard]] std::optional<std::uint64_t> admit(LogLimiter& own, LogLimiter& common,
                                                 LogLimiter::Clock::time_point now) noexcept;

}  // namespace forwarder
