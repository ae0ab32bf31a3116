#pragma once
// What is seen, as a screen, as lines and as JSON.

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

#include "comparison.h"
#include "stream_table.h"

namespace monitor {

/// One look at the wire.
struct Snapshot {
    std::span<const StreamRow> rows;
    OtherDatagrams others;
    std::uint64_t kernel_drops = 0;
    /// Whether peers are destinations, not senders.
    bool wrapped = false;
    /// Null unless a recording is compared with. Borrowed.
    const ComparisonCounts* comparison = nullptr;
};

/// How bars are drawn.
enum class Glyphs { Ascii, Blocks };

/// Size of the terminal, in characters.
struct ScreenSize {
    std::size_t columns = 80;
    std::size_t lines = 24;
};

/**
 * One sign per column, from blank for 0 to the fullest sign for 255.
 *
 * @param columns  most signs, at least 1. With more channels than that, each sign stands for the same number
 * of neighbouring channels and shows the highest of them.
 */
[[nodiscard]] std::string level_bar(std::span<const unsigned char> levels, std::size_t columns,
                                    Glyphs glyphs);

/// One sign per step, from blank for none to the fullest sign for the most.
[[nodiscard]] std::string histogram_bar(std::span<const std::uint64_t> counts, Glyphs glyphs);

/// The whole screen: lines cut to the width, fewer of them than the screen has. Each ends in a line feed.
[[nodiscard]] std::string to_screen(const Snapshot& snapshot, ScreenSize size, Glyphs glyphs);
/// A line a stream, with the first 16 levels as numbers.
[[nodiscard]] std::string to_lines(const Snapshot& snapshot);
/// One object in one line.
[[nodiscard]] std::string to_json(const Snapshot& snapshot);

}  // namespace monitor
