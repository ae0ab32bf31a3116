#pragma once
// Where the packets of a recording lie and when they play.

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

#include "input_recording.h"

namespace recording {

/// One ArtDmx packet. Small, since a long show has millions.
struct IndexedPacket {
    /// In its file.
    std::uint64_t offset = 0;
    /// From the begin of its recording.
    std::chrono::nanoseconds begin{0};
    /// 18 to 530 bytes.
    std::uint16_t size = 0;
    std::uint16_t universe = 0;
    /// Whether a timing packet of no time parts it from the next packet.
    bool ends_frame_of_no_time = false;
};

/// A recording that is to be edited: all but its packets' bytes, which stay in the file.
struct RecordingIndex {
    std::string path;
    /// In the order of the file, which is that of their times.
    std::vector<IndexedPacket> packets;
    /// Where the last frame ends: by its timing packet, or 30 ms after its begin if it has none.
    std::chrono::nanoseconds end{0};
    /// Whether there is any timing packet to play by.
    bool is_timed = false;
    /// Whether several frames can be told apart: by their timing, or because there is but one.
    bool has_times = false;
    /// What playback repeats from an incomplete last block, and what it passes over; neither is indexed.
    std::uint64_t stale = 0;
    std::uint64_t passed_over = 0;
};

/// Reads a regular file, with progress; throws cli::Failure as read_recording() does.
[[nodiscard]] RecordingIndex index_recording(const std::string& path, CutShort cut_short);

}  // namespace recording
