#pragma once
// What a command that makes a recording says of it at the end.

#include <chrono>
#include <cstdint>
#include <optional>
#include <set>
#include <string>

namespace recording {

/// A recording that has been written.
struct WrittenSummary {
    std::string path;
    /// Whether the path stands for a device or a FIFO.
    bool is_special = false;
    std::uint64_t bytes = 0;
    /// ArtDmx packets.
    std::uint64_t packets = 0;
    /// Nothing without a timing packet.
    std::optional<std::uint64_t> frames;
    std::set<std::uint16_t> universes;
    /// As it plays, the last frame's 30 ms included.
    std::chrono::nanoseconds duration{0};
    /// Packets of the sources that are not in it: what an incomplete last block makes playback repeat, and
    /// what playback passes over.
    std::uint64_t repeated = 0;
    std::uint64_t passed_over = 0;
};

/// What the line for a reader counts.
enum class Counting { Frames, Packets };

/// "a.rec: 80 frames of 2 universes, 2.005 s, of which the last frame stands 30 ms", with a newline.
[[nodiscard]] std::string written_text(const WrittenSummary& summary, Counting counting);

/// One object in one line.
[[nodiscard]] std::string written_json(const WrittenSummary& summary);

/// Prints the one or the other; of what has gone to a device or a FIFO, JSON only.
void print_written(const WrittenSummary& summary, Counting counting, bool json);

}  // namespace recording
