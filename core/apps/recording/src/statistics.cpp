#include "statistics.h"

#include <algorithm>
#include <cmath>
#include <cstddef>

#include "artnet/opcodes.h"
#include "artnet/recording_timing.h"
#include "input_recording.h"
#include "ondra/timing.h"

namespace recording {

namespace {

double seconds(std::chrono::nanoseconds time) {
    return std::chrono::duration<double>(time).count();
}

std::uint64_t count_of(const std::map<std::uint16_t, std::uint64_t>& types, std::uint16_t code) {
    const auto found = types.find(code);
    return found == types.end() ? 0 : found->second;
}

void add_to_universe(RecordingStatistics& statistics, const RecordedPacket& packet) {
    const auto channels = static_cast<std::uint16_t>(packet.bytes.size() - kDmxHeaderSize);
    const auto [entry, is_new] = statistics.universes.try_emplace(packet.universe);
    UniverseStatistics& universe = entry->second;
    if (is_new) {
        universe.first = packet.begin;
        universe.fewest_channels = channels;
    } else {
        universe.intervals.add(packet.begin - universe.last);
    }
    ++universe.packets;
    universe.last = packet.begin;
    universe.fewest_channels = std::min(universe.fewest_channels, channels);
    universe.most_channels = std::max(universe.most_channels, channels);
}

}  // namespace

std::chrono::nanoseconds Intervals::percentile(double share) {
    if (values_.empty()) {
        return {};
    }
    if (!std::ranges::is_sorted(values_)) {
        std::ranges::sort(values_);
    }
    const double rank = std::ceil(share * static_cast<double>(values_.size()));
    const auto index = static_cast<std::size_t>(std::max(rank, 1.0)) - 1;
    return std::chrono::nanoseconds(values_[std::min(index, values_.size() - 1)]);
}

std::chrono::nanoseconds Intervals::longest() {
    return percentile(1);
}

std::optional<double> UniverseStatistics::rate() const {
    if (last <= first) {
        return std::nullopt;
    }
    return static_cast<double>(packets - 1) / seconds(last - first);
}

std::uint64_t RecordingStatistics::timing_packets() const {
    return count_of(types, opcode::kOemVfps) + count_of(types, opcode::kOemVfpsNs);
}

std::optional<double> RecordingStatistics::rate() const {
    if (duration <= kLastFrameTime) {
        return std::nullopt;
    }
    return static_cast<double>(frames - 1) / seconds(duration - kLastFrameTime);
}

std::optional<double> RecordingStatistics::byte_rate() const {
    if (duration.count() == 0) {
        return std::nullopt;
    }
    return static_cast<double>(bytes) / seconds(duration);
}

RecordingStatistics statistics_of(const std::string& path, std::optional<int> speed_boost) {
    RecordingStatistics statistics;
    ondra::Clock::duration boosted{0};
    RecordingReader reader;
    reader.on_packet = [&](const RecordedPacket& packet) {
        ++statistics.types[opcode::kDmx];
        statistics.stale += packet.is_stale ? 1 : 0;
        statistics.duration = ondra::saturating_add(packet.begin, packet.delay);
        if (speed_boost && packet.delay.count() > 0) {
            boosted = ondra::saturating_add(boosted, ondra::calculate_delay(packet.delay, *speed_boost));
        }
        add_to_universe(statistics, packet);
        if (packet.ends_frame) {
            ++statistics.frames;
            if (!packet.is_last) {
                statistics.intervals.add(packet.delay);
            } else if (packet.timing != RecordedTiming::None) {
                statistics.last_frame_written = packet.written_delay;
            }
        }
    };
    reader.on_other = [&](std::uint16_t code) { ++statistics.types[code]; };
    reader.on_oversized = [&] { ++statistics.oversized; };
    read_recording(path, reader);
    statistics.bytes = reader.parser().bytes_read();
    if (speed_boost) {
        statistics.boosted_duration = boosted;
    }
    return statistics;
}

}  // namespace recording
