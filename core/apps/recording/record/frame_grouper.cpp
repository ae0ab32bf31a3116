#include "frame_grouper.h"

#include <algorithm>
#include <utility>

namespace recording {

namespace {

/// Senders whose ArtSync is remembered; more are a flood.
constexpr std::size_t kMostSyncs = 256;

}  // namespace

std::optional<Frame> FrameGrouper::add(const CapturedDmx& packet) {
    std::optional<Frame> whole;
    if (frame_.packet_count == 0) {
        begin(packet.time);
    } else if (const std::optional<FrameEnd> end = end_before(packet)) {
        whole = std::exchange(frame_, {});
        whole->end = *end;
        // Packets may overtake each other on their way through the kernel, by a few microseconds.
        whole->delay = std::max(packet.time - whole->time, std::chrono::nanoseconds::zero());
        begin(whole->time + *whole->delay);
    }
    append(packet);
    return whole;
}

void FrameGrouper::sync(std::uint32_t sender, std::chrono::nanoseconds time) {
    if (syncs_.size() >= kMostSyncs && !syncs_.contains(sender)) {
        syncs_.clear();
    }
    syncs_[sender] = time;
    if (std::ranges::find(senders_, sender) != senders_.end()) {
        closed_ = true;
    }
}

std::optional<Frame> FrameGrouper::finish() {
    if (frame_.packet_count == 0) {
        return std::nullopt;
    }
    frame_.end = closed_ ? FrameEnd::Sync : FrameEnd::Finish;
    return std::exchange(frame_, {});
}

std::optional<FrameEnd> FrameGrouper::end_before(const CapturedDmx& packet) const {
    if (closed_) {
        return FrameEnd::Sync;
    }
    if (has_universe_[packet.universe]) {
        return FrameEnd::Repetition;
    }
    // The ArtSync of a sender says nothing about the packets of others.
    const bool waits_for_sync = std::ranges::all_of(senders_, [&](std::uint32_t sender) {
        return sender == packet.sender && is_synchronised(sender, packet.time);
    });
    if (!waits_for_sync && packet.time - latest_ > gap_) {
        return FrameEnd::Gap;
    }
    return std::nullopt;
}

bool FrameGrouper::is_synchronised(std::uint32_t sender, std::chrono::nanoseconds time) const {
    const auto found = syncs_.find(sender);
    return found != syncs_.end() && time - found->second <= kSyncHolds;
}

void FrameGrouper::begin(std::chrono::nanoseconds time) {
    for (const std::uint16_t universe : universes_) {
        has_universe_.reset(universe);
    }
    universes_.clear();
    senders_.clear();
    frame_ = {};
    frame_.time = time;
    closed_ = false;
    latest_ = time;
}

void FrameGrouper::append(const CapturedDmx& packet) {
    frame_.packets.insert(frame_.packets.end(), packet.bytes.begin(), packet.bytes.end());
    ++frame_.packet_count;
    has_universe_.set(packet.universe);
    universes_.push_back(packet.universe);
    if (std::ranges::find(senders_, packet.sender) == senders_.end()) {
        senders_.push_back(packet.sender);
    }
    latest_ = std::max(latest_, packet.time);
}

}  // namespace recording
