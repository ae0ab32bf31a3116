#pragma once
// A recording reduced to the columns of a picture.

#include <chrono>
#include <cstdint>
#include <functional>
#include <set>
#include <vector>

#include "inspect/timeline.h"

namespace plot {

/// What of a recording is drawn, and how wide.
struct Section {
    std::chrono::nanoseconds from{0};
    std::chrono::nanoseconds to{0};
    /// Pixel columns, 1 or more.
    int columns = 0;
    /// Universes; empty: all.
    std::set<int> universes;
};

/// Levels of one universe: the highest of each channel in each column, since what flashes must be seen.
struct UniverseMap {
    /// Value of a cell in which nothing has been sent for long.
    static constexpr std::int16_t kNothing = -1;

    int universe = 0;
    /// Largest number of channels in a packet.
    int channels = 0;
    /// Level 0 to 255 or kNothing, by column * 512 + channel.
    std::vector<std::int16_t> levels;

    [[nodiscard]] std::int16_t level(int column, int channel) const {
        return levels[static_cast<std::size_t>(column) * 512 + static_cast<std::size_t>(channel)];
    }
};

/// Shortest and longest frame that stands in a column; both 0 where none does.
struct IntervalColumn {
    std::chrono::nanoseconds shortest{0};
    std::chrono::nanoseconds longest{0};
};

struct LevelMap {
    /// Ascending by universe.
    std::vector<UniverseMap> universes;
    std::vector<IntervalColumn> intervals;
    /// Of the frames that begin in the section.
    std::uint64_t frames = 0;
    std::chrono::nanoseconds median{0};
    std::chrono::nanoseconds p99{0};
    std::chrono::nanoseconds longest{0};
};

/// A level stands for this long after its packet; behind that nothing counts as sent. Sources repeat what
/// does not change every four seconds at least.
inline constexpr std::chrono::seconds kHold{4};

/// Reduces the section; universes without a packet in it are left out.
/// @param progress  told of the packets gone through; may be empty
[[nodiscard]] LevelMap reduce(inspect::Timeline& timeline, const Section& section,
                              const std::function<void(std::uint64_t)>& progress = {});

}  // namespace plot
