#pragma once
// The receive thread: drains the sockets into the ring and does nothing else.

#include <atomic>
#include <chrono>
#include <cstdint>
#include <memory>
#include <span>
#include <thread>

#include "datagram_ring.h"
#include "posix/file_descriptor.h"
#include "receive_socket.h"

namespace forwarder {

/**
 * Owns the receive thread. It sleeps in poll() without a bound; a datagram, room in a full ring, or stop()
 * ends that.
 *
 * While the ring is full, datagrams are left in the sockets' buffers on purpose: those hold several times as
 * many as the ring, and what goes lost when they overflow is counted by the kernel, to the last datagram. To
 * read and drop would lose the newest levels, which stand until somebody sends others.
 *
 * The sockets and the ring are borrowed and outlive this object.
 */
class Receiver {
public:
    /// Time for what has arrived to go through the ring after stop(). A system in order needs a fraction of
    /// it.
    static constexpr std::chrono::milliseconds kLongestEnd{10'000};

    /// Starts the thread.
    Receiver(std::span<const std::unique_ptr<ReceiveSocket>> sockets, DatagramRing& ring,
             std::chrono::milliseconds longest_end = kLongestEnd);
    /// Stops and joins.
    ~Receiver();
    Receiver(const Receiver&) = delete;
    Receiver& operator=(const Receiver&) = delete;

    /// Takes in what has already arrived and nothing else, closes the ring and joins the thread. Waits for
    /// room in the ring, `longest_end` at most. Main thread.
    void stop();

    /// Datagrams that had arrived before stop() and found no room in its time. Any thread.
    [[nodiscard]] std::uint64_t left_behind() const noexcept {
        return left_behind_.load(std::memory_order_relaxed);
    }

private:
    using Clock = std::chrono::steady_clock;
    struct Batch;
    /// What a look at a socket found.
    enum class Found {
        Nothing,   ///< less than was asked for: the socket is empty
        More,      ///< as much as was asked for: there may be more
        RingFull,  ///< no slot to read into: there may be any number
    };

    void run();
    Found drain_batch(ReceiveSocket& socket, Batch& batch);
    Found drain(ReceiveSocket& socket, Batch& batch);
    void drain_to_the_end(Batch& batch);
    /// Waits for room in the full ring; false when the time is over.
    [[nodiscard]] bool wait_for_room(Clock::time_point until);
    void count_left_behind(ReceiveSocket& socket, Batch& batch);

    std::span<const std::unique_ptr<ReceiveSocket>> sockets_;
    DatagramRing& ring_;
    std::chrono::milliseconds longest_end_;
    /// Written by the receive thread, read by any.
    std::atomic<std::uint64_t> left_behind_{0};
    /// Readable once the thread is to end.
    posix::FileDescriptor stop_event_;
    std::thread thread_;
};

}  // namespace forwarder
