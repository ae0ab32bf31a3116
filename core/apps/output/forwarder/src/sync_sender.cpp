#include "sync_sender.h"

#include "stream_table.h"

namespace forwarder {

bool SyncSender::packet(std::size_t destination, std::size_t stream, Time received) {
    if (destination >= groups_.size()) {
        groups_.resize(destination + 1);
    }
    if (stream != kNoStream && stream >= came_in_.size()) {
        came_in_.resize(stream + 1);
    }
    std::uint64_t& group = groups_[destination];
    const bool open = open_until_.holds(destination);
    const bool repeated = stream != kNoStream && came_in_[stream] == group + 1;
    const bool ended = open && (repeated || received >= open_until_.due(destination));
    if (ended) {
        ++group;
    }
    if (stream != kNoStream) {
        came_in_[stream] = group + 1;
    }
    open_until_.put(destination, received + kGap);
    return ended;
}

std::optional<std::size_t> SyncSender::take_ended(Time seen) {
    if (open_until_.empty() || open_until_.first_due() > seen) {
        return std::nullopt;
    }
    const std::size_t destination = open_until_.first();
    open_until_.remove(destination);
    ++groups_[destination];
    return destination;
}

}  // namespace forwarder
