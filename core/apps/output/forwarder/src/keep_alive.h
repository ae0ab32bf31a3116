#pragma once
// The last frame of each stream, and when it is to be sent again, for --keep-alive.

#include <array>
#include <chrono>
#include <cstddef>
#include <deque>
#include <optional>
#include <span>

#include "artnet/forwarding_datagram.h"
#include "due_list.h"

namespace forwarder {

/**
 * Remembers what each stream sent last, and names those that have been silent for the whole period.
 *
 * A silent stream is named again each period, without an end: the last look is to stand until somebody sends
 * another. The frame is kept as it arrived. Times are given by the caller. Send thread only.
 */
class KeepAlive {
public:
    using Time = DueList::Time;

    // Receivers give a universe up after a second or more of silence; under 0.8 s a show at one frame per
    // second would be doubled.
    static constexpr std::chrono::milliseconds kShortest{800};
    static constexpr std::chrono::milliseconds kDefault{900};
    static constexpr std::chrono::milliseconds kLongest{1000};

    explicit KeepAlive(DueList::Time::duration period) : period_(period) {}

    /// Takes in a frame that is on its way; at most 530 bytes.
    void store(std::size_t stream, std::span<const unsigned char> packet, Time now);
    /// A stream whose frame is to be sent now; its next period begins.
    [[nodiscard]] std::optional<std::size_t> take_due(Time now);
    /// The last frame of a stream that was stored; stays valid until the next one is stored.
    [[nodiscard]] std::span<const unsigned char> frame(std::size_t stream) const;
    /// When take_due() has something to give next; the end of time while there are no streams.
    [[nodiscard]] Time next_due() const noexcept { return silent_at_.first_due(); }

private:
    struct Frame {
        std::array<unsigned char, artnet::kForwardedPacketSize> bytes;
        std::size_t size = 0;
    };

    Time::duration period_;
    /// By stream; elements never move.
    std::deque<Frame> frames_;
    DueList silent_at_;
};

}  // namespace forwarder
