#include "capture/sequence_counter.h"

namespace capture {

namespace {

constexpr unsigned kNumbers = 255;
constexpr unsigned kFarthestAhead = 127;
constexpr unsigned kRestartRun = 4;

/// Steps from `from` on to `to`, both 1 to 255.
unsigned steps(std::uint8_t from, std::uint8_t to) noexcept {
    return (unsigned{to} + kNumbers - from) % kNumbers;
}

}  // namespace

void SequenceCounter::add(std::uint8_t sequence) noexcept {
    if (sequence == 0 || last_ == 0) {
        last_ = sequence;
        behind_run_ = 0;
        return;
    }
    const unsigned ahead = steps(last_, sequence);
    if (ahead == 0) {
        ++repeated_;
        return;
    }
    if (ahead <= kFarthestAhead) {
        lost_ += ahead - 1;
        last_ = sequence;
        behind_run_ = 0;
        return;
    }
    ++late_;
    if (lost_ > 0) {
        // It was taken for lost when the later one came.
        --lost_;
    }
    behind_run_ = behind_run_ > 0 && steps(behind_, sequence) == 1 ? behind_run_ + 1 : 1;
    behind_ = sequence;
    if (behind_run_ == kRestartRun) {
        // None of them was late.
        late_ -= kRestartRun;
        ++restarts_;
        last_ = sequence;
        behind_run_ = 0;
    }
}

}  // namespace capture
