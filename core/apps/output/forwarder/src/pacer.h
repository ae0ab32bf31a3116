#pragma once
// Packets that wait for their turn, so that those of one destination keep a distance, for --pace.

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <optional>
#include <span>
#include <unordered_map>

#include "artnet/forwarding_datagram.h"
#include "due_list.h"

namespace forwarder {

/**
 * Lets one packet of each destination go in each gap, in order.
 *
 * At most one frame of a stream waits: a newer one takes its place, so that a destination that is sent more
 * than its pace allows gets fewer frames and not ever older ones. What has no stream is limited by number.
 * Times are given by the caller. Send thread only.
 */
class Pacer {
public:
    using Time = DueList::Time;

    /// Frames that wait: of one destination, and in all (4.7 MB).
    static constexpr std::size_t kMostOfOne = 2048;
    static constexpr std::size_t kMostInAll = 4 * kMostOfOne;

    /// What became of packets when one was added.
    enum class Loss {
        None,
        Superseded,  ///< an older frame of the stream gave its place to this one
        Dropped,     ///< too many wait: the oldest of the destination has gone, or this one
    };
    /// A packet whose turn has come.
    struct Departure {
        std::size_t destination = 0;
        /// kNoStream where it has none.
        std::size_t stream = 0;
        bool sync = false;
        /// Valid until the next call of take().
        std::span<const unsigned char> packet;
    };

    /// @param gap  least time between two packets of one destination, more than 0
    explicit Pacer(Time::duration gap) : gap_(gap) {}

    /// @param packet  at most 530 bytes; copied
    [[nodiscard]] Loss add(std::size_t destination, std::size_t stream, std::span<const unsigned char> packet,
                           Time now);
    /// Whether a frame of the stream waits.
    [[nodiscard]] bool holds(std::size_t destination, std::size_t stream) const;
    /// Puts an ArtSync behind what waits; two with nothing between them are one.
    void add_sync(std::size_t destination, Time now);
    /// The next packet that may go; its destination's next gap begins. Nothing when all must wait.
    [[nodiscard]] std::optional<Departure> take(Time now);
    /// When take() has something to give next; the end of time while nothing waits.
    [[nodiscard]] Time next_due() const noexcept { return turns_.first_due(); }

    /// Frames that wait, without ArtSync.
    [[nodiscard]] std::size_t size() const noexcept { return size_; }
    [[nodiscard]] bool empty() const noexcept { return turns_.empty(); }

    /// What was given up of a destination.
    struct Forgotten {
        std::size_t destination = 0;
        std::size_t frames = 0;
    };
    /// Gives up all that waits of one destination; nothing when nothing waits at all.
    [[nodiscard]] std::optional<Forgotten> forget_one();

private:
    struct Waiting {
        std::size_t stream = 0;
        bool sync = false;
        std::size_t size = 0;
        std::array<unsigned char, artnet::kForwardedPacketSize> bytes;

        void fill(std::span<const unsigned char> packet);
    };
    struct Queue {
        std::deque<Waiting> waiting;
        /// Those that wait, without ArtSync.
        std::size_t frames = 0;
        /// Packets ever taken from the front: a packet's number less this is its place.
        std::uint64_t taken = 0;
        /// Number of the packet that waits, by stream.
        std::unordered_map<std::size_t, std::uint64_t> numbers;
        Time next_turn = Time::min();
    };

    void pop(Queue& queue);
    /// Drops the oldest frame, and what waits before it; false when there is none, and nothing is left.
    bool pop_frame(Queue& queue);
    Waiting& push(std::size_t destination, Queue& queue, Time now);

    Time::duration gap_;
    /// By destination; kept when empty, for the time of the next turn.
    std::map<std::size_t, Queue> queues_;
    /// Destinations of which something waits.
    DueList turns_;
    std::size_t size_ = 0;
    Waiting departing_;
};

}  // namespace forwarder
