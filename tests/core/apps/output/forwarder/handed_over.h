#pragma once
// Datagrams that a test hands over, in place of sockets.

#include <algorithm>
#include <condition_variable>
#include <mutex>
#include <vector>

#include "datagram_source.h"
#include "udp_peer.h"

namespace tests {

/// A source that a test fills. All functions lock.
class HandedOver final : public forwarder::DatagramSource {
public:
    /// Hands all datagrams over at once, as received at the time given.
    void arrive(const std::vector<Bytes>& datagrams, Clock::time_point received) {
        const std::scoped_lock guard(mutex_);
        for (const Bytes& datagram : datagrams) {
            forwarder::Slot& slot = waiting_.emplace_back();
            std::ranges::copy(datagram, slot.data.begin());
            slot.size = datagram.size();
            slot.received = received;
        }
        changed_.notify_all();
    }

    std::span<forwarder::Slot> wait(std::size_t limit, Clock::time_point until) override {
        std::unique_lock guard(mutex_);
        const auto ready = [this] { return stopped_ || !waiting_.empty(); };
        if (until == Clock::time_point::max()) {
            changed_.wait(guard, ready);
        } else {
            changed_.wait_until(guard, until, ready);
        }
        const auto end = waiting_.begin() + static_cast<std::ptrdiff_t>(std::min(limit, waiting_.size()));
        in_hand_.assign(waiting_.begin(), end);
        waiting_.erase(waiting_.begin(), end);
        return in_hand_;
    }

    void take_in() override {
        const std::scoped_lock guard(mutex_);
        ++looks_;
    }

    /// How often it was asked to take in what has come.
    [[nodiscard]] int looks() const {
        const std::scoped_lock guard(mutex_);
        return looks_;
    }

    void release(std::size_t /*count*/) noexcept override {}

    [[nodiscard]] bool finished() const noexcept override {
        const std::scoped_lock guard(mutex_);
        return stopped_ && waiting_.empty();
    }

    void stop() noexcept override {
        const std::scoped_lock guard(mutex_);
        stopped_ = true;
        changed_.notify_all();
    }

private:
    mutable std::mutex mutex_;
    std::condition_variable changed_;
    // Guarded by mutex_.
    std::vector<forwarder::Slot> waiting_;
    bool stopped_ = false;
    int looks_ = 0;
    /// What the last wait() has handed out; the waiting thread's.
    std::vector<forwarder::Slot> in_hand_;
};

}  // namespace tests
