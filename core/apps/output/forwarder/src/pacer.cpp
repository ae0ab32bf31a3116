#include "pacer.h"

#include <algorithm>
#include <cassert>

#include "stream_table.h"

namespace forwarder {

void Pacer::Waiting::fill(std::span<const unsigned char> packet) {
    assert(packet.size() <= bytes.size());
    std::ranges::copy(packet, bytes.begin());
    size = packet.size();
}

Pacer::Loss Pacer::add(std::size_t destination, std::size_t stream, std::span<const unsigned char> packet,
                       Time now) {
    Queue& queue = queues_[destination];
    if (const auto older = queue.numbers.find(stream); older != queue.numbers.end()) {
        queue.waiting[static_cast<std::size_t>(older->second - queue.taken)].fill(packet);
        return Loss::Superseded;
    }
    Loss loss = Loss::None;
    if (queue.frames >= kMostOfOne || size_ >= kMostInAll) {
        loss = Loss::Dropped;
        if (!pop_frame(queue)) {
            // Others have all the room.
            turns_.remove(destination);
            return loss;
        }
    }
    Waiting& place = push(destination, queue, now);
    place.stream = stream;
    place.sync = false;
    place.fill(packet);
    ++size_;
    ++queue.frames;
    if (stream != kNoStream) {
        queue.numbers.emplace(stream, queue.taken + queue.waiting.size() - 1);
    }
    return loss;
}

bool Pacer::holds(std::size_t destination, std::size_t stream) const {
    const auto queue = queues_.find(destination);
    return queue != queues_.end() && queue->second.numbers.contains(stream);
}

void Pacer::add_sync(std::size_t destination, Time now) {
    Queue& queue = queues_[destination];
    if (!queue.waiting.empty() && queue.waiting.back().sync) {
        return;
    }
    Waiting& place = push(destination, queue, now);
    place.stream = kNoStream;
    place.sync = true;
    place.size = 0;
}

std::optional<Pacer::Departure> Pacer::take(Time now) {
    if (turns_.first_due() > now) {
        return std::nullopt;
    }
    const std::size_t destination = turns_.first();
    Queue& queue = queues_[destination];
    departing_ = queue.waiting.front();
    pop(queue);
    queue.next_turn = now + gap_;
    if (queue.waiting.empty()) {
        turns_.remove(destination);
    } else {
        turns_.put(destination, queue.next_turn);
    }
    return Departure{
        destination, departing_.stream, departing_.sync, {departing_.bytes.data(), departing_.size}};
}

std::optional<Pacer::Forgotten> Pacer::forget_one() {
    if (turns_.empty()) {
        return std::nullopt;
    }
    Forgotten forgotten{turns_.first(), 0};
    const std::size_t before = size_;
    for (Queue& queue = queues_[forgotten.destination]; !queue.waiting.empty();) {
        pop(queue);
    }
    turns_.remove(forgotten.destination);
    forgotten.frames = before - size_;
    return forgotten;
}

void Pacer::pop(Queue& queue) {
    const Waiting& front = queue.waiting.front();
    if (front.stream != kNoStream) {
        queue.numbers.erase(front.stream);
    }
    if (!front.sync) {
        --size_;
        --queue.frames;
    }
    queue.waiting.pop_front();
    ++queue.taken;
}

bool Pacer::pop_frame(Queue& queue) {
    const std::size_t before = size_;
    while (size_ == before && !queue.waiting.empty()) {
        pop(queue);
    }
    return size_ != before;
}

Pacer::Waiting& Pacer::push(std::size_t destination, Queue& queue, Time now) {
    if (!turns_.holds(destination)) {
        turns_.put(destination, std::max(queue.next_turn, now));
    }
    return queue.waiting.emplace_back();
}

}  // namespace forwarder
