#pragma once
// What there is to say about a recording as a whole.

#include <chrono>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "artnet/recording_reader.h"

namespace recording {

/// Times between one thing and the next of its kind.
class Intervals {
public:
    void add(std::chrono::nanoseconds interval) { values_.push_back(interval.count()); }

    [[nodiscard]] bool empty() const noexcept { return values_.empty(); }
    /// The smallest interval that at least `share` of all do not exceed, `share` from 0 to 1; 0 of none.
    [[nodiscard]] std::chrono::nanoseconds percentile(double share);
    [[nodiscard]] std::chrono::nanoseconds longest();

private:
    std::vector<std::int64_t> values_;
};

/// One universe of a recording.
struct UniverseStatistics {
    std::uint64_t packets = 0;
    std::uint16_t fewest_channels = 0;
    std::uint16_t most_channels = 0;
    std::chrono::nanoseconds first{0};
    std::chrono::nanoseconds last{0};
    /// From one packet to the next.
    Intervals intervals;

    /// Packets a second between the first and the last; nothing when they coincide.
    [[nodiscard]] std::optional<double> rate() const;
};

/// A recording as the service plays it, repeated packets included.
struct RecordingStatistics {
    std::uint64_t bytes = 0;
    /// Sum of all delays; the last frame's is 30 ms.
    std::chrono::nanoseconds duration{0};
    /// The same, each delay scaled as the service scales it; present when it was asked for.
    std::optional<std::chrono::nanoseconds> boosted_duration;
    std::uint64_t frames = 0;
    /// Of all frames but the last.
    Intervals intervals;
    /// What the timing packet of the last frame says, if there is one; playback does not heed it.
    std::optional<std::uint64_t> last_frame_written;
    /// Packets found, by type; the oversized ones are counted apart.
    std::map<std::uint16_t, std::uint64_t> types;
    std::uint64_t oversized = 0;
    /// ArtDmx packets that an incomplete last block makes playback repeat; counted in all of the above.
    std::uint64_t stale = 0;
    std::map<std::uint16_t, UniverseStatistics> universes;

    [[nodiscard]] std::uint64_t timing_packets() const;
    /// Frames a second up to the last frame's begin; nothing when no time passes.
    [[nodiscard]] std::optional<double> rate() const;
    /// Bytes a second of playing time; nothing when no time passes.
    [[nodiscard]] std::optional<double> byte_rate() const;
};

/// Reads a recording, with progress on the terminal. Throws cli::Failure.
[[nodiscard]] RecordingStatistics statistics_of(const std::string& path, std::optional<int> speed_boost);

}  // namespace recording
