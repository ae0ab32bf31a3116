#pragma once
// The thread of the forwarding: checks datagrams and delivers their packets.

#include <array>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <thread>
#include <vector>

#include <sys/uio.h>

#include "artnet/forwarding_datagram.h"
#include "backlog.h"
#include "datagram_source.h"
#include "destination_table.h"
#include "log_queue.h"
#include "options.h"
#include "outlet.h"
#include "watch_statistics.h"

namespace forwarder {

/// Reasons to reject a datagram, without None; a fault's index is its value less one.
inline constexpr std::size_t kFaults = 5;
static_assert(static_cast<std::size_t>(artnet::ForwardingFault::Identifier) == kFaults);

/// Words for a reason, for people and (with underscores) for programs.
[[nodiscard]] const char* fault_text(artnet::ForwardingFault fault) noexcept;
[[nodiscard]] const char* fault_key(artnet::ForwardingFault fault) noexcept;

/**
 * Owns the send thread. It sleeps in the source without a bound; a datagram or the source's end ends that, or
 * the next try of a backlog, or what falls due in the outlet, which there is only where an option asks for
 * it. It waits for nothing else: what a destination's full queue does not take goes into the backlog, and the
 * next datagrams of the source are served.
 *
 * The source, the log queue and the statistics are borrowed and outlive this object.
 */
class Sender final : private PacketSink {
public:
    /// How long packets wait for a full queue.
    struct Times {
        /// Without any progress of their destination.
        Backoff::Clock::duration patience = std::chrono::milliseconds(20);
        /// Once the source is read to its end, for each of the two that follow: sending what is paced, then
        /// what waits for full queues.
        Backoff::Clock::duration longest_end = std::chrono::seconds(2);
    };

    /// Starts the thread. `watch` may be null: nothing is recorded.
    Sender(DatagramSource& source, const Options& options, LogQueue& log, WatchStatistics* watch);
    Sender(DatagramSource& source, const Options& options, LogQueue& log, WatchStatistics* watch,
           Times times);
    /// Stops the source and joins.
    ~Sender();
    Sender(const Sender&) = delete;
    Sender& operator=(const Sender&) = delete;

    /// Waits until everything that the source still has, once it is stopped, is settled. Main thread.
    void join();

    /// Datagrams that passed all checks. Any thread, as all below.
    [[nodiscard]] std::uint64_t accepted() const noexcept {
        return accepted_.load(std::memory_order_relaxed);
    }
    [[nodiscard]] std::uint64_t rejected(artnet::ForwardingFault fault) const noexcept;
    [[nodiscard]] const DestinationTable& destinations() const noexcept { return destinations_; }
    [[nodiscard]] const std::optional<Destination>& tee() const noexcept { return tee_; }
    [[nodiscard]] const std::optional<Outlet>& outlet() const noexcept { return outlet_; }

private:
    /// One accepted packet of the batch in hand.
    struct Item {
        std::size_t destination = 0;
        std::size_t slot = 0;
        Endpoint target;
    };
    void run();
    void process(std::span<Slot> slots);
    void sort_in(std::span<Slot> slots);
    void reject(artnet::ForwardingFault fault, std::size_t size);
    void shape(std::span<const Item> items, std::span<Slot> slots, Backoff::Clock::time_point now);
    void send_shared(const Item& item, iovec packet, Backoff::Clock::time_point now);
    void offer(Destination& destination, std::span<const iovec> packets, Backoff::Clock::time_point now);
    /// Counts what was sent, and now and then looks at what has come meanwhile.
    void look_after(std::size_t packets);
    void deliver(std::size_t destination, std::span<const iovec> packets,
                 Backoff::Clock::time_point now) override;
    void lose(std::size_t destination, std::size_t packets) override;
    [[nodiscard]] Backoff::Clock::time_point next_wake() const noexcept;
    void retry_backlog();
    void settle_outlet();
    void settle_backlog();
    void report_error(Destination& destination, Backoff::Clock::time_point now);

    DatagramSource& source_;
    LogQueue& log_;
    WatchStatistics* watch_;
    DestinationTable destinations_;
    std::optional<Destination> tee_;
    Backlog backlog_;
    /// Between the source and the destinations; absent while no option asks for it.
    std::optional<Outlet> outlet_;
    Backoff::Clock::duration longest_end_;

    // Scratch of the send thread, reused for every batch.
    std::vector<Item> items_;
    std::vector<iovec> packets_;
    std::vector<iovec> copies_;
    /// Packets sent since the source was looked at.
    std::size_t sent_since_look_ = 0;
    LogLimiter error_limiter_{10, std::chrono::seconds{1}};
    LogLimiter reject_limiter_{5, std::chrono::seconds{10}};

    /// Counters: written by the send thread, read by any; they publish nothing else.
    std::atomic<std::uint64_t> accepted_{0};
    std::array<std::atomic<std::uint64_t>, kFaults> rejected_{};
    std::thread thread_;
};

}  // namespace forwarder
