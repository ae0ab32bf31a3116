#include "cli/bars.h"

#include <algorithm>
#include <array>

namespace cli {

namespace {

constexpr std::array<const char*, 9> kAscii{" ", ".", ":", "-", "=", "+", "*", "%", "#"};
constexpr std::array<const char*, 9> kBlocks{" ", "▁", "▂", "▃", "▄", "▅", "▆", "▇", "█"};

const char* sign(std::uint64_t value, std::uint64_t most, Glyphs glyphs) {
    const auto& signs = glyphs == Glyphs::Blocks ? kBlocks : kAscii;
    // Blank only for 0, the last only for the most.
    return signs[value == 0 || most == 0 ? 0
                                         : 1 + static_cast<std::size_t>(value * (signs.size() - 2) / most)];
}

}  // namespace

std::string level_bar(std::span<const unsigned char> levels, std::size_t columns, Glyphs glyphs) {
    const std::size_t group = std::max<std::size_t>(1, (levels.size() + columns - 1) / columns);
    std::string bar;
    while (!levels.empty()) {
        const std::size_t count = std::min(group, levels.size());
        bar += sign(std::ranges::max(levels.first(count)), 255, glyphs);
        levels = levels.subspan(count);
    }
    return bar;
}

std::string histogram_bar(std::span<const std::uint64_t> counts, Glyphs glyphs) {
    const std::uint64_t most = counts.empty() ? 0 : std::ranges::max(counts);
    std::string bar;
    for (const std::uint64_t count : counts) {
        bar += sign(count, most, glyphs);
    }
    return bar;
}

}  // namespace cli
