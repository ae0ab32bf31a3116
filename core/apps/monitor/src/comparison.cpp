#include "comparison.h"

#include <algorithm>

namespace monitor {

std::chrono::nanoseconds Comparison::due(const Packets& packets, std::uint64_t index) const {
    const auto round = static_cast<std::int64_t>(index / packets.size());
    std::int64_t result = 0;
    // A recording may stand for centuries; what is due beyond all time never is.
    if (__builtin_mul_overflow(round, timeline_.duration.count(), &result) ||
        __builtin_add_overflow(result, packets[static_cast<std::size_t>(index % packets.size())].due.count(),
                               &result)) {
        return std::chrono::nanoseconds::max();
    }
    return std::chrono::nanoseconds(result);
}

void Comparison::add(const ArrivedPacket& packet) {
    const auto expected = timeline_.universes.find(packet.universe);
    if (expected == timeline_.universes.end()) {
        ++counts_.ignored;
        return;
    }
    const Packets& packets = expected->second;
    Universe& universe = universes_[packet.universe];
    if (universe.peer && *universe.peer != packet.peer) {
        ++counts_.ignored;
        return;
    }
    if (!offset_ && !find_place(packets, packet)) {
        add_extra();
        return;
    }
    const std::optional<std::uint64_t> index = find(packets, universe, packet);
    if (!index) {
        add_extra();
        return;
    }
    extras_in_a_row_ = 0;
    counts_.missing += *index - universe.next;
    universe.next = *index + 1;
    universe.peer = packet.peer;
    ++counts_.matched;
    const std::chrono::nanoseconds due_time = due(packets, *index);
    reached_ = std::max(reached_, due_time);
    lateness_.push_back(packet.time - *offset_ - due_time);
}

bool Comparison::find_place(const Packets& packets, const ArrivedPacket& packet) {
    const auto same_levels = [&](const ExpectedPacket& each) { return each.levels == packet.levels; };
    auto place = std::ranges::find_if(packets, [&](const ExpectedPacket& each) {
        return same_levels(each) && packet.sequence != 0 && each.sequence == packet.sequence;
    });
    sequences_come_through_ = place != packets.end();
    if (!sequences_come_through_) {
        place = std::ranges::find_if(packets, same_levels);
    }
    if (place == packets.end()) {
        return false;
    }
    offset_ = packet.time - place->due;
    reached_ = place->due;
    for (const auto& [number, others] : timeline_.universes) {
        // The rest of this frame is still to come, also what stands before this packet in it.
        const auto next = std::ranges::lower_bound(others, place->due, {}, &ExpectedPacket::due);
        universes_[number].next = static_cast<std::uint64_t>(next - others.begin());
    }
    universes_[packet.universe].next = static_cast<std::uint64_t>(place - packets.begin());
    return true;
}

std::optional<std::uint64_t> Comparison::find(const Packets& packets, const Universe& universe,
                                              const ArrivedPacket& packet) const {
    const std::chrono::nanoseconds latest = packet.time - *offset_ + kEarliest;
    std::optional<std::uint64_t> first;
    for (std::uint64_t index = universe.next; due(packets, index) <= latest; ++index) {
        const ExpectedPacket& candidate = packets[static_cast<std::size_t>(index % packets.size())];
        if (candidate.levels != packet.levels) {
            continue;
        }
        if (!sequences_come_through_ || candidate.sequence == packet.sequence) {
            return index;
        }
        if (!first) {
            first = index;
        }
    }
    return first;
}

void Comparison::add_extra() {
    ++counts_.extra;
    if (++extras_in_a_row_ >= kLostAfter && offset_) {
        extras_in_a_row_ = 0;
        offset_.reset();
        ++counts_.resynchronised;
    }
}

void Comparison::finish() {
    if (!offset_) {
        return;
    }
    for (const auto& [number, packets] : timeline_.universes) {
        Universe& universe = universes_[number];
        // Of the frame that was matched last, the rest may have been on its way.
        for (; due(packets, universe.next) < reached_; ++universe.next) {
            ++counts_.missing;
        }
    }
}

}  // namespace monitor
