#pragma once
// The receive thread: drains the sockets into the ring and does nothing else.

#include <atomic>
#include <cstdint>
#include <memory>
#include <span>
#include <thread>

#include "datagram_ring.h"
#include "file_descriptor.h"
#include "receive_socket.h"

namespace forwarder {

/**
 * Owns the receive thread. It sleeps in poll() without a bound; a datagram or stop() ends that.
 *
 * The sockets and the ring are borrowed and outlive this object.
 */
class Receiver {
public:
    /// Starts the thread.
    Receiver(std::span<const std::unique_ptr<ReceiveSocket>> sockets, DatagramRing& ring);
    /// Stops and joins.
    ~Receiver();
    Receiver(const Receiver&) = delete;
    Receiver& operator=(const Receiver&) = delete;

    /// Takes in what has already arrived, closes the ring and joins the thread. Main thread.
    void stop();

    /// Datagrams read while the ring was full, and lost. Any thread.
    [[nodiscard]] std::uint64_t ring_drops() const noexcept {
        return ring_drops_.load(std::memory_order_relaxed);
    }

private:
    struct Batch;

    void run();
    /// Takes in one batch; true when the socket may hold more.
    bool drain_batch(ReceiveSocket& socket, Batch& batch);
    void drain(ReceiveSocket& socket, Batch& batch);

    std::span<const std::unique_ptr<ReceiveSocket>> sockets_;
    DatagramRing& ring_;
    /// Written by the receive thread, read by any.
    std::atomic<std::uint64_t> ring_drops_{0};
    /// Readable once the thread is to end.
    FileDescriptor stop_event_;
    std::thread thread_;
};

}  // namespace forwarder
