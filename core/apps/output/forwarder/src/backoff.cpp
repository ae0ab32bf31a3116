#include "backoff.h"

#include <algorithm>

namespace forwarder {

void Backoff::failed(Clock::time_point now) noexcept {
    until_ = now + pause_;
    pause_ = std::min(pause_ * 2, kLongestPause);
}

void Backoff::succeeded() noexcept {
    pause_ = kFirstPause;
    until_ = Clock::time_point::min();
}

}  // namespace forwarder
