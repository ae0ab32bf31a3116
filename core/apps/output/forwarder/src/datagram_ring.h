#pragma once
// Fixed memory through which the receive thread hands datagrams to the send thread.

#include <array>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "artnet/forwarding_datagram.h"

namespace forwarder {

/// One received datagram.
struct Slot {
    /// One byte more than a good datagram has, so that a longer one is told from it.
    std::array<unsigned char, artnet::kForwardingDatagramSize + 1> data;
    /// Bytes received, at most the size of `data`.
    std::size_t size = 0;
    std::chrono::steady_clock::time_point received;

    [[nodiscard]] std::span<const unsigned char> bytes() const { return {data.data(), size}; }
};

/**
 * Ring of slots between exactly one writer and one reader; all memory is taken at construction.
 *
 * The writer fills slots in place (the kernel writes straight into them) and publishes them; the reader
 * works on them in place and releases them. Neither ever waits for the other but for wait_readable.
 */
class DatagramRing {
public:
    /// @param capacity  slots, at least 1
    explicit DatagramRing(std::size_t capacity);

    /// Free slots that lie in one piece, at most `limit`; empty when the ring is full. Writer only.
    [[nodiscard]] std::span<Slot> writable(std::size_t limit) noexcept;
    /// Hands the first `count` of the writable slots to the reader. Writer only.
    void publish(std::size_t count) noexcept;
    /// Says that nothing more will be published. Writer, or any thread once the writer has ended.
    /// May be repeated.
    void close() noexcept;

    /**
     * Waits until there is a filled slot, or the ring is closed; no other bound. Reader only.
     *
     * Returns filled slots that lie in one piece, at most `limit`; empty only when closed and read to the
     * end.
     */
    [[nodiscard]] std::span<Slot> wait_readable(std::size_t limit) noexcept;
    /// Gives the first `count` of the readable slots back to the writer. Reader only.
    void release(std::size_t count) noexcept;

private:
    std::vector<Slot> slots_;
    /// Slots ever published. Written by the writer; its release store publishes the slots' contents.
    std::atomic<std::uint64_t> published_{0};
    /// Slots ever released. Written by the reader; its release store gives the slots back.
    std::atomic<std::uint64_t> released_{0};
    /// Changes with every publish and at close; what the reader sleeps on.
    std::atomic<std::uint32_t> signal_{0};
    /// Set once by close() before signal_ changes.
    std::atomic<bool> closed_{false};
};

}  // namespace forwarder
