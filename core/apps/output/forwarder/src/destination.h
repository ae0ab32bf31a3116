#pragma once
// One peer that packets are sent to: its socket, counters and back-off.

#include <array>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

#include <sys/socket.h>
#include <sys/uio.h>

#include "backoff.h"
#include "endpoint.h"
#include "log_limiter.h"
#include "posix/file_descriptor.h"

namespace forwarder {

/// What a failed send asks for.
enum class SendVerdict {
    Again,    ///< the error belongs to an earlier datagram, or to nothing: the same one may go now
    Full,     ///< the system's queue is full: wait
    BackOff,  ///< the destination cannot be reached: pause
};

[[nodiscard]] SendVerdict verdict_of(int error) noexcept;

/**
 * Sends packets to one address, in batches.
 *
 * Every destination has a socket of its own on purpose: packets for a node that does not answer address
 * resolution wait in the kernel at the expense of their socket's send buffer, and errors that come back later
 * belong to the socket too. The socket is not connected, so that it follows changes of routes and addresses.
 *
 * All functions run on the send thread but for the counters' readers, which any thread may call.
 */
class Destination {
public:
    /// Most packets in one call of send().
    static constexpr std::size_t kMostPackets = 256;

    struct Counters {
        std::uint64_t packets = 0;   ///< given to the network
        std::uint64_t bytes = 0;     ///< of those packets
        std::uint64_t errors = 0;    ///< that the system reported
        std::uint64_t unsent = 0;    ///< packets given up after an error, or passed over during a back-off
        std::uint64_t waits = 0;     ///< times that the system's send queue was found full
        std::uint64_t rejected = 0;  ///< datagrams for it whose packet was refused for its Art-Net identifier
        int last_error = 0;          ///< errno value; 0: none so far
    };

    /// @param target   address that the packets name
    /// @param sent_to  address that they go to
    void assign(const Endpoint& target, const Endpoint& sent_to);
    /// Marks what is sent from now on for the network's queues; 0, as at first: not marked. Before the first
    /// send.
    ///
    /// @param dscp  0 to 63
    void mark(unsigned dscp) noexcept { dscp_ = dscp; }

    /**
     * Aims the destination that many addresses share at the next of them; a pause meant for another ends.
     *
     * From then on an error does not count against the packet in hand at once: the system hands late reports
     * about one address to the next send, whatever its address. The packet is tried again when the reports
     * are read.
     */
    void retarget(const Endpoint& sent_to);

    /**
     * Sends packets in order, each part one datagram; at most kMostPackets.
     *
     * Returns how many are settled, sent or not: all of them, or fewer when the system's queue is full; the
     * rest may be offered again, or be given up. Never waits.
     */
    [[nodiscard]] std::size_t send(std::span<const iovec> packets, Backoff::Clock::time_point now);
    /// Counts packets as lost to a queue that stays full, and pauses.
    void give_up(std::size_t packets, Backoff::Clock::time_point now) noexcept;
    /// Counts a datagram that names this destination and carries no Art-Net packet.
    void count_rejected() noexcept { rejected_.fetch_add(1, std::memory_order_relaxed); }
    /// Counts packets that were never tried.
    void count_unsent(std::size_t packets) noexcept;

    /// An error, and the address that it is about.
    struct Error {
        int number = 0;  ///< errno value; 0: none
        Endpoint about;
    };
    /// The last error since this was called before.
    [[nodiscard]] Error take_error() noexcept;
    [[nodiscard]] LogLimiter& log_limiter() noexcept { return log_limiter_; }
    /// -1 before the first send.
    [[nodiscard]] int descriptor() const noexcept { return socket_.get(); }
    [[nodiscard]] const Endpoint& target() const noexcept { return target_; }
    [[nodiscard]] const Endpoint& sent_to() const noexcept { return sent_to_; }
    /// Any thread.
    [[nodiscard]] Counters counters() const noexcept;

private:
    bool open() noexcept;
    void count_error(int error, const Endpoint& about) noexcept;
    /// Empties the socket's queue of reports; the address of the last one, where there was any.
    std::optional<Endpoint> read_error_reports() noexcept;

    Endpoint target_;
    Endpoint sent_to_;
    sockaddr_in address_{};
    posix::FileDescriptor socket_;
    unsigned dscp_ = 0;
    Backoff backoff_;
    LogLimiter log_limiter_{1, std::chrono::seconds{10}};
    Error fresh_error_;
    /// Set once many addresses share this destination.
    bool shared_ = false;
    /// Counters: written by the send thread, read by any; they publish nothing else.
    std::atomic<std::uint64_t> packets_{0};
    std::atomic<std::uint64_t> bytes_{0};
    std::atomic<std::uint64_t> errors_{0};
    std::atomic<std::uint64_t> unsent_{0};
    std::atomic<std::uint64_t> waits_{0};
    std::atomic<std::uint64_t> rejected_{0};
    std::atomic<int> last_error_{0};
};

}  // namespace forwarder
