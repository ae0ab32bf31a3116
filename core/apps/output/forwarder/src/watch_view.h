#pragma once
// The rows of --watch as text.

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "cli/live_screen.h"
#include "watch_statistics.h"

namespace forwarder {

/// One row as a plain line with a line feed: rate, intervals and the first 16 levels as numbers.
[[nodiscard]] std::string to_plain_line(const WatchRow& row);
/// All rows as one JSON object in one line.
[[nodiscard]] std::string to_json(std::span<const WatchRow> rows);

/**
 * The whole screen: `heading`, a line per row, and what did not fit counted in the last line.
 *
 * Lines are cut to the width and end in line feeds; there are fewer of them than the screen has.
 */
[[nodiscard]] std::string to_screen(const std::string& heading, std::span<const WatchRow> rows,
                                    std::uint64_t frames_beyond_limit, cli::ScreenSize size,
                                    cli::Glyphs glyphs);

}  // namespace forwarder
