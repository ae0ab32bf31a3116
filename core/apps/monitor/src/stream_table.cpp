#include "stream_table.h"

#include <algorithm>

namespace monitor {

void StreamTable::add(const capture::Arrival& arrival) {
    switch (arrival.kind) {
        case artnet::PacketKind::Dmx:
            add_dmx(arrival);
            break;
        case artnet::PacketKind::Sync:
        case artnet::PacketKind::Other:
            ++others_.other_artnet;
            break;
        case artnet::PacketKind::Malformed:
            ++others_.malformed;
            break;
        case artnet::PacketKind::NotArtNet:
            ++others_.not_artnet;
            break;
    }
}

void StreamTable::add_dmx(const capture::Arrival& arrival) {
    const Key key{arrival.dmx.universe, arrival.peer};
    auto entry = streams_.find(key);
    if (entry == streams_.end()) {
        if (streams_.size() >= kMostStreams) {
            ++others_.beyond_limit;
            return;
        }
        entry = streams_.emplace(key, std::make_unique<Stream>()).first;
    }
    Stream& stream = *entry->second;
    stream.times.add(arrival.time);
    stream.sequence.add(arrival.dmx.sequence);
    stream.level_count = std::min(arrival.dmx.levels.size(), stream.levels.size());
    std::copy_n(arrival.dmx.levels.begin(), stream.level_count, stream.levels.begin());
    if (conflicts_) {
        senders_.add(arrival.dmx.universe, arrival.peer, arrival.time);
    }
}

std::vector<StreamRow> StreamTable::rows(std::chrono::nanoseconds now) const {
    std::vector<StreamRow> rows;
    rows.reserve(streams_.size());
    for (const auto& [key, stream] : streams_) {
        StreamRow row;
        row.universe = key.first;
        row.peer = key.second;
        row.intervals = stream->times.figures(now);
        row.packets = stream->times.packets();
        row.sequence = stream->sequence;
        row.conflict = senders_.conflicting(key.first, now);
        row.levels.assign(stream->levels.begin(),
                          stream->levels.begin() + static_cast<std::ptrdiff_t>(stream->level_count));
        rows.push_back(std::move(row));
    }
    return rows;
}

}  // namespace monitor
