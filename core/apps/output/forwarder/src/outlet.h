#pragma once
// What the options make of the packets between their arrival and the sockets.

#include <array>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include <sys/uio.h>

#include "artnet/forwarding_datagram.h"
#include "keep_alive.h"
#include "pacer.h"
#include "sequence_rewriter.h"
#include "stream_table.h"
#include "sync_sender.h"

namespace forwarder {

/// What is to be done with packets besides sending them; all off by default.
struct OutletSettings {
    bool sequence = false;
    bool sync = false;
    bool trim = false;
    /// Silence after which a stream's last frame is sent again.
    std::optional<std::chrono::nanoseconds> keep_alive{};
    /// Least time between two packets of one destination.
    std::optional<std::chrono::nanoseconds> pace{};

    [[nodiscard]] bool any() const noexcept { return sequence || sync || trim || keep_alive || pace; }
};

/// One moment's counters of an outlet.
struct OutletCounters {
    std::uint64_t streams = 0;     ///< pairs of destination and universe that are followed
    std::uint64_t untracked = 0;   ///< packets of pairs beyond the limit, and of shared destinations
    std::uint64_t resent = 0;      ///< frames sent again after a silence
    std::uint64_t syncs = 0;       ///< ArtSync packets
    std::uint64_t waiting = 0;     ///< frames that wait for their turn
    std::uint64_t superseded = 0;  ///< frames that a newer one replaced while they waited
    std::uint64_t dropped = 0;     ///< frames for which there was no room to wait, or no time at the end
};

/// Where an outlet's packets go.
class PacketSink {
public:
    /// Takes packets of one destination, in order, at most Outlet::kMostAtOnce; they are valid during the
    /// call.
    virtual void deliver(std::size_t destination, std::span<const iovec> packets, DueList::Time now) = 0;
    /// Is told that so many accepted packets of the destination will not come.
    virtual void lose(std::size_t destination, std::size_t packets) = 0;

protected:
    ~PacketSink() = default;
};

/**
 * Takes each packet from its arrival to the call that sends it: keeps it for re-sending, ends groups with an
 * ArtSync, lets it wait for its turn, and last gives it its number and its length.
 *
 * The packets given in are never changed, since others look at the same bytes. Times are given by the caller,
 * who must call serve() when next_due() has come. Without a setting its step is left out; without any there
 * is no outlet. All functions run on the send thread but counters(), which any may call.
 */
class Outlet {
public:
    using Time = DueList::Time;

    /// Packets given to the sink together, and frames sent again before new arrivals are looked at.
    static constexpr std::size_t kMostAtOnce = 256;

    /// @param sink  borrowed; outlives this object
    Outlet(const OutletSettings& settings, PacketSink& sink);

    /// Takes in a packet of a destination that has an entry of its own; it must stay until flush() or
    /// serve().
    void arrive(std::size_t destination, std::span<const unsigned char> packet, Time received, Time now);
    /// What is sent of a packet whose destination has none: nothing can be known of its stream.
    [[nodiscard]] std::span<const unsigned char> pass(std::span<const unsigned char> packet) noexcept;
    /// Gives the sink what it has not been given yet.
    void flush(Time now);
    /// Does what is due, and flushes.
    ///
    /// @param seen  everything that was received before this time has been taken in
    void serve(Time now, Time seen);
    /// When serve() is to be called next; the end of time when nothing will be due.
    [[nodiscard]] Time next_due() const noexcept;

    /// Ends all groups, and re-sends nothing from now on; what waits goes on waiting for its turn.
    void finish(Time now);
    /// True when nothing waits.
    [[nodiscard]] bool idle() const noexcept { return !pacer_ || pacer_->empty(); }
    /// Loses all that waits.
    void give_up();

    [[nodiscard]] OutletCounters counters() const noexcept;

private:
    using Counter = std::atomic<std::uint64_t>;

    void emit(std::size_t stream, std::span<const unsigned char> packet);
    void enqueue(std::size_t destination, std::size_t stream, std::span<const unsigned char> packet,
                 Time now);
    void group(std::size_t destination, std::size_t stream, Time received, Time now);
    void sync(std::size_t destination, Time now);
    void emit_sync();
    void resend(Time now);
    void release(Time now);
    std::span<unsigned char> copy(std::span<const unsigned char> packet);
    void make_room(std::size_t destination, Time now);
    void publish() noexcept;
    void lose(std::size_t destination, std::size_t packets, Counter& counter);

    PacketSink& sink_;
    /// The ArtSync packet.
    std::vector<unsigned char> sync_packet_;
    bool trim_;
    /// False when nothing needs to know of streams.
    bool follows_;
    StreamTable streams_;
    std::optional<SequenceRewriter> sequences_;
    std::optional<SyncSender> syncs_;
    std::optional<KeepAlive> keep_alive_;
    std::optional<Pacer> pacer_;

    /// Packets for the sink, all of one destination.
    std::vector<iovec> out_;
    std::size_t out_destination_ = 0;
    /// Bytes of those that must not stay where they are.
    std::vector<std::array<unsigned char, artnet::kForwardedPacketSize>> copies_;
    std::size_t copies_used_ = 0;

    /// Counters: written by the send thread, read by any; they publish nothing else.
    Counter stream_count_{0};
    Counter untracked_{0};
    Counter resent_{0};
    Counter sync_count_{0};
    Counter waiting_{0};
    Counter superseded_{0};
    Counter dropped_{0};
};

}  // namespace forwarder
