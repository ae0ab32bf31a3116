#include "frame_statistics.h"

#include <algorithm>

namespace node {

namespace {

/// So long after an ArtSync a sender is taken to have stopped sending them.
constexpr std::chrono::seconds kSyncMemory{4};

}  // namespace

void FrameStatistics::take_dmx(std::uint16_t universe, Arrival arrival) {
    const bool synced = last_sync_ && arrival - *last_sync_ < kSyncMemory;
    const bool paused = !synced && arrival - latest_ >= gap_;
    if (!frame_.empty() && (paused || frame_.contains(universe))) {
        end_frame();
    }
    if (frame_.empty()) {
        first_ = arrival;
    }
    frame_.insert(universe);
    latest_ = arrival;
}

void FrameStatistics::take_sync(Arrival arrival) {
    ++syncs_;
    last_sync_ = arrival;
    if (!frame_.empty()) {
        end_frame();
    }
}

void FrameStatistics::end_frame() {
    if (!known_.empty()) {
        spread_.add(latest_ - first_);
        incomplete_ += std::ranges::includes(frame_, known_) ? 0U : 1U;
    }
    known_.insert(frame_.begin(), frame_.end());
    frame_.clear();
}

}  // namespace node
