#pragma once
// Fixed memory through which the receive thread hands datagrams to the send thread.

#include <array>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include <semaphore.h>

#include "artnet/forwarding_datagram.h"
#include "posix/file_descriptor.h"

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
 * works on them in place and releases them. A side that waits says so first, and the other makes a system
 * call only then: while both are busy none is made.
 *
 * Saying "I wait" and looking whether there is something, on one side, crosses with publishing and looking
 * whether anybody waits, on the other. Each side first stores and then loads what the other stores, so all
 * four are sequentially consistent: with anything weaker both loads may pass the stores before them, as ARMv7
 * lets them, and the wake-up is lost.
 */
// Padded on purpose: each side's positions have a cache line of their own.
// NOLINTNEXTLINE(clang-analyzer-optin.performance.Padding)
class DatagramRing {
public:
    using Clock = std::chrono::steady_clock;

    /// @param capacity  slots, at least 1. Throws std::system_error when the system refuses a descriptor.
    explicit DatagramRing(std::size_t capacity);
    ~DatagramRing();
    DatagramRing(const DatagramRing&) = delete;
    DatagramRing& operator=(const DatagramRing&) = delete;

    /// Free slots that lie in one piece, at most `limit`; empty when the ring is full. Writer only.
    [[nodiscard]] std::span<Slot> writable(std::size_t limit) noexcept;
    /// Hands the first `count` of the writable slots to the reader. Writer only.
    void publish(std::size_t count) noexcept;
    /// Asks for room_descriptor() to become readable when slots are released; false, with nothing asked for,
    /// when there is room already. Writer only.
    [[nodiscard]] bool await_room() noexcept;
    [[nodiscard]] int room_descriptor() const noexcept { return room_event_.get(); }
    /// Says that nothing more will be published. Writer, or any thread once the writer has ended.
    /// May be repeated.
    void close() noexcept;

    /**
     * Waits until there is a filled slot, the ring is closed, or the time has come; no other bound. Reader
     * only.
     *
     * Returns filled slots that lie in one piece, at most `limit`; empty when the time came first, or when
     * the ring is closed and read to the end.
     */
    [[nodiscard]] std::span<Slot> wait_readable(std::size_t limit,
                                                Clock::time_point until = Clock::time_point::max()) noexcept;
    /// True when the ring is closed and all of it is released. Reader only.
    [[nodiscard]] bool finished() const noexcept;
    /// Gives the first `count` of the readable slots back to the writer. Reader only.
    void release(std::size_t count) noexcept;

private:
    /// What one thread writes often and the other reads lies apart, so that neither slows the other down.
    static constexpr std::size_t kCacheLine = 64;

    void wake_reader() noexcept;
    /// Returns when woken, at the time given, or now and then for nothing.
    void sleep(Clock::time_point until) noexcept;

    std::vector<Slot> slots_;
    /// Readable when slots were released after await_room().
    posix::FileDescriptor room_event_;
    /// Posted to wake the reader.
    sem_t reader_wake_;

    /// Slots ever published. Written by the writer; its store publishes the slots' contents.
    alignas(kCacheLine) std::atomic<std::uint64_t> published_{0};
    /// Set once by close(), after everything is published.
    std::atomic<bool> closed_{false};
    /// Slots ever released. Written by the reader; its store gives the slots back.
    alignas(kCacheLine) std::atomic<std::uint64_t> released_{0};
    /// Set by the reader before it sleeps; taken back by whoever wakes it.
    alignas(kCacheLine) std::atomic<bool> reader_waits_{false};
    /// Set by the writer when it finds no room; taken back by the reader that makes some.
    std::atomic<bool> writer_waits_{false};
};

}  // namespace forwarder
