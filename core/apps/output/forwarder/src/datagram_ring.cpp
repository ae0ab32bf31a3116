#include "datagram_ring.h"

#include <algorithm>
#include <cassert>
#include <cerrno>
#include <ctime>
#include <system_error>

#include <sys/eventfd.h>

namespace forwarder {

DatagramRing::DatagramRing(std::size_t capacity)
    : slots_(capacity), room_event_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
    assert(capacity > 0);
    if (!room_event_) {
        throw std::system_error(errno, std::generic_category(), "eventfd");
    }
    sem_init(&reader_wake_, 0, 0);
}

DatagramRing::~DatagramRing() {
    sem_destroy(&reader_wake_);
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
    published_.store(published_.load(std::memory_order_relaxed) + count, std::memory_order_seq_cst);
    wake_reader();
}

bool DatagramRing::await_room() noexcept {
    // What an earlier wish has brought must not end the next wait.
    eventfd_t ignored = 0;
    eventfd_read(room_event_.get(), &ignored);
    writer_waits_.store(true, std::memory_order_seq_cst);
    const std::uint64_t released = released_.load(std::memory_order_seq_cst);
    if (published_.load(std::memory_order_relaxed) - released < slots_.size()) {
        writer_waits_.store(false, std::memory_order_relaxed);
        return false;
    }
    return true;
}

void DatagramRing::close() noexcept {
    closed_.store(true, std::memory_order_seq_cst);
    wake_reader();
}

void DatagramRing::wake_reader() noexcept {
    if (reader_waits_.load(std::memory_order_seq_cst) && reader_waits_.exchange(false)) {
        sem_post(&reader_wake_);
    }
}

std::span<Slot> DatagramRing::wait_readable(std::size_t limit, Clock::time_point until) noexcept {
    const std::uint64_t released = released_.load(std::memory_order_relaxed);
    for (bool announced = false;;) {
        // In this order: what was published before the close is seen by whoever sees the close.
        const bool closed = closed_.load(std::memory_order_seq_cst);
        const std::uint64_t published = published_.load(std::memory_order_seq_cst);
        if (published != released || closed || (announced && Clock::now() >= until)) {
            if (announced) {
                reader_waits_.store(false, std::memory_order_relaxed);
            }
            const std::size_t begin = released % slots_.size();
            const std::size_t count =
                std::min({limit, static_cast<std::size_t>(published - released), slots_.size() - begin});
            return {slots_.data() + begin, count};
        }
        if (announced) {
            sleep(until);
        }
        reader_waits_.store(true, std::memory_order_seq_cst);
        announced = true;
    }
}

bool DatagramRing::finished() const noexcept {
    return closed_.load(std::memory_order_acquire) &&
           published_.load(std::memory_order_acquire) == released_.load(std::memory_order_relaxed);
}

void DatagramRing::release(std::size_t count) noexcept {
    released_.store(released_.load(std::memory_order_relaxed) + count, std::memory_order_seq_cst);
    if (writer_waits_.load(std::memory_order_seq_cst) && writer_waits_.exchange(false)) {
        eventfd_write(room_event_.get(), 1);
    }
}

void DatagramRing::sleep(Clock::time_point until) noexcept {
    if (until == Clock::time_point::max()) {
        sem_wait(&reader_wake_);
        return;
    }
    // The steady clock is the system's monotonic one.
    const auto since_start = until.time_since_epoch();
    const auto seconds = std::chrono::floor<std::chrono::seconds>(since_start);
    const timespec time{static_cast<std::time_t>(seconds.count()),
                        static_cast<long>(std::chrono::nanoseconds(since_start - seconds).count())};
    sem_clockwait(&reader_wake_, CLOCK_MONOTONIC, &time);
}

}  // namespace forwarder
