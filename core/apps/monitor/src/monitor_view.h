#pragma once
// What is seen, as a screen, as lines and as JSON.

#include <cstdint>
#include <span>
#include <string>

#include "cli/live_screen.h"
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

/// The whole screen: lines cut to the width, fewer of them than the screen has. Each ends in a line feed.
[[nodiscard]] std::string to_screen(const Snapshot& snapshot, cli::ScreenSize size, cli::Glyphs glyphs);
/// A line a stream, with the first 16 levels as numbers.
[[nodiscard]] std::string to_lines(const Snapshot& snapshot);
/// One object in one line.
[[nodiscard]] std::string to_json(const Snapshot& snapshot);

}  // namespace monitor
