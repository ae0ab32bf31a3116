#pragma once
// Ranks of sorted values.

#include <algorithm>
#include <cstddef>
#include <span>

namespace monitor {

/// Smallest of `sorted` that at least `permille` thousandths of its values do not exceed; 0 for no values.
template <typename Value>
[[nodiscard]] Value percentile(std::span<const Value> sorted, std::size_t permille) {
    if (sorted.empty()) {
        return Value{};
    }
    const std::size_t rank = (sorted.size() * permille + 999) / 1000;
    return sorted[std::max<std::size_t>(rank, 1) - 1];
}

}  // namespace monitor
