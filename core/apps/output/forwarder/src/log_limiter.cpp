#include "log_limiter.h"

#include <algorithm>
#include <utility>

namespace forwarder {

std::optional<std::uint64_t> LogLimiter::admit(Clock::time_point now) noexcept {
    if (tokens_ < burst_ && now > filled_) {
        const auto earned = (now - filled_) / interval_;
        filled_ += earned * interval_;
        tokens_ = static_cast<unsigned>(std::min<std::int64_t>(earned + tokens_, burst_));
    }
    if (tokens_ == burst_) {
        filled_ = now;
    }
    if (tokens_ == 0) {
        ++suppressed_;
        return std::nullopt;
    }
    --tokens_;
    return std::exchange(suppressed_, 0);
}

std::optional<std::uint64_t> admit(LogLimiter& own, LogLimiter& common,
                                   LogLimiter::Clock::time_point now) noexcept {
    const auto own_withheld = own.admit(now);
    if (!own_withheld) {
        return std::nullopt;
    }
    const auto common_withheld = common.admit(now);
    if (!common_withheld) {
        common.take_over(*own_withheld);
        return std::nullopt;
    }
    return *own_withheld + *common_withheld;
}

}  // namespace forwarder
