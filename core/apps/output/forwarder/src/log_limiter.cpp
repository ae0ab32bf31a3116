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

}  // namespace forwarder
