#include "recording_index.h"

#include <filesystem>
#include <limits>
#include <unordered_set>

#include "artnet/opcodes.h"
#include "artnet/recording_timing.h"
#include "cli/failure.h"
#include "ondra/timing.h"

namespace recording {

namespace {

/// When a packet's frame ends by its own timing packet.
std::chrono::nanoseconds written_end(const RecordedPacket& packet) {
    if (packet.timing == RecordedTiming::None) {
        return ondra::saturating_add(packet.begin, kLastFrameTime);
    }
    constexpr auto kMax = static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max());
    std::int64_t end = packet.begin.count();
    if (packet.written_delay <= kMax &&
        __builtin_add_overflow(end, static_cast<std::int64_t>(packet.written_delay), &end)) {
        return std::chrono::nanoseconds::max();
    }
    return std::chrono::nanoseconds(end);
}

}  // namespace

RecordingIndex index_recording(const std::string& path, CutShort cut_short) {
    if (size_of_input(path) == 0 && !std::filesystem::is_regular_file(path)) {
        // Its packets are read a second time, from their places.
        throw cli::Failure(path + ": expected a recording in a file");
    }
    RecordingIndex index;
    index.path = path;
    std::unordered_set<int> universes;
    bool repeats = false;
    RecordingReader reader;
    reader.on_packet = [&](const RecordedPacket& packet) {
        if (packet.is_stale) {
            ++index.stale;
            return;
        }
        index.end = written_end(packet);
        index.packets.push_back({packet.offset, packet.begin, static_cast<std::uint16_t>(packet.bytes.size()),
                                 packet.universe,
                                 packet.timing != RecordedTiming::None && index.end == packet.begin});
        index.is_timed = index.is_timed || packet.timing != RecordedTiming::None;
        repeats = !universes.insert(packet.universe).second || repeats;
    };
    reader.on_other = [&](std::uint16_t opcode) {
        if (opcode != opcode::kOemVfps && opcode != opcode::kOemVfpsNs &&
            !reader.parser().packet_is_stale()) {
            ++index.passed_over;
        }
    };
    reader.on_oversized = [&] { ++index.passed_over; };
    read_recording(path, reader, cut_short);
    if (index.packets.empty()) {
        throw cli::Failure(path + ": holds no ArtDmx packet");
    }
    index.has_times = index.is_timed || !repeats;
    return index;
}

}  // namespace recording
