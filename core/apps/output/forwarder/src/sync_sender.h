#pragma once
// When an ArtSync is to follow, for --sync.

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "due_list.h"

namespace forwarder {

/**
 * Divides the packets of each destination into groups, each of which one ArtSync ends.
 *
 * A group is what arrives back to back. It ends before a packet of a universe that it already holds (the next
 * frame has begun), and when nothing has come for kGap. Times are those at which the packets were taken from
 * the socket, so that what waits here to be sent neither joins nor parts groups; a long send or an
 * interruption of the thread just between two of them may. Send thread only.
 */
class SyncSender {
public:
    using Time = DueList::Time;

    /// The service sends the packets of one moment some microseconds apart, and those of the next one 22 ms
    /// later at the earliest. Two leave room for a sender that is interrupted, and delay little: receivers
    /// hold a frame back until its ArtSync comes.
    static constexpr std::chrono::milliseconds kGap{2};

    /**
     * Takes in one ArtDmx packet; true when the ArtSync of the group before it must be sent first.
     *
     * @param stream  kNoStream: repetition is not noticed, only the gap ends the group
     */
    [[nodiscard]] bool packet(std::size_t destination, std::size_t stream, Time received);
    /// A destination whose group has ended by the gap, everything that arrived before `seen` having been
    /// taken in.
    [[nodiscard]] std::optional<std::size_t> take_ended(Time seen);
    /// When the next group ends unless a packet comes; the end of time while no group is open.
    [[nodiscard]] Time next_end() const noexcept { return open_until_.first_due(); }

private:
    /// Destinations with an open group.
    DueList open_until_;
    /// Number of the open or next group, by destination.
    std::vector<std::uint64_t> groups_;
    /// One more than the number of the group of its destination in which a stream came last; by stream.
    std::vector<std::uint64_t> came_in_;
};

}  // namespace forwarder
