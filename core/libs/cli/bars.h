#pragma once
// Rows of signs that show how much of something there is.

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

namespace cli {

/// What bars are drawn with. Blocks are UTF-8.
enum class Glyphs { Ascii, Blocks };

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

}  // namespace cli
