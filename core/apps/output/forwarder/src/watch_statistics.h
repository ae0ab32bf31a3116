#pragma once
// Timing and levels of each universe, over a sliding window.

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <map>
#include <mutex>
#include <span>
#include <utility>
#include <vector>

#include "endpoint.h"

namespace forwarder {

/// Where the packet of one ArtDmx datagram belongs, and its levels.
struct DmxFrame {
    /// Art-Net port-address, counted from 0.
    unsigned universe = 0;
    /// Valid channels only, 0 to 512 levels.
    std::span<const unsigned char> levels;
};

/// Reads an Art-Net packet; false when it is not ArtDmx.
[[nodiscard]] bool read_dmx(std::span<const unsigned char> packet, DmxFrame& frame);

/// What is shown of one universe on its way to one destination.
struct WatchRow {
    unsigned universe = 0;
    Endpoint target;
    /// Frames per second within the window; 0 when there are fewer than two or the last one is too old.
    double fps = 0;
    /// Intervals between frames within the window, in milliseconds; 0 without any.
    double interval_p50 = 0;
    double interval_p99 = 0;
    double interval_max = 0;
    /// Frames since the start.
    std::uint64_t frames = 0;
    std::vector<unsigned char> levels;
};

/**
 * The send thread records frames, the main thread takes rows; both under one lock that is held for copying
 * only.
 *
 * A universe that goes to two destinations counts as two streams, or its rate would show doubled.
 */
class WatchStatistics {
public:
    using Clock = std::chrono::steady_clock;

    static constexpr std::size_t kMostStreams = 256;
    static constexpr std::size_t kMostTimes = 512;
    static constexpr std::chrono::seconds kWindow{5};
    /// After this time without a frame the rate shows as 0.
    static constexpr std::chrono::seconds kIdleAfter{2};

    /// Takes in one frame; a new stream beyond the limit is only counted. Takes mutex_.
    void record(const Endpoint& target, const DmxFrame& frame, Clock::time_point received);
    /// All streams, by universe and then by destination. Takes mutex_.
    [[nodiscard]] std::vector<WatchRow> rows(Clock::time_point now) const;
    /// Frames of streams that found no room. Takes mutex_.
    [[nodiscard]] std::uint64_t frames_beyond_limit() const;

private:
    struct Stream {
        /// Ring of the latest times; the next one goes to index frames % kMostTimes.
        std::array<Clock::time_point, kMostTimes> times;
        std::uint64_t frames = 0;
        std::array<unsigned char, 512> levels;
        std::size_t level_count = 0;
    };
    using Key = std::pair<unsigned, std::uint64_t>;

    static WatchRow row_of(const Stream& stream, Clock::time_point now);

    mutable std::mutex mutex_;
    /// Guarded by `mutex_`.
    std::map<Key, Stream> streams_;
    /// Guarded by `mutex_`.
    std::uint64_t beyond_limit_ = 0;
};

/// Smallest of `sorted` that at least `percent` of its values do not exceed; 0 for no values.
[[nodiscard]] double percentile(std::span<const double> sorted, unsigned percent);

}  // namespace forwarder
