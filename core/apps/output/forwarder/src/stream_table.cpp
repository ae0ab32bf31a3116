#include "stream_table.h"

namespace forwarder {

std::size_t StreamTable::find(std::size_t destination, unsigned universe) {
    const std::uint64_t key = std::uint64_t{destination} << 16 | universe;
    if (const auto known = numbers_.find(key); known != numbers_.end()) {
        return known->second;
    }
    if (destinations_.size() >= kMostStreams) {
        return kNoStream;
    }
    const std::size_t stream = destinations_.size();
    numbers_.emplace(key, stream);
    destinations_.push_back(destination);
    return stream;
}

}  // namespace forwarder
