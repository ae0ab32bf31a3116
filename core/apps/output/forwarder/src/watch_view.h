#pragma once
// The rows of --watch as text.

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "watch_statistics.h"

namespace forwarder {

/// How the levels are drawn.
enum class Glyphs { Ascii, Blocks };

/**
 * One sign per column, from blank for 0 to the fullest sign for 255.
 *
 * @param columns  most signs, at least 1. With more channels than that, each sign stands for the same number
 * of neighbouring channels and shows the highest of them.
 */
[[nodiscard]] std::string level_bar(std::span<const unsigned char> levels, std::size_t columns,
                                    Glyphs glyphs);

/// One row as a plain line with a line feed: rate, intervals and the first 16 levels as numbers.
[[nodiscard]] std::string to_plain_line(const WatchRow& row);
/// All rows as one JSON object in one line.
[[nodiscard]] std::string to_json(std::span<const WatchRow> rows);

/// Size of the terminal, in characters.
struct ScreenSize {
    std::size_t columns = 80;
    std::size_t lines = 24;
};

/**
 * The whole screen: `heading`, a line per row, and what did not fit counted in the last line.
 *
 * Lines are cut to the width and end in line feeds; there are fewer of them than the screen has.
 */
[[nodiscard]] std::string to_screen(const std::string& heading, std::span<const WatchRow> rows,
                                    std::uint64_t frames_beyond_limit, ScreenSize size, Glyphs glyphs);

}  // namespace forwarder
