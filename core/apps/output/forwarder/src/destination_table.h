#pragma once
// All destinations, in bounded memory.

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <unordered_map>
#include <vector>

#include "destination.h"
#include "rewrite.h"

namespace forwarder {

/**
 * Finds or makes the destination of each target address.
 *
 * The send thread looks up and adds; any thread may read those already there, since elements never move and
 * their number is published after they are filled in.
 */
class DestinationTable {
public:
    /// Each takes a socket; together with the program's own descriptors they stay below the usual 1,024.
    static constexpr std::size_t kMostDestinations = 512;

    /// @param dscp  mark of all that is sent; 0: none
    explicit DestinationTable(std::span<const Rewrite> rewrites, unsigned dscp = 0);

    /**
     * Index of the destination of `target`; kMostDestinations, the index of the shared one, when it is new
     * and the table is full. Send thread.
     */
    [[nodiscard]] std::size_t find(const Endpoint& target);

    /// @param index  below size(), or kMostDestinations for the shared destination
    [[nodiscard]] Destination& operator[](std::size_t index) noexcept { return destinations_[index]; }
    [[nodiscard]] const Destination& operator[](std::size_t index) const noexcept {
        return destinations_[index];
    }
    /// Destinations filled in, without the shared one. Any thread.
    [[nodiscard]] std::size_t size() const noexcept { return size_.load(std::memory_order_acquire); }
    /// Address that packets for `target` go to.
    [[nodiscard]] Endpoint rewritten_target(const Endpoint& target) const noexcept;

private:
    std::vector<Rewrite> rewrites_;
    /// The last element is the shared destination.
    std::unique_ptr<std::array<Destination, kMostDestinations + 1>> storage_;
    std::span<Destination> destinations_;
    /// Written by the send thread; its release store publishes the destinations below it.
    std::atomic<std::size_t> size_{0};
    /// Address and port to index; send thread only.
    std::unordered_map<std::uint64_t, std::size_t> index_;
};

}  // namespace forwarder
