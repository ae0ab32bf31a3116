#pragma once
// When each packet of a recording is due.

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <span>
#include <string>
#include <vector>

namespace monitor {

/// Stands for the levels of a packet: equal levels have equal marks, others practically never.
using LevelMark = std::uint64_t;
[[nodiscard]] LevelMark mark_of(std::span<const unsigned char> levels) noexcept;

/// One packet of a recording.
struct ExpectedPacket {
    /// From the begin of the recording.
    std::chrono::nanoseconds due{0};
    LevelMark levels = 0;
    /// As recorded; 0: not used.
    std::uint8_t sequence = 0;
};

/// A recording as playback with its own timing sends it.
struct Timeline {
    /// Each universe's packets in playing order.
    std::map<std::uint16_t, std::vector<ExpectedPacket>> universes;
    /// From the begin to the begin of the next round, when it loops. More than 0.
    std::chrono::nanoseconds duration{0};
    std::uint64_t packets = 0;
};

/**
 * Reads a recording with the service's own parser and delays.
 *
 * @param speed_boost  percent, any int, as playlists have it
 * @param progress     called with the bytes read so far, now and then; may be empty
 * Throws cli::Failure, naming the file, when it holds nothing that plays. Of one that is cut short, what
 * plays is taken.
 */
[[nodiscard]] Timeline read_timeline(const std::string& path, int speed_boost,
                                     const std::function<void(std::uint64_t)>& progress = {});

}  // namespace monitor
