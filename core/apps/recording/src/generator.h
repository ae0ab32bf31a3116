#pragma once
// Makes recordings of test patterns.

#include <chrono>
#include <cstdint>
#include <functional>
#include <vector>

#include "artnet/recording_writer.h"

namespace recording {

enum class Pattern { Chase, Ramp, Sine, Strobe, Random, Still };

/// Which of the two timing packets.
enum class TimingUnit { Nanoseconds, Milliseconds };

/// What to generate.
struct Generation {
    Pattern pattern = Pattern::Chase;
    /// In the order in which they stand in a frame.
    std::vector<std::uint16_t> universes;
    /// 1 to 512.
    int channels = 512;
    /// Frames a second, 0.01 to 1000.
    double fps = 40;
    double seconds = 10;
    TimingUnit timing = TimingUnit::Nanoseconds;
    std::uint64_t seed = 1;
};

/// Frames that it takes to fill the time; at least one.
[[nodiscard]] std::uint64_t frame_count(const Generation& generation);

/**
 * How long a frame stands by its timing packet.
 *
 * A whole number of the timing's units. Where the rate asks for parts of them, frames differ by one unit, so
 * that the begin of each frame is never a whole unit early.
 */
[[nodiscard]] std::chrono::nanoseconds frame_time(const Generation& generation, std::uint64_t frame);

/**
 * Writes all frames, but not the padding.
 *
 * @param on_frame  called after each frame with the number of frames written
 * Returns how long the recording plays: the last frame stands 30 ms, whatever its timing packet says.
 */
std::chrono::nanoseconds generate_recording(const Generation& generation, RecordingWriter& out,
                                            const std::function<void(std::uint64_t)>& on_frame);

}  // namespace recording
