#include "universe_statistics.h"

#include <algorithm>

namespace node {

namespace {

/// Sequence numbers run from 1 to 255 and begin again.
constexpr unsigned kSequenceNumbers = 255;
/// A step of more than that is one back.
constexpr unsigned kLongestStep = 127;

}  // namespace

void UniverseStatistics::take(std::uint8_t sequence, std::span<const std::uint8_t> levels, Arrival arrival,
                              const capture::Endpoint& sender) {
    if (packets_ == 0) {
        first_ = arrival;
    } else {
        intervals_.add(arrival - latest_);
    }
    latest_ = arrival;
    ++packets_;
    level_count_ = std::min(levels.size(), kShownLevels);
    std::copy_n(levels.begin(), level_count_, levels_.begin());

    const auto known = last_.find(sender);
    if (known != last_.end()) {
        watch_sequence(sequence, known->second);
    } else if (last_.size() < kMaxSenders) {
        last_[sender] = {sequence};
    }
}

void UniverseStatistics::watch_sequence(std::uint8_t sequence, Last& last) {
    if (sequence == 0 || last.sequence == 0) {
        last = {sequence};
        return;
    }
    const unsigned step = (sequence + kSequenceNumbers - last.sequence) % kSequenceNumbers;
    if (step == 0) {
        ++repeated_;
    } else if (step <= kLongestStep) {
        lost_ += step - 1;
        last = {sequence};
    } else if (last.was_late) {
        // Two in a row: the sender has begun anew, and the one before was its first.
        --late_;
        lost_ += last.thought_lost ? 1U : 0U;
        last = {sequence};
    } else {
        ++late_;
        last.was_late = true;
        last.thought_lost = lost_ > 0;
        lost_ -= last.thought_lost ? 1U : 0U;
    }
}

double UniverseStatistics::fps() const {
    const std::chrono::duration<double> time = latest_ - first_;
    return time.count() > 0 ? static_cast<double>(packets_ - 1) / time.count() : 0.0;
}

}  // namespace node
