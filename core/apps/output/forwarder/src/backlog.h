#pragma once
// Packets that wait for room in their destination's queue, out of everybody else's way.

#include <array>
#include <chrono>
#include <cstddef>
#include <deque>
#include <functional>
#include <map>
#include <span>
#include <vector>

#include <sys/uio.h>

#include "artnet/forwarding_datagram.h"
#include "destination.h"

namespace forwarder {

/**
 * Keeps, in order, what the system would not take of each destination, and offers it again each kRetryAfter.
 *
 * The packets are copied, so that their slots go on to others. When there are too many, the oldest of
 * the same destination go: levels that newer ones would replace anyway. A destination that takes nothing for
 * the whole patience is given up, with all that waits for it. Nothing here ever waits. Send thread only.
 */
class Backlog {
public:
    using Clock = Backoff::Clock;

    /// One try costs a failing system call. Nothing announces room in an interface's queue, so it is looked
    /// for.
    static constexpr std::chrono::milliseconds kRetryAfter{1};
    /// A burst of 2,000 for one destination, and four of them in all (4.5 MB).
    static constexpr std::size_t kMostOfOne = 2048;
    static constexpr std::size_t kMostInAll = 4 * kMostOfOne;
    /// Packets that are sent before the others get their turn: those that arrive meanwhile.
    static constexpr std::size_t kMostAtOnce = 64;

    /// @param patience  time without any progress after which a destination is given up
    explicit Backlog(Clock::duration patience) : patience_(patience) {}

    [[nodiscard]] bool empty() const noexcept { return waiting_.empty(); }
    /// True when packets of `destination` wait; newer ones must go behind them.
    [[nodiscard]] bool holds(Destination& destination) const { return waiting_.contains(&destination); }
    /// Puts packets behind those that wait; each at most as long as a datagram. What finds no room counts as
    /// unsent.
    void add(Destination& destination, std::span<const iovec> packets, Clock::time_point now);
    /// When retry() has something to do; the end of time when nothing waits.
    [[nodiscard]] Clock::time_point next_retry() const noexcept {
        return empty() ? Clock::time_point::max() : next_retry_;
    }
    /// Offers some of what waits, kMostAtOnce packets or a few more; where there is room for others, the next
    /// retry is due at once. Returns the destinations tried, until the next call.
    std::span<Destination* const> retry(Clock::time_point now);
    /// Gives up all destinations. Returns them, until the next call of retry().
    std::span<Destination* const> give_up(Clock::time_point now);

private:
    struct Packet {
        std::array<unsigned char, artnet::kForwardingDatagramSize> bytes;
        std::size_t size = 0;
    };
    struct Queue {
        std::deque<Packet> packets;
        /// When the destination last took something, or was first found full.
        Clock::time_point progress;
    };

    /// The number of packets settled.
    std::size_t offer(Destination& destination, Queue& queue, Clock::time_point now);
    void pop(Queue& queue, std::size_t count);

    Clock::duration patience_;
    Clock::time_point next_retry_;
    /// Only compared, never looked into.
    const Destination* first_of_last_retry_ = nullptr;
    /// No queue is empty.
    std::map<Destination*, Queue, std::less<>> waiting_;
    /// Packets in all queues.
    std::size_t size_ = 0;
    /// Scratch, reused.
    std::vector<Destination*> tried_;
};

}  // namespace forwarder
