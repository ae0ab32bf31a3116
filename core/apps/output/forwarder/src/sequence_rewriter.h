#pragma once
// Sequence numbers of our own, for --sequence.

#include <cstddef>
#include <vector>

namespace forwarder {

/// Place of the sequence number in an ArtDmx packet.
inline constexpr std::size_t kSequenceOffset = 12;

/**
 * Counts each stream's packets from 1 to 255 and from 1 again; 0 would tell receivers not to look.
 *
 * A number is taken when its packet leaves, not when it arrives: what pacing leaves out makes no gap that a
 * receiver would count as a loss. Send thread only.
 */
class SequenceRewriter {
public:
    /// @param stream  below StreamTable::kMostStreams
    [[nodiscard]] unsigned char next(std::size_t stream);

private:
    /// Last number given out, by stream.
    std::vector<unsigned char> last_;
};

}  // namespace forwarder
