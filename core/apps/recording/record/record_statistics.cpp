#include "record_statistics.h"

#include <algorithm>
#include <numeric>

namespace recording {

namespace {

/// Senders of one universe whose sequence numbers are followed; more are a flood.
constexpr std::size_t kMostSenders = 64;

}  // namespace

std::optional<capture::SenderConflict> RecordStatistics::add_recorded(const capture::Arrival& arrival) {
    Universe& universe = universes_[arrival.dmx.universe];
    if (universe.packets == 0) {
        universe.first = arrival.time;
    }
    ++universe.packets;
    universe.last = std::max(universe.last, arrival.time);
    if (universe.senders.contains(arrival.peer) || universe.senders.size() < kMostSenders) {
        universe.senders[arrival.peer].add(arrival.dmx.sequence);
    }
    return senders_.add(arrival.dmx.universe, arrival.peer, arrival.time);
}

void RecordStatistics::add_unrecorded(artnet::PacketKind kind) noexcept {
    switch (kind) {
        case artnet::PacketKind::Malformed:
            ++not_recorded_.malformed;
            break;
        case artnet::PacketKind::NotArtNet:
            ++not_recorded_.not_artnet;
            break;
        default:
            ++not_recorded_.other;
    }
}

std::uint64_t RecordStatistics::frames() const noexcept {
    return std::accumulate(frames_.begin(), frames_.end(), std::uint64_t{0});
}

std::vector<UniverseFigures> RecordStatistics::universes() const {
    std::vector<UniverseFigures> all;
    for (const auto& [number, universe] : universes_) {
        UniverseFigures figures;
        figures.universe = number;
        figures.packets = universe.packets;
        const double seconds = std::chrono::duration<double>(universe.last - universe.first).count();
        figures.fps = seconds > 0 ? static_cast<double>(universe.packets - 1) / seconds : 0;
        for (const auto& [sender, sequence] : universe.senders) {
            figures.senders.push_back(sender);
            figures.lost += sequence.lost();
            figures.late += sequence.late();
            figures.repeated += sequence.repeated();
        }
        all.push_back(std::move(figures));
    }
    return all;
}

}  // namespace recording
