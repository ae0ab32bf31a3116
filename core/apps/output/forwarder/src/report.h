#pragma once
// The counters as a table for people or as JSON for programs.

#include <array>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "intake.h"
#include "receive_socket.h"
#include "sender.h"

namespace forwarder {

/// One moment's counters. Once everything is settled: received = accepted + all rejected, and accepted (with
/// an outlet, + re-sent + ArtSync) = packets + unsent over all destinations.
struct Report {
    struct Port {
        std::uint16_t port = 0;
        std::uint64_t received = 0;
        std::uint64_t kernel_drops = 0;
        int receive_buffer = 0;
    };
    struct Peer {
        Endpoint target;
        Endpoint sent_to;
        Destination::Counters counters;
    };

    std::vector<Port> ports;
    /// Arrived before the end, and not taken in within its time; neither received nor dropped.
    std::uint64_t left_behind = 0;
    std::uint64_t accepted = 0;
    /// By fault, in the order of their values without None.
    std::array<std::uint64_t, kFaults> rejected{};
    std::vector<Peer> destinations;
    /// Destinations beyond the table's limit, together; set when there were any.
    std::optional<Destination::Counters> others;
    std::optional<Peer> tee;
    /// Set when an option asks for an outlet.
    std::optional<OutletCounters> outlet;

    [[nodiscard]] std::uint64_t received() const;
    [[nodiscard]] std::uint64_t kernel_drops() const;
    [[nodiscard]] std::uint64_t rejected_in_all() const;
};

/// Reads all counters. Any thread.
[[nodiscard]] Report take_report(std::span<const std::unique_ptr<ReceiveSocket>> sockets,
                                 const Intake& intake, const Sender& sender);

/// Lines ending in line feeds.
[[nodiscard]] std::string to_table(const Report& report);
/// One object in one line, with a line feed.
[[nodiscard]] std::string to_json(const Report& report);

}  // namespace forwarder
