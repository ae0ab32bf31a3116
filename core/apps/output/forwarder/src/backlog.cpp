#include "backlog.h"

#include <algorithm>
#include <cassert>
#include <cstring>

namespace forwarder {

void Backlog::add(Destination& destination, std::span<const iovec> packets, Clock::time_point now) {
    if (packets.empty()) {
        return;
    }
    if (waiting_.empty()) {
        next_retry_ = now + kRetryAfter;
    }
    Queue& queue = waiting_.try_emplace(&destination, Queue{{}, now}).first->second;
    for (const iovec& packet : packets) {
        if (queue.packets.size() >= kMostOfOne || size_ >= kMostInAll) {
            destination.count_unsent(1);
            if (queue.packets.empty()) {
                continue;
            }
            pop(queue, 1);
        }
        Packet& copy = queue.packets.emplace_back();
        assert(packet.iov_len <= copy.bytes.size());
        copy.size = packet.iov_len;
        std::memcpy(copy.bytes.data(), packet.iov_base, packet.iov_len);
        ++size_;
    }
    if (queue.packets.empty()) {
        waiting_.erase(&destination);
    }
}

std::span<Destination* const> Backlog::retry(Clock::time_point now) {
    tried_.clear();
    // Where the room is an interface's and not their own, the first take all of it; so each is first in turn.
    auto next = waiting_.upper_bound(first_of_last_retry_);
    std::size_t settled = 0;
    for (std::size_t i = 0; i < waiting_.size() && settled < kMostAtOnce; ++i, ++next) {
        if (next == waiting_.end()) {
            next = waiting_.begin();
        }
        settled += offer(*next->first, next->second, now);
        tried_.push_back(next->first);
    }
    first_of_last_retry_ = tried_.empty() ? nullptr : tried_.front();
    std::erase_if(waiting_, [](const auto& entry) { return entry.second.packets.empty(); });
    next_retry_ = settled < kMostAtOnce ? now + kRetryAfter : now;
    return tried_;
}

std::span<Destination* const> Backlog::give_up(Clock::time_point now) {
    tried_.clear();
    for (const auto& [destination, queue] : waiting_) {
        destination->give_up(queue.packets.size(), now);
        tried_.push_back(destination);
    }
    waiting_.clear();
    size_ = 0;
    return tried_;
}

std::size_t Backlog::offer(Destination& destination, Queue& queue, Clock::time_point now) {
    std::array<iovec, kMostAtOnce> parts;
    const std::size_t count = std::min(parts.size(), queue.packets.size());
    for (std::size_t i = 0; i < count; ++i) {
        parts[i] = {queue.packets[i].bytes.data(), queue.packets[i].size};
    }
    const std::size_t settled = destination.send(std::span(parts).first(count), now);
    if (settled > 0) {
        pop(queue, settled);
        queue.progress = now;
    }
    if (!queue.packets.empty() && now - queue.progress >= patience_) {
        destination.give_up(queue.packets.size(), now);
        pop(queue, queue.packets.size());
    }
    return settled;
}

void Backlog::pop(Queue& queue, std::size_t count) {
    queue.packets.erase(queue.packets.begin(), queue.packets.begin() + static_cast<std::ptrdiff_t>(count));
    size_ -= count;
}

}  // namespace forwarder
