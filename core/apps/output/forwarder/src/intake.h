#pragma once
// Takes datagrams out of the sockets, faster than they are sent.

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include <poll.h>

#include "datagram_source.h"
#include "posix/file_descriptor.h"
#include "receive_socket.h"

namespace forwarder {

/**
 * The sockets, and a ring of slots that the kernel writes them into; all memory is taken at construction.
 *
 * The thread that sends also receives: a datagram that went through a second thread would wait for that one
 * to be woken, many times as long as the forwarding itself takes. So that a burst is not lost in a small
 * receive buffer while the thread sends, it takes in several times as many datagrams as it sends at once, as
 * long as there are so many: what has to wait waits in the ring.
 *
 * While the ring is full, datagrams are left in the sockets' buffers on purpose: those hold several times as
 * many as the ring, and what goes lost when they overflow is counted by the kernel, to the last datagram. To
 * read and drop would lose the newest levels, which stand until somebody sends others.
 *
 * The sockets are borrowed and outlive this object. Send thread only, but where it says otherwise.
 */
class Intake final : public DatagramSource {
public:
    /// Time for what has arrived to be taken in after stop(). A system in order needs a fraction of it.
    static constexpr std::chrono::milliseconds kLongestEnd{10'000};

    /// @param capacity  slots, at least 1. Throws std::system_error when the system refuses a descriptor.
    Intake(std::span<const std::unique_ptr<ReceiveSocket>> sockets, std::size_t capacity,
           std::chrono::milliseconds longest_end = kLongestEnd);
    ~Intake();
    Intake(const Intake&) = delete;
    Intake& operator=(const Intake&) = delete;

    [[nodiscard]] std::span<Slot> wait(std::size_t limit, Clock::time_point until) override;
    void take_in() override;
    void release(std::size_t count) noexcept override;
    [[nodiscard]] bool finished() const noexcept override { return ended_ && released_ == filled_; }
    void stop() noexcept override;

    /// Datagrams that had arrived before stop() and found no room in its time. Any thread.
    [[nodiscard]] std::uint64_t left_behind() const noexcept {
        return left_behind_.load(std::memory_order_relaxed);
    }

private:
    struct Batch;

    void await_datagram(Clock::time_point until);
    /// Has all sockets looked at next.
    void mark_all() noexcept;
    void receive();
    /// True when the socket was found empty.
    bool drain(ReceiveSocket& socket);
    [[nodiscard]] std::span<Slot> writable(std::size_t limit) noexcept;
    void count_left_behind(ReceiveSocket& socket);

    std::span<const std::unique_ptr<ReceiveSocket>> sockets_;
    std::vector<Slot> slots_;
    std::chrono::milliseconds longest_end_;
    std::unique_ptr<Batch> batch_;
    /// The stop event, and then the sockets: those that may hold something are marked as readable.
    std::vector<pollfd> waits_;
    /// Slots ever filled and ever released.
    std::uint64_t filled_ = 0;
    std::uint64_t released_ = 0;
    /// Whose turn it is: the room that a full ring gets back is used up by the first with much to read.
    std::size_t first_ = 0;
    /// Nothing is taken in any more.
    bool ended_ = false;
    /// Set once the sockets are shut for what comes later: when to leave behind what is in them.
    Clock::time_point deadline_ = Clock::time_point::max();
    /// Written by the send thread, read by any.
    std::atomic<std::uint64_t> left_behind_{0};
    /// Set by stop(), on any thread.
    std::atomic<bool> stop_wanted_{false};
    /// Readable from then on.
    posix::FileDescriptor stop_event_;
};

}  // namespace forwarder
