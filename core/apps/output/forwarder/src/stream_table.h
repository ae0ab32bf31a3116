#pragma once
// Numbers for the pairs of destination and universe, in bounded memory.

#include <cstddef>
#include <cstdint>
#include <unordered_map>
#include <vector>

namespace forwarder {

/// What stands for a pair that has no number.
inline constexpr std::size_t kNoStream = static_cast<std::size_t>(-1);

/**
 * Numbers each universe of each destination from 0 on, in the order in which they are first seen.
 *
 * A number is never taken back: a universe that comes again after an hour goes on where it was. Send thread
 * only.
 */
class StreamTable {
public:
    /// Several times what one board's network port carries at 40 frames per second; with the frames kept for
    /// re-sending, 2.5 MB.
    static constexpr std::size_t kMostStreams = 4096;

    /// @param universe  16 bits, as they stand in the packet
    /// Number of the pair; kNoStream when it is new and the table is full.
    [[nodiscard]] std::size_t find(std::size_t destination, unsigned universe);
    [[nodiscard]] std::size_t destination_of(std::size_t stream) const { return destinations_[stream]; }
    [[nodiscard]] std::size_t size() const noexcept { return destinations_.size(); }

private:
    std::unordered_map<std::uint64_t, std::size_t> numbers_;
    std::vector<std::size_t> destinations_;
};

}  // namespace forwarder
