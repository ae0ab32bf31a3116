#include "datagram_ring.h"

#include <algorithm>
#include <cassert>

namespace forwarder {

DatagramRing::DatagramRing(std::size_t capacity) : slots_(capacity) {
    assert(capacity > 0);
}

std::span<Slot> DatagramRing::writable(std::size_t limit) noexcept {
    const std::uint64_t published = published_.load(std::memory_order_relaxed);
    const std::uint64_t used = published - released_.load(std::memory_order_acquire);
    const std::size_t begin = published % slots_.size();
    const std::size_t count =
        std::min({limit, slots_.size() - static_cast<std::size_t>(used), slots_.size() - begin});
    return {slots_.data() + begin, count};
}

void DatagramRing::publish(std::size_t count) noexcept {
    published_.store(published_.load(std::memory_order_relaxed) + count, std::memory_order_release);
    signal_.fetch_add(1, std::memory_order_release);
    signal_.notify_one();
}

void DatagramRing::close() noexcept {
    closed_.store(true, std::memory_order_release);
    signal_.fetch_add(1, std::memory_order_release);
    signal_.notify_one();
}

std::span<Slot> DatagramRing::wait_readable(std::size_t limit) noexcept {
    const std::uint64_t released = released_.load(std::memory_order_relaxed);
    for (;;) {
        // The signal is read before what it announces, so that a publish in between ends the wait.
        const std::uint32_t signal = signal_.load(std::memory_order_acquire);
        const bool closed = closed_.load(std::memory_order_acquire);
        const std::uint64_t published = published_.load(std::memory_order_acquire);
        if (published != released || closed) {
            const std::size_t begin = released % slots_.size();
            const std::size_t count =
                std::min({limit, static_cast<std::size_t>(published - released), slots_.size() - begin});
            return {slots_.data() + begin, count};
        }
        signal_.wait(signal, std::memory_order_acquire);
    }
}

void DatagramRing::release(std::size_t count) noexcept {
    released_.store(released_.load(std::memory_order_relaxed) + count, std::memory_order_release);
}

}  // namespace forwarder
