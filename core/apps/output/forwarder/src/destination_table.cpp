#include "destination_table.h"

namespace forwarder {

DestinationTable::DestinationTable(std::span<const Rewrite> rewrites, unsigned dscp)
    : rewrites_(rewrites.begin(), rewrites.end()),
      storage_(std::make_unique<std::array<Destination, kMostDestinations + 1>>()),
      destinations_(*storage_) {
    index_.reserve(kMostDestinations);
    for (Destination& destination : destinations_) {
        destination.mark(dscp);
    }
}

std::size_t DestinationTable::find(const Endpoint& target) {
    const std::uint64_t key = std::uint64_t{target.address} << 16 | target.port;
    if (const auto known = index_.find(key); known != index_.end()) {
        return known->second;
    }
    const std::size_t index = index_.size();
    if (index < kMostDestinations) {
        destinations_[index].assign(target, rewritten_target(target));
        index_.emplace(key, index);
        size_.store(index + 1, std::memory_order_release);
    }
    return index;
}

Endpoint DestinationTable::rewritten_target(const Endpoint& target) const noexcept {
    return {rewritten(target.address, rewrites_), target.port};
}

}  // namespace forwarder
