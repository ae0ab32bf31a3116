#pragma once
// Received datagrams, and where the send thread gets them from.

#include <array>
#include <chrono>
#include <cstddef>
#include <span>

#include "artnet/forwarding_datagram.h"

namespace forwarder {

/// One received datagram.
struct Slot {
    /// One byte more than a good datagram has, so that a longer one is told from it.
    std::array<unsigned char, artnet::kForwardingDatagramSize + 1> data;
    /// Bytes received, at most the size of `data`.
    std::size_t size = 0;
    /// When it was taken from the socket.
    std::chrono::steady_clock::time_point received;

    [[nodiscard]] std::span<const unsigned char> bytes() const { return {data.data(), size}; }
};

/// Hands datagrams out in the order of their arrival. Send thread only, but for stop().
class DatagramSource {
public:
    using Clock = std::chrono::steady_clock;

    /**
     * Waits until there is a datagram, the source has ended, or the time has come; no other bound.
     *
     * Returns datagrams that lie in one piece, at most `limit`, which stay until release(); none when the
     * time came first or the source has ended, and now and then for nothing. After none, all that comes was
     * received later.
     */
    [[nodiscard]] virtual std::span<Slot> wait(std::size_t limit, Clock::time_point until) = 0;
    /// Takes in what has come, without waiting, so that it is not lost while much is sent; what is in hand
    /// stays.
    virtual void take_in() = 0;
    /// Gives the first `count` of the datagrams in hand back.
    virtual void release(std::size_t count) noexcept = 0;
    /// True when nothing comes any more and all is released.
    [[nodiscard]] virtual bool finished() const noexcept = 0;
    /// Asks the source to end with what has already arrived; does not wait. Any thread, once or often.
    virtual void stop() noexcept = 0;

protected:
    ~DatagramSource() = default;
};

}  // namespace forwarder
